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

// Receives an event that came while a reply was awaited: length bytes, terminated.
using wpa_ctrl_msg_cb = void (*)(char *message, size_t length);

// Connects to a daemon's control socket: a path, or "@abstract:" and a name. Binds a path of its
// own in "/tmp", or in client_dir when that begins with "/", to which the owner of the daemon's
// socket alone can send. A path that is taken for good costs nothing: another one is found. Returns
// null when any step fails, with nothing left behind.
wpa_ctrl *wpa_ctrl_open(const char *ctrl_path);
wpa_ctrl *wpa_ctrl_open2(const char *ctrl_path, const char *client_dir);

// Unlinks the local path, closes, frees. Null is fine.
void wpa_ctrl_close(wpa_ctrl *ctrl);

// Whether a datagram is an event: it begins with "<" (a level) or "IFNAME=". Anything else is a
// reply.
bool wpa_ctrl_is_event(const char *message, size_t length);

// Sends a command and waits for the reply. reply_len in: room in reply; out: bytes of the reply,
// not terminated. Blocks for up to 5 seconds to send and 10 for each datagram awaited, of which it
// takes none any more after 30; after SIGTERM for a share of what is left, see core/signals.h.
// 0; -1: not sent or not received; -2: no reply in time. Events that arrive meanwhile go to
// callback, or nowhere when it is null.
int wpa_ctrl_request(wpa_ctrl *ctrl, const char *command, size_t command_len, char *reply,
                     size_t *reply_len, wpa_ctrl_msg_cb callback);

// Sends a command without waiting for anything, the reply neither: that comes among the events. 0;
// -1 with errno, EAGAIN where the daemon takes nothing now.
int wpa_ctrl_send(wpa_ctrl *ctrl, const char *command, size_t command_len);

// Asks for events, or for no more. 0; -1 when the daemon refuses; else wpa_ctrl_request's failure.
int wpa_ctrl_attach(wpa_ctrl *ctrl);
int wpa_ctrl_detach(wpa_ctrl *ctrl);

// Takes one datagram without waiting. length in: room; out: bytes. 0, or recv's negative result.
int wpa_ctrl_recv(wpa_ctrl *ctrl, char *buffer, size_t *length);

// 1 when a datagram waits, else 0.
int wpa_ctrl_pending(wpa_ctrl *ctrl);

int wpa_ctrl_get_fd(const wpa_ctrl *ctrl);

struct wpa_ctrl_closer {
    void operator()(wpa_ctrl *ctrl) const { wpa_ctrl_close(ctrl); }
};
using unique_wpa_ctrl = std::unique_ptr<wpa_ctrl, wpa_ctrl_closer>;

}  // namespace kelm
