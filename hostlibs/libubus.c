/* SPDX-License-Identifier: ISC */
/*
 * The bus client. Like the library that it stands for, it has one static buffer for its messages.
 * So contexts of different threads would disturb each other: do all bus work in one thread.
 */
#include <libubus.h>

#include <endian.h>
#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <time.h>
#include <unistd.h>

#include "link.h"
#include "ubus_request.h"
#include "ubus_wire.h"

/* Events that arrive during a synchronous wait are kept, up to so many bytes. More are dropped. */
#define PENDING_LIMIT ((size_t)8 * 1024 * 1024)

struct ubus_message {
    struct list_head link;
    struct ubus_wire_header header;
    size_t size;
    struct blob_attr body[]; /* size bytes, zero-padded to a multiple of 4 */
};

/* A request that somebody waits for. Requests nest when a callback sends one. */
struct ubus_call {
    struct ubus_call *outer;
    const struct ubus_request *request;
    uint16_t seq;
    bool done;
    int status;
};

static struct blob_buf scratch;

static const char *const status_texts[] = {
    "Success",
    "Invalid command",
    "Invalid argument",
    "Method not found",
    "Not found",
    "No response",
    "Permission denied",
    "Request timed out",
    "Operation not supported",
    "Unknown error",
    "Connection failed",
    "Out of memory",
    "Parsing message data failed",
    "System error",
};
_Static_assert(sizeof(status_texts) / sizeof(status_texts[0]) == __UBUS_STATUS_LAST,
               "one text per status");

const char *ubus_strerror(int error)
{
    static char unknown[32];

    if (error >= 0 && error < __UBUS_STATUS_LAST)
        return status_texts[error];
    snprintf(unknown, sizeof(unknown), "Unknown error: %d", error);
    return unknown;
}

static int64_t now_ms(void)
{
    struct timespec clock;

    clock_gettime(CLOCK_MONOTONIC, &clock);
    return (int64_t)clock.tv_sec * 1000 + clock.tv_nsec / 1000000;
}

/* Waits without a limit. A signal does not end the wait. */
static void wait_ready(int fd, short events)
{
    struct pollfd pfd = {.fd = fd, .events = events};

    while (poll(&pfd, 1, -1) < 0 && errno == EINTR) {
        /* again */
    }
}

static bool send_message(struct ubus_context *ctx, const struct ubus_wire_header *header,
                         struct blob_attr *body)
{
    uint8_t head[UBUS_WIRE_HEADER];
    struct iovec pieces[2] = {{head, sizeof(head)}, {body, blob_raw_len(body)}};
    struct msghdr msg = {.msg_iov = pieces, .msg_iovlen = 2};

    ubus_wire_put_header(head, header);
    for (;;) {
        ssize_t sent = sendmsg(ctx->sock.fd, &msg, MSG_NOSIGNAL);

        if (sent >= 0 && ubus_wire_advance(pieces, (size_t)sent))
            return true;
        if (sent < 0 && errno == EAGAIN)
            wait_ready(ctx->sock.fd, POLLOUT);
        else if (sent < 0 && errno != EINTR)
            return false;
    }
}

/*
 * Returns 1 when all is read, 0 when nothing is there yet, -1 when the connection is over. Once it
 * has read some bytes, it waits for the rest.
 */
static int read_all(struct ubus_context *ctx, void *into, size_t len, bool wait)
{
    char *pos = into;

    while (len > 0) {
        ssize_t got = recv(ctx->sock.fd, pos, len, MSG_DONTWAIT);

        if (got == 0 || (got < 0 && errno != EAGAIN && errno != EINTR)) {
            ctx->sock.eof = true;
            return -1;
        }
        if (got > 0) {
            pos += got;
            len -= (size_t)got;
            wait = true;
        } else if (errno == EAGAIN) {
            if (!wait)
                return 0;
            wait_ready(ctx->sock.fd, POLLIN);
        }
    }
    return 1;
}

