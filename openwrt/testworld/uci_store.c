/* SPDX-License-Identifier: ISC */
#include "uci_store.h"

#include <ctype.h>
#include <dirent.h>
#include <fcntl.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "uci_parse.h"
#include "words.h"

/* operation, path, value */
#define CHANGE_WORDS 3

static bool is_name(const char *text)
{
    if (!*text)
        return false;
    for (; *text; text++) {
        if (!isalnum((unsigned char)*text) && *text != '_')
            return false;
    }
    return true;
}

/* The short life of this program frees what is taken out. */
static void take_out(struct uci_element *e)
{
    e->list.prev->next = e->list.next;
    e->list.next->prev = e->list.prev;
}

static int set_value(struct uci_place *place, const char *value)
{
    if (place->option_name)
        return uci_put_option(place->section, place->option_name, value);
    if (!place->section)
        return uci_put_section(place->package, value, place->section_name, &place->section);
    place->section->type = strdup(value);
    return place->section->type ? UCI_OK : UCI_ERR_MEM;
}

static int add_section(struct uci_place *place, const char *type)
{
    int code = uci_put_section(place->package, type, "", &place->section);

    if (code == UCI_OK)
        place->section->e.name = strdup(place->section_name);
    return code;
}

static int delete_place(struct uci_place *place, const char *value)
{
    (void)value;
    take_out(place->option ? &place->option->e : &place->section->e);
    return UCI_OK;
}

static int add_item(struct uci_place *place, const char *value)
{
    return uci_put_list_item(place->section, place->option_name, value);
}

static int delete_item(struct uci_place *place, const char *value)
{
    struct uci_element *e;
    struct uci_element *next;

    if (place->option->type != UCI_TYPE_LIST)
        return UCI_OK;
    uci_foreach_element_safe(&place->option->v.list, next, e)
    {
        if (strcmp(e->name, value) == 0)
            take_out(e);
    }
    if (place->option->v.list.next == &place->option->v.list)
        take_out(&place->option->e);
    return UCI_OK;
}

enum needs { A_PACKAGE, A_SECTION, AN_OPTION };

static const struct operation {
    const char *name;
    int (*apply)(struct uci_place *place, const char *value);
    enum needs needs;  /* what must be there before */
    const char *shown; /* between path and value in the list of changes */
} operations[] = {
    {"set", set_value, A_PACKAGE, "="},        {"add", add_section, A_PACKAGE, "="},
    {"add_list", add_item, A_SECTION, "+="},   {"del_list", delete_item, AN_OPTION, "-="},
    {"delete", delete_place, A_SECTION, NULL},
};

static const struct operation *find_operation(const char *name)
{
    for (size_t i = 0; i < sizeof(operations) / sizeof(operations[0]); i++) {
        if (strcmp(operations[i].name, name) == 0)
            return &operations[i];
    }
    return NULL;
}

static int apply(const struct operation *operation, struct uci_place *place, const char *value)
{
    bool below = place->option_name != NULL;

    if (!place->section_name || (operation->needs != A_PACKAGE && !place->section))
        return UCI_ERR_NOTFOUND;
    if (operation->needs == AN_OPTION && !place->option)
        return UCI_ERR_NOTFOUND;
    if (operation->apply == delete_place && below && !place->option)
        return UCI_ERR_NOTFOUND;
    if ((operation->apply == add_item || operation->apply == delete_item) && !below)
        return UCI_ERR_INVAL;
    if (below && !place->section)
        return UCI_ERR_INVAL;
    return operation->apply(place, value);
}

static char *in_folder(const char *folder, const char *name)
{
    char *path = NULL;

    return asprintf(&path, "%s/%s", folder, name) < 0 ? NULL : path;
}

static FILE *open_changes(const char *folder, const char *name, const char *mode)
{
    char *path = in_folder(folder, name);
    FILE *file = path ? fopen(path, mode) : NULL;

    free(path);
    if (file)
        (void)flock(fileno(file), LOCK_EX);
    return file;
}

static int look_up(struct uci_place *place)
{
    struct uci_context *ctx = place->package->ctx;

    place->section = NULL;
    place->option = NULL;
    if (place->section_name)
        place->section = uci_lookup_section(ctx, place->package, place->section_name);
    if (place->section && place->option_name)
        place->option = uci_lookup_option(ctx, place->section, place->option_name);
    return UCI_OK;
}

/* Splits package.section.option; false where there is a fourth part. */
static bool split(char *path, struct uci_place *place)
{
    place->package_name = strsep(&path, ".");
    place->section_name = strsep(&path, ".");
    place->option_name = strsep(&path, ".");
    return !path;
}

