# SPDX-License-Identifier: ISC
"""Which lane a line stands in, what its mark tells, and what lasted how long."""

import re
from pathlib import Path

import pytest
from pages import attempt_of, log_of

from report import lanes
from report.events import Event, Log, Verdict

ROOT = Path(__file__).resolve().parents[2]


def event(source, text, band="", iface=""):
    return Event(1.0, source, band, text, 1, "", iface)


@pytest.mark.parametrize("found, expected", [
    (event("bus", '{ "gpio": {"type":"wps","pressed":1} }'), "button"),
    (event("bus", '{ "wps_cli": {"action":1,"method":1} }'), "button"),
    (event("bus", '{ "wps": {"action":1} }'), "daemon"),
    (event("bus", '{ "wifi": {} }'), "scripts"),
    (event("bus", "no JSON"), "other"),
    (event("button", "wps pressed 60"), "button"),
    (event("command", "1 killall wpa_cli"), "daemon"),
    (event("script", "1 /etc/init.d/wps restart"), "scripts"),
    (event("exit", "1 daemon 284 status 0"), "daemon"),
    (event("start", "1 daemon 284"), "daemon"),
    (event("console", "kelm[main:51]: kelm 0.9.0"), "daemon"),
    (event("log", "Nov 22 12:11:16 (none) daemon.notice kelm: ready on 2.4 GHz"), "daemon"),
    (event("hostapd", "wlan1: AP-ENABLED", "2.4 GHz", "wlan1"), "hostapd-24g"),
    (event("hostapd", "wlan0: AP-ENABLED", "5 GHz", "wlan0"), "hostapd-5g"),
    (event("hostapd", "phy0-ap1: AP-ENABLED", "", "phy0-ap1"), "hostapd-phy0-ap1"),
    (event("hostapd", "nl80211: deinit ifname=wlan1", "", "nl80211"), "hostapd"),
    (event("hostapd", "Configuration file: x"), "hostapd"),
    (event("station", "wlan0-vxd: WPS-SUCCESS", "5 GHz", "wlan0-vxd"), "station-5g"),
    (event("socket", "hostapd wlan1 gone", "2.4 GHz", "wlan1"), "hostapd-24g"),
    (event("socket", "wpa_supplicant wlan1-vxd gone", "2.4 GHz", "wlan1-vxd"), "station-24g"),
    (event("socket", "bus gone"), "daemon"),
    (event("settings", "2.4 GHz: enabled, hidden"), "settings"),
    (event("client0", "sta0: WPS-SUCCESS"), "client0"),
    (event("root12", "root12-2g: AP-ENABLED"), "root12"),
    (event("file", "/tmp/wps_result 1"), "files"),
    (event("demo", "kills hostapd"), "scenario"),
    (event("watch", "started"), "watch"),
    (event("client", "a name without a number"), "other"),
    (event("<b>", "anything"), "other"),
])
def test_the_lane_of_a_line(found, expected):
    assert lanes.lane_id(found) == expected


@pytest.mark.parametrize("name, expected", [
    ("button", "Button"), ("daemon", "kelm"), ("hostapd-24g", "hostapd 2.4 GHz"),
    ("station-6g", "station 6 GHz"), ("hostapd-phy0-ap1", "hostapd phy0-ap1"),
    ("hostapd", "hostapd"), ("client0", "Phone"), ("client1", "Client 2"), ("root0", "Root 1"),
    ("scripts", "Scripts"), ("scenario", "The scenario")])
def test_the_title_of_a_lane(name, expected):
    assert lanes.lane_title(name, Log(names={"client0": "phone"})) == expected


