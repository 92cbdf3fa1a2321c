// SPDX-License-Identifier: ISC
// In a folder that all may write to, nothing is written under its final name: it is written to a
// new file beside it, which is then moved to that name.
#include "core/file.h"

#include <cerrno>
#include <cinttypes>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "core/log.h"
#include "core/trust.h"

namespace kelm {

namespace {

constexpr size_t PATH_SIZE = 124;
constexpr size_t FRESH_PATH_SIZE = PATH_SIZE + 24;
constexpr mode_t ALL_MODE_BITS = 07777;
// Somebody may put something in the way each time. But a try fails only if that happens in the
// microseconds between two calls.
constexpr int TRIES = 64;

// RENAME_EXCHANGE, which not every C library's headers have.
constexpr unsigned EXCHANGE = 1u << 1;

bool _write_to_file(int fd, const char *text, size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        text += written;
        length -= static_cast<size_t>(written);
    }
    return true;
}

int _exchange(const char *one, const char *other)
{
#ifdef SYS_renameat2
    return static_cast<int>(::syscall(SYS_renameat2, AT_FDCWD, one, AT_FDCWD, other, EXCHANGE));
#else
    (void)one;
    (void)other;
    errno = ENOSYS;
    return -1;
#endif
}

// A name that nobody can foresee. Without random bytes it at least differs from the last name.
void _random_name(char (&name)[FRESH_PATH_SIZE], const char *path)
{
    static uint64_t last = 0;
    uint64_t number = 0;
    if (::getrandom(&number, sizeof number, GRND_NONBLOCK) != sizeof number)
        number = last + 1;
    last = number;
    (void)snprintf(name, sizeof name, "%.123s.%016" PRIx64, path, number);
}

// A file beside path that is our own and that nobody else may open.
struct fresh_file {
    char name[FRESH_PATH_SIZE] = {};
    unique_fd fd;
};

bool _open_fresh(fresh_file *fresh)
{
    fresh->fd.reset(
        ::open(fresh->name, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, KELM_OWNER_ONLY));
    return fresh->fd.valid();
}

// Makes a file with a name that nobody can foresee. Two processes never get the same file, since it
// must not exist before.
bool _create_unforeseen(const char *path, fresh_file *fresh)
{
    bool done = false;
    errno = EEXIST;
    for (int i = 0; !done && errno == EEXIST && i < TRIES; ++i) {
        _random_name(fresh->name, path);
        done = _open_fresh(fresh);
    }
    return done;
}

// Makes a new file beside path. The first name is path with ".new", so a file that a killed run has
// left there is removed. If something is there again at once, or is a folder that is not empty, the
// file gets a random name.
bool _create_fresh(const char *path, fresh_file *fresh)
{
    if (strlen(path) >= PATH_SIZE) {
        errno = ENAMETOOLONG;
        return false;
    }
    (void)snprintf(fresh->name, sizeof fresh->name, "%s.new", path);
    (void)::remove(fresh->name);
    return _open_fresh(fresh) || (errno == EEXIST && _create_unforeseen(path, fresh));
}

// In a folder without the sticky bit that others may write to, anybody can take our files away,
// whatever is done here.
void _warn_of_common_folder(const char *path)
{
    static bool warned = false;
    char folder[PATH_SIZE] = ".";
    const char *slash = strrchr(path, '/');
    if (slash != nullptr)
        (void)snprintf(folder, sizeof folder, "%.*s", static_cast<int>(slash - path) + 1, path);
    struct stat there = {};
    if (warned || ::stat(folder, &there) != 0)
        return;
    const bool sticky = (there.st_mode & S_ISVTX) != 0;
    if (sticky || (there.st_mode & (S_IWGRP | S_IWOTH)) == 0)
        return;
    warned = true;
    kelm_log_always("%s: others may take files away there, so nothing is safe\n", folder);
}

// Removes what was in the way of path. A folder that is not empty cannot be removed: it is renamed.
void _discard(const char *path, const char *thing)
{
    if (::remove(thing) == 0)
        return;
    char aside[FRESH_PATH_SIZE];
    _random_name(aside, path);
    (void)::rename(thing, aside);
}

bool _cannot_exchange()
{
    return errno == ENOSYS || errno == EINVAL;
}

// Moves the fresh file to path in one step, whatever is there. rename() fails only for a folder. A
// folder and the file exchange their names; where the kernel or the file system cannot do that, the
// folder is removed first.
bool _move_in(const fresh_file &fresh, const char *path)
{
    for (int i = 0; i < TRIES; ++i) {
        if (::rename(fresh.name, path) == 0)
            return true;
        if (errno != EISDIR)
            return false;
        if (_exchange(fresh.name, path) == 0) {
            _discard(path, fresh.name);
            return true;
        }
        if (_cannot_exchange())
            _discard(path, path);
        else if (errno != ENOENT)
            return false;
    }
    return false;
}

bool _is_at(const char *path, int fd)
{
    struct stat there = {};
    struct stat ours = {};
    if (::lstat(path, &there) != 0 || ::fstat(fd, &ours) != 0)
        return false;
    errno = EBUSY;
    return there.st_dev == ours.st_dev && there.st_ino == ours.st_ino;
}

// Writes text and a line feed; for null nothing.
bool _write_text_line(int fd, const char *text)
{
    return text == nullptr ||
           (_write_to_file(fd, text, strlen(text)) && _write_to_file(fd, "\n", 1));
}

bool _replace(const char *path, const char *text, mode_t mode)
{
    _warn_of_common_folder(path);
    fresh_file fresh;
    if (!_create_fresh(path, &fresh))
        return false;
    if (_write_text_line(fresh.fd.get(), text) && ::fchmod(fresh.fd.get(), mode) == 0 &&
        _move_in(fresh, path))
        return _is_at(path, fresh.fd.get());
    const int error = errno;
    (void)::unlink(fresh.name);
    errno = error;
    return false;
}

void _tell_failure(const char *caller, const char *path)
{
    kelm_log_as(caller, KELM_LOG_ALWAYS, "%s: not written: %s\n", path, strerror(errno));
}

bool _is_single_file(const char *path, struct stat *there)
{
    return ::lstat(path, there) == 0 && S_ISREG(there->st_mode) && there->st_nlink == 1;
}

bool _is_pinned(const char *path, mode_t mode)
{
    struct stat there = {};
    return _is_single_file(path, &there) && there.st_uid == ::geteuid() &&
           (there.st_mode & ALL_MODE_BITS) == mode;
}

// A second try is needed only if somebody is quick to give the new file a second name.
bool _pin(const char *path, mode_t mode)
{
    for (int i = 0; i < TRIES && _replace(path, nullptr, mode); ++i) {
        if (_is_pinned(path, mode))
            return true;
        errno = EMLINK;
    }
    return false;
}

enum class holder { nobody, trusted, foreign };

holder _holder_of(const char *path, uid_t *user)
{
    struct stat there = {};
    if (::lstat(path, &there) != 0)
        return holder::nobody;
    *user = there.st_uid;
    return kelm_is_trusted_user(there.st_uid) ? holder::trusted : holder::foreign;
}

// Exchanges names with what somebody has put at path, so that the name is never free. If that turns
// out to be a trusted user's, which came just now, it gets the name back.
bool _take_over(const fresh_file &fresh, const char *path)
{
    if (_exchange(fresh.name, path) != 0) {
        if (_cannot_exchange())
            _discard(path, path);
        return false;
    }
    uid_t user = 0;
    if (_holder_of(fresh.name, &user) == holder::trusted) {
        (void)_exchange(fresh.name, path);
        return false;
    }
    _discard(path, fresh.name);
    return true;
}

}  // namespace

