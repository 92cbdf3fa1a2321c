// SPDX-License-Identifier: ISC
// The settings reader: which lines it takes, what it makes of them, what it survives.
#include "config/settings.h"

#include <string>

#include <gtest/gtest.h>

#include "core/log.h"
#include "core/run_mode.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class settings : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
        run_as(KELM_MODE_REPEATER);
    }

    void run_as(int mode)
    {
        write_file("/tmp/device_runtime.info", "{\"mode\": " + std::to_string(mode) + "}");
        ASSERT_EQ(0, kelm_backup_run_mode());
        (void)console_text();
    }

    int parse_wps(const std::string &text)
    {
        wps = {};
        write_file(WPS_CONF_PATH, text);
        return wps_parse_config(WPS_CONF_PATH, &wps, WPS_CONFIG_GLOBAL);
    }

    int parse_ap(const std::string &text)
    {
        for (wps_ap_band_config &band : ap)
            band = {};
        write_file(WIFI_CONF_PATH, text);
        return wps_parse_config(WIFI_CONF_PATH, ap, WPS_CONFIG_AP);
    }

    int parse_sta(const std::string &text)
    {
        for (wps_sta_band_config &band : sta)
            band = {};
        write_file(WIFI_CONF_PATH, text);
        return wps_parse_config(WIFI_CONF_PATH, sta, WPS_CONFIG_STA);
    }

    std::string pin() const { return std::string(wps.pin_code, sizeof wps.pin_code); }

    wps_config_info wps = {};
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    wps_sta_band_config sta[KELM_BAND_COUNT] = {};
};

// A file of blocks: the first sets all values to 10, the second to 11 and so on.
std::string numbered_blocks(int count)
{
    std::string text;
    for (int block = 0; block < count; ++block)
        text += (block > 0 ? "\n" : "") + std::string("wlanSecType_2g=") +
                std::to_string(10 + block) + "\n";
    return text;
}

const std::string all_switches_on =
    "apBssEnabled_2g=on\napBssEnabled_5g=on\napBssEnabled_5g2=on\napBssEnabled_6g=on\n";
const std::string all_ap_mode_switches_on =
    "apBssEnabledApMode_2g=on\napBssEnabledApMode_5g=on\napBssEnabledApMode_5g2=on\n"
    "apBssEnabledApMode_6g=on\n";
const std::string all_sta_switches_on =
    "staBssEnabled_2g=on\nstaBssEnabled_5g=on\nstaBssEnabled_5g2=on\nstaBssEnabled_6g=on\n";

TEST_F(settings, wps_switches_come_from_their_keys)
{
    EXPECT_EQ(0, parse_wps("enabled=1\napWpsAvailable=3\nstaWpsAvailable=15\npinEnabled=on\n"
                           "pinCode=12345670\n"));

    EXPECT_EQ(1, wps.enabled);
    EXPECT_EQ(3, wps.ap_wps_available);
    EXPECT_EQ(15, wps.sta_wps_available);
    EXPECT_EQ(1, wps.pin_enabled);
    EXPECT_EQ("12345670", pin());
}

TEST_F(settings, wps_lines_count_whatever_blank_lines_stand_between_them)
{
    EXPECT_EQ(0, parse_wps("\n\nenabled=1\n\n\n\napWpsAvailable=2\n\r\npinEnabled=on\n"));

    EXPECT_EQ(1, wps.enabled);
    EXPECT_EQ(2, wps.ap_wps_available);
    EXPECT_EQ(1, wps.pin_enabled);
}

TEST_F(settings, access_point_reader_takes_the_second_of_each_five_blocks_alone)
{
    const struct {
        int blocks;
        uint32_t taken;
    } rows[] = {{1, 0}, {2, 11}, {3, 11}, {4, 11}, {5, 11}, {6, 11}, {7, 16}, {8, 16}, {12, 21}};

    for (const auto &row : rows) {
        EXPECT_EQ(0, parse_ap(numbered_blocks(row.blocks)));
        EXPECT_EQ(row.taken, ap[0].sec_type) << row.blocks << " blocks";
    }
}

TEST_F(settings, station_reader_takes_the_third_block_alone)
{
    const std::string on = "staBssEnabled_5g=on\n";
    const std::string off = "staBssEnabled_5g=off\n";

    EXPECT_EQ(0, parse_sta(off + "\n" + off + "\n" + on + "\n" + off));
    EXPECT_EQ(1, sta[KELM_BAND_5G].sta_bss_enabled);
    EXPECT_EQ(0, parse_sta(on + "\n" + on + "\n" + off + "\n" + on));
    EXPECT_EQ(0, sta[KELM_BAND_5G].sta_bss_enabled);
}

