# SPDX-License-Identifier: ISC
"""The stand-ins for rc.common and procd do what the real ones do, also where that is unpleasant."""
import pytest

from world import wait_for

COUNTING = '#!/bin/sh\necho $$ >> /tmp/starts\n'


def script(stock, start=':', rest='', name='demo'):
    """An init script whose start_service is this text."""
    stock.write(f'/etc/init.d/{name}', f"""#!/bin/sh /etc/rc.common
START=95
USE_PROCD=1
start_service() {{
{start}
}}
{rest}
""", 0o755)


def one_instance(command, *parameters):
    lines = ''.join(f'procd_set_param {parameter}\n' for parameter in parameters)
    return f'procd_open_instance\nprocd_set_param command {command}\n{lines}procd_close_instance'


def starts(stock):
    return (stock.read('/tmp/starts') or '').split()


def instance(stock, name='demo'):
    answer = stock.ubus('service', 'list', {'name': name})[1]
    return answer.get(name, {}).get('instances', {}).get('instance1')


def init(stock, verb, name='demo', **options):
    return stock.run(f'/etc/init.d/{name} "$@"', *verb.split(), **options)


@pytest.fixture(name='supervised')
def router_with_procd(stock):
    stock.procd()
    stock.write('/usr/bin/counts', COUNTING + 'exec sleep 1000\n', 0o755)
    stock.write('/usr/bin/ends', COUNTING, 0o755)
    return stock


def wait_starts(stock, count):
    wait_for(lambda: len(starts(stock)) >= count, f'{count} starts')
    return starts(stock)


def test_an_unknown_verb_prints_help_and_is_no_failure(stock):
    script(stock)
    result = init(stock, 'nonsense')
    assert result.status == 0
    assert 'Available commands:' in result.out


def test_extra_verbs_get_their_arguments_and_give_their_status(stock):
    script(stock, rest='EXTRA_COMMANDS="old"\nold() { echo "$# $1"; return 3; }\n'
           'extra_command new "help of the new"\nnew() { return 4; }')
    assert init(stock, 'old a').status == 3
    assert init(stock, 'old a').out == '1 a\n'
    assert init(stock, 'new').status == 4
    assert 'help of the new' in init(stock, 'help').out


def test_a_script_may_have_its_own_restart_but_not_its_own_start(supervised):
    script(supervised, one_instance('/usr/bin/counts'),
           'restart() { echo mine; }\nstart() { echo mine; }')
    assert init(supervised, 'restart').out == 'mine\n'
    assert init(supervised, 'start').out == ''
    wait_starts(supervised, 1)


def test_enable_and_disable_make_and_remove_the_link(stock):
    script(stock)
    assert init(stock, 'enabled').status == 1
    assert init(stock, 'enable').status == 0
    assert stock.exists('/etc/rc.d/S95demo')
    assert init(stock, 'enabled').status == 0
    init(stock, 'disable')
    assert not stock.exists('/etc/rc.d/S95demo')


def test_the_message_is_as_procd_has_it(stock):
    stock.object('service', set='', delete='')
    script(stock, one_instance('/bin/a "b c"', 'respawn 0 1 0', "env 'K=it=1'", 'term_timeout 15',
                               'stdout 1'),
           'service_triggers() { procd_add_reload_trigger wireless;'
           ' procd_add_raw_trigger "hostapd.*" 2000 /bin/x y; }')
    assert init(stock, 'start').status == 0
    assert stock.commands() == [
        'ubus service set {"name":"demo","script":"/etc/init.d/demo","instances":{"instance1":{'
        '"command":["/bin/a","b c"],"respawn":["0","1","0"],"env":{"K":"it=1"},"term_timeout":15,'
        '"stdout":true}},"triggers":[["config.change",["if",["eq","package","wireless"],'
        '["run_script","/etc/init.d/demo","reload"]],1000],'
        '["hostapd.*",["run_script","/bin/x","y"],2000]]}']
    stock.forget_commands()
    init(stock, 'stop')
    assert stock.commands() == ['ubus service delete {"name":"demo"}']


def test_the_scripts_own_json_is_not_disturbed(supervised):
    script(supervised, 'json_init\njson_add_string a b\n' + one_instance('/usr/bin/counts')
           + '\njson_dump > /tmp/json')
    init(supervised, 'start')
    assert supervised.read('/tmp/json') == '{ "a": "b" }\n'
    assert instance(supervised)['command'] == ['/usr/bin/counts']


