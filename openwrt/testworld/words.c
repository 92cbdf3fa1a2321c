/* SPDX-License-Identifier: ISC */
#include "words.h"

#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

char *words_read_file(FILE *file, size_t *len)
{
    char *text = NULL;
    size_t size = 0;
    size_t used = 0;

    do {
        char *grown;

        if (size - used < 2) {
            grown = realloc(text, size = size * 2 + 4096);
            if (!grown)
                break;
            text = grown;
        }
        used += fread(text + used, 1, size - used - 1, file);
        text[used] = '\0';
    } while (!feof(file) && !ferror(file));
    if (text && !ferror(file) && feof(file)) {
        if (len)
            *len = used;
        return text;
    }
    free(text);
    return NULL;
}

/* Moves what stands in quotes to *out; returns behind the closing one, or NULL without one. */
static char *unquote(char *in, char **out)
{
    char quote = *in++;

    while (*in && *in != quote) {
        if (quote == '"' && *in == '\\' && in[1])
            in++;
        *(*out)++ = *in++;
    }
    return *in ? in + 1 : NULL;
}

/* Shortens one word in place; returns what is behind it, or NULL where a quote is not closed. */
static char *take_word(char *in)
{
    char *out = in;
    char ended_by;

    while (in && *in && !strchr(" \t\n", *in)) {
        if (*in == '\'' || *in == '"') {
            in = unquote(in, &out);
            continue;
        }
        if (*in == '\\' && in[1])
            in++;
        *out++ = *in++;
    }
    if (!in)
        return NULL;
    ended_by = *in;
    *out = '\0';
    /* The word may have ended the text where it lies; what follows is told by the byte behind it.
     */
    if (ended_by != '\0')
        *in = ended_by;
    return in;
}

int words_of_line(char **text, char **words, int max)
{
    char *at = *text;
    int count = 0;

    while (*at) {
        char *end;
        bool line_ends;

        if (*at == '\n' && count > 0)
            break;
        if (strchr(" \t\n", *at)) {
            at++;
            continue;
        }
        if (count == max)
            return -1;
        words[count++] = at;
        end = take_word(at);
        if (!end)
            return -1;
        line_ends = *end == '\n';
        if (*end != '\0')
            *end++ = '\0';
        at = end;
        if (line_ends)
            break;
    }
    *text = at;
    return count;
}

void words_print_quoted(FILE *out, const char *word)
{
    fputc('\'', out);
    for (; *word; word++) {
        if (*word == '\'')
            fputs("'\\''", out);
        else
            fputc(*word, out);
    }
    fputc('\'', out);
}
