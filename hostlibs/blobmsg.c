/* SPDX-License-Identifier: ISC */
/* Attributes with a name header: writing them, checking them, parsing them. */
#include <libubox/blobmsg.h>

#include <endian.h>
#include <errno.h>
#include <string.h>

#define NAME_LIMIT 0xffff
#define POLICY_NAME_LIMIT 255
#define LEN_BYTES 2 /* the name length in front of the name */

static const int payload_kinds[] = {
    BLOB_ATTR_UNSPEC, BLOB_ATTR_NESTED, BLOB_ATTR_NESTED, BLOB_ATTR_STRING, BLOB_ATTR_INT64,
    BLOB_ATTR_INT32,  BLOB_ATTR_INT16,  BLOB_ATTR_INT8,   BLOB_ATTR_DOUBLE,
};
_Static_assert(sizeof(payload_kinds) / sizeof(payload_kinds[0]) == BLOBMSG_TYPE_LAST + 1,
               "one payload kind per type");

static size_t header_size(size_t name_len)
{
    return (LEN_BYTES + name_len + 1 + 3) & ~(size_t)3;
}

static size_t name_length(const struct blob_attr *attr)
{
    const uint8_t *bytes = blob_data(attr);

    return (size_t)bytes[0] << 8 | bytes[1];
}

/* Bytes before the data. Never more than the attribute has, so nobody reads past its end. */
static size_t data_offset(const struct blob_attr *attr)
{
    size_t have = blob_len(attr);
    size_t header;

    if (!blob_is_extended(attr))
        return 0;
    if (have < LEN_BYTES)
        return have;
    header = header_size(name_length(attr));
    return header < have ? header : have;
}

static void write_name(struct blob_attr *attr, const char *name, size_t name_len)
{
    uint8_t *bytes = blob_data(attr);

    memset(bytes, 0, header_size(name_len));
    bytes[0] = (uint8_t)(name_len >> 8);
    bytes[1] = (uint8_t)name_len;
    memcpy(bytes + LEN_BYTES, name, name_len);
}

int blobmsg_buf_init(struct blob_buf *buf)
{
    return blob_buf_init(buf, BLOBMSG_TYPE_TABLE);
}

int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                      unsigned int len)
{
    size_t name_len = name ? strlen(name) : 0;
    size_t header = header_size(name_len);
    struct blob_attr *attr;

    if (name_len > NAME_LIMIT || len > BLOB_ATTR_LEN_MASK)
        return -1;
    attr = blob_put(buf, type, NULL, (unsigned int)header + len);
    if (!attr)
        return -1;
    attr->id_len |= htobe32(BLOB_ATTR_EXTENDED);
    write_name(attr, name ? name : "", name_len);
    if (data && len > 0)
        memcpy((char *)blob_data(attr) + header, data, len);
    return 0;
}

int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val)
{
    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT8, name, &val, sizeof(val));
}

int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val)
{
    uint16_t wire = htobe16(val);

    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT16, name, &wire, sizeof(wire));
}

int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val)
{
    uint32_t wire = htobe32(val);

    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT32, name, &wire, sizeof(wire));
}

int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val)
{
    uint64_t wire = htobe64(val);

    return blobmsg_add_field(buf, BLOBMSG_TYPE_INT64, name, &wire, sizeof(wire));
}

int blobmsg_add_double(struct blob_buf *buf, const char *name, double val)
{
    uint64_t bits;

    memcpy(&bits, &val, sizeof(bits));
    bits = htobe64(bits);
    return blobmsg_add_field(buf, BLOBMSG_TYPE_DOUBLE, name, &bits, sizeof(bits));
}

int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string)
{
    size_t len = strlen(string) + 1;

    if (len > BLOB_ATTR_LEN_MASK)
        return -1;
    return blobmsg_add_field(buf, BLOBMSG_TYPE_STRING, name, string, (unsigned int)len);
}

int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr)
{
    return blobmsg_add_field(buf, blobmsg_type(attr), blobmsg_name(attr), blobmsg_data(attr),
                             (unsigned int)blobmsg_data_len(attr));
}

/* The outer container counts the new one only when that is closed and has its final length. */
static void *open_container(struct blob_buf *buf, int type, const char *name)
{
    size_t name_len = name ? strlen(name) : 0;
    size_t outer = (size_t)((char *)buf->head - (char *)buf->buf);
    uint32_t outer_word = buf->head->id_len;
    struct blob_attr *attr;

    if (name_len > NAME_LIMIT)
        return NULL;
    attr = blob_put(buf, type, NULL, (unsigned int)header_size(name_len));
    if (!attr)
        return NULL;
    attr->id_len |= htobe32(BLOB_ATTR_EXTENDED);
    write_name(attr, name ? name : "", name_len);
    buf->head->id_len = outer_word;
    buf->head = attr;
    return (void *)(uintptr_t)(outer + 1);
}

void *blobmsg_open_table(struct blob_buf *buf, const char *name)
{
    return open_container(buf, BLOBMSG_TYPE_TABLE, name);
}

void *blobmsg_open_array(struct blob_buf *buf, const char *name)
{
    return open_container(buf, BLOBMSG_TYPE_ARRAY, name);
}

