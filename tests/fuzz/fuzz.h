// SPDX-License-Identifier: ISC
// What the fuzzing targets share: reading their input, stating a property, sessions and captures.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace kelm_fuzz {

// Ends the run with the text: the fuzzer keeps the input.
[[noreturn]] void broken(const char *property, const char *file, int line);

// Cuts an input up from its front. What is asked for beyond the end reads as zero or empty.
class input {
public:
    input(const uint8_t *data, size_t size) : at_(data), left_(size) {}

    uint8_t byte();
    // A printable byte that stands for a choice, so that seeds stay readable: '0' is 0.
    unsigned choice(unsigned count);
    // Exactly length bytes, or what is left.
    std::string bytes(size_t length);
    // One line without its line feed.
    std::string line();
    std::string rest();
    bool empty() const { return left_ == 0; }

private:
    const uint8_t *at_;
    size_t left_;
};

}  // namespace kelm_fuzz

// A property that holds for every input.
#define PROPERTY(condition)                                      \
    do {                                                         \
        if (!(condition))                                        \
            ::kelm_fuzz::broken(#condition, __FILE__, __LINE__); \
    } while (0)
