/* SPDX-License-Identifier: ISC */
/*
 * What jshn.sh cannot do by itself: JSON to shell variables and back.
 *
 *   jshn -p PREFIX -s NUMBER -r TEXT    prints assignments: the tree's nodes are numbered on from
 *   jshn -p PREFIX -s NUMBER -R FILE    NUMBER, each with a variable per property; see jshn.sh
 *   jshn [-i] -w MARK NAME VALUE ...    prints JSON from three words per element, in order; the
 *                                       marks are in the table below
 */
#include <json-c/json.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "words.h"

#define DEEPEST 64

static const char *prefix = "";
static int last_node;

/* Names of variables have these characters alone. */
static void print_munged(const char *key)
{
    for (; *key; key++) {
        bool kept = (*key >= 'a' && *key <= 'z') || (*key >= 'A' && *key <= 'Z') ||
                    (*key >= '0' && *key <= '9') || *key == '_';

        putchar(kept ? *key : '_');
    }
}

static bool is_munged_otherwise(const char *key)
{
    return key[strspn(key, "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_")];
}

static void begin_assignment(char kind, int node, const char *key)
{
    printf("_J%s_%c_%d_", prefix, kind, node);
    print_munged(key);
    putchar('=');
}

static const char *type_name(struct json_object *value)
{
    return json_object_is_type(value, json_type_null)
               ? "null"
               : json_type_to_name(json_object_get_type(value));
}

static int print_node(struct json_object *node, int parent, int depth);

static void print_child(int node, const char *key, struct json_object *value, int depth)
{
    bool nests =
        json_object_is_type(value, json_type_object) || json_object_is_type(value, json_type_array);
    int child = nests ? print_node(value, node, depth + 1) : 0;

    begin_assignment('t', node, key);
    printf("%s\n", type_name(value));
    begin_assignment('v', node, key);
    if (nests)
        printf("%d", child);
    else if (json_object_is_type(value, json_type_boolean))
        putchar(json_object_get_boolean(value) ? '1' : '0');
    else
        words_print_quoted(stdout, value ? json_object_get_string(value) : "");
    putchar('\n');
    if (is_munged_otherwise(key)) {
        begin_assignment('n', node, key);
        words_print_quoted(stdout, key);
        putchar('\n');
    }
}

static void print_array(int node, struct json_object *array, int depth)
{
    size_t count = json_object_array_length(array);
    char key[24];

    for (size_t i = 0; i < count; i++) {
        snprintf(key, sizeof(key), "%zu", i + 1);
        print_child(node, key, json_object_array_get_idx(array, i), depth);
    }
    printf("_J%s_k_%d='", prefix, node);
    for (size_t i = 0; i < count; i++)
        printf(" %zu", i + 1);
    printf("'\n_J%s_m_%d=%zu\n", prefix, node, count);
}

static void print_object(int node, struct json_object *object, int depth)
{
    json_object_object_foreach(object, key, value) print_child(node, key, value, depth);
    printf("_J%s_k_%d='", prefix, node);
    json_object_object_foreach(object, name, unused)
    {
        (void)unused;
        putchar(' ');
        print_munged(name);
    }
    puts("'");
}

/* Returns the number of the node. */
static int print_node(struct json_object *node, int parent, int depth)
{
    int number = ++last_node;

    printf("_J%s_c_%d=%s\n_J%s_p_%d=%d\n", prefix, number, type_name(node), prefix, number, parent);
    if (json_object_is_type(node, json_type_array))
        print_array(number, node, depth);
    else
        print_object(number, node, depth);
    return number;
}

static int print_variables(const char *text)
{
    struct json_object *root = text ? json_tokener_parse(text) : NULL;
    int number;

    if (!root || !json_object_is_type(root, json_type_object)) {
        fprintf(stderr, "Failed to parse message data\n");
        return 1;
    }
    number = print_node(root, 0, 0);
    printf("_J%s_seq=%d\n_J%s_root=%d\n_J%s_cur=%d\n", prefix, last_node, prefix, number, prefix,
           number);
    json_object_put(root);
    return 0;
}

static char *read_path(const char *path)
{
    FILE *file = fopen(path, "re");
    char *text = file ? words_read_file(file, NULL) : NULL;

    if (file)
        fclose(file);
    return text;
}

static struct json_object *make_object(const char *value)
{
    (void)value;
    return json_object_new_object();
}

static struct json_object *make_array(const char *value)
{
    (void)value;
    return json_object_new_array();
}

static struct json_object *make_int(const char *value)
{
    return json_object_new_int64(strtoll(value, NULL, 10));
}

/* A word such as "true" is 0 here. */
static struct json_object *make_boolean(const char *value)
{
    return json_object_new_boolean(strtol(value, NULL, 10) != 0);
}

static struct json_object *make_double(const char *value)
{
    return json_object_new_double(strtod(value, NULL));
}

static struct json_object *make_null(const char *value)
{
    (void)value;
    return NULL;
}

#define CLOSE "end"

static const struct {
    const char *mark;
    struct json_object *(*make)(const char *value);
} makers[] = {
    {"object", make_object}, {"array", make_array},     {"string", json_object_new_string},
    {"int", make_int},       {"boolean", make_boolean}, {"double", make_double},
    {"null", make_null},
};

static struct json_object *make(const char *mark, const char *value)
{
    for (size_t i = 0; i < sizeof(makers) / sizeof(makers[0]); i++) {
        if (strcmp(makers[i].mark, mark) == 0)
            return makers[i].make(value);
    }
    return NULL;
}

static void put(struct json_object *parent, const char *name, struct json_object *value)
{
    if (json_object_is_type(parent, json_type_array))
        json_object_array_add(parent, value);
    else
        json_object_object_add(parent, name, value);
}

static int write_json(char **words, int count, bool indent)
{
    struct json_object *open[DEEPEST] = {json_object_new_object()};
    int depth = 0;

    for (int i = 0; i + 2 < count; i += 3) {
        struct json_object *value;

        if (strcmp(words[i], CLOSE) == 0) {
            depth -= depth > 0;
            continue;
        }
        value = make(words[i], words[i + 2]);
        put(open[depth], words[i + 1], value);
        if (json_object_is_type(value, json_type_object) ||
            json_object_is_type(value, json_type_array)) {
            if (++depth == DEEPEST)
                return 1;
            open[depth] = value;
        }
    }
    puts(json_object_to_json_string_ext(
        open[0],
        indent ? JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED : JSON_C_TO_STRING_SPACED));
    return 0;
}

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-p prefix] [-s number] -r text|-R file|[-i] -w [mark name value ...]\n",
            program);
    return 2;
}

int main(int argc, char **argv)
{
    bool indent = false;
    int option;

    while ((option = getopt(argc, argv, "+p:s:r:R:iw")) != -1) {
        switch (option) {
        case 'p':
            prefix = optarg;
            break;
        case 's':
            last_node = (int)strtol(optarg, NULL, 10);
            break;
        case 'i':
            indent = true;
            break;
        case 'r':
            return print_variables(optarg);
        case 'R':
            return print_variables(read_path(optarg));
        case 'w':
            return write_json(argv + optind, argc - optind, indent);
        default:
            return usage(argv[0]);
        }
    }
    return usage(argv[0]);
}
