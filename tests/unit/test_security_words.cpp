// SPDX-License-Identifier: ISC
// The words for securities and ciphers, each reader's column, and what is read back from them.
#include "config/security_words.h"

#include <gtest/gtest.h>

#include "config/band_config.h"

using namespace kelm;

namespace {

constexpr uint32_t NO_MODE = 6;
constexpr uint32_t UNTOUCHED = 77;

TEST(security_words, each_reader_has_its_word_for_a_security)
{
    const struct {
        uint32_t mode;
        uint32_t version;
        const char *station_file;  // empty: no word
        const char *access_point_file;
        const char *record;
    } rows[] = {
        {WPS_AUTH_OPEN, WPS_VERSION_MIXED, "none", "none", "none"},
        {WPS_AUTH_OPEN, WPS_VERSION_WPA3, "none", "none", "none"},
        {WPS_AUTH_WPA, WPS_VERSION_WPA, "wpa", "wpa", "wpa"},
        {WPS_AUTH_WPA, WPS_VERSION_WPA2, "wpa2", "wpa2", "wpa2"},
        {WPS_AUTH_WPA, WPS_VERSION_MIXED, "wpa/wpa2", "wpa/wpa2", "wpa/wpa2"},
        {WPS_AUTH_WPA, WPS_VERSION_WPA3, "wpa/wpa2", "wpa/wpa2", "wpa/wpa2"},
        {WPS_AUTH_WEP, WPS_VERSION_WPA2, "wep", "wep", "wep"},
        {WPS_AUTH_WPA_SINGLE, WPS_VERSION_WPA2, "wpa", "wpa", ""},
        {WPS_AUTH_SAE, WPS_VERSION_WPA3, "sae_only", "wpa3", "sae_only"},
        {WPS_AUTH_SAE, WPS_VERSION_WPA2, "psk_sae", "wpa2/wpa3", "psk_sae"},
        {WPS_AUTH_SAE, WPS_VERSION_MIXED, "psk_sae", "wpa2/wpa3", "psk_sae"},
        {WPS_AUTH_OWE, WPS_VERSION_WPA3, "owe", "", ""},
        {NO_MODE, WPS_VERSION_WPA2, "", "", ""},
        {UINT32_MAX, KELM_ANY_VERSION, "", "", ""},
    };

    for (const auto &row : rows) {
        const security_words &words = kelm_words_of_security(row.mode, row.version);
        EXPECT_STREQ(row.station_file, words.station_file) << row.mode << " " << row.version;
        EXPECT_STREQ(row.access_point_file, words.access_point_file) << row.mode;
        EXPECT_STREQ(row.record, words.record) << row.mode << " " << row.version;
    }
}

TEST(security_words, a_cipher_has_a_word_of_ours_and_one_of_the_daemons)
{
    const struct {
        uint32_t cipher;
        const char *word;
        const char *daemon;
    } rows[] = {{WPS_CIPHER_TKIP, "tkip", "TKIP"},
                {WPS_CIPHER_AES, "aes", "CCMP"},
                {WPS_CIPHER_AUTO, "auto", ""},
                {3, "auto", ""},
                {UINT32_MAX, "auto", ""}};

    for (const auto &row : rows) {
        EXPECT_STREQ(row.word, kelm_words_of_cipher(row.cipher).word) << row.cipher;
        EXPECT_STREQ(row.daemon, kelm_words_of_cipher(row.cipher).daemon) << row.cipher;
    }
}

// From the one that guards a key least to the one that guards it best. The last of a family's three
// is the version that nobody has told.
TEST(security_words, securities_are_ranked_by_how_they_guard_a_key)
{
    const struct {
        uint32_t mode;
        uint32_t version;
        int rank;
    } rows[] = {
        {NO_MODE, WPS_VERSION_WPA3, 0},       {WPS_AUTH_OPEN, WPS_VERSION_MIXED, 0},
        {WPS_AUTH_OWE, WPS_VERSION_WPA3, 1},  {WPS_AUTH_WEP, WPS_VERSION_MIXED, 2},
        {WPS_AUTH_WPA, WPS_VERSION_WPA, 3},   {WPS_AUTH_WPA_SINGLE, WPS_VERSION_WPA2, 3},
        {WPS_AUTH_WPA, WPS_VERSION_MIXED, 4}, {WPS_AUTH_WPA, WPS_VERSION_WPA2, 5},
        {WPS_AUTH_SAE, WPS_VERSION_MIXED, 6}, {WPS_AUTH_SAE, WPS_VERSION_WPA3, 7},
    };

    for (const auto &row : rows)
        EXPECT_EQ(row.rank, kelm_words_of_security(row.mode, row.version).rank)
            << row.mode << " " << row.version;
}

TEST(security_words, ciphers_are_ranked_and_what_is_none_comes_last)
{
    EXPECT_EQ(3, kelm_words_of_cipher(WPS_CIPHER_AES).rank);
    EXPECT_EQ(2, kelm_words_of_cipher(WPS_CIPHER_AUTO).rank);
    EXPECT_EQ(1, kelm_words_of_cipher(WPS_CIPHER_TKIP).rank);
    EXPECT_EQ(0, kelm_words_of_cipher(3).rank);
}

// "wpa2/wpa3" is the access point file's word for SAE: in a scan it reads as the WPA2 that it
// begins with, which is the less of the two.
TEST(security_words, a_security_is_read_by_the_beginning_of_its_word)
{
    const struct {
        const char *text;
        uint32_t mode;
        uint32_t version;
        bool guards_key;
    } rows[] = {
        {"none", WPS_AUTH_OPEN, UNTOUCHED, false},
        {"none at all", WPS_AUTH_OPEN, UNTOUCHED, false},
        {"wep", WPS_AUTH_WEP, UNTOUCHED, false},
        {"owe", WPS_AUTH_OWE, WPS_VERSION_WPA3, false},
        {"wpa", WPS_AUTH_WPA, WPS_VERSION_WPA, true},
        {"wpa-eap", WPS_AUTH_WPA, WPS_VERSION_WPA, true},
        {"wpa2", WPS_AUTH_WPA, WPS_VERSION_WPA2, true},
        {"wpa2/wpa3", WPS_AUTH_WPA, WPS_VERSION_WPA2, true},
        {"wpa/wpa2", WPS_AUTH_WPA, WPS_VERSION_MIXED, true},
        {"wpa/wpa", WPS_AUTH_WPA, WPS_VERSION_MIXED, true},
        {"wpa/wp", WPS_AUTH_WPA, WPS_VERSION_WPA, true},
        {"wpa3", WPS_AUTH_SAE, WPS_VERSION_WPA3, true},
        {"sae_only", WPS_AUTH_SAE, WPS_VERSION_WPA3, true},
        {"psk_sae", WPS_AUTH_SAE, WPS_VERSION_MIXED, true},
    };

    for (const auto &row : rows) {
        uint32_t mode = UNTOUCHED;
        uint32_t version = UNTOUCHED;
        EXPECT_TRUE(kelm_read_security(row.text, &mode, &version)) << row.text;
        EXPECT_EQ(row.mode, mode) << row.text;
        EXPECT_EQ(row.version, version) << row.text;
        EXPECT_EQ(row.guards_key, kelm_guards_key(row.text)) << row.text;
    }
}

TEST(security_words, a_text_that_begins_with_no_word_says_nothing_of_the_security)
{
    for (const char *text : {"", "WPA2", " wpa2", "wp", "unknown", "sae", "psk", "non"}) {
        uint32_t mode = UNTOUCHED;
        uint32_t version = UNTOUCHED;
        EXPECT_FALSE(kelm_read_security(text, &mode, &version)) << text;
        EXPECT_EQ(UNTOUCHED, mode) << text;
        EXPECT_EQ(UNTOUCHED, version) << text;
        EXPECT_FALSE(kelm_guards_key(text)) << text;
    }
}

TEST(security_words, a_cipher_is_read_by_the_beginning_of_its_word)
{
    const struct {
        const char *text;
        bool known;
        uint32_t cipher;
    } rows[] = {{"tkip", true, WPS_CIPHER_TKIP}, {"tkip/aes", true, WPS_CIPHER_TKIP},
                {"aes", true, WPS_CIPHER_AES},   {"aes256", true, WPS_CIPHER_AES},
                {"auto", true, WPS_CIPHER_AUTO}, {"automatic", true, WPS_CIPHER_AUTO},
                {"", false, UNTOUCHED},          {"AES", false, UNTOUCHED},
                {"CCMP", false, UNTOUCHED},      {"ae", false, UNTOUCHED}};

    for (const auto &row : rows) {
        uint32_t cipher = UNTOUCHED;
        EXPECT_EQ(row.known, kelm_read_cipher(row.text, &cipher)) << row.text;
        EXPECT_EQ(row.cipher, cipher) << row.text;
    }
}

TEST(security_words, pairwise_kinds_combine)
{
    const struct {
        const char *value;
        uint32_t before;
        uint32_t after;
    } rows[] = {{"CCMP", 0, WPS_CIPHER_AES},
                {"TKIP", 0, WPS_CIPHER_TKIP},
                {"CCMP TKIP", 0, WPS_CIPHER_AUTO},
                {"TKIP CCMP", 0, WPS_CIPHER_AUTO},
                {"CCMP", WPS_CIPHER_TKIP, 0},
                {"TKIP", WPS_CIPHER_AES, 0},
                {"CCMP", WPS_CIPHER_AES, 0},
                {"GCMP", WPS_CIPHER_AES, WPS_CIPHER_AES},
                {"", 0, 0},
                {"CCMP TKIP", WPS_CIPHER_AES, WPS_CIPHER_TKIP}};

    for (const auto &row : rows) {
        uint32_t cipher = row.before;
        kelm_apply_pairwise(row.value, &cipher);
        EXPECT_EQ(row.after, cipher) << row.value << " on " << row.before;
    }
}

// "WPA3" holds "WPA" too, which takes the 3 back: the write-back then offers both.
TEST(security_words, proto_kinds_combine_and_wpa3_reads_as_mixed)
{
    const struct {
        const char *value;
        uint32_t before;
        uint32_t after;
    } rows[] = {{"RSN", 0, WPS_VERSION_WPA2},      {"WPA", 0, WPS_VERSION_WPA},
                {"WPA RSN", 0, WPS_VERSION_MIXED}, {"RSN WPA", 0, WPS_VERSION_MIXED},
                {"WPA3", 0, WPS_VERSION_MIXED},    {"WPA3 RSN", 0, WPS_VERSION_WPA2},
                {"RSN", WPS_VERSION_WPA, 0},       {"WPA", WPS_VERSION_WPA2, 0},
                {"WPA3", WPS_VERSION_WPA2, 0},     {"", WPS_VERSION_WPA2, WPS_VERSION_WPA2}};

    for (const auto &row : rows) {
        uint32_t version = row.before;
        kelm_apply_proto(row.value, &version);
        EXPECT_EQ(row.after, version) << row.value << " on " << row.before;
    }
}

}  // namespace
