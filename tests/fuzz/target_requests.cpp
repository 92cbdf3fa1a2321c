// SPDX-License-Identifier: ISC
// Way in: messages of the three bus events, into the daemon's own handlers and on to what they
// start.
//
// An input chooses a device, then holds messages: '0' gpio, '1' wifi or '2' wps_cli, then 'j' and a
// line of JSON as the ubus command takes it, 'f' and fields of any type, or raw bytes of a message.
//
// Properties: a request says what the fields say and nothing else; what has no integer action or
// method starts nothing; a PIN is one word of a command; the session table stays whole.
#include <atomic>
#include <cstdlib>
#include <cstring>

#include <sched.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
#include <libubox/blobmsg_json.h>
#include <libubus.h>
}

#include "ipc/bus.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
extern "C" ubus_context *__wrap_ubus_connect(const char *path);
extern "C" int __wrap_ubus_register_event_handler(ubus_context *, ubus_event_handler *handler,
                                                  const char *pattern);
extern "C" int __wrap_uloop_init(void);
extern "C" int __wrap_uloop_fd_add(uloop_fd *, unsigned);
extern "C" int __wrap_uloop_run(void);

namespace {

using kelm::wps_listen_event_t;

constexpr size_t EVENTS = 3;
const char *const PATTERNS[EVENTS] = {"gpio", "wifi", "wps_cli"};
constexpr uint32_t CODES[EVENTS] = {kelm::IBUS_EVENT_BUTTON, kelm::IBUS_EVENT_WIFI,
                                    kelm::IBUS_EVENT_WPS_CLI};
constexpr uint32_t NO_NUMBER = 0xff;
constexpr size_t MESSAGES_MAX = 16;

ubus_context context;
ubus_event_handler *handlers[EVENTS];
std::atomic<bool> registered{false};

wps_listen_event_t seen;
int requests_seen = 0;

// What a message must lead to, where its fields are known.
struct expectation {
    bool known = false;
    bool request = false;
    wps_listen_event_t record = {};
};

void note_request(const wps_listen_event_t *event)
{
    seen = *event;
    ++requests_seen;
}

// --- Messages ---

// One member of any type. True when it is an integer, with its value.
bool add_member(blob_buf *buffer, const char *name, kelm_fuzz::input *input, uint64_t *value)
{
    uint64_t number = 0;
    const unsigned type = input->choice(6);
    for (char byte : input->bytes(type == 3 ? 8 : 1))
        number = number << 8 | static_cast<uint8_t>(byte);
    *value = number;
    switch (type) {
    case 0:
        blobmsg_add_u8(buffer, name, static_cast<uint8_t>(number));
        return true;
    case 1:
        blobmsg_add_u16(buffer, name, static_cast<uint16_t>(number));
        return true;
    case 2:
        blobmsg_add_u32(buffer, name, static_cast<uint32_t>(number));
        return true;
    case 3:
        blobmsg_add_u64(buffer, name, number);
        return true;
    case 4:
        blobmsg_add_string(buffer, name, input->line().c_str());
        return false;
    default:
        return false;
    }
}

uint32_t as_request_number(uint64_t value)
{
    return value < NO_NUMBER ? static_cast<uint32_t>(value) : NO_NUMBER;
}

void expect_wps_cli(blob_buf *buffer, kelm_fuzz::input *input, expectation *expected)
{
    uint64_t action = 0;
    uint64_t method = 0;
    const bool has_action = add_member(buffer, "action", input, &action);
    const bool has_method = add_member(buffer, "method", input, &method);
    expected->request = has_action && has_method;
    expected->record.action = as_request_number(action);
    expected->record.method = as_request_number(method);
    const bool is_start = expected->record.action == kelm::IBUS_WPS_ACTION_START;
    const bool by_pin = expected->record.method == kelm::IBUS_WPS_METHOD_PIN;
    size_t length = 0;
    if (input->choice(2) != 0) {
        const std::string pin = input->line();
        blobmsg_add_string(buffer, "pin", pin.c_str());
        length = strlen(pin.c_str());
        if (by_pin)
            strncpy(expected->record.pin, pin.c_str(), sizeof expected->record.pin);
    }
    if (is_start && by_pin && (length == 0 || length > sizeof expected->record.pin))
        expected->request = false;
}

// Members whose meaning is known; gpio asks for "type", wifi for "action".
void add_fields(size_t event, blob_buf *buffer, kelm_fuzz::input *input, expectation *expected)
{
    expected->known = true;
    if (event == 2) {
        expect_wps_cli(buffer, input, expected);
        return;
    }
    const char *names[] = {"type", "action"};
    const unsigned which = input->choice(2);
    uint32_t number = input->byte();
    blobmsg_add_u32(buffer, names[which], number);
    expected->request = which == event;
    if (event == 1)
        expected->record.wifi.action = number;
}

// A message of the bus library: its own length, and not a byte behind it.
struct message {
    explicit message(const void *body, size_t length)
        : attribute(static_cast<blob_attr *>(malloc(BLOB_ATTR_ALIGN * ((length + 7) / 4))))
    {
        const uint32_t head = htobe32(static_cast<uint32_t>(sizeof(blob_attr) + length));
        memset(attribute, 0, BLOB_ATTR_ALIGN * ((length + 7) / 4));
        memcpy(attribute, &head, sizeof head);
        memcpy(attribute + 1, body, length);
    }
    message(const message &) = delete;
    message &operator=(const message &) = delete;
    ~message() { free(attribute); }
    blob_attr *attribute;
};

std::string body_of(size_t event, kelm_fuzz::input *input, expectation *expected)
{
    blob_buf buffer = {};
    PROPERTY(blob_buf_init(&buffer, 0) == 0);
    std::string raw;
    switch (input->byte()) {
    case 'j':
        (void)blobmsg_add_json_from_string(&buffer, input->line().c_str());
        break;
    case 'f':
        add_fields(event, &buffer, input, expected);
        break;
    default:
        raw = input->bytes(input->byte());
        blob_buf_free(&buffer);
        return raw;
    }
    raw.assign(static_cast<const char *>(blob_data(buffer.head)), blob_len(buffer.head));
    blob_buf_free(&buffer);
    return raw;
}

// --- What a request may say ---

void check_record(size_t event, const wps_listen_event_t &record)
{
    constexpr uint32_t nothing[4] = {};
    PROPERTY(record.code == CODES[event]);
    PROPERTY(memcmp(record.reserved, nothing, sizeof nothing) == 0);
    PROPERTY(record.action <= NO_NUMBER && record.method <= NO_NUMBER);
    if (event != 2)
        PROPERTY(record.action == 0 && record.method == 0 && record.wifi.unused == 0);
    if (event == 0 || (event == 2 && record.method != kelm::IBUS_WPS_METHOD_PIN))
        PROPERTY(memcmp(record.pin, nothing, sizeof record.pin) == 0);
}

void deliver(size_t event, kelm_fuzz::input *input)
{
    expectation expected;
    expected.record.code = CODES[event];
    const std::string body = body_of(event, input, &expected);
    const message sent(body.data(), body.size());
    requests_seen = 0;
    handlers[event]->cb(&context, handlers[event], PATTERNS[event], sent.attribute);
    kelm::wps_ibus_handle_event();
    PROPERTY(requests_seen <= 1);
    if (requests_seen == 1)
        check_record(event, seen);
    if (!expected.known)
        return;
    PROPERTY(requests_seen == (expected.request ? 1 : 0));
    if (expected.request)
        PROPERTY(memcmp(&seen, &expected.record, sizeof seen) == 0);
}

// The handlers as the bus thread registers them; the thread itself is parked where it would serve
// the bus.
void learn_handlers()
{
    if (registered)
        return;
    PROPERTY(kelm::wps_create_ibus_thread() == 0);
    while (!registered)
        sched_yield();
    for (const ubus_event_handler *handler : handlers)
        PROPERTY(handler != nullptr && handler->cb != nullptr);
}

}  // namespace

