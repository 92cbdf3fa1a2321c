// SPDX-License-Identifier: ISC
// The band-set code from the device's file.
#include "wlan/device_bands.h"

#include <fcntl.h>

#include "core/json_file.h"
#include "core/log.h"

namespace kelm {

namespace {

constexpr const char *DEVICE_PATH = "/tmp/device.info";
constexpr size_t DEVICE_SIZE = 2048;

}  // namespace

int kelm_get_RFBand(int32_t *code)
{
    unique_json device;
    // The file is only read. But it is opened for writing too, so a read-only file counts as
    // missing.
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

}  // namespace kelm
