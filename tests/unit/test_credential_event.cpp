// SPDX-License-Identifier: ISC
// Credentials that come with an event: which ones are taken, what is written, what the readers of
// that file make of it, and that no key is logged.
#include "platform/rtk/credential_event.h"

#include <cstdlib>
#include <cstring>

#include <sys/stat.h>
#include <unistd.h>

#include "config/supplicant_credentials.h"
#include "core/log.h"
#include "core/switches.h"
#include "core/text.h"
#include "platform/rtk/control.h"
#include "platform/rtk/events.h"
#include "platform/rtk/wps_attributes.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *FILE_2G = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *FILE_5G = "/tmp/run/wpa_supplicant-wlan0-vxd.conf";
constexpr const char *NOTHING_LEARNT =
    "network={\n\tssid=\"none yet\"\n\tkey_mgmt=NONE\n\tdisabled=1\n}\n";
// What a station in the simulator received from a root access point, MAC and index included.
constexpr const char *RECEIVED =
    "100e00401026000101104500094772656174204f616b100300020020100f000200081027001461636f726e7320696e"
    "207468652063656c6c61721020000602000000a101";

std::string digits_of(const std::string &bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        char two[3];
        snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(byte));
        digits += two;
    }
    return digits;
}

// One attribute in digits.
std::string attribute(unsigned type, const std::string &value)
{
    char head[24];
    snprintf(head, sizeof head, "%04x%04x", type, static_cast<unsigned>(value.size()));
    return head + digits_of(value);
}

std::string number(unsigned value)
{
    return {static_cast<char>(value >> 8), static_cast<char>(value)};
}

// The attributes of a credential, in the order in which registrars send them.
std::string credential(const std::string &ssid, const std::string &key, unsigned auth = 0x20,
                       unsigned encryption = 0x08)
{
    return attribute(0x1026, "\1") + attribute(0x1045, ssid) + attribute(0x1003, number(auth)) +
           attribute(0x100f, number(encryption)) + attribute(0x1027, key) +
           attribute(0x1020, std::string(6, '\2'));
}

std::string wrapped(const std::string &attributes)
{
    char head[24];
    snprintf(head, sizeof head, "100e%04x", static_cast<unsigned>(attributes.size() / 2));
    return head + attributes;
}

std::string block(const std::string &lines)
{
    return std::string(NOTHING_LEARNT) + "\nnetwork={\n" + lines + "}\n";
}

class credential_event : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_REPEATER, 2);
        rtk_update_interface();
        (void)log_text();
    }
    void TearDown() override
    {
        unsetenv("KELM_CREDENTIALS");
        kelm_read_switches();
        device_test::TearDown();
    }

    // The file of an attempt whose one credential this is.
    static std::string written(const std::string &payload)
    {
        EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
        rtk_take_credential(KELM_BAND_2G, payload.c_str());
        return read_file(FILE_2G);
    }

    static void switch_on()
    {
        setenv("KELM_CREDENTIALS", "event", 1);
        kelm_read_switches();
    }

    static int process(const std::string &line)
    {
        std::string text = line;
        return rtk_process_wpas_msg(KELM_BAND_2G, &text[0], static_cast<int>(text.size()));
    }

    void run_worker()
    {
        band(KELM_BAND_2G).wps_status = WPS_STATUS_STARTED;
        band(KELM_BAND_2G).wps_flags = WPS_FLAG_WORKER_LAUNCH;
    }
};

}  // namespace

TEST_F(credential_event, before_an_attempt_nothing_is_learnt)
{
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
    EXPECT_EQ(0600, file_mode(FILE_2G));
    EXPECT_EQ("", log_text());
    kelm_rootap_info record = {};
    EXPECT_EQ(-1, rtk_get_wps_credentials(KELM_BAND_2G, &record));
    EXPECT_TRUE(contains(log_text(), "> Find enabled network configs failed\n"));
}

