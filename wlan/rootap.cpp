// SPDX-License-Identifier: ISC
// The search for the root access point: distance of addresses, scan results, the result for each
// band.
#include "wlan/rootap.h"

#include <cstdlib>
#include <cstring>

#include "config/security_words.h"
#include "core/exec.h"
#include "core/file.h"
#include "core/json_file.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/session.h"
#include "core/switches.h"
#include "core/text.h"
#include "wlan/precheck.h"
#include "wlan/verdict.h"

namespace kelm {

namespace {

constexpr int SCAN_ATTEMPTS = 6;

unsigned _pointer_number(const void *pointer)
{
    return static_cast<unsigned>(reinterpret_cast<uintptr_t>(pointer));
}

bool _is_known(const uint8_t (&bssid)[WPS_BSSID_LEN])
{
    constexpr uint8_t unknown[WPS_BSSID_LEN] = {};
    return memcmp(bssid, unknown, sizeof unknown) != 0;
}

// --- Addresses ---

constexpr int OUI_LEN = 3;
constexpr int OUI_DIFF_MAX = 1;        // a locally administered twin differs in one byte
constexpr int32_t FAR_DISTANCE = 256;  // the radios of one device have nearer numbers

int _oui_difference(const uint8_t *a, const uint8_t *b)
{
    int count = 0;
    for (int i = 0; i < OUI_LEN; ++i)
        count += a[i] != b[i] ? 1 : 0;
    return count;
}

int32_t _low_half(const uint8_t *mac)
{
    return mac[3] << 16 | mac[4] << 8 | mac[5];
}

// An address has distance 1 to itself, since 0 means unrelated. The distance is 0 too if two
// addresses differ in nothing but one byte of the maker's half. Such addresses are two networks of
// one radio, not one network on two radios. If they counted as near, a guest network would be taken
// for the main one.
int32_t _mac_distance(const uint8_t *a, const uint8_t *b)
{
    const int oui_difference = _oui_difference(a, b);
    const int32_t difference = abs(_low_half(a) - _low_half(b));
    if (oui_difference > OUI_DIFF_MAX || difference >= FAR_DISTANCE)
        return 0;
    if (oui_difference == 0 && difference == 0)
        return 1;
    return difference;
}

// --- Entries of a scan result ---

// The text under a key. Null when the key is missing or its value is of another type.
const char *_entry_text(json_object *entry, const char *key)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(entry, key, &value))
        return nullptr;
    return json_object_is_type(value, json_type_string) ? json_object_get_string(value) : nullptr;
}

template <size_t size>
void _store_text(json_object *entry, const char *key, char (&field)[size])
{
    const char *value = _entry_text(entry, key);
    if (value != nullptr)
        copy_text(field, value);
}

// Copies by length, since a name may contain zero bytes.
void _store_ssid(json_object *entry, kelm_rootap_info *rec)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(entry, "ssid", &value) ||
        !json_object_is_type(value, json_type_string))
        return;
    copy_ssid(rec->ssid, json_object_get_string(value),
              static_cast<size_t>(json_object_get_string_len(value)));
}

// The number modulo 256; it may have any number of digits.
uint8_t _channel_number(const char *digits)
{
    unsigned number = 0;
    for (; *digits >= '0' && *digits <= '9'; ++digits)
        number = (number * 10 + static_cast<unsigned>(*digits - '0')) % 256;
    return static_cast<uint8_t>(number);
}

void _store_channel(json_object *entry, kelm_rootap_info *rec)
{
    const char *value = _entry_text(entry, "channel");
    if (value != nullptr)
        rec->channel = _channel_number(value);
}

void _store_nodeid(json_object *entry, kelm_rootap_info *rec)
{
    const char *value = _entry_text(entry, "nodeid");
    if (value != nullptr)
        copy_fixed(rec->nodeid, sizeof rec->nodeid, value);
}

