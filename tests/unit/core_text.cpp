// SPDX-License-Identifier: ISC
// Text helpers: what they take, cut, refuse and quote.
#include "core/text.h"

#include <string.h>

#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using bytes = std::vector<uint8_t>;

bytes six(const char *text)
{
    bytes out(WPS_BSSID_LEN);
    EXPECT_EQ(0, _convert_macstr_to_bytes(text, out.data())) << text;
    return out;
}

// What a field of 8 bytes holds after the copy, all of it.
std::string field_after_copy(const char *text, size_t limit)
{
    char field[9] = "########";
    const size_t copied = copy_text(field, 8, text, limit);
    EXPECT_EQ('\0', field[8]);
    EXPECT_EQ(copied, strlen(field));
    return std::string(field, 8);
}

std::string with_postfix(const std::string &ssid, const char *postfix)
{
    char field[WPS_SSID_SIZE + 1];
    memset(field, '#', sizeof field);
    copy_text(field, WPS_SSID_SIZE, ssid.c_str(), WPS_SSID_SIZE - 1);
    add_ssid_postfix(field, postfix);
    EXPECT_EQ('#', field[WPS_SSID_SIZE]) << "wrote beyond the 33 bytes";
    return field;
}

}  // namespace

TEST(text, an_address_may_be_divided_by_colons_blanks_and_dashes_anywhere)
{
    const bytes address = {0xaa, 0xbb, 0xcc, 0xdd, 0x11, 0x22};
    const char *const texts[] = {"AA:bb-cc dd11:22",   "aabbccdd1122",        "AA:BB:CC:DD:11:22",
                                 " -a:a b-bccdd1122",  "aa-bb-cc-dd-11-22",   "::AABBCCDD1122",
                                 "aabbccdd1122 trash", "aa:bb:cc:dd:11:22:33"};
    for (const char *text : texts)
        EXPECT_EQ(address, six(text)) << text;
}

TEST(text, all_hexadecimal_digits_count_in_both_cases)
{
    EXPECT_EQ((bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xab}), six("0123456789ab"));
    EXPECT_EQ((bytes{0xcd, 0xef, 0xAB, 0xCD, 0xEF, 0x00}), six("cdefABCDEF00"));
}

TEST(text, a_seventh_byte_of_an_address_is_ignored)
{
    EXPECT_EQ((bytes{0, 0x11, 0x22, 0x33, 0x44, 0x55}), six("00:11:22:33:44:55:66"));
}

TEST(text, what_is_no_address_leaves_zeros)
{
    const char *const texts[] = {"",
                                 "AA:BB",
                                 "AA:BB:CC:DD:11:2",
                                 "AA:GG:CC:DD:11:22",
                                 "AA.BB.CC.DD.11.22",
                                 "gAABBCCDD1122",
                                 "AABBCCDD112x",
                                 "0xAABBCCDD1122",
                                 " :-",
                                 "AA\tBB\tCC\tDD\t11\t22"};
    for (const char *text : texts) {
        bytes out(WPS_BSSID_LEN);
        EXPECT_EQ(-1, _convert_macstr_to_bytes(text, out.data())) << text;
        EXPECT_EQ(bytes(WPS_BSSID_LEN), out) << text;
    }
}

TEST(text, digits_are_ored_into_what_the_caller_left_in_the_field)
{
    bytes out = {0x0f, 0x80};
    EXPECT_EQ(0, _convert_hexstr_to_bytes("a001", out.data(), 2));
    EXPECT_EQ((bytes{0xaf, 0x81}), out);
}

TEST(text, a_failed_conversion_zeroes_its_bytes_and_none_behind_them)
{
    bytes out = {1, 2, 3};
    EXPECT_EQ(-1, _convert_hexstr_to_bytes("ab", out.data(), 2));
    EXPECT_EQ((bytes{0, 0, 3}), out);
}

TEST(text, a_conversion_without_text_or_room_fails)
{
    uint8_t out[WPS_UUID_LEN] = {};
    EXPECT_EQ(-1, _convert_hexstr_to_bytes(nullptr, out, 1));
    EXPECT_EQ(-1, _convert_hexstr_to_bytes("aa", nullptr, 1));
    EXPECT_EQ(-1, _convert_macstr_to_bytes(nullptr, out));
    EXPECT_EQ(-1, _convert_uuidstr_to_bytes(nullptr, out));
}

TEST(text, a_uuid_has_sixteen_bytes)
{
    bytes out(WPS_UUID_LEN);
    EXPECT_EQ(0, _convert_uuidstr_to_bytes("12345678-9abc-def0-1234-56789abcdef0", out.data()));
    EXPECT_EQ((bytes{0x12, 0x34, 0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0, 0x12, 0x34, 0x56, 0x78, 0x9a,
                     0xbc, 0xde, 0xf0}),
              out);
    EXPECT_EQ(-1, _convert_uuidstr_to_bytes("12345678-9abc-def0-1234-56789abcde", out.data()));
    EXPECT_EQ(bytes(WPS_UUID_LEN), out);
}

