// SPDX-License-Identifier: ISC
// The control-interface events: the attached connections, and both event tables row by row.
#include "platform/rtk/events.h"

#include <algorithm>
#include <cstring>
#include <sstream>

#include <sys/socket.h>
#include <unistd.h>

#include "config/credentials.h"
#include "core/log.h"
#include "platform/rtk/control.h"
#include "tests/unit/ctrl_server.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t launched = WPS_FLAG_WORKER_LAUNCH;
constexpr uint32_t done = WPS_FLAG_WORKER_DONE;
constexpr int other_mode = 5;

class events : public device_test {
protected:
    // Both bands run a started worker.
    void start_attempt(int run_mode)
    {
        start(run_mode, 2);
        rtk_update_interface();
        for (int index : {0, 1}) {
            band(index).wps_status = WPS_STATUS_STARTED;
            band(index).wps_flags = launched;
        }
        (void)log_text();
    }

    static int process(int index, const std::string &line)
    {
        std::string text = line;
        return rtk_process_wpas_msg(index, &text[0], static_cast<int>(text.size()));
    }
};

// What is left of an attempt on band 1 after an event.
struct station_case {
    const char *line;
    int status;
    int step;  // the newest progress step; the attempt starts at 2
    bool ends_worker;
};

// Each row once bare and once as the daemon sends it.
const station_case station_cases[] = {
    {"WPS-AP-AVAILABLE-PBC", 9, 1, false},
    {"<3>WPS-AP-AVAILABLE-PBC ", 9, 1, false},
    {"PBC overlap detected", 8, 2, true},
    {"<3>WPS: PBC overlap detected in the air", 8, 2, true},
    {"WPS-TIMEOUT", 4, 2, true},
    {"<3>WPS-TIMEOUT ", 4, 2, true},
    {"WPS-FAIL", 3, 2, true},
    {"<3>WPS-FAIL msg=8 config_error=18", 3, 2, true},
    {"IFNAME=wlan0-vxd <3>WPS-FAIL msg=11", 3, 2, true},
    {"WPS-AP-KEY_SWAPED", 11, 3, false},
    {"<3>WPS-AP-KEY_SWAPED 02:00:00:00:00:01", 11, 3, false},
    {"WPS-AP-PIN-CHECKED", 11, 8, false},
    {"<3>WPS-AP-PIN-CHECKED 1", 11, 8, false},
    {"WPS-M2D", 11, 4, false},
    {"<3>WPS-M2D dev_password_id=4 config_error=0", 11, 4, false},
    // Two events in one line: the upper row of the table decides.
    {"WPS-FAIL WPS-TIMEOUT", 4, 2, true},
    {"WPS-TIMEOUT PBC overlap detected", 8, 2, true},
    {"PBC overlap detected WPS-AP-AVAILABLE-PBC", 9, 1, false},
    {"WPS-AP-KEY_SWAPED WPS-FAIL", 3, 2, true},
    {"WPS-AP-PIN-CHECKED WPS-AP-KEY_SWAPED", 11, 3, false},
    {"WPS-M2D WPS-AP-PIN-CHECKED", 11, 8, false},
};

const char *const unknown_to_a_station[] = {
    "",
    " ",
    "<3>",
    "CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:00:01 completed",
    "<3>WPS-REG-SUCCESS 02:00:00:00:00:01 12345678-9abc-def0-1234-56789abcdef0",
    "<3>WPS-ENROLLEE-SEEN 02:00:00:00:00:01",
    "<3>WPS-OVERLAP-DETECTED",
    "<3>WPS-PBC-DISABLE",
    "<3>WPS-NEW-AP-SETTINGS 104a",
    "<3>AP-STA-CONNECTED 02:00:00:00:00:01",
    "<3>WPS-AP-AVAILABLE",
    "<3>WPS-AP-AVAILABLE-PIN",
    "<3>WPS-CRED-RECEIVED 100e",
    "<3>wps-success",
    "WPS-SUCCES",
    "WPS-AP-KEY_SWAPPED"};

struct access_point_case {
    const char *line;
    int status;
    bool ends_worker;
    uint32_t global_flag;
};

const access_point_case access_point_cases[] = {
    {"WPS-ENROLLEE-SEEN", 11, false, 0},
    {"<3>WPS-ENROLLEE-SEEN 02:00:00:00:00:01 123 0-00000000-0 0x4 4 1 [device]", 11, false, 0},
    {"WPS-REG-SUCCESS", 2, true, 0},
    {"<3>WPS-REG-SUCCESS 02:00:00:00:00:01 12345678-9abc", 2, true, 0},
    {"WPS-SUCCESS", 11, true, 0x2},
    {"<3>WPS-SUCCESS ", 11, true, 0x2},
    {"WPS-PBC-DISABLE", 11, true, 0x2},
    {"<3>WPS-PBC-DISABLE ", 11, true, 0x2},
    {"AP-STA-CONNECTED", 11, false, 0},
    {"<3>AP-STA-CONNECTED 02:00:00:00:00:01", 11, false, 0},
    {"WPS-OVERLAP-DETECTED", 8, true, 0},
    {"<3>WPS-OVERLAP-DETECTED ", 8, true, 0},
    {"WPS-TIMEOUT", 4, true, 0},
    {"IFNAME=wlan0 <3>WPS-TIMEOUT ", 4, true, 0},
    // Two events in one line: the upper row of the table decides.
    {"WPS-REG-SUCCESS WPS-ENROLLEE-SEEN", 11, false, 0},
    {"WPS-SUCCESS WPS-REG-SUCCESS", 2, true, 0},
    {"AP-STA-CONNECTED WPS-SUCCESS", 11, true, 0x2},
    {"AP-STA-CONNECTED WPS-PBC-DISABLE", 11, true, 0x2},
    {"WPS-OVERLAP-DETECTED AP-STA-CONNECTED", 11, false, 0},
    {"WPS-TIMEOUT WPS-OVERLAP-DETECTED", 8, true, 0},
    {"WPS-NEW-AP-SETTINGS WPS-TIMEOUT", 4, true, 0},
};

const char *const unknown_to_an_access_point[] = {"",
                                                  " ",
                                                  "<3>",
                                                  "<3>WPS-FAIL msg=8 config_error=18",
                                                  "<3>PBC overlap detected",
                                                  "<3>WPS-AP-AVAILABLE-PBC ",
                                                  "<3>WPS-PBC-ACTIVE ",
                                                  "<3>WPS-AP-KEY_SWAPED",
                                                  "<3>WPS-M2D",
                                                  "<3>WPS-AP-PIN-CHECKED",
                                                  "<3>AP-STA-DISCONNECTED 02:00:00:00:00:01",
                                                  "<3>WPS-PIN-NEEDED 1234 02:00:00:00:00:01",
                                                  "<3>wps-timeout",
                                                  "WPS-TIMEOU"};

constexpr const char *mac = "02:00:00:00:01:00";

// hostapd's file once an external registrar has set the access point up.
constexpr const char *PUSHED_SETTINGS =
    "interface=wlan0\nssid=pushed\nwpa=2\nwpa_key_mgmt=WPA-PSK\nrsn_pairwise=CCMP\n"
    "wpa_passphrase=pushed passphrase\n";

