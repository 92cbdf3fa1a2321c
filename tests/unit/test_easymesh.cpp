// SPDX-License-Identifier: ISC
// EasyMesh: who announces it, and what the backhaul gets from whose station.
#include "platform/rtk/easymesh.h"

#include <sys/stat.h>
#include <unistd.h>

#include <json-c/json.h>

#include "config/credentials.h"
#include "core/json_file.h"
#include "core/log.h"
#include "core/text.h"
#include "tests/unit/device.h"
#include "wlan/easymesh_marks.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr int ALL_BANDS = 5;
constexpr const char *FILE_2G = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *FILE_5G = "/tmp/run/wpa_supplicant-wlan0-vxd.conf";
constexpr uint32_t UNDECIDED = 7;  // a mark from before

std::string network(const std::string &lines)
{
    return "network={\n" + lines + "}\n";
}

std::string credentials_of(const std::string &ssid, const std::string &psk)
{
    return network("\tssid=\"" + ssid + "\"\n\tpsk=\"" + psk + "\"\n");
}

class easymesh : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_REPEATER, ALL_BANDS);
        write_file(FILE_2G, credentials_of("Two", "two passphrase"));
        write_file(FILE_5G, credentials_of("Five", "five passphrase"));
        console_text();
    }

    // Band 0's support, asked of a file with this text; band 1's says nothing.
    static int support(const std::string &text)
    {
        set_band_easymesh_wps(KELM_BAND_2G, UNDECIDED);
        write_file(FILE_2G, text);
        return rtk_repeater_check_ap_easymesh_support();
    }

    static void succeed(int index) { band(index).wps_status = WPS_STATUS_SUCCESS; }

    static std::string backhaul(const std::string &key)
    {
        const unique_json root(json_object_from_file(WPS_AP_BH_FILE));
        return root ? json_object_get_string(json_object_object_get(root.get(), key.c_str())) : "";
    }

    // SSID and key of both bands in one line.
    static std::string backhaul()
    {
        if (!file_exists(WPS_AP_BH_FILE))
            return "nothing";
        return backhaul("backhaul_ssid_2g") + ", " + backhaul("backhaul_psk_key_2g") + "; " +
               backhaul("backhaul_ssid_5g") + ", " + backhaul("backhaul_psk_key_5g");
    }

    static int write(int index, int sta_band)
    {
        unlink(WPS_AP_BH_FILE);
        return rtk_repeater_easymesh_patching_back(index, sta_band);
    }
};

const char *const BOTH = "Two, two passphrase; Five, five passphrase";
const char *const TWO_TWICE = "Two, two passphrase; Two, two passphrase";
const char *const FIVE_TWICE = "Five, five passphrase; Five, five passphrase";

}  // namespace

// --- Who announces it ---

struct support_case {
    std::string text;
    int result;
    uint32_t mark;
};

TEST_F(easymesh, a_station_file_announces_it_with_the_value_1_in_a_network_block)
{
    const support_case rows[] = {
        {network("\teasymesh_support=1\n"), 0, 1},
        {network("easymesh_support=1"), 0, 1},
        {network("  \t easymesh_support=1 \t \n"), 0, 1},
        {network("\teasymesh_support=1x\n"), 0, 1},
        {network("\teasymesh_support=01\n"), 0, 1},
        {network("\teasymesh_support=0\n"), -1, 0},
        {network("\teasymesh_support=2\n"), -1, 0},
        {network("\teasymesh_support=-1\n"), -1, 0},
        {network("\teasymesh_support=11\n"), -1, 0},
        {network("\teasymesh_support=\n"), -1, 0},
        {network("\teasymesh_support=yes\n"), -1, 0},
        {network("\teasymesh_support =1\n"), -1, UNDECIDED},
        {network("\tno_easymesh_support=1\n"), -1, UNDECIDED},
        {network("\tssid=\"easymesh_support=1\"\n"), -1, UNDECIDED},
        {network("\tssid=\"Two\"\n"), -1, UNDECIDED},
        {"easymesh_support=1\n" + network(""), -1, UNDECIDED},
        {"easymesh_support=1\n", -1, UNDECIDED},
        {"#network={\neasymesh_support=1\n", -1, UNDECIDED},
        {"", -1, UNDECIDED},
    };
    for (const support_case &row : rows) {
        EXPECT_EQ(row.result, support(row.text)) << row.text;
        EXPECT_EQ(row.mark, get_band_easymesh_wps(KELM_BAND_2G)) << row.text;
    }
}

