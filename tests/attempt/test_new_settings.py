# SPDX-License-Identifier: ISC
"""hostapd tells of new settings before it writes them down: which file is stored, and when."""
import json
import os
import signal
import threading

import pytest

from router import hostapd_cli
from test_ap_attempt import REG_SUCCESS, begin as begin_attempt
from world import wait_for

PATH = '/tmp/run/hostapd-wlan1.conf'
CONFIG_WIFI = '/etc/init.d/wps config_wifi'
NOT_STORED = 'new settings not stored, skip config_wifi'
NAME, KEY = 'Küche', '0123456789abcdef'
OPEN_FILE = 'interface=wlan1\nssid=Elm House\nauth_algs=1\nwps_state=1\n'
OLD_FILE = 'interface=wlan1\nssid=Elm House\nwpa=2\nwpa_passphrase=the old one\n'
NEW_FILE = (f'# WPS configuration - START\nwps_state=2\nssid2={NAME.encode().hex()}\nwpa=2\n'
            f'wpa_key_mgmt=WPA-PSK\nwpa_pairwise=CCMP\nwpa_passphrase={KEY}\nauth_algs=1\n'
            '# WPS configuration - END\ninterface=wlan1\n#WPS# ssid=Elm House\n')


def begin(router, faults=None, **settings):
    """faults: counts how often the daemon waits for a file."""
    begin_attempt(router, environment=faults and faults.environment, **settings)


def attribute(number, value):
    return number.to_bytes(2, 'big') + len(value).to_bytes(2, 'big') + value


# As hostapd tells what an external registrar has sent it.
CONTENT = (attribute(0x1045, NAME.encode()) + attribute(0x1003, b'\0\x20')
           + attribute(0x100f, b'\0\x08') + attribute(0x1027, KEY.encode())
           + attribute(0x1020, bytes.fromhex('020000000100'))).hex()
TOLD = '<3>WPS-NEW-AP-SETTINGS '
EVENTS = [pytest.param(TOLD, id='without content'), pytest.param(TOLD + CONTENT, id='with content')]


def write_as_hostapd(text, path=PATH):
    """A new file, then its name."""
    with open(path + '-new', 'w', encoding='utf-8') as file:
        file.write(text)
    os.rename(path + '-new', path)


def write_later(seconds, text=NEW_FILE):
    timer = threading.Timer(seconds, write_as_hostapd, [text])
    timer.start()
    return timer


def stored(router):
    text = router.world.read('/tmp/wps_wifi_ap.txt')
    if text is None:
        return None
    settings = json.loads(text)
    return settings['ssid_2g'], settings['password_2g'], settings['sec_2g']


@pytest.mark.parametrize('event', EVENTS)
@pytest.mark.parametrize('seconds', [0.05, 0.5])
@pytest.mark.parametrize('before', [OPEN_FILE, OLD_FILE])
def test_the_file_that_goes_with_the_event_is_stored(router, event, seconds, before):
    router.world.write(PATH, before)
    begin(router, secured=(0, 1, 1, 1))
    timer = write_later(seconds)
    router.hostapd['2g'].send(event)
    router.wait_command(CONFIG_WIFI)
    timer.join()
    assert stored(router) == (NAME, KEY, 'wpa2')
    assert router.commands() == [CONFIG_WIFI]


@pytest.mark.parametrize('event', EVENTS)
def test_a_file_that_was_there_before_the_event_is_never_waited_for(router, faults, event):
    """Neither at the event nor at the attempt's end, when it is no news any more."""
    router.world.write(PATH, OPEN_FILE)
    begin(router, faults, secured=(0, 1, 1, 1))
    write_as_hostapd(NEW_FILE)
    router.hostapd['2g'].send(event)
    router.wait_command(CONFIG_WIFI)
    assert stored(router) == (NAME, KEY, 'wpa2')
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert faults.calls('poll') == 0
    assert stored(router) == (NAME, KEY, 'wpa2')
    assert router.published[-1] == (2, 2, 4, 0)


