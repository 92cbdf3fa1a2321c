// SPDX-License-Identifier: ISC
// Messages of the bus as bytes, written and taken apart without the code that is fuzzed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kelm_fuzz {

enum bus_type { BUS_HELLO, BUS_STATUS, BUS_DATA, BUS_PING, BUS_LOOKUP, BUS_INVOKE, BUS_ADD_OBJECT };
enum bus_attribute {
    BUS_ATTR_STATUS = 1,
    BUS_ATTR_OBJID = 3,
    BUS_ATTR_METHOD = 4,
    BUS_ATTR_DATA = 7,
    BUS_ATTR_NO_REPLY = 10
};
enum bus_member { BUS_TABLE = 2, BUS_STRING = 3, BUS_INT32 = 5 };

constexpr size_t BUS_PREFIX = 12;  // header and the head word of the body

struct bus_message {
    uint8_t version;
    uint8_t type;
    uint16_t seq;
    uint32_t peer;
    std::string children;
};

std::string number(uint32_t value);
// A string as it travels, with its zero byte.
std::string terminated(const std::string &text);
// One attribute with its padding.
std::string attribute(unsigned id, const std::string &payload);
// One named member with its padding.
std::string member(unsigned type, const std::string &name, const std::string &payload);
std::string message(unsigned type, uint16_t seq, uint32_t peer, const std::string &children);

// The payload of the last attribute of that id and length, or false. length 0: any that ends with a
// zero byte.
bool find_attribute(const bus_message &from, unsigned id, size_t length, std::string *payload);
// The same for a number, which is 0 when there is none.
uint32_t find_number(const bus_message &from, unsigned id);

// The whole messages at the front of a stream, and how many bytes they took. A length that may not
// be ends it.
struct bus_stream {
    std::vector<bus_message> messages;
    size_t used = 0;
};
bus_stream cut_messages(const std::string &bytes, size_t most = SIZE_MAX);

// Whether no message may have the length that stands at this place; at least 12 bytes are there.
bool has_impossible_length(const std::string &bytes, size_t at);

// Whether the stream consists of whole, sound messages of version 0 only.
bool is_whole(const bus_stream &stream, const std::string &bytes);

}  // namespace kelm_fuzz