TEST_F(credential_event, what_stands_in_the_files_place_is_replaced)
{
    write_file(FILE_2G, block("\tssid=\"an older attempt\"\n\tpsk=\"old secret\"\n"));
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
    ASSERT_EQ(0, unlink(FILE_2G));
    ASSERT_EQ(0, mkdir(FILE_2G, 0755));
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
    ASSERT_EQ(0, unlink(FILE_2G));
    write_file("/tmp/elsewhere", "somebody's");
    ASSERT_EQ(0, symlink("/tmp/elsewhere", FILE_2G));
    EXPECT_EQ(block("\tssid=4772656174204f616b\n\tpsk=\"acorns in the cellar\"\n\tproto=RSN\n"
                    "\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n"),
              written(RECEIVED));
    EXPECT_EQ("somebody's", read_file("/tmp/elsewhere"));
    EXPECT_EQ(0600, file_mode(FILE_2G));
}

TEST_F(credential_event, a_credential_becomes_a_network_block)
{
    const std::string all_digits(64, 'a');
    struct row {
        const char *name;
        std::string payload;
        std::string lines;
    };
    const std::string wpa2 = "\tproto=RSN\n\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n";
    const row rows[] = {
        {"plain", credential("Elm", "12345678"), "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"wrapped", wrapped(credential("Elm", "12345678")),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"upper case digits",
         "1045000145"
         "10030002002"
         "0100F000200081027000831323334353637"
         "38",
         "\tssid=45\n\tpsk=\"12345678\"\n" + wpa2},
        {"blanks around", " \t" + credential("Elm", "12345678") + " \n",
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"63 characters", credential("Elm", std::string(63, 'k')),
         "\tssid=456c6d\n\tpsk=\"" + std::string(63, 'k') + "\"\n" + wpa2},
        {"63 digits are a passphrase", credential("Elm", std::string(63, 'a')),
         "\tssid=456c6d\n\tpsk=\"" + std::string(63, 'a') + "\"\n" + wpa2},
        {"64 digits are a key", credential("Elm", all_digits),
         "\tssid=456c6d\n\tpsk=" + all_digits + "\n" + wpa2},
        {"quotes and backslashes", credential("\"a\\b\"", "\"q\\\" 'x\""),
         "\tssid=22615c6222\n\tpsk=\"\"q\\\" 'x\"\"\n" + wpa2},
        {"no line of its own", credential("a\n}\nnetwork={", "network={#"),
         "\tssid=610a7d0a6e6574776f726b3d7b\n\tpsk=\"network={#\"\n" + wpa2},
        {"UTF-8", credential("K\xc3\xbc", "pa\xc3\x9fwort\xf0\x9f\x8c\xb3"),
         "\tssid=4bc3bc\n\tpsk=\"pa\xc3\x9fwort\xf0\x9f\x8c\xb3\"\n" + wpa2},
        {"a zero byte in the name", credential(std::string("a\0b", 3), "12345678"),
         "\tssid=610062\n\tpsk=\"12345678\"\n" + wpa2},
        {"32 bytes", credential(std::string(32, '\xff'), "12345678"),
         "\tssid=" + digits_of(std::string(32, '\xff')) + "\n\tpsk=\"12345678\"\n" + wpa2},
        {"filled up with zeros",
         credential(std::string("Elm\0\0\0", 6), std::string("12345678\0", 9)),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"WPA alone", credential("Elm", "12345678", 0x02, 0x04),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n\tproto=WPA\n\tkey_mgmt=WPA-PSK\n\tpairwise=TKIP\n"},
        {"both", credential("Elm", "12345678", 0x22, 0x0c),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n\tproto=WPA RSN\n\tkey_mgmt=WPA-PSK\n"
         "\tpairwise=CCMP TKIP\n"},
        {"open", credential("Elm", "", 0x01, 0x01), "\tssid=456c6d\n\tkey_mgmt=NONE\n"},
        {"open, its key means nothing", credential("Elm", "x\n", 0x01, 0x01),
         "\tssid=456c6d\n\tkey_mgmt=NONE\n"},
        {"open without a key",
         attribute(0x1045, "Elm") + attribute(0x1003, number(1)) + attribute(0x100f, number(1)),
         "\tssid=456c6d\n\tkey_mgmt=NONE\n"},
        {"unknown ones between",
         attribute(0x1049, "vendor") + credential("Elm", "12345678") + attribute(0x2000, ""),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"the first of two names", credential("Elm", "12345678") + attribute(0x1045, "Oak"),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
        {"the first of two credentials",
         wrapped(credential("Elm", "12345678")) + wrapped(credential("Oak", "87654321")),
         "\tssid=456c6d\n\tpsk=\"12345678\"\n" + wpa2},
    };
    for (const row &each : rows) {
        EXPECT_EQ(block(each.lines), written(each.payload)) << each.name;
        EXPECT_EQ(0600, file_mode(FILE_2G));
        EXPECT_EQ("", log_text()) << each.name;
    }
}

TEST_F(credential_event, one_that_cannot_be_used_is_told_and_nothing_is_written)
{
    struct row {
        std::string payload;
        const char *told;
    };
    const char *const no_digits = "no hexadecimal digits";
    const char *const cut_off = "attributes are cut off";
    const char *const no_ssid = "no SSID";
    const char *const ssid_length = "SSID is empty or longer than 32 bytes";
    const char *const no_types = "no authentication or encryption type";
    const char *const not_personal = "neither open nor WPA personal";
    const char *const key = "key is neither a passphrase of 8 to 63 characters nor 64 digits";
    const std::string good = credential("Elm", "12345678");
    const std::string types = attribute(0x1003, number(0x20)) + attribute(0x100f, number(0x08));
    const row rows[] = {
        {"", no_ssid},
        {"x", no_digits},
        {good + "0", no_digits},
        {good.substr(0, 20) + "g" + good.substr(21), no_digits},
        {"0x" + good, no_digits},
        {std::string(2 * 1024 + 2, '0'), no_digits},
        {good + "10", cut_off},
        {good + "104500", cut_off},
        {good + "1045000141"
                "10450002"
                "41",
         cut_off},
        {good.substr(0, good.size() - 2), cut_off},
        {wrapped(good).substr(0, 60), cut_off},
        {"100e0003"
         "104500",
         cut_off},
        {"100e0000", no_ssid},
        {wrapped(attribute(0x1027, "12345678")) + wrapped(good), no_ssid},
        {types + attribute(0x1027, "12345678"), no_ssid},
        {credential("", "12345678"), ssid_length},
        {credential(std::string(5, '\0'), "12345678"), ssid_length},
        {credential(std::string(33, 's'), "12345678"), ssid_length},
        {attribute(0x1045, "Elm") + attribute(0x1027, "12345678"), no_types},
        {attribute(0x1045, "Elm") + attribute(0x1003, number(0x20)), no_types},
        {attribute(0x1045, "Elm") + attribute(0x1003, " ") + attribute(0x100f, number(8)),
         no_types},
        {attribute(0x1045, "Elm") + attribute(0x1003, number(0x20)) + attribute(0x100f, "abc"),
         no_types},
        {attribute(0x1045, "Elm") + types, "no key"},
        {credential("Elm", "12345678", 0x01, 0x02), not_personal},
        {credential("Elm", "12345678", 0x04, 0x02), not_personal},
        {credential("Elm", "12345678", 0x10, 0x08), not_personal},
        {credential("Elm", "12345678", 0x08, 0x04), not_personal},
        {credential("Elm", "12345678", 0x30, 0x08), not_personal},
        {credential("Elm", "12345678", 0x00, 0x08), not_personal},
        {credential("Elm", "12345678", 0x20, 0x01), not_personal},
        {credential("Elm", "12345678", 0x20, 0x02), not_personal},
        {credential("Elm", "12345678", 0x20, 0x00), not_personal},
        {credential("Elm", ""), key},
        {credential("Elm", "1234567"), key},
        {credential("Elm", std::string(63, 'a') + "g"), key},
        {credential("Elm", std::string(65, 'a')), key},
        {credential("Elm", std::string("1234\0"
                                       "5678",
                                       9)),
         key},
        {credential("Elm", "12345678\n"), key},
        {credential("Elm", "1234\n\tssid=\"x\""), key},
        {credential("Elm", "12345678\x7f"), key},
        {good + attribute(0x1020, "12345") + "", nullptr},  // its first address is right
        {attribute(0x1020, "12345") + good, "MAC address has not six bytes"},
    };
    for (const row &each : rows) {
        const std::string file = written(each.payload);
        if (each.told == nullptr) {
            EXPECT_NE(NOTHING_LEARNT, file) << each.payload;
            EXPECT_EQ("", log_text());
            continue;
        }
        EXPECT_EQ(NOTHING_LEARNT, file) << each.payload;
        EXPECT_EQ(std::string("> [band 0] credential not usable: ") + each.told + "\n", log_text())
            << each.payload;
    }
}

TEST_F(credential_event, what_is_written_is_read_byte_for_byte)
{
    struct row {
        std::string ssid;
        std::string key;
    };
    std::string every_byte;
    for (int byte = 1; byte < 256; ++byte)
        every_byte += static_cast<char>(byte);
    std::vector<row> rows = {
        {"Elm House", "under the old elm"},
        {std::string("\0\0x", 3), "12345678"},
        {"\"quoted\"", "\"\"\"\"\"\"\"\""},
        {"P\"a\"", "P\"abcdef\""},
        {" blanks ", "   8   8 "},
        {"6162", "61626364"},
        {"#", "#2345678"},
        {"\xff\xfe\x01", "\xc3\xbc\xc3\xbc\xc3\xbc\xc3\xbc"},
        {"}", "{}={}={}"},
        {"x", std::string(64, 'F')},
    };
    for (size_t at = 0; at < every_byte.size(); at += 32)
        rows.push_back({every_byte.substr(at, 32), "12345678"});
    for (const row &each : rows) {
        (void)written(credential(each.ssid, each.key));
        kelm_rootap_info record = {};
        ASSERT_EQ(0, rtk_get_wps_credentials(KELM_BAND_2G, &record));
        EXPECT_EQ(each.ssid, std::string(record.ssid, ssid_len(record.ssid)));
        EXPECT_EQ(each.key, record.password);
    }
    (void)written(credential("Open", "", 0x01, 0x01));
    kelm_rootap_info record = {};
    ASSERT_EQ(0, rtk_get_wps_credentials(KELM_BAND_2G, &record));
    EXPECT_STREQ("", record.password);
}

TEST_F(credential_event, the_first_usable_one_of_an_attempt_counts)
{
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_5G));
    rtk_take_credential(KELM_BAND_2G, "bad");
    rtk_take_credential(KELM_BAND_2G, credential("Elm", "12345678").c_str());
    const std::string first = read_file(FILE_2G);
    EXPECT_TRUE(contains(first, "ssid=456c6d\n"));
    (void)log_text();
    rtk_take_credential(KELM_BAND_2G, credential("Oak", "87654321").c_str());
    rtk_take_credential(KELM_BAND_2G, "bad");
    EXPECT_EQ(first, read_file(FILE_2G));
    EXPECT_EQ(
        "> [band 0] a further credential, left out\n> [band 0] a further credential, left out\n",
        log_text());
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_5G)) << "each band has its own";
    rtk_take_credential(KELM_BAND_5G, credential("Oak", "87654321").c_str());
    EXPECT_TRUE(contains(read_file(FILE_5G), "ssid=4f616b\n"));
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
    rtk_take_credential(KELM_BAND_2G, credential("Oak", "87654321").c_str());
    EXPECT_TRUE(contains(read_file(FILE_2G), "ssid=4f616b\n"));
}

