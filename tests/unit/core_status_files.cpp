// SPDX-License-Identifier: ISC
// Result and info file, and the texts of the statuses.
#include "ipc/status_files.h"

#include <sys/stat.h>

#include "core/log.h"
#include "core/session.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *RESULT = "/tmp/wps_result";
constexpr const char *INFO = "/tmp/kelm.info";

class status_files : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
    void TearDown() override { faults = {}; }
};

}  // namespace

TEST_F(status_files, each_status_has_its_text)
{
    const char *const texts[] = {"ok",     "cancel", "success", "error",   "timeout",
                                 "cancel", "cancel", "cancel",  "overlap", "cancel",
                                 "cancel", "ok",     "silent"};
    for (int status = 0; status <= 12; ++status)
        EXPECT_STREQ(texts[status], _kelm_status2txt(status)) << status;
    EXPECT_EQ("", console_text());
}

TEST_F(status_files, an_unknown_status_reads_null_and_is_told_at_any_level)
{
    kelm_dbg_level = -1;
    for (const int status : {13, 255, 30000}) {
        EXPECT_STREQ("null", _kelm_status2txt(status));
        EXPECT_EQ("kelm[_kelm_status2txt:N]: invalid status: " + std::to_string(status) + ".\n",
                  console_text_without_line_numbers());
    }
}

TEST_F(status_files, only_the_low_16_bits_of_a_status_count)
{
    EXPECT_STREQ("success", _kelm_status2txt(0x10002));
    EXPECT_STREQ("ok", _kelm_status2txt(0x7fff0000));
    EXPECT_STREQ("timeout", _kelm_status2txt(-65532));
    EXPECT_EQ("", console_text());
    EXPECT_STREQ("null", _kelm_status2txt(0x2000d));
    EXPECT_EQ("invalid status: 13.\n", console_messages());
    EXPECT_STREQ("null", _kelm_status2txt(-1));
}

TEST_IN_FRESH_PROCESS(result_file, a_success_stays_for_the_rest_of_the_attempt)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_update_wps_result_file(1);
    EXPECT_EQ("1\n", read_file(RESULT));
    EXPECT_EQ("echo 1 > /tmp/wps_result\n", console_messages());
    for (const int result : {0, -1, 1}) {
        kelm_update_wps_result_file(result);
        EXPECT_EQ("1\n", read_file(RESULT)) << result;
    }
    EXPECT_EQ("", console_text()) << "nothing is run any more";
}

TEST_IN_FRESH_PROCESS(result_file, a_success_of_a_withdrawn_attempt_does_not_stand_for_the_next_one)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    for (const int next : {-1, 0, 1}) {
        kelm_update_wps_result_file(1);
        kelm_forget_wps_result();
        EXPECT_EQ("1\n", read_file(RESULT)) << "the file itself is left alone";
        kelm_update_wps_result_file(next);
        EXPECT_EQ(std::to_string(next) + "\n", read_file(RESULT));
    }
}

TEST_IN_FRESH_PROCESS(result_file, a_success_is_not_written_again_where_the_file_was_removed)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_update_wps_result_file(1);
    clear_tmp();
    kelm_update_wps_result_file(1);
    EXPECT_FALSE(file_exists(RESULT));
}

TEST_IN_FRESH_PROCESS(result_file, a_failure_or_a_new_attempt_can_become_a_success)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    struct row {
        int result;
        const char *text;
    };
    const row rows[] = {{0, "0\n"}, {-1, "-1\n"}, {-1, "-1\n"}, {0, "0\n"}, {1, "1\n"}};
    for (const row &each : rows) {
        kelm_update_wps_result_file(each.result);
        EXPECT_EQ(each.text, read_file(RESULT));
    }
}

