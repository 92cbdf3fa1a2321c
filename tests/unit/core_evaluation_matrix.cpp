// SPDX-License-Identifier: ISC
// The judgement of every combination of two bands' outcomes, with a third band absent, failed or
// through, in each run mode: no band's result may show in another's.
#include "daemon/evaluation.h"

#include "core/session.h"
#include "tests/unit/core_fixture.h"
#include "wlan/verdict.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;

constexpr uint32_t AP = WPS_FLAG_APBSS_ENABLE;
constexpr uint32_t STA = WPS_FLAG_STABSS_ENABLE;
constexpr uint32_t LAUNCHED = WPS_FLAG_WORKER_LAUNCH;
constexpr uint32_t DONE = WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE;
constexpr uint32_t OPEN = WPS_FLAG_NONE_SECURITY;
constexpr int INVALID_MODE = 7;

// How a band stands when the attempt is judged. The silent one serves clients, the one that was
// not launched does not.
struct band_outcome {
    char name;
    int status;
    uint32_t flags;
};

constexpr band_outcome OUTCOMES[] = {
    {'S', WPS_STATUS_SUCCESS, AP | DONE},
    {'F', 3, AP | DONE},
    {'T', WPS_STATUS_TIMEOUT, AP | DONE},
    {'O', 8, AP | DONE},
    {'L', 12, AP},
    {'N', 0, STA},
};

// "1<0": band 1 is patched with what band 0's station learnt.
struct row {
    const char *outcomes;       // of bands 0 and 1
    int code_2g, code_5g;       // published
    int result;                 // in the result file
    const char *open_ap;        // patched when all access points are open
    const char *repeater;       // patched by a repeater with two bands,
    const char *third_failed;   // with a third that failed,
    const char *third_through;  // with a third that succeeded
};

// clang-format off
constexpr row ROWS[] = {
    {"SS", 2, 2, 1, "0<0 1<1", "0<0 1<1", "0<0 1<1 2<1", "0<0 1<1 2<2"},
    {"SF", 2, 4, 1, "0<0", "0<0 1<0", "0<0 1<0 2<0", "0<0 1<2 2<2"},
    {"ST", 2, 4, 1, "0<0", "0<0 1<0", "0<0 1<0 2<0", "0<0 1<2 2<2"},
    {"SO", 2, 4, 1, "0<0", "0<0 1<0", "0<0 1<0 2<0", "0<0 1<2 2<2"},
    {"SL", 2, 12, 1, "0<0", "0<0 1<0", "0<0 1<0 2<0", "0<0 1<2 2<2"},
    {"SN", 2, 12, 1, "0<0", "0<0", "0<0 2<0", "0<0 2<2"},
    {"FS", 4, 2, 1, "1<1", "0<1 1<1", "0<1 1<1 2<1", "0<1 1<1 2<2"},
    {"FF", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"FT", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"FO", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"FL", 4, 12, 0, "", "", "", "0<2 1<2 2<2"},
    {"FN", 4, 12, 0, "", "", "", "0<2 2<2"},
    {"TS", 4, 2, 1, "1<1", "0<1 1<1", "0<1 1<1 2<1", "0<1 1<1 2<2"},
    {"TF", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"TT", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"TO", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"TL", 4, 12, 0, "", "", "", "0<2 1<2 2<2"},
    {"TN", 4, 12, 0, "", "", "", "0<2 2<2"},
    {"OS", 4, 2, 1, "1<1", "0<1 1<1", "0<1 1<1 2<1", "0<1 1<1 2<2"},
    {"OF", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"OT", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"OO", 4, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"OL", 4, 12, 0, "", "", "", "0<2 1<2 2<2"},
    {"ON", 4, 12, 0, "", "", "", "0<2 2<2"},
    {"LS", 12, 2, 1, "1<1", "0<1 1<1", "0<1 1<1 2<1", "0<1 1<1 2<2"},
    {"LF", 12, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"LT", 12, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"LO", 12, 4, 0, "", "", "", "0<2 1<2 2<2"},
    {"LL", 12, 12, 0, "", "", "", "0<2 1<2 2<2"},
    {"LN", 12, 12, 0, "", "", "", "0<2 2<2"},
    {"NS", 12, 2, 1, "1<1", "1<1", "1<1 2<1", "1<1 2<2"},
    {"NF", 12, 4, 0, "", "", "", "1<2 2<2"},
    {"NT", 12, 4, 0, "", "", "", "1<2 2<2"},
    {"NO", 12, 4, 0, "", "", "", "1<2 2<2"},
    {"NL", 12, 12, 0, "", "", "", "1<2 2<2"},
    {"NN", 12, 12, 0, "", "", "", "2<2"},
};
// clang-format on

