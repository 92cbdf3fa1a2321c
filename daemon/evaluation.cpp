// SPDX-License-Identifier: ISC
// The evaluation after each event: look at all bands; wait, or decide and act as the run mode asks.
#include "daemon/evaluation.h"

#include <cstring>

#include <unistd.h>

#include "config/credentials.h"
#include "core/exec.h"
#include "core/file.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "ipc/bus.h"
#include "ipc/status_files.h"
#include "wlan/easymesh_marks.h"
#include "wlan/rootap.h"
#include "wlan/verdict.h"

namespace kelm {

namespace {

constexpr size_t FILE_COMMAND_SIZE = 128;
constexpr const char *CONFIG_WIFI = "/etc/init.d/wps config_wifi";
constexpr const char *ENTRY = "_kelm_worker_done_process";  // the helpers write its log lines

struct survey {
    int running;
    int succeeded;
    uint16_t codes[KELM_BAND_COUNT];  // as published
    bool taken_back;                  // a band had success, and its write-back failed
};

survey _survey_bands()
{
    survey found = {};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        if (!kelm_is_worker_done(band))
            ++found.running;
        if (kelm_is_worker_succeed(band, false)) {
            ++found.succeeded;
            found.codes[band] = WPS_STATUS_SUCCESS;
        } else {
            found.codes[band] = kelm_has_wps_flag(band, WPS_FLAG_WORKER_LAUNCH) ? WPS_STATUS_TIMEOUT
                                                                                : WPS_STATUS_SILENT;
        }
    }
    return found;
}

// A repeater wants each band's own credentials. An access point serves one client, which came on
// one band.
bool _must_wait(const survey &found)
{
    if (kelm_get_run_mode() == KELM_MODE_REPEATER)
        return found.running > 0;
    return kelm_get_run_mode() == KELM_MODE_AP && found.running > 0 && found.succeeded == 0;
}

bool _is_2g_or_5g_through(const survey &found)
{
    return found.codes[KELM_BAND_2G] == WPS_STATUS_SUCCESS ||
           found.codes[KELM_BAND_5G] == WPS_STATUS_SUCCESS;
}

// Turns the band's success into a failure. What was told before cannot be changed; what is told
// from here on is the failure.
void _take_back_success(int band, survey *found)
{
    kelm_set_status(band, WPS_STATUS_ERROR);
    found->codes[band] = WPS_STATUS_ERROR;
    found->taken_back = true;
    (void)kelm_is_worker_succeed(band, true);
}

// Runs config_wifi, if nobody else can have put files under the names that it applies. If somebody
// can, it is not run, and the result is false: nothing that was stored takes effect, so each
// success becomes a failure.
bool _run_config_wifi(survey *found)
{
    if (!kelm_hold_credential_names()) {
        for (int band = 0; band < KELM_BAND_COUNT; ++band) {
            if (found->codes[band] == WPS_STATUS_SUCCESS)
                _take_back_success(band, found);
        }
        return false;
    }
    (void)kelm_system(CONFIG_WIFI, command_kind::script);
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "/etc/init.d/wps config_wifi\n");
    return true;
}

// --- Access-point mode ---

// What has happened to the settings that hostapd chose.
struct new_settings {
    bool patched;  // stored just now, not applied yet
    bool applied;  // stored and applied earlier in the attempt
};

// Only an access point that was open has new settings to write back. If they cannot be stored, the
// success is none: after a restart the access point would be open again. But if an event has had
// them stored and applied already, they are safe. Then hostapd's file may be missing just now, as
// the scripts make it anew.
new_settings _patch_open_access_points(survey *found)
{
    new_settings made = {};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band) || !kelm_has_wps_flag(band, WPS_FLAG_WORKER_LAUNCH))
            continue;
        if (!kelm_is_worker_succeed(band, true) || !kelm_has_wps_flag(band, WPS_FLAG_NONE_SECURITY))
            continue;
        if (kelm_ops.patching_back(band, band, nullptr) == 0)
            made.patched = true;
        else if (kelm_has_wps_flag(band, WPS_FLAG_CONFIG_WIFI))
            made.applied = true;
        else
            _take_back_success(band, found);
    }
    return made;
}

