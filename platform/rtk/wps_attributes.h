// SPDX-License-Identifier: ISC
// Attributes of Wi-Fi Protected Setup, as an event of hostapd or wpa_supplicant writes them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

// The attributes that matter here, with their numbers in the standard. The comments say what each
// value is.
constexpr uint16_t WPS_ATTR_AUTH_TYPE = 0x1003;   // two bytes
constexpr uint16_t WPS_ATTR_CREDENTIAL = 0x100e;  // a row of further attributes
constexpr uint16_t WPS_ATTR_ENCRYPTION = 0x100f;  // two bytes
constexpr uint16_t WPS_ATTR_MAC = 0x1020;         // six bytes
constexpr uint16_t WPS_ATTR_NETWORK_KEY = 0x1027;
constexpr uint16_t WPS_ATTR_SSID = 0x1045;

constexpr size_t WPS_PAYLOAD_MAX = 1024;  // bytes; more than an event holds

// Reads what an event has behind its name: hexadecimal digits up to the next blank or the end.
// Blanks before the digits are skipped. Returns the number of bytes; 0 when nothing stands there;
// -1 for anything else: other characters, half a byte, too many bytes.
int rtk_read_wps_payload(const char *text, uint8_t (&bytes)[WPS_PAYLOAD_MAX]);

struct wps_attribute {
    uint16_t type;
    const uint8_t *value;
    size_t length;
};

// A row of attributes, and how far it has been read.
struct wps_attributes {
    const uint8_t *at;
    const uint8_t *end;
    bool broken;  // what is left is not a whole attribute
};

// Takes the next attribute. False at the end, or when the attribute is broken. A credential comes
// as one attribute. Its value may then be read as a row of attributes itself.
bool rtk_next_wps_attribute(wps_attributes *from, wps_attribute *next);

// Two bytes as a number, the higher one first.
uint16_t rtk_wps_number(const uint8_t *bytes);

// The length without the zeros at the end. Some registrars fill names and keys up with zeros, and
// hostapd and wpa_supplicant take these off too.
size_t rtk_length_without_zeros(const uint8_t *bytes, size_t length);

}  // namespace kelm
