// SPDX-License-Identifier: ISC
// Client of the control interface of hostapd and wpa_supplicant. Main thread only.
#pragma once

#include <cstddef>
#include <memory>

#include <sys/un.h>

namespace kelm {

struct wpa_ctrl {
    int s;
    sockaddr_un local;  // our own path, which wpa_ctrl_close removes; empty: not bound yet
    sockaddr_un dest;
};

// Is called with an event that came before the reply: length bytes, terminated.
using wpa_ctrl_msg_cb = void (*)(char *message, size_t length);

// Connects to a daemon's control socket: a path, or "@abstract:" and a name. Binds a path of its
// own in "/tmp", or in client_dir when that begins with "/". Only the owner of the daemon's socket
// can send to this path. If a path is in use and cannot be removed, another one is taken. Returns
// null when any step fails; then nothing is left behind.
wpa_ctrl *wpa_ctrl_open(const char *ctrl_path);
wpa_ctrl *wpa_ctrl_open2(const char *ctrl_path, const char *client_dir);

// Removes the local path, closes the socket, frees the memory. ctrl may be null.
void wpa_ctrl_close(wpa_ctrl *ctrl);

// Whether a datagram is an event: it begins with "<" (a level) or "IFNAME=". Anything else is a
// reply.
bool wpa_ctrl_is_event(const char *message, size_t length);

// Sends a command and waits for the reply. reply_len in: room in reply; out: bytes of the reply,
// which is not terminated. Events that come before the reply go to callback; with null they are
// lost. Returns 0; -1 when it could not be sent or received; -2 when no reply came in time.
// It waits
// - up to 5 seconds to send;
// - up to 10 seconds for each datagram. After 30 seconds in all it takes no further event;
// - after SIGTERM for a share of the time that is left, see core/signals.h.
int wpa_ctrl_request(wpa_ctrl *ctrl, const char *command, size_t command_len, char *reply,
                     size_t *reply_len, wpa_ctrl_msg_cb callback);

// Sends a command and waits for nothing. The reply comes later, among the events. Returns 0, or -1
// with errno; EAGAIN means that the daemon takes nothing now.
int wpa_ctrl_send(wpa_ctrl *ctrl, const char *command, size_t command_len);

// Attach asks the daemon to send events, detach to stop. Returns 0, -1 when the daemon refuses, or
// what wpa_ctrl_request returned when it failed.
int wpa_ctrl_attach(wpa_ctrl *ctrl);
int wpa_ctrl_detach(wpa_ctrl *ctrl);

// Takes one datagram without waiting. length in: room; out: bytes. Returns 0, or the negative
// result of recv().
int wpa_ctrl_recv(wpa_ctrl *ctrl, char *buffer, size_t *length);

// 1 when a datagram waits, else 0.
int wpa_ctrl_pending(wpa_ctrl *ctrl);

int wpa_ctrl_get_fd(const wpa_ctrl *ctrl);

struct wpa_ctrl_closer {
    void operator()(wpa_ctrl *ctrl) const { wpa_ctrl_close(ctrl); }
};
using unique_wpa_ctrl = std::unique_ptr<wpa_ctrl, wpa_ctrl_closer>;

}  // namespace kelm