/* One noted change, on the loaded package. What does not fit any more is passed over. */
static void replay(struct uci_package *package, char **words, int count)
{
    struct uci_place place = {.package = package};
    const struct operation *operation = find_operation(words[0]);

    if (count < 2 || !operation || !split(words[1], &place))
        return;
    look_up(&place);
    (void)apply(operation, &place, count == CHANGE_WORDS ? words[2] : "");
}

static void replay_folder(struct uci_package *package, const char *folder)
{
    FILE *file = open_changes(folder, package->e.name, "re");
    char *words[CHANGE_WORDS];
    char *text = file ? words_read_file(file, NULL) : NULL;
    char *at = text;
    int count;

    while (at && (count = words_of_line(&at, words, CHANGE_WORDS)) > 0)
        replay(package, words, count);
    free(text);
    if (file)
        fclose(file);
}

int store_open(struct uci_store *store, const char *name, struct uci_package **package)
{
    struct uci_element *e;
    int code;

    uci_foreach_element(&store->ctx->root, e)
    {
        if (strcmp(e->name, name) == 0) {
            *package = uci_to_package(e);
            return UCI_OK;
        }
    }
    code = uci_load(store->ctx, name, package);
    if (code != UCI_OK)
        return code;
    for (int i = 0; i < store->searches; i++)
        replay_folder(*package, store->search[i]);
    replay_folder(*package, store->savedir);
    return UCI_OK;
}

/* The section of type[n]; a negative n counts from the end. */
static struct uci_section *nth_section(struct uci_package *package, const char *type, long n)
{
    struct uci_element *e;
    long count = 0;

    uci_foreach_element(&package->sections, e) count += strcmp(uci_to_section(e)->type, type) == 0;
    if (n < 0)
        n += count;
    uci_foreach_element(&package->sections, e)
    {
        if (strcmp(uci_to_section(e)->type, type) == 0 && n-- == 0)
            return uci_to_section(e);
    }
    return NULL;
}

/* From @type[n] to the section's name; false where it is not well formed. */
static int find_by_type(struct uci_place *place)
{
    char *type = place->section_name + 1;
    char *bracket = strchr(type, '[');
    char *end;
    long n;

    if (!bracket || bracket[1] == ']')
        return UCI_ERR_INVAL;
    *bracket = '\0';
    n = strtol(bracket + 1, &end, 10);
    if (strcmp(end, "]") != 0)
        return UCI_ERR_INVAL;
    place->section = nth_section(place->package, type, n);
    if (!place->section)
        return UCI_ERR_NOTFOUND;
    place->section_name = place->section->e.name;
    return UCI_OK;
}

int store_find(struct uci_store *store, char *path, struct uci_place *place)
{
    int code;

    memset(place, 0, sizeof(*place));
    if (!split(path, place) || (place->option_name && !is_name(place->option_name)))
        return UCI_ERR_INVAL;
    code = store_open(store, place->package_name, &place->package);
    if (code != UCI_OK)
        return code;
    if (place->section_name && place->section_name[0] == '@')
        code = find_by_type(place);
    else if (place->section_name && !is_name(place->section_name))
        code = UCI_ERR_INVAL;
    return code == UCI_OK ? look_up(place) : code;
}

static void print_path(FILE *out, const struct uci_place *place)
{
    fprintf(out, "%s", place->package_name);
    if (place->section_name)
        fprintf(out, ".%s", place->section_name);
    if (place->option_name)
        fprintf(out, ".%s", place->option_name);
}

static int note(struct uci_store *store, const char *operation, const struct uci_place *place,
                const char *value)
{
    FILE *file;

    (void)mkdir(store->savedir, 0700);
    file = open_changes(store->savedir, place->package_name, "ae");
    if (!file)
        return UCI_ERR_IO;
    fprintf(file, "%s ", operation);
    print_path(file, place);
    fputc(' ', file);
    words_print_quoted(file, value);
    fputc('\n', file);
    return fclose(file) == 0 ? UCI_OK : UCI_ERR_IO;
}

int store_change(struct uci_store *store, const char *operation, struct uci_place *place,
                 const char *value)
{
    const struct operation *found = find_operation(operation);
    int code = found ? apply(found, place, value) : UCI_ERR_INVAL;

    return code == UCI_OK ? note(store, operation, place, value) : code;
}

char *store_next_name(const struct uci_package *package, const char *type)
{
    struct uci_package empty = *package;
    struct uci_section *section;

    empty.sections.next = empty.sections.prev = &empty.sections;
    return uci_put_section(&empty, type, "", &section) == UCI_OK ? section->e.name : NULL;
}

static void print_option(FILE *out, const char *keyword, const char *name, const char *value)
{
    fprintf(out, "\t%s %s ", keyword, name);
    words_print_quoted(out, value);
    fputc('\n', out);
}

