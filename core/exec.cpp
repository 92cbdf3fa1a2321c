// SPDX-License-Identifier: ISC
// Shell commands, started with posix_spawn.
#include "core/exec.h"

#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/log.h"
#include "core/signals.h"

namespace kelm {

namespace {

// Each wps_exec_cmd_with_result overwrites this. There is room for the terminator even behind an
// output of the full size.
char g_wps_cmd_result[WPS_CMD_RESULT_SIZE + 1];

constexpr int START_TRIES = 5;
constexpr timespec START_PAUSE = {0, 100L * 1000 * 1000};

struct command_rule {
    command_kind kind;
    int limit_ms;
    int limit_again_ms;   // when the last command of the kind took all of limit_ms
    bool may_outlive_us;  // is left running when the daemon or the attempt ends
    int share;            // of the time left after SIGTERM; 4 means a quarter
};

// A publication gets the largest share. Others learn of the end by it, and it comes last. The limit
// after a command that hung is short for quick and scan: a tool that hangs is asked up to a dozen
// times in an attempt.
constexpr command_rule RULES[] = {
    {command_kind::quick, 15 * 1000, 3 * 1000, false, 4},
    {command_kind::scan, 30 * 1000, 3 * 1000, false, 4},
    {command_kind::script, 120 * 1000, 120 * 1000, true, 4},
    {command_kind::restart, 300 * 1000, 300 * 1000, true, 4},
    {command_kind::publish, 3 * 1000, 3 * 1000, false, 2},
};
constexpr size_t KIND_COUNT = sizeof RULES / sizeof RULES[0];
static_assert(KIND_COUNT == static_cast<size_t>(command_kind::publish) + 1,
              "one row per kind, in order");

constexpr int LEAST_MS = 1000;  // each command gets this, even when the attempt ends
// While a command runs, the clocks and SIGTERM are looked at this often.
constexpr int LOOK_MS = 100;
// For a kernel that cannot report the end of a child. The pauses grow up to this, since most
// commands take a few milliseconds.
constexpr int LONGEST_PAUSE_MS = 20;
constexpr timespec BURIAL_PAUSE = {0, 5L * 1000 * 1000};
constexpr int BURIAL_TRIES = 100;

bool last_one_hung[KIND_COUNT];
bool script_is_left = false;  // one was left running because the daemon ends
bool in_attempt = false;
int32_t attempt_end = 0;

// posix_spawn's attributes for a child that inherits none of the daemon's signal settings. The
// signals that the daemon holds back are unblocked. Those that it does not hear are at their
// default again. The child leads a process group, so that it can be killed with all that it has
// started.
class clean_signals {
public:
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init): posix_spawnattr_init fills it.
    clean_signals()
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
        // The number of the group stays 0. So the child gets a group of its own, with its process
        // id as the number.
        posix_spawnattr_setflags(
            &attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    clean_signals(const clean_signals &) = delete;
    clean_signals &operator=(const clean_signals &) = delete;
    ~clean_signals() { posix_spawnattr_destroy(&attributes_); }

    const posix_spawnattr_t *get() const { return &attributes_; }

private:
    posix_spawnattr_t attributes_;
};

// A device may be short of processes or memory for a moment. Then the command is tried again. This
// matters most for the restart at the end: without it no daemon would serve the next attempt.
// Returns 0 or the error.
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

// Starts "/bin/sh -c command". Its output goes to out, or where the daemon's own goes if out is -1.
// Returns the process id or -1.
pid_t _start_shell(const char *command, int out)
{
    char shell[] = "sh";
    char option[] = "-c";
    // By its type posix_spawn could change the words, but it changes none.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-const-cast)
    char *const words[] = {shell, option, const_cast<char *>(command), nullptr};
    const clean_signals signals;
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

// --- Waiting ---

// The beginning of what a command prints, as much as there is room for.
struct output {
    unique_fd from;  // does not block; closed once nothing more is taken
    char *buffer;
    size_t size;
    size_t used;
};

struct running_command {
    const char *text;
    const command_rule &rule;
    ending_wait ending;
    int limit_ms;
    int64_t begun_ms;
    output *printed;  // null: goes where the daemon's own output goes
    pid_t child;
    unique_fd end;  // readable once the child has ended; invalid until the first pause
    int pause_ms;
};

constexpr const char *LIMIT = "its time limit";
constexpr const char *ATTEMPT = "the attempt ends";
constexpr const char *ENDING = "the daemon ends";

void _take_output(output &printed)
{
    while (printed.used < printed.size) {
        const ssize_t count =
            ::read(printed.from.get(), printed.buffer + printed.used, printed.size - printed.used);
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0 && errno == EAGAIN)
            return;
        if (count <= 0)
            break;
        printed.used += static_cast<size_t>(count);
    }
    printed.from.reset();
}

bool _attempt_is_over()
{
    const auto now = static_cast<uint32_t>(time(nullptr));
    return in_attempt && static_cast<int32_t>(static_cast<uint32_t>(attempt_end) - now) <= 0;
}

int _ran_ms(const running_command &run)
{
    return static_cast<int>(kelm_monotonic_ms() - run.begun_ms);
}

// Why the daemon does not wait for the command any longer; null if it still waits.
const char *_why_over(running_command &run)
{
    const int ran_ms = _ran_ms(run);
    if (ran_ms >= run.limit_ms)
        return LIMIT;
    if (ran_ms >= LEAST_MS && _attempt_is_over())
        return ATTEMPT;
    return run.ending.left_ms() == 0 ? ENDING : nullptr;
}

int _open_end_of(pid_t child)
{
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, child, 0));
#else
    (void)child;
    return -1;
#endif
}

