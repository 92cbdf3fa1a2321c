// SPDX-License-Identifier: ISC
// The recording: whose file it is, what stands in it, and how it ends.
#include "watch/recording.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include "core/json_file.h"
#include "watch/tell.h"

using namespace kelm;

namespace {

constexpr watch_moment NOON = {81234, 1795348800123};  // 2026-11-22 12:00:00.123 UTC
constexpr unsigned PLENTY_KIB = 4096;

class recording : public ::testing::Test {
protected:
    void SetUp() override
    {
        char folder[] = "/tmp/watch-recording.XXXXXX";
        ASSERT_NE(mkdtemp(folder), nullptr);
        folder_ = folder;
        path_ = folder_ + "/record.jsonl";
    }

    void TearDown() override
    {
        file_.close();
        (void)system(("rm -rf " + folder_).c_str());
    }

    recording_result begin(unsigned limit_kib = PLENTY_KIB, bool anonymous = false)
    {
        return file_.open(path_.c_str(), limit_kib, anonymous, NOON);
    }

    const char *add(const std::string &text)
    {
        return file_.add(NOON, "hostapd", "2.4 GHz", "wlan1", {text.data(), text.size()});
    }

    std::string written() const
    {
        std::ifstream file(path_);
        std::stringstream text;
        text << file.rdbuf();
        return text.str();
    }

    void put(const std::string &text) const { std::ofstream(path_) << text; }

    std::string folder_;
    std::string path_;
    watch_recording file_;
};

std::string json(const std::string &text)
{
    char buffer[1024];
    text_out out(buffer);
    watch_add_json({text.data(), text.size()}, &out);
    return buffer;
}

}  // namespace

TEST_F(recording, begins_with_its_version_and_goes_on_line_by_line)
{
    ASSERT_EQ(begin(), recording_result::ok);
    EXPECT_EQ(add("wlan1: WPS-PBC-ACTIVE "), nullptr);
    EXPECT_EQ(file_.add({90000, 1795348808999}, "bus", "", "", span_of("{ \"gpio\": {} }")),
              nullptr);
    EXPECT_EQ(
        written(),
        "{\"recording\":\"kelm\",\"version\":1,\"ms\":81234,\"at\":\"2026-11-22T12:00:00.123Z\","
        "\"program\":\"kelm-watch " KELM_VERSION
        "\",\"anonymous\":false}\n"
        "{\"ms\":81234,\"at\":\"2026-11-22T12:00:00.123Z\",\"source\":\"hostapd\",\"band\":\"2.4 "
        "GHz\",\"iface\":\"wlan1\",\"text\":\"wlan1: WPS-PBC-ACTIVE \"}\n"
        "{\"ms\":90000,\"at\":\"2026-11-22T12:00:08.999Z\",\"source\":\"bus\",\"band\":\"\","
        "\"text\":"
        "\"{ \\\"gpio\\\": {} }\"}\n");
}

TEST_F(recording, says_that_it_is_anonymous)
{
    ASSERT_EQ(begin(PLENTY_KIB, true), recording_result::ok);
    EXPECT_NE(written().find("\"anonymous\":true}\n"), std::string::npos);
}

