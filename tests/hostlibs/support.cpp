// SPDX-License-Identifier: ISC
// Helpers of the tests of the stand-ins.
#include "support.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fstream>
#include <sstream>

extern "C" {
#include <libubox/uloop.h>
#include <ubusmsg.h>
}

Bytes unhex(std::string_view text)
{
    Bytes bytes;
    std::string digits;
    for (char c : text) {
        if (c == ' ' || c == '|' || c == '\n')
            continue;
        digits += c;
        if (digits.size() < 2)
            continue;
        bytes.push_back(static_cast<uint8_t>(strtoul(digits.c_str(), nullptr, 16)));
        digits.clear();
    }
    EXPECT_TRUE(digits.empty()) << "odd number of digits";
    return bytes;
}

std::string hex(const void *data, size_t len)
{
    const auto *bytes = static_cast<const uint8_t *>(data);
    std::string text;
    for (size_t i = 0; i < len; i++) {
        char pair[3];
        snprintf(pair, sizeof(pair), "%02x", bytes[i]);
        if (i > 0 && i % 4 == 0)
            text += ' ';
        text += pair;
    }
    return text;
}

std::string hex(const Bytes &bytes)
{
    return hex(bytes.data(), bytes.size());
}

RawMessage::RawMessage(const Bytes &children, uint32_t id)
{
    size_t raw = 4 + children.size();
    words.resize((raw + 3) / 4);
    const uint32_t first = id << 24 | static_cast<uint32_t>(raw);
    words[0] = htobe32(first);
    if (!children.empty())
        memcpy(words.data() + 1, children.data(), children.size());
}

TempDir::TempDir()
{
    char name[] = "/tmp/hostlibs.XXXXXX";
    path_ = mkdtemp(name) ? name : "";
    EXPECT_FALSE(path_.empty());
}

TempDir::~TempDir()
{
    if (path_.empty())
        return;
    std::string command = "rm -rf '" + path_ + "'";
    EXPECT_EQ(0, system(command.c_str()));
}

void write_file(const std::string &path, std::string_view text)
{
    std::ofstream file(path, std::ios::binary);
    file.write(text.data(), static_cast<std::streamsize>(text.size()));
    file.close();
    ASSERT_TRUE(file.good()) << path;
}

std::string read_file(const std::string &path)
{
    std::ifstream file(path, std::ios::binary);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

int64_t now_ms()
{
    timespec clock{};
    clock_gettime(CLOCK_MONOTONIC, &clock);
    return static_cast<int64_t>(clock.tv_sec) * 1000 + clock.tv_nsec / 1000000;
}

void sleep_ms(int ms)
{
    timespec left{ms / 1000, ms % 1000 * 1000000L};
    while (nanosleep(&left, &left) < 0) {
    }
}

bool eventually(const std::function<bool()> &holds, int limit_ms)
{
    int64_t end = now_ms() + limit_ms;
    do {
        if (holds())
            return true;
        sleep_ms(5);
    } while (now_ms() < end);
    return holds();
}

static int decode(int status)
{
    return WIFSIGNALED(status) ? kKilledBy + WTERMSIG(status) : WEXITSTATUS(status);
}

int wait_for(pid_t pid, int limit_ms)
{
    int status = 0;
    if (eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }, limit_ms))
        return decode(status);
    kill(pid, SIGKILL);
    waitpid(pid, &status, 0);
    return kTimedOut;
}

int in_child(const std::function<int()> &body, int limit_ms)
{
    fflush(nullptr);
    // The loop of an earlier test would be shared: a child that ends it takes the wake-up of
    // signals out of the descriptors that all others after it wait for.
    uloop_done();
    pid_t pid = fork();
    if (pid < 0)
        return kTimedOut;
    if (pid == 0) {
        int result = body();
        fflush(nullptr);
        _exit(result);
    }
    return wait_for(pid, limit_ms);
}

static int output_file(const std::string &path)
{
    return open(path.c_str(), O_CREAT | O_WRONLY | O_APPEND | O_CLOEXEC, 0600);
}

