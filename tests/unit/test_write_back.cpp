// SPDX-License-Identifier: ISC
// The repeater write-back: what is read, what is decided, what is written where.
#include "platform/rtk/write_back.h"

#include <algorithm>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include <json-c/json.h>

#include "config/credentials.h"
#include "core/json_file.h"
#include "core/log.h"
#include "core/text.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr int ALL_BANDS = 5;
constexpr const char *FILE_2G = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *OLD_NETWORK = "network={\n\tssid=\"Old\"\n\tpsk=\"old passphrase\"\n}\n";
constexpr const char *DATA = "/mnt/src/tests/data/write_back/";
constexpr const char *NOT_WRITTEN = "(not written)";

// A case in which nothing is special: band 0 takes what its own station has learnt.
write_back_case own_success()
{
    write_back_case given = {};
    given.station_succeeded = true;
    copy_text(given.network.ssid, "Root network");
    copy_text(given.network.password, "correct horse battery");
    given.network.security = WPS_AUTH_WPA;
    given.network.wpa_version = WPS_VERSION_WPA2;
    given.network.encryption = WPS_CIPHER_AES;
    return given;
}

kelm_rootap_info texts(const char *auth, const char *cipher)
{
    kelm_rootap_info record = {};
    copy_text(record.ssid, "Mirrored");
    copy_text(record.auth, auth);
    copy_text(record.cipher, cipher);
    return record;
}

struct decision {
    explicit decision(const write_back_case &given) { rtk_decide_write_back(given, &sta, &ap); }
    wps_sta_band_config sta = {};
    wps_ap_band_config ap = {};
};

// What a file of credentials holds under a key, as JSON text.
std::string value_of(const char *path, const std::string &key)
{
    const unique_json root(json_object_from_file(path));
    json_object *value = nullptr;
    if (!root || !json_object_object_get_ex(root.get(), key.c_str(), &value))
        return NOT_WRITTEN;
    return json_object_to_json_string_ext(value, JSON_C_TO_STRING_NOSLASHESCAPE);
}

std::string sta(const std::string &key)
{
    return value_of(WPS_STA_FILE, key);
}

std::string ap(const std::string &key)
{
    return value_of(WPS_AP_FILE, key);
}

words credential_files()
{
    words names = files_in_tmp("wps_wifi");
    for (const std::string &name : files_in_tmp("_wps_wifi"))
        names.push_back(name);
    std::sort(names.begin(), names.end());
    return names;
}

// A place where no file can be written.
class write_back : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_REPEATER, ALL_BANDS);
        copy_text(band(KELM_BAND_2G).ifName, "wlan1-vxd");
        copy_text(band(KELM_BAND_5G).ifName, "wlan0-vxd");
        band(KELM_BAND_2G).wps_status = WPS_STATUS_SUCCESS;
        write_switches("on", "on");
        set_ssid_flag("no");
        console_text();
    }

    // Whether SSIDs get no postfix.
    static void set_ssid_flag(const char *value)
    {
        write_file(
            "/etc/config/wificommonCfg",
            "config settings 'settings'\n\toption IsGermanySSID '" + std::string(value) + "'\n");
    }

    // Of all four bands, in the order of the settings file.
    static void write_switches(const std::string &stations, const std::string &access_points)
    {
        std::string text = "\n";
        for (const char *name : bandname)
            text += std::string("apBssEnabled_") + name + "=" + access_points + "\n";
        text += "\n";
        for (const char *name : bandname)
            text += std::string("staBssEnabled_") + name + "=" + stations + "\n";
        write_file("/tmp/wifi.conf", text);
    }

    // The network that band 0's station has learnt.
    static void learn(const std::string &lines)
    {
        write_file(FILE_2G, OLD_NETWORK + std::string("network={\n") + lines + "}\n");
    }

    static void learn_usual()
    {
        learn(
            "\tssid=\"Root network\"\n\tpsk=\"correct horse battery\"\n\tproto=RSN\n"
            "\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n\tauth_alg=OPEN\n");
    }

    // Band 0's own write-back.
    static int patch() { return rtk_repeater_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr); }
};

}  // namespace

// --- The decision ---

TEST(write_back_decision, both_records_take_all_that_was_read)
{
    write_back_case given = own_success();
    given.network.wep_auth_type = 1;
    given.network.wep_key_format = 1;
    given.network.key_index = 3;
    copy_text(given.network.data, "0a0b0c");
    given.network.support_mesh = 1;
    given.network.multiap = 1;
    const decision made(given);
    EXPECT_STREQ("Root network", made.sta.ssid);
    EXPECT_STREQ("Root network_EXT", made.ap.ssid);
    EXPECT_STREQ("correct horse battery", made.sta.password);
    EXPECT_STREQ("correct horse battery", made.ap.password);
    EXPECT_EQ(WPS_AUTH_WPA, made.sta.auth_mode);
    EXPECT_EQ(WPS_AUTH_WPA, made.ap.sec_type);
    EXPECT_EQ(WPS_VERSION_WPA2, made.sta.wpa_version);
    EXPECT_EQ(WPS_VERSION_WPA2, made.ap.wpa_version);
    EXPECT_EQ(WPS_CIPHER_AES, made.sta.encryption);
    EXPECT_EQ(WPS_CIPHER_AES, made.ap.encryption);
    EXPECT_EQ(1u, made.sta.wep_auth_type);
    EXPECT_EQ(1u, made.ap.wep_auth_type);
    EXPECT_EQ(1u, made.sta.wep_key_format);
    EXPECT_EQ(1u, made.ap.wep_key_format);
    EXPECT_EQ(3u, made.sta.key_index);
    EXPECT_EQ(3u, made.ap.key_index);
    EXPECT_STREQ("0a0b0c", made.sta.data);
    EXPECT_EQ(1, made.sta.support_mesh);
    EXPECT_EQ(1, made.sta.multiap);
}

