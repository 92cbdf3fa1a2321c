# SPDX-License-Identifier: ISC
"""Listeners that are late by up to two seconds change nothing of an attempt and its cause."""

import expected
import late
import pytest
import recorded

from report.attempts import attempts
from report.events import Event
from report.order import in_order
from report.readers import read

# Sources that the daemon's own log does not tell of, by which kelm-watch is no later.
OTHERS = ("console", "log", "button", "client0", "client1", "root0", "root1")
PAIRED = ("press-cancel-press", "terminated", "stock-pin", "stock-reload", "hostapd-hangs",
          "daemon-killed", "repeater")
SEEDS = range(2)
IN_TIME = {}  # by name, what comes of a recording where nobody is late
# The scenario moves the clock as soon as the button is pressed. Where all who saw the press noted
# it behind that, nobody has the time of day before it, and the walk time cannot be told.
CLOCK_LOST = {"repeater-alone": "nobody-came", "nobody-comes": "nobody-came"}


def told(log):
    return [(one.method, one.cause) for one in attempts(log)]


def of_run(lines, folder):
    recorded.write_lines(folder / "events.log", ["%.2f %s %s" % line for line in lines])
    return told(read(folder))


def of_recording(name, lines, folder, monkeypatch):
    """The same by what kelm-watch would have recorded."""
    with monkeypatch.context() as patch:
        patch.setattr(recorded, "run_lines", lambda _name: iter(lines))
        path = recorded.write_lines(folder / "it.jsonl", recorded.as_recording(name))
    return told(read(path))


def wanted_of_run(name):
    return [(method, cause) for method, _, cause, *_ in expected.RUNS[name]]


def check(name, lines, folder, monkeypatch, what):
    """what: the delays, for whoever reads the failure."""
    assert (what, of_run(lines, folder)) == (what, wanted_of_run(name))
    recording = of_recording(name, lines, folder, monkeypatch)
    if name not in IN_TIME:
        IN_TIME[name] = of_recording(name, list(recorded.run_lines(name)), folder, monkeypatch)
    assert (what, recording) == (what, IN_TIME[name])


@pytest.mark.parametrize("name", recorded.NAMES)
def test_one_late_source(name, tmp_path, monkeypatch):
    for source in late.sources(name):
        for delay_s in late.DELAYS:
            delays = {source: delay_s}
            lines = late.by_source(name, delays)
            if source in OTHERS:
                assert (delays, of_run(lines, tmp_path)) == (delays, wanted_of_run(name))
            else:
                check(name, lines, tmp_path, monkeypatch, delays)


@pytest.mark.parametrize("name", PAIRED)
def test_two_late_sources(name, tmp_path, monkeypatch):
    for one in late.sources(name):
        for other in late.sources(name):
            if one != other:
                delays = {one: 2.0, other: 0.7}
                check(name, late.by_source(name, delays), tmp_path, monkeypatch, delays)


@pytest.mark.parametrize("name", recorded.NAMES)
def test_each_line_late_by_its_own_time(name, tmp_path, monkeypatch):
    for seed in SEEDS:
        lines = late.at_random(name, seed)
        assert (seed, of_run(lines, tmp_path)) == (seed, wanted_of_run(name))
        if name not in CLOCK_LOST:
            check(name, lines, tmp_path, monkeypatch, seed)
            continue
        found = of_recording(name, lines, tmp_path, monkeypatch)
        assert found in ([("press", CLOCK_LOST[name])], [("press", "unknown")]), seed


# --- The order itself ---

PRESS = '{ "gpio": {"type":"wps","pressed":1} }'
START = '"action":1,"2g_status":11,"5g_status":11,"5g2_status":0'
BUS_START = '{ "wps": {%s} }' % START
SEND = "1 ubus send wps '{%s}'" % START
PUSH = "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc"
STOP = "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_cancel"
MESSAGE = 'kelm[wps_ubus_gpio_cb:86]: Message: {"type":"wps","pressed":1}'
CLOSED = "kelm[f:1]: WPS is processing, close it anyway."

