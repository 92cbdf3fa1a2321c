// SPDX-License-Identifier: ISC
// Way in: the credential files as they are found, and the texts that are merged into them.
//
// Properties: a file reads back as what was in it, as far as it was an object, with this band's
// keys as they were to be written, bytes that are no text beside them, and no other key touched; it
// is one line, for its owner alone;
// what cannot be read is replaced.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <set>

#include <json-c/json.h>

#include "config/credentials.h"
#include "core/json_file.h"
#include "core/text.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/same_json.h"
#include "tests/fuzz/world.h"
#include "tests/world/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using kelm::unique_json;

constexpr int OWNER_ONLY = 0600;
const char *const BANDS[] = {"2g", "5g", "5g2", "6g"};

unique_json parsed(const std::string &text)
{
    return unique_json(json_tokener_parse(text.c_str()));
}

// What the library makes of a whole file, which is not always what it makes of the same text.
unique_json put_and_parse(const char *path, const std::string &text)
{
    kelm_fuzz::put_file(path, text);
    return unique_json(json_object_from_file(path));
}

// A key's value in the words of the file, or nothing when the key is left as it was.
struct expectation {
    std::string key;
    unique_json value;
};
using expectations = std::vector<expectation>;

unique_json text(const std::string &value)
{
    return unique_json(json_object_new_string_len(value.data(), static_cast<int>(value.size())));
}

unique_json number(uint32_t value)
{
    return unique_json(json_object_new_int(static_cast<int>(value)));
}

std::string security(uint32_t mode, uint32_t version, bool station)
{
    switch (mode) {
    case 0:
        return "none";
    case 1:
        return version == 1 ? "wpa" : version == 2 ? "wpa2" : "wpa/wpa2";
    case 2:
        return "wep";
    case 3:
        return "wpa";
    case 4:
        if (station)
            return version == 3 ? "sae_only" : "psk_sae";
        return version == 3 ? "wpa3" : "wpa2/wpa3";
    case 5:
        return "owe";
    default:
        return "";
    }
}

// UTF-8 by its arithmetic: the character's number must be one that its length is meant for.
size_t character(const std::string &bytes, size_t at)
{
    const auto byte = [&](size_t i) { return static_cast<unsigned char>(bytes[at + i]); };
    const size_t length = byte(0) < 0x80   ? 1
                          : byte(0) < 0xc0 ? 0
                          : byte(0) < 0xe0 ? 2
                          : byte(0) < 0xf0 ? 3
                          : byte(0) < 0xf8 ? 4
                                           : 0;
    if (length == 0 || at + length > bytes.size() || byte(0) == 0)
        return 0;
    unsigned code = length == 1 ? byte(0) : byte(0) & (0x7fu >> length);
    for (size_t i = 1; i < length; ++i) {
        if (byte(i) >> 6 != 2)
            return 0;
        code = code << 6 | (byte(i) & 0x3fu);
    }
    constexpr unsigned LOWEST[] = {0, 0, 0x80, 0x800, 0x10000};
    const bool half = code >= 0xd800 && code < 0xe000;
    return code < LOWEST[length] || half || code > 0x10ffff ? 0 : length;
}

// As it shows; true when that is all of it.
bool is_shown_whole(const std::string &bytes, std::string *shown)
{
    bool whole = true;
    for (size_t at = 0; at < bytes.size();) {
        const size_t length = character(bytes, at);
        *shown += length > 0 ? bytes.substr(at, length) : "\xef\xbf\xbd";
        whole = whole && length > 0;
        at += std::max<size_t>(length, 1);
    }
    return whole;
}

// The key and, where it cannot show all bytes, the one that spells them; null: no such key.
void expect_text(expectations *all, const std::string &key, const std::string &hex_key,
                 const std::string &bytes)
{
    std::string shown;
    const bool whole = is_shown_whole(bytes, &shown);
    std::string digits;
    for (const char byte : bytes) {
        char two[3];
        snprintf(two, sizeof two, "%02x", static_cast<unsigned char>(byte));
        digits += two;
    }
    all->push_back({key, text(shown)});
    all->push_back({hex_key, whole ? nullptr : text(digits)});
}

uint32_t key_index(uint32_t index)
{
    return index >= 1 && index <= 4 ? index : 1;
}

// What the input says of one band, for either record.
struct band_input {
    std::string ssid, password, data;
    uint32_t mode, version, encryption, wep_type, wep_format, index;
    uint8_t enabled, hide, mesh, multiap;
};

template <size_t size>
void fill(char (&field)[size], const std::string &value)
{
    memset(field, 0, size);
    memcpy(field, value.data(), std::min(value.size(), size - 1));
}

std::string cut(const std::string &value, size_t size)
{
    return std::string(value.c_str()).substr(0, size - 1);
}