TEST(text, a_pin_has_four_digits_or_eight_with_a_right_checksum)
{
    struct row {
        const char *pin;
        int expected;
    };
    const row rows[] = {
        {"12345670", 0},  {"12345678", -1},  {"1234", 0},       {"0000", 0},      {"123", -1},
        {"12345", -1},    {"1234567", -1},   {"123456789", -1}, {"", -1},         {"00000000", 0},
        {"10000000", -1}, {"00000001", -1},  {"99999995", 0},   {"99999993", -1}, {"20000004", 0},
        {"01000009", 0},  {"123456701", -1},
    };
    for (const row &each : rows)
        EXPECT_EQ(each.expected, kelm_check_pin(each.pin)) << each.pin;
}

// However its checksum is taken: of the number, of its first or last eight digits, or of all nine.
TEST(text, a_pin_of_nine_characters_is_refused_whatever_its_checksum)
{
    for (const char *pin : {"012345670", "000000000", "100000000", "100000009", "700000009",
                            "123456700", "12345670x", "x12345670"})
        EXPECT_EQ(-1, kelm_check_pin(pin)) << pin;
}

TEST(text, a_single_wrong_digit_of_a_pin_is_noticed)
{
    for (int position = 0; position < 8; ++position) {
        char pin[] = "12345670";
        pin[position] = pin[position] == '9' ? '8' : static_cast<char>(pin[position] + 1);
        EXPECT_EQ(-1, kelm_check_pin(pin)) << pin;
    }
}

TEST(text, a_pin_is_checked_as_the_shorter_number_before_its_first_other_character)
{
    EXPECT_EQ(0, kelm_check_pin("abcdefgh")) << "as 00000000";
    EXPECT_EQ(0, kelm_check_pin("79-45670")) << "as 00000079: 7 * 3 + 9 = 30";
    EXPECT_EQ(-1, kelm_check_pin("78-45670")) << "as 00000078";
    EXPECT_EQ(0, kelm_check_pin("+1234567")) << "a sign is no digit: as 00000000";
    EXPECT_EQ(0, kelm_check_pin(" 1234567")) << "nor is a blank";
    EXPECT_EQ(0, kelm_check_pin("1x;y")) << "four characters are never checked";
}

TEST(text, a_pin_check_tells_the_pin_and_its_length)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    (void)kelm_check_pin("12345670");
    (void)kelm_check_pin("");
    EXPECT_EQ(
        "kelm[kelm_check_pin:N]: pinCode: 12345670, len = 8\n"
        "kelm[kelm_check_pin:N]: pinCode: , len = 0\n",
        console_text_without_line_numbers());
    kelm_dbg_level = 3;
    (void)kelm_check_pin("1234");
    EXPECT_EQ("", console_text());
}

TEST(text, a_network_name_keeps_the_whole_postfix_within_32_characters)
{
    const std::string name = "abcdefghijklmnopqrstuvwxyz0123456789";
    struct row {
        size_t length;
        std::string expected;
    };
    const row rows[] = {
        {0, "_EXT"},
        {4, "abcd_EXT"},
        {27, name.substr(0, 27) + "_EXT"},
        {28, name.substr(0, 28) + "_EXT"},
        {29, name.substr(0, 28) + "_EXT"},
        {30, name.substr(0, 28) + "_EXT"},
        {32, name.substr(0, 28) + "_EXT"},
    };
    for (const row &each : rows)
        EXPECT_EQ(each.expected, with_postfix(name.substr(0, each.length), "_EXT")) << each.length;
}

TEST(text, an_empty_postfix_changes_nothing)
{
    const std::string full(32, 'n');
    EXPECT_EQ(full, with_postfix(full, ""));
    EXPECT_EQ("Home", with_postfix("Home", ""));
}

TEST(text, a_postfix_of_32_characters_replaces_the_name)
{
    const std::string postfix = "0123456789abcdef0123456789abcdef";
    EXPECT_EQ(postfix, with_postfix("Home", postfix.c_str()));
    EXPECT_EQ(postfix, with_postfix("Home", (postfix + "beyond").c_str()));
}

TEST(text, a_network_name_may_hold_zeros_and_is_as_long_as_its_bytes)
{
    const struct {
        std::string bytes;
        size_t length;
    } rows[] = {
        {"", 0},
        {"Home", 4},
        {std::string(32, 's'), 32},
        {std::string(40, 's'), 32},
        {std::string("\0", 1), 1},
        {std::string("A\0B", 3), 3},
        {std::string("A\0", 2), 2},
        {std::string(32, '\0'), 32},
        {std::string(31, 's') + std::string(9, '\0'), 32},
    };
    for (const auto &row : rows) {
        char field[WPS_SSID_SIZE];
        memset(field, 'x', sizeof field);
        copy_ssid(field, row.bytes.data(), row.bytes.size());
        EXPECT_EQ(row.length, ssid_len(field));
        EXPECT_EQ(row.bytes.substr(0, 32), std::string(field, row.length));
        copy_text(field, "Home");
        EXPECT_EQ(4u, ssid_len(field)) << "a text leaves nothing of them";
    }
}

