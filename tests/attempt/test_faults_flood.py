# SPDX-License-Identifier: ISC
"""A Wi-Fi daemon that floods the attempt with events."""
import re
import signal
import socket
import threading
import time

import pytest

from fault_steps import CANCELS, MOST_GROWTH_KIB, REG_SUCCESS, begin, finish_well, raise_level
from router import AP_MODE, CANCEL, REPEATER_MODE
from world import wait_for

EVENTS = 100_000
# The console is a pipe of a mebibyte: the test must not let it fill up, or lines are dropped.
MOST_UNREAD = 6000
LIMIT_S = 120
EVENT = '<3>AP-STA-CONNECTED 02:00:{:06d}'
SERIAL = re.compile(r'processing wpsEvent\[[^]]*\]: \S+ 02:00:(\d{6})\n')
# A loop that is alive reacts within this, on a busy machine too.
PROMPT_S = 5


class Flood:
    """Events in a thread of their own, as fast as the daemon's socket takes them."""

    def __init__(self, router, server, count=EVENTS, waits=True, told=True):
        """waits: for room in the daemon's socket; else an event that does not fit is dropped.

        told: each event has a line on the console.
        """
        self.console = router.console
        self.delivered = []  # serials that the kernel took
        self.seen = []       # serials that the daemon told
        self.other = ''      # the last of what it said beside that
        self._server = server
        self._count = count
        self._flags = 0 if waits else socket.MSG_DONTWAIT
        self._most_unread = MOST_UNREAD if told else count
        self._over = False
        self._thread = threading.Thread(target=self._send)
        self.begun = time.monotonic()
        self._thread.start()

    def _send(self):
        client, = self._server.clients
        for serial in range(self._count):
            while len(self.delivered) - len(self.seen) > self._most_unread and not self._over:
                time.sleep(0.001)
            try:
                self._server.send_to(client, EVENT.format(serial).encode(), self._flags)
                self.delivered.append(serial)
            except BlockingIOError:
                pass
            except OSError:
                break  # the daemon is gone
            if self._over:
                break
        self._over = True

    def read(self):
        """Takes what the console has; True, for use between other looks."""
        text = self.console.take()
        if not text:
            time.sleep(0.0005)
            return
        if not text.endswith('\n'):  # a line still being written
            text += self._rest()
        self.seen += map(int, SERIAL.findall(text))
        self.other = (self.other + SERIAL.sub('', text))[-20000:]

    def _rest(self):
        end = time.monotonic() + 1
        rest = ''
        while not rest.endswith('\n') and time.monotonic() < end:
            rest += self.console.take()
        return rest

    def read_until(self, condition, what, seconds=LIMIT_S):
        """Reads on until the condition holds; returns the seconds that it took."""
        begun = time.monotonic()
        while not condition():
            assert time.monotonic() - begun < seconds, f'waited {seconds} s in vain for {what}'
            self.read()
        return time.monotonic() - begun

    def read_all(self):
        self.read_until(lambda: self._over and len(self.seen) >= len(self.delivered),
                        'the last event')
        self._thread.join()

    def stop(self):
        self._over = True
        self._thread.join(LIMIT_S)


@pytest.fixture
def flood(router):
    """Starts floods, and ends them whatever becomes of the test."""
    begun = []

    def start(server, **options):
        begun.append(Flood(router, server, **options))
        return begun[-1]
    yield start
    if router.daemon.is_running():
        router.daemon.send(signal.SIGKILL)
    for one in begun:
        one.stop()


