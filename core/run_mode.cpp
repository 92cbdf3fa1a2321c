// SPDX-License-Identifier: ISC
// Reads and keeps the run mode.
#include "core/run_mode.h"

#include <cstdint>

#include <fcntl.h>

#include "core/json_file.h"
#include "core/kelm.h"
#include "core/log.h"

namespace kelm {

namespace {

constexpr const char *RUNTIME_PATH = "/tmp/device_runtime.info";
constexpr size_t RUNTIME_SIZE = 512;

int32_t run_mode = KELM_MODE_REPEATER;

}  // namespace

int kelm_get_run_mode()
{
    return run_mode;
}

int kelm_backup_run_mode()
{
    unique_json runtime;
    switch (kelm_read_json(RUNTIME_PATH, O_RDONLY, RUNTIME_SIZE, &runtime)) {
    case json_read_result::open_failed:
        kelm_log_detail("Error: open %s failed\n", RUNTIME_PATH);
        return -1;
    case json_read_result::no_memory:
    case json_read_result::read_failed:
        kelm_log_detail("Error: read %s failed\n", RUNTIME_PATH);
        return -1;
    case json_read_result::parse_failed:
        kelm_log_detail("Error: parse buf to json failed\n");
        return -1;
    case json_read_result::ok:
        break;
    }
    run_mode = kelm_json_int(runtime.get(), "mode", run_mode);
    kelm_log_detail("DUT RUNNING AS A SUPER %s!!!\n",
                    run_mode != KELM_MODE_REPEATER ? "AP" : "REPEATER");
    return 0;
}

}  // namespace kelm
