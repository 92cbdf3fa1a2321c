# SPDX-License-Identifier: ISC
"""The virtual router's own stand-ins: netifd's reading of the settings, and a button's events."""
import json
import os
import shutil

import pytest

FACE = '/mnt/src/router/stock'
GUEST = '/mnt/src/router/guest'


@pytest.fixture(name='face')
def put_face(stock):
    """The files under test, and the channel to the host as a plain file."""
    for source, place in ((f'{FACE}/lib/functions/netifd.sh', '/lib/functions/netifd.sh'),
                          (f'{GUEST}/lib/functions/router.sh', '/lib/functions/router.sh'),
                          (f'{FACE}/usr/lib/router/button', '/usr/lib/router/button'),
                          (f'{FACE}/etc/config/wireless', '/etc/config/wireless')):
        os.makedirs(os.path.dirname(stock.at(place)), exist_ok=True)
        shutil.copy(source, stock.at(place))
    os.makedirs(stock.at('/run'), exist_ok=True)
    stock.fake('hostapd', 'exit 0')
    return stock


def wanted(face, radio='radio0'):
    """Has the radio's files written; returns hostapd's lines."""
    result = face.run('. /lib/functions.sh; . /lib/functions/router.sh; '
                      '. /lib/functions/netifd.sh; config_load wireless; '
                      'write_wanted "$1" /run/wanted', radio)
    assert (result.status, result.err) == (0, '')
    return (face.read('/run/wanted/hostapd.conf') or '').splitlines()


def of_bss(lines, name):
    """The lines of one access point, from its name to the next."""
    start = next(index for index, line in enumerate(lines)
                 if line in (f'interface={name}', f'bss={name}'))
    end = next((index for index in range(start + 1, len(lines))
                if lines[index].startswith('bss=')), len(lines))
    return lines[start:end]


WPS = {'eap_server=1', 'wps_independent=1', 'device_name=OpenWrt AP', 'device_type=6-0050F204-1'}


def test_a_network_without_a_method_of_wps_has_no_line_of_it(face):
    lines = wanted(face)
    assert [line for line in lines if 'wps' in line or line in WPS] == []
    assert 'wpa_psk_file=/var/run/hostapd-phy0-ap0.psk' in of_bss(lines, 'phy0-ap0')


@pytest.mark.parametrize('settings, state, methods', [
    ({'wps_pushbutton': '1'}, 'wps_state=2', 'config_methods=push_button'),
    ({'wps_pushbutton': '1', 'wps_label': '1'}, 'wps_state=2',
     'config_methods=push_button label'),
    ({'wps_pushbutton': '1', 'encryption': 'none'}, 'wps_state=1', 'config_methods=push_button'),
])
def test_wps_is_on_for_the_one_network_that_has_it(face, settings, state, methods):
    for name, value in settings.items():
        face.uci('set', f'wireless.default_radio0.{name}={value}')
    face.uci('commit', 'wireless')
    lines = wanted(face)
    assert WPS | {state, methods} <= set(of_bss(lines, 'phy0-ap0'))
    assert not [line for line in of_bss(lines, 'phy0-ap1') if 'wps' in line]


def test_a_hostapd_without_wps_gets_no_line_of_it(face):
    face.uci('set', 'wireless.default_radio0.wps_pushbutton=1')
    face.uci('commit', 'wireless')
    face.fake('hostapd', 'exit 1')
    assert [line for line in wanted(face) if 'wps' in line] == []


def test_raw_lines_of_the_owner_are_in_the_network_they_belong_to(face):
    face.uci('add_list', 'wireless.guest.hostapd_bss_options=uuid=1-2-3')
    face.uci('commit', 'wireless')
    lines = wanted(face)
    assert 'uuid=1-2-3' in of_bss(lines, 'phy0-ap1')
    assert 'uuid=1-2-3' not in of_bss(lines, 'phy0-ap0')


@pytest.mark.parametrize('encryption, lines', [
    ('psk2', ['wpa=2', 'wpa_key_mgmt=WPA-PSK']), ('psk2+ccmp', ['wpa=2', 'wpa_key_mgmt=WPA-PSK']),
    ('psk-mixed', ['wpa=3', 'wpa_key_mgmt=WPA-PSK']),
    ('sae', ['wpa=2', 'wpa_key_mgmt=SAE', 'ieee80211w=2']),
    ('sae-mixed', ['wpa=2', 'wpa_key_mgmt=SAE WPA-PSK', 'ieee80211w=1']),
])
def test_encryption(face, encryption, lines):
    face.uci('set', f'wireless.default_radio0.encryption={encryption}')
    face.uci('commit', 'wireless')
    bss = of_bss(wanted(face), 'phy0-ap0')
    assert set(lines) <= set(bss)
    assert ('wpa_psk_file=/var/run/hostapd-phy0-ap0.psk' in bss) == (encryption != 'sae')


