// SPDX-License-Identifier: ISC
// Stands between the code under test and the C library, see the link options --wrap. The tests' own
// servers are made before a fault is set and then use other calls than these.
#include "tests/unit/faults.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <deque>
#include <map>

#include <poll.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/types.h>

extern "C" {
#include <uci.h>
}

namespace {

std::map<std::string, std::deque<int>> errors_to_come;
std::map<std::string, std::function<void()>> looks_to_come;
bool polls_time_out = false;
bool clocks_stopped = false;
timespec stopped_clock = {1000, 0};
int times_as_fast = 1;
std::vector<unsigned> seconds_slept;
std::vector<int> limits_polled;
std::vector<std::string> syslog_text;

void look_before(const char *call)
{
    const auto found = looks_to_come.find(call);
    if (found == looks_to_come.end())
        return;
    const std::function<void()> look = found->second;
    looks_to_come.erase(found);
    look();
}

// True when this call is to fail, with errno set.
bool must_fail(const char *call)
{
    look_before(call);
    const auto found = errors_to_come.find(call);
    if (found == errors_to_come.end() || found->second.empty())
        return false;
    const int error = found->second.front();
    found->second.pop_front();
    if (error != 0)
        errno = error;
    return error != 0;
}

}  // namespace

extern "C" {

int __real_bind(int s, const sockaddr *address, socklen_t length);
void *__real_calloc(size_t count, size_t size);
int __real_fcntl(int fd, int command, ...);
int __real_pipe2(int *ends, int flags);
int __real_poll(pollfd *set, nfds_t count, int limit_ms);
int __real_posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const *words,
                       char *const *environment);
ssize_t __real_recv(int s, void *buffer, size_t size, int flags);
ssize_t __real_send(int s, const void *data, size_t size, int flags);
int __real_socket(int domain, int type, int protocol);
unsigned __real_sleep(unsigned seconds);
int __real_clock_gettime(clockid_t clock, timespec *now);
uci_context *__real_uci_alloc_context();
int __real_uci_load(uci_context *context, const char *name, uci_package **package);

int __wrap_bind(int s, const sockaddr *address, socklen_t length)
{
    return must_fail("bind") ? -1 : __real_bind(s, address, length);
}

void *__wrap_calloc(size_t count, size_t size)
{
    return must_fail("calloc") ? nullptr : __real_calloc(count, size);
}

int __wrap_fcntl(int fd, int command, ...)
{
    va_list values;
    va_start(values, command);
    const long value = va_arg(values, long);
    va_end(values);
    return must_fail("fcntl") ? -1 : __real_fcntl(fd, command, value);
}

int __wrap_pipe2(int *ends, int flags)
{
    return must_fail("pipe2") ? -1 : __real_pipe2(ends, flags);
}

int __wrap_poll(pollfd *set, nfds_t count, int limit_ms)
{
    limits_polled.push_back(limit_ms);
    if (must_fail("poll"))
        return -1;
    return polls_time_out ? 0 : __real_poll(set, count, limit_ms);
}

// Unlike the others this one returns its error.
int __wrap_posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                       const posix_spawnattr_t *attributes, char *const *words,
                       char *const *environment)
{
    if (must_fail("posix_spawn"))
        return errno;
    return __real_posix_spawn(child, path, actions, attributes, words, environment);
}

ssize_t __wrap_recv(int s, void *buffer, size_t size, int flags)
{
    return must_fail("recv") ? -1 : __real_recv(s, buffer, size, flags);
}

ssize_t __wrap_send(int s, const void *data, size_t size, int flags)
{
    return must_fail("send") ? -1 : __real_send(s, data, size, flags);
}

int __wrap_socket(int domain, int type, int protocol)
{
    return must_fail("socket") ? -1 : __real_socket(domain, type, protocol);
}

unsigned __wrap_sleep(unsigned seconds)
{
    seconds_slept.push_back(seconds);
    if (!clocks_stopped)
        return __real_sleep(seconds);
    stopped_clock.tv_sec += seconds;
    return 0;
}

int __wrap_clock_gettime(clockid_t clock, timespec *now)
{
    if (clocks_stopped) {
        *now = stopped_clock;
        return 0;
    }
    const int result = __real_clock_gettime(clock, now);
    const long long ns = (now->tv_sec * 1000000000LL + now->tv_nsec) * times_as_fast;
    *now = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    return result;
}

uci_context *__wrap_uci_alloc_context()
{
    return must_fail("uci_alloc_context") ? nullptr : __real_uci_alloc_context();
}

// Like posix_spawn this one returns its error.
int __wrap_uci_load(uci_context *context, const char *name, uci_package **package)
{
    return must_fail("uci_load") ? errno : __real_uci_load(context, name, package);
}

void __wrap_qm_syslog(int level, int success, const char *format, ...)
{
    char text[512];
    va_list values;
    va_start(values, format);
    vsnprintf(text, sizeof text, format, values);
    va_end(values);
    syslog_text.push_back(std::to_string(level) + " " + std::to_string(success) + " " + text);
}

}  // extern "C"

namespace kelm_test {

void fail_next(const std::string &call, std::initializer_list<int> errors)
{
    errors_to_come[call].assign(errors);
}

void before_next(const std::string &call, const std::function<void()> &look)
{
    looks_to_come[call] = look;
}

void let_polls_time_out()
{
    polls_time_out = true;
}

void stop_clocks()
{
    clocks_stopped = true;
}

void run_clocks_faster(int times)
{
    times_as_fast = times;
}

std::vector<unsigned> sleeps()
{
    return seconds_slept;
}

std::vector<int> poll_limits()
{
    return limits_polled;
}

std::vector<std::string> syslog_lines()
{
    std::vector<std::string> lines;
    lines.swap(syslog_text);
    return lines;
}

void forget_faults()
{
    errors_to_come.clear();
    looks_to_come.clear();
    polls_time_out = false;
    clocks_stopped = false;
    times_as_fast = 1;
    seconds_slept.clear();
    limits_polled.clear();
    syslog_text.clear();
}

}  // namespace kelm_test
