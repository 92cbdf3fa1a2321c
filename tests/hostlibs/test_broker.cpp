// SPDX-License-Identifier: ISC
// The broker, spoken to in bytes: answers, patterns, broken input, slow and vanishing clients.
#include "support.h"

#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>

extern "C" {
#include <ubusmsg.h>
}

namespace {
const char *const kSend =
    "00050001 00000001 00000060 03000008 00000001 04000009 73656e64 00000000 07000048"
    "83000010 00026964 00000000 77707300 82000034 00046461 74610000"
    "85000014 00066163 74696f6e 00000000 00000001"
    "85000014 00093267 5f737461 74757300 0000000b";
const char *const kDone = "00010001 00000001 0000000c 01000008 00000000";

// The METHOD of a delivery, "-" for anything else.
std::string event_type(const Bytes &message)
{
    if (message.size() < 28 || message[1] != UBUS_MSG_INVOKE)
        return "-";
    return reinterpret_cast<const char *>(message.data()) + 24;
}

// All events that arrive up to and without the marker.
std::vector<std::string> events_until(const RawClient &c, const std::string &marker)
{
    std::vector<std::string> types;
    for (;;) {
        std::string type = event_type(c.message());
        if (type == "-" || type == marker)
            return types;
        types.push_back(type);
    }
}

int invoke(const RawClient &c, const char *body)
{
    RawMessage message(unhex(body));
    return c.request(message_bytes(UBUS_MSG_INVOKE, ++c.seq, 1, message.head()));
}

Bytes plain(int type, uint16_t seq, uint32_t peer, const char *children)
{
    RawMessage message(unhex(children));
    return message_bytes(type, seq, peer, message.head());
}
}  // namespace

TEST(broker, greets_with_an_id_of_its_own_for_each_client)
{
    Broker broker;
    RawClient a(broker.socket), b(broker.socket);
    EXPECT_GE(a.id, 1024u);
    EXPECT_GE(b.id, 1024u);
    EXPECT_NE(a.id, b.id);
}

TEST(broker, a_captured_event_comes_out_as_captured)
{
    Broker broker;
    RawClient listener(broker.socket), sender(broker.socket);
    uint32_t object = listener.add_object();
    ASSERT_EQ(0, listener.register_pattern(object, "*"));
    sender.send(kSend);
    EXPECT_EQ(hex(unhex(kDone)), hex(sender.message()));
    Bytes event = listener.message();
    ASSERT_EQ(72u, event.size());
    EXPECT_EQ(object, word_at(event, 16));
    EXPECT_EQ("00000000 00000040 03000008", hex(event.data() + 4, 12));
    EXPECT_EQ(
        "04000008 77707300 0700002c 85000014 00066163 74696f6e 00000000 00000001 "
        "85000014 00093267 5f737461 74757300 0000000b",
        hex(event.data() + 20, event.size() - 20));
    listener.send(plain(UBUS_MSG_STATUS, 1, 0, "01000008 00000000 03000008 a2cd20df"));
    EXPECT_EQ(0, listener.send_event("still.there"));
}

TEST(broker, registering_is_answered_as_captured)
{
    Broker broker;
    RawClient c(broker.socket);
    c.send("00060001 00000000 00000004");
    Bytes data = c.message();
    EXPECT_EQ("00020001 00000000 0000000c 03000008", hex(data.data(), 16));
    EXPECT_GE(word_at(data, 16), 1024u);
    EXPECT_EQ("00010001 00000000 0000000c 01000008 00000000", hex(c.message()));
}

TEST(broker, a_request_may_be_cut_anywhere)
{
    Broker broker;
    RawClient listener(broker.socket), sender(broker.socket);
    ASSERT_EQ(0, listener.register_pattern(listener.add_object(), "wps"));
    const Bytes request = unhex(kSend);
    for (size_t cut = 1; cut < request.size(); cut++) {
        sender.send(Bytes(request.begin(), request.begin() + static_cast<long>(cut)));
        sleep_ms(1);
        sender.send(Bytes(request.begin() + static_cast<long>(cut), request.end()));
        ASSERT_EQ(hex(unhex(kDone)), hex(sender.message())) << cut;
        ASSERT_EQ("wps", event_type(listener.message())) << cut;
    }
}

