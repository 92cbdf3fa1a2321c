// SPDX-License-Identifier: ISC
// Whose files decide.
#include "core/trust.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "tests/world/world.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *PATH = "/tmp/file";
constexpr uid_t STRANGER = 65534;
constexpr uid_t WIFI_USER = 101;

class trust : public testing::Test {
protected:
    void SetUp() override { reset_world(); }
};

void give(const std::string &path, uid_t user)
{
    ASSERT_EQ(0, lchown(path.c_str(), user, user));
}

void put_socket(const std::string &path, uid_t user)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    ASSERT_LT(path.size(), sizeof address.sun_path);
    path.copy(address.sun_path, path.size());
    const unique_fd made(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    ASSERT_EQ(0, bind(made.get(), reinterpret_cast<sockaddr *>(&address), sizeof address));
    give(path, user);
}

void put_folder(const std::string &path, mode_t mode, uid_t user)
{
    ASSERT_EQ(0, mkdir(path.c_str(), 0700));
    ASSERT_EQ(0, chmod(path.c_str(), mode));
    give(path, user);
}

bool is_used()
{
    return kelm_open_trusted(PATH, O_RDONLY).valid();
}

TEST_F(trust, a_file_of_our_own_is_used_and_nothing_is_told)
{
    for (const mode_t mode : {0400, 0600, 0644, 0755}) {
        write_file(PATH, "text");
        ASSERT_EQ(0, chmod(PATH, mode));
        EXPECT_TRUE(is_used()) << mode;
    }
    EXPECT_EQ("", console_text());
}

TEST_F(trust, a_file_that_others_may_write_to_is_used_with_a_warning)
{
    for (const mode_t mode : {0664, 0666, 0622, 0602}) {
        write_file(PATH, "text");
        ASSERT_EQ(0, chmod(PATH, mode));
        EXPECT_TRUE(is_used()) << mode;
        EXPECT_EQ("kelm[_is_usable:N]: /tmp/file: used, though others may write to it\n",
                  console_text_without_line_numbers());
    }
}

TEST_F(trust, whatever_belongs_to_a_stranger_is_not_used_and_told)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    const auto put_file = [] { write_file(PATH, "text"); };
    const auto put_fifo = [] { ASSERT_EQ(0, mkfifo(PATH, 0666)); };
    const auto put_inner = [] { write_file(std::string(PATH) + "/inner", "text"); };
    const auto put_link = [] {
        write_file("/tmp/roots", "text");
        ASSERT_EQ(0, symlink("/tmp/roots", PATH));
    };
    using putter = void (*)();
    const putter putters[] = {put_file, put_fifo, put_inner, put_link};
    for (const putter put : putters) {
        clear_tmp();
        put();
        give(PATH, STRANGER);
        errno = 0;
        EXPECT_FALSE(is_used());
        EXPECT_EQ(EPERM, errno);
        EXPECT_EQ("kelm[_has_trusted_owner:N]: /tmp/file: not used, belongs to user 65534\n",
                  console_text_without_line_numbers());
    }
}

TEST_F(trust, what_is_missing_is_not_told)
{
    EXPECT_FALSE(is_used());
    EXPECT_EQ(ENOENT, errno);
    EXPECT_EQ("", console_text());
}

TEST_F(trust, a_link_of_a_trusted_user_leads_to_a_trusted_users_file_only)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    write_file("/tmp/folder/real", "text");
    ASSERT_EQ(0, symlink("folder/next", PATH));
    ASSERT_EQ(0, symlink("real", "/tmp/folder/next"));
    EXPECT_TRUE(is_used()) << "relative to the folder of each link";
    EXPECT_EQ("", console_text());

    give("/tmp/folder/real", STRANGER);
    EXPECT_FALSE(is_used());
    give("/tmp/folder/real", 0);
    give("/tmp/folder/next", STRANGER);
    EXPECT_FALSE(is_used());
    EXPECT_EQ(
        "kelm[_has_trusted_owner:N]: /tmp/file: not used, belongs to user 65534\n"
        "kelm[_has_trusted_owner:N]: /tmp/file: not used, belongs to user 65534\n",
        console_text_without_line_numbers());
}

