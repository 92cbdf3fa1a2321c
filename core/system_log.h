// SPDX-License-Identifier: ISC
// The system log, through its socket: what syslog(3) sends, without that function's waiting.
#pragma once

namespace kelm {

// Sends one line to "/dev/log" as "<PRIORITY>Mmm dd hh:mm:ss kelm: TEXT", with_pid: "kelm[PID]: ".
// Line feeds at the end are left out, and so is a text of nothing else; other control characters
// than a tab become '?'. A log daemon that hangs holds nobody: a full queue gets a tenth of a
// second once, and no time after that until it takes something again; the line is dropped then. One
// that is slow costs a tenth of the time at most.
// Returns 0, or -1 when nobody listens there. Allocates nothing once kelm_prepare_system_log was
// called; a signal handler may call it where kelm_printf may be called.
int kelm_send_to_system_log(int priority, bool with_pid, const char *text);

// Reads the time zone, which allocates. Before the first thread is made.
void kelm_prepare_system_log();

}  // namespace kelm