@pytest.mark.parametrize("found, expected", [
    (event("bus", '{ "gpio": {"type":"wps","pressed":1} }'), "press"),
    (event("button", "wps pressed 60"), "press"),
    (event("button", "wps released 1"), "note"),
    (event("hostapd", "wlan1: WPS-PBC-ACTIVE "), "begin"),
    (event("hostapd", "wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00 x"), "good"),
    (event("hostapd", "wlan1: WPS-OVERLAP-DETECTED "), "bad"),
    (event("hostapd", "wlan1: WPS-FAIL msg=4 config_error=12"), "bad"),
    (event("hostapd", "wlan1: WPS-TIMEOUT "), "end"),
    (event("station", "wlan1-vxd: WPS-TIMEOUT "), "bad"),
    (event("client0", "sta0: CTRL-EVENT-DISCONNECTED bssid=02:00:00:00:01:00 reason=3"), "end"),
    (event("client0", "sta0: CTRL-EVENT-SSID-TEMP-DISABLED id=0 reason=WRONG_KEY"), "bad"),
    (event("command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc"), "begin"),
    (event("command", "1 wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd wps_cancel"), "end"),
    (event("command", "1 killall wpa_cli"), "note"),
    (event("exit", "1 daemon 284 status 0"), "end"),
    (event("exit", "1 daemon 284 status 1"), "bad"),
    (event("exit", "1 daemon 284 signal 9"), "bad"),
    (event("console", "kelm[wps_session_maintain:176]: wps Timeout, stop sessions[1 - 2]"), "bad"),
    (event("bus", '{ "wps": {"action":1,"2g_status":11,"5g_status":11} }'), "begin"),
    (event("bus", '{ "wps": {"action":2,"2g_status":12,"5g_status":12} }'), "end"),
    (event("bus", '{ "wps": {"action":2,"2g_status":2,"5g_status":4} }'), "good"),
    (event("bus", '{ "wps": {"action":2,"2g_status":4,"5g_status":4} }'), "bad"),
    (event("bus", '{ "wps": {"action":2,"2g_status":8,"5g_status":0} }'), "bad"),
    (event("bus", '{ "wps": [1] }'), "note"),
    (event("bus", '{ "wps": {"2g_status":[]} }'), "note"),
    # What a neighbour can call himself.
    (event("hostapd", "wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:02:00 [x: WPS-REG-SUCCESS y]"), "note"),
    (event("hostapd", "wlan1: WPS-PIN-NEEDED u 02:00:00:00:02:00 [WPS-OVERLAP-DETECTED]"), "note"),
    (event("client0", "sta0: SME: Trying (SSID='sta0: WPS-SUCCESS')"), "note"),
    (event("demo", "hostapd: WPS-FAIL"), "note"),
    (event("console", "kelm[x:1]: name kelm[y:2]: wps Timeout"), "note"),
    (event("log", "Nov 22 (none) daemon.info kelm[863]: kelm[y:2]: wps Timeout, stop"), "bad"),
])
def test_the_kind_of_a_mark(found, expected):
    assert lanes.kind_of(found) == expected


def picture(rows, **members):
    log = log_of(rows)
    return lanes.lanes(log, attempt_of(log, **members))


def lane(found, name):
    return next(one for one in found.lanes if one.id == name)


def test_the_limit_of_the_estimate_is_the_daemons():
    text = (ROOT / "wlan/predict.h").read_text(encoding="utf-8")
    assert lanes.LIMIT_PERCENT == int(re.search(r"PREDICT_GIVE_UP_PERCENT = (\d+);", text).group(1))


def test_the_estimate_is_a_curve_and_no_mark():
    line = "kelm[get_wps_predict_score:129]: ****[WPS predict 1795349573] %d percent ****"
    found = picture([(5.0, "bus", '{ "gpio": {} }'), (6.0, "console", line % 42),
                     (7.5, "console", line % 14),
                     (8.0, "console", "kelm[x:1]: [WPS predict 1] 99 percent")])
    assert [point[:2] for point in found.curve.points] == [(1.0, 42), (2.5, 14)]
    assert found.curve.limit == 15
    assert not any("42" in mark.words for one in found.lanes for mark in one.marks)


def test_an_attempt_without_an_estimate_has_no_curve():
    assert picture([(5.0, "bus", '{ "gpio": {} }')]).curve is None


def test_a_command_lasts_until_its_end_was_seen():
    found = picture([(1.0, "command", "1 killall wpa_cli"),
                     (1.2, "hostapd", "wlan1: WPS-PBC-ACTIVE", "2.4 GHz"),
                     (3.5, "exit", "1 command 99 status 0 killall wpa_cli")])
    assert [(one.begin_s, one.end_s, one.words) for one in lane(found, "daemon").spans] == [
        (0.0, 2.5, "runs killall wpa_cli for 2.50 s")]


def test_a_command_lasts_until_it_is_killed():
    found = picture([(1.0, "command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc"),
                     (11.0, "exit", "1 command 99 signal 9 hostapd_cli -p /var/run/hostapd "
                                    "-i wlan1 wps_pbc")])
    assert [(one.begin_s, one.end_s, one.words) for one in lane(found, "daemon").spans] == [
        (0.0, 10.0, "runs hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc for 10.00 s, then is "
                    "killed by signal 9")]


