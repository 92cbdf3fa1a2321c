# SPDX-License-Identifier: ISC
"""What the daemon tells becomes words: bin/ubus, told, status.

The rows are those of the outcome tables of docs/interfaces.md: what is on the bus, what stands in
the info file after it, and what "/tmp/wps_result" holds.
"""
import fcntl
import json
import os
import shlex
import time

import pytest

from world import mount, unmount, wait_for

TOLD = '/usr/libexec/kelm/told'
UBUS = '/usr/libexec/kelm/bin/ubus'
STATUS = '/usr/libexec/kelm/status'
MAC = '02:00:00:00:07:00'

# name: events (action, 2g, 5g), texts of the info file at the end, the result file, and what is
# expected: the result of the whole, of 2.4 GHz and of 5 GHz.
ACCESS_POINT = {
    'joins_on_24_ghz': ('1 11 11, 2 12 12, 2 2 4', 'success ok', '1', 'joined joined not-needed'),
    'joins_on_5_ghz': ('1 11 11, 2 12 12, 2 4 2', 'ok success', '1', 'joined not-needed joined'),
    'one_times_out_then_5_ghz': ('1 11 11, 2 12 12, 2 4 2', 'timeout success', '1',
                                 'joined timeout joined'),
    'joins_beside_a_band_that_is_off': ('1 12 11, 2 0 12, 2 12 2', 'silent success', '1',
                                        'joined off joined'),
    'not_stored': ('1 11 11, 2 12 12, 2 3 4', 'error ok', '1', 'not-stored not-stored not-needed'),
    'overlap_on_both': ('1 11 11, 2 12 12, 2 4 4', 'overlap overlap', '0',
                        'overlap overlap overlap'),
    'overlap_and_time_out': ('1 11 11, 2 12 12, 2 4 4', 'overlap timeout', '0',
                             'overlap overlap timeout'),
    'nobody_comes': ('1 11 11, 2 12 12, 2 4 4', 'timeout timeout', '0',
                     'timeout timeout timeout'),
    'nobody_comes_beside_a_band_that_is_off': ('1 12 11, 2 0 12, 2 12 4', 'timeout timeout', '0',
                                               'timeout off timeout'),
    'hostapd_ends_its_wps': ('1 12 11, 2 0 12, 2 12 4', 'silent ok', '0', 'stopped off stopped'),
    'cancel': ('1 11 11, 2 12 12', 'ok ok', '-1', 'cancelled cancelled cancelled'),
    'second_cancel': ('1 11 11, 2 12 12, 2 12 12', 'ok ok', '-1',
                      'cancelled cancelled cancelled'),
    'cancel_beside_a_band_that_is_off': ('1 12 11, 2 0 12', 'silent ok', '-1',
                                         'cancelled off cancelled'),
    'sigterm': ('1 11 11, 2 12 12, 2 4 4', 'ok ok', '-1', 'stopped stopped stopped'),
    'sigterm_after_overlap': ('1 11 11, 2 12 12, 2 8 4', 'overlap ok', '-1',
                              'overlap overlap stopped'),
    'sigterm_after_a_cancel': ('1 11 11, 2 12 12, 2 12 12', 'ok ok', '-1',
                               'cancelled cancelled cancelled'),
    'still_running': ('1 11 11', 'ok ok', '-1', 'running running running'),
    'no_band_takes_part': ('1 12 12', 'silent silent', '-1', 'off off off'),
    'cancel_and_another_press': ('1 12 11, 2 0 12, 1 12 11', 'silent ok', '-1',
                                 'running off running'),
}

