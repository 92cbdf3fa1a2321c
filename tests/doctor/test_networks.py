# SPDX-License-Identifier: ISC
"""What kelm-doctor says of the networks, the radios and the keys: each check broken once, by face.

Each case spoils 2.4 GHz. It is told with these words there, and 5 GHz stays well.
"""
import os

import pytest
from doctor import examine
from peers import answer, change_answer, change_file
from stock import two_bands

RELOAD = 'uci commit wireless; wifi reload'
TKIP = 'TKIP only, or WPA without WPA2: hostapd has no WPS for that; '
OTHER = 'WPS cannot work with this encryption; '
CONF_2G = '/var/run/hostapd-wlan1.conf'
PSK2 = f"uci set wireless.default_radio0.encryption='psk2'; {RELOAD}"
PIN = ('the PIN that hostapd was given (ap_pin) is wrong: four digits, or eight of which the last '
       'is right; ')
OWN_PIN = "who types the access point's own PIN is refused, for set-up is locked; "


def hostapd(old, new):
    """Another line in the file that hostapd was given."""
    return lambda router: router.change_hostapd(router.interfaces['2.4 GHz'], old, new)


def says(old, new):
    """hostapd answers otherwise to get_config."""
    return lambda router: change_answer(router, 'hostapd', router.interfaces['2.4 GHz'],
                                        'get_config', old, new)


def guest(*lines):
    """A second network of the same radio."""
    def change(router):
        name = router.interfaces['2.4 GHz']
        path = router.hostapd_file(name)
        router.write(path, router.read(path) + '\n'.join(('bss=guest', *lines, '')), 0o600)
    return change


def netifd(**values):
    return lambda router: router.change_interface(**values)


def all_of(*changes):
    def change(router):
        for one in changes:
            one(router)
    return change


def give_keys_file(path, text='', owner=0, hostapd_is=0, mode='600'):
    """A maker's hostapd has a file of keys for devices."""
    def change(router):
        hostapd('wps_state=2', f'wps_state=2\nwpa_psk_file={path}')(router)
        router.write(path, text)
        for place, user in ((path, owner), ('/var/run/hostapd/wlan1', hostapd_is)):
            os.chown(router.at(place), user, user)
        os.chmod(router.at(path), int(mode, 8))
    return change


def empty_keys_file(text=''):
    """Stock OpenWrt's: root's, while hostapd is the user network."""
    def change(router):
        router.write('/var/run/hostapd-phy0-ap0.psk', text, 0o640)
        os.chown(router.at('/var/run/hostapd/phy0-ap0'), 101, 101)
    return change


def owners_keys_file(router):
    hostapd('/var/run/hostapd-phy0-ap0.psk', '/etc/keys')(router)
    router.write('/etc/keys', '')


KEYS_CURE = (f'leave wpa_psk_file out of {CONF_2G}, or add a line to the file of keys: '
             'wps=1 00:00:00:00:00:00 KEY, the key of the network')