TEST(broker, two_requests_in_one_write_get_two_answers)
{
    Broker broker;
    RawClient c(broker.socket);
    Bytes two = unhex(kSend), one = two;
    two.insert(two.end(), one.begin(), one.end());
    c.send(two);
    EXPECT_EQ(hex(unhex(kDone)), hex(c.message()));
    EXPECT_EQ(hex(unhex(kDone)), hex(c.message()));
}

TEST(broker, patterns_are_literal_but_for_one_star_at_the_end)
{
    const struct {
        const char *pattern;
        std::vector<std::string> matches;
    } rows[] = {
        {"*", {"wps", "wps2", "WPS", "zz", "zz*", "zz*q", "ab*c", "abxc", ""}},
        {"wps", {"wps"}},
        {"wps*", {"wps", "wps2"}},
        {"zz**", {"zz*", "zz*q"}},
        {"ab*c", {"ab*c"}},
        {"w?s", {}},
    };
    Broker broker;
    RawClient sender(broker.socket);
    for (const auto &row : rows) {
        RawClient listener(broker.socket);
        uint32_t object = listener.add_object();
        ASSERT_EQ(0, listener.register_pattern(object, row.pattern));
        ASSERT_EQ(0, listener.register_pattern(object, "end of row"));
        for (const char *type : {"wps", "wps2", "WPS", "zz", "zz*", "zz*q", "ab*c", "abxc", ""})
            ASSERT_EQ(0, sender.send_event(type));
        ASSERT_EQ(0, sender.send_event("end of row"));
        EXPECT_EQ(row.matches, events_until(listener, "end of row")) << row.pattern;
    }
}

TEST(broker, an_object_gets_one_copy_however_many_patterns_match)
{
    Broker broker;
    RawClient listener(broker.socket), sender(broker.socket);
    uint32_t object = listener.add_object();
    for (const char *pattern : {"wps*", "wps", "*", "*"})
        ASSERT_EQ(0, listener.register_pattern(object, pattern));
    EXPECT_EQ(0, listener.send_event("own"));
    for (const char *type : {"wps", "wps2", "foo"})
        ASSERT_EQ(0, sender.send_event(type));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, sender.send_event("ubus.x"));
    ASSERT_EQ(0, sender.send_event("end"));
    EXPECT_EQ((std::vector<std::string>{"wps", "wps2", "foo"}), events_until(listener, "end"));
}

TEST(broker, two_objects_of_one_client_get_a_copy_each)
{
    Broker broker;
    RawClient listener(broker.socket), sender(broker.socket);
    uint32_t a = listener.add_object(), b = listener.add_object();
    ASSERT_EQ(0, listener.register_pattern(a, "x"));
    ASSERT_EQ(0, listener.register_pattern(b, "x"));
    ASSERT_EQ(0, sender.send_event("x"));
    Bytes first = listener.message(), second = listener.message();
    EXPECT_EQ(a, word_at(first, 16));
    EXPECT_EQ(b, word_at(second, 16));
    EXPECT_EQ(first[3] + 1, second[3]) << "the broker's counter";
}

TEST(broker, register_says_what_is_wrong)
{
    Broker broker;
    RawClient c(broker.socket), other(broker.socket);
    uint32_t own = c.add_object();
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, c.register_pattern(own, ""));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, c.register_pattern(7, "x"));
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, c.register_pattern(other.add_object(), "x"));
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND, c.register_pattern(own ^ 0x40000000, "x"));
}

