// SPDX-License-Identifier: ISC
// What a station's attempt brought: which network counts, what of it goes into the record.
#include "config/supplicant_credentials.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "config/band_config.h"
#include "core/log.h"
#include "core/session.h"
#include "core/text.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *OLD_NETWORK = "network={\n\tssid=\"Old\"\n\tpsk=\"old passphrase\"\n}\n";
constexpr int FIVE_GHZ_TOO = 2;  // band-set code

class supplicant_credentials : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
        kelm_band_mask = 0;
        ASSERT_EQ(0, kelm_create_session(FIVE_GHZ_TOO));
        copy_text(kelm_get_wps_session(KELM_BAND_2G)->ifName, "wlan1-vxd");
        copy_text(kelm_get_wps_session(KELM_BAND_5G)->ifName, "wlan0-vxd");
    }

    int read(const std::string &text)
    {
        write_file(PATH, text);
        return rtk_get_wps_credentials(KELM_BAND_2G, &record);
    }

    // The second network of a file, with these lines.
    int read_network(const std::string &lines)
    {
        return read(OLD_NETWORK + std::string("network={\n") + lines + "}\n");
    }

    kelm_rootap_info record = {};
};

kelm_rootap_info earlier_record()
{
    kelm_rootap_info record;
    memset(&record, 0x5a, sizeof record);
    copy_text(record.ssid, "Earlier");
    copy_text(record.auth, "wpa2");
    copy_text(record.cipher, "aes");
    copy_text(record.password, "earlier passphrase");
    copy_text(record.qm_data, "earlier data");
    return record;
}

bool same(const kelm_rootap_info &one, const kelm_rootap_info &other)
{
    return memcmp(&one, &other, sizeof one) == 0;
}

TEST_F(supplicant_credentials, a_file_that_the_supplicant_wrote_gives_its_enabled_network)
{
    EXPECT_EQ(0, read(read_file("/mnt/src/tests/data/supplicant/three_networks.conf")));
    EXPECT_STREQ("Root network", record.ssid);
    EXPECT_STREQ("correct horse battery", record.password);
}

// No key of the tree has an equals sign, so "key_mgmt=" matches nothing: security comes with the
// scan.
TEST_F(supplicant_credentials, a_secured_network_is_recorded_as_open_until_the_scan_tells_more)
{
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n\tproto=RSN\n"
                              "\tpairwise=CCMP\n\tkey_mgmt=WPA-PSK\n"));
    EXPECT_STREQ("Root", record.ssid);
    EXPECT_STREQ("passphrase", record.password);
    EXPECT_STREQ("none", record.auth);
    EXPECT_STREQ("", record.cipher);
}

// Mesh support without the node id of the scan would make the bands' node ids differ: mesh off.
TEST_F(supplicant_credentials, mesh_data_of_the_file_does_not_reach_the_record)
{
    record = earlier_record();
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tcorvex_support=1\n\tcorvex_qmie=\"0a1b\"\n"));
    EXPECT_EQ(0x5a, record.support_mesh);
    EXPECT_STREQ("earlier data", record.qm_data);
    EXPECT_STREQ("Root", record.ssid);
}

TEST_F(supplicant_credentials, text_and_security_of_an_earlier_attempt_are_replaced_nothing_else)
{
    kelm_rootap_info expected = earlier_record();
    record = earlier_record();
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n\tkey_mgmt=WPA-PSK\n"));

    copy_text(expected.ssid, "Root");
    copy_text(expected.password, "passphrase");
    copy_text(expected.auth, "none");
    copy_text(expected.cipher, "");
    EXPECT_TRUE(same(expected, record));
}

TEST_F(supplicant_credentials, a_key_that_the_network_lacks_leaves_its_field)
{
    record = earlier_record();
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n"));
    EXPECT_STREQ("earlier passphrase", record.password);
}

TEST_F(supplicant_credentials, the_first_network_is_the_one_from_before_and_never_counts)
{
    record = earlier_record();
    EXPECT_EQ(-1, read(OLD_NETWORK));
    EXPECT_TRUE(same(earlier_record(), record));
    EXPECT_EQ(
        "kelm[wps_hapd_wpasupp_config_parse:N]: End of anaylze config file\n"
        "kelm[rtk_get_wps_credentials:N]: Analyze wpa_supplicnat config file "
        "/tmp/run/wpa_supplicant-wlan1-vxd.conf\n\n"
        "kelm[rtk_get_wps_credentials:N]: Find enabled network configs failed\n",
        console_text_without_line_numbers());
}

