# SPDX-License-Identifier: ISC
"""What the daemon calls: the service scripts, their verbs, the programs. None of them is run."""
import os

import pytest

import world as private_world
from doctor import examine, told
from test_settings_files import do, fault, ok, warning
from whole import SCAN_SCRIPT, WIFI_SCRIPT, WPS_SCRIPT

WPS, WIFI, SCAN = '/etc/init.d/wps', '/etc/init.d/wifi', '/usr/bin/wifi'
NO_NEXT = 'after an attempt no kelm is started again'
UNKNOWN = {
    'restart': f'{WPS} does not seem to know "restart": {NO_NEXT}; add that verb',
    'config_wifi': f'{WPS} does not seem to know "config_wifi": what was learnt is not stored; '
                   'add that verb',
    'mesh_config_wifi': f'{WPS} does not seem to know "mesh_config_wifi": what was learnt of a '
                        'mesh is not stored; add that verb',
    're_kelm_info': f'{WPS} does not seem to know "re_kelm_info": nobody hears of the outcome '
                    'after the wireless was restarted; add that verb',
}
KNOWN = ok(f"{WPS} is there, is root's, and knows its verbs")
FOUR = 'restart | config_wifi | mesh_config_wifi | re_kelm_info'


def without(verb):
    return WPS_SCRIPT.replace(f'\n{verb})', '\nx)')


# The script; the verbs that it does not know.
VERBS = {
    'cases': (WPS_SCRIPT, []),
    'one case': (f'#!/bin/sh\ncase $1 in\n{FOUR}) ;;\nesac\n', []),
    'functions': ('#!/bin/sh\nrestart() { :; }\nfunction config_wifi { :; }\n'
                  'mesh_config_wifi ()\n{\n:\n}\nre_kelm_info() { :; }\n"$@"\n', []),
    'a list': ("#!/bin/sh /etc/rc.common\nEXTRA_COMMANDS='config_wifi mesh_config_wifi "
               "re_kelm_info'\n", []),
    'no restart': (without('restart'), ['restart']),
    'no config_wifi': (without('config_wifi'), ['config_wifi']),
    'no mesh_config_wifi': (without('mesh_config_wifi'), ['mesh_config_wifi']),
    'no re_kelm_info': (without('re_kelm_info'), ['re_kelm_info']),
    'none': ('#!/bin/sh\nexit 0\n', list(UNKNOWN)),
    'a part of another word': (f'#!/bin/sh\ncase $1 in\n{FOUR.replace("restart", "wifi_restart")}'
                               '| restart-all) ;;\nesac\n', ['restart']),
    'in a comment': (without('restart') + '# restart\n: # restart)\n', ['restart']),
    'elsewhere': ('#!/bin/sh\n. "/lib/wps.sh"\n', []),
    'nowhere else': ('#!/bin/sh\n. /lib/missing.sh\n', list(UNKNOWN)),
    'in a place that is computed': ('#!/bin/sh\n. "$here/wps.sh"\n', list(UNKNOWN)),
    'no first line': (f'case $1 in\n{FOUR}) ;;\nesac\n', []),
}


@pytest.mark.parametrize('row', VERBS)
def test_the_verbs_of_the_service(maker, row):
    text, missing = VERBS[row]
    maker.write(WPS, text)
    maker.write('/lib/wps.sh', f'case $1 in\n{FOUR}) ;;\nesac\n')
    assert told(maker, 'service-wps') == (
        [('warning', UNKNOWN[verb]) for verb in missing] or KNOWN)


def test_no_script_is_run(maker):
    for path in (WPS, WIFI, SCAN, '/lib/wps.sh'):
        maker.write(path, '#!/bin/sh\n. /lib/wps.sh\n: > /tmp/ran\n')
    maker.be_repeater()
    examine(maker)
    assert not maker.exists('/tmp/ran')