TEST_F(easymesh, the_block_that_was_learnt_last_has_the_last_word)
{
    const std::string yes = network("\teasymesh_support=1\n");
    const std::string no = network("\teasymesh_support=0\n");
    EXPECT_EQ(0, support(no + yes));
    EXPECT_EQ(1u, get_band_easymesh_wps(KELM_BAND_2G));
    EXPECT_EQ(-1, support(yes + no));
    EXPECT_EQ(0u, get_band_easymesh_wps(KELM_BAND_2G));
    EXPECT_EQ(0, support(yes + network("\tssid=\"Root\"\n")))
        << "a block without a word changes nothing";
}

TEST_F(easymesh, either_of_the_two_bands_is_enough)
{
    write_file(FILE_2G, network("\teasymesh_support=0\n"));
    write_file(FILE_5G, network("\teasymesh_support=1\n"));
    EXPECT_EQ(0, rtk_repeater_check_ap_easymesh_support());
    EXPECT_EQ(0u, get_band_easymesh_wps(KELM_BAND_2G));
    EXPECT_EQ(1u, get_band_easymesh_wps(KELM_BAND_5G));
    EXPECT_EQ("> ap_easymesh_support[band:0] = 0\n> ap_easymesh_support[band:1] = 1\n", log_text());
    write_file(FILE_2G, network("\teasymesh_support=1\n"));
    unlink(FILE_5G);
    EXPECT_EQ(0, rtk_repeater_check_ap_easymesh_support());
    EXPECT_EQ(
        "kelm[rtk_repeater_check_ap_easymesh_support:N]: ap_easymesh_support[band:0] = 1\n"
        "kelm[rtk_repeater_check_ap_easymesh_support:N]: Open  "
        "tmp/run/wpa_supplicant.conffailed.\n\n",
        console_text_without_line_numbers());
}

TEST_F(easymesh, missing_station_files_announce_nothing)
{
    unlink(FILE_2G);
    unlink(FILE_5G);
    EXPECT_EQ(-1, rtk_repeater_check_ap_easymesh_support());
    EXPECT_EQ(
        "> Open  tmp/run/wpa_supplicant.conffailed.\n\n"
        "> Open  tmp/run/wpa_supplicant.conffailed.\n\n",
        log_text());
}

TEST_F(easymesh, the_files_are_those_of_the_first_two_stations_whatever_the_sessions_are_called)
{
    copy_text(band(KELM_BAND_2G).ifName, "other0");
    write_file("/tmp/run/wpa_supplicant-other0.conf", network("\teasymesh_support=0\n"));
    EXPECT_EQ(0, support(network("\teasymesh_support=1\n")));
}

TEST_F(easymesh, a_line_longer_than_any_buffer_does_no_harm)
{
    EXPECT_EQ(
        0, support(network("\tssid=\"" + std::string(100000, 's') + "\"\n\teasymesh_support=1\n")));
}

// --- What the backhaul gets ---

struct cross_case {
    int index;
    int sta_band;
    bool two_succeeded;
    bool five_succeeded;
    int result;
    const char *written;
};