def test_start_runs_the_command_with_the_path_of_the_boot_and_stop_ends_it(supervised):
    script(supervised, one_instance('/usr/bin/counts', 'pidfile /tmp/pid', 'env A=b'))
    assert init(supervised, 'start').status == 0
    pid = wait_starts(supervised, 1)[0]
    state = instance(supervised)
    assert state['running'] is True and state['pid'] == int(pid) and state['term_timeout'] == 5
    assert supervised.read('/tmp/pid') == f'{pid}\n'
    environment = supervised.read(f'/proc/{pid}/environ').split('\0')
    assert 'PATH=/usr/sbin:/usr/bin:/sbin:/bin' in environment and 'A=b' in environment
    assert init(supervised, 'running').status == 0
    assert init(supervised, 'stop').status == 0
    wait_for(lambda: not supervised.exists(f'/proc/{pid}'), 'the end')
    assert init(supervised, 'running').status == 1
    assert not supervised.exists('/tmp/pid')


@pytest.mark.parametrize('change, restarts', [
    ('true', False),
    ('echo 2 >> /etc/config/demo', True),
    ("sed -i 's/A=1/A=2/' /etc/init.d/demo", True),
    ("sed -i 's/counts x/counts y/' /etc/init.d/demo", True),
    ("sed -i 's/respawn 0 1 0/respawn 0 2 0/' /etc/init.d/demo", True),
], ids=['nothing', 'a file', 'the environment', 'the command', 'respawn'])
def test_a_second_start_restarts_only_what_has_changed(supervised, change, restarts):
    script(supervised, one_instance('/usr/bin/counts x', 'env A=1', 'file /etc/config/demo',
                                    'respawn 0 1 0'))
    init(supervised, 'start')
    wait_starts(supervised, 1)
    supervised.run(change)
    init(supervised, 'start')
    if restarts:
        wait_starts(supervised, 2)
    state = instance(supervised)
    assert state['running'] is True
    assert len(starts(supervised)) == 1 + restarts


def test_a_changed_instance_with_a_reload_signal_gets_that(supervised):
    # The trap first: the signal may come as soon as the start is counted.
    supervised.write('/usr/bin/counts', '#!/bin/sh\ntrap "echo hup >> /tmp/starts" HUP\n'
                     'echo $$ >> /tmp/starts\nwhile :; do sleep 0.1; done\n', 0o755)
    script(supervised, one_instance('/usr/bin/counts', 'env "A=$(cat /tmp/a)"',
                                    'reload_signal HUP'))
    supervised.write('/tmp/a', '1')
    init(supervised, 'start')
    pid = wait_starts(supervised, 1)
    supervised.write('/tmp/a', '2')
    again = init(supervised, 'start')
    assert (again.status, again.out, again.err) == (0, '', '')
    assert instance(supervised)['env'] == {'A': '2'}
    assert wait_starts(supervised, 2) == pid + ['hup']


def test_threshold_0_never_counts_a_crash(supervised):
    script(supervised, one_instance('/usr/bin/ends', 'respawn 0 0 1'))
    init(supervised, 'start')
    wait_starts(supervised, 8)
    assert 'crash loop' not in '\n'.join(supervised.log())


def test_respawn_gives_up_after_so_many_short_runs(supervised):
    script(supervised, one_instance('/usr/bin/ends', 'respawn 3600 0 3'))
    init(supervised, 'start')
    wait_for(lambda: 'crash loop' in '\n'.join(supervised.log()), 'the crash loop')
    assert len(starts(supervised)) == 4
    assert instance(supervised)['running'] is False
    assert supervised.log()[-1].startswith(
        'daemon.info procd: Instance demo::instance1 s in a crash loop 4 crashes, 0 seconds')


def test_respawn_waits_its_time_and_none_is_one_run(supervised):
    script(supervised, one_instance('/usr/bin/ends', 'respawn 0 1 0'))
    init(supervised, 'start')
    wait_starts(supervised, 1)
    script(supervised, one_instance('/usr/bin/counts'), name='once')
    assert instance(supervised)['respawn'] == {'threshold': 0, 'timeout': 1, 'retry': 0}
    assert len(starts(supervised)) == 1
    wait_starts(supervised, 2)


def test_without_numbers_respawn_has_its_defaults(supervised):
    script(supervised, one_instance('/usr/bin/counts', 'respawn'))
    init(supervised, 'start')
    assert instance(supervised)['respawn'] == {'threshold': 3600, 'timeout': 5, 'retry': 5}


def test_stop_goes_to_the_one_process_and_kills_it_in_the_end(supervised):
    supervised.write('/usr/bin/stubborn', '#!/bin/sh\ntrap "echo term >> /tmp/starts" TERM\n'
                     'echo $$ >> /tmp/starts\nsleep 1000 &\necho $! >> /tmp/starts\n'
                     'while :; do wait; done\n', 0o755)
    script(supervised, one_instance('/usr/bin/stubborn', 'term_timeout 1'))
    init(supervised, 'start')
    pid, child = wait_starts(supervised, 2)
    init(supervised, 'stop')
    wait_starts(supervised, 3)
    assert starts(supervised)[2] == 'term' and supervised.exists(f'/proc/{pid}')
    wait_for(lambda: not supervised.exists(f'/proc/{pid}'), 'SIGKILL')
    assert supervised.exists(f'/proc/{child}')


