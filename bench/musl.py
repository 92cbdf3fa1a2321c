# SPDX-License-Identifier: ISC
"""The daemon built with musl, the C library of OpenWrt's routers, beside the one built with glibc.

Both run here, in turn. Measured where "script/cross musl build" has set up the tool chain.
"""
import contextlib
import glob
import mmap
import os
import platform
import shutil

import attempts
import daemon_run
import memory
import reaction
import scene
import sizes
import start
import targets
from figures import Figure, Samples

FOLDER = '/mnt/build/musl'
LOADER = f'/lib/ld-musl-{platform.machine()}.so.1'  # which is musl's C library too
GLIBC = 'built with glibc'


def build(folder):
    """The daemon and its neighbour in FOLDER/musl, their libraries in FOLDER/musl/prefix/lib."""
    if not targets.is_set_up(targets.MUSL):
        return
    targets.build_one(targets.MUSL, folder, '-DKELM_BENCH=ON', '-DKELM_WERROR=ON')
    tree = f'{folder}/musl'
    for library in glob.glob(f'{tree}/sysroot/usr/lib/*-linux-musl/libjson-c.so.*'):
        shutil.copy(library, f'{tree}/prefix/lib')


def install_libraries(world):
    """Where musl's loader finds them by itself, as on a router."""
    world.write(f'/etc/ld-musl-{platform.machine()}.path', f'{FOLDER}/prefix/lib\n')


@contextlib.contextmanager
def _mapped(path):
    """Each page of the file is mapped elsewhere, as all programs of a router map its C library."""
    with open(path, 'rb') as file:
        with mmap.mmap(file.fileno(), 0, prot=mmap.PROT_READ) as pages:
            assert pages[::mmap.PAGESIZE]  # read, and so mapped
            yield


@contextlib.contextmanager
def _in_place():
    """Meanwhile it is the one that is measured, beside a neighbour that shares its libraries."""
    usual = daemon_run.PROGRAM, scene.PROGRAMS
    daemon_run.PROGRAM, scene.PROGRAMS = f'{FOLDER}/stage/sbin/kelm', f'{FOLDER}/bench'
    try:
        with _mapped(LOADER):
            yield
    finally:
        daemon_run.PROGRAM, scene.PROGRAMS = usual


def _both(measure):
    """What is measured with musl and with glibc."""
    with _in_place():
        own = measure()
    return own, measure()


def _figure(name, unit, values):
    own, other = values
    return Figure(f'{name}, musl', Samples(own, unit), GLIBC, Samples(other, unit))


def _sizes():
    def program():
        return daemon_run.PROGRAM
    figures = [_figure('stripped file', 'bytes', _both(lambda: os.path.getsize(program())))]
    for name, own, other in zip(('text', 'data', 'bss'),
                                *_both(lambda: sizes.sections(program()))):
        figures.append(_figure(name, 'bytes', (own, other)))
    return figures


def _memory(world):
    scene.use_records()
    rows = []
    for name in attempts.ATTEMPTS:
        (idle, last), (other_idle, other_last) = _both(lambda: memory.of_attempt(world, name))
        if not rows:
            rows += [('resident memory, idle', (idle[0], other_idle[0])),
                     ('private memory, idle', (idle[2], other_idle[2]))]
        rows.append((f'private memory, end of an attempt, {name}', (last[2], other_last[2])))
    return [_figure(name, 'KiB', values) for name, values in rows]


def _times(world, rounds):
    scene.use_stamps(world)
    starts, times = ([], []), None
    for count in range(rounds + 1):
        if count < 2:  # the first round is to warm up
            times = [(reaction.Times(), reaction.Times()) for _ in range(2)]
        sides = iter((0, 1))

        def side():
            number = next(sides)
            reaction.measure_kelm(world, *times[number])
            with scene.stamped_shell():
                reaction.measure_kelm(world, *times[number])
            starts[number].append(start.start_kelm(world, start.BANDS))
        _both(side)
    return [_figure('start to attached', 'ns', [values[1:] for values in starts])] + [
        _figure(name, 'ns', [getattr(pair[which], part) for pair in times])
        for name, which, part in (('event to first shell', 1, 'shell'),
                                  ('event to "ubus send"', 1, 'publication'),
                                  ('press to first shell', 0, 'shell'),
                                  ('press to "ubus send"', 0, 'publication'))]


def measure(world, _tools, rounds):
    if not os.path.exists(f'{FOLDER}/stage/sbin/kelm'):
        return []
    return _sizes() + _memory(world) + _times(world, rounds)
