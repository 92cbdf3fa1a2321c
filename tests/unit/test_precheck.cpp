// SPDX-License-Identifier: ISC
// What stands before an attempt: which bands take part, what is announced, the access points' PIN.
#include "wlan/precheck.h"

#include <cstdlib>
#include <cstring>

#include <sys/mount.h>
#include <unistd.h>

#include "core/log.h"
#include "core/switches.h"
#include "core/text.h"
#include "platform/rtk/control.h"
#include "tests/unit/device.h"
#include "wlan/easymesh_marks.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t sta = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t ap = WPS_FLAG_APBSS_ENABLE;
constexpr uint32_t launched = WPS_FLAG_WORKER_LAUNCH;
constexpr uint32_t done = WPS_FLAG_WORKER_DONE;
constexpr uint32_t linked = WPS_FLAG_STA_CONNECTED;

using numbers = std::vector<int>;

constexpr const char *start_event = "ubus send wps '{\"action\":1,";

class precheck : public device_test {
protected:
    void set_flags(const numbers &values)
    {
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_flags = static_cast<uint32_t>(values[index]);
    }

    void set_statuses(const numbers &values)
    {
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_status = values[index];
    }

    // Station states by band; -1: no file.
    static void write_links(const numbers &states)
    {
        for (int index = 0; index < KELM_BAND_COUNT; ++index) {
            if (states[index] >= 0)
                write_link(index, "{\"status\": " + std::to_string(states[index]) + "}");
        }
    }

    static numbers statuses() { return {status(0), status(1), status(2), status(3)}; }

    // The flags of one kind by band, as 0 and 1.
    static numbers with_flag(uint32_t flag)
    {
        numbers found;
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            found.push_back((flags(index) & flag) != 0 ? 1 : 0);
        return found;
    }

    static std::string published(int first, int second, int third)
    {
        return start_event + std::string("\"2g_status\":") + std::to_string(first) +
               ",\"5g_status\":" + std::to_string(second) +
               ",\"5g2_status\":" + std::to_string(third) + "}'";
    }
};

struct repeater_case {
    const char *name;
    int band_set;      // 2: 2g and 5g, 3: and 5g2, 4: 2g 5g 6g, 5: all
    numbers stations;  // 1: enabled
    numbers links;     // 1: up; -1: no file
    numbers statuses;  // afterwards
    numbers launches;  // afterwards
};

const repeater_case repeater_cases[] = {
    {"no link: every station starts",
     3,
     {1, 1, 1, 0},
     {0, 0, 0, 0},
     {11, 11, 11, 12},
     {1, 1, 1, 0}},
    {"2g up: 5g starts", 2, {1, 1, 0, 0}, {1, 0, 0, 0}, {12, 11, 12, 12}, {0, 1, 0, 0}},
    {"5g up: 2g starts", 2, {1, 1, 0, 0}, {0, 1, 0, 0}, {11, 12, 12, 12}, {1, 0, 0, 0}},
    {"all up: every station starts", 2, {1, 1, 0, 0}, {1, 1, 0, 0}, {11, 11, 12, 12}, {1, 1, 0, 0}},
    {"a link in the making is none", 2, {1, 1, 0, 0}, {1, 2, 0, 0}, {12, 11, 12, 12}, {0, 1, 0, 0}},
    {"one 5 GHz link of two counts as all: 5g2",
     3,
     {1, 1, 1, 0},
     {1, 0, 1, 0},
     {11, 11, 11, 12},
     {1, 1, 1, 0}},
    {"one 5 GHz link of two counts as all: 5g",
     3,
     {1, 1, 1, 0},
     {1, 1, 0, 0},
     {11, 11, 11, 12},
     {1, 1, 1, 0}},
    {"both 5 GHz links down", 3, {1, 1, 1, 0}, {1, 0, 0, 0}, {12, 11, 11, 12}, {0, 1, 1, 0}},
    {"5g up silences 5g2 too", 3, {1, 1, 1, 0}, {0, 1, 0, 0}, {11, 12, 12, 12}, {1, 0, 0, 0}},
    {"5g2 up silences 5g too", 3, {1, 1, 1, 0}, {0, 0, 1, 0}, {11, 12, 12, 12}, {1, 0, 0, 0}},
    {"both 5 GHz up", 3, {1, 1, 1, 0}, {0, 1, 1, 0}, {11, 12, 12, 12}, {1, 0, 0, 0}},
    {"5g2 alone enabled and down", 3, {1, 0, 1, 0}, {1, 1, 0, 0}, {12, 12, 11, 12}, {0, 0, 1, 0}},
    {"5g2 alone enabled and up", 3, {1, 0, 1, 0}, {1, 0, 1, 0}, {11, 12, 11, 12}, {1, 0, 1, 0}},
    {"6g down holds up the rest", 4, {1, 1, 0, 1}, {1, 1, 0, 0}, {12, 12, 12, 11}, {0, 0, 0, 1}},
    {"6g up is silent", 4, {1, 1, 0, 1}, {0, 1, 0, 1}, {11, 12, 12, 12}, {1, 0, 0, 0}},
    {"four links up", 5, {1, 1, 1, 1}, {1, 1, 0, 1}, {11, 11, 11, 11}, {1, 1, 1, 1}},
    {"no station enabled", 5, {0, 0, 0, 0}, {-1, -1, -1, -1}, {12, 12, 12, 12}, {0, 0, 0, 0}},
    {"a disabled station needs no file",
     2,
     {1, 0, 0, 0},
     {0, -1, -1, -1},
     {11, 12, 12, 12},
     {1, 0, 0, 0}},
};

