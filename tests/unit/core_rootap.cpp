// SPDX-License-Identifier: ISC
// Root access point messages, on a platform that knows them.
#include "wlan/rootap.h"

#include <cstring>

#include "core/session.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr char MESSAGE[] = "a message of the platform's own";

class rootap_message : public testing::Test {
protected:
    void SetUp() override
    {
        start_core(KELM_MODE_REPEATER, DUAL_BAND);
        answers.parse_rootap_msg = 0;
        answers.rootap_band = KELM_BAND_5G;
        memset(&answers.rootap, 0x5a, sizeof answers.rootap);  // the SSID without a terminator
    }

    static int process() { return _kelm_worker_process_rootapinfo(MESSAGE, sizeof MESSAGE); }

    static const kelm_rootap_info &record(int band) { return kelm_get_wps_session(band)->rootap; }

    static bool is_empty(int band)
    {
        const kelm_rootap_info empty = {};
        return memcmp(&record(band), &empty, sizeof empty) == 0;
    }
};

}  // namespace

TEST_F(rootap_message, fills_the_record_of_the_band_that_it_names)
{
    EXPECT_EQ(0, process());
    const kelm_rootap_info &stored = record(KELM_BAND_5G);
    EXPECT_EQ(std::string(WPS_SSID_SIZE - 1, 0x5a), stored.ssid);
    EXPECT_EQ(std::string(WPS_BSSID_LEN, 0x5a),
              std::string(reinterpret_cast<const char *>(stored.bssid), WPS_BSSID_LEN));
    EXPECT_EQ(std::string(WPS_UUID_LEN, 0x5a),
              std::string(reinterpret_cast<const char *>(stored.uuid), WPS_UUID_LEN));
    EXPECT_STREQ("", stored.auth);
    EXPECT_TRUE(is_empty(KELM_BAND_2G));
}

TEST_F(rootap_message, is_refused_when_the_platform_refuses_it_or_names_no_band)
{
    answers.parse_rootap_msg = -1;
    EXPECT_EQ(-1, process());
    answers.parse_rootap_msg = 0;
    for (const int band : {KELM_BAND_NONE, KELM_BAND_NONE + 1, -1, 1000}) {
        answers.rootap_band = band;
        EXPECT_EQ(-1, process()) << band;
    }
    EXPECT_TRUE(is_empty(KELM_BAND_2G));
    EXPECT_TRUE(is_empty(KELM_BAND_5G));
}

TEST_F(rootap_message, without_sessions_is_complained_about)
{
    kelm_session *kept = global_wps_sessions;
    global_wps_sessions = nullptr;
    console_text();
    EXPECT_EQ(-1, process());
    EXPECT_EQ("Bad wps session[band 1].\n", console_messages());
    global_wps_sessions = kept;
}
