// SPDX-License-Identifier: ISC
// The reader of the Wi-Fi daemons' files: lines, blocks, limits, and what a broken file leads to.
#include "config/conf_tree.h"

#include <cstring>
#include <ctime>
#include <string>

#include <gtest/gtest.h>

#include "core/log.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/run/test.conf";
constexpr const char *PARSE = "kelm[wps_hapd_wpasupp_config_parse:N]: ";
constexpr const char *END = "kelm[wps_hapd_wpasupp_config_parse:N]: End of anaylze config file\n";

class conf_tree : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
    }

    unique_cfg_tree parse(const std::string &text)
    {
        write_file(PATH, text);
        return unique_cfg_tree(wps_hapd_wpasupp_config_parse(PATH));
    }

    unique_cfg_tree fetch(const std::string &text)
    {
        char line[CFG_LINE_SIZE] = {};
        memcpy(line, text.data(), text.size() < sizeof line ? text.size() : sizeof line - 1);
        return unique_cfg_tree(wps_hapd_wpasupp_config_fetch_keyvalue(line, &state));
    }

    cfgitem_line_state state = CFG_LINE_NOTHING;
};

// A tree in one line: "key=value" of each item, a block's items in braces.
std::string shape(const hapd_wpasupp_cfgitem *first)
{
    std::string text;
    for (const hapd_wpasupp_cfgitem *item = first; item != nullptr; item = item->next) {
        text += (text.empty() ? "" : " ") + std::string(item->key) + "=" + item->value;
        if (item->child != nullptr)
            text += "{" + shape(item->child) + "}";
    }
    return text;
}

std::string shape(const unique_cfg_tree &tree)
{
    return shape(tree.get());
}

std::string repeated(const std::string &text, int times)
{
    std::string all;
    for (int i = 0; i < times; ++i)
        all += text;
    return all;
}

TEST_F(conf_tree, a_line_gives_its_key_and_value)
{
    const struct {
        const char *line;
        const char *key;
        const char *value;
    } rows[] = {
        {"ssid=home\n", "ssid", "home"},
        {"ssid=home", "ssid", "home"},
        {"\tssid=\"home\"\n", "ssid", "home"},
        {"ssid=\"home \"\n", "ssid", "home "},
        {"ssid=\"my \"home\"\n", "ssid", "my \"home"},
        {"ssid=\"\"\n", "ssid", ""},
        {"ssid=\"home\n", "ssid", "\"home"},
        {"ssid=home\"\n", "ssid", "home\""},
        {"ssid=\"\n", "ssid", "\""},
        {"ssid=  \"  \n", "ssid", "\""},
        {" \t ssid \t = \t home of all \t \n", "ssid", "home of all"},
        {"a=b=c\n", "a", "b=c"},
        {"=value\n", "", "value"},
        {"  = value\n", "", "value"},
        {"key=\n", "key", ""},
        {"key=  \t \n", "key", ""},
        {"key=", "key", ""},
        {"two words=1\n", "two words", "1"},
        {"key=#1\n", "key", "#1"},
        {"key=}\n", "key", "}"},
        {"key=a{\n", "key", "a{"},
        {"key=\"{\n", "key", "\"{"},
    };

    for (const auto &row : rows) {
        const unique_cfg_tree item = fetch(row.line);
        ASSERT_TRUE(item != nullptr) << row.line;
        EXPECT_EQ(CFG_LINE_VALUE, state) << row.line;
        EXPECT_STREQ(row.key, item->key) << row.line;
        EXPECT_STREQ(row.value, item->value) << row.line;
        EXPECT_EQ(strlen(row.value), item->value_len) << row.line;
        EXPECT_EQ(nullptr, item->next);
        EXPECT_EQ(nullptr, item->child);
    }
}

// A file from the wrong system is refused by the Wi-Fi daemons too: its values must not pass for
// good.
TEST_F(conf_tree, a_carriage_return_stays_at_the_end_of_a_value)
{
    EXPECT_STREQ("home\r", fetch("ssid=home\r\n")->value);
    EXPECT_STREQ("\"home\"\r", fetch("ssid=\"home\"\r\n")->value);
    EXPECT_STREQ("\r", fetch("ssid=\r\n")->value);
}