TEST_F(supplicant_credentials, a_disabled_network_is_passed_over)
{
    const struct {
        const char *second;
        const char *chosen;  // null: none
    } rows[] = {{"\tdisabled=1\n", "Third"},
                {"\tdisabled=2\n", "Third"},
                {"\tdisabled=0\n", "Second"},
                {"\tdisabled=no\n", "Second"},
                {"", "Second"},
                {"\tdisabled=\n", "Second"},
                {"\tdisabled_until=1\n", "Third"}};

    for (const auto &row : rows) {
        EXPECT_EQ(0, read(OLD_NETWORK + std::string("network={\n\tssid=\"Second\"\n") + row.second +
                          "}\nnetwork={\n\tssid=\"Third\"\n}\n"));
        EXPECT_STREQ(row.chosen, record.ssid) << row.second;
    }
}

TEST_F(supplicant_credentials, with_all_later_networks_disabled_the_record_stays)
{
    record = earlier_record();
    EXPECT_EQ(-1,
              read(OLD_NETWORK + std::string("network={\n\tssid=\"Second\"\n\tdisabled=1\n}\n"
                                             "network={\n\tssid=\"Third\"\n\tdisabled=1\n}\n")));
    EXPECT_TRUE(same(earlier_record(), record));
}

TEST_F(supplicant_credentials, only_blocks_named_network_count)
{
    EXPECT_EQ(-1, read("cred={\n}\nnetworks={\n}\n" + std::string(OLD_NETWORK) + "blob={\n}\n"));
    EXPECT_EQ(0, read(std::string(OLD_NETWORK) +
                      "cred={\n\tssid=\"no\"\n}\nnetwork={\n\tssid=\"Root\"\n}\n"));
    EXPECT_STREQ("Root", record.ssid);
}

TEST_F(supplicant_credentials, a_missing_or_unbalanced_file_leaves_the_record)
{
    record = earlier_record();
    EXPECT_EQ(-1, rtk_get_wps_credentials(KELM_BAND_5G, &record));
    EXPECT_EQ(
        "kelm[wps_hapd_wpasupp_config_parse:N]: wps_hapd_wpasupp_config_parse: open config file "
        "/tmp/run/wpa_supplicant-wlan0-vxd.conf failed\n"
        "kelm[rtk_get_wps_credentials:N]: Analyze wpa_supplicnat config file "
        "/tmp/run/wpa_supplicant-wlan0-vxd.conf\n\n"
        "kelm[rtk_get_wps_credentials:N]: wps_hapd_wpasupp_config_parse failed\n",
        console_text_without_line_numbers());
    EXPECT_EQ(-1, read(OLD_NETWORK + std::string("network={\n\tssid=\"Root\"\n")));
    EXPECT_EQ(-1, read(OLD_NETWORK + std::string("network={\n\tssid=\"Root\"\n}\n}\n")));
    EXPECT_TRUE(same(earlier_record(), record));
}

TEST_F(supplicant_credentials, a_band_without_a_session_is_refused)
{
    record = earlier_record();
    EXPECT_EQ(-1, rtk_get_wps_credentials(4, &record));
    EXPECT_EQ("kelm[rtk_get_wps_credentials:N]: Bad wps session[band 4].\n",
              console_text_without_line_numbers());
    EXPECT_TRUE(same(earlier_record(), record));
}

TEST_F(supplicant_credentials, texts_beyond_their_fields_are_cut)
{
    const std::string ssid = "1234567890123456789012345678901234567890";
    EXPECT_EQ(0, read_network("\tssid=\"" + ssid + "\"\n\tpsk=\"" + ssid + ssid + "\"\n"));
    EXPECT_EQ(ssid.substr(0, 32), record.ssid);
    EXPECT_EQ((ssid + ssid).substr(0, 64), record.password);
}

