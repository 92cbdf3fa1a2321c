// SPDX-License-Identifier: ISC
// The session table, the flag words, and the log lines that show them.
#include "core/session.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/text.h"

namespace kelm {

kelm_session *global_wps_sessions = nullptr;
uint32_t kelm_flag = 0;
uint32_t kelm_band_mask = 0;
int32_t kelm_rf_band = 0;
int32_t time_start = 0;
int32_t time_boost = 0;
int32_t time_last_check = 0;
uint32_t dirty = 0;
int32_t factory_mode = 0;

const char *const bandname[KELM_BAND_COUNT] = {"2g", "5g", "5g2", "6g"};

namespace {

constexpr const char *ALIVE_PATH = "/tmp/wpsactive";
constexpr size_t ALIVE_SIZE = 12;  // of any number

// Band masks by band-set code.
constexpr uint32_t BAND_SETS[] = {0x1, 0x2, 0x3, 0x7, 0xb, 0xf};

struct band_row {
    int32_t priority;
    char scan_path[28];
    char ifname[8];
};

// wlan1 stands before wlan0 on purpose: the 2.4 GHz radio is the second one of this board. With the
// names in the other order a start command would start WPS on the wrong band.
constexpr band_row BANDS[KELM_BAND_COUNT] = {
    {10, "/tmp/wifi_scan_2g.result", "wlan1"},
    {20, "/tmp/wifi_scan_5g.result", "wlan0"},
    {20, "/tmp/wifi_scan_5g2.result", ""},
    {30, "/tmp/wifi_scan_6g.result", ""},
};

struct flag_row {
    uint32_t flag;
    char name[28];
};

// In the order of the dump, which is not the order of the bits. CONFIG_WIFI and OVER_SCAN are not
// shown: tools that split the line know these eight names.
constexpr flag_row DUMPED_FLAGS[] = {
    {WPS_FLAG_STABSS_ENABLE, "[WPS_FLAG_STABSS_ENABLE]"},
    {WPS_FLAG_STAWPS_FAKEUP, "[WPS_FLAG_STAWPS_FAKEUP]"},
    {WPS_FLAG_APBSS_ENABLE, "[WPS_FLAG_APBSS_ENABLE]"},
    {WPS_FLAG_CONFIG_MIRROR, "[WPS_FLAG_CONFIG_MIRROR]"},
    {WPS_FLAG_NONE_SECURITY, "[WPS_FLAG_NONE_SECURITY]"},
    {WPS_FLAG_STA_CONNECTED, "[WPS_FLAG_STA_CONNECTED]"},
    {WPS_FLAG_WORKER_LAUNCH, "[WPS_FLAG_WORKER_LAUNCH]"},
    {WPS_FLAG_WORKER_DONE, "[WPS_FLAG_WORKER_DONE]"},
};

constexpr uint32_t LASTING_FLAGS =
    WPS_FLAG_STABSS_ENABLE | WPS_FLAG_APBSS_ENABLE | WPS_FLAG_NONE_SECURITY | WPS_FLAG_CONFIG_WIFI;

constexpr size_t FLAG_TEXT_SIZE = 256;

void _flags_text(uint32_t flags, char (&text)[FLAG_TEXT_SIZE])
{
    size_t used = 0;
    text[0] = '\0';
    for (const flag_row &row : DUMPED_FLAGS) {
        if ((flags & row.flag) != 0)
            used += copy_text(text + used, sizeof text - used, row.name, sizeof text);
    }
}

}  // namespace

int kelm_create_session(int band_set)
{
    if (band_set >= 0 && band_set < static_cast<int>(sizeof BAND_SETS / sizeof BAND_SETS[0]))
        kelm_band_mask |= BAND_SETS[band_set];

    free(global_wps_sessions);
    global_wps_sessions =
        static_cast<kelm_session *>(calloc(KELM_BAND_COUNT, sizeof(kelm_session)));
    if (global_wps_sessions == nullptr)
        return -1;

    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if ((kelm_band_mask & (1u << band)) == 0)
            continue;
        kelm_session &session = global_wps_sessions[band];
        session.wps_inited = 1;
        session.wps_priority = BANDS[band].priority;
        session.scan_path = BANDS[band].scan_path;
        copy_text(session.ifName, BANDS[band].ifname);
    }
    return 0;
}

kelm_session *kelm_get_wps_session(int band)
{
    if (band < 0 || band >= KELM_BAND_COUNT || global_wps_sessions == nullptr)
        return nullptr;
    return &global_wps_sessions[band];
}

int kelm_get_bandtype_by_session(const kelm_session *session)
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (session != nullptr && session == kelm_get_wps_session(band))
            return band;
    }
    return KELM_BAND_NONE;
}

int kelm_get_band_inited(int band)
{
    const kelm_session *session = kelm_get_wps_session(band & 3);
    return session == nullptr ? 0 : static_cast<int>(session->wps_inited);
}

uint32_t kelm_get_global_wpsflag_bit(uint32_t mask)
{
    return kelm_flag & mask;
}

uint32_t kelm_set_global_wpsflag_bit(uint32_t mask)
{
    kelm_flag |= mask;
    return kelm_flag;
}

uint32_t kelm_clean_global_wpsflag_bit(uint32_t mask)
{
    kelm_flag &= ~mask;
    return kelm_flag;
}

uint32_t kelm_get_wps_flags(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return 0;
    }
    return session->wps_flags;
}

void kelm_reset_wps_flags(int band)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    session->wps_flags = 0;
}

bool kelm_has_wps_flag(int band, uint32_t mask)
{
    return (kelm_get_wps_flags(band) & mask) != 0;
}

