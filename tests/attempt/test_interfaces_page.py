# SPDX-License-Identifier: ISC
"""docs/interfaces.md against the daemon: every example is run, every row of outcomes is played."""
import contextlib
import json
import os
import re
import signal
import subprocess

import pytest

import outcome_plays as plays
import page
import wire
from daemon_run import PROGRAM, Daemon, ForegroundDaemon
from peers import LogDaemon
from router import REPEATER_MODE, VERSION_LINE, hostapd_cli, ubus_send
from test_wps_press import Script
from world import ORIGIN, wait_for

EXAMPLES = page.examples()
TREE = '/mnt/src'


def on_one_line(text):
    """The page breaks a file's one line of JSON."""
    return ' '.join(line.strip() for line in text.splitlines()) + '\n'


def shell(text, **options):
    """Runs an example as somebody would who types it."""
    return subprocess.run(['sh', '-c', text], capture_output=True, text=True, timeout=20, cwd=TREE,
                          check=False, **options)


def events(router):
    return [event[:3] for event in router.published + router.events()]


# --- The page itself ---

def test_no_table_of_the_page_is_broken():
    assert page.tables_that_are_broken() == []


def test_the_reader_of_the_page_sees_what_is_wrong_with_one():
    assert page.tables_that_are_broken('\n| a |\n|---|\n\n| 1 |\n') == ['| a |', '| 1 |']
    for text in ('\n```sh\ntrue\n```\n', '\n```sh a\ntrue\n```\n\n```sh a\ntrue\n```\n',
                 '\n```sh a\ntrue\n'):
        with pytest.raises(AssertionError):
            page.examples(text)


# --- Outcomes ---

MODES = {
    'access point': ('### Outcomes, access point', plays.BY_ACCESS_POINT),
    'repeater': ('### Outcomes, repeater', plays.BY_REPEATER),
}


def outcome_rows(mode):
    heading, known = MODES[mode]
    for row in page.table('what happens', heading):
        for play in known.get(row[0], (None,)):
            name = play.__name__ if play is not None else row[0]
            yield pytest.param(play, row[1:], id=name)


def as_cells(seen):
    """What was seen, in the words of the table."""
    def coded(items):
        return ', '.join(f'`{item}`' for item in items)
    return [
        coded(' '.join(map(str, event)) for event in seen.events) or 'none',
        seen.result or '-', ', '.join(seen.texts or '-'), seen.active or '-',
        coded(seen.scripts) or '-']


@pytest.mark.parametrize('mode', MODES)
def test_every_row_of_outcomes_has_a_play_and_every_play_a_row(mode):
    heading, known = MODES[mode]
    assert [row[0] for row in page.table('what happens', heading)] == list(known)


@pytest.mark.parametrize('play, cells', [*outcome_rows('access point'),
                                         *outcome_rows('repeater')])
def test_an_outcome_is_told_as_its_row_says(router, play, cells):
    play(router)
    assert as_cells(plays.look(router)) == cells


# One band's status on the bus, and its text, after a play.
STATUSES = {
    '0': (plays.cancelled_while_idle, 0, 'ok'),
    '2': (plays.joins_on_24_ghz, 0, 'success'),
    '3': (plays.joins_an_open_one_whose_settings_are_lost, 0, 'error'),
    '4': (plays.time_out_by_hostapd, 0, 'timeout'),
    '8': (plays.stopped_after_an_overlap, 0, 'overlap'),
    '9': (plays.repeater_stopped_in_an_exchange, 0, 'cancel'),
    '11': (plays.press, 1, 'ok'),
    '12': (plays.pressed_with_wps_off, 1, 'silent'),
}


@pytest.mark.parametrize('row', page.table('status'), ids=lambda row: row[0])
def test_a_status_has_the_text_of_its_row(router, row):
    play, band, text = STATUSES[row[0]]
    play(router)
    seen = plays.look(router)
    assert (str(seen.events[-1][1 + band]), seen.texts[band]) == (row[0], text)
    assert row[2].startswith(f'`{text}`')


def test_every_status_that_is_known_is_on_the_page():
    assert [row[0] for row in page.table('status')] == list(STATUSES)


