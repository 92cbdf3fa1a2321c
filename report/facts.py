# SPDX-License-Identifier: ISC
"""What a line means: a table from the lines of each source to facts that verdicts rest on.

Every pattern stands at the beginning of its text, which the program has written itself. What a
stranger chose, such as the name of a device, comes behind that: it can make no fact.
"""

import json
import re
from dataclasses import dataclass, field

from report.events import BAND_2G, BAND_5G, BAND_NAMES

CODES = (("2g_status", BAND_2G), ("5g_status", BAND_5G))
MAC = r"[0-9a-f]{2}(?::[0-9a-f]{2}){5}|device-\d+"  # or its alias in an anonymous recording


@dataclass(frozen=True)
class Fact:
    """One thing that is known from one event."""

    kind: str
    event: object
    band: str = ""
    data: dict = field(default_factory=dict)
    index: int = 0  # of the event in the log
    second_hand: bool = False  # told by a source where a better one was there

    @property
    def time_s(self):
        return self.event.time_s


# What hostapd and wpa_supplicant say, behind the interface's name or in a line of the daemon's.
WIFI_ROWS = [(kind, re.compile(pattern)) for kind, pattern in (
    ("active", r"WPS-(?:PBC|PIN)-ACTIVE"),
    ("heard", r"WPS-ENROLLEE-SEEN (?P<mac>%s) (?P<uuid>\S+) \S+ \S+ (?P<password>\d+) \d+"
     r"(?: \[(?P<name>.*)\])?" % MAC),
    ("registered", r"WPS-REG-SUCCESS (?P<mac>%s)" % MAC),
    ("registered", r"WPS-REG-SUCCESS()"),
    ("overlap", r"(?:WPS-OVERLAP-DETECTED|WPS: PBC overlap detected: (?P<one>\S+) and (?P<two>\S+)"
     r"|PBC overlap detected)"),
    ("failed", r"WPS-FAIL(?: msg=(?P<message>\d+))?(?: config_error=(?P<number>\d+))?"),
    ("told-error", r"WPS-M2D dev_password_id=\d+ config_error=(?P<number>[1-9]\d*)"),
    ("wifi-timeout", r"WPS-TIMEOUT"),
    ("wifi-cancel", r"WPS-CANCEL"),
    ("wifi-disabled", r"WPS-PBC-DISABLE"),
    ("credential", r"WPS-CRED-RECEIVED"),
    ("wifi-success", r"WPS-SUCCESS"),
    ("found-root", r"WPS-AP-AVAILABLE-PBC"),
    ("new-settings", r"WPS-NEW-AP-SETTINGS"),
    ("pin-locked", r"WPS-AP-SETUP-LOCKED"),
    ("pin-needed", r"WPS-PIN-NEEDED"),
    ("exchange", r"CTRL-EVENT-EAP-STARTED (?P<mac>%s)" % MAC),
    ("exchange", r"CTRL-EVENT-EAP-STARTED EAP authentication started()"),
    ("fell-silent", r"CTRL-EVENT-EAP-TIMEOUT-FAILURE2?(?: (?P<mac>%s))?" % MAC),
    ("exchange-end", r"CTRL-EVENT-EAP-FAILURE2?(?: (?P<mac>%s))?" % MAC),
    ("message", r"WPS: (?:Received|Building Message) (?:WSC_)?(?P<name>M\d|M2D|NACK|ACK|Done)"),
    ("joined", r"EAPOL-4WAY-HS-COMPLETED (?P<mac>%s)" % MAC),
    ("joined", r"AP-STA-CONNECTED (?P<mac>%s)" % MAC),
    ("left", r"AP-STA-DISCONNECTED (?P<mac>%s)" % MAC),
    ("left", r"STA (?P<mac>%s) IEEE 802\.11: (?:deauthenticated|disassociated)" % MAC),
    ("wrong-key", r"AP-STA-POSSIBLE-PSK-MISMATCH (?P<mac>%s)" % MAC),
    ("connected", r"CTRL-EVENT-CONNECTED"),
    ("wifi-down", r"(?:AP-DISABLED|CTRL-EVENT-TERMINATING)"),
    ("wifi-up", r"AP-ENABLED"),
    ("forced-off", r"WPS: ignore_broadcast_ssid configuration forced WPS to be disabled"),
    ("trying", r"(?:SME: )?Trying to (?:authenticate|associate) with"),
)]

