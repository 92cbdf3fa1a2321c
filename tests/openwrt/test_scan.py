# SPDX-License-Identifier: ISC
"""The daemon's scanning tool: what the supplicant says becomes what the daemon reads."""
import json
import os
import time

import pytest
from repeater import make_repeater

SCAN = '/usr/libexec/kelm/scan'
RESULT = '/tmp/wifi_scan_{}.result'
# An answer of the supplicant ends before the network that has no room in it.
SUPPLICANT = r"""
from=${6#RANGE=}
awk -v from="${from%%-*}" -v room=4096 '
    function put() { if (text && id >= from && !full) { room -= length(text)
        if (room > 0) printf "%s", text; else full = 1 } }
    /^id=/ { put(); text = ""; id = substr($0, 4) + 0 }
    { text = text $0 "\n" }
    END { put() }' /mnt/air
"""


def bss(number=0, flags='[WPA2-PSK-CCMP][WPS][ESS]', ssid='Great Oak', freq=2412):
    return (f'id={number}\nbssid=02:00:00:00:{number >> 8:02x}:{number & 255:02x}\nfreq={freq}\n'
            f'flags={flags}\nssid={ssid}\n')


@pytest.fixture(name='air')
def _air(stock):
    make_repeater(stock)
    stock.fake('wpa_cli', SUPPLICANT)

    def hear(*networks, band='2g'):
        stock.write('/mnt/air', ''.join(networks))
        result = stock.run(f'{SCAN} getscanresult {band}')
        assert (result.status, result.out, result.err) == (0, '', '')
        return json.loads(stock.read(RESULT.format(band)))
    return hear


def test_the_station_of_the_band_is_asked_and_the_result_has_the_daemons_form(stock, air):
    assert air(bss(7)) == [{'mac': '02:00:00:00:00:07', 'ssid': 'Great Oak', 'channel': '1',
                            'security': 'wpa2', 'wpa_encryption': 'aes'}]
    assert stock.mode(RESULT.format('2g')) == 0o600
    assert stock.commands()[-2:] == [
        'wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd bss RANGE=0-999999999 MASK=0x1807',
        'wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd bss RANGE=8-999999999 MASK=0x1807']


@pytest.mark.parametrize('flags, expected', [
    ('[WPA2-PSK-CCMP][WPS][ESS]', ('wpa2', 'aes')),
    ('[WPA2-PSK-CCMP-preauth][ESS]', ('wpa2', 'aes')),
    ('[RSN-PSK-CCMP][ESS]', ('wpa2', 'aes')),
    ('[WPA2-FT/PSK-CCMP][ESS]', ('wpa2', 'aes')),
    ('[WPA2-PSK-SHA256-CCMP][ESS]', ('wpa2', 'aes')),
    ('[WPA2-EAP+PSK-CCMP][ESS]', ('wpa2', 'aes')),
    ('[WPA2-PSK-TKIP][ESS]', ('wpa2', 'tkip')),
    ('[WPA-PSK-TKIP][ESS]', ('wpa', 'tkip')),
    ('[WPA-PSK-CCMP+TKIP][WPA2-PSK-CCMP+TKIP][WPS][ESS]', ('wpa/wpa2', 'auto')),
    ('[WPA2-PSK+SAE-CCMP][SAE-H2E][ESS]', ('psk_sae', 'aes')),
    ('[WPA2-PSK+FT/SAE-CCMP][ESS]', ('psk_sae', 'aes')),
    ('[WPA2-SAE-CCMP][SAE-H2E][SAE-PK][ESS]', ('sae_only', 'aes')),
    ('[WPA2-SAE-EXT-KEY-GCMP-256][ESS]', ('sae_only', 'aes')),
    ('[WPA2-OWE-CCMP][ESS]', ('owe', 'aes')),
    ('[OWE-TRANS-OPEN][ESS]', ('none', 'auto')),
    ('[ESS]', ('none', 'auto')),
    ('', ('none', 'auto')),
    ('[WPS][ESS]', ('none', 'auto')),
    ('[WEP][ESS]', ('wep', 'auto')),
])
def test_flags_become_the_daemons_words(air, flags, expected):
    entry, = air(bss(flags=flags))
    assert (entry['security'], entry['wpa_encryption']) == expected


