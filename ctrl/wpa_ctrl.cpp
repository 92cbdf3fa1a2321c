// SPDX-License-Identifier: ISC
// Client of the control interface: a datagram socket that is bound to a path of its own.
#include "ctrl/wpa_ctrl.h"

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/signals.h"

namespace kelm {

namespace {

constexpr const char *DEFAULT_CLIENT_DIR = "/tmp";
constexpr char ABSTRACT_PREFIX[] = "@abstract:";
constexpr size_t ABSTRACT_PREFIX_LEN = sizeof ABSTRACT_PREFIX - 1;
constexpr size_t PATH_SIZE = sizeof sockaddr_un{}.sun_path;
constexpr time_t SEND_LIMIT_S = 5;
constexpr unsigned SEND_RETRY_S = 1;
constexpr int REPLY_LIMIT_MS = 10000;
constexpr time_t EVENTS_LIMIT_S = 30;  // one request, however many events come before its reply
constexpr size_t ATTACH_REPLY_SIZE = 10;
constexpr int NUMBERED_TRIES = 4;  // after these the name has a random number
constexpr mode_t OWNER_ALONE = 0600;
// After SIGTERM one request gets an eighth of the time that is left. A daemon that works answers in
// a millisecond. One that hangs must not take the time of all that is still to be done.
constexpr int ENDING_SHARE = 8;

// Counts the local paths of this process, so that they differ.
uint32_t open_counter = 0;

// suffix: a random number that nobody can foresee, or nothing.
bool _set_local_path(sockaddr_un *local, const char *client_dir, const char *suffix)
{
    const bool own_dir = client_dir != nullptr && client_dir[0] == '/';
    local->sun_family = AF_UNIX;
    const int length = snprintf(local->sun_path, PATH_SIZE, "%s/wpa_ctrl_%d-%d%s",
                                own_dir ? client_dir : DEFAULT_CLIENT_DIR,
                                static_cast<int>(getpid()), static_cast<int>(open_counter), suffix);
    return length > 0 && static_cast<size_t>(length) < PATH_SIZE;
}

// Binds. If the path is in use, an older process with our process id may have left it: it is
// removed, and there is a second try.
bool _bind_local(int s, const sockaddr_un &local)
{
    const auto *address = reinterpret_cast<const sockaddr *>(&local);
    if (bind(s, address, sizeof local) == 0)
        return true;
    if (errno != EADDRINUSE)
        return false;
    (void)unlink(local.sun_path);
    return bind(s, address, sizeof local) == 0;
}

uint64_t _random_number()
{
    uint64_t number;
    if (getrandom(&number, sizeof number, GRND_NONBLOCK) == static_cast<ssize_t>(sizeof number))
        return number;
    timespec now = {};  // the device has just started and has no random bytes yet
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_nsec);
}

// Binds to the first name that is free. Every user may write to the folder, so somebody may hold
// each name that can be foreseen with a thing that we cannot remove. ctrl->local is set only once
// the path is ours: wpa_ctrl_close removes what stands there.
bool _bind_any(wpa_ctrl *ctrl, const char *client_dir)
{
    // The kernel gives the path the mode that the socket has at this moment. So there is no moment
    // in which anybody else can send to it.
    (void)fchmod(ctrl->s, OWNER_ALONE);
    for (int tries = 0; tries <= NUMBERED_TRIES; ++tries) {
        char suffix[20] = "";
        if (tries == NUMBERED_TRIES)
            snprintf(suffix, sizeof suffix, "-%016llx",
                     static_cast<unsigned long long>(_random_number()));
        ++open_counter;
        sockaddr_un local = {};
        if (!_set_local_path(&local, client_dir, suffix))
            return false;
        if (_bind_local(ctrl->s, local)) {
            ctrl->local = local;
            return true;
        }
        if (errno != EADDRINUSE)
            return false;
    }
    return false;
}

// A Wi-Fi daemon that runs as another user, as on OpenWrt, can answer only if our path belongs to
// that user. In a folder with the sticky bit, as /tmp, nobody can have replaced the path since it
// was bound.
void _let_peer_answer(const wpa_ctrl &ctrl)
{
    struct stat peer = {};
    if (ctrl.dest.sun_path[0] == '\0' || stat(ctrl.dest.sun_path, &peer) != 0)
        return;
    if (geteuid() != 0 || peer.st_uid == 0)
        return;
    if (lchown(ctrl.local.sun_path, peer.st_uid, static_cast<gid_t>(-1)) != 0)
        return;  // then it cannot answer, and the first request fails
}

bool _set_destination(sockaddr_un *dest, const char *ctrl_path)
{
    dest->sun_family = AF_UNIX;
    if (strncmp(ctrl_path, ABSTRACT_PREFIX, ABSTRACT_PREFIX_LEN) == 0) {
        // An abstract name begins with a zero byte.
        const char *name = ctrl_path + ABSTRACT_PREFIX_LEN;
        memcpy(dest->sun_path + 1, name, strnlen(name, PATH_SIZE - 1));
        return true;
    }
    const size_t length = strlen(ctrl_path);
    if (length >= PATH_SIZE)
        return false;
    memcpy(dest->sun_path, ctrl_path, length);
    return true;
}

void _set_non_blocking(int s)
{
    const int flags = fcntl(s, F_GETFL);
    if (flags < 0 || fcntl(s, F_SETFL, flags | O_NONBLOCK) < 0)
        perror("fcntl(ctrl->s, O_NONBLOCK)");
}

time_t _monotonic_s()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

bool _is_busy(int error)
{
    return error == EAGAIN || error == EWOULDBLOCK || error == EBUSY;
}

int _send_command(int s, const char *command, size_t length)
{
    time_t first_failure = 0;
    while (send(s, command, length, 0) < 0) {
        if (!_is_busy(errno))
            return -1;
        if (first_failure == 0)
            first_failure = _monotonic_s();
        else if (_monotonic_s() - first_failure >= SEND_LIMIT_S)
            return -1;
        if (kelm_is_ending())
            return -1;
        sleep(SEND_RETRY_S);
    }
    return 0;
}

// 0 when a datagram waits, -1 on an error, -2 when none came in time.
int _await_reply(int s, ending_wait &ending)
{
    const unique_fd sigterm = kelm_watch_sigterm();
    for (;;) {
        const int left_ms = ending.left_ms();
        pollfd wait[] = {{s, POLLIN, 0}, {left_ms < 0 ? sigterm.get() : -1, POLLIN, 0}};
        const int ready = poll(wait, 2, left_ms < 0 ? REPLY_LIMIT_MS : left_ms);
        if (ready == 0)
            return -2;
        if (ready < 0 && errno != EINTR)
            return -1;
        if (ready > 0 && wait[0].revents != 0)
            return 0;
    }
}

void _pass_event(char *message, size_t length, size_t size, wpa_ctrl_msg_cb callback)
{
    if (callback == nullptr || size == 0)
        return;
    if (length == size)
        --length;  // room for the terminator
    message[length] = '\0';
    callback(message, length);
}

int _simple_request(wpa_ctrl *ctrl, const char *command)
{
    char reply[ATTACH_REPLY_SIZE];
    size_t length = sizeof reply;
    const int result = wpa_ctrl_request(ctrl, command, strlen(command), reply, &length, nullptr);
    if (result < 0)
        return result;
    return length == 3 && memcmp(reply, "OK\n", 3) == 0 ? 0 : -1;
}

}  // namespace

