// SPDX-License-Identifier: ISC
// Start, cancel, push button and PIN: which commands go out, on which interfaces, and what is left
// untouched.
#include "platform/rtk/control.h"

#include <cstring>
#include <memory>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "config/credentials.h"
#include "core/log.h"
#include "ipc/event_socks.h"
#include "ipc/status_files.h"
#include "platform/rtk/events.h"
#include "tests/unit/ctrl_server.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t enabled_ap = WPS_FLAG_APBSS_ENABLE;
constexpr uint32_t enabled_sta = WPS_FLAG_STABSS_ENABLE;
constexpr int other_mode = 5;

class control : public device_test {
protected:
    // Sessions with their interfaces named and these flags on each band of the device; the
    // settings, which each start request reads again, say the same.
    void start_named(int run_mode, int band_set, uint32_t enable_flag)
    {
        constexpr int all_bands = 15;
        const int ap_bands = (enable_flag & WPS_FLAG_APBSS_ENABLE) != 0 ? all_bands : 0;
        const int sta_bands = (enable_flag & WPS_FLAG_STABSS_ENABLE) != 0 ? all_bands : 0;
        write_wps_conf(1, ap_bands, sta_bands, "off", "");
        write_wifi_conf("");
        start(run_mode, band_set);
        rtk_update_interface();
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_flags = kelm_get_band_inited(index) ? enable_flag : 0;
    }

    // The control sockets of the Wi-Fi daemon on both bands.
    void serve_hostapd() { serve("/var/run/hostapd/wlan1", "/var/run/hostapd/wlan0"); }

    void serve_supplicant()
    {
        serve("/var/run/wpa_supplicant/wlan1-vxd", "/var/run/wpa_supplicant/wlan0-vxd");
    }

    void serve(const char *first, const char *second)
    {
        for (auto &server : servers)
            server.reset();  // before its path is bound anew
        servers[0].reset(new ctrl_server(first));
        servers[1].reset(new ctrl_server(second));
    }

    void write_stations_without_link()
    {
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            write_link(index, "{\"status\": 0}");
    }

    static void write_mesh_switch(const std::string &value)
    {
        write_file("/etc/config/wificommonCfg",
                   "config settings 'settings'\n\toption mesh_enable '" + value + "'\n");
    }

    // The recorded commands without the published events and the two that precede each push.
    static words wps_commands()
    {
        words found;
        for (const std::string &line : recorded_commands()) {
            if (line.compare(0, 4, "ubus") != 0 && line != "killall wpa_cli" &&
                line != "nvram get multiap_mode")
                found.push_back(line);
        }
        return found;
    }

    static wps_listen_event_t button()
    {
        wps_listen_event_t event = {};
        event.code = 4;
        return event;
    }

    static wps_listen_event_t wps_cli(uint32_t action, uint32_t method, const std::string &pin = "")
    {
        wps_listen_event_t event = {};
        event.code = 10;
        event.action = action;
        event.method = method;
        memcpy(event.pin, pin.data(), pin.size());
        return event;
    }

    std::unique_ptr<ctrl_server> servers[2];
};

const words no_commands;

struct multi_ap_case {
    const char *mesh_enable;  // null: no such option
    const char *nvram;        // what the nvram program does
    const char *word;
};

const multi_ap_case multi_ap_cases[] = {
    {"on", "echo 1", "multi_ap=2"},
    {"on", "echo 0", "multi_ap=2"},
    {"on", "", "multi_ap=2"},
    {"off", "echo 1", "multi_ap=1"},
    {"off", "echo ' 01 '", "multi_ap=1"},
    {"off", "echo 0", ""},
    {"off", "echo 2", ""},
    {"off", "echo 11", ""},
    {"off", "echo yes", ""},
    {"off", "", ""},
    {nullptr, "echo 1", "multi_ap=1"},
    {nullptr, "echo 0", ""},
    {"ON", "echo 0", ""},
};

struct pin_case {
    const char *pin;
    const char *word;  // as the shell must write it
    const char *seen;  // as the record shows what the program got
};

// What a program gets must be one word that is the PIN itself. Whatever runs if it is not quoted
// stays in this world: the stand-in for ubus, a file in "/tmp".
const pin_case pins[] = {
    {"12345670", "12345670", "12345670"},
    {"1234", "1234", "1234"},
    {";ubus x;", "';ubus x;'", "';ubus x;'"},
    {"$(ubus)x", "'$(ubus)x'", "'$(ubus)x'"},
    {"`ubus`;x", "'`ubus`;x'", "'`ubus`;x'"},
    {"1 2  3 4", "'1 2  3 4'", "'1 2  3 4'"},
    {"a'b'c'd'", "'a'\\''b'\\''c'\\''d'\\'''", "'a'\\''b'\\''c'\\''d'\\'''"},
    {"''''''''", "''\\'''\\'''\\'''\\'''\\'''\\'''\\'''\\'''",
     "''\\'''\\'''\\'''\\'''\\'''\\'''\\'''\\'''"},
    {"1\\2\"3&|4", "'1\\2\"3&|4'", "'1\\\\2\"3&|4'"},
    {"12\n34567", "'12\n34567'", "'12\\n34567'"},
    {"*?[a]~#!", "'*?[a]~#!'", "'*?[a]~#!'"},
    {";>/tmp/x", "';>/tmp/x'", "';>/tmp/x'"},
    {"<x{a,b}&", "'<x{a,b}&'", "'<x{a,b}&'"},
    {"1234\t670", "'1234\t670'", "'1234\t670'"},
    {"\xc3\xa4\xff\x01~~~~", "'\xc3\xa4\xff\x01~~~~'", "'\xc3\xa4\xff\x01~~~~'"},
};

}  // namespace