TEST(write_back_decision, the_switches_in_the_records_stay)
{
    wps_sta_band_config station = {};
    wps_ap_band_config access_point = {};
    station.sta_bss_enabled = 1;
    access_point.ap_bss_enabled = 1;
    access_point.hide = 1;
    rtk_decide_write_back(own_success(), &station, &access_point);
    EXPECT_EQ(1, station.sta_bss_enabled);
    EXPECT_EQ(1, access_point.ap_bss_enabled);
    EXPECT_EQ(1, access_point.hide);
}

struct text_case {
    const char *auth;
    uint32_t security;
    uint32_t wpa_version;
};

// Over a network that reads as security 9, version 8.
const text_case security_texts[] = {
    {"owe", 5, 3},      {"owe_transition", 5, 3},
    {"wpa3", 4, 3},     {"wpa3-psk", 4, 3},
    {"sae_only", 4, 3}, {"psk_sae", 4, 0},
    {"wpa/wpa2", 1, 0}, {"wpa/wpax", 1, 0},
    {"wpa2", 1, 2},     {"wpa2/wpa3", 1, 2},
    {"wpa", 1, 1},      {"wpa/wp", 1, 1},
    {"wep", 2, 8},      {"wep128", 2, 8},
    {"none", 1, 8},     {"none at all", 1, 8},
    {"", 9, 8},         {"WPA2", 9, 8},
    {" wpa2", 9, 8},    {"unknown", 9, 8},
    {"wp", 9, 8},       {"sae", 9, 8},
};

TEST(write_back_decision, a_security_text_counts_by_its_beginning)
{
    for (const text_case &row : security_texts) {
        const kelm_rootap_info record = texts(row.auth, "aes");
        write_back_case given = own_success();
        given.record = &record;
        given.network.security = 9;
        given.network.wpa_version = 8;
        const decision made(given);
        EXPECT_EQ(row.security, made.sta.auth_mode) << row.auth;
        EXPECT_EQ(row.wpa_version, made.sta.wpa_version) << row.auth;
        EXPECT_EQ(row.security, made.ap.sec_type) << row.auth;
    }
}

TEST(write_back_decision, a_cipher_text_counts_by_its_beginning)
{
    const struct {
        const char *text;
        uint32_t encryption;
    } rows[] = {{"tkip", 1}, {"aes", 2}, {"auto", 0}, {"aes_gcm", 2},
                {"", 7},     {"AES", 7}, {"ccmp", 7}};
    for (const auto &row : rows) {
        const kelm_rootap_info record = texts("wpa2", row.text);
        write_back_case given = own_success();
        given.record = &record;
        given.network.encryption = 7;
        EXPECT_EQ(row.encryption, decision(given).sta.encryption) << row.text;
    }
}

TEST(write_back_decision, texts_come_from_the_record_then_from_a_failed_stations_session)
{
    const kelm_rootap_info record = texts("psk_sae", "aes");
    const kelm_rootap_info joined = texts("wpa/wpa2", "auto");
    write_back_case given = own_success();
    given.joined = &joined;
    given.network.wpa_version = WPS_VERSION_WPA;
    given.network.encryption = WPS_CIPHER_TKIP;
    EXPECT_EQ(WPS_VERSION_WPA, decision(given).sta.wpa_version) << "as read";

    given.station_succeeded = false;
    EXPECT_EQ(WPS_VERSION_MIXED, decision(given).sta.wpa_version);
    EXPECT_EQ(WPS_CIPHER_AUTO, decision(given).sta.encryption);

    for (const bool succeeded : {false, true}) {
        given.station_succeeded = succeeded;
        given.record = &record;
        EXPECT_EQ(WPS_AUTH_SAE, decision(given).sta.auth_mode);
        EXPECT_EQ(WPS_CIPHER_AES, decision(given).sta.encryption);
    }
}

struct rank_case {
    uint32_t security;
    uint32_t wpa_version;
    const char *text;
    uint32_t becomes;
    uint32_t becomes_version;
};

const rank_case ranks[] = {
    {1, 1, "none", 1, 1}, {1, 1, "owe", 1, 1},      {1, 1, "wep", 1, 1},      {1, 1, "wpa", 1, 1},
    {1, 1, "wpa2", 1, 2}, {1, 1, "wpa/wpa2", 1, 0}, {1, 1, "psk_sae", 4, 0},  {1, 1, "wpa3", 4, 3},
    {1, 0, "wpa", 1, 0},  {1, 0, "wpa2", 1, 2},     {1, 0, "none", 1, 0},     {1, 0, "owe", 1, 0},
    {1, 2, "wpa", 1, 2},  {1, 2, "wpa/wpa2", 1, 2}, {1, 2, "none", 1, 2},     {1, 2, "wep", 1, 2},
    {1, 2, "wpa2", 1, 2}, {1, 2, "psk_sae", 4, 0},  {1, 2, "sae_only", 4, 3}, {1, 2, "owe", 1, 2},
    {3, 0, "wep", 3, 0},  {3, 0, "wpa", 1, 1},      {3, 0, "none", 3, 0},     {4, 2, "wpa2", 4, 2},
    {4, 2, "none", 4, 2}, {4, 2, "sae_only", 4, 3}, {4, 3, "psk_sae", 4, 3},  {4, 3, "owe", 4, 3},
    {4, 3, "none", 4, 3}, {4, 3, "wpa2", 4, 3},     {4, 3, "wpa3", 4, 3},     {2, 0, "none", 2, 0},
    {2, 0, "owe", 2, 0},  {5, 3, "none", 5, 3},     {0, 2, "none", 1, 2},     {0, 2, "wpa", 1, 2},
};

