# SPDX-License-Identifier: ISC
"""Files in /tmp: status files as they are, credential files by their names and lengths alone."""
import os
import time

import pytest

KEY = 'under the old elm'
CREDENTIALS = '{"wl0_ssid":"Elm House","wl0_wpa_psk":"' + KEY + '","wl0_enable":1}\n'
AP_FILE = '/tmp/wps_wifi_ap.txt'
STRANGER = 65534


@pytest.fixture(name='write')
def written_whole(world):
    """Writes a file as the daemon does: at once."""
    def write(path, text, mode=0o644, owner=None):
        world.write('/tmp/new', text)
        os.chmod('/tmp/new', mode)
        if owner is not None:
            os.chown('/tmp/new', owner, owner)
        os.rename('/tmp/new', path)
    return write


@pytest.mark.parametrize('path, text', [
    ('/tmp/wps_result', '-1'),
    ('/tmp/wpsactive', '1'),
    ('/tmp/kelm.info', '{"wps_action":2,"wl0_wps_status":"success","wl0_wps_sta_mac":""}'),
    ('/tmp/kelm.pid', '284'),
])
def test_a_status_file_is_told_when_it_changes_and_when_it_goes(watch, write, path, text):
    seen = watch()
    write(path, text + '\n')
    assert seen.wait('file', path) == f'{path} {text}'
    os.unlink(path)
    seen.wait('file', f'{path} removed')


def test_what_is_there_at_the_start_is_told_once(watch, write):
    write('/tmp/wps_result', '1\n')
    seen = watch()
    seen.wait('file', '/tmp/wps_result 1')
    write('/tmp/wpsactive', '1\n')
    seen.wait('file', '/tmp/wpsactive 1')
    assert seen.texts('file') == ['/tmp/wps_result 1', '/tmp/wpsactive 1']


def test_a_file_that_a_shell_empties_first_is_told_with_its_text(watch, write):
    write('/tmp/wps_result', '-1\n')
    seen = watch()
    seen.wait('file', '/tmp/wps_result -1')
    os.truncate('/tmp/wps_result', 0)
    with open('/tmp/wps_result', 'w', encoding='utf-8'):
        pass
    write('/tmp/wpsactive', '1\n')
    seen.wait('file', '/tmp/wpsactive 1')
    with open('/tmp/wps_result', 'w', encoding='utf-8') as file:
        file.write('1\n')
    seen.wait('file', '/tmp/wps_result 1')
    assert [text for text in seen.texts('file') if 'wps_result' in text] == [
        '/tmp/wps_result -1', '/tmp/wps_result 1']


@pytest.mark.parametrize('path', [
    AP_FILE, '/tmp/wps_wifi_sta.txt', '/tmp/_wps_wifi_ap.txt', '/tmp/_wps_wifi_sta.txt',
    '/tmp/wps_wifi_ap_bh.txt', '/tmp/wps_wifi_ap.bak', '/tmp/wps_wifi_sta.bak'])
def test_of_a_credential_file_the_names_and_lengths_are_told(watch, write, path):
    seen = watch()
    write(path, CREDENTIALS, 0o600)
    assert (seen.wait('file', path)
            == f'{path} 0600 74 bytes: wl0_ssid=[9] wl0_wpa_psk=[17] wl0_enable=[1]')
    os.unlink(path)
    seen.wait('file', f'{path} removed')


@pytest.mark.parametrize('text, told', [
    (KEY, '17 bytes, no JSON object'),
    ('[1]', '3 bytes, no JSON object'),
    ('{"a b":"' + KEY + '"}', '27 bytes: ?=[17]'),
    ('{"' + KEY + '":1}', '23 bytes: ?=[1]'),
    ('{"k":{"deep":"' + KEY + '"}}', '34 bytes: k=[28]'),
    ('{"k":"\\u0000x"}', '15 bytes: k=[2]'),
    ('{"k":', '5 bytes, no JSON object'),
], ids=['no JSON', 'array', 'key with a blank', 'key that is a secret', 'nested', 'zero', 'cut'])
def test_a_broken_credential_file_gives_nothing_away(watch, write, text, told):
    seen = watch()
    write(AP_FILE, text, 0o600)
    assert seen.wait('file', AP_FILE) == f'{AP_FILE} 0600 {told}'