def test_a_restart_waits_for_the_old_process(supervised):
    supervised.write('/usr/bin/slow', '#!/bin/sh\n'
                     'trap "sleep 0.5; echo down >> /tmp/starts; exit" TERM\n'
                     'echo up >> /tmp/starts\nwhile :; do sleep 0.1; done\n', 0o755)
    script(supervised, one_instance('/usr/bin/slow'))
    init(supervised, 'start')
    wait_starts(supervised, 1)
    init(supervised, 'restart')
    assert wait_starts(supervised, 3) == ['up', 'down', 'up']


def test_output_goes_to_the_log_where_it_is_asked_for(supervised):
    supervised.write('/usr/bin/talks', '#!/bin/sh\necho out\necho err >&2\n', 0o755)
    script(supervised, one_instance('/usr/bin/talks', 'stdout 1', 'stderr 1'))
    init(supervised, 'start')
    lines = wait_for(lambda: len(supervised.log()) == 2 and supervised.log(), 'two lines')
    assert sorted(line.split('[')[0] + line.split(']')[1] for line in lines) == [
        'daemon.err talks: err', 'daemon.info talks: out']


@pytest.mark.parametrize('closes, blocked', [('', True), ('1000>&-', False)])
def test_a_child_in_the_background_holds_the_lock_unless_it_closes_it(supervised, closes, blocked):
    script(supervised, f'sleep 1000 > /dev/null 2>&1 {closes} &\n')
    init(supervised, 'start')
    stop = supervised.start('/etc/init.d/demo stop; echo done > /tmp/stopped')
    if blocked:
        wait_for(lambda: 'flock' in supervised.run('ps').out, 'the wait for the lock')
        assert stop.poll() is None and not supervised.exists('/tmp/stopped')
    else:
        wait_for(lambda: supervised.exists('/tmp/stopped'), 'the stop')


def test_a_change_of_settings_reloads_once_after_its_delay(supervised):
    script(supervised, 'echo start >> /tmp/starts',
           'service_triggers() { procd_add_reload_trigger wireless demo; }\n'
           'reload_service() { echo reload >> /tmp/starts; }')
    init(supervised, 'start')
    for package in ('network', 'wireless', 'wireless'):
        supervised.ubus('service', 'event',
                        {'type': 'config.change', 'data': {'package': package}})
    assert wait_starts(supervised, 2) == ['start', 'reload']


def test_a_raw_trigger_takes_a_pattern_and_runs_its_command(supervised):
    script(supervised, rest='service_triggers() {'
           ' procd_add_raw_trigger "hostapd.*" 0 /bin/sh -c "echo raw >> /tmp/starts"; }')
    init(supervised, 'start')
    for event in ('wpa_supplicant.phy0-sta0.add', 'hostapd.phy0-ap0.add'):
        supervised.ubus('service', 'event', {'type': event, 'data': {}})
    assert wait_starts(supervised, 1) == ['raw']
    init(supervised, 'stop')
    supervised.ubus('service', 'event', {'type': 'hostapd.phy0-ap0.add', 'data': {}})
    assert supervised.ubus('service', 'list') == (0, {})


def test_an_unknown_user_is_root_and_an_unknown_service_is_not_found(supervised):
    script(supervised, one_instance('/usr/bin/counts', 'user nobodyhere'))
    init(supervised, 'start')
    pid = wait_starts(supervised, 1)[0]
    assert 'Uid:\t0\t' in supervised.read(f'/proc/{pid}/status')
    assert supervised.ubus('service', 'delete', {'name': 'other'})[0] == 4


ODD_INSTANCES = [
    None, 1, [], 'x', {}, {'command': 'x'}, {'command': []},
    {'command': [None, '/bin/true'], 'stdout': True},
    {'command': ['/bin/true'], 'respawn': 1}, {'command': ['/bin/true'], 'respawn': [None, 'a']},
    {'command': ['/bin/true'], 'file': 'x'}, {'command': ['/bin/true'], 'file': [None, {}]},
    {'command': ['/bin/true'], 'env': 1}, {'command': ['/bin/true'], 'env': {'A': None}},
    {'command': ['/bin/true'], 'pidfile': {}, 'stdout': 'x', 'user': 1, 'term_timeout': 'x'},
]


@pytest.mark.parametrize('odd', ODD_INSTANCES, ids=str)
def test_a_message_that_is_no_instance_hurts_nobody(supervised, odd):
    script(supervised, one_instance('/usr/bin/counts'))
    init(supervised, 'start')
    wait_starts(supervised, 1)
    for message in ({'name': 'odd', 'instances': {'instance1': odd}},
                    {'name': 'odd', 'instances': [odd], 'triggers': [odd, ['x', odd, odd]]}):
        assert supervised.ubus('service', 'set', message)[0] == 0
        assert supervised.ubus('service', 'event', {'type': 'x', 'data': {}})[0] == 0
    assert instance(supervised)['running'] is True
