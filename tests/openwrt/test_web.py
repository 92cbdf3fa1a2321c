# SPDX-License-Identifier: ISC
"""The object "kelm" of rpcd, for web pages and `ubus call`; and the JSON that it answers."""
import json
import os

import pytest

PLUGIN = '/usr/libexec/rpcd/kelm'
STATUS = '/usr/libexec/kelm/status'
REQUEST = '/usr/libexec/kelm/request'
NO_OBJECT = 'the arguments are no JSON object'
NO_STRING = 'the PIN must be a string, such as "12345670"'
NO_DIGITS = 'a PIN has 4 or 8 digits'
SESSION = {'ubus_rpc_session': '0123456789abcdef0123456789abcdef'}

# After the install: nothing was ever started.
AT_FIRST = {
    'enabled': False, 'mode': 'ap', 'state': 'off', 'message': 'kelm is switched off',
    'running': False,
    'bands': {band: {'section': '', 'ifname': '', 'ssid': '', 'ssid_hex': '', 'ready': False,
                     'message': ''} for band in ('2g', '5g')},
    'attempt': None, 'refused': None}


def plugin(stock, method, text):
    """As rpcd calls it; the answer must be one JSON object on one line."""
    result = stock.run('exec "$@"', PLUGIN, 'call', method, stdin=text)
    assert (result.status, result.err, result.out.count('\n')) == (0, '', 1)
    return json.loads(result.out)


@pytest.fixture(name='router')
def make_router(stock):
    stock.fake(REQUEST)
    stock.forget_commands()
    return stock


def test_the_methods_are_listed(router):
    result = router.run('exec "$@"', PLUGIN, 'list')
    assert json.loads(result.out) == {'status': {}, 'start': {}, 'cancel': {},
                                      'pin': {'pin': 'str'}}


@pytest.mark.parametrize('words', [[], ['List'], ['help']])
def test_other_words_are_an_error(router, words):
    result = router.run('exec "$@"', PLUGIN, *words)
    assert (result.status, result.out) == (1, '')


def test_the_status_over_the_bus_and_from_a_page(router):
    assert router.ubus('kelm', 'status') == (0, AT_FIRST)
    assert router.http('kelm', 'status') == (0, AT_FIRST)
    assert json.loads(router.run(STATUS).out) == AT_FIRST


@pytest.mark.parametrize('method, message, command', [
    ('start', {}, f'{REQUEST} start'),
    ('cancel', {}, f'{REQUEST} cancel'),
    ('pin', {'pin': '12345670'}, f'{REQUEST} pin 12345670'),
    ('pin', {'pin': '1234'}, f'{REQUEST} pin 1234'),
    ('pin', {'pin': '1234-5670'}, f'{REQUEST} pin 12345670'),
    ('pin', {'pin': '1234 5670'}, f'{REQUEST} pin 12345670'),
])
def test_a_request_is_handed_on(router, method, message, command):
    assert router.ubus('kelm', method, message) == (0, {'ok': True, 'message': 'asked for'})
    assert router.http('kelm', method, message) == (0, {'ok': True, 'message': 'asked for'})
    assert router.commands() == [command, command]


@pytest.mark.parametrize('words', ['2.4 GHz: the network is hidden', '"quoted" \\ $HOME', 'Küche'])
def test_a_refusal_is_told_in_its_words(router, words):
    router.write('/tmp/words', words)
    router.fake(REQUEST, 'cat /tmp/words; exit 1')
    assert plugin(router, 'start', '{}') == {'ok': False, 'message': words}


def test_a_refusal_without_words(router):
    router.fake(REQUEST, 'exit 1')
    assert plugin(router, 'start', '{}') == {'ok': False, 'message': 'not taken'}


@pytest.mark.parametrize('method', ['start', 'cancel', 'pin', 'status'])
@pytest.mark.parametrize('text', [
    '', 'garbage', '{', '[]', '"text"', '12', 'null', 'true', '{"pin"', '$(touch /tmp/owned)',
    '[' * 4000, '\x00\x01\x02', '\udcff\udcfe'],
    ids=lambda text: repr(text)[:12])
def test_arguments_that_are_no_object(router, method, text):
    assert plugin(router, method, text) == {'ok': False, 'message': NO_OBJECT}
    assert router.commands() == []


def test_arguments_without_end(router):
    text = json.dumps({'pin': '1' * 100000})
    assert plugin(router, 'pin', text) == {'ok': False,
                                           'message': 'the arguments are too long'}


@pytest.mark.parametrize('method', ['', 'Start', 'list', 'pin; touch /tmp/owned'])
def test_there_are_no_other_methods(router, method):
    assert plugin(router, method, '{}') == {'ok': False, 'message': 'there is no such method'}


@pytest.mark.parametrize('pin, message', [
    (12345670, NO_STRING), (True, NO_STRING), (None, NO_STRING), (['12345670'], NO_STRING),
    ({'pin': '12345670'}, NO_STRING), (1e3, NO_STRING),
    ('', NO_DIGITS), ('123', NO_DIGITS), ('12345', NO_DIGITS), ('123456789', NO_DIGITS),
    ('1234567x', NO_DIGITS), ('-1234567', NO_DIGITS), ('1234_5670', NO_DIGITS),
    ('1234\n5670', NO_DIGITS), ('12345670; reboot', NO_DIGITS), ('$(touch /tmp/owned)', NO_DIGITS),
    ('`id`', NO_DIGITS), ("'", NO_DIGITS), ('"', NO_DIGITS), ('any', NO_DIGITS),
    ('１２３４５６７０', NO_DIGITS), ('1' * 3000, NO_DIGITS), ('*', NO_DIGITS), ('????????', NO_DIGITS)])
