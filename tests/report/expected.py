# SPDX-License-Identifier: ISC
"""What each scenario's attempts came to, written down: from all that the router tells, from the
daemon's console alone, and from a recording without the daemon's log."""

# A row: method, run mode, cause, {band: cause}, headline, causes of what else happened.
RUNS = {
    "access-point-pin": [
        ("registrar", "access point", "new-settings",
         {"2.4 GHz": "new-settings"},
         "2.4 GHz: a device that knows the access point's PIN gave it new settings after 0.1 "
         "s.",
         []),
    ],
    "broker-dies": [
        ("press", "access point", "nobody-came",
         {"2.4 GHz": "nobody-came", "5 GHz": "nobody-came"},
         "Nobody came within 126 s.",
         ["bus-gone"]),
    ],
    "cancel": [
        ("press", "access point", "cancelled",
         {"2.4 GHz": "cancelled", "5 GHz": "cancelled"},
         "It was cancelled after 0.9 s.",
         []),
    ],
    "client-leaves": [
        ("press", "access point", "client-left",
         {"2.4 GHz": "client-left", "5 GHz": "nobody-came"},
         '2.4 GHz: the "phone" (02:00:00:00:02:00) fell silent in the middle of the exchange. 5 '
         "GHz: nobody came within 148 s.",
         []),
    ],
    "client-pin": [
        ("PIN", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the printer joined after 0.9 s. 5 GHz: not needed.",
         []),
    ],
    "daemon-killed": [
        ("press", "access point", "daemon-killed",
         {"2.4 GHz": "daemon-killed", "5 GHz": "daemon-killed"},
         "The daemon was killed by signal 9 in the middle of the attempt.",
         []),
    ],
    "disk-full": [
        ("press", "access point", "not-stored",
         {"2.4 GHz": "not-stored", "5 GHz": "not-needed"},
         "2.4 GHz: the exchange succeeded, but its result could not be stored (new settings "
         "not stored, skip config_wifi). 5 GHz: not needed.",
         []),
    ],
    "hidden": [
        ("press", "access point", "hidden",
         {"2.4 GHz": "hidden", "5 GHz": "nobody-came"},
         "2.4 GHz: the network is hidden; WPS does not serve hidden networks. 5 GHz: nobody "
         "came within 126 s.",
         []),
    ],
    "hostapd-dies": [
        ("press", "access point", "wifi-daemon-gone",
         {"2.4 GHz": "wifi-daemon-gone", "5 GHz": "wifi-daemon-gone"},
         "The Wi-Fi daemon (hostapd) was gone in the middle of the attempt.",
         []),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.4 s. 5 GHz: not needed.",
         []),
    ],
    "hostapd-hangs": [
        ("press", "access point", "wifi-daemon-hung",
         {},
         "The Wi-Fi daemon (hostapd) did not answer at the press.",
         ["wifi-daemon-hung"]),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.9 s. 5 GHz: not needed.",
         []),
    ],
    "hostapd-user": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.7 s. 5 GHz: not needed.",
         []),
    ],
    "neighbour": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 6.8 s. 5 GHz: not needed.",
         []),
    ],
    "no-broker": [
        ("press", "access point", "bus-gone",
         {},
         "The daemon had no connection to ubus and heard no press.",
         ["bus-gone"]),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.6 s. 5 GHz: not needed.",
         []),
    ],
    "nobody-comes": [
        ("press", "access point", "nobody-came",
         {"2.4 GHz": "nobody-came", "5 GHz": "nobody-came"},
         "Nobody came within 128 s.",
         []),
    ],
    "overlap": [
        ("press", "access point", "overlap",
         {"2.4 GHz": "overlap", "5 GHz": "overlap"},
         "Two devices were in push-button mode at once: the \"phone\" (02:00:00:00:02:00) and "
         "the \"tablet\" (02:00:00:00:03:00).",
         []),
    ],
    "press-cancel-press": [
        ("press", "access point", "cancelled",
         {"2.4 GHz": "cancelled", "5 GHz": "cancelled"},
         "It was cancelled after 0.6 s.",
         []),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.1 s. 5 GHz: not needed.",
         []),
    ],
    "push-button": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 1.9 s. 5 GHz: not needed.",
         []),
    ],
    "push-button-5g": [
        ("press", "access point", "joined",
         {"2.4 GHz": "not-needed", "5 GHz": "joined"},
         "2.4 GHz: not needed. 5 GHz: the phone joined after 2.1 s.",
         []),
    ],
    "repeater": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.2 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 2.5 s.",
         []),
    ],
    "repeater-2g": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "given-up"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.2 s. 5 "
         "GHz: given up at an estimate of 14 percent; it takes over what the other band has "
         "learnt.",
         []),
    ],
    "repeater-5g": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "given-up", "5 GHz": "learnt"},
         "2.4 GHz: given up at an estimate of 14 percent; it takes over what the other band "
         "has learnt. 5 GHz: the repeater learnt the network of its root access point after "
         "2.1 s.",
         []),
    ],
    "repeater-6g": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt", "6 GHz": "mirrored"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.3 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 2.6 s. 6 GHz: "
         "takes over what the other band has learnt.",
         []),
    ],
    "repeater-alone": [
        ("press", "repeater", "nobody-came",
         {"2.4 GHz": "nobody-came", "5 GHz": "nobody-came"},
         "No root access point with a pressed button was found within 125 s.",
         []),
    ],
    "repeater-connected": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "not-taking-part", "5 GHz": "learnt"},
         "2.4 GHz: took no part: it is connected already. 5 GHz: the repeater learnt the "
         "network of its root access point after 2.2 s.",
         []),
    ],
    "repeater-factory": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.3 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 2.7 s.",
         []),
    ],
    "repeater-mesh": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.2 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 3.8 s.",
         []),
    ],
    "repeater-near": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "given-up"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.1 s. 5 "
         "GHz: given up at an estimate of 14 percent; it takes over what the other band has "
         "learnt.",
         []),
    ],
    "repeater-no-mesh": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.5 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 2.9 s.",
         []),
    ],
    "repeater-open-wpa3": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 4.8 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 5.1 s.",
         []),
    ],
    "repeater-overlap": [
        ("press", "repeater", "overlap",
         {"2.4 GHz": "overlap", "5 GHz": "overlap"},
         "2.4 GHz: two root access points were in push-button mode at once: 02:11:22:33:44:50 "
         "and 02:11:22:33:54:50. 5 GHz: two root access points were in push-button mode at "
         "once: 02:11:22:33:44:51 and 02:11:22:33:54:51.",
         []),
    ],
    "repeater-rogue": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 26.4 s. 5 "
         "GHz: the repeater learnt the network of its root access point after 26.4 s.",
         []),
    ],
    "repeater-silent": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt", "5 GHz": "given-up"},
         "2.4 GHz: the repeater learnt the network of its root access point after 1.8 s. 5 "
         "GHz: given up at an estimate of 14 percent; it takes over what the other band has "
         "learnt.",
         []),
    ],
    "script-hangs": [
        ("press", "access point", "script-hung",
         {"2.4 GHz": "script-hung", "5 GHz": "not-needed"},
         "2.4 GHz: the exchange succeeded, but its result was not stored: a script did not "
         "end: /etc/init.d/wps config_wifi. 5 GHz: not needed.",
         []),
    ],
    "second-press": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 2.1 s. 5 GHz: not needed.",
         ["refused-busy"]),
    ],
    "start-marker": [
        ("press", "access point", "refused-starting",
         {},
         "The press was refused: the wireless was still starting.",
         ["refused-starting"]),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 8.2 s. 5 GHz: not needed.",
         []),
    ],
    "stock-button": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.4 s.",
         []),
    ],
    "stock-button-24.10": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.5 s.",
         []),
        ("press", "access point", "still-running",
         {"5 GHz": "still-running"},
         "The attempt was still running when this recording ended.",
         []),
    ],
    "stock-crash": [
        ("press", "access point", "daemon-killed",
         {"2.4 GHz": "daemon-killed"},
         "The daemon ended without an outcome in the middle of the attempt.",
         []),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.1 s.",
         []),
    ],
    "stock-guest": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.5 s.",
         []),
    ],
    "stock-hidden": [
        ("press", "", "hidden",
         {"2.4 GHz": "hidden"},
         "The network is hidden; WPS does not serve hidden networks.",
         []),
    ],
    "stock-led": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 2.2 s.",
         []),
    ],
    "stock-no-wps": [
        ("press", "", "no-wps",
         {},
         "The Wi-Fi daemon does not offer WPS here (hostapd has no WPS: install wpad-mbedtls "
         "in place of wpad-basic-mbedtls).",
         ["no-wps"]),
    ],
    "stock-pin": [
        ("PIN", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the printer joined after 1.4 s.",
         []),
    ],
    "stock-radio-off": [
        ("press", "", "band-off",
         {"2.4 GHz": "band-off"},
         "The radio or the network is switched off.",
         []),
    ],
    "stock-reload": [
        ("press", "access point", "wifi-restarted",
         {"2.4 GHz": "wifi-restarted"},
         "The radio was set up anew in the middle of the attempt, which made it forget the "
         "press.",
         []),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.7 s.",
         []),
    ],
    "stock-repeater": [
        ("press", "repeater", "learnt",
         {"2.4 GHz": "learnt"},
         "2.4 GHz: the repeater learnt the network of its root access point after 2.6 s.",
         []),
    ],
    "stock-web": [
        ("press", "access point", "cancelled",
         {"2.4 GHz": "cancelled"},
         "It was cancelled after 4.8 s.",
         []),
        ("press", "access point", "joined",
         {"2.4 GHz": "joined"},
         "2.4 GHz: the phone joined after 1.3 s.",
         []),
    ],
    "stock-without-kelm": [
        ("press", "access point", "wrong-key",
         {"2.4 GHz": "wrong-key", "5 GHz": "not-needed"},
         "2.4 GHz: the phone received a key after 1.5 s, but later the access point refused "
         "that key. 5 GHz: not needed.",
         []),
    ],
    "stock-wpa3-only": [
        ("press", "", "wpa3-only",
         {"2.4 GHz": "wpa3-only"},
         "The network is WPA3 only; WPS cannot hand out its key.",
         []),
    ],
    "terminated": [
        ("press", "access point", "terminated",
         {"2.4 GHz": "terminated", "5 GHz": "terminated"},
         "The service was stopped in the middle of the attempt.",
         []),
    ],
    "unconfigured": [
        ("press", "access point", "joined",
         {"2.4 GHz": "joined", "5 GHz": "not-needed"},
         "2.4 GHz: the phone joined after 2.7 s. 5 GHz: not needed.",
         []),
    ],
    "wpa3-only": [
        ("press", "access point", "key-unused",
         {"2.4 GHz": "key-unused", "5 GHz": "not-needed"},
         "2.4 GHz: the phone received the key after 1.6 s, but was not seen to use it. 5 GHz: "
         "not needed.",
         []),
    ],
    "wrong-key": [
        ("press", "access point", "wrong-key",
         {"2.4 GHz": "wrong-key", "5 GHz": "not-needed"},
         "2.4 GHz: the phone received a key after 1.5 s, but later the access point refused "
         "that key. 5 GHz: not needed.",
         []),
    ],
    "wrong-pin": [
        ("PIN", "access point", "wrong-pin",
         {"2.4 GHz": "wrong-pin", "5 GHz": "nobody-came"},
         "2.4 GHz: the PIN was wrong (error 18, device password did not match; the exchange "
         "ended at M4). 5 GHz: nobody came within 126 s.",
         []),
    ],
}

