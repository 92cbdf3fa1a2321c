# SPDX-License-Identifier: ISC
"""The sentence that a scenario ends with is put together from what was seen, and nothing else."""

import pytest

from router import scenarios, sentences
from router.machine import Event

PRESS = 'bus { "gpio": {"type":"wps","pressed":1} }'
STARTED = 'bus { "wps": {"action":1,"2g_status":11,"5g_status":11,"5g2_status":0} }'
STOPPED = 'bus { "wps": {"action":2,"2g_status":12,"5g_status":12,"5g2_status":0} }'
TIMED_OUT = 'bus { "wps": {"action":2,"2g_status":4,"5g_status":4,"5g2_status":0} }'
JOINED_2G = 'bus { "wps": {"action":2,"2g_status":2,"5g_status":4,"5g2_status":0} }'
CANCELLED = 'bus { "wps_cli": {"action":2,"method":1} }'
PREDICTS = "console kelm[x:1]: [WPS predict 7] %d percent"
PIN_ENTERED = 'bus { "wps_cli": {"action":1,"method":2,"pin":"12345670"} }'
ASKED = 'bus { "wps_cli": {"action":1,"method":1} }'
WIFI = "demo the owner runs `wifi`: all radios are set up anew"
CUT = "demo the router's power is cut, and comes back"
NAMES = {"client0": "phone", "client1": "tablet"}


def tries(source, interface, ssid, frequency):
    return "%s %s: Trying to associate with 02:00:00:00:01:00 (SSID='%s' freq=%d MHz)" % (
        source, interface, ssid, frequency)


def connected(source, interface):
    return ("%s %s: CTRL-EVENT-CONNECTED - Connection to 02:00:00:00:01:00 completed "
            "[id=0 id_str=]" % (source, interface))


PHONE_TRIES = tries("client0", "sta0", "Elm House", 2412)
PHONE_IS_ON = connected("client0", "sta0")


def told(name, rows, names=None):
    """The sentence of a scenario after events, each a time and the text with its source first."""
    events = [Event(time_s, *text.split(" ", 1)) for time_s, text in rows]
    evidence = sentences.Evidence(events, NAMES if names is None else names)
    return sentences.sentence(scenarios.find(name).told, evidence)