def test_a_burst_of_100000_events_loses_none_and_keeps_the_loop_alive(
        router, flood, record_property):
    begin(router)
    router.hostapd['2g'].send(EVENT.format(999999))
    router.settle()
    memory, held = router.daemon.resident_kib(), router.daemon.descriptors()
    router.console.forget()
    burst = flood(router.hostapd['2g'])
    burst.read_until(lambda: len(burst.seen) > EVENTS // 4, 'a quarter')
    router.daemon.send(signal.SIGUSR1)
    dumped = burst.read_until(lambda: 'global_wps_flags: ' in burst.other, 'the dump')
    router.request(action=CANCEL)
    cancelled = burst.read_until(lambda: router.commands()[:2] == CANCELS, 'the cancel')
    burst.read_all()
    seconds = time.monotonic() - burst.begun
    assert burst.delivered == list(range(EVENTS))
    assert burst.seen == burst.delivered
    assert max(dumped, cancelled) < PROMPT_S
    assert router.daemon.resident_kib() - memory < MOST_GROWTH_KIB
    assert router.daemon.descriptors() == held
    record_property('events_per_second', round(EVENTS / seconds))
    record_property('cpu_us_per_event', round(router.daemon.cpu_seconds() * 1e6 / EVENTS, 1))
    record_property('cancel_ms', round(cancelled * 1000))
    router.end_by_sigterm()


def test_a_burst_of_100000_events_reaches_a_repeater_whole(router, flood, record_property):
    begin(router, REPEATER_MODE)
    raise_level(router, 7)
    memory = router.daemon.resident_kib()
    burst = flood(router.supplicant['5g'])
    burst.read_all()
    record_property('events_per_second', round(EVENTS / (time.monotonic() - burst.begun)))
    assert burst.seen == burst.delivered == list(range(EVENTS))
    assert router.daemon.resident_kib() - memory < MOST_GROWTH_KIB
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    router.assert_no_traces()


def test_of_events_sent_without_waiting_none_that_the_kernel_took_is_lost(
        router, flood, record_property):
    """As hostapd sends them: what does not fit into the socket is gone."""
    begin(router)
    burst = flood(router.hostapd['2g'], waits=False)
    burst.read_all()
    assert len(burst.delivered) > 100
    assert burst.seen == burst.delivered
    record_property('delivered', len(burst.delivered))
    finish_well(router)


@pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['access point', 'repeater'])
def test_the_time_is_over_in_the_middle_of_a_flood_too(router, flood, mode):
    begin(router, mode)
    router.settle()
    peers = router.hostapd if mode == AP_MODE else router.supplicant
    burst = flood(peers['2g'], told=mode == AP_MODE)
    burst.read_until(lambda: len(burst.delivered) > 1000, 'the flood')
    router.world.shift_time(126)
    over = burst.read_until(lambda: not router.daemon.is_running(), 'the end')
    assert len(burst.delivered) < EVENTS
    assert over < PROMPT_S
    assert 'wps Timeout, stop sessions' in burst.other
    assert router.daemon.exit_status == 0
    assert (2, 4, 4, 0) in router.events()
    router.assert_no_traces()


def test_a_flood_on_one_band_only_delays_the_success_of_the_other(router, flood):
    """The newer connection is read first, so the other one's turn comes when that is quiet."""
    begin(router)
    burst = flood(router.hostapd['5g'], count=20_000)
    burst.read_until(lambda: len(burst.seen) > 1000, 'the flood')
    router.hostapd['2g'].send(REG_SUCCESS)
    burst.read_until(lambda: not router.daemon.is_running(), 'the end')
    assert router.daemon.exit_status == 0
    assert router.events()[-1] == (2, 2, 4, 0)
    router.assert_no_traces()


def test_a_flood_of_events_that_nobody_can_read_on_the_console_ends_with_the_attempt(
        router, flood):
    """A full console costs each line its wait: the attempt still ends when its time is over."""
    begin(router)
    router.settle()
    router.console.fill()
    sender = flood(router.hostapd['2g'])
    wait_for(lambda: len(sender.delivered) > 50, 'the flood')
    router.world.shift_time(126)
    begun = time.monotonic()
    wait_for(lambda: not router.daemon.is_running(), 'the end')
    assert time.monotonic() - begun < 3 * PROMPT_S
    assert (2, 4, 4, 0) in router.events()
    router.assert_no_traces()
