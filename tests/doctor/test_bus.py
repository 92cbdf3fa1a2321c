# SPDX-License-Identifier: ISC
"""The bus, the daemon on it, and the button."""
import os
import signal
import subprocess

import pytest

import world as private_world
from doctor import examine, told
from test_settings_files import do, fault, ok, warning
from whole import pid_in_file, start_daemon, tasks

GONE = ('ubusd is not there, so kelm hears no press; start ubusd, then kelm: /etc/init.d/wps '
        'restart')
HANGS = ('ubusd does not answer within 5 seconds, so kelm hears no press; restart ubusd, then '
         'kelm: /etc/init.d/wps restart')


def broker(router):
    found, = [pid for pid, words in router.processes() if words[:1] == ['/sbin/ubusd']]
    return found


def test_a_bus_that_answers(router):
    assert told(router, 'bus') == ok('ubus answers')


def test_a_bus_without_objects_answers(maker):
    assert maker.run('ubus list').out == ''
    assert told(maker, 'bus') == ok('ubus answers')


def test_no_broker(maker):
    os.kill(broker(maker), signal.SIGKILL)
    assert told(maker, 'bus') == fault(GONE)
    assert told(maker, 'button', '', '--button 1') == fault(
        'a press cannot be seen while ubus does not answer; see the line of the bus')


def test_a_broker_that_hangs(maker):
    os.kill(broker(maker), signal.SIGSTOP)
    assert told(maker, 'bus') == fault(HANGS)
    os.kill(broker(maker), signal.SIGCONT)


def test_no_command(maker):
    maker.remove('/bin/ubus')
    assert told(maker, 'bus') == fault(
        'the command ubus is not there, so nobody can send or hear anything; install ubus')


# The daemon

def end_daemon(router):
    pid = pid_in_file(router)
    os.kill(pid, signal.SIGKILL)
    private_world.wait_for(lambda: not os.path.exists(f'/proc/{pid}/exe'), 'the end of the daemon')
    router.remove('/tmp/kelm.pid')


def test_a_daemon_that_runs(router):
    assert told(router, 'daemon') == ok(
        f'kelm runs, process {pid_in_file(router)}, and has found the bus')


def test_a_daemon_that_does_not_run(maker):
    end_daemon(maker)
    assert told(maker, 'daemon') == fault(
        'kelm does not run, so a press does nothing; mend what else is at fault here, then '
        '/etc/init.d/wps start')


def test_a_daemon_of_stock_that_does_not_run(stock):
    end_daemon(stock)
    assert told(stock, 'daemon') == fault(
        'kelm does not run, so a press does nothing; mend what else is at fault here, then '
        'service wps start')
    stock.uci('set', 'kelm.main.enabled=0')
    assert told(stock, 'daemon') == ok('kelm does not run, for it is switched off')


@pytest.mark.parametrize('done', ['rm /tmp/kelm.pid', 'echo 4194305 > /tmp/kelm.pid'])
def test_a_daemon_whose_pid_file_is_gone_or_another_ones(maker, done):
    pid = pid_in_file(maker)
    do(maker, done)
    assert told(maker, 'daemon') == warning(
        f'kelm runs, process {pid}, and /tmp/kelm.pid does not have its number: a start would put '
        f'a second one beside it; kill {pid}; rm -f /tmp/kelm.pid; /etc/init.d/wps start')


def comm(pid):
    with open(f'/proc/{pid}/comm', encoding='utf-8') as file:
        return file.read().strip()


def start_second(router, script):
    """A process with the daemon's name."""
    router.write('/mnt/kelm', f'#!/bin/sh\n{script}\n', 0o755)
    process = router.start('exec /mnt/kelm')
    private_world.wait_for(lambda: comm(process.pid) == 'kelm', 'the process')
    return process.pid


def test_a_second_daemon(maker):
    maker.run('mkfifo /mnt/fifo')
    second = start_second(maker, 'read x < /mnt/fifo')
    assert told(maker, 'daemon') == warning(
        f'a second kelm runs, process {second}, beside that of the pid file, and both take a '
        f'press; kill {second}') + ok(
            f'kelm runs, process {pid_in_file(maker)}, and has found the bus')