@pytest.mark.parametrize('flags', [
    '[WPA2-EAP-CCMP][ESS]', '[WPA-EAP-TKIP][WPA2-EAP-CCMP][ESS]', '[WPA2-DPP-CCMP][ESS]',
    '[WPA2-EAP-SUITE-B-192-GCMP-256][ESS]', '[WPA2-FILS-SHA256-CCMP][ESS]', '[IBSS]',
    '[WPA2-PSK-CCMP][IBSS]', '[RSN-SAE-CCMP][MESH]',
])
def test_a_network_that_no_key_opens_is_left_out(air, flags):
    assert [entry['ssid'] for entry in air(bss(0, flags), bss(1, ssid='Next'))] == ['Next']


NAMES = [
    ('Great Oak', b'Great Oak'),
    ('key=value=', b'key=value='),
    (' blank ends ', b' blank ends '),
    (r'\"quoted\" it\'s'.replace(r"\'", "'"), b'"quoted" it\'s'),
    (r'back\\slash', b'back\\slash'),
    (r'\\u0000', b'\\u0000'),
    (r'\\x41', b'\\x41'),
    ('$(reboot)`reboot`$x', b'$(reboot)`reboot`$x'),
    (r'\n\r\t\e', b'\n\r\t\x1b'),
    (r'line\nid=9\nssid=Great Oak', b'line\nid=9\nssid=Great Oak'),
    (r'K\xc3\xbcche', b'K\xc3\xbcche'),
    (r'K\xfcche', b'K\xfcche'),
    (r'\xff\xFE\x80', b'\xff\xfe\x80'),
    (r'a\x00b\x7f', b'a\0b\x7f'),
    (r'\x22\x5c\x41', b'"\\A'),
    ('"},{"ssid":"x', b'"},{"ssid":"x'),
    (r'\xf0\x9f\x8c\xb3' * 8, b'\xf0\x9f\x8c\xb3' * 8),
    ('x' * 32, b'x' * 32),
    ('-n', b'-n'),
    ('%s%n', b'%s%n'),
    ('&', b'&'),
]


@pytest.mark.parametrize('text, name', NAMES)
def test_a_name_keeps_its_bytes(air, text, name):
    entry, = air(bss(ssid=text))
    assert entry['ssid'].encode('utf-8', 'surrogateescape') == name


@pytest.mark.parametrize('text', ['', r'\x00', r'\x00' * 32])
def test_a_hidden_network_is_left_out(air, text):
    assert air(bss(ssid=text)) == []


@pytest.mark.parametrize('text', [
    'tab\tbell\a', 'end\\', r'\q\x', r'\xzz', '\x7f', 'raw\xff', r'\x4', '"', 'a\\"b\\',
])
def test_what_no_supplicant_writes_is_json_all_the_same(air, text):
    assert len(air(bss(0, ssid=text), bss(1))) in (1, 2)


@pytest.mark.parametrize('band, freq, channel', [
    ('2g', 2412, '1'), ('2g', 2472, '13'), ('2g', 2484, '14'), ('5g', 4920, '184'),
    ('5g', 5180, '36'), ('5g', 5885, '177'), ('2g', 5180, None), ('2g', 5955, None),
    ('5g', 2412, None), ('5g', 5955, None), ('5g', 5925, None), ('2g', 920, None),
])
def test_a_band_lists_its_own_channels(air, band, freq, channel):
    assert [entry['channel'] for entry in air(bss(freq=freq), band=band)] == (
        [channel] if channel else [])


