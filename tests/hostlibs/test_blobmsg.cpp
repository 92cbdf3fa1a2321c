// SPDX-License-Identifier: ISC
// Named members: their bytes, reading them, and parsing with a policy.
#include "support.h"

#include <cerrno>
#include <cstring>

namespace {
using Adder = void (*)(blob_buf *b);

struct ByteRow {
    Adder add;
    const char *bytes;
};

const ByteRow kByteRows[] = {
    {[](blob_buf *b) { blobmsg_add_u8(b, "a", 1); }, "87000009 00016100 01000000"},
    {[](blob_buf *b) { blobmsg_add_u8(b, "ab", 0); }, "8700000d 00026162 00000000 00000000"},
    {[](blob_buf *b) { blobmsg_add_u16(b, "abc", 0x1234); }, "8600000e 00036162 63000000 12340000"},
    {[](blob_buf *b) { blobmsg_add_u32(b, "abcd", 11); }, "85000010 00046162 63640000 0000000b"},
    {[](blob_buf *b) { blobmsg_add_u32(b, "abcde", UINT32_MAX); },
     "85000010 00056162 63646500 ffffffff"},
    {[](blob_buf *b) { blobmsg_add_u64(b, "a", 0x100000000); },
     "84000010 00016100 00000001 00000000"},
    {[](blob_buf *b) { blobmsg_add_double(b, "a", 1.5); }, "88000010 00016100 3ff80000 00000000"},
    {[](blob_buf *b) { blobmsg_add_string(b, "a", "x"); }, "8300000a 00016100 78000000"},
    {[](blob_buf *b) { blobmsg_add_string(b, "a", ""); }, "83000009 00016100 00000000"},
    {[](blob_buf *b) { blobmsg_add_field(b, BLOBMSG_TYPE_UNSPEC, "a", nullptr, 0); },
     "80000008 00016100"},
    {[](blob_buf *b) { blobmsg_add_u8(b, nullptr, 1); }, "87000009 00000000 01000000"},
    {[](blob_buf *b) {
         void *t = blobmsg_open_table(b, "t");
         blobmsg_add_u32(b, "x", 1);
         blobmsg_close_table(b, t);
     },
     "82000014 00017400 8500000c 00017800 00000001"},
    {[](blob_buf *b) { blobmsg_close_table(b, blobmsg_open_table(b, "t")); }, "82000008 00017400"},
    {[](blob_buf *b) {
         void *l = blobmsg_open_array(b, "l");
         blobmsg_add_u8(b, nullptr, 1);
         blobmsg_add_string(b, nullptr, "s");
         blobmsg_close_array(b, l);
     },
     "81000020 00016c00 87000009 00000000 01000000 8300000a 00000000 73000000"},
    {[](blob_buf *b) {
         blobmsg_add_u8(b, "a", 1);
         blobmsg_add_u32(b, "c", 2);
     },
     "87000009 00016100 01000000 8500000c 00016300 00000002"},
};

blob_attr *find(const Buffer &buf, const char *name)
{
    blob_attr *pos = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(pos, buf.b.head, rem)
    {
        if (strcmp(blobmsg_name(pos), name) == 0)
            return pos;
    }
    return nullptr;
}

int parse(const char *children, const std::vector<blobmsg_policy> &policy, std::vector<bool> *found)
{
    RawMessage message(unhex(children));
    std::vector<blob_attr *> tb(policy.size(), message.head());  // dirt
    int result =
        blobmsg_parse(policy.data(), static_cast<int>(policy.size()), tb.data(),
                      blob_data(message.head()), static_cast<unsigned>(blob_len(message.head())));
    found->clear();
    for (const blob_attr *attr : tb)
        found->push_back(attr != nullptr);
    return result;
}

using Found = std::vector<bool>;
}  // namespace

TEST(blobmsg, members_have_exactly_these_bytes)
{
    for (const ByteRow &row : kByteRows) {
        Buffer buf;
        row.add(&buf.b);
        EXPECT_EQ(row.bytes, buf.children());
        EXPECT_EQ((blob_len(buf.b.head) + 3) / 4 * 4 + 4, blob_raw_len(buf.b.head));
    }
}

TEST(blobmsg, all_the_members_one_after_the_other_are_the_same_bytes)
{
    Buffer buf;
    std::string all;
    for (const ByteRow &row : kByteRows) {
        row.add(&buf.b);
        all += (all.empty() ? "" : " ") + std::string(row.bytes);
    }
    EXPECT_EQ(all, buf.children());
}