TEST_F(trust, links_that_lead_nowhere_or_in_circles_are_missing)
{
    ASSERT_EQ(0, symlink("/tmp/none", PATH));
    EXPECT_FALSE(is_used());
    EXPECT_EQ(ENOENT, errno);
    ASSERT_EQ(0, symlink("other", "/tmp/circle"));
    ASSERT_EQ(0, symlink("circle", "/tmp/other"));
    EXPECT_FALSE(kelm_open_trusted("/tmp/circle", O_RDONLY).valid());
    EXPECT_EQ(ELOOP, errno);
    EXPECT_EQ("", console_text());
}

TEST_F(trust, a_file_with_a_second_name_is_not_used_and_told)
{
    write_file(PATH, "text");
    ASSERT_EQ(0, link(PATH, "/tmp/second"));
    EXPECT_FALSE(is_used());
    EXPECT_EQ("kelm[_is_usable:N]: /tmp/file: not used, has another name\n",
              console_text_without_line_numbers());
}

TEST_F(trust, what_is_opened_is_not_handed_to_started_programs)
{
    write_file(PATH, "text");
    const unique_fd file = kelm_open_trusted(PATH, O_RDWR);
    ASSERT_TRUE(file.valid());
    EXPECT_EQ(FD_CLOEXEC, fcntl(file.get(), F_GETFD) & FD_CLOEXEC);
}

TEST_F(trust, the_owner_of_a_control_socket_is_trusted)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    for (const std::string folder : {"/var/run/hostapd", "/var/run/wpa_supplicant"}) {
        for (const uid_t owner : {uid_t{0}, WIFI_USER}) {
            reset_world();
            put_folder(folder, 0750, owner);
            EXPECT_FALSE(kelm_is_trusted_user(WIFI_USER)) << "the folder alone is not enough";
            put_socket(folder + "/wlan1", WIFI_USER);
            EXPECT_TRUE(kelm_is_trusted_user(WIFI_USER)) << folder << owner;
            EXPECT_FALSE(kelm_is_trusted_user(STRANGER));
            write_file(PATH, "text");
            give(PATH, WIFI_USER);
            EXPECT_TRUE(is_used());
        }
    }
}

TEST_F(trust, a_socket_that_a_stranger_may_have_made_makes_nobody_trusted)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    struct row {
        mode_t run_mode, mode;
        uid_t owner;
    };
    for (const row &each : {row{0755, 0777, 0}, row{0755, 0775, 0}, row{0755, 0755, WIFI_USER},
                            row{0777, 0755, STRANGER}, row{01777, 0755, STRANGER}}) {
        reset_world();
        ASSERT_EQ(0, chmod("/var/run", each.run_mode));
        put_folder("/var/run/hostapd", each.mode, each.owner);
        put_socket("/var/run/hostapd/wlan1", STRANGER);
        EXPECT_FALSE(kelm_is_trusted_user(STRANGER)) << std::oct << each.mode << each.owner;
        ASSERT_EQ(0, chmod("/var/run", 0755));
    }
}

TEST_F(trust, only_a_socket_tells_a_control_interface)
{
    if (!may_give_files_away())
        GTEST_SKIP() << "files cannot be given to other users here: needs root";
    put_folder("/var/run/hostapd", 0755, 0);
    write_file("/var/run/hostapd/file", "");
    give("/var/run/hostapd/file", STRANGER);
    ASSERT_EQ(0, symlink("/var/run/hostapd/file", "/var/run/hostapd/link"));
    give("/var/run/hostapd/link", STRANGER);
    EXPECT_FALSE(kelm_is_trusted_user(STRANGER));
}

}  // namespace