TEST_F(conf_tree, a_line_without_use_gives_nothing)
{
    const char *const lines[] = {
        "",          "\n",       "   ",    "  \n",        "\t\n", "# ssid=1\n", "#\n",
        "  # a=1\n", "\t#a=1\n", "word\n", "two words\n", "\r\n", "{\n",        "\" \n"};
    for (const char *line : lines) {
        EXPECT_EQ(nullptr, fetch(line)) << line;
        EXPECT_EQ(CFG_LINE_NOTHING, state) << line;
    }
    EXPECT_EQ(nullptr, fetch(std::string(CFG_LINE_SIZE - 1, ' ')));
    EXPECT_EQ(CFG_LINE_NOTHING, state);
}

TEST_F(conf_tree, a_closing_brace_is_told_whatever_follows_it)
{
    for (const char *line : {"}", "}\n", "  }\n", "\t}\r\n", "} key=value\n"}) {
        EXPECT_EQ(nullptr, fetch(line)) << line;
        EXPECT_EQ(CFG_LINE_CLOSE, state) << line;
    }
}

TEST_F(conf_tree, an_opening_brace_makes_a_block_whatever_follows_it)
{
    for (const char *line : {"network={", "network={\n", "  network = { ssid=1 }\n",
                             "network={\r\n", "network=\t{\n"}) {
        const unique_cfg_tree item = fetch(line);
        ASSERT_TRUE(item != nullptr) << line;
        EXPECT_EQ(CFG_LINE_OPEN, state) << line;
        EXPECT_STREQ("network", item->key) << line;
        EXPECT_STREQ("", item->value) << line;
        EXPECT_EQ(0u, item->value_len) << line;
    }
}

TEST_F(conf_tree, keys_and_values_are_cut_to_their_fields)
{
    const unique_cfg_tree fits = fetch(std::string(63, 'k') + "=" + std::string(255, 'v'));
    EXPECT_EQ(std::string(63, 'k'), fits->key);
    EXPECT_EQ(std::string(255, 'v'), fits->value);
    EXPECT_EQ(255u, fits->value_len);

    const unique_cfg_tree value = fetch("k=" + std::string(320, 'v'));
    EXPECT_EQ(std::string(255, 'v'), value->value);
    EXPECT_EQ(255u, value->value_len);
    const unique_cfg_tree key = fetch(std::string(320, 'k') + "=v");
    EXPECT_EQ(std::string(63, 'k'), key->key);
    EXPECT_STREQ("v", key->value);
    const unique_cfg_tree quoted = fetch("k=\"" + std::string(256, 'v') + "\"");
    EXPECT_EQ(std::string(255, 'v'), quoted->value);
}

TEST_F(conf_tree, a_value_ends_where_its_line_ends_at_any_length)
{
    for (size_t length = 0; length < CFG_VALUE_SIZE; ++length) {
        const std::string value(length, 'v');
        for (const char *end : {"", "\n", " \t\n"}) {
            const unique_cfg_tree item = fetch("k=" + value + end);
            ASSERT_NE(nullptr, item) << length;
            EXPECT_EQ(value, item->value) << length;
            EXPECT_EQ(length, item->value_len);
        }
    }
}

TEST_F(conf_tree, zero_bytes_in_a_line_are_harmless)
{
    const std::string zero(1, '\0');
    EXPECT_EQ(nullptr, fetch(zero + "key=value\n"));
    EXPECT_EQ(nullptr, fetch("ke" + zero + "y=value\n"));
    const unique_cfg_tree cut = fetch("key=va" + zero + "lue\n");
    EXPECT_STREQ("va", cut->value);
    EXPECT_EQ(2u, cut->value_len);
    EXPECT_EQ("a= b=1", shape(parse("a=" + zero + zero + "x\nb=1\n")));
}

TEST_F(conf_tree, blocks_hold_their_own_lines)
{
    const unique_cfg_tree tree = parse(
        "update_config=1\nnetwork={\n\tssid=\"one\"\n\tdisabled=1\n}\n\n# second\nnetwork={\n"
        "\tssid=\"two\"\n}\n");
    EXPECT_EQ("update_config=1 network={ssid=one disabled=1} network={ssid=two}", shape(tree));
    EXPECT_EQ(END, console_text_without_line_numbers());
}

TEST_F(conf_tree, lines_behind_a_block_follow_it_at_the_outer_level)
{
    EXPECT_EQ("a={b={c=1} d=2} e=3 f={g=4} h=5",
              shape(parse("a={\nb={\nc=1\n}\nd=2\n}\ne=3\nf={\ng=4\n}\nh=5\n")));
}

TEST_F(conf_tree, an_empty_block_has_no_items_of_its_own)
{
    const unique_cfg_tree tree = parse("a={\n}\nb={\nc={\n}\n}\n");
    EXPECT_EQ("a= b={c=}", shape(tree));
}

