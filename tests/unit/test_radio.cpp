// SPDX-License-Identifier: ISC
// Radio and device information: bands of the device, enable flags, links, outcomes.
#include "wlan/radio.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/log.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *device_path = "/tmp/device.info";
constexpr uint32_t sta = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t ap = WPS_FLAG_APBSS_ENABLE;
constexpr uint32_t linked = WPS_FLAG_STA_CONNECTED;
constexpr int other_mode = 5;

class radio : public device_test {
protected:
    // Reads the band-set code over a 77; the result in *result.
    static int read_code(int *result)
    {
        int32_t code = 77;
        *result = kelm_get_RFBand(&code);
        return code;
    }

    void set_flags(uint32_t first, uint32_t second, uint32_t third, uint32_t fourth)
    {
        const uint32_t values[] = {first, second, third, fourth};
        for (int index = 0; index < KELM_BAND_COUNT; ++index)
            band(index).wps_flags = values[index];
    }

    static std::vector<uint32_t> all_flags() { return {flags(0), flags(1), flags(2), flags(3)}; }
};

using flag_words = std::vector<uint32_t>;

struct code_case {
    const char *json;
    int code;  // 77: untouched
};

const code_case codes[] = {
    {"{\"RFBand\": 0}", 0},
    {"{\"RFBand\": 5}", 5},
    {"{\"RFBand\": 99}", 99},
    {"{\"RFBand\": -3, \"model\": \"x\"}\n", -3},
    {"{}", 77},
    {"{\"RFBand\": \"2\"}", 77},
    {"{\"RFBand\": true}", 77},
    {"{\"RFBand\": 2.0}", 77},
    {"{\"RFBand\": null}", 77},
    {"{\"RFBand\": [2]}", 77},
    {"{\"rfband\": 2}", 77},
    {"[2]", 77},
    {"2", 77},
};

// Exactly this many bytes of JSON with the code 3 in front.
std::string device_of_size(size_t size)
{
    const std::string start = "{\"RFBand\": 3, \"pad\": \"";
    return start + std::string(size - start.size() - 2, 'x') + "\"}";
}

}  // namespace

// --- The device's bands ---

TEST_F(radio, the_band_set_is_the_integer_that_the_file_names_and_else_stays)
{
    for (const code_case &row : codes) {
        write_file(device_path, row.json);
        int result = -2;
        EXPECT_EQ(row.code, read_code(&result)) << row.json;
        EXPECT_EQ(0, result) << row.json;
    }
    EXPECT_EQ("", log_text());
}

TEST_F(radio, a_missing_device_file_is_told_at_any_level)
{
    kelm_dbg_level = 0;
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Open /tmp/device.info file failed.\n", log_text());
}

TEST_F(radio, a_read_only_device_file_counts_as_missing)
{
    write_file(device_path, "{\"RFBand\": 2}");
    ASSERT_EQ(0, mount(device_path, device_path, nullptr, MS_BIND, nullptr));
    ASSERT_EQ(0, mount(nullptr, device_path, nullptr, MS_BIND | MS_REMOUNT | MS_RDONLY, nullptr));
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(0, umount(device_path));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Open /tmp/device.info file failed.\n", log_text());
}

