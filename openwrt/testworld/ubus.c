/* SPDX-License-Identifier: ISC */
/*
 * The ubus command: objects are programs, events go over the project's own bus by its own command.
 * Called as http_call it does what a web page's call does: the session's rights are looked at and
 * its number is added to the message.
 */
#include <json-c/json.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <time.h>
#include <unistd.h>

#include "bus_object.h"
#include "rpc_session.h"

#define BUS_COMMAND "/usr/lib/testworld/bus"
#define DEFAULT_LIMIT_S 30
#define LOOK_AGAIN_NS 20000000L
#define WRONG_USAGE (-2)

static bool simple_output;
static bool verbose;
static bool from_web;
static int limit_s;
static char **all_arguments;

static int limit_ms(void)
{
    return (limit_s > 0 ? limit_s : DEFAULT_LIMIT_S) * 1000;
}

/* Events, and what this command does not know. */
static int pass_on(int argc, char **argv)
{
    (void)argc;
    (void)argv;
    execv(BUS_COMMAND, all_arguments);
    perror(BUS_COMMAND);
    return BUS_UNKNOWN_ERROR;
}

static void print_answer(struct json_object *answer)
{
    int how = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_PRETTY_TAB | JSON_C_TO_STRING_SPACED;

    puts(json_object_to_json_string_ext(
        answer, (simple_output ? 0 : how) | JSON_C_TO_STRING_NOSLASHESCAPE));
}

static struct json_object *parse_message(const char *text)
{
    struct json_object *message = text ? json_tokener_parse(text) : json_object_new_object();

    return json_object_is_type(message, json_type_object) ? message : NULL;
}

static int command_call(int argc, char **argv)
{
    struct json_object *message;
    struct json_object *answer;
    int status;

    if (argc < 2 || argc > 3)
        return WRONG_USAGE;
    message = parse_message(argc == 3 ? argv[2] : NULL);
    if (!message)
        return BUS_PARSE_ERROR;
    if (from_web) {
        if (!rpc_session_may_call(argv[0], argv[1]))
            return BUS_PERMISSION_DENIED;
        rpc_session_mark(message);
    }
    status = bus_object_call(argv[0], argv[1], message, limit_ms(), &answer);
    if (status == BUS_OK && answer)
        print_answer(answer);
    return status;
}

static int command_list(int argc, char **argv)
{
    char **names = NULL;
    int count;

    if (argc > 1)
        return WRONG_USAGE;
    count = bus_object_names(argc == 1 ? argv[0] : "*", &names);
    for (int i = 0; i < count; i++) {
        if (!verbose) {
            puts(names[i]);
            continue;
        }
        printf("'%s' @%08x\n", names[i], (unsigned int)(i + 1));
        bus_object_print_methods(stdout, names[i]);
    }
    return count > 0 ? BUS_OK : BUS_NOT_FOUND;
}

static bool all_exist(int argc, char **argv)
{
    for (int i = 0; i < argc; i++) {
        if (!bus_object_exists(argv[i]))
            return false;
    }
    return true;
}

static int command_wait_for(int argc, char **argv)
{
    struct timespec pause = {.tv_nsec = LOOK_AGAIN_NS};
    struct timespec start;
    struct timespec now;

    if (argc < 1)
        return WRONG_USAGE;
    clock_gettime(CLOCK_MONOTONIC, &start);
    while (!all_exist(argc, argv)) {
        clock_gettime(CLOCK_MONOTONIC, &now);
        if ((now.tv_sec - start.tv_sec) * 1000 + (now.tv_nsec - start.tv_nsec) / 1000000 >
            limit_ms())
            return BUS_TIMEOUT;
        nanosleep(&pause, NULL);
    }
    return BUS_OK;
}

static const struct {
    const char *name;
    const char *help;
    int (*run)(int argc, char **argv);
} commands[] = {
    {"list", "[<path>]", command_list},
    {"call", "<path> <method> [<message>]", command_call},
    {"wait_for", "<object> [<object>...]", command_wait_for},
    {"listen", "[<type>...]", pass_on},
    {"send", "<type> [<message>]", pass_on},
};

#define COMMAND_COUNT (sizeof(commands) / sizeof(commands[0]))

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [-s <socket>] [-t <seconds>] [-S] [-v] <command> [<arguments>]\n"
            "Commands:\n",
            program);
    for (size_t i = 0; i < COMMAND_COUNT; i++)
        fprintf(stderr, " %s %s\n", commands[i].name, commands[i].help);
    return 1;
}

static int run_command(const char *program, int argc, char **argv)
{
    int status = WRONG_USAGE;

    for (size_t i = 0; i < COMMAND_COUNT; i++) {
        if (strcmp(commands[i].name, argv[0]) == 0)
            status = commands[i].run(argc - 1, argv + 1);
    }
    if (status == WRONG_USAGE)
        return usage(program);
    if (status != BUS_OK && !simple_output)
        fprintf(stderr, "Command failed: %s\n", bus_status_text(status));
    return status;
}

static bool is_called(const char *path, const char *name)
{
    const char *slash = strrchr(path, '/');

    return strcmp(slash ? slash + 1 : path, name) == 0;
}

int main(int argc, char **argv)
{
    static char call[] = "call";
    int option;

    all_arguments = argv;
    from_web = is_called(argv[0], "http_call");
    while ((option = getopt(argc, argv, "+s:t:Sv")) != -1) {
        if (option == 't')
            limit_s = (int)strtol(optarg, NULL, 10);
        else if (option == 'S')
            simple_output = true;
        else if (option == 'v')
            verbose = true;
        else if (option != 's')
            return usage(argv[0]);
    }
    if (from_web && optind > 0)
        argv[--optind] = call;
    if (optind >= argc)
        return usage(argv[0]);
    return run_command(argv[0], argc - optind, argv + optind);
}
