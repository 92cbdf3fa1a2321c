// SPDX-License-Identifier: ISC
// The system calls of the scripted broker. Those on other descriptors go through.
#include "tests/fuzz/bus_peer.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "tests/fuzz/fuzz.h"

extern "C" int __wrap_connect(int fd, const sockaddr *address, socklen_t size);
extern "C" int __real_close(int fd);
extern "C" int __wrap_close(int fd);
extern "C" ssize_t __real_read(int fd, void *into, size_t size);
extern "C" ssize_t __wrap_read(int fd, void *into, size_t size);
extern "C" ssize_t __wrap_recv(int fd, void *into, size_t size, int flags);
extern "C" ssize_t __wrap_sendmsg(int fd, const msghdr *message, int flags);
extern "C" int __real_poll(pollfd *fds, nfds_t count, int limit);
extern "C" int __wrap_poll(pollfd *fds, nfds_t count, int limit);

namespace {

struct script {
    int fd = -1;
    std::vector<std::string> turns;
    size_t turn = 0;    // how many turns are there
    std::string there;  // not read yet
    std::string said;
    std::string got;
    unsigned pieces = 0;
    bool cut_short = false;  // the last read got less than it asked for
};

script peer;

// Below the number; 0 means "not cut up".
unsigned chance(unsigned below)
{
    if (peer.pieces == 0)
        return 0;
    peer.pieces = peer.pieces * 1103515245u + 12345u;
    return (peer.pieces >> 16) % below;
}

void next_turn()
{
    if (peer.there.empty() && peer.turn < peer.turns.size())
        peer.there = peer.turns[peer.turn++];
}

ssize_t fail(int error)
{
    errno = error;
    return -1;
}

ssize_t give(void *into, size_t size)
{
    const size_t most = std::min(size, peer.there.size());
    const size_t given =
        most > 1 && peer.pieces != 0 ? 1 + chance(static_cast<unsigned>(most)) : most;
    memcpy(into, peer.there.data(), given);
    peer.said.append(peer.there, 0, given);
    peer.there.erase(0, given);
    peer.cut_short = given < size;
    return static_cast<ssize_t>(given);
}

}  // namespace

namespace kelm_fuzz {

void start_peer(const std::vector<std::string> &turns, unsigned pieces)
{
    peer = script();
    peer.turns = turns;
    peer.pieces = pieces;
}

void wait_for_peer()
{
    next_turn();
}

std::string peer_said()
{
    return peer.said;
}

std::string peer_got()
{
    return peer.got;
}

}  // namespace kelm_fuzz

// The first connection is answered, a later one is over before it has begun.
extern "C" int __wrap_connect(int fd, const sockaddr *, socklen_t)
{
    peer.fd = fd;
    return 0;
}

extern "C" int __wrap_close(int fd)
{
    if (fd == peer.fd)
        peer.fd = -1;
    return __real_close(fd);
}

// The greeting, in blocking mode and with one read.
extern "C" ssize_t __wrap_read(int fd, void *into, size_t size)
{
    if (fd != peer.fd)
        return __real_read(fd, into, size);
    next_turn();
    const unsigned pieces = std::exchange(peer.pieces, 0u);
    const ssize_t given = give(into, size);
    peer.pieces = pieces;
    return given;
}

// Data runs out at the end of a turn; in the middle of a message it may seem to, or a signal come.
extern "C" ssize_t __wrap_recv(int fd, void *into, size_t size, int)
{
    PROPERTY(fd == peer.fd && size > 0);
    if (peer.there.empty())
        return peer.turn < peer.turns.size() ? fail(EAGAIN) : 0;
    const unsigned trouble = peer.cut_short ? chance(4) : 0;
    peer.cut_short = false;
    if (trouble != 0 && trouble != 3)
        return fail(trouble == 1 ? EAGAIN : EINTR);
    return give(into, size);
}

extern "C" ssize_t __wrap_sendmsg(int fd, const msghdr *message, int)
{
    PROPERTY(fd == peer.fd);
    std::string all;
    for (size_t i = 0; i < message->msg_iovlen; ++i)
        all.append(static_cast<const char *>(message->msg_iov[i].iov_base),
                   message->msg_iov[i].iov_len);
    const unsigned trouble = chance(8);
    if (trouble == 1 || trouble == 2)
        return fail(trouble == 1 ? EAGAIN : EINTR);
    const size_t taken = trouble > 4 ? 1 + chance(static_cast<unsigned>(all.size())) : all.size();
    peer.got.append(all, 0, taken);
    return static_cast<ssize_t>(taken);
}

extern "C" int __wrap_poll(pollfd *fds, nfds_t count, int limit)
{
    if (count != 1 || fds->fd != peer.fd)
        return __real_poll(fds, count, limit);
    if (chance(5) == 1)
        return static_cast<int>(fail(EINTR));
    if ((fds->events & POLLIN) != 0)
        next_turn();
    fds->revents = fds->events;
    return 1;
}
