// SPDX-License-Identifier: ISC
// New settings of an access point: what an announcement says, and which file goes with it.
#include "platform/rtk/new_settings.h"

#include <csignal>

#include <unistd.h>

#include "config/band_config.h"
#include "core/signals.h"
#include "core/text.h"
#include "tests/unit/device.h"
#include "tests/unit/faults.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *HOSTAPD_2G = "/tmp/run/hostapd-wlan1.conf";
constexpr const char *NAME = "104500044b656c6d";  // "Kelm"
constexpr const char *WITH_KEY = "100300020020";  // WPA2 personal
constexpr const char *OPEN = "100300020001";
constexpr const char *KEY_8 = "102700087365637265742031";  // "secret 1"
constexpr const char *THE_FILE = "ssid=Kelm\nwpa=2\nwpa_passphrase=secret 1\n";

class new_settings : public device_test {
protected:
    void SetUp() override
    {
        device_test::SetUp();
        start(KELM_MODE_AP, 2);
        rtk_forget_new_settings(KELM_BAND_2G);
        console_text();
    }

    void TearDown() override
    {
        forget_faults();
        rtk_forget_new_settings(KELM_BAND_2G);
        device_test::TearDown();
    }

    // Whether the file goes with the announcement; asked while the daemon is to end, so that
    // nothing is waited for.
    static bool goes_with(const std::string &payload, const std::string &file)
    {
        unlink(HOSTAPD_2G);
        rtk_forget_new_settings(KELM_BAND_2G);
        if (!file.empty())
            write_file(HOSTAPD_2G, file);
        rtk_note_hostapd_file(KELM_BAND_2G);
        rtk_note_new_settings(KELM_BAND_2G, payload.c_str());
        sigset_t term;
        sigemptyset(&term);
        sigaddset(&term, SIGTERM);
        sigset_t before;
        pthread_sigmask(SIG_BLOCK, &term, &before);
        pthread_kill(pthread_self(), SIGTERM);
        const bool answer = rtk_wait_for_new_settings(KELM_BAND_2G);
        int taken = 0;
        sigwait(&term, &taken);
        kelm_ending = {};
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return answer;
    }
};

struct file_case {
    const char *file;
    bool goes;
};

const std::string USUAL = std::string(NAME) + WITH_KEY + KEY_8;

const file_case files[] = {
    {THE_FILE, true},
    {"ssid2=4b656c6d\nwpa=2\nwpa_passphrase=secret 1\n", true},
    {"ssid=Kelm\nwpa=2\nwpa_key_mgmt=SAE\nsae_password=secret 1\n", true},
    {"ssid=Kelm\nwpa=2\nwpa_passphrase=secret 2\n", false},
    {"ssid=Elm\nwpa=2\nwpa_passphrase=secret 1\n", false},
    {"ssid=Kelm \nwpa=2\nwpa_passphrase=secret 1\n", false},
    {"ssid=Kelm\n", false},
    {"ssid=Elm\nbss=wlan1-va0\nssid=Kelm\nwpa=2\nwpa_passphrase=secret 1\n", false},
    {"", false},
};

// All of these announce what THE_FILE holds.
const std::string announcements[] = {
    USUAL,
    " " + USUAL + " \n",
    USUAL + " 1",
    "104500044B656C6D" + std::string(WITH_KEY) + KEY_8,
    std::string(KEY_8) + WITH_KEY + NAME,
    "104a000110" + USUAL + "102000060200000001001061000101",
    "100e001a" + USUAL,
    "104500084b656c6d00000000" + std::string(WITH_KEY) + KEY_8,
    std::string(NAME) + WITH_KEY + "10270009736563726574203100",
    std::string(NAME) + "100300020002" + KEY_8,
    std::string(NAME) + "100300020022" + KEY_8,
    USUAL + "104500014b" + OPEN + "1027000178",
};

