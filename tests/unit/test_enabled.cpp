// SPDX-License-Identifier: ISC
// Readers of the enable and link flags.
#include "core/enabled.h"

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t sta = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t ap = WPS_FLAG_APBSS_ENABLE;
constexpr int other_mode = 5;

class enabled : public device_test {};

}  // namespace

TEST_F(enabled, the_interface_of_a_band_is_its_station_on_a_repeater_and_else_its_access_point)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start(mode, 5);
        set_flags(sta, ap, sta | ap, 0);
        const bool repeater = mode == KELM_MODE_REPEATER;
        EXPECT_EQ(repeater, kelm_get_iface_enabled(0) != 0);
        EXPECT_EQ(!repeater, kelm_get_iface_enabled(1) != 0);
        EXPECT_NE(0, kelm_get_iface_enabled(2));
        EXPECT_EQ(0, kelm_get_iface_enabled(3));
    }
    EXPECT_EQ("", log_text());
}

TEST_F(enabled, the_switches_read_as_their_bits)
{
    start(KELM_MODE_AP, 5);
    set_flags(~0u, 0, ~sta, ~ap);
    EXPECT_EQ(1, kelm_get_bss_enabled(0));
    EXPECT_EQ(2, kelm_get_radio_enabled(0));
    EXPECT_EQ(8, kelm_get_sta_connected(0));
    for (int index : {0, 3})
        EXPECT_EQ(1, kelm_get_bss_enabled(index));
    EXPECT_EQ(0, kelm_get_bss_enabled(2));
    EXPECT_EQ(2, kelm_get_radio_enabled(2));
    EXPECT_EQ(0, kelm_get_radio_enabled(3));
    EXPECT_EQ(0, kelm_get_sta_connected(1));
}

TEST_F(enabled, in_an_unknown_run_mode_no_interface_is_enabled_and_that_is_told_at_any_level)
{
    start(other_mode, 5);
    set_flags(~0u, ~0u, ~0u, ~0u);
    kelm_dbg_level = 0;
    EXPECT_EQ(0, kelm_get_iface_enabled(0));
    EXPECT_EQ("> Invalid sys mode.\n", log_text());
}

TEST_F(enabled, a_band_without_a_session_has_no_link_and_is_logged)
{
    start(KELM_MODE_REPEATER, 5);
    EXPECT_EQ(0, kelm_get_sta_connected(4));
    EXPECT_EQ("> Bad wps session[band 4].\n", log_text());
    kelm_set_status(-1, 2);
    EXPECT_EQ("> Bad wps session[band -1].\n", log_text());
    (void)kelm_get_status(7);
    EXPECT_EQ("> Bad wps session[band 7].\n", log_text());
    kelm_dbg_level = 3;
    EXPECT_EQ(0, kelm_get_sta_connected(4));
    kelm_set_status(4, 2);
    EXPECT_EQ("", log_text());
}

TEST_F(enabled, a_band_beyond_the_table_is_taken_modulo_four)
{
    start(KELM_MODE_AP, 1);  // 5g alone
    for (int index : {1, 5, 9, -3})
        EXPECT_EQ(1, kelm_get_band_inited(index)) << index;
    for (int index : {0, 2, 3, 4, 6, 7, -1})
        EXPECT_EQ(0, kelm_get_band_inited(index)) << index;
}
