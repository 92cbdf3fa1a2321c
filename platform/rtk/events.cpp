// SPDX-License-Identifier: ISC
// The attached connections and the two event tables.
#include "platform/rtk/events.h"

#include <cstdio>
#include <cstring>

#include "config/credentials.h"
#include "core/exec.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/switches.h"
#include "core/text.h"
#include "ctrl/wpa_ctrl.h"
#include "ipc/status_files.h"
#include "platform/rtk/ap_write_back.h"
#include "platform/rtk/control.h"
#include "platform/rtk/credential_event.h"
#include "platform/rtk/new_settings.h"
#include "wlan/predict.h"

namespace kelm {

namespace {

constexpr size_t SOCKET_PATH_SIZE = 64;
constexpr size_t REMOVE_COMMAND_SIZE = 128;
constexpr const char *NEW_SETTINGS = "WPS-NEW-AP-SETTINGS";
constexpr const char *CREDENTIAL_EVENT = "WPS-CRED-RECEIVED";
constexpr const char *ENTRY = "rtk_process_wpas_msg";  // the steps log under this name

// The bands' attached connections; null while closed.
unique_wpa_ctrl wpas_ctrl[KELM_BAND_COUNT];

void _socket_path(const kelm_session &session, char (&path)[SOCKET_PATH_SIZE])
{
    path[0] = '\0';
    switch (kelm_get_run_mode()) {
    case KELM_MODE_REPEATER:
        snprintf(path, sizeof path, "/var/run/wpa_supplicant/%s", session.ifName);
        break;
    case KELM_MODE_AP:
        snprintf(path, sizeof path, "/var/run/hostapd/%s", session.ifName);
        break;
    default:
        kelm_log_as("rtk_wpas_sock_init", KELM_LOG_ALWAYS, "Invalid run mode.\n\n");
    }
}

// --- What an event does to its band. One row of a table is one event. Its text is looked for
// anywhere in the Wi-Fi daemon's own words, since a level prefix may stand before it and other
// words around it. The first row that matches decides. ---

constexpr int SUCCESS_RESULT = 1;
constexpr int NOTHING = -1;  // no status and no step has this number

struct event_row {
    using effect_call = void (*)(int band, kelm_session *session, char *text);

    const char *text;
    bool is_success = false;      // written to the result file, before all else
    int new_status = NOTHING;     // of the band
    int progress_step = NOTHING;  // to push
    bool is_worker_end = false;
    effect_call effect = nullptr;  // what else happens

