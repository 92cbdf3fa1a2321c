// SPDX-License-Identifier: ISC
// Way in: hexadecimal text (addresses, UUIDs, escapes), PINs, SSID postfixes, words for the shell.
//
// Properties: what was converted, written as digits again, are the digits that were read; a failure
// leaves zeros; nothing beside the field changes; a shell word is one word and the same text.
#include <algorithm>
#include <cctype>
#include <cstring>

#include "core/text.h"
#include "platform/rtk/escape.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr size_t LONGEST = 40;  // bytes of one conversion

std::string as_digits(const uint8_t *bytes, size_t count)
{
    static const char digits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += digits[bytes[i] >> 4];
        text += digits[bytes[i] & 15];
    }
    return text;
}

// The digits up to the first character that is neither digit nor separator.
std::string digits_of(const std::string &text)
{
    std::string digits;
    for (const char c : text) {
        if (isxdigit(static_cast<unsigned char>(c)) != 0)
            digits += static_cast<char>(tolower(c));
        else if (c != ' ' && c != ':' && c != '-')
            break;
    }
    return digits;
}

void check_conversion(const std::string &text, size_t count,
                      int (*convert)(const char *, uint8_t *, size_t))
{
    const std::string digits = digits_of(text);
    uint8_t out[LONGEST + 1] = {};
    out[count] = 0x5a;
    const int result = convert(text.c_str(), out, count);
    PROPERTY(result == (digits.size() >= 2 * count ? 0 : -1));
    PROPERTY(out[count] == 0x5a);
    PROPERTY(as_digits(out, count) ==
             (result == 0 ? digits.substr(0, 2 * count) : std::string(2 * count, '0')));
}

int convert_mac(const char *text, uint8_t *out, size_t)
{
    return kelm::_convert_macstr_to_bytes(text, out);
}

int convert_uuid(const char *text, uint8_t *out, size_t)
{
    return kelm::_convert_uuidstr_to_bytes(text, out);
}

uint8_t escaped_byte(const std::string &group)
{
    const bool digits = isxdigit(static_cast<unsigned char>(group[2])) != 0 &&
                        isxdigit(static_cast<unsigned char>(group[3])) != 0;
    return digits ? static_cast<uint8_t>(std::stoul(group.substr(2), nullptr, 16)) : 0xff;
}

// Without a result when something of the part that fits is no group.
bool unescape(const std::string &text, size_t room, std::string *bytes)
{
    if (text.empty() || room == 0)
        return false;
    for (size_t at = 0; at < text.size() && bytes->size() < room; at += 4) {
        const std::string group = text.substr(at, 4);
        if (group.size() < 4 || group[0] != '\\' || (group[1] != 'x' && group[1] != 'X'))
            return false;
        *bytes += static_cast<char>(escaped_byte(group));
    }
    return true;
}

void check_escapes(const std::string &text, size_t room)
{
    char out[LONGEST + 2];
    memset(out, 0x5a, sizeof out);
    std::string expected;
    const bool fine = unescape(text, room, &expected);
    PROPERTY(kelm::rtk_hexstr_unescape(out, text.data(), text.size(), room) == (fine ? 0 : -1));
    PROPERTY(out[room + 1] == 0x5a);
    if (!fine)
        expected.clear();
    PROPERTY(memcmp(out, expected.c_str(), expected.size() + 1) == 0);
}

void check_postfix(const std::string &name, const std::string &postfix)
{
    char ssid[kelm::WPS_SSID_SIZE + 1] = {};
    kelm::copy_text(ssid, kelm::WPS_SSID_SIZE, name.c_str(), name.size());
    ssid[kelm::WPS_SSID_SIZE] = 0x5a;
    const std::string cut = std::string(name.c_str()).substr(0, 32);
    const std::string tail = std::string(postfix.c_str()).substr(0, 32);
    kelm::add_ssid_postfix(ssid, postfix.c_str());
    PROPERTY(ssid[kelm::WPS_SSID_SIZE] == 0x5a);
    PROPERTY(ssid == cut.substr(0, std::min(cut.size(), 32 - tail.size())) + tail);
}

void check_shell_word(const std::string &text, size_t room)
{
    const std::string plain = text.c_str();
    std::string out(room + 1, 'x');
    const int result = kelm::shell_word(&out[0], room, plain.c_str());
    PROPERTY(out[room] == 'x');
    const std::string word = out.c_str();
    PROPERTY(word.size() < room);
    PROPERTY(result == 0 || word.empty());
    PROPERTY(result == 0 || 4 * plain.size() + 3 > room);
    std::vector<std::string> words;
    if (result != 0 || plain.empty())
        return;
    PROPERTY(kelm_fuzz::shell_words("before " + word + " behind", &words));
    PROPERTY(words.size() == 3 && words[1] == plain);
}

int pin_sum(const std::string &digits)
{
    int sum = 0;
    for (size_t i = 0; i < digits.size(); ++i)
        sum += (i % 2 == 0 ? 3 : 1) * (digits[i] - '0');
    return sum % 10;
}

void check_pin(const std::string &text)
{
    const std::string pin = text.c_str();
    const int result = kelm::kelm_check_pin(pin.c_str());
    const bool digits =
        std::all_of(pin.begin(), pin.end(), [](char c) { return c >= '0' && c <= '9'; });
    if (pin.size() != 4 && pin.size() != 8)
        PROPERTY(result == -1);
    else if (pin.size() == 4)
        PROPERTY(result == 0);
    else if (digits)
        PROPERTY(result == (pin_sum(pin) == 0 ? 0 : -1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    const size_t count = input.choice(LONGEST + 1);
    const std::string first = input.line();
    const std::string second = input.rest();
    // As C text: what stands behind a zero byte is not there.
    const std::string text = first.c_str();
    check_conversion(text, count, kelm::_convert_hexstr_to_bytes);
    check_conversion(text, kelm::WPS_BSSID_LEN, convert_mac);
    check_conversion(text, kelm::WPS_UUID_LEN, convert_uuid);
    check_escapes(first, count);
    check_postfix(first, second);
    check_shell_word(first, 1 + second.size());
    check_shell_word(first, 4 * first.size() + 3);
    check_pin(first);
    (void)kelm_fuzz::take_log();
    return 0;
}
