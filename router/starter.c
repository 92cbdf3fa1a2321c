/* SPDX-License-Identifier: ISC */
/* Starts the daemon in the guest and reports how the detached process ended. */

#include <errno.h>
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

static const char *run_number;

static void report(const char *what)
{
    char line[256];
    struct timespec now;

    clock_gettime(CLOCK_BOOTTIME, &now);
    int length = snprintf(line, sizeof(line), "%ld.%02ld\texit\t%s %s\n", (long)now.tv_sec,
                          now.tv_nsec / 10000000, run_number, what);
    int events = open("/run/events", O_WRONLY | O_CLOEXEC);
    if (events < 0)
        return;
    if (write(events, line, (size_t)length) != length)
        perror("starter: /run/events");
    close(events);
}

static void report_end(const char *who, const siginfo_t *info)
{
    char text[160];

    if (info->si_code == CLD_EXITED)
        snprintf(text, sizeof(text), "%s %d status %d", who, (int)info->si_pid, info->si_status);
    else
        snprintf(text, sizeof(text), "%s %d signal %d", who, (int)info->si_pid, info->si_status);
    report(text);
}

/* A dead child keeps its name until it is waited for. Programs that the init scripts left behind
 * are handed to this process too, so the name tells the daemon from them. */
static int is_daemon(pid_t pid, const char *program)
{
    char path[64];
    char name[64] = "";

    snprintf(path, sizeof(path), "/proc/%d/comm", (int)pid);
    FILE *comm = fopen(path, "re");
    if (!comm)
        return 0;
    if (!fgets(name, sizeof(name), comm))
        name[0] = '\0';
    fclose(comm);
    name[strcspn(name, "\n")] = '\0';
    const char *base = strrchr(program, '/');
    return strcmp(name, base ? base + 1 : program) == 0;
}

static int wait_for_daemon(pid_t parent, const char *program)
{
    siginfo_t info;

    for (;;) {
        memset(&info, 0, sizeof(info));
        if (waitid(P_ALL, 0, &info, WEXITED | WNOWAIT) != 0) {
            if (errno == EINTR)
                continue;
            report("none left");
            return 1;
        }
        int daemon = info.si_pid != parent && is_daemon(info.si_pid, program);
        if (info.si_pid == parent)
            report_end("parent", &info);
        if (daemon)
            report_end("daemon", &info);
        waitpid(info.si_pid, NULL, 0);
        if (daemon)
            return 0;
    }
}

int main(int argc, char **argv)
{
    if (argc < 3) {
        fprintf(stderr, "Usage: starter RUN PROGRAM [ARGUMENT...]\n");
        return 2;
    }
    run_number = argv[1];
    if (prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) {
        perror("starter: subreaper");
        return 1;
    }
    pid_t child = fork();
    if (child < 0) {
        perror("starter: fork");
        return 1;
    }
    if (child == 0) {
        execv(argv[2], argv + 2);
        perror(argv[2]);
        _exit(127);
    }
    return wait_for_daemon(child, argv[2]);
}