/* The next whole message, which the caller frees; NULL when there is none. */
static struct ubus_message *receive(struct ubus_context *ctx)
{
    uint8_t prefix[UBUS_WIRE_PREFIX];
    struct ubus_wire_header header;
    struct ubus_message *m;
    size_t size;

    if (read_all(ctx, prefix, sizeof(prefix), false) <= 0)
        return NULL;
    ubus_wire_get_header(prefix, &header);
    size = ubus_wire_body_len(prefix);
    if (header.version != UBUS_WIRE_VERSION || size == 0)
        return NULL;
    m = calloc(1, sizeof(*m) + size + BLOB_ATTR_ALIGN);
    if (!m) {
        /* The body stays in the socket. It would be read as a header, and so on for ever. */
        ctx->sock.eof = true;
        return NULL;
    }
    m->header = header;
    m->size = size;
    memcpy(m->body, prefix + UBUS_WIRE_HEADER, sizeof(*m->body));
    if (read_all(ctx, m->body + 1, size - sizeof(*m->body), true) < 0) {
        free(m);
        return NULL;
    }
    return m;
}

static void reply(struct ubus_context *ctx, const struct ubus_message *m, uint32_t object,
                  int status)
{
    struct ubus_wire_header header = {
        .type = UBUS_MSG_STATUS, .seq = m->header.seq, .peer = m->header.peer};

    if (blob_buf_init(&scratch, 0) != 0)
        return;
    blob_put_u32(&scratch, UBUS_ATTR_STATUS, (uint32_t)status);
    blob_put_u32(&scratch, UBUS_ATTR_OBJID, object);
    send_message(ctx, &header, scratch.head);
}

static struct ubus_object *find_object(struct ubus_context *ctx, uint32_t id)
{
    struct list_head *pos;

    link_each(pos, &ctx->objects)
    {
        struct ubus_object *obj = link_entry(pos, struct ubus_object, link);

        if (obj->id == id)
            return obj;
    }
    return NULL;
}

static int run_event(struct ubus_context *ctx, struct blob_attr **tb)
{
    struct ubus_object *obj = find_object(ctx, blob_get_u32(tb[UBUS_ATTR_OBJID]));
    struct ubus_event_handler *ev;

    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (!tb[UBUS_ATTR_METHOD] || !tb[UBUS_ATTR_DATA])
        return UBUS_STATUS_INVALID_ARGUMENT;
    ev = link_entry(obj, struct ubus_event_handler, obj);
    ev->cb(ctx, ev, blob_get_string(tb[UBUS_ATTR_METHOD]), tb[UBUS_ATTR_DATA]);
    return UBUS_STATUS_OK;
}

/* Every delivered event is answered, even one for an object that is gone. */
static void dispatch(struct ubus_context *ctx, struct ubus_message *m)
{
    struct blob_attr *tb[UBUS_ATTR_MAX];

    ubus_wire_parse(m->body, tb);
    if (tb[UBUS_ATTR_OBJID]) {
        int status;

        ctx->busy++;
        status = run_event(ctx, tb);
        ctx->busy--;
        if (!tb[UBUS_ATTR_NO_REPLY] || !blob_get_u8(tb[UBUS_ATTR_NO_REPLY]))
            reply(ctx, m, blob_get_u32(tb[UBUS_ATTR_OBJID]), status);
    }
    free(m);
}

static void queue(struct ubus_context *ctx, struct ubus_message *m)
{
    if (ctx->pending_bytes + m->size > PENDING_LIMIT) {
        free(m);
        return;
    }
    ctx->pending_bytes += m->size;
    link_before(&ctx->pending, &m->link);
}

static struct ubus_message *unqueue(struct ubus_context *ctx)
{
    struct ubus_message *m = link_entry(ctx->pending.next, struct ubus_message, link);

    link_remove(&m->link);
    ctx->pending_bytes -= m->size;
    return m;
}

