# SPDX-License-Identifier: ISC
"""What prepare says of the router, in words, and what it leaves for the daemon."""
import json
import os
import subprocess

import pytest
from stock import two_bands
from wifi import put_access_point, put_socket, put_station, put_wifi, state_of
from world import wait_for

PREPARE = '/usr/libexec/kelm/prepare'
NO_WPS = 'has no WPS: install wpad-mbedtls in place of wpad-basic-mbedtls'
STARTING = 'radio is still starting'
ENCRYPTION = 'WPS cannot work with this encryption'


@pytest.fixture
def router(stock):
    """Two access points are chosen, and all is well with them."""
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
        stock.uci('add_list', f'kelm.main.ap=default_radio{number}')
        stock.uci('set', f'wireless.default_radio{number}.wps_pushbutton=1')
    stock.uci('commit')
    return stock


def prepare(router, status, argument=''):
    result = router.run(f'{PREPARE} {argument}')
    assert (result.status, result.out, result.err) == (status, '', '')


def change_radio(router, **values):
    wireless = two_bands()
    wireless['radio0'].update(values)
    router.set_wireless(wireless)


def change_interface(router, **values):
    wireless = two_bands()
    wireless['radio0']['interfaces'][0]['config'].update(values)
    router.set_wireless(wireless)


def link_target(router, path):
    place = router.at(path)
    return os.readlink(place) if os.path.islink(place) else None


def test_both_bands_are_ready(router):
    prepare(router, 0)
    assert state_of(router, 'state') == {'state': 'waiting',
                                         'message': 'ready on 2.4 GHz and 5 GHz'}
    assert state_of(router, 'band.2g') == {
        'section': 'default_radio0', 'ifname': 'phy0-ap0', 'ssid_hex': '456c6d20486f757365',
        'ready': '1', 'message': 'ready'}
    assert state_of(router, 'band.5g')['ifname'] == 'phy1-ap0'
    assert link_target(router, '/var/run/hostapd/wlan1') == 'phy0-ap0'
    assert link_target(router, '/var/run/hostapd/wlan0') == 'phy1-ap0'
    assert router.read('/tmp/device_runtime.info') == '{"mode": 1}\n'
    assert router.read('/tmp/device.info') == '{"RFBand": 2}\n'
    assert router.read('/tmp/wps.conf') == \
        'enabled=1\napWpsAvailable=3\nstaWpsAvailable=0\npinEnabled=off\n'
    assert router.read('/tmp/wifi.conf') == (
        'madeBy=kelm\n'
        '\n'
        'apBssEnabledApMode_2g=on\napBssEnabled_2g=on\nwlanSecType_2g=1\n'
        'apBssEnabledApMode_5g=on\napBssEnabled_5g=on\nwlanSecType_5g=1\n'
        '\n'
        'staBssEnabled_2g=off\nstaBssEnabled_5g=off\n')
    modes = [router.mode(f'/tmp/{name}')
             for name in ('wps.conf', 'wifi.conf', 'device.info', 'device_runtime.info')]
    assert modes == [0o600, 0o644, 0o644, 0o644]
    for number in (0, 1):
        assert router.read(f'/var/run/hostapd-phy{number}-ap0.psk') == \
            'wps=1 00:00:00:00:00:00 seven green elms\n'
    assert router.log() == ['daemon.notice kelm: ready on 2.4 GHz and 5 GHz']


