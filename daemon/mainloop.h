// SPDX-License-Identifier: ISC
// The main loop, its clock, and what it does with a packet from an event socket.
#pragma once

#include <cstddef>

#include "ipc/event_socks.h"

namespace kelm {

// Runs until a global flag asks for the end, then closes the event sockets and stops the workers.
// Returns the result of that close.
int kelm_mainloop();

// Handles one packet. Returns 0 or the handler's result; -1 when entry is null. buffer is
// terminated and may be changed.
int _kelm_process_msg(char *buffer, size_t length, const kelm_sock_entry *entry);
int _kelm_process_worker_msg(int band, char *buffer, size_t length);

// Starts the attempt's clock when the running flag is set, and clears it when it is not.
void kelm_update_time();

// Ends an attempt that has run for 125 seconds or more, after it has handled the packets that wait.
void wps_session_maintain();

// Closes the event sockets and stops the workers. Returns 0.
int _kelm_close();

}  // namespace kelm