TEST_F(credential_event, one_that_cannot_be_written_may_be_followed_by_one_that_can)
{
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    (void)unlink(FILE_2G);
    block_name(FILE_2G);
    rtk_take_credential(KELM_BAND_2G, credential("Elm", "12345678").c_str());
    EXPECT_TRUE(contains(log_text(), std::string("> ") + FILE_2G + ": not written: "));
    EXPECT_FALSE(rtk_forget_credential(KELM_BAND_2G));
}

// --- The event ---

TEST_F(credential_event, the_event_is_taken_while_the_exchange_runs_and_never_logged_whole)
{
    const char *const prefixes[] = {"", "<3>", "IFNAME=wlan1-vxd <3>"};
    switch_on();
    kelm_dbg_level = KELM_LOG_DETAIL;
    for (const char *prefix : prefixes) {
        EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
        run_worker();
        (void)log_text();
        EXPECT_EQ(0, process(std::string(prefix) + "WPS-CRED-RECEIVED " + RECEIVED));
        EXPECT_EQ(std::string("> processing wpsEvent[2.4G]: ") + prefix + "WPS-CRED-RECEIVED\n" +
                      "> processing wpsEvent[2.4G]: " + prefix + "WPS-CRED-RECEIVED\n",
                  log_text());
        EXPECT_TRUE(contains(read_file(FILE_2G), "psk=\"acorns in the cellar\"\n"));
        EXPECT_EQ(WPS_STATUS_STARTED, status(KELM_BAND_2G));
        EXPECT_EQ(WPS_FLAG_WORKER_LAUNCH, flags(KELM_BAND_2G));
    }
}

