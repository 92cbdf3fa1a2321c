// SPDX-License-Identifier: ISC
// Files in a folder that every user may write to, such as /tmp. Under a known name there may be
// anything: a FIFO, a link, somebody else's file. These functions read and write safely there.
#pragma once

#include <sys/types.h>

#include "core/handle.h"

namespace kelm {

constexpr mode_t KELM_OWNER_ONLY = 0600;  // what holds passphrases
constexpr mode_t KELM_FOR_ALL = 0644;     // what pages and scripts read, whatever the umask

// A path is shorter than 124 bytes. A function that fails writes one log line, if its comment does
// not say otherwise. While they work, the functions make files beside path: path with ".new" or
// with random digits behind it.

// Opens a regular file of a trusted user for reading; core/trust.h says who that is, and what is
// logged. Null for anything else. A FIFO, for example, would hold the attempt for ever.
unique_file kelm_open_to_read(const char *path);

// Replaces a file by text and a line feed, with exactly this mode. At any moment a reader finds the
// whole old file or the whole new one, even when the disk is full. A link is replaced, not
// followed; a folder is moved aside. Returns 0, or -1 with the old file untouched.
int kelm_replace_file(const char *path, const char *text, mode_t mode);

// Prepares a name for a command that writes to it. Such a command would follow a link, write into a
// folder, or keep a file's mode that is too open. Afterwards path is a regular file of our own,
// with no second name and with exactly this mode. A file that is so already stays, with its text.
// Anything else is replaced by an empty file. In a folder such as /tmp nobody can take away another
// user's file, so the file stays so until the command writes. False: do not run the command.
bool kelm_pin_file(const char *path, mode_t mode);

// The same for a caller that adds to a file. A regular file of a trusted user without a second name
// stays, whatever its mode. Anything else is replaced by an empty file with KELM_OWNER_ONLY. A
// failure is not logged here; the caller's own write will fail and be logged.
bool kelm_pin_to_merge(const char *path);

// Whether path is a regular file of a trusted user, without a second name.
bool kelm_has_own_file(const char *path);

// Makes a new file of mode 0644. If anything of a trusted user is there already, the result is
// invalid with errno EEXIST. What belongs to anybody else is moved aside. On any other failure the
// result is invalid too, and errno says why.
unique_fd kelm_claim_file(const char *path);

}  // namespace kelm
