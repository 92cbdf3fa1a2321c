/* SPDX-License-Identifier: ISC */
/* The broker's objects, event patterns and calls. No access control: this one serves PCs. */
#include "ubusd_bus.h"

#include <libubox/blobmsg.h>
#include <stdlib.h>
#include <string.h>
#include <sys/random.h>

#include "link.h"

/* Limits for what one client can make the broker keep. */
#define OBJECTS_PER_CLIENT 1024
#define PATTERNS_PER_OBJECT 1024
#define RESERVED_EVENTS "ubus."

/* A handler returns a status to answer with, or this when nothing is to be answered. */
#define NO_ANSWER (-1)

struct pattern {
    struct list_head link;
    bool prefix;
    char text[];
};

struct object_type {
    struct list_head link;
    uint32_t id;
    unsigned int users;
    unsigned int size;
    char signature[];
};

struct object {
    struct list_head link;
    uint32_t id;
    struct client *owner;
    struct object_type *type; /* NULL for an event handler */
    struct list_head patterns;
    unsigned int pattern_count;
    char path[]; /* empty: cannot be looked up */
};

struct message {
    struct client *from;
    const struct ubus_wire_header *header;
    const struct blob_attr *body;
    struct blob_attr *tb[UBUS_ATTR_MAX];
};

static struct list_head objects = LINK_EMPTY(objects);
static struct list_head types = LINK_EMPTY(types);
static uint32_t event_count;

/* One buffer for the answer of a handler, one for events that are written meanwhile. */
static struct blob_buf answer;
static struct blob_buf delivery;

uint32_t bus_new_id(bool (*taken)(uint32_t id))
{
    uint32_t id;

    do {
        if (getrandom(&id, sizeof(id), 0) != (ssize_t)sizeof(id))
            id = 0;
    } while (id < UBUS_SYSTEM_OBJECT_MAX || taken(id));
    return id;
}

static struct object *find_object(uint32_t id)
{
    struct list_head *pos;

    link_each(pos, &objects)
    {
        struct object *obj = link_entry(pos, struct object, link);

        if (obj->id == id)
            return obj;
    }
    return NULL;
}

static bool object_taken(uint32_t id)
{
    return find_object(id) != NULL;
}

static struct object *find_path(const char *path)
{
    struct list_head *pos;

    link_each(pos, &objects)
    {
        struct object *obj = link_entry(pos, struct object, link);

        if (obj->path[0] && strcmp(obj->path, path) == 0)
            return obj;
    }
    return NULL;
}

static struct object_type *find_type(uint32_t id)
{
    struct list_head *pos;

    link_each(pos, &types)
    {
        struct object_type *type = link_entry(pos, struct object_type, link);

        if (type->id == id)
            return type;
    }
    return NULL;
}

static bool type_taken(uint32_t id)
{
    return find_type(id) != NULL;
}

/* An answer carries the request's sequence number and peer. Without them it is not recognised. */
static void send_answer(const struct message *m, int type)
{
    struct ubus_wire_header header = {
        .type = (uint8_t)type, .seq = m->header->seq, .peer = m->header->peer};

    client_send(m->from, &header, answer.head);
}

static void send_status(const struct message *m, int status)
{
    blob_buf_init(&answer, 0);
    blob_put_u32(&answer, UBUS_ATTR_STATUS, (uint32_t)status);
    send_answer(m, UBUS_MSG_STATUS);
}

static bool begins_with(const char *text, const char *start)
{
    return strncmp(text, start, strlen(start)) == 0;
}

static bool wants(const struct object *obj, const char *type)
{
    struct list_head *pos;

    link_each(pos, &obj->patterns)
    {
        const struct pattern *p = link_entry(pos, struct pattern, link);

        if (p->prefix ? begins_with(type, p->text) : strcmp(type, p->text) == 0)
            return true;
    }
    return false;
}

static void deliver(struct object *obj, const char *type, const void *members, size_t len)
{
    struct ubus_wire_header header = {.type = UBUS_MSG_INVOKE, .seq = (uint16_t)++event_count};

    blob_buf_init(&delivery, 0);
    blob_put_u32(&delivery, UBUS_ATTR_OBJID, obj->id);
    blob_put_string(&delivery, UBUS_ATTR_METHOD, type);
    blob_put(&delivery, UBUS_ATTR_DATA, members, (unsigned int)len);
    client_send(obj->owner, &header, delivery.head);
}

