// SPDX-License-Identifier: ISC
// What hostapd's file says of an access point.
#include "platform/rtk/hostapd_file.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include <strings.h>

#include "config/conf_keys.h"
#include "config/key_mgmt.h"
#include "config/value_text.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr uint32_t VERSION_END = 4;  // this number and any higher one read as mixed

using cfgitem = hapd_wpasupp_cfgitem;

// What hostapd's file says of its first network.
struct hostapd_reading {
    wps_ap_band_config *ap;
    bool quiet;
    uint32_t encryption;
    uint32_t kinds;  // of wpa_key_mgmt
    bool is_wpa;
    bool asks_for_proof;
    bool has_passphrase;
    bool has_left_out;  // a password for SAE that is too long
    char sae_password[WPS_PASSWORD_SIZE];
};

// Only hostapd's file tells the security of the band's record. What the settings said is cleared.
void _clear_security(wps_ap_band_config *ap)
{
    ap->sec_type = WPS_AUTH_OPEN;
    ap->wpa_version = WPS_VERSION_MIXED;
}

// hostapd's line may hold up to 255 characters; the field takes the 32 that an SSID can have.
void _set_name(hostapd_reading *at, const cfgitem &item)
{
    if (at->ap->ap_bss_enabled != 0)
        copy_ssid(at->ap->ssid, item.value, item.value_len);
}

// hostapd writes a name that is not plain text in a coded form.
void _set_coded_name(hostapd_reading *at, const cfgitem &item)
{
    if (at->ap->ap_bss_enabled != 0)
        kelm_decode_ssid(item, at->ap->ssid);
}

void _set_passphrase(hostapd_reading *at, const cfgitem &item)
{
    copy_text(at->ap->password, item.value);
    at->has_passphrase = true;
}

constexpr char SAE_OPTIONS[][12] = {"|mac=", "|vlanid=", "|pk=", "|id="};
constexpr const char *ANY_STATION = "|mac=ff:ff:ff:ff:ff:ff";

// A password with an identifier, or for one station only, is not everybody's: no other device can
// join with it.
bool _is_everybodys(const char *value)
{
    const char *mac = strstr(value, "|mac=");
    return strstr(value, "|id=") == nullptr &&
           (mac == nullptr || strncasecmp(mac, ANY_STATION, strlen(ANY_STATION)) == 0);
}

// The file that this line names holds keys of some stations, each with its own.
void _note_psk_file(hostapd_reading *at, const cfgitem &)
{
    at->asks_for_proof = true;
}

void _set_sae_password(hostapd_reading *at, const cfgitem &item)
{
    at->asks_for_proof = true;
    if (!_is_everybodys(item.value))
        return;
    size_t length = item.value_len;
    for (const char *option : SAE_OPTIONS) {
        const char *begin = strstr(item.value, option);
        if (begin != nullptr && static_cast<size_t>(begin - item.value) < length)
            length = static_cast<size_t>(begin - item.value);
    }
    if (length < sizeof at->sae_password) {
        copy_text(at->sae_password, sizeof at->sae_password, item.value, length);
        return;
    }
    at->has_left_out = true;
    if (!at->quiet)
        kelm_log_left_out_password();
}

void _note_wpa_key_mgmt(hostapd_reading *at, const cfgitem &item)
{
    kelm_key_mgmt_into<&hostapd_reading::kinds>(at, item);
    if (kelm_asks_for_proof(item.value))
        at->asks_for_proof = true;
}

void _set_version(hostapd_reading *at, const cfgitem &item)
{
    const auto version = static_cast<uint32_t>(atoi(item.value));
    at->is_wpa = version != 0;
    at->ap->wpa_version = version < VERSION_END ? version : WPS_VERSION_MIXED;
}

// "auth_algs" is left out on purpose. It says open or shared, and the record's one place for that
// is the WEP type. The scripts would then think that the access point uses WEP.
constexpr conf_key<hostapd_reading> HOSTAPD_KEYS[] = {
    {"ssid", _set_name},
    {"ssid2", _set_coded_name},
    {"wpa_psk", _set_passphrase},
    {"wpa_passphrase", _set_passphrase},
    {"wpa_psk_file", _note_psk_file},
    {"sae_password", _set_sae_password},
    {"wpa_pairwise", kelm_pairwise_into<&hostapd_reading::encryption>},
    {"wpa_key_mgmt", _note_wpa_key_mgmt},
    {"wpa", _set_version},
};

// Sets the key and the security, once all lines are read. An access point without a key is open,
// unless its security needs no key. False when stations join with other keys than one for
// everybody, or when that key is too long to be stored.
bool _settle_ap_security(const hostapd_reading &at)
{
    if (at.has_left_out && kelm_is_sae_only(at.kinds))
        return false;
    const bool has_sae_password = at.sae_password[0] != '\0';
    if (has_sae_password && (!at.has_passphrase || kelm_is_sae_only(at.kinds)))
        copy_text(at.ap->password, at.sae_password);
    const bool has_key = at.has_passphrase || has_sae_password;
    uint32_t version = at.ap->wpa_version;
    const uint32_t mode = kelm_key_mgmt_mode(at.kinds, has_key, &version);
    if (!has_key && mode != WPS_AUTH_OWE)
        return !(at.is_wpa && at.asks_for_proof);
    at.ap->sec_type = mode;
    at.ap->wpa_version = version;
    return true;
}

}  // namespace

void rtk_hostapd_path(const kelm_session &session, char (&path)[HOSTAPD_PATH_SIZE])
{
    (void)snprintf(path, sizeof path, "/tmp/run/hostapd-%s.conf", session.ifName);
}

// The lines behind "bss=" belong to another network on the same radio.
bool rtk_take_hostapd_network(const hapd_wpasupp_cfgitem *first, wps_ap_band_config *ap, bool quiet)
{
    hostapd_reading at = {};
    at.ap = ap;
    at.quiet = quiet;
    _clear_security(ap);
    for (const cfgitem *item = first; item != nullptr; item = item->next) {
        if (strcmp(item->key, "bss") == 0)
            break;
        kelm_take_item(HOSTAPD_KEYS, &at, *item);
    }
    ap->encryption = at.encryption;
    return _settle_ap_security(at);
}

}  // namespace kelm
