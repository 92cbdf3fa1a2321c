/* SPDX-License-Identifier: ISC */
/* The jsonfilter command: prints what expressions find in JSON. */
#include <ctype.h>
#include <json-c/json.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "json_path.h"
#include "words.h"

#define EXPRESSIONS_MAX 32

enum status { MATCHED = 0, NOT_MATCHED = 1, NO_FILE = 125, NO_JSON = 126, BAD_EXPRESSION = 127 };

struct expression {
    const char *variable; /* NULL: plain text; else its name, which ends at the equals sign */
    bool types;
    struct json_path *path;
};

/* One expression's matches while they are printed. */
struct printing {
    const struct expression *expression;
    int matches;
};

static struct expression expressions[EXPRESSIONS_MAX];
static int expression_count;
static const char *separator = "\\ ";
static long limit; /* 0: none */
static bool quiet;

static const char *plain_text(struct json_object *value)
{
    return json_object_is_type(value, json_type_string)
               ? json_object_get_string(value)
               : json_object_to_json_string_ext(value, JSON_C_TO_STRING_SPACED);
}

static int print_match(struct json_object *match, void *priv)
{
    struct printing *printing = priv;
    const char *variable = printing->expression->variable;

    if (variable) {
        if (printing->matches == 0)
            printf("export %.*s=", (int)strcspn(variable, "="), variable);
        else
            printf("%s", separator);
        words_print_quoted(stdout, plain_text(match));
    } else {
        puts(printing->expression->types ? json_type_to_name(json_object_get_type(match))
                                         : plain_text(match));
    }
    printing->matches++;
    return limit > 0 && printing->matches == limit;
}

static int print_all(struct json_object *root)
{
    int status = MATCHED;

    for (int i = 0; i < expression_count; i++) {
        struct printing printing = {&expressions[i], 0};

        json_path_match(expressions[i].path, root, print_match, &printing);
        if (printing.matches == 0)
            status = NOT_MATCHED;
        else if (expressions[i].variable)
            printf("; ");
    }
    return status;
}

/* An expression may have "NAME=" before it. */
static bool add_expression(const char *text, bool types)
{
    struct expression *expression = &expressions[expression_count];
    size_t name = 0;

    if (expression_count == EXPRESSIONS_MAX)
        return false;
    while (isalnum((unsigned char)text[name]) || text[name] == '_')
        name++;
    expression->types = types;
    if (name > 0 && text[name] == '=') {
        expression->variable = text;
        text += name + 1;
    }
    expression->path = json_path_parse(text);
    if (!expression->path) {
        if (!quiet)
            fprintf(stderr, "Syntax error: in expression %s\n", text);
        return false;
    }
    expression_count++;
    return true;
}

static char *read_input(const char *path)
{
    FILE *file = path ? fopen(path, "re") : stdin;
    char *text = file ? words_read_file(file, NULL) : NULL;

    if (file && file != stdin)
        fclose(file);
    return text;
}

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-q] [-l limit] [-F separator] [-i file|-s text] -e|-t expression ...\n",
            program);
    return 1;
}

int main(int argc, char **argv)
{
    const char *text = NULL;
    const char *path = NULL;
    struct json_object *root;
    int option;

    while ((option = getopt(argc, argv, "s:i:e:t:l:F:q")) != -1) {
        if (option == 's')
            text = optarg;
        else if (option == 'i')
            path = optarg;
        else if (option == 'l')
            limit = strtol(optarg, NULL, 10);
        else if (option == 'F')
            separator = optarg;
        else if (option == 'q')
            quiet = true;
        else if (option != 'e' && option != 't')
            return usage(argv[0]);
        else if (!add_expression(optarg, option == 't'))
            return BAD_EXPRESSION;
    }
    if (expression_count == 0)
        return usage(argv[0]);
    if (!text)
        text = read_input(path);
    if (!text) {
        if (!quiet)
            fprintf(stderr, "Failed to open %s\n", path);
        return NO_FILE;
    }
    root = json_tokener_parse(text);
    if (!root && strcmp(text, "null") != 0) {
        if (!quiet)
            fprintf(stderr, "Failed to parse json data\n");
        return NO_JSON;
    }
    return print_all(root);
}