# Each changes something on 2.4 GHz: what is said of it.
TROUBLES = {
    'hidden': (lambda router: change_interface(router, hidden=True), 'the network is hidden'),
    'hidden in digits': (lambda router: change_interface(router, hidden='1'),
                         'the network is hidden'),
    'open': (lambda router: change_interface(router, encryption='none'), 'the network is open'),
    'sae': (lambda router: change_interface(router, encryption='sae'), 'WPA3 only'),
    'psk3': (lambda router: change_interface(router, encryption='psk3'), 'WPA3 only'),
    'sae+ccmp': (lambda router: change_interface(router, encryption='sae+ccmp'), 'WPA3 only'),
    'owe': (lambda router: change_interface(router, encryption='owe'), ENCRYPTION),
    'wpa2': (lambda router: change_interface(router, encryption='wpa2'), ENCRYPTION),
    'wpa3-mixed': (lambda router: change_interface(router, encryption='wpa3-mixed'), ENCRYPTION),
    'wep-open': (lambda router: change_interface(router, encryption='wep-open'), ENCRYPTION),
    'dpp': (lambda router: change_interface(router, encryption='dpp'), ENCRYPTION),
    'backhaul': (lambda router: change_interface(router, multi_ap=1),
                 'the network is a Multi-AP backhaul'),
    'pending': (lambda router: change_radio(router, pending=True, up=False), STARTING),
    'not begun': (lambda router: change_radio(router, up=False), STARTING),
    'disabled': (lambda router: change_radio(router, disabled=True, up=False),
                 'the radio is switched off'),
    'wifi down': (lambda router: change_radio(router, autostart=False, up=False),
                  'the radio is switched off'),
    'failed': (lambda router: change_radio(router, retry_setup_failed=True, up=False),
               'the radio does not start'),
    'no socket': (lambda router: router.remove('/var/run/hostapd/phy0-ap0'), STARTING),
    'no answer': (lambda router: router.remove('/mnt/wps/phy0-ap0'), STARTING),
    'setup not applied yet': (
        lambda router: put_access_point(router, wps='disabled', more=''), STARTING),
    'TKIP alone': (lambda router: put_access_point(router, wps='disabled'), ENCRYPTION),
    'open in hostapd': (lambda router: put_access_point(router, wps='not configured'),
                        'the network is open'),
    'switched off by the owner': (
        lambda router: router.uci('set', 'wireless.default_radio0.disabled=1'),
        'the network is switched off'),
    'no button': (lambda router: (router.uci('set', 'wireless.default_radio0.wps_pushbutton=0'),
                                  put_access_point(router, wps='disabled', more='')),
                  'its wps_pushbutton is 0'),
    'name taken': (lambda router: put_socket(router, 'hostapd', 'wlan1'),
                   'another interface is named wlan1'),
    'no file of keys': (lambda router: router.remove('/var/run/hostapd-phy0-ap0.psk'),
                        'hostapd does not take the key that is to last'),
    'no key': (lambda router: put_access_point(router, key=''),
               'hostapd does not take the key that is to last'),
    'not read again': (lambda router: router.write('/mnt/wps/raw', 'FAIL\n'),
                       'hostapd does not take the key that is to last'),
}


@pytest.mark.parametrize('case', TROUBLES)
def test_a_band_that_cannot_be_served_is_left_out_with_the_reason(router, case):
    change, reason = TROUBLES[case]
    change(router)
    both = case == 'not read again'
    prepare(router, 1 if both else 0)
    band = state_of(router, 'band.2g')
    assert (band['ready'], band['message'], band['section']) == ('0', reason, 'default_radio0')
    assert link_target(router, '/var/run/hostapd/wlan1') is None
    if both:
        return
    words = f'ready on 5 GHz; 2.4 GHz: {reason}'
    assert state_of(router, 'state') == {'state': 'waiting', 'message': words}
    assert router.log() == [f'daemon.notice kelm: {words}']
    assert router.read('/tmp/device.info') == '{"RFBand": 2}\n'
    assert 'apWpsAvailable=2\n' in router.read('/tmp/wps.conf')
    assert link_target(router, '/var/run/hostapd/wlan0') == 'phy1-ap0'


SERVED = ('psk', 'psk2', 'psk2+ccmp', 'psk-mixed', 'psk-mixed+ccmp', 'sae-mixed', 'psk3-mixed')


@pytest.mark.parametrize('encryption', SERVED)
def test_what_has_a_passphrase_is_served(router, encryption):
    change_interface(router, encryption=encryption)
    prepare(router, 0)
    assert state_of(router, 'band.2g')['message'] == 'ready'


def test_a_trouble_that_ends_is_told_once_and_a_reason_is_not_repeated(router):
    change_interface(router, hidden=True)
    prepare(router, 0)
    prepare(router, 0)
    router.set_wireless(two_bands())
    prepare(router, 0)
    assert router.log() == [
        'daemon.notice kelm: ready on 5 GHz; 2.4 GHz: the network is hidden',
        'daemon.notice kelm: ready on 2.4 GHz and 5 GHz']


def test_nothing_can_be_served(router):
    wireless = two_bands()
    for radio in wireless.values():
        radio.update(up=False, pending=True)
    router.set_wireless(wireless)
    prepare(router, 1)
    words = f'2.4 GHz: {STARTING}; 5 GHz: {STARTING}'
    assert state_of(router, 'state') == {'state': 'not-ready', 'message': words}
    assert not router.exists('/tmp/wps.conf')


