// SPDX-License-Identifier: ISC
// A second opinion on JSON and on single members, for the target of the bus attributes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

struct blob_attr;
struct json_object;

namespace kelm_fuzz {

// Whether length bytes, which begin with their head word, are one member with a name header.
bool is_sound_member(const uint8_t *bytes, size_t length);
// The name of a sound member, up to its counted length.
std::string member_name(const uint8_t *bytes);

// Takes the blanks out that stand outside of strings.
std::string without_blanks(const std::string &json);

// What json-c makes of a text.
class json_text {
public:
    explicit json_text(const std::string &text);
    ~json_text();
    json_text(const json_text &) = delete;
    json_text &operator=(const json_text &) = delete;

    bool is_object() const;
    // Whether the container holds these members, in this order, with these values.
    bool same_as(blob_attr *container) const;
    // Whether its members can be told apart in JSON again: no empty name, no number that is none.
    bool can_be_written() const;

private:
    json_object *object_;
};

}  // namespace kelm_fuzz