uint32_t word(kelm_fuzz::input *input)
{
    // Mostly small, so that every row of every table is met.
    const uint32_t first = input->byte();
    return first == 255 ? 0xfffffff0u + input->byte() : static_cast<uint8_t>(first - '0');
}

band_input read_band(kelm_fuzz::input *input)
{
    band_input band;
    for (uint32_t *value : {&band.mode, &band.version, &band.encryption, &band.wep_type,
                            &band.wep_format, &band.index})
        *value = word(input);
    for (uint8_t *value : {&band.enabled, &band.hide, &band.mesh, &band.multiap})
        *value = static_cast<uint8_t>(word(input));
    band.ssid = input->line();
    band.password = input->line();
    band.data = input->line();
    return band;
}

kelm::wps_sta_band_config station_of(const band_input &band)
{
    kelm::wps_sta_band_config record = {};
    kelm::copy_ssid(record.ssid, band.ssid.data(), band.ssid.size());
    fill(record.password, band.password);
    fill(record.data, band.data);
    record.auth_mode = band.mode;
    record.wpa_version = band.version;
    record.encryption = band.encryption;
    record.wep_auth_type = band.wep_type;
    record.wep_key_format = band.wep_format;
    record.key_index = band.index;
    record.sta_bss_enabled = band.enabled;
    record.support_mesh = band.mesh;
    record.multiap = band.multiap;
    return record;
}

kelm::wps_ap_band_config access_point_of(const band_input &band)
{
    kelm::wps_ap_band_config record = {};
    kelm::copy_ssid(record.ssid, band.ssid.data(), band.ssid.size());
    fill(record.password, band.password);
    record.sec_type = band.mode;
    record.wpa_version = band.version;
    record.encryption = band.encryption;
    record.wep_auth_type = band.wep_type;
    record.wep_key_format = band.wep_format;
    record.key_index = band.index;
    record.ap_bss_enabled = band.enabled;
    record.hide = band.hide;
    return record;
}

class expected_keys {
public:
    explicit expected_keys(int band) : suffix_(std::string("_") + BANDS[band]) {}
    void add(const char *stem, unique_json value)
    {
        all.push_back({stem + suffix_, std::move(value)});
    }
    void add_text(const std::string &stem, const std::string &bytes)
    {
        expect_text(&all, stem + suffix_, stem + "_hex" + suffix_, bytes);
    }
    expectations all;

private:
    std::string suffix_;
};

void add_common(expected_keys *keys, const band_input &band)
{
    keys->add("index", number(key_index(band.index)));
    keys->add_text("password", cut(band.password, kelm::WPS_PASSWORD_SIZE));
    keys->add("securityType", number(band.mode));
    keys->add("wpaVersion", number(band.version));
    keys->add("wepAuthType", number(band.wep_type));
    keys->add("wepKeyFormat", number(band.wep_format));
}

expectations station_keys(int index, const band_input &band)
{
    expected_keys keys(index);
    keys.add("enable", text("on"));
    keys.add_text("ssid", band.ssid.substr(0, kelm::WPS_SSID_SIZE - 1));
    const std::string words = security(band.mode, band.version, true);
    if (!words.empty())
        keys.add("security", text(words));
    keys.add("wpa_encryption", text(band.encryption == 2   ? "aes"
                                    : band.encryption == 1 ? "tkip"
                                                           : "auto"));
    add_common(&keys, band);
    keys.add_text("data", cut(band.data, kelm::WPS_QM_DATA_SIZE));
    keys.add("support_mesh", number(band.mesh != 0 ? 1 : 0));
    keys.add("multiap", number(band.multiap != 0 ? 1 : 0));
    return std::move(keys.all);
}

expectations extender_keys(int index, const band_input &band, const char *follow = "true")
{
    expected_keys keys(index);
    keys.add("enable", text(band.enabled != 0 ? "on" : "off"));
    keys.add_text("ssid", band.ssid.substr(0, kelm::WPS_SSID_SIZE - 1));
    keys.add("hide", number(band.hide));
    keys.add("sec_follow", text(follow));
    return std::move(keys.all);
}

expectations access_point_keys(int index, const band_input &band)
{
    expected_keys keys(index);
    keys.all = extender_keys(index, band, "false");
    const std::string words = security(band.mode, band.version, false);
    if (!words.empty())
        keys.add(words == "owe" ? "security" : "sec", text(words));
    keys.add("wpaEncryption", number(band.encryption));
    add_common(&keys, band);
    return std::move(keys.all);
}

