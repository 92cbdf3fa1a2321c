/* SPDX-License-Identifier: ISC */
/* The grammar of configuration files, strictly: one bad line refuses the whole file. */
#include "uci_parse.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#define MAX_ARGUMENTS 3 /* one more than any statement takes, to notice too many */

/* How a word ended decides whether a ';' right behind it hides the rest of the line. */
enum word_tail { TAIL_BARE, TAIL_QUOTED };

struct parser {
    struct uci_context *ctx;
    struct uci_package *package;
    struct uci_section *section;
    const char *pos;
    const char *end;
    const char *line_start;
    char *words; /* room for the words of one statement; they are never longer than the text */
    char *word_end;
    int line;
    enum word_tail tail;
};

struct statement {
    const char *keyword;
    const char *letter;
    int needs;
    int takes;
    int (*apply)(struct parser *ps, char **args, int count);
};

static int fail(struct parser *ps, const char *reason)
{
    ps->ctx->err = UCI_ERR_PARSE;
    ps->ctx->reason = reason;
    ps->ctx->line = ps->line;
    ps->ctx->byte = (int)(ps->pos - ps->line_start);
    return UCI_ERR_PARSE;
}

static bool at_line_end(const struct parser *ps)
{
    return ps->pos >= ps->end || *ps->pos == '\n';
}

static bool at(const struct parser *ps, char byte)
{
    return ps->pos < ps->end && *ps->pos == byte;
}

static bool is_blank(char byte)
{
    return byte != '\n' && isspace((unsigned char)byte);
}

static void next_line(struct parser *ps)
{
    while (!at_line_end(ps))
        ps->pos++;
    if (ps->pos >= ps->end)
        return;
    ps->pos++;
    ps->line++;
    ps->line_start = ps->pos;
}

/* Takes one byte. Inside quotes and continuations it may be a line end. */
static char take(struct parser *ps)
{
    char byte = *ps->pos++;

    if (byte == '\n') {
        ps->line++;
        ps->line_start = ps->pos;
    }
    return byte;
}

static void keep(struct parser *ps, char byte)
{
    *ps->word_end++ = byte;
}

/* Behind a backslash: a line end is dropped, any other byte is kept as it is. */
static void take_escaped(struct parser *ps)
{
    char byte;

    if (ps->pos >= ps->end)
        return;
    byte = take(ps);
    if (byte != '\n')
        keep(ps, byte);
}

static int take_quoted(struct parser *ps)
{
    char quote = take(ps);

    while (ps->pos < ps->end) {
        char byte = take(ps);

        if (byte == quote) {
            ps->tail = TAIL_QUOTED;
            return UCI_OK;
        }
        if (byte == '\\' && quote == '"')
            take_escaped(ps);
        else
            keep(ps, byte);
    }
    return fail(ps, quote == '"' ? "EOF with unterminated \"" : "EOF with unterminated '");
}

static bool ends_word(const struct parser *ps)
{
    return at_line_end(ps) || is_blank(*ps->pos) || *ps->pos == '#' || *ps->pos == ';';
}

/* Pieces without blanks between them form one word. */
static int take_word(struct parser *ps, char **word)
{
    *word = ps->word_end;
    while (!ends_word(ps)) {
        if (*ps->pos == '\'' || *ps->pos == '"') {
            int code = take_quoted(ps);

            if (code != UCI_OK)
                return code;
            continue;
        }
        ps->tail = TAIL_BARE;
        if (*ps->pos == '\\') {
            ps->pos++;
            take_escaped(ps);
        } else {
            keep(ps, take(ps));
        }
    }
    keep(ps, '\0');
    return UCI_OK;
}

static bool at_continuation(const struct parser *ps)
{
    return ps->end - ps->pos >= 2 && ps->pos[0] == '\\' && ps->pos[1] == '\n';
}

static void skip_blanks(struct parser *ps)
{
    for (;;) {
        if (at_continuation(ps)) {
            ps->pos++;
            take(ps);
        } else if (!at_line_end(ps) && is_blank(*ps->pos)) {
            ps->pos++;
        } else {
            return;
        }
    }
}

/* Takes the arguments up to the end of the statement. A comment ends the statement and the line. */
static int take_arguments(struct parser *ps, char **args, int *count)
{
    *count = 0;
    ps->tail = TAIL_QUOTED;
    for (;;) {
        const char *before = ps->pos;
        int code;

        skip_blanks(ps);
        if (ps->pos != before)
            ps->tail = TAIL_QUOTED;
        if (at_line_end(ps) || at(ps, '#') || at(ps, ';'))
            return UCI_OK;
        if (*count == MAX_ARGUMENTS)
            return fail(ps, "too many arguments");
        code = take_word(ps, &args[*count]);
        if (code != UCI_OK)
            return code;
        (*count)++;
    }
}

static bool is_name(const char *text)
{
    if (!text[0])
        return false;
    for (; *text; text++) {
        if (!isalnum((unsigned char)*text) && *text != '_')
            return false;
    }
    return true;
}

static bool is_type(const char *text)
{
    if (!text[0])
        return false;
    for (; *text; text++) {
        if (*text < 33 || *text > 126)
            return false;
    }
    return true;
}