static void deliver_pending(struct ubus_context *ctx)
{
    while (!ctx->busy && !ctx->waiting && !link_is_empty(&ctx->pending))
        dispatch(ctx, unqueue(ctx));
}

static void on_pending_timer(struct uloop_timeout *timeout)
{
    deliver_pending(link_entry(timeout, struct ubus_context, pending_timer));
}

static struct ubus_call *find_call(struct ubus_context *ctx, const struct ubus_message *m)
{
    struct ubus_call *call = ctx->call;

    while (call && (call->seq != m->header.seq || call->request->peer != m->header.peer))
        call = call->outer;
    return call && !call->done ? call : NULL;
}

static void take_answer(struct ubus_context *ctx, const struct ubus_message *m)
{
    struct blob_attr *tb[UBUS_ATTR_MAX];
    struct ubus_call *call = find_call(ctx, m);

    if (!call)
        return;
    ubus_wire_parse(m->body, tb);
    if (m->header.type == UBUS_MSG_STATUS) {
        call->done = true;
        call->status = tb[UBUS_ATTR_STATUS] ? (int)blob_get_u32(tb[UBUS_ATTR_STATUS])
                                            : UBUS_STATUS_INVALID_ARGUMENT;
    } else if (call->request->on_data) {
        call->request->on_data(call->request->priv, tb);
    }
}

static void take_message(struct ubus_context *ctx, struct ubus_message *m)
{
    if (m->header.type == UBUS_MSG_INVOKE) {
        if (ctx->busy || ctx->waiting)
            queue(ctx, m);
        else
            dispatch(ctx, m);
        return;
    }
    if (m->header.type == UBUS_MSG_STATUS || m->header.type == UBUS_MSG_DATA)
        take_answer(ctx, m);
    free(m);
}

static void on_readable(struct uloop_fd *u, unsigned int events)
{
    struct ubus_context *ctx = link_entry(u, struct ubus_context, sock);
    struct ubus_message *m;

    (void)events;
    deliver_pending(ctx);
    while ((m = receive(ctx)) != NULL) {
        take_message(ctx, m);
        if (uloop_cancelling())
            break;
    }
    deliver_pending(ctx);
    if (u->eof)
        ctx->connection_lost(ctx);
}

/*
 * Does nothing once the loop has dropped the descriptor. The loop drops it before it tells anybody
 * that the broker has died. The program then runs on and hears nothing, exactly as on a router.
 */
static void connection_lost_default(struct ubus_context *ctx)
{
    if (ctx->sock.registered)
        uloop_end();
}

/* Milliseconds until the deadline. -1 when there is no deadline, 0 when it has passed. */
static int time_left(int64_t deadline)
{
    int64_t left;

    if (deadline < 0)
        return -1;
    left = deadline - now_ms();
    return left > 0 ? (int)left : 0;
}

static int wait_for_status(struct ubus_context *ctx, struct ubus_call *call)
{
    int limit = call->request->limit_ms;
    int64_t deadline = limit < 0 ? -1 : now_ms() + limit;
    struct pollfd pfd = {.fd = ctx->sock.fd, .events = POLLIN};

    while (!call->done) {
        int left = time_left(deadline);

        if (left == 0)
            return UBUS_STATUS_TIMEOUT;
        if (poll(&pfd, 1, left) <= 0)
            continue;
        ctx->sock.cb(&ctx->sock, ULOOP_READ);
        if (!call->done && ctx->sock.eof)
            return UBUS_STATUS_CONNECTION_FAILED;
    }
    return call->status;
}

/* Delivers events that came during the wait: from the loop if there is one, otherwise at once. */
static void after_wait(struct ubus_context *ctx)
{
    if (link_is_empty(&ctx->pending) || ctx->busy || ctx->waiting)
        return;
    if (ctx->sock.registered)
        uloop_timeout_set(&ctx->pending_timer, 1);
    else
        deliver_pending(ctx);
}