// Every text of both tables.
const char *const event_names[] = {"WPS-AP-AVAILABLE-PBC",
                                   "PBC overlap detected",
                                   "WPS-SUCCESS",
                                   "WPS-TIMEOUT",
                                   "WPS-FAIL",
                                   "WPS-AP-KEY_SWAPED",
                                   "WPS-AP-PIN-CHECKED",
                                   "WPS-M2D",
                                   "WPS-ENROLLEE-SEEN",
                                   "WPS-REG-SUCCESS",
                                   "WPS-PBC-DISABLE",
                                   "AP-STA-CONNECTED",
                                   "WPS-OVERLAP-DETECTED",
                                   "WPS-NEW-AP-SETTINGS"};

// In the place of each text that a stranger chooses.
const std::string stranger = "STRANGER";

// Lines with such texts, as the Wi-Fi daemons' own formats have them. None is an event of ours.
const char *const quoting_lines[] = {
    "<3>WPS-PIN-NEEDED 7c8d2b6e-41a5-5b0e-9c33-02ab5e1e0001 02:00:00:00:02:00 "
    "[STRANGER|STRANGER|STRANGER|STRANGER|STRANGER|10-0050F204-5]",
    "<3>WPS-ER-AP-ADD 7c8d2b6e-41a5-5b0e-9c33-02ab5e1e0001 02:00:00:00:02:00 "
    "pri_dev_type=6-0050F204-1 wps_state=2 |STRANGER|STRANGER|STRANGER|STRANGER|STRANGER|STRANGER|",
    "<3>WPS-ER-AP-SETTINGS uuid=7c8d2b6e-41a5-5b0e-9c33-02ab5e1e0001 ssid=STRANGER "
    "auth_type=0x0020 encr_type=0x0008 key=STRANGER",
    "<3>Trying to associate with SSID 'STRANGER'",
    "<3>Trying to associate with 02:00:00:00:03:00 (SSID='STRANGER' freq=2412 MHz)",
    "<3>SME: Trying to authenticate with 02:00:00:00:03:00 (SSID='STRANGER' freq=2412 MHz)",
    "<3>CTRL-EVENT-SSID-TEMP-DISABLED id=0 ssid=\"STRANGER\" auth_failures=1 duration=10",
    "<3>CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:03:00 completed [id=0 id_str=STRANGER]",
    "<3>CTRL-EVENT-EAP-PEER-CERT depth=0 subject='STRANGER' hash=00",
    "<3>CTRL-EVENT-EAP-STATUS status='remote certificate verification' parameter='STRANGER'",
    "<3>EAP-MSCHAPV2: failure message: 'STRANGER' (retry not allowed, error 691)",
    "<3>AP-STA-CONNECTED 02:00:00:00:02:00 keyid=STRANGER",
    "<3>MESH-GROUP-STARTED ssid=\"STRANGER\" id=0",
    "<3>P2P-DEVICE-FOUND 02:00:00:00:02:00 p2p_dev_addr=02:00:00:00:02:00 "
    "pri_dev_type=10-0050F204-5 name='STRANGER' config_methods=0x188",
    "<3>P2P-GROUP-STARTED p2p-wlan1-0 client ssid=\"STRANGER\" freq=2412",
    // Nothing but plain words stands before the stranger's.
    "<3>P2P-SERV-ASP-RESP 02:00:00:00:02:00 1 1 0 0 STRANGER",
    "<3>CTRL-REQ-PIN-0:PIN needed for SSID STRANGER",
    "<3>CTRL-REQ-OTP-0:Challenge STRANGER needed for SSID STRANGER",
    "<3>CTRL-EVENT-EAP-NOTIFICATION STRANGER",
    "<3>DPP-CONFOBJ-SSID STRANGER",
    "<3>DPP-CONNECTOR STRANGER",
    "<3>DPP-MUD-URL STRANGER",
    "<3>DPP-SERVER-NAME STRANGER",
    "<3>DPP-FAIL STRANGER",
    "<3>ESS-DISASSOC-IMMINENT 1 10 STRANGER",
    "<3>HS20-SUBSCRIPTION-REMEDIATION 1 STRANGER",
    "<3>HS20-DEAUTH-IMMINENT-NOTICE 1 10 STRANGER",
    "<3>HS20-T-C-ACCEPTANCE STRANGER",
    "<3>RX-HS20-ICON 02:00:00:00:03:00 STRANGER 1024",
    "<3>RX-VENUE-URL 1 STRANGER",
};

// The line with a text in the stranger's place.
std::string quoting(std::string line, const std::string &text)
{
    size_t at = line.find(stranger);
    for (; at != std::string::npos; at = line.find(stranger, at + text.size()))
        line.replace(at, stranger.size(), text);
    return line;
}

constexpr const char *HOSTAPD_EVENTS = "/mnt/src/tests/data/hostapd/events.txt";
constexpr const char *SUPPLICANT_EVENTS = "/mnt/src/tests/data/supplicant/events.txt";

// What a captured line leaves of an attempt.
struct captured_case {
    const char *line;
    int status;
    uint32_t flags;
    uint32_t global_flag;
};

words captured(const char *path)
{
    words found;
    std::istringstream text(read_file(path));
    for (std::string line; std::getline(text, line);)
        found.push_back(line);
    return found;
}

// --- What one line did to both bands ---

class quoting_events : public events {
protected:
    // Nothing that a line can reach has moved.
    void expect_no_effect(const std::string &line)
    {
        const kelm_session before[] = {band(0), band(1)};
        const uint32_t flag = kelm_flag;
        (void)process(1, line);
        EXPECT_EQ(0, memcmp(&before[0], &band(0), sizeof before[0])) << line;
        EXPECT_EQ(0, memcmp(&before[1], &band(1), sizeof before[1])) << line;
        EXPECT_EQ(flag, kelm_flag) << line;
        for (const char *path : {"/tmp/wps_result", "/tmp/kelm.info", WPS_AP_FILE})
            EXPECT_FALSE(file_exists(path)) << path << ": " << line;
        EXPECT_EQ(words{}, recorded_commands()) << line;
    }

    void expect_no_effect_of_names_in(const std::string &line)
    {
        for (const char *name : event_names) {
            expect_no_effect(quoting(line, name));
            expect_no_effect("IFNAME=wlan0 " + quoting(line, name));
            expect_no_effect(quoting(line, std::string("x ") + name + " \x01\r\n<3>" + name));
        }
    }

    // Each line of a capture does what its row says, and nothing when it has none.
    template <size_t count>
    void expect_captured(int mode, const char *path, const captured_case (&table)[count])
    {
        const auto is_row = [&table](const std::string &line) {
            return std::any_of(table, table + count,
                               [&line](const captured_case &row) { return line == row.line; });
        };
        words lines = captured(path);
        EXPECT_EQ(static_cast<ptrdiff_t>(count), std::count_if(lines.begin(), lines.end(), is_row));
        for (const std::string &line : lines) {
            start_attempt(mode);
            if (!is_row(line))
                expect_no_effect(line);
        }
        for (const captured_case &row : table) {
            EXPECT_TRUE(in_child([this, mode, &row] {
                start_attempt(mode);
                write_wifi_conf("apBssEnabledApMode_5g=on\n");
                write_file("/tmp/run/hostapd-wlan0.conf", PUSHED_SETTINGS);
                EXPECT_EQ(0, process(1, row.line));
                EXPECT_EQ(row.status, status(1));
                EXPECT_EQ(row.flags, flags(1));
                EXPECT_EQ(row.global_flag, kelm_flag);
            })) << row.line;
        }
        for (const char *path_left : {"/tmp/wps_result", "/tmp/kelm.info", WPS_AP_FILE})
            (void)unlink(path_left);
        (void)recorded_commands();
    }
};

}  // namespace

