// SPDX-License-Identifier: ISC
// Reads the head of a line word by word, as busybox's syslogd and OpenWrt's logread write it.
#include "watch/log_line.h"

namespace kelm {

namespace {

constexpr const char *MONTHS[] = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                  "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
constexpr const char *DAYS[] = {"Mon", "Tue", "Wed", "Thu", "Fri", "Sat", "Sun"};

void _drop(text_span *text, size_t count)
{
    text->at += count;
    text->length -= count;
}

bool _take_expected(text_span *text, const char *expected)
{
    const size_t length = strlen(expected);
    if (text->length < length || memcmp(text->at, expected, length) != 0)
        return false;
    _drop(text, length);
    return true;
}

// Takes the first word and the blanks behind it from the text.
text_span _take_word(text_span *text)
{
    text_span word = {text->at, 0};
    while (word.length < text->length && text->at[word.length] != ' ')
        ++word.length;
    _drop(text, word.length);
    while (text->length > 0 && text->at[0] == ' ')
        _drop(text, 1);
    return word;
}

template <size_t count>
bool _is_one_of(const char *const (&names)[count], text_span word)
{
    bool found = false;
    for (const char *name : names)
        found = found || word.is(name);
    return found;
}

// shape: '0' stands for a digit, any other character for itself.
bool _has_digits_as(text_span word, const char *shape)
{
    if (strlen(shape) != word.length)
        return false;
    for (size_t i = 0; i < word.length; ++i) {
        if (shape[i] == '0' ? !is_digit(word.at[i]) : word.at[i] != shape[i])
            return false;
    }
    return true;
}

size_t _digits(text_span text)
{
    size_t count = 0;
    while (count < text.length && is_digit(text.at[count]))
        ++count;
    return count;
}

bool _is_name_letter(char c)
{
    return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '_';
}

// "[   12.345]", "[1234.567890]"
bool _take_seconds(text_span *text)
{
    text_span rest = *text;
    if (!_take_expected(&rest, "["))
        return false;
    while (rest.length > 0 && rest.at[0] == ' ')
        _drop(&rest, 1);
    const size_t whole = _digits(rest);
    _drop(&rest, whole);
    if (whole == 0 || !_take_expected(&rest, "."))
        return false;
    const size_t part = _digits(rest);
    _drop(&rest, part);
    if (part == 0 || !_take_expected(&rest, "] "))
        return false;
    *text = rest;
    return true;
}

// "daemon.info"
bool _is_facility(text_span word)
{
    const auto *dot = static_cast<const char *>(memchr(word.at, '.', word.length));
    if (dot == nullptr || dot == word.at || dot + 1 == word.at + word.length)
        return false;
    for (size_t i = 0; i < word.length; ++i) {
        const char c = word.at[i];
        const bool is_digit_of_local = is_digit(c) && word.at + i + 1 == dot;
        if ((c < 'a' || c > 'z') && word.at + i != dot && !is_digit_of_local)
            return false;
    }
    return true;
}

// Whether the word is a machine's name. A program's name is none: it ends with a colon. "(none)" is
// a machine without a name.
bool _is_machine(text_span word)
{
    for (size_t i = 0; i < word.length; ++i) {
        const char c = word.at[i];
        if (!_is_name_letter(c) && !is_digit(c) && (c == '\0' || strchr(".-()", c) == nullptr))
            return false;
    }
    return word.length > 0;
}

// Takes all that stands before the name of the program.
bool _take_head(text_span *text)
{
    text_span rest = *text;
    text_span word = _take_word(&rest);
    if (_is_one_of(DAYS, word))
        word = _take_word(&rest);
    if (!_is_one_of(MONTHS, word))
        return false;
    word = _take_word(&rest);
    if (!_has_digits_as(word, "0") && !_has_digits_as(word, "00"))
        return false;
    word = _take_word(&rest);
    if (!_has_digits_as(word, "00:00:00") && !_has_digits_as(word, "00:00:00.000"))
        return false;
    *text = rest;
    word = _take_word(&rest);
    if (_has_digits_as(word, "0000")) {
        (void)_take_seconds(&rest);
        *text = rest;
        word = _take_word(&rest);
    }
    if (!_is_facility(word) && _is_machine(word)) {
        *text = rest;
        word = _take_word(&rest);
    }
    if (_is_facility(word))
        *text = rest;
    return true;
}

// Takes "kelm[284]: " or "kelm: "; has_number tells which.
bool _take_program(text_span *text, bool *has_number)
{
    text_span rest = *text;
    *has_number = _take_expected(&rest, "kelm[");
    if (!*has_number)
        return _take_expected(text, "kelm: ");
    const size_t digits = _digits(rest);
    _drop(&rest, digits);
    if (digits == 0 || !_take_expected(&rest, "]: "))
        return false;
    *text = rest;
    return true;
}

// "kelm[FUNCTION:LINE]: "
bool _is_daemons(text_span text)
{
    if (!_take_expected(&text, "kelm[") || text.length == 0 || !_is_name_letter(text.at[0]))
        return false;
    while (text.length > 0 && (_is_name_letter(text.at[0]) || is_digit(text.at[0])))
        _drop(&text, 1);
    if (!_take_expected(&text, ":"))
        return false;
    const size_t digits = _digits(text);
    _drop(&text, digits);
    return digits > 0 && _take_expected(&text, "]:");
}

}  // namespace

watch_log_line watch_read_log_line(text_span line)
{
    while (line.length > 0 && is_blank(line.at[line.length - 1]))
        --line.length;
    text_span text = line;
    (void)_take_seconds(&text);
    if (_is_daemons(text))
        return {"console", text};
    text = line;
    if (!_take_head(&text))
        return {nullptr, line};
    const text_span tagged = text;
    bool has_number = false;
    if (!_take_program(&text, &has_number))
        return {nullptr, line};
    if (_is_daemons(text))
        return {"console", text};
    // With a process number it is what the daemon's commands print.
    return {has_number ? nullptr : "log", tagged};
}

}  // namespace kelm
