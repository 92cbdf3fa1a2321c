# SPDX-License-Identifier: ISC
"""A private world for attempt tests: the fixed paths and programs that the daemon uses.

The same layout as that of the function tests (world.h): empty /tmp with /var/run inside it, /etc
and /usr/bin with a writable layer, a /dev of its own whose console is a FIFO, the two trees under
/mnt/src and /mnt/build, and stand-ins that note each call.
"""
import contextlib
import ctypes
import errno
import fcntl
import mmap
import os
import re
import shutil
import signal
import stat
import struct
import time

CLONE_NEWNS = 0x00020000
CLONE_NEWUSER = 0x10000000
CLONE_NEWNET = 0x40000000
MS_RDONLY = 0x1
MS_REMOUNT = 0x20
MS_BIND = 0x1000
MS_MOVE = 0x2000
MS_REC = 0x4000
MS_PRIVATE = 0x40000
MNT_DETACH = 2
PR_SET_CHILD_SUBREAPER = 36

CONSOLE = '/dev/console'
CONSOLE_PIPE_SIZE = 1 << 20
COMMAND_LOG = '/mnt/log/commands'
CLOCK = '/mnt/clock'
FILLER = '/tmp/filler'
STAND_INS = (
    '/mnt/bin/hostapd_cli', '/mnt/bin/wpa_cli', '/mnt/bin/ubus', '/mnt/bin/nvram',
    '/mnt/bin/killall', '/etc/init.d/wps', '/etc/init.d/wifi', '/usr/bin/wifi')
ORIGIN = re.compile(r'kelm\[(\w+):\d+\]: ')
MISSING_PRIVILEGE = (
    'a private mount namespace needs root (CAP_SYS_ADMIN) or unprivileged user namespaces '
    '(sysctl kernel.unprivileged_userns_clone=1, user.max_user_namespaces above 0), and this '
    'machine grants neither')

_libc = ctypes.CDLL(None, use_errno=True)


class WorldError(Exception):
    """The world cannot be built."""


def _check(result, what):
    if result != 0:
        error = ctypes.get_errno()
        raise WorldError(f'{what}: {os.strerror(error)}')


def mount(source, target, kind=None, flags=0, data=None):
    """mount(2)."""
    def text(value):
        return value.encode() if value is not None else None
    result = _libc.mount(text(source), text(target), text(kind), ctypes.c_ulong(flags), text(data))
    _check(result, f'mount on {target}')


def unmount(target):
    """It and what lies on it is gone at once, also where it is in use."""
    _check(_libc.umount2(target.encode(), MNT_DETACH), f'umount {target}')


def _may_unshare_mounts():
    """Tried in a child, since a namespace once left cannot be entered again."""
    child = os.fork()
    if child == 0:
        os._exit(0 if _libc.unshare(CLONE_NEWNS) == 0 else 1)
    return os.waitpid(child, 0)[1] == 0


def _hear_signals():
    """For the programs under test: a shell lets its background jobs ignore these two."""
    for number in (signal.SIGINT, signal.SIGQUIT):
        if signal.getsignal(number) == signal.SIG_IGN:
            signal.signal(number, signal.SIG_DFL)


def _write(path, text):
    with open(path, 'w', encoding='utf-8') as file:
        file.write(text)


def gain_privilege():
    """Makes private mounts possible for this process and its children.

    A user who is not root becomes root of a user namespace. That works in a process with one thread
    only: the test runner calls this before it starts its workers.
    """
    if _may_unshare_mounts():
        return
    uid, gid = os.geteuid(), os.getegid()
    if _libc.unshare(CLONE_NEWUSER) != 0:
        raise WorldError(MISSING_PRIVILEGE)
    _write('/proc/self/setgroups', 'deny')
    _write('/proc/self/uid_map', f'0 {uid} 1')
    _write('/proc/self/gid_map', f'0 {gid} 1')
    if not _may_unshare_mounts():
        raise WorldError(MISSING_PRIVILEGE)


def leave_network():
    """Gives the calling thread a network of its own, with the settings of its own."""
    _check(_libc.unshare(CLONE_NEWNET), MISSING_PRIVILEGE)


