// SPDX-License-Identifier: ISC
// What the tests of the core share: the state after a start, a process of its own for a test, the
// console without line origins, waiting.
#pragma once

#include <signal.h>

#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/kelm.h"
#include "tests/unit/clock.h"
#include "tests/unit/recording_ops.h"
#include "tests/world/world.h"

namespace kelm_test {

constexpr time_t TEST_NOW = 1700000000;  // where the clock stands after start_core

// Band-set codes.
constexpr int ONLY_2G = 0;
constexpr int ONLY_5G = 1;
constexpr int DUAL_BAND = 2;
constexpr int TRI_BAND = 3;
constexpr int ALL_BANDS = 5;

// A fresh world and a core as a start leaves it: run mode, sessions, level 4, nothing running, the
// clock stopped at TEST_NOW, nothing recorded.
void start_core(int run_mode, int band_set);

// A band's state in one line.
void set_band(int band, int status, uint32_t flags);

// The console's text since the last look, without the "kelm[function:line]: " of its lines.
std::string console_messages();

// Whether the condition became true within the seconds given.
bool wait_until(const std::function<bool()> &condition, double seconds = 10);

double monotonic_seconds();

// Sends the signal to this process in some milliseconds, from another one.
pid_t signal_me_in(int milliseconds, int number);

// Waits for a process; its exit status, or minus the signal that ended it.
int exit_of(pid_t child);

// Runs the body in a forked process and passes its failures on: for what a process does once.
void run_in_fresh_process(void (*body)());

}  // namespace kelm_test

#define TEST_IN_FRESH_PROCESS(suite, name)                      \
    static void suite##_##name##_body();                        \
    TEST(suite, name)                                           \
    {                                                           \
        kelm_test::run_in_fresh_process(suite##_##name##_body); \
    }                                                           \
    static void suite##_##name##_body()
