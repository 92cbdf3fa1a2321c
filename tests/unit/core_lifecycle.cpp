// SPDX-License-Identifier: ISC
// The life of the process: detaching, pid file, signals, opening, the restart at the end.
#include "daemon/lifecycle.h"

#include <errno.h>
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <string.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/exec.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "core/signals.h"
#include "core/switches.h"
#include "ipc/event_socks.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;

constexpr double EARLY = 0.9;  // seconds, where a wait that nothing ends takes a whole one
constexpr const char *PUBLISHED_PREFIX = "ubus send wps ";

// The settings of a device on which all goes well.
void write_device(int run_mode, int band_set)
{
    write_file("/tmp/device_runtime.info", "{\"mode\": " + std::to_string(run_mode) + "}");
    write_file("/tmp/device.info", "{\"RFBand\": " + std::to_string(band_set) + "}");
    write_file("/tmp/wps.conf", "");
    write_file("/tmp/wifi.conf", "");
}

// As main does before it opens: signals held back, handler installed.
void install_handler()
{
    kelm_claim_signals();
    ASSERT_EQ(0, _kelm_register_signal());
}

// One wait of the main loop without sockets; the seconds it took.
double wait_once()
{
    char buffer[KELM_MSG_SIZE + 1];
    size_t length = KELM_MSG_SIZE;
    const double start = monotonic_seconds();
    EXPECT_EQ(nullptr, _kelm_check_fd(buffer, &length, nullptr));
    return monotonic_seconds() - start;
}

bool is_pending(int number)
{
    sigset_t pending;
    sigpending(&pending);
    return sigismember(&pending, number) == 1;
}

// Waits until nothing is pending; the thread sanitizer lets in one signal a wait.
void take_pending()
{
    for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42}) {
        const bool ends_early = !is_pending(number) || wait_once() < EARLY;
        EXPECT_TRUE(ends_early) << number;
    }
}

std::string published(const calls &all)
{
    for (const std::string &call : all) {
        if (call.compare(0, strlen(PUBLISHED_PREFIX), PUBLISHED_PREFIX) == 0)
            return call.substr(strlen(PUBLISHED_PREFIX));
    }
    return "";
}

// The commands of the exit path with a flag word and the outcomes of the bands.
calls leave_with(uint32_t flag, std::initializer_list<int> succeeded,
                 std::initializer_list<int> easymesh)
{
    start_core(KELM_MODE_REPEATER, ALL_BANDS);
    kelm_flag = flag;
    for (const int band : succeeded)
        set_band_worker_succeed(band, 1);
    for (const int band : easymesh)
        set_band_easymesh_wps(band, 1);
    kelm_leave();
    return recorded_calls();
}

class lifecycle : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
    void TearDown() override { faults = {}; }
};

}  // namespace

// --- Detaching and the pid file ---

TEST_F(lifecycle, detaching_ends_the_parent_well_and_gives_the_child_its_own_session_and_null)
{
    fflush(nullptr);
    const pid_t starter = fork();
    if (starter == 0) {
        kelm_daemonize();
        char target[64] = {};
        std::string report = getsid(0) == getpid() ? "leads" : "follows";
        for (const char *link : {"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"}) {
            memset(target, 0, sizeof target);
            (void)!readlink(link, target, sizeof target - 1);
            report += std::string(" ") + target;
        }
        report += access("/proc/self/fd/3", F_OK) == 0 ? " and 3" : "";
        write_file("/tmp/daemon.part", report);
        rename("/tmp/daemon.part", "/tmp/daemon");
        leave_process(0);
    }
    EXPECT_EQ(0, exit_of(starter));
    ASSERT_TRUE(wait_until([] { return file_exists("/tmp/daemon"); }));
    EXPECT_EQ(0u, read_file("/tmp/daemon").find("leads /dev/null /dev/null /dev/null"))
        << read_file("/tmp/daemon");
}

