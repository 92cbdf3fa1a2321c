# SPDX-License-Identifier: ISC
"""One whole attempt after the other, each with other allocations of the daemon refused."""
import contextlib
import dataclasses
import mmap
import os
import signal
import struct
import time

from daemon_run import SHIFT_TIME
from router import PRESS

FAIL_ALLOC = '/mnt/build/tests/world/fail_alloc.so'
CONTROL = '/mnt/allocations'
# The preloaded library's control record: armed, thread, onwards, refused, refuse_at, counted by
# either thread, and two chains of calls.
RECORD = struct.Struct('=iiiiqqq1024s1024s')
MAIN, BUS = 0, 1
# From the program's start to the main loop and the bus; from the press on.
START, ATTEMPT = 'start', 'attempt'
EVERY_PROGRAM, QUICK_SLEEP = '/mnt/record', '/mnt/bin/sleep'
# How long something that must come is waited for: the machine may be busy.
PATIENCE_S = 20.0
# Waited for in vain where the fault has taken it away; counted from the refusal on.
ANSWER_S, PRESS_S, EVENT_S = 0.05, 0.5, 1.0
# A bus that was lost comes back after a second, unless memory stays away.
PRESSES, PRESSES_IN_VAIN = 10, 2
LISTENING_S = 2.5  # a registration that failed is tried again after a second
TIME_OUT_S = 130


class Allocations:
    """What the preloaded library shares with the test."""

    def __init__(self):
        with open(CONTROL, 'w+b') as file:
            file.truncate(RECORD.size)
            self._page = mmap.mmap(file.fileno(), RECORD.size)

    def arm(self, thread=MAIN, number=0, onwards=False):
        """From now on counts anew and refuses the one with that number; 0: none."""
        self._page[:] = RECORD.pack(0, thread, onwards, 0, number, 0, 0, b'', b'')
        self._page[:4] = struct.pack('=i', 1)

    def counted(self):
        return RECORD.unpack(self._page)[5:7]

    def refused(self):
        return RECORD.unpack(self._page)[3]

    def chains(self):
        """Where the first refusal and where a crash happened: calls, the innermost first."""
        return [chain.split(b'\0')[0].decode().split() for chain in RECORD.unpack(self._page)[7:]]


@dataclasses.dataclass(frozen=True)
class Fault:
    """Which allocation of a phase and a thread is refused; onwards: with all that follow."""
    phase: str = ATTEMPT
    thread: int = MAIN
    number: int = 0
    onwards: bool = False


@dataclasses.dataclass
class Run:
    """How one run went."""
    status: int = None  # the daemon's exit status; negative: the signal that killed it
    ended_by: str = ''  # what made it end: itself, the time-out, SIGTERM; nothing did: killed
    counts: dict = dataclasses.field(default_factory=dict)
    refused: int = 0
    refused_in: list = ()
    crashed_in: list = ()
    left: list = ()     # traces that must not be there
    files: dict = dataclasses.field(default_factory=dict)
    console: str = ''


@contextlib.contextmanager
def quick_programs():
    """The stand-ins do nothing meanwhile, which takes no time, and "sleep" does not either."""
    os.rename(EVERY_PROGRAM, f'{EVERY_PROGRAM}.kept')
    for place in (EVERY_PROGRAM, QUICK_SLEEP):
        os.symlink('/bin/true', place)
    try:
        yield
    finally:
        os.unlink(QUICK_SLEEP)
        os.rename(f'{EVERY_PROGRAM}.kept', EVERY_PROGRAM)


def wait_until(condition, seconds):
    """Whether it came true in time."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.001)
    return True


class Scene:
    """A router on which the same attempt is made again and again."""

    def __init__(self, router, play):
        self.router = router
        self.play = play
        self.allocations = Allocations()
        router.start_bus()
        play.add_peers(router)

    def run(self, fault=Fault()):
        """One attempt from the start of the daemon to its end."""
        self._prepare()
        self._arm_for(fault, START)
        daemon = self.router.launch(environment={'LD_PRELOAD': f'{SHIFT_TIME}:{FAIL_ALLOC}'})
        run = Run()
        if daemon.pid is None:
            run.status, run.ended_by = daemon.command_status, 'itself'
        else:
            run.ended_by = self._live(fault, run) or self._terminate()
            run.status = daemon.wait_exit(poke=False)
        self._take_down(run)
        return run

    def _prepare(self):
        for name in os.listdir('/tmp'):
            if name != 'run':
                os.unlink(f'/tmp/{name}')
        self.router.world.shift_time(0)
        for server in (*self.router.hostapd.values(), *self.router.supplicant.values()):
            server.clients.clear()
        self.play.settle(self.router)
        self.router.console.forget()
        self.router.events()

    def _arm_for(self, fault, phase):
        if fault.phase == phase:
            self.allocations.arm(fault.thread, fault.number, fault.onwards)
        else:
            self.allocations.arm()

    def _take_down(self, run):
        run.counts[ATTEMPT] = self.allocations.counted()
        run.refused = self.allocations.refused()
        run.refused_in, run.crashed_in = self.allocations.chains()
        run.left = [name for name in sorted(os.listdir('/tmp'))
                    if name.startswith('wpa_ctrl_') or name.endswith(('.pid', '.new'))]
        run.files = {path: self.router.world.read(path) for path in self.play.judges}
        run.console = self.router.console.text()

    def _live(self, fault, run):
        """What ended the daemon, '' while it runs."""
        if not self._becomes_ready():
            return 'itself'
        run.counts[START] = self.allocations.counted()
        if fault.phase != START:
            self._arm_for(fault, ATTEMPT)
        if self._begins_attempt(PRESSES_IN_VAIN if fault.onwards else PRESSES):
            self.play.tell_events(self.router)
            if self._comes(self._is_over, EVENT_S):
                return 'itself'
            self.router.world.shift_time(TIME_OUT_S)
            return 'time-out' if wait_until(self._is_over, PATIENCE_S) else ''
        return 'itself' if self._is_over() else ''

    def _terminate(self):
        daemon = self.router.daemon
        daemon.send(signal.SIGTERM)
        if wait_until(self._is_over, PATIENCE_S):
            return 'SIGTERM'
        daemon.send(signal.SIGKILL)
        return 'nothing'

    def _is_over(self):
        return not self.router.daemon.is_running()

    def _comes(self, condition, in_vain_s):
        """Whether it came true. It must come as long as no memory was refused; then it may not."""
        def settled():
            return self._is_over() or condition()
        wait_until(lambda: settled() or self.allocations.refused(), PATIENCE_S)
        return wait_until(settled, in_vain_s)

    def _becomes_ready(self):
        """Waits for the main loop, and for the bus thread as long as it may still come."""
        daemon, console = self.router.daemon, self.router.console
        wait_until(lambda: self._is_over() or daemon.is_waiting(), PATIENCE_S)

        def is_deaf():
            return 'Failed to connect' in console.text()
        # One question where all is well: each takes memory, which is counted.
        self._comes(lambda: daemon.listens() or is_deaf(), LISTENING_S)
        end = time.monotonic() + LISTENING_S
        while not self._is_over() and not is_deaf() and time.monotonic() < end:
            self.router.bus.send('wps_cli')
            if self._comes(lambda: 'Invalid action.' in console.text(), ANSWER_S):
                break
        return not self._is_over()

    def _begins_attempt(self, presses):
        """A press may be lost; people press again."""
        for _ in range(presses):
            self.router.bus.send('gpio', PRESS)
            if self._comes(self._has_begun, PRESS_S):
                break
        return self._has_begun()

    def _has_begun(self):
        return self.play.begun in self.router.console.text()
