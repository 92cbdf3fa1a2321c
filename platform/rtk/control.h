// SPDX-License-Identifier: ISC
// Starting and cancelling WPS: push button, PIN, requests from the bus, interface names.
#pragma once

#include "ipc/bus.h"

namespace kelm {

// The band's name in log lines: "2.4G", "5G" or "5G2"; "" for any other band.
const char *rtk_band_name(int band);

// Sets the interface name of every inited band. The name depends on the run mode.
void rtk_update_interface();

// Sets the interface names. In access-point mode it also sets the access points' PIN. Always
// returns 0.
int rtk_start_worker();

// Starts an attempt. method: IBUS_WPS_METHOD_*; pin: up to eight characters, terminated. Returns 0,
// or -1 when an attempt runs already, the pre-check refuses or the method is unknown.
int rtk_wps_start(int method, const char *pin);

// Run the start commands of all bands that take part.
void rtk_pbc_handle();
void rtk_pin_handle(const char *pin);

// Cancels WPS on all launched bands. In access-point mode it also publishes the cancel. Returns the
// global flag word.
int rtk_wps_cancel();

// Marks the running work of every band as done. Runs no command.
void rtk_kill_wpas();

// Sets the PIN of the band's access point, or removes it when pin is null. Always returns 0.
int rtk_set_ap_pin(int band, const char *pin);

// Handles a request from the bus. Returns 0 or the result of the start; -1 when the request is
// refused.
int rtk_process_ibus_msg(const wps_listen_event_t *event);

// Runs "/etc/init.d/wifi restart". The platform offers this function; the daemon never calls it.
int rtk_wifi_restart();

}  // namespace kelm
