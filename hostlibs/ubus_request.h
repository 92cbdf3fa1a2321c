/* SPDX-License-Identifier: ISC */
/* One synchronous request over a client connection, for the library and the command. */
#ifndef HOSTLIBS_UBUS_REQUEST_H
#define HOSTLIBS_UBUS_REQUEST_H

#include <libubus.h>

/* tb holds the attributes of one DATA answer. They are gone when the function returns. */
typedef void (*ubus_answer_t)(void *priv, struct blob_attr **tb);

struct ubus_request {
    int type; /* UBUS_MSG_... */
    uint32_t peer;
    struct blob_attr *body;
    ubus_answer_t on_data; /* may be NULL */
    void *priv;
    int limit_ms; /* negative: wait for ever */
};

/* Returns the status. Event callbacks may run before it returns. */
int ubus_request_send(struct ubus_context *ctx, const struct ubus_request *request);

#endif
