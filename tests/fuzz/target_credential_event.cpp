// SPDX-License-Identifier: ISC
// Way in: the event with which wpa_supplicant hands over a credential, whose bytes a registrar
// chose.
//
// An input's first byte says how the rest becomes the event's payload: '0' as it stands, '1' its
// bytes in digits, '2' the same inside a credential, '3' a whole credential with two parts of the
// rest as name and key.
//
// Properties: the file holds either no learnt network or exactly the one that a second reading of
// the payload finds, name and key byte for byte as the daemon's own reader takes them; a payload
// that is not taken is told in one line; the key is in no line.
#include <algorithm>
#include <cstring>

#include "config/conf_tree.h"
#include "config/supplicant_credentials.h"
#include "config/value_text.h"
#include "core/text.h"
#include "platform/rtk/control.h"
#include "platform/rtk/credential_event.h"
#include "tests/fuzz/device.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"
#include "tests/world/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

constexpr unsigned REPEATER = 1;
constexpr const char *FILE_2G = "/tmp/run/wpa_supplicant-wlan1-vxd.conf";
constexpr const char *BLANKS = " \t\r\n";

std::string as_digits(const std::string &bytes)
{
    static const char digits[] = "0123456789ABCDEF";
    std::string text;
    for (const char byte : bytes) {
        text += digits[static_cast<unsigned char>(byte) >> 4];
        text += digits[static_cast<unsigned char>(byte) & 15];
    }
    return text;
}

std::string attribute(unsigned type, const std::string &value)
{
    const size_t length = value.size();
    std::string bytes;
    for (const size_t part :
         {size_t{type} >> 8, size_t{type} & 255, length >> 8 & 255, length & 255})
        bytes += static_cast<char>(part);
    return bytes + value;
}

std::string make_payload(kelm_fuzz::input *input)
{
    const unsigned way = input->choice(4);
    if (way == 0)
        return input->rest();
    if (way < 3) {
        const std::string bytes = input->rest();
        return as_digits(way == 1 ? bytes : attribute(0x100e, bytes));
    }
    const std::string types = input->bytes(4);
    const std::string name = input->bytes(input->byte());
    return " " + as_digits(attribute(
                     0x100e, attribute(0x1045, name) + attribute(0x1003, types.substr(0, 2)) +
                                 attribute(0x100f, types.size() < 2 ? "" : types.substr(2)) +
                                 attribute(0x1027, input->rest())));
}

// --- The second reading ---

