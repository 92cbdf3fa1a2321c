/* SPDX-License-Identifier: ISC */
#include "procd_trigger.h"

#include <fcntl.h>
#include <fnmatch.h>
#include <signal.h>
#include <stdbool.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#define WORDS_MAX 32

struct trigger {
    char *service;
    struct json_object *all; /* the three parts; holds the texts below */
    const char *event;
    struct json_object *rule;
    int delay_ms;
    struct json_object *command; /* what the rule has chosen */
    procd_time_t due;
    struct trigger *next;
};

/* Commands that wait their turn. */
struct job {
    struct json_object *command;
    struct job *next;
};

static struct trigger *triggers;
static struct job *jobs;
static pid_t running;

static struct json_object *part(struct json_object *list, size_t index)
{
    return json_object_is_type(list, json_type_array) ? json_object_array_get_idx(list, index)
                                                      : NULL;
}

static bool part_is(struct json_object *list, size_t index, const char *text)
{
    struct json_object *word = part(list, index);

    return json_object_is_type(word, json_type_string) &&
           strcmp(json_object_get_string(word), text) == 0;
}

/* ["eq", key, value] */
static bool holds(struct json_object *condition, struct json_object *data)
{
    struct json_object *key = part(condition, 1);
    struct json_object *found;

    return part_is(condition, 0, "eq") && json_object_is_type(key, json_type_string) &&
           json_object_object_get_ex(data, json_object_get_string(key), &found) &&
           json_object_equal(found, part(condition, 2));
}

/* The ["run_script", ...] that a rule comes to; NULL for nothing. */
static struct json_object *choose(struct json_object *rule, struct json_object *data)
{
    if (part_is(rule, 0, "run_script"))
        return rule;
    if (part_is(rule, 0, "if") && part(rule, 2))
        return choose(part(rule, holds(part(rule, 1), data) ? 2 : 3), data);
    return NULL;
}

static void remove_triggers(const char *service)
{
    struct trigger **link = &triggers;

    while (*link) {
        struct trigger *trigger = *link;

        if (strcmp(trigger->service, service) != 0) {
            link = &trigger->next;
            continue;
        }
        *link = trigger->next;
        json_object_put(trigger->all);
        free(trigger->service);
        free(trigger);
    }
}

static void add_trigger(const char *service, struct json_object *all)
{
    struct trigger *trigger;

    if (!json_object_is_type(part(all, 0), json_type_string))
        return;
    trigger = calloc(1, sizeof(*trigger));
    if (!trigger)
        abort();
    trigger->service = strdup(service);
    trigger->all = json_object_get(all);
    trigger->event = json_object_get_string(part(all, 0));
    trigger->rule = part(all, 1);
    trigger->delay_ms = json_object_get_int(part(all, 2));
    trigger->next = triggers;
    triggers = trigger;
}

void trigger_set(const char *service, struct json_object *wanted)
{
    size_t count =
        json_object_is_type(wanted, json_type_array) ? json_object_array_length(wanted) : 0;

    remove_triggers(service);
    for (size_t i = 0; i < count; i++)
        add_trigger(service, part(wanted, i));
}

void trigger_event(const char *event, struct json_object *data)
{
    for (struct trigger *trigger = triggers; trigger; trigger = trigger->next) {
        struct json_object *command;

        if (fnmatch(trigger->event, event, 0) != 0)
            continue;
        command = choose(trigger->rule, data);
        if (!command)
            continue;
        trigger->command = command;
        trigger->due = procd_now() + trigger->delay_ms;
    }
}

static void enqueue(struct json_object *command)
{
    struct job **link = &jobs;
    struct job *job = calloc(1, sizeof(*job));

    if (!job)
        abort();
    job->command = json_object_get(command);
    while (*link)
        link = &(*link)->next;
    *link = job;
}

static void become(struct json_object *command)
{
    char *words[WORDS_MAX + 1] = {NULL};
    int none = open("/dev/null", O_RDWR);
    sigset_t all;

    for (size_t i = 1; i < json_object_array_length(command) && i <= WORDS_MAX; i++)
        words[i - 1] = (char *)(uintptr_t)json_object_get_string(part(command, i));
    dup2(none, STDIN_FILENO);
    dup2(none, STDOUT_FILENO);
    dup2(none, STDERR_FILENO);
    sigemptyset(&all);
    sigprocmask(SIG_SETMASK, &all, NULL);
    setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    if (words[0] && chdir("/") == 0)
        execvp(words[0], words);
    _exit(127);
}

static void run_next(void)
{
    struct job *job = jobs;

    if (running > 0 || !job)
        return;
    jobs = job->next;
    running = fork();
    if (running == 0)
        become(job->command);
    json_object_put(job->command);
    free(job);
}

void trigger_ended(pid_t pid)
{
    if (pid == running)
        running = 0;
}

procd_time_t trigger_tick(procd_time_t now)
{
    procd_time_t next = 0;

    for (struct trigger *trigger = triggers; trigger; trigger = trigger->next) {
        if (procd_time_is_up(&trigger->due, now))
            enqueue(trigger->command);
        next = procd_earlier(next, trigger->due);
    }
    run_next();
    return next;
}
