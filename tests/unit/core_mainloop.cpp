// SPDX-License-Identifier: ISC
// The main loop: order of a pass, the clock, the boost check, the time-out, the end.
#include "daemon/mainloop.h"

#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/log.h"
#include "core/session.h"
#include "ipc/bus.h"
#include "ipc/status_files.h"
#include "tests/unit/core_fixture.h"
#include "wlan/predict.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;

constexpr uint32_t LAUNCHED = WPS_FLAG_APBSS_ENABLE | WPS_FLAG_WORKER_LAUNCH;
constexpr uint32_t STA_LAUNCHED = WPS_FLAG_STABSS_ENABLE | WPS_FLAG_WORKER_LAUNCH;

wps_listen_event_t button_press()
{
    wps_listen_event_t event = {};
    event.code = IBUS_EVENT_BUTTON;
    return event;
}

void send_to(int band, const std::string &text)
{
    ASSERT_EQ(static_cast<ssize_t>(text.size()), send(peer_of(band), text.data(), text.size(), 0));
}

// What the loop called up to its end, without the calls of that end.
calls run_loop()
{
    EXPECT_EQ(0, kelm_mainloop());
    calls all = recorded_calls();
    while (!all.empty() && (all.back() == "ops kill_worker()" ||
                            all.back().compare(0, 21, "ops event_sock_deinit") == 0))
        all.pop_back();
    return all;
}

size_t count_of(const calls &all, const std::string &call)
{
    size_t count = 0;
    for (const std::string &each : all)
        count += each == call;
    return count;
}

// An attempt with an open socket on each band.
void start_attempt(int run_mode, uint32_t flags)
{
    start_core(run_mode, DUAL_BAND);
    for (const int band : {0, 1})
        set_band(band, WPS_STATUS_STARTED, flags);
    ASSERT_EQ(0, kelm_worker_sock_init());
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    time_start = TEST_NOW;
    (void)recorded_calls();
}

// A repeater one of whose two bands has succeeded while the other one is at its score of 50.
void start_boost()
{
    start_attempt(KELM_MODE_REPEATER, STA_LAUNCHED);
    set_band(0, WPS_STATUS_SUCCESS, STA_LAUNCHED | WPS_FLAG_WORKER_DONE);
    global_wps_sessions[1].wps_score = 50;
    for (const int band : {0, 1})
        write_file(global_wps_sessions[band].scan_path,
                   "[]");  // there, so that nothing waits for it
}

// Lets every pass be a short one: each packet that is read brings the next, up to a number of
// passes, and the last one tells the loop to end. Each pass takes so many seconds.
void drive_passes(int passes, int seconds_each)
{
    static int left;
    left = passes;
    answers.on_call = [seconds_each](const std::string &call) {
        if (call.compare(0, 17, "process_event_msg") != 0)
            return;
        advance_time(seconds_each);
        if (--left > 0)
            send_to(1, "pass");
        else
            kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
    };
    send_to(1, "pass");
}

}  // namespace

TEST_IN_FRESH_PROCESS(mainloop, one_pass_takes_the_request_then_a_packet_then_looks_for_the_end)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
    wps_ibus_set_msg(button_press());
    send_to(0, "WPS-CRED-RECEIVED");
    EXPECT_EQ(
        (calls{"ops process_bus_msg(4)", "ops process_event_msg(0, \"WPS-CRED-RECEIVED\", 17)"}),
        run_loop());
}

TEST_IN_FRESH_PROCESS(mainloop, the_loop_ends_by_closing_the_sockets_and_then_the_workers)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    const int fds[] = {kelm_worker_socks[0].fd, kelm_worker_socks[1].fd};
    kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
    send_to(0, "x");
    EXPECT_EQ(0, kelm_mainloop());
    const calls all = recorded_calls();
    ASSERT_EQ(4u, all.size());
    EXPECT_EQ("ops event_sock_deinit(0, " + std::to_string(fds[0]) + ")", all[1]);
    EXPECT_EQ("ops event_sock_deinit(1, " + std::to_string(fds[1]) + ")", all[2]);
    EXPECT_EQ("ops kill_worker()", all[3]);
    EXPECT_EQ(nullptr, kelm_sock_list);
}

