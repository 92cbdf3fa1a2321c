// SPDX-License-Identifier: ISC
// The credential files: keys, texts, their order, what is merged and what is left alone.
#include "config/credentials.h"

#include <string>

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>

#include "core/json_file.h"
#include "core/log.h"
#include "core/text.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class credentials : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
    }
};

wps_sta_band_config station()
{
    wps_sta_band_config config = {};
    copy_text(config.ssid, "Root network");
    config.auth_mode = WPS_AUTH_WPA;
    config.wpa_version = WPS_VERSION_WPA2;
    config.encryption = WPS_CIPHER_AES;
    config.wep_auth_type = 1;
    config.wep_key_format = 1;
    config.key_index = 2;
    copy_text(config.password, "correct horse battery");
    copy_text(config.data, "0a1b2c");
    config.support_mesh = 1;
    return config;
}

wps_ap_band_config access_point()
{
    wps_ap_band_config config = {};
    copy_text(config.ssid, "Own network");
    config.sec_type = WPS_AUTH_WPA;
    config.wpa_version = WPS_VERSION_WPA2;
    config.encryption = WPS_CIPHER_AES;
    config.wep_auth_type = 1;
    config.key_index = 3;
    copy_text(config.password, "own passphrase");
    config.ap_bss_enabled = 1;
    return config;
}

std::string expected(const std::string &name)
{
    return read_file("/mnt/src/tests/data/credentials/" + name);
}

// The value under a key as JSON text, or "" when the key is not there.
std::string value_in(const char *path, const std::string &key)
{
    const unique_json object(json_tokener_parse(read_file(path).c_str()));
    json_object *value = nullptr;
    if (!json_object_object_get_ex(object.get(), key.c_str(), &value))
        return "";
    return json_object_to_json_string_ext(value, JSON_C_TO_STRING_NOSLASHESCAPE);
}

// A place where no file can be opened for writing.
TEST_F(credentials, a_station_has_its_thirteen_keys_in_their_order)
{
    const wps_sta_band_config config = station();
    _wps_set_sta_config(KELM_BAND_2G, &config);
    EXPECT_EQ(expected("station_2g.txt"), read_file(WPS_STA_FILE));
}

TEST_F(credentials, an_access_point_has_its_twelve_keys_in_their_order)
{
    const wps_ap_band_config config = access_point();
    _wps_set_ap_config(KELM_BAND_5G, &config);
    EXPECT_EQ(expected("access_point_5g.txt"), read_file(WPS_AP_FILE));
}

TEST_F(credentials, an_extender_has_its_four_keys_in_their_order)
{
    wps_ap_band_config config = access_point();
    config.hide = 1;
    _wps_set_ext_config(KELM_BAND_5G2, &config);
    EXPECT_EQ(expected("extender_5g2.txt"), read_file(WPS_AP_FILE));
}

TEST_F(credentials, every_band_has_keys_of_its_own_in_one_object)
{
    const wps_sta_band_config config = station();
    for (int band = 0; band < KELM_BAND_COUNT; ++band)
        _wps_set_sta_config(band, &config);
    for (const char *key : {"ssid_2g", "ssid_5g", "ssid_5g2", "ssid_6g"})
        EXPECT_EQ("\"Root network\"", value_in(WPS_STA_FILE, key)) << key;
    for (const char *key : {"wpa_encryption_2g", "multiap_6g"})
        EXPECT_NE("", value_in(WPS_STA_FILE, key)) << key;
}

TEST_F(credentials, a_second_band_joins_the_first_in_the_file)
{
    wps_sta_band_config config = station();
    _wps_set_sta_config(KELM_BAND_2G, &config);
    copy_text(config.ssid, "Root network 5G");
    _wps_set_sta_config(KELM_BAND_5G, &config);
    EXPECT_EQ("\"Root network\"", value_in(WPS_STA_FILE, "ssid_2g"));
    EXPECT_EQ("\"Root network 5G\"", value_in(WPS_STA_FILE, "ssid_5g"));
}