# What the daemon says of itself.
OWN_ROWS = [(kind, re.compile(pattern)) for kind, pattern in (
    ("press", r'wps_ubus_gpio_cb:\d+\]: Message: \{(?=.*"type")'),
    ("taken", r"rtk_process_ibus_msg:\d+\]: ibus event: (?P<code>\d+)"),
    ("announced", r"\w+:\d+\]: Prepare to send message: action (?P<action>\d+), status "
     r"(?P<first>\d+) (?P<second>\d+)"),
    ("method-pin", r"\w+:\d+\]: IBUS_WPS_METHOD_PIN"),
    ("daemon-start", r"main:\d+\]: kelm \d"),
    ("daemon-timeout", r"\w+:\d+\]: wps Timeout, stop sessions\[(?P<from>\d+) - (?P<to>\d+)\]"),
    ("ignored", r"\w+:\d+\]: WPS is processing, ignore button press"),
    ("terminated", r"\w+:\d+\]: WPS is processing, close it anyway"),
    ("starting", r"\w+:\d+\]: wps do nothing because of wifi starting"),
    ("link-unknown", r"\w+:\d+\]: Get wlan status failed"),
    ("press-refused", r"\w+:\d+\]: Rebuild worker socket failed"),
    ("no-socket", r"\w+:\d+\]: Can't open event ctrl"),
    ("no-attach", r"\w+:\d+\]: Can't attach event ctrl"),
    ("start-failed", r"main:\d+\]: kelm open failed\."),
    ("start-refused", r"\w+:\d+\]: kelm has been started"),
    ("no-bus", r"\w+:\d+\]: (?:Failed to connect|Lost the connection) to ubus"),
    ("bus-back", r"\w+:\d+\]: Connected to ubus again"),
    ("bad-request", r"\w+:\d+\]: Invalid "
     r"(?:action\.|wps_cli action\.|pin \(|Message \(|wps method)"),
    ("hung", r"kelm_system:\d+\]: (?P<how>killed|left running) after (?P<seconds>\d+) s "
     r"\((?P<why>[\w ]+)\): (?P<command>.*)"),
    ("not-run", r"kelm_system:\d+\]: not run \((?P<why>[\w ]+)\): (?P<command>.*)"),
    ("not-stored", r"\w+:\d+\]: (?P<reason>new settings not stored, skip config_wifi)"),
    ("not-stored", r"\w+:\d+\]: (?P<reason>new settings did not arrive in \S+)"),
    ("not-stored", r"\w+:\d+\]: (?P<reason>(?P<path>\S+) has no key for everybody, not stored)"),
    ("not-stored", r"\w+:\d+\]: \[band \d\] (?P<reason>credential not usable: .*)"),
    ("not-written", r"\w+:\d+\]: (?P<reason>(?P<path>/\S+): not written: .*)"),
    ("estimate", r"get_wps_predict_score:\d+\]: \*+\[WPS predict \d+\] (?P<percent>\d+) percent"),
    ("mirrored", r"\w+:\d+\]: patching wpsCfg\[band (?P<band>\d)\] with rootAP (?P<root>.*)"),
    ("was-connected", r"\w+:\d+\]: (?P<band>\dG) is connected before WPS"),
    ("verdict", r"\w+:\d+\]: All of the worker process finised, now we check the result of "
     r"(?P<mode>Ap|repeater)"),
    ("succeeded", r"\w+:\d+\]: (?P<band>\dg) wps_monitor succeed"),
    ("result", r"kelm_update_wps_result_file:\d+\]: echo (?P<number>-?\d+) > "),
    ("applied", r"\w+:\d+\]: /etc/init\.d/wps config_wifi$"),
    ("reset", r"kelm_set_worker_done:\d+\]: wps session done \[band (?P<band>\d)\]"),
    ("command", r"wps_exec_cmd:\d+\]: (?P<command>.*)"),
)]
_OWN = re.compile(r"kelm\[")
_CARRIED = re.compile(r"kelm\[rtk_process_wpas_msg:\d+\]: (?:processing|Ignore) "
                      r"wpsEvent\[[\d.]+G\d?\]: (?:IFNAME=\S+ )?(?:<\d>)?")
