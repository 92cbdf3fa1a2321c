# SPDX-License-Identifier: ISC
"""The rows of the table of diagnoses, each by the fewest lines of a recording that show it."""

import pytest
import recorded

from report.attempts import attempts, without_attempt
from report.causes import BY_ID, CAUSES, CONFIG_ERRORS, MESSAGES
from report.readers import read

CLI = "1 hostapd_cli -p /var/run/hostapd -i "
WPA = "1 wpa_cli -p /var/run/wpa_supplicant -i "
MAC, OTHER = "02:00:00:00:02:00", "02:00:00:00:03:00"
SEEN = "WPS-ENROLLEE-SEEN %s %s 10-0050F204-5 0x2388 %d 1 [%s]"
UUID = "a134bcd4-edf6-548b-87e5-49d3aedf9b60"


def bus_wps(action, first, second):
    return '{ "wps": {"action":%d,"2g_status":%d,"5g_status":%d,"5g2_status":0} }' % (
        action, first, second)


def own(text, function="f:1"):
    return ("console", "kelm[%s]: %s" % (function, text))


def wifi(text, iface="wlan1"):
    return ("station" if iface.endswith("vxd") else "hostapd", "%s: %s" % (iface, text))


def seen(mac, uuid=UUID, password=4, name="phone", iface="wlan1"):
    return wifi(SEEN % (mac, uuid, password, name), iface)


# A line is (source, text), or (seconds, source, text); else each comes a tenth of a second later.
DAEMON = [("start", "1 daemon 283"), ("socket", "hostapd wlan1 attached"),
          ("socket", "hostapd wlan0 attached")]
GPIO = ("bus", '{ "gpio": {"type":"wps","pressed":1} }')
PRESS = [(10.0, *GPIO)]
BOTH = [("bus", bus_wps(1, 11, 11)), ("command", CLI + "wlan1 wps_pbc"), wifi("WPS-PBC-ACTIVE"),
        ("command", CLI + "wlan0 wps_pbc"), wifi("WPS-PBC-ACTIVE", "wlan0")]
BEGUN = DAEMON + PRESS + BOTH
PIN_BEGUN = DAEMON + [(10.0, "bus", '{ "wps_cli": {"action":1,"method":2,"pin":"[8 bytes]"} }'),
                      ("bus", bus_wps(1, 11, 11)),
                      ("command", CLI + "wlan1 wps_pin any [8 bytes]"),
                      ("command", CLI + "wlan0 wps_pin any [8 bytes]")]
LATE = [(134.4, "command", CLI + "wlan1 wps_cancel")]


def ended(first, second, late=False):
    """The verdict of an access point, from the first cancel to the daemon's end."""
    return (LATE if late else [("command", CLI + "wlan1 wps_cancel")]) + [
        wifi("WPS-TIMEOUT"), wifi("WPS-CANCEL"), ("command", CLI + "wlan0 wps_cancel"),
        wifi("WPS-TIMEOUT", "wlan0"), wifi("WPS-CANCEL", "wlan0"), ("bus", bus_wps(2, 12, 12)),
        ("bus", bus_wps(2, first, second)), ("script", "1 /etc/init.d/wps restart"),
        ("exit", "1 daemon 283 status 0")]


FAILED, FAILED_LATE = ended(4, 4), ended(4, 4, late=True)
JOINED = [seen(MAC), wifi("CTRL-EVENT-EAP-STARTED " + MAC),
          (12.4, *wifi("WPS-REG-SUCCESS %s %s" % (MAC, UUID))),
          wifi("EAPOL-4WAY-HS-COMPLETED " + MAC)]
EXCHANGE = [seen(MAC), wifi("CTRL-EVENT-EAP-STARTED " + MAC)]

REPEATER = [("start", "1 daemon 283"), ("socket", "station wlan1-vxd attached"),
            ("socket", "station wlan0-vxd attached")]
STATIONS = PRESS + [("bus", bus_wps(1, 11, 11)), ("command", WPA + "wlan1-vxd wps_pbc"),
                    wifi("WPS-PBC-ACTIVE", "wlan1-vxd"), ("command", WPA + "wlan0-vxd wps_pbc"),
                    wifi("WPS-PBC-ACTIVE", "wlan0-vxd")]
RE_FAILED = [("bus", bus_wps(2, 4, 4)), ("command", WPA + "wlan1-vxd wps_cancel"),
             ("command", WPA + "wlan0-vxd wps_cancel"),
             ("script", "1 /etc/init.d/wps re_kelm_info"),
             ("script", "1 /etc/init.d/wps restart"), ("exit", "1 daemon 283 status 0")]