struct access_point_case {
    const char *name;
    int band_set;
    numbers enabled;
    numbers before;    // statuses
    numbers statuses;  // afterwards
    numbers launches;
};

const access_point_case access_point_cases[] = {
    {"all enabled: 5g2 is silent", 5, {1, 1, 1, 1}, {0, 0, 0, 0}, {11, 11, 12, 11}, {1, 1, 0, 1}},
    {"5g2 starts when 5g is off", 5, {1, 0, 1, 1}, {0, 0, 0, 0}, {11, 12, 11, 11}, {1, 0, 1, 1}},
    {"nothing enabled", 5, {0, 0, 0, 0}, {0, 0, 0, 0}, {12, 12, 12, 12}, {0, 0, 0, 0}},
    {"two bands", 2, {1, 1, 0, 0}, {0, 0, 0, 0}, {11, 11, 0, 0}, {1, 1, 0, 0}},
    {"2g alone", 2, {1, 0, 0, 0}, {0, 0, 0, 0}, {11, 12, 0, 0}, {1, 0, 0, 0}},
    {"what was silent stays silent", 2, {1, 1, 0, 0}, {12, 0, 0, 0}, {12, 11, 0, 0}, {0, 1, 0, 0}},
    {"what had ended starts anew", 2, {1, 1, 0, 0}, {2, 4, 0, 0}, {11, 11, 0, 0}, {1, 1, 0, 0}},
};

}  // namespace

// --- Either mode ---

TEST_F(precheck, while_the_wireless_starts_nothing_is_touched)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP, 7}) {
        start(mode, 5);
        write_file("/tmp/wifid_is_starting", "");
        write_links({0, 0, 0, 0});
        set_flags({static_cast<int>(sta | ap), static_cast<int>(done), 0, static_cast<int>(sta)});
        set_statuses({0, 4, 2, 12});
        band(1).rootap_valid = 1;
        copy_text(band(1).enrollee_mac, "02:00:00:00:07:00");
        kelm_session before[KELM_BAND_COUNT];
        memcpy(before, global_wps_sessions, sizeof before);
        factory_mode = 5;
        kelm_dbg_level = 4;
        EXPECT_EQ(-1, kelm_check_wlan_status());
        EXPECT_EQ("", log_text());
        kelm_dbg_level = 7;
        EXPECT_EQ(-1, kelm_check_wlan_status());
        EXPECT_EQ("> wps do nothing because of wifi starting...\n", log_text());
        EXPECT_EQ(0, memcmp(before, global_wps_sessions, sizeof before));
        EXPECT_EQ(words{}, recorded_commands());
        EXPECT_EQ(5, factory_mode);
        EXPECT_EQ(0u, kelm_flag);
        kelm_dbg_level = 4;
    }
}