_LEVEL = re.compile(r"(?:(?!WPS: )[A-Za-z][\w.-]{0,31}: )?(?:<\d>)?")

# What the scripts of stock OpenWrt say: why a band cannot be served.
SERVICE_REASONS = {
    "the network is hidden": "hidden", "WPA3 only": "wpa3-only",
    "the network is open": "open-network",
    "the radio is switched off": "band-off", "the network is switched off": "band-off",
    "the radio does not start": "band-off", "radio is still starting": "refused-starting",
    "WPS cannot work with this encryption": "no-wps", "its wps_pushbutton is 0": "no-wps",
    "the network is a Multi-AP backhaul": "no-wps", "kelm is switched off": "no-daemon",
    "kelm is stopped": "no-daemon", "the daemon is not running": "no-daemon",
    "the daemon did not begin": "no-answer", "an attempt runs already": "refused-busy",
    "the daemon ends as soon as it is started": "no-daemon",
    "no access point is chosen": "band-off", "no station for a repeater": "band-off",
    "hostapd does not take the key that is to last": "not-stored"}
_NO_WPS = re.compile(r"(?:hostapd|wpa_supplicant) has no WPS")
_SERVICE_BAND = re.compile(r"(2\.4|5) GHz: ")
_SOCKET = re.compile(r"(hostapd|wpa_supplicant|station) (\S+) (attached|gone|refuses|hung)")
_BROKER = re.compile(r"bus (attached|gone|hung)")
# To one of the router's own Wi-Fi daemons: on the virtual router run those of other devices, too.
_CLI = re.compile(r"(?:\S*/)?(?:hostapd_cli|wpa_cli) "
                  r"(?:-p /(?:var/)?run/(?:hostapd|wpa_supplicant) )?-i \S+ "
                  r"(?:-- )?(?P<verb>wps_\w+)")
CLI_KINDS = {"wps_pbc": "pushes", "wps_pin": "takes-pin", "wps_cancel": "stops"}
_COMMAND = re.compile(r"(?:(?P<run>\d+) )?(?P<line>.*)", re.S)
_EXIT = re.compile(r"(?P<run>\d+) (?P<what>daemon|parent|command) (?P<pid>\d+) "
                   r"(?P<how>status|signal|gone)(?: (?P<number>\d+))?(?: (?P<line>.*))?")


ENDS = {"daemon": "daemon-end", "parent": "daemon-start", "command": "command-end"}


def _wifi(event, text, second_hand=False):
    for kind, pattern in WIFI_ROWS:
        found = pattern.match(text)
        if found:
            yield kind, event.band, found.groupdict(), second_hand
            return


def _of_wifi_daemon(event):
    role = {"role": event.source}
    text = event.text[_LEVEL.match(event.text).end():]
    for kind, band, data, second_hand in _wifi(event, text):
        yield kind, band, {**data, **role}, second_hand


def _of_console(event):
    carried = _CARRIED.match(event.text)
    if carried:
        yield from _wifi(event, event.text[carried.end():], True)
        return
    own = _OWN.match(event.text)
    if not own:
        return
    text = event.text[own.end():]
    for kind, pattern in OWN_ROWS:
        found = pattern.match(text)
        if not found:
            continue
        data = found.groupdict()
        band = BAND_NAMES.get(data.pop("band", None) or "", event.band)
        if kind == "announced":
            yield kind, "", {"action": int(data["action"]), BAND_2G: int(data["first"]),
                             BAND_5G: int(data["second"])}, True
        elif kind == "command":
            for fact in _of_command_line(event, data["command"], ""):
                yield fact[:3] + (True,)
        else:
            yield kind, band, data, kind in ("press", "daemon-start")
        return


def _small(value):
    return value if isinstance(value, int) and not isinstance(value, bool) and 0 <= value < 256 \
        else None


