// SPDX-License-Identifier: ISC
// Parts of texts, and texts that are made part by part.
#include "watch/text.h"

#include <cstdio>

#include "core/json_text.h"

namespace kelm {

text_span stripped(text_span text)
{
    while (text.length > 0 && is_blank(text.at[0])) {
        ++text.at;
        --text.length;
    }
    while (text.length > 0 && is_blank(text.at[text.length - 1]))
        --text.length;
    return text;
}

size_t utf8_length(text_span text)
{
    for (size_t length = 1; length <= 4 && length <= text.length; ++length) {
        if (kelm_is_utf8(text.at, length))
            return length;
    }
    return 0;
}

text_out::text_out(char *buffer, size_t size) : buffer_(buffer), size_(size)
{
    buffer_[0] = '\0';
}

void text_out::add(text_span text)
{
    const size_t room = size_ - 1 - length_;
    const size_t count = text.length < room ? text.length : room;
    full_ = full_ || count < text.length;
    if (count > 0)
        memcpy(buffer_ + length_, text.at, count);
    length_ += count;
    buffer_[length_] = '\0';
}

void text_out::add_number(unsigned long long number)
{
    char digits[24];
    (void)snprintf(digits, sizeof digits, "%llu", number);
    add(digits);
}

void text_out::clear()
{
    length_ = 0;
    full_ = false;
    buffer_[0] = '\0';
}

}  // namespace kelm
