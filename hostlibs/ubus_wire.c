/* SPDX-License-Identifier: ISC */
/* Message headers and attributes of the bus protocol. */
#include "ubus_wire.h"

#include <string.h>

static const int attr_kinds[] = {
    [UBUS_ATTR_STATUS] = BLOB_ATTR_INT32,       [UBUS_ATTR_OBJPATH] = BLOB_ATTR_STRING,
    [UBUS_ATTR_OBJID] = BLOB_ATTR_INT32,        [UBUS_ATTR_METHOD] = BLOB_ATTR_STRING,
    [UBUS_ATTR_OBJTYPE] = BLOB_ATTR_INT32,      [UBUS_ATTR_SIGNATURE] = BLOB_ATTR_NESTED,
    [UBUS_ATTR_DATA] = BLOB_ATTR_NESTED,        [UBUS_ATTR_TARGET] = BLOB_ATTR_INT32,
    [UBUS_ATTR_ACTIVE] = BLOB_ATTR_INT8,        [UBUS_ATTR_NO_REPLY] = BLOB_ATTR_INT8,
    [UBUS_ATTR_SUBSCRIBERS] = BLOB_ATTR_NESTED, [UBUS_ATTR_USER] = BLOB_ATTR_STRING,
    [UBUS_ATTR_GROUP] = BLOB_ATTR_STRING,
};
_Static_assert(sizeof(attr_kinds) / sizeof(attr_kinds[0]) == UBUS_ATTR_MAX, "one kind each");

void ubus_wire_put_header(uint8_t *out, const struct ubus_wire_header *header)
{
    out[0] = header->version;
    out[1] = header->type;
    out[2] = (uint8_t)(header->seq >> 8);
    out[3] = (uint8_t)header->seq;
    for (int i = 0; i < 4; i++)
        out[4 + i] = (uint8_t)(header->peer >> (24 - 8 * i));
}

void ubus_wire_get_header(const uint8_t *in, struct ubus_wire_header *header)
{
    header->version = in[0];
    header->type = in[1];
    header->seq = (uint16_t)(in[2] << 8 | in[3]);
    header->peer = 0;
    for (int i = 0; i < 4; i++)
        header->peer = header->peer << 8 | in[4 + i];
}

bool ubus_wire_body_fits(const struct blob_attr *body)
{
    return blob_raw_len(body) >= sizeof(*body) && blob_pad_len(body) <= UBUS_MAX_MSGLEN;
}

size_t ubus_wire_body_len(const uint8_t *prefix)
{
    struct blob_attr body;

    memcpy(&body, prefix + UBUS_WIRE_HEADER, sizeof(body));
    return ubus_wire_body_fits(&body) ? blob_raw_len(&body) : 0;
}

void ubus_wire_parse(const struct blob_attr *body, struct blob_attr **tb)
{
    struct blob_attr *attr;
    size_t rem;

    /* Pointers are meant. NOLINTNEXTLINE(bugprone-sizeof-expression) */
    memset(tb, 0, UBUS_ATTR_MAX * sizeof(*tb));
    blob_for_each_attr(attr, body, rem)
    {
        unsigned int id = blob_id(attr);

        if (id == UBUS_ATTR_UNSPEC || id >= UBUS_ATTR_MAX)
            continue;
        if (blob_check_type(blob_data(attr), (unsigned int)blob_len(attr), attr_kinds[id]))
            tb[id] = attr;
    }
}

const char *ubus_wire_text(struct blob_attr *attr)
{
    return attr ? blob_get_string(attr) : NULL;
}

bool ubus_wire_advance(struct iovec *pieces, size_t sent)
{
    for (int i = 0; i < 2; i++) {
        size_t part = sent < pieces[i].iov_len ? sent : pieces[i].iov_len;

        pieces[i].iov_base = (char *)pieces[i].iov_base + part;
        pieces[i].iov_len -= part;
        sent -= part;
    }
    return pieces[0].iov_len == 0 && pieces[1].iov_len == 0;
}
