// SPDX-License-Identifier: ISC
// The estimate of an attempt's chance: steps, weights, decay, combination of the bands.
#include "wlan/predict.h"

#include "core/log.h"
#include "tests/unit/clock.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr int DUAL_BAND = 2;
constexpr int ALL_BANDS = 5;
constexpr int NO_BAND = 4;

class predict : public device_test {
protected:
    void launch(int index)
    {
        band(index).wps_flags |= WPS_FLAG_WORKER_LAUNCH;
        reset_wps_band_predict_score(index);
    }

    static void set_steps(int index, int before, int now)
    {
        band(index).pre_eap_status = before;
        band(index).eap_status = now;
    }
};

struct step_case {
    int score;
    int before;
    int now;
    int expected;
};

const step_case steps[] = {
    {50, 0, 0, 42},  // no progress: 85 percent, cut
    {50, 0, 1, 52},  // 50 * 105 / 100, cut
    {50, 1, 4, 20},  // refused after a found access point
    {52, 1, 1, 44},    {50, 0, 2, 57},  {50, 0, 3, 62},
    {50, 0, 4, 30},    {40, 4, 5, 62},  // 40 * (75 - 5 + 85) / 100
    {50, 0, 6, 67},    {50, 0, 7, 70},  {50, 0, 8, 72},
    {50, 0, 9, 75},    {50, 0, 10, 77}, {50, 10, 11, 42},  // both weigh 100
    {100, 0, 11, 100},                                     // 155, cut to 100
    {80, 11, 4, 0},                                        // -8, raised to 0
    {0, 0, 11, 0},     {1, 0, 0, 0},    {17, 0, 0, 14},
};

}  // namespace

TEST_F(predict, moves_a_band_by_the_difference_of_the_weights_of_its_two_steps)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    for (const step_case &row : steps) {
        band(KELM_BAND_2G).wps_score = row.score;
        set_steps(KELM_BAND_2G, row.before, row.now);
        EXPECT_EQ(row.expected, get_wps_band_predict_score(KELM_BAND_2G))
            << row.score << ", step " << row.before << " to " << row.now;
        EXPECT_EQ(row.expected, band(KELM_BAND_2G).wps_score);
        EXPECT_EQ(row.now, band(KELM_BAND_2G).pre_eap_status) << "the step is used up";
        EXPECT_EQ(row.now, band(KELM_BAND_2G).eap_status);
    }
}

// Each weight as the detailed line tells it, and what it makes of a score of 100 that came from the
// last step, whose weight is 100.
TEST_F(predict, each_step_has_the_weight_of_the_table)
{
    struct row {
        int step;
        int weight;
        int score;  // weight - 100 + 85, not below 0
    };
    const row rows[] = {
        {0, 30, 15}, {1, 50, 35}, {2, 60, 45}, {3, 70, 55}, {4, 5, 0},     {5, 75, 60},
        {6, 80, 65}, {7, 85, 70}, {8, 90, 75}, {9, 95, 80}, {10, 100, 85}, {11, 100, 85},
    };
    start(KELM_MODE_REPEATER, DUAL_BAND);
    kelm_dbg_level = KELM_LOG_DETAIL;
    ASSERT_EQ(EAP_STEP_COUNT, static_cast<int>(sizeof rows / sizeof rows[0]));
    for (const row &each : rows) {
        band(KELM_BAND_2G).wps_score = 100;
        set_steps(KELM_BAND_2G, EAP_STEP_SUCCESS, each.step);
        console_text();
        EXPECT_EQ(each.score, get_wps_band_predict_score(KELM_BAND_2G)) << each.step;
        EXPECT_TRUE(contains(log_text(), "(85 + (stat[" + std::to_string(each.weight) +
                                             "] - prestat[100]) / 100)\n"))
            << each.step;
    }
}

TEST_F(predict, a_lone_band_without_events_falls_below_the_limit_at_the_seventh_pass)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_5G);
    for (const int expected : {42, 35, 29, 24, 20, 17}) {
        EXPECT_EQ(expected, get_wps_predict_score());
        EXPECT_GE(expected, PREDICT_GIVE_UP_PERCENT);
    }
    EXPECT_EQ(14, get_wps_predict_score());
    EXPECT_LT(14, PREDICT_GIVE_UP_PERCENT);
}

