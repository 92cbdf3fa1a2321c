# SPDX-License-Identifier: ISC
"""From the command to the open daemon: arguments, pid file, settings, control sockets."""
import os
import signal

import pytest

from router import AP_MODE, REPEATER_MODE, VERSION_LINE, hostapd_cli, settings_line
from world import wait_for

PIN_OFF = [hostapd_cli('2g', 'wps_ap_pin disable'), hostapd_cli('5g', 'wps_ap_pin disable')]


@pytest.mark.parametrize('arguments', [['start'], ['-h'], ['--version', 'x'], ['']])
def test_an_argument_gives_the_usage_and_nothing_else(router, arguments):
    daemon = router.launch(arguments=arguments)
    assert daemon.command_status == 255
    assert (daemon.output, daemon.errors) == (b'', b'Usage: kelm\n')
    assert daemon.pid is None
    assert os.path.lexists('/tmp/kelm.pid') is False
    assert router.console.text() == ''
    assert router.commands() == []


def test_the_command_returns_at_once_while_the_daemon_still_starts(router):
    router.world.reply('hostapd_cli', 'while [ ! -e /tmp/go ]; do sleep 0.02; done\n')
    router.add_hostapd('2g', '5g')
    daemon = router.launch()
    assert daemon.command_status == 0
    assert (daemon.output, daemon.errors) == (b'', b'')
    assert daemon.is_running()
    assert router.hostapd['2g'].clients == []
    router.world.write('/tmp/go', '')
    router.hostapd['5g'].wait_attached()


def test_the_daemon_leads_its_own_session_with_null_on_its_standard_descriptors(router):
    router.start()
    pid = router.daemon.pid
    assert os.getsid(pid) == pid
    targets = [os.readlink(f'/proc/{pid}/fd/{number}') for number in (0, 1, 2)]
    assert targets == ['/dev/null'] * 3


def test_a_normal_start_sets_the_pins_and_opens_the_control_sockets(router):
    router.start()
    assert router.start_lines == [
        VERSION_LINE,
        'create ibus thread successfully',
        settings_line(),
        settings_line(),
        PIN_OFF[0],
        PIN_OFF[1],
        'eventCtrl open success',
        'eventCtrl open success',
    ]
    assert router.commands() == PIN_OFF
    assert router.world.read('/tmp/kelm.pid') == f'{router.daemon.pid}\n'
    assert [router.hostapd[band].requests for band in ('2g', '5g')] == [['ATTACH'], ['ATTACH']]
    # Nothing about an attempt yet.
    for path in ('/tmp/kelm.info', '/tmp/wps_result', '/tmp/wpsactive'):
        assert router.world.read(path) is None


def test_a_stale_pid_file_blocks_every_start_until_it_is_removed(router):
    router.world.write('/tmp/kelm.pid', '99999\n')
    for _ in range(2):
        daemon = router.launch()
        assert daemon.command_status == 0
        assert daemon.wait_exit(poke=False) == 255
    assert router.console.lines() == ['kelm has been started'] * 2
    assert router.world.read('/tmp/kelm.pid') == '99999\n'
    assert router.commands() == []
    os.unlink('/tmp/kelm.pid')
    router.console.forget()
    router.start()
    assert router.start_lines[:2] == [VERSION_LINE, 'create ibus thread successfully']


def test_a_second_instance_leaves_the_first_one_alone(router):
    router.start()
    first = router.daemon
    second = router.launch()
    assert second.command_status == 0
    assert second.wait_exit(poke=False) == 255
    assert router.console.lines() == ['kelm has been started']
    assert first.is_running()
    assert router.world.read('/tmp/kelm.pid') == f'{first.pid}\n'
    router.daemon = first


def test_a_pid_file_that_cannot_be_written_ends_the_start_with_the_error(router):
    with router.world.read_only_tmp():
        daemon = router.launch()
        assert daemon.command_status == 0
        assert daemon.wait_exit(poke=False) == 30  # read-only file system
    assert router.console.lines() == []
    assert router.commands() == []


