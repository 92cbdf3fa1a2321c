# SPDX-License-Identifier: ISC
"""Consoles that take nothing: a stopped terminal, one hung up, something else in its place."""
import contextlib
import ctypes
import fcntl
import os
import socket
import termios
import threading
import time

import pytest

from fault_steps import begin, finish_well
from world import CONSOLE, wait_for

TERMINALS = '/mnt/terminals'
UNLOCK_TERMINAL = 0x40045431  # TIOCSPTLCK, which the library does not name
# A whole attempt says about forty lines; a console that takes none may cost each a little.
LIMIT_S = 10

DETACH = 2  # MNT_DETACH

libc = ctypes.CDLL(None, use_errno=True)


@pytest.fixture
def terminal():
    """(the master's end, the daemon's end) of a terminal that is the console."""
    os.mkdir(TERMINALS)
    mounted = libc.mount(b'devpts', TERMINALS.encode(), b'devpts', 0, b'newinstance,ptmxmode=0666')
    assert mounted == 0, os.strerror(ctypes.get_errno())
    ends = []
    try:
        ends.append(os.open(f'{TERMINALS}/ptmx', os.O_RDWR | os.O_NOCTTY | os.O_NONBLOCK))
        fcntl.ioctl(ends[0], UNLOCK_TERMINAL, bytes(4))
        ends.append(os.open(f'{TERMINALS}/0', os.O_RDWR | os.O_NOCTTY))
        put(f'{TERMINALS}/0')
        yield tuple(ends)
    finally:
        for end in ends:
            with contextlib.suppress(OSError):
                os.close(end)
        assert libc.umount2(TERMINALS.encode(), DETACH) == 0
        os.rmdir(TERMINALS)


def put(target):
    os.unlink(CONSOLE)
    os.symlink(target, CONSOLE)


def read_now(descriptor):
    text = b''
    with contextlib.suppress(BlockingIOError):
        while True:
            text += os.read(descriptor, 65536)
    return text.decode()


def fill(slave):
    """Until it takes nothing for a while: the kernel moves on what it took in its own time."""
    os.set_blocking(slave, False)
    refused = 0
    while refused < 20:
        try:
            os.write(slave, b'#')
            refused = 0
        except BlockingIOError:
            refused += 1
            time.sleep(0.02)


def press_unseen(router):
    """Everything up to the start of the attempt, with a console that shows nothing."""
    router.start_bus()
    router.add_hostapd('2g', '5g')
    router.launch()
    router.hostapd['5g'].wait_attached()
    wait_for(router.daemon.is_waiting, 'the main loop')

    def started():
        router.request()
        with contextlib.suppress(AssertionError):
            return wait_for(lambda: router.world.read('/tmp/wpsactive'), 'the attempt', 0.5,
                            router.daemon.poke)
        return False
    wait_for(started, 'the attempt')
    wait_for(router.daemon.is_waiting, 'the main loop')
    for server in router.hostapd.values():
        server.wait_attached()


def run_unseen(router):
    """A whole attempt, in bounded time."""
    begun = time.monotonic()
    press_unseen(router)
    finish_well(router)
    assert time.monotonic() - begun < LIMIT_S


def test_a_terminal_that_nobody_reads_costs_lines_only(router, terminal):
    master, slave = terminal
    fill(slave)
    run_unseen(router)
    assert 'kelm[' not in read_now(master)


def test_a_stopped_terminal_costs_lines_only_and_shows_them_again_when_it_goes_on(
        router, terminal):
    master, slave = terminal
    termios.tcflow(slave, termios.TCOOFF)
    press_unseen(router)
    assert read_now(master) == ''
    termios.tcflow(slave, termios.TCOON)
    read_now(master)
    finish_well(router)
    assert 'All of the worker process finised' in read_now(master)


def test_a_terminal_that_hung_up_costs_lines_only_and_no_signal_comes_of_it(router, terminal):
    """The daemon never takes the console for its controlling terminal."""
    master, slave = terminal
    press_unseen(router)
    os.close(slave)
    os.close(master)
    finish_well(router)


def put_folder():
    os.unlink(CONSOLE)
    os.mkdir(CONSOLE)


def put_circle():
    put(CONSOLE)


def put_full_device():
    put('/dev/full')


def put_socket():
    os.unlink(CONSOLE)
    with socket.socket(socket.AF_UNIX, socket.SOCK_STREAM) as server:
        server.bind(CONSOLE)


def put_pipe_that_nobody_holds():
    os.unlink(CONSOLE)
    os.mkfifo(CONSOLE)


@pytest.fixture
def no_folder_left():
    yield
    if os.path.isdir(CONSOLE):
        os.rmdir(CONSOLE)


@pytest.mark.parametrize('replace', [put_folder, put_circle, put_full_device, put_socket,
                                     put_pipe_that_nobody_holds])
@pytest.mark.usefixtures('no_folder_left')
def test_something_else_in_the_consoles_place_costs_lines_only(router, replace):
    replace()
    run_unseen(router)


def test_a_console_that_vanishes_in_mid_attempt_costs_lines_only(router):
    begin(router)
    router.console.remove()
    finish_well(router)


def test_a_console_that_another_process_locks_now_and_then_drops_whole_lines_only(router):
    """Never half a line, and never a wait for the lock."""
    over = threading.Event()

    def lock_now_and_then():
        holder = os.open(CONSOLE, os.O_RDWR | os.O_NONBLOCK)
        while not over.is_set():
            fcntl.flock(holder, fcntl.LOCK_EX)
            time.sleep(0.002)
            fcntl.flock(holder, fcntl.LOCK_UN)
            time.sleep(0.002)
        os.close(holder)

    stranger = threading.Thread(target=lock_now_and_then)
    stranger.start()
    try:
        run_unseen(router)
    finally:
        over.set()
        stranger.join()
    for line in router.console.text().split('\n'):
        assert line == '' or line.startswith('kelm[')
