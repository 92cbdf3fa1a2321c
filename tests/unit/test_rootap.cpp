// SPDX-License-Identifier: ISC
// The search for the root access point: distances, scan lists of all kinds, who mirrors whom.
#include "wlan/rootap.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>

#include <unistd.h>

#include "core/json_file.h"
#include "core/log.h"
#include "core/switches.h"
#include "core/text.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr int ALL_BANDS = 5;
constexpr const char *ROOT_MAC = "00:11:22:33:44:55";
constexpr const char *ROOT_SSID = "Root network";
constexpr const char *FAR_MAC = "a0:b1:c2:d3:e4:f5";
constexpr const char *SCAN_2G = "/tmp/wifi_scan_2g.result";
constexpr const char *SECURED = ", \"security\": \"wpa2\"";
constexpr const char *GET_2G = "/usr/bin/wifi getscanresult 2g";

struct mac_address {
    explicit mac_address(const std::string &text)
    {
        EXPECT_EQ(0, _convert_macstr_to_bytes(text.c_str(), bytes)) << text;
    }
    uint8_t bytes[WPS_BSSID_LEN] = {};
};

std::string mac_text(const uint8_t *mac)
{
    char text[WPS_MAC_TEXT_LEN + 1];
    snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
             mac[4], mac[5]);
    return text;
}

// One entry of a scan list; more: further members, each with a comma before it.
std::string ap(const std::string &mac, const std::string &ssid, const std::string &more = "")
{
    return "{\"mac\": \"" + mac + "\", \"ssid\": \"" + ssid + "\"" + more + "}";
}

std::string list_of(const words &entries)
{
    std::string text = "[";
    for (size_t i = 0; i < entries.size(); ++i)
        text += (i == 0 ? "\n" : ",\n") + entries[i];
    return text + "\n]\n";
}

// Something in every field.
kelm_rootap_info filled_record()
{
    kelm_rootap_info record;
    memset(&record, 'z', sizeof record);
    copy_text(record.ssid, "Earlier");
    copy_text(record.auth, "wpa2");
    copy_text(record.cipher, "aes");
    copy_text(record.password, "earlier passphrase");
    copy_text(record.qm_data, "0a0b");
    return record;
}

class rootap : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_REPEATER, ALL_BANDS);
        // The pauses are noted like the other commands, and not slept.
        ASSERT_EQ(0, symlink("/mnt/record", "/mnt/bin/sleep"));
        join(KELM_BAND_5G, ROOT_SSID, ROOT_MAC);
        console_text();
    }

    void TearDown() override
    {
        unlink("/mnt/bin/sleep");
        device_test::TearDown();
    }

    static kelm_rootap_info &record(int index) { return band(index).rootap; }

    static void join(int index, const char *ssid, const char *mac)
    {
        copy_text(record(index).ssid, ssid);
        memcpy(record(index).bssid, mac_address(mac).bytes, WPS_BSSID_LEN);
    }

    // Whether band 0 finds the root access point of band 1 in this list.
    static bool match(const std::string &list)
    {
        write_file(SCAN_2G, list);
        return kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)) == 1;
    }

    // The address of the entry that was chosen, "" when none was.
    static std::string choice(const words &entries)
    {
        record(KELM_BAND_2G) = {};
        return match(list_of(entries)) ? mac_text(record(KELM_BAND_2G).bssid) : "";
    }

    static void set_flags(int index, uint32_t word) { band(index).wps_flags = word; }
    static bool mirrors(int index) { return (flags(index) & WPS_FLAG_CONFIG_MIRROR) != 0; }
};

class rootap_store : public rootap {
protected:
    void store(const std::string &entry)
    {
        const unique_json object(json_tokener_parse(entry.c_str()));
        ASSERT_TRUE(object) << entry;
        kelm_store_apinfo_from_json(object.get(), &stored, mac_address(ROOT_MAC).bytes);
    }

    kelm_rootap_info stored = {};
};

// 5 GHz has succeeded, 2.4 GHz has failed; both stations are enabled and were launched.
class rootap_resolve : public rootap {
protected:
    static constexpr uint32_t ENDED =
        WPS_FLAG_STABSS_ENABLE | WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE;

    void SetUp() override
    {
        rootap::SetUp();
        for (const int index : {KELM_BAND_2G, KELM_BAND_5G}) {
            set_flags(index, ENDED | WPS_FLAG_OVER_SCAN);
            band(index).wps_status = WPS_STATUS_TIMEOUT;
            write_scan(index, {});
        }
        band(KELM_BAND_5G).wps_status = WPS_STATUS_SUCCESS;
        copy_text(band(KELM_BAND_5G).ifName, "wlan0-vxd");
        write_file("/tmp/run/wpa_supplicant-wlan0-vxd.conf",
                   "network={\n\tssid=\"Old\"\n}\n"
                   "network={\n\tssid=\"Learnt\"\n\tpsk=\"learnt passphrase\"\n}\n");
    }

    static void write_scan(int index, const words &entries)
    {
        write_file(band(index).scan_path, list_of(entries));
    }
};

}  // namespace

// --- Distances ---

struct distance_case {
    const char *other;
    int32_t distance;
};

const distance_case distances[] = {
    {"00:11:22:33:44:55", 1},  // the same
    {"00:11:22:33:44:56", 1},   {"00:11:22:33:44:54", 1},
    {"00:11:22:33:45:54", 255}, {"00:11:22:33:45:55", 0},
    {"00:11:22:33:43:56", 255}, {"00:11:22:33:43:55", 0},
    {"02:11:22:33:44:57", 2},  // one byte of the maker's half differs
    {"00:13:22:33:44:50", 5},   {"00:11:23:33:44:56", 1},
    {"02:11:22:33:44:55", 0},  // ... and nothing else
    {"02:13:22:33:44:55", 0},   {"02:13:22:33:44:56", 0},
    {"02:13:23:33:44:56", 0},   {"00:11:22:34:44:55", 0},
    {"00:11:22:ff:ff:ff", 0},   {"00:00:00:00:00:00", 0},
};

TEST_F(rootap, addresses_are_as_near_as_their_numbers)
{
    const mac_address root(ROOT_MAC);
    for (const distance_case &row : distances) {
        const mac_address other(row.other);
        EXPECT_EQ(row.distance, wps_bssid_co_hosted_check(root.bytes, other.bytes)) << row.other;
        EXPECT_EQ(row.distance, wps_bssid_co_hosted_check(other.bytes, root.bytes)) << row.other;
    }
}

