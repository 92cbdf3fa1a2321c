# SPDX-License-Identifier: ISC
"""A local user goes for the files in /tmp: to be believed, to be written for, to read secrets."""
import json
import os

import pytest

from router import AP_MODE, REPEATER_MODE
from stranger import UID
from test_path_safety import VICTIMS, prepare, press_and_succeed, start

SECRET = 'rootsecret'
FORGED = '{"ssid_5g":"Forged","security_5g":"none"}'
BACKUPS = ('wps_wifi_sta.bak', 'wps_wifi_ap.bak')
CREDENTIALS = {AP_MODE: ('wps_wifi_ap.txt',),
               REPEATER_MODE: ('wps_wifi_ap.txt', 'wps_wifi_sta.txt')}
STATUS_FILES = ('wps_result', 'kelm.info', 'wpsactive')
VICTIM = f'{VICTIMS}/precious'
SCAN_RESULT = '/tmp/wifi_scan_5g.result'
MODES = pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['ap', 'repeater'])


def put_victim(router):
    router.world.write(VICTIM, 'precious')
    os.chmod(VICTIM, 0o600)


def readable_texts():
    """All that the stranger can read in /tmp; what the Wi-Fi daemons show is their own affair."""
    found = []
    for folder, folders, names in os.walk('/tmp'):
        folders[:] = [name for name in folders if name != 'run']
        for name in names:
            try:
                with open(f'{folder}/{name}', encoding='utf-8', errors='replace') as file:
                    found.append(file.read())
            except OSError:
                continue
    return ''.join(found)


def run_attempt(router, mode):
    """A whole attempt that succeeds; what the configuration script would apply is kept."""
    prepare(router, mode)
    router.world.reply('/etc/init.d/wps', '[ "$1" != config_wifi ] || '
                       'cat /tmp/wps_wifi_*.txt >/mnt/log/applied 2>/dev/null\n')
    start(router, mode)
    press_and_succeed(router, mode)
    assert router.world.read('/mnt/log/applied')


def each_round(router, rounds):
    """A fresh router each time."""
    for number in range(rounds):
        if number > 0:
            router.renew()
        put_victim(router)
        yield number


def assert_own(name, mode):
    there = os.lstat(f'/tmp/{name}')
    assert (there.st_uid, oct(there.st_mode), there.st_nlink) == (
        os.geteuid(), oct(0o100000 | mode), 1), name


@pytest.mark.parametrize('backup', BACKUPS)
def test_a_folder_in_a_backups_place_gives_no_passphrase_and_overwrites_nothing(
        router, stranger, backup):
    """cp puts its file into a folder, and there through a link."""
    put_victim(router)
    source = backup.replace('.bak', '.txt')
    stranger.run(lambda: (os.mkdir(f'/tmp/{backup}', 0o777),
                          os.symlink(VICTIM, f'/tmp/{backup}/{source}')) and None)
    run_attempt(router, REPEATER_MODE)
    assert router.world.read(VICTIM) == 'precious'
    assert_own(backup, 0o600)
    assert router.world.read(f'/tmp/{backup}') == router.world.read(f'/tmp/{source}')


@pytest.mark.parametrize('backup', BACKUPS)
def test_a_folder_in_a_backups_place_shows_nobody_the_passphrase(router, stranger, backup):
    stranger.run(lambda: os.mkdir(f'/tmp/{backup}', 0o777))
    stranger.run(lambda: os.chmod(f'/tmp/{backup}', 0o777))
    run_attempt(router, REPEATER_MODE)
    assert SECRET in router.world.read('/mnt/log/applied')
    assert SECRET not in stranger.run(readable_texts)


