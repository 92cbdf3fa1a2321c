// SPDX-License-Identifier: ISC
// What a person sees: whole lines. On a terminal there is also one line that changes while the
// program waits.
#pragma once

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_STAMP_SIZE = 24;

// A terminal, a pipe or a file. A slow reader misses lines and is told how many. A reader that is
// gone is no trouble. A terminal never gets a control character from a text that others wrote.
class watch_screen {
public:
    // Looks at TERM and NO_COLOR. quiet: nothing is written at all.
    void open(int file, bool quiet, bool no_colour);

    // Writes a line that stays. stamp: nine characters. who: is written in its colour.
    void line(const char *stamp, const char *who, const char *band, const char *text);

    // Writes the line that changes: the next line takes its place. Does nothing if this is no
    // terminal.
    void rewrite(const char *stamp, const char *waiting);

    // Removes the line that changes.
    void clear();

private:
    void _write(text_span text, bool is_line);

    int file_ = -1;
    bool rewrites_ = false;
    bool colours_ = false;
    bool is_rewritten_ = false;  // the line that changes is on the screen
    bool is_slow_ = false;
    unsigned missed_ = 0;
};

// Writes the text with "?" in place of control characters, and U+FFFD in place of what is no UTF-8.
void watch_add_shown(text_span text, text_out *out);

}  // namespace kelm
