// SPDX-License-Identifier: ISC
// Listening on the bus, in a thread of its own. The broker may be gone or hang, and a registration
// may fail.
#pragma once

#include <cstddef>

extern "C" {
#include <libubox/uloop.h>
#include <libubus.h>
}

namespace kelm {

// One event that is listened to. It must live as long as the thread. It holds a time in libubox's
// own type, so each file that includes this header is listed in cmake/wide_time.cmake.
struct bus_listener {
    uloop_timeout retry;  // first, so that a pointer to it is a pointer to the listener
    ubus_event_handler handler;
    const char *pattern;
    ubus_event_handler_t callback;
};

// Starts a thread that receives no signals but those of a crash. False when it cannot be made.
// Never join it: a broker that says nothing may hold it for ever. That thread alone calls the
// functions below.
bool bus_start_thread(void *(*run)(void *));

// Makes the first connection. Null when there is no broker. A broker that accepts the connection
// and says nothing holds the caller for ever.
ubus_context *bus_connect();

// Tries once a second to connect, until the broker is there.
ubus_context *bus_reconnect();

// Registers the listeners and serves the connection until it is lost. Then it frees context. A
// listener that the broker refuses is registered again every second. registered, if given, is
// called after the first round of registrations, even if the broker has refused some.
void bus_serve(ubus_context *context, bus_listener *listeners, size_t count,
               void (*registered)() = nullptr);

// Whether tables and arrays in the message are nested deeper than 32 levels. The formatter calls
// itself for each level, so a few kilobytes of nested tables would need more stack than any thread
// has. json-c does not read anything deeper either.
bool bus_is_too_deep(blob_attr *message);

}  // namespace kelm
