// SPDX-License-Identifier: ISC
// The console log: one line, one open, one try.
#include "core/log.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <unistd.h>

#include "core/handle.h"

namespace kelm {

std::atomic<int32_t> kelm_dbg_level{KELM_LOG_NORMAL};

namespace {

constexpr size_t LINE_SIZE = 2048;
constexpr int FULL_CONSOLE_WAIT_MS = 20;  // enough for a slow line, short for a stuck one

void _write_all(int fd, const char *text, size_t length)
{
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written > 0) {
            text += written;
            length -= static_cast<size_t>(written);
            continue;
        }
        if (written < 0 && errno == EINTR)
            continue;
        pollfd room = {fd, POLLOUT, 0};
        if (written < 0 && errno != EAGAIN)
            return;
        if (::poll(&room, 1, FULL_CONSOLE_WAIT_MS) <= 0 || (room.revents & POLLOUT) == 0)
            return;
    }
}

}  // namespace

int kelm_printf(const char *format, ...)
{
    char line[LINE_SIZE] = {};
    va_list values;
    va_start(values, format);
    (void)vsnprintf(line, sizeof line, format, values);  // cut rather than lost
    va_end(values);

    // Non-blocking: a console that takes nothing must not stop the attempt.
    unique_fd console(::open("/dev/console", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!console.valid())
        return -1;
    // Another process's lock drops the line: waiting for it would tie the attempt to a stranger.
    if (::flock(console.get(), LOCK_EX | LOCK_NB) == 0) {
        _write_all(console.get(), line, strlen(line));
        (void)::flock(console.get(), LOCK_UN);
    }
    return ::close(console.release());
}

}  // namespace kelm