// None of these can be understood, so no file can be told from the announced one.
const std::string garbled[] = {
    USUAL + "1",
    USUAL + "10",
    USUAL + "10270001",
    USUAL + "x0",
    std::string(NAME) + KEY_8,
    std::string(NAME) + WITH_KEY,
    std::string(WITH_KEY) + KEY_8,
    "10450000" + std::string(WITH_KEY) + KEY_8,
    "10450021" + std::string(66, '4') + WITH_KEY + KEY_8,
    std::string(NAME) + WITH_KEY + "10270041" + std::string(130, '6'),
    std::string(NAME) + WITH_KEY + "10270003610062",
    std::string(NAME) + "1003000120" + KEY_8,
    "100e001b" + USUAL,
    std::string(2050, '0'),
    "0102030405",
    "1045ffff",
};

}  // namespace

TEST_F(new_settings, a_file_goes_with_an_announcement_by_its_name_and_key)
{
    for (const file_case &row : files)
        EXPECT_EQ(row.goes, goes_with(USUAL, row.file)) << row.file;
}

// While it waits, it looks again and again.
TEST_F(new_settings, a_password_that_is_left_out_is_not_told_at_every_look)
{
    EXPECT_FALSE(goes_with(
        USUAL, "ssid=Kelm\nwpa=2\nwpa_key_mgmt=SAE\nsae_password=" + std::string(65, 'p') + "\n"));
    EXPECT_EQ("", console_text());
}

TEST_F(new_settings, an_announcement_is_understood_in_each_form_that_registrars_send)
{
    for (const std::string &payload : announcements) {
        EXPECT_TRUE(goes_with(payload, THE_FILE)) << payload;
        EXPECT_FALSE(goes_with(payload, "ssid=Elm\n")) << payload;
    }
}

TEST_F(new_settings, what_cannot_be_understood_is_not_waited_for)
{
    for (const std::string &payload : garbled)
        EXPECT_TRUE(goes_with(payload, "ssid=Elm\n")) << payload;
}

TEST_F(new_settings, an_announced_open_network_has_no_key_to_lose)
{
    EXPECT_TRUE(goes_with(std::string(NAME) + OPEN, "ssid=Elm\n"));
    EXPECT_TRUE(goes_with(std::string(NAME) + OPEN + KEY_8, "ssid=Kelm\n"));
}

TEST_F(new_settings, without_its_content_an_announcement_goes_with_a_file_that_has_changed)
{
    for (const char *payload : {"", " ", " \n"}) {
        EXPECT_FALSE(goes_with(payload, THE_FILE));
        EXPECT_FALSE(goes_with(payload, ""));
        write_file(HOSTAPD_2G, "ssid=Elm\n");
        rtk_forget_new_settings(KELM_BAND_2G);
        write_file(HOSTAPD_2G, THE_FILE);
        rtk_note_new_settings(KELM_BAND_2G, payload);
        forget_faults();
        EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
        EXPECT_EQ(0u, poll_limits().size());
    }
}

TEST_F(new_settings, the_wait_ends_with_the_file)
{
    for (const std::string &payload : {std::string(), USUAL}) {
        write_file(HOSTAPD_2G, "ssid=Elm\n");
        rtk_forget_new_settings(KELM_BAND_2G);
        rtk_note_new_settings(KELM_BAND_2G, payload.c_str());
        forget_faults();
        before_next("poll", [] { write_file(HOSTAPD_2G, THE_FILE); });
        EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
        EXPECT_EQ(1u, poll_limits().size()) << payload;
    }
}

TEST_F(new_settings, a_wait_in_vain_is_two_seconds_long_and_not_repeated)
{
    write_file(HOSTAPD_2G, "ssid=Elm\n");
    rtk_forget_new_settings(KELM_BAND_2G);
    forget_faults();
    stop_clocks();
    rtk_note_new_settings(KELM_BAND_2G, USUAL.c_str());
    before_next("poll", [] { sleep(2); });
    EXPECT_FALSE(rtk_wait_for_new_settings(KELM_BAND_2G));
    EXPECT_EQ(1u, poll_limits().size());
    EXPECT_FALSE(rtk_wait_for_new_settings(KELM_BAND_2G));
    EXPECT_EQ(1u, poll_limits().size());
}

