// SPDX-License-Identifier: ISC
// Applies the tables of words (watch/words.inc).
#include "watch/words.h"

#include "core/text.h"
#include "watch/members.h"
#include "watch/pattern.h"

namespace kelm {

namespace {

struct word_row {
    const char *source;
    const char *pattern;
    const char *who;
    const char *text;
};

struct said_row {
    const char *event;
    const char *who;
    const char *text;
};

struct number_row {
    long number;
    const char *text;
};

struct name_row {
    const char *name;
    const char *text;
};

// NOLINTBEGIN(cppcoreguidelines-macro-usage): tables that Python reads too
// Each table defines the macro of its rows. The file leaves out all other rows, and undefines it.
constexpr word_row WORDS[] = {
#define WORD(source, pattern, who, text) {source, pattern, who, text},
#include "watch/words.inc"
};

constexpr said_row SAID[] = {
#define SAY(event, who, text) {event, who, text},
#include "watch/words.inc"
};

constexpr number_row VERBS[] = {
#define VERB(number, text) {number, text},
#include "watch/words.inc"
};

constexpr number_row METHODS[] = {
#define METHOD(number, text) {number, text},
#include "watch/words.inc"
};

constexpr number_row STAGES[] = {
#define STAGE(number, text) {number, text},
#include "watch/words.inc"
};

constexpr const char *NO_ATTEMPT =
#define NOTHING(text) text
#include "watch/words.inc"
    ;

constexpr const char *NOT_THERE =
#define UNTOLD(text) text
#include "watch/words.inc"
    ;

constexpr number_row STATUSES[] = {
#define STATUS(number, text) {number, text},
#include "watch/words.inc"
};

constexpr name_row BANDS[] = {
#define BAND(name, band) {name, band},
#include "watch/words.inc"
};

constexpr name_row ACTORS[] = {
#define ACTOR(who, colour) {who, colour},
#include "watch/words.inc"
};

constexpr name_row COLOURS[] = {
#define COLOUR(name, number) {name, number},
#include "watch/words.inc"
};

// NOLINTEND(cppcoreguidelines-macro-usage)

constexpr long NO_NUMBER = -1000000000;  // more digits than a member's number may have
constexpr long STOPPED = 2;
constexpr long IDLE = 0;
constexpr long SILENT = 12;
constexpr long STOP_STAGE = 0;

template <size_t count>
const char *_text_of(const number_row (&table)[count], long number, const char *fallback)
{
    for (const number_row &row : table) {
        if (row.number == number)
            return row.text;
    }
    return fallback;
}

template <size_t count>
const char *_text_of(const name_row (&table)[count], text_span name, const char *fallback)
{
    for (const name_row &row : table) {
        if (name.is(row.name))
            return row.text;
    }
    return fallback;
}

// Writes the words with the parts in place of "{0}", "{1}".
void _fill_in(const char *words, const text_span *parts, size_t count, text_out *out)
{
    for (; *words != '\0'; ++words) {
        const auto number = static_cast<size_t>(words[0] == '{' ? words[1] - '0' : -1);
        if (number < count && words[2] == '}') {
            out->add(parts[number]);
            words += 2;
        } else {
            out->add(*words);
        }
    }
}

void _add_number(long number, text_out *out)
{
    if (number == NO_NUMBER) {
        out->add(NOT_THERE);
        return;
    }
    if (number < 0)
        out->add('-');
    out->add_number(static_cast<unsigned long long>(number < 0 ? -number : number));
}

// --- The bus ---

void _add_band_state(const char *band, long code, text_out *out)
{
    out->add(_text_of(BANDS, span_of(band), ""));
    out->add(' ');
    const char *text = _text_of(STATUSES, code, nullptr);
    if (text != nullptr)
        out->add(text);
    else
        _add_number(code, out);
}

// What an announced state means. An attempt ends twice: first it stops, then comes its result.
void _announcement(text_span state, text_out *out)
{
    const long action = watch_member_number(state, "action", NO_NUMBER);
    const long codes[] = {watch_member_number(state, "2g_status", NO_NUMBER),
                          watch_member_number(state, "5g_status", NO_NUMBER)};
    const auto is_quiet = [](long code) { return code == IDLE || code == SILENT; };
    if (codes[0] == IDLE && codes[1] == IDLE) {
        out->add(NO_ATTEMPT);
        return;
    }
    if (action == STOPPED && is_quiet(codes[0]) && is_quiet(codes[1])) {
        out->add(_text_of(STAGES, STOP_STAGE, ""));
        return;
    }
    const char *stage = action == STOP_STAGE ? nullptr : _text_of(STAGES, action, nullptr);
    if (stage != nullptr)
        out->add(stage);
    else
        _add_number(action, out);
    out->add(" (");
    _add_band_state("2g", codes[0], out);
    out->add(", ");
    _add_band_state("5g", codes[1], out);
    out->add(')');
}

bool _describe_bus(text_span text, watch_told *told)
{
    watch_match found = {};
    if (!watch_fits("^{ \"{word}\": {rest} }$", text, &found))
        return false;
    const text_span members = found.covered[1].text;
    for (const said_row &row : SAID) {
        if (!found.covered[0].text.is(row.event))
            continue;
        char announced[WATCH_TOLD_SIZE];
        text_out state(announced);
        _announcement(members, &state);
        const text_span asked[] = {
            span_of(_text_of(VERBS, watch_member_number(members, "action", NO_NUMBER), "?")),
            span_of(_text_of(METHODS, watch_member_number(members, "method", NO_NUMBER), ""))};
        const text_span announcement[] = {state.span()};
        const bool is_request = strcmp(row.event, "wps_cli") == 0;
        text_out out(told->text);
        _fill_in(row.text, is_request ? asked : announcement, is_request ? 2 : 1, &out);
        told->text[stripped(out.span()).length] = '\0';
        told->who = row.who;
        return true;
    }
    return false;
}

}  // namespace

bool watch_describe(const char *source, text_span text, watch_told *told)
{
    told->iface[0] = '\0';
    if (strcmp(source, "bus") == 0)
        return _describe_bus(text, told);
    watch_match found = {};
    for (const word_row &row : WORDS) {
        if (strcmp(row.source, source) != 0 || !watch_fits(row.pattern, text, &found))
            continue;
        text_span parts[WATCH_COVERED_MAX];
        size_t count = 0;
        for (size_t i = 0; i < found.count; ++i) {
            if (found.covered[i].kind != watch_kind::iface)
                parts[count++] = found.covered[i].text;
        }
        text_out iface(told->iface);
        iface.add(watch_iface_of(found));
        text_out out(told->text);
        _fill_in(row.text, parts, count, &out);
        told->who = row.who;
        return row.text[0] != '\0';
    }
    return false;
}

const char *watch_makers_band(text_span iface)
{
    return _text_of(BANDS, iface, "");
}

const char *watch_colour(const char *who)
{
    const char *colour = _text_of(ACTORS, span_of(who), nullptr);
    return colour != nullptr ? _text_of(COLOURS, span_of(colour), nullptr) : nullptr;
}

}  // namespace kelm
