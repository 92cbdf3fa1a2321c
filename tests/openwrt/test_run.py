# SPDX-License-Identifier: ISC
"""When and how run starts the daemon, and what stands before the daemon's commands."""
import os
import signal
import time

import pytest
from stock import two_bands
from wifi import put_access_point, put_station, put_wifi, state_of
from world import wait_for

RUN = '/usr/libexec/kelm/run'
STARTING = 'radio is still starting'
KEY_LINE = 'wps=1 00:00:00:00:00:00 seven green elms\n'
PSK = '/var/run/hostapd-phy0-ap0.psk'
DAEMON = """#!/bin/sh
env > /mnt/env
ls /proc/self/fd > /mnt/descriptors
echo $$ > /mnt/pid
exec sleep 60
"""
START_S = 10


@pytest.fixture
def router(stock):
    """Both bands are ready; the daemon writes down what it was started with."""
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
        stock.uci('add_list', f'kelm.main.ap=default_radio{number}')
        stock.uci('set', f'wireless.default_radio{number}.wps_pushbutton=1')
    stock.uci('commit')
    stock.write('/usr/sbin/kelm', DAEMON, 0o755)
    return stock


def started(router):
    return router.read('/mnt/pid')


def wait_for_daemon(router):
    wait_for(lambda: started(router), 'the daemon', START_S)


def no_band_for(router, *bands):
    wireless = two_bands()
    for radio in wireless.values():
        if radio['config']['band'] in bands:
            radio.update(up=False, pending=True)
    router.set_wireless(wireless)


def test_it_becomes_the_daemon_with_its_switches(router):
    process = router.start(f'exec 1000> /tmp/service.lock; exec {RUN}')
    wait_for_daemon(router)
    assert int(started(router)) == process.pid
    environment = dict(line.split('=', 1) for line in router.read('/mnt/env').splitlines())
    wanted = {'KELM_FOREGROUND': '1', 'KELM_LOG': 'syslog', 'KELM_WIFI': '/usr/libexec/kelm/scan',
              'KELM_CREDENTIALS': 'event', 'KELM_CALLER': 'daemon',
              'PATH': '/usr/libexec/kelm/bin:/usr/sbin:/usr/bin:/sbin:/bin'}
    assert {name: environment.get(name) for name in wanted} == wanted
    assert '1000' not in router.read('/mnt/descriptors').split()
    assert state_of(router, 'state') == {'state': 'waiting',
                                         'message': 'ready on 2.4 GHz and 5 GHz'}


def test_it_waits_for_the_radios(router):
    no_band_for(router, '2g', '5g')
    router.start(f'exec {RUN}')
    wait_for(lambda: state_of(router, 'state').get('state') == 'not-ready', 'the first look')
    time.sleep(3)
    assert not started(router)
    router.set_wireless(two_bands())
    wait_for_daemon(router)
    assert 'apWpsAvailable=3\n' in router.read('/tmp/wps.conf')
    assert [line.partition('kelm: ')[2] for line in router.log()] == [
        f'2.4 GHz: {STARTING}; 5 GHz: {STARTING}', 'ready on 2.4 GHz and 5 GHz']


def test_at_boot_a_band_waits_a_moment_for_the_other(router):
    no_band_for(router, '5g')
    router.start(f'exec {RUN}')
    wait_for(lambda: state_of(router, 'state').get('state') == 'waiting', 'the first look')
    time.sleep(3)
    assert not started(router)
    router.set_wireless(two_bands())
    wait_for_daemon(router)
    assert 'apWpsAvailable=3\n' in router.read('/tmp/wps.conf')


def test_after_an_attempt_a_band_does_not_wait_for_the_other(router):
    no_band_for(router, '5g')
    router.write('/var/run/kelm/starts', 'last=0\nquick=0\n')
    began = time.monotonic()
    router.start(f'exec {RUN}')
    wait_for_daemon(router)
    assert time.monotonic() - began < 2
    assert 'apWpsAvailable=1\n' in router.read('/tmp/wps.conf')


def test_a_daemon_that_ends_at_once_is_not_started_each_second(router):
    router.write('/usr/sbin/kelm', '#!/bin/sh\necho $$ >> /mnt/pid\n', 0o755)
    for _ in range(3):
        assert router.run(RUN).status == 0
    assert not any('as soon as' in line for line in router.log())
    began = time.monotonic()
    router.start(f'exec {RUN}')
    wait_for(lambda: state_of(router, 'state').get('state') == 'not-ready', 'the words')
    assert state_of(router, 'state')['message'] == 'the daemon ends as soon as it is started'
    wait_for(lambda: router.read('/mnt/pid').count('\n') == 4, 'the fourth', START_S)
    assert 4 <= time.monotonic() - began < 7
    assert sum('as soon as' in line for line in router.log()) == 1


def test_a_daemon_that_has_lived_clears_the_count(router):
    router.write('/var/run/kelm/starts', 'last=0\nquick=7\n')
    router.start(f'exec {RUN}')
    wait_for_daemon(router)
    assert state_of(router, 'starts')['quick'] == '0'


