// SPDX-License-Identifier: ISC
// The chief header: bands, status codes, flag words, the session record and the state of the main
// thread.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace kelm {

// Bands, always in this order. Their numbers are array indices, bits in the settings
// masks (1 << band) and part of file and key names. Do not renumber.
constexpr int KELM_BAND_2G = 0;
constexpr int KELM_BAND_5G = 1;
constexpr int KELM_BAND_5G2 = 2;
constexpr int KELM_BAND_6G = 3;
constexpr int KELM_BAND_COUNT = 4;
constexpr int KELM_BAND_NONE = 4;

constexpr bool kelm_is_band(int band)
{
    return band >= 0 && band < KELM_BAND_COUNT;
}

// Log levels: a line is written if kelm_dbg_level is at its level or above.
constexpr int KELM_LOG_ALWAYS = INT32_MIN;
constexpr int KELM_LOG_NORMAL = 4;
constexpr int KELM_LOG_DETAIL = 7;

// Run modes as "/tmp/device_runtime.info" names them.
constexpr int KELM_MODE_REPEATER = 0;
constexpr int KELM_MODE_AP = 1;

// Status of a band's WPS attempt. The numbers leave the process in the "wps" event: scripts and the
// web page compare them, so do not renumber. 1, 5, 6, 7 and 10 have the text "cancel"; the daemon
// never sets them.
enum kelm_wps_status : int32_t {
    WPS_STATUS_IDLE = 0,
    WPS_STATUS_SUCCESS = 2,
    WPS_STATUS_ERROR = 3,
    WPS_STATUS_TIMEOUT = 4,
    WPS_STATUS_OVERLAP = 8,
    WPS_STATUS_PBC_SEEN = 9,  // a root access point with an active button was found
    WPS_STATUS_STARTED = 11,
    WPS_STATUS_SILENT = 12,  // the band takes no part in this attempt
};

// Flag word of one session. The log prints the names; the values stay inside the process.
constexpr uint32_t WPS_FLAG_STABSS_ENABLE = 0x001;  // the station interface is enabled
constexpr uint32_t WPS_FLAG_APBSS_ENABLE = 0x002;   // the access point is enabled
constexpr uint32_t WPS_FLAG_STAWPS_FAKEUP = 0x004;  // takes part without an exchange of its own
constexpr uint32_t WPS_FLAG_STA_CONNECTED = 0x008;  // the station had its link before WPS
constexpr uint32_t WPS_FLAG_WORKER_LAUNCH = 0x010;  // the band's exchange was started
constexpr uint32_t WPS_FLAG_WORKER_DONE = 0x020;    // ... and has ended
constexpr uint32_t WPS_FLAG_NONE_SECURITY = 0x040;  // the access point is open
constexpr uint32_t WPS_FLAG_CONFIG_MIRROR = 0x080;  // takes the succeeded band's credentials
constexpr uint32_t WPS_FLAG_CONFIG_WIFI = 0x100;    // config_wifi ran: the wireless restarts
constexpr uint32_t WPS_FLAG_OVER_SCAN = 0x200;      // an extra scan was asked for

// Global flag word. 0x2, 0x100 and 0x1000 end the main loop.
constexpr uint32_t KELM_GFLAG_WPS_RUNNING = 0x0001;
constexpr uint32_t KELM_GFLAG_WPS_RESTART = 0x0002;
constexpr uint32_t KELM_GFLAG_TERMINATE = 0x0100;
constexpr uint32_t KELM_GFLAG_WIFI_RESTART = 0x1000;

// "action" of the published "wps" event.
constexpr int IBUS_WPS_ACTION_START = 1;
constexpr int IBUS_WPS_ACTION_DONE = 2;

// "method" of a "wps_cli" request.
constexpr int IBUS_WPS_METHOD_PBC = 1;
constexpr int IBUS_WPS_METHOD_PIN = 2;

constexpr size_t WPS_PIN_LEN = 8;
constexpr size_t WPS_IFNAME_SIZE = 16;
constexpr size_t WPS_STA_MAC_SIZE = 32;
constexpr size_t WPS_MAC_TEXT_LEN = 17;  // "aa:bb:cc:dd:ee:ff"
constexpr size_t WPS_BSSID_LEN = 6;
constexpr size_t WPS_UUID_LEN = 16;
constexpr size_t WPS_SSID_SIZE = 33;
constexpr size_t WPS_PASSWORD_SIZE = 65;
constexpr size_t WPS_QM_DATA_SIZE = 129;
constexpr size_t WPS_NODEID_LEN = 5;

constexpr int32_t WPS_TIMEOUT_S = 125;  // the walk time of 120 seconds and a few more

// The root access point that a band joined or was matched with. An empty text means unknown.
struct kelm_rootap_info {
    uint8_t uuid[WPS_UUID_LEN];
    uint8_t bssid[WPS_BSSID_LEN];
    char ssid[WPS_SSID_SIZE];
    char auth[16];    // "none" "wep" "wpa" "wpa2" "wpa/wpa2" "psk_sae" "sae_only" "owe"
    char cipher[16];  // "tkip" "aes" "auto"
    char password[WPS_PASSWORD_SIZE];
    uint8_t channel;
    char qm_data[WPS_QM_DATA_SIZE];  // the maker's mesh data; empty: none
    char nodeid[WPS_NODEID_LEN];     // five characters, never terminated
    uint8_t support_mesh;
};

// One band's part in the attempt.
struct kelm_session {
    uint32_t wps_inited;  // 1: the device has this band
    int32_t wps_status;
    int32_t wps_priority;  // of the succeeded bands, the one with the highest wins
    uint32_t wps_flags;
    const char *scan_path;  // scan result file of the band
    char ifName[WPS_IFNAME_SIZE];
    char enrollee_mac[WPS_STA_MAC_SIZE];
    kelm_rootap_info rootap;
    uint32_t rootap_valid;   // for the dump only, decides nothing; 1: an event has filled rootap
    int32_t pre_eap_status;  // progress step at the previous evaluation
    int32_t eap_status;      // latest progress step
    int32_t wps_score;       // chance of success in percent
};

// All names below belong to the program itself. This pragma says so to every file that uses them.
// Otherwise the code would look up their addresses at each use.
#pragma GCC visibility push(hidden)

// State of the main thread, defined in core/session.cpp. No other thread writes it, and the bus
// thread touches none of it.
extern kelm_session *global_wps_sessions;  // four records, null before kelm_create_session
extern uint32_t kelm_flag;                 // KELM_GFLAG_*
extern uint32_t kelm_band_mask;            // bands of this device, bit = 1 << band
extern int32_t kelm_rf_band;               // band-set code from "/tmp/device.info"
extern int32_t time_start;       // start of the running attempt, 0: none; seconds of time()
extern int32_t time_boost;       // first pass that saw a succeeded band, 0: none
extern int32_t time_last_check;  // last pass of the boost check
extern uint32_t dirty;           // credentials written in this run
extern int32_t factory_mode;     // 1: the device is in its factory state

// The log level. The signal handler changes it and both threads read it, so it is atomic.
extern std::atomic<int32_t> kelm_dbg_level;

// Band names in commands, file names, keys and the system log.
extern const char *const bandname[KELM_BAND_COUNT];

#pragma GCC visibility pop

}  // namespace kelm
