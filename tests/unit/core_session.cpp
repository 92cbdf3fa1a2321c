// SPDX-License-Identifier: ISC
// The session table, the flag words, the succeeded band, the dump, the alive marker.
#include "core/session.h"

#include <string.h>
#include <sys/stat.h>

#include "core/log.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class session : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
    void TearDown() override { faults = {}; }
};

uint32_t inited_bands()
{
    uint32_t mask = 0;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (global_wps_sessions[band].wps_inited != 0)
            mask |= 1u << band;
    }
    return mask;
}

// The dump without the lines about the root access points.
std::string dump_without_root_access_points()
{
    dump_wps_session();
    const std::string text = console_messages();
    std::string rest;
    for (size_t at = 0, end; (end = text.find('\n', at)) != std::string::npos; at = end + 1) {
        const std::string line = text.substr(at, end + 1 - at);
        if (line.compare(0, 7, "\trootap") != 0)
            rest += line;
    }
    return rest;
}

}  // namespace

TEST_F(session, a_band_set_code_makes_the_sessions_of_its_bands)
{
    struct row {
        int code;
        uint32_t bands;
    };
    const row rows[] = {{0, 0x1}, {1, 0x2}, {2, 0x3},  {3, 0x7},   {4, 0xb},
                        {5, 0xf}, {6, 0x0}, {-1, 0x0}, {1000, 0x0}};
    for (const row &each : rows) {
        kelm_band_mask = 0;
        EXPECT_EQ(0, kelm_create_session(each.code));
        EXPECT_EQ(each.bands, kelm_band_mask) << "code " << each.code;
        EXPECT_EQ(each.bands, inited_bands()) << "code " << each.code;
    }
}

TEST_F(session, the_24_ghz_band_is_wlan1_and_the_5_ghz_band_wlan0)
{
    kelm_create_session(ALL_BANDS);
    EXPECT_STREQ("wlan1", global_wps_sessions[KELM_BAND_2G].ifName);
    EXPECT_STREQ("wlan0", global_wps_sessions[KELM_BAND_5G].ifName);
    EXPECT_STREQ("", global_wps_sessions[KELM_BAND_5G2].ifName);
    EXPECT_STREQ("", global_wps_sessions[KELM_BAND_6G].ifName);
}

TEST_F(session, each_band_has_its_priority_and_its_scan_result)
{
    kelm_create_session(ALL_BANDS);
    const int32_t priorities[] = {10, 20, 20, 30};
    const char *const paths[] = {"/tmp/wifi_scan_2g.result", "/tmp/wifi_scan_5g.result",
                                 "/tmp/wifi_scan_5g2.result", "/tmp/wifi_scan_6g.result"};
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        EXPECT_EQ(priorities[band], global_wps_sessions[band].wps_priority) << band;
        EXPECT_STREQ(paths[band], global_wps_sessions[band].scan_path) << band;
    }
}

TEST_F(session, a_band_outside_the_set_has_a_record_of_zeros)
{
    kelm_band_mask = 0;
    kelm_create_session(ONLY_5G);
    EXPECT_STREQ("wlan0", global_wps_sessions[KELM_BAND_5G].ifName);
    const kelm_session zeros = {};
    for (const int band : {KELM_BAND_2G, KELM_BAND_5G2, KELM_BAND_6G})
        EXPECT_EQ(0, memcmp(&zeros, &global_wps_sessions[band], sizeof zeros)) << band;
}

TEST_F(session, a_second_creation_clears_the_table_and_only_adds_bands)
{
    set_band(KELM_BAND_2G, WPS_STATUS_SUCCESS, WPS_FLAG_WORKER_DONE);
    EXPECT_EQ(0, kelm_create_session(3));
    EXPECT_EQ(0x7u, inited_bands());
    EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(KELM_BAND_2G));
    EXPECT_EQ(0u, kelm_get_wps_flags(KELM_BAND_2G));
    EXPECT_EQ(0, kelm_create_session(ONLY_2G));
    EXPECT_EQ(0x7u, inited_bands());
}

