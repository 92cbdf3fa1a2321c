// SPDX-License-Identifier: ISC
// Shell commands: what is run, what comes back, and what a command inherits.
#include "core/exec.h"

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <regex>

#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/log.h"
#include "core/signals.h"
#include "tests/unit/clock.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class exec : public device_test {};

// A command that makes a file and is padded to this length with a comment.
std::string command_of_length(const std::string &path, size_t length)
{
    const std::string start = "touch " + path + " #";
    return start + std::string(length - start.size(), 'x');
}

struct output_case {
    const char *command;
    const char *result;
};

const output_case outputs[] = {
    {"printf '1\\n'", "1"},
    {"printf abc", "ab"},
    {"printf x", ""},
    {"printf '\\n'", ""},
    {"printf '1\\n\\n'", "1\n"},
    {"printf 'two\\nlines\\n'", "two\nlines"},
    {"printf ' blank \\n'", " blank "},
    {"printf 'in '; sleep 0.1; printf 'parts\\n'", "in parts"},
    {"echo failed; exit 3", "failed"},
    {"echo to the other one >&2", ""},
    {"true", ""},
};

}  // namespace

TEST_F(exec, a_command_runs_in_the_shell)
{
    EXPECT_EQ(0, wps_exec_cmd("echo %s %d | tr a-z A-Z >%s", "band", 5, "/tmp/out"));
    EXPECT_EQ("BAND 5\n", read_file("/tmp/out"));
}

TEST_F(exec, a_command_is_logged_at_level_4_and_not_below)
{
    wps_exec_cmd("true %s", "one");
    kelm_dbg_level = 3;
    wps_exec_cmd("touch /tmp/ran");
    EXPECT_EQ("> true one\n", log_text());
    EXPECT_TRUE(file_exists("/tmp/ran"));
}

TEST_F(exec, no_exit_status_counts)
{
    EXPECT_EQ(0, wps_exec_cmd("exit 3"));
    EXPECT_EQ(0, wps_exec_cmd("/no/such/program 2>/dev/null"));
    EXPECT_EQ(0, wps_exec_cmd("kill -9 $$"));
}

TEST_F(exec, programs_are_found_by_path)
{
    kelm_system("killall wpa_cli");
    EXPECT_EQ(words{"killall wpa_cli"}, recorded_commands());
}

TEST_F(exec, a_command_of_2047_characters_runs_and_a_longer_one_does_not)
{
    EXPECT_EQ(0, wps_exec_cmd("%s", command_of_length("/tmp/fits", 2047).c_str()));
    EXPECT_EQ(0, wps_exec_cmd("%s", command_of_length("/tmp/too_long", 2048).c_str()));
    EXPECT_TRUE(file_exists("/tmp/fits"));
    EXPECT_FALSE(file_exists("/tmp/too_long"));
    EXPECT_TRUE(contains(log_text(), "> command too long, not run\n"));
}

TEST_F(exec, a_long_command_is_refused_at_the_length_that_the_caller_names)
{
    EXPECT_EQ(0, kelm_system_format(128, "%s", command_of_length("/tmp/fits", 127).c_str()));
    EXPECT_EQ(-1, kelm_system_format(128, "%s", command_of_length("/tmp/too_long", 128).c_str()));
    EXPECT_EQ(-1, kelm_system_format(9999, "%s", command_of_length("/tmp/too_long", 2048).c_str()));
    EXPECT_TRUE(file_exists("/tmp/fits"));
    EXPECT_FALSE(file_exists("/tmp/too_long"));
}

TEST_F(exec, an_unlogged_command_tells_its_wait_status_and_logs_nothing)
{
    kelm_dbg_level = 9;
    const int exited = kelm_system("exit 3");
    EXPECT_TRUE(WIFEXITED(exited));
    EXPECT_EQ(3, WEXITSTATUS(exited));
    const int killed = kelm_system_format(64, "kill -%d $$", SIGKILL);
    EXPECT_TRUE(WIFSIGNALED(killed));
    EXPECT_EQ(SIGKILL, WTERMSIG(killed));
    EXPECT_EQ("", log_text());
}

