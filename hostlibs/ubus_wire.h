/* SPDX-License-Identifier: ISC */
/* The bus protocol on the wire, for its client and for the broker. */
#ifndef HOSTLIBS_UBUS_WIRE_H
#define HOSTLIBS_UBUS_WIRE_H

#include <libubox/blob.h>
#include <sys/uio.h>

#include "ubusmsg.h"

#define UBUS_WIRE_VERSION 0
#define UBUS_WIRE_HEADER 8  /* in front of the body */
#define UBUS_WIRE_PREFIX 12 /* header and the body's own head word: enough to know the length */

struct ubus_wire_header {
    uint8_t version;
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
};

void ubus_wire_put_header(uint8_t *out, const struct ubus_wire_header *header);
void ubus_wire_get_header(const uint8_t *in, struct ubus_wire_header *header);

/* Length of the body, which the prefix tells at its end; 0 when it is too short or too long. */
size_t ubus_wire_body_len(const uint8_t *prefix);

/* True when this body may be sent. */
bool ubus_wire_body_fits(const struct blob_attr *body);

/*
 * Fills tb[UBUS_ATTR_MAX]. Unknown and mistyped attributes are left out. Of several with the same
 * id the last one counts.
 */
void ubus_wire_parse(const struct blob_attr *body, struct blob_attr **tb);

/* The text of an attribute, or NULL when it is absent. */
const char *ubus_wire_text(struct blob_attr *attr);

/* Takes sent bytes off the front of two pieces; true when nothing is left. */
bool ubus_wire_advance(struct iovec *pieces, size_t sent);

#endif