TEST_F(session, without_memory_there_are_no_sessions_and_the_accessors_say_so)
{
    faults.calloc = true;
    const int result = kelm_create_session(DUAL_BAND);
    faults.calloc = false;
    EXPECT_EQ(-1, result);
    EXPECT_EQ(nullptr, kelm_get_wps_session(0));
    EXPECT_EQ(0, kelm_get_band_inited(0));
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_succeed_band(KELM_BAND_NONE));
    EXPECT_EQ(1, kelm_is_worker_done(0));
    EXPECT_EQ("Bad wps session[band 0].\n", console_messages());
    kelm_clean_wksp();
    kelm_mark_launched_done();
}

TEST_F(session, a_record_knows_its_band_by_its_place)
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        EXPECT_EQ(&global_wps_sessions[band], kelm_get_wps_session(band));
        EXPECT_EQ(band, kelm_get_bandtype_by_session(&global_wps_sessions[band]));
    }
    const kelm_session stranger = {};
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_bandtype_by_session(&stranger));
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_bandtype_by_session(nullptr));
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_bandtype_by_session(global_wps_sessions + 4));
}

TEST_F(session, asking_for_a_record_that_is_not_there_logs_nothing)
{
    for (const int band : {-1, 4, 5, 1 << 30})
        EXPECT_EQ(nullptr, kelm_get_wps_session(band)) << band;
    EXPECT_EQ("", console_text());
}

TEST_F(session, whether_a_band_is_there_is_asked_modulo_four)
{
    kelm_band_mask = 0;
    kelm_create_session(ONLY_5G);
    EXPECT_EQ(1, kelm_get_band_inited(1));
    EXPECT_EQ(1, kelm_get_band_inited(5));
    EXPECT_EQ(0, kelm_get_band_inited(0));
    EXPECT_EQ(0, kelm_get_band_inited(4));
}

TEST_F(session, setting_and_clearing_global_flags_gives_the_new_word)
{
    EXPECT_EQ(0x1u, kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING));
    EXPECT_EQ(0x1001u, kelm_set_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART));
    EXPECT_EQ(0x1000u, kelm_get_global_wpsflag_bit(0xff00));
    EXPECT_EQ(0u, kelm_get_global_wpsflag_bit(KELM_GFLAG_TERMINATE));
    EXPECT_EQ(0x1000u, kelm_clean_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING));
    EXPECT_EQ(0x1000u, kelm_clean_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING));
    EXPECT_EQ(0x1000u, kelm_flag);
}

TEST_F(session, flags_of_a_band_are_set_cleared_and_reset)
{
    kelm_set_wps_flag_bit(1, 0x30);
    kelm_set_wps_flag_bit(1, 0x02);
    EXPECT_EQ(0x32u, kelm_get_wps_flags(1));
    kelm_clean_wps_flag_bit(1, 0x12);
    EXPECT_EQ(0x20u, kelm_get_wps_flags(1));
    EXPECT_EQ(0u, kelm_get_wps_flags(0));
    kelm_reset_wps_flags(1);
    EXPECT_EQ(0u, kelm_get_wps_flags(1));
}

