// SPDX-License-Identifier: ISC
// The control-interface client against a real datagram socket: what it sends, takes, and cleans up.
#include "ctrl/wpa_ctrl.h"

#include <cerrno>
#include <csignal>
#include <cstring>

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include "core/signals.h"
#include "tests/unit/ctrl_server.h"
#include "tests/unit/device.h"

using namespace kelm;
using namespace kelm_test;

namespace {

constexpr const char *server_path = "/var/run/hostapd/wlan1";
constexpr size_t longest_path = 107;  // of a socket address

class wpa_ctrl_client : public testing::Test {
protected:
    void SetUp() override
    {
        reset_world();
        kelm_ending = {};
        forget_faults();
        descriptors_before = open_descriptors();
        passed.clear();
    }

    void TearDown() override { forget_faults(); }

    // Nothing of a failed open may stay.
    void expect_nothing_left(const char *what) const
    {
        EXPECT_EQ(descriptors_before, open_descriptors()) << what;
        EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_")) << what;
    }

    static void note_event(char *message, size_t length)
    {
        EXPECT_EQ('\0', message[length]);
        passed.push_back(std::string(message, length));
    }

    // The local path that the next open of this process will use, from the one of a fresh
    // connection.
    static std::string next_local_path(const std::string &folder)
    {
        const std::string probe_path = "/tmp/probe";
        const ctrl_socket server(probe_path);
        const unique_wpa_ctrl probe(wpa_ctrl_open(probe_path.c_str()));
        const std::string path = probe->local.sun_path;
        const size_t dash = path.rfind('-');
        return folder + "/wpa_ctrl_" + std::to_string(getpid()) + "-" +
               std::to_string(std::stoi(path.substr(dash + 1)) + 1);
    }

    // The local path that comes so many numbers after this one.
    static std::string number_after(const std::string &path, int numbers)
    {
        const size_t dash = path.rfind('-');
        return path.substr(0, dash + 1) +
               std::to_string(std::stoi(path.substr(dash + 1)) + numbers);
    }

    size_t descriptors_before = 0;
    static words passed;  // events that reached the callback
};

words wpa_ctrl_client::passed;

// A connection whose server the test plays.
struct pair_of_sockets {
    ctrl_socket server{server_path};
    unique_wpa_ctrl client{wpa_ctrl_open(server_path)};

