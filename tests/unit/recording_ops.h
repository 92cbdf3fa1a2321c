// SPDX-License-Identifier: ISC
// A platform table that notes what the core asks of it and answers as the test scripts it.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "core/ops.h"

namespace kelm_test {

// What the slots answer. A fresh one is a platform on which all goes well and nothing happens.
struct ops_answers {
    int start_worker = 0;
    int event_sock_init[kelm::KELM_BAND_COUNT] = {-2, -2, -2, -2};  // -2: a new socket pair's end
    int process_bus_msg = 0;
    int process_event_msg = -1;  // no event that ends a worker
    const char *sta_mac[kelm::KELM_BAND_COUNT] = {"", "", "", ""};
    int parse_rootap_msg = -1;
    int rootap_band = kelm::KELM_BAND_NONE;
    kelm::kelm_worker_rootapinfo rootap = {};
    int get_wps_credentials = -1;
    int patching_back[kelm::KELM_BAND_COUNT] = {0, 0, 0, 0};  // by the band that is written
    // Runs after a slot has noted its call, with that call's text.
    std::function<void(const std::string &call)> on_call;
};
extern ops_answers answers;

// Answers and sockets as at the start of a test.
void reset_ops();

// The peer's end of the socket pair that event_sock_init(band) answered last, or -1.
int peer_of(int band);

// Since the last call, in the order in which they came: calls of the slots as
// "ops patching_back(1, 0, none)" among the commands that the world's stand-ins noted. Calls of a
// forked process are among them. A bus record is given as its nine words in hexadecimal, those that
// are zero at the end left out; a root access point record as its SSID in quotes.
std::vector<std::string> recorded_calls();

}  // namespace kelm_test
