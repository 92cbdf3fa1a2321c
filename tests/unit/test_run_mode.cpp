// SPDX-License-Identifier: ISC
// The run mode: what the device's runtime file may say, and what stays when it says nothing.
#include "core/run_mode.h"

#include <sys/stat.h>

#include "core/log.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *path = "/tmp/device_runtime.info";

class run_mode : public device_test {};

struct mode_case {
    const char *json;
    int mode;  // with 1 before
};

const mode_case modes[] = {
    {"{\"mode\": 0}", 0},
    {"{\"mode\": 1}", 1},
    {"{\"mode\": 7}", 7},
    {"{\"mode\": -1}", -1},
    {"{\"other\": 5, \"mode\": 0, \"more\": {}}\n", 0},
};

// All of these are read without complaint and decide nothing.
const char *const without_mode[] = {
    "{}",
    "{\"mode\": \"1\"}",
    "{\"mode\": true}",
    "{\"mode\": 1.0}",
    "{\"mode\": null}",
    "{\"mode\": [1]}",
    "{\"mode\": {\"mode\": 1}}",
    "{\"Mode\": 1}",
    "[1]",
    "1",
};

// Exactly this many bytes, the mode first.
std::string padded(size_t size)
{
    const std::string start = "{\"mode\": 1, \"pad\": \"";
    return start + std::string(size - start.size() - 2, 'x') + "\"}";
}

}  // namespace

TEST_F(run_mode, is_the_integer_that_the_file_names)
{
    for (const mode_case &row : modes) {
        set_run_mode(1);
        write_file(path, row.json);
        EXPECT_EQ(0, kelm_backup_run_mode()) << row.json;
        EXPECT_EQ(row.mode, kelm_get_run_mode()) << row.json;
    }
}

TEST_F(run_mode, a_file_without_an_integer_mode_leaves_it_and_is_no_failure)
{
    for (const char *json : without_mode) {
        for (int before : {0, 1}) {
            set_run_mode(before);
            write_file(path, json);
            EXPECT_EQ(0, kelm_backup_run_mode()) << json;
            EXPECT_EQ(before, kelm_get_run_mode()) << json;
        }
    }
}

TEST_F(run_mode, is_told_at_level_7_and_any_mode_but_0_reads_as_access_point)
{
    kelm_dbg_level = 6;
    ASSERT_EQ(0, kelm_backup_run_mode());
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    set_run_mode(0);
    EXPECT_EQ("> DUT RUNNING AS A SUPER REPEATER!!!\n", log_text());
    set_run_mode(1);
    EXPECT_EQ("> DUT RUNNING AS A SUPER AP!!!\n", log_text());
    set_run_mode(5);
    EXPECT_EQ("> DUT RUNNING AS A SUPER AP!!!\n", log_text());
}

TEST_F(run_mode, a_missing_file_leaves_it_and_fails)
{
    set_run_mode(1);
    clear_tmp();
    EXPECT_EQ(-1, kelm_backup_run_mode());
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, kelm_backup_run_mode());
    EXPECT_EQ("> Error: open /tmp/device_runtime.info failed\n", log_text());
    EXPECT_EQ(1, kelm_get_run_mode());
}

TEST_F(run_mode, an_unreadable_file_leaves_it_and_fails)
{
    set_run_mode(1);
    clear_tmp();
    ASSERT_EQ(0, mkdir(path, 0755));
    EXPECT_EQ(-1, kelm_backup_run_mode());
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, kelm_backup_run_mode());
    EXPECT_EQ("> Error: read /tmp/device_runtime.info failed\n", log_text());
    EXPECT_EQ(1, kelm_get_run_mode());
}

TEST_F(run_mode, broken_json_leaves_it_and_fails)
{
    for (const char *json : {"", "{", "mode=0", "{\"mode\": 0", "null"}) {
        kelm_dbg_level = 4;
        set_run_mode(1);
        write_file(path, json);
        EXPECT_EQ(-1, kelm_backup_run_mode()) << json;
        EXPECT_EQ("", log_text()) << json;
        kelm_dbg_level = 7;
        EXPECT_EQ(-1, kelm_backup_run_mode()) << json;
        EXPECT_EQ("> Error: parse buf to json failed\n", log_text()) << json;
        EXPECT_EQ(1, kelm_get_run_mode()) << json;
    }
}

TEST_F(run_mode, only_the_first_512_bytes_of_the_file_count)
{
    write_file(path, padded(512));
    EXPECT_EQ(0, kelm_backup_run_mode());
    EXPECT_EQ(1, kelm_get_run_mode());
    set_run_mode(0);
    write_file(path, padded(513));
    EXPECT_EQ(-1, kelm_backup_run_mode());
    EXPECT_EQ(0, kelm_get_run_mode());
    write_file(path, padded(512) + "}}} anything");
    EXPECT_EQ(0, kelm_backup_run_mode());
    EXPECT_EQ(1, kelm_get_run_mode());
}

TEST_F(run_mode, nothing_stays_open)
{
    const size_t before = open_descriptors();
    for (const char *json : {"{\"mode\": 1}", "{", ""}) {
        write_file(path, json);
        (void)kelm_backup_run_mode();
    }
    EXPECT_EQ(before, open_descriptors());
}
