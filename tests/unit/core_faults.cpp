// SPDX-License-Identifier: ISC
// Stands before some library calls and lets them fail on demand.
#include "tests/unit/core_faults.h"

#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <stdlib.h>

extern "C" {
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}
#include <json-c/json.h>

namespace kelm_test {

fault_points faults;

}  // namespace kelm_test

using kelm_test::faults;

extern "C" {

int __real_sigaction(int number, const struct sigaction *action, struct sigaction *old);
int __wrap_sigaction(int number, const struct sigaction *action, struct sigaction *old);
int __real_ppoll(pollfd *set, nfds_t count, const timespec *limit, const sigset_t *mask);
int __wrap_ppoll(pollfd *set, nfds_t count, const timespec *limit, const sigset_t *mask);
int __real_poll(pollfd *set, nfds_t count, int limit_ms);
int __wrap_poll(pollfd *set, nfds_t count, int limit_ms);
int __real_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument);
int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument);
void *__real_calloc(size_t count, size_t size);
void *__wrap_calloc(size_t count, size_t size);
json_object *__real_json_object_new_object();
json_object *__wrap_json_object_new_object();
const char *__real_json_object_to_json_string(json_object *object);
const char *__wrap_json_object_to_json_string(json_object *object);
char *__real_blobmsg_format_json_with_cb(blob_attr *message, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent);
char *__wrap_blobmsg_format_json_with_cb(blob_attr *message, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent);
int __real_ubus_register_event_handler(ubus_context *context, ubus_event_handler *handler,
                                       const char *pattern);
int __wrap_ubus_register_event_handler(ubus_context *context, ubus_event_handler *handler,
                                       const char *pattern);

int __wrap_sigaction(int number, const struct sigaction *action, struct sigaction *old)
{
    if (faults.sigaction_of == 0 || faults.sigaction_of != number)
        return __real_sigaction(number, action, old);
    errno = EINVAL;
    return -1;
}

int __wrap_ppoll(pollfd *set, nfds_t count, const timespec *limit, const sigset_t *mask)
{
    if (faults.ppoll_error == 0 || count == 0)
        return __real_ppoll(set, count, limit, mask);
    errno = faults.ppoll_error;
    return -1;
}

int __wrap_poll(pollfd *set, nfds_t count, int limit_ms)
{
    if (faults.before_poll != nullptr)
        faults.before_poll(limit_ms);
    const int ready = __real_poll(set, count, limit_ms);
    if (faults.after_poll != nullptr)
        faults.after_poll();
    return ready;
}

int __wrap_pthread_create(pthread_t *thread, const pthread_attr_t *attributes,
                          void *(*start)(void *), void *argument)
{
    if (faults.pthread_create)
        return EAGAIN;
    return __real_pthread_create(thread, attributes, start, argument);
}

void *__wrap_calloc(size_t count, size_t size)
{
    const size_t only = faults.calloc_bytes;
    const bool refused = faults.calloc || (only != 0 && count * size == only);
    return refused ? nullptr : __real_calloc(count, size);
}

json_object *__wrap_json_object_new_object()
{
    return faults.json_object_new_object ? nullptr : __real_json_object_new_object();
}

const char *__wrap_json_object_to_json_string(json_object *object)
{
    return faults.json_object_to_json_string ? nullptr : __real_json_object_to_json_string(object);
}

char *__wrap_blobmsg_format_json_with_cb(blob_attr *message, bool list, blobmsg_json_format_t cb,
                                         void *priv, int indent)
{
    if (faults.blobmsg_format_json_with_cb)
        return nullptr;
    return __real_blobmsg_format_json_with_cb(message, list, cb, priv, indent);
}

int __wrap_ubus_register_event_handler(ubus_context *context, ubus_event_handler *handler,
                                       const char *pattern)
{
    if (faults.ubus_register_event_handler > 0) {
        --faults.ubus_register_event_handler;
        return -1;
    }
    return __real_ubus_register_event_handler(context, handler, pattern);
}

}  // extern "C"
