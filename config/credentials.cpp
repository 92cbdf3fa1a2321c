// SPDX-License-Identifier: ISC
// Writers of the JSON credential files: tables of keys, and one way to merge them into a file.
#include "config/credentials.h"

#include <algorithm>
#include <cstdio>
#include <initializer_list>

#include <sys/stat.h>
#include <unistd.h>

#include "config/security_words.h"
#include "core/file.h"
#include "core/json_file.h"
#include "core/json_text.h"
#include "core/log.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr size_t KEY_SIZE = 32;
constexpr size_t TEXT_MAX = WPS_QM_DATA_SIZE;  // the largest text member
constexpr uint32_t LOWEST_KEY_INDEX = 1;
constexpr uint32_t HIGHEST_KEY_INDEX = 4;

json_object *_switch_text(bool on)
{
    return json_object_new_string(on ? "on" : "off");
}

// The bytes of a text member. An SSID may have zeros among them.
struct byte_range {
    const char *bytes;
    size_t length;
};

template <auto member, typename config_t>
byte_range _text(const config_t *config)
{
    const auto &field = config->*member;
    return {field, fixed_len(field, sizeof field)};
}

template <typename config_t>
byte_range _ssid(const config_t *config)
{
    return {config->ssid, ssid_len(config->ssid)};
}

// These functions make the value of a key; null without memory. The first two serve any number
// member of either record.
template <auto member, typename config_t>
json_object *_integer(const config_t *config)
{
    return json_object_new_int(static_cast<int>(config->*member));
}

template <auto member, typename config_t>
json_object *_truth(const config_t *config)
{
    return json_object_new_int(config->*member != 0 ? 1 : 0);
}

template <typename config_t>
json_object *_key_index(const config_t *config)
{
    const uint32_t index = config->key_index;
    const bool valid = index >= LOWEST_KEY_INDEX && index <= HIGHEST_KEY_INDEX;
    return json_object_new_int(static_cast<int>(valid ? index : LOWEST_KEY_INDEX));
}

// From now on the band takes part with its station, whatever the settings said before.
json_object *_sta_enable(const wps_sta_band_config *)
{
    return _switch_text(true);
}

const char *_sta_security(const wps_sta_band_config *config)
{
    return kelm_words_of_security(config->auth_mode, config->wpa_version).station_file;
}

const char *_sta_encryption(const wps_sta_band_config *config)
{
    return kelm_words_of_cipher(config->encryption).word;
}

json_object *_ap_enable(const wps_ap_band_config *config)
{
    return _switch_text(config->ap_bss_enabled != 0);
}

const char *_ap_security(const wps_ap_band_config *config)
{
    return kelm_words_of_security(config->sec_type, config->wpa_version).access_point_file;
}

const char *_ap_owe_security(const wps_ap_band_config *config)
{
    if (config->sec_type != WPS_AUTH_OWE)
        return "";
    return kelm_words_of_security(config->sec_type, config->wpa_version).station_file;
}

json_object *_own_settings(const wps_ap_band_config *)
{
    return json_object_new_string("false");
}

json_object *_follows_uplink(const wps_ap_band_config *)
{
    return json_object_new_string("true");
}

// One key of a band. stem: the key's name before "_2g" and so on. Its value comes from one of the
// other three: a function that makes it, a word or a text. If the word is empty, the key stays as
// it is in the file. The order of the rows is the order of the keys in a fresh file.
template <typename config_t>
struct key_row {
    const char *stem = nullptr;
    json_object *(*make)(const config_t *config) = nullptr;
    const char *(*word)(const config_t *config) = nullptr;
    byte_range (*text)(const config_t *config) = nullptr;
};
using sta_row = key_row<wps_sta_band_config>;
using ap_row = key_row<wps_ap_band_config>;