# What the page says of the mark that an attempt runs: where it stays though none does, or is gone
# though one does.
@pytest.mark.parametrize('play, mark', [
    (plays.press, 1),
    (plays.cancelled, 2),
    (plays.repeater_cancelled, 1),
    (plays.repeater_asked_with_pin, 1),
    (plays.pressed_with_wps_off, 1),
    (plays.hostapd_succeeds_by_itself, 1),
    (plays.hostapd_stops_on_the_only_band, 2),
    (plays.one_enrols, 2),
], ids=lambda value: getattr(value, '__name__', str(value)))
def test_the_info_file_says_started_until_an_end_is_told(router, play, mark):
    play(router)
    assert router.info()[0] == ('wps_action', mark)


# --- Requests ---

@pytest.mark.parametrize('command, line', [
    pytest.param(*(cell.strip('`') for cell in row), id=row[0].strip('`'))
    for row in page.table('refused request')])
def test_a_refused_request_leaves_its_line_and_nothing_else(router, command, line):
    plays.start(router)
    before = router.taken_requests()
    assert shell(command).returncode == 0
    router.wait_line(line, poke=False)
    assert router.taken_requests() - before == (line == 'Invalid wps_cli action.')
    router.settle()
    assert router.events() == []
    assert router.commands() == [command]
    for path in (plays.RESULT, plays.INFO, plays.ACTIVE):
        assert router.world.read(path) is None


def test_a_start_by_another_method_does_nothing_and_leaves_no_line_of_its_own(router):
    plays.start(router)
    command = """ubus send wps_cli '{"action":1,"method":3}'"""
    taken = router.taken_requests()
    assert shell(command).returncode == 0
    router.wait_taken(taken + 1)
    router.settle()
    assert not any(line.startswith('Invalid') and line != 'Invalid wps_cli action.'
                   for line in router.console.lines())
    assert router.console.lines().count('Invalid wps_cli action.') == 1  # the harness's own request
    assert router.events() == []
    assert router.commands() == [command]
    for path in (plays.RESULT, plays.INFO, plays.ACTIVE):
        assert router.world.read(path) is None


@pytest.mark.parametrize('row', page.table('asked for'), ids=lambda row: row[0])
def test_the_commands_of_the_table_are_those_of_the_examples(row):
    assert row[1].strip('`') + '\n' in [EXAMPLES[name] for name in REQUESTS]


def expect_press(router):
    router.wait_command(hostapd_cli('5g', 'wps_pbc'))
    router.settle()
    assert events(router) == [(1, 11, 11)]
    assert router.world.read(plays.RESULT) == '-1\n'


def expect_pin(router):
    router.wait_command(hostapd_cli('5g', 'wps_pin any 12345670'))
    router.settle()
    assert events(router) == [(1, 11, 11)]
    assert router.world.read(plays.RESULT) is None


def expect_cancel(router):
    router.wait_command(ubus_send(2, 0, 0))
    router.settle()
    assert events(router) == [(2, 0, 0)]


REQUESTS = {'press': expect_press, 'client-pin': expect_pin, 'cancel': expect_cancel,
            'button': expect_press}


def run_request(name):
    def run(router):
        plays.start(router)
        assert shell(EXAMPLES[name]).returncode == 0
        REQUESTS[name](router)
    return run


PRESSES = ['{"type":"wps","pressed":0}', '{"type":"reset","pressed":1}', '{"type":"wps"}']


@pytest.mark.parametrize('event', PRESSES)
def test_any_gpio_event_with_a_type_is_a_press(router, event):
    plays.start(router)
    assert shell(f"ubus send gpio '{event}'").returncode == 0
    expect_press(router)


def test_a_request_without_a_daemon_looks_like_one_that_was_taken(router):
    router.start_bus()
    assert shell(EXAMPLES['press']).returncode == 0
    router.broker.stop()
    assert shell(EXAMPLES['press']).returncode == 255


def run_daemon_there(router):
    text = EXAMPLES['daemon-there']
    assert shell(text).returncode != 0
    router.world.write('/tmp/kelm.pid', '99999999\n')
    assert shell(text).returncode != 0
    os.unlink('/tmp/kelm.pid')
    plays.start(router)
    assert shell(text).returncode == 0


def run_louder(router):
    plays.start(router)
    router.console.forget()
    for _ in range(3):  # one after the other: equal pending signals count as one
        assert shell(EXAMPLES['louder']).returncode == 0
        router.wait_line('global_wps_flags: 00000000', poke=False)
        router.console.forget()
    router.press()
    router.settle()
    assert 'multiap_mode = 0' in router.console.lines()


