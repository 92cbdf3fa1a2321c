# SPDX-License-Identifier: ISC
"""Whole access-point attempts, from the request to the restart."""
import json
import os
import signal
import socket

import pytest

import wire
from router import (BUTTON_METHOD, CANCEL, NO_ACTION, PIN_METHOD, PRESS, PRESS_TEXT, PROBE_LINES,
                    START, dump_lines, hostapd_cli, publication_lines, settings_line, ubus_send)
from world import wait_for

PIN_OFF = [hostapd_cli('2g', 'wps_ap_pin disable'), hostapd_cli('5g', 'wps_ap_pin disable')]
PBC = [hostapd_cli('2g', 'wps_pbc'), hostapd_cli('5g', 'wps_pbc')]
CANCELS = [hostapd_cli('2g', 'wps_cancel'), hostapd_cli('5g', 'wps_cancel')]
START_COMMANDS = [ubus_send(1, 11, 11), 'killall wpa_cli', 'nvram get multiap_mode', *PBC]
# The settings are looked at again, then the control sockets are opened anew.
REBUILD_LINES = [
    settings_line(),
    'eventCtrl open success',
    'eventCtrl open success',
]
START_LINES = [
    *REBUILD_LINES,
    'echo -1 > /tmp/wps_result',
    *publication_lines(1, 11, 11),
    'start wps band 0[wlan1]',
    PBC[0],
    'start wps band 1[wlan0]',
    PBC[1],
]
MAC = '02:00:00:00:07:00'
REG_SUCCESS = f'<3>WPS-REG-SUCCESS {MAC} 7ab3a5b8-0b25-5b3c-9a4f-5f6a5a1f0001'
RUNNING = ('APBSS_ENABLE', 'WORKER_LAUNCH')
DONE = ('APBSS_ENABLE', 'WORKER_LAUNCH', 'WORKER_DONE')
HOSTAPD_FILE = """interface=wlan1
ssid=Chosen by hostapd
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_pairwise=CCMP
wpa_passphrase=0123456789abcdef
"""


def begin(router, environment=None, **settings):
    """Starts an attempt with the button and forgets the way there."""
    if settings:
        router.configure(**settings)
    router.start(environment=environment)
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()


def finish_lines(codes, dump, succeeded, flag_word=1):
    """From the judgement to the published result, nothing patched."""
    outcome = [f'{band} wps_monitor {"succeed" if band in succeeded else "failed"}.'
               for band in ('2g', '5g')]
    return [
        f'echo {1 if succeeded else 0} > /tmp/wps_result',
        'All of the worker process finised, now we check the result of Ap Mode.',
        *outcome,
        *dump,
        f'global_wps_flags: {flag_word:08x}',
        f'AP MODE:wps done, send wps msg: {codes[0]}, {codes[1]}',
        *CANCELS,
        *publication_lines(2, 12, 12),
        *publication_lines(2, *codes),
    ]


