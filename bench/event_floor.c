// SPDX-License-Identifier: ISC
// The least that reacts to a control-interface event: attach, select, receive, system(3).
//
// usage: event_floor OWN_PATH SERVER_PATH EVENT [COMMAND ...]
// Without an event ('') the commands run at the start, before the request for events.
#define _GNU_SOURCE
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/select.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

static int attach(const char *own_path, const char *server_path)
{
    struct sockaddr_un own = {.sun_family = AF_UNIX};
    struct sockaddr_un server = {.sun_family = AF_UNIX};
    snprintf(own.sun_path, sizeof own.sun_path, "%s", own_path);
    snprintf(server.sun_path, sizeof server.sun_path, "%s", server_path);
    const int s = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    unlink(own_path);
    if (s < 0 || bind(s, (struct sockaddr *)&own, sizeof own) != 0 ||
        connect(s, (struct sockaddr *)&server, sizeof server) != 0 || send(s, "ATTACH", 6, 0) != 6)
        return -1;
    char reply[16];
    return recv(s, reply, sizeof reply, 0) == 3 ? s : -1;
}

static void run(char **commands)
{
    for (; *commands; ++commands) {
        if (system(*commands) == -1)
            exit(1);
    }
}

int main(int argc, char **argv)
{
    if (argc < 4)
        return 2;
    const char *awaited = argv[3];
    if (!*awaited)
        run(argv + 4);
    const int s = attach(argv[1], argv[2]);
    if (s < 0) {
        perror(argv[2]);
        return 1;
    }
    for (;;) {
        fd_set set;
        FD_ZERO(&set);
        FD_SET(s, &set);
        struct timeval second = {1, 0};
        if (select(s + 1, &set, 0, 0, &second) < 1)
            continue;
        char event[2048];
        const ssize_t length = recv(s, event, sizeof event - 1, 0);
        if (length < 0)
            return 1;
        event[length] = '\0';
        if (*awaited && strstr(event, awaited))
            run(argv + 4);
    }
}
