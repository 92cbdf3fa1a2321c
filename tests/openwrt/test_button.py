# SPDX-License-Identifier: ISC
"""The WPS button: which event is a press, and whose script it runs."""
import hashlib
import os

import pytest
from world import wait_for

HANDLER = '/etc/rc.wps/30-kelm'
REQUEST = '/usr/libexec/kelm/request'
TAKE = '/usr/libexec/kelm/take-button'
OURS = '/usr/libexec/kelm/rc.button-wps'
BUTTON = '/etc/rc.button/wps'
STOCK = f'{BUTTON}.stock'
START = f'{HANDLER} start'  # the request runs in the handler's own shell

# 24.10's acts on its own, that of 25.12 runs a folder.
STOCK_SCRIPT = '#!/bin/sh\necho "stock $BUTTON $ACTION $SEEN" >> /mnt/log/commands\nexit 3\n'
NEWER_SCRIPT = STOCK_SCRIPT + '# after an upgrade\n'
FOLDER_SCRIPT = '#!/bin/sh\nfor script in /etc/rc.wps/*; do "$script" && exit 0; done\nexit 1\n'

LONG = 'daemon.notice kelm: the WPS button was held for {} seconds: a long press is for repeaters'
SWITCH = 'daemon.notice kelm: the WPS switch was moved; only a button is a press'
NO_TIME = 'daemon.notice kelm: the WPS button does not say how long it was held'

# mode, action, seconds, type: the status is 0 for all; is it a press, what is logged.
EVENTS = [
    ('ap', 'released', '0', '', True, None),
    ('ap', 'released', '1', '', True, None),
    ('ap', 'released', '2', '', True, None),
    ('ap', 'released', '3', '', False, LONG.format(3)),
    ('ap', 'released', '5', '', False, LONG.format(5)),
    ('ap', 'released', '86400', '', False, LONG.format(86400)),
    ('ap', 'pressed', '0', '', False, None),
    ('ap', 'pressed', '7', '', False, None),
    ('ap', 'timeout', '5', '', False, None),
    ('ap', 'timeout', '1', '', False, None),
    ('ap', 'released', '1', 'switch', False, SWITCH),
    ('ap', 'pressed', '1', 'switch', False, None),
    ('ap', 'released', '1', 'button', True, None),
    ('ap', 'released', '', '', False, NO_TIME),
    ('ap', 'released', '-1', '', False, NO_TIME),
    ('ap', 'released', '$(touch /tmp/owned)', '', False, NO_TIME),
    ('ap', '', '1', '', False, None),
    ('ap', 'released\nreleased', '1', '', False, None),
    ('repeater', 'released', '0', '', True, None),
    ('repeater', 'released', '3', '', True, None),
    ('repeater', 'released', '5', '', True, None),
    ('repeater', 'timeout', '5', '', False, None),
    ('repeater', 'released', '5', 'switch', False, SWITCH),
]


def configure(stock, **settings):
    for name, value in settings.items():
        stock.uci('set', f'kelm.main.{name}={value}')
    stock.uci('commit', 'kelm')


def event(action='released', seen='1', kind=''):
    return {'BUTTON': 'wps', 'ACTION': action, 'SEEN': seen, 'TYPE': kind,
            'press': 'short'}  # a name that the script has for itself


@pytest.fixture(name='router')
def make_router(stock):
    configure(stock, enabled=1)
    stock.fake(REQUEST)
    stock.forget_commands()
    return stock


def happens(router, script=HANDLER, **words):
    """An event, to the end of all that it started: that holds the copy of the output."""
    return router.run(f'exec 5>&1; exec {script}', env=event(**words))


@pytest.mark.parametrize('mode, action, seen, kind, is_press, logged', EVENTS)
def test_which_event_is_a_press(router, mode, action, seen, kind, is_press, logged):
    configure(router, mode=mode)
    assert happens(router, action=action, seen=seen, kind=kind) == (0, '', '')
    assert router.commands() == ([START] if is_press else [])
    assert router.log() == ([logged] if logged else [])
    assert not router.exists('/tmp/owned')


