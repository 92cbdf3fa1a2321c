// SPDX-License-Identifier: ISC
// JSON: an owning handle, parsing and formatting. When memory runs out, the result is never a part:
// there is no result.
#pragma once

#include <cstddef>
#include <memory>

#include <json-c/json.h>

namespace kelm {

struct json_putter {
    void operator()(json_object *object) const { ::json_object_put(object); }
};
using unique_json = std::unique_ptr<json_object, json_putter>;

// Parses length bytes of text. The result is the same as that of one json_tokener_parse_ex for the
// whole text. Null when the text is no JSON, or when memory runs out; no_memory tells which.
// Without memory the library alone would lose a key or cut a text without a word, or crash. So it
// gets the text in pieces, one for each key. This takes 1.2 to 1.3 times as long as the whole text
// at once.
unique_json kelm_parse_json(const char *text, size_t length, bool *no_memory);

// Returns the object as json_object_to_json_string formats it. The text is in memory of the object.
// Null when memory runs out: the library alone would leave out what found no room.
const char *kelm_json_text(json_object *object);

// Puts value under key. From here on value is owned by this function, even if it fails. False
// without memory. A null value gives false too, since functions that make values return null
// without memory.
bool kelm_json_add(json_object *object, const char *key, json_object *value);

// Whether the bytes are UTF-8 that any reader of JSON takes: no byte is zero, and no character is
// cut, overlong or beyond Unicode.
bool kelm_is_utf8(const char *bytes, size_t length);

// Writes the bytes into out as UTF-8, terminated. U+FFFD stands for each byte that is no UTF-8.
// size: of out; KELM_SHOWN_BYTE_MAX for each byte and one more are enough.
constexpr size_t KELM_SHOWN_BYTE_MAX = 3;
void kelm_show_as_utf8(const char *bytes, size_t length, char *out, size_t size);

// Writes the bytes into out as lower-case hexadecimal digits, terminated. size: of out; two for
// each byte and one more are enough.
void kelm_spell_bytes(const char *bytes, size_t length, char *out, size_t size);

}  // namespace kelm