def _stand_on_a_mount():
    """Makes / a mount point, which the root folder of a plain chroot is not.

    Mounts there might show up outside, and what cannot be named cannot be made private: so a copy
    of the whole tree goes over a mount that can, and becomes the root.
    """
    here = os.getcwd()
    mount('none', '/proc', flags=MS_REC | MS_PRIVATE)
    mount('/', '/proc', flags=MS_BIND | MS_REC)
    mount('none', '/proc', flags=MS_REC | MS_PRIVATE)
    os.chroot('/proc')
    os.chdir(here)


def _leave_the_machines_mounts():
    _check(_libc.unshare(CLONE_NEWNS), MISSING_PRIVILEGE)
    if _libc.mount(b'none', b'/', None, ctypes.c_ulong(MS_REC | MS_PRIVATE), None) == 0:
        return
    if ctypes.get_errno() != errno.EINVAL:
        _check(-1, 'making mounts private')
    _stand_on_a_mount()


def _bind_folder(descriptor, target):
    """By descriptor, since the path may be covered already."""
    os.makedirs(target)
    mount(f'/proc/self/fd/{descriptor}', target, flags=MS_BIND | MS_REC)
    os.close(descriptor)


def enter(source_dir, build_dir):
    """Gives this process mounts of its own, with the two trees at /mnt/src and /mnt/build; once.

    Orphans among its processes become its children.
    """
    _check(_libc.prctl(PR_SET_CHILD_SUBREAPER, 1, 0, 0, 0), 'prctl')
    _hear_signals()
    _leave_the_machines_mounts()
    source = os.open(source_dir, os.O_PATH | os.O_DIRECTORY)
    build = os.open(build_dir, os.O_PATH | os.O_DIRECTORY)
    mount('tmpfs', '/mnt', 'tmpfs', 0, 'mode=755')
    _bind_folder(source, '/mnt/src')
    _bind_folder(build, '/mnt/build')


def _layer_over(folder, name, own=()):
    """A folder that lies in the layer is this user's own; one that shows through may not be."""
    upper, work = f'/mnt/layers/{name}/upper', f'/mnt/layers/{name}/work'
    os.makedirs(upper)
    os.makedirs(work)
    for inner in own:
        os.makedirs(f'{upper}/{inner}')
    mount('overlay', folder, 'overlay', 0, f'lowerdir={folder},upperdir={upper},workdir={work}')


def _cover_dev():
    """A folder of its own, so that a test can take the console away."""
    os.mkdir('/mnt/dev')
    mount('tmpfs', '/mnt/dev', 'tmpfs', 0, 'mode=755')
    for device in ('null', 'zero', 'full', 'random', 'urandom', 'tty'):
        _write(f'/mnt/dev/{device}', '')
        mount(f'/dev/{device}', f'/mnt/dev/{device}', flags=MS_BIND)
    os.symlink('/proc/self/fd', '/mnt/dev/fd')
    os.mkdir('/mnt/dev/shm')
    mount('/mnt/dev', '/dev', flags=MS_MOVE)


def _cover_tmp():
    mount('tmpfs', '/tmp', 'tmpfs', 0, 'mode=1777')
    os.mkdir('/tmp/run')
    mount('/tmp/run', os.path.realpath('/var/run'), flags=MS_BIND)


def _put_stand_ins():
    for folder in ('/mnt/bin', '/mnt/log', '/mnt/reply'):
        os.mkdir(folder)
    shutil.copyfile('/mnt/src/tests/world/record', '/mnt/record')
    os.chmod('/mnt/record', 0o755)
    for place in STAND_INS:
        if os.path.lexists(place):
            os.unlink(place)
        os.symlink('/mnt/record', place)
    # Where the thread sanitizer keeps a large file: in /tmp it would take the room under test.
    os.environ['TEST_TMPDIR'] = '/mnt'
    os.environ['PATH'] = '/mnt/bin:' + os.environ.get('PATH', '/usr/sbin:/usr/bin:/sbin:/bin')


def _empty(folder, keep=()):
    for name in os.listdir(folder):
        if name in keep:
            continue
        path = os.path.join(folder, name)
        if os.path.isdir(path) and not os.path.islink(path):
            shutil.rmtree(path)
        else:
            os.unlink(path)