@pytest.mark.parametrize('kind', ['file', 'folder', 'fifo', 'link'])
def test_nobody_wins_the_race_for_a_backups_name(router, stranger, rounds, kind):
    """What stands there before makes the daemon clear the name: then the racer is there."""
    won = []
    for _ in each_round(router, rounds):
        word = {'folder': f'wps_wifi_sta.txt={VICTIM}', 'link': VICTIM}.get(kind, '')
        for name in BACKUPS:
            stranger.write(f'/tmp/{name}', 'old', 0o666)
        racer = stranger.race(
            *(f'gone,{name},{kind},/tmp/{name},{word}' for name in BACKUPS),
            *(f'{when},{name},read,/tmp/{name}' for when in ('made', 'told') for name in BACKUPS))
        run_attempt(router, REPEATER_MODE)
        seen = [line for line in racer.end() if SECRET in line]
        won.append(bool(seen) or router.world.read(VICTIM) != 'precious'
                   or SECRET in stranger.run(readable_texts))
        if not won[-1]:
            for name in BACKUPS:
                assert_own(name, 0o600)
    assert won.count(True) == 0, f'{won.count(True)} of {rounds}'


@MODES
@pytest.mark.parametrize('when', ['gone', 'ever'])
def test_nobody_gets_credentials_of_his_own_in_between(router, stranger, rounds, mode, when):
    """A file that is planted between the removal of the old one and the writing."""
    won = []
    for _ in each_round(router, rounds):
        for name in CREDENTIALS[mode]:  # of an earlier attempt
            router.world.write(f'/tmp/{name}', '{}')
            os.chmod(f'/tmp/{name}', 0o600)
        # Those of a band that this attempt does not write.
        forged = FORGED if mode == AP_MODE else FORGED.replace('5g', '6g')
        stranger.race(*(f'{when},{name},file,/tmp/{name},{forged}' for name in CREDENTIALS[mode]))
        run_attempt(router, mode)
        won.append('Forged' in router.world.read('/mnt/log/applied'))
        stranger.end()
        if not won[-1]:
            for name in CREDENTIALS[mode]:
                assert_own(name, 0o600)
    assert won.count(True) == 0, f'{won.count(True)} of {rounds}'


def turn_access_points_off(router):
    """So that a repeater's attempt writes no credentials of theirs."""
    text = router.world.read('/tmp/wifi.conf')
    assert 'apBssEnabled_2g=on' in text
    router.world.write('/tmp/wifi.conf', text.replace('apBssEnabled_2g=on', 'apBssEnabled_2g=off')
                       .replace('apBssEnabled_5g=on', 'apBssEnabled_5g=off'))


@pytest.mark.parametrize('mode, name', [
    (REPEATER_MODE, 'wps_wifi_ap.txt'), (REPEATER_MODE, 'wps_wifi_ap.bak'),
    (AP_MODE, 'wps_wifi_sta.txt'), (AP_MODE, 'wps_wifi_sta.bak'), (AP_MODE, 'wps_wifi_ap.bak')])
def test_nobody_gives_credentials_where_the_attempt_writes_none(
        router, stranger, rounds, mode, name):
    """The script would apply what stands there, whoever put it there, and when."""
    for _ in each_round(router, rounds):
        prepare(router, mode)
        if mode == REPEATER_MODE:
            turn_access_points_off(router)
        router.world.reply('/etc/init.d/wps', '[ "$1" != config_wifi ] || '
                           'cat /tmp/wps_wifi_*.??? >/mnt/log/applied 2>/dev/null\n')
        start(router, mode)
        if name.endswith('.txt'):  # removed when the attempt ends
            router.world.write(f'/tmp/{name}', '{}')
        else:
            stranger.write(f'/tmp/{name}', FORGED)
        stranger.race(f'gone,{name},file,/tmp/{name},{FORGED}')
        press_and_succeed(router, mode)
        stranger.end()
        assert router.world.read('/mnt/log/applied')
        assert 'Forged' not in router.world.read('/mnt/log/applied')
        assert_own(name, 0o600)
        assert router.world.read(f'/tmp/{name}') == ''


