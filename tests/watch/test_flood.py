# SPDX-License-Identifier: ISC
"""Floods: they neither hold the watch nor keep its other sources out, and never a Wi-Fi daemon."""
import errno
import socket
import time

import wire
from peers import Broker, ControlServer
from router import PRESS
from world import wait_for

FLOOD = 100_000
QUEUE_FULL = (errno.EAGAIN, errno.ENOBUFS)
LOST = 'hostapd wlan1: more events came at once'


def flood(server, count):
    """So many events without waiting, as hostapd sends them; how many found no room."""
    client, refused = server.clients[0], 0
    for _ in range(count):
        try:
            server.send_to(client, b'<3>CTRL-EVENT-EAP-STARTED 02:00:00:00:07:00',
                           socket.MSG_DONTWAIT)
        except OSError as error:
            assert error.errno in QUEUE_FULL
            refused += 1
    return refused


def test_a_flood_of_events_keeps_neither_the_bus_nor_a_file_out(router, watch):
    broker, server = Broker(), ControlServer('/var/run/hostapd/wlan1')
    try:
        seen = watch()
        seen.wait_attached('hostapd wlan1')
        seen.wait('socket', 'bus attached')
        flood(server, FLOOD // 2)
        bus = wire.BusClient()
        bus.send('gpio', PRESS)
        router.world.write('/tmp/wps_result', '1\n')
        flood(server, FLOOD // 2)
        seen.wait('bus', '{ "gpio": ')
        seen.wait('file', '/tmp/wps_result 1')
        server.send('<3>WPS-PBC-ACTIVE ')
        bus.close()
        begin = time.monotonic()
        assert seen.end() == 0
        assert time.monotonic() - begin < 5
    finally:
        server.close()
        broker.stop()


def test_lost_events_are_told_and_the_daemon_is_asked_anew(watch):
    server = ControlServer('/var/run/hostapd/wlan1')
    try:
        seen = watch()
        seen.wait_attached('hostapd wlan1')
        seen.freeze()
        assert flood(server, 1000) > 0
        seen.thaw()
        seen.wait('watch', LOST)
        wait_for(lambda: len(server.requests) == 3, 'being asked anew')
        assert server.requests == ['ATTACH', 'DETACH', 'ATTACH']
        server.wait_attached()
        seen_before = len(seen.texts('hostapd'))
        server.send('<3>WPS-PBC-ACTIVE ')
        seen.wait('hostapd', 'wlan1: WPS-PBC-ACTIVE')
        assert len(seen.texts('hostapd')) == seen_before + 1
        assert seen.states('hostapd wlan1') == ['hostapd wlan1 attached']
    finally:
        server.close()


def test_a_few_events_at_once_are_no_loss(watch):
    server = ControlServer('/var/run/hostapd/wlan1')
    try:
        seen = watch()
        seen.wait_attached('hostapd wlan1')
        assert flood(server, 5) == 0
        seen.wait('hostapd', 'wlan1: CTRL-EVENT-EAP-STARTED', 5)
        assert [text for text in seen.texts('watch') if 'lost' in text] == []
    finally:
        server.close()
