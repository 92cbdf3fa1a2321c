// SPDX-License-Identifier: ISC
// The device's files and operations: the platform's own, but for the sockets to the Wi-Fi daemons.
#include "tests/fuzz/device.h"

#include <cstring>
#include <ctime>
#include <initializer_list>
#include <memory>

#include <json-c/json.h>

#include "config/supplicant_credentials.h"
#include "core/exec.h"
#include "core/json_file.h"
#include "core/ops.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/signals.h"
#include "daemon/lifecycle.h"
#include "ipc/bus.h"
#include "ipc/event_socks.h"
#include "platform/rtk/ap_write_back.h"
#include "platform/rtk/control.h"
#include "platform/rtk/events.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"
#include "tests/world/world.h"
#include "wlan/easymesh_marks.h"

namespace kelm_fuzz {

void (*on_request)(const kelm::wps_listen_event_t *event) = nullptr;

const device_file DEVICE_FILE[DEVICE_FILES] = {
    {"/tmp/wps.conf", false},
    {"/tmp/wifi.conf", false},
    {"/tmp/device.info", false},
    {"/tmp/device_runtime.info", false},
    {"/tmp/wifi_runtime_info.2g", false},
    {"/tmp/wifi_runtime_info.5g", false},
    {"/tmp/wifi_runtime_info.5g2", false},
    {"/tmp/wifi_runtime_info.6g", false},
    {"/tmp/run/hostapd-wlan1.conf", false},
    {"/tmp/run/hostapd-wlan0.conf", false},
    {"/tmp/run/wpa_supplicant-wlan1-vxd.conf", false},
    {"/tmp/run/wpa_supplicant-wlan0-vxd.conf", false},
    {"/tmp/wifi_scan_2g.result", false},
    {"/tmp/wifi_scan_5g.result", false},
    {"/tmp/wifi_scan_5g2.result", false},
    {"/tmp/wifi_scan_6g.result", false},
    {"/etc/config/wificommonCfg", false},
    {"/etc/config/wifi2G_Cfg", false},
    {"/tmp/wifid_is_starting", false},
    {"/tmp/wps_wifi_sta.txt", true},
    {"/tmp/wps_wifi_ap.txt", true},
    {"/tmp/_wps_wifi_sta.txt", true},
    {"/tmp/_wps_wifi_ap.txt", true},
    {"/tmp/wps_wifi_ap_bh.txt", true},
};

namespace {

constexpr const char *INFO_PATH = "/tmp/kelm.info";
constexpr const char *RESULT_PATH = "/tmp/wps_result";
constexpr const char *ALIVE_PATH = "/tmp/wpsactive";
constexpr int64_t START_TIME = 1000;

constexpr const char *STATUS_TEXTS[] = {"ok",      "cancel",  "success", "error",
                                        "timeout", "overlap", "silent"};
const char *const IFNAMES[] = {"wlan1", "wlan0", "", ""};
const char *const SCAN_PATHS[] = {"/tmp/wifi_scan_2g.result", "/tmp/wifi_scan_5g.result",
                                  "/tmp/wifi_scan_5g2.result", "/tmp/wifi_scan_6g.result"};

constexpr const char *LEARNT =
    "network={\n\tssid=\"Old network\"\n}\n"
    "network={\n\tssid=\"Elm House\"\n\tpsk=\"unQ4a5HFOqdRBWMo5SxLdA\"\n\tproto=RSN\n"
    "\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n\tauth_alg=OPEN\n\teasymesh_support=1\n}\n";
constexpr const char *NEW_SETTINGS =
    "wps_state=2\nssid=Elm House\nwpa=3\nwpa_key_mgmt=WPA-PSK\nwpa_pairwise=CCMP TKIP\n"
    "wpa_passphrase=unQ4a5HFOqdRBWMo5SxLdA\nauth_algs=1\n";
constexpr const char *SCAN =
    "[{\"mac\":\"02:ab:5e:1e:00:02\",\"ssid\":\"Elm House\",\"security\":\"wpa2\","
    "\"wpa_encryption\":\"aes\",\"channel\":\"36\",\"nodeid\":\"1234567\",\"data\":\"04a1\","
    "\"support_mesh\":1}]";
constexpr const char *ALL_SWITCHES =
    "x=1\n\nwlanSecType_2g=%\nwlanSecType_5g=%\nwlanSecType_5g2=%\nwlanSecType_6g=%\n"
    "apBssEnabled_2g=on\napBssEnabled_5g=on\napBssEnabled_5g2=on\napBssEnabled_6g=on\n"
    "apBssEnabledApMode_2g=on\napBssEnabledApMode_5g=on\n\nstaBssEnabled_2g=on\n"
    "staBssEnabled_5g=on\nstaBssEnabled_5g2=on\nstaBssEnabled_6g=on\n";

int64_t time_now = START_TIME;
std::string put_from_outside[DEVICE_FILES];

std::string with(const char *text, const char *digit)
{
    std::string filled = text;
    for (size_t at; (at = filled.find('%')) != std::string::npos;)
        filled.replace(at, 1, digit);
    return filled;
}

void put_settings(bool repeater, bool all_bands, bool open)
{
    put_file("/tmp/wps.conf",
             "enabled=1\napWpsAvailable=3\nstaWpsAvailable=15\npinEnabled=on\npinCode=12345670\n");
    put_file("/tmp/wifi.conf", with(ALL_SWITCHES, open ? "0" : "1"));
    put_file("/tmp/device.info", all_bands ? "{\"RFBand\":5}" : "{\"RFBand\":2}");
    put_file("/tmp/device_runtime.info", repeater ? "{\"mode\":0}" : "{\"mode\":1}");
}

void put_learnt_files(bool repeater)
{
    for (int file = 4; file < 8 && repeater; ++file)
        put_file(DEVICE_FILE[file].path, "{\"status\":0}");
    for (int file = 8; file < 10 && !repeater; ++file)
        put_file(DEVICE_FILE[file].path, NEW_SETTINGS);
    for (int file = 10; file < 12 && repeater; ++file)
        put_file(DEVICE_FILE[file].path, LEARNT);
    for (int file = 12; file < 16 && repeater; ++file)
        put_file(DEVICE_FILE[file].path, SCAN);
}

template <size_t size>
bool is_terminated(const char (&field)[size])
{
    return memchr(field, '\0', size) != nullptr;
}

bool is_known_status(int32_t status)
{
    for (const int32_t known : {0, 2, 3, 4, 8, 9, 11, 12}) {
        if (status == known)
            return true;
    }
    return false;
}

void check_record(const kelm::kelm_rootap_info &record)
{
    PROPERTY(is_terminated(record.ssid));
    PROPERTY(is_terminated(record.auth));
    PROPERTY(is_terminated(record.cipher));
    PROPERTY(is_terminated(record.password));
    PROPERTY(is_terminated(record.qm_data));
}

std::string expected_name(int band)
{
    // Before the first request, the table's own name; after it the run mode's.
    return IFNAMES[band] + std::string(kelm::kelm_get_run_mode() == 1 ? "" : "-vxd");
}

// No daemon listens for an access point without an interface.
int open_no_socket(int band)
{
    const kelm::kelm_session *session = kelm::kelm_get_wps_session(band);
    return session == nullptr || session->ifName[0] == '\0' ? -1 : EVENT_FD + band;
}

void close_no_socket(int, int) {}

// An event may change its own band's record only.
int process_event_beside_the_others(int band, char *text, int length)
{
    kelm::kelm_session before[kelm::KELM_BAND_COUNT];
    memcpy(before, kelm::global_wps_sessions, sizeof before);
    const int result = kelm::rtk_process_wpas_msg(band, text, length);
    for (int other = 0; other < kelm::KELM_BAND_COUNT; ++other) {
        if (other != band)
            PROPERTY(memcmp(&before[other], &kelm::global_wps_sessions[other],
                            sizeof before[other]) == 0);
    }
    PROPERTY(result == 0 || result == -1);
    if (result == -1)
        PROPERTY(memcmp(&before[band], &kelm::global_wps_sessions[band], sizeof before[band]) == 0);
    return result;
}

int process_seen_request(const kelm::wps_listen_event_t *event)
{
    if (on_request != nullptr)
        on_request(event);
    return kelm::rtk_process_ibus_msg(event);
}

void no_tick(int) {}

int no_rootap_msg(const char *, size_t, kelm::kelm_worker_rootapinfo *, int *)
{
    return 0;
}

void check_info_file()
{
    const std::string text = get_file(INFO_PATH);
    if (!kelm_test::file_exists(INFO_PATH))
        return;
    const kelm::unique_json info(json_tokener_parse(text.c_str()));
    PROPERTY(json_object_is_type(info.get(), json_type_object));
    json_object_object_foreach(info.get(), key, value)
    {
        if (strstr(key, "_wps_status") == nullptr)
            continue;
        bool known = false;
        for (const char *one : STATUS_TEXTS)
            known = known || strcmp(json_object_get_string(value), one) == 0;
        PROPERTY(known);
    }
}

}  // namespace

void put_device_file(size_t file, const std::string &text)
{
    put_from_outside[file] = text;
    put_file(DEVICE_FILE[file].path, text);
}

void reset_device(unsigned preset)
{
    for (std::string &text : put_from_outside)
        text.clear();
    for (const device_file &file : DEVICE_FILE)
        remove_file(file.path);
    for (const char *path : {INFO_PATH, RESULT_PATH, ALIVE_PATH, "/tmp/wps_wifi_ap.bak",
                             "/tmp/wps_wifi_sta.bak", kelm::KELM_PID_PATH})
        remove_file(path);
    const bool repeater = preset % 2 == 1;
    put_settings(repeater, preset >= 2, preset == 2);
    put_learnt_files(repeater);
    time_now = START_TIME;
    set_command_output("");
}

bool start_device()
{
    kelm::kelm_dbg_level = kelm::KELM_LOG_DETAIL;
    kelm::kelm_flag = 0;
    kelm::kelm_ending = {};
    kelm::kelm_let_commands_run();
    kelm::kelm_band_mask = 0;
    kelm::kelm_rf_band = 0;
    kelm::factory_mode = 0;
    kelm::kelm_sock_list = nullptr;
    memset(kelm::kelm_worker_socks, 0, sizeof kelm::kelm_worker_socks);
    kelm::wps_ibus_set_msg({});
    kelm::reset_band_easymesh_wps();
    return kelm::_kelm_open() == 0;
}

void check_sessions()
{
    for (int band = 0; band < kelm::KELM_BAND_COUNT; ++band) {
        const kelm::kelm_session &session = *kelm::kelm_get_wps_session(band);
        PROPERTY(is_known_status(session.wps_status));
        PROPERTY(is_terminated(session.enrollee_mac));
        PROPERTY(is_terminated(session.ifName));
        PROPERTY((session.wps_flags & ~0x3ffu) == 0);
        PROPERTY(session.wps_score >= 0 && session.wps_score <= 100);
        check_record(session.rootap);
        PROPERTY(session.wps_inited == (kelm::kelm_band_mask >> band & 1));
        if (session.wps_inited == 0) {
            PROPERTY(session.rootap.ssid[0] == '\0' && session.enrollee_mac[0] == '\0');
            continue;
        }
        PROPERTY(session.ifName == expected_name(band));
        PROPERTY(strcmp(session.scan_path, SCAN_PATHS[band]) == 0);
    }
    PROPERTY((kelm::kelm_flag & ~0x1103u) == 0);
}

void check_files()
{
    for (const device_file &file : DEVICE_FILE) {
        if (!file.is_json || !kelm_test::file_exists(file.path))
            continue;
        const std::string text = get_file(file.path);
        if (text == put_from_outside[&file - DEVICE_FILE])
            continue;
        const kelm::unique_json object(json_tokener_parse(text.c_str()));
        PROPERTY(json_object_is_type(object.get(), json_type_object));
        PROPERTY(text.find('\n') == text.size() - 1);
        PROPERTY(kelm_test::file_mode(file.path) == 0600);
    }
    check_info_file();
    const std::string result = get_file(RESULT_PATH);
    PROPERTY(result.empty() || result == "-1\n" || result == "0\n" || result == "1\n");
    const std::string alive = get_file(ALIVE_PATH);
    PROPERTY(alive.empty() || alive == "0\n" || alive == "1\n");
}

void move_time(int64_t seconds)
{
    time_now += seconds;
}

}  // namespace kelm_fuzz

namespace kelm {

const kelm_platform_ops kelm_ops = {
    "FUZZ",
    rtk_start_worker,
    rtk_kill_wpas,
    kelm_fuzz::open_no_socket,
    kelm_fuzz::close_no_socket,
    nullptr,
    kelm_fuzz::process_seen_request,
    kelm_fuzz::process_event_beside_the_others,
    rtk_get_sta_mac,
    rtk_patching_back,
    nullptr,
    rtk_set_ap_pin,
    rtk_wps_cancel,
    kelm_fuzz::no_tick,
    kelm_fuzz::no_rootap_msg,
    nullptr,
    rtk_get_wps_credentials,
};

}  // namespace kelm

extern "C" time_t __wrap_time(time_t *now);

extern "C" time_t __wrap_time(time_t *now)
{
    if (now != nullptr)
        *now = kelm_fuzz::time_now;
    return kelm_fuzz::time_now;
}
