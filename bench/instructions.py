# SPDX-License-Identifier: ISC
"""Whole attempts in instructions of the main thread, compared with the tracked file."""
import glob
import os
import subprocess

import attempts
import daemon_run
import scene
from figures import Figure, Goal, Samples

FILE_NAME = 'bench/instructions'
TRACKED = f'/mnt/src/{FILE_NAME}'
GROWTH = 1.02  # repeated runs differ by a pass of the main loop or two
# The C library's plainest functions, so that the count is the same on any processor.
PLAIN_FUNCTIONS = 'glibc.cpu.hwcaps=-AVX2,-AVX,-ERMS,-FSRM,-BMI2,-BMI1,-LZCNT,-MOVBE,-SSE4_2,-SSSE3'
PROGRAM = '/mnt/build/kelm'  # not stripped: callgrind looks for main by its name
COMMAND = ('/usr/bin/valgrind', '--tool=callgrind', '--toggle-collect=main',
           '--callgrind-out-file=/mnt/log/callgrind.%p', '--log-file=/dev/null')


class TracedDaemon(daemon_run.Daemon):
    """The daemon in callgrind, whose process has another name than the daemon's."""

    def __init__(self, world):  # pylint: disable=super-init-not-called
        environment = dict(os.environ, GLIBC_TUNABLES=PLAIN_FUNCTIONS)
        done = subprocess.run([*COMMAND, PROGRAM], stdin=subprocess.DEVNULL,
                              env=environment, check=False)
        self.command_status = done.returncode
        pid_text = scene.wait_for(lambda: world.read('/tmp/kelm.pid'), 'the pid file')
        self.pid = int(pid_text)
        self.exit_status = None

    def is_waiting(self):
        """Unknown: the masks are callgrind's own. What follows waits for the bus as well."""
        return True


class TracedKelm(scene.Kelm):
    """Its router."""

    def launch(self, **options):
        self.daemon = TracedDaemon(self.world)
        return self.daemon


def _count(pid):
    with open(f'/mnt/log/callgrind.{pid}', encoding='utf-8') as file:
        total = next(line for line in file if line.startswith(('summary:', 'totals:')))
    return int(total.split()[1])


def _of_attempt(world, name):
    begin, play = attempts.ATTEMPTS[name]
    world.reset()
    for old in glob.glob('/mnt/log/callgrind.*'):
        os.unlink(old)
    router = TracedKelm(world)
    try:
        begin(router)
        play(router)
        attempts.wait_last_command(router, name)
        pid = router.daemon.pid
        assert router.daemon.wait_exit(timeout=60, poke=False) == 0
    finally:
        router.close()
    return _count(pid)


def _tracked():
    """Of the file's lines: the attempt's name, a tab, the instructions; others begin with #."""
    with open(TRACKED, encoding='utf-8') as file:
        rows = [line.rstrip('\n').split('\t') for line in file if not line.startswith('#')]
    return {name: int(count) for name, count in rows}


def track(figures):
    """Makes what was measured the new measure."""
    with open(TRACKED, encoding='utf-8') as file:
        comments = [line for line in file if line.startswith('#')]
    rows = [f'{figure.name.split(", ")[1]}\t{int(figure.kelm.median())}\n' for figure in figures
            if figure.other_name == FILE_NAME]
    with open(TRACKED, 'w', encoding='utf-8') as file:
        file.writelines(comments + rows)


def measure(world, rounds):
    scene.use_records()
    tracked = _tracked()
    found = []
    for name in attempts.ATTEMPTS:
        counts = [_of_attempt(world, name) for _ in range(rounds)]
        found.append(Figure(f'instructions of an attempt, {name}', Samples(counts),
                            FILE_NAME, Samples(tracked[name]),
                            Goal(GROWTH, limit=GROWTH)))
    return found
