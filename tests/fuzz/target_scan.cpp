// SPDX-License-Identifier: ISC
// Way in: scan results, in which a band's root access point is looked for.
//
// An input's first line holds the two bands, four added to the second for a network with a key; the
// second line the address and the third the name that are looked for; the rest is the file.
//
// Properties: the entry is chosen that a second reading of the rules chooses, and its texts are cut
// to their fields; no other part of any session changes; without a match nothing does.
#include <cstdlib>
#include <cstring>
#include <memory>

#include <json-c/json.h>

#include "core/json_file.h"
#include "core/session.h"
#include "core/text.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"
#include "wlan/rootap.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using kelm::kelm_rootap_info;
using kelm::kelm_session;

constexpr int ALL_BANDS = 5;
constexpr int NOT_NEAR = 255;

struct address {
    uint8_t bytes[kelm::WPS_BSSID_LEN];
};

// A member's bytes; false when it has none.
bool text_of(json_object *entry, const char *key, std::string *text)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(entry, key, &value) ||
        !json_object_is_type(value, json_type_string))
        return false;
    *text = std::string(json_object_get_string(value),
                        static_cast<size_t>(json_object_get_string_len(value)));
    return true;
}

int distance(const address &a, const address &b)
{
    int different = 0;
    for (int i = 0; i < 3; ++i)
        different += a.bytes[i] != b.bytes[i];
    long low[2] = {};
    for (int i = 3; i < 6; ++i) {
        low[0] = low[0] * 256 + a.bytes[i];
        low[1] = low[1] * 256 + b.bytes[i];
    }
    const long apart = labs(low[0] - low[1]);
    if (different >= 2 || apart >= 256)
        return 0;
    return different == 0 && apart == 0 ? 1 : static_cast<int>(apart);
}

// The index of the entry that is to be chosen, or -1.
int choose(json_object *list, const address &wanted, const std::string &name, bool has_key)
{
    int chosen = -1;
    int best = NOT_NEAR;
    for (size_t i = 0; i < json_object_array_length(list); ++i) {
        json_object *entry = json_object_array_get_idx(list, i);
        std::string mac;
        std::string ssid;
        address found = {};
        if (!text_of(entry, "mac", &mac) ||
            kelm::_convert_macstr_to_bytes(mac.c_str(), found.bytes) != 0)
            continue;
        std::string security;
        if (has_key && text_of(entry, "security", &security) && security.rfind("wpa", 0) != 0 &&
            security.rfind("psk_sae", 0) != 0 && security.rfind("sae_only", 0) != 0)
            continue;
        const int away = distance(wanted, found);
        const bool by_name =
            chosen < 0 && !name.empty() && text_of(entry, "ssid", &ssid) && ssid == name;
        if (!by_name && (away == 0 || away >= best))
            continue;
        chosen = static_cast<int>(i);
        best = away != 0 ? away : NOT_NEAR;
    }
    return chosen;
}

template <size_t size>
void expect_text(json_object *entry, const char *key, char (&field)[size])
{
    std::string text;
    if (!text_of(entry, key, &text))
        return;
    text = text.c_str();
    memset(field, 0, size);
    memcpy(field, text.data(), std::min(text.size(), size - 1));
}

uint8_t channel(const std::string &digits)
{
    const size_t end = std::min(digits.find_first_not_of("0123456789"), digits.size());
    unsigned number = 0;
    for (size_t i = end > 9 ? end - 9 : 0; i < end; ++i)
        number = number * 10 + static_cast<unsigned>(digits[i] - '0');
    // The digits before the last nine count a multiple of 10^9, which is one of 256.
    return static_cast<uint8_t>(number);
}

