// SPDX-License-Identifier: ISC
// The bus client: against the built broker, and against scripts that play one.
#include "support.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

namespace {
const char *const kHello = "00000000 31639df1 00000004";
const uint32_t kObject = 0xa2cd20df;

std::string received;

void note_event(ubus_context *, ubus_event_handler *, const char *type, blob_attr *msg)
{
    char *text = blobmsg_format_json(msg, true);
    received += std::string(type) + text + " ";
    free(text);
}

struct Context {
    explicit Context(const std::string &socket) : ctx(ubus_connect(socket.c_str()))
    {
        ev.cb = note_event;
        received.clear();
    }
    Context(const Context &) = delete;
    Context &operator=(const Context &) = delete;
    ~Context() { ubus_free(ctx); }
    int send(const char *type, const char *json = "{}")
    {
        Buffer buf;
        EXPECT_TRUE(blobmsg_add_json_from_string(&buf.b, json));
        return ubus_send_event(ctx, type, buf.b.head);
    }
    // Handles what arrives until the text is there.
    bool receives(const std::string &text)
    {
        return eventually([&] {
            ubus_handle_event(ctx);
            return received == text;
        });
    }
    ubus_context *ctx;
    ubus_event_handler ev{};
};

void hold_until_the_client_goes(int fd)
{
    read_exactly(fd, 1, 60000);
}

// The broker's half of registering one handler, byte by byte.
void serve_registration(int fd)
{
    write_bytes(fd, unhex(kHello));
    read_exactly(fd, 12);
    write_bytes(fd, unhex("00020001 00000000 0000000c 03000008 a2cd20df"));
    write_bytes(fd, unhex("00010001 00000000 0000000c 01000008 00000000"));
    read_exactly(fd, 80);
    write_bytes(fd, unhex("00010002 00000001 0000000c 01000008 00000000"));
}

const char *const kEvent =
    "00050007 00000000 00000040 03000008 a2cd20df 04000008 77707300 0700002c"
    "85000014 00066163 74696f6e 00000000 00000001"
    "85000014 00093267 5f737461 74757300 0000000b";
const char *const kEventAnswer = "00010007 00000000 00000014 01000008 00000000 03000008 a2cd20df";

// Bytes that a script saw, for the test's thread to look at once the script is over.
struct Seen {
    Bytes bytes;
};
}  // namespace

TEST(libubus, statuses_have_these_texts)
{
    const char *texts[] = {"Success",
                           "Invalid command",
                           "Invalid argument",
                           "Method not found",
                           "Not found",
                           "No response",
                           "Permission denied",
                           "Request timed out",
                           "Operation not supported",
                           "Unknown error",
                           "Connection failed",
                           "Out of memory",
                           "Parsing message data failed",
                           "System error",
                           "Unknown error: 14"};
    for (int i = 0; i < 15; i++)
        EXPECT_STREQ(texts[i], ubus_strerror(i));
    EXPECT_STREQ("Unknown error: -1", ubus_strerror(-1));
}

TEST(libubus, registering_sends_exactly_these_bytes)
{
    TempDir dir;
    Seen add, call;
    {
        FakeBroker broker(dir / "bus", [&](int fd) {
            write_bytes(fd, unhex(kHello));
            add.bytes = read_exactly(fd, 12);
            write_bytes(fd, unhex("00020001 00000000 0000000c 03000008 a2cd20df"
                                  "00010001 00000000 0000000c 01000008 00000000"));
            call.bytes = read_exactly(fd, 80);
            write_bytes(fd, unhex("00010002 00000001 0000000c 01000008 00000000"));
        });
        Context c(dir / "bus");
        ASSERT_NE(nullptr, c.ctx);
        EXPECT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
        EXPECT_EQ(kObject, c.ev.obj.id);
    }
    EXPECT_EQ("00060001 00000000 00000004", hex(add.bytes));
    EXPECT_EQ(
        "00050002 00000001 00000048 03000008 00000001 0400000d 72656769 73746572 00000000 "
        "0700002c 85000014 00066f62 6a656374 00000000 a2cd20df "
        "83000012 00077061 74746572 6e000000 2a000000",
        hex(call.bytes));
}

