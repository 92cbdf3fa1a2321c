// SPDX-License-Identifier: ISC
// Repeater write-back: read the learnt network and the settings, decide, write.
#include "platform/rtk/write_back.h"

#include <cstdlib>
#include <cstring>

#include "config/conf_keys.h"
#include "config/conf_tree.h"
#include "config/credentials.h"
#include "config/key_mgmt.h"
#include "config/security_words.h"
#include "config/settings.h"
#include "config/supplicant_credentials.h"
#include "config/uci_option.h"
#include "config/value_text.h"
#include "core/log.h"
#include "core/session.h"
#include "core/text.h"
#include "wlan/verdict.h"

namespace kelm {

namespace {

// The write-back exists twice: the code is the same, the files that it writes are others. The
// underscores in the log texts are crossed, since a text names the writer and not the caller: the
// function without an underscore logs a text with one, and the other way round. To follow an
// EasyMesh attempt in the log, look for the text without the underscore.
struct write_back_copy {
    const char *name;  // under which the steps write their log lines
    int (*write_sta)(int band, const wps_sta_band_config *config);
    int (*write_ext)(int band, const wps_ap_band_config *config);
    const char *call_text;
};

constexpr write_back_copy PLAIN_COPY = {
    "rtk_repeater_patching_back",
    _wps_set_sta_config,
    _wps_set_ext_config,
    "call _rtk_wps_set_sta_config",
};
constexpr write_back_copy EASYMESH_COPY = {
    "_rtk_repeater_patching_back",
    wps_set_sta_config,
    wps_set_ext_config,
    "call rtk_wps_set_sta_config",
};

// --- Reading the learnt network ---

constexpr uint32_t WEP_OPEN = 1;
constexpr uint32_t WEP_SHARED = 0;
constexpr uint32_t WEP_FORMAT = 1;  // the only format that comes out of an exchange

// One reading: what the block's lines have told so far, and what its log lines need.
struct network_reading : learnt_network {
    const write_back_copy &copy;
    int ap_band;
    hapd_wpasupp_cfgitem *block;
    // These count only together with other lines.
    uint32_t kinds;  // of key_mgmt
    char sae_password[WPS_PASSWORD_SIZE];
};

using cfgitem = hapd_wpasupp_cfgitem;

struct named_number {
    const char *name;
    uint32_t number;
};

constexpr named_number AUTH_ALGS[] = {{"OPEN", WEP_OPEN}, {"SHARED", WEP_SHARED}};

// The whole value must be a name of the table. Any other value leaves the type as it is.
void _learn_auth_alg(network_reading *at, const cfgitem &item)
{
    for (const named_number &row : AUTH_ALGS) {
        if (strcmp(item.value, row.name) == 0)
            at->wep_auth_type = row.number;
    }
}

// The WEP key itself is not stored: the settings have one key field only, the passphrase. And a
// network without a passphrase is written as open.
void _learn_wep_format(network_reading *at, const cfgitem &)
{
    at->wep_key_format = WEP_FORMAT;
}

void _learn_multiap(network_reading *at, const cfgitem &item)
{
    if (atoi(item.value) == 1)
        at->multiap = 1;
    kelm_log_as(at->copy.name, KELM_LOG_DETAIL, "--------------------band %d multiap %d\n",
                at->ap_band, at->multiap);
}

void _learn_mesh(network_reading *at, const cfgitem &item)
{
    at->support_mesh = atoi(item.value) != 0 ? 1 : 0;
    kelm_log_as(at->copy.name, KELM_LOG_NORMAL, "--------------------band %d support_mesh %d\n",
                at->ap_band, at->support_mesh);
    if (at->support_mesh == 0)
        return;
    const cfgitem *element = wps_hapd_wpasupp_config_get(at->block->child, "corvex_qmie");
    if (element == nullptr)
        return;
    copy_text(at->data, element->value);
    kelm_log_as(at->copy.name, KELM_LOG_DETAIL, "--------------------band %d corvex_qmie %s\n",
                at->ap_band, at->data);
}

constexpr conf_key<network_reading> NETWORK_KEYS[] = {
    {"ssid", kelm_ssid_into<&learnt_network::ssid>},
    {"psk", kelm_text_into<&learnt_network::password>},
    {"sae_password", kelm_sae_password_into<&network_reading::sae_password>},
    {"pairwise", kelm_pairwise_into<&learnt_network::encryption>},
    {"proto", kelm_proto_into<&learnt_network::wpa_version>},
    {"auth_alg", _learn_auth_alg},
    {"key_mgmt", kelm_key_mgmt_into<&network_reading::kinds>},
    {"wep_key0", _learn_wep_format},
    {"wep_tx_keyidx", kelm_number_into<&learnt_network::key_index>},
    {"multi_ap_backhaul_sta", _learn_multiap},
    {"corvex_support", _learn_mesh},
};

// Sets the key and the security, once all lines are read.
void _settle_learnt_security(network_reading *at)
{
    if (at->sae_password[0] != '\0' && (at->password[0] == '\0' || kelm_is_sae_only(at->kinds)))
        copy_text(at->password, at->sae_password);
    at->security = kelm_key_mgmt_mode(at->kinds, at->password[0] != '\0', &at->wpa_version);
}

// Reads the block that sta_band's attempt has added to wpa_supplicant's file. False (logged) when
// there is none.
bool _read_network(const write_back_copy &copy, const kelm_session &station, write_back_case *given)
{
    char path[SUPPLICANT_PATH_SIZE];
    kelm_supplicant_path(station, path);
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse(path));
    kelm_log_as(copy.name, KELM_LOG_NORMAL, "Analyze wpa_supplicnat config file %s\n\n", path);
    if (!tree) {
        kelm_log_as(copy.name, KELM_LOG_ALWAYS, "wps_hapd_wpasupp_config_parse failed\n");
        return false;
    }
    kelm_log_as(copy.name, KELM_LOG_DETAIL, "parse credential %d for apBand %d\n", given->sta_band,
                given->ap_band);
    hapd_wpasupp_cfgitem *block = kelm_find_learnt_network(tree.get());
    if (block == nullptr) {
        kelm_log_as(copy.name, KELM_LOG_ALWAYS, "Find enabled network configs failed\n");
        return false;
    }
    kelm_log_as(copy.name, KELM_LOG_NORMAL, "Find enabled network configs:\n");
    wps_hapd_wpasupp_config_dump(block);

