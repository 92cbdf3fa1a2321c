# SPDX-License-Identifier: ISC
"""Recordings and run folders, cut, broken and hostile: what is read, what is told of the rest."""

import json
import os

import pytest
import recorded

from report import readers
from report.readers import ReadError, read


def lines_of(path):
    return [(event.time_s, event.source, event.band, event.text) for event in read(path).events]


def recording(tmp_path, *lines, end="\n"):
    path = tmp_path / "it.jsonl"
    path.write_bytes(b"\n".join(line if isinstance(line, bytes) else line.encode()
                                for line in lines) + end.encode())
    return path


ACTIVE = recorded.row(1.25, "hostapd", "wlan1: WPS-PBC-ACTIVE", "2.4 GHz", iface="wlan1")


def test_a_recording(tmp_path):
    log = read(recording(tmp_path, recorded.header(anonymous=True), ACTIVE))
    assert (log.kind, log.has_times, log.trouble, log.anonymous, log.program) == (
        "recording", True, [], True, "kelm-watch 0.9.0")
    event, = log.events
    assert (event.time_s, event.source, event.band, event.text, event.iface, event.number) == (
        1.25, "hostapd", "2.4 GHz", "wlan1: WPS-PBC-ACTIVE", "wlan1", 2)
    assert event.wall == "2026-11-22T12:00:00.000Z"


@pytest.mark.parametrize("text, reason", [
    ('{"recording":"kelm","version":2,"ms":0}', "it.jsonl is a recording of version 2; "
                                                "this program reads version 1"),
    ('{"recording":"kelm","version":"1"}', 'it.jsonl is a recording of version "1"; '
                                           "this program reads version 1"),
    ('{"recording":"kelm","version":true}', "it.jsonl is a recording of version true; "
                                            "this program reads version 1"),
    ('{"recording":"kelm"}', "it.jsonl is a recording of version null; "
                             "this program reads version 1"),
    ('{"recording":"other","version":1}', "it.jsonl is a recording of another program"),
])
def test_a_recording_that_is_not_read(tmp_path, text, reason):
    with pytest.raises(ReadError) as error:
        read(recording(tmp_path, text))
    assert str(error.value).endswith(reason)


@pytest.mark.parametrize("broken", [
    "", "no JSON", "[]", "1", "{", '"text"', '{"ms":1}', b"\xff\xfe",
    '{"ms":"1","source":"bus","text":""}', '{"ms":true,"source":"bus","text":""}',
    '{"ms":NaN,"source":"bus","text":""}', '{"ms":1e999,"source":"bus","text":""}',
    '{"ms":1' + "0" * 400 + ',"source":"bus","text":""}', '{"ms":' + "9" * 5000 + "}",
    '{"ms":1,"source":"Bus!","text":""}', '{"ms":1,"source":5,"text":""}',
    '{"ms":1,"source":"bus","text":null}', "[" * 100000, "x" * 100000,
], ids=range(19))
def test_a_broken_line_is_left_out_and_told(tmp_path, broken):
    log = read(recording(tmp_path, recorded.header(), broken, ACTIVE))
    assert [event.text for event in log.events] == ["wlan1: WPS-PBC-ACTIVE"]
    assert log.trouble == ([] if not broken else
                           ["1 line could not be read; the first of them is line 2."])


@pytest.mark.parametrize("text, shown", [
    (r"wlan1: \ud800", "wlan1: [3 bytes]"),
    (r"wlan1: WPS-WHAT-IS-THIS \udfff", "wlan1: WPS-WHAT-IS-THIS [3 bytes]"),
    (r"wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:02:00 u t 0x0 4 1 [\ud83dx]",
     "wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:02:00 u t 0x0 4 1 [\\ud83dx]"),
])
def test_half_a_pair_is_no_reason_to_stop(tmp_path, text, shown):
    row = '{"ms":1,"source":"hostapd","text":"%s"}' % text
    assert [one[3] for one in lines_of(recording(tmp_path, recorded.header(), row))] == [shown]


def test_broken_lines_are_counted(tmp_path):
    log = read(recording(tmp_path, recorded.header(), ACTIVE, "a", ACTIVE, "b"))
    assert log.trouble == ["2 lines could not be read; the first of them is line 3."]


def test_the_last_line_without_its_end_is_left_out(tmp_path):
    log = read(recording(tmp_path, recorded.header(), ACTIVE, ACTIVE, end=""))
    assert len(log.events) == 1
    assert log.trouble == ["The last line is cut and left out."]


