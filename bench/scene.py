# SPDX-License-Identifier: ISC
"""The private world that everything is measured in, with stand-ins that note the time."""
import contextlib
import os
import shutil
import subprocess
import time

import daemon_run
import peers
from router import Router
from world import wait_for

PROGRAMS = '/mnt/build/bench'
LIBRARIES = '/mnt/build/prefix/lib'
STAMPS = '/mnt/log/stamps'
BENCH_RUN = '/var/run/bench'
ALL_COMMANDS = '/mnt/record'  # what each stand-in is a link to

daemon_run.PROGRAM = '/mnt/build/stage/sbin/kelm'
peers.BROKER = '/mnt/build/openwrt/hostlibs/ubusd'


def install_libraries(world):
    """Where the dynamic linker finds them by itself, as on a router."""
    world.write('/etc/ld.so.conf.d/bench.conf', f'{LIBRARIES}\n')
    subprocess.run(['/sbin/ldconfig', '-C', '/etc/ld.so.cache', '-X'], check=True)


@contextlib.contextmanager
def stamped_shell():
    """Meanwhile each shell notes when it starts, too."""
    usual = os.readlink('/usr/bin/sh')
    os.unlink('/usr/bin/sh')
    os.symlink(ALL_COMMANDS, '/usr/bin/sh')
    try:
        yield
    finally:
        os.unlink('/usr/bin/sh')
        os.symlink(usual, '/usr/bin/sh')


def use_stamps(world):
    """From now on every command of the daemon's notes the time and does nothing else."""
    shutil.copyfile(f'{PROGRAMS}/stamp', ALL_COMMANDS + '.new')
    os.chmod(ALL_COMMANDS + '.new', 0o755)
    os.rename(ALL_COMMANDS + '.new', ALL_COMMANDS)
    if not os.path.lexists('/mnt/bin/rm'):
        os.symlink(ALL_COMMANDS, '/mnt/bin/rm')
    world.write(STAMPS, '')


def use_records():
    """From now on they are the tests' own stand-ins again."""
    shutil.copyfile('/mnt/src/tests/world/record', ALL_COMMANDS + '.new')
    os.chmod(ALL_COMMANDS + '.new', 0o755)
    os.rename(ALL_COMMANDS + '.new', ALL_COMMANDS)
    if os.path.lexists('/mnt/bin/rm'):
        os.unlink('/mnt/bin/rm')


def stamps():
    """(nanoseconds, command line) of each command since they were last forgotten."""
    with open(STAMPS, encoding='utf-8') as file:
        lines = file.read().splitlines()
    return [(int(line.split(' ', 1)[0]), line.split(' ', 1)[1]) for line in lines]


def forget_stamps():
    os.truncate(STAMPS, 0)


def wait_stamp(beginning, count=1):
    """The stamps up to the count-th command that begins so."""
    def seen():
        found = stamps()
        at = [i for i, (_, command) in enumerate(found) if command.startswith(beginning)]
        return found[:at[count - 1] + 1] if len(at) >= count else None
    return wait_for(seen, f'the command "{beginning}"')


class Kelm(Router):
    """A device whose daemon is the one to be measured: as installed, nothing preloaded."""

    def launch(self, **options):
        environment = dict(options.pop('environment', None) or {})
        environment.setdefault('LD_PRELOAD', '')
        daemon = super().launch(environment=environment, **options)
        assert os.path.samefile(f'/proc/{daemon.pid}/exe', daemon_run.PROGRAM)
        return daemon


class Contender:
    """A program that is attached to a control socket of its own, as the daemon is to hostapd's."""

    def __init__(self, name, command):
        """command: told the name of the interface and its socket's folder."""
        self.folder = f'{BENCH_RUN}/{name}'
        self.server = peers.ControlServer(f'{self.folder}/wlan1')
        self.process = subprocess.Popen(command(self.folder), stdin=subprocess.DEVNULL,
                                        stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        self.server.wait_attached()

    @property
    def pid(self):
        return self.process.pid

    def close(self):
        self.process.terminate()
        self.process.wait(10)
        self.server.close()


class PressFloor:
    """The least that waits for the button. Maps the OpenWrt libraries, as other daemons do."""

    def __init__(self, commands):
        self._process = subprocess.Popen(
            [f'{PROGRAMS}/press_floor', *commands], stdin=subprocess.DEVNULL,
            stdout=subprocess.PIPE)
        assert self._process.stdout.readline() == b'ready\n'

    def close(self):
        self._process.terminate()
        self._process.wait(10)
        self._process.stdout.close()


def event_floor(commands, name='floor'):
    return Contender(name, lambda folder: [
        f'{PROGRAMS}/event_floor', f'{folder}/own', f'{folder}/wlan1', 'WPS-REG-SUCCESS',
        *commands])


def action_cli(program, commands, name='hostapd_cli'):
    """hostapd_cli with a script that runs the commands."""
    script = f'/mnt/{name}.action'
    with open(script, 'w', encoding='utf-8') as file:
        file.write('#!/bin/sh\n[ "$2" = WPS-REG-SUCCESS ] || exit 0\n' + '\n'.join(commands) + '\n')
    os.chmod(script, 0o755)
    return Contender(name, lambda folder: [program, '-p', folder, '-i', 'wlan1', '-a', script])


def pause(seconds):
    """For what was started before to come to rest."""
    time.sleep(seconds)
