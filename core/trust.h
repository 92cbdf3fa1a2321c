// SPDX-License-Identifier: ISC
// Whose files decide: those of root, of the daemon's own user, of the user of the Wi-Fi daemons.
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include "core/handle.h"

namespace kelm {

// The two users who may do anything to the daemon.
inline bool kelm_is_root_or_self(uid_t user)
{
    return user == 0 || user == ::geteuid();
}

// Root, the daemon's own user, or one who owns a control socket in "/var/run/hostapd" or
// "/var/run/wpa_supplicant", as long as nobody else can put a socket there.
bool kelm_is_trusted_user(uid_t user);

// Opens what a trusted user owns, whatever it is; never waits. access: O_RDONLY or O_RDWR. A link
// is followed when a trusted user owns the link, too. Invalid for what is missing, silently, and
// for what is somebody else's or a file with a second name, with one log line and errno EPERM. A
// file that others may write to is opened, with a warning.
unique_fd kelm_open_trusted(const char *path, int access);

}  // namespace kelm
