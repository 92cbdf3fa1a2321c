// SPDX-License-Identifier: ISC
// The bus: mailbox, publication, and what each event becomes, with a real broker and a real client.
#include "ipc/bus.h"

#include <glob.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <set>
#include <thread>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubus.h>
}

#include "core/exec.h"
#include "core/log.h"
#include "core/session.h"
#include "core/signals.h"
#include "daemon/lifecycle.h"
#include "tests/unit/core_faults.h"
#include "tests/unit/core_fixture.h"

using namespace kelm;
using namespace kelm_test;

namespace {

using calls = std::vector<std::string>;
using message = std::function<void(blob_buf *)>;

constexpr const char *BROKER = "/mnt/build/hostlibs/ubusd";
constexpr const char *BROKER_SOCKET = "/var/run/ubus/ubus.sock";
constexpr const char *INFO = "/tmp/kelm.info";

wps_listen_event_t request_of(uint32_t code, uint32_t action)
{
    wps_listen_event_t event = {};
    event.code = code;
    event.action = action;
    return event;
}

// Ends with its parent, however that ends.
pid_t fork_helper()
{
    fflush(nullptr);
    const pid_t child = fork();
    if (child == 0)
        prctl(PR_SET_PDEATHSIG, SIGKILL);
    return child;
}

// The broker and a process with the daemon's bus thread, which empties its mailbox as long as
// "/tmp/drain" exists. Events go out from processes of their own: the library keeps its state
// once per process.
class bus {
public:
    explicit bus(const std::function<void()> &at_start = [] {}) : broker_(start_broker())
    {
        open_mailbox();
        daemon_ = fork_helper();
        if (daemon_ == 0)
            be_the_daemon(at_start);
        wait_for_registration();
    }
    bus(const bus &) = delete;
    bus &operator=(const bus &) = delete;
    ~bus()
    {
        write_file("/tmp/leave", "");
        EXPECT_TRUE(wait_until([this] { return has_ended(daemon_); }));
        for (const pid_t child : {daemon_, broker_}) {
            kill(child, SIGKILL);
            waitpid(child, nullptr, 0);
        }
    }

    // The console's text up to the registration.
    const std::string &start_text() const { return start_text_; }

    static void open_mailbox() { write_file("/tmp/drain", ""); }
    static void close_mailbox()
    {
        unlink("/tmp/drain");
        EXPECT_TRUE(wait_until([] { return file_exists("/tmp/closed"); }));
    }

    // Sends one event; the broker has it when this returns.
    static void send(const char *event, const message &fill)
    {
        const pid_t sender = fork_helper();
        if (sender != 0) {
            ASSERT_EQ(0, exit_of(sender)) << "sending " << event;
            return;
        }
        blob_buf body = {};
        blob_buf_init(&body, 0);
        fill(&body);
        ubus_context *context = ubus_connect(nullptr);
        _exit(context != nullptr && ubus_send_event(context, event, body.head) == 0 ? 0 : 1);
    }

    // Sends an event and expects what the mailbox gives for it: its words, or "" for nothing.
    static void expect_record(const std::string &expected, const char *event, const message &fill)
    {
        (void)recorded_calls();
        send(event, fill);
        calls records;
        if (expected.empty())
            send_marker();
        EXPECT_TRUE(wait_until([&records] {
            records = recorded_calls();
            return !records.empty();
        })) << "no answer from the bus thread";
        const std::string words = expected.empty() ? MARKER : expected;
        EXPECT_EQ((calls{"ops process_bus_msg(" + words + ")"}), records);
    }

private:
    // It stays to be waited for.
    static bool has_ended(pid_t child)
    {
        siginfo_t ended = {};
        return waitid(P_PID, static_cast<id_t>(child), &ended, WEXITED | WNOHANG | WNOWAIT) == 0 &&
               ended.si_pid == child;
    }

    // A request that no test asks for: when it is there, all before it was dealt with.
    static constexpr const char *MARKER = "a 77";
    static void send_marker()
    {
        usleep(30000);  // so that it does not cover up a request that should not be there
        send("wps_cli", [](blob_buf *body) {
            blobmsg_add_u8(body, "action", 0x77);
            blobmsg_add_u8(body, "method", 0);
        });
    }

