// SPDX-License-Identifier: ISC
// Listening on the bus: a thread, a broker that may be gone or hang, registrations that may fail.
#pragma once

#include <cstddef>

extern "C" {
#include <libubox/uloop.h>
#include <libubus.h>
}

namespace kelm {

// One event that is listened to, in memory that lasts as long as the thread does. It holds a time
// as libubox has it: who includes this stands in cmake/wide_time.cmake.
struct bus_listener {
    uloop_timeout retry;  // first, so that its callback finds the listener
    ubus_event_handler handler;
    const char *pattern;
    ubus_event_handler_t callback;
};

// Starts a thread that receives no signals but those of a crash. False when it cannot be made. It
// can never be joined: it may hang in a broker that says nothing. All below is called by that
// thread alone.
bool bus_start_thread(void *(*run)(void *));

// The first connection, or null without a broker. A broker that accepts and says nothing holds the
// caller for ever.
ubus_context *bus_connect();

// Looks for the broker once a second until it is there.
ubus_context *bus_reconnect();

// Registers the listeners, each again every second until it is taken, and serves the connection
// until it is lost; then it is freed. registered, where given, is called once they were registered
// for the first time, whether or not all were taken.
void bus_serve(ubus_context *context, bus_listener *listeners, size_t count,
               void (*registered)() = nullptr);

// Whether the message nests deeper than 32 tables or arrays. The formatter calls itself for each
// level, so that a few kilobytes of nested tables would need more stack than any thread has. What a
// request nests deeper, json-c does not read either.
bool bus_is_too_deep(blob_attr *message);

}  // namespace kelm