def test_push_button_on_24_ghz_from_the_press_to_the_restart(router):
    """The whole transcript, and no signal ends the daemon's waits early."""
    router.start()
    router.world.forget_commands()
    router.press_and_wait_started(poke=False)
    assert router.console.lines() == [f'Message: {PRESS_TEXT}', 'ibus event: 4', *START_LINES]
    assert router.commands() == START_COMMANDS
    assert router.events() == [(1, 11, 11, 0)]
    assert router.world.read('/tmp/wps_result') == '-1\n'
    assert router.info() == [
        ('wps_action', 1), ('wl0_wps_status', 'ok'), ('wl0_wps_sta_mac', ''),
        ('wl1_wps_status', 'ok'), ('wl1_wps_sta_mac', '')]

    router.console.forget()
    router.world.forget_commands()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end(poke=False) == 0
    assert router.console.lines() == [
        f'processing wpsEvent[2.4G]: {REG_SUCCESS}',
        'wps session done [band 0] [kelm_flags: 0x00000012].',
        f'got macAddr {MAC}',
        *finish_lines((2, 4), [*dump_lines(0, 'wlan1', 2, DONE, 10),
                               *dump_lines(1, 'wlan0', 11, RUNNING, 20)], ('2g',)),
        'stop wps action.',
        'wps session done [band 1] [kelm_flags: 0x00000012].',
    ]
    assert router.commands() == [
        *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 2, 4), '/etc/init.d/wps restart']
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert router.world.read('/tmp/kelm.info') == (
        '{ "wps_action": 2, "wl0_wps_status": "success", "wl0_wps_sta_mac": "02:00:00:00:07:00", '
        '"wl1_wps_status": "ok", "wl1_wps_sta_mac": "" }\n')
    assert router.world.read('/tmp/wps_wifi_ap.txt') is None
    assert router.world.read('/tmp/wpsactive') == '1\n'
    assert os.path.lexists('/tmp/kelm.pid') is False
    assert [name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')] == []


def test_log_lines_name_the_function_that_log_readers_know(router):
    router.start()
    router.press_and_wait_started()
    assert router.console.functions() == [
        'wps_ubus_gpio_cb', 'rtk_process_ibus_msg', 'kelm_check_available_status',
        'rtk_wpas_sock_init', 'rtk_wpas_sock_init', 'kelm_update_wps_result_file',
        'wps_ubus_send_wps_event', 'wps_ubus_send_wps_event',
        'rtk_pbc_handle', 'wps_exec_cmd', 'rtk_pbc_handle', 'wps_exec_cmd']
    router.console.forget()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    cancel_and_publish = ['wps_exec_cmd'] * 2 + ['wps_ubus_send_wps_event'] * 4
    assert router.console.functions() == [
        'rtk_process_wpas_msg', 'kelm_set_worker_done', 'rtk_wps_GetEnrolleeMac',
        'kelm_update_wps_result_file', '_kelm_worker_done_process', 'kelm_is_worker_succeed',
        'kelm_is_worker_succeed', *['dump_wps_session'] * 13, '_kelm_worker_done_process',
        *cancel_and_publish, 'rtk_kill_wpas', 'kelm_set_worker_done']


def test_push_button_on_5_ghz_ends_while_24_ghz_still_runs(router):
    begin(router)
    router.hostapd['5g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 4, 2, 0)]
    assert router.console.lines() == [
        f'processing wpsEvent[5G]: {REG_SUCCESS}',
        'wps session done [band 1] [kelm_flags: 0x00000012].',
        f'got macAddr {MAC}',
        *finish_lines((4, 2), [*dump_lines(0, 'wlan1', 11, RUNNING, 10),
                               *dump_lines(1, 'wlan0', 2, DONE, 20)], ('5g',)),
        'stop wps action.',
        'wps session done [band 0] [kelm_flags: 0x00000012].',
    ]
    assert router.info() == [
        ('wps_action', 2), ('wl0_wps_status', 'ok'), ('wl0_wps_sta_mac', ''),
        ('wl1_wps_status', 'success'), ('wl1_wps_sta_mac', MAC)]


def test_one_band_that_times_out_does_not_end_the_attempt(router):
    begin(router)
    router.hostapd['2g'].send('<3>WPS-TIMEOUT')
    router.settle()
    assert router.daemon.is_running()
    assert router.commands() == []
    assert router.world.read('/tmp/wps_result') == '-1\n'
    router.hostapd['5g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 4, 2, 0)]
    assert ('wl0_wps_status', 'timeout') in router.info()


def test_nobody_comes_and_both_bands_time_out(router):
    begin(router)
    for band in ('2g', '5g'):
        router.hostapd[band].send('<3>WPS-TIMEOUT')
    assert router.end() == 0
    assert router.commands() == [
        *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 4, 4), '/etc/init.d/wps restart']
    assert router.world.read('/tmp/wps_result') == '0\n'
    assert [value for _, value in router.info()] == [2, 'timeout', '', 'timeout', '']


def test_an_overlap_is_published_as_a_failure_and_told_in_the_info_file(router):
    begin(router)
    for band in ('2g', '5g'):
        router.hostapd[band].send('<3>WPS-OVERLAP-DETECTED')
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 4, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '0\n'
    assert [value for _, value in router.info()] == [2, 'overlap', '', 'overlap', '']


def test_after_125_seconds_without_an_event_the_attempt_ends(router):
    begin(router)
    router.settle()  # the clock of the attempt starts at the end of the pass
    router.console.forget()
    router.world.shift_time(120)
    router.settle()
    assert router.daemon.is_running()
    assert router.commands() == []
    router.world.shift_time(126)
    assert router.end() == 0
    lines = [line for line in router.console.lines() if line not in PROBE_LINES]
    assert lines[0].startswith('wps Timeout, stop sessions[')
    start, now = map(int, lines[0].removesuffix(']').split('[')[1].split(' - '))
    assert 125 <= now - start <= 135
    dump = [*dump_lines(0, 'wlan1', 4, DONE, 10), *dump_lines(1, 'wlan0', 4, DONE, 20)]
    assert lines[1:] == finish_lines((4, 4), dump, ())
    assert router.commands() == [
        *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 4, 4), '/etc/init.d/wps restart']


def test_the_clock_starts_anew_with_an_attempt_after_a_cancel(router):
    begin(router)
    router.request(action=CANCEL)
    router.wait_taken(1)
    router.world.shift_time(1000)
    router.press_and_wait_started()
    router.settle()
    assert router.daemon.is_running()
    assert not any(line.startswith('wps Timeout') for line in router.console.lines())


def test_hostapd_that_dies_in_mid_attempt_leaves_the_time_out(router):
    begin(router)
    for band in ('2g', '5g'):
        router.hostapd[band].close()
    router.hostapd = {}
    router.settle()
    assert router.daemon.is_running()
    router.world.shift_time(130)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 4, 4, 0)]
    assert [name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')] == []


def test_an_open_access_point_gets_hostapds_settings_written_back(router):
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    router.world.write('/tmp/wps_wifi_ap.txt', '{"left": "from an earlier attempt"}\n')
    router.world.write('/tmp/wps_wifi_sta.txt', '{}\n')
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.commands() == [
        '/etc/init.d/wps config_wifi', *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 2, 4),
        '/etc/init.d/wps re_kelm_info', '/etc/init.d/wifi force_restart']
    lines = router.console.lines()
    assert 'Analyze hostapd config file /tmp/run/hostapd-wlan1.conf' in lines
    at = lines.index('AP MODE:wps done, send wps msg: 2, 4')
    assert lines[at + 1] == '/etc/init.d/wps config_wifi'
    assert lines[-3:] == ['do wifi restart', 'wps_status 2G = 1, 5G = 0.',
                          'Normal WPS success restart.']
    flags = '[WPS_FLAG_APBSS_ENABLE][WPS_FLAG_NONE_SECURITY][WPS_FLAG_WORKER_LAUNCH]'
    assert f'\twps_flags: {flags}[WPS_FLAG_WORKER_DONE]' in lines
    assert router.world.mode('/tmp/wps_wifi_ap.txt') == 0o600
    assert list(json.loads(router.world.read('/tmp/wps_wifi_ap.txt')).items()) == [
        ('enable_2g', 'on'), ('ssid_2g', 'Chosen by hostapd'), ('hide_2g', 0),
        ('sec_follow_2g', 'false'), ('sec_2g', 'wpa2'), ('index_2g', 1),
        ('password_2g', '0123456789abcdef'), ('securityType_2g', 1), ('wpaVersion_2g', 2),
        ('wpaEncryption_2g', 2), ('wepAuthType_2g', 0), ('wepKeyFormat_2g', 0)]
    assert router.world.read('/tmp/wps_wifi_sta.txt') == ''