// Waits until the child has ended, or has printed something, or it is time to look at the clocks.
void _pause(running_command &run)
{
    if (run.pause_ms == 0)
        run.end.reset(_open_end_of(run.child));
    const int longest_ms = run.end.valid() ? LOOK_MS : LONGEST_PAUSE_MS;
    run.pause_ms = run.end.valid() ? LOOK_MS : 2 * run.pause_ms + 1;
    if (run.pause_ms > longest_ms)
        run.pause_ms = longest_ms;
    const int left_ms = run.ending.left_ms();
    const int limit_ms = left_ms >= 0 && left_ms < run.pause_ms ? left_ms : run.pause_ms;

    pollfd set[] = {{run.end.get(), POLLIN, 0},
                    {run.printed != nullptr ? run.printed->from.get() : -1, POLLIN, 0}};
    if (::poll(set, 2, limit_ms) > 0 && set[1].revents != 0 && run.printed != nullptr)
        _take_output(*run.printed);
}

// A killed process is gone at once, unless the kernel holds it. In that case waiting does not help.
void _bury(pid_t child)
{
    for (int tries = 0; tries < BURIAL_TRIES; ++tries) {
        if (waitpid(child, nullptr, WNOHANG) != 0)
            return;
        nanosleep(&BURIAL_PAUSE, nullptr);
    }
}

void _give_up(const running_command &run, const char *why)
{
    if (why == LIMIT)
        last_one_hung[static_cast<size_t>(run.rule.kind)] = true;
    const bool is_left = run.rule.may_outlive_us && why != LIMIT;
    script_is_left = script_is_left || (is_left && why == ENDING);
    if (!is_left) {
        (void)kill(-run.child, SIGKILL);
        _bury(run.child);
    }
    kelm_log_as("kelm_system", KELM_LOG_ALWAYS, "%s after %d s (%s): %s\n",
                is_left ? "left running" : "killed", (_ran_ms(run) + 500) / 1000, why, run.text);
}

// Waits for the end of a command. False when the wait was given up before. status: the wait status,
// -1 without one. If the shell leaves something running, neither that nor its output is waited for.
bool _wait_for(running_command &run, int *status)
{
    *status = -1;
    for (;;) {
        const pid_t ended = waitpid(run.child, status, WNOHANG);
        if (ended != 0 && (ended > 0 || errno != EINTR))
            break;
        if (const char *why = _why_over(run)) {
            _give_up(run, why);
            return false;
        }
        _pause(run);
    }
    last_one_hung[static_cast<size_t>(run.rule.kind)] = false;
    if (run.printed != nullptr && run.printed->from.valid())
        _take_output(*run.printed);
    return true;
}

