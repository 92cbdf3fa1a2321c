// SPDX-License-Identifier: ISC
// The log, on the console: one line, one open, one try. Or in the system log.
#include "core/log.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/file.h>
#include <syslog.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/system_log.h"

namespace kelm {

std::atomic<int32_t> kelm_dbg_level{KELM_LOG_NORMAL};

namespace {

constexpr size_t LINE_SIZE = 2048;
constexpr int FULL_CONSOLE_WAIT_MS = 20;  // a slow line drains meanwhile, a stuck one does not
constexpr int FULL_CONSOLE_WAITS = 5;     // for one line

// One writer at a time inside the process. Each line opens the console anew and locks it. For this
// lock a second thread is a stranger: without the mutex its line would be dropped. Who holds the
// mutex waits 100 milliseconds at most, for a full console. A signal handler may log too: it runs
// in the main loop's wait alone, where the main thread holds no mutex.
pthread_mutex_t writer_lock = PTHREAD_MUTEX_INITIALIZER;

bool to_system_log = false;

// A line has waited for room on the console, and got none. The lines after it do not wait, until
// one gets through.
std::atomic<bool> console_stuck{false};

void _write_to_console(int fd, const char *text, size_t length)
{
    int waits = 0;
    while (length > 0) {
        const ssize_t written = ::write(fd, text, length);
        if (written > 0) {
            console_stuck = false;
            text += written;
            length -= static_cast<size_t>(written);
            continue;
        }
        if (written < 0 && errno == EINTR)
            continue;
        pollfd room = {fd, POLLOUT, 0};
        if ((written < 0 && errno != EAGAIN) || console_stuck || waits++ == FULL_CONSOLE_WAITS)
            return;
        if (::poll(&room, 1, FULL_CONSOLE_WAIT_MS) <= 0 || (room.revents & POLLOUT) == 0) {
            console_stuck = true;
            return;
        }
    }
}

// Returns what closing the console says, or -1 when it cannot be opened.
int _write_line(const char *line)
{
    // Non-blocking: a console that takes nothing must not stop the attempt.
    unique_fd console(::open("/dev/console", O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
    if (!console.valid())
        return -1;
    // Another process's lock drops the line: waiting for it would tie the attempt to a stranger.
    if (::flock(console.get(), LOCK_EX | LOCK_NB) == 0) {
        _write_to_console(console.get(), line, strlen(line));
        (void)::flock(console.get(), LOCK_UN);
    }
    return ::close(console.release());
}

// Formats the text behind what stands before that place.
__attribute__((format(printf, 3, 0))) void _put_behind(char (&line)[LINE_SIZE], size_t at,
                                                       const char *format, va_list values)
{
    const int length = vsnprintf(line + at, sizeof line - at, format, values);
    if (length < 0)
        line[at] = '\0';
    else if (static_cast<size_t>(length) >= sizeof line - at)
        line[sizeof line - 2] = '\n';  // cut, but still a line
}

int _hand_over(const char *line)
{
    pthread_mutex_lock(&writer_lock);
    const int result = to_system_log ? kelm_send_to_system_log(LOG_DAEMON | LOG_INFO, true, line)
                                     : _write_line(line);
    pthread_mutex_unlock(&writer_lock);
    return result;
}

}  // namespace

int kelm_printf(const char *format, ...)
{
    char line[LINE_SIZE];
    va_list values;
    va_start(values, format);
    _put_behind(line, 0, format, values);
    va_end(values);
    return _hand_over(line);
}

void kelm_log_line(int level, const char *name, int number, const char *format, ...)
{
    if (kelm_dbg_level.load(std::memory_order_relaxed) < level)
        return;
    char line[LINE_SIZE];
    const int begin = snprintf(line, sizeof line, "kelm[%s:%d]: ", name, number);
    va_list values;
    va_start(values, format);
    _put_behind(line, std::min(static_cast<size_t>(begin), LINE_SIZE - 1), format, values);
    va_end(values);
    (void)_hand_over(line);
}

void kelm_log_to_system_log(bool on)
{
    to_system_log = on;
    if (on)
        kelm_prepare_system_log();
}

}  // namespace kelm
