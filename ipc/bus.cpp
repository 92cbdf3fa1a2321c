// SPDX-License-Identifier: ISC
// The bus thread's three event handlers, the mailbox, and the publication.
#include "ipc/bus.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include <json-c/json.h>

#include "core/exec.h"
#include "core/handle.h"
#include "core/json_text.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/text.h"
#include "ipc/bus_listener.h"
#include "ipc/status_files.h"

namespace kelm {

namespace {

constexpr size_t SEND_COMMAND_SIZE = 256;
constexpr uint32_t NO_SUCH_VALUE = 0xFF;  // neither an action nor a method

pthread_mutex_t mailbox_lock = PTHREAD_MUTEX_INITIALIZER;
wps_listen_event_t wps_listen_event;
// Made once and never closed, since the bus thread may write to it until the process ends.
int wake_fd = -1;

// --- The event handlers: each turns its event into one record. Bus thread only. ---

// The message as JSON text, logged under the handler's name. Null (logged) when it cannot be
// formatted.
unique_text _message_text(blob_attr *message, const char *handler)
{
    if (bus_is_too_deep(message)) {
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

// The parsed text; null when it is no JSON, or when there is no memory.
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
    // Any button event is the same request. An unreadable one counts too: a press must not be lost
    // because of bad JSON.
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

// By agreement the numbers have 8 bits. But the "ubus" command can send 32-bit numbers only, so any
// width is accepted.
constexpr blobmsg_policy WPS_CLI_POLICY[WPS_CLI_COUNT] = {
    {"action", BLOBMSG_TYPE_UNSPEC},
    {"method", BLOBMSG_TYPE_UNSPEC},
    {"pin", BLOBMSG_TYPE_STRING},
};

// Reads an integer of any width. A number that needs more than eight bits becomes NO_SUCH_VALUE:
// its low byte alone could be another request. False when the attribute is missing or is no
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

// Why an attempt with this PIN cannot be started, or null when it can. Without a PIN hostapd would
// get a command with nothing behind it. Of a longer text eight characters would be used, and that
// is not the PIN that the client shows.
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

// --- The thread. ---

bus_listener listeners[] = {
    {{}, {}, "gpio", wps_ubus_gpio_cb},
    {{}, {}, "wifi", wps_ubus_wifi_cb},
    {{}, {}, "wps_cli", wps_ubus_wpscli_cb},
};

void *wps_ubus_thread(void *)
{
    ubus_context *context = bus_connect();
    if (context == nullptr) {
        kelm_log_always("Failed to connect to ubus\n\n");
        return nullptr;
    }
    for (;;) {
        bus_serve(context, listeners, sizeof listeners / sizeof listeners[0]);
        // The text says more than happens: the thread goes on. Log readers know it as the line of a
        // lost connection.
        kelm_log_normal("ubus thread exit\n");
        kelm_log_always("Lost the connection to ubus, trying again every second\n");
        context = bus_reconnect();
        kelm_log_normal("Connected to ubus again\n");
    }
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

    if (!bus_start_thread(wps_ubus_thread)) {
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
    // This is read before the mailbox: a request that arrives after the look into the mailbox then
    // ends the next wait.
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
    // The text is four numbers and their names: it holds nothing that means anything to a shell.
    char command[SEND_COMMAND_SIZE];
    snprintf(command, sizeof command, "ubus send %s '%s'", "wps", text.get());
    kelm_log_normal("Prepare to send message: %s\n", command);
    (void)kelm_system(command, command_kind::publish);
    kelm_update_info_file(action);
}

}  // namespace kelm
