// SPDX-License-Identifier: ISC
// Addresses and UUIDs are known by their shape, names by their place in a line (watch/kept.inc).
#include "watch/aliases.h"

namespace kelm {

namespace {

constexpr const char *ALIASES[WATCH_ALIAS_KINDS] = {"device-", "network-", "uuid-", "name-"};

// "x" is a hexadecimal digit.
constexpr const char *ADDRESS_SHAPES[] = {"xx:xx:xx:xx:xx:xx", "xx-xx-xx-xx-xx-xx"};
constexpr const char *UUID_SHAPES[] = {"xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx"};

bool _is_hex(char c)
{
    return is_digit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

bool _begins_with_shape(text_span text, const char *shape)
{
    for (size_t i = 0; shape[i] != '\0'; ++i) {
        if (i >= text.length || (shape[i] == 'x' ? !_is_hex(text.at[i]) : text.at[i] != shape[i]))
            return false;
    }
    // If more bytes follow, it is something else. One colon may follow: it may end a word.
    const size_t length = strlen(shape);
    const text_span behind = {text.at + length, text.length - length};
    if (behind.length > 1 && behind.at[0] == ':')
        return !_is_hex(behind.at[1]);
    return behind.length == 0 || !_is_hex(behind.at[0]);
}

template <size_t count>
size_t _shape_length(text_span text, const char *const (&shapes)[count])
{
    for (const char *shape : shapes) {
        if (_begins_with_shape(text, shape))
            return strlen(shape);
    }
    return 0;
}

bool _is_nobody(text_span text)
{
    for (size_t i = 0; i < text.length; ++i) {
        if (_is_hex(text.at[i]) && text.at[i] != '0')
            return false;
    }
    return true;
}

// The hash FNV-1a. Of addresses and UUIDs only the digits count, in upper or lower case.
uint64_t _mark_of(alias_kind kind, text_span text)
{
    const bool is_hex = kind == alias_kind::device || kind == alias_kind::uuid;
    uint64_t mark = 14695981039346656037U;
    for (size_t i = 0; i < text.length; ++i) {
        char c = text.at[i];
        if (is_hex && !_is_hex(c))
            continue;
        if (is_hex && c >= 'A' && c <= 'F')
            c = static_cast<char>(c - 'A' + 'a');
        mark = (mark ^ static_cast<uint8_t>(c)) * 1099511628211U;
    }
    return mark;
}

}  // namespace

void watch_aliases::add_alias(alias_kind kind, text_span text, text_out *out)
{
    const auto row = static_cast<size_t>(kind);
    const uint64_t mark = _mark_of(kind, text);
    size_t number = 0;
    while (number < counts_[row] && seen_[row][number] != mark)
        ++number;
    out->add(ALIASES[row]);
    if (number == WATCH_ALIASES_MAX) {
        out->add("more");
        return;
    }
    if (number == counts_[row])
        seen_[row][counts_[row]++] = mark;
    out->add_number(number + 1);
}

void watch_aliases::rewrite(text_span text, text_out *out)
{
    bool is_within = false;  // of a longer run of digits
    while (text.length > 0) {
        const size_t address = is_within ? 0 : _shape_length(text, ADDRESS_SHAPES);
        const size_t uuid = is_within ? 0 : _shape_length(text, UUID_SHAPES);
        const size_t length = address > 0 ? address : uuid > 0 ? uuid : 1;
        const text_span taken = {text.at, length};
        if (length == 1 || _is_nobody(taken))
            out->add(taken);
        else
            add_alias(address > 0 ? alias_kind::device : alias_kind::uuid, taken, out);
        is_within = _is_hex(taken.at[length - 1]) || (is_within && taken.at[0] == ':');
        text.at += length;
        text.length -= length;
    }
}

}  // namespace kelm
