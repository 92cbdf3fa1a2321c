// SPDX-License-Identifier: ISC
// Files in a folder that every user may write to.
#include "config/file.h"

#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/file";
constexpr const char *FRESH = "/tmp/file.new";

class file : public testing::Test {
protected:
    void SetUp() override { reset_world(); }
};

bool is_there(const char *path)
{
    struct stat info = {};
    return ::lstat(path, &info) == 0;
}

TEST_F(file, is_replaced_by_the_text_and_a_line_feed)
{
    write_file(PATH, "old text that is longer\n");
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
    EXPECT_EQ("new\n", read_file(PATH));
    EXPECT_FALSE(is_there(FRESH));
}

TEST_F(file, that_was_readable_for_all_becomes_its_owners)
{
    write_file(PATH, "old");
    ASSERT_EQ(0, chmod(PATH, 0666));
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
    EXPECT_EQ(0600, file_mode(PATH));
}

TEST_F(file, for_all_obeys_the_umask)
{
    const mode_t before = umask(027);
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_FOR_ALL));
    umask(before);
    EXPECT_EQ(0640, file_mode(PATH));
}

TEST_F(file, that_is_being_read_stays_whole_for_its_reader)
{
    write_file(PATH, "old");
    const unique_file reader = kelm_open_to_read(PATH);
    ASSERT_TRUE(reader != nullptr);
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_FOR_ALL));
    char text[8] = {};
    EXPECT_EQ(3u, fread(text, 1, sizeof text, reader.get()));
    EXPECT_STREQ("old", text);
}

TEST_F(file, is_untouched_when_there_is_no_room_for_the_new_one)
{
    ASSERT_EQ(0, mkdir("/tmp/small", 0700));
    ASSERT_EQ(0, mount("small", "/tmp/small", "tmpfs", 0, "size=4k,nr_inodes=8"));
    const std::string old(100, 'o');
    write_file("/tmp/small/file", old);
    EXPECT_EQ(-1,
              kelm_replace_file("/tmp/small/file", std::string(200, 'n').c_str(), KELM_OWNER_ONLY));
    EXPECT_EQ(old, read_file("/tmp/small/file"));
    EXPECT_FALSE(is_there("/tmp/small/file.new")) << "a half-written one is taken away again";
    EXPECT_EQ(0, umount("/tmp/small"));
}

TEST_F(file, that_cannot_be_replaced_is_told)
{
    ASSERT_EQ(0, mkdir("/tmp/folder", 0700));
    EXPECT_EQ(-1, kelm_replace_file("/tmp/folder", "new", KELM_OWNER_ONLY));
    EXPECT_FALSE(is_there("/tmp/folder.new"));
    EXPECT_EQ(-1, kelm_replace_file("/tmp/none/file", "new", KELM_OWNER_ONLY));
    EXPECT_EQ(-1,
              kelm_replace_file(("/tmp/" + std::string(119, 'x')).c_str(), "new", KELM_OWNER_ONLY));
}

TEST_F(file, links_planted_under_its_names_are_replaced_not_followed)
{
    write_file("/tmp/somebodys", "precious");
    ASSERT_EQ(0, symlink("/tmp/somebodys", PATH));
    ASSERT_EQ(0, symlink("/tmp/somebodys", FRESH));
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
    EXPECT_EQ("precious", read_file("/tmp/somebodys"));
    EXPECT_EQ("new\n", read_file(PATH));
    EXPECT_FALSE(is_there(FRESH));
}

TEST_F(file, that_a_killed_run_left_half_written_is_no_obstacle)
{
    write_file(FRESH, "hal");
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
    EXPECT_EQ("new\n", read_file(PATH));
    EXPECT_FALSE(is_there(FRESH));
}

TEST_F(file, a_regular_one_of_our_own_needs_to_make_no_way)
{
    write_file(PATH, "text");
    ASSERT_EQ(0, chmod(PATH, 0600));
    kelm_make_way(PATH, KELM_OWNER_ONLY);
    EXPECT_EQ("text", read_file(PATH));
    ASSERT_EQ(0, chmod(PATH, 0644));
    kelm_make_way(PATH, KELM_FOR_ALL);
    EXPECT_EQ("text", read_file(PATH));
    kelm_make_way("/tmp/none", KELM_OWNER_ONLY);
    EXPECT_FALSE(is_there("/tmp/none"));
}

TEST_F(file, one_that_others_may_use_makes_way)
{
    for (const mode_t mode : {0640, 0604, 0660, 0700, 04600}) {
        write_file(PATH, "text");
        ASSERT_EQ(0, chmod(PATH, mode));
        kelm_make_way(PATH, KELM_OWNER_ONLY);
        EXPECT_FALSE(is_there(PATH)) << mode;
    }
}

TEST_F(file, links_and_pipes_make_way_and_what_a_link_names_stays)
{
    write_file("/tmp/somebodys", "precious");
    ASSERT_EQ(0, symlink("/tmp/somebodys", PATH));
    kelm_make_way(PATH, KELM_FOR_ALL);
    EXPECT_FALSE(is_there(PATH));
    EXPECT_EQ("precious", read_file("/tmp/somebodys"));
    ASSERT_EQ(0, mkfifo(PATH, 0600));
    kelm_make_way(PATH, KELM_FOR_ALL);
    EXPECT_FALSE(is_there(PATH));
    ASSERT_EQ(0, mkdir(PATH, 0700));
    kelm_make_way(PATH, KELM_FOR_ALL);
    EXPECT_TRUE(is_there(PATH)) << "a folder is nothing to write to, and no danger";
}

TEST_F(file, one_that_has_another_name_too_makes_way)
{
    write_file("/tmp/somebodys", "precious");
    ASSERT_EQ(0, chmod("/tmp/somebodys", 0600));
    ASSERT_EQ(0, link("/tmp/somebodys", PATH));
    kelm_make_way(PATH, KELM_OWNER_ONLY);
    EXPECT_FALSE(is_there(PATH));
    EXPECT_EQ("precious", read_file("/tmp/somebodys"));
}

TEST_F(file, an_empty_folder_on_the_way_to_it_is_no_obstacle)
{
    ASSERT_EQ(0, mkdir(FRESH, 0700));
    EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
    EXPECT_EQ("new\n", read_file(PATH));
}

TEST_F(file, only_a_regular_one_is_opened_to_read)
{
    write_file(PATH, "text");
    ASSERT_EQ(0, mkfifo("/tmp/fifo", 0600));
    EXPECT_TRUE(kelm_open_to_read(PATH) != nullptr);
    EXPECT_TRUE(kelm_open_to_read("/tmp/fifo") == nullptr);
    EXPECT_TRUE(kelm_open_to_read("/tmp") == nullptr);
    EXPECT_TRUE(kelm_open_to_read("/dev/null") == nullptr);
    EXPECT_TRUE(kelm_open_to_read("/tmp/none") == nullptr);
}

TEST_F(file, that_is_read_is_not_handed_to_started_programs)
{
    write_file(PATH, "text");
    const unique_file reader = kelm_open_to_read(PATH);
    ASSERT_TRUE(reader != nullptr);
    EXPECT_EQ(FD_CLOEXEC, fcntl(fileno(reader.get()), F_GETFD) & FD_CLOEXEC);
}

}  // namespace
