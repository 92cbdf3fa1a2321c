// SPDX-License-Identifier: ISC
// Takes the place of the platform's logging library where there is none: outcome lines go to the
// system log. syslog(3) is not used: it would wait for a log daemon that hangs, and so would the
// attempt.
#include <cstdarg>
#include <cstdio>

#include <syslog.h>

#include "core/log.h"
#include "core/system_log.h"

void qm_syslog(int level, int success, const char *format, ...)
{
    constexpr size_t TEXT_SIZE = 1024;
    // Callers pass level 3 for success and failure alike. For syslog 3 is an error.
    const int priority = LOG_DAEMON | (success != 0 ? LOG_NOTICE : (level & LOG_PRIMASK));
    char text[TEXT_SIZE];
    va_list values;
    va_start(values, format);
    (void)vsnprintf(text, sizeof text, format, values);
    va_end(values);
    (void)kelm::kelm_send_to_system_log(priority, false, text);
}
