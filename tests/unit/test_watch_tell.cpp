// SPDX-License-Identifier: ISC
// From what was seen to screen and recording: seconds since the press, bands, twice-told things.
#include "watch/bands.h"
#include "watch/tell.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/unit/faults.h"
#include "tests/world/world.h"
#include "watch/outputs.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *RECORD = "/tmp/record.jsonl";
constexpr const char *PRESS = "{ \"gpio\": {\"type\":\"wps\",\"pressed\":1} }";
constexpr const char *STARTED =
    "{ \"wps\": {\"action\":1,\"2g_status\":11,\"5g_status\":0,\"5g2_status\":0} }";
constexpr const char *RESULT =
    "{ \"wps\": {\"action\":2,\"2g_status\":2,\"5g_status\":0,\"5g2_status\":0} }";

struct seen {
    std::string screen;
    std::string errors;
    int status;
};

std::string text_of(const std::string &path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

// What a process of its own prints that opens the outputs and does this. Its clock stands still.
seen outputs_of(const watch_options &options, const std::function<void()> &act, int terminal = -1)
{
    const pid_t child = fork();
    if (child == 0) {
        const int screen = open("/tmp/screen", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        const int errors = open("/tmp/errors", O_WRONLY | O_CREAT | O_TRUNC, 0600);
        (void)dup2(terminal >= 0 ? terminal : screen, STDOUT_FILENO);
        (void)dup2(errors, STDERR_FILENO);
        stop_clocks();
        if (!watch_open_outputs(options))
            leave_process(1);
        act();
        watch_close_outputs();
        leave_process(0);
    }
    int status = -1;
    EXPECT_EQ(waitpid(child, &status, 0), child);
    return {text_of("/tmp/screen"), text_of("/tmp/errors"), WEXITSTATUS(status)};
}

void tell(const char *source, const char *iface, const std::string &text)
{
    watch_tell(source, iface, text.data(), text.size());
}

class told : public ::testing::Test {
protected:
    void SetUp() override { clear_tmp(); }

    std::string screen_of(const std::function<void()> &act)
    {
        return outputs_of(options_, act).screen;
    }

    watch_options options_;
};

}  // namespace

TEST_F(told, seconds_count_from_the_press)
{
    EXPECT_EQ(screen_of([] {
                  tell("hostapd", "wlan1", "wlan1: AP-ENABLED ");
                  tell("bus", "", PRESS);
                  sleep(2);
                  tell("hostapd", "wlan1", "wlan1: WPS-PBC-ACTIVE ");
                  sleep(100);
                  tell("exit", "", "1 daemon 284 status 0");
              }),
              "           hostapd   2.4 GHz  access point is on the air\n"
              "   0.00 s  button             the WPS button is pressed\n"
              "   2.00 s  hostapd   2.4 GHz  waits for a client's push\n"
              " 102.00 s  kelm               run 1 (process 284) ends, status 0\n");
}

// The second is ignored by the daemon, and its seconds go on.
TEST_F(told, a_press_during_an_attempt_begins_no_other)
{
    const std::string text = screen_of([] {
        tell("bus", "", PRESS);
        tell("bus", "", STARTED);
        sleep(5);
        tell("bus", "", PRESS);
        tell("bus", "", RESULT);
        sleep(5);
        tell("bus", "", PRESS);
    });
    EXPECT_NE(text.find("   5.00 s  button "), std::string::npos);
    EXPECT_NE(
        text.find(
            "   5.00 s  kelm               announces: the result (2.4 GHz success, 5 GHz idle)"),
        std::string::npos);
    EXPECT_EQ(text.substr(text.rfind("   0.00 s")),
              "   0.00 s  button             the WPS button is pressed\n");
}

TEST_F(told, an_attempt_that_never_ended_does_not_keep_the_next_press)
{
    EXPECT_NE(screen_of([] {
                  tell("bus", "", PRESS);
                  sleep(151);
                  tell("bus", "", PRESS);
                  sleep(1);
                  tell("hostapd", "wlan0", "wlan0: WPS-TIMEOUT ");
              }).find("   1.00 s  hostapd   5 GHz    stops waiting for clients"),
              std::string::npos);
}

TEST_F(told, an_attempt_whose_request_nobody_saw_counts_from_its_start)
{
    EXPECT_NE(screen_of([] {
                  tell("bus", "", STARTED);
                  sleep(1);
                  tell("bus", "", "{ \"wps_cli\": {\"action\":2,\"method\":1} }");
              }).find("   1.00 s  web page           asks: cancel push-button"),
              std::string::npos);
}

TEST_F(told, what_is_said_twice_is_told_once_but_for_the_button)
{
    EXPECT_EQ(screen_of([] {
                  tell("hostapd", "wlan1", "wlan1: WPS-TIMEOUT ");
                  tell("hostapd", "wlan1", "wlan1: WPS-TIMEOUT ");
                  tell("hostapd", "wlan0", "wlan0: WPS-TIMEOUT ");
                  tell("button", "", "wps pressed");
                  tell("button", "", "wps pressed");
              }),
              "           hostapd   2.4 GHz  stops waiting for clients\n"
              "           hostapd   5 GHz    stops waiting for clients\n"
              "           button             the WPS button goes down\n"
              "           button             the WPS button goes down\n");
}

TEST_F(told, the_command_line_knows_the_bands_best_and_the_sources_last)
{
    options_.bands[0] = {"wlan1=5", 5, "5 GHz"};
    options_.bands[1] = {"ath0=6", 4, "6 GHz"};
    options_.band_count = 2;
    EXPECT_EQ(screen_of([] {
                  watch_set_band("wlan0", "6 GHz");
                  watch_set_band("phy0-ap0", "2.4 GHz");
                  for (const char *iface : {"wlan1", "ath0", "wlan0", "phy0-ap0", "eth7"})
                      tell("hostapd", iface, std::string(iface) + ": WPS-TIMEOUT ");
              }),
              "           hostapd   5 GHz    stops waiting for clients\n"
              "           hostapd   6 GHz    stops waiting for clients\n"
              "           hostapd   5 GHz    stops waiting for clients\n"
              "           hostapd   2.4 GHz  stops waiting for clients\n"
              "           hostapd   eth7     stops waiting for clients\n");
}

TEST_F(told, a_band_that_finds_no_room_costs_nothing)
{
    EXPECT_EQ(screen_of([] {
                  watch_set_band(std::string(40, 'x').c_str(), "5 GHz");
                  watch_set_band("strange", "50 GHz");
                  for (int i = 0; i < 100; ++i)
                      watch_set_band(("ap" + std::to_string(i)).c_str(), "5 GHz");
                  watch_set_band("ap0", "2.4 GHz");
                  for (const char *iface : {"ap0", "ap1", "ap99", "strange"})
                      tell("hostapd", iface, std::string(iface) + ": WPS-TIMEOUT ");
              }),
              "           hostapd   2.4 GHz  stops waiting for clients\n"
              "           hostapd   5 GHz    stops waiting for clients\n"
              "           hostapd   ap99     stops waiting for clients\n"
              "           hostapd   strange  stops waiting for clients\n");
}

TEST_F(told, what_is_waited_for_is_rewritten_on_a_terminal)
{
    int ours = -1;
    int theirs = -1;
    ASSERT_EQ(openpty(&ours, &theirs, nullptr, nullptr, nullptr), 0);
    setenv("TERM", "xterm", 1);
    setenv("NO_COLOR", "1", 1);
    (void)outputs_of(
        options_,
        [] {
            watch_waiting("a press");
            watch_tick();
            tell("bus", "", PRESS);
            sleep(1);
            watch_waiting("the end");
            for (int i = 0; i < 4; ++i)
                watch_tick();
            watch_waiting("");
        },
        theirs);
    // It arrives in pieces, and only the end says that it was all.
    close(theirs);
    std::string text;
    char piece[4096];
    for (ssize_t count; (count = read(ours, piece, sizeof piece)) > 0;)
        text.append(piece, static_cast<size_t>(count));
    close(ours);
    EXPECT_EQ(text,
              "\r           ... waiting for a press\033[K"
              "\r           ... waiting for a press.\033[K"
              "\r\033[K   0.00 s  button             the WPS button is pressed\r\n"
              "\r   0.00 s  ... waiting for a press.\033[K"
              "\r   1.00 s  ... waiting for the end\033[K"
              "\r   1.00 s  ... waiting for the end.\033[K"
              "\r   1.00 s  ... waiting for the end..\033[K"
              "\r   1.00 s  ... waiting for the end...\033[K"
              "\r   1.00 s  ... waiting for the end.\033[K"
              "\r\033[K");
}

TEST_F(told, the_band_of_a_line_is_that_of_the_interface_that_it_names)
{
    options_.recording = RECORD;
    (void)screen_of([] {
        tell("command", "", "1 hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc");
        tell("console", "", "kelm[x:1]: processing wpsEvent[2.4G]: <3>WPS-TIMEOUT ");
        tell("bus", "", PRESS);
    });
    const std::string text = text_of(RECORD);
    EXPECT_NE(text.find("\"source\":\"command\",\"band\":\"5 GHz\",\"text\":"), std::string::npos);
    EXPECT_NE(
        text.find("\"source\":\"console\",\"band\":\"2.4 GHz\",\"text\":\"kelm[x:1]: processing "),
        std::string::npos);
    EXPECT_NE(text.find("\"source\":\"bus\",\"band\":\"\",\"text\":"), std::string::npos);
}

TEST_F(told, no_secret_reaches_the_screen_or_the_recording)
{
    options_.recording = RECORD;
    const seen all = outputs_of(options_, [] {
        tell("bus", "", "{ \"wps_cli\": {\"action\":1,\"method\":2,\"pin\":\"12345670\"} }");
        tell("command", "", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670");
        tell("command", "", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set 12345670");
    });
    const std::string text = text_of(RECORD);
    EXPECT_EQ((all.screen + text).find("12345670"), std::string::npos);
    EXPECT_NE(all.screen.find("starts the PIN method ([8 bytes])"), std::string::npos);
    EXPECT_NE(text.find("wps_ap_pin set [8 bytes]\""), std::string::npos);
}

TEST_F(told, an_anonymous_run_names_nobody)
{
    options_.recording = RECORD;
    options_.anonymous = true;
    const seen all = outputs_of(options_, [] {
        tell("hostapd", "wlan1",
             "wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00 a134bcd4-edf6-548b-87e5-49d3aedf9b60");
        tell("station", "wlan1-vxd",
             "wlan1-vxd: Trying to associate with 02:00:00:00:02:01 (SSID='Elm House' freq=2412 "
             "MHz)");
        tell("console", "", "kelm[x:1]: patching wpsCfg[band 0] with rootAP Elm House");
    });
    const std::string text = text_of(RECORD);
    for (const char *secret : {"02:00", "a134bcd4", "Elm"})
        EXPECT_EQ((all.screen + text).find(secret), std::string::npos) << secret;
    EXPECT_NE(all.screen.find("client device-1 has received the key"), std::string::npos);
    EXPECT_NE(all.screen.find("root \"network-1\""), std::string::npos);
    EXPECT_NE(text.find("WPS-REG-SUCCESS device-1 uuid-1\""), std::string::npos);
}

TEST_F(told, the_screen_goes_on_where_the_recording_has_ended)
{
    options_.recording = RECORD;
    options_.limit_kib = 1;
    const seen all = outputs_of(options_, [] {
        for (int i = 0; i < 30; ++i) {
            tell("hostapd", "wlan1", "wlan1: WPS-TIMEOUT ");
            tell("hostapd", "wlan0", "wlan0: WPS-TIMEOUT ");
        }
        if (!watch_recording_ended())
            tell("watch", "", "it has not ended");
    });
    EXPECT_EQ(all.errors, "kelm-watch: the limit of 1 KiB is reached: nothing more is recorded\n");
    EXPECT_EQ(std::count(all.screen.begin(), all.screen.end(), '\n'), 60);
}

TEST_F(told, a_file_that_is_there_is_a_sentence)
{
    options_.recording = RECORD;
    std::ofstream(RECORD) << "mine";
    const seen all = outputs_of(options_, [] {});
    EXPECT_EQ(all.status, 1);
    EXPECT_EQ(all.errors, "kelm-watch: /tmp/record.jsonl is there already; name another file\n");
    options_.recording = "/tmp/none/record.jsonl";
    EXPECT_EQ(outputs_of(options_, [] {}).errors,
              "kelm-watch: /tmp/none/record.jsonl cannot be written: No such file or directory\n");
}

// A neighbour's name is a name, whatever stands in it.
TEST_F(told, a_name_on_the_air_is_no_event_and_no_line)
{
    options_.recording = RECORD;
    const std::string text = screen_of([] {
        for (const char *name : {"WPS-REG-SUCCESS 02:00:00:00:00:01", "x\nwlan1: WPS-TIMEOUT ",
                                 "\033[2J", "]: WPS-TIMEOUT"}) {
            const std::string line =
                "WPS-ENROLLEE-SEEN 02:00:00:00:02:00 u t c p r [" + std::string(name) + "]";
            tell("hostapd", "wlan1", "wlan1: " + line);
            tell("console", "",
                 "kelm[rtk_process_wpas_msg:254]: processing wpsEvent[2.4G]: <3>" + line);
        }
    });
    EXPECT_EQ(text, "");
    const std::string record = text_of(RECORD);
    EXPECT_EQ(std::count(record.begin(), record.end(), '\n'), 9);
    EXPECT_EQ(record.find('\033'), std::string::npos);
}

// --- The command line ---

namespace {

struct asked {
    watch_use use;
    watch_options options;
    std::string errors;
};

asked read(std::vector<const char *> arguments)
{
    arguments.insert(arguments.begin(), "kelm-watch");
    asked answer;
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    answer.use = watch_read_options(static_cast<int>(arguments.size()),
                                    const_cast<char **>(arguments.data()), &answer.options);
    answer.errors = testing::internal::GetCapturedStderr();
    (void)testing::internal::GetCapturedStdout();
    return answer;
}

struct wrong_use {
    std::vector<const char *> arguments;
    const char *sentence;
};

}  // namespace

TEST(watch_options, are_taken_in_both_forms)
{
    const asked both = read({"-o", "/tmp/r", "--limit=8", "--anonymous", "--log", "-", "--band",
                             "phy0-ap0=2.4", "--band=x=5 GHz", "--seconds", "7", "--once",
                             "--quiet", "--no-colour", "--hostapd", "/h", "--supplicant=/s"});
    ASSERT_EQ(both.use, watch_use::run);
    const watch_options &options = both.options;
    EXPECT_STREQ(options.recording, "/tmp/r");
    EXPECT_EQ(options.limit_kib, 8U);
    EXPECT_EQ(options.seconds, 7U);
    EXPECT_TRUE(options.anonymous && options.once && options.quiet && options.no_colour);
    EXPECT_STREQ(options.log, "-");
    EXPECT_STREQ(options.hostapd_folder, "/h");
    EXPECT_STREQ(options.supplicant_folder, "/s");
    ASSERT_EQ(options.band_count, 2U);
    EXPECT_EQ(std::string(options.bands[0].iface, options.bands[0].iface_length), "phy0-ap0");
    EXPECT_STREQ(options.bands[0].band, "2.4 GHz");
    EXPECT_STREQ(options.bands[1].band, "5 GHz");
}

TEST(watch_options, none_watches_what_a_router_has)
{
    const asked none = read({});
    ASSERT_EQ(none.use, watch_use::run);
    EXPECT_EQ(none.options.recording, nullptr);
    EXPECT_EQ(none.options.limit_kib, 4096U);
    EXPECT_STREQ(none.options.hostapd_folder, "/var/run/hostapd");
    EXPECT_STREQ(none.options.supplicant_folder, "/var/run/wpa_supplicant");
}

TEST(watch_options, wrong_use_is_a_sentence)
{
    const wrong_use cases[] = {
        {{"x"}, "'x' is no option"},
        {{"-x"}, "'-x' is no option"},
        {{"--onc"}, "'--onc' is no option"},
        {{"-o=x"}, "'-o=x' is no option"},
        {{"--once=1"}, "'--once=1' takes no value"},
        {{"--limit"}, "'--limit' needs a value, KIB"},
        {{"--limit", "0"}, "'0' is out of range"},
        {{"--limit", "-1"}, "'-1' is no number"},
        {{"--limit", "1048577"}, "'1048577' is out of range"},
        {{"--limit", "99999999999999999999"}, "'99999999999999999999' is out of range"},
        {{"--limit", "8k"}, "'8k' is no number"},
        {{"--seconds", ""}, "'' is no number"},
        {{"--seconds", "604801"}, "'604801' is out of range"},
        {{"-o", ""}, "'' is empty"},
        {{"--band", "wlan1"}, "'wlan1' is not INTERFACE=BAND"},
        {{"--band", "=5"}, "'=5' is not INTERFACE=BAND"},
        {{"--band", "wlan1=7"}, "'wlan1=7' names no band: they are 2.4, 5 and 6"},
    };
    for (const wrong_use &row : cases) {
        const asked answer = read(row.arguments);
        EXPECT_EQ(answer.use, watch_use::wrong);
        EXPECT_EQ(answer.errors,
                  "kelm-watch: " + std::string(row.sentence) + "; see kelm-watch --help\n");
    }
    std::vector<const char *> many;
    for (size_t i = 0; i <= WATCH_BAND_OPTIONS_MAX; ++i)
        many.insert(many.end(), {"--band", "a=5"});
    EXPECT_EQ(read(many).errors,
              "kelm-watch: 'a=5' is one interface too many; see kelm-watch --help\n");
}

TEST(watch_options, help_and_version_end_it)
{
    EXPECT_EQ(read({"--help", "nonsense"}).use, watch_use::told);
    EXPECT_EQ(read({"--once", "--version"}).use, watch_use::told);
}