constexpr sta_row STA_KEYS[] = {
    {"enable", _sta_enable},
    {"ssid", nullptr, nullptr, _ssid},
    {"security", nullptr, _sta_security},
    {"wpa_encryption", nullptr, _sta_encryption},
    {"index", _key_index},
    {"password", nullptr, nullptr, _text<&wps_sta_band_config::password>},
    {"securityType", _integer<&wps_sta_band_config::auth_mode>},
    {"wpaVersion", _integer<&wps_sta_band_config::wpa_version>},
    {"wepAuthType", _integer<&wps_sta_band_config::wep_auth_type>},
    {"wepKeyFormat", _integer<&wps_sta_band_config::wep_key_format>},
    {"data", nullptr, nullptr, _text<&wps_sta_band_config::data>},
    {"support_mesh", _truth<&wps_sta_band_config::support_mesh>},
    {"multiap", _truth<&wps_sta_band_config::multiap>},
};

// The encryption is a number here and a text in the station file, since different scripts read the
// two files. The security text of an OWE access point is under the key name of the station file:
// the access point script looks for it there. "sec" keeps what the file had, since the script knows
// no "owe" under that key.
constexpr ap_row AP_KEYS[] = {
    {"enable", _ap_enable},
    {"ssid", nullptr, nullptr, _ssid},
    {"hide", _integer<&wps_ap_band_config::hide>},
    {"sec_follow", _own_settings},
    {"sec", nullptr, _ap_security},
    {"security", nullptr, _ap_owe_security},
    {"index", _key_index},
    {"password", nullptr, nullptr, _text<&wps_ap_band_config::password>},
    {"securityType", _integer<&wps_ap_band_config::sec_type>},
    {"wpaVersion", _integer<&wps_ap_band_config::wpa_version>},
    {"wpaEncryption", _integer<&wps_ap_band_config::encryption>},
    {"wepAuthType", _integer<&wps_ap_band_config::wep_auth_type>},
    {"wepKeyFormat", _integer<&wps_ap_band_config::wep_key_format>},
};

// An extender's access point gets its key from the uplink, so it has no security here.
constexpr ap_row EXTENDER_KEYS[] = {
    {"enable", _ap_enable},
    {"ssid", nullptr, nullptr, _ssid},
    {"hide", _integer<&wps_ap_band_config::hide>},
    {"sec_follow", _follows_uplink},
};

// To which file a writer's object goes, and what is logged.
struct target {
    const char *path;
    const char *plain_path;  // in the failure line; of a pair always the plain file
    const char *total_line;  // before the whole text, at level 7; null: no such line
    int failure_level;       // of the failure line
};

constexpr const char *STA_TOTAL = "commit sta config info";
constexpr const char *AP_TOTAL = "ap config info total";

constexpr target STA_TARGET = {WPS_STA_FILE, WPS_STA_FILE, STA_TOTAL, KELM_LOG_ALWAYS};
constexpr target STA_MESH_TARGET = {WPS_STA_FILE_MESH, WPS_STA_FILE, STA_TOTAL, KELM_LOG_ALWAYS};
constexpr target AP_TARGET = {WPS_AP_FILE, WPS_AP_FILE, AP_TOTAL, KELM_LOG_DETAIL};
constexpr target AP_MESH_TARGET = {WPS_AP_FILE_MESH, WPS_AP_FILE, AP_TOTAL, KELM_LOG_DETAIL};
constexpr target MESH_SWITCH_TARGET = {WPS_STA_FILE, WPS_STA_FILE, nullptr, KELM_LOG_DETAIL};