// Whether a command may be started. False (logged)
// - for a command that would be killed as soon as it has begun;
// - for a restart while a script that was left running still configures what the restart would
//   start. Whoever ends the daemon restarts.
bool _may_start(running_command &run)
{
    const bool beside_script = script_is_left && run.rule.kind == command_kind::restart;
    if (!beside_script && (run.rule.may_outlive_us || run.ending.left_ms() != 0))
        return true;
    kelm_log_as("kelm_system", KELM_LOG_ALWAYS, "not run (%s): %s\n", ENDING, run.text);
    return false;
}

running_command _prepare(const char *command, command_kind kind, output *printed)
{
    const command_rule &rule = RULES[static_cast<size_t>(kind)];
    const bool again = last_one_hung[static_cast<size_t>(kind)];
    return {command,
            rule,
            ending_wait(rule.share),
            again ? rule.limit_again_ms : rule.limit_ms,
            kelm_monotonic_ms(),
            printed,
            -1,
            unique_fd(),
            0};
}

// Clears the buffer and formats a command into it. False when the command does not fit.
__attribute__((format(printf, 3, 0))) bool _format(char *command, size_t size, const char *format,
                                                   va_list values)
{
    memset(command, 0, size);
    const int length = vsnprintf(command, size, format, values);
    return length >= 0 && static_cast<size_t>(length) < size;
}

// Starts the shell with its output on a pipe. printed gets the other end of the pipe. Returns what
// _start_shell returns.
pid_t _start_with_output(const char *command, output &printed)
{
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0)
        return -1;
    printed.from.reset(ends[0]);
    const unique_fd to(ends[1]);
    (void)::fcntl(ends[0], F_SETFL, O_NONBLOCK);
    return _start_shell(command, to.get());
}

// The log lines always carry the name that readers of the log know.
__attribute__((format(printf, 2, 0))) void _exec_logged(command_kind kind, const char *format,
                                                        va_list values)
{
    char command[WPS_CMD_SIZE];
    const bool fits = _format(command, sizeof command, format, values);
    kelm_log_as("wps_exec_cmd", KELM_LOG_NORMAL, "%s\n", command);
    if (fits)
        (void)kelm_system(command, kind);
    else
        kelm_log_as("wps_exec_cmd", KELM_LOG_ALWAYS, "command too long, not run\n");
}

}  // namespace

int kelm_system(const char *command, command_kind kind)
{
    running_command run = _prepare(command, kind, nullptr);
    if (!_may_start(run))
        return -1;
    run.child = _start_shell(command, -1);
    int status = -1;
    if (run.child >= 0)
        (void)_wait_for(run, &status);
    return status;
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
    va_list values;
    va_start(values, format);
    _exec_logged(command_kind::quick, format, values);
    va_end(values);
    return 0;
}

int wps_exec_cmd(command_kind kind, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    _exec_logged(kind, format, values);
    va_end(values);
    return 0;
}

char *wps_exec_cmd_with_result(const char *format, ...)
{
    char command[WPS_CMD_SIZE];
    va_list values;
    va_start(values, format);
    const bool fits = _format(command, sizeof command, format, values);
    va_end(values);

    output printed = {unique_fd(), g_wps_cmd_result, WPS_CMD_RESULT_SIZE, 0};
    running_command run = _prepare(command, command_kind::quick, &printed);
    if (fits && !_may_start(run))
        return nullptr;
    run.child = fits ? _start_with_output(command, printed) : -1;
    if (run.child < 0) {
        kelm_log_always("popen() fail\n\n");
        return nullptr;
    }
    memset(g_wps_cmd_result, 0, sizeof g_wps_cmd_result);
    int status;
    if (!_wait_for(run, &status))
        return nullptr;
    // The last character should be the line feed. It is removed without a look.
    if (printed.used > 0)
        g_wps_cmd_result[printed.used - 1] = '\0';
    kelm_log_detail("exec: %s, result: %s\n\n", command, g_wps_cmd_result);
    return g_wps_cmd_result;
}

void kelm_end_commands_at(int32_t at)
{
    in_attempt = true;
    attempt_end = at;
}

void kelm_let_commands_run()
{
    in_attempt = false;
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
