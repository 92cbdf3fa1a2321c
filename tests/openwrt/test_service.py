# SPDX-License-Identifier: ISC
"""The service: started, stopped, supervised, switched on and off."""
import os
import shutil
import subprocess

import pytest
from stock import SOURCE, two_bands
from wifi import put_access_point, put_wifi, state_of
from world import wait_for

WPS = '/etc/init.d/wps'
OFF = 'kelm is switched off'
HOW = ('kelm is switched off. To switch it on: uci set kelm.main.enabled=1; uci commit kelm; '
       'service wps start\n')
READY = 'ready on 2.4 GHz and 5 GHz\n'
# As the real one: its pid file is there while it lives, and SIGTERM ends it.
DAEMON = """#!/bin/sh
end() { echo TERM; readlink /var/run/hostapd/wlan1; rm -f /tmp/kelm.pid; }
trap 'end >> /mnt/ends; exit' TERM
[ ! -e /tmp/kelm.pid ] || exit 1
echo $$ > /tmp/kelm.pid
while :; do sleep 1 & wait $!; done
"""
START_S = 10


@pytest.fixture
def router(stock):
    """Switched off, as after the install; the access points are chosen already."""
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
        stock.uci('add_list', f'kelm.main.ap=default_radio{number}')
    stock.uci('commit')
    stock.write('/usr/sbin/kelm', DAEMON, 0o755)
    stock.procd()
    return stock


@pytest.fixture
def on(router):
    router.uci('set', 'kelm.main.enabled=1')
    router.uci('commit')
    assert service(router, 'start').out == READY
    daemon(router)
    return router


def service(router, words, **options):
    result = router.run(f'{WPS} {words}', **options)
    assert (result.status, result.err) == (0, '')
    return result


def instances(router):
    return router.ubus('service', 'list', {'name': 'wps'})[1].get('wps', {}).get('instances', {})


def pid(router):
    return (router.read('/tmp/kelm.pid') or '').strip()


def daemon(router, other_than=''):
    """Waits for a daemon, another one than before."""
    wait_for(lambda: pid(router) not in ('', other_than), 'the daemon', START_S)
    return pid(router)


def reloads(router):
    return router.commands().count('ubus network reload {}')


def test_after_the_install_nothing_changes(router):
    wireless = router.read('/etc/config/wireless')
    before = set(os.listdir(router.at('/tmp')))
    assert service(router, 'enable').out == ''
    for _ in range(2):
        assert service(router, 'start').out == HOW
    assert instances(router) == {}
    assert state_of(router, 'state') == {'state': 'off', 'message': OFF}
    assert router.log() == [f'daemon.notice kelm: {OFF}']
    assert router.read('/etc/config/wireless') == wireless
    assert set(os.listdir(router.at('/tmp'))) == before and reloads(router) == 0


def test_what_procd_is_told(on):
    told = instances(on)['instance1']
    assert told['command'] == ['/usr/libexec/kelm/run']
    assert told['respawn'] == {'threshold': 0, 'timeout': 1, 'retry': 0}
    assert told['term_timeout'] == 15


def test_a_start_sets_all_up_and_a_second_one_changes_nothing(on):
    assert on.uci('get', 'wireless.default_radio0.wps_pushbutton') == '1'
    assert reloads(on) == 1
    first = pid(on)
    assert service(on, 'start').out == READY
    assert (pid(on), reloads(on)) == (first, 1)
    assert on.run(f'{WPS} running').status == 0


def test_a_daemon_that_is_killed_is_followed_by_the_next(on):
    first = pid(on)
    on.run('kill -9 "$1"', first)
    second = daemon(on, other_than=first)
    assert on.run('cat "/proc/$1/comm"', second).out == 'kelm\n'
    on.run('kill "$1"', second)  # as after an attempt: it ends by itself
    assert daemon(on, other_than=second)


def test_stop(on):
    first = pid(on)
    service(on, 'stop')
    assert not os.path.exists(f'/proc/{first}')
    assert on.read('/mnt/ends') == 'TERM\nphy0-ap0\n'  # it had its names to the end
    assert state_of(on, 'state') == {'state': 'stopped', 'message': 'kelm is stopped'}
    for path in ('/var/run/hostapd/wlan1', '/tmp/wps.conf', '/tmp/device.info', '/tmp/kelm.pid'):
        assert not on.exists(path), path
    assert on.uci('get', 'wireless.default_radio0.wps_pushbutton') == '1'


