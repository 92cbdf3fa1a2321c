// SPDX-License-Identifier: ISC
// Lines to the system log: one line, one socket, one datagram.
#include "core/system_log.h"

#include <algorithm>
#include <atomic>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/signals.h"

namespace kelm {

namespace {

constexpr size_t TEXT_MAX = 2047;
constexpr size_t LINE_SIZE = TEXT_MAX + 64;
constexpr size_t PID_SIZE = 16;
constexpr int32_t WAIT_MS = 100;      // at once
constexpr int32_t WAIT_SHARE = 10;    // of the time one part in so many
constexpr int32_t OWED_MAX = 60'000;  // far above what one wait can make it
constexpr sockaddr_un LOG_SOCKET = {AF_UNIX, "/dev/log"};

// In English, whatever the locale: programs read them.
constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A line has waited in vain: the lines after it do not wait again.
std::atomic<bool> queue_stuck{false};

// When the waits so far will have been their share of the time. The clock's lower half: routers
// with MIPS have no 64-bit atomics, and what is further away than OWED_MAX is of an earlier round
// of it.
std::atomic<uint32_t> waits_paid_ms{0};

// Without the line feeds at the end.
size_t _text_length(const char *text)
{
    size_t length = strnlen(text, TEXT_MAX);
    while (length > 0 && text[length - 1] == '\n')
        --length;
    return length;
}

// Devices nearby choose the names in an event: none of them begins a line of its own.
void _keep_one_line(char *text)
{
    for (; *text != '\0'; ++text) {
        if (*text != '\t' && iscntrl(static_cast<unsigned char>(*text)) != 0)
            *text = '?';
    }
}

// The time by hand: strftime(3) may look at the time zone's file for each line. Returns the length.
size_t _make_line(int priority, bool with_pid, const char *text, size_t text_length,
                  char (&line)[LINE_SIZE])
{
    char pid[PID_SIZE] = "";
    if (with_pid)
        (void)snprintf(pid, sizeof pid, "[%d]", static_cast<int>(getpid()));
    const time_t now = time(nullptr);
    tm local = {};
    localtime_r(&now, &local);
    const int length =
        snprintf(line, sizeof line, "<%d>%s %2d %02d:%02d:%02d kelm%s: %.*s", priority,
                 MONTHS[local.tm_mon], local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                 pid, static_cast<int>(text_length), text);
    _keep_one_line(line);
    return std::min(static_cast<size_t>(length), sizeof line - 1);
}

bool _send_datagram(int fd, const char *line, size_t length)
{
    ssize_t sent = 0;
    do
        sent = ::send(fd, line, length, MSG_DONTWAIT | MSG_NOSIGNAL);
    while (sent < 0 && errno == EINTR);
    return sent >= 0;
}

uint32_t _low_clock_ms()
{
    return static_cast<uint32_t>(kelm_monotonic_ms());
}

// Most kernels' queues hold ten lines, so that of a log daemon that is well is full at times. One
// that is slow is not waited for at each line.
bool _has_room_soon(int fd)
{
    if (queue_stuck)
        return false;
    const uint32_t begin_ms = _low_clock_ms();
    const auto ahead_ms = static_cast<int32_t>(waits_paid_ms - begin_ms);
    const int32_t owed_ms = ahead_ms > 0 && ahead_ms <= OWED_MAX ? ahead_ms : 0;
    const int32_t left_ms = std::max(WAIT_MS - owed_ms / WAIT_SHARE, 0);
    pollfd room = {fd, POLLOUT, 0};
    const int ready = ::poll(&room, 1, left_ms);
    const uint32_t waited_ms = _low_clock_ms() - begin_ms;
    waits_paid_ms = begin_ms + static_cast<uint32_t>(owed_ms) + waited_ms * WAIT_SHARE;
    return ready > 0 && (room.revents & POLLOUT) != 0;
}

}  // namespace

int kelm_send_to_system_log(int priority, bool with_pid, const char *text)
{
    const size_t text_length = _text_length(text);
    if (text_length == 0)
        return 0;
    char line[LINE_SIZE];
    const size_t length = _make_line(priority, with_pid, text, text_length, line);

    // A socket for each line: a log daemon that was started anew listens on another one.
    const unique_fd log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!log.valid() || ::connect(log.get(), reinterpret_cast<const sockaddr *>(&LOG_SOCKET),
                                  sizeof LOG_SOCKET) != 0)
        return -1;
    bool sent = _send_datagram(log.get(), line, length);
    if (!sent && errno == EAGAIN) {
        // The room may be gone again, where others fill the queue.
        sent = _has_room_soon(log.get()) && _send_datagram(log.get(), line, length);
        queue_stuck = !sent;
    }
    if (sent)
        queue_stuck = false;
    return 0;
}

void kelm_prepare_system_log()
{
    tzset();
}

}  // namespace kelm
