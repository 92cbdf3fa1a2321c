# SPDX-License-Identifier: ISC
"""The router around the daemon: its settings files, its Wi-Fi daemons, its bus, its button."""
import contextlib
import json
import os
import re
import shlex
import signal
import time

import wire
from daemon_run import Daemon, end_leftovers
from peers import BUS_COMMAND, Broker, ControlServer
from world import wait_for

BANDS = ('2g', '5g', '5g2', '6g')
# The 2.4 GHz radio is the second interface, on purpose.
INTERFACES = {'2g': 'wlan1', '5g': 'wlan0'}
AP_MODE, REPEATER_MODE = 1, 0
PRESS = wire.member(wire.STRING, 'type', 'wps') + wire.member(wire.INT32, 'pressed', 1)
START, CANCEL, NO_ACTION = 1, 2, 9
BUTTON_METHOD, PIN_METHOD = 1, 2
# What the harness itself asks to see that the daemon answers.
PROBE_LINES = ('Invalid action.', 'ibus event: 10', 'Invalid wps_cli action.')
# What the bus event of a press looks like in the log.
PRESS_TEXT = '{"type":"wps","pressed":1}'


def _version():
    build_file = os.path.join(os.path.dirname(__file__), '..', '..', 'CMakeLists.txt')
    with open(build_file, encoding='utf-8') as lines:
        return re.search(r'^project\(kelm VERSION (\S+)', lines.read(), re.MULTILINE)[1]


# The first line of every run: a console log tells which kelm wrote it.
VERSION_LINE = f'kelm {_version()}'