// As 0 it would count as unrelated, and a record would not match its own access point.
TEST_F(rootap, an_address_is_near_itself)
{
    const mac_address root(ROOT_MAC);
    EXPECT_EQ(1, wps_bssid_co_hosted_check(root.bytes, root.bytes));
    EXPECT_EQ(ROOT_MAC, choice({ap(ROOT_MAC, "Other name")}));
}

TEST_F(rootap, a_network_that_differs_in_the_makers_half_alone_is_not_taken_for_the_root_network)
{
    EXPECT_EQ("", choice({ap("02:11:22:33:44:55", "Guest network")}));
}

TEST_F(rootap, a_distance_is_logged_in_detail_only)
{
    const mac_address root(ROOT_MAC);
    (void)wps_bssid_co_hosted_check(root.bytes, mac_address(FAR_MAC).bytes);
    EXPECT_EQ("", console_text());
    kelm_dbg_level = KELM_LOG_DETAIL;
    (void)wps_bssid_co_hosted_check(root.bytes, mac_address("00:11:22:33:44:65").bytes);
    EXPECT_EQ(
        "kelm[wps_bssid_co_hosted_check:N]: macaddr cmp[result 00000010] "
        "[00:11:22:33:44:55] vs [00:11:22:33:44:65].\n",
        console_text_without_line_numbers());
}

// --- One entry into a record ---

TEST_F(rootap_store, takes_all_that_an_entry_tells)
{
    store(ap("ignored here", ROOT_SSID,
             ", \"security\": \"psk_sae\", \"wpa_encryption\": \"aes\", \"channel\": \"36\","
             " \"nodeid\": \"a1b2c\", \"data\": \"dd0a0011\", \"support_mesh\": 1"));
    EXPECT_EQ(ROOT_MAC, mac_text(stored.bssid));
    EXPECT_STREQ(ROOT_SSID, stored.ssid);
    EXPECT_STREQ("psk_sae", stored.auth);
    EXPECT_STREQ("aes", stored.cipher);
    EXPECT_EQ(36, stored.channel);
    EXPECT_EQ("a1b2c", std::string(stored.nodeid, sizeof stored.nodeid));
    EXPECT_STREQ("dd0a0011", stored.qm_data);
    EXPECT_EQ(1, stored.support_mesh);
}

TEST_F(rootap_store, says_so_and_dumps_the_record)
{
    store(ap(ROOT_MAC, ROOT_SSID));
    const std::string log = console_text_without_line_numbers();
    EXPECT_EQ(0u, log.find("kelm[kelm_store_apinfo_from_json:N]: found ap from scan table\n"
                           "kelm[dump_rootap_info:N]: "));
    EXPECT_TRUE(contains(log, ROOT_MAC));
}

TEST_F(rootap_store, leaves_alone_what_an_entry_does_not_tell)
{
    stored = filled_record();
    const kelm_rootap_info earlier = stored;
    store("{}");
    EXPECT_EQ(ROOT_MAC, mac_text(stored.bssid));
    memcpy(stored.bssid, earlier.bssid, sizeof stored.bssid);
    EXPECT_EQ(0, memcmp(&stored, &earlier, sizeof stored));
}

TEST_F(rootap_store, leaves_alone_what_has_another_type)
{
    const words keys = {"ssid", "security", "wpa_encryption", "channel", "nodeid", "data"};
    const words wrong = {"1", "-7", "1.5", "true", "null", "[\"a\"]", "{\"ssid\": \"a\"}"};
    stored = filled_record();
    memcpy(stored.bssid, mac_address(ROOT_MAC).bytes, sizeof stored.bssid);
    const kelm_rootap_info earlier = stored;
    for (const std::string &key : keys) {
        for (const std::string &value : wrong) {
            store("{\"" + key + "\": " + value + "}");
            EXPECT_EQ(0, memcmp(&stored, &earlier, sizeof stored)) << key << " " << value;
        }
    }
    for (const std::string value : {"\"1\"", "1.0", "true", "null", "[1]", "{}"}) {
        store("{\"support_mesh\": " + value + "}");
        EXPECT_EQ(0, memcmp(&stored, &earlier, sizeof stored)) << value;
    }
}

TEST_F(rootap_store, cuts_texts_that_are_longer_than_their_fields)
{
    const std::string text(5000, 'y');
    store(ap(ROOT_MAC, text,
             ", \"security\": \"" + text + "\", \"wpa_encryption\": \"" + text +
                 "\", \"nodeid\": \"" + text + "\", \"data\": \"" + text + "\""));
    EXPECT_EQ(std::string(32, 'y'), stored.ssid);
    EXPECT_EQ(std::string(15, 'y'), stored.auth);
    EXPECT_EQ(std::string(15, 'y'), stored.cipher);
    EXPECT_EQ(std::string(128, 'y'), stored.qm_data);
    EXPECT_EQ("yyyyy", std::string(stored.nodeid, sizeof stored.nodeid));
    EXPECT_STREQ("", stored.password);
    EXPECT_EQ(0, stored.channel);
    EXPECT_EQ(0, stored.support_mesh);
}

TEST_F(rootap_store, shorter_texts_leave_nothing_of_the_earlier_ones)
{
    store(ap(ROOT_MAC, "A long network name", ", \"nodeid\": \"abcde\", \"data\": \"0102030405\""));
    store(ap(ROOT_MAC, "Short", ", \"nodeid\": \"xy\", \"data\": \"\""));
    EXPECT_STREQ("Short", stored.ssid);
    EXPECT_EQ(std::string("xy\0\0\0", 5), std::string(stored.nodeid, sizeof stored.nodeid));
    EXPECT_STREQ("", stored.qm_data);
}

