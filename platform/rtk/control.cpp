// SPDX-License-Identifier: ISC
// Start, cancel, push button and PIN commands, and the requests that lead to them.
#include "platform/rtk/control.h"

#include <cstdio>
#include <cstdlib>

#include <unistd.h>

#include "config/credentials.h"
#include "config/uci_option.h"
#include "core/enabled.h"
#include "core/exec.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/text.h"
#include "ipc/event_socks.h"
#include "ipc/status_files.h"
#include "wlan/availability.h"
#include "wlan/precheck.h"

namespace kelm {

namespace {

constexpr size_t REMOVE_COMMAND_SIZE = 128;
constexpr size_t PIN_BUFFER_SIZE = 12;
constexpr size_t PIN_WORD_SIZE = 4 * PIN_BUFFER_SIZE + 3;

constexpr uint32_t WPS_CLI_START = 1;
constexpr uint32_t WPS_CLI_CANCEL = 2;

constexpr const char *MULTI_AP_EASYMESH = "multi_ap=2";
constexpr const char *MULTI_AP_ON = "multi_ap=1";
constexpr const char *MULTI_AP_OFF = "";

// How the board is wired: 2.4 GHz is wlan1 and 5 GHz is wlan0. The other bands have no interface of
// their own.
constexpr char BASE_NAMES[KELM_BAND_COUNT][8] = {"wlan1", "wlan0", "", ""};

constexpr char BAND_NAMES[][8] = {"2.4G", "5G", "5G2"};

void _remove_if_there(const char *path)
{
    if (access(path, F_OK) == 0)
        (void)kelm_system_format(REMOVE_COMMAND_SIZE, "rm %s", path);
}

// For hostapd_cli a word that begins with a dash is an option, wherever it stands. One of its
// options runs a program. After this mark every word is data.
const char *_end_of_options(const char *pin)
{
    return pin[0] == '-' ? "-- " : "";
}

bool _is_multiap_on()
{
    const char *mode = nvram_get("multiap_mode");
    const int multiap_mode = mode != nullptr ? atoi(mode) : 0;
    kelm_log_as("rtk_pbc_handle", KELM_LOG_DETAIL, "multiap_mode = %d\n\n", multiap_mode);
    return multiap_mode == 1;
}

const char *_multi_ap_word(bool multiap_on)
{
    if (check_easymesh_enable())
        return MULTI_AP_EASYMESH;
    return multiap_on ? MULTI_AP_ON : MULTI_AP_OFF;
}

void _push_station_button(int band, const kelm_session &session, bool multiap_on)
{
    if ((session.wps_flags & WPS_FLAG_STAWPS_FAKEUP) != 0) {
        if ((session.wps_flags & WPS_FLAG_OVER_SCAN) == 0)
            trigger_over_scan(band);
        return;
    }
    wps_exec_cmd("wpa_cli -p /var/run/wpa_supplicant -i %s wps_pbc %s", session.ifName,
                 _multi_ap_word(multiap_on));
}

// Before a start. If an attempt runs already, the start is refused later on, and nothing is done
// here: events that come while a socket is closed would be lost, and a Wi-Fi daemon that is away at
// this moment would end the running attempt.
int _read_settings_and_reopen_sockets()
{
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) != 0)
        return 0;
    kelm_worker_sock_deinit();
    // Reads which bands are enabled. The settings may have changed since the daemon's start. And if
    // an earlier call failed, kelm_clean_wksp() has cleared these flags: without them no band would
    // ever take part again.
    (void)kelm_check_available_status();
    if (kelm_worker_sock_init() == 0)
        return 0;
    kelm_log_as("rtk_process_ibus_msg", KELM_LOG_ALWAYS, "Rebuild worker socket failed.\n\n");
    kelm_clean_wksp();
    return -1;
}

int _start_by_button()
{
    kelm_update_wps_result_file(-1);
    return rtk_wps_start(IBUS_WPS_METHOD_PBC, nullptr);
}

int _start_by_wps_cli(const wps_listen_event_t *event)
{
    char pin[PIN_BUFFER_SIZE];
    copy_text(pin, sizeof pin, event->pin, WPS_PIN_LEN);
    if (_read_settings_and_reopen_sockets() != 0)
        return -1;
    // The program that asked looks at the published event. So the result of the start is not passed
    // on.
    if (event->method == IBUS_WPS_METHOD_PBC)
        (void)_start_by_button();
    else if (event->method == IBUS_WPS_METHOD_PIN)
        (void)rtk_wps_start(IBUS_WPS_METHOD_PIN, pin);
    return 0;
}

int _process_wps_cli(const wps_listen_event_t *event)
{
    switch (event->action) {
    case WPS_CLI_START:
        return _start_by_wps_cli(event);
    case WPS_CLI_CANCEL:
        (void)rtk_wps_cancel();
        rtk_kill_wpas();
        kelm_forget_wps_result();
        return 0;
    default:
        kelm_log_as("rtk_process_ibus_msg", KELM_LOG_ALWAYS, "Invalid wps_cli action.\n\n");
        return -1;
    }
}

}  // namespace

const char *rtk_band_name(int band)
{
    const int known = static_cast<int>(sizeof BAND_NAMES / sizeof BAND_NAMES[0]);
    return band >= 0 && band < known ? BAND_NAMES[band] : "";
}

