# SPDX-License-Identifier: ISC
"""Signals: what each does, when it may come in, and what the daemon's children see of them."""
import os
import signal
import time

import pytest

from daemon_run import HELD_SIGNALS, SIG_NEW_CONFIG, is_built_with_musl
from router import REPEATER_MODE, dump_lines, hostapd_cli, publication_lines, ubus_send
from world import wait_for

AP_ON = ('APBSS_ENABLE',)
RUNNING = ('APBSS_ENABLE', 'WORKER_LAUNCH')
PIN_OFF = [hostapd_cli('2g', 'wps_ap_pin disable'), hostapd_cli('5g', 'wps_ap_pin disable')]
CANCEL = [hostapd_cli('2g', 'wps_cancel'), hostapd_cli('5g', 'wps_cancel')]
# A stand-in that runs until the test lets it go.
WAIT_FOR_GO = 'while [ ! -e /tmp/go ]; do sleep 0.02; done\n'
NOTE_SIGNALS = 'grep -E "^Sig(Blk|Ign)" /proc/self/status >>/mnt/log/signals\n'
# Found without a redirection, which would show in what is found.
NOTE_DESCRIPTORS = '''held=
for number in 0 1 2 3 4 5 6 7 8 9; do
    place=/proc/$$/fd/$number
    [ -e $place ] || continue
    kind=other
    [ $place -ef /dev/null ] && kind=null
    [ -p $place ] && kind=pipe
    held="$held $number:$kind"
done
echo "$name$held" >>/mnt/log/descriptors
'''
NOTE_UMASK = 'umask >>/mnt/log/umask\n'
CRASH_SIGNALS = (signal.SIGSEGV, signal.SIGBUS, signal.SIGFPE, signal.SIGILL, signal.SIGTRAP,
                 signal.SIGABRT, signal.SIGSYS)
# The C library's own signals, which its posix_spawn and system() switch off in a child.
GLIBC_SIGNALS = 1 << 32 - 1 | 1 << 33 - 1
MUSL_SIGNALS = GLIBC_SIGNALS | 1 << 34 - 1
ALL_STAND_INS = ('hostapd_cli', 'nvram', 'killall', '/etc/init.d/wps', '/etc/init.d/wifi')


def library_signals():
    return MUSL_SIGNALS if is_built_with_musl() else GLIBC_SIGNALS


def idle_dump(flag_word=0):
    return [*dump_lines(0, 'wlan1', 0, AP_ON, 10), *dump_lines(1, 'wlan0', 0, AP_ON, 20),
            f'global_wps_flags: {flag_word:08x}']


def signal_and_wait(router, number, last_line):
    router.console.forget()
    router.daemon.send(number)
    router.wait_line(last_line, poke=False)
    return router.console.lines()


def raise_level_to_detail(router):
    """Three signals, one after the other, since equal pending ones would count as one."""
    for _ in range(3):
        signal_and_wait(router, signal.SIGUSR1, 'global_wps_flags: 00000000')
    router.console.forget()


def test_sigusr1_raises_the_level_and_dumps_the_sessions(router):
    router.start()
    assert signal_and_wait(router, signal.SIGUSR1, 'global_wps_flags: 00000000') == idle_dump()
    assert router.daemon.is_running()


def test_sigusr2_lowers_the_level_below_the_dump_it_makes(router):
    router.start()
    router.daemon.send(signal.SIGUSR2)
    router.settle_silently()
    router.daemon.send(signal.SIGUSR2)
    router.settle_silently()
    # Level 2: no trace of a request, nor of the dump, but errors still show.
    router.bus.send('gpio')
    router.wait_line('Invalid action.')
    assert router.console.lines() == ['Invalid action.']
    router.console.forget()
    for expected in ([], idle_dump()):
        router.daemon.send(signal.SIGUSR1)
        router.settle_silently()
        assert router.console.lines() == expected


def test_level_seven_shows_the_detail(router):
    router.start()
    raise_level_to_detail(router)
    router.press_and_wait_started()
    lines = router.console.lines()
    assert lines.count('-------wpa_aupplicant socket deinit OK!') == 2
    assert lines.count('eventCtrl attach success') == 2
    assert 'multiap_mode = 0' in lines
    assert 'wps session start [0] [kelm_flags: 0x00000012]' in lines


