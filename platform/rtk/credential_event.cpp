// SPDX-License-Identifier: ISC
// Reads a credential, judges it, and writes it to the file as wpa_supplicant would.
#include "platform/rtk/credential_event.h"

#include <cctype>
#include <cstdio>
#include <initializer_list>

#include "config/supplicant_credentials.h"
#include "core/file.h"
#include "core/log.h"
#include "core/session.h"
#include "platform/rtk/wps_attributes.h"

namespace kelm {

namespace {

constexpr size_t SSID_MAX = 32;
constexpr size_t PASSPHRASE_MIN = 8;
constexpr size_t KEY_MAX = 64;  // 64 digits are the key itself, a shorter text is a passphrase
constexpr size_t MAC_LENGTH = 6;
constexpr size_t FILE_TEXT_SIZE = 512;
constexpr size_t SSID_DIGITS_SIZE = SSID_MAX * 2 + 1;
constexpr size_t KEY_LINE_SIZE = KEY_MAX + 16;

// The first block of such a file stands for the network from before the attempt. Nobody looks at
// it.
constexpr const char *BLOCK_BEFORE =
    "network={\n"
    "\tssid=\"none yet\"\n"
    "\tkey_mgmt=NONE\n"
    "\tdisabled=1\n"
    "}";

// Which bands have got their credential in this attempt.
bool has_credential[KELM_BAND_COUNT];

// --- Reading ---

// One kind of attribute. value is null when there is none.
struct field {
    uint16_t type;
    const uint8_t *value;
    size_t length;
};

struct credential {
    field ssid = {WPS_ATTR_SSID, nullptr, 0};
    field auth_type = {WPS_ATTR_AUTH_TYPE, nullptr, 0};
    field encryption = {WPS_ATTR_ENCRYPTION, nullptr, 0};
    field key = {WPS_ATTR_NETWORK_KEY, nullptr, 0};
    field mac = {WPS_ATTR_MAC, nullptr, 0};
};

// The first of each kind counts.
void _take_field(const wps_attribute &one, credential *found)
{
    for (field *each :
         {&found->ssid, &found->auth_type, &found->encryption, &found->key, &found->mac}) {
        if (each->type == one.type && each->value == nullptr)
            *each = {one.type, one.value, one.length};
    }
}

// False when the bytes are not attributes. Of several credentials only the first counts: the name
// of one must not be used with the key of another.
bool _read_first_credential(const uint8_t *bytes, size_t length, credential *found)
{
    wps_attributes from = {bytes, bytes + length, false};
    wps_attribute one = {};
    if (rtk_next_wps_attribute(&from, &one) && one.type == WPS_ATTR_CREDENTIAL)
        from = {one.value, one.value + one.length, false};
    else
        from = {bytes, bytes + length, false};
    while (rtk_next_wps_attribute(&from, &one))
        _take_field(one, found);
    return !from.broken;
}

// --- Judging ---

constexpr uint16_t AUTH_OPEN = 0x0001;
constexpr uint16_t ENCRYPTION_NONE = 0x0001;

// Flags of an authentication or an encryption type, and wpa_supplicant's words for them.
struct flag_words {
    uint16_t flags;
    char words[10];
};

constexpr flag_words PROTO_WORDS[] = {{0x0002, "WPA"}, {0x0020, "RSN"}, {0x0022, "WPA RSN"}};
constexpr flag_words PAIRWISE_WORDS[] = {{0x0004, "TKIP"}, {0x0008, "CCMP"}, {0x000c, "CCMP TKIP"}};

// Null for flags that are in no row.
template <size_t count>
const char *_words(const flag_words (&table)[count], uint16_t flags)
{
    for (const flag_words &row : table) {
        if (row.flags == flags)
            return row.words;
    }
    return nullptr;
}

bool _is_number(const field &of)
{
    return of.value != nullptr && of.length == 2;
}

// wpa_supplicant takes no control characters in a passphrase. A line feed would also end the file's
// line.
bool _is_passphrase(const char *key, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (iscntrl(static_cast<unsigned char>(key[i])) != 0)
            return false;
    }
    return length >= PASSPHRASE_MIN && length < KEY_MAX;
}

bool _is_key_in_digits(const char *key, size_t length)
{
    for (size_t i = 0; i < length; ++i) {
        if (isxdigit(static_cast<unsigned char>(key[i])) == 0)
            return false;
    }
    return length == KEY_MAX;
}

// A network in the words of wpa_supplicant's file.
struct network_text {
    char ssid[SSID_DIGITS_SIZE];  // as hexadecimal digits, since a name may hold any bytes
    char key[KEY_LINE_SIZE];      // a whole line; empty for an open network
    const char *proto;
    const char *pairwise;
};

// These four functions return a text that says what is wrong, or null. They put what is right into
// the network.
const char *_judge_ssid(const field &ssid, network_text *network)
{
    if (ssid.value == nullptr)
        return "no SSID";
    const size_t length = rtk_length_without_zeros(ssid.value, ssid.length);
    if (length == 0 || length > SSID_MAX)
        return "SSID is empty or longer than 32 bytes";
    for (size_t i = 0; i < length; ++i)
        (void)snprintf(network->ssid + 2 * i, 3, "%02x", ssid.value[i]);
    return nullptr;
}

const char *_judge_key(const field &key, network_text *network)
{
    if (key.value == nullptr)
        return "no key";
    const char *text = reinterpret_cast<const char *>(key.value);
    const size_t length = rtk_length_without_zeros(key.value, key.length);
    const bool in_digits = _is_key_in_digits(text, length);
    if (!in_digits && !_is_passphrase(text, length))
        return "key is neither a passphrase of 8 to 63 characters nor 64 digits";
    (void)snprintf(network->key, sizeof network->key,
                   in_digits ? "\tpsk=%.*s\n" : "\tpsk=\"%.*s\"\n", static_cast<int>(length), text);
    return nullptr;
}

const char *_judge_security(const credential &found, network_text *network)
{
    if (!_is_number(found.auth_type) || !_is_number(found.encryption))
        return "no authentication or encryption type";
    const uint16_t auth_type = rtk_wps_number(found.auth_type.value);
    const uint16_t encryption = rtk_wps_number(found.encryption.value);
    if (auth_type == AUTH_OPEN && encryption == ENCRYPTION_NONE)
        return nullptr;
    network->proto = _words(PROTO_WORDS, auth_type);
    network->pairwise = _words(PAIRWISE_WORDS, encryption);
    if (network->proto == nullptr || network->pairwise == nullptr)
        return "neither open nor WPA personal";
    return _judge_key(found.key, network);
}

const char *_judge(const credential &found, network_text *network)
{
    if (found.mac.value != nullptr && found.mac.length != MAC_LENGTH)
        return "MAC address has not six bytes";
    const char *wrong = _judge_ssid(found.ssid, network);
    return wrong != nullptr ? wrong : _judge_security(found, network);
}

const char *_read(const char *payload, network_text *network)
{
    uint8_t bytes[WPS_PAYLOAD_MAX];
    const int length = rtk_read_wps_payload(payload, bytes);
    credential found;
    if (length < 0)
        return "no hexadecimal digits";
    if (!_read_first_credential(bytes, static_cast<size_t>(length), &found))
        return "attributes are cut off";
    return _judge(found, network);
}

// --- Writing ---

bool _write_station_file(int band, const char *text)
{
    char path[SUPPLICANT_PATH_SIZE];
    kelm_supplicant_path(*kelm_get_wps_session(band), path);
    return kelm_replace_file(path, text, KELM_OWNER_ONLY) == 0;
}

bool _write_network(int band, const network_text &network)
{
    char security[KEY_LINE_SIZE + 80] = "\tkey_mgmt=NONE\n";
    if (network.proto != nullptr)
        (void)snprintf(security, sizeof security,
                       "%s\tproto=%s\n\tkey_mgmt=WPA-PSK\n\tpairwise=%s\n", network.key,
                       network.proto, network.pairwise);
    char text[FILE_TEXT_SIZE];
    (void)snprintf(text, sizeof text, "%s\n\nnetwork={\n\tssid=%s\n%s}", BLOCK_BEFORE, network.ssid,
                   security);
    return _write_station_file(band, text);
}

}  // namespace

bool rtk_forget_credential(int band)
{
    has_credential[band] = false;
    return _write_station_file(band, BLOCK_BEFORE);
}

void rtk_take_credential(int band, const char *payload)
{
    if (has_credential[band]) {
        kelm_log_always("[band %d] a further credential, left out\n", band);
        return;
    }
    network_text network = {};
    const char *wrong = _read(payload, &network);
    if (wrong != nullptr) {
        kelm_log_always("[band %d] credential not usable: %s\n", band, wrong);
        return;
    }
    has_credential[band] = _write_network(band, network);
}

}  // namespace kelm
