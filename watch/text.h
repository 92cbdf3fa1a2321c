// SPDX-License-Identifier: ISC
// A part of a text that somebody else wrote, and a buffer in which a new text is made.
#pragma once

#include <cstddef>
#include <cstring>

namespace kelm {

// Bytes that are used of one text; the rest is cut.
constexpr size_t WATCH_TEXT_SIZE = 4096;

// A part of a text; any bytes, not terminated.
struct text_span {
    const char *at;
    size_t length;

    bool is(const char *text) const
    {
        return strlen(text) == length && memcmp(at, text, length) == 0;
    }
};

inline text_span span_of(const char *text)
{
    return {text, strlen(text)};
}

inline bool is_blank(char c)
{
    return c == ' ' || (c >= '\t' && c <= '\r');
}

inline bool is_digit(char c)
{
    return c >= '0' && c <= '9';
}

// The text without the blanks at both ends.
text_span stripped(text_span text);

// The length in bytes of the UTF-8 character that the text begins with; 0 when it begins with none.
size_t utf8_length(text_span text);

// Makes a text in a buffer, part by part. What does not fit is left out, and full() is true then.
// The text is always terminated.
class text_out {
public:
    template <size_t size>
    explicit text_out(char (&buffer)[size]) : text_out(buffer, size)
    {
    }
    text_out(char *buffer, size_t size);

    void add(text_span text);
    void add(const char *text) { add(span_of(text)); }
    void add(char c) { add(text_span{&c, 1}); }
    void add_number(unsigned long long number);
    void clear();

    text_span span() const { return {buffer_, length_}; }
    bool full() const { return full_; }

private:
    char *buffer_ = nullptr;
    size_t size_ = 0;
    size_t length_ = 0;
    bool full_ = false;
};

}  // namespace kelm