TEST(libubus, sending_sends_exactly_these_bytes)
{
    TempDir dir;
    Seen call;
    {
        FakeBroker broker(dir / "bus", [&](int fd) {
            write_bytes(fd, unhex(kHello));
            call.bytes = read_exactly(fd, 104);
            write_bytes(fd, unhex("00010001 00000001 0000000c 01000008 00000000"));
        });
        Context c(dir / "bus");
        EXPECT_EQ(0, c.send("wps", "{\"action\":1,\"2g_status\":11}"));
    }
    EXPECT_EQ(
        "00050001 00000001 00000060 03000008 00000001 04000009 73656e64 00000000 07000048 "
        "83000010 00026964 00000000 77707300 82000034 00046461 74610000 "
        "85000014 00066163 74696f6e 00000000 00000001 "
        "85000014 00093267 5f737461 74757300 0000000b",
        hex(call.bytes));
}

TEST(libubus, an_event_is_understood_and_answered_however_it_is_cut)
{
    const Bytes event = unhex(kEvent);
    for (size_t cut = 0; cut < event.size(); cut++) {
        TempDir dir;
        Seen answer;
        {
            FakeBroker broker(dir / "bus", [&](int fd) {
                serve_registration(fd);
                write_bytes(fd, Bytes(event.begin(), event.begin() + static_cast<long>(cut)));
                sleep_ms(2);
                write_bytes(fd, Bytes(event.begin() + static_cast<long>(cut), event.end()));
                answer.bytes = read_exactly(fd, 28);
            });
            Context c(dir / "bus");
            ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
            EXPECT_TRUE(c.receives("wps{\"action\":1,\"2g_status\":11} ")) << cut;
        }
        ASSERT_EQ(hex(unhex(kEventAnswer)), hex(answer.bytes)) << cut;
    }
}

TEST(libubus, one_wake_up_delivers_everything_that_has_arrived)
{
    TempDir dir;
    std::atomic<bool> written{false};
    FakeBroker broker(dir / "bus", [&](int fd) {
        serve_registration(fd);
        Bytes two = unhex(kEvent), one = two;
        two.insert(two.end(), one.begin(), one.end());
        write_bytes(fd, two);
        written = true;
        read_exactly(fd, 56);
    });
    Context c(dir / "bus");
    ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
    ASSERT_TRUE(eventually([&] { return written.load(); }));
    ubus_handle_event(c.ctx);
    EXPECT_EQ("wps{\"action\":1,\"2g_status\":11} wps{\"action\":1,\"2g_status\":11} ", received);
}

TEST(libubus, odd_invocations_get_their_status_and_no_callback)
{
    const struct {
        const char *message, *answer;
    } rows[] = {
        {"00050009 00000000 00000018 03000008 00001234 04000006 78000000 07000004",
         "00010009 00000000 00000014 01000008 00000004 03000008 00001234"},
        {"00050009 00000000 00000010 03000008 a2cd20df 07000004",
         "00010009 00000000 00000014 01000008 00000002 03000008 a2cd20df"},
        {"00050009 00000000 00000014 03000008 a2cd20df 04000006 78000000",
         "00010009 00000000 00000014 01000008 00000002 03000008 a2cd20df"},
    };
    for (const auto &row : rows) {
        TempDir dir;
        Seen answer;
        std::atomic<bool> written{false};
        {
            FakeBroker broker(dir / "bus", [&](int fd) {
                serve_registration(fd);
                write_bytes(fd, unhex(row.message));
                written = true;
                answer.bytes = read_exactly(fd, 28);
            });
            Context c(dir / "bus");
            ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
            ASSERT_TRUE(eventually([&] { return written.load(); }));
            ubus_handle_event(c.ctx);
            EXPECT_EQ("", received);
        }
        EXPECT_EQ(hex(unhex(row.answer)), hex(answer.bytes));
    }
}

TEST(libubus, an_event_without_reply_is_delivered_and_not_answered)
{
    TempDir dir;
    Seen answer;
    {
        FakeBroker broker(dir / "bus", [&](int fd) {
            serve_registration(fd);
            write_bytes(fd, unhex("00050009 00000000 00000020 03000008 a2cd20df 04000006 78000000"
                                  "0a000005 01000000 07000004"));
            answer.bytes = read_exactly(fd, 1, 300);
        });
        Context c(dir / "bus");
        ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
        EXPECT_TRUE(c.receives("x{} "));
    }
    EXPECT_EQ(0u, answer.bytes.size());
}

TEST(libubus, connecting_fails_when_there_is_nobody_to_talk_to)
{
    TempDir dir;
    EXPECT_EQ(nullptr, ubus_connect((dir / "missing").c_str()));
    write_file(dir / "file", "");
    EXPECT_EQ(nullptr, ubus_connect((dir / "file").c_str()));
    EXPECT_EQ(nullptr, ubus_connect(("/tmp/" + std::string(103, 'x')).c_str()));
}

