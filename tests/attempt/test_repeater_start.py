# SPDX-License-Identifier: ISC
"""A repeater's attempt as far as its start: which stations take part, and with which command."""
import signal

import pytest

from router import (CANCEL, PIN_METHOD, PROBE_LINES, REPEATER_MODE, publication_lines,
                    settings_line, ubus_send, wpa_cli)
from world import wait_for

EASYMESH = "config common settings\n\toption mesh_enable '{}'\n"
EASYMESH_UNKNOWN = '----------------check_easymesh_enable fail--------'
CANCELS = [wpa_cli('2g', 'wps_cancel'), wpa_cli('5g', 'wps_cancel')]
CANCEL_UNTOLD = ('In rtk_wps_cancel, do not need to send message IBUS_WPS_ACTION_DONE in RE mode, '
                 'skip it')


def start(router, links=(0, 0)):
    router.configure(mode=REPEATER_MODE, stations=3, enabled=0, available=0)
    for band, status in zip(('2g', '5g'), links):
        router.set_link(band, status)
    router.start(bands=(), stations=('2g', '5g'))
    router.console.forget()


def button_commands(router):
    return [line for line in router.commands() if 'wps_pbc' in line]


def test_a_press_starts_wps_on_both_stations(router):
    start(router)
    router.press_and_wait_started()
    assert router.console.lines()[2:] == [
        settings_line(enabled=0, available=0, stations=3),
        'eventCtrl open success',
        'eventCtrl open success',
        'echo -1 > /tmp/wps_result',
        '2G is disconnected before WPS',
        '5G is disconnected before WPS',
        'wps session start [0] [kelm_flags: 0x00000013]',
        'wps session start [1] [kelm_flags: 0x00000013]',
        'update factory_mode = 0',
        *publication_lines(1, 11, 11),
        'start wps band 0[wlan1-vxd]',
        EASYMESH_UNKNOWN,
        wpa_cli('2g', 'wps_pbc '),
        'start wps band 1[wlan0-vxd]',
        EASYMESH_UNKNOWN,
        wpa_cli('5g', 'wps_pbc '),
    ]
    assert router.commands() == [
        ubus_send(1, 11, 11), 'killall wpa_cli', 'nvram get multiap_mode',
        wpa_cli('2g', 'wps_pbc'), wpa_cli('5g', 'wps_pbc')]


@pytest.mark.parametrize('multiap, easymesh, word', [
    ('0', 'off', ''), ('1', 'off', ' multi_ap=1'), ('2', 'off', ''), ('', 'off', ''),
    ('0', 'on', ' multi_ap=2'), ('1', 'on', ' multi_ap=2'), ('1', 'On', ' multi_ap=1')])
def test_easymesh_wins_over_the_multi_ap_mode(router, multiap, easymesh, word):
    router.world.reply('nvram', f'echo {multiap}\n')
    router.world.write('/etc/config/wificommonCfg', EASYMESH.format(easymesh))
    start(router)
    router.press_and_wait_started()
    assert button_commands(router) == [
        wpa_cli('2g', f'wps_pbc{word}'), wpa_cli('5g', f'wps_pbc{word}')]


def test_a_connected_station_sits_the_attempt_out(router):
    start(router, links=(1, 0))
    router.press_and_wait_started()
    assert router.events() == [(1, 12, 11, 0)]
    assert button_commands(router) == [wpa_cli('5g', 'wps_pbc')]


def test_with_all_stations_connected_all_take_part(router):
    start(router, links=(1, 1))
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]
    assert len(button_commands(router)) == 2


def test_a_link_in_the_making_is_told_as_connected_and_takes_part(router):
    start(router, links=(2, 1))
    router.press_and_wait_started()
    assert '2G is connected before WPS' in router.console.lines()
    assert router.events() == [(1, 11, 12, 0)]


def test_a_cancel_is_sent_to_the_stations_and_not_published(router):
    start(router)
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()
    router.request(action=CANCEL)
    router.wait_taken(1)
    router.settle()
    assert router.commands() == CANCELS
    assert router.events() == []
    assert [line for line in router.console.lines() if line not in PROBE_LINES][:3] == [
        *CANCELS, CANCEL_UNTOLD]


def test_a_pin_request_starts_no_station(router):
    start(router)
    router.request(method=PIN_METHOD, pin='12345670')
    router.wait_taken(1)
    router.settle()
    assert router.commands() == [ubus_send(1, 11, 11)]
    # Nothing runs, so a press is not refused.
    router.press_and_wait_started()
    assert len(button_commands(router)) == 2


def test_a_success_stays_in_the_result_file_when_the_button_is_pressed_again(router):
    start(router)
    router.press_and_wait_started()
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    wait_for(lambda: router.world.read('/tmp/wps_result') == '1\n', 'the result')
    router.press()
    router.settle()
    assert router.world.read('/tmp/wps_result') == '1\n'


def test_sigterm_in_mid_attempt_publishes_the_time_out_without_a_cancel(router):
    start(router)
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.commands() == [ubus_send(2, 4, 4)]
    assert router.published == [(2, 4, 4, 0)]
