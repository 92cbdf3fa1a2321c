// SPDX-License-Identifier: ISC
// Shell commands on posix_spawn.
#include "platform/exec.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/log.h"

namespace kelm {

namespace {

// Overwritten by every wps_exec_cmd_with_result; a program's output of the full size leaves room
// for the terminator.
char g_wps_cmd_result[WPS_CMD_RESULT_SIZE + 1];

constexpr int START_TRIES = 5;
constexpr timespec START_PAUSE = {0, 100L * 1000 * 1000};
constexpr long FIRST_PAUSE_NS = 500L * 1000;
constexpr long LONGEST_PAUSE_NS = 20L * 1000 * 1000;

// posix_spawn's attributes for a child that inherits none of the daemon's signal settings: the
// held-back signals unblocked, and those the daemon does not hear back at their default.
class clean_signals {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): posix_spawnattr_init fills it.
    explicit clean_signals(bool own_group)
    {
        sigset_t none;
        sigset_t all;
        sigemptyset(&none);
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        posix_spawnattr_init(&attributes_);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &all);
        short flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
        if (own_group)
            flags |= POSIX_SPAWN_SETPGROUP;
        posix_spawnattr_setflags(&attributes_, flags);
    }
    clean_signals(const clean_signals &) = delete;
    clean_signals &operator=(const clean_signals &) = delete;
    ~clean_signals() { posix_spawnattr_destroy(&attributes_); }

    const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

// A device that is short of processes or memory for a moment still gets its command: the restart at
// the end above all, without which no daemon would serve the next attempt. Returns 0 or the error.
int _spawn_shell(pid_t *child, const posix_spawn_file_actions_t *actions,
                 const clean_signals &signals, char *const words[])
{
    int failed = 0;
    for (int tries = 0; tries < START_TRIES; ++tries) {
        if (tries > 0)
            nanosleep(&START_PAUSE, nullptr);
        failed = posix_spawn(child, "/bin/sh", actions, signals.get(), words, environ);
        if (failed != EAGAIN && failed != ENOMEM)
            break;
    }
    return failed;
}

// Starts "/bin/sh -c command", its output going to out unless that is -1, in a process group of its
// own if it is to be killed as a whole. Returns the process id or -1.
pid_t _start_shell(const char *command, int out, bool own_group)
{
    char shell[] = "sh";
    char option[] = "-c";
    // posix_spawn takes words that it could change, and changes none.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    char *const words[] = {shell, option, const_cast<char *>(command), nullptr};
    const clean_signals signals(own_group);
    posix_spawn_file_actions_t actions;
    if (posix_spawn_file_actions_init(&actions) != 0)
        return -1;

    pid_t child = -1;
    int failed = 0;
    if (out >= 0)
        failed = posix_spawn_file_actions_adddup2(&actions, out, STDOUT_FILENO);
    if (failed == 0)
        failed = _spawn_shell(&child, &actions, signals, words);
    posix_spawn_file_actions_destroy(&actions);
    return failed == 0 ? child : -1;
}

int _wait_for(pid_t child)
{
    int status = -1;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            return -1;
    }
    return status;
}

int64_t _monotonic_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<int64_t>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

// Looks again after ever longer pauses: most commands take a few milliseconds.
int _wait_for_limited(pid_t child, int limit_ms)
{
    const int64_t deadline_ms = _monotonic_ms() + limit_ms;
    timespec pause = {0, FIRST_PAUSE_NS};
    for (;;) {
        int status = -1;
        const pid_t ended = waitpid(child, &status, WNOHANG);
        if (ended == child)
            return status;
        if (ended < 0 && errno != EINTR)
            return -1;
        if (_monotonic_ms() >= deadline_ms)
            break;
        nanosleep(&pause, nullptr);
        if (2 * pause.tv_nsec <= LONGEST_PAUSE_NS)
            pause.tv_nsec *= 2;
    }
    (void)kill(-child, SIGKILL);
    (void)_wait_for(child);
    return -1;
}

// Reads until the end or until the buffer is full; returns the bytes read.
size_t _read_output(int fd, char *buffer, size_t size)
{
    size_t used = 0;
    while (used < size) {
        const ssize_t count = ::read(fd, buffer + used, size - used);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        used += static_cast<size_t>(count);
    }
    return used;
}

// Formats into a cleared buffer. False when the command does not fit.
__attribute__((format(printf, 3, 0))) bool _format(char *command, size_t size, const char *format,
                                                   va_list values)
{
    memset(command, 0, size);
    const int length = vsnprintf(command, size, format, values);
    return length >= 0 && static_cast<size_t>(length) < size;
}

}  // namespace

int kelm_system(const char *command)
{
    const pid_t child = _start_shell(command, -1, false);
    return child < 0 ? -1 : _wait_for(child);
}

int kelm_system_limited(const char *command, int limit_ms)
{
    const pid_t child = _start_shell(command, -1, true);
    return child < 0 ? -1 : _wait_for_limited(child, limit_ms);
}

int kelm_system_format(size_t size, const char *format, ...)
{
    char command[WPS_CMD_SIZE];
    va_list values;
    va_start(values, format);
    const bool fits =
        _format(command, size < sizeof command ? size : sizeof command, format, values);
    va_end(values);
    return fits ? kelm_system(command) : -1;
}

int wps_exec_cmd(const char *format, ...)
{
    char command[WPS_CMD_SIZE];
    va_list values;
    va_start(values, format);
    const bool fits = _format(command, sizeof command, format, values);
    va_end(values);

    kelm_log_normal("%s\n", command);
    if (fits)
        (void)kelm_system(command);
    else
        kelm_log_always("command too long, not run\n");
    return 0;
}

char *wps_exec_cmd_with_result(const char *format, ...)
{
    char command[WPS_CMD_SIZE];
    va_list values;
    va_start(values, format);
    const bool fits = _format(command, sizeof command, format, values);
    va_end(values);

    int ends[2] = {-1, -1};
    const bool piped = fits && ::pipe2(ends, O_CLOEXEC) == 0;
    unique_fd from(ends[0]);
    unique_fd to(ends[1]);
    const pid_t child = piped ? _start_shell(command, to.get(), false) : -1;
    if (child < 0) {
        kelm_log_always("popen() fail\n\n");
        return nullptr;
    }

    to.reset();
    memset(g_wps_cmd_result, 0, sizeof g_wps_cmd_result);
    const size_t length = _read_output(from.get(), g_wps_cmd_result, WPS_CMD_RESULT_SIZE);
    // The line feed, by trust: the last character goes whatever it is.
    if (length > 0)
        g_wps_cmd_result[length - 1] = '\0';
    kelm_log_detail("exec: %s, result: %s\n\n", command, g_wps_cmd_result);
    from.reset();
    (void)_wait_for(child);
    return g_wps_cmd_result;
}

char *nvram_get(const char *name)
{
    return wps_exec_cmd_with_result("nvram get %s", name);
}

int nvram_set(const char *name, const char *value)
{
    return wps_exec_cmd("nvram set %s='%s'", name, value);
}

}  // namespace kelm
