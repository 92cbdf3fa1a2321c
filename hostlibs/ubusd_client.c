/* SPDX-License-Identifier: ISC */
/* Connections of the broker. */
#include "ubusd_client.h"

#include <errno.h>
#include <grp.h>
#include <pwd.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "link.h"
#include "ubusd_bus.h"

/*
 * So many bytes may wait for a client that does not read. After that, messages to it are dropped.
 */
#define OUTPUT_LIMIT ((size_t)1024 * 1024)
/* Messages taken from one client before the others get their turn. */
#define MESSAGES_PER_TURN 64

struct output {
    struct list_head link;
    size_t size;
    size_t done;
    uint8_t bytes[];
};

enum progress { PROGRESS_MESSAGE, PROGRESS_WAIT, PROGRESS_GONE };

static struct list_head clients = LINK_EMPTY(clients);

struct client *client_find(uint32_t id)
{
    struct list_head *pos;

    link_each(pos, &clients)
    {
        struct client *c = link_entry(pos, struct client, link);

        if (c->id == id)
            return c;
    }
    return NULL;
}

static bool id_taken(uint32_t id)
{
    return client_find(id) != NULL;
}

static void pop_output(struct client *c)
{
    struct output *o = link_entry(c->output.next, struct output, link);

    link_remove(&o->link);
    c->output_bytes -= o->size;
    free(o);
}

static void client_close(struct client *c)
{
    link_remove(&c->link);
    bus_client_gone(c);
    uloop_fd_delete(&c->sock);
    close(c->sock.fd);
    while (!link_is_empty(&c->output))
        pop_output(c);
    free(c->body);
    free(c);
}

static void watch(struct client *c)
{
    uloop_fd_add(&c->sock, link_is_empty(&c->output) ? ULOOP_READ : ULOOP_READ | ULOOP_WRITE);
}

/* Makes the loop report a hang-up, so that the client is closed from its own callback. */
static void give_up(struct client *c)
{
    shutdown(c->sock.fd, SHUT_RDWR);
}

static void keep_rest(struct client *c, const struct iovec *pieces)
{
    size_t size = pieces[0].iov_len + pieces[1].iov_len;
    struct output *o = malloc(sizeof(*o) + size);

    if (!o) {
        /* A part of the message may be sent already, so the stream cannot be used any more. */
        give_up(c);
        return;
    }
    o->size = size;
    o->done = 0;
    memcpy(o->bytes, pieces[0].iov_base, pieces[0].iov_len);
    memcpy(o->bytes + pieces[0].iov_len, pieces[1].iov_base, pieces[1].iov_len);
    link_before(&c->output, &o->link);
    c->output_bytes += size;
    if (c->sock.registered)
        watch(c);
}

/* Writes what the socket takes; true when all is out. */
static bool write_now(struct client *c, struct iovec *pieces)
{
    struct msghdr msg = {.msg_iov = pieces, .msg_iovlen = 2};

    for (;;) {
        ssize_t sent = sendmsg(c->sock.fd, &msg, MSG_NOSIGNAL | MSG_DONTWAIT);

        if (sent >= 0 && ubus_wire_advance(pieces, (size_t)sent))
            return true;
        if (sent < 0 && errno == EAGAIN)
            return false;
        if (sent < 0 && errno != EINTR) {
            give_up(c);
            return true;
        }
    }
}

void client_send(struct client *c, const struct ubus_wire_header *header,
                 const struct blob_attr *body)
{
    uint8_t head[UBUS_WIRE_HEADER];
    struct iovec pieces[2] = {{head, sizeof(head)}, {blob_at(body), blob_raw_len(body)}};
    bool queued = !link_is_empty(&c->output);

    /*
     * A reader refuses a message that is too long, and takes its next bytes for a header. After
     * that it never finds a message again.
     */
    if (!ubus_wire_body_fits(body))
        return;
    if (queued && c->output_bytes + sizeof(head) + blob_raw_len(body) > OUTPUT_LIMIT)
        return;
    ubus_wire_put_header(head, header);
    if (queued || !write_now(c, pieces))
        keep_rest(c, pieces);
}

