// SPDX-License-Identifier: ISC
// The life of the process: detach, pid file, signals, opening, and the restart at the end.
#pragma once

namespace kelm {

constexpr const char *KELM_PID_PATH = "/tmp/kelm.pid";

// Goes into the background: the parent exits 0, the child leads a session of its own with
// "/dev/null" on descriptors 0 to 2. Exits the process with errno when there can be no child. With
// kelm_stays_in_foreground() this process goes on, in its session, with "/dev/null" all the same.
void kelm_daemonize();

// Writes our process id. Returns 0; -1 (logged) when the file is there already, a stale one
// included. Exits the process with errno when the file cannot be written.
int kelm_create_pid_file();

// From now on a signal that ends the daemon without its doing, a crash above all, takes the pid
// file along: it would bar every later start.
void kelm_guard_pid_file();

// Installs the handler of all four signals. Returns 0, or -1 (logged) at the first that fails.
int _kelm_register_signal();
void _kelm_handle_signal(int number);

// Prepares sessions, worker and event sockets. Returns 0, or -1 at the first step that fails.
int _kelm_open();

// Removes the pid file and runs the restart that the flags and the bands' outcomes ask for.
void kelm_leave();

}  // namespace kelm
