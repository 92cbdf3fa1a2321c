// SPDX-License-Identifier: ISC
// Way in: what hostapd and wpa_supplicant have written down after an attempt, on its way into the
// credential files.
//
// An input's first bytes choose the device, the way and two bands; the rest is the files of both
// interfaces, parted by a line "---".
//
// Properties: without a learnt network nothing is written and no record changes; nor is it for an
// access point that has no key for everybody; otherwise the files hold the network's name and its
// key, cut to their fields, and texts of the known vocabulary; only the keys of the band are there;
// no other session changes.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <initializer_list>

#include <json-c/json.h>

#include "config/conf_tree.h"
#include "config/credentials.h"
#include "config/supplicant_credentials.h"
#include "core/json_file.h"
#include "core/session.h"
#include "core/text.h"
#include "platform/rtk/ap_write_back.h"
#include "platform/rtk/easymesh.h"
#include "platform/rtk/write_back.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"
#include "tests/world/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using kelm::hapd_wpasupp_cfgitem;

const char *const SUFFIXES[] = {"_2g", "_5g", "_5g2", "_6g"};
const char *const STATIONS[] = {"/tmp/run/wpa_supplicant-wlan1-vxd.conf",
                                "/tmp/run/wpa_supplicant-wlan0-vxd.conf"};
const char *const ACCESS_POINTS[] = {"/tmp/run/hostapd-wlan1.conf", "/tmp/run/hostapd-wlan0.conf"};

bool is_one_of(const std::string &text, std::initializer_list<const char *> words)
{
    return std::any_of(words.begin(), words.end(),
                       [&text](const char *word) { return text == word; });
}

// What a JSON file shows of bytes: the bytes themselves, or, where "_hex" says so, what it spells.
std::string unspelt(const std::string &digits)
{
    std::string bytes;
    for (size_t at = 0; at + 1 < digits.size(); at += 2)
        bytes += static_cast<char>(std::stoi(digits.substr(at, 2), nullptr, 16));
    return bytes;
}