@pytest.mark.parametrize('path, text, lines', [
    ('/tmp/device_runtime.info', None, []),
    ('/tmp/device_runtime.info', 'no json', []),
    ('/tmp/device.info', None, ['Open /tmp/device.info file failed.']),
    ('/tmp/device.info', '', ['Parse string to json failed.']),
    ('/tmp/device.info', '{"RFBand":2', ['Parse string to json failed.']),
    ('/tmp/device_runtime.info', '{"mode":7}',
     ['Invalid sys mode.', 'Invalid sys mode.', 'Invalid sys mode: 7.']),
])
def test_a_start_that_fails_removes_its_pid_file_and_restarts_nothing(router, path, text, lines):
    router.start_bus()
    router.add_hostapd('2g', '5g')
    if text is None:
        os.unlink(path)
    else:
        router.world.write(path, text)
    daemon = router.launch()
    assert daemon.command_status == 0
    assert daemon.wait_exit(poke=False) == 255
    assert os.path.lexists('/tmp/kelm.pid') is False
    shown = [line for line in router.console.lines() if not line.startswith('enabled: ')]
    assert shown == [VERSION_LINE, 'create ibus thread successfully', *lines, 'kelm open failed.']
    assert router.commands() == []


def test_a_runtime_file_without_a_number_for_the_mode_means_repeater(router):
    router.world.write('/tmp/device_runtime.info', '{"mode": "1"}')
    router.start(bands=())
    # A repeater without stations: neither PINs nor control sockets of hostapd.
    assert router.commands() == []
    assert router.start_lines == [
        VERSION_LINE, 'create ibus thread successfully', settings_line()]


def test_a_device_file_that_fills_the_read_is_taken_whole(router):
    head, tail = '{"pad":"', '","RFBand":2}'
    text = head + 'x' * (2048 - len(head) - len(tail)) + tail
    assert len(text) == 2048
    router.world.write('/tmp/device.info', text)
    router.start()
    assert router.commands() == PIN_OFF


def test_a_longer_device_file_counts_only_in_its_first_2048_bytes(router):
    head, tail = '{"pad":"', '","RFBand":2}'
    router.world.write('/tmp/device.info', head + 'x' * (2049 - len(head) - len(tail)) + tail)
    router.start_bus()
    assert router.launch().wait_exit(poke=False) == 255
    assert 'Parse string to json failed.' in router.console.lines()


def test_hostapd_not_there_at_start_ends_the_daemon(router):
    router.start_bus()
    router.add_hostapd('2g')
    daemon = router.launch()
    assert daemon.command_status == 0
    assert daemon.wait_exit(poke=False) == 255
    assert router.console.lines() == [
        VERSION_LINE,
        'create ibus thread successfully',
        settings_line(),
        settings_line(),
        *PIN_OFF,
        'eventCtrl open success',
        "Can't open event ctrl",
        'worker socket init failed',
        'kelm open failed.',
    ]
    assert os.path.lexists('/tmp/kelm.pid') is False
    assert router.commands() == PIN_OFF


@pytest.mark.parametrize('mode, band_set, mask', [
    (AP_MODE, 3, 7), (AP_MODE, 3, 4), (AP_MODE, 4, 11), (AP_MODE, 5, 8),
    (REPEATER_MODE, 3, 7), (REPEATER_MODE, 4, 11)])
def test_a_bit_of_a_band_without_an_interface_ends_the_start(router, mode, band_set, mask):
    """5g2 and 6g: there is no name of an interface for them, and so no socket."""
    router.configure(mode=mode, band_set=band_set, available=mask, stations=mask)
    router.start_bus()
    router.add_hostapd('2g', '5g')
    router.add_supplicant('2g', '5g')
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines()[-3:] == [
        "Can't open event ctrl", 'worker socket init failed', 'kelm open failed.']
    assert not os.path.lexists('/tmp/kelm.pid')


def test_a_bit_of_a_band_that_the_device_has_not_does_not_count(router):
    router.configure(band_set=2, available=15)
    router.start()
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]


