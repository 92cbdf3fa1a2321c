// SPDX-License-Identifier: ISC
// The words for a network's security and its cipher: those of the credential files, of scan
// results, and of the files of hostapd and wpa_supplicant. What the words of "key_mgmt" mean stands
// in key_mgmt.h.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

// The longest word fits. The words stand in their rows: a pointer to one would cost more, and
// memory that each process has for itself.
constexpr size_t KELM_SECURITY_WORD_SIZE = 10;
constexpr size_t KELM_CIPHER_WORD_SIZE = 5;

// One security, a mode and a version together, in the words of those who read it. Empty: the reader
// has no word for it.
struct security_words {
    uint32_t mode;                                    // WPS_AUTH_*
    uint32_t version;                                 // WPS_VERSION_*, or KELM_ANY_VERSION
    char station_file[KELM_SECURITY_WORD_SIZE];       // "security_2g" and its like
    char access_point_file[KELM_SECURITY_WORD_SIZE];  // "sec_2g" and its like
    char record[KELM_SECURITY_WORD_SIZE];             // scan result and root access point record
    int rank;  // how well it guards a key: the more the better
};
constexpr uint32_t KELM_ANY_VERSION = UINT32_MAX;

// A mode that is not known has no word anywhere, and the lowest rank.
const security_words &kelm_words_of_security(uint32_t mode, uint32_t version);

// Reads a word of a scan result or a record by its beginning: what follows it does not count.
// version stays as it is where the word says nothing of it. False, with both as they were, for a
// text that begins with no word.
bool kelm_read_security(const char *text, uint32_t *mode, uint32_t *version);

// Whether such a text tells of a security that guards a key.
bool kelm_guards_key(const char *text);

struct cipher_words {
    uint32_t cipher;                     // WPS_CIPHER_*
    char word[KELM_CIPHER_WORD_SIZE];    // of credential files, scan results and records
    char daemon[KELM_CIPHER_WORD_SIZE];  // of "pairwise" in the Wi-Fi daemons' files; empty: none
    int rank;
};

// A number that is no cipher is called automatic, and has the lowest rank.
const cipher_words &kelm_words_of_cipher(uint32_t cipher);

// The same for a cipher's word as for a security's.
bool kelm_read_cipher(const char *text, uint32_t *cipher);

// The combination rules of the "pairwise" and "proto" values, applied to what was found so far. A
// value that names both kinds, or a second one that names the other kind, gives 0.
void kelm_apply_pairwise(const char *value, uint32_t *cipher);
void kelm_apply_proto(const char *value, uint32_t *version);

}  // namespace kelm
