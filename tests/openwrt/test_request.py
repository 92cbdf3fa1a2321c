# SPDX-License-Identifier: ISC
"""What request sends, what it refuses and in which words, and what becomes of one that is lost."""
import os
import time

import pytest
from wifi import put_access_point, put_station, put_wifi, state_of
from world import wait_for

REQUEST = '/usr/libexec/kelm/request'
BUTTON = 'ubus send wps_cli {"action":1,"method":1}'
CANCEL = 'ubus send wps_cli {"action":2,"method":1}'
NEXT_DAEMON_S = 20

# The bus and, as far as request can see it, the daemon: what it does at a request is in /mnt/hears.
UBUS = """
case $* in
send*) [ ! -f /mnt/hears ] || . /mnt/hears ;;
*call*) cat /mnt/wireless ;;
esac
"""
BEGINS = """
printf 'id=%s\\nrunning=1\\n' "$(cat /proc/uptime)" > /var/run/kelm/attempt
"""


@pytest.fixture
def router(stock):
    """kelm is ready on 2.4 GHz, and no daemon is there."""
    put_wifi(stock)
    put_access_point(stock)
    stock.uci('add_list', 'kelm.main.ap=default_radio0')
    stock.uci('set', 'wireless.default_radio0.wps_pushbutton=1')
    stock.uci('set', 'kelm.main.enabled=1')
    stock.uci('commit')
    stock.fake('/bin/ubus', UBUS)
    assert stock.run('/usr/libexec/kelm/prepare').status == 0
    stock.forget_commands()
    return stock


def daemon(router, begins=True):
    """Something with the daemon's name and pid file."""
    router.write('/mnt/kelm', '#!/bin/sh\necho $$ > /tmp/kelm.pid\nread wait < /mnt/wait\n', 0o755)
    os.mkfifo(router.at('/mnt/wait'))
    router.start('exec /mnt/kelm')
    wait_for(lambda: router.read('/tmp/kelm.pid'), 'the pid file')
    if begins:
        router.write('/mnt/hears', BEGINS)


def set_state(router, state, message):
    router.write('/var/run/kelm/state', f'state={state}\nmessage={message}\n')


def ask(router, words, status=0, out=''):
    result = router.run(f'{REQUEST} {words}')
    assert (result.status, result.out, result.err) == (status, out, '')


def sent(router):
    """What went to the bus; the fake is named by its path."""
    return [line.replace('/bin/ubus', 'ubus').replace("'", '') for line in router.commands()
            if ' send ' in line]


def log(router):
    return [line.removeprefix('daemon.notice kelm: ') for line in router.log()][1:]


def test_a_press_is_sent_once_and_at_once(router):
    daemon(router)
    ask(router, 'start')
    assert sent(router) == [BUTTON]
    assert state_of(router, 'asked')['method'] == 'button'
    time.sleep(2.5)
    assert sent(router) == [BUTTON]
    assert state_of(router, 'refused') == {}


def test_a_press_between_two_daemons_is_sent_again(router):
    ask(router, 'start')
    time.sleep(1.5)
    daemon(router)
    wait_for(lambda: state_of(router, 'attempt').get('running') == '1', 'the attempt',
             NEXT_DAEMON_S)
    assert set(sent(router)) == {BUTTON} and len(sent(router)) >= 2
    assert state_of(router, 'refused') == {}


def test_a_press_that_nobody_takes_is_told(router):
    ask(router, 'start')
    wait_for(lambda: state_of(router, 'refused'), 'the refusal', NEXT_DAEMON_S)
    assert state_of(router, 'refused')['message'] == 'the daemon is not running'
    wait_for(lambda: log(router) == ['no WPS: the daemon is not running'], 'the line')


def test_a_daemon_that_does_not_begin(router):
    daemon(router, begins=False)
    ask(router, 'start')
    wait_for(lambda: state_of(router, 'refused'), 'the refusal', NEXT_DAEMON_S)
    assert state_of(router, 'refused')['message'] == 'the daemon did not begin'


def test_the_reason_is_looked_for(router):
    ask(router, 'start')
    router.remove('/mnt/wps/phy0-ap0')
    wait_for(lambda: state_of(router, 'refused'), 'the refusal', NEXT_DAEMON_S)
    assert state_of(router, 'refused')['message'] == '2.4 GHz: radio is still starting'


def test_a_cancel_ends_the_seeing_to_it(router):
    ask(router, 'start')
    ask(router, 'cancel')
    time.sleep(2.5)
    assert sent(router) == [BUTTON, CANCEL]
    daemon(router)
    time.sleep(6)
    assert sent(router) == [BUTTON, CANCEL]
    assert state_of(router, 'refused') == {}


def test_an_attempt_runs_already(router):
    daemon(router)
    ask(router, 'start')
    router.forget_commands()
    ask(router, 'start', 1, 'an attempt runs already\n')
    assert state_of(router, 'refused')['message'] == 'an attempt runs already'
    assert sent(router) == [BUTTON]  # for the note may be wrong


def test_the_note_of_a_daemon_that_is_dead_does_not_count(router):
    router.write('/var/run/kelm/attempt', 'id=1.0\nrunning=1\n')
    ask(router, 'start')
    assert sent(router) == [BUTTON]


