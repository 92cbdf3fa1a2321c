// SPDX-License-Identifier: ISC
// What a band's attempt came to.
#include "wlan/verdict.h"

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class verdict : public device_test {};

}  // namespace

TEST_F(verdict, an_outcome_is_a_success_for_status_2_alone_and_is_remembered)
{
    start(KELM_MODE_REPEATER, 5);
    for (int code = 0; code <= 12; ++code) {
        for (int index = 0; index < KELM_BAND_COUNT; ++index) {
            band(index).wps_status = code;
            set_band_worker_succeed(index, 5);
            EXPECT_EQ(code == 2, kelm_is_worker_succeed(index, false)) << code;
            EXPECT_EQ(code == 2 ? 1 : 0, get_band_worker_succeed(index)) << code;
        }
    }
    EXPECT_EQ("", log_text());
    EXPECT_EQ(words{}, syslog_lines());
}

TEST_F(verdict, a_reported_success_goes_to_both_logs)
{
    start(KELM_MODE_REPEATER, 5);
    const char *const names[] = {"2g", "5g", "5g2", "6g"};
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        band(index).wps_status = WPS_STATUS_SUCCESS;
        EXPECT_TRUE(kelm_is_worker_succeed(index, true));
        const std::string name = names[index];
        EXPECT_EQ("> " + name + " wps_monitor succeed.\n", log_text());
        EXPECT_EQ(words{"3 1 " + name + " WPS succeeded."}, syslog_lines());
    }
}

TEST_F(verdict, a_reported_failure_goes_to_both_logs_and_a_timeout_says_so_first)
{
    start(KELM_MODE_REPEATER, 5);
    for (int code : {0, 1, 3, 8, 9, 11, 12}) {
        band(2).wps_status = code;
        EXPECT_FALSE(kelm_is_worker_succeed(2, true));
        EXPECT_EQ("> 5g2 wps_monitor failed.\n", log_text());
        EXPECT_EQ(words{"3 0 5g2 WPS failed."}, syslog_lines());
    }
    band(3).wps_status = WPS_STATUS_TIMEOUT;
    EXPECT_FALSE(kelm_is_worker_succeed(3, true));
    EXPECT_EQ("> 6g wps_monitor failed.\n", log_text());
    EXPECT_EQ((words{"3 0 6g WPS timed out. Failed to receive WPS message from the RootAP.",
                     "3 0 6g WPS failed."}),
              syslog_lines());
}

TEST_F(verdict, what_is_no_band_has_not_succeeded_and_is_no_news_to_the_user)
{
    start(KELM_MODE_AP, 5);
    for (const int index : {-1, 4}) {
        EXPECT_FALSE(kelm_is_worker_succeed(index, true));
        EXPECT_EQ("> Bad wps session[band " + std::to_string(index) + "].\n", log_text());
        EXPECT_EQ(words{}, syslog_lines());
    }
}

TEST_F(verdict, the_system_log_is_written_below_the_console_log_level_too)
{
    start(KELM_MODE_REPEATER, 2);
    kelm_dbg_level = 3;
    band(0).wps_status = WPS_STATUS_SUCCESS;
    EXPECT_TRUE(kelm_is_worker_succeed(0, true));
    EXPECT_FALSE(kelm_is_worker_succeed(1, true));
    EXPECT_EQ("", log_text());
    EXPECT_EQ((words{"3 1 2g WPS succeeded.", "3 0 5g WPS failed."}), syslog_lines());
}
