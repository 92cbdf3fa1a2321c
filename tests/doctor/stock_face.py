# SPDX-License-Identifier: ISC
"""A router with stock OpenWrt and kelm-stock on which WPS can work."""
import peers
from stock import StockRouter, two_bands

HOSTAPD_CONF = """driver=nl80211
interface={name}
ssid=Elm House
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_pairwise=CCMP
wpa_passphrase=seven green elms
wpa_psk_file=/var/run/hostapd-{name}.psk
wps_state=2
wps_independent=1
uuid=12345678-9abc-4ef0-8234-56789abcdef0
config_methods=push_button
"""
# As prepare writes them.
WPS_CONF_OF_REPEATER = 'enabled=1\napWpsAvailable=0\nstaWpsAvailable=3\npinEnabled=off\n'
WIFI_CONF_OF_REPEATER = """madeBy=kelm

apBssEnabledApMode_2g=off
apBssEnabled_2g=off
wlanSecType_2g=0
apBssEnabledApMode_5g=off
apBssEnabled_5g=off
wlanSecType_5g=0

staBssEnabled_2g=on
staBssEnabled_5g=on
"""
LASTING = 'wps=1 00:00:00:00:00:00 seven green elms\n'

INTERFACES = {'2.4 GHz': 'phy0-ap0', '5 GHz': 'phy1-ap0'}


class StockFace(StockRouter):
    """Both bands are served, as access points; be_repeater() makes them stations."""

    face = 'stock'
    interfaces = INTERFACES

    def __init__(self):
        super().__init__()
        peers.put_programs(self)
        self.uci('set', 'kelm.main.enabled=1')
        for number, name in enumerate(INTERFACES.values()):
            peers.put_access_point(self, name)
            self.write(self.hostapd_file(name), HOSTAPD_CONF.format(name=name), 0o640)
            self.write(f'/var/run/hostapd-{name}.psk', LASTING, 0o640)
            self.uci('add_list', f'kelm.main.ap=default_radio{number}')
            self.uci('set', f'wireless.default_radio{number}.wps_pushbutton=1')
        self.uci('commit')

    @staticmethod
    def hostapd_file(name):
        return f'/var/run/hostapd-{name.partition("-")[0]}.conf'

    def be_repeater(self):
        self.uci('set', 'kelm.main.mode=repeater')
        self.write('/tmp/device_runtime.info', '{"mode": 0}\n')
        self.write('/tmp/wps.conf', WPS_CONF_OF_REPEATER, 0o600)
        self.write('/tmp/wifi.conf', WIFI_CONF_OF_REPEATER)
        for band in ('2g', '5g'):
            self.write(f'/tmp/wifi_runtime_info.{band}', '{"status": 0}\n')
        wireless = two_bands()
        for number in (0, 1):
            name = f'wwan{number}'
            peers.put_station(self, f'phy{number}-sta0')
            self.uci('set', f'wireless.{name}=wifi-iface')
            self.uci('set', f'wireless.{name}.device=radio{number}')
            self.uci('set', f'wireless.{name}.mode=sta')
            wireless[f'radio{number}']['interfaces'].append({
                'section': name, 'ifname': f'phy{number}-sta0',
                'config': {'mode': 'sta', 'ssid': 'not yet known', 'encryption': 'psk2'}})
        self.uci('commit')
        self.set_wireless(wireless)
        self.interfaces = {'2.4 GHz': 'phy0-sta0', '5 GHz': 'phy1-sta0'}

    def change_interface(self, **values):
        """What netifd says of the network on 2.4 GHz."""
        wireless = two_bands()
        wireless['radio0']['interfaces'][0]['config'].update(values)
        self.set_wireless(wireless)

    def change_radio(self, **values):
        wireless = two_bands()
        wireless['radio0'].update(values)
        self.set_wireless(wireless)

    def change_hostapd(self, name, old, new):
        """A line of the file that hostapd was given."""
        peers.change_file(self, self.hostapd_file(name), old, new)