TEST_F(radio, an_unreadable_device_file_is_told_at_any_level)
{
    // Opens for reading and writing, but its first page is mapped nowhere.
    ASSERT_EQ(0, symlink("/proc/self/mem", device_path));
    kelm_dbg_level = 0;
    const size_t before = open_descriptors();
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> Read device.info file failed.\n", log_text());
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(radio, a_device_file_that_is_no_json_is_told_at_any_level)
{
    kelm_dbg_level = 0;
    const size_t before = open_descriptors();
    for (const char *text : {"", "{", "RFBand=2", "{\"RFBand\": 2"}) {
        write_file(device_path, text);
        int result = 0;
        EXPECT_EQ(77, read_code(&result)) << text;
        EXPECT_EQ(-1, result) << text;
        EXPECT_EQ("> Parse string to json failed.\n", log_text()) << text;
    }
    EXPECT_EQ(before, open_descriptors());
}

TEST_F(radio, no_memory_for_the_device_file_is_told_at_any_level)
{
    write_file(device_path, "{\"RFBand\": 2}");
    kelm_dbg_level = 0;
    fail_next("calloc", {1});
    int result = 0;
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    EXPECT_EQ("> malloc failed.\n", log_text());
}

TEST_F(radio, a_device_file_is_read_in_its_first_2048_bytes_and_not_beyond_its_buffer)
{
    int result = -2;
    write_file(device_path, device_of_size(2048));
    EXPECT_EQ(3, read_code(&result));
    EXPECT_EQ(0, result);
    write_file(device_path, device_of_size(2048) + std::string(4000, '}'));
    EXPECT_EQ(3, read_code(&result));
    EXPECT_EQ(0, result);
    write_file(device_path, device_of_size(2049));
    EXPECT_EQ(77, read_code(&result));
    EXPECT_EQ(-1, result);
    // Two thousand and forty-eight digits: a reader that ran on would find more of them.
    write_file(device_path, std::string(2048, '1'));
    EXPECT_EQ(77, read_code(&result));
}

// --- Enable flags ---

TEST_F(radio, an_access_point_band_needs_its_bit_and_the_global_switch)
{
    struct {
        int enabled;
        int mask;
        flag_words expected;
    } const rows[] = {
        {1, 0, {0, 0, 0, 0}},    {1, 1, {ap, 0, 0, 0}}, {1, 2, {0, ap, 0, 0}},
        {1, 4, {0, 0, ap, 0}},   {1, 8, {0, 0, 0, ap}}, {1, 15, {ap, ap, ap, ap}},
        {7, 3, {ap, ap, 0, 0}},  {0, 15, {0, 0, 0, 0}}, {1, 16, {0, 0, 0, 0}},
        {256, 15, {0, 0, 0, 0}},  // the switch is eight bits wide
    };
    for (const auto &row : rows) {
        start(KELM_MODE_AP, 5);
        set_flags(ap, 0, ap, 0);
        write_wps_conf(row.enabled, row.mask, 0, "off", "");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ(row.expected, all_flags()) << row.enabled << " " << row.mask;
    }
}

TEST_F(radio, access_point_mode_leaves_the_station_switches_and_all_other_flags_alone)
{
    start(KELM_MODE_AP, 5);
    set_flags(~0u, ~ap, sta, 0);
    write_wps_conf(1, 10, 15, "off", "");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ((flag_words{~ap, ~0u, sta, ap}), all_flags());
}

TEST_F(radio, the_global_switch_does_not_count_for_a_repeaters_stations)
{
    for (int enabled : {0, 1}) {
        start(KELM_MODE_REPEATER, 5);
        set_flags(0, sta, 0, sta);
        write_wps_conf(enabled, 15, 5, "off", "");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ((flag_words{sta, 0, sta, 0}), all_flags()) << enabled;
    }
}

TEST_F(radio, a_repeaters_access_points_follow_their_own_switches)
{
    start(KELM_MODE_REPEATER, 5);
    set_flags(0, ap, ap, 0);
    write_wps_conf(1, 0, 1, "off", "");
    write_wifi_conf("apBssEnabled_2g=on\napBssEnabled_5g=off\napBssEnabled_6g=on\n");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ((flag_words{sta | ap, 0, 0, ap}), all_flags());
}

TEST_F(radio, a_band_that_the_device_lacks_is_never_enabled)
{
    for (int mode : {KELM_MODE_AP, KELM_MODE_REPEATER}) {
        start(mode, 1);
        write_wps_conf(1, 15, 15, "off", "");
        write_wifi_conf("apBssEnabled_2g=on\napBssEnabled_5g2=on\n");
        EXPECT_EQ(0, kelm_check_available_status());
        EXPECT_EQ(0u, flags(0));
        EXPECT_NE(0u, flags(1));
        EXPECT_EQ(0u, flags(2));
        EXPECT_EQ(0u, flags(3));
    }
}

TEST_F(radio, missing_settings_disable_everything)
{
    for (int mode : {KELM_MODE_AP, KELM_MODE_REPEATER}) {
        start(mode, 5);
        set_flags(sta | ap, ap, sta, sta | ap);
        EXPECT_EQ(0, kelm_check_available_status());
        const flag_words access_point{sta, 0, sta, sta};
        EXPECT_EQ(mode == KELM_MODE_AP ? access_point : (flag_words{0, 0, 0, 0}), all_flags());
    }
}

TEST_F(radio, the_settings_are_logged_with_a_pin_of_at_most_eight_characters)
{
    start(KELM_MODE_AP, 2);
    write_wps_conf(1, 3, 2, "on", "12345670");
    write_wifi_conf("");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ(
        "> enabled: 1, apWpsAvailable: 3, staWpsAvailable: 2, pinEnabled: 1, "
        "pinCode:12345670\n\n",
        log_text());
    write_wps_conf(0, 0, 0, "off", "123456789");
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ(
        "> enabled: 0, apWpsAvailable: 0, staWpsAvailable: 0, pinEnabled: 0, "
        "pinCode:12345678\n\n",
        log_text());
    kelm_dbg_level = 3;
    EXPECT_EQ(0, kelm_check_available_status());
    EXPECT_EQ("", log_text());
}

TEST_F(radio, an_unknown_run_mode_is_told_at_any_level_and_touches_no_flag)
{
    start(other_mode, 5);
    set_flags(ap, sta, 0, ap | sta);
    write_wps_conf(1, 15, 15, "off", "");
    write_wifi_conf("");
    kelm_dbg_level = 0;
    EXPECT_EQ(-1, kelm_check_available_status());
    EXPECT_EQ((flag_words{ap, sta, 0, ap | sta}), all_flags());
    EXPECT_EQ("> Invalid sys mode: 5.\n", log_text());
}

TEST_F(radio, the_interface_of_a_band_is_its_station_on_a_repeater_and_else_its_access_point)
{
    for (int mode : {KELM_MODE_REPEATER, KELM_MODE_AP}) {
        start(mode, 5);
        set_flags(sta, ap, sta | ap, 0);
        const bool repeater = mode == KELM_MODE_REPEATER;
        EXPECT_EQ(repeater, kelm_get_iface_enabled(0) != 0);
        EXPECT_EQ(!repeater, kelm_get_iface_enabled(1) != 0);
        EXPECT_NE(0, kelm_get_iface_enabled(2));
        EXPECT_EQ(0, kelm_get_iface_enabled(3));
    }
    EXPECT_EQ("", log_text());
}

TEST_F(radio, the_switches_read_as_their_bits)
{
    start(KELM_MODE_AP, 5);
    set_flags(~0u, 0, ~sta, ~ap);
    EXPECT_EQ(1, kelm_get_bss_enabled(0));
    EXPECT_EQ(2, kelm_get_radio_enabled(0));
    EXPECT_EQ(8, kelm_get_sta_connected(0));
    for (int index : {0, 3})
        EXPECT_EQ(1, kelm_get_bss_enabled(index));
    EXPECT_EQ(0, kelm_get_bss_enabled(2));
    EXPECT_EQ(2, kelm_get_radio_enabled(2));
    EXPECT_EQ(0, kelm_get_radio_enabled(3));
    EXPECT_EQ(0, kelm_get_sta_connected(1));
}

TEST_F(radio, in_an_unknown_run_mode_no_interface_is_enabled_and_that_is_told_at_any_level)
{
    start(other_mode, 5);
    set_flags(~0u, ~0u, ~0u, ~0u);
    kelm_dbg_level = 0;
    EXPECT_EQ(0, kelm_get_iface_enabled(0));
    EXPECT_EQ("> Invalid sys mode.\n", log_text());
}

TEST_F(radio, a_band_without_a_session_has_no_link_and_is_logged)
{
    start(KELM_MODE_REPEATER, 5);
    EXPECT_EQ(0, kelm_get_sta_connected(4));
    EXPECT_EQ("> Bad wps session[band 4].\n", log_text());
    kelm_set_status(-1, 2);
    EXPECT_EQ("> Bad wps session[band -1].\n", log_text());
    (void)kelm_get_status(7);
    EXPECT_EQ("> Bad wps session[band 7].\n", log_text());
    kelm_dbg_level = 3;
    EXPECT_EQ(0, kelm_get_sta_connected(4));
    kelm_set_status(4, 2);
    EXPECT_EQ("", log_text());
}

TEST_F(radio, a_band_beyond_the_table_is_taken_modulo_four)
{
    start(KELM_MODE_AP, 1);  // 5g alone
    for (int index : {1, 5, 9, -3})
        EXPECT_EQ(1, kelm_get_band_inited(index)) << index;
    for (int index : {0, 2, 3, 4, 6, 7, -1})
        EXPECT_EQ(0, kelm_get_band_inited(index)) << index;
}

// --- Links ---

TEST_F(radio, a_link_of_each_band_has_its_own_file_and_label)
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

TEST_F(radio, a_link_in_the_making_is_logged_as_connected_but_leaves_the_flag_clear)
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

TEST_F(radio, a_link_file_without_an_integer_status_means_no_link)
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

TEST_F(radio, a_link_file_is_read_in_its_first_512_bytes)
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

TEST_F(radio, a_link_file_that_cannot_be_used_leaves_the_flag_and_is_told_in_detail)
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

TEST_F(radio, a_link_of_a_band_that_the_device_lacks_is_never_noted)
{
    start(KELM_MODE_REPEATER, 0);
    band(1).wps_flags = linked;
    write_link(1, "{\"status\": 1}");
    EXPECT_EQ(0, kelm_backup_sta_connected(1));
    EXPECT_EQ(0u, flags(1));
}

TEST_F(radio, a_link_of_no_band_is_refused_at_once)
{
    start(KELM_MODE_REPEATER, 5);
    kelm_dbg_level = 9;
    for (int index : {4, 5, -1})
        EXPECT_EQ(-1, kelm_backup_sta_connected(index));
    EXPECT_EQ("", log_text());
}

// --- EasyMesh marks ---

TEST_F(radio, the_easymesh_marks_are_kept_per_band_until_they_are_reset)
{
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        set_band_easymesh_wps(index, static_cast<uint32_t>(index + 10));
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        EXPECT_EQ(static_cast<uint32_t>(index + 10), get_band_easymesh_wps(index));
    reset_band_easymesh_wps();
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        EXPECT_EQ(0u, get_band_easymesh_wps(index));
}

TEST_F(radio, an_easymesh_mark_of_no_band_is_ignored)
{
    for (int index : {4, -1, 1000000}) {
        set_band_easymesh_wps(index, 1);
        EXPECT_EQ(0u, get_band_easymesh_wps(index));
    }
}

// --- Security type ---

TEST_F(radio, the_security_type_is_read_afresh_from_the_access_point_block)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=1\nwlanSecType_5g=4\nwlanSecType_6g=5\n");
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ(1u, type);
    EXPECT_EQ(0, _read_ap_secType(1, &type));
    EXPECT_EQ(4u, type);
    EXPECT_EQ(0, _read_ap_secType(2, &type));
    EXPECT_EQ(0u, type);
    EXPECT_EQ(0, _read_ap_secType(3, &type));
    EXPECT_EQ(5u, type);
    write_wifi_conf("wlanSecType_6g=0\n");
    EXPECT_EQ(0, _read_ap_secType(3, &type));
    EXPECT_EQ(0u, type);
}

