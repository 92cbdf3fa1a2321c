// SPDX-License-Identifier: ISC
// The words in which an attempt is told (watch/words.inc).
#pragma once

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_TOLD_SIZE = 512;
constexpr size_t WATCH_IFACE_SIZE = 32;

struct watch_told {
    const char *who;
    char iface[WATCH_IFACE_SIZE];  // the interface that the line names, or ""
    char text[WATCH_TOLD_SIZE];    // a longer text is cut
};

// Whether a line is worth telling a person, and in which words. text holds no secrets any more.
bool watch_describe(const char *source, text_span text, watch_told *told);

// The band of an interface by the names that makers use; "" if they tell none.
const char *watch_makers_band(text_span iface);

// The number that switches a terminal to the colour of who, or null.
const char *watch_colour(const char *who);

}  // namespace kelm
