/* SPDX-License-Identifier: ISC */
/* JSON text from attributes and attributes from JSON text. */
#include <libubox/blobmsg_json.h>

#include <inttypes.h>
#include <json-c/json.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/*
 * In a message of a megabyte a hundred thousand containers can lie one inside the other, at eight
 * bytes each. Containers that are deeper than this print as null, so that the stack stays small.
 */
#ifndef DEEPEST
#define DEEPEST 512
#endif
#define GROWTH_STEP 256

struct writer {
    char *text;
    size_t len;
    size_t size;
    bool failed;
    blobmsg_json_format_t cb;
    void *priv;
    int indent;
    int depth;
};

static bool make_room(struct writer *w, size_t len)
{
    size_t size = (w->len + len) * 2 + GROWTH_STEP;
    char *grown;

    if (w->failed)
        return false;
    if (w->len + len < w->size)
        return true;
    grown = realloc(w->text, size);
    if (!grown) {
        w->failed = true;
        return false;
    }
    w->text = grown;
    w->size = size;
    return true;
}

static void put(struct writer *w, const char *text, size_t len)
{
    if (!make_room(w, len))
        return;
    memcpy(w->text + w->len, text, len);
    w->len += len;
}

static void put_text(struct writer *w, const char *text)
{
    put(w, text, strlen(text));
}

static void put_line_start(struct writer *w)
{
    if (w->indent < 0)
        return;
    put(w, "\n", 1);
    for (int i = 0; i < w->indent + w->depth; i++)
        put(w, "\t", 1);
}

static void put_escaped(struct writer *w, unsigned char byte)
{
    static const char plain[] = "\"\\\b\n\t\r";
    static const char letters[] = "\"\\bntr";
    const char *found = memchr(plain, byte, sizeof(plain) - 1);
    char text[8];

    if (found) {
        text[0] = '\\';
        text[1] = letters[found - plain];
        put(w, text, 2);
        return;
    }
    snprintf(text, sizeof(text), "\\u%04x", byte);
    put_text(w, text);
}

static void put_quoted(struct writer *w, const char *text)
{
    put(w, "\"", 1);
    while (*text) {
        size_t run = 0;

        while ((unsigned char)text[run] >= 0x20 && text[run] != '"' && text[run] != '\\')
            run++;
        put(w, text, run);
        text += run;
        if (*text)
            put_escaped(w, (unsigned char)*text++);
    }
    put(w, "\"", 1);
}

static void put_number(struct writer *w, int64_t value)
{
    char text[24];

    snprintf(text, sizeof(text), "%" PRId64, value);
    put_text(w, text);
}

static void put_double(struct writer *w, double value)
{
    char text[400]; /* the largest has 309 digits in front of the point */

    snprintf(text, sizeof(text), "%lf", value);
    put_text(w, text);
}

static void put_element(struct writer *w, struct blob_attr *attr, bool with_name);

static void put_list(struct writer *w, struct blob_attr *attr, bool array)
{
    struct blob_attr *child;
    bool first = true;
    size_t rem;

    if (w->depth >= DEEPEST) {
        put_text(w, "null");
        return;
    }
    put(w, array ? "[" : "{", 1);
    w->depth++;
    put_line_start(w);
    blobmsg_for_each_attr(child, attr, rem)
    {
        if (!first) {
            put(w, ",", 1);
            put_line_start(w);
        }
        put_element(w, child, !array);
        first = false;
    }
    w->depth--;
    put_line_start(w);
    put(w, array ? "]" : "}", 1);
}

static void put_value(struct writer *w, struct blob_attr *attr)
{
    const char *text = w->cb ? w->cb(w->priv, attr) : NULL;

    if (text) {
        put_text(w, text);
        return;
    }
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_UNSPEC:
        put_text(w, "null");
        return;
    case BLOBMSG_TYPE_BOOL:
        put_text(w, blobmsg_get_bool(attr) ? "true" : "false");
        return;
    case BLOBMSG_TYPE_INT16:
    case BLOBMSG_TYPE_INT32:
    case BLOBMSG_TYPE_INT64:
        put_number(w, blobmsg_cast_s64(attr));
        return;
    case BLOBMSG_TYPE_DOUBLE:
        put_double(w, blobmsg_get_double(attr));
        return;
    case BLOBMSG_TYPE_STRING:
        put_quoted(w, blobmsg_get_string(attr));
        return;
    default:
        put_list(w, attr, blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
    }
}

