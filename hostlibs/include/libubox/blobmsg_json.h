/* SPDX-License-Identifier: ISC */
/* blobmsg to JSON text and back. */
#ifndef HOSTLIBS_LIBUBOX_BLOBMSG_JSON_H
#define HOSTLIBS_LIBUBOX_BLOBMSG_JSON_H

#include "blobmsg.h"

#ifdef __cplusplus
extern "C" {
#endif

/* Returns the text to print in place of the value, or NULL for the normal form. */
typedef const char *(*blobmsg_json_format_t)(void *priv, struct blob_attr *attr);

/*
 * The caller frees the result with free(). list: attr is a container, print its children;
 * otherwise print attr itself with its name. indent < 0 gives the compact form.
 */
char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                  void *priv, int indent);
char *blobmsg_format_json(struct blob_attr *attr, bool list);
char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent);
char *blobmsg_format_json_value(struct blob_attr *attr);

/* Appends the members of the JSON object in str. False for anything but an object. */
bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str);

#ifdef __cplusplus
}
#endif

#endif
