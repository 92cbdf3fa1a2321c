# SPDX-License-Identifier: ISC
"""Repeater attempts in which an event brings what was learnt, and wpa_supplicant writes no file."""
import json

from router import REPEATER_MODE, wpa_cli
from test_repeater_attempt import AP_FILE, STATION_FILE, learn, read_json

BY_EVENT = {'KELM_CREDENTIALS': 'event'}
FILES = {'2g': '/tmp/run/wpa_supplicant-wlan1-vxd.conf',
         '5g': '/tmp/run/wpa_supplicant-wlan0-vxd.conf'}
NOTHING_LEARNT = 'network={\n\tssid="none yet"\n\tkey_mgmt=NONE\n\tdisabled=1\n}\n'
SUCCESS = '<3>WPS-SUCCESS '
# What a real wpa_supplicant told: "Great Oak" and "acorns in the cellar", in a credential.
RECEIVED = (
    '<3>WPS-CRED-RECEIVED 100e00401026000101104500094772656174204f616b100300020020100f00020008'
    '1027001461636f726e7320696e207468652063656c6c61721020000602000000a101')
# A name with a zero byte and a quote, and a key with a quote and a backslash; without a credential
# around them.
ODD = ('<3>WPS-CRED-RECEIVED 1045000641002242c3bc100300020020100f0002000810270008'
       '22315c3233343536')
CUT_OFF = RECEIVED[:-2]
SECRET = 'acorns in the cellar'


def begin(router, environment=None):
    """Starts an attempt on both stations, with what an earlier one has left."""
    router.configure(mode=REPEATER_MODE, stations=3)
    for band, interface in (('2g', 'wlan1-vxd'), ('5g', 'wlan0-vxd')):
        router.set_link(band, 0)
        learn(router, interface, 'An older one', 'older secret')
    router.world.reply('/usr/bin/wifi', '[ "$1" != getscanresult ] || '
                       'echo "[]" >"/tmp/wifi_scan_$2.result"\n')
    router.start(bands=(), stations=('2g', '5g'),
                 environment=BY_EVENT if environment is None else environment)
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()


def outcome(router):
    """How both bands fared, by the info file."""
    info = json.loads(router.world.read('/tmp/kelm.info'))
    return info['wl0_wps_status'], info['wl1_wps_status']


def test_both_stations_learn_by_event_alone(router):
    begin(router)
    for band in ('2g', '5g'):
        assert router.world.read(FILES[band]) == NOTHING_LEARNT
    router.supplicant['2g'].send(RECEIVED)
    router.supplicant['2g'].send(SUCCESS)
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send(ODD)
    router.supplicant['5g'].send(SUCCESS)
    assert router.end() == 0
    assert router.commands()[-2:] == ['/etc/init.d/wps re_kelm_info',
                                      '/etc/init.d/wifi force_restart']
    assert '/etc/init.d/wps config_wifi' in router.commands()
    assert outcome(router) == ('success', 'success')
    station = read_json(router, STATION_FILE)
    assert [station[key] for key in ('ssid_2g', 'password_2g', 'security_2g', 'wpa_encryption_2g')
            ] == ['Great Oak', SECRET, 'wpa2', 'aes']
    assert [station[key] for key in ('ssid_hex_5g', 'password_5g', 'security_5g')
            ] == ['41002242c3bc', '"1\\23456', 'wpa2']
    assert read_json(router, AP_FILE)['ssid_2g'] == 'Great Oak_EXT'
    assert [router.world.mode(path) for path in FILES.values()] == [0o600] * 2
    assert SECRET not in router.console.text()
    assert RECEIVED.split()[1] not in router.console.text()


def test_a_success_without_a_credential_is_none_whatever_an_earlier_attempt_has_left(router):
    begin(router)
    router.supplicant['2g'].send(SUCCESS)
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert outcome(router) == ('error', 'timeout')
    assert router.commands()[-1] == '/etc/init.d/wps restart'
    assert '/etc/init.d/wps config_wifi' not in router.commands()


def test_a_credential_that_cannot_be_used_is_told_and_the_other_band_counts(router):
    begin(router)
    router.supplicant['2g'].send(CUT_OFF)
    router.supplicant['2g'].send(SUCCESS)
    router.wait_command('/usr/bin/wifi scan 2g')
    assert '[band 0] credential not usable: attributes are cut off' in router.console.lines()
    assert router.world.read(FILES['2g']) == NOTHING_LEARNT
    router.supplicant['5g'].send(RECEIVED)
    router.supplicant['5g'].send(SUCCESS)
    assert router.end() == 0
    assert outcome(router) == ('error', 'success')
    assert '/etc/init.d/wps config_wifi' in router.commands()
    assert read_json(router, STATION_FILE)['password_5g'] == SECRET


def test_what_came_before_a_cancel_is_forgotten(router):
    begin(router)
    router.supplicant['2g'].send(RECEIVED)
    router.wait_line('processing wpsEvent[2.4G]: <3>WPS-CRED-RECEIVED')
    assert SECRET in router.world.read(FILES['2g'])
    router.request(action=2)
    router.wait_command(wpa_cli('5g', 'wps_cancel'))
    router.settle()
    router.press_and_wait_started()
    assert router.world.read(FILES['2g']) == NOTHING_LEARNT
    router.supplicant['2g'].wait_attached()
    router.supplicant['2g'].send(SUCCESS)
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert outcome(router) == ('error', 'timeout')


def test_where_nothing_can_be_forgotten_nothing_starts(router):
    router.configure(mode=REPEATER_MODE, stations=1)
    router.set_link('2g', 0)
    router.start_bus()
    router.add_supplicant('2g')
    with router.world.full_tmp():
        daemon = router.launch(environment=BY_EVENT)
        assert daemon.wait_exit(poke=False) == 255
    assert any(line.startswith(f'{FILES["2g"]}: not written: ') for line in router.console.lines())


def test_without_the_switch_the_event_is_nothing_and_the_file_is_wpa_supplicants(router):
    begin(router, environment={})
    for band in ('2g', '5g'):
        assert 'older secret' in router.world.read(FILES[band])
    router.supplicant['2g'].send(RECEIVED)
    router.supplicant['2g'].send(SUCCESS)
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert outcome(router) == ('success', 'ok')
    assert read_json(router, STATION_FILE)['password_2g'] == 'older secret'
    assert 'older secret' in router.world.read(FILES['2g'])