TEST_F(credentials, a_key_is_replaced_in_its_place_and_strangers_stay)
{
    write_file(WPS_STA_FILE, "{\"mesh_enable\": \"on\", \"stranger\": [1, 2]}");
    _wps_set_mesh_config(0);
    EXPECT_EQ("{ \"mesh_enable\": \"off\", \"stranger\": [ 1, 2 ] }\n", read_file(WPS_STA_FILE));
}

TEST_F(credentials, a_file_that_is_no_object_is_replaced)
{
    for (const char *text : {"[1, 2]", "nonsense", "{\"ssid_2g\": "}) {
        write_file(WPS_STA_FILE, text);
        _wps_set_mesh_config(1);
        EXPECT_EQ("{ \"mesh_enable\": \"on\" }\n", read_file(WPS_STA_FILE)) << text;
    }
}

// The scripts of the plain and of the EasyMesh path look at different files: a writer that went by
// its name would leave both with the other's settings.
TEST_F(credentials, writers_with_an_underscore_write_the_file_without_one_and_the_reverse)
{
    const wps_sta_band_config sta = station();
    const wps_ap_band_config ap = access_point();
    wps_set_sta_config(KELM_BAND_2G, &sta);
    EXPECT_TRUE(file_exists(WPS_STA_FILE_MESH));
    EXPECT_FALSE(file_exists(WPS_STA_FILE));
    wps_set_ext_config(KELM_BAND_2G, &ap);
    EXPECT_TRUE(file_exists(WPS_AP_FILE_MESH));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));

    _wps_set_sta_config(KELM_BAND_2G, &sta);
    _wps_set_ext_config(KELM_BAND_2G, &ap);
    EXPECT_EQ(read_file(WPS_STA_FILE_MESH), read_file(WPS_STA_FILE));
    EXPECT_EQ(read_file(WPS_AP_FILE_MESH), read_file(WPS_AP_FILE));
}

TEST_F(credentials, key_index_is_one_to_four_else_one)
{
    const struct {
        uint32_t index;
        const char *written;
    } rows[] = {{0, "1"}, {1, "1"}, {2, "2"}, {3, "3"}, {4, "4"}, {5, "1"}, {7, "1"}, {~0u, "1"}};

    for (const auto &row : rows) {
        wps_sta_band_config sta = station();
        sta.key_index = row.index;
        _wps_set_sta_config(KELM_BAND_2G, &sta);
        EXPECT_EQ(row.written, value_in(WPS_STA_FILE, "index_2g")) << row.index;
        wps_ap_band_config ap = access_point();
        ap.key_index = row.index;
        _wps_set_ap_config(KELM_BAND_2G, &ap);
        EXPECT_EQ(row.written, value_in(WPS_AP_FILE, "index_2g")) << row.index;
    }
}

TEST_F(credentials, security_texts_differ_between_station_and_access_point)
{
    const struct {
        uint32_t mode;
        uint32_t version;
        const char *sta;
        const char *ap;
    } rows[] = {
        {0, 0, "\"none\"", "\"none\""},
        {0, 3, "\"none\"", "\"none\""},
        {1, 1, "\"wpa\"", "\"wpa\""},
        {1, 2, "\"wpa2\"", "\"wpa2\""},
        {1, 0, "\"wpa/wpa2\"", "\"wpa/wpa2\""},
        {1, 3, "\"wpa/wpa2\"", "\"wpa/wpa2\""},
        {2, 0, "\"wep\"", "\"wep\""},
        {2, 2, "\"wep\"", "\"wep\""},
        {3, 2, "\"wpa\"", "\"wpa\""},
        {4, 3, "\"sae_only\"", "\"wpa3\""},
        {4, 2, "\"psk_sae\"", "\"wpa2/wpa3\""},
        {4, 0, "\"psk_sae\"", "\"wpa2/wpa3\""},
        {5, 3, "\"owe\"", ""},
        {9, 2, "", ""},
    };

    for (const auto &row : rows) {
        clear_tmp();
        wps_sta_band_config sta = station();
        sta.auth_mode = row.mode;
        sta.wpa_version = row.version;
        _wps_set_sta_config(KELM_BAND_2G, &sta);
        EXPECT_EQ(row.sta, value_in(WPS_STA_FILE, "security_2g")) << row.mode << " " << row.version;
        wps_ap_band_config ap = access_point();
        ap.sec_type = row.mode;
        ap.wpa_version = row.version;
        _wps_set_ap_config(KELM_BAND_2G, &ap);
        EXPECT_EQ(row.ap, value_in(WPS_AP_FILE, "sec_2g")) << row.mode << " " << row.version;
    }
}