# What the service has noted at its start counts before the settings, which are asked without it.
@pytest.mark.parametrize('state, button, settings, taken', [
    ('waiting', '1', '0', True),
    ('running', '1', '0', True),
    ('not-ready', '1', '0', True),
    ('stopped', '1', '0', True),
    ('waiting', '0', '1', False),
    ('off', '1', '0', False),
    ('off', '0', '1', True),
    ('waiting', None, '1', True),
    (None, '0', '1', True),
    (None, '1', '0', False),
])
def test_whose_the_button_is_was_noted_by_the_service(router, state, button, settings, taken):
    configure(router, enabled=settings, button=settings)
    router.forget_commands()
    for name, value in (('state', state), ('button', button)):
        if value is not None:
            router.run('mkdir -p /var/run/kelm; echo "$1" > "/var/run/kelm/${1%=*}"',
                       f'{name}={value}')
    assert router.run(f'exec {HANDLER}', env=event()).status == (0 if taken else 1)
    if taken:
        wait_for(router.commands, 'the request')
    assert router.commands() == ([START] if taken else [])


@pytest.mark.parametrize('settings', [{'enabled': 0}, {'button': 0}, {'enabled': 0, 'button': 0}])
@pytest.mark.parametrize('action', ['pressed', 'released', 'timeout'])
def test_a_button_that_is_not_ours_is_left_to_stock(router, settings, action):
    configure(router, **settings)
    assert happens(router, action=action) == (1, '', '')
    assert router.commands() == []


def test_a_press_that_is_refused_is_taken_all_the_same(router):
    """The stock script would open all networks."""
    router.fake(REQUEST, 'echo the network is hidden; exit 1')
    assert happens(router) == (0, '', '')
    assert router.commands() == [START]


def test_no_other_event_waits_for_a_press(router):
    """hotplug runs one command at a time; a radio that starts may need long to answer."""
    router.write(f'/mnt/reply/{HANDLER}', 'read -r go < /tmp/go')  # in whose shell the request runs
    router.run('mkfifo /tmp/go')
    assert router.run(f'exec {HANDLER}', env=event(), timeout=5) == (0, '', '')
    wait_for(lambda: router.commands() == [START], 'the request')
    assert any(HANDLER in words for _, words in router.processes())
    router.run('echo > /tmp/go', timeout=5)


# --- 24.10: in the place of the stock script ---

def put_stock_script(router, text=STOCK_SCRIPT, mode=0o755):
    router.write(BUTTON, text, mode)


def standing(router, path=BUTTON):
    """What is there: a link's target, a file's digest and mode, or None."""
    place = router.at(path, follow=False)
    if os.path.islink(place):
        return os.readlink(place)
    if not os.path.exists(place):
        return None
    with open(place, 'rb') as file:
        return hashlib.sha256(file.read()).hexdigest(), router.mode(path)


def of_script(text, mode=0o755):
    return hashlib.sha256(text.encode()).hexdigest(), mode


def folder(router):
    return sorted(os.listdir(router.at('/etc/rc.button')))


def take(router, word):
    result = router.run('exec "$@"', TAKE, word)
    assert (result.out, result.err) == ('', '')
    return result.status


@pytest.mark.parametrize('mode', [0o755, 0o700, 0o4711])
def test_on_and_off_leave_the_script_as_it_was(router, mode):
    put_stock_script(router, mode=mode)
    os.utime(router.at(BUTTON), (1000000000, 1000000000))
    for _ in range(2):
        for _ in range(3):
            assert take(router, 'on') == 0
            assert standing(router) == OURS
            assert standing(router, STOCK) == of_script(STOCK_SCRIPT, mode)
            assert folder(router) == ['wps', 'wps.stock']
        for _ in range(3):
            assert take(router, 'off') == 0
            assert standing(router) == of_script(STOCK_SCRIPT, mode)
            assert folder(router) == ['wps']
    assert os.stat(router.at(BUTTON)).st_mtime == 1000000000


def test_an_upgrade_of_the_stock_script_is_what_comes_back(router):
    put_stock_script(router)
    take(router, 'on')
    os.unlink(router.at(BUTTON, follow=False))
    put_stock_script(router, NEWER_SCRIPT)
    take(router, 'on')
    assert standing(router) == OURS
    take(router, 'off')
    assert standing(router) == of_script(NEWER_SCRIPT)
    assert folder(router) == ['wps']


def test_off_after_an_upgrade_leaves_the_new_script(router):
    put_stock_script(router)
    take(router, 'on')
    os.unlink(router.at(BUTTON, follow=False))
    put_stock_script(router, NEWER_SCRIPT)
    take(router, 'off')
    assert standing(router) == of_script(NEWER_SCRIPT)
    assert folder(router) == ['wps']


def test_the_button_setting_gives_the_button_back(router):
    put_stock_script(router)
    configure(router, button=0)
    take(router, 'on')
    assert standing(router) == of_script(STOCK_SCRIPT)
    configure(router, button=1)
    take(router, 'on')
    configure(router, button=0)
    take(router, 'on')
    assert standing(router) == of_script(STOCK_SCRIPT)
    assert folder(router) == ['wps']


