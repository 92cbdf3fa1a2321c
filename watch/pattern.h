// SPDX-License-Identifier: ISC
// The matcher of the pattern language that watch/kept.inc tells.
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
    as  // by the rows of another source
};

// What one placeholder covers.
struct watch_covered {
    watch_kind kind;
    text_span text;
    text_span source;  // of watch_kind::as, a part of the pattern
};

struct watch_match {
    text_span all;  // from the pattern's first character to its last
    watch_covered covered[WATCH_COVERED_MAX];
    size_t count;
};

// Whether the pattern fits the text; where it does first. The time is bounded by the length of the
// text times that of the pattern, and for a pattern without "^" by the square of it.
bool watch_fits(const char *pattern, text_span text, watch_match *found);

// The iface that was covered, or an empty part.
text_span watch_iface_of(const watch_match &found);

// "[12 bytes]": what stands for a text that was left out.
bool watch_is_mark(text_span text);

}  // namespace kelm
