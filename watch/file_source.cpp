// SPDX-License-Identifier: ISC
// The daemon's files in "/tmp". Every user may put anything there, so no file is trusted. Of a file
// with keys only names and lengths leave the function that reads it.
#include <cctype>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <json-c/json.h>

#include "config/credentials.h"
#include "config/settings.h"
#include "core/handle.h"
#include "core/json_text.h"
#include "core/signals.h"
#include "core/text.h"
#include "watch/source.h"
#include "watch/tell.h"

namespace kelm {

namespace {

constexpr const char *FOLDER = "/tmp";
constexpr size_t FOLDER_LENGTH = 5;  // with its slash
constexpr int64_t LOOK_MS = 1000;
constexpr int64_t SOON_MS = 100;   // until the next look at an empty file, which is being written
constexpr int64_t QUIET_MS = 300;  // without a change: scripts write hostapd's file in pieces
constexpr int64_t STRANGER_MS = 1000;  // between two lines about a file that is not read
constexpr size_t FILE_SIZE_MAX = size_t{16} * 1024;
constexpr size_t STATUS_SHOWN = 1024;
constexpr size_t KEY_SHOWN = 40;

enum class content {
    status,       // told as it is
    credentials,  // names and lengths
    wps,          // settings
    wifi,         // settings
    network,      // hostapd's own file: settings
};

// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): in the order in which the table reads.
struct watched_file {
    const char *path;
    const char *band;  // of a hostapd file
    content holds;
    // What was seen last, so that only a change is told.
    struct stat seen;
    int64_t told_ms;
    bool was_there;
    bool was_read;
    bool look_again;
    bool told_refused;
    int64_t changed_ms;  // of settings
};

watched_file files[] = {
    {"/tmp/wps_result", "", content::status, {}, 0, false, false, false, false, 0},
    {"/tmp/kelm.info", "", content::status, {}, 0, false, false, false, false, 0},
    {"/tmp/wpsactive", "", content::status, {}, 0, false, false, false, false, 0},
    {"/tmp/kelm.pid", "", content::status, {}, 0, false, false, false, false, 0},
    {WPS_AP_FILE, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_STA_FILE, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_AP_FILE_MESH, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_STA_FILE_MESH, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_AP_BH_FILE, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_AP_BACKUP, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_STA_BACKUP, "", content::credentials, {}, 0, false, false, false, false, 0},
    {WPS_CONF_PATH, "", content::wps, {}, 0, false, false, false, false, 0},
    {WIFI_CONF_PATH, "", content::wifi, {}, 0, false, false, false, false, 0},
    {"/tmp/run/hostapd-wlan1.conf", "2g", content::network, {}, 0, false, false, false, false, 0},
    {"/tmp/run/hostapd-wlan0.conf", "5g", content::network, {}, 0, false, false, false, false, 0},
};

// --- Settings: what the files say of each band ---

constexpr int NOT_TOLD = -1;
constexpr unsigned SIX_GHZ = 8;

struct band_settings {
    const char *name;  // in keys
    const char *label;
    unsigned bit;  // in apWpsAvailable
    int enabled;   // from wps.conf: takes part
    int security;  // from wifi.conf: wlanSecType
    int hidden;    // from hostapd's file
    bool psk;
    bool sae;
    bool has_network;
    bool wps;
};

band_settings bands[] = {
    {"2g", "2.4 GHz", 1, NOT_TOLD, NOT_TOLD, NOT_TOLD, false, false, false, false},
    {"5g", "5 GHz", 2, NOT_TOLD, NOT_TOLD, NOT_TOLD, false, false, false, false},
    {"6g", "6 GHz", SIX_GHZ, NOT_TOLD, NOT_TOLD, NOT_TOLD, false, false, false, false},
};
constexpr size_t BAND_COUNT = sizeof bands / sizeof bands[0];
constexpr size_t LINE_SIZE = 128;
char told_settings[BAND_COUNT][LINE_SIZE];

// Numbers of wlanSecType.
constexpr const char *SECURITY_WORDS[] = {"open", "wpa2", "wep", "wpa2", "wpa3", "owe"};

char text[FILE_SIZE_MAX + 1];  // of the file that is just being read

// The value behind "KEY=" in a line, or null.
const char *_value_behind_key(const char *line, const char *key)
{
    const size_t length = strlen(key);
    return strncmp(line, key, length) == 0 && line[length] == '=' ? line + length + 1 : nullptr;
}

void _take_wps_line(const char *line, int *enabled, unsigned *taking_part)
{
    if (const char *value = _value_behind_key(line, "enabled"))
        *enabled = atoi(value) != 0 ? 1 : 0;
    if (const char *value = _value_behind_key(line, "apWpsAvailable"))
        *taking_part = static_cast<unsigned>(strtoul(value, nullptr, 10));
}

void _take_wifi_line(const char *line)
{
    for (band_settings &band : bands) {
        char key[32];
        snprintf(key, sizeof key, "wlanSecType_%s", band.name);
        const char *value = _value_behind_key(line, key);
        if (value != nullptr)
            band.security = atoi(value);
    }
}

void _take_network_line(const char *line, band_settings &band)
{
    if (const char *value = _value_behind_key(line, "ignore_broadcast_ssid"))
        band.hidden = atoi(value) != 0 ? 1 : 0;
    if (const char *value = _value_behind_key(line, "wps_state"))
        band.wps = atoi(value) != 0;
    if (const char *value = _value_behind_key(line, "wpa_key_mgmt")) {
        band.psk = strstr(value, "WPA-PSK") != nullptr;
        band.sae = strstr(value, "SAE") != nullptr;
    }
}

// Reads the text line by line; hostapd's file only up to its second network. No key here belongs to
// a line with a secret.
void _take_settings(const watched_file &file)
{
    int enabled = 0;
    unsigned taking_part = 0;
    band_settings *network = nullptr;
    for (band_settings &band : bands) {
        if (strcmp(band.name, file.band) == 0)
            network = &band;
    }
    if (network != nullptr) {
        network->hidden = 0;
        network->psk = network->sae = network->wps = false;
        network->has_network = true;
    }
    char *rest = text;
    while (const char *line = strsep(&rest, "\n")) {
        if (file.holds == content::wps)
            _take_wps_line(line, &enabled, &taking_part);
        else if (file.holds == content::wifi)
            _take_wifi_line(line);
        else if (strncmp(line, "bss=", 4) == 0)
            break;
        else if (network != nullptr)
            _take_network_line(line, *network);
    }
    if (file.holds != content::wps)
        return;
    for (band_settings &band : bands)
        band.enabled = enabled != 0 && (taking_part & band.bit) != 0 ? 1 : 0;
}

const char *_security_of(const band_settings &band)
{
    if (band.has_network && band.sae)
        return band.psk ? "wpa2 and sae" : "wpa3";
    if (band.has_network && band.psk)
        return "wpa2";
    const bool known = band.security >= 0 && static_cast<size_t>(band.security) <
                                                 sizeof SECURITY_WORDS / sizeof SECURITY_WORDS[0];
    return known ? SECURITY_WORDS[band.security] : "";
}

// "2.4 GHz: enabled, hidden, wpa3"; an empty line for a band of which no file tells anything.
void _settings_line(const band_settings &band, char (&line)[LINE_SIZE])
{
    const char *parts[] = {
        band.enabled == NOT_TOLD ? ""
        : band.enabled != 0      ? "enabled"
                                 : "not enabled",
        band.hidden == 1 ? "hidden" : "",
        band.has_network && !band.wps ? "no wps" : "",
        _security_of(band),
    };
    size_t length = 0;
    line[0] = '\0';
    if (band.bit == SIX_GHZ && band.enabled != 1)
        return;  // few devices have it
    for (const char *part : parts) {
        if (part[0] == '\0')
            continue;
        const int added = snprintf(line + length, sizeof line - length, "%s%s",
                                   length == 0 ? band.label : ",", length == 0 ? ": " : " ");
        length += static_cast<size_t>(added);
        length += static_cast<size_t>(snprintf(line + length, sizeof line - length, "%s", part));
    }
}

void _tell_settings()
{
    for (size_t i = 0; i < BAND_COUNT; ++i) {
        char line[LINE_SIZE];
        _settings_line(bands[i], line);
        if (strcmp(line, told_settings[i]) == 0)
            continue;
        copy_text(told_settings[i], line);
        if (line[0] != '\0')
            watch_tell("settings", "", line, strlen(line));
    }
}

// --- Credentials ---

bool _is_plain_key(const char *key)
{
    const size_t length = strnlen(key, KEY_SHOWN + 1);
    for (size_t i = 0; i < length; ++i) {
        if (isalnum(static_cast<unsigned char>(key[i])) == 0 && key[i] != '_')
            return false;
    }
    return length > 0 && length <= KEY_SHOWN;
}

size_t _length_of(json_object *value)
{
    if (json_object_is_type(value, json_type_string))
        return static_cast<size_t>(json_object_get_string_len(value));
    const char *shown = json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN);
    return shown != nullptr ? strlen(shown) : 0;
}

// Appends to a line. What does not fit is left out.
__attribute__((format(printf, 3, 4))) void _append_format(char *line, size_t size,
                                                          const char *format, ...)
{
    const size_t length = strlen(line);
    va_list values;
    va_start(values, format);
    const int added = vsnprintf(line + length, size - length, format, values);
    va_end(values);
    if (added < 0 || static_cast<size_t>(added) >= size - length)
        line[length] = '\0';
}

void _tell_credentials(const watched_file &file, size_t length)
{
    char line[WATCH_ROOM];
    snprintf(line, sizeof line, "%s %04o %zu bytes", file.path,
             static_cast<unsigned>(file.seen.st_mode & 07777), length);
    bool no_memory = false;
    const unique_json object = length > 0 ? kelm_parse_json(text, length, &no_memory) : nullptr;
    if (object && json_object_is_type(object.get(), json_type_object)) {
        _append_format(line, sizeof line, ":");
        json_object_object_foreach(object.get(), key, value) _append_format(
            line, sizeof line, " %s=[%zu]", _is_plain_key(key) ? key : "?", _length_of(value));
    } else if (length > 0) {
        _append_format(line, sizeof line, ", no JSON object");
    }
    watch_tell("file", "", line, strlen(line));
}

// --- Reading ---

void _tell_status(const watched_file &file, size_t length)
{
    while (length > 0 && (text[length - 1] == '\n' || text[length - 1] == '\r'))
        --length;
    if (length == 0)
        return;  // it will be written in a moment
    watch_say("file", "", "%s %.*s", file.path,
              static_cast<int>(length < STATUS_SHOWN ? length : STATUS_SHOWN), text);
}

const char *_kind_in_words(mode_t mode)
{
    if (S_ISLNK(mode))
        return "a link";
    if (S_ISDIR(mode))
        return "a folder";
    return S_ISFIFO(mode) ? "a FIFO" : "no file";
}

// Writes why the file is not read; an empty text if it is.
void _why_not_read(const struct stat &there, char *reason, size_t size)
{
    reason[0] = '\0';
    if (!S_ISREG(there.st_mode))
        snprintf(reason, size, "%s", _kind_in_words(there.st_mode));
    else if (there.st_uid != 0 && there.st_uid != ::geteuid())
        snprintf(reason, size, "belongs to user %u", static_cast<unsigned>(there.st_uid));
    else if (there.st_nlink > 1)
        snprintf(reason, size, "has another name");
    else if (there.st_size > static_cast<off_t>(FILE_SIZE_MAX))
        snprintf(reason, size, "has %lld bytes", static_cast<long long>(there.st_size));
}

// Reads the file into text. Returns the bytes, or -1 when it is gone, is not to be read, or was
// replaced since it was looked at.
ssize_t _read_watched_file(const watched_file &file)
{
    const unique_fd from(
        ::open(file.path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat there = {};
    char reason[64];
    if (!from.valid() || ::fstat(from.get(), &there) != 0 || there.st_ino != file.seen.st_ino)
        return -1;
    _why_not_read(there, reason, sizeof reason);
    if (reason[0] != '\0')
        return -1;
    size_t length = 0;
    while (length < FILE_SIZE_MAX) {
        const ssize_t count = ::read(from.get(), text + length, FILE_SIZE_MAX - length);
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        length += static_cast<size_t>(count);
    }
    text[length] = '\0';
    return static_cast<ssize_t>(length);
}

bool _is_unchanged(const struct stat &a, const struct stat &b)
{
    return a.st_ino == b.st_ino && a.st_size == b.st_size && a.st_mode == b.st_mode &&
           a.st_uid == b.st_uid && a.st_nlink == b.st_nlink &&
           a.st_mtim.tv_sec == b.st_mtim.tv_sec && a.st_mtim.tv_nsec == b.st_mtim.tv_nsec;
}

void _tell_content(const watched_file &file)
{
    const ssize_t length = _read_watched_file(file);
    if (length < 0)
        return;  // it changes just now, so there will be another look
    if (file.holds == content::status)
        _tell_status(file, static_cast<size_t>(length));
    else if (file.holds == content::credentials)
        _tell_credentials(file, static_cast<size_t>(length));
    else
        _take_settings(file);
    memset(text, 0, static_cast<size_t>(length));  // keys do not stay in memory
}

void _tell_refused(watched_file &file, const char *reason, int64_t now_ms)
{
    // Somebody may make and remove such a file again and again. That must not fill the recording.
    if (file.told_refused && now_ms - file.told_ms < STRANGER_MS) {
        file.look_again = true;
        return;
    }
    file.told_refused = true;
    file.told_ms = now_ms;
    watch_say("file", "", "%s not read: %s", file.path, reason);
}

bool _holds_settings(const watched_file &file)
{
    return file.holds != content::status && file.holds != content::credentials;
}

void _note_removed(watched_file &file)
{
    if (file.was_read && !_holds_settings(file))
        watch_say("file", "", "%s removed", file.path);
    file.was_there = file.was_read = false;
    file.seen = {};
}

// Whether only the mode or the number of names has changed, not the text.
bool _has_same_text(const watched_file &file, const struct stat &there)
{
    return file.was_read && file.holds == content::status && file.seen.st_ino == there.st_ino &&
           file.seen.st_size == there.st_size && file.seen.st_mtim.tv_sec == there.st_mtim.tv_sec &&
           file.seen.st_mtim.tv_nsec == there.st_mtim.tv_nsec;
}

void _look_at(watched_file &file, int64_t now_ms)
{
    struct stat there = {};
    const bool again = file.look_again;
    file.look_again = false;
    if (::lstat(file.path, &there) != 0) {
        _note_removed(file);
        return;
    }
    const bool is_changed = !file.was_there || !_is_unchanged(file.seen, there);
    if (!is_changed && !again)
        return;
    if (_holds_settings(file)) {
        file.changed_ms = is_changed ? now_ms : file.changed_ms;
        file.seen = there;
        file.was_there = true;
        file.look_again = now_ms - file.changed_ms < QUIET_MS;
        if (file.look_again)
            return;
    }
    // A shell empties a file before it writes to it.
    if (S_ISREG(there.st_mode) && there.st_size == 0 && !again) {
        file.look_again = true;
        return;
    }
    const bool same = _has_same_text(file, there);
    char reason[64];
    _why_not_read(there, reason, sizeof reason);
    file.seen = there;
    file.was_there = true;
    file.was_read = reason[0] == '\0';
    if (!file.was_read)
        _tell_refused(file, reason, now_ms);
    else if (!same)
        _tell_content(file);
}

void _look_at_all(int64_t now_ms)
{
    for (watched_file &file : files) {
        _look_at(file, now_ms);
        watch_drain_wifi();
    }
    _tell_settings();
}

// --- What the loop calls ---

unique_fd changes;  // inotify on the folder; invalid where the kernel has none

void _open_files(const watch_options &)
{
    changes.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
}

size_t _file_descriptors(pollfd *set)
{
    set[0] = {changes.get(), POLLIN, 0};
    return 1;
}

void _note_change(const char *name, int64_t now_ms)
{
    for (watched_file &file : files) {
        if (strcmp(file.path + FOLDER_LENGTH, name) == 0)
            _look_at(file, now_ms);
    }
}

bool look_now = false;

void _take_file_changes(const pollfd *set, size_t)
{
    if (set[0].revents == 0)
        return;
    alignas(inotify_event) char events[WATCH_ROOM];
    const ssize_t length = ::read(changes.get(), events, sizeof events);
    const int64_t now_ms = kelm_monotonic_ms();
    for (ssize_t at = 0; at < length;) {
        const auto *event = reinterpret_cast<const inotify_event *>(events + at);
        if (event->len > 0)
            _note_change(event->name, now_ms);
        if ((event->mask & IN_Q_OVERFLOW) != 0)
            look_now = true;
        at += static_cast<ssize_t>(sizeof *event + event->len);
    }
}

int64_t _look_at_files(int64_t now_ms)
{
    static int64_t next_ms = 0;
    if (changes.valid())
        (void)::inotify_add_watch(
            changes.get(), FOLDER,
            IN_CLOSE_WRITE | IN_MOVED_TO | IN_MOVED_FROM | IN_DELETE | IN_ATTRIB | IN_ONLYDIR);
    bool soon = false;
    if (look_now || now_ms >= next_ms) {
        look_now = false;
        next_ms = now_ms + LOOK_MS;
        _look_at_all(now_ms);
    } else {
        for (watched_file &file : files) {
            if (file.look_again)
                _look_at(file, now_ms);
        }
        _tell_settings();
    }
    for (const watched_file &file : files)
        soon = soon || file.look_again;
    return soon && now_ms + SOON_MS < next_ms ? now_ms + SOON_MS : next_ms;
}

void _close_files()
{
    changes.reset();
}

}  // namespace

const watch_source WATCH_FILES = {_open_files, _file_descriptors, _take_file_changes,
                                  _look_at_files, _close_files};

}  // namespace kelm
