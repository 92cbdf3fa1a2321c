// SPDX-License-Identifier: ISC
// Which signals the daemon handles, when it handles them, and how long it may wait for anything
// after SIGTERM.
#pragma once

#include <csignal>
#include <cstdint>

#include "core/handle.h"

namespace kelm {

constexpr int SIG_NEW_CONFIG = 42;  // scripts send this number, whatever it means on the target

// Blocks SIGUSR1, SIGUSR2, SIGTERM and SIG_NEW_CONFIG on the calling thread. Their handler runs WPS
// commands, writes JSON and allocates, so it may run only where no other work is half done. That is
// the main loop's wait, which unblocks them.
void kelm_hold_back_signals();

// The same at the start of the process, before any thread is made. It also keeps the bus library
// from taking SIGTERM, and keeps SIGHUP, SIGINT and SIGPIPE from ending the process.
void kelm_claim_signals();

// The signal mask for the main loop's wait: the mask of the calling thread without these four.
void kelm_wait_mask(sigset_t *mask);

// Milliseconds of CLOCK_MONOTONIC, which nobody can set.
int64_t kelm_monotonic_ms();

// --- The end that SIGTERM asks for. Main thread only. ---

// SIGKILL often follows SIGTERM after some seconds. It would leave access points in WPS, and a pid
// file that prevents the next start. So after SIGTERM all waits of the daemon together get five
// seconds. The work that was under way gets the first part of them only, or no time would be left
// to end WPS and tell it.
constexpr int64_t ENDING_LIMIT_MS = 5000;
constexpr int64_t ENDING_WORK_MS = 1500;  // after these the work under way must be over
constexpr int64_t ENDING_GRACE_MS = 750;  // for a wait that has begun before SIGTERM came
constexpr int64_t ENDING_LEAST_MS = 10;   // a shorter share counts as none

struct kelm_ending_state {
    bool seen;         // SIGTERM has come, handled or not
    bool closing;      // the handler of SIGTERM has begun
    int64_t since_ms;  // when it was first seen
};
extern kelm_ending_state kelm_ending;

// Whether SIGTERM has come, handled or not.
bool kelm_is_ending();

// The handler of SIGTERM calls this first: what is left of the five seconds is for the handler.
void kelm_begin_closing();

// A descriptor that becomes readable when SIGTERM comes, for a wait outside the main loop. Invalid
// where it cannot be made.
unique_fd kelm_watch_sigterm();

// One wait for another process. It begins when this object is made.
class ending_wait {
public:
    // part: how much of the time that is left a wait gets that begins after SIGTERM; 4 means a
    // quarter.
    explicit ending_wait(int part);

    // Milliseconds that the wait may still take; -1 as long as SIGTERM has not come.
    int left_ms();

private:
    bool has_end_;
    int64_t end_ms_ = 0;
};

}  // namespace kelm
