// SPDX-License-Identifier: ISC
// The write-back by run mode, and what hostapd's file leaves in the access point's credential file.
#include "platform/rtk/ap_write_back.h"

#include <json-c/json.h>
#include <unistd.h>

#include "config/credentials.h"
#include "config/json_file.h"
#include "core/log.h"
#include "core/text.h"
#include "tests/unit/device.h"
#include "wlan/radio.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr int DUAL_BAND = 2;
constexpr const char *HOSTAPD_2G = "/tmp/run/hostapd-wlan1.conf";
constexpr const char *STATION_2G = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *STATION_5G = "/tmp/run/wpa_supplicant-wlan0-vxd.conf";
constexpr const char *DATA = "/mnt/src/tests/data/hostapd/";
constexpr const char *NOT_WRITTEN = "(not written)";

std::string value_of(const char *path, const std::string &key)
{
    const unique_json root(json_object_from_file(path));
    json_object *value = nullptr;
    if (!root || !json_object_object_get_ex(root.get(), key.c_str(), &value))
        return NOT_WRITTEN;
    return json_object_to_json_string_ext(value, JSON_C_TO_STRING_NOSLASHESCAPE);
}

std::string ap(const std::string &key)
{
    return value_of(WPS_AP_FILE, key);
}

class ap_write_back : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_AP, DUAL_BAND);
        write_wifi_conf("apBssEnabledApMode_2g=on\napBssEnabledApMode_5g=on\nwlanSecType_2g=4\n");
        console_text();
    }

    // Band 0's write-back of a file with these lines.
    static int patch(const std::string &lines)
    {
        write_file(HOSTAPD_2G, "interface=wlan1\n" + lines);
        return rtk_ap_patching_back(KELM_BAND_2G);
    }
};

// A repeater whose 2.4 GHz station has learnt a network.
class dispatch : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_REPEATER, DUAL_BAND);
        copy_text(band(KELM_BAND_2G).ifName, "wlan1-vxd");
        copy_text(band(KELM_BAND_5G).ifName, "wlan0-vxd");
        band(KELM_BAND_2G).wps_status = WPS_STATUS_SUCCESS;
        write_file("/tmp/wifi.conf",
                   "\napBssEnabled_2g=on\napBssEnabled_5g=on\n\n"
                   "staBssEnabled_2g=on\nstaBssEnabled_5g=on\n");
        switch_easymesh("off");
        learn("");
        console_text();
    }

    static void switch_easymesh(const char *value)
    {
        write_file("/etc/config/wificommonCfg",
                   std::string("config settings 'settings'\n\toption mesh_enable '") + value +
                       "'\n\toption IsGermanySSID 'no'\n");
    }

    static void learn(const std::string &more)
    {
        const std::string text =
            "network={\n\tssid=\"Old\"\n}\nnetwork={\n\tssid=\"Root\"\n"
            "\tpsk=\"passphrase\"\n\tkey_mgmt=WPA-PSK\n" +
            more + "}\n";
        write_file(STATION_2G, text);
        write_file(STATION_5G, text);
    }

    // Which of the files were written: "plain", "mesh", "backhaul".
    static words written()
    {
        words kinds;
        if (file_exists(WPS_STA_FILE) && file_exists(WPS_AP_FILE))
            kinds.push_back("plain");
        if (file_exists(WPS_STA_FILE_MESH) && file_exists(WPS_AP_FILE_MESH))
            kinds.push_back("mesh");
        if (file_exists(WPS_AP_BH_FILE))
            kinds.push_back("backhaul");
        return kinds;
    }
};

}  // namespace

// --- The access point's write-back ---

TEST_F(ap_write_back, settings_that_hostapd_has_chosen_become_the_access_points)
{
    write_file(HOSTAPD_2G, read_file(std::string(DATA) + "new_settings.conf"));
    EXPECT_EQ(0, rtk_ap_patching_back(KELM_BAND_2G));
    EXPECT_EQ(
        "{ \"enable_2g\": \"on\", \"ssid_2g\": \"Elm House\", \"hide_2g\": 0, "
        "\"sec_follow_2g\": \"false\", \"sec_2g\": \"wpa\\/wpa2\", \"index_2g\": 1, "
        "\"password_2g\": \"unQ4a5HFOqdRBWMo5SxLdA\", \"securityType_2g\": 1, "
        "\"wpaVersion_2g\": 3, \"wpaEncryption_2g\": 0, \"wepAuthType_2g\": 0, "
        "\"wepKeyFormat_2g\": 0 }\n",
        read_file(WPS_AP_FILE));
    EXPECT_EQ(1u, dirty);
}

