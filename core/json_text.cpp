// SPDX-License-Identifier: ISC
// Parsing in pieces, and formatting. Both notice when memory runs out.
#include "core/json_text.h"

#include <cerrno>
#include <clocale>
#include <cstdint>
#include <cstring>

namespace kelm {

namespace {

struct tokener_freer {
    void operator()(json_tokener *tokener) const { ::json_tokener_free(tokener); }
};
using unique_tokener = std::unique_ptr<json_tokener, tokener_freer>;

// Sets the C locale for the calling thread, and restores the earlier one. The library sets the C
// locale in each call. If it is not set already, that costs more than all of the parsing.
class c_locale {
public:
    c_locale() : own_(::newlocale(LC_ALL_MASK, "C", nullptr)), before_(::uselocale(own_)) {}
    c_locale(const c_locale &) = delete;
    c_locale &operator=(const c_locale &) = delete;
    ~c_locale()
    {
        ::uselocale(before_);
        if (own_ != nullptr)
            ::freelocale(own_);
    }

private:
    locale_t own_;
    locale_t before_;
};

bool _is_digit(char byte)
{
    return byte >= '0' && byte <= '9';
}

bool _is_letter_or_digit(char byte)
{
    return _is_digit(byte) || (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z');
}

bool _may_end_number(char byte)
{
    return _is_digit(byte) || byte == '.' || byte == 'e' || byte == 'E' || byte == '+' ||
           byte == '-';
}

// A piece ends in two kinds of places:
// - behind each colon that may stand behind a key. The library's copy of the key may have failed,
//   and this is seen before the library uses the copy.
// - before the character that ends a number. The library clears errno there, and this way an
//   earlier failure is seen before.
// A place within a text may look like one of these. It makes a piece too many, and nothing else.
size_t _piece_length(const char *text, size_t length)
{
    for (size_t at = 1; at < length; ++at) {
        const char before = text[at - 1];
        switch (text[at]) {
        case ':':
            if (!_is_letter_or_digit(before))
                return at + 1;
            break;
        case ',':
        case ']':
        case '}':
        case '/':
        case ' ':
        case '\t':
        case '\n':
        case '\v':
        case '\f':
        case '\r':
        case '\0':
            if (_may_end_number(before))
                return at;
            break;
        default:
            break;
        }
    }
    return length;
}

constexpr char REPLACEMENT[] = "\xef\xbf\xbd";  // U+FFFD

// One row: lead bytes of characters of one length, and which second bytes may follow them. With any
// other second byte a character is overlong, half of a surrogate pair or beyond Unicode.
struct lead_row {
    size_t length;
    uint8_t first;
    uint8_t last;
    uint8_t second_first;
    uint8_t second_last;
};

constexpr lead_row LEADS[] = {
    {1, 0x01, 0x7f, 0, 0},       {2, 0xc2, 0xdf, 0x80, 0xbf}, {3, 0xe0, 0xe0, 0xa0, 0xbf},
    {3, 0xe1, 0xec, 0x80, 0xbf}, {3, 0xed, 0xed, 0x80, 0x9f}, {3, 0xee, 0xef, 0x80, 0xbf},
    {4, 0xf0, 0xf0, 0x90, 0xbf}, {4, 0xf1, 0xf3, 0x80, 0xbf}, {4, 0xf4, 0xf4, 0x80, 0x8f},
};

bool _is_tail(uint8_t byte)
{
    return (byte & 0xc0) == 0x80;
}

// Whether a whole character of the row's kind stands at bytes. left: how many bytes there are.
bool _is_whole(const lead_row &row, const uint8_t *bytes, size_t left)
{
    if (row.length > left)
        return false;
    if (row.length > 1 && (bytes[1] < row.second_first || bytes[1] > row.second_last))
        return false;
    for (size_t at = 2; at < row.length; ++at) {
        if (!_is_tail(bytes[at]))
            return false;
    }
    return true;
}

// The length of the character at text, or 0 where there is none. left: how many bytes there are.
size_t _character_length(const char *text, size_t left)
{
    const auto *bytes = reinterpret_cast<const uint8_t *>(text);
    for (const lead_row &row : LEADS) {
        if (bytes[0] >= row.first && bytes[0] <= row.last)
            return _is_whole(row, bytes, left) ? row.length : 0;
    }
    return 0;
}

}  // namespace

unique_json kelm_parse_json(const char *text, size_t length, bool *no_memory)
{
    const c_locale locale;
    const unique_tokener tokener(json_tokener_new());
    *no_memory = !tokener;
    while (tokener && length > 0) {
        const size_t piece = _piece_length(text, length);
        errno = 0;
        unique_json parsed(json_tokener_parse_ex(tokener.get(), text, static_cast<int>(piece)));
        *no_memory = errno == ENOMEM;
        if (*no_memory)
            break;
        if (json_tokener_get_error(tokener.get()) != json_tokener_continue)
            return parsed;
        text += piece;
        length -= piece;
    }
    return nullptr;
}

const char *kelm_json_text(json_object *object)
{
    errno = 0;
    const char *text = json_object_to_json_string(object);
    return errno == ENOMEM ? nullptr : text;
}

bool kelm_json_add(json_object *object, const char *key, json_object *value)
{
    if (value == nullptr)
        return false;
    if (json_object_object_add(object, key, value) == 0)
        return true;
    json_object_put(value);
    return false;
}

bool kelm_is_utf8(const char *bytes, size_t length)
{
    size_t at = 0;
    while (at < length) {
        const size_t character = _character_length(bytes + at, length - at);
        if (character == 0)
            return false;
        at += character;
    }
    return true;
}

void kelm_show_as_utf8(const char *bytes, size_t length, char *out, size_t size)
{
    size_t made = 0;
    for (size_t at = 0; at < length;) {
        const size_t character = _character_length(bytes + at, length - at);
        const char *from = character > 0 ? bytes + at : REPLACEMENT;
        const size_t count = character > 0 ? character : KELM_SHOWN_BYTE_MAX;
        if (made + count >= size)
            break;
        memcpy(out + made, from, count);
        made += count;
        at += character > 0 ? character : 1;
    }
    out[made] = '\0';
}

void kelm_spell_bytes(const char *bytes, size_t length, char *out, size_t size)
{
    constexpr char digits[] = "0123456789abcdef";
    size_t made = 0;
    for (size_t at = 0; at < length && made + 2 < size; ++at) {
        const auto byte = static_cast<uint8_t>(bytes[at]);
        out[made++] = digits[byte >> 4];
        out[made++] = digits[byte & 0x0f];
    }
    out[made] = '\0';
}

}  // namespace kelm
