# SPDX-License-Identifier: ISC
"""The daemon's runs, its commands, the scripts of others; told by the kernel or seen."""
import ctypes
import os
import signal
import subprocess
import time

import pytest

from daemon_run import ForegroundDaemon
from router import CANCEL, PIN_METHOD, hostapd_cli
from world import wait_for

CLONE_NEWNET = 0x40000000
PIN = '53521118'
# A program that is over in a moment may be gone before anybody can look: these last until they are
# recorded.
UNTIL_RECORDED = 'until grep -q -- "$*" /mnt/log/recording; do sleep 0.01; done\n'


def without_connector():
    """The kernel tells of processes in the machine's own network alone."""
    assert ctypes.CDLL(None, use_errno=True).unshare(CLONE_NEWNET) == 0


def run_script(router):
    """One that is not the daemon's."""
    router.world.reply('/etc/init.d/wps', UNTIL_RECORDED.replace('"$*"', '"wps status"'))
    subprocess.run(['/etc/init.d/wps', 'status'], check=False)


@pytest.fixture(name='seen')
def start(watch):
    seen = watch()
    if not seen.wait('watch', 'kelm-watch ').endswith('the kernel tells'):
        pytest.skip('this kernel does not tell of processes, or not here')
    return seen


@pytest.fixture(name='looking')
def start_without(watch):
    seen = watch(before=without_connector)
    assert seen.wait('watch', 'kelm-watch ').endswith('by looking')
    return seen


def test_a_run_is_told_from_its_start_to_its_end(router, seen):
    router.start()
    pid = router.daemon.pid
    assert seen.wait('start', '') == f'1 daemon {pid}'
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert seen.wait('exit', '1 daemon') == f'1 daemon {pid} status 0'


def test_one_that_stays_in_the_foreground_is_told_too(router, seen):
    router.start(kind=ForegroundDaemon)
    assert seen.wait('start', '') == f'1 daemon {router.daemon.pid}'


def test_a_daemon_that_is_killed_is_told_with_its_signal(router, seen):
    router.start()
    pid = router.daemon.pid
    seen.wait('start', '1 daemon')
    router.daemon.send(signal.SIGKILL)
    assert seen.wait('exit', '1 daemon') == f'1 daemon {pid} signal 9'


def test_a_daemon_that_runs_already_is_run_one(router, watch):
    router.start()
    assert watch().wait('start', '') == f'1 daemon {router.daemon.pid}'


def test_commands_are_told_once_with_their_run_and_their_end(router, seen):
    router.start()
    router.world.reply('hostapd_cli', UNTIL_RECORDED)
    router.press_and_wait_started()
    wait_for(lambda: f'1 {hostapd_cli("5g", "wps_pbc")}' in seen.texts('command'), 'the command')
    told = [text for text in seen.texts('command') if 'wps_pbc' in text]
    assert told == [f'1 {hostapd_cli("2g", "wps_pbc")}', f'1 {hostapd_cli("5g", "wps_pbc")}']
    ended = [text for text in seen.texts('exit') if text.endswith('wps_pbc')]
    assert [text.split()[3:5] for text in ended[:1]] == [['status', '0']]
    router.request(action=CANCEL)


def test_no_pin_of_a_command_line_is_recorded(router, seen):
    router.start()
    router.world.reply('hostapd_cli', UNTIL_RECORDED.replace('"$*"', '"-i $4 $5 any"'))
    router.request(method=PIN_METHOD, pin=PIN)
    seen.wait('command', '1 hostapd_cli -p /var/run/hostapd -i wlan0 wps_pin any')
    seen.end()
    with open(seen.recording, encoding='utf-8') as recording:
        assert PIN not in recording.read()


def test_the_scripts_of_others_are_run_nought(router, seen):
    run_script(router)
    assert seen.wait('script', '') == '0 /etc/init.d/wps status'


def test_what_the_kernel_does_not_tell_is_seen_by_looking(router, looking):
    router.start()
    pid = router.daemon.pid
    assert looking.wait('start', '') == f'1 daemon {pid}'
    router.world.reply('hostapd_cli', UNTIL_RECORDED)
    router.press_and_wait_started()
    looking.wait('command', f'1 {hostapd_cli("2g", "wps_pbc")}')
    router.request(action=CANCEL)
    router.daemon.send(signal.SIGKILL)
    assert looking.wait('exit', '1 daemon') == f'1 daemon {pid} gone'


def count_processes():
    return sum(name.isdigit() for name in os.listdir('/proc'))


def reads_of(pid):
    """How many calls of read(2) it has made so far, and its processor time in ticks."""
    with open(f'/proc/{pid}/io', encoding='ascii') as file:
        calls = dict(line.split(': ') for line in file)
    with open(f'/proc/{pid}/stat', encoding='utf-8') as file:
        ticks = file.read().rpartition(')')[2].split()[11:13]
    return int(calls['syscr']), sum(map(int, ticks))


def test_looking_during_an_attempt_does_not_read_all_of_proc_each_time(router, looking):
    """A slow router has a hundred processes, and the daemon has few children."""
    if not os.path.exists('/proc/self/io'):
        pytest.skip('this kernel does not count what a process reads')
    others = [subprocess.Popen(['/bin/sleep', '600']) for _ in range(100)]
    try:
        router.start()
        looking.wait('start', '1 daemon')
        router.press_and_wait_started()
        looking.wait('file', '/tmp/wpsactive 1')
        before = reads_of(looking.pid)
        begin = time.monotonic()
        processes = 0
        while time.monotonic() < begin + 2:  # what it reads in this time is what is measured
            processes = max(processes, count_processes())
            time.sleep(0.05)
        after = reads_of(looking.pid)
        rate = (after[0] - before[0]) / (time.monotonic() - begin)
        router.request(action=CANCEL)
    finally:
        for other in others:
            other.kill()
            other.wait()
    # A few times a second all of them; fifty times the daemon's threads, for their children.
    assert rate < 8 * processes + 1000, (rate, processes, after[1] - before[1])


def test_a_stranger_that_calls_itself_kelm_is_no_daemon(router, seen):
    if os.geteuid() != 0:
        pytest.skip('only root can be another user')
    false = subprocess.Popen(['kelm'], executable='/bin/cat', user=65534, group=65534,
                             stdin=subprocess.PIPE)
    run_script(router)
    false.communicate()
    seen.wait('script', '0 ')
    assert seen.texts('start') == []