# The same; before what is expected how told learns of the end.
REPEATER = {
    'both_enrol': ('1 11 11', 'success success', '1', 'info', 'joined joined joined'),
    'one_enrols': ('1 11 11', 'success ok', '1', 'info', 'joined joined not-needed'),
    'one_enrols_the_other_still_tries': ('1 11 11', 'success ok', '1', None,
                                         'running running running'),
    'time_out_then_success': ('1 11 11', 'timeout success', '1', 'info',
                              'joined timeout joined'),
    'exchange_that_comes_to_nothing': ('1 11 11', 'cancel success', '1', 'info',
                                       'joined not-needed joined'),
    'connected_band_takes_no_part': ('1 12 11', 'silent success', '1', 'info',
                                     'joined off joined'),
    'nothing_stored': ('1 11 11, 2 3 4', 'error timeout', '1', 'info',
                       'not-stored not-stored timeout'),
    'one_not_stored': ('1 11 11', 'error success', '1', 'info', 'joined failed joined'),
    'overlap_on_both': ('1 11 11, 2 4 4', 'overlap overlap', '0', 'info',
                        'overlap overlap overlap'),
    'both_time_out': ('1 11 11, 2 4 4', 'timeout timeout', '0', 'info',
                      'timeout timeout timeout'),
    'both_fail': ('1 11 11, 2 4 4', 'error error', '0', 'info', 'failed failed failed'),
    'verdict_told_and_not_written_yet': ('1 11 11, 2 4 4', 'ok ok', '0', None,
                                         'running running running'),
    'cancel': ('1 11 11', 'ok ok', '-1', 'cancelled', 'cancelled cancelled cancelled'),
    'sigterm': ('1 11 11, 2 4 4', 'ok ok', '-1', 'over', 'stopped stopped stopped'),
    'sigterm_one_had_enrolled': ('1 11 11, 2 2 4', 'success ok', '1', 'over',
                                 'stopped stopped stopped'),
    'killed': ('1 11 11', 'ok ok', '-1', 'over', 'stopped stopped stopped'),
}

SENTENCES = {
    'joined': 'a device has joined',
    'not-needed': 'was not needed',
    'not-stored': 'joined, but what was learnt could not be stored',
    'overlap': 'two devices at once: wait two minutes, then press one',
    'timeout': 'nobody came in time',
    'cancelled': 'cancelled',
    'stopped': 'ended before there was an outcome',
    'running': 'waits for a device whose button was pressed',
    'off': 'takes no part',
}
REPEATERS_SENTENCES = {
    **SENTENCES,
    'joined': 'has joined the other router',
    'running': 'waits for a router whose button was pressed',
    'timeout': 'no router was found in time',
    'failed': 'the exchange failed',
}


def message(action, code_2g, code_5g):
    return (f'{{"action":{action},"2g_status":{code_2g},"5g_status":{code_5g},'
            '"5g2_status":0}')


def call(stock, *words):
    return stock.run('exec "$@"', *words)


def send(stock, *codes):
    """As the daemon publishes."""
    assert call(stock, UBUS, 'send', 'wps', message(*codes)).status == 0


def tell(stock, *codes):
    """The same, and what that has put into the background once more, to wait for it."""
    send(stock, *codes)
    call(stock, TOLD)


def info(texts, macs=('', '')):
    """The info file as the daemon writes it."""
    return ('{ "wps_action": 2, '
            f'"wl0_wps_status": "{texts[0]}", "wl0_wps_sta_mac": "{macs[0]}", '
            f'"wl1_wps_status": "{texts[1]}", "wl1_wps_sta_mac": "{macs[1]}" }}')


def status(stock):
    return json.loads(call(stock, STATUS).out)


def results(stock):
    attempt = status(stock)['attempt']
    if attempt is None:
        return None
    bands = attempt['bands']
    return ' '.join((attempt['result'], bands['2g']['result'], bands['5g']['result']))


def check_words(stock, expected, sentences):
    attempt = status(stock)['attempt']
    told = [attempt, attempt['bands']['2g'], attempt['bands']['5g']]
    assert ' '.join(one['result'] for one in told) == expected
    assert [one['message'] for one in told] == [sentences[one['result']] for one in told]


