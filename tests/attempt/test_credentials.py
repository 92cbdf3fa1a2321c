# SPDX-License-Identifier: ISC
"""Whole repeater attempts: the names, keys and security that were learnt arrive as they are."""
import pytest

from test_repeater_attempt import AP_FILE, STATION_FILE, begin, read_json

OLD = 'network={\n\tssid="Before"\n\tpsk="before123"\n\tdisabled=1\n}\n\n'
ROOT_MAC, NEAR_MAC, FAR_MAC = '02:00:00:00:01:00', '02:00:00:00:01:03', '02:aa:bb:cc:dd:ee'


def learn(router, *lines):
    """What the 2.4 GHz station has learnt, as its wpa_supplicant writes it down."""
    text = OLD + 'network={\n' + ''.join(f'\t{line}\n' for line in lines) + '}\n'
    router.world.write('/tmp/run/wpa_supplicant-wlan1-vxd.conf', text)


def entry(mac, ssid, security='wpa2', cipher='aes'):
    return {'mac': mac, 'ssid': ssid, 'security': security, 'wpa_encryption': cipher,
            'channel': '36'}


def enrol_on_2g_alone(router, scan=(), known=''):
    """5 GHz times out and looks for the same network in its scan."""
    begin(router, scans={'5g': list(scan)})
    if known:
        router.supplicant['2g'].send(f'<3>WPS-AP-AVAILABLE-PBC bssid={known} ssid=Root')
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    return read_json(router, STATION_FILE), read_json(router, AP_FILE)


@pytest.mark.parametrize('written, name, spelt', [
    ('4bc3bc636865', 'Küche', None),
    ('P"K\\xc3\\xbcche"', 'Küche', None),
    ('" two  blanks "', ' two  blanks ', None),
    ('"{"quotes"}"', '{"quotes"}', None),
    ('4bfc636865', 'K\ufffdche', '4bfc636865'),
    ('410042', 'A\ufffdB', '410042')])
def test_a_name_arrives_and_is_found_in_the_scan_byte_by_byte(router, written, name, spelt):
    learn(router, f'ssid={written}', 'psk="rootsecret"', 'proto=RSN', 'key_mgmt=WPA-PSK')
    on_air = 'A\0B' if spelt == '410042' else name
    scan = [entry(FAR_MAC, on_air)] if spelt in (None, '410042') else []
    station, access_point = enrol_on_2g_alone(router, scan)
    assert station['ssid_2g'] == name
    assert station.get('ssid_hex_2g') == spelt
    assert access_point['ssid_2g'] == name + '_EXT'
    assert access_point.get('ssid_hex_2g') == (spelt and spelt + '_EXT'.encode().hex())
    if scan:
        assert (station['ssid_5g'], station['password_5g']) == (name, 'rootsecret')
        assert station.get('ssid_hex_5g') == spelt


@pytest.mark.parametrize('lines, security, key', [
    (['psk="rootsecret"', 'key_mgmt=WPA-PSK SAE', 'proto=RSN'], 'psk_sae', 'rootsecret'),
    (['psk="rootsecret"', 'key_mgmt=SAE', 'proto=RSN'], 'sae_only', 'rootsecret'),
    (['sae_password="own"', 'key_mgmt=SAE', 'proto=RSN'], 'sae_only', 'own'),
    (['psk="rootsecret"', 'proto=RSN'], 'wpa2', 'rootsecret')])
def test_the_security_is_never_none_beside_a_key(router, lines, security, key):
    learn(router, 'ssid="Root"', *lines)
    station, _ = enrol_on_2g_alone(router)
    for band in ('2g', '5g'):
        assert station[f'security_{band}'] == security
        assert station[f'password_{band}'] == key


@pytest.mark.parametrize('scan, name, security', [
    pytest.param([entry(FAR_MAC, 'Root', 'none', '')], '', 'wpa2', id='open twin alone'),
    pytest.param([entry(FAR_MAC, 'Root', 'none', ''), entry(FAR_MAC, 'Root', 'psk_sae')], 'Root',
                 'psk_sae', id='open twin before the root'),
    pytest.param([entry(NEAR_MAC, 'Stranger', 'none', '')], '', 'wpa2', id='open neighbour'),
    pytest.param([entry(NEAR_MAC, 'Stranger', 'wep', '')], '', 'wpa2', id='WEP neighbour'),
    pytest.param([entry(ROOT_MAC, 'Stranger', 'owe')], '', 'wpa2', id='its own address, OWE'),
    pytest.param([entry(FAR_MAC, 'Root', 'wpa', 'tkip')], 'Root', 'wpa2', id='older twin')])
def test_what_a_neighbour_sends_never_lowers_the_security(router, scan, name, security):
    learn(router, 'ssid="Root"', 'psk="rootsecret"', 'proto=RSN', 'key_mgmt=WPA-PSK',
          'pairwise=CCMP')
    station, _ = enrol_on_2g_alone(router, scan, known=ROOT_MAC)
    assert (station['ssid_5g'], station['security_5g']) == (name, security)
    assert station['wpa_encryption_5g'] == 'aes'
    assert station['password_5g'] == 'rootsecret'


def test_a_learnt_open_network_is_found_as_before(router):
    learn(router, 'ssid="Root"', 'key_mgmt=NONE')
    station, _ = enrol_on_2g_alone(router, [entry(FAR_MAC, 'Root', 'none', '')])
    assert (station['ssid_5g'], station['security_5g'], station['password_5g']) == (
        'Root', 'none', '')
