// SPDX-License-Identifier: ISC
// The main loop, its clock and what a packet from an event socket leads to.
#pragma once

#include <cstddef>

#include "ipc/event_socks.h"

namespace kelm {

// Runs until a global flag asks for the end, then closes the event sockets and stops the workers.
// Returns the result of that close.
int kelm_mainloop();

// One packet: 0 or the handler's result; -1 without an entry. buffer is terminated and may be
// changed.
int _kelm_process_msg(char *buffer, size_t length, const kelm_sock_entry *entry);
int _kelm_process_worker_msg(int band, char *buffer, size_t length);

// Starts or clears the attempt's clock after the running flag.
void kelm_update_time();

// Ends an attempt that runs for 125 seconds or more, once the packets that wait have been heard.
void wps_session_maintain();

// Closes the event sockets and stops the workers. Returns 0.
int _kelm_close();

}  // namespace kelm
