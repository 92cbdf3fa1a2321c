/* SPDX-License-Identifier: ISC */
/* The bus command: send events, listen to them, list objects and call their methods. */
#include <libubox/blobmsg_json.h>
#include <libubus.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include "ubus_request.h"

#define DEFAULT_LIMIT_S 30

/* Results beside the statuses. The shell sees them as 255 and 254. */
#define FAILED_AND_SAID_SO (-1)
#define WRONG_USAGE (-2)

static bool simple_output;
static int limit_s; /* 0: none given */

static void on_event(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *type,
                     struct blob_attr *msg)
{
    char *text = blobmsg_format_json(msg, true);

    (void)ctx;
    (void)ev;
    if (!text)
        return;
    printf("{ \"%s\": %s }\n", type, text);
    fflush(stdout);
    free(text);
}

static void on_limit(struct uloop_timeout *timeout)
{
    (void)timeout;
    uloop_end();
}

static bool listen_to(struct ubus_context *ctx, struct ubus_event_handler *ev, const char *pattern)
{
    int status = ubus_register_event_handler(ctx, ev, pattern);

    if (status == UBUS_STATUS_OK)
        return true;
    if (!simple_output)
        fprintf(stderr, "Error while registering for event '%s': %s\n", pattern,
                ubus_strerror(status));
    return false;
}

static int command_listen(struct ubus_context *ctx, int argc, char **argv)
{
    static struct ubus_event_handler ev = {.cb = on_event};
    static struct uloop_timeout limit = {.cb = on_limit};

    if (argc == 0 && !listen_to(ctx, &ev, "*"))
        return FAILED_AND_SAID_SO;
    for (int i = 0; i < argc; i++) {
        if (!listen_to(ctx, &ev, argv[i]))
            return FAILED_AND_SAID_SO;
    }
    ubus_add_uloop(ctx);
    if (limit_s > 0)
        uloop_timeout_set(&limit, limit_s * 1000);
    uloop_run();
    return 0;
}

static int command_send(struct ubus_context *ctx, int argc, char **argv)
{
    static struct blob_buf data;

    if (argc < 1 || argc > 2)
        return WRONG_USAGE;
    blob_buf_init(&data, 0);
    if (argc == 2 && !blobmsg_add_json_from_string(&data, argv[1]))
        return UBUS_STATUS_PARSE_ERROR;
    return ubus_send_event(ctx, argv[0], data.head);
}

static int request_limit_ms(void)
{
    return (limit_s > 0 ? limit_s : DEFAULT_LIMIT_S) * 1000;
}

static int look_up(struct ubus_context *ctx, const char *path, ubus_answer_t on_data, void *priv)
{
    struct ubus_request request = {
        .type = UBUS_MSG_LOOKUP, .on_data = on_data, .priv = priv, .limit_ms = request_limit_ms()};
    struct blob_buf body = {0};
    int status;

    blob_buf_init(&body, 0);
    if (path)
        blob_put_string(&body, UBUS_ATTR_OBJPATH, path);
    request.body = body.head;
    status = ubus_request_send(ctx, &request);
    blob_buf_free(&body);
    return status;
}

static void print_path(void *priv, struct blob_attr **tb)
{
    (void)priv;
    if (tb[UBUS_ATTR_OBJPATH])
        printf("%s\n", blob_get_string(tb[UBUS_ATTR_OBJPATH]));
}

static int command_list(struct ubus_context *ctx, int argc, char **argv)
{
    if (argc > 1)
        return WRONG_USAGE;
    return look_up(ctx, argc == 1 ? argv[0] : NULL, print_path, NULL);
}

static void note_id(void *priv, struct blob_attr **tb)
{
    uint32_t *id = priv;

    if (tb[UBUS_ATTR_OBJID])
        *id = blob_get_u32(tb[UBUS_ATTR_OBJID]);
}

static void print_answer(void *priv, struct blob_attr **tb)
{
    char *text;

    (void)priv;
    if (!tb[UBUS_ATTR_DATA])
        return;
    text = blobmsg_format_json_indent(tb[UBUS_ATTR_DATA], true, simple_output ? -1 : 0);
    if (text)
        printf("%s\n", text);
    free(text);
}