// In a file of thirteen blocks with the keys in one of them alone, counted from 1.
TEST_F(settings, each_reader_passes_over_every_block_but_its_own)
{
    for (int block = 1; block <= 13; ++block) {
        std::string text;
        for (int each = 1; each <= 13; ++each)
            text += (each > 1 ? "\n" : "") +
                    (each == block ? all_sta_switches_on + all_switches_on : "other=1\n");
        EXPECT_EQ(0, parse_ap(text));
        EXPECT_EQ(0, parse_sta(text));
        for (int band = 0; band < KELM_BAND_COUNT; ++band) {
            EXPECT_EQ(block == 2 || block == 7 || block == 12, ap[band].ap_bss_enabled != 0)
                << "block " << block;
            EXPECT_EQ(block == 3 || block == 8 || block == 13, sta[band].sta_bss_enabled != 0)
                << "block " << block;
        }
    }
}

TEST_F(settings, two_blank_lines_in_a_row_advance_by_two_blocks)
{
    EXPECT_EQ(0, parse_ap("ignored=1\n\n\nwlanSecType_2g=4\n"));
    EXPECT_EQ(0u, ap[0].sec_type);
    EXPECT_EQ(0, parse_sta("ignored=1\n\n\nstaBssEnabled_2g=on\n"));
    EXPECT_EQ(1, sta[0].sta_bss_enabled);
}

TEST_F(settings, a_comment_is_no_blank_line)
{
    EXPECT_EQ(0, parse_ap("first=1\n\n# access point\n#\nwlanSecType_2g=4\n"));
    EXPECT_EQ(4u, ap[0].sec_type);
}

TEST_F(settings, nothing_in_a_comment_counts)
{
    EXPECT_EQ(0, parse_wps("#enabled=1\n# pinCode="));
    EXPECT_EQ(0, wps.enabled);
}

TEST_F(settings, a_carriage_return_makes_a_blank_line)
{
    EXPECT_EQ(0, parse_ap("first=1\r\n\r\nwlanSecType_2g=4\r\napBssEnabled_2g=on\r\n"));
    EXPECT_EQ(4u, ap[0].sec_type);
    EXPECT_EQ(1, ap[0].ap_bss_enabled);
}

TEST_F(settings, pin_switch_is_on_for_exactly_on)
{
    const struct {
        const char *value;
        int enabled;
    } rows[] = {{"on", 1}, {"ON", 0}, {"1", 0}, {"only", 0}, {"o", 0}, {"", 0}, {" on", 0}};

    for (const auto &row : rows) {
        EXPECT_EQ(0, parse_wps(std::string("pinEnabled=") + row.value + "\n"));
        EXPECT_EQ(row.enabled, wps.pin_enabled) << row.value;
    }
}

TEST_F(settings, band_switches_are_on_for_whatever_begins_with_on)
{
    const struct {
        const char *value;
        int enabled;
    } rows[] = {{"on", 1}, {"only", 1}, {"on\r", 1}, {"On", 0}, {"o", 0}, {"off", 0}, {"", 0}};

    for (const auto &row : rows) {
        const std::string value = std::string(row.value) + "\n";
        EXPECT_EQ(0, parse_ap("\napBssEnabled_2g=" + value));
        EXPECT_EQ(row.enabled, ap[0].ap_bss_enabled) << row.value;
        EXPECT_EQ(0, parse_sta("\n\nstaBssEnabled_2g=" + value));
        EXPECT_EQ(row.enabled, sta[0].sta_bss_enabled) << row.value;
    }
}

TEST_F(settings, a_last_line_without_line_end_loses_its_last_character)
{
    EXPECT_EQ(0, parse_wps("pinCode=12345678"));
    EXPECT_EQ(std::string("1234567\0", 8), pin());
}

TEST_F(settings, a_pin_of_any_length_fills_at_most_its_eight_characters)
{
    const struct {
        const char *value;
        std::string stored;
    } rows[] = {{"1234", std::string("1234\0\0\0\0", 8)},
                {"12345678", "12345678"},
                {"123456789", "12345678"},
                {"1234567890123456789012345678901234567890", "12345678"},
                {"", std::string(8, '\0')}};

    for (const auto &row : rows) {
        EXPECT_EQ(0, parse_wps(std::string("pinCode=") + row.value + "\n"));
        EXPECT_EQ(row.stored, pin()) << row.value;
    }
}

TEST_F(settings, the_value_begins_behind_the_first_equals_sign)
{
    EXPECT_EQ(0, parse_wps("pinCode=12=34\n"));
    EXPECT_EQ(std::string("12=34\0\0\0", 8), pin());
}