// Puts a text under its key. If the text is not UTF-8, the key gets it as UTF-8 with U+FFFD in it,
// and hex_key gets the exact bytes as digits. If it is UTF-8, hex_key is removed: an earlier write
// may have left it. False without memory.
bool _add_text(json_object *object, const char *key, const char *hex_key, const byte_range &text)
{
    json_object_object_del(object, hex_key);
    if (kelm_is_utf8(text.bytes, text.length))
        return kelm_json_add(object, key,
                             json_object_new_string_len(text.bytes, static_cast<int>(text.length)));
    char shown[TEXT_MAX * KELM_SHOWN_BYTE_MAX + 1];
    char digits[TEXT_MAX * 2 + 1];
    if (text.length > TEXT_MAX)
        return false;
    kelm_show_as_utf8(text.bytes, text.length, shown, sizeof shown);
    kelm_spell_bytes(text.bytes, text.length, digits, sizeof digits);
    return kelm_json_add(object, key, json_object_new_string(shown)) &&
           kelm_json_add(object, hex_key, json_object_new_string(digits));
}

// False without memory. Then the object must not be written: it may have half of the keys only, or
// no passphrase.
template <typename config_t, size_t count>
bool _add_keys(json_object *object, const key_row<config_t> (&rows)[count], int band,
               const config_t *config)
{
    for (const key_row<config_t> &row : rows) {
        char key[KEY_SIZE];
        (void)snprintf(key, sizeof key, "%s_%s", row.stem, bandname[band]);
        bool added = true;
        if (row.text != nullptr) {
            char hex_key[KEY_SIZE];
            (void)snprintf(hex_key, sizeof hex_key, "%s_hex_%s", row.stem, bandname[band]);
            added = _add_text(object, key, hex_key, row.text(config));
        } else if (row.word == nullptr) {
            added = kelm_json_add(object, key, row.make(config));
        } else if (const char *word = row.word(config); word[0] != '\0') {
            added = kelm_json_add(object, key, json_object_new_string(word));
        }
        if (!added)
            return false;
    }
    return true;
}

// When there is no memory or no room for the new text, the file keeps what it had. But a file that
// was only just created is empty, and is removed.
void _remove_empty(const char *path)
{
    struct stat status = {};
    if (::lstat(path, &status) == 0 && S_ISREG(status.st_mode) && status.st_size == 0)
        (void)::unlink(path);
}

// Rewrites a file with the object, if the object is complete. Returns 0 or -1. The log lines carry
// the writer's name: only this name shows which file of a pair is meant.
int _commit(const char *writer, const target &to, json_object *object, bool complete)
{
    const char *text = complete ? kelm_json_text(object) : nullptr;
    if (text == nullptr) {
        kelm_log_as(writer, KELM_LOG_ALWAYS, "format json data failed\n");
        _remove_empty(to.path);
        return -1;
    }
    if (to.total_line != nullptr)
        kelm_log_as(writer, KELM_LOG_DETAIL, "%s: %s\n", to.total_line, text);
    if (kelm_replace_file(to.path, text, KELM_OWNER_ONLY) == 0)
        return 0;
    kelm_log_as(writer, to.failure_level, "failed to open %s!\n", to.plain_path);
    _remove_empty(to.path);
    return -1;
}

// Merges into a file what add puts into its object. add: returns false without memory. Returns 0 or
// -1.
template <typename add_t>
int _merge(const char *writer, const target &to, const add_t &add)
{
    const unique_json object = _get_json_from_file(to.path);
    if (object)
        return _commit(writer, to, object.get(), add(object.get()));
    _remove_empty(to.path);
    return -1;
}

// Merges the keys of one band into what the file holds.
template <typename config_t, size_t count>
int _merge_band(const char *writer, const target &to, const key_row<config_t> (&rows)[count],
                int band, const config_t *config)
{
    if (!kelm_is_band(band) || config == nullptr)
        return -1;
    return _merge(writer, to,
                  [&](json_object *object) { return _add_keys(object, rows, band, config); });
}

int _merge_switch(const char *writer, const target &to, const char *key, bool on)
{
    return _merge(writer, to, [key, on](json_object *object) {
        return kelm_json_add(object, key, _switch_text(on));
    });
}

struct backhaul_row {
    const char *ssid_key;
    const char *ssid_hex_key;
    const char *password_key;
    const char *password_hex_key;
    int source;  // the band whose record is written
};