def test_signal_42_does_nothing(router):
    router.start()
    before = router.commands()
    for _ in range(3):
        router.daemon.send(SIG_NEW_CONFIG)
        time.sleep(0.05)
    assert router.daemon.is_running()
    assert router.console.lines() == []
    assert router.commands() == before


def test_sigterm_while_idle_withdraws_wps_and_ends(router):
    router.start()
    router.world.forget_commands()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    # An access point always publishes its cancel, here with nothing to tell; the end is not told.
    assert router.published == [(2, 0, 0, 0)]
    assert router.commands() == [ubus_send(2, 0, 0), *PIN_OFF]
    assert 'WPS is processing, close it anyway.' not in router.console.lines()
    assert os.path.lexists('/tmp/kelm.pid') is False


def test_sigterm_to_an_idle_repeater_neither_cancels_nor_touches_pins(router):
    router.configure(mode=REPEATER_MODE)
    router.start(bands=())
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.commands() == []
    assert router.published == []
    assert router.console.lines() == []


def test_sigterm_in_mid_attempt_cancels_and_publishes_the_time_out(router):
    router.start()
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.commands() == [
        *CANCEL, ubus_send(2, 12, 12), *PIN_OFF, ubus_send(2, 4, 4)]
    assert router.published == [(2, 12, 12, 0), (2, 4, 4, 0)]
    assert router.console.lines() == [
        *CANCEL,
        *publication_lines(2, 12, 12),
        *PIN_OFF,
        'WPS is processing, close it anyway.',
        *publication_lines(2, 4, 4),
        'stop wps action.',
        'wps session done [band 0] [kelm_flags: 0x00000012].',
        'stop wps action.',
        'wps session done [band 1] [kelm_flags: 0x00000012].',
    ]


def test_sigterm_reports_a_silent_band_as_silent(router):
    router.configure(available=1)
    router.start(bands=('2g',))
    router.press_and_wait_started()
    router.events()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.published == [(2, 12, 0, 0), (2, 4, 12, 0)]


def test_a_signal_during_a_command_is_handled_after_the_request_is_done(router):
    router.start()
    router.world.reply('hostapd_cli', f'case "$*" in *wps_pbc) {WAIT_FOR_GO};; esac\n')
    router.press()
    router.wait_command(hostapd_cli('2g', 'wps_pbc'))
    router.world.forget_commands()
    router.console.forget()
    router.daemon.send(signal.SIGTERM)
    router.daemon.send(signal.SIGUSR1)
    time.sleep(0.3)
    assert router.commands() == []
    assert router.console.lines() == []
    router.world.write('/tmp/go', '')
    assert router.end(poke=False) == 0
    # The second band's start comes first: the request is whole before any signal is looked at.
    assert router.commands() == [
        hostapd_cli('5g', 'wps_pbc'), *CANCEL, ubus_send(2, 12, 12), *PIN_OFF, ubus_send(2, 4, 4)]
    assert any(line.startswith('global_wps_flags: ') for line in router.console.lines())


def test_the_signals_are_held_back_except_in_the_wait(router):
    """Seen from outside while a command runs, on the main thread and on the other."""
    router.start()
    router.world.reply('hostapd_cli', f'case "$*" in *wps_pbc) {WAIT_FOR_GO};; esac\n')
    router.press()
    router.wait_command(hostapd_cli('2g', 'wps_pbc'))
    folder = f'/proc/{router.daemon.pid}/task'
    masks = {int(task): int(router.daemon.proc_status(f'{folder}/{task}/status')['SigBlk'], 16)
             for task in os.listdir(folder)}
    router.world.write('/tmp/go', '')
    main = masks.pop(router.daemon.pid)
    assert main & HELD_SIGNALS == HELD_SIGNALS
    # The bus thread takes no signal at all, but for those that cannot be held back, and those of a
    # crash: held back they would end the daemon without a report.
    crash = sum(1 << number - 1 for number in CRASH_SIGNALS)
    unheld = 1 << signal.SIGKILL - 1 | 1 << signal.SIGSTOP - 1 | library_signals()
    everything = (1 << 64) - 1 & ~unheld & ~crash
    assert everything in [mask & ~unheld for mask in masks.values()]


