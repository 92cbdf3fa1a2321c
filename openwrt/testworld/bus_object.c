/* SPDX-License-Identifier: ISC */
#include "bus_object.h"

#include <dirent.h>
#include <limits.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "command.h"

#define PROGRAMS "/usr/lib/testworld/ubus"
#define FAMILIES "/usr/lib/testworld/ubus.d"
#define PLUGINS "/usr/libexec/rpcd"
#define SIGNATURES "/var/run/testworld/rpcd"
#define PLUGIN_LIMIT_MS 30000
#define LIST_LIMIT_MS 10000
#define NAMES_MAX 1024

static const char *const status_texts[] = {
    "Success",
    "Invalid command",
    "Invalid argument",
    "Method not found",
    "Not found",
    "No response",
    "Permission denied",
    "Request timed out",
    "Operation not supported",
    "Unknown error",
    "Connection failed",
    "Out of memory",
    "Parsing message data failed",
};

const char *bus_status_text(int status)
{
    int count = (int)(sizeof(status_texts) / sizeof(status_texts[0]));

    return status >= 0 && status < count ? status_texts[status] : "Unknown error";
}

enum kind { PROGRAM, MEMBER, PLUGIN };

struct object {
    enum kind kind;
    char path[PATH_MAX]; /* of the program */
    const char *name;
};

static bool in_folder(char *path, const char *folder, const char *name, size_t len)
{
    int size = snprintf(path, PATH_MAX, "%s/%.*s", folder, (int)len, name);

    return len > 0 && size < PATH_MAX && !memchr(name, '/', len);
}

static int list_methods(const struct object *object, char **text)
{
    const char *arguments[] = {object->path, "list", object->kind == MEMBER ? object->name : NULL,
                               NULL};
    struct command command = {
        .arguments = arguments, .drop_errors = true, .limit_ms = LIST_LIMIT_MS};

    return command_run(&command, text);
}

/* A family is asked whether it has the member. */
static bool is_member(struct object *object)
{
    const char *dot = strchr(object->name, '.');
    char *text = NULL;
    int status;

    if (!dot || !in_folder(object->path, FAMILIES, object->name, (size_t)(dot - object->name)) ||
        access(object->path, X_OK) != 0)
        return false;
    object->kind = MEMBER;
    status = list_methods(object, &text);
    free(text);
    return status == 0;
}

static bool find_object(const char *name, struct object *object)
{
    char signature[PATH_MAX];

    object->name = name;
    object->kind = PROGRAM;
    if (in_folder(object->path, PROGRAMS, name, strlen(name)) && access(object->path, X_OK) == 0)
        return true;
    if (is_member(object))
        return true;
    object->kind = PLUGIN;
    return in_folder(signature, SIGNATURES, name, strlen(name)) && access(signature, R_OK) == 0 &&
           in_folder(object->path, PLUGINS, name, strlen(name));
}

bool bus_object_exists(const char *name)
{
    struct object object;

    return find_object(name, &object);
}

static bool matches(const char *name, const char *pattern)
{
    size_t len = strlen(pattern);

    if (len > 0 && pattern[len - 1] == '*')
        return strncmp(name, pattern, len - 1) == 0;
    return strcmp(name, pattern) == 0;
}

struct names {
    char **list;
    int count;
    const char *pattern;
};

static void add_name(struct names *names, const char *name)
{
    if (names->count < NAMES_MAX && matches(name, names->pattern))
        names->list[names->count++] = strdup(name);
}

static void add_files(struct names *names, const char *folder)
{
    DIR *dir = opendir(folder);
    struct dirent *entry;

    while (dir && (entry = readdir(dir))) {
        if (entry->d_name[0] != '.')
            add_name(names, entry->d_name);
    }
    if (dir)
        closedir(dir);
}

static void add_members(struct names *names, const char *path)
{
    const char *arguments[] = {path, "names", NULL};
    struct command command = {
        .arguments = arguments, .drop_errors = true, .limit_ms = LIST_LIMIT_MS};
    char *text = NULL;
    char *at;
    char *name;

    (void)command_run(&command, &text);
    for (at = text; at && (name = strsep(&at, "\n"));) {
        if (name[0])
            add_name(names, name);
    }
    free(text);
}