TEST_F(precheck, the_mark_of_a_starting_wireless_counts_only_when_it_can_be_written)
{
    const char *const mark = "/tmp/wifid_is_starting";
    start(KELM_MODE_AP, 2);
    write_file(mark, "");
    ASSERT_EQ(0, mount(mark, mark, nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, mount(nullptr, mark, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
    const int result = kelm_check_wlan_status();
    EXPECT_EQ(0, umount(mark));
    EXPECT_EQ(0, result);
    EXPECT_EQ(-1, kelm_check_wlan_status());
}

TEST_F(precheck, the_mark_of_a_starting_wireless_is_closed_again)
{
    start(KELM_MODE_AP, 2);
    write_file("/tmp/wifid_is_starting", "text");
    const size_t before = open_descriptors();
    EXPECT_EQ(-1, kelm_check_wlan_status());
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ("text", read_file("/tmp/wifid_is_starting"));
}

TEST_F(precheck, an_unknown_run_mode_is_told_at_any_level_and_starts_nothing)
{
    for (int mode : {2, 7, -1}) {
        kelm_dbg_level = 0;
        start(mode, 5);
        set_flags({3, 3, 3, 3});
        EXPECT_EQ(-1, kelm_check_wlan_status());
        EXPECT_EQ("> Invalid system mode.\n", log_text());
        EXPECT_EQ((numbers{0, 0, 0, 0}), statuses());
        EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(launched));
        EXPECT_EQ(words{}, recorded_commands());
    }
}

// --- Repeater ---

TEST_F(precheck, a_repeater_starts_the_bands_whose_link_is_missing)
{
    for (const repeater_case &row : repeater_cases) {
        reset_world();
        start(KELM_MODE_REPEATER, row.band_set);
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_flags = row.stations[index] ? sta : 0;
        write_links(row.links);
        EXPECT_EQ(0, kelm_check_wlan_status()) << row.name;
        EXPECT_EQ(row.statuses, statuses()) << row.name;
        EXPECT_EQ(row.launches, with_flag(launched)) << row.name;
        EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(done)) << row.name;
        // A band that the device lacks is announced as 0, whatever its record says.
        const numbers &told = row.statuses;
        const bool has_5g2 = row.band_set == 3 || row.band_set == 5;
        EXPECT_EQ(words{published(told[0], told[1], has_5g2 ? told[2] : 0)}, recorded_commands())
            << row.name;
    }
}

TEST_F(precheck, a_repeaters_6g_band_takes_part_without_an_exchange_of_its_own)
{
    for (const numbers &links : {numbers{0, 0, 0, 0}, numbers{1, 1, 1, 1}, numbers{0, 1, 1, 1}}) {
        start(KELM_MODE_REPEATER, 5);
        set_flags({static_cast<int>(sta), static_cast<int>(sta), static_cast<int>(sta),
                   static_cast<int>(sta)});
        write_links(links);
        EXPECT_EQ(0, kelm_check_wlan_status());
        EXPECT_EQ((numbers{0, 0, 0, 1}), with_flag(WPS_FLAG_STAWPS_FAKEUP));
    }
    start(KELM_MODE_REPEATER, 5);
    write_links({0, 0, 0, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(WPS_FLAG_STAWPS_FAKEUP));
}

TEST_F(precheck, a_repeater_whose_link_cannot_be_read_starts_nothing_but_keeps_what_it_has_set)
{
    start(KELM_MODE_REPEATER, 3);
    set_flags({0, static_cast<int>(sta), static_cast<int>(sta), 0});
    write_links({-1, 1, -1, -1});
    EXPECT_EQ(-1, kelm_check_wlan_status());
    EXPECT_EQ((numbers{12, 0, 0, 0}), statuses());
    EXPECT_EQ((numbers{0, 1, 0, 0}), with_flag(linked));
    EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(launched));
    EXPECT_EQ(words{}, recorded_commands());
    EXPECT_EQ("> 5G is connected before WPS\n", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, kelm_check_wlan_status());
    const std::string last = "> Get wlan status failed.\n\n";
    const std::string log = log_text();
    ASSERT_GE(log.size(), last.size());
    EXPECT_EQ(last, log.substr(log.size() - last.size())) << log;
}

TEST_F(precheck, with_all_links_up_a_band_that_had_ended_runs_anew)
{
    start(KELM_MODE_REPEATER, 2);
    set_flags({static_cast<int>(sta | launched | done), static_cast<int>(sta | done), 0, 0});
    set_statuses({2, 12, 0, 0});
    write_links({1, 1, 0, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{11, 11, 12, 12}), statuses());
    EXPECT_EQ((numbers{1, 1, 0, 0}), with_flag(launched));
    EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(done));
}