RE_DONE = [("script", "1 /etc/init.d/wps config_wifi"), ("command", WPA + "wlan1-vxd wps_cancel"),
           ("command", WPA + "wlan0-vxd wps_cancel"), ("exit", "1 daemon 283 status 0")]

# name: (lines, causes of the bands or that of the whole, headline)
NOBODY = "Nobody came within 125 s."
CASES = {
    "joined": (BEGUN + JOINED + ended(2, 4), "joined not-needed",
               '2.4 GHz: the "phone" (%s) joined after 2.5 s. 5 GHz: not needed.' % MAC),
    "joined by a device that calls itself like the end of a sentence": (
        BEGUN + [seen(MAC, name='x" failed. 5 GHz: "y')] + JOINED[1:] + ended(2, 4),
        "joined not-needed",
        """2.4 GHz: the "x' failed. 5 GHz: 'y" (%s) joined after 2.5 s. 5 GHz: not """
        "needed." % MAC),
    "joined, seen on the bus alone": (
        PRESS + [("bus", bus_wps(1, 11, 11)), (14.0, "bus", bus_wps(2, 12, 12)),
                 (15.0, "bus", bus_wps(2, 4, 2))], "not-needed joined",
        "2.4 GHz: not needed. 5 GHz: a device joined after 5.0 s."),
    "joined, seen in the info file": (
        PRESS + [("bus", bus_wps(1, 11, 11)), (12.0, "file", '/tmp/kelm.info {"wps_action":2,'
                 '"wl0_wps_status":"success","wl0_wps_sta_mac":"%s"}' % MAC)], "joined not-needed",
        "2.4 GHz: %s joined after 2.0 s. 5 GHz: not needed." % MAC),
    "joined on both at once": (
        BEGUN + JOINED + [wifi("WPS-REG-SUCCESS %s %s" % (OTHER, UUID), "wlan0"),
                          wifi("EAPOL-4WAY-HS-COMPLETED " + OTHER, "wlan0")] + ended(4, 2),
        "joined joined", None),
    "the other band timed out before": (
        BEGUN + [wifi("WPS-TIMEOUT", "wlan0")] + JOINED + ended(2, 4), "joined not-needed", None),
    "joined after a failure": (
        BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=8 config_error=5")] + JOINED + ended(2, 4),
        "joined not-needed", None),
    "key-unused": (BEGUN + JOINED[:-1] + ended(2, 4) + [(30.0, "watch", "stopped")],
                   "key-unused not-needed",
                   '2.4 GHz: the "phone" (%s) received the key after 2.4 s, but was not seen to '
                   "use it. 5 GHz: not needed." % MAC),
    "learnt": (REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"),
                                      wifi("WPS-SUCCESS", "wlan0-vxd")] + RE_DONE, "learnt learnt",
               None),
    "new-settings": (DAEMON + [(9.0, *wifi("CTRL-EVENT-EAP-STARTED " + MAC)),
                               (9.5, *wifi("WPS-NEW-AP-SETTINGS [90 bytes]")),
                               wifi("WPS-SUCCESS"), ("script", "1 /etc/init.d/wps config_wifi"),
                               ("exit", "1 daemon 283 status 0")], "new-settings",
                     "2.4 GHz: a device that knows the access point's PIN gave it new settings "
                     "after 0.5 s."),
    "wrong-key": (BEGUN + JOINED + [wifi("AP-STA-POSSIBLE-PSK-MISMATCH " + MAC)] + ended(2, 4),
                  "wrong-key not-needed", None),
    "somebody else's wrong key": (
        BEGUN + JOINED + [wifi("AP-STA-POSSIBLE-PSK-MISMATCH " + OTHER)] + ended(2, 4),
        "joined not-needed", None),
    "not-stored by status": (BEGUN + JOINED + ended(3, 4), "not-stored not-needed",
                             "2.4 GHz: the exchange succeeded, but its result could not be stored "
                             "(status 3). 5 GHz: not needed."),
    "not-stored by the daemon's line": (
        BEGUN + JOINED + [own("/tmp/run/hostapd-wlan1.conf has no key for everybody, not stored")]
        + ended(3, 4), "not-stored not-needed", None),
    "not-stored by a repeater": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"), wifi("WPS-TIMEOUT", "wlan0-vxd"),
                               own("[band 0] credential not usable: no name"),
                               ("bus", bus_wps(2, 3, 4)),
                               ("script", "1 /etc/init.d/wps restart"),
                               ("exit", "1 daemon 283 status 0")],
        "not-stored nobody-came", None),
    "overlap": (BEGUN + [seen(MAC), seen(OTHER, "another", name="tablet"),
                         wifi("WPS-OVERLAP-DETECTED"), wifi("WPS-OVERLAP-DETECTED", "wlan0")]
                + FAILED, "overlap overlap",
                'Two devices were in push-button mode at once: the "phone" (%s) and the '
                '"tablet" (%s).' % (MAC, OTHER)),
    "overlap in an anonymous recording": (
        BEGUN + [seen("device-1", "uuid-1", name="name-1"),
                 seen("device-2", "uuid-2", name="name-2"),
                 wifi("WPS-OVERLAP-DETECTED"), wifi("WPS-OVERLAP-DETECTED", "wlan0")] + FAILED,
        "overlap overlap", 'Two devices were in push-button mode at once: the "name-1" (device-1) '
        'and the "name-2" (device-2).'),
    "joined in an anonymous recording": (
        BEGUN + [seen("device-1", "uuid-1", name="name-1"),
                 (12.4, *wifi("WPS-REG-SUCCESS device-1 uuid-1")),
                 wifi("EAPOL-4WAY-HS-COMPLETED device-1")] + ended(2, 4), "joined not-needed",
        '2.4 GHz: the "name-1" (device-1) joined after 2.5 s. 5 GHz: not needed.'),
    "overlap by its error alone": (BEGUN + [wifi("WPS-FAIL msg=4 config_error=12")] + FAILED_LATE,
                                   "overlap nobody-came", None),
    "overlap on one band": (BEGUN + [wifi("WPS-OVERLAP-DETECTED")] + FAILED_LATE,
                            "overlap nobody-came", None),
    "overlap by SIGTERM's status": (BEGUN + [("bus", bus_wps(2, 12, 12)), ("bus", bus_wps(2, 8, 4)),
                                             ("exit", "1 daemon 283 status 0")],
                                    "overlap terminated", None),
    "overlap of a repeater": (
        REPEATER + STATIONS + [wifi("WPS: PBC overlap detected: %s and %s" % (MAC, OTHER),
                                    "wlan1-vxd"),
                               wifi("WPS-OVERLAP-DETECTED PBC session overlap", "wlan0-vxd")]
        + RE_FAILED, "overlap overlap", None),
    "wrong-pin": (PIN_BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=8 config_error=18")] + FAILED_LATE,
                  "wrong-pin nobody-came",
                  "2.4 GHz: the PIN was wrong (error 18, device password did not match; the "
                  "exchange ended at M4). 5 GHz: nobody came within 125 s."),
    "wrong-pin of a registrar": (
        DAEMON + [(9.0, *wifi("CTRL-EVENT-EAP-STARTED " + MAC)),
                  wifi("WPS-FAIL msg=9 config_error=18"), (60.0, "watch", "stopped")],
        "wrong-pin", None),
    "pin-locked": (DAEMON + [wifi("WPS-AP-SETUP-LOCKED"), (60.0, "watch", "stopped")], "pin-locked",
                   "After wrong PINs the access point takes no PIN any more."),
    "config-error": (BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=10 config_error=5")] + FAILED_LATE,
                     "config-error nobody-came",
                     "2.4 GHz: the exchange was ended with error 5, signal too weak, at M6. "
                     "5 GHz: nobody came within 125 s."),
    "config-error without a name": (
        BEGUN + [wifi("WPS-FAIL msg=77 config_error=99")] + FAILED_LATE, "config-error nobody-came",
        "2.4 GHz: the exchange was ended with error 99, which has no name, at message 77. "
        "5 GHz: nobody came within 125 s."),
    "exchange-broke": (BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=7 config_error=0")] + FAILED_LATE,
                       "exchange-broke nobody-came",
                       '2.4 GHz: the exchange with the "phone" (%s) broke off at M3. 5 GHz: nobody '
                       "came within 125 s." % MAC),
    "exchange-broke without a word": (
        BEGUN + EXCHANGE + [wifi("CTRL-EVENT-EAP-FAILURE " + MAC)] + FAILED_LATE,
        "exchange-broke nobody-came", None),
    "exchange-broke, with debug lines": (
        BEGUN + EXCHANGE + [wifi("WPS: Received M1"), wifi("WPS: Building Message M2"),
                            wifi("CTRL-EVENT-EAP-FAILURE " + MAC)] + FAILED_LATE,
        "exchange-broke nobody-came", None),
    "exchange-broke at a repeater": (
        REPEATER + STATIONS + [wifi("CTRL-EVENT-EAP-STARTED EAP authentication started",
                                    "wlan1-vxd"), wifi("WPS-FAIL msg=11 config_error=0",
                                                       "wlan1-vxd"),
                               wifi("WPS-FAIL msg=11 config_error=0", "wlan0-vxd")] + RE_FAILED,
        "exchange-broke exchange-broke",
        "The exchange with the root access point broke off at M7."),
    "client-left": (BEGUN + EXCHANGE + [wifi("AP-STA-DISCONNECTED " + MAC)] + FAILED_LATE,
                    "client-left nobody-came",
                    '2.4 GHz: the "phone" (%s) left in the middle of the exchange. 5 GHz: nobody '
                    "came within 125 s." % MAC),
    "client-left by falling silent": (
        BEGUN + EXCHANGE + [wifi("CTRL-EVENT-EAP-TIMEOUT-FAILURE " + MAC)] + FAILED_LATE,
        "client-left nobody-came", None),
    "wifi-restarted": (BEGUN + [wifi("AP-DISABLED"), wifi("CTRL-EVENT-TERMINATING"),
                                wifi("AP-DISABLED", "wlan0"), wifi("AP-ENABLED"),
                                wifi("AP-ENABLED", "wlan0")] + FAILED_LATE,
                       "wifi-restarted wifi-restarted", None),
    "ended-by-itself": (BEGUN + [wifi("WPS-PBC-DISABLE"), wifi("WPS-SUCCESS"),
                                 ("script", "1 /etc/init.d/wps restart"),
                                 ("exit", "1 daemon 283 status 0")],
                        "ended-by-itself ended-by-itself", None),
    "new-settings in mid-attempt": (
        BEGUN + [wifi("WPS-NEW-AP-SETTINGS [90 bytes]"), wifi("WPS-SUCCESS"),
                 ("script", "1 /etc/init.d/wps config_wifi"), ("exit", "1 daemon 283 status 0")],
        "new-settings not-needed", None),
    "pin-at-repeater": (
        REPEATER + [(10.0, "bus", '{ "wps_cli": {"action":1,"method":2,"pin":"[8 bytes]"} }'),
                    ("bus", bus_wps(1, 11, 11)), (60.0, "watch", "stopped")],
        "pin-at-repeater pin-at-repeater", "A repeater takes no PIN; nothing was started."),
    "a PIN whose commands have not come yet": (PIN_BEGUN[:-2], "still-running still-running", None),
    "wifi-daemon-gone by its socket": (
        BEGUN + [("socket", "hostapd wlan1 gone"), ("socket", "hostapd wlan0 gone")] + FAILED_LATE,
        "wifi-daemon-gone wifi-daemon-gone",
        "2.4 GHz: the Wi-Fi daemon (hostapd) was gone after 0.6 s. 5 GHz: the Wi-Fi daemon "
        "(hostapd) was gone after 0.7 s."),
    "wifi-daemon-gone at the press": (
        DAEMON + PRESS + [own("Can't open event ctrl"), own("Rebuild worker socket failed.")],
        "wifi-daemon-gone", "The Wi-Fi daemon (hostapd) was gone at the press."),
    "wifi-daemon-gone, seen by the recorder": (
        DAEMON + [("socket", "hostapd wlan1 gone")] + PRESS + [(40.0, "watch", "stopped")],
        "wifi-daemon-gone", None),
    "wifi-daemon-gone by its silence": (
        BEGUN + [(135.0, "command", CLI + "wlan1 wps_cancel"),
                 ("command", CLI + "wlan0 wps_cancel"),
                 ("bus", bus_wps(2, 12, 12)), ("bus", bus_wps(2, 4, 4)),
                 ("script", "1 /etc/init.d/wps restart"), ("exit", "1 daemon 283 status 0"),
                 ("start", "2 daemon 300"), ("exit", "2 daemon 300 status 255")],
        "wifi-daemon-gone wifi-daemon-gone",
        "The Wi-Fi daemon (hostapd) was gone in the middle of the attempt."),
    "wifi-daemon-gone by its silence, and the wireless restarted behind it": (
        BEGUN + [(135.0, "command", CLI + "wlan1 wps_cancel"),
                 ("command", CLI + "wlan0 wps_cancel"),
                 ("bus", bus_wps(2, 12, 12)), ("bus", bus_wps(2, 4, 4)),
                 ("script", "0 /etc/init.d/wifi restart"), ("exit", "1 daemon 283 status 0"),
                 ("start", "2 daemon 300"), ("exit", "2 daemon 300 status 255")],
        "wifi-daemon-gone wifi-daemon-gone", None),
    "wifi-daemon-hung": (
        BEGUN + [own("killed after 15 s (its time limit): hostapd_cli -p /var/run/hostapd -i wlan1 "
                     "wps_pbc", "kelm_system:1")] + FAILED_LATE, "wifi-daemon-hung nobody-came",
        "2.4 GHz: the Wi-Fi daemon (hostapd) did not answer; hostapd_cli was killed after 15 s. "
        "5 GHz: nobody came within 125 s."),
    "wifi-daemon-hung without the log": (
        BEGUN + [(25.5, "exit", "1 command 290 signal 9 " + CLI[2:] + "wlan1 wps_pbc")]
        + FAILED_LATE, "wifi-daemon-hung nobody-came", None),
    "wifi-daemon-hung at the press": (
        DAEMON + PRESS + [own("Can't attach event ctrl"), own("Rebuild worker socket failed.")],
        "wifi-daemon-hung", None),
    "script-hung": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"),
                               ("script", "1 /etc/init.d/wps config_wifi"),
                               own("killed after 120 s (its time limit): /etc/init.d/wps "
                                   "config_wifi", "kelm_system:1"),
                               wifi("WPS-TIMEOUT", "wlan0-vxd"), ("bus", bus_wps(2, 2, 4)),
                               ("exit", "1 daemon 283 status 0")], "script-hung nobody-came",
        None),
    "script-hung, seen by its missing end": (
        BEGUN + JOINED + [("exit", "1 command 290 status 0 " + CLI[2:] + "wlan1 wps_pbc"),
                          ("script", "1 /etc/init.d/wps config_wifi")] + ended(2, 4),
        "script-hung not-needed", None),
    "a script that ends": (
        BEGUN + JOINED + [("script", "1 /etc/init.d/wps config_wifi"),
                          ("exit", "1 command 290 status 0 /etc/init.d/wps config_wifi")]
        + ended(2, 4), "joined not-needed", None),
    "a command that is killed for the daemon's end is not hung": (
        BEGUN + FAILED_LATE[:-4] + [("command", "1 ubus send wps '{}'"),
                                    ("exit", "1 command 290 signal 9 ubus send wps '{}'")]
        + FAILED_LATE[-3:], "nobody-came nobody-came", NOBODY),
    "script-failed": (
        BEGUN + JOINED + [wifi("WPS-NEW-AP-SETTINGS [90 bytes]"),
                          ("script", "1 /etc/init.d/wps config_wifi"),
                          ("exit", "1 command 290 status 1 /etc/init.d/wps config_wifi")]
        + ended(2, 4), "script-failed not-needed",
        "2.4 GHz: the exchange succeeded, but its result was not stored: a script failed with "
        "status 1: /etc/init.d/wps config_wifi. 5 GHz: not needed."),
    "hidden": (DAEMON + [("settings", "2.4 GHz: enabled, hidden, no wps, wpa2")] + PRESS
               + [line for line in BOTH if line != wifi("WPS-PBC-ACTIVE")] + FAILED_LATE,
               "hidden nobody-came", None),
    "hidden is no reason for a network that offers WPS": (
        DAEMON + [("settings", "2.4 GHz: enabled, hidden, wpa2")] + PRESS + BOTH + FAILED_LATE,
        "nobody-came nobody-came", NOBODY),
    "wpa3-only": (DAEMON + [("settings", "2.4 GHz: enabled, wpa3")] + PRESS + BOTH + JOINED[:-1]
                  + ended(2, 4), "wpa3-only not-needed",
                  "2.4 GHz: a device received a key, but the network is WPA3 only; WPS cannot hand "
                  "out its key. 5 GHz: not needed."),
    "no-wps": (DAEMON + PRESS + [line for line in BOTH if line[0] != "hostapd"] + FAILED_LATE,
               "no-wps no-wps", "The Wi-Fi daemon does not offer WPS here."),
    "cancelled": (BEGUN + [("bus", '{ "wps_cli": {"action":2,"method":1} }'),
                           ("command", CLI + "wlan1 wps_cancel"), ("bus", bus_wps(2, 12, 12)),
                           (60.0, "watch", "stopped")], "cancelled cancelled",
                  "It was cancelled after 0.6 s."),
    "cancelled at a repeater that had learnt": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"),
                               ("bus", '{ "wps_cli": {"action":2,"method":1} }'),
                               ("command", WPA + "wlan1-vxd wps_cancel"),
                               (60.0, "watch", "stopped")], "cancelled cancelled", None),
    "terminated": (BEGUN + [own("WPS is processing, close it anyway.")] + FAILED[:-2]
                   + FAILED[-1:], "terminated terminated",
                   "The service was stopped in the middle of the attempt."),
    "terminated, without the log": (BEGUN + FAILED[:-2] + FAILED[-1:], "terminated terminated",
                                    None),
    "terminated, with what a repeater had learnt": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"), ("bus", bus_wps(2, 2, 4)),
                               ("exit", "1 daemon 283 status 0")], "terminated terminated",
        "2.4 GHz: the service was stopped in the middle of the attempt; what this band had learnt "
        "was not stored. 5 GHz: the service was stopped in the middle of the attempt."),
    "daemon-killed": (BEGUN + [("exit", "1 daemon 283 signal 11")], "daemon-killed daemon-killed",
                      "The daemon was killed by signal 11 in the middle of the attempt."),
    "daemon-killed, seen by the next one": (BEGUN + [("start", "2 daemon 300")],
                                            "daemon-killed daemon-killed", None),
    "heard-only": (BEGUN + [seen(MAC)] + FAILED_LATE, "heard-only nobody-came",
                   '2.4 GHz: the "phone" (%s) was heard in push-button mode, but began no exchange '
                   "within 125 s. 5 GHz: nobody came within 125 s." % MAC),
    "a device that only looks around is not heard": (
        BEGUN + [seen(MAC, password=0)] + FAILED_LATE, "nobody-came nobody-came", NOBODY),
    "nobody-came": (BEGUN + FAILED_LATE, "nobody-came nobody-came", NOBODY),
    "given-up": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd")]
        + [own("*****************************[WPS predict 1] %d percent "
               "***********************************" % percent, "get_wps_predict_score:1")
           for percent in (42, 17, 14)] + RE_DONE, "learnt given-up",
        "2.4 GHz: the repeater learnt the network of its root access point after 0.6 s. "
        "5 GHz: given up at an estimate of 14 percent."),
    "mirrored": (
        REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd"), wifi("WPS-TIMEOUT", "wlan0-vxd"),
                               own("patching wpsCfg[band 1] with rootAP Great Oak")] + RE_DONE,
        "learnt mirrored", None),
    "bus-gone": (DAEMON + [own("Failed to connect to ubus")] + PRESS + [(40.0, "watch", "stopped")],
                 "bus-gone", "The daemon had no connection to ubus and heard no press."),
    "bus-gone, told before the start is seen from outside": (
        [own("kelm 0.9.0", "main:52"), own("Failed to connect to ubus"),
         ("exit", "1 parent 268 status 0"), ("start", "1 daemon 283")] + PRESS
        + [(40.0, "watch", "stopped")], "bus-gone", None),
    "bus-gone at an earlier start": (
        [own("kelm 0.9.0", "main:52"), own("Failed to connect to ubus"),
         ("exit", "1 daemon 283 status 0"), ("start", "2 daemon 290")] + PRESS
        + [(40.0, "watch", "stopped")], "no-answer", None),
    "bus-gone, seen by the recorder": (
        DAEMON + [("socket", "bus attached")] + PRESS + [(40.0, "watch", "stopped")], "bus-gone",
        None),
    "bus-gone and back": (
        DAEMON + [own("Lost the connection to ubus, trying again every second"),
                  own("Connected to ubus again")] + PRESS + BOTH + FAILED_LATE,
        "nobody-came nobody-came", NOBODY),
    "no-daemon": (DAEMON + [("exit", "1 daemon 283 status 0")] + PRESS
                  + [(40.0, "watch", "stopped")], "no-daemon", "The daemon was not running."),
    "no-daemon after a failed start": (
        [("start", "1 daemon 283"), ("exit", "1 daemon 283 status 255")] + PRESS
        + [(40.0, "watch", "stopped")], "no-daemon",
        "The daemon was not running; its start had failed."),
    "refused-starting": (DAEMON + PRESS + [own("wps do nothing because of wifi starting...")],
                         "refused-starting", None),
    "refused-starting at a low level": (
        DAEMON + PRESS + [("file", "/tmp/wps_result -1"), (40.0, "watch", "stopped")],
        "refused-starting", "The press was refused: the wireless was still starting."),
    "refused-link": (DAEMON + PRESS + [own("Get wlan status failed.")], "refused-link", None),
    "bad-request": (DAEMON + PRESS + [own("Invalid action.")], "bad-request", None),
    "no-answer": (DAEMON + PRESS + [(40.0, "watch", "stopped")], "no-answer",
                  "Nothing answered the press."),
    "not-taking-part": (DAEMON + PRESS + [("bus", bus_wps(1, 12, 11)), wifi("WPS-PBC-ACTIVE",
                                                                            "wlan0"),
                                          (135.0, "bus", bus_wps(2, 0, 12)),
                                          ("bus", bus_wps(2, 12, 4))],
                        "not-taking-part nobody-came",
                        "2.4 GHz: took no part: WPS is off for it, or the band is. 5 GHz: nobody "
                        "came within 125 s."),
    "not-taking-part on all bands": (DAEMON + PRESS + [("bus", bus_wps(1, 12, 12)),
                                                       (60.0, "watch", "stopped")],
                                     "not-taking-part not-taking-part", None),
    "not-taking-part, connected": (
        REPEATER + PRESS + [own("2G is connected before WPS"), ("bus", bus_wps(1, 12, 11)),
                            wifi("WPS-PBC-ACTIVE", "wlan0-vxd"), wifi("WPS-SUCCESS", "wlan0-vxd")]
        + RE_DONE, "not-taking-part learnt", None),
    "still-running": (BEGUN + EXCHANGE, "still-running still-running",
                      "The attempt was still running when this recording ended."),
    "still-running after a press": (DAEMON + PRESS, "still-running", None),
    "still-running, half learnt": (REPEATER + STATIONS + [wifi("WPS-SUCCESS", "wlan1-vxd")],
                                   "still-running still-running", None),
    "router-restarted": (BEGUN + [(0.5, "socket", "hostapd wlan1 attached")],
                         "router-restarted router-restarted", None),
    "unknown": (PRESS + [("bus", bus_wps(1, 11, 11)), (14.0, "bus", bus_wps(2, 12, 12)),
                         (15.0, "bus", bus_wps(2, 4, 4))], "unknown unknown",
                "It failed, and nothing here tells why."),
}
# The service's line tells these on stock OpenWrt, whose recording has no bus to show a press.
BY_SERVICE = {
    "hidden": "2.4 GHz: the network is hidden", "wpa3-only": "2.4 GHz: WPA3 only",
    "open-network": "2.4 GHz: the network is open",
    "band-off": "2.4 GHz: the radio is switched off",
    "no-wps": "hostapd has no WPS: install wpad-mbedtls in place of wpad-basic-mbedtls",
    "refused-starting": "2.4 GHz: radio is still starting",
    "no-daemon": "the daemon is not running",
    "no-answer": "the daemon did not begin", "refused-busy": "an attempt runs already"}
