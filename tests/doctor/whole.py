# SPDX-License-Identifier: ISC
"""What surrounds the Wi-Fi daemons where WPS works: bus, scripts, settings files, a daemon."""
import contextlib
import os

from stock import BUILD, ROOT, put_file
from world import wait_for

WPS_SCRIPT = """#!/bin/sh
# The service of a maker. A verb such as forget_wifi is none.
case $1 in
start | stop) ;;
restart) ;;
config_wifi) ;;
mesh_config_wifi) ;;
re_kelm_info) ;;
*) exit 1 ;;
esac
"""
WIFI_SCRIPT = """#!/bin/sh
restart_from_wps() { :; }
force_restart() { :; }
"$1"
"""
SCAN_SCRIPT = """#!/bin/sh
case $1 in
scan | getscanresult) ;;
esac
"""
STOCK_WPS_CONF = 'enabled=1\napWpsAvailable=3\nstaWpsAvailable=0\npinEnabled=off\n'
STOCK_WIFI_CONF = """madeBy=kelm-stock

apBssEnabledApMode_2g=on
apBssEnabled_2g=on
wlanSecType_2g=1
apBssEnabledApMode_5g=on
apBssEnabled_5g=on
wlanSecType_5g=1

staBssEnabled_2g=off
staBssEnabled_5g=off
"""
NOBODY = 'enabled=0\n'
NO_PIN = [f'hostapd_cli -p /var/run/hostapd -i {name} wps_ap_pin disable'
          for name in ('wlan1', 'wlan0')]


def put_maker_scripts(router):
    router.write('/etc/init.d/wps', WPS_SCRIPT, 0o755)
    router.write('/etc/init.d/wifi', WIFI_SCRIPT, 0o755)
    router.write('/usr/bin/wifi', SCAN_SCRIPT, 0o755)


def put_stock_settings(router):
    """As prepare writes them."""
    router.write('/tmp/device_runtime.info', '{"mode": 1}\n')
    router.write('/tmp/device.info', '{"RFBand": 2}\n')
    router.write('/tmp/wps.conf', STOCK_WPS_CONF, 0o600)
    router.write('/tmp/wifi.conf', STOCK_WIFI_CONF)


def tasks(pid):
    try:
        return len(os.listdir(f'/proc/{pid}/task'))
    except OSError:
        return 0


def runs_a_command(pid):
    """Whether a process has a child, be it one that has ended and was not waited for."""
    for name in filter(str.isdigit, os.listdir('/proc')):
        with contextlib.suppress(OSError):
            with open(f'/proc/{name}/status', encoding='utf-8') as file:
                if f'PPid:\t{pid}\n' in file.read():
                    return True
    return False


def pid_in_file(router):
    """Of the daemon, or 0."""
    with contextlib.suppress(TypeError, ValueError):
        return int(router.read('/tmp/kelm.pid'))
    return 0


def start_daemon(router, threads=2):
    """The real one, an access point. At its start no band takes part, so that no Wi-Fi daemon need
    answer; its last two commands show that it has read the settings."""
    settings = router.read('/tmp/wps.conf')
    router.write('/tmp/wps.conf', NOBODY, 0o600)
    router.forget_commands()
    router.start('KELM_FOREGROUND=1 exec /usr/sbin/kelm')
    wait_for(lambda: router.commands()[-2:] == NO_PIN and tasks(pid_in_file(router)) == threads,
             'the daemon')
    wait_for(lambda: not runs_a_command(pid_in_file(router)), 'the end of its last command')
    router.write('/tmp/wps.conf', settings, 0o600)
    router.forget_commands()
    return pid_in_file(router)


def make_whole(router):
    if router.face == 'maker':
        put_maker_scripts(router)
        put_file(f'{BUILD}/testworld/jsonfilter', '/usr/bin/jsonfilter', 0o755)
    else:
        put_stock_settings(router)
    os.makedirs(f'{ROOT}/etc/rc.d', exist_ok=True)
    os.symlink('../init.d/wps', f'{ROOT}/etc/rc.d/S95wps')
    router.bus()
    start_daemon(router)
