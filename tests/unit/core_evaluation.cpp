// SPDX-License-Identifier: ISC
// The judgement of an attempt: when it waits, what it publishes, writes back, runs and asks for.
// Each test has a process of its own, since a success stays in the result file's writer.
#include "daemon/evaluation.h"

#include <stdio.h>
#include <string.h>
#include <sys/stat.h>

#include "config/credentials.h"
#include "core/log.h"
#include "core/session.h"
#include "tests/unit/core_fixture.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;

constexpr uint32_t AP = WPS_FLAG_APBSS_ENABLE;
constexpr uint32_t STA = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t LAUNCHED = WPS_FLAG_WORKER_LAUNCH;
constexpr uint32_t DONE = WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE;
constexpr const char *RESULT = "/tmp/wps_result";
constexpr const char *CONFIG_WIFI = "/etc/init.d/wps config_wifi";

void start_attempt(int run_mode, int band_set)
{
    start_core(run_mode, band_set);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
}

// The calls but those that look for the root access point or for an address.
calls judge()
{
    EXPECT_EQ(0, _kelm_worker_done_process());
    calls rest;
    for (const std::string &call : recorded_calls()) {
        if (call.compare(0, 13, "/usr/bin/wifi") != 0 &&
            call.compare(0, 15, "ops get_sta_mac") != 0 &&
            call.compare(0, 23, "ops get_wps_credentials") != 0)
            rest.push_back(call);
    }
    return rest;
}

std::string publication(int action, int status_2g, int status_5g, int status_5g2)
{
    return "ubus send wps '{\"action\":" + std::to_string(action) +
           ",\"2g_status\":" + std::to_string(status_2g) +
           ",\"5g_status\":" + std::to_string(status_5g) +
           ",\"5g2_status\":" + std::to_string(status_5g2) + "}'";
}

bool says(const std::string &text, const std::string &line)
{
    return text.find(line) != std::string::npos;
}

void expect_in_order(const std::string &text, std::initializer_list<const char *> parts)
{
    size_t at = 0;
    for (const char *part : parts) {
        const size_t found = text.find(part, at);
        ASSERT_NE(std::string::npos, found) << part << " is missing or early in\n" << text;
        at = found + 1;
    }
}

// A band whose root access point has mesh data.
void set_mesh(int band, bool supported, const char *nodeid)
{
    kelm_rootap_info &rootap = global_wps_sessions[band].rootap;
    memcpy(rootap.nodeid, nodeid, WPS_NODEID_LEN);
    rootap.support_mesh = supported ? 1 : 0;
    snprintf(rootap.qm_data, sizeof rootap.qm_data, "mesh data");
    snprintf(rootap.ssid, sizeof rootap.ssid, "root %d", band);
}

// Lets the console tell each call of a program that the daemon runs by its bare name.
void tell_calls_of(const std::string &program)
{
    const std::string stand_in = "/mnt/bin/" + program;
    write_file(stand_in, "#!/bin/sh\necho \"ran " + program + " $*\" >/dev/console\nexec /bin/" +
                             program + " \"$@\" 2>/dev/null\n");
    ASSERT_EQ(0, chmod(stand_in.c_str(), 0755));
}

// Scan results in which no look-up finds or waits for anything.
void leave_empty_scan_results()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const char *path = global_wps_sessions[band].scan_path;
        if (path != nullptr)
            write_file(path, "[]");
    }
}

// A repeater's attempt in which 2.4 GHz succeeded and 5 GHz timed out.
void start_half_success(uint32_t flags_of_5g)
{
    start_attempt(KELM_MODE_REPEATER, DUAL_BAND);
    leave_empty_scan_results();
    set_band(0, WPS_STATUS_SUCCESS, STA | AP | DONE);
    set_band(1, WPS_STATUS_TIMEOUT, STA | AP | flags_of_5g);
}

}  // namespace

TEST_IN_FRESH_PROCESS(evaluation, without_an_attempt_nothing_happens)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE);
    kelm_dbg_level = 7;
    EXPECT_EQ(calls{}, judge());
    EXPECT_EQ("kelm[_kelm_worker_done_process:N]: no active wps session running \n\n",
              console_text_without_line_numbers());
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ(0, get_band_worker_succeed(0));
    EXPECT_FALSE(file_exists(RESULT));
}