void kelm_set_wps_flag_bit(int band, uint32_t mask)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    session->wps_flags |= mask;
}

void kelm_clean_wps_flag_bit(int band, uint32_t mask)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    session->wps_flags &= ~mask;
}

void kelm_set_status(int band, int status)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    session->wps_status = status;
}

int kelm_get_status(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return WPS_STATUS_IDLE;
    }
    return session->wps_status;
}

int kelm_is_worker_done(int band)
{
    const kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return 1;
    }
    const uint32_t worker = session->wps_flags & (WPS_FLAG_WORKER_LAUNCH | WPS_FLAG_WORKER_DONE);
    return worker == WPS_FLAG_WORKER_LAUNCH ? 0 : 1;
}

void kelm_set_worker_done(int band)
{
    kelm_session *session = kelm_get_wps_session(band);
    if (session == nullptr) {
        kelm_log_bad_band(band);
        return;
    }
    kelm_log_normal("wps session done [band %d] [kelm_flags: 0x%08x].\n", band, session->wps_flags);
    session->wps_flags |= WPS_FLAG_WORKER_DONE;
}

void kelm_mark_launched_done()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        if ((kelm_get_wps_flags(band) & WPS_FLAG_WORKER_LAUNCH) != 0)
            kelm_set_wps_flag_bit(band, WPS_FLAG_WORKER_DONE);
    }
}

int kelm_get_succeed_band(int exclude)
{
    int best = KELM_BAND_NONE;
    int32_t best_priority = 0;
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (session == nullptr || !session->wps_inited || session->wps_status != WPS_STATUS_SUCCESS)
            continue;
        // For the callers exclude = 0 means "none", so band 0 cannot be excluded.
        if (exclude != 0 && band == exclude)
            continue;
        if (session->wps_priority > best_priority) {
            best = band;
            best_priority = session->wps_priority;
        }
    }
    return best;
}

void kelm_set_wps_alive(int value)
{
    char text[ALIVE_SIZE];
    (void)snprintf(text, sizeof text, "%d", value);
    if (kelm_replace_file(ALIVE_PATH, text, KELM_FOR_ALL) != 0)
        kelm_log_always("create /tmp/wpsactive fail\n");
}

void kelm_count_credentials()
{
    ++dirty;
}

void kelm_forget_attempt(bool keep_silence)
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        kelm_session *session = kelm_get_wps_session(band);
        if (session == nullptr || !session->wps_inited)
            continue;
        if (!keep_silence || session->wps_status != WPS_STATUS_SILENT)
            session->wps_status = WPS_STATUS_IDLE;
        session->wps_flags &= LASTING_FLAGS;
        copy_text(session->enrollee_mac, "");
        session->rootap = {};
        session->rootap_valid = 0;
    }
    time_boost = 0;
}

void kelm_clean_wksp()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (!kelm_get_band_inited(band))
            continue;
        kelm_set_status(band, WPS_STATUS_IDLE);
        kelm_reset_wps_flags(band);
    }
    kelm_clean_global_wpsflag_bit(0xFFFFFFFFu);
    dirty = 0;
}

void kelm_restart_wireless()
{
    kelm_set_global_wpsflag_bit(KELM_GFLAG_WIFI_RESTART);
    kelm_log_detail("kelm_flag: %x\n", kelm_flag);
}

void dump_wps_session()
{
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        const kelm_session *session = kelm_get_wps_session(band);
        if (session == nullptr || !session->wps_inited)
            continue;
        char flags[FLAG_TEXT_SIZE];
        _flags_text(session->wps_flags, flags);
        kelm_log_normal("session [band %d][ifName %s]======================>\n", band,
                        session->ifName);
        kelm_log_normal("\twps_status: %d\n", session->wps_status);
        kelm_log_normal("\twps_flags: %s\n", flags);
        kelm_log_normal("\twps_priority: %d\n", session->wps_priority);
        kelm_log_normal("\twps_score: %08x\n", static_cast<uint32_t>(session->wps_score));
        kelm_log_normal("\twps_inited: %08x\n", session->wps_inited);
        dump_rootap_info(&session->rootap, &session->rootap_valid);
    }
    kelm_log_normal("global_wps_flags: %08x\n", kelm_flag);
}

void dump_rootap_info(const kelm_rootap_info *rootap, const uint32_t *valid)
{
    uint32_t uuid[WPS_UUID_LEN / 2];
    for (size_t i = 0; i < WPS_UUID_LEN / 2; ++i)
        uuid[i] = static_cast<uint32_t>(rootap->uuid[2 * i] << 8 | rootap->uuid[2 * i + 1]);
    const uint8_t *mac = rootap->bssid;

    kelm_log_normal("\trootap uuid: %04x%04x-%04x-%04x-%04x-%04x%04x%04x\n", uuid[0], uuid[1],
                    uuid[2], uuid[3], uuid[4], uuid[5], uuid[6], uuid[7]);
    kelm_log_normal("\trootap bssid: %02x:%02x:%02x:%02x:%02x:%02x\n", mac[0], mac[1], mac[2],
                    mac[3], mac[4], mac[5]);
    kelm_log_normal("\trootap ssid: %s\n", rootap->ssid);
    kelm_log_normal("\trootap auth: %s, cipher: %s\n", rootap->auth, rootap->cipher);
    kelm_log_normal("\trootap channel: %u\n", rootap->channel);
    kelm_log_normal("\trootap qm data: %s\n", rootap->qm_data);
    kelm_log_normal("\trootap nodeid: %.5s, support_mesh: %u\n", rootap->nodeid,
                    rootap->support_mesh);
    if (valid != nullptr)
        kelm_log_normal("\trootap valid: %u\n", *valid);
}

}  // namespace kelm
