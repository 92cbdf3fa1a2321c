// SPDX-License-Identifier: ISC
// Stands in for the platform's logging library where there is none: outcome lines go to syslog(3).
#include <cstdarg>

#include <syslog.h>

#include "core/log.h"

void qm_syslog(int level, int success, const char *format, ...)
{
    // Callers pass 3 for good and bad news alike, which syslog would call an error.
    const int priority = LOG_DAEMON | (success != 0 ? LOG_NOTICE : (level & LOG_PRIMASK));
    // Not every C library puts the program's name before a line by itself.
    openlog("kelm", 0, LOG_DAEMON);
    va_list values;
    va_start(values, format);
    vsyslog(priority, format, values);
    va_end(values);
}
