// SPDX-License-Identifier: ISC
// The bus. A thread listens, as in the daemon, so that a broker that hangs does not hold the other
// sources. What the thread hears goes through a queue to the main thread, but never a PIN.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include <fcntl.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

extern "C" {
#include <libubox/blobmsg.h>
}

#include "core/handle.h"
#include "core/signals.h"
#include "ipc/bus_listener.h"
#include "watch/queue.h"
#include "watch/source.h"
#include "watch/tell.h"

namespace kelm {

namespace {

constexpr size_t QUEUE_SIZE = size_t{16} * 1024;
constexpr size_t LINE_SIZE = 2048;
constexpr size_t NAME_SHOWN = 32;  // bytes of a member's name
constexpr size_t WORD_SHOWN = 32;  // bytes of a text that is kept
constexpr int MEMBERS_MAX = 24;    // more members are only counted
constexpr int TELL_MAX = 16;       // lines told at a time
constexpr int64_t HUNG_MS = 5000;  // after this long without a greeting the broker hangs
constexpr int64_t LOOK_MS = 1000;
constexpr unsigned RETRY_S = 1;

// What a line of the queue is.
enum : uint32_t { LINE, PRESS, START, END, ATTACHED, GONE };

pthread_mutex_t lock = PTHREAD_MUTEX_INITIALIZER;
char queue_memory[QUEUE_SIZE];
watch_queue queue(queue_memory, sizeof queue_memory);  // under the lock
unsigned lost = 0;                                     // under the lock
int wake_fd = -1;                 // never closed: the thread may write to it until the process ends
int64_t connecting_since_ms = 0;  // under the lock: not each machine has an atomic of 64 bits
bool told_hung = false;
bool has_heard = false;

// --- The bus thread ---

void _put(uint32_t tag, const char *text)
{
    pthread_mutex_lock(&lock);
    if (!queue.push(tag, text, strlen(text)))
        ++lost;
    pthread_mutex_unlock(&lock);
    (void)::eventfd_write(wake_fd, 1);
}

// Members whose values are told. Of any other member, such as a PIN, only the length is told.
enum class kept { number, word };
struct member_row {
    const char *event;
    const char *member;
    kept value;
};
constexpr member_row MEMBERS[] = {
    {"gpio", "type", kept::word},        {"gpio", "pressed", kept::number},
    {"gpio", "action", kept::word},      {"wifi", "action", kept::number},
    {"wps_cli", "action", kept::number}, {"wps_cli", "method", kept::number},
    {"wps", "action", kept::number},     {"wps", "2g_status", kept::number},
    {"wps", "5g_status", kept::number},  {"wps", "5g2_status", kept::number},
};

const member_row *_member_row(const char *event, const char *member)
{
    for (const member_row &row : MEMBERS) {
        if (strcmp(row.event, event) == 0 && strcmp(row.member, member) == 0)
            return &row;
    }
    return nullptr;
}

bool _number_of(blob_attr *member, int64_t *number)
{
    switch (blobmsg_type(member)) {
    case BLOBMSG_TYPE_INT8:
        *number = blobmsg_get_u8(member);
        return true;
    case BLOBMSG_TYPE_INT16:
        *number = static_cast<int16_t>(blobmsg_get_u16(member));
        return true;
    case BLOBMSG_TYPE_INT32:
        *number = static_cast<int32_t>(blobmsg_get_u32(member));
        return true;
    case BLOBMSG_TYPE_INT64:
        *number = static_cast<int64_t>(blobmsg_get_u64(member));
        return true;
    default:
        return false;
    }
}

bool _is_word_character(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || c == '-';
}

// A PIN is made of digits, so a text with a digit in it is not told.
bool _is_word(const char *text)
{
    const size_t length = strnlen(text, WORD_SHOWN + 1);
    for (size_t i = 0; i < length; ++i) {
        if (!_is_word_character(text[i]))
            return false;
    }
    return length > 0 && length <= WORD_SHOWN;
}

// A line of JSON that is being made. A part that does not fit is left out as a whole.
struct json_line {
    char text[LINE_SIZE];
    size_t length;
};

__attribute__((format(printf, 2, 3))) void _add_to_line(json_line &line, const char *format, ...)
{
    va_list values;
    va_start(values, format);
    const size_t room = sizeof line.text - line.length;
    const int added = vsnprintf(line.text + line.length, room, format, values);
    va_end(values);
    if (added > 0 && static_cast<size_t>(added) < room)
        line.length += static_cast<size_t>(added);
    line.text[line.length] = '\0';
}

// Anybody may have chosen the member's name: it is cut and cleaned.
void _add_name(json_line &line, const char *name)
{
    char shown[NAME_SHOWN + 1];
    const size_t length = strnlen(name, NAME_SHOWN);
    for (size_t i = 0; i < length; ++i)
        shown[i] =
            name[i] > ' ' && name[i] <= '~' && name[i] != '"' && name[i] != '\\' ? name[i] : '?';
    shown[length] = '\0';
    _add_to_line(line, "\"%s\":", shown);
}

void _add_bus_member(json_line &line, const char *event, blob_attr *member)
{
    const member_row *row = _member_row(event, blobmsg_name(member));
    int64_t number;
    const bool is_number = _number_of(member, &number);
    _add_name(line, blobmsg_name(member));
    if (row != nullptr && row->value == kept::number && is_number) {
        _add_to_line(line, "%lld", static_cast<long long>(number));
        return;
    }
    const bool is_text = blobmsg_type(member) == BLOBMSG_TYPE_STRING;
    if (row != nullptr && row->value == kept::word && is_text &&
        _is_word(blobmsg_get_string(member))) {
        _add_to_line(line, "\"%s\"", blobmsg_get_string(member));
        return;
    }
    const auto length = static_cast<size_t>(blobmsg_len(member));
    _add_to_line(line, "\"[%zu bytes]\"", is_text && length > 0 ? length - 1 : length);
}

uint32_t _tag_of(const char *event, blob_attr *message)
{
    if (strcmp(event, "gpio") == 0 || strcmp(event, "wps_cli") == 0)
        return PRESS;
    if (strcmp(event, "wps") != 0)
        return LINE;
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, message, rest)
    {
        int64_t number;
        if (blobmsg_check_attr(member, true) && strcmp(blobmsg_name(member), "action") == 0 &&
            _number_of(member, &number))
            return number == 1 ? START : END;
    }
    return LINE;
}

// Makes the line that `ubus listen` would print. Of a nested value only the length is told.
void _hear(ubus_context *, ubus_event_handler *, const char *event, blob_attr *message)
{
    json_line line = {};
    _add_to_line(line, "{ \"%s\": {", event);
    int members = 0;
    blob_attr *member;
    size_t rest;
    blobmsg_for_each_attr(member, message, rest)
    {
        if (!blobmsg_check_attr(member, true) || ++members > MEMBERS_MAX)
            continue;
        if (members > 1)
            _add_to_line(line, ",");
        _add_bus_member(line, event, member);
    }
    if (members > MEMBERS_MAX)
        _add_to_line(line, ",\"[%d more]\":0", members - MEMBERS_MAX);
    _add_to_line(line, "} }");
    _put(_tag_of(event, message), line.text);
}

bus_listener listeners[] = {
    {{}, {}, "gpio", _hear},
    {{}, {}, "wifi", _hear},
    {{}, {}, "wps_cli", _hear},
    {{}, {}, "wps", _hear},
};

void _tell_attached()
{
    _put(ATTACHED, "bus attached");
}

void _note_connecting(int64_t since_ms)
{
    pthread_mutex_lock(&lock);
    connecting_since_ms = since_ms;
    pthread_mutex_unlock(&lock);
}

ubus_context *_connect()
{
    _note_connecting(kelm_monotonic_ms());
    ubus_context *context = bus_connect();
    _note_connecting(0);
    return context;
}

void *_watch_bus(void *)
{
    for (bool told_gone = false;;) {
        ubus_context *context = _connect();
        if (context != nullptr)
            bus_serve(context, listeners, sizeof listeners / sizeof listeners[0], _tell_attached);
        if (context != nullptr || !told_gone)
            _put(GONE, "bus gone");
        told_gone = true;
        sleep(RETRY_S);
    }
}

// --- The main thread ---

void _tell_line(uint32_t tag, const char *text, size_t length)
{
    const bool is_state = tag == ATTACHED || tag == GONE;
    watch_tell(is_state ? "socket" : "bus", "", text, length);
    has_heard = has_heard || tag != GONE;
    told_hung = false;
    if (tag == PRESS)
        watch_attempt_asked();
    else if (tag == START)
        watch_attempt_started();
    else if (tag == END)
        watch_attempt_ended();
}

// Copies the line, so that the bus thread need not wait until it is told.
bool _next(uint32_t *tag, char (&line)[LINE_SIZE], size_t *length)
{
    pthread_mutex_lock(&lock);
    const char *text;
    const bool there = queue.front(tag, &text, length);
    if (there)
        memcpy(line, text, *length);
    queue.pop();
    pthread_mutex_unlock(&lock);
    return there;
}

unsigned _take_lost()
{
    pthread_mutex_lock(&lock);
    const unsigned count = lost;
    lost = 0;
    pthread_mutex_unlock(&lock);
    return count;
}

void _open_bus(const watch_options &)
{
    wake_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (wake_fd < 0 || !bus_start_thread(_watch_bus))
        watch_say("watch", "", "the bus is not watched: there is no thread for it");
}

size_t _bus_descriptors(pollfd *set)
{
    set[0] = {wake_fd, POLLIN, 0};
    return 1;
}

void _take_bus(const pollfd *set, size_t)
{
    if (set[0].revents == 0)
        return;
    eventfd_t woken;
    (void)::eventfd_read(wake_fd, &woken);
    uint32_t tag;
    char line[LINE_SIZE];
    size_t length;
    int told = 0;
    while (told < TELL_MAX && _next(&tag, line, &length)) {
        _tell_line(tag, line, length);
        watch_drain_wifi();
        ++told;
    }
    if (told == TELL_MAX)
        (void)::eventfd_write(wake_fd, 1);  // the rest comes when the other sources had their turn
    const unsigned count = _take_lost();
    if (count > 0)
        watch_say("watch", "", "%u events of the bus lost", count);
}

int64_t _look_at_bus(int64_t now_ms)
{
    pthread_mutex_lock(&lock);
    const int64_t since_ms = connecting_since_ms;
    pthread_mutex_unlock(&lock);
    if (since_ms != 0 && now_ms - since_ms >= HUNG_MS && !told_hung) {
        watch_say("socket", "", "bus hung");
        told_hung = true;
    }
    return now_ms + LOOK_MS;
}

void _close_bus() {}

}  // namespace

const watch_source WATCH_BUS = {_open_bus, _bus_descriptors, _take_bus, _look_at_bus, _close_bus};

bool watch_has_heard_bus()
{
    return has_heard;
}

}  // namespace kelm