TEST_F(credentials, an_owe_access_point_is_told_under_the_station_key_and_keeps_its_old_security)
{
    wps_ap_band_config config = access_point();
    _wps_set_ap_config(KELM_BAND_2G, &config);
    config.sec_type = WPS_AUTH_OWE;
    _wps_set_ap_config(KELM_BAND_2G, &config);
    EXPECT_EQ("\"wpa2\"", value_in(WPS_AP_FILE, "sec_2g"));
    EXPECT_EQ("\"owe\"", value_in(WPS_AP_FILE, "security_2g"));

    config.sec_type = WPS_AUTH_WPA;
    clear_tmp();
    _wps_set_ap_config(KELM_BAND_2G, &config);
    EXPECT_EQ("", value_in(WPS_AP_FILE, "security_2g"));
}

TEST_F(credentials, an_unknown_mode_writes_all_keys_but_the_security)
{
    wps_sta_band_config sta = station();
    sta.auth_mode = 9;
    _wps_set_sta_config(KELM_BAND_2G, &sta);
    EXPECT_EQ(expected("station_unknown_mode_2g.txt"), read_file(WPS_STA_FILE));

    wps_ap_band_config ap = access_point();
    ap.sec_type = 9;
    _wps_set_ap_config(KELM_BAND_5G, &ap);
    EXPECT_EQ(expected("access_point_unknown_mode_5g.txt"), read_file(WPS_AP_FILE));
}

TEST_F(credentials, encryption_is_a_text_for_the_station_and_a_number_for_the_access_point)
{
    const struct {
        uint32_t encryption;
        const char *sta;
        const char *ap;
    } rows[] = {
        {0, "\"auto\"", "0"}, {1, "\"tkip\"", "1"}, {2, "\"aes\"", "2"}, {7, "\"auto\"", "7"}};

    for (const auto &row : rows) {
        wps_sta_band_config sta = station();
        sta.encryption = row.encryption;
        _wps_set_sta_config(KELM_BAND_2G, &sta);
        EXPECT_EQ(row.sta, value_in(WPS_STA_FILE, "wpa_encryption_2g"));
        wps_ap_band_config ap = access_point();
        ap.encryption = row.encryption;
        _wps_set_ap_config(KELM_BAND_2G, &ap);
        EXPECT_EQ(row.ap, value_in(WPS_AP_FILE, "wpaEncryption_2g"));
    }
}

TEST_F(credentials, a_station_is_switched_on_even_where_its_interface_is_off)
{
    wps_sta_band_config config = station();
    config.sta_bss_enabled = 0;
    _wps_set_sta_config(KELM_BAND_2G, &config);
    EXPECT_EQ("\"on\"", value_in(WPS_STA_FILE, "enable_2g"));
}

TEST_F(credentials, an_access_points_switch_follows_its_record)
{
    wps_ap_band_config config = access_point();
    config.ap_bss_enabled = 0;
    _wps_set_ap_config(KELM_BAND_2G, &config);
    EXPECT_EQ("\"off\"", value_in(WPS_AP_FILE, "enable_2g"));
    config.ap_bss_enabled = 1;
    _wps_set_ext_config(KELM_BAND_2G, &config);
    EXPECT_EQ("\"on\"", value_in(WPS_AP_FILE, "enable_2g"));
}

