# SPDX-License-Identifier: ISC
"""Several starts at once, and what may stand in the pid file's place."""
import os
import signal
import socket

import pytest

from daemon_run import start_at_once
from fault_steps import finish_well
from world import wait_for

PID_FILE = '/tmp/kelm.pid'


@pytest.mark.parametrize('count, rounds', [(2, 20), (20, 5)])
def test_of_many_starts_at_once_one_daemon_runs(router, faults, count, rounds):
    """And the pid file is its own; the others are refused, and end before they touch anything."""
    router.start_bus()
    router.add_hostapd('2g', '5g')
    for turn in range(1, rounds + 1):
        faults.gather(count)
        daemons = start_at_once(count, faults.environment)
        assert len(daemons) == count
        wait_for(lambda d=daemons: sum(one.is_running() for one in d) == 1, 'a single daemon')
        survivor, = [one for one in daemons if one.is_running()]
        assert [one.exit_status for one in daemons if one is not survivor] == [255] * (count - 1)
        for server in router.hostapd.values():
            server.wait_attached()
        wait_for(survivor.is_waiting, 'the main loop')
        # The file is made first and gets its number then: a refused start may end between the two.
        assert router.world.read(PID_FILE) == f'{survivor.pid}\n'
        assert [server.requests.count('ATTACH') for server in router.hostapd.values()] == [turn] * 2
        router.daemon = survivor
        router.end_by_sigterm()


def put_folder():
    os.mkdir(PID_FILE)


def put_pipe():
    """Nobody writes to it: whoever opens it to read would wait for ever."""
    os.mkfifo(PID_FILE)


def put_link_to_nothing():
    os.symlink('/tmp/nothing', PID_FILE)


def put_circle():
    os.symlink(PID_FILE, PID_FILE)


def put_socket():
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(PID_FILE)


def put_empty_file():
    with open(PID_FILE, 'w', encoding='utf-8'):
        pass


@pytest.mark.parametrize('put', [put_folder, put_pipe, put_link_to_nothing, put_circle, put_socket,
                                 put_empty_file])
def test_whatever_stands_in_the_pid_files_place_bars_the_start(router, put):
    put()
    kind = os.lstat(PID_FILE).st_mode
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines() == ['kelm has been started']
    assert router.commands() == []
    assert os.lstat(PID_FILE).st_mode == kind
    assert not os.path.lexists('/tmp/nothing')
    (os.rmdir if put is put_folder else os.unlink)(PID_FILE)


def test_a_daemon_that_was_killed_bars_the_next_start_until_its_pid_file_is_removed(router):
    router.start()
    left = router.world.read(PID_FILE)
    router.daemon.send(signal.SIGKILL)
    assert router.daemon.wait_exit(poke=False) == -signal.SIGKILL
    names = [name for name in os.listdir('/tmp') if name.startswith('wpa_ctrl_')]
    assert len(names) == 2
    assert router.launch().wait_exit(poke=False) == 255
    assert router.world.read(PID_FILE) == left
    # The names of its connections bar nothing, and nobody takes them away.
    for name in (*names, 'kelm.pid'):
        os.unlink(f'/tmp/{name}')
    router.launch()
    for server in router.hostapd.values():
        server.wait_attached(2)
    wait_for(router.daemon.is_waiting, 'the main loop')
    router.wait_registered()
    router.press_and_wait_started()
    finish_well(router)
