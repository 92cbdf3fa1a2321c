// SPDX-License-Identifier: ISC
// Library calls that a test lets fail, and what the daemon's code passes to some of them.
#pragma once

#include <cstddef>

namespace kelm_test {

// Which call fails from now on; the linker sends each of them here, see the options --wrap.
struct fault_points {
    int sigaction_of = 0;                         // of this signal
    int ppoll_error = 0;                          // with this error, where it waits for descriptors
    void (*before_poll)(int limit_ms) = nullptr;  // no failure: what happens when a wait begins
    void (*after_poll)() = nullptr;               // ... and before the waiting one goes on
    bool pthread_create = false;
    bool calloc = false;
    size_t calloc_bytes = 0;  // calls for this much alone
    bool json_object_new_object = false;
    bool json_object_to_json_string = false;
    bool blobmsg_format_json_with_cb = false;
    int ubus_register_event_handler = 0;  // that many times
};
extern fault_points faults;

}  // namespace kelm_test
