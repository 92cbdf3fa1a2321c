// SPDX-License-Identifier: ISC
// Readers of the enable and link flags.
#include "core/enabled.h"

#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"

namespace kelm {

int kelm_get_bss_enabled(int band)
{
    return static_cast<int>(kelm_get_wps_flags(band) & WPS_FLAG_STABSS_ENABLE);
}

int kelm_get_radio_enabled(int band)
{
    return static_cast<int>(kelm_get_wps_flags(band) & WPS_FLAG_APBSS_ENABLE);
}

int kelm_get_iface_enabled(int band)
{
    switch (kelm_get_run_mode()) {
    case KELM_MODE_REPEATER:
        return kelm_get_bss_enabled(band);
    case KELM_MODE_AP:
        return kelm_get_radio_enabled(band);
    default:
        kelm_log_always("Invalid sys mode.\n");
        return 0;
    }
}

int kelm_get_sta_connected(int band)
{
    return static_cast<int>(kelm_get_wps_flags(band) & WPS_FLAG_STA_CONNECTED);
}

}  // namespace kelm
