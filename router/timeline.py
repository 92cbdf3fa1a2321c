# SPDX-License-Identifier: ISC
"""The words for what happens in the virtual router, and the lines that a person follows it by."""

import json
import re
import time

from router.screen import REMINDER_S, NoSteps, Screen, Steps

BANDS = {"wlan1": "2.4 GHz", "wlan0": "5 GHz", "wlan1-vxd": "2.4 GHz", "wlan0-vxd": "5 GHz",
         "phy0-ap0": "2.4 GHz", "phy0-ap1": "guests", "phy1-ap0": "5 GHz",
         "phy0-sta0": "2.4 GHz", "phy1-sta0": "5 GHz",
         "2g": "2.4 GHz", "5g": "5 GHz", "6g": "6 GHz",
         "0": "2.4 GHz", "1": "5 GHz", "3": "6 GHz"}
STATUS_TEXTS = {0: "idle", 1: "cancelled", 2: "success", 3: "error", 4: "time-out",
                8: "overlap", 11: "in progress", 12: "silent"}
STARTED, STOPPED = 1, 2
IDLE, SILENT = 0, 12

# Who does something, and the colour that tells it. Clients and roots have names of their own.
ACTORS = {"kelm": "cyan", "hostapd": "blue", "station": "yellow", "client": "yellow",
          "root": "magenta", "script": "green", "procd": "green", "netifd": "green",
          "button": "bold", "web page": "bold", "demo": "dim"}
VERDICTS = {True: ("PASS", "green"), False: ("FAIL", "red")}

# The scenarios' own notes that are read again: by the sentence at the end.
CLOCK_MOVED = "moves the router's clock forward by %d seconds"
RESTARTED = "the owner runs `wifi`: all radios are set up anew"
CUT = "the router's power is cut, and comes back"

