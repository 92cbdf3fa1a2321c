/* SPDX-License-Identifier: ISC */
/* What services print goes to the system log, line by line. */
#ifndef TESTWORLD_PROCD_OUTPUT_H
#define TESTWORLD_PROCD_OUTPUT_H

#include <poll.h>
#include <stdbool.h>
#include <sys/types.h>

/* Reads until everybody has closed the other end. is_error: level err in place of info. */
void output_add(int fd, const char *program, pid_t pid, bool is_error);

/* Fills waits with at most max entries; returns how many. */
int output_waits(struct pollfd *waits, int max);

/* Reads from a descriptor that poll has named. */
void output_read(int fd);

/* A line of procd's own. */
void output_log(const char *format, ...) __attribute__((format(printf, 1, 2)));

#endif