def test_a_stop_waits_for_a_look_that_has_begun(router):
    """Else that would make the names, and say that all is ready, after they were taken away."""
    router.set_wireless({})
    router.uci('set', 'kelm.main.enabled=1')
    router.uci('commit')
    service(router, 'start')
    router.object('network.wireless', status='touch /mnt/asked; sleep 1; cat /mnt/wireless')
    wait_for(lambda: router.exists('/mnt/asked'), 'a look', START_S)
    router.set_wireless(two_bands())
    service(router, 'stop')
    assert not any('/usr/libexec/kelm/prepare' in words for _, words in router.processes())
    assert state_of(router, 'state')['state'] == 'stopped'
    assert not router.exists('/var/run/hostapd/wlan1') and not router.exists('/tmp/wps.conf')


def test_another_daemon_in_its_place_is_started(on):
    """apk ends nothing before an upgrade, and starts the service after it."""
    first = pid(on)
    on.write('/usr/sbin/kelm', DAEMON + '# newer\n', 0o755)
    service(on, 'start')
    daemon(on, other_than=first)


def test_restart(on):
    first = pid(on)
    assert service(on, 'restart').out == READY
    assert daemon(on, other_than=first)
    assert on.exists('/var/run/hostapd/wlan1')


def test_the_daemons_restart_does_nothing(on):
    first = pid(on)
    for _ in range(2):
        service(on, 'restart', env={'KELM_CALLER': 'daemon'})
    assert (pid(on), reloads(on)) == (first, 1)
    on.write('/var/run/kelm/changed', '')
    service(on, 'restart', env={'KELM_CALLER': 'daemon'})
    assert (pid(on), reloads(on)) == (first, 2)


def test_switched_off_again(on):
    before = on.uci('get', 'wireless.default_radio0.wps_pushbutton')
    assert before == '1'
    on.uci('set', 'kelm.main.enabled=0')
    on.uci('commit')
    assert service(on, 'start').out == HOW
    assert (instances(on), pid(on)) == ({}, '')
    assert on.read('/mnt/ends') == 'TERM\nphy0-ap0\n'
    assert on.run('uci -q get wireless.default_radio0.wps_pushbutton').out == ''
    assert reloads(on) == 2
    assert state_of(on, 'state') == {'state': 'off', 'message': OFF}
    assert not on.exists('/var/run/hostapd/wlan1')


def test_what_is_missing_is_told_where_one_looks(router):
    router.fake('hostapd', 'exit 1')
    router.uci('set', 'kelm.main.enabled=1')
    router.uci('commit')
    words = 'hostapd has no WPS: install wpad-mbedtls in place of wpad-basic-mbedtls'
    assert service(router, 'start').out == f'{words}\n'
    assert router.log() == [f'daemon.notice kelm: {words}']
    assert state_of(router, 'state') == {'state': 'not-ready', 'message': words}
    assert pid(router) == ''
    router.fake('hostapd', '')
    daemon(router)


def test_what_keeps_setup_from_its_work_stands_in_the_status_too(router):
    """hostapd has no WPS then, and would have none however long one waits."""
    for number in (0, 1):
        put_access_point(router, f'phy{number}-ap0', wps='disabled', more='')
    router.uci('set', 'kelm.main.enabled=1')
    router.uci('commit')
    router.uci('set', 'wireless.radio0.channel=11')
    words = '/etc/config/wireless has changes that nobody has committed: nothing is set there'
    assert service(router, 'start').out == f'2.4 GHz: {words}; 5 GHz: {words}\n'
    assert router.ubus('kelm', 'status')[1]['bands']['5g']['message'] == words
    router.uci('commit')
    assert service(router, 'start').out == \
        '2.4 GHz: radio is still starting; 5 GHz: radio is still starting\n'


def event(router, name, **data):
    assert router.ubus('service', 'event', {'type': name, 'data': data})[0] == 0


def test_new_settings_bring_a_new_daemon(on):
    first = pid(on)
    on.uci('del_list', 'kelm.main.ap=default_radio1')
    on.uci('commit')
    event(on, 'config.change', package='kelm')
    daemon(on, other_than=first)
    assert 'apWpsAvailable=1\n' in on.read('/tmp/wps.conf')


def test_a_radio_that_goes_brings_a_new_daemon_without_it(on):
    first = pid(on)
    wireless = two_bands()
    wireless['radio1'].update(up=False, pending=True)
    on.set_wireless(wireless)
    event(on, 'hostapd.phy1-ap0.remove')
    second = daemon(on, other_than=first)
    assert 'apWpsAvailable=1\n' in on.read('/tmp/wps.conf')
    on.set_wireless(two_bands())
    event(on, 'hostapd.phy1-ap0.add')
    daemon(on, other_than=second)
    assert 'apWpsAvailable=3\n' in on.read('/tmp/wps.conf')