def test_a_pin_that_is_none(router, pin, message):
    assert plugin(router, 'pin', json.dumps({**SESSION, 'pin': pin})) == {
        'ok': False, 'message': message}
    assert router.commands() == []
    assert not router.exists('/tmp/owned')


def test_no_pin(router):
    assert plugin(router, 'pin', json.dumps(SESSION)) == {'ok': False,
                                                          'message': 'no PIN was given'}


def test_unknown_arguments_are_not_looked_at(router):
    text = json.dumps({**SESSION, 'action': 2, 'nested': {'pin': 1}, 'pin': '12345670'})
    assert plugin(router, 'pin', text)['ok'] is True
    assert plugin(router, 'start', text)['ok'] is True
    assert router.commands() == [f'{REQUEST} pin 12345670', f'{REQUEST} start']


def test_who_may_read_may_not_start(router):
    path = '/usr/share/rpcd/acl.d/kelm.json'
    group = json.loads(router.read(path))['kelm']
    assert group['read'] == {'ubus': {'kelm': ['status']}}
    assert group['write'] == {'ubus': {'kelm': ['start', 'cancel', 'pin']}}


# --- What the status is made of ---

# The bytes of a name, and its text; None where they are none.
SSIDS = [
    (b'Elm House', 'Elm House'),
    (b'', ''),
    (b' ', ' '),
    (b'"quoted" \\ back', '"quoted" \\ back'),
    (b"it's $(reboot) `id` $HOME %s %d *", "it's $(reboot) `id` $HOME %s %d *"),
    (b'</script><b>', '</script><b>'),
    (b'a\nb\n', 'a\nb\n'),
    (b'\x01\x1f\x7f\t', '\x01\x1f\x7f\t'),
    ('Küche 厨房 🛜'.encode(), 'Küche 厨房 🛜'),
    ('�'.encode(), '�'),
    (b'K\xfcche', None),
    (b'\xff' * 32, None),
    (b'\xc0\xaf', None),
    (b'\xed\xa0\x80', None),
    (b'\xf4\x90\x80\x80', None),
    (b'\xe5\x8e', None),
    (b'a\x00b', None),
    (b'\\x41 \\101', '\\x41 \\101'),
    (b'0' * 32, '0' * 32),
]


@pytest.mark.parametrize('ssid, text', SSIDS, ids=repr)
def test_the_name_of_a_network(router, ssid, text):
    router.write('/var/run/kelm/band.2g', 'section=default_radio0\nifname=phy0-ap0\n'
                 f'ssid_hex={ssid.hex()}\nready=1\nmessage=ready\n')
    status = json.loads(router.run(STATUS).out)
    assert status['bands']['2g'] == {'section': 'default_radio0', 'ifname': 'phy0-ap0',
                                     'ssid': text, 'ssid_hex': ssid.hex(), 'ready': True,
                                     'message': 'ready'}


@pytest.mark.parametrize('digits', ['0', 'xyz', '41;reboot', '4' * 101, '$(touch /tmp/owned)'])
def test_digits_that_are_none_are_no_name(router, digits):
    router.write('/var/run/kelm/band.5g', f'ssid_hex={digits}\n')
    assert json.loads(router.run(STATUS).out)['bands']['5g']['ssid'] is None
    assert not router.exists('/tmp/owned')


def test_the_state_and_the_last_refusal(router):
    router.uci('set', 'kelm.main.enabled=1')
    router.uci('set', 'kelm.main.mode=repeater')
    router.uci('commit', 'kelm')
    router.write('/var/run/kelm/state', 'state=not-ready\nmessage=no station for a repeater\n')
    router.write('/var/run/kelm/refused', 'message=a "new" word\ntime=1700000000\n')
    status = json.loads(router.run(STATUS).out)
    assert {name: status[name] for name in ('enabled', 'mode', 'state', 'message', 'refused')} == {
        'enabled': True, 'mode': 'repeater', 'state': 'not-ready',
        'message': 'no station for a repeater',
        'refused': {'message': 'a "new" word', 'time': 1700000000}}


@pytest.mark.parametrize('name', ['state', 'band.2g', 'attempt', 'refused'])
@pytest.mark.parametrize('content', ['', '=\n=\n', 'message', 'started=x\nended=-1\ntime=1e9\nid=',
                                     'mac_2g="\nid=1\nphase=joined\nstart_2g=11\nmethod=\\',
                                     'x' * 100000, '\x00\n\xff'], ids=lambda text: repr(text)[:12])
def test_a_state_file_that_is_broken(router, name, content):
    router.write(f'/var/run/kelm/{name}', content)
    json.loads(router.run(STATUS).out)


def test_without_a_configuration(router):
    os.unlink(router.at('/etc/config/kelm'))
    assert json.loads(router.run(STATUS).out) == AT_FIRST