@pytest.mark.parametrize('others', [[], ['wps.stock']])
def test_nothing_is_done_where_the_stock_script_asks_the_folder(router, others):
    put_stock_script(router, FOLDER_SCRIPT)
    for name in others:
        router.write(f'/etc/rc.button/{name}', 'of somebody else')
    for word in ('on', 'on', 'off'):
        assert take(router, word) == 0
        assert standing(router) == of_script(FOLDER_SCRIPT)
        assert folder(router) == ['wps', *others]


@pytest.mark.parametrize('word', ['on', 'off'])
def test_nothing_is_done_where_no_script_is(router, word):
    assert take(router, word) == 0
    assert folder(router) == []


def test_somebody_elses_link_is_left_alone(router):
    os.symlink('/usr/bin/mine', router.at(BUTTON, follow=False))
    for word in ('on', 'off'):
        assert take(router, word) == 0
        assert standing(router) == '/usr/bin/mine'


def test_our_link_without_a_saved_script_goes(router):
    os.symlink(OURS, router.at(BUTTON, follow=False))
    take(router, 'off')
    assert folder(router) == []


@pytest.mark.parametrize('word', ['', 'maybe'])
def test_other_words_are_refused(router, word):
    result = router.run('exec "$@"', TAKE, word)
    assert (result.status, result.err) == (1, 'usage: take-button on|off\n')


def run_until(router, word, step):
    """Runs the script, and kills it before this one of the commands that change something."""
    commands = ('cp', 'ln', 'mv', 'rm', 'sync')
    killing = f'step() {{ steps=$((steps + 1)); [ $steps != {step} ] || kill -9 $$; }}\n'
    killing += ''.join(f'{name}() {{ step; command {name} "$@"; }}\n' for name in commands)
    router.write('/tmp/killed', router.read(TAKE).replace('\n\n', f'\n\n{killing}\n', 1), 0o755)
    return router.run('exec "$@"', '/tmp/killed', word).status


def check_button_works(router):
    """A press reaches kelm, or the stock script; never neither."""
    router.forget_commands()
    happens(router, BUTTON)
    assert router.commands() in ([START], ['stock wps released 1'])


@pytest.mark.parametrize('word', ['on', 'off'])
@pytest.mark.parametrize('step', range(1, 8))
def test_a_power_cut_leaves_a_button_that_works(router, word, step):
    put_stock_script(router)
    if word == 'off':
        take(router, 'on')
    status = run_until(router, word, step)
    # "on" changes something in six steps, "off" in two.
    assert status == (-9 if step <= (6 if word == 'on' else 2) else 0)
    check_button_works(router)
    take(router, 'on')
    assert standing(router) == OURS
    assert standing(router, STOCK) == of_script(STOCK_SCRIPT)
    assert folder(router) == ['wps', 'wps.stock']
    take(router, 'off')
    assert standing(router) == of_script(STOCK_SCRIPT)
    assert folder(router) == ['wps']


@pytest.mark.parametrize('left', ['', '#!/bin/sh\nec', 'link', 'folder'])
def test_half_a_copy_is_not_taken_for_the_script(router, left):
    put_stock_script(router)
    if left == 'link':
        os.symlink(BUTTON, router.at(f'{BUTTON}.new', follow=False))
    elif left == 'folder':
        os.mkdir(router.at(f'{BUTTON}.new'))
    else:
        router.write(f'{BUTTON}.new', left)
    take(router, 'on')
    check_button_works(router)
    take(router, 'off')
    assert standing(router) == of_script(STOCK_SCRIPT)


def test_a_press_in_the_place_of_the_stock_script(router):
    put_stock_script(router)
    take(router, 'on')
    for action in ('pressed', 'released'):
        assert happens(router, BUTTON, action=action).status == 0
    assert router.commands() == [START]


@pytest.mark.parametrize('settings', [{'enabled': 0}, {'button': 0}])
def test_what_is_not_ours_goes_on_to_the_stock_script(router, settings):
    put_stock_script(router)
    take(router, 'on')
    configure(router, **settings)
    for action, seen in (('pressed', '0'), ('released', '4')):
        assert happens(router, BUTTON, action=action, seen=seen).status == 3
    assert router.commands() == ['stock wps pressed 0', 'stock wps released 4']


def test_a_handler_without_a_stock_script_does_nothing(router):
    configure(router, enabled=0)
    assert happens(router, OURS) == (0, '', '')
