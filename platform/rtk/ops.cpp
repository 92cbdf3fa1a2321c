// SPDX-License-Identifier: ISC
// The Realtek platform's table: the one file that names every operation.
#include "core/ops.h"

#include "config/supplicant_credentials.h"
#include "platform/rtk/ap_write_back.h"
#include "platform/rtk/control.h"
#include "platform/rtk/events.h"

namespace kelm {

namespace {

void _rtk_nothing() {}

void _rtk_band_tick(int) {}

// This platform sends no root access point messages. The band stays unset, so the daemon ignores
// the message.
int _rtk_parse_rootap_msg(const char *, size_t, kelm_worker_rootapinfo *, int *)
{
    return 0;
}

}  // namespace

const kelm_platform_ops kelm_ops = {
    "RTK",
    rtk_start_worker,
    rtk_kill_wpas,
    rtk_wpas_sock_init,
    rtk_wpas_sock_deinit,
    nullptr,
    rtk_process_ibus_msg,
    rtk_process_wpas_msg,
    rtk_get_sta_mac,
    rtk_patching_back,
    _rtk_nothing,
    rtk_set_ap_pin,
    rtk_wps_cancel,
    _rtk_band_tick,
    _rtk_parse_rootap_msg,
    nullptr,
    rtk_get_wps_credentials,
};

}  // namespace kelm
