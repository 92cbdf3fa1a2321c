// SPDX-License-Identifier: ISC
// The write-back by run mode, and what hostapd's file leaves in the access point's credential file.
#include "platform/rtk/ap_write_back.h"

#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include "config/credentials.h"
#include "config/settings.h"
#include "core/json_file.h"
#include "core/log.h"
#include "core/text.h"
#include "tests/unit/device.h"
#include "wlan/easymesh_marks.h"

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

    // Which of the files were written: "plain", "mesh", "backhaul". Those without a text were not.
    static words written()
    {
        words kinds;
        if (!read_file(WPS_STA_FILE).empty() && !read_file(WPS_AP_FILE).empty())
            kinds.push_back("plain");
        if (!read_file(WPS_STA_FILE_MESH).empty() && !read_file(WPS_AP_FILE_MESH).empty())
            kinds.push_back("mesh");
        if (!read_file(WPS_AP_BH_FILE).empty())
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
    {"wpa_passphrase=first\nwpa_key_mgmt=NONE\n", "securityType_2g", "1"},
    {"wpa_passphrase=first\nwpa_key_mgmt=NONE\n", "password_2g", "\"first\""},
    {"wpa_key_mgmt=NONE\nwpa_passphrase=first\n", "securityType_2g", "1"},
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
    {"ssid=First\nbss=wlan1-va0\nssid=Second\n", "ssid_2g", "\"First\""},
    {"ssid2=\"Other\"\n", "ssid_2g", "\"Other\""},
    {"ssid=First\nssid2=\"Other\"\n", "ssid_2g", "\"Other\""},
    {"ssid2=\"Other\"\nssid=Last\n", "ssid_2g", "\"Last\""},
    {"bssid=02:00:00:00:00:01\nssid=After it\n", "ssid_2g", "\"After it\""},
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

// As JSON text; hex: of the key with the exact bytes.
struct name_case {
    std::string line;
    const char *name;
    const char *hex;
};

const name_case names_read[] = {
    {"ssid=\"Home\"", "\"\\\"Home\\\"\"", NOT_WRITTEN},
    {"ssid=\"", "\"\\\"\"", NOT_WRITTEN},
    {"ssid= two  blanks ", "\" two  blanks \"", NOT_WRITTEN},
    {"ssid=\tHome\t", "\"\\tHome\\t\"", NOT_WRITTEN},
    {"ssid={ brace", "\"{ brace\"", NOT_WRITTEN},
    {"ssid=}", "\"}\"", NOT_WRITTEN},
    {"ssid=a=b", "\"a=b\"", NOT_WRITTEN},
    {"ssid=#1", "\"#1\"", NOT_WRITTEN},
    {"ssid=4bc3bc636865", "\"4bc3bc636865\"", NOT_WRITTEN},
    {"ssid=P\"x\"", "\"P\\\"x\\\"\"", NOT_WRITTEN},
    {"ssid=K\xc3\xbc"
     "che",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"ssid=K\xfc"
     "che",
     "\"K\xef\xbf\xbd"
     "che\"",
     "\"4bfc636865\""},
    {"ssid2=4bc3bc636865",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"ssid2=4BC3BC636865",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"ssid2=\"K\xc3\xbc"
     "che \"",
     "\"K\xc3\xbc"
     "che \"",
     NOT_WRITTEN},
    {"ssid2=P\"K\\xc3\\xbc"
     "che\\n\"",
     "\"K\xc3\xbc"
     "che\\n\"",
     NOT_WRITTEN},
    {"ssid2=00", "\"\xef\xbf\xbd\"", "\"00\""},
    {"ssid2=4100420000",
     "\"A\xef\xbf\xbd"
     "B\xef\xbf\xbd\xef\xbf\xbd\"",
     "\"4100420000\""},
};

TEST_F(ap_write_back, a_name_arrives_byte_by_byte)
{
    for (const name_case &row : names_read) {
        unlink(WPS_AP_FILE);
        EXPECT_EQ(0, patch(row.line + "\n"));
        EXPECT_EQ(row.name, ap("ssid_2g")) << row.line;
        EXPECT_EQ(row.hex, ap("ssid_hex_2g")) << row.line;
    }
    EXPECT_EQ(0, patch("ssid=" + std::string(32, '{') + "\n"));
    EXPECT_EQ("\"" + std::string(32, '{') + "\"", ap("ssid_2g"));
    EXPECT_EQ(0, patch("ssid2=" + std::string(64, 'f') + "\n"));
    EXPECT_EQ("\"" + std::string(64, 'f') + "\"", ap("ssid_hex_2g"));
}

// hostapd knows no comment behind a value, and no quotes around a passphrase.
TEST_F(ap_write_back, a_passphrase_arrives_byte_by_byte)
{
    EXPECT_EQ(0, patch("wpa_passphrase= \"eight\" # {\n"));
    EXPECT_EQ("\" \\\"eight\\\" # {\"", ap("password_2g"));
    EXPECT_EQ(0, patch("wpa_passphrase=K\xfc"
                       "chenradio\n"));
    EXPECT_EQ(
        "\"K\xef\xbf\xbd"
        "chenradio\"",
        ap("password_2g"));
    EXPECT_EQ("\"4bfc6368656e726164696f\"", ap("password_hex_2g"));
}

struct security_case {
    const char *lines;
    const char *mode;  // "securityType"
    const char *version;
    const char *sec;
    const char *password;
};

const security_case securities_read[] = {
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=NONE\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=WPA-PSK\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=WPA-PSK WPA-PSK-SHA256\n", "1", "2", "\"wpa2\"",
     "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=FT-PSK\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=WPA-EAP\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=WPA-PSK SAE\n", "4", "2", "\"wpa2/wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=SAE WPA-PSK\n", "4", "2", "\"wpa2/wpa3\"", "kept"},
    {"wpa=3\nwpa_passphrase=kept\nwpa_key_mgmt=WPA-PSK SAE\n", "4", "0", "\"wpa2/wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=FT-PSK FT-SAE\n", "4", "2", "\"wpa2/wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=SAE\n", "4", "3", "\"wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt= SAE  FT-SAE \n", "4", "3", "\"wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=SAE-EXT-KEY\n", "4", "3", "\"wpa3\"", "kept"},
    {"wpa=2\nwpa_passphrase=kept\nwpa_key_mgmt=SAEX\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_key_mgmt=SAE\nsae_password=own\n", "4", "3", "\"wpa3\"", "own"},
    {"wpa=2\nwpa_key_mgmt=SAE\nwpa_passphrase=shared\nsae_password=own\n", "4", "3", "\"wpa3\"",
     "own"},
    {"wpa=2\nwpa_key_mgmt=WPA-PSK SAE\nsae_password=own\nwpa_passphrase=shared\n", "4", "2",
     "\"wpa2/wpa3\"", "shared"},
    {"wpa=2\nwpa_key_mgmt=WPA-PSK SAE\nsae_password=own\n", "4", "2", "\"wpa2/wpa3\"", "own"},
    {"wpa=2\nsae_password=own\n", "1", "2", "\"wpa2\"", "own"},
    {"wpa=2\nwpa_key_mgmt=SAE\nsae_password=a|b|mac=FF:ff:ff:ff:ff:ff|vlanid=3\n", "4", "3",
     "\"wpa3\"", "a|b"},
    {"wpa=2\nwpa_key_mgmt=SAE\nsae_password=own|vlanid=3|pk=xx:yy\n", "4", "3", "\"wpa3\"", "own"},
    {"wpa=2\nwpa_key_mgmt=SAE\nsae_password=all\nsae_password=hers|id=alice\n", "4", "3",
     "\"wpa3\"", "all"},
    {"wpa=2\nwpa_key_mgmt=OWE\n", "5", "3", NOT_WRITTEN, ""},
    {"wpa=2\nwpa_key_mgmt=NONE\n", "0", "2", "\"none\"", ""},
    {"wpa=0\nwpa_key_mgmt=WPA-PSK\n", "0", "0", "\"none\"", ""},
    {"wpa=2\nwpa_psk_file=/etc/psks\nwpa_passphrase=kept\n", "1", "2", "\"wpa2\"", "kept"},
    {"wpa=2\nwpa_key_mgmt=WPA-PSK\nwpa_passphrase=first\nbss=wlan1-va0\nssid=Guests\nwpa=1\n"
     "wpa_key_mgmt=NONE\nwpa_passphrase=second\nwpa_pairwise=TKIP\n",
     "1", "2", "\"wpa2\"", "first"},
};

