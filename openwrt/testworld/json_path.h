/* SPDX-License-Identifier: ISC */
/* Paths into JSON: @.a.b  [0]  ['a-b']  [*]  .*  ..a  [@.config.mode='ap' && @.up=true]. */
#ifndef TESTWORLD_JSON_PATH_H
#define TESTWORLD_JSON_PATH_H

#include <json-c/json.h>

struct json_path;

/* NULL where it is malformed. Lives as long as the program. */
struct json_path *json_path_parse(const char *text);

/* Called for each match in order; a null is NULL. Not 0 ends the search. */
typedef int (*json_path_visit_t)(struct json_object *match, void *priv);

/* Returns 0 or what visit returned. */
int json_path_match(const struct json_path *path, struct json_object *root, json_path_visit_t visit,
                    void *priv);

#endif
