// SPDX-License-Identifier: ISC
// Way in: JSON text of any kind, as every file, message and scan list goes through.
//
// Properties: the library's answer to the pieces is its answer to the whole text, with the zero
// byte at the end and without; nothing is said of memory; no byte behind the length is read.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "core/json_text.h"
#include "tests/fuzz/fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using kelm::unique_json;

unique_json parse_at_once(const char *text, size_t length)
{
    json_tokener *tokener = json_tokener_new();
    unique_json parsed(json_tokener_parse_ex(tokener, text, static_cast<int>(length)));
    json_tokener_free(tokener);
    return parsed;
}

std::string text_of(const unique_json &object)
{
    if (!object)
        return "nothing";
    size_t length = 0;
    const char *text =
        json_object_to_json_string_length(object.get(), JSON_C_TO_STRING_PLAIN, &length);
    return std::string(text, length);
}

// A copy of its own size, so that the sanitizer sees a read behind it.
void check(const char *bytes, size_t length)
{
    const std::unique_ptr<char[]> text(new char[length]);
    memcpy(text.get(), bytes, length);
    bool no_memory = true;
    const unique_json in_pieces = kelm::kelm_parse_json(text.get(), length, &no_memory);
    const unique_json at_once = parse_at_once(text.get(), length);
    PROPERTY(!no_memory);
    PROPERTY(!in_pieces == !at_once);
    PROPERTY(json_object_get_type(in_pieces.get()) == json_object_get_type(at_once.get()));
    PROPERTY(text_of(in_pieces) == text_of(at_once));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    check(text.data(), text.size());
    check(text.c_str(), text.size() + 1);
    return 0;
}
