# SPDX-License-Identifier: ISC
"""The bus when it is absent, lost, back again, frozen or silent."""
import signal
import time

from peers import SilentBroker
from router import PRESS, VERSION_LINE, hostapd_cli, settings_line
from wire import BusClient
from world import wait_for

REG_SUCCESS = '<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid'
PINS_OFF = [hostapd_cli(band, 'wps_ap_pin disable') for band in ('2g', '5g')]
CANCELS = [hostapd_cli('2g', 'wps_cancel'), hostapd_cli('5g', 'wps_cancel')]


def reconnect(router):
    """The broker comes back; returns when the daemon listens again."""
    router.broker.start()
    router.bus.close()
    router.bus = BusClient('wps')
    router.wait_registered()
    return router.start_lines  # from the loss on


def launch_without_broker(router):
    router.add_hostapd('2g', '5g')
    router.launch()
    router.hostapd['5g'].wait_attached()


def test_without_a_broker_at_start_the_daemon_says_so_once_and_serves(router):
    launch_without_broker(router)
    router.wait_line('Failed to connect to ubus')
    time.sleep(1.3)  # more than the second after which a lost connection is tried again
    assert router.console.lines().count('Failed to connect to ubus') == 1
    assert router.daemon.is_running()
    router.hostapd['2g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.commands()[-1] == '/etc/init.d/wps restart'


def test_no_first_start_without_a_broker_loses_the_line_that_tells_why(router):
    """Both threads write at that moment; what they say is a set of lines, whose order is chance."""
    said = sorted([
        VERSION_LINE, 'create ibus thread successfully', 'Failed to connect to ubus',
        settings_line(), settings_line(), *PINS_OFF, 'eventCtrl open success',
        'eventCtrl open success'])
    router.add_hostapd('2g', '5g')
    for _ in range(25):
        router.console.forget()
        router.launch()
        wait_for(lambda: len(router.console.lines()) >= len(said), 'all lines of the start')
        assert sorted(router.console.lines()) == said
        wait_for(router.daemon.is_waiting, 'the main loop')
        router.end_by_sigterm()


def test_a_broker_that_comes_after_the_start_is_not_looked_for(router):
    launch_without_broker(router)
    wait_for(lambda: 'Failed to connect to ubus' in router.console.lines(), 'the failure')
    router.start_bus()
    time.sleep(1.3)
    router.bus.send('gpio', PRESS)
    time.sleep(0.2)
    assert not any(line.startswith('Message') for line in router.console.lines())
    router.daemon.send(signal.SIGTERM)
    assert router.end(poke=False) == 0
    assert router.published == [(2, 0, 0, 0)]  # publication needs no connection of its own


def test_a_lost_broker_is_logged_once_and_found_again(router):
    router.start()
    router.broker.stop()
    wait_for(lambda: 'ubus thread exit' in router.console.lines(), 'the loss')
    time.sleep(2.3)
    gone = router.console.lines()
    assert len(gone) == len(set(gone)) <= 2
    again = reconnect(router)
    assert again.count('ubus thread exit') == 1
    assert again.count('Connected to ubus again') == 1
    # All three events are registered again, each once.
    router.bus.send('gpio')
    router.bus.send('wifi')
    router.bus.send('wps_cli')
    wait_for(lambda: router.console.lines().count('Invalid action.') == 3, 'the three refusals')
    assert router.console.lines().count('Message: {}') == 2
    router.press_and_wait_started()
    assert router.events() == [(1, 11, 11, 0)]


def test_a_broker_can_be_lost_twice(router):
    router.start()
    for _ in range(2):
        router.broker.stop()
        wait_for(lambda: 'ubus thread exit' in router.console.lines(), 'the loss')
        reconnect(router)
    router.press_and_wait_started()


def test_a_broker_lost_in_mid_attempt_does_not_stop_the_attempt(router):
    router.start()
    router.press_and_wait_started()
    router.world.forget_commands()
    router.broker.stop()
    wait_for(lambda: 'ubus thread exit' in router.console.lines(), 'the loss')
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.daemon.wait_exit() == 0
    assert [line for line in router.commands() if not line.startswith('ubus')] == [
        *CANCELS, '/etc/init.d/wps restart']
    assert [value for _, value in router.info()][:2] == [2, 'success']


def test_a_silent_broker_at_start_leaves_the_daemon_serving(router):
    router.broker = SilentBroker()
    launch_without_broker(router)
    wait_for(router.broker.accepted, 'the connection')
    router.hostapd['2g'].send('<3>WPS-SUCCESS ')
    assert router.daemon.wait_exit() == 0
    assert router.commands()[-1] == '/etc/init.d/wps restart'


def test_a_silent_broker_at_start_does_not_keep_the_daemon_from_ending(router):
    router.broker = SilentBroker()
    launch_without_broker(router)
    wait_for(router.broker.accepted, 'the connection')
    router.daemon.send(signal.SIGTERM)
    assert router.daemon.wait_exit(poke=False) == 0


def test_a_broker_that_freezes_in_mid_attempt_does_not_stop_the_attempt(router):
    router.start()
    router.press_and_wait_started()
    router.world.forget_commands()
    router.broker.freeze()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.daemon.wait_exit() == 0
    assert [line for line in router.commands() if not line.startswith('ubus')] == [
        *CANCELS, '/etc/init.d/wps restart']


def test_a_broker_that_freezes_does_not_keep_the_daemon_from_ending(router):
    router.start()
    router.broker.freeze()
    router.daemon.send(signal.SIGTERM)
    assert router.daemon.wait_exit(poke=False) == 0


def test_sigterm_ends_the_daemon_while_it_looks_for_a_lost_broker(router):
    router.start()
    router.broker.stop()
    wait_for(lambda: 'ubus thread exit' in router.console.lines(), 'the loss')
    router.daemon.send(signal.SIGTERM)
    assert router.daemon.wait_exit(poke=False) == 0


def test_sigterm_right_after_the_start_is_not_lost(router):
    """Whichever of the two threads is ahead, the daemon's own handler gets it."""
    router.start_bus()
    router.add_hostapd('2g', '5g')
    for delay in (0, 0.001, 0.002, 0.004, 0.008, 0.016, 0.03):
        daemon = router.launch()
        wait_for(lambda: router.world.read('/tmp/kelm.pid') == f'{daemon.pid}\n', 'the pid file')
        time.sleep(delay)
        daemon.send(signal.SIGTERM)
        assert daemon.wait_exit(poke=False) == 0
        assert router.world.read('/tmp/kelm.pid') is None
