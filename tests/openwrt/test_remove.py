# SPDX-License-Identifier: ISC
"""Installing changes nothing, and removing the package leaves the router as it was before."""
import os
import re
import stat
import subprocess

import pytest

from stock import MAKEFILE, ROOT, SOURCE, put_package
from wifi import put_access_point, put_station, put_wifi

REMOVE = '/usr/libexec/kelm/remove'
BUTTON = '/etc/rc.button/wps'
# OpenWrt's of 24.10 asks no other script, the later one looks into /etc/rc.wps.
BUTTON_OF = {'24.10': '#!/bin/sh\nubus call hostapd.phy0-ap0 wps_start\n',
             '25.12': '#!/bin/sh\nfor script in /etc/rc.wps/*; do "$script" && break; done\n'}
# What OpenWrt itself runs before a package's own script.
DEFAULT_PRERM = """
for script in /etc/init.d/wps /etc/init.d/wifi; do
    [ "$PKG_UPGRADE" = 1 ] || "$script" disable
    "$script" stop
done
"""
DEFAULT_POSTINST = """
for script in /etc/init.d/wps /etc/init.d/wifi; do
    [ "$PKG_UPGRADE" = 1 ] || "$script" enable
    "$script" start
done
"""
# The bus and procd leave locks and sockets there; and the light is the LED trigger's business.
NOT_OURS = ('/tmp/lock', '/tmp/run/testworld', '/tmp/run/ubus', '/tmp/state',
            '/sys/class/leds/green:wps/brightness')


@pytest.fixture(name='scripts', scope='session')
def read_scripts(private_mounts):
    """The package's own scripts, as OpenWrt's build system takes them from the Makefile."""
    out = '/mnt/described'
    os.mkdir(out)
    subprocess.run(['make', '-C', os.path.dirname(MAKEFILE), f'OUT={out}',
                    f'TOPDIR={SOURCE}/tests/house/feed', 'describe'],
                   check=True, capture_output=True)

    def text(name):
        with open(f'{out}/kelm-stock.{name}', encoding='utf-8') as file:
            return file.read()
    return text


def picture(*folders):
    """Each file below: its mode, and what it holds or leads to."""
    seen = {}
    for folder in folders:
        for where, names, files in os.walk(ROOT + folder):
            for name in names + files:
                path = os.path.join(where, name)
                place = path[len(ROOT):]
                if any(place == other or place.startswith(f'{other}/') for other in NOT_OURS):
                    continue
                seen[place] = _look(path)
    return seen


def _look(path):
    mode = os.lstat(path).st_mode
    if stat.S_ISLNK(mode):
        return os.readlink(path)
    if not stat.S_ISREG(mode):
        return stat.filemode(mode)
    with open(path, 'rb') as file:
        text = file.read()
    if path.endswith('/trigger'):  # the kernel puts the one in force in brackets
        text = re.sub(rb'.*\[(.*)\].*', rb'\1', text)
    return stat.filemode(mode), text


@pytest.fixture(name='router')
def make_router(stock):
    """Two access points of OpenWrt 24.10, kelm is to serve both; not yet switched on."""
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
        stock.uci('add_list', f'kelm.main.ap=default_radio{number}')
    stock.uci('set', 'kelm.main.enabled=1')
    stock.uci('set', 'wireless.radio0.channel=6')  # a file that uci has written
    stock.uci('commit')
    stock.write(BUTTON, BUTTON_OF['24.10'], 0o755)
    stock.led('green:wps', trigger='[phy0tpt] none', brightness='0')
    stock.procd()
    return stock


def set_up(router):
    """All that kelm does to a router, up to the end of an attempt."""
    assert router.run('/usr/libexec/kelm/take-button on').status == 0
    assert router.run('/usr/libexec/kelm/setup on').status == 0
    assert router.run('/usr/libexec/kelm/prepare').status == 0
    assert router.run('/usr/libexec/kelm/led success').status == 0  # for five seconds
    for name in ('kelm.info', 'wps_result', 'wpsactive', 'wps_wifi_sta.txt', 'wps_wifi_ap.bak',
                 'wifi_scan_2g.result', 'run/wpa_supplicant-wlan1-vxd.conf'):
        router.write(f'/tmp/{name}', 'of an attempt\n')


@pytest.mark.parametrize('release', BUTTON_OF)
def test_after_the_removal_the_router_is_as_it_was(router, release):
    router.write(BUTTON, BUTTON_OF[release], 0o755)
    before = picture('/etc', '/tmp', '/sys')
    set_up(router)
    assert {'/etc/config/wireless', '/etc/config/kelm', '/tmp/run/hostapd/wlan1',
            '/tmp/run/hostapd-phy0-ap0.psk', '/sys/class/leds/green:wps/trigger'} <= {
                place for place, seen in picture('/etc', '/tmp', '/sys').items()
                if before.get(place) != seen}
    router.forget_commands()
    result = router.run(REMOVE)
    assert (result.status, result.out, result.err) == (0, '', '')
    assert picture('/etc', '/tmp', '/sys') == before
    assert 'hostapd_cli -p /var/run/hostapd -i phy0-ap0 raw RELOAD_WPA_PSK' in router.commands()


