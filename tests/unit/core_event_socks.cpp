// SPDX-License-Identifier: ISC
// The event sockets: who gets one, the list, the wait for a packet.
#include "ipc/event_socks.h"

#include <errno.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include <thread>

#include "core/log.h"
#include "core/session.h"
#include "core/signals.h"
#include "ipc/bus.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;

class event_socks : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, ALL_BANDS); }
    void TearDown() override { faults = {}; }

    static void enable(std::initializer_list<int> bands, uint32_t flag = WPS_FLAG_APBSS_ENABLE)
    {
        for (const int band : bands)
            kelm_set_wps_flag_bit(band, flag);
    }

    void open_sockets(std::initializer_list<int> bands)
    {
        enable(bands);
        ASSERT_EQ(0, kelm_worker_sock_init());
        (void)recorded_calls();
    }

    static void send_to(int band, const std::string &text)
    {
        ASSERT_EQ(static_cast<ssize_t>(text.size()),
                  send(peer_of(band), text.data(), text.size(), 0));
    }

    // One wait on the list; the band that delivered, or -1.
    int wait()
    {
        memset(buffer, 0, sizeof buffer);
        length = KELM_MSG_SIZE;
        const kelm_sock_entry *entry = _kelm_check_fd(buffer, &length, kelm_sock_list);
        return entry == nullptr ? -1 : static_cast<int>(entry->band);
    }

    char buffer[KELM_MSG_SIZE + 1];
    size_t length;
};

std::vector<int> bands_in_list()
{
    std::vector<int> bands;
    for (const kelm_sock_entry *entry = kelm_sock_list; entry != nullptr; entry = entry->next)
        bands.push_back(static_cast<int>(entry->band));
    return bands;
}

}  // namespace

TEST_F(event_socks, an_entry_is_added_at_the_head_and_only_once)
{
    kelm_sock_entry entries[3] = {{nullptr, 0, -1, 0}, {nullptr, 0, -1, 1}, {nullptr, 0, -1, 2}};
    for (kelm_sock_entry &entry : entries)
        kelm_sock_list_add(&entry);
    for (kelm_sock_entry &entry : entries)
        kelm_sock_list_add(&entry);
    EXPECT_EQ((std::vector<int>{2, 1, 0}), bands_in_list());
    kelm_sock_list = nullptr;
}

TEST_F(event_socks, an_entry_is_removed_wherever_it_stands_and_a_strange_one_is_ignored)
{
    kelm_sock_entry entries[3] = {{nullptr, 0, -1, 0}, {nullptr, 0, -1, 1}, {nullptr, 0, -1, 2}};
    kelm_sock_entry stranger = {nullptr, 0, -1, 3};
    kelm_sock_list_del(&stranger);
    for (kelm_sock_entry &entry : entries)
        kelm_sock_list_add(&entry);
    kelm_sock_list_del(&stranger);
    kelm_sock_list_del(&entries[1]);
    EXPECT_EQ((std::vector<int>{2, 0}), bands_in_list());
    kelm_sock_list_del(&entries[2]);
    EXPECT_EQ((std::vector<int>{0}), bands_in_list());
    kelm_sock_list_del(&entries[0]);
    kelm_sock_list_del(&entries[0]);
    EXPECT_EQ(nullptr, kelm_sock_list);
}

TEST_F(event_socks, every_enabled_band_of_the_device_gets_a_socket)
{
    enable({0, 2});
    enable({1}, WPS_FLAG_STABSS_ENABLE);
    EXPECT_EQ(0, kelm_worker_sock_init());
    EXPECT_EQ((calls{"ops event_sock_init(0)", "ops event_sock_init(2)"}), recorded_calls());
    EXPECT_EQ((std::vector<int>{2, 0}), bands_in_list()) << "the one added last is the first";
    for (const kelm_sock_entry *entry = kelm_sock_list; entry != nullptr; entry = entry->next) {
        EXPECT_EQ(KELM_PKT_WORKER, entry->packet_type);
        EXPECT_EQ(&kelm_worker_socks[entry->band], entry);
        EXPECT_GE(entry->fd, 0);
    }
}

TEST_F(event_socks, a_repeater_opens_the_sockets_of_its_stations)
{
    start_core(KELM_MODE_REPEATER, DUAL_BAND);
    enable({0}, WPS_FLAG_APBSS_ENABLE);
    enable({1}, WPS_FLAG_STABSS_ENABLE);
    EXPECT_EQ(0, kelm_worker_sock_init());
    EXPECT_EQ((calls{"ops event_sock_init(1)"}), recorded_calls());
}

TEST_F(event_socks, a_band_that_the_device_has_not_gets_none)
{
    start_core(KELM_MODE_AP, ONLY_5G);
    enable({0, 1, 2, 3});
    EXPECT_EQ(0, kelm_worker_sock_init());
    EXPECT_EQ((calls{"ops event_sock_init(1)"}), recorded_calls());
}