def run_supervised(router):
    """The example as a supervisor runs it, with the daemon in the PATH."""
    log = LogDaemon()
    try:
        router.console = log
        path = f'{os.path.dirname(PROGRAM)}:{os.environ["PATH"]}'
        router.start(kind=ForegroundDaemon, command=('sh', '-c', EXAMPLES['supervised']),
                     environment={'PATH': path})
        assert router.start_lines[0] == VERSION_LINE
        assert router.world.read('/tmp/kelm.pid') == f'{router.daemon.pid}\n'
        router.press_and_wait_started()
        plays.join_and_end(router, '2g')
        assert log.senders == {router.daemon.pid}
        assert router.world.console.text() == ''
    finally:
        log.close()


def run_syslog_line(_):
    """Its form is the one by which the listener knows the lines; what it tells is the first."""
    head = LogDaemon.HEAD.match(EXAMPLES['syslog-line'])
    text = EXAMPLES['syslog-line'][head.end():]
    assert ORIGIN.sub('', text, count=1) == f'{VERSION_LINE}\n'


def run_credential_event(router):
    router.configure(mode=REPEATER_MODE, stations=1)
    router.set_link('2g', 0)
    router.start(bands=(), stations=('2g',), environment={'KELM_CREDENTIALS': 'event'})
    router.press_and_wait_started()
    router.supplicant['2g'].send(EXAMPLES['credential-event'].rstrip('\n'))
    router.wait_line('processing wpsEvent[2.4G]: <3>WPS-CRED-RECEIVED')
    path = '/tmp/run/wpa_supplicant-wlan1-vxd.conf'
    assert router.world.read(path) == EXAMPLES['credential-file']
    assert router.world.mode(path) == 0o600


# --- Listening ---

class Listener:
    """The page's command, listening."""

    def __init__(self):
        with open('/mnt/heard', 'w', encoding='utf-8') as heard:
            self._process = subprocess.Popen(['sh', '-c', EXAMPLES['listen']], stdout=heard,
                                             cwd=TREE, start_new_session=True)
        wait_for(self._is_ready, 'the listener')

    def _is_ready(self):
        """It prints nothing when it is, but its loop is seen to have its connection then."""
        for entry in filter(str.isdigit, os.listdir('/proc')):
            with contextlib.suppress(OSError):
                if os.getpgid(int(entry)) == self._process.pid and \
                        Daemon.adopted(int(entry)).listens():
                    return True
        return False

    @staticmethod
    def _heard():
        with open('/mnt/heard', encoding='utf-8') as heard:
            return heard.read()

    def end(self, lines):
        """After so many lines: a sender may have ended before its event has been read."""
        wait_for(lambda: self._heard().count('\n') >= lines, f'{lines} lines of the listener')
        os.killpg(self._process.pid, signal.SIGTERM)
        self._process.wait(10)
        return self._heard()


def run_listen(router):
    plays.start(router)
    listener = Listener()
    router.press_and_wait_started()
    router.settle()
    plays.join_and_end(router, '2g')
    assert listener.end(lines=3) == EXAMPLES['listen-output']


def test_the_integers_of_the_event_are_32_bits_wide(router):
    kinds = []

    class Widths(wire.BusClient):
        def _note(self, body):
            data = dict(wire._children(body))[wire.ATTR_DATA]
            kinds.append([kind for kind, _ in wire._children(data)])
    plays.start(router)
    client = Widths('wps')
    router.press_and_wait_started()
    client.events()
    assert kinds == [[wire.INT32] * 4]


# --- Files ---

FILES = {
    'device_runtime.info': '/tmp/device_runtime.info',
    'device.info': '/tmp/device.info',
    'wifi_runtime_info.2g': '/tmp/wifi_runtime_info.2g',
    'wps.conf': '/tmp/wps.conf',
    'wifi.conf': '/tmp/wifi.conf',
    'hostapd-wlan1.conf': '/tmp/run/hostapd-wlan1.conf',
    'wpa_supplicant-wlan1-vxd.conf': '/tmp/run/wpa_supplicant-wlan1-vxd.conf',
    'wifi_scan_5g.result': '/mnt/scan.5g',  # where the scan tool has it from
    'wificommonCfg': '/etc/config/wificommonCfg',
    'wifi2G_Cfg': '/etc/config/wifi2G_Cfg',
}
SETTINGS = ('device_runtime.info', 'device.info', 'wps.conf', 'wifi.conf')
AP_FILES = (*SETTINGS, 'hostapd-wlan1.conf')
REPEATER_FILES = (*SETTINGS, 'wpa_supplicant-wlan1-vxd.conf', 'wifi_scan_5g.result')
PINS = [hostapd_cli(band, 'wps_ap_pin set 12345670') for band in ('2g', '5g')]
SHORT_PINS = [hostapd_cli(band, 'wps_ap_pin set 1235') for band in ('2g', '5g')]
NO_PINS = [hostapd_cli(band, 'wps_ap_pin disable') for band in ('2g', '5g')]


