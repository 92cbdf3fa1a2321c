// SPDX-License-Identifier: ISC
// What a supervisor changes by environment variables: KELM_FOREGROUND=1, KELM_LOG=syslog,
// KELM_WIFI=PATH and KELM_CREDENTIALS=event. One that is unset or empty changes nothing. Commands
// inherit them, and so does the next daemon, which a command starts.
#pragma once

namespace kelm {

constexpr int KELM_WIFI_PATH_MAX = 255;

// Reads the variables. The first step of the process: the rest is as it was then. The log goes
// where they say from here on.
void kelm_read_switches();

// One log line for each variable with another value than those, which counts as unset.
void kelm_tell_refused_switches();

// Whether the process that was started is the daemon.
bool kelm_stays_in_foreground();

// Whether a station's credentials come with an event, in place of wpa_supplicant's own file.
bool kelm_takes_credential_events();

// The program that scans, as one word of a shell command: "/usr/bin/wifi", or an absolute path of
// at most KELM_WIFI_PATH_MAX bytes.
const char *kelm_wifi_program();

}  // namespace kelm
