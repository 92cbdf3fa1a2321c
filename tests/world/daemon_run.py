# SPDX-License-Identifier: ISC
"""Runs the daemon and sees its whole life, though it leaves its parent."""
import os
import signal
import subprocess
import time

from world import CONSOLE, wait_for

PROGRAM = '/mnt/build/kelm'
SHIFT_TIME = '/mnt/build/tests/world/shift_time.so'
SIG_NEW_CONFIG = 42
# An emulator keeps two real-time signals for itself: the others move up.
MOVED_FROM, MOVED_BY = 32, 2
PPOLL = '271'
REPORTS = 'log_path=/mnt/log/sanitizer'
# For a daemon that is left without descriptors: the search for leaks at its end needs some, and
# waits for them for ever.
NO_LEAK_SEARCH = {'ASAN_OPTIONS': f'{REPORTS}:detect_leaks=0:verify_asan_link_order=0'}
# For a daemon that is to die of a crash as it does without a sanitizer, which takes it for itself.
_LEAVE = ':'.join(f'handle_{name}=0' for name in ('segv', 'sigbus', 'sigfpe', 'sigill', 'abort'))
NO_CRASH_REPORTS = {
    'ASAN_OPTIONS': f'{REPORTS}:detect_leaks=0:verify_asan_link_order=0:{_LEAVE}',
    'UBSAN_OPTIONS': f'{REPORTS}:{_LEAVE}',
    'TSAN_OPTIONS': f'{REPORTS}:report_thread_leaks=0:report_signal_unsafe=0:{_LEAVE}'}
# The daemon's four signals as a mask.
HELD_SIGNALS = sum(1 << number - 1 for number in (
    signal.SIGUSR1, signal.SIGUSR2, signal.SIGTERM, SIG_NEW_CONFIG))


def is_emulated():
    """Whether the programs run under an emulator.

    It takes every signal itself: the kernel's masks are then not the daemon's.
    """
    return os.path.exists('/mnt/build/emulated')


def is_built_with_musl():
    """By the loader that the program asks for, which stands near its beginning."""
    with open(PROGRAM, 'rb') as program:
        return b'/ld-musl-' in program.read(4096)


def outside(number):
    """The number of one of the daemon's signals outside an emulator."""
    return number + (MOVED_BY if is_emulated() and number >= MOVED_FROM else 0)


def _status(pid):
    """(name, parent) of a process, or None when it is gone."""
    try:
        with open(f'/proc/{pid}/stat', encoding='utf-8') as file:
            text = file.read()
    except (FileNotFoundError, ProcessLookupError):
        return None
    name, rest = text[text.index('(') + 1:].rsplit(')', 1)
    return name, int(rest.split()[1])


def _names(folder):
    try:
        return os.listdir(folder)
    except FileNotFoundError:
        return []


def _link(path):
    try:
        return os.readlink(path)
    except FileNotFoundError:
        return ''


def _text(path):
    try:
        with open(path, encoding='utf-8') as file:
            return file.read()
    except (FileNotFoundError, ProcessLookupError):
        return ''


def _children(parent=None):
    """(pid, name) of a process's children, adopted ones included; of this one's by default."""
    for entry in os.listdir('/proc'):
        if entry.isdigit():
            found = _status(entry)
            if found is not None and found[1] == (parent or os.getpid()):
                yield int(entry), found[0]


def _environment(own=None):
    environment = dict(os.environ, LD_PRELOAD=SHIFT_TIME)
    environment['ASAN_OPTIONS'] = f'{REPORTS}:detect_leaks=1:verify_asan_link_order=0'
    environment['LSAN_OPTIONS'] = 'use_unaligned=0'
    environment['UBSAN_OPTIONS'] = f'{REPORTS}:print_stacktrace=1'
    # The bus thread is meant to be left behind at the end, and the signal handler may allocate: it
    # runs in the main loop's wait alone, which the signal tests make sure of.
    environment['TSAN_OPTIONS'] = f'{REPORTS}:report_thread_leaks=0:report_signal_unsafe=0'
    environment.update(own or {})
    if is_emulated():  # for the daemon, not for the shell that starts the emulator
        environment['QEMU_SET_ENV'] = f'LD_PRELOAD={environment.pop("LD_PRELOAD")}'
    return environment