/* A package has the name of its file. So the statement is checked, and has no effect. */
static int apply_package(struct parser *ps, char **args, int count)
{
    (void)count;
    return is_type(args[0]) ? UCI_OK : fail(ps, "invalid character in name field");
}

static int apply_config(struct parser *ps, char **args, int count)
{
    const char *name = count > 1 ? args[1] : "";
    int code;

    if (!is_type(args[0]))
        return fail(ps, "invalid character in type field");
    if (name[0] && !is_name(name))
        return fail(ps, "invalid character in name field");
    code = uci_put_section(ps->package, args[0], name, &ps->section);
    if (code == UCI_ERR_DUPLICATE)
        return fail(ps, "section of different type overwrites prior section with same name");
    return code;
}

static int check_option(struct parser *ps, const char *name)
{
    if (!ps->section)
        return fail(ps, "option/list command found before the first section");
    return is_name(name) ? UCI_OK : fail(ps, "invalid character in name field");
}

/* An empty value neither creates the option nor clears an earlier one. */
static int apply_option(struct parser *ps, char **args, int count)
{
    int code = check_option(ps, args[0]);

    if (code != UCI_OK || count < 2 || !args[1][0])
        return code;
    return uci_put_option(ps->section, args[0], args[1]);
}

/* Unlike an option, a list takes an empty item. */
static int apply_list(struct parser *ps, char **args, int count)
{
    int code = check_option(ps, args[0]);

    if (code != UCI_OK)
        return code;
    return uci_put_list_item(ps->section, args[0], count > 1 ? args[1] : "");
}

static const struct statement statements[] = {
    {"package", "p", 1, 1, apply_package},
    {"config", "c", 1, 2, apply_config},
    {"option", "o", 1, 2, apply_option},
    {"list", "l", 1, 2, apply_list},
};

#define STATEMENT_COUNT (sizeof(statements) / sizeof(statements[0]))

static bool keyword_is(const char *keyword, const char *start, size_t len)
{
    return strlen(keyword) == len && memcmp(keyword, start, len) == 0;
}

/* The keyword must be followed by a space or a tab. At the end of a line it is no command. */
static const struct statement *take_keyword(struct parser *ps)
{
    const char *start = ps->pos;
    size_t len = 0;

    while (start + len < ps->end && !strchr(" \t\n", start[len]))
        len++;
    if (start + len >= ps->end || start[len] == '\n')
        return NULL;
    for (size_t i = 0; i < STATEMENT_COUNT; i++) {
        const struct statement *st = &statements[i];

        if (!keyword_is(st->keyword, start, len) && !keyword_is(st->letter, start, len))
            continue;
        ps->pos += len;
        return st;
    }
    return NULL;
}

static int run_statement(struct parser *ps)
{
    const struct statement *st = take_keyword(ps);
    char *args[MAX_ARGUMENTS];
    int count;
    int code;

    if (!st)
        return fail(ps, "invalid command");
    ps->word_end = ps->words;
    code = take_arguments(ps, args, &count);
    if (code != UCI_OK)
        return code;
    if (count < st->needs)
        return fail(ps, "insufficient arguments");
    if (count > st->takes)
        return fail(ps, "too many arguments");
    return st->apply(ps, args, count);
}

/*
 * True when another statement follows on the line. A ';' directly behind a bare word drops the rest
 * of the line instead. So files that contain this keep the meaning that they had.
 */
static bool next_statement(struct parser *ps)
{
    if (!at(ps, ';') || ps->tail == TAIL_BARE)
        return false;
    ps->pos++;
    while (!at_line_end(ps) && is_blank(*ps->pos))
        ps->pos++;
    return !at_line_end(ps) && !at(ps, '#');
}

static int run_line(struct parser *ps)
{
    while (!at_line_end(ps) && is_blank(*ps->pos))
        ps->pos++;
    if (at_line_end(ps) || at(ps, '#'))
        return UCI_OK;
    do {
        int code = run_statement(ps);

        if (code != UCI_OK)
            return code;
    } while (next_statement(ps));
    return UCI_OK;
}

/*
 * A NUL byte hides the rest of its line. These bytes are taken out first, so the parser never sees
 * a NUL.
 */
static size_t drop_after_nul(char *text, size_t len)
{
    bool hidden = false;
    size_t kept = 0;

    for (size_t i = 0; i < len; i++) {
        hidden = text[i] != '\n' && (hidden || text[i] == '\0');
        if (!hidden)
            text[kept++] = text[i];
    }
    return kept;
}

int uci_parse_text(struct uci_context *ctx, struct uci_package *p, char *text, size_t len)
{
    struct parser ps = {.ctx = ctx, .package = p, .line = 1};
    int code = UCI_OK;

    ps.pos = text;
    ps.line_start = text;
    ps.end = text + drop_after_nul(text, len);
    ps.words = malloc(len + MAX_ARGUMENTS + 1);
    if (!ps.words)
        return UCI_ERR_MEM;
    while (code == UCI_OK && ps.pos < ps.end) {
        code = run_line(&ps);
        if (code == UCI_OK)
            next_line(&ps);
    }
    free(ps.words);
    return code;
}