class Router:
    """A device with hostapd on 2.4 and 5 GHz, both secured, and no access-point PIN."""

    def __init__(self, world):
        self.world = world
        self.console = world.console
        self.daemon = None
        self.environment = {}  # what more its variables hold, for those who do not say
        self.broker = None
        self.bus = None
        self.hostapd = {}
        self.supplicant = {}
        self.start_lines = []
        self.published = []
        world.reply('ubus', f'exec {BUS_COMMAND} "$@"\n')
        self.configure()

    def renew(self):
        """For the next of several attempts in one test: all as it was at the test's begin."""
        self.close()
        self.world.reset()
        Router.__init__(self, self.world)

    def configure(self, mode=AP_MODE, band_set=2, enabled=1, available=3, stations=0, pin=None,
                  secured=(1, 1, 1, 1)):
        """Writes the settings. pin: the access points' PIN, None: switched off."""
        self.world.write('/tmp/device_runtime.info', json.dumps({'mode': mode}))
        self.world.write('/tmp/device.info', json.dumps({'RFBand': band_set}))
        self.world.write('/tmp/wps.conf', (
            f'enabled={enabled}\napWpsAvailable={available}\nstaWpsAvailable={stations}\n'
            f'pinEnabled={"off" if pin is None else "on"}\npinCode={pin or ""}\n'))
        ap_block = ''.join(f'apBssEnabledApMode_{band}=on\napBssEnabled_{band}=on\n'
                           f'wlanSecType_{band}={int(kind)}\n'
                           for band, kind in zip(BANDS, secured))
        sta_block = ''.join(f'staBssEnabled_{band}=on\n' for band in BANDS)
        self.world.write('/tmp/wifi.conf', (
            f'# made by the scripts\nunused=1\n\n{ap_block}\n{sta_block}\nend=1\n'))

    def add_hostapd(self, *bands, replies=None):
        for band in bands:
            path = f'/var/run/hostapd/{INTERFACES[band]}'
            self.hostapd[band] = ControlServer(path, replies)

    def silence_hostapd(self):
        """From now on it takes what it is sent, and answers nothing."""
        for server in self.hostapd.values():
            server.silence()

    def add_supplicant(self, *bands):
        for band in bands:
            path = f'/var/run/wpa_supplicant/{INTERFACES[band]}-vxd'
            self.supplicant[band] = ControlServer(path)

    def set_link(self, band, status):
        """Whether a station has its link (1), as the other daemons tell it."""
        self.world.write(f'/tmp/wifi_runtime_info.{band}', json.dumps({'status': status}))

    def start_bus(self):
        self.broker = Broker()
        self.bus = wire.BusClient('wps')

    def launch(self, kind=Daemon, **options):
        """Starts the daemon and looks no further."""
        self.daemon = kind(**options)
        return self.daemon

    def start(self, bands=('2g', '5g'), stations=(), **options):
        """Starts everything and waits until the daemon has opened all of it."""
        self.start_bus()
        self.add_hostapd(*bands)
        self.add_supplicant(*stations)
        self.launch(**options)
        assert self.daemon.command_status == 0
        for server in (*self.hostapd.values(), *self.supplicant.values()):
            server.wait_attached()
        wait_for(self.daemon.is_waiting, 'the main loop')
        self.wait_registered()

    def wait_registered(self, in_loop=True):
        """Until the bus thread has registered its last event; ends the log of the start.

        in_loop: and until the main loop turns.
        """
        wait_for(self.daemon.listens, 'the loop of the bus thread')

        def answered():
            self.bus.send('wps_cli')
            try:
                wait_for(lambda: 'Invalid action.' in self.console.lines(), 'an answer', 1)
                return True
            except AssertionError:
                return False  # a registration that failed is tried again after a second
        wait_for(answered, 'the registration on the bus')
        if in_loop:
            self.settle()
        self.start_lines = [line for line in self.console.lines() if line not in PROBE_LINES]
        self.console.forget()

    def wait_line(self, line, poke=True):
        wait_for(lambda: line in self.console.lines(), f'the line "{line}" in {self.console}',
                 between=self.daemon.poke if poke else None)

    def wait_command(self, command):
        wait_for(lambda: command in self.commands(), f'the command "{command}"',
                 between=self.daemon.poke)

    def commands(self):
        return self.world.commands()

    def press(self, poke=True):
        """Presses the button; returns when the daemon has taken the request up."""
        seen = self.console.lines().count('ibus event: 4')
        self.bus.send('gpio', PRESS)
        wait_for(lambda: self.console.lines().count('ibus event: 4') > seen, 'the button press',
                 between=self.daemon.poke if poke else None)

    def press_blindly(self):
        """Presses once; returns when the attempt has started, whatever the console says."""
        self.bus.send('gpio', PRESS)
        wait_for(lambda: self.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt',
                 between=self.daemon.poke)

    def press_and_wait_started(self, poke=True):
        """The last trace of a start is the alive marker."""
        with contextlib.suppress(FileNotFoundError):
            os.unlink('/tmp/wpsactive')
        self.press(poke)
        wait_for(lambda: self.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt')

    def request(self, action=START, method=BUTTON_METHOD, pin=None, kind=wire.INT32):
        """A "wps_cli" request; None leaves a member out."""
        members = b''
        if action is not None:
            members += wire.member(kind, 'action', action)
        if method is not None:
            members += wire.member(kind, 'method', method)
        if pin is not None:
            members += wire.member(wire.STRING, 'pin', pin)
        self.bus.send('wps_cli', members)

    def taken_requests(self):
        """How many bus requests the main loop has taken up so far, by the log."""
        return sum(line.startswith('ibus event: ') for line in self.console.lines())

    def wait_taken(self, count):
        wait_for(lambda: self.taken_requests() >= count, f'{count} requests taken up',
                 between=self.daemon.poke)

    def settle(self):
        """Until the main loop has done what it was about to do, by a request that it refuses.

        One that the bus thread does not log: of two lines at a time the console takes one.
        """
        def refusals():
            return self.console.lines().count(PROBE_LINES[-1])
        seen = refusals()
        self.request(action=NO_ACTION)
        wait_for(lambda: refusals() > seen, 'a pass of the loop', between=self.daemon.poke)

    def settle_silently(self):
        """Until signals sent before are handled, whatever the console shows."""
        time.sleep(0.05)
        wait_for(self.daemon.is_waiting, 'the wait of the main loop')

    def end(self, poke=True):
        """Waits for the daemon's end; returns its status and keeps what it had published."""
        status = self.daemon.wait_exit(poke=poke)
        self.published += self.events()
        return status

    def end_by_sigterm(self):
        """The daemon must end when it is told to, and take its traces along."""
        self.daemon.send(signal.SIGTERM)
        assert self.end(poke=False) == 0
        self.assert_no_traces()

    @staticmethod
    def assert_no_traces():
        """What a daemon must not leave behind: a pid file bars the next start."""
        left = [name for name in os.listdir('/tmp')
                if name.startswith('wpa_ctrl_') or name == 'kelm.pid']
        assert left == []

    def events(self):
        """(action, 2g, 5g, 5g2) of each published event since the last call."""
        if self.bus is None:
            return []
        found = []
        for name, members in self.bus.events():
            assert name == 'wps'
            assert list(members) == ['action', '2g_status', '5g_status', '5g2_status']
            found.append(tuple(members.values()))
        return found

    def info(self):
        """The info file as its keys and values in order."""
        return list(json.loads(self.world.read('/tmp/kelm.info')).items())

    def close(self):
        if self.daemon is not None and self.daemon.pid is not None and self.daemon.is_running():
            self.daemon.send(signal.SIGKILL)
            self.daemon.wait_exit(poke=False)
        if self.bus is not None:
            self.bus.close()
        if self.broker is not None:
            self.broker.stop()
        for server in (*self.hostapd.values(), *self.supplicant.values()):
            server.close()
        end_leftovers()


def wpa_cli(band, words):
    return f'wpa_cli -p /var/run/wpa_supplicant -i {INTERFACES[band]}-vxd {words}'


def hostapd_cli(band, words):
    return f'hostapd_cli -p /var/run/hostapd -i {INTERFACES[band]} {words}'


def settings_line(enabled=1, available=3, stations=0):
    """The WPS settings in the log, without an access-point PIN."""
    return (f'enabled: {enabled}, apWpsAvailable: {available}, staWpsAvailable: {stations}, '
            'pinEnabled: 0, pinCode:')


def ubus_send(action, status_2g, status_5g, status_5g2=0):
    """The publication as the recorded command."""
    text = (f'{{"action":{action},"2g_status":{status_2g},"5g_status":{status_5g},'
            f'"5g2_status":{status_5g2}}}')
    return f'ubus send wps {shlex.quote(text)}'


def publication_lines(action, status_2g, status_5g, status_5g2=0):
    """The publication in the log."""
    text = (f'{{"action":{action},"2g_status":{status_2g},"5g_status":{status_5g},'
            f'"5g2_status":{status_5g2}}}')
    return [f'Prepare to send message: action {action}, '
            f'status {status_2g} {status_5g} {status_5g2}',
            f"Prepare to send message: ubus send wps '{text}'"]


def dump_lines(index, name, status, flags, priority):
    """One session in the dump."""
    names = ''.join(f'[WPS_FLAG_{flag}]' for flag in flags)
    return [f'session [band {index}][ifName {name}]======================>',
            f'\twps_status: {status}', f'\twps_flags: {names}', f'\twps_priority: {priority}',
            '\twps_score: 00000000', '\twps_inited: 00000001']
