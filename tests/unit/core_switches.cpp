// SPDX-License-Identifier: ISC
// The environment variables that are switches: what switches on, and what is refused.
#include "core/switches.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include "core/log.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class switches : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
    void TearDown() override
    {
        for (const char *variable :
             {"KELM_FOREGROUND", "KELM_LOG", "KELM_WIFI", "KELM_CREDENTIALS"})
            unsetenv(variable);
        kelm_read_switches();
    }
};

// What the log says of one variable's value.
std::string told(const char *variable, const std::string &value)
{
    setenv(variable, value.c_str(), 1);
    kelm_read_switches();
    kelm_log_to_system_log(false);
    kelm_tell_refused_switches();
    return console_messages();
}

}  // namespace

TEST_F(switches, without_variables_all_is_as_it_was_before_there_were_any)
{
    kelm_read_switches();
    EXPECT_FALSE(kelm_stays_in_foreground());
    EXPECT_FALSE(kelm_takes_credential_events());
    EXPECT_STREQ("/usr/bin/wifi", kelm_wifi_program());
    kelm_tell_refused_switches();
    EXPECT_EQ("", console_text());
}

TEST_F(switches, one_value_switches_on_and_any_other_is_told_and_ignored)
{
    struct row {
        const char *value;
        bool on;
        const char *log;
    };
    const row foreground_rows[] = {
        {"1", true, ""},
        {"", false, ""},
        {"0", false, "KELM_FOREGROUND: not \"1\", ignored\n"},
        {"11", false, "KELM_FOREGROUND: not \"1\", ignored\n"},
        {"yes", false, "KELM_FOREGROUND: not \"1\", ignored\n"},
    };
    for (const row &each : foreground_rows) {
        EXPECT_EQ(each.log, told("KELM_FOREGROUND", each.value)) << each.value;
        EXPECT_EQ(each.on, kelm_stays_in_foreground()) << each.value;
    }
    unsetenv("KELM_FOREGROUND");
    const row credential_rows[] = {
        {"event", true, ""},
        {"", false, ""},
        {"1", false, "KELM_CREDENTIALS: not \"event\", ignored\n"},
        {"Event", false, "KELM_CREDENTIALS: not \"event\", ignored\n"},
        {"events", false, "KELM_CREDENTIALS: not \"event\", ignored\n"},
    };
    for (const row &each : credential_rows) {
        EXPECT_EQ(each.log, told("KELM_CREDENTIALS", each.value)) << each.value;
        EXPECT_EQ(each.on, kelm_takes_credential_events()) << each.value;
    }
    unsetenv("KELM_CREDENTIALS");
    EXPECT_EQ("KELM_LOG: not \"syslog\", ignored\n", told("KELM_LOG", "console"));
    EXPECT_EQ("KELM_LOG: not \"syslog\", ignored\n", told("KELM_LOG", std::string(100000, 'x')));
    EXPECT_EQ("", told("KELM_LOG", ""));
}

TEST_F(switches, the_log_follows_its_switch)
{
    unlink("/dev/log");
    for (const bool on : {true, false}) {
        setenv("KELM_LOG", on ? "syslog" : "", 1);
        kelm_read_switches();
        kelm_log_always("a line\n");
        EXPECT_EQ(on ? "" : "a line\n", console_messages());
    }
}

TEST_F(switches, the_program_that_scans_is_an_absolute_path_of_limited_length)
{
    struct row {
        std::string path;
        std::string word;
    };
    const std::string longest = "/" + std::string(254, 'p');
    const std::string all_quotes = "/" + std::string(254, '\'');
    const row good[] = {
        {"/usr/libexec/kelm/scan", "/usr/libexec/kelm/scan"},
        {"/", "/"},
        {"/tmp/a b", "'/tmp/a b'"},
        {"/tmp/$(reboot)", "'/tmp/$(reboot)'"},
        {"/tmp/a;b", "'/tmp/a;b'"},
        {"/tmp/it's", "'/tmp/it'\\''s'"},
        {"/tmp/a\nb", "'/tmp/a\nb'"},
        {longest, longest},
        {"", "/usr/bin/wifi"},
    };
    for (const row &each : good) {
        EXPECT_EQ("", told("KELM_WIFI", each.path)) << each.path;
        EXPECT_EQ(each.word, kelm_wifi_program());
    }
    EXPECT_EQ("", told("KELM_WIFI", all_quotes));
    EXPECT_EQ(2u + 1u + 254u * 4u, std::string(kelm_wifi_program()).size());
    const std::string bad[] = {"wifi", "./wifi", " /usr/bin/wifi", "/" + std::string(255, 'p'),
                               "/" + std::string(100000, 'p')};
    for (const std::string &each : bad) {
        EXPECT_EQ("KELM_WIFI: no absolute path of at most 255 bytes, ignored\n",
                  told("KELM_WIFI", each));
        EXPECT_STREQ("/usr/bin/wifi", kelm_wifi_program());
    }
}