TEST_F(lifecycle, without_a_null_device_a_detached_daemon_keeps_what_it_was_given)
{
    fflush(nullptr);
    const pid_t starter = fork();
    if (starter == 0) {
        // A /dev without anything in it, for this process and its child alone.
        if (unshare(CLONE_NEWNS) != 0 || mount("tmpfs", "/dev", "tmpfs", 0, nullptr) != 0 ||
            dup2(open("/tmp", O_RDONLY | O_CLOEXEC), STDOUT_FILENO) < 0) {
            perror("a /dev of its own");
            leave_process(255);
        }
        kelm_daemonize();
        char target[64] = {};
        (void)!readlink("/proc/self/fd/1", target, sizeof target - 1);
        write_file("/tmp/daemon.part", getsid(0) == getpid() ? target : "follows");
        rename("/tmp/daemon.part", "/tmp/daemon");
        leave_process(0);
    }
    EXPECT_EQ(0, exit_of(starter));
    ASSERT_TRUE(wait_until([] { return file_exists("/tmp/daemon"); }));
    EXPECT_EQ("/tmp", read_file("/tmp/daemon"));
}

TEST_F(lifecycle, in_the_foreground_the_process_stays_what_it_was_with_null_on_its_descriptors)
{
    for (const bool leads_group : {false, true}) {
        unlink("/tmp/daemon");
        fflush(nullptr);
        const pid_t starter = fork();
        if (starter == 0) {
            if (leads_group)
                setpgid(0, 0);
            const pid_t self = getpid();
            const pid_t session = getsid(0);
            const pid_t group = getpgrp();
            setenv("KELM_FOREGROUND", "1", 1);
            kelm_read_switches();
            kelm_daemonize();
            std::string report;
            report +=
                self == getpid() && session == getsid(0) && group == getpgrp() ? "stays" : "goes";
            for (const char *link : {"/proc/self/fd/0", "/proc/self/fd/1", "/proc/self/fd/2"}) {
                char target[64] = {};
                (void)!readlink(link, target, sizeof target - 1);
                report += std::string(" ") + target;
            }
            write_file("/tmp/daemon", report);
            leave_process(7);
        }
        EXPECT_EQ(7, exit_of(starter));
        EXPECT_EQ("stays /dev/null /dev/null /dev/null", read_file("/tmp/daemon"));
    }
}

TEST_F(lifecycle, the_pid_file_holds_the_pid_and_a_line_feed)
{
    EXPECT_EQ(0, kelm_create_pid_file());
    EXPECT_EQ(std::to_string(getpid()) + "\n", read_file("/tmp/kelm.pid"));
    EXPECT_EQ("", console_text());
}

TEST_F(lifecycle, a_pid_file_refuses_the_start_and_stays_as_it_is)
{
    for (const char *text : {"1\n", "", "stale"}) {
        write_file("/tmp/kelm.pid", text);
        kelm_dbg_level = -1;
        EXPECT_EQ(-1, kelm_create_pid_file());
        EXPECT_EQ("kelm[main:N]: kelm has been started\n", console_text_without_line_numbers())
            << "at any level";
        EXPECT_EQ(text, read_file("/tmp/kelm.pid"));
    }
}

TEST_F(lifecycle, a_pid_file_that_cannot_be_written_ends_the_process_with_the_error)
{
    fflush(nullptr);
    const int errors = open("/tmp/stderr", O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
    ASSERT_GE(errors, 0);
    const pid_t child = fork();
    if (child == 0) {
        // A view of its own of the same folder, to which nothing can be added.
        if (unshare(CLONE_NEWNS) != 0 ||
            mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) != 0) {
            perror("a read-only /tmp");
            leave_process(255);
        }
        dup2(errors, STDERR_FILENO);
        (void)kelm_create_pid_file();
        leave_process(254);
    }
    close(errors);
    EXPECT_EQ(EROFS, exit_of(child));
    EXPECT_EQ("pidfile: Read-only file system\n", read_file("/tmp/stderr"));
    EXPECT_FALSE(file_exists("/tmp/kelm.pid"));
}