TEST_IN_FRESH_PROCESS(evaluation, an_access_point_waits_while_a_worker_runs_and_none_has_succeeded)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_TIMEOUT, AP | DONE);
    set_band(1, WPS_STATUS_STARTED, AP | LAUNCHED);
    set_band_worker_succeed(0, 1);
    EXPECT_EQ(calls{}, judge());
    EXPECT_EQ("", console_text());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
    EXPECT_EQ(AP | LAUNCHED, kelm_get_wps_flags(1));
    EXPECT_FALSE(file_exists(RESULT));
    EXPECT_EQ(0, get_band_worker_succeed(0)) << "the one thing that a wait renews";
}

TEST_IN_FRESH_PROCESS(evaluation, a_wait_always_tells_of_worker_4)
{
    for (const int mode : {KELM_MODE_AP, KELM_MODE_REPEATER}) {
        start_attempt(mode, DUAL_BAND);
        set_band(1, WPS_STATUS_STARTED, LAUNCHED);
        kelm_dbg_level = 7;
        EXPECT_EQ(calls{}, judge());
        EXPECT_EQ("Worker[4] process still running, wait...\n\n", console_messages());
    }
}

TEST_IN_FRESH_PROCESS(evaluation, a_repeater_waits_for_all_workers_even_after_a_success)
{
    start_attempt(KELM_MODE_REPEATER, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, STA | DONE);
    set_band(1, WPS_STATUS_STARTED, STA | LAUNCHED);
    EXPECT_EQ(calls{}, judge());
    EXPECT_EQ(1, get_band_worker_succeed(0));
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING, kelm_flag);
}

TEST_IN_FRESH_PROCESS(evaluation, first_success_ends_an_attempt_in_access_point_mode)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_STARTED, AP | LAUNCHED);
    set_band(1, WPS_STATUS_SUCCESS, AP | DONE);
    EXPECT_EQ((calls{"ops wps_cancel()", publication(2, 4, 2, 0)}), judge());
    EXPECT_EQ("1\n", read_file(RESULT));
    EXPECT_EQ(0, get_band_worker_succeed(0));
    EXPECT_EQ(1, get_band_worker_succeed(1));
}

TEST_IN_FRESH_PROCESS(evaluation, a_secured_access_point_is_not_patched_and_the_service_restarts)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE);
    set_band(1, WPS_STATUS_SILENT, 0);
    EXPECT_EQ((calls{"ops wps_cancel()", publication(2, 2, 12, 0)}), judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WPS_RESTART, kelm_flag);
    EXPECT_EQ(WPS_STATUS_SUCCESS, kelm_get_status(0)) << "the work space is not cleaned";
    EXPECT_EQ(AP | DONE, kelm_get_wps_flags(0));
    EXPECT_FALSE(file_exists("/tmp/wpsactive"));
}

TEST_IN_FRESH_PROCESS(evaluation, an_open_access_point_is_patched_and_the_wireless_restarts)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_STARTED, AP | LAUNCHED | WPS_FLAG_NONE_SECURITY);
    set_band(1, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    EXPECT_EQ((calls{"ops patching_back(1, 1, none)", CONFIG_WIFI, "ops wps_cancel()",
                     publication(2, 4, 2, 0)}),
              judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
}

TEST_IN_FRESH_PROCESS(evaluation, two_open_bands_that_succeeded_are_both_patched)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    for (const int band : {0, 1})
        set_band(band, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 1, none)", CONFIG_WIFI,
                     "ops wps_cancel()", publication(2, 2, 2, 0)}),
              judge());
}

TEST_IN_FRESH_PROCESS(evaluation, a_patch_that_failed_is_no_success_and_nothing_is_applied)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    set_band(1, WPS_STATUS_STARTED, AP | LAUNCHED);
    answers.patching_back[0] = -1;
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops wps_cancel()", publication(2, 3, 4, 0)}),
              judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WPS_RESTART, kelm_flag);
    EXPECT_EQ(WPS_STATUS_ERROR, kelm_get_status(0));
    EXPECT_EQ(0, get_band_worker_succeed(0));
    EXPECT_EQ("1\n", read_file(RESULT)) << "that was told before";
    EXPECT_TRUE(says(read_file("/tmp/kelm.info"), "\"wl0_wps_status\": \"error\""));
    expect_in_order(console_messages(),
                    {"echo 1 > /tmp/wps_result\n", "2g wps_monitor succeed.\n",
                     "2g wps_monitor failed.\n", "5g wps_monitor failed.\n", "\twps_status: 3\n",
                     "AP MODE:wps done, send wps msg: 3, 4\n"});
}

