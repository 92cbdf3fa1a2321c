/* SPDX-License-Identifier: ISC */
/* One process that procd keeps running, as the message of its init script says. */
#ifndef TESTWORLD_PROCD_INSTANCE_H
#define TESTWORLD_PROCD_INSTANCE_H

#include <json-c/json.h>
#include <stdbool.h>
#include <sys/types.h>

#include "procd_time.h"

struct instance {
    char *service;
    char *name;
    struct json_object *config; /* as it was sent, with the digests of its files added */
    pid_t pid;                  /* 0: none runs */
    bool wanted;                /* it is to run; false: it was stopped, or is in a crash loop */
    bool start_again;           /* as soon as the process that is being stopped has ended */
    bool is_going;              /* forgotten once its process has ended */
    int exit_code;
    unsigned int crashes;
    procd_time_t started;
    procd_time_t start_at; /* respawn */
    procd_time_t kill_at;  /* SIGKILL */
    struct instance *next;
};

/* Takes over the message's part. */
struct instance *instance_new(const char *service, const char *name, struct json_object *config);
void instance_free(struct instance *instance);

/* Now, or when the process that is being stopped has ended. */
void instance_start(struct instance *instance);

/* SIGTERM, and SIGKILL later; to the one process, not to its children. */
void instance_stop(struct instance *instance);

/* Another message for it: restarts or signals where something has changed, starts what is ended. */
void instance_update(struct instance *instance, struct json_object *config);

/* Its process has ended with this status of wait(2). */
void instance_ended(struct instance *instance, int status);

/* Does what is due; returns the next moment. */
procd_time_t instance_tick(struct instance *instance, procd_time_t now);

/* What "service list" shows. The caller puts it. */
struct json_object *instance_state(const struct instance *instance);

#endif
