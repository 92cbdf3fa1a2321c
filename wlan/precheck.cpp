// SPDX-License-Identifier: ISC
// The pre-check of an attempt, by run mode.
#include "wlan/precheck.h"

#include <fcntl.h>

#include "config/settings.h"
#include "config/uci_option.h"
#include "core/exec.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/switches.h"
#include "core/text.h"
#include "core/trust.h"
#include "ipc/bus.h"
#include "wlan/easymesh_marks.h"
#include "wlan/link_state.h"
#include "wlan/predict.h"
#include "wlan/security_type.h"

namespace kelm {

namespace {

constexpr const char *STARTING_MARKER = "/tmp/wifid_is_starting";
constexpr const char *ENTRY = "kelm_check_wlan_status";  // in the log lines of all steps

bool _has_enabled_station(int band)
{
    return kelm_get_band_inited(band) != 0 && kelm_has_wps_flag(band, WPS_FLAG_STABSS_ENABLE);
}

bool _is_wireless_starting()
{
    return kelm_open_trusted(STARTING_MARKER, O_RDWR).valid();
}

// A cancelled attempt may have left a done mark: it would end this attempt at its first event. An
// overlap may have been heard while no attempt ran: it would be reported as the outcome of this
// one.
void _start_clean(bool keep_silence)
{
    kelm_forget_attempt(keep_silence);
    reset_band_easymesh_wps();
}

uint16_t _code(int band)
{
    return static_cast<uint16_t>(kelm_get_status(band));
}

// --- Repeater mode ---

// Silences the bands without an enabled station, and notes the links of the others. False when a
// link cannot be read.
bool _survey_stations()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_has_enabled_station(band)) {
            kelm_set_status(band, WPS_STATUS_SILENT);
            continue;
        }
        if (kelm_backup_sta_connected(band) != 0)
            return false;
        // There is no WPS on 6 GHz. The band takes part only by mirroring another band.
        if (band == KELM_BAND_6G)
            kelm_set_wps_flag_bit(band, WPS_FLAG_STAWPS_FAKEUP);
    }
    return true;
}

// Whether every link is up. The two 5 GHz radios count as one link, and either of them can hold it.
bool _is_all_connected()
{
    const kelm_session *second = kelm_get_wps_session(KELM_BAND_5G2);
    const bool second_connected =
        second != nullptr && (second->wps_flags & WPS_FLAG_STA_CONNECTED) != 0;
    bool all = true;
    bool skip_second = false;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_has_enabled_station(band) || (band == KELM_BAND_5G2 && skip_second))
            continue;
        const bool connected = kelm_has_wps_flag(band, WPS_FLAG_STA_CONNECTED);
        if (band == KELM_BAND_5G)
            skip_second = connected || second_connected;
        if (!connected && !(band == KELM_BAND_5G && second_connected))
            all = false;
    }
    return all;
}

void _launch_all()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_has_enabled_station(band))
            continue;
        kelm_clean_wps_flag_bit(band, WPS_FLAG_WORKER_DONE);
        kelm_set_wps_flag_bit(band, WPS_FLAG_WORKER_LAUNCH);
        kelm_set_status(band, WPS_STATUS_IDLE);
    }
}

void _sit_out(int band)
{
    kelm_clean_wps_flag_bit(band, WPS_FLAG_WORKER_DONE | WPS_FLAG_WORKER_LAUNCH);
    kelm_set_status(band, WPS_STATUS_SILENT);
}

// The connected bands sit the attempt out. If one 5 GHz radio is connected, the other one sits it
// out too.
void _silence_connected()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!_has_enabled_station(band) || !kelm_has_wps_flag(band, WPS_FLAG_STA_CONNECTED))
            continue;
        _sit_out(band);
        if (band == KELM_BAND_5G)
            _sit_out(KELM_BAND_5G2);
        else if (band == KELM_BAND_5G2)
            _sit_out(KELM_BAND_5G);
    }
}

