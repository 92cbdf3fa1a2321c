// SPDX-License-Identifier: ISC
// Which interface is on which band, as far as anybody has told.
#pragma once

#include "watch/options.h"
#include "watch/text.h"

namespace kelm {

// What the command line tells goes before all else.
void watch_take_band_options(const watch_options &options);

// The band of an interface that the command line and the makers' names do not tell. It is kept for
// as long as the program runs.
void watch_set_band(const char *iface, const char *band);

// "2.4 GHz", "5 GHz", "6 GHz", or "" while nobody has told it.
const char *watch_band(const char *iface);

// The same for a name that is no text of its own.
const char *watch_band_of(text_span iface);

}  // namespace kelm