// --- Names ---

TEST_F(control, only_the_first_three_bands_have_a_name_in_the_log)
{
    EXPECT_STREQ("2.4G", rtk_band_name(0));
    EXPECT_STREQ("5G", rtk_band_name(1));
    EXPECT_STREQ("5G2", rtk_band_name(2));
    for (int index : {3, 4, 5, 99, -1, -2147483647 - 1, 2147483647})
        EXPECT_STREQ("", rtk_band_name(index)) << index;
}

TEST_F(control, the_2g_band_is_wlan1_and_the_5g_band_wlan0_and_the_others_have_no_interface)
{
    start(KELM_MODE_AP, 5);
    rtk_update_interface();
    EXPECT_STREQ("wlan1", band(0).ifName);
    EXPECT_STREQ("wlan0", band(1).ifName);
    EXPECT_STREQ("", band(2).ifName);
    EXPECT_STREQ("", band(3).ifName);
}

TEST_F(control, a_repeaters_interfaces_have_a_suffix_which_stands_alone_for_the_upper_bands)
{
    for (int mode : {KELM_MODE_REPEATER, other_mode, -1}) {
        start(mode, 5);
        rtk_update_interface();
        EXPECT_STREQ("wlan1-vxd", band(0).ifName) << mode;
        EXPECT_STREQ("wlan0-vxd", band(1).ifName) << mode;
        EXPECT_STREQ("-vxd", band(2).ifName) << mode;
        EXPECT_STREQ("-vxd", band(3).ifName) << mode;
    }
}

TEST_F(control, a_band_that_the_device_lacks_keeps_its_empty_name)
{
    start(KELM_MODE_REPEATER, 0);
    rtk_update_interface();
    EXPECT_STREQ("wlan1-vxd", band(0).ifName);
    for (int index : {1, 2, 3})
        EXPECT_STREQ("", band(index).ifName) << index;
}

// --- The access points' own PIN ---

TEST_F(control, an_access_points_pin_is_set_and_taken_away)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    EXPECT_EQ(0, rtk_set_ap_pin(0, "12345670"));
    EXPECT_EQ(0, rtk_set_ap_pin(1, nullptr));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set 12345670",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_ap_pin disable"}),
              recorded_commands());
    EXPECT_EQ(
        "> hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set 12345670\n"
        "> hostapd_cli -p /var/run/hostapd -i wlan0 wps_ap_pin disable\n",
        log_text());
}

TEST_F(control, an_access_points_pin_on_a_band_without_a_session_runs_nothing)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    for (int index : {4, 5, -1}) {
        EXPECT_EQ(0, rtk_set_ap_pin(index, "12345670"));
        EXPECT_EQ(0, rtk_set_ap_pin(index, nullptr));
    }
    EXPECT_EQ(no_commands, recorded_commands());
    EXPECT_EQ("", log_text());
}

TEST_F(control, no_character_of_an_access_points_pin_reaches_the_shell)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    for (const pin_case &row : pins) {
        EXPECT_EQ(0, rtk_set_ap_pin(1, row.pin));
        const std::string line = "hostapd_cli -p /var/run/hostapd -i wlan0 wps_ap_pin set ";
        EXPECT_EQ(words{line + row.seen}, recorded_commands()) << row.pin;
        EXPECT_EQ("> " + line + row.word + "\n", log_text()) << row.pin;
    }
}

// --- Starting: refusals ---

TEST_F(control, a_start_while_one_runs_is_refused_and_changes_nothing)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    write_file(WPS_STA_FILE_MESH, "{}");
    write_file(WPS_AP_FILE_MESH, "{}");
    kelm_flag = KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART;
    kelm_session before[KELM_BAND_COUNT];
    memcpy(before, global_wps_sessions, sizeof before);

    for (int method : {1, 2, 7})
        EXPECT_EQ(-1, rtk_wps_start(method, "12345670"));
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, rtk_wps_start(1, nullptr));
    EXPECT_EQ("> WPS is processing, ignore button press....\n\n", log_text());

    EXPECT_EQ(no_commands, recorded_commands());
    EXPECT_TRUE(file_exists(WPS_STA_FILE_MESH));
    EXPECT_TRUE(file_exists(WPS_AP_FILE_MESH));
    EXPECT_FALSE(file_exists("/tmp/wpsactive"));
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
    EXPECT_EQ(0, memcmp(before, global_wps_sessions, sizeof before));
}

TEST_F(control, a_start_removes_the_files_of_an_earlier_mesh_attempt_and_no_others)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    write_file("/tmp/_wps_wifi_sta.txt", "{}");
    write_file("/tmp/_wps_wifi_ap.txt", "{}");
    write_file("/tmp/wps_wifi_sta.txt", "{}");
    write_file("/tmp/wps_wifi_ap.txt", "{}");
    EXPECT_EQ(0, rtk_wps_start(1, nullptr));
    EXPECT_EQ(words{"wps_wifi_sta.txt"}, files_in_tmp("wps_wifi_sta"));
    EXPECT_EQ(words{"wps_wifi_ap.txt"}, files_in_tmp("wps_wifi_ap"));
    EXPECT_EQ(words{}, files_in_tmp("_wps_wifi"));
}

