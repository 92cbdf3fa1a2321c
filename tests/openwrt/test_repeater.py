# SPDX-License-Identifier: ISC
"""Whole attempts of a repeater: the daemon as the service runs it, against scripted supplicants."""
import json

import pytest
from peers import ControlServer
from repeater import OLD, STATIONS, make_repeater, network
from stock import ROOT
from wifi import WPA_CLI, put_wifi
from world import wait_for

AIR = """case $* in
*' bss RANGE=0-'*) cat "/mnt/air.$4"; exit ;;
*' bss '*) exit ;;
esac
"""
NAMES = {'2g': 'wlan1-vxd', '5g': 'wlan0-vxd'}  # the daemon's
SUCCESS = '<3>WPS-SUCCESS '
TIMEOUT = '<3>WPS-TIMEOUT '
WPA2, BOTH = '[WPA2-PSK-CCMP][WPS][ESS]', '[WPA2-PSK+SAE-CCMP][SAE-H2E][WPS][ESS]'
AUTH_OPEN, AUTH_WPA2 = 0x01, 0x20
CIPHER_NONE, CIPHER_AES = 0x01, 0x08


class Supplicant(ControlServer):
    """The supplicant of a station. The daemon's sockets have their names in the router's root."""

    def __init__(self, stock, name):
        super().__init__(stock.at(f'/var/run/wpa_supplicant/{name}'))

    def _answer(self, request, client):
        super()._answer(request, ROOT + client)


def credential(ssid, key, auth=AUTH_WPA2, cipher=CIPHER_AES):
    """The event that brings a credential, as the exchange spells it."""
    def attribute(number, value):
        return number.to_bytes(2, 'big') + len(value).to_bytes(2, 'big') + value
    members = (attribute(0x1026, b'\1') + attribute(0x1045, ssid)
               + attribute(0x1003, auth.to_bytes(2, 'big'))
               + attribute(0x100f, cipher.to_bytes(2, 'big')) + attribute(0x1027, key)
               + attribute(0x1020, bytes.fromhex('020000000101')))
    return '<3>WPS-CRED-RECEIVED ' + attribute(0x100e, members).hex()


class Attempt:
    """The service with its supplicants, from the press to the end of the daemon."""

    def __init__(self, stock, follow=0):
        self.stock = stock
        make_repeater(stock, follow=follow)
        put_wifi(stock)
        stock.fake('wpa_cli', AIR + WPA_CLI)
        stock.fake('wpa_supplicant')
        stock.bus()
        self.supplicants = {}
        for band, (_, name) in STATIONS.items():
            self.supplicants[band] = Supplicant(stock, name)
            stock.write(f'/mnt/wpa/{name}', 'SCANNING\n')
            self.hear(band)
        self.daemon = stock.start('exec /usr/libexec/kelm/run')
        self.wait_attached()

    def close(self):
        for supplicant in self.supplicants.values():
            supplicant.close()

    def wait_attached(self):
        for supplicant in self.supplicants.values():
            supplicant.wait_attached()

    def hear(self, band, *networks):
        """What is in the air there: (address, flags, name)."""
        freq = 2412 if band == '2g' else 5180
        self.stock.write(f'/mnt/air.{NAMES[band]}', ''.join(
            f'id={number}\nbssid={address}\nfreq={freq}\nflags={flags}\nssid={ssid}\n'
            for number, (address, flags, ssid) in enumerate(networks)))

    def press(self):
        self.stock.run("ubus send wps_cli '{\"action\":1,\"method\":1}'")
        wait_for(lambda: sum('wps_pbc' in line for line in self.stock.commands()) == 2,
                 'both stations to start')

    def send(self, band, *events):
        for event in events:
            self.supplicants[band].send(event)

    def end(self):
        assert self.daemon.wait(timeout=30) == 0

    def reloads(self):
        return self.stock.commands().count('ubus network reload {}')

    def info(self):
        info = json.loads(self.stock.read('/tmp/kelm.info'))
        return info['wl0_wps_status'], info['wl1_wps_status']


