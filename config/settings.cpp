// SPDX-License-Identifier: ISC
// Reader of the flat settings files.
#include "config/settings.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/run_mode.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr size_t LINE_SIZE = 2048;
constexpr int BLOCKS_PER_ROUND = 5;

// A failed argument check prints this in place of its condition. Log filters know the line as it
// is.
constexpr const char *NO_CONDITION = "(null)";

uint32_t _number(const char *value)
{
    return static_cast<uint32_t>(atoi(value));
}

// The first two characters decide. So a carriage return behind the word does no harm.
uint8_t _begins_on(const char *value)
{
    return starts_with(value, "on") ? 1 : 0;
}

template <uint8_t wps_config_info::*member>
void _store_byte(wps_config_info *record, const char *value)
{
    record->*member = static_cast<uint8_t>(_number(value));
}

void _store_pin_switch(wps_config_info *record, const char *value)
{
    record->pin_enabled = strcmp(value, "on") == 0 ? 1 : 0;
}

void _store_pin(wps_config_info *record, const char *value)
{
    copy_fixed(record->pin_code, sizeof record->pin_code, value);
}

struct wps_key {
    const char *key;
    void (*store)(wps_config_info *record, const char *value);
};

constexpr wps_key WPS_KEYS[] = {
    {"enabled", _store_byte<&wps_config_info::enabled>},
    {"apWpsAvailable", _store_byte<&wps_config_info::ap_wps_available>},
    {"staWpsAvailable", _store_byte<&wps_config_info::sta_wps_available>},
    {"pinEnabled", _store_pin_switch},
    {"pinCode", _store_pin},
};

// How the keys of a band begin. The band's name follows.
constexpr const char *SEC_TYPE_STEM = "wlanSecType_";
constexpr const char *AP_SWITCH_STEM = "apBssEnabled_";
constexpr const char *AP_SWITCH_AP_MODE_STEM = "apBssEnabledApMode_";
constexpr const char *STA_SWITCH_STEM = "staBssEnabled_";

// The band of a key that begins with stem, or KELM_BAND_NONE for any other key.
int _band_of_key(const char *key, const char *stem)
{
    if (!starts_with(key, stem))
        return KELM_BAND_NONE;
    int band = 0;
    while (band < KELM_BAND_COUNT && strcmp(key + strlen(stem), bandname[band]) != 0)
        ++band;
    return band;
}

// Whether a parse of this type reads the lines of a block. The WPS switches are read from every
// block. The Wi-Fi settings come in rounds of five blocks, always in the same order.
bool _reads_block(int info_type, int block)
{
    switch (info_type) {
    case WPS_CONFIG_AP:
    case WPS_CONFIG_STA:
        return block % BLOCKS_PER_ROUND == info_type;
    default:
        return true;
    }
}

// Cuts a line at its first "=", so that only the key remains in it. Returns the value, or null for
// a line without "=".
char *_split(char *line)
{
    char *equals = strchr(line, '=');
    if (equals == nullptr)
        return nullptr;
    *equals = '\0';
    return equals + 1;
}

// Takes off the last character, whatever it is. The scripts end each line with one byte that is
// never part of the value; they do so for the last line too. If a last line comes without such a
// byte, its value loses a character. But if this function looked for the line feed, any other end
// byte would get into PINs and switches. Returns -1 when nothing can be cut.
int _cut_line_end(char *value)
{
    const size_t length = strlen(value);
    if (length == 0)
        return -1;
    value[length - 1] = '\0';
    return 0;
}

}  // namespace

int wps_parse_config(const char *path, void *record, int info_type, bool *opened)
{
    char line[LINE_SIZE] = {};
    const unique_file file = kelm_open_to_read(path);
    if (opened != nullptr)
        *opened = static_cast<bool>(file);
    if (!file) {
        kelm_log_always("Open wps config file failed\n");
        return -1;
    }
    kelm_log_detail("ready to parse type %d\n", info_type);

    int block = 0;
    int result = 0;
    while (result == 0 && fgets(line, sizeof line, file.get()) != nullptr) {
        if (line[0] == '#')
            continue;
        if (line[0] == '\n' || line[0] == '\r') {
            ++block;
            continue;
        }
        char *value = _reads_block(info_type, block) ? _split(line) : nullptr;
        if (value == nullptr)
            continue;
        if (_cut_line_end(value) != 0)
            return -1;
        switch (info_type) {
        case WPS_CONFIG_GLOBAL:
            result = _read_wps_config(line, value, static_cast<wps_config_info *>(record));
            break;
        case WPS_CONFIG_AP:
            result = _read_wifi_ap_config(line, value, static_cast<wps_ap_band_config *>(record));
            break;
        case WPS_CONFIG_STA:
            result = _read_wifi_sta_config(line, value, static_cast<wps_sta_band_config *>(record));
            break;
        default:
            kelm_log_detail("Invalid wps config info type!\n");
            break;
        }
    }
    return result;
}

int _read_wps_config(const char *key, const char *value, wps_config_info *record)
{
    if (key == nullptr || value == nullptr || record == nullptr) {
        kelm_log_always("ASSERT: %s\n", NO_CONDITION);
        return -1;
    }
    for (const wps_key &row : WPS_KEYS) {
        if (strcmp(key, row.key) == 0) {
            row.store(record, value);
            break;
        }
    }
    return 0;
}

int _read_wifi_ap_config(const char *key, const char *value, wps_ap_band_config *bands)
{
    if (key == nullptr || value == nullptr || bands == nullptr) {
        kelm_log_always("ASSERT: %s\n", NO_CONDITION);
        return -1;
    }
    const bool repeater = kelm_get_run_mode() == KELM_MODE_REPEATER;
    int band = _band_of_key(key, repeater ? AP_SWITCH_STEM : AP_SWITCH_AP_MODE_STEM);
    if (band != KELM_BAND_NONE)
        bands[band].ap_bss_enabled = _begins_on(value);
    band = _band_of_key(key, SEC_TYPE_STEM);
    if (band != KELM_BAND_NONE)
        bands[band].sec_type = _number(value);
    return 0;
}

int _read_wifi_sta_config(const char *key, const char *value, wps_sta_band_config *bands)
{
    if (key == nullptr || value == nullptr || bands == nullptr) {
        kelm_log_always("ASSERT: %s\n", NO_CONDITION);
        return -1;
    }
    const int band = _band_of_key(key, STA_SWITCH_STEM);
    if (band != KELM_BAND_NONE)
        bands[band].sta_bss_enabled = _begins_on(value);
    return 0;
}

}  // namespace kelm