TEST(broker, calls_of_the_event_object_are_checked)
{
    const char *head = "03000008 00000001 ";
    const char *send = "04000009 73656e64 00000000 ", *reg = "0400000d 72656769 73746572 00000000 ";
    const char *id = "83000010 00026964 00000000 77707300 ";
    const struct {
        std::string body;
        int status;
    } rows[] = {
        {std::string(head) + send, 2},                     // no DATA
        {std::string(head) + send + "07000004", 2},        // no members
        {std::string(head) + send + "07000014 " + id, 2},  // no data
        {std::string(head) + send + "07000020 " + id + "8100000c 00046461 74610000", 2},  // ARRAY
        {std::string(head) + send + "07000020 " + id + "8200000c 00046461 74610000", 0},
        {std::string(head) + reg + "07000004", 2},
        {std::string(head) + "0400000a 6f746865 72000000 07000004", 1},  // other method
        {send + std::string("07000004"), 2},                             // no OBJID
        {std::string(head) + "07000004", 2},                             // no METHOD
        {"03000006 00010000 " + std::string(send), 2},                   // OBJID too short
        {"03000008 00000007 " + std::string(send), 4},                   // unknown object
        {"7f000008 00000007 " + std::string(head) + send + "07000020 " + id +
             "8200000c 00046461 74610000",
         0},  // unknown attribute
        {"03000008 00000007 " + std::string(head) + send + "07000020 " + id +
             "8200000c 00046461 74610000",
         0},                                                    // the last one counts
        {std::string(head) + "04000008 73656e64 07000004", 2},  // METHOD without NUL
    };
    Broker broker;
    RawClient c(broker.socket);
    for (const auto &row : rows)
        EXPECT_EQ(row.status, invoke(c, row.body.c_str())) << row.body;
}

TEST(broker, unknown_commands_get_a_status)
{
    Broker broker;
    RawClient c(broker.socket);
    for (int type : {0, 8, 9, 10, 11, 12, 99, 255})
        EXPECT_EQ(UBUS_STATUS_INVALID_COMMAND, c.request(plain(type, ++c.seq, 5, ""))) << type;
    c.send(plain(255, 77, 0x1234, ""));
    EXPECT_EQ("0001004d 00001234 0000000c 01000008 00000001", hex(c.message()));
}

TEST(broker, status_and_data_are_swallowed)
{
    Broker broker;
    RawClient c(broker.socket);
    c.send(plain(UBUS_MSG_STATUS, 1, 0, "01000008 00000000"));
    c.send(plain(UBUS_MSG_DATA, 1, c.id, "03000008 00000001"));
    c.send(plain(255, 77, 0, ""));
    EXPECT_EQ(77, c.message()[3]);
}

TEST(broker, a_ping_comes_back_as_data)
{
    Broker broker;
    RawClient c(broker.socket);
    c.send(plain(UBUS_MSG_PING, 7, 9, "07000008 00000001"));
    EXPECT_EQ("00020007 00000009 0000000c 07000008 00000001", hex(c.message()));
    EXPECT_EQ("00010007 00000009 0000000c 01000008 00000000", hex(c.message()));
}

TEST(broker, an_object_can_be_removed_by_its_owner_only)
{
    Broker broker;
    RawClient owner(broker.socket), other(broker.socket);
    uint32_t object = owner.add_object();
    ASSERT_EQ(0, owner.register_pattern(object, "*"));
    Buffer body;
    blob_put_u32(&body.b, UBUS_ATTR_OBJID, object);
    Bytes request = message_bytes(UBUS_MSG_REMOVE_OBJECT, 50, 0, body.b.head), data;
    EXPECT_EQ(UBUS_STATUS_PERMISSION_DENIED, other.request(request));
    EXPECT_EQ(0, owner.request(request, &data));
    EXPECT_EQ(object, word_at(data, 16));
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND, owner.request(request));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT,
              owner.request(plain(UBUS_MSG_REMOVE_OBJECT, 51, 0, "")));
    EXPECT_EQ(0, other.send_event("x"));
}

TEST(broker, objects_vanish_with_their_client)
{
    Broker broker;
    uint32_t object = 0;
    {
        RawClient gone(broker.socket);
        object = gone.add_object();
        ASSERT_EQ(0, gone.register_pattern(object, "*"));
    }
    RawClient c(broker.socket);
    EXPECT_TRUE(eventually([&] { return c.register_pattern(object, "x") == 4; }));
    EXPECT_EQ(0, c.send_event("x"));
}

TEST(broker, what_a_client_sent_before_it_vanished_still_counts)
{
    Broker broker;
    RawClient listener(broker.socket);
    ASSERT_EQ(0, listener.register_pattern(listener.add_object(), "wps"));
    {
        RawClient sender(broker.socket);
        broker.process.signal(SIGSTOP);
        for (int i = 0; i < 200; i++)
            sender.send(kSend);
    }
    broker.process.signal(SIGCONT);
    for (int i = 0; i < 200; i++)
        ASSERT_EQ("wps", event_type(listener.message())) << i;
}