TEST_F(control, what_is_there_is_removed_the_stations_file_first)
{
    const struct {
        words there;
        const char *removed;
    } rows[] = {
        {{"/tmp/_wps_wifi_ap.txt"}, "/tmp/_wps_wifi_ap.txt\n"},
        {{"/tmp/_wps_wifi_sta.txt"}, "/tmp/_wps_wifi_sta.txt\n"},
        {{"/tmp/_wps_wifi_ap.txt", "/tmp/_wps_wifi_sta.txt"},
         "/tmp/_wps_wifi_sta.txt\n/tmp/_wps_wifi_ap.txt\n"},
        {{}, ""},
    };
    for (const auto &row : rows) {
        reset_world();
        start_named(KELM_MODE_AP, 2, enabled_ap);
        write_file("/mnt/bin/rm", "#!/bin/sh\necho \"$@\" >>/tmp/removed\nexec /bin/rm \"$@\"\n");
        ASSERT_EQ(0, chmod("/mnt/bin/rm", 0755));
        for (const std::string &path : row.there)
            write_file(path, "{}");
        EXPECT_EQ(0, rtk_wps_start(1, nullptr));
        unlink("/mnt/bin/rm");
        EXPECT_EQ(row.removed, read_file("/tmp/removed"));
    }
}

TEST_F(control, a_start_that_the_precheck_refuses_issues_no_command_but_has_removed_the_files)
{
    for (int method : {1, 2}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        write_file(WPS_STA_FILE_MESH, "{}");
        write_file("/tmp/wifid_is_starting", "");
        EXPECT_EQ(-1, rtk_wps_start(method, "12345670")) << method;
        EXPECT_EQ(no_commands, recorded_commands()) << method;
        EXPECT_EQ(0u, kelm_flag) << method;
        EXPECT_FALSE(file_exists("/tmp/wpsactive")) << method;
        EXPECT_FALSE(file_exists(WPS_STA_FILE_MESH)) << method;
    }
}

TEST_F(control, an_unknown_method_is_refused_at_any_log_level)
{
    kelm_dbg_level = 0;
    for (int method : {0, 3, -1, 255}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        EXPECT_EQ(-1, rtk_wps_start(method, "12345670"));
        EXPECT_EQ("> Invalid wps method.\n\n", log_text());
        EXPECT_EQ(no_commands, recorded_commands());
        EXPECT_EQ(0, status(0));
    }
}

// --- Push button ---

TEST_F(control, a_push_on_an_access_point_opens_every_enabled_band)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
    EXPECT_EQ(0, rtk_wps_start(1, nullptr));
    EXPECT_EQ((words{"ubus send wps '{\"action\":1,\"2g_status\":11,\"5g_status\":11,"
                     "\"5g2_status\":0}'",
                     "killall wpa_cli", "nvram get multiap_mode",
                     "hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc"}),
              recorded_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_EQ("1\n", read_file("/tmp/wpsactive"));
}

// Programs that wait for the mark may then ask hostapd.
TEST_F(control, a_push_is_marked_as_alive_when_the_last_band_is_open)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
    set_reply("hostapd_cli",
              "[ -e /tmp/wpsactive ] && echo alive >>/tmp/seen || "
              "echo not yet >>/tmp/seen\n");
    EXPECT_EQ(0, rtk_wps_start(1, nullptr));
    EXPECT_EQ("not yet\nnot yet\n", read_file("/tmp/seen"));
    EXPECT_EQ("1\n", read_file("/tmp/wpsactive"));
}

TEST_F(control, a_push_is_logged_band_by_band)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    rtk_pbc_handle();
    EXPECT_EQ(
        "> start wps band 0[wlan1]\n"
        "> hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc\n"
        "> start wps band 1[wlan0]\n"
        "> hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc\n",
        log_text());
}

TEST_F(control, a_silent_band_is_not_pushed_and_alone_starts_nothing)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    band(0).wps_status = WPS_STATUS_SILENT;
    rtk_pbc_handle();
    EXPECT_EQ(words{"hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc"}, wps_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);

    kelm_flag = 0;
    band(1).wps_status = WPS_STATUS_SILENT;
    (void)log_text();
    rtk_pbc_handle();
    EXPECT_EQ((words{"killall wpa_cli", "nvram get multiap_mode"}), recorded_commands());
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ("", log_text());
}

TEST_F(control, a_push_with_every_band_silent_leaves_the_alive_mark_though_nothing_runs)
{
    start_named(KELM_MODE_AP, 2, 0);
    EXPECT_EQ(0, rtk_wps_start(1, nullptr));
    EXPECT_EQ(no_commands, wps_commands());
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ("1\n", read_file("/tmp/wpsactive"));
}

TEST_F(control, a_band_that_the_device_lacks_is_not_pushed)
{
    start_named(KELM_MODE_AP, 1, enabled_ap);
    rtk_pbc_handle();
    EXPECT_EQ(words{"hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc"}, wps_commands());
}

TEST_F(control, a_repeaters_push_tells_easymesh_first_and_multi_ap_second)
{
    for (const multi_ap_case &row : multi_ap_cases) {
        const std::string name =
            std::string(row.mesh_enable ? row.mesh_enable : "none") + ", " + row.nvram;
        reset_world();
        start_named(KELM_MODE_REPEATER, 2, enabled_sta);
        if (row.mesh_enable != nullptr)
            write_mesh_switch(row.mesh_enable);
        set_reply("nvram", row.nvram);
        rtk_pbc_handle();
        const std::string tail = std::string(" wps_pbc ") + row.word;
        const std::string first = "wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd" + tail;
        const std::string second = "wpa_cli -p /var/run/wpa_supplicant -i wlan0-vxd" + tail;
        const std::string log = log_text();
        EXPECT_TRUE(contains(log, "> " + first + "\n")) << name << ": " << log;
        EXPECT_TRUE(contains(log, "> " + second + "\n")) << name << ": " << log;
        EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    }
}

