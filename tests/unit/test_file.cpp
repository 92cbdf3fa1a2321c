// SPDX-License-Identifier: ISC
// Files in a folder that every user may write to.
#include "core/file.h"

#include <fcntl.h>
#include <glob.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <vector>

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

TEST_F(file, has_exactly_its_mode_whatever_the_umask)
{
    for (const mode_t mask : {0, 022, 077, 0777}) {
        const mode_t before = umask(mask);
        EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_FOR_ALL));
        EXPECT_TRUE(kelm_pin_file("/tmp/pinned", KELM_FOR_ALL));
        EXPECT_TRUE(kelm_claim_file("/tmp/claimed").valid());
        umask(before);
        EXPECT_EQ(0644, file_mode(PATH)) << mask;
        EXPECT_EQ(0644, file_mode("/tmp/pinned")) << mask;
        EXPECT_EQ(0644, file_mode("/tmp/claimed")) << mask;
        clear_tmp();
    }
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
    const std::string too_long = "/tmp/" + std::string(119, 'x');
    EXPECT_EQ(-1, kelm_replace_file("/tmp/none/file", "new", KELM_OWNER_ONLY));
    EXPECT_EQ(-1, kelm_replace_file(too_long.c_str(), "new", KELM_OWNER_ONLY));
    EXPECT_FALSE(kelm_pin_file("/tmp/none/file", KELM_OWNER_ONLY));
    EXPECT_FALSE(kelm_pin_to_merge("/tmp/none/file"));
    EXPECT_EQ(
        "kelm[kelm_replace_file:N]: /tmp/none/file: not written: No such file or directory\n"
        "kelm[kelm_replace_file:N]: " +
            too_long +
            ": not written: File name too long\n"
            "kelm[kelm_pin_file:N]: /tmp/none/file: not written: No such file or directory\n",
        console_text_without_line_numbers());
}

TEST_F(file, a_folder_under_its_names_costs_nothing)
{
    for (const bool full : {false, true}) {
        for (const char *folder : {PATH, FRESH}) {
            clear_tmp();
            ASSERT_EQ(0, mkdir(folder, 0700));
            if (full)
                write_file(std::string(folder) + "/inner", "kept");
            EXPECT_EQ(0, kelm_replace_file(PATH, "new", KELM_OWNER_ONLY));
            EXPECT_EQ("new\n", read_file(PATH));
            EXPECT_EQ(0600, file_mode(PATH));
            EXPECT_EQ(full && folder == FRESH, is_there(FRESH));
            EXPECT_EQ(0, kelm_replace_file(PATH, "newer", KELM_OWNER_ONLY));
            EXPECT_EQ("newer\n", read_file(PATH));
        }
    }
    EXPECT_EQ("", console_text());
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

// --- Names for commands ---

// What may stand under a name: put there, and whether it fits for a command as it is.
struct standing_row {
    const char *name;
    void (*put)();
    bool pinned;  // with mode 0600
    bool mergeable;
};

void put_mode(mode_t mode)
{
    write_file(PATH, "text");
    ASSERT_EQ(0, chmod(PATH, mode));
}

void put_owner(uid_t owner)
{
    put_mode(0600);
    ASSERT_EQ(0, chown(PATH, owner, 0));
}

constexpr standing_row STANDING[] = {
    {"nothing", [] {}, false, false},
    {"our own", [] { put_mode(0600); }, true, true},
    {"looser", [] { put_mode(0644); }, false, true},
    {"stricter", [] { put_mode(0400); }, false, true},
    {"set-user-id", [] { put_mode(04600); }, false, true},
    {"a stranger's", [] { put_owner(65534); }, false, false},
    {"link", [] { ASSERT_EQ(0, symlink("/tmp/somebodys", PATH)); }, false, false},
    {"dead link", [] { ASSERT_EQ(0, symlink("/tmp/none", PATH)); }, false, false},
    {"second name", [] { ASSERT_EQ(0, link("/tmp/somebodys", PATH)); }, false, false},
    {"FIFO", [] { ASSERT_EQ(0, mkfifo(PATH, 0600)); }, false, false},
    {"folder", [] { ASSERT_EQ(0, mkdir(PATH, 0700)); }, false, false},
    {"full folder", [] { write_file(std::string(PATH) + "/inner", "text"); }, false, false},
};

void expect_fit(const standing_row &row, bool stays, int mode)
{
    struct stat there = {};
    ASSERT_EQ(0, lstat(PATH, &there)) << row.name;
    EXPECT_TRUE(S_ISREG(there.st_mode)) << row.name;
    EXPECT_EQ(1u, there.st_nlink) << row.name;
    EXPECT_EQ(geteuid(), there.st_uid) << row.name;
    EXPECT_EQ(mode, static_cast<int>(there.st_mode & 07777)) << row.name;
    EXPECT_EQ(stays ? "text" : "", read_file(PATH)) << row.name;
    EXPECT_EQ("precious", read_file("/tmp/somebodys")) << row.name;
    EXPECT_FALSE(is_there(FRESH)) << row.name;
    EXPECT_FALSE(is_there("/tmp/none")) << row.name;
}

TEST_F(file, whatever_stands_under_a_pinned_name_becomes_a_file_of_our_own)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    for (const standing_row &row : STANDING) {
        clear_tmp();
        write_file("/tmp/somebodys", "precious");
        row.put();
        EXPECT_TRUE(kelm_pin_file(PATH, KELM_OWNER_ONLY)) << row.name;
        expect_fit(row, row.pinned, 0600);
    }
}

