// SPDX-License-Identifier: ISC
// Processes: the daemon's start and end, the commands that it runs, the scripts that others run.
// The kernel's process connector tells of each process; where there is none, "/proc" is read.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <linux/cn_proc.h>
#include <linux/connector.h>
#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "core/handle.h"
#include "core/signals.h"
#include "core/text.h"
#include "watch/source.h"
#include "watch/tell.h"

namespace kelm {

namespace {

constexpr const char *DAEMON = "kelm";
// Of the programs that others run only these are told, as commands of run "0".
constexpr const char *SCRIPTS[] = {"/etc/init.d/wps", "/etc/init.d/wifi", "/usr/bin/wifi",
                                   "/sbin/wifi"};
constexpr const char *CLIENTS[] = {"hostapd_cli", "wpa_cli"};

constexpr size_t TRACED_MAX = 128;
constexpr size_t LINE_SIZE = 256;      // kept of a command, to tell it again at its end
constexpr size_t COMMAND_SIZE = 2048;  // bytes of a command line that are looked at
constexpr size_t WORDS_MAX = 64;
constexpr int EVENTS_MAX = 64;  // taken at a time
constexpr int EVENTS_BETWEEN_DRAINS = 8;
constexpr int CONNECTOR_ROOM = 1024 * 1024;  // of the socket; a busy device starts many programs
constexpr int64_t IDLE_LOOK_MS = 500;
constexpr int64_t CHILDREN_LOOK_MS = 20;  // in an attempt: reads one file per thread of the daemon
constexpr int64_t ATTEMPT_LOOK_MS = 200;  // the same where all of "/proc" must be read
constexpr int64_t SETTLED_MS = 400;       // after so long the daemon is in the background
constexpr int64_t LOSS_TOLD_MS = 5000;

enum class kind {
    free_place,
    child,     // of a daemon or of its command, and no program of its own yet
    command,   // runs a program
    vanished,  // a program that ended before it could be looked at
    starting,  // the daemon's program, which may yet go into the background
    daemon,
};

struct traced {
    kind is;
    pid_t pid;
    pid_t parent;
    int run;
    bool first;  // started by the daemon itself
    bool told;
    bool seen;         // found in the present look
    int64_t since_ms;  // when it began to start
    pid_t ghost;       // a child of a starting process that ended before it
    int ghost_status;
    char line[LINE_SIZE];
};

traced table[TRACED_MAX];
int runs = 0;
unique_fd connector;  // invalid: "/proc" is read instead
bool lost_some = false;
int64_t loss_told_ms = -LOSS_TOLD_MS;

traced *_find_process(pid_t pid)
{
    for (traced &one : table) {
        if (one.is != kind::free_place && one.pid == pid)
            return &one;
    }
    return nullptr;
}

// Null when there is no place left: then the process is not followed.
traced *_add_process(kind is, pid_t pid, pid_t parent, int run)
{
    for (traced &one : table) {
        if (one.is != kind::free_place)
            continue;
        one = {};
        one.is = is;
        one.pid = pid;
        one.parent = parent;
        one.run = run;
        return &one;
    }
    return nullptr;
}

void _forget(traced &one)
{
    one.is = kind::free_place;
}

// --- Telling ---

void _tell_start(traced &one)
{
    one.is = kind::daemon;
    one.run = ++runs;
    watch_say("start", "", "%d daemon %d", one.run, static_cast<int>(one.pid));
}

void _tell_end(int run, pid_t pid, int status)
{
    const bool killed = WIFSIGNALED(status);
    watch_say("exit", "", "%d daemon %d %s %d", run, static_cast<int>(pid),
              killed ? "signal" : "status", killed ? WTERMSIG(status) : WEXITSTATUS(status));
    watch_attempt_ended();
}

void _tell_command(int run, const char *line)
{
    watch_say(line[0] == '/' ? "script" : "command", "", "%d %s", run, line);
}

void _tell_command_end(const traced &one, int status)
{
    const bool killed = WIFSIGNALED(status);
    watch_say("exit", "", "%d command %d %s %d %s", one.run, static_cast<int>(one.pid),
              killed ? "signal" : "status", killed ? WTERMSIG(status) : WEXITSTATUS(status),
              one.line);
}

// --- Command lines ---

struct command_words {
    char text[COMMAND_SIZE];
    const char *words[WORDS_MAX];
    size_t count;
};

command_words command;  // of the process that was looked at last

enum class look { read, gone, not_ours };

// A process in a container or a jail has another "/tmp", so it is none of ours.
look _look_at_mounts(pid_t pid)
{
    static struct stat own = {};
    char path[64];
    struct stat there = {};
    if (own.st_ino == 0 && ::stat("/proc/self/ns/mnt", &own) != 0)
        return look::read;  // without such files in "/proc" the kernel knows no containers
    snprintf(path, sizeof path, "/proc/%d/ns/mnt", static_cast<int>(pid));
    if (::stat(path, &there) != 0)
        return look::gone;
    return there.st_ino == own.st_ino ? look::read : look::not_ours;
}

// Reads the command line. A process that is ending has none any more.
look _look_at_words(pid_t pid)
{
    char path[64];
    const look mounts = _look_at_mounts(pid);
    if (mounts != look::read)
        return mounts;
    snprintf(path, sizeof path, "/proc/%d/cmdline", static_cast<int>(pid));
    const unique_fd file(::open(path, O_RDONLY | O_CLOEXEC));
    struct stat owner = {};
    if (!file.valid() || ::fstat(file.get(), &owner) != 0)
        return look::gone;
    if (owner.st_uid != 0 && owner.st_uid != ::geteuid())
        return look::not_ours;
    const ssize_t length = ::read(file.get(), command.text, sizeof command.text - 1);
    if (length <= 0)
        return look::gone;
    command.text[length] = '\0';
    command.count = 0;
    for (ssize_t at = 0; at < length && command.count < WORDS_MAX;) {
        command.words[command.count++] = command.text + at;
        at += static_cast<ssize_t>(strlen(command.text + at)) + 1;
    }
    return look::read;
}

bool _read_words(pid_t pid)
{
    return _look_at_words(pid) == look::read;
}

const char *_base_name(const char *path)
{
    const char *slash = strrchr(path, '/');
    return slash != nullptr ? slash + 1 : path;
}

bool _is_daemon()
{
    return command.count == 1 && strcmp(_base_name(command.words[0]), DAEMON) == 0;
}

void _join(size_t first, char *line, size_t size)
{
    size_t used = 0;
    line[0] = '\0';
    for (size_t i = first; i < command.count; ++i) {
        if (used > 0 && used + 1 < size)
            line[used++] = ' ';
        if (used >= size || shell_word(line + used, size - used, command.words[i]) != 0)
            return;
        used += strlen(line + used);
    }
}

bool _is_watched_script(const char *word)
{
    bool found = false;
    for (const char *script : SCRIPTS)
        found = found || strcmp(word, script) == 0;
    return found;
}

// The command that a shell was given. If the look comes late, the shell has already become the
// program: then the line is made of the program's name and words. For a script its own name is
// told, not the shell that reads it.
void _daemons_command(char *line, size_t size)
{
    const bool by_shell = command.count >= 2 && strcmp(_base_name(command.words[0]), "sh") == 0;
    if (by_shell && command.count >= 3 && strcmp(command.words[1], "-c") == 0) {
        snprintf(line, size, "%s", command.words[2]);
        return;
    }
    const char *&program = command.words[by_shell ? 1 : 0];
    if (!_is_watched_script(program))
        program = _base_name(program);
    _join(by_shell ? 1 : 0, line, size);
}

// The word where the line of another program's command begins; count if the command is not told. A
// script may have a shell before it, and "/etc/rc.common" between the two.
size_t _told_from()
{
    for (size_t i = 0; i < command.count && i < 3; ++i) {
        if (_is_watched_script(command.words[i]))
            return i;
    }
    bool is_client = false;
    for (const char *client : CLIENTS)
        is_client = is_client || strcmp(_base_name(command.words[0]), client) == 0;
    for (size_t i = 1; is_client && i < command.count; ++i) {
        if (starts_with(command.words[i], "wps_"))
            return 0;
    }
    return command.count;
}

// --- What happens to a process ---

// The process has a child or a thread, so it will not go into the background any more: it is the
// daemon itself.
void _settle(pid_t pid)
{
    traced *one = _find_process(pid);
    if (one == nullptr)
        return;
    if (one->is == kind::starting) {
        _tell_start(*one);
        return;
    }
    traced *parent = one->is == kind::child ? _find_process(one->parent) : nullptr;
    if (parent != nullptr && parent->is == kind::starting) {
        _forget(*parent);
        _tell_start(*one);
    }
}

void _has_forked(pid_t parent, pid_t child)
{
    const traced *one = _find_process(parent);
    if (one == nullptr)
        return;
    const bool by_daemon = one->is == kind::daemon || one->is == kind::starting;
    traced *made = _add_process(kind::child, child, parent, one->run);
    if (made != nullptr)
        made->first = by_daemon;
}

void _note_command(traced &one)
{
    if (one.is == kind::child)
        _settle(one.parent);
    one.is = kind::command;
    if (!one.first || one.told)
        return;
    const traced *daemon = _find_process(one.parent);
    if (daemon != nullptr)
        one.run = daemon->run;
    char line[COMMAND_SIZE];
    _daemons_command(line, sizeof line);
    copy_text(one.line, line);
    one.told = true;
    _tell_command(one.run, line);
}

// one: the process, if it is known already: a look at "/proc" may find it before its event comes.
void _has_begun_daemon(pid_t pid, traced *one)
{
    if (one != nullptr && (one->is == kind::daemon || one->is == kind::starting))
        return;
    if (one != nullptr)
        _forget(*one);
    one = _add_process(kind::starting, pid, 0, 0);
    if (one != nullptr)
        one->since_ms = kelm_monotonic_ms();
}

void _has_begun_program(pid_t pid)
{
    traced *one = _find_process(pid);
    const look seen = _look_at_words(pid);
    // It may have been the daemon's first process, which ends at once. Its child will show that.
    if (seen == look::gone && one == nullptr)
        (void)_add_process(kind::vanished, pid, 0, 0);
    if (seen != look::read)
        return;
    if (_is_daemon()) {
        _has_begun_daemon(pid, one);
    } else if (one != nullptr) {
        _note_command(*one);
    } else if (_told_from() < command.count) {
        char line[COMMAND_SIZE];
        _join(_told_from(), line, sizeof line);
        _tell_command(0, line);
    }
}

// A starting process has ended. If it has a child, the child is the daemon. Else it was the daemon
// itself, and ran for a short time only.
void _end_of_starting(traced &one, int status)
{
    for (traced &child : table) {
        if (child.is == kind::child && child.parent == one.pid) {
            _tell_start(child);
            return;
        }
    }
    const bool has_ghost = one.ghost != 0;
    one.pid = has_ghost ? one.ghost : one.pid;
    _tell_start(one);
    _tell_end(one.run, one.pid, has_ghost ? one.ghost_status : status);
}

void _end_of_vanished(const traced &one)
{
    for (traced &child : table) {
        if (child.is != kind::child || child.parent != one.pid)
            continue;
        if (_read_words(child.pid) && _is_daemon())
            _tell_start(child);
        else
            _forget(child);
    }
}

void _has_ended(pid_t pid, int status)
{
    traced *one = _find_process(pid);
    if (one == nullptr)
        return;
    traced *parent = one->is == kind::child ? _find_process(one->parent) : nullptr;
    if (parent != nullptr && parent->is == kind::starting) {
        parent->ghost = pid;
        parent->ghost_status = status;
    } else if (one->is == kind::vanished) {
        _end_of_vanished(*one);
    } else if (one->is == kind::starting) {
        _end_of_starting(*one, status);
    } else if (one->is == kind::daemon) {
        _tell_end(one->run, pid, status);
    } else if (one->is == kind::command && one->told) {
        _tell_command_end(*one, status);
    }
    _forget(*one);
}

// --- By looking ---

struct folder_closer {
    void operator()(DIR *folder) const { (void)::closedir(folder); }
};
using unique_folder = std::unique_ptr<DIR, folder_closer>;

// The parent's number; -1 when the process is gone.
pid_t _parent_of(pid_t pid)
{
    char path[64];
    char line[512];
    snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    const unique_fd file(::open(path, O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.valid() ? ::read(file.get(), line, sizeof line - 1) : -1;
    if (length <= 0)
        return -1;
    line[length] = '\0';
    // The name of the program may hold anything, brackets too: look for the last one.
    const char *end = strrchr(line, ')');
    return end != nullptr && strlen(end) > 4 ? static_cast<pid_t>(atol(end + 4)) : -1;
}

// A daemon counts when it was seen in two looks: the process that goes into the background is gone
// by the second.
void _see_daemon(pid_t pid, pid_t parent)
{
    traced *one = _find_process(pid);
    const traced *other = _find_process(parent);
    if (one == nullptr && other != nullptr && other->is == kind::daemon)
        return;  // a child that runs no program of its own yet
    if (one == nullptr)
        one = _add_process(kind::starting, pid, parent, 0);
    else if (one->is == kind::starting)
        _tell_start(*one);
    if (one != nullptr)
        one->seen = true;
}

void _see_child(pid_t pid, const traced &daemon)
{
    traced *one = _find_process(pid);
    if (one == nullptr)
        one = _add_process(kind::child, pid, daemon.pid, daemon.run);
    if (one == nullptr)
        return;
    one->first = one->seen = true;
    _note_command(*one);
}

void _see(pid_t pid)
{
    const pid_t parent = _parent_of(pid);
    const traced *daemon = _find_process(parent);
    const bool is_child = daemon != nullptr && daemon->is == kind::daemon;
    traced *known = _find_process(pid);
    if (known != nullptr && known->told) {
        known->seen = true;
        return;
    }
    if (parent < 0 || !_read_words(pid))
        return;
    if (_is_daemon())
        _see_daemon(pid, parent);
    else if (is_child)
        _see_child(pid, *daemon);
}

void _look_at_proc()
{
    const unique_folder all(::opendir("/proc"));
    if (!all)
        return;
    for (traced &one : table)
        one.seen = false;
    while (const dirent *entry = ::readdir(all.get())) {
        const long pid = strtol(entry->d_name, nullptr, 10);
        if (pid > 0)
            _see(static_cast<pid_t>(pid));
    }
    for (traced &one : table) {
        if (one.is == kind::free_place || one.seen)
            continue;
        if (one.is == kind::daemon) {
            watch_say("exit", "", "%d daemon %d gone", one.run, static_cast<int>(one.pid));
            watch_attempt_ended();
        }
        _forget(one);
    }
}

// Whether the kernel lists the children of a thread. Many that are built for routers do not.
bool _lists_children()
{
    static const bool has_list = [] {
        char path[64];
        const int own = static_cast<int>(::getpid());
        snprintf(path, sizeof path, "/proc/self/task/%d/children", own);
        return ::access(path, R_OK) == 0;
    }();
    return has_list;
}

void _see_children(int folder, const char *thread, const traced &daemon)
{
    char path[64];
    char list[512];  // room for the numbers of some fifty processes
    snprintf(path, sizeof path, "%.32s/children", thread);
    const unique_fd file(::openat(folder, path, O_RDONLY | O_CLOEXEC));
    const ssize_t length = file.valid() ? ::read(file.get(), list, sizeof list - 1) : -1;
    list[length > 0 ? length : 0] = '\0';
    char *end = list;
    for (char *at = list;; at = end) {
        const auto pid = static_cast<pid_t>(strtol(at, &end, 10));
        if (end == at || *end != ' ')
            return;  // the end of the list, or a number that was cut
        const traced *known = _find_process(pid);
        const bool is_told = known != nullptr && known->told;
        if (!is_told && _read_words(pid) && !_is_daemon())
            _see_child(pid, daemon);
    }
}

// False when no daemon is there, or one is gone.
bool _look_at_children()
{
    bool found = false;
    for (const traced &one : table) {
        if (one.is != kind::daemon)
            continue;
        char path[64];
        snprintf(path, sizeof path, "/proc/%d/task", static_cast<int>(one.pid));
        const unique_folder threads(::opendir(path));
        if (!threads)
            return false;
        found = true;
        while (const dirent *entry = ::readdir(threads.get())) {
            if (entry->d_name[0] != '.')
                _see_children(::dirfd(threads.get()), entry->d_name, one);
        }
    }
    return found;
}

// Returns when to look again.
int64_t _look_for_processes(int64_t now_ms)
{
    static int64_t looked_ms = -IDLE_LOOK_MS;
    static int64_t children_ms = 0;
    const bool is_close = watch_attempt_runs();
    const bool by_list = is_close && _lists_children();
    const int64_t pause_ms = is_close && !by_list ? ATTEMPT_LOOK_MS : IDLE_LOOK_MS;
    bool is_due = now_ms >= looked_ms + pause_ms;
    if (by_list && !is_due && now_ms >= children_ms + CHILDREN_LOOK_MS) {
        is_due = !_look_at_children() && now_ms >= looked_ms + ATTEMPT_LOOK_MS;
        children_ms = now_ms;
    }
    if (is_due) {
        _look_at_proc();
        looked_ms = children_ms = now_ms;
    }
    const int64_t next_ms = looked_ms + pause_ms;
    return by_list && children_ms + CHILDREN_LOOK_MS < next_ms ? children_ms + CHILDREN_LOOK_MS
                                                               : next_ms;
}

// Looks for daemons that ran before the start of this program, or whose events were lost.
void _look_for_daemons()
{
    const unique_folder all(::opendir("/proc"));
    while (const dirent *entry = all ? ::readdir(all.get()) : nullptr) {
        const auto pid = static_cast<pid_t>(strtol(entry->d_name, nullptr, 10));
        if (pid <= 0 || _find_process(pid) != nullptr || !_read_words(pid) || !_is_daemon() ||
            _find_process(_parent_of(pid)) != nullptr)
            continue;
        _has_begun_daemon(pid, nullptr);
    }
    for (traced &one : table) {
        if (one.is == kind::free_place || _parent_of(one.pid) >= 0)
            continue;
        if (one.is == kind::daemon)
            watch_say("exit", "", "%d daemon %d gone", one.run, static_cast<int>(one.pid));
        _forget(one);
    }
}

// --- By the kernel's connector ---

// Numbers of the kernel's interface. They are not in the same header for all kernels.
constexpr uint32_t EVENT_ACKNOWLEDGED = 0;
constexpr uint32_t EVENT_FORK = 1;
constexpr uint32_t EVENT_EXEC = 2;
constexpr uint32_t EVENT_EXIT = 0x80000000;

bool _send_listen(int fd)
{
    alignas(nlmsghdr) char bytes[NLMSG_SPACE(sizeof(cn_msg) + sizeof(proc_cn_mcast_op))] = {};
    nlmsghdr head = {};
    head.nlmsg_len = sizeof bytes;
    head.nlmsg_type = NLMSG_DONE;
    cn_msg message = {};
    message.id.idx = CN_IDX_PROC;
    message.id.val = CN_VAL_PROC;
    message.len = sizeof(proc_cn_mcast_op);
    const proc_cn_mcast_op operation = PROC_CN_MCAST_LISTEN;
    memcpy(bytes, &head, sizeof head);
    memcpy(bytes + NLMSG_HDRLEN, &message, sizeof message);
    memcpy(bytes + NLMSG_HDRLEN + sizeof message, &operation, sizeof operation);
    return ::send(fd, bytes, sizeof bytes, MSG_DONTWAIT) == static_cast<ssize_t>(sizeof bytes);
}

// Takes the next event. False when there is none. A message that is not from the kernel is no
// event.
bool _next_event(int fd, proc_event *event)
{
    alignas(nlmsghdr) char bytes[1024];
    for (;;) {
        sockaddr_nl sender = {};
        socklen_t size = sizeof sender;
        const ssize_t length = ::recvfrom(fd, bytes, sizeof bytes, MSG_DONTWAIT,
                                          reinterpret_cast<sockaddr *>(&sender), &size);
        if (length < 0) {
            lost_some = lost_some || errno == ENOBUFS;
            if (errno == ENOBUFS || errno == EINTR)
                continue;
            return false;
        }
        const size_t at = NLMSG_HDRLEN + sizeof(cn_msg);
        cn_msg message = {};
        if (sender.nl_pid != 0 || static_cast<size_t>(length) < at + sizeof event->what)
            continue;
        memcpy(&message, bytes + NLMSG_HDRLEN, sizeof message);
        if (message.id.idx != CN_IDX_PROC || message.id.val != CN_VAL_PROC)
            continue;
        memset(event, 0, sizeof *event);
        const size_t there = static_cast<size_t>(length) - at;
        memcpy(event, bytes + at, there < sizeof *event ? there : sizeof *event);
        return true;
    }
}

// The kernel answers at once, if at all. In some containers it never does.
bool _is_acknowledged(int fd)
{
    proc_event event = {};
    for (int tries = 0; tries < EVENTS_MAX && _next_event(fd, &event); ++tries) {
        if (static_cast<uint32_t>(event.what) == EVENT_ACKNOWLEDGED)
            return event.event_data.ack.err == 0;
    }
    return false;
}

unique_fd _open_connector()
{
    unique_fd fd(
        ::socket(AF_NETLINK, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_CONNECTOR));
    sockaddr_nl own = {};
    own.nl_family = AF_NETLINK;
    own.nl_groups = CN_IDX_PROC;
    const int room = CONNECTOR_ROOM;
    if (fd.valid())
        (void)::setsockopt(fd.get(), SOL_SOCKET, SO_RCVBUFFORCE, &room, sizeof room);
    if (!fd.valid() ||
        ::bind(fd.get(), reinterpret_cast<const sockaddr *>(&own), sizeof own) != 0 ||
        !_send_listen(fd.get()) || !_is_acknowledged(fd.get()))
        return unique_fd();
    return fd;
}

void _take_event(const proc_event &event)
{
    const auto &data = event.event_data;
    switch (static_cast<uint32_t>(event.what)) {
    case EVENT_FORK:
        if (data.fork.child_pid == data.fork.child_tgid)
            _has_forked(data.fork.parent_tgid, data.fork.child_pid);
        else
            _settle(data.fork.child_tgid);
        break;
    case EVENT_EXEC:
        _has_begun_program(data.exec.process_tgid);
        break;
    case EVENT_EXIT:
        if (data.exit.process_pid == data.exit.process_tgid)
            _has_ended(data.exit.process_pid, static_cast<int>(data.exit.exit_code));
        break;
    default:
        break;
    }
}

// --- What the loop calls ---

void _open_processes(const watch_options &)
{
    unique_fd told = _open_connector();
    connector.reset(told.release());
}

size_t _process_descriptors(pollfd *set)
{
    set[0] = {connector.get(), POLLIN, 0};
    return connector.valid() ? 1 : 0;
}

void _take_process_events(const pollfd *set, size_t count)
{
    if (count == 0 || set[0].revents == 0)
        return;
    proc_event event = {};
    for (int taken = 0; taken < EVENTS_MAX && _next_event(connector.get(), &event); ++taken) {
        _take_event(event);
        if (taken % EVENTS_BETWEEN_DRAINS == 0)
            watch_drain_wifi();
    }
}

int64_t _look_at_processes(int64_t now_ms)
{
    if (connector.valid()) {
        static bool has_looked = false;
        if (!has_looked || lost_some)
            _look_for_daemons();
        has_looked = true;
        if (lost_some && now_ms - loss_told_ms >= LOSS_TOLD_MS) {
            watch_say("watch", "", "processes: events lost, more came than could be taken");
            loss_told_ms = now_ms;
        }
        lost_some = false;
        for (traced &one : table) {
            if (one.is == kind::starting && now_ms - one.since_ms >= SETTLED_MS)
                _tell_start(one);
        }
        return now_ms + IDLE_LOOK_MS;
    }
    return _look_for_processes(now_ms);
}

void _close_processes()
{
    connector.reset();
}

}  // namespace

const watch_source WATCH_PROCESSES = {_open_processes, _process_descriptors, _take_process_events,
                                      _look_at_processes, _close_processes};

const char *watch_process_way()
{
    return connector.valid() ? "the kernel tells" : "by looking";
}

}  // namespace kelm