TEST_F(precheck, a_silenced_band_is_neither_launched_nor_done)
{
    start(KELM_MODE_REPEATER, 3);
    const int all = static_cast<int>(sta | launched | done);
    set_flags({all, all, all, 0});
    write_links({0, 0, 1, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{11, 12, 12, 12}), statuses());
    EXPECT_EQ((numbers{1, 0, 0, 0}), with_flag(launched));
    EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(done));
}

TEST_F(precheck, a_repeaters_band_that_was_silent_before_starts_once_its_link_is_missing)
{
    start(KELM_MODE_REPEATER, 2);
    set_flags({static_cast<int>(sta | linked), static_cast<int>(sta), 0, 0});
    set_statuses({12, 0, 0, 0});
    write_links({0, 0, 0, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{11, 11, 12, 12}), statuses());
    EXPECT_EQ((numbers{1, 1, 0, 0}), with_flag(launched));
}

TEST_F(precheck, a_start_remembers_nothing_of_the_attempt_before)
{
    constexpr uint32_t left = launched | done | linked | WPS_FLAG_CONFIG_MIRROR |
                              WPS_FLAG_OVER_SCAN | WPS_FLAG_STAWPS_FAKEUP;
    constexpr uint32_t lasting = sta | ap | WPS_FLAG_NONE_SECURITY | WPS_FLAG_CONFIG_WIFI;
    for (const int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        for (const int before : {0, 2, 3, 4, 8, 9, 11}) {
            reset_world();
            start(mode, 2);
            write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
            write_links({0, 0, 0, 0});
            for (const int index : {0, 1}) {
                band(index).wps_flags = left | lasting;
                band(index).wps_status = before;
                band(index).rootap_valid = 1;
                copy_text(band(index).rootap.ssid, "Root of the attempt before");
                copy_text(band(index).enrollee_mac, "02:00:00:00:07:00");
                set_band_easymesh_wps(index, 1);
            }
            EXPECT_EQ(0, kelm_check_wlan_status());
            for (const int index : {0, 1}) {
                EXPECT_EQ(11, status(index)) << before;
                EXPECT_EQ(lasting | launched, flags(index)) << before;
                EXPECT_EQ(0u, band(index).rootap_valid);
                EXPECT_STREQ("", band(index).rootap.ssid);
                EXPECT_STREQ("", band(index).enrollee_mac);
                EXPECT_EQ(0u, get_band_easymesh_wps(index));
            }
        }
    }
}

TEST_F(precheck, a_repeaters_start_resets_the_estimate_of_every_band_of_the_device)
{
    start(KELM_MODE_REPEATER, 5);
    const int on = static_cast<int>(sta);
    set_flags({on, on, on, on});
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        band(index).wps_score = 99;
        band(index).eap_status = 7;
        band(index).pre_eap_status = 6;
    }
    write_links({1, 0, 0, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        EXPECT_EQ(0, band(index).eap_status) << index;
        EXPECT_EQ(0, band(index).pre_eap_status) << index;
    }
    EXPECT_EQ(50, band(1).wps_score);
    EXPECT_EQ(0, band(3).wps_score);
}