def test_netifd_is_not_there(router):
    router.no_object('network.wireless')
    prepare(router, 1)
    words = f'2.4 GHz: {STARTING}; 5 GHz: {STARTING}'
    assert state_of(router, 'state') == {'state': 'not-ready', 'message': words}


@pytest.mark.parametrize('mode, program', (('ap', 'hostapd'), ('repeater', 'wpa_supplicant')))
def test_a_build_without_wps_is_told_what_to_install(router, mode, program):
    router.uci('set', f'kelm.main.mode={mode}')
    router.fake(program, 'exit 1')
    prepare(router, 1)
    assert state_of(router, 'state') == {'state': 'not-ready', 'message': f'{program} {NO_WPS}'}
    assert state_of(router, 'band.5g')['message'] == f'{program} {NO_WPS}'
    assert router.log() == [f'daemon.notice kelm: {program} {NO_WPS}']


def test_without_a_list_the_first_with_a_push_button_is_chosen(router):
    router.uci('delete', 'kelm.main.ap')
    router.uci('delete', 'wireless.default_radio0.wps_pushbutton')
    prepare(router, 0)
    assert state_of(router, 'state')['message'] == 'ready on 5 GHz'
    assert state_of(router, 'band.2g')['message'] == 'no access point is chosen'
    assert router.read('/tmp/device.info') == '{"RFBand": 1}\n'
    router.uci('delete', 'wireless.default_radio1.wps_pushbutton')
    prepare(router, 1)
    assert state_of(router, 'state') == {'state': 'not-ready',
                                         'message': 'no access point is chosen'}


def put_section(router, name, device='radio0', mode='ap'):
    router.uci('set', f'wireless.{name}=wifi-iface')
    router.uci('set', f'wireless.{name}.device={device}')
    router.uci('set', f'wireless.{name}.mode={mode}')


# The owner's list holds this, too: what is said of it.
LEFT_OUT = {
    'nobody': (lambda router: None, 'nobody is not in /etc/config/wireless'),
    'guest': (lambda router: put_section(router, 'guest'),
              '2.4 GHz: one on a band, guest is left out'),
    'uplink': (lambda router: put_section(router, 'uplink', mode='sta'),
               'uplink is left out: its mode is not ap'),
    'six': (lambda router: (router.uci('set', 'wireless.radio2=wifi-device'),
                            router.uci('set', 'wireless.radio2.band=6g'),
                            put_section(router, 'six', 'radio2')),
            'six is left out: no WPS on 6g'),
    'lost': (lambda router: put_section(router, 'lost', 'radio9'),
             'lost is left out: no WPS on its radio'),
    "it's'$(touch${IFS}/tmp/hacked)": (
        lambda router: None, "it's'$(touch${IFS}/tmp/hacked) is not in /etc/config/wireless"),
}


@pytest.mark.parametrize('section', LEFT_OUT)
def test_a_section_that_takes_no_part_is_named(router, section):
    change, words = LEFT_OUT[section]
    change(router)
    router.uci('add_list', f'kelm.main.ap={section}')
    prepare(router, 0)
    assert state_of(router, 'state')['message'] == f'ready on 2.4 GHz and 5 GHz; {words}'
    assert not router.exists('/tmp/hacked')


def test_a_section_on_two_radios_serves_both_bands(router):
    router.uci('delete', 'kelm.main.ap')
    router.uci('delete', 'wireless.default_radio1')
    router.uci('delete', 'wireless.default_radio0.device')
    router.uci('add_list', 'wireless.default_radio0.device=radio0')
    router.uci('add_list', 'wireless.default_radio0.device=radio1')
    wireless = two_bands()
    wireless['radio1']['interfaces'][0]['section'] = 'default_radio0'
    router.set_wireless(wireless)
    prepare(router, 0)
    assert state_of(router, 'band.2g')['ifname'] == 'phy0-ap0'
    assert state_of(router, 'band.5g')['ifname'] == 'phy1-ap0'
    assert state_of(router, 'state')['message'] == 'ready on 2.4 GHz and 5 GHz'


def move_to_radio(router, name, **options):
    """2.4 GHz is on a radio that the owner has called so."""
    wireless = two_bands()
    wireless[name] = wireless.pop('radio0')
    router.uci('set', f'wireless.{name}=wifi-device')
    for option, value in options.items():
        router.uci('set', f'wireless.{name}.{option}={value}')
    if 'band' not in options:
        del wireless[name]['config']['band']
    router.uci('set', f'wireless.default_radio0.device={name}')
    router.set_wireless(wireless)