TEST_F(ap_write_back, an_access_point_that_stayed_open_is_written_as_open)
{
    write_file("/tmp/run/hostapd-wlan0.conf", read_file(std::string(DATA) + "open.conf"));
    EXPECT_EQ(0, rtk_ap_patching_back(KELM_BAND_5G));
    EXPECT_EQ("\"Elm House 5G\"", ap("ssid_5g"));
    EXPECT_EQ("\"none\"", ap("sec_5g"));
    EXPECT_EQ("\"\"", ap("password_5g"));
    EXPECT_EQ(NOT_WRITTEN, ap("ssid_2g"));
}

struct line_case {
    const char *lines;
    const char *key;
    const char *value;
};

const line_case lines_read[] = {
    {"wpa_psk=000102\nwpa_passphrase=second\n", "password_2g", "\"second\""},
    {"wpa_passphrase=first\nwpa_psk=000102\n", "password_2g", "\"000102\""},
    {"wpa_passphrase=first\nwpa_passphrase=second\n", "password_2g", "\"second\""},
    {"wpa_passphrase=first\n", "securityType_2g", "1"},
    {"wpa_psk=000102\n", "securityType_2g", "1"},
    {"", "securityType_2g", "0"},
    {"wpa_passphrase=first\nwpa_key_mgmt=NONE\n", "securityType_2g", "0"},
    {"wpa_passphrase=first\nwpa_key_mgmt=NONE\n", "password_2g", "\"first\""},
    {"wpa_key_mgmt=NONE\nwpa_passphrase=first\n", "securityType_2g", "1"},
    {"wpa_passphrase=first\nwpa_key_mgmt=WPA-PSK SAE\n", "securityType_2g", "1"},
    {"wpa_key_mgmt=WPA-PSK\n", "securityType_2g", "0"},
    {"wpa_pairwise=CCMP\n", "wpaEncryption_2g", "2"},
    {"wpa_pairwise=TKIP\n", "wpaEncryption_2g", "1"},
    {"wpa_pairwise=CCMP TKIP\n", "wpaEncryption_2g", "0"},
    {"rsn_pairwise=CCMP\n", "wpaEncryption_2g", "0"},
    {"wpa_pairwise=CCMP\nwpa_pairwise=CCMP\n", "wpaEncryption_2g", "0"},
    {"wpa=1\n", "wpaVersion_2g", "1"},
    {"wpa=2\n", "wpaVersion_2g", "2"},
    {"wpa=3\n", "wpaVersion_2g", "3"},
    {"wpa=4\n", "wpaVersion_2g", "0"},
    {"wpa=5\n", "wpaVersion_2g", "0"},
    {"wpa=-1\n", "wpaVersion_2g", "0"},
    {"wpa=2\nwpa=5\n", "wpaVersion_2g", "0"},
    {"wpa=x\n", "wpaVersion_2g", "0"},
    {"wpa2=2\n", "wpaVersion_2g", "0"},
    {"auth_algs=OPEN\n", "wepAuthType_2g", "0"},
    {"auth_algs=SHARED\n", "wepAuthType_2g", "0"},
    {"auth_algs=1\n", "wepAuthType_2g", "0"},
    {"ssid=First\nbss=wlan1-va0\nssid=Second\n", "ssid_2g", "\"Second\""},
    {"ssid2=\"Other\"\n", "ssid_2g", "\"\""},
    {"#WPS# ssid=Old\n", "ssid_2g", "\"\""},
};

TEST_F(ap_write_back, a_line_counts_by_its_key_and_value_and_a_later_one_over_an_earlier)
{
    for (const line_case &row : lines_read) {
        unlink(WPS_AP_FILE);
        EXPECT_EQ(0, patch(row.lines));
        EXPECT_EQ(row.value, ap(row.key)) << row.lines;
    }
}