TEST_F(precheck, a_repeaters_start_is_logged_band_by_band_at_level_4)
{
    start(KELM_MODE_REPEATER, 2);
    set_flags({static_cast<int>(sta | ap), static_cast<int>(sta), 0, 0});
    write_links({0, 0, 0, 0});
    EXPECT_EQ(0, kelm_check_wlan_status());
    const std::string log = log_text();
    EXPECT_EQ(0u, log.find("> 2G is disconnected before WPS\n"
                           "> 5G is disconnected before WPS\n"
                           "> wps session start [0] [kelm_flags: 0x00000013]\n"
                           "> wps session start [1] [kelm_flags: 0x00000011]\n"
                           "> update factory_mode = 0\n"))
        << log;
}

TEST_F(precheck, a_repeaters_start_notes_whether_the_device_is_in_its_factory_state)
{
    const std::string in_use = "config settings 'settings1'\n\toption rootApSsid 'root'\n";
    const std::string on = "config settings 'settings2'\n\toption apBssEnabled 'on'\n";
    for (bool factory : {true, false}) {
        start(KELM_MODE_REPEATER, 2);
        factory_mode = 7;
        write_file("/etc/config/wifi2G_Cfg", factory ? on : in_use + on);
        write_file("/etc/config/wifi5G_Cfg", "");
        EXPECT_EQ(0, kelm_check_wlan_status());
        EXPECT_EQ(factory ? 1 : 0, factory_mode);
        EXPECT_TRUE(contains(
            log_text(), factory ? "> update factory_mode = 1\n" : "> update factory_mode = 0\n"));
    }
}

// --- Access point ---

TEST_F(precheck, an_access_point_starts_its_enabled_bands_and_one_5_ghz_radio)
{
    for (const access_point_case &row : access_point_cases) {
        reset_world();
        start(KELM_MODE_AP, row.band_set);
        write_wifi_conf(
            "wlanSecType_2g=1\nwlanSecType_5g=1\nwlanSecType_5g2=1\nwlanSecType_6g=4\n");
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_flags = row.enabled[index] ? ap : 0;
        set_statuses(row.before);
        EXPECT_EQ(0, kelm_check_wlan_status()) << row.name;
        EXPECT_EQ(row.statuses, statuses()) << row.name;
        EXPECT_EQ(row.launches, with_flag(launched)) << row.name;
        EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(WPS_FLAG_NONE_SECURITY)) << row.name;
        const numbers &told = row.statuses;
        EXPECT_EQ(words{published(told[0], told[1], told[2])}, recorded_commands()) << row.name;
    }
}

TEST_F(precheck, an_access_points_start_keeps_the_estimate_and_the_factory_state)
{
    start(KELM_MODE_AP, 2);
    set_flags({static_cast<int>(ap | launched | done), static_cast<int>(ap | done), 0, 0});
    band(0).wps_score = 99;
    band(0).eap_status = 7;
    factory_mode = 5;
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(done));
    EXPECT_EQ(99, band(0).wps_score);
    EXPECT_EQ(7, band(0).eap_status);
    EXPECT_EQ(5, factory_mode);
}

TEST_F(precheck, an_open_access_point_is_noted_on_silent_bands_too)
{
    start(KELM_MODE_AP, 5);
    set_flags({static_cast<int>(ap), static_cast<int>(ap), 0, static_cast<int>(ap)});
    write_wifi_conf("wlanSecType_2g=0\nwlanSecType_5g=1\nwlanSecType_5g2=0\nwlanSecType_6g=4\n");
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{1, 0, 1, 0}), with_flag(WPS_FLAG_NONE_SECURITY));
}

TEST_F(precheck, an_access_point_once_noted_as_open_stays_noted)
{
    start(KELM_MODE_AP, 2);
    set_flags({static_cast<int>(ap | WPS_FLAG_NONE_SECURITY), static_cast<int>(ap), 0, 0});
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_EQ((numbers{1, 0, 0, 0}), with_flag(WPS_FLAG_NONE_SECURITY));
}