TEST_F(session, every_accessor_logs_a_bad_band_and_reads_as_nothing)
{
    struct row {
        const char *name;
        void (*call)(int band);
    };
    const row rows[] = {
        {"kelm_get_wps_flags", [](int band) { EXPECT_EQ(0u, kelm_get_wps_flags(band)); }},
        {"kelm_reset_wps_flags", [](int band) { kelm_reset_wps_flags(band); }},
        {"kelm_set_wps_flag_bit", [](int band) { kelm_set_wps_flag_bit(band, 1); }},
        {"kelm_clean_wps_flag_bit", [](int band) { kelm_clean_wps_flag_bit(band, 1); }},
        {"kelm_set_status", [](int band) { kelm_set_status(band, 2); }},
        {"kelm_get_status", [](int band) { EXPECT_EQ(0, kelm_get_status(band)); }},
        {"kelm_is_worker_done", [](int band) { EXPECT_EQ(1, kelm_is_worker_done(band)); }},
        {"kelm_set_worker_done", [](int band) { kelm_set_worker_done(band); }},
    };
    for (const row &each : rows) {
        for (const int band : {4, -1}) {
            kelm_dbg_level = 4;
            each.call(band);
            EXPECT_EQ("kelm[" + std::string(each.name) + ":N]: Bad wps session[band " +
                          std::to_string(band) + "].\n",
                      console_text_without_line_numbers());
            kelm_dbg_level = 3;
            each.call(band);
            EXPECT_EQ("", console_text()) << each.name;
        }
    }
}

TEST_F(session, only_a_launched_worker_that_has_not_ended_is_not_done)
{
    struct row {
        uint32_t flags;
        int done;
    };
    const row rows[] = {{0, 1}, {0x10, 0}, {0x30, 1}, {0x20, 1}, {0x3df, 0}, {0x3ef, 1}};
    for (const row &each : rows) {
        set_band(1, WPS_STATUS_STARTED, each.flags);
        EXPECT_EQ(each.done, kelm_is_worker_done(1)) << std::hex << each.flags;
    }
}

TEST_F(session, marking_a_worker_done_tells_the_flags_before_the_mark)
{
    set_band(1, WPS_STATUS_STARTED, 0x12);
    kelm_set_worker_done(1);
    EXPECT_EQ("wps session done [band 1] [kelm_flags: 0x00000012].\n", console_messages());
    EXPECT_EQ(0x32u, kelm_get_wps_flags(1));
    EXPECT_EQ(0u, kelm_get_wps_flags(0));
}

TEST_F(session, only_launched_bands_of_the_device_are_marked_done_together)
{
    set_band(0, WPS_STATUS_STARTED, WPS_FLAG_WORKER_LAUNCH);
    set_band(1, WPS_STATUS_SILENT, WPS_FLAG_APBSS_ENABLE);
    set_band(2, WPS_STATUS_STARTED, WPS_FLAG_WORKER_LAUNCH);
    kelm_mark_launched_done();
    EXPECT_EQ(WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE, kelm_get_wps_flags(0));
    EXPECT_EQ(WPS_FLAG_APBSS_ENABLE, kelm_get_wps_flags(1));
    EXPECT_EQ(WPS_FLAG_WORKER_LAUNCH, kelm_get_wps_flags(2)) << "no band of this device";
}

TEST_F(session, the_succeeded_band_with_the_highest_priority_counts)
{
    struct row {
        uint32_t succeeded;
        int exclude;
        int expected;
    };
    const row rows[] = {
        {0x0, 4, 4}, {0x1, 4, 0}, {0x2, 4, 1}, {0x3, 4, 1}, {0x6, 4, 1},  // 5g and 5g2 rank alike
        {0x4, 4, 2}, {0xf, 4, 3}, {0x9, 4, 3}, {0x3, 1, 0}, {0x6, 1, 2},   {0x2, 1, 4},
        {0xf, 3, 1}, {0x6, 2, 1}, {0x8, 3, 4}, {0xf, 5, 3}, {0xf, 100, 3},
    };
    kelm_create_session(ALL_BANDS);
    for (const row &each : rows) {
        for (int band = 0; band < KELM_BAND_COUNT; ++band) {
            const bool succeeded = (each.succeeded & (1u << band)) != 0;
            kelm_set_status(band, succeeded ? WPS_STATUS_SUCCESS : WPS_STATUS_TIMEOUT);
        }
        EXPECT_EQ(each.expected, kelm_get_succeed_band(each.exclude))
            << "succeeded " << each.succeeded << " without " << each.exclude;
    }
}