    void send(const std::string &datagram) const
    {
        EXPECT_TRUE(server.send(client->local.sun_path, datagram)) << datagram;
    }
};

// Opens before any test does, since the numbers of a process only grow.
std::string first_local_path;
std::string second_local_path;

class first_opens : public testing::Environment {
    void SetUp() override
    {
        if (!first_local_path.empty())
            return;
        const ctrl_socket server(server_path);
        const unique_wpa_ctrl first(wpa_ctrl_open(server_path));
        const unique_wpa_ctrl second(wpa_ctrl_open(server_path));
        ASSERT_TRUE(first && second);
        first_local_path = first->local.sun_path;
        second_local_path = second->local.sun_path;
    }
};

const testing::Environment *const registered = testing::AddGlobalTestEnvironment(new first_opens);

void hold_back_sigterm()
{
    sigset_t held;
    sigemptyset(&held);
    sigaddset(&held, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
}

std::string path_of_length(size_t length)
{
    const std::string folder = "/tmp/control/";
    return folder + std::string(length - folder.size(), 'p');
}

}  // namespace

// --- Opening ---

TEST_F(wpa_ctrl_client, connects_and_sends_from_a_path_of_its_own)
{
    const pair_of_sockets both;
    ASSERT_TRUE(both.client);
    EXPECT_EQ(4, send(wpa_ctrl_get_fd(both.client.get()), "PING", 4, 0));
    std::string sender;
    EXPECT_EQ("PING", both.server.take(&sender));
    EXPECT_EQ(sender, both.client->local.sun_path);
    EXPECT_EQ(0u, sender.find("/tmp/wpa_ctrl_" + std::to_string(getpid()) + "-")) << sender;
    EXPECT_STREQ(server_path, both.client->dest.sun_path);
}

TEST_F(wpa_ctrl_client, a_command_that_is_only_sent_never_waits)
{
    const pair_of_sockets both;
    ASSERT_TRUE(both.client);
    EXPECT_EQ(0, wpa_ctrl_send(both.client.get(), "ATTACH", 6));
    EXPECT_EQ("ATTACH", both.server.take());
    int result = 0;
    for (int sent = 0; sent < 10000 && result == 0; ++sent)
        result = wpa_ctrl_send(both.client.get(), "ATTACH", 6);
    EXPECT_EQ(-1, result) << "its queue is never full";
    EXPECT_EQ(EAGAIN, errno);
}

TEST_F(wpa_ctrl_client, the_first_opens_of_a_process_count_from_1)
{
    const std::string start = "/tmp/wpa_ctrl_" + std::to_string(getpid());
    EXPECT_EQ(start + "-1", first_local_path);
    EXPECT_EQ(start + "-2", second_local_path);
}

TEST_F(wpa_ctrl_client, two_opens_of_one_path_have_two_local_paths)
{
    const ctrl_socket server(server_path);
    const std::string next = next_local_path("/tmp");
    const unique_wpa_ctrl first(wpa_ctrl_open(server_path));
    const unique_wpa_ctrl second(wpa_ctrl_open(server_path));
    ASSERT_TRUE(first && second);
    EXPECT_EQ(next, first->local.sun_path);
    EXPECT_STRNE(first->local.sun_path, second->local.sun_path);
    EXPECT_NE(first->s, second->s);
}

TEST_F(wpa_ctrl_client, the_socket_does_not_block_and_is_not_inherited)
{
    const pair_of_sockets both;
    EXPECT_NE(0, fcntl(both.client->s, F_GETFL) & O_NONBLOCK);
    EXPECT_NE(0, fcntl(both.client->s, F_GETFD) & FD_CLOEXEC);
}

TEST_F(wpa_ctrl_client, a_client_folder_counts_only_when_it_begins_at_the_root)
{
    const ctrl_socket server(server_path);
    ASSERT_EQ(0, mkdir("/tmp/clients", 0755));
    const struct {
        const char *given;
        const char *used;
    } rows[] = {
        {"/tmp/clients", "/tmp/clients"}, {"clients", "/tmp"}, {"", "/tmp"}, {nullptr, "/tmp"}};
    for (const auto &row : rows) {
        const std::string expected = next_local_path(row.used);
        const unique_wpa_ctrl client(wpa_ctrl_open2(server_path, row.given));
        ASSERT_TRUE(client);
        EXPECT_EQ(expected, client->local.sun_path);
        EXPECT_TRUE(file_exists(expected));
    }
}

TEST_F(wpa_ctrl_client, closing_removes_the_local_path_and_the_descriptor)
{
    {
        const pair_of_sockets both;
        EXPECT_EQ(1u, files_in_tmp("wpa_ctrl_").size());
    }
    expect_nothing_left("closed");
    wpa_ctrl_close(nullptr);
}

TEST_F(wpa_ctrl_client, an_abstract_name_is_connected_to)
{
    for (size_t length : {1u, 20u, 107u}) {
        const std::string name(length, 'n');
        const ctrl_socket server("@" + name);
        const unique_wpa_ctrl client(wpa_ctrl_open(("@abstract:" + name).c_str()));
        ASSERT_TRUE(client) << length;
        EXPECT_EQ('\0', client->dest.sun_path[0]);
        EXPECT_EQ(4, send(client->s, "PING", 4, 0));
        EXPECT_EQ("PING", server.take());
    }
}

TEST_F(wpa_ctrl_client, an_abstract_name_beyond_its_field_is_cut_to_107_bytes)
{
    const ctrl_socket server("@" + std::string(107, 'n'));
    const unique_wpa_ctrl client(wpa_ctrl_open(("@abstract:" + std::string(300, 'n')).c_str()));
    ASSERT_TRUE(client);
    EXPECT_EQ(4, send(client->s, "PING", 4, 0));
    EXPECT_EQ("PING", server.take());
}

TEST_F(wpa_ctrl_client, a_control_path_of_107_characters_opens_and_one_of_108_does_not)
{
    const ctrl_socket server(path_of_length(longest_path));
    const ctrl_socket too_long(path_of_length(longest_path + 1));
    EXPECT_TRUE(unique_wpa_ctrl(wpa_ctrl_open(path_of_length(longest_path).c_str())));
    for (size_t length : {longest_path + 1, longest_path + 2, size_t{4000}}) {
        EXPECT_EQ(nullptr, wpa_ctrl_open(path_of_length(length).c_str())) << length;
        EXPECT_EQ(words{}, files_in_tmp("wpa_ctrl_")) << length;
        EXPECT_EQ(descriptors_before + 2, open_descriptors()) << length;
    }
}

TEST_F(wpa_ctrl_client, a_local_path_of_107_characters_opens_and_one_of_108_does_not)
{
    const ctrl_socket server(server_path);
    for (size_t length : {longest_path, longest_path + 1}) {
        const size_t own_part = next_local_path("").size();
        const char name = length == longest_path ? 'd' : 'e';  // the own part may grow by a digit
        const std::string folder = "/tmp/" + std::string(length - own_part - strlen("/tmp/"), name);
        ASSERT_EQ(0, mkdir(folder.c_str(), 0755));
        const unique_wpa_ctrl client(wpa_ctrl_open2(server_path, folder.c_str()));
        EXPECT_EQ(length == longest_path, client != nullptr) << length;
    }
    EXPECT_EQ(descriptors_before + 1, open_descriptors());
}

TEST_F(wpa_ctrl_client, a_stale_local_path_is_removed_and_bound)
{
    const ctrl_socket server(server_path);
    const std::string stale = next_local_path("/tmp");
    {
        // As a process that died leaves it: bound once, nobody behind it.
        const int dead = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        socklen_t length;
        const sockaddr_un address = unix_address(stale, &length);
        ASSERT_EQ(0, bind(dead, reinterpret_cast<const sockaddr *>(&address), length));
        close(dead);
    }
    const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
    ASSERT_TRUE(client);
    EXPECT_EQ(stale, client->local.sun_path);
    EXPECT_EQ(4, send(client->s, "PING", 4, 0));
    EXPECT_EQ("PING", server.take());
}

TEST_F(wpa_ctrl_client, a_local_path_that_cannot_be_removed_is_left_after_two_tries_for_the_next)
{
    const ctrl_socket server(server_path);
    const std::string taken = next_local_path("/tmp");
    ASSERT_EQ(0, mkdir(taken.c_str(), 0755));
    const unique_wpa_ctrl first(wpa_ctrl_open(server_path));
    ASSERT_TRUE(first);
    EXPECT_EQ(number_after(taken, 1), first->local.sun_path);

    // Taken anew between the removal and the second bind: that was the last try of this number.
    const std::string next = next_local_path("/tmp");
    write_file(next, "");
    fail_next("bind", {EADDRINUSE, EADDRINUSE, 0});
    const unique_wpa_ctrl second(wpa_ctrl_open(server_path));
    ASSERT_TRUE(second);
    EXPECT_EQ(number_after(next, 1), second->local.sun_path);
}

TEST_F(wpa_ctrl_client, a_local_path_that_nobody_can_guess_follows_four_that_are_taken)
{
    const ctrl_socket server(server_path);
    words unguessable;
    for (int round = 0; round < 2; ++round) {
        const std::string next = next_local_path("/tmp");
        for (int number = 0; number < 4; ++number)
            ASSERT_EQ(0, mkdir(number_after(next, number).c_str(), 0755));
        const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
        ASSERT_TRUE(client);
        const std::string path = client->local.sun_path;
        const std::string start = number_after(next, 4) + "-";
        ASSERT_EQ(start, path.substr(0, start.size()));
        unguessable.push_back(path.substr(start.size()));
        EXPECT_EQ(16u, unguessable.back().size()) << path;
        EXPECT_EQ(4, send(client->s, "PING", 4, 0));
        EXPECT_EQ("PING", server.take());
    }
    EXPECT_NE(unguessable[0], unguessable[1]);
}

TEST_F(wpa_ctrl_client, the_local_path_is_the_owners_alone_from_its_first_moment)
{
    const ctrl_socket server(server_path);
    const mode_t old = umask(0);
    const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
    umask(old);
    ASSERT_TRUE(client);
    struct stat made;
    ASSERT_EQ(0, lstat(client->local.sun_path, &made));
    EXPECT_EQ(0600u, made.st_mode & 07777);
    EXPECT_EQ(geteuid(), made.st_uid);
}

TEST_F(wpa_ctrl_client, the_local_path_belongs_to_the_owner_of_the_servers_socket)
{
    const ctrl_socket server(server_path);
    if (chown(server_path, 101, 102) != 0)
        GTEST_SKIP() << "only root can give files away";
    const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
    ASSERT_TRUE(client);
    struct stat made;
    ASSERT_EQ(0, lstat(client->local.sun_path, &made));
    EXPECT_EQ(0600u, made.st_mode & 07777);
    EXPECT_EQ(101u, made.st_uid);
    EXPECT_EQ(getegid(), made.st_gid);
}

// Only a name in use is a dead process's; any other refusal would come again, and what stands under
// the name is not ours to remove.
TEST_F(wpa_ctrl_client, a_bind_that_fails_otherwise_removes_nothing_and_is_not_tried_again)
{
    const ctrl_socket server(server_path);
    const size_t before = open_descriptors();
    for (const int error : {EACCES, ENOENT, ENOMEM, EROFS, EINVAL}) {
        const std::string standing = next_local_path("/tmp");
        write_file(standing, "not ours");
        fail_next("bind", {error, 0});
        EXPECT_EQ(nullptr, unique_wpa_ctrl(wpa_ctrl_open(server_path))) << strerror(error);
        forget_faults();
        EXPECT_EQ("not ours", read_file(standing)) << strerror(error);
        EXPECT_EQ(before, open_descriptors()) << strerror(error);
    }
}

TEST_F(wpa_ctrl_client, each_failure_to_open_leaves_nothing_behind)
{
    EXPECT_EQ(nullptr, wpa_ctrl_open(nullptr));
    expect_nothing_left("no path");
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("no server");
    EXPECT_EQ(nullptr, wpa_ctrl_open(""));
    expect_nothing_left("empty path");
    EXPECT_EQ(nullptr, wpa_ctrl_open("@abstract:nobody"));
    expect_nothing_left("no abstract server");
    EXPECT_EQ(nullptr, wpa_ctrl_open2(server_path, "/tmp/no/such/folder"));
    expect_nothing_left("no client folder");
    write_file(server_path, "no socket");
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("a plain file");
    fail_next("socket", {EMFILE});
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("no socket");
    fail_next("calloc", {1});
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("no memory");
    fail_next("bind", {EACCES});
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("no bind");
}

TEST_F(wpa_ctrl_client, a_server_that_has_gone_cannot_be_opened)
{
    const int dead = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(0, mkdir("/var/run/hostapd", 0755));
    socklen_t length;
    const sockaddr_un address = unix_address(server_path, &length);
    ASSERT_EQ(0, bind(dead, reinterpret_cast<const sockaddr *>(&address), length));
    close(dead);
    EXPECT_EQ(nullptr, wpa_ctrl_open(server_path));
    expect_nothing_left("stale server path");
    EXPECT_TRUE(file_exists(server_path));
}

TEST_F(wpa_ctrl_client, a_socket_that_stays_blocking_is_reported_and_used_all_the_same)
{
    const ctrl_socket server(server_path);
    fail_next("fcntl", {0, EINVAL});
    testing::internal::CaptureStderr();
    const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
    EXPECT_EQ("fcntl(ctrl->s, O_NONBLOCK): Invalid argument\n",
              testing::internal::GetCapturedStderr());
    EXPECT_TRUE(client);
}

// --- Attaching ---

TEST_F(wpa_ctrl_client, attaches_and_detaches_with_six_bytes_and_an_ok)
{
    const pair_of_sockets both;
    both.send("OK\n");
    EXPECT_EQ(0, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ(std::string("ATTACH"), both.server.take());
    both.send("OK\n");
    EXPECT_EQ(0, wpa_ctrl_detach(both.client.get()));
    EXPECT_EQ(std::string("DETACH"), both.server.take());
}

TEST_F(wpa_ctrl_client, attaches_to_a_server_that_answers_late)
{
    ctrl_server server(server_path);
    server.answer("ATTACH", {"<3>WPS-TIMEOUT ", "IFNAME=wlan1 <3>WPS-SUCCESS ", "OK\n"});
    const unique_wpa_ctrl client(wpa_ctrl_open(server_path));
    EXPECT_EQ(0, wpa_ctrl_attach(client.get()));
    EXPECT_EQ(words{"ATTACH"}, server.commands());
}

TEST_F(wpa_ctrl_client, only_ok_and_a_line_feed_is_an_ok)
{
    const std::string replies[] = {"FAIL\n", "OK",
                                   "OK\n\n", "ok\n",
                                   "OK\r",   " OK\n",
                                   "",       "OKAY",
                                   "\n",     "UNKNOWN COMMAND\n",
                                   "IFNAME", std::string("OK\n\0", 4)};
    for (const std::string &reply : replies) {
        const pair_of_sockets both;
        both.send(reply);
        EXPECT_EQ(-1, wpa_ctrl_attach(both.client.get())) << reply;
        both.send(reply);
        EXPECT_EQ(-1, wpa_ctrl_detach(both.client.get())) << reply;
    }
}

TEST_F(wpa_ctrl_client, events_before_the_ok_are_passed_over)
{
    const pair_of_sockets both;
    both.send("<3>WPS-SUCCESS ");
    both.send("<");
    both.send("IFNAME=wlan1 <3>WPS-ENROLLEE-SEEN 02:00:00:00:00:01 and much more than ten bytes");
    both.send("IFNAME=");
    both.send("OK\n");
    EXPECT_EQ(0, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ(0, wpa_ctrl_pending(both.client.get()));
}

// --- Requests ---

TEST_F(wpa_ctrl_client, a_reply_comes_back_with_its_length_and_no_more)
{
    const pair_of_sockets both;
    char reply[64];
    memset(reply, '#', sizeof reply);
    size_t length = sizeof reply;
    both.send("PONG\n");
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "PING and more", 4, reply, &length, nullptr));
    EXPECT_EQ(5u, length);
    EXPECT_EQ("PONG\n#", std::string(reply, 6));
    EXPECT_EQ("PING", both.server.take());
}

TEST_F(wpa_ctrl_client, a_reply_longer_than_its_buffer_is_cut)
{
    const pair_of_sockets both;
    char reply[4] = {};
    size_t length = 3;
    both.send("a long reply");
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, nullptr));
    EXPECT_EQ(3u, length);
    EXPECT_STREQ("a l", reply);
}