TEST_F(credentials, an_extender_never_touches_password_and_security)
{
    wps_ap_band_config config = access_point();
    _wps_set_ap_config(KELM_BAND_2G, &config);
    copy_text(config.password, "another passphrase");
    copy_text(config.ssid, "Root network_EXT");
    config.sec_type = WPS_AUTH_OPEN;
    _wps_set_ext_config(KELM_BAND_2G, &config);

    EXPECT_EQ("\"own passphrase\"", value_in(WPS_AP_FILE, "password_2g"));
    EXPECT_EQ("\"wpa2\"", value_in(WPS_AP_FILE, "sec_2g"));
    EXPECT_EQ("1", value_in(WPS_AP_FILE, "securityType_2g"));
    EXPECT_EQ("\"Root network_EXT\"", value_in(WPS_AP_FILE, "ssid_2g"));
    EXPECT_EQ("\"true\"", value_in(WPS_AP_FILE, "sec_follow_2g"));
}

TEST_F(credentials, common_and_mesh_switches_are_on_or_off)
{
    _wps_set_ext_common_config(1);
    EXPECT_EQ("{ \"smart_setting_5g\": \"on\" }\n", read_file(WPS_AP_FILE));
    _wps_set_ext_common_config(0);
    EXPECT_EQ("{ \"smart_setting_5g\": \"off\" }\n", read_file(WPS_AP_FILE));
    _wps_set_mesh_config(1);
    EXPECT_EQ("{ \"mesh_enable\": \"on\" }\n", read_file(WPS_STA_FILE));
    _wps_set_mesh_config(0);
    EXPECT_EQ("{ \"mesh_enable\": \"off\" }\n", read_file(WPS_STA_FILE));
}

TEST_F(credentials, no_band_and_no_record_write_nothing_and_say_so)
{
    const wps_sta_band_config sta = station();
    const wps_ap_band_config ap = access_point();
    for (const int band : {-1, 4, 255}) {
        EXPECT_EQ(-1, _wps_set_sta_config(band, &sta));
        EXPECT_EQ(-1, wps_set_sta_config(band, &sta));
        EXPECT_EQ(-1, _wps_set_ap_config(band, &ap));
        EXPECT_EQ(-1, _wps_set_ext_config(band, &ap));
        EXPECT_EQ(-1, wps_set_ext_config(band, &ap));
    }
    EXPECT_EQ(-1, _wps_set_sta_config(0, nullptr));
    EXPECT_EQ(-1, wps_set_sta_config(0, nullptr));
    EXPECT_EQ(-1, _wps_set_ap_config(0, nullptr));
    EXPECT_EQ(-1, _wps_set_ext_config(0, nullptr));
    EXPECT_EQ(-1, wps_set_ext_config(0, nullptr));
    EXPECT_EQ(-1, wps_set_dual_ap_bh_config(nullptr));

    for (const char *path :
         {WPS_STA_FILE, WPS_STA_FILE_MESH, WPS_AP_FILE, WPS_AP_FILE_MESH, WPS_AP_BH_FILE})
        EXPECT_FALSE(file_exists(path)) << path;
    EXPECT_EQ("", console_text());
}

TEST_F(credentials, texts_that_fill_their_fields_are_written_whole)
{
    wps_sta_band_config config = station();
    copy_text(config.ssid, std::string(32, 's').c_str());
    memset(config.password, 'p', sizeof config.password);
    memset(config.data, 'd', sizeof config.data);
    _wps_set_sta_config(KELM_BAND_2G, &config);
    EXPECT_EQ("\"" + std::string(32, 's') + "\"", value_in(WPS_STA_FILE, "ssid_2g"));
    EXPECT_EQ("\"" + std::string(65, 'p') + "\"", value_in(WPS_STA_FILE, "password_2g"));
    EXPECT_EQ("\"" + std::string(129, 'd') + "\"", value_in(WPS_STA_FILE, "data_2g"));
}

