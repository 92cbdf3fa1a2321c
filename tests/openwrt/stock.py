# SPDX-License-Identifier: ISC
"""A router with stock OpenWrt, for tests of the scripts in openwrt/kelm.

The fixture "stock" gives each test a StockRouter: a root folder of its own in memory, which holds
busybox, the stand-ins of openwrt/testworld and the package's files as its Makefile installs them,
and nothing else of this machine. Programs run in it by chroot; the test itself stays outside and
reaches the router's files with at(), read() and write().

    def test_the_name_is_kept(stock):
        stock.uci('set', "wireless.default_radio0.ssid=it's")
        stock.fake('hostapd_cli', 'echo OK')
        stock.object('hostapd.phy0-ap0', wps_start='exit 8')
        result = stock.run('/usr/libexec/kelm/request start')
        assert (result.status, result.out) == (0, '')
        assert stock.commands() == ['hostapd_cli -i wlan1 ping']
        assert stock.log() == ['daemon.notice kelm: 2.4 GHz: the network is hidden']

What there is from the start:
  - /etc/config/wireless of a router with two bands (wireless.config), and the object
    network.wireless, whose status says that both are up (two_bands() below; set_wireless() gives
    another);
  - the object network: its reload is noted in commands() as "ubus network reload {}";
  - the system log, read by log(); rpcd has read the package's plugins.
Started on demand: bus() for events (ubus send and listen), procd() for services.

Debian's busybox as shell takes its own programs before those of the PATH: a fake must not have the
name of one of them.
"""
import contextlib
import json
import os
import shutil
import signal
import stat
import subprocess
import time
from collections import namedtuple

import world as private_world
from package import installed_files
from world import wait_for

ROOT = '/mnt/r'
SOURCE, BUILD = '/mnt/src', '/mnt/build'
MAKEFILE = f'{SOURCE}/openwrt/kelm/Makefile'
STAND_INS = f'{SOURCE}/openwrt/testworld'
PATH = '/usr/sbin:/usr/bin:/sbin:/bin'
BUSYBOX = '/bin/busybox'
# Their stand-ins are others.
NOT_FROM_BUSYBOX = ('logread', 'syslogd', 'klogd', 'init', 'linuxrc', 'hostname')
LIBRARIES = ('/lib/x86_64-linux-gnu', '/lib64')
FOLDERS = ('bin', 'sbin', 'usr/bin', 'usr/sbin', 'usr/libexec', 'usr/lib', 'lib', 'etc/config',
           'etc/init.d', 'etc/rc.d', 'etc/rc.button', 'etc/rc.wps', 'etc/hotplug.d/button',
           'proc', 'dev', 'sys/class/leds', 'tmp/run', 'tmp/lock', 'tmp/state', 'mnt/log',
           'mnt/reply', 'tmp/run/hostapd', 'tmp/run/wpa_supplicant', 'usr/lib/testworld/ubus')
LOG = '/mnt/log/commands'

WIRELESS = f'{SOURCE}/tests/openwrt/wireless.config'

Result = namedtuple('Result', 'status out err')


def _radio(number, band, channel):
    return {
        'up': True, 'pending': False, 'autostart': True, 'disabled': False,
        'retry_setup_failed': False,
        'config': {'path': f'platform/soc/18000000.wifi{"+1" * number}', 'band': band,
                   'channel': channel, 'htmode': 'HE20'},
        'interfaces': [{
            'section': f'default_radio{number}', 'ifname': f'phy{number}-ap0',
            'config': {'mode': 'ap', 'ssid': 'Elm House', 'encryption': 'psk2',
                       'key': 'seven green elms', 'network': ['lan'],
                       'ifname': f'phy{number}-ap0'},
            'vlans': [], 'stations': []}]}


def two_bands():
    """What network.wireless says when all is up; change it and give it to set_wireless()."""
    return {'radio0': _radio(0, '2g', '1'), 'radio1': _radio(1, '5g', '36')}


def put_file(source, place, mode):
    """A file of this machine, at a place of the router."""
    target = ROOT + place
    os.makedirs(os.path.dirname(target), exist_ok=True)
    shutil.copyfile(source, target)
    os.chmod(target, mode)