BESIDE = {"refused-busy", "no-fit", "bus-hung"}  # tried by a test of their own


def write(path, lines):
    """A recording of these lines."""
    rows, time_s = [recorded.header()], 8.0
    for line in lines:
        time_s, source, text = line if len(line) == 3 else (round(time_s + 0.1, 3), *line)
        band = {"wlan1": "2.4 GHz", "wlan0": "5 GHz"}.get(text[:5], "")
        rows.append(recorded.row(time_s, source, text, band))
    return recorded.write_lines(path, rows)


def last_attempt(path):
    return attempts(read(path))[-1]


@pytest.mark.parametrize("name", CASES)
def test_cause(name, tmp_path):
    lines, causes, headline = CASES[name]
    found = last_attempt(write(tmp_path / "it.jsonl", lines))
    told = [verdict.cause for verdict in found.bands.values()] or [found.cause]
    assert told == causes.split()
    assert headline is None or found.headline == headline
    for verdict in list(found.bands.values()) + found.notes:
        good = BY_ID[verdict.cause].good
        assert verdict.good is good or verdict.cause == "given-up"


@pytest.mark.parametrize("cause", BY_SERVICE)
def test_cause_by_the_service(cause, tmp_path):
    (tmp_path / "events.log").write_text(
        "10.00 button wps pressed 60\n12.00 log Nov 22 12:13:30 (none) daemon.notice kelm: "
        "no WPS: %s\n" % BY_SERVICE[cause], encoding="utf-8")
    assert last_attempt(tmp_path).cause == cause