static void export_option(FILE *out, const struct uci_option *option)
{
    struct uci_element *item;

    if (option->type == UCI_TYPE_STRING) {
        print_option(out, "option", option->e.name, option->v.string);
        return;
    }
    uci_foreach_element(&option->v.list, item)
        print_option(out, "list", option->e.name, item->name);
}

static void export_sections(FILE *out, struct uci_package *package, bool names)
{
    struct uci_element *s;
    struct uci_element *o;

    uci_foreach_element(&package->sections, s)
    {
        struct uci_section *section = uci_to_section(s);

        fprintf(out, "\nconfig %s", section->type);
        if (names || !section->anonymous) {
            fputc(' ', out);
            words_print_quoted(out, s->name);
        }
        fputc('\n', out);
        uci_foreach_element(&section->options, o) export_option(out, uci_to_option(o));
    }
    fputc('\n', out);
}

void store_export(FILE *out, struct uci_package *package, bool names)
{
    fprintf(out, "package %s\n", package->e.name);
    export_sections(out, package, names);
}

/* A new file in place of the old one, with its mode. */
static int write_package(struct uci_store *store, struct uci_package *package)
{
    char *temporary = NULL;
    struct stat old;
    FILE *out;
    int fd;
    bool good = false;

    if (asprintf(&temporary, "%s/.%s.XXXXXX", store->confdir, package->e.name) < 0)
        return UCI_ERR_MEM;
    fd = mkostemp(temporary, O_CLOEXEC);
    out = fd < 0 ? NULL : fdopen(fd, "w");
    if (out) {
        if (stat(package->path, &old) == 0)
            (void)fchmod(fd, old.st_mode & 07777);
        export_sections(out, package, false);
        good = !ferror(out);
        good = fclose(out) == 0 && good && rename(temporary, package->path) == 0;
        if (!good)
            (void)unlink(temporary);
    }
    free(temporary);
    return good ? UCI_OK : UCI_ERR_IO;
}

int store_commit(struct uci_store *store, const char *name)
{
    struct uci_package *package;
    int code = store_open(store, name, &package);
    FILE *changes;
    struct stat st;

    if (code != UCI_OK)
        return code;
    changes = open_changes(store->savedir, name, "r+e");
    if (!changes)
        return UCI_OK;
    if (fstat(fileno(changes), &st) == 0 && st.st_size > 0) {
        code = write_package(store, package);
        if (code == UCI_OK && ftruncate(fileno(changes), 0) != 0)
            code = UCI_ERR_IO;
    }
    fclose(changes);
    return code;
}

static bool is_below(const char *path, const char *above)
{
    size_t len = strlen(above);

    return strncmp(path, above, len) == 0 && (path[len] == '\0' || path[len] == '.');
}

static void keep_change(FILE *out, char **words, int count)
{
    fprintf(out, "%s %s ", words[0], words[1]);
    words_print_quoted(out, count == CHANGE_WORDS ? words[2] : "");
    fputc('\n', out);
}

static void keep_others(FILE *out, char *text, const char *above)
{
    char *words[CHANGE_WORDS];
    int count;

    while ((count = words_of_line(&text, words, CHANGE_WORDS)) > 1) {
        if (!is_below(words[1], above))
            keep_change(out, words, count);
    }
}

int store_revert(struct uci_store *store, const struct uci_place *place)
{
    FILE *file = open_changes(store->savedir, place->package_name, "r+e");
    char above[512];
    char *text;

    if (!file)
        return UCI_OK;
    snprintf(above, sizeof(above), "%s%s%s%s%s", place->package_name,
             place->section_name ? "." : "", place->section_name ? place->section_name : "",
             place->option_name ? "." : "", place->option_name ? place->option_name : "");
    text = words_read_file(file, NULL);
    rewind(file);
    if (text && ftruncate(fileno(file), 0) == 0)
        keep_others(file, text, above);
    free(text);
    return fclose(file) == 0 ? UCI_OK : UCI_ERR_IO;
}

int store_print_changes(struct uci_store *store, const char *name)
{
    FILE *file = open_changes(store->savedir, name, "re");
    char *words[CHANGE_WORDS];
    char *text = file ? words_read_file(file, NULL) : NULL;
    char *at = text;
    int count;

    while (at && (count = words_of_line(&at, words, CHANGE_WORDS)) > 1) {
        const struct operation *operation = find_operation(words[0]);

        if (!operation || !operation->shown) {
            printf("-%s\n", words[1]);
            continue;
        }
        printf("%s%s", words[1], operation->shown);
        words_print_quoted(stdout, count == CHANGE_WORDS ? words[2] : "");
        putchar('\n');
    }
    free(text);
    if (file)
        fclose(file);
    return UCI_OK;
}