TEST_F(session, band_0_cannot_be_excluded)
{
    kelm_set_status(0, WPS_STATUS_SUCCESS);
    EXPECT_EQ(0, kelm_get_succeed_band(0));
}

TEST_F(session, a_band_that_the_device_has_not_does_not_count_as_succeeded)
{
    global_wps_sessions[2].wps_status = WPS_STATUS_SUCCESS;
    global_wps_sessions[2].wps_priority = 99;
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_succeed_band(KELM_BAND_NONE));
}

TEST_F(session, a_succeeded_band_without_a_priority_does_not_count)
{
    kelm_set_status(1, WPS_STATUS_SUCCESS);
    global_wps_sessions[1].wps_priority = 0;
    EXPECT_EQ(KELM_BAND_NONE, kelm_get_succeed_band(KELM_BAND_NONE));
}

TEST_F(session, the_alive_marker_holds_the_value_alone)
{
    kelm_set_wps_alive(12345);
    EXPECT_EQ("12345\n", read_file("/tmp/wpsactive"));
    kelm_set_wps_alive(0);
    EXPECT_EQ("0\n", read_file("/tmp/wpsactive"));
    EXPECT_EQ("", console_text());
}

TEST_F(session, an_alive_marker_that_cannot_be_made_is_told_at_any_level)
{
    block_name("/tmp/wpsactive");
    kelm_dbg_level = -5;
    kelm_set_wps_alive(1);
    EXPECT_EQ(
        "kelm[kelm_replace_file:N]: /tmp/wpsactive: not written: Device or resource busy\n"
        "kelm[kelm_set_wps_alive:N]: create /tmp/wpsactive fail\n",
        console_text_without_line_numbers());
}

TEST_F(session, cleaning_the_work_space_leaves_nothing_done)
{
    set_band(0, WPS_STATUS_SUCCESS, 0x3ff);
    set_band(1, WPS_STATUS_TIMEOUT, 0x3ff);
    set_band(2, WPS_STATUS_SILENT, 0x1);
    kelm_flag = 0xffffffff;
    kelm_count_credentials();
    kelm_count_credentials();
    EXPECT_EQ(2u, dirty);
    kelm_clean_wksp();
    for (const int band : {0, 1}) {
        EXPECT_EQ(WPS_STATUS_IDLE, kelm_get_status(band));
        EXPECT_EQ(0u, kelm_get_wps_flags(band));
    }
    EXPECT_EQ(WPS_STATUS_SILENT, kelm_get_status(2)) << "no band of this device";
    EXPECT_EQ(0u, kelm_flag);
    EXPECT_EQ(0u, dirty);
}

TEST_F(session, before_an_attempt_only_settings_and_replaced_settings_are_remembered)
{
    constexpr uint32_t LASTING = WPS_FLAG_STABSS_ENABLE | WPS_FLAG_APBSS_ENABLE |
                                 WPS_FLAG_NONE_SECURITY | WPS_FLAG_CONFIG_WIFI;
    const struct {
        int status;
        bool keep_silence;
        int after;
    } rows[] = {
        {WPS_STATUS_SUCCESS, true, 0}, {WPS_STATUS_OVERLAP, true, 0},
        {WPS_STATUS_TIMEOUT, true, 0}, {WPS_STATUS_STARTED, false, 0},
        {WPS_STATUS_SILENT, false, 0}, {WPS_STATUS_SILENT, true, 12},
    };
    for (const auto &row : rows) {
        start_core(KELM_MODE_AP, DUAL_BAND);
        for (int band = 0; band < KELM_BAND_COUNT; ++band) {
            set_band(band, row.status, 0xFFFFFFFFu);
            kelm_session &left = global_wps_sessions[band];
            memset(&left.rootap, 'x', sizeof left.rootap);
            left.rootap_valid = 1;
            snprintf(left.enrollee_mac, sizeof left.enrollee_mac, "02:00:00:00:07:00");
            snprintf(left.ifName, sizeof left.ifName, "name%d", band);
        }
        kelm_flag = 0x5;
        time_boost = 7;
        kelm_forget_attempt(row.keep_silence);
        const kelm_rootap_info unknown = {};
        for (const int band : {0, 1}) {
            const kelm_session &fresh = global_wps_sessions[band];
            EXPECT_EQ(row.after, fresh.wps_status) << row.status;
            EXPECT_EQ(LASTING, fresh.wps_flags);
            EXPECT_EQ(0, memcmp(&unknown, &fresh.rootap, sizeof unknown));
            EXPECT_EQ(0u, fresh.rootap_valid);
            EXPECT_STREQ("", fresh.enrollee_mac);
            EXPECT_EQ("name" + std::to_string(band), fresh.ifName);
            EXPECT_EQ(1u, fresh.wps_inited);
        }
        EXPECT_EQ(0xFFFFFFFFu, global_wps_sessions[2].wps_flags) << "no band of this device";
        EXPECT_EQ(0x5u, kelm_flag);
        EXPECT_EQ(0, time_boost);
    }
}