TEST_F(precheck, an_access_points_start_is_logged_at_level_7_only)
{
    start(KELM_MODE_AP, 2);
    set_flags({static_cast<int>(ap), static_cast<int>(ap), 0, 0});
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
    kelm_dbg_level = 6;
    EXPECT_EQ(0, kelm_check_wlan_status());
    EXPECT_FALSE(contains(log_text(), "wps session start"));
    set_statuses({0, 0, 0, 0});
    set_flags({static_cast<int>(ap), static_cast<int>(ap), 0, 0});
    kelm_dbg_level = 7;
    EXPECT_EQ(0, kelm_check_wlan_status());
    const std::string log = log_text();
    EXPECT_TRUE(contains(log, "> wps session start [0] [kelm_flags: 0x00000012]\n")) << log;
    EXPECT_TRUE(contains(log, "> wps session start [1] [kelm_flags: 0x00000012]\n")) << log;
    EXPECT_FALSE(contains(log, "factory_mode")) << log;
}

// --- The access points' PIN at start-up ---

namespace {

const std::string cli = "hostapd_cli -p /var/run/hostapd -i ";

struct pin_case {
    const char *pin;
    const char *set;  // what hostapd gets, null: nothing usable
};

const pin_case pin_cases[] = {
    {"12345670", "12345670"},
    {"1234", "1234"},
    {"12345678", nullptr},
    {"123", nullptr},
    {"", nullptr},
    // Eight characters are kept, the rest of the line is not the PIN's.
    {"123456701", "12345670"},
    // Accepted by the check, which looks at leading digits only: they must not reach the shell.
    {"0;ubus x", "'0;ubus x'"},
    {"$(id)", nullptr},
    {";id>", "';id>'"},
    {"`id`", "'`id`'"},
    {"a'b'", "'a'\\''b'\\'''"},
    {"1 2 ", "'1 2 '"},
};

}  // namespace

TEST_F(precheck, the_access_points_get_the_pin_of_the_settings_when_it_is_usable)
{
    for (const pin_case &row : pin_cases) {
        start(KELM_MODE_AP, 2);
        rtk_update_interface();
        write_wps_conf(1, 3, 0, "on", row.pin);
        start_background_wps();
        std::string tail = " wps_ap_pin disable";
        if (row.set != nullptr)
            tail = std::string(" wps_ap_pin set ") + row.set;
        EXPECT_EQ((words{cli + "wlan1" + tail, cli + "wlan0" + tail}), recorded_commands())
            << row.pin;
    }
}

TEST_F(precheck, a_pin_that_is_switched_off_is_taken_from_every_band_unchecked)
{
    for (const char *word : {"off", "ON", "on ", "1"}) {
        start(KELM_MODE_AP, 2);
        rtk_update_interface();
        write_wps_conf(1, 3, 0, word, "12345670");
        (void)log_text();
        start_background_wps();
        EXPECT_EQ((words{cli + "wlan1 wps_ap_pin disable", cli + "wlan0 wps_ap_pin disable"}),
                  recorded_commands())
            << word;
        EXPECT_FALSE(contains(log_text(), "len = ")) << word;
    }
}

TEST_F(precheck, a_pin_goes_to_the_available_bands_alone_and_the_global_switch_does_not_count)
{
    start(KELM_MODE_AP, 5);
    rtk_update_interface();
    write_wps_conf(0, 2 + 8, 0, "on", "12345670");
    start_background_wps();
    EXPECT_EQ((words{cli + "wlan1 wps_ap_pin disable", cli + "wlan0 wps_ap_pin set 12345670",
                     // Without a name of its own such a band's option takes the next word.
                     cli + "wps_ap_pin disable", cli + "wps_ap_pin set 12345670"}),
              recorded_commands());
}

TEST_F(precheck, a_band_that_the_device_lacks_gets_no_pin_command)
{
    start(KELM_MODE_AP, 1);
    rtk_update_interface();
    write_wps_conf(1, 15, 0, "on", "12345670");
    start_background_wps();
    EXPECT_EQ(words{cli + "wlan0 wps_ap_pin set 12345670"}, recorded_commands());
    EXPECT_EQ((numbers{0, 1, 0, 0}), with_flag(WPS_FLAG_NONE_SECURITY));
}

