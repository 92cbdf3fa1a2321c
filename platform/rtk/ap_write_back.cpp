// SPDX-License-Identifier: ISC
// Write-back by run mode, and the access point's.
#include "platform/rtk/ap_write_back.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/conf_tree.h"
#include "config/credentials.h"
#include "config/settings.h"
#include "config/supplicant_credentials.h"
#include "config/uci_option.h"
#include "core/log.h"
#include "core/session.h"
#include "core/text.h"
#include "platform/rtk/easymesh.h"
#include "platform/rtk/write_back.h"
#include "wlan/run_mode.h"

namespace kelm {

namespace {

constexpr size_t HOSTAPD_PATH_SIZE = 128;
constexpr uint32_t VERSION_END = 4;  // what is no version reads as mixed

// The security of the band's record is what hostapd's file says, not what the settings said.
void _clear_security(wps_ap_band_config *ap)
{
    ap->sec_type = WPS_AUTH_OPEN;
    ap->wpa_version = WPS_VERSION_MIXED;
    ap->encryption = WPS_CIPHER_AUTO;
}

// hostapd's line may hold up to 255 characters; the field takes the 32 that an SSID can have.
void _take_ssid(wps_ap_band_config *ap, const char *value)
{
    if (ap->ap_bss_enabled != 0)
        copy_text(ap->ssid, value);
}

void _take_passphrase(wps_ap_band_config *ap, const char *value)
{
    copy_text(ap->password, value);
    ap->sec_type = WPS_AUTH_WPA;
}

void _take_pairwise(wps_ap_band_config *ap, const char *value)
{
    kelm_apply_pairwise(value, &ap->encryption);
}

void _take_key_mgmt(wps_ap_band_config *ap, const char *value)
{
    if (strcmp(value, "NONE") == 0)
        ap->sec_type = WPS_AUTH_OPEN;
}

void _take_version(wps_ap_band_config *ap, const char *value)
{
    const auto version = static_cast<uint32_t>(atoi(value));
    ap->wpa_version = version < VERSION_END ? version : WPS_VERSION_MIXED;
}

struct hostapd_key {
    const char *key;
    void (*take)(wps_ap_band_config *ap, const char *value);
};

// "auth_algs" is left out on purpose: it would say open or shared, the record's one place for that
// is the WEP type, and the scripts would take the access point for a WEP one.
constexpr hostapd_key HOSTAPD_KEYS[] = {
    {"ssid", _take_ssid},
    {"wpa_psk", _take_passphrase},
    {"wpa_passphrase", _take_passphrase},
    {"wpa_pairwise", _take_pairwise},
    {"wpa_key_mgmt", _take_key_mgmt},
    {"wpa", _take_version},
};

void _take_item(wps_ap_band_config *ap, const hapd_wpasupp_cfgitem &item)
{
    for (const hostapd_key &row : HOSTAPD_KEYS) {
        if (strcmp(item.key, row.key) == 0) {
            row.take(ap, item.value);
            return;
        }
    }
}

int _repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record)
{
    if (!check_easymesh_enable() || rtk_repeater_check_ap_easymesh_support() != 0)
        return rtk_repeater_patching_back(ap_band, sta_band, record);
    (void)_rtk_repeater_patching_back(ap_band, sta_band, record);
    return rtk_repeater_easymesh_patching_back(ap_band, sta_band);
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
    // Written from settings that were not read, the record would switch the access point off.
    if (wps_parse_config(WIFI_CONF_PATH, access_points, WPS_CONFIG_AP) != 0)
        return -1;
    kelm_log_detail("wps_parse_ap_config finished.\n");
    wps_ap_band_config &ap = access_points[band];

    char path[HOSTAPD_PATH_SIZE];
    (void)snprintf(path, sizeof path, "/tmp/run/hostapd-%s.conf", session->ifName);
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse(path));
    kelm_log_normal("Analyze hostapd config file %s\n\n", path);
    if (!tree) {
        kelm_log_always("wps_hapd_wpasupp_config_parse failed\n");
        return -1;
    }
    wps_hapd_wpasupp_config_dump(tree.get());
    _clear_security(&ap);
    for (const hapd_wpasupp_cfgitem *item = tree.get(); item != nullptr; item = item->next)
        _take_item(&ap, *item);

    ap.configured = 1;
    kelm_log_detail("call _rtk_wps_set_ap_config %d\n", band);
    _wps_set_ap_config(band, &ap);
    kelm_count_credentials();
    return 0;
}

}  // namespace kelm