// The usual key shows what can be shown, the other one has the bytes.
TEST_F(credentials, bytes_that_are_no_text_can_be_recovered_from_the_file)
{
    wps_sta_band_config config = station();
    const char name[] = "\xff\0caf\xc3\xa9\xc3";
    copy_ssid(config.ssid, name, sizeof name - 1);
    copy_text(config.password,
              "K\xfc"
              "chenradio");
    copy_text(config.data, "\xed\xa0\x80");
    _wps_set_sta_config(KELM_BAND_5G2, &config);
    const struct {
        const char *key;
        const char *value;
    } rows[] = {
        {"ssid_5g2",
         "\"\xef\xbf\xbd\xef\xbf\xbd"
         "caf\xc3\xa9\xef\xbf\xbd\""},
        {"ssid_hex_5g2", "\"ff00636166c3a9c3\""},
        {"password_5g2",
         "\"K\xef\xbf\xbd"
         "chenradio\""},
        {"password_hex_5g2", "\"4bfc6368656e726164696f\""},
        {"data_5g2", "\"\xef\xbf\xbd\xef\xbf\xbd\xef\xbf\xbd\""},
        {"data_hex_5g2", "\"eda080\""},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.value, value_in(WPS_STA_FILE, row.key)) << row.key;
}

TEST_F(credentials, the_bytes_of_an_earlier_write_go_with_the_text_that_they_stood_for)
{
    wps_ap_band_config config = access_point();
    copy_text(config.ssid, "\xff");
    copy_text(config.password, "passphrase \xff");
    _wps_set_ap_config(KELM_BAND_2G, &config);
    _wps_set_ap_config(KELM_BAND_5G, &config);
    copy_text(config.ssid, "Home");
    _wps_set_ext_config(KELM_BAND_2G, &config);
    EXPECT_EQ("", value_in(WPS_AP_FILE, "ssid_hex_2g"));
    EXPECT_EQ("\"Home\"", value_in(WPS_AP_FILE, "ssid_2g"));
    EXPECT_EQ("\"7061737370687261736520ff\"", value_in(WPS_AP_FILE, "password_hex_2g"));
    EXPECT_EQ("\"ff\"", value_in(WPS_AP_FILE, "ssid_hex_5g"));
    copy_text(config.password, "passphrase");
    _wps_set_ap_config(KELM_BAND_2G, &config);
    EXPECT_EQ("", value_in(WPS_AP_FILE, "password_hex_2g"));
}

TEST_F(credentials, the_backhaul_has_its_bytes_too)
{
    wps_ap_band_config bands[KELM_BAND_COUNT] = {};
    copy_text(bands[0].ssid, "\xff");
    copy_text(bands[1].password, "\xfe");
    EXPECT_EQ(0, wps_set_dual_ap_bh_config(bands));
    EXPECT_EQ(
        "{ \"backhaul_ssid_2g\": \"\xef\xbf\xbd\", \"backhaul_ssid_hex_2g\": \"ff\", "
        "\"backhaul_psk_key_2g\": \"\", \"backhaul_ssid_5g\": \"\", "
        "\"backhaul_psk_key_5g\": \"\xef\xbf\xbd\", \"backhaul_psk_key_hex_5g\": \"fe\" }\n",
        read_file(WPS_AP_BH_FILE));
}

TEST_F(credentials, quotes_and_control_characters_survive_the_file)
{
    wps_sta_band_config config = station();
    copy_text(config.ssid, "a\"b\\c/d\n\x01\xc3\xa4");
    _wps_set_sta_config(KELM_BAND_2G, &config);
    const unique_json object(json_tokener_parse(read_file(WPS_STA_FILE).c_str()));
    json_object *ssid = nullptr;
    ASSERT_TRUE(json_object_object_get_ex(object.get(), "ssid_2g", &ssid));
    EXPECT_STREQ("a\"b\\c/d\n\x01\xc3\xa4", json_object_get_string(ssid));
    const std::string text = read_file(WPS_STA_FILE);
    EXPECT_EQ(text.size() - 1, text.find('\n'));
}