TEST_F(wpa_ctrl_client, an_empty_reply_is_a_reply)
{
    const pair_of_sockets both;
    char reply[8];
    size_t length = sizeof reply;
    both.send("");
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, nullptr));
    EXPECT_EQ(0u, length);
}

TEST_F(wpa_ctrl_client, events_that_come_first_are_handed_to_the_callback_in_order)
{
    const pair_of_sockets both;
    both.send("<3>first");
    both.send("IFNAME=wlan1 <3>second");
    both.send("IFNAME=");
    both.send("the reply");
    char reply[64];
    size_t length = sizeof reply;
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, note_event));
    EXPECT_EQ((words{"<3>first", "IFNAME=wlan1 <3>second", "IFNAME="}), passed);
    EXPECT_EQ("the reply", std::string(reply, length));
}

TEST_F(wpa_ctrl_client, an_event_that_fills_the_buffer_loses_its_last_byte_to_the_terminator)
{
    const pair_of_sockets both;
    char reply[9];
    reply[8] = '#';
    size_t length = 8;
    both.send("<234567");
    both.send("<2345678");
    both.send("<23456789abc");
    both.send("OK\n");
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, note_event));
    EXPECT_EQ((words{"<234567", "<234567", "<234567"}), passed);
    EXPECT_EQ(3u, length);
    EXPECT_EQ('#', reply[8]);
}