def put(router, names, changes=()):
    """The page's files in their places. changes: texts in them that are others, which must be."""
    texts = {name: EXAMPLES[name] for name in names}
    for name, old, new in changes:
        assert texts[name].count(old) == 1, f'{old!r} is not in the example {name}'
        texts[name] = texts[name].replace(old, new)
    for name, text in texts.items():
        router.world.write(FILES[name], text)


def start_ap(router, changes=(), bands=('2g', '5g'), more=()):
    put(router, (*AP_FILES, *more), changes)
    router.start(bands)


def start_repeater(router, changes=(), more=(), links=(0, 0), bands=('2g', '5g')):
    put(router, (*REPEATER_FILES, *more),
        (('device_runtime.info', '"mode": 1', '"mode": 0'), *changes))
    for band, link in zip(('2g', '5g'), links):
        if link is not None:
            router.set_link(band, link)
    router.world.write('/mnt/scan.2g', '[]')
    router.world.reply('/usr/bin/wifi', plays.repeater.SCAN_TOOL)
    router.start(bands=(), stations=bands)


def press(router):
    router.world.forget_commands()
    router.press_and_wait_started()
    router.settle()


def join(router):
    press(router)
    plays.join_and_end(router, '2g')


def enrol(router):
    """2.4 GHz alone; 5 GHz times out, and looks at its scan."""
    press(router)
    plays.enrol(router, '2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    router.end()


def expect_file(router, name, path=None):
    assert router.world.read(path or f'/tmp/{name}') == on_one_line(EXAMPLES[name])


def run_access_point(router):
    start_ap(router)
    assert router.commands() == PINS
    join(router)
    assert events(router) == [(1, 11, 11), (2, 12, 12), (2, 2, 4)]
    expect_file(router, 'kelm.info')
    expect_file(router, 'wps_wifi_ap.txt')


def run_repeater(router):
    start_repeater(router)
    enrol(router)
    assert events(router) == [(1, 11, 11)]
    expect_file(router, 'wps_wifi_sta.txt')
    expect_file(router, 'extender-wps_wifi_ap.txt', '/tmp/wps_wifi_ap.txt')


def run_connected_station(router):
    start_repeater(router, more=('wifi_runtime_info.2g',), links=(None, 0))
    press(router)
    assert events(router) == [(1, 12, 11)]


def run_easymesh(router):
    start_repeater(router, more=('wificommonCfg',), changes=(
        ('wpa_supplicant-wlan1-vxd.conf', '\tauth_alg=OPEN\n',
         '\tauth_alg=OPEN\n\teasymesh_support=1\n'),))
    learnt = router.world.read(FILES['wpa_supplicant-wlan1-vxd.conf'])
    router.world.write('/tmp/run/wpa_supplicant-wlan0-vxd.conf', learnt)
    press(router)
    plays.enrol(router, '2g')
    plays.enrol_and_end(router, '5g')
    expect_file(router, 'wps_wifi_ap_bh.txt')
    expect_file(router, 'mesh-wps_wifi_sta.txt', '/tmp/wps_wifi_sta.txt')


def run_hex(router):
    start_repeater(router, changes=(
        ('wpa_supplicant-wlan1-vxd.conf', 'ssid="Great Oak"', 'ssid=4bfc636865'),))
    enrol(router)
    written = json.loads(router.world.read('/tmp/wps_wifi_sta.txt'))
    shown = json.loads(EXAMPLES['hex-wps_wifi_sta.txt'])
    assert shown and {key: written.get(key) for key in shown} == shown


def run_factory(router):
    start_repeater(router, more=('wifi2G_Cfg',), changes=(
        ('wifi.conf', 'apBssEnabled_2g=on', 'apBssEnabled_2g=off'),))
    router.world.write('/etc/config/wifi5G_Cfg', EXAMPLES['wifi2G_Cfg'])
    enrol(router)
    assert 'update factory_mode = 1' in router.console.lines()
    assert 'ssid_2g' in json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))