TEST_F(event_socks, the_first_socket_that_fails_ends_the_set_up_and_keeps_the_others)
{
    enable({0, 1, 2});
    answers.event_sock_init[1] = -1;
    EXPECT_EQ(-1, kelm_worker_sock_init());
    EXPECT_EQ((calls{"ops event_sock_init(0)", "ops event_sock_init(1)"}), recorded_calls());
    EXPECT_EQ((std::vector<int>{0}), bands_in_list());
    send_to(0, "x");
    EXPECT_EQ(0, wait()) << "the one opened before is still open";
}

TEST_F(event_socks, opening_again_renews_each_socket_and_keeps_the_list_sound)
{
    open_sockets({0, 1});
    EXPECT_EQ(0, kelm_worker_sock_init());
    EXPECT_EQ((std::vector<int>{1, 0}), bands_in_list());
    answers.event_sock_init[1] = -1;
    EXPECT_EQ(-1, kelm_worker_sock_init());
    EXPECT_EQ((std::vector<int>{0}), bands_in_list());
}

TEST_F(event_socks, closing_hands_each_enabled_bands_descriptor_back)
{
    answers.event_sock_init[0] = 500;
    answers.event_sock_init[2] = 502;
    open_sockets({0, 2});
    kelm_worker_sock_deinit();
    EXPECT_EQ((calls{"ops event_sock_deinit(0, 500)", "ops event_sock_deinit(2, 502)"}),
              recorded_calls());
    EXPECT_EQ(nullptr, kelm_sock_list);
}

TEST_F(event_socks, a_packet_comes_with_its_length_and_its_entry)
{
    open_sockets({0, 1});
    send_to(0, "WPS-TIMEOUT ");
    EXPECT_EQ(0, wait());
    EXPECT_EQ(12u, length);
    EXPECT_STREQ("WPS-TIMEOUT ", buffer);
}

TEST_F(event_socks, of_two_ready_sockets_the_one_added_last_is_read_first)
{
    open_sockets({0, 1});
    send_to(0, "first sent");
    send_to(1, "second sent");
    EXPECT_EQ(1, wait());
    EXPECT_STREQ("second sent", buffer);
    EXPECT_EQ(0, wait()) << "the other one keeps its packet for the next pass";
    EXPECT_STREQ("first sent", buffer);
}

TEST_F(event_socks, one_packet_is_read_at_a_time)
{
    open_sockets({0});
    send_to(0, "one");
    send_to(0, "two");
    EXPECT_EQ(0, wait());
    EXPECT_STREQ("one", buffer);
    EXPECT_EQ(0, wait());
    EXPECT_STREQ("two", buffer);
}

TEST_F(event_socks, a_packet_that_fills_the_buffer_is_still_terminated)
{
    open_sockets({0});
    const std::string full(2048, 'x');
    send_to(0, full);
    EXPECT_EQ(0, wait());
    EXPECT_EQ(2048u, length);
    EXPECT_EQ(full, buffer);
}

TEST_F(event_socks, a_longer_packet_is_cut_and_its_rest_is_gone)
{
    open_sockets({0});
    send_to(0, std::string(2048, 'x') + "rest");
    send_to(0, "next");
    EXPECT_EQ(0, wait());
    EXPECT_EQ(2048u, length);
    EXPECT_EQ(0, wait());
    EXPECT_STREQ("next", buffer);
}

TEST_F(event_socks, an_empty_packet_is_a_packet)
{
    open_sockets({0});
    send_to(0, "");
    EXPECT_EQ(0, wait());
    EXPECT_EQ(0u, length);
}

TEST_F(event_socks, without_a_packet_the_wait_ends_silently_after_a_second)
{
    open_sockets({0});
    kelm_dbg_level = 7;
    const double start = monotonic_seconds();
    EXPECT_EQ(-1, wait());
    EXPECT_GT(monotonic_seconds() - start, 0.95);
    EXPECT_EQ("", console_text());
}

TEST_F(event_socks, an_empty_list_waits_a_second_and_tells_that_in_detail)
{
    kelm_dbg_level = 7;
    const double start = monotonic_seconds();
    EXPECT_EQ(-1, wait());
    EXPECT_GT(monotonic_seconds() - start, 0.95);
    EXPECT_EQ("kelm[_kelm_check_fd:N]: no fd set!\n", console_text_without_line_numbers());
}

