// SPDX-License-Identifier: ISC
// The tables of watch/ as C++ reads them. tests/report/test_tables.py plays the same.
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "core/json_file.h"
#include "watch/kept.h"
#include "watch/log_line.h"
#include "watch/pattern.h"
#include "watch/tell.h"
#include "watch/words.h"

using namespace kelm;

namespace {

std::vector<std::string> lines_of(const char *name)
{
    std::ifstream file(std::string("/mnt/src/tests/data/watch/") + name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);)
        lines.push_back(line);
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

// The texts of one row; null is "(none)".
std::vector<std::string> row_of(const std::string &line)
{
    const unique_json row(json_tokener_parse(line.c_str()));
    std::vector<std::string> texts;
    for (size_t i = 0; i < json_object_array_length(row.get()); ++i) {
        json_object *item = json_object_array_get_idx(row.get(), i);
        texts.emplace_back(item != nullptr ? json_object_get_string(item) : "(none)");
    }
    return texts;
}

text_span part(const std::string &text)
{
    return {text.data(), text.size()};
}

std::string kept(const std::string &source, const std::string &line)
{
    char buffer[WATCH_TEXT_SIZE];
    text_out out(buffer);
    text_span iface;
    watch_keep(source.c_str(), part(line), nullptr, &out, &iface);
    return buffer;
}

}  // namespace

TEST(watch_tables, a_pattern_covers_what_its_row_says)
{
    for (const std::string &line : lines_of("patterns.jsonl")) {
        const std::vector<std::string> row = row_of(line);
        watch_match found;
        if (!watch_fits(row[0].c_str(), part(row[1]), &found)) {
            EXPECT_EQ("(none)", row[2]) << line;
            continue;
        }
        const unique_json covered(json_object_new_array());
        for (size_t i = 0; i < found.count; ++i) {
            const text_span text = found.covered[i].text;
            json_object_array_add(
                covered.get(), json_object_new_string_len(text.at, static_cast<int>(text.length)));
        }
        EXPECT_EQ(std::string(json_object_to_json_string(covered.get())), row[2]) << line;
    }
}

TEST(watch_tables, what_is_kept_of_a_line)
{
    for (const std::string &line : lines_of("kept.jsonl")) {
        const std::vector<std::string> row = row_of(line);
        EXPECT_EQ(kept(row[0], row[1]), row[2]);
        EXPECT_EQ(kept(row[0], row[2]), row[2]) << "once more";
    }
}

TEST(watch_tables, the_words_of_a_line)
{
    for (const std::string &line : lines_of("words.jsonl")) {
        const std::vector<std::string> row = row_of(line);
        watch_told told;
        if (!watch_describe(row[0].c_str(), part(row[1]), &told)) {
            EXPECT_EQ("(none)", row[2]) << line;
            continue;
        }
        EXPECT_EQ(told.who, row[2]) << line;
        EXPECT_EQ(told.iface, row[3]) << line;
        EXPECT_EQ(told.text, row[4]) << line;
    }
}

// As kelm-watch tells them; clients and roots are not seen.
TEST(watch_tables, no_secret_is_left_in_any_line)
{
    const std::vector<std::string> secrets = lines_of("secrets.txt");
    const std::vector<std::string> lines = lines_of("lines.txt");
    size_t with_secret = 0;
    for (const std::string &line : lines) {
        const size_t blank = line.find(' ');
        std::string source = line.substr(0, blank);
        std::string text = line.substr(blank + 1);
        while (source.size() > 1 && isdigit(source.back()))
            source.pop_back();
        if (source == "log") {
            const watch_log_line read = watch_read_log_line(part(text));
            source = read.source != nullptr ? read.source : "log";
            text = std::string(read.text.at, read.text.length);
        }
        const std::string left = kept(source, text);
        EXPECT_EQ(kept(source, left), left);
        for (const std::string &secret : secrets) {
            with_secret += text.find(secret) != std::string::npos ? 1 : 0;
            EXPECT_EQ(left.find(secret), std::string::npos) << line;
        }
    }
    EXPECT_GT(lines.size(), 500U);
    EXPECT_GT(with_secret, 50U);
}

struct log_case {
    const char *line;
    const char *source;  // "": somebody else's
    const char *text;
};

