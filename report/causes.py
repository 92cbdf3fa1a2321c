# SPDX-License-Identifier: ISC
"""The table of diagnoses: what was seen, what it means, and what to do next."""

from dataclasses import dataclass


@dataclass(frozen=True)
class Cause:
    """A row. good: joined; did not; or None where there was nothing to do, or it is not known.

    looks_for: what must be in an input, for whoever reads the table. sentence and advice are for
    the owner of the router; {words} in them come from the details of the verdict.
    """

    id: str
    good: bool | None
    looks_for: str
    sentence: str
    advice: str = ""
    repeater_sentence: str = ""  # where a repeater's is another one
    repeater_advice: str = ""
    pin_advice: str = ""  # where a PIN was entered in place of the press


AGAIN = "Press the router's button again, and the device's within two minutes."
LOOK_AT_WIFI = ("Restart the wireless, then press again. If it comes back, look at the log of "
                "{daemon}.")

# The order is that of importance: of an attempt's bands the first row that is found stands for all.
CAUSES = [
    Cause("joined", True, "WPS-REG-SUCCESS of hostapd, WPS-SUCCESS of a station whose settings "
          "were "
          "stored, or status 2",
          "{who} joined{after}"),
    Cause("learnt", True, "WPS-SUCCESS of a station, and config_wifi or status 2 behind it",
          "the repeater learnt the network of its root access point{after}"),
    Cause("key-unused", None, "WPS-REG-SUCCESS of hostapd itself, no AP-STA-CONNECTED behind it",
          "{who} received the key{after}, but was not seen to use it",
          "See on the device whether it is connected. If it is not, see whether the network is "
          "WPA3 only: WPS hands out keys for WPA2."),
    Cause("new-settings", True, "WPS-NEW-AP-SETTINGS, and no WPS-REG-SUCCESS",
          "a device that knows the access point's PIN gave it new settings{after}"),
    Cause("wrong-key", False, "AP-STA-POSSIBLE-PSK-MISMATCH, or a client's WRONG_KEY, after it "
          "joined",
          "{who} received a key{after}, but later the access point refused that key",
          "Remove the network from the device and join once more. If it comes back, the access "
          "point "
          "does not keep the keys that it hands out by WPS."),
    Cause("no-fit", False, "a client finds no network for the key that it has received",
          "{who} received a key{after}, but then found no network that the key fits",
          "See whether the network is WPA3 only: WPS hands out keys for WPA2."),
    Cause("not-stored", False, "status 3, or a line of the daemon that nothing was stored",
          "the exchange succeeded, but its result could not be stored ({reason})",
          "Make room in /tmp and on the flash, then press again."),
    Cause("overlap", False, "WPS-OVERLAP-DETECTED, or WPS-FAIL with error 12",
          "{count} were in push-button mode at once{devices}",
          "Press again in two minutes, with one device.",
          repeater_advice="Press again in two minutes, with one root access point."),
    Cause("wrong-pin", False, "WPS-FAIL with error 18 where a PIN was used",
          "the PIN was wrong ({number}, {name}; the exchange ended at {message})",
          "Compare the PIN with the one that the device shows or has on its label, and enter it "
          "again."),
    Cause("pin-locked", False, "WPS-AP-SETUP-LOCKED, or WPS-FAIL with error 15",
          "after wrong PINs the access point takes no PIN any more",
          "Use the button. Restart the wireless to take PINs again."),
    Cause("config-error", False, "WPS-FAIL with any other error",
          "the exchange was ended with error {number}, {name}, at {message}", "{cure}"),
    Cause("exchange-broke", False, "WPS-FAIL without an error, or an exchange that ends without "
          "success",
          "the exchange with {who} broke off{where}",
          "Bring the device nearer to the router and press again.",
          repeater_advice="Bring the repeater nearer to the root access point and press again."),
    Cause("client-left", False, "the device leaves, or is put out, in its exchange",
          "{who} {left} in the middle of the exchange",
          "Bring the device nearer to the router, and wait until it says that it is done."),
    Cause("wifi-restarted", False, "AP-DISABLED and AP-ENABLED in mid-attempt",
          "the radio was set up anew in the middle of the attempt, which made it forget the "
          "press", AGAIN),
    Cause("ended-by-itself", False, "WPS-SUCCESS or WPS-PBC-DISABLE of hostapd without a client, "
          "and the daemon's end without an outcome",
          "the Wi-Fi daemon ended its WPS by itself, and no device had joined", AGAIN),
    Cause("pin-at-repeater", False, "a start with a PIN, and no command behind it",
          "a repeater takes no PIN; nothing was started",
          "Press the button of this device and that of the root access point."),
    Cause("wifi-daemon-gone", False, "the control socket is gone or refuses, or {daemon} is "
          "silent from "
          "some moment on", "the Wi-Fi daemon ({daemon}) was gone{what}", LOOK_AT_WIFI),
    Cause("wifi-daemon-hung", False, "hostapd_cli or wpa_cli killed at its limit, or ATTACH "
          "unanswered",
          "the Wi-Fi daemon ({daemon}) did not answer{what}", LOOK_AT_WIFI),
    Cause("script-hung", False, "a script killed at its limit, or begun without an end",
          "{before}a script did not end: {command}",
          "Run the script by hand on the router and see what it waits for."),
    Cause("script-failed", False, "a script that ends with a status other than 0",
          "{before}a script failed with status {number}: {command}",
          "Run the script by hand on the router and read what it says."),
    Cause("hidden", False, "the settings, or the service's line, before or after the press",
          "the network is hidden; WPS does not serve hidden networks",
          "Show the network (hidden '0'), then press again."),
    Cause("wpa3-only", False, "the same",
          "{before}the network is WPA3 only; WPS cannot hand out its key",
          "Allow WPA2 beside WPA3, then press again."),
    Cause("no-wps", False, "the same, or no WPS-PBC-ACTIVE after wps_pbc",
          "the Wi-Fi daemon does not offer WPS here{reason}",
          "Show the network if it is hidden. Look at its encryption, at the WPS settings, and "
          "whether {daemon} was built with WPS."),
    Cause("open-network", False, "the same", "the network is open; there is no key to hand out",
          "Give the network a key, then press again."),
    Cause("band-off", False, "the same", "the radio or the network is switched off",
          "Switch it on, then press again."),
    Cause("cancelled", False, "a cancel on the bus, or the stop without an outcome",
          "it was cancelled{after}{learnt}", "Press again."),
    Cause("terminated", False, "the daemon's line that it was ended by SIGTERM, or an end without "
          "its "
          "restart", "the service was stopped in the middle of the attempt{learnt}",
          "Start the service, then press again."),
    Cause("daemon-killed", False, "the daemon ends by a signal, or another one begins without an "
          "outcome",
          "the daemon {how} in the middle of the attempt",
          "Press again. If it comes back, keep this recording for the maintainers."),
    Cause("router-restarted", False, "the clock of the recording begins anew",
          "the router was restarted in the middle of the attempt", AGAIN),
    Cause("heard-only", False, "a device in push-button mode was heard and began no exchange",
          "{who} was heard in push-button mode, but began no exchange{within}",
          "Bring the device nearer to the router. See whether a filter of addresses keeps it out, "
          "and "
          "whether it knows this band."),
    Cause("nobody-came", False, "the time-out, and no exchange before it",
          "nobody came{within}",
          "Press the router's button, then within two minutes that of the device. Bring the device "
          "nearer, and see that it speaks WPS.",
          "no root access point with a pressed button was found{within}",
          "Press this device's button, then within two minutes that of the root access point. "
          "Bring the two nearer to each other.",
          "Enter the device's PIN at the router once more, then start WPS by PIN on the device "
          "within two minutes. Bring the device nearer."),
    Cause("given-up", False, "estimates below the limit, and another band that has learnt a "
          "network",
          "given up{estimate}{mirror}",
          "Press the root's button on both bands if they are to be learnt each for itself."),
    Cause("bus-gone", False, "the daemon's line that it has no ubus, and a press that it does not "
          "hear",
          "the daemon had no connection to ubus{heard}",
          "See whether ubusd runs, then restart the service: a daemon that starts without ubus "
          "does not "
          "look for it again."),
    Cause("bus-hung", False, "`ubus send` killed at its limit",
          "ubus did not take a message of the daemon's in time",
          "Others may not have heard of the outcome; it stands in /tmp/kelm.info."),
    Cause("no-daemon", False, "the daemon ended, or its start failed, before the press",
          "the daemon was not running{reason}", "Start the service and read its first lines in "
          "the log."),
    Cause("refused-starting", False, "the daemon's line, or a press that came as far as the check "
          "of the "
          "wireless",
          "the press was refused: the wireless was still starting{or_link}",
          "Wait until the wireless is up, then press again."),
    Cause("refused-busy", None, "a press while an attempt runs",
          "the button was pressed again{after}{more}; that changed nothing, an attempt was "
          "running"),
    Cause("refused-link", False, "the daemon's line that a station's link is unknown",
          "the press was refused: the state of a station's link could not be read",
          "See that the service writes /tmp/wifi_runtime_info.2g and .5g."),
    Cause("bad-request", False, "the daemon's line about a request that it does not understand",
          "the request could not be understood", "Send it as docs/interfaces.md says."),
    Cause("no-answer", False, "a press, and nothing of the daemon's behind it",
          "nothing answered the press",
          "Run kelm-doctor on the router: it looks whether the daemon runs, whether {daemon} "
          "answers, and with --button whether the press comes over ubus."),
    Cause("not-needed", None, "the other band served the device", "not needed"),
    Cause("mirrored", None, "the daemon's line that a band takes over what another has learnt",
          "takes over what the other band has learnt"),
    Cause("not-taking-part", None, "status 12 in the start", "took no part{reason}",
          "Switch WPS on for it if it is to take part."),
    Cause("still-running", None, "the input ends before an outcome",
          "the attempt was still running when this {kind} ended{learnt}",
          "Record until the daemon has told its outcome."),
    Cause("unknown", False, "none of the other rows",
          "it failed, and nothing here tells why",
          "Record the next attempt with kelm-watch, and with kelm's log (--log)."),
]

