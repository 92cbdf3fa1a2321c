# SPDX-License-Identifier: ISC
"""The repeater's side of a scene: the router in repeater mode, and root access points to join."""

import re

from router.machine import MachineError
from router.scene import DEVICE_RADIOS, INTERFACES
from router.timeline import BANDS

STATIONS = {"2g": "wlan1-vxd", "5g": "wlan0-vxd"}
STATION_FILES = dict(STATIONS, **{"6g": "-vxd"})
PACKAGES = {"2g": "wifi2G_Cfg", "5g": "wifi5G_Cfg"}
NETWORKS = {"2g": "10.0.2", "5g": "10.0.5"}
MAC_ENDS = {"2g": 0x50, "5g": 0x51}
OLD_ROOT = {"rootApSsid": "Old Oak", "security": "wpa2", "password": "felled long ago"}
ROOT_UUIDS = ["5f1d8a50-9c1e-5d2b-8a40-02ab5e1e1001", "5f1d8a50-9c1e-5d2b-8a40-02ab5e1e1002"]
RADIO_LINES = {"2g": ["hw_mode=g", "channel=1"], "5g": ["hw_mode=a", "channel=36"]}
SECURITY_LINES = {
    "none": [],
    "wpa2": ["wpa=2", "wpa_key_mgmt=WPA-PSK", "rsn_pairwise=CCMP"],
    "psk_sae": ["wpa=2", "wpa_key_mgmt=WPA-PSK SAE", "rsn_pairwise=CCMP", "ieee80211w=1"],
}


class RootBand:
    """One radio of a root access point: what hostapd's file says of it."""

    def __init__(self, band, ssid, key=None, security="wpa2", more=()):
        self.band = band
        self.ssid = ssid
        self.key = key
        self.security = security if key else "none"
        self.more = list(more)


class Root:
    """A root access point of the guest: a real hostapd with radios and a network of its own."""

    def __init__(self, scene, number, bands, first_radio):
        self._scene = scene
        self.number = number
        self.source = "root%d" % number
        self.bands = {row.band: row for row in bands}
        self._first_radio = first_radio

    def interface(self, band):
        return "root%d-%s" % (self.number, band)

    def mac(self, band):
        """Its radios' addresses are neighbours, as those of one device are."""
        return "02:11:22:33:%02x:%02x" % (0x44 + 16 * self.number, MAC_ENDS[band])

    def address(self, band):
        return "%s.%d" % (NETWORKS[band], 1 + self.number)

    def start(self):
        folder = "/run/root%d" % self.number
        parts = []
        for index, (band, row) in enumerate(self.bands.items()):
            lines = self._hostapd_lines(band, row)
            self._scene.write("%s/%s.conf" % (folder, self.interface(band)), lines)
            parts.append("%d:%s:%s/%s" % (self._first_radio + index, self.interface(band),
                                          self.mac(band), self.address(band)))
        self._scene.must_run("/usr/lib/router/root start %d %s" % (self.number, " ".join(parts)))

    def _hostapd_lines(self, band, row):
        lines = ["interface=" + self.interface(band), "driver=nl80211", "auth_algs=1",
                 "ctrl_interface=/run/root%d/ctrl" % self.number, "country_code=US",
                 "ssid=" + row.ssid, "wps_state=2", "eap_server=1", "wps_independent=1",
                 "uuid=" + ROOT_UUIDS[self.number], "device_name=Root", "manufacturer=Elm Works",
                 "model_name=root", "model_number=1", "serial_number=1",
                 "device_type=6-0050F204-1", "config_methods=virtual_push_button"]
        lines += RADIO_LINES[band] + SECURITY_LINES[row.security] + row.more
        return lines + (["wpa_passphrase=" + row.key] if row.key else [])

    def cli(self, band, arguments):
        return self._scene.must_run("/usr/lib/router/root cli %d %s %s"
                                    % (self.number, self.interface(band), arguments)).strip()

    def rename(self, band, ssid):
        self.bands[band].ssid = ssid
        self._ask(band, "set ssid '%s'" % ssid)
        self._ask(band, "reload")

    def press(self, *bands):
        """Its button, for the bands that it is to enrol on."""
        for band in bands:
            self._ask(band, "wps_pbc")

    def cancel(self, *bands):
        for band in bands:
            self._ask(band, "wps_cancel")

    def _ask(self, band, request):
        if self.cli(band, request).splitlines()[-1:] != ["OK"]:
            raise MachineError("the root access point refused %s on %s" % (request, BANDS[band]))