const cross_case crosses[] = {
    // its own credentials, the other one of the pair decides
    {0, 0, true, true, 0, BOTH},
    {1, 1, true, true, 0, BOTH},
    {0, 0, true, false, 0, TWO_TWICE},
    {1, 1, false, true, 0, FIVE_TWICE},
    {0, 0, false, true, 0, BOTH},
    {0, 0, false, false, 0, TWO_TWICE},
    {1, 1, false, false, 0, FIVE_TWICE},
    // another band's credentials, which must have succeeded
    {1, 0, true, false, 0, TWO_TWICE},
    {0, 1, false, true, 0, FIVE_TWICE},
    {1, 0, true, true, 0, TWO_TWICE},
    {1, 0, false, true, -1, "nothing"},
    {0, 1, true, false, -1, "nothing"},
    {0, 1, false, false, -1, "nothing"},
    // bands beyond the pair, which have no credentials of their own here
    {2, 0, true, true, 0, BOTH},
    {3, 1, true, true, 0, BOTH},
    {2, 1, true, false, -1, "nothing"},
    {2, 2, true, true, 0, BOTH},
    {3, 3, true, true, 0, BOTH},
    {2, 2, true, false, 0, "Two, two passphrase; , "},
};

TEST_F(easymesh, the_backhaul_bands_fill_each_other_in)
{
    for (const cross_case &row : crosses) {
        const std::string name = std::to_string(row.index) + " from " +
                                 std::to_string(row.sta_band) + (row.two_succeeded ? ", 2g" : "") +
                                 (row.five_succeeded ? ", 5g" : "");
        band(KELM_BAND_2G).wps_status = row.two_succeeded ? WPS_STATUS_SUCCESS : WPS_STATUS_TIMEOUT;
        band(KELM_BAND_5G).wps_status =
            row.five_succeeded ? WPS_STATUS_SUCCESS : WPS_STATUS_TIMEOUT;
        EXPECT_EQ(row.result, write(row.index, row.sta_band)) << name;
        EXPECT_EQ(row.written, backhaul()) << name;
        const words commands = {"/etc/init.d/wps mesh_config_wifi"};
        EXPECT_EQ(row.result == 0 ? commands : words{}, recorded_commands()) << name;
    }
}

TEST_F(easymesh, the_backhaul_file_is_whole_when_its_script_runs)
{
    succeed(KELM_BAND_2G);
    succeed(KELM_BAND_5G);
    set_reply("/etc/init.d/wps", "cp /tmp/wps_wifi_ap_bh.txt /tmp/seen_by_the_script\n");
    EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G));
    EXPECT_EQ(BOTH, backhaul());
    EXPECT_EQ(read_file(WPS_AP_BH_FILE), read_file("/tmp/seen_by_the_script"));
}

TEST_F(easymesh, the_steps_are_told_in_their_order)
{
    succeed(KELM_BAND_2G);
    succeed(KELM_BAND_5G);
    EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G));
    const std::string log = log_text();
    EXPECT_EQ(0u, log.find("> call wps_parse_config\n"));
    EXPECT_TRUE(contains(log,
                         "> wps_parse_config finished.\n"
                         "> --------------------band 0 localApSsid Two\n"
                         "> --------------------band 0 localApSecCfg password: two passphrase\n"
                         "> --------------------band 1 localApSsid Five\n"
                         "> --------------------band 1 localApSecCfg password: five passphrase\n"
                         "> 5g wps_monitor succeed.\n"
                         "> all Radio Easymesh WPS Success\n"
                         "> call wps_set_dual_ap_bh_config\n"))
        << log;
    EXPECT_EQ(-1, write(KELM_BAND_2G, KELM_BAND_5G2));
    EXPECT_TRUE(contains(log_text(), "> 5g2 wps_monitor failed.\n> no Easymesh WPS Success\n"));
}

TEST_F(easymesh, the_partners_outcome_is_reported_to_the_users_log)
{
    write(KELM_BAND_2G, KELM_BAND_2G);
    EXPECT_EQ(words{"3 0 5g WPS failed."}, syslog_lines());
    succeed(KELM_BAND_5G);
    write(KELM_BAND_2G, KELM_BAND_2G);
    EXPECT_EQ(words{"3 1 5g WPS succeeded."}, syslog_lines());
    write(KELM_BAND_5G, KELM_BAND_5G);
    EXPECT_EQ(words{"3 0 2g WPS failed."}, syslog_lines());
}