TEST_F(session, asking_for_the_wireless_restart_tells_the_new_word_in_detail)
{
    kelm_flag = KELM_GFLAG_WPS_RUNNING;
    kelm_restart_wireless();
    EXPECT_EQ(0x1001u, kelm_flag);
    EXPECT_EQ("", console_text());
    kelm_dbg_level = 7;
    kelm_restart_wireless();
    EXPECT_EQ("kelm[kelm_restart_wireless:N]: kelm_flag: 1001\n",
              console_text_without_line_numbers());
}

TEST_F(session, the_dump_shows_each_band_of_the_device_and_the_global_word)
{
    set_band(0, WPS_STATUS_STARTED, WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_APBSS_ENABLE);
    global_wps_sessions[0].wps_score = 50;
    set_band(1, WPS_STATUS_SILENT, 0);
    kelm_flag = KELM_GFLAG_WPS_RUNNING;
    EXPECT_EQ(
        "session [band 0][ifName wlan1]======================>\n"
        "\twps_status: 11\n"
        "\twps_flags: [WPS_FLAG_APBSS_ENABLE][WPS_FLAG_WORKER_LAUNCH]\n"
        "\twps_priority: 10\n"
        "\twps_score: 00000032\n"
        "\twps_inited: 00000001\n"
        "session [band 1][ifName wlan0]======================>\n"
        "\twps_status: 12\n"
        "\twps_flags: \n"
        "\twps_priority: 20\n"
        "\twps_score: 00000000\n"
        "\twps_inited: 00000001\n"
        "global_wps_flags: 00000001\n",
        dump_without_root_access_points());
}

TEST_F(session, the_dump_shows_eight_flags_in_their_order_and_hides_the_two_youngest)
{
    set_band(0, WPS_STATUS_IDLE, 0xffffffff);
    EXPECT_NE(std::string::npos,
              dump_without_root_access_points().find(
                  "\twps_flags: [WPS_FLAG_STABSS_ENABLE][WPS_FLAG_STAWPS_FAKEUP]"
                  "[WPS_FLAG_APBSS_ENABLE][WPS_FLAG_CONFIG_MIRROR][WPS_FLAG_NONE_SECURITY]"
                  "[WPS_FLAG_STA_CONNECTED][WPS_FLAG_WORKER_LAUNCH][WPS_FLAG_WORKER_DONE]\n"));
    set_band(0, WPS_STATUS_IDLE, WPS_FLAG_CONFIG_WIFI | WPS_FLAG_OVER_SCAN);
    EXPECT_NE(std::string::npos, dump_without_root_access_points().find("\twps_flags: \n"));
}

TEST_F(session, below_level_4_the_dump_says_nothing)
{
    kelm_dbg_level = 3;
    dump_wps_session();
    EXPECT_EQ("", console_text());
}