TEST_F(supplicant_credentials, a_name_is_taken_byte_by_byte)
{
    const struct {
        const char *value;
        std::string name;
    } rows[] = {
        {"\" Root \"", " Root "},
        {"4bc3bc636865",
         "K\xc3\xbc"
         "che"},
        {"P\"K\\xc3\\xbc\"", "K\xc3\xbc"},
        {"410042", std::string("A\0B", 3)},
        {"\"4142\"", "4142"},
        {"abc", "abc"},
    };
    for (const auto &row : rows) {
        EXPECT_EQ(0, read_network("\tssid=" + std::string(row.value) + "\n"));
        EXPECT_EQ(row.name, std::string(record.ssid, ssid_len(record.ssid))) << row.value;
    }
}

// Whether the record has a key decides whether an open network may stand for this one.
TEST_F(supplicant_credentials, a_password_for_sae_is_a_key)
{
    const struct {
        const char *lines;
        const char *password;
    } rows[] = {
        {"\tsae_password=\"own\"\n", "own"},
        {"\tsae_password=\"own\"\n\tpsk=\"key\"\n", "key"},
        {"\tpsk=\"key\"\n\tsae_password=\"own\"\n\tkey_mgmt=WPA-PSK SAE\n", "key"},
        {"\tpsk=\"key\"\n\tsae_password=\"own\"\n\tkey_mgmt=SAE\n", "own"},
        {"\tpsk=\"key\"\n\tkey_mgmt=SAE\n", "key"},
    };
    for (const auto &row : rows) {
        record = earlier_record();
        EXPECT_EQ(0, read_network(row.lines));
        EXPECT_STREQ(row.password, record.password) << row.lines;
        EXPECT_STREQ("none", record.auth) << row.lines;
    }
}

TEST_F(supplicant_credentials, a_shorter_text_leaves_nothing_of_a_longer_one)
{
    memset(record.ssid, 'x', sizeof record.ssid);
    memset(record.password, 'x', sizeof record.password);
    EXPECT_EQ(0, read_network("\tssid=\"R\"\n\tpsk=\"p\"\n"));
    EXPECT_EQ(std::string("R") + std::string(32, '\0'), std::string(record.ssid, 33));
    EXPECT_EQ(std::string("p") + std::string(64, '\0'), std::string(record.password, 65));
}

TEST_F(supplicant_credentials, keys_are_compared_whole)
{
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tssid2=\"no\"\n\tbssid=no\n\tpsk_list=no\n"));
    EXPECT_STREQ("Root", record.ssid);
    EXPECT_STREQ("", record.password);
}

TEST_F(supplicant_credentials, what_is_taken_is_told_at_the_detailed_level)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n"));
    const std::string text = console_text_without_line_numbers();
    const char *const lines[] = {
        "kelm[rtk_get_wps_credentials:N]: Find enabled network configs:\n"
        "kelm[wps_hapd_wpasupp_config_dump:N]: Dump config file\n"
        "kelm[wps_hapd_wpasupp_config_dump:N]: network=\n"
        "kelm[wps_hapd_wpasupp_config_dump:N]: \tssid=Root\n"
        "kelm[wps_hapd_wpasupp_config_dump:N]: \tpsk=passphrase\n"
        "kelm[rtk_get_wps_credentials:N]: --------------------band 0 rootApSsid Root\n"
        "kelm[rtk_get_wps_credentials:N]: --------------------band 0 rootApSec password: "
        "passphrase\n"
        "kelm[dump_rootap_info:N]: \trootap uuid: "};
    for (const char *line : lines)
        EXPECT_NE(std::string::npos, text.find(line)) << text;
}

TEST_F(supplicant_credentials, the_normal_level_keeps_the_passphrase_to_itself)
{
    EXPECT_EQ(0, read_network("\tssid=\"Root\"\n\tpsk=\"passphrase\"\n"));
    const std::string text = console_text_without_line_numbers();
    EXPECT_EQ(std::string::npos, text.find("passphrase"));
    EXPECT_NE(std::string::npos, text.find("\trootap ssid: Root\n"));
}

TEST_F(supplicant_credentials, no_tree_has_no_learnt_network)
{
    EXPECT_EQ(nullptr, kelm_find_learnt_network(nullptr));
}

}  // namespace