TEST_IN_FRESH_PROCESS(evaluation,
                      what_an_event_has_applied_is_a_success_though_a_second_patch_fails)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY | WPS_FLAG_CONFIG_WIFI);
    set_band(1, WPS_STATUS_STARTED, AP | LAUNCHED);
    answers.patching_back[0] = -1;
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops wps_cancel()", publication(2, 2, 4, 0)}),
              judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
    EXPECT_EQ(1, get_band_worker_succeed(0));
    EXPECT_TRUE(says(read_file("/tmp/kelm.info"), "\"wl0_wps_status\": \"success\""));
}

TEST_IN_FRESH_PROCESS(evaluation, of_two_open_bands_each_is_told_by_its_own_patch)
{
    for (const int failing : {0, 1}) {
        start_attempt(KELM_MODE_AP, DUAL_BAND);
        for (const int band : {0, 1})
            set_band(band, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
        answers.patching_back[failing] = -1;
        EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 1, none)",
                         CONFIG_WIFI, "ops wps_cancel()",
                         failing == 0 ? publication(2, 3, 2, 0) : publication(2, 2, 3, 0)}),
                  judge());
        EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
        EXPECT_EQ(0, get_band_worker_succeed(failing));
        EXPECT_EQ(1, get_band_worker_succeed(1 - failing));
    }
}

TEST_IN_FRESH_PROCESS(evaluation, a_success_without_a_launch_is_told_but_not_patched)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | WPS_FLAG_NONE_SECURITY);
    EXPECT_EQ((calls{"ops wps_cancel()", publication(2, 2, 12, 0)}), judge());
    EXPECT_EQ("1\n", read_file(RESULT));
}

TEST_IN_FRESH_PROCESS(evaluation, any_end_but_success_is_published_as_a_time_out)
{
    for (const int status : {3, 4, 8, 1, 11}) {
        start_attempt(KELM_MODE_AP, DUAL_BAND);
        set_band(0, status, AP | DONE);
        set_band(1, WPS_STATUS_SILENT, AP);
        EXPECT_EQ((calls{"ops wps_cancel()", publication(2, 4, 12, 0)}), judge()) << status;
        EXPECT_EQ("0\n", read_file(RESULT));
        EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WPS_RESTART, kelm_flag);
    }
}

TEST_IN_FRESH_PROCESS(evaluation, a_success_on_the_second_5_ghz_radio_is_published_but_no_result)
{
    start_attempt(KELM_MODE_AP, TRI_BAND);
    set_band(0, WPS_STATUS_TIMEOUT, AP | DONE);
    set_band(1, WPS_STATUS_SILENT, AP);
    set_band(2, WPS_STATUS_SUCCESS, AP | DONE);
    EXPECT_EQ((calls{"ops wps_cancel()", publication(2, 4, 12, 2)}), judge());
    EXPECT_EQ("0\n", read_file(RESULT));
}

TEST_IN_FRESH_PROCESS(evaluation, credential_files_of_an_earlier_attempt_are_removed_first)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    write_file(WPS_AP_FILE, "old");
    write_file(WPS_STA_FILE, "old");
    write_file(WPS_AP_FILE_MESH, "stays");
    answers.on_call = [](const std::string &call) {
        if (call.compare(0, 13, "patching_back") != 0)
            return;
        EXPECT_FALSE(file_exists(WPS_AP_FILE));
        EXPECT_FALSE(file_exists(WPS_STA_FILE));
        EXPECT_EQ("1\n", read_file(RESULT)) << "the result is written before";
    };
    EXPECT_EQ(4u, judge().size());
    EXPECT_EQ("", read_file(WPS_AP_FILE));
    EXPECT_EQ("stays", read_file(WPS_AP_FILE_MESH));
    EXPECT_EQ("", read_file("/tmp/wps_wifi_ap.bak")) << "backups are a repeater's";
}

TEST_IN_FRESH_PROCESS(evaluation, an_access_points_outcome_is_told_line_by_line)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    set_band(1, WPS_STATUS_TIMEOUT, AP | DONE);
    set_reply("/etc/init.d/wps", "echo ran >/dev/console\n");
    (void)judge();
    expect_in_order(
        console_text_without_line_numbers(),
        {"]: echo 1 > /tmp/wps_result\n",
         "kelm[_kelm_worker_done_process:N]: All of the worker process finised, now we check the "
         "result of Ap Mode.\n",
         "]: 2g wps_monitor succeed.\n", "]: 5g wps_monitor failed.\n", "]: session [band 0]",
         "]: global_wps_flags: 00000001\n",
         "kelm[_kelm_worker_done_process:N]: AP MODE:wps done, send wps msg: 2, 4\n", "ran\n",
         "kelm[_kelm_worker_done_process:N]: /etc/init.d/wps config_wifi\n",
         "]: Prepare to send message: action 2, status 2 4 0\n"});
}

