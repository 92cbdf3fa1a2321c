// SPDX-License-Identifier: ISC
// Shell commands: run one, or run one and take what it prints.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

constexpr size_t WPS_CMD_SIZE = 2048;
constexpr size_t WPS_CMD_RESULT_SIZE = 256;

// What a command is, which decides how long the daemon waits for it. At its limit a command is
// killed with all that it has started, and a line says so. Two things end the wait before that:
// - the end of the attempt (see kelm_end_commands_at);
// - SIGTERM: what runs then gets a moment, what is started later a share of the time that is left,
//   and nothing when none is (see core/signals.h);
// and they leave a script or a restart running by itself: one that is killed half-way has
// configured half of the device, and it may be the very sender of the SIGTERM. No restart is
// started beside a script that SIGTERM has left running: it would start what is half configured.
enum class command_kind {
    quick,    // answers at once: hostapd_cli, wpa_cli, nvram, rm, cp, ...; 15 s, and 3 s after one
              // that hung
    scan,     // 30 s, and 3 s after one that hung
    script,   // writes and applies a configuration: 120 s
    restart,  // of a service: 300 s
    publish,  // "ubus send", which waits without end for a broker that says nothing; 3 s
};

// What system(3) does, for a daemon that holds signals back: runs the command with /bin/sh in a
// process group of its own, all signals unblocked and at their default, and waits for its end.
// Returns the wait status, or -1 when it cannot be started or is not waited for any longer
// (logged).
int kelm_system(const char *command, command_kind kind = command_kind::quick);

// Formats a command of at most size - 1 bytes (2047 at most) and runs it unlogged. A longer one is
// not run at all, since its cut-off end could mean something else. Returns the wait status or -1.
int kelm_system_format(size_t size, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Formats (at most 2047 bytes), logs the command at level 4, runs it. Always 0: exit statuses do
// not count.
int wps_exec_cmd(const char *format, ...) __attribute__((format(printf, 1, 2)));
int wps_exec_cmd(command_kind kind, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Formats, runs, returns the first 256 bytes printed until the shell has ended, whatever it leaves
// running, without the last of them (normally the line feed); or null when the command cannot be
// started or is not waited for any longer (logged). The text lives until the next call.
char *wps_exec_cmd_with_result(const char *format, ...) __attribute__((format(printf, 1, 2)));

// An attempt ends at this time(), and no command runs beyond it; each gets a second all the same.
void kelm_end_commands_at(int32_t at);
void kelm_let_commands_run();

// wps_exec_cmd_with_result("nvram get NAME").
char *nvram_get(const char *name);

// Runs nvram set NAME='VALUE'. Here for the platform: the daemon never calls it.
int nvram_set(const char *name, const char *value);

}  // namespace kelm