TEST_F(control, a_repeaters_push_without_mesh_is_a_line_that_ends_in_a_blank)
{
    start_named(KELM_MODE_REPEATER, 0, enabled_sta);
    write_mesh_switch("off");
    set_reply("nvram", "echo 0");
    rtk_pbc_handle();
    EXPECT_EQ(
        "> start wps band 0[wlan1-vxd]\n"
        "> wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc \n",
        log_text());
    EXPECT_EQ((words{"killall wpa_cli", "nvram get multiap_mode",
                     "wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc"}),
              recorded_commands());
}

TEST_F(control, easymesh_wins_over_multi_ap)
{
    start_named(KELM_MODE_REPEATER, 0, enabled_sta);
    write_mesh_switch("on");
    set_reply("nvram", "echo 1");
    rtk_pbc_handle();
    EXPECT_EQ(words{"wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc multi_ap=2"},
              wps_commands());
}

TEST_F(control, a_multi_ap_mode_without_line_feed_loses_its_digit_and_reads_as_off)
{
    start_named(KELM_MODE_REPEATER, 0, enabled_sta);
    write_mesh_switch("off");
    set_reply("nvram", "printf 1");
    rtk_pbc_handle();
    EXPECT_EQ(words{"wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc"}, wps_commands());
}

TEST_F(control, a_multi_ap_mode_that_cannot_be_asked_for_reads_as_off)
{
    start_named(KELM_MODE_REPEATER, 0, enabled_sta);
    write_mesh_switch("off");
    kelm_dbg_level = 7;
    fail_next("pipe2", {EMFILE});
    rtk_pbc_handle();
    EXPECT_EQ(words{"wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc"}, wps_commands());
    const std::string log = log_text();
    EXPECT_TRUE(contains(log, "> popen() fail\n\n> multiap_mode = 0\n\n")) << log;
}

TEST_F(control, the_multi_ap_mode_is_told_at_level_7_in_either_run_mode)
{
    set_reply("nvram", "echo 3");
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start_named(mode, 2, 0);
        kelm_dbg_level = 6;
        rtk_pbc_handle();
        EXPECT_FALSE(contains(log_text(), "multiap_mode"));
        kelm_dbg_level = 7;
        rtk_pbc_handle();
        EXPECT_TRUE(contains(log_text(), "> multiap_mode = 3\n\n"));
    }
}

TEST_F(control, a_band_that_mirrors_is_scanned_instead_of_pushed_and_still_counts_as_running)
{
    start_named(KELM_MODE_REPEATER, 5, enabled_sta);
    for (int index : {0, 1, 2})
        band(index).wps_status = WPS_STATUS_SILENT;
    band(3).wps_flags |= WPS_FLAG_STAWPS_FAKEUP;
    rtk_pbc_handle();
    EXPECT_EQ(words{"/usr/bin/wifi scan 6g"}, wps_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_EQ(enabled_sta | WPS_FLAG_STAWPS_FAKEUP | WPS_FLAG_OVER_SCAN, flags(3));
}

TEST_F(control, a_band_that_mirrors_is_scanned_once_only)
{
    start_named(KELM_MODE_REPEATER, 5, enabled_sta);
    for (int index : {0, 1, 2})
        band(index).wps_status = WPS_STATUS_SILENT;
    band(3).wps_flags |= WPS_FLAG_STAWPS_FAKEUP | WPS_FLAG_OVER_SCAN;
    rtk_pbc_handle();
    EXPECT_EQ(no_commands, wps_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_TRUE(contains(log_text(), "> start wps band 3[-vxd]\n"));
}

TEST_F(control, a_push_in_an_unknown_run_mode_complains_for_each_band_and_counts_as_running)
{
    start_named(other_mode, 5, enabled_sta);
    kelm_dbg_level = 0;
    rtk_pbc_handle();
    EXPECT_EQ(
        "> 2.4G invalid run mode or bss is disabled.\n\n"
        "> 5G invalid run mode or bss is disabled.\n\n"
        "> 5G2 invalid run mode or bss is disabled.\n\n"
        ">  invalid run mode or bss is disabled.\n\n",
        log_text());
    EXPECT_EQ(no_commands, wps_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
}

// --- PIN ---

TEST_F(control, a_pin_on_an_access_point_goes_to_every_enabled_band)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    EXPECT_EQ(0, rtk_wps_start(2, "12345670"));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_pin any 12345670"}),
              wps_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_TRUE(contains(log_text(), "> IBUS_WPS_METHOD_PIN \n\n"));
}

TEST_F(control, a_pin_leaves_no_alive_mark)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    EXPECT_EQ(0, rtk_wps_start(2, "12345670"));
    EXPECT_FALSE(file_exists("/tmp/wpsactive"));
}

TEST_F(control, a_pin_start_neither_ends_wpa_cli_nor_asks_for_the_multi_ap_mode)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    EXPECT_EQ(0, rtk_wps_start(2, "12345670"));
    EXPECT_EQ((words{"ubus send wps '{\"action\":1,\"2g_status\":11,\"5g_status\":0,"
                     "\"5g2_status\":0}'",
                     "hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670"}),
              recorded_commands());
}

TEST_F(control, a_pin_goes_to_no_disabled_band)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    band(0).wps_flags = 0;
    rtk_pin_handle("12345670");
    EXPECT_EQ(words{"hostapd_cli -p /var/run/hostapd -i wlan0 wps_pin any 12345670"},
              wps_commands());
    band(1).wps_flags = enabled_sta;
    kelm_flag = 0;
    rtk_pin_handle("12345670");
    EXPECT_EQ(no_commands, wps_commands());
    EXPECT_EQ(0u, kelm_flag);
}