/* A malformed element prints nothing. The comma in front of it is printed already. */
static void put_element(struct writer *w, struct blob_attr *attr, bool with_name)
{
    if (!blobmsg_check_attr(attr, false))
        return;
    if (with_name && blobmsg_name(attr)[0]) {
        put_quoted(w, blobmsg_name(attr));
        put_text(w, w->indent < 0 ? ":" : ": ");
    }
    put_value(w, attr);
}

/* Takes the text out of the writer, terminated. NULL when memory ran out. */
static char *finish(struct writer *w)
{
    if (!make_room(w, 1)) {
        free(w->text);
        return NULL;
    }
    w->text[w->len] = '\0';
    return w->text;
}

char *blobmsg_format_json_with_cb(struct blob_attr *attr, bool list, blobmsg_json_format_t cb,
                                  void *priv, int indent)
{
    struct writer w = {.cb = cb, .priv = priv, .indent = indent};

    if (!attr)
        return NULL;
    if (list) {
        put_list(&w, attr, blob_is_extended(attr) && blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY);
        return finish(&w);
    }
    put_element(&w, attr, true);
    /* An event without members that is printed as one element has always given NULL. */
    if (w.len == 0 && blob_len(attr) == 0 && !cb)
        return NULL;
    return finish(&w);
}

char *blobmsg_format_json(struct blob_attr *attr, bool list)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, -1);
}

char *blobmsg_format_json_indent(struct blob_attr *attr, bool list, int indent)
{
    return blobmsg_format_json_with_cb(attr, list, NULL, NULL, indent);
}

char *blobmsg_format_json_value(struct blob_attr *attr)
{
    struct writer w = {.indent = -1};

    if (!attr)
        return NULL;
    if (blobmsg_check_attr(attr, false))
        put_value(&w, attr);
    return finish(&w);
}

static bool add_value(struct blob_buf *b, const char *name, struct json_object *value);

static bool add_members(struct blob_buf *b, struct json_object *object)
{
    json_object_object_foreach(object, name, value)
    {
        if (!add_value(b, name, value))
            return false;
    }
    return true;
}

static bool add_items(struct blob_buf *b, struct json_object *array)
{
    size_t count = json_object_array_length(array);

    for (size_t i = 0; i < count; i++) {
        if (!add_value(b, NULL, json_object_array_get_idx(array, i)))
            return false;
    }
    return true;
}

static bool add_container(struct blob_buf *b, const char *name, struct json_object *value)
{
    bool array = json_object_is_type(value, json_type_array);
    void *cookie = array ? blobmsg_open_array(b, name) : blobmsg_open_table(b, name);
    bool complete;

    if (!cookie)
        return false;
    complete = array ? add_items(b, value) : add_members(b, value);
    blobmsg_close_table(b, cookie);
    return complete;
}

static bool add_integer(struct blob_buf *b, const char *name, int64_t value)
{
    if (value >= INT32_MIN && value <= INT32_MAX)
        return blobmsg_add_u32(b, name, (uint32_t)value) == 0;
    return blobmsg_add_u64(b, name, (uint64_t)value) == 0;
}

/* The recursion is as deep as the text. The parser allows 32 levels. */
static bool add_value(struct blob_buf *b, const char *name, struct json_object *value)
{
    switch (json_object_get_type(value)) {
    case json_type_boolean:
        return blobmsg_add_u8(b, name, json_object_get_boolean(value) ? 1 : 0) == 0;
    case json_type_int:
        return add_integer(b, name, json_object_get_int64(value));
    case json_type_double:
        return blobmsg_add_double(b, name, json_object_get_double(value)) == 0;
    case json_type_string:
        return blobmsg_add_string(b, name, json_object_get_string(value)) == 0;
    case json_type_object:
    case json_type_array:
        return add_container(b, name, value);
    case json_type_null:
        return blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, name, NULL, 0) == 0;
    }
    return false;
}

bool blobmsg_add_json_from_string(struct blob_buf *b, const char *str)
{
    struct json_object *object = json_tokener_parse(str);
    bool added;

    if (!object)
        return false;
    added = json_object_is_type(object, json_type_object) && add_members(b, object);
    json_object_put(object);
    return added;
}