# (check, change, result, text)
MAKER = {
    'hidden': ('hidden', hostapd('wps_state=2', 'wps_state=2\nignore_broadcast_ssid=1'), 'fault',
               'the network is hidden: WPS does not serve hidden networks; show it: '
               f'ignore_broadcast_ssid=0 in {CONF_2G}'),
    'hidden, empty name': (
        'hidden', hostapd('wps_state=2', 'wps_state=2\nignore_broadcast_ssid=2'), 'fault',
        'the network is hidden: WPS does not serve hidden networks; show it: '
        f'ignore_broadcast_ssid=0 in {CONF_2G}'),
    'backhaul': ('backhaul', hostapd('wps_state=2', 'wps_state=2\nmulti_ap=1'), 'fault',
                 'the network is a Multi-AP backhaul, for which hostapd has no WPS; '
                 'choose another one'),
    'fronthaul': ('backhaul', hostapd('wps_state=2', 'wps_state=2\nmulti_ap=2'), 'ok',
                  'the network is no Multi-AP backhaul'),
    'WPA3 alone': ('encryption', says('key_mgmt=WPA-PSK', 'key_mgmt=SAE'), 'fault',
                   'WPA3 only: WPS has no word for WPA3; '
                   f'wpa_key_mgmt=WPA-PSK SAE in {CONF_2G}'),
    'WPA2 and WPA3': ('encryption', says('key_mgmt=WPA-PSK', 'key_mgmt=WPA-PSK SAE'), 'ok',
                      'the network has a key that WPS can hand out (WPA2)'),
    'TKIP alone': ('encryption', says('rsn_pairwise_cipher=CCMP', 'rsn_pairwise_cipher=TKIP'),
                   'fault', f'{TKIP}wpa=2, rsn_pairwise=CCMP in {CONF_2G}'),
    'TKIP too': ('encryption', says('rsn_pairwise_cipher=CCMP', 'rsn_pairwise_cipher=CCMP TKIP'),
                 'ok', 'the network has a key that WPS can hand out (WPA2)'),
    'WPA without WPA2': ('encryption', says('wpa=2', 'wpa=1'), 'fault',
                         f'{TKIP}wpa=2, rsn_pairwise=CCMP in {CONF_2G}'),
    'OWE': ('encryption', says('key_mgmt=WPA-PSK', 'key_mgmt=OWE'), 'fault',
            f'{OTHER}wpa=2, wpa_key_mgmt=WPA-PSK, rsn_pairwise=CCMP in {CONF_2G}'),
    'user names': ('encryption', says('key_mgmt=WPA-PSK', 'key_mgmt=WPA-EAP'), 'fault',
                   f'{OTHER}wpa=2, wpa_key_mgmt=WPA-PSK, rsn_pairwise=CCMP in {CONF_2G}'),
    'WEP': ('encryption',
            all_of(hostapd('wpa=2', 'wep_default_key=0\nwep_key0=1234567890'),
                   says('wpa=2\n', '')), 'fault',
            'the network has WEP, which WPS does not hand out; '
            f'wpa=2, wpa_key_mgmt=WPA-PSK, rsn_pairwise=CCMP in {CONF_2G}'),
    'open': ('encryption', all_of(hostapd('wpa=2', ''), says('wpa=2\n', '')), 'warning',
             'the network is open: the first press gives it a new name and a key; '
             'set a key yourself if that is not wanted'),
    'open, WPS': ('wps', says('wps_state=configured', 'wps_state=not configured'), 'ok',
                  'hostapd has WPS for the network, and will choose its key'),
    'WPS is off': ('wps', says('wps_state=configured', 'wps_state=disabled'), 'fault',
                   f'hostapd has no WPS for this network; wps_state=2 and eap_server=1 in '
                   f'{CONF_2G}'),
    'no build': ('build', says('wps_state=configured\n', ''), 'fault',
                 'hostapd was built without WPS; build it with CONFIG_WPS=y'),
    'other PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345671'), 'fault',
                  f'{PIN}take it from the label, and correct {CONF_2G}'),
    'short PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345'), 'fault',
                  f'{PIN}take it from the label, and correct {CONF_2G}'),
    'no PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=1234567x'), 'fault',
               f'{PIN}take it from the label, and correct {CONF_2G}'),
    'good PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345670'), 'ok',
                 'the PIN that hostapd was given is well formed'),
    'PIN of four': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=1234'), 'ok',
                    'the PIN that hostapd was given is well formed'),
    'locked': ('locked', hostapd('wps_state=2', 'wps_state=2\nap_setup_locked=1'), 'warning',
               f'{OWN_PIN}ap_setup_locked=0 in {CONF_2G}'),
    'locked, no PIN': (
        'locked', all_of(hostapd('wps_state=2', 'wps_state=2\nap_setup_locked=1'),
                         lambda router: change_file(router, '/tmp/wps.conf', 'pinEnabled=on',
                                                    'pinEnabled=off')), 'ok',
        "set-up is locked, and nobody may type the access point's own PIN: a press does not mind"),
    'guests open too': (
        'independent', guest('wps_state=2'), 'warning',
        'a press opens guest too, for wps_independent is 0; '
        f'wps_independent=1 for it in {CONF_2G}'),
    'guests without WPS': (
        'independent', guest('wps_state=0'), 'ok',
        'no other network of this radio opens at a press'),
    'guests are independent': (
        'independent', guest('wps_state=2', 'wps_independent=1'), 'ok',
        'no other network of this radio opens at a press'),
    'independent': ('independent', hostapd('wps_state=2', 'wps_state=2\nwps_independent=1'), 'ok',
                    'a press opens this network alone (wps_independent=1)'),
    'keys go at a restart': (
        'key', give_keys_file('/tmp/keys'), 'warning',
        'each device gets a key of its own, in "/tmp/keys", which a restart takes away; '
        + KEYS_CURE),
    'keys are not written': (
        'key', give_keys_file('/etc/keys', hostapd_is=101), 'fault',
        'hostapd makes up a key for each device, and may not write it to the file of keys: '
        f'the device joins once and never again; {KEYS_CURE}'),
    'keys are written by its user': (
        'key', give_keys_file('/etc/keys', owner=101, hostapd_is=101), 'ok',
        'each device gets a key of its own, in a file that lasts'),
    'keys are written by all': (
        'key', give_keys_file('/etc/keys', hostapd_is=101, mode='666'), 'ok',
        'each device gets a key of its own, in a file that lasts'),
    'keys last': ('key', give_keys_file('/etc/keys'), 'ok',
                  'each device gets a key of its own, in a file that lasts'),
    'the own key': (
        'key', give_keys_file('/tmp/keys', 'wps=1 00:00:00:00:00:00 seven green elms\n'), 'ok',
        'each device gets the key of the network, by a line in the file of keys'),
    'no file of keys': (
        'key', all_of(give_keys_file('/tmp/keys'), lambda router: router.remove('/tmp/keys')),
        'fault', f'hostapd has a file of keys that is not there, "/tmp/keys"; {KEYS_CURE}'),
    'a folder of keys': (
        'key', all_of(give_keys_file('/tmp/keys'), lambda router: router.remove('/tmp/keys'),
                      lambda router: os.mkdir(router.at('/tmp/keys'))),
        'fault', f'the file of keys, "/tmp/keys", is a folder; {KEYS_CURE}'),
    'a link to the keys': (
        'key', all_of(give_keys_file('/etc/keys'), hostapd('/etc/keys', '/etc/link'),
                      lambda router: os.symlink('keys', router.at('/etc/link'))), 'ok',
        'each device gets a key of its own, in a file that lasts'),
    'a link to keys that go': (
        'key', all_of(give_keys_file('/tmp/keys'), hostapd('/tmp/keys', '/etc/link'),
                      lambda router: os.symlink('/tmp/keys', router.at('/etc/link'))), 'warning',
        'each device gets a key of its own, in "/etc/link", which a restart takes away; '
        + KEYS_CURE),
    'no file of hostapd': (
        'hostapd-file', lambda router: router.remove('/var/run/hostapd-wlan1.conf'), 'warning',
        'no /var/run/hostapd-*.conf is for wlan1, so kelm finds no settings that hostapd has '
        'chosen, and half of it cannot be seen; start hostapd with the file '
        '/var/run/hostapd-wlan1.conf'),
    'interface is down': (
        'interface', lambda router: router.write('/sys/class/net/wlan1/flags', '0x1002\n'),
        'fault', 'wlan1 is down; switch the Wi-Fi on, or: ip link set wlan1 up'),
    'no interface': (
        'interface', lambda router: router.run('rm -r /sys/class/net/wlan1'), 'fault',
        'there is no interface wlan1; load the driver of the radio, and give its interface this '
        'name'),
    'strange flags': (
        'interface', lambda router: router.write('/sys/class/net/wlan1/flags', '0xa[$(id)]\n'),
        'fault', 'wlan1 is down; switch the Wi-Fi on, or: ip link set wlan1 up'),
}