TEST_F(control, a_pin_goes_to_a_silent_band_too_since_only_the_switch_counts)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    band(0).wps_status = WPS_STATUS_SILENT;
    rtk_pin_handle("12345670");
    EXPECT_EQ(2u, wps_commands().size());
}

TEST_F(control, a_pin_on_a_repeater_succeeds_and_issues_nothing)
{
    start_named(KELM_MODE_REPEATER, 2, enabled_sta);
    write_stations_without_link();
    EXPECT_EQ(0, rtk_wps_start(2, "12345670"));
    EXPECT_EQ(words{"ubus send wps '{\"action\":1,\"2g_status\":11,\"5g_status\":11,"
                    "\"5g2_status\":0}'"},
              recorded_commands());
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_FALSE(file_exists("/tmp/wpsactive"));
}

TEST_F(control, no_character_of_a_clients_pin_reaches_the_shell)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    for (const pin_case &row : pins) {
        rtk_pin_handle(row.pin);
        const std::string line = "hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any ";
        EXPECT_EQ(words{line + row.seen}, recorded_commands()) << row.pin;
        EXPECT_EQ("> " + line + row.word + "\n", log_text()) << row.pin;
    }
    EXPECT_FALSE(file_exists("/tmp/x"));
}

// --- Cancel and the end of the workers ---

TEST_F(control, a_cancel_on_an_access_point_ends_the_launched_bands_and_publishes_which)
{
    start_named(KELM_MODE_AP, 3, enabled_ap);
    band(1).wps_flags |= WPS_FLAG_WORKER_LAUNCH;
    kelm_flag = KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_TERMINATE;
    EXPECT_EQ(static_cast<int>(KELM_GFLAG_TERMINATE), rtk_wps_cancel());
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan0 wps_cancel",
                     "ubus send wps '{\"action\":2,\"2g_status\":0,\"5g_status\":12,"
                     "\"5g2_status\":0}'"}),
              recorded_commands());
    EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
}

TEST_F(control, a_cancel_changes_no_status_and_no_flag_of_a_band)
{
    start_named(KELM_MODE_AP, 2, enabled_ap | WPS_FLAG_WORKER_LAUNCH);
    band(0).wps_status = WPS_STATUS_STARTED;
    band(1).wps_flags |= WPS_FLAG_WORKER_DONE;
    rtk_wps_cancel();
    EXPECT_EQ(WPS_STATUS_STARTED, status(0));
    EXPECT_EQ(enabled_ap | WPS_FLAG_WORKER_LAUNCH, flags(0));
    EXPECT_EQ(enabled_ap | WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE, flags(1));
    EXPECT_EQ(2u, wps_commands().size());  // a worker that is done is cancelled again
}

TEST_F(control, a_cancel_on_a_repeater_ends_its_stations_and_publishes_nothing)
{
    start_named(KELM_MODE_REPEATER, 2, enabled_sta | WPS_FLAG_WORKER_LAUNCH);
    kelm_flag = KELM_GFLAG_WPS_RUNNING;
    EXPECT_EQ(0, rtk_wps_cancel());
    EXPECT_EQ((words{"wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_cancel",
                     "wpa_cli -p /var/run/wpa_supplicant -i wlan0-vxd wps_cancel"}),
              recorded_commands());
    EXPECT_EQ(
        "> wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_cancel\n"
        "> wpa_cli -p /var/run/wpa_supplicant -i wlan0-vxd wps_cancel\n"
        "> In rtk_wps_cancel, do not need to send message IBUS_WPS_ACTION_DONE in RE mode, skip "
        "it\n",
        log_text());
    EXPECT_EQ(0u, kelm_flag);
}

TEST_F(control, a_cancel_with_nothing_launched_still_publishes_on_an_access_point)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    EXPECT_EQ(0, rtk_wps_cancel());
    EXPECT_EQ(words{"ubus send wps '{\"action\":2,\"2g_status\":0,\"5g_status\":0,"
                    "\"5g2_status\":0}'"},
              recorded_commands());
}

TEST_F(control, a_cancel_in_an_unknown_run_mode_goes_to_the_stations_and_is_published)
{
    start_named(other_mode, 0, WPS_FLAG_WORKER_LAUNCH);
    rtk_wps_cancel();
    EXPECT_EQ((words{"wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_cancel",
                     "ubus send wps '{\"action\":2,\"2g_status\":12,\"5g_status\":0,"
                     "\"5g2_status\":0}'"}),
              recorded_commands());
}

TEST_F(control, the_end_of_the_workers_touches_only_enabled_bands_that_still_run)
{
    constexpr uint32_t launched = WPS_FLAG_WORKER_LAUNCH;
    constexpr uint32_t done = WPS_FLAG_WORKER_DONE;
    const uint32_t before[] = {enabled_ap | launched, launched, enabled_ap | launched | done,
                               enabled_ap};
    const uint32_t after[] = {enabled_ap | launched | done, launched, enabled_ap | launched | done,
                              enabled_ap};
    const int statuses[] = {WPS_STATUS_IDLE, WPS_STATUS_STARTED, WPS_STATUS_STARTED,
                            WPS_STATUS_STARTED};
    start_named(KELM_MODE_AP, 5, 0);
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        band(index).wps_status = WPS_STATUS_STARTED;
        band(index).wps_flags = before[index];
    }
    rtk_kill_wpas();
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        EXPECT_EQ(after[index], flags(index)) << index;
        EXPECT_EQ(statuses[index], status(index)) << index;
    }
    EXPECT_EQ(no_commands, recorded_commands());
    EXPECT_EQ(
        "> stop wps action.\n\n"
        "> wps session done [band 0] [kelm_flags: 0x00000012].\n",
        log_text());
}

