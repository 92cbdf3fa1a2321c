// SPDX-License-Identifier: ISC
// Lines for a person, who may read them over a slow serial line, or not at all.
#include "watch/screen.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iterator>

#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "watch/words.h"

namespace kelm {

namespace {

constexpr size_t LINE_SIZE = 1024;
constexpr int SLOW_MS = 50;  // one wait for a terminal that is just busy
constexpr size_t WHO_WIDTH = 9;
constexpr size_t BAND_WIDTH = 8;
constexpr size_t COLUMNS_DEFAULT = 80;
constexpr const char *TAKE_AWAY = "\r\033[K";

// Control characters, and those that make a terminal show the characters in another order.
struct code_range {
    uint32_t first;
    uint32_t last;
};

constexpr code_range NOT_SHOWN[] = {
    {0x00, 0x1f},     {0x7f, 0x9f},     {0x200b, 0x200f}, {0x2028, 0x202e},
    {0x2060, 0x206f}, {0xfeff, 0xfeff}, {0xfff9, 0xfffb},
};

uint32_t _code_of(text_span character)
{
    constexpr uint8_t LEAD_BITS[] = {0x7f, 0x1f, 0x0f, 0x07};
    auto code = static_cast<uint32_t>(static_cast<uint8_t>(character.at[0]) &
                                      LEAD_BITS[character.length - 1]);
    for (size_t i = 1; i < character.length; ++i)
        code = code << 6 | (static_cast<uint8_t>(character.at[i]) & 0x3fU);
    return code;
}

bool _is_shown(text_span character)
{
    const uint32_t code = _code_of(character);
    return std::none_of(
        std::begin(NOT_SHOWN), std::end(NOT_SHOWN),
        [code](const code_range &range) { return code >= range.first && code <= range.last; });
}

size_t _columns(int file)
{
    winsize size = {};
    if (ioctl(file, TIOCGWINSZ, &size) != 0 || size.ws_col == 0)
        return COLUMNS_DEFAULT;
    return size.ws_col;
}

// Adds the text and blanks up to the column's width. A longer text is not cut.
void _add_padded(const char *text, size_t width, text_out *out)
{
    const size_t before = out->span().length;
    watch_add_shown(span_of(text), out);
    for (size_t made = out->span().length - before; made < width; ++made)
        out->add(' ');
}

bool _has_room(int file, int wait_ms)
{
    pollfd there = {file, POLLOUT, 0};
    const int ready = poll(&there, 1, wait_ms);
    return ready > 0;
}

}  // namespace

void watch_add_shown(text_span text, text_out *out)
{
    while (text.length > 0) {
        const size_t length = utf8_length(text);
        const size_t taken = length > 0 ? length : 1;
        // A zero byte is valid UTF-8 too, but text functions end at it.
        if (length == 0 && text.at[0] != '\0')
            out->add("\xef\xbf\xbd");
        else if (length > 0 && _is_shown({text.at, length}))
            out->add(text_span{text.at, length});
        else
            out->add('?');
        text.at += taken;
        text.length -= taken;
    }
}

void watch_screen::open(int file, bool quiet, bool no_colour)
{
    file_ = quiet ? -1 : file;
    const char *term = getenv("TERM");
    const char *no_color = getenv("NO_COLOR");
    rewrites_ = isatty(file) == 1 && (term == nullptr || strcmp(term, "dumb") != 0);
    colours_ = rewrites_ && !no_colour && (no_color == nullptr || no_color[0] == '\0');
}

void watch_screen::line(const char *stamp, const char *who, const char *band, const char *text)
{
    char buffer[LINE_SIZE];
    text_out made(buffer, sizeof buffer - 1);
    if (rewrites_)
        made.add(TAKE_AWAY);
    made.add(stamp);
    made.add("  ");
    const char *colour = colours_ ? watch_colour(who) : nullptr;
    if (colour != nullptr) {
        made.add("\033[");
        made.add(colour);
        made.add('m');
    }
    _add_padded(who, WHO_WIDTH, &made);
    if (colour != nullptr)
        made.add("\033[0m");
    made.add(' ');
    _add_padded(band, BAND_WIDTH, &made);
    made.add(' ');
    watch_add_shown(span_of(text), &made);
    // A line that was cut ends with a line feed too.
    text_out whole(buffer + made.span().length, 2);
    whole.add('\n');
    _write({buffer, made.span().length + 1}, true);
    is_rewritten_ = false;
}

void watch_screen::rewrite(const char *stamp, const char *waiting)
{
    if (!rewrites_ || file_ < 0)
        return;
    char shown[LINE_SIZE];
    text_out text(shown);
    text.add(stamp);
    text.add("  ... waiting for ");
    text.add(waiting);
    // The line must not wrap: what has wrapped cannot be removed.
    const size_t columns = _columns(file_);
    const size_t length = text.span().length < columns ? text.span().length : columns - 1;
    char buffer[LINE_SIZE + 8];
    text_out made(buffer);
    made.add('\r');
    made.add(text_span{shown, length});
    made.add("\033[K");
    _write(made.span(), false);
    is_rewritten_ = true;
}

void watch_screen::clear()
{
    if (is_rewritten_)
        _write(span_of(TAKE_AWAY), false);
    is_rewritten_ = false;
}

void watch_screen::_write(text_span text, bool is_line)
{
    if (file_ < 0)
        return;
    if (!_has_room(file_, is_line && !is_slow_ ? SLOW_MS : 0)) {
        missed_ += is_line ? 1 : 0;
        is_slow_ = true;
        return;
    }
    is_slow_ = false;
    if (missed_ > 0) {
        char told[96];
        const int length =
            snprintf(told, sizeof told, "%s(%u lines are missing here: nobody read them in time)\n",
                     rewrites_ ? TAKE_AWAY : "", missed_);
        missed_ = 0;
        (void)(write(file_, told, static_cast<size_t>(length)) < 0);  // the next line tells it too
    }
    // If the reader is gone, the recording still goes on.
    if (write(file_, text.at, text.length) < 0 && errno != EINTR && errno != EAGAIN)
        file_ = -1;
}

}  // namespace kelm