def test_a_line_of_hostapds_file_longer_than_its_buffer_harms_nothing(router):
    long_lines = f'a={"x" * 319}\nb={"x" * 320}\nc={"x" * 321}\nd={"x" * 5000}\n'
    router.world.write('/tmp/run/hostapd-wlan1.conf', long_lines + HOSTAPD_FILE + long_lines)
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    settings = json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))
    assert settings['ssid_2g'] == 'Chosen by hostapd'
    assert settings['password_2g'] == '0123456789abcdef'


def test_values_of_hostapds_file_longer_than_their_place_are_cut(router):
    text = f'ssid={"s" * 200}\nwpa=2\nwpa_psk={"p" * 200}\n'
    router.world.write('/tmp/run/hostapd-wlan1.conf', text)
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    settings = json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))
    assert settings['ssid_2g'] in ('s' * 32, 's' * 33)
    assert settings['password_2g'] == 'p' * 64


def test_an_open_band_that_did_not_succeed_is_not_written_back(router):
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['5g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.commands()[-1] == '/etc/init.d/wps restart'
    assert router.world.read('/tmp/wps_wifi_ap.txt') is None


def test_settings_pushed_by_a_registrar_are_written_and_applied_at_once(router):
    router.world.write('/tmp/run/hostapd-wlan0.conf', HOSTAPD_FILE)
    router.configure(pin='12345670')
    router.start()
    router.world.forget_commands()
    router.world.write('/tmp/wps_wifi_ap.txt', '{"left": "from an earlier attempt"}\n')
    router.hostapd['5g'].send('<3>WPS-NEW-AP-SETTINGS 0102030405')
    router.wait_line('/etc/init.d/wps config_wifi')
    router.settle()
    assert router.daemon.is_running()
    assert router.commands() == ['/etc/init.d/wps config_wifi']
    settings = json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))
    assert settings['ssid_5g'] == 'Chosen by hostapd' and 'left' not in settings
    assert router.world.mode('/tmp/wps_wifi_ap.txt') == 0o600
    router.hostapd['5g'].send('<3>WPS-SUCCESS')
    assert router.end() == 0
    # No worker of ours succeeded, so the WPS service is restarted rather than the wireless.
    assert router.commands()[1:] == ['/etc/init.d/wps re_kelm_info', '/etc/init.d/wps restart']
    assert router.console.lines()[-3:] == [
        'do wifi restart', 'wps_status 2G = 0, 5G = 0.', 'mesh WPS fail restart.']


