/* SPDX-License-Identifier: ISC */
/* What a web page's call goes through before it reaches the bus. */
#ifndef TESTWORLD_RPC_SESSION_H
#define TESTWORLD_RPC_SESSION_H

#include <json-c/json.h>
#include <stdbool.h>

/* Whether a group of /usr/share/rpcd/acl.d grants the method, by "read" or by "write". */
bool rpc_session_may_call(const char *object, const char *method);

/* Adds the member that every call of a page has. */
void rpc_session_mark(struct json_object *message);

#endif