# --- Each bit and value of the settings: what changes in the page's example, and what it does ---

def starts(*statuses):
    def expect(router):
        press(router)
        assert events(router) == [(1, *statuses)]
    return expect


def sets_pins(*commands):
    def expect(router):
        assert router.commands() == list(commands)
    return expect


def writes(path, **members):
    """Of the file after a success on 2.4 GHz; None is a key that is not there."""
    def expect(router):
        join(router) if router.hostapd else enrol(router)
        written = json.loads(router.world.read(path))
        assert {key: written.get(key) for key in members} == members
    return expect


def applies_nothing(router):
    join(router)
    assert '/etc/init.d/wps config_wifi' not in router.commands()


AP_FILE, STATION_FILE = '/tmp/wps_wifi_ap.txt', '/tmp/wps_wifi_sta.txt'
AP_VALUES = [
    ('wps.conf', 'enabled=1', 'enabled=0', (), starts(12, 12)),
    ('wps.conf', 'enabled=1', 'enabled=0', (), sets_pins(*PINS)),
    ('wps.conf', 'enabled=1', 'enabled=255', ('2g', '5g'), starts(11, 11)),
    ('wps.conf', 'enabled=1', 'enabled=256', (), starts(12, 12)),
    ('wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=0', (), starts(12, 12)),
    ('wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=1', ('2g',), starts(11, 12)),
    ('wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=2', ('5g',), starts(12, 11)),
    ('wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=1', ('2g',), sets_pins(PINS[0], NO_PINS[1])),
    ('wps.conf', 'pinEnabled=on', 'pinEnabled=off', ('2g', '5g'), sets_pins(*NO_PINS)),
    ('wps.conf', 'pinEnabled=on', 'pinEnabled=On', ('2g', '5g'), sets_pins(*NO_PINS)),
    ('wps.conf', 'pinCode=12345670', 'pinCode=12345678', ('2g', '5g'), sets_pins(*NO_PINS)),
    ('wps.conf', 'pinCode=12345670', 'pinCode=123456709', ('2g', '5g'), sets_pins(*PINS)),
    ('wps.conf', 'pinCode=12345670', 'pinCode=1235', ('2g', '5g'), sets_pins(*SHORT_PINS)),
    ('wps.conf', 'pinCode=12345670', 'pinCode=12345', ('2g', '5g'), sets_pins(*NO_PINS)),
    ('wifi.conf', 'apBssEnabledApMode_2g=on', 'apBssEnabledApMode_2g=off', ('2g', '5g'),
     writes(AP_FILE, enable_2g='off')),
    ('wifi.conf', 'apBssEnabled_2g=on', 'apBssEnabled_2g=off', ('2g', '5g'),
     writes(AP_FILE, enable_2g='on')),
    ('wifi.conf', 'wlanSecType_2g=0', 'wlanSecType_2g=1', ('2g', '5g'), applies_nothing),
    ('wifi.conf', '\n\napBssEnabledApMode', '\n\n\napBssEnabledApMode', ('2g', '5g'),
     writes(AP_FILE, enable_2g='off')),
    ('device.info', '"RFBand": 2', '"RFBand": 0', ('2g',), starts(11, 0)),
    ('device.info', '"RFBand": 2', '"RFBand": 1', ('5g',), starts(0, 11)),
    ('device.info', '"RFBand": 2', '"RFBand": "2"', ('2g',), starts(11, 0)),
]
NO_KEY = None
REPEATER_VALUES = [
    ('wps.conf', 'enabled=1', 'enabled=0', starts(11, 11)),
    ('wps.conf', 'staWpsAvailable=3', 'staWpsAvailable=1', starts(11, 12)),
    ('wps.conf', 'staWpsAvailable=3', 'staWpsAvailable=2', starts(12, 11)),
    ('wifi.conf', 'apBssEnabled_2g=on', 'apBssEnabled_2g=off', writes(AP_FILE, ssid_2g=NO_KEY)),
    ('wifi.conf', 'staBssEnabled_2g=on', 'staBssEnabled_2g=off',
     writes(STATION_FILE, ssid_2g=NO_KEY, ssid_5g='Great Oak')),
    ('wificommonCfg', "IsGermanySSID 'no'", "IsGermanySSID 'yes'",
     writes(AP_FILE, ssid_2g='Great Oak', ssid_5g='Great Oak')),
    ('wifi_scan_5g.result', '"ssid": "Great Oak"', '"ssid": "Elsewhere"',
     writes(AP_FILE, ssid_2g='Great Oak_EXT', ssid_5g='Great Oak_5GEXT')),
    ('wifi_scan_5g.result', '"ssid": "Great Oak"', '"ssid": "Nowhere"',
     writes(STATION_FILE, ssid_2g='Great Oak', ssid_5g='')),
]