@pytest.mark.parametrize('event', ['<3>WPS-SUCCESS ', '<3>WPS-PBC-DISABLE '])
def test_the_end_of_hostapds_wps_without_new_settings_restarts_the_service(router, event):
    router.start()
    router.world.forget_commands()
    router.hostapd['2g'].send(event)
    assert router.end() == 0
    assert router.commands() == ['/etc/init.d/wps restart']
    assert router.published == []


@pytest.mark.parametrize('event', [
    '<3>WPS-ENROLLEE-SEEN 02:00:00:00:07:00 uuid', f'<3>AP-STA-CONNECTED {MAC}',
    '<3>WPS-FAIL msg=8', 'nothing known', '', 'x' * 2048, 'WPS-' * 1024])
def test_other_events_change_nothing(router, event):
    begin(router)
    router.hostapd['2g'].send(event)
    router.hostapd['2g'].send('<3>marker')
    router.wait_line('processing wpsEvent[2.4G]: <3>marker')
    router.settle()
    assert router.daemon.is_running()
    assert router.commands() == []
    assert router.world.read('/tmp/wps_result') == '-1\n'


EVENT_NAMES = ['WPS-NEW-AP-SETTINGS', 'WPS-SUCCESS', 'WPS-REG-SUCCESS', 'WPS-TIMEOUT',
               'WPS-OVERLAP-DETECTED', 'WPS-PBC-DISABLE']


def tell_of_neighbours(router):
    """hostapd tells of devices that are called like its own events."""
    router.console.forget()
    router.world.forget_commands()
    for name in EVENT_NAMES:
        router.hostapd['2g'].send(f'<3>WPS-PIN-NEEDED 7ab3 {MAC} [{name}|{name}|{name}| | |1-1]')
    router.hostapd['2g'].send('<3>marker')
    router.wait_line('processing wpsEvent[2.4G]: <3>marker')
    router.settle()
    assert router.commands() == []


def test_names_of_neighbours_are_no_events_idle_or_in_mid_attempt(router):
    router.start()
    tell_of_neighbours(router)
    router.press_and_wait_started()
    router.events()
    tell_of_neighbours(router)
    assert router.world.read('/tmp/wps_result') == '-1\n'
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]


def test_a_datagram_that_fills_the_buffer_is_read_to_its_last_byte(router):
    begin(router)
    event = REG_SUCCESS + ' '
    router.hostapd['2g'].send(event + 'x' * (2048 - len(event)))
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    # The console line is cut where its own buffer ends.
    first = router.console.text().split('kelm[')[1]
    assert len('kelm[' + first) == 2047


def test_an_event_that_spans_the_end_of_a_longer_datagram_is_not_seen(router):
    begin(router)
    router.hostapd['2g'].send('x' * 2040 + 'WPS-TIMEOUT')
    router.hostapd['5g'].send('<3>WPS-TIMEOUT')
    router.settle()
    assert router.daemon.is_running()  # one band alone has timed out