TEST_F(event_socks, a_descriptor_that_cannot_be_received_from_is_told_in_detail)
{
    int ends[2];
    ASSERT_EQ(0, pipe(ends));
    ASSERT_EQ(1, write(ends[1], "x", 1));
    answers.event_sock_init[0] = ends[0];
    open_sockets({0});
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("", console_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("kelm[_kelm_check_fd:N]: failed to recvfrom: Socket operation on non-socket\n",
              console_text_without_line_numbers());
    EXPECT_EQ((std::vector<int>{0}), bands_in_list()) << "a failing socket is not removed";
    close(ends[0]);
    close(ends[1]);
}

// Passed over, the error would stay, and every wait after this one would end at once.
TEST_F(event_socks, a_socket_with_an_error_is_read_which_clears_it)
{
    open_sockets({0});
    kelm_dbg_level = 7;
    // Our packet is thrown away unread, as when a Wi-Fi daemon is restarted.
    ASSERT_EQ(1, send(kelm_sock_list->fd, "x", 1, 0));
    sockaddr nobody = {};
    nobody.sa_family = AF_UNSPEC;
    ASSERT_EQ(0, connect(peer_of(0), &nobody, sizeof nobody));
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("failed to recvfrom: Connection reset by peer\n", console_messages());
    const double start = monotonic_seconds();
    EXPECT_EQ(-1, wait());
    EXPECT_GT(monotonic_seconds() - start, 0.95);
    EXPECT_EQ("", console_text());
}

TEST_F(event_socks, a_wait_that_fails_is_told_in_detail_and_an_interrupted_one_is_not)
{
    open_sockets({0});
    faults.ppoll_error = ENOMEM;
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("", console_text());
    kelm_dbg_level = 7;
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("kelm[_kelm_check_fd:N]: select failed\n", console_text_without_line_numbers());
    faults.ppoll_error = EINTR;
    EXPECT_EQ(-1, wait());
    EXPECT_EQ("", console_text());
}

TEST_F(event_socks, a_wait_that_keeps_failing_does_not_turn_at_full_speed)
{
    open_sockets({0});
    faults.ppoll_error = EINVAL;
    const double start = monotonic_seconds();
    EXPECT_EQ(-1, wait());
    EXPECT_GT(monotonic_seconds() - start, 0.95);
}

TEST_F(event_socks, an_empty_list_waits_its_second_where_every_wait_fails_too)
{
    faults.ppoll_error = EINVAL;
    const double start = monotonic_seconds();
    EXPECT_EQ(-1, wait());
    EXPECT_GT(monotonic_seconds() - start, 0.95);
}

// The wake-up is made before the thread, so that the thread's failure leaves it there alone.
void open_mailbox_alone()
{
    faults.pthread_create = true;
    EXPECT_EQ(-1, wps_create_ibus_thread());
    faults = {};
}

void press_the_button()
{
    wps_listen_event_t request = {};
    request.code = IBUS_EVENT_BUTTON;
    wps_ibus_set_msg(request);
}

double seconds_of_one_wait()
{
    char buffer[KELM_MSG_SIZE + 1];
    size_t length = KELM_MSG_SIZE;
    const double start = monotonic_seconds();
    EXPECT_TRUE(_kelm_check_fd(buffer, &length, kelm_sock_list) == nullptr);
    return monotonic_seconds() - start;
}

TEST_IN_FRESH_PROCESS(mailbox_and_wait, a_request_ends_the_wait_and_the_next_lasts_its_second_again)
{
    start_core(KELM_MODE_AP, ALL_BANDS);
    open_mailbox_alone();
    std::thread presser([] {
        usleep(50000);
        press_the_button();
    });
    EXPECT_LT(seconds_of_one_wait(), 0.9);
    presser.join();
    wps_ibus_handle_event();
    EXPECT_GT(seconds_of_one_wait(), 0.95);
}

TEST_IN_FRESH_PROCESS(mailbox_and_wait, a_request_that_came_before_the_wait_ends_it_too)
{
    start_core(KELM_MODE_AP, ALL_BANDS);
    open_mailbox_alone();
    press_the_button();
    EXPECT_LT(seconds_of_one_wait(), 0.9);
}

TEST_IN_FRESH_PROCESS(mailbox_and_wait, a_packet_and_a_request_are_both_served)
{
    start_core(KELM_MODE_AP, ALL_BANDS);
    kelm_set_wps_flag_bit(0, WPS_FLAG_APBSS_ENABLE);
    ASSERT_EQ(0, kelm_worker_sock_init());
    open_mailbox_alone();
    press_the_button();
    ASSERT_EQ(6, send(peer_of(0), "packet", 6, 0));
    char buffer[KELM_MSG_SIZE + 1] = {};
    size_t length = KELM_MSG_SIZE;
    EXPECT_EQ(&kelm_worker_socks[0], _kelm_check_fd(buffer, &length, kelm_sock_list));
    EXPECT_STREQ("packet", buffer);
    (void)recorded_calls();
    wps_ibus_handle_event();
    EXPECT_EQ((calls{"ops process_bus_msg(4)"}), recorded_calls());
}