// Anybody can send a name; with an open twin of it the user's devices would talk to a stranger.
TEST(write_back_decision, a_text_of_the_scan_raises_the_security_of_a_key_and_never_lowers_it)
{
    for (const rank_case &row : ranks) {
        const kelm_rootap_info record = texts(row.text, "");
        write_back_case given = own_success();
        given.network.security = row.security;
        given.network.wpa_version = row.wpa_version;
        given.record = &record;
        const decision made(given);
        EXPECT_EQ(row.becomes, made.sta.auth_mode) << row.security << row.wpa_version << row.text;
        EXPECT_EQ(row.becomes_version, made.sta.wpa_version)
            << row.security << row.wpa_version << row.text;
        EXPECT_EQ(row.becomes, made.ap.sec_type) << row.security << row.wpa_version << row.text;
    }
}

TEST(write_back_decision, a_text_of_the_scan_raises_the_cipher_and_never_lowers_it)
{
    const struct {
        uint32_t encryption;
        const char *text;
        uint32_t becomes;
    } rows[] = {{2, "tkip", 2}, {2, "auto", 2}, {2, "aes", 2},  {0, "tkip", 0}, {0, "auto", 0},
                {0, "aes", 2},  {1, "tkip", 1}, {1, "auto", 0}, {1, "aes", 2}};
    for (const auto &row : rows) {
        const kelm_rootap_info record = texts("wpa2", row.text);
        write_back_case given = own_success();
        given.network.encryption = row.encryption;
        given.record = &record;
        EXPECT_EQ(row.becomes, decision(given).sta.encryption) << row.encryption << row.text;
        EXPECT_EQ(row.becomes, decision(given).ap.encryption) << row.encryption << row.text;
    }
}

TEST(write_back_decision, names_keep_their_zeros)
{
    write_back_case given = own_success();
    copy_ssid(given.network.ssid, "A\0B", 3);
    EXPECT_EQ(3u, ssid_len(decision(given).sta.ssid));
    EXPECT_EQ(std::string("A\0B_EXT", 7), std::string(decision(given).ap.ssid, 7));
    EXPECT_EQ(7u, ssid_len(decision(given).ap.ssid));
    given.no_postfix = true;
    EXPECT_EQ(3u, ssid_len(decision(given).ap.ssid));
}

TEST(write_back_decision, without_a_passphrase_any_network_is_written_as_open)
{
    for (const char *auth : {"wpa2", "wpa/wpa2", "wep", "psk_sae", "owe", "none", ""}) {
        const kelm_rootap_info record = texts(auth, "aes");
        write_back_case given = own_success();
        given.record = &record;
        given.network.password[0] = '\0';
        const decision made(given);
        EXPECT_EQ(WPS_AUTH_OPEN, made.sta.auth_mode) << auth;
        EXPECT_EQ(WPS_VERSION_MIXED, made.sta.wpa_version) << auth;
        EXPECT_EQ(WPS_CIPHER_AUTO, made.sta.encryption) << auth;
        EXPECT_EQ(WPS_AUTH_OPEN, made.ap.sec_type) << auth;
    }
}

TEST(write_back_decision, the_6_ghz_band_gets_sae_or_owe_with_aes_whatever_was_read)
{
    const struct {
        const char *auth;
        const char *password;
        uint32_t security;
    } rows[] = {
        {"wpa2", "passphrase", WPS_AUTH_SAE},
        {"wpa/wpa2", "passphrase", WPS_AUTH_SAE},
        {"wep", "passphrase", WPS_AUTH_SAE},
        {"psk_sae", "passphrase", WPS_AUTH_SAE},
        {"sae_only", "passphrase", WPS_AUTH_SAE},
        {"owe", "passphrase", WPS_AUTH_SAE},
        {"none", "passphrase", WPS_AUTH_SAE},
        {"wpa2", "", WPS_AUTH_OWE},
        {"none", "", WPS_AUTH_OWE},
        {"sae_only", "", WPS_AUTH_OWE},
    };
    for (const auto &row : rows) {
        const kelm_rootap_info record = texts(row.auth, "tkip");
        write_back_case given = own_success();
        given.ap_band = KELM_BAND_6G;
        given.record = &record;
        copy_text(given.network.password, row.password);
        const decision made(given);
        EXPECT_EQ(row.security, made.sta.auth_mode) << row.auth << " " << row.password;
        EXPECT_EQ(row.security, made.ap.sec_type) << row.auth << " " << row.password;
        EXPECT_EQ(WPS_VERSION_WPA3, made.sta.wpa_version);
        EXPECT_EQ(WPS_VERSION_WPA3, made.ap.wpa_version);
        EXPECT_EQ(WPS_CIPHER_AES, made.sta.encryption);
        EXPECT_EQ(WPS_CIPHER_AES, made.ap.encryption);
    }
}

struct ssid_case {
    int ap_band;
    int sta_band;
    bool with_record;
    const char *station;
    const char *access_point;
    const char *access_point_as_it_is;  // where SSIDs get no postfix
};

const ssid_case ssids[] = {
    {0, 0, false, "Root network", "Root network_EXT", "Root network"},
    {1, 1, false, "Root network", "Root network_EXT", "Root network"},
    {0, 1, false, "", "Root network_2.4GEXT", "Root network"},
    {1, 0, false, "", "Root network_5GEXT", "Root network"},
    {2, 0, false, "", "Root network_5GEXT", "Root network"},
    {3, 0, false, "", "Root network_6GEXT", "Root network"},
    {1, 0, true, "Mirrored", "Mirrored_EXT", "Mirrored"},
    {3, 1, true, "Mirrored", "Mirrored_EXT", "Mirrored"},
    {0, 0, true, "Mirrored", "Mirrored_EXT", "Mirrored"},
};