    // A row is written as a sentence: its text, and what it does.
    constexpr event_row &writes_success()
    {
        is_success = true;
        return *this;
    }
    constexpr event_row &status(int number)
    {
        new_status = number;
        return *this;
    }
    constexpr event_row &step(int number)
    {
        progress_step = number;
        return *this;
    }
    constexpr event_row &ends_worker()
    {
        is_worker_end = true;
        return *this;
    }
    constexpr event_row &then(effect_call call)
    {
        effect = call;
        return *this;
    }
};

constexpr event_row on(const char *text)
{
    return {text};
}

void _note_rootap(int, kelm_session *session, char *text)
{
    _store_rootap_info(text, &session->rootap);
    session->rootap_valid = 1;  // for the dump only
}

void _tell_station_success(int, kelm_session *, char *)
{
    kelm_update_info_file(IBUS_WPS_ACTION_DONE);
}

void _note_enrollee(int, kelm_session *session, char *text)
{
    const char *mac = rtk_wps_GetEnrolleeMac(text);
    copy_text(session->enrollee_mac, mac != nullptr ? mac : "");
    kelm_update_info_file(IBUS_WPS_ACTION_DONE);
}

void _store_new_settings(int band, kelm_session *session)
{
    (void)kelm_system_format(REMOVE_COMMAND_SIZE, "rm %s", WPS_AP_FILE);
    if (rtk_ap_patching_back(band) != 0 || !kelm_hold_credential_names()) {
        kelm_log_as(ENTRY, KELM_LOG_ALWAYS, "new settings not stored, skip config_wifi\n");
        return;
    }
    session->wps_flags |= WPS_FLAG_CONFIG_WIFI;
    (void)kelm_system("/etc/init.d/wps config_wifi", command_kind::script);
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "/etc/init.d/wps config_wifi\n");
}

// hostapd's file may have come after the wait for it was over. So it is looked at once more now:
// after this the restart puts the stored settings into use.
void _end_with_restart(int band, kelm_session *session, char *)
{
    if (rtk_has_newer_settings(band))
        _store_new_settings(band, session);
    rtk_forget_new_settings(band);
    const bool new_settings = (session->wps_flags & WPS_FLAG_CONFIG_WIFI) != 0;
    kelm_set_global_wpsflag_bit(new_settings ? KELM_GFLAG_WIFI_RESTART : KELM_GFLAG_WPS_RESTART);
}

void _apply_new_settings(int band, kelm_session *session, char *text)
{
    rtk_note_new_settings(band, strstr(text, NEW_SETTINGS) + strlen(NEW_SETTINGS));
    _store_new_settings(band, session);
    rtk_note_hostapd_file(band);
}

// Events of wpa_supplicant, which is the enrollee. The order of the rows counts: a line with both a
// success and a failure is a success.
constexpr event_row STATION_EVENTS[] = {
    on("WPS-AP-AVAILABLE-PBC")
        .status(WPS_STATUS_PBC_SEEN)
        .step(EAP_STEP_PBC_FOUND)
        .then(_note_rootap),
    on("PBC overlap detected").status(WPS_STATUS_OVERLAP).ends_worker(),
    on("WPS-SUCCESS")
        .writes_success()
        .status(WPS_STATUS_SUCCESS)
        .step(EAP_STEP_SUCCESS)
        .ends_worker()
        .then(_tell_station_success),
    on("WPS-TIMEOUT").status(WPS_STATUS_TIMEOUT).ends_worker(),
    on("WPS-FAIL").status(WPS_STATUS_ERROR).ends_worker(),
    on("WPS-AP-KEY_SWAPED").step(EAP_STEP_KEY_SWAPPED),
    on("WPS-AP-PIN-CHECKED").step(EAP_STEP_PIN_CHECKED),
    on("WPS-M2D").step(EAP_STEP_M2D),
};

// Events of hostapd, which is the registrar. Its own "WPS-SUCCESS" ends the worker and sets no
// status, whatever became of the client. A failed exchange is no event here, since the client may
// try again within the walk time.
constexpr event_row ACCESS_POINT_EVENTS[] = {
    on("WPS-ENROLLEE-SEEN"),
    on("WPS-REG-SUCCESS").status(WPS_STATUS_SUCCESS).ends_worker().then(_note_enrollee),
    on("WPS-SUCCESS").ends_worker().then(_end_with_restart),
    on("WPS-PBC-DISABLE").ends_worker().then(_end_with_restart),
    on("AP-STA-CONNECTED"),
    on("WPS-OVERLAP-DETECTED").status(WPS_STATUS_OVERLAP).ends_worker(),
    on("WPS-TIMEOUT").status(WPS_STATUS_TIMEOUT).ends_worker(),
    on(NEW_SETTINGS).then(_apply_new_settings),
};

// A line quotes names and texts that strangers choose: device names in brackets or between bars,
// network names in quotes or behind a "=". One of these characters stands before each such text.
// The events below are the exception: there the text follows plain words.
constexpr const char *QUOTING_MARKS = "[('\"|=";
constexpr const char *INTERFACE_PREFIX = "IFNAME=";

constexpr char QUOTING_EVENTS[][28] = {
    "CTRL-REQ-",                    // what an authentication server asks, and the SSID
    "CTRL-EVENT-EAP-NOTIFICATION",  // a server's message
    "DPP-",                         // names, addresses and errors of a configurator
    "ESS-DISASSOC-IMMINENT",        // an access point's URL
    "HS20-",                        // URLs and file names of an access point
    "P2P-",                         // services of a peer
    "RX-VENUE-URL",                 // an access point's URL
};

struct words {
    const char *begin;
    const char *end;
};

// Where a word begins, or null.
const char *_find_word(const words &in, const char *word)
{
    return static_cast<const char *>(
        memmem(in.begin, static_cast<size_t>(in.end - in.begin), word, strlen(word)));
}

// The part of a line that the Wi-Fi daemon alone has written. Otherwise a neighbour's device could
// do harm just by being near: one that is called "WPS-SUCCESS" would end an attempt. One that is
// called "WPS-NEW-AP-SETTINGS" would make the daemon write the stored settings anew.
words _own_words(const char *text)
{
    if (strncmp(text, INTERFACE_PREFIX, strlen(INTERFACE_PREFIX)) == 0)
        text += strcspn(text, " ");
    words own = {text, text + strcspn(text, QUOTING_MARKS)};
    for (const char *event : QUOTING_EVENTS) {
        const char *quoting = _find_word(own, event);
        if (quoting != nullptr)
            own.end = quoting;
    }
    return own;
}

template <size_t count>
const event_row *_find_event(const event_row (&table)[count], const char *text)
{
    const words own = _own_words(text);
    for (const event_row &row : table) {
        if (_find_word(own, row.text) != nullptr)
            return &row;
    }
    return nullptr;
}

void _apply_event(const event_row &row, int band, kelm_session *session, char *text)
{
    if (row.is_success)
        kelm_update_wps_result_file(SUCCESS_RESULT);
    if (row.new_status != NOTHING)
        kelm_set_status(band, row.new_status);
    if (row.progress_step != NOTHING)
        kelm_push_eap_status(band, row.progress_step);
    if (row.is_worker_end)
        kelm_set_worker_done(band);
    if (row.effect != nullptr)
        row.effect(band, session, text);
}

// --- The two run modes ---

// Returns what stands behind the name of an event with a credential, and cuts it off from the text:
// no log line may show it, since it holds the key. Null for any other event, and when such events
// are not looked for.
const char *_cut_off_credential(char *text)
{
    if (!kelm_takes_credential_events())
        return nullptr;
    const words own = _own_words(text);
    const char *name = _find_word(own, CREDENTIAL_EVENT);
    if (name == nullptr)
        return nullptr;
    char *behind = text + (name - text) + strlen(CREDENTIAL_EVENT);
    if (*behind == '\0')
        return behind;
    *behind = '\0';
    return behind + 1;
}

int _process_station_event(int band, kelm_session *session, char *text)
{
    const char *credential = _cut_off_credential(text);
    constexpr uint32_t worker = WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE;
    if ((session->wps_flags & worker) != WPS_FLAG_WORKER_LAUNCH) {
        kelm_log_as(ENTRY, KELM_LOG_DETAIL, "Ignore wpsEvent[%s]: %s\n", rtk_band_name(band), text);
        return 0;
    }
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "processing wpsEvent[%s]: %s\n", rtk_band_name(band), text);
    if (credential != nullptr) {
        rtk_take_credential(band, credential);
    } else {
        const event_row *row = _find_event(STATION_EVENTS, text);
        if (row == nullptr)
            return -1;
        _apply_event(*row, band, session, text);
    }
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "processing wpsEvent[%s]: %s\n", rtk_band_name(band), text);
    return 0;
}