// --- Requests from the bus ---

TEST_F(control, a_button_press_rebuilds_the_sockets_resets_the_result_and_starts)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    const wps_listen_event_t event = button();
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    for (const auto &server : servers)
        EXPECT_EQ(words{"ATTACH"}, server->commands());
    EXPECT_EQ("-1\n", read_file("/tmp/wps_result"));
    EXPECT_EQ(2u, wps_commands().size());
    EXPECT_EQ("1\n", read_file("/tmp/wpsactive"));
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    const std::string log = log_text();
    EXPECT_EQ(0u, log.find("> ibus event: 4\n")) << log;
}

TEST_F(control, a_second_press_while_running_logs_that_and_changes_nothing)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    const wps_listen_event_t event = button();
    ASSERT_EQ(0, rtk_process_ibus_msg(&event));
    (void)recorded_commands();
    kelm_session before[KELM_BAND_COUNT];
    memcpy(before, global_wps_sessions, sizeof before);

    kelm_dbg_level = 7;
    EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
    EXPECT_TRUE(contains(log_text(), "> WPS is processing, ignore button press....\n\n"));
    EXPECT_EQ(no_commands, recorded_commands());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_EQ(0, memcmp(before, global_wps_sessions, sizeof before));
    EXPECT_EQ("-1\n", read_file("/tmp/wps_result"));
}

TEST_F(control, a_request_while_an_attempt_runs_leaves_its_sockets_and_what_waits_in_them)
{
    for (const wps_listen_event_t &event : {button(), wps_cli(1, 1), wps_cli(1, 2, "12345670")}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        serve_hostapd();
        const wps_listen_event_t press = button();
        ASSERT_EQ(0, rtk_process_ibus_msg(&press));
        for (const auto &server : servers)
            ASSERT_EQ(words{"ATTACH"}, server->commands());
        kelm_sock_entry before[KELM_BAND_COUNT];
        memcpy(before, kelm_worker_socks, sizeof before);
        const kelm_sock_entry *const list = kelm_sock_list;
        servers[1]->send_event("<3>WPS-REG-SUCCESS");

        (void)rtk_process_ibus_msg(&event);
        for (const auto &server : servers)
            EXPECT_EQ(words{}, server->commands());
        EXPECT_EQ(0, memcmp(before, kelm_worker_socks, sizeof before));
        EXPECT_EQ(list, kelm_sock_list);
        char text[32] = {};
        EXPECT_EQ(18, recv(kelm_worker_socks[1].fd, text, sizeof text, MSG_DONTWAIT));
        EXPECT_STREQ("<3>WPS-REG-SUCCESS", text);
    }
}

TEST_F(control, a_request_while_a_wifi_daemon_is_away_does_not_forget_the_running_attempt)
{
    for (const wps_listen_event_t &event : {button(), wps_cli(1, 1), wps_cli(1, 2, "12345670")}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        serve_hostapd();
        const wps_listen_event_t press = button();
        ASSERT_EQ(0, rtk_process_ibus_msg(&press));
        servers[0].reset();
        (void)recorded_commands();
        kelm_session before[KELM_BAND_COUNT];
        memcpy(before, global_wps_sessions, sizeof before);
        kelm_dbg_level = 7;
        (void)log_text();
        (void)rtk_process_ibus_msg(&event);
        const std::string log = log_text();
        EXPECT_TRUE(contains(log, "> WPS is processing, ignore button press....\n\n")) << log;
        EXPECT_FALSE(contains(log, "Rebuild worker socket failed")) << log;
        EXPECT_EQ(no_commands, recorded_commands());
        EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
        EXPECT_EQ(0, memcmp(before, global_wps_sessions, sizeof before));
    }
}

TEST_F(control, each_start_rebuilds_the_sockets_and_leaks_none)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    const wps_listen_event_t event = button();
    ASSERT_EQ(0, rtk_process_ibus_msg(&event));
    const size_t before = open_descriptors();
    (void)servers[0]->commands();
    kelm_flag = 0;  // the attempt has ended
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ((words{"DETACH", "ATTACH"}), servers[0]->commands());
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(2u, files_in_tmp("wpa_ctrl_").size());
    size_t listed = 0;
    for (const kelm_sock_entry *entry = kelm_sock_list; entry != nullptr; entry = entry->next)
        ++listed;
    EXPECT_EQ(2u, listed);
}

TEST_F(control, a_request_without_a_wifi_daemon_cleans_the_work_space_and_fails)
{
    for (const wps_listen_event_t &event : {button(), wps_cli(1, 1), wps_cli(1, 2, "12345670")}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        band(0).wps_status = WPS_STATUS_TIMEOUT;
        kelm_flag = KELM_GFLAG_WIFI_RESTART;
        dirty = 3;
        EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
        EXPECT_TRUE(contains(log_text(), "> Rebuild worker socket failed.\n\n"));
        EXPECT_EQ(no_commands, recorded_commands());
        EXPECT_EQ(WPS_STATUS_IDLE, status(0));
        EXPECT_EQ(0u, flags(0));
        EXPECT_EQ(0u, kelm_flag);
        EXPECT_EQ(0u, dirty);
        EXPECT_FALSE(file_exists("/tmp/wps_result"));
    }
}

TEST_F(control, a_failed_rebuild_is_told_at_any_log_level)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    kelm_dbg_level = 0;
    const wps_listen_event_t event = button();
    EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
    EXPECT_EQ("> Can't open event ctrl\n> Rebuild worker socket failed.\n\n", log_text());
}