TEST_IN_FRESH_PROCESS(mainloop, only_three_global_flags_end_it)
{
    constexpr uint32_t ENDING =
        KELM_GFLAG_TERMINATE | KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART;
    for (const uint32_t flag :
         {KELM_GFLAG_TERMINATE, KELM_GFLAG_WIFI_RESTART, KELM_GFLAG_WPS_RESTART}) {
        start_attempt(KELM_MODE_AP, LAUNCHED);
        answers.on_call = [flag](const std::string &call) {
            if (call.find("first") != std::string::npos) {
                kelm_flag |= ~ENDING;
                send_to(0, "second");
            } else if (call.find("second") != std::string::npos) {
                kelm_set_global_wpsflag_bit(flag);
                send_to(0, "third");
            }
        };
        send_to(0, "first");
        const calls all = run_loop();
        ASSERT_EQ(2u, all.size()) << std::hex << flag;
        EXPECT_EQ("ops process_event_msg(0, \"second\", 6)", all[1]);
    }
}

TEST_IN_FRESH_PROCESS(mainloop, a_packet_leaves_nothing_behind_in_the_next_ones_buffer)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    answers.on_call = [](const std::string &call) {
        if (call.find("abc") == std::string::npos)
            send_to(0, "abc");
        else
            kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
    };
    const std::string full(2048, 'x');
    send_to(0, full);
    EXPECT_EQ((calls{"ops process_event_msg(0, \"" + full + "\", 2048)",
                     "ops process_event_msg(0, \"abc\", 3)"}),
              run_loop());
}

TEST_IN_FRESH_PROCESS(
    mainloop, without_sockets_it_still_turns_once_a_second_and_serves_the_bus_and_the_time_out)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    answers.on_call = [](const std::string &call) {
        if (call != "process_bus_msg(4)")
            return;
        // Nothing but the clock can end this attempt.
        kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
        time_start = TEST_NOW - WPS_TIMEOUT_S;
    };
    wps_ibus_set_msg(button_press());
    const double start = monotonic_seconds();
    const calls all = run_loop();
    EXPECT_GT(monotonic_seconds() - start, 0.95);
    EXPECT_EQ("ops process_bus_msg(4)", all.at(0));
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
    EXPECT_NE(0u, kelm_flag & KELM_GFLAG_WPS_RESTART);
}

TEST_IN_FRESH_PROCESS(mainloop, a_packet_goes_where_its_entry_says)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_dbg_level = 7;
    char message[] = "message";
    kelm_sock_entry entry = {nullptr, KELM_PKT_ROOTAP, -1, 1};
    EXPECT_EQ(-1, _kelm_process_msg(message, 7, &entry));
    EXPECT_EQ((calls{"ops parse_rootap_msg(\"message\", 7)"}), recorded_calls());
    EXPECT_EQ("kelm[_kelm_process_msg:N]: received packet from monitor rootap info.\n",
              console_text_without_line_numbers());
    entry.packet_type = KELM_PKT_WORKER;
    EXPECT_EQ(0, _kelm_process_msg(message, 7, &entry));
    EXPECT_EQ((calls{"ops process_event_msg(1, \"message\", 7)"}), recorded_calls());
    entry.packet_type = 2;
    EXPECT_EQ(0, _kelm_process_msg(message, 7, &entry));
    EXPECT_EQ("kelm[_kelm_process_msg:N]: Unknown packet type\n",
              console_text_without_line_numbers());
    EXPECT_EQ(-1, _kelm_process_msg(message, 7, nullptr));
    EXPECT_EQ(calls{}, recorded_calls());
}

TEST_IN_FRESH_PROCESS(mainloop, only_an_event_that_the_platform_took_is_followed_by_the_evaluation)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_dbg_level = 7;
    char message[] = "event";
    for (const int other : {-1, 1}) {
        answers.process_event_msg = other;
        EXPECT_EQ(0, _kelm_process_worker_msg(0, message, 5));
        EXPECT_EQ("", console_text());
    }
    answers.process_event_msg = 0;
    EXPECT_EQ(0, _kelm_process_worker_msg(0, message, 5));
    EXPECT_EQ("no active wps session running \n\n", console_messages());
}

TEST_IN_FRESH_PROCESS(mainloop, the_clock_follows_the_running_flag)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_update_time();
    EXPECT_EQ(0, time_start);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    kelm_update_time();
    EXPECT_EQ(TEST_NOW, time_start);
    advance_time(10);
    kelm_update_time();
    EXPECT_EQ(TEST_NOW, time_start) << "an attempt keeps its start";
    kelm_clean_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    kelm_update_time();
    EXPECT_EQ(0, time_start);
}

