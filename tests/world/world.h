// SPDX-License-Identifier: ISC
// A private world for the function tests: the fixed paths and programs that the daemon's code uses.
//
// Layout, all of it in memory and seen by this process and its children alone:
//   /tmp, /run, /var/run   empty; /var/run is the folder /tmp/run, as on a router
//   /etc, /usr/bin         the machine's own with a writable layer; /etc/config is empty
//   /dev                   a few devices, terminals; /dev/console is a FIFO that the test reads
//   /mnt/src, /mnt/build   the source and the build tree, which may themselves lie under /tmp
//   /mnt/bin               first in PATH: hostapd_cli, wpa_cli, ubus, nvram, killall
// Those five, /etc/init.d/wps, /etc/init.d/wifi and /usr/bin/wifi note each call and answer nothing
// with status 0, or do what a test wrote to the reply script of that name.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace kelm_test {

// Enters the world; to be called once, before the process has a second thread. Ends the process
// with a message that names the missing privilege where the machine does not allow it.
void enter_private_world(const char *source_dir, const char *build_dir);

// Writes a file of mode 0644 and the folders it needs; aborts on failure.
void write_file(const std::string &path, const std::string &text);
// The whole file, or "" when it cannot be read; file_exists tells the two apart.
std::string read_file(const std::string &path);
bool file_exists(const std::string &path);
// Permission bits, or -1 when there is no such file.
int file_mode(const std::string &path);

// Empties /tmp (and with it /var/run) and /etc/config, forgets reply scripts, console text and
// recorded commands, and puts the console back: the start of each test.
void reset_world();
// Empties /tmp alone; /tmp/run stays as an empty folder.
void clear_tmp();

// What was written to /dev/console since the last call; never waits.
std::string console_text();
// console_text() with the line number in "kelm[function:123]: " replaced by "kelm[function:N]: ".
std::string console_text_without_line_numbers();

// The calls of the stand-ins since the last call, one per entry: name and arguments, an argument
// that is not plainly safe in single quotes (\\ is a backslash, \n a newline). A stand-in found by
// PATH is noted by its bare name, one at a fixed place by its path.
std::vector<std::string> recorded_commands();

// Shell text that the stand-in runs after it noted the call, with the call's arguments as "$@". The
// name is the one that recorded_commands() shows.
void set_reply(const std::string &name, const std::string &shell_text);

// Whether files can be given to other users: root of the whole machine alone may, and the tests
// that need it are skipped for others.
bool may_give_files_away();

// Makes a name under which nothing can be written and to which nothing can be moved, by nobody,
// until /tmp is cleared.
void block_name(const std::string &path);

// Takes /dev/console away until the next reset_world().
void remove_console();

// Ends a child process as _exit does. In a build that counts lines its counts are written.
[[noreturn]] void leave_process(int status);

}  // namespace kelm_test
