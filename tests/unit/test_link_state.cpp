// SPDX-License-Identifier: ISC
// Which stations have their link before an attempt.
#include "wlan/link_state.h"

#include <sys/stat.h>

#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr uint32_t sta = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t linked = WPS_FLAG_STA_CONNECTED;

class link_state : public device_test {
protected:
    static std::vector<uint32_t> all_flags() { return {flags(0), flags(1), flags(2), flags(3)}; }
};

using flag_words = std::vector<uint32_t>;

}  // namespace

TEST_F(link_state, a_link_of_each_band_has_its_own_file_and_label)
{
    const char *const labels[] = {"2G", "5G", "5G2", "6G"};
    const char *const paths[] = {"/tmp/wifi_runtime_info.2g", "/tmp/wifi_runtime_info.5g",
                                 "/tmp/wifi_runtime_info.5g2", "/tmp/wifi_runtime_info.6g"};
    for (int index = 0; index < KELM_BAND_COUNT; ++index) {
        clear_tmp();
        start(KELM_MODE_REPEATER, 5);
        write_file(paths[index], "{\"status\": 1}");
        EXPECT_EQ(0, kelm_backup_sta_connected(index));
        EXPECT_EQ(std::string("> ") + labels[index] + " is connected before WPS\n", log_text());
        flag_words expected{0, 0, 0, 0};
        expected[index] = linked;
        EXPECT_EQ(expected, all_flags());
        write_file(paths[index], "{\"status\": 0}");
        EXPECT_EQ(0, kelm_backup_sta_connected(index));
        EXPECT_EQ(std::string("> ") + labels[index] + " is disconnected before WPS\n", log_text());
        EXPECT_EQ((flag_words{0, 0, 0, 0}), all_flags());
    }
}

TEST_F(link_state, a_link_in_the_making_is_logged_as_connected_but_leaves_the_flag_clear)
{
    for (int value : {2, 3, -1}) {
        start(KELM_MODE_REPEATER, 2);
        band(0).wps_flags = linked | sta;
        write_link(0, "{\"status\": " + std::to_string(value) + "}");
        EXPECT_EQ(0, kelm_backup_sta_connected(0));
        EXPECT_EQ("> 2G is connected before WPS\n", log_text());
        EXPECT_EQ(sta, flags(0));
    }
}

TEST_F(link_state, a_link_file_without_an_integer_status_means_no_link)
{
    for (const char *json : {"{}", "{\"status\": \"1\"}", "{\"status\": true}", "{\"status\": 1.0}",
                             "{\"status\": null}", "[1]", "1"}) {
        start(KELM_MODE_REPEATER, 2);
        band(0).wps_flags = linked | sta;
        write_link(0, json);
        EXPECT_EQ(0, kelm_backup_sta_connected(0)) << json;
        EXPECT_EQ("> 2G is disconnected before WPS\n", log_text()) << json;
        EXPECT_EQ(sta, flags(0)) << json;
    }
}

TEST_F(link_state, a_link_file_is_read_in_its_first_512_bytes)
{
    const std::string link = "{\"status\": 1}";
    start(KELM_MODE_REPEATER, 2);
    for (const size_t size : {511u, 512u}) {
        write_link(0, std::string(size - link.size(), ' ') + link);
        EXPECT_EQ(0, kelm_backup_sta_connected(0)) << size;
    }
    write_link(0, std::string(513 - link.size(), ' ') + link);
    EXPECT_EQ(-1, kelm_backup_sta_connected(0)) << "its last brace is out of reach";
}

TEST_F(link_state, a_link_file_that_cannot_be_used_leaves_the_flag_and_is_told_in_detail)
{
    const struct {
        const char *name;
        void (*make)();
        const char *line;
    } rows[] = {
        {"missing", [] {}, "> Error: open /tmp/wifi_runtime_info.5g failed\n"},
        {"folder", [] { (void)mkdir("/tmp/wifi_runtime_info.5g", 0755); },
         "> Error: read /tmp/wifi_runtime_info.5g failed\n"},
        {"no json", [] { write_file("/tmp/wifi_runtime_info.5g", "{"); },
         "> Error: parse buf to json failed\n"},
        {"too long",
         [] {
             write_file("/tmp/wifi_runtime_info.5g",
                        "{\"status\": 1" + std::string(512, ' ') + "}");
         },
         "> Error: parse buf to json failed\n"},
    };
    const size_t before = open_descriptors();
    for (const auto &row : rows) {
        for (uint32_t flag : {0u, linked}) {
            kelm_dbg_level = 4;
            clear_tmp();
            start(KELM_MODE_REPEATER, 2);
            row.make();
            band(1).wps_flags = flag;
            EXPECT_EQ(-1, kelm_backup_sta_connected(1)) << row.name;
            EXPECT_EQ("", log_text()) << row.name;
            kelm_dbg_level = 7;
            EXPECT_EQ(-1, kelm_backup_sta_connected(1)) << row.name;
            EXPECT_EQ(row.line, log_text()) << row.name;
            EXPECT_EQ(flag, flags(1)) << row.name;
        }
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(link_state, a_link_of_a_band_that_the_device_lacks_is_never_noted)
{
    start(KELM_MODE_REPEATER, 0);
    band(1).wps_flags = linked;
    write_link(1, "{\"status\": 1}");
    EXPECT_EQ(0, kelm_backup_sta_connected(1));
    EXPECT_EQ(0u, flags(1));
}

TEST_F(link_state, a_link_of_no_band_is_refused_at_once)
{
    start(KELM_MODE_REPEATER, 5);
    kelm_dbg_level = 9;
    for (int index : {4, 5, -1})
        EXPECT_EQ(-1, kelm_backup_sta_connected(index));
    EXPECT_EQ("", log_text());
}