TEST_IN_FRESH_PROCESS(result_file, the_command_is_logged_at_level_4_only)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_update_wps_result_file(-1);
    EXPECT_EQ("kelm[kelm_update_wps_result_file:N]: echo -1 > /tmp/wps_result\n",
              console_text_without_line_numbers());
    kelm_dbg_level = 3;
    kelm_update_wps_result_file(0);
    EXPECT_EQ("", console_text());
    EXPECT_EQ("0\n", read_file(RESULT));
}

TEST_F(status_files, the_info_file_of_a_5_ghz_device_holds_the_keys_of_band_1_alone)
{
    start_core(KELM_MODE_AP, ONLY_5G);
    kelm_update_info_file(1);
    EXPECT_EQ("{ \"wps_action\": 1, \"wl1_wps_status\": \"ok\", \"wl1_wps_sta_mac\": \"\" }\n",
              read_file(INFO));
    EXPECT_EQ((std::vector<std::string>{"ops get_sta_mac(1)"}), recorded_calls());
}

TEST_F(status_files, the_info_file_counts_bands_and_knows_no_6_ghz)
{
    start_core(KELM_MODE_AP, ALL_BANDS);
    kelm_set_status(0, WPS_STATUS_SUCCESS);
    kelm_set_status(1, WPS_STATUS_OVERLAP);
    kelm_set_status(2, WPS_STATUS_SILENT);
    kelm_set_status(3, WPS_STATUS_SUCCESS);
    answers.sta_mac[0] = "02:00:00:00:01:00";
    answers.sta_mac[2] = "\"x\"";
    kelm_update_info_file(2);
    EXPECT_EQ(
        "{ \"wps_action\": 2, \"wl0_wps_status\": \"success\", \"wl0_wps_sta_mac\": "
        "\"02:00:00:00:01:00\", \"wl1_wps_status\": \"overlap\", \"wl1_wps_sta_mac\": \"\", "
        "\"wl2_wps_status\": \"silent\", \"wl2_wps_sta_mac\": \"\\\"x\\\"\" }\n",
        read_file(INFO));
}

TEST_F(status_files, idle_and_in_progress_both_read_ok_in_the_info_file)
{
    kelm_set_status(1, WPS_STATUS_STARTED);
    kelm_update_info_file(1);
    EXPECT_EQ(
        "{ \"wps_action\": 1, \"wl0_wps_status\": \"ok\", \"wl0_wps_sta_mac\": \"\", "
        "\"wl1_wps_status\": \"ok\", \"wl1_wps_sta_mac\": \"\" }\n",
        read_file(INFO));
}

TEST_F(status_files, the_info_file_is_rewritten_whole)
{
    start_core(KELM_MODE_AP, 6);
    write_file(INFO, std::string(5000, 'x'));
    kelm_update_info_file(2);
    EXPECT_EQ("{ \"wps_action\": 2 }\n", read_file(INFO));
}

TEST_F(status_files, an_info_file_that_cannot_be_opened_is_told_at_any_level)
{
    block_name(INFO);
    kelm_dbg_level = 0;
    kelm_update_info_file(2);
    EXPECT_EQ(
        "kelm[kelm_replace_file:N]: /tmp/kelm.info: not written: Device or resource busy\n"
        "kelm[kelm_update_info_file:N]: Open 'kelm.info' file failed.\n",
        console_text_without_line_numbers());
}

TEST_F(status_files, without_memory_the_old_info_file_stays)
{
    struct row {
        bool fault_points::*fault;
        const char *expected;
    };
    const row rows[] = {
        {&fault_points::json_object_new_object, "Create json_object_t failed.\n"},
        {&fault_points::json_object_to_json_string, "Print json_object_t failed.\n"},
    };
    write_file(INFO, "old");
    kelm_dbg_level = 0;
    for (const row &each : rows) {
        faults.*each.fault = true;
        kelm_update_info_file(2);
        faults = {};
        EXPECT_EQ(each.expected, console_messages());
        EXPECT_EQ("old", read_file(INFO));
    }
}
