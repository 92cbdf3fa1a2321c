// SPDX-License-Identifier: ISC
// Device bands, enable flags, link states, outcomes.
#include "wlan/radio.h"

#include <fcntl.h>

#include "core/json_file.h"
#include "config/settings.h"
#include "core/log.h"
#include "core/session.h"
#include "core/run_mode.h"

namespace kelm {

int32_t band_worker_succeed[KELM_BAND_COUNT];

namespace {

constexpr const char *DEVICE_PATH = "/tmp/device.info";
constexpr size_t DEVICE_SIZE = 2048;
constexpr size_t LINK_SIZE = 512;
constexpr int LINK_UP = 1;
constexpr int QM_LEVEL = 3;

struct link_row {
    const char *path;
    const char *label;
};

constexpr link_row LINKS[KELM_BAND_COUNT] = {
    {"/tmp/wifi_runtime_info.2g", "2G"},
    {"/tmp/wifi_runtime_info.5g", "5G"},
    {"/tmp/wifi_runtime_info.5g2", "5G2"},
    {"/tmp/wifi_runtime_info.6g", "6G"},
};

uint32_t easymesh_wps[KELM_BAND_COUNT];

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

// A repeater's stations may always use WPS: the global switch is the access points' alone.
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

int kelm_get_RFBand(int32_t *code)
{
    unique_json device;
    // Opened for writing too, though only read: a read-only file counts as missing.
    switch (kelm_read_json(DEVICE_PATH, O_RDWR, DEVICE_SIZE, &device)) {
    case json_read_result::no_memory:
        kelm_log_always("malloc failed.\n");
        return -1;
    case json_read_result::open_failed:
        kelm_log_always("Open /tmp/device.info file failed.\n");
        return -1;
    case json_read_result::read_failed:
        kelm_log_always("Read device.info file failed.\n");
        return -1;
    case json_read_result::parse_failed:
        kelm_log_always("Parse string to json failed.\n");
        return -1;
    case json_read_result::ok:
        break;
    }
    *code = kelm_json_int(device.get(), "RFBand", *code);
    return 0;
}

int kelm_check_available_status()
{
    wps_config_info wps = {};
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    (void)wps_parse_config(WPS_CONF_PATH, &wps, WPS_CONFIG_GLOBAL);  // missing: all off
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

int kelm_backup_sta_connected(int band)
{
    if (!kelm_is_band(band))
        return -1;
    const link_row &row = LINKS[band];
    unique_json link;
    switch (kelm_read_json(row.path, O_RDONLY, LINK_SIZE, &link)) {
    case json_read_result::open_failed:
        kelm_log_detail("Error: open %s failed\n", row.path);
        return -1;
    case json_read_result::no_memory:
    case json_read_result::read_failed:
        kelm_log_detail("Error: read %s failed\n", row.path);
        return -1;
    case json_read_result::parse_failed:
        kelm_log_detail("Error: parse buf to json failed\n");
        return -1;
    case json_read_result::ok:
        break;
    }
    const int connected = kelm_json_int(link.get(), "status", 0);
    kelm_log_normal("%s is %s before WPS\n", row.label,
                    connected != 0 ? "connected" : "disconnected");
    // Other values are links in the making: told as connected, but such a band still takes part.
    if (kelm_get_wps_session(band) != nullptr)
        _set_flag(band, WPS_FLAG_STA_CONNECTED,
                  kelm_get_band_inited(band) != 0 && connected == LINK_UP);
    return 0;
}

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

void set_band_easymesh_wps(int band, uint32_t value)
{
    if (kelm_is_band(band))
        easymesh_wps[band] = value;
}

uint32_t get_band_easymesh_wps(int band)
{
    return kelm_is_band(band) ? easymesh_wps[band] : 0;
}

void reset_band_easymesh_wps()
{
    for (uint32_t &mark : easymesh_wps)
        mark = 0;
}

int _read_ap_secType(int band, uint32_t *sec_type)
{
    if (!kelm_is_band(band)) {
        kelm_log_detail("invalid band\n");
        return -1;
    }
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    (void)wps_parse_config(WIFI_CONF_PATH, ap, WPS_CONFIG_AP);  // missing: no security known
    kelm_log_detail("wps_parse_ap_config finished.\n");
    kelm_log_detail("SecType: %d\n", static_cast<int>(ap[band].sec_type));
    *sec_type = ap[band].sec_type;
    return 0;
}

bool _is_none_sec(uint32_t sec_type)
{
    return sec_type == WPS_AUTH_OPEN;
}

bool kelm_is_worker_succeed(int band, bool report)
{
    if (!kelm_is_band(band)) {
        kelm_log_bad_band(band);
        return false;
    }
    const int status = kelm_get_status(band);
    const char *name = bandname[band];
    if (status == WPS_STATUS_SUCCESS) {
        if (report) {
            kelm_log_normal("%s wps_monitor succeed.\n", name);
            qm_syslog(QM_LEVEL, 1, "%s WPS succeeded.", name);
        }
        band_worker_succeed[band] = 1;
        return true;
    }
    if (report && status == WPS_STATUS_TIMEOUT)
        qm_syslog(QM_LEVEL, 0, "%s WPS timed out. Failed to receive WPS message from the RootAP.",
                  name);
    if (report) {
        kelm_log_normal("%s wps_monitor failed.\n", name);
        qm_syslog(QM_LEVEL, 0, "%s WPS failed.", name);
    }
    band_worker_succeed[band] = 0;
    return false;
}

}  // namespace kelm
