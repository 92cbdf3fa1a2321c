/* SPDX-License-Identifier: ISC */
#include "json_path.h"

#include <ctype.h>
#include <stdbool.h>
#include <stdlib.h>
#include <string.h>

enum kind { NAME, INDEX, ALL, DEEP, TEST };

struct json_path { /* one step, and those behind it */
    enum kind kind;
    char *name;        /* NAME, DEEP */
    long index;        /* INDEX */
    struct term *test; /* TEST */
    struct json_path *next;
};

enum operation { OR, AND, NOT, COMPARE, PATH, VALUE };

struct term {
    enum operation operation;
    struct term *left; /* OR, AND, NOT, COMPARE */
    struct term *right;
    const char *comparison; /* of the table below */
    struct json_path *path; /* PATH */
    bool from_root;
    struct json_object *value; /* VALUE */
};

static const char *const comparisons[] = {"!=", "<=", ">=", "==", "=", "<", ">"};

/* What is left of the text; NULL once it is malformed. */
struct reader {
    const char *at;
};

static struct json_path *read_steps(struct reader *in);
static struct term *read_or(struct reader *in);

static void *zeroed(size_t size)
{
    void *block = calloc(1, size);

    if (!block)
        abort();
    return block;
}

static bool malformed(struct reader *in)
{
    in->at = NULL;
    return false;
}

static bool take(struct reader *in, const char *text)
{
    size_t len = strlen(text);

    if (!in->at)
        return false;
    while (isspace((unsigned char)*in->at))
        in->at++;
    if (strncmp(in->at, text, len) != 0)
        return false;
    in->at += len;
    return true;
}

static bool is_word_byte(char byte)
{
    return isalnum((unsigned char)byte) || byte == '_';
}

static char *take_word(struct reader *in)
{
    size_t len = 0;
    char *word;

    while (in->at && is_word_byte(in->at[len]))
        len++;
    if (len == 0) {
        malformed(in);
        return NULL;
    }
    word = strndup(in->at, len);
    in->at += len;
    return word;
}

/* Behind the opening quote. */
static char *take_quoted(struct reader *in, char quote)
{
    char *text = zeroed(strlen(in->at) + 1);
    size_t len = 0;

    while (*in->at && *in->at != quote) {
        if (*in->at == '\\' && in->at[1])
            in->at++;
        text[len++] = *in->at++;
    }
    if (!*in->at) {
        malformed(in);
        free(text);
        return NULL;
    }
    in->at++;
    return text;
}

static char *take_text(struct reader *in)
{
    if (take(in, "'"))
        return take_quoted(in, '\'');
    if (take(in, "\""))
        return take_quoted(in, '"');
    return NULL;
}

static bool take_number(struct reader *in, long *number)
{
    char *end;

    if (!in->at || (!isdigit((unsigned char)*in->at) && *in->at != '-'))
        return false;
    *number = strtol(in->at, &end, 10);
    if (end == in->at)
        return malformed(in);
    in->at = end;
    return true;
}

static void read_bracket(struct reader *in, struct json_path *step)
{
    if (take(in, "*")) {
        step->kind = ALL;
    } else if (take_number(in, &step->index)) {
        step->kind = INDEX;
    } else if ((step->name = take_text(in))) {
        step->kind = NAME;
    } else {
        step->kind = TEST;
        step->test = read_or(in);
    }
    if (!take(in, "]"))
        malformed(in);
}

static struct json_path *read_steps(struct reader *in)
{
    struct json_path *step;

    if (!in->at || (*in->at != '.' && *in->at != '['))
        return NULL;
    step = zeroed(sizeof(*step));
    if (take(in, "[")) {
        read_bracket(in, step);
    } else if (take(in, "..")) {
        step->kind = DEEP;
        step->name = take_word(in);
    } else if (take(in, ".*")) {
        step->kind = ALL;
    } else if (take(in, ".")) {
        step->kind = NAME;
        step->name = take_word(in);
    }
    step->next = read_steps(in);
    return step;
}