TEST_IN_FRESH_PROCESS(evaluation, below_level_4_an_access_points_outcome_is_not_told)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    kelm_dbg_level = 3;
    (void)judge();
    EXPECT_EQ("", console_text());
}

TEST_IN_FRESH_PROCESS(evaluation, an_unknown_run_mode_cleans_the_work_space)
{
    start_attempt(7, DUAL_BAND);
    set_band(0, WPS_STATUS_TIMEOUT, AP | DONE);
    set_band(1, WPS_STATUS_STARTED, AP | LAUNCHED);
    dirty = 3;
    write_file(WPS_AP_FILE, "old");
    kelm_dbg_level = 3;
    EXPECT_EQ(calls{}, judge());
    EXPECT_EQ("Invalid system mode.\n", console_messages()) << "at any level, and without a wait";
    EXPECT_EQ("0\n", read_file(RESULT));
    EXPECT_FALSE(file_exists(WPS_AP_FILE));
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ(0u, dirty);
    EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(1));
    EXPECT_EQ(0u, kelm_get_wps_flags(1));
}

TEST_IN_FRESH_PROCESS(evaluation, the_cleaning_is_told_in_detail)
{
    start_attempt(7, DUAL_BAND);
    kelm_dbg_level = 7;
    (void)judge();
    EXPECT_TRUE(says(console_messages(), "Invalid system mode.\nClean kelm workspace...\n\n"));
}

TEST_IN_FRESH_PROCESS(evaluation, an_unknown_run_mode_that_is_to_restart_the_wireless_keeps_all)
{
    start_attempt(7, DUAL_BAND);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART);
    set_band(0, WPS_STATUS_TIMEOUT, AP | DONE);
    (void)judge();
    EXPECT_EQ(0x1001u, kelm_flag);
    EXPECT_EQ(WPS_STATUS_TIMEOUT, kelm_get_status(0));
}

TEST_IN_FRESH_PROCESS(evaluation, a_failed_band_of_a_repeater_takes_the_succeeded_bands_credentials)
{
    start_half_success(DONE);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge())
        << "and a success is not published here";
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
    EXPECT_EQ("1\n", read_file(RESULT));
    EXPECT_EQ("0\n", read_file("/tmp/wpsactive"));
    EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(0));
    EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(1));
    EXPECT_EQ(DONE, kelm_get_wps_flags(1) & DONE) << "the flags stay";
    EXPECT_TRUE(says(console_messages(), "/etc/init.d/wps config_wifi\n"));
}

TEST_IN_FRESH_PROCESS(evaluation, a_repeaters_outcome_is_told_line_by_line)
{
    start_half_success(DONE);
    (void)judge();
    expect_in_order(
        console_text_without_line_numbers(),
        {"]: echo 1 > /tmp/wps_result\n",
         "kelm[_kelm_worker_done_process:N]: All of the worker process finised, now we check the "
         "result of repeater mode.\n",
         "]: 2g wps_monitor succeed.\n", "]: 5g wps_monitor failed.\n",
         "kelm[_kelm_worker_done_process:N]: before NULL patching_back\n"
         "kelm[_kelm_worker_done_process:N]: 1 failed, use 0 STA info write back to 1 AP.\n",
         "]: _kelm_check_corvex finish.", "]: session [band 0]", "]: global_wps_flags: 00000001\n",
         "kelm[_kelm_worker_done_process:N]: /etc/init.d/wps config_wifi\n"});
}

// The page looks for the result first; the service script reads the copies.
TEST_IN_FRESH_PROCESS(evaluation, a_repeaters_files_are_handled_in_their_order)
{
    start_half_success(DONE);
    kelm_set_wps_alive(1);
    tell_calls_of("rm");
    tell_calls_of("cp");
    set_reply("/etc/init.d/wps", "echo \"ran wps $*\" >/dev/console\n");
    answers.on_call = [](const std::string &call) {
        const bool last = call == "wps_cancel()";
        if (!last)
            write_file(WPS_AP_FILE, "{}");
        EXPECT_EQ(last, file_exists(WPS_STA_FILE)) << "the mesh switch goes behind the bands";
        EXPECT_EQ("1\n", read_file("/tmp/wpsactive")) << "the cancel ends the attempt";
    };
    EXPECT_EQ(4u, judge().size());
    EXPECT_EQ("0\n", read_file("/tmp/wpsactive"));
    expect_in_order(
        console_messages(),
        {"echo 1 > /tmp/wps_result\n", "ran rm /tmp/wps_wifi_ap.txt\n",
         "ran rm /tmp/wps_wifi_sta.txt\n", "All of the worker process finised",
         "global_wps_flags: 00000001\n", "ran cp /tmp/wps_wifi_ap.txt /tmp/wps_wifi_ap.bak\n",
         "ran cp /tmp/wps_wifi_sta.txt /tmp/wps_wifi_sta.bak\n", "ran wps config_wifi\n"});
}