TEST(broker, a_path_can_be_looked_up_and_is_announced)
{
    Broker broker;
    RawClient watcher(broker.socket), c(broker.socket);
    ASSERT_EQ(0, watcher.register_pattern(watcher.add_object(), "ubus.object.*"));
    Bytes data;
    // my.obj with one method, "hello", without arguments
    Bytes add = plain(UBUS_MSG_ADD_OBJECT, 1, 0,
                      "0200000b 6d792e6f 626a0000 06000010 8200000c 00056865 6c6c6f00");
    ASSERT_EQ(0, c.request(add, &data));
    uint32_t object = word_at(data, 16), type = word_at(data, 24);
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT, c.request(add)) << "the path is taken";
    Bytes event = watcher.message();
    EXPECT_EQ("ubus.object.add", event_type(event));
    EXPECT_EQ("85000010 00026964 00000000", hex(event.data() + 44, 12));
    EXPECT_EQ(object, word_at(event, 56));
    EXPECT_EQ("83000013 00047061 74680000 6d792e6f 626a0000",
              hex(event.data() + 60, event.size() - 60));

    Bytes found;
    EXPECT_EQ(0, watcher.request(plain(UBUS_MSG_LOOKUP, 60, 0, "02000007 6d2a0000"), &found));
    EXPECT_EQ(4, watcher.request(plain(UBUS_MSG_LOOKUP, 60, 0, "02000008 6d7a2a00")));
    EXPECT_EQ(0,
              watcher.request(plain(UBUS_MSG_LOOKUP, 61, 0, "0200000b 6d792e6f 626a0000"), &found));
    EXPECT_EQ("0200000b 6d792e6f 626a0000 03000008", hex(found.data() + 12, 16));
    EXPECT_EQ(object, word_at(found, 28));
    EXPECT_EQ(type, word_at(found, 36));
    EXPECT_EQ("06000010 8200000c 00056865 6c6c6f00", hex(found.data() + 40, found.size() - 40));

    Buffer body;
    blob_put_u32(&body.b, UBUS_ATTR_OBJID, object);
    EXPECT_EQ(0, c.request(message_bytes(UBUS_MSG_REMOVE_OBJECT, 70, 0, body.b.head), &data));
    EXPECT_EQ(type, word_at(data, 24));
    EXPECT_EQ("ubus.object.remove", event_type(watcher.message()));
}

TEST(broker, look_ups_that_find_nothing_say_so)
{
    Broker broker;
    RawClient c(broker.socket);
    c.add_object();
    EXPECT_EQ(0, c.request(plain(UBUS_MSG_LOOKUP, 9, 0, "")));
    EXPECT_EQ(UBUS_STATUS_NOT_FOUND, c.request(plain(UBUS_MSG_LOOKUP, 9, 0, "02000006 78000000")));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT,
              c.request(plain(UBUS_MSG_LOOKUP, 9, 0, "02000005 00000000")));
}

TEST(broker, a_call_goes_to_the_owner_and_its_answer_back)
{
    Broker broker;
    RawClient owner(broker.socket), caller(broker.socket);
    uint32_t object = owner.add_object();
    Buffer call, reply;
    blob_put_u32(&call.b, UBUS_ATTR_OBJID, object);
    blob_put_string(&call.b, UBUS_ATTR_METHOD, "hello");
    blob_put(&call.b, UBUS_ATTR_DATA, nullptr, 0);
    caller.send(message_bytes(UBUS_MSG_INVOKE, 33, object, call.b.head));
    Bytes seen = owner.message();
    EXPECT_EQ(33, seen[3]);
    EXPECT_EQ(caller.id, word_at(seen, 4));
    EXPECT_EQ("0400000a 68656c6c 6f000000", hex(seen.data() + 20, 12));
    EXPECT_EQ(UBUS_ATTR_USER, seen[32]);
    EXPECT_EQ("07000004", hex(seen.data() + seen.size() - 4, 4));
    blob_put_u32(&reply.b, UBUS_ATTR_STATUS, 3);
    blob_put_u32(&reply.b, UBUS_ATTR_OBJID, object);
    owner.send(message_bytes(UBUS_MSG_STATUS, 33, caller.id, reply.b.head));
    Bytes answer = caller.message();
    EXPECT_EQ(33, answer[3]);
    EXPECT_EQ(object, word_at(answer, 4));
    EXPECT_EQ(3u, word_at(answer, 16));
}