bool is_in_quotes(const std::string &value)
{
    return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// The SSID of an item, by a second reading.
std::string name_of(const hapd_wpasupp_cfgitem *item)
{
    const std::string value = item->value;
    // A zero byte hides the line's end and leaves the value its quotes.
    if (!item->quoted && is_in_quotes(value))
        return value.substr(1, value.size() - 2).substr(0, 32);
    const bool bare = !item->quoted && value.size() % 2 == 0 &&
                      value.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    return (bare ? unspelt(value) : value).substr(0, 32);
}

// Whether an item's value has escapes, whose reading is left to the tables of the function tests.
bool has_escapes(const hapd_wpasupp_cfgitem *item)
{
    return !item->quoted && strncmp(item->value, "P\"", 2) == 0;
}

const hapd_wpasupp_cfgitem *last_item(const hapd_wpasupp_cfgitem *item, const char *key)
{
    const hapd_wpasupp_cfgitem *last = nullptr;
    for (; item != nullptr; item = item->next) {
        if (strcmp(item->key, key) == 0)
            last = item;
    }
    return last;
}

// The value of the last item with the key, or nothing.
std::string last_value(const hapd_wpasupp_cfgitem *item, std::initializer_list<const char *> keys)
{
    std::string value;
    for (; item != nullptr; item = item->next) {
        if (is_one_of(item->key, keys))
            value = item->value;
    }
    return value;
}

bool is_disabled(const hapd_wpasupp_cfgitem *item)
{
    while (item != nullptr && strncmp(item->key, "disabled", 8) != 0)
        item = item->next;
    return item != nullptr && strtol(item->value, nullptr, 10) != 0;
}

// The second or a later block that is not disabled.
const hapd_wpasupp_cfgitem *learnt_block(const hapd_wpasupp_cfgitem *item)
{
    int networks = 0;
    for (; item != nullptr; item = item->next) {
        if (strcmp(item->key, "network") == 0 && networks++ > 0 && !is_disabled(item->child))
            return item;
    }
    return nullptr;
}

struct learnt {
    bool found;
    bool named;           // the SSID is known
    bool keyed;           // the password is: one for SAE alone depends on more
    bool has_passphrase;  // an access point with one is never refused
    std::string ssid;
    std::string password;
};

learnt learnt_by_station(const char *path)
{
    const kelm::unique_cfg_tree tree(kelm::wps_hapd_wpasupp_config_parse(path));
    const hapd_wpasupp_cfgitem *network = learnt_block(tree.get());
    if (network == nullptr)
        return {false, false, false, false, "", ""};
    const hapd_wpasupp_cfgitem *name = last_item(network->child, "ssid");
    return {true,
            name == nullptr || !has_escapes(name),
            last_item(network->child, "sae_password") == nullptr,
            false,
            name != nullptr ? name_of(name) : "",
            last_value(network->child, {"psk"}).substr(0, 64)};
}

kelm::unique_json file_object(const char *path)
{
    return kelm::unique_json(json_tokener_parse(kelm_fuzz::get_file(path).c_str()));
}

std::string text_in(const kelm::unique_json &object, const std::string &key)
{
    json_object *value = nullptr;
    PROPERTY(json_object_object_get_ex(object.get(), key.c_str(), &value));
    PROPERTY(json_object_is_type(value, json_type_string));
    return json_object_get_string(value);
}

// The exact bytes of a text.
std::string bytes_in(const kelm::unique_json &object, const std::string &stem,
                     const std::string &suffix)
{
    json_object *value = nullptr;
    if (json_object_object_get_ex(object.get(), (stem + "_hex" + suffix).c_str(), &value))
        return unspelt(json_object_get_string(value));
    return text_in(object, stem + suffix);
}

void check_keys_of(const kelm::unique_json &object, const std::string &suffix)
{
    PROPERTY(json_object_is_type(object.get(), json_type_object));
    json_object_object_foreach(object.get(), key, value)
    {
        (void)value;
        const std::string name = key;
        PROPERTY(name.size() > suffix.size());
        PROPERTY(name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0);
    }
}

// --- The ways ---

void check_station_files(const learnt &network, int ap_band, int sta_band, bool mesh)
{
    const char *sta_path = mesh ? kelm::WPS_STA_FILE_MESH : kelm::WPS_STA_FILE;
    const char *ap_path = mesh ? kelm::WPS_AP_FILE_MESH : kelm::WPS_AP_FILE;
    const std::string suffix = SUFFIXES[ap_band];
    const kelm::unique_json sta = file_object(sta_path);
    const kelm::unique_json ap = file_object(ap_path);
    check_keys_of(sta, suffix);
    check_keys_of(ap, suffix);
    const std::string password = bytes_in(sta, "password", suffix);
    if (network.keyed)
        PROPERTY(password == network.password);
    if (network.named || ap_band != sta_band)
        PROPERTY(bytes_in(sta, "ssid", suffix) == (ap_band == sta_band ? network.ssid : ""));
    const std::string security = text_in(sta, "security" + suffix);
    PROPERTY(is_one_of(security,
                       {"none", "wpa", "wpa2", "wpa/wpa2", "wep", "sae_only", "psk_sae", "owe"}));
    PROPERTY((security == "none") == password.empty());
    PROPERTY(is_one_of(text_in(sta, "wpa_encryption" + suffix), {"auto", "tkip", "aes"}));
    const std::string ssid = bytes_in(ap, "ssid", suffix);
    PROPERTY(ssid.size() <= 32 && (!network.named || ssid.size() >= network.ssid.size()));
    PROPERTY(ssid.compare(ssid.size() - 3, 3, "EXT") == 0);
    if (network.named && network.ssid.size() <= 24)
        PROPERTY(ssid.compare(0, network.ssid.size(), network.ssid) == 0);
}

void write_back_station(int ap_band, int sta_band, bool mesh)
{
    const learnt network = learnt_by_station(STATIONS[sta_band]);
    const int result = mesh ? kelm::_rtk_repeater_patching_back(ap_band, sta_band, nullptr)
                            : kelm::rtk_repeater_patching_back(ap_band, sta_band, nullptr);
    PROPERTY(result == (network.found ? 0 : -1));
    for (const char *path :
         {kelm::WPS_STA_FILE, kelm::WPS_AP_FILE, kelm::WPS_STA_FILE_MESH, kelm::WPS_AP_FILE_MESH}) {
        const bool wanted = network.found && mesh == (strstr(path, "/_") != nullptr);
        PROPERTY(kelm_test::file_exists(path) == wanted);
    }
    if (network.found)
        check_station_files(network, ap_band, sta_band, mesh);
}

// What hostapd's file says of its first network.
learnt learnt_from_access_point(const hapd_wpasupp_cfgitem *item)
{
    learnt found = {item != nullptr, true, true, false, "", ""};
    for (; item != nullptr && strcmp(item->key, "bss") != 0; item = item->next) {
        if (strcmp(item->key, "ssid") == 0) {
            found.ssid = std::string(item->value).substr(0, 32);
            found.named = true;
        }
        if (strcmp(item->key, "ssid2") == 0) {
            found.ssid = name_of(item);
            found.named = !has_escapes(item);
        }
        if (is_one_of(item->key, {"wpa_psk", "wpa_passphrase"})) {
            found.password = std::string(item->value).substr(0, 64);
            found.has_passphrase = true;
        }
        if (strcmp(item->key, "sae_password") == 0)
            found.keyed = false;
    }
    return found;
}

void write_back_access_point(int band)
{
    const kelm::unique_cfg_tree tree(kelm::kelm_parse_hostapd_config(ACCESS_POINTS[band]));
    const learnt network = learnt_from_access_point(tree.get());
    const bool written = kelm::rtk_ap_patching_back(band) == 0;
    PROPERTY(kelm_test::file_exists(kelm::WPS_AP_FILE) == written);
    if (!written) {
        // Refused: a file that names no network, or no key that lets everybody in.
        PROPERTY(!network.found || !network.has_passphrase || !network.keyed);
        return;
    }
    PROPERTY(network.found);
    const std::string suffix = SUFFIXES[band];
    const kelm::unique_json ap = file_object(kelm::WPS_AP_FILE);
    check_keys_of(ap, suffix);
    if (network.named)
        PROPERTY(bytes_in(ap, "ssid", suffix) == network.ssid);
    const std::string password = bytes_in(ap, "password", suffix);
    if (network.keyed)
        PROPERTY(password == network.password);
    json_object *open = nullptr;
    if (json_object_object_get_ex(ap.get(), ("sec" + suffix).c_str(), &open)) {
        const std::string security = json_object_get_string(open);
        PROPERTY(
            is_one_of(security, {"none", "wpa", "wpa2", "wpa/wpa2", "wep", "wpa3", "wpa2/wpa3"}));
        PROPERTY(security != "none" || password.empty());
    } else {
        PROPERTY(text_in(ap, "security" + suffix) == "owe");
    }
}

void extract_credentials(int band)
{
    const learnt network = learnt_by_station(STATIONS[band]);
    kelm::kelm_rootap_info &record = kelm::kelm_get_wps_session(band)->rootap;
    kelm::kelm_rootap_info expected = record;
    PROPERTY(kelm::rtk_get_wps_credentials(band, &record) == (network.found ? 0 : -1));
    if (network.found) {
        // What the block does not name stays.
        const std::string ssid(record.ssid, kelm::ssid_len(record.ssid));
        if (network.named && (!network.ssid.empty() || ssid.empty()))
            PROPERTY(ssid == network.ssid);
        if (network.keyed && (!network.password.empty() || record.password[0] == '\0'))
            PROPERTY(record.password == network.password);
        PROPERTY(strcmp(record.auth, "none") == 0 && record.cipher[0] == '\0');
        memcpy(expected.ssid, record.ssid, sizeof record.ssid);
        memcpy(expected.password, record.password, sizeof record.password);
        memcpy(expected.auth, record.auth, sizeof record.auth);
        memcpy(expected.cipher, record.cipher, sizeof record.cipher);
    }
    PROPERTY(memcmp(&expected, &record, sizeof record) == 0);
}

void write_back_easymesh(int band, int sta_band)
{
    (void)kelm::rtk_repeater_check_ap_easymesh_support();
    const bool written = kelm::rtk_repeater_easymesh_patching_back(band, sta_band) == 0;
    PROPERTY(kelm_test::file_exists(kelm::WPS_AP_BH_FILE) == written);
    if (!written)
        return;
    const kelm::unique_json object = file_object(kelm::WPS_AP_BH_FILE);
    PROPERTY(bytes_in(object, "backhaul_ssid", "_2g").size() <= 32);
    PROPERTY(bytes_in(object, "backhaul_ssid", "_5g").size() <= 32);
    PROPERTY(bytes_in(object, "backhaul_psk_key", "_2g").size() <= 64);
    PROPERTY(bytes_in(object, "backhaul_psk_key", "_5g").size() <= 64);
    PROPERTY(json_object_object_length(object.get()) <= 8);
}

void put_files(bool repeater, const std::string &both)
{
    const size_t parted = both.find("---\n");
    const std::string first = both.substr(0, parted);
    const std::string second = parted == std::string::npos ? first : both.substr(parted + 4);
    kelm_fuzz::put_file(repeater ? STATIONS[0] : ACCESS_POINTS[0], first);
    kelm_fuzz::put_file(repeater ? STATIONS[1] : ACCESS_POINTS[1], second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    const unsigned way = input.choice(5);
    const int band = static_cast<int>(input.choice(2));
    const int sta_band = static_cast<int>(input.choice(2));
    const bool succeeded = input.choice(2) != 0;
    const bool repeater = way != 2;
    kelm_fuzz::reset_device(repeater ? 3 : 0);
    put_files(repeater, input.rest());
    PROPERTY(kelm_fuzz::start_device());
    kelm::kelm_set_status(sta_band, succeeded ? kelm::WPS_STATUS_SUCCESS : kelm::WPS_STATUS_ERROR);

    kelm::kelm_session before[kelm::KELM_BAND_COUNT];
    memcpy(before, kelm::global_wps_sessions, sizeof before);
    switch (way) {
    case 0:
    case 1:
        write_back_station(band, sta_band, way == 1);
        break;
    case 2:
        write_back_access_point(band);
        break;
    case 3:
        extract_credentials(band);
        before[band].rootap = kelm::kelm_get_wps_session(band)->rootap;
        break;
    default:
        write_back_easymesh(band, sta_band);
        break;
    }
    PROPERTY(memcmp(before, kelm::global_wps_sessions, sizeof before) == 0);
    kelm_fuzz::check_sessions();
    kelm_fuzz::check_files();
    (void)kelm_fuzz::take_log();
    (void)kelm_fuzz::take_commands();
    return 0;
}
