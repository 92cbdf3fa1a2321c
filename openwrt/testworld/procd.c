/* SPDX-License-Identifier: ISC */
/*
 * Supervises services: "procd" is the daemon, "service" its object on the bus (bus_object.h).
 * Between them a socket: a line with the method, then the message; back come the status and the
 * answer.
 */
#include <errno.h>
#include <json-c/json.h>
#include <poll.h>
#include <signal.h>
#include <stdbool.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include "bus_object.h"
#include "procd_instance.h"
#include "procd_output.h"
#include "procd_time.h"
#include "procd_trigger.h"
#include "words.h"

#define FOLDER "/var/run/testworld"
#define DOOR FOLDER "/procd"
#define WAITS_MAX 64

static struct instance *instances;
static struct json_object *services; /* name -> message, of those that are set and not deleted */

static const char *text_member(struct json_object *message, const char *key)
{
    struct json_object *value;

    return json_object_object_get_ex(message, key, &value) &&
                   json_object_is_type(value, json_type_string)
               ? json_object_get_string(value)
               : NULL;
}

static bool belongs(const struct instance *instance, const char *service, const char *name)
{
    return strcmp(instance->service, service) == 0 && (!name || strcmp(instance->name, name) == 0);
}

static struct instance *find_instance(const char *service, const char *name)
{
    for (struct instance *instance = instances; instance; instance = instance->next) {
        if (belongs(instance, service, name))
            return instance;
    }
    return NULL;
}

static void set_instance(const char *service, const char *name, struct json_object *config)
{
    struct instance *instance = find_instance(service, name);

    if (instance) {
        instance_update(instance, config);
        return;
    }
    instance = instance_new(service, name, config);
    instance->next = instances;
    instances = instance;
    instance_start(instance);
}

static void let_go(struct instance *instance)
{
    instance_stop(instance);
    instance->is_going = true;
}

static void forget_gone(void)
{
    struct instance **link = &instances;

    while (*link) {
        struct instance *instance = *link;

        if (!instance->is_going || instance->pid > 0) {
            link = &instance->next;
            continue;
        }
        *link = instance->next;
        instance_free(instance);
    }
}

/* "set" ends the instances that the message does not name, "add" leaves them. */
static int put_service(struct json_object *message, bool keeps_others)
{
    const char *service = text_member(message, "name");
    struct json_object *wanted = NULL;
    struct json_object *triggers = NULL;

    if (!service)
        return BUS_INVALID_ARGUMENT;
    json_object_object_get_ex(message, "instances", &wanted);
    json_object_object_get_ex(message, "triggers", &triggers);
    for (struct instance *old = instances; old && !keeps_others; old = old->next) {
        if (belongs(old, service, NULL) && !json_object_object_get_ex(wanted, old->name, NULL))
            let_go(old);
    }
    if (json_object_is_type(wanted, json_type_object)) {
        json_object_object_foreach(wanted, name, config)
        {
            if (json_object_is_type(config, json_type_object))
                set_instance(service, name, config);
        }
    }
    trigger_set(service, triggers);
    json_object_object_add(services, service, json_object_get(message));
    return BUS_OK;
}

static int method_set(struct json_object *message, struct json_object **answer)
{
    (void)answer;
    return put_service(message, false);
}

static int method_add(struct json_object *message, struct json_object **answer)
{
    (void)answer;
    return put_service(message, true);
}

static int method_delete(struct json_object *message, struct json_object **answer)
{
    const char *service = text_member(message, "name");
    const char *name = text_member(message, "instance");

    (void)answer;
    if (!service || !json_object_object_get_ex(services, service, NULL))
        return BUS_NOT_FOUND;
    if (name && !find_instance(service, name))
        return BUS_NOT_FOUND;
    for (struct instance *instance = instances; instance; instance = instance->next) {
        if (belongs(instance, service, name))
            let_go(instance);
    }
    if (!name) {
        trigger_set(service, NULL);
        json_object_object_del(services, service);
    }
    return BUS_OK;
}

static struct json_object *service_state(const char *service, struct json_object *message)
{
    struct json_object *state = json_object_new_object();
    struct json_object *shown = json_object_new_object();
    struct json_object *triggers;

    for (struct instance *instance = instances; instance; instance = instance->next) {
        if (belongs(instance, service, NULL) && !instance->is_going)
            json_object_object_add(shown, instance->name, instance_state(instance));
    }
    if (json_object_object_length(shown) > 0)
        json_object_object_add(state, "instances", shown);
    else
        json_object_put(shown);
    if (json_object_object_get_ex(message, "triggers", &triggers))
        json_object_object_add(state, "triggers", json_object_get(triggers));
    return state;
}

static int method_list(struct json_object *message, struct json_object **answer)
{
    const char *wanted = text_member(message, "name");

    *answer = json_object_new_object();
    json_object_object_foreach(services, service, settings)
    {
        if (!wanted || strcmp(wanted, service) == 0)
            json_object_object_add(*answer, service, service_state(service, settings));
    }
    return BUS_OK;
}

static int method_event(struct json_object *message, struct json_object **answer)
{
    const char *type = text_member(message, "type");
    struct json_object *data = NULL;

    (void)answer;
    if (!type || !json_object_object_get_ex(message, "data", &data))
        return BUS_INVALID_ARGUMENT;
    trigger_event(type, data);
    return BUS_OK;
}

