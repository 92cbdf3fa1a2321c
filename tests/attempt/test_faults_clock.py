# SPDX-License-Identifier: ISC
"""A clock that is set in mid-attempt, as it is on a router that just learnt the time."""
import pytest

from fault_steps import RESTART, begin, finish_well
from router import AP_MODE, REPEATER_MODE

HOUR = 3600
BOTH = pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['access point', 'repeater'])


def assert_timed_out(router):
    assert router.end() == 0
    assert router.published[-1] == (2, 4, 4, 0)
    assert router.commands()[-1] == RESTART
    router.assert_no_traces()


@BOTH
def test_a_clock_set_ahead_by_more_than_the_time_of_an_attempt_ends_it(router, mode):
    """The attempt cannot tell the step from the time that it waits for."""
    begin(router, mode)
    router.settle()
    router.world.shift_time(HOUR)
    assert_timed_out(router)


@BOTH
def test_a_clock_set_back_gives_the_attempt_its_time_anew_and_no_more(router, mode):
    begin(router, mode)
    router.settle()
    router.world.shift_time(100)
    router.settle()
    router.world.shift_time(-HOUR)
    router.settle()
    router.world.shift_time(-HOUR + 110)
    router.settle()
    assert router.daemon.is_running()
    router.world.shift_time(-HOUR + 126)
    assert_timed_out(router)


def test_a_clock_that_runs_wild_between_attempts_harms_none(router):
    router.start()
    for shift in (HOUR, -HOUR, 10 * 365 * 24 * HOUR, -20 * 365 * 24 * HOUR):
        router.world.shift_time(shift)
        router.settle()
    router.press_and_wait_started()
    router.settle()
    finish_well(router)
