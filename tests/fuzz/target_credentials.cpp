// SPDX-License-Identifier: ISC
// Way in: the credential files as they are found, and the texts that are merged into them.
//
// Properties: a file reads back as what was in it, as far as it was an object, with this band's
// keys as they were to be written and no other key touched; it is one line, for its owner alone;
// what cannot be read is replaced.
#include <cstring>
#include <functional>
#include <memory>
#include <set>

#include <json-c/json.h>

#include "config/credentials.h"
#include "config/json_file.h"
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
    fill(record.ssid, band.ssid);
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
    fill(record.ssid, band.ssid);
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
    expectations all;

private:
    std::string suffix_;
};

void add_common(expected_keys *keys, const band_input &band)
{
    keys->add("index", number(key_index(band.index)));
    keys->add("password", text(cut(band.password, kelm::WPS_PASSWORD_SIZE)));
    keys->add("securityType", number(band.mode));
    keys->add("wpaVersion", number(band.version));
    keys->add("wepAuthType", number(band.wep_type));
    keys->add("wepKeyFormat", number(band.wep_format));
}

expectations station_keys(int index, const band_input &band)
{
    expected_keys keys(index);
    keys.add("enable", text("on"));
    keys.add("ssid", text(cut(band.ssid, kelm::WPS_SSID_SIZE)));
    const std::string words = security(band.mode, band.version, true);
    if (!words.empty())
        keys.add("security", text(words));
    keys.add("wpa_encryption", text(band.encryption == 2   ? "aes"
                                    : band.encryption == 1 ? "tkip"
                                                           : "auto"));
    add_common(&keys, band);
    keys.add("data", text(cut(band.data, kelm::WPS_QM_DATA_SIZE)));
    keys.add("support_mesh", number(band.mesh != 0 ? 1 : 0));
    keys.add("multiap", number(band.multiap != 0 ? 1 : 0));
    return std::move(keys.all);
}

expectations extender_keys(int index, const band_input &band, const char *follow = "true")
{
    expected_keys keys(index);
    keys.add("enable", text(band.enabled != 0 ? "on" : "off"));
    keys.add("ssid", text(cut(band.ssid, kelm::WPS_SSID_SIZE)));
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
    for (const expectation &one : keys)
        json_object_object_add(before.get(), one.key.c_str(), json_object_get(one.value.get()));
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
    fill(bands[1].ssid, in.data);
    fill(bands[1].password, in.ssid);
    bands[2] = bands[0];
    kelm_fuzz::put_file(kelm::WPS_AP_BH_FILE, old_text);
    (void)kelm::wps_set_dual_ap_bh_config(bands);
    expectations keys;
    keys.push_back({"backhaul_ssid_2g", text(cut(in.ssid, kelm::WPS_SSID_SIZE))});
    keys.push_back({"backhaul_psk_key_2g", text(cut(in.password, kelm::WPS_PASSWORD_SIZE))});
    keys.push_back({"backhaul_ssid_5g", text(cut(in.data, kelm::WPS_SSID_SIZE))});
    keys.push_back({"backhaul_psk_key_5g", text(cut(in.ssid, kelm::WPS_PASSWORD_SIZE))});
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
