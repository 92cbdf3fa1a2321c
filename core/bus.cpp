// SPDX-License-Identifier: ISC
// The bus thread with its three event handlers, the mailbox, and the publication.
#include "core/bus.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubox/uloop.h>
#include <libubus.h>
}

#include <json-c/json.h>

#include "config/json_text.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/status_files.h"
#include "core/text.h"
#include "platform/exec.h"
#include "platform/ops.h"

namespace kelm {

namespace {

constexpr int RETRY_MS = 1000;
constexpr unsigned RETRY_S = 1;
constexpr size_t SEND_COMMAND_SIZE = 256;
constexpr uint32_t NO_SUCH_VALUE = 0xFF;  // neither an action nor a method
// Small C libraries give a thread 128 KiB, a size for programs that know what they call.
constexpr size_t STACK_SIZE = size_t{256} * 1024;
// The formatter calls itself for each level, so that a few kilobytes of nested tables would need
// more stack than any thread has. What a request nests deeper, json-c does not read either.
constexpr int DEEPEST_MESSAGE = 32;

pthread_mutex_t mailbox_lock = PTHREAD_MUTEX_INITIALIZER;
wps_listen_event_t wps_listen_event;
// Made once, and never closed: the bus thread may write to it until the process ends.
int wake_fd = -1;

// --- The event handlers: each turns its event into one record. Bus thread only. ---

// Whether a table or an array has more levels than this. What the formatter would leave out does
// not count.
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

// The message as JSON text, logged under the handler's name. Null (logged) when it cannot be
// formatted.
unique_text _message_text(blob_attr *message, const char *handler)
{
    if (_is_deeper(message, DEEPEST_MESSAGE)) {
        kelm_log_as(handler, KELM_LOG_ALWAYS, "Invalid Message (nested too deeply).\n");
        return nullptr;
    }
    unique_text text(blobmsg_format_json_with_cb(message, true, nullptr, nullptr, -1));
    if (!text)
        kelm_log_as(handler, KELM_LOG_ALWAYS, "Invalid Message (null).\n");
    else
        kelm_log_as(handler, KELM_LOG_NORMAL, "Message: %s\n", text.get());
    return text;
}

// What the text says, or null for what cannot be read, for want of memory too.
unique_json _parse_event(const char *text)
{
    bool no_memory = false;
    return kelm_parse_json(text, strlen(text) + 1, &no_memory);
}

void wps_ubus_gpio_cb(ubus_context *, ubus_event_handler *, const char *, blob_attr *message)
{
    const unique_text text = _message_text(message, __func__);
    if (!text)
        return;
    const unique_json event = _parse_event(text.get());
    if (event && json_object_object_get(event.get(), "type") == nullptr) {
        kelm_log_always("Invalid action.\n");
        return;
    }
    // Any button event is the same request, an unreadable one too: a press must not be lost to bad
    // JSON.
    wps_listen_event_t request = {};
    request.code = IBUS_EVENT_BUTTON;
    wps_ibus_set_msg(request);
}

void wps_ubus_wifi_cb(ubus_context *, ubus_event_handler *, const char *, blob_attr *message)
{
    const unique_text text = _message_text(message, __func__);
    if (!text)
        return;
    const unique_json event = _parse_event(text.get());
    json_object *action = json_object_object_get(event.get(), "action");
    if (event && action == nullptr) {
        kelm_log_always("Invalid action.\n");
        return;
    }
    wps_listen_event_t request = {};
    request.code = IBUS_EVENT_WIFI;
    request.wifi.action = static_cast<uint32_t>(json_object_get_int(action));
    wps_ibus_set_msg(request);
}

enum wps_cli_attribute { WPS_CLI_ACTION, WPS_CLI_METHOD, WPS_CLI_PIN, WPS_CLI_COUNT };

// The numbers are 8-bit by agreement, but the "ubus" command can only send 32-bit ones, so any
// width is let in.
constexpr blobmsg_policy WPS_CLI_POLICY[WPS_CLI_COUNT] = {
    {"action", BLOBMSG_TYPE_UNSPEC},
    {"method", BLOBMSG_TYPE_UNSPEC},
    {"pin", BLOBMSG_TYPE_STRING},
};

// Reads an integer of any width. One that does not fit eight bits becomes NO_SUCH_VALUE, rather
// than its low byte, which could be another request. False when the attribute is missing or no
// integer.
bool _read_integer(blob_attr *attribute, uint32_t *value)
{
    if (attribute == nullptr)
        return false;
    uint64_t wide;
    switch (blobmsg_type(attribute)) {
    case BLOBMSG_TYPE_INT8:
        wide = blobmsg_get_u8(attribute);
        break;
    case BLOBMSG_TYPE_INT16:
        wide = blobmsg_get_u16(attribute);
        break;
    case BLOBMSG_TYPE_INT32:
        wide = blobmsg_get_u32(attribute);
        break;
    case BLOBMSG_TYPE_INT64:
        wide = blobmsg_get_u64(attribute);
        break;
    default:
        return false;
    }
    *value = wide < NO_SUCH_VALUE ? static_cast<uint32_t>(wide) : NO_SUCH_VALUE;
    return true;
}

// Why an attempt with this PIN cannot be started, or null when it can. Without one hostapd would be
// asked with nothing behind the command; eight characters of a longer one are another PIN than the
// client shows.
const char *_refusal_of_pin(const char *pin)
{
    if (pin == nullptr || pin[0] == '\0')
        return "no text";
    return strlen(pin) > sizeof wps_listen_event_t::pin ? "longer than 8 characters" : nullptr;
}

void wps_ubus_wpscli_cb(ubus_context *, ubus_event_handler *, const char *, blob_attr *message)
{
    blob_attr *attributes[WPS_CLI_COUNT] = {};
    (void)blobmsg_parse(WPS_CLI_POLICY, WPS_CLI_COUNT, attributes, blob_data(message),
                        static_cast<unsigned>(blob_len(message)));  // what is missing stays null

    wps_listen_event_t request = {};
    request.code = IBUS_EVENT_WPS_CLI;
    if (!_read_integer(attributes[WPS_CLI_ACTION], &request.action) ||
        !_read_integer(attributes[WPS_CLI_METHOD], &request.method)) {
        kelm_log_always("Invalid action.\n");
        return;
    }
    if (request.method == IBUS_WPS_METHOD_PIN) {
        const char *pin = blobmsg_get_string(attributes[WPS_CLI_PIN]);
        const char *refusal =
            request.action == IBUS_WPS_ACTION_START ? _refusal_of_pin(pin) : nullptr;
        if (refusal != nullptr) {
            kelm_log_always("Invalid pin (%s).\n", refusal);
            return;
        }
        if (pin != nullptr)
            copy_fixed(request.pin, sizeof request.pin, pin);
        const char *p = request.pin;
        kelm_log_detail("action: %d, pincode: %c%c%c%c%c%c%c%c\n\n",
                        static_cast<int>(request.action), p[0], p[1], p[2], p[3], p[4], p[5], p[6],
                        p[7]);
    }
    wps_ibus_set_msg(request);
}

// --- Registration and the connection's life. Bus thread only; uloop keeps the addresses. ---

struct listener {
    uloop_timeout retry;  // first, so that its callback finds the listener
    ubus_event_handler handler;
    const char *pattern;
    ubus_event_handler_t callback;
};

listener listeners[] = {
    {{}, {}, "gpio", wps_ubus_gpio_cb},
    {{}, {}, "wifi", wps_ubus_wifi_cb},
    {{}, {}, "wps_cli", wps_ubus_wpscli_cb},
};

ubus_context *connection = nullptr;
bool connection_ended = false;

void _register(listener &which);

void _retry_registration(uloop_timeout *timer)
{
    _register(*reinterpret_cast<listener *>(timer));
}

void _register(listener &which)
{
    which.handler.cb = which.callback;
    if (ubus_register_event_handler(connection, &which.handler, which.pattern) == 0)
        return;
    which.retry.cb = _retry_registration;
    uloop_timeout_set(&which.retry, RETRY_MS);
}

void wps_ubus_register_event()
{
    for (listener &which : listeners) {
        // An identity from an earlier connection would make the broker refuse the new one.
        memset(&which.handler, 0, sizeof which.handler);
        memset(&which.retry, 0, sizeof which.retry);
        _register(which);
    }
}

// The library's own reaction would leave the loop running without its socket, deaf for ever.
void _connection_lost(ubus_context *)
{
    connection_ended = true;
    uloop_end();
}

// Serves one connection until it is lost.
void _serve(ubus_context *context)
{
    connection = context;
    connection_ended = false;
    context->connection_lost = _connection_lost;

    wps_ubus_register_event();
    // Without a descriptor left, the loop would turn without ever waiting.
    const bool waits =
        uloop_init() == 0 && uloop_fd_add(&context->sock, ULOOP_READ | ULOOP_BLOCKING) == 0;
    // A loss during the registration came too early to end a loop that only starts now.
    if (waits && !connection_ended)
        uloop_run();

    connection = nullptr;
    ubus_free(context);
    uloop_done();
}

// Looks for the broker once a second until it is there.
ubus_context *_reconnect()
{
    ubus_context *context = nullptr;
    while (context == nullptr) {
        sleep(RETRY_S);
        context = ubus_connect(nullptr);
    }
    return context;
}

void *wps_ubus_thread(void *)
{
    // Children belong to the main thread, which waits for each itself. Must be set before the first
    // call.
    uloop_handle_sigchld = false;

    ubus_context *context = ubus_connect(nullptr);
    if (context == nullptr) {
        kelm_log_always("Failed to connect to ubus\n\n");
        return nullptr;
    }
    for (;;) {
        _serve(context);
        kelm_log_normal("ubus thread exit\n");
        kelm_log_always("Lost the connection to ubus, trying again every second\n");
        context = _reconnect();
        kelm_log_normal("Connected to ubus again\n");
    }
}

// Signals are the main thread's alone, but for those of a crash: the kernel kills a process that
// holds one of them back without a word to anybody.
sigset_t _held_back_by_thread()
{
    sigset_t held;
    sigfillset(&held);
    for (int number : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGABRT, SIGSYS})
        sigdelset(&held, number);
    return held;
}

bool _start_thread()
{
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0)
        return false;
    (void)pthread_attr_setstacksize(&attributes, STACK_SIZE);  // else it is the usual one
    pthread_t thread;
    const int failed = pthread_create(&thread, &attributes, wps_ubus_thread, nullptr);
    pthread_attr_destroy(&attributes);
    return failed == 0;
}

