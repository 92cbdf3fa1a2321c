// SPDX-License-Identifier: ISC
// Reads the text once, and strictly: it fails at anything that it does not know.
#include "watch/members.h"

namespace kelm {

namespace {

constexpr size_t NAME_MAX_LENGTH = 32;
constexpr size_t DIGITS_MAX = 9;

bool _is_name(text_span text)
{
    for (size_t i = 0; i < text.length; ++i) {
        const char c = text.at[i];
        if (!((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || is_digit(c) || c == '_'))
            return false;
    }
    return text.length > 0 && text.length <= NAME_MAX_LENGTH;
}

bool _is_object(text_span text)
{
    return text.length >= 2 && text.at[0] == '{' && text.at[text.length - 1] == '}';
}

bool _is_bare(char c)
{
    return (c >= 'a' && c <= 'z') || is_digit(c) || c == '-' || c == '+' || c == '.' || c == 'E';
}

// Whether it is a number such as "11" or "-1", which all readers understand alike.
bool _is_plain_number(text_span text)
{
    const size_t sign = text.length > 0 && text.at[0] == '-' ? 1 : 0;
    if (text.length == sign || text.length - sign > DIGITS_MAX)
        return false;
    for (size_t i = sign; i < text.length; ++i) {
        if (!is_digit(text.at[i]))
            return false;
    }
    return true;
}

}  // namespace

watch_members::watch_members(text_span object)
    : rest_(stripped(object)), failed_(!_is_object(rest_))
{
    if (failed_)
        return;
    ++rest_.at;
    rest_.length -= 2;
}

bool watch_members::next(watch_member *member)
{
    if (failed_)
        return false;
    _skip_blanks();
    if (rest_.length == 0)
        return false;
    if (!is_first_ && !_take(','))
        return _fail();
    is_first_ = false;
    _skip_blanks();
    if (!_take_text(&member->name) || !_is_name(member->name))
        return _fail();
    _skip_blanks();
    if (!_take(':'))
        return _fail();
    _skip_blanks();
    return _take_value(member) || _fail();
}

bool watch_members::_fail()
{
    failed_ = true;
    return false;
}

bool watch_members::_take(char c)
{
    if (rest_.length == 0 || rest_.at[0] != c)
        return false;
    ++rest_.at;
    --rest_.length;
    return true;
}

void watch_members::_skip_blanks()
{
    while (rest_.length > 0 && is_blank(rest_.at[0]))
        (void)_take(rest_.at[0]);
}

// Takes the text between two quotes.
bool watch_members::_take_text(text_span *text)
{
    if (!_take('"'))
        return false;
    *text = {rest_.at, 0};
    while (rest_.length > 0 && rest_.at[0] != '"') {
        const bool is_escape = rest_.at[0] == '\\' && rest_.length > 1;
        const size_t count = is_escape ? 2 : 1;
        rest_.at += count;
        rest_.length -= count;
        text->length += count;
    }
    return _take('"');
}

bool watch_members::_take_value(watch_member *member)
{
    member->is_text = rest_.length > 0 && rest_.at[0] == '"';
    if (member->is_text)
        return _take_text(&member->value);
    member->value = {rest_.at, 0};
    while (rest_.length > 0 && _is_bare(rest_.at[0])) {
        ++member->value.length;
        (void)_take(rest_.at[0]);
    }
    return member->value.length > 0;
}

long watch_member_number(text_span object, const char *name, long fallback)
{
    watch_members members(object);
    watch_member member = {};
    while (members.next(&member)) {
        if (member.is_text || !member.name.is(name) || !_is_plain_number(member.value))
            continue;
        const bool is_negative = member.value.at[0] == '-';
        long number = 0;
        for (size_t i = is_negative ? 1 : 0; i < member.value.length; ++i)
            number = 10 * number + (member.value.at[i] - '0');
        return is_negative ? -number : number;
    }
    return fallback;
}

}  // namespace kelm