SET = 'uci set wireless.default_radio0.'
STOCK = {
    'hidden': ('hidden', netifd(hidden=True), 'fault',
               'the network is hidden: WPS does not serve hidden networks; show it: '
               f"{SET}hidden='0'; {RELOAD}"),
    'backhaul': ('backhaul', netifd(multi_ap=1), 'fault',
                 'the network is a Multi-AP backhaul, for which hostapd has no WPS; '
                 'choose another one'),
    'fronthaul': ('backhaul', netifd(multi_ap=2), 'ok', 'the network is no Multi-AP backhaul'),
    'WPA3 alone': ('encryption', netifd(encryption='sae'), 'fault',
                   f"WPA3 only: WPS has no word for WPA3; {SET}encryption='sae-mixed'; {RELOAD}"),
    'WPA2 and WPA3': ('encryption', netifd(encryption='sae-mixed'), 'ok',
                      'the network has a key that WPS can hand out (WPA2)'),
    'TKIP alone': ('encryption', says('rsn_pairwise_cipher=CCMP', 'rsn_pairwise_cipher=TKIP'),
                   'fault', TKIP + PSK2),
    'open': ('encryption', netifd(encryption='none'), 'fault',
             "the network is open; give it a key, or: uci set kelm.main.open='secure'; "
             'uci commit kelm; service wps restart'),
    'WEP': ('encryption', netifd(encryption='wep-open'), 'fault',
            f'the network has WEP, which WPS does not hand out; {PSK2}'),
    'OWE': ('encryption', netifd(encryption='owe'), 'fault', OTHER + PSK2),
    'user names': ('encryption', netifd(encryption='wpa2'), 'fault', OTHER + PSK2),
    'no WPS yet': ('wps', all_of(says('wps_state=configured', 'wps_state=disabled'),
                                 hostapd('wps_state=2\n', '')), 'fault',
                   'WPS is not set up for this network; the service sets it up: '
                   'service wps restart'),
    'WPS is off': ('wps', says('wps_state=configured', 'wps_state=disabled'), 'fault',
                   'hostapd has no WPS for this network; logread -e hostapd says why'),
    'no push button': (
        'wps', all_of(says('wps_state=configured', 'wps_state=disabled'),
                      lambda router: router.uci('set',
                                                'wireless.default_radio0.wps_pushbutton=0')),
        'fault', 'its wps_pushbutton is 0; uci delete wireless.default_radio0.wps_pushbutton; '
        'uci commit wireless; service wps restart'),
    'other PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345671'), 'fault',
                  f'{PIN}take it from the label: {SET}wps_pin=...'),
    'good PIN': ('ap-pin', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345670'), 'ok',
                 'the PIN that hostapd was given is well formed'),
    'locked': ('locked', hostapd('wps_state=2', 'wps_state=2\nap_pin=12345670\nap_setup_locked=1'),
               'warning', f"{OWN_PIN}{SET}wps_ap_setup_locked='0'; {RELOAD}"),
    'locked, no PIN': (
        'locked', hostapd('wps_state=2', 'wps_state=2\nap_setup_locked=1'), 'ok',
        "set-up is locked, and nobody may type the access point's own PIN: a press does not mind"),
    'guests open too': (
        'independent', all_of(hostapd('wps_independent=1', 'wps_independent=0'),
                              guest('wps_state=2', 'wps_independent=0')), 'warning',
        'a press opens guest too, for wps_independent is 0; '
        f'uci delete wireless.default_radio0.wps_independent; {RELOAD}'),
    'no lasting key': (
        'key', empty_keys_file(), 'fault',
        'hostapd makes up a key for each device, and may not write it to the file of keys: '
        'the device joins once and never again; the service mends it: service wps restart'),
    'the lasting key of before': (
        'key', empty_keys_file('wps=1 00:00:00:00:00:00 an older key\n'), 'fault',
        'hostapd makes up a key for each device, and may not write it to the file of keys: '
        'the device joins once and never again; the service mends it: service wps restart'),
    'no file of keys': (
        'key', lambda router: router.remove('/var/run/hostapd-phy0-ap0.psk'), 'fault',
        'hostapd has a file of keys that is not there, "/var/run/hostapd-phy0-ap0.psk"; '
        'the service mends it: service wps restart'),
    'no file of hostapd': (
        'hostapd-file', lambda router: router.remove('/var/run/hostapd-phy0.conf'), 'warning',
        'no /var/run/hostapd-*.conf is for phy0-ap0, so half of it cannot be seen; '
        'let netifd write it: wifi reload'),
    'keys of the owner': ('key', owners_keys_file, 'ok',
                          'each device gets a key of its own, in a file that lasts'),
    'switched off': (
        'interface', lambda router: router.uci('set', 'wireless.default_radio0.disabled=1'),
        'fault', f"the network is switched off; {SET}disabled='0'; {RELOAD}"),
    'radio off': (
        'interface', lambda router: router.change_radio(disabled=True, up=False), 'fault',
        "the radio is switched off; uci set wireless.radio0.disabled='0'; uci commit wireless; "
        'wifi up'),
    'radio starts': (
        'interface', lambda router: router.change_radio(pending=True, up=False), 'warning',
        'radio is still starting; wait, on 5 GHz it may take minutes: logread -e hostapd says '
        'more'),
    'radio fails': (
        'interface', lambda router: router.change_radio(retry_setup_failed=True, up=False),
        'fault', 'the radio does not start; logread -e netifd -e hostapd says why'),
    'interface is down': (
        'interface', lambda router: router.write('/sys/class/net/phy0-ap0/flags', '0x1002\n'),
        'fault', 'phy0-ap0 is down; switch the Wi-Fi on, or: ip link set phy0-ap0 up'),
}