class Daemon:
    """One run of the daemon, from its start as a command to its exit status."""

    def __init__(self, arguments=(), environment=None, umask=0o022, before=None, program=None):
        """before: called in the new process right before the program, for limits and the like.

        program: another one than PROGRAM as it stands now, which the bench replaces.
        """
        begin = time.monotonic()
        known = {pid for pid, _ in _children()}
        command = subprocess.Popen(
            [program or PROGRAM, *arguments], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            stderr=subprocess.PIPE, env=_environment(environment),
            cwd='/', umask=umask, restore_signals=True, preexec_fn=before)
        self.output, self.errors = command.communicate(timeout=20)
        self.command_status = command.returncode
        self.command_seconds = time.monotonic() - begin
        found = [pid for pid, name in _children() if name == 'kelm' and pid not in known]
        assert len(found) <= 1, f'more than one process was left behind: {found}'
        self.pid = found[0] if found else None
        self.exit_status = None

    @classmethod
    def adopted(cls, pid):
        """One that was started otherwise and is this process's child by now."""
        daemon = cls.__new__(cls)
        daemon.pid, daemon.exit_status, daemon.command_status = pid, None, 0
        return daemon

    def send(self, number):
        """Signals the daemon, which is held as a zombie when it has ended."""
        os.kill(self.pid, outside(number))

    def freeze(self):
        """Stops it as SIGSTOP does; what comes in from now on waits together until it thaws."""
        self.send(signal.SIGSTOP)
        wait_for(lambda: self.proc_status().get('State', '').startswith('T'), 'the stop')

    def thaw(self):
        self.send(signal.SIGCONT)

    def poke(self):
        """Ends the wait of the main loop, so that a test need not wait for its second to pass.

        Only once the signal has its handler: before that it would end the process. Under the
        emulator it always may: the daemon holds it back before it leaves its parent.
        """
        if is_emulated() or self._mask('SigCgt') & 1 << SIG_NEW_CONFIG - 1:
            self.send(SIG_NEW_CONFIG)

    def is_waiting(self):
        """Whether the main loop waits: there alone it lets its signals in. None is pending then."""
        pending = self._mask('SigPnd') | self._mask('ShdPnd')
        if is_emulated():
            return not pending and self._sleeps_alone()
        return bool(self._mask('SigCgt') & 1 << SIG_NEW_CONFIG - 1
                    and (self._mask('SigBlk') | pending) & HELD_SIGNALS == 0)

    def listens(self):
        """Whether the bus thread's loop serves its connection: each event is registered by then.

        One whose registration failed will be tried again.
        """
        folder = f'/proc/{self.pid}'
        for number in _names(f'{folder}/fd'):
            if _link(f'{folder}/fd/{number}') == 'anon_inode:[eventpoll]':
                # The loop's own pipe is the first that it watches, the connection the second.
                return _text(f'{folder}/fdinfo/{number}').count('tfd:') > 1
        return False

    def _sleeps_alone(self):
        """In the loop's call as long as it is looked at: a command is waited for by it too."""
        slept = self.proc_status().get('voluntary_ctxt_switches')
        alone = self._system_call() == PPOLL and not list(_children(self.pid))
        return alone and self.proc_status().get('voluntary_ctxt_switches') == slept

    def is_pending(self, number):
        """Whether it was sent and is not handled yet."""
        return bool((self._mask('SigPnd') | self._mask('ShdPnd')) & 1 << number - 1)

    def _mask(self, name):
        return int(self.proc_status().get(name, '0'), 16)

    def _system_call(self):
        """The number of the one that its main thread is in, as text."""
        try:
            with open(f'/proc/{self.pid}/syscall', encoding='utf-8') as file:
                return file.read().split()[0]
        except (FileNotFoundError, ProcessLookupError):
            return None

    def proc_status(self, path=None):
        try:
            with open(path or f'/proc/{self.pid}/status', encoding='utf-8') as file:
                return dict(line.rstrip('\n').split(':\t', 1) for line in file if ':\t' in line)
        except (FileNotFoundError, ProcessLookupError):
            return {}

    def cpu_seconds(self):
        """What it computed so far, without its children."""
        with open(f'/proc/{self.pid}/stat', encoding='utf-8') as file:
            fields = file.read().rsplit(')', 1)[1].split()
        return (int(fields[11]) + int(fields[12])) / os.sysconf('SC_CLK_TCK')

    def resident_kib(self):
        return int(self.proc_status()['VmRSS'].split()[0])

    def descriptors(self):
        """What each descriptor leads to, by its kind: numbers in it are left out.

        So is the console, which is open while a line is written.
        """
        folder = f'/proc/{self.pid}/fd'
        found = []
        for number in os.listdir(folder):
            try:
                found.append(os.readlink(f'{folder}/{number}').split(':[')[0])
            except FileNotFoundError:
                continue
        return sorted(kind for kind in found if kind != CONSOLE)

    def is_running(self):
        if self.exit_status is not None:
            return False
        pid, status = os.waitpid(self.pid, os.WNOHANG)
        if pid != 0:
            self.exit_status = os.waitstatus_to_exitcode(status)
        return pid == 0

    def wait_exit(self, timeout=20.0, poke=True, between=None):
        """Its exit status; a negative one is the signal that killed it."""
        wait_for(lambda: not self.is_running(), 'the end of the daemon', timeout,
                 between or (self.poke if poke else None))
        return self.exit_status


FOREGROUND = {'KELM_FOREGROUND': '1'}


class ForegroundDaemon(Daemon):
    """One that stays the process that was started, as a supervisor wants it."""

    def __init__(self, command=(PROGRAM,), environment=FOREGROUND):
        # pylint: disable=super-init-not-called
        self._process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
            env=_environment(environment), cwd='/', umask=0o022)
        self.pid = self._process.pid
        self.command_status = 0  # of none: it has not returned
        self.exit_status = None

    def printed(self):
        """What it printed, once it has ended."""
        self._process.returncode = self.exit_status
        with self._process.stdout as pipe:
            return pipe.read()


def start_at_once(count, environment):
    """So many starts side by side; the daemons of all of them, those too that have ended."""
    known = {pid for pid, _ in _children()}
    commands = [subprocess.Popen([PROGRAM], stdin=subprocess.DEVNULL, cwd='/',
                                 env=dict(_environment(), **environment))
                for _ in range(count)]
    assert [command.wait(20) for command in commands] == [0] * count
    return [Daemon.adopted(pid) for pid, name in _children()
            if name == 'kelm' and pid not in known]


def end_leftovers():
    """Kills and reaps what a test left behind; returns what had to be killed."""
    killed = []
    for pid, name in list(_children()):
        try:
            if os.waitpid(pid, os.WNOHANG)[0] == 0:
                killed.append(name)
                os.kill(pid, signal.SIGKILL)
                os.waitpid(pid, 0)
        except ChildProcessError:
            pass
    return killed