TEST(write_back_decision, the_ssids_tell_whose_network_was_taken)
{
    const kelm_rootap_info record = texts("wpa2", "aes");
    for (const ssid_case &row : ssids) {
        write_back_case given = own_success();
        given.ap_band = row.ap_band;
        given.sta_band = row.sta_band;
        given.record = row.with_record ? &record : nullptr;
        EXPECT_STREQ(row.station, decision(given).sta.ssid) << row.ap_band << row.sta_band;
        EXPECT_STREQ(row.access_point, decision(given).ap.ssid) << row.ap_band << row.sta_band;
        given.no_postfix = true;
        EXPECT_STREQ(row.station, decision(given).sta.ssid);
        EXPECT_STREQ(row.access_point_as_it_is, decision(given).ap.ssid);
    }
}

TEST(write_back_decision, a_long_ssid_gives_way_to_the_postfix)
{
    write_back_case given = own_success();
    memset(given.network.ssid, 's', WPS_SSID_SIZE - 1);
    EXPECT_EQ(std::string(28, 's') + "_EXT", decision(given).ap.ssid);
    EXPECT_EQ(std::string(32, 's'), decision(given).sta.ssid);
    given.ap_band = KELM_BAND_5G;
    EXPECT_EQ(std::string(26, 's') + "_5GEXT", decision(given).ap.ssid);
    given.no_postfix = true;
    EXPECT_EQ(std::string(32, 's'), decision(given).ap.ssid);
}

// --- Which network is read ---

TEST_F(write_back, the_only_network_of_a_file_is_the_one_from_before_and_is_never_written)
{
    write_file(FILE_2G, OLD_NETWORK);
    EXPECT_EQ(-1, patch());
    EXPECT_TRUE(contains(log_text(), "> Find enabled network configs failed\n"));
    EXPECT_EQ(words{}, credential_files());
    EXPECT_EQ(0u, dirty);
}

TEST_F(write_back, a_disabled_network_is_passed_over)
{
    write_file(FILE_2G, std::string(OLD_NETWORK) +
                            "network={\n\tssid=\"Second\"\n\tdisabled=1\n}\n"
                            "network={\n\tssid=\"Third\"\n\tdisabled=0\n}\n"
                            "network={\n\tssid=\"Fourth\"\n}\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"Third\"", sta("ssid_2g"));
    write_file(FILE_2G,
               std::string(OLD_NETWORK) + "network={\n\tssid=\"Second\"\n\tdisabled=1\n}\n");
    EXPECT_EQ(-1, patch());
}

TEST_F(write_back, without_a_readable_file_nothing_is_written)
{
    EXPECT_EQ(-1, patch());
    EXPECT_TRUE(
        contains(console_text_without_line_numbers(),
                 "kelm[rtk_repeater_patching_back:N]: Analyze wpa_supplicnat config file "
                 "/tmp/run/wpa_supplicant-wlan1-vxd.conf\n\n"
                 "kelm[rtk_repeater_patching_back:N]: wps_hapd_wpasupp_config_parse failed\n"));
    write_file(FILE_2G, std::string(OLD_NETWORK) + "network={\n\tssid=\"Second\"\n");
    EXPECT_EQ(-1, patch());
    write_file(FILE_2G, std::string(OLD_NETWORK) + "}\nnetwork={\n\tssid=\"Second\"\n}\n");
    EXPECT_EQ(-1, patch());
    EXPECT_EQ(words{}, credential_files());
    EXPECT_EQ(0u, dirty);
}

TEST_F(write_back, it_is_the_file_of_the_band_whose_station_succeeded)
{
    learn_usual();
    write_file("/tmp/run/wpa_supplicant-wlan0-vxd.conf",
               std::string(OLD_NETWORK) + "network={\n\tssid=\"Root 5\"\n}\n");
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_2G, KELM_BAND_5G, nullptr));
    EXPECT_EQ("\"Root 5_2.4GEXT\"", ap("ssid_2g"));
}

// --- What is read of it ---

struct line_case {
    const char *lines;
    const char *key;
    const char *value;
};