const log_case log_cases[] = {
    {"kelm[main:51]: kelm 0.9.0", "console", "kelm[main:51]: kelm 0.9.0"},
    {"kelm[main:51]: kelm 0.9.0 \r", "console", "kelm[main:51]: kelm 0.9.0"},
    {"[   12.345] kelm[main:51]: kelm 0.9.0", "console", "kelm[main:51]: kelm 0.9.0"},
    {"Nov 22 12:04:45 (none) daemon.info kelm[283]: kelm[main:51]: kelm 0.9.0", "console",
     "kelm[main:51]: kelm 0.9.0"},
    {"Sun Nov 22 12:08:30 2026 daemon.notice kelm[123]: kelm[main:51]: kelm 0.9.0", "console",
     "kelm[main:51]: kelm 0.9.0"},
    {"Sun Nov  2 12:08:30 2026 [1234.567] daemon.notice kelm[123]: kelm[main:51]: a", "console",
     "kelm[main:51]: a"},
    {"Nov  2 12:04:45 host local0.info kelm[283]: kelm[main:51]: a kelm[1]: kelm[x:1]: b",
     "console", "kelm[main:51]: a kelm[1]: kelm[x:1]: b"},
    {"Nov 22 12:04:45 kelm[283]: kelm[main:51]: a", "console", "kelm[main:51]: a"},
    {"Nov 22 12:04:45.123 elm-1 kelm: kelm[main:51]: a", "console", "kelm[main:51]: a"},
    {"Sun Nov 22 12:08:30 2026 daemon.notice kelm: 5 GHz: the network is hidden", "log",
     "kelm: 5 GHz: the network is hidden"},
    {"Sun Nov 22 12:08:30 2026 user.notice kelm: ready on 2.4 GHz\n", "log",
     "kelm: ready on 2.4 GHz"},
    // Somebody else's line does not become the daemon's by what it quotes.
    {"Nov 22 12:04:45 (none) daemon.info hostapd: kelm[283]: kelm[main:51]: wps Timeout", "", ""},
    {"Nov 22 12:04:45 hostapd: kelm[283]: kelm[main:51]: wps Timeout", "", ""},
    {"Sun Nov 22 12:08:30 2026 daemon.notice hostapd: wlan1: STA kelm[x:1]: wps Timeout", "", ""},
    {"wlan1: WPS-ENROLLEE-SEEN a [kelm[x:1]: wps Timeout]", "", ""},
    {"wlan1: a daemon.info kelm[1]: kelm[x:1]: wps Timeout", "", ""},
    {"wlan1: a daemon.info kelm: 5 GHz: the network is hidden", "", ""},
    {"Nov 22 12:04:45 wlan1: daemon.info kelm[1]: kelm[x:1]: wps Timeout", "", ""},
    {"Nov 22 12:04:45 a b daemon.info kelm[1]: kelm[x:1]: wps Timeout", "", ""},
    {"[a] kelm[x:1]: y", "", ""},
    {"[12.] kelm[x:1]: y", "", ""},
    {" kelm[x:1]: y", "", ""},
    {"kelm: 5 GHz: the network is hidden", "", ""},
    {"Nov 22 12:04:45 (none) daemon.info kelm[283]: what a command prints", "", ""},
    {"kelm[283]: kelm[main:51]: a", "", ""},
    {"kelm[1x:1]: a", "", ""},
    {"kelm[x:]: a", "", ""},
    {"kelm[x:1", "", ""},
    {"kelm[", "", ""},
    {"Sun", "", ""},
    {"Nov 22 12:04:45", "", ""},
    {"Nov 22 12:04:45 2026 ", "", ""},
    {"daemon.info", "", ""},
    {"Nov .info kelm[1]: kelm[x:1]: y", "", ""},
    {"", "", ""},
};

TEST(watch_tables, a_line_of_a_log_is_the_daemons_at_its_begin_or_behind_the_head_of_a_log)
{
    for (const log_case &row : log_cases) {
        const watch_log_line read = watch_read_log_line(span_of(row.line));
        EXPECT_STREQ(read.source != nullptr ? read.source : "", row.source) << row.line;
        if (read.source != nullptr) {
            EXPECT_EQ(std::string(read.text.at, read.text.length), row.text);
        }
    }
}

TEST(watch_tables, the_interface_of_a_line_is_told)
{
    const char *cases[][3] = {
        {"hostapd", "wlan1: AP-ENABLED", "wlan1"},
        {"command", "1 hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc", "wlan0"},
        {"console", "kelm[x:1]: processing wpsEvent[2.4G]: <3>WPS-TIMEOUT", "2.4G"},
        {"exit", "1 daemon 2 status 0", ""},
    };
    for (const auto &row : cases) {
        char buffer[WATCH_TEXT_SIZE];
        text_out out(buffer);
        text_span iface;
        watch_keep(row[0], span_of(row[1]), nullptr, &out, &iface);
        EXPECT_EQ(std::string(iface.at, iface.length), row[2]);
    }
}

TEST(watch_tables, a_line_that_grows_beyond_its_room_is_left_out_as_a_whole)
{
    char buffer[32];
    text_out out(buffer);
    text_span iface;
    const std::string line = "{ \"gpio\": {\"a\":1,\"b\":2,\"c\":3} }";
    watch_keep("bus", part(line), nullptr, &out, &iface);
    EXPECT_STREQ(buffer, "[31 bytes]");
}

// A hostile line of the greatest length does not hold the program.
TEST(watch_tables, the_longest_line_is_matched_at_once)
{
    for (const char *piece : {"a", "-i ", "[", "{\"", "kelm[", "1 ", ": ", "-i a wps_pbc "}) {
        std::string line;
        while (line.size() < WATCH_TEXT_SIZE)
            line += piece;
        line.resize(WATCH_TEXT_SIZE);
        for (const char *source : {"hostapd", "bus", "command", "console", "file"}) {
            EXPECT_LE(kept(source, line).size(), WATCH_TEXT_SIZE);
            watch_told told;
            (void)watch_describe(source, part(line), &told);
        }
    }
}