@pytest.mark.parametrize('name, options', (
    ('old', {'hwmode': '11g'}),  # a file from before 22.03: netifd tells no band either
    ('2ghz', {'band': '2g'}),    # no name without quotes in an expression
))
def test_a_radio_may_have_any_name_and_the_words_of_old(router, name, options):
    move_to_radio(router, name, **options)
    prepare(router, 0)
    assert state_of(router, 'state')['message'] == 'ready on 2.4 GHz and 5 GHz'


def test_a_section_on_two_radios_of_one_band_is_served_on_the_first(router):
    router.uci('set', 'wireless.radio2=wifi-device')
    router.uci('set', 'wireless.radio2.band=5g')
    router.uci('delete', 'wireless.default_radio1.device')
    router.uci('add_list', 'wireless.default_radio1.device=radio1')
    router.uci('add_list', 'wireless.default_radio1.device=radio2')
    wireless = two_bands()
    wireless['radio2'] = json.loads(json.dumps(wireless['radio1']))
    wireless['radio2']['interfaces'][0]['ifname'] = 'phy2-ap0'
    router.set_wireless(wireless)
    prepare(router, 0)
    assert state_of(router, 'band.5g')['ifname'] == 'phy1-ap0'
    assert state_of(router, 'state')['message'] == 'ready on 2.4 GHz and 5 GHz'


def test_a_station_is_not_served_as_an_access_point(router):
    put_section(router, 'uplink', mode='sta')
    wireless = two_bands()
    wireless['radio0']['interfaces'].insert(0, {
        'section': 'uplink', 'ifname': 'phy0-sta0',
        'config': {'mode': 'sta', 'ssid': 'Root', 'encryption': 'psk2'}})
    router.set_wireless(wireless)
    router.uci('set', 'kelm.main.ap=uplink default_radio1')
    prepare(router, 0)
    assert state_of(router, 'state')['message'] == \
        'ready on 5 GHz; uplink is left out: its mode is not ap'


NAMES = ("it's", 'two\nlines', '$(touch /tmp/hacked)', '`id`', 'a"b\\c', ' blanks ', 'Küche ☕',
         'message=ready', "'; touch /tmp/hacked; '")


@pytest.mark.parametrize('name', NAMES)
def test_a_name_is_bytes_and_nothing_else(router, name):
    change_interface(router, ssid=name, hidden=True, key=f'{name}{name}{name}')
    prepare(router, 0)
    band = state_of(router, 'band.2g')
    assert bytes.fromhex(band['ssid_hex']).decode() == name
    assert (band['ready'], band['message']) == ('0', 'the network is hidden')
    assert not router.exists('/tmp/hacked')
    for file in ('wps.conf', 'wifi.conf', 'device.info'):
        assert name not in router.read(f'/tmp/{file}')


# Lines of hostapd's configuration: the line for the file of keys.
KEYS = {
    'wpa_passphrase=seven green elms': 'seven green elms',
    "wpa_passphrase=it's $HOME `id` \"x\" \\n": "it's $HOME `id` \"x\" \\n",
    'wpa_passphrase= blanks around ': ' blanks around ',
    'wpa_passphrase=a=b=c=d=e': 'a=b=c=d=e',
    f'wpa_psk={"0123456789abcdef" * 4}': '0123456789abcdef' * 4,
    'wpa_passphrase=Küche und Keller': 'Küche und Keller',
}


@pytest.mark.parametrize('line', KEYS)
def test_the_key_in_use_is_the_one_that_lasts(router, line):
    put_access_point(router, key=line)
    router.write('/var/run/hostapd-phy0-ap0.psk', '02:00:00:00:00:07 a key of its own', 0o640)
    os.chown(router.at('/var/run/hostapd-phy0-ap0.psk'), 0, 101)
    prepare(router, 0)
    assert router.read('/var/run/hostapd-phy0-ap0.psk') == (
        '02:00:00:00:00:07 a key of its own\n'
        f'wps=1 00:00:00:00:00:00 {KEYS[line]}\n')
    now = os.stat(router.at('/var/run/hostapd-phy0-ap0.psk'))
    assert (now.st_mode & 0o7777, now.st_uid, now.st_gid) == (0o640, 0, 101)


def test_a_key_of_before_is_replaced_and_one_that_is_right_stays(router):
    place = '/var/run/hostapd-phy0-ap0.psk'
    router.write(place, 'wps=1 00:00:00:00:00:00 another one\n', 0o600)
    prepare(router, 0)
    assert router.read(place) == 'wps=1 00:00:00:00:00:00 seven green elms\n'
    before = os.stat(router.at(place)).st_ino
    prepare(router, 0)
    assert os.stat(router.at(place)).st_ino == before


