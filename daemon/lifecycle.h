// SPDX-License-Identifier: ISC
// The life of the process: detach, pid file, signals, opening, and the restart at the end.
#pragma once

namespace kelm {

constexpr const char *KELM_PID_PATH = "/tmp/kelm.pid";

// Goes into the background: the parent exits 0. The child leads a session of its own and has
// "/dev/null" on descriptors 0 to 2. If no child can be made, the process exits with errno. With
// kelm_stays_in_foreground() there is no child: this process goes on in its session, but it gets
// "/dev/null" too.
void kelm_daemonize();

// Writes our process id. Returns 0, or -1 (logged) when the file is there already, even if its
// daemon is gone. If the file cannot be written, the process exits with errno.
int kelm_create_pid_file();

// From now on a signal that ends the daemon, such as that of a crash, removes the pid file first:
// it would prevent every later start.
void kelm_guard_pid_file();

// Installs the handler of all four signals. Returns 0, or -1 (logged) at the first that fails.
int _kelm_register_signal();
void _kelm_handle_signal(int number);

// Prepares sessions, worker and event sockets. Returns 0, or -1 at the first step that fails.
int _kelm_open();

// Removes the pid file and runs the restart that the flags and the bands' outcomes ask for.
void kelm_leave();

}  // namespace kelm