// The backhaul scripts know one 5 GHz network. They look for four keys only: the SSID and the key
// for 2.4 GHz, and the same for 5 GHz. So every band above 2.4 GHz writes the record of band 1. A
// record of bands 2 or 3 under the same keys would replace it.
constexpr backhaul_row BACKHAUL[KELM_BAND_COUNT] = {
    {"backhaul_ssid_2g", "backhaul_ssid_hex_2g", "backhaul_psk_key_2g", "backhaul_psk_key_hex_2g",
     KELM_BAND_2G},
    {"backhaul_ssid_5g", "backhaul_ssid_hex_5g", "backhaul_psk_key_5g", "backhaul_psk_key_hex_5g",
     KELM_BAND_5G},
    {"backhaul_ssid_5g", "backhaul_ssid_hex_5g", "backhaul_psk_key_5g", "backhaul_psk_key_hex_5g",
     KELM_BAND_5G},
    {"backhaul_ssid_5g", "backhaul_ssid_hex_5g", "backhaul_psk_key_5g", "backhaul_psk_key_hex_5g",
     KELM_BAND_5G},
};

bool _hold(std::initializer_list<const char *> names)
{
    return std::all_of(names.begin(), names.end(), [](const char *name) {
        return kelm_has_own_file(name) || kelm_pin_file(name, KELM_OWNER_ONLY);
    });
}

}  // namespace

int _wps_set_sta_config(int band, const wps_sta_band_config *config)
{
    return _merge_band(__func__, STA_TARGET, STA_KEYS, band, config);
}

int wps_set_sta_config(int band, const wps_sta_band_config *config)
{
    return _merge_band(__func__, STA_MESH_TARGET, STA_KEYS, band, config);
}

int _wps_set_ap_config(int band, const wps_ap_band_config *config)
{
    return _merge_band(__func__, AP_TARGET, AP_KEYS, band, config);
}

int _wps_set_ext_config(int band, const wps_ap_band_config *config)
{
    return _merge_band(__func__, AP_TARGET, EXTENDER_KEYS, band, config);
}

int wps_set_ext_config(int band, const wps_ap_band_config *config)
{
    return _merge_band(__func__, AP_MESH_TARGET, EXTENDER_KEYS, band, config);
}

int _wps_set_ext_common_config(int on)
{
    return _merge_switch(__func__, AP_TARGET, "smart_setting_5g", on != 0);
}

int _wps_set_mesh_config(int on)
{
    return _merge_switch(__func__, MESH_SWITCH_TARGET, "mesh_enable", on != 0);
}

int wps_set_dual_ap_bh_config(const wps_ap_band_config *bands)
{
    const unique_json object(bands != nullptr ? json_object_new_object() : nullptr);
    if (!object)
        return -1;
    bool complete = true;
    for (const backhaul_row &row : BACKHAUL) {
        const wps_ap_band_config *config = &bands[row.source];
        complete = complete &&
                   _add_text(object.get(), row.ssid_key, row.ssid_hex_key, _ssid(config)) &&
                   _add_text(object.get(), row.password_key, row.password_hex_key,
                             _text<&wps_ap_band_config::password>(config));
    }

    const char *text = complete ? kelm_json_text(object.get()) : nullptr;
    kelm_log_normal("--------------------------------ap config info total: %s\n",
                    text != nullptr ? text : "");
    if (text == nullptr)
        return -1;
    if (kelm_replace_file(WPS_AP_BH_FILE, text, KELM_OWNER_ONLY) == 0)
        return 0;
    printf("failed to open %s!", WPS_AP_BH_FILE);
    return -1;
}

bool kelm_hold_credential_names()
{
    return _hold({WPS_AP_FILE, WPS_STA_FILE, WPS_AP_BACKUP, WPS_STA_BACKUP});
}

bool kelm_hold_mesh_credential_names()
{
    return _hold({WPS_AP_FILE_MESH, WPS_STA_FILE_MESH, WPS_AP_BH_FILE});
}

}  // namespace kelm
