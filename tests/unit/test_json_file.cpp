// SPDX-License-Identifier: ISC
// JSON files: bounded reading, the object to merge into, and who may read what is written.
#include "core/json_file.h"

#include <string>

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "core/log.h"
#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/state.json";

class json_file : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_dbg_level = KELM_LOG_NORMAL;
        old_umask = umask(0);
    }
    void TearDown() override { umask(old_umask); }

    json_read_result read(const std::string &text, size_t limit = 512)
    {
        write_file(PATH, text);
        return kelm_read_json(PATH, O_RDONLY, limit, &object);
    }

    mode_t old_umask = 0;
    unique_json object;
};

std::string text_of(const unique_json &object)
{
    return json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_PLAIN);
}

unique_json object_of(const std::string &text)
{
    write_file(PATH, text);
    return _get_json_from_file(PATH);
}

std::string with_handles_replaced(std::string text)
{
    const std::string before = "Return root ";
    for (size_t at = text.find(before); at != std::string::npos; at = text.find(before, at + 1))
        text.replace(at + before.size(), 8, "HHHHHHHH");
    return text;
}

TEST_F(json_file, reading_gives_the_parsed_object)
{
    EXPECT_EQ(json_read_result::ok, read("{\"mode\": 1}\n"));
    EXPECT_EQ("{\"mode\":1}", text_of(object));
}

TEST_F(json_file, a_failed_reading_says_why_and_leaves_the_object)
{
    ASSERT_EQ(json_read_result::ok, read("{\"mode\": 1}"));
    EXPECT_EQ(json_read_result::open_failed, kelm_read_json("/tmp/none", O_RDONLY, 512, &object));
    EXPECT_EQ(json_read_result::open_failed, kelm_read_json("/tmp/run", O_RDWR, 512, &object));
    EXPECT_EQ(json_read_result::read_failed, kelm_read_json("/tmp/run", O_RDONLY, 512, &object));
    for (const char *broken : {"", "{", "{\"mode\":", "mode", "null", "{\"mode\": 1"})
        EXPECT_EQ(json_read_result::parse_failed, read(broken)) << broken;
    EXPECT_EQ("{\"mode\":1}", text_of(object));
}

TEST_F(json_file, no_byte_behind_the_limit_counts)
{
    const std::string full = "{\"mode\": 1" + std::string(2048 - 11, ' ') + "}";
    ASSERT_EQ(2048u, full.size());
    EXPECT_EQ(json_read_result::ok, read(full, 2048));
    EXPECT_EQ(json_read_result::ok, read(full + "{\"mode\": 2}", 2048));
    EXPECT_EQ("{\"mode\":1}", text_of(object));
    EXPECT_EQ(json_read_result::parse_failed, read(full, 2047));
    EXPECT_EQ(json_read_result::parse_failed, read("{\"a\": \"" + std::string(4000, 'x'), 2048));
}

TEST_F(json_file, nesting_without_end_is_refused)
{
    EXPECT_EQ(json_read_result::parse_failed, read(std::string(100000, '['), 200000));
    EXPECT_EQ("{}", text_of(object_of(std::string(100000, '['))));
}

TEST_F(json_file, only_an_integer_is_taken_for_one)
{
    const struct {
        const char *text;
        int value;
    } rows[] = {{"{\"mode\": 1}", 1},
                {"{\"mode\": -2}", -2},
                {"{\"mode\": \"1\"}", 9},
                {"{\"mode\": true}", 9},
                {"{\"mode\": 1.0}", 9},
                {"{\"mode\": null}", 9},
                {"{\"mode\": [1]}", 9},
                {"{\"Mode\": 1}", 9},
                {"{}", 9},
                {"[1]", 9},
                {"7", 9},
                {"{\"mode\": 0}", 0},
                {"{\"mode\": 2147483648}", 2147483647}};

    for (const auto &row : rows) {
        ASSERT_EQ(json_read_result::ok, read(row.text)) << row.text;
        EXPECT_EQ(row.value, kelm_json_int(object.get(), "mode", 9)) << row.text;
    }
    EXPECT_EQ(9, kelm_json_int(nullptr, "mode", 9));
}

TEST_F(json_file, a_missing_file_is_created_empty_and_gives_an_empty_object)
{
    EXPECT_EQ("{}", text_of(_get_json_from_file(PATH)));
    EXPECT_TRUE(file_exists(PATH));
    EXPECT_EQ("", read_file(PATH));
    EXPECT_EQ("", console_text());
}

