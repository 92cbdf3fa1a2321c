// SPDX-License-Identifier: ISC
// What an anonymous recording tells in place of addresses and names.
#include "watch/aliases.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "watch/kept.h"
#include "watch/tell.h"

using namespace kelm;

namespace {

class aliases : public ::testing::Test {
protected:
    std::string rewritten(const std::string &text)
    {
        char buffer[WATCH_TEXT_SIZE];
        text_out out(buffer);
        known_.rewrite({text.data(), text.size()}, &out);
        return buffer;
    }

    std::string kept(const char *source, const std::string &text)
    {
        char buffer[WATCH_TEXT_SIZE];
        text_out out(buffer);
        text_span iface;
        watch_keep(source, {text.data(), text.size()}, &known_, &out, &iface);
        return rewritten(buffer);
    }

    watch_aliases known_;
};

}  // namespace

TEST_F(aliases, an_address_is_the_same_however_it_is_written)
{
    EXPECT_EQ(rewritten("02:00:00:00:02:0a x 02-00-00-00-02-0A"), "device-1 x device-1");
    EXPECT_EQ(rewritten("[02:00:00:00:02:0b], bssid=02:00:00:00:02:0a"),
              "[device-2], bssid=device-1");
    EXPECT_EQ(rewritten("02:00:00:00:02:0a:"), "device-1:");
    EXPECT_EQ(rewritten("02:00:00:00:02:0b: left"), "device-2: left");
}

TEST_F(aliases, an_uuid_has_an_alias_of_its_own)
{
    EXPECT_EQ(rewritten("02:00:00:00:02:00 a134bcd4-edf6-548b-87e5-49d3aedf9b60"),
              "device-1 uuid-1");
    EXPECT_EQ(rewritten("A134BCD4-edf6-548b-87e5-49d3aedf9b60"), "uuid-1");
}

TEST_F(aliases, what_is_no_address_stays)
{
    for (const char *text :
         {"", "02:00:00:00:02", "02:00:00:00:02:0", "02:00:00:00:02:0g", "02:00:00:00:02:00:01",
          "102:00:00:00:02:00", "00:00:00:00:00:00", "00000000-0000-0000-0000-000000000000",
          "12:04:45", "a134bcd4-edf6-548b-87e5-49d3aedf9b601", "2412 MHz"})
        EXPECT_EQ(rewritten(text), text);
}

TEST_F(aliases, names_on_the_air_are_known_by_their_place)
{
    EXPECT_EQ(kept("hostapd",
                   "wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:02:00 "
                   "a134bcd4-edf6-548b-87e5-49d3aedf9b60 10-0050F204-5 0x2388 4 1 [Anna's phone]"),
              "wlan1: WPS-ENROLLEE-SEEN device-1 uuid-1 10-0050F204-5 0x2388 4 1 [name-1]");
    EXPECT_EQ(kept("station",
                   "wlan1-vxd: Trying to associate with 02:11:22:33:44:50 (SSID='Elm House' "
                   "freq=2412 MHz)"),
              "wlan1-vxd: Trying to associate with device-2 (SSID='network-1' freq=2412 MHz)");
    EXPECT_EQ(kept("console", "kelm[dump_rootap_info:342]: \trootap ssid: Elm House"),
              "kelm[dump_rootap_info:342]: \trootap ssid: network-1");
    EXPECT_EQ(kept("console", "kelm[dump_rootap_info:342]: \trootap ssid: Oak"),
              "kelm[dump_rootap_info:342]: \trootap ssid: network-2");
    EXPECT_EQ(kept("console", "kelm[dump_rootap_info:342]: \trootap ssid: "),
              "kelm[dump_rootap_info:342]: \trootap ssid: ");
    EXPECT_EQ(kept("station", "wlan1-vxd: CTRL-EVENT-SSID-REENABLED id=1 ssid=\"Elm House\""),
              "wlan1-vxd: CTRL-EVENT-SSID-REENABLED id=1 ssid=\"network-1\"");
}

// Lines of every kind that the scenarios print; clients, roots and the demo's notes are not seen.
TEST_F(aliases, no_line_tells_whose_devices_these_are)
{
    std::ifstream file("/mnt/src/tests/data/watch/lines.txt");
    size_t lines = 0;
    for (std::string line; std::getline(file, line);) {
        const size_t blank = line.find(' ');
        const std::string source = line.substr(0, blank);
        if (source == "demo" || source.rfind("client", 0) == 0 || source.rfind("root", 0) == 0)
            continue;
        ++lines;
        const std::string left = kept(source.c_str(), line.substr(blank + 1));
        for (const char *name :
             {"Elm", "Oak", "Laptop", "STRANGER", "02:00:00", "02-00-00", "02:11:22", "02-11-22",
              "a134bcd4", "[phone", "[tablet", "[laptop"})
            EXPECT_EQ(left.find(name), std::string::npos) << left;
    }
    EXPECT_GT(lines, 300U);
}

// A neighbour who sends ever new addresses costs no memory, and takes no alias away.
TEST_F(aliases, what_finds_no_room_has_one_alias)
{
    char address[18];
    for (unsigned i = 1; i <= WATCH_ALIASES_MAX; ++i) {
        (void)snprintf(address, sizeof address, "02:00:00:00:%02x:%02x", i >> 8, i & 0xff);
        EXPECT_EQ(rewritten(address), "device-" + std::to_string(i));
    }
    EXPECT_EQ(rewritten("02:ff:00:00:00:00"), "device-more");
    EXPECT_EQ(rewritten("02:00:00:00:00:01"), "device-1");
}
