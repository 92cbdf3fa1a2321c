// SPDX-License-Identifier: ISC
// Applies the list of what may be kept (watch/kept.inc) to a line.
#include "watch/kept.h"

#include <algorithm>
#include <iterator>

#include "watch/members.h"
#include "watch/pattern.h"

namespace kelm {

namespace {

constexpr int DEEPEST = 4;  // so many rows may pass the rest of a line to other rows
constexpr size_t WORD_MAX_LENGTH = 32;
constexpr size_t DIGITS_MAX = 6;  // fewer than a PIN has

struct kept_row {
    const char *source;
    const char *pattern;
};

// NOLINTBEGIN(cppcoreguidelines-macro-usage): tables that Python reads too
constexpr kept_row KEPT[] = {
#define KEEP(source, pattern) {source, pattern},
#include "watch/kept.inc"
};

struct member_row {
    const char *source;
    const char *name;
};

constexpr member_row MEMBERS[] = {
#define MEMBER(source, name) {source, name},
#include "watch/kept.inc"
};
// NOLINTEND(cppcoreguidelines-macro-usage)

// A line while it is made.
struct keeper {
    watch_aliases *aliases;
    text_out *out;
    text_span iface;
};

void _keep(keeper *to, text_span source, text_span text, int depth);

// Writes "[N bytes]" for the text. Blanks around it stay, and so does a "[N bytes]" of before.
void _leave_out(keeper *to, text_span text)
{
    const text_span core = stripped(text);
    if (core.length == 0 || watch_is_mark(core)) {
        to->out->add(text);
        return;
    }
    const auto before = static_cast<size_t>(core.at - text.at);
    to->out->add(text_span{text.at, before});
    to->out->add('[');
    to->out->add_number(core.length);
    to->out->add(" bytes]");
    to->out->add(text_span{core.at + core.length, text.length - before - core.length});
}

void _name(keeper *to, alias_kind kind, text_span name)
{
    if (to->aliases == nullptr || name.length == 0)
        to->out->add(name);
    else
        to->aliases->add_alias(kind, name, to->out);
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as DEEPEST says, and no deeper.
void _add_covered(keeper *to, const watch_covered &covered, int depth)
{
    switch (covered.kind) {
    case watch_kind::hidden:
    case watch_kind::hidden_rest:
        _leave_out(to, covered.text);
        return;
    case watch_kind::as:
        _keep(to, covered.source, covered.text, depth + 1);
        return;
    case watch_kind::network:
        _name(to, alias_kind::network, covered.text);
        return;
    case watch_kind::device:
        _name(to, alias_kind::name, covered.text);
        return;
    case watch_kind::iface:
        if (to->iface.length == 0)
            to->iface = covered.text;
        to->out->add(covered.text);
        return;
    case watch_kind::word:
    case watch_kind::number:
    case watch_kind::rest:
    case watch_kind::lengths:
    case watch_kind::event_name:
        to->out->add(covered.text);
        return;
    }
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as DEEPEST says, and no deeper.
void _rewrite(keeper *to, const watch_match &found, text_span text, int depth)
{
    const char *at = found.all.at;
    const char *end = found.all.at + found.all.length;
    _leave_out(to, {text.at, static_cast<size_t>(at - text.at)});
    for (size_t i = 0; i < found.count; ++i) {
        const watch_covered &covered = found.covered[i];
        to->out->add(text_span{at, static_cast<size_t>(covered.text.at - at)});
        _add_covered(to, covered, depth);
        at = covered.text.at + covered.text.length;
    }
    to->out->add(text_span{at, static_cast<size_t>(end - at)});
    _leave_out(to, {end, static_cast<size_t>(text.at + text.length - end)});
}

bool _has_members(text_span source)
{
    return std::any_of(std::begin(MEMBERS), std::end(MEMBERS),
                       [&](const member_row &row) { return source.is(row.source); });
}

bool _is_kept_member(text_span source, text_span name)
{
    return std::any_of(std::begin(MEMBERS), std::end(MEMBERS), [&](const member_row &row) {
        return source.is(row.source) && name.is(row.name);
    });
}

// Whether it is a number, or a word. A PIN as a text is neither.
bool _may_be_kept(const watch_member &member)
{
    size_t digits = 0;
    size_t others = 0;
    for (size_t i = 0; i < member.value.length; ++i) {
        const char c = member.value.at[i];
        if (is_digit(c)) {
            ++digits;
            continue;
        }
        ++others;
        const bool is_letter = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
        if (!is_letter && (c == '\0' || strchr("_:.-", c) == nullptr))
            return false;
    }
    if (member.is_text)
        return member.value.length <= WORD_MAX_LENGTH && (digits == 0 || others > 0);
    const bool has_sign = member.value.at[0] == '-';
    return digits > 0 && digits <= DIGITS_MAX && others == (has_sign ? 1 : 0);
}

void _add_kept_member(keeper *to, text_span source, const watch_member &member)
{
    to->out->add('"');
    to->out->add(member.name);
    to->out->add("\":");
    const bool is_kept = (_is_kept_member(source, member.name) && _may_be_kept(member)) ||
                         (member.is_text && watch_is_mark(member.value));
    if (is_kept && !member.is_text) {
        to->out->add(member.value);
        return;
    }
    to->out->add('"');
    if (is_kept) {
        to->out->add(member.value);
    } else {
        to->out->add('[');
        to->out->add_number(member.value.length);
        to->out->add(" bytes]");
    }
    to->out->add('"');
}

void _keep_members(keeper *to, text_span source, text_span text)
{
    watch_members check(text);
    watch_member member = {};
    while (check.next(&member)) {
    }
    if (check.failed()) {
        _leave_out(to, text);
        return;
    }
    watch_members members(text);
    to->out->add('{');
    for (bool is_first = true; members.next(&member); is_first = false) {
        if (!is_first)
            to->out->add(',');
        _add_kept_member(to, source, member);
    }
    to->out->add('}');
}

// NOLINTNEXTLINE(misc-no-recursion): as deep as DEEPEST says, and no deeper.
void _keep(keeper *to, text_span source, text_span text, int depth)
{
    if (_has_members(source)) {
        _keep_members(to, source, text);
        return;
    }
    watch_match found = {};
    for (const kept_row &row : KEPT) {
        if (depth < DEEPEST && source.is(row.source) && watch_fits(row.pattern, text, &found)) {
            _rewrite(to, found, text, depth);
            return;
        }
    }
    _leave_out(to, text);
}

}  // namespace

void watch_keep(const char *source, text_span text, watch_aliases *aliases, text_out *out,
                text_span *iface)
{
    keeper to = {aliases, out, {text.at, 0}};
    _keep(&to, span_of(source), text, 0);
    *iface = to.iface;
    if (!out->full())
        return;
    out->clear();
    out->add('[');
    out->add_number(text.length);
    out->add(" bytes]");
}

}  // namespace kelm
