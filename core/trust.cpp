// SPDX-License-Identifier: ISC
// The owner is read from what was opened, never from a name: a moment later a name may lead to
// another file.
#include "core/trust.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <memory>
#include <utility>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "core/log.h"

namespace kelm {

namespace {

constexpr mode_t WRITABLE_BY_OTHERS = S_IWGRP | S_IWOTH;
constexpr int LINKS_MAX = 8;  // that are followed on the way to one file

// Control sockets stand in SOCKET_FOLDERS. Their owner counts only if nobody else may write to
// these folders or to RUN_FOLDER.
constexpr const char *RUN_FOLDER = "/var/run";
constexpr const char *SOCKET_FOLDERS[] = {"/var/run/hostapd", "/var/run/wpa_supplicant"};

struct folder_closer {
    void operator()(DIR *folder) const { (void)::closedir(folder); }
};
using unique_folder = std::unique_ptr<DIR, folder_closer>;

bool _is_folder_of(const struct stat &there, uid_t user)
{
    return S_ISDIR(there.st_mode) && (there.st_mode & WRITABLE_BY_OTHERS) == 0 &&
           (kelm_is_root_or_self(there.st_uid) || there.st_uid == user);
}

bool _has_socket_of(DIR *folder, uid_t user)
{
    while (const dirent *entry = ::readdir(folder)) {
        struct stat there = {};
        if (::fstatat(::dirfd(folder), entry->d_name, &there, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISSOCK(there.st_mode) && there.st_uid == user)
            return true;
    }
    return false;
}

bool _owns_control_socket(uid_t user)
{
    struct stat there = {};
    if (::stat(RUN_FOLDER, &there) != 0 || !_is_folder_of(there, ::geteuid()))
        return false;
    for (const char *path : SOCKET_FOLDERS) {
        const unique_folder folder(::opendir(path));
        if (folder && ::fstat(::dirfd(folder.get()), &there) == 0 && _is_folder_of(there, user) &&
            _has_socket_of(folder.get(), user))
            return true;
    }
    return false;
}

bool _has_trusted_owner(const char *path, const struct stat &there)
{
    if (kelm_is_trusted_user(there.st_uid))
        return true;
    kelm_log_always("%s: not used, belongs to user %u\n", path, there.st_uid);
    errno = EPERM;
    return false;
}

// A file with two names is not used: anybody may have given a second name to a file of root. A file
// that was replaced after it was opened has no name, and may be used.
bool _is_usable(const char *path, int fd)
{
    struct stat there = {};
    if (::fstat(fd, &there) != 0 || !_has_trusted_owner(path, there))
        return false;
    if (!S_ISREG(there.st_mode))
        return true;
    if (there.st_nlink > 1) {
        kelm_log_always("%s: not used, has another name\n", path);
        errno = EPERM;
        return false;
    }
    if ((there.st_mode & WRITABLE_BY_OTHERS) != 0)
        kelm_log_always("%s: used, though others may write to it\n", path);
    return true;
}

// Replaces name, which is a link, by the target of the link. A relative target begins in the folder
// of the link. If name is no link any more, it stays. False if the link must not be followed.
bool _follow_link(char (&name)[PATH_MAX], const char *path)
{
    const unique_fd link(::open(name, O_PATH | O_NOFOLLOW | O_CLOEXEC));
    struct stat there = {};
    if (!link.valid() || ::fstat(link.get(), &there) != 0 || !_has_trusted_owner(path, there))
        return false;
    if (!S_ISLNK(there.st_mode))
        return true;
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(link.get(), "", target, sizeof target);
    const char *last_slash = strrchr(name, '/');
    const size_t kept =
        length > 0 && target[0] != '/' && last_slash != nullptr ? last_slash + 1 - name : 0;
    if (length <= 0 || kept + static_cast<size_t>(length) >= sizeof name) {
        errno = length < 0 ? errno : ENAMETOOLONG;
        return false;
    }
    memcpy(name + kept, target, static_cast<size_t>(length));
    name[kept + static_cast<size_t>(length)] = '\0';
    return true;
}

}  // namespace

bool kelm_is_trusted_user(uid_t user)
{
    return kelm_is_root_or_self(user) || _owns_control_socket(user);
}

unique_fd kelm_open_trusted(const char *path, int access)
{
    char name[PATH_MAX];
    if (snprintf(name, sizeof name, "%s", path) >= static_cast<int>(sizeof name)) {
        errno = ENAMETOOLONG;
        return unique_fd();
    }
    for (int links = 0; links <= LINKS_MAX; ++links) {
        // O_NONBLOCK: if it is a FIFO, open() must not wait for a writer.
        unique_fd file(::open(name, access | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
        if (file.valid())
            return _is_usable(path, file.get()) ? std::move(file) : unique_fd();
        if (errno != ELOOP || !_follow_link(name, path))
            return unique_fd();
    }
    errno = ELOOP;
    return unique_fd();
}

}  // namespace kelm
