# SPDX-License-Identifier: ISC
"""What becomes of an attempt where the firmware lacks a part, as docs/integration.md tells it."""
import contextlib
import os

import pytest

from fault_steps import CANCELS, PBC, REG_SUCCESS, RESTART, begin
from router import REPEATER_MODE, ubus_send

HOSTAPD_FILE = """ssid=Chosen by hostapd
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_pairwise=CCMP
wpa_passphrase=0123456789abcdef
"""
SUPPLICANT_FILE = """network={
\tssid="Before"
\tdisabled=1
}
network={
\tssid="Root"
\tpsk="rootsecret"
\tproto=RSN
\tkey_mgmt=WPA-PSK
\tpairwise=CCMP
}
"""
NAMES = {'2g': '2.4G', '5g': '5G'}
LOOKS_FOR_A_SCAN = 6


@contextlib.contextmanager
def without(script):
    """The firmware has no such script meanwhile."""
    stand_in = os.readlink(script)
    os.unlink(script)
    try:
        yield
    finally:
        os.symlink(stand_in, script)


def let_client_in(router):
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0


def make_open_access_points_choose(router):
    router.configure(secured=(0, 0, 1, 1))
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)


def test_without_wps_conf_a_press_tells_that_no_band_takes_part_and_nothing_follows(router):
    os.unlink('/tmp/wps.conf')
    router.start(bands=())
    router.world.forget_commands()
    router.press()
    router.settle()
    assert router.events() == [(1, 12, 12, 0)]
    assert [line for line in router.commands() if 'hostapd_cli' in line] == []
    assert router.daemon.is_running()


def test_a_last_line_without_a_line_feed_loses_its_last_character(router):
    router.world.write('/tmp/wps.conf', 'enabled=1\npinEnabled=off\napWpsAvailable=3')
    router.start(bands=())
    router.press()
    router.settle()
    assert router.events() == [(1, 12, 12, 0)]


@pytest.mark.parametrize('secured', [(0, 0, 1, 1), (1, 1, 1, 1)], ids=['open', 'secured'])
def test_without_wifi_conf_the_success_of_an_access_point_is_an_error(router, secured):
    router.configure(secured=secured)
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    os.unlink('/tmp/wifi.conf')
    begin(router)
    let_client_in(router)
    assert router.commands() == [*CANCELS, ubus_send(2, 12, 12), ubus_send(2, 3, 4), RESTART]
    assert router.world.read('/tmp/wps_wifi_ap.txt') is None


def test_without_hostapds_file_a_secured_access_point_succeeds(router):
    begin(router)
    assert not os.path.exists('/tmp/run/hostapd-wlan1.conf')
    let_client_in(router)
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]


def test_a_band_of_the_mask_without_a_socket_bars_the_start_though_it_is_switched_off(router):
    text = router.world.read('/tmp/wifi.conf')
    router.world.write('/tmp/wifi.conf', text.replace('_5g=on', '_5g=off'))
    router.start_bus()
    router.add_hostapd('2g')
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines()[-1] == 'kelm open failed.'
    assert not os.path.lexists('/tmp/kelm.pid')


def test_a_mask_of_one_band_serves_it_without_the_others_socket(router):
    router.configure(available=1)
    router.start(bands=('2g',))
    router.world.forget_commands()
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 12, 0)]
    assert [line for line in router.commands() if 'wps_pbc' in line] == PBC[:1]


def test_without_the_service_script_the_attempt_ends_and_nothing_starts_the_next(router):
    with without('/etc/init.d/wps'):
        begin(router)
        let_client_in(router)
    assert router.commands() == [*CANCELS, ubus_send(2, 12, 12), ubus_send(2, 2, 4)]
    assert router.published[-1] == (2, 2, 4, 0)


def test_without_the_wireless_script_new_settings_are_stored_and_nothing_is_restarted(router):
    make_open_access_points_choose(router)
    with without('/etc/init.d/wifi'):
        router.start()
        router.press_and_wait_started()
        router.world.forget_commands()
        let_client_in(router)
    assert router.commands() == [
        '/etc/init.d/wps config_wifi', *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 2, 4),
        '/etc/init.d/wps re_kelm_info']


def start_repeater(router):
    router.configure(mode=REPEATER_MODE, stations=3)
    for band in ('2g', '5g'):
        router.set_link(band, 0)
        router.world.write(f'/mnt/scan.{band}', '[]')
    router.world.reply('/usr/bin/wifi', '[ "$1" != getscanresult ] || '
                                        'cp "/mnt/scan.$2" "/tmp/wifi_scan_$2.result"\n')
    for interface in ('wlan1-vxd', 'wlan0-vxd'):
        router.world.write(f'/tmp/run/wpa_supplicant-{interface}.conf', SUPPLICANT_FILE)
    router.start(bands=(), stations=('2g', '5g'))
    router.world.forget_commands()


def enrol_both(router):
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-SUCCESS ')
        router.wait_line(f'processing wpsEvent[{NAMES[band]}]: <3>WPS-SUCCESS ')
    assert router.end() == 0


def test_without_a_link_file_a_repeaters_press_is_refused_and_not_told(router):
    start_repeater(router)
    os.unlink('/tmp/wifi_runtime_info.2g')
    router.press()
    router.settle()
    assert (router.events(), router.commands()) == ([], [])
    router.set_link('2g', 0)
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]


def test_without_wifi_conf_a_repeaters_success_is_an_error(router):
    start_repeater(router)
    os.unlink('/tmp/wifi.conf')
    enrol_both(router)
    assert router.published == [(2, 3, 3, 0)]
    assert [line for line in router.commands() if line.startswith('/etc/init.d/')] == [
        '/etc/init.d/wps re_kelm_info', RESTART]
    assert router.world.read('/tmp/wps_wifi_sta.txt') is None


def test_a_station_without_its_wpa_supplicant_bars_the_start(router):
    router.configure(mode=REPEATER_MODE, stations=3)
    router.start_bus()
    router.add_supplicant('2g')
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines()[-1] == 'kelm open failed.'
    assert not os.path.lexists('/tmp/kelm.pid')


def test_without_the_scan_tool_a_repeater_looks_five_times_more_and_stores_what_it_learnt(router):
    with without('/usr/bin/wifi'):
        start_repeater(router)
        # The daemon pauses between two looks, here for no time.
        router.world.write('/mnt/bin/sleep', '#!/bin/sh\n')
        os.chmod('/mnt/bin/sleep', 0o755)
        try:
            enrol_both(router)
        finally:
            os.unlink('/mnt/bin/sleep')
    looks = [line for line in router.console.lines() if line.startswith('/usr/bin/wifi getscan')]
    assert looks == [f'/usr/bin/wifi getscanresult {band}'
                     for band in ('2g', '5g') for _ in range(LOOKS_FOR_A_SCAN)]
    assert '"password_2g": "rootsecret"' in router.world.read('/tmp/wps_wifi_sta.txt')
    assert '/etc/init.d/wifi force_restart' in router.commands()