TEST_F(predict, a_step_counts_once_and_decays_like_any_other_afterwards)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_PBC_FOUND);
    EXPECT_EQ(52, get_wps_predict_score());
    EXPECT_EQ(44, get_wps_predict_score());
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_KEY_SWAPPED);
    EXPECT_EQ(46, get_wps_predict_score());  // 44 * (70 - 50 + 85) / 100
}

// With a weight between its neighbours a refused band would look like one that gets on well.
TEST_F(predict, a_refused_band_is_given_up_soon_though_its_step_comes_late_in_the_exchange)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_PBC_FOUND);
    EXPECT_EQ(52, get_wps_predict_score());
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_M2D);
    EXPECT_EQ(20, get_wps_predict_score());  // 52 * 40 / 100
    EXPECT_EQ(17, get_wps_predict_score());
    EXPECT_EQ(14, get_wps_predict_score());
}

TEST_F(predict, two_steps_between_two_passes_count_by_the_last_pair_alone)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_PBC_FOUND);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_KEY_SWAPPED);
    EXPECT_EQ(52, get_wps_predict_score());  // 50 * (70 - 50 + 85) / 100
}

TEST_F(predict, combines_bands_as_independent_chances)
{
    start(KELM_MODE_REPEATER, ALL_BANDS);
    launch(KELM_BAND_2G);
    launch(KELM_BAND_5G);
    EXPECT_EQ(67, get_wps_predict_score());  // 42 + 42 - 17
    EXPECT_EQ(58, get_wps_predict_score());  // 35 + 35 - 12
    launch(KELM_BAND_5G2);
    EXPECT_EQ(71, get_wps_predict_score());  // 29, 29 make 50; 50 + 42 - 21
}

TEST_F(predict, leaves_out_bands_that_are_done_or_were_never_launched)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    launch(KELM_BAND_5G);
    band(KELM_BAND_5G).wps_flags |= WPS_FLAG_WORKER_DONE;
    EXPECT_EQ(42, get_wps_predict_score());
    EXPECT_EQ(50, band(KELM_BAND_5G).wps_score) << "not evaluated either";

    band(KELM_BAND_5G).wps_flags = WPS_FLAG_WORKER_DONE;
    EXPECT_EQ(35, get_wps_predict_score());
    band(KELM_BAND_5G).wps_flags = WPS_FLAG_STABSS_ENABLE;
    EXPECT_EQ(29, get_wps_predict_score());
    band(KELM_BAND_2G).wps_flags |= WPS_FLAG_WORKER_DONE;
    EXPECT_EQ(0, get_wps_predict_score());
}

TEST_F(predict, leaves_out_bands_that_the_device_has_not_got)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    band(KELM_BAND_5G2).wps_flags = WPS_FLAG_WORKER_LAUNCH;
    band(KELM_BAND_5G2).wps_score = 90;
    EXPECT_EQ(42, get_wps_predict_score());
    EXPECT_EQ(90, band(KELM_BAND_5G2).wps_score);
}

TEST_F(predict, bands_without_an_exchange_of_their_own_never_raise_the_chance)
{
    start(KELM_MODE_REPEATER, ALL_BANDS);
    band(KELM_BAND_5G2).wps_flags = WPS_FLAG_STAWPS_FAKEUP;
    launch(KELM_BAND_5G2);
    launch(KELM_BAND_6G);
    launch(KELM_BAND_2G);
    EXPECT_EQ(0, band(KELM_BAND_5G2).wps_score);
    EXPECT_EQ(0, band(KELM_BAND_6G).wps_score);
    for (const int index : {KELM_BAND_5G2, KELM_BAND_6G}) {
        kelm_push_eap_status(index, EAP_STEP_PBC_FOUND);
        kelm_push_eap_status(index, EAP_STEP_SUCCESS);
    }
    EXPECT_EQ(42, get_wps_predict_score());
    EXPECT_EQ(0, band(KELM_BAND_5G2).wps_score);
    EXPECT_EQ(0, band(KELM_BAND_6G).wps_score);
}