@pytest.mark.parametrize('name, old, new, bands, expect', [
    pytest.param(*row, id=f'{row[2].strip()} {row[4].__qualname__.split(".")[0]}')
    for row in AP_VALUES])
def test_a_value_of_an_access_points_settings(router, name, old, new, bands, expect):
    start_ap(router, [(name, old, new)], bands)
    expect(router)


@pytest.mark.parametrize('name, old, new, expect', [
    pytest.param(*row, id=row[2]) for row in REPEATER_VALUES])
def test_a_value_of_a_repeaters_settings(router, name, old, new, expect):
    bands = {'staWpsAvailable=1': ('2g',), 'staWpsAvailable=2': ('5g',)}.get(new, ('2g', '5g'))
    more = () if name in REPEATER_FILES else (name,)
    start_repeater(router, [(name, old, new)], more, bands=bands)
    expect(router)


BAND_SETS = {'0': '2g', '1': '5g', '2': '2g, 5g', '3': '2g, 5g, 5g2', '4': '2g, 5g, 6g',
             '5': '2g, 5g, 5g2, 6g'}


@pytest.mark.parametrize('code, bands', page.table('`RFBand`'))
def test_a_band_set_has_the_bands_of_its_row(router, code, bands):
    """By the sessions of the dump; the switches are off, so that no socket is needed."""
    put(router, AP_FILES, [('device.info', '"RFBand": 2', f'"RFBand": {code}'),
                           ('wps.conf', 'apWpsAvailable=3', 'apWpsAvailable=0')])
    router.start(bands=())
    router.console.forget()
    router.daemon.send(signal.SIGUSR1)
    router.wait_line('global_wps_flags: 00000000', poke=False)
    shown = re.findall(r'session \[band (\d)\]', router.console.text())
    assert ', '.join(('2g', '5g', '5g2', '6g')[int(band)] for band in shown) == bands


# --- The sample script, by the page's own words; test_wps_press.py tries the rest ---

def run_script(router):
    plays.start(router)
    script = Script(command=EXAMPLES['wps-press'].strip())
    script.wait_started(router)
    router.settle()
    plays.join_and_end(router, '2g')
    assert script.end() == (0, EXAMPLES['wps-press-output'])


# --- Every example has its run ---

RUNS = {
    **{name: run_request(name) for name in REQUESTS},
    'daemon-there': run_daemon_there, 'louder': run_louder,
    'supervised': run_supervised, 'syslog-line': run_syslog_line,
    **dict.fromkeys(('credential-event', 'credential-file'), run_credential_event),
    'listen': run_listen, 'listen-output': run_listen,
    'wps-press': run_script, 'wps-press-output': run_script,
    **dict.fromkeys(('kelm.info', 'wps_wifi_ap.txt', *AP_FILES), run_access_point),
    **dict.fromkeys(('wps_wifi_sta.txt', 'extender-wps_wifi_ap.txt',
                     'wpa_supplicant-wlan1-vxd.conf', 'wifi_scan_5g.result'), run_repeater),
    **dict.fromkeys(('wps_wifi_ap_bh.txt', 'mesh-wps_wifi_sta.txt', 'wificommonCfg'), run_easymesh),
    'hex-wps_wifi_sta.txt': run_hex, 'wifi_runtime_info.2g': run_connected_station,
    'wifi2G_Cfg': run_factory,
}


def test_every_example_of_the_page_has_a_run_and_every_run_an_example():
    assert sorted(EXAMPLES) == sorted(RUNS)


@pytest.mark.parametrize('run', dict.fromkeys(RUNS[name] for name in EXAMPLES if name in RUNS),
                         ids=lambda run: '+'.join(name for name in RUNS if RUNS[name] is run))
def test_an_example_does_what_the_page_says(router, run):
    run(router)
