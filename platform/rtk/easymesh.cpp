// SPDX-License-Identifier: ISC
// EasyMesh: what the stations' files say about the root access point, and the backhaul write-back.
#include "platform/rtk/easymesh.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/credentials.h"
#include "config/key_mgmt.h"
#include "config/settings.h"
#include "config/value_text.h"
#include "core/exec.h"
#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/session.h"
#include "core/text.h"
#include "wlan/easymesh_marks.h"
#include "wlan/verdict.h"

namespace kelm {

namespace {

constexpr size_t LINE_SIZE = 512;    // a longer line comes in pieces
constexpr size_t SHORTEST_LINE = 5;  // shorter ones hold no key with a value
constexpr int STATION_COUNT = 2;

// The steps of the write-back write their log lines under this name.
constexpr const char *BACKHAUL = "rtk_repeater_easymesh_patching_back";

// The names are fixed, whatever the sessions' interfaces are called: the backhaul uses only the
// stations of the first two bands. The names are crossed like those of the radios: band 0 is wlan1,
// band 1 is wlan0.
constexpr const char *STATION_FILES[STATION_COUNT] = {
    "/tmp/run/wpa_supplicant-wlan1-vxd.conf",
    "/tmp/run/wpa_supplicant-wlan0-vxd.conf",
};

// --- Reading ---

// These lines of a block count only together with its other lines.
struct block_keys {
    uint32_t kinds;  // of key_mgmt
    bool has_psk;
    char sae_password[WPS_PASSWORD_SIZE];
};

// A station file that is read line by line, from its first network block on.
struct block_reader {
    unique_file file;
    bool in_block;
    block_keys keys;
    char line[LINE_SIZE];
};

// Cuts off the blanks around the text, in place.
char *_strip(char *text)
{
    text += strspn(text, " \t");
    size_t length = strlen(text);
    while (length > 0 && strchr(" \t\n", text[length - 1]) != nullptr)
        text[--length] = '\0';
    return text;
}

// The next line inside a network block, stripped, or null at the end of the file.
const char *_next_line(block_reader *reader)
{
    while (fgets(reader->line, sizeof reader->line, reader->file.get()) != nullptr) {
        const char *line = _strip(reader->line);
        if (reader->in_block)
            return line;
        reader->in_block = starts_with(line, "network=");
    }
    return nullptr;
}

// The value of the next line that begins with key, or null.
const char *_next_value(block_reader *reader, const char *key)
{
    const char *line = _next_line(reader);
    while (line != nullptr && !starts_with(line, key))
        line = _next_line(reader);
    return line == nullptr ? nullptr : line + strlen(key);
}

// Copies a text in double quotes without the quotes. A bare text, which is the digits of a key, is
// copied as it is.
void _copy_key(char (&field)[WPS_PASSWORD_SIZE], const char *value)
{
    const size_t length = strlen(value);
    if (length >= 2 && value[0] == '"' && value[length - 1] == '"')
        copy_text(field, sizeof field, value + 1, length - 2);
    else
        copy_text(field, value);
}

// At the end of a block: takes the block's password for SAE, if that is the one that counts. True
// if so.
bool _end_block(block_keys *keys, wps_ap_band_config *ap)
{
    const block_keys block = *keys;
    *keys = {};
    if (block.sae_password[0] == '\0' || (block.has_psk && !kelm_is_sae_only(block.kinds)))
        return false;
    copy_text(ap->password, block.sae_password);
    return true;
}

enum class found_line { none, ssid, password };

// Takes the next credential of the file into the band's record. A later one overwrites an earlier
// one. So the last block counts, which is the one that the attempt has added.
found_line _take_next_credential(block_reader *reader, wps_ap_band_config *ap)
{
    while (const char *line = _next_line(reader)) {
        if (strlen(line) < SHORTEST_LINE)
            continue;
        if (starts_with(line, "ssid=")) {
            kelm_decode_ssid(line + strlen("ssid="), ap->ssid);
            return found_line::ssid;
        }
        if (starts_with(line, "psk=")) {
            _copy_key(ap->password, line + strlen("psk="));
            reader->keys.has_psk = true;
            return found_line::password;
        }
        if (starts_with(line, "sae_password="))
            kelm_take_sae_password(line + strlen("sae_password="), reader->keys.sae_password);
        if (starts_with(line, "key_mgmt="))
            reader->keys.kinds = kelm_key_mgmt_kinds(line + strlen("key_mgmt="));
        if (starts_with(line, "network=") && _end_block(&reader->keys, ap))
            return found_line::password;
    }
    return _end_block(&reader->keys, ap) ? found_line::password : found_line::none;
}

// Reads all credentials of a station's file. False (logged) when there is no file.
bool _read_station(int station, wps_ap_band_config *ap)
{
    block_reader reader = {kelm_open_to_read(STATION_FILES[station]), false, {}, {}};
    if (!reader.file) {
        kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "Open /tmp/wpa_supplicant.conf failed.\n\n");
        return false;
    }
    for (;;) {
        switch (_take_next_credential(&reader, ap)) {
        case found_line::none:
            return true;
        case found_line::ssid:
            kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "--------------------band %d localApSsid %s\n",
                        station, ap->ssid);
            break;
        case found_line::password:
            kelm_log_as(BACKHAUL, KELM_LOG_NORMAL,
                        "--------------------band %d localApSecCfg password: %s\n", station,
                        ap->password);
            break;
        }
    }
}

