/* SPDX-License-Identifier: ISC */
/* The attribute buffer and reading of single attributes. */
#include <libubox/blob.h>

#include <endian.h>
#include <errno.h>
#include <stdlib.h>
#include <string.h>

#define GROWTH_STEP 256
/* The length of the outermost attribute has 24 bits. The buffer grows to one rounding step less. */
#define LARGEST_END 16777208u

static size_t padded(size_t len)
{
    return (len + BLOB_ATTR_ALIGN - 1) & ~(size_t)(BLOB_ATTR_ALIGN - 1);
}

static size_t offset_of(const struct blob_buf *buf, const struct blob_attr *attr)
{
    return (size_t)((const char *)attr - (const char *)buf->buf);
}

static struct blob_attr *attr_at(const struct blob_buf *buf, size_t offset)
{
    return blob_at((const char *)buf->buf + offset);
}

static void set_head_word(struct blob_attr *attr, int id, size_t raw_len)
{
    uint32_t word = ((uint32_t)id << BLOB_ATTR_ID_SHIFT) & BLOB_ATTR_ID_MASK;

    attr->id_len = htobe32(word | ((uint32_t)raw_len & BLOB_ATTR_LEN_MASK));
}

static void set_raw_len(struct blob_attr *attr, size_t raw_len)
{
    uint32_t word = be32toh(attr->id_len) & ~BLOB_ATTR_LEN_MASK;

    attr->id_len = htobe32(word | ((uint32_t)raw_len & BLOB_ATTR_LEN_MASK));
}

/* Makes room up to the offset end. If the allocation moves, the head moves with it. */
static bool reserve(struct blob_buf *buf, size_t end)
{
    size_t size = (end / GROWTH_STEP + 1) * GROWTH_STEP;
    size_t head = buf->head ? offset_of(buf, buf->head) : 0;
    void *grown;

    if (end > LARGEST_END)
        return false;
    if (end <= (size_t)buf->buflen)
        return true;
    grown = realloc(buf->buf, size);
    if (!grown)
        return false;
    memset((char *)grown + buf->buflen, 0, size - (size_t)buf->buflen);
    buf->buf = grown;
    buf->buflen = (int)size;
    buf->head = blob_at((char *)grown + head);
    return true;
}

/* Writes a new attribute into the open container, which does not count it yet. */
static struct blob_attr *append(struct blob_buf *buf, int id, const void *ptr, size_t len)
{
    size_t raw = sizeof(struct blob_attr) + len;
    struct blob_attr *attr;
    size_t offset;

    if (!buf->head) /* the buffer found no memory from the start */
        return NULL;
    offset = offset_of(buf, buf->head) + blob_pad_len(buf->head);
    if (len > LARGEST_END || !reserve(buf, offset + padded(raw)))
        return NULL;
    attr = attr_at(buf, offset);
    set_head_word(attr, id, raw);
    if (ptr && len > 0)
        memcpy(blob_data(attr), ptr, len);
    else
        memset(blob_data(attr), 0, len);
    memset((char *)attr + raw, 0, padded(raw) - raw);
    return attr;
}

static void count_child(struct blob_buf *buf, const struct blob_attr *child)
{
    set_raw_len(buf->head, blob_pad_len(buf->head) + blob_pad_len(child));
}

int blob_buf_init(struct blob_buf *buf, int id)
{
    buf->head = NULL;
    if (!reserve(buf, sizeof(struct blob_attr)))
        return -ENOMEM;
    buf->head = blob_at(buf->buf);
    set_head_word(buf->head, id, sizeof(struct blob_attr));
    return 0;
}

void blob_buf_free(struct blob_buf *buf)
{
    free(buf->buf);
    buf->buf = NULL;
    buf->head = NULL;
    buf->buflen = 0;
}

struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len)
{
    struct blob_attr *attr = append(buf, id, ptr, len);

    if (attr)
        count_child(buf, attr);
    return attr;
}

struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val)
{
    return blob_put(buf, id, &val, sizeof(val));
}

struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val)
{
    uint32_t wire = htobe32(val);

    return blob_put(buf, id, &wire, sizeof(wire));
}

struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str)
{
    return blob_put(buf, id, str, (unsigned int)strlen(str) + 1);
}

/* The cookie is the offset of the outer container plus one, so that it is never NULL. */
void *blob_nest_start(struct blob_buf *buf, int id)
{
    size_t outer = buf->head ? offset_of(buf, buf->head) : 0;
    struct blob_attr *attr = append(buf, id, NULL, 0);

    if (!attr)
        return NULL;
    buf->head = attr;
    return (void *)(uintptr_t)(outer + 1);
}

void blob_nest_end(struct blob_buf *buf, void *cookie)
{
    struct blob_attr *inner = buf->head;

    if (!cookie)
        return;
    buf->head = attr_at(buf, (uintptr_t)cookie - 1);
    set_raw_len(buf->head, offset_of(buf, inner) - offset_of(buf, buf->head) + blob_pad_len(inner));
}

unsigned int blob_id(const struct blob_attr *attr)
{
    return (be32toh(attr->id_len) & BLOB_ATTR_ID_MASK) >> BLOB_ATTR_ID_SHIFT;
}

bool blob_is_extended(const struct blob_attr *attr)
{
    return (be32toh(attr->id_len) & BLOB_ATTR_EXTENDED) != 0;
}

struct blob_attr *blob_at(const void *ptr)
{
    return (struct blob_attr *)(uintptr_t)ptr;
}

void *blob_data(const struct blob_attr *attr)
{
    return blob_at(attr) + 1;
}

size_t blob_raw_len(const struct blob_attr *attr)
{
    return be32toh(attr->id_len) & BLOB_ATTR_LEN_MASK;
}

size_t blob_len(const struct blob_attr *attr)
{
    size_t raw = blob_raw_len(attr);

    /* A head word may claim a length below its own. That would wrap around to gigabytes. */
    return raw < sizeof(struct blob_attr) ? 0 : raw - sizeof(struct blob_attr);
}

size_t blob_pad_len(const struct blob_attr *attr)
{
    return padded(blob_raw_len(attr));
}

struct blob_attr *blob_next(const struct blob_attr *attr)
{
    return blob_at((const char *)attr + blob_pad_len(attr));
}

struct blob_attr *blob_first_child(const struct blob_attr *attr)
{
    return attr ? blob_at(blob_data(attr)) : NULL;
}

size_t blob_children_len(const struct blob_attr *attr)
{
    return attr ? blob_len(attr) : 0;
}

bool blob_fits(const struct blob_attr *attr, size_t rem)
{
    if (!attr || rem < sizeof(struct blob_attr))
        return false;
    return blob_pad_len(attr) >= sizeof(struct blob_attr) && blob_pad_len(attr) <= rem;
}

bool blob_check_type(const void *ptr, unsigned int len, int type)
{
    const char *bytes = ptr;

    switch (type) {
    case BLOB_ATTR_STRING:
        return len > 0 && bytes[len - 1] == '\0';
    case BLOB_ATTR_INT8:
        return len == 1;
    case BLOB_ATTR_INT16:
        return len == 2;
    case BLOB_ATTR_INT32:
        return len == 4;
    case BLOB_ATTR_INT64:
        return len == 8;
    case BLOB_ATTR_DOUBLE:
        return len >= 8;
    default:
        return type >= 0 && type < BLOB_ATTR_LAST;
    }
}

uint8_t blob_get_u8(const struct blob_attr *attr)
{
    return *(const uint8_t *)blob_data(attr);
}

uint32_t blob_get_u32(const struct blob_attr *attr)
{
    uint32_t wire;

    memcpy(&wire, blob_data(attr), sizeof(wire));
    return be32toh(wire);
}

char *blob_get_string(const struct blob_attr *attr)
{
    return blob_data(attr);
}