@pytest.mark.parametrize('kind', ['file', 'link', 'folder', 'fifo', 'hard'])
def test_nobody_wins_the_race_for_a_status_files_name(router, stranger, rounds, kind):
    won = []
    for _ in each_round(router, rounds):
        stranger.write('/tmp/own', '')
        word = {'link': VICTIM, 'hard': '/tmp/own'}.get(kind, '')
        for name in STATUS_FILES:
            stranger.write(f'/tmp/{name}', '0', 0o666)
        stranger.race(*(f'gone,{name},{kind},/tmp/{name},{word}' for name in STATUS_FILES))
        run_attempt(router, AP_MODE)
        stranger.end()
        owners = {os.lstat(f'/tmp/{name}').st_uid for name in STATUS_FILES}
        won.append(UID in owners or router.world.read(VICTIM) != 'precious')
        if not won[-1]:
            for name in STATUS_FILES:
                assert_own(name, 0o644)
            assert router.world.read('/tmp/wps_result') == '1\n'
    assert won.count(True) == 0, f'{won.count(True)} of {rounds}'


def plant_folders(names):
    for name in names:
        os.mkdir(f'/tmp/{name}.new')
        os.mkdir(f'/tmp/{name}.new/inner')


@MODES
def test_folders_in_the_temporary_names_cost_nothing(router, stranger, mode):
    names = (*CREDENTIALS[mode], *STATUS_FILES)
    stranger.run(plant_folders, names)
    run_attempt(router, mode)
    for name in names:
        assert_own(name, 0o600 if name in CREDENTIALS[mode] else 0o644)
    assert json.loads(router.world.read(f'/tmp/{CREDENTIALS[mode][0]}'))
    assert router.info()[1] == ('wl0_wps_status', 'success')


def test_temporary_names_that_are_taken_each_time_cost_nothing(router, stranger, rounds):
    for _ in each_round(router, rounds):
        stranger.race(*(f'{when},{name}.new,{kind},/tmp/{name}.new,inner=/tmp'
                        for when in ('gone', 'ever') for kind in ('folder', 'file')
                        for name in ('wps_wifi_ap.txt', 'kelm.info')))
        run_attempt(router, AP_MODE)
        stranger.end()
        assert_own('wps_wifi_ap.txt', 0o600)
        assert_own('kelm.info', 0o644)


# --- The start ---

def put_in_the_way(kind):
    """As the stranger, in the pid file's place."""
    path = '/tmp/kelm.pid'
    if kind == 'file':
        with open(path, 'w', encoding='utf-8') as file:
            file.write('1\n')
    elif kind == 'folder':
        os.makedirs(f'{path}/inner')
    elif kind == 'link':
        os.symlink(VICTIM, path)
    else:
        os.mkfifo(path)


@pytest.mark.parametrize('kind', ['file', 'folder', 'link', 'fifo'])
def test_a_pid_file_of_a_strangers_does_not_bar_the_start(router, stranger, kind):
    put_victim(router)
    stranger.run(put_in_the_way, kind)
    router.start()
    assert_own('kelm.pid', 0o644)
    assert router.world.read('/tmp/kelm.pid') == f'{router.daemon.pid}\n'
    assert [line for line in router.start_lines if 'kelm.pid' in line] == [
        f'/tmp/kelm.pid: moved aside, belongs to user {UID}']
    assert router.world.read(VICTIM) == 'precious'
    router.end_by_sigterm()


@pytest.mark.parametrize('kind', ['file', 'folder'])
def test_nobody_bars_the_start_by_being_quick(router, stranger, rounds, kind):
    for _ in each_round(router, rounds):
        stranger.race(f'gone,kelm.pid,{kind},/tmp/kelm.pid,inner=/tmp',
                      f'ever,kelm.pid,{kind},/tmp/kelm.pid,inner=/tmp')
        router.start()
        assert router.world.read('/tmp/kelm.pid') == f'{router.daemon.pid}\n'
        stranger.end()
        router.daemon.send(15)
        assert router.end(poke=False) == 0


# --- What is read ---

