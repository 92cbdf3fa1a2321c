/* SPDX-License-Identifier: ISC */
/* The uci command: what scripts use of it. */
#include <dirent.h>
#include <getopt.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "uci_store.h"
#include "words.h"

#define MAX_WORDS 4
#define WRONG_USAGE 255

static struct uci_store store = {.confdir = UCI_CONFDIR, .savedir = UCI_SAVEDIR};
static const char *delimiter = " ";
static bool quiet;
static bool made_up_names; /* -X: show them, in place of @type[n] */
static bool export_names;  /* -n: export them */

/* Prints why and returns the status. */
static int told(int code)
{
    if (code == UCI_OK)
        return 0;
    store.ctx->err = code;
    if (!quiet)
        uci_perror(store.ctx, "uci");
    return 1;
}

/* Cuts path=value in two. NULL without a value. */
static char *cut_value(char *argument)
{
    char *equals = strchr(argument, '=');

    if (!equals)
        return NULL;
    *equals = '\0';
    return equals + 1;
}

static int change(const char *operation, char *argument, bool with_value)
{
    struct uci_place place;
    char *value = with_value ? cut_value(argument) : NULL;
    int code;

    if (with_value && !value)
        return told(UCI_ERR_INVAL);
    code = store_find(&store, argument, &place);
    if (code == UCI_OK)
        code = store_change(&store, operation, &place, value ? value : "");
    return told(code);
}

/* An empty value takes away what is there, and is content where nothing is. */
static int command_set(char **words)
{
    struct uci_place place;
    char *value = cut_value(words[0]);
    int code;

    if (!value)
        return told(UCI_ERR_INVAL);
    code = store_find(&store, words[0], &place);
    if (code != UCI_OK)
        return told(code);
    if (!place.section_name)
        return told(UCI_ERR_INVAL);
    if (value[0])
        return told(store_change(&store, "set", &place, value));
    if (place.option_name ? !place.option : !place.section)
        return 0;
    return told(store_change(&store, "delete", &place, ""));
}

static int command_delete(char **words)
{
    return change("delete", words[0], strchr(words[0], '=') != NULL);
}

static int command_add_list(char **words)
{
    return change("add_list", words[0], true);
}

static int command_del_list(char **words)
{
    return change("del_list", words[0], true);
}

static int command_add(char **words)
{
    struct uci_place place = {.package_name = words[0]};
    int code = store_open(&store, words[0], &place.package);

    if (code == UCI_OK) {
        place.section_name = store_next_name(place.package, words[1]);
        code = place.section_name ? store_change(&store, "add", &place, words[1]) : UCI_ERR_MEM;
    }
    if (code == UCI_OK)
        printf("%s\n", place.section_name);
    return told(code);
}

static void print_text(const char *text, bool quoted)
{
    if (quoted)
        words_print_quoted(stdout, text);
    else
        printf("%s", text);
}

/* The value, or the items with the delimiter between them. */
static void print_value(const struct uci_option *option, bool quoted)
{
    struct uci_element *item;

    if (option->type == UCI_TYPE_STRING) {
        print_text(option->v.string, quoted);
    } else {
        uci_foreach_element(&option->v.list, item)
        {
            if (item->list.prev != &option->v.list)
                printf("%s", delimiter);
            print_text(item->name, quoted);
        }
    }
    putchar('\n');
}

static int command_get(char **words)
{
    struct uci_place place;
    int code = store_find(&store, words[0], &place);

    if (code == UCI_OK && !place.section_name)
        code = UCI_ERR_INVAL;
    if (code == UCI_OK && (place.option_name ? !place.option : !place.section))
        code = UCI_ERR_NOTFOUND;
    if (code != UCI_OK)
        return told(code);
    if (place.option)
        print_value(place.option, false);
    else
        puts(place.section->type);
    return 0;
}

static void print_section_name(const struct uci_section *section)
{
    struct uci_element *e;
    int n = 0;

    printf("%s.", section->package->e.name);
    if (!section->anonymous || made_up_names) {
        printf("%s", section->e.name);
        return;
    }
    uci_foreach_element(&section->package->sections, e)
    {
        if (uci_to_section(e) == section)
            break;
        n += strcmp(uci_to_section(e)->type, section->type) == 0;
    }
    printf("@%s[%d]", section->type, n);
}

static void show_option(const struct uci_option *option)
{
    print_section_name(option->section);
    printf(".%s=", option->e.name);
    print_value(option, true);
}

static void show_section(struct uci_section *section)
{
    struct uci_element *e;

    print_section_name(section);
    printf("=%s\n", section->type);
    uci_foreach_element(&section->options, e) show_option(uci_to_option(e));
}

static int show_package(const char *name)
{
    struct uci_package *package;
    struct uci_element *e;
    int code = store_open(&store, name, &package);

    if (code != UCI_OK)
        return code;
    uci_foreach_element(&package->sections, e) show_section(uci_to_section(e));
    return UCI_OK;
}

