// SPDX-License-Identifier: ISC
// What the loop calls in each source, and what the sources tell each other.
#pragma once

#include <cstddef>
#include <cstdint>

#include <poll.h>

#include "watch/options.h"

namespace kelm {

// Bytes that are taken of one event or line, with its terminator; the rest is cut.
constexpr size_t WATCH_ROOM = 4096;

// One kind of thing that is watched. None of its functions waits. Each takes a bounded part of what
// is there, so that every source gets its turn.
struct watch_source {
    // Called once, before all else.
    void (*open)(const watch_options &options);
    // Writes the descriptors that the loop must wait for into set, and returns how many: at most
    // WATCH_DESCRIPTORS.
    size_t (*descriptors)(pollfd *set);
    // Called after a wait. set: as descriptors() wrote it, with the results of the wait.
    void (*take)(const pollfd *set, size_t count);
    // Looks for changes that no descriptor tells. Returns when it wants to be called again, as a
    // time of kelm_monotonic_ms(); a time that is over means at once.
    int64_t (*look)(int64_t now_ms);
    // Called at the end: removes what the source has made.
    void (*close)();
};

constexpr size_t WATCH_WIFI_SOCKETS_MAX = 64;
constexpr size_t WATCH_DESCRIPTORS = WATCH_WIFI_SOCKETS_MAX + 1;  // of one source, at most

extern const watch_source WATCH_CTRL;
extern const watch_source WATCH_BUS;
extern const watch_source WATCH_FILES;
extern const watch_source WATCH_PROCESSES;
extern const watch_source WATCH_LOG;

// Copies what waits on the Wi-Fi daemons' sockets into a queue of our own. These sockets hold ten
// events, so call this between any two things that may take time.
void watch_drain_wifi();

// Detaches from all Wi-Fi daemons. The next look attaches again.
void watch_leave_wifi();

// Whether anything has ever come from a Wi-Fi daemon, or from the bus.
bool watch_has_heard_wifi();
bool watch_has_heard_bus();

// How processes are found, for the first line of the recording: "the kernel tells" or "by looking".
const char *watch_process_way();

// Like watch_tell, with a format. A text longer than WATCH_ROOM is cut.
void watch_say(const char *source, const char *iface, const char *format, ...)
    __attribute__((format(printf, 3, 4)));

// --- What is known of the attempt. Main thread only. ---

void watch_attempt_asked();    // a press or a request was seen
void watch_attempt_started();  // the daemon has announced its start
void watch_attempt_ended();    // ... its end, or the daemon has ended

// True from the press on, until the attempt has ended or must have ended.
bool watch_attempt_runs();

}  // namespace kelm
