// SPDX-License-Identifier: ISC
// Shell commands: run one, or run one and take what it prints.
#pragma once

#include <cstddef>

namespace kelm {

constexpr size_t WPS_CMD_SIZE = 2048;
constexpr size_t WPS_CMD_RESULT_SIZE = 256;

// What system(3) does, for a daemon that holds signals back: runs the command with /bin/sh, all
// signals unblocked and at their default in the child, and waits for its end. Returns the wait
// status, or -1 when it cannot be started. Logs nothing.
int kelm_system(const char *command);

// The same with an end: a command that runs longer than limit_ms is killed with all that it has
// started. Returns -1 then, too.
int kelm_system_limited(const char *command, int limit_ms);

// Formats a command of at most size - 1 bytes (2047 at most) and runs it unlogged. A longer one is
// not run at all, since its cut-off end could mean something else. Returns the wait status or -1.
int kelm_system_format(size_t size, const char *format, ...) __attribute__((format(printf, 2, 3)));

// Formats (at most 2047 bytes), logs the command at level 4, runs it. Always 0: exit statuses do
// not count.
int wps_exec_cmd(const char *format, ...) __attribute__((format(printf, 1, 2)));

// Formats, runs, returns the first 256 bytes printed without the last of them (normally the line
// feed), or null when the command cannot be started (logged). The text lives until the next call.
char *wps_exec_cmd_with_result(const char *format, ...) __attribute__((format(printf, 1, 2)));

// wps_exec_cmd_with_result("nvram get NAME").
char *nvram_get(const char *name);

// Runs nvram set NAME='VALUE'. Here for the platform: the daemon never calls it.
int nvram_set(const char *name, const char *value);

}  // namespace kelm