// Children start with default signals, whatever the tests did to theirs.
static void become(std::vector<std::string> &argv, const std::string &out, const std::string &err)
{
    std::vector<char *> args;
    for (auto &arg : argv)
        args.push_back(arg.data());
    args.push_back(nullptr);
    for (int number : {SIGHUP, SIGINT, SIGTERM, SIGPIPE, SIGCHLD})
        ::signal(number, SIG_DFL);
    if (dup2(output_file(out), 1) < 0 || dup2(output_file(err), 2) < 0)
        _exit(120);
    execv(args[0], args.data());
    _exit(121);
}

Program::Program(const TempDir &dir, std::vector<std::string> argv)
{
    static int count;
    std::string name = dir / ("run" + std::to_string(++count));
    out_ = name + ".out";
    err_ = name + ".err";
    pid_ = fork();
    if (pid_ == 0)
        become(argv, out_, err_);
    EXPECT_GT(pid_, 0);
}

Program::~Program()
{
    if (pid_ <= 0)
        return;
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
}

int Program::finish(int limit_ms)
{
    if (pid_ > 0)
        result_ = wait_for(pid_, limit_ms);
    pid_ = -1;
    return result_;
}

// A process that is gone has no number here, and kill would take -1 for everybody.
void Program::signal(int number) const
{
    if (pid_ > 0)
        kill(pid_, number);
    else
        ADD_FAILURE() << "no process to send signal " << number << " to";
}

int Program::end(int number)
{
    for (int tries = 0; tries < 3 && running(); tries++) {
        signal(number);
        eventually([&] { return !running(); }, 3000);
    }
    return finish();
}

bool Program::running()
{
    int status = 0;
    if (pid_ > 0 && waitpid(pid_, &status, WNOHANG) == pid_) {
        result_ = decode(status);
        pid_ = -1;
    }
    return pid_ > 0;
}

// The state stands behind the name in brackets.
bool Program::sleeps() const
{
    std::string stat = read_file("/proc/" + std::to_string(pid_) + "/stat");
    size_t name_end = stat.rfind(") ");
    return name_end != std::string::npos && stat[name_end + 2] == 'S';
}

static int connect_to(const std::string &path)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path.c_str());
    int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<sockaddr *>(&address), sizeof(address)) == 0)
        return fd;
    close(fd);
    return -1;
}

static bool answers(const std::string &path)
{
    int fd = connect_to(path);
    if (fd >= 0)
        close(fd);
    return fd >= 0;
}

Broker::Broker() : socket(dir / "bus"), process(dir, {UBUSD_PATH, "-s", socket})
{
    EXPECT_TRUE(eventually([&] { return answers(socket); })) << process.err();
}

Bytes read_exactly(int fd, size_t count, int limit_ms)
{
    Bytes bytes(count);
    size_t have = 0;
    int64_t end = now_ms() + limit_ms;
    while (have < count) {
        pollfd pfd{fd, POLLIN, 0};
        int left = static_cast<int>(end - now_ms());
        if (left <= 0 || poll(&pfd, 1, left) <= 0)
            break;
        ssize_t got = read(fd, bytes.data() + have, count - have);
        if (got <= 0)
            break;
        have += static_cast<size_t>(got);
    }
    bytes.resize(have);
    return bytes;
}

