# SPDX-License-Identifier: ISC
"""Programs and peers that hang: none holds the daemon, whatever it is told meanwhile."""
import fcntl
import os
import signal
import time

import pytest

from daemon_run import NO_CRASH_REPORTS, outside
from fault_steps import PBC, RESTART, begin, start
from peers import BUS_COMMAND
from router import REPEATER_MODE, hostapd_cli, ubus_send
from world import wait_for

# What a stand-in does that hangs.
HANG = 'echo hangs >>/mnt/log/hung\nexec sleep 300\n'
HUNG = '/mnt/log/hung'
# What the daemon is to take from SIGTERM to its end: two seconds, and five where the peers that it
# says good-bye to hang as well. A machine that has other things to do may take longer.
ENDS_S, ENDS_WITH_HUNG_PEERS_S = 2 + 3, 5 + 3
TIME_OUT_S = 125


def wait_hung(router, count=1):
    """Until so many commands hang."""
    wait_for(lambda: (router.world.read(HUNG) or '').count('hangs') >= count,
             'a command that hangs')


def end_hung(router, within):
    """SIGTERM ends the daemon in time, with nothing left behind."""
    begun = time.monotonic()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert time.monotonic() - begun < within
    router.assert_no_traces()


def said(router, what, why, command):
    """Whether a line says that a command was not waited for any longer."""
    return any(line.startswith(f'{what} after ') and line.endswith(f' s ({why}): {command}')
               for line in router.console.lines())


def start_repeater(router):
    router.configure(mode=REPEATER_MODE, stations=3)
    for band in ('2g', '5g'):
        router.set_link(band, 0)
    router.start(bands=(), stations=('2g', '5g'))


@pytest.mark.parametrize('program, command', [
    ('killall', 'killall wpa_cli'),
    ('nvram', 'nvram get multiap_mode'),
    ('hostapd_cli', hostapd_cli('2g', 'wps_pbc'))], ids=['killall', 'nvram', 'hostapd_cli'])
def test_sigterm_ends_the_daemon_while_a_command_of_a_press_hangs(router, program, command):
    start(router)
    router.world.reply(program, HANG)
    router.press(poke=False)
    wait_hung(router)
    end_hung(router, ENDS_WITH_HUNG_PEERS_S if program == 'hostapd_cli' else ENDS_S)
    assert said(router, 'killed', 'the daemon ends', command)


def begin_scan(router):
    """A repeater's attempt with one band through; the scan that follows hangs."""
    start_repeater(router)
    router.press_and_wait_started()
    router.settle()
    router.world.reply('/usr/bin/wifi', f'[ "$1 $2" != "scan 2g" ] || {{ {HANG} }}')
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    wait_hung(router)


def test_sigterm_ends_the_daemon_while_a_scan_hangs(router):
    begin_scan(router)
    end_hung(router, ENDS_S)
    assert said(router, 'killed', 'the daemon ends', '/usr/bin/wifi scan 2g')


def test_a_scan_that_hangs_ends_with_the_attempt(router):
    begin_scan(router)
    router.world.shift_time(TIME_OUT_S + 1)
    assert router.end() == 0
    assert said(router, 'killed', 'the attempt ends', '/usr/bin/wifi scan 2g')
    router.assert_no_traces()


def test_sigterm_leaves_a_script_running_that_hangs(router):
    """One that is killed half-way has configured half of the device."""
    router.configure(secured=(0, 0, 0, 0))
    begin(router)
    router.world.reply('/etc/init.d/wps', 'echo hangs >>/mnt/log/hung\n'
                       'while [ ! -e /mnt/log/go_on ]; do sleep 0.1; done\necho >/mnt/log/done\n')
    router.world.write('/tmp/run/hostapd-wlan1.conf', 'ssid=Home\n')
    router.hostapd['2g'].send('<3>WPS-NEW-AP-SETTINGS ')
    wait_hung(router)
    end_hung(router, ENDS_S)
    assert said(router, 'left running', 'the daemon ends', '/etc/init.d/wps config_wifi')
    assert router.published[-1] == (2, 4, 4, 0)
    router.world.write('/mnt/log/go_on', '')
    wait_for(lambda: os.path.exists('/mnt/log/done'), 'the end of the script')


def test_sigterm_leaves_the_restart_running_that_hangs(router):
    begin(router)
    router.world.reply('/etc/init.d/wps', HANG)
    for band in ('2g', '5g'):
        router.hostapd[band].send('<3>WPS-TIMEOUT ')
    wait_hung(router)
    assert not os.path.exists('/tmp/kelm.pid')
    end_hung(router, ENDS_S)
    assert said(router, 'left running', 'the daemon ends', RESTART)


def test_sigterm_ends_the_daemon_when_every_peer_hangs(router):
    """Each gets its part of five seconds, so that the last is asked too."""
    begin(router)
    router.silence_hostapd()
    router.world.reply('hostapd_cli', HANG)
    router.world.reply('ubus', HANG)
    end_hung(router, ENDS_WITH_HUNG_PEERS_S)
    assert router.commands()[-1] == ubus_send(2, 4, 4)


def test_sigterm_publishes_though_hostapd_hangs(router):
    """Commands and control sockets: it took ten seconds each, eighty in all."""
    begin(router)
    router.silence_hostapd()
    router.world.reply('hostapd_cli', HANG)
    end_hung(router, ENDS_WITH_HUNG_PEERS_S)
    assert router.published[-1] == (2, 4, 4, 0)
    assert said(router, 'killed', 'the daemon ends', hostapd_cli('2g', 'wps_cancel'))
    assert said(router, 'killed', 'the daemon ends', hostapd_cli('5g', 'wps_ap_pin disable'))