TEST_IN_FRESH_PROCESS(mainloop, an_attempt_may_run_for_124_seconds)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    for (const int seconds : {0, 124}) {
        set_time(TEST_NOW + seconds);
        wps_session_maintain();
        EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(0)) << seconds;
    }
    EXPECT_EQ("", console_text());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
}

TEST_IN_FRESH_PROCESS(mainloop, at_125_seconds_every_band_that_has_not_succeeded_times_out)
{
    start_core(KELM_MODE_AP, TRI_BAND);
    set_band(0, WPS_STATUS_STARTED, LAUNCHED);
    set_band(1, WPS_STATUS_SUCCESS, LAUNCHED);
    set_band(2, WPS_STATUS_SILENT, WPS_FLAG_APBSS_ENABLE);
    set_band(3, WPS_STATUS_SILENT, WPS_FLAG_WORKER_LAUNCH);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    time_start = TEST_NOW;
    set_time(TEST_NOW + 125);
    wps_session_maintain();

    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
    EXPECT_EQ(WPS_STATUS_SUCCESS, kelm_get_status(1));
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(2)) << "a silent band too";
    EXPECT_EQ(WPS_STATUS_SILENT, kelm_get_status(3)) << "no band of this device";
    EXPECT_EQ(LAUNCHED | WPS_FLAG_WORKER_DONE, kelm_get_wps_flags(0));
    EXPECT_EQ(LAUNCHED | WPS_FLAG_WORKER_DONE, kelm_get_wps_flags(1));
    EXPECT_EQ(WPS_FLAG_APBSS_ENABLE, kelm_get_wps_flags(2));
    EXPECT_EQ(0u, console_messages().find("wps Timeout, stop sessions[1700000000 - 1700000125]\n"));
    EXPECT_NE(0u, kelm_flag & KELM_GFLAG_WPS_RESTART) << "the attempt has been judged";
}

TEST_IN_FRESH_PROCESS(mainloop, a_success_that_waits_in_a_socket_counts_before_the_time_out)
{
    for (const int band : {0, 1}) {
        start_attempt(KELM_MODE_AP, LAUNCHED);
        answers.process_event_msg = 0;
        answers.on_call = [band](const std::string &call) {
            if (call.find("success") != std::string::npos)
                set_band(band, WPS_STATUS_SUCCESS, LAUNCHED | WPS_FLAG_WORKER_DONE);
        };
        for (const int other : {0, 1})
            send_to(other, "noise");
        send_to(band, "success");
        set_time(TEST_NOW + 125);
        wps_session_maintain();
        EXPECT_EQ("1\n", read_file("/tmp/wps_result"));
        EXPECT_EQ(WPS_STATUS_SUCCESS, kelm_get_status(band));
        EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(1 - band)) << "nothing has timed out";
        EXPECT_EQ(std::string::npos, console_messages().find("wps Timeout"));
        const calls all = recorded_calls();
        EXPECT_EQ(1u, count_of(all, "ops wps_cancel()")) << "judged once";
        kelm_forget_wps_result();
    }
}

TEST_IN_FRESH_PROCESS(mainloop, an_end_that_waits_in_a_socket_is_not_judged_as_a_time_out)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    answers.on_call = [](const std::string &call) {
        if (call.find("end") != std::string::npos)
            kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RESTART);
    };
    send_to(0, "end");
    set_time(TEST_NOW + 125);
    wps_session_maintain();
    EXPECT_EQ((calls{"ops process_event_msg(0, \"end\", 3)"}), recorded_calls());
    EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(mainloop, whoever_goes_on_sending_does_not_put_the_time_out_off)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    answers.on_call = [](const std::string &call) {
        if (call.compare(0, 17, "process_event_msg") == 0)
            send_to(call[18] - '0', "more");
    };
    for (const int band : {0, 1})
        send_to(band, "more");
    set_time(TEST_NOW + 125);
    wps_session_maintain();
    const calls all = recorded_calls();
    for (const char *call :
         {"ops process_event_msg(0, \"more\", 4)", "ops process_event_msg(1, \"more\", 4)"})
        EXPECT_EQ(512u, count_of(all, call)) << "one socket keeps no other out";
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(1));
}

