// SPDX-License-Identifier: ISC
// What the command line of kelm-watch asks for.
#pragma once

#include <cstddef>

namespace kelm {

constexpr size_t WATCH_BAND_OPTIONS_MAX = 16;

// An interface whose band the user tells. iface: text of the command line, which ends at its "=".
struct watch_band_option {
    const char *iface;
    size_t iface_length;
    const char *band;  // "2.4 GHz", "5 GHz" or "6 GHz"
};

// Texts belong to the command line.
struct watch_options {
    const char *recording = nullptr;  // the file that is written, or null
    unsigned limit_kib = 4096;        // its size at most
    bool anonymous = false;           // addresses and names become aliases
    const char *log = nullptr;        // the daemon's log: a file, "-" for standard input, or null
    const char *hostapd_folder = "/var/run/hostapd";
    const char *supplicant_folder = "/var/run/wpa_supplicant";
    watch_band_option bands[WATCH_BAND_OPTIONS_MAX] = {};
    size_t band_count = 0;
    unsigned seconds = 0;  // ends after so many; 0: when it is told to
    bool once = false;     // ends after the first attempt
    bool quiet = false;    // nothing on the screen
    bool no_colour = false;
};

// What the command line asks the program to do.
enum class watch_use { run, told, wrong };

// Reads the command line. told: it asked for the help or the version, which stands on standard
// output now. wrong: a sentence on standard error says what, and options are of no use.
watch_use watch_read_options(int argc, char **argv, watch_options *options);

}  // namespace kelm