def play(stock, events, texts, result):
    """The daemon writes the result before it tells an end, and the info file behind each event."""
    for event in events.split(', '):
        action = event.split()[0]
        if action == '2':
            stock.write('/tmp/wps_result', result + '\n')
        tell(stock, *event.split())
        stock.write('/tmp/kelm.info', info(texts.split() if action == '2' else ('ok', 'ok')))


def is_running(stock, *command):
    return any(words == list(command) for _, words in stock.processes())


def wait_for_words(stock, expected):
    wait_for(lambda: results(stock) == expected, expected)


def wait_until_all_is_told(stock):
    wait_for(lambda: all(TOLD not in words for _, words in stock.processes()), 'the end of told')


@pytest.fixture(name='access_point')
def make_access_point(stock):
    stock.uci('set', 'kelm.main.enabled=1')
    stock.uci('commit', 'kelm')
    stock.write('/var/run/kelm/state', 'state=waiting\nmessage=ready on 2.4 GHz\n')
    stock.write('/tmp/wps_result', '-1\n')
    stock.fake('/bin/ubus')
    return stock


@pytest.fixture(name='repeater')
def make_repeater(access_point):
    access_point.uci('set', 'kelm.main.mode=repeater')
    access_point.uci('commit', 'kelm')
    return access_point


@pytest.mark.parametrize('name', ACCESS_POINT)
def test_an_access_points_outcome_in_words(access_point, name):
    events, texts, result, expected = ACCESS_POINT[name]
    play(access_point, events, texts, result)
    check_words(access_point, expected, SENTENCES)


@pytest.mark.parametrize('name', REPEATER)
def test_a_repeaters_outcome_in_words(repeater, name):
    events, texts, result, verb, expected = REPEATER[name]
    play(repeater, events, texts, result)
    if verb is not None:
        repeater.write('/tmp/kelm.info', info(texts.split()))
        call(repeater, TOLD, verb)
    check_words(repeater, expected, REPEATERS_SENTENCES)


def test_the_service_script_tells_of_a_repeaters_verdict(repeater):
    play(repeater, '1 11 11, 2 4 4', 'ok ok', '0')
    repeater.write('/tmp/kelm.info', info(('timeout', 'overlap')))
    assert call(repeater, '/etc/init.d/wps', 're_kelm_info').status == 0
    assert results(repeater) == 'overlap timeout overlap'


def test_the_clients_address_and_the_times_are_told(access_point):
    before = int(time.time())
    tell(access_point, 1, 11, 11)
    running = status(access_point)
    assert running['running'] is True
    assert running['state'] == 'running'
    assert running['attempt']['ended'] is None
    access_point.write('/tmp/wps_result', '1\n')
    tell(access_point, 2, 12, 12)
    access_point.write('/tmp/kelm.info', info(('success', 'ok'), (MAC, '')))
    tell(access_point, 2, 2, 4)
    ended = status(access_point)
    assert ended['running'] is False
    assert ended['state'] == 'waiting'
    assert ended['message'] == 'ready on 2.4 GHz'
    assert ended['attempt']['bands']['2g']['mac'] == MAC
    assert ended['attempt']['bands']['5g']['mac'] == ''
    assert before - 1 <= ended['attempt']['started'] <= ended['attempt']['ended']
    assert ended['attempt']['ended'] <= int(time.time()) + 1


def test_the_first_of_two_ends_is_not_the_verdict(access_point):
    long_wait = access_point.read(TOLD).replace('CANCEL_ALONE_S=5', 'CANCEL_ALONE_S=1000')
    access_point.write(TOLD, long_wait)
    tell(access_point, 1, 11, 11)
    access_point.write('/tmp/wps_result', '0\n')
    send(access_point, 2, 12, 12)
    wait_for(lambda: is_running(access_point, 'sleep', '1000'), 'told to wait for another message')
    assert results(access_point) == 'running running running'