int _start_repeater(uint16_t *codes)
{
    _start_clean(false);
    if (!_survey_stations()) {
        kelm_log_as(ENTRY, KELM_LOG_DETAIL, "Get wlan status failed.\n\n");
        return -1;
    }
    if (_is_all_connected())
        _launch_all();
    else
        _silence_connected();

    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        if (kelm_get_status(band) != WPS_STATUS_SILENT) {
            kelm_set_status(band, WPS_STATUS_STARTED);
            kelm_set_wps_flag_bit(band, WPS_FLAG_WORKER_LAUNCH);
            kelm_log_as(ENTRY, KELM_LOG_NORMAL, "wps session start [%d] [kelm_flags: 0x%08x]\n",
                        band, kelm_get_wps_flags(band));
        }
        codes[band] = _code(band);
        reset_wps_band_predict_score(band);
    }
    factory_mode = check_factory() ? 1 : 0;
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "update factory_mode = %d\n", factory_mode);
    return 0;
}

// --- Access-point mode ---

void _note_open_access_point(int band)
{
    uint32_t sec_type = WPS_AUTH_OPEN;
    if (_read_ap_secType(band, &sec_type) == 0 && _is_none_sec(sec_type))
        kelm_set_wps_flag_bit(band, WPS_FLAG_NONE_SECURITY);
}

// Of two 5 GHz radios, one press opens only the first. If both were open, a client would meet an
// overlap.
bool _sits_out_as_access_point(int band)
{
    if (!kelm_has_wps_flag(band, WPS_FLAG_APBSS_ENABLE))
        return true;
    return band == KELM_BAND_5G2 && kelm_has_wps_flag(KELM_BAND_5G, WPS_FLAG_APBSS_ENABLE);
}

void _start_access_point(uint16_t *codes)
{
    _start_clean(true);  // a band that is silent stays silent
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        if (_sits_out_as_access_point(band))
            kelm_set_status(band, WPS_STATUS_SILENT);
        if (kelm_get_status(band) != WPS_STATUS_SILENT) {
            kelm_set_status(band, WPS_STATUS_STARTED);
            kelm_set_wps_flag_bit(band, WPS_FLAG_WORKER_LAUNCH);
            kelm_log_as(ENTRY, KELM_LOG_DETAIL, "wps session start [%d] [kelm_flags: 0x%08x]\n",
                        band, kelm_get_wps_flags(band));
        }
        _note_open_access_point(band);
        codes[band] = _code(band);
    }
}

// The PIN of the settings as text. It is empty when the access points get none.
void _usable_pin(const wps_config_info &wps, char (&pin)[WPS_PIN_LEN + 1])
{
    copy_text(pin, sizeof pin, wps.pin_code, WPS_PIN_LEN);
    if (wps.pin_enabled == 0 || kelm_check_pin(pin) != 0)
        pin[0] = '\0';
}

}  // namespace

int kelm_check_wlan_status()
{
    if (_is_wireless_starting()) {
        kelm_log_detail("wps do nothing because of wifi starting...\n");
        return -1;
    }
    uint16_t codes[KELM_BAND_COUNT] = {};
    switch (kelm_get_run_mode()) {
    case KELM_MODE_AP:
        _start_access_point(codes);
        break;
    case KELM_MODE_REPEATER:
        if (_start_repeater(codes) != 0)
            return -1;
        break;
    default:
        kelm_log_always("Invalid system mode.\n");
        return -1;
    }
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_START, codes);
    return 0;
}

void start_background_wps()
{
    if (kelm_get_run_mode() != KELM_MODE_AP)
        return;
    wps_config_info wps = {};
    (void)wps_parse_config(WPS_CONF_PATH, &wps, WPS_CONFIG_GLOBAL);  // a missing file: no PIN
    kelm_log_normal(
        "enabled: %d, apWpsAvailable: %d, staWpsAvailable: %d, pinEnabled: %d, pinCode:%.8s\n\n",
        wps.enabled, wps.ap_wps_available, wps.sta_wps_available, wps.pin_enabled, wps.pin_code);
    char pin[WPS_PIN_LEN + 1];
    _usable_pin(wps, pin);

    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        _note_open_access_point(band);
        const bool available = (wps.ap_wps_available & (1u << band)) != 0;
        (void)kelm_ops.set_ap_pin(band, available && pin[0] != '\0' ? pin : nullptr);
    }
}

void trigger_over_scan(int band)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    wps_exec_cmd(command_kind::scan, "%s scan %s", kelm_wifi_program(), bandname[band]);
    session->wps_flags |= WPS_FLAG_OVER_SCAN;
}

}  // namespace kelm