    static pid_t start_broker()
    {
        const pid_t broker = fork_helper();
        if (broker == 0) {
            execl(BROKER, "ubusd", nullptr);
            execlp("ubusd", "ubusd", nullptr);
            perror("no broker: neither the stand-in nor ubusd in PATH");
            _exit(127);
        }
        EXPECT_TRUE(wait_until(is_broker_listening)) << "no broker";
        return broker;
    }

    // Its socket is there a moment before it listens.
    static bool is_broker_listening()
    {
        sockaddr_un address = {AF_UNIX, {}};
        strcpy(address.sun_path, BROKER_SOCKET);
        const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        const bool connected =
            connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof address) == 0;
        close(fd);
        return connected;
    }

    [[noreturn]] static void be_the_daemon(const std::function<void()> &at_start)
    {
        at_start();
        if (wps_create_ibus_thread() != 0)
            _exit(1);
        while (!file_exists("/tmp/leave")) {
            if (file_exists("/tmp/drain"))
                wps_ibus_handle_event();
            else if (!file_exists("/tmp/closed"))
                write_file("/tmp/closed", "");
            if (file_exists("/tmp/look") && answers.on_call)
                answers.on_call("look");
            usleep(2000);
        }
        leave_process(0);
    }

    // The three handlers are registered in their order, so the last one tells for all.
    void wait_for_registration()
    {
        ASSERT_TRUE(wait_until([this] {
            send("wps_cli", [](blob_buf *) {});
            usleep(20000);
            start_text_ += console_text_without_line_numbers();
            return start_text_.find("Invalid action.\n") != std::string::npos;
        })) << "the bus thread has not registered";
        expect_record("", "nobody listens", [](blob_buf *) {});
        (void)console_text();
    }

    pid_t broker_;
    pid_t daemon_ = -1;
    std::string start_text_;
};

// The different masks of this process's threads; a sanitizer's own threads block all signals too.
std::string signal_masks_of_threads()
{
    constexpr size_t DIGITS = 16;
    std::set<std::string> masks;
    glob_t files = {};
    EXPECT_EQ(0, glob("/proc/self/task/*/status", 0, nullptr, &files));
    for (size_t i = 0; i < files.gl_pathc; ++i) {
        const std::string status = read_file(files.gl_pathv[i]);
        const size_t at = status.find("SigBlk:\t");
        if (at != std::string::npos)
            masks.insert(status.substr(at + 8, DIGITS));
    }
    globfree(&files);
    std::string text;
    for (const std::string &mask : masks)
        text += mask + " ";
    return text;
}

// The words of a record that hold these characters, as this machine reads them.
std::string as_words(const char *characters)
{
    uint32_t words[2] = {};
    memcpy(words, characters, strlen(characters));
    std::string text;
    for (const uint32_t word : words) {
        char part[10] = "";
        if (word != 0)
            snprintf(part, sizeof part, " %x", word);
        text += part;
    }
    return text;
}

message wps_cli(int action, int method, const char *pin = nullptr)
{
    return [action, method, pin](blob_buf *body) {
        blobmsg_add_u32(body, "action", static_cast<uint32_t>(action));
        blobmsg_add_u32(body, "method", static_cast<uint32_t>(method));
        if (pin != nullptr)
            blobmsg_add_string(body, "pin", pin);
    };
}

// A member without a name is what the formatter makes no JSON of.
void add_what_breaks_the_json(blob_buf *body)
{
    blobmsg_add_u32(body, "a", 1);
    blobmsg_add_u32(body, nullptr, 7);
}

class mailbox : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, DUAL_BAND); }
};

class publication : public testing::Test {
protected:
    void SetUp() override { start_core(KELM_MODE_AP, TRI_BAND); }
    void TearDown() override { faults = {}; }
};

}  // namespace

// --- The mailbox ---

TEST_F(mailbox, an_empty_one_is_not_handed_on)
{
    wps_ibus_handle_event();
    EXPECT_EQ(calls{}, recorded_calls());
}