TEST_F(precheck, the_open_access_points_are_noted_when_the_pin_is_set)
{
    start(KELM_MODE_AP, 2);
    write_wps_conf(1, 3, 0, "on", "12345670");
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=0\n");
    start_background_wps();
    EXPECT_EQ((numbers{0, 1, 0, 0}), with_flag(WPS_FLAG_NONE_SECURITY));
}

TEST_F(precheck, the_settings_are_logged_before_the_pin_is_checked)
{
    start(KELM_MODE_AP, 0);
    rtk_update_interface();
    write_wps_conf(1, 1, 2, "on", "12345670");
    write_wifi_conf("");
    start_background_wps();
    EXPECT_EQ(
        "> enabled: 1, apWpsAvailable: 1, staWpsAvailable: 2, pinEnabled: 1, "
        "pinCode:12345670\n\n"
        "> pinCode: 12345670, len = 8\n"
        "> hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set 12345670\n",
        log_text());
}

TEST_F(precheck, missing_settings_take_the_pin_away)
{
    start(KELM_MODE_AP, 0);
    rtk_update_interface();
    start_background_wps();
    EXPECT_EQ(words{cli + "wlan1 wps_ap_pin disable"}, recorded_commands());
}

TEST_F(precheck, outside_access_point_mode_no_pin_is_set_and_nothing_is_read)
{
    for (int mode : {KELM_MODE_REPEATER, 7}) {
        start(mode, 2);
        write_wps_conf(1, 3, 3, "on", "12345670");
        start_background_wps();
        EXPECT_EQ(words{}, recorded_commands());
        EXPECT_EQ("", log_text());
        EXPECT_EQ((numbers{0, 0, 0, 0}), with_flag(WPS_FLAG_NONE_SECURITY));
    }
}

// --- The extra scan ---

TEST_F(precheck, an_extra_scan_names_the_band_and_is_noted)
{
    const char *const names[] = {"2g", "5g", "5g2", "6g"};
    start(KELM_MODE_REPEATER, 5);
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        band(index).wps_flags = sta;
        trigger_over_scan(index);
        EXPECT_EQ(words{std::string("/usr/bin/wifi scan ") + names[index]}, recorded_commands());
        EXPECT_EQ(std::string("> /usr/bin/wifi scan ") + names[index] + "\n", log_text());
        EXPECT_EQ(sta | WPS_FLAG_OVER_SCAN, flags(index));
    }
}

TEST_F(precheck, an_extra_scan_runs_the_program_that_was_chosen)
{
    start(KELM_MODE_REPEATER, 2);
    ASSERT_EQ(0, symlink("/mnt/record", "/tmp/our scan"));
    setenv("KELM_WIFI", "/tmp/our scan", 1);
    kelm_read_switches();
    trigger_over_scan(KELM_BAND_5G);
    unsetenv("KELM_WIFI");
    kelm_read_switches();
    EXPECT_EQ(words{"/tmp/our scan scan 5g"}, recorded_commands());
    EXPECT_EQ("> '/tmp/our scan' scan 5g\n", log_text());
}

TEST_F(precheck, an_extra_scan_without_a_session_runs_nothing)
{
    start(KELM_MODE_REPEATER, 5);
    for (int index : {4, -1})
        trigger_over_scan(index);
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(precheck, lines_of_the_steps_carry_the_name_of_their_operation)
{
    kelm_dbg_level = 7;
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start(mode, 0);
        band(0).wps_flags = sta | ap;
        write_links({0, -1, -1, -1});
        EXPECT_EQ(0, kelm_check_wlan_status());
        EXPECT_TRUE(contains(console_text_without_line_numbers(),
                             "kelm[kelm_check_wlan_status:N]: wps session start [0] "));
    }
    set_run_mode(KELM_MODE_REPEATER);
    clear_tmp();
    EXPECT_EQ(-1, kelm_check_wlan_status());
    EXPECT_TRUE(contains(console_text_without_line_numbers(),
                         "kelm[kelm_check_wlan_status:N]: Get wlan status failed.\n\n"));
}