@pytest.mark.parametrize('state, message, words', (
    ('off', 'kelm is switched off', 'kelm is switched off'),
    ('stopped', 'kelm is stopped', 'kelm is stopped')))
def test_switched_off(router, state, message, words):
    set_state(router, state, message)
    for request in ('start', 'pin 12345670'):
        router.uci('set', 'kelm.main.pin=1')
        ask(router, request, 1, f'{words}\n')
    assert sent(router) == []
    assert log(router) == [f'no WPS: {words}'] * 2


def test_not_ready_is_told_at_once(router):
    router.remove('/mnt/wps/phy0-ap0')
    set_state(router, 'not-ready', 'an old reason')
    ask(router, 'start', 1, '2.4 GHz: radio is still starting\n')
    assert sent(router) == []


def test_not_ready_is_looked_at_anew(router):
    set_state(router, 'not-ready', 'an old reason')
    daemon(router)
    ask(router, 'start')
    assert sent(router) == [BUTTON]
    assert state_of(router, 'state')['message'] == 'ready on 2.4 GHz'


def test_before_anything_has_run(router):
    assert router.run('rm -r /var/run/kelm').status == 0
    ask(router, 'start', 1, 'kelm is switched off\n')
    ask(router, 'cancel')
    assert sent(router) == [CANCEL]


# A client's PIN: what is said of it, nothing if it goes to the daemon.
PINS = {
    '12345670': '', '00000000': '', '99999995': '', '1234': '', '0000': '',
    '12345671': 'the last digit of the PIN is wrong',
    '87654321': 'the last digit of the PIN is wrong',
    '1234567': 'a PIN has four or eight digits',
    '123': 'a PIN has four or eight digits',
    '123456700': 'a PIN has four or eight digits',
    '': 'a PIN has four or eight digits',
    '1234-5670': 'a PIN has digits only',
    '1234567a': 'a PIN has digits only',
    ' 1234567': 'a PIN has digits only',
    "12'34567": 'a PIN has digits only',
    '"$(id)"1': 'a PIN has digits only',
    '1234\n567': 'a PIN has digits only',
    '１２３４': 'a PIN has digits only',
    '*': 'a PIN has digits only',
}


@pytest.mark.parametrize('pin', PINS)
def test_pins(router, pin):
    router.uci('set', 'kelm.main.pin=1')
    daemon(router)
    words = PINS[pin]
    result = router.run(f'{REQUEST} pin "$1"', pin)
    assert (result.status, result.out, result.err) == \
        ((1, f'{words}\n', '') if words else (0, '', ''))
    assert sent(router) == ([] if words else [
        f'ubus send wps_cli {{"action":1,"method":2,"pin":"{pin}"}}'])
    if not words:
        assert state_of(router, 'asked')['method'] == 'pin'


def test_pins_are_switched_off(router):
    ask(router, 'pin 12345670', 1, 'PINs are switched off\n')
    router.uci('set', 'kelm.main.pin=1')
    router.uci('set', 'kelm.main.mode=repeater')
    ask(router, 'pin 12345670', 1, 'a repeater takes no PIN\n')
    assert sent(router) == []


def test_a_repeater_looks_at_its_links_at_each_press(router):
    put_station(router)
    router.uci('set', 'kelm.main.mode=repeater')
    router.write('/tmp/wifi_runtime_info.2g', '{"status": 0}\n')
    router.write('/var/run/kelm/band.2g', 'ifname=phy0-sta0\n')
    router.write('/mnt/wpa/phy0-sta0', 'COMPLETED\n')
    daemon(router)
    ask(router, 'start')
    assert router.read('/tmp/wifi_runtime_info.2g') == '{"status": 1}\n'


def test_a_repeaters_cancel_is_noted(router):
    router.uci('set', 'kelm.main.mode=repeater')
    daemon(router)
    ask(router, 'start')
    router.write('/usr/libexec/kelm/told', '#!/bin/sh\necho "$@" > /mnt/told\n', 0o755)
    ask(router, 'cancel')
    wait_for(lambda: router.read('/mnt/told'), 'the note')
    assert router.read('/mnt/told') == 'cancelled\n'


def test_the_caller_is_not_held(router):
    """Neither by its output, which run() waits for, nor by the lock of the service."""
    began = time.monotonic()
    result = router.run(f'exec 1000> /tmp/service.lock; {REQUEST} start; echo $?')
    assert result.out == '0\n' and time.monotonic() - began < 1
    waiting = [pid for pid, words in router.processes() if REQUEST in words]
    assert waiting
    held = {number: os.readlink(f'/proc/{waiting[0]}/fd/{number}')
            for number in os.listdir(f'/proc/{waiting[0]}/fd')}
    assert {held['0'], held['1'], held['2']} == {held['0']} and held['0'].endswith('/dev/null')
    assert '1000' not in held and not any('pipe' in place for place in held.values())


def test_wrong_words(router):
    for words in ('', 'stop'):
        result = router.run(f'{REQUEST} {words}')
        assert (result.status, result.err) == (2, 'usage: request start|cancel|pin PIN\n')