// ap: one for each band. It is read from the WPS settings, not from the Wi-Fi settings: there the
// EasyMesh scripts keep the access points of the backhaul, in the second block. Without the file
// all are empty.
bool _read_backhaul(wps_ap_band_config *ap)
{
    kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "call wps_parse_config\n");
    (void)wps_parse_config(WPS_CONF_PATH, ap, WPS_CONFIG_AP);
    kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "wps_parse_config finished.\n");
    for (int station = 0; station < STATION_COUNT; ++station) {
        if (!_read_station(station, &ap[station]))
            return false;
    }
    return true;
}

// --- Choosing ---

// The band whose outcome decides. For a band that takes over credentials this is the band that
// gives them. For a band with its own credentials it is the other band of the backhaul's pair. Band
// 1 is the other band for bands 0, 2 and 3.
int _partner(int band, int sta_band)
{
    if (band != sta_band)
        return sta_band;
    return band == KELM_BAND_5G ? KELM_BAND_2G : KELM_BAND_5G;
}

void _copy_credentials(wps_ap_band_config *to, const wps_ap_band_config &from)
{
    copy_ssid(to->ssid, from.ssid, ssid_len(from.ssid));
    copy_text(to->password, from.password);
}

// Gives the credentials of one band to the other, if that has none of its own. False when there are
// no credentials to give.
bool _choose_backhaul(int band, int sta_band, wps_ap_band_config *ap)
{
    const int partner = _partner(band, sta_band);
    const bool own = band == sta_band;
    const bool partner_succeeded = kelm_is_worker_succeed(partner, true);
    if (own && partner_succeeded)
        kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "all Radio Easymesh WPS Success\n");
    else if (own)
        _copy_credentials(&ap[partner], ap[band]);
    else if (partner_succeeded)
        _copy_credentials(&ap[band], ap[partner]);
    else
        kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "no Easymesh WPS Success\n");
    return own || partner_succeeded;
}

// --- Writing ---

// False when nothing was written, or when a file name could not be held. No script runs then.
bool _write_backhaul(const wps_ap_band_config *ap)
{
    kelm_log_as(BACKHAUL, KELM_LOG_NORMAL, "call wps_set_dual_ap_bh_config\n");
    if (wps_set_dual_ap_bh_config(ap) != 0 || !kelm_hold_mesh_credential_names())
        return false;
    (void)kelm_system("/etc/init.d/wps mesh_config_wifi", command_kind::script);
    return true;
}

}  // namespace

int rtk_repeater_check_ap_easymesh_support()
{
    bool any = false;
    for (int band = 0; band < STATION_COUNT; ++band) {
        block_reader reader = {kelm_open_to_read(STATION_FILES[band]), false, {}, {}};
        if (!reader.file) {
            kelm_log_normal("Open  tmp/run/wpa_supplicant.conffailed.\n\n");
            continue;
        }
        bool supported = false;
        // Every such line replaces what an earlier one said. So the last block counts, which is the
        // learnt one.
        while (const char *value = _next_value(&reader, "easymesh_support=")) {
            supported = atoi(value) == 1;
            kelm_log_normal("ap_easymesh_support[band:%d] = %d\n", band, supported ? 1 : 0);
            set_band_easymesh_wps(band, supported ? 1 : 0);
        }
        any = any || supported;
    }
    return any ? 0 : -1;
}

int rtk_repeater_easymesh_patching_back(int band, int sta_band)
{
    if (!kelm_is_band(band) || !kelm_is_band(sta_band)) {
        kelm_log_bad_band(kelm_is_band(band) ? sta_band : band);
        return -1;
    }
    wps_ap_band_config ap[KELM_BAND_COUNT] = {};
    const bool written =
        _read_backhaul(ap) && _choose_backhaul(band, sta_band, ap) && _write_backhaul(ap);
    return written ? 0 : -1;
}

}  // namespace kelm