// --- Connections ---

TEST_F(events, the_connection_goes_to_the_daemon_of_the_run_mode_and_attaches)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    ctrl_server supplicant("/var/run/wpa_supplicant/wlan1-vxd");
    start_attempt(KELM_MODE_AP);
    EXPECT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ(words{"ATTACH"}, hostapd.commands());
    EXPECT_EQ(words{}, supplicant.commands());
    rtk_wpas_sock_deinit(0, -1);

    start_attempt(KELM_MODE_REPEATER);
    EXPECT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ(words{"ATTACH"}, supplicant.commands());
    EXPECT_EQ(words{"DETACH"}, hostapd.commands());
}

TEST_F(events, the_descriptor_delivers_the_events)
{
    ctrl_server hostapd("/var/run/hostapd/wlan0");
    start_attempt(KELM_MODE_AP);
    const int fd = rtk_wpas_sock_init(1);
    ASSERT_GE(fd, 0);
    hostapd.send_event("<3>WPS-TIMEOUT ");
    char buffer[64] = {};
    EXPECT_EQ(15, recvfrom(fd, buffer, sizeof buffer, 0, nullptr, nullptr));
    EXPECT_STREQ("<3>WPS-TIMEOUT ", buffer);
}

TEST_F(events, a_connection_is_logged_as_opened_and_in_detail_as_attached)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    start_attempt(KELM_MODE_AP);
    EXPECT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ("> eventCtrl open success\n", log_text());
    kelm_dbg_level = 7;
    EXPECT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ("> eventCtrl open success\n> eventCtrl attach success\n", log_text());
    kelm_dbg_level = 3;
    EXPECT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ("", log_text());
}

TEST_F(events, a_second_connection_of_a_band_closes_the_first)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    start_attempt(KELM_MODE_AP);
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    const words first = files_in_tmp("wpa_ctrl_");
    const size_t before = open_descriptors();
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    const words second = files_in_tmp("wpa_ctrl_");
    EXPECT_EQ(1u, first.size());
    EXPECT_EQ(1u, second.size());
    EXPECT_NE(first, second);
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ((words{"ATTACH", "ATTACH"}), hostapd.commands());
}

TEST_F(events, a_first_connection_is_closed_even_when_no_second_can_be_made)
{
    const size_t before = open_descriptors();
    {
        ctrl_server hostapd("/var/run/hostapd/wlan1");
        start_attempt(KELM_MODE_AP);
        ASSERT_GE(rtk_wpas_sock_init(0), 0);
    }
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_"));
    EXPECT_EQ(before, open_descriptors());
}

// The Wi-Fi daemon would send each event to both, and a device that is short of descriptors or of
// room in "/tmp" could not make a second one.
TEST_F(events, the_old_connection_is_closed_before_the_new_one_is_begun)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    start_attempt(KELM_MODE_AP);
    const size_t without = open_descriptors();
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    words names = {"never looked"};
    size_t descriptors = 0;
    before_next("socket", [&] {
        names = files_in_tmp("wpa_ctrl_");
        descriptors = open_descriptors();
    });
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    EXPECT_EQ(words{}, names);
    EXPECT_EQ(without, descriptors);
}

TEST_F(events, a_daemon_that_is_not_there_is_told_at_any_level)
{
    start_attempt(KELM_MODE_AP);
    kelm_dbg_level = 0;
    const size_t before = open_descriptors();
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ("> Can't open event ctrl\n", log_text());
    EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_"));
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(events, a_refused_attachment_is_told_at_any_level_and_leaves_nothing_open)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    hostapd.answer("ATTACH", {"FAIL\n"});
    start_attempt(KELM_MODE_AP);
    const size_t before = open_descriptors();
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ("> eventCtrl open success\n> Can't attach event ctrl\n", log_text());
    kelm_dbg_level = 0;
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ("> Can't attach event ctrl\n", log_text());
    EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_"));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ((words{"ATTACH", "ATTACH"}), hostapd.commands());
}

TEST_F(events, an_unknown_run_mode_opens_nothing)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    ctrl_server supplicant("/var/run/wpa_supplicant/wlan1-vxd");
    start_attempt(other_mode);
    kelm_dbg_level = 0;
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ("> Invalid run mode.\n\n> Can't open event ctrl\n", log_text());
    EXPECT_EQ(words{}, hostapd.commands());
    EXPECT_EQ(words{}, supplicant.commands());
}

TEST_F(events, a_band_without_a_session_opens_nothing)
{
    start_attempt(KELM_MODE_AP);
    for (int index : {4, -1, 99}) {
        EXPECT_EQ(-1, rtk_wpas_sock_init(index));
        EXPECT_EQ("> Bad wps session[band " + std::to_string(index) + "].\n", log_text());
    }
    kelm_dbg_level = 3;
    EXPECT_EQ(-1, rtk_wpas_sock_init(4));
    EXPECT_EQ("", log_text());
}

TEST_F(events, the_end_of_a_connection_detaches_and_leaves_nothing)
{
    const size_t before = open_descriptors();
    {
        ctrl_server hostapd("/var/run/hostapd/wlan1");
        start_attempt(KELM_MODE_AP);
        const int fd = rtk_wpas_sock_init(0);
        ASSERT_GE(fd, 0);
        (void)log_text();
        rtk_wpas_sock_deinit(0, fd);
        EXPECT_EQ((words{"ATTACH", "DETACH"}), hostapd.commands());
        EXPECT_EQ("", log_text());
        EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_"));
        kelm_dbg_level = 7;
        rtk_wpas_sock_deinit(0, fd);
        EXPECT_EQ("> -------wpa_aupplicant socket deinit OK!\n\n", log_text());
        EXPECT_EQ(words{}, hostapd.commands());
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(events, a_band_without_a_session_has_no_connection_to_end)
{
    start_attempt(KELM_MODE_AP);
    for (const int index : {-1, 2, 4}) {
        rtk_wpas_sock_deinit(index, -1);
        EXPECT_EQ("", log_text()) << index;
    }
}

TEST_F(events, the_descriptor_given_to_the_end_of_a_connection_is_not_used)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    start_attempt(KELM_MODE_AP);
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    rtk_wpas_sock_deinit(0, 1);
    EXPECT_EQ((words{"ATTACH", "DETACH"}), hostapd.commands());
    EXPECT_TRUE(file_exists("/proc/self/fd/1"));
}

TEST_F(events, the_end_of_a_connection_whose_daemon_is_gone_takes_no_time)
{
    const size_t before = open_descriptors();
    {
        ctrl_server hostapd("/var/run/hostapd/wlan1");
        start_attempt(KELM_MODE_AP);
        ASSERT_GE(rtk_wpas_sock_init(0), 0);
    }
    rtk_wpas_sock_deinit(0, -1);
    EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_"));
    EXPECT_EQ(before, open_descriptors());
    EXPECT_EQ(std::vector<unsigned>{}, sleeps());
}

TEST_F(events, events_that_queue_up_before_the_end_do_not_disturb_it)
{
    ctrl_server hostapd("/var/run/hostapd/wlan1");
    hostapd.answer("DETACH", {"<3>WPS-TIMEOUT ", "OK\n"});
    start_attempt(KELM_MODE_AP);
    ASSERT_GE(rtk_wpas_sock_init(0), 0);
    hostapd.send_event("<3>WPS-PBC-DISABLE ");
    rtk_wpas_sock_deinit(0, -1);
    EXPECT_EQ((words{"ATTACH", "DETACH"}), hostapd.commands());
}

// --- Any run mode ---

TEST_F(events, an_event_for_a_band_without_a_session_is_refused)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP, other_mode}) {
        start_attempt(mode);
        for (int index : {4, -1}) {
            EXPECT_EQ(-1, process(index, "WPS-TIMEOUT"));
            EXPECT_EQ("> Bad wps session[band " + std::to_string(index) + "].\n", log_text());
        }
    }
}

