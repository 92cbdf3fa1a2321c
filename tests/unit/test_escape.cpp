// SPDX-License-Identifier: ISC
// Hexadecimal digits and escapes: what decodes, what is refused, and where the bounds are.
#include "platform/rtk/escape.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

using namespace kelm;

namespace {

constexpr size_t ROOM = 16;
constexpr char UNTOUCHED = '#';

// An output buffer whose end can be checked.
struct out_buffer {
    out_buffer() { memset(bytes, UNTOUCHED, sizeof bytes); }
    std::string text() const { return std::string(bytes, strnlen(bytes, sizeof bytes)); }
    char bytes[ROOM + 1];
};

struct digit_case {
    char digit;
    int value;
};

const digit_case digits[] = {
    {'0', 0},  {'9', 9},  {'a', 10}, {'f', 15}, {'A', 10}, {'F', 15}, {'g', -1},
    {'G', -1}, {'/', -1}, {':', -1}, {'@', -1}, {'`', -1}, {' ', -1}, {'\0', -1},
};

struct byte_case {
    const char *text;
    int value;
};

const byte_case bytes[] = {
    {"00", 0},  {"41", 0x41}, {"fF", 0xff}, {"7f more", 0x7f},
    {"Z1", -1}, {"1Z", -1},   {"1", -1},    {"", -1},
};

struct escape_case {
    const char *in;
    const char *out;
};

const escape_case good[] = {
    {"\\x41", "A"},
    {"\\X41\\x62", "Ab"},
    {"\\x41\\xZZ", "A\xFF"},
    {"\\xZ1\\x41",
     "\xFF"
     "A"},
    {"\\x1Z", "\xFF"},
    {"\\xe2\\x82\\xac", "\xe2\x82\xac"},
};

const char *const bad[] = {
    "A",       "A\\x41", "\\",      "\\x",      "\\x4",      "\\y41",
    "\\\\x41", "\\x41B", "\\x41\\", "\\x41\\x", "\\x41\\x4",
};

}  // namespace

TEST(escape, a_digit_has_its_value_in_either_case_and_anything_else_none)
{
    for (const digit_case &row : digits)
        EXPECT_EQ(row.value, hex2num(row.digit)) << static_cast<int>(row.digit);
}

TEST(escape, a_byte_is_made_of_the_first_two_digits)
{
    for (const byte_case &row : bytes)
        EXPECT_EQ(row.value, hex2byte(row.text)) << row.text;
}

TEST(escape, groups_become_bytes)
{
    for (const escape_case &row : good) {
        out_buffer out;
        EXPECT_EQ(0, rtk_hexstr_unescape(out.bytes, row.in, strlen(row.in), ROOM)) << row.in;
        EXPECT_EQ(row.out, out.text()) << row.in;
    }
}

TEST(escape, a_group_with_bad_digits_costs_one_character_and_not_the_whole_name)
{
    out_buffer out;
    EXPECT_EQ(0, rtk_hexstr_unescape(out.bytes, "\\x41\\xZZ", 8, ROOM));
    EXPECT_EQ(std::string("\x41\xFF"), out.text());
}

TEST(escape, anything_that_is_no_group_leaves_an_empty_text)
{
    for (const char *in : bad) {
        out_buffer out;
        EXPECT_EQ(-1, rtk_hexstr_unescape(out.bytes, in, strlen(in), ROOM)) << in;
        EXPECT_EQ("", out.text()) << in;
    }
}

TEST(escape, what_follows_the_given_length_is_not_read)
{
    out_buffer out;
    EXPECT_EQ(0, rtk_hexstr_unescape(out.bytes, "\\x41\\x42", 4, ROOM));
    EXPECT_EQ("A", out.text());
    EXPECT_EQ(-1, rtk_hexstr_unescape(out.bytes, "\\x41", 3, ROOM));
    EXPECT_EQ("", out.text());
}

TEST(escape, a_full_output_ends_the_decoding_without_complaint)
{
    out_buffer out;
    EXPECT_EQ(0, rtk_hexstr_unescape(out.bytes, "\\x41\\x42\\x43 not looked at", 26, 3));
    EXPECT_EQ("ABC", out.text());
    EXPECT_EQ('\0', out.bytes[3]);
    EXPECT_EQ(UNTOUCHED, out.bytes[4]);
}

TEST(escape, missing_arguments_are_refused_with_an_empty_text)
{
    out_buffer out;
    EXPECT_EQ(-1, rtk_hexstr_unescape(nullptr, "\\x41", 4, ROOM));
    EXPECT_EQ(-1, rtk_hexstr_unescape(out.bytes, nullptr, 4, ROOM));
    EXPECT_EQ("", out.text());
    out = out_buffer();
    EXPECT_EQ(-1, rtk_hexstr_unescape(out.bytes, "\\x41", 0, ROOM));
    EXPECT_EQ("", out.text());
    out = out_buffer();
    EXPECT_EQ(-1, rtk_hexstr_unescape(out.bytes, "\\x41", 4, 0));
    EXPECT_EQ("", out.text());
}