def test_an_event_with_a_zero_byte_ends_there(router):
    begin(router)
    router.hostapd['2g'].send(b'<3>one\0WPS-REG-SUCCESS')
    router.wait_line('processing wpsEvent[2.4G]: <3>one')
    router.settle()
    assert router.daemon.is_running()


def test_a_success_without_an_address_leaves_the_address_empty(router):
    begin(router)
    router.hostapd['2g'].send('<3>WPS-REG-SUCCESS')
    assert router.end() == 0
    assert [value for _, value in router.info()] == [2, 'success', '', 'ok', '']


def test_a_very_long_address_is_cut(router):
    begin(router)
    router.hostapd['2g'].send('<3>WPS-REG-SUCCESS ' + 'a' * 500)
    assert router.end() == 0
    assert dict(router.info())['wl0_wps_sta_mac'] in ('a' * 31, 'a' * 32)


def test_a_short_address_is_not_told(router):
    begin(router)
    router.hostapd['2g'].send('<3>WPS-REG-SUCCESS 02:00:00:00:07:0')
    assert router.end() == 0
    assert dict(router.info())['wl0_wps_sta_mac'] == ''


def test_second_press_while_running_is_ignored(router):
    begin(router)
    router.press()
    router.settle()
    assert router.commands() == []
    assert router.events() == []
    assert router.daemon.is_running()
    # The connections are the attempt's own, and serve it to its end.
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]


def test_many_presses_leave_no_descriptors_behind(router):
    begin(router)
    folder = f'/proc/{router.daemon.pid}/fd'
    before = len(os.listdir(folder))
    for _ in range(10):
        router.press()
        router.settle()
    assert len(os.listdir(folder)) == before
    assert [len(router.hostapd[band].clients) for band in ('2g', '5g')] == [1, 1]
    assert len([name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')]) == 2


def test_the_refusal_of_a_second_press_is_logged_in_detail(router):
    begin(router)
    for _ in range(3):
        router.console.forget()
        router.daemon.send(signal.SIGUSR1)
        router.wait_line('global_wps_flags: 00000001')
    router.press()
    router.settle()
    assert router.console.lines().count('WPS is processing, ignore button press....') == 1


def test_two_presses_between_two_passes_are_one_request(router):
    router.world.reply('hostapd_cli', 'while [ ! -e /tmp/go ]; do sleep 0.02; done\n')
    router.start_bus()
    router.add_hostapd('2g', '5g')
    router.launch()
    router.wait_registered(in_loop=False)
    for _ in range(2):
        router.bus.send('gpio', PRESS)
    wait_for(lambda: router.console.lines().count(f'Message: {PRESS_TEXT}') == 2, 'both presses')
    router.world.write('/tmp/go', '')
    wait_for(lambda: router.world.read('/tmp/wpsactive'), 'the attempt', between=router.daemon.poke)
    router.settle()
    assert router.taken_requests() == 2  # the press and what settle() asked
    assert router.console.lines().count('ibus event: 4') == 1


def test_a_newer_request_replaces_one_that_was_not_taken(router):
    router.world.reply('hostapd_cli', 'while [ ! -e /tmp/go ]; do sleep 0.02; done\n')
    router.start_bus()
    router.add_hostapd('2g', '5g')
    router.launch()
    router.wait_registered(in_loop=False)
    router.bus.send('gpio', PRESS)
    router.request(action=CANCEL)
    router.request(action=None)  # its answer shows that the two before are in
    router.wait_line('Invalid action.', poke=False)
    router.world.write('/tmp/go', '')
    router.wait_line('ibus event: 10')
    router.settle()
    assert router.console.lines().count('ibus event: 4') == 0


def test_a_band_that_is_switched_off_sits_the_attempt_out(router):
    router.configure(available=2)
    router.start(bands=('5g',))
    router.press_and_wait_started()
    assert router.events() == [(1, 12, 11, 0)]
    assert [line for line in router.commands() if 'wps_pbc' in line] == [PBC[1]]
    router.hostapd['5g'].send('<3>WPS-TIMEOUT')
    assert router.end() == 0
    assert router.published == [(2, 0, 12, 0), (2, 12, 4, 0)]
    assert [value for _, value in router.info()] == [2, 'silent', '', 'timeout', '']


def test_a_device_with_5_ghz_alone_tells_of_that_band_alone(router):
    router.configure(band_set=1)
    router.start(bands=('5g',))
    assert router.commands() == [PIN_OFF[1]]
    router.press_and_wait_started()
    assert router.events() == [(1, 0, 11, 0)]
    assert router.info() == [('wps_action', 1), ('wl1_wps_status', 'ok'), ('wl1_wps_sta_mac', '')]
    router.hostapd['5g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 0, 12, 0), (2, 0, 2, 0)]


def test_a_second_5_ghz_radio_that_is_off_is_silent(router):
    router.configure(band_set=3)
    router.start()
    # It has no interface name on this platform, which shows in its command.
    assert router.commands() == [
        *PIN_OFF, 'hostapd_cli -p /var/run/hostapd -i wps_ap_pin disable']
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 12)]
    assert [key for key, _ in router.info()][-2:] == ['wl2_wps_status', 'wl2_wps_sta_mac']
    assert dict(router.info())['wl2_wps_status'] == 'silent'


def test_a_press_while_the_wireless_starts_does_nothing(router):
    router.world.write('/tmp/wifid_is_starting', '')
    router.start()
    router.world.forget_commands()
    router.press()
    router.settle()
    assert router.commands() == []
    assert router.events() == []
    assert router.world.read('/tmp/wps_result') == '-1\n'
    assert router.world.read('/tmp/wpsactive') is None
    os.unlink('/tmp/wifid_is_starting')
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]