def test_every_row_of_the_table_is_tried():
    tried = {cause for _, causes, _ in CASES.values() for cause in causes.split()}
    assert tried | set(BY_SERVICE) | BESIDE == {row.id for row in CAUSES}


@pytest.mark.parametrize("begun, advice", [
    (BEGUN, "Press the router's button, then within two minutes that of the device. Bring the "
     "device nearer, and see that it speaks WPS."),
    (PIN_BEGUN, "Enter the device's PIN at the router once more, then start WPS by PIN on the "
     "device within two minutes. Bring the device nearer.")])
def test_what_to_do_when_nobody_came_is_told_of_what_was_done(begun, advice, tmp_path):
    found = last_attempt(write(tmp_path / "it.jsonl", begun + FAILED_LATE))
    assert (found.cause, found.advice) == ("nobody-came", advice)


def test_many_presses_are_one_note(tmp_path):
    presses = [(11.5 + number / 100, *GPIO) for number in range(1000)]
    found = last_attempt(write(tmp_path / "it.jsonl", BEGUN + presses + FAILED_LATE))
    note, = found.notes
    assert note.sentence == ("the button was pressed again after 1.5 s and 999 more times; that "
                             "changed nothing, an attempt was running")
    assert len(note.evidence) == 5


def test_a_bus_that_hangs_is_told_beside_the_outcome(tmp_path):
    lines = BEGUN + [own("killed after 3 s (its time limit): ubus send wps '{}'", "kelm_system:1")]
    found = last_attempt(write(tmp_path / "it.jsonl", lines + FAILED_LATE))
    assert (found.cause, [note.cause for note in found.notes]) == ("nobody-came", ["bus-hung"])