enum third_band { ABSENT, FAILED, THROUGH };
constexpr struct {
    int band_set;
    char outcome;  // of band 2
    int code;      // as published
} THIRD[] = {{DUAL_BAND, 0, 0}, {TRI_BAND, 'T', 4}, {TRI_BAND, 'S', 2}};

// What the forked process is to judge.
const row *current;
third_band third;
uint32_t security;

const band_outcome &outcome_of(char name)
{
    for (const band_outcome &outcome : OUTCOMES) {
        if (outcome.name == name)
            return outcome;
    }
    ADD_FAILURE() << "no outcome " << name;
    return OUTCOMES[0];
}

void set_outcome(int band, char name)
{
    const band_outcome &outcome = outcome_of(name);
    set_band(band, outcome.status, outcome.flags | security);
}

// An attempt at its end; the scan results are there and hold no network.
void start_attempt(int run_mode)
{
    start_core(run_mode, THIRD[third].band_set);
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING);
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (global_wps_sessions[band].scan_path != nullptr)
            write_file(global_wps_sessions[band].scan_path, "[]");
    }
    set_outcome(0, current->outcomes[0]);
    set_outcome(1, current->outcomes[1]);
    if (third != ABSENT)
        set_outcome(2, THIRD[third].outcome);
}

calls patches(const std::string &text)
{
    calls found;
    for (size_t at = 0; at < text.size(); at += 4)
        found.push_back(std::string("ops patching_back(") + text[at] + ", " + text[at + 2] +
                        ", none)");
    return found;
}

std::string publication()
{
    return "ubus send wps '{\"action\":2,\"2g_status\":" + std::to_string(current->code_2g) +
           ",\"5g_status\":" + std::to_string(current->code_5g) +
           ",\"5g2_status\":" + std::to_string(THIRD[third].code) + "}'";
}

calls judge()
{
    EXPECT_EQ(0, _kelm_worker_done_process());
    calls told;
    for (const std::string &call : recorded_calls()) {
        if (call.find("patching_back") != std::string::npos ||
            call.find("wps_cancel") != std::string::npos || call.compare(0, 5, "/etc/") == 0 ||
            call.compare(0, 5, "ubus ") == 0)
            told.push_back(call);
    }
    return told;
}

void expect_result_and_successes()
{
    EXPECT_EQ(std::to_string(current->result) + "\n", read_file("/tmp/wps_result"));
    EXPECT_EQ(current->outcomes[0] == 'S' ? 1 : 0, get_band_worker_succeed(0));
    EXPECT_EQ(current->outcomes[1] == 'S' ? 1 : 0, get_band_worker_succeed(1));
    EXPECT_EQ(third == THROUGH ? 1 : 0, get_band_worker_succeed(2));
}

// An access point keeps what each band came to.
void expect_bands_kept()
{
    for (const int band : {0, 1}) {
        const band_outcome &outcome = outcome_of(current->outcomes[band]);
        EXPECT_EQ(outcome.status, kelm_get_status(band));
        EXPECT_EQ(outcome.flags | security, kelm_get_wps_flags(band));
    }
}

void judge_open_access_points()
{
    security = OPEN;
    start_attempt(KELM_MODE_AP);
    std::string text = current->open_ap;
    if (third == THROUGH)
        text += text.empty() ? "2<2" : " 2<2";
    calls expected = patches(text);
    const bool patched = !expected.empty();
    if (patched)
        expected.push_back("/etc/init.d/wps config_wifi");
    expected.push_back("ops wps_cancel()");
    expected.push_back(publication());
    EXPECT_EQ(expected, judge());
    EXPECT_EQ(patched ? 0x1001u : 0x3u, kelm_flag);
    expect_result_and_successes();
    expect_bands_kept();
}

