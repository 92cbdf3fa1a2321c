/* SPDX-License-Identifier: ISC */
/* flock [-s|-x|-u] [-n] DESCRIPTOR|FILE COMMAND ... */
#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/file.h>
#include <unistd.h>

static int lock(int fd, int how)
{
    int code;

    do
        code = flock(fd, how);
    while (code != 0 && errno == EINTR);
    return code == 0 ? 0 : 1;
}

static int usage(const char *program)
{
    fprintf(stderr, "Usage: %s [-sxun] FD|{FILE PROG ARGS}\n", program);
    return 1;
}

int main(int argc, char **argv)
{
    int how = LOCK_EX;
    int option;
    int fd;

    while ((option = getopt(argc, argv, "+sxun")) != -1) {
        if (option == 's')
            how = (how & LOCK_NB) | LOCK_SH;
        else if (option == 'u')
            how = LOCK_UN;
        else if (option == 'n')
            how |= LOCK_NB;
        else if (option != 'x')
            return usage(argv[0]);
    }
    argc -= optind;
    argv += optind;
    if (argc == 0)
        return usage("flock");
    if (argc == 1)
        return lock((int)strtol(argv[0], NULL, 10), how);
    fd = open(argv[0], O_RDWR | O_CREAT, 0666);
    if (fd < 0 || lock(fd, how) != 0)
        return 1;
    execvp(argv[1], argv + 1);
    return 127;
}