TEST_IN_FRESH_PROCESS(mainloop, an_attempt_in_the_second_at_which_32_bits_end_has_its_125_seconds)
{
    constexpr time_t LAST_SECOND = INT32_MAX;
    start_attempt(KELM_MODE_AP, LAUNCHED);
    time_start = static_cast<int32_t>(LAST_SECOND - 60);
    set_time(LAST_SECOND + 64);
    wps_session_maintain();
    EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(0));
    set_time(LAST_SECOND + 65);
    wps_session_maintain();
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(mainloop, a_clock_that_is_set_back_gives_an_attempt_125_seconds_from_then)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    set_time(TEST_NOW - 3600);
    wps_session_maintain();
    set_time(TEST_NOW - 3600 + 124);
    wps_session_maintain();
    EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(0));
    set_time(TEST_NOW - 3600 + 125);
    wps_session_maintain();
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(mainloop, without_an_attempt_nothing_times_out)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    time_start = TEST_NOW - 1000;
    wps_session_maintain();
    EXPECT_EQ(0, time_start);
    EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(mainloop, the_first_look_at_the_clock_starts_it_and_ends_nothing)
{
    start_attempt(KELM_MODE_AP, LAUNCHED);
    time_start = 0;
    wps_session_maintain();
    EXPECT_EQ(TEST_NOW, time_start);
    EXPECT_EQ(WPS_STATUS_STARTED, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(mainloop, a_repeater_gives_up_the_other_band_when_its_chance_falls_below_15)
{
    start_boost();
    drive_passes(7, 1);  // whatever still waits at the verdict would be heard first
    const calls all = run_loop();
    // 42, 35, 29, 24, 20, 17, 14
    EXPECT_EQ(7u, count_of(all, "ops band_tick(0)"));
    EXPECT_EQ(7u, count_of(all, "ops band_tick(1)"));
    EXPECT_EQ(0u, count_of(all, "ops band_tick(2)"));
    EXPECT_EQ(1u, count_of(all, "/etc/init.d/wps config_wifi"));
    EXPECT_NE(0u, kelm_get_wps_flags(1) & WPS_FLAG_WORKER_DONE);
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_TERMINATE, kelm_flag);
    EXPECT_EQ(0, time_boost);
    EXPECT_EQ(TEST_NOW + 7, time_last_check);
}

TEST_IN_FRESH_PROCESS(mainloop, a_success_that_already_waits_is_heard_before_a_band_is_given_up)
{
    start_boost();
    global_wps_sessions[1].wps_score = 17;  // 14 after the next pass
    answers.on_call = [](const std::string &call) {
        if (call == "process_event_msg(1, \"pass\", 4)") {
            advance_time(1);
            send_to(1, "success");
        }
        if (call == "process_event_msg(1, \"success\", 7)") {
            set_band(1, WPS_STATUS_SUCCESS, STA_LAUNCHED | WPS_FLAG_WORKER_DONE);
            kelm_set_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART);
        }
    };
    send_to(1, "pass");
    (void)run_loop();
    EXPECT_EQ(WPS_STATUS_SUCCESS, kelm_get_status(1));
    EXPECT_NE(0, time_boost) << "given up nevertheless";
}

TEST_IN_FRESH_PROCESS(mainloop, a_step_that_already_waits_keeps_a_band_from_being_given_up)
{
    start_boost();
    global_wps_sessions[1].wps_score = 17;  // 14 after the next pass
    answers.on_call = [](const std::string &call) {
        if (call == "process_event_msg(1, \"pass\", 4)") {
            advance_time(1);
            send_to(1, "step");
            kelm_set_global_wpsflag_bit(KELM_GFLAG_TERMINATE);
        }
        if (call == "process_event_msg(1, \"step\", 4)")
            kelm_push_eap_status(1, EAP_STEP_KEY_SWAPPED);
    };
    send_to(1, "pass");
    (void)run_loop();
    EXPECT_EQ(0u, kelm_get_wps_flags(1) & WPS_FLAG_WORKER_DONE);
    EXPECT_NE(0, time_boost) << "given up nevertheless";
}

TEST_IN_FRESH_PROCESS(mainloop, a_chance_of_exactly_15_goes_on)
{
    struct row {
        int score;
        int next;  // 85 percent of it, cut
        bool given_up;
    };
    const row rows[] = {{19, 16, false}, {18, 15, false}, {17, 14, true}};
    for (const row &each : rows) {
        start_boost();
        global_wps_sessions[1].wps_score = each.score;
        drive_passes(1, 1);
        (void)run_loop();
        EXPECT_EQ(each.next, global_wps_sessions[1].wps_score);
        EXPECT_EQ(each.given_up, (kelm_get_wps_flags(1) & WPS_FLAG_WORKER_DONE) != 0) << each.next;
        EXPECT_EQ(each.given_up ? 0 : TEST_NOW + 1, time_boost) << each.next;
    }
}

