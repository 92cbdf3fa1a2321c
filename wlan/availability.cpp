// SPDX-License-Identifier: ISC
// Enable flags from the settings.
#include "wlan/availability.h"

#include "config/settings.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"

namespace kelm {

namespace {

void _set_flag(int band, uint32_t flag, bool on)
{
    if (on)
        kelm_set_wps_flag_bit(band, flag);
    else
        kelm_clean_wps_flag_bit(band, flag);
}

void _set_ap_mode_flags(const wps_config_info &wps)
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band))
            _set_flag(band, WPS_FLAG_APBSS_ENABLE,
                      wps.enabled != 0 && (wps.ap_wps_available & (1u << band)) != 0);
    }
}

// The global switch is for access points only. So it does not count for the stations of a repeater.
void _set_repeater_flags(const wps_config_info &wps, const wps_ap_band_config *ap)
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        _set_flag(band, WPS_FLAG_STABSS_ENABLE, (wps.sta_wps_available & (1u << band)) != 0);
        _set_flag(band, WPS_FLAG_APBSS_ENABLE, ap[band].ap_bss_enabled != 0);
    }
}

}  // namespace

int kelm_check_available_status()
{
    wps_config_info wps = {};
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    (void)wps_parse_config(WPS_CONF_PATH, &wps, WPS_CONFIG_GLOBAL);  // a missing file: all off
    (void)wps_parse_config(WIFI_CONF_PATH, ap, WPS_CONFIG_AP);
    kelm_log_normal(
        "enabled: %d, apWpsAvailable: %d, staWpsAvailable: %d, pinEnabled: %d, pinCode:%.8s\n\n",
        wps.enabled, wps.ap_wps_available, wps.sta_wps_available, wps.pin_enabled, wps.pin_code);

    switch (kelm_get_run_mode()) {
    case KELM_MODE_AP:
        _set_ap_mode_flags(wps);
        return 0;
    case KELM_MODE_REPEATER:
        _set_repeater_flags(wps, ap);
        return 0;
    default:
        kelm_log_always("Invalid sys mode: %d.\n", kelm_get_run_mode());
        return -1;
    }
}

}  // namespace kelm
