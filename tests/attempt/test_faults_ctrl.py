# SPDX-License-Identifier: ISC
"""The Wi-Fi daemon when it is gone, silent, replaced, or talks nonsense."""
import contextlib
import os
import random
import signal
import socket
import threading
import time

import pytest

from fault_steps import IDLE_CPU_S, PBC, begin, finish_well, raise_level
from peers import ControlServer
from router import REPEATER_MODE, hostapd_cli
from world import wait_for

SOCKET_2G, SOCKET_5G = '/var/run/hostapd/wlan1', '/var/run/hostapd/wlan0'
REFUSED = 'Rebuild worker socket failed.'
NONSENSE = [
    b'', b'\0', b'\0' * 2048, b'\n', b'<', b'<3>', b'IFNAME=', b'IFNAME=wlan1', b'%s%n%x%d' * 50,
    b'\xff' * 2047, b'\xfe' * 2048, b'x' * 2049, b'<3>' + b'y' * 5000, b'z' * 65000, b'\x1b[2J',
    b'WPS', b'WPS-', b'OK\n', b'FAIL\n', b'ATTACH', b'<3>WPS-REG-SUCCES', b'\0<3>WPS-REG-SUCCESS',
    b'<3>WPS-ENROLLEE-SEEN ' + b'\xc3\x28' * 900, b'" $(ubus x) `ubus x` ;ubus x\n',
]


def random_nonsense(count):
    """Always the same, without the letter that every text known to the daemon has."""
    source = random.Random(20261121)
    for _ in range(count):
        yield source.randbytes(source.choice((1, 7, 40, 300, 2047, 2048, 3000))).replace(b'P', b'p')


def put_nothing(path):
    assert not os.path.lexists(path)


