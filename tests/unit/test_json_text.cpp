// SPDX-License-Identifier: ISC
// Parsing in pieces and formatting into found room: the same results as the library's own.
#include "core/json_text.h"

#include <cstring>
#include <string>

#include <gtest/gtest.h>

using namespace kelm;

namespace {

const std::string LONG(5000, 'x');

const std::string TEXTS[] = {
    "{}",
    "{ }",
    R"({"mode":1})",
    R"({"mode" : 1 , "next":[1,2,3,[4,[5,6]],{"a":{"b":{}}}]})",
    R"([{"mac":"02:00:00:00:01:01","ssid":"a,b:c"},{"mac":"","ssid":":,:,"}])",
    R"({"a\u003ab":"\u002c\u00e9\ud83d\ude00\"\\\/\b\f\n\r\t","":""})",
    R"({"a":1,"a":2,"a":"three"})",
    R"({'single':'quotes', "comment"/* a:b,c */: 1})",
    R"({"int":-9223372036854775808,"big":18446744073709551615,"more":99999999999999999999})",
    R"({"double":1.5,"long":1.00000000000000000000000000000000000000000000000000001,"e":-1e-7})",
    R"({"null":null,"true":true,"false":false,"n":[NaN,Infinity,-Infinity]})",
    "{\"control\":\"\\u0001\\u001f\",\"bytes\":\"\xff\xc3\x28\"}",
    "{\"" + LONG + "\":\"" + LONG + "\"}",
    "[1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19,20,21,22,23,24,25,26,27,28,29,30,31,32,33]",
    "12",
    "12,34",
    "\"text\"",
    "null",
    "true:",
    R"({"a":1} and what follows, {"b":2})",
    // No JSON:
    "",
    " ",
    ":",
    ",",
    "{",
    "{\"a\"",
    "{\"a\":",
    "{\"a\":1",
    "{\"a\":1,",
    "{\"a\":tru,}",
    "{\"a\",1}",
    "{a:1}",
    "[1,2",
    "\"open",
    "nul",
    "-",
    "/* open : , ",
    std::string(40, '[') + std::string(40, ']'),
};

TEST(json_text, parsing_in_pieces_gives_what_parsing_at_once_gives)
{
    for (const std::string &text : TEXTS) {
        SCOPED_TRACE(text.substr(0, 100));
        const unique_json at_once(json_tokener_parse(text.c_str()));
        bool no_memory = true;
        const unique_json in_pieces = kelm_parse_json(text.c_str(), text.size() + 1, &no_memory);
        EXPECT_FALSE(no_memory);
        EXPECT_STREQ(json_object_to_json_string(at_once.get()),
                     json_object_to_json_string(in_pieces.get()));
        EXPECT_EQ(at_once == nullptr, in_pieces == nullptr);
    }
}

TEST(json_text, nothing_behind_the_given_length_is_read)
{
    bool no_memory = true;
    const unique_json cut = kelm_parse_json("{\"a\":1}garbage", 7, &no_memory);
    ASSERT_TRUE(cut);
    EXPECT_STREQ("{ \"a\": 1 }", json_object_to_json_string(cut.get()));
    EXPECT_FALSE(kelm_parse_json("{\"a\":1}", 6, &no_memory));
    EXPECT_FALSE(no_memory);
}

TEST(json_text, formatting_into_found_room_gives_the_librarys_text)
{
    for (const std::string &text : TEXTS) {
        const unique_json object(json_tokener_parse(text.c_str()));
        if (!object)
            continue;
        SCOPED_TRACE(text.substr(0, 100));
        const unique_json same(json_tokener_parse(text.c_str()));
        const std::string expected = json_object_to_json_string(same.get());
        for (int round = 0; round < 2; ++round) {
            const char *formatted = kelm_json_text(object.get());
            ASSERT_NE(nullptr, formatted);
            EXPECT_EQ(expected, formatted);
        }
    }
}

TEST(json_text, only_what_every_reader_takes_is_text)
{
    const std::string good[] = {"",
                                "Home",
                                "\x01\x1f\x7f",
                                "\xc2\x80\xdf\xbf",
                                "\xe0\xa0\x80",
                                "\xed\x9f\xbf\xee\x80\x80\xef\xbf\xbf",
                                "\xf0\x90\x80\x80",
                                "\xf4\x8f\xbf\xbf",
                                "K\xc3\xbc"
                                "che"};
    for (const std::string &text : good)
        EXPECT_TRUE(kelm_is_utf8(text.data(), text.size())) << text;
    const std::string bad[] = {std::string("\0", 1),
                               std::string("A\0B", 3),
                               "\x80",
                               "\xbf",
                               "\xc0\x80",
                               "\xc1\xbf",
                               "\xc3",
                               "\xc3(",
                               "\xe0\x9f\xbf",
                               "\xe2\x82",
                               "\xed\xa0\x80",
                               "\xef\xbf",
                               "\xf0\x8f\xbf\xbf",
                               "\xf0\x9f\x98",
                               "\xf4\x90\x80\x80",
                               "\xf5\x80\x80\x80",
                               "\xff",
                               "K\xfc"
                               "che"};
    for (const std::string &text : bad)
        EXPECT_FALSE(kelm_is_utf8(text.data(), text.size())) << text;
}

TEST(json_text, each_byte_that_is_no_text_shows_and_all_are_spelt)
{
    const struct {
        std::string bytes;
        const char *shown;
        const char *spelt;
    } rows[] = {
        {"", "", ""},
        {std::string("A\0B", 3),
         "A\xef\xbf\xbd"
         "B",
         "410042"},
        {"\xff\xfe", "\xef\xbf\xbd\xef\xbf\xbd", "fffe"},
        {"\xc3\xa9\xc3", "\xc3\xa9\xef\xbf\xbd", "c3a9c3"},
        {"\xf0\x9f\x98\x80\x80", "\xf0\x9f\x98\x80\xef\xbf\xbd", "f09f988080"},
        {"\xe2\x82"
         "A",
         "\xef\xbf\xbd\xef\xbf\xbd"
         "A",
         "e28241"},
    };
    for (const auto &row : rows) {
        char out[64];
        const size_t length = row.bytes.size();
        kelm_show_as_utf8(row.bytes.data(), length, out, 3 * length + 1);
        EXPECT_STREQ(row.shown, out);
        kelm_spell_bytes(row.bytes.data(), length, out, 2 * length + 1);
        EXPECT_STREQ(row.spelt, out);
    }
}

TEST(json_text, a_value_that_found_no_memory_is_not_added)
{
    const unique_json object(json_object_new_object());
    EXPECT_FALSE(kelm_json_add(object.get(), "password", nullptr));
    EXPECT_TRUE(kelm_json_add(object.get(), "index", json_object_new_int(1)));
    EXPECT_STREQ("{ \"index\": 1 }", kelm_json_text(object.get()));
}

}  // namespace
