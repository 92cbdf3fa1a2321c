// SPDX-License-Identifier: ISC
// What the tests of the stand-ins share: bytes, temporary directories, child processes, a raw bus
// client.
#pragma once

#include <endian.h>
#include <gtest/gtest.h>
#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

extern "C" {
#include <libubox/blobmsg.h>
}

using Bytes = std::vector<uint8_t>;

// "8700 0009|ab" to bytes; blanks and bars are there for the reader.
Bytes unhex(std::string_view text);
// Bytes in lower case, a blank after every fourth.
std::string hex(const Bytes &bytes);
std::string hex(const void *data, size_t len);

// A zeroed buffer that is freed; init restarts it.
struct Buffer {
    blob_buf b{};
    Buffer() { blob_buf_init(&b, 0); }
    Buffer(const Buffer &) = delete;
    Buffer &operator=(const Buffer &) = delete;
    ~Buffer() { blob_buf_free(&b); }
    blob_attr *first() const { return blob_at(blob_data(b.head)); }
    std::string children() const { return hex(blob_data(b.head), blob_len(b.head)); }
};

// An outermost attribute around raw children, 4-aligned.
struct RawMessage {
    explicit RawMessage(const Bytes &children, uint32_t id = 0);
    blob_attr *head() { return reinterpret_cast<blob_attr *>(words.data()); }
    std::vector<uint32_t> words;
};

class TempDir {
public:
    TempDir();
    TempDir(const TempDir &) = delete;
    TempDir &operator=(const TempDir &) = delete;
    ~TempDir();
    std::string operator/(const std::string &name) const { return path_ + "/" + name; }
    const std::string &path() const { return path_; }

private:
    std::string path_;
};

void write_file(const std::string &path, std::string_view text);
std::string read_file(const std::string &path);

// Polls until it holds; false when the time is over.
bool eventually(const std::function<bool()> &holds, int limit_ms = 5000);
void sleep_ms(int ms);
int64_t now_ms();

constexpr int kTimedOut = -1;
constexpr int kKilledBy = 1000;  // added to the signal

// Waits; kills at the limit. The exit code, kKilledBy + signal, or kTimedOut.
int wait_for(pid_t pid, int limit_ms);

// Runs body in a process of its own and returns what it returns.
int in_child(const std::function<int()> &body, int limit_ms = 10000);

// For bodies of children: says what failed and makes the child's result 99.
#define CHILD_CHECK(condition)                                                        \
    do {                                                                              \
        if (!(condition)) {                                                           \
            fprintf(stderr, "%s:%d: not true: %s\n", __FILE__, __LINE__, #condition); \
            return 99;                                                                \
        }                                                                             \
    } while (0)

// A program with its output in files.
class Program {
public:
    Program(const TempDir &dir, std::vector<std::string> argv);
    Program(const Program &) = delete;
    Program &operator=(const Program &) = delete;
    ~Program();
    int finish(int limit_ms = 10000);
    void signal(int number) const;
    // Ends it so and finishes; a signal that came before its loop turned is forgotten there.
    int end(int number);
    std::string out() const { return read_file(out_); }
    std::string err() const { return read_file(err_); }
    bool running();
    // Whether it waits for something, so has handled all that was sent to it before the call.
    bool sleeps() const;

private:
    pid_t pid_ = -1;
    int result_ = 0;
    std::string out_, err_;
};

// The built broker on a socket of its own.
class Broker {
public:
    Broker();
    TempDir dir;
    std::string socket;
    Program process;
};

// Talks bytes. Every wait has a limit.
class RawClient {
public:
    explicit RawClient(const std::string &socket);
    RawClient(const RawClient &) = delete;
    RawClient &operator=(const RawClient &) = delete;
    ~RawClient();
    void send(const Bytes &bytes) const;
    void send(std::string_view text) const { send(unhex(text)); }
    Bytes receive(size_t count, int limit_ms = 5000) const;  // fewer at end or limit
    // One message; empty at the end of the stream or at the limit.
    Bytes message(int limit_ms = 5000) const;
    bool closed_by_peer(int limit_ms = 5000) const;
    // Sends a request and returns the STATUS number of its answer; DATA goes to data.
    int request(const Bytes &bytes, Bytes *data = nullptr) const;
    uint32_t add_object() const;
    int register_pattern(uint32_t object, const std::string &pattern) const;
    int send_event(const std::string &type) const;

    int fd = -1;
    uint32_t id = 0;
    mutable uint16_t seq = 0;
};

// Header and body of one message.
Bytes message_bytes(int type, uint16_t seq, uint32_t peer, const blob_attr *body);
uint32_t word_at(const Bytes &bytes, size_t offset);

// Accepts one connection in a thread and plays the broker from a script.
class FakeBroker {
public:
    explicit FakeBroker(const std::string &socket, const std::function<void(int fd)> &script);
    FakeBroker(const FakeBroker &) = delete;
    FakeBroker &operator=(const FakeBroker &) = delete;
    ~FakeBroker();

private:
    int listener_ = -1;
    std::thread thread_;
};

Bytes read_exactly(int fd, size_t count, int limit_ms = 5000);
void write_bytes(int fd, const Bytes &bytes);
