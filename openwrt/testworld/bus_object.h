/* SPDX-License-Identifier: ISC */
/*
 * Objects on the bus that are programs:
 *   /usr/lib/testworld/ubus/OBJECT      "PROGRAM list" prints its methods, one a line; "PROGRAM
 * call METHOD" gets the message on stdin, prints the answer, and its exit status is the bus's
 * status: 3 for an unknown method /usr/lib/testworld/ubus.d/NAME      all objects NAME.ANYTHING:
 * "PROGRAM names" prints those that there are; "PROGRAM list OBJECT", "PROGRAM call OBJECT METHOD"
 *   /usr/libexec/rpcd/OBJECT            plugins of rpcd, known once /etc/init.d/rpcd has read them
 */
#ifndef TESTWORLD_BUS_OBJECT_H
#define TESTWORLD_BUS_OBJECT_H

#include <json-c/json.h>
#include <stdbool.h>
#include <stdio.h>

enum bus_status {
    BUS_OK = 0,
    BUS_INVALID_COMMAND = 1,
    BUS_INVALID_ARGUMENT = 2,
    BUS_METHOD_NOT_FOUND = 3,
    BUS_NOT_FOUND = 4,
    BUS_NO_DATA = 5,
    BUS_PERMISSION_DENIED = 6,
    BUS_TIMEOUT = 7,
    BUS_NOT_SUPPORTED = 8,
    BUS_UNKNOWN_ERROR = 9,
    BUS_PARSE_ERROR = 12
};

const char *bus_status_text(int status);

bool bus_object_exists(const char *name);

/* The names that match, sorted; a star at the end of the pattern stands for anything. */
int bus_object_names(const char *pattern, char ***names);

/* Prints the methods as the command's "-v list" does. */
void bus_object_print_methods(FILE *out, const char *name);

/* Returns a status; *answer stays NULL where the object has answered nothing. */
int bus_object_call(const char *name, const char *method, struct json_object *message, int limit_ms,
                    struct json_object **answer);

#endif