TEST_F(credentials, files_are_their_owners_whatever_the_umask)
{
    const mode_t old = umask(0);
    const wps_sta_band_config sta = station();
    const wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    write_file(WPS_AP_FILE, "{}");
    _wps_set_sta_config(KELM_BAND_2G, &sta);
    wps_set_sta_config(KELM_BAND_2G, &sta);
    _wps_set_ap_config(KELM_BAND_2G, ap);
    wps_set_ext_config(KELM_BAND_2G, ap);
    (void)wps_set_dual_ap_bh_config(ap);
    EXPECT_EQ(0u, umask(old));

    for (const char *path :
         {WPS_STA_FILE, WPS_STA_FILE_MESH, WPS_AP_FILE, WPS_AP_FILE_MESH, WPS_AP_BH_FILE})
        EXPECT_EQ(0600, file_mode(path)) << path;
}

TEST_F(credentials, a_station_file_that_cannot_be_opened_is_always_told_by_its_plain_name)
{
    const wps_sta_band_config config = station();
    kelm_dbg_level = 0;
    block_name(WPS_STA_FILE);
    block_name(WPS_STA_FILE_MESH);
    _wps_set_sta_config(KELM_BAND_2G, &config);
    wps_set_sta_config(KELM_BAND_2G, &config);
    EXPECT_EQ(
        "kelm[kelm_replace_file:N]: /tmp/wps_wifi_sta.txt: not written: Device or resource busy\n"
        "kelm[_wps_set_sta_config:N]: failed to open /tmp/wps_wifi_sta.txt!\n"
        "kelm[kelm_replace_file:N]: /tmp/_wps_wifi_sta.txt: not written: Device or resource busy\n"
        "kelm[wps_set_sta_config:N]: failed to open /tmp/wps_wifi_sta.txt!\n",
        console_text_without_line_numbers());
}

TEST_F(credentials, every_writer_tells_whether_its_file_holds_the_keys)
{
    static const wps_sta_band_config sta = station();
    static const wps_ap_band_config aps[KELM_BAND_COUNT] = {access_point()};
    const struct {
        const char *path;
        int (*write)();
    } writers[] = {
        {WPS_STA_FILE, []() { return _wps_set_sta_config(KELM_BAND_2G, &sta); }},
        {WPS_STA_FILE_MESH, []() { return wps_set_sta_config(KELM_BAND_2G, &sta); }},
        {WPS_AP_FILE, []() { return _wps_set_ap_config(KELM_BAND_2G, aps); }},
        {WPS_AP_FILE, []() { return _wps_set_ext_config(KELM_BAND_2G, aps); }},
        {WPS_AP_FILE_MESH, []() { return wps_set_ext_config(KELM_BAND_2G, aps); }},
        {WPS_AP_FILE, []() { return _wps_set_ext_common_config(1); }},
        {WPS_STA_FILE, []() { return _wps_set_mesh_config(1); }},
        {WPS_AP_BH_FILE, []() { return wps_set_dual_ap_bh_config(aps); }},
    };
    for (const auto &row : writers) {
        reset_world();
        EXPECT_EQ(0, row.write()) << row.path;
        EXPECT_NE("", read_file(row.path)) << row.path;
        reset_world();
        block_name(row.path);
        testing::internal::CaptureStdout();
        EXPECT_EQ(-1, row.write()) << row.path;
        fflush(stdout);
        (void)testing::internal::GetCapturedStdout();
    }
}