void judge_secured_access_points()
{
    security = 0;
    start_attempt(KELM_MODE_AP);
    EXPECT_EQ((calls{"ops wps_cancel()", publication()}), judge());
    EXPECT_EQ(0x3u, kelm_flag);
    expect_result_and_successes();
    expect_bands_kept();
}

void judge_repeater()
{
    security = 0;
    start_attempt(KELM_MODE_REPEATER);
    const char *const texts[] = {current->repeater, current->third_failed, current->third_through};
    calls expected = patches(texts[third]);
    if (!expected.empty())
        expected.push_back("/etc/init.d/wps config_wifi");
    if (current->result == 0)
        expected.push_back(publication());
    expected.push_back("ops wps_cancel()");
    EXPECT_EQ(expected, judge());
    EXPECT_EQ(0x1001u, kelm_flag);
    EXPECT_EQ("0\n", read_file("/tmp/wpsactive"));
    expect_result_and_successes();
    for (const int band : {0, 1, 2})
        EXPECT_EQ(0, kelm_get_status(band));
}

void judge_without_a_run_mode()
{
    security = 0;
    start_attempt(INVALID_MODE);
    EXPECT_EQ(calls{}, judge());
    EXPECT_EQ(0u, kelm_flag);
    expect_result_and_successes();
    for (const int band : {0, 1, 2}) {
        EXPECT_EQ(0, kelm_get_status(band));
        EXPECT_EQ(0u, kelm_get_wps_flags(band));
    }
}

// A success stays in the result file's writer, so each case has a process of its own.
void judge_all(void (*one)())
{
    for (const row &each : ROWS) {
        for (const third_band of : {ABSENT, FAILED, THROUGH}) {
            SCOPED_TRACE(std::string(each.outcomes) + ", third band " + std::to_string(of));
            current = &each;
            third = of;
            run_in_fresh_process(one);
        }
    }
}

// One band runs still; the other and, if there is one, the third stand as the row says.
void expect_wait(int run_mode, int running, bool waits)
{
    start_attempt(run_mode);
    set_band(running, WPS_STATUS_STARTED, AP | LAUNCHED);
    const calls told = judge();
    EXPECT_EQ(waits, told.empty()) << "run mode " << run_mode << ", running band " << running;
    EXPECT_EQ(waits, !file_exists("/tmp/wps_result"));
}

void judge_while_a_band_runs()
{
    security = 0;
    for (const int running : {0, 1}) {
        const bool through = current->outcomes[1 - running] == 'S' || third == THROUGH;
        expect_wait(KELM_MODE_REPEATER, running, true);
        if (!through)
            expect_wait(KELM_MODE_AP, running, true);
    }
}

void judge_access_point_through_while_a_band_runs()
{
    security = 0;
    if (current->outcomes[0] == 'S' || third == THROUGH)
        expect_wait(KELM_MODE_AP, 1, false);
}

}  // namespace

TEST(evaluation_matrix, open_access_points_are_patched_band_by_band)
{
    judge_all(judge_open_access_points);
}

TEST(evaluation_matrix, secured_access_points_are_never_patched)
{
    judge_all(judge_secured_access_points);
}

TEST(evaluation_matrix, a_repeaters_bands_take_their_own_or_the_best_bands_credentials)
{
    judge_all(judge_repeater);
}

TEST(evaluation_matrix, without_a_valid_run_mode_all_is_cleaned)
{
    judge_all(judge_without_a_run_mode);
}

TEST(evaluation_matrix, a_running_band_holds_up_a_repeater_and_an_unsuccessful_access_point)
{
    judge_all(judge_while_a_band_runs);
}

TEST(evaluation_matrix, an_access_point_does_not_wait_for_a_running_band_after_a_success)
{
    judge_all(judge_access_point_through_while_a_band_runs);
}
