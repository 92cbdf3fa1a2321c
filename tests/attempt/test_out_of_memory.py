# SPDX-License-Identifier: ISC
"""Out of memory at each single allocation of whole attempts.

Each allocation is refused once alone and once with all that follow, in the main thread and in the
bus thread, from the program's start on and from the press on. The daemon may end or go on; it must
not crash or hang, nor leave half a file or its traces behind.

All of the access point's are refused in each run of the tests; of the repeater's, with --every or
else each STRIDE-th, beginning with another one each day (--first N repeats one).
"""
import collections
import datetime
import json

import pytest

from memory_plays import PLAYS, judge
from memory_scene import ATTEMPT, BUS, MAIN, START, Fault, Scene, quick_programs

STRIDE = 3
PARTS = 4  # of the long ones, for as many processes
GROUPS = [(START, MAIN, 0, 1), (START, BUS, 0, 1), (ATTEMPT, BUS, 0, 1),
          *((ATTEMPT, MAIN, part, PARTS) for part in range(PARTS))]

# After one refusal the next press starts an attempt, but for these: without its first connection
# the bus thread ends, and a band that found its settings unreadable sits out until the next start.
DEAF = ('Failed to connect to ubus', 'Open wps config file failed')


def faults_of(run, fault):
    """What is wrong with a run, as texts."""
    wrong = []
    crashed = run.status < 0 and run.ended_by != 'nothing'
    if crashed:
        wrong.append(f'died of signal {-run.status} in {run.crashed_in}')
    if run.ended_by == 'nothing':
        wrong.append('did not even end at SIGTERM')
    may_be_deaf = any(line in run.console for line in DEAF)
    if run.ended_by == 'SIGTERM' and not fault.onwards and not may_be_deaf:
        wrong.append('deaf for good')
    if run.left and not crashed:
        wrong.append(f'left {run.left}')
    if not run.refused:
        wrong.append('nothing was refused')
    return wrong


def count_allocations(scene):
    """By (phase, thread); the main thread's are the same each time."""
    runs = [scene.run(), scene.run()]
    for run in runs:
        assert (run.status, run.ended_by, run.left, run.refused) == (0, 'itself', [], 0)
        assert judge(run, scene.play) == []
    counts = {}
    for phase in (START, ATTEMPT):
        one, other = (run.counts[phase] for run in runs)
        assert one[MAIN] == other[MAIN] > 0
        counts[phase, MAIN] = one[MAIN]
        assert one[BUS] == other[BUS] > 0
        counts[phase, BUS] = one[BUS]
    return counts


def chosen(config, play, last, part, parts):
    """The numbers of one test."""
    numbers = range(1, last + 1)
    if play == 'repeater' and not config.getoption('--every'):
        first = config.getoption('--first')
        if first is None:
            first = datetime.date.today().toordinal() % STRIDE
        numbers = range(1 + first % STRIDE, last + 1, STRIDE)
    return numbers[part::parts]


@pytest.mark.parametrize('onwards', [False, True], ids=['once', 'from_then_on'])
@pytest.mark.parametrize('phase, thread, part, parts', GROUPS, ids=lambda value: str(value))
@pytest.mark.parametrize('play', PLAYS)
def test_an_attempt_outlives_or_ends_in_order_without_memory(
        router, pytestconfig, record_property, play, phase, thread, part, parts, onwards):
    outcomes, wrong = collections.Counter(), []
    with quick_programs():
        scene = Scene(router, PLAYS[play])
        counts = count_allocations(scene)
        for number in chosen(pytestconfig, play, counts[phase, thread], part, parts):
            fault = Fault(phase, thread, number, onwards)
            run = scene.run(fault)
            outcomes[f'{run.ended_by} {run.status}'] += 1
            wrong += [f'{fault}: {text}; refused in {run.refused_in[:4]}'
                      for text in (*faults_of(run, fault), *judge(run, scene.play))]
    record_property('allocations', json.dumps({' '.join(map(str, key)): count
                                               for key, count in counts.items()}))
    record_property('outcomes', json.dumps(outcomes))
    assert wrong == [], '\n'.join(wrong)