// After the write-back the file is no news, and would be waited for in vain.
TEST_F(new_settings, a_file_that_has_come_is_not_waited_for_again)
{
    for (const std::string &payload : {std::string(), USUAL}) {
        write_file(HOSTAPD_2G, "ssid=Elm\n");
        rtk_forget_new_settings(KELM_BAND_2G);
        write_file(HOSTAPD_2G, THE_FILE);
        rtk_note_new_settings(KELM_BAND_2G, payload.c_str());
        EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
        rtk_note_hostapd_file(KELM_BAND_2G);
        forget_faults();
        before_next("poll", [] { write_file(HOSTAPD_2G, THE_FILE); });
        EXPECT_FALSE(rtk_wait_for_new_settings(KELM_BAND_2G)) << "an open one is not stored";
        EXPECT_EQ(0u, poll_limits().size()) << payload;
    }
}

TEST_F(new_settings, each_event_is_waited_for)
{
    write_file(HOSTAPD_2G, "ssid=Elm\n");
    rtk_forget_new_settings(KELM_BAND_2G);
    for (const char *file : {"ssid=Kelm\nwpa=2\nwpa_passphrase=secret 1\n", "ssid=Kelm\n"}) {
        rtk_note_new_settings(KELM_BAND_2G, "");
        forget_faults();
        before_next("poll", [file] { write_file(HOSTAPD_2G, file); });
        EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
        EXPECT_EQ(1u, poll_limits().size());
        rtk_note_hostapd_file(KELM_BAND_2G);
    }
}

TEST_F(new_settings, the_other_bands_file_is_not_waited_for)
{
    write_file(HOSTAPD_2G, "ssid=Elm\n");
    rtk_forget_new_settings(KELM_BAND_2G);
    rtk_forget_new_settings(KELM_BAND_5G);
    write_file("/tmp/run/hostapd-wlan0.conf", THE_FILE);
    for (const std::string &payload : {std::string(), USUAL}) {
        rtk_note_new_settings(KELM_BAND_5G, payload.c_str());
        forget_faults();
        EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_5G));
        EXPECT_EQ(0u, poll_limits().size()) << payload;
    }
    rtk_forget_new_settings(KELM_BAND_5G);
}

TEST_F(new_settings, without_an_announcement_nothing_is_waited_for)
{
    write_file(HOSTAPD_2G, "ssid=Elm\n");
    forget_faults();
    EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
    rtk_note_new_settings(KELM_BAND_5G, USUAL.c_str());
    EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
    rtk_note_new_settings(KELM_BAND_2G, USUAL.c_str());
    rtk_forget_new_settings(KELM_BAND_2G);
    EXPECT_TRUE(rtk_wait_for_new_settings(KELM_BAND_2G));
    EXPECT_EQ(0u, poll_limits().size());
    rtk_forget_new_settings(KELM_BAND_5G);
}

TEST_F(new_settings, a_file_is_newer_than_what_was_stored_by_its_name_and_key)
{
    const struct {
        std::string payload;
        const char *file;
        bool newer;
    } rows[] = {
        {USUAL, THE_FILE, true},
        {"", THE_FILE, true},
        {"", "ssid=Kelm\nwpa=2\nwpa_passphrase=other\n", true},
        {USUAL, "ssid=Kelm\nwpa=2\nwpa_passphrase=other\n", false},
        {"", "ssid=Kelm\n", false},
        {"", "ssid=Elm\nwpa=3\nwpa_pairwise=TKIP\nwpa_passphrase=old one\n", false},
        {"", "# nothing\n", false},
    };
    wps_ap_band_config stored = {};
    stored.ap_bss_enabled = 1;
    copy_text(stored.ssid, "Elm");
    copy_text(stored.password, "old one");
    for (const auto &row : rows) {
        rtk_forget_new_settings(KELM_BAND_2G);
        write_file(HOSTAPD_2G, row.file);
        rtk_note_stored_settings(KELM_BAND_2G, stored);
        EXPECT_FALSE(rtk_has_newer_settings(KELM_BAND_2G)) << "nothing was announced";
        rtk_note_new_settings(KELM_BAND_2G, row.payload.c_str());
        EXPECT_EQ(row.newer, rtk_has_newer_settings(KELM_BAND_2G)) << row.payload << row.file;
    }
}

TEST_F(new_settings, a_band_without_a_session_is_let_alone)
{
    for (const int bad : {-1, 4, 1000}) {
        rtk_note_hostapd_file(bad);
        rtk_note_new_settings(bad, USUAL.c_str());
        rtk_forget_new_settings(bad);
    }
    EXPECT_EQ("", console_text());
}
