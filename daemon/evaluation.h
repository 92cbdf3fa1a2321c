// SPDX-License-Identifier: ISC
// The judgement of an attempt once its workers have ended.
#pragma once

namespace kelm {

// Judges the attempt when it is ripe: in repeater mode when all workers are done, in access-point
// mode when all are done or one has succeeded. Then writes the credentials back, publishes the
// outcome and sets the global flag that ends the main loop. Does nothing while no attempt runs.
// Always returns 0.
int _kelm_worker_done_process();

// 1 when the root access points of the launched bands allow the maker's mesh to stay on, else 0.
int _kelm_check_corvex();

}  // namespace kelm