@pytest.mark.parametrize("second_header", [True, False])
def test_two_boots_in_one_recording(tmp_path, second_header):
    """The clock begins anew; times go on, and no attempt goes on behind it."""
    more = [recorded.header(ms=5)] if second_header else []
    log = read(recording(tmp_path, recorded.header(), recorded.row(50, "bus", "{}"), *more,
                         recorded.row(0.5, "bus", "{}")))
    times = [event.time_s for event in log.events]
    assert times == sorted(times) and times[-1] >= 50
    assert [event.source for event in log.events] == ["bus", "boot", "bus"]
    assert log.trouble == ["Line 3: the clock begins anew; the router was restarted."]


def test_lines_that_are_a_little_late_are_no_restart(tmp_path):
    log = read(recording(tmp_path, recorded.header(), recorded.row(5, "bus", "{}"),
                         recorded.row(4.5, "bus", "{}")))
    assert [event.source for event in log.events] == ["bus", "bus"] and log.trouble == []


def test_more_bytes_than_are_read(tmp_path, monkeypatch):
    path = recording(tmp_path, recorded.header(), ACTIVE, ACTIVE)
    size = path.stat().st_size
    monkeypatch.setattr(readers, "MOST_BYTES", size - 10)
    log = read(path)
    assert len(log.events) == 1
    assert log.trouble == ["The last line is cut and left out.",
                           "The input is longer than 0 MiB; the rest is left out."]


@pytest.mark.parametrize("text, shown", [
    ("wlan1: \x1b[31mWPS", r"\x1b"), ("a\u202eb", r"\u202e"), ("a\u2028b", r"\u2028"),
    ("a\nb", r"\x0a"), ("a\x00b", r"\x00"), ("a\ud800b", r"\ud800"),
])
def test_what_cannot_be_seen_becomes_its_number(tmp_path, text, shown):
    log = read(recording(tmp_path, recorded.header(), recorded.row(1, "demo", text)))
    assert shown in log.events[0].text and log.events[0].text.isprintable()
    log.events[0].text.encode("utf-8")


def test_secrets_that_a_recording_still_has_are_taken_out(tmp_path):
    secret = "wps_pin any 53521118"
    log = read(recording(tmp_path, recorded.header(), recorded.row(
        1, "command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 " + secret)))
    assert log.events[0].text == \
        "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any [8 bytes]"


# --- Run folders ---

def run_folder(tmp_path, events="1.00 boot ready\n", run=None):
    (tmp_path / "events.log").write_text(events, encoding="utf-8")
    if run is not None:
        (tmp_path / "run.json").write_text(run if isinstance(run, str) else json.dumps(run))
    return tmp_path


def test_a_run_folder(tmp_path):
    log = read(run_folder(tmp_path, "2.00 console kelm[main:51]: kelm 0.9.0\n1.00 boot ready\n", {
        "version": 1, "scenario": "overlap", "sentence": "Two.", "face": "firmware",
        "names": {"client0": "phone"}, "zero_s": 1.5,
        "files": {"/tmp/kelm.info": {"mode": "0644", "keys": ["wps_action"], "values": {}}},
        "checks": [["nobody joined", True], ["it ended", False]]}))
    assert (log.kind, log.scenario, log.sentence, log.face, log.names, log.zero_s) == (
        "run", "overlap", "Two.", "firmware", {"client0": "phone"}, 1.5)
    assert log.checks == [("nobody joined", True), ("it ended", False)]
    assert log.files["/tmp/kelm.info"]["mode"] == "0644"
    assert [(event.time_s, event.number) for event in log.events] == [(1.0, 2), (2.0, 1)]


@pytest.mark.parametrize("run", ["", "[]", "{", '{"version":2}', "\0", "null"])
def test_a_broken_run_json_is_told(tmp_path, run):
    log = read(run_folder(tmp_path, run=run))
    assert log.trouble == ["run.json could not be read."] and len(log.events) == 1


@pytest.mark.parametrize("run", [
    {"version": 1, "names": [], "files": 1, "checks": {"a": 1}, "zero_s": "1", "scenario": 5},
    {"version": 1, "names": {"client0": 5}, "files": {"/x": 1}, "checks": [1, [1, 2], ["a"]]},
])
def test_wrong_members_of_run_json_are_passed_over(tmp_path, run):
    log = read(run_folder(tmp_path, run=run))
    assert (log.names, log.files, log.checks, log.zero_s) == ({}, {}, [], None)
    assert log.scenario == tmp_path.name