TEST_F(lifecycle, a_dead_link_in_the_pid_files_place_is_not_followed)
{
    ASSERT_EQ(0, symlink("/tmp/elsewhere", "/tmp/kelm.pid"));
    EXPECT_EQ(-1, kelm_create_pid_file());
    EXPECT_FALSE(file_exists("/tmp/elsewhere"));
}

// --- Signals: installing ---

TEST_IN_FRESH_PROCESS(signals, the_handler_is_installed_for_four_signals_with_no_flags)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    EXPECT_EQ(0, _kelm_register_signal());
    for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42}) {
        struct sigaction action = {};
        ASSERT_EQ(0, sigaction(number, nullptr, &action));
        EXPECT_EQ(&_kelm_handle_signal, action.sa_handler) << number;
        EXPECT_EQ(0, action.sa_flags & (SA_RESTART | SA_SIGINFO | SA_NODEFER | SA_RESETHAND));
        for (int other = 1; other <= 64; ++other)
            EXPECT_NE(1, sigismember(&action.sa_mask, other)) << number << " " << other;
    }
    for (const int number : {SIGINT, SIGHUP, 41, 43}) {
        struct sigaction action = {};
        ASSERT_EQ(0, sigaction(number, nullptr, &action));
        EXPECT_NE(&_kelm_handle_signal, action.sa_handler) << number;
    }
}

TEST_IN_FRESH_PROCESS(signals, the_first_that_cannot_be_installed_ends_the_sequence)
{
    struct row {
        int number;
        const char *log;
        int next;  // the signal after it keeps its default
    };
    const row rows[] = {
        {42, "SIG_NEW_CONFIG err: Invalid argument\n", 0},
        {SIGTERM, "SIGTERM err: Invalid argument\n", 42},
        {SIGUSR2, "SIGUSR1 err: Invalid argument\n", SIGTERM},
        {SIGUSR1, "SIGUSR1 err: Invalid argument\n", SIGUSR2},
    };
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_dbg_level = -1;
    for (const row &each : rows) {
        for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42})
            signal(number, SIG_DFL);
        faults.sigaction_of = each.number;
        EXPECT_EQ(-1, _kelm_register_signal());
        faults = {};
        EXPECT_EQ(each.log, console_messages()) << each.number;
        struct sigaction action = {};
        if (each.next != 0) {
            ASSERT_EQ(0, sigaction(each.next, nullptr, &action));
            EXPECT_EQ(SIG_DFL, action.sa_handler) << each.next;
        }
    }
}

TEST_IN_FRESH_PROCESS(signals, a_sigusr2_that_cannot_be_installed_is_told_as_sigusr1)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    faults.sigaction_of = SIGUSR2;
    EXPECT_EQ(-1, _kelm_register_signal());
    EXPECT_EQ("kelm[_kelm_register_signal:N]: SIGUSR1 err: Invalid argument\n",
              console_text_without_line_numbers());
}

// --- Signals: what they do ---

TEST_IN_FRESH_PROCESS(signals, sigusr1_raises_the_level_and_then_dumps)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_dbg_level = 3;
    _kelm_handle_signal(SIGUSR1);
    EXPECT_EQ(4, kelm_dbg_level);
    EXPECT_NE(std::string::npos, console_messages().find("global_wps_flags: 00000000\n"));
    kelm_dbg_level = 1000;
    _kelm_handle_signal(SIGUSR1);
    EXPECT_EQ(1001, kelm_dbg_level) << "no upper bound";
}

TEST_IN_FRESH_PROCESS(signals, two_sigusr2_leave_the_level_below_every_guarded_line)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    _kelm_handle_signal(SIGUSR2);
    EXPECT_EQ("", console_text()) << "lowered before the dump";
    _kelm_handle_signal(SIGUSR2);
    EXPECT_EQ(2, kelm_dbg_level);
    kelm_dbg_level = -1000;
    _kelm_handle_signal(SIGUSR2);
    EXPECT_EQ(-1001, kelm_dbg_level) << "no lower bound";
}

