// SPDX-License-Identifier: ISC
// The sockets that the main loop waits for: one entry for each band, their list, and the wait.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/kelm.h"

namespace kelm {

constexpr uint32_t KELM_PKT_WORKER = 0;  // event text of a band's Wi-Fi daemon
constexpr uint32_t KELM_PKT_ROOTAP = 1;  // root access point message of a monitor

constexpr size_t KELM_MSG_SIZE = 2048;  // bytes taken of one datagram at most

struct kelm_sock_entry {
    kelm_sock_entry *next;
    uint32_t packet_type;
    int32_t fd;
    uint32_t band;
};

extern kelm_sock_entry kelm_worker_socks[KELM_BAND_COUNT];
extern kelm_sock_entry *kelm_sock_list;  // newest first

// Add puts an entry first in the list, if it is not in the list already. Del takes it out, if it
// is.
void kelm_sock_list_add(kelm_sock_entry *entry);
void kelm_sock_list_del(kelm_sock_entry *entry);

// Opens the event socket of each band of the device whose interface is enabled. Returns 0, or -1 at
// the first socket that fails. The sockets that were opened before it stay open and in the list.
int kelm_worker_sock_init();

// Closes the sockets of the bands that are enabled now. A band that was disabled after its socket
// was opened keeps it until the next kelm_worker_sock_init() with the band enabled.
void kelm_worker_sock_deinit();

// Waits at most one second for a packet. A request that comes into the mailbox ends the wait. Only
// here are the daemon's signals unblocked. buffer: KELM_MSG_SIZE + 1 bytes, so that there is room
// for a terminator; length in: bytes to take, out: bytes taken. Returns the entry whose socket had
// the packet, or null.
kelm_sock_entry *_kelm_check_fd(char *buffer, size_t *length, kelm_sock_entry *list);

// Like _kelm_check_fd, but does not wait: takes a packet that is there already. False when there is
// none.
bool kelm_take_waiting_packet(const kelm_sock_entry &entry, char *buffer, size_t *length);

}  // namespace kelm
