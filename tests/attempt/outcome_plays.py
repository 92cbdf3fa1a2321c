# SPDX-License-Identifier: ISC
"""Plays: how an attempt comes to each outcome, and what a script then finds in each place."""
import os
import signal
from dataclasses import dataclass

import test_repeater_attempt as repeater
from router import CANCEL, PIN_METHOD, REPEATER_MODE
from test_ap_attempt import HOSTAPD_FILE, REG_SUCCESS

OPEN_24 = (0, 1, 1, 1)
LIMIT_S = 126
RESULT, INFO, ACTIVE = '/tmp/wps_result', '/tmp/kelm.info', '/tmp/wpsactive'
STATIONS = {'2g': 'wlan1-vxd', '5g': 'wlan0-vxd'}


@dataclass
class Seen:
    """What is there once nothing more happens; None for a file that is not."""

    events: list  # on the bus since the daemon's start: action, 2g, 5g
    result: str
    texts: list  # of the info file, by band
    active: str
    scripts: list  # of /etc/init.d, without the folder


def look(router):
    events = router.published + router.events()
    assert all(event[3] == 0 for event in events)
    texts = None
    if router.world.read(INFO) is not None:
        texts = [value for key, value in router.info() if key.endswith('_status')]
    scripts = [line.removeprefix('/etc/init.d/') for line in router.commands()
               if line.startswith('/etc/init.d/')]
    return Seen([event[:3] for event in events], _line(router, RESULT), texts,
                _line(router, ACTIVE), scripts)


def _line(router, path):
    text = router.world.read(path)
    return None if text is None else text.removesuffix('\n')


# --- Steps of both run modes ---

def tell(router, band, event):
    """An event of the band's Wi-Fi daemon; it is taken in when this returns."""
    (router.hostapd or router.supplicant)[band].send(f'<3>{event}')
    router.settle()


def tell_both_and_end(router, event):
    for server in (router.hostapd or router.supplicant).values():
        server.send(f'<3>{event}')
    router.end()


def let_time_pass(router):
    router.world.shift_time(LIMIT_S)
    router.end()


def leave(router):
    """The Wi-Fi daemons go without a word, and the time passes."""
    for servers in (router.hostapd, router.supplicant):
        for band in list(servers):
            servers.pop(band).close()
    router.settle()
    let_time_pass(router)


def cancel(router):
    taken = router.taken_requests()
    router.request(action=CANCEL)
    router.wait_taken(taken + 1)
    router.settle()


def stop(router):
    router.daemon.send(signal.SIGTERM)
    router.end(poke=False)


def press_in_vain(router):
    router.press()
    router.settle()


def ask_with_pin(router):
    router.request(method=PIN_METHOD, pin='12345670')
    router.wait_taken(1)
    router.settle()


# --- Access point ---

def start(router, bands=('2g', '5g'), **settings):
    """A daemon that waits."""
    router.configure(**settings)
    router.start(bands)
    router.world.forget_commands()


def press(router, bands=('2g', '5g'), **settings):
    start(router, bands, **settings)
    router.press_and_wait_started()
    router.settle()


def join(router, band):
    router.hostapd[band].send(REG_SUCCESS)


def join_and_end(router, band):
    join(router, band)
    router.end()


def joins_on_24_ghz(router):
    press(router)
    join_and_end(router, '2g')


def joins_on_5_ghz(router):
    press(router)
    join_and_end(router, '5g')


def joins_on_both(router):
    """Both wait in the sockets when the daemon looks."""
    press(router)
    router.daemon.freeze()
    for band in ('2g', '5g'):
        join(router, band)
    router.daemon.thaw()
    router.end()


def joins_after_the_other_timed_out(router):
    press(router)
    tell(router, '2g', 'WPS-TIMEOUT')
    join_and_end(router, '5g')


def joins_beside_a_band_that_is_off(router):
    press(router, bands=('5g',), available=2)
    join_and_end(router, '5g')


def joins_by_pin(router):
    start(router)
    ask_with_pin(router)
    join_and_end(router, '2g')


def joins_an_open_one(router):
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    press(router, secured=OPEN_24)
    join_and_end(router, '2g')


def joins_an_open_one_whose_settings_are_lost(router):
    press(router, secured=OPEN_24)
    join_and_end(router, '2g')


