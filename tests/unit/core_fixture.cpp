// SPDX-License-Identifier: ISC
// What the tests of the core share.
#include "tests/unit/core_fixture.h"

#include <stdio.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <regex>

#include "core/exec.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/signals.h"
#include "ipc/event_socks.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

// The handler may allocate, since it runs only where nothing is half done; the bus thread is never
// joined. Asked for by the thread sanitizer alone.
extern "C" const char *__tsan_default_options();
extern "C" const char *__tsan_default_options()
{
    return "report_signal_unsafe=0:report_thread_leaks=0";
}

namespace kelm_test {

namespace {

constexpr unsigned HANGING_S = 120;  // a test that takes longer will never end

// What "rm" and "cp" say of a missing file goes to "/dev/null" on a router.
void mute(const std::string &program)
{
    const std::string stand_in = "/mnt/bin/" + program;
    write_file(stand_in, "#!/bin/sh\nexec /bin/" + program + " \"$@\" 2>/dev/null\n");
    ASSERT_EQ(0, chmod(stand_in.c_str(), 0755));
}

}  // namespace

void start_core(int run_mode, int band_set)
{
    using namespace kelm;
    reset_world();
    reset_ops();
    set_time(TEST_NOW);
    kelm_dbg_level = KELM_LOG_NORMAL;
    kelm_flag = 0;
    kelm_ending = {};
    kelm_let_commands_run();
    kelm_band_mask = 0;
    time_start = time_boost = time_last_check = 0;
    dirty = 0;
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        set_band_worker_succeed(index, 0);
    reset_band_easymesh_wps();
    kelm_sock_list = nullptr;
    for (kelm_sock_entry &entry : kelm_worker_socks)
        entry = {};
    write_file("/tmp/device_runtime.info", "{\"mode\": " + std::to_string(run_mode) + "}");
    ASSERT_EQ(0, kelm_backup_run_mode());
    ASSERT_EQ(0, kelm_create_session(band_set));
    mute("rm");
    mute("cp");
    (void)console_text();
    (void)recorded_calls();
}

void set_band(int band, int status, uint32_t flags)
{
    kelm::kelm_session *session = kelm::kelm_get_wps_session(band);
    session->wps_status = status;
    session->wps_flags = flags;
}

std::string console_messages()
{
    static const std::regex origin("kelm\\[[A-Za-z0-9_]+:[0-9]+\\]: ");
    return std::regex_replace(console_text(), origin, "");
}

double monotonic_seconds()
{
    timespec now;
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

bool wait_until(const std::function<bool()> &condition, double seconds)
{
    const double end = monotonic_seconds() + seconds;
    while (!condition()) {
        if (monotonic_seconds() > end)
            return false;
        usleep(2000);
    }
    return true;
}

pid_t signal_me_in(int milliseconds, int number)
{
    const pid_t target = getpid();
    const pid_t sender = fork();
    if (sender == 0) {
        usleep(static_cast<useconds_t>(milliseconds) * 1000);
        kill(target, number);
        _exit(0);
    }
    return sender;
}

int exit_of(pid_t child)
{
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
        perror("no such child process");
        abort();
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

void run_in_fresh_process(void (*body)())
{
    fflush(nullptr);
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        alarm(HANGING_S);
        body();
        const bool failed = testing::Test::HasFailure();
        exit(failed ? 1 : 0);
    }
    EXPECT_EQ(0, exit_of(child)) << "see the failures above";
}

}  // namespace kelm_test
