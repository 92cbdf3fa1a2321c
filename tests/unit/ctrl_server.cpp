// SPDX-License-Identifier: ISC
// Serves a control socket. Avoids send, recv and poll, which faults.cpp takes for the code under
// test.
#include "tests/unit/ctrl_server.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace kelm_test {

namespace {

[[noreturn]] void fail(const std::string &what)
{
    perror(("control socket of the test: " + what).c_str());
    abort();
}

void make_folders_of(const std::string &path)
{
    for (size_t at = path.find('/', 1); at != std::string::npos; at = path.find('/', at + 1))
        mkdir(path.substr(0, at).c_str(), 0755);
}

}  // namespace

sockaddr_un unix_address(const std::string &path, socklen_t *length)
{
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    if (path.size() > sizeof address.sun_path)
        fail("path too long: " + path);
    memcpy(address.sun_path, path.data(), path.size());
    if (path[0] == '@')
        address.sun_path[0] = '\0';
    *length = sizeof address;
    return address;
}

ctrl_socket::ctrl_socket(const std::string &path)
    : fd_(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)), path_(path)
{
    make_folders_of(path);
    unlink(path.c_str());
    socklen_t length;
    const sockaddr_un address = unix_address(path, &length);
    if (fd_ < 0 || bind(fd_, reinterpret_cast<const sockaddr *>(&address), length) != 0)
        fail("bind " + path);
}

ctrl_socket::~ctrl_socket()
{
    close(fd_);
    unlink(path_.c_str());
}

bool ctrl_socket::send(const std::string &client_path, const std::string &datagram) const
{
    socklen_t length;
    const sockaddr_un address = unix_address(client_path, &length);
    return sendto(fd_, datagram.data(), datagram.size(), 0,
                  reinterpret_cast<const sockaddr *>(&address),
                  length) == static_cast<ssize_t>(datagram.size());
}

std::string ctrl_socket::take(std::string *sender) const
{
    char buffer[8192];
    sockaddr_un from = {};
    socklen_t length = sizeof from;
    const ssize_t got =
        recvfrom(fd_, buffer, sizeof buffer, 0, reinterpret_cast<sockaddr *>(&from), &length);
    if (got < 0)
        return "";
    if (sender != nullptr)
        *sender = from.sun_path;
    return std::string(buffer, static_cast<size_t>(got));
}

ctrl_server::ctrl_server(const std::string &path)
    : socket_(path), stop_(eventfd(0, EFD_CLOEXEC)), thread_()
{
    if (stop_ < 0)
        fail("eventfd");
    answer("ATTACH", {"OK\n"});
    answer("DETACH", {"OK\n"});
    thread_ = std::thread(&ctrl_server::serve, this);
}

ctrl_server::~ctrl_server()
{
    const uint64_t one = 1;
    if (write(stop_, &one, sizeof one) != sizeof one)
        fail("stop");
    thread_.join();
    close(stop_);
}

void ctrl_server::answer(const std::string &command, const std::vector<std::string> &datagrams)
{
    const std::lock_guard<std::mutex> held(lock_);
    answers_[command] = datagrams;
}

std::vector<std::string> ctrl_server::commands()
{
    const std::lock_guard<std::mutex> held(lock_);
    std::vector<std::string> taken;
    taken.swap(commands_);
    return taken;
}

void ctrl_server::send_event(const std::string &event)
{
    const std::lock_guard<std::mutex> held(lock_);
    if (!socket_.send(client_, event))
        fail("send to " + client_);
}

void ctrl_server::serve()
{
    pollfd wait[] = {{socket_.fd(), POLLIN, 0}, {stop_, POLLIN, 0}};
    while (ppoll(wait, 2, nullptr, nullptr) >= 0 && wait[1].revents == 0) {
        std::string sender;
        const std::string command = socket_.take(&sender);
        const std::lock_guard<std::mutex> held(lock_);
        commands_.push_back(command);
        if (command == "ATTACH")
            client_ = sender;
        for (const std::string &datagram : answers_[command])
            (void)socket_.send(sender, datagram);
    }
}

}  // namespace kelm_test
