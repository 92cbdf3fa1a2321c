/* SPDX-License-Identifier: ISC */
/* The event broker: opens the socket, accepts clients, removes the socket at the end. */
#include <errno.h>
#include <libubox/uloop.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "ubus_wire.h"
#include "ubusd_client.h"

#define DEFAULT_DIRECTORY "/var/run/ubus"
#define BACKLOG 128
#define ACCEPT_PAUSE_MS 100

static struct uloop_fd listener;

static void on_pause_over(struct uloop_timeout *t)
{
    (void)t;
    uloop_fd_add(&listener, ULOOP_READ);
}

static struct uloop_timeout pause_timer = {.cb = on_pause_over};

/* There is no free descriptor, so the waiting connection would wake the loop again and again. */
static void pause_accepting(void)
{
    uloop_fd_delete(&listener);
    uloop_timeout_set(&pause_timer, ACCEPT_PAUSE_MS);
}

static void on_connection(struct uloop_fd *u, unsigned int events)
{
    (void)events;
    for (;;) {
        int fd = accept4(u->fd, NULL, NULL, SOCK_NONBLOCK | SOCK_CLOEXEC);

        if (fd >= 0) {
            client_open(fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN)
            pause_accepting();
        return;
    }
}

/* Takes the path over without asking. A broker that still runs there is not heard any more. */
static bool bind_socket(int fd, const char *path)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX};

    if (strlen(path) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return false;
    }
    memcpy(address.sun_path, path, strlen(path));
    (void)unlink(path); /* normally there is nothing */
    if (bind(fd, (struct sockaddr *)&address, sizeof(address)) < 0)
        return false;
    return chmod(path, 0666) == 0 && listen(fd, BACKLOG) == 0;
}

static bool start_listening(const char *path)
{
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);

    if (fd < 0)
        return false;
    if (!bind_socket(fd, path)) {
        int saved = errno;

        close(fd);
        errno = saved;
        return false;
    }
    listener.fd = fd;
    listener.cb = on_connection;
    return uloop_fd_add(&listener, ULOOP_READ) == 0;
}

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [<options>]\n"
            "Options:\n"
            " -s <socket>  listen here instead of at " UBUS_UNIX_SOCKET
            "\n"
            " -A <dir>     accepted and not looked at: every client may do everything\n",
            program);
    return 1;
}

int main(int argc, char **argv)
{
    const char *path = UBUS_UNIX_SOCKET;
    int option;

    while ((option = getopt(argc, argv, "s:A:")) != -1) {
        if (option == 's')
            path = optarg;
        else if (option != 'A')
            return usage(argv[0]);
    }
    signal(SIGHUP, SIG_IGN);
    uloop_init();
    if (strcmp(path, UBUS_UNIX_SOCKET) == 0)
        (void)mkdir(DEFAULT_DIRECTORY, 0755); /* if it cannot be made, bind says so */
    if (!start_listening(path)) {
        perror("usock");
        return -1;
    }
    uloop_run();
    unlink(path);
    return 0;
}
