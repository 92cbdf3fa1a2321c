/* SPDX-License-Identifier: ISC */
/*
 * The event loop. All of its state is global: there is one loop per process. It is not thread-safe.
 */
#include <libubox/uloop.h>

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stddef.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "link.h"

#define MAX_FETCHED 10

struct fetched {
    struct uloop_fd *fd; /* NULL once the descriptor was deleted */
    unsigned int events;
};

bool uloop_cancelled;
bool uloop_handle_sigchld = true;

static int poll_fd = -1;
static int wake_write = -1;
static struct uloop_fd wake_read = {.fd = -1};
static int end_signal;    /* what uloop_run returns */
static bool child_exited; /* noted by the handler, acted on by the loop */
static int run_depth;

static struct fetched fetched[MAX_FETCHED];
static int fetched_next;
static int fetched_count;

static struct list_head timers = LINK_EMPTY(timers);
static struct list_head due_timers = LINK_EMPTY(due_timers);

/* Only what the signal handlers share with the loop is read and written atomically. */
static bool is_cancelled(void)
{
    return __atomic_load_n(&uloop_cancelled, __ATOMIC_RELAXED);
}

static void wake_up(void)
{
    int saved = errno;

    if (write(__atomic_load_n(&wake_write, __ATOMIC_RELAXED), "w", 1) < 0) {
        /* Full: the loop will wake anyway. Closed: there is no loop to wake. */
    }
    errno = saved;
}

static void on_end_signal(int number)
{
    __atomic_store_n(&end_signal, number, __ATOMIC_RELAXED);
    __atomic_store_n(&uloop_cancelled, true, __ATOMIC_RELAXED);
    wake_up();
}

static void on_child_signal(int number)
{
    (void)number;
    __atomic_store_n(&child_exited, true, __ATOMIC_RELAXED);
    wake_up();
}

/*
 * Takes a signal only if nobody else has taken it. So the program's own handler stays, and a signal
 * that the shell has set to be ignored stays ignored. The flags are 0 on purpose: signals must
 * interrupt blocking calls.
 */
static void take_signal(int number, void (*handler)(int))
{
    struct sigaction current;
    struct sigaction ours = {.sa_handler = handler};

    if (sigaction(number, NULL, &current) < 0 || current.sa_handler != SIG_DFL)
        return;
    sigemptyset(&ours.sa_mask);
    sigaction(number, &ours, NULL);
}

static void give_back_signal(int number, void (*handler)(int))
{
    struct sigaction current;
    struct sigaction plain = {.sa_handler = SIG_DFL};

    if (sigaction(number, NULL, &current) < 0 || current.sa_handler != handler)
        return;
    sigemptyset(&plain.sa_mask);
    sigaction(number, &plain, NULL);
}

static void take_signals(void)
{
    take_signal(SIGINT, on_end_signal);
    take_signal(SIGTERM, on_end_signal);
    if (uloop_handle_sigchld)
        take_signal(SIGCHLD, on_child_signal);
    take_signal(SIGPIPE, SIG_IGN);
}

/* SIGPIPE stays ignored: by now other code relies on that. */
static void give_back_signals(void)
{
    give_back_signal(SIGINT, on_end_signal);
    give_back_signal(SIGTERM, on_end_signal);
    if (uloop_handle_sigchld)
        give_back_signal(SIGCHLD, on_child_signal);
}

static void on_wake(struct uloop_fd *u, unsigned int events)
{
    char bytes[64];

    (void)events;
    while (read(u->fd, bytes, sizeof(bytes)) > 0) {
        /* The bytes say nothing beyond "wake up". */
    }
}

static bool open_wake_pipe(void)
{
    int ends[2];

    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) < 0)
        return false;
    memset(&wake_read, 0, sizeof(wake_read));
    wake_read.fd = ends[0];
    wake_read.cb = on_wake;
    __atomic_store_n(&wake_write, ends[1], __ATOMIC_RELAXED);
    return uloop_fd_add(&wake_read, ULOOP_READ) == 0;
}

static void close_descriptors(void)
{
    int write_end = wake_write;

    __atomic_store_n(&wake_write, -1, __ATOMIC_RELAXED);
    uloop_fd_delete(&wake_read);
    if (wake_read.fd >= 0)
        close(wake_read.fd);
    if (write_end >= 0)
        close(write_end);
    if (poll_fd >= 0)
        close(poll_fd);
    wake_read.fd = -1;
    poll_fd = -1;
}