BY_ID = {cause.id: cause for cause in CAUSES}
IMPORTANCE = {cause.id: place for place, cause in enumerate(CAUSES)}

# Of a WPS exchange, by their numbers in WPS-FAIL.
CONFIG_ERRORS = {
    0: "no error", 1: "interface for out-of-band data could not be read", 2: "decryption failed",
    3: "channel of 2.4 GHz not supported", 4: "channel of 5 GHz not supported",
    5: "signal too weak", 6: "network authentication failed", 7: "network association failed",
    8: "no answer of the DHCP server", 9: "DHCP configuration failed", 10: "IP address in use",
    11: "registrar could not be reached", 12: "more than one push-button session",
    13: "rogue activity suspected", 14: "device busy", 15: "set-up locked",
    16: "message came too late", 17: "session took too long", 18: "device password did not match"}
MESSAGES = {1: "beacon", 2: "probe request", 3: "probe response", 4: "M1", 5: "M2", 6: "M2D",
            7: "M3", 8: "M4", 9: "M5", 10: "M6", 11: "M7", 12: "M8", 13: "ACK", 14: "NACK",
            15: "Done"}
NEARER = "Bring the device nearer to the router and press again."
CURES = {
    2: "Press again. If it comes back, the device's WPS is at fault.",
    3: "Choose a lower channel for 2.4 GHz, such as 1 or 6.",
    4: "Choose another channel for 5 GHz, such as 36.",
    5: NEARER, 6: "Press again. If it comes back, look at the network's encryption.",
    7: NEARER, 11: NEARER, 16: NEARER, 17: NEARER,
    13: "Wait two minutes and press again, with one device.",
    14: "The device is busy with another exchange. Wait two minutes and press again."}
CURE_ELSE = "Press again. If it comes back, see what the device says about this error."
