// SPDX-License-Identifier: ISC
// Runs shell commands, and takes what they print if the caller wants it.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

constexpr size_t WPS_CMD_SIZE = 2048;
constexpr size_t WPS_CMD_RESULT_SIZE = 256;

// What kind a command is. The kind decides how long the daemon waits for it. At its limit a command
// is killed with all that it has started, and a log line says so. Two things end the wait before
// the limit:
// - the end of the attempt (see kelm_end_commands_at);
// - SIGTERM (see core/signals.h). A command that runs then gets a moment. One that is started later
//   gets a share of the time that is left. When no time is left, only a script or a restart is
//   started.
// In both cases a script or a restart is left running by itself. If it were killed half-way, only
// half of the device would be configured. It may also be the sender of the SIGTERM. If SIGTERM has
// left a script running, no restart is started: it would start what is half configured.
enum class command_kind {
    quick,    // answers at once: hostapd_cli, wpa_cli, nvram, rm, cp, ...: 15 s; 3 s if the last
              // quick command hung
    scan,     // 30 s; 3 s if the last scan hung
    script,   // writes and applies a configuration: 120 s
    restart,  // of a service: 300 s
    publish,  // "ubus send": 3 s; it would wait for ever for a broker that does not answer
};

// Does what system(3) does, for a daemon that holds signals back. Runs the command with /bin/sh and
// waits for its end. The command gets a process group of its own, and all signals unblocked and at
// their default. Returns the wait status. Returns -1 when the command cannot be started, or
// (logged) when it is not run because of SIGTERM or not waited for any longer.
int kelm_system(const char *command, command_kind kind = command_kind::quick);

// Formats a command and runs it as kelm_system does, without logging it. The command has at most
// size - 1 bytes, and at most 2047. A longer one is not run at all: without its end it could mean
// something else. Returns the wait status or -1.
int kelm_system_format(size_t size, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Formats a command of at most 2047 bytes, logs it at level 4 and runs it. A longer one is not run
// (logged). Without a kind the command is quick. Always returns 0: exit statuses do not count.
int wps_exec_cmd(const char *format, ...) __attribute__((format(printf, 1, 2)));
int wps_exec_cmd(command_kind kind, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Formats a command of at most 2047 bytes and runs it. Returns the first 256 bytes that it prints,
// without the last of these bytes, which is normally the line feed. Only what is printed before the
// shell ends counts, whatever the shell leaves running. Logs the command and the result at level 7.
// Returns null (logged) when the command cannot be started, or is not waited for any longer. The
// text lives until the next call.
char *wps_exec_cmd_with_result(const char *format, ...) __attribute__((format(printf, 1, 2)));

// An attempt ends at this second of time(), and no command is waited for beyond it. But each
// command gets at least one second. kelm_let_commands_run removes this limit again.
void kelm_end_commands_at(int32_t at);
void kelm_let_commands_run();

// The same as wps_exec_cmd_with_result("nvram get NAME").
char *nvram_get(const char *name);

// Runs nvram set NAME='VALUE' with wps_exec_cmd. It is here for platforms; the daemon never calls
// it.
int nvram_set(const char *name, const char *value);

}  // namespace kelm