TEST_F(events, an_unknown_run_mode_takes_every_event_and_does_nothing)
{
    start_attempt(other_mode);
    kelm_dbg_level = 9;
    for (const char *line : {"WPS-SUCCESS", "WPS-TIMEOUT", "WPS-REG-SUCCESS 1", "anything", ""})
        EXPECT_EQ(0, process(0, line)) << line;
    EXPECT_EQ("", log_text());
    EXPECT_EQ(WPS_STATUS_STARTED, status(0));
    EXPECT_EQ(launched, flags(0));
    EXPECT_EQ(0u, kelm_flag);
}

// --- Repeater: events of wpa_supplicant ---

TEST_F(events, each_station_event_moves_its_own_band_alone)
{
    for (const station_case &row : station_cases) {
        start_attempt(KELM_MODE_REPEATER);
        band(1).eap_status = 2;
        kelm_session other = band(0);
        EXPECT_EQ(0, process(1, row.line)) << row.line;
        EXPECT_EQ(row.status, status(1)) << row.line;
        EXPECT_EQ(row.step, band(1).eap_status) << row.line;
        EXPECT_EQ(row.step == 2 ? 0 : 2, band(1).pre_eap_status) << row.line;
        EXPECT_EQ(row.ends_worker ? launched | done : launched, flags(1)) << row.line;
        EXPECT_EQ(0, memcmp(&other, &band(0), sizeof other)) << row.line;
        EXPECT_EQ(0u, kelm_flag) << row.line;
        EXPECT_FALSE(file_exists("/tmp/wps_result")) << row.line;
        EXPECT_FALSE(file_exists("/tmp/kelm.info")) << row.line;
        EXPECT_EQ(words{}, recorded_commands()) << row.line;
    }
}

// In a child: the result file keeps a success for the rest of the process's life.
TEST_F(events, a_stations_success_is_written_to_the_result_and_the_info_file)
{
    for (const char *line : {"WPS-SUCCESS", "<3>WPS-SUCCESS ", "WPS-FAIL WPS-SUCCESS"}) {
        EXPECT_TRUE(in_child([this, line] {
            start_attempt(KELM_MODE_REPEATER);
            EXPECT_EQ(0, process(1, line));
            EXPECT_EQ(WPS_STATUS_SUCCESS, status(1));
            EXPECT_EQ(11, band(1).eap_status);
            EXPECT_EQ(launched | done, flags(1));
            EXPECT_EQ("1\n", read_file("/tmp/wps_result"));
            EXPECT_EQ(
                "{ \"wps_action\": 2, \"wl0_wps_status\": \"ok\", \"wl0_wps_sta_mac\": \"\", "
                "\"wl1_wps_status\": \"success\", \"wl1_wps_sta_mac\": \"\" }\n",
                read_file("/tmp/kelm.info"));
        })) << line;
    }
}

// Whoever follows the log may look at the result as soon as the band has ended.
TEST_F(events, a_stations_success_is_told_with_the_result_first)
{
    EXPECT_TRUE(in_child([this] {
        start_attempt(KELM_MODE_REPEATER);
        EXPECT_EQ(0, process(1, "<3>WPS-SUCCESS "));
        EXPECT_EQ(
            "> echo 1 > /tmp/wps_result\n"
            "> wps session done [band 1] [kelm_flags: 0x00000010].\n"
            "> processing wpsEvent[5G]: <3>WPS-SUCCESS \n",
            log_text());
    }));
}

TEST_F(events, a_station_line_with_success_and_failure_is_a_success)
{
    EXPECT_TRUE(in_child([this] {
        start_attempt(KELM_MODE_REPEATER);
        EXPECT_EQ(0, process(0, "<3>WPS-FAIL then WPS-SUCCESS"));
        EXPECT_EQ(WPS_STATUS_SUCCESS, status(0));
    }));
}

// Neighbours in the table, each pair in one line in either order: the upper row decides.
TEST_F(events, the_rows_of_the_station_table_keep_their_order)
{
    const struct {
        const char *text;
        int status;
        int step;
    } rows[] = {
        {"WPS-AP-AVAILABLE-PBC", 9, 1},
        {"PBC overlap detected", 8, 2},
        {"WPS-SUCCESS", 2, 11},
        {"WPS-TIMEOUT", 4, 2},
        {"WPS-FAIL", 3, 2},
        {"WPS-AP-KEY_SWAPED", 11, 3},
        {"WPS-AP-PIN-CHECKED", 11, 8},
        {"WPS-M2D", 11, 4},
    };
    for (size_t i = 0; i + 1 < sizeof rows / sizeof rows[0]; ++i) {
        const std::string upper = rows[i].text;
        const std::string lower = rows[i + 1].text;
        for (const std::string &line : {upper + " " + lower, lower + " " + upper}) {
            // In a child: a success is kept for the rest of the process's life.
            EXPECT_TRUE(in_child([&] {
                start_attempt(KELM_MODE_REPEATER);
                band(1).eap_status = 2;
                EXPECT_EQ(0, process(1, line));
                EXPECT_EQ(rows[i].status, status(1));
                EXPECT_EQ(rows[i].step, band(1).eap_status);
            })) << line;
        }
    }
}

TEST_F(events, an_unknown_station_event_changes_nothing_and_is_told_in_detail_only)
{
    for (const char *line : unknown_to_a_station) {
        start_attempt(KELM_MODE_REPEATER);
        EXPECT_EQ(-1, process(1, line)) << line;
        EXPECT_EQ("", log_text()) << line;
        EXPECT_EQ(WPS_STATUS_STARTED, status(1)) << line;
        EXPECT_EQ(launched, flags(1)) << line;
        EXPECT_EQ(0u, kelm_flag) << line;
        kelm_dbg_level = 7;
        EXPECT_EQ(-1, process(1, line)) << line;
        EXPECT_EQ(std::string("> processing wpsEvent[5G]: ") + line + "\n", log_text()) << line;
        kelm_dbg_level = 4;
    }
}