TEST_F(recording, is_for_its_owner_alone_whatever_the_umask)
{
    const mode_t before = umask(0);
    ASSERT_EQ(begin(), recording_result::ok);
    umask(before);
    struct stat there = {};
    ASSERT_EQ(stat(path_.c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 07777, 0600U);
}

TEST_F(recording, takes_an_empty_file_of_its_own_and_makes_it_private)
{
    put("");
    ASSERT_EQ(chmod(path_.c_str(), 0644), 0);
    ASSERT_EQ(begin(), recording_result::ok);
    struct stat there = {};
    ASSERT_EQ(stat(path_.c_str(), &there), 0);
    EXPECT_EQ(there.st_mode & 07777, 0600U);
    EXPECT_NE(written(), "");
}

TEST_F(recording, leaves_a_file_that_holds_something_alone)
{
    put("mine");
    EXPECT_EQ(begin(), recording_result::exists);
    EXPECT_EQ(written(), "mine");
    EXPECT_FALSE(file_.is_open());
}

TEST_F(recording, follows_no_link)
{
    const std::string target = folder_ + "/target";
    for (const bool is_there : {false, true}) {
        if (is_there)
            std::ofstream(target) << "";
        ASSERT_EQ(symlink(target.c_str(), path_.c_str()), 0);
        EXPECT_EQ(begin(), recording_result::exists);
        EXPECT_EQ(access(target.c_str(), F_OK) == 0, is_there);
        ASSERT_EQ(unlink(path_.c_str()), 0);
    }
}

TEST_F(recording, takes_no_file_with_another_name)
{
    const std::string target = folder_ + "/target";
    std::ofstream(target) << "";
    ASSERT_EQ(link(target.c_str(), path_.c_str()), 0);
    EXPECT_EQ(begin(), recording_result::exists);
}

TEST_F(recording, waits_for_no_reader_of_a_fifo_and_writes_into_no_folder)
{
    ASSERT_EQ(mkfifo(path_.c_str(), 0600), 0);
    EXPECT_EQ(begin(), recording_result::exists);
    ASSERT_EQ(unlink(path_.c_str()), 0);
    ASSERT_EQ(mkdir(path_.c_str(), 0700), 0);
    EXPECT_EQ(begin(), recording_result::exists);
}

TEST_F(recording, takes_no_file_of_another_user)
{
    put("");
    if (chown(path_.c_str(), 65534, 65534) != 0)
        GTEST_SKIP() << "whoever runs this may give no file away";
    EXPECT_EQ(begin(), recording_result::exists);
}

TEST_F(recording, tells_why_a_file_cannot_be_made)
{
    path_ = folder_ + "/none/record.jsonl";
    EXPECT_EQ(begin(), recording_result::failed);
    EXPECT_EQ(errno, ENOENT);
}

TEST_F(recording, ends_at_its_limit_with_a_line_that_says_so)
{
    ASSERT_EQ(begin(1), recording_result::ok);
    const char *trouble = nullptr;
    int lines = 0;
    for (; trouble == nullptr && lines < 100; ++lines)
        trouble = add("wlan1: WPS-PBC-ACTIVE ");
    ASSERT_NE(trouble, nullptr);
    EXPECT_STREQ(trouble, "the limit of 1 KiB is reached: nothing more is recorded");
    EXPECT_FALSE(file_.is_open());
    EXPECT_EQ(add("more"), nullptr);
    const std::string text = written();
    EXPECT_LE(text.size(), 1024U);
    EXPECT_GT(text.size(), 600U);
    EXPECT_NE(
        text.find("\"source\":\"watch\",\"band\":\"\",\"text\":\"the limit of 1 KiB is reached: "
                  "nothing more is recorded\"}\n"),
        std::string::npos);
    EXPECT_EQ(text.back(), '\n');
}

// A short text may find room where a long one did not; the recording has ended all the same.
TEST_F(recording, nothing_is_recorded_behind_the_limit)
{
    ASSERT_EQ(begin(1), recording_result::ok);
    EXPECT_NE(add(std::string(WATCH_TEXT_SIZE, 'x')), nullptr);
    const std::string text = written();
    EXPECT_EQ(add("y"), nullptr);
    EXPECT_EQ(written(), text);
}

TEST_F(recording, a_full_disk_is_told_once_and_leaves_whole_lines)
{
    ASSERT_EQ(begin(), recording_result::ok);
    (void)signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const size_t begun = written().size();
    const rlimit small = {begun + 20, before.rlim_max};  // in the middle of a line
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const char *trouble = add("wlan1: WPS-PBC-ACTIVE ");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    ASSERT_NE(trouble, nullptr);
    EXPECT_EQ(std::string(trouble).rfind("the recording ends here: ", 0), 0U);
    EXPECT_EQ(add("more"), nullptr);
    EXPECT_EQ(written().size(), begun);
}

// So is one on which not even the beginning finds room, or the line about the limit.
TEST_F(recording, a_disk_that_was_full_before_is_told_too)
{
    (void)signal(SIGXFSZ, SIG_IGN);
    rlimit before = {};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit none = {0, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &none), 0);
    const recording_result result = begin();
    const int reason = errno;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(result, recording_result::failed);
    EXPECT_EQ(reason, EFBIG);

    ASSERT_EQ(unlink(path_.c_str()), 0);
    ASSERT_EQ(begin(1), recording_result::ok);
    const rlimit small = {written().size(), before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    const char *trouble = add(std::string(WATCH_TEXT_SIZE, 'x'));
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_STREQ(trouble, "the recording ends here: File too large");
}

TEST_F(recording, the_longest_hostile_text_is_one_whole_line)
{
    ASSERT_EQ(begin(), recording_result::ok);
    EXPECT_EQ(add(std::string(WATCH_TEXT_SIZE + 1024, '\x01')), nullptr);
    const std::string text = written();
    EXPECT_EQ(text.back(), '\n');
    const unique_json line(json_tokener_parse(text.substr(text.find('\n') + 1).c_str()));
    ASSERT_TRUE(line);
    EXPECT_EQ(json_object_get_string_len(json_object_object_get(line.get(), "text")),
              static_cast<int>(WATCH_TEXT_SIZE + 1024));
}

TEST(watch_json, control_characters_and_bytes_of_no_text_are_spelt)
{
    EXPECT_EQ(json("a\"b\\c"), "a\\\"b\\\\c");
    EXPECT_EQ(json("a\nb\x1b[31m"), "a\\u000ab\\u001b[31m");
    EXPECT_EQ(json(std::string("a\0b", 3)), "a\\u0000b");
    EXPECT_EQ(json("\x7f"), "\\u007f");
    EXPECT_EQ(json("\xc2\x9b"), "\\u009b");
    EXPECT_EQ(json("\xc3\x96"
                   "ak"),
              "\xc3\x96"
              "ak");
    EXPECT_EQ(json("\xff\xc3"), "\\u00ff\\u00c3");
    EXPECT_EQ(json("\xf0\x9f\x8c\xb3"), "\xf0\x9f\x8c\xb3");
    EXPECT_EQ(json("\xed\xa0\x80"), "\\u00ed\\u00a0\\u0080");
}
