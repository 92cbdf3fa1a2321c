// SPDX-License-Identifier: ISC
// The thread, the connection's life, the registrations.
#include "ipc/bus_listener.h"

#include <csignal>
#include <cstring>
#include <initializer_list>

#include <pthread.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
}

namespace kelm {

namespace {

constexpr int RETRY_MS = 1000;
constexpr unsigned RETRY_S = 1;
// Small C libraries give a thread 128 KiB. That is too little to be sure of: the libraries that are
// called here may need more.
constexpr size_t STACK_SIZE = size_t{256} * 1024;
constexpr int DEEPEST_MESSAGE = 32;

// Bus thread only; uloop keeps the addresses.
ubus_context *connection = nullptr;
bool connection_ended = false;

void _register(bus_listener &which);

void _retry_registration(uloop_timeout *timer)
{
    _register(*reinterpret_cast<bus_listener *>(timer));
}

void _register(bus_listener &which)
{
    which.handler.cb = which.callback;
    if (ubus_register_event_handler(connection, &which.handler, which.pattern) == 0)
        return;
    which.retry.cb = _retry_registration;
    uloop_timeout_set(&which.retry, RETRY_MS);
}

void _register_all(bus_listener *listeners, size_t count)
{
    for (size_t i = 0; i < count; ++i) {
        // An object number from an earlier connection would make the broker refuse the
        // registration.
        memset(&listeners[i].handler, 0, sizeof listeners[i].handler);
        memset(&listeners[i].retry, 0, sizeof listeners[i].retry);
        _register(listeners[i]);
    }
}

// Without this the library would only take its socket out of the loop, and the loop would run on
// and never hear anything again.
void _connection_lost(ubus_context *)
{
    connection_ended = true;
    uloop_end();
}

// All signals are for the main thread but those of a crash. If a thread blocks one of these, the
// kernel kills the process at once, and no handler runs.
sigset_t _held_back_by_thread()
{
    sigset_t held;
    sigfillset(&held);
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&held, number);
    return held;
}

bool _make_thread(void *(*run)(void *))
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    (void)pthread_attr_setstacksize(&attributes, STACK_SIZE);  // else it is the usual one
    pthread_t thread;
    const int failed = pthread_create(&thread, &attributes, run, nullptr);
    pthread_attr_destroy(&attributes);
    return failed == 0;
}

// Whether a table or an array has more levels than this. Broken members do not count: the formatter
// leaves them out.
// NOLINTNEXTLINE(misc-no-recursion): as deep as levels says, and no deeper.
bool _is_deeper(blob_attr *container, int levels)
{
    if (levels == 0)
        return true;
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, container, rest)
    {
        if (!blobmsg_check_attr(member, false))
            continue;
        const int type = blobmsg_type(member);
        if ((type == BLOBMSG_TYPE_TABLE || type == BLOBMSG_TYPE_ARRAY) &&
            _is_deeper(member, levels - 1))
            return true;
    }
    return false;
}

}  // namespace

bool bus_start_thread(void *(*run)(void *))
{
    // The thread inherits the mask.
    const sigset_t held = _held_back_by_thread();
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, &held, &own);
    const bool made = _make_thread(run);
    pthread_sigmask(SIG_SETMASK, &own, nullptr);
    return made;
}

ubus_context *bus_connect()
{
    // The main thread waits for each of its children itself, so the library must not. Must be set
    // before the first call.
    uloop_handle_sigchld = false;
    return ubus_connect(nullptr);
}

ubus_context *bus_reconnect()
{
    ubus_context *context = nullptr;
    while (context == nullptr) {
        sleep(RETRY_S);
        context = ubus_connect(nullptr);
    }
    return context;
}

void bus_serve(ubus_context *context, bus_listener *listeners, size_t count, void (*registered)())
{
    connection = context;
    connection_ended = false;
    context->connection_lost = _connection_lost;

    _register_all(listeners, count);
    // If no descriptor is left, both calls fail, and the loop would turn without ever waiting.
    const bool waits =
        uloop_init() == 0 && uloop_fd_add(&context->sock, ULOOP_READ | ULOOP_BLOCKING) == 0;
    if (waits && !connection_ended && registered != nullptr)
        registered();
    // If the connection was lost during the registration, uloop_end() came too early for a loop
    // that starts only now.
    if (waits && !connection_ended)
        uloop_run();

    connection = nullptr;
    ubus_free(context);
    uloop_done();
}

bool bus_is_too_deep(blob_attr *message)
{
    return _is_deeper(message, DEEPEST_MESSAGE);
}

}  // namespace kelm
