// SPDX-License-Identifier: ISC
// The uci options: which value is found, what fits, and what the three switches make of it.
#include "config/uci_option.h"

#include <cstring>
#include <sys/stat.h>

#include <string>

#include <gtest/gtest.h>

#include "core/log.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *EASYMESH_COMPLAINT =
    "kelm[check_easymesh_enable:N]: ----------------check_easymesh_enable fail--------\n";

class uci_option_lookup : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
        memset(value, 0, sizeof value);
    }

    // What the look-up printed, with its line number replaced.
    std::string look_up(const char *package, const char *section, const char *option)
    {
        testing::internal::CaptureStdout();
        result = _get_uci_option(package, section, option, value, sizeof value);
        fflush(stdout);
        std::string text = testing::internal::GetCapturedStdout();
        const size_t digit = text.find_first_of("0123456789");
        if (digit != std::string::npos)
            text.replace(digit, text.find_last_of("0123456789") + 1 - digit, "N");
        return text;
    }

    int result = 0;
    char value[9];
};

void write_easymesh_switch(const std::string &text)
{
    write_file("/etc/config/wificommonCfg",
               "config wifi 'settings'\n\toption mesh_enable '" + text + "'\n");
}

void write_germany(const std::string &text)
{
    write_file("/etc/config/wificommonCfg",
               "config wifi 'settings'\n\toption IsGermanySSID '" + text + "'\n");
}

TEST_F(uci_option_lookup, gives_the_option_of_the_named_section)
{
    write_file("/etc/config/radio",
               "config a 'first'\n\toption name 'one'\nconfig a 'second'\n\toption name 'two'\n");

    EXPECT_EQ("", look_up("radio", "second", "name"));
    EXPECT_EQ(0, result);
    EXPECT_STREQ("two", value);
}

TEST_F(uci_option_lookup, without_a_section_name_the_first_section_that_has_the_option_counts)
{
    write_file("/etc/config/radio",
               "config a 'first'\n\toption other 'x'\nconfig a\n\toption name 'anon'\n"
               "config a 'third'\n\toption name 'late'\n");

    EXPECT_EQ("", look_up("radio", nullptr, "name"));
    EXPECT_EQ(0, result);
    EXPECT_STREQ("anon", value);
}

TEST_F(uci_option_lookup, changes_in_a_folder_that_others_may_write_to_are_not_looked_at)
{
    write_file("/etc/config/radio", "config a 'first'\n\toption name 'one'\n");
    char value[8] = {};
    for (const mode_t mode : {0700, 0755, 0775, 0777}) {
        clear_tmp();
        ASSERT_EQ(0, mkdir("/tmp/.uci", 0700));
        ASSERT_EQ(0, chmod("/tmp/.uci", mode));
        EXPECT_EQ(0, _get_uci_option("radio", "first", "name", value, sizeof value));
        EXPECT_STREQ("one", value);
        EXPECT_EQ(mode != 0775
                      ? ""  // told once
                      : "kelm[_get_uci_option:N]: /tmp/.uci: not used, others may write to "
                        "it\n",
                  console_text_without_line_numbers());
    }
}

TEST_F(uci_option_lookup, lists_are_passed_over)
{
    write_file("/etc/config/radio",
               "config a 'first'\n\tlist name 'one'\n\tlist name 'two'\n"
               "config a 'second'\n\toption name 'plain'\n");

    (void)look_up("radio", nullptr, "name");
    EXPECT_EQ(0, result);
    EXPECT_STREQ("plain", value);
    (void)look_up("radio", "first", "name");
    EXPECT_EQ(-1, result);
    EXPECT_STREQ("", value);
}

TEST_F(uci_option_lookup, names_are_compared_whole_and_with_their_case)
{
    write_file("/etc/config/radio", "config a 'first'\n\toption name 'one'\n");
    const struct {
        const char *section;
        const char *option;
    } rows[] = {{"First", "name"}, {"firs", "name"}, {"first2", "name"}, {"first", "Name"},
                {"first", "nam"},  {"first", ""},    {"", "name"}};

    for (const auto &row : rows) {
        EXPECT_EQ("", look_up("radio", row.section, row.option));
        EXPECT_EQ(-1, result) << row.section << "." << row.option;
    }
}

TEST_F(uci_option_lookup, a_value_needs_room_for_its_terminator)
{
    write_file("/etc/config/radio",
               "config a 'first'\n\toption fits '12345678'\n\toption large '123456789'\n");

    (void)look_up("radio", "first", "fits");
    EXPECT_EQ(0, result);
    EXPECT_STREQ("12345678", value);
    (void)look_up("radio", "first", "large");
    EXPECT_EQ(-1, result);
}

