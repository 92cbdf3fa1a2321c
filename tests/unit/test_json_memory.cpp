// SPDX-License-Identifier: ISC
// JSON without memory: each single allocation of a parse is refused, the library's own included,
// once alone and once with all that follow.
#include <cerrno>
#include <string>

#include <gtest/gtest.h>

#include "core/json_text.h"

using namespace kelm;

extern "C" {
void *__libc_malloc(size_t size);
void *__libc_calloc(size_t count, size_t size);
void *__libc_realloc(void *memory, size_t size);
}

namespace {

// Of this thread: counted from 1 while armed.
thread_local struct {
    bool armed;
    bool onwards;
    int refuse_at;
    int counted;
} allocations;

bool is_refused()
{
    if (!allocations.armed)
        return false;
    const int number = ++allocations.counted;
    if (allocations.onwards ? number < allocations.refuse_at : number != allocations.refuse_at)
        return false;
    errno = ENOMEM;
    return true;
}

struct outcome {
    unique_json object;
    bool no_memory;
    int allocations;
};

outcome parse_without(const std::string &text, int refuse_at, bool onwards)
{
    outcome seen = {nullptr, false, 0};
    allocations = {true, onwards, refuse_at, 0};
    seen.object = kelm_parse_json(text.c_str(), text.size() + 1, &seen.no_memory);
    allocations.armed = false;
    seen.allocations = allocations.counted;
    return seen;
}

std::string plain(const unique_json &object)
{
    return json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_PLAIN);
}

const std::string DIGITS(100, '7');
const std::string LONG(300, 'x');

// What the library would lose without a word stands before a number, which clears its errno.
const struct {
    std::string text;
    std::string plain;
} TEXTS[] = {
    {R"({"mode": 1})", R"({"mode":1})"},
    {R"([{"mac": "02:00:00:00:01:01", "channel": "36", "support_mesh": 0}, {"ssid": "a,b:c"}])",
     R"([{"mac":"02:00:00:00:01:01","channel":"36","support_mesh":0},{"ssid":"a,b:c"}])"},
    {R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":10,"k":11,"l":12,"m":13})",
     R"({"a":1,"b":2,"c":3,"d":4,"e":5,"f":6,"g":7,"h":8,"i":9,"j":10,"k":11,"l":12,"m":13})"},
    {R"([{"a":1},2,{"a":3}, 4 ,["5",6]])", R"([{"a":1},2,{"a":3},4,["5",6]])"},
    {"[\"" + LONG + "\",1,{\"" + LONG + "\":2},3]", "[\"" + LONG + "\",1,{\"" + LONG + "\":2},3]"},
    {"{\"1\"/* " + LONG + "1 */:1.5/* " + LONG + " */, 'b' // 1\n:2}", R"({"1":1.5,"b":2})"},
    {"{\"a\":1." + DIGITS + ",\"b\":1}", "{\"a\":1." + DIGITS + ",\"b\":1}"},
    {"[" + DIGITS + ",-" + DIGITS + "]", "[18446744073709551615,-9223372036854775808]"},
    {"[0." + DIGITS + "e+1 , 0." + DIGITS + "]", "[0." + DIGITS + "e+1,0." + DIGITS + "]"},
    // Each of what may stand behind a number, which itself needs memory.
    {"{\"a\":" + DIGITS + "}", R"({"a":18446744073709551615})"},
    {"[" + DIGITS + "/**/,1]", "[18446744073709551615,1]"},
    {"[" + DIGITS + "\t,1]", "[18446744073709551615,1]"},
    {"[" + DIGITS + "\n,1]", "[18446744073709551615,1]"},
    {"[" + DIGITS + "\r,1]", "[18446744073709551615,1]"},
    {DIGITS, "18446744073709551615"},
};

TEST(json_memory, an_object_is_whole_or_missing_for_want_of_memory)
{
    for (const auto &row : TEXTS) {
        SCOPED_TRACE(row.text.substr(0, 100));
        const outcome all = parse_without(row.text, 0, false);
        EXPECT_EQ(row.plain, plain(all.object));
        EXPECT_FALSE(all.no_memory);
        ASSERT_GT(all.allocations, 5);
        for (int number = 1; number <= all.allocations; ++number) {
            for (const bool onwards : {false, true}) {
                const outcome seen = parse_without(row.text, number, onwards);
                EXPECT_TRUE(seen.no_memory) << number << onwards;
                EXPECT_EQ(nullptr, seen.object.get()) << number << onwards;
            }
        }
    }
}

TEST(json_memory, bad_json_is_told_from_no_memory)
{
    for (const char *bad : {"{\"a\":1,\"b\":tru}", "[1,2", "{\"a\" 1}"}) {
        const outcome seen = parse_without(bad, 0, false);
        EXPECT_EQ(nullptr, seen.object.get()) << bad;
        EXPECT_FALSE(seen.no_memory) << bad;
    }
}

}  // namespace

// The C library's and json-c's calls come here, too. No sanitizer's build has these.
void *malloc(size_t size)
{
    return is_refused() ? nullptr : __libc_malloc(size);
}

void *calloc(size_t count, size_t size)
{
    return is_refused() ? nullptr : __libc_calloc(count, size);
}

void *realloc(void *memory, size_t size)
{
    return is_refused() ? nullptr : __libc_realloc(memory, size);
}
