// SPDX-License-Identifier: ISC
// The daemon's log without a console: formatted whole, so that a text read too far shows, and kept.
#include <cstdarg>
#include <atomic>
#include <cstdio>

#include "core/log.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

namespace {

constexpr size_t KEPT = 64 * 1024;
std::string kept;

__attribute__((format(printf, 1, 0))) void keep(const char *format, va_list values)
{
    char line[4096];
    PROPERTY(vsnprintf(line, sizeof line, format, values) >= 0);
    if (kept.size() < KEPT)
        kept += line;
}

}  // namespace

namespace kelm {

std::atomic<int32_t> kelm_dbg_level{KELM_LOG_DETAIL};

// Take the place of the daemon's own functions, which open, lock and close the console for each
// line.
int kelm_printf(const char *format, ...)
{
    va_list values;
    va_start(values, format);
    keep(format, values);
    va_end(values);
    return 0;
}

void kelm_log_line(int level, const char *name, int number, const char *format, ...)
{
    if (kelm_dbg_level < level)
        return;
    kelm_printf("kelm[%s:%d]: ", name, number);
    va_list values;
    va_start(values, format);
    keep(format, values);
    va_end(values);
}

void kelm_log_to_system_log(bool) {}

}  // namespace kelm

extern "C" void qm_syslog(int, int, const char *format, ...)
{
    char line[4096];
    va_list values;
    va_start(values, format);
    (void)vsnprintf(line, sizeof line, format, values);
    va_end(values);
}

namespace kelm_fuzz {

std::string take_log()
{
    std::string taken;
    taken.swap(kept);
    return taken;
}

}  // namespace kelm_fuzz
