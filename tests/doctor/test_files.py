# SPDX-License-Identifier: ISC
"""What lies in /tmp: what bars a start or a press, room, and files that somebody has planted."""
import os
import time

import pytest

import world as private_world
from doctor import examine, told
from stock import ROOT
from test_settings_files import do, fault, ok, warning
from whole import pid_in_file

PID = '/tmp/kelm.pid'
MARKER = '/tmp/wifid_is_starting'
# No kernel gives a process this number.
DEAD = 4194305
BARS = f'it bars each start of kelm; rm -f {PID}'


# The pid file

def test_the_pid_file_of_the_daemon_that_runs(router):
    assert told(router, 'pid-file') == ok(f'{PID} has the number of the kelm that runs')


def test_the_pid_file_of_a_dead_process(router):
    router.write(PID, f'{DEAD}\n')
    assert told(router, 'pid-file') == fault(
        f'{PID} has the number {DEAD} of a process that is gone, and {BARS}')


def test_the_pid_file_of_another_program(router):
    router.write(PID, f'{router.start("exec sleep 1000").pid}\n')
    assert told(router, 'pid-file') == fault(
        f'{PID} has the number {router.read(PID).strip()}, which is "sleep" by now, and {BARS}')


# What stands there, once no daemon does; what is told.
PID_FILES = {
    'none': (':', ok(f'there is no {PID}, so nothing bars a start')),
    'empty': (f': > {PID}', fault(f'{PID} holds no process number, and {BARS}')),
    'a word': (f'echo kelm > {PID}', fault(f'{PID} holds no process number, and {BARS}')),
    'two numbers': (f'echo 1 2 > {PID}', fault(f'{PID} holds no process number, and {BARS}')),
    'below zero': (f'echo -1 > {PID}', fault(f'{PID} holds no process number, and {BARS}')),
    'huge': (f'head -c 9000000 /dev/zero | tr "\\0" 7 > {PID}', fault(
        f'{PID} has the number {"7" * 32} of a process that is gone, and {BARS}')),
    'a folder': (f'mkdir {PID}', fault(
        f'{PID} is a folder, which bars each start of kelm; rm -rf {PID}')),
    'a FIFO': (f'mkfifo {PID}', fault(
        f'{PID} is a FIFO, which bars each start of kelm; rm -rf {PID}')),
    'a link': (f'ln -s /tmp/wps.conf {PID}', fault(
        f'{PID} is a link, which bars each start of kelm; rm -rf {PID}')),
    "a stranger's": (f'echo 1 > {PID}; chown 1000 {PID}', warning(
        f'{PID} belongs to user 1000: kelm moves it aside at its next start; find out who made '
        'it')),
}


def end_daemon(router):
    pid = pid_in_file(router)
    os.kill(pid, 9)
    private_world.wait_for(lambda: not os.path.exists(f'/proc/{pid}/exe'), 'the end of the daemon')
    router.remove(PID)


@pytest.mark.parametrize('row', PID_FILES)
def test_what_stands_under_the_name_of_the_pid_file(router, row):
    end_daemon(router)
    do(router, PID_FILES[row][0])
    assert told(router, 'pid-file') == PID_FILES[row][1]


def test_a_pid_file_of_a_start_that_goes_on(router):
    router.write(PID, '')
    assert told(router, 'pid-file') == warning(
        f'{PID} is empty: kelm starts at this moment, or had no room for its number; look again')


# The start marker

NONE = ok(f'no {MARKER} keeps kelm from taking a press')
STARTS = warning(f'{MARKER} says that the wireless is starting: kelm takes no press; wait until it '
                 'is gone')
