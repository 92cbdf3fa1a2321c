// SPDX-License-Identifier: ISC
// The run mode: repeater or access point, read once at start.
#pragma once

namespace kelm {

// KELM_MODE_REPEATER, KELM_MODE_AP or whatever else the device's runtime file said.
int kelm_get_run_mode();

// Loads the run mode from "/tmp/device_runtime.info". A file without an integer "mode" leaves it as
// it is (repeater at first). Returns 0, or -1 (logged at level 7) when the file is missing or no
// JSON.
int kelm_backup_run_mode();

}  // namespace kelm
