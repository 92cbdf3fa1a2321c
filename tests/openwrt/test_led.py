# SPDX-License-Identifier: ISC
"""The WPS LED: what it shows, and that its owner gets it back."""
import contextlib
import fcntl
import os
import re
import signal
import time

import pytest

from world import mount, unmount, wait_for

LED = '/usr/libexec/kelm/led'
SAVED = '/var/run/kelm/led'
TRIGGERS = ('none', 'timer', 'netdev', 'heartbeat')


class Led:
    """Files as the kernel shows them: the trigger in brackets among all that there are."""

    def __init__(self, stock, name='green:wps', trigger='none', **files):
        self.stock = stock
        self.folder = f'/sys/class/leds/{name}'
        self.files = {'brightness': '0', 'max_brightness': '255', 'delay_on': '0',
                      'delay_off': '0', **files}
        for file, text in self.files.items():
            stock.write(f'{self.folder}/{file}', f'{text}\n')
        self._show(trigger)

    def _show(self, trigger):
        shown = ' '.join(f'[{name}]' if name == trigger else name for name in TRIGGERS)
        self.stock.write(f'{self.folder}/trigger', f'{shown}\n')

    def trigger(self):
        text = self.stock.read(f'{self.folder}/trigger').strip()
        found = re.search(r'\[(.*)\]', text)
        return found.group(1) if found else text

    def read(self, *names):
        return tuple(self.stock.read(f'{self.folder}/{name}').strip() for name in names)

    def do(self, verb):
        """Then the kernel has taken the new trigger."""
        result = self.stock.run('exec "$@"', LED, verb)
        assert result == (0, '', '')
        self._show(self.trigger())


@pytest.fixture(name='router')
def make_router(stock):
    os.makedirs(stock.at('/var/run/kelm'), exist_ok=True)
    return stock


def show_longer(router):
    """No outcome ends while a slow machine looks at it."""
    router.write(LED, router.read(LED).replace('SHOW_S=5', 'SHOW_S=1000'))


def givers(router):
    """The processes that wait to give a LED back."""
    return [pid for pid, words in router.processes() if words[1:3] == [LED, 'give']]


def test_an_attempt_blinks(router):
    led = Led(router)
    led.do('blink')
    assert led.trigger() == 'timer'
    assert led.read('delay_on', 'delay_off') == ('500', '500')


CONFIGURED = {
    'off': ('none', {}),
    'on': ('none', {'brightness': '255'}),
    'dim': ('none', {'brightness': '7'}),
    'heartbeat': ('heartbeat', {}),
    'blinks_of_its_own': ('timer', {'delay_on': '30', 'delay_off': '970'}),
    'shows_a_device': ('netdev', {'device_name': 'phy0-ap0', 'link': '1', 'interval': '50'}),
}


@pytest.mark.parametrize('name', CONFIGURED)
@pytest.mark.parametrize('verbs', [('blink',), ('blink', 'blink', 'blink'), ('success',),
                                   ('failure',), ('blink', 'success', 'blink', 'failure')],
                         ids=' '.join)
def test_what_was_configured_comes_back(router, name, verbs):
    show_longer(router)
    trigger, files = CONFIGURED[name]
    led = Led(router, trigger=trigger, **files)
    for verb in verbs:
        led.do(verb)
    led.do('restore')
    assert led.trigger() == trigger
    for file, text in files.items():
        assert led.read(file) == (text,), file
    assert not router.exists(SAVED)


def test_the_brightness_of_a_trigger_is_not_given_back(router):
    """It comes and goes by itself; and a zero written there would take the trigger away."""
    led = Led(router, trigger='heartbeat')
    led.do('blink')
    router.write(f'{led.folder}/brightness', 'as it is\n')
    led.do('restore')
    assert led.read('brightness') == ('as it is',)


def test_one_at_a_time_works_on_the_led(router):
    led = Led(router, trigger='heartbeat')
    with open(router.at(f'{SAVED}.lock'), 'w', encoding='utf-8') as file:
        fcntl.flock(file, fcntl.LOCK_EX)
        router.start(f'exec {LED} blink')
        wait_for(lambda: any(words == ['flock', '8'] for _, words in router.processes()),
                 'its turn')
        assert led.trigger() == 'heartbeat'
    wait_for(lambda: led.trigger() == 'timer', 'the LED to blink')


@pytest.mark.parametrize('verb, trigger, shown', [
    ('success', 'none', {'brightness': '255'}),
    ('failure', 'timer', {'delay_on': '100', 'delay_off': '100'})])
def test_an_outcome_is_shown(router, verb, trigger, shown):
    show_longer(router)
    led = Led(router, trigger='heartbeat')
    led.do('blink')
    led.do(verb)
    assert led.trigger() == trigger
    assert {name: led.read(name)[0] for name in shown} == shown