TEST_F(exec, a_command_that_cannot_be_started_gives_minus_1)
{
    fail_next("posix_spawn", {ENOENT, ENOENT, ENOENT, ENOENT});
    EXPECT_EQ(-1, kelm_system("true"));
    EXPECT_EQ(-1, kelm_system("true", command_kind::publish));
    EXPECT_EQ(0, wps_exec_cmd("true"));
    EXPECT_EQ(nullptr, wps_exec_cmd_with_result("true"));
    EXPECT_EQ("> true\n> popen() fail\n\n", log_text());
}

TEST_F(exec, a_command_gets_five_tries_where_processes_or_memory_are_short)
{
    fail_next("posix_spawn", {EAGAIN, ENOMEM, EAGAIN, ENOMEM, 0});
    EXPECT_EQ(3, WEXITSTATUS(kelm_system("exit 3")));
    fail_next("posix_spawn", {EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN});
    EXPECT_EQ(-1, kelm_system("true"));
}

namespace {

// Whether the process that a command noted here is gone. It belongs to init by now, which may take
// a moment to bury it.
bool is_gone(const char *note)
{
    const pid_t noted = atoi(read_file(note).c_str());
    EXPECT_GT(noted, 1);
    const std::string status = "/proc/" + std::to_string(noted) + "/status";
    const auto is_alive = [&] {
        const std::string text = read_file(status);
        return text != "" && !contains(text, "State:\tZ");
    };
    for (int i = 0; i < 100 && is_alive(); ++i)
        usleep(10000);
    return !is_alive();
}

// The log line of a command that was not waited for, without its seconds.
std::string cut_line(const std::string &what, const std::string &why, const std::string &command)
{
    return "> " + what + " after N s (" + why + "): " + command + "\n";
}

std::string log_without_seconds()
{
    return std::regex_replace(log_text(), std::regex("after [0-9]+ s"), "after N s");
}

constexpr const char *hanging = "sleep 300 & echo $! >/tmp/child; sleep 300";

struct limit_case {
    command_kind kind;
    int limit_s;
    int times_as_fast;
};

const limit_case limits[] = {
    {command_kind::quick, 15, 15},    {command_kind::scan, 30, 30},
    {command_kind::script, 120, 100}, {command_kind::restart, 300, 200},
    {command_kind::publish, 3, 3},
};

// Lets SIGTERM wait for its handling from now on.
void hold_back_sigterm()
{
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
}

}  // namespace

TEST_F(exec, a_command_of_any_kind_that_ends_in_time_tells_its_wait_status)
{
    kelm_dbg_level = 9;
    for (const limit_case &row : limits) {
        EXPECT_EQ(3, WEXITSTATUS(kelm_system("exit 3", row.kind)));
        EXPECT_EQ(4, WEXITSTATUS(kelm_system("sleep 0.3; exit 4", row.kind)));
    }
    EXPECT_EQ("", log_text());
}

TEST_F(exec, a_command_that_hangs_is_killed_at_its_kinds_limit_with_all_it_has_started)
{
    kelm_dbg_level = -1;
    for (const limit_case &row : limits) {
        EXPECT_EQ(0, kelm_system("true", row.kind));
        run_clocks_faster(row.times_as_fast);
        EXPECT_EQ(-1, kelm_system(hanging, row.kind));
        run_clocks_faster(1);
        const std::string said = log_text();
        int after_s = -1;
        ASSERT_EQ(1, sscanf(said.c_str(), "> killed after %d s", &after_s)) << said;
        EXPECT_GE(after_s, row.limit_s);
        EXPECT_LE(after_s, 10 * row.limit_s);  // on a machine that is too busy to look
        EXPECT_TRUE(contains(said, " s (its time limit): " + std::string(hanging) + "\n")) << said;
        EXPECT_TRUE(is_gone("/tmp/child"));
    }
}