TEST_F(file, one_of_a_trusted_user_is_merged_into_and_anything_else_becomes_our_own)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    for (const standing_row &row : STANDING) {
        clear_tmp();
        write_file("/tmp/somebodys", "precious");
        row.put();
        const int mode = row.mergeable ? file_mode(PATH) : 0600;
        EXPECT_EQ(row.mergeable, kelm_has_own_file(PATH)) << row.name;
        EXPECT_TRUE(kelm_pin_to_merge(PATH)) << row.name;
        expect_fit(row, row.mergeable, mode);
    }
}

TEST_F(file, a_folder_with_something_in_it_is_put_aside_whole)
{
    write_file(std::string(PATH) + "/inner", "kept");
    EXPECT_TRUE(kelm_pin_file(PATH, KELM_OWNER_ONLY));
    glob_t found = {};
    ASSERT_EQ(0, glob("/tmp/file.*/inner", 0, nullptr, &found));
    EXPECT_EQ(1u, found.gl_pathc);
    EXPECT_EQ("kept", read_file(found.gl_pathv[0]));
    globfree(&found);
}

TEST_F(file, a_folder_that_others_may_take_files_from_is_told_of_once)
{
    ASSERT_EQ(0, mkdir("/tmp/common", 0700));
    ASSERT_EQ(0, chmod("/tmp/common", 0777));
    EXPECT_TRUE(kelm_pin_file("/tmp/common/file", KELM_OWNER_ONLY));
    EXPECT_EQ(0, kelm_replace_file("/tmp/common/file", "new", KELM_OWNER_ONLY));
    EXPECT_EQ(
        "kelm[_warn_of_common_folder:N]: /tmp/common/: others may take files away there, "
        "so nothing is safe\n",
        console_text_without_line_numbers());
}

// --- The claimed name ---

TEST_F(file, whatever_a_trusted_user_put_under_a_claimed_name_stays)
{
    for (const standing_row &row : STANDING) {
        const std::string name = row.name;
        if (name == "nothing" || name == "a stranger's")
            continue;
        clear_tmp();
        write_file("/tmp/somebodys", "precious");
        row.put();
        struct stat before = {};
        struct stat after = {};
        ASSERT_EQ(0, lstat(PATH, &before));
        errno = 0;
        EXPECT_FALSE(kelm_claim_file(PATH).valid()) << row.name;
        EXPECT_EQ(EEXIST, errno) << row.name;
        ASSERT_EQ(0, lstat(PATH, &after));
        EXPECT_EQ(before.st_ino, after.st_ino) << row.name;
    }
    EXPECT_EQ("", console_text());
}

TEST_F(file, what_a_stranger_put_under_a_claimed_name_is_moved_aside_and_told)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    for (const standing_row &row : STANDING) {
        const std::string name = row.name;
        if (name == "nothing" || name == "second name")
            continue;
        clear_tmp();
        row.put();
        ASSERT_EQ(0, lchown(PATH, 65534, 65534));
        const unique_fd claimed = kelm_claim_file(PATH);
        ASSERT_TRUE(claimed.valid()) << row.name;
        EXPECT_EQ(3, write(claimed.get(), "own", 3));
        EXPECT_EQ("own", read_file(PATH)) << row.name;
        EXPECT_EQ(0644, file_mode(PATH)) << row.name;
        EXPECT_EQ("kelm[kelm_claim_file:N]: /tmp/file: moved aside, belongs to user 65534\n",
                  console_text_without_line_numbers())
            << row.name;
    }
}

// Each in a process of its own, all let go at once; the exit status says whether it got the name.
int winners_of_a_claim(int processes)
{
    int gate[2];
    EXPECT_EQ(0, ::pipe(gate));
    std::vector<pid_t> children;
    for (int i = 0; i < processes; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            char byte;
            ::close(gate[1]);
            (void)!::read(gate[0], &byte, 1);
            ::_exit(kelm_claim_file(PATH).valid() ? 1 : 0);
        }
        children.push_back(child);
    }
    ::close(gate[0]);
    ::close(gate[1]);
    int winners = 0;
    for (const pid_t child : children) {
        int status = 0;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_TRUE(WIFEXITED(status));
        winners += WEXITSTATUS(status);
    }
    return winners;
}

TEST_F(file, of_several_who_claim_a_strangers_name_at_once_one_gets_it)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    for (int round = 0; round < 100; ++round) {
        clear_tmp();
        write_file(PATH, "stranger's");
        ASSERT_EQ(0, ::lchown(PATH, 65534, 65534));
        ASSERT_EQ(1, winners_of_a_claim(6)) << "round " << round;
    }
}

// --- Reading ---

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