def overlap(router):
    press(router)
    tell_both_and_end(router, 'WPS-OVERLAP-DETECTED')


def overlap_beside_a_time_out(router):
    press(router)
    tell(router, '2g', 'WPS-OVERLAP-DETECTED')
    router.hostapd['5g'].send('<3>WPS-TIMEOUT')
    router.end()


def overlap_beside_nobody(router):
    press(router)
    tell(router, '2g', 'WPS-OVERLAP-DETECTED')
    let_time_pass(router)


def time_out_by_hostapd(router):
    press(router)
    tell_both_and_end(router, 'WPS-TIMEOUT')


def nobody(router):
    press(router)
    let_time_pass(router)


def nobody_beside_a_band_that_is_off(router):
    press(router, bands=('5g',), available=2)
    let_time_pass(router)


def exchange_fails(router):
    press(router)
    tell(router, '2g', 'WPS-FAIL msg=8 config_error=18')


def hostapd_goes(router):
    press(router)
    leave(router)


def hostapd_succeeds_by_itself(router):
    press(router)
    router.hostapd['2g'].send('<3>WPS-SUCCESS ')
    router.end()


def hostapd_stops_by_itself(router):
    press(router)
    router.hostapd['2g'].send('<3>WPS-PBC-DISABLE ')
    router.end()


def hostapd_stops_on_the_only_band(router):
    press(router, bands=('5g',), available=2)
    router.hostapd['5g'].send('<3>WPS-SUCCESS ')
    router.end()


def cancelled(router):
    press(router)
    cancel(router)


def cancelled_twice(router):
    cancelled(router)
    cancel(router)


def cancelled_while_idle(router):
    start(router)
    cancel(router)


def stopped(router):
    press(router)
    stop(router)


def stopped_after_an_overlap(router):
    press(router)
    tell(router, '2g', 'WPS-OVERLAP-DETECTED')
    stop(router)


def stopped_after_a_cancel(router):
    cancelled(router)
    stop(router)


def stopped_while_idle(router):
    start(router)
    stop(router)


def pressed_again(router):
    press(router)
    os.unlink(RESULT)
    press_in_vain(router)


def pressed_without_hostapd(router):
    start(router)
    router.hostapd.pop('2g').close()
    router.press()
    router.wait_line('Rebuild worker socket failed.')
    router.settle()


def pressed_while_the_wireless_starts(router):
    router.world.write('/tmp/wifid_is_starting', '')
    start(router)
    press_in_vain(router)


def pressed_with_wps_off(router):
    start(router, bands=(), enabled=0)
    press_in_vain(router)


def pressed_after_a_band_was_off(router):
    press(router, available=2, bands=('5g',))
    cancel(router)
    router.configure(available=3)
    router.add_hostapd('2g')
    router.press_and_wait_started()
    router.settle()


def registrar_gives_settings(router):
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    start(router)
    tell(router, '2g', 'WPS-NEW-AP-SETTINGS ')
    router.hostapd['2g'].send('<3>WPS-SUCCESS ')
    router.end()


# --- Repeater ---

def start_repeater(router, learnt=('2g', '5g'), links=(0, 0), more=''):
    """A daemon that waits. learnt: whose supplicants have a network in their files."""
    for band in learnt:
        repeater.learn(router, STATIONS[band], 'Root', 'rootsecret', more)
    router.configure(mode=REPEATER_MODE, stations=3)
    for band, link in zip(('2g', '5g'), links):
        router.set_link(band, link)
        router.world.write(f'/mnt/scan.{band}', '[]')
    router.world.reply('/usr/bin/wifi', repeater.SCAN_TOOL)
    router.start(bands=(), stations=('2g', '5g'))
    router.world.forget_commands()


def press_repeater(router, **settings):
    start_repeater(router, **settings)
    router.press_and_wait_started()
    router.settle()


def enrol(router, band):
    """What follows is of the next pass: the scan is the last that this event brings."""
    router.supplicant[band].send('<3>WPS-SUCCESS ')
    router.wait_command(f'/usr/bin/wifi scan {band}')


def enrol_and_end(router, band):
    router.supplicant[band].send('<3>WPS-SUCCESS ')
    router.end()


