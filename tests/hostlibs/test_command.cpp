// SPDX-License-Identifier: ISC
// The command: texts, exit codes, and what listen prints.
#include "support.h"

#include <signal.h>
#include <sys/socket.h>

#include <atomic>

namespace {
struct Result {
    int code;
    std::string out, err;
};

Result run(const Broker &broker, std::vector<std::string> args)
{
    args.insert(args.begin(), {UBUS_PATH, "-s", broker.socket});
    Program program(broker.dir, args);
    int code = program.finish();
    return {code, program.out(), program.err()};
}

Result run_alone(std::vector<std::string> args)
{
    TempDir dir;
    args.insert(args.begin(), UBUS_PATH);
    Program program(dir, args);
    int code = program.finish();
    return {code, program.out(), program.err()};
}

// A listener that is known to be registered: it has printed the marker.
class Listener {
public:
    explicit Listener(const Broker &b, const std::vector<std::string> &args = {})
        : program(b.dir, command(b, args))
    {
        ready = eventually([&] {
            run(b, {"send", "marker"});
            return program.out().find("marker") != std::string::npos;
        });
    }
    std::string events()
    {
        std::string text = program.out();
        size_t at = text.rfind("{ \"marker\": {} }\n");
        return at == std::string::npos ? text : text.substr(at + 17);
    }
    Program program;
    bool ready = false;

private:
    static std::vector<std::string> command(const Broker &b, std::vector<std::string> args)
    {
        std::vector<std::string> all{UBUS_PATH, "-s", b.socket, "listen"};
        all.insert(all.end(), args.begin(), args.end());
        return all;
    }
};
}  // namespace

TEST(command, without_a_broker_every_command_fails_the_same_way)
{
    for (const char *command : {"list", "send", "listen", "bogus"}) {
        Result r = run_alone({"-s", "/nonexistent/bus", command, "x"});
        EXPECT_EQ(255, r.code) << command;
        EXPECT_EQ("Failed to connect to ubus\n", r.err);
        EXPECT_EQ("", r.out);
        r = run_alone({"-S", "-s", "/nonexistent/bus", command, "x"});
        EXPECT_EQ(255, r.code);
        EXPECT_EQ("", r.err + r.out);
    }
}

TEST(command, wrong_usage_before_connecting_is_1)
{
    Result r = run_alone({});
    EXPECT_EQ(1, r.code);
    EXPECT_EQ(0u, r.err.find("Usage: "));
    for (const char *option : {"-h", "-x", "-s"}) {
        r = run_alone({option});
        EXPECT_EQ(1, r.code) << option;
        EXPECT_NE(0u, r.err.find("Usage: ")) << "a line from getopt comes first";
        EXPECT_NE(std::string::npos, r.err.find("\nUsage: "));
        EXPECT_EQ("", r.out);
    }
}

TEST(command, wrong_usage_after_connecting_is_254)
{
    Broker broker;
    const std::vector<std::vector<std::string>> rows = {
        {"bogus"}, {"send"}, {"send", "a", "{}", "b"}, {"list", "a", "b"}, {"call", "a"}};
    for (const auto &args : rows) {
        Result r = run(broker, args);
        EXPECT_EQ(254, r.code) << args[0];
        EXPECT_EQ(0u, r.err.find("Usage: "));
    }
}

TEST(command, sending_succeeds_quietly_with_and_without_a_listener)
{
    Broker broker;
    for (const auto &args :
         {std::vector<std::string>{"send", "x"}, {"send", "x", "{}"}, {"send", "x", "{\"a\":1}"}}) {
        Result r = run(broker, args);
        EXPECT_EQ(0, r.code);
        EXPECT_EQ("", r.out + r.err);
    }
}

TEST(command, a_refused_send_says_why)
{
    Broker broker;
    for (const char *text : {"", "[1]", "nonsense", "{\"a\""}) {
        Result r = run(broker, {"send", "x", text});
        EXPECT_EQ(12, r.code) << text;
        EXPECT_EQ("Command failed: Parsing message data failed\n", r.err);
    }
    Result r = run(broker, {"send", "ubus.x"});
    EXPECT_EQ(6, r.code);
    EXPECT_EQ("Command failed: Permission denied\n", r.err);
    r = run(broker, {"-S", "send", "ubus.x"});
    EXPECT_EQ(6, r.code);
    EXPECT_EQ("", r.err);
}

TEST(command, a_broker_dying_during_a_send_is_10)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [](int fd) {
        write_bytes(fd, unhex("00000000 31639df1 00000004"));
        read_exactly(fd, 64);
    });
    Result r = run_alone({"-s", dir / "bus", "send", "x"});
    EXPECT_EQ(10, r.code);
    EXPECT_EQ("Command failed: Connection failed\n", r.err);
}

