// SPDX-License-Identifier: ISC
// Regular files only, and replacement by renaming.
#include "config/file.h"

#include <cerrno>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelm {

namespace {

constexpr size_t FRESH_PATH_SIZE = 128;
constexpr mode_t ALL_MODE_BITS = 07777;

bool _write_all(int fd, const char *text, size_t length)
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

// Made anew each time: what is there may be a link, an empty folder, or somebody's own.
bool _write_fresh(const char *path, const char *text, mode_t mode)
{
    (void)::remove(path);
    unique_fd file(::open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, mode));
    return file.valid() && _write_all(file.get(), text, strlen(text)) &&
           _write_all(file.get(), "\n", 1) && ::close(file.release()) == 0;
}

}  // namespace

unique_file kelm_open_to_read(const char *path)
{
    // Without waiting for a writer, where it turns out to be a FIFO.
    unique_fd fd(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat kind = {};
    if (!fd.valid() || ::fstat(fd.get(), &kind) != 0 || !S_ISREG(kind.st_mode))
        return nullptr;
    unique_file file(::fdopen(fd.get(), "r"));
    if (file)
        (void)fd.release();
    return file;
}

void kelm_make_way(const char *path, mode_t most)
{
    struct stat there = {};
    if (::lstat(path, &there) != 0)
        return;
    const mode_t granted = there.st_mode & ALL_MODE_BITS;
    if (S_ISREG(there.st_mode) && there.st_uid == ::geteuid() && there.st_nlink == 1 &&
        (granted & ~most) == 0)
        return;
    (void)::unlink(path);
}

int kelm_replace_file(const char *path, const char *text, mode_t mode)
{
    char fresh[FRESH_PATH_SIZE];
    const int length = snprintf(fresh, sizeof fresh, "%s.new", path);
    if (length < 0 || static_cast<size_t>(length) >= sizeof fresh)
        return -1;
    if (_write_fresh(fresh, text, mode) && ::rename(fresh, path) == 0)
        return 0;
    (void)::unlink(fresh);
    return -1;
}

}  // namespace kelm