# name: (lines as they were noted, the same in order and with their true times)
ORDERS = {
    "in step": ([(1.0, "bus", PRESS), (1.2, "command", SEND), (1.3, "bus", BUS_START)], None),
    "a late bus": (
        [(1.0, "command", SEND), (1.2, "command", PUSH), (3.0, "bus", PRESS),
         (3.1, "bus", BUS_START)],
        [(1.0, "bus", PRESS), (1.0, "command", SEND), (1.2, "bus", BUS_START),
         (1.2, "command", PUSH)]),
    "too late to be the same": (
        [(1.0, "command", SEND), (1.2, "command", PUSH), (3.8, "bus", BUS_START)], None),
    "a late line takes those before it along": (
        [(1.0, "console", MESSAGE), (1.5, "bus", '{ "other": {} }'), (1.6, "bus", PRESS)],
        [(1.0, "bus", '{ "other": {} }'), (1.0, "bus", PRESS), (1.0, "console", MESSAGE)]),
    "what had been said before a request was taken": (
        [(1.0, "bus", PRESS), (1.4, "console", "kelm[f:1]: Rebuild worker socket failed."),
         (1.5, "console", MESSAGE)],
        [(1.0, "console", "kelm[f:1]: Rebuild worker socket failed."), (1.0, "bus", PRESS),
         (1.5, "console", MESSAGE)]),
    "a failure before the daemon stopped": (
        [(1.0, "command", STOP), (2.0, "hostapd", "wlan1: WPS-FAIL msg=8 config_error=18"),
         (2.1, "hostapd", "wlan1: WPS-CANCEL")],
        [(1.0, "hostapd", "wlan1: WPS-FAIL msg=8 config_error=18"), (1.0, "command", STOP),
         (2.1, "hostapd", "wlan1: WPS-CANCEL")]),
    "a daemon's commands, and its end": (
        [(1.0, "exit", "1 daemon 283 status 0"), (1.1, "start", "2 daemon 300"),
         (2.0, "command", STOP)],
        [(1.0, "command", STOP), (1.0, "exit", "1 daemon 283 status 0"),
         (1.1, "start", "2 daemon 300")]),
    "a daemon's last words": (
        [(1.0, "console", "kelm[wps_exec_cmd:1]: " + STOP[2:]), (1.1, "command", STOP),
         (1.2, "exit", "1 daemon 283 status 0"), (2.0, "console", CLOSED)],
        [(1.0, "console", "kelm[wps_exec_cmd:1]: " + STOP[2:]), (1.1, "command", STOP),
         (1.2, "console", CLOSED), (1.2, "exit", "1 daemon 283 status 0")]),
    "a daemon that ends late": (
        [(1.0, "start", "2 daemon 300"), (2.0, "exit", "1 daemon 283 status 0")],
        [(1.0, "exit", "1 daemon 283 status 0"), (1.0, "start", "2 daemon 300")]),
    "a second daemon that finds the first one running": (
        [(1.0, "start", "2 daemon 300"), (1.1, "exit", "2 daemon 300 status 255"),
         (2.0, "exit", "1 daemon 283 status 0")], None),
}


@pytest.mark.parametrize("name", ORDERS)
def test_order(name):
    noted, wanted = ORDERS[name]
    # The band is that of the interface; the other lines have none.
    events = [Event(time_s, source, "2.4 GHz" if "wlan1" in text else "", text, number)
              for number, (time_s, source, text) in enumerate(noted, 1)]
    assert [(one.time_s, one.source, one.text) for one in in_order(events)] == (wanted or noted)


def test_lines_without_times_stay_as_they_are():
    events = [Event(None, "console", "", MESSAGE), Event(None, "bus", "", PRESS)]
    assert in_order(events) == events


# --- Requests that the scripts of stock OpenWrt send again, as they do not see in time that an
# attempt has begun ---

ASKED = ("bus", '{ "wps_cli": {"action":1,"method":1} }')
ASKED_PIN = ("bus", '{ "wps_cli": {"action":1,"method":2,"pin":"[8 bytes]"} }')
OVER = [(11.0, "bus", BUS_START), (18.0, "bus", BUS_START.replace("1,", "2,", 1).replace(
    '"2g_status":11,"5g_status":11', '"2g_status":2,"5g_status":4'))]
REFUSED = ("log", "Nov 22 12:14:21 (none) daemon.notice kelm: no WPS: the daemon did not begin")

REPEATS = {
    "a press": ([(10.0, *ASKED)] + OVER + [(18.7, *ASKED)], ["joined"]),
    "a PIN": ([(10.0, *ASKED_PIN)] + OVER + [(18.7, *ASKED_PIN)], ["joined"]),
    "again and again": ([(10.0, *ASKED)] + OVER + [(19.0, *ASKED), (29.0, *ASKED)], ["joined"]),
    "more often than they do": (
        [(10.0, *ASKED)] + OVER + [(19.0 + number, *ASKED) for number in range(7)],
        ["joined", "still-running"]),
    "long after": ([(10.0, *ASKED)] + OVER + [(31.0, *ASKED)], ["joined", "still-running"]),
    "their complaint about what was served": (
        [(10.0, *ASKED)] + OVER + [(18.7, *ASKED), (20.0, *REFUSED)], ["joined"]),
    "a refusal long after": (
        [(10.0, *ASKED)] + OVER + [(18.7, *ASKED), (50.0, *REFUSED)], ["joined", "no-answer"]),
}


@pytest.mark.parametrize("name", REPEATS)
def test_requests_that_are_sent_again(name, tmp_path):
    lines, wanted = REPEATS[name]
    recorded.write_lines(tmp_path / "events.log", ["%.2f %s %s" % line for line in lines])
    assert [one.cause for one in attempts(read(tmp_path))] == wanted
