// SPDX-License-Identifier: ISC
// Parsing in pieces, formatting with an eye on memory.
#include "config/json_text.h"

#include <cerrno>

namespace kelm {

namespace {

struct tokener_freer {
    void operator()(json_tokener *tokener) const { ::json_tokener_free(tokener); }
};
using unique_tokener = std::unique_ptr<json_tokener, tokener_freer>;

// Behind a colon or a comma: a key stands before the one, so a copy of it that failed is seen
// before the library uses it, and no piece holds two numbers, each of which clears errno.
size_t _piece_length(const char *text, size_t length)
{
    for (size_t at = 0; at < length; ++at) {
        if (text[at] == ':' || text[at] == ',')
            return at + 1;
    }
    return length;
}

}  // namespace

unique_json kelm_parse_json(const char *text, size_t length, bool *no_memory)
{
    const unique_tokener tokener(json_tokener_new());
    *no_memory = !tokener;
    while (tokener && length > 0) {
        const size_t piece = _piece_length(text, length);
        errno = 0;
        unique_json parsed(json_tokener_parse_ex(tokener.get(), text, static_cast<int>(piece)));
        *no_memory = errno == ENOMEM;
        if (*no_memory)
            break;
        if (json_tokener_get_error(tokener.get()) != json_tokener_continue)
            return parsed;
        text += piece;
        length -= piece;
    }
    return nullptr;
}

const char *kelm_json_text(json_object *object)
{
    errno = 0;
    const char *text = json_object_to_json_string(object);
    return errno == ENOMEM ? nullptr : text;
}

bool kelm_json_add(json_object *object, const char *key, json_object *value)
{
    if (value == nullptr)
        return false;
    if (json_object_object_add(object, key, value) == 0)
        return true;
    json_object_put(value);
    return false;
}

}  // namespace kelm