TEST(libubus, connecting_fails_on_any_odd_greeting)
{
    for (const char *greeting : {"", "00000000 31639df1", "01000000 31639df1 00000004",
                                 "00010000 31639df1 00000004", "00000000 00000000 00000004"}) {
        TempDir dir;
        FakeBroker broker(dir / "bus", [&](int fd) { write_bytes(fd, unhex(greeting)); });
        EXPECT_EQ(nullptr, ubus_connect((dir / "bus").c_str())) << greeting;
    }
}

TEST(libubus, a_greeting_may_take_its_time)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        sleep_ms(300);
        write_bytes(fd, unhex(kHello));
    });
    Context c(dir / "bus");
    ASSERT_NE(nullptr, c.ctx);
    EXPECT_TRUE(fcntl(c.ctx->sock.fd, F_GETFL) & O_NONBLOCK);
    EXPECT_TRUE(fcntl(c.ctx->sock.fd, F_GETFD) & FD_CLOEXEC);
    EXPECT_FALSE(c.ctx->sock.registered);
}

TEST(libubus, a_silent_broker_hangs_the_caller)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", hold_until_the_client_goes);
    EXPECT_EQ(kTimedOut,
              in_child([&] { return ubus_connect((dir / "bus").c_str()) ? 1 : 0; }, 700));
}

TEST(libubus, a_handled_signal_breaks_off_connecting)
{
    TempDir dir;
    int accepted[2];
    ASSERT_EQ(0, pipe(accepted));
    // Ended before the pipe is closed, to which its thread writes.
    auto broker = std::make_unique<FakeBroker>(dir / "bus", [&](int fd) {
        EXPECT_EQ(1, write(accepted[1], "x", 1));
        hold_until_the_client_goes(fd);
    });
    EXPECT_EQ(0, in_child([&] {
                  signal(SIGTERM, SIG_DFL);
                  pid_t target = getpid();
                  if (fork() == 0) {
                      char byte = 0;
                      // The signal may come before the wait that it is to break off: again then.
                      if (read(accepted[0], &byte, 1) == 1)
                          for (int i = 0; i < 1000 && kill(target, SIGTERM) == 0; i++)
                              sleep_ms(10);
                      _exit(0);
                  }
                  return ubus_connect((dir / "bus").c_str()) ? 1 : 0;
              }));
    broker.reset();
    close(accepted[0]);
    close(accepted[1]);
}

TEST(libubus, even_a_failed_connect_takes_the_signals)
{
    EXPECT_EQ(0, in_child([] {
                  signal(SIGPIPE, SIG_DFL);
                  signal(SIGTERM, SIG_DFL);
                  CHILD_CHECK(ubus_connect("/nonexistent/bus") == nullptr);
                  CHILD_CHECK(signal(SIGPIPE, SIG_DFL) == SIG_IGN);
                  CHILD_CHECK(signal(SIGTERM, SIG_DFL) != SIG_DFL);
                  return 0;
              }));
}

TEST(libubus, events_travel_from_one_client_to_another_and_not_back)
{
    Broker broker;
    Context sender(broker.socket), listener(broker.socket);
    ASSERT_EQ(0, ubus_register_event_handler(sender.ctx, &sender.ev, "*"));
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "wps*"));
    EXPECT_EQ(0, sender.send("wps.x", "{\"a\":[1,\"b\"]}"));
    EXPECT_EQ(0, sender.send("other"));
    EXPECT_EQ(0, sender.send("wps"));
    EXPECT_TRUE(listener.receives("wps.x{\"a\":[1,\"b\"]} wps{} "));
    ubus_handle_event(sender.ctx);
    EXPECT_EQ("wps.x{\"a\":[1,\"b\"]} wps{} ", received);
}

TEST(libubus, registering_reports_what_is_wrong)
{
    Broker broker;
    Context c(broker.socket);
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, ubus_register_event_handler(c.ctx, &c.ev, nullptr));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, ubus_register_event_handler(c.ctx, &c.ev, ""));
    EXPECT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "x"));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, c.send("ubus.mine"));
    ubus_event_handler named{};
    named.obj.name = "name";
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, ubus_register_event_handler(c.ctx, &named, "x"));
}

TEST(libubus, a_handler_with_a_dead_id_is_not_found_until_cleared)
{
    Broker broker;
    ubus_event_handler ev{};
    {
        Context first(broker.socket);
        ASSERT_EQ(0, ubus_register_event_handler(first.ctx, &first.ev, "x"));
        ev.obj.id = first.ev.obj.id;
    }
    Context second(broker.socket);
    ASSERT_TRUE(eventually([&] {
        return ubus_register_event_handler(second.ctx, &ev, "x") == UBUS_STATUS_NOT_FOUND;
    }));
    ev = {};
    ev.cb = note_event;
    EXPECT_EQ(0, ubus_register_event_handler(second.ctx, &ev, "x"));
}

