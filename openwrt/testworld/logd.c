/* SPDX-License-Identifier: ISC */
/*
 * The system log: "logd" keeps what comes to /dev/log, in memory; "logread" prints it, all that was
 * sent before it was called. A line: Sun Nov 22 08:53:15 2026 daemon.notice kelm: text
 */
#include <errno.h>
#include <poll.h>
#include <regex.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "words.h"

#define DEVICE "/dev/log"
#define DOOR "/var/run/testworld/log"
#define LINE_MAX_BYTES 1024
#define LINES_MAX 1024
#define STAMP_BYTES 16 /* "Nov 22 08:53:15 " */

static const char *const facilities[] = {
    "kern",   "user",   "mail",     "daemon", "auth",   "syslog",   "lpr",     "news",
    "uucp",   "cron",   "authpriv", "ftp",    "ntp",    "security", "console", "clock",
    "local0", "local1", "local2",   "local3", "local4", "local5",   "local6",  "local7",
};
static const char *const levels[] = {
    "emerg", "alert", "crit", "err", "warn", "notice", "info", "debug",
};

/* The last lines; the oldest goes first. */
static char *lines[LINES_MAX];
static unsigned long line_count;

static int open_socket(const char *path, int type, bool serve)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int fd = socket(AF_UNIX, type | SOCK_CLOEXEC, 0);

    snprintf(address.sun_path, sizeof(address.sun_path), "%s", path);
    if (serve) {
        (void)unlink(path);
        if (bind(fd, (struct sockaddr *)&address, sizeof(address)) == 0 && chmod(path, 0666) == 0)
            return fd;
    } else if (connect(fd, (struct sockaddr *)&address, sizeof(address)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

/* "<29>" in front; user.notice without it. Returns what is behind. */
static const char *take_priority(const char *text, unsigned int *priority)
{
    char *end;
    unsigned long number;

    *priority = 13;
    if (text[0] != '<')
        return text;
    number = strtoul(text + 1, &end, 10);
    if (*end != '>' || number > 191)
        return text;
    *priority = (unsigned int)number;
    return end + 1;
}

static void keep_line(const char *text)
{
    time_t now = time(NULL);
    unsigned int priority;
    struct tm local;
    char stamp[32];
    char **line = &lines[line_count++ % LINES_MAX];

    text = take_priority(text, &priority);
    if (strlen(text) > STAMP_BYTES && text[3] == ' ' && text[6] == ' ' && text[9] == ':')
        text += STAMP_BYTES;
    localtime_r(&now, &local);
    strftime(stamp, sizeof(stamp), "%a %b %e %H:%M:%S %Y", &local);
    free(*line);
    if (asprintf(line, "%s %s.%s %s\n", stamp, facilities[priority >> 3], levels[priority & 7],
                 text) < 0)
        *line = NULL;
}

/* What is waiting, each datagram a line; a line feed inside begins another. */
static void take_messages(int device)
{
    char text[LINE_MAX_BYTES + 1];
    ssize_t len;

    while ((len = recv(device, text, LINE_MAX_BYTES, MSG_DONTWAIT)) >= 0 || errno == EINTR) {
        if (len < 0)
            continue;
        text[len] = '\0';
        while (len > 0 && (text[len - 1] == '\n' || text[len - 1] == '\0'))
            text[--len] = '\0';
        keep_line(text);
    }
}

static void answer_reader(int door, int device)
{
    int reader = accept4(door, NULL, NULL, SOCK_CLOEXEC);
    FILE *out = reader < 0 ? NULL : fdopen(reader, "w");
    unsigned long first = line_count > LINES_MAX ? line_count - LINES_MAX : 0;

    take_messages(device);
    if (!out)
        return;
    for (unsigned long i = first; i < line_count; i++) {
        if (lines[i % LINES_MAX])
            fputs(lines[i % LINES_MAX], out);
    }
    fclose(out);
}

static int serve(void)
{
    int device;
    int door;

    (void)mkdir("/var/run/testworld", 0755);
    device = open_socket(DEVICE, SOCK_DGRAM, true);
    door = open_socket(DOOR, SOCK_STREAM, true);
    if (device < 0 || door < 0 || listen(door, 8) != 0) {
        perror("logd");
        return 1;
    }
    for (;;) {
        struct pollfd waits[] = {{device, POLLIN, 0}, {door, POLLIN, 0}};

        (void)poll(waits, 2, -1);
        if (waits[0].revents)
            take_messages(device);
        if (waits[1].revents)
            answer_reader(door, device);
    }
}

static void print_lines(char *text, const char *pattern, long last)
{
    regex_t wanted;
    bool all = !pattern || regcomp(&wanted, pattern, REG_EXTENDED | REG_NOSUB) != 0;
    char *at = text;
    char *line;
    long count = 0;

    for (char *end = text; (end = strchr(end, '\n')); end++)
        count++;
    while (at && (line = strsep(&at, "\n")) && at) {
        if (count-- > last && last > 0)
            continue;
        if (all || regexec(&wanted, line, 0, NULL, 0) == 0)
            puts(line);
    }
}

static int read_log(int argc, char **argv)
{
    const char *pattern = NULL;
    long last = 0;
    FILE *in;
    char *text;
    int option;
    int door;

    while ((option = getopt(argc, argv, "e:l:")) != -1) {
        if (option == 'e')
            pattern = optarg;
        else if (option == 'l')
            last = strtol(optarg, NULL, 10);
        else
            return 1;
    }
    door = open_socket(DOOR, SOCK_STREAM, false);
    in = door < 0 ? NULL : fdopen(door, "r");
    if (!in) {
        fprintf(stderr, "Failed to find log object: Not found\n");
        return 1;
    }
    text = words_read_file(in, NULL);
    fclose(in);
    if (text)
        print_lines(text, pattern, last);
    free(text);
    return 0;
}

int main(int argc, char **argv)
{
    const char *slash = strrchr(argv[0], '/');

    if (strcmp(slash ? slash + 1 : argv[0], "logread") == 0)
        return read_log(argc, argv);
    return serve();
}