unique_file kelm_open_to_read(const char *path)
{
    unique_fd fd = kelm_open_trusted(path, O_RDONLY);
    struct stat kind = {};
    if (!fd.valid() || ::fstat(fd.get(), &kind) != 0 || !S_ISREG(kind.st_mode))
        return nullptr;
    unique_file file(::fdopen(fd.get(), "r"));
    if (file)
        (void)fd.release();
    return file;
}

int kelm_replace_file(const char *path, const char *text, mode_t mode)
{
    if (_replace(path, text, mode))
        return 0;
    _tell_failure(__func__, path);
    return -1;
}

bool kelm_pin_file(const char *path, mode_t mode)
{
    if (_is_pinned(path, mode) || _pin(path, mode))
        return true;
    _tell_failure(__func__, path);
    return false;
}

bool kelm_pin_to_merge(const char *path)
{
    return kelm_has_own_file(path) || _pin(path, KELM_OWNER_ONLY);
}

bool kelm_has_own_file(const char *path)
{
    struct stat there = {};
    return _is_single_file(path, &there) && kelm_is_trusted_user(there.st_uid);
}

unique_fd kelm_claim_file(const char *path)
{
    bool told = false;
    for (int i = 0; i < TRIES; ++i) {
        unique_fd file(
            ::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, KELM_FOR_ALL));
        if (file.valid())
            (void)::fchmod(file.get(), KELM_FOR_ALL);
        if (file.valid() || errno != EEXIST)
            return file;
        uid_t user = 0;
        const holder who = _holder_of(path, &user);
        if (who == holder::trusted) {
            errno = EEXIST;
            return file;
        }
        if (who == holder::nobody)
            continue;
        if (!told)
            kelm_log_always("%s: moved aside, belongs to user %u\n", path, user);
        told = true;
        // Two daemons that start at once must not use the same file here: each would take it for
        // its own.
        fresh_file fresh;
        if (!_create_unforeseen(path, &fresh))
            return unique_fd();
        (void)::fchmod(fresh.fd.get(), KELM_FOR_ALL);
        if (_take_over(fresh, path))
            return std::move(fresh.fd);
        (void)::unlink(fresh.name);
    }
    errno = EBUSY;
    return unique_fd();
}

}  // namespace kelm