TEST(libubus, an_unregistered_handler_hears_nothing_more)
{
    Broker broker;
    Context sender(broker.socket), listener(broker.socket);
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "a"));
    ASSERT_EQ(0, ubus_unregister_event_handler(listener.ctx, &listener.ev));
    EXPECT_EQ(0u, listener.ev.obj.id);
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "b"));
    EXPECT_EQ(0, sender.send("a"));
    EXPECT_EQ(0, sender.send("b"));
    EXPECT_TRUE(listener.receives("b{} "));
}

TEST(libubus, too_big_an_event_is_not_sent)
{
    Broker broker;
    Context c(broker.socket);
    Buffer buf;
    std::string big(1048576, 'x');
    blobmsg_add_string(&buf.b, "a", big.c_str());
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, ubus_send_event(c.ctx, "x", buf.b.head));
    EXPECT_EQ(0, c.send("x"));
    blob_buf_init(&buf.b, 0);
    big.resize(1048000);
    blobmsg_add_string(&buf.b, "a", big.c_str());
    EXPECT_EQ(0, ubus_send_event(c.ctx, "x", buf.b.head));
}

TEST(libubus, events_arriving_during_a_call_are_delivered_before_it_returns)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        serve_registration(fd);
        read_exactly(fd, 64);
        write_bytes(fd, unhex(kEvent));
        write_bytes(fd, unhex("00010003 00000001 0000000c 01000008 00000000"));
        read_exactly(fd, 28);
    });
    Context c(dir / "bus");
    ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
    EXPECT_EQ(0, c.send("a"));
    EXPECT_EQ("wps{\"action\":1,\"2g_status\":11} ", received);
}

TEST(libubus, in_a_loop_they_are_delivered_shortly_afterwards)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        serve_registration(fd);
        read_exactly(fd, 64);
        write_bytes(fd, unhex(kEvent));
        write_bytes(fd, unhex("00010003 00000001 0000000c 01000008 00000000"));
        read_exactly(fd, 28);
        hold_until_the_client_goes(fd);
    });
    Context c(dir / "bus");
    ASSERT_EQ(0, ubus_register_event_handler(c.ctx, &c.ev, "*"));
    ubus_add_uloop(c.ctx);
    EXPECT_EQ(0, c.send("a"));
    EXPECT_EQ("", received);
    for (int i = 0; i < 20 && received.empty(); i++)
        uloop_run_timeout(10);
    EXPECT_EQ("wps{\"action\":1,\"2g_status\":11} ", received);
}

TEST(libubus, a_callback_may_send_and_its_message_stays_valid)
{
    Broker broker;
    Context sender(broker.socket), listener(broker.socket), third(broker.socket);
    static std::string before, after;
    listener.ev.cb = [](ubus_context *ctx, ubus_event_handler *, const char *type, blob_attr *msg) {
        Buffer buf;
        blobmsg_add_u32(&buf.b, "answer", 1);
        before = type + hex(msg, blob_raw_len(msg));
        EXPECT_EQ(0, ubus_send_event(ctx, "echo", buf.b.head));
        after = type + hex(msg, blob_raw_len(msg));
        received += type;
    };
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "in*"));
    ASSERT_EQ(0, ubus_register_event_handler(third.ctx, &third.ev, "echo"));
    received.clear();
    EXPECT_EQ(0, sender.send("in1", "{\"a\":1}"));
    EXPECT_EQ(0, sender.send("in2", "{\"a\":2}"));
    EXPECT_TRUE(listener.receives("in1in2"));
    EXPECT_EQ(before, after);
    received.clear();
    EXPECT_TRUE(third.receives("echo{\"answer\":1} echo{\"answer\":1} "));
}

TEST(libubus, an_unmatched_answer_is_dropped)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        write_bytes(fd, unhex(kHello));
        read_exactly(fd, 64);
        write_bytes(fd, unhex("00010009 00000001 0000000c 01000008 00000004"));
        write_bytes(fd, unhex("00010001 00000009 0000000c 01000008 00000005"));
        write_bytes(fd, unhex("00010001 00000001 00000004"));
    });
    Context c(dir / "bus");
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, c.send("a"));
}