int _process_access_point_event(int band, kelm_session *session, char *text)
{
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "processing wpsEvent[%s]: %s\n", rtk_band_name(band), text);
    const event_row *row = _find_event(ACCESS_POINT_EVENTS, text);
    if (row == nullptr)
        return -1;
    _apply_event(*row, band, session, text);
    return 0;
}

// The text behind a field name, or null.
const char *_field(const words &in, const char *name)
{
    const char *at = _find_word(in, name);
    return at == nullptr ? nullptr : at + strlen(name);
}

// The word with this index, counted from 0. Words are separated by blanks. Cuts the text up.
char *_token(char *text, int index)
{
    char *rest = nullptr;
    char *token = strtok_r(text, " ", &rest);
    for (; token != nullptr && index > 0; --index)
        token = strtok_r(nullptr, " ", &rest);
    return token;
}

}  // namespace

int rtk_wpas_sock_init(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return -1;
    }
    char path[SOCKET_PATH_SIZE];
    _socket_path(*session, path);

    unique_wpa_ctrl &ctrl = wpas_ctrl[band];
    ctrl.reset();
    ctrl.reset(wpa_ctrl_open(path));
    if (!ctrl) {
        kelm_log_always("Can't open event ctrl\n");
        return -1;
    }
    kelm_log_normal("eventCtrl open success\n");
    if (wpa_ctrl_attach(ctrl.get()) != 0) {
        ctrl.reset();
        kelm_log_always("Can't attach event ctrl\n");
        return -1;
    }
    kelm_log_detail("eventCtrl attach success\n");
    if (kelm_get_run_mode() == KELM_MODE_AP)
        rtk_forget_new_settings(band);
    else if (kelm_takes_credential_events() && !rtk_forget_credential(band)) {
        ctrl.reset();
        return -1;
    }
    return wpa_ctrl_get_fd(ctrl.get());
}

