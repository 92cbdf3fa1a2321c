// SPDX-License-Identifier: ISC
// Way in: what a broker sends to a program, through the stand-in for the bus library.
//
// The program registers two events, gets what comes until the connection ends, sends from within
// its handler, and lets go of one handler. An input is what the broker says in turns; each turn is
// there when the program waits. Properties: every delivered event is answered once; answers of
// success are as many as events handled; what the program sends is whole messages; and how the
// bytes are cut up changes nothing.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "tests/fuzz/bus_bytes.h"
#include "tests/fuzz/bus_peer.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using namespace kelm_fuzz;

namespace {

// What the program saw, in order: events, results of its calls.
std::string diary;
unsigned handled;
unsigned losses;
ubus_event_handler buttons;
ubus_event_handler requests;

void note(const std::string &what)
{
    diary += what + "\n";
}

void on_event(ubus_context *context, ubus_event_handler *handler, const char *type,
              blob_attr *message)
{
    char *json = blobmsg_format_json(message, true);
    PROPERTY(json != nullptr);
    note(std::string(type) + json);
    free(json);
    ++handled;
    if (strcmp(type, "wifi") == 0)
        note("sent: " + std::to_string(ubus_send_event(context, "wps", message)));
    if (strcmp(type, "off") == 0 && handler == &requests)
        note("off: " + std::to_string(ubus_unregister_event_handler(context, &requests)));
}

void on_loss(ubus_context *)
{
    ++losses;
}

void listen(ubus_context *context, ubus_event_handler *handler, const char *pattern)
{
    *handler = {};
    handler->cb = on_event;
    const int status = ubus_register_event_handler(context, handler, pattern);
    note(std::string(pattern) + ": " + std::to_string(status));
    PROPERTY(status != UBUS_STATUS_OK || handler->obj.id != 0);
}

// The dead connection refuses work at once, and another one may follow.
void use_after_the_end(ubus_context *context)
{
    blob_buf empty = {};
    PROPERTY(blob_buf_init(&empty, 0) == 0);
    PROPERTY(ubus_send_event(context, "late", empty.head) == UBUS_STATUS_INVALID_ARGUMENT);
    blob_buf_free(&empty);
    PROPERTY(ubus_reconnect(context, "/nowhere") == UBUS_STATUS_CONNECTION_FAILED);
}

// in_loop: as if the program had given its connection to the loop, which runs no timer here. Events
// that came while it waited then stay where they are until it is told to read.
bool run_program(bool in_loop)
{
    ubus_context *context = ubus_connect("/nowhere");
    if (context == nullptr)
        return false;
    context->connection_lost = on_loss;
    context->sock.registered = in_loop;
    listen(context, &buttons, "gpio");
    listen(context, &requests, "wps_cli");
    while (!context->sock.eof) {
        wait_for_peer();
        ubus_handle_event(context);
    }
    PROPERTY(losses > 0);
    use_after_the_end(context);
    ubus_free(context);
    return true;
}

struct answer {
    uint16_t seq;
    uint32_t peer;
    uint32_t object;
    bool operator<(const answer &other) const
    {
        return seq != other.seq     ? seq < other.seq
               : peer != other.peer ? peer < other.peer
                                    : object < other.object;
    }
    bool operator==(const answer &other) const { return !(*this < other) && !(other < *this); }
};

// A message of another version, or with a length that may not be, costs its first twelve bytes and
// no more.
std::vector<bus_message> as_the_program_cuts(const std::string &bytes)
{
    std::vector<bus_message> all;
    for (size_t at = std::min(BUS_PREFIX, bytes.size()); bytes.size() - at >= BUS_PREFIX;) {
        const bus_stream rest = cut_messages(bytes.substr(at), 1);
        const bool known = bytes[at] == 0;
        if (known && rest.messages.empty() && !has_impossible_length(bytes, at))
            break;  // the end came in the middle of it
        if (known && !rest.messages.empty())
            all.push_back(rest.messages[0]);
        at += known && !rest.messages.empty() ? rest.used : BUS_PREFIX;
    }
    return all;
}

std::vector<answer> due_answers(const std::string &said)
{
    std::vector<answer> due;
    std::string payload;
    for (const bus_message &m : as_the_program_cuts(said)) {
        const bool silent = find_attribute(m, BUS_ATTR_NO_REPLY, 1, &payload) && payload[0] != 0;
        if (m.type == BUS_INVOKE && !silent && find_attribute(m, BUS_ATTR_OBJID, 4, &payload))
            due.push_back({m.seq, m.peer, find_number(m, BUS_ATTR_OBJID)});
    }
    std::sort(due.begin(), due.end());
    return due;
}

std::vector<answer> given_answers(const std::vector<bus_message> &sent)
{
    std::vector<answer> given;
    for (const bus_message &m : sent) {
        if (m.type == BUS_STATUS)
            given.push_back({m.seq, m.peer, find_number(m, BUS_ATTR_OBJID)});
    }
    std::sort(given.begin(), given.end());
    return given;
}

void check_talk(const std::string &said, const std::string &sent, bool in_loop)
{
    const bus_stream stream = cut_messages(sent);
    PROPERTY(is_whole(stream, sent));
    const std::vector<answer> due = due_answers(said);
    const std::vector<answer> given = given_answers(stream.messages);
    PROPERTY(given == due ||
             (in_loop && std::includes(due.begin(), due.end(), given.begin(), given.end())));
    size_t successes = 0;
    for (const bus_message &m : stream.messages)
        successes += m.type == BUS_STATUS && find_number(m, BUS_ATTR_STATUS) == 0 ? 1 : 0;
    // One that may not be answered was handled all the same.
    PROPERTY(successes <= handled);
}

std::string play(const std::vector<std::string> &turns, unsigned pieces, bool in_loop)
{
    diary.clear();
    handled = 0;
    losses = 0;
    start_peer(turns, pieces);
    const bool connected = run_program(in_loop);
    const std::string sent = peer_got();
    if (connected)
        check_talk(peer_said(), sent, in_loop);
    return diary + sent;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    input in(data, size);
    const unsigned choice = in.byte();
    const bool in_loop = choice >= 0x80;
    std::vector<std::string> turns;
    while (!in.empty()) {
        const unsigned high = in.byte();
        turns.push_back(in.bytes(high << 8 | in.byte()));
    }
    PROPERTY(play(turns, 0, in_loop) == play(turns, choice | 0x100u, in_loop));
    return 0;
}