def test_left_result_files_are_removed_at_the_start_of_an_attempt(router):
    router.start()
    for path in ('/tmp/_wps_wifi_sta.txt', '/tmp/_wps_wifi_ap.txt'):
        router.world.write(path, '{}\n')
    router.press_and_wait_started()
    for path in ('/tmp/_wps_wifi_sta.txt', '/tmp/_wps_wifi_ap.txt'):
        assert router.world.read(path) is None


def test_a_press_without_hostapd_is_refused_and_the_daemon_goes_on(router):
    router.start()
    router.world.forget_commands()
    router.hostapd.pop('2g').close()
    router.press()
    router.wait_line('Rebuild worker socket failed.')
    router.settle()
    assert "Can't open event ctrl" in router.console.lines()
    assert router.commands() == []
    assert router.world.read('/tmp/wps_result') is None
    router.add_hostapd('2g')
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 2, 4, 0)


def test_settings_that_changed_since_the_start_count_at_the_next_press(router):
    router.start()
    router.configure(available=1)
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 12, 0)]
    assert [line for line in router.commands() if 'wps_pbc' in line] == [PBC[0]]


def test_pin_attempt_from_the_request_to_the_restart(router):
    router.start()
    router.world.forget_commands()
    router.request(method=PIN_METHOD, pin='12345670')
    pins = [hostapd_cli('2g', 'wps_pin any 12345670'), hostapd_cli('5g', 'wps_pin any 12345670')]
    router.wait_command(pins[1])
    router.settle()
    started = [line for line in router.console.lines() if line not in PROBE_LINES]
    assert started == [
        *REBUILD_LINES,
        'IBUS_WPS_METHOD_PIN ',
        *publication_lines(1, 11, 11),
        *pins,
    ]
    assert router.commands() == [ubus_send(1, 11, 11), *pins]
    # Unlike a press, a PIN leaves these two alone.
    assert router.world.read('/tmp/wps_result') is None
    assert router.world.read('/tmp/wpsactive') is None
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 2, 4, 0)
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert router.commands()[-1] == '/etc/init.d/wps restart'


def test_a_pin_is_logged_in_detail_and_with_its_method_only(router):
    router.start()
    for _ in range(3):
        router.console.forget()
        router.daemon.send(signal.SIGUSR1)
        router.wait_line('global_wps_flags: 00000000')
    router.console.forget()
    router.request(action=NO_ACTION, method=BUTTON_METHOD, pin='12345670')
    router.request(action=NO_ACTION, method=PIN_METHOD, pin='87654321')
    wait_for(lambda: any('pincode' in line for line in router.console.lines()), 'the PIN')
    assert [line for line in router.console.lines() if 'pincode' in line] == [
        'action: 9, pincode: 87654321']


def test_a_pin_request_leaves_an_older_result_file_untouched(router):
    router.start()
    router.world.write('/tmp/wps_result', '0\n')
    router.request(method=PIN_METHOD, pin='1234')
    router.wait_command(hostapd_cli('5g', 'wps_pin any 1234'))
    router.settle()
    assert router.world.read('/tmp/wps_result') == '0\n'


