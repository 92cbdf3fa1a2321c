// SPDX-License-Identifier: ISC
// The one way from what was seen to the screen and the recording. No secret goes further than this.
#pragma once

#include <cstddef>

namespace kelm {

// Bytes of one text that are used; what is longer is cut.
constexpr size_t WATCH_TEXT_SIZE = 4096;

// One thing that was seen: who told it ("hostapd", "bus", "console" ...; docs/recording.md lists
// them), on which interface ("" for none), in which words. text: any bytes. Called by the main
// thread only; never waits for anybody.
void watch_tell(const char *source, const char *iface, const char *text, size_t length);

// What a person waits for now ("a press of the WPS button"), the line that is rewritten on a
// terminal; "" for nothing.
void watch_waiting(const char *what);

// Rewrites the line of the wait, whose seconds have gone on. Called a few times a second at most.
void watch_tick();

// The band of an interface that the command line and the makers' names do not tell. It is kept for
// as long as the program runs.
void watch_set_band(const char *iface, const char *band);

// "2.4 GHz", "5 GHz", "6 GHz", or "" while nobody has told it.
const char *watch_band(const char *iface);

// True once the recording is full or cannot be written. What is seen is still told on the screen.
bool watch_recording_ended();

// Whether it ended because a line could not be written; its limit is none of that.
bool watch_recording_failed();

}  // namespace kelm