def put_stream_socket(path):
    """A name that takes no datagrams."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(path)


def put_dead_name(path):
    """What a killed daemon leaves."""
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as server:
        server.bind(path)


def put_text_file(path):
    with open(path, 'w', encoding='utf-8') as file:
        file.write('OK\n')


def put_circle(path):
    os.symlink(path, path)


IN_ITS_PLACE = [put_nothing, put_stream_socket, put_dead_name, put_text_file, os.mkfifo, os.mkdir,
                put_circle]


def remove(path):
    with contextlib.suppress(FileNotFoundError):
        (os.rmdir if os.path.isdir(path) and not os.path.islink(path) else os.unlink)(path)


@pytest.mark.parametrize('put', IN_ITS_PLACE)
def test_a_start_with_something_else_in_the_sockets_place_ends_at_once(router, put):
    router.start_bus()
    router.add_hostapd('2g')
    put(SOCKET_5G)
    begun = time.monotonic()
    assert router.launch().wait_exit(poke=False) == 255
    assert time.monotonic() - begun < 5
    assert router.console.lines()[-3:] == [
        "Can't open event ctrl", 'worker socket init failed', 'kelm open failed.']
    router.assert_no_traces()
    assert os.path.lexists(SOCKET_5G) is (put is not put_nothing)


def test_a_press_with_something_else_in_the_sockets_place_is_refused(router):
    """And the press after hostapd is back is served, with nothing piled up."""
    router.start()
    held = router.daemon.descriptors()
    for number, put in enumerate(IN_ITS_PLACE):
        router.hostapd.pop('5g').close()
        put(SOCKET_5G)
        router.press()
        wait_for(lambda n=number: router.console.lines().count(REFUSED) == n + 1, 'the refusal')
        remove(SOCKET_5G)
        router.add_hostapd('5g')
    assert PBC[0] not in router.commands()
    assert router.events() == []
    router.press_and_wait_started()
    assert router.daemon.descriptors() == held
    finish_well(router)


def test_hostapd_that_is_killed_between_a_request_and_its_answer_ends_the_start(router):
    """Nobody tells a client of a datagram socket that its peer is gone: it waits ten seconds."""
    router.add_hostapd('2g', '5g', replies={'ATTACH': []})
    router.launch()
    wait_for(lambda: router.hostapd['2g'].requests == ['ATTACH'], 'the request')
    router.hostapd.pop('2g').close()
    assert router.daemon.wait_exit(poke=False) == 255
    assert "Can't attach event ctrl" in router.console.lines()
    router.assert_no_traces()


def test_hostapd_that_never_answers_a_press_does_not_hold_a_request_to_end(router):
    router.start()
    router.hostapd.pop('2g').close()
    router.add_hostapd('2g', replies={'ATTACH': []})
    router.press()
    wait_for(lambda: router.hostapd['2g'].requests, 'the request')
    begun = time.monotonic()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert time.monotonic() - begun < 7  # ten seconds is what the answer has
    assert REFUSED in router.console.lines()
    assert router.commands()[-2:] == [hostapd_cli(band, 'wps_ap_pin disable')
                                      for band in ('2g', '5g')]
    router.assert_no_traces()


def test_hostapd_that_takes_nothing_ends_the_start_after_its_retries(router):
    """Its queue is full and it does not read: a daemon that hangs."""
    router.start_bus()
    os.makedirs(os.path.dirname(SOCKET_2G), exist_ok=True)
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as hanging, \
            socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as filler:
        hanging.bind(SOCKET_2G)
        filler.setblocking(False)
        filler.connect(SOCKET_2G)
        with pytest.raises(BlockingIOError):
            while True:
                filler.send(b'PING')
        begun = time.monotonic()
        router.launch()
        assert router.daemon.wait_exit(poke=False) == 255
        assert 4 < time.monotonic() - begun < 12
    assert "Can't attach event ctrl" in router.console.lines()
    router.assert_no_traces()
    os.unlink(SOCKET_2G)


@pytest.mark.parametrize('reply', [b'\0' * 10, b'OK\n\0', b'OK\nOK\n', b'ok\n', b'\xff' * 5000,
                                   b'IFNAME', b'x' * 60000], ids=lambda data: f'{data[:6]}')
def test_nonsense_in_answer_to_attach_ends_the_start(router, reply):
    router.add_hostapd('2g', '5g', replies={'ATTACH': [reply]})
    router.launch()
    assert router.daemon.wait_exit(poke=False) == 255
    assert "Can't attach event ctrl" in router.console.lines()
    router.assert_no_traces()


def test_events_without_end_in_answer_to_attach_are_given_up_after_thirty_seconds(router, faults):
    sending = threading.Event()

    def flood(server, client):
        server.setblocking(False)
        with contextlib.suppress(FileNotFoundError, ConnectionRefusedError):
            while True:
                sending.set()
                with contextlib.suppress(BlockingIOError):
                    server.sendto(b'<3>AP-STA-CONNECTED ', client)

    router.add_hostapd('2g', replies={'ATTACH': flood})
    router.launch(environment=faults.environment)
    assert sending.wait(20)
    time.sleep(0.5)
    assert router.daemon.is_running()
    faults.shift_monotonic(31)
    assert router.daemon.wait_exit(poke=False, timeout=5) == 255
    assert "Can't attach event ctrl" in router.console.lines()
    router.assert_no_traces()


@pytest.mark.parametrize('level', [4, 7])
def test_nonsense_in_mid_attempt_changes_nothing(router, level):
    begin(router)
    raise_level(router, level)
    held = router.daemon.descriptors()
    for data in (*NONSENSE, *random_nonsense(200)):
        router.hostapd['2g'].send(data)
        router.hostapd['5g'].send(data)
        router.console.forget()
    router.settle()
    assert router.daemon.descriptors() == held
    assert router.commands() == []
    finish_well(router)


def test_nonsense_in_mid_attempt_changes_nothing_for_a_repeater(router):
    begin(router, REPEATER_MODE)
    for data in (*NONSENSE, *random_nonsense(200)):
        router.supplicant['2g'].send(data)
        router.supplicant['5g'].send(data)
        router.console.forget()
    router.settle()
    assert router.commands() == []
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    router.assert_no_traces()


def test_hostapd_that_restarts_in_mid_attempt_leaves_the_time_out(router):
    """The new daemon does not know the attempt: what it says goes elsewhere."""
    begin(router)
    router.hostapd.pop('2g').close(leave_path=True)
    os.unlink(SOCKET_2G)
    router.hostapd['2g'] = ControlServer(SOCKET_2G)
    begun = router.daemon.cpu_seconds()
    time.sleep(1.5)
    assert router.daemon.cpu_seconds() - begun < IDLE_CPU_S
    assert router.hostapd['2g'].requests == []
    router.world.shift_time(130)
    assert router.end() == 0
    assert router.published[-1] == (2, 4, 4, 0)
    router.assert_no_traces()


def test_hostapd_that_is_gone_does_not_keep_the_daemon_from_ending(router):
    begin(router)
    for server in router.hostapd.values():
        server.close(leave_path=True)
    router.hostapd = {}
    begun = time.monotonic()
    router.end_by_sigterm()
    assert time.monotonic() - begun < 5
    assert router.published[-1] == (2, 4, 4, 0)
