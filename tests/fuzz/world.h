// SPDX-License-Identifier: ISC
// The world of the targets that run the daemon's own code: files, log text, command lines.
//
// A target that links it runs with a private /tmp, /var/run and /etc/config. No command ever runs:
// each is judged (its words, see shell_words) and answered with status 0.
#pragma once

#include <string>
#include <vector>

namespace kelm_fuzz {

// Replaces a file of the private world; the folder is there.
void put_file(const char *path, const std::string &text);
void remove_file(const char *path);
// The whole file, or "" when there is none.
std::string get_file(const char *path);

// What the daemon has logged since the last call; at most the first 64 KiB.
std::string take_log();

// The words of a command line as a POSIX shell cuts it, or false when it holds anything but plain
// words and quotes: an operator, an expansion, a comment, an open quote.
bool shell_words(const std::string &command, std::vector<std::string> *words);

// The command lines that were to run since the last call.
std::vector<std::string> take_commands();

// What the next commands whose output is read will print.
void set_command_output(const std::string &text);

}  // namespace kelm_fuzz
