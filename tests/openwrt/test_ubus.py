# SPDX-License-Identifier: ISC
"""The stand-ins for ubus, for rpcd and its plugins, and for the system log."""
import json

import pytest

from hostile import JSON_VALUES
from world import wait_for

ECHO = 'printf "%s" "$message"'


@pytest.fixture(name='bus')
def router_with_an_object(stock):
    stock.object('demo', echo=ECHO, none='', refuses='exit 8', fails='exit 9', garbage='echo x')
    return stock


def plugin(stock, name, call, methods='{"give":{"n":5,"t":"x","b":true,"o":{},"l":[]}}'):
    stock.write(f'/usr/libexec/rpcd/{name}', f"""#!/bin/sh
case $1 in
list) echo '{methods}' ;;
call) {call} ;;
esac
""", 0o755)


@pytest.mark.parametrize('words, status, words_of_error', [
    ('call demo none', 0, ''),
    ('call demo refuses', 8, 'Operation not supported'),
    ('call demo fails', 9, 'Unknown error'),
    ('call demo nothing', 3, 'Method not found'),
    ('call nothing echo', 4, 'Not found'),
    ('call ../demo echo', 4, 'Not found'),
    ("call demo echo '{'", 12, 'Parsing message data failed'),
    ("call demo echo '[]'", 12, 'Parsing message data failed'),
    ('list nothing', 4, 'Not found'),
    ("list 'hostapd.*'", 4, 'Not found'),
    ('-t 1 wait_for nothing', 7, 'Request timed out'),
    ('wait_for demo network.wireless', 0, ''),
])
def test_statuses(bus, words, status, words_of_error):
    said = f'Command failed: {words_of_error}\n' if words_of_error else ''
    assert bus.run(f'ubus {words}') == (status, '', said)
    assert bus.run(f'ubus -S {words}') == (status, '', '')


@pytest.mark.parametrize('value', JSON_VALUES.values(), ids=JSON_VALUES)
def test_a_value_goes_to_the_object_and_back(bus, value):
    assert bus.ubus('demo', 'echo', {'value': value}) == (0, {'value': value})


def test_the_answer_is_laid_out_or_on_one_line(bus):
    message = '{"a":{"b":[1,"x/y"]}}'
    assert bus.run('ubus -S call demo echo "$1"', message).out == f'{message}\n'
    assert bus.run('ubus call demo echo "$1"', message).out == (
        '{\n\t"a": {\n\t\t"b": [\n\t\t\t1,\n\t\t\t"x/y"\n\t\t]\n\t}\n}\n')


def test_list_prints_the_names_that_match(bus):
    bus.object('hostapd.phy0-ap0', wps_start='')
    bus.object('hostapd.phy1-ap0', wps_start='')
    assert bus.run("ubus list 'hostapd.*'").out == 'hostapd.phy0-ap0\nhostapd.phy1-ap0\n'
    assert bus.run('ubus list demo').out == 'demo\n'
    names = bus.run('ubus list').out.split()
    assert names == sorted(names) and {'network', 'network.wireless', 'service'} <= set(names)


def test_a_family_of_objects_says_which_there_are(bus):
    bus.write('/usr/lib/testworld/ubus.d/hostapd', """#!/bin/sh
case $1 in
names) echo hostapd.a; echo hostapd.b ;;
list) case $2 in hostapd.[ab]) echo wps_start ;; *) exit 4 ;; esac ;;
call) echo "{\\"object\\":\\"$2\\",\\"method\\":\\"$3\\"}" ;;
esac
""", 0o755)
    assert bus.run("ubus list 'hostapd.*'").out == 'hostapd.a\nhostapd.b\n'
    assert bus.ubus('hostapd.b', 'x') == (0, {'object': 'hostapd.b', 'method': 'x'})
    assert bus.ubus('hostapd.c', 'x') == (4, None)


def test_wait_for_ends_when_the_object_comes(bus):
    waiting = bus.start('exec ubus wait_for later')
    wait_for(lambda: any(words[:2] == ['ubus', 'wait_for'] for _, words in bus.processes()),
             'the wait')
    assert waiting.poll() is None
    bus.object('later')
    assert waiting.wait(20) == 0


def test_events_go_over_the_bus(stock):
    assert stock.run('ubus -S send wps_cli "{}"').status == 255
    stock.bus()
    stock.start('ubus listen wps_cli > /tmp/heard')
    wait_for(lambda: stock.run("ubus send wps_cli '{\"action\":1}'").status == 0
             and stock.read('/tmp/heard'), 'the event')
    assert json.loads(stock.read('/tmp/heard').splitlines()[0]) == {'wps_cli': {'action': 1}}


