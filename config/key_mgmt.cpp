// SPDX-License-Identifier: ISC
// One table of words, for hostapd and wpa_supplicant.
#include "config/key_mgmt.h"

#include <cstring>

#include "config/band_config.h"

namespace kelm {

namespace {

constexpr uint32_t KIND_PSK = 0x01;
constexpr uint32_t KIND_SAE = 0x02;
constexpr uint32_t KIND_SAE_BY_VERSION = 0x04;  // "proto" says whether it is SAE only
constexpr uint32_t KIND_OWE = 0x08;
constexpr uint32_t KIND_WEP = 0x10;
constexpr uint32_t KIND_NONE = 0x20;

struct key_mgmt_word {
    char word[16];
    uint32_t kind;
};

// "WPA2-PSK", "WPA3-SAE" and "WEP" are the words of older firmware.
constexpr key_mgmt_word WORDS[] = {
    {"WPA-PSK", KIND_PSK},
    {"WPA-PSK-SHA256", KIND_PSK},
    {"FT-PSK", KIND_PSK},
    {"SAE", KIND_SAE},
    {"FT-SAE", KIND_SAE},
    {"SAE-EXT-KEY", KIND_SAE},
    {"FT-SAE-EXT-KEY", KIND_SAE},
    {"WPA2-PSK", KIND_PSK},
    {"WPA3-SAE", KIND_SAE_BY_VERSION},
    {"WEP", KIND_WEP},
    {"OWE", KIND_OWE},
    {"NONE", KIND_NONE},
};

constexpr const char *BLANKS = " \t\r";

// 0 for a word that is not known.
uint32_t _kind_of_word(const char *word, size_t length)
{
    for (const key_mgmt_word &row : WORDS) {
        if (strlen(row.word) == length && memcmp(row.word, word, length) == 0)
            return row.kind;
    }
    return 0;
}

// Takes the next word and its kind. False when no word is left.
bool _next_word(const char **rest, uint32_t *kind)
{
    const char *word = *rest + strspn(*rest, BLANKS);
    const size_t length = strcspn(word, BLANKS);
    *kind = _kind_of_word(word, length);
    *rest = word + length;
    return length > 0;
}

}  // namespace

uint32_t kelm_key_mgmt_kinds(const char *value)
{
    uint32_t kinds = 0;
    uint32_t kind = 0;
    while (_next_word(&value, &kind))
        kinds |= kind;
    return kinds;
}

bool kelm_asks_for_proof(const char *value)
{
    uint32_t kind = 0;
    while (_next_word(&value, &kind)) {
        if ((kind & (KIND_OWE | KIND_NONE)) == 0)
            return true;
    }
    return false;
}

bool kelm_is_sae_only(uint32_t kinds)
{
    return (kinds & (KIND_SAE | KIND_SAE_BY_VERSION)) != 0 && (kinds & KIND_PSK) == 0;
}

uint32_t kelm_key_mgmt_mode(uint32_t kinds, bool has_key, uint32_t *version)
{
    if ((kinds & (KIND_SAE | KIND_SAE_BY_VERSION)) != 0) {
        if ((kinds & (KIND_PSK | KIND_SAE_BY_VERSION)) == 0)
            *version = WPS_VERSION_WPA3;
        else if ((kinds & KIND_PSK) != 0 && *version == WPS_VERSION_WPA3)
            *version = WPS_VERSION_MIXED;
        return WPS_AUTH_SAE;
    }
    if ((kinds & KIND_PSK) != 0)
        return WPS_AUTH_WPA;
    if ((kinds & KIND_OWE) != 0) {
        *version = WPS_VERSION_WPA3;
        return WPS_AUTH_OWE;
    }
    if ((kinds & KIND_WEP) != 0)
        return WPS_AUTH_WEP;
    // A key may stand beside "NONE", or beside no word that is known. Whoever wrote the key wants
    // it to be used.
    return has_key ? WPS_AUTH_WPA : WPS_AUTH_OPEN;
}

}  // namespace kelm