TEST_F(credentials, other_files_that_cannot_be_opened_are_told_at_the_detailed_level_alone)
{
    const wps_ap_band_config config = access_point();
    const auto write_all = [&config]() {
        _wps_set_ap_config(KELM_BAND_2G, &config);
        _wps_set_ext_config(KELM_BAND_2G, &config);
        wps_set_ext_config(KELM_BAND_2G, &config);
        _wps_set_ext_common_config(1);
        _wps_set_mesh_config(1);
    };
    for (const char *path : {WPS_AP_FILE, WPS_AP_FILE_MESH, WPS_STA_FILE})
        block_name(path);
    write_all();
    EXPECT_EQ(std::string::npos, console_text().find("failed to open"));

    kelm_dbg_level = KELM_LOG_DETAIL;
    write_all();
    const std::string text = console_text_without_line_numbers();
    const struct {
        const char *writer;
        const char *path;
    } rows[] = {{"_wps_set_ap_config", "/tmp/wps_wifi_ap.txt"},
                {"_wps_set_ext_config", "/tmp/wps_wifi_ap.txt"},
                {"wps_set_ext_config", "/tmp/wps_wifi_ap.txt"},
                {"_wps_set_ext_common_config", "/tmp/wps_wifi_ap.txt"},
                {"_wps_set_mesh_config", "/tmp/wps_wifi_sta.txt"}};
    for (const auto &row : rows) {
        const std::string line =
            std::string("kelm[") + row.writer + ":N]: failed to open " + row.path + "!\n";
        EXPECT_NE(std::string::npos, text.find(line)) << line;
    }
}

TEST_F(credentials, the_whole_text_is_told_at_the_detailed_level)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    const wps_sta_band_config sta = station();
    const wps_ap_band_config ap = access_point();
    _wps_set_sta_config(KELM_BAND_2G, &sta);
    EXPECT_NE(std::string::npos, console_text_without_line_numbers().find(
                                     "kelm[_wps_set_sta_config:N]: commit sta config info: " +
                                     read_file(WPS_STA_FILE)));
    _wps_set_ap_config(KELM_BAND_2G, &ap);
    EXPECT_NE(std::string::npos,
              console_text_without_line_numbers().find(
                  "kelm[_wps_set_ap_config:N]: ap config info total: " + read_file(WPS_AP_FILE)));
    _wps_set_ext_config(KELM_BAND_2G, &ap);
    EXPECT_NE(std::string::npos,
              console_text_without_line_numbers().find(
                  "kelm[_wps_set_ext_config:N]: ap config info total: " + read_file(WPS_AP_FILE)));
    _wps_set_ext_common_config(1);
    EXPECT_NE(std::string::npos, console_text_without_line_numbers().find(
                                     "kelm[_wps_set_ext_common_config:N]: ap config info total: " +
                                     read_file(WPS_AP_FILE)));
    _wps_set_mesh_config(1);
    EXPECT_EQ(std::string::npos, console_text_without_line_numbers().find("_wps_set_mesh_config"));
}

TEST_F(credentials, the_backhaul_file_holds_four_keys_and_nothing_of_the_bands_above)
{
    wps_ap_band_config bands[KELM_BAND_COUNT] = {};
    const char *const names[] = {"low", "high", "second", "six"};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        copy_text(bands[band].ssid, names[band]);
        copy_text(bands[band].password, (std::string(names[band]) + " key").c_str());
    }
    write_file(WPS_AP_BH_FILE, "{\"stranger\": 1}");

    EXPECT_EQ(0, wps_set_dual_ap_bh_config(bands));
    EXPECT_EQ(expected("backhaul.txt"), read_file(WPS_AP_BH_FILE));
    EXPECT_EQ(
        "kelm[wps_set_dual_ap_bh_config:N]: --------------------------------ap config info "
        "total: " +
            expected("backhaul.txt"),
        console_text_without_line_numbers());
}

TEST_F(credentials, a_backhaul_file_that_cannot_be_opened_is_told_on_standard_output)
{
    const wps_ap_band_config bands[KELM_BAND_COUNT] = {};
    block_name(WPS_AP_BH_FILE);
    testing::internal::CaptureStdout();
    (void)wps_set_dual_ap_bh_config(bands);
    fflush(stdout);
    EXPECT_EQ("failed to open /tmp/wps_wifi_ap_bh.txt!", testing::internal::GetCapturedStdout());
}

}  // namespace