/* Each object gets one copy, however many of its patterns match. The sender itself gets none. */
static void send_event(const struct client *from, const char *type, const void *members, size_t len)
{
    struct list_head *pos;

    link_each(pos, &objects)
    {
        struct object *obj = link_entry(pos, struct object, link);

        if (obj->owner != from && wants(obj, type))
            deliver(obj, type, members, len);
    }
}

static void announce(const struct object *obj, const char *type)
{
    struct blob_buf members = {0};

    if (!obj->path[0] || blob_buf_init(&members, 0) < 0)
        return;
    blobmsg_add_u32(&members, "id", obj->id);
    blobmsg_add_string(&members, "path", obj->path);
    send_event(NULL, type, blob_data(members.head), blob_len(members.head));
    blob_buf_free(&members);
}

static bool add_pattern(struct object *obj, const char *text)
{
    size_t len = strlen(text);
    bool prefix = text[len - 1] == '*';
    struct pattern *p;

    if (obj->pattern_count >= PATTERNS_PER_OBJECT)
        return false;
    p = calloc(1, sizeof(*p) + len + 1);
    if (!p)
        return false;
    memcpy(p->text, text, prefix ? len - 1 : len);
    p->prefix = prefix;
    link_before(&obj->patterns, &p->link);
    obj->pattern_count++;
    return true;
}

static int register_pattern(struct message *m)
{
    static const struct blobmsg_policy policy[] = {{"object", BLOBMSG_TYPE_INT32},
                                                   {"pattern", BLOBMSG_TYPE_STRING}};
    struct blob_attr *tb[2] = {NULL, NULL};
    struct blob_attr *data = m->tb[UBUS_ATTR_DATA];
    struct object *obj;
    const char *text;

    if (data)
        blobmsg_parse(policy, 2, tb, blob_data(data), (unsigned int)blob_len(data));
    if (!tb[0] || !tb[1])
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (blobmsg_get_u32(tb[0]) < UBUS_SYSTEM_OBJECT_MAX)
        return UBUS_STATUS_PERMISSION_DENIED;
    obj = find_object(blobmsg_get_u32(tb[0]));
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    text = blobmsg_get_string(tb[1]);
    if (obj->owner != m->from || !text[0])
        return UBUS_STATUS_PERMISSION_DENIED;
    return add_pattern(obj, text) ? UBUS_STATUS_OK : UBUS_STATUS_NO_MEMORY;
}

static int publish_event(struct message *m)
{
    static const struct blobmsg_policy policy[] = {{"id", BLOBMSG_TYPE_STRING},
                                                   {"data", BLOBMSG_TYPE_TABLE}};
    struct blob_attr *tb[2] = {NULL, NULL};
    struct blob_attr *data = m->tb[UBUS_ATTR_DATA];

    if (data)
        blobmsg_parse(policy, 2, tb, blob_data(data), (unsigned int)blob_len(data));
    if (!tb[0] || !tb[1])
        return UBUS_STATUS_INVALID_ARGUMENT;
    if (begins_with(blobmsg_get_string(tb[0]), RESERVED_EVENTS))
        return UBUS_STATUS_PERMISSION_DENIED;
    send_event(m->from, blobmsg_get_string(tb[0]), blobmsg_data(tb[1]), blobmsg_data_len(tb[1]));
    return UBUS_STATUS_OK;
}

static int call_event_object(struct message *m, const char *method)
{
    if (strcmp(method, "register") == 0)
        return register_pattern(m);
    if (strcmp(method, "send") == 0)
        return publish_event(m);
    return UBUS_STATUS_INVALID_COMMAND;
}

static void put_copy(struct blob_attr *const *tb, int id)
{
    if (tb[id])
        blob_put(&answer, id, blob_data(tb[id]), (unsigned int)blob_len(tb[id]));
}

/*
 * The owner of the object answers. For that it needs the caller's id, which goes in the peer field.
 */
static int forward_call(struct message *m, struct object *obj)
{
    struct ubus_wire_header header = {
        .type = UBUS_MSG_INVOKE, .seq = m->header->seq, .peer = m->from->id};

    blob_buf_init(&answer, 0);
    put_copy(m->tb, UBUS_ATTR_OBJID);
    put_copy(m->tb, UBUS_ATTR_METHOD);
    blob_put_string(&answer, UBUS_ATTR_USER, m->from->user);
    blob_put_string(&answer, UBUS_ATTR_GROUP, m->from->group);
    put_copy(m->tb, UBUS_ATTR_NO_REPLY);
    put_copy(m->tb, UBUS_ATTR_DATA);
    /* The names of the caller's user and group were added, so the message may be too long now. */
    if (!ubus_wire_body_fits(answer.head))
        return UBUS_STATUS_INVALID_ARGUMENT;
    client_send(obj->owner, &header, answer.head);
    return NO_ANSWER;
}