def _stand_ins():
    """(source, place, mode) of each line of the list; a link's source begins with "link:"."""
    with open(f'{STAND_INS}/files.txt', encoding='utf-8') as file:
        for line in file:
            if line.strip() and not line.startswith('#'):
                source, place, mode = line.strip().split(' | ')
                source = source.replace('build:', f'{BUILD}/').replace('tree:',
                                                                       f'{STAND_INS}/files/')
                yield source, place, int(mode, 8)


def _put_stand_ins():
    for source, place, mode in _stand_ins():
        if os.path.lexists(ROOT + place):
            os.unlink(ROOT + place)
        if source.startswith('link:'):
            os.makedirs(os.path.dirname(ROOT + place), exist_ok=True)
            os.symlink(source[5:], ROOT + place)
        else:
            put_file(source, place, mode)


def put_package(*packages):
    """The stock one, with what it needs of this tree, unless others are named. Again, as an upgrade
    does; settings are left as they are."""
    for source, place, mode in (file for package in packages or ('kelm-doctor', 'kelm-stock')
                                for file in installed_files(MAKEFILE, package)):
        if not place.startswith('/etc/config/') or not os.path.exists(ROOT + place):
            put_file(source, place, mode)


def _put_devices():
    for device in ('null', 'zero', 'full', 'random', 'urandom'):
        private_world.mount(f'/dev/{device}', _empty_file(f'{ROOT}/dev/{device}'),
                            flags=private_world.MS_BIND)
    _empty_file(f'{ROOT}/dev/console')


def _empty_file(path):
    with open(path, 'w', encoding='utf-8'):
        return path


def _applets():
    listing = subprocess.run([BUSYBOX, '--list-full'], check=True, capture_output=True, text=True)
    return [place for place in listing.stdout.split()
            if os.path.basename(place) not in NOT_FROM_BUSYBOX + ('busybox',)]


def enter(source_dir, build_dir):
    """Gives this process mounts of its own, and the two trees at fixed places. Once a process."""
    private_world.enter(source_dir, build_dir)
    os.mkdir(ROOT)