wpa_ctrl *wpa_ctrl_open(const char *ctrl_path)
{
    return wpa_ctrl_open2(ctrl_path, nullptr);
}

wpa_ctrl *wpa_ctrl_open2(const char *ctrl_path, const char *client_dir)
{
    if (ctrl_path == nullptr)
        return nullptr;
    unique_wpa_ctrl ctrl(static_cast<wpa_ctrl *>(calloc(1, sizeof(wpa_ctrl))));
    if (!ctrl)
        return nullptr;
    ctrl->s = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ctrl->s < 0)
        return nullptr;

    if (!_bind_any(ctrl.get(), client_dir) || !_set_destination(&ctrl->dest, ctrl_path))
        return nullptr;
    _let_peer_answer(*ctrl);
    const auto *dest = reinterpret_cast<const sockaddr *>(&ctrl->dest);
    if (connect(ctrl->s, dest, sizeof ctrl->dest) < 0)
        return nullptr;
    _set_non_blocking(ctrl->s);
    return ctrl.release();
}

void wpa_ctrl_close(wpa_ctrl *ctrl)
{
    if (ctrl == nullptr)
        return;
    if (ctrl->local.sun_path[0] != '\0')
        (void)unlink(ctrl->local.sun_path);
    if (ctrl->s >= 0)
        close(ctrl->s);
    free(ctrl);
}

bool wpa_ctrl_is_event(const char *message, size_t length)
{
    constexpr char IFNAME[] = "IFNAME=";
    constexpr size_t IFNAME_LEN = sizeof IFNAME - 1;
    return (length > 0 && message[0] == '<') ||
           (length >= IFNAME_LEN && strncmp(message, IFNAME, IFNAME_LEN) == 0);
}

int wpa_ctrl_request(wpa_ctrl *ctrl, const char *command, size_t command_len, char *reply,
                     size_t *reply_len, wpa_ctrl_msg_cb callback)
{
    ending_wait ending(ENDING_SHARE);
    if (_send_command(ctrl->s, command, command_len) != 0)
        return -1;
    // The wait begins anew after each event. Without a deadline a daemon that sends events alone
    // would hold the caller for ever.
    const time_t deadline_s = _monotonic_s() + EVENTS_LIMIT_S;
    do {
        const int waited = _await_reply(ctrl->s, ending);
        if (waited != 0)
            return waited;
        const ssize_t received = recv(ctrl->s, reply, *reply_len, 0);
        if (received < 0)
            return -1;
        const auto length = static_cast<size_t>(received);
        if (!wpa_ctrl_is_event(reply, length)) {
            *reply_len = length;
            return 0;
        }
        _pass_event(reply, length, *reply_len, callback);
    } while (_monotonic_s() < deadline_s && ending.left_ms() != 0);
    return -2;
}

int wpa_ctrl_send(wpa_ctrl *ctrl, const char *command, size_t command_len)
{
    return send(ctrl->s, command, command_len, MSG_DONTWAIT | MSG_NOSIGNAL) < 0 ? -1 : 0;
}

int wpa_ctrl_attach(wpa_ctrl *ctrl)
{
    return _simple_request(ctrl, "ATTACH");
}

int wpa_ctrl_detach(wpa_ctrl *ctrl)
{
    return _simple_request(ctrl, "DETACH");
}

int wpa_ctrl_recv(wpa_ctrl *ctrl, char *buffer, size_t *length)
{
    const ssize_t received = recv(ctrl->s, buffer, *length, 0);
    if (received < 0)
        return static_cast<int>(received);
    *length = static_cast<size_t>(received);
    return 0;
}

int wpa_ctrl_pending(wpa_ctrl *ctrl)
{
    pollfd wait = {ctrl->s, POLLIN, 0};
    return poll(&wait, 1, 0) > 0 ? 1 : 0;
}

int wpa_ctrl_get_fd(const wpa_ctrl *ctrl)
{
    return ctrl->s;
}

}  // namespace kelm