class Repeater:
    """The router in repeater mode, as one scenario sees it."""

    def __init__(self, scene, device_radios=DEVICE_RADIOS):
        self.scene = scene
        self._roots = []
        self._device_radios = self._radios = device_radios

    def set_band(self, band, section, **options):
        for name, value in options.items():
            self.scene.set_setting(PACKAGES[band], section, name, value)

    def start(self, known=None):
        """Boots the services to where the daemon waits; `known` are the roots it knew before."""
        self.scene.set_setting("wpsCfg", "settings", "mode", "0")
        for band in STATIONS:
            root = (known or {}).get(band, OLD_ROOT)
            self.set_band(band, "settings1", staBssEnabled="on", **root)
        self.scene.start_broker()
        self.scene.must_run("/etc/init.d/wifi start")
        self.scene.must_run("/etc/init.d/wps start")
        self.wait_daemon_ready(1)

    def wait_daemon_ready(self, run):
        """Waits until a run of the daemon listens to both stations' supplicants."""
        self.scene.expect_count("script", "/etc/init.d/wps (re)?start$", run, "the daemon's start")
        start = self.scene.nth_index("script", "/etc/init.d/wps (re)?start$", run)
        self.scene.expect_count("console", "eventCtrl open success", self._device_radios,
                                "the daemon's event sockets", since=start)

    def add_root(self, *bands):
        root = Root(self.scene, len(self._roots), bands, self._radios)
        self._roots.append(root)
        self._radios += len(bands)
        root.start()
        return root

    # What the router has and does.

    def status(self, band):
        _, output = self.scene.run("wpa_cli -p /var/run/wpa_supplicant -i %s status"
                                   % STATIONS[band])
        return dict(line.split("=", 1) for line in output.splitlines() if "=" in line)

    def wait_released(self, band, root):
        """Waits until the band's station has heard that a root is pressed no longer."""
        def probe():
            _, output = self.scene.run("wpa_cli -p /var/run/wpa_supplicant -i %s scan_results"
                                       % STATIONS[band])
            seen = [line for line in output.splitlines()
                    if line.startswith(root.mac(band)) and "[WPS-PBC]" in line]
            return not seen, seen
        good, seen = self.scene.settles(probe)
        if not good:
            raise MachineError("the %s station still sees a pushed root" % BANDS[band],
                               "\n".join(seen))

    def file(self, band):
        return self.scene.read("/tmp/run/wpa_supplicant-%s.conf" % STATION_FILES[band]) or ""

    def blocks(self, band):
        """The network blocks of the supplicant's file, each a table of its settings."""
        tables = []
        for block in re.findall(r"network=\{(.*?)\n\}", self.file(band), re.S):
            pairs = (line.strip().split("=", 1) for line in block.splitlines() if "=" in line)
            tables.append(dict(pairs))
        return tables

    def stored(self, band, section, *options):
        return tuple(self.scene.setting(PACKAGES[band], section, option) for option in options)

    def learnt(self, name="wps_wifi_sta"):
        """A credential file of the daemon; an empty table when there is none."""
        return self.scene.read_json("/tmp/%s.txt" % name) or {}

    def scores(self):
        """The estimates that the daemon logged, in percent, in order."""
        lines = self.scene.texts("console", r"\[WPS predict \d+\] -?\d+ percent")
        return [int(re.search(r"\] (-?\d+) percent", line).group(1)) for line in lines]

    def ping(self, band, root):
        """A station's way up: an echo from the root over the air."""
        number = {"2g": 101, "5g": 102}[band]
        status, output = self.scene.run(
            "ip addr replace %s.%d/24 dev %s; ping -c 1 -W 2 -I %s %s"
            % (NETWORKS[band], number, STATIONS[band], STATIONS[band], root.address(band)))
        found = re.search(r"\d+ packets transmitted, \d+ packets received", output)
        return status == 0, found.group(0) if found else output.strip()

    # Checks.

    def check_connected(self, band, root):
        """After the restart the station is on the root, by the stored settings alone."""
        row = root.bands[band]

        def probe():
            status = self.status(band)
            seen = {name: status.get(name) for name in ("wpa_state", "ssid", "bssid")}
            return seen == {"wpa_state": "COMPLETED", "ssid": row.ssid,
                            "bssid": root.mac(band)}, seen
        good, seen = self.scene.settles(probe)
        self.scene.check("the %s station is connected to \"%s\"" % (BANDS[band], row.ssid), good,
                         seen)
        good, seen = self.scene.settles(lambda: self.ping(band, root), 20)
        self.scene.check("a ping over %s gets through to the root" % BANDS[band], good, seen)

    def check_not_connected(self, band):
        state = self.status(band).get("wpa_state")
        self.scene.check("the %s station is not connected" % BANDS[band],
                         state not in (None, "COMPLETED"), state)

    def check_station(self, band, ssid, security, key, name="wps_wifi_sta"):
        learnt = self.learnt(name)
        self.scene.check_equal(
            "/tmp/%s.txt holds the root's credentials for %s" % (name, BANDS[band]),
            tuple(learnt.get(key + "_" + band)
                  for key in ("enable", "ssid", "security", "password")),
            ("on", ssid, security, key))

    def check_extender(self, band, ssid, name="wps_wifi_ap"):
        learnt = self.learnt(name)
        self.scene.check_equal(
            "/tmp/%s.txt has the %s access point follow as \"%s\"" % (name, BANDS[band], ssid),
            tuple(learnt.get(key + "_" + band) for key in ("enable", "ssid", "sec_follow")),
            ("on", ssid, "true"))

    def check_untouched(self, *bands):
        """Nothing is written for these bands in any credential file."""
        for name in ("wps_wifi_sta", "wps_wifi_ap", "_wps_wifi_sta", "_wps_wifi_ap"):
            learnt = self.learnt(name)
            seen = sorted(key for key in learnt if key.split("_")[-1] in bands)
            self.scene.check_equal("/tmp/%s.txt has nothing for %s"
                                   % (name, " and ".join(BANDS[band] for band in bands)), seen, [])

    def check_access_point(self, band, ssid):
        """The access point that hostapd really serves."""
        def probe():
            _, output = self.scene.run("hostapd_cli -p /var/run/hostapd -i %s status"
                                       % INTERFACES[band])
            fields = dict(line.split("=", 1) for line in output.splitlines() if "=" in line)
            seen = (fields.get("state"), fields.get("ssid[0]"))
            return seen == ("ENABLED", ssid), seen
        good, seen = self.scene.settles(probe, 30)
        self.scene.check("the %s access point serves \"%s\"" % (BANDS[band], ssid), good, seen)