// Beside an SSID and a passphrase.
const line_case lines_read[] = {
    {"\tproto=RSN\n", "wpaVersion_2g", "2"},
    {"\tproto=WPA\n", "wpaVersion_2g", "1"},
    {"\tproto=WPA RSN\n", "wpaVersion_2g", "0"},
    {"\tproto=WPA3\n", "wpaVersion_2g", "0"},
    {"\tproto=WPA3 RSN\n", "wpaVersion_2g", "2"},
    {"\tproto=OSEN\n", "wpaVersion_2g", "0"},
    {"\tproto=RSN\n\tproto=WPA\n", "wpaVersion_2g", "0"},
    {"", "wpaVersion_2g", "0"},
    {"\tpairwise=CCMP\n", "wpa_encryption_2g", "\"aes\""},
    {"\tpairwise=TKIP\n", "wpa_encryption_2g", "\"tkip\""},
    {"\tpairwise=CCMP TKIP\n", "wpa_encryption_2g", "\"auto\""},
    {"\tpairwise=GCMP\n", "wpa_encryption_2g", "\"auto\""},
    {"", "wpa_encryption_2g", "\"auto\""},
    {"\tkey_mgmt=NONE\n", "securityType_2g", "1"},
    {"\tkey_mgmt=WPA-PSK\n", "securityType_2g", "1"},
    {"\tkey_mgmt=WPA2-PSK\n", "securityType_2g", "1"},
    {"\tkey_mgmt=WPA3-SAE\n", "securityType_2g", "4"},
    {"\tkey_mgmt=WEP\n", "securityType_2g", "2"},
    {"\tkey_mgmt=WPA-PSK SAE\n", "securityType_2g", "4"},
    {"\tkey_mgmt=WPA-EAP\n", "securityType_2g", "1"},
    {"\tkey_mgmt=WPA-PSK\n\tkey_mgmt=OSEN\n", "securityType_2g", "1"},
    {"", "securityType_2g", "1"},
    {"\tauth_alg=OPEN\n", "wepAuthType_2g", "1"},
    {"\tauth_alg=SHARED\n", "wepAuthType_2g", "0"},
    {"\tauth_alg=OPEN\n\tauth_alg=SHARED\n", "wepAuthType_2g", "0"},
    {"\tauth_alg=OPEN SHARED\n", "wepAuthType_2g", "0"},
    {"", "wepAuthType_2g", "0"},
    {"", "wepKeyFormat_2g", "1"},
    {"\twep_key0=\"abcde\"\n", "wepKeyFormat_2g", "1"},
    {"\twep_tx_keyidx=3\n", "index_2g", "3"},
    {"\twep_tx_keyidx=0\n", "index_2g", "1"},
    {"", "index_2g", "1"},
    {"\tmulti_ap_backhaul_sta=1\n", "multiap_2g", "1"},
    {"\tmulti_ap_backhaul_sta=2\n", "multiap_2g", "0"},
    {"", "multiap_2g", "0"},
    {"\tcorvex_support=1\n\tcorvex_qmie=dd0a0b\n", "support_mesh_2g", "1"},
    {"\tcorvex_support=1\n\tcorvex_qmie=dd0a0b\n", "data_2g", "\"dd0a0b\""},
    {"\tcorvex_qmie=dd0a0b\n\tcorvex_support=7\n", "data_2g", "\"dd0a0b\""},
    {"\tcorvex_support=0\n\tcorvex_qmie=dd0a0b\n", "support_mesh_2g", "0"},
    {"\tcorvex_support=0\n\tcorvex_qmie=dd0a0b\n", "data_2g", "\"\""},
    {"\tcorvex_support=1\n", "support_mesh_2g", "1"},
    {"\tcorvex_support=1\n", "data_2g", "\"\""},
    {"\tcorvex_qmie=dd0a0b\n", "data_2g", "\"\""},
    {"\tmesh_fwding=1\n\tpbss=2\n\tgroup=CCMP\n\tscan_ssid=1\n\tssid2=x\n", "ssid_2g", "\"Root\""},
};

TEST_F(write_back, a_line_of_the_network_counts_by_its_key_and_value)
{
    for (const line_case &row : lines_read) {
        clear_tmp();
        write_switches("on", "on");
        learn(std::string("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n") + row.lines);
        EXPECT_EQ(0, patch());
        EXPECT_EQ(row.value, sta(row.key)) << row.lines;
    }
}

struct security_case {
    const char *lines;
    const char *security;
    const char *mode;
    const char *version;
    const char *password;
};

