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
constexpr int32_t WAIT_MS = 100;      // one wait at most
constexpr int32_t WAIT_SHARE = 10;    // all waits together: one part in ten of the time
constexpr int32_t OWED_MAX = 60'000;  // milliseconds; real waits never owe that much
constexpr sockaddr_un LOG_SOCKET = {AF_UNIX, "/dev/log"};

// In English, whatever the locale: programs read them.
constexpr char MONTHS[][4] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                              "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};

// A line has waited and got no room. The lines after it do not wait, until one gets through.
std::atomic<bool> queue_stuck{false};

// The moment up to which the waits so far use up their share of the time: a wait of 20 ms moves it
// 200 ms on. It is the lower half of the clock, since routers with MIPS have no 64-bit atomics.
// This half begins anew every 49 days: a moment further ahead than OWED_MAX is an old one.
std::atomic<uint32_t> waits_paid_ms{0};

// Without the line feeds at the end.
size_t _text_length(const char *text)
{
    size_t length = strnlen(text, TEXT_MAX);
    while (length > 0 && text[length - 1] == '\n')
        --length;
    return length;
}

// Devices nearby choose the names in an event. No such name may begin a new line.
void _keep_one_line(char *text)
{
    for (; *text != '\0'; ++text) {
        if (*text != '\t' && iscntrl(static_cast<unsigned char>(*text)) != 0)
            *text = '?';
    }
}

// Writes the time itself: strftime(3) may read the time zone's file for each line. Returns the
// length.
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

// On most kernels the queue holds ten lines, so it is full at times even when the log daemon is
// well: then it is worth a wait. For a slow log daemon not every line waits.
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

    // A socket for each line: a log daemon that was restarted listens on a new socket.
    const unique_fd log(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    if (!log.valid() || ::connect(log.get(), reinterpret_cast<const sockaddr *>(&LOG_SOCKET),
                                  sizeof LOG_SOCKET) != 0)
        return -1;
    bool sent = _send_datagram(log.get(), line, length);
    if (!sent && errno == EAGAIN) {
        // Others fill the queue too, so the room may be gone again.
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