def test_a_command_lasts_at_most_until_the_daemon_goes_on():
    found = picture([(1.0, "script", "1 /usr/bin/wifi scan 2g"),
                     (1.5, "console", "kelm[wps_ubus_gpio_cb:86]: Message: {}"),
                     (4.0, "console", "kelm[main:51]: next")])
    assert [(one.begin_s, one.end_s, one.words) for one in lane(found, "scripts").spans] == [
        (0.0, 3.0, "runs /usr/bin/wifi scan 2g for at most 3.00 s")]


@pytest.mark.parametrize("rows", [
    [(1.0, "command", "1 killall wpa_cli"), (9.0, "command", "1 nvram get x")],
    [(1.0, "command", "0 killall wpa_cli"), (9.0, "console", "kelm[main:51]: next")],
    [(1.0, "command", "1 killall wpa_cli"), (1.0, "console", "kelm[main:51]: next")],
])
def test_how_long_a_command_took_is_not_guessed(rows):
    assert lane(picture(rows), "daemon").spans == []


def test_the_walk_time_is_a_span_of_the_daemon():
    found = picture([(1.0, "bus", '{ "gpio": {} }'), (9.0, "start", "1 daemon 2")],
                    walk_s=(2.0, 8.5))
    assert [(one.kind, one.begin_s, one.end_s) for one in lane(found, "daemon").spans] == [
        ("walk", 1.0, 7.5)]


@pytest.mark.parametrize("last, end_s", [
    ("wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00", 3.0), ("wlan1: WPS-OVERLAP-DETECTED", 3.0),
    ("wlan1: WPS-TIMEOUT", 3.0), ("wlan1: AP-ENABLED", 3.0),
    ("wlan0: WPS-TIMEOUT", 4.0), ("wlan1: WPS-PIN-NEEDED x [WPS-TIMEOUT]", 4.0)])
def test_a_program_waits_until_its_peer_came_or_it_stops(last, end_s):
    found = picture([(1.0, "hostapd", "wlan1: WPS-PBC-ACTIVE", "2.4 GHz"),
                     (4.0, "hostapd", last, "2.4 GHz"), (5.0, "watch", "stopped")])
    assert [(one.begin_s, one.end_s) for one in lane(found, "hostapd-24g").spans] == [(0.0, end_s)]


def test_what_is_said_twice_at_once_is_one_mark():
    found = picture([(1.0, "hostapd", "wlan1: WPS-OVERLAP-DETECTED", "2.4 GHz"),
                     (1.1, "hostapd", "wlan1: WPS-OVERLAP-DETECTED", "2.4 GHz"),
                     (4.0, "hostapd", "wlan1: WPS-OVERLAP-DETECTED", "2.4 GHz")])
    assert [len(mark.more) for mark in lane(found, "hostapd-24g").marks] == [1, 0]


def test_every_press_has_its_mark():
    found = picture([(1.0, "bus", '{ "gpio": {"pressed":1} }')] * 2)
    assert len(lane(found, "button").marks) == 2


def test_a_mark_of_the_daemon_names_its_band():
    found = picture([(1.0, "command", "1 hostapd_cli -i wlan1 wps_pbc", "2.4 GHz"),
                     (1.1, "command", "1 hostapd_cli -i wlan0 wps_pbc", "5 GHz")])
    assert [mark.words for mark in lane(found, "daemon").marks] == [
        "2.4 GHz: starts the push-button method", "5 GHz: starts the push-button method"]


@pytest.mark.parametrize("asked_s, words", [
    (3.0, "the button's script asks: start push-button"),
    (40.0, "the web page asks: start push-button")])
def test_who_asks_is_told_apart_by_the_button(asked_s, words):
    found = picture([(1.0, "button", "wps pressed 60"),
                     (asked_s, "bus", '{ "wps_cli": {"action":1,"method":1} }')])
    assert lane(found, "button").marks[-1].words == words


def test_what_a_verdict_rests_on_has_a_mark_without_words():
    log = log_of([(1.0, "button", "wps pressed 60"),
                  (2.0, "log", "x kelm: no WPS: 2.4 GHz: the network is hidden")])
    verdict = Verdict("2.4 GHz", "hidden", False, "hidden", "", [log.events[1]])
    found = lanes.lanes(log, attempt_of(log, bands={"2.4 GHz": verdict}))
    assert [(mark.kind, mark.time_s) for mark in lane(found, "daemon").marks] == [("bad", 1.0)]


def test_without_times_the_order_is_the_axis():
    found = picture([(None, "bus", '{ "gpio": {} }'), (None, "console", "kelm[main:51]: x"),
                     (None, "start", "1 daemon 2"), (None, "exit", "1 daemon 2 status 0")])
    assert not found.has_times
    assert [mark.time_s for one in found.lanes for mark in one.marks] == [0.0, 2.0, 3.0]
