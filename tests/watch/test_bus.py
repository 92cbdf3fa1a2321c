# SPDX-License-Identifier: ISC
"""The bus: its four events, without a PIN; a broker that is not there, goes, comes back, hangs."""
import pytest

import wire
from peers import Broker, ScriptedBroker, SilentBroker, ControlServer
from recorder import own_sockets
from router import PRESS
from world import wait_for

PIN = '53521118'


@pytest.fixture(name='broker')
def make_broker(router):  # pylint: disable=unused-argument
    broker = Broker()
    yield broker
    broker.stop()


@pytest.fixture(name='bus')
def connect(broker):  # pylint: disable=unused-argument
    client = wire.BusClient()
    yield client
    client.close()


@pytest.fixture(name='seen')
def start(bus, watch):  # pylint: disable=unused-argument
    seen = watch()
    seen.wait('socket', 'bus attached')
    return seen


def number(name, value, kind=wire.INT32):
    return wire.member(kind, name, value)


def text(name, value):
    return wire.member(wire.STRING, name, value)


def nested(depth):
    inner = number('a', 1)
    for _ in range(depth):
        inner = wire.member(wire.TABLE, 't', inner)
    return inner


@pytest.mark.parametrize('event, members, told', [
    ('gpio', PRESS, '{ "gpio": {"type":"wps","pressed":1} }'),
    ('wifi', number('action', 3), '{ "wifi": {"action":3} }'),
    ('wps', number('action', 1, wire.INT16) + number('2g_status', 11, wire.INT16)
     + number('5g_status', 12, wire.INT16) + number('5g2_status', 0, wire.INT16),
     '{ "wps": {"action":1,"2g_status":11,"5g_status":12,"5g2_status":0} }'),
    ('wps_cli', number('action', 1) + number('method', 2) + text('pin', PIN),
     '{ "wps_cli": {"action":1,"method":2,"pin":"[8 bytes]"} }'),
    ('wps_cli', number('action', 1, wire.INT8) + number('pin', int(PIN)),
     '{ "wps_cli": {"action":1,"pin":"[4 bytes]"} }'),
    ('gpio', b'', '{ "gpio": {} }'),
])
def test_an_event_is_one_line_as_ubus_listen_prints_it(seen, bus, event, members, told):
    bus.send(event, members)
    assert seen.wait('bus', '{') == told


@pytest.mark.parametrize('event, members', [
    ('wps_cli', text('pin', PIN)),
    ('gpio', text('type', PIN)),
    ('gpio', text('pressed', PIN)),
    ('wps_cli', text('method', PIN)),
    ('wps', text('key', PIN)),
    ('wps_cli', wire.member(wire.TABLE, 'more', text('pin', PIN))),
    ('wps', text('2g_status', PIN) + number('action', 1)),
])
def test_no_pin_leaves_the_bus_source_whatever_member_holds_it(seen, bus, event, members):
    bus.send(event, members)
    assert PIN not in seen.wait('bus', '{')


@pytest.mark.parametrize('members, told', [
    (nested(200), '{ "gpio": {"t":"[N bytes]"} }'),
    (text('x' * 4000, 'y' * 4000), '{ "gpio": {"' + 'x' * 32 + '":"[4000 bytes]"} }'),
    (text('a"},\n{"', 'b'), '{ "gpio": [23 bytes] }'),
    (b''.join(number(f'm{n}', n) for n in range(100)), '{ "gpio": [N bytes] }'),
], ids=['nested', 'huge', 'hostile name', 'many members'])
def test_what_is_huge_or_nested_is_bounded(seen, bus, members, told):
    bus.send('gpio', members)
    line = seen.wait('bus', '{ "gpio"')
    assert len(line) < 2048
    if 'N' in told:
        begin, end = told.split('N')
        assert line.startswith(begin) and line.endswith(end)
    else:
        assert line == told
    bus.send('gpio', PRESS)
    seen.wait('bus', '{ "gpio": {"type"')


def test_other_events_are_not_listened_to(seen, bus):
    bus.send('network', text('key', 'value'))
    bus.send('gpio', PRESS)
    seen.wait('bus', '{')
    assert [line for line in seen.texts('bus') if 'network' in line] == []


def test_a_broker_that_comes_later_is_found(watch):
    seen = watch()
    seen.wait('socket', 'bus gone')
    broker = Broker()
    try:
        seen.wait('socket', 'bus attached')
        assert seen.texts('socket').count('bus gone') == 1
    finally:
        broker.stop()


def test_a_broker_that_goes_and_comes_back_is_found_again(seen, broker):
    broker.kill()
    seen.wait('socket', 'bus gone')
    broker.start()
    seen.wait('socket', 'bus attached', 2)
    client = wire.BusClient()
    client.send('gpio', PRESS)
    seen.wait('bus', '{ "gpio"')
    client.close()


def test_a_broker_that_says_nothing_holds_neither_the_others_nor_the_end(watch):
    broker, server = SilentBroker(), ControlServer('/var/run/hostapd/wlan1')
    try:
        seen = watch()
        wait_for(broker.accepted, 'the connection')
        seen.wait_attached('hostapd wlan1')
        server.send('<3>WPS-PBC-ACTIVE ')
        seen.wait('hostapd', 'wlan1: WPS-PBC-ACTIVE')
        seen.wait('socket', 'bus hung')
        assert seen.end() == 0
        assert own_sockets() == []
    finally:
        server.close()
        broker.stop()


def test_a_broker_that_hangs_up_is_looked_for_once_a_second_at_most(watch):
    broker = ScriptedBroker(lambda connection: None)
    try:
        seen = watch()
        wait_for(lambda: broker.accepted >= 3, 'three looks')
        first, last = broker.accepted, broker.accepted
        seen.wait('socket', 'bus gone')
        wait_for(lambda: broker.accepted > last, 'one more look')
        assert broker.accepted - first <= 2
    finally:
        broker.stop()


def test_a_frozen_broker_does_not_hold_the_end(seen, broker):
    broker.freeze()
    assert seen.end() == 0
