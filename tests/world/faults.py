# SPDX-License-Identifier: ISC
"""The test's side of fail_calls.c: says which of the daemon's calls fail."""
import mmap
import struct

from daemon_run import SHIFT_TIME
from world import byte_order

PAGE = '/mnt/faults'
PRELOAD = '/mnt/build/tests/world/fail_calls.so'
CALLS = ('posix_spawn', 'fork', 'pthread_create', 'write', 'poll')
EVER = 1 << 40
GATE = 8 * (1 + 3 * len(CALLS))
SIZE = GATE + 16


class Faults:
    """The page that fail_calls.so reads. Daemons launched with its environment obey."""

    environment = {'LD_PRELOAD': f'{SHIFT_TIME}:{PRELOAD}'}

    def __init__(self):
        with open(PAGE, 'w+b') as file:
            file.write(bytes(SIZE))
            file.flush()
            self._page = mmap.mmap(file.fileno(), 0)

    def fail(self, call, good=0, bad=1):
        """After so many good calls so many fail."""
        struct.pack_into(f'{byte_order()}qq', self._page, self._place(call) + 8, good, bad)

    def calls(self, call):
        return struct.unpack_from(f'{byte_order()}q', self._page, self._place(call))[0]

    def gather(self, count):
        """So many daemons wait for each other before they look for a pid file."""
        struct.pack_into(f'{byte_order()}qq', self._page, GATE, 0, count)

    def shift_monotonic(self, seconds):
        struct.pack_into(f'{byte_order()}q', self._page, 0, seconds)

    @staticmethod
    def _place(call):
        return 8 + 24 * CALLS.index(call)