void _store_support_mesh(json_object *entry, kelm_rootap_info *rec)
{
    json_object *value = nullptr;
    if (!json_object_object_get_ex(entry, "support_mesh", &value))
        return;
    if (json_object_is_type(value, json_type_int))
        rec->support_mesh = static_cast<uint8_t>(json_object_get_int64(value));
}

// --- The choice among the entries ---

// The entry chosen so far.
struct scan_choice {
    json_object *entry;
    uint8_t bssid[WPS_BSSID_LEN];
    int32_t distance;  // 0: chosen by its name, unrelated by address
    int32_t best;      // a nearer entry must be below this
};

constexpr int32_t WORST_DISTANCE = 255;  // an entry at exactly this distance is not near

enum class scan_pick { none, by_ssid, by_bssid };

// An unknown name matches no entry. It is empty, and hidden entries have an empty name too.
bool _has_ssid(json_object *entry, const char (&ssid)[WPS_SSID_SIZE])
{
    json_object *value = nullptr;
    const size_t length = ssid_len(ssid);
    return length > 0 && json_object_object_get_ex(entry, "ssid", &value) != 0 &&
           json_object_is_type(value, json_type_string) != 0 &&
           static_cast<size_t>(json_object_get_string_len(value)) == length &&
           memcmp(json_object_get_string(value), ssid, length) == 0;
}

// Whether an entry may be the network that has been joined. Anybody can send the name of this
// network, or an address near its own, but nobody else has its key. So an entry is not the same
// network if it is open, or if its security does not really guard a key. An entry may name no
// security. Then the rest of the entry decides, and the security that was learnt stays.
bool _may_have_key(json_object *entry)
{
    const char *told = _entry_text(entry, "security");
    return told == nullptr || kelm_guards_key(told);
}

// The name decides only while nothing is chosen, so only once. Neighbours may have the same name,
// but an entry that is near by address is the device itself. So a name never replaces an address,
// and a later entry must be strictly nearer.
scan_pick _consider(json_object *entry, const kelm_rootap_info &wanted, scan_choice *choice)
{
    const char *mac = _entry_text(entry, "mac");
    uint8_t bssid[WPS_BSSID_LEN] = {};
    if (mac == nullptr || _convert_macstr_to_bytes(mac, bssid) != 0)
        return scan_pick::none;
    if (wanted.password[0] != '\0' && !_may_have_key(entry))
        return scan_pick::none;

    const bool by_ssid = choice->entry == nullptr && _has_ssid(entry, wanted.ssid);
    const int32_t distance = wps_bssid_co_hosted_check(wanted.bssid, bssid);
    if (!by_ssid && (distance == 0 || distance >= choice->best))
        return scan_pick::none;
    choice->entry = entry;
    memcpy(choice->bssid, bssid, sizeof bssid);
    choice->distance = distance;
    choice->best = distance != 0 ? distance : WORST_DISTANCE;
    return by_ssid ? scan_pick::by_ssid : scan_pick::by_bssid;
}

// Null when no attempt gave JSON. The command runs as root and writes to the file of this name. If
// there were a link of somebody else, it would write where the link leads. If there were a file of
// somebody else, it would write there, and the daemon would not believe that file. So the name is
// secured first; null if that fails.
unique_json _fetch_scan_result(int band, const char *path)
{
    if (!kelm_has_own_file(path) && !kelm_pin_file(path, KELM_FOR_ALL))
        return nullptr;
    for (int attempt = 1;; ++attempt) {
        (void)wps_exec_cmd(command_kind::scan, "%s getscanresult %s", kelm_wifi_program(),
                           bandname[band]);
        unique_json list = kelm_load_json(path);
        if (list || attempt == SCAN_ATTEMPTS)
            return list;
        (void)wps_exec_cmd("sleep 1");
    }
}

// --- The resolution ---

int _count_links()
{
    int links = 0;
    for (int band = KELM_BAND_2G; band <= KELM_BAND_5G2; ++band) {
        if (kelm_get_band_inited(band) && kelm_has_wps_flag(band, WPS_FLAG_STA_CONNECTED))
            ++links;
    }
    return links;
}

