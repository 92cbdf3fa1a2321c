// SPDX-License-Identifier: ISC
// One pass of the loop: request, packet, clock, boost check, time-out.
#include "daemon/mainloop.h"

#include <cstring>
#include <ctime>

#include "core/exec.h"
#include "core/log.h"
#include "core/ops.h"
#include "core/run_mode.h"
#include "core/session.h"
#include "daemon/evaluation.h"
#include "ipc/bus.h"
#include "wlan/precheck.h"
#include "wlan/predict.h"
#include "wlan/rootap.h"

namespace kelm {

namespace {

constexpr uint32_t END_FLAGS =
    KELM_GFLAG_TERMINATE | KELM_GFLAG_WIFI_RESTART | KELM_GFLAG_WPS_RESTART;

// More than a socket's queue holds. Somebody who goes on sending cannot put off the time-out.
constexpr int MOST_WAITING_PACKETS = 512;

// One byte more than a packet can fill, so that its text always ends.
char kelm_msg_buf[KELM_MSG_SIZE + 1];

int32_t _now()
{
    return static_cast<int32_t>(time(nullptr));
}

// Times have 32 bits and become negative in January 2038. An attempt may run just then.
int32_t _seconds_between(int32_t earlier, int32_t later)
{
    return static_cast<int32_t>(static_cast<uint32_t>(later) - static_cast<uint32_t>(earlier));
}

// No command may run on after the end of the attempt.
void _limit_commands(bool running)
{
    if (running)
        kelm_end_commands_at(
            static_cast<int32_t>(static_cast<uint32_t>(time_start) + WPS_TIMEOUT_S));
    else
        kelm_let_commands_run();
}

void _restart_clock(int32_t now)
{
    time_start = now;
    _limit_commands(true);
}

// Handles the packets that wait, as later passes of the loop would have. For before the time-out,
// or before a band is given up: a success may wait behind other events, or have come while a script
// ran for long. False when one of the packets has ended the attempt.
bool _hear_waiting_events()
{
    const uint32_t asked_before = kelm_get_global_wpsflag_bit(END_FLAGS);
    for (const kelm_sock_entry *entry = kelm_sock_list; entry != nullptr; entry = entry->next) {
        for (int packet = 0; packet < MOST_WAITING_PACKETS; ++packet) {
            size_t length = KELM_MSG_SIZE;
            memset(kelm_msg_buf, 0, sizeof kelm_msg_buf);
            if (!kelm_take_waiting_packet(*entry, kelm_msg_buf, &length))
                break;
            (void)_kelm_process_msg(kelm_msg_buf, length, entry);
            if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) == 0 ||
                kelm_get_global_wpsflag_bit(END_FLAGS) != asked_before)
                return false;
        }
    }
    return true;
}

void _give_up_other_bands()
{
    kelm_mark_launched_done();
    (void)_kelm_worker_done_process();
    time_boost = 0;
}

// If one band of a repeater has succeeded, the others are waited for only as long as they have a
// fair chance.
void _boost_check()
{
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) == 0 ||
        kelm_get_run_mode() != KELM_MODE_REPEATER)
        return;

    const int succeeded = kelm_get_succeed_band(KELM_BAND_NONE);
    const kelm_session *session = kelm_get_wps_session(succeeded);
    const int32_t now = _now();
    if (session != nullptr) {
        if (time_boost == 0)
            time_boost = now;
        if ((session->wps_flags & WPS_FLAG_OVER_SCAN) == 0)
            trigger_over_scan(succeeded);
        for (int band = 0; band < KELM_BAND_COUNT; ++band) {
            if (kelm_get_band_inited(band))
                kelm_ops.band_tick(band);
        }
        if (_seconds_between(time_last_check, now) > 0 &&
            get_wps_predict_score() < PREDICT_GIVE_UP_PERCENT && _hear_waiting_events() &&
            !kelm_has_unused_step())  // a step heard just now counts in the next pass
            _give_up_other_bands();
    }
    time_last_check = now;
}

}  // namespace

int kelm_mainloop()
{
    do {
        size_t length = KELM_MSG_SIZE;
        memset(kelm_msg_buf, 0, sizeof kelm_msg_buf);
        wps_ibus_handle_event();
        const kelm_sock_entry *entry = _kelm_check_fd(kelm_msg_buf, &length, kelm_sock_list);
        (void)_kelm_process_msg(kelm_msg_buf, length, entry);
        kelm_update_time();
        _boost_check();
        wps_session_maintain();
    } while (kelm_get_global_wpsflag_bit(END_FLAGS) == 0);
    return _kelm_close();
}

int _kelm_process_msg(char *buffer, size_t length, const kelm_sock_entry *entry)
{
    if (entry == nullptr)
        return -1;
    switch (entry->packet_type) {
    case KELM_PKT_WORKER:
        return _kelm_process_worker_msg(static_cast<int>(entry->band), buffer, length);
    case KELM_PKT_ROOTAP:
        kelm_log_detail("received packet from monitor rootap info.\n");
        return _kelm_worker_process_rootapinfo(buffer, length);
    default:
        kelm_log_detail("Unknown packet type\n");
        return 0;
    }
}

int _kelm_process_worker_msg(int band, char *buffer, size_t length)
{
    if (kelm_ops.process_event_msg(band, buffer, static_cast<int>(length)) != 0)
        return 0;
    return _kelm_worker_done_process();
}

void kelm_update_time()
{
    const bool running = kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) != 0;
    if (running && time_start == 0)
        time_start = _now();
    else if (!running)
        time_start = 0;
    _limit_commands(running);
}

void wps_session_maintain()
{
    const int32_t now = _now();
    kelm_update_time();
    if (kelm_get_global_wpsflag_bit(KELM_GFLAG_WPS_RUNNING) == 0)
        return;
    // If the clock was set back by an hour, the attempt would get an hour more.
    if (_seconds_between(time_start, now) < 0)
        _restart_clock(now);
    if (_seconds_between(time_start, now) < WPS_TIMEOUT_S || !_hear_waiting_events())
        return;

    kelm_log_normal("wps Timeout, stop sessions[%d - %d]\n", time_start, now);
    kelm_mark_launched_done();
    for (int band = 0; band < KELM_BAND_COUNT; ++band) {
        if (kelm_get_band_inited(band) && kelm_get_status(band) != WPS_STATUS_SUCCESS)
            kelm_set_status(band, WPS_STATUS_TIMEOUT);
    }
    (void)_kelm_worker_done_process();
}

int _kelm_close()
{
    kelm_worker_sock_deinit();
    kelm_ops.kill_worker();
    return 0;
}

}  // namespace kelm
