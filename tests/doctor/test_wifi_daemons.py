# SPDX-License-Identifier: ISC
"""What kelm-doctor says of hostapd and wpa_supplicant themselves, and that it only asks."""
import os
import subprocess
import time

import pytest
from doctor import LONGEST_S, examine
from peers import CLIENTS, answer, change_file, put_socket
from stock import PATH, enter_root
from world import wait_for

NO_WPS = 'has no WPS; install wpad-mbedtls in place of wpad-basic-mbedtls, and restart the router'


def program_of(router):
    """Whom the doctor asks, and the interface on 2.4 GHz."""
    name = router.interfaces['2.4 GHz']
    return 'hostapd' if router.exists(f'/var/run/hostapd/{name}') else 'wpa_supplicant', name


@pytest.fixture(name='device', params=['access point', 'repeater'])
def each_kind(request, router):
    if request.param == 'repeater':
        router.be_repeater()
    return router


def findings(router, check):
    return [(one.result, one.text) for one in examine(router).findings
            if (one.check, one.band) == (check, '2.4 GHz')]


def test_they_answer(device):
    program, name = program_of(device)
    assert findings(device, 'answers') == [('ok', f'{program} answers on {name}')]


def test_there_is_no_socket(device):
    program, name = program_of(device)
    socket = f'/var/run/{program}/{name}'
    device.remove(socket)
    assert findings(device, 'answers') == [
        ('fault', f'{program} has no socket {socket}: it does not run, or not for this interface; '
         f'start it, with ctrl_interface=/var/run/{program}')]


def test_something_else_stands_under_the_name(device):
    program, name = program_of(device)
    socket = f'/var/run/{program}/{name}'
    device.remove(socket)
    device.run(f'mkfifo {socket}')
    assert findings(device, 'answers') == [
        ('fault', f'{socket} is no socket of {program}; remove it, and restart {program}')]


def test_nobody_is_behind_the_socket(device):
    program, name = program_of(device)
    answer(device, program, name, 'ping', None)
    assert findings(device, 'answers') == [
        ('fault', f'{program} does not answer on {name}: its socket is left from one that is gone, '
         'or lets nobody in; restart it')]


LIMIT = 'ANSWER_LIMIT=15'


def test_the_clients_may_give_up_before_the_limit(maker):
    """They do it after ten seconds, and take their sockets away."""
    answer(maker, 'hostapd', 'wlan1', 'ping', 'hangs')
    begin = time.monotonic()
    examine(maker)
    assert 12 < time.monotonic() - begin < LONGEST_S / 2


@pytest.mark.parametrize('band', ['2.4 GHz', '5 GHz'])
def test_one_that_hangs_is_told_within_a_time(device, band):
    change_file(device, '/usr/lib/kelm/doctor/wifi_daemons.sh', LIMIT, 'ANSWER_LIMIT=6')
    program = program_of(device)[0]
    answer(device, program, device.interfaces[band], 'ping', 'hangs')
    before = device.processes()
    begin = time.monotonic()
    found = examine(device).findings
    took_s = time.monotonic() - begin
    assert [(one.band, one.text) for one in found if one.result != 'ok'] == [
        (band, f'{program} does not answer on {device.interfaces[band]}: it hangs; restart it')]
    assert took_s < LONGEST_S / 2
    wait_for(lambda: device.processes() == before, 'the end of what the doctor had started')


def test_a_build_without_wps(device):
    program, name = program_of(device)
    if device.face == 'stock':
        device.fake(program, 'exit 1')
        assert [(one.result, one.text) for one in examine(device).findings
                if one.check == 'build'] == [('fault', f'{program} {NO_WPS}')]
        return
    question = {'hostapd': 'get_config', 'wpa_supplicant': 'status'}[program]
    answer(device, program, name, question, 'ssid=Elm House\nwpa_state=SCANNING\n')
    assert findings(device, 'build') == [
        ('fault', f'{program} was built without WPS; build it with CONFIG_WPS=y')]
    answer(device, program, name, question, '')
    assert findings(device, 'build') == [
        ('fault', f'{program} answers on {name}, and then says nothing; restart it')]


# --- It only reads ---

# Questions that change nothing, and no other words.
QUESTIONS = {'hostapd_cli': {'ping', 'get_config'}, 'wpa_cli': {'ping', 'status'}}


def may_call(words):
    """Whether a call of a program that is played here is one that changes nothing."""
    name = words[0]
    if name in QUESTIONS:
        folder = {'hostapd_cli': 'hostapd', 'wpa_cli': 'wpa_supplicant'}[name]
        return (words[1:4] == ['-p', f'/var/run/{folder}', '-i'] and len(words) == 6
                and words[5] in QUESTIONS[name])
    if name in CLIENTS:
        return words[1:] == ['-vwps']
    return words == ['ubus', 'network.wireless', 'status', '{}']


def test_it_asks_what_changes_nothing(device):
    device.forget_commands()
    examine(device)
    calls = [line.split() for line in device.commands()]
    assert len(calls) >= 4
    assert [words for words in calls if not may_call(words)] == []


def tree(router):
    """Each file of the router, and what a write would change of it. The programs that are played
    write in /mnt."""
    found = {}
    for folder, folders, files in os.walk(router.at('/')):
        folders[:] = [one for one in folders
                      if os.path.join(folder, one) not in (router.at('/proc'), router.at('/mnt'),
                                                           router.at('/lib'), router.at('/lib64'))]
        for name in files + folders:
            path = os.path.join(folder, name)
            said = os.lstat(path)
            found[path] = (said.st_mode, said.st_ino, said.st_size, said.st_mtime_ns,
                           said.st_ctime_ns, said.st_uid)
    return found


def test_it_writes_no_file_and_leaves_nothing_running(device):
    before, running = tree(device), device.processes()
    for arguments in ('', '--json'):
        device.run(f'kelm-doctor {arguments}')
    assert tree(device) == before
    wait_for(lambda: device.processes() == running, 'the end of what the doctor had started')


def run_as(router, user):
    def become():
        enter_root()
        os.setgroups([])
        os.setgid(user)
        os.setuid(user)
    return subprocess.run(['/usr/sbin/kelm-doctor'], env={'PATH': PATH}, preexec_fn=become,
                          capture_output=True, text=True, check=False, timeout=LONGEST_S)


def test_not_as_root(device):
    program = program_of(device)[0]
    done = run_as(device, 65534)
    lines = done.stdout.splitlines()
    assert lines[0] == ('warning           does not run as root: hostapd and wpa_supplicant cannot '
                        'be asked, and some files not be read; run it as root')
    if device.face == 'maker':
        assert (f'warning  2.4 GHz  {program} cannot be asked by this user; run kelm-doctor as root'
                in lines)
        assert f'ok       2.4 GHz  {device.interfaces["2.4 GHz"]} is there and up' in lines
    else:
        assert ('warning           this user is not told what the radios do; run kelm-doctor as '
                'root') in lines
    assert done.stderr == ''
    assert done.returncode in (1, 2)  # the settings files are root's


def test_a_socket_of_the_other_kind_does_not_count(maker):
    """wpa_supplicant's sockets are in a folder of their own."""
    maker.remove('/var/run/hostapd/wlan1')
    put_socket(maker, 'wpa_supplicant', 'wlan1')
    assert findings(maker, 'answers')[0][0] == 'fault'