def test_a_second_press_is_told_beside_the_outcome(tmp_path):
    found = last_attempt(write(tmp_path / "it.jsonl", BEGUN + [(11.5, *GPIO)] + FAILED_LATE))
    assert found.cause == "nobody-came"
    assert [note.sentence for note in found.notes] == [
        "the button was pressed again after 1.5 s; that changed nothing, an attempt was running"]


@pytest.mark.parametrize("lines, causes", [
    (DAEMON, []),
    (DAEMON[:1] + [("exit", "1 daemon 283 status 255")], ["no-daemon"]),
    (DAEMON + [own("Failed to connect to ubus")], ["bus-gone"]),
    (DAEMON + [("socket", "hostapd wlan1 hung")], ["wifi-daemon-hung"]),
    ([], []),
])
def test_a_log_without_a_press(lines, causes, tmp_path):
    log = read(write(tmp_path / "it.jsonl", lines))
    assert attempts(log) == []
    assert [verdict.cause for verdict in without_attempt(log)] == causes


CARRIED = "processing wpsEvent[2.4G]: <3>WPS-REG-SUCCESS %s %s" % (MAC, UUID)


def test_a_log_that_is_late_tells_nothing_twice(tmp_path):
    """What hostapd itself has said of the first attempt is no success of the second."""
    again = [(20.0, *GPIO)] + BOTH + [own(CARRIED, "rtk_process_wpas_msg:254")]
    found = attempts(read(write(tmp_path / "it.jsonl", BEGUN + JOINED + ended(2, 4) + again)))
    assert [one.cause for one in found] == ["joined", "still-running"]


