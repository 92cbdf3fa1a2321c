# SPDX-License-Identifier: ISC
"""The attempts that are made without memory: their peers, their files, and what may be in these.

A file may be missing or hold what it held before; what is new in it is whole. A credential file may
be empty, too: so its name is held where nothing was written.
"""
import contextlib
import json

from router import REPEATER_MODE

OLD = '{"left": "from an earlier attempt"}\n'
AP_FILE, STATION_FILE = '/tmp/wps_wifi_ap.txt', '/tmp/wps_wifi_sta.txt'
INFO_FILE = '/tmp/kelm.info'
HOSTAPD_FILE = ('ssid=Home\nwpa=2\nwpa_key_mgmt=WPA-PSK\nwpa_pairwise=CCMP\n'
                'wpa_passphrase=secret12\n')
AP_WRITTEN = (
    '{ "enable_2g": "on", "ssid_2g": "Home", "hide_2g": 0, "sec_follow_2g": "false", '
    '"sec_2g": "wpa2", "index_2g": 1, "password_2g": "secret12", "securityType_2g": 1, '
    '"wpaVersion_2g": 2, "wpaEncryption_2g": 2, "wepAuthType_2g": 0, "wepKeyFormat_2g": 0 }\n')
SUPPLICANT_FILE = ('network={\nssid="Before"\npsk="before123"\ndisabled=1\n}\n'
                   'network={\nssid="Root"\npsk="rootsecret"\nproto=RSN\nkey_mgmt=WPA-PSK\n'
                   'pairwise=CCMP\nauth_alg=OPEN\n}\n')
SCAN = [{'mac': '02:00:00:00:01:01', 'ssid': 'Root', 'security': 'wpa2', 'wpa_encryption': 'aes',
         'channel': '36'}]
STATION = {'enable': 'on', 'ssid': 'Root', 'security': 'wpa2', 'wpa_encryption': 'aes', 'index': 1,
           'password': 'rootsecret', 'securityType': 1, 'wpaVersion': 2, 'wepAuthType': 1,
           'wepKeyFormat': 1, 'data': '', 'support_mesh': 0, 'multiap': 0}
EXTENDER = {'enable': 'on', 'ssid': 'Root_EXT', 'hide': 0, 'sec_follow': 'true'}
# A scan that found nothing leaves the second band the other one's settings, under other names.
BANDS_OF = {
    STATION_FILE: {'2g': [STATION], '5g': [STATION, dict(STATION, ssid='')]},
    AP_FILE: {'2g': [EXTENDER], '5g': [EXTENDER, dict(EXTENDER, ssid='Root_5GEXT')]},
}
# What the log says of a band whose keys did not get into a file. A station whose settings could not
# be read counts as switched off.
WRITE_FAILURES = ('Parse string to json failed.', 'format json data failed',
                  'wps_hapd_wpasupp_config_parse failed', 'Open wps config file failed')
INFO_TEXTS = {
    'wps_action': (1, 2), 'wl0_wps_status': ('ok', 'success', 'error', 'timeout', 'silent'),
    'wl0_wps_sta_mac': ('', '02:00:00:00:07:00'),
    'wl1_wps_status': ('ok', 'timeout', 'silent'), 'wl1_wps_sta_mac': ('',)}


def is_whole_info(text):
    info = json.loads(text)
    return list(info) == list(INFO_TEXTS) and all(
        value in INFO_TEXTS[key] for key, value in info.items())


def is_whole_ap(text):
    return text == AP_WRITTEN


def are_whole_bands(text, allowed):
    """Each band has all of its keys or none; nothing else is there but the EasyMesh switch."""
    values = json.loads(text)
    switch = values.pop('mesh_enable', 'off')
    return switch == 'off' and not values.keys() - {
        f'{key}_{band}' for band in allowed for key in STATION | EXTENDER} and all(
            keys_of(values, band) in ({}, *blocks) for band, blocks in allowed.items())


def keys_of(values, band):
    return {key: values[f'{key}_{band}'] for key in STATION | EXTENDER
            if f'{key}_{band}' in values}


def lost_bands(run):
    """The bands that are not in a new file, although the log knows of no failure to write one."""
    if any(line in run.console for line in WRITE_FAILURES):
        return []
    return [f'{path} lost {band}' for path, allowed in BANDS_OF.items() for band in allowed
            if run.files[path] not in (None, OLD) and f'"ssid_{band}"' not in run.files[path]]


def is_told_wrongly(run):
    """Whether a failure to store the credentials is told, though they are stored."""
    info = run.files[INFO_FILE]
    told = info not in (None, OLD) and '"wl0_wps_status": "error"' in info
    return told and run.files[AP_FILE] not in (None, OLD, '')


def is_number(text):
    return text in ('-1\n', '0\n', '1\n')


def judge(run, play):
    """The files that are neither absent nor old nor whole."""
    bad = []
    for path, text in run.files.items():
        try:
            held = text == '' and path in (AP_FILE, STATION_FILE)
            whole = text in (None, OLD) or held or (
                text.endswith('\n') and play.judges[path](text))
        except ValueError:
            whole = False
        if not whole:
            bad.append(f'{path} holds {text!r}')
    if run.status == 0 and play is Repeater:
        bad += lost_bands(run)
    if play is AccessPoint and is_told_wrongly(run):
        bad.append('a success is told as an error')
    return bad


class AccessPoint:
    """An open access point that a client gave its key."""
    begun = 'wlan0 wps_pbc\n'
    judges = {AP_FILE: is_whole_ap, STATION_FILE: lambda text: False, INFO_FILE: is_whole_info,
              '/tmp/wps_result': is_number, '/tmp/wpsactive': is_number}

    @staticmethod
    def add_peers(router):
        router.add_hostapd('2g', '5g')

    @staticmethod
    def settle(router):
        router.configure(secured=(0, 1, 1, 1))
        router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
        for path in (AP_FILE, INFO_FILE):
            router.world.write(path, OLD)

    @staticmethod
    def tell_events(router):
        with contextlib.suppress(AssertionError):  # nobody listens any more
            router.hostapd['2g'].send('<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid')


class Repeater:
    """One band enrols, the other one takes over what it finds in the scan."""
    begun = 'wlan0-vxd wps_pbc'
    judges = {AP_FILE: lambda text: are_whole_bands(text, BANDS_OF[AP_FILE]),
              STATION_FILE: lambda text: are_whole_bands(text, BANDS_OF[STATION_FILE]),
              INFO_FILE: is_whole_info,
              '/tmp/wps_result': is_number, '/tmp/wpsactive': is_number}

    @staticmethod
    def add_peers(router):
        router.add_supplicant('2g', '5g')

    @staticmethod
    def settle(router):
        router.configure(mode=REPEATER_MODE, stations=3)
        for band in ('2g', '5g'):
            router.set_link(band, 0)
        router.world.write('/tmp/run/wpa_supplicant-wlan1-vxd.conf', SUPPLICANT_FILE)
        router.world.write('/tmp/wifi_scan_2g.result', '[]')
        router.world.write('/tmp/wifi_scan_5g.result', json.dumps(SCAN))
        for path in (AP_FILE, INFO_FILE):
            router.world.write(path, OLD)

    @staticmethod
    def tell_events(router):
        # In this order whichever the daemon finds first: the 5 GHz band's socket comes first.
        with contextlib.suppress(AssertionError):  # nobody listens any more
            router.supplicant['5g'].send('<3>WPS-TIMEOUT ')
            router.supplicant['2g'].send('<3>WPS-SUCCESS ')


PLAYS = {'access_point': AccessPoint, 'repeater': Repeater}