CASES = [(face, name) for face, table in (('maker', MAKER), ('stock', STOCK)) for name in table]


@pytest.mark.parametrize('face, case', CASES, ids=[f'{face}-{name}' for face, name in CASES])
def test_a_network_is_spoilt(request, face, case):
    router = request.getfixturevalue(face)
    check, change, result, text = {'maker': MAKER, 'stock': STOCK}[face][case]
    change(router)
    examined = examine(router)
    found = [(one.result, one.text) for one in examined.findings
             if (one.check, one.band) == (check, '2.4 GHz')]
    assert found == [(result, text)]
    # What is not of this band and not of the settings stays well.
    assert [one for one in examined.findings if one.result != 'ok' and one.band == '5 GHz'] == []
    assert examined.status == {'ok': 0, 'warning': 1, 'fault': 2}[result]


def test_what_cannot_be_seen_is_not_said_to_be_well(router):
    for place in router.interfaces.values():
        router.remove(router.hostapd_file(place))
    told_of = {one.check for one in examine(router).findings}
    assert told_of & {'hidden', 'backhaul', 'independent', 'key', 'ap-pin', 'locked'} == set()
    assert {'hostapd-file', 'encryption', 'wps'} <= told_of


def test_a_strangers_wps_conf_does_not_say_that_a_pin_is_given(maker):
    hostapd('wps_state=2', 'wps_state=2\nap_setup_locked=1')(maker)
    os.chown(maker.at('/tmp/wps.conf'), 1000, 1000)
    assert [one.result for one in examine(maker).findings if one.check == 'locked'
            and one.band == '2.4 GHz'] == ['ok']