bool _is_any_running()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band) && !kelm_is_worker_done(band))
            return true;
    }
    return false;
}

}  // namespace

int32_t wps_bssid_co_hosted_check(const uint8_t *a, const uint8_t *b)
{
    const int32_t distance = _mac_distance(a, b);
    kelm_log_detail(
        "macaddr cmp[result %08x] [%02x:%02x:%02x:%02x:%02x:%02x] vs "
        "[%02x:%02x:%02x:%02x:%02x:%02x].\n",
        static_cast<unsigned>(distance), a[0], a[1], a[2], a[3], a[4], a[5], b[0], b[1], b[2], b[3],
        b[4], b[5]);
    return distance;
}

void kelm_store_apinfo_from_json(json_object *entry, kelm_rootap_info *rec, const uint8_t *bssid)
{
    memcpy(rec->bssid, bssid, sizeof rec->bssid);
    _store_ssid(entry, rec);
    _store_text(entry, "security", rec->auth);
    _store_text(entry, "wpa_encryption", rec->cipher);
    _store_channel(entry, rec);
    _store_nodeid(entry, rec);
    _store_text(entry, "data", rec->qm_data);
    _store_support_mesh(entry, rec);
    kelm_log_normal("found ap from scan table\n");
    dump_rootap_info(rec);
}

int kelm_match_rootap(const char *path, const kelm_session *suc_wps, kelm_session *wps)
{
    if (path == nullptr || wps == nullptr || suc_wps == nullptr) {
        kelm_log_normal("err args path[%08x] wps[%08x] suc_wps[%08x]\n", _pointer_number(path),
                        _pointer_number(wps), _pointer_number(suc_wps));
        return 0;
    }
    const int band = kelm_get_bandtype_by_session(wps);
    if (band == KELM_BAND_NONE)
        return 0;
    const unique_json list = _fetch_scan_result(band, path);
    if (!json_object_is_type(list.get(), json_type_array))
        return 0;
    const size_t count = json_object_array_length(list.get());
    kelm_log_normal("%d APs in %s\n", static_cast<int>(count), path);

    scan_choice choice = {nullptr, {}, 0, WORST_DISTANCE};
    for (size_t i = 0; i < count; ++i) {
        const uint8_t *mac = choice.bssid;
        switch (_consider(json_object_array_get_idx(list.get(), i), suc_wps->rootap, &choice)) {
        case scan_pick::none:
            break;
        case scan_pick::by_ssid:
            kelm_log_normal("get entry by ssid %s[mac distance %08x]\n", suc_wps->rootap.ssid,
                            static_cast<unsigned>(choice.distance));
            break;
        case scan_pick::by_bssid:
            kelm_log_normal("get entry by bssid %02x-%02x-%02x-%02x-%02x-%02x[mac_distance %08x]\n",
                            mac[0], mac[1], mac[2], mac[3], mac[4], mac[5],
                            static_cast<unsigned>(choice.distance));
            break;
        }
    }
    if (choice.entry == nullptr)
        return 0;
    kelm_store_apinfo_from_json(choice.entry, &wps->rootap, choice.bssid);
    return 1;
}

int check_rootapinfo_with_uuid(int suc_band, int band)
{
    const kelm_session *suc_wps = kelm_get_wps_session(suc_band);
    const kelm_session *wps = kelm_get_wps_session(band);
    if (suc_wps == nullptr || wps == nullptr) {
        kelm_log_normal("Bad wps session[band %d/%d].\n", suc_band, band);
        return 0;
    }
    const kelm_rootap_info &joined = suc_wps->rootap;
    const kelm_rootap_info &seen = wps->rootap;
    if (ssid_len(joined.ssid) == 0 || ssid_len(seen.ssid) == 0)
        return 0;
    if (!_is_known(joined.bssid) || !_is_known(seen.bssid))
        return 0;
    if (memcmp(joined.uuid, seen.uuid, sizeof joined.uuid) != 0)
        return 0;
    if (wps_bssid_co_hosted_check(joined.bssid, seen.bssid) == 0)
        return 0;
    kelm_log_normal("is multiAP [%s] | [%s]\n", joined.ssid, seen.ssid);
    return 1;
}

