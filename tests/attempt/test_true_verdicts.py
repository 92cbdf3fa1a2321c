# SPDX-License-Identifier: ISC
"""What the daemon tells is what came about, whatever happened before and beside."""
import json
import os
import socket

import pytest

import test_repeater_attempt as repeater
from router import BUTTON_METHOD, CANCEL, PIN_METHOD, PRESS, ubus_send
from test_ap_attempt import CANCELS, MAC, REG_SUCCESS, begin

NEW_SETTINGS = '<3>WPS-NEW-AP-SETTINGS 0102030405'
HOSTAPD_FILE = 'interface=wlan1\nssid=Chosen\nwpa=2\nwpa_passphrase=0123456789abcdef\n'
# A script of the firmware that takes its time.
UNTIL_TOLD = 'while [ ! -e /tmp/go ]; do sleep 0.02; done\n'

REQUESTS = [
    pytest.param(lambda router: router.bus.send('gpio', PRESS), id='press'),
    pytest.param(lambda router: router.request(method=BUTTON_METHOD), id='button request'),
    pytest.param(lambda router: router.request(method=PIN_METHOD, pin='12345670'), id='PIN'),
]


def keep_busy(router):
    """Has the daemon run a script that ends with let_go()."""
    router.world.reply('/etc/init.d/wps', UNTIL_TOLD)
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    router.hostapd['2g'].send(NEW_SETTINGS)
    router.wait_command('/etc/init.d/wps config_wifi')


def let_go(router):
    router.world.write('/tmp/go', '')


def ask_for_the_next_pass(router, ask):
    """Returns when the request is in the mailbox, whatever the main loop does."""
    ask(router)
    router.request(action=None)  # its answer shows that the one before is in
    router.wait_line('Invalid action.', poke=False)


# --- A further request while an attempt runs ---

@pytest.mark.parametrize('ask', REQUESTS)
def test_a_further_request_loses_no_event_that_waits_in_the_socket(router, ask):
    begin(router)
    keep_busy(router)
    router.hostapd['2g'].send(REG_SUCCESS)
    ask_for_the_next_pass(router, ask)
    let_go(router)
    assert router.end() == 0
    assert router.taken_requests() == 1
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '1\n'


@pytest.mark.parametrize('ask', REQUESTS)
def test_a_further_request_while_a_hostapd_is_away_does_not_forget_the_attempt(router, ask):
    begin(router)
    router.hostapd.pop('5g').close()
    ask(router)
    router.wait_taken(1)
    router.settle()
    assert 'Rebuild worker socket failed.' not in router.console.lines()
    assert router.commands() == []
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '1\n'


# --- The next attempt starts clean ---

SEEN = f'<3>WPS-ENROLLEE-SEEN {MAC} uuid 0-00000000-0 0x0 4 1 [phone]'
OTHER_MAC = '02:00:00:00:07:99'
HEARD_BEFORE = ['WPS-OVERLAP-DETECTED', 'WPS-TIMEOUT', f'WPS-REG-SUCCESS {OTHER_MAC} uuid']


def withdraw(router):
    """Cancels the attempt; returns when that is done."""
    taken = router.taken_requests()
    router.request(action=CANCEL)
    router.wait_taken(taken + 1)
    router.settle()


def expect_clean_start(router):
    """Another press starts both bands, and nothing of the time before is told."""
    router.press_and_wait_started()
    assert router.events()[-1] == (1, 11, 11, 0)
    assert router.info() == [
        ('wps_action', 1), ('wl0_wps_status', 'ok'), ('wl0_wps_sta_mac', ''),
        ('wl1_wps_status', 'ok'), ('wl1_wps_sta_mac', '')]
    assert router.world.read('/tmp/wps_result') == '-1\n'


def expect_the_phone_gets_in(router):
    """What comes before its success ends nothing."""
    router.hostapd['2g'].send(SEEN)
    router.hostapd['5g'].send(SEEN)
    router.settle()
    assert router.daemon.is_running()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert [value for _, value in router.info()] == [2, 'success', MAC, 'ok', '']
    assert router.commands()[-1] == '/etc/init.d/wps restart'


def test_press_cancel_press_lets_the_phone_in_and_says_so(router):
    begin(router)
    withdraw(router)
    expect_clean_start(router)
    expect_the_phone_gets_in(router)


@pytest.mark.parametrize('event', HEARD_BEFORE)
def test_what_was_heard_while_idle_is_nothing_to_the_attempt_after_it(router, event):
    router.start()
    for band in ('2g', '5g'):
        router.hostapd[band].send(f'<3>{event}')
        router.wait_line(f'processing wpsEvent[{"2.4G" if band == "2g" else "5G"}]: <3>{event}')
    router.settle()
    expect_clean_start(router)
    expect_the_phone_gets_in(router)