TEST_F(ap_write_back, the_words_of_the_key_management_and_the_keys_make_the_security)
{
    for (const security_case &row : securities_read) {
        unlink(WPS_AP_FILE);
        EXPECT_EQ(0, patch(row.lines));
        EXPECT_EQ(row.mode, ap("securityType_2g")) << row.lines;
        EXPECT_EQ(row.version, ap("wpaVersion_2g")) << row.lines;
        EXPECT_EQ(row.sec, ap("sec_2g")) << row.lines;
        EXPECT_EQ("\"" + std::string(row.password) + "\"", ap("password_2g")) << row.lines;
    }
}

// Stored as open, they would come back open after the restart.
TEST_F(ap_write_back, a_secured_access_point_without_a_key_for_everybody_is_not_stored)
{
    for (const char *lines :
         {"wpa=2\nwpa_key_mgmt=SAE\nsae_password=one|mac=02:00:00:00:00:01\n",
          "wpa=2\nwpa_key_mgmt=SAE\nsae_password=hers|id=alice\n",
          "sae_password=hers|id=alice\nwpa=2\n", "wpa=2\nwpa_key_mgmt=SAE\n",
          "wpa=2\nwpa_key_mgmt=WPA-PSK\nwpa_psk_file=/etc/psks\n",
          "wpa=2\nwpa_psk_file=/etc/psks\n", "wpa_key_mgmt=WPA-EAP\nwpa=2\n",
          "wpa=3\nwpa_key_mgmt=WPA-PSK FT-EAP\n", "wpa=2\nwpa_key_mgmt=OWE SAE\n",
          "wpa=2\nwpa_key_mgmt=DPP\n",
          "wpa=2\nwpa_key_mgmt=WPA-PSK\nbss=wlan1-va0\nwpa_passphrase=of another\n"}) {
        console_text();
        EXPECT_EQ(-1, patch(std::string("ssid=New\n") + lines)) << lines;
        EXPECT_FALSE(file_exists(WPS_AP_FILE)) << lines;
        EXPECT_TRUE(contains(
            log_text(), "> /tmp/run/hostapd-wlan1.conf has no key for everybody, not stored\n"))
            << lines;
    }
    EXPECT_EQ(0u, dirty);
}

