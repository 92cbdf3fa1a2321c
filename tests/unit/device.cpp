// SPDX-License-Identifier: ISC
// Sets up and reads the device of the tests.
#include "tests/unit/device.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <regex>

#include <dirent.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/exec.h"
#include "core/run_mode.h"
#include "core/signals.h"
#include "ipc/event_socks.h"
#include "platform/rtk/events.h"
#include "tests/unit/clock.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

namespace kelm_test {

using namespace kelm;

namespace {

words entries(const char *folder)
{
    words names;
    DIR *listing = opendir(folder);
    while (const dirent *entry = readdir(listing))
        names.push_back(entry->d_name);
    closedir(listing);
    return names;
}

void forget_sessions()
{
    free(global_wps_sessions);
    global_wps_sessions = nullptr;
    kelm_band_mask = 0;
    kelm_flag = 0;
    kelm_rf_band = 0;
    time_start = 0;
    time_boost = 0;
    time_last_check = 0;
    dirty = 0;
    factory_mode = 0;
    reset_band_easymesh_wps();
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        set_band_worker_succeed(index, 0);
}

}  // namespace

std::string log_text()
{
    static const std::regex origin("kelm\\[[A-Za-z0-9_]+:[0-9]+\\]: ");
    return std::regex_replace(console_text(), origin, "> ");
}

bool contains(const std::string &text, const std::string &part)
{
    return text.find(part) != std::string::npos;
}

size_t open_descriptors()
{
    return entries("/proc/self/fd").size();
}

words files_in_tmp(const std::string &prefix)
{
    words found;
    for (const std::string &name : entries("/tmp")) {
        if (name.compare(0, prefix.size(), prefix) == 0)
            found.push_back(name);
    }
    return found;
}

pid_t fork_quietly()
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child < 0) {
        perror("fork");
        abort();
    }
    return child;
}

void end_child()
{
    fflush(nullptr);
    leave_process(testing::Test::HasFailure() ? 1 : 0);
}

bool child_succeeded(pid_t child)
{
    int status = -1;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return status == 0;
}

void device_test::SetUp()
{
    reset_world();
    kelm_ending = {};
    kelm_let_commands_run();
    forget_faults();
    forget_sessions();
    kelm_dbg_level = KELM_LOG_NORMAL;
    set_time(0);
    set_run_mode(KELM_MODE_REPEATER);
}

void device_test::TearDown()
{
    forget_faults();
    // A test's servers are gone by now, so that nothing waits for an answer to the good-bye.
    ASSERT_EQ(0, kelm_create_session(5));
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        kelm_sock_list_del(&kelm_worker_socks[index]);
        rtk_wpas_sock_deinit(index, -1);
    }
    forget_sessions();
}

void device_test::start(int run_mode, int band_set)
{
    set_run_mode(run_mode);
    forget_sessions();
    ASSERT_EQ(0, kelm_create_session(band_set));
}

void device_test::set_run_mode(int run_mode)
{
    write_file("/tmp/device_runtime.info", "{\"mode\": " + std::to_string(run_mode) + "}");
    ASSERT_EQ(0, kelm_backup_run_mode());
    ASSERT_EQ(run_mode, kelm_get_run_mode());
}

void device_test::write_wps_conf(int enabled, int ap_bands, int sta_bands,
                                 const std::string &pin_enabled, const std::string &pin)
{
    write_file("/tmp/wps.conf", "enabled=" + std::to_string(enabled) +
                                    "\napWpsAvailable=" + std::to_string(ap_bands) +
                                    "\nstaWpsAvailable=" + std::to_string(sta_bands) +
                                    "\npinEnabled=" + pin_enabled + "\npinCode=" + pin + "\n");
}

void device_test::write_wifi_conf(const std::string &ap_lines)
{
    write_file("/tmp/wifi.conf", "\n" + ap_lines);
}

void device_test::write_link(int index, const std::string &json)
{
    write_file(std::string("/tmp/wifi_runtime_info.") + bandname[index], json);
}

}  // namespace kelm_test
