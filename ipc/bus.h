// SPDX-License-Identifier: ISC
// The bus: a thread that turns ubus events into one mailbox record, and the publication of the
// "wps" event.
#pragma once

#include <cstdint>

#include "core/kelm.h"

namespace kelm {

constexpr uint32_t IBUS_EVENT_NONE = 0;
constexpr uint32_t IBUS_EVENT_WIFI = 3;
constexpr uint32_t IBUS_EVENT_BUTTON = 4;
constexpr uint32_t IBUS_EVENT_WPS_CLI = 10;

// One request: nine 32-bit words, all zero when empty. The PIN of a "wps_cli" request and the
// action of a "wifi" request share a place.
struct wps_listen_event_t {
    uint32_t code;    // IBUS_EVENT_*
    uint32_t action;  // wps_cli: 1 start, 2 cancel
    uint32_t method;  // wps_cli: IBUS_WPS_METHOD_*
    union {
        char pin[WPS_PIN_LEN];  // wps_cli with a PIN: not terminated when eight characters long
        struct {
            uint32_t unused;
            uint32_t action;
        } wifi;
    };
    uint32_t reserved[4];
};
static_assert(sizeof(wps_listen_event_t) == 9 * sizeof(uint32_t), "the record is nine words");

// Starts the bus thread, which receives no signals but those of a crash. Returns 0, or -1 when it
// cannot be made (logged). Without a broker the thread logs that once and ends; a broker that goes
// away later is looked for every second until it is back. The thread is never joined: it may hang
// in a broker that says nothing.
int wps_create_ibus_thread();

// Puts a request into the mailbox, over one that was not yet taken.
void wps_ibus_set_msg(wps_listen_event_t event);

// Hands a waiting request to the platform, with the mailbox locked meanwhile, and empties the
// mailbox.
void wps_ibus_handle_event();

// A descriptor that is readable while the mailbox may hold a request, for the main loop's wait; -1
// where it could not be made, or before the bus thread is: a request then waits for the end of a
// wait.
int wps_ibus_wake_fd();

// Publishes "wps" with the action (IBUS_WPS_ACTION_*) and the statuses of bands 0 to 2 through the
// "ubus" command, then rewrites the info file. statuses: at least three. Main thread only.
void wps_ibus_send_wps_event(int action, const uint16_t *statuses);
void wps_ubus_send_wps_event(int action, const uint16_t *statuses);

}  // namespace kelm
