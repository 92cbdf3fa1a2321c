// SPDX-License-Identifier: ISC
// What is watched: the Wi-Fi daemons, the bus, files, processes, the log.
#pragma once

#include "watch/options.h"

namespace kelm {

// Watches until SIGINT, SIGTERM or SIGHUP, or until the options say so, and tells what it sees
// (watch/tell.h). Sends nothing to anybody but ATTACH and DETACH to the Wi-Fi daemons. Returns the
// exit status: 0, or 1 when it could not watch at all, with a sentence on standard error.
int watch_run(const watch_options &options);

}  // namespace kelm
