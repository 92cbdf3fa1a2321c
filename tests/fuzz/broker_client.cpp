// SPDX-License-Identifier: ISC
// Connections to the broker that is part of the target.
#include "tests/fuzz/broker_client.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <grp.h>
#include <pwd.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" {
#include "hostlibs/ubusd_client.h"
}

#include "tests/fuzz/fuzz.h"

extern "C" ssize_t __real_recv(int fd, void *into, size_t size, int flags);
extern "C" ssize_t __wrap_recv(int fd, void *into, size_t size, int flags);
extern "C" ssize_t __wrap_getrandom(void *into, size_t size, unsigned flags);
extern "C" struct passwd *__wrap_getpwuid(uid_t uid);
extern "C" struct group *__wrap_getgrgid(gid_t gid);

namespace kelm_fuzz {

namespace {

constexpr unsigned LONGEST_PIECE = 200;
constexpr size_t BLOCK_SIZE = 16384;

uint32_t next_id;
unsigned reads;  // calls of recv by the broker
unsigned piece_sizes;

size_t next_piece(size_t left)
{
    if (piece_sizes == 0)
        return left;
    piece_sizes = piece_sizes * 1103515245u + 12345u;
    return std::min<size_t>(1 + (piece_sizes >> 16) % LONGEST_PIECE, left);
}

}  // namespace

void start_broker(unsigned pieces)
{
    static const bool ready = uloop_init() == 0;
    PROPERTY(ready);
    next_id = FIRST_ID;
    piece_sizes = pieces;
}

void run_broker()
{
    unsigned before;
    do {
        before = reads;
        uloop_run_timeout(0);
    } while (reads != before);
}

uint32_t next_broker_id()
{
    return next_id;
}

client_end::client_end()
{
    open();
}

client_end::~client_end()
{
    close(fd_);
}

void client_end::open()
{
    int ends[2];
    PROPERTY(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0);
    PROPERTY(fcntl(ends[1], F_SETFL, O_NONBLOCK) == 0);
    fd_ = ends[0];
    PROPERTY(client_open(ends[1]) != nullptr);
    const std::vector<bus_message> greeting = take();
    PROPERTY(greeting.size() == 1 && greeting[0].type == BUS_HELLO && greeting[0].peer >= FIRST_ID);
}

void client_end::send(const std::string &bytes)
{
    for (size_t at = 0; at < bytes.size();) {
        const size_t size = next_piece(bytes.size() - at);
        if (::send(fd_, bytes.data() + at, size, MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
            return;
        sent_.append(bytes, at, size);
        at += size;
        run_broker();
    }
}

void client_end::receive()
{
    char block[BLOCK_SIZE];
    for (;;) {
        const ssize_t got = __real_recv(fd_, block, sizeof block, MSG_DONTWAIT);
        if (got <= 0)
            return;
        received_.append(block, static_cast<size_t>(got));
        if (static_cast<size_t>(got) < sizeof block)
            return;
        run_broker();  // there may be more that had no room
    }
}

std::vector<bus_message> client_end::take()
{
    receive();
    const bus_stream stream = cut_messages(received_);
    PROPERTY(is_whole(stream, received_));
    log_ += received_;
    received_.clear();
    return stream.messages;
}

void client_end::reopen()
{
    (void)take();
    close(fd_);
    run_broker();
    sent_.clear();
    open();
}

bool client_end::is_closed()
{
    char byte;
    ssize_t got;
    do {
        got = __real_recv(fd_, &byte, 1, MSG_DONTWAIT);
    } while (got > 0);
    return got == 0 || errno == ECONNRESET;
}

bool is_status(const bus_message &m, uint16_t seq, uint32_t peer, uint32_t status)
{
    return m.type == BUS_STATUS && m.seq == seq && m.peer == peer &&
           find_number(m, BUS_ATTR_STATUS) == status;
}

std::string event_call(const std::string &method, const std::string &members)
{
    return attribute(BUS_ATTR_OBJID, number(1)) + attribute(BUS_ATTR_METHOD, terminated(method)) +
           attribute(BUS_ATTR_DATA, members);
}

}  // namespace kelm_fuzz

extern "C" ssize_t __wrap_getrandom(void *into, size_t size, unsigned)
{
    PROPERTY(size == sizeof kelm_fuzz::next_id);
    memcpy(into, &kelm_fuzz::next_id, sizeof kelm_fuzz::next_id);
    ++kelm_fuzz::next_id;
    return static_cast<ssize_t>(size);
}

extern "C" ssize_t __wrap_recv(int fd, void *into, size_t size, int flags)
{
    ++kelm_fuzz::reads;
    return __real_recv(fd, into, size, flags);
}

// Files are read for these: most of the time would go there. Users without a name are shown as
// numbers.
extern "C" struct passwd *__wrap_getpwuid(uid_t)
{
    return nullptr;
}

extern "C" struct group *__wrap_getgrgid(gid_t)
{
    return nullptr;
}