TEST_F(rootap_store, channel_and_mesh_support_count_modulo_256)
{
    const struct {
        const char *text;
        int channel;
    } channels[] = {
        {"11", 11}, {"165", 165}, {"255", 255}, {"256", 0},    {"300", 44},
        {"", 0},    {"x", 0},     {"36+", 36},  {"00013", 13}, {"99999999999999999999", 255}};
    for (const auto &row : channels) {
        store("{\"channel\": \"" + std::string(row.text) + "\"}");
        EXPECT_EQ(row.channel, stored.channel) << row.text;
    }
    const struct {
        const char *number;
        int support_mesh;
    } marks[] = {{"0", 0}, {"1", 1}, {"256", 0}, {"257", 1}, {"-1", 255}, {"4294967297", 1}};
    for (const auto &row : marks) {
        store("{\"support_mesh\": " + std::string(row.number) + "}");
        EXPECT_EQ(row.support_mesh, stored.support_mesh) << row.number;
    }
}

// --- The choice in a list ---

struct choice_case {
    const char *why;
    words entries;
    const char *mac;  // of the one chosen, "" for none
};

TEST_F(rootap, the_choice_follows_name_nearness_and_order)
{
    const std::string three = "00:11:22:33:44:58";
    const std::string four = "00:11:22:33:44:59";
    const choice_case rows[] = {
        {"a near one displaces the name",
         {ap(FAR_MAC, ROOT_SSID), ap(three, "x")},
         "00:11:22:33:44:58"},
        {"the name displaces no near one",
         {ap(three, "x"), ap(FAR_MAC, ROOT_SSID)},
         "00:11:22:33:44:58"},
        {"the name alone", {ap("a0:b1:c2:d3:e4:00", "x"), ap(FAR_MAC, ROOT_SSID)}, FAR_MAC},
        {"only the first of equal names",
         {ap(FAR_MAC, ROOT_SSID), ap("a0:b1:c2:d3:e4:00", ROOT_SSID)},
         FAR_MAC},
        {"the earlier of two equally near ones",
         {ap(three, "x"), ap("00:11:22:33:44:52", "y")},
         "00:11:22:33:44:58"},
        {"a nearer one later", {ap(four, "x"), ap(three, "y")}, "00:11:22:33:44:58"},
        {"a farther one later", {ap(three, "x"), ap(four, "y")}, "00:11:22:33:44:58"},
        {"a near name is beaten by a nearer address",
         {ap(four, ROOT_SSID), ap(three, "y")},
         "00:11:22:33:44:58"},
        {"a near name keeps its own distance",
         {ap(three, ROOT_SSID), ap(four, "y"), ap("00:11:22:33:44:52", "z")},
         "00:11:22:33:44:58"},
        {"254 steps away", {ap("00:11:22:33:45:53", "x")}, "00:11:22:33:45:53"},
        {"255 steps away is too far", {ap("00:11:22:33:45:54", "x")}, ""},
        {"255 steps away by name", {ap("00:11:22:33:45:54", ROOT_SSID)}, "00:11:22:33:45:54"},
        {"255 steps away is too far to displace a name",
         {ap(FAR_MAC, ROOT_SSID), ap("00:11:22:33:45:54", "x")},
         FAR_MAC},
        {"254 steps away is not",
         {ap(FAR_MAC, ROOT_SSID), ap("00:11:22:33:45:53", "x")},
         "00:11:22:33:45:53"},
        {"255 steps away is no reason to leave a name as far",
         {ap("00:11:22:33:45:54", ROOT_SSID), ap("00:11:22:33:43:56", "x")},
         "00:11:22:33:45:54"},
        {"nothing fits", {ap(FAR_MAC, "Neighbour"), ap("a0:b1:c2:d3:e4:f6", "root network")}, ""},
        {"an empty list", {}, ""},
    };
    for (const choice_case &row : rows)
        EXPECT_EQ(row.mac, choice(row.entries)) << row.why;
}

struct secured_case {
    const char *security;  // null: not told
    bool passed_over;
};

const secured_case securities[] = {
    {"none", true},     {"owe", true},       {"wep", true},   {"", true},       {"open", true},
    {"unknown", true},  {"WPA2", true},      {"wpa", false},  {"wpa2", false},  {"wpa/wpa2", false},
    {"psk_sae", false}, {"sae_only", false}, {"wpa3", false}, {nullptr, false},
};

// Anybody can send a name, or an address near another, but not with its key.
TEST_F(rootap, an_entry_that_guards_no_key_is_passed_over_where_the_joined_network_has_one)
{
    for (const secured_case &row : securities) {
        const std::string more =
            row.security != nullptr ? ", \"security\": \"" + std::string(row.security) + "\"" : "";
        const words by_name = {ap(FAR_MAC, ROOT_SSID, more)};
        const words by_address = {ap("00:11:22:33:44:58", "Neighbour", more)};
        copy_text(record(KELM_BAND_5G).password, "");
        EXPECT_EQ(FAR_MAC, choice(by_name)) << more;
        EXPECT_EQ("00:11:22:33:44:58", choice(by_address)) << more;
        copy_text(record(KELM_BAND_5G).password, "correct horse battery");
        EXPECT_EQ(row.passed_over ? "" : FAR_MAC, choice(by_name)) << more;
        EXPECT_EQ(row.passed_over ? "" : "00:11:22:33:44:58", choice(by_address)) << more;
    }
}

TEST_F(rootap, an_open_twin_stands_in_nobodys_way)
{
    copy_text(record(KELM_BAND_5G).password, "correct horse battery");
    const std::string open = ", \"security\": \"none\"";
    EXPECT_EQ(FAR_MAC, choice({ap("a0:b1:c2:d3:e4:00", ROOT_SSID, open),
                               ap(ROOT_MAC, "Neighbour", open), ap(FAR_MAC, ROOT_SSID, SECURED)}));
    EXPECT_EQ("00:11:22:33:44:59",
              choice({ap("00:11:22:33:44:56", ROOT_SSID, open),
                      ap("00:11:22:33:44:59", ROOT_SSID, SECURED), ap(ROOT_MAC, "x", open)}));
}

TEST_F(rootap, the_choice_fills_the_record_of_the_searching_band_alone)
{
    const kelm_rootap_info joined = record(KELM_BAND_5G);
    EXPECT_TRUE(match(list_of({ap(FAR_MAC, "Neighbour", ", \"security\": \"wep\""),
                               ap(FAR_MAC, ROOT_SSID, ", \"security\": \"wpa2\""),
                               ap("a0:b1:c2:d3:e4:f6", "Last", ", \"security\": \"none\"")})));
    EXPECT_STREQ(ROOT_SSID, record(KELM_BAND_2G).ssid);
    EXPECT_STREQ("wpa2", record(KELM_BAND_2G).auth);
    EXPECT_EQ(0, memcmp(&joined, &record(KELM_BAND_5G), sizeof joined));
}