def test_a_plugin_is_known_after_a_reload_alone(stock):
    plugin(stock, 'demo', 'read -r m; echo "{\\"said\\":$m}"')
    assert stock.ubus('demo', 'give') == (4, None)
    stock.run('/etc/init.d/rpcd reload')
    assert stock.ubus('demo', 'give', {'n': 1}) == (0, {'said': {'n': 1}})
    assert stock.ubus('demo', 'other') == (3, None)
    assert stock.run('ubus -v list demo').out.splitlines()[1] == (
        '\t"give":{"n":"Integer","t":"String","b":"Boolean","o":"Table","l":"Array"}')
    stock.remove('/usr/libexec/rpcd/demo')
    stock.run('/etc/init.d/rpcd restart')
    assert stock.ubus('demo', 'give') == (4, None)


def test_a_method_without_a_table_of_arguments_is_not_shown(stock):
    plugin(stock, 'demo', 'echo "{}"', '{"odd":1,"none":null,"list":[],"good":{"n":null}}')
    stock.run('/etc/init.d/rpcd reload')
    shown = stock.run('ubus -v list demo')
    assert (shown.status, shown.out.splitlines()[1:]) == (0, ['\t"good":{"n":"String"}'])


@pytest.mark.parametrize('call, status, answer', [
    ('echo "{}"', 0, {}),
    ('echo "{\\"a\\":1}"; echo told >&2; exit 7', 0, {'a': 1}),
    ('echo nonsense', 2, None),
    ('echo "[1]"', 2, None),
    (':', 2, None),
    ('printf "{\\"p\\":\\"%s\\"}" "$PATH"', 0, {'p': '/usr/sbin:/usr/bin:/sbin:/bin'}),
])
def test_a_plugins_text_decides_its_status(stock, call, status, answer):
    plugin(stock, 'demo', call)
    stock.run('/etc/init.d/rpcd reload')
    result = stock.run('ubus -S call demo give', env={'PATH': f'/x:{"/usr/sbin:/usr/bin:/bin"}'})
    assert (result.status, result.err) == (status, '')
    assert answer is None or json.loads(result.out) == answer


@pytest.mark.parametrize('holds', ['', '> /dev/null', '2> /dev/null'])
def test_a_child_that_holds_a_plugins_output_holds_the_answer(stock, holds):
    plugin(stock, 'demo', f'sleep 1000 {holds} & echo "{{}}"')
    stock.run('/etc/init.d/rpcd reload')
    assert stock.run('ubus -t 1 -S call demo give').status == 7


def test_a_child_that_holds_nothing_does_not(stock):
    plugin(stock, 'demo', 'sleep 1000 > /dev/null 2>&1 & echo "{}"')
    stock.run('/etc/init.d/rpcd reload')
    assert stock.ubus('demo', 'give') == (0, {})


@pytest.mark.parametrize('methods', ['', '[]', 'nonsense'])
def test_a_plugin_that_lists_no_object_is_left_out(stock, methods):
    plugin(stock, 'demo', 'echo "{}"', methods)
    stock.run('/etc/init.d/rpcd reload')
    assert stock.ubus('demo', 'give') == (4, None)


def test_a_page_may_call_what_an_acl_grants_and_has_its_session_added(stock):
    plugin(stock, 'demo', 'read -r m; echo "{\\"said\\":$m}"', '{"give":{},"take":{},"look":{}}')
    stock.run('/etc/init.d/rpcd reload')
    stock.write('/usr/share/rpcd/acl.d/demo.json', json.dumps({'demo-group': {
        'description': 'x', 'read': {'ubus': {'demo': ['look']}},
        'write': {'ubus': {'dem*': ['g*']}}}}))
    status, answer = stock.http('demo', 'give', {'n': 1})
    assert status == 0 and answer['said']['n'] == 1
    assert len(answer['said']['ubus_rpc_session']) == 32
    assert stock.http('demo', 'look')[0] == 0
    assert stock.http('demo', 'take') == (6, None)
    assert stock.http('network', 'reload') == (6, None)


def test_the_log_has_time_facility_and_level(stock):
    stock.run('logger -t kelm -p daemon.err "a  b"; logger -t kelm -p daemon.notice "Nov  1 x"; '
              'logger -t other -p user.info "$1"', "it's $x")
    assert stock.log() == ['daemon.err kelm: a  b', 'daemon.notice kelm: Nov  1 x',
                           "user.info other: it's $x"]
    assert stock.run('/sbin/logread -e other').out.count('\n') == 1
    assert stock.run('/sbin/logread -l 2').out.count('\n') == 2
