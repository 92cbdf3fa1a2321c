// SPDX-License-Identifier: ISC
// Preloaded into the daemon in attempt tests: counts its allocations and refuses those that the
// test names.
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#define DEPTH 24
#define CHAIN_SIZE 1024

// What the test and the daemon share; the test writes all of it before it arms.
struct control {
    int32_t armed;       // nothing is counted or refused while this is 0
    int32_t thread;      // whose allocations may be refused: 0 the main thread's, 1 the others'
    int32_t onwards;     // 1: from that one on all are refused, in every thread
    int32_t refused;     // how many were
    int64_t refuse_at;   // the number of the one to refuse, from 1; 0: none
    int64_t counted[2];  // main thread, others
    char refused_in[CHAIN_SIZE];  // the calls that led to the first refusal, innermost first
    char crashed_in[CHAIN_SIZE];  // the same for the death of the process
};

static struct control *control;
static __thread int role = 1;  // index of counted; the constructor claims 0 for its thread
static __thread int inside;  // what the notes below and the C library allocate in a call of its own

// musl has none: a note is then the innermost call alone.
extern int backtrace(void **calls, int size) __attribute__((weak));

// "function+offset" or "file+offset" for each call.
static void note_calls(char *chain, void *innermost)
{
    void *calls[DEPTH] = {innermost};
    const int count = backtrace ? backtrace(calls, DEPTH) : innermost != 0;
    size_t used = 0;
    for (int i = 0; i < count && used < CHAIN_SIZE; ++i) {
        Dl_info place;
        if (!dladdr(calls[i], &place) || !place.dli_fname)
            continue;
        const char *file = strrchr(place.dli_fname, '/');
        file = file ? file + 1 : place.dli_fname;
        if (strcmp(file, "fail_alloc.so") == 0)
            continue;
        const char *base = place.dli_sname ? (char *)place.dli_saddr : (char *)place.dli_fbase;
        used += (size_t)snprintf(chain + used, CHAIN_SIZE - used, "%s%s%s+0x%zx ", file,
                                 place.dli_sname ? ":" : "", place.dli_sname ? place.dli_sname : "",
                                 (size_t)((char *)calls[i] - base));
    }
}

static void note_crash(int number)
{
    inside = 1;
    note_calls(control->crashed_in, 0);
    raise(number);
}

static int is_refused(void *caller)
{
    if (!control || inside || !control->armed)
        return 0;
    const int64_t number = __atomic_add_fetch(&control->counted[role], 1, __ATOMIC_SEQ_CST);
    if (!control->refuse_at)
        return 0;
    const int later = control->onwards && control->refused;
    if (!later && (role != control->thread || number != control->refuse_at))
        return 0;
    if (__atomic_add_fetch(&control->refused, 1, __ATOMIC_SEQ_CST) == 1) {
        inside = 1;
        note_calls(control->refused_in, caller);
        inside = 0;
    }
    errno = ENOMEM;
    return 1;
}

// Acts in the daemon alone: the programs that it starts are spared, and do not even load this.
__attribute__((constructor)) static void begin(void)
{
    if (strcmp(program_invocation_short_name, "kelm") != 0)
        return;
    unsetenv("LD_PRELOAD");
    const int fd = open("/mnt/allocations", O_RDWR | O_CLOEXEC);
    if (fd < 0)
        return;
    void *page = mmap(0, sizeof *control, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    if (page == MAP_FAILED)
        return;
    if (backtrace) {
        void *first[1];
        (void)backtrace(first, 1);  // loads what it needs
    }
    struct sigaction dying = {.sa_handler = note_crash, .sa_flags = (int)SA_RESETHAND};
    sigaction(SIGSEGV, &dying, 0);
    sigaction(SIGBUS, &dying, 0);
    sigaction(SIGABRT, &dying, 0);
    role = 0;
    control = page;
}

// A thread that holds back every signal would die of a fault without a note.
int pthread_sigmask(int how, const sigset_t *set, sigset_t *old)
{
    static int (*next)(int, const sigset_t *, sigset_t *);
    if (!next)
        next = (int (*)(int, const sigset_t *, sigset_t *))dlsym(RTLD_NEXT, "pthread_sigmask");
    if (!set || how == SIG_UNBLOCK)
        return next(how, set, old);
    sigset_t less = *set;
    sigdelset(&less, SIGSEGV);
    sigdelset(&less, SIGBUS);
    sigdelset(&less, SIGABRT);
    return next(how, &less, old);
}

// The C library's own. Its calloc() may ask malloc() in turn, which is then not counted again.
#define NEXT(name, ...)                                       \
    ({                                                        \
        static __typeof__(name) *next;                        \
        const int nested = inside;                            \
        inside = 1;                                           \
        if (!next)                                            \
            next = (__typeof__(next))dlsym(RTLD_NEXT, #name); \
        void *const found = next(__VA_ARGS__);                \
        inside = nested;                                      \
        found;                                                \
    })

void *malloc(size_t size)
{
    return is_refused(__builtin_return_address(0)) ? 0 : NEXT(malloc, size);
}

void *calloc(size_t count, size_t size)
{
    return is_refused(__builtin_return_address(0)) ? 0 : NEXT(calloc, count, size);
}

void *realloc(void *memory, size_t size)
{
    return is_refused(__builtin_return_address(0)) ? 0 : NEXT(realloc, memory, size);
}

void *aligned_alloc(size_t alignment, size_t size)
{
    return is_refused(__builtin_return_address(0)) ? 0 : NEXT(aligned_alloc, alignment, size);
}

void *memalign(size_t alignment, size_t size)
{
    return is_refused(__builtin_return_address(0)) ? 0 : NEXT(memalign, alignment, size);
}

int posix_memalign(void **memory, size_t alignment, size_t size)
{
    void *found = is_refused(__builtin_return_address(0)) ? 0 : NEXT(memalign, alignment, size);
    if (!found)
        return ENOMEM;
    *memory = found;
    return 0;
}