TEST(libubus, a_broker_dying_during_a_call_fails_it_and_the_next_ones)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        write_bytes(fd, unhex(kHello));
        read_exactly(fd, 64);
    });
    Context c(dir / "bus");
    EXPECT_EQ(UBUS_STATUS_CONNECTION_FAILED, c.send("a"));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, c.send("a"));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, ubus_register_event_handler(c.ctx, &c.ev, "x"));
}

// Runs the loop for so long; 1 when the default handler ended it before that, 0 when it sat there.
static int run_while_broker_goes(const std::string &socket, int ms, const std::function<void()> &go)
{
    uloop_init();
    ubus_context *ctx = ubus_connect(socket.c_str());
    if (!ctx)
        return 98;
    ubus_add_uloop(ctx);
    static bool timer_ended;
    uloop_timeout timer{};
    timer.cb = [](uloop_timeout *) {
        timer_ended = true;
        uloop_end();
    };
    uloop_timeout_set(&timer, ms);
    go();
    uloop_run();
    return timer_ended ? 0 : 1;
}

TEST(libubus, the_default_handler_leaves_the_loop_deaf_when_the_broker_dies)
{
    for (int number : {SIGKILL, SIGTERM}) {
        Broker broker;
        EXPECT_EQ(0, in_child([&] {
                      return run_while_broker_goes(broker.socket, 500,
                                                   [&] { broker.process.signal(number); });
                  }));
    }
}

TEST(libubus, the_default_handler_ends_the_loop_on_a_half_closed_connection)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        write_bytes(fd, unhex(kHello));
        sleep_ms(50);
        shutdown(fd, SHUT_WR);
        hold_until_the_client_goes(fd);
    });
    EXPECT_EQ(1, in_child([&] { return run_while_broker_goes(dir / "bus", 9000, [] {}); }));
}

TEST(libubus, an_own_handler_hears_of_the_brokers_death_once)
{
    Broker broker;
    EXPECT_EQ(0, in_child([&] {
                  uloop_init();
                  ubus_context *ctx = ubus_connect(broker.socket.c_str());
                  CHILD_CHECK(ctx != nullptr);
                  static int times;
                  static bool as_described;
                  static uloop_timeout timer;
                  timer.cb = [](uloop_timeout *) { uloop_end(); };
                  ctx->connection_lost = [](ubus_context *c) {
                      times++;
                      as_described = !c->sock.registered && c->sock.eof && c->sock.error;
                      uloop_timeout_set(&timer, 100);  // time to hear of it twice
                  };
                  ubus_add_uloop(ctx);
                  broker.process.signal(SIGKILL);
                  uloop_timeout_set(&timer, 9000);
                  uloop_run();
                  CHILD_CHECK(times == 1 && as_described);
                  Buffer empty;
                  CHILD_CHECK(ubus_send_event(ctx, "x", empty.b.head) == 2);
                  ubus_free(ctx);
                  uloop_done();
                  return 0;
              }));
}

TEST(libubus, reconnecting_brings_objects_back_but_no_patterns)
{
    Broker broker;
    Context sender(broker.socket), listener(broker.socket);
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "x"));
    uint32_t old = listener.ev.obj.id;
    ASSERT_EQ(0, ubus_reconnect(listener.ctx, broker.socket.c_str()));
    EXPECT_NE(old, listener.ev.obj.id);
    EXPECT_EQ(0, sender.send("x", "{\"lost\":1}"));
    ASSERT_EQ(0, ubus_register_event_handler(listener.ctx, &listener.ev, "x"));
    EXPECT_EQ(0, sender.send("x", "{\"heard\":1}"));
    EXPECT_TRUE(listener.receives("x{\"heard\":1} "));
}

TEST(libubus, a_signal_does_not_end_a_wait_for_an_answer)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [&](int fd) {
        write_bytes(fd, unhex(kHello));
        read_exactly(fd, 64);
        sleep_ms(400);
        write_bytes(fd, unhex("00010001 00000001 0000000c 01000008 00000000"));
    });
    EXPECT_EQ(0, in_child([&] {
                  signal(SIGTERM, SIG_DFL);
                  Context c(dir / "bus");
                  CHILD_CHECK(c.ctx != nullptr);
                  pid_t target = getpid();
                  if (fork() == 0) {
                      sleep_ms(100);
                      kill(target, SIGTERM);
                      _exit(0);
                  }
                  return c.send("a");
              }));
}

TEST(libubus, freeing_nothing_is_allowed)
{
    ubus_free(nullptr);
    Broker broker;
    ubus_context *ctx = ubus_connect(broker.socket.c_str());
    ASSERT_NE(nullptr, ctx);
    ubus_add_uloop(ctx);
    uloop_done();
    ubus_free(ctx);
}