ONE_FAULT = ['hidden', 'backhaul', 'WPA3 alone', 'TKIP alone']


@pytest.mark.parametrize('case', ONE_FAULT)
def test_what_follows_from_a_fault_is_not_told_again(router, case):
    """hostapd switches WPS off by itself then."""
    check, change, _, _ = {'maker': MAKER, 'stock': STOCK}[router.face][case]
    says('wps_state=configured', 'wps_state=disabled')(router)
    if router.face == 'stock':
        empty_keys_file()(router)  # as it is while the service cannot serve the network
    change(router)
    assert [one.check for one in examine(router).findings if one.result == 'fault'] == [check]


# --- What the radios have in common ---

def uuids(router, first, second):
    for band, line in (('2.4 GHz', first), ('5 GHz', second)):
        router.change_hostapd(router.interfaces[band],
                              'uuid=12345678-9abc-4ef0-8234-56789abcdef0\n', line)


UUID = 'uuid=12345678-9abc-4ef0-8234-56789abcdef0\n'
UUID_CURE = {
    'maker': 'give the files of all radios the same uuid= line',
    'stock': 'the service gives them one: service wps restart; or take your own uuid= out of list '
             'hostapd_bss_options'}
DIFFERENT = ('warning', 'the radios have different UUIDs: a device that looks at both takes them '
             'for two, and refuses (overlap); ')