# Which lines of which source are worth telling, and how: (source, pattern, who, text). Groups of
# the pattern fill the text; a group named "iface" becomes the band.
ROWS = [
    ("hostapd", r"^(?P<iface>\S+): AP-ENABLED", "hostapd", "access point is on the air"),
    ("hostapd", r"^(?P<iface>\S+): AP-DISABLED", "hostapd", "access point is off the air"),
    ("hostapd", r"^(?P<iface>\S+): WPS-PBC-ACTIVE", "hostapd", "waits for a client's push"),
    ("hostapd", r"^(?P<iface>\S+): WPS-PIN-ACTIVE", "hostapd", "waits for a client with the PIN"),
    ("hostapd", r"^(?P<iface>\S+): WPS-REG-SUCCESS (\S+)", "hostapd",
     "client {0} has received the key"),
    ("hostapd", r"^(?P<iface>\S+): WPS-OVERLAP-DETECTED", "hostapd",
     "more than one client pushes: overlap"),
    ("hostapd", r"^(?P<iface>\S+): WPS-TIMEOUT", "hostapd", "stops waiting for clients"),
    ("hostapd", r"^(?P<iface>\S+): WPS-NEW-AP-SETTINGS", "hostapd",
     "the access point has new settings"),
    ("hostapd", r"^(?P<iface>\S+): EAPOL-4WAY-HS-COMPLETED (\S+)", "hostapd",
     "client {0} proved that it has the key (4-way handshake)"),
    ("root", r"^root\d-(?P<iface>\w+): AP-ENABLED", "", "is on the air"),
    ("root", r"^root\d-(?P<iface>\w+): WPS-PBC-ACTIVE", "", "waits for a client's push"),
    ("root", r"^root\d-(?P<iface>\w+): WPS-REG-SUCCESS (\S+)", "", "has enrolled {0}"),
    ("root", r"^root\d-(?P<iface>\w+): EAPOL-4WAY-HS-COMPLETED (\S+)", "",
     "{0} proved that it has the key (4-way handshake)"),
    ("station", r"^(?P<iface>\S+): WPS-PBC-ACTIVE", "station", "looks for a pushed root"),
    ("station", r"^(?P<iface>\S+): WPS-AP-AVAILABLE-PBC", "station", "has found a pushed root"),
    ("station", r"^(?P<iface>\S+): WPS-CRED-RECEIVED", "station",
     "has received the network's settings"),
    ("station", r"^(?P<iface>\S+): WPS-SUCCESS", "station", "is done with the exchange"),
    ("station", r"^(?P<iface>\S+): WPS-OVERLAP-DETECTED", "station", "sees an overlap"),
    ("station", r"^(?P<iface>\S+): WPS-TIMEOUT", "station", "found no root in time"),
    ("station", r"^(?P<iface>\S+): WPS-FAIL (.*)$", "station", "fails: {0}"),
    ("station", r"^(?P<iface>\S+): CTRL-EVENT-CONNECTED - Connection to (\S+)", "station",
     "is connected to {0}"),
    ("station", r"^(?P<iface>\S+): CTRL-EVENT-DISCONNECTED bssid=(\S+)", "station",
     "is off the network"),
    ("client", r": WPS-PBC-ACTIVE", "", "has been pushed; looks for the router"),
    ("client", r": WPS-PIN-ACTIVE", "", "has its PIN; looks for the router"),
    ("client", r": WPS-CRED-RECEIVED", "", "has received the network's settings"),
    ("client", r": WPS-OVERLAP-DETECTED", "", "sees an overlap and gives up"),
    ("client", r": WPS-AP-PIN-SUCCESS|: WPS-SUCCESS", "", "is done with the exchange"),
    ("client", r": WPS-TIMEOUT", "", "found no router in time"),
    ("client", r": CTRL-EVENT-CONNECTED - Connection to (\S+)", "", "is connected to {0}"),
    ("client", r": CTRL-EVENT-SSID-TEMP-DISABLED .*reason=WRONG_KEY", "",
     "is told that its key is wrong"),
    ("client", r": CTRL-EVENT-DISCONNECTED bssid=(\S+)", "", "is off the network"),
    ("command", r"-i (?P<iface>\S+) wps_pbc$", "kelm", "starts the push-button method"),
    ("command", r"-i (?P<iface>\S+) wps_pin any (\S+)", "kelm", "starts the PIN method ({0})"),
    ("command", r"-i (?P<iface>\S+) wps_cancel", "kelm", "stops the attempt"),
    ("command", r"-i (?P<iface>\S+) wps_ap_pin set (\S+)", "kelm",
     "lets external registrars in with PIN {0}"),
    ("command", r"-i (?P<iface>\S+) wps_ap_pin disable", "kelm",
     "lets no external registrar in"),
    ("script", r"^[1-9]\d* /etc/init.d/wps config_wifi", "script", "stores the learnt settings"),
    ("script", r"^[1-9]\d* /etc/init.d/wps mesh_config_wifi", "script",
     "stores the learnt mesh settings"),
    ("script", r"^[1-9]\d* /usr/bin/wifi scan (?P<iface>\S+)", "script", "scans"),
    ("script", r"^[1-9]\d* /usr/bin/wifi getscanresult (?P<iface>\S+)", "script",
     "lists what was heard"),
    ("script", r"^[1-9]\d* /etc/init.d/wps re_kelm_info", "script", "tells the result once more"),
    ("script", r"^[1-9]\d* /etc/init.d/wps restart", "script",
     "restarts the service for the next attempt"),
    ("script", r"^[1-9]\d* /etc/init.d/wifi (\S+)", "script",
     "restarts the wireless with the new settings ({0})"),
    ("button", r"^wps pressed", "button", "the WPS button goes down"),
    ("button", r"^wps released (\d+)", "button", "the WPS button comes up, after {0} s"),
    ("button", r"^wps: the handler answers ([1-9]\d*)", "procd",
     "looks at the button again in {0} s"),
    ("script", r"^netifd: (\S+) is on the air as (?P<iface>\S+)", "netifd", "has set up {0}"),
    ("script", r"^start-up: (the router has booted)", "procd", "{0}"),
    ("exit", r"^(\d+) daemon (\d+) status (\d+)", "kelm", "run {0} (process {1}) ends, status {2}"),
    ("exit", r"^(\d+) daemon (\d+) signal (\d+)", "kelm",
     "run {0} (process {1}) is killed by signal {2}"),
    ("console", r"kelm\[[^]]*\]: wps Timeout", "kelm", "gives up after 125 seconds"),
    ("console", r"WPS predict \d+\] (\d+) percent", "kelm", "estimates the chance: {0} percent"),
    ("console", r"kelm\[[^]]*\]: patching wpsCfg\[band (?P<iface>\d)\] with rootAP (.*)$", "kelm",
     "mirrors the credentials to this band, root \"{0}\""),
    ("console", r"kelm\[[^]]*\]: WPS is processing, ignore", "kelm",
     "ignores the press: an attempt is running"),
    ("console", r"kelm\[[^]]*\]: WPS is processing, close", "kelm",
     "is asked to end and breaks the attempt off"),
    ("console", r"kelm\[[^]]*\]: (Failed to connect to ubus)", "kelm", "says: {0}"),
    ("console", r"kelm\[[^]]*\]: (Can't open event ctrl|worker socket init failed|kelm open "
     r"failed\.|Rebuild worker socket failed\.)", "kelm", "says: {0}"),
    ("demo", r"^(.*)$", "demo", "{0}"),
]


# So long after a press a request is the button's.
BY_BUTTON_S = 15

# Where the daemon has no console, its lines are in the system's log.
SAME_SOURCE = {"log": "console"}