// Beside an SSID.
const security_case securities_read[] = {
    {"\tpsk=\"key\"\n\tkey_mgmt=WPA-PSK SAE\n\tproto=RSN\n", "psk_sae", "4", "2", "key"},
    {"\tpsk=\"key\"\n\tproto=RSN\n\tkey_mgmt=SAE WPA-PSK-SHA256\n", "psk_sae", "4", "2", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=WPA-PSK SAE\n", "psk_sae", "4", "0", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=FT-PSK FT-SAE\n\tproto=RSN\n", "psk_sae", "4", "2", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=SAE\n\tproto=RSN\n", "sae_only", "4", "3", "key"},
    {"\tpsk=\"key\"\n\tproto=RSN\n\tkey_mgmt=SAE FT-SAE\n", "sae_only", "4", "3", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=FT-SAE-EXT-KEY SAE-EXT-KEY\n", "sae_only", "4", "3", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=WPA-PSK-SHA256\n\tproto=RSN\n", "wpa2", "1", "2", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=WPA-PSK WPA-EAP\n\tproto=RSN\n", "wpa2", "1", "2", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=NONE\n\tproto=WPA\n", "wpa", "1", "1", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=SAEX\n\tproto=RSN\n", "wpa2", "1", "2", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=sae\n\tproto=RSN\n", "wpa2", "1", "2", "key"},
    {"\tpsk=\"key\"\n\tproto=RSN\n", "wpa2", "1", "2", "key"},
    {"\tpsk=\"key\"\n", "wpa/wpa2", "1", "0", "key"},
    {"\tpsk=\"key\"\n\tkey_mgmt=WPA3-SAE\n\tproto=RSN\n", "psk_sae", "4", "2", "key"},
    {"\tsae_password=\"own\"\n\tkey_mgmt=SAE\n", "sae_only", "4", "3", "own"},
    {"\tsae_password=\"own\"\n\tpsk=\"key\"\n\tkey_mgmt=SAE\n", "sae_only", "4", "3", "own"},
    {"\tsae_password=\"own\"\n\tpsk=\"key\"\n\tkey_mgmt=SAE WPA-PSK\n", "psk_sae", "4", "0", "key"},
    {"\tsae_password=4b657931\n\tkey_mgmt=SAE\n", "sae_only", "4", "3", "Key1"},
    {"\tsae_password=4b00\n\tkey_mgmt=SAE\n", "sae_only", "4", "3", "4b00"},
    {"\tsae_password=\"own\"\n", "wpa/wpa2", "1", "0", "own"},
    {"\tkey_mgmt=SAE\n", "none", "0", "0", ""},
    {"\tkey_mgmt=OWE\n", "none", "0", "0", ""},
    {"\tkey_mgmt=NONE\n", "none", "0", "0", ""},
    {"", "none", "0", "0", ""},
};

TEST_F(write_back, the_words_of_the_key_management_and_the_keys_make_the_security)
{
    for (const security_case &row : securities_read) {
        clear_tmp();
        write_switches("on", "on");
        learn(std::string("\tssid=\"Root\"\n") + row.lines);
        EXPECT_EQ(0, patch());
        EXPECT_EQ("\"" + std::string(row.security) + "\"", sta("security_2g")) << row.lines;
        EXPECT_EQ(row.mode, sta("securityType_2g")) << row.lines;
        EXPECT_EQ(row.version, sta("wpaVersion_2g")) << row.lines;
        EXPECT_EQ("\"" + std::string(row.password) + "\"", sta("password_2g")) << row.lines;
    }
}

// A cut key would let nobody in.
TEST_F(write_back, a_password_for_sae_that_no_field_can_hold_is_left_out)
{
    const std::string longest(WPS_PASSWORD_SIZE - 1, 'p');
    for (const std::string &value : {"\"" + longest + "x\"", "\"" + std::string(200, 'p') + "\"",
                                     longest + "x", std::string(2 * WPS_PASSWORD_SIZE, '4'),
                                     "00" + std::string(WPS_PASSWORD_SIZE - 1, '4')}) {
        clear_tmp();
        write_switches("on", "on");
        learn("\tssid=\"Root\"\n\tpsk=\"key\"\n\tsae_password=" + value + "\n\tkey_mgmt=SAE\n");
        console_text();
        EXPECT_EQ(0, patch());
        EXPECT_EQ("\"key\"", sta("password_2g")) << value;
        const std::string log = log_text();
        const size_t at = log.find("> sae_password is longer than 64 bytes, left out\n");
        EXPECT_NE(std::string::npos, at) << value;
        EXPECT_EQ(std::string::npos, log.find("sae_password is", at + 4)) << "one line";
    }
    clear_tmp();
    write_switches("on", "on");
    learn("\tssid=\"Root\"\n\tsae_password=\"" + longest + "\"\n\tkey_mgmt=SAE\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"" + longest + "\"", sta("password_2g"));
}

struct name_case {
    const char *value;
    const char *name;
    const char *hex;
};

const name_case names_read[] = {
    {"\"Root\"", "\"Root\"", NOT_WRITTEN},
    {"\" two  blanks \"", "\" two  blanks \"", NOT_WRITTEN},
    {"\"\"Root\"\"", "\"\\\"Root\\\"\"", NOT_WRITTEN},
    {"\"4bc3bc636865\"", "\"4bc3bc636865\"", NOT_WRITTEN},
    {"\"P\"x\"\"", "\"P\\\"x\\\"\"", NOT_WRITTEN},
    {"\"{\"", "\"{\"", NOT_WRITTEN},
    {"4bc3bc636865",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"4BC3bC636865",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"4bfc636865",
     "\"K\xef\xbf\xbd"
     "che\"",
     "\"4bfc636865\""},
    {"410042",
     "\"A\xef\xbf\xbd"
     "B\"",
     "\"410042\""},
    {"00", "\"\xef\xbf\xbd\"", "\"00\""},
    {"0a", "\"\\n\"", NOT_WRITTEN},
    {"P\"K\\xc3\\xbc\\143\\x68e\"",
     "\"K\xc3\xbc"
     "che\"",
     NOT_WRITTEN},
    {"P\"\\\"\\\\\\n\\r\\t\\e\\x1g\\7\\q\\x\\\"", "\"\\\"\\\\\\n\\r\\t\\u001b\\u0001g\\u0007q\"",
     NOT_WRITTEN},
    {"P\"A\\0B\"",
     "\"A\xef\xbf\xbd"
     "B\"",
     "\"410042\""},
    {"P\"\"", "\"\"", NOT_WRITTEN},
    {"P\"", "\"P\\\"\"", NOT_WRITTEN},
    {"abc", "\"abc\"", NOT_WRITTEN},
    {"Root", "\"Root\"", NOT_WRITTEN},
    {"", "\"\"", NOT_WRITTEN},
};

TEST_F(write_back, a_name_arrives_byte_by_byte_in_each_form_that_the_supplicant_writes)
{
    for (const name_case &row : names_read) {
        clear_tmp();
        write_switches("on", "on");
        learn("\tssid=" + std::string(row.value) + "\n\tpsk=\"passphrase\"\n");
        EXPECT_EQ(0, patch());
        EXPECT_EQ(row.name, sta("ssid_2g")) << row.value;
        EXPECT_EQ(row.hex, sta("ssid_hex_2g")) << row.value;
    }
}

// "WPA" is found in "WPA3" as well and takes the 3 back.
TEST_F(write_back, a_proto_of_wpa3_is_written_as_mixed)
{
    learn("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n\tkey_mgmt=WPA3-SAE\n\tproto=WPA3\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("0", sta("wpaVersion_2g"));
    EXPECT_EQ("\"psk_sae\"", sta("security_2g"));
}

TEST_F(write_back, a_wep_network_is_written_as_open_since_its_key_is_no_passphrase)
{
    learn("\tssid=\"Root\"\n\tkey_mgmt=WEP\n\twep_key0=\"abcde\"\n\twep_tx_keyidx=2\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"none\"", sta("security_2g"));
    EXPECT_EQ("\"\"", sta("password_2g"));
    EXPECT_EQ("2", sta("index_2g"));
}

TEST_F(write_back, a_secured_network_without_its_passphrase_is_written_as_open)
{
    learn("\tssid=\"Root\"\n\tproto=RSN\n\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"none\"", sta("security_2g"));
    EXPECT_EQ("0", sta("wpaVersion_2g"));
    EXPECT_EQ("\"auto\"", sta("wpa_encryption_2g"));
}

TEST_F(write_back, values_are_cut_to_what_the_settings_can_hold)
{
    learn("\tssid=\"" + std::string(40, 's') + "\"\n\tpsk=\"" + std::string(80, 'p') +
          "\"\n\tcorvex_support=1\n\tcorvex_qmie=" + std::string(200, 'd') + "\n");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"" + std::string(32, 's') + "\"", sta("ssid_2g"));
    EXPECT_EQ("\"" + std::string(64, 'p') + "\"", sta("password_2g"));
    EXPECT_EQ("\"" + std::string(128, 'd') + "\"", sta("data_2g"));
}

TEST_F(write_back, each_key_is_told_in_detail)
{
    learn(
        "\tssid=\"Root\"\n\tother=7\n\tmulti_ap_backhaul_sta=1\n\tcorvex_support=1\n\tcorvex_qmie="
        "dd\n");
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_5G, KELM_BAND_2G, nullptr));
    const std::string log = console_text_without_line_numbers();
    const std::string origin = "kelm[rtk_repeater_patching_back:N]: ";
    EXPECT_TRUE(contains(log, origin + "parse credential 0 for apBand 1\n"));
    EXPECT_TRUE(contains(log, origin + "Find enabled network configs:\n"));
    EXPECT_TRUE(contains(log, origin + "key[ssid]: value[Root]\n" + origin +
                                  "key[other]: value[7]\n" + origin +
                                  "key[multi_ap_backhaul_sta]: value[1]\n" + origin +
                                  "--------------------band 1 multiap 1\n" + origin +
                                  "key[corvex_support]: value[1]\n" + origin +
                                  "--------------------band 1 support_mesh 1\n" + origin +
                                  "--------------------band 1 corvex_qmie dd\n" + origin +
                                  "key[corvex_qmie]: value[dd]\n"))
        << log;
}