void write_bytes(int fd, const Bytes &bytes)
{
    size_t done = 0;
    while (done < bytes.size()) {
        ssize_t sent = ::send(fd, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
        if (sent <= 0)
            return;
        done += static_cast<size_t>(sent);
    }
}

uint32_t word_at(const Bytes &bytes, size_t offset)
{
    uint32_t word = 0;
    for (size_t i = 0; i < 4; i++)
        word = word << 8 | (offset + i < bytes.size() ? bytes[offset + i] : 0);
    return word;
}

Bytes message_bytes(int type, uint16_t seq, uint32_t peer, const blob_attr *body)
{
    Bytes bytes{0, static_cast<uint8_t>(type), static_cast<uint8_t>(seq >> 8),
                static_cast<uint8_t>(seq)};
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes.push_back(static_cast<uint8_t>(peer >> shift));
    const auto *raw = reinterpret_cast<const uint8_t *>(body);
    bytes.insert(bytes.end(), raw, raw + blob_raw_len(body));
    return bytes;
}

RawClient::RawClient(const std::string &socket) : fd(connect_to(socket))
{
    Bytes hello = message();
    EXPECT_EQ(12u, hello.size());
    id = word_at(hello, 4);
}

RawClient::~RawClient()
{
    close(fd);
}

void RawClient::send(const Bytes &bytes) const
{
    write_bytes(fd, bytes);
}

Bytes RawClient::receive(size_t count, int limit_ms) const
{
    return read_exactly(fd, count, limit_ms);
}

Bytes RawClient::message(int limit_ms) const
{
    Bytes bytes = receive(12, limit_ms);
    if (bytes.size() < 12)
        return {};
    Bytes rest = receive((word_at(bytes, 8) & 0xffffff) - 4);
    bytes.insert(bytes.end(), rest.begin(), rest.end());
    return bytes;
}

bool RawClient::closed_by_peer(int limit_ms) const
{
    pollfd pfd{fd, POLLIN, 0};
    char byte = 0;
    if (poll(&pfd, 1, limit_ms) <= 0)
        return false;
    return recv(fd, &byte, 1, MSG_DONTWAIT) <= 0;
}

int RawClient::request(const Bytes &bytes, Bytes *data) const
{
    send(bytes);
    for (;;) {
        Bytes answer = message();
        if (answer.empty())
            return -1;
        if (answer[1] == UBUS_MSG_STATUS)
            return static_cast<int>(word_at(answer, 16));
        if (data)
            *data = answer;
    }
}

uint32_t RawClient::add_object() const
{
    Buffer empty;
    Bytes data;
    EXPECT_EQ(0, request(message_bytes(UBUS_MSG_ADD_OBJECT, ++seq, 0, empty.b.head), &data));
    return word_at(data, 16);
}

static void begin_call(Buffer &body, const char *method)
{
    blob_put_u32(&body.b, UBUS_ATTR_OBJID, 1);
    blob_put_string(&body.b, UBUS_ATTR_METHOD, method);
}

int RawClient::register_pattern(uint32_t object, const std::string &pattern) const
{
    Buffer body;
    begin_call(body, "register");
    void *cookie = blob_nest_start(&body.b, UBUS_ATTR_DATA);
    blobmsg_add_u32(&body.b, "object", object);
    blobmsg_add_string(&body.b, "pattern", pattern.c_str());
    blob_nest_end(&body.b, cookie);
    return request(message_bytes(UBUS_MSG_INVOKE, ++seq, 1, body.b.head));
}

int RawClient::send_event(const std::string &type) const
{
    Buffer body;
    begin_call(body, "send");
    void *cookie = blob_nest_start(&body.b, UBUS_ATTR_DATA);
    blobmsg_add_string(&body.b, "id", type.c_str());
    blobmsg_close_table(&body.b, blobmsg_open_table(&body.b, "data"));
    blob_nest_end(&body.b, cookie);
    return request(message_bytes(UBUS_MSG_INVOKE, ++seq, 1, body.b.head));
}

FakeBroker::FakeBroker(const std::string &socket, const std::function<void(int fd)> &script)
{
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    snprintf(address.sun_path, sizeof(address.sun_path), "%s", socket.c_str());
    listener_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    EXPECT_EQ(0, bind(listener_, reinterpret_cast<sockaddr *>(&address), sizeof(address)));
    EXPECT_EQ(0, listen(listener_, 4));
    thread_ = std::thread([this, script] {
        int fd = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
        if (fd < 0)
            return;
        script(fd);
        close(fd);
    });
}

FakeBroker::~FakeBroker()
{
    shutdown(listener_, SHUT_RDWR);
    thread_.join();
    close(listener_);
}
