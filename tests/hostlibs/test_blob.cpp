// SPDX-License-Identifier: ISC
// Plain attributes: the buffer, its limits, and children that lie about their length.
#include "support.h"

TEST(blob, an_empty_message_is_one_head_word)
{
    Buffer buf;
    EXPECT_EQ("00000004", hex(buf.b.head, blob_raw_len(buf.b.head)));
}

TEST(blob, init_starts_over_and_keeps_the_allocation)
{
    Buffer buf;
    blob_put_u32(&buf.b, 1, 7);
    void *memory = buf.b.buf;
    EXPECT_EQ(0, blob_buf_init(&buf.b, 2));
    EXPECT_EQ(memory, buf.b.buf);
    EXPECT_EQ("02000004", hex(buf.b.head, blob_raw_len(buf.b.head)));
}

TEST(blob, free_is_harmless_when_repeated_and_the_buffer_can_be_used_again)
{
    Buffer buf;
    blob_buf_free(&buf.b);
    EXPECT_EQ(nullptr, buf.b.buf);
    EXPECT_EQ(nullptr, buf.b.head);
    EXPECT_EQ(0, buf.b.buflen);
    blob_buf_free(&buf.b);
    ASSERT_EQ(0, blob_buf_init(&buf.b, 0));
    EXPECT_NE(nullptr, blob_put_u32(&buf.b, 1, 1));
}

TEST(blob, strings_count_their_nul_and_are_padded_with_zeros)
{
    Buffer buf;
    blob_put(&buf.b, 9, "\xff\xff\xff\xff\xff\xff\xff\xff", 8);  // dirt for the padding
    blob_buf_init(&buf.b, 0);
    blob_put_string(&buf.b, 4, "register");
    EXPECT_EQ("0400000d 72656769 73746572 00000000", buf.children());
    blob_buf_init(&buf.b, 0);
    blob_put_u8(&buf.b, 9, 1);
    EXPECT_EQ("09000005 01000000", buf.children());
}

TEST(blob, a_container_counts_the_padding_of_its_last_child)
{
    Buffer buf;
    void *cookie = blob_nest_start(&buf.b, 7);
    blob_put_u8(&buf.b, 1, 2);
    blob_nest_end(&buf.b, cookie);
    EXPECT_EQ("0700000c 01000005 02000000", buf.children());
    EXPECT_EQ(16u, blob_raw_len(buf.b.head));
}

TEST(blob, growing_moves_everything_along)
{
    Buffer buf;
    void *outer = blob_nest_start(&buf.b, 7);
    void *inner = blob_nest_start(&buf.b, 6);
    for (uint32_t i = 0; i < 1000; i++)
        ASSERT_NE(nullptr, blob_put_u32(&buf.b, 3, i));
    blob_nest_end(&buf.b, inner);
    blob_nest_end(&buf.b, outer);
    EXPECT_EQ(4u + 4 + 4 + 8000, blob_raw_len(buf.b.head));
    EXPECT_EQ(8000u, blob_len(blob_at(blob_data(buf.first()))));
}

TEST(blob, the_largest_payload_is_16777200_bytes)
{
    Buffer buf;
    std::vector<char> data(16777201);
    EXPECT_EQ(nullptr, blob_put(&buf.b, 1, data.data(), 16777201));
    EXPECT_NE(nullptr, blob_put(&buf.b, 1, data.data(), 16777200));
    EXPECT_EQ(nullptr, blob_put(&buf.b, 1, data.data(), 1));
    EXPECT_EQ(nullptr, blob_put(&buf.b, 1, data.data(), 0xffffffffu));
}

static int count_children(RawMessage &message)
{
    blob_attr *pos = nullptr;
    size_t rem = 0;
    int count = 0;
    blob_for_each_attr(pos, message.head(), rem) count++;
    return count;
}

TEST(blob, iteration_never_leaves_the_container)
{
    const struct {
        const char *children;
        int count;
    } rows[] = {
        {"", 0},
        {"01000008 00000001", 1},
        {"01000008 00000001 02000005 01000000", 2},
        {"01000008 00000001 02000003", 2},  // shorter than its head word, padded to one
        {"01000008 00000001 02000000", 1},
        {"01000009 00000001", 0},  // longer than what is left
        {"01ffffff 00000001", 0},
        {"01000005 01", 0},    // its padding is missing
        {"01000004 0200", 1},  // half a head word
    };
    for (const auto &row : rows) {
        RawMessage message(unhex(row.children));
        EXPECT_EQ(row.count, count_children(message)) << row.children;
    }
}

TEST(blob, iteration_over_nothing_has_no_rounds)
{
    blob_attr *pos = nullptr;
    size_t rem = 7;
    int count = 0;
    blob_for_each_attr(pos, static_cast<blob_attr *>(nullptr), rem) count++;
    EXPECT_EQ(0, count);
}

TEST(blob, iteration_takes_an_int_for_the_rest_too)
{
    RawMessage message(unhex("01000008 00000001 02000004"));
    blob_attr *pos = nullptr;
    int rem = static_cast<int>(blob_len(message.head()));
    int count = 0;
    __blob_for_each_attr(pos, blob_data(message.head()), rem) count++;
    EXPECT_EQ(2, count);
}

TEST(blob, a_head_word_below_four_has_no_payload)
{
    blob_attr attr{htobe32(0x01000002)};
    EXPECT_EQ(0u, blob_len(&attr));
    EXPECT_EQ(2u, blob_raw_len(&attr));
}

TEST(blob, payload_kinds_check_their_sizes)
{
    EXPECT_TRUE(blob_check_type("ab", 3, BLOB_ATTR_STRING));
    EXPECT_FALSE(blob_check_type("ab", 2, BLOB_ATTR_STRING));
    EXPECT_FALSE(blob_check_type("", 0, BLOB_ATTR_STRING));
    EXPECT_TRUE(blob_check_type("abcd", 4, BLOB_ATTR_INT32));
    EXPECT_FALSE(blob_check_type("abcd", 5, BLOB_ATTR_INT32));
    EXPECT_FALSE(blob_check_type("abcdefg", 7, BLOB_ATTR_DOUBLE));
    EXPECT_TRUE(blob_check_type("", 0, BLOB_ATTR_NESTED));
    EXPECT_FALSE(blob_check_type("", 0, BLOB_ATTR_LAST));
}
