// SPDX-License-Identifier: ISC
// A device for the tests that use the real platform table: sessions, run mode, settings, log.
#pragma once

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/kelm.h"
#include "core/session.h"
#include "tests/unit/faults.h"
#include "tests/world/world.h"

namespace kelm_test {

using words = std::vector<std::string>;

// What the console has got since the last call, the origin of each line ("kelm[function:12]: ")
// shortened to "> ".
std::string log_text();

bool contains(const std::string &text, const std::string &part);

// Runs body in a child process, whose one-way marks and signal settings go with it. True when no
// expectation in it failed.
template <typename body_t>
bool in_child(body_t body);

// Numbers of this process's open descriptors; names of the files in "/tmp" that begin with prefix.
size_t open_descriptors();
words files_in_tmp(const std::string &prefix);

// Starts each test in an empty world with the daemon's state as after its start.
class device_test : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    // A run mode and the sessions of a band-set code (2: 2g and 5g, 3: and 5g2, 5: all four).
    void start(int run_mode, int band_set);
    static void set_run_mode(int run_mode);

    static kelm::kelm_session &band(int index) { return *kelm::kelm_get_wps_session(index); }
    static int status(int index) { return band(index).wps_status; }
    static uint32_t flags(int index) { return band(index).wps_flags; }
    static void set_flags(uint32_t first, uint32_t second, uint32_t third, uint32_t fourth)
    {
        const uint32_t values[] = {first, second, third, fourth};
        for (int index = 0; index < kelm::KELM_BAND_COUNT; ++index)
            band(index).wps_flags = values[index];
    }

    // "/tmp/wps.conf" as the web page's scripts write it.
    static void write_wps_conf(int enabled, int ap_bands, int sta_bands,
                               const std::string &pin_enabled, const std::string &pin);
    // "/tmp/wifi.conf" whose access point block holds these lines.
    static void write_wifi_conf(const std::string &ap_lines);
    // The band's station file: a JSON text.
    static void write_link(int index, const std::string &json);
};

bool child_succeeded(pid_t child);
pid_t fork_quietly();
[[noreturn]] void end_child();

template <typename body_t>
bool in_child(body_t body)
{
    const pid_t child = fork_quietly();
    if (child == 0) {
        body();
        end_child();
    }
    return child_succeeded(child);
}

}  // namespace kelm_test
