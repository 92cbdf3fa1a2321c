// SPDX-License-Identifier: ISC
// The security type from the wireless settings.
#include "wlan/security_type.h"

#include "config/settings.h"
#include "core/log.h"

namespace kelm {

int _read_ap_secType(int band, uint32_t *sec_type)
{
    if (!kelm_is_band(band)) {
        kelm_log_detail("invalid band\n");
        return -1;
    }
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    (void)wps_parse_config(WIFI_CONF_PATH, ap, WPS_CONFIG_AP);  // a missing file: open
    kelm_log_detail("wps_parse_ap_config finished.\n");
    kelm_log_detail("SecType: %d\n", static_cast<int>(ap[band].sec_type));
    *sec_type = ap[band].sec_type;
    return 0;
}

bool _is_none_sec(uint32_t sec_type)
{
    return sec_type == WPS_AUTH_OPEN;
}

}  // namespace kelm
