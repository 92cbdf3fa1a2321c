// SPDX-License-Identifier: ISC
// The worker sockets: list, set-up, tear-down, wait.
#include "ipc/event_socks.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <sys/socket.h>

#include "core/enabled.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/session.h"
#include "core/signals.h"
#include "ipc/bus.h"

namespace kelm {

kelm_sock_entry kelm_worker_socks[KELM_BAND_COUNT];
kelm_sock_entry *kelm_sock_list = nullptr;

namespace {

constexpr size_t MAX_SOCKETS = 16;                 // four bands, and a platform's monitors
constexpr size_t MAX_WAITED_ON = MAX_SOCKETS + 1;  // with the mailbox
constexpr timespec WAIT_TIME = {1, 0};
constexpr timespec NO_TIME = {0, 0};
// A socket with an error counts as ready: reading it logs the error and clears it.
constexpr short READY = POLLIN | POLLERR | POLLHUP | POLLNVAL;

bool _takes_part(int band)
{
    return kelm_get_band_inited(band) != 0 && kelm_get_iface_enabled(band) != 0;
}

size_t _collect(const kelm_sock_entry *list, pollfd (&set)[MAX_WAITED_ON])
{
    size_t count = 0;
    for (; list != nullptr && count < MAX_SOCKETS; list = list->next)
        set[count++] = {list->fd, POLLIN, 0};
    return count;
}

// The entry of the first ready descriptor. set has the same order as the list.
kelm_sock_entry *_first_ready(kelm_sock_entry *list, const pollfd *set, size_t count)
{
    for (size_t i = 0; i < count && list != nullptr; ++i, list = list->next) {
        if ((set[i].revents & READY) != 0)
            return list;
    }
    return nullptr;
}

}  // namespace

void kelm_sock_list_add(kelm_sock_entry *entry)
{
    for (const kelm_sock_entry *in_list = kelm_sock_list; in_list != nullptr;
         in_list = in_list->next) {
        if (in_list == entry)
            return;
    }
    entry->next = kelm_sock_list;
    kelm_sock_list = entry;
}

void kelm_sock_list_del(kelm_sock_entry *entry)
{
    for (kelm_sock_entry **link = &kelm_sock_list; *link != nullptr; link = &(*link)->next) {
        if (*link != entry)
            continue;
        *link = entry->next;
        entry->next = nullptr;
        return;
    }
}

int kelm_worker_sock_init()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_takes_part(band))
            continue;
        kelm_sock_entry &entry = kelm_worker_socks[band];
        kelm_sock_list_del(&entry);  // the next line clears its link
        entry = {};
        entry.fd = kelm_ops.event_sock_init(band);
        entry.band = static_cast<uint32_t>(band);
        if (entry.fd == -1)
            return -1;
        entry.packet_type = KELM_PKT_WORKER;
        kelm_sock_list_add(&entry);
    }
    return 0;
}

void kelm_worker_sock_deinit()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_takes_part(band))
            continue;
        kelm_sock_list_del(&kelm_worker_socks[band]);
        kelm_ops.event_sock_deinit(band, kelm_worker_socks[band].fd);
    }
}

kelm_sock_entry *_kelm_check_fd(char *buffer, size_t *length, kelm_sock_entry *list)
{
    pollfd set[MAX_WAITED_ON];
    const size_t count = _collect(list, set);
    set[count] = {wps_ibus_wake_fd(), POLLIN, 0};
    sigset_t let_in;
    kelm_wait_mask(&let_in);

    // ppoll() that finds a packet at once does not look at signals. Without this call a flood of
    // events would keep them out for ever.
    if (count > 0 && ::ppoll(nullptr, 0, &NO_TIME, &let_in) < 0)
        return nullptr;
    const int ready = ::ppoll(set, count + 1, &WAIT_TIME, &let_in);
    const bool failed = ready < 0 && errno != EINTR;
    // If the failure lasts, the loop must not turn at full speed.
    if (failed)
        (void)::ppoll(nullptr, 0, &WAIT_TIME, &let_in);
    if (count == 0) {
        kelm_log_detail("no fd set!\n");
        return nullptr;
    }
    if (failed)
        kelm_log_detail("select failed\n");
    if (ready < 1)
        return nullptr;

    // One packet in each pass of the loop. The other sockets keep theirs until the next passes.
    kelm_sock_entry *entry = _first_ready(list, set, count);
    if (entry == nullptr)
        return nullptr;
    sockaddr sender = {};
    socklen_t sender_len = sizeof sender;
    const ssize_t received = ::recvfrom(entry->fd, buffer, *length, 0, &sender, &sender_len);
    if (received < 0) {
        kelm_log_detail("failed to recvfrom: %s\n", strerror(errno));
        return nullptr;
    }
    *length = static_cast<size_t>(received);
    return entry;
}

bool kelm_take_waiting_packet(const kelm_sock_entry &entry, char *buffer, size_t *length)
{
    const ssize_t received = ::recv(entry.fd, buffer, *length, MSG_DONTWAIT);
    if (received < 0)
        return false;
    *length = static_cast<size_t>(received);
    return true;
}

}  // namespace kelm