TEST_F(control, a_request_follows_settings_that_have_changed_since_the_start)
{
    for (const wps_listen_event_t &event : {button(), wps_cli(1, 1), wps_cli(1, 2, "12345670")}) {
        start_named(KELM_MODE_AP, 2, enabled_ap);
        serve_hostapd();
        write_wps_conf(1, 2, 0, "off", "");
        EXPECT_EQ(0, rtk_process_ibus_msg(&event));
        EXPECT_EQ(words{}, servers[0]->commands());
        EXPECT_EQ(words{"ATTACH"}, servers[1]->commands());
        const words commands = wps_commands();
        ASSERT_EQ(1u, commands.size());
        EXPECT_TRUE(contains(commands[0], " -i wlan0 wps_p")) << commands[0];
        EXPECT_EQ(WPS_STATUS_SILENT, status(0));
    }
}

TEST_F(control, a_request_while_an_attempt_runs_does_not_follow_changed_settings)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    kelm_flag = KELM_GFLAG_WPS_RUNNING;
    write_wps_conf(0, 0, 0, "off", "");
    const wps_listen_event_t event = button();
    EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
    EXPECT_EQ(enabled_ap, flags(0));
    EXPECT_EQ(enabled_ap, flags(1));
}

TEST_F(control, a_press_after_a_failed_rebuild_works_again_once_the_daemon_is_back)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    const wps_listen_event_t event = button();
    EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
    serve_hostapd();
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc"}),
              wps_commands());
}

TEST_F(control, a_push_from_the_command_line_starts_like_the_button)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    const wps_listen_event_t event = wps_cli(1, 1);
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ("-1\n", read_file("/tmp/wps_result"));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc"}),
              wps_commands());
    EXPECT_EQ("1\n", read_file("/tmp/wpsactive"));
}

TEST_F(control, a_pin_from_the_command_line_leaves_the_result_file_as_it_is)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    write_file("/tmp/wps_result", "earlier\n");
    const wps_listen_event_t event = wps_cli(1, 2, "12345670");
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ("earlier\n", read_file("/tmp/wps_result"));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_pin any 12345670"}),
              wps_commands());
}

TEST_F(control, a_pin_ends_after_its_eight_characters_whatever_follows_it)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    serve_hostapd();
    wps_listen_event_t event = wps_cli(1, 2, "12345670");
    memset(event.reserved, '9', sizeof event.reserved);
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ(words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670"},
              wps_commands());
}

TEST_F(control, a_hostile_pin_from_the_bus_is_one_word_of_the_command)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    serve_hostapd();
    for (const pin_case &row : pins) {
        kelm_flag = 0;
        const wps_listen_event_t event = wps_cli(1, 2, row.pin);
        EXPECT_EQ(0, rtk_process_ibus_msg(&event));
        EXPECT_EQ((words{"ubus send wps '{\"action\":1,\"2g_status\":11,\"5g_status\":0,"
                         "\"5g2_status\":0}'",
                         std::string("hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any ") +
                             row.seen}),
                  recorded_commands())
            << row.pin;
    }
    EXPECT_FALSE(file_exists("/tmp/x"));
}

TEST_F(control, a_pin_that_begins_with_a_dash_is_no_option_of_the_program)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    const std::string line = "hostapd_cli -p /var/run/hostapd -i wlan1 -- ";
    for (const std::string pin : {"-a/tmp/x", "-B", "--", "-"}) {
        rtk_pin_handle(pin.c_str());
        EXPECT_EQ(words{line + "wps_pin any " + pin}, recorded_commands());
        EXPECT_EQ(0, rtk_set_ap_pin(0, pin.c_str()));
        EXPECT_EQ(words{line + "wps_ap_pin set " + pin}, recorded_commands());
    }
}

TEST_F(control, a_pin_too_long_for_a_command_line_is_taken_to_no_program)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    for (const std::string &pin : {std::string(51, '1'), std::string(13, ';')}) {
        rtk_pin_handle(pin.c_str());
        EXPECT_EQ(0, rtk_set_ap_pin(0, pin.c_str()));
        EXPECT_EQ(words{}, recorded_commands()) << pin;
    }
    rtk_pin_handle(std::string(50, '1').c_str());
    EXPECT_EQ(1u, recorded_commands().size()) << "the longest that fits";
}

TEST_F(control, a_dash_within_a_pin_leaves_the_command_line_as_it_is)
{
    start_named(KELM_MODE_AP, 0, enabled_ap);
    rtk_pin_handle("1234-670");
    EXPECT_EQ(words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 1234-670"},
              recorded_commands());
}

TEST_F(control, an_unknown_method_from_the_command_line_rebuilds_the_sockets_and_no_more)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    const wps_listen_event_t event = wps_cli(1, 3);
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ(words{"ATTACH"}, servers[0]->commands());
    EXPECT_EQ(no_commands, recorded_commands());
    EXPECT_FALSE(file_exists("/tmp/wps_result"));
    EXPECT_FALSE(contains(log_text(), "Invalid"));
}

TEST_F(control, a_refused_start_is_told_to_the_button_but_not_to_the_command_line)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    write_file("/tmp/wifid_is_starting", "");
    const wps_listen_event_t press = button();
    const wps_listen_event_t push = wps_cli(1, 1);
    const wps_listen_event_t pin = wps_cli(1, 2, "12345670");
    EXPECT_EQ(-1, rtk_process_ibus_msg(&press));
    EXPECT_EQ(0, rtk_process_ibus_msg(&push));
    EXPECT_EQ(0, rtk_process_ibus_msg(&pin));
    EXPECT_EQ(no_commands, wps_commands());
}

