// SPDX-License-Identifier: ISC
// The readers of configuration without memory: they say so and give nothing, rather than a part.
#include <cstdio>
#include <string>

#include <gtest/gtest.h>

extern "C" {
#include <uci.h>
}

#include "config/conf_tree.h"
#include "config/uci_option.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/run/test.conf";
constexpr const char *NO_ITEM =
    "> wps_hapd_wpasupp_config_fetch_keyvalue: fail to alloc hapd_wpasupp_cfgitem\n";
constexpr const char *REFUSED =
    "> wps_hapd_wpasupp_config_parse: fetch key value fail, return unknow state\n";

class no_memory : public device_test {};

TEST_F(no_memory, a_wifi_daemons_file_is_not_read_without_room_for_its_blocks)
{
    write_file(PATH, "ssid=home\n");
    fail_next("calloc", {1});
    EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_parse(PATH));
    EXPECT_EQ("> Fail to init cfgitem ptr stack\n", log_text());
}

// Without its passphrase a secured network would pass for an open one.
TEST_F(no_memory, a_line_that_is_lost_refuses_the_whole_file)
{
    for (const char *line : {"psk=\"secret\"\n", "network={\n"}) {
        write_file(PATH, std::string("ssid=\"home\"\n") + line);
        fail_next("calloc", {0, 0, 1});  // the blocks, the first line, the second
        EXPECT_EQ(nullptr, wps_hapd_wpasupp_config_parse(PATH)) << line;
        EXPECT_EQ(std::string(NO_ITEM) + REFUSED, log_text()) << line;
    }
}

TEST_F(no_memory, a_line_without_use_is_passed_over_all_the_same)
{
    write_file(PATH, "ssid=\"home\"\n# psk=\nnonsense\n");
    fail_next("calloc", {0, 0, 1});
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse(PATH));
    ASSERT_TRUE(tree);
    EXPECT_STREQ("home", tree->value);
    EXPECT_EQ(nullptr, tree->next);
}

// What the library itself does without memory is its own affair, and differs from one to the next.
TEST_F(no_memory, an_uci_option_counts_as_missing)
{
    write_file("/etc/config/wificommonCfg", "config wifi 'settings'\n\toption mesh_enable 'on'\n");
    ASSERT_TRUE(check_easymesh_enable());
    for (const char *call : {"uci_alloc_context", "uci_load"}) {
        char value[9] = "before";
        fail_next(call, {UCI_ERR_MEM});
        EXPECT_EQ(-1,
                  _get_uci_option("wificommonCfg", "settings", "mesh_enable", value, sizeof value))
            << call;
        EXPECT_STREQ("", value) << call;
        EXPECT_EQ(0,
                  _get_uci_option("wificommonCfg", "settings", "mesh_enable", value, sizeof value))
            << call;
        EXPECT_STREQ("on", value) << call;
    }
}

TEST_F(no_memory, an_uci_option_without_a_context_is_told)
{
    char value[9];
    testing::internal::CaptureStdout();
    fail_next("uci_alloc_context", {UCI_ERR_MEM});
    EXPECT_EQ(-1, _get_uci_option("wificommonCfg", "settings", "mesh_enable", value, sizeof value));
    fflush(stdout);
    EXPECT_EQ("uci alloc context failed.\n", testing::internal::GetCapturedStdout());
}

}  // namespace
