// SPDX-License-Identifier: ISC
// JSON text out of messages and messages out of JSON text.
#include "support.h"

#include <cmath>
#include <cstdlib>

extern "C" {
#include <libubox/blobmsg_json.h>
}

namespace {
std::string take(char *text)
{
    std::string copy = text ? text : "(null)";
    free(text);
    return copy;
}

std::string list(const Buffer &buf)
{
    return take(blobmsg_format_json(buf.b.head, true));
}

std::string list(const char *children, uint32_t id = 0)
{
    RawMessage message(unhex(children), id);
    return take(blobmsg_format_json(message.head(), true));
}

std::string single(const char *children, uint32_t id)
{
    RawMessage message(unhex(children), id);
    return take(blobmsg_format_json(message.head(), false));
}

std::string types_of(const char *json)
{
    Buffer buf;
    if (!blobmsg_add_json_from_string(&buf.b, json))
        return "refused";
    std::string types;
    blob_attr *pos = nullptr;
    size_t rem = 0;
    blobmsg_for_each_attr(pos, buf.b.head, rem) types +=
        std::string(blobmsg_name(pos)) + std::to_string(blobmsg_type(pos)) + " ";
    return types;
}

std::string round_trip(const std::string &json)
{
    Buffer buf;
    if (!blobmsg_add_json_from_string(&buf.b, json.c_str()))
        return "refused";
    return list(buf);
}
}  // namespace

TEST(json, every_value_has_its_form)
{
    Buffer buf;
    void *array = blobmsg_open_array(&buf.b, "v");
    blobmsg_add_u8(&buf.b, nullptr, 0);
    blobmsg_add_u8(&buf.b, nullptr, 11);
    blobmsg_add_u16(&buf.b, nullptr, 1);
    blobmsg_add_u16(&buf.b, nullptr, 65535);
    blobmsg_add_u16(&buf.b, nullptr, 32768);
    blobmsg_add_u32(&buf.b, nullptr, 4294967295u);
    blobmsg_add_u64(&buf.b, nullptr, 5000000000u);
    blobmsg_add_double(&buf.b, nullptr, 1.5);
    blobmsg_add_double(&buf.b, nullptr, 1e20);
    blobmsg_add_double(&buf.b, nullptr, -0.0);
    blobmsg_add_double(&buf.b, nullptr, NAN);
    blobmsg_add_double(&buf.b, nullptr, -INFINITY);
    blobmsg_add_string(&buf.b, nullptr, "");
    blobmsg_add_field(&buf.b, BLOBMSG_TYPE_UNSPEC, nullptr, "junk", 4);
    blobmsg_close_array(&buf.b, array);
    EXPECT_EQ(
        "{\"v\":[false,true,1,-1,-32768,-1,5000000000,1.500000,"
        "100000000000000000000.000000,-0.000000,nan,-inf,\"\",null]}",
        list(buf));
}

TEST(json, the_largest_double_fits)
{
    Buffer buf;
    blobmsg_add_double(&buf.b, "d", 1.7976931348623157e308);
    EXPECT_EQ(309u + 7 + 6, list(buf).size());
}

TEST(json, strings_and_names_escape_exactly_this)
{
    Buffer buf;
    const char *text = "a\"b\\c/d\b\f\n\r\t\x01\x1f\x7f\xc3\xa9";
    blobmsg_add_string(&buf.b, "s", text);
    blobmsg_add_u8(&buf.b, "n\"\n", 1);
    EXPECT_EQ(
        "{\"s\":\"a\\\"b\\\\c/d\\b\\u000c\\n\\r\\t\\u0001\\u001f\x7f\xc3\xa9\","
        "\"n\\\"\\n\":true}",
        list(buf));
}

TEST(json, containers_nest_and_empty_ones_stay_empty)
{
    const char *text = "{\"t\":{\"x\":1,\"arr\":[1,\"two\",3]},\"e\":{},\"f\":[]}";
    EXPECT_EQ(text, round_trip(text));
}

TEST(json, the_indented_form_breaks_lines_inside_empty_containers_too)
{
    Buffer buf;
    blobmsg_add_u32(&buf.b, "a", 1);
    blobmsg_close_table(&buf.b, blobmsg_open_table(&buf.b, "c"));
    EXPECT_EQ("{\n\t\"a\": 1,\n\t\"c\": {\n\t\t\n\t}\n}",
              take(blobmsg_format_json_indent(buf.b.head, true, 0)));
    blob_buf_init(&buf.b, 0);
    EXPECT_EQ("{\n\t\t\n\t}", take(blobmsg_format_json_indent(buf.b.head, true, 1)));
}

TEST(json, duplicates_print_twice_and_nameless_members_without_a_name)
{
    Buffer buf;
    blobmsg_add_u32(&buf.b, "a", 1);
    blobmsg_add_u32(&buf.b, "a", 2);
    blobmsg_add_u32(&buf.b, nullptr, 7);
    EXPECT_EQ("{\"a\":1,\"a\":2,7}", list(buf));
}