// --- Publication. Main thread only. ---

blob_buf wps_event;

// The event as JSON text, or null.
unique_text _event_text(int action, const uint16_t *statuses)
{
    if (blob_buf_init(&wps_event, 0) != 0)
        return nullptr;
    const bool complete =
        blobmsg_add_u16(&wps_event, "action", static_cast<uint16_t>(action)) == 0 &&
        blobmsg_add_u16(&wps_event, "2g_status", statuses[KELM_BAND_2G]) == 0 &&
        blobmsg_add_u16(&wps_event, "5g_status", statuses[KELM_BAND_5G]) == 0 &&
        blobmsg_add_u16(&wps_event, "5g2_status", statuses[KELM_BAND_5G2]) == 0;
    if (!complete)
        return nullptr;
    return unique_text(blobmsg_format_json_with_cb(wps_event.head, true, nullptr, nullptr, -1));
}

}  // namespace

int wps_create_ibus_thread()
{
    if (wake_fd < 0)
        wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);

    // The thread inherits the mask.
    const sigset_t held = _held_back_by_thread();
    sigset_t own;
    pthread_sigmask(SIG_SETMASK, &held, &own);
    const bool made = _start_thread();
    pthread_sigmask(SIG_SETMASK, &own, nullptr);

    if (!made) {
        kelm_log_always("created ibus thread failed\n");
        return -1;
    }
    kelm_log_normal("create ibus thread successfully\n");
    return 0;
}

