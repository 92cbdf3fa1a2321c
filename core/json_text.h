// SPDX-License-Identifier: ISC
// JSON: an owning handle, and the way between text and tree where memory may run out: whole or not
// at all.
#pragma once

#include <cstddef>
#include <memory>

#include <json-c/json.h>

namespace kelm {

struct json_putter {
    void operator()(json_object *object) const { ::json_object_put(object); }
};
using unique_json = std::unique_ptr<json_object, json_putter>;

// Parses length bytes of text, as json_tokener_parse_ex does at once. Null for what is no JSON, and
// when memory runs out on the way: the library alone would lose a key or cut a text without a word,
// or crash. no_memory tells the two apart. The library gets the text in pieces, a key each, which
// takes 1.2 to 1.3 times as long as at once.
unique_json kelm_parse_json(const char *text, size_t length, bool *no_memory);

// The object as json_object_to_json_string formats it, in memory of the object. Null when memory
// runs out on the way: the library alone would leave out what found no room.
const char *kelm_json_text(json_object *object);

// Puts value, which it owns from here on, under key. False for a null value too, which is what the
// makers of values return without memory.
bool kelm_json_add(json_object *object, const char *key, json_object *value);

// Whether bytes are UTF-8 that any reader of JSON takes: no zero among them, nothing cut, overlong
// or beyond Unicode.
bool kelm_is_utf8(const char *bytes, size_t length);

// The bytes as UTF-8 with U+FFFD for each that is none, terminated. out: KELM_SHOWN_BYTE_MAX for
// each byte and one more.
constexpr size_t KELM_SHOWN_BYTE_MAX = 3;
void kelm_show_as_utf8(const char *bytes, size_t length, char *out, size_t size);

// The bytes as lower-case hexadecimal digits, terminated. out: two for each byte and one more.
void kelm_spell_bytes(const char *bytes, size_t length, char *out, size_t size);

}  // namespace kelm