extern "C" ubus_context *__wrap_ubus_connect(const char *)
{
    return &context;
}

extern "C" int __wrap_ubus_register_event_handler(ubus_context *, ubus_event_handler *handler,
                                                  const char *pattern)
{
    for (size_t event = 0; event < EVENTS; ++event) {
        if (strcmp(pattern, PATTERNS[event]) == 0)
            handlers[event] = handler;
    }
    return 0;
}

extern "C" int __wrap_uloop_init(void)
{
    return 0;
}

extern "C" int __wrap_uloop_fd_add(uloop_fd *, unsigned)
{
    return 0;
}

extern "C" int __wrap_uloop_run(void)
{
    registered = true;
    for (;;)
        pause();
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    learn_handlers();
    kelm_fuzz::input input(data, size);
    kelm_fuzz::reset_device(input.choice(kelm_fuzz::PRESETS));
    kelm_fuzz::on_request = note_request;
    if (!kelm_fuzz::start_device())
        return 0;
    for (size_t count = 0; count < MESSAGES_MAX && !input.empty(); ++count) {
        deliver(input.choice(EVENTS), &input);
        kelm_fuzz::check_sessions();
    }
    kelm_fuzz::check_files();
    (void)kelm_fuzz::take_log();
    (void)kelm_fuzz::take_commands();
    return 0;
}
