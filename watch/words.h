// SPDX-License-Identifier: ISC
// The words in which an attempt is told (watch/words.inc).
#pragma once

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_TOLD_SIZE = 512;
constexpr size_t WATCH_IFACE_SIZE = 32;

struct watch_told {
    const char *who;
    char iface[WATCH_IFACE_SIZE];  // that the line names, or ""
    char text[WATCH_TOLD_SIZE];    // cut where it is longer
};

// Whether a line is worth telling, and in which words. The secrets are out of the text already.
bool watch_describe(const char *source, text_span text, watch_told *told);

// The band by the makers' names, "" where they tell none.
const char *watch_makers_band(text_span iface);

// The number that turns the colour of someone's lines on, or null.
const char *watch_colour(const char *who);

}  // namespace kelm
