// SPDX-License-Identifier: ISC
// What the daemon may ask of a platform: one table of functions. It is the only way by which a
// lower folder calls a higher one.
#pragma once

#include "core/kelm.h"

namespace kelm {

struct wps_listen_event_t;

// All functions are called on the main thread and may block for the time of a shell command. Nobody
// calls the slots that have only a number (slot5, slot10, slot15); they may be null.
struct kelm_platform_ops {
    const char *name;

    // At the start, once the enable flags are known. Sets the interface names. Non-zero ends the
    // start.
    int (*start_worker)();
    // At the start and at the end: stops what still runs for any band.
    void (*kill_worker)();
    // Returns a descriptor that delivers the band's events, or -1. Called for each enabled band: at
    // the start, and again before each attempt.
    int (*event_sock_init)(int band);
    void (*event_sock_deinit)(int band, int fd);
    void (*slot5)();
    // Handles a request from the bus. The mailbox is locked meanwhile.
    int (*process_bus_msg)(const wps_listen_event_t *event);
    // Handles one event text of length bytes. It is terminated and may be changed. Returns 0 when
    // it was handled; the caller then evaluates the attempt. Returns -1 for an unknown event.
    int (*process_event_msg)(int band, char *text, int length);
    // Returns the address of the band's enrollee as text, for the info file; "" when unknown.
    const char *(*get_sta_mac)(int band);
    // Writes the credential files for ap_band, with what the station of sta_band has learnt.
    // record: the root access point to mirror, or null. Returns 0, or -1 when nothing was written.
    int (*patching_back)(int ap_band, int sta_band, const kelm_rootap_info *record);
    void (*slot10)();
    // Sets the PIN of the band's access point; null removes it.
    int (*set_ap_pin)(int band, const char *pin);
    // Ends the attempt on all launched bands. The SIGTERM handler calls it too.
    int (*wps_cancel)();
    // Called for each band of the device at each boost check, once a band has succeeded.
    void (*band_tick)(int band);
    // Reads a root access point message. If this returns -1 or leaves band at 4, the message is not
    // for us.
    int (*parse_rootap_msg)(const char *message, size_t length,
                            struct kelm_worker_rootapinfo *rootap, int *band);
    void (*slot15)();
    // Fills the band's root access point record with what its station has learnt.
    int (*get_wps_credentials)(int band, kelm_rootap_info *record);
};

// What a platform reads from a root access point message.
struct kelm_worker_rootapinfo {
    uint8_t uuid[WPS_UUID_LEN];
    uint8_t bssid[WPS_BSSID_LEN];
    char ssid[WPS_SSID_SIZE];
};
static_assert(sizeof(kelm_worker_rootapinfo) == 55, "the message is 55 bytes");

extern const kelm_platform_ops kelm_ops;

}  // namespace kelm
