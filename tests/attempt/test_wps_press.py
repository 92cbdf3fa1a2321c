# SPDX-License-Identifier: ISC
"""docs/examples/wps-press against the daemon: what it says, and with what status it ends."""
import os
import signal
import subprocess

import pytest

import outcome_plays as plays
import page
from router import hostapd_cli
from test_ap_attempt import MAC
from world import wait_for

TREE = '/mnt/src'
QUICK = '/mnt/quick'  # holds a short sleep


class Script:
    """docs/examples/wps-press, running. It looks more often than on a router, not for less long."""

    def __init__(self, *words, command='docs/examples/wps-press'):
        os.makedirs(QUICK, exist_ok=True)
        with open(f'{QUICK}/sleep', 'w', encoding='utf-8') as file:
            file.write('#!/bin/sh\nexec /bin/sleep 0.02\n')
        os.chmod(f'{QUICK}/sleep', 0o755)
        environment = dict(os.environ, PATH=f'{QUICK}:{os.environ["PATH"]}')
        self._out = open('/mnt/said', 'w+', encoding='utf-8')
        self._process = subprocess.Popen(['sh', '-c', f'{command} "$@"', 'sh', *words], cwd=TREE,
                                         env=environment, stdout=self._out, stderr=self._out)

    def said(self):
        with open('/mnt/said', encoding='utf-8') as file:
            return file.read()

    def wait_started(self, router):
        wait_for(lambda: 'WPS has started' in self.said() or self._process.poll() is not None,
                 'the start', between=router.daemon.poke)
        assert 'WPS has started' in self.said(), self.said()

    def end(self, router=None):
        wait_for(lambda: self._process.poll() is not None, 'the end of the script',
                 between=router and router.daemon.poke)
        self._out.close()
        return self._process.returncode, self.said()


WAIT = 'Press the button of the other device within two minutes.\n'
STARTED = f'WPS has started on 2.4 GHz and 5 GHz. {WAIT}'
NONE_24, NONE_5 = (f'{band} GHz: no success before the attempt was over\n' for band in ('2.4', '5'))
TIME_OUT = 'time-out, nobody has joined\n'
OVERLAP = 'overlap, two devices had their buttons pressed; wait two minutes, try again\n'
ERROR = 'error, the exchange failed or its credentials could not be stored\n'
NO_OUTCOME = 'The daemon has ended without an outcome.\n'


def end_both(event):
    return lambda router: plays.tell_both_and_end(router, event)


def join_with(band):
    return lambda router: plays.join_and_end(router, band)


def kill(router):
    router.daemon.send(signal.SIGKILL)
    router.daemon.wait_exit(poke=False)


def overlap_and_stop(router):
    plays.tell(router, '2g', 'WPS-OVERLAP-DETECTED')
    plays.stop(router)


def open_24_ghz(router):
    router.configure(secured=plays.OPEN_24)


def switch_24_ghz_off(router):
    router.configure(available=2)


# Name: before the start, what comes after the script's press, its exit status and its words.
AP_RUNS = {
    'a client joins': (None, join_with('2g'), 0,
                       f'{STARTED}2.4 GHz: success, {MAC} has joined\n{NONE_5}'),
    'a client joins on 5 GHz': (None, join_with('5g'), 0,
                                f'{STARTED}{NONE_24}5 GHz: success, {MAC} has joined\n'),
    'overlap': (None, end_both('WPS-OVERLAP-DETECTED'), 3,
                f'{STARTED}2.4 GHz: {OVERLAP}5 GHz: {OVERLAP}'),
    'time-out': (None, end_both('WPS-TIMEOUT'), 1,
                 f'{STARTED}2.4 GHz: {TIME_OUT}5 GHz: {TIME_OUT}'),
    'settings not stored': (open_24_ghz, join_with('2g'), 1, f'{STARTED}2.4 GHz: {ERROR}{NONE_5}'),
    'one band is off': (switch_24_ghz_off, join_with('5g'), 0,
                        f'WPS has started on 5 GHz. {WAIT}5 GHz: success, {MAC} has joined\n'),
    'cancelled': (None, plays.cancel, 4, f'{STARTED}Cancelled.\n'),
    'stopped': (None, plays.stop, 8, f'{STARTED}{NONE_24}{NONE_5}{NO_OUTCOME}'),
    'killed': (None, kill, 8, f'{STARTED}{NONE_24}{NONE_5}{NO_OUTCOME}'),
    'stopped after an overlap': (None, overlap_and_stop, 3, f'{STARTED}2.4 GHz: {OVERLAP}{NONE_5}'),
}