TEST_IN_FRESH_PROCESS(signals,
                      sigterm_while_idle_cancels_and_withdraws_the_pins_and_publishes_nothing)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    set_band(2, WPS_STATUS_STARTED, 0);
    _kelm_handle_signal(SIGTERM);
    EXPECT_EQ((calls{"ops wps_cancel()", "ops set_ap_pin(0, none)", "ops set_ap_pin(1, none)"}),
              recorded_calls());
    EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
    EXPECT_EQ("", console_text());
}

// The code that it interrupts may be about to look at its own.
TEST_IN_FRESH_PROCESS(signals, the_handler_leaves_the_error_number_as_it_was)
{
    constexpr int UNLIKELY = 4095;
    for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42}) {
        start_core(KELM_MODE_AP, DUAL_BAND);
        set_band(0, WPS_STATUS_STARTED, WPS_FLAG_WORKER_LAUNCH);
        remove_console();
        errno = UNLIKELY;
        _kelm_handle_signal(number);
        EXPECT_EQ(UNLIKELY, errno) << number;
    }
}

TEST_IN_FRESH_PROCESS(signals, sigterm_to_an_idle_repeater_only_ends_the_loop)
{
    for (const int mode : {KELM_MODE_REPEATER, 7}) {
        start_core(mode, DUAL_BAND);
        _kelm_handle_signal(SIGTERM);
        EXPECT_EQ(calls{}, recorded_calls()) << mode;
        EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
    }
}

TEST_IN_FRESH_PROCESS(signals, sigterm_to_a_busy_repeater_publishes_without_a_cancel)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    set_band(1, WPS_STATUS_STARTED, 0);
    _kelm_handle_signal(SIGTERM);
    const calls all = recorded_calls();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ("ubus send wps '{\"action\":2,\"2g_status\":12,\"5g_status\":4,\"5g2_status\":0}'",
              all[0]);
    EXPECT_EQ("kelm[_kelm_handle_signal:N]: WPS is processing, close it anyway.\n",
              console_text_without_line_numbers().substr(0, 65));
}

TEST_IN_FRESH_PROCESS(signals, sigterm_reports_each_band_of_the_device_as_it_will_not_go_on)
{
    struct row {
        int statuses[4];
        int band_set;
        const char *published;
    };
    const row rows[] = {
        {{11, 0, 0, 0},
         DUAL_BAND,
         "'{\"action\":2,\"2g_status\":4,\"5g_status\":12,\"5g2_status\":0}'"},
        {{2, 8, 3, 0},
         ALL_BANDS,
         "'{\"action\":2,\"2g_status\":2,\"5g_status\":8,\"5g2_status\":3}'"},
        {{12, 9, 11, 11},
         ALL_BANDS,
         "'{\"action\":2,\"2g_status\":12,\"5g_status\":9,\"5g2_status\":4}'"},
        {{0, 4, 0, 0},
         TRI_BAND,
         "'{\"action\":2,\"2g_status\":12,\"5g_status\":4,\"5g2_status\":12}'"},
        {{11, 0, 0, 0},
         ONLY_5G,  // a status of a band that the device has not still counts as a running attempt
         "'{\"action\":2,\"2g_status\":0,\"5g_status\":12,\"5g2_status\":0}'"},
        {{0, 0, 11, 11}, ALL_BANDS, ""},
    };
    for (const row &each : rows) {
        start_core(KELM_MODE_AP, each.band_set);
        for (int band = 0; band < KELM_BAND_COUNT; ++band)
            set_band(band, each.statuses[band], 0);
        _kelm_handle_signal(SIGTERM);
        EXPECT_EQ(each.published, published(recorded_calls()));
        EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
    }
}

TEST_IN_FRESH_PROCESS(signals, other_signals_do_nothing)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_STARTED, 0);
    for (const int number : {42, SIGHUP, 0}) {
        errno = 77;
        _kelm_handle_signal(number);
        EXPECT_EQ(77, errno);
    }
    EXPECT_EQ(calls{}, recorded_calls());
    EXPECT_EQ("", console_text());
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ(4, kelm_dbg_level);
}

