# SPDX-License-Identifier: ISC
"""Whatever stands in a text from outside, the daemon's commands keep their words.

Every place gets every text; the command lines and the words that each program is called with are
compared with lists written down here. What would run if a text came loose is a stand-in, or a file
in the tests' own /tmp.
"""
import json
import os
import signal

import pytest

import shell_watch
import wire
from router import CANCEL, INTERFACES, PIN_METHOD, START
from test_repeater_attempt import SCAN_TOOL
from world import wait_for

# As long as a PIN can be. None begins with a digit: so it passes the check of the settings' PIN.
HOSTILE = (
    b'$(ubus)x', b'`ubus`;x', b';ubus x;', b'|ubus x ', b'&ubus x&', b'>/tmp/m1', b'</tmp/m1',
    b"'ubus x'", b'"`ubus`"', b"';ubus;'", b'\\a\\\\b"c\\', b'x\nubus\nx', b'\tubus\tx ',
    b'*?[a]~#!',
    b'{a,b}~/x', b'# ubus x', b'-aubus x', b'--x=ubus', b'\x01\x1b\x7f\x02;\x03\x04\x05',
    '\u00e4\u00f6\u00fc;x'.encode(), b'\xff\xfe;\xc3(\x80\xf0 ', b'%s%n%d%x', b'${IFS}x ',
    b'\r\nubus\r ',
    b'a=b ubus', b'../../..', b'$((1))+1', b'(ubus);!',
)
# Texts that only the bus can carry: a dash, as much as a PIN can be.
OTHER_PINS = (b'-', b"'" * 8, b';ubus x;')
GROUPS = [HOSTILE[at:at + 4] for at in range(0, len(HOSTILE), 4)]
STAND_INS = (b'hostapd_cli', b'wpa_cli', b'ubus', b'nvram', b'killall', b'/etc/init.d/wps',
             b'/etc/init.d/wifi', b'/usr/bin/wifi')
BANDS = ('2g', '5g')
SETTINGS = ('device.info', 'device_runtime.info', 'run', 'wifi.conf', 'wps.conf',
            'wifi_runtime_info.2g', 'wifi_runtime_info.5g')
TRACES = ('kelm.info', 'wps_result', 'wpsactive')


def hostapd_cli(band, *words):
    return [b'hostapd_cli', b'-p', b'/var/run/hostapd', b'-i', INTERFACES[band].encode(), *words]


def wpa_cli(band, *words):
    return [b'wpa_cli', b'-p', b'/var/run/wpa_supplicant', b'-i',
            INTERFACES[band].encode() + b'-vxd', *words]


def on_both(command, *words):
    return [command(band, *words) for band in BANDS]


def publication(action, first, second):
    return [b'ubus', b'send', b'wps', b'{"action":%d,"2g_status":%d,"5g_status":%d,"5g2_status":0}'
            % (action, first, second)]


def lines_of(text):
    """Commands that are the same whatever comes from outside."""
    return [line.encode().split() for line in text.split('\n')]


def pin_words(pin, *words):
    """The PIN is one word, and none when it is empty; before one with a dash the options end."""
    return [*([b'--'] if pin[:1] == b'-' else []), *words, *([pin] if pin else [])]


def ap_start(pin):
    return on_both(hostapd_cli, *pin_words(pin, b'wps_ap_pin', b'set'))


def ap_attempt(pin):
    """An open access point, and a client that comes on 2.4 GHz."""
    return [
        *ap_start(pin), *lines_of('echo -1 > /tmp/wps_result'), publication(1, 11, 11),
        *lines_of('killall wpa_cli\nnvram get multiap_mode'), *on_both(hostapd_cli, b'wps_pbc'),
        *lines_of('echo 1 > /tmp/wps_result\nrm /tmp/wps_wifi_ap.txt\nrm /tmp/wps_wifi_sta.txt\n'
                  'touch /tmp/wps_wifi_ap.txt\n/etc/init.d/wps config_wifi'),
        *on_both(hostapd_cli, b'wps_cancel'), publication(2, 12, 12), publication(2, 2, 4),
        *lines_of('/etc/init.d/wps re_kelm_info\n/etc/init.d/wifi force_restart')]


REPEATER_ATTEMPT = [
    *lines_of('echo -1 > /tmp/wps_result'), publication(1, 11, 11),
    *lines_of('killall wpa_cli\nnvram get multiap_mode'),
    *on_both(wpa_cli, b'wps_pbc', b'multi_ap=1'),
    *lines_of('echo 1 > /tmp/wps_result\n/usr/bin/wifi scan 2g\nrm /tmp/wps_wifi_ap.txt\n'
              'rm /tmp/wps_wifi_sta.txt\n/usr/bin/wifi getscanresult 2g\n/usr/bin/wifi scan 5g\n'
              '/usr/bin/wifi getscanresult 5g\n'
              'touch /tmp/wps_wifi_sta.txt\ntouch /tmp/wps_wifi_ap.txt\n'
              'touch /tmp/wps_wifi_sta.txt\ntouch /tmp/wps_wifi_ap.txt\n'
              'touch /tmp/wps_wifi_sta.txt\n'
              'cp /tmp/wps_wifi_ap.txt /tmp/wps_wifi_ap.bak\n'
              'cp /tmp/wps_wifi_sta.txt /tmp/wps_wifi_sta.bak\n/etc/init.d/wps config_wifi'),
    *on_both(wpa_cli, b'wps_cancel'),
    *lines_of('/etc/init.d/wps re_kelm_info\n/etc/init.d/wifi force_restart')]


