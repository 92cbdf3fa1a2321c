// SPDX-License-Identifier: ISC
// What the command line of kelm-watch asks for.
#pragma once

#include <cstddef>

namespace kelm {

constexpr size_t WATCH_BAND_OPTIONS_MAX = 16;

// An interface whose band the user tells. iface: a part of the command line, up to its "=".
struct watch_band_option {
    const char *iface;
    size_t iface_length;
    const char *band;  // "2.4 GHz", "5 GHz" or "6 GHz"
};

// All texts here are parts of the command line.
struct watch_options {
    const char *recording = nullptr;  // the file that is written, or null
    unsigned limit_kib = 4096;        // its size at most
    bool anonymous = false;           // addresses and names become aliases
    const char *log = nullptr;        // the daemon's log: a file, "-" for standard input, or null
    const char *hostapd_folder = "/var/run/hostapd";
    const char *supplicant_folder = "/var/run/wpa_supplicant";
    watch_band_option bands[WATCH_BAND_OPTIONS_MAX] = {};
    size_t band_count = 0;
    unsigned seconds = 0;  // ends after so many; 0: no limit
    bool once = false;     // ends after the first attempt
    bool quiet = false;    // nothing on the screen
    bool no_colour = false;
};

// What the command line asks the program to do.
enum class watch_use { run, told, wrong };

// Reads the command line. told: the user asked for the help or the version, and it was printed on
// standard output. wrong: a sentence on standard error says why; do not use options.
watch_use watch_read_options(int argc, char **argv, watch_options *options);

}  // namespace kelm
