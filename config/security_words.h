// SPDX-License-Identifier: ISC
// The words for a network's security and for its cipher. They stand in the credential files, in
// scan results, and in the files of hostapd and wpa_supplicant. What the words of "key_mgmt" mean
// is in key_mgmt.h.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

// Sizes in which the longest word fits. The rows of the tables hold the words themselves. A pointer
// to a word would cost more, and it would cost memory that each process has for itself.
constexpr size_t KELM_SECURITY_WORD_SIZE = 10;
constexpr size_t KELM_CIPHER_WORD_SIZE = 5;

// The words for one security, which is a mode and a version together. Each reader has its own word.
// An empty word: the reader has no word for this security.
struct security_words {
    uint32_t mode;                                    // WPS_AUTH_*
    uint32_t version;                                 // WPS_VERSION_*, or KELM_ANY_VERSION
    char station_file[KELM_SECURITY_WORD_SIZE];       // for "security_2g", "security_5g", ...
    char access_point_file[KELM_SECURITY_WORD_SIZE];  // for "sec_2g", "sec_5g", ...
    char record[KELM_SECURITY_WORD_SIZE];  // for scan results and root access point records
    int rank;                              // how well it guards a key; more is better
};
constexpr uint32_t KELM_ANY_VERSION = UINT32_MAX;

// Returns the words for a mode and a version. A mode that is not known has empty words and the
// lowest rank.
const security_words &kelm_words_of_security(uint32_t mode, uint32_t version);

// Reads the word at the beginning of text. The text is from a scan result or a record; what follows
// the word does not count. If the word says nothing about the version, *version stays as it is.
// False when text begins with no known word: *mode and *version stay as they are.
bool kelm_read_security(const char *text, uint32_t *mode, uint32_t *version);

// Whether such a text names a security that guards a key. WEP does not count as one.
bool kelm_guards_key(const char *text);

struct cipher_words {
    uint32_t cipher;                     // WPS_CIPHER_*
    char word[KELM_CIPHER_WORD_SIZE];    // for credential files, scan results and records
    char daemon[KELM_CIPHER_WORD_SIZE];  // for "pairwise" in the Wi-Fi daemons' files; empty: none
    int rank;
};

// Returns the words for a cipher. A number that is no cipher has the word "auto" and the lowest
// rank.
const cipher_words &kelm_words_of_cipher(uint32_t cipher);

// Reads the word of a cipher in the same way as kelm_read_security.
bool kelm_read_cipher(const char *text, uint32_t *cipher);

// Each combines a "pairwise" or "proto" value with what was found so far, which is in *cipher or
// *version. If both kinds are named, in one value or in two, the result is 0. It is 0 too if a
// second value names the same kind again.
void kelm_apply_pairwise(const char *value, uint32_t *cipher);
void kelm_apply_proto(const char *value, uint32_t *version);

}  // namespace kelm
