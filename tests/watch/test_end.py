# SPDX-License-Identifier: ISC
"""When kelm-watch ends by itself, with which status, and what SIGKILL leaves."""
import resource
import select
import time

import pytest

import wire
from peers import Broker, ControlServer
from recorder import own_sockets
from router import PRESS


@pytest.fixture(name='bus')
def connect(router):  # pylint: disable=unused-argument
    broker = Broker()
    client = wire.BusClient()
    yield client
    client.close()
    broker.stop()


def announce(bus, action, status):
    bus.send('wps', wire.member(wire.INT16, 'action', action)
             + wire.member(wire.INT16, '2g_status', status))


def test_once_ends_some_seconds_after_the_first_attempt(bus, watch):
    seen = watch('--once')
    seen.wait('socket', 'bus attached')
    announce(bus, 2, 0)  # no attempt has begun: this is no end
    bus.send('gpio', PRESS)
    announce(bus, 1, 11)
    announce(bus, 2, 12)
    seen.wait('bus', '{ "wps"', 3)
    begin = time.monotonic()
    announce(bus, 2, 2)
    assert seen.process.wait(20) == 0
    assert 3 < time.monotonic() - begin < 15
    assert seen.texts('bus')[-1] == '{ "wps": {"action":2,"2g_status":2} }'
    assert seen.texts('watch')[-1] == 'stopped'


def test_it_ends_after_so_many_seconds(bus, watch):  # pylint: disable=unused-argument
    seen = watch('--seconds', '2')
    seen.wait('socket', 'bus attached')
    assert seen.process.wait(20) == 0


def test_without_bus_and_wifi_daemon_it_says_so_and_fails(router, watch):
    # pylint: disable=unused-argument
    seen = watch('--seconds', '1')
    assert seen.process.wait(20) == 1
    assert 'neither the bus nor hostapd or wpa_supplicant was there' in (seen.end() and seen.output)


def test_killed_it_leaves_a_name_and_the_next_is_not_hindered(router, watch):
    # pylint: disable=unused-argument
    server = ControlServer('/var/run/hostapd/wlan1')
    try:
        first = watch()
        first.wait_attached('hostapd wlan1')
        first.process.kill()
        first.process.wait(20)
        assert len(own_sockets()) == 1
        second = watch(recording='/mnt/log/second')
        second.wait_attached('hostapd wlan1')
        server.send('<3>WPS-PBC-ACTIVE ')
        second.wait('hostapd', 'wlan1: WPS-PBC-ACTIVE')
    finally:
        server.close()


def test_a_recording_that_could_not_be_written_to_its_end_is_trouble(bus, watch):
    """As on a full disk: the status says it to a script that looks at nothing else."""
    seen = watch(before=lambda: resource.setrlimit(resource.RLIMIT_FSIZE, (2000, 2000)))
    seen.wait('socket', 'bus attached')
    for _ in range(20):
        announce(bus, 2, 12)
    # Its screen is off: the line that found no room is the first that it says.
    assert select.select([seen.process.stdout], [], [], 20)[0], 'the recorder said nothing'
    assert seen.end() == 1
    assert 'kelm-watch: the recording ends here: ' in seen.output
