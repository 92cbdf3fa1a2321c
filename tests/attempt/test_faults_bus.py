# SPDX-License-Identifier: ISC
"""A broker that dies and comes back in mid-attempt, that hangs up, or talks nonsense."""
import os
import random
import struct
import time

import pytest

import wire
from fault_steps import (CANCELS, IDLE_CPU_S, MOST_GROWTH_KIB, PBC, REG_SUCCESS, RESTART, begin,
                         finish_well)
from peers import ScriptedBroker
from router import CANCEL, PRESS, ubus_send
from world import wait_for

HELLO = struct.pack('>BBHII', 0, wire.HELLO, 0, 0x12345678, 4)
LOST = 'Lost the connection to ubus, trying again every second'
PUBLISH_LATER = (': >/mnt/log/publishing\nwhile [ ! -e /tmp/go ]; do sleep 0.02; done\n'
                 'exec /mnt/build/hostlibs/ubus "$@"\n')
PUBLISH_NEVER = ': >/mnt/log/publishing\nsleep 1000\n'
NOTHING_TO_PUBLISH = ':\n'


def message(kind, body=b'', version=0, length=None, sequence=0):
    """As on the wire, and with a length that need not be true."""
    return struct.pack('>BBHII', version, kind, sequence, 1,
                       4 + len(body) if length is None else length) + body


def nonsense(size):
    return random.Random(20261121).randbytes(size)


BAD_GREETINGS = [
    b'', HELLO[:7], message(wire.STATUS), b'\1' + HELLO[1:], HELLO[:4] + bytes(4) + HELLO[8:],
    nonsense(64)]
BAD_MESSAGES = [HELLO + bad for bad in (
    nonsense(65536), bytes(4096), message(99, bytes(16)), message(wire.DATA, length=0),
    message(wire.DATA, length=0xffffff) + bytes(4096),
    message(wire.INVOKE, bytes(8), length=400), message(wire.INVOKE),
    message(wire.STATUS, bytes(8)) * 1000)]


@pytest.fixture
def scripted(router):
    """Puts a scripted broker in the place of the real one."""
    def put(talk):
        if router.broker is not None:
            router.broker.stop()
        router.broker = ScriptedBroker(talk)
        return router.broker
    return put


def wait_back(router):
    """Until the daemon listens again."""
    router.bus.close()
    router.bus = wire.BusClient('wps')
    router.wait_registered()


def test_a_broker_that_is_killed_three_times_in_mid_attempt_is_found_again_each_time(router):
    begin(router)
    held = router.daemon.descriptors()
    for _ in range(3):
        router.broker.kill()
        wait_for(lambda: LOST in router.console.lines(), 'the loss')
        router.broker.start()
        wait_back(router)
    assert router.daemon.descriptors() == held
    router.request(action=CANCEL)
    router.wait_command(CANCELS[1])
    router.press_and_wait_started()
    finish_well(router)


def test_a_broker_that_dies_during_a_publication_costs_that_publication(router):
    begin(router)
    router.world.reply('ubus', PUBLISH_LATER)
    router.hostapd['2g'].send(REG_SUCCESS)
    wait_for(lambda: os.path.exists('/mnt/log/publishing'), 'the publication')
    router.broker.kill()
    router.world.write('/tmp/go', '')
    assert router.daemon.wait_exit() == 0
    assert [value for _, value in router.info()][:2] == [2, 'success']
    assert router.commands()[-3:] == [ubus_send(2, 12, 12), ubus_send(2, 2, 4), RESTART]
    router.assert_no_traces()


def test_a_publication_that_never_ends_is_ended_after_three_seconds(router):
    begin(router)
    router.world.reply('ubus', PUBLISH_NEVER)
    router.hostapd['2g'].send(REG_SUCCESS)
    begun = time.monotonic()
    assert router.daemon.wait_exit() == 0
    assert 5 < time.monotonic() - begun < 12  # there are two
    assert router.commands()[-1] == RESTART
    router.assert_no_traces()


@pytest.mark.parametrize('talks', [BAD_GREETINGS, BAD_MESSAGES], ids=['greetings', 'messages'])
def test_a_broker_that_hangs_up_after_nonsense_does_not_stop_the_attempt(router, scripted, talks):
    """It is tried again every second, not all the time."""
    begin(router)
    router.world.reply('ubus', NOTHING_TO_PUBLISH)
    memory, held = router.daemon.resident_kib(), router.daemon.descriptors()
    computed = router.daemon.cpu_seconds()
    turn = iter(talks)
    broker = scripted(lambda connection: connection.sendall(next(turn, HELLO)))
    begun = time.monotonic()
    wait_for(lambda: broker.accepted > len(talks), 'a try after the last nonsense', 60)
    assert time.monotonic() - begun > len(talks) - 1
    assert router.daemon.cpu_seconds() - computed < IDLE_CPU_S
    assert router.daemon.resident_kib() - memory < MOST_GROWTH_KIB
    assert len(router.daemon.descriptors()) <= len(held)
    finish_well(router, published=False)


@pytest.mark.parametrize('talk', [HELLO[:7], HELLO + message(wire.INVOKE, bytes(8), length=400)],
                         ids=['a greeting', 'a message'])
def test_a_broker_that_stops_in_the_middle_does_not_stop_the_attempt(router, scripted, talk):
    def half(connection):
        connection.sendall(talk)
        connection.recv(1)  # until the daemon is gone
        connection.recv(4096)
    begin(router)
    router.world.reply('ubus', NOTHING_TO_PUBLISH)
    broker = scripted(half)
    wait_for(lambda: broker.accepted, 'the connection')
    computed = router.daemon.cpu_seconds()
    time.sleep(1)
    assert router.daemon.cpu_seconds() - computed < IDLE_CPU_S
    finish_well(router, published=False)


def test_a_broker_that_hangs_up_at_once_at_the_start_leaves_the_daemon_serving(router, scripted):
    scripted(lambda connection: None)
    router.add_hostapd('2g', '5g')
    router.launch()
    router.hostapd['5g'].wait_attached()
    wait_for(lambda: 'Failed to connect to ubus' in router.console.lines(), 'the failure')
    router.hostapd['2g'].send('<3>WPS-SUCCESS ')
    assert router.daemon.wait_exit() == 0
    assert router.commands()[-1] == RESTART
    router.assert_no_traces()


def test_presses_without_a_pause_are_one_attempt(router):
    """The button bounces, a thousand times."""
    router.start()
    for _ in range(1000):
        router.bus.send('gpio', PRESS)
        router.console.forget()
    wait_for(lambda: router.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt')
    router.settle()
    assert [line for line in router.commands() if line.endswith('wps_pbc')] == PBC
    assert router.events() == [(1, 11, 11, 0)]
    finish_well(router)