def both_enrol(router, **settings):
    press_repeater(router, **settings)
    enrol(router, '2g')
    enrol_and_end(router, '5g')


def both_enrol_by_easymesh(router):
    router.world.write('/etc/config/wificommonCfg', repeater.EASYMESH)
    both_enrol(router, more='easymesh_support=1\n')


def one_enrols(router):
    press_repeater(router)
    enrol(router, '2g')
    router.settle()


def one_enrols_then_the_other_times_out(router):
    one_enrols(router)
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    router.end()


def one_enrols_then_the_other_fails(router):
    one_enrols(router)
    router.supplicant['5g'].send('<3>WPS-FAIL msg=8 config_error=18')
    router.end()


def one_enrols_then_the_time_is_up(router):
    one_enrols(router)
    let_time_pass(router)


def one_times_out_then_the_other_enrols(router):
    press_repeater(router)
    tell(router, '2g', 'WPS-TIMEOUT ')
    enrol_and_end(router, '5g')


def one_enrols_beside_an_exchange(router):
    press_repeater(router)
    tell(router, '2g', 'WPS-AP-AVAILABLE-PBC ')
    enrol(router, '5g')
    let_time_pass(router)


def one_enrols_beside_a_link(router):
    press_repeater(router, links=(1, 0))
    enrol_and_end(router, '5g')


def one_enrols_and_cannot_be_stored(router):
    press_repeater(router, learnt=())
    enrol(router, '2g')
    router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
    router.end()


def both_enrol_and_one_is_stored(router):
    both_enrol(router, learnt=('5g',))


def stations_overlap(router):
    press_repeater(router)
    tell_both_and_end(router, 'WPS: PBC overlap detected')


def stations_time_out(router):
    press_repeater(router)
    tell_both_and_end(router, 'WPS-TIMEOUT ')


def stations_find_nothing(router):
    press_repeater(router)
    let_time_pass(router)


def stations_fail(router):
    press_repeater(router)
    tell_both_and_end(router, 'WPS-FAIL msg=8 config_error=18')


def supplicant_goes(router):
    press_repeater(router)
    leave(router)


def repeater_cancelled(router):
    press_repeater(router)
    cancel(router)


def repeater_cancelled_after_a_success(router):
    one_enrols(router)
    cancel(router)
    assert not os.path.lexists(repeater.STATION_FILE)


def repeater_stopped(router):
    press_repeater(router)
    stop(router)


def repeater_stopped_in_an_exchange(router):
    press_repeater(router)
    tell(router, '2g', 'WPS-AP-AVAILABLE-PBC ')
    stop(router)


def repeater_stopped_after_a_failure(router):
    press_repeater(router)
    tell(router, '2g', 'WPS-FAIL msg=8 config_error=18')
    stop(router)


def repeater_stopped_after_a_success(router):
    one_enrols(router)
    stop(router)
    assert not os.path.lexists(repeater.STATION_FILE)


def repeater_stopped_while_idle(router):
    start_repeater(router)
    stop(router)


def repeater_pressed_again(router):
    press_repeater(router)
    os.unlink(RESULT)
    press_in_vain(router)


def repeater_pressed_without_supplicant(router):
    start_repeater(router)
    router.supplicant.pop('2g').close()
    press_in_vain(router)


def repeater_pressed_without_link_file(router):
    start_repeater(router)
    os.unlink('/tmp/wifi_runtime_info.2g')
    press_in_vain(router)


def repeater_asked_with_pin(router):
    start_repeater(router)
    ask_with_pin(router)


# --- What the page calls each; one row may stand for several plays ---