TEST_F(ap_write_back, no_key_management_makes_a_secured_access_point_open_but_keeps_its_passphrase)
{
    EXPECT_EQ(0, patch("wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=NONE\n"));
    EXPECT_EQ("\"none\"", ap("sec_2g"));
    EXPECT_EQ("\"kept\"", ap("password_2g"));
    EXPECT_EQ("2", ap("wpaVersion_2g"));
}

TEST_F(ap_write_back, hostapds_authentication_algorithms_are_not_taken_for_a_kind_of_wep)
{
    for (const char *value : {"OPEN", "SHARED", "1", "3"}) {
        unlink(WPS_AP_FILE);
        EXPECT_EQ(0, patch(std::string("wpa_passphrase=first\nauth_algs=") + value + "\n"));
        EXPECT_EQ("0", ap("wepAuthType_2g")) << value;
    }
}

TEST_F(ap_write_back, the_name_of_a_switched_off_access_point_is_not_taken)
{
    write_wifi_conf("apBssEnabledApMode_2g=off\n");
    EXPECT_EQ(0, patch("ssid=Not for use\nwpa_passphrase=taken all the same\n"));
    EXPECT_EQ("\"\"", ap("ssid_2g"));
    EXPECT_EQ("\"off\"", ap("enable_2g"));
    EXPECT_EQ("\"taken all the same\"", ap("password_2g"));
}

TEST_F(ap_write_back, values_are_cut_to_what_the_settings_can_hold)
{
    EXPECT_EQ(0, patch("ssid=" + std::string(255, 's') +
                       "\nwpa=2\nwpa_passphrase=" + std::string(255, 'p') + "\n"));
    EXPECT_EQ("\"" + std::string(32, 's') + "\"", ap("ssid_2g"));
    EXPECT_EQ("\"" + std::string(64, 'p') + "\"", ap("password_2g"));
    EXPECT_EQ("1", ap("securityType_2g"));
    EXPECT_EQ("2", ap("wpaVersion_2g"));
}

TEST_F(ap_write_back, a_shorter_passphrase_leaves_nothing_of_an_earlier_one)
{
    EXPECT_EQ(
        0,
        patch("wpa_passphrase=a long passphrase\nwpa_passphrase=short\nssid=Long name\nssid=S\n"));
    EXPECT_EQ("\"short\"", ap("password_2g"));
    EXPECT_EQ("\"S\"", ap("ssid_2g"));
}

TEST_F(ap_write_back, without_a_readable_file_nothing_is_written)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(-1, rtk_ap_patching_back(KELM_BAND_2G));
    EXPECT_TRUE(contains(console_text_without_line_numbers(),
                         "kelm[rtk_ap_patching_back:N]: Analyze hostapd config file "
                         "/tmp/run/hostapd-wlan1.conf\n\n"
                         "kelm[rtk_ap_patching_back:N]: wps_hapd_wpasupp_config_parse failed\n"));
    EXPECT_EQ(-1, patch("ssid=Name\n}\n"));
    EXPECT_EQ(-1, patch("ssid=Name\nblock={\n"));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
    EXPECT_EQ(0u, dirty);
}

TEST_F(ap_write_back, bands_without_a_session_are_refused)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    for (const int bad : {4, 5, -1, 1000}) {
        console_text();
        EXPECT_EQ(-1, rtk_ap_patching_back(bad));
        EXPECT_EQ("> invalid band\n", log_text()) << bad;
    }
}

TEST_F(ap_write_back, each_step_is_told_in_detail)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(0, patch("ssid=Name\n"));
    const std::string log = console_text_without_line_numbers();
    EXPECT_TRUE(contains(log, "kelm[rtk_ap_patching_back:N]: wps_parse_ap_config finished.\n"));
    EXPECT_TRUE(contains(log, ": ssid=Name\n")) << "the tree is listed";
    EXPECT_TRUE(contains(log, "kelm[rtk_ap_patching_back:N]: call _rtk_wps_set_ap_config 0\n"));
}

// --- The choice by run mode ---

TEST_F(ap_write_back, an_access_point_that_was_configured_is_never_rewritten)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    write_file(HOSTAPD_2G, "ssid=Name\nwpa_passphrase=first\n");
    console_text();
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ("kelm[rtk_patching_back:N]: ap has been configured.\n\n",
              console_text_without_line_numbers());
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
}