@pytest.mark.parametrize('event', HEARD_BEFORE)
def test_what_was_heard_after_a_cancel_is_nothing_to_the_attempt_after_it(router, event):
    """hostapd tells a time-out of its own when it is cancelled."""
    begin(router)
    withdraw(router)
    for band in ('2g', '5g'):
        router.hostapd[band].send(f'<3>{event}')
        router.wait_line(f'processing wpsEvent[{"2.4G" if band == "2g" else "5G"}]: <3>{event}')
    router.settle()
    expect_clean_start(router)
    expect_the_phone_gets_in(router)


def test_a_failure_after_a_cancel_is_not_told_as_the_success_of_a_withdrawn_band(router):
    repeater.learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    repeater.begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    assert router.world.read('/tmp/wps_result') == '1\n'
    withdraw(router)
    expect_clean_start(router)
    router.world.forget_commands()
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert router.published == [(2, 4, 4, 0)]
    assert router.world.read('/tmp/wps_result') == '0\n'
    assert router.world.read(repeater.STATION_FILE) is None
    assert router.commands() == [
        ubus_send(2, 4, 4), *repeater.CANCELS, '/etc/init.d/wps re_kelm_info',
        '/etc/init.d/wps restart']


def test_a_repeater_that_was_cancelled_enrols_at_the_next_press(router):
    for interface in ('wlan1-vxd', 'wlan0-vxd'):
        repeater.learn(router, interface, 'Root', 'rootsecret')
    repeater.begin(router)
    withdraw(router)
    expect_clean_start(router)
    router.supplicant['2g'].send('<3>WPS-AP-AVAILABLE-PBC')
    router.settle()
    assert router.daemon.is_running()
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.published == []
    assert router.world.read('/tmp/wps_result') == '1\n'
    station = repeater.read_json(router, repeater.STATION_FILE)
    assert (station['ssid_2g'], station['ssid_5g']) == ('Root', 'Root')
    assert router.commands()[-1] == '/etc/init.d/wifi force_restart'


def test_a_station_that_lost_its_link_since_the_attempt_before_takes_part(router):
    """It had sat that one out."""
    repeater.learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    router.configure(mode=repeater.REPEATER_MODE, stations=3)
    router.set_link('2g', 1)
    router.set_link('5g', 0)
    router.start(bands=(), stations=('2g', '5g'))
    router.press_and_wait_started()
    assert router.events() == [(1, 12, 11, 0)]
    withdraw(router)
    router.set_link('2g', 0)
    expect_clean_start(router)


# --- Nothing written is not a success ---

APPLY = '/etc/init.d/wps config_wifi'
RESTART_SERVICE = '/etc/init.d/wps restart'
RESTART_WIRELESS = '/etc/init.d/wifi force_restart'


@pytest.fixture
def system_log():
    """The texts that the daemon has sent to the system log."""
    log = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
    log.bind('/dev/log')
    log.setblocking(False)

    def texts():
        found = []
        try:
            while True:
                found.append(log.recv(4096).decode().split(': ', 1)[1].rstrip('\n\0'))
        except BlockingIOError:
            return found
    yield texts
    log.close()
    os.unlink('/dev/log')


def succeed_on_24_ghz(router):
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0


def expect_failure_of_an_access_point(router, texts):
    assert APPLY not in router.commands()
    assert router.commands() == [
        *CANCELS, ubus_send(2, 12, 12), ubus_send(2, 3, 4), RESTART_SERVICE]
    assert [value for _, value in router.info()] == [2, 'error', MAC, 'ok', '']
    # What was told before the write-back stays told.
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert texts == ['2g WPS succeeded.', '2g WPS failed.', '5g WPS failed.']


@pytest.mark.parametrize('make', [lambda path: None, os.mkdir, os.mkfifo],
                         ids=['missing', 'folder', 'FIFO'])
def test_an_open_access_point_without_hostapds_settings_is_a_failure(router, system_log, make):
    router.world.write('/tmp/run/hostapd-wlan1.conf', '')
    os.unlink('/tmp/run/hostapd-wlan1.conf')
    make('/tmp/run/hostapd-wlan1.conf')
    begin(router, secured=(0, 1, 1, 1))
    succeed_on_24_ghz(router)
    expect_failure_of_an_access_point(router, system_log())


def test_an_open_access_point_whose_own_settings_are_gone_is_a_failure(router, system_log):
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    begin(router, secured=(0, 1, 1, 1))
    os.unlink('/tmp/wifi.conf')
    succeed_on_24_ghz(router)
    expect_failure_of_an_access_point(router, system_log())