TEST_F(events, a_known_station_event_is_logged_after_its_work_and_in_detail_before_too)
{
    start_attempt(KELM_MODE_REPEATER);
    EXPECT_EQ(0, process(0, "<3>WPS-TIMEOUT "));
    EXPECT_EQ(
        "> wps session done [band 0] [kelm_flags: 0x00000010].\n"
        "> processing wpsEvent[2.4G]: <3>WPS-TIMEOUT \n",
        log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(0, process(1, "<3>WPS-M2D"));
    const std::string line = "> processing wpsEvent[5G]: <3>WPS-M2D\n";
    EXPECT_EQ(line + line, log_text());
}

TEST_F(events, a_station_event_counts_only_while_the_worker_runs)
{
    for (uint32_t idle : {0u, done, launched | done}) {
        start_attempt(KELM_MODE_REPEATER);
        band(1).wps_flags = idle;
        EXPECT_EQ(0, process(1, "WPS-TIMEOUT"));
        EXPECT_EQ(0, process(1, "no event at all"));
        EXPECT_EQ("", log_text());
        EXPECT_EQ(WPS_STATUS_STARTED, status(1));
        EXPECT_EQ(idle, flags(1));
        kelm_dbg_level = 7;
        EXPECT_EQ(0, process(1, "WPS-TIMEOUT"));
        EXPECT_EQ("> Ignore wpsEvent[5G]: WPS-TIMEOUT\n", log_text());
        kelm_dbg_level = 4;
    }
}

TEST_F(events, a_push_button_access_point_in_sight_is_noted_and_does_not_end_the_worker)
{
    start_attempt(KELM_MODE_REPEATER);
    EXPECT_EQ(0, process(1,
                         "<3>WPS-AP-AVAILABLE-PBC bssid=02:1a:2B:3c:4D:5e "
                         "uuid=00112233-4455-6677-8899-aabbccddeeff ssid=my home net"));
    const uint8_t bssid[] = {0x02, 0x1a, 0x2b, 0x3c, 0x4d, 0x5e};
    const uint8_t uuid[] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77,
                            0x88, 0x99, 0xaa, 0xbb, 0xcc, 0xdd, 0xee, 0xff};
    EXPECT_EQ(WPS_STATUS_PBC_SEEN, status(1));
    EXPECT_EQ(0, memcmp(bssid, band(1).rootap.bssid, sizeof bssid));
    EXPECT_EQ(0, memcmp(uuid, band(1).rootap.uuid, sizeof uuid));
    EXPECT_STREQ("my home net", band(1).rootap.ssid);
    EXPECT_EQ(1u, band(1).rootap_valid);
    EXPECT_EQ(launched, flags(1));
    EXPECT_EQ(0u, band(0).rootap_valid);
}

TEST_F(events, a_push_button_access_point_without_fields_is_noted_as_seen_all_the_same)
{
    start_attempt(KELM_MODE_REPEATER);
    EXPECT_EQ(0, process(1, "<3>WPS-AP-AVAILABLE-PBC"));
    EXPECT_EQ(WPS_STATUS_PBC_SEEN, status(1));
    EXPECT_EQ(1u, band(1).rootap_valid);
    EXPECT_STREQ("", band(1).rootap.ssid);
}

// --- What a line quotes ---

TEST_F(quoting_events, no_name_that_a_line_quotes_moves_anything_in_either_run_mode)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        for (const char *line : quoting_lines) {
            ASSERT_NE(std::string::npos, std::string(line).find(stranger)) << line;
            start_attempt(mode);
            expect_no_effect_of_names_in(line);
            band(1).wps_flags = 0;  // an idle band
            expect_no_effect_of_names_in(line);
        }
    }
}

// The same for every line that the real daemons told the one under test, captured beside devices
// and access points that were called STRANGER all over.
TEST_F(quoting_events, no_name_in_a_captured_line_moves_anything_in_either_run_mode)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        size_t quoting_count = 0;
        words lines = captured(HOSTAPD_EVENTS);
        for (const std::string &line : captured(SUPPLICANT_EVENTS))
            lines.push_back(line);
        for (const std::string &line : lines) {
            if (line.find(stranger) == std::string::npos)
                continue;
            ++quoting_count;
            start_attempt(mode);
            expect_no_effect_of_names_in(line);
        }
        EXPECT_EQ(15u, quoting_count);
    }
}

namespace {

const captured_case captured_from_hostapd[] = {
    {"<3>WPS-OVERLAP-DETECTED ", 8, launched | done, 0},
    {"<3>WPS-NEW-AP-SETTINGS ", 11, launched | WPS_FLAG_CONFIG_WIFI, 0},
    {"<3>WPS-SUCCESS ", 11, launched | done, 0x2},
    {"<3>WPS-REG-SUCCESS 02:00:00:00:02:00 a134bcd4-edf6-548b-87e5-49d3aedf9b60", 2,
     launched | done, 0},
    {"<3>WPS-TIMEOUT ", 4, launched | done, 0},
};

const captured_case captured_from_the_supplicant[] = {
    {"<3>WPS-AP-AVAILABLE-PBC ", 9, launched, 0},
    {"<3>WPS-SUCCESS ", 2, launched | done, 0},
    {"<3>WPS-FAIL msg=11 config_error=0", 3, launched | done, 0},
};

}  // namespace

TEST_F(quoting_events, the_captured_events_that_are_the_daemons_own_still_count)
{
    expect_captured(KELM_MODE_AP, HOSTAPD_EVENTS, captured_from_hostapd);
    expect_captured(KELM_MODE_REPEATER, SUPPLICANT_EVENTS, captured_from_the_supplicant);
}

TEST_F(quoting_events, a_quoting_line_is_logged_whole)
{
    start_attempt(KELM_MODE_AP);
    const char *line = "<3>WPS-PIN-NEEDED 123 [WPS-SUCCESS|maker]";
    EXPECT_EQ(-1, process(1, line));
    EXPECT_EQ(std::string("> processing wpsEvent[5G]: ") + line + "\n", log_text());
}

namespace {

// What the daemon says itself counts as if nothing was quoted behind it.
const station_case station_quoting_cases[] = {
    {"<3>WPS-FAIL msg=8 config_error=18 reason=1 (WPS-SUCCESS)", 3, 2, true},
    {"<3>WPS-FAIL [WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL (WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL 'WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL \"WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL |WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL =WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-FAIL P2P-WPS-TIMEOUT", 3, 2, true},
    {"<3>WPS-TIMEOUT ssid=PBC overlap detected", 4, 2, true},
    {"<3>WPS: PBC overlap detected: 02:00:00:00:03:00 and 02:00:00:00:04:00", 8, 2, true},
    {"<3>WPS-AP-AVAILABLE-PBC bssid=02:00:00:00:03:00 ssid=WPS-SUCCESS", 9, 1, false},
    {"<3>WPS-M2D dev_password_id=4 config_error=0 WPS-FAIL", 11, 4, false},
    // The interface's name is no event either.
    {"IFNAME=WPS-TIMEOUT <3>WPS-FAIL ", 3, 2, true},
    {"IFNAME=a'b <3>WPS-FAIL ", 3, 2, true},
};

const char *const no_events[] = {"IFNAME=WPS-TIMEOUT", "IFNAME=WPS-TIMEOUT ", "=WPS-TIMEOUT",
                                 "<3>IFNAME=wlan0 WPS-TIMEOUT", "CTRL-REQ-WPS-TIMEOUT"};

}  // namespace

TEST_F(quoting_events, the_daemons_own_words_count_whatever_is_quoted_behind_them)
{
    for (const station_case &row : station_quoting_cases) {
        start_attempt(KELM_MODE_REPEATER);
        band(1).eap_status = 2;
        EXPECT_EQ(0, process(1, row.line)) << row.line;
        EXPECT_EQ(row.status, status(1)) << row.line;
        EXPECT_EQ(row.step, band(1).eap_status) << row.line;
        EXPECT_EQ(row.ends_worker ? launched | done : launched, flags(1)) << row.line;
    }
}

TEST_F(quoting_events, a_line_without_words_of_the_daemons_own_is_unknown)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start_attempt(mode);
        for (const char *line : no_events) {
            EXPECT_EQ(-1, process(1, line)) << line;
            expect_no_effect(line);
        }
    }
}