TEST_F(mailbox, a_request_is_handed_on_once)
{
    wps_ibus_set_msg(request_of(IBUS_EVENT_BUTTON, 0));
    wps_ibus_handle_event();
    wps_ibus_handle_event();
    EXPECT_EQ((calls{"ops process_bus_msg(4)"}), recorded_calls());
}

TEST_F(mailbox, two_requests_between_two_passes_are_the_newer_one)
{
    wps_ibus_set_msg(request_of(IBUS_EVENT_WPS_CLI, 1));
    wps_ibus_set_msg(request_of(IBUS_EVENT_WPS_CLI, 2));
    wps_ibus_handle_event();
    wps_ibus_handle_event();
    EXPECT_EQ((calls{"ops process_bus_msg(a 2)"}), recorded_calls());
}

TEST_F(mailbox, a_newer_request_leaves_nothing_of_the_older_one)
{
    wps_listen_event_t event;
    memset(&event, 0xff, sizeof event);
    wps_ibus_set_msg(event);
    wps_ibus_set_msg(request_of(IBUS_EVENT_BUTTON, 0));
    wps_ibus_handle_event();
    EXPECT_EQ((calls{"ops process_bus_msg(4)"}), recorded_calls());
}

TEST_F(mailbox, a_request_without_a_code_counts_as_none)
{
    wps_ibus_set_msg(request_of(IBUS_EVENT_NONE, 1));
    wps_ibus_handle_event();
    EXPECT_EQ(calls{}, recorded_calls());
}

TEST_F(mailbox, a_refused_request_is_gone_too)
{
    answers.process_bus_msg = -1;
    wps_ibus_set_msg(request_of(IBUS_EVENT_BUTTON, 0));
    wps_ibus_handle_event();
    wps_ibus_handle_event();
    EXPECT_EQ(1u, recorded_calls().size());
}

TEST_IN_FRESH_PROCESS(mailbox_lock, a_request_that_comes_while_one_is_served_waits_and_is_not_lost)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    static std::atomic<bool> posted{false};
    static std::thread poster;
    answers.on_call = [](const std::string &call) {
        if (call != "process_bus_msg(4)")
            return;
        poster = std::thread([] {
            wps_ibus_set_msg(request_of(IBUS_EVENT_WPS_CLI, 1));
            posted = true;
        });
        usleep(50000);
        EXPECT_FALSE(posted) << "the mailbox is locked while the platform works";
    };
    wps_ibus_set_msg(request_of(IBUS_EVENT_BUTTON, 0));
    wps_ibus_handle_event();
    poster.join();
    wps_ibus_handle_event();
    EXPECT_EQ((calls{"ops process_bus_msg(4)", "ops process_bus_msg(a 1)"}), recorded_calls());
}

// --- The publication ---

TEST_F(publication, goes_out_through_the_ubus_command_and_then_to_the_info_file)
{
    set_reply("ubus", "echo sent >>/tmp/kelm.info\n");
    const uint16_t statuses[] = {2, 4, 12};
    kelm_set_status(0, WPS_STATUS_SUCCESS);
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_DONE, statuses);
    const calls all = recorded_calls();
    ASSERT_EQ(4u, all.size());
    EXPECT_EQ("ubus send wps '{\"action\":2,\"2g_status\":2,\"5g_status\":4,\"5g2_status\":12}'",
              all[0]);
    EXPECT_EQ("ops get_sta_mac(0)", all[1]);
    EXPECT_EQ(0u, read_file(INFO).find("{ \"wps_action\": 2, \"wl0_wps_status\": \"success\""))
        << "rewritten after the command has run";
}

TEST_F(publication, is_told_twice)
{
    const uint16_t statuses[] = {11, 12, 0};
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_START, statuses);
    EXPECT_EQ(
        "kelm[wps_ubus_send_wps_event:N]: Prepare to send message: action 1, status 11 12 0\n"
        "kelm[wps_ubus_send_wps_event:N]: Prepare to send message: ubus send wps "
        "'{\"action\":1,\"2g_status\":11,\"5g_status\":12,\"5g2_status\":0}'\n",
        console_text_without_line_numbers());
    kelm_dbg_level = 3;
    wps_ibus_send_wps_event(IBUS_WPS_ACTION_START, statuses);
    EXPECT_EQ("", console_text());
}

