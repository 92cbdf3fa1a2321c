// SPDX-License-Identifier: ISC
// The sockets that the main loop waits on: one entry per band, their list, and the wait itself.
#pragma once

#include <cstddef>
#include <cstdint>

#include "core/kelm.h"

namespace kelm {

constexpr uint32_t KELM_PKT_WORKER = 0;  // event text of a band's Wi-Fi daemon
constexpr uint32_t KELM_PKT_ROOTAP = 1;  // root access point message of a monitor

constexpr size_t KELM_MSG_SIZE = 2048;  // the most that is taken of one datagram

struct kelm_sock_entry {
    kelm_sock_entry *next;
    uint32_t packet_type;
    int32_t fd;
    uint32_t band;
};

extern kelm_sock_entry kelm_worker_socks[KELM_BAND_COUNT];
extern kelm_sock_entry *kelm_sock_list;  // newest first

// Adds at the head unless the entry is in the list already; removes it if it is there.
void kelm_sock_list_add(kelm_sock_entry *entry);
void kelm_sock_list_del(kelm_sock_entry *entry);

// Opens the event socket of every inited band whose interface is enabled. Returns 0, or -1 at the
// first that fails; those opened before it stay open and in the list.
int kelm_worker_sock_init();

// Closes those of the bands that are enabled now; a band that was disabled meanwhile keeps its
// socket until its next set-up.
void kelm_worker_sock_deinit();

// Waits at most one second for a packet; a request that comes into the mailbox ends the wait. This
// is the only place where the daemon's signals are let in. buffer: KELM_MSG_SIZE + 1 bytes, so that
// a full one can be terminated; length in: bytes to take, out: bytes taken. Returns the entry that
// delivered, or null.
kelm_sock_entry *_kelm_check_fd(char *buffer, size_t *length, kelm_sock_entry *list);

// Takes a packet that is there already, like _kelm_check_fd but without a wait. False when there is
// none.
bool kelm_take_waiting_packet(const kelm_sock_entry &entry, char *buffer, size_t *length);

}  // namespace kelm