TEST_F(quoting_events, a_network_name_like_an_event_is_noted_as_the_name_of_a_root)
{
    for (const char *name : event_names) {
        start_attempt(KELM_MODE_REPEATER);
        EXPECT_EQ(0, process(1, std::string("<3>WPS-AP-AVAILABLE-PBC ssid=") + name));
        EXPECT_EQ(WPS_STATUS_PBC_SEEN, status(1)) << name;
        EXPECT_EQ(launched, flags(1)) << name;
        EXPECT_STREQ(name, band(1).rootap.ssid);
    }
}

// --- Access point: events of hostapd ---

TEST_F(events, each_access_point_event_moves_its_own_band_alone)
{
    for (const access_point_case &row : access_point_cases) {
        start_attempt(KELM_MODE_AP);
        kelm_session other = band(0);
        EXPECT_EQ(0, process(1, row.line)) << row.line;
        EXPECT_EQ(row.status, status(1)) << row.line;
        EXPECT_EQ(row.ends_worker ? launched | done : launched, flags(1)) << row.line;
        EXPECT_EQ(row.global_flag, kelm_flag) << row.line;
        EXPECT_EQ(0, band(1).eap_status) << row.line;
        EXPECT_EQ(0, memcmp(&other, &band(0), sizeof other)) << row.line;
        EXPECT_FALSE(file_exists("/tmp/wps_result")) << row.line;
        EXPECT_EQ(words{}, recorded_commands()) << row.line;
    }
}

TEST_F(events, an_access_point_event_counts_whether_or_not_a_worker_runs)
{
    for (uint32_t before : {0u, done, launched | done}) {
        start_attempt(KELM_MODE_AP);
        band(1).wps_flags = before;
        EXPECT_EQ(0, process(1, "<3>WPS-TIMEOUT "));
        EXPECT_EQ(WPS_STATUS_TIMEOUT, status(1));
        EXPECT_EQ(before | done, flags(1));
    }
}

TEST_F(events, an_unknown_access_point_event_changes_nothing_but_is_logged)
{
    for (const char *line : unknown_to_an_access_point) {
        start_attempt(KELM_MODE_AP);
        EXPECT_EQ(-1, process(1, line)) << line;
        EXPECT_EQ(std::string("> processing wpsEvent[5G]: ") + line + "\n", log_text()) << line;
        EXPECT_EQ(WPS_STATUS_STARTED, status(1)) << line;
        EXPECT_EQ(launched, flags(1)) << line;
        EXPECT_EQ(0u, kelm_flag) << line;
    }
}

TEST_F(events, an_access_point_event_is_logged_once_and_before_its_work)
{
    start_attempt(KELM_MODE_AP);
    kelm_dbg_level = 7;
    EXPECT_EQ(0, process(0, "<3>WPS-OVERLAP-DETECTED "));
    EXPECT_EQ(
        "> processing wpsEvent[2.4G]: <3>WPS-OVERLAP-DETECTED \n"
        "> wps session done [band 0] [kelm_flags: 0x00000010].\n",
        log_text());
    kelm_dbg_level = 3;
    EXPECT_EQ(0, process(1, "<3>WPS-ENROLLEE-SEEN "));
    EXPECT_EQ("", log_text());
}

TEST_F(events, the_address_of_a_registered_client_goes_into_the_info_file)
{
    start_attempt(KELM_MODE_AP);
    EXPECT_EQ(0, process(0, std::string("<3>WPS-REG-SUCCESS ") + mac + " 12345678-9abc"));
    EXPECT_STREQ(mac, band(0).enrollee_mac);
    EXPECT_STREQ(mac, rtk_get_sta_mac(0));
    EXPECT_EQ(
        "{ \"wps_action\": 2, \"wl0_wps_status\": \"success\", \"wl0_wps_sta_mac\": "
        "\"02:00:00:00:01:00\", \"wl1_wps_status\": \"ok\", \"wl1_wps_sta_mac\": \"\" }\n",
        read_file("/tmp/kelm.info"));
    EXPECT_TRUE(contains(log_text(), "> got macAddr 02:00:00:00:01:00\n"));
}

TEST_F(events, a_registered_client_without_an_address_empties_the_one_before)
{
    for (const char *line : {"WPS-REG-SUCCESS", "<3>WPS-REG-SUCCESS ", "  WPS-REG-SUCCESS  "}) {
        start_attempt(KELM_MODE_AP);
        strcpy(band(0).enrollee_mac, mac);
        EXPECT_EQ(0, process(0, line)) << line;
        EXPECT_STREQ("", band(0).enrollee_mac) << line;
        EXPECT_EQ(WPS_STATUS_SUCCESS, status(0)) << line;
        EXPECT_TRUE(contains(read_file("/tmp/kelm.info"), "\"wl0_wps_sta_mac\": \"\"")) << line;
        EXPECT_FALSE(contains(log_text(), "macAddr")) << line;
    }
}

TEST_F(events, an_address_longer_than_its_field_is_cut)
{
    start_attempt(KELM_MODE_AP);
    band(0).rootap.uuid[0] = 0xAA;  // the field behind
    EXPECT_EQ(0, process(0, "<3>WPS-REG-SUCCESS " + std::string(2000, 'f')));
    EXPECT_EQ(std::string(31, 'f'), band(0).enrollee_mac);
    EXPECT_EQ(0xAA, band(0).rootap.uuid[0]);
}

TEST_F(events, a_line_as_long_as_a_packet_is_searched_to_its_end)
{
    start_attempt(KELM_MODE_AP);
    const std::string event = "WPS-TIMEOUT";
    EXPECT_EQ(0, process(0, std::string(2048 - event.size(), 'x') + event));
    EXPECT_EQ(WPS_STATUS_TIMEOUT, status(0));
    start_attempt(KELM_MODE_REPEATER);
    EXPECT_EQ(0, process(0, std::string(2048 - event.size(), 'x') + event));
    EXPECT_EQ(WPS_STATUS_TIMEOUT, status(0));
}

TEST_F(events, new_settings_are_applied_at_once_and_do_not_end_the_worker)
{
    start_attempt(KELM_MODE_AP);
    write_file(WPS_AP_FILE, "{ \"stale\": 1 }\n");
    set_reply("/etc/init.d/wps", "cp /tmp/wps_wifi_ap.txt /tmp/seen_by_the_script 2>/dev/null");
    write_wifi_conf("apBssEnabledApMode_5g=on\n");
    write_file("/tmp/run/hostapd-wlan0.conf", PUSHED_SETTINGS);
    EXPECT_EQ(0, process(1, "<3>WPS-NEW-AP-SETTINGS 104a000110"));
    EXPECT_EQ(words{"/etc/init.d/wps config_wifi"}, recorded_commands());
    const std::string seen = read_file("/tmp/seen_by_the_script");
    EXPECT_TRUE(contains(seen, "\"pushed\"")) << seen;
    EXPECT_TRUE(contains(seen, "\"pushed passphrase\"")) << seen;
    EXPECT_FALSE(contains(seen, "stale")) << seen;
    EXPECT_EQ(launched | WPS_FLAG_CONFIG_WIFI, flags(1));
    EXPECT_EQ(WPS_STATUS_STARTED, status(1));
    EXPECT_EQ(0u, kelm_flag);
    const std::string log = log_text();
    const std::string last = "> /etc/init.d/wps config_wifi\n";
    ASSERT_GE(log.size(), last.size());
    EXPECT_EQ(last, log.substr(log.size() - last.size())) << log;
}