// --- Signals: when they come in ---

TEST_IN_FRESH_PROCESS(signals, a_signal_is_handled_in_the_wait_and_not_before)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    install_handler();
    kill(getpid(), SIGUSR1);
    kelm_log_normal("some work\n");
    EXPECT_TRUE(is_pending(SIGUSR1));
    EXPECT_EQ(4, kelm_dbg_level);
    EXPECT_LT(wait_once(), EARLY) << "and it ends the wait";
    EXPECT_EQ(5, kelm_dbg_level);
    EXPECT_FALSE(is_pending(SIGUSR1));
}

TEST_IN_FRESH_PROCESS(signals, each_of_the_four_ends_the_wait_without_sockets)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    install_handler();
    for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42}) {
        const pid_t sender = signal_me_in(100, number);
        const double waited = wait_once();
        EXPECT_GT(waited, 0.05) << number;
        EXPECT_LT(waited, EARLY) << number;
        EXPECT_EQ(0, exit_of(sender));
    }
    EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
}

TEST_IN_FRESH_PROCESS(signals, each_of_the_four_silently_ends_the_wait_with_sockets)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    install_handler();
    kelm_set_wps_flag_bit(0, WPS_FLAG_STABSS_ENABLE);
    ASSERT_EQ(0, kelm_worker_sock_init());
    kelm_dbg_level = 7;
    for (const int number : {SIGTERM, 42}) {
        kill(getpid(), number);
        char buffer[KELM_MSG_SIZE + 1];
        size_t length = KELM_MSG_SIZE;
        const double start = monotonic_seconds();
        EXPECT_EQ(nullptr, _kelm_check_fd(buffer, &length, kelm_sock_list));
        EXPECT_LT(monotonic_seconds() - start, EARLY);
        EXPECT_EQ("", console_text());
    }
}

TEST_IN_FRESH_PROCESS(signals, a_signal_comes_in_although_packets_wait_and_costs_none_of_them)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    install_handler();
    kelm_set_wps_flag_bit(0, WPS_FLAG_STABSS_ENABLE);
    ASSERT_EQ(0, kelm_worker_sock_init());
    char buffer[KELM_MSG_SIZE + 1] = {};
    size_t length = KELM_MSG_SIZE;
    ASSERT_EQ(3, send(peer_of(0), "one", 3, 0));
    ASSERT_EQ(3, send(peer_of(0), "two", 3, 0));
    EXPECT_EQ(&kelm_worker_socks[0], _kelm_check_fd(buffer, &length, kelm_sock_list));
    EXPECT_STREQ("one", buffer);
    kill(getpid(), SIGUSR1);
    length = KELM_MSG_SIZE;
    EXPECT_EQ(nullptr, _kelm_check_fd(buffer, &length, kelm_sock_list));
    EXPECT_EQ(5, kelm_dbg_level);
    EXPECT_EQ(&kelm_worker_socks[0], _kelm_check_fd(buffer, &length, kelm_sock_list));
    EXPECT_STREQ("two", buffer);
}

TEST_IN_FRESH_PROCESS(signals, no_handler_runs_while_a_command_runs)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    install_handler();
    EXPECT_EQ(0, kelm_system("kill -USR1 $PPID && kill -TERM $PPID && sleep 0.2"));
    EXPECT_EQ(4, kelm_dbg_level);
    EXPECT_EQ(0u, kelm_flag);
    take_pending();
    EXPECT_EQ(5, kelm_dbg_level);
    EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
}

