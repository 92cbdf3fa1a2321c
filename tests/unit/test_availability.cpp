// SPDX-License-Identifier: ISC
// Which interfaces the settings let take part in WPS.
#include "wlan/availability.h"

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t sta = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t ap = WPS_FLAG_APBSS_ENABLE;
constexpr int other_mode = 5;

class availability : public device_test {
protected:
    static std::vector<uint32_t> all_flags() { return {flags(0), flags(1), flags(2), flags(3)}; }
};

using flag_words = std::vector<uint32_t>;

}  // namespace

TEST_F(availability, an_access_point_band_needs_its_bit_and_the_global_switch)
{
    struct {
        int enabled;
        int mask;
        flag_words expected;
    } const rows[] = {
        {1, 0, {0, 0, 0, 0}},    {1, 1, {ap, 0, 0, 0}}, {1, 2, {0, ap, 0, 0}},
        {1, 4, {0, 0, ap, 0}},   {1, 8, {0, 0, 0, ap}}, {1, 15, {ap, ap, ap, ap}},
        {7, 3, {ap, ap, 0, 0}},  {0, 15, {0, 0, 0, 0}}, {1, 16, {0, 0, 0, 0}},
        {256, 15, {0, 0, 0, 0}},  // the switch is eight bits wide
    };
    for (const auto &row : rows) {
        start(KELM_MODE_AP, 5);
        set_flags(ap, 0, ap, 0);
        write_wps_conf(row.enabled, row.mask, 0, "off", "");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ(row.expected, all_flags()) << row.enabled << " " << row.mask;
    }
}

TEST_F(availability, access_point_mode_leaves_the_station_switches_and_all_other_flags_alone)
{
    start(KELM_MODE_AP, 5);
    set_flags(~0u, ~ap, sta, 0);
    write_wps_conf(1, 10, 15, "off", "");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ((flag_words{~ap, ~0u, sta, ap}), all_flags());
}

TEST_F(availability, the_global_switch_does_not_count_for_a_repeaters_stations)
{
    for (int enabled : {0, 1}) {
        start(KELM_MODE_REPEATER, 5);
        set_flags(0, sta, 0, sta);
        write_wps_conf(enabled, 15, 5, "off", "");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ((flag_words{sta, 0, sta, 0}), all_flags()) << enabled;
    }
}

TEST_F(availability, a_repeaters_access_points_follow_their_own_switches)
{
    start(KELM_MODE_REPEATER, 5);
    set_flags(0, ap, ap, 0);
    write_wps_conf(1, 0, 1, "off", "");
    write_wifi_conf("apBssEnabled_2g=on\napBssEnabled_5g=off\napBssEnabled_6g=on\n");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ((flag_words{sta | ap, 0, 0, ap}), all_flags());
}

TEST_F(availability, a_band_that_the_device_lacks_is_never_enabled)
{
    for (int mode : {KELM_MODE_AP, KELM_MODE_REPEATER}) {
        start(mode, 1);
        write_wps_conf(1, 15, 15, "off", "");
        write_wifi_conf("apBssEnabled_2g=on\napBssEnabled_5g2=on\n");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ(0u, flags(0));
        EXPECT_NE(0u, flags(1));
        EXPECT_EQ(0u, flags(2));
        EXPECT_EQ(0u, flags(3));
    }
}

TEST_F(availability, missing_settings_disable_everything)
{
    for (int mode : {KELM_MODE_AP, KELM_MODE_REPEATER}) {
        start(mode, 5);
        set_flags(sta | ap, ap, sta, sta | ap);
        EXPECT_EQ(0, kelm_check_available_status());
        const flag_words access_point{sta, 0, sta, sta};
        EXPECT_EQ(mode == KELM_MODE_AP ? access_point : (flag_words{0, 0, 0, 0}), all_flags());
    }
}

TEST_F(availability, the_settings_are_logged_with_a_pin_of_at_most_eight_characters)
{
    start(KELM_MODE_AP, 2);
    write_wps_conf(1, 3, 2, "on", "12345670");
    write_wifi_conf("");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ(
        "> enabled: 1, apWpsAvailable: 3, staWpsAvailable: 2, pinEnabled: 1, "
        "pinCode:12345670\n\n",
        log_text());
    write_wps_conf(0, 0, 0, "off", "123456789");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ(
        "> enabled: 0, apWpsAvailable: 0, staWpsAvailable: 0, pinEnabled: 0, "
        "pinCode:12345678\n\n",
        log_text());
    kelm_dbg_level = 3;
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ("", log_text());
}

TEST_F(availability, an_unknown_run_mode_is_told_at_any_level_and_touches_no_flag)
{
    start(other_mode, 5);
    set_flags(ap, sta, 0, ap | sta);
    write_wps_conf(1, 15, 15, "off", "");
    write_wifi_conf("");
    kelm_dbg_level = 0;
    EXPECT_EQ(-1, kelm_check_available_status());
    EXPECT_EQ((flag_words{ap, sta, 0, ap | sta}), all_flags());
    EXPECT_EQ("> Invalid sys mode: 5.\n", log_text());
}