void _finish_access_point(survey *found)
{
    kelm_log_as(ENTRY, KELM_LOG_NORMAL,
                "All of the worker process finised, now we check the result of Ap Mode.\n");
    const new_settings made = _patch_open_access_points(found);
    dump_wps_session();
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "AP MODE:wps done, send wps msg: %d, %d\n",
                found->codes[KELM_BAND_2G], found->codes[KELM_BAND_5G]);
    const bool is_new = (made.patched && _run_config_wifi(found)) || made.applied;
    kelm_set_global_wpsflag_bit(is_new ? KELM_GFLAG_WIFI_RESTART : KELM_GFLAG_WPS_RESTART);
    (void)kelm_ops.wps_cancel();
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_DONE, found->codes);
}

// --- Repeater mode ---

// The result of the write-back of all bands.
struct written_back {
    bool any;                      // some band's credentials were stored
    bool failed[KELM_BAND_COUNT];  // the band succeeded, but its credentials were not stored
};

// Writes a band's own credentials, or those of the succeeded band, or nothing.
void _patch_band(int band, int succ, written_back *done)
{
    const auto store = [&](int from, const kelm_rootap_info *rootap) {
        const bool stored = kelm_ops.patching_back(band, from, rootap) == 0;
        done->any = done->any || stored;
        return stored;
    };
    if (kelm_has_wps_flag(band, WPS_FLAG_WORKER_LAUNCH) && kelm_is_worker_succeed(band, true)) {
        done->failed[band] = !store(band, nullptr);
        return;
    }
    if (kelm_has_wps_flag(band, WPS_FLAG_CONFIG_MIRROR)) {
        const kelm_rootap_info *rootap = &kelm_get_wps_session(band)->rootap;
        kelm_log_as(ENTRY, KELM_LOG_NORMAL, "patching wpsCfg[band %d] with rootAP %s\n", band,
                    rootap->ssid);
        (void)store(succ, rootap);
        return;
    }
    if (!kelm_has_wps_flag(band, WPS_FLAG_APBSS_ENABLE | WPS_FLAG_WORKER_LAUNCH))
        return;
    if (succ == KELM_BAND_NONE || kelm_has_wps_flag(band, WPS_FLAG_STA_CONNECTED))
        return;
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "before NULL patching_back\n");
    kelm_log_as(ENTRY, KELM_LOG_NORMAL, "%d failed, use %d STA info write back to %d AP.\n", band,
                succ, band);
    (void)store(succ, nullptr);
}

// Whether any band's credentials were stored.
bool _patch_bands(int succ, survey *found)
{
    written_back done = {};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band))
            _patch_band(band, succ, &done);
    }
    // Only after all bands: those that take another band's credentials look at its status.
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (done.failed[band])
            _take_back_success(band, found);
    }
    return done.any;
}

// The mesh stays on if a root access point has EasyMesh; else the maker's own rules decide.
void _set_mesh_switch()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band) && get_band_easymesh_wps(band) != 0) {
            _wps_set_mesh_config(1);
            return;
        }
    }
    _wps_set_mesh_config(_kelm_check_corvex());
}

// If this attempt has written no file, there must be no copy: an older copy would be taken for this
// attempt's.
void _back_up(const char *path, const char *backup)
{
    if (kelm_has_own_file(path) && kelm_pin_file(backup, KELM_OWNER_ONLY) &&
        kelm_system_format(FILE_COMMAND_SIZE, "cp %s %s", path, backup) == 0)
        return;
    (void)unlink(backup);
}

// For the service script, which works on copies. The files hold passphrases. By itself cp would
// write through a link, into a folder, or into a file that others may read.
void _back_up_credential_files()
{
    _back_up(WPS_AP_FILE, WPS_AP_BACKUP);
    _back_up(WPS_STA_FILE, WPS_STA_BACKUP);
}

