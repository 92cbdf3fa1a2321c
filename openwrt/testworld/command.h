/* SPDX-License-Identifier: ISC */
/* Runs a program with text on its standard input and takes what it prints. */
#ifndef TESTWORLD_COMMAND_H
#define TESTWORLD_COMMAND_H

#include <stdbool.h>

#define COMMAND_TIMED_OUT (-1)
#define COMMAND_NOT_RUN (-2)

struct command {
    const char *const *arguments; /* the program's path first, NULL last */
    const char *input;            /* NULL: nothing */
    bool drop_errors;             /* what it prints on stderr is read and dropped */
    int limit_ms;
};

/*
 * Waits until nobody holds the program's output any more, children that it left behind neither, and
 * with drop_errors its stderr. Returns the exit status, 128 and more for a signal, or one of the
 * above: the program is killed at the limit. *output is the caller's to free.
 */
int command_run(const struct command *command, char **output);

#endif