// Each from the score of the pass before.
TEST_IN_FRESH_PROCESS(mainloop, the_bands_get_their_tick_before_their_chance_is_looked_at)
{
    start_boost();
    static std::vector<int> scores;
    drive_passes(3, 1);
    answers.on_call = [next = answers.on_call](const std::string &call) {
        if (call == "band_tick(1)")
            scores.push_back(global_wps_sessions[1].wps_score);
        next(call);
    };
    (void)run_loop();
    EXPECT_EQ((std::vector<int>{50, 42, 35}), scores);
}

TEST_IN_FRESH_PROCESS(mainloop, the_last_pass_looks_at_the_chance_before_the_clock)
{
    start_boost();
    set_time(TEST_NOW + WPS_TIMEOUT_S - 1);
    drive_passes(1, 1);
    EXPECT_EQ(1u, count_of(run_loop(), "ops band_tick(1)"));
    const std::string log = console_messages();
    const size_t looked = log.find("[WPS predict 1700000125] 42 percent");
    const size_t timed_out = log.find("wps Timeout, stop sessions[1700000000 - 1700000125]\n");
    ASSERT_NE(std::string::npos, timed_out) << log;
    EXPECT_LT(looked, timed_out) << log;
}

TEST_IN_FRESH_PROCESS(mainloop, the_chance_is_looked_at_once_a_second)
{
    start_boost();
    drive_passes(9, 0);
    const calls all = run_loop();
    EXPECT_EQ(9u, count_of(all, "ops band_tick(1)"));
    EXPECT_EQ(42, global_wps_sessions[1].wps_score) << "one look in nine passes of one second";
    EXPECT_EQ(TEST_NOW, time_boost);
    EXPECT_EQ(TEST_NOW, time_last_check);
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_TERMINATE, kelm_flag);
}

TEST_IN_FRESH_PROCESS(mainloop, the_boost_keeps_the_time_of_its_first_pass)
{
    start_boost();
    drive_passes(3, 1);
    (void)run_loop();
    EXPECT_EQ(TEST_NOW + 1, time_boost);
    EXPECT_EQ(TEST_NOW + 3, time_last_check);
}

TEST_IN_FRESH_PROCESS(mainloop, the_succeeded_band_is_scanned_once)
{
    start_boost();
    drive_passes(3, 1);
    EXPECT_EQ(1u, count_of(run_loop(), "/usr/bin/wifi scan 2g"));

    start_boost();
    kelm_set_wps_flag_bit(0, WPS_FLAG_OVER_SCAN);
    drive_passes(3, 1);
    EXPECT_EQ(0u, count_of(run_loop(), "/usr/bin/wifi scan 2g"));
}

TEST_IN_FRESH_PROCESS(mainloop, before_a_band_has_succeeded_there_is_no_boost)
{
    start_attempt(KELM_MODE_REPEATER, STA_LAUNCHED);
    drive_passes(3, 1);
    const calls all = run_loop();
    EXPECT_EQ(0u, count_of(all, "ops band_tick(1)"));
    EXPECT_EQ(0, time_boost);
    EXPECT_EQ(TEST_NOW + 3, time_last_check);
}

TEST_IN_FRESH_PROCESS(mainloop, the_boost_never_runs_without_an_attempt_or_in_access_point_mode)
{
    for (const int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start_attempt(mode, STA_LAUNCHED | WPS_FLAG_APBSS_ENABLE);
        set_band(0, WPS_STATUS_SUCCESS, kelm_get_wps_flags(0) | WPS_FLAG_WORKER_DONE);
        global_wps_sessions[1].wps_score = 1;
        if (mode == KELM_MODE_REPEATER)
            kelm_clean_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
        drive_passes(3, 1);
        const calls all = run_loop();
        EXPECT_EQ(3u, all.size()) << "packets only";
        EXPECT_EQ(0, time_boost);
        EXPECT_EQ(0, time_last_check);
        EXPECT_EQ(1, global_wps_sessions[1].wps_score);
    }
}
