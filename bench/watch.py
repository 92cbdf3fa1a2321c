# SPDX-License-Identifier: ISC
"""An attempt with kelm-watch beside it and without, in turns; what the recorder itself takes."""
import os
import signal
import subprocess
import time

import attempts
import memory
import scene
from figures import Figure, NotSlowerAtBest, Samples
from router import PRESS

PROGRAM = '/mnt/build/stage/sbin/kelm-watch'
RECORDING = '/tmp/recording'
# A recorder changes nothing. An attempt of empty programs takes some 30 ms on a quiet machine.
# Beside a load of 20 the quickest of twelve with it was up to 10 ms slower than without.
UNCHANGED = NotSlowerAtBest(5e6, of_ratio=False, limit=30e6)
LOOK_PAUSE_S = 0.0002


def _start_watch():
    return subprocess.Popen([PROGRAM, '-o', RECORDING, '--quiet'], stdin=subprocess.DEVNULL)


def _cpu_ns(pid):
    """Of all its threads, finer than the clock of /proc/PID/stat."""
    total = 0
    for thread in os.listdir(f'/proc/{pid}/task'):
        with open(f'/proc/{pid}/task/{thread}/schedstat', encoding='utf-8') as file:
            total += int(file.read().split()[0])
    return total


def _play(router):
    """From the press to the daemon's end, in nanoseconds. The tests' waits look ever more rarely:
    by them the figure would be one of a few steps, each longer than what a recorder costs."""
    begin = time.monotonic_ns()
    router.bus.send('gpio', PRESS)
    while router.world.read('/tmp/wpsactive') != '1\n':
        time.sleep(LOOK_PAUSE_S)
        assert time.monotonic_ns() - begin < 20e9, 'the attempt did not start'
    attempts.answer_access_point(router)
    os.waitid(os.P_PID, router.daemon.pid, os.WEXITED | os.WNOWAIT)
    taken = time.monotonic_ns() - begin
    assert router.end(poke=False) == 0
    return taken


def _attempt(world, watched):
    """The attempt's nanoseconds; the recorder's private KiB and its time on a processor."""
    world.reset()
    router = scene.Kelm(world)
    watch, cost = None, (0, 0)
    try:
        attempts.begin_access_point(router)
        if watched:
            watch = _start_watch()
            for server in router.hostapd.values():
                server.wait_attached(2)
        start_ns = _cpu_ns(watch.pid) if watched else 0
        taken = _play(router)
        if watched:
            cost = memory.private_kib(watch.pid), _cpu_ns(watch.pid) - start_ns
            watch.send_signal(signal.SIGINT)
            assert watch.wait(20) == 0
    finally:
        if watch is not None and watch.poll() is None:
            watch.kill()
        router.close()
    return taken, cost


def measure(world, tools, rounds):
    """A ratio in one run: the two take turns."""
    scene.use_records()
    times, costs = {True: [], False: []}, []
    for number in range(rounds + 1):
        for watched in (True, False):
            taken, cost = _attempt(world, watched)
            if number == 0:
                continue  # the first of each fills caches
            times[watched].append(taken)
            if watched:
                costs.append(cost)
    client = memory.idle_client_kib(world, tools)
    return [
        Figure('attempt with kelm-watch, press to end', Samples(times[True], 'ns'), 'without it',
               Samples(times[False], 'ns'), UNCHANGED),
        Figure('private memory of kelm-watch after an attempt',
               Samples([private for private, _ in costs], 'KiB'), 'hostapd_cli -a',
               Samples(client, 'KiB')),
        Figure('time on a processor of kelm-watch, one attempt',
               Samples([cpu for _, cpu in costs], 'ns')),
    ]