TEST_F(exec, a_quick_command_or_a_scan_has_three_seconds_after_one_that_hung)
{
    for (const command_kind kind : {command_kind::quick, command_kind::scan}) {
        run_clocks_faster(15);
        EXPECT_EQ(-1, kelm_system("sleep 300", kind));
        run_clocks_faster(3);
        (void)log_text();
        EXPECT_EQ(-1, kelm_system("sleep 300", kind));
        EXPECT_EQ(cut_line("killed", "its time limit", "sleep 300"), log_without_seconds());
        EXPECT_EQ(0, kelm_system("sleep 0.1", kind));
        EXPECT_EQ(6, WEXITSTATUS(kelm_system("sleep 1.5; exit 6", kind)));
    }
}

TEST_F(exec, a_command_without_a_kind_is_a_quick_one)
{
    run_clocks_faster(30);
    EXPECT_EQ(0, wps_exec_cmd("sleep 300 #1"));
    EXPECT_EQ(-1, kelm_system_format(64, "sleep 300 #%d", 2));
    EXPECT_EQ(nullptr, wps_exec_cmd_with_result("sleep 300 #3"));
    EXPECT_EQ(0, wps_exec_cmd(command_kind::publish, "sleep 300 #4"));
    EXPECT_EQ("> sleep 300 #1\n" + cut_line("killed", "its time limit", "sleep 300 #1") +
                  cut_line("killed", "its time limit", "sleep 300 #2") +
                  cut_line("killed", "its time limit", "sleep 300 #3") + "> sleep 300 #4\n" +
                  cut_line("killed", "its time limit", "sleep 300 #4"),
              log_without_seconds());
}

TEST_F(exec, a_command_ends_with_the_attempt_after_a_second_at_the_earliest)
{
    set_time(1000);
    kelm_end_commands_at(1000);
    EXPECT_EQ(7, WEXITSTATUS(kelm_system("sleep 0.2; exit 7")));
    EXPECT_EQ(-1, kelm_system(hanging));
    EXPECT_EQ(cut_line("killed", "the attempt ends", hanging), log_without_seconds());
    EXPECT_TRUE(is_gone("/tmp/child"));
    // As time() turns negative, in January 2038.
    set_time(0x7fffffff);
    kelm_end_commands_at(static_cast<int32_t>(0x80000000u));
    EXPECT_EQ(8, WEXITSTATUS(kelm_system("sleep 1.2; exit 8")));
    set_time(0x80000000ll);
    EXPECT_EQ(-1, kelm_system(hanging));
}

TEST_F(exec, a_script_is_left_running_at_the_end_of_the_attempt)
{
    set_time(1000);
    kelm_end_commands_at(1000);
    EXPECT_EQ(-1, kelm_system("sleep 1.5; touch /tmp/done", command_kind::script));
    EXPECT_EQ(cut_line("left running", "the attempt ends", "sleep 1.5; touch /tmp/done"),
              log_without_seconds());
    EXPECT_FALSE(file_exists("/tmp/done"));
    for (int i = 0; i < 1000 && !file_exists("/tmp/done"); ++i)
        usleep(10000);
    EXPECT_TRUE(file_exists("/tmp/done"));
}

TEST_F(exec, after_the_attempt_a_command_has_its_full_time_again)
{
    set_time(1000);
    kelm_end_commands_at(1000);
    kelm_let_commands_run();
    EXPECT_EQ(7, WEXITSTATUS(kelm_system("sleep 1.2; exit 7")));
    EXPECT_EQ("", log_text());
}

TEST_F(exec, sigterm_cuts_what_runs_and_leaves_scripts_and_restarts_running)
{
    const std::string sends = "kill -TERM $PPID; " + std::string(hanging);
    const struct {
        command_kind kind;
        const char *what;
    } rows[] = {{command_kind::quick, "killed"},
                {command_kind::scan, "killed"},
                {command_kind::publish, "killed"},
                {command_kind::script, "left running"},
                {command_kind::restart, "left running"}};
    for (const auto &row : rows) {
        EXPECT_TRUE(in_child([&] {
            hold_back_sigterm();
            const auto started = std::chrono::steady_clock::now();
            EXPECT_EQ(-1, kelm_system(sends.c_str(), row.kind));
            EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
            EXPECT_EQ(cut_line(row.what, "the daemon ends", sends), log_without_seconds());
        }));
        const bool is_left = std::string(row.what) == "left running";
        if (is_left)
            kill(-getpgid(atoi(read_file("/tmp/child").c_str())), SIGKILL);
        EXPECT_TRUE(is_gone("/tmp/child"));
    }
}