void wps_ibus_set_msg(wps_listen_event_t event)
{
    pthread_mutex_lock(&mailbox_lock);
    wps_listen_event = event;
    pthread_mutex_unlock(&mailbox_lock);
    (void)::eventfd_write(wake_fd, 1);
}

void wps_ibus_handle_event()
{
    // Before the look into the mailbox: what arrives after it then wakes the next wait.
    eventfd_t woken;
    (void)::eventfd_read(wake_fd, &woken);

    pthread_mutex_lock(&mailbox_lock);
    if (wps_listen_event.code != IBUS_EVENT_NONE) {
        (void)kelm_ops.process_bus_msg(&wps_listen_event);
        wps_listen_event.code = IBUS_EVENT_NONE;
    }
    pthread_mutex_unlock(&mailbox_lock);
}

int wps_ibus_wake_fd()
{
    return wake_fd;
}

void wps_ibus_send_wps_event(int action, const uint16_t *statuses)
{
    wps_ubus_send_wps_event(action, statuses);
}

void wps_ubus_send_wps_event(int action, const uint16_t *statuses)
{
    kelm_log_normal("Prepare to send message: action %d, status %d %d %d\n", action,
                    statuses[KELM_BAND_2G], statuses[KELM_BAND_5G], statuses[KELM_BAND_5G2]);
    const unique_text text = _event_text(action, statuses);
    if (!text) {
        kelm_log_always("create json message failed\n\n");
        return;
    }
    // Four numbers and their names: nothing in it that a shell would read.
    char command[SEND_COMMAND_SIZE];
    snprintf(command, sizeof command, "ubus send %s '%s'", "wps", text.get());
    kelm_log_normal("Prepare to send message: %s\n", command);
    (void)kelm_system(command, command_kind::publish);
    kelm_update_info_file(action);
}

}  // namespace kelm
