# SPDX-License-Identifier: ISC
"""Messages that nest: the formatter of the routers' library calls itself for each level."""
import os

import pytest

import wire
from router import PRESS

# Built on a formatter without the stop that the stand-in has.
UNBOUNDED = '/mnt/build/tests/world/unbounded/kelm'
INSTALLED = '/mnt/build/kelm'  # beside installed OpenWrt libraries: with their formatter
REFUSED = 'Invalid Message (nested too deeply).'


def nested(levels):
    """A press whose message has so many levels."""
    inner = b''
    for _ in range(levels - 1):
        inner = wire.member(wire.TABLE, 't', inner)
    return PRESS + inner


@pytest.fixture(name='program')
def find_program(world):
    cache = world.read('/mnt/build/CMakeCache.txt')
    return UNBOUNDED if 'KELM_STAND_INS:INTERNAL=ON' in cache else INSTALLED


@pytest.mark.parametrize('event', ['gpio', 'wifi'])
@pytest.mark.parametrize('levels', [33, 400, 2000, 5000])
def test_a_message_of_many_levels_is_refused_and_ends_nothing(router, program, event, levels):
    router.start(program=program)
    router.bus.send(event, nested(levels))
    router.wait_line(REFUSED)
    router.settle()
    assert router.console.lines().count(REFUSED) == 1
    assert not any(line.startswith('ibus event: ') for line in router.console.lines()
                   if line != 'ibus event: 10')
    router.end_by_sigterm()


def test_a_message_of_32_levels_is_a_press(router, program):
    router.start(program=program)
    assert os.path.samefile(f'/proc/{router.daemon.pid}/exe', program)
    router.bus.send('gpio', nested(32))
    router.wait_line('ibus event: 4')
    assert REFUSED not in router.console.lines()
    router.end_by_sigterm()


def test_of_a_wps_cli_request_only_its_own_members_are_read(router, program):
    router.start(program=program)
    number = [wire.member(wire.INT32, name, 1) for name in ('action', 'method')]
    router.bus.send('wps_cli', b''.join(number) + nested(5000))
    router.wait_line('ibus event: 10')
    router.settle()
    assert REFUSED not in router.console.lines()
    assert router.events() == [(1, 11, 11, 0)]
