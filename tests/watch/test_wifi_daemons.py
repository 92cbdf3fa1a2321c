# SPDX-License-Identifier: ISC
"""The control sockets of hostapd and wpa_supplicant: who is attached to, and what is sent."""
import os
import signal
import socket

import pytest

from peers import ControlServer
from recorder import own_sockets
from world import wait_for

ACTIVE = 'WPS-PBC-ACTIVE '


@pytest.fixture(name='server')
def make_server():
    """Makes control sockets that are gone after the test."""
    made = []

    def make(path='/var/run/hostapd/wlan1', replies=None):
        made.append(ControlServer(path, replies))
        return made[-1]
    make.close = lambda one, **how: (made.remove(one), one.close(**how))
    yield make
    for one in made:
        one.close()


def test_events_are_told_without_their_level_under_their_interface(server, watch):
    ap, station = server(), server('/var/run/wpa_supplicant/wlan0-vxd')
    seen = watch()
    seen.wait_attached('hostapd wlan1', 'station wlan0-vxd')
    ap.send(f'<3>{ACTIVE}')
    station.send(f'<4>{ACTIVE}')
    assert seen.wait('hostapd', '') == f'wlan1: {ACTIVE}'
    assert seen.wait('station', '') == f'wlan0-vxd: {ACTIVE}'


def test_nothing_but_attach_and_detach_is_ever_sent(server, watch):
    ap, station = server(), server('/var/run/wpa_supplicant/wlan0-vxd')
    seen = watch()
    seen.wait_attached('hostapd wlan1', 'station wlan0-vxd')
    ap.send(f'<3>{ACTIVE}')
    seen.wait('hostapd', f'wlan1: {ACTIVE}')
    assert seen.end() == 0
    for one in (ap, station):
        wait_for(lambda one=one: len(one.requests) >= 2, 'the goodbye')
        assert one.requests == ['ATTACH', 'DETACH']
    assert own_sockets() == []


@pytest.mark.parametrize('number', [signal.SIGINT, signal.SIGTERM, signal.SIGHUP])
def test_each_signal_of_an_end_leaves_no_socket_behind(server, watch, number):
    server()
    seen = watch()
    seen.wait_attached('hostapd wlan1')
    assert len(own_sockets()) == 1
    assert seen.end(number) == 0
    assert own_sockets() == []


def test_who_is_stopped_at_the_terminal_is_attached_to_nobody(server, watch):
    """hostapd waits for a client that takes nothing."""
    ap = server()
    seen = watch()
    seen.wait_attached('hostapd wlan1')
    seen.process.send_signal(signal.SIGTSTP)
    wait_for(lambda: ap.requests == ['ATTACH', 'DETACH'], 'the goodbye')
    seen.wait_stopped()
    assert own_sockets() == []
    seen.thaw()
    seen.wait('socket', 'hostapd wlan1 attached', 2)
    ap.send(f'<3>{ACTIVE}')
    seen.wait('hostapd', f'wlan1: {ACTIVE}')


def test_a_socket_that_appears_later_is_attached_to(server, watch):
    seen = watch()
    server()
    seen.wait_attached('hostapd wlan1')


def test_a_daemon_that_goes_and_comes_back_is_attached_to_again(server, watch):
    first = server()
    seen = watch()
    seen.wait_attached('hostapd wlan1')
    server.close(first)
    seen.wait('socket', 'hostapd wlan1 gone')
    second = server()
    seen.wait('socket', 'hostapd wlan1 attached', 2)
    second.send(f'<3>{ACTIVE}')
    seen.wait('hostapd', f'wlan1: {ACTIVE}')
    assert second.requests == ['ATTACH']


def test_a_daemon_that_was_killed_and_left_its_name_is_gone(server, watch):
    first = server()
    seen = watch()
    seen.wait_attached('hostapd wlan1')
    server.close(first, leave_path=True)
    seen.wait('socket', 'hostapd wlan1 gone')
    os.unlink(first.path)
    server()
    seen.wait('socket', 'hostapd wlan1 attached', 2)
    assert seen.states('hostapd wlan1') == [
        f'hostapd wlan1 {state}' for state in ('attached', 'gone', 'attached')]


def test_a_daemon_that_does_not_answer_holds_nobody_and_is_told(server, watch):
    hung = server(replies={'ATTACH': []})
    other = server('/var/run/hostapd/wlan0')
    seen = watch()
    seen.wait_attached('hostapd wlan0')
    other.send(f'<3>{ACTIVE}')
    seen.wait('hostapd', f'wlan0: {ACTIVE}')
    seen.wait('socket', 'hostapd wlan1 hung')
    assert hung.requests == ['ATTACH']


def test_a_daemon_that_answers_late_is_attached_to_after_all(server, watch):
    asked = []
    hung = server(replies={'ATTACH': lambda _socket, client: asked.append(client)})
    seen = watch()
    seen.wait('socket', 'hostapd wlan1 hung')
    hung.send_to(asked[0], b'OK\n')
    seen.wait_attached('hostapd wlan1')


