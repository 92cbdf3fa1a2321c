// SPDX-License-Identifier: ISC
// What a person sees: whole lines, and on a terminal one line that is rewritten while it waits.
#pragma once

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_STAMP_SIZE = 24;

// A terminal, a pipe or a file. A reader that is slow misses lines, and is told how many; one that
// is gone costs nothing. No byte of a stranger's reaches a terminal but as a character.
class watch_screen {
public:
    // Looks at TERM and NO_COLOR. quiet: nothing is written at all.
    void open(int file, bool quiet, bool no_colour);

    // A line that stays. stamp: nine characters; who is painted in his colour.
    void line(const char *stamp, const char *who, const char *band, const char *text);

    // The line that the next one takes the place of; nothing where that cannot be.
    void rewrite(const char *stamp, const char *waiting);

    // Takes the rewritten line away.
    void clear();

private:
    void _write(text_span text, bool is_line);

    int file_ = -1;
    bool rewrites_ = false;
    bool colours_ = false;
    bool is_rewritten_ = false;  // such a line stands there
    bool is_slow_ = false;
    unsigned missed_ = 0;
};

// The text with "?" for what a terminal would obey, and U+FFFD for what is no UTF-8.
void watch_add_shown(text_span text, text_out *out);

}  // namespace kelm