static int handle_invoke(struct message *m)
{
    struct object *obj;
    uint32_t id;

    if (!m->tb[UBUS_ATTR_OBJID] || !m->tb[UBUS_ATTR_METHOD])
        return UBUS_STATUS_INVALID_ARGUMENT;
    id = blob_get_u32(m->tb[UBUS_ATTR_OBJID]);
    if (id == UBUS_SYSTEM_OBJECT_EVENT)
        return call_event_object(m, blob_get_string(m->tb[UBUS_ATTR_METHOD]));
    obj = find_object(id);
    return obj ? forward_call(m, obj) : UBUS_STATUS_NOT_FOUND;
}

/* An owner's answer to a call. An answer without a caller or an own object is dropped silently. */
static int handle_reply(struct message *m)
{
    struct ubus_wire_header header = *m->header;
    struct client *caller = client_find(m->header->peer);
    struct object *obj;

    if (!caller || !m->tb[UBUS_ATTR_OBJID])
        return NO_ANSWER;
    obj = find_object(blob_get_u32(m->tb[UBUS_ATTR_OBJID]));
    if (!obj || obj->owner != m->from)
        return NO_ANSWER;
    header.peer = obj->id;
    header.version = UBUS_WIRE_VERSION;
    client_send(caller, &header, m->body);
    return NO_ANSWER;
}

static int handle_ping(struct message *m)
{
    struct ubus_wire_header header = *m->header;

    header.type = UBUS_MSG_DATA;
    header.version = UBUS_WIRE_VERSION;
    client_send(m->from, &header, m->body);
    return UBUS_STATUS_OK;
}

static struct object_type *new_type(const struct blob_attr *signature)
{
    struct object_type *type = calloc(1, sizeof(*type) + blob_len(signature));

    if (!type)
        return NULL;
    type->id = bus_new_id(type_taken);
    type->size = (unsigned int)blob_len(signature);
    memcpy(type->signature, blob_data(signature), blob_len(signature));
    link_before(&types, &type->link);
    return type;
}

/* True when that was the type's last user. */
static bool drop_type(struct object_type *type)
{
    if (!type || --type->users > 0)
        return false;
    link_remove(&type->link);
    free(type);
    return true;
}

static struct object *new_object(struct client *owner, const char *path, struct object_type *type)
{
    size_t path_size = strlen(path) + 1;
    struct object *obj = calloc(1, sizeof(*obj) + path_size);

    if (!obj)
        return NULL;
    memcpy(obj->path, path, path_size);
    obj->id = bus_new_id(object_taken);
    obj->owner = owner;
    obj->type = type;
    link_init(&obj->patterns);
    link_before(&objects, &obj->link);
    owner->objects++;
    return obj;
}

static void free_object(struct object *obj)
{
    while (!link_is_empty(&obj->patterns)) {
        struct pattern *p = link_entry(obj->patterns.next, struct pattern, link);

        link_remove(&p->link);
        free(p);
    }
    obj->owner->objects--;
    free(obj);
}