LEFT = fault(f'{MARKER} was left behind 10 minutes ago: kelm takes no press; rm -f {MARKER}')
MARKERS = {
    'none': (':', NONE),
    'new': (f': > {MARKER}', STARTS),
    'left behind': (f': > {MARKER}; touch -d @{{then}} {MARKER}', LEFT),
    'a FIFO that was left behind': (f'mkfifo {MARKER}; touch -d @{{then}} {MARKER}', LEFT),
    'a link': (f': > /tmp/x; ln -s x {MARKER}', STARTS),
    'a folder': (f'mkdir {MARKER}', NONE),
    'a link to nothing': (f'ln -s nothing {MARKER}', NONE),
    "a stranger's": (f': > {MARKER}; chown 1000 {MARKER}', NONE),
    'a hard link': (f': > {MARKER}; ln {MARKER} /tmp/x', NONE),
}


@pytest.mark.parametrize('row', MARKERS)
def test_the_start_marker(maker, row):
    script, expected = MARKERS[row]
    do(maker, script.format(then=int(time.time()) - 630))
    assert told(maker, 'start-marker') == expected


@pytest.mark.parametrize('uptime, expected', [('119.99 30.00', STARTS), ('120.00 30.00', LEFT)])
def test_a_marker_that_looks_old_since_the_clock_was_set_at_boot(maker, uptime, expected):
    maker.write('/mnt/uptime', f'{uptime}\n')
    do(maker, f': > {MARKER}; touch -d @{int(time.time()) - 630} {MARKER}')
    private_world.mount(f'{ROOT}/mnt/uptime', f'{ROOT}/proc/uptime', flags=private_world.MS_BIND)
    try:
        assert told(maker, 'start-marker') == expected
    finally:
        private_world.unmount(f'{ROOT}/proc/uptime')


# Room

@pytest.mark.parametrize('free, result, text', [
    (40, 'fault', '40 KiB are free in /tmp: what is learnt cannot be stored; remove what nobody '
                  'needs'),
    (400, 'warning', '400 KiB are free in /tmp, and with less what is learnt cannot be stored; '
                     'remove what nobody needs'),
    (600, 'ok', '600 KiB are free in /tmp'),
])
def test_room_in_tmp(maker, free, result, text):
    """A /tmp of its own size over the one that is there; what the checks need is moved there."""
    os.mkdir(f'{ROOT}/old')
    private_world.mount(f'{ROOT}/tmp', f'{ROOT}/old', flags=private_world.MS_BIND)
    private_world.mount('tmpfs', f'{ROOT}/tmp', 'tmpfs', 0, f'mode=1777,size={free}k')
    try:
        assert told(maker, 'tmp-room', '', '--face maker') == [(result, text)]
    finally:
        private_world.unmount(f'{ROOT}/tmp')


def test_a_full_tmp(maker):
    private_world.mount('tmpfs', f'{ROOT}/tmp', 'tmpfs', 0, 'mode=1777,size=64k')
    try:
        maker.run('head -c 100000 /dev/zero > /tmp/filler')
        assert told(maker, 'tmp-room', '', '--face maker') == fault(
            '0 KiB are free in /tmp: what is learnt cannot be stored; remove what nobody needs')
    finally:
        private_world.unmount(f'{ROOT}/tmp')


@pytest.mark.parametrize('lines, result, text', [
    ('MemTotal: 60000 kB\nMemFree: 900 kB\nMemAvailable: 1500 kB\n', 'fault',
     '1500 KiB of memory are free: commands cannot be run, and the kernel may end kelm; end what '
     'nobody needs'),
    ('MemFree: 900 kB\nMemAvailable: 5000 kB\n', 'warning',
     '5000 KiB of memory are free, and with less commands cannot be run, and the kernel may end '
     'kelm; end what nobody needs'),
    ('MemFree: 900 kB\nMemAvailable: 20000 kB\n', 'ok', '20000 KiB of memory are free'),
    ('MemFree: 20000 kB\n', 'ok', '20000 KiB of memory are free'),
    ('', 'warning', 'how many KiB of memory are free cannot be told; look at df and /proc/meminfo'),
])
def test_memory(maker, lines, result, text):
    maker.write('/mnt/meminfo', lines)
    private_world.mount(f'{ROOT}/mnt/meminfo', f'{ROOT}/proc/meminfo', flags=private_world.MS_BIND)
    try:
        assert told(maker, 'memory') == [(result, text)]
    finally:
        private_world.unmount(f'{ROOT}/proc/meminfo')


