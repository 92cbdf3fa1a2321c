/* SPDX-License-Identifier: ISC */
#include "procd_output.h"

#include <errno.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#define LINE_MAX_BYTES 512
#define DAEMON_ERR 27
#define DAEMON_INFO 30

struct output {
    int fd;
    char ident[64];
    int priority;
    char line[LINE_MAX_BYTES];
    size_t len;
    struct output *next;
};

static struct output *outputs;

static void log_line(int priority, const char *ident, const char *text)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = "/dev/log"};
    int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    char message[LINE_MAX_BYTES + 128];
    int len = snprintf(message, sizeof(message), "<%d>%s: %s", priority, ident, text);

    (void)sendto(fd, message, (size_t)len, MSG_NOSIGNAL, (struct sockaddr *)&address,
                 sizeof(address));
    close(fd);
}

void output_log(const char *format, ...)
{
    char text[LINE_MAX_BYTES];
    va_list arguments;

    va_start(arguments, format);
    vsnprintf(text, sizeof(text), format, arguments);
    va_end(arguments);
    log_line(DAEMON_INFO, "procd", text);
}

void output_add(int fd, const char *program, pid_t pid, bool is_error)
{
    struct output *output = calloc(1, sizeof(*output));
    const char *slash = strrchr(program, '/');

    if (!output) {
        close(fd);
        return;
    }
    output->fd = fd;
    output->priority = is_error ? DAEMON_ERR : DAEMON_INFO;
    snprintf(output->ident, sizeof(output->ident), "%s[%d]", slash ? slash + 1 : program, (int)pid);
    output->next = outputs;
    outputs = output;
}

int output_waits(struct pollfd *waits, int max)
{
    int count = 0;

    for (struct output *output = outputs; output && count < max; output = output->next)
        waits[count++] = (struct pollfd){output->fd, POLLIN, 0};
    return count;
}

static void end_line(struct output *output)
{
    output->line[output->len] = '\0';
    if (output->len > 0)
        log_line(output->priority, output->ident, output->line);
    output->len = 0;
}

static void take_bytes(struct output *output, const char *bytes, size_t count)
{
    for (size_t i = 0; i < count; i++) {
        if (bytes[i] == '\n' || output->len == LINE_MAX_BYTES - 1)
            end_line(output);
        if (bytes[i] != '\n')
            output->line[output->len++] = bytes[i];
    }
}

void output_read(int fd)
{
    struct output **link = &outputs;
    char bytes[1024];
    ssize_t count;

    while (*link && (*link)->fd != fd)
        link = &(*link)->next;
    if (!*link)
        return;
    count = read(fd, bytes, sizeof(bytes));
    if (count > 0) {
        take_bytes(*link, bytes, (size_t)count);
    } else if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
        struct output *ended = *link;

        end_line(ended);
        *link = ended->next;
        close(ended->fd);
        free(ended);
    }
}
