// SPDX-License-Identifier: ISC
// The files that tell scripts and the web page how the attempt went: "/tmp/wps_result",
// "/tmp/kelm.info".
#pragma once

namespace kelm {

// The text of a status. Only the low 16 bits count. For an unknown status: "null", and a log line.
const char *_kelm_status2txt(int status);

// Writes the result through the shell's echo: 1 success, 0 failure, -1 a new attempt. Once a 1 was
// written, it stays until kelm_forget_wps_result().
void kelm_update_wps_result_file(int result);

// For an attempt that was cancelled: if it had a success on a band, this must not count as the
// outcome of the next attempt. Does not touch the file.
void kelm_forget_wps_result();

// Writes "/tmp/kelm.info" anew: the action, and for each of the bands 0 to 2 that the device has
// the status text and the peer's address. A failure is logged, and that is all.
void kelm_update_info_file(int action);

}  // namespace kelm
