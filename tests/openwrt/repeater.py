# SPDX-License-Identifier: ISC
"""A stock router as a repeater: a chosen station on each band beside its access point."""
import json

from stock import two_bands

STATIONS = {'2g': ('wwan0', 'phy0-sta0'), '5g': ('wwan1', 'phy1-sta0')}
SETTINGS = """config kelm 'main'
    option enabled '1'
    option mode '{mode}'
    option follow '{follow}'
    list sta 'wwan0'
    list sta 'wwan1'
    list ap 'default_radio0'
    list ap 'default_radio1'
"""
OLD = {'ssid': 'Old Oak', 'key': 'leaves of last year', 'encryption': 'psk2'}


def make_repeater(stock, mode='repeater', follow=0):
    stock.write('/etc/config/kelm', SETTINGS.format(mode=mode, follow=follow))
    status = two_bands()
    for number, (section, interface) in enumerate(STATIONS.values()):
        stock.uci('set', f'wireless.{section}=wifi-iface')
        for option, value in {'device': f'radio{number}', 'mode': 'sta', 'network': 'wwan',
                              **OLD}.items():
            stock.uci('set', f'wireless.{section}.{option}={value}')
        status[f'radio{number}']['interfaces'].append(
            {'section': section, 'ifname': interface, 'config': {'mode': 'sta'}})
    stock.uci('commit', 'wireless')
    stock.set_wireless(status)
    stock.fake('wpa_cli')
    stock.fake('wpa_supplicant')


def _texts(stem, band, value):
    """A text as the daemon writes it: beside one that is no UTF-8 stand its bytes."""
    try:
        if b'\0' in value:
            raise ValueError
        return {f'{stem}_{band}': value.decode()}
    except ValueError:
        shown = value.decode('utf-8', 'replace').replace('\0', '\ufffd')
        return {f'{stem}_{band}': shown, f'{stem}_hex_{band}': value.hex()}


def learnt(band='2g', ssid=b'Great Oak', key=b'acorns in the cellar', security='wpa2',
           cipher='aes'):
    return {f'enable_{band}': 'on', **_texts('ssid', band, ssid), f'security_{band}': security,
            f'wpa_encryption_{band}': cipher, f'index_{band}': 1,
            **_texts('password', band, key), f'support_mesh_{band}': 0}


def extender(band='2g', ssid=b'Great Oak_EXT'):
    return {f'enable_{band}': 'on', **_texts('ssid', band, ssid), f'hide_{band}': 0,
            f'sec_follow_{band}': 'true'}


def leave(stock, *stations, extenders=()):
    """What the daemon leaves in its files."""
    for path, members in (('/tmp/wps_wifi_sta.txt', stations), ('/tmp/wps_wifi_ap.txt', extenders)):
        merged = {key: value for some in members for key, value in some.items()}
        stock.write(path, json.dumps(merged, ensure_ascii=False) if merged else '', 0o600)


def network(stock, section):
    """The section's name, key and encryption as the file has them; None for what is not there."""
    return tuple(stock.run(f'uci -q get wireless.{section}.{option} || echo "-none-"').out[:-1]
                 .replace('-none-', '') or None for option in ('ssid', 'key', 'encryption'))
