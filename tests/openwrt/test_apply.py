# SPDX-License-Identifier: ISC
"""What a repeater has learnt goes to /etc/config/wireless, byte for byte, and takes effect."""
import json
import os

import pytest
from repeater import OLD, extender, learnt, leave, make_repeater, network

APPLY, DONE = '/usr/libexec/kelm/apply', '/usr/libexec/kelm/apply-done'
CHANGED = '/var/run/kelm/changed'
WIRELESS = '/etc/config/wireless'
OWN = ('Elm House', 'seven green elms', 'psk2')
BEFORE = tuple(OLD.values())
DIGITS = b'0123456789abcdefABCDEF0123456789' * 2
SCAN_RESULT = '/tmp/wifi_scan_2g.result'
SUPPLICANT = """case $* in *RANGE=0-*) cat <<'X'
id=0
bssid=02:00:00:00:00:01
freq=2412
flags={flags}
ssid={ssid}
X
esac"""


@pytest.fixture(name='repeater')
def _repeater(stock):
    make_repeater(stock)
    return stock


def apply(stock, *stations, extenders=()):
    leave(stock, *stations, extenders=extenders)
    result = stock.run(APPLY)
    assert (result.status, result.out, result.err) == (0, '', '')


def hear(stock, flags, ssid='Great Oak'):
    stock.fake('wpa_cli', SUPPLICANT.format(flags=flags, ssid=ssid))


def raw(stock, section, option):
    """The option's bytes."""
    return stock.uci('get', f'wireless.{section}.{option}').encode('utf-8', 'surrogateescape')


def follow(stock):
    stock.uci('set', 'kelm.main.follow=1')
    stock.uci('commit', 'kelm')


def test_both_stations_get_what_they_learnt_and_nothing_else_changes(repeater):
    before = repeater.uci('export', 'wireless')
    apply(repeater, learnt('2g', b'Great Oak', b'acorns in the cellar'),
          learnt('5g', b'Great Oak 5', b'leaves on the roof'))
    after = repeater.uci('export', 'wireless')
    assert network(repeater, 'wwan0') == ('Great Oak', 'acorns in the cellar', 'psk2+ccmp')
    assert network(repeater, 'wwan1') == ('Great Oak 5', 'leaves on the roof', 'psk2+ccmp')
    assert [line for line in after.splitlines() if line not in before.splitlines()] == [
        "\toption ssid 'Great Oak'", "\toption key 'acorns in the cellar'",
        "\toption encryption 'psk2+ccmp'", "\toption ssid 'Great Oak 5'",
        "\toption key 'leaves on the roof'", "\toption encryption 'psk2+ccmp'"]
    assert len(after.splitlines()) == len(before.splitlines())
    assert repeater.read(CHANGED) == ''
    assert repeater.log() == [
        'daemon.notice kelm: 2.4 GHz: section wwan0 has a new network (psk2+ccmp)',
        'daemon.notice kelm: 5 GHz: section wwan1 has a new network (psk2+ccmp)']