static void add_families(struct names *names)
{
    DIR *dir = opendir(FAMILIES);
    struct dirent *entry;
    char path[PATH_MAX];

    while (dir && (entry = readdir(dir))) {
        if (entry->d_name[0] != '.' &&
            in_folder(path, FAMILIES, entry->d_name, strlen(entry->d_name)))
            add_members(names, path);
    }
    if (dir)
        closedir(dir);
}

static int by_name(const void *left, const void *right)
{
    return strcmp(*(char *const *)left, *(char *const *)right);
}

int bus_object_names(const char *pattern, char ***names)
{
    struct names found = {calloc(NAMES_MAX, sizeof(char *)), 0, pattern};

    if (!found.list)
        return 0;
    add_files(&found, PROGRAMS);
    add_files(&found, SIGNATURES);
    add_families(&found);
    qsort(found.list, (size_t)found.count, sizeof(char *), by_name);
    *names = found.list;
    return found.count;
}

static struct json_object *read_signature(const char *name)
{
    char path[PATH_MAX];

    return in_folder(path, SIGNATURES, name, strlen(name)) ? json_object_from_file(path) : NULL;
}

static const char *type_of_example(struct json_object *example)
{
    switch (json_object_get_type(example)) {
    case json_type_boolean:
        return "Boolean";
    case json_type_int:
        return "Integer";
    case json_type_array:
        return "Array";
    case json_type_object:
        return "Table";
    default:
        return "String";
    }
}

static void print_signature(FILE *out, const char *name)
{
    struct json_object *signature = read_signature(name);

    if (!signature)
        return;
    json_object_object_foreach(signature, method, arguments)
    {
        const char *between = "";

        if (!json_object_is_type(arguments, json_type_object))
            continue;
        fprintf(out, "\t\"%s\":{", method);
        json_object_object_foreach(arguments, argument, example)
        {
            fprintf(out, "%s\"%s\":\"%s\"", between, argument, type_of_example(example));
            between = ",";
        }
        fprintf(out, "}\n");
    }
    json_object_put(signature);
}

void bus_object_print_methods(FILE *out, const char *name)
{
    struct object object;
    char *text = NULL;
    char *at;
    char *method;

    if (!find_object(name, &object))
        return;
    if (object.kind == PLUGIN) {
        print_signature(out, name);
        return;
    }
    (void)list_methods(&object, &text);
    for (at = text; at && (method = strsep(&at, "\n"));) {
        if (method[0])
            fprintf(out, "\t\"%s\":{}\n", method);
    }
    free(text);
}

static bool has_method(const char *plugin, const char *method)
{
    struct json_object *signature = read_signature(plugin);
    bool found = signature && json_object_object_get_ex(signature, method, NULL);

    json_object_put(signature);
    return found;
}

/* What rpcd answers: its plugins' exit status says nothing, their text must be an object. */
static int plugin_status(int status, struct json_object *answer)
{
    if (status == COMMAND_TIMED_OUT)
        return BUS_TIMEOUT;
    return json_object_is_type(answer, json_type_object) ? BUS_OK : BUS_INVALID_ARGUMENT;
}

static int program_status(int status)
{
    if (status == COMMAND_TIMED_OUT)
        return BUS_TIMEOUT;
    return status >= 0 && status < 128 ? status : BUS_UNKNOWN_ERROR;
}

int bus_object_call(const char *name, const char *method, struct json_object *message, int limit_ms,
                    struct json_object **answer)
{
    struct object object;
    const char *arguments[5] = {object.path, "call"};
    struct command command = {.arguments = arguments, .limit_ms = limit_ms};
    char *text = NULL;
    int status;
    int count = 2;

    *answer = NULL;
    if (!find_object(name, &object))
        return BUS_NOT_FOUND;
    if (object.kind == PLUGIN && !has_method(name, method))
        return BUS_METHOD_NOT_FOUND;
    if (object.kind == MEMBER)
        arguments[count++] = name;
    arguments[count] = method;
    command.input = json_object_to_json_string_ext(message, JSON_C_TO_STRING_NOSLASHESCAPE);
    if (object.kind == PLUGIN) {
        command.drop_errors = true;
        command.limit_ms = PLUGIN_LIMIT_MS < limit_ms ? PLUGIN_LIMIT_MS : limit_ms;
        setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    }
    status = command_run(&command, &text);
    *answer = text ? json_tokener_parse(text) : NULL;
    free(text);
    return object.kind == PLUGIN ? plugin_status(status, *answer) : program_status(status);
}
