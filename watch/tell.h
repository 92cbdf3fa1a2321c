// SPDX-License-Identifier: ISC
// All that was seen goes through here to the screen and the recording. Secrets are removed here.
#pragma once

#include <cstddef>

namespace kelm {

// Tells one thing that was seen. source: where it was seen ("hostapd", "bus", "console" ...;
// docs/recording.md lists them). iface: "" for none. text: any bytes, cut at WATCH_TEXT_SIZE
// (watch/text.h). Main thread only. Never waits.
void watch_tell(const char *source, const char *iface, const char *text, size_t length);

// Sets what a person waits for now, such as "a press of the WPS button". On a terminal it is the
// line that changes. "" for nothing.
void watch_waiting(const char *what);

// Writes this line again with the seconds of now. Called a few times a second at most.
void watch_tick();

// True once the recording is full or cannot be written. The screen still shows what is seen.
bool watch_recording_ended();

// Whether the recording ended because a line could not be written, not because it was full.
bool watch_recording_failed();

}  // namespace kelm