static struct term *new_term(enum operation operation, struct term *left)
{
    struct term *term = zeroed(sizeof(*term));

    term->operation = operation;
    term->left = left;
    return term;
}

static struct term *read_value(struct reader *in)
{
    struct term *term = new_term(VALUE, NULL);
    char *text;
    long number;

    if (take(in, "@") || take(in, "$")) {
        term->operation = PATH;
        term->from_root = in->at[-1] == '$';
        term->path = read_steps(in);
    } else if ((text = take_text(in))) {
        term->value = json_object_new_string(text);
    } else if (take_number(in, &number)) {
        term->value = json_object_new_int64(number);
    } else if (take(in, "true")) {
        term->value = json_object_new_boolean(1);
    } else if (take(in, "false")) {
        term->value = json_object_new_boolean(0);
    } else {
        malformed(in);
    }
    return term;
}

static struct term *read_comparison(struct reader *in)
{
    struct term *left;
    struct term *term;

    if (take(in, "!"))
        return new_term(NOT, read_comparison(in));
    if (take(in, "(")) {
        left = read_or(in);
        if (!take(in, ")"))
            malformed(in);
        return left;
    }
    left = read_value(in);
    for (size_t i = 0; i < sizeof(comparisons) / sizeof(comparisons[0]); i++) {
        if (!take(in, comparisons[i]))
            continue;
        term = new_term(COMPARE, left);
        term->comparison = comparisons[i];
        term->right = read_value(in);
        return term;
    }
    return left;
}

static struct term *read_and(struct reader *in)
{
    struct term *term = read_comparison(in);

    while (take(in, "&&")) {
        term = new_term(AND, term);
        term->right = read_comparison(in);
    }
    return term;
}

static struct term *read_or(struct reader *in)
{
    struct term *term = read_and(in);

    while (take(in, "||")) {
        term = new_term(OR, term);
        term->right = read_and(in);
    }
    return term;
}

struct json_path *json_path_parse(const char *text)
{
    struct reader in = {text};
    struct json_path *steps;
    struct json_path *start;

    if (!take(&in, "@") && !take(&in, "$"))
        return NULL;
    steps = read_steps(&in);
    if (!in.at || *in.at)
        return NULL;                /* NOLINT(clang-analyzer-unix.Malloc): the program ends */
    start = zeroed(sizeof(*start)); /* where it begins: there need be no step */
    start->next = steps;
    return start;
}

/* One walk through the tree. */
struct search {
    struct json_object *root;
    json_path_visit_t visit;
    void *priv;
};

static int walk(const struct search *search, const struct json_path *step,
                struct json_object *node);

static int keep_first(struct json_object *match, void *priv)
{
    struct json_object **first = priv;

    *first = match;
    return 1;
}

/* The first that a path finds; false without one. */
static bool find_first(const struct search *search, const struct term *term,
                       struct json_object *node, struct json_object **found)
{
    struct search inner = {search->root, keep_first, found};

    *found = term->value;
    return term->operation == VALUE ||
           walk(&inner, term->path, term->from_root ? search->root : node) != 0;
}

static int sign(double number)
{
    return (number > 0) - (number < 0);
}

/* Like kinds compare; others are unlike. */
static bool order_of(struct json_object *left, struct json_object *right, int *order)
{
    bool texts =
        json_object_is_type(left, json_type_string) && json_object_is_type(right, json_type_string);
    bool truths = json_object_is_type(left, json_type_boolean) &&
                  json_object_is_type(right, json_type_boolean);

    if (texts)
        *order = strcmp(json_object_get_string(left), json_object_get_string(right));
    else if (truths)
        *order = json_object_get_boolean(left) - json_object_get_boolean(right);
    else if ((json_object_is_type(left, json_type_int) ||
              json_object_is_type(left, json_type_double)) &&
             (json_object_is_type(right, json_type_int) ||
              json_object_is_type(right, json_type_double)))
        *order = sign(json_object_get_double(left) - json_object_get_double(right));
    else
        return false;
    return true;
}

