// SPDX-License-Identifier: ISC
// Starting and cancelling WPS: push button, PIN, requests from the bus, interface names.
#pragma once

#include "ipc/bus.h"

namespace kelm {

// Band name of the log lines: "2.4G", "5G", "5G2", else "".
const char *rtk_band_name(int band);

// Names the interface of every inited band after the run mode.
void rtk_update_interface();

// Names the interfaces; in access-point mode sets the access points' PIN. Always 0.
int rtk_start_worker();

// Starts an attempt. method: IBUS_WPS_METHOD_*; pin: up to eight characters, terminated. Returns 0,
// or -1 when an attempt runs, the pre-check refuses or the method is unknown.
int rtk_wps_start(int method, const char *pin);

// The start commands of all bands that take part.
void rtk_pbc_handle();
void rtk_pin_handle(const char *pin);

// Cancels WPS on all launched bands; in access-point mode publishes that. Returns the flag word.
int rtk_wps_cancel();

// Declares every band's running work as done, without a command.
void rtk_kill_wpas();

// Sets the PIN of the band's access point, or takes it away when pin is null. Always 0.
int rtk_set_ap_pin(int band, const char *pin);

// A request from the bus: 0 or the start's result; -1 when it is refused.
int rtk_process_ibus_msg(const wps_listen_event_t *event);

// Runs "/etc/init.d/wifi restart". Here for the platform: the daemon never calls it.
int rtk_wifi_restart();

}  // namespace kelm