void rtk_update_interface()
{
    const bool access_point = kelm_get_run_mode() == KELM_MODE_AP;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        kelm_session *session = kelm_get_wps_session(band);
        if (session == nullptr || !session->wps_inited)
            continue;
        snprintf(session->ifName, sizeof session->ifName, access_point ? "%s" : "%s-vxd",
                 BASE_NAMES[band]);
    }
}

int rtk_start_worker()
{
    rtk_update_interface();
    if (kelm_get_run_mode() == KELM_MODE_AP)
        start_background_wps();
    return 0;
}

int rtk_wps_start(int method, const char *pin)
{
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) != 0) {
        kelm_log_detail("WPS is processing, ignore button press....\n\n");
        return -1;
    }
    _remove_if_there(WPS_STA_FILE_MESH);
    _remove_if_there(WPS_AP_FILE_MESH);

    switch (method) {
    case IBUS_WPS_METHOD_PBC:
        if (kelm_check_wlan_status() != 0)
            return -1;
        rtk_pbc_handle();
        kelm_set_wps_alive(1);
        return 0;
    case IBUS_WPS_METHOD_PIN:
        kelm_log_normal("IBUS_WPS_METHOD_PIN \n\n");
        if (kelm_check_wlan_status() != 0)
            return -1;
        // Unlike a push, a PIN sets no alive mark and does not reset the result file: scripts that
        // watch those two wait for the button's attempt. In repeater mode nothing is started, and
        // still this returns 0.
        rtk_pin_handle(pin);
        return 0;
    default:
        kelm_log_always("Invalid wps method.\n\n");
        return -1;
    }
}

void rtk_pbc_handle()
{
    (void)kelm_system("killall wpa_cli");
    const int run_mode = kelm_get_run_mode();
    const bool multiap_on = _is_multiap_on();
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (!kelm_get_band_inited(band) || session->wps_status == WPS_STATUS_SILENT)
            continue;
        kelm_log_normal("start wps band %d[%s]\n", band, session->ifName);
        if (run_mode == KELM_MODE_REPEATER)
            _push_station_button(band, *session, multiap_on);
        else if (run_mode == KELM_MODE_AP)
            wps_exec_cmd("hostapd_cli -p /var/run/hostapd -i %s wps_pbc", session->ifName);
        else
            kelm_log_always("%s invalid run mode or bss is disabled.\n\n", rtk_band_name(band));
        kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    }
}

void rtk_pin_handle(const char *pin)
{
    char word[PIN_WORD_SIZE];
    if (shell_word(word, sizeof word, pin) != 0)
        return;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band) || !kelm_get_iface_enabled(band))
            continue;
        // A station gives its PIN to the registrar. It has no command that takes a PIN.
        if (kelm_get_run_mode() != KELM_MODE_AP)
            continue;
        wps_exec_cmd("hostapd_cli -p /var/run/hostapd -i %s %swps_pin any %s",
                     kelm_get_wps_session(band)->ifName, _end_of_options(pin), word);
        kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    }
}

int rtk_wps_cancel()
{
    uint16_t codes[KELM_BAND_COUNT] = {};
    const int run_mode = kelm_get_run_mode();
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (!kelm_get_band_inited(band) || (session->wps_flags & WPS_FLAG_WORKER_LAUNCH) == 0)
            continue;
        if (run_mode == KELM_MODE_AP)
            wps_exec_cmd("hostapd_cli -p /var/run/hostapd -i %s wps_cancel", session->ifName);
        else
            wps_exec_cmd("wpa_cli -p /var/run/wpa_supplicant -i %s wps_cancel", session->ifName);
        codes[band] = WPS_STATUS_SILENT;
    }
    if (run_mode != KELM_MODE_REPEATER)
        wps_ibus_send_wps_event(IBUS_WPS_ACTION_DONE, codes);
    else
        kelm_log_normal(
            "In rtk_wps_cancel, do not need to send message IBUS_WPS_ACTION_DONE in RE mode, skip "
            "it\n");
    return static_cast<int>(kelm_clean_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING));
}

void rtk_kill_wpas()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band) || !kelm_get_iface_enabled(band) ||
            kelm_is_worker_done(band))
            continue;
        kelm_log_normal("stop wps action.\n\n");
        kelm_set_status(band, WPS_STATUS_IDLE);
        kelm_set_worker_done(band);
    }
}

int rtk_set_ap_pin(int band, const char *pin)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr)
        return 0;
    if (pin == nullptr)
        return wps_exec_cmd("hostapd_cli -p /var/run/hostapd -i %s wps_ap_pin disable",
                            session->ifName);
    char word[PIN_WORD_SIZE];
    if (shell_word(word, sizeof word, pin) != 0)
        return 0;
    return wps_exec_cmd("hostapd_cli -p /var/run/hostapd -i %s %swps_ap_pin set %s",
                        session->ifName, _end_of_options(pin), word);
}

int rtk_process_ibus_msg(const wps_listen_event_t *event)
{
    kelm_log_normal("ibus event: %d\n", static_cast<int>(event->code));
    switch (event->code) {
    case IBUS_EVENT_BUTTON:
        return _read_settings_and_reopen_sockets() != 0 ? -1 : _start_by_button();
    case IBUS_EVENT_WPS_CLI:
        return _process_wps_cli(event);
    default:
        return 0;
    }
}

int rtk_wifi_restart()
{
    return kelm_system("/etc/init.d/wifi restart", command_kind::restart);
}

}  // namespace kelm