TEST_F(ap_write_back, an_access_point_that_was_open_is_rewritten)
{
    write_file(HOSTAPD_2G, "ssid=Name\nwpa_passphrase=first\n");
    band(KELM_BAND_2G).wps_flags = WPS_FLAG_NONE_SECURITY;
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ("\"first\"", ap("password_2g"));
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_5G, KELM_BAND_5G, nullptr))
        << "the other band was not";
}

TEST_F(ap_write_back, an_access_point_without_a_session_is_not_rewritten)
{
    for (const int bad : {4, 5, -1})
        EXPECT_EQ(-1, rtk_patching_back(bad, bad, nullptr)) << bad;
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
}

TEST_F(ap_write_back, in_an_unknown_run_mode_nothing_is_written)
{
    band(KELM_BAND_2G).wps_flags = WPS_FLAG_NONE_SECURITY;
    write_file(HOSTAPD_2G, "ssid=Name\nwpa_passphrase=first\n");
    for (const int mode : {2, -1, 7}) {
        set_run_mode(mode);
        kelm_dbg_level = KELM_LOG_NORMAL - 1;
        console_text();
        EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
        EXPECT_EQ("> Invalid system mode.\n\n", log_text());
    }
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
}

TEST_F(dispatch, a_repeater_without_easymesh_writes_the_plain_files)
{
    learn("\teasymesh_support=1\n");
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ(words{"plain"}, written());
    EXPECT_EQ(words{}, recorded_commands());
    EXPECT_EQ(0u, get_band_easymesh_wps(KELM_BAND_2G)) << "the root access point is not asked";
}

TEST_F(dispatch, a_root_access_point_without_easymesh_leaves_the_plain_files_alone_to_be_written)
{
    switch_easymesh("on");
    for (const char *support : {"", "\teasymesh_support=0\n"}) {
        clear_tmp();
        write_file("/tmp/wifi.conf", "\napBssEnabled_2g=on\n\nstaBssEnabled_2g=on\n");
        learn(support);
        EXPECT_EQ(0, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
        EXPECT_EQ(words{"plain"}, written()) << support;
        EXPECT_EQ(words{}, recorded_commands());
    }
}

TEST_F(dispatch, easymesh_on_both_sides_writes_the_files_of_its_scripts_and_the_backhaul)
{
    switch_easymesh("on");
    learn("\teasymesh_support=1\n");
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ((words{"mesh", "backhaul"}), written());
    EXPECT_EQ(words{"/etc/init.d/wps mesh_config_wifi"}, recorded_commands());
}

TEST_F(dispatch, a_failing_write_back_does_not_keep_the_backhaul_from_being_written)
{
    switch_easymesh("on");
    write_file(STATION_2G,
               "network={\n\tssid=\"Root\"\n\teasymesh_support=1\n}\n");  // one block only
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ(words{"backhaul"}, written());
}

TEST_F(dispatch, the_result_is_that_of_the_last_step)
{
    unlink(STATION_2G);
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    switch_easymesh("on");
    learn("\teasymesh_support=1\n");
    band(KELM_BAND_2G).wps_status = WPS_STATUS_TIMEOUT;
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_5G, KELM_BAND_2G, nullptr)) << "no success to copy";
    EXPECT_EQ(words{"mesh"}, written());
}

TEST_F(dispatch, bands_and_record_are_handed_on)
{
    kelm_rootap_info record = {};
    copy_text(record.ssid, "Mirrored");
    copy_text(record.auth, "wpa2");
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_5G, KELM_BAND_2G, &record));
    EXPECT_EQ("\"Mirrored\"", value_of(WPS_STA_FILE, "ssid_5g"));
    EXPECT_EQ("\"wpa2\"", value_of(WPS_STA_FILE, "security_5g"));
    switch_easymesh("on");
    learn("\teasymesh_support=1\n");
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_5G, KELM_BAND_2G, &record));
    EXPECT_EQ("\"Mirrored\"", value_of(WPS_STA_FILE_MESH, "ssid_5g"));
    EXPECT_EQ("\"Root\"", value_of(WPS_AP_BH_FILE, "backhaul_ssid_5g"));
}
