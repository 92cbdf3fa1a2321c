# SPDX-License-Identifier: ISC
"""The console must never stop the daemon: missing, locked, full."""
import fcntl
import os
import re

from router import PRESS
from world import CONSOLE, wait_for

REG_SUCCESS = '<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid'


def run_attempt_blindly(router):
    """A whole attempt seen by its files and commands alone."""
    router.start_bus()
    router.add_hostapd('2g', '5g')
    router.launch(environment=router.environment)
    router.hostapd['5g'].wait_attached()

    def started():
        router.bus.send('gpio', PRESS)
        try:
            wait_for(lambda: router.world.read('/tmp/wpsactive'), 'the attempt', 0.5,
                     router.daemon.poke)
            return True
        except AssertionError:
            return False
    wait_for(started, 'the attempt')
    router.hostapd['2g'].wait_attached()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert (2, 2, 4, 0) in router.published
    assert router.commands()[-1] == '/etc/init.d/wps restart'


def test_without_a_console_the_daemon_runs_a_whole_attempt(router):
    router.console.remove()
    run_attempt_blindly(router)
    assert not os.path.lexists(CONSOLE)


def test_a_console_locked_by_another_process_costs_lines_only(router):
    holder = os.open(CONSOLE, os.O_RDWR | os.O_NONBLOCK)
    try:
        fcntl.flock(holder, fcntl.LOCK_EX)
        run_attempt_blindly(router)
        assert router.console.text() == ''
    finally:
        os.close(holder)


def test_lines_come_again_when_the_lock_is_gone(router):
    router.start()
    holder = os.open(CONSOLE, os.O_RDWR | os.O_NONBLOCK)
    fcntl.flock(holder, fcntl.LOCK_EX)
    router.press_blindly()
    assert router.console.text() == ''
    os.close(holder)
    router.settle()
    assert 'Invalid wps_cli action.' in router.console.lines()


def test_a_full_console_costs_lines_only(router):
    router.console.fill()
    run_attempt_blindly(router)
    assert 'kelm[' not in router.console.text()


def test_every_line_tells_its_function_and_its_source_line(router):
    router.start()
    router.press_and_wait_started()
    for line in router.console.text().split('\n'):
        assert line == '' or re.match(r'kelm\[[A-Za-z_][A-Za-z0-9_]*:[1-9][0-9]*\]: ', line)
