// SPDX-License-Identifier: ISC
// Tables of keys: which row an item goes to, and what each step puts into its member.
#include "config/conf_keys.h"

#include <gtest/gtest.h>

#include "config/band_config.h"

using namespace kelm;

namespace {

struct found {
    char text[WPS_PASSWORD_SIZE];
    char ssid[WPS_SSID_SIZE];
    char sae_password[WPS_PASSWORD_SIZE];
    uint32_t number;
    uint32_t cipher;
    uint32_t version;
    uint32_t kinds;
    int called;
};

constexpr conf_key<found> KEYS[] = {
    {"text", kelm_text_into<&found::text>},
    {"ssid", kelm_ssid_into<&found::ssid>},
    {"sae_password", kelm_sae_password_into<&found::sae_password>},
    {"number", kelm_number_into<&found::number>},
    {"pairwise", kelm_pairwise_into<&found::cipher>},
    {"proto", kelm_proto_into<&found::version>},
    {"key_mgmt", kelm_key_mgmt_into<&found::kinds>},
    {"call", [](found *into, const hapd_wpasupp_cfgitem &) { ++into->called; }},
};

// The item of one line of wpa_supplicant's file.
void take(const char *text, found *into)
{
    char line[CFG_LINE_SIZE] = {};
    copy_text(line, text);
    cfgitem_line_state state = CFG_LINE_NOTHING;
    const unique_cfg_tree item(wps_hapd_wpasupp_config_fetch_keyvalue(line, &state));
    ASSERT_EQ(CFG_LINE_VALUE, state) << text;
    kelm_take_item(KEYS, into, *item);
}

TEST(conf_keys, a_key_is_compared_whole_and_one_without_a_row_counts_for_nothing)
{
    found into = {};
    for (const char *line : {"cal=1", "calls=1", "CALL=1", "other=1"})
        take(line, &into);
    EXPECT_EQ(0, into.called);
    take("call=1", &into);
    EXPECT_EQ(1, into.called);
}

TEST(conf_keys, a_value_goes_into_its_member)
{
    found into = {};
    for (const char *line : {"text=\"a text\"", "ssid=6e616d65", "sae_password=\"secret\"",
                             "number=3", "pairwise=CCMP", "proto=RSN", "key_mgmt=SAE"})
        take(line, &into);
    EXPECT_STREQ("a text", into.text);
    EXPECT_STREQ("name", into.ssid);
    EXPECT_STREQ("secret", into.sae_password);
    EXPECT_EQ(3u, into.number);
    EXPECT_EQ(WPS_CIPHER_AES, into.cipher);
    EXPECT_EQ(WPS_VERSION_WPA2, into.version);
    EXPECT_TRUE(kelm_is_sae_only(into.kinds));
}

// "CCMP" and then "TKIP" is a network with both: automatic. A key management that nobody knows says
// nothing against the one before.
TEST(conf_keys, a_later_line_replaces_an_earlier_one_or_joins_it)
{
    found into = {};
    for (const char *line :
         {"text=\"longer text\"", "text=\"short\"", "number=3", "number=none", "pairwise=CCMP",
          "pairwise=TKIP", "proto=RSN", "proto=WPA", "key_mgmt=SAE", "key_mgmt=UNHEARD-OF"})
        take(line, &into);
    EXPECT_STREQ("short", into.text);
    EXPECT_EQ(0u, into.number);
    EXPECT_EQ(WPS_CIPHER_AUTO, into.cipher);
    EXPECT_EQ(WPS_VERSION_MIXED, into.version);
    EXPECT_TRUE(kelm_is_sae_only(into.kinds));
}

}  // namespace