def test_one_that_waits_for_its_last_script_is_no_second_daemon(maker):
    second = start_second(maker, 'sleep 1000; :')
    private_world.wait_for(lambda: [words for _, words in maker.processes()
                                    if words[:1] == ['sleep']], 'the script')
    assert second != pid_in_file(maker)
    assert told(maker, 'daemon') == ok(
        f'kelm runs, process {pid_in_file(maker)}, and has found the bus')


def test_a_daemon_elsewhere_is_none_of_this_router(maker):
    """Such as one in a container: it has another root."""
    with subprocess.Popen(['/bin/bash', '-c', 'exec -a kelm sleep 1000']) as outside:
        try:
            private_world.wait_for(lambda: maker.run('pidof kelm').out.split().count(
                str(outside.pid)), 'the process')
            assert told(maker, 'daemon')[0][0] == 'ok'
        finally:
            outside.kill()


def test_a_daemon_that_has_found_no_bus(maker):
    end_daemon(maker)
    os.kill(broker(maker), signal.SIGKILL)
    maker.run('rm -r /var/run/ubus*')
    pid = start_daemon(maker, threads=1)
    assert told(maker, 'daemon') == fault(
        'kelm has found no ubus at its start, so it hears no press; /etc/init.d/wps restart')
    assert tasks(pid) == 1


# The scripts of the button

BESIDE = ' starts WPS in hostapd itself, so one press starts it twice; remove it, or have it send '
BUTTON_SCRIPTS = {
    'none': ({}, None),
    'one that sends the event': ({'/etc/rc.button/wps': 'ubus send gpio \'{"type":"wps"}\''}, None),
    'one of OpenWrt 24.10': ({'/etc/rc.button/wps': 'ubus -S call "$s" wps_start'},
                             '/etc/rc.button/wps'),
    'one of OpenWrt 25.12': ({'/etc/rc.button/wps': ':',
                              '/etc/rc.wps/40-wps_ap': 'ubus -S call "$s" wps_start'},
                             '/etc/rc.wps/40-wps_ap'),
    'a command line': ({'/etc/rc.button/wps': 'hostapd_cli -i wlan1 wps_pbc'},
                       '/etc/rc.button/wps'),
    'a comment': ({'/etc/rc.button/wps': '\t# wps_start is done by kelm'}, None),
}


@pytest.mark.parametrize('row', BUTTON_SCRIPTS)
def test_a_script_that_starts_wps_itself(maker, row):
    files, guilty = BUTTON_SCRIPTS[row]
    for path, text in files.items():
        maker.write(path, f'#!/bin/sh\n{text}\n', 0o755)
    assert told(maker, 'button-script') == (
        warning(f'{guilty}{BESIDE}the event gpio alone') if guilty
        else ok('no script of the button starts WPS beside kelm'))


# The button itself

CURE = 'have the driver send: ubus send gpio \'{"type":"wps","pressed":1}\''
PRESS = 'kelm-doctor: press the WPS button now, within {0} seconds\n'
EVENTS = {
    'a press': (['gpio {"type":"wps","pressed":1}'], ok('the press came as gpio with type "wps"')),
    'a press and its release': (
        ['gpio {"type":"wps","pressed":1}', 'gpio {"type":"wps","pressed":0}'], warning(
            'one press came as 2 events gpio, and each counts as a press, the release too; have '
            'the driver send one')),
    'another button': (['gpio {"pressed":1,"type":"reset"}'], warning(
        'the press came as gpio with type "reset": if that is another button, kelm takes it for a '
        'press, too; send gpio for the WPS button alone')),
    'a page': (['wps_cli {"action":1,"method":1}'], ok(
        'the press came as wps_cli, as a script or a page sends it')),
    'no type, then a press': (['gpio {"pressed":1}', 'gpio {"type":"wps"}'], ok(
        'the press came as gpio with type "wps"')),
}
STAY = {
    'nothing': ([], fault(f'no press came in 2 seconds; {CURE}')),
    'no type': (['gpio {"pressed":1}'], fault(
        'the press came as gpio without a member "type", which kelm refuses; have the driver send '
        '{"type":"wps","pressed":1}')),
    'another name': (['button {"type":"wps"}', "it's {}"], fault(
        f'no press came in 2 seconds, but the events "button", "it\'s"; {CURE}')),
    'a hostile name': (['\x1b[31mred {}'], fault(
        f'no press came in 2 seconds, but the events "\x1b[31mred"; {CURE}')),
    'many names': ([f'event{number} {{}}' for number in range(9)], fault(
        'no press came in 2 seconds, but the events "event0", "event1", "event2", "event3", '
        f'"event4"; {CURE}')),
    'the answer of a daemon': (['wps {"action":1}', 'wps_cli {"action":2,"method":1}'], fault(
        f'no press came in 2 seconds; {CURE}')),
}