TEST_F(exec, a_command_that_ends_soon_after_sigterm_is_whole)
{
    EXPECT_TRUE(in_child([] {
        hold_back_sigterm();
        EXPECT_STREQ("whole", wps_exec_cmd_with_result("kill -TERM $PPID; sleep 0.1; echo whole"));
        EXPECT_EQ(5, WEXITSTATUS(kelm_system("exit 5")));
        EXPECT_EQ("", log_text());
    }));
}

TEST_F(exec, commands_that_hang_share_what_is_left_after_sigterm)
{
    EXPECT_TRUE(in_child([] {
        hold_back_sigterm();
        (void)raise(SIGTERM);
        kelm_begin_closing();
        const auto started = std::chrono::steady_clock::now();
        for (int i = 0; i < 6; ++i)
            EXPECT_EQ(-1, kelm_system("sleep 300"));
        EXPECT_EQ(0, kelm_system("true"));  // there is something left for one that does not hang
        EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    }));
}

TEST_F(exec, when_nothing_is_left_after_sigterm_only_scripts_and_restarts_are_started)
{
    EXPECT_TRUE(in_child([] {
        kelm_ending = {true, true, kelm_monotonic_ms() - 6000};
        EXPECT_EQ(-1, kelm_system("touch /tmp/quick"));
        EXPECT_EQ(nullptr, wps_exec_cmd_with_result("touch /tmp/quick"));
        EXPECT_EQ(
            "> not run (the daemon ends): touch /tmp/quick\n"
            "> not run (the daemon ends): touch /tmp/quick\n",
            log_text());
        (void)kelm_system("sleep 0.1; touch /tmp/restart", command_kind::restart);
        (void)kelm_system("sleep 0.1; touch /tmp/script", command_kind::script);
    }));
    for (int i = 0; i < 1000 && !(file_exists("/tmp/script") && file_exists("/tmp/restart")); ++i)
        usleep(10000);
    EXPECT_TRUE(file_exists("/tmp/script"));
    EXPECT_TRUE(file_exists("/tmp/restart"));
    EXPECT_FALSE(file_exists("/tmp/quick"));
}

TEST_F(exec, no_restart_is_started_beside_a_script_that_sigterm_left_running)
{
    EXPECT_TRUE(in_child([] {
        kelm_ending = {true, true, kelm_monotonic_ms() - 6000};
        (void)kelm_system("while [ ! -e /tmp/go_on ]; do sleep 0.01; done; touch /tmp/script",
                          command_kind::script);
        (void)log_text();
        EXPECT_EQ(-1, kelm_system("touch /tmp/restart", command_kind::restart));
        EXPECT_EQ("> not run (the daemon ends): touch /tmp/restart\n", log_text());
    }));
    write_file("/tmp/go_on", "");
    for (int i = 0; i < 1000 && !file_exists("/tmp/script"); ++i)
        usleep(10000);
    EXPECT_TRUE(file_exists("/tmp/script"));
    EXPECT_FALSE(file_exists("/tmp/restart"));
}

TEST_F(exec, a_result_is_there_when_the_shell_has_ended_whoever_keeps_the_pipe_open)
{
    const auto started = std::chrono::steady_clock::now();
    EXPECT_STREQ("kept", wps_exec_cmd_with_result("echo kept; sleep 300 & echo $! >/tmp/child"));
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(10));
    kill(atoi(read_file("/tmp/child").c_str()), SIGKILL);
}

TEST_F(exec, the_command_has_ended_when_the_call_returns)
{
    kelm_system("sleep 0.2; touch /tmp/done");
    EXPECT_TRUE(file_exists("/tmp/done"));
}

