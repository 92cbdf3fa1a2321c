// SPDX-License-Identifier: ISC
// The write-back for each run mode, and that of the access point.
#include "platform/rtk/ap_write_back.h"

#include "config/conf_tree.h"
#include "config/credentials.h"
#include "config/settings.h"
#include "config/uci_option.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/text.h"
#include "platform/rtk/easymesh.h"
#include "platform/rtk/hostapd_file.h"
#include "platform/rtk/new_settings.h"
#include "platform/rtk/write_back.h"

namespace kelm {

namespace {

constexpr uint8_t SWITCH_NOT_READ = 2;

// False when there is no settings file: a record that is written without it would switch the access
// point off. A file that is cut short before the band's switch would do the same. There the access
// point counts as on, since its hostapd has just sent an event.
bool _read_settings(int band, wps_ap_band_config *access_points)
{
    uint8_t &on = access_points[band].ap_bss_enabled;
    on = SWITCH_NOT_READ;
    bool opened = false;
    const bool whole = wps_parse_config(WIFI_CONF_PATH, access_points, WPS_CONFIG_AP, &opened) == 0;
    if (on == SWITCH_NOT_READ)
        on = whole ? 0 : 1;
    return opened;
}

int _repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record)
{
    if (!check_easymesh_enable() || rtk_repeater_check_ap_easymesh_support() != 0)
        return rtk_repeater_patching_back(ap_band, sta_band, record);
    // A written backhaul does not prove that the credentials are stored: its file also holds what
    // stood in the station's file before the attempt. A band with its own success needs both. A
    // band that takes over another band's credentials may have no backhaul to write.
    const int written = _rtk_repeater_patching_back(ap_band, sta_band, record);
    const int backhaul = rtk_repeater_easymesh_patching_back(ap_band, sta_band);
    return written == 0 && ap_band == sta_band ? backhaul : written;
}

}  // namespace

int rtk_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record)
{
    switch (kelm_get_run_mode()) {
    case KELM_MODE_REPEATER:
        return _repeater_patching_back(ap_band, sta_band, record);
    case KELM_MODE_AP:
        if ((kelm_get_wps_flags(ap_band) & WPS_FLAG_NONE_SECURITY) == 0) {
            kelm_log_detail("ap has been configured.\n\n");
            return -1;
        }
        return rtk_ap_patching_back(ap_band);
    default:
        kelm_log_always("Invalid system mode.\n\n");
        return -1;
    }
}

int rtk_ap_patching_back(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_detail("invalid band\n");
        return -1;
    }
    wps_ap_band_config access_points[KELM_BAND_COUNT] = {};
    if (!_read_settings(band, access_points))
        return -1;
    const bool arrived = rtk_wait_for_new_settings(band);
    kelm_log_detail("wps_parse_ap_config finished.\n");
    wps_ap_band_config &ap = access_points[band];

    char path[HOSTAPD_PATH_SIZE];
    rtk_hostapd_path(*session, path);
    const unique_cfg_tree tree(kelm_parse_hostapd_config(path));
    kelm_log_normal("Analyze hostapd config file %s\n\n", path);
    if (!tree) {
        kelm_log_always("wps_hapd_wpasupp_config_parse failed\n");
        return -1;
    }
    wps_hapd_wpasupp_config_dump(tree.get());
    if (!rtk_take_hostapd_network(tree.get(), &ap)) {
        kelm_log_always("%s has no key for everybody, not stored\n", path);
        return -1;
    }
    if (!arrived && ap.sec_type == WPS_AUTH_OPEN) {
        kelm_log_always("new settings did not arrive in %s\n", path);
        return -1;
    }
    ap.configured = 1;
    kelm_log_detail("call _rtk_wps_set_ap_config %d\n", band);
    if (_wps_set_ap_config(band, &ap) != 0)
        return -1;
    rtk_note_stored_settings(band, ap);
    kelm_count_credentials();
    return 0;
}

}  // namespace kelm
