// SPDX-License-Identifier: ISC
// Input reading and broken properties of the fuzzing targets.
#include "tests/fuzz/fuzz.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace kelm_fuzz {

void broken(const char *property, const char *file, int line)
{
    fprintf(stderr, "%s:%d: property does not hold: %s\n", file, line, property);
    abort();
}

uint8_t input::byte()
{
    if (left_ == 0)
        return 0;
    --left_;
    return *at_++;
}

unsigned input::choice(unsigned count)
{
    return static_cast<unsigned>(static_cast<uint8_t>(byte() - '0')) % count;
}

std::string input::bytes(size_t length)
{
    length = std::min(length, left_);
    const std::string taken(reinterpret_cast<const char *>(at_), length);
    at_ += length;
    left_ -= length;
    return taken;
}

std::string input::line()
{
    const void *end = left_ == 0 ? nullptr : memchr(at_, '\n', left_);
    if (end == nullptr)
        return rest();
    const std::string taken = bytes(static_cast<size_t>(static_cast<const uint8_t *>(end) - at_));
    (void)byte();
    return taken;
}

std::string input::rest()
{
    return bytes(left_);
}

}  // namespace kelm_fuzz