def test_an_end_that_stays_alone_was_a_cancel(access_point):
    """An attempt by PIN does not reset the result of the one before."""
    access_point.write('/tmp/wps_result', '1\n')
    tell(access_point, 1, 11, 11)
    tell(access_point, 2, 12, 12)
    assert results(access_point) == 'cancelled cancelled cancelled'


def test_two_ends_at_once_keep_their_order(access_point):
    access_point.write('/tmp/kelm.info', info(('timeout', 'timeout')))
    access_point.write('/tmp/wps_result', '0\n')
    for _ in range(10):
        send(access_point, 1, 11, 11)
        send(access_point, 2, 12, 12)
        send(access_point, 2, 4, 4)
        wait_for_words(access_point, 'timeout timeout timeout')
    wait_until_all_is_told(access_point)
    assert results(access_point) == 'timeout timeout timeout'


def test_one_at_a_time_notes_what_was_told(access_point):
    lock = access_point.at('/var/run/kelm/told.lock')
    with open(lock, 'w', encoding='utf-8') as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        send(access_point, 1, 11, 11)
        wait_for(lambda: is_running(access_point, 'flock', '9'), 'told to wait')
        assert status(access_point)['attempt'] is None
    wait_for_words(access_point, 'running running running')


def test_the_messages_of_past_attempts_are_not_kept(access_point):
    for _ in range(3):
        play(access_point, *ACCESS_POINT['joins_on_24_ghz'][:3])
    assert access_point.read('/var/run/kelm/events').count('\n') == 3


def test_a_verdict_stays_whatever_comes_from_the_next_run(access_point):
    play(access_point, *ACCESS_POINT['joins_on_24_ghz'][:3])
    access_point.write('/tmp/kelm.info', info(('ok', 'ok')))
    tell(access_point, 2, 0, 0)
    tell(access_point, 2, 12, 12)
    for verb in ('info', 'over', 'cancelled'):
        call(access_point, TOLD, verb)
    assert results(access_point) == 'joined joined not-needed'


def test_a_new_start_forgets_the_last_attempt(access_point):
    play(access_point, *ACCESS_POINT['joins_on_24_ghz'][:3])
    tell(access_point, 1, 12, 11)
    assert results(access_point) == 'running off running'
    assert status(access_point)['attempt']['bands']['2g']['mac'] == ''


# --- On the way to the bus ---

@pytest.mark.parametrize('words', [
    ['send', 'wps', message(1, 11, 11)],
    ['send', 'wps', message(2, 0, 0)],
    ['send', 'wps', 'no JSON $(touch /tmp/owned) `touch /tmp/owned`'],
    ['send', 'wps'],
    ['send', 'other', '{"action":1,"2g_status":11}'],
    ['call', 'network.wireless', 'status', '{ "a": "two words" }'],
    [],
], ids=['start', 'idle', 'garbage', 'none', 'other', 'call', 'nothing'])
def test_all_words_come_to_the_real_ubus(access_point, words):
    access_point.fake('/bin/ubus', 'exit 7')
    assert call(access_point, UBUS, *words).status == 7
    assert [shlex.split(line) for line in access_point.commands()] == [['/bin/ubus', *words]]
    assert not access_point.exists('/tmp/owned')


@pytest.mark.parametrize('words', [
    ['send', 'wps_cli', '{"action":1,"method":1}'],
    ['send', 'wps', message(2, 0, 0)],
    ['listen', 'wps', message(1, 11, 11)],
], ids=['request', 'idle', 'listen'])
def test_nothing_is_noted_of_other_messages(access_point, words):
    call(access_point, UBUS, *words)
    assert not access_point.exists('/var/run/kelm/events')