@pytest.fixture(name='watched')
def _watched(router):
    """The router, its daemon's commands run by the shell that notes them."""
    shell_watch.put()
    root = sorted(os.listdir('/'))
    with router.world.shell(shell_watch.SHELL):
        yield router
    assert sorted(os.listdir('/')) == root
    assert not os.path.lexists('/tmp/m1')


def expect_ran(lines):
    """These command lines, word for word, and of the stand-ins nothing but them."""
    assert shell_watch.lines() == lines
    assert shell_watch.calls() == [line for line in lines if line[0] in STAND_INS]


def put(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, 'wb') as file:
        file.write(data)


def expect_files(*made):
    """No name but the known ones: none came out of a text."""
    assert sorted(os.listdir('/tmp')) == sorted((*SETTINGS, *TRACES, *made))


def learnt(router, name):
    """The SSID and the passphrase of 2.4 GHz as bytes; what is no UTF-8 has a key of its own."""
    found = json.loads(router.world.read(f'/tmp/{name}'))

    def exact(stem):
        digits = found.get(f'{stem}_hex_2g')
        return found[f'{stem}_2g'].encode() if digits is None else bytes.fromhex(digits)
    return exact('ssid'), exact('password')


def one_line(text):
    """For files in which a line's end ends the value."""
    return text.replace(b'\n', b' ').replace(b'\r', b' ')


def json_text(text):
    """What JSON cannot hold as it is becomes an escape; the rest stays, good UTF-8 or not."""
    return b''.join(b'\\u%04x' % byte if byte < 0x20 or byte in b'"\\' else bytes([byte])
                    for byte in text)


def member(name, text):
    """A string on the bus, whatever its bytes."""
    as_table = wire.member(wire.TABLE, name, text + b'\0')
    return bytes([0x80 | wire.STRING]) + as_table[1:]


def put_settings(mode, text, pin):
    line, escaped = one_line(text), json_text(text)
    put('/tmp/device_runtime.info', b'{"mode":%d,"%s":"%s"}' % (mode, escaped, escaped))
    put('/tmp/device.info', b'{"RFBand":2,"%s":"%s"}' % (escaped, escaped))
    put('/tmp/wps.conf', b'enabled=1%s\napWpsAvailable=3%s\nstaWpsAvailable=3%s\npinEnabled=on\n'
        b'pinCode=%s\n%s=%s\n' % (line, line, line, pin, line, line))
    bands = b''.join(b'apBssEnabledApMode_%s=on%s\nwlanSecType_%s=0%s\napBssEnabled_%s=on%s\n'
                     % (band, line, band, line, band, line) for band in (b'2g', b'5g'))
    stations = b''.join(b'staBssEnabled_%s=on%s\n' % (band, line) for band in (b'2g', b'5g'))
    put('/tmp/wifi.conf', b'unused=%s\n\n%s\n%s\nend=%s\n' % (line, bands, stations, line))


def put_uci(text):
    quoted = b"'" + text.replace(b"'", b"'\\''") + b"'"
    put('/etc/config/wificommonCfg', b'config common settings\n\toption mesh_enable %s\n'
        b'\toption IsGermanySSID %s\n' % (quoted, quoted))
    for band in (b'2G', b'5G'):
        put(f'/etc/config/wifi{band.decode()}_Cfg',
            b'config a settings1\n\toption rootApSsid %s\nconfig a settings2\n'
            b'\toption apBssEnabled %s\n' % (quoted, quoted))


def put_outside(router, mode, texts):
    """Everything but the credentials; returns the PIN and the texts in one."""
    text, pin = b''.join(texts), one_line(texts[0])
    put_settings(mode, text, pin)
    put_uci(text)
    put('/mnt/reply/nvram.out', b'1' + text)
    router.world.reply('nvram', 'cat /mnt/reply/nvram.out\n')
    for band in BANDS:
        put(f'/tmp/wifi_runtime_info.{band}', b'{"status":0,"ssid":"%s"}' % json_text(text))
    return text, pin