TEST(command, a_status_of_the_broker_becomes_the_exit_code)
{
    TempDir dir;
    FakeBroker broker(dir / "bus", [](int fd) {
        write_bytes(fd, unhex("00000000 31639df1 00000004"));
        read_exactly(fd, 64);
        write_bytes(fd, unhex("00010001 00000001 0000000c 01000008 00000009"));
        read_exactly(fd, 1);
    });
    Result r = run_alone({"-s", dir / "bus", "send", "x"});
    EXPECT_EQ(9, r.code);
    EXPECT_EQ("Command failed: Unknown error\n", r.err);
}

TEST(command, listen_prints_one_line_per_event_at_once)
{
    Broker broker;
    Listener listener(broker);
    ASSERT_TRUE(listener.ready);
    run(broker, {"send", "wps", "{\"action\":1,\"2g_status\":11}"});
    run(broker, {"send", "quo\"te", "{\"b\":true,\"t\":{\"l\":[1.5,null]}}"});
    const char *expected =
        "{ \"wps\": {\"action\":1,\"2g_status\":11} }\n"
        "{ \"quo\"te\": {\"b\":true,\"t\":{\"l\":[1.500000,null]}} }\n";
    EXPECT_TRUE(eventually([&] { return listener.events() == expected; })) << listener.events();
}

TEST(command, listen_takes_several_types)
{
    Broker broker;
    Listener listener(broker, {"a", "b*", "marker"});
    ASSERT_TRUE(listener.ready);
    for (const char *type : {"a", "ab", "bc", "c", "b"})
        run(broker, {"send", type});
    const char *expected = "{ \"a\": {} }\n{ \"bc\": {} }\n{ \"b\": {} }\n";
    EXPECT_TRUE(eventually([&] { return listener.events() == expected; })) << listener.events();
}

TEST(command, listen_ends_cleanly_on_sigterm_and_sigint_and_dies_of_sighup)
{
    Broker broker;
    for (int number : {SIGTERM, SIGINT, SIGHUP}) {
        Listener listener(broker);
        ASSERT_TRUE(listener.ready);
        EXPECT_EQ(number == SIGHUP ? kKilledBy + SIGHUP : 0, listener.program.end(number));
        EXPECT_EQ("", listener.program.err());
    }
}

TEST(command, listen_with_a_limit_ends_by_itself)
{
    Broker broker;
    int64_t start = now_ms();
    Result r = run(broker, {"-t", "1", "listen"});
    EXPECT_EQ(0, r.code);
    EXPECT_GE(now_ms() - start, 998);
    EXPECT_EQ("", r.out + r.err);
}

TEST(command, listen_says_which_pattern_was_refused)
{
    Broker broker;
    Result r = run(broker, {"listen", ""});
    EXPECT_EQ(255, r.code);
    EXPECT_EQ("Error while registering for event '': Permission denied\n", r.err);
    r = run(broker, {"-S", "listen", ""});
    EXPECT_EQ(255, r.code);
    EXPECT_EQ("", r.err);
}

TEST(command, listen_does_not_notice_the_death_of_its_broker)
{
    Broker broker;
    Listener listener(broker);
    ASSERT_TRUE(listener.ready);
    // While it still reads the marker, it would see the end of the connection itself, and end.
    ASSERT_TRUE(eventually([&] { return listener.program.sleeps(); }));
    broker.process.signal(SIGKILL);
    broker.process.finish();
    sleep_ms(500);
    EXPECT_TRUE(listener.program.running());
    listener.program.signal(SIGTERM);
    EXPECT_EQ(0, listener.program.finish());
}

TEST(command, waiting_for_a_silent_broker_survives_sigterm_during_a_send)
{
    TempDir dir;
    std::atomic<bool> asked{false}, over{false};
    FakeBroker broker(dir / "bus", [&](int fd) {
        write_bytes(fd, unhex("00000000 31639df1 00000004"));
        read_exactly(fd, 64);
        asked = true;
        eventually([&] { return over.load(); });
    });
    Program program(dir, {UBUS_PATH, "-s", dir / "bus", "send", "x"});
    EXPECT_TRUE(eventually([&] { return asked.load(); }));
    program.signal(SIGTERM);
    sleep_ms(200);
    EXPECT_TRUE(program.running());
    over = true;
    EXPECT_EQ(10, program.finish());
}

TEST(command, list_and_call_find_what_is_there)
{
    Broker broker;
    EXPECT_EQ(0, run(broker, {"list"}).code);
    Result r = run(broker, {"list", "nope"});
    EXPECT_EQ(4, r.code);
    EXPECT_EQ("Command failed: Not found\n", r.err);
    EXPECT_EQ(4, run(broker, {"call", "nope", "method"}).code);
    RawClient owner(broker.socket);
    RawMessage body(unhex("0200000b 6d792e6f 626a0000 06000004"));
    ASSERT_EQ(0, owner.request(message_bytes(6, 1, 0, body.head())));
    r = run(broker, {"list"});
    EXPECT_EQ("my.obj\n", r.out);
    r = run(broker, {"-t", "1", "call", "my.obj", "hello"});
    EXPECT_EQ(7, r.code);
    EXPECT_EQ("Command failed: Request timed out\n", r.err);
}