TEST(text, a_postfix_follows_a_name_with_zeros)
{
    char field[WPS_SSID_SIZE];
    copy_ssid(field, "A\0B", 3);
    add_ssid_postfix(field, "_EXT");
    EXPECT_EQ(std::string("A\0B_EXT", 7), std::string(field, ssid_len(field)));
    const std::string full = "A" + std::string(1, '\0') + std::string(30, 's');
    copy_ssid(field, full.data(), full.size());
    add_ssid_postfix(field, "_EXT");
    EXPECT_EQ(full.substr(0, 28) + "_EXT", std::string(field, ssid_len(field)));
}

TEST(text, a_missing_name_or_postfix_does_nothing)
{
    char name[WPS_SSID_SIZE] = "Home";
    add_ssid_postfix(nullptr, "_EXT");
    add_ssid_postfix(name, nullptr);
    EXPECT_STREQ("Home", name);
}

TEST(text, a_copy_is_cut_to_its_limit_and_to_the_field_and_clears_the_rest)
{
    EXPECT_EQ(std::string("abc\0\0\0\0\0", 8), field_after_copy("abc", 100));
    EXPECT_EQ(std::string("ab\0\0\0\0\0\0", 8), field_after_copy("abc", 2));
    EXPECT_EQ(std::string("abcdefg\0", 8), field_after_copy("abcdefghijk", 100));
    EXPECT_EQ(std::string("abcdefg\0", 8), field_after_copy("abcdefghijk", 8));
    EXPECT_EQ(std::string(8, '\0'), field_after_copy("", 100));
    EXPECT_EQ(std::string(8, '\0'), field_after_copy("abc", 0));
}

TEST(text, a_copy_into_no_room_writes_nothing)
{
    char field[] = "#";
    EXPECT_EQ(0u, copy_text(field, 0, "abc", 3));
    EXPECT_STREQ("#", field);
}

TEST(text, a_copy_into_an_array_leaves_room_for_the_terminator)
{
    char field[4] = "###";
    EXPECT_EQ(3u, copy_text(field, "abcdef"));
    EXPECT_STREQ("abc", field);
}

TEST(text, a_fixed_field_may_be_full_without_a_terminator)
{
    char field[9] = "########";
    copy_fixed(field, 8, "12345678");
    EXPECT_STREQ("12345678", field);
    copy_fixed(field, 7, "abcdefghij");
    EXPECT_STREQ("abcdefg8", field);
    copy_fixed(field, 8, "12");
    EXPECT_EQ(std::string("12\0\0\0\0\0\0", 8), std::string(field, 8));
    EXPECT_EQ(2u, fixed_len(field, 8));
    EXPECT_EQ(4u, fixed_len("abcd", 4));
    EXPECT_EQ(0u, fixed_len("", 4));
}

TEST(text, a_prefix_is_compared_to_its_own_end)
{
    EXPECT_TRUE(starts_with("WPS-SUCCESS x", "WPS-SUCCESS"));
    EXPECT_TRUE(starts_with("abc", ""));
    EXPECT_FALSE(starts_with("WPS", "WPS-SUCCESS"));
    EXPECT_FALSE(starts_with("xWPS", "WPS"));
}

TEST(text, plain_shell_words_stay_as_they_are)
{
    const char *const words[] = {
        "12345670", "aa:bb:cc:dd:ee:ff", "/tmp/a_b-c.d", "a@b%c+d,e=f", "wlan0-vxd", "any", ""};
    for (const char *word : words) {
        char out[64] = "#";
        EXPECT_EQ(0, shell_word(out, sizeof out, word));
        EXPECT_STREQ(word, out);
    }
}

TEST(text, other_shell_words_are_quoted)
{
    struct row {
        const char *text;
        const char *expected;
    };
    const row rows[] = {
        {"my net", "'my net'"},
        {"a;ubus x", "'a;ubus x'"},
        {"$(id)", "'$(id)'"},
        {"`id`", "'`id`'"},
        {"a'b", "'a'\\''b'"},
        {"'", "''\\'''"},
        {"a\"b", "'a\"b'"},
        {"a\\b", "'a\\b'"},
        {"a\nb", "'a\nb'"},
        {"*", "'*'"},
        {"~root", "'~root'"},
        {"#x", "'#x'"},
        {"caf\xc3\xa9", "'caf\xc3\xa9'"},
        {"a&b|c<d>e", "'a&b|c<d>e'"},
        {"!x", "'!x'"},
    };
    for (const row &each : rows) {
        char out[64];
        EXPECT_EQ(0, shell_word(out, sizeof out, each.text)) << each.text;
        EXPECT_STREQ(each.expected, out);
    }
}

TEST(text, a_shell_word_that_does_not_fit_is_empty)
{
    char out[8] = "#######";
    EXPECT_EQ(0, shell_word(out, 5, "1234"));
    EXPECT_STREQ("1234", out);
    EXPECT_EQ(-1, shell_word(out, 4, "1234"));
    EXPECT_STREQ("", out);
    EXPECT_EQ(-1, shell_word(out, 6, "'"));
    EXPECT_STREQ("", out);
    EXPECT_EQ(0, shell_word(out, 7, "'"));
    EXPECT_STREQ("''\\'''", out);
}