TEST(json, a_malformed_child_prints_nothing_but_its_comma)
{
    const char *a = "8500000c 00016100 00000001 ", *z = " 8500000c 00017a00 00000002";
    for (const char *bad : {"8500000b 00016200 00000100", "8300000a 00016200 78780000",
                            "89000009 00016200 01000000", "8500000c 00ff6200 00000001"})
        EXPECT_EQ("{\"a\":1,,\"z\":2}", list((a + std::string(bad) + z).c_str())) << bad;
}

TEST(json, messages_print_by_their_kind)
{
    const char *x = "8500000c 00017800 00000001";
    EXPECT_EQ("{}", list("", 0));
    EXPECT_EQ("null", single("", 0));
    EXPECT_EQ("{}", list("", 2));
    EXPECT_EQ("{}", single("", 2));
    EXPECT_EQ("{\"x\":1}", list(x, 7));
    EXPECT_EQ("", single(x, 7));
    EXPECT_EQ("{}", list("", 7));
    EXPECT_EQ("(null)", single("", 7));
}

TEST(json, one_element_prints_with_its_name_or_as_a_value)
{
    Buffer buf;
    void *array = blobmsg_open_array(&buf.b, "l");
    blobmsg_add_u8(&buf.b, nullptr, 1);
    blobmsg_close_array(&buf.b, array);
    EXPECT_EQ("\"l\":[true]", take(blobmsg_format_json(buf.first(), false)));
    EXPECT_EQ("[true]", take(blobmsg_format_json(buf.first(), true)));
    EXPECT_EQ("[true]", take(blobmsg_format_json_value(buf.first())));
}

TEST(json, the_callback_sees_every_element_and_replaces_what_it_wants)
{
    Buffer buf;
    blobmsg_add_u8(&buf.b, "n", 11);
    void *table = blobmsg_open_table(&buf.b, "t");
    blobmsg_add_string(&buf.b, "key", "secret");
    blobmsg_close_table(&buf.b, table);
    std::string seen;
    auto callback = [](void *priv, blob_attr *attr) -> const char * {
        *static_cast<std::string *>(priv) += std::string(blobmsg_name(attr)) + " ";
        if (blobmsg_type(attr) == BLOBMSG_TYPE_INT8)
            return "11";
        return blobmsg_type(attr) == BLOBMSG_TYPE_STRING ? "" : nullptr;
    };
    EXPECT_EQ("{\"n\":11,\"t\":{\"key\":}}",
              take(blobmsg_format_json_with_cb(buf.b.head, true, callback, &seen, -1)));
    EXPECT_EQ("n t key ", seen);
}

TEST(json, a_message_of_nothing_but_brackets_does_not_exhaust_the_stack)
{
    constexpr size_t size = 1048576;  // each container takes eight bytes and holds the next one
    std::vector<uint32_t> words(size / 4);
    words[0] = htobe32(size);
    for (size_t at = 4; at + 8 <= size; at += 8) {
        words[at / 4] = htobe32(0x81000000u | static_cast<uint32_t>(size - at));
        words[at / 4 + 1] = 0;
    }
    std::string text = take(blobmsg_format_json(blob_at(words.data()), true));
    EXPECT_EQ("{[[[", text.substr(0, 4));
    EXPECT_LT(text.size(), 3000u);
}

TEST(json, numbers_take_the_smallest_type_that_senders_use)
{
    EXPECT_EQ("a5 b5 c4 d4 e4 ", types_of("{\"a\":2147483647,\"b\":-2147483648,\"c\":2147483648,"
                                          "\"d\":-2147483649,\"e\":99999999999999999999}"));
    EXPECT_EQ("{\"e\":9223372036854775807}", round_trip("{\"e\":99999999999999999999}"));
    EXPECT_EQ("a8 b8 ", types_of("{\"a\":1.0,\"b\":1e3}"));
    EXPECT_EQ("{\"a\":0}", round_trip("{\"a\":-0}"));
}

TEST(json, the_other_values_have_one_type_each)
{
    EXPECT_EQ("t7 f7 s3 n0 o2 l1 ",
              types_of("{\"t\":true,\"f\":false,\"s\":\"x\",\"n\":null,\"o\":{},\"l\":[]}"));
    EXPECT_EQ("{\"s\":\"\xc3\xa9\"}", round_trip("{\"s\":\"\\u00e9\"}"));
    EXPECT_EQ("{\"s\":\"a\"}", round_trip("{\"s\":\"a\\u0000b\"}"));
}

TEST(json, of_two_equal_names_the_last_value_counts_at_the_first_position)
{
    EXPECT_EQ("{\"a\":3,\"b\":2}", round_trip("{\"a\":1,\"b\":2,\"a\":3}"));
}

TEST(json, anything_but_an_object_is_refused_and_adds_nothing)
{
    for (const char *text : {"", "[1]", "1", "\"x\"", "null", "{", "{a:1}", "{\"a\":+1}",
                             "{\"a\":.5}", "{\"a\":0x10}", "{\"a\"}", "nonsense"}) {
        Buffer buf;
        EXPECT_FALSE(blobmsg_add_json_from_string(&buf.b, text)) << text;
        EXPECT_EQ(0u, blob_len(buf.b.head)) << text;
    }
}

TEST(json, deeply_nested_text_is_refused)
{
    std::string text;
    for (int i = 0; i < 100000; i++)
        text += "{\"a\":";
    EXPECT_EQ("refused", round_trip(text));
}