TEST_F(control, a_cancel_from_the_command_line_cancels_and_ends_the_workers)
{
    start_named(KELM_MODE_AP, 2, enabled_ap | WPS_FLAG_WORKER_LAUNCH);
    band(0).wps_status = WPS_STATUS_STARTED;
    band(1).wps_status = WPS_STATUS_STARTED;
    kelm_flag = KELM_GFLAG_WPS_RUNNING;
    const wps_listen_event_t event = wps_cli(2, 1);
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_cancel",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_cancel",
                     "ubus send wps '{\"action\":2,\"2g_status\":12,\"5g_status\":12,"
                     "\"5g2_status\":0}'"}),
              recorded_commands());
    EXPECT_EQ(0u, kelm_flag);
    for (int index : {0, 1}) {
        EXPECT_EQ(WPS_STATUS_IDLE, status(index));
        EXPECT_EQ(enabled_ap | WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE, flags(index));
    }
}

TEST_F(control, a_push_after_a_cancel_starts_an_attempt_of_which_nothing_has_ended)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    serve_hostapd();
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=1\n");
    const wps_listen_event_t press = button();
    const wps_listen_event_t cancel = wps_cli(2, 1);
    ASSERT_EQ(0, rtk_process_ibus_msg(&press));
    ASSERT_EQ(0, rtk_process_ibus_msg(&cancel));
    EXPECT_EQ(0, rtk_process_ibus_msg(&press));
    for (int index : {0, 1}) {
        EXPECT_EQ(WPS_STATUS_STARTED, status(index));
        EXPECT_EQ(enabled_ap | WPS_FLAG_WORKER_LAUNCH, flags(index));
    }
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
}

// A repeater's band writes its success at once; the attempt may be withdrawn while another runs.
TEST_F(control, after_a_cancel_the_next_result_counts_though_the_one_before_was_a_success)
{
    start_named(KELM_MODE_REPEATER, 2, enabled_sta);
    kelm_update_wps_result_file(1);
    kelm_update_wps_result_file(-1);
    EXPECT_EQ("1\n", read_file("/tmp/wps_result"));
    const wps_listen_event_t cancel = wps_cli(2, 1);
    EXPECT_EQ(0, rtk_process_ibus_msg(&cancel));
    EXPECT_EQ("1\n", read_file("/tmp/wps_result"));
    kelm_update_wps_result_file(-1);
    EXPECT_EQ("-1\n", read_file("/tmp/wps_result"));
}

TEST_F(control, an_unknown_action_from_the_command_line_is_refused_at_any_log_level)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    kelm_dbg_level = 0;
    for (uint32_t action : {0u, 3u, 255u, 4000000000u}) {
        const wps_listen_event_t event = wps_cli(action, 1);
        EXPECT_EQ(-1, rtk_process_ibus_msg(&event));
        EXPECT_EQ("> Invalid wps_cli action.\n\n", log_text());
    }
    EXPECT_EQ(no_commands, recorded_commands());
}

TEST_F(control, other_events_are_logged_and_nothing_else)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    for (uint32_t code : {0u, 1u, 2u, 3u, 5u, 9u, 11u, 255u}) {
        wps_listen_event_t event = wps_cli(1, 1);
        event.code = code;
        EXPECT_EQ(0, rtk_process_ibus_msg(&event));
        EXPECT_EQ("> ibus event: " + std::to_string(code) + "\n", log_text());
    }
    EXPECT_EQ(no_commands, recorded_commands());
}

TEST_F(control, a_button_press_on_a_repeater_pushes_its_stations)
{
    start_named(KELM_MODE_REPEATER, 2, enabled_sta);
    serve_supplicant();
    write_stations_without_link();
    write_mesh_switch("off");
    const wps_listen_event_t event = button();
    EXPECT_EQ(0, rtk_process_ibus_msg(&event));
    EXPECT_EQ((words{"ubus send wps '{\"action\":1,\"2g_status\":11,\"5g_status\":11,"
                     "\"5g2_status\":0}'",
                     "killall wpa_cli", "nvram get multiap_mode",
                     "wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_pbc",
                     "wpa_cli -p /var/run/wpa_supplicant -i wlan0-vxd wps_pbc"}),
              recorded_commands());
}

TEST_F(control, the_wireless_restart_of_the_platform_tells_its_status)
{
    set_reply("/etc/init.d/wifi", "exit 3");
    EXPECT_EQ(3, WEXITSTATUS(rtk_wifi_restart()));
    EXPECT_EQ(words{"/etc/init.d/wifi restart"}, recorded_commands());
}

TEST_F(control, lines_of_the_steps_carry_the_name_of_their_operation)
{
    start_named(KELM_MODE_AP, 2, enabled_ap);
    kelm_dbg_level = 7;
    rtk_pbc_handle();
    kelm_flag = 0;  // only while no attempt runs are the sockets rebuilt
    const wps_listen_event_t press = button();
    EXPECT_EQ(-1, rtk_process_ibus_msg(&press));
    const wps_listen_event_t unknown = wps_cli(9, 1);
    EXPECT_EQ(-1, rtk_process_ibus_msg(&unknown));
    const std::string log = console_text_without_line_numbers();
    for (const char *line : {"kelm[rtk_pbc_handle:N]: multiap_mode = 0\n\n",
                             "kelm[rtk_process_ibus_msg:N]: ibus event: 4\n",
                             "kelm[rtk_process_ibus_msg:N]: Rebuild worker socket failed.\n\n",
                             "kelm[rtk_process_ibus_msg:N]: Invalid wps_cli action.\n\n"})
        EXPECT_TRUE(contains(log, line)) << line << log;
}
