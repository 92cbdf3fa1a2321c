// SPDX-License-Identifier: ISC
// Preloaded into the daemon in attempt tests: time() runs as many seconds ahead as the test says.
#include <fcntl.h>
#include <stdint.h>
#include <sys/mman.h>
#include <time.h>
#include <unistd.h>

static const volatile int64_t *shift_seconds(void)
{
    static const int64_t none = 0;
    static const volatile int64_t *seconds;
    if (seconds)
        return seconds;
    seconds = &none;
    int fd = open("/mnt/clock", O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return seconds;
    void *page = mmap(0, sizeof none, PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (page != MAP_FAILED)
        seconds = page;
    return seconds;
}

// Mapped before any thread exists; time() itself then only reads.
__attribute__((constructor)) static void map_shift(void)
{
    shift_seconds();
}

time_t time(time_t *out)
{
    struct timespec now = {0, 0};
    clock_gettime(CLOCK_REALTIME, &now);
    time_t shifted = now.tv_sec + *shift_seconds();
    if (out)
        *out = shifted;
    return shifted;
}