TEST_F(easymesh, without_both_station_files_nothing_is_written)
{
    succeed(KELM_BAND_2G);
    unlink(FILE_5G);
    EXPECT_EQ(-1, write(KELM_BAND_2G, KELM_BAND_2G));
    EXPECT_TRUE(
        contains(console_text_without_line_numbers(),
                 "kelm[rtk_repeater_easymesh_patching_back:N]: Open /tmp/wpa_supplicant.conf "
                 "failed.\n\n"));
    EXPECT_EQ("nothing", backhaul());
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(easymesh, a_backhaul_that_could_not_be_stored_is_not_applied)
{
    succeed(KELM_BAND_2G);
    block_name(WPS_AP_BH_FILE);
    EXPECT_EQ(-1, write(KELM_BAND_2G, KELM_BAND_2G));
    EXPECT_EQ(words{}, recorded_commands());
}

// The script would apply what somebody else puts there.
TEST_F(easymesh, the_script_of_the_backhaul_finds_no_name_free_or_is_not_run)
{
    succeed(KELM_BAND_2G);
    EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G));
    for (const char *name : {WPS_STA_FILE_MESH, WPS_AP_FILE_MESH})
        EXPECT_EQ(0600, file_mode(name)) << name;
    (void)recorded_commands();
    unlink(WPS_AP_FILE_MESH);
    block_name(WPS_AP_FILE_MESH);
    EXPECT_EQ(-1, write(KELM_BAND_2G, KELM_BAND_2G));
    EXPECT_EQ(words{}, recorded_commands());
}

TEST_F(easymesh, bands_outside_the_device_are_refused)
{
    succeed(KELM_BAND_2G);
    const struct {
        int index;
        int sta_band;
        const char *line;
    } rows[] = {{4, 0, "> Bad wps session[band 4].\n"},
                {0, 4, "> Bad wps session[band 4].\n"},
                {-1, 0, "> Bad wps session[band -1].\n"},
                {0, 1000, "> Bad wps session[band 1000].\n"},
                {4, 4, "> Bad wps session[band 4].\n"}};
    for (const auto &row : rows) {
        console_text();
        EXPECT_EQ(-1, write(row.index, row.sta_band));
        EXPECT_EQ(row.line, log_text());
        EXPECT_EQ("nothing", backhaul());
    }
}

// --- What is read of the files ---

struct read_case {
    const char *why;
    std::string text;
    const char *ssid;
    const char *key;
};