TEST_F(settings, numbers_are_cut_to_eight_bits)
{
    const struct {
        const char *value;
        int stored;
    } rows[] = {{"1", 1},  {"255", 255}, {"256", 0}, {"257", 1}, {"-1", 255},
                {"on", 0}, {"", 0},      {" 7", 7},  {"7x", 7}};

    for (const auto &row : rows) {
        EXPECT_EQ(0, parse_wps(std::string("enabled=") + row.value + "\n"));
        EXPECT_EQ(row.stored, wps.enabled) << row.value;
    }
}

TEST_F(settings, security_type_is_read_in_either_run_mode)
{
    const std::string text =
        "\nwlanSecType_2g=1\nwlanSecType_5g=2\nwlanSecType_5g2=4\nwlanSecType_6g=5\n";
    for (const int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        run_as(mode);
        EXPECT_EQ(0, parse_ap(text));
        EXPECT_EQ(1u, ap[KELM_BAND_2G].sec_type);
        EXPECT_EQ(2u, ap[KELM_BAND_5G].sec_type);
        EXPECT_EQ(4u, ap[KELM_BAND_5G2].sec_type);
        EXPECT_EQ(5u, ap[KELM_BAND_6G].sec_type);
    }
}

TEST_F(settings, each_run_mode_has_access_point_switches_of_its_own)
{
    const struct {
        int mode;
        std::string text;
        int enabled;
    } rows[] = {{KELM_MODE_REPEATER, all_switches_on, 1},
                {KELM_MODE_REPEATER, all_ap_mode_switches_on, 0},
                {KELM_MODE_AP, all_switches_on, 0},
                {KELM_MODE_AP, all_ap_mode_switches_on, 1},
                {7, all_switches_on, 0},
                {7, all_ap_mode_switches_on, 1}};

    for (const auto &row : rows) {
        run_as(row.mode);
        EXPECT_EQ(0, parse_ap("\n" + row.text));
        for (const wps_ap_band_config &band : ap)
            EXPECT_EQ(row.enabled, band.ap_bss_enabled) << row.mode << " " << row.text;
    }
}

TEST_F(settings, every_band_has_a_station_switch)
{
    EXPECT_EQ(0, parse_sta("\n\n" + all_sta_switches_on));
    for (const wps_sta_band_config &band : sta)
        EXPECT_EQ(1, band.sta_bss_enabled);
}

TEST_F(settings, only_whole_keys_count)
{
    const char *const keys[] = {"Enabled", " enabled", "enabled ", "enable", "enabledx", ""};
    for (const char *key : keys) {
        EXPECT_EQ(0, parse_wps(std::string(key) + "=1\n"));
        EXPECT_EQ(0, wps.enabled) << key;
    }
    EXPECT_EQ(0,
              parse_ap("\nwlanSecType_=1\nwlanSecType_7g=1\nwlanSecType_2gx=1\nwlanSecType=1\n"));
    for (const wps_ap_band_config &band : ap)
        EXPECT_EQ(0u, band.sec_type);
}

TEST_F(settings, lines_without_an_equals_sign_are_passed_over)
{
    EXPECT_EQ(0, parse_wps("enabled\nnonsense\n \nenabled=1\n"));
    EXPECT_EQ(1, wps.enabled);
}

TEST_F(settings, a_line_beyond_the_buffer_is_read_in_pieces)
{
    EXPECT_EQ(0, parse_wps(std::string(2047, 'x') + "enabled=1\napWpsAvailable=3\n"));
    EXPECT_EQ(1, wps.enabled);
    EXPECT_EQ(3, wps.ap_wps_available);
    EXPECT_EQ(0, parse_wps(std::string(2046, 'x') + "enabled=1\napWpsAvailable=3\n"));
    EXPECT_EQ(0, wps.enabled);
    EXPECT_EQ(3, wps.ap_wps_available);
}

TEST_F(settings, an_empty_value_at_the_end_of_the_file_fails_after_the_lines_before_it)
{
    EXPECT_EQ(-1, parse_wps("enabled=1\npinCode="));
    EXPECT_EQ(1, wps.enabled);
}

TEST_F(settings, an_empty_value_with_a_line_end_is_fine)
{
    EXPECT_EQ(0, parse_wps("pinCode=\nenabled=1\n"));
    EXPECT_EQ(1, wps.enabled);
}

TEST_F(settings, an_empty_value_in_a_block_of_others_does_no_harm)
{
    EXPECT_EQ(0, parse_ap("\nwlanSecType_2g=4\n\nstaBssEnabled_2g="));
    EXPECT_EQ(4u, ap[0].sec_type);
}