TEST_IN_FRESH_PROCESS(signals, a_signal_that_comes_while_one_is_handled_waits_for_the_next_wait)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    install_handler();
    static int level_in_handler;
    answers.on_call = [](const std::string &call) {
        if (call != "wps_cancel()")
            return;
        for (const int number : {SIGUSR1, SIGUSR2, SIGTERM, 42})
            kill(getpid(), number);
        level_in_handler = kelm_dbg_level;
        EXPECT_TRUE(is_pending(SIGUSR1) && is_pending(SIGUSR2) && is_pending(SIGTERM) &&
                    is_pending(42));
    };
    kill(getpid(), SIGTERM);
    (void)wait_once();
    EXPECT_EQ(4, level_in_handler);
    EXPECT_EQ(4, kelm_dbg_level) << "not after the handler either";
    EXPECT_EQ((calls{"ops wps_cancel()", "ops set_ap_pin(0, none)", "ops set_ap_pin(1, none)"}),
              recorded_calls())
        << "one SIGTERM, undivided";
    answers.on_call = nullptr;
    kelm_dbg_level = 40;
    take_pending();
    EXPECT_EQ(40, kelm_dbg_level) << "one up and one down";
    EXPECT_EQ(3u, recorded_calls().size()) << "the second SIGTERM";
}

TEST_IN_FRESH_PROCESS(signals, after_the_wait_the_four_are_held_back_again_and_others_never_were)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    sigset_t before;
    sigset_t after;
    sigset_t wait;
    pthread_sigmask(SIG_BLOCK, nullptr, &before);
    install_handler();
    kill(getpid(), 42);
    (void)wait_once();
    pthread_sigmask(SIG_BLOCK, nullptr, &after);
    kelm_wait_mask(&wait);
    for (int number = 1; number < 64; ++number) {
        const bool ours =
            number == SIGUSR1 || number == SIGUSR2 || number == SIGTERM || number == 42;
        if (number == 32 || number == 33)
            continue;  // the C library's own
        const int expected = ours ? 1 : sigismember(&before, number);
        EXPECT_EQ(expected, sigismember(&after, number)) << number;
        EXPECT_EQ(sigismember(&before, number), sigismember(&wait, number)) << number;
    }
}

TEST_IN_FRESH_PROCESS(signals, a_sigterm_before_the_handler_is_there_is_not_lost_and_not_deadly)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    kelm_claim_signals();
    kill(getpid(), SIGTERM);
    struct sigaction action = {};
    ASSERT_EQ(0, sigaction(SIGTERM, nullptr, &action));
    EXPECT_NE(SIG_DFL, action.sa_handler) << "a library that looks finds it taken";
    ASSERT_EQ(0, _kelm_register_signal());
    (void)wait_once();
    EXPECT_EQ(KELM_GFLAG_TERMINATE, kelm_flag);
}

// --- Opening ---

TEST_F(lifecycle, opening_stops_the_old_workers_before_it_starts_the_new_ones)
{
    write_device(KELM_MODE_AP, TRI_BAND);
    kelm_band_mask = 0;
    answers.on_call = [](const std::string &call) {
        if (call != "kill_worker()")
            return;
        EXPECT_EQ(0x7u, kelm_band_mask) << "the sessions are there";
        EXPECT_EQ(5, time_start) << "and the stamps not yet reset";
        EXPECT_EQ("", console_text()) << "nor the settings read";
    };
    time_start = time_boost = time_last_check = 5;
    dirty = 5;
    set_band_worker_succeed(1, 1);
    kelm_sock_entry left_over = {};
    kelm_sock_list = &left_over;
    EXPECT_EQ(0, _kelm_open());
    EXPECT_EQ((calls{"ops kill_worker()", "ops start_worker()"}), recorded_calls());
    EXPECT_EQ(0, time_start);
    EXPECT_EQ(0, time_boost);
    EXPECT_EQ(0, time_last_check);
    EXPECT_EQ(0u, dirty);
    EXPECT_EQ(0, get_band_worker_succeed(1));
    EXPECT_EQ(nullptr, kelm_sock_list);
    EXPECT_EQ(KELM_MODE_AP, kelm_get_run_mode());
    EXPECT_EQ(3, kelm_rf_band);
}

