// SPDX-License-Identifier: ISC
// Environment variables by which a supervisor changes the daemon: KELM_FOREGROUND=1,
// KELM_LOG=syslog, KELM_WIFI=PATH and KELM_CREDENTIALS=event. A variable that is unset or empty
// changes nothing. Commands inherit the variables. A command starts the next daemon, so the next
// daemon inherits them too.
#pragma once

namespace kelm {

constexpr int KELM_WIFI_PATH_MAX = 255;

// Reads the variables, as the first step of the process; later changes do not count. From here on
// the log goes where KELM_LOG says.
void kelm_read_switches();

// Writes a log line for each variable that has a value which is not one of those above. Such a
// variable counts as unset.
void kelm_tell_refused_switches();

// Whether the daemon stays in the process that was started, and makes no child for itself.
bool kelm_stays_in_foreground();

// Whether a station's credentials come with an event, in place of wpa_supplicant's own file.
bool kelm_takes_credential_events();

// The program that scans, as one word of a shell command: "/usr/bin/wifi", or an absolute path of
// at most KELM_WIFI_PATH_MAX bytes.
const char *kelm_wifi_program();

}  // namespace kelm