TEST_F(rootap, a_search_without_a_find_leaves_the_record_as_it_was)
{
    join(KELM_BAND_2G, "Earlier", FAR_MAC);
    const kelm_rootap_info earlier = record(KELM_BAND_2G);
    for (const std::string &list : {list_of({}), list_of({ap(FAR_MAC, "Neighbour")}),
                                    std::string("{}"), std::string("7"), std::string("\"text\"")}) {
        EXPECT_FALSE(match(list)) << list;
        EXPECT_EQ(0, memcmp(&earlier, &record(KELM_BAND_2G), sizeof earlier)) << list;
    }
}

TEST_F(rootap, a_band_completes_its_own_record)
{
    write_file("/tmp/wifi_scan_5g.result",
               list_of({ap(ROOT_MAC, ROOT_SSID, ", \"security\": \"sae_only\"")}));
    EXPECT_EQ(
        1, kelm_match_rootap("/tmp/wifi_scan_5g.result", &band(KELM_BAND_5G), &band(KELM_BAND_5G)));
    EXPECT_STREQ("sae_only", record(KELM_BAND_5G).auth);
    EXPECT_EQ(words{"/usr/bin/wifi getscanresult 5g"}, recorded_commands());
}

TEST_F(rootap, entries_without_a_usable_address_do_not_exist)
{
    const words unusable = {
        "{\"ssid\": \"Root network\"}",
        ap("", ROOT_SSID),
        ap("00:11:22:33:44", ROOT_SSID),
        ap("00:11:22:33:44:5g", ROOT_SSID),
        ap("Root network", ROOT_SSID),
        "{\"mac\": 112233, \"ssid\": \"Root network\"}",
        "{\"mac\": null, \"ssid\": \"Root network\"}",
        "{\"mac\": [\"00:11:22:33:44:55\"], \"ssid\": \"Root network\"}",
        "null",
        "7",
        "\"Root network\"",
        "[]",
        "true",
        "{}",
        "[{\"mac\": \"00:11:22:33:44:55\", \"ssid\": \"Root network\"}]",
    };
    EXPECT_EQ("", choice(unusable));
    words with_a_good_one = unusable;
    with_a_good_one.push_back(ap(FAR_MAC, ROOT_SSID));
    EXPECT_EQ(FAR_MAC, choice(with_a_good_one));
}

TEST_F(rootap, a_name_of_another_type_is_no_name_but_the_address_still_counts)
{
    for (const std::string value : {"7", "null", "true", "[\"Root network\"]", "{}"}) {
        const std::string far =
            "{\"mac\": \"" + std::string(FAR_MAC) + "\", \"ssid\": " + value + "}";
        EXPECT_EQ("", choice({far})) << value;
        const std::string near = "{\"mac\": \"00:11:22:33:44:58\", \"ssid\": " + value + "}";
        EXPECT_EQ("00:11:22:33:44:58", choice({near})) << value;
    }
}

TEST_F(rootap, an_unknown_name_matches_no_hidden_network)
{
    join(KELM_BAND_5G, "", ROOT_MAC);
    EXPECT_EQ("", choice({ap(FAR_MAC, "")}));
    EXPECT_EQ("00:11:22:33:44:58", choice({ap(FAR_MAC, ""), ap("00:11:22:33:44:58", "")}));
}

TEST_F(rootap, names_are_compared_byte_by_byte_over_all_32)
{
    const std::string bytes = "\xff\xfe\x80 caf\xc3\xa9 \xe2\x82 0123456789abcdefghi";
    ASSERT_EQ(32u, bytes.size());
    join(KELM_BAND_5G, bytes.c_str(), ROOT_MAC);
    EXPECT_EQ("", choice({ap(FAR_MAC, bytes + "x"), ap(FAR_MAC, bytes.substr(0, 31)),
                          ap(FAR_MAC, bytes.substr(0, 31) + "j")}));
    EXPECT_EQ(FAR_MAC, choice({ap("a0:b1:c2:d3:e4:00", bytes + "x"), ap(FAR_MAC, bytes)}));
    EXPECT_EQ(bytes, record(KELM_BAND_2G).ssid);
}

TEST_F(rootap, names_are_compared_with_their_zeros)
{
    copy_ssid(record(KELM_BAND_5G).ssid, "A\0B", 3);
    EXPECT_EQ("", choice({ap(FAR_MAC, "A"), ap(FAR_MAC, "A\\u0000"), ap(FAR_MAC, "A\\u0000C")}));
    EXPECT_EQ(FAR_MAC, choice({ap("a0:b1:c2:d3:e4:00", "A"), ap(FAR_MAC, "A\\u0000B")}));
    EXPECT_EQ(std::string("A\0B", 3),
              std::string(record(KELM_BAND_2G).ssid, ssid_len(record(KELM_BAND_2G).ssid)));
    copy_ssid(record(KELM_BAND_5G).ssid, "\0", 1);
    EXPECT_EQ(FAR_MAC, choice({ap("a0:b1:c2:d3:e4:00", ""), ap(FAR_MAC, "\\u0000")}));
}

TEST_F(rootap, a_long_list_gives_the_nearest_in_any_order)
{
    words entries;
    for (int i = 0; i < 1998; ++i) {
        char mac[WPS_MAC_TEXT_LEN + 1];
        snprintf(mac, sizeof mac, "00:11:22:%02x:%02x:%02x", 0x40 + i / 256, i % 256, i % 251);
        entries.push_back(ap(mac, i % 3 == 0 ? ROOT_SSID : "Neighbour"));
    }
    entries.push_back(ap("00:11:22:33:44:5a", "Five away"));
    entries.push_back(ap("00:11:22:33:44:5f", "Ten away"));
    std::mt19937 order(20240229);
    for (int round = 0; round < 10; ++round) {
        std::shuffle(entries.begin(), entries.end(), order);
        ASSERT_EQ("00:11:22:33:44:5a", choice(entries)) << "round " << round;
        EXPECT_STREQ("Five away", record(KELM_BAND_2G).ssid);
    }
    EXPECT_TRUE(contains(log_text(), "> 2000 APs in /tmp/wifi_scan_2g.result\n"));
}