int ubus_request_send(struct ubus_context *ctx, const struct ubus_request *request)
{
    struct ubus_call call = {.outer = ctx->call, .request = request, .seq = ++ctx->request_seq};
    struct ubus_wire_header header = {
        .type = (uint8_t)request->type, .seq = call.seq, .peer = request->peer};
    int status;

    if (ctx->sock.eof || !request->body || !ubus_wire_body_fits(request->body))
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (!send_message(ctx, &header, request->body)) {
        ctx->sock.eof = true;
        return UBUS_STATUS_INVALID_ARGUMENT;
    }
    ctx->call = &call;
    ctx->waiting++;
    status = wait_for_status(ctx, &call);
    ctx->waiting--;
    ctx->call = call.outer;
    after_wait(ctx);
    return status;
}

/* One read for the greeting. No connection if that is interrupted, cut short or without an id. */
static bool read_greeting(struct ubus_context *ctx, int fd)
{
    uint8_t prefix[UBUS_WIRE_PREFIX];
    struct ubus_wire_header header;

    if (read(fd, prefix, sizeof(prefix)) != (ssize_t)sizeof(prefix))
        return false;
    ubus_wire_get_header(prefix, &header);
    if (header.version != UBUS_WIRE_VERSION || header.type != UBUS_MSG_HELLO || header.peer == 0)
        return false;
    if (ubus_wire_body_len(prefix) != sizeof(struct blob_attr))
        return false;
    ctx->local_id = htobe32(header.peer);
    return true;
}

static int open_socket(const char *path)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX};
    int fd;

    if (strlen(path) >= sizeof(address.sun_path)) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(address.sun_path, path, strlen(path));
    fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return -1;
    if (connect(fd, (struct sockaddr *)&address, sizeof(address)) < 0) {
        int saved = errno;

        close(fd);
        errno = saved;
        return -1;
    }
    return fd;
}

static bool attach(struct ubus_context *ctx, const char *path)
{
    int fd = open_socket(path ? path : UBUS_UNIX_SOCKET);

    if (fd < 0)
        return false;
    if (!read_greeting(ctx, fd) || fcntl(fd, F_SETFL, fcntl(fd, F_GETFL, 0) | O_NONBLOCK) < 0) {
        close(fd);
        return false;
    }
    ctx->sock.fd = fd;
    ctx->sock.eof = false;
    ctx->sock.error = false;
    return true;
}

static void detach(struct ubus_context *ctx)
{
    uloop_fd_delete(&ctx->sock);
    if (ctx->sock.fd >= 0)
        close(ctx->sock.fd);
    ctx->sock.fd = -1;
    uloop_timeout_cancel(&ctx->pending_timer);
    while (!link_is_empty(&ctx->pending))
        free(unqueue(ctx));
}

struct ubus_context *ubus_connect(const char *path)
{
    struct ubus_context *ctx = calloc(1, sizeof(*ctx));

    if (!ctx)
        return NULL;
    uloop_init();
    link_init(&ctx->objects);
    link_init(&ctx->pending);
    ctx->sock.fd = -1;
    ctx->sock.cb = on_readable;
    ctx->pending_timer.cb = on_pending_timer;
    ctx->connection_lost = connection_lost_default;
    if (!attach(ctx, path)) {
        free(ctx);
        return NULL;
    }
    return ctx;
}

/* Registered handlers keep their old id. Clear them before they are used again. */
void ubus_free(struct ubus_context *ctx)
{
    if (!ctx)
        return;
    detach(ctx);
    free(ctx);
}

static void note_object_id(void *priv, struct blob_attr **tb)
{
    struct ubus_object *obj = priv;

    if (tb[UBUS_ATTR_OBJID])
        obj->id = blob_get_u32(tb[UBUS_ATTR_OBJID]);
}