def test_in_mid_attempt_nothing_is_changed_under_the_daemon(on):
    first, settings = pid(on), on.read('/tmp/wps.conf')
    on.write('/var/run/kelm/attempt', 'id=1.0\nrunning=1\n')
    on.write('/var/run/kelm/state', 'state=running\nmessage=m\n')
    wireless = two_bands()
    wireless['radio1'].update(up=False, pending=True)
    on.set_wireless(wireless)
    assert on.run('/usr/libexec/kelm/prepare again').status == 0
    assert (pid(on), on.read('/tmp/wps.conf')) == (first, settings)
    assert state_of(on, 'state')['state'] == 'running'


ANEW = 'PBC Status: Disabled\nLast WPS result: None\n'


@pytest.mark.parametrize('method, status_2g, status_5g, ends', [
    ('button', ANEW, ANEW, True),
    ('button', ANEW, 'PBC Status: Active\nLast WPS result: None\n', False),
    ('button', ANEW, 'PBC Status: Disabled\nLast WPS result: Success\n', False),
    ('button', ANEW, 'FAIL\n', False),
    ('pin', ANEW, ANEW, False),
])
def test_an_attempt_whose_radios_were_set_up_anew_is_ended(on, method, status_2g, status_5g, ends):
    first = pid(on)
    on.write('/mnt/wps/phy0-ap0.status', status_2g)
    on.write('/mnt/wps/phy1-ap0.status', status_5g)
    on.write('/var/run/kelm/attempt', f'id=1.0\nrunning=1\nmethod={method}\n')
    assert on.run('/usr/libexec/kelm/prepare again').status == 0
    if ends:
        daemon(on, other_than=first)
    else:
        assert pid(on) == first
    words = 'daemon.notice kelm: the radio was set up anew: the attempt is over'
    assert (words in on.log()) == ends


def test_the_daemons_other_verbs(on):
    for name in ('apply', 'told', 'apply-done'):
        on.write(f'/usr/libexec/kelm/{name}', f'#!/bin/sh\necho {name} "$@" >> /mnt/calls\n', 0o755)
    for verb in ('config_wifi', 'mesh_config_wifi', 're_kelm_info'):
        service(on, verb)
    for verb in ('force_restart', 'restart_from_wps', 'restart', 'start', 'stop'):
        assert on.run(f'/etc/init.d/wifi {verb}').status == 0
    assert on.read('/mnt/calls') == 'apply\ntold info\napply-done\napply-done\napply-done\n'


def test_wifi_is_no_service(router):
    router.run('/etc/init.d/wifi enable')
    router.run(f'{WPS} enable')
    assert os.listdir(router.at('/etc/rc.d')) == ['S95wps']


def test_while_an_image_is_built_only_the_link_is_made(private_mounts, tmp_path):
    """That machine's bash reads the scripts, which lie below another folder; it has no uci."""
    image = tmp_path / 'image'
    shutil.copytree(f'{SOURCE}/openwrt/testworld/files', image)
    shutil.copytree(f'{SOURCE}/openwrt/kelm/files', image, dirs_exist_ok=True)
    shutil.copytree(f'{SOURCE}/doctor/lib', image / 'usr/lib/kelm/doctor')
    (image / 'etc/rc.d').mkdir()
    os.mkdir(tmp_path / 'bin')
    for name in ('ln', 'rm', 'readlink'):
        os.symlink(shutil.which(name), tmp_path / 'bin' / name)
    for verb, links in (('enable', ['S95wps']), ('enable', ['S95wps']), ('disable', [])):
        result = subprocess.run(
            [shutil.which('bash'), f'{image}/etc/rc.common', f'{image}/etc/init.d/wps', verb],
            env={'IPKG_INSTROOT': str(image), 'PATH': str(tmp_path / 'bin')}, check=True,
            capture_output=True, text=True)
        assert (result.stdout, result.stderr) == ('', '')
        assert os.listdir(image / 'etc/rc.d') == links


def test_nothing_keeps_the_lock(on):
    assert on.exists('/var/lock/procd_wps.lock')
    assert on.run('exec 1000> /var/lock/procd_wps.lock; flock -n 1000').status == 0


@pytest.mark.parametrize('button', ('1', '0'))
def test_the_start_notes_whose_the_button_is(on, button):
    on.uci('set', f'kelm.main.button={button}')
    on.uci('commit', 'kelm')
    assert on.run(f'{WPS} start').status == 0
    assert on.read('/var/run/kelm/button') == f'button={button}\n'
