// SPDX-License-Identifier: ISC
// Link states from the wireless runtime files.
#include "wlan/link_state.h"

#include <fcntl.h>

#include "core/json_file.h"
#include "core/log.h"
#include "core/session.h"

namespace kelm {

namespace {

constexpr size_t LINK_SIZE = 512;
constexpr int LINK_UP = 1;

struct link_row {
    char path[28];
    char label[4];
};

constexpr link_row LINKS[KELM_BAND_COUNT] = {
    {"/tmp/wifi_runtime_info.2g", "2G"},
    {"/tmp/wifi_runtime_info.5g", "5G"},
    {"/tmp/wifi_runtime_info.5g2", "5G2"},
    {"/tmp/wifi_runtime_info.6g", "6G"},
};

void _set_connected(int band, bool connected)
{
    if (connected)
        kelm_set_wps_flag_bit(band, WPS_FLAG_STA_CONNECTED);
    else
        kelm_clean_wps_flag_bit(band, WPS_FLAG_STA_CONNECTED);
}

}  // namespace

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
    // A status other than 0 and 1 is a link that is still being made. It is logged as connected,
    // but the band still takes part.
    if (kelm_get_wps_session(band) != nullptr)
        _set_connected(band, kelm_get_band_inited(band) != 0 && connected == LINK_UP);
    return 0;
}

}  // namespace kelm
