// SPDX-License-Identifier: ISC
// The two outputs: the screen and the recording.
#pragma once

#include "watch/options.h"

namespace kelm {

// Opens the recording, if one is asked for, and looks at the terminal. Call it before the first
// watch_tell. False, with a sentence on standard error, when the recording cannot be made.
bool watch_open_outputs(const watch_options &options);

// Removes the line that changes from the terminal, and closes the recording.
void watch_close_outputs();

}  // namespace kelm
