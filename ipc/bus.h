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
// action of a "wifi" request share the same bytes.
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

// Starts the bus thread. It receives no signals but those of a crash. Returns 0, or -1 (logged)
// when it cannot be made. If there is no broker at the start, the thread logs that once and ends.
// If the broker goes away later, the thread looks for it every second until it is back. Nobody
// joins the thread: a broker that says nothing may hold it for ever.
int wps_create_ibus_thread();

// Puts a request into the mailbox. It replaces one that was not taken yet.
void wps_ibus_set_msg(wps_listen_event_t event);

// Gives a waiting request to the platform and empties the mailbox. The mailbox is locked meanwhile.
void wps_ibus_handle_event();

// A descriptor for the main loop's wait, readable while the mailbox may hold a request. -1 before
// the bus thread is started, or where it could not be made: then a request is seen when the loop's
// wait is over.
int wps_ibus_wake_fd();

// Publishes "wps" with the action (IBUS_WPS_ACTION_*) and the statuses of bands 0 to 2 through the
// "ubus" command, then rewrites the info file. statuses: at least three. Main thread only.
void wps_ibus_send_wps_event(int action, const uint16_t *statuses);
void wps_ubus_send_wps_event(int action, const uint16_t *statuses);

}  // namespace kelm
