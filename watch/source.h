// SPDX-License-Identifier: ISC
// What the loop asks of each source, and what the sources tell each other.
#pragma once

#include <cstddef>
#include <cstdint>

#include <poll.h>

#include "watch/options.h"

namespace kelm {

// Bytes that are taken of one thing, its terminator included; what is longer is cut.
constexpr size_t WATCH_ROOM = 4096;

// One kind of things that are watched. No function of it waits for anybody, and each takes a
// bounded part of what is there, so that no source keeps another out.
struct watch_source {
    // Once, before all else.
    void (*open)(const watch_options &options);
    // Writes the descriptors that are to be waited for into set; returns how many. room is enough
    // for WATCH_DESCRIPTORS of each source.
    size_t (*descriptors)(pollfd *set);
    // After a wait: set as the source wrote it, with what came.
    void (*take)(const pollfd *set, size_t count);
    // Looks at what no descriptor tells. Returns when it wants to be called again, on the clock of
    // kelm_monotonic_ms(); a moment that is over means at once.
    int64_t (*look)(int64_t now_ms);
    // Leaves nothing behind.
    void (*close)();
};

constexpr size_t WATCH_WIFI_SOCKETS_MAX = 64;
constexpr size_t WATCH_DESCRIPTORS = WATCH_WIFI_SOCKETS_MAX + 1;  // of one source, at most

extern const watch_source WATCH_CTRL;
extern const watch_source WATCH_BUS;
extern const watch_source WATCH_FILES;
extern const watch_source WATCH_PROCESSES;
extern const watch_source WATCH_LOG;

// Takes what waits on the Wi-Fi daemons' sockets into memory of our own. They hold ten events, so
// this comes between any two things that may take time.
void watch_drain_wifi();

// Says goodbye to all Wi-Fi daemons; the next look attaches anew.
void watch_leave_wifi();

// Whether a Wi-Fi daemon or the bus has ever been heard.
bool watch_has_heard_wifi();
bool watch_has_heard_bus();

// How processes are seen, for the first line: "the kernel tells", or "by looking".
const char *watch_process_way();

// watch_tell with a format; what is longer than WATCH_ROOM is cut.
void watch_say(const char *source, const char *iface, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// --- The attempt, as far as it is known. Main thread only. ---

void watch_attempt_asked();    // a press or a request was seen
void watch_attempt_started();  // the daemon has announced its start
void watch_attempt_ended();    // ... its end, or the daemon has ended

// From the press on, for as long as an attempt can take.
bool watch_attempt_runs();

}  // namespace kelm