def test_no_value_of_a_credential_file_stays_in_the_recording(watch, write):
    seen = watch()
    write(AP_FILE, CREDENTIALS, 0o600)
    seen.wait('file', AP_FILE)
    seen.end()
    with open(seen.recording, 'rb') as recording:
        recorded = recording.read()
    assert KEY.encode() not in recorded and b'Elm House' not in recorded


def put_link(path):
    os.symlink('/etc/shadow', path)


def put_second_name(path):
    with open('/tmp/other', 'w', encoding='utf-8') as file:
        file.write('1\n')
    os.link('/tmp/other', path)


def put_strangers(path):
    with open('/tmp/other', 'w', encoding='utf-8') as file:
        file.write('1\n')
    os.chown('/tmp/other', STRANGER, STRANGER)
    os.rename('/tmp/other', path)


def put_huge(path):
    with open(path, 'wb') as file:
        file.truncate(1 << 30)


@pytest.mark.parametrize('put, why', [
    (put_link, 'a link'),
    (put_second_name, 'has another name'),
    (put_strangers, f'belongs to user {STRANGER}'),
    (put_huge, 'has 1073741824 bytes'),
    (os.mkfifo, 'a FIFO'),
    (os.mkdir, 'a folder'),
])
@pytest.mark.parametrize('path', ['/tmp/wps_result', AP_FILE])
def test_what_may_be_a_strangers_is_not_read(watch, put, why, path):
    if put is put_strangers and os.geteuid() != 0:
        pytest.skip('only root gives files away')
    seen = watch()
    put(path)
    assert seen.wait('file', path) == f'{path} not read: {why}'


def test_whoever_plants_a_file_again_and_again_does_not_fill_the_recording(watch):
    seen = watch()
    for _ in range(2000):
        os.symlink('/nowhere', '/tmp/wps_result')
        os.unlink('/tmp/wps_result')
    os.symlink('/nowhere', '/tmp/wps_result')
    seen.wait('file', '/tmp/wps_result not read')
    seen.end()
    assert len(seen.texts('file')) < 50


def test_the_settings_are_told_per_band_without_a_secret(world, watch):
    world.write('/tmp/wps.conf', 'enabled=1\napWpsAvailable=1\npinEnabled=on\npinCode=12345670\n')
    world.write('/tmp/wifi.conf', '\nwlanSecType_2g=1\nwlanSecType_5g=4\n\n')
    world.write('/tmp/run/hostapd-wlan1.conf', (
        'ssid=Elm House\nignore_broadcast_ssid=1\nwps_state=2\nwpa_key_mgmt=WPA-PSK\n'
        f'wpa_passphrase={KEY}\nbss=wlan1-1\nignore_broadcast_ssid=0\n'))
    seen = watch()
    seen.wait('settings', '5 GHz')
    assert seen.texts('settings') == ['2.4 GHz: enabled, hidden, wpa2', '5 GHz: not enabled, wpa3']
    world.write('/tmp/run/hostapd-wlan1.conf', (
        'ignore_broadcast_ssid=0\nwpa_key_mgmt=SAE\n'))
    seen.wait('settings', '2.4 GHz: enabled, no wps, wpa3')


def test_settings_that_are_just_being_written_are_not_told(world, watch):
    """A maker's script writes hostapd's file line by line; half of it says that there is no WPS."""
    world.write('/tmp/run/hostapd-wlan1.conf', 'wps_state=2\nwpa_key_mgmt=WPA-PSK\n')
    seen = watch()
    assert seen.wait('settings', '2.4 GHz') == '2.4 GHz: enabled, wpa2'
    longest_s = 0.0
    begin = last = time.monotonic()
    with open('/tmp/run/hostapd-wlan1.conf', 'w', encoding='utf-8') as file:
        while last < begin + 1.5:  # in this time it is looked at, whenever that is
            print('wpa_key_mgmt=WPA-PSK', file=file, flush=True)
            time.sleep(0.03)
            longest_s = max(longest_s, time.monotonic() - last)
            last = time.monotonic()
        print('ignore_broadcast_ssid=1\nwps_state=2', file=file, flush=True)
    seen.wait('settings', '2.4 GHz: enabled, hidden')
    if longest_s > 0.25:
        pytest.skip('this machine stood still: the file was quiet before it was whole')
    assert [text for text in seen.texts('settings') if text.startswith('2.4')] == [
        '2.4 GHz: enabled, wpa2', '2.4 GHz: enabled, hidden, wpa2']