TEST(blobmsg, values_come_back)
{
    Buffer buf;
    blobmsg_add_u8(&buf.b, "u8", 11);
    blobmsg_add_u16(&buf.b, "u16", 0xfffe);
    blobmsg_add_u32(&buf.b, "u32", 0xfffffffd);
    blobmsg_add_u64(&buf.b, "u64", 0xfffffffffffffffc);
    blobmsg_add_double(&buf.b, "double", -2.25);
    blobmsg_add_string(&buf.b, "string", "text");
    EXPECT_EQ(11, blobmsg_get_u8(find(buf, "u8")));
    EXPECT_TRUE(blobmsg_get_bool(find(buf, "u8")));
    EXPECT_EQ(0xfffe, blobmsg_get_u16(find(buf, "u16")));
    EXPECT_EQ(0xfffffffd, blobmsg_get_u32(find(buf, "u32")));
    EXPECT_EQ(0xfffffffffffffffc, blobmsg_get_u64(find(buf, "u64")));
    EXPECT_EQ(-2.25, blobmsg_get_double(find(buf, "double")));
    EXPECT_STREQ("text", blobmsg_get_string(find(buf, "string")));
    EXPECT_EQ(BLOBMSG_TYPE_INT16, blobmsg_type(find(buf, "u16")));
}

TEST(blobmsg, casts_look_at_the_type)
{
    Buffer buf;
    blobmsg_add_u8(&buf.b, "u8", 0xff);
    blobmsg_add_u16(&buf.b, "u16", 0xffff);
    blobmsg_add_u32(&buf.b, "u32", 0xffffffff);
    blobmsg_add_u64(&buf.b, "u64", UINT64_MAX);
    blobmsg_add_string(&buf.b, "string", "7");
    for (const char *name : {"u8", "u16", "u32", "u64"})
        EXPECT_EQ(-1, blobmsg_cast_s64(find(buf, name))) << name;
    EXPECT_EQ(0xffu, blobmsg_cast_u64(find(buf, "u8")));
    EXPECT_EQ(0xffffu, blobmsg_cast_u64(find(buf, "u16")));
    EXPECT_EQ(0xffffffffu, blobmsg_cast_u64(find(buf, "u32")));
    EXPECT_EQ(UINT64_MAX, blobmsg_cast_u64(find(buf, "u64")));
    EXPECT_EQ(0u, blobmsg_cast_u64(find(buf, "string")));
    EXPECT_EQ(0, blobmsg_cast_s64(find(buf, "string")));
}

TEST(blobmsg, nothing_has_no_data_and_no_string)
{
    EXPECT_EQ(nullptr, blobmsg_data(nullptr));
    EXPECT_EQ(0u, blobmsg_data_len(nullptr));
    EXPECT_EQ(nullptr, blobmsg_get_string(nullptr));
}

TEST(blobmsg, the_data_of_a_message_is_the_data_of_its_blob)
{
    Buffer buf;
    blobmsg_add_u8(&buf.b, "a", 1);
    EXPECT_EQ(blob_data(buf.b.head), blobmsg_data(buf.b.head));
    EXPECT_EQ(blob_len(buf.b.head), blobmsg_data_len(buf.b.head));
    EXPECT_EQ(blobmsg_len(buf.first()), blobmsg_data_len(buf.first()));
}

TEST(blobmsg, a_member_can_be_copied_from_one_message_into_another)
{
    Buffer from, to;
    void *t = blobmsg_open_table(&from.b, "t");
    blobmsg_add_u32(&from.b, "x", 1);
    blobmsg_close_table(&from.b, t);
    EXPECT_EQ(0, blobmsg_add_blob(&to.b, from.first()));
    EXPECT_EQ(from.children(), to.children());
    blob_buf_init(&to.b, 0);
    blobmsg_add_field(&to.b, BLOBMSG_TYPE_TABLE, "data", blob_data(from.b.head),
                      static_cast<unsigned>(blob_len(from.b.head)));
    EXPECT_EQ("82000020 00046461 74610000 " + from.children(), to.children());
}

TEST(blobmsg, a_name_header_longer_than_the_member_gives_no_data)
{
    RawMessage message(unhex("8500000c 00ff6100 00000001"));
    blob_attr *attr = blob_at(blob_data(message.head()));
    EXPECT_EQ(0u, blobmsg_data_len(attr));
    blob_attr *pos = nullptr;
    size_t rem = 0;
    int count = 0;
    blobmsg_for_each_attr(pos, attr, rem) count++;
    EXPECT_EQ(0, count);
}