TEST_F(json_file, a_file_created_for_merging_is_its_owners_whatever_the_umask)
{
    (void)_get_json_from_file(PATH);
    EXPECT_EQ(0600, file_mode(PATH));
    EXPECT_EQ(0u, umask(0));
}

TEST_F(json_file, anything_but_an_object_gives_a_fresh_empty_one)
{
    for (const char *text : {"", "[1, 2]", "\"text\"", "7", "1.5", "true", "null", "{", "nonsense"})
        EXPECT_EQ("{}", text_of(object_of(text))) << text;
    ASSERT_EQ(0, mkdir("/tmp/folder", 0700));
    EXPECT_EQ("{}", text_of(_get_json_from_file("/tmp/folder")));
    EXPECT_EQ("", console_text());
}

TEST_F(json_file, an_object_is_handed_over_whole)
{
    std::string large = "{\"a\":\"" + std::string(100000, 'x') + "\"}";
    EXPECT_EQ(large, text_of(object_of(large)));
    EXPECT_EQ(large, read_file(PATH));
}

TEST_F(json_file, the_file_is_touched_before_it_is_read)
{
    write_file(PATH, "{}");
    const timespec long_ago[2] = {{1, 0}, {1, 0}};
    ASSERT_EQ(0, utimensat(AT_FDCWD, PATH, long_ago, 0));
    (void)_get_json_from_file(PATH);

    struct stat after;
    ASSERT_EQ(0, stat(PATH, &after));
    EXPECT_GT(after.st_mtime, 1);
}

// "touch " and 121 characters fill the command's 128 bytes; a cut one would touch another file.
TEST_F(json_file, a_path_too_long_for_the_command_is_created_without_it)
{
    const std::string longest = "/tmp/" + std::string(116, 'a');
    const std::string too_long = longest + "a";
    (void)_get_json_from_file(too_long.c_str());
    EXPECT_TRUE(file_exists(too_long));
    EXPECT_FALSE(file_exists(longest));
    (void)_get_json_from_file(longest.c_str());
    EXPECT_EQ(0600, file_mode(longest));
}

TEST_F(json_file, a_path_with_shell_characters_runs_nothing)
{
    (void)_get_json_from_file("/tmp/a;nvram");
    EXPECT_TRUE(file_exists("/tmp/a;nvram"));
    EXPECT_TRUE(recorded_commands().empty());
}

TEST_F(json_file, loading_is_told_at_the_detailed_level)
{
    kelm_dbg_level = KELM_LOG_DETAIL;
    (void)object_of("{\"a\": 1}");
    EXPECT_EQ(
        "kelm[_get_json_from_file:N]: Return root HHHHHHHH. type(4)\n"
        "kelm[_get_json_from_file:N]: obj { \"a\": 1 }\n"
        "kelm[_get_json_from_file:N]: Return root HHHHHHHH. type(4)\n",
        with_handles_replaced(console_text_without_line_numbers()));
    (void)object_of("[1]");
    EXPECT_EQ(
        "kelm[_get_json_from_file:N]: Return root HHHHHHHH. type(5)\n"
        "kelm[_get_json_from_file:N]: obj { }\n"
        "kelm[_get_json_from_file:N]: Return root HHHHHHHH. type(4)\n",
        with_handles_replaced(console_text_without_line_numbers()));
    (void)object_of("");
    EXPECT_EQ(0u, console_text_without_line_numbers().find(
                      "kelm[_get_json_from_file:N]: Return root 00000000. type(0)\n"));
}

TEST_F(json_file, a_link_planted_under_a_files_name_is_not_followed)
{
    ASSERT_EQ(0, symlink("/tmp/somebodys", PATH));
    EXPECT_TRUE(_get_json_from_file(PATH) != nullptr);
    EXPECT_FALSE(file_exists("/tmp/somebodys"));
    EXPECT_EQ(0600, file_mode(PATH));
}

TEST_F(json_file, a_fifo_in_place_of_a_file_is_no_json_and_holds_nobody)
{
    ASSERT_EQ(0, mkfifo(PATH, 0600));
    EXPECT_TRUE(kelm_load_json(PATH) == nullptr);
    unique_json object;
    EXPECT_EQ(json_read_result::parse_failed, kelm_read_json(PATH, O_RDONLY, 512, &object));
}

}  // namespace