TEST_F(radio, a_missing_wifi_file_reads_as_an_open_access_point)
{
    uint32_t type = 77;
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ(0u, type);
}

TEST_F(radio, the_security_type_of_no_band_is_refused_and_told_in_detail)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=1\n");
    for (int index : {4, 5, -1}) {
        kelm_dbg_level = 6;
        EXPECT_EQ(-1, _read_ap_secType(index, &type));
        EXPECT_EQ("", log_text());
        kelm_dbg_level = 7;
        EXPECT_EQ(-1, _read_ap_secType(index, &type));
        EXPECT_EQ("> invalid band\n", log_text());
    }
    EXPECT_EQ(77u, type);
}

TEST_F(radio, the_security_type_is_told_in_detail)
{
    uint32_t type = 77;
    write_wifi_conf("wlanSecType_2g=3\n");
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ("", log_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(0, _read_ap_secType(0, &type));
    EXPECT_EQ("> ready to parse type 1\n> wps_parse_ap_config finished.\n> SecType: 3\n",
              log_text());
}

TEST_F(radio, only_type_0_is_no_security)
{
    EXPECT_TRUE(_is_none_sec(0));
    for (uint32_t type : {1u, 2u, 3u, 4u, 5u, 6u, 0x100u, 0xffffffffu})
        EXPECT_FALSE(_is_none_sec(type)) << type;
}

// --- Outcomes ---

TEST_F(radio, an_outcome_is_a_success_for_status_2_alone_and_is_remembered)
{
    start(KELM_MODE_REPEATER, 5);
    for (int code = 0; code <= 12; ++code) {
        for (int index = 0; index < KELM_BAND_COUNT; ++index) {
            band(index).wps_status = code;
            band_worker_succeed[index] = 5;
            EXPECT_EQ(code == 2, kelm_is_worker_succeed(index, false)) << code;
            EXPECT_EQ(code == 2 ? 1 : 0, band_worker_succeed[index]) << code;
        }
    }
    EXPECT_EQ("", log_text());
    EXPECT_EQ(words{}, syslog_lines());
}

TEST_F(radio, a_reported_success_goes_to_both_logs)
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

TEST_F(radio, a_reported_failure_goes_to_both_logs_and_a_timeout_says_so_first)
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

TEST_F(radio, what_is_no_band_has_not_succeeded_and_is_no_news_to_the_user)
{
    start(KELM_MODE_AP, 5);
    for (const int index : {-1, 4}) {
        EXPECT_FALSE(kelm_is_worker_succeed(index, true));
        EXPECT_EQ("> Bad wps session[band " + std::to_string(index) + "].\n", log_text());
        EXPECT_EQ(words{}, syslog_lines());
    }
}

TEST_F(radio, the_system_log_is_written_below_the_console_log_level_too)
{
    start(KELM_MODE_REPEATER, 2);
    kelm_dbg_level = 3;
    band(0).wps_status = WPS_STATUS_SUCCESS;
    EXPECT_TRUE(kelm_is_worker_succeed(0, true));
    EXPECT_FALSE(kelm_is_worker_succeed(1, true));
    EXPECT_EQ("", log_text());
    EXPECT_EQ((words{"3 1 2g WPS succeeded.", "3 0 5g WPS failed."}), syslog_lines());
}