TEST_F(publication, starts_each_message_anew)
{
    const uint16_t statuses[] = {1, 2, 3};
    for (int i = 0; i < 3; ++i)
        wps_ubus_send_wps_event(1, statuses);
    size_t sent = 0;
    for (const std::string &call : recorded_calls())
        sent += call ==
                "ubus send wps '{\"action\":1,\"2g_status\":1,\"5g_status\":2,\"5g2_status\":3}'";
    EXPECT_EQ(3u, sent);
}

TEST_F(publication, carries_no_word_for_the_6_ghz_band)
{
    const uint16_t statuses[] = {12, 12, 12, 2};
    wps_ubus_send_wps_event(2, statuses);
    EXPECT_EQ("ubus send wps '{\"action\":2,\"2g_status\":12,\"5g_status\":12,\"5g2_status\":12}'",
              recorded_calls().at(0));
}

TEST_F(publication, that_the_broker_refuses_still_rewrites_the_info_file)
{
    set_reply("ubus", "exit 3\n");
    const uint16_t statuses[] = {4, 4, 4};
    wps_ubus_send_wps_event(2, statuses);
    EXPECT_TRUE(file_exists(INFO));
}

TEST_F(publication, that_a_silent_broker_does_not_take_gives_up_after_three_seconds)
{
    set_reply("ubus", "exec sleep 60\n");
    const uint16_t statuses[] = {4, 4, 4};
    const double start = monotonic_seconds();
    wps_ubus_send_wps_event(2, statuses);
    const double took = monotonic_seconds() - start;
    EXPECT_GT(took, 2.9) << "a slow one gets its time";
    EXPECT_LT(took, 20);
    EXPECT_TRUE(file_exists(INFO));
}

TEST_F(publication, without_memory_sends_nothing_and_leaves_the_info_file)
{
    faults.blobmsg_format_json_with_cb = true;
    kelm_dbg_level = 3;
    const uint16_t statuses[] = {4, 4, 4};
    wps_ubus_send_wps_event(2, statuses);
    EXPECT_EQ("create json message failed\n\n", console_messages());
    EXPECT_EQ(calls{}, recorded_calls());
    EXPECT_FALSE(file_exists(INFO));
}

// --- The thread ---

TEST_IN_FRESH_PROCESS(bus_thread, that_cannot_be_made_is_told_at_any_level)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    faults.pthread_create = true;
    kelm_dbg_level = -1;
    EXPECT_EQ(-1, wps_create_ibus_thread());
    EXPECT_EQ("created ibus thread failed\n", console_messages());
}

TEST_IN_FRESH_PROCESS(bus_thread, without_a_broker_says_so_once_and_ends)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    kelm_dbg_level = 3;  // lines of both threads at once would drop one of them
    EXPECT_EQ(0, wps_create_ibus_thread());
    std::string text;
    EXPECT_TRUE(wait_until([&text] {
        text += console_text_without_line_numbers();
        return text == "kelm[wps_ubus_thread:N]: Failed to connect to ubus\n\n";
    })) << text;
    sleep(2);
    EXPECT_EQ("", console_text()) << "no second try";
    wps_ibus_set_msg(request_of(IBUS_EVENT_BUTTON, 0));
    wps_ibus_handle_event();
    EXPECT_EQ(1u, recorded_calls().size()) << "the main thread works on";
}

TEST_IN_FRESH_PROCESS(bus_thread, that_was_made_is_told)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    EXPECT_EQ(0u, running.start_text().find(
                      "kelm[wps_create_ibus_thread:N]: create ibus thread successfully\n"));
}

TEST_IN_FRESH_PROCESS(bus_thread, blocks_all_but_a_crash_and_leaves_the_main_threads_mask)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] {
        answers.on_call = [](const std::string &) {
            write_file("/tmp/masks.part", signal_masks_of_threads());
            rename("/tmp/masks.part", "/tmp/masks");
            unlink("/tmp/look");
        };
        kelm_hold_back_signals();
    });
    write_file("/tmp/look", "");
    ASSERT_TRUE(wait_until([] { return file_exists("/tmp/masks"); }));