def test_a_strangers_pin_is_given_to_no_access_point(router, stranger):
    os.unlink('/tmp/wps.conf')
    stranger.write('/tmp/wps.conf', 'enabled=1\napWpsAvailable=3\npinEnabled=on\n'
                   'pinCode=12345670\n')
    router.start(bands=())
    assert [line for line in router.commands() if '12345670' in line] == []
    assert 'Open wps config file failed' in router.start_lines
    assert f'/tmp/wps.conf: not used, belongs to user {UID}' in router.start_lines


def test_a_strangers_link_to_a_file_of_roots_is_not_followed(router, stranger):
    os.rename('/tmp/wps.conf', '/tmp/other.conf')
    stranger.run(os.symlink, '/tmp/other.conf', '/tmp/wps.conf')
    router.start(bands=())
    assert f'/tmp/wps.conf: not used, belongs to user {UID}' in router.start_lines


def test_a_strangers_marker_refuses_no_attempt(router, stranger):
    stranger.write('/tmp/wifid_is_starting', '', 0o666)
    router.start()
    router.press_and_wait_started()
    assert f'/tmp/wifid_is_starting: not used, belongs to user {UID}' in router.console.lines()
    router.end_by_sigterm()


@pytest.mark.parametrize('path', ['/tmp/device.info', '/tmp/device_runtime.info'])
def test_a_stranger_does_not_say_what_the_device_is(router, stranger, path):
    os.unlink(path)
    stranger.write(path, '{"mode": 0, "RFBand": 0}', 0o666)
    assert router.launch().wait_exit(poke=False) == 255
    assert f'{path}: not used, belongs to user {UID}' in router.console.lines()
    router.assert_no_traces()


@pytest.mark.parametrize('kind', ['file', 'link', 'folder'])
def test_what_stands_in_a_scan_results_place_neither_is_believed_nor_bars_the_real_one(
        router, stranger, kind):
    """The scan writes its list there by name, as root."""
    plant = {'file': lambda: stranger.write(SCAN_RESULT, '[{"ssid":"Forged"}]', 0o666),
             'link': lambda: stranger.run(os.symlink, VICTIM, SCAN_RESULT),
             'folder': lambda: stranger.run(os.makedirs, f'{SCAN_RESULT}/wifi_scan_5g.result')}
    prepare(router, REPEATER_MODE)
    put_victim(router)
    router.world.write('/mnt/scan.5g', json.dumps([
        {'ssid': 'Root2g', 'mac': '02:00:00:00:00:51', 'security': 'wpa2'}]))
    plant[kind]()
    start(router, REPEATER_MODE)
    router.press_and_wait_started()
    router.settle()
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert json.loads(router.world.read('/tmp/wps_wifi_sta.txt'))['ssid_5g'] == 'Root2g'
    assert_own('wifi_scan_5g.result', 0o644)
    assert router.world.read(VICTIM) == 'precious'


def test_files_that_makers_leave_writable_are_used_with_a_warning(router):
    os.chmod('/tmp/wps.conf', 0o666)
    router.start()
    assert '/tmp/wps.conf: used, though others may write to it' in router.start_lines
    router.end_by_sigterm()


def test_the_file_of_a_wifi_daemon_that_runs_as_another_user_is_read(router):
    prepare(router, AP_MODE)
    start(router, AP_MODE)
    os.chown('/tmp/run/hostapd-wlan1.conf', 101, 101)
    for folder in ('/var/run/hostapd', *(server.path for server in router.hostapd.values())):
        os.chown(folder, 101, 101)
    press_and_succeed(router, AP_MODE)
    assert json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))['ssid_2g'] == 'Chosen'


@pytest.mark.parametrize('umask', [0, 0o077])
def test_status_and_pid_files_have_their_mode_whatever_the_umask(router, umask):
    prepare(router, AP_MODE)
    router.start(umask=umask)
    assert_own('kelm.pid', 0o644)
    press_and_succeed(router, AP_MODE)
    for name in STATUS_FILES:
        assert_own(name, 0o644)
    assert_own('wps_wifi_ap.txt', 0o600)