// Programs that follow the log know the line of the script as the sign that it has run.
TEST_F(events, of_the_commands_for_new_settings_only_the_script_is_told_and_after_it_ran)
{
    start_attempt(KELM_MODE_AP);
    write_file(WPS_AP_FILE, "{ \"stale\": 1 }\n");
    write_wifi_conf("apBssEnabledApMode_5g=on\n");
    write_file("/tmp/run/hostapd-wlan0.conf", PUSHED_SETTINGS);
    set_reply("/etc/init.d/wps", "echo \"wps $*\" >/dev/console\n");
    for (const int level : {3, 4, 7}) {
        kelm_dbg_level = level;
        EXPECT_EQ(0, process(1, "<3>WPS-NEW-AP-SETTINGS 104a000110"));
        const std::string log = log_text();
        const std::string end =
            level < 4 ? "wps config_wifi\n" : "wps config_wifi\n> /etc/init.d/wps config_wifi\n";
        EXPECT_EQ(log.find("wps config_wifi\n"), log.size() - end.size()) << level << ": " << log;
        EXPECT_EQ(end, log.substr(log.find("wps config_wifi\n"))) << level << ": " << log;
        EXPECT_FALSE(contains(log, "rm ")) << level << ": " << log;
    }
}

TEST_F(events, the_end_of_a_band_with_new_settings_restarts_the_wireless_instead_of_the_service)
{
    for (const char *line : {"<3>WPS-SUCCESS ", "<3>WPS-PBC-DISABLE "}) {
        start_attempt(KELM_MODE_AP);
        band(0).wps_flags |= WPS_FLAG_CONFIG_WIFI;
        EXPECT_EQ(0, process(0, line));
        EXPECT_EQ(KELM_GFLAG_WIFI_RESTART, kelm_flag) << line;
        EXPECT_EQ(WPS_STATUS_STARTED, status(0)) << line;
        EXPECT_EQ(0, process(1, line));
        EXPECT_EQ(KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART, kelm_flag) << line;
    }
}

TEST_F(events, new_settings_that_were_not_stored_are_not_applied_and_ask_for_no_restart)
{
    const struct {
        const char *name;
        const char *hostapd;   // its file, null: none
        const char *settings;  // the device's, null: none
        bool room;
    } rows[] = {
        {"no file of hostapd's", nullptr, "apBssEnabledApMode_2g=on\n", true},
        {"a file of hostapd's without a line that counts", "# ssid=pushed\nblock\n",
         "apBssEnabledApMode_2g=on\n", true},
        {"no settings of the device", "ssid=pushed\n", nullptr, true},
        {"no room", "ssid=pushed\n", "apBssEnabledApMode_2g=on\n", false},
    };
    for (const auto &row : rows) {
        reset_world();
        start_attempt(KELM_MODE_AP);
        unlink("/tmp/wifi.conf");
        if (row.settings != nullptr)
            write_wifi_conf(row.settings);
        if (row.hostapd != nullptr)
            write_file("/tmp/run/hostapd-wlan1.conf", row.hostapd);
        if (!row.room) {
            block_name(WPS_AP_FILE);
        }
        EXPECT_EQ(0, process(0, "<3>WPS-NEW-AP-SETTINGS 104a000110")) << row.name;
        for (const std::string &command : recorded_commands())
            EXPECT_FALSE(contains(command, "config_wifi")) << row.name << ": " << command;
        EXPECT_EQ(launched, flags(0)) << row.name;
        EXPECT_TRUE(contains(log_text(), "> new settings not stored, skip config_wifi\n"))
            << row.name;
        EXPECT_EQ(0, process(0, "<3>WPS-SUCCESS "));
        EXPECT_EQ(KELM_GFLAG_WPS_RESTART, kelm_flag) << row.name;
    }
}

TEST_F(events, a_success_after_new_settings_restarts_the_wireless)
{
    start_attempt(KELM_MODE_AP);
    write_wifi_conf("apBssEnabledApMode_2g=on\n");
    write_file("/tmp/run/hostapd-wlan1.conf", "ssid=pushed\n");
    EXPECT_EQ(0, process(0, "<3>WPS-NEW-AP-SETTINGS 104a000110"));
    EXPECT_EQ(0, process(0, "<3>WPS-SUCCESS "));
    EXPECT_EQ(KELM_GFLAG_WIFI_RESTART, kelm_flag);
}

// --- Pieces of an event line ---

namespace {

struct rootap_case {
    const char *line;
    const char *bssid;  // as hexadecimal digits
    const char *uuid;
    const char *ssid;
};

constexpr const char *old_bssid = "a1a2a3a4a5a6";
constexpr const char *old_uuid = "b0b1b2b3b4b5b6b7b8b9babbbcbdbebf";

// Read into a record that holds old_bssid, old_uuid and "old".
const rootap_case rootap_cases[] = {
    {"", old_bssid, old_uuid, "old"},
    {"WPS-AP-AVAILABLE-PBC", old_bssid, old_uuid, "old"},
    // A field needs the blank before it.
    {"bssid=02:00:00:00:00:01", old_bssid, old_uuid, "old"},
    {"xssid=name", old_bssid, old_uuid, "old"},
    {"E bssid=02:00:00:00:00:01", "020000000001", old_uuid, "old"},
    {"E bssid=02:00:00:00:00:01 freq=2412", "020000000001", old_uuid, "old"},
    // A broken value reads as unknown.
    {"E bssid=", "000000000000", old_uuid, "old"},
    {"E bssid=02:00:00", "000000000000", old_uuid, "old"},
    {"E bssid=02:00:00:xx:00:01", "000000000000", old_uuid, "old"},
    // Seventeen characters count, no more.
    {"E bssid=02 00 00 00 00  010203", "000000000000", old_uuid, "old"},
    {"E uuid=00112233-4455-6677-8899-aabbccddeeff", old_bssid, "00112233445566778899aabbccddeeff",
     "old"},
    {"E uuid=00112233445566778899AABBCCDDEEFF", old_bssid, "00112233445566778899aabbccddeeff",
     "old"},
    {"E uuid=00112233", old_bssid, "00000000000000000000000000000000", "old"},
    // The name is what is left of the line, later fields included.
    {"E ssid=name", old_bssid, old_uuid, "name"},
    {"E ssid=", old_bssid, old_uuid, ""},
    {"E ssid=a name with blanks ", old_bssid, old_uuid, "a name with blanks "},
    // The other fields count before the name alone: whoever chose it may have written them there.
    {"E ssid=name bssid=02:00:00:00:00:01", old_bssid, old_uuid, "name bssid=02:00:00:00:00:01"},
    {"E ssid= uuid=00112233-4455-6677-8899-aabbccddeeff", old_bssid, old_uuid,
     " uuid=00112233-4455-6677-8899-aa"},
    {"E ssid=' bssid=02:00:00:00:00:01", old_bssid, old_uuid, "' bssid=02:00:00:00:00:01"},
    {"E ssid=a ssid=b bssid=02:00:00:00:00:01", old_bssid, old_uuid,
     "a ssid=b bssid=02:00:00:00:00:01"},
    {"E bssid=02:00:00:00:00:02 ssid=name bssid=02:00:00:00:00:01", "020000000002", old_uuid,
     "name bssid=02:00:00:00:00:01"},
    {"E bssid=02:00:00:00:00:02 uuid=00112233445566778899aabbccddeeff ssid= bssid=9 uuid=0",
     "020000000002", "00112233445566778899aabbccddeeff", " bssid=9 uuid=0"},
    {"E uuid=00112233445566778899aabbccddeeff ssid=name bssid=02:00:00:00:00:01", old_bssid,
     "00112233445566778899aabbccddeeff", "name bssid=02:00:00:00:00:01"},
    // A field without a value takes none from the name.
    {"E bssid= ssid=02:00:00:00:00:01", "000000000000", old_uuid, "02:00:00:00:00:01"},
    {"E uuid= ssid=00112233445566778899aabbccddeeff", old_bssid, "00000000000000000000000000000000",
     "00112233445566778899aabbccddeeff"},
    {"E ssid=0123456789abcdef0123456789abcdef", old_bssid, old_uuid,
     "0123456789abcdef0123456789abcdef"},
    {"E ssid=0123456789abcdef0123456789abcdefX", old_bssid, old_uuid,
     "0123456789abcdef0123456789abcdef"},
};

std::string hex(const uint8_t *bytes, size_t count)
{
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        char digits[3];
        snprintf(digits, sizeof digits, "%02x", bytes[i]);
        text += digits;
    }
    return text;
}