@pytest.fixture(name='attempt')
def _attempt(stock):
    attempt = Attempt(stock)
    yield attempt
    attempt.close()


def test_both_bands_learn_and_one_reload_makes_it_count(stock, attempt):
    attempt.press()
    attempt.send('2g', credential(b'Great Oak', b'acorns in the cellar'), SUCCESS)
    attempt.send('5g', credential(b'Great Oak 5', b'leaves on the roof'), SUCCESS)
    attempt.end()
    assert attempt.info() == ('success', 'success')
    assert network(stock, 'wwan0') == ('Great Oak', 'acorns in the cellar', 'psk2+ccmp')
    assert network(stock, 'wwan1') == ('Great Oak 5', 'leaves on the roof', 'psk2+ccmp')
    assert network(stock, 'default_radio0')[0] == 'Elm House'
    assert attempt.reloads() == 1


def test_odd_bytes_come_through_the_whole_way(stock, attempt):
    name, key = b'"K\xfcche\' $x`\\', b'\'in\' "the" $cellar\\ \xc3\xbc'
    attempt.hear('2g', ('02:00:00:00:01:01', BOTH, r'\"K\xfcche' + "' $x`" + r'\\'))
    attempt.press()
    attempt.send('2g', credential(name, key), SUCCESS)
    attempt.send('5g', TIMEOUT)
    attempt.end()
    stored = network(stock, 'wwan0')
    assert [text.encode('utf-8', 'surrogateescape') for text in stored[:2]] == [name, key]
    assert stored[2] == 'sae-mixed'


def test_the_band_that_timed_out_gets_the_same_key_if_it_hears_the_root(stock, attempt):
    attempt.hear('5g', ('06:11:11:11:11:11', WPA2, 'Neighbour'),
                 ('02:00:00:00:01:02', BOTH, 'Great Oak'))
    attempt.press()
    attempt.send('2g', credential(b'Great Oak', b'acorns in the cellar'), SUCCESS)
    attempt.send('5g', TIMEOUT)
    attempt.end()
    assert network(stock, 'wwan0') == ('Great Oak', 'acorns in the cellar', 'psk2+ccmp')
    assert network(stock, 'wwan1') == ('Great Oak', 'acorns in the cellar', 'sae-mixed')


def test_the_band_that_hears_nothing_keeps_its_network(stock, attempt):
    attempt.hear('5g', ('06:11:11:11:11:11', WPA2, 'Neighbour'))
    attempt.press()
    attempt.send('2g', credential(b'Great Oak', b'acorns in the cellar'), SUCCESS)
    attempt.send('5g', TIMEOUT)
    attempt.end()
    assert network(stock, 'wwan0')[0] == 'Great Oak'
    assert network(stock, 'wwan1') == tuple(OLD.values())


def test_nothing_learnt_changes_nothing_and_reloads_nothing(stock, attempt):
    before = stock.read('/etc/config/wireless')
    attempt.press()
    attempt.send('2g', TIMEOUT)
    attempt.send('5g', TIMEOUT)
    attempt.end()
    assert attempt.info() == ('timeout', 'timeout')
    assert stock.read('/etc/config/wireless') == before
    assert attempt.reloads() == 0


def test_the_own_access_points_follow(stock):
    attempt = Attempt(stock, follow=1)
    try:
        attempt.press()
        attempt.send('2g', credential(b'Great Oak', b'acorns in the cellar'), SUCCESS)
        attempt.send('5g', credential(b'Great Oak', b'acorns in the cellar'), SUCCESS)
        attempt.end()
    finally:
        attempt.close()
    for section in ('default_radio0', 'default_radio1'):
        assert network(stock, section) == ('Great Oak_EXT', 'acorns in the cellar', 'psk2')