def _of_bus(event):
    try:
        (name, members), = json.loads(event.text).items()
    except (ValueError, AttributeError, TypeError, RecursionError):
        return
    if not isinstance(members, dict):
        return
    if name == "gpio" and "type" in members:
        yield "press", "", {"by": "button"}, False
    elif name == "wps_cli":
        asked = {1: {1: "asked", 2: "asked-pin"}.get(_small(members.get("method"))),
                 2: "asked-cancel"}.get(_small(members.get("action")))
        if asked:
            yield asked, "", {}, False
    elif name == "wps":
        data = {band: _small(members.get(key)) for key, band in CODES}
        if _small(members.get("action")) in (1, 2):
            data["action"] = members["action"]
            yield "announced", "", data, False


def _of_command_line(event, line, run):
    data = {"run": run, "command": line}
    asked = _CLI.match(line)
    if asked:
        kind = CLI_KINDS.get(asked.group("verb"), "command")
    elif line.startswith("/etc/init.d/wps ") or line.startswith("/etc/init.d/wifi "):
        kind = "script"
    else:
        kind = "command"
    yield kind, event.band, data, False


def _of_command(event):
    found = _COMMAND.match(event.text)
    yield from _of_command_line(event, found.group("line"), found.group("run") or "")


def _of_exit(event):
    found = _EXIT.match(event.text)
    if not found:
        return
    data = found.groupdict()
    data["number"] = int(data["number"]) if data["number"] and len(data["number"]) < 6 else None
    data["command"] = data.pop("line") or ""
    yield ENDS[data["what"]], event.band, data, False


def _of_start(event):
    found = re.match(r"(?P<run>\d+) daemon \d+", event.text)
    if found:
        yield "daemon-start", "", found.groupdict(), False


def _of_button(event):
    if re.match(r"\S+ pressed", event.text):
        yield "press", "", {"by": "button"}, False


def _of_service(event):
    text = event.text.removeprefix("kelm: ")
    if text == "the radio was set up anew: the attempt is over":
        yield "radio-anew", "", {}, False
        return
    outcome = re.match(r"([25]g) WPS succeeded\.", text)
    if outcome:
        yield "succeeded", BAND_NAMES[outcome.group(1)], {}, False
        return
    # Further behind a line may quote a network's name.
    if re.match(r"(?:(?:2\.4|5) GHz|\S+ could not be written): nothing is stored", text):
        band = _SERVICE_BAND.match(text)
        yield "not-stored", band.group(1) + " GHz" if band else "", {"reason": text}, False
        return
    refused = text.startswith("no WPS: ")
    text = text.removeprefix("no WPS: ")
    if text.startswith("ready on "):
        # Behind the bands that are ready stand those that are not.
        ready, _, text = text.partition("; ")
        yield "ready", "", {"bands": [band for band in (BAND_2G, BAND_5G) if band in
                                      ready.replace("2.4 GHz", BAND_2G)]}, False
    if refused:
        yield "service-refuses", "", {"text": text}, False
    for part in text.split("; "):
        found = _SERVICE_BAND.match(part)
        reason = part[found.end():] if found else part
        cause = "no-wps" if _NO_WPS.match(reason) else SERVICE_REASONS.get(reason)
        if found and not cause:
            return  # no list of bands and reasons
        if cause:
            yield "unserved", (found.group(1) + " GHz") if found else "", \
                {"cause": cause, "reason": reason, "refused": refused}, False


def _of_file(event):
    found = re.match(r"/tmp/wps_result (-?\d+)", event.text)
    if found:
        yield "result", "", {"number": found.group(1)}, False
    if re.match(r"/tmp/wps_wifi_sta\.txt \d+ \d+ bytes: .*ssid", event.text):
        yield "stored", "", {}, False
    found = re.match(r"/tmp/kelm\.info (\{.*\})", event.text)
    if not found:
        return
    try:
        info = json.loads(found.group(1))
    except (ValueError, RecursionError):
        return
    if isinstance(info, dict):
        for key, band in (("wl0_wps_", BAND_2G), ("wl1_wps_", BAND_5G)):
            status = info.get(key + "status")
            if isinstance(status, str):
                yield "info", band, {"status": status, "mac": info.get(key + "sta_mac"),
                                     "action": info.get("wps_action")}, False


