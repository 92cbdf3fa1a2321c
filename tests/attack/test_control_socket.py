# SPDX-License-Identifier: ISC
"""The daemon's own control sockets: who can answer to them, who cannot, and who can block them."""
import errno
import os
import socket
import subprocess
import sys

import pytest

from fault_steps import REG_SUCCESS
from router import INTERFACES
from stranger import StrangerError

WIFI_UID = 101
HOSTAPD = """
import os, select, socket, sys
server = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
server.bind(sys.argv[1])
print('ready', flush=True)
client = None
while True:
    if server in select.select([server, 0], [], [])[0]:
        request, client = server.recvfrom(4096)
        try:
            server.sendto(b'OK\\n', client)
            print(request.decode(), flush=True)
        except OSError as error:
            print(error, flush=True)
    else:
        event = os.read(0, 4096)
        if not event:
            break
        server.sendto(event, client)
"""


class ForeignHostapd:
    """One interface's control socket, of a Wi-Fi daemon that runs as a user of its own."""

    def __init__(self, band):
        path = f'/var/run/hostapd/{INTERFACES[band]}'
        os.makedirs(os.path.dirname(path), exist_ok=True)
        os.chown(os.path.dirname(path), WIFI_UID, WIFI_UID)
        self._process = subprocess.Popen(
            [sys.executable, '-c', HOSTAPD, path], stdin=subprocess.PIPE, stdout=subprocess.PIPE,
            user=WIFI_UID, group=WIFI_UID, extra_groups=[], cwd='/')
        assert self.said() == 'ready'

    def said(self):
        return self._process.stdout.readline().decode().strip()

    def send(self, event):
        self._process.stdin.write(event.encode())
        self._process.stdin.flush()

    def end(self):
        self._process.stdin.close()
        self._process.wait(20)
        self._process.stdout.close()


@pytest.fixture(name='foreign')
def foreign_hostapds():
    servers = {}
    yield servers
    for server in servers.values():
        server.end()


def start_beside(router, foreign, **options):
    """The daemon beside hostapd of the other user on both bands."""
    for band in ('2g', '5g'):
        foreign[band] = ForeignHostapd(band)
    router.start(bands=(), **options)
    for server in foreign.values():
        assert server.said() == 'ATTACH'


def client_names():
    return sorted(f'/tmp/{name}' for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_'))


def inject(path):
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as attacker:
        attacker.sendto(b'<3>WPS-SUCCESS ', path)


def test_hostapd_that_runs_as_a_user_of_its_own_can_answer_and_is_heard(router, foreign):
    """As it does on routers: to a socket of root's it may not write."""
    start_beside(router, foreign)
    router.press_and_wait_started()
    foreign['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 2, 4, 0)
    router.assert_no_traces()


@pytest.mark.parametrize('is_foreign', [False, True], ids=['of root', 'of its own user'])
def test_nobody_but_hostapd_can_send_to_the_daemon(router, foreign, stranger, is_foreign):
    if is_foreign:
        start_beside(router, foreign, umask=0)
    else:
        router.start(umask=0)
    names = client_names()
    assert len(names) == 2
    for name in names:
        assert os.stat(name).st_uid == (WIFI_UID if is_foreign else 0)
        with pytest.raises(StrangerError) as refused:
            stranger.run(inject, name)
        assert refused.value.errno == errno.EACCES
    router.end_by_sigterm()


def test_folders_planted_under_the_names_of_the_sockets_cost_nothing(router, stranger):
    """With something in them: not even root removes them without looking."""
    router.start()
    pid = router.daemon.pid

    def plant():
        for number in range(3, 60):
            os.mkdir(f'/tmp/wpa_ctrl_{pid}-{number}')
            os.mkdir(f'/tmp/wpa_ctrl_{pid}-{number}/full')
    stranger.run(plant)
    planted = client_names()
    router.press_and_wait_started()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 2, 4, 0)
    assert set(client_names()) == {name for name in planted if os.path.isdir(name)}
