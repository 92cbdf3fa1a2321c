// SPDX-License-Identifier: ISC
// Files in a folder that every user may write to: reading what may be anything, writing what
// nobody else can have had a hand in.
#pragma once

#include <sys/types.h>

#include "core/handle.h"

namespace kelm {

constexpr mode_t KELM_OWNER_ONLY = 0600;  // what holds passphrases
constexpr mode_t KELM_FOR_ALL = 0644;     // what pages and scripts read, whatever the umask

// The functions that take a path take one below 124 bytes. What they cannot do they tell in one log
// line. They use path with ".new" or with random digits behind it on the way.

// Opens a regular file for reading that a trusted user owns (core/trust.h says who, and what is
// logged). Null for anything else: a FIFO under a well-known name would hold the attempt for ever.
unique_file kelm_open_to_read(const char *path);

// Replaces a file by text and a line feed, so that at any moment, out of space included, a reader
// finds the whole old file or the whole new one, of exactly this mode. What stands under that name
// is replaced, not followed; a folder is put aside. Returns 0, or -1 with the old file untouched.
int kelm_replace_file(const char *path, const char *text, mode_t mode);

// Makes a name fit for a command that would follow a link, put its file into a folder or keep a
// looser mode: afterwards it is a regular file of our own, with this name alone and exactly this
// mode. One that is that already stays, text and all; whatever else is there is replaced at once by
// an empty file. In a folder such as /tmp, from which nobody may take another's files, it stays so
// until the command writes. False: it is not so, and the command must not be run.
bool kelm_pin_file(const char *path, mode_t mode);

// The same for a command that adds to a file: a regular one of a trusted user with this name alone
// stays, whatever its mode; anything else is replaced by an empty file for its owner only. A
// failure is not told: who then writes the file does.
bool kelm_pin_to_merge(const char *path);

// Whether a regular file of a trusted user, with this name alone, stands there.
bool kelm_has_own_file(const char *path);

// Makes a file of mode 0644 where there is none of a trusted user's, who may put anything there:
// then errno is EEXIST. What belongs to anybody else is moved aside. Invalid with errno on failure.
unique_fd kelm_claim_file(const char *path);

}  // namespace kelm