static int method_signal(struct json_object *message, struct json_object **answer)
{
    const char *service = text_member(message, "name");
    const char *name = text_member(message, "instance");
    struct json_object *number;
    int status = BUS_NOT_FOUND;

    (void)answer;
    for (struct instance *instance = instances; service && instance; instance = instance->next) {
        if (!belongs(instance, service, name) || instance->pid <= 0)
            continue;
        kill(instance->pid, json_object_object_get_ex(message, "signal", &number)
                                ? json_object_get_int(number)
                                : SIGHUP);
        status = BUS_OK;
    }
    return status;
}

static const struct {
    const char *name;
    int (*run)(struct json_object *message, struct json_object **answer);
} methods[] = {
    {"set", method_set},   {"add", method_add},     {"delete", method_delete},
    {"list", method_list}, {"event", method_event}, {"signal", method_signal},
};

#define METHOD_COUNT (sizeof(methods) / sizeof(methods[0]))

static int call(const char *method, struct json_object *message, struct json_object **answer)
{
    for (size_t i = 0; i < METHOD_COUNT; i++) {
        if (strcmp(methods[i].name, method) == 0)
            return methods[i].run(message, answer);
    }
    return BUS_METHOD_NOT_FOUND;
}

static int open_door(bool serve)
{
    struct sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = DOOR};
    int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);

    if (serve) {
        (void)mkdir(FOLDER, 0755);
        (void)unlink(DOOR);
        if (bind(fd, (struct sockaddr *)&address, sizeof(address)) == 0 && listen(fd, 16) == 0)
            return fd;
    } else if (connect(fd, (struct sockaddr *)&address, sizeof(address)) == 0) {
        return fd;
    }
    close(fd);
    return -1;
}

static void answer_caller(int door)
{
    int caller = accept4(door, NULL, NULL, SOCK_CLOEXEC);
    FILE *stream = caller < 0 ? NULL : fdopen(caller, "r+");
    char *text = stream ? words_read_file(stream, NULL) : NULL;
    char *message_text = text;
    char *method = text ? strsep(&message_text, "\n") : NULL;
    struct json_object *message = message_text ? json_tokener_parse(message_text) : NULL;
    struct json_object *answer = NULL;

    if (stream) {
        int status = message ? call(method, message, &answer) : BUS_INVALID_ARGUMENT;

        fprintf(stream, "%d\n%s\n", status, answer ? json_object_to_json_string(answer) : "");
        fclose(stream);
    }
    json_object_put(answer);
    json_object_put(message);
    free(text);
}

static void collect_children(void)
{
    pid_t pid;
    int status;

    while ((pid = waitpid(-1, &status, WNOHANG)) > 0) {
        trigger_ended(pid);
        for (struct instance *instance = instances; instance; instance = instance->next) {
            if (instance->pid == pid) {
                instance_ended(instance, status);
                break;
            }
        }
    }
}

static int tick(void)
{
    procd_time_t now = procd_now();
    procd_time_t next = trigger_tick(now);

    for (struct instance *instance = instances; instance; instance = instance->next)
        next = procd_earlier(next, instance_tick(instance, now));
    forget_gone();
    if (next == 0)
        return -1;
    now = procd_now();
    return next > now ? (int)(next - now) : 0;
}

static int supervise(void)
{
    struct pollfd waits[WAITS_MAX];
    struct signalfd_siginfo signal_info;
    sigset_t child;
    int door = open_door(true);

    sigemptyset(&child);
    sigaddset(&child, SIGCHLD);
    sigprocmask(SIG_BLOCK, &child, NULL);
    waits[0] = (struct pollfd){door, POLLIN, 0};
    waits[1] = (struct pollfd){signalfd(-1, &child, SFD_CLOEXEC | SFD_NONBLOCK), POLLIN, 0};
    services = json_object_new_object();
    if (door < 0 || waits[1].fd < 0 || prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0) != 0) {
        perror("procd");
        return 1;
    }
    for (;;) {
        int count = 2 + output_waits(waits + 2, WAITS_MAX - 2);

        if (poll(waits, (nfds_t)count, tick()) < 0)
            continue;
        for (int i = 2; i < count; i++) {
            if (waits[i].revents)
                output_read(waits[i].fd);
        }
        if (waits[1].revents) {
            while (read(waits[1].fd, &signal_info, sizeof(signal_info)) > 0)
                ;
            collect_children();
        }
        if (waits[0].revents)
            answer_caller(door);
    }
}

static int list_methods(void)
{
    for (size_t i = 0; i < METHOD_COUNT; i++)
        puts(methods[i].name);
    return 0;
}

/* The object on the bus: asks the daemon. */
static int ask(const char *method)
{
    int door = open_door(false);
    FILE *stream = door < 0 ? NULL : fdopen(door, "r+");
    char *message = words_read_file(stdin, NULL);
    char *text;
    char *answer;
    int status;

    if (!stream)
        return BUS_NOT_FOUND;
    fprintf(stream, "%s\n%s", method, message ? message : "{}");
    fflush(stream);
    shutdown(door, SHUT_WR);
    text = words_read_file(stream, NULL);
    if (!text)
        return BUS_UNKNOWN_ERROR;
    status = (int)strtol(text, &answer, 10);
    if (status == BUS_OK && answer[1] && answer[1] != '\n')
        fputs(answer + 1, stdout);
    return status;
}

int main(int argc, char **argv)
{
    const char *slash = strrchr(argv[0], '/');

    if (strcmp(slash ? slash + 1 : argv[0], "service") != 0)
        return supervise();
    if (argc == 3 && strcmp(argv[1], "call") == 0)
        return ask(argv[2]);
    return list_methods();
}
