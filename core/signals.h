// SPDX-License-Identifier: ISC
// Which signals the daemon handles and when they may come in, and how long anything may take once
// SIGTERM has come.
#pragma once

#include <csignal>
#include <cstdint>

#include "core/handle.h"

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

// Milliseconds of the clock that nobody sets.
int64_t kelm_monotonic_ms();

// --- The end that SIGTERM asks for. Main thread only. ---

// Whoever sends SIGTERM sends SIGKILL soon after, which leaves access points in WPS and a pid file
// that bars the next start. So all that the daemon waits for shares these five seconds, and what it
// was just doing gets the first part of them alone, or the closing would come too late.
constexpr int64_t ENDING_LIMIT_MS = 5000;
constexpr int64_t ENDING_WORK_MS = 1500;  // until the work that was begun must be over
constexpr int64_t ENDING_GRACE_MS = 750;  // for a wait that SIGTERM meets under way
constexpr int64_t ENDING_LEAST_MS = 10;   // a shorter share is none

struct kelm_ending_state {
    bool seen;         // SIGTERM waits to be handled, or was
    bool closing;      // its handling has begun
    int64_t since_ms;  // when it was first seen
};
extern kelm_ending_state kelm_ending;

// SIGTERM waits to be handled, or was: true from then on.
bool kelm_is_ending();

// The handling of SIGTERM begins: what is left of the five seconds is for the closing.
void kelm_begin_closing();

// Becomes readable when SIGTERM waits to be handled, for a wait that is not the main loop's. None
// where it cannot be made.
unique_fd kelm_watch_sigterm();

// One wait for somebody else, which begins now.
class ending_wait {
public:
    // One that begins after SIGTERM gets this part of what is left: 4 means a quarter.
    explicit ending_wait(int part);

    // Milliseconds that the wait may still take; -1 while nobody asks the daemon to end.
    int left_ms();

private:
    bool has_end_;
    int64_t end_ms_ = 0;
};

}  // namespace kelm
