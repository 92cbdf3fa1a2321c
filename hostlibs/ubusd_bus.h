/* SPDX-License-Identifier: ISC */
/* What the broker does with messages: objects, patterns, events, calls. */
#ifndef HOSTLIBS_UBUSD_BUS_H
#define HOSTLIBS_UBUSD_BUS_H

#include "ubusd_client.h"

void bus_handle(struct client *c, const struct ubus_wire_header *header,
                const struct blob_attr *body);

/* Objects and patterns vanish with their client. */
void bus_client_gone(struct client *c);

/* A random id of 1024 or more that taken() does not know. */
uint32_t bus_new_id(bool (*taken)(uint32_t id));

#endif