def test_a_log_that_is_late_ends_no_attempt(tmp_path):
    """The daemon's first line, in a system log that is a second behind."""
    lines = DAEMON[1:] + PRESS + BOTH + [own("kelm 0.9.0", "main:51")] + FAILED_LATE
    found = attempts(read(write(tmp_path / "it.jsonl", lines)))
    assert [one.cause for one in found] == ["nobody-came"]


def test_without_hostapds_own_words_the_log_tells_of_it(tmp_path):
    lines = [line for line in BEGUN if line[0] not in ("hostapd", "socket")]
    lines += [own(CARRIED, "rtk_process_wpas_msg:254")]
    found = last_attempt(write(tmp_path / "it.jsonl", lines))
    assert [verdict.cause for verdict in found.bands.values()] == ["joined", "not-needed"]


def test_a_device_that_finds_no_network_for_its_key(tmp_path):
    """Only in a run of the virtual router, which sees the device, too."""
    lines = BEGUN[3:] + JOINED[:-1] + [
        ("client0", "sta0: WPS-SUCCESS"), ("client0", "sta0: CTRL-EVENT-NETWORK-NOT-FOUND")]
    (tmp_path / "events.log").write_text("".join(
        "%.2f %s %s\n" % (10 + number / 10, *line[-2:]) for number, line in enumerate(lines)))
    found = last_attempt(tmp_path)
    assert [verdict.cause for verdict in found.bands.values()] == ["no-fit", "not-needed"]