def run_an_attempt_with(router, reply):
    """Every kind of child, from the main loop and from the signal handler."""
    for name in ALL_STAND_INS:
        router.world.reply(name, reply)
    router.world.reply('ubus', reply)
    router.start()
    router.press_and_wait_started()
    router.world.write('/tmp/run/hostapd-wlan1.conf', 'ssid=Home\n')
    router.hostapd['2g'].send('<3>WPS-NEW-AP-SETTINGS ')
    router.wait_command('/etc/init.d/wps config_wifi')
    router.daemon.send(signal.SIGTERM)
    assert router.end() == 0
    called = {command.split()[0] for command in router.commands()}
    assert {'hostapd_cli', 'nvram', 'killall', 'ubus', '/etc/init.d/wps'} <= called
    assert hostapd_cli('2g', 'wps_cancel') in router.commands()


def test_children_get_a_clean_signal_mask_and_no_ignored_signals(router):
    with router.world.shell('bash'):  # the usual one clears the mask itself
        run_an_attempt_with(router, NOTE_SIGNALS)
    noted = router.world.read('/mnt/log/signals').splitlines()
    assert len(noted) == 2 * len(router.commands())
    for line in noted:
        _, mask = line.split('\t')
        assert int(mask, 16) & ~library_signals() == 0, line


def test_children_get_only_the_standard_descriptors(router):
    run_an_attempt_with(router, NOTE_DESCRIPTORS)
    noted = router.world.read('/mnt/log/descriptors').splitlines()
    assert len(noted) == len(router.commands())
    # What nvram prints is read; nobody reads the others.
    assert set(noted) == {'nvram 0:null 1:pipe 2:null'} | {
        f'{name} 0:null 1:null 2:null'
        for name in ('hostapd_cli', 'killall', 'ubus', '/etc/init.d/wps')}


def test_the_bus_library_does_not_take_the_children_of_the_main_thread(router):
    """Its handler would reap every child, the main thread's commands too."""
    router.start()
    caught = int(router.daemon.proc_status()['SigCgt'], 16)
    assert caught & HELD_SIGNALS == HELD_SIGNALS
    assert caught & 1 << signal.SIGCHLD - 1 == 0


@pytest.mark.parametrize('umask', [0o022, 0o007])
def test_the_scripts_get_the_umask_that_the_daemon_was_started_with(router, umask):
    settings = 'ssid=Home\nwpa=2\nwpa_passphrase=secret123\n'
    router.world.reply('/etc/init.d/wps', NOTE_UMASK)
    router.start(umask=umask)
    router.world.write('/tmp/run/hostapd-wlan1.conf', settings)
    router.hostapd['2g'].send('<3>WPS-NEW-AP-SETTINGS ')
    router.wait_command('/etc/init.d/wps config_wifi')
    wait_for(lambda: router.world.read('/mnt/log/umask'), 'the umask')
    assert router.world.read('/mnt/log/umask') == f'{umask:04o}\n'
    assert router.world.mode('/tmp/wps_wifi_ap.txt') == 0o600


def test_events_that_wait_do_not_keep_a_signal_out(router):
    """A wait that finds a socket ready looks at no signal, so a flood could hold them back."""
    router.start()
    router.world.reply('hostapd_cli', f'case "$*" in *wps_pbc) {WAIT_FOR_GO};; esac\n')
    router.press()
    router.wait_command(hostapd_cli('2g', 'wps_pbc'))
    for _ in range(8):
        router.hostapd['2g'].send('<3>AP-STA-CONNECTED 02:00:00:00:07:00')
    router.daemon.send(signal.SIGTERM)
    router.world.write('/tmp/go', '')
    assert router.end(poke=False) == 0
    assert not any(line.startswith('processing wpsEvent') for line in router.console.lines())


def test_the_daemon_ends_within_a_pass_when_the_signal_comes_between_two(router):
    router.start()
    begin = time.monotonic()
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert time.monotonic() - begin < 2