def test_a_run_folder_without_run_json(tmp_path):
    log = read(run_folder(tmp_path))
    assert log.trouble == [] and log.scenario == tmp_path.name


def test_broken_lines_of_a_run(tmp_path):
    log = read(run_folder(tmp_path, "1.00 boot ready\nno time\n-1 boot x\n1.0 BOOT x\n9.9"))
    assert len(log.events) == 1
    assert log.trouble == ["The last line is cut and left out.",
                           "3 lines could not be read; the first of them is line 2."]


@pytest.mark.parametrize("line, band", [
    ("hostapd wlan1: WPS-PBC-ACTIVE ", "2.4 GHz"), ("station wlan0-vxd: WPS-SUCCESS ", "5 GHz"),
    ("hostapd phy0-ap0: AP-ENABLED", "2.4 GHz"), ("hostapd phy0-ap1: AP-ENABLED", ""),
    ("command 1 hostapd_cli -p /var/run/hostapd -i wlan0 wps_pbc", "5 GHz"),
    ("script 1 /usr/bin/wifi scan 2g", "2.4 GHz"), ("root0 root0-5g: AP-ENABLED", "5 GHz"),
    ("client0 sta0: SME: Trying to authenticate with 02:00:00:00:01:00 "
     "(SSID='Elm House' freq=2412 MHz)", "2.4 GHz"),
    ("console kelm[rtk_process_wpas_msg:254]: processing wpsEvent[2.4G]: <3>WPS-TIMEOUT ",
     "2.4 GHz"),
    ("console kelm[kelm_set_worker_done:231]: wps session done [band 1] [kelm_flags: 0x12].",
     "5 GHz"), ("console kelm[main:51]: kelm 0.9.0", ""),
])
def test_the_band_of_a_line(tmp_path, line, band):
    assert lines_of(run_folder(tmp_path, "1.00 %s\n" % line))[0][2] == band


def test_the_system_log_of_a_stock_router_is_taken_apart(tmp_path):
    """The daemon's lines are its console; what the scripts say keeps a source of its own."""
    before = "Nov 22 12:13:22 (none) daemon."
    log = read(run_folder(tmp_path, "".join("1.00 log %s%s\n" % (before, line) for line in (
        "info kelm[872]: kelm[main:51]: kelm 0.9.0", "notice kelm: ready on 2.4 GHz",
        "notice hostapd: phy0-ap0: AP-ENABLED"))))
    assert [(event.source, event.text) for event in log.events] == [
        ("console", "kelm[main:51]: kelm 0.9.0"), ("log", "kelm: ready on 2.4 GHz"),
        ("hostapd", "phy0-ap0: AP-ENABLED")]


# --- What is no input ---

def test_what_is_not_there(tmp_path):
    with pytest.raises(ReadError) as error:
        read(tmp_path / "none")
    assert str(error.value) == "%s cannot be read: No such file or directory" % (tmp_path / "none")


def test_a_folder_that_is_none_of_a_run(tmp_path):
    with pytest.raises(ReadError) as error:
        read(tmp_path)
    assert str(error.value).endswith("has no events.log: it is no run folder of the virtual router")


def test_a_fifo_does_not_hold_the_program(tmp_path):
    os.mkfifo(tmp_path / "pipe")
    with pytest.raises(ReadError) as error:
        read(tmp_path / "pipe")
    assert str(error.value).endswith("pipe is no file")


def test_a_folder_whose_events_are_missing_shows_what_is_there(tmp_path):
    recorded.write_lines(tmp_path / "recording.jsonl", [recorded.header(), ACTIVE])
    log = read(tmp_path)
    assert log.kind == "recording" and len(log.events) == 1
    assert log.trouble == ["There is no events.log; recording.jsonl is shown in its place."]


@pytest.mark.parametrize("data", [b"", b"\n", b"\0\0\0", b"\xff" * 1000, b"hello\n",
                                  b"\x89PNG\r\n\x1a\n", b"x" * 200000])
def test_a_file_of_something_else_has_no_events(tmp_path, data):
    (tmp_path / "it").write_bytes(data)
    log = read(tmp_path / "it")
    assert log.kind == "console" and log.events == []
    assert log.trouble[-1] == "No line of kelm, hostapd or wpa_supplicant is in it."
