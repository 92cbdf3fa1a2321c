/* SPDX-License-Identifier: ISC */
/* What services want done upon events: after a delay that each further event begins anew. */
#ifndef TESTWORLD_PROCD_TRIGGER_H
#define TESTWORLD_PROCD_TRIGGER_H

#include <json-c/json.h>
#include <sys/types.h>

#include "procd_time.h"

/* [[event, rule, milliseconds], ...] in place of what the service had; NULL: none. */
void trigger_set(const char *service, struct json_object *wanted);

void trigger_event(const char *event, struct json_object *data);

/* A process of a trigger has ended; others' are not looked at. */
void trigger_ended(pid_t pid);

/* Does what is due, one command at a time; returns the next moment. */
procd_time_t trigger_tick(procd_time_t now);

#endif
