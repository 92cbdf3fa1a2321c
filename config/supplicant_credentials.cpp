// SPDX-License-Identifier: ISC
// Takes credentials from wpa_supplicant's configuration file.
#include "config/supplicant_credentials.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "config/band_config.h"
#include "config/conf_keys.h"
#include "config/key_mgmt.h"
#include "config/security_words.h"
#include "config/value_text.h"
#include "core/log.h"
#include "core/session.h"
#include "core/text.h"

namespace kelm {

namespace {

// All log lines of the extraction carry this name, whichever step writes them.
constexpr const char *ENTRY = "rtk_get_wps_credentials";

// One extraction: where it reads, where it writes, and what it has found so far.
struct extraction {
    int band;
    hapd_wpasupp_cfgitem *network;
    kelm_rootap_info *record;
    uint32_t auth_mode;
    uint32_t proto;
    uint32_t pairwise;
    uint32_t kinds;  // of key_mgmt
    bool has_psk;
    char sae_password[WPS_PASSWORD_SIZE];
};

using cfgitem = hapd_wpasupp_cfgitem;

void _record_ssid(extraction *work, const cfgitem &item)
{
    kelm_decode_ssid(item, work->record->ssid);
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "--------------------band %d rootApSsid %s\n", work->band,
                work->record->ssid);
}

void _record_password(extraction *work, const char *value)
{
    copy_text(work->record->password, value);
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "--------------------band %d rootApSec password: %s\n",
                work->band, work->record->password);
}

void _record_psk(extraction *work, const cfgitem &item)
{
    _record_password(work, item.value);
    work->has_psk = true;
}

void _note_kinds(extraction *work, const cfgitem &item)
{
    work->kinds = kelm_key_mgmt_kinds(item.value);
}

void _find_auth_mode(extraction *work, const cfgitem &item)
{
    const uint32_t kinds = kelm_key_mgmt_kinds(item.value);
    if (kinds != 0)
        work->auth_mode = kelm_key_mgmt_mode(kinds, false, &work->proto);
    else
        kelm_log_as(ENTRY, KELM_LOG_ALWAYS, "Unknown KEY-MGMT %s\n", item.value);
}

void _record_mesh(extraction *work, const cfgitem &item)
{
    kelm_rootap_info *record = work->record;
    record->support_mesh = atoi(item.value) != 0 ? 1 : 0;
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "--------------------band %d support_mesh %d\n", work->band,
                record->support_mesh);
    if (record->support_mesh == 0)
        return;
    const hapd_wpasupp_cfgitem *element =
        wps_hapd_wpasupp_config_get(work->network->child, "corvex_qmie=");
    if (element == nullptr)
        return;
    copy_text(record->qm_data, element->value);
    kelm_log_as(ENTRY, KELM_LOG_DETAIL, "--------------------band %d corvex_qmie %s\n", work->band,
                record->qm_data);
}

// The two keys with an equals sign are never found, since no key of the tree contains one. The
// record depends on that: the root access point's security, cipher, mesh data and node id come from
// the scan table. If mesh support were taken from here, it would come without a node id. Then the
// ids of the bands would differ, and the mesh would be switched off. If the security were taken
// from here, it would stay in the record of a root access point that the scan does not list.
constexpr conf_key<extraction> NETWORK_KEYS[] = {
    {"ssid", _record_ssid},
    {"psk", _record_psk},
    {"pairwise", kelm_pairwise_into<&extraction::pairwise>},
    {"proto", kelm_proto_into<&extraction::proto>},
    {"key_mgmt=", _find_auth_mode},
    {"corvex_support=", _record_mesh},
    {"key_mgmt", _note_kinds},
    {"sae_password", kelm_sae_password_into<&extraction::sae_password>},
};

const char *_cipher_of(const extraction &work)
{
    switch (work.auth_mode) {
    case WPS_AUTH_WPA:
        return kelm_words_of_cipher(work.pairwise).word;
    case WPS_AUTH_SAE:
        return "aes";
    default:
        return "";
    }
}

void _store_security(const extraction &work)
{
    const char *auth = kelm_words_of_security(work.auth_mode, work.proto).record;
    copy_text(work.record->auth, auth[0] != '\0' ? auth : "unknown");
    copy_text(work.record->cipher, _cipher_of(work));
}

bool _is_disabled(const hapd_wpasupp_cfgitem *network)
{
    const hapd_wpasupp_cfgitem *disabled = wps_hapd_wpasupp_config_get(network->child, "disabled");
    return disabled != nullptr && atoi(disabled->value) != 0;
}

}  // namespace

void kelm_supplicant_path(const kelm_session &session, char (&path)[SUPPLICANT_PATH_SIZE])
{
    (void)snprintf(path, sizeof path, "/tmp/run/wpa_supplicant-%s.conf", session.ifName);
}

hapd_wpasupp_cfgitem *kelm_find_learnt_network(hapd_wpasupp_cfgitem *first)
{
    bool seen_one = false;
    for (hapd_wpasupp_cfgitem *item = first; item != nullptr; item = item->next) {
        if (strcmp(item->key, "network") != 0)
            continue;
        if (seen_one && !_is_disabled(item))
            return item;
        seen_one = true;
    }
    return nullptr;
}

int rtk_get_wps_credentials(int band, kelm_rootap_info *record)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return -1;
    }
    char path[SUPPLICANT_PATH_SIZE];
    kelm_supplicant_path(*session, path);
    const unique_cfg_tree tree(wps_hapd_wpasupp_config_parse(path));
    kelm_log_normal("Analyze wpa_supplicnat config file %s\n\n", path);
    if (!tree) {
        kelm_log_always("wps_hapd_wpasupp_config_parse failed\n");
        return -1;
    }
    hapd_wpasupp_cfgitem *network = kelm_find_learnt_network(tree.get());
    if (network == nullptr) {
        kelm_log_always("Find enabled network configs failed\n");
        return -1;
    }
    kelm_log_normal("Find enabled network configs:\n");
    wps_hapd_wpasupp_config_dump(network);

    extraction work = {};
    work.band = band;
    work.network = network;
    work.record = record;
    for (const cfgitem *item = network->child; item != nullptr; item = item->next)
        kelm_take_item(NETWORK_KEYS, &work, *item);
    // The record needs the SAE password too: if it has a key, fewer entries of a scan can be this
    // network.
    if (work.sae_password[0] != '\0' && (!work.has_psk || kelm_is_sae_only(work.kinds)))
        _record_password(&work, work.sae_password);
    _store_security(work);
    dump_rootap_info(record);
    return 0;
}

}  // namespace kelm
