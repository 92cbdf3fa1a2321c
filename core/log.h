// SPDX-License-Identifier: ISC
// The log of the daemon and its lines in the user's system log.
#pragma once

#include "core/kelm.h"

// The platform's logging library brings this function; core/qm_syslog.cpp stands in where there is
// none. level: 3 throughout; success: 1 for a success line, 0 for a failure line.
extern "C" void qm_syslog(int level, int success, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

namespace kelm {

// Writes one text to "/dev/console", at most 2047 bytes of it; the rest is cut.
// Returns 0, or -1 when the console cannot be opened. A line is dropped without notice when another
// process holds the console's lock or the console takes nothing: the daemon never waits for its
// log. With kelm_log_to_system_log the same holds for "/dev/log" (core/system_log.h), where each
// text is one line. The process's own threads take turns, so that neither loses a line to the
// other; a signal handler may call it where no thread of its own is inside, which the main loop's
// wait sees to. Allocates nothing. Call it through the macros below.
int kelm_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Where lines go from now on: to the system log as "kelm[PID]: TEXT" of a daemon, level "info", and
// not to the console; or to the console, as at the start. Before the first thread is made.
void kelm_log_to_system_log(bool on);

}  // namespace kelm

// One log line with the caller's name and line. The format is a literal. kelm_log_as is for a step
// that was split off from the function whose lines it writes: log readers look for that name.
#define kelm_log_as(name, level, format, ...)                                           \
    do {                                                                                \
        if (::kelm::kelm_dbg_level.load(std::memory_order_relaxed) >= (level))          \
            ::kelm::kelm_printf("kelm[%s:%d]: " format, name, __LINE__, ##__VA_ARGS__); \
    } while (0)

#define kelm_log_always(format, ...) \
    ::kelm::kelm_printf("kelm[%s:%d]: " format, __func__, __LINE__, ##__VA_ARGS__)
#define kelm_log_normal(format, ...) \
    kelm_log_as(__func__, ::kelm::KELM_LOG_NORMAL, format, ##__VA_ARGS__)
#define kelm_log_detail(format, ...) \
    kelm_log_as(__func__, ::kelm::KELM_LOG_DETAIL, format, ##__VA_ARGS__)

// Every per-band accessor answers a band without a session with this line, at level 4.
#define kelm_log_bad_band(band) kelm_log_normal("Bad wps session[band %d].\n", (band))