kelm_rootap_info old_rootap()
{
    kelm_rootap_info rootap = {};
    for (int i = 0; i < 6; ++i)
        rootap.bssid[i] = static_cast<uint8_t>(0xa1 + i);
    for (int i = 0; i < 16; ++i)
        rootap.uuid[i] = static_cast<uint8_t>(0xb0 + i);
    strcpy(rootap.ssid, "old");
    strcpy(rootap.auth, "wpa2");
    return rootap;
}

}  // namespace

TEST_F(events, a_field_that_an_event_lacks_leaves_the_record_as_it_was)
{
    for (const rootap_case &row : rootap_cases) {
        kelm_rootap_info rootap = old_rootap();
        _store_rootap_info(row.line, &rootap);
        EXPECT_EQ(row.bssid, hex(rootap.bssid, sizeof rootap.bssid)) << row.line;
        EXPECT_EQ(row.uuid, hex(rootap.uuid, sizeof rootap.uuid)) << row.line;
        EXPECT_STREQ(row.ssid, rootap.ssid) << row.line;
        EXPECT_STREQ("wpa2", rootap.auth) << row.line;
    }
}

TEST_F(events, a_very_long_name_fills_its_field_and_no_more)
{
    kelm_rootap_info rootap = old_rootap();
    _store_rootap_info((" ssid=" + std::string(2000, 'n')).c_str(), &rootap);
    EXPECT_EQ(std::string(32, 'n'), rootap.ssid);
    EXPECT_STREQ("wpa2", rootap.auth);
}

TEST_F(events, address_and_name_of_a_root_access_point_are_told_in_detail)
{
    kelm_rootap_info rootap = {};
    const char *line =
        "E bssid=02:1A:00:00:00:0f uuid=00112233-4455-6677-8899-aabbccddeeff ssid=net";
    _store_rootap_info(line, &rootap);
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    _store_rootap_info(line, &rootap);
    EXPECT_EQ("> got bssid [02:1a:00:00:00:0f]\n> got ssid[net]\n", log_text());
}

namespace {

struct token_case {
    const char *line;
    const char *mac;  // null: none
    const char *uuid;
};

const token_case token_cases[] = {
    {"", nullptr, nullptr},
    {"one", nullptr, nullptr},
    {"one ", nullptr, nullptr},
    {"one two", "two", nullptr},
    {"one two ", "two", nullptr},
    {"one two three", "two", "three"},
    {"<3>WPS-REG-SUCCESS 02:00:00:00:01:00 12345678-9abc", "02:00:00:00:01:00", "12345678-9abc"},
};

}  // namespace

TEST_F(events, the_second_word_is_the_address_and_the_third_the_uuid)
{
    for (const token_case &row : token_cases) {
        std::string text = row.line;
        EXPECT_STREQ(row.mac, rtk_wps_GetEnrolleeMac(&text[0])) << row.line;
        EXPECT_EQ(row.mac ? std::string("> got macAddr ") + row.mac + "\n" : "", log_text());
        text = row.line;
        EXPECT_STREQ(row.uuid, rtk_wps_GetEnrolleeUuid(&text[0])) << row.line;
        EXPECT_EQ(row.uuid ? std::string("> got uuid ") + row.uuid + "\n" : "", log_text());
    }
    EXPECT_EQ(nullptr, rtk_wps_GetEnrolleeMac(nullptr));
    EXPECT_EQ(nullptr, rtk_wps_GetEnrolleeUuid(nullptr));
}

TEST_F(events, an_address_with_a_digit_missing_is_not_shown)
{
    start(KELM_MODE_AP, 2);
    EXPECT_STREQ("", rtk_get_sta_mac(0));
    strcpy(band(0).enrollee_mac, "02:00:00:00:01:0");
    EXPECT_STREQ("", rtk_get_sta_mac(0));
    strcpy(band(0).enrollee_mac, "02:00:00:00:01:00");
    EXPECT_STREQ("02:00:00:00:01:00", rtk_get_sta_mac(0));
    strcpy(band(0).enrollee_mac, "02:00:00:00:01:00 more");
    EXPECT_STREQ("02:00:00:00:01:00 more", rtk_get_sta_mac(0));
    EXPECT_STREQ("", rtk_get_sta_mac(1));
    for (int index : {4, -1})
        EXPECT_STREQ("", rtk_get_sta_mac(index));
}

TEST_F(events, lines_of_the_steps_carry_the_name_of_their_operation)
{
    kelm_dbg_level = 7;
    start_attempt(KELM_MODE_REPEATER);
    EXPECT_EQ(0, process(0, "WPS-M2D"));
    band(0).wps_flags = 0;
    EXPECT_EQ(0, process(0, "WPS-M2D"));
    EXPECT_EQ(
        "kelm[rtk_process_wpas_msg:N]: processing wpsEvent[2.4G]: WPS-M2D\n"
        "kelm[rtk_process_wpas_msg:N]: processing wpsEvent[2.4G]: WPS-M2D\n"
        "kelm[rtk_process_wpas_msg:N]: Ignore wpsEvent[2.4G]: WPS-M2D\n",
        console_text_without_line_numbers());
    start_attempt(KELM_MODE_AP);
    EXPECT_EQ(0, process(0, "WPS-NEW-AP-SETTINGS"));
    EXPECT_TRUE(
        contains(console_text_without_line_numbers(),
                 "kelm[rtk_process_wpas_msg:N]: new settings not stored, skip config_wifi\n"));
    write_wifi_conf("");
    write_file("/tmp/run/hostapd-wlan1.conf", "ssid=pushed\n");
    EXPECT_EQ(0, process(0, "WPS-NEW-AP-SETTINGS"));
    EXPECT_TRUE(contains(console_text_without_line_numbers(),
                         "kelm[rtk_process_wpas_msg:N]: /etc/init.d/wps config_wifi\n"));
    start_attempt(other_mode);
    EXPECT_EQ(-1, rtk_wpas_sock_init(0));
    EXPECT_EQ(
        "kelm[rtk_wpas_sock_init:N]: Invalid run mode.\n\n"
        "kelm[rtk_wpas_sock_init:N]: Can't open event ctrl\n",
        console_text_without_line_numbers());
}