bool bytes_of(const std::string &payload, std::string *bytes)
{
    const size_t begin = std::min(payload.find_first_not_of(BLANKS), payload.size());
    const size_t end = std::min(payload.find_first_of(BLANKS, begin), payload.size());
    const std::string text = payload.substr(begin, end - begin);
    if (text.size() % 2 != 0 || text.size() > 2048 ||
        text.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        return false;
    for (size_t at = 0; at < text.size(); at += 2)
        *bytes += static_cast<char>(std::stoi(text.substr(at, 2), nullptr, 16));
    return true;
}

unsigned number_at(const std::string &bytes, size_t at)
{
    return static_cast<unsigned char>(bytes[at]) * 256u + static_cast<unsigned char>(bytes[at + 1]);
}

struct second_reading {
    bool has[5];
    std::string value[5];  // name, authentication, encryption, key, address
};
constexpr unsigned KINDS[] = {0x1045, 0x1003, 0x100f, 0x1027, 0x1020};

bool read_attributes(const std::string &bytes, second_reading *found)
{
    size_t at = 0;
    while (at < bytes.size()) {
        if (bytes.size() - at < 4 || bytes.size() - at - 4 < number_at(bytes, at + 2))
            return false;
        const std::string value = bytes.substr(at + 4, number_at(bytes, at + 2));
        for (size_t kind = 0; kind < 5; ++kind) {
            if (KINDS[kind] != number_at(bytes, at) || found->has[kind])
                continue;
            found->has[kind] = true;
            found->value[kind] = value;
        }
        at += 4 + value.size();
    }
    return true;
}

std::string without_zeros(std::string text)
{
    while (!text.empty() && text.back() == '\0')
        text.pop_back();
    return text;
}

bool is_key(const std::string &key)
{
    if (key.size() == 64)
        return key.find_first_not_of("0123456789abcdefABCDEF") == std::string::npos;
    if (key.size() < 8 || key.size() > 63)
        return false;
    for (const char c : key) {
        if (static_cast<unsigned char>(c) < 32 || c == 127)
            return false;
    }
    return true;
}

struct network {
    std::string name;
    std::string key;  // empty: open
};

bool read_network(const std::string &payload, network *found)
{
    std::string bytes;
    second_reading parts = {};
    if (!bytes_of(payload, &bytes))
        return false;
    if (bytes.size() >= 4 && number_at(bytes, 0) == 0x100e) {
        if (bytes.size() - 4 < number_at(bytes, 2))
            return false;
        bytes = bytes.substr(4, number_at(bytes, 2));
    }
    if (!read_attributes(bytes, &parts))
        return false;
    found->name = without_zeros(parts.value[0]);
    if (found->name.empty() || found->name.size() > 32 || parts.value[1].size() != 2 ||
        parts.value[2].size() != 2 || (parts.has[4] && parts.value[4].size() != 6))
        return false;
    const unsigned auth = number_at(parts.value[1], 0);
    const unsigned encryption = number_at(parts.value[2], 0);
    if (auth == 1 && encryption == 1)
        return true;
    found->key = without_zeros(parts.value[3]);
    return (auth == 2 || auth == 0x20 || auth == 0x22) &&
           (encryption == 4 || encryption == 8 || encryption == 12) && is_key(found->key);
}

// --- What the daemon's reader finds ---

void check_learnt(const network &expected)
{
    const kelm::unique_cfg_tree tree(kelm::wps_hapd_wpasupp_config_parse(FILE_2G));
    PROPERTY(tree != nullptr);
    const kelm::hapd_wpasupp_cfgitem *block = kelm::kelm_find_learnt_network(tree.get());
    PROPERTY(block != nullptr);
    std::string key;
    int names = 0;
    for (const kelm::hapd_wpasupp_cfgitem *item = block->child; item != nullptr;
         item = item->next) {
        if (strcmp(item->key, "psk") == 0) {
            PROPERTY(item->quoted == (expected.key.size() < 64));
            key = item->value;
        }
        if (strcmp(item->key, "ssid") != 0)
            continue;
        char ssid[kelm::WPS_SSID_SIZE];
        kelm::kelm_decode_ssid(*item, ssid);
        PROPERTY(std::string(ssid, kelm::ssid_len(ssid)) == expected.name);
        ++names;
    }
    PROPERTY(names == 1);
    PROPERTY(key == expected.key);
    PROPERTY(block->next == nullptr);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    kelm_fuzz::input input(data, size);
    kelm_fuzz::reset_device(REPEATER);
    if (!kelm_fuzz::start_device())
        return 0;
    kelm::rtk_update_interface();
    PROPERTY(kelm::rtk_forget_credential(kelm::KELM_BAND_2G));
    const std::string nothing = kelm_fuzz::get_file(FILE_2G);
    (void)kelm_fuzz::take_log();

    const std::string payload = make_payload(&input).c_str();
    kelm::rtk_take_credential(kelm::KELM_BAND_2G, payload.c_str());
    const std::string log = kelm_fuzz::take_log();
    PROPERTY(kelm_test::file_mode(FILE_2G) == 0600);

    network expected;
    if (read_network(payload, &expected)) {
        PROPERTY(log.empty());
        check_learnt(expected);
    } else {
        PROPERTY(kelm_fuzz::get_file(FILE_2G) == nothing);
        PROPERTY(log.find("credential not usable: ") != std::string::npos);
        PROPERTY(log.find('\n') == log.size() - 1);
    }
    (void)kelm_fuzz::take_commands();
    (void)kelm_fuzz::take_log();
    return 0;
}
