// SPDX-License-Identifier: ISC
// Matches the patterns that watch/kept.inc describes.
#pragma once

#include <cstddef>

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_COVERED_MAX = 12;

enum class watch_kind {
    iface,
    word,
    number,
    rest,
    network,
    device,
    hidden,
    hidden_rest,
    lengths,
    event_name,
    as  // the rows of another source decide
};

// What one placeholder covers.
struct watch_covered {
    watch_kind kind;
    text_span text;
    text_span source;  // for watch_kind::as: that source's name, a part of the pattern
};

struct watch_match {
    text_span all;  // what the whole pattern covers
    watch_covered covered[WATCH_COVERED_MAX];
    size_t count;
};

// Whether the pattern fits the text; found tells the first place where it does. The time is at most
// the length of the text times the length of the pattern; without "^" at most the square of that.
bool watch_fits(const char *pattern, text_span text, watch_match *found);

// The interface that a placeholder covers, or an empty text.
text_span watch_iface_of(const watch_match &found);

// Whether the text is such as "[12 bytes]", which stands for a text that was left out.
bool watch_is_mark(text_span text);

}  // namespace kelm