def test_a_pin_goes_to_the_enabled_bands_only(router):
    router.configure(available=1)
    router.start(bands=('2g',))
    router.request(method=PIN_METHOD, pin='12345670')
    router.wait_command(hostapd_cli('2g', 'wps_pin any 12345670'))
    router.settle()
    assert [line for line in router.commands() if 'wps_pin ' in line] == [
        hostapd_cli('2g', 'wps_pin any 12345670')]


@pytest.mark.parametrize('pin, word', [
    ('12345670', '12345670'),
    ('1234-567', '1234-567'),
    (';>/tmp/x', "';>/tmp/x'"),
    ('`>/tmp/`', "'`>/tmp/`'"),
    ('$(id)&&a', "'$(id)&&a'"),
    ("'\"'\"'|a ", r"""''\''"'\''"'\''|a '"""),
    ('a\nid\nb\\c', r"'a\nid\nb\\c'"),
    ('\u00e4\u00f6\u00fc*?', "'\u00e4\u00f6\u00fc*?'"),
])
def test_a_pin_of_the_bus_reaches_hostapd_cli_as_one_word(router, pin, word):
    router.start()
    before = set(os.listdir('/tmp'))
    router.world.forget_commands()
    router.request(method=PIN_METHOD, pin=pin)
    router.wait_taken(1)
    router.settle()
    assert router.commands() == [
        ubus_send(1, 11, 11),
        hostapd_cli('2g', f'wps_pin any {word}'), hostapd_cli('5g', f'wps_pin any {word}')]
    made = {name for name in os.listdir('/tmp') if not name.startswith('wpa_ctrl_')} - before
    assert made == {'kelm.info'}


@pytest.mark.parametrize('pin, line', [
    (None, 'Invalid pin (no text).'),
    ('', 'Invalid pin (no text).'),
    ('123456789', 'Invalid pin (longer than 8 characters).'),
    (';ubus x;' * 40, 'Invalid pin (longer than 8 characters).'),
], ids=['none', 'empty', 'nine', 'many'])
def test_a_start_without_a_whole_pin_does_nothing_but_a_line(router, pin, line):
    router.start()
    router.world.forget_commands()
    router.console.forget()
    router.request(method=PIN_METHOD, pin=pin)
    router.wait_line(line)
    router.settle()
    assert [said for said in router.console.lines() if said not in PROBE_LINES] == [line]
    assert router.commands() == []
    assert router.world.read('/tmp/kelm.info') is None


@pytest.mark.parametrize('pin, word', [
    ('-a/tmp/x', '-a/tmp/x'), ('--', '--'), ('-B -P/x', "'-B -P/x'")])
def test_a_pin_of_the_bus_is_no_option_of_hostapd_cli(router, pin, word):
    router.start()
    router.request(method=PIN_METHOD, pin=pin)
    router.wait_command(hostapd_cli('5g', f'-- wps_pin any {word}'))


def test_push_button_by_request_is_the_same_as_a_press(router):
    router.start()
    router.world.forget_commands()
    router.request(action=START, method=BUTTON_METHOD)
    wait_for(lambda: router.world.read('/tmp/wpsactive'), 'the attempt', between=router.daemon.poke)
    assert router.console.lines() == ['ibus event: 10', *START_LINES]
    assert router.commands() == START_COMMANDS


def test_a_cancel_withdraws_the_attempt_and_the_daemon_waits_for_the_next(router):
    begin(router)
    router.request(action=CANCEL)
    router.wait_taken(1)
    router.settle()
    lines = [line for line in router.console.lines() if line not in PROBE_LINES]
    assert lines == [
        *CANCELS,
        *publication_lines(2, 12, 12),
        'stop wps action.',
        'wps session done [band 0] [kelm_flags: 0x00000012].',
        'stop wps action.',
        'wps session done [band 1] [kelm_flags: 0x00000012].',
    ]
    assert router.commands() == [*CANCELS, ubus_send(2, 12, 12)]
    assert router.events() == [(2, 12, 12, 0)]
    assert router.daemon.is_running()
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]


def test_a_cancel_while_idle_is_published_for_no_band(router):
    router.start()
    router.world.forget_commands()
    router.request(action=CANCEL)
    router.wait_taken(1)
    router.settle()
    assert router.commands() == [ubus_send(2, 0, 0)]
    assert router.daemon.is_running()