def bus_line(text):
    """Turns a line of `ubus listen` into (who, text); None when it says nothing new."""
    try:
        (name, members), = json.loads(text).items()
    except ValueError:
        return None
    if name == "gpio":
        return "button", "the WPS button is pressed"
    if name == "wps_cli":
        verb = {1: "start", 2: "cancel"}.get(members.get("action"), "?")
        method = {1: "push-button", 2: "PIN"}.get(members.get("method"), "")
        return "web page", ("asks: %s %s" % (verb, method)).rstrip()
    if name != "wps":
        return None
    codes = [members.get(key) for key in ("2g_status", "5g_status")]
    return "kelm", "announces: " + announcement(members.get("action"), codes)


def announcement(action, codes):
    """What an announced state means; an attempt has two ends, its stop and then its result."""
    if action == STOPPED and set(codes) - {IDLE} == {SILENT}:
        return "the attempt has been stopped"
    if set(codes) == {IDLE}:
        return "no attempt is running"
    stage = {STARTED: "the attempt has started", STOPPED: "the result"}.get(action, str(action))
    bands = ", ".join("%s %s" % (label, STATUS_TEXTS.get(code, code))
                      for label, code in zip(("2.4 GHz", "5 GHz"), codes))
    return "%s (%s)" % (stage, bands)


def describe(event, client_names):
    """Returns (band, who, text) for an event worth telling, else None."""
    if event.source == "bus":
        found = bus_line(event.text)
        return ("",) + found if found else None
    source, name = SAME_SOURCE.get(event.source, event.source), None
    for kind in ("client", "root"):
        if re.fullmatch(kind + r"\d", source):
            name = client_names.get(source, source)
            source = kind
    for row_source, pattern, who, text in ROWS:
        if row_source != source:
            continue
        found = re.search(pattern, event.text)
        if not found:
            continue
        named = found.groupdict()
        groups = list(found.groups())
        if "iface" in named:
            groups.remove(named["iface"])
        band = BANDS.get(named.get("iface"), "")
        return band, name or who, text.format(*groups)
    return None


def actor_of(source, who):
    """The row of ACTORS for a line that `who` says."""
    kind = re.match(r"client|root", source)
    return kind.group(0) if kind else who


class Timeline:
    """Prints events as they come; while nothing comes, says what is being waited for."""

    def __init__(self, out=None, environ=None, verbose=False):
        self.screen = Screen(out, environ)
        self.verbose = verbose
        self._zero = None
        self._last_line = None
        self._dots = 0
        self._pressed_s = None
        self.client_names = {}

    def steps(self, count):
        return Steps(self.screen, count)

    def zero_at(self, time_s):
        """Times are told from here on, in seconds since this moment of the guest's clock."""
        self._zero = time_s

    def on_event(self, event):
        told = describe(event, self.client_names)
        if told is None:
            return
        band, who, text = told
        who = self._who_asks(event, who)
        line = (who, band, text)
        with self.screen.lock:
            # hostapd says some things once for itself and once for the control interface.
            if line == self._last_line and who != "button":
                return
            self._last_line = line
            actor = self.screen.paint(ACTORS.get(actor_of(event.source, who)), "%-9s" % who)
            self.screen.line("%s  %s %-8s %s" % (self._stamp(event.time_s), actor, band, text))

    def _who_asks(self, event, who):
        """The stock router's button asks by a script, as a web page would."""
        if event.source == "button":
            self._pressed_s = event.time_s
        asks = who == "web page" and self._pressed_s is not None
        return "script" if asks and event.time_s - self._pressed_s < BY_BUTTON_S else who

    def heading(self, text):
        self.screen.line("\n" + self.screen.paint("bold", text))

    def text(self, text=""):
        self.screen.line(text)

    def verdict(self, good, text):
        """A statement with its verdict before it."""
        word, colour = VERDICTS[good]
        self.screen.line("  %s  %s" % (self.screen.paint(colour, word), text))

    def last_line(self, good, text):
        """The outcome; on a terminal it is the line that stands out."""
        self.screen.line(self.screen.paint("bold" if good else "red", text))

    def waiting(self, what, time_s, left_s):
        """Called again and again while a scenario waits; left_s: how long it will at most."""
        text = "%s  ... waiting for %s (up to %.0f s more)" % (
            self._stamp(time_s), what, max(left_s, 0))
        with self.screen.lock:
            self._dots = self._dots % 3 + 1
            self.screen.rewrite(text + "." * self._dots)
            if (not self.screen.rewrites
                    and time.monotonic() - self.screen.last_line_s >= REMINDER_S):
                self.screen.line(text)

    def _stamp(self, time_s):
        if self._zero is None:
            return "%9s" % ""
        return "%7.2f s" % (time_s - self._zero)


class Silence:
    """A timeline for runs that nobody watches."""

    def __init__(self):
        self.client_names = {}

    def steps(self, _count):
        return NoSteps()

    def zero_at(self, time_s):
        pass

    def on_event(self, event):
        pass

    def heading(self, text):
        pass

    def text(self, text=""):
        pass

    def waiting(self, what, time_s, left_s):
        pass