@pytest.mark.parametrize('reply', ['FAIL\n', 'UNKNOWN COMMAND\n', 'OK', 'OK\n\n', ''])
def test_any_answer_to_attach_but_ok_ends_the_start(router, reply):
    router.start_bus()
    router.add_hostapd('2g', '5g', replies={'ATTACH': [reply]})
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines()[-4:] == [
        'eventCtrl open success', "Can't attach event ctrl", 'worker socket init failed',
        'kelm open failed.']
    assert [name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')] == []


def test_no_answer_to_attach_ends_the_start_after_ten_seconds(router):
    router.add_hostapd('2g', '5g', replies={'ATTACH': []})
    daemon = router.launch()
    wait_for(lambda: router.hostapd['2g'].requests == ['ATTACH'], 'the request')
    assert daemon.is_running()
    assert daemon.wait_exit(poke=False) == 255
    assert "Can't attach event ctrl" in router.console.lines()
    assert router.hostapd['5g'].requests == []


def test_events_before_the_answer_to_attach_are_skipped(router):
    early = ['<3>WPS-SUCCESS', 'IFNAME=wlan1 <3>WPS-TIMEOUT', '<' + 'x' * 100, 'OK\n']
    router.add_hostapd('2g', '5g', replies={'ATTACH': early})
    router.start_bus()
    router.launch()
    router.hostapd['5g'].wait_attached()
    router.wait_registered()
    assert router.start_lines[-2:] == ['eventCtrl open success'] * 2
    assert router.daemon.is_running()


def test_each_connection_has_a_local_path_of_its_own_and_none_stays_behind(router):
    router.start()
    pid = router.daemon.pid
    paths = [[client for client in router.hostapd[band].clients] for band in ('2g', '5g')]
    assert paths == [[f'/tmp/wpa_ctrl_{pid}-1'], [f'/tmp/wpa_ctrl_{pid}-2']]
    router.daemon.send(signal.SIGTERM)
    assert router.end() == 0
    assert [name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')] == []
    assert router.hostapd['2g'].requests == ['ATTACH', 'DETACH']


def test_a_local_path_left_by_a_crashed_process_is_replaced(router):
    router.start()
    left = f'/tmp/wpa_ctrl_{router.daemon.pid}-3'
    router.world.write(left, '')
    router.press_and_wait_started()
    assert router.hostapd['2g'].clients == [left]


def test_the_access_point_pin_of_the_settings_is_set_on_the_bands_that_allow_it(router):
    router.configure(available=2, pin='12345670')
    router.start(bands=('5g',))
    assert router.commands() == [
        hostapd_cli('2g', 'wps_ap_pin disable'), hostapd_cli('5g', 'wps_ap_pin set 12345670')]
    assert 'pinCode: 12345670, len = 8' in router.start_lines


@pytest.mark.parametrize('pin', ['12345678', '123', '1234567'])
def test_a_wrong_pin_in_the_settings_switches_the_access_point_pin_off(router, pin):
    router.configure(pin=pin)
    router.start()
    assert router.commands() == PIN_OFF


@pytest.mark.parametrize('pin, word', [
    ('1234', '1234'),
    ('123456709', '12345670'),
    ('0;ubus x', "'0;ubus x'"),
    ('`id`', "'`id`'"),
    ("0'>/tmp/", r"'0'\''>/tmp/'"),
    ('0 $(id) ', "'0 $(id) '"),
    ('0\\n"*?~#', r"""'0\\n"*?~#'"""),
])
def test_a_pin_of_the_settings_reaches_hostapd_cli_as_one_word(router, pin, word):
    before = set(os.listdir('/tmp'))
    router.configure(pin=pin)
    router.start()
    assert router.commands() == [hostapd_cli(band, f'wps_ap_pin set {word}')
                                 for band in ('2g', '5g')]
    made = {name for name in os.listdir('/tmp') if not name.startswith('wpa_ctrl_')} - before
    assert made == {'kelm.pid'}


def test_a_pin_of_the_settings_is_no_option_of_hostapd_cli(router):
    router.configure(pin='-a/x')
    router.start()
    assert router.commands() == [hostapd_cli(band, '-- wps_ap_pin set -a/x')
                                 for band in ('2g', '5g')]


def test_the_pin_counts_only_when_it_is_switched_on(router):
    router.configure(pin='12345670')
    text = router.world.read('/tmp/wps.conf').replace('pinEnabled=on', 'pinEnabled=ON')
    router.world.write('/tmp/wps.conf', text)
    router.start()
    assert router.commands() == PIN_OFF


def test_a_settings_line_longer_than_its_buffer_is_read_in_pieces(router):
    router.configure(pin='12345670')
    text = router.world.read('/tmp/wps.conf')
    # Without a line feed of its own, the first piece's value loses its last character.
    piece = 'unknown=' + 'x' * (2047 - len('unknown='))
    router.world.write('/tmp/wps.conf', f'{piece}{text}{"y" * 5000}\n')
    router.start()
    assert router.commands() == [hostapd_cli(band, 'wps_ap_pin set 12345670')
                                 for band in ('2g', '5g')]


def test_with_wps_switched_off_the_daemon_waits_and_still_ends_on_request(router):
    router.configure(enabled=0)
    router.start(bands=())
    for _ in range(2):  # a start that launched nothing does not refuse the next
        router.press()
        router.settle()
    assert router.events() == [(1, 12, 12, 0)] * 2
    assert [line for line in router.commands() if 'wps_pbc' in line] == []
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0


def test_missing_settings_mean_that_no_band_takes_part(router):
    os.unlink('/tmp/wps.conf')
    router.start(bands=())
    assert router.start_lines.count('Open wps config file failed') == 2
    assert router.commands() == PIN_OFF