def start_doctor(router, arguments):
    """It has asked for the press, so it listens."""
    doctor = router.start(f'exec kelm-doctor {arguments}', stdout=subprocess.PIPE,
                          stderr=subprocess.PIPE)
    asked = doctor.stderr.readline()
    return doctor, asked


def send(router, events):
    for event in events:
        name, message = event.split(' ', 1)
        assert router.run('exec /bin/sh -c \'ubus send "$1" "$2"\' x "$1" "$2"', name,
                          message).status == 0


def line_of_button(text):
    return text.splitlines()[-1]


def as_line(expected):
    (result, text), = expected
    return f'{result:8} {"":8} ' + text.replace('\x1b', '?')


@pytest.mark.parametrize('row', EVENTS)
def test_a_press(maker, row):
    events, expected = EVENTS[row]
    doctor, asked = start_doctor(maker, '--button')
    send(maker, events)
    out, err = doctor.communicate(timeout=25)  # below the 30 seconds of the press
    assert (asked, err) == (PRESS.format(30), '')
    assert line_of_button(out) == as_line(expected)
    assert doctor.returncode == {'ok': 0, 'warning': 1}[expected[0][0]]
    assert [words for _, words in maker.processes() if 'listen' in words] == []


@pytest.mark.parametrize('row', STAY)
def test_no_press(maker, row):
    events, expected = STAY[row]
    doctor, asked = start_doctor(maker, '--button 2')
    send(maker, events)
    out, err = doctor.communicate(timeout=30)
    assert (asked, err) == (PRESS.format(2), '')
    assert line_of_button(out) == as_line(expected)
    assert doctor.returncode == 2


def test_a_press_on_stock(stock):
    stock.write('/var/run/kelm/state', 'state=waiting\n')
    doctor, _ = start_doctor(stock, '--button 20')
    assert stock.run('/etc/rc.wps/30-kelm', env={'ACTION': 'released', 'SEEN': '1'}).status == 0
    out, _ = doctor.communicate(timeout=30)
    assert line_of_button(out) == as_line(EVENTS['a page'][1])


def test_a_press_is_asked_for_beside_json(maker):
    doctor, asked = start_doctor(maker, '--json --button=9')
    send(maker, EVENTS['a press'][0])
    out, err = doctor.communicate(timeout=30)
    assert (asked, err) == (PRESS.format(9), '')
    assert '"check": "button", "band": "", "result": "ok"' in out


def test_without_the_option_no_press_is_asked_for(maker):
    assert [one for one in examine(maker).findings if one.check == 'button'] == []


def test_a_bus_that_brings_no_events(maker):
    """A listener that ends at once, and one that hears nothing."""
    text = maker.read('/bin/ubus')
    assert text
    maker.run('mv /bin/ubus /bin/ubus.real')
    for listen in ('exit 0', 'exec sleep 1000'):
        maker.write('/bin/ubus', '#!/bin/sh\ncase $* in\n*listen*) ' + listen
                    + ' ;;\nesac\nexec /bin/ubus.real "$@"\n', 0o755)
        assert told(maker, 'button', '', '--button 1') == fault(
            'events do not come over the bus: one of our own did not arrive; restart ubusd, then '
            'kelm')
    assert [words for _, words in maker.processes() if words[:1] == ['sleep']] == []