# Without times and without scripts: a line an attempt.
CONSOLES = {
    "access-point-pin": ["registrar: 2.4 GHz new-settings"],
    "broker-dies": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came; bus-gone"],
    "cancel": ["press: 2.4 GHz cancelled, 5 GHz cancelled"],
    "client-leaves": ["press: 2.4 GHz client-left, 5 GHz nobody-came"],
    "client-pin": ["PIN: 2.4 GHz joined, 5 GHz not-needed"],
    "daemon-killed": ["press: 2.4 GHz daemon-killed, 5 GHz daemon-killed"],
    "disk-full": ["press: 2.4 GHz not-stored, 5 GHz not-needed"],
    "hidden": ["press: 2.4 GHz no-wps, 5 GHz nobody-came"],
    "hostapd-dies": [
        "press: 2.4 GHz wifi-daemon-gone, 5 GHz wifi-daemon-gone",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "hostapd-hangs": [
        "press: wifi-daemon-hung",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "hostapd-user": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "neighbour": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "no-broker": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "nobody-comes": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came"],
    "overlap": ["press: 2.4 GHz overlap, 5 GHz overlap"],
    "press-cancel-press": [
        "press: 2.4 GHz cancelled, 5 GHz cancelled",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "push-button": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "push-button-5g": ["press: 2.4 GHz not-needed, 5 GHz joined"],
    "repeater": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-2g": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "repeater-5g": ["press: 2.4 GHz given-up, 5 GHz learnt"],
    "repeater-6g": ["press: 2.4 GHz learnt, 5 GHz learnt, 6 GHz mirrored"],
    "repeater-alone": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came"],
    "repeater-connected": ["press: 2.4 GHz not-taking-part, 5 GHz learnt"],
    "repeater-factory": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-mesh": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-near": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "repeater-no-mesh": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-open-wpa3": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-overlap": ["press: 2.4 GHz overlap, 5 GHz overlap"],
    "repeater-rogue": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-silent": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "script-hangs": ["press: 2.4 GHz script-hung, 5 GHz not-needed"],
    "second-press": ["press: 2.4 GHz joined, 5 GHz not-needed; refused-busy"],
    "start-marker": [
        "press: refused-starting",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "terminated": ["press: 2.4 GHz terminated, 5 GHz terminated"],
    "unconfigured": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "wpa3-only": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "wrong-key": ["press: 2.4 GHz wrong-key, 5 GHz not-needed"],
    "wrong-pin": ["PIN: 2.4 GHz wrong-pin, 5 GHz nobody-came"],
}

# Without what the daemon says of itself, and without the buttons of a stock router.
RECORDINGS = {
    "access-point-pin": ["registrar: 2.4 GHz new-settings"],
    "broker-dies": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came"],
    "cancel": ["press: 2.4 GHz cancelled, 5 GHz cancelled"],
    "client-leaves": ["press: 2.4 GHz client-left, 5 GHz nobody-came"],
    "client-pin": ["PIN: 2.4 GHz joined, 5 GHz not-needed"],
    "daemon-killed": ["press: 2.4 GHz daemon-killed, 5 GHz daemon-killed"],
    "disk-full": ["press: 2.4 GHz not-stored, 5 GHz not-needed"],
    "hidden": ["press: 2.4 GHz hidden, 5 GHz nobody-came"],
    "hostapd-dies": [
        "press: 2.4 GHz wifi-daemon-gone, 5 GHz wifi-daemon-gone",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "hostapd-hangs": [
        "press: no-answer",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "hostapd-user": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "neighbour": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "no-broker": [
        "press: no-answer",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "nobody-comes": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came"],
    "overlap": ["press: 2.4 GHz overlap, 5 GHz overlap"],
    "press-cancel-press": [
        "press: 2.4 GHz cancelled, 5 GHz cancelled",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "push-button": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "push-button-5g": ["press: 2.4 GHz not-needed, 5 GHz joined"],
    "repeater": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-2g": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "repeater-5g": ["press: 2.4 GHz given-up, 5 GHz learnt"],
    "repeater-6g": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-alone": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came"],
    "repeater-connected": ["press: 2.4 GHz not-taking-part, 5 GHz learnt"],
    "repeater-factory": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-mesh": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-near": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "repeater-no-mesh": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-open-wpa3": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-overlap": ["press: 2.4 GHz overlap, 5 GHz overlap"],
    "repeater-rogue": ["press: 2.4 GHz learnt, 5 GHz learnt"],
    "repeater-silent": ["press: 2.4 GHz learnt, 5 GHz given-up"],
    "script-hangs": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "second-press": ["press: 2.4 GHz joined, 5 GHz not-needed; refused-busy"],
    "start-marker": [
        "press: no-answer",
        "press: 2.4 GHz joined, 5 GHz not-needed",
    ],
    "stock-button": ["press: 2.4 GHz joined"],
    "stock-button-24.10": ["press: 2.4 GHz joined"],
    "stock-crash": [
        "press: 2.4 GHz daemon-killed",
        "press: 2.4 GHz joined",
    ],
    "stock-guest": ["press: 2.4 GHz joined"],
    "stock-hidden": [],
    "stock-led": ["press: 2.4 GHz joined"],
    "stock-no-wps": [],
    "stock-pin": ["PIN: 2.4 GHz joined"],
    "stock-radio-off": [],
    "stock-reload": [
        "press: 2.4 GHz wifi-restarted",
        "press: 2.4 GHz joined",
    ],
    "stock-repeater": ["press: 2.4 GHz learnt"],
    "stock-web": [
        "press: 2.4 GHz cancelled",
        "press: 2.4 GHz joined",
    ],
    "stock-without-kelm": ["request: 2.4 GHz wrong-key, 5 GHz not-needed"],
    "stock-wpa3-only": [],
    "terminated": ["press: 2.4 GHz terminated, 5 GHz terminated"],
    "unconfigured": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "wpa3-only": ["press: 2.4 GHz key-unused, 5 GHz not-needed"],
    "wrong-key": ["press: 2.4 GHz wrong-key, 5 GHz not-needed"],
    "wrong-pin": ["PIN: 2.4 GHz wrong-pin, 5 GHz nobody-came"],
}

# Recordings that kelm-watch made on the virtual router; on stock OpenWrt with the system log.
BY_KELM_WATCH = {
    "broker-dies": ["press: 2.4 GHz nobody-came, 5 GHz nobody-came; bus-gone"],
    "cancel": ["press: 2.4 GHz cancelled, 5 GHz cancelled"],
    "client-leaves": ["press: 2.4 GHz client-left, 5 GHz nobody-came"],
    "disk-full": ["press: 2.4 GHz not-stored, 5 GHz not-needed"],
    "hidden": ["press: 2.4 GHz hidden, 5 GHz nobody-came"],
    "hostapd-hangs": [
        "press: no-answer",
        "press: 2.4 GHz joined, 5 GHz not-needed; bus-hung",
    ],
    "overlap": ["press: 2.4 GHz overlap, 5 GHz overlap"],
    "push-button": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "script-hangs": ["press: 2.4 GHz script-hung, 5 GHz not-needed"],
    "stock-button": ["press: 2.4 GHz joined"],
    "stock-crash": [
        "press: 2.4 GHz daemon-killed",
        "press: 2.4 GHz joined",
    ],
    "unconfigured": ["press: 2.4 GHz joined, 5 GHz not-needed"],
    "wpa3-only": ["press: 2.4 GHz wpa3-only, 5 GHz not-needed"],
    "wrong-key": ["press: 2.4 GHz wrong-key, 5 GHz not-needed"],
    "wrong-pin": ["PIN: 2.4 GHz wrong-pin, 5 GHz nobody-came"],
}

# What `logread` shows of them on a stock router.
LOGREADS = {
    "stock-button": ["press: 2.4 GHz joined"],
    "stock-button-24.10": ["press: 2.4 GHz joined"],
    "stock-crash": [
        "press: 2.4 GHz daemon-killed",
        "press: 2.4 GHz joined",
    ],
    "stock-guest": ["press: 2.4 GHz joined"],
    "stock-hidden": ["request: 2.4 GHz hidden"],
    "stock-led": ["press: 2.4 GHz joined"],
    "stock-no-wps": ["request: no-wps"],
    "stock-pin": ["PIN: 2.4 GHz joined"],
    "stock-radio-off": [],
    "stock-reload": [
        "press: 2.4 GHz wifi-restarted",
        "press: 2.4 GHz joined",
    ],
    "stock-repeater": ["press: 2.4 GHz learnt"],
    "stock-web": [
        "press: 2.4 GHz cancelled",
        "press: 2.4 GHz joined",
    ],
    "stock-without-kelm": [],
    "stock-wpa3-only": ["request: 2.4 GHz wpa3-only"],
}