TEST_IN_FRESH_PROCESS(evaluation, a_repeater_that_could_store_nothing_publishes_the_failure)
{
    start_half_success(DONE);
    answers.patching_back[0] = answers.patching_back[1] = -1;
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)",
                     publication(2, 3, 4, 0), "ops wps_cancel()"}),
              judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WIFI_RESTART, kelm_flag);
    EXPECT_EQ(0, get_band_worker_succeed(0)) << "the service is restarted, not the wireless";
    EXPECT_EQ("1\n", read_file(RESULT)) << "that was told before";
    EXPECT_FALSE(file_exists(WPS_STA_FILE)) << "the mesh switch is not touched";
    const std::string info = read_file("/tmp/kelm.info");
    EXPECT_TRUE(says(info, "\"wl0_wps_status\": \"error\"")) << info;
    EXPECT_TRUE(says(info, "\"wl1_wps_status\": \"timeout\"")) << info;
    expect_in_order(console_messages(),
                    {"2g wps_monitor succeed.\n", "5g wps_monitor failed.\n",
                     "2g wps_monitor failed.\n", "Gonna to send wps event. status: 2g=3, 5g=4\n"});
}

TEST_IN_FRESH_PROCESS(evaluation, a_band_that_could_borrow_is_applied_though_the_lenders_was_lost)
{
    start_half_success(DONE);
    answers.patching_back[0] = -1;
    answers.on_call = [](const std::string &call) {
        if (call.compare(0, 13, "patching_back") == 0) {
            EXPECT_EQ(WPS_STATUS_SUCCESS, kelm_get_status(0)) << "while others borrow of it";
        }
    };
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)", CONFIG_WIFI,
                     publication(2, 3, 4, 0), "ops wps_cancel()"}),
              judge());
    EXPECT_EQ(0, get_band_worker_succeed(0));
}

TEST_IN_FRESH_PROCESS(evaluation,
                      a_repeaters_band_that_could_not_be_stored_is_told_beside_a_success)
{
    start_half_success(DONE);
    set_band(1, WPS_STATUS_SUCCESS, STA | AP | DONE);
    answers.patching_back[0] = -1;
    answers.on_call = [](const std::string &call) {
        if (call == "wps_cancel()") {
            EXPECT_EQ(
                "{ \"wps_action\": 2, \"wl0_wps_status\": \"error\", \"wl0_wps_sta_mac\": \"\", "
                "\"wl1_wps_status\": \"success\", \"wl1_wps_sta_mac\": \"\" }\n",
                read_file("/tmp/kelm.info"));
        }
    };
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 1, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge())
        << "the success is published by the service, from the info file";
    EXPECT_EQ(0, get_band_worker_succeed(0));
    EXPECT_EQ(1, get_band_worker_succeed(1));
}

TEST_IN_FRESH_PROCESS(evaluation, a_borrower_that_is_switched_off_makes_no_failure_of_a_success)
{
    start_half_success(DONE);
    answers.patching_back[1] = -1;
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge());
    EXPECT_EQ(1, get_band_worker_succeed(0));
    EXPECT_FALSE(file_exists("/tmp/kelm.info")) << "nothing new to tell";
}

TEST_IN_FRESH_PROCESS(evaluation, a_failed_band_that_had_its_link_before_is_left_alone)
{
    start_half_success(DONE | WPS_FLAG_STA_CONNECTED);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", CONFIG_WIFI, "ops wps_cancel()"}), judge());
}

TEST_IN_FRESH_PROCESS(evaluation, a_band_without_access_point_and_launch_is_left_alone)
{
    start_half_success(0);
    set_band(1, WPS_STATUS_SILENT, STA);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", CONFIG_WIFI, "ops wps_cancel()"}), judge());
}

TEST_IN_FRESH_PROCESS(evaluation,
                      a_band_that_was_not_launched_gets_credentials_for_its_access_point)
{
    start_half_success(0);
    set_band(1, WPS_STATUS_SILENT, AP);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge());
}