class Router:
    """One router with busybox and nothing on it. See the head of this file."""

    def __init__(self):
        self._started = []
        private_world.mount('tmpfs', ROOT, 'tmpfs', 0, 'mode=755')
        for folder in FOLDERS:
            os.makedirs(f'{ROOT}/{folder}')
        os.symlink('tmp', f'{ROOT}/var')
        os.chmod(f'{ROOT}/tmp', 0o1777)
        self._put_machine()
        put_file(BUSYBOX, BUSYBOX, 0o755)
        for place in _applets():
            if not os.path.lexists(f'{ROOT}/{place}'):
                os.symlink(BUSYBOX, f'{ROOT}/{place}')
        put_file(f'{SOURCE}/tests/world/record', '/mnt/record', 0o755)
        put_file(f'{BUILD}/kelm', '/usr/sbin/kelm', 0o755)
        _empty_file(ROOT + LOG)

    @staticmethod
    def _put_machine():
        _put_devices()
        private_world.mount('/proc', f'{ROOT}/proc', flags=private_world.MS_BIND
                            | private_world.MS_REC)
        for folder in LIBRARIES:
            real = os.path.realpath(folder)
            os.makedirs(ROOT + folder, exist_ok=True)
            private_world.mount(real, ROOT + folder, flags=private_world.MS_BIND)

    def close(self):
        """Ends what runs on the router, and takes it away."""
        for process in self._started:
            if process.poll() is None:
                process.kill()
            process.communicate()
        self._end_processes()
        private_world.unmount(ROOT)

    @staticmethod
    def _end_processes():
        """Whatever still has this root: nothing of a test outlives it."""
        while True:
            found = [pid for pid in map(int, filter(str.isdigit, os.listdir('/proc')))
                     if _is_inside(pid)]
            if not found:
                return
            for pid in found:
                with contextlib.suppress(ProcessLookupError):
                    os.kill(pid, signal.SIGKILL)
                with contextlib.suppress(ChildProcessError):
                    os.waitpid(pid, os.WNOHANG)
            time.sleep(0.002)

    # Files

    @staticmethod
    def at(path, follow=False):
        """Where a file of the router is for the test; links of folders lead to the router's places.

        follow: the last link too, which would lead to a place of this machine.
        """
        parts, place = [part for part in path.split('/') if part], ROOT
        for index, part in enumerate(parts):
            place = f'{place}/{part}'
            if os.path.islink(place) and (follow or index < len(parts) - 1):
                target = os.readlink(place)
                rest = '/'.join(parts[index + 1:])
                base = '' if target.startswith('/') else os.path.dirname(place)[len(ROOT):]
                return Router.at(os.path.normpath(f'{base}/{target}/{rest}'), follow)
        return place

    def read(self, path):
        """The whole file as text, or None; bytes that are no UTF-8 as surrogates."""
        try:
            with open(self.at(path, follow=True), encoding='utf-8',
                      errors='surrogateescape') as file:
                return file.read()
        except FileNotFoundError:
            return None

    def write(self, path, text, mode=None):
        place = self.at(path, follow=True)
        os.makedirs(os.path.dirname(place), exist_ok=True)
        with open(place, 'w', encoding='utf-8', errors='surrogateescape') as file:
            file.write(text)
        if mode is not None:
            os.chmod(place, mode)

    def remove(self, path):
        """A file or a link, if it is there."""
        place = self.at(path)
        if os.path.lexists(place):
            os.unlink(place)

    def mode(self, path):
        return stat.S_IMODE(os.stat(self.at(path, follow=True)).st_mode)

    def exists(self, path):
        return os.path.lexists(self.at(path))

    # Programs

    @staticmethod
    def _environment(env):
        return {'PATH': PATH, 'HOME': '/root', 'LC_ALL': 'C', **(env or {})}

    def start(self, script, *arguments, env=None, stdin=subprocess.DEVNULL, **streams):
        """A command that goes on beside the test, ended with it: a Popen."""
        streams = streams or {'stdout': subprocess.DEVNULL, 'stderr': subprocess.DEVNULL}
        process = subprocess.Popen(
            ['/bin/sh', '-c', script, 'test', *arguments], env=self._environment(env), stdin=stdin,
            preexec_fn=enter_root, start_new_session=True, errors='surrogateescape', text=True,
            encoding='utf-8', **streams)
        self._started.append(process)
        return process

    def run(self, script, *arguments, env=None, stdin='', timeout=20):
        """Runs a text in the router's shell to its end: Result(status, out, err).

        The arguments are $1, $2 ... of the text. A program that leaves a child with its output open
        is waited for as long as the child lives: over the time it is an error.
        """
        process = self.start(script, *arguments, env=env, stdin=subprocess.PIPE,
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        out, err = process.communicate(stdin, timeout=timeout)
        return Result(process.returncode, out, err)

    def uci(self, *words):
        """Runs uci and returns what it prints, without the last line's end; it must succeed."""
        result = self.run('exec uci "$@"', *words)
        assert result.status == 0, f'uci {words}: {result}'
        return result.out[:-1] if result.out.endswith('\n') else result.out

    def ubus(self, name, method, message=None):
        """Calls an object and returns (status, answer as a dict or None)."""
        result = self.run('exec ubus -S call "$@"', name, method, json.dumps(message or {}))
        return result.status, json.loads(result.out) if result.out.strip() else None

    def http(self, name, method, message=None):
        """The same as from a web page: by the rights of acl.d, with the session's number added."""
        result = self.run('exec /usr/lib/testworld/http_call -S "$@"', name, method,
                          json.dumps(message or {}))
        return result.status, json.loads(result.out) if result.out.strip() else None

    @staticmethod
    def processes():
        """What runs on the router: a list of (process number, words of the command line)."""
        found = []
        for pid in filter(_is_inside, map(int, filter(str.isdigit, os.listdir('/proc')))):
            with contextlib.suppress(OSError):
                with open(f'/proc/{pid}/cmdline', encoding='utf-8', errors='replace') as file:
                    found.append((pid, file.read().split('\0')[:-1]))
        return found

    # What stands around the scripts

    def fake(self, name, reply=''):
        """A program that notes its call in commands() and then runs this shell text.

        A name alone lies in /usr/sbin and is noted by its name, another place by its path. A new
        text may be given at any time.
        """
        path = name if '/' in name else f'/usr/sbin/{name}'
        place = self.at(path)
        os.makedirs(os.path.dirname(place), exist_ok=True)
        self.remove(path)
        os.symlink('/mnt/record', place)
        self.write(f'/mnt/reply/{name}', reply)

    def object(self, name, **methods):
        """An object on the bus: a method is shell text that prints the answer, has the message in
        $message, and whose exit status is the bus's. Calls are noted: "ubus NAME METHOD {...}".
        """
        cases = '\n'.join(f'call:{method}) {text or ":"} ;;' for method, text in methods.items())
        names = '\n'.join(methods)
        self.remove(f'/usr/lib/testworld/ubus/{name}')
        self.write(f'/usr/lib/testworld/ubus/{name}', f"""#!/bin/sh
[ "$1" != list ] || {{ echo '{names}'; exit; }}
read -r message
printf '%s\\n' "ubus {name} $2 $message" >> {LOG}
case $1:$2 in
{cases}
*) exit 3 ;;
esac
""", 0o755)

    def no_object(self, name):
        """The object is gone."""
        self.remove(f'/usr/lib/testworld/ubus/{name}')

    def set_wireless(self, status):
        """What network.wireless answers from now on; see two_bands()."""
        self.write('/mnt/wireless', json.dumps(status))

    def led(self, name, trigger='none', brightness='0'):
        """A LED; its trigger file is plain: what is written is what is read."""
        self.write(f'/sys/class/leds/{name}/trigger', f'{trigger}\n')
        self.write(f'/sys/class/leds/{name}/brightness', f'{brightness}\n')
        self.write(f'/sys/class/leds/{name}/max_brightness', '255\n')
        return f'/sys/class/leds/{name}'

    def commands(self):
        """The calls of fakes and objects so far, in order; unsafe words are quoted."""
        return self.read(LOG).splitlines()

    def forget_commands(self):
        os.truncate(self.at(LOG), 0)

    def log(self):
        """The system log so far, each line without its time: "daemon.notice kelm: text"."""
        return [line.split(' ', 5)[5] if line.count('  ') == 0 else line.split(None, 5)[5]
                for line in self.run('/sbin/logread').out.splitlines()]

    def bus(self):
        """Starts the broker, for ubus send and listen."""
        self.start('exec /sbin/ubusd')
        wait_for(lambda: self.exists('/var/run/ubus/ubus.sock')
                 or self.exists('/var/run/ubus.sock'), 'the bus')

    def procd(self):
        """Starts what supervises services; rc.common talks to it."""
        self.start('exec /sbin/procd')
        wait_for(lambda: self.exists('/var/run/testworld/procd'), 'procd')


class StockRouter(Router):
    """One with stock OpenWrt and the package. See the head of this file."""

    def __init__(self):
        super().__init__()
        _put_stand_ins()
        put_package()
        put_file(WIRELESS, '/etc/config/wireless', 0o600)
        self.object('network', reload='', restart='')
        self.object('network.wireless', status='cat /mnt/wireless')
        self.set_wireless(two_bands())
        self.start('/sbin/logd')
        wait_for(lambda: os.path.exists(self.at('/var/run/testworld/log')), 'the system log')
        self.run('/etc/init.d/rpcd start')


def _is_inside(pid):
    """Whether a process has this router's root: other tests' roots have the same name elsewhere."""
    try:
        return (os.readlink(f'/proc/{pid}/ns/mnt') == os.readlink('/proc/self/ns/mnt')
                and os.readlink(f'/proc/{pid}/root') == ROOT)
    except OSError:
        return False


def enter_root():
    os.chroot(ROOT)
    os.chdir('/')