int check_rootapinfo_from_scantable(int suc_band, int band)
{
    const kelm_session *suc_wps = kelm_get_wps_session(suc_band);
    kelm_session *wps = kelm_get_wps_session(band);
    if (suc_wps == nullptr || wps == nullptr) {
        kelm_log_normal("Bad wps session[band %d/%d].\n", suc_band, band);
        return 0;
    }
    if (wps->scan_path == nullptr) {
        kelm_log_normal("search from scantable %s.\n", "(null)");
        return 0;
    }
    kelm_log_normal("search from scantable %s.\n", wps->scan_path);
    return kelm_match_rootap(wps->scan_path, suc_wps, wps);
}

int kelm_resolve_apinfo_and_credential()
{
    if (_is_any_running()) {
        kelm_log_detail("Worker process still running, wait...\n\n");
        return -1;
    }
    const int suc = kelm_get_succeed_band(KELM_BAND_NONE);
    kelm_session *suc_wps = kelm_get_wps_session(suc);
    if (suc_wps == nullptr)
        return -1;
    const int links = _count_links();
    if (links != 0 && links != 2)
        return 2;

    (void)kelm_ops.get_wps_credentials(suc, &suc_wps->rootap);
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band) || !kelm_has_wps_flag(band, WPS_FLAG_STABSS_ENABLE))
            continue;
        if (kelm_has_wps_flag(band, WPS_FLAG_WORKER_LAUNCH) &&
            !kelm_has_wps_flag(band, WPS_FLAG_OVER_SCAN))
            trigger_over_scan(band);
        if (band == suc || kelm_is_worker_succeed(band, false)) {
            // This band keeps its own credentials. The scan only completes what is known of its
            // root access point.
            kelm_clean_wps_flag_bit(band, WPS_FLAG_CONFIG_MIRROR);
            (void)check_rootapinfo_from_scantable(suc, band);
            continue;
        }
        if (check_rootapinfo_with_uuid(suc, band) != 0)
            kelm_set_wps_flag_bit(band, WPS_FLAG_CONFIG_MIRROR);
        if (check_rootapinfo_from_scantable(suc, band) != 0) {
            kelm_log_detail("found rootap from scantable\n");
            kelm_set_wps_flag_bit(band, WPS_FLAG_CONFIG_MIRROR);
        }
    }
    return 0;
}

int _kelm_worker_process_rootapinfo(const char *message, size_t length)
{
    kelm_worker_rootapinfo rootap = {};
    int band = KELM_BAND_NONE;
    if (kelm_ops.parse_rootap_msg(message, length, &rootap, &band) == -1 || band >= KELM_BAND_NONE)
        return -1;
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return -1;
    }
    copy_text(session->rootap.ssid, rootap.ssid);
    memcpy(session->rootap.bssid, rootap.bssid, sizeof rootap.bssid);
    memcpy(session->rootap.uuid, rootap.uuid, sizeof rootap.uuid);
    return 0;
}

void kelm_store_apinfo_from_cfg(const wps_sta_band_config *cfg, kelm_rootap_info *rec)
{
    if (_is_known(cfg->bssid))
        memcpy(rec->bssid, cfg->bssid, sizeof rec->bssid);
    if (ssid_len(cfg->ssid) != 0)
        copy_ssid(rec->ssid, cfg->ssid, ssid_len(cfg->ssid));
    const char *auth = kelm_words_of_security(cfg->auth_mode, cfg->wpa_version).record;
    if (auth[0] != '\0')
        copy_text(rec->auth, auth);
    copy_text(rec->cipher, kelm_words_of_cipher(cfg->encryption).word);
    copy_text(rec->qm_data, cfg->data);
    copy_text(rec->password, cfg->password);
    rec->support_mesh = cfg->support_mesh;
    kelm_log_normal("found ap from stacfg\n");
}

}  // namespace kelm