MISSING = ('warning', 'no radio has a uuid= line: each makes one up, and a device that looks at '
           'both may take them for two (overlap); ')


@pytest.mark.parametrize('first, second, result, text', [
    (UUID, UUID.replace('0\n', '1\n'), *DIFFERENT), (UUID, '', *DIFFERENT), ('', UUID, *DIFFERENT),
    ('', '', *MISSING)], ids=['different', 'one', 'the other', 'none'])
def test_the_uuid_of_the_radios(router, first, second, result, text):
    uuids(router, first, second)
    assert [(one.result, one.text) for one in examine(router).findings
            if one.check == 'uuid'] == [(result, text + UUID_CURE[router.face])]


def test_stations_have_a_uuid_too(router):
    router.be_repeater()
    change_answer(router, 'wpa_supplicant', router.interfaces['2.4 GHz'], 'status',
                  'uuid=1234', 'uuid=5678')
    assert [(one.result, one.text) for one in examine(router).findings
            if one.check == 'uuid'] == [
        ('warning', DIFFERENT[1] + 'give the files of all stations the same uuid= line')]


def test_one_radio_has_one_uuid(maker):
    maker.write('/tmp/device.info', '{ "RFBand": 1 }\n')
    change_file(maker, '/tmp/wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=2')
    found = examine(maker).findings
    assert [(one.result, one.text) for one in found if one.check == 'uuid'] == [
        ('ok', 'one radio takes part, so there is one UUID')]
    assert [one for one in found if one.band == '2.4 GHz'] == []


# --- Which take part, on stock OpenWrt ---

def test_no_access_point_is_chosen(stock):
    stock.uci('delete', 'kelm.main.ap')
    for number in (0, 1):
        stock.uci('delete', f'wireless.default_radio{number}.wps_pushbutton')
    examined = examine(stock)
    assert [(one.result, one.text) for one in examined.findings if one.check == 'chosen'] == [
        ('fault', "no access point is chosen; name one: uci add_list kelm.main.ap="
         "'default_radio0'; uci commit kelm; service wps restart")]
    assert examined.status == 2


def test_no_station_of_a_repeater(stock):
    stock.uci('set', 'kelm.main.mode=repeater')
    assert ('fault', "no station for a repeater; name one: uci add_list kelm.main.sta='wwan0'; "
            'uci commit kelm; service wps restart') in [
        (one.result, one.text) for one in examine(stock).findings if one.check == 'chosen']


def test_a_section_of_the_list_takes_no_part(stock):
    stock.uci('add_list', 'kelm.main.ap=nobody')
    assert [one.text for one in examine(stock).findings if one.result == 'warning'] == [
        'nobody is not in /etc/config/wireless; correct list ap in /etc/config/kelm']


def test_netifd_is_not_there(stock):
    stock.no_object('network.wireless')
    assert [one.text for one in examine(stock).findings if one.check == 'chosen'] == [
        'netifd does not say what the radios do; is it there: ubus call network.wireless status']


def test_there_are_no_settings_of_the_wireless(stock):
    stock.remove('/etc/config/wireless')
    assert [one.text for one in examine(stock).findings if one.check == 'chosen'] == [
        'there is no /etc/config/wireless, so no radio does anything; make one: wifi config']


def test_netifd_has_made_no_interface(stock):
    wireless = two_bands()
    del wireless['radio0']['interfaces'][0]['ifname']
    stock.set_wireless(wireless)
    assert [(one.result, one.text) for one in examine(stock).findings
            if (one.check, one.band) == ('interface', '2.4 GHz')] == [
        ('fault', 'netifd has made no interface for "default_radio0"; '
         'logread -e netifd -e hostapd says why')]