TEST_F(conf_tree, a_file_of_the_supplicant_is_read_whole)
{
    // A copy, since the tree may belong to a user whom the reader does not trust.
    write_file("/tmp/three_networks.conf",
               read_file("/mnt/src/tests/data/supplicant/three_networks.conf"));
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse("/tmp/three_networks.conf"));
    EXPECT_EQ(
        "ctrl_interface=/var/run/wpa_supplicant update_config=1 "
        "uuid=12345678-9abc-def0-1234-56789abcdef0 device_name=kelm repeater "
        "network={ssid=Old network psk=old passphrase key_mgmt=WPA-PSK mesh_fwding=1 disabled=1} "
        "network={ssid=Guest of the house psk=guest passphrase key_mgmt=WPA-PSK mesh_fwding=1 "
        "disabled=1} "
        "network={ssid=Root network psk=correct horse battery proto=RSN key_mgmt=WPA-PSK "
        "pairwise=CCMP auth_alg=OPEN mesh_fwding=1}",
        shape(tree));
}

TEST_F(conf_tree, ten_levels_of_blocks_are_kept)
{
    const unique_cfg_tree tree = parse(repeated("b={\n", 10) + "in=1\n" + repeated("}\n", 10));
    EXPECT_EQ(repeated("b={", 10) + "in=1" + repeated("}", 10), shape(tree));
}

// Balanced, yet refused: the eleventh block's brace closes the tenth, and the last brace finds none
// open.
TEST_F(conf_tree, an_eleventh_level_takes_its_closing_brace_from_the_tenth)
{
    const std::string eleven = repeated("b={\n", 10) + "deep={\nin=1\n";
    EXPECT_EQ(nullptr, parse(eleven + repeated("}\n", 11)));
    EXPECT_NE(std::string::npos, console_text().find("fail to pop"));
    EXPECT_EQ(repeated("b={", 10) + "deep= in=1" + repeated("}", 10),
              shape(parse(eleven + repeated("}\n", 10))));
    EXPECT_EQ(repeated("b={", 10) + "deep= in=1} out=2" + repeated("}", 9),
              shape(parse(eleven + "}\nout=2\n" + repeated("}\n", 9))));
}

TEST_F(conf_tree, a_closing_brace_too_many_fails_the_whole_file)
{
    for (const char *text : {"}\n", "ssid=1\n}\n", "a={\nb=1\n}\n}\nc=2\n"}) {
        EXPECT_EQ(nullptr, parse(text)) << text;
        EXPECT_EQ(PARSE + std::string("wps_hapd_wpasupp_config_parse: "
                                      "fail to pop, invalid matching of {}\n"),
                  console_text_without_line_numbers());
    }
}

TEST_F(conf_tree, a_file_that_ends_inside_a_block_fails_as_a_whole)
{
    for (const char *text : {"a={\n", "ssid=1\na={\nb=1\n", "a={\nb={\n}\n"}) {
        EXPECT_EQ(nullptr, parse(text)) << text;
        EXPECT_EQ(
            END + std::string(PARSE) + "wps_hapd_wpasupp_config_parse: invalid matching of {}\n",
            console_text_without_line_numbers());
    }
}

TEST_F(conf_tree, a_missing_file_and_a_missing_name_are_told)
{
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_parse("/tmp/none.conf"));
    EXPECT_EQ(PARSE + std::string("wps_hapd_wpasupp_config_parse: open config file /tmp/none.conf "
                                  "failed\n"),
              console_text_without_line_numbers());
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_parse(nullptr));
    EXPECT_EQ(PARSE + std::string("wps_hapd_wpasupp_config_parse: config file name empty\n"),
              console_text_without_line_numbers());
}

TEST_F(conf_tree, a_file_without_items_gives_nothing)
{
    for (const char *text : {"", "\n\n", "# only a comment\n", "words\n"})
        EXPECT_EQ(nullptr, parse(text)) << text;
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_parse("/tmp/run"));
}

TEST_F(conf_tree, lines_without_use_are_told_at_the_detailed_level)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    (void)parse("\n# comment\na=1\n");
    const std::string skipped =
        PARSE +
        std::string("wps_hapd_wpasupp_config_parse: fetch key value fail in line, continue...\n");
    EXPECT_EQ(skipped + skipped + END, console_text_without_line_numbers());
}