// A cut key would let nobody in.
TEST_F(ap_write_back, a_password_for_sae_that_no_field_can_hold_is_left_out)
{
    const std::string line = "> sae_password is longer than 64 bytes, left out\n";
    const std::string too_long = "sae_password=" + std::string(65, 'p') + "\n";
    EXPECT_EQ(-1, patch("wpa=2\nwpa_key_mgmt=SAE\n" + too_long));
    EXPECT_TRUE(contains(
        log_text(), line + "> /tmp/run/hostapd-wlan1.conf has no key for everybody, not stored\n"));
    EXPECT_EQ(-1, patch("wpa=2\nwpa_key_mgmt=SAE\nwpa_passphrase=not for SAE\n" + too_long));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
    console_text();
    EXPECT_EQ(0, patch("wpa=2\nwpa_key_mgmt=WPA-PSK SAE\nwpa_passphrase=shared\n" + too_long));
    EXPECT_TRUE(contains(log_text(), line));
    EXPECT_EQ("\"shared\"", ap("password_2g"));
    EXPECT_EQ(
        0, patch("wpa=2\nwpa_key_mgmt=SAE\nsae_password=" + std::string(64, 'p') + "|vlanid=3\n"));
    EXPECT_EQ("\"" + std::string(64, 'p') + "\"", ap("password_2g"));
}

// A second network of the radio, with a name and a key of its own, is another one.
TEST_F(ap_write_back, nothing_behind_a_second_networks_line_counts)
{
    const std::string first = "ssid=First\nwpa=2\nwpa_passphrase=first key\nwpa_pairwise=CCMP\n";
    EXPECT_EQ(0, patch(first));
    const std::string alone = read_file(WPS_AP_FILE);
    unlink(WPS_AP_FILE);
    EXPECT_EQ(0,
              patch(first + "bss=wlan1-va0\nssid=Second\nssid2=00\nwpa=1\n"
                            "wpa_key_mgmt=NONE\nsae_password=x\nwpa_psk=00\nwpa_pairwise=TKIP\n"));
    EXPECT_EQ(alone, read_file(WPS_AP_FILE));
}