@pytest.mark.parametrize('chosen, other, key', (
    ('phy0-ap0', 'phy0-ap1', 'the first one'), ('phy0-ap1', 'phy0-ap0', 'of the guests')))
def test_each_access_point_of_a_phy_has_its_own_key(router, chosen, other, key):
    put_access_point(router, key='wpa_passphrase=the first one', others=(
        'bss=phy0-ap1\nwpa_passphrase=of the guests\n'
        'wpa_psk_file=/var/run/hostapd-phy0-ap1.psk\n'))
    put_socket(router, 'hostapd', 'phy0-ap1')
    router.write('/mnt/wps/phy0-ap1', 'configured\n')
    router.write('/var/run/hostapd-phy0-ap1.psk', '', 0o640)
    wireless = two_bands()
    wireless['radio0']['interfaces'][0]['ifname'] = chosen
    router.set_wireless(wireless)
    prepare(router, 0)
    assert router.read(f'/var/run/hostapd-{chosen}.psk') == f'wps=1 00:00:00:00:00:00 {key}\n'
    assert router.read(f'/var/run/hostapd-{other}.psk') == ''


def test_a_file_of_keys_that_the_owner_has_named_is_his(router):
    router.write('/etc/my.psk', '', 0o600)
    path = router.at('/var/run/hostapd-phy0.conf')
    with open(path, encoding='utf-8') as file:
        text = file.read().replace('/var/run/hostapd-phy0-ap0.psk', '/etc/my.psk')
    router.write('/var/run/hostapd-phy0.conf', text)
    prepare(router, 0)
    assert router.read('/etc/my.psk') == ''
    assert state_of(router, 'band.2g')['message'] == 'ready'


def test_a_link_in_place_of_the_file_of_keys_is_not_followed(router):
    router.write('/etc/shadow', 'root\n', 0o600)
    router.remove('/var/run/hostapd-phy0-ap0.psk')
    os.symlink('/etc/shadow', router.at('/var/run/hostapd-phy0-ap0.psk'))
    prepare(router, 0)
    assert router.read('/etc/shadow') == 'root\n'
    assert state_of(router, 'band.2g')['message'] == 'hostapd does not take the key that is to last'


@pytest.mark.parametrize('make', (
    lambda place: os.symlink('/etc/config/kelm', place), os.mkfifo, os.mkdir))
def test_what_a_stranger_has_put_in_tmp_is_replaced_and_not_followed(router, make):
    settings = router.read('/etc/config/kelm')
    for name in ('wps.conf', 'wifi.conf', 'device.info', 'device_runtime.info', 'kelm.pid'):
        make(router.at(f'/tmp/{name}'))
    prepare(router, 0)
    for name in ('wps.conf', 'wifi.conf', 'device.info', 'device_runtime.info'):
        assert os.path.isfile(router.at(f'/tmp/{name}')), name
        assert not os.path.islink(router.at(f'/tmp/{name}')), name
    assert router.read('/etc/config/kelm') == settings


def test_links_follow_the_interfaces_and_stale_ones_go(router):
    prepare(router, 0)
    wireless = two_bands()
    wireless['radio0']['interfaces'][0]['ifname'] = 'phy2-ap0'
    del wireless['radio1']
    router.set_wireless(wireless)
    put_access_point(router, 'phy2-ap0')
    prepare(router, 0)
    assert link_target(router, '/var/run/hostapd/wlan1') == 'phy2-ap0'
    assert link_target(router, '/var/run/hostapd/wlan0') is None


def test_an_interface_that_has_the_daemons_name_needs_no_link(router):
    wireless = two_bands()
    wireless['radio0']['interfaces'][0]['ifname'] = 'wlan1'
    router.set_wireless(wireless)
    put_access_point(router, 'wlan1')
    prepare(router, 0)
    assert state_of(router, 'band.2g')['message'] == 'ready'
    assert link_target(router, '/var/run/hostapd/wlan1') is None


@pytest.fixture
def repeater(router):
    wireless = two_bands()
    for number in (0, 1):
        put_section(router, f'wwan{number}', f'radio{number}', 'sta')
        put_station(router, f'phy{number}-sta0')
        wireless[f'radio{number}']['interfaces'].append({
            'section': f'wwan{number}', 'ifname': f'phy{number}-sta0',
            'config': {'mode': 'sta', 'ssid': 'Great Oak', 'encryption': 'psk2'}})
    router.uci('set', 'kelm.main.mode=repeater')
    router.uci('add_list', 'kelm.main.sta=wwan0')
    router.uci('add_list', 'kelm.main.sta=wwan1')
    router.uci('commit')
    router.set_wireless(wireless)
    return router


