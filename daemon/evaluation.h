// SPDX-License-Identifier: ISC
// The verdict on an attempt, once its workers have ended.
#pragma once

namespace kelm {

// Evaluates the attempt when it is over: in repeater mode when all workers are done; in
// access-point mode when all are done or one has succeeded. Then it writes the credentials back,
// publishes the outcome and sets the global flag that ends the main loop. Before that, or while no
// attempt runs, it does nothing. Always returns 0.
int _kelm_worker_done_process();

// 1 when the maker's mesh may stay on with the root access points of the launched bands, else 0.
int _kelm_check_corvex();

}  // namespace kelm