// Sees to it that a damaged list, however it parses, leaves terminated texts and its own fields
// only.
TEST_F(rootap, a_garbled_list_never_reaches_past_a_field)
{
    const std::string text(200, 'y');
    const std::string more = ", \"security\": \"" + text + "\", \"wpa_encryption\": \"" + text +
                             "\", \"data\": \"" + text + "\", \"channel\": \"" + text +
                             "\", \"nodeid\": \"" + text + "\", \"support_mesh\": 1";
    const std::string whole = list_of({ap(ROOT_MAC, text, more), ap(FAR_MAC, ROOT_SSID, more)});
    std::mt19937 dice(20240301);
    int found = 0;
    for (int round = 0; round < 80; ++round) {
        std::string garbled = whole;
        for (int i = 0; i < 3; ++i)
            garbled[dice() % garbled.size()] = static_cast<char>(dice());
        record(KELM_BAND_2G) = filled_record();
        found += match(garbled) ? 1 : 0;
        const kelm_rootap_info &left = record(KELM_BAND_2G);
        ASSERT_LT(strnlen(left.ssid, sizeof left.ssid), sizeof left.ssid);
        ASSERT_LT(strnlen(left.auth, sizeof left.auth), sizeof left.auth);
        ASSERT_LT(strnlen(left.cipher, sizeof left.cipher), sizeof left.cipher);
        ASSERT_LT(strnlen(left.qm_data, sizeof left.qm_data), sizeof left.qm_data);
        ASSERT_STREQ("earlier passphrase", left.password);
    }
    EXPECT_GT(found, 20);
    EXPECT_LT(found, 80);
}

TEST_F(rootap, the_search_tells_what_it_found_and_why)
{
    EXPECT_TRUE(match(list_of({ap(FAR_MAC, ROOT_SSID), ap("00:11:22:33:44:65", "y")})));
    const std::string log = console_text_without_line_numbers();
    EXPECT_TRUE(contains(
        log,
        "kelm[kelm_match_rootap:N]: 2 APs in /tmp/wifi_scan_2g.result\n"
        "kelm[kelm_match_rootap:N]: get entry by ssid Root network[mac distance 00000000]\n"
        "kelm[kelm_match_rootap:N]: get entry by bssid 00-11-22-33-44-65[mac_distance "
        "00000010]\n"))
        << log;
    EXPECT_TRUE(match(list_of({ap("00:11:22:33:44:56", ROOT_SSID)})));
    EXPECT_TRUE(contains(log_text(), "> get entry by ssid Root network[mac distance 00000001]\n"));
}

TEST_F(rootap, a_search_without_all_arguments_is_refused)
{
    EXPECT_EQ(0, kelm_match_rootap(nullptr, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
    EXPECT_EQ(0u, log_text().find("> err args path[00000000] wps["));
    EXPECT_EQ(0, kelm_match_rootap(SCAN_2G, nullptr, &band(KELM_BAND_2G)));
    EXPECT_TRUE(contains(log_text(), "] suc_wps[00000000]\n"));
    EXPECT_EQ(0, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), nullptr));
    EXPECT_TRUE(contains(log_text(), "] wps[00000000] suc_wps["));
    kelm_session stray = {};
    EXPECT_EQ(0, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &stray));
    EXPECT_EQ(words{}, recorded_commands());
}

// --- Fetching the list ---