BY_ACCESS_POINT = {
    'a client joins on 2.4 GHz': (joins_on_24_ghz,),
    'a client joins on 5 GHz': (joins_on_5_ghz,),
    'clients join on both at once: one counts': (joins_on_both,),
    '2.4 GHz times out, then a client joins on 5 GHz': (joins_after_the_other_timed_out,),
    '2.4 GHz is off, a client joins on 5 GHz': (joins_beside_a_band_that_is_off,),
    'a client joins by PIN': (joins_by_pin,),
    'a client joins, 2.4 GHz was open: new settings': (joins_an_open_one,),
    'the same, but they cannot be stored': (joins_an_open_one_whose_settings_are_lost,),
    'overlap on both': (overlap,),
    'overlap on 2.4 GHz, hostapd tells a time-out on 5 GHz': (overlap_beside_a_time_out,),
    'overlap on 2.4 GHz, nobody on 5 GHz for 125 s': (overlap_beside_nobody,),
    'hostapd tells a time-out on both': (time_out_by_hostapd,),
    'nobody comes for 125 s': (nobody,),
    '2.4 GHz is off, nobody comes for 125 s': (nobody_beside_a_band_that_is_off,),
    'an exchange fails on 2.4 GHz: it goes on, up to the time-out': (exchange_fails,),
    'hostapd goes: the time-out ends it': (hostapd_goes,),
    'hostapd ends its WPS itself (`WPS-SUCCESS`, `WPS-PBC-DISABLE`)': (
        hostapd_succeeds_by_itself, hostapd_stops_by_itself),
    'the same on 5 GHz, 2.4 GHz is off: no band runs any more': (hostapd_stops_on_the_only_band,),
    'cancel': (cancelled,),
    'a second cancel after it': (cancelled_twice,),
    'cancel while idle': (cancelled_while_idle,),
    'SIGTERM in mid-attempt': (stopped,),
    'SIGTERM, 2.4 GHz had an overlap': (stopped_after_an_overlap,),
    'SIGTERM after a cancel': (stopped_after_a_cancel,),
    'SIGTERM while idle': (stopped_while_idle,),
    'a further press while an attempt runs: nothing of its own': (pressed_again,),
    'press, hostapd is not there': (pressed_without_hostapd,),
    'press, the wireless starts': (pressed_while_the_wireless_starts,),
    'press, WPS is off on all bands': (pressed_with_wps_off,),
    '2.4 GHz is off at a press; cancel, 2.4 GHz is on, press': (pressed_after_a_band_was_off,),
    'idle, a registrar that knows the PIN gives new settings': (registrar_gives_settings,),
}
BY_REPEATER = {
    'both enrol': (both_enrol,),
    'both enrol, EasyMesh on both sides': (both_enrol_by_easymesh,),
    '2.4 GHz enrols, 5 GHz still tries': (one_enrols,),
    '2.4 GHz enrols, then 5 GHz times out or fails': (
        one_enrols_then_the_other_times_out, one_enrols_then_the_other_fails,
        one_enrols_then_the_time_is_up),
    '2.4 GHz times out, then 5 GHz enrols': (one_times_out_then_the_other_enrols,),
    '5 GHz enrols while 2.4 GHz is in its exchange, which comes to nothing': (
        one_enrols_beside_an_exchange,),
    '2.4 GHz is connected and takes no part, 5 GHz enrols': (one_enrols_beside_a_link,),
    '2.4 GHz enrols, nothing can be stored, 5 GHz times out': (one_enrols_and_cannot_be_stored,),
    "both enrol, 2.4 GHz's cannot be stored": (both_enrol_and_one_is_stored,),
    'overlap on both': (stations_overlap,),
    'both time out, or 125 s pass': (stations_time_out, stations_find_nothing),
    'the exchange fails on both': (stations_fail,),
    'wpa_supplicant goes: the time-out ends it': (supplicant_goes,),
    'cancel': (repeater_cancelled,),
    '2.4 GHz enrols, then a cancel: nothing is stored': (repeater_cancelled_after_a_success,),
    'SIGTERM in mid-attempt': (repeater_stopped,),
    'SIGTERM while 2.4 GHz is in its exchange': (repeater_stopped_in_an_exchange,),
    'SIGTERM, the exchange had failed on 2.4 GHz': (repeater_stopped_after_a_failure,),
    'SIGTERM, 2.4 GHz had enrolled: nothing is stored': (repeater_stopped_after_a_success,),
    'SIGTERM while idle': (repeater_stopped_while_idle,),
    'a further press while an attempt runs: nothing of its own': (repeater_pressed_again,),
    'press, wpa_supplicant is not there': (repeater_pressed_without_supplicant,),
    'press, "/tmp/wifi_runtime_info.2g" is not there': (repeater_pressed_without_link_file,),
    'client PIN: nothing runs': (repeater_asked_with_pin,),
}