TEST_IN_FRESH_PROCESS(evaluation, a_band_that_found_the_root_access_point_mirrors_it)
{
    // Launched or not: a band that sat the attempt out may find its root access point too.
    for (const uint32_t worker : {DONE, 0u}) {
        // One link before keeps the marks as they are set here.
        start_half_success(worker | WPS_FLAG_CONFIG_MIRROR | WPS_FLAG_STA_CONNECTED);
        snprintf(global_wps_sessions[1].rootap.ssid, WPS_SSID_SIZE, "Home 5G");
        EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, \"Home 5G\")",
                         CONFIG_WIFI, "ops wps_cancel()"}),
                  judge());
        EXPECT_TRUE(says(console_messages(), "patching wpsCfg[band 1] with rootAP Home 5G\n"));
    }
}

TEST_IN_FRESH_PROCESS(evaluation, a_band_that_succeeded_keeps_its_own_credentials_despite_a_mirror)
{
    start_half_success(DONE);
    set_band(1, WPS_STATUS_SUCCESS, STA | DONE | WPS_FLAG_CONFIG_MIRROR | WPS_FLAG_STA_CONNECTED);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 1, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge());
}

TEST_IN_FRESH_PROCESS(evaluation, a_succeeded_band_that_was_not_launched_is_written_back_as_failed)
{
    start_half_success(DONE);
    set_band(0, WPS_STATUS_SUCCESS, STA | AP);
    EXPECT_EQ((calls{"ops patching_back(0, 0, none)", "ops patching_back(1, 0, none)", CONFIG_WIFI,
                     "ops wps_cancel()"}),
              judge());
    EXPECT_TRUE(says(console_messages(), "0 failed, use 0 STA info write back to 0 AP.\n"));
}

TEST_IN_FRESH_PROCESS(evaluation, a_repeater_in_which_nothing_succeeded_publishes_and_restarts)
{
    start_attempt(KELM_MODE_REPEATER, TRI_BAND);
    set_band(0, WPS_STATUS_TIMEOUT, STA | AP | DONE);
    set_band(1, WPS_STATUS_SILENT, STA | AP);
    set_band(2, WPS_STATUS_ERROR, STA | AP | DONE);
    kelm_dbg_level = 3;
    EXPECT_EQ((calls{publication(2, 4, 12, 4), "ops wps_cancel()"}), judge())
        << "no patch, no config_wifi";
    EXPECT_EQ("Gonna to send wps event. status: 2g=4, 5g=12\n", console_messages())
        << "at any level";
    EXPECT_EQ("0\n", read_file(RESULT));
    EXPECT_EQ("0\n", read_file("/tmp/wpsactive"));
    EXPECT_NE(0u, kelm_flag & KELM_GFLAG_WIFI_RESTART);
    EXPECT_FALSE(file_exists(WPS_STA_FILE)) << "the mesh switch is not touched";
    for (int band = 0; band < 3; ++band) {
        EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(band));
        EXPECT_EQ(0, get_band_worker_succeed(band));
    }
}

TEST_IN_FRESH_PROCESS(evaluation, a_mirror_without_a_succeeded_band_names_band_4)
{
    start_attempt(KELM_MODE_REPEATER, DUAL_BAND);
    set_band(1, WPS_STATUS_TIMEOUT, STA | DONE | WPS_FLAG_CONFIG_MIRROR);
    snprintf(global_wps_sessions[1].rootap.ssid, WPS_SSID_SIZE, "Home");
    const calls all = judge();
    ASSERT_FALSE(all.empty());
    EXPECT_EQ("ops patching_back(1, 4, \"Home\")", all[0]);
}

TEST_IN_FRESH_PROCESS(evaluation,
                      a_success_of_the_second_5_ghz_station_is_applied_and_published_too)
{
    start_attempt(KELM_MODE_REPEATER, TRI_BAND);
    leave_empty_scan_results();
    set_band(0, WPS_STATUS_TIMEOUT, STA | DONE);
    set_band(1, WPS_STATUS_SILENT, STA);
    set_band(2, WPS_STATUS_SUCCESS, STA | DONE);
    EXPECT_EQ((calls{"ops patching_back(0, 2, none)", "ops patching_back(2, 2, none)", CONFIG_WIFI,
                     publication(2, 4, 12, 2), "ops wps_cancel()"}),
              judge());
    EXPECT_EQ("0\n", read_file(RESULT));
}

TEST_IN_FRESH_PROCESS(evaluation, two_5_ghz_radios_share_their_settings_whatever_the_outcome)
{
    for (const int status : {4, 2}) {
        start_attempt(KELM_MODE_REPEATER, TRI_BAND);
        leave_empty_scan_results();
        set_band(0, status, STA | DONE);
        (void)judge();
        EXPECT_EQ("{ \"smart_setting_5g\": \"on\" }\n", read_file(WPS_AP_FILE)) << status;
        EXPECT_TRUE(says(console_messages(), "set common config, smart_setting_5g to on\n"));
    }
    start_half_success(DONE);
    (void)judge();
    EXPECT_EQ("", read_file(WPS_AP_FILE)) << "one 5 GHz radio";
}