NAMES = [
    b"it's", b"''", b"'", b'"quoted"', b'back\\slash\\', b'$(reboot)`reboot`$x', b' ends ', b'-n',
    b'#no;comment', b'a=b', b'%s%n&', b'*', b'~', b'!!', 'Küche'.encode(), b'K\xfcche', b'\xff\xfe',
    '\U0001f333'.encode() * 8, b'x' * 32, b'tab\there', b'{"a":"b"}', b'a,b', b'\\x41', b'\\n',
    b'@wifi-iface[0]', b'ssid_2g', b'"', b"\\'", b"'\\''", b"a'; set wireless.x=y", b'\x7f',
]
KEYS = [
    *[name * (8 // len(name) + 1) for name in NAMES if len(name) < 32], b'12345678', b'x' * 63,
    DIGITS, b'        ', b'-e wireless', b"--'-'-'-",
]


@pytest.mark.parametrize('name', NAMES)
def test_a_name_keeps_its_bytes(repeater, name):
    apply(repeater, learnt(ssid=name))
    assert raw(repeater, 'wwan0', 'ssid') == name
    assert repeater.exists(CHANGED)


@pytest.mark.parametrize('key', KEYS)
def test_a_key_keeps_its_bytes(repeater, key):
    apply(repeater, learnt(key=key))
    assert raw(repeater, 'wwan0', 'key') == key
    assert network(repeater, 'wwan0')[2] == 'psk2+ccmp'


@pytest.mark.parametrize('security, cipher, key, expected', [
    ('none', 'auto', b'', 'none'),
    ('wpa', 'tkip', b'12345678', 'psk+tkip'),
    ('wpa', 'auto', b'12345678', 'psk'),
    ('wpa2', 'aes', b'12345678', 'psk2+ccmp'),
    ('wpa2', 'tkip', b'12345678', 'psk2+tkip'),
    ('wpa2', 'auto', b'12345678', 'psk2'),
    ('wpa2', 'aes', DIGITS, 'psk2+ccmp'),
    ('wpa/wpa2', 'auto', b'12345678', 'psk-mixed'),
    ('wpa/wpa2', 'aes', b'12345678', 'psk-mixed+ccmp'),
    ('sae_only', 'aes', b'short', 'sae'),
    ('sae_only', 'aes', b'12345678', 'sae'),
    ('psk_sae', 'aes', b'12345678', 'sae-mixed'),
    ('psk_sae', 'aes', DIGITS, 'psk2+ccmp'),
    ('owe', 'aes', b'', 'owe'),
])
def test_security_becomes_ucis_word(repeater, security, cipher, key, expected):
    apply(repeater, learnt(security=security, cipher=cipher, key=key))
    assert network(repeater, 'wwan0') == ('Great Oak', key.decode() or None, expected)


STAYS = 'daemon.notice kelm: 2.4 GHz: section wwan0 stays as it is: '
NOTHING = 'daemon.notice kelm: 2.4 GHz: nothing is stored: '
BYTE = NOTHING + "the network's name or key has a byte that UCI cannot hold"


@pytest.mark.parametrize('what, line', [
    ({'ssid': b'two\nlines'}, BYTE),
    ({'ssid': b'ends\n'}, BYTE),
    ({'ssid': b'\n'}, BYTE),
    ({'ssid': b'zero\0'}, BYTE),
    ({'ssid': b'\xff\n'}, BYTE),
    ({'key': b'acorns in\nthe cellar'}, BYTE),
    ({'key': b'acorns in the cellar\n'}, BYTE),
    ({'key': b'acorns\0in the cellar'}, BYTE),
    ({'key': b'acorns\0in the cellar', 'ssid': b''}, BYTE),
    ({'ssid': b'x' * 33}, STAYS + 'the network that was learnt fits no rule for psk2+ccmp'),
    ({'key': b'short'}, STAYS + 'the network that was learnt fits no rule for psk2+ccmp'),
    ({'key': b''}, STAYS + 'the network that was learnt fits no rule for psk2+ccmp'),
    ({'key': b'x' * 64}, STAYS + 'the network that was learnt fits no rule for psk2+ccmp'),
    ({'key': DIGITS + b'0'}, STAYS + 'the network that was learnt fits no rule for psk2+ccmp'),
    ({'key': b'', 'security': 'sae_only'},
     STAYS + 'the network that was learnt fits no rule for sae'),
    ({'key': DIGITS, 'security': 'sae_only'},
     STAYS + 'the network that was learnt fits no rule for sae'),
    ({'key': b'12345678', 'security': 'none'},
     STAYS + 'the network that was learnt fits no rule for none'),
    ({'security': 'wep'}, NOTHING + "the network's security is wep"),
    ({'security': 'wpa2-enterprise'}, NOTHING + "the network's security is wpa2-enterprise"),
])
def test_what_cannot_be_stored_is_told_and_the_old_network_stays(repeater, what, line):
    before = repeater.read(WIRELESS)
    apply(repeater, learnt(**what))
    assert repeater.read(WIRELESS) == before
    assert repeater.log() == [line]
    assert not repeater.exists(CHANGED)
    assert repeater.uci('changes') == ''


def test_one_band_that_cannot_be_stored_leaves_the_other_its_own(repeater):
    apply(repeater, learnt('2g', ssid=b'two\nlines'), learnt('5g', ssid=b'Great Oak 5'))
    assert network(repeater, 'wwan0') == BEFORE
    assert network(repeater, 'wwan1')[0] == 'Great Oak 5'


def test_a_band_that_got_a_key_but_no_name_stays(repeater):
    apply(repeater, learnt('2g'), learnt('5g', ssid=b''))
    assert network(repeater, 'wwan0')[0] == 'Great Oak'
    assert network(repeater, 'wwan1') == BEFORE


def test_bands_that_are_not_in_the_file_stay(repeater):
    apply(repeater, learnt('5g'), {'mesh_enable': 'off'})
    assert (network(repeater, 'wwan0'), network(repeater, 'wwan1')[0]) == (BEFORE, 'Great Oak')


def test_the_same_again_changes_nothing(repeater):
    apply(repeater, learnt())
    before = os.stat(repeater.at(WIRELESS))
    repeater.remove(CHANGED)
    apply(repeater, learnt())
    after = os.stat(repeater.at(WIRELESS))
    assert (before.st_ino, before.st_mtime_ns) == (after.st_ino, after.st_mtime_ns)
    assert not repeater.exists(CHANGED)


def test_a_mark_that_was_not_used_up_stays(repeater):
    apply(repeater, learnt())
    apply(repeater, learnt())
    assert repeater.exists(CHANGED)


def test_what_the_owner_has_not_committed_stays_so(repeater):
    repeater.uci('set', 'wireless.default_radio0.hidden=1')
    apply(repeater, learnt())
    assert 'hidden' not in repeater.read(WIRELESS)
    assert repeater.uci('changes') == "wireless.default_radio0.hidden='1'"
    assert network(repeater, 'wwan0')[0] == 'Great Oak'


def test_the_file_keeps_its_mode_and_no_secret_is_left_beside_it(repeater):
    os.chmod(repeater.at(WIRELESS), 0o600)
    apply(repeater, learnt(key=b'acorns in the cellar'))
    assert repeater.mode(WIRELESS) == 0o600
    assert sorted(os.listdir(repeater.at('/var/run/kelm'))) == ['changed']
    assert repeater.run("grep -rl 'acorns in the' /tmp /etc /mnt/log").out.split() == [
        '/tmp/wps_wifi_sta.txt', '/etc/config/wireless']


def test_no_key_is_on_a_command_line_or_in_the_log(repeater):
    for place in ('/sbin/uci', '/usr/bin/jsonfilter'):
        os.rename(repeater.at(place), repeater.at(place + '.real'))
        repeater.fake(place, f'exec {place}.real "$@"')
    follow(repeater)
    repeater.forget_commands()
    apply(repeater, learnt(key=b"acorns 'in' the cellar"), extenders=[extender()])
    assert raw(repeater, 'wwan0', 'key') == b"acorns 'in' the cellar"
    assert raw(repeater, 'default_radio0', 'key') == b"acorns 'in' the cellar"
    assert any('batch' in line for line in repeater.commands())
    assert 'acorns' not in '\n'.join(repeater.commands() + repeater.log())


@pytest.mark.parametrize('ssid, stays', [(b'Great Oak', False), (b'Old Oak', True)])
def test_an_address_that_was_nailed_down_goes_with_the_old_network(repeater, ssid, stays):
    repeater.uci('set', 'wireless.wwan0.bssid=02:00:00:00:00:99')
    repeater.uci('commit', 'wireless')
    apply(repeater, learnt(ssid=ssid))
    assert ('02:00:00:00:00:99' in repeater.read(WIRELESS)) == stays


def test_an_open_network_takes_the_old_key_away(repeater):
    apply(repeater, learnt(security='none', cipher='auto', key=b''))
    assert network(repeater, 'wwan0') == ('Great Oak', None, 'none')


def test_a_section_that_is_no_station_is_not_written(repeater):
    repeater.uci('set', 'wireless.wwan0.mode=ap')
    repeater.uci('commit', 'wireless')
    before = repeater.read(WIRELESS)
    apply(repeater, learnt())
    assert repeater.read(WIRELESS) == before


def test_a_station_that_was_not_chosen_is_not_written(repeater):
    repeater.uci('del_list', 'kelm.main.sta=wwan0')
    repeater.uci('commit', 'kelm')
    before = repeater.read(WIRELESS)
    apply(repeater, learnt())
    assert repeater.read(WIRELESS) == before


def test_an_access_point_stores_nothing(stock):
    make_repeater(stock, mode='ap')
    before = stock.read(WIRELESS)
    apply(stock, learnt(), extenders=[extender()])
    assert stock.read(WIRELESS) == before


@pytest.mark.parametrize('text', [
    '{', '[]', '"text"', 'null', '42', '{"ssid_2g": ', '{"security_2g": "wpa2"}',
    '{"security_2g": "wpa2", "ssid_2g": "Great Oak"}',
    '{"ssid_2g": "x", "password_2g": "12345678"}',
    '{"security_2g": {"a": 1}, "ssid_2g": ["x"], "password_2g": null}', '\0' * 100,
    '{"security_2g": "wpa2", "ssid_hex_2g": "4", "password_2g": "12345678"}',
    '{"security_2g": "wpa2", "ssid_hex_2g": "zz", "password_2g": "12345678"}',
    '{"security_2g": "wpa2", "ssid_hex_2g": "", "ssid_2g": "x", "password_2g": "12345678"}',
    json.dumps({**learnt(), 'more': 'x' * 70000}),
])
def test_a_broken_file_stores_nothing(repeater, text):
    before = repeater.read(WIRELESS)
    repeater.write('/tmp/wps_wifi_sta.txt', text, 0o600)
    repeater.run(APPLY)
    assert repeater.read(WIRELESS) == before
    assert not repeater.exists(CHANGED)


STRANGE = 'daemon.notice kelm: /tmp/wps_wifi_sta.txt is not what kelm writes: it is not used'


@pytest.mark.parametrize('prepare, told', [
    ('rm {0}', []),
    (': > {0}', []),
    ('chown 1000 {0}', [STRANGE]),
    ('mv {0} /tmp/x; ln -s x {0}', [STRANGE]),
    ('rm {0}; mkdir {0}', [STRANGE]),
    ('rm {0}; mkfifo {0}', []),
    ('echo "{{" > {0}', [STRANGE]),
])
def test_a_file_that_is_not_the_daemons_is_not_used(repeater, prepare, told):
    before = repeater.read(WIRELESS)
    leave(repeater, learnt())
    repeater.run(prepare.format('/tmp/wps_wifi_sta.txt'))
    assert repeater.run(APPLY).status == 0
    assert repeater.read(WIRELESS) == before
    assert repeater.log() == told


def test_a_full_disk_is_told_and_nothing_is_marked(repeater):
    leave(repeater, learnt())
    os.rename(repeater.at('/sbin/uci'), repeater.at('/sbin/uci.real'))
    repeater.fake('/sbin/uci', 'case $* in *commit*) exit 1 ;; esac\nexec /sbin/uci.real "$@"')
    assert repeater.run(APPLY).status == 1
    assert not repeater.exists(CHANGED)
    assert repeater.log()[-1] == (
        'daemon.notice kelm: /etc/config/wireless could not be written: nothing is stored')


# --- WPA3 ---

BOTH, WPA2 = '[WPA2-PSK+SAE-CCMP][SAE-H2E][WPS][ESS]', '[WPA2-PSK-CCMP][WPS][ESS]'


@pytest.mark.parametrize('flags, ssid, key, expected', [
    (BOTH, 'Great Oak', b'12345678', 'sae-mixed'),
    (WPA2, 'Great Oak', b'12345678', 'psk2+ccmp'),
    (BOTH, 'Great Oak 2', b'12345678', 'psk2+ccmp'),
    (BOTH, 'Great', b'12345678', 'psk2+ccmp'),
    (BOTH, 'great oak', b'12345678', 'psk2+ccmp'),
    ('[WPA2-SAE-CCMP][ESS]', 'Great Oak', b'12345678', 'psk2+ccmp'),
    (BOTH, 'Great Oak', DIGITS, 'psk2+ccmp'),
])
def test_wpa2_becomes_both_where_the_root_offers_both(repeater, flags, ssid, key, expected):
    hear(repeater, flags, ssid)
    apply(repeater, learnt(key=key))
    assert network(repeater, 'wwan0')[2] == expected


@pytest.mark.parametrize('security, expected', [('wpa', 'psk+ccmp'), ('wpa/wpa2', 'psk-mixed+ccmp'),
                                                ('sae_only', 'sae')])
def test_other_securities_stay_beside_a_root_with_both(repeater, security, expected):
    hear(repeater, BOTH)
    apply(repeater, learnt(security=security))
    assert network(repeater, 'wwan0')[2] == expected


@pytest.mark.parametrize('daemon_s, result_s, asks', [(1000, 1010, False), (1010, 1000, True)])
def test_what_was_heard_in_this_attempt_is_not_asked_again(repeater, daemon_s, result_s, asks):
    hear(repeater, WPA2)
    repeater.write(SCAN_RESULT, '[{"ssid": "Great Oak", "security": "psk_sae"}]', 0o600)
    repeater.write('/tmp/kelm.pid', '4711\n')
    os.utime(repeater.at(SCAN_RESULT), (result_s, result_s))
    os.utime(repeater.at('/tmp/kelm.pid'), (daemon_s, daemon_s))
    repeater.forget_commands()
    apply(repeater, learnt())
    assert any('wpa_cli' in line for line in repeater.commands()) == asks
    assert network(repeater, 'wwan0')[2] == ('psk2+ccmp' if asks else 'sae-mixed')


def test_what_a_stranger_says_was_heard_does_not_count(repeater):
    hear(repeater, WPA2)
    repeater.write('/tmp/kelm.pid', '4711\n')
    os.utime(repeater.at('/tmp/kelm.pid'), (1000, 1000))
    repeater.write(SCAN_RESULT, '[{"ssid": "Great Oak", "security": "psk_sae"}]', 0o644)
    os.chown(repeater.at(SCAN_RESULT), 1000, 1000)
    apply(repeater, learnt())
    assert network(repeater, 'wwan0')[2] == 'psk2+ccmp'


def test_odd_bytes_of_the_name_are_found_in_the_scan(repeater):
    hear(repeater, BOTH, r'K\xfcche \"1\" \\')
    apply(repeater, learnt(ssid=b'K\xfcche "1" \\'))
    assert network(repeater, 'wwan0')[2] == 'sae-mixed'


@pytest.mark.parametrize('security, expected', [('wpa2', 'psk2+ccmp'), ('psk_sae', 'psk2+ccmp')])
def test_a_supplicant_without_wpa3_gets_wpa2(repeater, security, expected):
    hear(repeater, BOTH)
    repeater.fake('wpa_supplicant', 'exit 1')
    apply(repeater, learnt(security=security))
    assert network(repeater, 'wwan0')[2] == expected


@pytest.mark.parametrize('before, expected', [('sae', 'sae-mixed'), ('sae-mixed', 'sae-mixed'),
                                              ('psk2', 'psk2+ccmp'), ('none', 'psk2+ccmp')])
def test_the_same_network_is_not_stored_as_less_than_it_was(repeater, before, expected):
    for option, value in (('ssid', 'Great Oak'), ('key', 'acorns in the cellar'),
                          ('encryption', before)):
        repeater.uci('set', f'wireless.wwan0.{option}={value}')
    repeater.uci('commit', 'wireless')
    apply(repeater, learnt())
    assert network(repeater, 'wwan0')[2] == expected


# --- The own access points ---

def own(stock, encryption, key='seven green elms'):
    stock.uci('set', f'wireless.default_radio0.encryption={encryption}')
    stock.uci('set', f'wireless.default_radio0.key={key}')
    stock.uci('commit', 'wireless')


def test_the_own_access_points_stay_unless_they_are_to_follow(repeater):
    apply(repeater, learnt(), extenders=[extender()])
    assert network(repeater, 'default_radio0') == OWN


def test_they_follow_with_name_and_key(repeater):
    follow(repeater)
    apply(repeater, learnt('2g'), learnt('5g', ssid=b''),
          extenders=[extender('2g'), extender('5g', "it's_5GEXT".encode())])
    assert network(repeater, 'default_radio0') == ('Great Oak_EXT', 'acorns in the cellar', 'psk2')
    assert network(repeater, 'default_radio1') == ("it's_5GEXT", 'acorns in the cellar', 'psk2')
    assert network(repeater, 'wwan1') == BEFORE


@pytest.mark.parametrize('own_word, security, expected', [
    ('none', 'wpa2', 'psk2+ccmp'),
    ('', 'wpa2', 'psk2+ccmp'),
    ('owe', 'wpa2', 'psk2+ccmp'),
    ('wep-open', 'wpa2', 'psk2+ccmp'),
    ('none', 'wpa', 'psk2+ccmp'),
    ('none', 'psk_sae', 'sae-mixed'),
    ('none', 'sae_only', 'sae'),
    ('psk', 'wpa2', 'psk2+ccmp'),
    ('psk-mixed', 'wpa', 'psk2+ccmp'),
    ('psk2', 'wpa', 'psk2'),
    ('psk2+ccmp', 'wpa2', 'psk2+ccmp'),
    ('psk2', 'psk_sae', 'sae-mixed'),
    ('psk2', 'sae_only', 'sae'),
    ('sae-mixed', 'wpa2', 'sae-mixed'),
    ('sae-mixed', 'sae_only', 'sae'),
    ('sae', 'wpa2', 'sae'),
    ('sae', 'psk_sae', 'sae'),
])
def test_following_makes_an_access_point_no_less_safe(repeater, own_word, security, expected):
    follow(repeater)
    own(repeater, own_word)
    apply(repeater, learnt(security=security), extenders=[extender()])
    assert network(repeater, 'default_radio0') == (
        'Great Oak_EXT', 'acorns in the cellar', expected)


@pytest.mark.parametrize('own_word, what, reason', [
    ('psk2', {'security': 'none', 'key': b''}, "the root's network has no key"),
    ('none', {'security': 'owe', 'key': b''}, "the root's network has no key"),
    ('wpa2', {}, 'it has users in place of a key'),
    ('wpa3-mixed', {}, 'it has users in place of a key'),
    ('sae', {'key': DIGITS}, 'its WPA3 needs a passphrase, and the root gave none'),
    ('sae-mixed', {'key': DIGITS}, 'its WPA3 needs a passphrase, and the root gave none'),
])
def test_an_access_point_that_cannot_follow_stays_and_it_is_told(repeater, own_word, what, reason):
    follow(repeater)
    own(repeater, own_word)
    apply(repeater, learnt(**what), extenders=[extender()])
    assert network(repeater, 'default_radio0') == (OWN[0], OWN[1], own_word)
    assert repeater.log()[-1] == (
        f'daemon.notice kelm: 2.4 GHz: section default_radio0 stays as it is: {reason}')


@pytest.mark.parametrize('name', [b'two\nlines_EXT', b'zero\0_EXT', b'x' * 33, b''])
def test_an_access_point_whose_new_name_cannot_be_stored_stays(repeater, name):
    follow(repeater)
    apply(repeater, learnt(), extenders=[extender(ssid=name)])
    assert network(repeater, 'wwan0')[0] == 'Great Oak'
    assert network(repeater, 'default_radio0') == OWN
    assert 'section default_radio0 stays as it is' in repeater.log()[-1]


def test_settings_of_another_kind_are_not_followed(repeater):
    follow(repeater)
    apply(repeater, learnt(), extenders=[{**extender(), 'sec_follow_2g': 'false'}])
    assert network(repeater, 'default_radio0') == OWN


# --- Taking effect ---

def test_what_was_stored_takes_effect_by_one_reload(repeater):
    apply(repeater, learnt())
    repeater.forget_commands()
    assert [repeater.run(DONE).status for _ in range(3)] == [0, 0, 0]
    assert repeater.commands() == ['ubus network reload {}']
    assert not repeater.exists(CHANGED)


def test_nothing_stored_means_no_reload(repeater):
    assert repeater.run(DONE).status == 0
    assert repeater.commands() == []


def test_a_reload_that_takes_long_is_not_waited_for(repeater):
    apply(repeater, learnt())
    repeater.fake('/bin/ubus', 'exit 7')
    assert repeater.run(DONE).status == 0
    assert repeater.commands()[-1] == '/bin/ubus -t 5 call network reload'
    assert not repeater.exists(CHANGED)


def test_a_reload_that_fails_is_told_and_tried_again(repeater):
    apply(repeater, learnt())
    repeater.no_object('network')
    assert repeater.run(DONE).status == 1
    assert repeater.exists(CHANGED)
    assert repeater.log()[-1] == ("daemon.notice kelm: the network could not be reloaded: what was "
                                  "learnt takes effect after 'service network reload'")
    repeater.object('network', reload='')
    assert repeater.run(DONE).status == 0
    assert not repeater.exists(CHANGED)