def test_sigterm_ends_an_idle_daemon_whose_hostapd_answers_nothing(router):
    start(router)
    router.silence_hostapd()
    end_hung(router, ENDS_S)


def test_sigterm_ends_a_start_that_waits_for_hostapd(router):
    router.start_bus()
    router.add_hostapd('2g', '5g', replies={'ATTACH': []})
    router.launch()
    wait_for(lambda: router.hostapd['2g'].requests == ['ATTACH'], 'the request')
    begun = time.monotonic()
    router.daemon.send(signal.SIGTERM)
    assert router.daemon.wait_exit(poke=False) == 255
    assert time.monotonic() - begun < ENDS_S
    router.assert_no_traces()


def test_an_attempt_ends_in_time_though_a_command_hangs(router):
    begin(router)
    router.settle()
    router.world.reply('/etc/init.d/wps', HANG)
    router.world.write('/tmp/run/hostapd-wlan1.conf', 'ssid=Home\n')
    router.hostapd['2g'].send('<3>WPS-NEW-AP-SETTINGS ')
    wait_hung(router)
    router.world.shift_time(TIME_OUT_S + 1)
    wait_for(lambda: said(router, 'left running', 'the attempt ends',
                          '/etc/init.d/wps config_wifi'), 'the end of the wait')
    wait_for(lambda: (2, 4, 4, 0) in router.events(), 'the outcome')
    wait_hung(router, 2)
    end_hung(router, ENDS_S)


def test_a_publication_that_is_killed_is_told(router):
    start(router)
    router.world.reply('ubus', HANG)
    router.press_and_wait_started(poke=False)
    router.request(action=2)
    wait_hung(router)
    wait_for(lambda: any(line.startswith('killed after 3 s (its time limit): ubus send wps ')
                         for line in router.console.lines()), 'the line')
    router.world.reply('ubus', f'exec {BUS_COMMAND} "$@"\n')
    router.settle()
    router.end_by_sigterm()


def test_a_child_that_keeps_the_pipe_of_nvram_open_holds_nothing(router):
    start(router)
    router.world.reply('nvram', 'sleep 300 &\necho 1\n')
    router.press_and_wait_started()
    assert [line for line in router.commands() if line in PBC] == PBC
    router.end_by_sigterm()


@pytest.mark.parametrize('number', [signal.SIGQUIT, signal.SIGALRM, signal.SIGABRT, signal.SIGSEGV,
                                    signal.SIGBUS, signal.SIGFPE, signal.SIGILL, signal.SIGTRAP,
                                    signal.SIGSYS, signal.SIGXFSZ, signal.SIGRTMIN + 10])
def test_a_signal_that_ends_the_daemon_takes_the_pid_file_along(router, number):
    start(router, environment=NO_CRASH_REPORTS)
    router.daemon.send(number)
    assert router.daemon.wait_exit(poke=False) == -outside(number)
    assert not os.path.exists('/tmp/kelm.pid')


def test_a_signal_that_ends_the_daemon_in_its_restart_leaves_the_next_ones_pid_file(router):
    """The restart script starts the next daemon while this one waits for the script."""
    begin(router, environment=NO_CRASH_REPORTS)
    router.world.reply('/etc/init.d/wps', HANG)
    for band in ('2g', '5g'):
        router.hostapd[band].send('<3>WPS-TIMEOUT ')
    wait_hung(router)
    router.world.write('/tmp/kelm.pid', '4242\n')
    router.daemon.send(signal.SIGQUIT)
    assert router.daemon.wait_exit(poke=False) == -signal.SIGQUIT
    assert router.world.read('/tmp/kelm.pid') == '4242\n'


def lock_uci(router, package):
    """Another program that keeps the lock of a package while the returned file is open."""
    path = f'/etc/config/{package}'
    if not os.path.exists(path):
        router.world.write(path, "config wifi 'settings'\n\toption mesh_enable 'on'\n")
    file = open(path, 'r+', encoding='utf-8')
    fcntl.flock(file, fcntl.LOCK_EX)
    return file


def test_a_uci_file_that_stays_locked_does_not_hold_an_attempt(router):
    start_repeater(router)
    with lock_uci(router, 'wificommonCfg'):
        router.press_and_wait_started()
        assert ('uci: wificommonCfg is locked by another program, read as empty'
                in router.console.lines())
        for band in ('2g', '5g'):
            router.supplicant[band].send('<3>WPS-TIMEOUT ')
        assert router.end() == 0
    assert router.published[-1] == (2, 4, 4, 0)
    router.assert_no_traces()


def test_a_uci_file_that_stays_locked_does_not_hold_a_request_to_end(router):
    start_repeater(router)
    with lock_uci(router, 'wificommonCfg'):
        router.press()
        end_hung(router, ENDS_S)


def test_a_uci_file_that_is_locked_for_a_moment_is_read(router):
    """As when another program writes it, which is what the lock is for."""
    start_repeater(router)
    lock = lock_uci(router, 'wificommonCfg')
    router.press(poke=False)
    time.sleep(0.3)
    lock.close()
    wait_for(lambda: router.world.read('/tmp/wpsactive') == '1\n', 'the start of the attempt')
    assert not any('is locked' in line for line in router.console.lines())
    assert any('multi_ap=2' in command for command in router.commands())
    router.end_by_sigterm()
