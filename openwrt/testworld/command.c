/* SPDX-License-Identifier: ISC */
#include "command.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

enum { OUTPUT, ERRORS, STREAMS };

#define SIGNAL_STATUS 128

static long now_ms(void)
{
    struct timespec now;

    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * 1000 + now.tv_nsec / 1000000;
}

/* A file of memory: a program that reads nothing then blocks nobody. */
static int input_file(const char *text)
{
    int fd = memfd_create("input", MFD_CLOEXEC);
    size_t len = text ? strlen(text) : 0;

    if (fd < 0 || (len > 0 && write(fd, text, len) != (ssize_t)len))
        return -1;
    (void)lseek(fd, 0, SEEK_SET);
    return fd;
}

static void become(const struct command *command, int input, int pipes[STREAMS][2])
{
    dup2(input, STDIN_FILENO);
    dup2(pipes[OUTPUT][1], STDOUT_FILENO);
    if (command->drop_errors)
        dup2(pipes[ERRORS][1], STDERR_FILENO);
    execv(command->arguments[0], (char *const *)command->arguments);
    _exit(127);
}

/* Adds what can be read; false at the end of the stream. */
static bool take_more(int fd, char **text, size_t *len)
{
    char part[4096];
    ssize_t got = read(fd, part, sizeof(part));
    char *grown;

    if (got < 0)
        return errno == EINTR;
    if (got == 0)
        return false;
    if (!text)
        return true;
    grown = realloc(*text, *len + (size_t)got + 1);
    if (!grown)
        return false;
    memcpy(grown + *len, part, (size_t)got);
    *len += (size_t)got;
    grown[*len] = '\0';
    *text = grown;
    return true;
}

/* False at the limit. */
static bool take_all(int pipes[STREAMS][2], int limit_ms, char **output)
{
    struct pollfd waits[STREAMS] = {{pipes[OUTPUT][0], POLLIN, 0}, {pipes[ERRORS][0], POLLIN, 0}};
    long end = now_ms() + limit_ms;
    size_t len = 0;

    while (waits[OUTPUT].fd >= 0 || waits[ERRORS].fd >= 0) {
        long left = end - now_ms();

        if (left <= 0 || (poll(waits, STREAMS, (int)left) < 0 && errno != EINTR))
            return false;
        for (int i = 0; i < STREAMS; i++) {
            if (waits[i].revents && !take_more(waits[i].fd, i == OUTPUT ? output : NULL, &len))
                waits[i].fd = -1;
        }
    }
    return true;
}

static int status_of(pid_t child)
{
    int status;

    if (waitpid(child, &status, 0) != child)
        return COMMAND_NOT_RUN;
    return WIFEXITED(status) ? WEXITSTATUS(status) : SIGNAL_STATUS + WTERMSIG(status);
}

int command_run(const struct command *command, char **output)
{
    int pipes[STREAMS][2] = {{-1, -1}, {-1, -1}};
    int input = input_file(command->input);
    pid_t child;
    bool good;

    *output = NULL;
    if (input < 0 || pipe2(pipes[OUTPUT], O_CLOEXEC) < 0 ||
        (command->drop_errors && pipe2(pipes[ERRORS], O_CLOEXEC) < 0))
        return COMMAND_NOT_RUN;
    child = fork();
    if (child < 0)
        return COMMAND_NOT_RUN;
    if (child == 0)
        become(command, input, pipes);
    close(input);
    close(pipes[OUTPUT][1]);
    if (command->drop_errors)
        close(pipes[ERRORS][1]);
    good = take_all(pipes, command->limit_ms, output);
    close(pipes[OUTPUT][0]);
    if (command->drop_errors)
        close(pipes[ERRORS][0]);
    if (good)
        return status_of(child);
    kill(child, SIGKILL);
    (void)status_of(child);
    return COMMAND_TIMED_OUT;
}
