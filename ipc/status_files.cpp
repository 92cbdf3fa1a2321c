// SPDX-License-Identifier: ISC
// Result and info file.
#include "ipc/status_files.h"

#include <cstdint>
#include <cstdio>

#include <json-c/json.h>

#include "core/exec.h"
#include "core/file.h"
#include "core/json_file.h"
#include "core/json_text.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/session.h"

namespace kelm {

namespace {

constexpr const char *RESULT_PATH = "/tmp/wps_result";
constexpr const char *INFO_PATH = "/tmp/kelm.info";
constexpr size_t RESULT_COMMAND_SIZE = 128;

// Texts by status code; the web page shows them by name. Do not reorder.
constexpr char STATUS_TEXTS[][8] = {
    "ok",       // 0 idle
    "cancel",   // 1
    "success",  // 2
    "error",    // 3
    "timeout",  // 4
    "cancel",   // 5
    "cancel",   // 6
    "cancel",   // 7
    "overlap",  // 8
    "cancel",   // 9 push-button access point found
    "cancel",   // 10
    "ok",       // 11 started
    "silent",   // 12
};
static_assert(sizeof STATUS_TEXTS / sizeof STATUS_TEXTS[0] == WPS_STATUS_SILENT + 1,
              "one text per status code");

struct info_row {
    int band;
    char status_key[16];
    char mac_key[16];
};

// The keys count bands, not interfaces. The 6 GHz band has no keys: no page asks for it.
constexpr info_row INFO_ROWS[] = {
    {KELM_BAND_2G, "wl0_wps_status", "wl0_wps_sta_mac"},
    {KELM_BAND_5G, "wl1_wps_status", "wl1_wps_sta_mac"},
    {KELM_BAND_5G2, "wl2_wps_status", "wl2_wps_sta_mac"},
};

int32_t last_result = 0;

// False without memory.
bool _add_band(json_object *info, const info_row &row)
{
    if (!kelm_get_band_inited(row.band))
        return true;
    const char *status = _kelm_status2txt(kelm_get_status(row.band));
    return kelm_json_add(info, row.status_key, json_object_new_string(status)) &&
           kelm_json_add(info, row.mac_key, json_object_new_string(kelm_ops.get_sta_mac(row.band)));
}

// The whole info file as text in memory of info, or null.
const char *_info_text(json_object *info, int action)
{
    bool complete = kelm_json_add(info, "wps_action", json_object_new_int(action));
    for (const info_row &row : INFO_ROWS)
        complete = complete && _add_band(info, row);
    return complete ? kelm_json_text(info) : nullptr;
}

}  // namespace

const char *_kelm_status2txt(int status)
{
    const auto code = static_cast<uint16_t>(status);
    if (code < sizeof STATUS_TEXTS / sizeof STATUS_TEXTS[0])
        return STATUS_TEXTS[code];
    kelm_log_always("invalid status: %d.\n", code);
    return "null";
}

void kelm_update_wps_result_file(int result)
{
    // A success stays. What follows it must not replace it while the web page still polls the file.
    if (last_result == 1)
        return;
    last_result = result;
    char command[RESULT_COMMAND_SIZE];
    snprintf(command, sizeof command, "echo %d > %s", result, RESULT_PATH);
    kelm_log_normal("%s\n", command);
    // If the name were a FIFO, the shell would wait for ever; if it were a link, it would write
    // through it.
    if (kelm_pin_file(RESULT_PATH, KELM_FOR_ALL))
        (void)kelm_system(command);
}

void kelm_forget_wps_result()
{
    last_result = 0;
}

void kelm_update_info_file(int action)
{
    unique_json info(json_object_new_object());
    if (!info) {
        kelm_log_always("Create json_object_t failed.\n");
        return;
    }
    const char *text = _info_text(info.get(), action);
    if (text == nullptr) {
        kelm_log_always("Print json_object_t failed.\n");
        return;
    }
    // The web page polls this file, and must never read half of it.
    if (kelm_replace_file(INFO_PATH, text, KELM_FOR_ALL) != 0)
        kelm_log_always("Open 'kelm.info' file failed.\n");
}

}  // namespace kelm