@pytest.mark.parametrize('script, expected', [
    (':', ok('/tmp is sticky: nobody takes the files of others away')),
    ('chmod 777 /tmp', fault('others may take away the files of kelm in /tmp, which is not sticky; '
                             'chmod 1777 /tmp')),
    ('chmod 755 /tmp', ok('nobody but root may write to /tmp')),
    ('chown 1000 /tmp', fault('/tmp belongs to user 1000, who may take away any file there; chown '
                              'root /tmp')),
])
def test_the_folder(maker, script, expected):
    do(maker, script)
    assert told(maker, 'tmp-folder') == expected


def test_a_folder_that_cannot_be_written_to(maker):
    private_world.mount('tmpfs', f'{ROOT}/tmp', 'tmpfs', private_world.MS_RDONLY, 'mode=1777')
    try:
        assert told(maker, 'tmp-folder', '', '--face maker') == fault(
            '/tmp cannot be written to, and kelm has its files there; mount a tmpfs')
    finally:
        private_world.unmount(f'{ROOT}/tmp')


def test_device_info_where_nothing_can_be_written(maker):
    maker.run('mkdir /mnt/ro')
    private_world.mount('tmpfs', f'{ROOT}/mnt/ro', 'tmpfs', 0, 'mode=755')
    try:
        maker.run('mv /tmp/device.info /mnt/ro; ln -s /mnt/ro/device.info /tmp')
        private_world.mount(None, f'{ROOT}/mnt/ro', None,
                            private_world.MS_REMOUNT | private_world.MS_RDONLY)
        assert told(maker, 'settings-bands') == fault(
            '/tmp/device.info cannot be written to, and then it counts as missing: kelm does not '
            'start; put it where root may write')
    finally:
        private_world.unmount(f'{ROOT}/mnt/ro')


# Files under the daemon's names

OWN = ok("what has a name of the files of kelm in /tmp is root's alone")
AP = '/tmp/wps_wifi_ap.txt'
INFO = '/tmp/kelm.info'
REPLACED = 'kelm replaces it, but a script may believe it; find out who made it, and'
PLANTED = {
    'nothing': (':', OWN),
    "the daemon's own": (f'umask 077; echo {{}} > {AP}; umask 022; echo {{}} > {INFO}', OWN),
    "a stranger's file": (f': > {AP}; chown 1000 {AP}', warning(
        f'{AP} is a file of user 1000, who is not root: {REPLACED} rm -rf {AP}')),
    "a stranger's link": (f'ln -s /etc/shadow {INFO}; chown -h 1000 {INFO}', warning(
        f'{INFO} is a link of user 1000, who is not root: {REPLACED} rm -rf {INFO}')),
    "a stranger's folder beside it": (f'mkdir {AP}.new; chown 1000 {AP}.new', warning(
        f'{AP}.new is a folder of user 1000, who is not root: {REPLACED} rm -rf {AP}.new')),
    'a folder': (f'mkdir {INFO}', warning(
        f'{INFO} is a folder and no file: kelm replaces it; rm -rf {INFO}')),
    'a FIFO': (f'mkfifo {INFO}', warning(
        f'{INFO} is a FIFO and no file: kelm replaces it; rm -rf {INFO}')),
    'a link': (f'ln -s /etc/shadow {AP}', warning(
        f'{AP} is a link and no file: kelm replaces it; rm -rf {AP}')),
    'a second name': (f'umask 077; : > {AP}; ln {AP} /tmp/x', warning(
        f'{AP} has a second name (a hard link): kelm replaces it; rm -f {AP}')),
    'others may write': (f': > {INFO}; chmod 666 {INFO}', warning(
        f'others than root may write to {INFO}; chmod go-w {INFO}')),
    'others may read a key': (f': > {AP}; chmod 640 {AP}', warning(
        f'others than root may read {AP}, which holds passphrases; chmod 600 {AP}')),
    'others may read a copy': (': > /tmp/wps_wifi_sta.bak', warning(
        'others than root may read /tmp/wps_wifi_sta.bak, which holds passphrases; chmod 600 '
        '/tmp/wps_wifi_sta.bak')),
    'a scan result': (': > /tmp/wifi_scan_6g.result; chmod 622 /tmp/wifi_scan_6g.result', warning(
        'others than root may write to /tmp/wifi_scan_6g.result; chmod go-w '
        '/tmp/wifi_scan_6g.result')),
    "a stranger's socket": (': > /tmp/wpa_ctrl_1-1; chown 1000 /tmp/wpa_ctrl_1-1', warning(
        '"/tmp/wpa_ctrl_1-1" is a file of user 1000, who is not root; find out who made it')),
    'a name with a line feed': (': > "/tmp/wpa_ctrl_a\nb"; chown 1000 /tmp/wpa*', warning(
        '"/tmp/wpa_ctrl_a\nb" is a file of user 1000, who is not root; find out who made it')),
    'of a process that lives': (': > /tmp/wpa_ctrl_1-1', OWN),
}


