// SPDX-License-Identifier: ISC
// What the C library and the system log answer to the code under test in place of the machine.
#pragma once

#include <functional>
#include <initializer_list>
#include <string>
#include <vector>

namespace kelm_test {

// Lets the next calls of a wrapped function fail with these errors, one a call; 0 lets that call
// through. For calloc and uci_alloc_context any other number means no memory; uci_load returns its
// own numbers. Wrapped: bind, calloc, fcntl, pipe2, poll, posix_spawn, recv, send, socket,
// uci_alloc_context, uci_load (see the link options of this folder).
void fail_next(const std::string &call, std::initializer_list<int> errors);

// Runs look when one of these is called next, before it does its work.
void before_next(const std::string &call, const std::function<void()> &look);

// As if nothing came in time: poll answers 0 at once, from now on.
void let_polls_time_out();

// Stops the machine's clocks: from now on sleep() only moves clock_gettime()'s time on.
void stop_clocks();

// From now on clock_gettime() runs so many times as fast; 1 lets it run with the machine's again.
void run_clocks_faster(int times);

// What was asked for since the last forget_faults(): seconds slept, time limits of poll in ms.
std::vector<unsigned> sleeps();
std::vector<int> poll_limits();

// The lines of the user's system log since the last call, each as "LEVEL SUCCESS TEXT".
std::vector<std::string> syslog_lines();

// Back to the machine's own answers.
void forget_faults();

}  // namespace kelm_test