void expect_record(json_object *entry, kelm_rootap_info *record)
{
    std::string text;
    PROPERTY(text_of(entry, "mac", &text));
    memset(record->bssid, 0, sizeof record->bssid);
    PROPERTY(kelm::_convert_macstr_to_bytes(text.c_str(), record->bssid) == 0);
    if (text_of(entry, "ssid", &text))
        kelm::copy_ssid(record->ssid, text.data(), text.size());
    expect_text(entry, "security", record->auth);
    expect_text(entry, "wpa_encryption", record->cipher);
    expect_text(entry, "data", record->qm_data);
    if (text_of(entry, "channel", &text))
        record->channel = channel(text);
    if (text_of(entry, "nodeid", &text))
        strncpy(record->nodeid, text.c_str(), sizeof record->nodeid);
    json_object *mesh = nullptr;
    if (json_object_object_get_ex(entry, "support_mesh", &mesh) &&
        json_object_is_type(mesh, json_type_int))
        record->support_mesh = static_cast<uint8_t>(json_object_get_int64(mesh));
}

void expect_match(kelm_session *sessions, int band, const kelm_session &joined, int *result)
{
    const address wanted = {{joined.rootap.bssid[0], joined.rootap.bssid[1], joined.rootap.bssid[2],
                             joined.rootap.bssid[3], joined.rootap.bssid[4],
                             joined.rootap.bssid[5]}};
    const kelm::unique_json list(json_object_from_file(sessions[band].scan_path));
    const bool is_list = json_object_is_type(list.get(), json_type_array);
    const int chosen =
        is_list ? choose(list.get(), wanted,
                         std::string(joined.rootap.ssid, kelm::ssid_len(joined.rootap.ssid)),
                         joined.rootap.password[0] != '\0')
                : -1;
    *result = chosen >= 0 ? 1 : 0;
    if (chosen >= 0)
        expect_record(json_object_array_get_idx(list.get(), static_cast<size_t>(chosen)),
                      &sessions[band].rootap);
}

// What was known before, so that a field written beside its own shows.
void fill_record(kelm_rootap_info *record)
{
    memset(record, 0x5a, sizeof *record);
    kelm::copy_text(record->ssid, "name of before");
    kelm::copy_text(record->auth, "wep");
    kelm::copy_text(record->cipher, "tkip");
    kelm::copy_text(record->password, "key of before");
    kelm::copy_text(record->qm_data, "dd00");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    PROPERTY(kelm::kelm_create_session(ALL_BANDS) == 0);
    const int band = static_cast<int>(input.choice(kelm::KELM_BAND_COUNT));
    const unsigned joined_choice = input.choice(2 * kelm::KELM_BAND_COUNT);
    const int joined_band = static_cast<int>(joined_choice % kelm::KELM_BAND_COUNT);
    (void)input.line();
    fill_record(&kelm::kelm_get_wps_session(band)->rootap);
    kelm_session &joined = *kelm::kelm_get_wps_session(joined_band);
    memset(joined.rootap.bssid, 0, sizeof joined.rootap.bssid);
    (void)kelm::_convert_macstr_to_bytes(input.line().c_str(), joined.rootap.bssid);
    const std::string name = input.line();
    kelm::copy_ssid(joined.rootap.ssid, name.data(), name.size());
    kelm::copy_text(joined.rootap.password, joined_choice < kelm::KELM_BAND_COUNT ? "" : "a key");
    const char *path = kelm::kelm_get_wps_session(band)->scan_path;
    kelm_fuzz::put_file(path, input.rest());

    kelm_session expected[kelm::KELM_BAND_COUNT];
    memcpy(expected, kelm::global_wps_sessions, sizeof expected);
    int result = 0;
    expect_match(expected, band, expected[joined_band], &result);
    PROPERTY(kelm::check_rootapinfo_from_scantable(joined_band, band) == result);
    PROPERTY(memcmp(expected, kelm::global_wps_sessions, sizeof expected) == 0);
    (void)kelm::check_rootapinfo_with_uuid(joined_band, band);
    PROPERTY(memcmp(expected, kelm::global_wps_sessions, sizeof expected) == 0);
    (void)kelm_fuzz::take_log();
    (void)kelm_fuzz::take_commands();
    kelm_fuzz::remove_file(path);
    return 0;
}