@pytest.mark.parametrize('make', (
    lambda router, place: router.write('/tmp/kelm.pid', '999999\n'),
    lambda router, place: router.write('/tmp/kelm.pid', f'{os.getpid()}\n'),
    lambda router, place: router.write('/tmp/kelm.pid', ''),
    lambda router, place: router.write('/tmp/kelm.pid', '$(touch /tmp/hacked)\n'),
    lambda router, place: router.write('/tmp/kelm.pid', '/../self\n'),
    lambda router, place: os.mkdir(place),
    lambda router, place: os.mkfifo(place),
    lambda router, place: os.symlink('/etc/config/kelm', place)))
def test_a_pid_file_of_the_dead_does_not_bar_the_next(router, make):
    make(router, router.at('/tmp/kelm.pid'))
    router.start(f'exec {RUN}')
    wait_for_daemon(router)
    assert not router.exists('/tmp/kelm.pid') and not router.exists('/tmp/hacked')
    assert router.read('/etc/config/kelm')


def test_a_pid_file_of_the_living_stays(router):
    router.write('/mnt/bin/kelm', '#!/bin/sh\necho $$ > /tmp/kelm.pid\nread wait < /mnt/wait\n',
                 0o755)
    os.mkfifo(router.at('/mnt/wait'))
    router.start('exec /mnt/bin/kelm')
    wait_for(lambda: router.read('/tmp/kelm.pid'), 'the pid file')
    before = router.read('/tmp/kelm.pid')
    router.write('/var/run/kelm/starts', 'last=0\nquick=0\n')
    router.start(f'exec {RUN}')
    wait_for(lambda: state_of(router, 'starts').get('last') != '0', 'the start', START_S)
    assert router.read('/tmp/kelm.pid') == before


def test_a_stop_while_it_waits(router):
    no_band_for(router, '2g', '5g')
    process = router.start(f'exec {RUN}')
    wait_for(lambda: state_of(router, 'state').get('state') == 'not-ready', 'the first look')
    process.terminate()
    assert process.wait(1) == -signal.SIGTERM


# What the daemon calls

def call(router, *words):
    router.forget_commands()
    return router.run('"$@"', *words, env={
        'PATH': '/usr/libexec/kelm/bin:/usr/sbin:/usr/bin:/sbin:/bin'})


AP = ('hostapd_cli', '-p', '/var/run/hostapd', '-i', 'wlan1')
RELOAD = 'hostapd_cli -p /var/run/hostapd -i phy0-ap0 raw RELOAD_WPA_PSK'


@pytest.mark.parametrize('words', (('wps_pbc',), ('wps_pin', 'any', '12345670')))
def test_before_wps_is_opened_the_key_is_there(router, words):
    router.run('/usr/libexec/kelm/prepare')
    router.write(PSK, '', 0o640)  # a reload of the wireless
    assert call(router, *AP, *words).out == 'OK\n'
    assert router.read(PSK) == KEY_LINE
    assert router.commands() == [RELOAD, ' '.join(AP + words)]
    assert call(router, *AP, *words).out == 'OK\n'
    assert router.commands() == [' '.join(AP + words)]


def test_wps_is_not_opened_with_a_key_that_would_die(router):
    router.run('/usr/libexec/kelm/prepare')
    router.remove(PSK)
    result = call(router, *AP, 'wps_pbc')
    assert (result.status, result.out) == (1, 'FAIL\n')
    assert router.commands() == []
    assert router.log()[-1] == ('daemon.notice kelm: wlan1: WPS is not opened: hostapd does not '
                                'take the key that is to last')


def test_wps_is_not_opened_on_an_interface_that_is_not_the_daemons(router):
    router.run('/usr/libexec/kelm/prepare')
    router.forget_commands()
    result = router.run('"$@"', *AP[:-1], 'wlan9', 'wps_pbc', env={
        'PATH': '/usr/libexec/kelm/bin:/usr/sbin:/usr/bin:/sbin:/bin',
        'value': 'phy0-ap0'})  # a name that the script has for itself
    assert (result.status, result.out) == (1, 'FAIL\n')
    assert router.commands() == []


@pytest.mark.parametrize('words', (('wps_cancel',), ('wps_ap_pin', 'disable'), ('get_config',),
                                   ("it's", '$(id)', 'a b', '')))
def test_other_commands_pass_as_they_are(router, words):
    router.run('/usr/libexec/kelm/prepare')
    router.write(PSK, '', 0o640)
    call(router, *AP, *words)
    assert len(router.commands()) == 1
    assert router.read(PSK) == ''
    if words[0] == "it's":
        assert router.commands() == [f"{' '.join(AP)} 'it'\\''s' '$(id)' 'a b' ''"]


def test_the_supplicant_is_told_to_tell(router):
    put_station(router)
    station = ('wpa_cli', '-p', '/var/run/wpa_supplicant', '-i', 'wlan1-vxd')
    assert call(router, *station, 'wps_pbc', 'multi_ap=1').out == 'OK\n'
    assert router.commands() == [
        f'{" ".join(station)} set wps_cred_processing 2',
        f'{" ".join(station)} wps_pbc multi_ap=1']
    call(router, *station, 'wps_cancel')
    assert router.commands() == [f'{" ".join(station)} wps_cancel']
