# SPDX-License-Identifier: ISC
"""Under a supervisor: in the foreground, with the log in the system log, with another scan."""
import os
import re
import signal

import pytest

from daemon_run import ForegroundDaemon
from peers import LogDaemon
from router import REPEATER_MODE, VERSION_LINE, hostapd_cli, settings_line
from test_console import run_attempt_blindly
from test_repeater_attempt import CANCELS, STATION_FILE, learn, read_json

PIN_OFF = [hostapd_cli('2g', 'wps_ap_pin disable'), hostapd_cli('5g', 'wps_ap_pin disable')]
REG_SUCCESS = '<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid'
# The user's lines have no pid, and the level of what they tell.
OUTCOME_HEAD = re.compile(r'^(<[0-9]+>)[A-Z][a-z]{2} [ 1-3][0-9] [0-9:]{8} kelm: ')
TO_SYSTEM_LOG = {'KELM_LOG': 'syslog'}
NOTE_SWITCH = 'echo "$KELM_FOREGROUND" >>/tmp/switch\n'


@pytest.fixture
def log_daemon(router):
    """The log of everything that runs with TO_SYSTEM_LOG, where the router looks for its lines."""
    daemon = LogDaemon()
    router.console = daemon
    yield daemon
    daemon.close()


# --- In the foreground ---

def test_the_started_process_serves_the_attempt(router):
    router.start(kind=ForegroundDaemon)
    pid = router.daemon.pid
    assert router.world.read('/tmp/kelm.pid') == f'{pid}\n'
    assert (os.getsid(pid), os.getpgid(pid)) == (os.getsid(0), os.getpgid(0))
    assert [os.readlink(f'/proc/{pid}/fd/{number}') for number in (0, 1, 2)] == ['/dev/null'] * 3
    router.press_and_wait_started()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.daemon.printed() == b''
    assert router.published == [(1, 11, 11, 0), (2, 12, 12, 0), (2, 2, 4, 0)]
    assert router.commands()[-1] == '/etc/init.d/wps restart'
    router.assert_no_traces()


def test_sigterm_ends_the_started_process(router):
    router.start(kind=ForegroundDaemon)
    router.press_and_wait_started()
    router.end_by_sigterm()
    assert router.events() == []
    assert router.published[-1] == (2, 4, 4, 0)


def test_what_a_terminal_sends_to_its_group_is_not_heard(router):
    router.start(kind=ForegroundDaemon)
    for number in (signal.SIGINT, signal.SIGHUP):
        router.daemon.send(number)
    router.settle()
    router.end_by_sigterm()


def test_a_failed_start_and_a_second_one_are_told_by_the_exit_status(router):
    router.start(kind=ForegroundDaemon)
    first = router.daemon
    assert router.launch(kind=ForegroundDaemon).wait_exit(poke=False) == 255
    assert router.console.lines() == ['kelm has been started']
    router.daemon = first
    router.end_by_sigterm()
    os.unlink('/tmp/device.info')
    assert router.launch(kind=ForegroundDaemon).wait_exit(poke=False) == 255
    assert router.console.lines()[-1] == 'kelm open failed.'
    router.assert_no_traces()


def test_a_crash_takes_the_pid_file_along(router):
    router.start(kind=ForegroundDaemon)
    router.daemon.send(signal.SIGQUIT)
    assert router.end(poke=False) == -signal.SIGQUIT
    assert router.world.read('/tmp/kelm.pid') is None


def test_the_next_daemon_inherits_the_switches(router):
    router.world.reply('/etc/init.d/wps', NOTE_SWITCH)
    router.start(kind=ForegroundDaemon)
    router.press_and_wait_started()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.world.read('/tmp/switch') == '1\n'


# --- The log in the system log ---