@pytest.mark.parametrize("number", range(19))
def test_configuration_errors_by_name(number, tmp_path):
    lines = BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=8 config_error=%d" % number)] + FAILED_LATE
    verdict = last_attempt(write(tmp_path / "it.jsonl", lines)).bands["2.4 GHz"]
    wanted = {0: "exchange-broke", 12: "overlap"}.get(number, "config-error")
    assert verdict.cause == wanted
    if wanted == "config-error":
        assert "error %d, %s, at M4" % (number, CONFIG_ERRORS[number]) in verdict.sentence
        assert len(verdict.advice) > 20


MESSAGE_NAMES = {4: "M1", 5: "M2", 6: "M2D", 7: "M3", 8: "M4", 9: "M5", 10: "M6", 11: "M7",
                 12: "M8", 13: "ACK", 14: "NACK", 15: "Done"}


@pytest.mark.parametrize("number", MESSAGE_NAMES)
def test_messages_by_name(number, tmp_path):
    assert MESSAGES[number] == MESSAGE_NAMES[number]
    lines = BEGUN + EXCHANGE + [wifi("WPS-FAIL msg=%d config_error=0" % number)] + FAILED_LATE
    verdict = last_attempt(write(tmp_path / "it.jsonl", lines)).bands["2.4 GHz"]
    assert verdict.sentence.endswith("broke off at " + MESSAGE_NAMES[number])


def test_words_of_the_table():
    """Sentences go behind a band's name and before a full stop; advice stands alone."""
    for row in CAUSES:
        for text in (row.sentence, row.repeater_sentence):
            assert not text.endswith(".") and (not text or text[0] in "{" or text[0].islower())
        for text in (row.advice, row.repeater_advice):
            assert not text or text.endswith(".") or text == "{cure}"
        assert row.looks_for