TEST_F(conf_tree, a_line_beyond_322_characters_is_read_in_pieces)
{
    const std::string comment = "#" + std::string(321, 'c');
    EXPECT_EQ("a=1 b=2", shape(parse(comment + "a=1\nb=2\n")));
    EXPECT_EQ("b=2", shape(parse(comment.substr(1) + "a\nb=2\n")));
    EXPECT_EQ("k=" + std::string(255, 'v') + " =rest",
              shape(parse("k=" + std::string(320, 'v') + "=rest\n")));
    EXPECT_EQ("k=" + std::string(255, 'v') + " b=2",
              shape(parse("k=" + std::string(320, 'v') + "\nb=2\n")));
}

TEST_F(conf_tree, a_short_line_behind_a_long_one_keeps_nothing_of_it)
{
    EXPECT_EQ("a=" + std::string(200, 'x') + " b=1",
              shape(parse("a=" + std::string(200, 'x') + "\nb=1\n")));
}

// The writers of access point files have numbered keys: those are found where the plain one is
// absent.
TEST_F(conf_tree, a_look_up_takes_the_first_key_that_begins_with_the_name)
{
    const unique_cfg_tree tree = parse("ssid2=two\nssid=one\nnetwork={\npsk=inner\n}\n");
    EXPECT_STREQ("two", wps_hapd_wpasupp_config_get(tree.get(), "ssid")->value);
    EXPECT_STREQ("one", wps_hapd_wpasupp_config_get(tree->next, "ssid")->value);
    EXPECT_STREQ("two", wps_hapd_wpasupp_config_get(tree.get(), "")->value);
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_get(tree.get(), "SSID"));
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_get(tree.get(), "ssid22"));
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_get(nullptr, "ssid"));
}

TEST_F(conf_tree, a_look_up_does_not_enter_blocks)
{
    const unique_cfg_tree tree = parse("network={\npsk=inner\n}\n");
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_get(tree.get(), "psk"));
    EXPECT_STREQ("inner", wps_hapd_wpasupp_config_get(tree->child, "psk")->value);
}

TEST_F(conf_tree, the_dump_lists_items_in_file_order_one_tab_per_level)
{
    const unique_cfg_tree tree = parse("a=1\nb={\nc={\nd=4\n}\ne=5\n}\nf=6\n");
    kelm_dbg_level = KELM_LOG_DETAIL;
    (void)console_text();
    wps_hapd_wpasupp_config_dump(tree.get());

    std::string expected;
    for (const char *line : {"Dump config file", "a=1", "b=", "\tc=", "\t\td=4", "\te=5", "f=6"})
        expected += std::string("kelm[wps_hapd_wpasupp_config_dump:N]: ") + line + "\n";
    EXPECT_EQ(expected, console_text_without_line_numbers());
}

TEST_F(conf_tree, the_dump_goes_down_to_the_deepest_level)
{
    const unique_cfg_tree tree = parse(repeated("b={\n", 10) + "in=1\n" + repeated("}\n", 10));
    kelm_dbg_level = KELM_LOG_DETAIL;
    wps_hapd_wpasupp_config_dump(tree.get());
    EXPECT_NE(std::string::npos, console_text().find(": " + std::string(10, '\t') + "in=1\n"));
}

TEST_F(conf_tree, the_dump_says_nothing_at_the_normal_level)
{
    const unique_cfg_tree tree = parse("a=1\n");
    (void)console_text();
    wps_hapd_wpasupp_config_dump(tree.get());
    EXPECT_EQ("", console_text());
    wps_hapd_wpasupp_config_dump(nullptr);
}

// With a walk over the list for each line or block such a file takes a minute.
TEST_F(conf_tree, a_file_of_many_blocks_takes_no_more_than_a_moment)
{
    const std::string blocks = repeated("n={\na=1\n}\n", 50000);
    const clock_t before = clock();
    EXPECT_TRUE(parse(blocks + repeated("n={\n", 10) + repeated("a=1\n", 50000) +
                      repeated("}\n", 10)) != nullptr);
    EXPECT_LT(clock() - before, 8 * CLOCKS_PER_SEC);
}

bool fields_are_sound(const hapd_wpasupp_cfgitem *first, int level)
{
    for (const hapd_wpasupp_cfgitem *item = first; item != nullptr; item = item->next) {
        if (memchr(item->key, '\0', sizeof item->key) == nullptr || level > 10 ||
            strnlen(item->value, sizeof item->value) != item->value_len ||
            item->value_len >= CFG_VALUE_SIZE || !fields_are_sound(item->child, level + 1))
            return false;
    }
    return true;
}

