// SPDX-License-Identifier: ISC
// What the core may ask of a platform: one table of functions, the only way up or out of the core.
#pragma once

#include "core/kelm.h"

namespace kelm {

struct wps_listen_event_t;

// All slots are called on the main thread and may block for the time of a shell command. A null
// slot is one that no caller uses.
struct kelm_platform_ops {
    const char *name;

    // Start-up, after the enable flags are known. Names the interfaces. Non-zero ends the start.
    int (*start_worker)();
    // Start-up and shut-down: ends what a band has still running.
    void (*kill_worker)();
    // A descriptor that delivers the band's events, or -1. Called for each usable band, again
    // before each attempt.
    int (*event_sock_init)(int band);
    void (*event_sock_deinit)(int band, int fd);
    void (*slot5)();
    // A request from the bus, with the mailbox locked.
    int (*process_bus_msg)(const wps_listen_event_t *event);
    // One event text of length bytes, terminated; it may be changed. 0: handled, judge the attempt;
    // -1: unknown.
    int (*process_event_msg)(int band, char *text, int length);
    // Address text of the band's enrollee for the info file, "" when unknown.
    const char *(*get_sta_mac)(int band);
    // Writes what the attempt brought into the credential files for ap_band, from the station of
    // sta_band; record: the root access point to mirror, or null. 0, or -1 when they were not
    // written.
    int (*patching_back)(int ap_band, int sta_band, const kelm_rootap_info *record);
    void (*slot10)();
    // Sets the band's access-point PIN; null takes it away.
    int (*set_ap_pin)(int band, const char *pin);
    // Ends the attempt on all launched bands; called from the SIGTERM handler too.
    int (*wps_cancel)();
    // Once for each inited band on each pass of the boost check.
    void (*band_tick)(int band);
    // Reads a root access point message; -1 or a band that stays 4: not for us.
    int (*parse_rootap_msg)(const char *message, size_t length,
                            struct kelm_worker_rootapinfo *rootap, int *band);
    void (*slot15)();
    // Fills the band's root access point record from what its station learnt.
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
