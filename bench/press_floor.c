// SPDX-License-Identifier: ISC
// The least that reacts to a button press on the bus: libubus, uloop, system(3).
//
// usage: press_floor COMMAND ...
#include <stdio.h>
#include <stdlib.h>

#include <libubox/uloop.h>
#include <libubus.h>

static char **commands;  // a null pointer ends them

static void run(struct ubus_context *bus, struct ubus_event_handler *handler, const char *type,
                struct blob_attr *message)
{
    (void)bus;
    (void)handler;
    (void)type;
    (void)message;
    for (char **command = commands; *command; ++command) {
        if (system(*command) == -1)
            exit(1);
    }
}

int main(int argc, char **argv)
{
    static struct ubus_event_handler handler = {.cb = run};
    if (argc < 2)
        return 2;
    commands = argv + 1;
    uloop_init();
    struct ubus_context *bus = ubus_connect(0);
    if (!bus || ubus_register_event_handler(bus, &handler, "gpio") != 0)
        return 1;
    puts("ready");
    fflush(stdout);
    uloop_fd_add(&bus->sock, ULOOP_READ | ULOOP_BLOCKING);
    uloop_run();
    return 0;
}