// What the file must hold: what it held as an object, and the keys in it.
void check_file(const char *path, unique_json before, const expectations &keys)
{
    const std::string now = kelm_test::read_file(path);
    PROPERTY(kelm_test::file_mode(path) == OWNER_ONLY);
    PROPERTY(!now.empty() && now.find('\n') == now.size() - 1);
    PROPERTY(now.find('\0') == std::string::npos);
    if (!json_object_is_type(before.get(), json_type_object))
        before.reset(json_object_new_object());
    for (const expectation &one : keys) {
        if (one.value)
            json_object_object_add(before.get(), one.key.c_str(), json_object_get(one.value.get()));
        else
            json_object_object_del(before.get(), one.key.c_str());
    }
    const unique_json after = parsed(now);
    PROPERTY(kelm_fuzz::is_same_json(before.get(), after.get()));
    // And once more through the daemon's own reader.
    const unique_json again = kelm::_get_json_from_file(path);
    PROPERTY(kelm_fuzz::is_same_json(before.get(), again.get()));
}

void write_one(unsigned writer, int band, const band_input &in, const std::string &old_text)
{
    const kelm::wps_sta_band_config station = station_of(in);
    const kelm::wps_ap_band_config ap = access_point_of(in);
    struct row {
        const char *path;
        std::function<void()> write;
        std::function<expectations()> keys;
    };
    const row rows[] = {
        {kelm::WPS_STA_FILE, [&] { kelm::_wps_set_sta_config(band, &station); },
         [&] { return station_keys(band, in); }},
        {kelm::WPS_STA_FILE_MESH, [&] { kelm::wps_set_sta_config(band, &station); },
         [&] { return station_keys(band, in); }},
        {kelm::WPS_AP_FILE, [&] { kelm::_wps_set_ap_config(band, &ap); },
         [&] { return access_point_keys(band, in); }},
        {kelm::WPS_AP_FILE, [&] { kelm::_wps_set_ext_config(band, &ap); },
         [&] { return extender_keys(band, in); }},
        {kelm::WPS_AP_FILE_MESH, [&] { kelm::wps_set_ext_config(band, &ap); },
         [&] { return extender_keys(band, in); }},
    };
    const row &chosen = rows[writer];
    unique_json before = put_and_parse(chosen.path, old_text);
    chosen.write();
    check_file(chosen.path, std::move(before), chosen.keys());
    kelm_fuzz::remove_file(chosen.path);
}

void write_switches(bool on, const std::string &old_text)
{
    for (const char *path : {kelm::WPS_AP_FILE, kelm::WPS_STA_FILE}) {
        const bool mesh = path == kelm::WPS_STA_FILE;
        unique_json before = put_and_parse(path, old_text);
        if (mesh)
            kelm::_wps_set_mesh_config(on ? 1 : 0);
        else
            kelm::_wps_set_ext_common_config(on ? 1 : 0);
        expectations keys;
        keys.push_back({mesh ? "mesh_enable" : "smart_setting_5g", text(on ? "on" : "off")});
        check_file(path, std::move(before), keys);
        kelm_fuzz::remove_file(path);
    }
}

// Nothing of what was there stays, and both higher bands' records count for nothing.
void write_backhaul(const band_input &in, const std::string &old_text)
{
    kelm::wps_ap_band_config bands[kelm::KELM_BAND_COUNT] = {access_point_of(in)};
    kelm::copy_ssid(bands[1].ssid, in.data.data(), in.data.size());
    fill(bands[1].password, in.ssid);
    bands[2] = bands[0];
    kelm_fuzz::put_file(kelm::WPS_AP_BH_FILE, old_text);
    (void)kelm::wps_set_dual_ap_bh_config(bands);
    expectations keys;
    expect_text(&keys, "backhaul_ssid_2g", "backhaul_ssid_hex_2g",
                in.ssid.substr(0, kelm::WPS_SSID_SIZE - 1));
    expect_text(&keys, "backhaul_psk_key_2g", "backhaul_psk_key_hex_2g",
                cut(in.password, kelm::WPS_PASSWORD_SIZE));
    expect_text(&keys, "backhaul_ssid_5g", "backhaul_ssid_hex_5g",
                in.data.substr(0, kelm::WPS_SSID_SIZE - 1));
    expect_text(&keys, "backhaul_psk_key_5g", "backhaul_psk_key_hex_5g",
                cut(in.ssid, kelm::WPS_PASSWORD_SIZE));
    check_file(kelm::WPS_AP_BH_FILE, nullptr, keys);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    const unsigned writer = input.choice(7);
    const int band = static_cast<int>(input.choice(kelm::KELM_BAND_COUNT));
    const band_input in = read_band(&input);
    const std::string old_text = input.rest();
    if (writer < 5)
        write_one(writer, band, in, old_text);
    else if (writer == 5)
        write_switches(band == 0, old_text);
    else
        write_backhaul(in, old_text);
    (void)kelm_fuzz::take_log();
    (void)kelm_fuzz::take_commands();
    return 0;
}
