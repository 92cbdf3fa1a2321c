// SPDX-License-Identifier: ISC
// The platform's table: which operation stands in which slot, and what the empty ones promise.
#include "core/ops.h"

#include <cstring>

#include "config/supplicant_credentials.h"
#include "ipc/bus.h"
#include "platform/rtk/ap_write_back.h"
#include "platform/rtk/control.h"
#include "platform/rtk/events.h"
#include "tests/unit/device.h"
#include "wlan/rootap.h"

using namespace kelm;
using namespace kelm_test;

namespace {

class ops : public device_test {};

}  // namespace

TEST_F(ops, the_table_names_the_operations_of_this_platform)
{
    EXPECT_STREQ("RTK", kelm_ops.name);
    EXPECT_EQ(rtk_start_worker, kelm_ops.start_worker);
    EXPECT_EQ(rtk_kill_wpas, kelm_ops.kill_worker);
    EXPECT_EQ(rtk_wpas_sock_init, kelm_ops.event_sock_init);
    EXPECT_EQ(rtk_wpas_sock_deinit, kelm_ops.event_sock_deinit);
    EXPECT_EQ(rtk_process_ibus_msg, kelm_ops.process_bus_msg);
    EXPECT_EQ(rtk_process_wpas_msg, kelm_ops.process_event_msg);
    EXPECT_EQ(rtk_get_sta_mac, kelm_ops.get_sta_mac);
    EXPECT_EQ(rtk_patching_back, kelm_ops.patching_back);
    EXPECT_EQ(rtk_set_ap_pin, kelm_ops.set_ap_pin);
    EXPECT_EQ(rtk_wps_cancel, kelm_ops.wps_cancel);
    EXPECT_EQ(rtk_get_wps_credentials, kelm_ops.get_wps_credentials);
}

TEST_F(ops, the_table_is_a_name_and_sixteen_slots_of_which_two_are_empty)
{
    static_assert(sizeof(kelm_platform_ops) == 17 * sizeof(void *), "a name and sixteen slots");
    const void *slots[17];
    memcpy(slots, &kelm_ops, sizeof slots);
    for (int slot = 1; slot <= 16; ++slot)
        EXPECT_EQ(slot == 5 || slot == 15, slots[slot] == nullptr) << "slot " << slot;
    EXPECT_EQ(nullptr, kelm_ops.slot5);
    EXPECT_EQ(nullptr, kelm_ops.slot15);
}

TEST_F(ops, the_slots_without_work_can_be_called_and_do_nothing)
{
    start(KELM_MODE_REPEATER, 5);
    kelm_dbg_level = 9;
    kelm_ops.slot10();
    for (int index = 0; index < KELM_BAND_COUNT; ++index)
        kelm_ops.band_tick(index);
    EXPECT_EQ("", log_text());
    EXPECT_EQ(words{}, recorded_commands());
    EXPECT_EQ(0u, kelm_flag);
}

TEST_F(ops, a_root_access_point_message_is_accepted_by_no_band)
{
    char message[sizeof(kelm_worker_rootapinfo)];
    memset(message, 'x', sizeof message);
    kelm_worker_rootapinfo rootap;
    memset(&rootap, 'y', sizeof rootap);
    const kelm_worker_rootapinfo before = rootap;
    int found = KELM_BAND_NONE;
    EXPECT_EQ(0, kelm_ops.parse_rootap_msg(message, sizeof message, &rootap, &found));
    EXPECT_EQ(KELM_BAND_NONE, found);
    EXPECT_EQ(0, memcmp(&before, &rootap, sizeof rootap));
}

TEST_F(ops, the_core_rejects_every_root_access_point_message_here)
{
    start(KELM_MODE_REPEATER, 5);
    kelm_session before[KELM_BAND_COUNT];
    memcpy(before, global_wps_sessions, sizeof before);
    const std::string message(sizeof(kelm_worker_rootapinfo), 'x');
    EXPECT_NE(0, _kelm_worker_process_rootapinfo(message.data(), message.size()));
    EXPECT_EQ(0, memcmp(before, global_wps_sessions, sizeof before));
}

TEST_F(ops, start_worker_names_the_interfaces_in_both_modes)
{
    start(KELM_MODE_REPEATER, 2);
    EXPECT_EQ(0, kelm_ops.start_worker());
    EXPECT_STREQ("wlan1-vxd", band(0).ifName);
    EXPECT_EQ(words{}, recorded_commands());

    start(KELM_MODE_AP, 2);
    write_wps_conf(1, 15, 15, "on", "12345670");
    EXPECT_EQ(0, kelm_ops.start_worker());
    EXPECT_STREQ("wlan1", band(0).ifName);
    EXPECT_EQ((words{"hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin set 12345670",
                     "hostapd_cli -p /var/run/hostapd -i wlan0 wps_ap_pin set 12345670"}),
              recorded_commands());
}