/* A message can name a type in two ways. *type stays NULL for an object without a type. */
static int choose_type(struct message *m, struct object_type **type)
{
    if (m->tb[UBUS_ATTR_SIGNATURE]) {
        *type = new_type(m->tb[UBUS_ATTR_SIGNATURE]);
        return *type ? UBUS_STATUS_OK : UBUS_STATUS_NO_MEMORY;
    }
    if (!m->tb[UBUS_ATTR_OBJTYPE])
        return UBUS_STATUS_OK;
    *type = find_type(blob_get_u32(m->tb[UBUS_ATTR_OBJTYPE]));
    return *type ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

static int check_new_object(const struct message *m, const char *path)
{
    if (m->from->objects >= OBJECTS_PER_CLIENT)
        return UBUS_STATUS_NO_MEMORY;
    if (path && (!path[0] || find_path(path)))
        return UBUS_STATUS_INVALID_ARGUMENT;
    return UBUS_STATUS_OK;
}

static int handle_add_object(struct message *m)
{
    const char *path = ubus_wire_text(m->tb[UBUS_ATTR_OBJPATH]);
    struct object_type *type = NULL;
    struct object *obj;
    int status = check_new_object(m, path);

    if (status == UBUS_STATUS_OK)
        status = choose_type(m, &type);
    if (status != UBUS_STATUS_OK)
        return status;
    if (type)
        type->users++;
    obj = new_object(m->from, path ? path : "", type);
    if (!obj) {
        drop_type(type);
        return UBUS_STATUS_NO_MEMORY;
    }
    blob_buf_init(&answer, 0);
    blob_put_u32(&answer, UBUS_ATTR_OBJID, obj->id);
    if (m->tb[UBUS_ATTR_SIGNATURE])
        blob_put_u32(&answer, UBUS_ATTR_OBJTYPE, type->id);
    send_answer(m, UBUS_MSG_DATA);
    announce(obj, "ubus.object.add");
    return UBUS_STATUS_OK;
}

/* Takes the object off the list first: when clients hear that it is removed, it must be gone. */
static bool remove_object(struct object *obj)
{
    bool type_gone;

    link_remove(&obj->link);
    announce(obj, "ubus.object.remove");
    type_gone = drop_type(obj->type);
    free_object(obj);
    return type_gone;
}

static int handle_remove_object(struct message *m)
{
    struct object *obj;
    uint32_t id;
    uint32_t type;

    if (!m->tb[UBUS_ATTR_OBJID])
        return UBUS_STATUS_INVALID_ARGUMENT;
    id = blob_get_u32(m->tb[UBUS_ATTR_OBJID]);
    obj = find_object(id);
    if (!obj)
        return UBUS_STATUS_NOT_FOUND;
    if (obj->owner != m->from)
        return UBUS_STATUS_PERMISSION_DENIED;
    type = obj->type ? obj->type->id : 0;
    blob_buf_init(&answer, 0);
    blob_put_u32(&answer, UBUS_ATTR_OBJID, id);
    if (remove_object(obj))
        blob_put_u32(&answer, UBUS_ATTR_OBJTYPE, type);
    send_answer(m, UBUS_MSG_DATA);
    return UBUS_STATUS_OK;
}

static bool path_selected(const char *path, const char *wanted)
{
    size_t len = wanted ? strlen(wanted) : 0;

    if (!path[0])
        return false;
    if (!wanted)
        return true;
    if (wanted[len - 1] == '*')
        return strncmp(path, wanted, len - 1) == 0;
    return strcmp(path, wanted) == 0;
}

static void send_object(const struct message *m, const struct object *obj)
{
    blob_buf_init(&answer, 0);
    blob_put_string(&answer, UBUS_ATTR_OBJPATH, obj->path);
    blob_put_u32(&answer, UBUS_ATTR_OBJID, obj->id);
    if (obj->type) {
        blob_put_u32(&answer, UBUS_ATTR_OBJTYPE, obj->type->id);
        blob_put(&answer, UBUS_ATTR_SIGNATURE, obj->type->signature, obj->type->size);
    }
    send_answer(m, UBUS_MSG_DATA);
}

static int handle_lookup(struct message *m)
{
    const char *wanted = ubus_wire_text(m->tb[UBUS_ATTR_OBJPATH]);
    struct list_head *pos;
    bool found = false;

    if (wanted && !wanted[0])
        return UBUS_STATUS_INVALID_ARGUMENT;
    link_each(pos, &objects)
    {
        const struct object *obj = link_entry(pos, struct object, link);

        if (!path_selected(obj->path, wanted))
            continue;
        send_object(m, obj);
        found = true;
    }
    return found || !wanted ? UBUS_STATUS_OK : UBUS_STATUS_NOT_FOUND;
}

/* Row by message type; an empty row is a command the broker does not know. */
static int (*const handlers[])(struct message *m) = {
    [UBUS_MSG_STATUS] = handle_reply,
    [UBUS_MSG_DATA] = handle_reply,
    [UBUS_MSG_PING] = handle_ping,
    [UBUS_MSG_LOOKUP] = handle_lookup,
    [UBUS_MSG_INVOKE] = handle_invoke,
    [UBUS_MSG_ADD_OBJECT] = handle_add_object,
    [UBUS_MSG_REMOVE_OBJECT] = handle_remove_object,
    [UBUS_MSG_MONITOR] = NULL,
};

void bus_handle(struct client *c, const struct ubus_wire_header *header,
                const struct blob_attr *body)
{
    struct message m = {.from = c, .header = header, .body = body};
    int status = UBUS_STATUS_INVALID_COMMAND;

    ubus_wire_parse(body, m.tb);
    if (header->type < __UBUS_MSG_LAST && handlers[header->type])
        status = handlers[header->type](&m);
    if (status != NO_ANSWER)
        send_status(&m, status);
}

void bus_client_gone(struct client *c)
{
    struct list_head *pos = objects.next;

    while (pos != &objects) {
        struct object *obj = link_entry(pos, struct object, link);

        pos = pos->next;
        if (obj->owner == c)
            remove_object(obj);
    }
}