// With the caller's names in it the call is longer than any message may be.
TEST(broker, a_call_that_grows_too_long_is_refused_and_its_owner_goes_on)
{
    Broker broker;
    RawClient owner(broker.socket), caller(broker.socket);
    uint32_t object = owner.add_object();
    Buffer call;
    blob_put_u32(&call.b, UBUS_ATTR_OBJID, object);
    blob_put_string(&call.b, UBUS_ATTR_METHOD, "hello");
    const size_t room = UBUS_MAX_MSGLEN - blob_raw_len(call.b.head) - sizeof(blob_attr);
    ASSERT_NE(nullptr, blob_put(&call.b, UBUS_ATTR_DATA, nullptr, static_cast<unsigned>(room)));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT,
              caller.request(message_bytes(UBUS_MSG_INVOKE, 34, object, call.b.head)));
    ASSERT_EQ(0, owner.register_pattern(object, "x"));
    EXPECT_EQ(0, caller.send_event("x"));
    EXPECT_EQ("x", event_type(owner.message()));
}

// What is found has the numbers of object and type beside what its owner sent.
TEST(broker, an_object_too_long_to_be_shown_is_left_out)
{
    Broker broker;
    RawClient owner(broker.socket), other(broker.socket);
    Buffer object, look;
    blob_put_string(&object.b, UBUS_ATTR_OBJPATH, "long");
    const size_t room = UBUS_MAX_MSGLEN - blob_raw_len(object.b.head) - sizeof(blob_attr);
    blob_put(&object.b, UBUS_ATTR_SIGNATURE, nullptr, static_cast<unsigned>(room));
    ASSERT_EQ(0, owner.request(message_bytes(UBUS_MSG_ADD_OBJECT, 35, 0, object.b.head)));
    Bytes data;
    EXPECT_EQ(0, other.request(message_bytes(UBUS_MSG_LOOKUP, 36, 0, look.b.head), &data));
    EXPECT_TRUE(data.empty());
    EXPECT_EQ(0, other.send_event("x"));
}

TEST(broker, an_answer_for_a_foreign_object_goes_nowhere)
{
    Broker broker;
    RawClient owner(broker.socket), victim(broker.socket), liar(broker.socket);
    Buffer reply;
    blob_put_u32(&reply.b, UBUS_ATTR_STATUS, 0);
    blob_put_u32(&reply.b, UBUS_ATTR_OBJID, owner.add_object());
    liar.send(message_bytes(UBUS_MSG_STATUS, 1, victim.id, reply.b.head));
    EXPECT_EQ(0, liar.send_event("x"));
    EXPECT_TRUE(victim.message(200).empty());
}

TEST(broker, announcing_a_bad_length_ends_the_connection)
{
    Broker broker;
    for (const char *bytes : {"00050001 00000001 00000003", "00050001 00000001 00000000",
                              "00050001 00000001 00100001", "00050001 00000001 00ffffff"}) {
        RawClient c(broker.socket);
        c.send(bytes);
        EXPECT_TRUE(c.closed_by_peer()) << bytes;
    }
    RawClient c(broker.socket);
    EXPECT_EQ(0, c.send_event("x"));
}

TEST(broker, a_message_of_the_greatest_length_is_taken)
{
    Broker broker;
    RawClient c(broker.socket);
    RawMessage message(Bytes(1048572, 0));
    EXPECT_EQ(UBUS_STATUS_INVALID_ARGUMENT,
              c.request(message_bytes(UBUS_MSG_INVOKE, ++c.seq, 1, message.head())));
}

// Each byte of a good request set to a few values: every outcome but death is fine.
TEST(broker, no_changed_byte_of_a_request_kills_it)
{
    Broker broker;
    RawClient listener(broker.socket);
    ASSERT_EQ(0, listener.register_pattern(listener.add_object(), "*"));
    const Bytes good = unhex(kSend);
    for (size_t i = 0; i < good.size(); i++) {
        for (int value : {0x00, 0x07, 0x80, 0xff}) {
            Bytes bad = good;
            bad[i] = static_cast<uint8_t>(value);
            RawClient c(broker.socket);
            c.send(bad);
        }
    }
    RawClient after(broker.socket);
    EXPECT_EQ(0, after.send_event("end"));
    EXPECT_TRUE(broker.process.running());
}

