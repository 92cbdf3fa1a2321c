// SPDX-License-Identifier: ISC
// Which interface is on which band, as far as it is known.
#pragma once

#include "watch/options.h"
#include "watch/text.h"

namespace kelm {

// Takes the bands that the command line tells. They win over all else.
void watch_take_band_options(const watch_options &options);

// Notes the band of an interface, for as long as the program runs. It counts if neither the command
// line nor the makers' names tell the band.
void watch_set_band(const char *iface, const char *band);

// "2.4 GHz", "5 GHz", "6 GHz", or "" while it is not known.
const char *watch_band(const char *iface);

// The same for a name that is a part of a longer text.
const char *watch_band_of(text_span iface);

}  // namespace kelm