def test_a_file_that_is_waited_for_is_looked_at_again_and_again(router, faults):
    """That the looks are counted at all."""
    router.world.write(PATH, OPEN_FILE)
    begin(router, faults, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(TOLD)
    router.wait_line(NOT_STORED)
    assert faults.calls('poll') > 1


@pytest.mark.parametrize('event', EVENTS)
def test_an_open_file_is_not_stored_where_a_key_was_told(router, event):
    router.world.write(PATH, OPEN_FILE)
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(event)
    router.wait_line(NOT_STORED)
    assert stored(router) is None
    assert router.commands() == []
    assert router.daemon.is_running()


@pytest.mark.parametrize('event', EVENTS)
def test_a_file_that_comes_very_late_is_stored_at_the_exchanges_end(router, event):
    router.world.write(PATH, OPEN_FILE)
    begin(router, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(event)
    router.wait_line(NOT_STORED)
    write_as_hostapd(NEW_FILE)
    router.hostapd['2g'].send('<3>WPS-SUCCESS')
    router.wait_command(CONFIG_WIFI)
    assert stored(router) == (NAME, KEY, 'wpa2')
    assert router.end() == 0


@pytest.mark.parametrize('late, stored_then, times', [
    pytest.param(NEW_FILE, (NAME, KEY, 'wpa2'), 2, id='the announced one'),
    pytest.param(OLD_FILE + '# again\n', ('Elm House', 'the old one', 'wpa2'), 1, id='the same'),
    pytest.param(OPEN_FILE, ('Elm House', 'the old one', 'wpa2'), 1, id='an open one')])
def test_a_keyed_file_is_stored_and_replaced_by_the_announced_one_alone(router, late, stored_then,
                                                                        times):
    router.world.write(PATH, OLD_FILE)
    begin(router)
    router.hostapd['2g'].send(TOLD + CONTENT)
    router.wait_command(CONFIG_WIFI)
    assert stored(router) == ('Elm House', 'the old one', 'wpa2')
    write_as_hostapd(late)
    router.hostapd['2g'].send('<3>WPS-SUCCESS')
    assert router.end() == 0
    assert stored(router) == stored_then
    assert router.commands().count(CONFIG_WIFI) == times


def test_an_open_access_point_that_got_its_key_is_never_stored_as_open(router):
    """The client is in before the file is there."""
    router.world.write(PATH, OPEN_FILE)
    begin(router, secured=(0, 1, 1, 1))
    timer = write_later(0.3)
    router.hostapd['2g'].send(TOLD)
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    timer.join()
    assert stored(router) == (NAME, KEY, 'wpa2')
    assert router.published[-1] == (2, 2, 4, 0)


@pytest.mark.parametrize('event', EVENTS)
@pytest.mark.parametrize('spoil', [os.unlink, lambda path: write_as_hostapd(OPEN_FILE)],
                         ids=['gone', 'open'])
def test_settings_that_were_applied_are_a_success_while_the_file_is_remade(router, event, spoil):
    """The scripts that config_wifi runs may be at it when the client is in."""
    router.world.write(PATH, OPEN_FILE)
    begin(router, secured=(0, 1, 1, 1))
    write_as_hostapd(NEW_FILE)
    router.hostapd['2g'].send(event)
    router.wait_command(CONFIG_WIFI)
    router.settle()
    spoil(PATH)
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    assert [value for _, value in router.info()][:2] == [2, 'success']
    assert router.commands().count(CONFIG_WIFI) == 1
    assert router.commands()[-1] == '/etc/init.d/wifi force_restart'


def test_the_other_band_is_not_waited_for(router, faults):
    router.world.write(PATH, OPEN_FILE)
    write_as_hostapd(OLD_FILE, '/tmp/run/hostapd-wlan0.conf')
    begin(router, faults)
    write_as_hostapd(NEW_FILE, '/tmp/run/hostapd-wlan0.conf')
    router.hostapd['5g'].send(TOLD)
    router.wait_command(CONFIG_WIFI)
    assert faults.calls('poll') == 0
    assert json.loads(router.world.read('/tmp/wps_wifi_ap.txt'))['ssid_5g'] == NAME


def test_sigterm_ends_the_wait(router, faults):
    router.world.write(PATH, OPEN_FILE)
    begin(router, faults, secured=(0, 1, 1, 1))
    router.hostapd['2g'].send(TOLD)
    router.wait_line(f'processing wpsEvent[2.4G]: {TOLD}')
    wait_for(lambda: faults.calls('poll') > 0, 'the wait')
    router.daemon.send(signal.SIGTERM)
    waits = faults.calls('poll')
    assert router.end(poke=False) == 0
    assert faults.calls('poll') <= waits + 1, 'the signal may come between look and wait'
    assert hostapd_cli('2g', 'wps_cancel') in router.commands()
    assert CONFIG_WIFI not in router.commands()