@pytest.mark.parametrize('name, in_hex', [
    ('Elm House', '456c6d20486f757365'), ("it's $HOME", '697427732024484f4d45'),
    ('"\\`', '225c60'), ('Öl', 'c3966c'), ('  ', '2020'),
])
def test_a_name_reaches_hostapd_and_the_bus_byte_for_byte(face, name, in_hex):
    face.uci('set', f'wireless.default_radio0.ssid={name}')
    face.uci('commit', 'wireless')
    assert f'ssid2={in_hex}' in of_bss(wanted(face), 'phy0-ap0')
    told = json.loads('{' + face.read('/run/wanted/status.up') + '}')
    assert told['interfaces'][0]['config']['ssid'] == name
    assert told['interfaces'][0]['ifname'] == 'phy0-ap0'
    assert 'ifname' not in json.loads('{' + face.read('/run/wanted/status.down') + '}')[
        'interfaces'][0]


@pytest.mark.parametrize('key, line', [
    ('seven green elms', 'wpa_passphrase=seven green elms'),
    ('a' * 63, 'wpa_passphrase=' + 'a' * 63),
    ('0f' * 32, 'wpa_psk=' + '0f' * 32),
])
def test_a_key_of_64_digits_is_the_key_itself(face, key, line):
    face.uci('set', f'wireless.default_radio0.key={key}')
    face.uci('commit', 'wireless')
    assert line in of_bss(wanted(face), 'phy0-ap0')


def test_a_radio_that_is_off_has_nothing_to_set_up(face):
    face.uci('set', 'wireless.radio0.disabled=1')
    face.uci('commit', 'wireless')
    assert wanted(face) == []
    assert face.read('/run/wanted/interfaces') == ''
    assert json.loads('{' + face.read('/run/wanted/status.down') + '}')['disabled'] is True


def test_what_a_button_does_is_called_with_what_procd_knows(face):
    face.write('/etc/rc.button/wps', '#!/bin/sh\n'
               'echo "$BUTTON $ACTION $SEEN $TYPE $PATH" >>/run/called\n', 0o755)
    assert face.run('/usr/lib/router/button wps pressed 60; '
                    '/usr/lib/router/button wps released 1').status == 0
    path = '/sbin:/bin:/usr/sbin:/usr/bin'
    assert face.read('/run/called').splitlines() == [f'wps pressed 60 button {path}',
                                                     f'wps released 1 button {path}']


@pytest.mark.parametrize('after, called', [
    ('', ['pressed', 'timeout 1']),
    ('/usr/lib/router/button wps released 0', ['pressed', 'released 0']),
])
def test_a_handler_is_called_again_unless_another_event_comes_first(face, after, called):
    face.write('/etc/rc.button/wps', '#!/bin/sh\n'
               '[ "$ACTION" != pressed ] || { echo pressed >>/run/called; exit 1; }\n'
               'echo "$ACTION $SEEN" >>/run/called\n', 0o755)
    face.run(f'/usr/lib/router/button wps pressed 0; {after}')
    # The second call, if there is to be one, is there when as much time is over for a third.
    face.run('while [ "$(wc -l </run/called)" -lt 2 ]; do sleep 0.05; done; sleep 1.2')
    assert face.read('/run/called').splitlines() == called


def test_an_event_that_comes_before_the_wait_has_a_group_of_its_own_ends_it_too(face):
    """As on a machine with much to do: setsid is not through when the next event is there."""
    face.write('/usr/sbin/setsid', '#!/bin/sh\n'
               'while [ ! -e /run/go-on ]; do sleep 0.02; done\n'
               'echo late >>/run/called\nexec /usr/bin/setsid "$@"\n', 0o755)
    face.write('/etc/rc.button/wps', '#!/bin/sh\necho "$ACTION" >>/run/called\n'
               '[ "$ACTION" != pressed ] || exit 1\n', 0o755)
    face.run('/usr/lib/router/button wps pressed 0; waits=$(cat /run/button-wps.timer); '
             '/usr/lib/router/button wps released 0; : >/run/go-on; '
             'while [ -e "/proc/$waits/exe" ]; do sleep 0.02; done')
    assert face.read('/run/called').splitlines() == ['pressed', 'released']


@pytest.mark.parametrize('radio, band', [('radio0', '2412 2437 2462'),
                                         ('radio1', '5180 5200 5220')])
def test_a_station_hears_the_band_of_its_radio(face, radio, band):
    for name, value in (('device', radio), ('mode', 'sta'), ('ssid', 'Oak'),
                        ('encryption', 'psk2'), ('key', 'acorns in the cellar')):
        face.uci('set', f'wireless.guest.{name}={value}')
    face.uci('commit', 'wireless')
    wanted(face, radio)
    lines = face.read(f'/run/wanted/phy{radio[-1]}-sta0.conf').splitlines()
    assert lines == [f'freq_list={band}', 'network={', '\tscan_ssid=1', '\tssid=4f616b',
                     '\tkey_mgmt=WPA-PSK', '\tproto=RSN', '\tpsk="acorns in the cellar"', '}']