@pytest.mark.parametrize('name', AP_RUNS)
def test_it_tells_an_access_points_outcome(router, name):
    prepare, go_on, status, words = AP_RUNS[name]
    if prepare is not None:
        prepare(router)
    router.start(('5g',) if prepare is switch_24_ghz_off else ('2g', '5g'))
    script = Script()
    script.wait_started(router)
    router.settle()
    go_on(router)
    assert script.end() == (status, words)


def end_both_enrolled(router):
    plays.enrol(router, '2g')
    plays.enrol_and_end(router, '5g')


def enrol_and_stop(router):
    plays.enrol(router, '2g')
    router.settle()
    plays.stop(router)


REPEATER_RUNS = {
    'both enrol': (end_both_enrolled, 0, f'{STARTED}2.4 GHz: success\n5 GHz: success\n'),
    'both fail': (end_both('WPS-FAIL msg=8'), 1, f'{STARTED}2.4 GHz: {ERROR}5 GHz: {ERROR}'),
    'stopped': (plays.stop, 8, f'{STARTED}The daemon was stopped.\n'),
    'stopped after one has enrolled': (enrol_and_stop, 8, f'{STARTED}The daemon was stopped.\n'),
}


@pytest.mark.parametrize('name', REPEATER_RUNS)
def test_it_tells_a_repeaters_outcome(router, name):
    go_on, status, words = REPEATER_RUNS[name]
    plays.start_repeater(router)
    script = Script()
    script.wait_started(router)
    router.settle()
    go_on(router)
    assert script.end() == (status, words)


def test_it_cannot_see_the_cancel_of_a_repeater(router):
    plays.start_repeater(router)
    script = Script('-t', '2')
    script.wait_started(router)
    router.settle()
    plays.cancel(router)
    assert script.end() == (9, f'{STARTED}No outcome within 2 seconds.\n')


def test_it_lets_a_client_in_by_its_pin(router):
    plays.start(router)
    script = Script('-p', '12345670')
    script.wait_started(router)
    router.wait_command(hostapd_cli('5g', 'wps_pin any 12345670'))
    router.settle()
    plays.join_and_end(router, '2g')
    assert script.end()[0] == 0


def is_idle(router):
    plays.start(router)


def no_daemon(router):
    router.start_bus()
    router.world.write('/tmp/kelm.pid', '99999999\n')


def no_bus(router):
    plays.start(router)
    router.broker.stop()


def no_hostapd(router):
    plays.start(router)
    router.hostapd.pop('2g').close()


def all_off(router):
    plays.start(router, bands=(), enabled=0)


REFUSED = 'Refused: the daemon has not started an attempt within 1 seconds.\n'
NO_START = {
    'no daemon': (no_daemon, (), 5, 'There is no daemon (/tmp/kelm.pid).\n'),
    'no bus': (no_bus, (), 5, 'The bus does not answer.\n'),
    'refused': (no_hostapd, ('-s', '1'), 6, REFUSED),
    'switched off': (all_off, (), 6, 'No band takes part: WPS is switched off on all of them.\n'),
    'busy': (plays.press, ('-s', '1'), 7,
             'Not started: by /tmp/kelm.info an attempt runs already.\n'),
    'limit': (is_idle, ('-t', '1'), 9, f'{STARTED}No outcome within 1 seconds.\n'),
    'PIN of nine digits': (is_idle, ('-p', '123456789'), 2, 'A PIN is one to eight digits.\n'),
    'PIN on a repeater': (plays.start_repeater, ('-p', '12345670'), 6,
                          'A repeater takes no PIN.\n'),
}


@pytest.mark.parametrize('name', NO_START)
def test_it_tells_why_nothing_came_of_it(router, name):
    prepare, words, status, said = NO_START[name]
    prepare(router)
    script = Script(*words)
    assert script.end(router if router.daemon else None) == (status, said)


@pytest.mark.parametrize('words', [('-x',), ('-t',), ('-t', 'soon'), ('-t', '08'),
                                   ('-s', '9' * 19), ('-p', ''), ('now',)])
def test_it_tells_its_usage(router, words):
    status, said = Script(*words).end()
    assert status == 2
    assert 'usage: wps-press [-p PIN] [-s SECONDS] [-t SECONDS]' in said


def test_the_pages_exit_statuses_are_those_that_were_seen():
    seen = {0, 2} | {run[2] for run in AP_RUNS.values()} | {run[2] for run in NO_START.values()}
    assert [int(row[0]) for row in page.table('exit')] == sorted(seen)