TEST_F(lifecycle, opening_returns_every_band_of_the_device_to_idle)
{
    write_device(KELM_MODE_AP, DUAL_BAND);
    answers.on_call = [](const std::string &call) {
        if (call != "start_worker()")
            return;
        for (const int band : {0, 1, 2}) {
            set_band(band, WPS_STATUS_ERROR, WPS_FLAG_NONE_SECURITY);
            set_band_worker_succeed(band, 1);
        }
    };
    EXPECT_EQ(0, _kelm_open());
    for (const int band : {0, 1}) {
        EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(band));
        EXPECT_EQ(WPS_FLAG_NONE_SECURITY, kelm_get_wps_flags(band)) << "the flags stay";
        EXPECT_EQ(0, get_band_worker_succeed(band));
    }
    EXPECT_EQ(WPS_STATUS_ERROR, kelm_get_status(2));
}

TEST_F(lifecycle, opening_ends_at_the_first_step_that_fails)
{
    struct row {
        const char *name;
        void (*spoil)();
        calls expected;
        const char *log;
    };
    const row rows[] = {
        {"run mode", [] { unlink("/tmp/device_runtime.info"); }, {}, ""},
        {"bands", [] { unlink("/tmp/device.info"); }, {}, "Open /tmp/device.info file failed.\n"},
        {"sessions", [] { faults.calloc_bytes = KELM_BAND_COUNT * sizeof(kelm_session); }, {}, ""},
        {"unknown mode",
         [] { write_file("/tmp/device_runtime.info", "{\"mode\": 2}"); },
         {"ops kill_worker()"},
         "Invalid sys mode: 2.\n"},
        {"worker",
         [] { answers.start_worker = 1; },
         {"ops kill_worker()", "ops start_worker()"},
         "start worker process failed.\n"},
        {"sockets",
         [] {
             answers.event_sock_init[1] = -1;
             answers.on_call = [](const std::string &call) {
                 if (call == "start_worker()")
                     kelm_set_wps_flag_bit(1, WPS_FLAG_APBSS_ENABLE);
             };
         },
         {"ops kill_worker()", "ops start_worker()", "ops event_sock_init(1)"},
         "worker socket init failed\n"},
    };
    for (const row &each : rows) {
        start_core(KELM_MODE_AP, DUAL_BAND);
        write_device(KELM_MODE_AP, DUAL_BAND);
        kelm_dbg_level = 3;
        each.spoil();
        const int result = _kelm_open();
        faults = {};
        EXPECT_EQ(-1, result) << each.name;
        EXPECT_EQ(each.expected, recorded_calls()) << each.name;
        EXPECT_EQ(each.log, console_messages()) << each.name;
    }
}

// --- The restart decision ---

TEST_F(lifecycle, leaving_removes_the_pid_file_and_without_a_flag_restarts_nothing)
{
    for (const uint32_t flag : {0u, KELM_GFLAG_TERMINATE, KELM_GFLAG_WPS_RUNNING, 0xffffeefdu}) {
        start_core(KELM_MODE_AP, DUAL_BAND);
        write_file("/tmp/kelm.pid", "1\n");
        kelm_flag = flag;
        kelm_leave();
        EXPECT_FALSE(file_exists("/tmp/kelm.pid"));
        EXPECT_EQ(calls{}, recorded_calls()) << std::hex << flag;
        EXPECT_EQ("", console_text());
    }
}