TEST_F(uci_option_lookup, a_failed_look_up_clears_the_first_four_bytes_alone)
{
    memcpy(value, "abcdefgh", sizeof value);
    (void)look_up("radio", "first", "name");
    EXPECT_EQ(-1, result);
    EXPECT_EQ(std::string("\0\0\0\0efgh\0", 9), std::string(value, sizeof value));
}

TEST_F(uci_option_lookup, a_buffer_below_four_bytes_is_not_overrun)
{
    char small[4] = {'a', 'b', 'c', 'd'};
    testing::internal::CaptureStdout();
    EXPECT_EQ(-1, _get_uci_option("radio", nullptr, "name", small, 2));
    fflush(stdout);
    (void)testing::internal::GetCapturedStdout();
    EXPECT_EQ(std::string("\0\0cd", 4), std::string(small, sizeof small));
}

TEST_F(uci_option_lookup, a_package_that_cannot_be_loaded_is_told_on_standard_output)
{
    write_file("/etc/config/broken", "config a 'first'\n\toption name 'one'\n\tnonsense\n");
    for (const char *package : {"none", "broken", ""}) {
        EXPECT_EQ("_get_uci_option N\n", look_up(package, "first", "name"));
        EXPECT_EQ(-1, result) << package;
    }
    EXPECT_EQ("", console_text());
}

TEST_F(uci_option_lookup, missing_arguments_are_told_on_standard_output)
{
    memcpy(value, "abcdefgh", sizeof value);
    EXPECT_EQ("uci parameters are invalid.\n", look_up(nullptr, "first", "name"));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("uci parameters are invalid.\n", look_up("radio", "first", nullptr));
    EXPECT_EQ(-1, result);
    EXPECT_STREQ("abcdefgh", value);
}

TEST_F(uci_option_lookup, factory_state_needs_no_root_network_and_the_access_point_on)
{
    const std::string ssid_of_32 = "12345678901234567890123456789012";
    const struct {
        std::string root_2g;
        std::string root_5g;
        std::string ap_2g;
        bool factory;
    } rows[] = {{"", "", "on", true},
                {"Root", "", "on", false},
                {"", "Root", "on", false},
                {"", "", "off", false},
                {"", "", "", false},
                {"", "", "On", false},
                {ssid_of_32, "", "on", false},
                {ssid_of_32 + "3", "", "on", true},  // does not fit, hence reads as missing
                {"Root", "Root", "off", false}};

    for (const auto &row : rows) {
        write_file("/etc/config/wifi2G_Cfg",
                   "config wifi 'settings1'\n\toption rootApSsid '" + row.root_2g +
                       "'\nconfig wifi 'settings2'\n\toption apBssEnabled '" + row.ap_2g + "'\n");
        write_file("/etc/config/wifi5G_Cfg",
                   "config wifi 'settings1'\n\toption rootApSsid '" + row.root_5g + "'\n");
        EXPECT_EQ(row.factory, check_factory())
            << row.root_2g << "/" << row.root_5g << "/" << row.ap_2g;
    }
}

TEST_F(uci_option_lookup, a_device_without_settings_is_not_in_factory_state)
{
    testing::internal::CaptureStdout();
    EXPECT_FALSE(check_factory());
    fflush(stdout);
    (void)testing::internal::GetCapturedStdout();
}

TEST_F(uci_option_lookup, the_regional_flag_is_exactly_yes)
{
    const struct {
        const char *text;
        bool set;
    } rows[] = {{"yes", true}, {"yesss", false}, {"Yes", false}, {"no", false}, {"1", false}};

    for (const auto &row : rows) {
        write_germany(row.text);
        EXPECT_EQ(row.set, check_GermanySSID()) << row.text;
    }
}

TEST_F(uci_option_lookup, the_easymesh_switch_is_on_or_off)
{
    write_easymesh_switch("on");
    EXPECT_TRUE(check_easymesh_enable());
    write_easymesh_switch("off");
    EXPECT_FALSE(check_easymesh_enable());
    EXPECT_EQ("", console_text());
}

TEST_F(uci_option_lookup, any_other_easymesh_switch_is_logged_and_reads_as_off)
{
    for (const char *text : {"On", "ON", "1", "only", ""}) {
        write_easymesh_switch(text);
        EXPECT_FALSE(check_easymesh_enable()) << text;
        EXPECT_EQ(EASYMESH_COMPLAINT, console_text_without_line_numbers()) << text;
    }
}

TEST_F(uci_option_lookup, a_missing_easymesh_switch_is_logged_at_any_level)
{
    write_file("/etc/config/wificommonCfg", "config wifi 'settings'\n\toption other '1'\n");
    kelm_dbg_level = 0;
    EXPECT_FALSE(check_easymesh_enable());
    EXPECT_EQ(EASYMESH_COMPLAINT, console_text_without_line_numbers());
}

}  // namespace
