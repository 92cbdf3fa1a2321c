# SPDX-License-Identifier: ISC
"""A router with a maker's firmware on which WPS can work, files as docs/interfaces.md has them."""
import peers
from stock import BUILD, Router, put_file, put_package

HOSTAPD_CONF = """interface={name}
ctrl_interface=/var/run/hostapd
ssid=Elm House
wpa=2
wpa_key_mgmt=WPA-PSK
wpa_pairwise=CCMP
rsn_pairwise=CCMP
wpa_passphrase=seven green elms
wps_state=2
eap_server=1
uuid=12345678-9abc-4ef0-8234-56789abcdef0
config_methods=push_button
"""
WPS_CONF = """# Wi-Fi Protected Setup
enabled=1
apWpsAvailable=3
staWpsAvailable=3
pinEnabled=on
pinCode=12345670
"""
WIFI_CONF = """# The first block is not read.
madeBy=settings

apBssEnabledApMode_2g=on
apBssEnabledApMode_5g=on
apBssEnabled_2g=on
apBssEnabled_5g=on
wlanSecType_2g=1
wlanSecType_5g=1

staBssEnabled_2g=on
staBssEnabled_5g=on
"""
SUPPLICANT_CONF = 'ctrl_interface=/var/run/wpa_supplicant\nupdate_config=1\n'

INTERFACES = {'2.4 GHz': 'wlan1', '5 GHz': 'wlan0'}


class MakerFace(Router):
    """Both bands are served, as access points; be_repeater() makes them stations."""

    face = 'maker'
    interfaces = INTERFACES

    def __init__(self):
        super().__init__()
        put_package('kelm-doctor')
        put_file(f'{BUILD}/hostlibs/ubus', '/bin/ubus', 0o755)
        put_file(f'{BUILD}/hostlibs/ubusd', '/sbin/ubusd', 0o755)
        peers.put_programs(self)
        self.write('/tmp/device_runtime.info', '{ "mode": 1 }\n')
        self.write('/tmp/device.info', '{ "RFBand": 2 }\n')
        self.write('/tmp/wps.conf', WPS_CONF, 0o600)
        self.write('/tmp/wifi.conf', WIFI_CONF)
        for name in INTERFACES.values():
            peers.put_access_point(self, name)
            self.write(self.hostapd_file(name), HOSTAPD_CONF.format(name=name), 0o600)

    @staticmethod
    def hostapd_file(name):
        return f'/tmp/run/hostapd-{name}.conf'

    def be_repeater(self):
        self.write('/tmp/device_runtime.info', '{ "mode": 0 }\n')
        for band, name in (('2g', 'wlan1-vxd'), ('5g', 'wlan0-vxd')):
            peers.put_station(self, name)
            self.write(f'/tmp/run/wpa_supplicant-{name}.conf', SUPPLICANT_CONF, 0o600)
            self.write(f'/tmp/wifi_runtime_info.{band}', '{ "status": 0 }\n')
        self.interfaces = {band: f'{name}-vxd' for band, name in INTERFACES.items()}

    def change_hostapd(self, name, old, new):
        """A line of the file that hostapd was given."""
        peers.change_file(self, self.hostapd_file(name), old, new)