def _of_socket(event):
    broker = _BROKER.match(event.text)
    if broker:
        yield "broker-" + broker.group(1), "", {}, False
    found = _SOCKET.match(event.text)
    if found:
        daemon, iface, state = found.groups()
        band = event.band or BAND_NAMES.get(iface, "")
        yield "socket-" + state, band, {"iface": iface, "of_stations": daemon != "hostapd"}, False


def _of_settings(event):
    found = re.match(r"(2\.4|5|6) GHz: (.*)", event.text)
    if found:
        yield "settings", found.group(1) + " GHz", \
            {"words": [word.strip() for word in found.group(2).split(",")]}, False


def _of_watch(event):
    if "the limit of" in event.text or "events lost" in event.text:
        yield "incomplete", "", {}, False
    elif event.text.startswith("stopped"):
        yield "watch-stopped", "", {}, False


def _of_client(event):
    text = event.text[_LEVEL.match(event.text).end():]
    data = {"lane": event.source}
    if text.startswith(("WPS-PBC-ACTIVE", "WPS-PIN-ACTIVE")):
        yield "client-pushed", event.band, data, False
    elif text.startswith(("WPS-CRED-RECEIVED", "WPS-SUCCESS", "WPS-AP-PIN-SUCCESS")):
        yield "client-done", event.band, data, False
    elif text.startswith("CTRL-EVENT-SSID-TEMP-DISABLED ") and text.endswith("reason=WRONG_KEY"):
        yield "client-wrong-key", event.band, data, False
    elif text.startswith("CTRL-EVENT-CONNECTED"):
        yield "client-connected", event.band, data, False
    elif text.startswith("CTRL-EVENT-NETWORK-NOT-FOUND"):
        yield "client-finds-none", event.band, data, False


def _of_boot(event):
    if event.text == "the clock begins anew":
        yield "boot", "", {}, False


READERS = {"hostapd": _of_wifi_daemon, "station": _of_wifi_daemon, "console": _of_console,
           "bus": _of_bus, "command": _of_command, "script": _of_command, "exit": _of_exit,
           "start": _of_start, "button": _of_button, "log": _of_service, "file": _of_file,
           "socket": _of_socket, "settings": _of_settings, "watch": _of_watch, "boot": _of_boot}
_CLIENT = re.compile(r"client\d")
OPENED = re.compile(r"WPS-(?:PBC|PIN)-ACTIVE")
# What two sources tell is taken from the better one; a console tells it late, or not at all.
SAME = {"pushes": "command", "takes-pin": "command", "stops": "command", "script": "command"}


def of_each(events):
    """What each of these lines means by itself."""
    for index, event in enumerate(events):
        is_client = _CLIENT.fullmatch(event.source)
        reader = _of_client if is_client else READERS.get(event.source)
        for kind, band, data, second_hand in (reader(event) if reader else ()):
            yield Fact(kind, event, band, data, index, second_hand)


def is_carried(fact):
    """Whether the daemon tells here what a Wi-Fi daemon has told it."""
    return fact.event.source == "console" and _CARRIED.match(fact.event.text) is not None


def _better_sources(found):
    """What some source tells at first hand: kinds, and of the Wi-Fi daemons' words the bands."""
    kinds, bands = set(), set()
    for fact in found:
        if fact.second_hand:
            continue
        if fact.event.source in ("hostapd", "station"):
            bands.add(fact.band)
        else:
            kinds.add(SAME.get(fact.kind, fact.kind))
    return kinds, bands


def facts(log):
    """All facts of a log in its order; second_hand where the same is told at first hand, too."""
    found = list(of_each(log.events))
    kinds, bands = _better_sources(found)
    result = []
    for fact in found:
        second = False
        if fact.second_hand:
            second = fact.band in bands if is_carried(fact) \
                else SAME.get(fact.kind, fact.kind) in kinds
        result.append(Fact(fact.kind, fact.event, fact.band, fact.data, fact.index, second))
    return result
