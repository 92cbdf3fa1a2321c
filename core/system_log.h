// SPDX-License-Identifier: ISC
// The system log, through its socket. Lines are as syslog(3) sends them, but nothing waits as long
// as that function may.
#pragma once

namespace kelm {

// Sends one line to "/dev/log" as "<PRIORITY>Mmm dd hh:mm:ss kelm: TEXT", with_pid: "kelm[PID]: ".
// - Line feeds at the end are left out. A text of line feeds alone is not sent. Control characters
//   other than tabs become '?'.
// - A log daemon that hangs does not hold the caller. The first line that finds the queue full is
//   held for a tenth of a second. The lines after it do not wait, until one gets through. What
//   finds no room is dropped.
// - A log daemon that is slow costs a tenth of the time at most.
// Returns 0, or -1 when nobody listens there. Allocates nothing once kelm_prepare_system_log was
// called; a signal handler may call it where it may call kelm_printf.
int kelm_send_to_system_log(int priority, bool with_pid, const char *text);

// Reads the time zone, which allocates. Call it before the first thread is made.
void kelm_prepare_system_log();

}  // namespace kelm
