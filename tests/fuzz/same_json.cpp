// SPDX-License-Identifier: ISC
// Walks two JSON values beside each other.
#include "tests/fuzz/same_json.h"

#include <cmath>

namespace {

bool is_same_object(json_object *one, json_object *other)
{
    if (json_object_object_length(one) != json_object_object_length(other))
        return false;
    json_object_object_foreach(one, key, value)
    {
        json_object *beside = nullptr;
        if (!json_object_object_get_ex(other, key, &beside) ||
            !kelm_fuzz::is_same_json(value, beside))
            return false;
    }
    return true;
}

bool is_same_array(json_object *one, json_object *other)
{
    const size_t length = json_object_array_length(one);
    bool same = length == json_object_array_length(other);
    for (size_t i = 0; same && i < length; ++i)
        same = kelm_fuzz::is_same_json(json_object_array_get_idx(one, i),
                                       json_object_array_get_idx(other, i));
    return same;
}

bool is_number(json_object *value)
{
    return json_object_is_type(value, json_type_double) ||
           json_object_is_type(value, json_type_int);
}

bool is_same_number(json_object *one, json_object *other)
{
    const double first = json_object_get_double(one);
    const double second = json_object_get_double(other);
    return first == second || (std::isnan(first) && std::isnan(second));
}

}  // namespace

namespace kelm_fuzz {

bool is_same_json(json_object *written, json_object *read)
{
    if (is_number(written) && is_number(read) && json_object_get_type(written) != json_type_int)
        return is_same_number(written, read);
    switch (json_object_get_type(written)) {
    case json_type_object:
        return json_object_is_type(read, json_type_object) && is_same_object(written, read);
    case json_type_array:
        return json_object_is_type(read, json_type_array) && is_same_array(written, read);
    default:
        return json_object_equal(written, read) == 1;
    }
}

}  // namespace kelm_fuzz
