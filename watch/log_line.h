// SPDX-License-Identifier: ISC
// Whose line of a log it is: what others write may quote a name from the air, and that may be
// anything.
#pragma once

#include "watch/text.h"

namespace kelm {

struct watch_log_line {
    const char *source;  // "console", "log", or null for a line of others
    text_span text;
};

// "console": a line of the daemon's, "kelm[FUNCTION:LINE]: text", as it prints it, behind the
// seconds of a serial line ("[   12.345] "), or behind the head of the system's log ("Sun Nov 22
// 12:08:30 2026 daemon.info kelm[284]: "). "log": "kelm: text", what the scripts for stock OpenWrt
// say there; behind such a head alone.
watch_log_line watch_read_log_line(text_span line);

}  // namespace kelm