def send_requests(router, text):
    """The other two events, and then the press itself, whose kind nobody looks at."""
    taken = router.taken_requests()
    router.bus.send('wifi', member('action', text) + member('pin', text))
    router.wait_taken(taken + 1)
    router.bus.send('wps_cli', b''.join(member(name, text) for name in ('action', 'method', 'pin')))
    router.settle()
    router.bus.send('gpio', member('type', text))
    wait_for(lambda: router.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt')


@pytest.mark.parametrize('pins', [HOSTILE[::2], HOSTILE[1::2], OTHER_PINS],
                         ids=['even', 'odd', 'other'])
def test_a_pin_of_the_bus_is_one_word(watched, pins):
    watched.start()
    for pin in pins:
        shell_watch.forget()
        for members in (wire.member(wire.INT32, 'action', START) + member('pin', pin),
                        wire.member(wire.INT32, 'action', CANCEL)):
            taken = watched.taken_requests()
            watched.bus.send('wps_cli', members + wire.member(wire.INT32, 'method', PIN_METHOD))
            watched.wait_taken(taken + 1)
            watched.settle()
        expect_ran([publication(1, 11, 11),
                    *on_both(hostapd_cli, *pin_words(pin, b'wps_pin', b'any')),
                    *on_both(hostapd_cli, b'wps_cancel'), publication(2, 12, 12)])


@pytest.mark.parametrize('pins', [HOSTILE[at::4] for at in range(4)])
def test_a_pin_of_the_settings_is_one_word(watched, pins):
    watched.add_hostapd(*BANDS)
    for pin in map(one_line, pins):
        watched.configure(pin='*')
        put('/tmp/wps.conf', watched.world.read('/tmp/wps.conf').encode().replace(b'*', pin))
        shell_watch.forget()
        daemon = watched.launch()
        for band in BANDS:
            watched.hostapd[band].wait_attached()
        wait_for(daemon.is_waiting, 'the main loop')
        expect_ran(ap_start(pin))
        daemon.send(signal.SIGTERM)
        assert daemon.wait_exit(poke=False) == 0
        expect_ran([*ap_start(pin), publication(2, 0, 0),
                    *on_both(hostapd_cli, b'wps_ap_pin', b'disable')])


@pytest.mark.parametrize('texts', GROUPS)
def test_an_access_points_attempt_runs_what_it_always_runs(watched, texts):
    text, pin = put_outside(watched, 1, texts)
    line = one_line(text)
    put('/tmp/run/hostapd-wlan1.conf', b'interface=%s\nctrl_interface=%s\n%s\nssid=%s\nwpa=2%s\n'
        b'wpa_passphrase=%s\nwpa_key_mgmt=%s\nwpa_pairwise=%s\nap_pin=%s\n'
        % (line, line, text, line, line, line + b';ubus x', line, line, line))
    watched.start_bus()
    watched.add_hostapd(*BANDS, replies={'ATTACH': [b'<3>' + text, 'OK\n']})
    watched.launch()
    for band in BANDS:
        watched.hostapd[band].wait_attached()
    watched.wait_registered()
    send_requests(watched, text)
    for event in (b'', b'WPS-ENROLLEE-SEEN ', b'WPS-PIN-NEEDED ', b'WPS-REG-SUCCESS '):
        watched.hostapd['2g'].send(b'<3>' + event + text)
    assert watched.end() == 0
    expect_ran(ap_attempt(pin))
    expect_files('wps_wifi_ap.bak', 'wps_wifi_ap.txt', 'wps_wifi_sta.bak', 'wps_wifi_sta.txt')
    # hostapd takes a value as it stands, blanks around it too.
    assert learnt(watched, 'wps_wifi_ap.txt') == (line, line + b';ubus x')


@pytest.mark.parametrize('texts', GROUPS)
def test_a_repeaters_attempt_runs_what_it_always_runs(watched, texts):
    text, _ = put_outside(watched, 0, texts)
    line = one_line(text)
    for band in BANDS:
        put(f'/tmp/run/wpa_supplicant-{INTERFACES[band]}-vxd.conf',
            b'network={\n\tssid="Before"\n}\n\nnetwork={\n\tssid="%s"\n\tpsk="%s"\n\tbssid=%s\n%s\n'
            b'\tproto=RSN\n\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n\tid_str="%s"\n}\n'
            % (line, line + b';ubus x', line, text, line))
        entry = b','.join(b'"%s":"%s"' % (key, json_text(text)) for key in (
            b'ssid', b'security', b'wpa_encryption', b'channel', b'nodeid', b'data'))
        put(f'/mnt/scan.{band}', b'[{"mac":"02:00:00:00:01:01",%s},{"mac":"%s",%s}]'
            % (entry, json_text(text), entry))
    watched.world.reply('/usr/bin/wifi', SCAN_TOOL)
    watched.start_bus()
    for band in BANDS:
        watched.add_supplicant(band)
    watched.launch()
    for band in BANDS:
        watched.supplicant[band].wait_attached()
    watched.wait_registered()
    send_requests(watched, text)
    watched.supplicant['2g'].send(b'<3>' + text)
    watched.supplicant['2g'].send(b'<3>WPS-SUCCESS ' + text)
    watched.wait_command('/usr/bin/wifi scan 2g')
    watched.supplicant['5g'].send(b'<3>WPS-SUCCESS ' + text)
    assert watched.end() == 0
    expect_ran(REPEATER_ATTEMPT)
    expect_files('wps_wifi_ap.txt', 'wps_wifi_sta.txt', 'wps_wifi_ap.bak', 'wps_wifi_sta.bak',
                 'wifi_scan_2g.result', 'wifi_scan_5g.result')
    assert learnt(watched, 'wps_wifi_sta.txt') == (line, line + b';ubus x')
