// SPDX-License-Identifier: ISC
// Way in: the lines of "/tmp/wps.conf" and "/tmp/wifi.conf", in both run modes.
//
// Property: every record holds what a second reading of the grammar, done here on strings, says,
// and nothing else of it has changed.
#include <cstdlib>
#include <cstring>
#include <map>
#include <vector>

#include "config/settings.h"
#include "core/kelm.h"
#include "core/run_mode.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr const char *PATH = "/tmp/settings.conf";
constexpr size_t PIECE = 2047;
constexpr size_t BLOCKS_PER_ROUND = 5;
const char *const BANDS[] = {"2g", "5g", "5g2", "6g"};

struct pair {
    std::string key;
    std::string value;
};

// A line too long for one read comes in pieces; a zero byte ends what is seen of a piece.
std::vector<std::string> pieces_of(const std::string &text)
{
    std::vector<std::string> pieces;
    for (size_t at = 0; at < text.size();) {
        const size_t feed = text.find('\n', at);
        const size_t end = feed == std::string::npos ? text.size() : feed + 1;
        const size_t length = std::min(end - at, PIECE);
        pieces.push_back(std::string(text, at, length).c_str());
        at += length;
    }
    return pieces;
}

// The pairs that a reader of this type sees; false for a value that is empty at its line's end.
bool pairs_of(const std::string &text, size_t type, std::vector<pair> *pairs)
{
    size_t block = 0;
    for (const std::string &piece : pieces_of(text)) {
        const char first = piece.empty() ? 'x' : piece[0];
        if (first == '\n' || first == '\r')
            ++block;
        const size_t equals = piece.find('=');
        const bool skipped = first == '#' || first == '\n' || first == '\r' ||
                             equals == std::string::npos ||
                             ((type == 1 || type == 2) && block % BLOCKS_PER_ROUND != type);
        if (skipped)
            continue;
        if (equals + 1 == piece.size())
            return false;
        pairs->push_back(
            {piece.substr(0, equals), piece.substr(equals + 1, piece.size() - equals - 2)});
    }
    return true;
}

uint32_t number(const std::string &text)
{
    return static_cast<uint32_t>(strtol(text.c_str(), nullptr, 10));
}

uint8_t begins_on(const std::string &text)
{
    return text.compare(0, 2, "on") == 0 ? 1 : 0;
}

kelm::wps_config_info expected_global(const std::vector<pair> &pairs)
{
    kelm::wps_config_info record = {};
    for (const pair &one : pairs) {
        if (one.key == "enabled")
            record.enabled = static_cast<uint8_t>(number(one.value));
        else if (one.key == "apWpsAvailable")
            record.ap_wps_available = static_cast<uint8_t>(number(one.value));
        else if (one.key == "staWpsAvailable")
            record.sta_wps_available = static_cast<uint8_t>(number(one.value));
        else if (one.key == "pinEnabled")
            record.pin_enabled = one.value == "on" ? 1 : 0;
        else if (one.key == "pinCode")
            strncpy(record.pin_code, one.value.c_str(), sizeof record.pin_code);
    }
    return record;
}

void expect_access_points(const std::vector<pair> &pairs, bool repeater,
                          kelm::wps_ap_band_config *bands)
{
    const std::string stem = repeater ? "apBssEnabled_" : "apBssEnabledApMode_";
    for (const pair &one : pairs) {
        for (int band = 0; band < kelm::KELM_BAND_COUNT; ++band) {
            if (one.key == stem + BANDS[band])
                bands[band].ap_bss_enabled = begins_on(one.value);
            if (one.key == std::string("wlanSecType_") + BANDS[band])
                bands[band].sec_type = number(one.value);
        }
    }
}

void expect_stations(const std::vector<pair> &pairs, kelm::wps_sta_band_config *bands)
{
    for (const pair &one : pairs) {
        for (int band = 0; band < kelm::KELM_BAND_COUNT; ++band) {
            if (one.key == std::string("staBssEnabled_") + BANDS[band])
                bands[band].sta_bss_enabled = begins_on(one.value);
        }
    }
}

void set_run_mode(bool repeater)
{
    kelm_fuzz::put_file("/tmp/device_runtime.info", repeater ? "{\"mode\":0}" : "{\"mode\":1}");
    PROPERTY(kelm::kelm_backup_run_mode() == 0);
}

// A record of its own size on the heap, so that a write beside it is seen.
template <typename record_t, size_t count>
struct records {
    record_t *all = static_cast<record_t *>(calloc(count, sizeof(record_t)));
    ~records() { free(all); }
    bool equal(const record_t *other) const
    {
        return memcmp(all, other, count * sizeof(record_t)) == 0;
    }
};

void read_global(int result, const std::vector<pair> &pairs)
{
    const kelm::wps_config_info expected = expected_global(pairs);
    const records<kelm::wps_config_info, 1> read;
    PROPERTY(kelm::wps_parse_config(PATH, read.all, kelm::WPS_CONFIG_GLOBAL) == result);
    PROPERTY(read.equal(&expected));
}

void read_access_points(int result, const std::vector<pair> &pairs, bool repeater)
{
    const records<kelm::wps_ap_band_config, kelm::KELM_BAND_COUNT> expected;
    const records<kelm::wps_ap_band_config, kelm::KELM_BAND_COUNT> read;
    expect_access_points(pairs, repeater, expected.all);
    PROPERTY(kelm::wps_parse_config(PATH, read.all, kelm::WPS_CONFIG_AP) == result);
    PROPERTY(read.equal(expected.all));
}

void read_stations(int result, const std::vector<pair> &pairs)
{
    const records<kelm::wps_sta_band_config, kelm::KELM_BAND_COUNT> expected;
    const records<kelm::wps_sta_band_config, kelm::KELM_BAND_COUNT> read;
    expect_stations(pairs, expected.all);
    PROPERTY(kelm::wps_parse_config(PATH, read.all, kelm::WPS_CONFIG_STA) == result);
    PROPERTY(read.equal(expected.all));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    static int mode_now = -1;
    kelm_fuzz::input input(data, size);
    const bool repeater = input.choice(2) == 0;
    const std::string text = input.rest();
    if (mode_now != (repeater ? 0 : 1))
        set_run_mode(repeater);
    mode_now = repeater ? 0 : 1;
    kelm_fuzz::put_file(PATH, text);

    std::vector<pair> pairs[3];
    int result[3];
    for (size_t type = 0; type < 3; ++type)
        result[type] = pairs_of(text, type, &pairs[type]) ? 0 : -1;
    read_global(result[0], pairs[0]);
    read_access_points(result[1], pairs[1], repeater);
    read_stations(result[2], pairs[2]);
    PROPERTY(kelm::wps_parse_config(PATH, nullptr, 3) == result[0]);
    (void)kelm_fuzz::take_log();
    return 0;
}
