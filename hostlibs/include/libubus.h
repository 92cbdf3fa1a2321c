/* SPDX-License-Identifier: ISC */
/* Client side of the bus: connect, send events, receive events. */
#ifndef HOSTLIBS_LIBUBUS_H
#define HOSTLIBS_LIBUBUS_H

#include <libubox/blobmsg.h>
#include <libubox/uloop.h>
#include <stdint.h>

#include "ubusmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

struct ubus_context;
struct ubus_event_handler;
struct ubus_object_type;
struct ubus_message;
struct ubus_call;

typedef void (*ubus_event_handler_t)(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                     const char *type, struct blob_attr *msg);

/* Only what an event handler needs; leave name and type zero. */
struct ubus_object {
    struct list_head link; /* private */
    uint32_t id;           /* 0: not registered yet */
    const char *name;
    struct ubus_object_type *type;
};

/* All zero except cb. Stays linked into the context as long as the context lives. */
struct ubus_event_handler {
    struct ubus_object obj;
    ubus_event_handler_t cb;
};

struct ubus_context {
    struct uloop_fd sock;
    uint32_t local_id; /* in wire order */
    void (*connection_lost)(struct ubus_context *ctx);

    /* private */
    struct list_head objects;
    struct list_head pending;
    size_t pending_bytes;
    struct uloop_timeout pending_timer;
    struct ubus_call *call;
    int busy;
    int waiting;
    uint16_t request_seq;
};

/* NULL path: the default socket. Waits for the greeting without a limit. NULL on failure. */
struct ubus_context *ubus_connect(const char *path);
void ubus_free(struct ubus_context *ctx);
/* Registers the objects again, with new ids, but not the patterns. 0, a status, or -1. */
int ubus_reconnect(struct ubus_context *ctx, const char *path);

/* Both return 0 or a status, and wait for the answer without a limit. */
int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                const char *pattern);
int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev);
int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data);

const char *ubus_strerror(int error);

static inline void ubus_handle_event(struct ubus_context *ctx)
{
    ctx->sock.cb(&ctx->sock, ULOOP_READ);
}

static inline void ubus_add_uloop(struct ubus_context *ctx)
{
    uloop_fd_add(&ctx->sock, ULOOP_BLOCKING | ULOOP_READ);
}

#ifdef __cplusplus
}
#endif

#endif