#ifdef __SANITIZE_THREAD__
    const std::string sanitizers_own = "fffffffe7ffbfeff ";  // its thread blocks all
#else
    const std::string sanitizers_own;
#endif
    // Signals 10, 12, 15 and 42, and all that can be blocked but those of a crash.
    EXPECT_EQ("0000020000004a00 fffffffe3ffbfa07 " + sanitizers_own, read_file("/tmp/masks"))
        << "(the C library keeps 32 and 33 for itself)";
}

TEST_IN_FRESH_PROCESS(bus_thread, takes_neither_children_nor_the_handler_of_sigterm)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] {
        kelm_claim_signals();
        (void)_kelm_register_signal();
        answers.on_call = [](const std::string &) {
            int kept = 0;
            for (int i = 0; i < 20; ++i) {
                const int status = kelm_system("exit 3");
                kept += WIFEXITED(status) && WEXITSTATUS(status) == 3;
            }
            struct sigaction action = {};
            sigaction(SIGTERM, nullptr, &action);
            const bool own = action.sa_handler == _kelm_handle_signal;
            write_file("/tmp/kept.part", std::to_string(kept) + (own ? " own" : " taken"));
            rename("/tmp/kept.part", "/tmp/kept");
            unlink("/tmp/look");
        };
    });
    write_file("/tmp/look", "");
    ASSERT_TRUE(wait_until([] { return file_exists("/tmp/kept"); }));
    EXPECT_EQ("20 own", read_file("/tmp/kept"));
}

TEST_IN_FRESH_PROCESS(bus_thread, tries_a_refused_registration_again_every_second)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const double start = monotonic_seconds();
    // The three handlers, and the first two of the second round.
    const bus running([] { faults.ubus_register_event_handler = 5; });
    EXPECT_GT(monotonic_seconds() - start, 0.9) << "the last handler came in the second round";
    EXPECT_TRUE(wait_until([] {
        bus::send("gpio", [](blob_buf *body) { blobmsg_add_string(body, "type", "wps"); });
        usleep(20000);
        return recorded_calls() == calls{"ops process_bus_msg(4)"};
    }));
    EXPECT_GT(monotonic_seconds() - start, 1.8) << "the first two in the third";
    usleep(100000);
    bus::expect_record("3 0 0 0 1", "wifi",
                       [](blob_buf *body) { blobmsg_add_u32(body, "action", 1); });
}

// --- What an event becomes ---

TEST_IN_FRESH_PROCESS(bus_events, a_press_of_any_type_is_the_same_request)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    struct row {
        const char *name;
        message fill;
        const char *record;
    };
    const row rows[] = {
        {"as the driver sends it",
         [](blob_buf *body) {
             blobmsg_add_string(body, "type", "wps");
             blobmsg_add_u32(body, "pressed", 1);
         },
         "4"},
        {"release",
         [](blob_buf *body) {
             blobmsg_add_string(body, "type", "other");
             blobmsg_add_u32(body, "pressed", 0);
         },
         "4"},
        {"type of another kind", [](blob_buf *body) { blobmsg_add_u32(body, "type", 0); }, "4"},
        {"no type", [](blob_buf *body) { blobmsg_add_u32(body, "pressed", 1); }, ""},
        {"nothing", [](blob_buf *) {}, ""},
        {"no JSON", add_what_breaks_the_json, "4"},
    };
    for (const row &each : rows) {
        SCOPED_TRACE(each.name);
        bus::expect_record(each.record, "gpio", each.fill);
        const std::string text = console_messages();
        EXPECT_EQ(0u, text.find("Message: {")) << text;
        EXPECT_EQ(each.record[0] == '\0', text.find("Invalid action.\n") != std::string::npos)
            << each.name;
    }
}

