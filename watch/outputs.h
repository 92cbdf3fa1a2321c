// SPDX-License-Identifier: ISC
// Where the things that were told go: the screen and the recording.
#pragma once

#include "watch/options.h"

namespace kelm {

// Before the first watch_tell: opens the recording, if one is asked for, and looks at the terminal.
// False with a sentence on standard error when the recording cannot be made.
bool watch_open_outputs(const watch_options &options);

// Takes the line of the wait off the terminal and closes the recording.
void watch_close_outputs();

}  // namespace kelm
