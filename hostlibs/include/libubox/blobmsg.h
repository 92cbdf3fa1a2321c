/* SPDX-License-Identifier: ISC */
/* Named, typed attributes: adding, reading and parsing them with a policy. */
#ifndef HOSTLIBS_LIBUBOX_BLOBMSG_H
#define HOSTLIBS_LIBUBOX_BLOBMSG_H

#include "blob.h"

#ifdef __cplusplus
extern "C" {
#endif

/* These numbers travel over the bus; do not renumber. */
enum blobmsg_type {
    BLOBMSG_TYPE_UNSPEC,
    BLOBMSG_TYPE_ARRAY,
    BLOBMSG_TYPE_TABLE,
    BLOBMSG_TYPE_STRING,
    BLOBMSG_TYPE_INT64,
    BLOBMSG_TYPE_INT32,
    BLOBMSG_TYPE_INT16,
    BLOBMSG_TYPE_INT8,
    BLOBMSG_TYPE_DOUBLE,
    __BLOBMSG_TYPE_LAST,
    BLOBMSG_TYPE_LAST = __BLOBMSG_TYPE_LAST - 1,
    BLOBMSG_TYPE_BOOL = BLOBMSG_TYPE_INT8,
    BLOBMSG_CAST_INT64 = __BLOBMSG_TYPE_LAST /* in policies only: any integer */
};

struct blobmsg_policy {
    const char *name;
    enum blobmsg_type type;
};

int blobmsg_buf_init(struct blob_buf *buf);

/* 0, or -1 when the buffer cannot grow. A NULL name is the empty name. */
int blobmsg_add_field(struct blob_buf *buf, int type, const char *name, const void *data,
                      unsigned int len);
int blobmsg_add_u8(struct blob_buf *buf, const char *name, uint8_t val);
int blobmsg_add_u16(struct blob_buf *buf, const char *name, uint16_t val);
int blobmsg_add_u32(struct blob_buf *buf, const char *name, uint32_t val);
int blobmsg_add_u64(struct blob_buf *buf, const char *name, uint64_t val);
int blobmsg_add_double(struct blob_buf *buf, const char *name, double val);
int blobmsg_add_string(struct blob_buf *buf, const char *name, const char *string);
int blobmsg_add_blob(struct blob_buf *buf, struct blob_attr *attr);

/* Close in reverse order of opening. A NULL cookie (no memory) closes nothing. */
void *blobmsg_open_table(struct blob_buf *buf, const char *name);
void blobmsg_close_table(struct blob_buf *buf, void *cookie);
void *blobmsg_open_array(struct blob_buf *buf, const char *name);
void blobmsg_close_array(struct blob_buf *buf, void *cookie);

const char *blobmsg_name(const struct blob_attr *attr);
int blobmsg_type(const struct blob_attr *attr);
void *blobmsg_data(const struct blob_attr *attr);
size_t blobmsg_data_len(const struct blob_attr *attr);
size_t blobmsg_len(const struct blob_attr *attr);

/* The getters do not check the type. Use them only after a policy or a type check. */
uint8_t blobmsg_get_u8(struct blob_attr *attr);
bool blobmsg_get_bool(struct blob_attr *attr);
uint16_t blobmsg_get_u16(struct blob_attr *attr);
uint32_t blobmsg_get_u32(struct blob_attr *attr);
uint64_t blobmsg_get_u64(struct blob_attr *attr);
double blobmsg_get_double(struct blob_attr *attr);
char *blobmsg_get_string(struct blob_attr *attr);
uint64_t blobmsg_cast_u64(struct blob_attr *attr);
int64_t blobmsg_cast_s64(struct blob_attr *attr);

/* True when the attribute fits into len bytes and its name and payload are sound. */
bool blobmsg_check_attr_len(const struct blob_attr *attr, bool name, size_t len);
bool blobmsg_check_attr(const struct blob_attr *attr, bool name);

/*
 * Fills tb[policy_len]. -EINVAL for no members at all, -1 at the first malformed member
 * (what was found before it stays), else 0. A missing or mistyped member is NULL in tb.
 */
int blobmsg_parse(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                  void *data, unsigned int len);
int blobmsg_parse_attr(const struct blobmsg_policy *policy, int policy_len, struct blob_attr **tb,
                       struct blob_attr *data);

struct blob_attr *blobmsg_first_child(const struct blob_attr *attr);
size_t blobmsg_children_len(const struct blob_attr *attr);

#define blobmsg_for_each_attr(pos, attr, rem)                                   \
    for ((rem) = blobmsg_children_len(attr), (pos) = blobmsg_first_child(attr); \
         blob_fits((pos), (rem)); (rem) -= blob_pad_len(pos), (pos) = blob_next(pos))

#ifdef __cplusplus
}
#endif

#endif
