// SPDX-License-Identifier: ISC
// Which signals the daemon handles and when they may come in.
#pragma once

#include <csignal>

namespace kelm {

constexpr int SIG_NEW_CONFIG = 42;  // sent under this number on every target

// Holds back SIGUSR1, SIGUSR2, SIGTERM and SIG_NEW_CONFIG on the calling thread. Their handler runs
// WPS commands, writes JSON and allocates, so it may only run where nothing is half done: in the
// main loop's wait, which lets them in.
void kelm_hold_back_signals();

// The same at the start of the process, before any thread is made; also keeps SIGTERM from being
// taken by the bus library, and the process from being ended by SIGHUP, SIGINT and SIGPIPE.
void kelm_claim_signals();

// The mask for that wait: the calling thread's own without the four.
void kelm_wait_mask(sigset_t *mask);

}  // namespace kelm
