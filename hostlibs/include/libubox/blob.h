/* SPDX-License-Identifier: ISC */
/* Binary attributes with a 32-bit head word, and the buffer they are built in. */
#ifndef HOSTLIBS_LIBUBOX_BLOB_H
#define HOSTLIBS_LIBUBOX_BLOB_H

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

#define BLOB_ATTR_EXTENDED 0x80000000u
#define BLOB_ATTR_ID_MASK 0x7f000000u
#define BLOB_ATTR_ID_SHIFT 24
#define BLOB_ATTR_LEN_MASK 0x00ffffffu
#define BLOB_ATTR_ALIGN 4

/* Kinds of payload, for checking only. They are never sent. */
enum {
    BLOB_ATTR_UNSPEC,
    BLOB_ATTR_NESTED,
    BLOB_ATTR_BINARY,
    BLOB_ATTR_STRING,
    BLOB_ATTR_INT8,
    BLOB_ATTR_INT16,
    BLOB_ATTR_INT32,
    BLOB_ATTR_INT64,
    BLOB_ATTR_DOUBLE,
    BLOB_ATTR_LAST
};

struct blob_attr {
    uint32_t id_len; /* big-endian; the payload follows directly */
};

/* All zero before the first init. head may move whenever something is added. */
struct blob_buf {
    struct blob_attr *head;
    bool (*grow)(struct blob_buf *buf, int minlen); /* present for its name, never called */
    int buflen;
    void *buf;
};

/* Restarts the buffer with an empty outermost attribute. 0 or -ENOMEM. */
int blob_buf_init(struct blob_buf *buf, int id);
/* Repeating it is harmless; the struct can be initialised again. */
void blob_buf_free(struct blob_buf *buf);

/* Appends one attribute without a name. NULL when the buffer cannot grow. */
struct blob_attr *blob_put(struct blob_buf *buf, int id, const void *ptr, unsigned int len);
struct blob_attr *blob_put_u8(struct blob_buf *buf, int id, uint8_t val);
struct blob_attr *blob_put_u32(struct blob_buf *buf, int id, uint32_t val);
struct blob_attr *blob_put_string(struct blob_buf *buf, int id, const char *str);

/* Opens a container. The cookie stays valid when the buffer grows. NULL when it cannot grow. */
void *blob_nest_start(struct blob_buf *buf, int id);
void blob_nest_end(struct blob_buf *buf, void *cookie);

unsigned int blob_id(const struct blob_attr *attr);
bool blob_is_extended(const struct blob_attr *attr);
void *blob_data(const struct blob_attr *attr);
size_t blob_len(const struct blob_attr *attr);     /* payload */
size_t blob_raw_len(const struct blob_attr *attr); /* payload and head word */
size_t blob_pad_len(const struct blob_attr *attr); /* rounded up to 4 */
struct blob_attr *blob_next(const struct blob_attr *attr);

/* True when len bytes are a possible payload of this kind. */
bool blob_check_type(const void *ptr, unsigned int len, int type);
uint8_t blob_get_u8(const struct blob_attr *attr);
uint32_t blob_get_u32(const struct blob_attr *attr);
char *blob_get_string(const struct blob_attr *attr);

/* The iteration macros use these. A NULL container has no children. */
struct blob_attr *blob_at(const void *ptr);
struct blob_attr *blob_first_child(const struct blob_attr *attr);
size_t blob_children_len(const struct blob_attr *attr);
bool blob_fits(const struct blob_attr *attr, size_t rem);

#define __blob_for_each_attr(pos, attr, rem)             \
    for ((pos) = blob_at(attr); blob_fits((pos), (rem)); \
         (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#define blob_for_each_attr(pos, attr, rem)                                                         \
    for ((rem) = blob_children_len(attr), (pos) = blob_first_child(attr); blob_fits((pos), (rem)); \
         (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
