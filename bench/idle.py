# SPDX-License-Identifier: ISC
"""An idle daemon: wake-ups, processor time, allocations."""
import mmap
import os
import struct

import scene
from figures import Figure, Goal, Samples

ALLOCATIONS = '/mnt/allocations'


def _threads(pid):
    return [f'/proc/{pid}/task/{thread}' for thread in os.listdir(f'/proc/{pid}/task')]


def _wake_ups(pid):
    """How often a thread gave the processor up of itself: once for each wait that it woke from."""
    count = 0
    for thread in _threads(pid):
        with open(f'{thread}/status', encoding='ascii') as file:
            count += sum(int(line.split()[1]) for line in file
                         if line.startswith('voluntary_ctxt_switches'))
    return count


def _cpu_ns(pid):
    total = 0
    for thread in _threads(pid):
        with open(f'{thread}/schedstat', encoding='ascii') as file:
            total += int(file.read().split()[0])
    return total


class _AllocationCount:
    """What the preloaded library shares."""

    def __init__(self):
        with open(ALLOCATIONS, 'w+b') as file:
            file.write(bytes(8))
            file.flush()
            self._page = mmap.mmap(file.fileno(), 8)

    def value(self):
        return struct.unpack('=q', self._page)[0]


def _rest(world, tools, seconds):
    """Wake-ups, processor time and allocations while nothing happens."""
    allocations = _AllocationCount()
    router = scene.Kelm(world)
    floor = scene.event_floor(())
    client = scene.action_cli(tools.hostapd_cli, ())
    try:
        router.start(environment={'LD_PRELOAD': f'{scene.PROGRAMS}/count_allocations.so'})
        assert allocations.value() > 0, 'the counter of allocations is not at work'
        scene.pause(2.5)
        pids = (router.daemon.pid, floor.pid, client.pid)
        before = [(_wake_ups(pid), _cpu_ns(pid)) for pid in pids]
        allocated = allocations.value()
        scene.pause(seconds)
        after = [(_wake_ups(pid), _cpu_ns(pid)) for pid in pids]
        allocated = allocations.value() - allocated
        router.end_by_sigterm()
    finally:
        floor.close()
        client.close()
        router.close()
    wakes = [end[0] - begin[0] for begin, end in zip(before, after)]
    cpu = [(end[1] - begin[1]) * 60 // seconds for begin, end in zip(before, after)]
    return wakes, cpu, allocated


def measure(world, tools, seconds):
    scene.use_stamps(world)
    wakes, cpu, allocated = _rest(world, tools, seconds)
    kelm, floor, client = wakes
    # The window may begin and end right before a wake-up.
    most = Goal(seconds + 1, of_ratio=False, limit=seconds + 1)
    none = Goal(0, of_ratio=False, limit=0)
    kelm_cpu, floor_cpu, client_cpu = (Samples(value, 'ns') for value in cpu)
    return [
        Figure(f'wake-ups in {seconds} idle seconds', Samples(kelm), 'select once a second',
               Samples(floor), most),
        Figure(f'wake-ups in {seconds} idle seconds', Samples(kelm), 'hostapd_cli -a',
               Samples(client)),
        Figure('processor time of an idle minute', kelm_cpu, 'select once a second', floor_cpu),
        Figure('processor time of an idle minute', kelm_cpu, 'hostapd_cli -a', client_cpu),
        Figure(f'heap allocations in {seconds} idle seconds', Samples(allocated), goal=none),
    ]