TEST_F(settings, a_missing_file_is_logged_and_leaves_the_record)
{
    wps.enabled = 9;
    EXPECT_EQ(-1, wps_parse_config("/tmp/none.conf", &wps, WPS_CONFIG_GLOBAL));
    EXPECT_EQ(9, wps.enabled);
    EXPECT_EQ("kelm[wps_parse_config:N]: Open wps config file failed\n",
              console_text_without_line_numbers());
}

TEST_F(settings, an_unknown_type_is_told_for_each_line_at_the_detailed_level)
{
    const std::string complaint = "kelm[wps_parse_config:N]: Invalid wps config info type!\n";
    write_file(WPS_CONF_PATH, "enabled=1\n\n# comment\npinEnabled=on\n");
    EXPECT_EQ(0, wps_parse_config(WPS_CONF_PATH, &wps, 3));
    EXPECT_EQ("", console_text());

    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(0, wps_parse_config(WPS_CONF_PATH, &wps, 3));
    EXPECT_EQ("kelm[wps_parse_config:N]: ready to parse type 3\n" + complaint + complaint,
              console_text_without_line_numbers());
    EXPECT_EQ(0, wps.enabled);
}

TEST_F(settings, the_other_file_of_the_two_is_read_by_the_same_blocks)
{
    write_file(WPS_CONF_PATH, "enabled=1\n\nwlanSecType_2g=4\n");
    EXPECT_EQ(0, wps_parse_config(WPS_CONF_PATH, ap, WPS_CONFIG_AP));
    EXPECT_EQ(4u, ap[0].sec_type);
}

TEST_F(settings, a_missing_argument_is_logged_by_each_handler)
{
    EXPECT_EQ(-1, _read_wps_config(nullptr, "1", &wps));
    EXPECT_EQ(-1, _read_wps_config("enabled", nullptr, &wps));
    EXPECT_EQ(-1, _read_wps_config("enabled", "1", nullptr));
    EXPECT_EQ(-1, _read_wifi_ap_config(nullptr, "1", ap));
    EXPECT_EQ(-1, _read_wifi_ap_config("wlanSecType_2g", nullptr, ap));
    EXPECT_EQ(-1, _read_wifi_ap_config("wlanSecType_2g", "1", nullptr));
    EXPECT_EQ(-1, _read_wifi_sta_config(nullptr, "1", sta));
    EXPECT_EQ(-1, _read_wifi_sta_config("staBssEnabled_2g", nullptr, sta));
    EXPECT_EQ(-1, _read_wifi_sta_config("staBssEnabled_2g", "1", nullptr));

    std::string expected;
    for (const char *handler :
         {"_read_wps_config", "_read_wifi_ap_config", "_read_wifi_sta_config"})
        for (int times = 0; times < 3; ++times)
            expected += std::string("kelm[") + handler + ":N]: ASSERT: (null)\n";
    EXPECT_EQ(expected, console_text_without_line_numbers());
}

TEST_F(settings, a_failing_handler_ends_the_parse)
{
    write_file(WPS_CONF_PATH, "enabled=1\nenabled=2\n");
    EXPECT_EQ(-1, wps_parse_config(WPS_CONF_PATH, nullptr, WPS_CONFIG_GLOBAL));
    EXPECT_EQ("kelm[_read_wps_config:N]: ASSERT: (null)\n", console_text_without_line_numbers());
}

TEST_F(settings, zero_bytes_end_their_line_and_nothing_else)
{
    const std::string zero(1, '\0');
    EXPECT_EQ(0, parse_wps(zero + "enabled=2\n" + "stray" + zero + "=1\n" + "pinCode=12" + zero +
                           "34\nenabled=1\n"));
    EXPECT_EQ(1, wps.enabled);
    EXPECT_EQ(std::string("1\0\0\0\0\0\0\0", 8), pin());
    EXPECT_EQ(-1, parse_wps("enabled=" + zero + "1\npinEnabled=on\n"));
    EXPECT_EQ(0, wps.pin_enabled);
}

TEST_F(settings, other_members_of_a_band_record_stay)
{
    write_file(WIFI_CONF_PATH, "\nwlanSecType_2g=4\napBssEnabled_2g=on\n");
    ap[0].key_index = 3;
    ap[0].hide = 1;
    EXPECT_EQ(0, wps_parse_config(WIFI_CONF_PATH, ap, WPS_CONFIG_AP));
    EXPECT_EQ(3u, ap[0].key_index);
    EXPECT_EQ(1, ap[0].hide);
}

}  // namespace
