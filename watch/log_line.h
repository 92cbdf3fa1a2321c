// SPDX-License-Identifier: ISC
// Who wrote a line of a log. Other programs' lines are not told: they may quote a name from the
// air, and such a name may hold anything.
#pragma once

#include "watch/text.h"

namespace kelm {

struct watch_log_line {
    const char *source;  // "console", "log", or null for a line of another program
    text_span text;
};

// "console": a line of the daemon, "kelm[FUNCTION:LINE]: text". It may stand
// - alone, as the daemon prints it;
// - behind the seconds of a serial line, "[   12.345] ";
// - behind the head of the system log, "Sun Nov 22 12:08:30 2026 daemon.info kelm[284]: ".
// "log": "kelm: text", a line of the scripts for stock OpenWrt. It stands behind the head of the
// system log only.
watch_log_line watch_read_log_line(text_span line);

}  // namespace kelm