TEST_F(exec, a_signal_during_the_wait_loses_neither_command_nor_status)
{
    struct sigaction old;
    struct sigaction interrupting = {};
    interrupting.sa_handler = [](int) {};
    sigaction(SIGALRM, &interrupting, &old);
    const itimerval soon = {{0, 50000}, {0, 50000}};
    const itimerval never = {};
    setitimer(ITIMER_REAL, &soon, nullptr);
    const int status = kelm_system("sleep 0.3; exit 5");
    const std::string result = wps_exec_cmd_with_result("sleep 0.2; echo whole");
    setitimer(ITIMER_REAL, &never, nullptr);
    sigaction(SIGALRM, &old, nullptr);
    EXPECT_EQ(5, WEXITSTATUS(status));
    EXPECT_EQ("whole", result);
}

TEST_F(exec, the_last_character_of_a_result_is_cut_whatever_it_is)
{
    for (const output_case &row : outputs) {
        const char *result = wps_exec_cmd_with_result("%s", row.command);
        ASSERT_NE(nullptr, result) << row.command;
        EXPECT_STREQ(row.result, result) << row.command;
    }
}

TEST_F(exec, a_result_ends_after_its_first_256_characters_less_the_last)
{
    const std::string most(255, 'x');
    EXPECT_EQ(most, wps_exec_cmd_with_result("head -c 255 /dev/zero | tr '\\0' x; echo"));
    EXPECT_EQ(most, wps_exec_cmd_with_result("head -c 256 /dev/zero | tr '\\0' x"));
    EXPECT_EQ(most, wps_exec_cmd_with_result("head -c 257 /dev/zero | tr '\\0' x"));
    EXPECT_EQ(most, wps_exec_cmd_with_result("head -c 1000000 /dev/zero | tr '\\0' x 2>&-"));
}

TEST_F(exec, a_command_that_prints_nothing_does_not_leave_the_result_of_the_one_before)
{
    wps_exec_cmd_with_result("echo 12345");
    EXPECT_STREQ("", wps_exec_cmd_with_result("true"));
    wps_exec_cmd_with_result("echo 12345");
    EXPECT_STREQ("6", wps_exec_cmd_with_result("echo 6"));
}

TEST_F(exec, a_result_lives_until_the_next_command_with_one)
{
    const char *first = wps_exec_cmd_with_result("echo first");
    wps_exec_cmd("echo between >/dev/null");
    EXPECT_STREQ("first", first);
    wps_exec_cmd_with_result("echo second");
    EXPECT_STREQ("second", first);
}

TEST_F(exec, a_result_is_logged_at_level_7_and_not_below)
{
    kelm_dbg_level = 6;
    wps_exec_cmd_with_result("echo quiet");
    kelm_dbg_level = 7;
    wps_exec_cmd_with_result("echo %s", "loud");
    EXPECT_EQ("> exec: echo loud, result: loud\n\n", log_text());
}

TEST_F(exec, a_pipe_that_cannot_be_made_is_told_at_any_level)
{
    kelm_dbg_level = -1;
    fail_next("pipe2", {EMFILE});
    EXPECT_EQ(nullptr, wps_exec_cmd_with_result("touch /tmp/ran"));
    EXPECT_EQ("> popen() fail\n\n", log_text());
    EXPECT_FALSE(file_exists("/tmp/ran"));
}

TEST_F(exec, a_command_with_a_result_that_is_too_long_is_not_run)
{
    EXPECT_EQ(nullptr,
              wps_exec_cmd_with_result("%s", command_of_length("/tmp/too_long", 2048).c_str()));
    EXPECT_NE(nullptr,
              wps_exec_cmd_with_result("%s", command_of_length("/tmp/fits", 2047).c_str()));
    EXPECT_EQ("> popen() fail\n\n", log_text());
    EXPECT_TRUE(file_exists("/tmp/fits"));
    EXPECT_FALSE(file_exists("/tmp/too_long"));
}