int uloop_init(void)
{
    if (poll_fd >= 0) {
        take_signals();
        return 0;
    }
    poll_fd = epoll_create1(EPOLL_CLOEXEC);
    if (poll_fd < 0)
        return -1;
    if (!open_wake_pipe()) {
        close_descriptors();
        return -1;
    }
    take_signals();
    return 0;
}

static void drop_timers(struct list_head *head)
{
    while (!link_is_empty(head))
        uloop_timeout_cancel(link_entry(head->next, struct uloop_timeout, list));
}

/* Descriptors of the program are left as they are: their owners delete them first. */
void uloop_done(void)
{
    give_back_signals();
    close_descriptors();
    drop_timers(&timers);
    drop_timers(&due_timers);
    fetched_count = 0;
    fetched_next = 0;
}

bool uloop_cancelling(void)
{
    return run_depth > 0 && is_cancelled();
}

static uint32_t epoll_mask(unsigned int flags)
{
    uint32_t mask = EPOLLRDHUP;

    if (flags & ULOOP_READ)
        mask |= EPOLLIN;
    if (flags & ULOOP_WRITE)
        mask |= EPOLLOUT;
    if (flags & ULOOP_EDGE_TRIGGER)
        mask |= EPOLLET;
    return mask;
}

static void set_nonblocking(int fd)
{
    int mode = fcntl(fd, F_GETFL, 0);

    if (mode >= 0)
        (void)fcntl(fd, F_SETFL, mode | O_NONBLOCK); /* a bad descriptor fails in epoll next */
}

int uloop_fd_add(struct uloop_fd *sock, unsigned int flags)
{
    struct epoll_event event = {.events = epoll_mask(flags), .data.ptr = sock};

    if (!(flags & (ULOOP_READ | ULOOP_WRITE)))
        return uloop_fd_delete(sock);
    if (!sock->registered && !(flags & ULOOP_BLOCKING))
        set_nonblocking(sock->fd);
    if (epoll_ctl(poll_fd, sock->registered ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, sock->fd, &event) < 0)
        return -1;
    sock->registered = true;
    sock->eof = false;
    sock->error = false;
    sock->flags = (uint8_t)flags;
    return 0;
}

static void forget_fetched(const struct uloop_fd *sock)
{
    for (int i = fetched_next; i < fetched_count; i++) {
        if (fetched[i].fd == sock)
            fetched[i].fd = NULL;
    }
}

int uloop_fd_delete(struct uloop_fd *sock)
{
    forget_fetched(sock);
    if (!sock->registered)
        return 0;
    sock->registered = false;
    return epoll_ctl(poll_fd, EPOLL_CTL_DEL, sock->fd, NULL);
}

static int64_t microseconds(const struct timeval *time)
{
    return (int64_t)time->tv_sec * 1000000 + time->tv_usec;
}

static void now(struct timeval *time)
{
    struct timespec clock;

    clock_gettime(CLOCK_MONOTONIC, &clock);
    time->tv_sec = clock.tv_sec;
    time->tv_usec = clock.tv_nsec / 1000;
}

/* Rounds towards zero. So a timer may fire up to a millisecond early. */
static int64_t milliseconds_until(const struct uloop_timeout *timeout)
{
    struct timeval clock;

    now(&clock);
    return (microseconds(&timeout->time) - microseconds(&clock)) / 1000;
}

int uloop_timeout_add(struct uloop_timeout *timeout)
{
    struct list_head *pos;

    if (timeout->pending)
        return -1;
    link_each(pos, &timers)
    {
        const struct uloop_timeout *other = link_entry(pos, struct uloop_timeout, list);

        if (microseconds(&other->time) > microseconds(&timeout->time))
            break;
    }
    link_before(pos, &timeout->list);
    timeout->pending = true;
    return 0;
}

int uloop_timeout_set(struct uloop_timeout *timeout, int msecs)
{
    int64_t due;

    if (timeout->pending)
        uloop_timeout_cancel(timeout);
    now(&timeout->time);
    due = microseconds(&timeout->time) + (int64_t)msecs * 1000;
    timeout->time.tv_sec = (time_t)(due / 1000000);
    timeout->time.tv_usec = (suseconds_t)(due % 1000000);
    return uloop_timeout_add(timeout);
}