void blobmsg_close_table(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

void blobmsg_close_array(struct blob_buf *buf, void *cookie)
{
    blob_nest_end(buf, cookie);
}

const char *blobmsg_name(const struct blob_attr *attr)
{
    if (!blob_is_extended(attr) || blob_len(attr) <= LEN_BYTES)
        return "";
    return (const char *)blob_data(attr) + LEN_BYTES;
}

int blobmsg_type(const struct blob_attr *attr)
{
    return (int)blob_id(attr);
}

void *blobmsg_data(const struct blob_attr *attr)
{
    return attr ? (char *)blob_data(attr) + data_offset(attr) : NULL;
}

size_t blobmsg_data_len(const struct blob_attr *attr)
{
    return attr ? blob_len(attr) - data_offset(attr) : 0;
}

size_t blobmsg_len(const struct blob_attr *attr)
{
    return blobmsg_data_len(attr);
}

struct blob_attr *blobmsg_first_child(const struct blob_attr *attr)
{
    return blob_at(blobmsg_data(attr));
}

size_t blobmsg_children_len(const struct blob_attr *attr)
{
    return blobmsg_data_len(attr);
}

/* Reads big-endian, byte by byte: 64-bit payloads are aligned to 4 bytes only. */
static uint64_t read_bytes(const struct blob_attr *attr, size_t count)
{
    const uint8_t *bytes = blobmsg_data(attr);
    uint64_t val = 0;

    for (size_t i = 0; i < count; i++)
        val = val << 8 | bytes[i];
    return val;
}

uint8_t blobmsg_get_u8(struct blob_attr *attr)
{
    return (uint8_t)read_bytes(attr, 1);
}

bool blobmsg_get_bool(struct blob_attr *attr)
{
    return blobmsg_get_u8(attr) != 0;
}

uint16_t blobmsg_get_u16(struct blob_attr *attr)
{
    return (uint16_t)read_bytes(attr, 2);
}

uint32_t blobmsg_get_u32(struct blob_attr *attr)
{
    return (uint32_t)read_bytes(attr, 4);
}

uint64_t blobmsg_get_u64(struct blob_attr *attr)
{
    return read_bytes(attr, 8);
}

double blobmsg_get_double(struct blob_attr *attr)
{
    uint64_t bits = read_bytes(attr, 8);
    double val;

    memcpy(&val, &bits, sizeof(val));
    return val;
}

char *blobmsg_get_string(struct blob_attr *attr)
{
    return blobmsg_data(attr);
}

uint64_t blobmsg_cast_u64(struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

int64_t blobmsg_cast_s64(struct blob_attr *attr)
{
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_INT64:
        return (int64_t)blobmsg_get_u64(attr);
    case BLOBMSG_TYPE_INT32:
        return (int32_t)blobmsg_get_u32(attr);
    case BLOBMSG_TYPE_INT16:
        return (int16_t)blobmsg_get_u16(attr);
    case BLOBMSG_TYPE_INT8:
        return (int8_t)blobmsg_get_u8(attr);
    default:
        return 0;
    }
}

static bool name_is_sound(const struct blob_attr *attr, bool want_name)
{
    size_t have = blob_len(attr);
    size_t name_len;

    if (!blob_is_extended(attr))
        return !want_name;
    if (have < LEN_BYTES)
        return false;
    name_len = name_length(attr);
    if (header_size(name_len) > have || (want_name && name_len == 0))
        return false;
    return blobmsg_name(attr)[name_len] == '\0';
}

bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len)
{
    int type;

    if (len < sizeof(struct blob_attr) || blob_raw_len(attr) < sizeof(struct blob_attr) ||
        blob_raw_len(attr) > len)
        return false;
    type = blobmsg_type(attr);
    if (type > BLOBMSG_TYPE_LAST || !name_is_sound(attr, name))
        return false;
    return blob_check_type(blobmsg_data(attr), (unsigned int)blobmsg_data_len(attr),
                           payload_kinds[type]);
}

bool blobmsg_check_attr(const struct blob_attr *attr, bool name)
{
    return blobmsg_check_attr_len(attr, name, blob_raw_len(attr));
}

static bool type_matches(enum blobmsg_type wanted, int type)
{
    if (wanted == BLOBMSG_CAST_INT64)
        return type >= BLOBMSG_TYPE_INT64 && type <= BLOBMSG_TYPE_INT8;
    return wanted == BLOBMSG_TYPE_UNSPEC || (int)wanted == type;
}

static bool name_matches(const char *wanted, const struct blob_attr *attr)
{
    size_t len = wanted ? strlen(wanted) : 0;

    if (!wanted || len > POLICY_NAME_LIMIT || len != name_length(attr))
        return false;
    return memcmp(wanted, blobmsg_name(attr), len) == 0;
}

static void offer(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                  struct blob_attr *attr)
{
    for (int i = 0; i < policy_len; i++) {
        if (tb[i] || !type_matches(policy[i].type, blobmsg_type(attr)))
            continue;
        if (name_matches(policy[i].name, attr))
            tb[i] = attr;
    }
}

int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                  void *data, unsigned int len)
{
    struct blob_attr *attr;
    size_t rem = len;

    for (int i = 0; i < policy_len; i++)
        tb[i] = NULL;
    if (!data || len == 0)
        return -EINVAL;
    __blob_for_each_attr(attr, data, rem)
    {
        if (!blob_is_extended(attr))
            continue;
        if (!blobmsg_check_attr_len(attr, false, rem))
            return -1;
        offer(policy, policy_len, tb, attr);
    }
    return 0;
}

int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                       struct blob_attr *data)
{
    return blobmsg_parse(policy, policy_len, tb, blobmsg_data(data),
                         (unsigned int)blobmsg_data_len(data));
}