@pytest.mark.parametrize('row', PLANTED)
def test_what_is_planted(maker, row):
    do(maker, PLANTED[row][0])
    assert told(maker, 'file-owners') == PLANTED[row][1]


def test_sockets_of_dead_processes(maker):
    do(maker, f': > /tmp/wpa_ctrl_{DEAD}-1; : > /tmp/wpa_ctrl_{DEAD}-2')
    assert told(maker, 'file-owners') == warning(
        '2 sockets of processes that are gone are left as /tmp/wpa_ctrl_NUMBER; something was '
        'killed: remove them')


def test_a_flood_of_sockets_does_not_hold_it(maker):
    do(maker, 'i=0; while [ $i -lt 3000 ]; do : > /tmp/wpa_ctrl_$i-1; i=$((i + 1)); done; '
              'chown 1000 /tmp/wpa_ctrl_*')
    before = time.monotonic()
    assert len(told(maker, 'file-owners')) == 100
    assert time.monotonic() - before < 30


def everything(router):
    """What is there, and when it was changed: of all that the router's root folder holds."""
    found = {}
    for folder, folders, names in os.walk(ROOT):
        folders[:] = [name for name in folders if f'{folder}/{name}' not in SKIPPED]
        for name in names + folders:
            there = os.lstat(f'{folder}/{name}')
            found[f'{folder}/{name}'] = (there.st_mode, there.st_uid, there.st_size,
                                         there.st_mtime_ns, there.st_nlink, there.st_ino)
    return found


SKIPPED = {f'{ROOT}/{name}' for name in ('proc', 'lib', 'lib64', 'mnt', 'dev')}


def test_nothing_is_written_and_nothing_left_running(router):
    processes = router.processes()
    before = everything(router)
    assert examine(router).status == 0
    assert everything(router) == before
    assert router.processes() == processes


def test_what_another_user_cannot_see_is_no_fault(maker):
    if os.geteuid() != 0:
        pytest.skip('only root can become another user')
    maker.run('chmod 700 /var/run/ubus /var/run/ubus/ubus.sock /var/run/ubus.sock')
    maker.write('/etc/passwd', 'other:x:1000:1000::/:/bin/sh\n')
    result = maker.run('start-stop-daemon -S -c 1000:1000 -x /usr/sbin/kelm-doctor')
    assert [line for line in result.out.splitlines() if line.startswith('fault')] == []
    assert (result.status, result.err) == (1, '')
    for text in ('/tmp/wps.conf cannot be read', 'ubus cannot be asked',
                 'whether kelm runs cannot be seen'):
        assert f'warning           {text} by this user; run kelm-doctor as root\n' in result.out