TEST_F(predict, a_reset_takes_back_steps_and_score)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    set_steps(KELM_BAND_2G, 3, 8);
    band(KELM_BAND_2G).wps_score = 93;
    reset_wps_band_predict_score(KELM_BAND_2G);
    EXPECT_EQ(50, band(KELM_BAND_2G).wps_score);
    EXPECT_EQ(0, band(KELM_BAND_2G).pre_eap_status);
    EXPECT_EQ(0, band(KELM_BAND_2G).eap_status);
}

TEST_F(predict, a_score_beyond_0_to_100_is_not_stored)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    kelm_push_score(KELM_BAND_2G, 77);
    for (const int refused : {101, -1, 1000, -1000}) {
        kelm_push_score(KELM_BAND_2G, refused);
        EXPECT_EQ(77, band(KELM_BAND_2G).wps_score) << refused;
    }
    for (const int taken : {0, 100}) {
        kelm_push_score(KELM_BAND_2G, taken);
        EXPECT_EQ(taken, band(KELM_BAND_2G).wps_score);
    }
}

TEST_F(predict, a_step_beyond_the_table_is_not_stored)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    set_steps(KELM_BAND_2G, 1, 3);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_COUNT);
    kelm_push_eap_status(KELM_BAND_2G, 1000000);
    EXPECT_EQ(1, band(KELM_BAND_2G).pre_eap_status);
    EXPECT_EQ(3, band(KELM_BAND_2G).eap_status);
}

TEST_F(predict, a_negative_step_freezes_the_band_at_no_chance_until_it_is_pushed_out)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_2G);
    kelm_push_eap_status(KELM_BAND_2G, -1);
    EXPECT_EQ(-1, band(KELM_BAND_2G).eap_status);
    EXPECT_EQ(0, get_wps_band_predict_score(KELM_BAND_2G));
    EXPECT_EQ(50, band(KELM_BAND_2G).wps_score);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_PBC_FOUND);
    EXPECT_EQ(0, get_wps_band_predict_score(KELM_BAND_2G)) << "now the previous one is bad";
    EXPECT_EQ(-1, band(KELM_BAND_2G).pre_eap_status);
    kelm_push_eap_status(KELM_BAND_2G, EAP_STEP_PBC_FOUND);
    EXPECT_EQ(42, get_wps_band_predict_score(KELM_BAND_2G));
}

TEST_F(predict, logs_each_band_in_detail_and_the_sum_always)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    launch(KELM_BAND_5G);
    kelm_push_eap_status(KELM_BAND_5G, EAP_STEP_PBC_FOUND);
    set_time(1700000042);
    kelm_dbg_level = KELM_LOG_DETAIL;
    console_text();
    EXPECT_EQ(52, get_wps_predict_score());
    EXPECT_EQ(
        "kelm[get_wps_band_predict_score:N]: wps predict rate [band1]=52 (newrate[52] = "
        "prerate[50] * (85 + (stat[50] - prestat[30]) / 100)\n"
        "kelm[get_wps_predict_score:N]: *****************************[WPS predict 1700000042] 52 "
        "percent ***********************************\n",
        console_text_without_line_numbers());

    kelm_dbg_level = KELM_LOG_NORMAL;
    EXPECT_EQ(44, get_wps_predict_score());
    EXPECT_EQ(
        "> *****************************[WPS predict 1700000042] 44 percent "
        "***********************************\n",
        log_text());
    kelm_dbg_level = KELM_LOG_NORMAL - 1;
    EXPECT_EQ(37, get_wps_predict_score());
    EXPECT_EQ("", log_text());
}

TEST_F(predict, a_band_without_a_session_changes_nothing_and_has_no_chance)
{
    start(KELM_MODE_REPEATER, DUAL_BAND);
    console_text();
    for (const int bad : {NO_BAND, -1, 1000}) {
        kelm_push_score(bad, 10);
        kelm_push_eap_status(bad, 1);
        EXPECT_EQ("", log_text());
        EXPECT_EQ(0, get_wps_band_predict_score(bad));
        EXPECT_EQ("> Bad wps session[band " + std::to_string(bad) + "].\n", log_text());
        reset_wps_band_predict_score(bad);
        EXPECT_EQ("> Bad wps session[band " + std::to_string(bad) + "].\n", log_text());
    }
}
