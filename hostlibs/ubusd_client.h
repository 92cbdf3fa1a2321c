/* SPDX-License-Identifier: ISC */
/* One connection of the broker: reading whole messages, writing with a bounded queue. */
#ifndef HOSTLIBS_UBUSD_CLIENT_H
#define HOSTLIBS_UBUSD_CLIENT_H

#include <libubox/blob.h>
#include <libubox/uloop.h>

#include "ubus_wire.h"

#define CLIENT_NAME_SIZE 64

struct client {
    struct list_head link;
    struct uloop_fd sock;
    uint32_t id;
    char user[CLIENT_NAME_SIZE];
    char group[CLIENT_NAME_SIZE];
    unsigned int objects; /* how many it owns */

    /* private: the message being read, and what waits to be written */
    uint8_t prefix[UBUS_WIRE_PREFIX];
    size_t have;
    struct blob_attr *body;
    size_t body_size;
    struct list_head output;
    size_t output_bytes;
};

/*
 * Takes the descriptor over and greets the client. If that fails, it closes the descriptor and
 * returns NULL.
 */
struct client *client_open(int fd);

struct client *client_find(uint32_t id);

/*
 * Never blocks and never frees a client. A message that a slow reader has no room for is dropped.
 */
void client_send(struct client *c, const struct ubus_wire_header *header,
                 const struct blob_attr *body);

#endif
