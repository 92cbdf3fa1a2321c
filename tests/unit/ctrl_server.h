// SPDX-License-Identifier: ISC
// A control socket of hostapd or wpa_supplicant that a test answers for.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kelm_test {

// The socket alone: the test sends and takes datagrams itself. Aborts when it cannot be made.
class ctrl_socket {
public:
    // A path, or "@" and an abstract name.
    explicit ctrl_socket(const std::string &path);
    ctrl_socket(const ctrl_socket &) = delete;
    ctrl_socket &operator=(const ctrl_socket &) = delete;
    ~ctrl_socket();

    int fd() const { return fd_; }
    // To a client's bound path; false when nobody listens there.
    bool send(const std::string &client_path, const std::string &datagram) const;
    // The next datagram, or "" when none waits; sender, if given, becomes the client's path.
    std::string take(std::string *sender = nullptr) const;

private:
    int fd_;
    std::string path_;
};

// The same with a thread that answers each command with its datagrams, in order. From the start
// "ATTACH" and "DETACH" are answered with "OK\n" and other commands not at all.
class ctrl_server {
public:
    explicit ctrl_server(const std::string &path);
    ~ctrl_server();

    void answer(const std::string &command, const std::vector<std::string> &datagrams);
    // The commands that have come in since the last call.
    std::vector<std::string> commands();
    // To the client that attached last.
    void send_event(const std::string &event);

private:
    void serve();

    ctrl_socket socket_;
    int stop_;
    std::mutex lock_;
    std::map<std::string, std::vector<std::string>> answers_;
    std::vector<std::string> commands_;
    std::string client_;
    std::thread thread_;
};

// An address of a path, or of an abstract name behind "@".
sockaddr_un unix_address(const std::string &path, socklen_t *length);

}  // namespace kelm_test