TEST(blobmsg, parsing_no_members_fails_and_clears_the_table)
{
    const blobmsg_policy policy = {"a", BLOBMSG_TYPE_INT32};
    Found found;
    EXPECT_EQ(-EINVAL, parse("", {policy}, &found));
    EXPECT_EQ(Found{false}, found);
    blob_attr *tb[1] = {blob_at(&found)};
    EXPECT_EQ(-EINVAL, blobmsg_parse(&policy, 1, tb, nullptr, 5));
    EXPECT_EQ(nullptr, tb[0]);
}

TEST(blobmsg, a_policy_takes_what_fits_it_and_nothing_else)
{
    const char *u8 = "87000009 00016100 01000000", *u16 = "8600000a 00016100 00010000";
    const char *u32 = "8500000c 00016100 00000001", *u64 = "84000010 00016100 00000000 00000001";
    const char *dbl = "88000010 00016100 3ff80000 00000000", *str = "8300000a 00016100 35000000";
    const char *null = "80000008 00016100";
    const struct {
        const char *child;
        enum blobmsg_type type;
        bool taken;
    } rows[] = {
        {u32, BLOBMSG_TYPE_INT32, true},   {u8, BLOBMSG_TYPE_INT32, false},
        {u16, BLOBMSG_TYPE_INT32, false},  {u64, BLOBMSG_TYPE_INT32, false},
        {str, BLOBMSG_TYPE_INT32, false},  {u32, BLOBMSG_TYPE_BOOL, false},
        {u8, BLOBMSG_TYPE_BOOL, true},     {u8, BLOBMSG_TYPE_UNSPEC, true},
        {str, BLOBMSG_TYPE_UNSPEC, true},  {null, BLOBMSG_TYPE_UNSPEC, true},
        {u8, BLOBMSG_CAST_INT64, true},    {u16, BLOBMSG_CAST_INT64, true},
        {u32, BLOBMSG_CAST_INT64, true},   {u64, BLOBMSG_CAST_INT64, true},
        {dbl, BLOBMSG_CAST_INT64, false},  {str, BLOBMSG_CAST_INT64, false},
        {null, BLOBMSG_TYPE_INT32, false}, {dbl, BLOBMSG_TYPE_DOUBLE, true},
    };
    for (const auto &row : rows) {
        Found found;
        EXPECT_EQ(0, parse(row.child, {{"a", row.type}}, &found)) << row.child;
        EXPECT_EQ(Found{row.taken}, found) << row.child << " as " << row.type;
    }
}

TEST(blobmsg, unknown_and_missing_members_are_no_error)
{
    Found found;
    EXPECT_EQ(0, parse("87000009 00016200 01000000",
                       {{"a", BLOBMSG_TYPE_INT32}, {nullptr, BLOBMSG_TYPE_UNSPEC}}, &found));
    EXPECT_EQ((Found{false, false}), found);
}

TEST(blobmsg, names_are_compared_whole_and_with_their_case)
{
    for (const char *name : {"ab", "A", "", "b"}) {
        Found found;
        EXPECT_EQ(0, parse("8500000c 00016100 00000001", {{name, BLOBMSG_TYPE_INT32}}, &found));
        EXPECT_EQ(Found{false}, found) << name;
    }
}

TEST(blobmsg, policy_names_over_255_characters_never_match)
{
    for (size_t len : {255, 256}) {
        Buffer buf;
        std::string name(len, 'n');
        blobmsg_add_u32(&buf.b, name.c_str(), 1);
        blobmsg_policy policy = {name.c_str(), BLOBMSG_TYPE_INT32};
        blob_attr *tb[1];
        EXPECT_EQ(0, blobmsg_parse_attr(&policy, 1, tb, buf.b.head));
        EXPECT_EQ(len == 255, tb[0] != nullptr) << len;
    }
}