TEST(broker, a_listener_that_does_not_read_stops_nobody_and_loses_whole_messages)
{
    constexpr int kCount = 4000;
    Broker broker;
    RawClient stuck(broker.socket), reader(broker.socket), sender(broker.socket);
    uint32_t object = stuck.add_object();
    ASSERT_EQ(0, stuck.register_pattern(object, "n*"));
    ASSERT_EQ(0, stuck.register_pattern(object, "later"));
    ASSERT_EQ(0, reader.register_pattern(reader.add_object(), "end"));
    std::string name = "n" + std::string(1000, 'x');
    for (int i = 0; i < kCount; i++)
        ASSERT_EQ(0, sender.send_event(name + std::to_string(i)));
    ASSERT_EQ(0, sender.send_event("end"));
    EXPECT_EQ("end", event_type(reader.message()));
    int count = 0;
    std::string type = event_type(stuck.message());
    while (type == name + std::to_string(count)) {
        count++;
        Bytes next = stuck.message(500);
        // Silence is the end, or a broker that has no time: what is sent now comes after it all.
        if (next.empty()) {
            ASSERT_EQ(0, sender.send_event("later"));
            next = stuck.message();
        }
        type = event_type(next);
    }
    EXPECT_EQ("later", type) << "after all that was kept, in order, without a gap";
    EXPECT_GT(count, 900);
    EXPECT_LT(count, 2500);
}

TEST(broker, one_client_cannot_make_it_keep_everything)
{
    Broker broker;
    RawClient c(broker.socket);
    Buffer empty;
    int status = 0;
    int count = 0;
    while (status == 0 && count++ < 2000)
        status = c.request(message_bytes(UBUS_MSG_ADD_OBJECT, ++c.seq, 0, empty.b.head));
    EXPECT_EQ(UBUS_STATUS_NO_MEMORY, status);
    RawClient other(broker.socket);
    uint32_t object = other.add_object();
    for (status = 0, count = 0; status == 0 && count < 2000; count++)
        status = other.register_pattern(object, "x");
    EXPECT_EQ(UBUS_STATUS_NO_MEMORY, status);
}

TEST(broker, sigterm_and_sigint_remove_the_socket)
{
    for (int number : {SIGTERM, SIGINT}) {
        Broker broker;
        EXPECT_EQ(0, broker.process.end(number));
        EXPECT_NE(0, access(broker.socket.c_str(), F_OK));
        EXPECT_EQ("", broker.process.out() + broker.process.err());
    }
}

TEST(broker, sighup_is_survived_and_sigkill_leaves_the_socket)
{
    Broker broker;
    broker.process.signal(SIGHUP);
    RawClient c(broker.socket);
    EXPECT_EQ(0, c.send_event("x"));
    broker.process.signal(SIGKILL);
    EXPECT_EQ(kKilledBy + SIGKILL, broker.process.finish());
    EXPECT_EQ(0, access(broker.socket.c_str(), F_OK));
}

TEST(broker, takes_over_a_path_and_opens_it_for_everybody)
{
    TempDir dir;
    write_file(dir / "bus", "in the way");
    Program process(dir, {UBUSD_PATH, "-A", "/nonexistent", "-s", dir / "bus"});
    struct stat st {};
    EXPECT_TRUE(eventually([&] {
        return stat((dir / "bus").c_str(), &st) == 0 && S_ISSOCK(st.st_mode) &&
               (st.st_mode & 0777) == 0666;
    }));
}

TEST(broker, says_what_it_cannot_do)
{
    TempDir dir;
    Program nowhere(dir, {UBUSD_PATH, "-s", dir / "no/such/bus"});
    EXPECT_EQ(255, nowhere.finish());
    EXPECT_EQ(0u, nowhere.err().find("usock:"));
    Program option(dir, {UBUSD_PATH, "-x"});
    EXPECT_EQ(1, option.finish());
    EXPECT_NE(std::string::npos, option.err().find("Usage: "));
}
