// SPDX-License-Identifier: ISC
// The tables of words, and the functions that search them.
#include "config/security_words.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "config/band_config.h"
#include "core/text.h"

namespace kelm {

namespace {

// The first row that fits counts. The columns differ where their readers differ. The access point
// script has other words for SAE, and none for OWE. Scan results have no word for OWE, and none for
// the single WPA.
constexpr security_words SECURITY[] = {
    {WPS_AUTH_OPEN, KELM_ANY_VERSION, "none", "none", "none", 0},
    {WPS_AUTH_WPA, WPS_VERSION_WPA, "wpa", "wpa", "wpa", 3},
    {WPS_AUTH_WPA, WPS_VERSION_WPA2, "wpa2", "wpa2", "wpa2", 5},
    {WPS_AUTH_WPA, KELM_ANY_VERSION, "wpa/wpa2", "wpa/wpa2", "wpa/wpa2", 4},
    {WPS_AUTH_WEP, KELM_ANY_VERSION, "wep", "wep", "wep", 2},
    {WPS_AUTH_WPA_SINGLE, KELM_ANY_VERSION, "wpa", "wpa", "", 3},
    {WPS_AUTH_SAE, WPS_VERSION_WPA3, "sae_only", "wpa3", "sae_only", 7},
    {WPS_AUTH_SAE, KELM_ANY_VERSION, "psk_sae", "wpa2/wpa3", "psk_sae", 6},
    {WPS_AUTH_OWE, KELM_ANY_VERSION, "owe", "", "", 1},
};
constexpr security_words NO_SECURITY = {0, KELM_ANY_VERSION, "", "", "", 0};

struct security_beginning {
    char beginning[KELM_SECURITY_WORD_SIZE];
    uint32_t mode;
    uint32_t version;
};

// The table for reading. Its order matters: "wpa" comes after the three longer words that begin
// with it. Scans may contain words that no scan result of our own has. If a word holds several of
// these beginnings, the first one in it counts: "wpa2/wpa3" is read as "wpa2". Only the pair of WPA
// and WPA2 is read as a whole.
constexpr security_beginning BEGINNINGS[] = {
    {"owe", WPS_AUTH_OWE, WPS_VERSION_WPA3},      {"wpa3", WPS_AUTH_SAE, WPS_VERSION_WPA3},
    {"sae_only", WPS_AUTH_SAE, WPS_VERSION_WPA3}, {"psk_sae", WPS_AUTH_SAE, WPS_VERSION_MIXED},
    {"wpa/wpa", WPS_AUTH_WPA, WPS_VERSION_MIXED}, {"wpa2", WPS_AUTH_WPA, WPS_VERSION_WPA2},
    {"wpa", WPS_AUTH_WPA, WPS_VERSION_WPA},       {"wep", WPS_AUTH_WEP, KELM_ANY_VERSION},
    {"none", WPS_AUTH_OPEN, KELM_ANY_VERSION},
};

// The ciphers, in the order in which a value of "pairwise" is searched for their words.
constexpr cipher_words CIPHERS[] = {
    {WPS_CIPHER_AES, "aes", "CCMP", 3},
    {WPS_CIPHER_TKIP, "tkip", "TKIP", 1},
    {WPS_CIPHER_AUTO, "auto", "", 2},
};
constexpr cipher_words NO_CIPHER = {WPS_CIPHER_AUTO, "auto", "", 0};

struct version_word {
    char word[KELM_CIPHER_WORD_SIZE];
    uint32_t version;
};

// The words of "proto", in the order in which a value is searched for them.
constexpr version_word VERSIONS[] = {{"WPA", WPS_VERSION_WPA}, {"RSN", WPS_VERSION_WPA2}};

const security_beginning *_find_beginning(const char *text)
{
    for (const security_beginning &row : BEGINNINGS) {
        if (starts_with(text, row.beginning))
            return &row;
    }
    return nullptr;
}

// If the word is in the value, notes its number. But if a number was noted before, forgets
// everything: two together mean "automatic".
void _combine(const char *word, uint32_t number, const char *value, uint32_t *found)
{
    if (strstr(value, word) != nullptr)
        *found = *found == 0 ? number : 0;
}

}  // namespace

const security_words &kelm_words_of_security(uint32_t mode, uint32_t version)
{
    for (const security_words &row : SECURITY) {
        if (row.mode == mode && (row.version == KELM_ANY_VERSION || row.version == version))
            return row;
    }
    return NO_SECURITY;
}

bool kelm_read_security(const char *text, uint32_t *mode, uint32_t *version)
{
    const security_beginning *row = _find_beginning(text);
    if (row == nullptr)
        return false;
    *mode = row->mode;
    if (row->version != KELM_ANY_VERSION)
        *version = row->version;
    return true;
}

bool kelm_guards_key(const char *text)
{
    const security_beginning *row = _find_beginning(text);
    return row != nullptr && (row->mode == WPS_AUTH_WPA || row->mode == WPS_AUTH_SAE);
}

const cipher_words &kelm_words_of_cipher(uint32_t cipher)
{
    for (const cipher_words &row : CIPHERS) {
        if (row.cipher == cipher)
            return row;
    }
    return NO_CIPHER;
}

bool kelm_read_cipher(const char *text, uint32_t *cipher)
{
    const auto *row =
        std::find_if(std::begin(CIPHERS), std::end(CIPHERS),
                     [text](const cipher_words &one) { return starts_with(text, one.word); });
    if (row == std::end(CIPHERS))
        return false;
    *cipher = row->cipher;
    return true;
}

void kelm_apply_pairwise(const char *value, uint32_t *cipher)
{
    for (const cipher_words &row : CIPHERS) {
        if (row.daemon[0] != '\0')
            _combine(row.daemon, row.cipher, value, cipher);
    }
}

void kelm_apply_proto(const char *value, uint32_t *version)
{
    // "WPA" is found in "WPA3" too, and removes the 3 again. So WPA3 is read as mixed.
    if (strstr(value, "WPA3") != nullptr)
        *version = WPS_VERSION_WPA3;
    for (const version_word &row : VERSIONS)
        _combine(row.word, row.version, value, version);
}

}  // namespace kelm