TEST_IN_FRESH_PROCESS(bus_events, a_wifi_request_brings_its_action_in_the_fifth_word)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    struct row {
        const char *name;
        message fill;
        const char *record;
    };
    const row rows[] = {
        {"int32", [](blob_buf *body) { blobmsg_add_u32(body, "action", 5); }, "3 0 0 0 5"},
        {"large", [](blob_buf *body) { blobmsg_add_u32(body, "action", 0x12345678); },
         "3 0 0 0 12345678"},
        {"negative", [](blob_buf *body) { blobmsg_add_u32(body, "action", 0xffffffff); },
         "3 0 0 0 ffffffff"},
        {"zero", [](blob_buf *body) { blobmsg_add_u32(body, "action", 0); }, "3"},
        {"no action", [](blob_buf *body) { blobmsg_add_u32(body, "type", 1); }, ""},
        {"nothing", [](blob_buf *) {}, ""},
        {"no JSON", add_what_breaks_the_json, "3"},
    };
    for (const row &each : rows) {
        SCOPED_TRACE(each.name);
        bus::expect_record(each.record, "wifi", each.fill);
        EXPECT_EQ(each.record[0] == '\0',
                  console_messages().find("Invalid action.\n") != std::string::npos)
            << each.name;
    }
}

TEST_IN_FRESH_PROCESS(bus_events, a_wps_cli_request_takes_integers_of_any_width)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    struct row {
        const char *name;
        message fill;
        const char *record;
    };
    const row rows[] = {
        {"8 bits",
         [](blob_buf *body) {
             blobmsg_add_u8(body, "action", 2);
             blobmsg_add_u8(body, "method", 1);
         },
         "a 2 1"},
        {"16 bits",
         [](blob_buf *body) {
             blobmsg_add_u16(body, "action", 2);
             blobmsg_add_u16(body, "method", 3);
         },
         "a 2 3"},
        {"32 bits", wps_cli(1, 1), "a 1 1"},
        {"64 bits",
         [](blob_buf *body) {
             blobmsg_add_u64(body, "action", 2);
             blobmsg_add_u64(body, "method", 2);
         },
         "a 2 2"},
        {"mixed and the other way round",
         [](blob_buf *body) {
             blobmsg_add_u64(body, "method", 1);
             blobmsg_add_u8(body, "action", 1);
         },
         "a 1 1"},
        {"zeros", wps_cli(0, 0), "a"},
        {"254", wps_cli(254, 254), "a fe fe"},
        {"the first wrong one",
         [](blob_buf *body) {
             blobmsg_add_string(body, "action", "2");
             blobmsg_add_u32(body, "action", 1);
             blobmsg_add_u32(body, "method", 1);
         },
         ""},
    };
    for (const row &each : rows) {
        SCOPED_TRACE(each.name);
        bus::expect_record(each.record, "wps_cli", each.fill);
    }
}

TEST_IN_FRESH_PROCESS(bus_events, a_number_beyond_8_bits_is_no_action_rather_than_its_low_byte)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    for (const int number : {255, 257, 258, 65537, -1, -255, 0x7fffff01}) {
        SCOPED_TRACE(number);
        bus::expect_record("a ff 1", "wps_cli", wps_cli(number, 1));
        bus::expect_record("a 1 ff", "wps_cli", wps_cli(1, number, "12345670"));
    }
    bus::expect_record("a ff ff", "wps_cli", [](blob_buf *body) {
        blobmsg_add_u64(body, "action", 0x100000001);
        blobmsg_add_u16(body, "method", 0x0102);
    });
}