def test_the_message_is_sent_where_there_is_no_room_to_note_it(access_point):
    access_point.fake('/bin/ubus', 'exit 7')
    folder = access_point.at('/var/run/kelm')
    mount('tmpfs', folder, 'tmpfs', 0, 'size=4k')
    access_point.write('/var/run/kelm/filler', 'x' * 4096)
    assert call(access_point, UBUS, 'send', 'wps', message(1, 11, 11)).status == 7
    wait_until_all_is_told(access_point)
    unmount(folder)
    assert call(access_point, STATUS).out.endswith('"attempt":null,"refused":null}\n')


def test_the_message_is_sent_where_there_is_no_folder_to_note_it(access_point):
    access_point.fake('/bin/ubus', 'exit 7')
    os.rename(access_point.at('/var/run/kelm'), access_point.at('/var/run/elsewhere'))
    result = call(access_point, UBUS, 'send', 'wps', message(1, 11, 11))
    assert (result.status, result.err) == (7, '')


def test_nobody_waits_for_what_works_in_the_background(access_point):
    """Neither for its end nor, reading, for that of its output."""
    access_point.fake(TOLD, 'sleep 1000')
    begin = time.monotonic()
    send(access_point, 1, 11, 11)
    assert time.monotonic() - begin < 15
    wait_for(lambda: is_running(access_point, 'sleep', '1000'), 'told')


def test_what_works_in_the_background_lets_others_pass(access_point):
    """Where there is nice; Debian's busybox has none."""
    access_point.fake('nice', 'shift 2; exec "$@"')
    send(access_point, 1, 11, 11)
    wait_for_words(access_point, 'running running running')
    assert f'nice -n 19 {TOLD}' in access_point.commands()


# --- What strangers can do ---

@pytest.mark.parametrize('text, mac', [
    ('success', '02:00:00:00:07:00"'), ('success', '02:00:00:00:07:0012'), ('success', '$(reboot)'),
    ('success', 'x' * 5000), ('success', '</script>')])
def test_an_address_that_is_none_is_left_out(access_point, text, mac):
    tell(access_point, 1, 11, 11)
    tell(access_point, 2, 12, 12)
    access_point.write('/tmp/kelm.info', info((text, 'ok'), (mac, MAC)))
    tell(access_point, 2, 2, 4)
    bands = status(access_point)['attempt']['bands']
    assert bands['2g'] == {'result': 'joined', 'message': 'a device has joined',
                           'mac': MAC if mac.startswith(MAC) and mac[17:18] == '"' else ''}


@pytest.mark.parametrize('content', ['', '{', 'null', '[' * 5000, '\x00\xff',
                                     '{ "wl0_wps_status": "'])
def test_an_info_file_that_is_broken_leaves_the_codes(access_point, content):
    tell(access_point, 1, 11, 11)
    tell(access_point, 2, 12, 12)
    access_point.write('/tmp/kelm.info', content)
    tell(access_point, 2, 2, 4)
    assert results(access_point) == 'joined joined not-needed'


def give_to_stranger(place):
    try:
        os.chown(place, 1000, 1000)
    except OSError:
        pytest.skip('only root can give a file away')


@pytest.mark.parametrize('kind', ['file', 'link', 'fifo', 'folder', 'missing'])
def test_a_strangers_file_is_not_read(access_point, kind):
    stranger = info(('success', 'success'), (MAC, MAC))
    path = '/tmp/kelm.info'
    tell(access_point, 1, 11, 11)
    tell(access_point, 2, 12, 12)
    if kind == 'file':
        access_point.write(path, stranger)
        give_to_stranger(access_point.at(path))
    elif kind == 'link':
        access_point.write('/var/run/roots', stranger)
        os.symlink('/var/run/roots', access_point.at(path))
    elif kind == 'fifo':
        os.mkfifo(access_point.at(path))
    elif kind == 'folder':
        os.mkdir(access_point.at(path))
    tell(access_point, 2, 4, 4)
    assert results(access_point) == 'stopped stopped stopped'
    assert status(access_point)['attempt']['bands']['2g']['mac'] == ''
