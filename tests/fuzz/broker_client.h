// SPDX-License-Identifier: ISC
// The broker inside a fuzzing target, and clients that are connected to it by real sockets.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/fuzz/bus_bytes.h"

namespace kelm_fuzz {

constexpr uint32_t FIRST_ID = 1024;  // of a client, an object or a type

// Ids are random in the broker; here they count up from the first one. pieces 0: what a client
// sends goes out in one write; otherwise the state of a generator that cuts it up.
void start_broker(unsigned pieces);

// Until the broker has nothing to read and nothing to write.
void run_broker();

// The id that would be the next.
uint32_t next_broker_id();

// The client's end of a connection; the broker has the other one.
class client_end {
public:
    client_end();
    ~client_end();
    client_end(const client_end &) = delete;
    client_end &operator=(const client_end &) = delete;

    // The broker runs after each piece. One that the broker has closed takes no more.
    void send(const std::string &bytes);
    // The whole messages received since the last call.
    std::vector<bus_message> take();
    // Vanishes and comes back as another client.
    void reopen();
    // Whether the broker has ended the connection. What is left unread is lost.
    bool is_closed();

    // What went out since it was opened, and what all its connections received.
    const std::string &sent() const { return sent_; }
    const std::string &log() const { return log_; }

private:
    void open();
    void receive();

    int fd_ = -1;
    std::string sent_;
    std::string received_;
    std::string log_;
};

bool is_status(const bus_message &m, uint16_t seq, uint32_t peer, uint32_t status);

// The children of a call of the broker's own object.
std::string event_call(const std::string &method, const std::string &members);

}  // namespace kelm_fuzz
