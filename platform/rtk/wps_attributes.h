// SPDX-License-Identifier: ISC
// Attributes of Wi-Fi Protected Setup, as an event of hostapd or wpa_supplicant spells them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

// The attributes that matter here, and their values, by the numbers of the standard.
constexpr uint16_t WPS_ATTR_AUTH_TYPE = 0x1003;   // two bytes
constexpr uint16_t WPS_ATTR_CREDENTIAL = 0x100e;  // attributes of its own
constexpr uint16_t WPS_ATTR_ENCRYPTION = 0x100f;  // two bytes
constexpr uint16_t WPS_ATTR_MAC = 0x1020;         // six bytes
constexpr uint16_t WPS_ATTR_NETWORK_KEY = 0x1027;
constexpr uint16_t WPS_ATTR_SSID = 0x1045;

constexpr size_t WPS_PAYLOAD_MAX = 1024;  // bytes; more than an event holds

// Reads what an event has behind its name: hexadecimal digits up to the next blank or the end,
// blanks before them left out. Returns the number of bytes, 0 when there are no digits, or -1 for
// anything else: other characters, half a byte, too many.
int rtk_read_wps_payload(const char *text, uint8_t (&bytes)[WPS_PAYLOAD_MAX]);

struct wps_attribute {
    uint16_t type;
    const uint8_t *value;
    size_t length;
};

// Attributes one behind the other, and how far they have been read.
struct wps_attributes {
    const uint8_t *at;
    const uint8_t *end;
    bool broken;  // what is left there is no whole attribute
};

// Takes the next one. False at the end, or where one is broken. A credential comes as one; its
// value may be read as attributes in turn.
bool rtk_next_wps_attribute(wps_attributes *from, wps_attribute *next);

// Two bytes as a number, the higher one first.
uint16_t rtk_wps_number(const uint8_t *bytes);

// Some registrars fill names and keys up with zeros; hostapd and wpa_supplicant take them off too.
size_t rtk_length_without_zeros(const uint8_t *bytes, size_t length);

}  // namespace kelm