// The Wi-Fi daemons may be writing while this is read, and a flash sector may be bad.
TEST_F(conf_tree, a_damaged_file_is_parsed_or_refused_and_nothing_else)
{
    const std::string sample = read_file("/mnt/src/tests/data/supplicant/three_networks.conf");
    ASSERT_FALSE(sample.empty());
    const std::string strange("\0={}\n\"# \t\r\xff", 11);
    uint32_t random = 1;
    const auto next = [&random](size_t below) {
        random = random * 1664525u + 1013904223u;
        return (random >> 8) % below;
    };
    for (int round = 0; round < 3000; ++round) {
        std::string text = sample.substr(next(40), sample.size() - next(200));
        for (size_t changes = 1 + next(8); changes > 0; --changes)
            text[next(text.size())] = strange[next(strange.size())];
        if (next(4) == 0)
            text.insert(next(text.size()), 300 + next(100), 'x');
        const unique_cfg_tree tree = parse(text);
        ASSERT_TRUE(fields_are_sound(tree.get(), 0)) << "round " << round;
        (void)console_text();
    }
}

// --- hostapd's files ---

unique_cfg_tree parse_hostapd(const std::string &text, bool quiet = false)
{
    write_file(PATH, text);
    return unique_cfg_tree(kelm_parse_hostapd_config(PATH, quiet));
}

TEST_F(conf_tree, hostapd_takes_a_value_as_it_stands)
{
    const struct {
        const char *line;
        const char *shape;
    } rows[] = {
        {"ssid=home\n", "ssid=home"},
        {"ssid=home", "ssid=home"},
        {"ssid=\"home\"\n", "ssid=\"home\""},
        {"ssid= home \t\n", "ssid= home \t"},
        {"ssid={\n", "ssid={"},
        {"ssid={ a=b\n", "ssid={ a=b"},
        {"ssid=}\n}\n} x=1\n", "ssid=} } x=1"},
        {"ssid=\r\n", "ssid=\r"},
        {"ssid=\n", "ssid="},
        {" ssid\t=home\n", "ssid=home"},
        {"=home\n", "=home"},
        {"# ssid=1\n  # ssid=2\n\nssid\nssid=3\n", "ssid=3"},
        {"ssid=#1\n", "ssid=#1"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.shape, shape(parse_hostapd(row.line))) << row.line;
    const unique_cfg_tree item = parse_hostapd("ssid=\"home\"\n");
    EXPECT_FALSE(item->quoted);
    EXPECT_EQ(6u, item->value_len);
    EXPECT_EQ(nullptr, parse_hostapd("}\n"));
}

TEST_F(conf_tree, hostapds_values_are_cut_to_their_field)
{
    const unique_cfg_tree item = parse_hostapd("ssid=" + std::string(300, 's') + "\n");
    EXPECT_EQ(std::string(CFG_VALUE_SIZE - 1, 's'), item->value);
    EXPECT_EQ(CFG_VALUE_SIZE - 1, item->value_len);
}

TEST_F(conf_tree, a_parse_of_hostapds_file_is_told_like_the_other_unless_it_is_quiet)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ("ssid={", shape(parse_hostapd("word\nssid={\n")));
    EXPECT_EQ(std::string(PARSE) +
                  "wps_hapd_wpasupp_config_parse: fetch key value fail in line, continue...\n" +
                  END,
              console_text_without_line_numbers());
    EXPECT_EQ(nullptr, kelm_parse_hostapd_config("/tmp/run/absent.conf"));
    EXPECT_EQ(std::string(PARSE) +
                  "wps_hapd_wpasupp_config_parse: open config file /tmp/run/absent.conf failed\n",
              console_text_without_line_numbers());
    EXPECT_NE(nullptr, parse_hostapd("word\nssid={\n", true));
    EXPECT_EQ(nullptr, kelm_parse_hostapd_config("/tmp/run/absent.conf", true));
    EXPECT_EQ("", console_text());
}

TEST_F(conf_tree, a_value_in_quotes_is_told_from_a_bare_one)
{
    const struct {
        const char *line;
        bool quoted;
    } rows[] = {{"ssid=\"home\"\n", true}, {"ssid=\"\"\n", true}, {"ssid=home\n", false},
                {"ssid=\"\n", false},      {"ssid=\"a\n", false}, {"ssid=P\"a\"\n", false},
                {"ssid=\n", false}};
    for (const auto &row : rows)
        EXPECT_EQ(row.quoted, fetch(row.line)->quoted) << row.line;
}

}  // namespace