TEST_F(easymesh, credentials_are_taken_from_the_network_blocks)
{
    const std::string hex(64, 'a');
    const read_case rows[] = {
        {"the last block counts",
         credentials_of("Old", "old passphrase") + credentials_of("New", "new passphrase"), "New",
         "new passphrase"},
        {"what a later block leaves out stays",
         credentials_of("Old", "old passphrase") + network("\tssid=\"New\"\n"), "New",
         "old passphrase"},
        {"a hexadecimal key has no quotes", network("\tssid=\"Two\"\n\tpsk=" + hex + "\n"), "Two",
         hex.c_str()},
        {"an SSID without quotes is hexadecimal", network("\tssid=5477c3b6\n\tpsk=\"p\"\n"),
         "Tw\xc3\xb6", "p"},
        {"an SSID may have escapes", network("\tssid=P\"Tw\\xc3\\xb6\"\n\tpsk=\"p\"\n"),
         "Tw\xc3\xb6", "p"},
        {"a password for SAE is a key", network("\tssid=\"Two\"\n\tsae_password=\"own\"\n"), "Two",
         "own"},
        {"the passphrase wins over it",
         network("\tssid=\"Two\"\n\tpsk=\"p\"\n\tsae_password=\"own\"\n"), "Two", "p"},
        {"but not where SAE is the only way",
         network("\tssid=\"Two\"\n\tpsk=\"p\"\n\tsae_password=\"own\"\n\tkey_mgmt=SAE\n"), "Two",
         "own"},
        {"in whatever order",
         network("\tkey_mgmt=SAE FT-SAE\n\tsae_password=\"own\"\n\tpsk=\"p\"\n"), "", "own"},
        {"nor where the passphrase is a way too",
         network("\tsae_password=\"own\"\n\tpsk=\"p\"\n\tkey_mgmt=WPA-PSK SAE\n"), "", "p"},
        {"a block's key management is its own",
         network("\tkey_mgmt=SAE\n\tsae_password=\"old\"\n") +
             network("\tpsk=\"p\"\n\tsae_password=\"own\"\n"),
         "", "p"},
        {"a block without a key keeps that of the one before",
         network("\tpsk=\"p\"\n\tsae_password=\"own\"\n\tkey_mgmt=SAE\n") +
             network("\tssid=\"Two\"\n"),
         "Two", "own"},
        {"one that no field can hold is left out",
         network("\tpsk=\"p\"\n\tsae_password=\"" + std::string(65, 'x') + "\"\n\tkey_mgmt=SAE\n"),
         "", "p"},
        {"a later block's counts over an earlier passphrase",
         credentials_of("Old", "old passphrase") + network("\tsae_password=\"own\"\n"), "Old",
         "own"},
        {"blanks around a line", network(" \t ssid=\"Two\" \t\n  psk=\"a b\"\t \n"), "Two", "a b"},
        {"quotes and blanks inside", network("\tssid=\" \"T\"wo \"\n"), " \"T\"wo ", ""},
        {"one quote is not a pair", network("\tssid=\"Two\n\tpsk=\"\n\tpsk=x\"\n"), "\"Two", "x\""},
        {"a lone quote is a value", network("\tssid=\"\n\tpsk=\"\n"), "\"", "\""},
        {"empty in quotes", network("\tssid=\"\"\n\tpsk=\"\"\n"), "", ""},
        {"an empty key is too short a line to count", network("\tpsk=\"kept\"\n\tpsk=\n"), "",
         "kept"},
        {"an empty name is not", network("\tssid=\"lost\"\n\tssid=\n"), "", ""},
        {"other keys that hold these",
         network("\tbssid=00:11:22:33:44:55\n\tscan_ssid=1\n\tssid2=x\n\tmesh_psk=y\n"), "", ""},
        {"before any block", "ssid=\"Early\"\npsk=\"early\"\n" + network("\tkey_mgmt=WPA-PSK\n"),
         "", ""},
        {"cut to fit",
         network("\tssid=\"" + std::string(40, 's') + "\"\n\tpsk=\"" + std::string(80, 'p') +
                 "\"\n"),
         "ssssssssssssssssssssssssssssssss",
         "pppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppppp"},
        {"no line end at the end", "network={\nssid=\"Two\"\npsk=\"last\"", "Two", "last"},
        {"nothing at all", "", "", ""},
    };
    succeed(KELM_BAND_2G);
    succeed(KELM_BAND_5G);
    for (const read_case &row : rows) {
        write_file(FILE_2G, row.text);
        EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G)) << row.why;
        EXPECT_EQ(row.ssid, backhaul("backhaul_ssid_2g")) << row.why;
        EXPECT_EQ(row.key, backhaul("backhaul_psk_key_2g")) << row.why;
    }
}

// With the Wi-Fi settings instead, the switches of another file would end up among the backhaul's.
TEST_F(easymesh, the_access_point_settings_are_those_of_the_wps_settings_file)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    succeed(KELM_BAND_2G);
    unlink("/tmp/wifi.conf");
    EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G));
    EXPECT_TRUE(contains(log_text(), "> Open wps config file failed\n"));
    write_file("/tmp/wps.conf", "enabled=1\n\nwlanSecType_2g=4\n");
    EXPECT_EQ(0, write(KELM_BAND_2G, KELM_BAND_2G));
    const std::string log = log_text();
    EXPECT_TRUE(contains(log, "> ready to parse type 1\n"));
    EXPECT_FALSE(contains(log, "> Open wps config file failed\n"));
}