/* For each file of a folder. */
static int each_package(const char *folder, int (*visit)(const char *name))
{
    struct dirent **names;
    int count = scandir(folder, &names, NULL, alphasort);
    int code = UCI_OK;

    for (int i = 0; i < count; i++) {
        if (names[i]->d_name[0] != '.' && code == UCI_OK)
            code = visit(names[i]->d_name);
        free(names[i]);
    }
    if (count >= 0)
        free(names);
    return code;
}

static int command_show(char **words)
{
    struct uci_place place;
    int code;

    if (!words[0])
        return told(each_package(store.confdir, show_package));
    code = store_find(&store, words[0], &place);
    if (code != UCI_OK)
        return told(code);
    if (!place.section_name)
        return told(show_package(place.package_name));
    if (place.option_name ? !place.option : !place.section)
        return told(UCI_ERR_NOTFOUND);
    if (place.option)
        show_option(place.option);
    else
        show_section(place.section);
    return 0;
}

static int export_package(const char *name)
{
    struct uci_package *package;
    int code = store_open(&store, name, &package);

    if (code == UCI_OK)
        store_export(stdout, package, export_names);
    return code;
}

static int command_export(char **words)
{
    return told(words[0] ? export_package(words[0]) : each_package(store.confdir, export_package));
}

static int commit_package(const char *name)
{
    return store_commit(&store, name);
}

static int command_commit(char **words)
{
    return told(words[0] ? commit_package(words[0]) : each_package(store.savedir, commit_package));
}

static int print_changes(const char *name)
{
    return store_print_changes(&store, name);
}

static int command_changes(char **words)
{
    return told(words[0] ? print_changes(words[0]) : each_package(store.savedir, print_changes));
}

static int command_revert(char **words)
{
    struct uci_place place;
    int code = store_find(&store, words[0], &place);

    return told(code == UCI_OK ? store_revert(&store, &place) : code);
}

static int command_batch(char **words);

static const struct {
    const char *name;
    int min;
    int max;
    int (*run)(char **words);
} commands[] = {
    {"get", 1, 1, command_get},           {"set", 1, 1, command_set},
    {"delete", 1, 1, command_delete},     {"del", 1, 1, command_delete},
    {"add", 2, 2, command_add},           {"add_list", 1, 1, command_add_list},
    {"del_list", 1, 1, command_del_list}, {"show", 0, 1, command_show},
    {"export", 0, 1, command_export},     {"commit", 0, 1, command_commit},
    {"changes", 0, 1, command_changes},   {"revert", 1, 1, command_revert},
    {"batch", 0, 0, command_batch},
};

/* words: a command and what belongs to it, with a NULL behind. */
static int run(char **words, int count)
{
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); i++) {
        if (strcmp(commands[i].name, words[0]) != 0)
            continue;
        if (count - 1 < commands[i].min || count - 1 > commands[i].max)
            break;
        return commands[i].run(words + 1);
    }
    return WRONG_USAGE;
}

/* Commands from the standard input, one a line. The status does not tell of one that failed. */
static int command_batch(char **words)
{
    char *line[MAX_WORDS + 1];
    char *text = words_read_file(stdin, NULL);
    char *at = text;
    int count;

    (void)words;
    while (at && (count = words_of_line(&at, line, MAX_WORDS)) != 0) {
        if (count < 0)
            return told(UCI_ERR_PARSE);
        line[count] = NULL;
        if (run(line, count) == WRONG_USAGE)
            fprintf(stderr, "Unknown command\n");
    }
    free(text);
    return 0;
}

static int usage(void)
{
    fprintf(stderr,
            "Usage: uci [-q] [-n] [-X] [-S] [-c confdir] [-t savedir] [-p|-P savedir] "
            "[-d delimiter] command [argument]\nCommands:");
    for (size_t i = 0; i < sizeof(commands) / sizeof(commands[0]); i++)
        fprintf(stderr, " %s", commands[i].name);
    fputc('\n', stderr);
    return WRONG_USAGE;
}

static bool search_also(const char *folder)
{
    if (store.searches == STORE_SEARCH_MAX)
        return false;
    store.search[store.searches++] = folder;
    return true;
}

static bool take_option(int option)
{
    switch (option) {
    case 'c':
        store.confdir = optarg;
        return true;
    case 't':
        store.savedir = optarg;
        return true;
    case 'p':
        return search_also(optarg);
    case 'P': {
        const char *before = store.savedir;

        store.savedir = optarg;
        return search_also(before);
    }
    case 'd':
        delimiter = optarg;
        return true;
    case 'q':
        quiet = true;
        return true;
    case 'n':
        export_names = true;
        return true;
    case 'X':
        made_up_names = true;
        return true;
    default:
        return option == 'S' || option == 's' || option == 'N';
    }
}

int main(int argc, char **argv)
{
    int option;
    int status;

    while ((option = getopt(argc, argv, "+c:t:p:P:d:qnNXsS")) != -1) {
        if (!take_option(option))
            return usage();
    }
    store.ctx = uci_alloc_context();
    if (!store.ctx || optind >= argc)
        return usage();
    uci_set_confdir(store.ctx, store.confdir);
    status = run(argv + optind, argc - optind);
    if (fflush(stdout) != 0)
        status = 1;
    return status == WRONG_USAGE ? usage() : status;
}