int uloop_timeout_cancel(struct uloop_timeout *timeout)
{
    if (!timeout->pending)
        return -1;
    link_remove(&timeout->list);
    timeout->pending = false;
    return 0;
}

int64_t uloop_timeout_remaining64(struct uloop_timeout *timeout)
{
    return timeout->pending ? milliseconds_until(timeout) : -1;
}

int uloop_timeout_remaining(struct uloop_timeout *timeout)
{
    return (int)uloop_timeout_remaining64(timeout);
}

/*
 * Puts the due timers into a list of their own first. If a callback sets its timer again with 0,
 * that timer waits for the next round.
 */
static void collect_due_timers(void)
{
    while (!link_is_empty(&timers)) {
        struct uloop_timeout *first = link_entry(timers.next, struct uloop_timeout, list);

        if (milliseconds_until(first) > 0)
            return;
        link_remove(&first->list);
        link_before(&due_timers, &first->list);
    }
}

static void run_due_timers(void)
{
    collect_due_timers();
    while (!link_is_empty(&due_timers)) {
        struct uloop_timeout *first = link_entry(due_timers.next, struct uloop_timeout, list);

        uloop_timeout_cancel(first);
        if (first->cb)
            first->cb(first);
    }
}

/* Collects every child of the process, whoever started it. */
static void reap_children(void)
{
    int saved = errno;

    if (!__atomic_exchange_n(&child_exited, false, __ATOMIC_RELAXED) || !uloop_handle_sigchld)
        return;
    for (;;) {
        pid_t pid = waitpid(-1, NULL, WNOHANG);

        if (pid == 0 || (pid < 0 && errno != EINTR))
            break;
    }
    errno = saved;
}

static int wait_limit(int timeout)
{
    int64_t limit = -1;

    if (!link_is_empty(&timers)) {
        limit = milliseconds_until(link_entry(timers.next, struct uloop_timeout, list));
        limit = limit < 0 ? 0 : limit;
    }
    if (timeout >= 0 && (limit < 0 || timeout < limit))
        limit = timeout;
    return limit > INT32_MAX ? INT32_MAX : (int)limit;
}

static void fetch(int limit)
{
    struct epoll_event events[MAX_FETCHED];
    int count = epoll_wait(poll_fd, events, MAX_FETCHED, limit);

    fetched_next = 0;
    fetched_count = count < 0 ? 0 : count;
    for (int i = 0; i < fetched_count; i++) {
        fetched[i].fd = events[i].data.ptr;
        fetched[i].events = events[i].events;
    }
}

/* True when a callback ran. A hung-up descriptor leaves the loop before its last callback. */
static bool handle(struct uloop_fd *sock, unsigned int events)
{
    unsigned int bits = 0;

    if (events & (EPOLLERR | EPOLLHUP)) {
        sock->error = true;
        if (!(sock->flags & ULOOP_ERROR_CB))
            uloop_fd_delete(sock);
    }
    if (events & EPOLLRDHUP)
        sock->eof = true;
    if (events & (EPOLLIN | EPOLLRDHUP))
        bits |= ULOOP_READ;
    if (events & EPOLLOUT)
        bits |= ULOOP_WRITE;
    if (!sock->cb)
        return false;
    sock->cb(sock, bits);
    return true;
}

/* Runs at most one descriptor callback per round, so that timers and children get their turn. */
static void run_one_descriptor(int limit)
{
    if (fetched_next >= fetched_count)
        fetch(limit);
    while (fetched_next < fetched_count) {
        struct fetched current = fetched[fetched_next++];

        if (current.fd && handle(current.fd, current.events))
            return;
    }
}

static void run_round(int timeout)
{
    run_due_timers();
    reap_children();
    if (!is_cancelled())
        run_one_descriptor(wait_limit(timeout));
}

int uloop_run_timeout(int timeout)
{
    __atomic_store_n(&end_signal, 0, __ATOMIC_RELAXED);
    __atomic_store_n(&uloop_cancelled, false, __ATOMIC_RELAXED);
    run_depth++;
    do {
        run_round(timeout);
    } while (!is_cancelled() && timeout < 0);
    run_depth--;
    return __atomic_load_n(&end_signal, __ATOMIC_RELAXED);
}

int uloop_run(void)
{
    return uloop_run_timeout(-1);
}