def test_an_unknown_action_is_refused(router):
    router.start()
    router.world.forget_commands()
    router.request(action=3)
    router.wait_line('Invalid wps_cli action.')
    assert router.commands() == []


def test_an_unknown_method_starts_nothing(router):
    router.start()
    router.world.forget_commands()
    router.request(method=3)
    router.wait_taken(1)
    router.settle()
    assert router.commands() == []
    assert router.console.lines().count('eventCtrl open success') == 2


@pytest.mark.parametrize('kind', [wire.INT8, wire.INT16, wire.INT32, wire.INT64])
def test_requests_carry_integers_of_any_width(router, kind):
    router.start()
    router.request(method=PIN_METHOD, pin='12345670', kind=kind)
    router.wait_command(hostapd_cli('5g', 'wps_pin any 12345670'))
    router.request(action=CANCEL, method=BUTTON_METHOD, kind=kind)
    router.wait_command(CANCELS[1])


def test_requests_of_the_ubus_command_are_understood(router):
    """It sends 32-bit integers, and true as an 8-bit 1."""
    router.start()
    os.system("/mnt/build/hostlibs/ubus send wps_cli '{\"action\":true,\"method\":1}'")
    router.wait_command(PBC[1])
    os.system("/mnt/build/hostlibs/ubus send wps_cli '{\"action\":2,\"method\":true}'")
    router.wait_command(CANCELS[1])


@pytest.mark.parametrize('members', [
    b'',
    wire.member(wire.INT8, 'action', 1),
    wire.member(wire.INT8, 'method', 1),
    wire.member(wire.INT8, 'action', 1) + wire.member(wire.STRING, 'method', '1'),
    wire.member(wire.STRING, 'action', '1') + wire.member(wire.INT8, 'method', 1),
    wire.member(wire.TABLE, 'action', b'') + wire.member(wire.INT8, 'method', 1),
    wire.member(wire.STRING, 'pin', '12345670'),
])
def test_a_request_without_two_integers_is_refused(router, members):
    router.start()
    router.world.forget_commands()
    router.bus.send('wps_cli', members)
    router.wait_line('Invalid action.')
    router.settle()
    assert router.commands() == []
    assert router.taken_requests() == 1  # settle()'s own


def test_a_press_needs_a_type_and_a_wifi_event_an_action(router):
    router.start()
    router.world.forget_commands()
    router.bus.send('gpio', wire.member(wire.INT32, 'pressed', 1))
    wait_for(lambda: router.console.lines() == ['Message: {"pressed":1}', 'Invalid action.'],
             'the refusal')
    router.console.forget()
    router.bus.send('wifi', wire.member(wire.INT32, 'pressed', 1))
    wait_for(lambda: router.console.lines() == ['Message: {"pressed":1}', 'Invalid action.'],
             'the refusal')
    router.console.forget()
    router.bus.send('wifi', wire.member(wire.INT32, 'action', 0))
    router.wait_line('ibus event: 3')
    assert router.console.lines() == ['Message: {"action":0}', 'ibus event: 3']
    router.settle()
    assert router.commands() == []


def test_an_event_that_is_no_json_still_counts(router):
    """A number without a name inside a table makes the text unreadable: the request stands."""
    router.start()
    router.bus.send('gpio', wire.member(wire.INT32, '', 7))
    router.wait_line('ibus event: 4')
    router.bus.send('wifi', wire.member(wire.INT32, '', 7))
    router.wait_line('ibus event: 3')
    assert 'Invalid action.' not in router.console.lines()


def test_the_outcome_goes_to_the_system_log(router):
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind('/dev/log')
    try:
        begin(router)
        router.hostapd['5g'].send('<3>WPS-TIMEOUT')
        router.settle()
        router.hostapd['2g'].send(REG_SUCCESS)
        assert router.end() == 0
        log.setblocking(False)
        texts = []
        try:
            while True:
                texts.append(log.recv(4096).decode())
        except BlockingIOError:
            pass
        assert [text.split(': ', 1)[1].rstrip('\n\0') for text in texts] == [
            '2g WPS succeeded.',
            '5g WPS timed out. Failed to receive WPS message from the RootAP.',
            '5g WPS failed.']
    finally:
        log.close()
        os.unlink('/dev/log')
