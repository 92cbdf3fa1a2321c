# SPDX-License-Identifier: ISC
"""Two whole attempts: an open access point that gets its key, a repeater on both bands."""
import json

from router import REPEATER_MODE
from world import wait_for

MAC = '02:00:00:00:07:00'
REG_SUCCESS = f'<3>WPS-REG-SUCCESS {MAC} 7ab3a5b8-0b25-5b3c-9a4f-5f6a5a1f0001'
HOSTAPD_FILE = """interface=wlan1
driver=nl80211
ctrl_interface=/var/run/hostapd
ssid=Home
hw_mode=g
channel=6
wps_state=2
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_pairwise=CCMP
wpa_passphrase=0123456789abcdef
"""
SUPPLICANT_FILE = """ctrl_interface=/var/run/wpa_supplicant
update_config=1

network={{
\tssid="Before"
\tpsk="before123"
\tdisabled=1
}}

network={{
\tssid="{ssid}"
\tpsk="rootsecret"
\tproto=RSN
\tkey_mgmt=WPA-PSK
\tpairwise=CCMP
\tauth_alg=OPEN
}}
"""
# The scan tool writes its result where the test keeps it.
SCAN_TOOL = '[ "$1" != getscanresult ] || cp "/mnt/scan.$2" "/tmp/wifi_scan_$2.result"\n'
SCAN_ENTRIES = 20
# What the daemon runs last, and waits for.
LAST_COMMANDS = {'access point': '/etc/init.d/wifi force_restart',
                 'repeater': '/etc/init.d/wifi force_restart'}


def scan_entry(number):
    """One access point of a scan result."""
    return {'mac': f'06:{number >> 8:02x}:{number & 255:02x}:33:22:11',
            'ssid': f'Neighbour {number}', 'security': 'wpa2', 'wpa_encryption': 'aes',
            'channel': str(number % 13 + 1),
            'rssi': '-60', 'data': '', 'nodeid': '', 'support_mesh': 0}


def begin_access_point(router):
    """Settings and start."""
    router.configure(secured=(0, 1, 1, 1))
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    router.start()


def play_access_point(router):
    router.press_and_wait_started(poke=False)
    answer_access_point(router)


def answer_access_point(router):
    """What hostapd says of a client that joins."""
    router.hostapd['2g'].send(f'<3>WPS-ENROLLEE-SEEN {MAC}')
    router.hostapd['2g'].send(REG_SUCCESS)


def begin_repeater(router):
    """Settings, what the stations learn, what the scans find, and start."""
    router.configure(mode=REPEATER_MODE, stations=3)
    scan = json.dumps([scan_entry(number) for number in range(SCAN_ENTRIES)])
    for band, interface, ssid in (('2g', 'wlan1-vxd', 'Root'), ('5g', 'wlan0-vxd', 'Root5')):
        router.set_link(band, 0)
        router.world.write(f'/mnt/scan.{band}', scan)
        router.world.write(f'/tmp/run/wpa_supplicant-{interface}.conf',
                           SUPPLICANT_FILE.format(ssid=ssid))
    router.world.reply('/usr/bin/wifi', SCAN_TOOL)
    router.start(bands=(), stations=('2g', '5g'))


def play_repeater(router):
    router.press_and_wait_started(poke=False)
    for band in ('2g', '5g'):
        router.supplicant[band].send('<3>WPS-AP-AVAILABLE-PBC ')
        router.supplicant[band].send('<3>WPS-SUCCESS ')


ATTEMPTS = {'access point': (begin_access_point, play_access_point),
            'repeater': (begin_repeater, play_repeater)}


def wait_last_command(router, name):
    wait_for(lambda: LAST_COMMANDS[name] in router.commands(), f'the last command of the {name}')