@pytest.mark.parametrize('verb', ['success', 'failure'])
def test_an_outcome_ends_after_five_seconds(router, verb):
    led = Led(router, trigger='heartbeat')
    begin = time.monotonic()
    assert router.run('exec "$@"', LED, verb) == (0, '', '')
    wait_for(lambda: not router.exists(SAVED), 'what was configured')
    assert time.monotonic() - begin >= 5
    assert led.trigger() == 'heartbeat'


def test_the_brightness_of_a_small_lamp(router):
    show_longer(router)
    led = Led(router, max_brightness='1')
    led.do('success')
    assert led.read('brightness') == ('1',)


def test_a_new_attempt_is_not_ended_by_the_outcome_of_the_last(router):
    show_longer(router)
    led = Led(router, trigger='heartbeat')
    led.do('success')
    pause, = wait_for(lambda: [pid for pid, words in router.processes()
                               if words == ['sleep', '1000']], 'its pause')
    led.do('blink')
    os.kill(pause, signal.SIGKILL)
    wait_for(lambda: not givers(router), 'its end')
    assert led.trigger() == 'timer'
    led.do('restore')
    assert led.trigger() == 'heartbeat'


@pytest.mark.parametrize('verb', ['blink', 'success', 'failure'])
def test_tidy_gives_back_what_nobody_will(router, verb):
    show_longer(router)
    led = Led(router, trigger='heartbeat')
    led.do(verb)
    if verb != 'blink':
        pid = int(router.read(f'{SAVED}.show'))
        led.do('tidy')
        assert led.trigger() != 'heartbeat'
        os.kill(pid, signal.SIGKILL)
        with contextlib.suppress(ChildProcessError):
            os.waitpid(pid, 0)
        wait_for(lambda: not givers(router), 'its end')
    led.do('tidy')
    assert led.trigger() == 'heartbeat'


def test_a_kill_before_the_led_is_touched_loses_nothing(router):
    """What is saved is written first: as after a kill between the two."""
    show_longer(router)
    led = Led(router, trigger='heartbeat')
    led.do('blink')
    saved = router.read(SAVED)
    led.do('restore')
    router.write(SAVED, saved)
    led.do('success')
    led.do('restore')
    assert led.trigger() == 'heartbeat'


@pytest.mark.parametrize('setting, chosen', [
    (None, 'blue:wps'), ('auto', 'blue:wps'), ('green:wps', 'green:wps'),
    ('red:power', 'red:power'), ('none', None), ('no such', None), ('../leds/green:wps', None),
    ('/sys/class/leds/green:wps', None), ('..', None), ('.', None),
    ("x'; touch /tmp/owned; '", None), ('$(touch /tmp/owned)', None)])
def test_the_owners_choice(router, setting, chosen):
    leds = {name: Led(router, name, trigger='heartbeat')
            for name in ('red:power', 'green:wps', 'blue:wps')}
    if setting is not None:
        router.uci('set', f'kelm.main.led={setting}')
        router.uci('commit', 'kelm')
    leds['green:wps'].do('blink')
    assert [name for name, led in leds.items() if led.trigger() == 'timer'] == \
        ([chosen] if chosen else [])
    assert not router.exists('/tmp/owned')


def test_another_choice_gives_the_first_one_back(router):
    first, second = (Led(router, name, trigger='heartbeat') for name in ('a:wps', 'b:wps'))
    first.do('blink')
    router.uci('set', 'kelm.main.led=b:wps')
    router.uci('commit', 'kelm')
    second.do('blink')
    assert (first.trigger(), second.trigger()) == ('heartbeat', 'timer')
    second.do('restore')
    assert second.trigger() == 'heartbeat'


@pytest.mark.parametrize('verb', ['blink', 'success', 'failure', 'restore', 'tidy'])
def test_a_router_without_a_led(router, verb):
    assert router.run('exec "$@"', LED, verb) == (0, '', '')
    assert not givers(router)


def test_without_room_to_remember_it_the_led_is_left_alone(router):
    led = Led(router, trigger='heartbeat')
    folder = router.at('/var/run/kelm')
    mount('tmpfs', folder, 'tmpfs', 0, 'size=4k')
    router.write('/var/run/kelm/filler', 'x' * 4096)
    led.do('blink')
    assert led.trigger() == 'heartbeat'
    unmount(folder)


def test_without_room_for_the_outcome_it_is_given_back(router):
    led = Led(router, trigger='heartbeat')
    folder = router.at('/var/run/kelm')
    mount('tmpfs', folder, 'tmpfs', 0, 'size=8k')
    led.do('blink')
    router.remove(f'{SAVED}.show')
    router.write('/var/run/kelm/filler', 'x' * 4096)
    led.do('success')
    assert led.trigger() == 'heartbeat'
    unmount(folder)
