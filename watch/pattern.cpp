// SPDX-License-Identifier: ISC
// A placeholder ends where the plain text behind it is found first, and the matcher never goes back
// to try a later place. So no text can make it try again and again, and each text has one reading.
#include "watch/pattern.h"

namespace kelm {

namespace {

constexpr size_t MARK_DIGITS_MAX = 6;  // fewer than a PIN has

struct kind_row {
    const char *name;
    watch_kind kind;
    bool may_be_empty;
};

constexpr kind_row KINDS[] = {
    {"{iface}", watch_kind::iface, false},    {"{word}", watch_kind::word, false},
    {"{number}", watch_kind::number, false},  {"{rest}", watch_kind::rest, true},
    {"{network}", watch_kind::network, true}, {"{device}", watch_kind::device, true},
    {"{hidden}", watch_kind::hidden, false},  {"{hidden-rest}", watch_kind::hidden_rest, true},
    {"{lengths}", watch_kind::lengths, true}, {"{event-name}", watch_kind::event_name, false},
    {"{as-", watch_kind::as, true},  // and a source's name
};

// The placeholder that the pattern begins with, or null. end: becomes the place behind it.
const kind_row *_placeholder(const char *pattern, const char **end)
{
    if (pattern[0] != '{')
        return nullptr;
    for (const kind_row &row : KINDS) {
        const size_t length = strlen(row.name);
        if (strncmp(pattern, row.name, length) != 0)
            continue;
        *end = row.kind == watch_kind::as ? strchr(pattern, '}') + 1 : pattern + length;
        return &row;
    }
    return nullptr;
}

bool _is_end_mark(const char *pattern)
{
    return pattern[0] == '$' && pattern[1] == '\0';
}

// The plain text that a part of a pattern begins with.
text_span _plain_text(const char *pattern)
{
    const char *end = pattern;
    const char *behind = nullptr;
    while (*end != '\0' && !_is_end_mark(end) && _placeholder(end, &behind) == nullptr)
        ++end;
    return {pattern, static_cast<size_t>(end - pattern)};
}

bool _is_event_character(char c)
{
    return (c >= 'A' && c <= 'Z') || is_digit(c) || c == '_' || c == '-';
}

bool _is_name_character(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || is_digit(c) || c == '_' || c == '?';
}

// How many characters of a kind the text begins with.
size_t _run(watch_kind kind, text_span text)
{
    size_t length = 0;
    for (; length < text.length; ++length) {
        const char c = text.at[length];
        const bool goes_on = kind == watch_kind::number       ? is_digit(c)
                             : kind == watch_kind::event_name ? _is_event_character(c)
                                                              : !is_blank(c);
        if (!goes_on)
            break;
    }
    return length;
}

// Whether a text is "KEY=[5] KEY=[9]".
bool _is_lengths(text_span text)
{
    size_t at = 0;
    const auto take = [&](bool (*takes)(char)) {
        const size_t begin = at;
        while (at < text.length && takes(text.at[at]))
            ++at;
        return at - begin;
    };
    const auto take_one = [&](char c) {
        const bool is_there = at < text.length && text.at[at] == c;
        at += is_there ? 1 : 0;
        return is_there;
    };
    while (at < text.length) {
        if (at > 0 && !take_one(' '))
            return false;
        if (take(_is_name_character) == 0 || !take_one('=') || !take_one('['))
            return false;
        const size_t digits = take(is_digit);
        if (digits == 0 || digits > MARK_DIGITS_MAX || !take_one(']'))
            return false;
    }
    return true;
}

// The mark ("[12 bytes]") that a text begins with, or an empty text.
text_span _mark_at(text_span text)
{
    size_t at = 1;
    if (text.length == 0 || text.at[0] != '[')
        return {text.at, 0};
    while (at < text.length && is_digit(text.at[at]))
        ++at;
    constexpr char END[] = " bytes]";
    constexpr size_t END_LENGTH = sizeof END - 1;
    if (at == 1 || at > MARK_DIGITS_MAX + 1 || text.length - at < END_LENGTH ||
        memcmp(text.at + at, END, END_LENGTH) != 0)
        return {text.at, 0};
    return {text.at, at + END_LENGTH};
}

bool _covers(const kind_row &row, text_span text)
{
    if (text.length == 0)
        return row.may_be_empty;
    switch (row.kind) {
    case watch_kind::rest:
    case watch_kind::network:
    case watch_kind::device:
    case watch_kind::hidden_rest:
    case watch_kind::as:
        return true;
    case watch_kind::lengths:
        return _is_lengths(text);
    case watch_kind::event_name:
        return text.at[0] >= 'A' && text.at[0] <= 'Z' &&
               memchr(text.at, '-', text.length) != nullptr && _run(row.kind, text) == text.length;
    case watch_kind::hidden:
        return watch_is_mark(text) || _run(row.kind, text) == text.length;
    case watch_kind::iface:
    case watch_kind::word:
    case watch_kind::number:
        break;
    }
    return _run(row.kind, text) == text.length;
}

bool _begins_with(text_span text, text_span with)
{
    return text.length >= with.length && memcmp(text.at, with.at, with.length) == 0;
}

// How much of the text a placeholder covers at the end of the pattern.
size_t _length_of_last(const kind_row &row, text_span text)
{
    if (row.kind == watch_kind::hidden) {
        const text_span mark = _mark_at(text);
        if (mark.length > 0)
            return mark.length;
    }
    if (row.may_be_empty)
        return text.length;
    return _run(row.kind, text);
}

constexpr size_t NOWHERE = static_cast<size_t>(-1);

// How much of the text a placeholder covers when this plain text follows it in the pattern.
size_t _length_before(const kind_row &row, text_span text, text_span plain, bool is_at_end)
{
    if (is_at_end) {
        const size_t length = text.length - plain.length;
        return text.length >= plain.length && memcmp(text.at + length, plain.at, plain.length) == 0
                   ? length
                   : NOWHERE;
    }
    if (row.kind == watch_kind::hidden) {
        const size_t mark = _mark_at(text).length;
        if (mark > 0 && _begins_with({text.at + mark, text.length - mark}, plain))
            return mark;
    }
    const size_t from = row.may_be_empty ? 0 : 1;
    if (text.length < from)
        return NOWHERE;
    const void *there = memmem(text.at + from, text.length - from, plain.at, plain.length);
    return there == nullptr ? NOWHERE
                            : static_cast<size_t>(static_cast<const char *>(there) - text.at);
}

// Takes what a placeholder covers from the start of the text. behind: the rest of the pattern.
bool _take_covered(const kind_row &row, text_span source, const char *behind, text_span *text,
                   watch_match *found)
{
    const text_span plain = _plain_text(behind);
    const bool is_at_end = plain.length > 0 && _is_end_mark(plain.at + plain.length);
    const size_t length = row.kind == watch_kind::lengths ? text->length
                          : plain.length == 0             ? _length_of_last(row, *text)
                                              : _length_before(row, *text, plain, is_at_end);
    if (length == NOWHERE || found->count == WATCH_COVERED_MAX)
        return false;
    const text_span covered = {text->at, length};
    if (!_covers(row, covered))
        return false;
    found->covered[found->count++] = {row.kind, covered, source};
    text->at += length;
    text->length -= length;
    return true;
}

// Whether the pattern fits the beginning of the text.
bool _fits_here(const char *pattern, text_span text, watch_match *found)
{
    found->all.at = text.at;
    found->count = 0;
    while (*pattern != '\0') {
        if (_is_end_mark(pattern))
            break;
        const char *behind = nullptr;
        const kind_row *row = _placeholder(pattern, &behind);
        if (row != nullptr) {
            const char *name = pattern + strlen(row->name);
            const text_span source = {
                name, row->kind == watch_kind::as ? static_cast<size_t>(behind - 1 - name) : 0};
            if (!_take_covered(*row, source, behind, &text, found))
                return false;
            pattern = behind;
            continue;
        }
        if (text.length == 0 || text.at[0] != *pattern)
            return false;
        ++text.at;
        --text.length;
        ++pattern;
    }
    found->all.length = static_cast<size_t>(text.at - found->all.at);
    return *pattern == '\0' || text.length == 0;
}

}  // namespace

bool watch_fits(const char *pattern, text_span text, watch_match *found)
{
    if (pattern[0] == '^') {
        text_span line = text;
        while (line.length > 0 && (line.at[0] == ' ' || line.at[0] == '\t')) {
            ++line.at;
            --line.length;
        }
        if (!_fits_here(pattern + 1, line, found))
            return false;
        found->all.length += static_cast<size_t>(found->all.at - text.at);
        found->all.at = text.at;
        return true;
    }
    for (;;) {
        if (_fits_here(pattern, text, found))
            return true;
        if (text.length == 0)
            return false;
        ++text.at;
        --text.length;
    }
}

text_span watch_iface_of(const watch_match &found)
{
    for (size_t i = 0; i < found.count; ++i) {
        if (found.covered[i].kind == watch_kind::iface)
            return found.covered[i].text;
    }
    return {"", 0};
}

bool watch_is_mark(text_span text)
{
    return text.length > 0 && _mark_at(text).length == text.length;
}

}  // namespace kelm
