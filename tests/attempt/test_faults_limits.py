# SPDX-License-Identifier: ISC
"""A device without processes, threads or descriptors to spare."""
import os
import resource
import signal
import time

import pytest

from daemon_run import NO_LEAK_SEARCH
from fault_steps import IDLE_CPU_S, PBC, REG_SUCCESS, RESTART, begin, finish_well
from faults import EVER
from router import REPEATER_MODE, VERSION_LINE
from world import wait_for

# As many tries as a command gets.
TRIES = 5
# The wait itself needs a limit that its three descriptors keep to: no other one fits then.
NONE_LEFT = 3


def test_a_fork_that_fails_at_the_start_is_told_to_the_caller(router, faults):
    faults.fail('fork')
    daemon = router.launch(environment=faults.environment)
    assert daemon.command_status == 11  # try again
    assert (daemon.output, daemon.errors) == (b'', b'fork: Resource temporarily unavailable\n')
    assert daemon.pid is None
    assert router.console.text() == ''
    router.assert_no_traces()


def test_a_thread_that_cannot_be_made_ends_the_start(router, faults):
    faults.fail('pthread_create', 0, EVER)
    router.add_hostapd('2g', '5g')
    assert router.launch(environment=faults.environment).wait_exit(poke=False) == 255
    assert router.console.lines() == [VERSION_LINE, 'created ibus thread failed']
    assert router.commands() == []
    router.assert_no_traces()


def test_commands_that_cannot_be_started_at_once_are_started_a_little_later(router, faults):
    """Each command of an attempt in turn, the restart at its end among them."""
    begin(router, environment=faults.environment)
    before = faults.calls('posix_spawn')
    finish_well(router)
    expected = router.commands()
    count = faults.calls('posix_spawn') - before
    assert count > 7
    for failing in range(count):
        router.renew()
        begin(router, environment=faults.environment)
        faults.fail('posix_spawn', failing, TRIES - 1)
        finish_well(router)
        assert router.commands() == expected


@pytest.mark.parametrize('bad', [TRIES, 2 * TRIES, EVER], ids=['one', 'two', 'all'])
def test_an_attempt_ends_without_the_commands_that_cannot_be_started(router, faults, bad):
    begin(router, environment=faults.environment)
    faults.fail('posix_spawn', 0, bad)
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert (router.commands()[-1:] == [RESTART]) is (bad != EVER)
    assert [value for _, value in router.info()][:2] == [2, 'success']
    router.assert_no_traces()


def test_a_press_whose_commands_cannot_be_started_leaves_the_time_out(router, faults):
    router.start(environment=faults.environment)
    faults.fail('posix_spawn', 0, EVER)
    router.press()
    wait_for(lambda: router.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt')
    router.settle()
    assert PBC[0] not in router.commands()
    faults.fail('posix_spawn', 0, 0)
    router.world.shift_time(126)
    assert router.end() == 0
    assert router.published[-1] == (2, 4, 4, 0)
    assert router.commands()[-1] == RESTART
    router.assert_no_traces()


def test_a_repeaters_attempt_ends_without_the_commands_that_cannot_be_started(router, faults):
    begin(router, REPEATER_MODE, environment=faults.environment)
    faults.fail('posix_spawn', 0, EVER)
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-FAIL ')
    assert router.end() == 0
    assert router.commands() == []
    router.assert_no_traces()


def test_sigterm_ends_the_daemon_although_no_command_can_be_started(router, faults):
    begin(router, environment=faults.environment)
    faults.fail('posix_spawn', 0, EVER)
    router.end_by_sigterm()
    assert router.commands() == []


@pytest.mark.parametrize('limit', range(4, 16))
def test_with_few_descriptors_the_daemon_ends_or_waits_and_computes_nothing(router, limit):
    def set_limit():
        resource.setrlimit(resource.RLIMIT_NOFILE, (limit, limit))
    router.start_bus()
    router.add_hostapd('2g', '5g')
    daemon = router.launch(before=set_limit, environment=NO_LEAK_SEARCH)
    assert daemon.command_status == 0
    wait_for(lambda: not daemon.is_running() or daemon.is_waiting(), 'the end or the main loop')
    if daemon.is_running():
        time.sleep(1)
        assert daemon.cpu_seconds() < IDLE_CPU_S
        router.end_by_sigterm()
    else:
        assert daemon.exit_status in (255, 24)  # 24: no descriptor for the pid file
        router.assert_no_traces()


def test_a_press_without_a_descriptor_left_starts_nothing_and_computes_nothing(router):
    """Settings that cannot be read are settings that are off."""
    router.start(environment=NO_LEAK_SEARCH)
    pid = router.daemon.pid
    usual = resource.prlimit(pid, resource.RLIMIT_NOFILE)
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (NONE_LEFT, usual[1]))
    router.world.forget_commands()
    router.request()
    time.sleep(1.5)
    assert router.daemon.is_running()
    assert router.daemon.cpu_seconds() < IDLE_CPU_S
    assert router.commands() == []
    resource.prlimit(pid, resource.RLIMIT_NOFILE, usual)
    router.end_by_sigterm()


@pytest.mark.parametrize('mode', ['success', 'sigterm'])
def test_an_attempt_that_runs_out_of_descriptors_still_ends(router, mode):
    begin(router, environment=NO_LEAK_SEARCH)
    resource.prlimit(router.daemon.pid, resource.RLIMIT_NOFILE, (NONE_LEFT, NONE_LEFT))
    if mode == 'success':
        router.hostapd['2g'].send(REG_SUCCESS)
    else:
        router.daemon.send(signal.SIGTERM)
    assert router.end() == 0
    assert not os.path.lexists('/tmp/kelm.pid')


def test_a_wait_that_fails_does_not_turn_the_loop_at_full_speed(router):
    """Fewer descriptors allowed than are waited on: no wait succeeds any more."""
    router.start(environment=NO_LEAK_SEARCH)
    resource.prlimit(router.daemon.pid, resource.RLIMIT_NOFILE, (0, 0))
    router.daemon.poke()
    before = router.daemon.cpu_seconds()
    time.sleep(1.5)
    assert router.daemon.cpu_seconds() - before < IDLE_CPU_S
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