TEST_IN_FRESH_PROCESS(evaluation, the_service_finds_copies_of_the_credential_files)
{
    start_half_success(DONE);
    write_file("/tmp/wps_wifi_ap.bak", "older");
    answers.on_call = [](const std::string &call) {
        if (call == "patching_back(0, 0, none)")
            write_file(WPS_AP_FILE, "{ \"ssid_2g\": \"Home\" }\n");
    };
    set_reply("/etc/init.d/wps",
              "cat /tmp/wps_wifi_ap.bak /tmp/wps_wifi_sta.bak >/tmp/seen_by_config_wifi\n");
    (void)judge();
    EXPECT_EQ("{ \"ssid_2g\": \"Home\" }\n", read_file("/tmp/wps_wifi_ap.bak"));
    EXPECT_EQ("{ \"mesh_enable\": \"off\" }\n", read_file("/tmp/wps_wifi_sta.bak"));
    EXPECT_EQ("{ \"ssid_2g\": \"Home\" }\n{ \"mesh_enable\": \"off\" }\n",
              read_file("/tmp/seen_by_config_wifi"));
}

TEST_IN_FRESH_PROCESS(evaluation, a_file_that_was_not_written_has_no_copy_and_an_older_one_goes)
{
    start_half_success(DONE);
    write_file("/tmp/wps_wifi_ap.bak", "older");
    write_file("/tmp/wps_wifi_sta.bak", "older");
    (void)judge();
    EXPECT_EQ("", read_file("/tmp/wps_wifi_ap.bak"));
    EXPECT_EQ("{ \"mesh_enable\": \"off\" }\n", read_file("/tmp/wps_wifi_sta.bak"));
}

constexpr const char *HELD_NAMES[] = {WPS_AP_FILE, WPS_STA_FILE, WPS_AP_BACKUP, WPS_STA_BACKUP};

TEST_IN_FRESH_PROCESS(evaluation, config_wifi_finds_no_name_free_for_others_to_put_a_file_there)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    answers.on_call = [](const std::string &call) {
        if (call.compare(0, 13, "patching_back") == 0)
            write_file(WPS_AP_FILE, "{}");
    };
    set_reply("/etc/init.d/wps", "stat -c '%a %s %n' /tmp/wps_wifi_* >/tmp/seen_by_config_wifi\n");
    (void)judge();
    EXPECT_EQ(
        "600 0 /tmp/wps_wifi_ap.bak\n644 2 /tmp/wps_wifi_ap.txt\n"
        "600 0 /tmp/wps_wifi_sta.bak\n600 0 /tmp/wps_wifi_sta.txt\n",
        read_file("/tmp/seen_by_config_wifi"));
    for (const char *name : HELD_NAMES)
        EXPECT_TRUE(file_exists(name)) << name << ": for the restart's scripts as well";
}

TEST_IN_FRESH_PROCESS(evaluation, what_a_script_may_not_apply_is_no_success)
{
    start_attempt(KELM_MODE_AP, DUAL_BAND);
    set_band(0, WPS_STATUS_SUCCESS, AP | DONE | WPS_FLAG_NONE_SECURITY);
    block_name(WPS_STA_BACKUP);
    EXPECT_EQ(
        (calls{"ops patching_back(0, 0, none)", "ops wps_cancel()", publication(2, 3, 12, 0)}),
        judge());
    EXPECT_EQ(KELM_GFLAG_WPS_RUNNING | KELM_GFLAG_WPS_RESTART, kelm_flag);
    EXPECT_EQ(0, get_band_worker_succeed(0));
}

TEST_IN_FRESH_PROCESS(evaluation, the_copies_are_as_private_as_the_credential_files)
{
    start_half_success(DONE);
    (void)judge();
    EXPECT_EQ(0600, file_mode(WPS_STA_FILE));
    EXPECT_EQ(0600, file_mode("/tmp/wps_wifi_sta.bak"));
}

TEST_IN_FRESH_PROCESS(evaluation, the_mesh_stays_on_for_an_easymesh_root_access_point)
{
    start_half_success(DONE);
    set_band_easymesh_wps(1, 1);
    (void)judge();
    EXPECT_EQ("{ \"mesh_enable\": \"on\" }\n", read_file(WPS_STA_FILE));
    EXPECT_FALSE(says(console_messages(), "_kelm_check_corvex finish"))
        << "the maker's rules are not asked";
}