// --- Settings that are cut short ---

TEST_F(ap_write_back, settings_that_end_in_a_key_without_a_line_end_are_written)
{
    for (const char *end : {"wlanSecType_2g=", "apBssEnabledApMode_5g=", "unknown="}) {
        unlink(WPS_AP_FILE);
        write_file(WIFI_CONF_PATH, std::string("\napBssEnabledApMode_2g=on\n") + end);
        EXPECT_EQ(0, patch("ssid=New\nwpa=2\nwpa_passphrase=new key\n")) << end;
        EXPECT_EQ("\"on\"", ap("enable_2g")) << end;
        EXPECT_EQ("\"New\"", ap("ssid_2g")) << end;
        EXPECT_EQ("\"new key\"", ap("password_2g")) << end;
    }
}

// It has just been spoken to.
TEST_F(ap_write_back, an_access_point_whose_switch_was_cut_off_counts_as_on)
{
    write_file(WIFI_CONF_PATH, "\nwlanSecType_2g=0\napBssEnabledApMode_2g=");
    EXPECT_EQ(0, patch("ssid=New\nwpa=2\nwpa_passphrase=new key\n"));
    EXPECT_EQ("\"on\"", ap("enable_2g"));
    EXPECT_EQ("\"New\"", ap("ssid_2g"));
    unlink(WPS_AP_FILE);
    write_file(WIFI_CONF_PATH, "\nwlanSecType_2g=0\n");
    EXPECT_EQ(0, patch("ssid=New\nwpa=2\nwpa_passphrase=new key\n"));
    EXPECT_EQ("\"off\"", ap("enable_2g")) << "a whole file says what it does not say";
    unlink(WPS_AP_FILE);
    write_file(WIFI_CONF_PATH, "\napBssEnabledApMode_2g=off\nunknown=");
    EXPECT_EQ(0, patch("ssid=New\nwpa=2\nwpa_passphrase=new key\n"));
    EXPECT_EQ("\"off\"", ap("enable_2g"));
}

TEST_F(ap_write_back, without_settings_nothing_is_written)
{
    unlink(WIFI_CONF_PATH);
    EXPECT_EQ(-1, patch("ssid=New\nwpa=2\nwpa_passphrase=new key\n"));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
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
    EXPECT_EQ(-1, rtk_ap_patching_back(KELM_BAND_5G));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
    EXPECT_EQ(0u, dirty);
}

TEST_F(ap_write_back, settings_that_could_not_be_stored_are_a_failure_and_not_counted)
{
    block_name(WPS_AP_FILE);
    EXPECT_EQ(-1, patch("ssid=Name\nwpa_passphrase=a long passphrase\n"));
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

// The backhaul's file also takes what stood in the station's file before: it proves nothing.
TEST_F(dispatch, a_failing_write_back_is_a_failure_though_the_backhaul_is_written)
{
    switch_easymesh("on");
    write_file(STATION_2G,
               "network={\n\tssid=\"Root\"\n\teasymesh_support=1\n}\n");  // one block only
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ(words{"backhaul"}, written());
}

// Without the backhaul the mesh's scripts have half of what they need.
TEST_F(dispatch, a_backhaul_that_was_not_written_is_a_failure_of_the_band_with_its_own_success)
{
    switch_easymesh("on");
    learn("\teasymesh_support=1\n");
    unlink(STATION_5G);
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr)) << "no station file";
    EXPECT_EQ(words{"mesh"}, written());
    learn("\teasymesh_support=1\n");
    block_name(WPS_AP_BH_FILE);
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr)) << "no room";
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(dispatch, a_borrowing_band_succeeds_with_its_credentials_whatever_the_backhaul)
{
    unlink(STATION_2G);
    EXPECT_EQ(-1, rtk_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    switch_easymesh("on");
    learn("\teasymesh_support=1\n");
    band(KELM_BAND_2G).wps_status = WPS_STATUS_TIMEOUT;
    EXPECT_EQ(0, rtk_patching_back(KELM_BAND_5G, KELM_BAND_2G, nullptr)) << "no backhaul to copy";
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