    network_reading at = {{}, copy, given->ap_band, block, 0, {}};
    at.wep_key_format = WEP_FORMAT;
    for (const cfgitem *item = block->child; item != nullptr; item = item->next) {
        kelm_log_as(copy.name, KELM_LOG_DETAIL, "key[%s]: value[%s]\n", item->key, item->value);
        kelm_take_item(NETWORK_KEYS, &at, *item);
    }
    _settle_learnt_security(&at);
    const learnt_network &learnt = at;
    given->network = learnt;
    return true;
}

// --- Deciding ---

int _security_rank(uint32_t security, uint32_t version)
{
    return kelm_words_of_security(security, version).rank;
}

void _apply_security_text(const char *text, learnt_network *network)
{
    uint32_t security = 0;
    uint32_t version = network->wpa_version;
    if (!kelm_read_security(text, &security, &version) ||
        _security_rank(security, version) < _security_rank(network->security, network->wpa_version))
        return;
    network->security = security;
    network->wpa_version = version;
}

void _apply_cipher_text(const char *text, learnt_network *network)
{
    uint32_t cipher = 0;
    if (kelm_read_cipher(text, &cipher) &&
        kelm_words_of_cipher(cipher).rank >= kelm_words_of_cipher(network->encryption).rank)
        network->encryption = cipher;
}

// What a station has learnt by its own success counts as it is. In any other case the texts of the
// scan count too. They may come from a neighbour. So for a network with a key they can raise the
// security that was learnt, but never lower it. Otherwise an open twin of the network, or one with
// an older cipher, would get the user's devices.
void _apply_texts(const write_back_case &given, learnt_network *network)
{
    if (given.record == nullptr && given.station_succeeded)
        return;
    const kelm_rootap_info *from = given.record != nullptr ? given.record : given.joined;
    _apply_security_text(from->auth, network);
    _apply_cipher_text(from->cipher, network);
}

void _overrule(learnt_network *network, uint32_t security, uint32_t version, uint32_t cipher)
{
    network->security = security;
    network->wpa_version = version;
    network->encryption = cipher;
}

// Without a passphrase only an open network can be joined, whatever the texts say. This is so for
// WEP too: its key is no passphrase.
void _apply_missing_passphrase(learnt_network *network)
{
    if (network->password[0] == '\0')
        _overrule(network, WPS_AUTH_OPEN, WPS_VERSION_MIXED, WPS_CIPHER_AUTO);
}

// A network with a key is not open, whatever its security says.
void _apply_passphrase(learnt_network *network)
{
    if (network->password[0] != '\0' && network->security == WPS_AUTH_OPEN)
        network->security = WPS_AUTH_WPA;
}

// The 6 GHz band allows nothing older than WPA3.
void _apply_band_rules(int ap_band, learnt_network *network)
{
    if (ap_band != KELM_BAND_6G)
        return;
    const bool open = network->security == WPS_AUTH_OWE || network->security == WPS_AUTH_OPEN ||
                      network->password[0] == '\0';
    _overrule(network, open ? WPS_AUTH_OWE : WPS_AUTH_SAE, WPS_VERSION_WPA3, WPS_CIPHER_AES);
}

constexpr const char *OWN_POSTFIX = "_EXT";

// For a band that takes over another band's SSID.
constexpr char ssid_suffix[KELM_BAND_COUNT][12] = {"_2.4GEXT", "_5GEXT", "_5GEXT", "_6GEXT"};

// Without a record, the station gets an SSID only on the band that learnt the network. On another
// band the root access point may have another name. With a wrong SSID the station would not find
// it.
const char *_station_ssid(const write_back_case &given)
{
    if (given.record != nullptr)
        return given.record->ssid;
    constexpr static char no_ssid[WPS_SSID_SIZE] = {};
    return given.sta_band == given.ap_band ? given.network.ssid : no_ssid;
}

void _make_ap_ssid(const write_back_case &given, char (&ssid)[WPS_SSID_SIZE])
{
    const char *name = given.record != nullptr ? given.record->ssid : given.network.ssid;
    copy_ssid(ssid, name, ssid_len(name));
    if (given.no_postfix)
        return;
    const bool own = given.record != nullptr || given.sta_band == given.ap_band;
    add_ssid_postfix(ssid, own ? OWN_POSTFIX : ssid_suffix[given.ap_band]);
}

// Sets the fields that both records have under the same names.
template <typename config_t>
void _set_security_of(config_t *config, const learnt_network &network)
{
    copy_text(config->password, network.password);
    config->wpa_version = network.wpa_version;
    config->encryption = network.encryption;
    config->wep_auth_type = network.wep_auth_type;
    config->wep_key_format = network.wep_key_format;
    config->key_index = network.key_index;
}

// --- Writing ---

bool _is_write_back_possible(int ap_band, int sta_band)
{
    return kelm_get_wps_session(sta_band) != nullptr && ap_band >= 0 && ap_band < KELM_BAND_COUNT;
}

// False when the band's credentials are not stored afterwards: a write that was due has failed, or
// no write was due.
bool _write_both(const write_back_copy &copy, int ap_band, const wps_sta_band_config &sta,
                 wps_ap_band_config *ap)
{
    kelm_log_as(copy.name, KELM_LOG_NORMAL, "%s\n", copy.call_text);
    const bool station_due = sta.sta_bss_enabled != 0;
    const bool station_written = station_due && copy.write_sta(ap_band, &sta) == 0;
    kelm_log_as(copy.name, KELM_LOG_NORMAL, "sta config over! then config apCfg %d[%d/%d]\n",
                ap_band, ap->ap_bss_enabled, factory_mode);
    bool access_point_written = false;
    // A device in its factory state switches its access points on with the first attempt.
    if (ap->ap_bss_enabled != 0 || factory_mode != 0) {
        ap->ap_bss_enabled = 1;
        access_point_written = copy.write_ext(ap_band, ap) == 0;
    }
    // Without the station's credentials the access point would extend a network that the device
    // cannot join.
    return station_due ? station_written : access_point_written;
}

int _patch_back(const write_back_copy &copy, int ap_band, int sta_band,
                const kelm_rootap_info *record)
{
    if (!_is_write_back_possible(ap_band, sta_band)) {
        kelm_log_as(copy.name, KELM_LOG_DETAIL, "invalid band\n");
        return -1;
    }
    const kelm_session &station = *kelm_get_wps_session(sta_band);
    write_back_case given = {};
    given.ap_band = ap_band;
    given.sta_band = sta_band;
    given.station_succeeded = kelm_is_worker_succeed(sta_band, false);
    given.record = record;
    given.joined = &station.rootap;

    kelm_log_as(copy.name, KELM_LOG_DETAIL, "call wps_parse_config\n");
    wps_sta_band_config stations[KELM_BAND_COUNT] = {};
    wps_ap_band_config access_points[KELM_BAND_COUNT] = {};
    (void)wps_parse_config(WIFI_CONF_PATH, stations, WPS_CONFIG_STA);  // missing: all off
    (void)wps_parse_config(WIFI_CONF_PATH, access_points, WPS_CONFIG_AP);
    kelm_log_as(copy.name, KELM_LOG_DETAIL, "wps_parse_config finished.\n");
    if (!_read_network(copy, station, &given))
        return -1;
    given.no_postfix = check_GermanySSID();

    rtk_decide_write_back(given, &stations[ap_band], &access_points[ap_band]);
    if (!_write_both(copy, ap_band, stations[ap_band], &access_points[ap_band]))
        return -1;
    kelm_count_credentials();
    return 0;
}

}  // namespace

int rtk_repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record)
{
    return _patch_back(PLAIN_COPY, ap_band, sta_band, record);
}

int _rtk_repeater_patching_back(int ap_band, int sta_band, const kelm_rootap_info *record)
{
    return _patch_back(EASYMESH_COPY, ap_band, sta_band, record);
}

void rtk_decide_write_back(const write_back_case &given, wps_sta_band_config *sta,
                           wps_ap_band_config *ap)
{
    learnt_network network = given.network;
    _apply_passphrase(&network);
    _apply_texts(given, &network);
    _apply_passphrase(&network);
    _apply_missing_passphrase(&network);
    _apply_band_rules(given.ap_band, &network);

    const char *station_ssid = _station_ssid(given);
    copy_ssid(sta->ssid, station_ssid, ssid_len(station_ssid));
    _set_security_of(sta, network);
    sta->auth_mode = network.security;
    copy_text(sta->data, network.data);
    sta->support_mesh = network.support_mesh;
    sta->multiap = network.multiap;

    _make_ap_ssid(given, ap->ssid);
    _set_security_of(ap, network);
    ap->sec_type = network.security;
}

}  // namespace kelm