/* An empty body asks for an object without a path, which nobody can look up or call. */
static int create_object(struct ubus_context *ctx, struct ubus_object *obj)
{
    struct ubus_request request = {
        .type = UBUS_MSG_ADD_OBJECT, .on_data = note_object_id, .priv = obj, .limit_ms = -1};
    int status;

    if (obj->name || obj->type)
        return UBUS_STATUS_INVALID_ARGUMENT;
    blob_buf_init(&scratch, 0);
    request.body = scratch.head;
    status = ubus_request_send(ctx, &request);
    if (status == UBUS_STATUS_OK && obj->id == 0)
        return UBUS_STATUS_NO_DATA;
    return status;
}

int ubus_reconnect(struct ubus_context *ctx, const char *path)
{
    struct list_head *pos;

    detach(ctx);
    if (!attach(ctx, path))
        return UBUS_STATUS_CONNECTION_FAILED;
    link_each(pos, &ctx->objects)
    {
        struct ubus_object *obj = link_entry(pos, struct ubus_object, link);
        int status;

        obj->id = 0;
        status = create_object(ctx, obj);
        if (status != UBUS_STATUS_OK)
            return status;
    }
    return UBUS_STATUS_OK;
}

/* Starts a call of a method of the event object. The members are written between begin and end. */
static void *begin_event_call(const char *method)
{
    blob_buf_init(&scratch, 0);
    blob_put_u32(&scratch, UBUS_ATTR_OBJID, UBUS_SYSTEM_OBJECT_EVENT);
    blob_put_string(&scratch, UBUS_ATTR_METHOD, method);
    return blob_nest_start(&scratch, UBUS_ATTR_DATA);
}

static int end_event_call(struct ubus_context *ctx, void *cookie)
{
    struct ubus_request request = {
        .type = UBUS_MSG_INVOKE, .peer = UBUS_SYSTEM_OBJECT_EVENT, .limit_ms = -1};

    blob_nest_end(&scratch, cookie);
    request.body = scratch.head;
    return ubus_request_send(ctx, &request);
}

static int add_handler_object(struct ubus_context *ctx, struct ubus_object *obj)
{
    int status = create_object(ctx, obj);

    if (status == UBUS_STATUS_OK)
        link_before(&ctx->objects, &obj->link);
    return status;
}

int ubus_register_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev,
                                const char *pattern)
{
    void *cookie;

    if (!pattern)
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (ev->obj.id == 0) {
        int status = add_handler_object(ctx, &ev->obj);

        if (status != UBUS_STATUS_OK)
            return status;
    }
    cookie = begin_event_call("register");
    blobmsg_add_u32(&scratch, "object", ev->obj.id);
    blobmsg_add_string(&scratch, "pattern", pattern);
    return end_event_call(ctx, cookie);
}

int ubus_unregister_event_handler(struct ubus_context *ctx, struct ubus_event_handler *ev)
{
    struct ubus_request request = {.type = UBUS_MSG_REMOVE_OBJECT, .limit_ms = -1};
    int status;

    blob_buf_init(&scratch, 0);
    blob_put_u32(&scratch, UBUS_ATTR_OBJID, ev->obj.id);
    request.body = scratch.head;
    status = ubus_request_send(ctx, &request);
    if (status != UBUS_STATUS_OK)
        return status;
    if (find_object(ctx, ev->obj.id))
        link_remove(&ev->obj.link);
    ev->obj.id = 0;
    return UBUS_STATUS_OK;
}

int ubus_send_event(struct ubus_context *ctx, const char *id, struct blob_attr *data)
{
    void *cookie = begin_event_call("send");

    blobmsg_add_string(&scratch, "id", id);
    if (blobmsg_add_field(&scratch, BLOBMSG_TYPE_TABLE, "data", blob_data(data),
                          (unsigned int)blob_len(data)) < 0)
        return UBUS_STATUS_INVALID_ARGUMENT;
    return end_event_call(ctx, cookie);
}