TEST_F(wpa_ctrl_client, a_short_text_that_begins_like_an_interface_name_is_a_reply)
{
    const pair_of_sockets both;
    char reply[64];
    size_t length = sizeof reply;
    both.send("IFNAME");
    EXPECT_EQ(0, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, note_event));
    EXPECT_EQ("IFNAME", std::string(reply, length));
    EXPECT_EQ(words{}, passed);
}

TEST_F(wpa_ctrl_client, a_request_to_a_server_that_has_gone_fails_at_once)
{
    unique_wpa_ctrl client;
    {
        const ctrl_socket server(server_path);
        client.reset(wpa_ctrl_open(server_path));
    }
    char reply[8];
    size_t length = sizeof reply;
    EXPECT_EQ(-1, wpa_ctrl_request(client.get(), "X", 1, reply, &length, nullptr));
    EXPECT_EQ(-1, wpa_ctrl_attach(client.get()));
    EXPECT_EQ(std::vector<unsigned>{}, sleeps());
}

TEST_F(wpa_ctrl_client, a_receive_error_fails_the_request)
{
    const pair_of_sockets both;
    char reply[8];
    size_t length = sizeof reply;
    both.send("OK\n");
    fail_next("recv", {ECONNRESET});
    EXPECT_EQ(-1, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length, nullptr));
    EXPECT_EQ(sizeof reply, length);
}

