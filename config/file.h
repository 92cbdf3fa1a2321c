// SPDX-License-Identifier: ISC
// Files in a folder that every user may write to: reading what may be anything, replacing whole.
#pragma once

#include <sys/types.h>

#include "core/handle.h"

namespace kelm {

constexpr mode_t KELM_OWNER_ONLY = 0600;  // what holds passphrases
constexpr mode_t KELM_FOR_ALL = 0666;     // less the umask

// Opens a regular file for reading. Null for anything else: a FIFO under a well-known name would
// hold the attempt for ever.
unique_file kelm_open_to_read(const char *path);

// Replaces a file by text and a line feed, so that at any moment, out of space included,
// a reader finds the whole old file or the whole new one. A link under that name is replaced, not
// followed. path: below 120 bytes; path with ".new" behind it is used on the way. Returns 0, or -1
// with the old file untouched.
int kelm_replace_file(const char *path, const char *text, mode_t mode);

// Removes what stands under a name that is about to be written by somebody who would follow a link,
// wait at a FIFO or keep a looser mode: anything but a regular file of our own, with this name
// alone, that grants no more than most. Whatever it is, removing it is all that can be done, so
// failures are not told.
void kelm_make_way(const char *path, mode_t most);

}  // namespace kelm