TEST_F(rootap, a_list_that_never_comes_is_given_up_after_six_attempts_a_second_apart)
{
    const kelm_rootap_info earlier = record(KELM_BAND_2G);
    EXPECT_EQ(0, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
    EXPECT_EQ((words{GET_2G, "sleep 1", GET_2G, "sleep 1", GET_2G, "sleep 1", GET_2G, "sleep 1",
                     GET_2G, "sleep 1", GET_2G}),
              recorded_commands());
    EXPECT_EQ(0, memcmp(&earlier, &record(KELM_BAND_2G), sizeof earlier));
}

TEST_F(rootap, a_list_whose_name_cannot_be_had_is_not_asked_for)
{
    block_name(SCAN_2G);
    EXPECT_EQ(0, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(rootap, a_list_that_appears_at_the_fourth_attempt_is_used)
{
    set_reply("/usr/bin/wifi",
              "echo x >>/tmp/attempts\n"
              "if [ \"$(wc -l </tmp/attempts)\" = 4 ]; then\n"
              "echo '[{\"mac\": \"00:11:22:33:44:56\"}]' >/tmp/wifi_scan_2g.result\n"
              "fi\n");
    EXPECT_EQ(1, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
    EXPECT_EQ((words{GET_2G, "sleep 1", GET_2G, "sleep 1", GET_2G, "sleep 1", GET_2G}),
              recorded_commands());
    EXPECT_EQ("00:11:22:33:44:56", mac_text(record(KELM_BAND_2G).bssid));
}

TEST_F(rootap, a_list_that_is_cut_off_anywhere_is_waited_for)
{
    const std::string whole =
        list_of({ap("00:11:22:33:44:56", ROOT_SSID), ap(FAR_MAC, "Neighbour")});
    for (size_t length = 0; length <= whole.rfind(']'); length += 7) {
        write_file(SCAN_2G, whole.substr(0, length));
        set_reply("/usr/bin/wifi",
                  "[ ! -f /tmp/whole ] || cp /tmp/whole /tmp/wifi_scan_2g.result\n");
        set_reply("sleep", "cp /tmp/source /tmp/whole\n");
        write_file("/tmp/source", whole);
        unlink("/tmp/whole");
        EXPECT_EQ(1, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
        EXPECT_EQ((words{GET_2G, "sleep 1", GET_2G}), recorded_commands()) << length;
    }
}

TEST_F(rootap, each_band_asks_for_its_own_list)
{
    const struct {
        int index;
        const char *command;
    } rows[] = {{KELM_BAND_2G, "/usr/bin/wifi getscanresult 2g"},
                {KELM_BAND_5G, "/usr/bin/wifi getscanresult 5g"},
                {KELM_BAND_5G2, "/usr/bin/wifi getscanresult 5g2"},
                {KELM_BAND_6G, "/usr/bin/wifi getscanresult 6g"}};
    for (const auto &row : rows) {
        write_file(band(row.index).scan_path, "[]");
        console_text();
        EXPECT_EQ(0, check_rootapinfo_from_scantable(KELM_BAND_5G, row.index));
        EXPECT_EQ(words{row.command}, recorded_commands());
        EXPECT_EQ(0u, log_text().find("> search from scantable " +
                                      std::string(band(row.index).scan_path) + ".\n"));
    }
}

TEST_F(rootap, the_program_that_was_chosen_is_asked_for_the_list)
{
    ASSERT_EQ(0, symlink("/mnt/record", "/tmp/scan"));
    set_reply("/tmp/scan", "echo '[{\"mac\": \"00:11:22:33:44:56\"}]' >/tmp/wifi_scan_2g.result\n");
    setenv("KELM_WIFI", "/tmp/scan", 1);
    kelm_read_switches();
    EXPECT_EQ(1, kelm_match_rootap(SCAN_2G, &band(KELM_BAND_5G), &band(KELM_BAND_2G)));
    unsetenv("KELM_WIFI");
    kelm_read_switches();
    EXPECT_EQ(words{"/tmp/scan getscanresult 2g"}, recorded_commands());
    EXPECT_EQ("00:11:22:33:44:56", mac_text(record(KELM_BAND_2G).bssid));
}

// --- The same device by identity ---

TEST_F(rootap, two_records_name_one_device_only_when_all_of_them_agrees)
{
    const auto known = [](int index, const char *mac) {
        join(index, index == KELM_BAND_2G ? "Root 2.4" : "Root 5", mac);
        memset(record(index).uuid, 0x5a, sizeof record(index).uuid);
    };
    const auto ask = [] { return check_rootapinfo_with_uuid(KELM_BAND_5G, KELM_BAND_2G); };
    const auto reset = [&known] {
        known(KELM_BAND_5G, ROOT_MAC);
        known(KELM_BAND_2G, "00:11:22:33:44:56");
    };
    reset();
    console_text();
    EXPECT_EQ(1, ask());
    EXPECT_EQ("> is multiAP [Root 5] | [Root 2.4]\n", log_text());

    record(KELM_BAND_2G).ssid[0] = '\0';
    EXPECT_EQ(0, ask());
    reset();
    record(KELM_BAND_5G).ssid[0] = '\0';
    EXPECT_EQ(0, ask());
    reset();
    memset(record(KELM_BAND_2G).bssid, 0, WPS_BSSID_LEN);
    EXPECT_EQ(0, ask());
    reset();
    memset(record(KELM_BAND_5G).bssid, 0, WPS_BSSID_LEN);
    EXPECT_EQ(0, ask());
    reset();
    record(KELM_BAND_2G).uuid[WPS_UUID_LEN - 1] ^= 1;
    EXPECT_EQ(0, ask());
    reset();
    known(KELM_BAND_2G, FAR_MAC);
    EXPECT_EQ(0, ask());
    EXPECT_EQ("", log_text());
}

// Without the test for known addresses two bands that know none would be the same device.
TEST_F(rootap, two_records_without_an_address_are_not_the_same_device)
{
    join(KELM_BAND_2G, ROOT_SSID, "00:00:00:00:00:00");
    join(KELM_BAND_5G, ROOT_SSID, "00:00:00:00:00:00");
    EXPECT_EQ(0, check_rootapinfo_with_uuid(KELM_BAND_5G, KELM_BAND_2G));
}

TEST_F(rootap, a_check_without_a_session_says_so_and_answers_no)
{
    EXPECT_EQ(0, check_rootapinfo_with_uuid(KELM_BAND_NONE, KELM_BAND_2G));
    EXPECT_EQ("> Bad wps session[band 4/0].\n", log_text());
    EXPECT_EQ(0, check_rootapinfo_with_uuid(KELM_BAND_5G, -1));
    EXPECT_EQ("> Bad wps session[band 1/-1].\n", log_text());
    EXPECT_EQ(0, check_rootapinfo_from_scantable(KELM_BAND_5G, KELM_BAND_NONE));
    EXPECT_EQ("> Bad wps session[band 1/4].\n", log_text());
    EXPECT_EQ(0, check_rootapinfo_from_scantable(7, KELM_BAND_2G));
    EXPECT_EQ("> Bad wps session[band 7/0].\n", log_text());
}

TEST_F(rootap, a_band_that_the_device_has_not_got_has_no_list)
{
    start(KELM_MODE_REPEATER, 2);
    EXPECT_EQ(0, check_rootapinfo_from_scantable(KELM_BAND_5G, KELM_BAND_5G2));
    EXPECT_EQ(words{}, recorded_commands());
}

// --- The resolution ---

TEST_F(rootap_resolve, the_failed_band_mirrors_the_network_that_it_finds_in_its_scan)
{
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt", ", \"security\": \"wpa2\"")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_TRUE(mirrors(KELM_BAND_2G));
    EXPECT_FALSE(mirrors(KELM_BAND_5G));
    EXPECT_STREQ("Learnt", record(KELM_BAND_2G).ssid);
    EXPECT_STREQ("wpa2", record(KELM_BAND_2G).auth);
}

TEST_F(rootap_resolve, the_failed_band_mirrors_a_network_of_another_name_next_to_the_joined_one)
{
    write_scan(KELM_BAND_2G, {ap("00:11:22:33:44:54", "Root 2.4")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_TRUE(mirrors(KELM_BAND_2G));
    EXPECT_STREQ("Root 2.4", record(KELM_BAND_2G).ssid);
}

TEST_F(rootap_resolve, the_failed_band_mirrors_the_device_that_its_events_named)
{
    join(KELM_BAND_2G, "Root 2.4", "00:11:22:33:44:54");
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_TRUE(mirrors(KELM_BAND_2G)) << "same (empty) UUID, near address, no scan result";
    EXPECT_STREQ("Root 2.4", record(KELM_BAND_2G).ssid);
}

TEST_F(rootap_resolve, a_failed_band_that_finds_nothing_mirrors_nothing)
{
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Neighbour")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_FALSE(mirrors(KELM_BAND_2G));
    EXPECT_STREQ("", record(KELM_BAND_2G).ssid);
}

TEST_F(rootap_resolve, the_succeeded_band_gets_its_credentials_and_completes_them_from_its_scan)
{
    write_scan(KELM_BAND_5G,
               {ap(ROOT_MAC, "Learnt", ", \"security\": \"psk_sae\", \"channel\": \"44\"")});
    set_flags(KELM_BAND_5G, ENDED | WPS_FLAG_OVER_SCAN | WPS_FLAG_CONFIG_MIRROR);
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_FALSE(mirrors(KELM_BAND_5G));
    EXPECT_STREQ("Learnt", record(KELM_BAND_5G).ssid);
    EXPECT_STREQ("learnt passphrase", record(KELM_BAND_5G).password);
    EXPECT_STREQ("psk_sae", record(KELM_BAND_5G).auth);
    EXPECT_EQ(44, record(KELM_BAND_5G).channel);
}

TEST_F(rootap_resolve, a_band_with_a_success_of_its_own_mirrors_nothing)
{
    band(KELM_BAND_2G).wps_status = WPS_STATUS_SUCCESS;
    set_flags(KELM_BAND_2G, ENDED | WPS_FLAG_OVER_SCAN | WPS_FLAG_CONFIG_MIRROR);
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt", ", \"security\": \"wpa2\"")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_FALSE(mirrors(KELM_BAND_2G));
    EXPECT_STREQ("wpa2", record(KELM_BAND_2G).auth) << "its record is completed all the same";
}

TEST_F(rootap_resolve, launched_bands_are_scanned_anew_unless_they_were_already)
{
    set_flags(KELM_BAND_2G, ENDED);
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_EQ((words{"/usr/bin/wifi scan 2g", "/usr/bin/wifi getscanresult 2g",
                     "/usr/bin/wifi getscanresult 5g"}),
              recorded_commands());
    EXPECT_NE(0u, flags(KELM_BAND_2G) & WPS_FLAG_OVER_SCAN);

    set_flags(KELM_BAND_2G, WPS_FLAG_STABSS_ENABLE);  // sat the attempt out
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_EQ((words{"/usr/bin/wifi getscanresult 2g", "/usr/bin/wifi getscanresult 5g"}),
              recorded_commands());
}

TEST_F(rootap_resolve, bands_without_a_station_are_left_alone)
{
    set_flags(KELM_BAND_2G, WPS_FLAG_APBSS_ENABLE);
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_FALSE(mirrors(KELM_BAND_2G));
    EXPECT_EQ(words{"/usr/bin/wifi getscanresult 5g"}, recorded_commands());
}

TEST_F(rootap_resolve, the_6_ghz_band_can_only_mirror)
{
    set_flags(KELM_BAND_6G, WPS_FLAG_STABSS_ENABLE | WPS_FLAG_STAWPS_FAKEUP);
    write_scan(KELM_BAND_6G, {ap("00:11:22:33:44:57", "Root 6", ", \"security\": \"sae_only\"")});
    EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
    EXPECT_TRUE(mirrors(KELM_BAND_6G));
    EXPECT_STREQ("Root 6", record(KELM_BAND_6G).ssid);
}

TEST_F(rootap_resolve, one_or_three_links_from_before_end_it_without_a_mirror)
{
    const words no_commands;
    for (unsigned linked = 0; linked < 16; ++linked) {
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            set_flags(index, ENDED | WPS_FLAG_OVER_SCAN |
                                 ((linked >> index & 1) != 0 ? WPS_FLAG_STA_CONNECTED : 0));
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            write_scan(index, {ap(FAR_MAC, "Learnt")});
        recorded_commands();
        // The link of the 6 GHz band is never counted.
        const unsigned links = (linked & 1) + (linked >> 1 & 1) + (linked >> 2 & 1);
        const bool goes_on = links == 0 || links == 2;
        EXPECT_EQ(goes_on ? 0 : 2, kelm_resolve_apinfo_and_credential()) << linked;
        EXPECT_EQ(goes_on, mirrors(KELM_BAND_2G)) << linked;
        EXPECT_EQ(goes_on, mirrors(KELM_BAND_6G)) << linked;
        EXPECT_EQ(goes_on, recorded_commands() != no_commands) << linked;
    }
}

TEST_F(rootap_resolve, nothing_is_decided_while_a_worker_runs)
{
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt")});
    set_flags(KELM_BAND_5G2, WPS_FLAG_WORKER_LAUNCH);
    kelm_dbg_level = KELM_LOG_DETAIL;
    console_text();
    EXPECT_EQ(-1, kelm_resolve_apinfo_and_credential());
    EXPECT_EQ("> Worker process still running, wait...\n\n", log_text());
    EXPECT_FALSE(mirrors(KELM_BAND_2G));
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(rootap_resolve, nothing_is_decided_without_a_success)
{
    write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt")});
    band(KELM_BAND_5G).wps_status = WPS_STATUS_ERROR;
    EXPECT_EQ(-1, kelm_resolve_apinfo_and_credential());
    EXPECT_FALSE(mirrors(KELM_BAND_2G));
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(rootap_resolve, a_find_in_the_scan_is_told_in_detail_alone)
{
    for (const int level : {KELM_LOG_NORMAL, KELM_LOG_DETAIL - 1, KELM_LOG_DETAIL}) {
        write_scan(KELM_BAND_2G, {ap(FAR_MAC, "Learnt")});
        kelm_dbg_level = level;
        EXPECT_EQ(0, kelm_resolve_apinfo_and_credential());
        EXPECT_EQ(
            level == KELM_LOG_DETAIL,
            contains(console_text_without_line_numbers(),
                     "kelm[kelm_resolve_apinfo_and_credential:N]: found rootap from scantable\n"))
            << level;
    }
}

// The record of the band is what its events told; the search overwrites it, so it comes second. It
// comes in any case: it alone knows the security.
TEST_F(rootap_resolve, a_failed_band_is_compared_by_identity_and_then_looked_for_in_its_scan)
{
    const struct {
        const char *why;
        const char *mac;  // of the access point that the band's events named
        words scan;
        bool mirrored;
        const char *ssid;  // left in the record
        bool identical;
    } rows[] = {
        {"both",
         "00:11:22:33:44:54",
         {ap("00:11:22:33:44:53", "In the scan", SECURED)},
         true,
         "In the scan",
         true},
        {"by identity",
         "00:11:22:33:44:54",
         {ap(FAR_MAC, "Neighbour", SECURED)},
         true,
         "Named by events",
         true},
        {"in the scan",
         FAR_MAC,
         {ap("00:11:22:33:44:53", "In the scan", SECURED)},
         true,
         "In the scan",
         false},
        {"neither", FAR_MAC, {ap(FAR_MAC, "Neighbour", SECURED)}, false, "Named by events", false},
    };
    for (const auto &row : rows) {
        set_flags(KELM_BAND_2G, ENDED | WPS_FLAG_OVER_SCAN);
        record(KELM_BAND_2G) = {};
        join(KELM_BAND_2G, "Named by events", row.mac);
        write_scan(KELM_BAND_2G, row.scan);
        console_text();
        recorded_commands();
        EXPECT_EQ(0, kelm_resolve_apinfo_and_credential()) << row.why;
        EXPECT_EQ(row.mirrored, mirrors(KELM_BAND_2G)) << row.why;
        EXPECT_STREQ(row.ssid, record(KELM_BAND_2G).ssid) << row.why;
        EXPECT_EQ((words{GET_2G, "/usr/bin/wifi getscanresult 5g"}), recorded_commands())
            << row.why;
        const std::string log = log_text();
        const std::string compared = "> is multiAP [Learnt] | [Named by events]\n";
        EXPECT_EQ(row.identical, contains(log, compared)) << row.why << ": " << log;
        if (row.identical) {
            EXPECT_LT(log.find(compared),
                      log.find("> search from scantable " + std::string(SCAN_2G)))
                << row.why << ": " << log;
        }
    }
}

// Otherwise what is known of the access point of before would be overwritten for nothing.
TEST_F(rootap_resolve, the_credentials_are_not_read_before_the_links_are_counted)
{
    for (const int linked : {KELM_BAND_2G, KELM_BAND_5G}) {
        set_flags(KELM_BAND_2G, ENDED);
        set_flags(KELM_BAND_5G, ENDED);
        band(linked).wps_flags |= WPS_FLAG_STA_CONNECTED;
        const kelm_rootap_info before = record(KELM_BAND_5G);
        console_text();
        EXPECT_EQ(2, kelm_resolve_apinfo_and_credential());
        EXPECT_EQ(0, memcmp(&before, &record(KELM_BAND_5G), sizeof before)) << linked;
        EXPECT_EQ("", log_text()) << linked;
    }
}

// --- Messages and station settings ---

TEST_F(rootap, this_platform_takes_no_root_access_point_messages)
{
    const kelm_rootap_info earlier = record(KELM_BAND_2G);
    const std::string message(55, 'm');
    EXPECT_EQ(-1, _kelm_worker_process_rootapinfo(message.data(), message.size()));
    EXPECT_EQ(0, memcmp(&earlier, &record(KELM_BAND_2G), sizeof earlier));
}

struct cfg_case {
    uint32_t auth_mode;
    uint32_t wpa_version;
    uint32_t encryption;
    const char *auth;
    const char *cipher;
};

const cfg_case cfgs[] = {
    {WPS_AUTH_OPEN, 2, WPS_CIPHER_AUTO, "none", "auto"},
    {WPS_AUTH_WPA, WPS_VERSION_WPA2, WPS_CIPHER_AES, "wpa2", "aes"},
    {WPS_AUTH_WPA, WPS_VERSION_WPA, WPS_CIPHER_TKIP, "wpa", "tkip"},
    {WPS_AUTH_WPA, WPS_VERSION_MIXED, WPS_CIPHER_AUTO, "wpa/wpa2", "auto"},
    {WPS_AUTH_WPA, WPS_VERSION_WPA3, 9, "wpa/wpa2", "auto"},
    {WPS_AUTH_WEP, 0, 0, "wep", "auto"},
    {WPS_AUTH_SAE, WPS_VERSION_WPA3, WPS_CIPHER_AES, "sae_only", "aes"},
    {WPS_AUTH_SAE, WPS_VERSION_WPA2, WPS_CIPHER_AES, "psk_sae", "aes"},
    {WPS_AUTH_OWE, WPS_VERSION_WPA3, WPS_CIPHER_AES, "earlier", "aes"},
};

TEST_F(rootap, station_settings_become_the_words_of_a_scan)
{
    for (const cfg_case &row : cfgs) {
        wps_sta_band_config cfg = {};
        cfg.auth_mode = row.auth_mode;
        cfg.wpa_version = row.wpa_version;
        cfg.encryption = row.encryption;
        kelm_rootap_info stored = {};
        copy_text(stored.auth, "earlier");
        kelm_store_apinfo_from_cfg(&cfg, &stored);
        EXPECT_STREQ(row.auth, stored.auth);
        EXPECT_STREQ(row.cipher, stored.cipher) << row.auth;
    }
}

TEST_F(rootap, station_settings_give_name_address_and_credentials)
{
    wps_sta_band_config cfg = {};
    kelm_rootap_info stored = {};
    copy_text(stored.ssid, "Earlier");
    memcpy(stored.bssid, mac_address(FAR_MAC).bytes, WPS_BSSID_LEN);
    kelm_store_apinfo_from_cfg(&cfg, &stored);
    EXPECT_STREQ("Earlier", stored.ssid) << "an empty name or address changes nothing";
    EXPECT_EQ(FAR_MAC, mac_text(stored.bssid));

    memset(cfg.ssid, 's', sizeof cfg.ssid - 1);
    memset(cfg.password, 'p', sizeof cfg.password - 1);
    memset(cfg.data, 'd', sizeof cfg.data - 1);
    memcpy(cfg.bssid, mac_address(ROOT_MAC).bytes, WPS_BSSID_LEN);
    cfg.support_mesh = 1;
    console_text();
    kelm_store_apinfo_from_cfg(&cfg, &stored);
    EXPECT_EQ("> found ap from stacfg\n", log_text());
    EXPECT_EQ(std::string(32, 's'), stored.ssid);
    EXPECT_EQ(std::string(64, 'p'), stored.password);
    EXPECT_EQ(std::string(128, 'd'), stored.qm_data);
    EXPECT_EQ(ROOT_MAC, mac_text(stored.bssid));
    EXPECT_EQ(1, stored.support_mesh);
}
