# SPDX-License-Identifier: ISC
"""Whole repeater attempts, from the stations' events to the files and the restart."""
import json
import re

from router import REPEATER_MODE, ubus_send, wpa_cli
from world import wait_for

CANCELS = [wpa_cli('2g', 'wps_cancel'), wpa_cli('5g', 'wps_cancel')]
SUPPLICANT_FILE = """ctrl_interface=/var/run/wpa_supplicant
update_config=1

network={{
\tssid="Before"
\tpsk="before123"
\tdisabled=1
}}

network={{
\tssid="{ssid}"
\tpsk="{key}"
\tproto=RSN
\tkey_mgmt=WPA-PSK
\tpairwise=CCMP
\tauth_alg=OPEN
{more}}}
"""
STATION_FILE, AP_FILE = '/tmp/wps_wifi_sta.txt', '/tmp/wps_wifi_ap.txt'
# The scan tool writes its result where the test keeps it.
SCAN_TOOL = '[ "$1" != getscanresult ] || cp "/mnt/scan.$2" "/tmp/wifi_scan_$2.result"\n'
EASYMESH = "config common settings\n\toption mesh_enable 'on'\n"


def learn(router, interface, ssid, key, more=''):
    text = SUPPLICANT_FILE.format(ssid=ssid, key=key, more=more)
    router.world.write(f'/tmp/run/wpa_supplicant-{interface}.conf', text)


def begin(router, scans=None):
    """Starts an attempt on both stations and forgets the way there."""
    router.configure(mode=REPEATER_MODE, stations=3)
    for band in ('2g', '5g'):
        router.set_link(band, 0)
        router.world.write(f'/mnt/scan.{band}', json.dumps((scans or {}).get(band, [])))
    router.world.reply('/usr/bin/wifi', SCAN_TOOL)
    router.start(bands=(), stations=('2g', '5g'))
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()


def read_json(router, path):
    assert router.world.mode(path) == 0o600
    return json.loads(router.world.read(path))


def test_both_stations_enrol_and_each_keeps_its_own_credentials(router):
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.commands() == [
        '/usr/bin/wifi scan 2g', '/usr/bin/wifi getscanresult 2g', '/usr/bin/wifi scan 5g',
        '/usr/bin/wifi getscanresult 5g', '/etc/init.d/wps config_wifi', *CANCELS,
        '/etc/init.d/wps re_kelm_info', '/etc/init.d/wifi force_restart']
    # The service publishes the success, once the link can be used.
    assert router.published == []
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert router.world.read('/tmp/wpsactive') == '0\n'
    station = read_json(router, STATION_FILE)
    assert list(station) == [f'{key}_{band}' for band in ('2g', '5g') for key in (
        'enable', 'ssid', 'security', 'wpa_encryption', 'index', 'password', 'securityType',
        'wpaVersion', 'wepAuthType', 'wepKeyFormat', 'data', 'support_mesh', 'multiap')] + [
            'mesh_enable']
    assert [station[key] for key in ('ssid_2g', 'password_2g', 'security_2g', 'wpa_encryption_2g',
                                     'ssid_5g', 'password_5g', 'mesh_enable')] == [
        'Root', 'rootsecret', 'wpa2', 'aes', 'Root5', 'root5secret', 'off']
    assert read_json(router, AP_FILE) == {
        'enable_2g': 'on', 'ssid_2g': 'Root_EXT', 'hide_2g': 0, 'sec_follow_2g': 'true',
        'enable_5g': 'on', 'ssid_5g': 'Root5_EXT', 'hide_5g': 0, 'sec_follow_5g': 'true'}
    for path in (STATION_FILE, AP_FILE):
        backup = path.replace('.txt', '.bak')
        assert router.world.read(backup) == router.world.read(path)
        assert router.world.mode(backup) == 0o600


def test_a_band_that_failed_takes_the_other_bands_credentials(router):
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert '1 failed, use 0 STA info write back to 1 AP.' in router.console.lines()
    assert router.published == []
    assert router.commands()[-5:] == [
        '/etc/init.d/wps config_wifi', *CANCELS, '/etc/init.d/wps re_kelm_info',
        '/etc/init.d/wifi force_restart']
    station, access_point = read_json(router, STATION_FILE), read_json(router, AP_FILE)
    assert (station['ssid_2g'], station['ssid_5g']) == ('Root', '')
    assert station['password_5g'] == 'rootsecret'
    assert (access_point['ssid_2g'], access_point['ssid_5g']) == ('Root_EXT', 'Root_5GEXT')


def test_a_band_that_sees_the_root_access_point_mirrors_it(router):
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    entry = {'mac': '02:00:00:00:01:01', 'ssid': 'Root', 'security': 'wpa2',
             'wpa_encryption': 'aes', 'channel': '36'}
    begin(router, {'5g': [dict(entry, ssid='Neighbour', mac='06:11:11:11:11:11'), entry]})
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert 'patching wpsCfg[band 1] with rootAP Root' in router.console.lines()
    station, access_point = read_json(router, STATION_FILE), read_json(router, AP_FILE)
    assert [station[f'{key}_5g'] for key in ('ssid', 'password', 'security')] == [
        'Root', 'rootsecret', 'wpa2']
    assert access_point['ssid_5g'] == 'Root_EXT'