// --- A busy server: a second between the tries, five seconds in all ---

TEST_F(wpa_ctrl_client, a_busy_server_is_tried_again_every_second)
{
    for (int error : {EAGAIN, EWOULDBLOCK, EBUSY}) {
        const pair_of_sockets both;
        forget_faults();
        stop_clocks();
        both.send("OK\n");
        fail_next("send", {error, error, 0});
        EXPECT_EQ(0, wpa_ctrl_attach(both.client.get()));
        EXPECT_EQ((std::vector<unsigned>{1, 1}), sleeps());
        EXPECT_EQ("ATTACH", both.server.take());
    }
}

TEST_F(wpa_ctrl_client, a_server_that_stays_busy_is_given_up_after_five_seconds)
{
    const pair_of_sockets both;
    stop_clocks();
    fail_next("send", {EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN, 0});
    EXPECT_EQ(-1, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ((std::vector<unsigned>{1, 1, 1, 1, 1}), sleeps());
    EXPECT_EQ("", both.server.take());
}

TEST_F(wpa_ctrl_client, other_send_errors_are_not_tried_again)
{
    for (int error : {ECONNREFUSED, ENOTCONN, EMSGSIZE, ENOBUFS, EPIPE}) {
        const pair_of_sockets both;
        fail_next("send", {error, 0});
        EXPECT_EQ(-1, wpa_ctrl_attach(both.client.get())) << strerror(error);
        EXPECT_EQ(std::vector<unsigned>{}, sleeps());
    }
}

TEST_F(wpa_ctrl_client, a_server_whose_queue_is_full_is_a_busy_one)
{
    const pair_of_sockets both;
    while (send(both.client->s, "X", 1, 0) == 1) {
    }
    ASSERT_EQ(EAGAIN, errno);
    forget_faults();
    stop_clocks();
    EXPECT_EQ(-1, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ(5u, sleeps().size());
}

// --- A silent server: ten seconds for each datagram ---

TEST_F(wpa_ctrl_client, a_silent_server_is_given_up_after_ten_seconds)
{
    const pair_of_sockets both;
    let_polls_time_out();
    EXPECT_EQ(-2, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ(-2, wpa_ctrl_detach(both.client.get()));
    EXPECT_EQ((std::vector<int>{10000, 10000}), poll_limits());
}

// With ten seconds for each of the events, which are no answer.
TEST_F(wpa_ctrl_client, a_server_that_sends_events_alone_is_given_up_after_thirty_seconds)
{
    for (const int events : {2, 3}) {
        const pair_of_sockets both;
        forget_faults();
        stop_clocks();
        for (int i = 0; i < events; ++i)
            both.send("<3>WPS-TIMEOUT ");
        both.send("OK\n");
        char reply[64];
        size_t length = sizeof reply;
        const int expected = events == 2 ? 0 : -2;
        EXPECT_EQ(expected, wpa_ctrl_request(both.client.get(), "X", 1, reply, &length,
                                             [](char *, size_t) { sleep(10); }));
    }
}

TEST_F(wpa_ctrl_client, each_event_starts_the_ten_seconds_anew)
{
    const pair_of_sockets both;
    both.send("<3>one");
    both.send("<3>two");
    both.send("OK\n");
    EXPECT_EQ(0, wpa_ctrl_attach(both.client.get()));
    EXPECT_EQ((std::vector<int>{10000, 10000, 10000}), poll_limits());
}

TEST_F(wpa_ctrl_client, an_interrupted_wait_is_repeated_and_a_failed_one_is_not)
{
    const pair_of_sockets both;
    both.send("OK\n");
    fail_next("poll", {EINTR, EINTR, 0});
    EXPECT_EQ(0, wpa_ctrl_attach(both.client.get()));
    both.send("OK\n");
    fail_next("poll", {ENOMEM, 0});
    EXPECT_EQ(-1, wpa_ctrl_attach(both.client.get()));
}

TEST_F(wpa_ctrl_client, ten_seconds_of_the_machines_clock_are_ten_seconds)
{
    const pair_of_sockets both;
    const time_t before = time(nullptr);
    EXPECT_EQ(-2, wpa_ctrl_attach(both.client.get()));
    const time_t waited = time(nullptr) - before;
    EXPECT_GE(waited, 9);
    EXPECT_LE(waited, 15);
}

// --- SIGTERM: a server that hangs does not hold the daemon ---

TEST_F(wpa_ctrl_client, sigterm_ends_the_wait_for_a_silent_server)
{
    const pair_of_sockets both;
    EXPECT_TRUE(in_child([&] {
        hold_back_sigterm();
        // Comes in the middle of the wait.
        const itimerval soon = {{0, 0}, {0, 200000}};
        (void)signal(SIGALRM, [](int) { (void)raise(SIGTERM); });
        setitimer(ITIMER_REAL, &soon, nullptr);
        const int64_t begun_ms = kelm_monotonic_ms();
        EXPECT_EQ(-2, wpa_ctrl_attach(both.client.get()));
        EXPECT_LT(kelm_monotonic_ms() - begun_ms, 5000);
        // Those that begin later get a share each, the answer that is there is taken.
        for (int i = 0; i < 10; ++i) {
            (void)both.server.take();
            EXPECT_EQ(-2, wpa_ctrl_detach(both.client.get()));
        }
        (void)both.server.take();
        EXPECT_LT(kelm_monotonic_ms() - begun_ms, 8000);
        both.send("OK\n");
        EXPECT_EQ(0, wpa_ctrl_detach(both.client.get()));
    }));
}

TEST_F(wpa_ctrl_client, a_server_that_sends_events_only_does_not_hold_the_daemon_after_sigterm)
{
    const pair_of_sockets both;
    EXPECT_TRUE(in_child([&] {
        kelm_ending = {true, true, kelm_monotonic_ms() - 6000};
        both.send("<3>one");
        both.send("<3>two");
        EXPECT_EQ(-2, wpa_ctrl_detach(both.client.get()));
        EXPECT_EQ(1, wpa_ctrl_pending(both.client.get()));
    }));
}

TEST_F(wpa_ctrl_client, a_busy_server_is_not_tried_again_after_sigterm)
{
    const pair_of_sockets both;
    EXPECT_TRUE(in_child([&] {
        hold_back_sigterm();
        (void)raise(SIGTERM);
        fail_next("send", {EAGAIN, 0});
        EXPECT_EQ(-1, wpa_ctrl_detach(both.client.get()));
        EXPECT_EQ(std::vector<unsigned>{}, sleeps());
    }));
}

// --- Reading without a request ---

TEST_F(wpa_ctrl_client, a_waiting_datagram_is_pending_until_it_is_taken)
{
    const pair_of_sockets both;
    EXPECT_EQ(0, wpa_ctrl_pending(both.client.get()));
    both.send("<3>event");
    EXPECT_EQ(1, wpa_ctrl_pending(both.client.get()));
    char buffer[32];
    size_t length = sizeof buffer;
    EXPECT_EQ(0, wpa_ctrl_recv(both.client.get(), buffer, &length));
    EXPECT_EQ("<3>event", std::string(buffer, length));
    EXPECT_EQ(0, wpa_ctrl_pending(both.client.get()));
    EXPECT_EQ((std::vector<int>{0, 0, 0}), poll_limits());
}

TEST_F(wpa_ctrl_client, taking_where_nothing_waits_fails_at_once_and_leaves_the_length)
{
    const pair_of_sockets both;
    char buffer[32];
    size_t length = sizeof buffer;
    EXPECT_LT(wpa_ctrl_recv(both.client.get(), buffer, &length), 0);
    EXPECT_EQ(sizeof buffer, length);
}

TEST_F(wpa_ctrl_client, the_descriptor_is_the_socket)
{
    const pair_of_sockets both;
    EXPECT_EQ(both.client->s, wpa_ctrl_get_fd(both.client.get()));
    EXPECT_GE(both.client->s, 0);
}