CHOOSES = 'who so chooses what root runs'
# What is done to the script; what is told.
SCRIPT_FILES = {
    'missing': ('rm {0}', fault('{0} is missing; install it')),
    'empty': (': > {0}', fault('{0} is empty, so it does nothing; write it')),
    'a folder': ('rm {0}; mkdir {0}', fault('{0} is a folder and no file; install it')),
    'a FIFO': ('rm {0}; mkfifo {0}', fault('{0} is a FIFO and no file; install it')),
    'a link to nothing': ('ln -sf /no/such {0}', fault('{0} is a link to nothing; install it')),
    'not to be run': ('chmod 644 {0}', fault('{0} cannot be run; chmod +x {0}')),
    "a stranger's": ('chown 1000 {0}', fault(
        f'{{0}} belongs to user 1000, {CHOOSES}; give it to root: chown root {{0}}')),
    'others may write': ('chmod 775 {0}', fault(
        'others than root may write to {0}, and so choose what root runs; chmod go-w {0}')),
    'a shell that is not there': ("sed -i '1s,.*,#! /bin/bash -e,' {0}", fault(
        '{0} is for "/bin/bash", which is not there; install that, or write it for /bin/sh')),
    'a carriage return': ("sed -i '1s,$,\\r,' {0}", fault(
        'the first line of {0} ends in a carriage return, so it cannot be run; end each line with '
        'a line feed alone')),
    'no script': ('cp /bin/busybox {0}', ok(
        "{0} is there, and is root's; it is no script, so what it knows cannot be seen")),
    'a link of roots': ('mv {0} /etc/x; ln -s ../x {0}', ok(
        "{0} is there, is root's, and knows its verbs")),
    'a second name': ('ln {0} /etc/x', ok("{0} is there, is root's, and knows its verbs")),
}


@pytest.mark.parametrize('path, check', [(WPS, 'service-wps'), (WIFI, 'service-wifi')])
@pytest.mark.parametrize('row', SCRIPT_FILES)
def test_the_script_as_a_file(maker, row, path, check):
    script, expected = SCRIPT_FILES[row]
    do(maker, script.format(path))
    assert told(maker, check) == [(result, text.format(path)) for result, text in expected]


@pytest.mark.parametrize('verb, text', [
    ('force_restart', 'what was learnt does not take effect, and no kelm is started again'),
    ('restart_from_wps', 'the same, for a mesh'),
])
def test_the_verbs_of_the_wireless(maker, verb, text):
    maker.write(WIFI, WIFI_SCRIPT.replace(f'{verb}()', 'x()'))
    assert told(maker, 'service-wifi') == warning(
        f'{WIFI} does not seem to know "{verb}": {text}; add that verb')


def test_an_access_point_needs_no_scan(maker):
    maker.remove(SCAN)
    assert told(maker, 'service-scan') == ok('an access point needs no scan')


@pytest.mark.parametrize('verb', ['scan', 'getscanresult'])
def test_the_verbs_of_the_scan(maker, verb):
    maker.be_repeater()
    maker.write(SCAN, SCAN_SCRIPT.replace(f'{verb} |', '').replace(f'| {verb})', ')'))
    assert told(maker, 'service-scan') == warning(
        f'{SCAN} does not seem to know "{verb}": a band that did not enrol finds no network; add '
        'that verb')


def test_a_repeater_without_a_scan(maker):
    maker.be_repeater()
    assert told(maker, 'service-scan') == ok(f"{SCAN} is there, is root's, and knows its verbs")
    maker.remove(SCAN)
    assert told(maker, 'service-scan') == fault(f'{SCAN} is missing; install it')


@pytest.mark.parametrize('check, path', [
    ('service-wps', WPS), ('service-wifi', WIFI), ('service-scan', '/usr/libexec/kelm/scan')])
def test_the_scripts_of_the_package(stock, check, path):
    stock.write('/tmp/device_runtime.info', '{"mode": 0}')
    end = told(stock, check)
    assert end == ok(f"{path} is there, is root's, and knows its verbs")
    stock.remove(path)
    assert told(stock, check) == fault(f'{path} is missing; install it')


def test_a_repeater_that_is_switched_off_is_one_all_the_same(stock):
    """There are no settings files then, so its own setting says it."""
    stock.be_repeater()
    stock.uci('set', 'kelm.main.enabled=0')
    stock.uci('commit', 'kelm')
    stock.remove('/usr/libexec/kelm/scan')
    assert told(stock, 'service-scan') == fault('/usr/libexec/kelm/scan is missing; install it')


def test_at_boot(router):
    assert told(router, 'at-boot') == ok('the service is started at boot')
    router.remove('/etc/rc.d/S95wps')
    assert told(router, 'at-boot') == warning(
        'nothing in /etc/rc.d starts the service at boot; /etc/init.d/wps enable')
    router.run('rm -r /etc/rc.d')
    assert told(router, 'at-boot') == ok(
        'there is no /etc/rc.d, so whether the service is started at boot cannot be seen')


