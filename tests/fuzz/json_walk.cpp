// SPDX-License-Identifier: ISC
// Walks over a JSON object and over a message side by side.
#include "tests/fuzz/json_walk.h"

#include <cmath>
#include <cstring>

#include <json-c/json.h>

extern "C" {
#include <libubox/blobmsg.h>
}

namespace kelm_fuzz {

namespace {

bool same_value(json_object *value, blob_attr *attr);

bool same_members(json_object *object, blob_attr *container)
{
    size_t rem;
    blob_attr *attr;
    json_object_iterator at = json_object_iter_begin(object);
    const json_object_iterator end = json_object_iter_end(object);
    blobmsg_for_each_attr(attr, container, rem)
    {
        if (json_object_iter_equal(&at, &end) != 0 ||
            strcmp(json_object_iter_peek_name(&at), blobmsg_name(attr)) != 0 ||
            !same_value(json_object_iter_peek_value(&at), attr))
            return false;
        json_object_iter_next(&at);
    }
    return json_object_iter_equal(&at, &end) != 0;
}

bool same_items(json_object *array, blob_attr *container)
{
    size_t rem;
    size_t index = 0;
    blob_attr *attr;
    blobmsg_for_each_attr(attr, container, rem)
    {
        if (index >= json_object_array_length(array) || blobmsg_name(attr)[0] != '\0' ||
            !same_value(json_object_array_get_idx(array, index), attr))
            return false;
        ++index;
    }
    return index == json_object_array_length(array);
}

bool same_integer(int64_t value, blob_attr *attr)
{
    const bool small = value >= INT32_MIN && value <= INT32_MAX;
    return blobmsg_type(attr) == (small ? BLOBMSG_TYPE_INT32 : BLOBMSG_TYPE_INT64) &&
           blobmsg_cast_s64(attr) == value;
}

// By their bits: what is not a number differs from itself.
bool same_double(double value, blob_attr *attr)
{
    if (blobmsg_type(attr) != BLOBMSG_TYPE_DOUBLE)
        return false;
    const double read = blobmsg_get_double(attr);
    return memcmp(&read, &value, sizeof value) == 0;
}

bool same_value(json_object *value, blob_attr *attr)
{
    const int type = blobmsg_type(attr);
    switch (json_object_get_type(value)) {
    case json_type_null:
        return type == BLOBMSG_TYPE_UNSPEC && blobmsg_data_len(attr) == 0;
    case json_type_boolean:
        return type == BLOBMSG_TYPE_BOOL &&
               blobmsg_get_u8(attr) == (json_object_get_boolean(value) != 0 ? 1 : 0);
    case json_type_int:
        return same_integer(json_object_get_int64(value), attr);
    case json_type_double:
        return same_double(json_object_get_double(value), attr);
    case json_type_string:
        return type == BLOBMSG_TYPE_STRING &&
               strcmp(blobmsg_get_string(attr), json_object_get_string(value)) == 0;
    case json_type_array:
        return type == BLOBMSG_TYPE_ARRAY && same_items(value, attr);
    case json_type_object:
        return type == BLOBMSG_TYPE_TABLE && same_members(value, attr);
    }
    return false;
}

bool writable(json_object *value)
{
    if (json_object_is_type(value, json_type_double))
        return std::isfinite(json_object_get_double(value));
    if (json_object_is_type(value, json_type_array)) {
        for (size_t i = 0; i < json_object_array_length(value); ++i) {
            if (!writable(json_object_array_get_idx(value, i)))
                return false;
        }
    }
    if (!json_object_is_type(value, json_type_object))
        return true;
    json_object_object_foreach(value, name, member)
    {
        if (name[0] == '\0' || !writable(member))
            return false;
    }
    return true;
}

// The integers have one size, a double has at least its own, a string ends where it says.
bool is_payload(unsigned type, const uint8_t *bytes, size_t length)
{
    static const size_t SIZES[] = {0, 0, 0, 0, 8, 4, 2, 1};
    if (type > BLOBMSG_TYPE_DOUBLE)
        return false;
    if (type == BLOBMSG_TYPE_DOUBLE)
        return length >= 8;
    if (type == BLOBMSG_TYPE_STRING)
        return length > 0 && bytes[length - 1] == 0;
    return type < BLOBMSG_TYPE_INT64 || length == SIZES[type];
}

}  // namespace

bool is_sound_member(const uint8_t *bytes, size_t length)
{
    if (length < 6)
        return false;
    const size_t name = static_cast<size_t>(bytes[4]) << 8 | bytes[5];
    const size_t header = (2 + name + 1 + 3) & ~static_cast<size_t>(3);
    if (4 + header > length || bytes[6 + name] != 0)
        return false;
    return is_payload(bytes[0] & 0x7f, bytes + 4 + header, length - 4 - header);
}

std::string member_name(const uint8_t *bytes)
{
    const size_t length = static_cast<size_t>(bytes[4]) << 8 | bytes[5];
    return std::string(reinterpret_cast<const char *>(bytes) + 6, length);
}

std::string without_blanks(const std::string &json)
{
    std::string kept;
    bool quoted = false;
    bool escaped = false;
    for (const char c : json) {
        if (!quoted && strchr(" \t\n", c) != nullptr)
            continue;
        kept += c;
        if (c == '"' && !escaped)
            quoted = !quoted;
        escaped = quoted && c == '\\' && !escaped;
    }
    return kept;
}

json_text::json_text(const std::string &text) : object_(json_tokener_parse(text.c_str())) {}

json_text::~json_text()
{
    json_object_put(object_);
}

bool json_text::is_object() const
{
    return json_object_is_type(object_, json_type_object) != 0;
}

bool json_text::same_as(blob_attr *container) const
{
    return same_members(object_, container);
}

bool json_text::can_be_written() const
{
    return writable(object_);
}

}  // namespace kelm_fuzz
