// SPDX-License-Identifier: ISC
// Way in: attributes of the bus (blob, blobmsg) and JSON, as the stand-in libraries read and write
// them.
//
// An input is a message ('0', the outermost number, 0x80 for one with a name header, the payload)
// or JSON text ('1'). Properties: no reader leaves the message, which lies in a block of exactly
// its size; a policy finds what a second walk over the bytes finds; a copy of a sound message is
// the same bytes; JSON holds what json-c holds, and comes out the same after another way there and
// back.
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
}

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/json_walk.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using kelm_fuzz::input;

namespace {

struct blob_buffer : blob_buf {
    blob_buffer() : blob_buf{} { PROPERTY(blob_buf_init(this, 0) == 0); }
    ~blob_buffer() { blob_buf_free(this); }
    std::string bytes() const
    {
        return std::string(reinterpret_cast<const char *>(head), blob_raw_len(head));
    }
};

struct freer {
    void operator()(void *block) const { free(block); }
};

std::string owned(char *text)
{
    PROPERTY(text != nullptr);
    const std::string copy = text;
    free(text);
    return copy;
}

// Written by hand, so that it shares nothing with the code that reads it.
std::unique_ptr<blob_attr, freer> message_of(unsigned id, const std::string &payload)
{
    const size_t length = sizeof(blob_attr) + payload.size();
    auto *bytes = static_cast<uint8_t *>(malloc(length));
    const uint8_t word[] = {static_cast<uint8_t>(id), static_cast<uint8_t>(length >> 16),
                            static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    memcpy(bytes, word, sizeof word);
    memcpy(bytes + sizeof word, payload.data(), payload.size());
    return std::unique_ptr<blob_attr, freer>(reinterpret_cast<blob_attr *>(bytes));
}

bool is_container(blob_attr *attr)
{
    return blobmsg_type(attr) == BLOBMSG_TYPE_TABLE || blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY;
}

// Reads whatever may be read of a sound member; the numbers must agree with their casts.
void read_member(blob_attr *attr)
{
    const char *name = blobmsg_name(attr);
    PROPERTY(strlen(name) <= blob_len(attr));
    switch (blobmsg_type(attr)) {
    case BLOBMSG_TYPE_STRING:
        PROPERTY(strlen(blobmsg_get_string(attr)) < blobmsg_data_len(attr));
        break;
    case BLOBMSG_TYPE_INT64:
        PROPERTY(blobmsg_cast_u64(attr) == blobmsg_get_u64(attr));
        break;
    case BLOBMSG_TYPE_INT32:
        PROPERTY(static_cast<uint32_t>(blobmsg_cast_s64(attr)) == blobmsg_get_u32(attr));
        break;
    case BLOBMSG_TYPE_INT16:
        PROPERTY(static_cast<uint16_t>(blobmsg_cast_s64(attr)) == blobmsg_get_u16(attr));
        break;
    case BLOBMSG_TYPE_INT8:
        PROPERTY(blobmsg_get_bool(attr) == (blobmsg_cast_u64(attr) != 0));
        break;
    case BLOBMSG_TYPE_DOUBLE:
        (void)blobmsg_get_double(attr);
        break;
    }
}

// Whether everything in the container is sound and the padding zero, so that a copy is the same
// bytes.
bool walk(blob_attr *container, int depth)
{
    bool sound = true;
    size_t used = 0;
    size_t rem;
    blob_attr *attr;
    blobmsg_for_each_attr(attr, container, rem)
    {
        used += blob_pad_len(attr);
        PROPERTY(used <= blobmsg_data_len(container));
        const bool good = blobmsg_check_attr_len(attr, false, rem) && blob_is_extended(attr);
        sound = sound && good;
        if (!good)
            continue;
        read_member(attr);
        if (is_container(attr))
            sound = walk(attr, depth + 1) && sound;
    }
    return sound && used == blobmsg_data_len(container);
}

// The first member of that name and type before the first malformed one, found on the bytes.
size_t position_by_hand(const std::string &payload, const std::string &name, int type)
{
    size_t at = 0;
    while (at + 4 <= payload.size()) {
        const auto *bytes = reinterpret_cast<const uint8_t *>(payload.data()) + at;
        const size_t length =
            static_cast<size_t>(bytes[1]) << 16 | static_cast<size_t>(bytes[2]) << 8 | bytes[3];
        const size_t padded = (length + 3) & ~static_cast<size_t>(3);
        if (padded < 4 || padded > payload.size() - at)
            break;
        const bool extended = (bytes[0] & 0x80) != 0;
        if (extended && !kelm_fuzz::is_sound_member(bytes, length))
            break;
        if (extended && (bytes[0] & 0x7f) == type && kelm_fuzz::member_name(bytes) == name)
            return at;
        at += padded;
    }
    return std::string::npos;
}

void check_policy(blob_attr *message, const std::string &payload)
{
    static const blobmsg_policy policy[] = {
        {"action", BLOBMSG_TYPE_INT32}, {"pin", BLOBMSG_TYPE_STRING}, {"data", BLOBMSG_TYPE_TABLE},
        {"pressed", BLOBMSG_TYPE_BOOL}, {"", BLOBMSG_TYPE_INT16},     {"a", BLOBMSG_TYPE_ARRAY},
    };
    constexpr int COUNT = sizeof policy / sizeof policy[0];
    blob_attr *found[COUNT];
    (void)blobmsg_parse(policy, COUNT, found, blob_data(message),
                        static_cast<unsigned>(blob_len(message)));
    const auto *start = static_cast<const char *>(blob_data(message));
    for (int i = 0; i < COUNT; ++i) {
        const size_t expected = position_by_hand(payload, policy[i].name, policy[i].type);
        const size_t at =
            found[i] == nullptr
                ? std::string::npos
                : static_cast<size_t>(reinterpret_cast<const char *>(found[i]) - start);
        PROPERTY(at == expected);
    }
}

void copy_container(blob_buf *into, blob_attr *container);

void copy_member(blob_buf *into, blob_attr *attr)
{
    if (!is_container(attr)) {
        PROPERTY(blobmsg_add_blob(into, attr) == 0);
        return;
    }
    const bool array = blobmsg_type(attr) == BLOBMSG_TYPE_ARRAY;
    void *open = array ? blobmsg_open_array(into, blobmsg_name(attr))
                       : blobmsg_open_table(into, blobmsg_name(attr));
    PROPERTY(open != nullptr);
    copy_container(into, attr);
    blobmsg_close_table(into, open);
}

void copy_container(blob_buf *into, blob_attr *container)
{
    size_t rem;
    blob_attr *attr;
    blobmsg_for_each_attr(attr, container, rem) copy_member(into, attr);
}

// A sound message survives being taken apart and put together; what it prints does so, too.
void check_copy(blob_attr *message)
{
    blob_buffer once;
    copy_container(&once, message);
    blob_buffer twice;
    copy_container(&twice, once.head);
    PROPERTY(once.bytes() == twice.bytes());
    PROPERTY(owned(blobmsg_format_json(message, true)) ==
             owned(blobmsg_format_json(once.head, true)));
}

void check_message(input &in)
{
    const unsigned id = in.byte();
    const std::string payload = in.rest();
    const auto message = message_of(id, payload);
    const bool sound = walk(message.get(), 0);
    check_policy(message.get(), payload);
    const std::string text = owned(blobmsg_format_json(message.get(), true));
    const std::string indented = owned(blobmsg_format_json_indent(message.get(), true, 0));
    PROPERTY(kelm_fuzz::without_blanks(indented) == text);
    free(blobmsg_format_json(message.get(), false));
    free(blobmsg_format_json_value(message.get()));
    if (sound && !blob_is_extended(message.get()))
        check_copy(message.get());
}

// Text that only this library writes: nothing of it may get lost on the way there and back.
void check_there_and_back(const std::string &text)
{
    blob_buffer read;
    PROPERTY(blobmsg_add_json_from_string(&read, text.c_str()));
    PROPERTY(owned(blobmsg_format_json(read.head, true)) == text);
}

void check_json(const std::string &text)
{
    blob_buffer read;
    const kelm_fuzz::json_text parsed(text);
    const bool added = blobmsg_add_json_from_string(&read, text.c_str());
    PROPERTY(added == parsed.is_object());
    if (!added) {
        PROPERTY(blob_raw_len(read.head) == sizeof(blob_attr));
        return;
    }
    PROPERTY(walk(read.head, 0));
    PROPERTY(parsed.same_as(read.head));
    if (parsed.can_be_written())
        check_there_and_back(owned(blobmsg_format_json(read.head, true)));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    input in(data, size);
    if (in.choice(2) == 0) {
        check_message(in);
        return 0;
    }
    const std::string text = in.rest();
    check_json(text.substr(0, text.find('\0')));
    return 0;
}