static bool compare(const char *comparison, struct json_object *left, struct json_object *right)
{
    int order;
    bool or_equal = comparison[1] == '=';

    if (!order_of(left, right, &order))
        return comparison[0] == '!';
    switch (comparison[0]) {
    case '!':
        return order != 0;
    case '<':
        return order < 0 || (or_equal && order == 0);
    case '>':
        return order > 0 || (or_equal && order == 0);
    default:
        return order == 0;
    }
}

static bool holds(const struct search *search, const struct term *term, struct json_object *node)
{
    struct json_object *left;
    struct json_object *right;

    switch (term->operation) {
    case OR:
        return holds(search, term->left, node) || holds(search, term->right, node);
    case AND:
        return holds(search, term->left, node) && holds(search, term->right, node);
    case NOT:
        return !holds(search, term->left, node);
    case COMPARE:
        return find_first(search, term->left, node, &left) &&
               find_first(search, term->right, node, &right) &&
               compare(term->comparison, left, right);
    default:
        return find_first(search, term, node, &left);
    }
}

/* What a step does with each of a node's children. */
typedef int (*on_child_t)(const struct search *search, const struct json_path *step,
                          const char *key, struct json_object *child);

static int each_child(const struct search *search, const struct json_path *step,
                      struct json_object *node, on_child_t on_child)
{
    int code = 0;

    if (json_object_is_type(node, json_type_array)) {
        size_t count = json_object_array_length(node);

        for (size_t i = 0; i < count && code == 0; i++)
            code = on_child(search, step, "", json_object_array_get_idx(node, i));
    } else if (json_object_is_type(node, json_type_object)) {
        json_object_object_foreach(node, key, value)
        {
            if (code == 0)
                code = on_child(search, step, key, value);
        }
    }
    return code;
}

static int on_any(const struct search *search, const struct json_path *step, const char *key,
                  struct json_object *child)
{
    (void)key;
    return walk(search, step->next, child);
}

static int on_named(const struct search *search, const struct json_path *step, const char *key,
                    struct json_object *child)
{
    return strcmp(key, step->name) == 0 ? walk(search, step->next, child) : 0;
}

static int on_tested(const struct search *search, const struct json_path *step, const char *key,
                     struct json_object *child)
{
    (void)key;
    return holds(search, step->test, child) ? walk(search, step->next, child) : 0;
}

static int on_deep(const struct search *search, const struct json_path *step, const char *key,
                   struct json_object *child)
{
    int code = on_named(search, step, key, child);

    return code != 0 ? code : each_child(search, step, child, on_deep);
}

static int walk_index(const struct search *search, const struct json_path *step,
                      struct json_object *node)
{
    long count;
    long index = step->index;

    if (!json_object_is_type(node, json_type_array))
        return 0;
    count = (long)json_object_array_length(node);
    index += index < 0 ? count : 0;
    if (index < 0 || index >= count)
        return 0;
    return walk(search, step->next, json_object_array_get_idx(node, (size_t)index));
}

static int walk(const struct search *search, const struct json_path *step, struct json_object *node)
{
    if (!step)
        return search->visit(node, search->priv);
    switch (step->kind) {
    case NAME:
        return each_child(search, step, node, on_named);
    case INDEX:
        return walk_index(search, step, node);
    case ALL:
        return each_child(search, step, node, on_any);
    case DEEP:
        return each_child(search, step, node, on_deep);
    case TEST:
        return each_child(search, step, node, on_tested);
    }
    return 0;
}

int json_path_match(const struct json_path *path, struct json_object *root, json_path_visit_t visit,
                    void *priv)
{
    struct search search = {root, visit, priv};

    return walk(&search, path->next, root);
}