void _write_back_repeater(int succ, survey *found)
{
    const bool stored = _patch_bands(succ, found) && succ != KELM_BAND_NONE;
    if (stored)
        _set_mesh_switch();
    if (kelm_get_band_inited(KELM_BAND_5G) && kelm_get_band_inited(KELM_BAND_5G2)) {
        kelm_log_as(ENTRY, KELM_LOG_NORMAL, "set common config, smart_setting_5g to on\n");
        _wps_set_ext_common_config(1);
    }
    dump_wps_session();
    _back_up_credential_files();
    if (stored)
        (void)_run_config_wifi(found);
}

// A failure is published here. A success is published by the service, from the info file, after the
// restart: only then can the link be used.
void _tell_repeaters_outcome(const survey &found)
{
    if (_is_2g_or_5g_through(found)) {
        if (found.taken_back)
            kelm_update_info_file(IBUS_WPS_ACTION_DONE);
        return;
    }
    kelm_log_as(ENTRY, KELM_LOG_ALWAYS, "Gonna to send wps event. status: 2g=%d, 5g=%d\n",
                found.codes[KELM_BAND_2G], found.codes[KELM_BAND_5G]);
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_DONE, found.codes);
}

void _finish_repeater(survey *found)
{
    const int succ = kelm_get_succeed_band(KELM_BAND_NONE);
    kelm_log_as(ENTRY, KELM_LOG_NORMAL,
                "All of the worker process finised, now we check the result of repeater mode.\n");
    (void)kelm_resolve_apinfo_and_credential();
    _write_back_repeater(succ, found);
    _tell_repeaters_outcome(*found);
    (void)kelm_ops.wps_cancel();
    kelm_set_wps_alive(0);
    kelm_restart_wireless();
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band))
            kelm_set_status(band, WPS_STATUS_IDLE);
    }
}

}  // namespace

int _kelm_worker_done_process()
{
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) == 0) {
        kelm_log_detail("no active wps session running \n\n");
        return 0;
    }
    survey found = _survey_bands();
    if (_must_wait(found)) {
        // The number reads like a band, but is always 4. Log readers look for this 4.
        kelm_log_detail("Worker[%d] process still running, wait...\n\n", KELM_BAND_COUNT);
        return 0;
    }

    // The attempt is over: the commands of the verdict need not end with it.
    kelm_let_commands_run();
    kelm_update_wps_result_file(_is_2g_or_5g_through(found) ? 1 : 0);
    (void)kelm_system_format(FILE_COMMAND_SIZE, "rm %s", WPS_AP_FILE);
    (void)kelm_system_format(FILE_COMMAND_SIZE, "rm %s", WPS_STA_FILE);

    switch (kelm_get_run_mode()) {
    case KELM_MODE_AP:
        _finish_access_point(&found);
        return 0;
    case KELM_MODE_REPEATER:
        _finish_repeater(&found);
        break;
    default:
        kelm_log_always("Invalid system mode.\n");
    }
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART) == 0) {
        kelm_log_detail("Clean kelm workspace...\n\n");
        kelm_clean_wksp();
    }
    return 0;
}

int _kelm_check_corvex()
{
    const kelm_rootap_info *kept = nullptr;
    int result = 0;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (!kelm_get_band_inited(band) || !kelm_has_wps_flag(band, WPS_FLAG_WORKER_LAUNCH) ||
            session->rootap.qm_data[0] == '\0')
            continue;
        const kelm_rootap_info *rootap = &session->rootap;
        if (rootap->support_mesh != 0 && kept == nullptr) {
            result = 1;
            kept = rootap;
            continue;
        }
        if (rootap->support_mesh == 0)
            kelm_log_normal(" band : %d  disable mesh [reason: %s is not supporting mesh]\n", band,
                            rootap->ssid);
        constexpr char NO_NODEID[WPS_NODEID_LEN] = {};
        const char *kept_nodeid = kept != nullptr ? kept->nodeid : NO_NODEID;
        if (strncmp(kept_nodeid, rootap->nodeid, WPS_NODEID_LEN) != 0) {
            kelm_log_normal("disable mesh [reason: nodeid not match %.5s/%.5s]\n", kept_nodeid,
                            rootap->nodeid);
            return 0;
        }
    }
    kelm_log_normal("_kelm_check_corvex finish. support_mesh ：%d\n", result);
    return result;
}

}  // namespace kelm