# --- Names of strangers ---

# The bytes of a name: what stands in the line, and in the JSON text.
NAMES = {
    'WPS-SUCCESS': ('WPS-SUCCESS', 'WPS-SUCCESS'),
    '<script>alert(1)</script>': ('<script>alert(1)</script>',) * 2,
    'a"b\\c': ('a"b\\c', 'a"b\\c'),
    '\x1b[31mred\x07': ('?[31mred?', '\x1b[31mred\x07'),
    'ok       2.4 GHz  all is well': ('ok       2.4 GHz  all is well',) * 2,
    'Küche ☕': ('Küche ☕', 'Küche ☕'),
    'left\u202eright\u2066': ('left?right?', 'left\u202eright\u2066'),
    'c\x85d\x9b': ('c?d?', 'c\x85d\x9b'),
    'bad\udcff\udcc0bytes': ('bad\ufffd\ufffdbytes', 'bad\ufffd\ufffdbytes'),
    '$(touch /tmp/hacked)`id`%s%n': ('$(touch /tmp/hacked)`id`%s%n',) * 2,
    'x' * 200: ('x' * 64,) * 2,
}


@pytest.mark.parametrize('name', NAMES, ids=range(len(NAMES)))
def test_a_name_is_bytes_and_nothing_else(router, name):
    line, text = NAMES[name]
    says('ssid=Elm House', f'ssid={name}')(router)
    told = f'ok       2.4 GHz  the network "{line}" is not hidden\n'
    assert told in router.run('kelm-doctor').out
    assert f'the network "{text}" is not hidden' in [
        one.text for one in examine(router).findings if one.band == '2.4 GHz']
    assert not router.exists('/tmp/hacked')


# --- What must not come out ---

SECRETS = ('seven green elms', '1122334455667788', '12345670', '12345671', 'an older key')


@pytest.mark.parametrize('argument', ['', '--json'])
def test_no_secret_is_told(router, argument):
    hostapd('wps_state=2', 'wps_state=2\nap_pin=12345671\nap_setup_locked=1')(router)
    router.write('/var/run/hostapd-phy0-ap0.psk', 'wps=1 02:00:00:00:00:01 an older key\n')
    result = router.run(f'kelm-doctor {argument}')
    assert 'ap_pin' in result.out and result.err == ''
    assert [secret for secret in SECRETS if secret in result.out] == []


def test_the_file_counts_where_hostapd_does_not_answer(maker):
    answer(maker, 'hostapd', 'wlan1', 'ping', None)
    hostapd('wpa_key_mgmt=WPA-PSK', 'wpa_key_mgmt=SAE')(maker)
    assert ('fault', f'WPA3 only: WPS has no word for WPA3; wpa_key_mgmt=WPA-PSK SAE in {CONF_2G}'
            ) in [(one.result, one.text) for one in examine(maker).findings
                  if one.check == 'encryption']


@pytest.mark.parametrize('old, new, result', [
    ('wpa_key_mgmt=WPA-PSK', 'wpa_key_mgmt=SAE', 'fault'), ('wpa=2', 'wpa=1', 'fault'),
    ('wpa=2', 'wpa=3', 'ok'), ('rsn_pairwise=CCMP', 'rsn_pairwise=TKIP', 'fault'),
    ('rsn_pairwise=CCMP\n', '', 'ok'), ('wpa_key_mgmt=WPA-PSK\n', '', 'ok'),
    ('wpa_pairwise=CCMP\nrsn_pairwise=CCMP\n', '', 'fault'), ('wpa=2\n', '', 'warning'),
    ('wpa=2', 'wep_key1="abcde"', 'fault')])
def test_the_file_alone_tells_the_encryption(maker, old, new, result):
    answer(maker, 'hostapd', 'wlan1', 'get_config', '')
    hostapd(old, new)(maker)
    assert [one.result for one in examine(maker).findings
            if (one.check, one.band) == ('encryption', '2.4 GHz')] == [result]
