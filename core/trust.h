// SPDX-License-Identifier: ISC
// Whose files the daemon believes: those of root, of its own user, and of the user that the Wi-Fi
// daemons run as.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include "core/handle.h"

namespace kelm {

// Root, or the user that the daemon runs as. Both may do anything to the daemon.
inline bool kelm_is_root_or_self(uid_t user)
{
    return user == 0 || user == ::geteuid();
}

// Root, the daemon's own user, or a user who owns a control socket in "/var/run/hostapd" or
// "/var/run/wpa_supplicant". Such a user counts only if no other user can put a socket there.
bool kelm_is_trusted_user(uid_t user);

// Opens what a trusted user owns, of any kind (file, FIFO, device); never waits. access: O_RDONLY
// or O_RDWR. A link is followed if a trusted user owns the link too. A file that others may write
// to is opened, with a warning in the log. The result is invalid
// - without a log line, when nothing is there;
// - with one log line and errno EPERM, when it belongs to anybody else, or is a file that has a
//   second name.
unique_fd kelm_open_trusted(const char *path, int access);

}  // namespace kelm