TEST_IN_FRESH_PROCESS(bus_events, a_wps_cli_request_without_two_integers_is_refused)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    struct row {
        const char *name;
        message fill;
    };
    const row rows[] = {
        {"nothing", [](blob_buf *) {}},
        {"no action", [](blob_buf *body) { blobmsg_add_u32(body, "method", 1); }},
        {"no method", [](blob_buf *body) { blobmsg_add_u32(body, "action", 1); }},
        {"text",
         [](blob_buf *body) {
             blobmsg_add_string(body, "action", "1");
             blobmsg_add_u32(body, "method", 1);
         }},
        {"number with a point",
         [](blob_buf *body) {
             blobmsg_add_u32(body, "action", 1);
             blobmsg_add_double(body, "method", 1);
         }},
        {"null",
         [](blob_buf *body) {
             blobmsg_add_u32(body, "action", 1);
             blobmsg_add_field(body, BLOBMSG_TYPE_UNSPEC, "method", nullptr, 0);
         }},
        {"table",
         [](blob_buf *body) {
             blobmsg_add_u32(body, "method", 1);
             void *table = blobmsg_open_table(body, "action");
             blobmsg_add_u32(body, "action", 1);
             blobmsg_close_table(body, table);
         }},
        {"other names",
         [](blob_buf *body) {
             blobmsg_add_u32(body, "Action", 1);
             blobmsg_add_u32(body, "methods", 1);
         }},
        {"an integer of the wrong length",
         [](blob_buf *body) {
             blobmsg_add_field(body, BLOBMSG_TYPE_INT32, "action", "\0\0", 2);
             blobmsg_add_u32(body, "method", 1);
         }},
    };
    for (const row &each : rows) {
        SCOPED_TRACE(each.name);
        bus::expect_record("", "wps_cli", each.fill);
        EXPECT_EQ("Invalid action.\n", console_messages());
    }
}

TEST_IN_FRESH_PROCESS(bus_events, a_pin_is_at_most_eight_characters_without_a_terminator)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    for (const char *pin : {"1", "123", "1234", "12345", "12345670", "$(id)\"';"})
        bus::expect_record("a 1 2" + as_words(pin), "wps_cli", wps_cli(1, 2, pin));
}

TEST_IN_FRESH_PROCESS(bus_events, a_start_whose_pin_is_missing_or_too_long_is_refused)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    const message with_a_number = [](blob_buf *body) {
        wps_cli(1, 2)(body);
        blobmsg_add_u32(body, "pin", 12345670);
    };
    const std::string long_pin(4000, '1');
    struct row {
        message fill;
        const char *told;
    };
    const row rows[] = {
        {wps_cli(1, 2), "Invalid pin (no text).\n"},
        {wps_cli(1, 2, ""), "Invalid pin (no text).\n"},
        {with_a_number, "Invalid pin (no text).\n"},
        {wps_cli(1, 2, "123456789"), "Invalid pin (longer than 8 characters).\n"},
        {wps_cli(1, 2, long_pin.c_str()), "Invalid pin (longer than 8 characters).\n"},
    };
    for (const row &each : rows) {
        bus::expect_record("", "wps_cli", each.fill);
        EXPECT_EQ(each.told, console_messages());
    }
}

TEST_IN_FRESH_PROCESS(bus_events, only_a_start_needs_a_pin)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    bus::expect_record("a 2 2", "wps_cli", wps_cli(2, 2));
    bus::expect_record("a 2 2" + as_words("12345678"), "wps_cli", wps_cli(2, 2, "123456789"));
    bus::expect_record("a 1 1", "wps_cli", wps_cli(1, 1, ""));
    bus::expect_record("a 9 2", "wps_cli", wps_cli(9, 2));
}

TEST_IN_FRESH_PROCESS(bus_events, a_pin_counts_with_method_2_only)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    bus::expect_record("a 1 1", "wps_cli", wps_cli(1, 1, "12345670"));
    bus::expect_record("a 1 3", "wps_cli", wps_cli(1, 3, "12345670"));
    bus::expect_record("a 2 2" + as_words("12345670"), "wps_cli", wps_cli(2, 2, "12345670"));
}

TEST_IN_FRESH_PROCESS(bus_events, a_pin_request_is_told_in_detail)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] { kelm_dbg_level = 7; });
    bus::expect_record("a 1 2" + as_words("12345670"), "wps_cli", wps_cli(1, 2, "12345670"));
    EXPECT_EQ("kelm[wps_ubus_wpscli_cb:N]: action: 1, pincode: 12345670\n\n",
              console_text_without_line_numbers());
    bus::expect_record("a 1 1", "wps_cli", wps_cli(1, 1, "12345670"));
    EXPECT_EQ("", console_text());
}