ROWS = [
    ("push-button",
     [(10.0, PRESS), (10.5, STARTED), (12.0, PHONE_TRIES), (12.34, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 2.3 s after the press.'),
    ("push-button",
     [(10.0, PRESS), (10.5, STARTED), (12.0, tries("client0", "sta0", "Oak", 5180)),
      (14.06, PHONE_IS_ON)],
     'The phone joined "Oak" on 5 GHz 4.1 s after the press.'),
    ("push-button", [(10.0, PRESS), (10.5, STARTED), (12.0, PHONE_TRIES)],
     "The phone joined no network."),
    ("push-button",
     [(10.0, PRESS), (10.5, STARTED), (11.0, tries("client1", "sta1", "Oak", 2412)),
      (11.5, connected("client1", "sta1")), (12.0, PHONE_TRIES), (13.0, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 3.0 s after the press.'),
    # A client that was on the network before the press has not joined by it.
    ("push-button", [(1.0, PHONE_TRIES), (2.0, PHONE_IS_ON), (10.0, PRESS), (10.5, STARTED)],
     "The phone joined no network."),
    ("push-button",
     [(1.0, "bus no JSON"), (2.0, "bus [1]"), (3.0, 'bus {"wps": 7}'), (4.0, PHONE_IS_ON)],
     "The phone joined no network."),
    ("push-button", [], "The phone joined no network."),
    # The press that the daemon ignored does not count, the one that it took does.
    ("second-press",
     [(10.0, PRESS), (10.5, STARTED), (11.0, PRESS),
      (11.1, "console kelm[x:1]: WPS is processing, ignore button press"), (12.0, PHONE_TRIES),
      (13.0, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 3.0 s after the press; '
     'the second press, during the attempt, changed nothing.'),
    ("second-press",
     [(10.0, PRESS), (10.5, STARTED), (12.0, PHONE_TRIES), (13.0, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 3.0 s after the press.'),
    ("client-pin",
     [(10.0, PIN_ENTERED), (10.5, STARTED), (12.0, tries("client0", "sta0", "Elm House", 2412)),
      (20.0, PHONE_IS_ON)],
     'The printer joined "Elm House" on 2.4 GHz 10.0 s after its PIN was entered.',
     {"client0": "printer"}),
    ("nobody-comes",
     [(10.0, PRESS), (10.5, STARTED),
      (11.0, "demo moves the router's clock forward by 110 seconds"),
      (14.0, "demo moves the router's clock forward by 15 seconds"), (16.0, STOPPED),
      (16.5, TIMED_OUT)],
     "Nobody came; the daemon gave up 131.5 s after the press by the router's clock, which was "
     "moved."),
    ("nobody-comes",
     [(10.0, PRESS), (10.5, STARTED), (135.2, "console kelm[x:1]: wps Timeout"),
      (137.0, TIMED_OUT)],
     "Nobody came; the daemon gave up 125.2 s after the press."),
    ("nobody-comes", [(10.0, PRESS), (10.5, STARTED), (130.25, TIMED_OUT)],
     "Nobody came; the daemon gave up 120.2 s after the press."),
    ("nobody-comes",
     [(10.0, PRESS), (10.5, STARTED), (12.0, PHONE_TRIES), (13.0, PHONE_IS_ON), (14.0, TIMED_OUT)],
     'Somebody joined "Elm House" on 2.4 GHz.'),
    ("nobody-comes", [(10.0, PRESS), (10.5, STARTED), (12.0, STOPPED)],
     "The daemon told no result."),
    ("nobody-comes", [], "The daemon told no result."),
    ("overlap",
     [(10.0, PRESS), (10.5, STARTED), (11.0, "client0 sta0: WPS-PBC-ACTIVE"),
      (11.0, "client1 sta1: WPS-PBC-ACTIVE"), (12.0, "hostapd wlan1: WPS-OVERLAP-DETECTED"),
      (13.0, TIMED_OUT)],
     "The phone and the tablet were pushed at the same time and nobody joined; the daemon gave up "
     "3.0 s after the press."),
    ("overlap", [(10.0, PRESS), (10.5, STARTED), (13.0, TIMED_OUT)], "No overlap was seen."),
    ("cancel",
     [(10.0, PRESS), (10.5, STARTED), (11.5, CANCELLED), (12.0, STOPPED),
      (13.0, "client0 sta0: WPS-PBC-ACTIVE")],
     "The web page cancelled the attempt 1.5 s after the press; the phone, pushed 3.0 s after the "
     "press, was too late and joined nothing."),
    ("cancel", [(10.0, PRESS), (10.5, STARTED)], "Nobody cancelled the attempt."),
    ("cancel", [(13.0, "client0 sta0: WPS-PBC-ACTIVE")],
     "Nobody cancelled the attempt."),
    ("press-cancel-press",
     [(10.0, PRESS), (10.5, STARTED), (11.5, CANCELLED), (12.0, STOPPED), (20.0, PRESS),
      (20.5, STARTED), (21.0, PHONE_TRIES), (22.0, PHONE_IS_ON)],
     "The web page cancelled the attempt 1.5 s after the press; the phone joined \"Elm House\" on "
     "2.4 GHz 2.0 s after the next press."),
    ("terminated",
     [(10.0, PRESS), (10.5, STARTED), (11.0, "demo sends SIGTERM to the daemon"),
      (12.5, "exit 1 daemon 99 status 0")],
     "The daemon was asked to end 1.0 s after the press: it stopped the attempt and ended with "
     "status 0 1.5 s later; nobody joined."),
    ("terminated", [(10.0, PRESS), (10.5, STARTED)], "The daemon did not end; nobody joined."),
    ("no-broker",
     [(10.0, PRESS), (20.0, PRESS), (20.5, STARTED), (21.0, PHONE_TRIES), (22.0, PHONE_IS_ON)],
     "Without the bus at its start the daemon did not hear the first press; the phone joined "
     "\"Elm House\" on 2.4 GHz 2.0 s after the next press."),
    ("access-point-pin",
     [(10.0, "hostapd wlan1: WPS-NEW-AP-SETTINGS 10"),
      (12.0, tries("client0", "sta0", "New", 2412)), (13.0, PHONE_IS_ON)],
     'The laptop gave the router new settings and joined "New" on 2.4 GHz 3.0 s later.',
     {"client0": "laptop"}),
    ("neighbour",
     [(10.0, PRESS), (10.5, STARTED), (11.0, PHONE_TRIES), (12.0, PHONE_IS_ON),
      (13.0, "client1 sta1: WPS-CRED-RECEIVED ")],
     'The phone joined "Elm House" on 2.4 GHz 2.0 s after the press; the neighbour got in as well.',
     {"client0": "phone", "client1": "neighbour"}),
    ("repeater",
     [(10.0, PRESS), (10.5, STARTED), (11.0, tries("station", "wlan0-vxd", "Oak", 5180)),
      (11.5, tries("station", "wlan1-vxd", "Oak", 2412)), (12.0, connected("station", "wlan0-vxd")),
      (14.0, connected("station", "wlan1-vxd"))],
     'The router joined "Oak" on 2.4 GHz and 5 GHz 4.0 s after the press.'),
    ("repeater-near",
     [(10.0, PRESS), (10.5, STARTED), (11.0, tries("station", "wlan0-vxd", "Oak 5", 5180)),
      (11.5, tries("station", "wlan1-vxd", "Oak", 2412)), (12.0, connected("station", "wlan0-vxd")),
      (12.1, "station wlan1-vxd: WPS-SUCCESS "),
      (12.2, "console kelm[x:1]: patching wpsCfg[band 1] with rootAP Oak 5"),
      (14.0, connected("station", "wlan1-vxd"))],
     'The router joined "Oak" on 2.4 GHz and "Oak 5" on 5 GHz 4.0 s after the press; only 2.4 GHz '
     'enrolled; 5 GHz was given the same key.'),
    ("repeater", [(10.0, PRESS), (10.5, STARTED)], "The router joined no root."),
    ("repeater-silent", [(1.0, PREDICTS % 90), (2.0, PREDICTS % 45), (3.0, PREDICTS % 10)],
     "The router joined no root; the estimate of the silent band fell from 90 to 10 percent."),
    ("repeater-silent", [(1.0, PREDICTS % 10), (2.0, PREDICTS % 90)], "The router joined no root."),
    ("repeater-silent", [(1.0, PREDICTS % 10)], "The router joined no root."),
    ("repeater-overlap",
     [(1.0, "root0 root0-2g: WPS-PBC-ACTIVE "), (2.0, "root1 root1-2g: WPS-PBC-ACTIVE "),
      (10.0, PRESS), (10.5, STARTED), (12.0, "station wlan1-vxd: WPS-OVERLAP-DETECTED "),
      (13.5, TIMED_OUT)],
     "2 root access points were pushed at the same time and nobody joined; the daemon gave up "
     "3.5 s after the press.", {}),
    # Without kelm the press alone is the start.
    ("stock-without-kelm",
     [(10.0, "button wps released 1"), (12.0, PHONE_TRIES), (12.5, PHONE_IS_ON),
      (20.0, WIFI), (40.0, CUT)],
     'The phone joined "Elm House" on 2.4 GHz 2.5 s after the press; it could not come back after '
     '`wifi` and the reboot.'),
    # With kelm a script asks for the button; the press is the start all the same.
    ("stock-button",
     [(9.9, "button wps pressed 60"), (10.0, "button wps released 1"), (11.0, ASKED),
      (11.5, STARTED), (12.0, PHONE_TRIES), (12.5, PHONE_IS_ON), (20.0, WIFI), (22.0, PHONE_TRIES),
      (23.0, PHONE_IS_ON), (40.0, CUT), (42.0, PHONE_TRIES), (43.0, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 2.5 s after the press; it came back after `wifi` and '
     'the reboot.'),
    ("stock-button",
     [(10.0, "button wps released 1"), (11.0, ASKED), (11.5, STARTED), (12.0, PHONE_TRIES),
      (12.5, PHONE_IS_ON), (20.0, WIFI), (22.0, PHONE_TRIES), (23.0, PHONE_IS_ON), (40.0, CUT)],
     'The phone joined "Elm House" on 2.4 GHz 2.5 s after the press; it came back after `wifi` and '
     'it could not come back after the reboot.'),
    # The script asks again when the daemon does not begin at once.
    ("stock-guest",
     [(10.0, "button wps released 1"), (11.0, ASKED), (12.0, ASKED), (12.5, STARTED),
      (13.0, PHONE_TRIES), (13.5, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 3.5 s after the press.'),
    # A request of a page's own, long after an older press, is no press.
    ("stock-guest",
     [(10.0, "button wps released 1"), (11.0, ASKED), (11.5, STARTED), (30.0, ASKED),
      (30.5, STARTED), (32.0, PHONE_TRIES), (32.5, PHONE_IS_ON)],
     'The phone joined "Elm House" on 2.4 GHz 2.5 s after the request.'),
    ("stock-hidden",
     [(1.0, "log x daemon.notice kelm: kelm is switched off"),
      (2.0, "log x daemon.notice kelm: 2.4 GHz: radio is still starting"),
      (3.0, "log x daemon.notice kelm: 2.4 GHz: the network is hidden"),
      (4.0, "log x daemon.notice kelm: no WPS: 2.4 GHz: the network is open")],
     "Nobody can join; kelm says: 2.4 GHz: the network is hidden."),
    # Nobody came whose PIN it could be.
    ("wrong-pin",
     [(10.0, PIN_ENTERED), (10.5, STARTED),
      (12.0, "client0 sta0: WPS-FAIL msg=8 config_error=18"), (20.0, STOPPED), (21.0, TIMED_OUT)],
     "The printer refused the PIN that was entered; nobody joined; the daemon gave up 11.0 s after "
     "the PIN was entered.", {"client0": "printer"}),
    ("daemon-killed",
     [(10.0, PRESS), (10.5, STARTED), (12.0, "exit 1 daemon 99 signal 9")],
     "The daemon was killed by signal 9; nobody joined."),
    ("wrong-key",
     [(10.0, PRESS), (10.5, STARTED), (12.0, STOPPED), (13.0, JOINED_2G), (14.0, PHONE_TRIES),
      (15.0, PHONE_IS_ON)],
     'The daemon told a success; the phone joined "Elm House" on 2.4 GHz 5.0 s after the press.'),
]


@pytest.mark.parametrize("written, name", [
    ("Elm House", "Elm House"), (r"\xc3\x96ak's \"$(id)\" \\n ~`", "Öak's \"$(id)\" \\n ~`"),
    (r"two\nlines\t", "two\nlines\t"), (r"no \xff UTF-8", r"no \xff UTF-8"), ("", ""),
])
def test_name_in_the_supplicants_writing(written, name):
    assert sentences.as_written(written) == name


@pytest.mark.parametrize("row", ROWS, ids=lambda row: row[0])
def test_sentence_tells_what_was_seen(row):
    name, events, wanted, *names = row
    assert told(name, events, *names) == wanted


@pytest.mark.parametrize("scenario", scenarios.SCENARIOS, ids=lambda row: row.name)
def test_sentence_of_nothing_claims_nothing(scenario):
    text = told(scenario.name, [], {})
    assert text.endswith(".")
    assert " joined \"" not in text
    assert " s after" not in text
