// SPDX-License-Identifier: ISC
// The announcement of new settings, and the wait for the file that goes with it.
#include "platform/rtk/new_settings.h"

#include <cstdint>
#include <cstring>
#include <ctime>

#include <poll.h>
#include <sys/stat.h>

#include "core/session.h"
#include "core/signals.h"
#include "core/text.h"
#include "platform/rtk/hostapd_file.h"
#include "platform/rtk/wps_attributes.h"

namespace kelm {

namespace {

constexpr int LOOK_EVERY_MS = 10;
constexpr uint16_t AUTH_WITH_KEY = 0x0022;  // WPA and WPA2 personal

// What tells one version of a file from another.
struct file_version {
    dev_t device;
    ino_t node;
    off_t size;
    timespec written;
};

enum class announcement { none, without_content, with_content, not_understood };

struct announced_settings {
    announcement kind;
    bool has_come;  // its file had come when the wait ended
    int64_t deadline_ms;
    char ssid[WPS_SSID_SIZE];
    char key[WPS_PASSWORD_SIZE];  // empty: an open network
};

// One band's access point.
struct settings_watch {
    announced_settings announced;
    file_version known;
    wps_ap_band_config stored;  // by the last write-back
    bool has_known;
    bool has_stored;
};
settings_watch watches[KELM_BAND_COUNT];

int64_t _now_ms()
{
    timespec now = {};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1000000;
}

// All zero for a file that is not there.
file_version _version_of(int band)
{
    char path[HOSTAPD_PATH_SIZE];
    rtk_hostapd_path(*kelm_get_wps_session(band), path);
    struct stat there = {};
    if (::stat(path, &there) != 0)
        there = {};
    return {there.st_dev, there.st_ino, there.st_size, there.st_mtim};
}

bool _is_same_version(const file_version &one, const file_version &other)
{
    return one.device == other.device && one.node == other.node && one.size == other.size &&
           one.written.tv_sec == other.written.tv_sec &&
           one.written.tv_nsec == other.written.tv_nsec;
}

// Reads the band's file; its name only if switched_on. False when there is no file, or when it says
// something that cannot be stored.
bool _read_hostapd_file(int band, uint8_t switched_on, wps_ap_band_config *ap)
{
    char path[HOSTAPD_PATH_SIZE];
    rtk_hostapd_path(*kelm_get_wps_session(band), path);
    const unique_cfg_tree tree(kelm_parse_hostapd_config(path, true));
    if (!tree)
        return false;
    ap->ap_bss_enabled = switched_on;
    return rtk_take_hostapd_network(tree.get(), ap, true);
}

// --- What an announcement says ---

struct attributes {
    const uint8_t *ssid;
    size_t ssid_length;
    const uint8_t *key;
    size_t key_length;
    uint16_t auth_type;
};

// The first of each kind counts.
void _note_attribute(const wps_attribute &one, attributes *found)
{
    if (one.type == WPS_ATTR_SSID && found->ssid == nullptr) {
        found->ssid = one.value;
        found->ssid_length = one.length;
    } else if (one.type == WPS_ATTR_NETWORK_KEY && found->key == nullptr) {
        found->key = one.value;
        found->key_length = one.length;
    } else if (one.type == WPS_ATTR_AUTH_TYPE && one.length == 2 && found->auth_type == 0) {
        found->auth_type = rtk_wps_number(one.value);
    }
}

// False when the bytes are not a row of attributes. A credential holds attributes of its own, which
// follow its head. So the reading goes on inside it.
bool _read_announced_attributes(const uint8_t *bytes, size_t length, attributes *found)
{
    wps_attributes from = {bytes, bytes + length, false};
    wps_attribute one = {};
    while (rtk_next_wps_attribute(&from, &one)) {
        if (one.type == WPS_ATTR_CREDENTIAL)
            from.at = one.value;
        else
            _note_attribute(one, found);
    }
    return !from.broken;
}

// False when the attributes tell no network that hostapd could write to its file.
bool _take_content(const attributes &found, announced_settings *announced)
{
    const size_t name =
        found.ssid != nullptr ? rtk_length_without_zeros(found.ssid, found.ssid_length) : 0;
    if (name == 0 || name >= WPS_SSID_SIZE || found.auth_type == 0)
        return false;
    copy_ssid(announced->ssid, reinterpret_cast<const char *>(found.ssid), name);
    copy_text(announced->key, "");
    if ((found.auth_type & AUTH_WITH_KEY) == 0)
        return true;
    const size_t key =
        found.key != nullptr ? rtk_length_without_zeros(found.key, found.key_length) : 0;
    if (key == 0 || key >= WPS_PASSWORD_SIZE || memchr(found.key, '\0', key) != nullptr)
        return false;
    copy_text(announced->key, sizeof announced->key, reinterpret_cast<const char *>(found.key),
              key);
    return true;
}

announcement _read_payload(const char *payload, announced_settings *announced)
{
    uint8_t bytes[WPS_PAYLOAD_MAX];
    const int length = rtk_read_wps_payload(payload, bytes);
    if (length == 0)
        return announcement::without_content;
    attributes found = {};
    if (length < 0 || !_read_announced_attributes(bytes, static_cast<size_t>(length), &found) ||
        !_take_content(found, announced))
        return announcement::not_understood;
    return announcement::with_content;
}

// --- Whether the file is the announced one ---

bool _holds(int band, const announced_settings &announced)
{
    wps_ap_band_config ap = {};
    return _read_hostapd_file(band, 1, &ap) &&
           memcmp(ap.ssid, announced.ssid, sizeof ap.ssid) == 0 &&
           strcmp(ap.password, announced.key) == 0;
}

bool _has_come(int band, const settings_watch &watch, const file_version &now)
{
    switch (watch.announced.kind) {
    case announcement::with_content:
        return _holds(band, watch.announced);
    case announcement::without_content:
        return !watch.has_known || !_is_same_version(now, watch.known);
    case announcement::none:
    case announcement::not_understood:
        return true;
    }
    return true;
}

bool _wait_for_file(int band, const settings_watch &watch)
{
    file_version seen = _version_of(band);
    bool has_come = _has_come(band, watch, seen);
    while (!has_come && !kelm_is_ending() && _now_ms() < watch.announced.deadline_ms) {
        (void)::poll(nullptr, 0, LOOK_EVERY_MS);
        const file_version now = _version_of(band);
        if (_is_same_version(now, seen))
            continue;
        seen = now;
        has_come = _has_come(band, watch, now);
    }
    return has_come;
}

// An announcement without content counts as that of a key: hostapd makes a key for the first client
// of an open access point.
bool _tells_a_key(const announced_settings &announced)
{
    return announced.kind == announcement::without_content ||
           (announced.kind == announcement::with_content && announced.key[0] != '\0');
}

}  // namespace

void rtk_note_hostapd_file(int band)
{
    if (kelm_get_wps_session(band) == nullptr)
        return;
    watches[band].has_known = true;
    watches[band].known = _version_of(band);
}

void rtk_note_new_settings(int band, const char *payload)
{
    if (kelm_get_wps_session(band) == nullptr)
        return;
    announced_settings &announced = watches[band].announced;
    announced = {};
    announced.kind = _read_payload(payload, &announced);
    announced.deadline_ms = _now_ms() + RTK_NEW_SETTINGS_LIMIT_MS;
}

// Waits once for each event. After its write-back the file is not new any more, and a second wait
// would be in vain.
bool rtk_wait_for_new_settings(int band)
{
    announced_settings &announced = watches[band].announced;
    if (announced.has_come)
        return !_tells_a_key(announced);
    announced.has_come = _wait_for_file(band, watches[band]);
    return announced.has_come || !_tells_a_key(announced);
}

void rtk_note_stored_settings(int band, const wps_ap_band_config &stored)
{
    settings_watch &watch = watches[band];
    watch.has_stored = true;
    watch.stored = stored;
}

// A file without a key, or one that is not what was announced, does not count: the scripts may be
// making it anew just now.
bool rtk_has_newer_settings(int band)
{
    const settings_watch &watch = watches[band];
    if (watch.announced.kind == announcement::none)
        return false;
    if (watch.announced.kind == announcement::with_content && !_holds(band, watch.announced))
        return false;
    wps_ap_band_config ap = {};
    if (!_read_hostapd_file(band, watch.has_stored ? watch.stored.ap_bss_enabled : 1, &ap) ||
        ap.password[0] == '\0')
        return false;
    return !watch.has_stored || memcmp(ap.ssid, watch.stored.ssid, sizeof ap.ssid) != 0 ||
           strcmp(ap.password, watch.stored.password) != 0;
}

void rtk_forget_new_settings(int band)
{
    if (kelm_get_wps_session(band) == nullptr)
        return;
    watches[band] = {};
    rtk_note_hostapd_file(band);
}

}  // namespace kelm