def wait_for(condition, what, timeout=20.0, between=None):
    """The first true value of condition(); calls between() while it waits."""
    end = time.monotonic() + timeout
    pause = 0.002
    while True:
        value = condition()
        if value:
            return value
        if time.monotonic() > end:
            raise AssertionError(f'waited {timeout} s in vain for {what}')
        if between is not None:
            between()
        time.sleep(pause)
        pause = min(pause * 1.5, 0.05)


def byte_order():
    """That of the daemon, for struct: an emulated one may have the other."""
    if not os.path.exists('/mnt/build/emulated'):
        return '='
    with open('/mnt/build/programs/kelm', 'rb') as program:
        return '>' if program.read(6)[5] == 2 else '<'


class Console:
    """What the daemon writes to /dev/console."""

    def __init__(self):
        self._descriptor = -1
        self._text = ''

    def put(self):
        """A new, empty console."""
        if self._descriptor >= 0:
            os.close(self._descriptor)
        if os.path.lexists(CONSOLE):
            os.unlink(CONSOLE)
        os.mkfifo(CONSOLE, 0o600)
        self._descriptor = os.open(CONSOLE, os.O_RDWR | os.O_NONBLOCK | os.O_CLOEXEC)
        fcntl.fcntl(self._descriptor, fcntl.F_SETPIPE_SZ, CONSOLE_PIPE_SIZE)
        self._text = ''

    def remove(self):
        os.unlink(CONSOLE)

    def fill(self):
        """Makes the console take nothing more."""
        self.text()
        try:
            while True:
                os.write(self._descriptor, b'#' * 4096)
        except BlockingIOError:
            pass

    def text(self):
        """All that came since the console was put up or forget() was called."""
        parts = []
        try:
            while True:
                parts.append(os.read(self._descriptor, 1 << 16))
        except BlockingIOError:
            pass
        self._text += b''.join(parts).decode('utf-8', 'surrogateescape')
        return self._text

    def forget(self):
        self.text()
        self._text = ''

    def take(self):
        """All that came since then; forgets it, which keeps a flood of lines cheap."""
        taken = self.text()
        self._text = ''
        return taken

    def functions(self):
        """The function that each message names as its origin, in order; see lines()."""
        return [name for name in ORIGIN.split(self.text())[1::2] if name != 'dump_rootap_info']

    def lines(self):
        """The messages without their origin and the line feeds at their end.

        A message that was cut has no line feed, so each ends where the next origin begins. The
        dump of a root access point's record is left out.
        """
        parts = ORIGIN.split(self.text())
        found = [f'without origin: {parts[0]}'] if parts[0].strip() else []
        for function, message in zip(parts[1::2], parts[2::2]):
            if function != 'dump_rootap_info':
                found.append(message.rstrip('\n'))
        return found