TEST_IN_FRESH_PROCESS(evaluation, an_easymesh_mark_of_a_band_that_is_not_there_does_not_count)
{
    start_half_success(DONE);
    set_band_easymesh_wps(2, 1);
    (void)judge();
    EXPECT_EQ("{ \"mesh_enable\": \"off\" }\n", read_file(WPS_STA_FILE));
}

TEST_IN_FRESH_PROCESS(evaluation, a_mesh_root_access_point_keeps_the_mesh_on)
{
    start_half_success(DONE);
    set_mesh(0, true, "NODE1");
    (void)judge();
    EXPECT_EQ("{ \"mesh_enable\": \"on\" }\n", read_file(WPS_STA_FILE));
}

TEST_IN_FRESH_PROCESS(evaluation,
                      two_mesh_root_access_points_of_different_nodes_switch_the_mesh_off)
{
    start_half_success(DONE);
    set_mesh(0, true, "NODE1");
    set_mesh(1, true, "NODE2");
    (void)judge();
    EXPECT_EQ("{ \"mesh_enable\": \"off\" }\n", read_file(WPS_STA_FILE));
    EXPECT_TRUE(says(console_messages(), "disable mesh [reason: nodeid not match NODE1/NODE2]\n"));
}

TEST_IN_FRESH_PROCESS(mesh_check, only_launched_bands_with_mesh_data_are_looked_at)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    EXPECT_EQ(0, _kelm_check_corvex());
    set_mesh(0, true, "NODE1");
    EXPECT_EQ(0, _kelm_check_corvex()) << "not launched";
    set_band(0, WPS_STATUS_SUCCESS, DONE);
    EXPECT_EQ(1, _kelm_check_corvex());
    global_wps_sessions[0].rootap.qm_data[0] = '\0';
    EXPECT_EQ(0, _kelm_check_corvex()) << "no mesh data";
    set_mesh(2, true, "NODE1");
    set_band(2, WPS_STATUS_SUCCESS, DONE);
    EXPECT_EQ(0, _kelm_check_corvex()) << "no band of this device";
}

TEST_IN_FRESH_PROCESS(mesh_check, the_answer_is_told_with_a_full_width_colon)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    (void)_kelm_check_corvex();
    EXPECT_EQ(
        "kelm[_kelm_check_corvex:N]: _kelm_check_corvex finish. support_mesh \xef\xbc\x9a"
        "0\n",
        console_text_without_line_numbers());
}

TEST_IN_FRESH_PROCESS(mesh_check, five_characters_of_the_node_ids_must_agree)
{
    struct row {
        const char *nodeids[2];
        int expected;
    };
    const row rows[] = {{{"NODE1", "NODE1"}, 1},
                        {{"NODE1", "NODE2"}, 0},
                        {{"NODE1", "node1"}, 0},
                        {{"NODE1xxx", "NODE1yyy"}, 1}};
    for (const row &each : rows) {
        start_core(KELM_MODE_REPEATER, DUAL_BAND);
        for (const int band : {0, 1}) {
            set_band(band, WPS_STATUS_SUCCESS, DONE);
            set_mesh(band, true, each.nodeids[band]);
        }
        EXPECT_EQ(each.expected, _kelm_check_corvex()) << each.nodeids[1];
    }
}

TEST_IN_FRESH_PROCESS(mesh_check, a_root_access_point_without_mesh_of_the_same_node_is_only_told)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    for (const int band : {0, 1})
        set_band(band, WPS_STATUS_SUCCESS, DONE);
    set_mesh(0, true, "NODE1");
    set_mesh(1, false, "NODE1");
    EXPECT_EQ(1, _kelm_check_corvex());
    EXPECT_EQ(0u, console_text_without_line_numbers().find(
                      "kelm[_kelm_check_corvex:N]:  band : 1  disable mesh "
                      "[reason: root 1 is not supporting mesh]\n"));
}

TEST_IN_FRESH_PROCESS(mesh_check, a_root_access_point_without_mesh_before_any_other_switches_it_off)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    for (const int band : {0, 1})
        set_band(band, WPS_STATUS_SUCCESS, DONE);
    set_mesh(0, false, "NODE1");
    set_mesh(1, true, "NODE1");
    EXPECT_EQ(0, _kelm_check_corvex()) << "no node is kept yet, and that differs from NODE1";
    EXPECT_TRUE(says(console_messages(), "disable mesh [reason: nodeid not match /NODE1]\n"));
}