def test_nothing_succeeded_and_the_failure_is_published_and_nothing_written(router):
    begin(router)
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    assert 'Gonna to send wps event. status: 2g=4, 5g=4' in router.console.lines()
    assert router.commands() == [
        ubus_send(2, 4, 4), *CANCELS, '/etc/init.d/wps re_kelm_info', '/etc/init.d/wps restart']
    assert router.console.lines()[-1] == 'mesh WPS fail restart.'
    assert router.world.read('/tmp/wps_result') == '0\n'
    for path in (STATION_FILE, AP_FILE):
        assert router.world.read(path) is None


def tell_of_rogue(router, ssid):
    """wpa_supplicant tells of an access point of that name, as it tries to get in there."""
    for band in ('2g', '5g'):
        router.supplicant[band].send(
            f"<3>SME: Trying to authenticate with 02:00:00:00:09:00 (SSID='{ssid}' freq=2412 MHz)")


def test_a_rogue_that_is_named_like_a_failure_ends_no_attempt(router):
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    begin(router)
    for name in ('WPS-FAIL', 'WPS-TIMEOUT', 'PBC overlap detected'):
        tell_of_rogue(router, name)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert [value for _, value in router.info()] == [2, 'success', '', 'success', '']
    assert router.world.read('/tmp/wps_result') == '1\n'


def test_a_rogue_that_is_named_like_a_success_makes_none(router):
    begin(router)
    tell_of_rogue(router, 'WPS-SUCCESS')
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-FAIL msg=8 config_error=18')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    assert [value for _, value in router.info()] == [2, 'error', '', 'error', '']
    assert router.world.read('/tmp/wps_result') == '0\n'


def test_an_overlap_is_told_in_the_info_file(router):
    begin(router)
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-OVERLAP-DETECTED')  # not its word
        router.supplicant[band].send('<3>WPS: PBC overlap detected')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    assert [value for _, value in router.info()] == [2, 'overlap', '', 'overlap', '']


def test_a_hopeless_band_ends_the_attempt_before_its_time_is_over(router):
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    shifted = 0

    def next_second():
        nonlocal shifted
        shifted += 1
        router.world.shift_time(shifted)
        router.daemon.poke()
    wait_for(lambda: not router.daemon.is_running(), 'the end', between=next_second)
    assert router.end() == 0
    scores = [int(score) for score in re.findall(r'\] (\d+) percent', router.console.text())]
    assert scores == [42, 35, 29, 24, 20, 17, 14]
    assert not any(line.startswith('wps Timeout') for line in router.console.lines())
    assert router.commands()[-1] == '/etc/init.d/wifi force_restart'
    assert router.world.read('/tmp/wps_result') == '1\n'


def test_easymesh_on_both_sides_writes_the_backhaul_and_restarts_its_own_way(router):
    router.world.write('/etc/config/wificommonCfg', EASYMESH)
    learn(router, 'wlan1-vxd', 'Back', 'backsecret', 'easymesh_support=1\n')
    learn(router, 'wlan0-vxd', 'Back5', 'back5secret', 'easymesh_support=1\n')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.commands()[-7:] == [
        '/etc/init.d/wps mesh_config_wifi', '/etc/init.d/wps mesh_config_wifi',
        '/etc/init.d/wps config_wifi', *CANCELS, '/etc/init.d/wps re_kelm_info',
        '/etc/init.d/wifi restart_from_wps']
    assert read_json(router, '/tmp/wps_wifi_ap_bh.txt') == {
        'backhaul_ssid_2g': 'Back', 'backhaul_psk_key_2g': 'backsecret',
        'backhaul_ssid_5g': 'Back5', 'backhaul_psk_key_5g': 'back5secret'}
    assert read_json(router, '/tmp/_wps_wifi_sta.txt')['ssid_5g'] == 'Back5'
    assert read_json(router, '/tmp/_wps_wifi_ap.txt')['ssid_2g'] == 'Back_EXT'
    assert read_json(router, STATION_FILE) == {'mesh_enable': 'on'}


def test_easymesh_here_alone_keeps_to_the_normal_files(router):
    router.world.write('/etc/config/wificommonCfg', EASYMESH)
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    learn(router, 'wlan0-vxd', 'Root5', 'root5secret', 'easymesh_support=0\n')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert '/etc/init.d/wps mesh_config_wifi' not in router.commands()
    assert router.commands()[-1] == '/etc/init.d/wifi force_restart'
    assert router.world.read('/tmp/wps_wifi_ap_bh.txt') is None
    assert router.world.read('/tmp/_wps_wifi_sta.txt') is None
    station = read_json(router, STATION_FILE)
    assert [station[key] for key in ('ssid_2g', 'ssid_5g', 'mesh_enable')] == [
        'Root', 'Root5', 'off']


def test_a_missing_supplicant_file_leaves_the_other_bands_success_whole(router):
    learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    begin(router)
    router.supplicant['2g'].send('<3>WPS-TIMEOUT ')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    station = read_json(router, STATION_FILE)
    assert [station[key] for key in ('ssid_2g', 'password_2g', 'ssid_5g', 'password_5g')] == [
        '', 'root5secret', 'Root5', 'root5secret']
    assert '0 failed, use 1 STA info write back to 0 AP.' in router.console.lines()