def test_the_whole_log_goes_to_the_system_log(router, log_daemon):
    router.start(environment=TO_SYSTEM_LOG)
    assert router.start_lines == [
        VERSION_LINE, 'create ibus thread successfully', settings_line(), settings_line(),
        *PIN_OFF, 'eventCtrl open success', 'eventCtrl open success']
    router.press_and_wait_started()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    lines = log_daemon.lines()
    for line in ('processing wpsEvent[2.4G]: ' + REG_SUCCESS, hostapd_cli('2g', 'wps_pbc')):
        assert line in lines
    assert not [line for line in lines if line.startswith('without origin')]
    assert log_daemon.senders == {router.daemon.pid}
    assert [OUTCOME_HEAD.sub(r'\1', line) for line in log_daemon.others] == [
        '<29>2g WPS succeeded.', '<27>5g WPS failed.']
    assert router.world.console.text() == ''


def test_a_name_from_the_air_begins_no_line(router, log_daemon):
    router.start(environment=TO_SYSTEM_LOG)
    seen = '<3>WPS-ENROLLEE-SEEN 02:00:00:00:07:00 [a\n<30>Nov 22 09:05:07 other: \x1b[2Jb]'
    router.hostapd['2g'].send(seen)
    line = seen.replace('\n', '?').replace('\x1b', '?')
    router.wait_line(f'processing wpsEvent[2.4G]: {line}')


@pytest.mark.parametrize('environment', [{}, TO_SYSTEM_LOG], ids=['console', 'syslog'])
def test_a_log_daemon_that_hangs_does_not_hold_the_attempt(router, environment):
    log = LogDaemon(queue_length=3)
    log.fill()
    try:
        router.environment = environment
        run_attempt_blindly(router)
    finally:
        log.close()


def test_without_a_log_daemon_the_daemon_runs_a_whole_attempt(router):
    router.environment = TO_SYSTEM_LOG
    run_attempt_blindly(router)
    assert router.world.console.text() == ''


def test_lines_come_again_with_the_next_log_daemon(router, log_daemon):
    router.start(environment=TO_SYSTEM_LOG)
    log_daemon.close()
    router.press_blindly()
    log_daemon.put()
    router.settle()
    assert 'Invalid wps_cli action.' in log_daemon.lines()


# --- Another program that scans ---

def test_the_scan_that_was_chosen_serves_the_whole_attempt(router):
    scan = '/tmp/our scan'
    os.symlink('/mnt/record', scan)
    router.world.reply(scan, 'echo "[]" >"/tmp/wifi_scan_$2.result"\n')
    router.world.reply('/usr/bin/wifi', 'echo "not this one"; exit 1\n')
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    router.configure(mode=REPEATER_MODE, stations=3)
    for band in ('2g', '5g'):
        router.set_link(band, 0)
    router.start(bands=(), stations=('2g', '5g'), environment={'KELM_WIFI': scan})
    router.press_and_wait_started()
    router.world.forget_commands()
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command(f'{scan} scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert router.commands() == [
        f'{scan} scan 2g', f'{scan} getscanresult 2g', f'{scan} scan 5g',
        f'{scan} getscanresult 5g', '/etc/init.d/wps config_wifi', *CANCELS,
        '/etc/init.d/wps re_kelm_info', '/etc/init.d/wifi force_restart']
    assert f"'{scan}' scan 2g" in router.console.lines()
    assert read_json(router, STATION_FILE)['ssid_2g'] == 'Root'


@pytest.mark.parametrize('variable, value, line', [
    ('KELM_WIFI', 'wifi', 'KELM_WIFI: no absolute path of at most 255 bytes, ignored'),
    ('KELM_LOG', 'file', 'KELM_LOG: not "syslog", ignored'),
    ('KELM_FOREGROUND', 'yes', 'KELM_FOREGROUND: not "1", ignored'),
    ('KELM_CREDENTIALS', 'file', 'KELM_CREDENTIALS: not "event", ignored')])
def test_a_value_that_is_not_known_is_told_after_the_version(router, variable, value, line):
    router.start(environment={variable: value})
    assert router.start_lines[:3] == [VERSION_LINE, line, 'create ibus thread successfully']
