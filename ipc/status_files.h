// SPDX-License-Identifier: ISC
// The files that tell scripts and the web page how the attempt went: "/tmp/wps_result",
// "/tmp/kelm.info".
#pragma once

namespace kelm {

// Text of a status; only the low 16 bits count. An unknown one is logged and reads "null".
const char *_kelm_status2txt(int status);

// Writes the result through the shell's echo: 1 success, 0 failure, -1 a new attempt. Once a 1 was
// written, it stays until kelm_forget_wps_result().
void kelm_update_wps_result_file(int result);

// The attempt was withdrawn: its success, if a band had one, must not stand for the next attempt's
// outcome. Leaves the file as it is.
void kelm_forget_wps_result();

// Rewrites "/tmp/kelm.info" with the action and, per inited band 0 to 2, status text and peer
// address. Failures are logged and swallowed.
void kelm_update_info_file(int action);

}  // namespace kelm