def test_a_daemon_whose_queue_is_full_is_asked_again(watch):
    os.makedirs('/var/run/hostapd', exist_ok=True)
    kind = (socket.AF_UNIX, socket.SOCK_DGRAM)
    with socket.socket(*kind) as hung, socket.socket(*kind) as others:
        hung.bind('/var/run/hostapd/wlan1')
        others.setblocking(False)
        with pytest.raises(BlockingIOError):
            while True:
                others.sendto(b'full', '/var/run/hostapd/wlan1')
        seen = watch()
        seen.wait('socket', 'hostapd wlan1 hung')

        def client():
            data, sender = hung.recvfrom(64)
            return sender if data == b'ATTACH' else None
        hung.sendto(b'OK\n', wait_for(client, 'ATTACH'))
        seen.wait_attached('hostapd wlan1')


def test_a_daemon_that_refuses_is_told(server, watch):
    server(replies={'ATTACH': ['FAIL\n']})
    watch().wait('socket', 'hostapd wlan1 refuses')


@pytest.mark.parametrize('name', ['global', 'p2p-dev-wlan0', 'wpa_ctrl_77-1', 'x' * 40])
def test_what_is_no_interface_is_passed_over(server, watch, name):
    other, ap = server(f'/var/run/hostapd/{name}'), server()
    seen = watch()
    seen.wait_attached('hostapd wlan1')
    assert seen.end() == 0
    wait_for(lambda: len(ap.requests) == 2, 'the goodbye')
    assert other.requests == []


WIFI_USER, STRANGER = 101, 65534


STRANGERS = f'it belongs to user {STRANGER}'
OPEN_FOLDER = 'others may write to its folder'


@pytest.mark.parametrize('folder_owner, mode, owner, refused', [
    (0, 0o755, 0, None),
    (0, 0o770, 0, None),
    (0, 0o755, STRANGER, STRANGERS),
    (WIFI_USER, 0o755, WIFI_USER, None),
    (WIFI_USER, 0o755, 0, None),
    (WIFI_USER, 0o755, STRANGER, STRANGERS),
    (WIFI_USER, 0o777, WIFI_USER, OPEN_FOLDER),
    (0, 0o1777, 0, None),
    (0, 0o1777, STRANGER, STRANGERS),
    (0, 0o777, 0, OPEN_FOLDER),
])
def test_a_socket_counts_where_no_stranger_can_have_put_it(
        server, watch, folder_owner, mode, owner, refused):
    other, ap = server('/var/run/wpa_supplicant/wlan0-vxd'), server()
    try:
        os.chown(ap.path, owner, owner)
        os.chown('/var/run/hostapd', folder_owner, folder_owner)
    except OSError:
        pytest.skip('only root gives files away')
    os.chmod('/var/run/hostapd', mode)
    seen = watch()
    if refused is None:
        seen.wait_attached('hostapd wlan1')
        return
    seen.wait('watch', f'hostapd wlan1 is passed over: {refused}')
    seen.wait_attached('station wlan0-vxd')
    assert seen.end() == 0
    wait_for(lambda: len(other.requests) == 2, 'the goodbye')
    assert ap.requests == []


def test_a_folder_that_a_stranger_made_is_none_of_the_wifi_daemons(server, watch):
    """In a folder that all may write to, its owner says nothing."""
    ap = server('/tmp/radios/wlan1')
    try:
        os.chown('/tmp/radios', STRANGER, STRANGER)
        os.chown(ap.path, STRANGER, STRANGER)
    except OSError:
        pytest.skip('only root gives files away')
    seen = watch('--hostapd', '/tmp/radios')
    seen.wait('watch', 'hostapd wlan1 is passed over')
    assert ap.requests == []


def test_a_link_to_a_socket_is_no_second_socket(server, watch):
    ap = server('/var/run/hostapd/phy0-ap0')
    os.symlink('phy0-ap0', '/var/run/hostapd/wlan1')
    seen = watch()
    seen.wait_attached('hostapd phy0-ap0')
    ap.send(f'<3>{ACTIVE}')
    seen.wait('hostapd', f'phy0-ap0: {ACTIVE}')
    assert seen.end() == 0
    assert seen.texts('hostapd') == [f'phy0-ap0: {ACTIVE}']
    # The link says which band it is.
    assert [line.band for line in seen.lines('hostapd')] == ['2.4 GHz']


def test_hundreds_of_sockets_are_bounded(server, watch):
    for number in range(200):
        server(f'/var/run/hostapd/ap{number}')
    seen = watch()
    seen.wait('watch', 'more than 64 control sockets')
    seen.wait('socket', '', 64)
    assert seen.end() == 0
    assert len([text for text in seen.texts('socket') if text.endswith(' attached')]) == 64
    assert own_sockets() == []


def test_other_folders_can_be_named(server, watch):
    server('/var/run/radios/wlan1')
    watch('--hostapd', '/var/run/radios').wait_attached('hostapd wlan1')
