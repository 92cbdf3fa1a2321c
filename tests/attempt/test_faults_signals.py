# SPDX-License-Identifier: ISC
"""Signals by the thousand, and those that are not the daemon's."""
import contextlib
import itertools
import random
import signal
import threading
import time

import pytest

from daemon_run import SIG_NEW_CONFIG
from fault_steps import IDLE_CPU_S, MOST_GROWTH_KIB, begin, finish_well, start
from router import AP_MODE, REPEATER_MODE
from world import wait_for

SIGNALS = 10_000
LIMIT_S = 120
PROCESSING = 'WPS is processing, ignore button press....'  # from level 7 on
STRAY = [signal.SIGHUP, signal.SIGINT, signal.SIGPIPE]


@contextlib.contextmanager
def console_read(router):
    """Meanwhile the console is read all the time, and what it said is forgotten."""
    over = threading.Event()

    def read():
        while not over.is_set():
            router.console.forget()
            time.sleep(0.005)
    reader = threading.Thread(target=read)
    reader.start()
    try:
        yield
    finally:
        over.set()
        reader.join()
        router.console.forget()


def storm(count, ups):
    """So many signals of three kinds in an order that is always the same; of SIGUSR1 more."""
    downs = count // 3
    numbers = ([signal.SIGUSR1] * (downs + ups) + [signal.SIGUSR2] * downs
               + [SIG_NEW_CONFIG] * (count - 2 * downs - ups))
    random.Random(20261121).shuffle(numbers)
    return numbers


def send_each(daemon, numbers):
    """A signal that is pending already would count once for two: each waits for the one before."""
    end = time.monotonic() + LIMIT_S
    for number in numbers:
        daemon.send(number)
        while number != SIG_NEW_CONFIG and daemon.is_pending(number):
            assert time.monotonic() < end, f'signal {number} is not handled'
            time.sleep(0.0001)


def tells_detail(router):
    """Whether the daemon tells of a press that it refuses."""
    router.request()
    router.wait_taken(1)
    router.settle()
    said = router.console.lines()
    router.console.forget()
    return PROCESSING in said


def test_ten_thousand_signals_move_the_level_exactly_and_lose_no_attempt(router):
    begin(router)
    memory = router.daemon.resident_kib()
    with console_read(router):
        send_each(router.daemon, storm(SIGNALS, ups=3))
        wait_for(router.daemon.is_waiting, 'the main loop')
    assert router.commands() == []
    assert router.daemon.resident_kib() - memory < MOST_GROWTH_KIB
    # Three more of SIGUSR1: it stands at level 7, and at 6 after one of SIGUSR2.
    assert tells_detail(router)
    send_each(router.daemon, [signal.SIGUSR2])
    router.settle_silently()
    router.console.forget()
    assert not tells_detail(router)
    finish_well(router)


@pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['access point', 'repeater'])
def test_sigterm_in_the_middle_of_a_storm_ends_the_attempt(router, mode):
    begin(router, mode)
    numbers = itertools.chain.from_iterable(itertools.repeat(storm(300, ups=0)))
    over = threading.Event()

    def rage():
        while not over.is_set() and router.daemon.is_running():
            router.daemon.send(next(numbers))
    rager = threading.Thread(target=rage)
    rager.start()
    try:
        with console_read(router):
            time.sleep(0.3)
            router.daemon.send(signal.SIGTERM)
            wait_for(lambda: not rager.is_alive(), 'the end of the daemon', 10)
    finally:
        over.set()
        rager.join()
    assert router.daemon.exit_status == 0
    assert router.events()[-1] == (2, 4, 4, 0)
    router.assert_no_traces()


def test_a_thousand_times_sigterm_ends_the_daemon_once(router):
    begin(router)
    for _ in range(1000):
        if router.daemon.is_running():
            router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.published == [(2, 12, 12, 0), (2, 4, 4, 0)]
    router.assert_no_traces()


@pytest.mark.parametrize('bus', [True, False], ids=['with a broker', 'without'])
def test_signals_that_are_not_the_daemons_do_not_end_an_attempt(router, bus):
    """The bus library would take SIGINT and SIGPIPE, where it gets that far."""
    if bus:
        start(router)
    else:
        router.add_hostapd('2g', '5g')
        router.launch()
        router.hostapd['5g'].wait_attached()
        wait_for(router.daemon.is_waiting, 'the main loop')
    for number in STRAY:
        router.daemon.send(number)
        router.settle_silently()
    assert router.daemon.is_running()
    assert router.daemon.cpu_seconds() < IDLE_CPU_S
    if bus:
        router.press_and_wait_started()
        for number in STRAY:
            router.daemon.send(number)
        finish_well(router)
        assert 'ubus thread exit' not in router.console.lines()
    else:
        router.daemon.send(signal.SIGTERM)
        assert router.daemon.wait_exit(poke=False) == 0
        router.assert_no_traces()


def test_a_daemon_that_was_stopped_goes_on_with_its_attempt(router):
    begin(router)
    router.daemon.freeze()
    router.hostapd['5g'].send('<3>WPS-TIMEOUT ')
    router.daemon.thaw()
    finish_well(router)