TEST_IN_FRESH_PROCESS(bus_events, a_pin_stays_out_of_the_log_below_the_detailed_level)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] { kelm_dbg_level = 6; });
    bus::expect_record("a 1 2" + as_words("12345670"), "wps_cli", wps_cli(1, 2, "12345670"));
    EXPECT_EQ("", console_text());
}

TEST_IN_FRESH_PROCESS(bus_events, two_presses_between_two_passes_are_one_request)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running;
    const message press = [](blob_buf *body) { blobmsg_add_string(body, "type", "wps"); };
    bus::close_mailbox();
    std::string text;
    for (const size_t count : {1, 2}) {
        bus::send("gpio", press);
        ASSERT_TRUE(wait_until([&text, count] {
            text += console_messages();
            size_t seen = 0;
            for (size_t at = 0; (at = text.find("Message: ", at)) != std::string::npos; ++at)
                ++seen;
            return seen == count;
        }));
    }
    usleep(30000);  // the second one was told, and is about to be posted
    (void)recorded_calls();
    bus::open_mailbox();
    calls records;
    EXPECT_TRUE(wait_until([&records] {
        records = recorded_calls();
        return !records.empty();
    }));
    usleep(30000);
    EXPECT_EQ((calls{"ops process_bus_msg(4)"}), records);
    EXPECT_EQ(calls{}, recorded_calls());
}

namespace {

// A message of this many levels; the innermost holds an integer.
void nest(blob_buf *body, int levels, bool in_arrays)
{
    std::vector<void *> open;
    blobmsg_add_string(body, "type", "wps");
    blobmsg_add_u32(body, "action", 1);
    for (int level = 1; level < levels; ++level)
        open.push_back(in_arrays ? blobmsg_open_array(body, level == 1 ? "a" : nullptr)
                                 : blobmsg_open_table(body, "t"));
    blobmsg_add_u32(body, "deep", 1);
    for (; !open.empty(); open.pop_back()) {
        if (in_arrays)
            blobmsg_close_array(body, open.back());
        else
            blobmsg_close_table(body, open.back());
    }
}

}  // namespace

TEST_IN_FRESH_PROCESS(bus_events, a_message_of_32_levels_is_a_request_and_a_deeper_one_is_none)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] { kelm_dbg_level = 3; });
    for (const bool in_arrays : {false, true}) {
        bus::expect_record("4", "gpio", [&](blob_buf *body) { nest(body, 32, in_arrays); });
        EXPECT_EQ("", console_text_without_line_numbers());
        for (const int levels : {33, 400, 2000, 5000}) {
            for (const char *event : {"gpio", "wifi"}) {
                bus::expect_record("", event,
                                   [&](blob_buf *body) { nest(body, levels, in_arrays); });
                EXPECT_EQ("kelm[wps_ubus_" + std::string(event) +
                              "_cb:N]: Invalid Message (nested too deeply).\n",
                          console_text_without_line_numbers())
                    << levels;
            }
        }
    }
}

TEST_IN_FRESH_PROCESS(bus_events, a_long_message_is_not_a_deep_one)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] { kelm_dbg_level = 3; });
    bus::expect_record("4", "gpio", [](blob_buf *body) {
        for (int i = 0; i < 200; ++i) {
            blobmsg_close_table(body, blobmsg_open_table(body, "t"));
            blobmsg_close_array(body, blobmsg_open_array(body, "a"));
        }
        blobmsg_add_string(body, "type", "wps");
    });
    EXPECT_EQ("", console_text_without_line_numbers());
}

TEST_IN_FRESH_PROCESS(bus_events, a_message_that_cannot_be_formatted_is_told_and_dropped)
{
    start_core(KELM_MODE_AP, DUAL_BAND);
    const bus running([] {
        faults.blobmsg_format_json_with_cb = true;
        kelm_dbg_level = 3;
    });
    for (const char *event : {"gpio", "wifi"}) {
        bus::expect_record("", event, [](blob_buf *body) {
            blobmsg_add_string(body, "type", "wps");
            blobmsg_add_u32(body, "action", 1);
        });
        EXPECT_EQ("kelm[wps_ubus_" + std::string(event) + "_cb:N]: Invalid Message (null).\n",
                  console_text_without_line_numbers());
    }
}