static int call_object(struct ubus_context *ctx, uint32_t id, const char *method,
                       const struct blob_attr *data)
{
    struct ubus_request request = {.type = UBUS_MSG_INVOKE,
                                   .peer = id,
                                   .on_data = print_answer,
                                   .limit_ms = request_limit_ms()};
    struct blob_buf body = {0};
    int status;

    blob_buf_init(&body, 0);
    blob_put_u32(&body, UBUS_ATTR_OBJID, id);
    blob_put_string(&body, UBUS_ATTR_METHOD, method);
    blob_put(&body, UBUS_ATTR_DATA, blob_data(data), (unsigned int)blob_len(data));
    request.body = body.head;
    status = ubus_request_send(ctx, &request);
    blob_buf_free(&body);
    return status;
}

static int command_call(struct ubus_context *ctx, int argc, char **argv)
{
    static struct blob_buf data;
    uint32_t id = 0;
    int status;

    if (argc < 2 || argc > 3)
        return WRONG_USAGE;
    blob_buf_init(&data, 0);
    if (argc == 3 && !blobmsg_add_json_from_string(&data, argv[2]))
        return UBUS_STATUS_PARSE_ERROR;
    status = look_up(ctx, argv[0], note_id, &id);
    return status == UBUS_STATUS_OK ? call_object(ctx, id, argv[1], data.head) : status;
}

static const struct {
    const char *name;
    const char *help;
    int (*run)(struct ubus_context *ctx, int argc, char **argv);
} commands[] = {
    {"list", "[<path>]                    paths of the objects on the bus", command_list},
    {"call", "<path> <method> [<message>] call a method of an object", command_call},
    {"listen", "[<type>...]               print events as they come", command_listen},
    {"send", "<type> [<message>]          send an event", command_send},
};

#define COMMAND_COUNT (sizeof(commands) / sizeof(commands[0]))

static int usage(const char *program)
{
    fprintf(stderr,
            "Usage: %s [<options>] <command> [<arguments>]\n"
            "Options:\n"
            " -s <socket>   socket of the broker\n"
            " -t <seconds>  how long to listen, or to wait for the answer to a call\n"
            " -S            no error texts, compact output\n"
            " -v            accepted and not looked at\n"
            "Commands:\n",
            program);
    for (size_t i = 0; i < COMMAND_COUNT; i++)
        fprintf(stderr, " %s %s\n", commands[i].name, commands[i].help);
    return 1;
}

static int run_command(struct ubus_context *ctx, int argc, char **argv)
{
    for (size_t i = 0; i < COMMAND_COUNT; i++) {
        if (strcmp(commands[i].name, argv[0]) == 0)
            return commands[i].run(ctx, argc - 1, argv + 1);
    }
    return WRONG_USAGE;
}

static int run_connected(const char *program, const char *path, int argc, char **argv)
{
    struct ubus_context *ctx = ubus_connect(path);
    int result;

    if (!ctx) {
        if (!simple_output)
            fprintf(stderr, "Failed to connect to ubus\n");
        return FAILED_AND_SAID_SO;
    }
    result = run_command(ctx, argc, argv);
    if (result > 0 && !simple_output)
        fprintf(stderr, "Command failed: %s\n", ubus_strerror(result));
    if (result == WRONG_USAGE)
        usage(program);
    ubus_free(ctx);
    return result;
}

int main(int argc, char **argv)
{
    const char *path = NULL;
    int option;

    while ((option = getopt(argc, argv, "+s:t:Sv")) != -1) {
        if (option == 's')
            path = optarg;
        else if (option == 't')
            limit_s = atoi(optarg);
        else if (option == 'S')
            simple_output = true;
        else if (option != 'v')
            return usage(argv[0]);
    }
    if (optind >= argc)
        return usage(argv[0]);
    return run_connected(argv[0], path, argc - optind, argv + optind);
}