TEST_F(credential_event, outside_an_exchange_it_is_ignored_and_its_key_not_logged)
{
    switch_on();
    kelm_dbg_level = KELM_LOG_DETAIL;
    for (const uint32_t idle : {uint32_t{0}, WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE}) {
        EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
        (void)log_text();
        band(KELM_BAND_2G).wps_flags = idle;
        EXPECT_EQ(0, process(std::string("<3>WPS-CRED-RECEIVED ") + RECEIVED));
        EXPECT_EQ("> Ignore wpsEvent[2.4G]: <3>WPS-CRED-RECEIVED\n", log_text());
        EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
    }
}

TEST_F(credential_event, a_name_that_reads_like_the_event_is_none)
{
    switch_on();
    EXPECT_TRUE(rtk_forget_credential(KELM_BAND_2G));
    run_worker();
    for (const char *line : {"<3>CTRL-EVENT-SSID ssid=\"WPS-CRED-RECEIVED 1045000141\"",
                             "<3>P2P-DEVICE-FOUND WPS-CRED-RECEIVED 1045000141"}) {
        EXPECT_EQ(-1, process(line));
        EXPECT_EQ("", log_text());
    }
    EXPECT_EQ(0, process("<3>WPS-CRED-RECEIVED"));
    EXPECT_EQ(
        "> [band 0] credential not usable: no SSID\n"
        "> processing wpsEvent[2.4G]: <3>WPS-CRED-RECEIVED\n",
        log_text());
    EXPECT_EQ(NOTHING_LEARNT, read_file(FILE_2G));
}