// --- Whole files ---

// As wpa_supplicant wrote them (see the README there): what ends up in the station's file.
const char *const real_files[] = {
    "wpa2", "wpa2_hex_key", "mixed_unprintable", "open", "wpa3_transition", "wep", "older",
};

TEST_F(write_back, files_as_the_supplicant_writes_them_give_the_expected_credentials)
{
    for (const std::string name : real_files) {
        clear_tmp();
        write_switches("on", "on");
        const std::string conf = read_file(DATA + name + ".conf");
        ASSERT_NE("", conf) << name;
        write_file(FILE_2G, conf);
        EXPECT_EQ(0, patch()) << name;
        EXPECT_EQ(read_file(DATA + name + ".sta.txt"), read_file(WPS_STA_FILE)) << name;
        EXPECT_EQ(read_file(DATA + name + ".ap.txt"), read_file(WPS_AP_FILE)) << name;
    }
}

// --- What is written where ---

TEST_F(write_back, the_two_copies_write_different_files)
{
    learn_usual();
    EXPECT_EQ(0, patch());
    EXPECT_EQ((words{"wps_wifi_ap.txt", "wps_wifi_sta.txt"}), credential_files());
    const std::string station = read_file(WPS_STA_FILE);
    const std::string access_point = read_file(WPS_AP_FILE);
    clear_tmp();
    write_switches("on", "on");
    learn_usual();
    EXPECT_EQ(0, _rtk_repeater_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_EQ((words{"_wps_wifi_ap.txt", "_wps_wifi_sta.txt"}), credential_files());
    EXPECT_EQ(station, read_file(WPS_STA_FILE_MESH));
    EXPECT_EQ(access_point, read_file(WPS_AP_FILE_MESH));
}

// Each text names the writer, which is the other one's by its underscore.
TEST_F(write_back, the_plain_copy_logs_the_text_with_the_underscore_and_the_easymesh_copy_the_other)
{
    learn_usual();
    factory_mode = 1;
    EXPECT_EQ(0, patch());
    EXPECT_TRUE(contains(console_text_without_line_numbers(),
                         "kelm[rtk_repeater_patching_back:N]: call _rtk_wps_set_sta_config\n"
                         "kelm[rtk_repeater_patching_back:N]: sta config over! then config apCfg "
                         "0[1/1]\n"));
    EXPECT_EQ(0, _rtk_repeater_patching_back(KELM_BAND_2G, KELM_BAND_2G, nullptr));
    EXPECT_TRUE(contains(console_text_without_line_numbers(),
                         "kelm[_rtk_repeater_patching_back:N]: call rtk_wps_set_sta_config\n"
                         "kelm[_rtk_repeater_patching_back:N]: sta config over! then config apCfg "
                         "0[1/1]\n"));
}

TEST_F(write_back, the_station_is_written_before_the_access_point)
{
    learn_usual();
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(0, patch());
    const std::string log = log_text();
    size_t at = 0;
    for (const char *line : {"> call _rtk_wps_set_sta_config\n", "> commit sta config info: {",
                             "> sta config over! then", "> ap config info total: {"}) {
        const size_t found = log.find(line);
        ASSERT_NE(std::string::npos, found) << line;
        EXPECT_GE(found, at) << line;
        at = found;
    }
}

// The evaluation has told the user's log already.
TEST_F(write_back, a_stations_outcome_is_not_reported_again)
{
    learn_usual();
    for (const int outcome : {WPS_STATUS_SUCCESS, WPS_STATUS_TIMEOUT}) {
        band(KELM_BAND_2G).wps_status = outcome;
        EXPECT_EQ(0, patch());
        EXPECT_EQ(words{}, syslog_lines()) << outcome;
        EXPECT_FALSE(contains(log_text(), "wps_monitor")) << outcome;
    }
}

TEST_F(write_back, a_switched_off_station_or_access_point_is_not_written)
{
    learn_usual();
    write_switches("off", "on");
    EXPECT_EQ(0, patch());
    EXPECT_EQ(words{"wps_wifi_ap.txt"}, credential_files());
    clear_tmp();
    learn_usual();
    write_switches("on", "off");
    EXPECT_EQ(0, patch());
    EXPECT_EQ(words{"wps_wifi_sta.txt"}, credential_files());
    EXPECT_EQ(2u, dirty);
}

TEST_F(write_back, a_device_in_its_factory_state_gets_its_access_points_switched_on)
{
    learn_usual();
    write_switches("on", "off");
    factory_mode = 1;
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"on\"", ap("enable_2g"));
    EXPECT_EQ("\"Root network_EXT\"", ap("ssid_2g"));
    EXPECT_TRUE(contains(log_text(), "> sta config over! then config apCfg 0[0/1]\n"));
}

