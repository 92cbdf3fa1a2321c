/* SPDX-License-Identifier: ISC */
/* Words as a shell quotes them: what the stand-ins read from batches and write for eval. */
#ifndef TESTWORLD_WORDS_H
#define TESTWORLD_WORDS_H

#include <stdio.h>

/* All that can be read, with a NUL behind it, which is not counted in *len (may be NULL). NULL
   where it cannot be read. The caller frees it. */
char *words_read_file(FILE *file, size_t *len);

/*
 * Takes the words of the next line that has any from *text, which moves behind them and is changed
 * in place. Quotes may span lines. Returns how many, 0 at the end of the text, -1 where a quote is
 * not closed or there are more than max.
 */
int words_of_line(char **text, char **words, int max);

/* Prints a word in single quotes. */
void words_print_quoted(FILE *out, const char *word);

#endif