# opkg's prerm runs the package's part first, the text that apk gets has it last.
@pytest.mark.parametrize('package_manager', ['opkg', 'apk'])
def test_both_package_managers_leave_the_router_as_it_was(router, scripts, package_manager):
    before = picture('/etc', '/tmp', '/sys')
    router.run(DEFAULT_POSTINST)
    assert picture('/etc', '/tmp', '/sys') != before
    parts = [DEFAULT_PRERM, scripts('prerm')]
    router.run('\n'.join(reversed(parts) if package_manager == 'opkg' else parts))
    assert picture('/etc', '/tmp', '/sys') == before


def test_what_the_owner_has_set_stays(router):
    router.uci('set', 'wireless.default_radio0.wps_pushbutton=1')
    router.uci('add_list', 'wireless.default_radio1.hostapd_bss_options=uuid='
               '12345678-9abc-def0-1234-56789abcdef0')
    router.uci('commit')
    router.write('/var/run/hostapd-phy0-ap0.psk', '02:00:00:00:07:00 a key of one device\n', 0o640)
    before = picture('/etc', '/tmp')
    set_up(router)
    router.run(REMOVE)
    assert picture('/etc', '/tmp') == before


def test_a_repeater_loses_its_traces_too(router):
    for number in (0, 1):
        put_station(router, f'phy{number}-sta0')
    router.uci('set', 'kelm.main.mode=repeater')
    router.uci('commit')
    before = picture('/etc', '/tmp')
    router.run('/usr/libexec/kelm/prepare')
    router.run(REMOVE)
    assert picture('/etc', '/tmp') == before


def test_a_second_removal_does_nothing_more(router):
    before = picture('/etc', '/tmp', '/sys')
    set_up(router)
    router.run(REMOVE)
    router.forget_commands()
    result = router.run(REMOVE)
    assert (result.status, result.out, result.err) == (0, '', '')
    assert picture('/etc', '/tmp', '/sys') == before
    assert 'ubus network reload {}' not in router.commands()


def test_an_upgrade_gives_the_button_and_the_led_back_and_keeps_the_settings(router):
    before = picture('/etc/rc.button', '/sys')
    set_up(router)
    settings = picture('/etc/config')
    result = router.run(REMOVE, env={'PKG_UPGRADE': '1'})
    assert (result.status, result.out, result.err) == (0, '', '')
    assert picture('/etc/rc.button', '/sys') == before
    assert picture('/etc/config') == settings
    put_package()
    assert picture('/etc/config') == settings


def test_a_socket_that_bears_the_daemons_name_is_not_removed(router):
    put_access_point(router, 'wlan1')
    put_station(router, 'wlan0-vxd')
    before = picture('/tmp/run')
    router.run(REMOVE)
    assert picture('/tmp/run') == before


def test_changes_that_nobody_has_committed_are_not_mixed_with_it(router):
    set_up(router)
    router.uci('set', 'wireless.radio0.channel=11')
    result = router.run(REMOVE)
    assert (result.status, result.out) == (
        0, "kelm's settings are still in /etc/config/wireless: "
        "wps_pushbutton, hostapd_bss_options\n")
    assert router.uci('changes', 'wireless') == "wireless.radio0.channel='11'"
    assert '/etc/config/wireless has changes that nobody has committed' in '\n'.join(router.log())


def test_installing_changes_nothing_before_the_owner_says_so(stock, scripts):
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
    stock.write(BUTTON, BUTTON_OF['24.10'], 0o755)
    stock.led('green:wps', trigger='[phy0tpt] none')
    before = picture('/etc', '/tmp', '/sys')
    stock.procd()
    result = stock.run(DEFAULT_POSTINST + scripts('postinst'))
    assert result.status == 0
    after = picture('/etc', '/tmp', '/sys')
    changed = {place for place in {**before, **after} if before.get(place) != after.get(place)}
    assert {place for place in changed if not place.startswith('/tmp/run/kelm')} == {
        '/etc/rc.d/S95wps'}
    assert [line for line in stock.commands() if 'reload' in line] == []
    stock.run(DEFAULT_PRERM + scripts('prerm') + scripts('postrm'))
    assert picture('/etc', '/tmp', '/sys') == before


# An image is put together on another machine, where nothing may be called.
@pytest.mark.parametrize('name', ['postinst', 'prerm', 'postrm'])
def test_while_an_image_is_built_nothing_of_this_machine_is_touched(stock, scripts, name):
    for place in ('/etc/init.d/rpcd', REMOVE):
        stock.fake(place)
    result = stock.run(scripts(name), env={'IPKG_INSTROOT': '/image'})
    assert (result.status, result.out, result.err) == (0, '', '')
    assert stock.commands() == []
    stock.run(scripts(name))
    assert stock.commands() == [f'{REMOVE}' if name == 'prerm' else '/etc/init.d/rpcd reload']
