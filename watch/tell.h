// SPDX-License-Identifier: ISC
// The one way from what was seen to the screen and the recording. No secret goes further than this.
#pragma once

#include <cstddef>

namespace kelm {

// One thing that was seen: who told it ("hostapd", "bus", "console" ...; docs/recording.md lists
// them), on which interface ("" for none), in which words. text: any bytes; cut at WATCH_TEXT_SIZE
// (watch/text.h). Called by the main thread only; never waits for anybody.
void watch_tell(const char *source, const char *iface, const char *text, size_t length);

// What a person waits for now ("a press of the WPS button"), the line that is rewritten on a
// terminal; "" for nothing.
void watch_waiting(const char *what);

// Rewrites the line of the wait, whose seconds have gone on. Called a few times a second at most.
void watch_tick();

// True once the recording is full or cannot be written. What is seen is still told on the screen.
bool watch_recording_ended();

// Whether it ended because a line could not be written; its limit is none of that.
bool watch_recording_failed();

}  // namespace kelm
