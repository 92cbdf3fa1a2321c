// SPDX-License-Identifier: ISC
// Way in: what clients send to the broker, here over real sockets.
//
// An input is a play of steps: a hostile client sends bytes, vanishes, or the others go on.
// Properties: a listener and a sender beside it keep being served; each request is answered once;
// what leaves the broker is whole messages; nothing of a client stays when it is gone; and how the
// bytes are cut up changes nothing.
#include <string>
#include <vector>

extern "C" {
#include "hostlibs/ubusd_client.h"
}

#include "tests/fuzz/broker_client.h"
#include "tests/fuzz/bus_bytes.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using namespace kelm_fuzz;

namespace {

constexpr unsigned HOSTILE = 2;
// Below this nothing can have been dropped for a reader that does not read.
constexpr size_t SURELY_KEPT = 150000;
const std::string GOOD = "good";

// Listens to the good events, with one object.
class listener : public client_end {
public:
    listener()
    {
        send(message(BUS_ADD_OBJECT, 1, 0, ""));
        const std::vector<bus_message> added = take();
        PROPERTY(added.size() == 2 && is_status(added[1], 1, 0, 0));
        object_ = find_number(added[0], BUS_ATTR_OBJID);
        send(message(
            BUS_INVOKE, 2, 1,
            event_call("register", member(BUS_INT32, "object", number(object_)) +
                                       member(BUS_STRING, "pattern", terminated(GOOD + "*")))));
        const std::vector<bus_message> registered = take();
        PROPERTY(registered.size() == 1 && is_status(registered[0], 2, 1, 0));
    }

    // Whether the event has come since the last call, whole and with our object in it. Others make
    // no events for us, and nobody but us can have asked for more.
    bool hears(const std::string &type, const std::string &members)
    {
        bool heard = false;
        for (const bus_message &m : take()) {
            const std::string expected = attribute(BUS_ATTR_OBJID, number(object_)) +
                                         attribute(BUS_ATTR_METHOD, terminated(type)) +
                                         attribute(BUS_ATTR_DATA, members);
            std::string method;
            const bool event = m.type == BUS_INVOKE && m.peer == 0;
            PROPERTY(!event || (find_attribute(m, BUS_ATTR_METHOD, 0, &method) &&
                                method.rfind(GOOD, 0) == 0));
            heard = heard || (event && m.children == expected);
        }
        return heard;
    }

private:
    uint32_t object_ = 0;
};

struct play {
    listener ear;
    client_end voice;
    client_end hostile[HOSTILE];
    uint16_t events = 0;
};

void one_good_event(play *all)
{
    const std::string type = GOOD + std::to_string(++all->events);
    const std::string members =
        member(BUS_STRING, "pin", terminated(std::string(all->events % 9, 'x')));
    all->voice.send(message(BUS_INVOKE, all->events, 1,
                            event_call("send", member(BUS_STRING, "id", terminated(type)) +
                                                   member(BUS_TABLE, "data", members))));
    PROPERTY(all->ear.hears(type, members));
    // Events of others do not come here, since nothing was registered; calls cannot, as there is no
    // object.
    const std::vector<bus_message> answers = all->voice.take();
    PROPERTY(!answers.empty() && is_status(answers.back(), all->events, 1, 0));
}

// A call to a client's object is answered by that client, and answers are not answered.
bool must_be_answered(const bus_message &request)
{
    if (request.type == BUS_STATUS || request.type == BUS_DATA)
        return false;
    return request.type != BUS_INVOKE || find_number(request, BUS_ATTR_OBJID) < FIRST_ID;
}

// In their order, among whatever else the client was sent.
void check_answers(const client_end &client, const std::vector<bus_message> &received)
{
    size_t at = 0;
    for (const bus_message &request : cut_messages(client.sent()).messages) {
        if (!must_be_answered(request))
            continue;
        while (at < received.size() &&
               !(received[at].type == BUS_STATUS && received[at].seq == request.seq &&
                 received[at].peer == request.peer))
            ++at;
        PROPERTY(at < received.size());
        ++at;
    }
}

// A length that may not be ends the connection: nobody knows where the next message begins.
bool breaks_off(const std::string &sent)
{
    const size_t rest = cut_messages(sent).used;
    return sent.size() - rest >= BUS_PREFIX && has_impossible_length(sent, rest);
}

void one_step(play *all, input *in)
{
    const unsigned step = in->choice(16);
    client_end *hostile = &all->hostile[step % HOSTILE];
    if (step >= 14) {
        hostile->reopen();
    } else if (step >= 12) {
        one_good_event(all);
    } else {
        const unsigned high = in->byte();
        hostile->send(in->bytes(high << 8 | in->byte()));
    }
}

// Sequence numbers of events go on from play to play, so they are left out.
std::string without_event_numbers(const std::string &log)
{
    std::string text;
    for (const bus_message &m : cut_messages(log).messages)
        text +=
            message(m.type, m.type == BUS_INVOKE && m.peer == 0 ? 0 : m.seq, m.peer, m.children);
    return text;
}

void check_nothing_stays(uint32_t highest)
{
    run_broker();
    for (uint32_t id = FIRST_ID; id < highest; ++id)
        PROPERTY(client_find(id) == nullptr);
    client_end late;
    late.send(message(BUS_LOOKUP, 1, 0, ""));
    const std::vector<bus_message> found = late.take();
    PROPERTY(found.size() == 1 && is_status(found[0], 1, 0, 0));
}

// Everything that the clients were sent.
std::string play_it(input in, unsigned pieces)
{
    std::string heard;
    start_broker(pieces);
    {
        play all;
        one_good_event(&all);
        while (!in.empty())
            one_step(&all, &in);
        one_good_event(&all);
        for (client_end &hostile : all.hostile) {
            const size_t before = hostile.log().size();
            const std::vector<bus_message> received = hostile.take();
            if (hostile.log().size() - before < SURELY_KEPT)
                check_answers(hostile, received);
            PROPERTY(hostile.is_closed() == breaks_off(hostile.sent()));
            heard += without_event_numbers(hostile.log());
        }
        heard += without_event_numbers(all.ear.log()) + all.voice.log();
    }
    check_nothing_stays(next_broker_id());
    return heard;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    input in(data, size);
    const unsigned pieces = in.byte() | 0x100u;
    PROPERTY(play_it(in, 0) == play_it(in, pieces));
    return 0;
}
