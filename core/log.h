// SPDX-License-Identifier: ISC
// The log of the daemon and its lines in the user's system log.
#pragma once

#include "core/kelm.h"

// The platform's logging library brings this function; core/qm_syslog.cpp stands in where there is
// none. level: 3 throughout; success: 1 for a success line, 0 for a failure line.
extern "C" void qm_syslog(int level, int success, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

namespace kelm {

// Writes one text to "/dev/console", at most 2047 bytes of it; the rest is cut. Allocates nothing.
// Returns 0, or -1 when the console cannot be opened. The daemon's lines are written by the macros
// below, for which the same holds.
// - The daemon never waits long for its log. A line is dropped without notice when another process
//   holds the console's lock, or when the console takes nothing.
// - After kelm_log_to_system_log(true) the text goes to "/dev/log" instead (core/system_log.h).
//   There each text is one line.
// - The two threads take turns, so neither loses a line to the other.
// - The signal handler may call it too. It runs in the main loop's wait alone, and there the main
//   thread is never inside this function.
int kelm_printf(const char *format, ...) __attribute__((format(printf, 1, 2)));

// "kelm[NAME:NUMBER]: " and the text, written as by kelm_printf, from this level on. Call it
// through the macros below. The level is looked at in here, and the line's beginning stands in
// here: at each of 240 calls both would be a twentieth of the program.
void kelm_log_line(int level, const char *name, int number, const char *format, ...)
    __attribute__((format(printf, 4, 5)));

// Where lines go from now on. true: to the system log, as "kelm[PID]: TEXT" with facility "daemon"
// and level "info". false: to the console, as at the start. Call it before the first thread is
// made.
void kelm_log_to_system_log(bool on);

}  // namespace kelm

// One log line with a function's name and the number of this line. The format is a literal. The
// values are computed even where the line is not written.
// kelm_log_as is for a helper that writes a line of another function: log readers look for that
// function's name. docs/interfaces.md lists these names and their files.
#define kelm_log_as(name, level, format, ...) \
    ::kelm::kelm_log_line((level), (name), __LINE__, format, ##__VA_ARGS__)

#define kelm_log_always(format, ...) \
    kelm_log_as(__func__, ::kelm::KELM_LOG_ALWAYS, format, ##__VA_ARGS__)
#define kelm_log_normal(format, ...) \
    kelm_log_as(__func__, ::kelm::KELM_LOG_NORMAL, format, ##__VA_ARGS__)
#define kelm_log_detail(format, ...) \
    kelm_log_as(__func__, ::kelm::KELM_LOG_DETAIL, format, ##__VA_ARGS__)

// Every per-band accessor writes this line, at level 4, when the band has no session.
#define kelm_log_bad_band(band) kelm_log_normal("Bad wps session[band %d].\n", (band))