PATH = '/usr/sbin:/usr/bin:/sbin:/bin'
NOT_THERE = f'install it, in a folder of the PATH of kelm ({PATH})'
PROGRAMS = {
    'all': (':', ok(f'the programs that kelm calls are there, in {PATH}')),
    'no hostapd_cli': ('rm /usr/sbin/hostapd_cli', fault(
        f'hostapd_cli is not there: a press is announced, and hostapd is not told of it; '
        f'{NOT_THERE}')),
    'no wpa_cli': ('rm /usr/sbin/wpa_cli', ok(
        f'the programs that kelm calls are there, in {PATH}')),
    'no ubus': ('rm /bin/ubus', fault(f'ubus is not there: nobody hears of an attempt; '
                                      f'{NOT_THERE}')),
    'no cp': ('rm /bin/cp', fault(f'cp is not there: kelm cannot write its files; {NOT_THERE}')),
    'no killall': ('rm /usr/bin/killall', warning(
        'killall is not there: a wpa_cli that somebody left running disturbs the attempt; install '
        'it')),
    "a stranger's": ('chown 1000 /bin/ubus', fault(
        f'/bin/ubus belongs to user 1000, {CHOOSES}; give it to root: chown root /bin/ubus')),
    'others may write': ('chmod 777 /bin/ubus', fault(
        'others than root may write to /bin/ubus, and so choose what root runs; chmod go-w '
        '/bin/ubus')),
    'not to be run': ('chmod 644 /bin/ubus', fault(
        f'ubus is not there: nobody hears of an attempt; {NOT_THERE}')),
    'a folder for all': ('chmod 1777 /usr/bin', fault(
        'others than root may put programs into "/usr/bin", a folder of the PATH of kelm; take '
        'that right away: chmod go-w, chown root')),
    "a stranger's folder": ('chown 1000 /usr/bin', fault(
        'others than root may put programs into "/usr/bin", a folder of the PATH of kelm; take '
        'that right away: chmod go-w, chown root')),
}


@pytest.mark.parametrize('row', PROGRAMS)
def test_the_programs_that_the_daemon_calls(maker, row):
    script, expected = PROGRAMS[row]
    do(maker, script)
    assert told(maker, 'programs') == expected


def test_a_repeater_needs_wpa_cli(maker):
    maker.be_repeater()
    maker.remove('/usr/sbin/hostapd_cli')
    assert told(maker, 'programs')[0][0] == 'ok'
    maker.remove('/usr/sbin/wpa_cli')
    assert told(maker, 'programs') == fault(
        'wpa_cli is not there: a press is announced, and wpa_supplicant is not told of it; '
        f'{NOT_THERE}')


def run_daemon_with(router, **variables):
    """A process with the daemon's name, its number and this environment."""
    router.write('/usr/bin/kelm', '#!/bin/sh\nsleep 1000\n', 0o755)
    process = router.start('exec /usr/bin/kelm', env=variables)
    private_world.wait_for(lambda: comm(process.pid) == 'kelm', 'the process')
    router.write('/tmp/kelm.pid', f'{process.pid}\n')


def comm(pid):
    with open(f'/proc/{pid}/comm', encoding='utf-8') as file:
        return file.read().strip()


def test_the_environment_of_the_daemon_that_runs_counts(maker):
    maker.be_repeater()
    run_daemon_with(maker, PATH='/opt/none:/usr/sbin:/bin:', KELM_WIFI="/opt/it's scan")
    maker.write("/opt/it's scan", SCAN_SCRIPT, 0o755)
    assert told(maker, 'service-scan') == ok(
        "/opt/it's scan is there, is root's, and knows its verbs")
    assert told(maker, 'programs') == fault(
        '"" in the PATH of kelm is no folder from the root on: who chooses the folder in which '
        'kelm is started chooses what it runs; leave it out') + warning(
        'killall is not there: a wpa_cli that somebody left running disturbs the attempt; install '
        'it')


def test_the_path_that_the_service_of_stock_gives(stock):
    os.kill(int(stock.read('/tmp/kelm.pid')), 9)
    stock.remove('/tmp/kelm.pid')
    assert told(stock, 'programs') == ok(
        f'the programs that kelm calls are there, in /usr/libexec/kelm/bin:{PATH}')