@pytest.mark.parametrize('text', [
    'id=0\nfreq=2412\nflags=[ESS]\nssid=no address\n',
    'id=0\nbssid=02:00:00:00:00:0g\nfreq=2412\nflags=[ESS]\nssid=Great Oak\n',
    'id=0\nbssid=02:00:00:00:00:00\nflags=[ESS]\nssid=no frequency\n',
    'id=0\n', 'id=0\nid=1\nssid=\n', 'id=0\nbssid=\nfreq=\nflags=\nssid=Great Oak\n',
])
def test_what_is_not_whole_is_left_out(air, text):
    assert air(text) == []


def test_three_hundred_networks_come_page_by_page(air):
    names = [f'Oak {number} ' + 'x' * (number % 23) for number in range(300)]
    started = time.monotonic()
    heard = air(*[bss(number, ssid=name) for number, name in enumerate(names)])
    assert [entry['ssid'] for entry in heard] == names
    assert time.monotonic() - started < 10  # of the daemon's 30 s


def test_numbers_with_gaps_and_an_answer_that_is_cut_lose_nothing(stock, air):
    stock.fake('wpa_cli', f"""case $6 in
RANGE=0-*) cat <<'X'
{bss(3, ssid='First')}id=900
bssid=02:00:00:00:00:09
X
;;
RANGE=4-*) cat <<'X'
{bss(900, ssid='Cut')}X
;;
esac""")
    assert [entry['ssid'] for entry in air()] == ['First', 'Cut']


def test_an_answer_that_is_always_the_same_ends(stock, air):
    stock.fake('wpa_cli', f"cat <<'X'\n{bss(5)}X")
    assert {entry['ssid'] for entry in air()} == {'Great Oak'}


@pytest.mark.parametrize('reply', [
    'echo "Failed to connect" >&2; exit 255', 'echo FAIL', ':',
    f"case $* in *=0-*) printf '{bss()}' ;; *) exit 255 ;; esac",
], ids=['no supplicant', 'no such command', 'nothing heard', 'gone half-way'])
def test_without_an_answer_the_file_is_empty_and_the_daemon_asks_again(stock, air, reply):
    air(bss())
    stock.fake('wpa_cli', reply)
    stock.run(f'{SCAN} getscanresult 2g')
    assert stock.read(RESULT.format('2g')) == ''


def test_what_waits_under_the_name_is_replaced_and_not_followed(stock, air):
    path = RESULT.format('2g')
    stock.write('/etc/victim', 'mine')
    os.mkdir(stock.at('/etc/folder'))
    for trap in ('ln -s /etc/victim', 'ln -s /etc/folder', 'ln /etc/victim', 'mkfifo', 'mkdir'):
        stock.run(f'rm -rf {path}; {trap} {path}')
        assert [entry['ssid'] for entry in air(bss())] == ['Great Oak']
        assert not os.path.islink(stock.at(path))
    assert stock.read('/etc/victim') == 'mine'
    assert os.listdir(stock.at('/etc/folder')) == []


# --- scan ---

@pytest.mark.parametrize('band, station', [('2g', 'wlan1-vxd'), ('5g', 'wlan0-vxd')])
@pytest.mark.parametrize('answer, asked', [
    ('id=0', False), ('', True), ('FAIL', True), ('UNKNOWN COMMAND', True)])
def test_a_station_that_knows_nothing_is_asked_to_listen(stock, band, station, answer, asked):
    stock.fake('wpa_cli', f"case $* in *bss*) echo '{answer}' ;; *) echo FAIL-BUSY ;; esac")
    assert stock.run(f'{SCAN} scan {band}') == (0, '', '')
    assert stock.commands() == [
        f'wpa_cli -p /var/run/wpa_supplicant -i {station} {words}'
        for words in ['bss RANGE=0-999999999 MASK=0x1'] + ['scan'] * asked]


@pytest.mark.parametrize('words', ['', 'scan', 'scan 7g', 'scan 5g2', 'scan 2g 5g', 'listen 2g',
                                   'getscanresult', "scan '*'", 'scan ../2g'])
def test_wrong_words_get_the_usage(stock, words):
    result = stock.run(f'{SCAN} {words}')
    assert (result.status, result.err) == (
        1, 'Usage: scan scan BAND | scan getscanresult BAND\n')