TEST_F(lifecycle, the_restart_follows_the_outcome_of_24_and_5_ghz_alone)
{
    const std::string published = "/etc/init.d/wps re_kelm_info";
    const std::string failed = "/etc/init.d/wps restart";
    const std::string normal = "/etc/init.d/wifi force_restart";
    const std::string easymesh = "/etc/init.d/wifi restart_from_wps";
    struct row {
        std::initializer_list<int> succeeded;
        std::initializer_list<int> marked;
        std::string command;
        const char *log;
    };
    const row rows[] = {
        {{}, {}, failed, "mesh WPS fail restart.\n"},
        {{}, {0, 1}, failed, "mesh WPS fail restart.\n"},
        {{2}, {}, failed, "mesh WPS fail restart.\n"},
        {{2, 3}, {2}, failed, "mesh WPS fail restart.\n"},
        {{0}, {}, normal, "Normal WPS success restart.\n"},
        {{1}, {}, normal, "Normal WPS success restart.\n"},
        {{0, 1}, {2, 3}, normal, "Normal WPS success restart.\n"},
        {{0}, {0}, easymesh, "Easymesh WPS success restart.\n"},
        {{0}, {1}, easymesh, "Easymesh WPS success restart.\n"},
        {{0, 1}, {0, 1}, easymesh, "Easymesh WPS success restart.\n"},
    };
    for (const row &each : rows) {
        EXPECT_EQ((calls{published, each.command}),
                  leave_with(KELM_GFLAG_WIFI_RESTART, each.succeeded, each.marked));
        EXPECT_NE(std::string::npos, console_messages().find(each.log)) << each.log;
    }
}

TEST_F(lifecycle, a_service_restart_may_follow_the_wireless_restart)
{
    EXPECT_EQ((calls{"/etc/init.d/wps restart"}), leave_with(KELM_GFLAG_WPS_RESTART, {0}, {0}));
    EXPECT_EQ((calls{"/etc/init.d/wps re_kelm_info", "/etc/init.d/wifi force_restart",
                     "/etc/init.d/wps restart"}),
              leave_with(KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART, {0}, {}));
    EXPECT_EQ((calls{"/etc/init.d/wps re_kelm_info", "/etc/init.d/wps restart",
                     "/etc/init.d/wps restart"}),
              leave_with(KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART, {}, {}));
}

// A restarted service starts the next daemon, which a pid file that is still there would refuse.
TEST_F(lifecycle, the_pid_file_is_gone_before_any_of_the_last_commands_runs)
{
    const std::string look =
        "[ -e /tmp/kelm.pid ] && echo \"barred $*\" >>/tmp/seen || echo \"free $*\" >>/tmp/seen\n";
    struct row {
        uint32_t flag;
        std::initializer_list<int> succeeded;
        const char *seen;
    };
    const row rows[] = {
        {KELM_GFLAG_WPS_RESTART, {}, "free restart\n"},
        {KELM_GFLAG_WIFI_RESTART, {}, "free re_kelm_info\nfree restart\n"},
        {KELM_GFLAG_WIFI_RESTART, {0}, "free re_kelm_info\nfree force_restart\n"},
        {KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART,
         {1},
         "free re_kelm_info\nfree force_restart\nfree restart\n"},
    };
    for (const row &each : rows) {
        start_core(KELM_MODE_REPEATER, DUAL_BAND);
        ASSERT_EQ(0, kelm_create_pid_file());
        set_reply("/etc/init.d/wps", look);
        set_reply("/etc/init.d/wifi", look);
        kelm_flag = each.flag;
        for (const int band : each.succeeded)
            set_band_worker_succeed(band, 1);
        kelm_leave();
        EXPECT_EQ(each.seen, read_file("/tmp/seen"));
    }
}

TEST_F(lifecycle, leaving_tells_what_it_does_as_main)
{
    kelm_flag = KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RUNNING;
    set_band_worker_succeed(1, 1);
    set_reply("/etc/init.d/wps", "echo \"wps $*\" >/dev/console\n");
    set_reply("/etc/init.d/wifi", "echo \"wifi $*\" >/dev/console\n");
    const std::string normal =
        "wps re_kelm_info\n"
        "kelm[main:N]: do wifi restart\n"
        "kelm[main:N]: wps_status 2G = 0, 5G = 1.\n\n"
        "kelm[main:N]: Normal WPS success restart.\n"
        "wifi force_restart\n";
    kelm_leave();
    EXPECT_EQ(normal, console_text_without_line_numbers());
    kelm_dbg_level = 7;
    kelm_leave();
    EXPECT_EQ(
        "kelm[main:N]: kelm_flag: 1001\n"
        "kelm[main:N]: re kelm info: to send wps status\n" +
            normal,
        console_text_without_line_numbers());
}