class World:
    """The world of one test process; reset() makes it new for the next test."""

    def __init__(self, source_dir, build_dir):
        enter(source_dir, build_dir)
        _cover_dev()
        _layer_over('/etc', 'etc', ('init.d', 'config'))
        _layer_over('/usr/bin', 'usr-bin')
        _cover_tmp()
        _put_stand_ins()
        self.console = Console()
        self._clock = self._open_clock()
        self.reset()

    @staticmethod
    def _open_clock():
        with open(CLOCK, 'w+b') as file:
            file.write(bytes(8))
            file.flush()
            return mmap.mmap(file.fileno(), 8)

    def reset(self):
        self.clear_tmp()
        _empty('/etc/config')
        _empty('/mnt/reply')
        _empty('/mnt/log')
        _write(COMMAND_LOG, '')
        self.console.put()
        self.shift_time(0)

    @staticmethod
    def clear_tmp():
        _empty('/tmp', keep=('run',))
        _empty('/tmp/run')

    @staticmethod
    @contextlib.contextmanager
    def read_only_tmp():
        """Nobody can write to /tmp meanwhile, root neither."""
        mount('none', '/tmp', flags=MS_REMOUNT | MS_BIND | MS_RDONLY)
        try:
            yield
        finally:
            mount('none', '/tmp', flags=MS_REMOUNT | MS_BIND)

    @staticmethod
    @contextlib.contextmanager
    def full_tmp(pages=0):
        """Room for so many pages in /tmp meanwhile; empty files go in, as on a full disk."""
        page = os.sysconf('SC_PAGE_SIZE')
        mount('none', '/tmp', 'tmpfs', MS_REMOUNT, 'size=512k')
        try:
            with open(FILLER, 'wb', buffering=0) as file:
                with contextlib.suppress(OSError):
                    while True:
                        file.write(bytes(page))
                file.truncate(file.tell() - pages * page)
            yield
        finally:
            with contextlib.suppress(FileNotFoundError):
                os.unlink(FILLER)
            mount('none', '/tmp', 'tmpfs', MS_REMOUNT, 'size=50%')

    @staticmethod
    @contextlib.contextmanager
    def tmp_without_inodes(left=0):
        """So many new files in /tmp meanwhile."""
        room = os.statvfs('/tmp')
        used = room.f_files - room.f_ffree
        mount('none', '/tmp', 'tmpfs', MS_REMOUNT, f'nr_inodes={used + left}')
        try:
            yield
        finally:
            mount('none', '/tmp', 'tmpfs', MS_REMOUNT, f'nr_inodes={room.f_files}')

    @staticmethod
    @contextlib.contextmanager
    def covered_tmp():
        """All that was in /tmp is gone meanwhile."""
        mount('tmpfs', '/tmp', 'tmpfs', 0, 'mode=1777')
        try:
            yield
        finally:
            unmount('/tmp')

    @staticmethod
    @contextlib.contextmanager
    def root_without_tmp():
        """A root folder for a daemon that has no /tmp at all."""
        root = '/mnt/root'
        os.mkdir(root)
        bound = []
        try:
            for name in os.listdir('/'):
                path, place = f'/{name}', f'{root}/{name}'
                if os.path.islink(path):
                    os.symlink(os.readlink(path), place)
                elif os.path.isdir(path) and name != 'tmp':
                    os.mkdir(place)
                    mount(path, place, flags=MS_BIND | MS_REC)
                    bound.append(place)
            yield root
        finally:
            for place in bound:
                unmount(place)
            shutil.rmtree(root)

    @staticmethod
    @contextlib.contextmanager
    def shell(name):
        """Another shell as /bin/sh meanwhile."""
        usual = os.readlink('/usr/bin/sh')
        os.unlink('/usr/bin/sh')
        os.symlink(name, '/usr/bin/sh')
        try:
            yield
        finally:
            os.unlink('/usr/bin/sh')
            os.symlink(usual, '/usr/bin/sh')

    def shift_time(self, seconds):
        """Moves the daemon's time() ahead of the machine's."""
        self._clock[:] = struct.pack(f'{byte_order()}q', seconds)

    @staticmethod
    def write(path, text):
        os.makedirs(os.path.dirname(path), exist_ok=True)
        _write(path, text)

    @staticmethod
    def read(path):
        """The whole file, or None when there is none."""
        try:
            with open(path, encoding='utf-8', errors='surrogateescape') as file:
                return file.read()
        except FileNotFoundError:
            return None

    @staticmethod
    def mode(path):
        return stat.S_IMODE(os.stat(path).st_mode)

    def reply(self, name, shell_text):
        """Shell text that a stand-in runs after it noted the call; named as in commands()."""
        self.write(f'/mnt/reply/{name}', shell_text)

    @staticmethod
    def commands():
        """The stand-ins' calls in order, one text per call; unsafe words are quoted."""
        with open(COMMAND_LOG, encoding='utf-8', errors='surrogateescape') as file:
            return file.read().splitlines()

    @staticmethod
    def forget_commands():
        os.truncate(COMMAND_LOG, 0)

    @staticmethod
    def sanitizer_reports():
        reports = ''
        for name in sorted(os.listdir('/mnt/log')):
            if name.startswith('sanitizer'):
                with open(f'/mnt/log/{name}', encoding='utf-8', errors='replace') as file:
                    reports += f'--- {name}\n{file.read()}'
        return reports