void rtk_wpas_sock_deinit(int band, int)
{
    if (kelm_get_wps_session(band) == nullptr)
        return;
    unique_wpa_ctrl &ctrl = wpas_ctrl[band];
    if (ctrl)
        (void)wpa_ctrl_detach(ctrl.get());  // a daemon that is gone has forgotten us anyway
    ctrl.reset();
    kelm_log_detail("-------wpa_aupplicant socket deinit OK!\n\n");
}

int rtk_process_wpas_msg(int band, char *text, int)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return -1;
    }
    switch (kelm_get_run_mode()) {
    case KELM_MODE_REPEATER:
        return _process_station_event(band, session, text);
    case KELM_MODE_AP:
        return _process_access_point_event(band, session, text);
    default:
        return 0;
    }
}

void _store_rootap_info(const char *text, kelm_rootap_info *rootap)
{
    // The name may hold blanks and is the last field, so it runs to the end of the line. A stranger
    // who chose the name could write the other fields into it. So no field counts that stands
    // behind it.
    words fields = {text, text + strlen(text)};
    const char *ssid = _field(fields, " ssid=");
    if (ssid != nullptr)
        fields.end = ssid;
    const char *bssid = _field(fields, " bssid=");
    if (bssid != nullptr) {
        char mac[WPS_MAC_TEXT_LEN + 1];
        copy_text(mac, bssid);
        uint8_t *b = rootap->bssid;
        memset(b, 0, WPS_BSSID_LEN);
        (void)_convert_macstr_to_bytes(mac, b);  // a broken one reads as unknown
        kelm_log_detail("got bssid [%02x:%02x:%02x:%02x:%02x:%02x]\n", b[0], b[1], b[2], b[3], b[4],
                        b[5]);
    }
    const char *uuid = _field(fields, " uuid=");
    if (uuid != nullptr) {
        memset(rootap->uuid, 0, WPS_UUID_LEN);
        (void)_convert_uuidstr_to_bytes(uuid, rootap->uuid);
    }
    if (ssid != nullptr) {
        copy_text(rootap->ssid, ssid);
        kelm_log_detail("got ssid[%s]\n", rootap->ssid);
    }
}

char *rtk_wps_GetEnrolleeMac(char *text)
{
    char *mac = text != nullptr ? _token(text, 1) : nullptr;
    if (mac != nullptr)
        kelm_log_normal("got macAddr %s\n", mac);
    return mac;
}

char *rtk_wps_GetEnrolleeUuid(char *text)
{
    char *uuid = text != nullptr ? _token(text, 2) : nullptr;
    if (uuid != nullptr)
        kelm_log_normal("got uuid %s\n", uuid);
    return uuid;
}

const char *rtk_get_sta_mac(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr || strlen(session->enrollee_mac) < WPS_MAC_TEXT_LEN)
        return "";
    return session->enrollee_mac;
}

}  // namespace kelm