TEST_F(exec, nvram_is_read_and_written_through_its_program)
{
    set_reply("nvram", "echo 1");
    EXPECT_STREQ("1", nvram_get("multiap_mode"));
    EXPECT_EQ(0, nvram_set("name", "two words"));
    EXPECT_EQ((words{"nvram get multiap_mode", "nvram set 'name=two words'"}), recorded_commands());
    EXPECT_EQ("> nvram set name='two words'\n", log_text());
}

TEST_F(exec, nothing_stays_open_after_commands)
{
    const size_t before = open_descriptors();
    for (int i = 0; i < 5; ++i) {
        wps_exec_cmd("true");
        wps_exec_cmd_with_result("echo 1");
    }
    fail_next("posix_spawn", {ENOENT});
    EXPECT_EQ(nullptr, wps_exec_cmd_with_result("true"));
    EXPECT_EQ(before, open_descriptors());
}

// --- Signals: the daemon holds some back and hears not all others; its commands do neither ---

namespace {

constexpr const char *note_signals = "cat /proc/self/status >/tmp/signals";

// The C library keeps these two to itself and out of reach: neither system(3) nor we can set them.
constexpr unsigned long long internal_signals = 3ull << 31;

// A signal set of a process, as its status file shows it: bit n - 1 for signal n.
unsigned long long signal_set(const std::string &status, const std::string &name)
{
    const size_t at = status.find(name + ":\t");
    EXPECT_NE(std::string::npos, at);
    return strtoull(status.c_str() + at + name.size() + 2, nullptr, 16) & ~internal_signals;
}

// Each way to run a command.
const std::function<void()> ways[] = {
    [] { kelm_system(note_signals); },
    [] { kelm_system(note_signals, command_kind::restart); },
    [] { kelm_system_format(128, "%s", note_signals); },
    [] { wps_exec_cmd("%s", note_signals); },
    [] { wps_exec_cmd_with_result("%s", note_signals); },
};

void hold_all_back()
{
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, nullptr);
}

void ignore_all()
{
    for (int number = 1; number < NSIG; ++number)
        (void)signal(number, SIG_IGN);  // refused for a few, SIGKILL among them
    (void)signal(SIGCHLD, SIG_DFL);     // an ignored one would take the wait status away
}

}  // namespace

TEST_F(exec, a_command_inherits_no_blocked_and_no_ignored_signal)
{
    EXPECT_TRUE(in_child([] {
        hold_all_back();
        ignore_all();
        for (const std::function<void()> &way : ways) {
            way();
            const std::string status = read_file("/tmp/signals");
            EXPECT_EQ(0u, signal_set(status, "SigBlk"));
            EXPECT_EQ(0u, signal_set(status, "SigIgn"));
            write_file("/tmp/signals", "");
        }
    }));
}

TEST_F(exec, a_command_dies_of_a_signal_that_the_daemon_holds_back)
{
    EXPECT_TRUE(in_child([] {
        hold_all_back();
        ignore_all();
        for (int number : {SIGTERM, SIGUSR1, SIGUSR2, SIGPIPE, SIGINT, 42}) {
            const int status = kelm_system_format(64, "kill -%d $$", number);
            EXPECT_TRUE(WIFSIGNALED(status)) << number;
            EXPECT_EQ(number, WTERMSIG(status));
        }
    }));
}

TEST_F(exec, running_a_command_leaves_the_callers_own_signal_settings_alone)
{
    EXPECT_TRUE(in_child([] {
        sigset_t held;
        sigemptyset(&held);
        sigaddset(&held, SIGTERM);
        pthread_sigmask(SIG_SETMASK, &held, nullptr);
        (void)signal(SIGPIPE, SIG_IGN);
        const std::string before = read_file("/proc/self/status");
        for (const std::function<void()> &way : ways)
            way();
        const std::string after = read_file("/proc/self/status");
        for (const char *set : {"SigBlk", "SigIgn", "SigCgt"})
            EXPECT_EQ(signal_set(before, set), signal_set(after, set)) << set;
    }));
}