def test_of_two_open_bands_the_one_whose_client_came_is_stored_and_applied(router, system_log):
    """On the other one nobody came, and its settings are missing: that takes nothing back."""
    router.world.write('/tmp/run/hostapd-wlan0.conf', HOSTAPD_FILE)
    begin(router, secured=(0, 0, 1, 1))
    router.hostapd['5g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 4, 2, 0)
    assert APPLY in router.commands() and router.commands()[-1] == RESTART_WIRELESS
    assert '5g WPS succeeded.' in system_log()


def test_new_settings_that_cannot_be_stored_are_not_applied(router):
    begin(router)
    router.hostapd['5g'].send(NEW_SETTINGS)
    router.wait_line('new settings not stored, skip config_wifi')
    router.hostapd['5g'].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.commands() == [RESTART_SERVICE]


ONLY_THE_OLD_NETWORK = 'network={\n\tssid="Before"\n\tpsk="before123"\n}\n'


@pytest.mark.parametrize('text', [None, ONLY_THE_OLD_NETWORK, 'network={\n}\nnetwork={\n'],
                         ids=['no file', 'no network', 'half a file'])
def test_a_repeater_that_learnt_nothing_publishes_a_failure(router, system_log, text):
    if text is not None:
        router.world.write('/tmp/run/wpa_supplicant-wlan1-vxd.conf', text)
    repeater.begin(router)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    assert router.end() == 0
    assert APPLY not in router.commands()
    assert router.commands()[-5:] == [
        ubus_send(2, 3, 4), *repeater.CANCELS, '/etc/init.d/wps re_kelm_info', RESTART_SERVICE]
    assert [value for _, value in router.info()] == [2, 'error', '', 'timeout', '']
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert router.world.read(repeater.STATION_FILE) is None
    assert router.console.lines()[-1] == 'mesh WPS fail restart.'
    texts = system_log()
    assert texts[0] == '2g WPS succeeded.' and texts[-1] == '2g WPS failed.'


def test_a_repeaters_band_that_learnt_nothing_is_told_beside_one_that_did(router):
    repeater.learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    router.world.write('/tmp/run/wpa_supplicant-wlan1-vxd.conf', ONLY_THE_OLD_NETWORK)
    repeater.begin(router)
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-SUCCESS ')
    assert router.end() == 0
    assert router.published == []
    assert [value for _, value in router.info()] == [2, 'error', '', 'success', '']
    station = json.loads(router.world.read(repeater.STATION_FILE))
    assert 'ssid_2g' not in station and station['ssid_5g'] == 'Root5'
    assert APPLY in router.commands() and router.commands()[-1] == RESTART_WIRELESS
    assert 'wps_status 2G = 0, 5G = 1.' in router.console.lines()


# --- The client is in ---

@pytest.mark.parametrize('band', ['2g', '5g'])
def test_a_success_behind_a_script_that_outlasts_the_attempts_time_is_told(router, band):
    """It stands in the socket when the time is up."""
    begin(router)
    router.settle()  # the clock of the attempt starts at the end of the pass
    keep_busy(router)
    for each in ('2g', '5g'):
        router.hostapd[each].send(SEEN)
    router.hostapd[band].send(REG_SUCCESS)
    router.world.shift_time(126)
    let_go(router)
    assert router.end() == 0
    assert router.published == [(2, 12, 12, 0), (2, 2, 4, 0) if band == '2g' else (2, 4, 2, 0)]
    assert router.world.read('/tmp/wps_result') == '1\n'


def test_a_stations_success_behind_a_scan_that_outlasts_the_attempts_time_is_its_own(router):
    """It would have to borrow the other band's credentials."""
    repeater.learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    repeater.learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    repeater.begin(router)
    router.settle()
    router.world.reply('/usr/bin/wifi', UNTIL_TOLD + repeater.SCAN_TOOL)
    router.supplicant['2g'].send('<3>WPS-SUCCESS ')
    router.wait_command('/usr/bin/wifi scan 2g')
    router.supplicant['5g'].send('<3>WPS-AP-AVAILABLE-PBC')
    router.supplicant['5g'].send('<3>WPS-SUCCESS ')
    router.world.shift_time(126)
    let_go(router)
    assert router.end() == 0
    station = repeater.read_json(router, repeater.STATION_FILE)
    assert (station['ssid_2g'], station['ssid_5g']) == ('Root', 'Root5')
    assert 'wps_status 2G = 1, 5G = 1.' in router.console.lines()