TEST_F(credential_event, without_the_switch_the_event_is_unknown_as_ever)
{
    run_worker();
    EXPECT_EQ(-1, process(std::string("<3>WPS-CRED-RECEIVED ") + RECEIVED));
    EXPECT_EQ("", log_text());
    EXPECT_FALSE(file_exists(FILE_2G));
    kelm_dbg_level = KELM_LOG_DETAIL;
    EXPECT_EQ(-1, process(std::string("<3>WPS-CRED-RECEIVED ") + RECEIVED));
    EXPECT_EQ(std::string("> processing wpsEvent[2.4G]: <3>WPS-CRED-RECEIVED ") + RECEIVED + "\n",
              log_text());
}

// --- Payloads ---

TEST_F(credential_event, a_payload_is_read_to_its_last_byte)
{
    uint8_t bytes[WPS_PAYLOAD_MAX];
    const std::string longest(2 * WPS_PAYLOAD_MAX, 'a');
    EXPECT_EQ(static_cast<int>(WPS_PAYLOAD_MAX), rtk_read_wps_payload(longest.c_str(), bytes));
    EXPECT_EQ(0xaa, bytes[WPS_PAYLOAD_MAX - 1]);
    EXPECT_EQ(-1, rtk_read_wps_payload((longest + "aa").c_str(), bytes));
    EXPECT_EQ(2, rtk_read_wps_payload(" 0aF0 11", bytes));
    EXPECT_EQ(0x0a, bytes[0]);
    EXPECT_EQ(0xf0, bytes[1]);
    EXPECT_EQ(0, rtk_read_wps_payload(" \t\r\n", bytes));
    for (const char *text : {"a", "abc", "0:1", "-1", "0x11", "gg"})
        EXPECT_EQ(-1, rtk_read_wps_payload(text, bytes)) << text;
}