TEST_F(write_back, without_settings_only_the_factory_state_writes_anything)
{
    learn_usual();
    unlink("/tmp/wifi.conf");
    EXPECT_EQ(-1, patch()) << "nothing written is no success";
    EXPECT_EQ(words{}, credential_files());
    EXPECT_EQ(0u, dirty);
    factory_mode = 1;
    EXPECT_EQ(0, patch());
    EXPECT_EQ(words{"wps_wifi_ap.txt"}, credential_files());
}

TEST_F(write_back, a_band_is_written_when_its_station_is_or_where_only_its_access_point_is_due)
{
    const struct {
        const char *station, *access_point;  // as the settings switch them
        bool no_room_station, no_room_access_point;
        int result;
    } rows[] = {
        {"on", "on", false, false, 0},    {"on", "on", false, true, 0},
        {"on", "on", true, false, -1},    {"on", "on", true, true, -1},
        {"on", "off", false, false, 0},   {"on", "off", true, false, -1},
        {"off", "on", false, false, 0},   {"off", "on", false, true, -1},
        {"off", "off", false, false, -1},
    };
    for (const auto &row : rows) {
        clear_tmp();
        dirty = 0;
        learn_usual();
        write_switches(row.station, row.access_point);
        if (row.no_room_station)
            block_name(WPS_STA_FILE);
        if (row.no_room_access_point)
            block_name(WPS_AP_FILE);
        EXPECT_EQ(row.result, patch())
            << row.station << row.access_point << row.no_room_station << row.no_room_access_point;
        EXPECT_EQ(row.result == 0 ? 1u : 0u, dirty);
    }
}

TEST_F(write_back, another_bands_station_lends_its_name_to_the_access_point_alone)
{
    learn_usual();
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_5G, KELM_BAND_2G, nullptr));
    EXPECT_EQ("\"\"", sta("ssid_5g"));
    EXPECT_EQ("\"correct horse battery\"", sta("password_5g"));
    EXPECT_EQ("\"Root network_5GEXT\"", ap("ssid_5g"));
    EXPECT_EQ(NOT_WRITTEN, sta("ssid_2g"));
}

TEST_F(write_back, a_matched_root_access_point_is_mirrored_with_its_own_name_and_security)
{
    learn_usual();
    const kelm_rootap_info record = texts("psk_sae", "aes");
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_5G, KELM_BAND_2G, &record));
    EXPECT_EQ("\"Mirrored\"", sta("ssid_5g"));
    EXPECT_EQ("\"correct horse battery\"", sta("password_5g"));
    EXPECT_EQ("\"psk_sae\"", sta("security_5g"));
    EXPECT_EQ("\"Mirrored_EXT\"", ap("ssid_5g"));
}

TEST_F(write_back, a_failed_stations_security_comes_from_what_its_session_knows)
{
    learn_usual();
    band(KELM_BAND_2G).wps_status = WPS_STATUS_TIMEOUT;
    band(KELM_BAND_2G).rootap = texts("psk_sae", "auto");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"psk_sae\"", sta("security_2g"));
    EXPECT_EQ("\"aes\"", sta("wpa_encryption_2g")) << "never less than what was learnt";
    EXPECT_EQ("\"Root network\"", sta("ssid_2g")) << "the name is still the file's";
}

TEST_F(write_back, a_mirrored_6_ghz_band_is_written_as_wpa3)
{
    learn_usual();
    const kelm_rootap_info record = texts("wpa2", "aes");
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_6G, KELM_BAND_2G, &record));
    EXPECT_EQ("\"sae_only\"", sta("security_6g"));
    learn("\tssid=\"Root\"\n\tkey_mgmt=NONE\n");
    EXPECT_EQ(0, rtk_repeater_patching_back(KELM_BAND_6G, KELM_BAND_2G, &record));
    EXPECT_EQ("\"owe\"", sta("security_6g"));
    EXPECT_EQ("\"aes\"", sta("wpa_encryption_6g"));
}

TEST_F(write_back, no_postfix_is_added_where_names_must_stay)
{
    learn_usual();
    set_ssid_flag("yes");
    EXPECT_EQ(0, patch());
    EXPECT_EQ("\"Root network\"", ap("ssid_2g"));
}

TEST_F(write_back, bands_without_a_record_or_a_session_are_refused)
{
    learn_usual();
    kelm_dbg_level = KELM_LOG_DETAIL;
    const struct {
        int ap_band;
        int sta_band;
    } rows[] = {{4, 0}, {0, 4}, {5, 0}, {0, 5}, {-1, 0}, {0, -1}, {4, 4}, {1000, 1000}};
    for (const auto &row : rows) {
        console_text();
        EXPECT_EQ(-1, rtk_repeater_patching_back(row.ap_band, row.sta_band, nullptr));
        EXPECT_EQ("> invalid band\n", log_text()) << row.ap_band << " " << row.sta_band;
        EXPECT_EQ(-1, _rtk_repeater_patching_back(row.ap_band, row.sta_band, nullptr));
        EXPECT_EQ("kelm[_rtk_repeater_patching_back:N]: invalid band\n",
                  console_text_without_line_numbers());
    }
    EXPECT_EQ(words{}, credential_files());
    EXPECT_EQ(0u, dirty);
}