static void flush(struct client *c)
{
    while (!link_is_empty(&c->output)) {
        struct output *o = link_entry(c->output.next, struct output, link);
        /* What was freed was unlinked before. NOLINTNEXTLINE(clang-analyzer-unix.Malloc) */
        size_t rest = o->size - o->done;
        ssize_t sent = send(c->sock.fd, o->bytes + o->done, rest, MSG_NOSIGNAL | MSG_DONTWAIT);

        if (sent < 0)
            return; /* full, or a hang-up that the loop will report */
        o->done += (size_t)sent;
        if (o->done == o->size)
            pop_output(c);
    }
    if (c->sock.registered)
        watch(c);
}

/* Reads up to len bytes to into. *have counts them, also over several calls. */
static enum progress fill(struct client *c, void *into, size_t len, size_t *have)
{
    while (*have < len) {
        ssize_t got = recv(c->sock.fd, (char *)into + *have, len - *have, MSG_DONTWAIT);

        if (got > 0)
            *have += (size_t)got;
        else if (got < 0 && errno == EAGAIN)
            return PROGRESS_WAIT;
        else if (got == 0 || errno != EINTR)
            return PROGRESS_GONE;
    }
    return PROGRESS_MESSAGE;
}

static bool start_body(struct client *c)
{
    c->body_size = ubus_wire_body_len(c->prefix);
    if (c->body_size == 0)
        return false;
    c->body = calloc(1, c->body_size + BLOB_ATTR_ALIGN);
    if (!c->body)
        return false;
    memcpy(c->body, c->prefix + UBUS_WIRE_HEADER, sizeof(*c->body));
    return true;
}

static enum progress read_message(struct client *c)
{
    enum progress progress;
    size_t body_have;

    if (c->have < UBUS_WIRE_PREFIX) {
        progress = fill(c, c->prefix, UBUS_WIRE_PREFIX, &c->have);
        if (progress != PROGRESS_MESSAGE)
            return progress;
        if (!start_body(c))
            return PROGRESS_GONE;
    }
    body_have = c->have - UBUS_WIRE_HEADER;
    progress = fill(c, c->body, c->body_size, &body_have);
    c->have = body_have + UBUS_WIRE_HEADER;
    return progress;
}

/* The version byte is not looked at. Only clients drop messages with a wrong one. */
static void handle_message(struct client *c)
{
    struct ubus_wire_header header;

    ubus_wire_get_header(c->prefix, &header);
    bus_handle(c, &header, c->body);
    free(c->body);
    c->body = NULL;
    c->have = 0;
}

static void on_client(struct uloop_fd *u, unsigned int events)
{
    struct client *c = link_entry(u, struct client, sock);
    int turns = 0;

    if (events & ULOOP_WRITE)
        flush(c);
    /* After a hang-up there is no second callback, so everything is read now. */
    while (u->error || turns++ < MESSAGES_PER_TURN) {
        enum progress progress = read_message(c);

        if (progress == PROGRESS_MESSAGE) {
            handle_message(c);
            continue;
        }
        if (progress == PROGRESS_GONE || u->error)
            client_close(c);
        return;
    }
}

static void name_peer(struct client *c)
{
    struct ucred peer = {0};
    socklen_t size = sizeof(peer);
    const struct passwd *user;
    const struct group *group;

    (void)getsockopt(c->sock.fd, SOL_SOCKET, SO_PEERCRED, &peer, &size); /* if it fails: 0, root */
    user = getpwuid(peer.uid);
    group = getgrgid(peer.gid);
    if (user)
        snprintf(c->user, sizeof(c->user), "%s", user->pw_name);
    else
        snprintf(c->user, sizeof(c->user), "%u", (unsigned int)peer.uid);
    if (group)
        snprintf(c->group, sizeof(c->group), "%s", group->gr_name);
    else
        snprintf(c->group, sizeof(c->group), "%u", (unsigned int)peer.gid);
}

/*
 * Sends all twelve bytes in one write: a client reads the greeting with one read. If bytes are
 * missing then, it gives up.
 */
static void greet(struct client *c)
{
    struct ubus_wire_header header = {.type = UBUS_MSG_HELLO, .peer = c->id};
    struct blob_buf empty = {0};

    if (blob_buf_init(&empty, 0) == 0)
        client_send(c, &header, empty.head);
    blob_buf_free(&empty);
}

struct client *client_open(int fd)
{
    struct client *c = calloc(1, sizeof(*c));

    if (!c) {
        close(fd);
        return NULL;
    }
    c->sock.fd = fd;
    c->sock.cb = on_client;
    c->id = bus_new_id(id_taken);
    link_init(&c->output);
    link_before(&clients, &c->link);
    name_peer(c);
    watch(c);
    greet(c);
    return c;
}
