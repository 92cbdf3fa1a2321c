// SPDX-License-Identifier: ISC
// Preloaded into the daemon in tests of faults: calls fail when the test says so, the monotonic
// clock runs as many seconds ahead as it says, and daemons started at once wait for each other.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <spawn.h>
#include <stdint.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

// The test's page; faults.py knows the order.
struct plan {
    int64_t calls;  // made so far
    int64_t good;   // calls that still succeed before the next ones fail
    int64_t bad;    // calls that fail then
};

struct page {
    int64_t monotonic_shift_s;
    struct plan spawn;
    struct plan fork;
    struct plan thread;
    struct plan write;  // to regular files
    struct plan poll;   // for nothing but time
    int64_t gathered;   // daemons that have left their terminal
    int64_t gate;       // how many have to before any of them goes on
};

static struct page *page;

// The daemon's children load this too, and count for nothing.
__attribute__((constructor)) static void map_page(void)
{
    if (strcmp(program_invocation_short_name, "kelm") != 0)
        return;
    int fd = open("/mnt/faults", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void *mapped = mmap(0, sizeof *page, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped != MAP_FAILED)
        page = mapped;
}

static int fails(struct plan *plan)
{
    ++plan->calls;
    if (plan->good > 0) {
        --plan->good;
        return 0;
    }
    if (plan->bad == 0)
        return 0;
    --plan->bad;
    return 1;
}

int posix_spawn(pid_t *child, const char *path, const posix_spawn_file_actions_t *actions,
                const posix_spawnattr_t *attributes, char *const words[], char *const variables[])
{
    static __typeof__(posix_spawn) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "posix_spawn");
    if (page && fails(&page->spawn))
        return EAGAIN;
    return next(child, path, actions, attributes, words, variables);
}

pid_t fork(void)
{
    static __typeof__(fork) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "fork");
    if (page && fails(&page->fork)) {
        errno = EAGAIN;
        return -1;
    }
    return next();
}

// Starts at once are never that to the microsecond: they wait for each other on the way.
pid_t setsid(void)
{
    static __typeof__(setsid) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "setsid");
    const pid_t session = next();
    if (page) {
        __atomic_add_fetch(&page->gathered, 1, __ATOMIC_SEQ_CST);
        while (__atomic_load_n(&page->gathered, __ATOMIC_SEQ_CST) < page->gate)
            sched_yield();
    }
    return session;
}

int pthread_create(pthread_t *thread, const pthread_attr_t *attributes, void *(*body)(void *),
                   void *argument)
{
    static __typeof__(pthread_create) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "pthread_create");
    if (page && fails(&page->thread))
        return EAGAIN;
    return next(thread, attributes, body, argument);
}

static int is_regular(int fd)
{
    struct stat file;
    return fstat(fd, &file) == 0 && S_ISREG(file.st_mode);
}

// As on a disk that becomes full: of several bad calls only the last one fails, the others take
// half of what they were given.
ssize_t write(int fd, const void *data, size_t length)
{
    static __typeof__(write) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "write");
    if (!page || !is_regular(fd) || !fails(&page->write))
        return next(fd, data, length);
    if (page->write.bad > 0)
        return next(fd, data, length / 2);
    errno = ENOSPC;
    return -1;
}

int poll(struct pollfd *files, nfds_t count, int limit_ms)
{
    static __typeof__(poll) *next;
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, "poll");
    if (page && count == 0 && fails(&page->poll)) {
        errno = ENOMEM;
        return -1;
    }
    return next(files, count, limit_ms);
}

int clock_gettime(clockid_t clock, struct timespec *out)
{
    static __typeof__(clock_gettime) *next;
    // Where time is wider than a word it is another function, see cmake/wide_time.cmake.
    const char *name = sizeof(time_t) > sizeof(long) ? "__clock_gettime64" : "clock_gettime";
    if (!next)
        next = (__typeof__(next))dlsym(RTLD_NEXT, name);
    const int result = next(clock, out);
    if (result == 0 && page && clock == CLOCK_MONOTONIC)
        out->tv_sec += (time_t)page->monotonic_shift_s;
    return result;
}
