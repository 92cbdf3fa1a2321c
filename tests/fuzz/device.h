// SPDX-License-Identifier: ISC
// A device for the targets that need a session table: its files, its operations, what must hold.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "core/kelm.h"
#include "ipc/bus.h"

namespace kelm_fuzz {

// A made-up descriptor of a band's event socket; nothing is open there.
constexpr int EVENT_FD = 1000;

// The files that an attempt reads and writes, by number.
struct device_file {
    const char *path;
    bool is_json;  // written by the daemon, as one JSON object on one line
};
constexpr int DEVICE_FILES = 24;
extern const device_file DEVICE_FILE[DEVICE_FILES];
constexpr int PRESETS = 4;

// Puts a file as somebody else than the daemon; check_files asks nothing of one that stays so.
void put_device_file(size_t file, const std::string &text);

// Removes all of them and the daemon's state. Puts the files of a device: 0 access point, 1
// repeater with both bands, 2 open access point and 3 repeater with all four.
void reset_device(unsigned preset);

// The daemon's state as after its start, with the run mode and the bands that the files say. False
// when the daemon would not start.
bool start_device();

// What holds at any moment: known statuses, texts that end, bands that keep their name.
void check_sessions();

// What holds of the files that the daemon wrote.
void check_files();

// Called with each request that the main thread takes, before it acts.
extern void (*on_request)(const kelm::wps_listen_event_t *event);

// Time as the daemon sees it, in seconds; starts at 1000.
void move_time(int64_t seconds);

}  // namespace kelm_fuzz