TEST(blobmsg, of_two_members_the_first_of_the_right_type_counts)
{
    Buffer buf;
    blobmsg_add_string(&buf.b, "a", "5");
    blobmsg_add_u32(&buf.b, "a", 1);
    blobmsg_add_u32(&buf.b, "a", 2);
    const blobmsg_policy policy[] = {{"a", BLOBMSG_TYPE_INT32}, {"a", BLOBMSG_TYPE_STRING}};
    blob_attr *tb[2];
    ASSERT_EQ(0, blobmsg_parse_attr(policy, 2, tb, buf.b.head));
    ASSERT_TRUE(tb[0] && tb[1]);
    EXPECT_EQ(1u, blobmsg_get_u32(tb[0]));
    EXPECT_STREQ("5", blobmsg_get_string(tb[1]));
}

TEST(blobmsg, a_malformed_member_ends_the_parse_and_what_was_found_stays)
{
    const char *broken[] = {
        "8500000b 00017a00 00000100",  // three bytes of an INT32
        "87000008 00017a00",           // no byte of an INT8
        "8300000a 00017a00 78780000",  // no final NUL
        "83000008 00017a00",           // not even an empty string
        "8800000c 00017a00 3ff80000",  // half a double
        "89000009 00017a00 01000000",  // type 9
        "8500000c 00207a00 00000001",  // name longer than the member
        "8500000c 00017a41 00000001",  // name without NUL
        "85000004",                    // no name header at all
    };
    for (const char *child : broken) {
        Found found;
        std::string children =
            std::string("87000009 00016100 01000000 ") + child + " 87000009 00016200 01000000";
        EXPECT_EQ(-1, parse(children.c_str(), {{"a", BLOBMSG_TYPE_INT8}, {"b", BLOBMSG_TYPE_INT8}},
                            &found))
            << child;
        EXPECT_EQ((Found{true, false}), found) << child;
    }
}

TEST(blobmsg, a_child_without_a_name_header_is_skipped)
{
    Found found;
    EXPECT_EQ(0, parse("05000008 00000001 87000009 00016100 01000000", {{"a", BLOBMSG_TYPE_INT8}},
                       &found));
    EXPECT_EQ(Found{true}, found);
}

TEST(blobmsg, a_string_with_an_inner_nul_reads_as_its_first_part)
{
    Buffer buf;
    blobmsg_add_field(&buf.b, BLOBMSG_TYPE_STRING, "a", "x\0y", 4);
    const blobmsg_policy policy = {"a", BLOBMSG_TYPE_STRING};
    blob_attr *tb[1];
    ASSERT_EQ(0, blobmsg_parse_attr(&policy, 1, tb, buf.b.head));
    ASSERT_NE(nullptr, tb[0]);
    EXPECT_STREQ("x", blobmsg_get_string(tb[0]));
}

TEST(blobmsg, adding_beyond_the_limit_fails_and_keeps_what_was_there)
{
    Buffer buf;
    std::string big(16000000, 'x');  // NOLINT(bugprone-string-constructor): near the limit
    EXPECT_EQ(0, blobmsg_add_string(&buf.b, "a", big.c_str()));
    EXPECT_EQ(-1, blobmsg_add_string(&buf.b, "b", big.c_str()));
    EXPECT_EQ(0, blobmsg_add_u8(&buf.b, "c", 1));
    EXPECT_NE(nullptr, find(buf, "c"));
}

// Every single-byte change of a real message: nothing may be read outside of it. The sanitizer
// build is what sees such a read; here the walk has to end and to stay inside.
TEST(blobmsg, no_changed_byte_makes_a_reader_leave_the_message)
{
    Buffer buf;
    for (const ByteRow &row : kByteRows)
        row.add(&buf.b);
    const auto *raw = static_cast<const uint8_t *>(blob_data(buf.b.head));
    const Bytes good(raw, raw + blob_len(buf.b.head));
    for (size_t i = 0; i < good.size(); i++) {
        for (int value : {0x00, 0x01, 0x7f, 0x80, 0xff}) {
            Bytes bad = good;
            bad[i] = static_cast<uint8_t>(value);
            RawMessage message(bad);
            const char *end = reinterpret_cast<char *>(message.head()) + 4 + bad.size();
            const blobmsg_policy policy = {"zz", BLOBMSG_TYPE_STRING};
            blob_attr *tb[1], *pos = nullptr;
            size_t rem = 0;
            blobmsg_parse(&policy, 1, tb, blob_data(message.head()),
                          static_cast<unsigned>(blob_len(message.head())));
            blobmsg_for_each_attr(pos, message.head(), rem)
            {
                ASSERT_LE(static_cast<char *>(blobmsg_data(pos)) + blobmsg_data_len(pos), end);
                ASSERT_LE(blobmsg_name(pos), end);
            }
        }
    }
}
