// SPDX-License-Identifier: ISC
// The byte format of bus messages, from the outside.
#include "tests/fuzz/bus_bytes.h"

#include <algorithm>

namespace kelm_fuzz {

namespace {

constexpr size_t HEADER = 8;
constexpr size_t LONGEST_BODY = 1024 * 1024;

uint32_t number_at(const std::string &bytes, size_t at)
{
    uint32_t value = 0;
    for (size_t i = 0; i < 4; ++i)
        value = value << 8 | static_cast<uint8_t>(bytes[at + i]);
    return value;
}

size_t padded(size_t length)
{
    return (length + 3) & ~static_cast<size_t>(3);
}

std::string with_padding(std::string bytes)
{
    bytes.resize(padded(bytes.size()), '\0');
    return bytes;
}

// The length of the body, or 0 when no message has such a one.
size_t body_length(const std::string &bytes, size_t at)
{
    const size_t length = number_at(bytes, at + HEADER) & 0xffffff;
    return length < 4 || padded(length) > LONGEST_BODY ? 0 : length;
}

bool has_kind(const std::string &payload, size_t length)
{
    return length == 0 ? !payload.empty() && payload.back() == '\0' : payload.size() == length;
}

}  // namespace

std::string number(uint32_t value)
{
    const char bytes[] = {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
                          static_cast<char>(value >> 8), static_cast<char>(value)};
    return std::string(bytes, sizeof bytes);
}

std::string terminated(const std::string &text)
{
    return text + '\0';
}

std::string attribute(unsigned id, const std::string &payload)
{
    return with_padding(number(id << 24 | static_cast<uint32_t>(4 + payload.size())) + payload);
}

std::string member(unsigned type, const std::string &name, const std::string &payload)
{
    const std::string length = number(static_cast<uint32_t>(name.size())).substr(2);
    return attribute(0x80 | type, with_padding(length + terminated(name)) + payload);
}

std::string message(unsigned type, uint16_t seq, uint32_t peer, const std::string &children)
{
    const uint32_t first = type << 16 | seq;
    return number(first) + number(peer) + number(static_cast<uint32_t>(4 + children.size())) +
           children;
}

bool find_attribute(const bus_message &from, unsigned id, size_t length, std::string *payload)
{
    bool found = false;
    const std::string &bytes = from.children;
    for (size_t at = 0; at + 4 <= bytes.size();) {
        const uint32_t word = number_at(bytes, at);
        const size_t size = word & 0xffffff;
        if (size < 4 || padded(size) > bytes.size() - at)
            break;
        const std::string here = bytes.substr(at + 4, size - 4);
        if ((word >> 24 & 0x7f) == id && has_kind(here, length)) {
            *payload = here;
            found = true;
        }
        at += padded(size);
    }
    return found;
}

uint32_t find_number(const bus_message &from, unsigned id)
{
    std::string payload;
    return find_attribute(from, id, 4, &payload) ? number_at(payload, 0) : 0;
}

bool has_impossible_length(const std::string &bytes, size_t at)
{
    return body_length(bytes, at) == 0;
}

bus_stream cut_messages(const std::string &bytes, size_t most)
{
    bus_stream stream;
    while (stream.messages.size() < most && bytes.size() - stream.used >= BUS_PREFIX) {
        const size_t at = stream.used;
        const size_t body = body_length(bytes, at);
        if (body == 0 || body > bytes.size() - at - HEADER)
            break;
        const uint32_t first = number_at(bytes, at);
        stream.messages.push_back({static_cast<uint8_t>(first >> 24),
                                   static_cast<uint8_t>(first >> 16), static_cast<uint16_t>(first),
                                   number_at(bytes, at + 4),
                                   bytes.substr(at + BUS_PREFIX, body - 4)});
        stream.used += HEADER + body;
    }
    return stream;
}

bool is_whole(const bus_stream &stream, const std::string &bytes)
{
    return stream.used == bytes.size() &&
           std::all_of(stream.messages.begin(), stream.messages.end(),
                       [](const bus_message &m) { return m.version == 0; });
}

}  // namespace kelm_fuzz
