// SPDX-License-Identifier: ISC
// The run mode: repeater or access point, read once at start.
#pragma once

namespace kelm {

// KELM_MODE_REPEATER, KELM_MODE_AP, or any other number that the device's runtime file holds.
int kelm_get_run_mode();

// Loads the run mode from "/tmp/device_runtime.info". If the file has no integer "mode", the run
// mode stays what it was; at first that is repeater. Returns 0, or -1 (logged at level 7) when the
// file is missing or is no JSON.
int kelm_backup_run_mode();

}  // namespace kelm