def test_a_repeater(repeater):
    put_station(repeater, 'phy1-sta0', 'COMPLETED')
    prepare(repeater, 0)
    assert state_of(repeater, 'state')['message'] == 'ready on 2.4 GHz and 5 GHz'
    assert state_of(repeater, 'band.5g')['section'] == 'wwan1'
    assert repeater.read('/tmp/device_runtime.info') == '{"mode": 0}\n'
    assert repeater.read('/tmp/wps.conf') == \
        'enabled=1\napWpsAvailable=0\nstaWpsAvailable=3\npinEnabled=off\n'
    assert repeater.read('/tmp/wifi.conf') == (
        'madeBy=kelm\n'
        '\n'
        'apBssEnabledApMode_2g=off\napBssEnabled_2g=off\nwlanSecType_2g=0\n'
        'apBssEnabledApMode_5g=off\napBssEnabled_5g=off\nwlanSecType_5g=0\n'
        '\n'
        'staBssEnabled_2g=on\nstaBssEnabled_5g=on\n')
    assert repeater.read('/tmp/wifi_runtime_info.2g') == '{"status": 0}\n'
    assert repeater.read('/tmp/wifi_runtime_info.5g') == '{"status": 1}\n'
    assert link_target(repeater, '/var/run/wpa_supplicant/wlan1-vxd') == 'phy0-sta0'
    assert link_target(repeater, '/var/run/wpa_supplicant/wlan0-vxd') == 'phy1-sta0'
    assert link_target(repeater, '/var/run/hostapd/wlan1') is None
    assert 'wpa_cli -p /var/run/wpa_supplicant -i phy0-sta0 set wps_cred_processing 2' in \
        repeater.commands()


def test_access_points_that_follow(repeater):
    repeater.uci('set', 'kelm.main.follow=1')
    prepare(repeater, 0)
    assert ('apBssEnabledApMode_2g=on\napBssEnabled_2g=on\nwlanSecType_2g=1\n'
            in repeater.read('/tmp/wifi.conf'))


def test_a_supplicant_that_comes_later(repeater):
    repeater.remove('/mnt/wpa/phy0-sta0')
    prepare(repeater, 0)
    assert state_of(repeater, 'state')['message'] == f'ready on 5 GHz; 2.4 GHz: {STARTING}'


def test_a_netifd_that_does_not_answer_holds_nobody_long(router):
    router.object('network.wireless', status='sleep 60')
    result = router.run(PREPARE, timeout=15)
    assert result.status == 1
    assert state_of(router, 'state')['message'] == f'2.4 GHz: {STARTING}; 5 GHz: {STARTING}'


def test_a_look_whose_caller_has_gone_changes_nothing(router):
    """It has waited for another one, while the service was stopped."""
    os.mkdir(router.at('/var/run/kelm'))
    other = router.start('exec 7>> /var/run/kelm/prepare.lock; flock 7; echo locked; read -r go',
                         stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    assert other.stdout.readline() == 'locked\n'
    caller = router.start(f'{PREPARE}; true')
    wait_for(lambda: ['flock', '7'] in [words for _, words in router.processes()], 'its turn')
    caller.kill()
    caller.wait()
    other.communicate('')
    wait_for(lambda: not any(PREPARE in words for _, words in router.processes()), 'its end')
    assert os.listdir(router.at('/var/run/kelm')) == ['prepare.lock']
    assert not router.exists('/tmp/wps.conf')


def test_no_station_for_a_repeater(repeater):
    repeater.uci('delete', 'kelm.main.sta')
    repeater.uci('delete', 'wireless.wwan0')
    repeater.uci('delete', 'wireless.wwan1')
    prepare(repeater, 1)
    assert state_of(repeater, 'state') == {'state': 'not-ready',
                                           'message': 'no station for a repeater'}


def test_clean_takes_all_away(repeater):
    before = set(os.listdir(repeater.at('/tmp')))
    prepare(repeater, 0)
    prepare(repeater, 0, 'clean')
    assert set(os.listdir(repeater.at('/tmp'))) == before
    assert link_target(repeater, '/var/run/wpa_supplicant/wlan1-vxd') is None
    assert not repeater.exists('/var/run/kelm/band.2g')
