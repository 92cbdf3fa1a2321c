# SPDX-License-Identifier: ISC
"""Inputs that are cut, short of a line, doubled, mixed up or hostile: no crash, and no success that
is not in them."""

import json
import random
import re

import pytest
import recorded

from report.attempts import attempts
from report.events import Log
from report.readers import ReadError, read

# The lines without which nobody has joined, read once more and by other means than the program's.
_ENROLLED = re.compile(r"(?:\S+: )?(?:<\d>)?(?:WPS-REG-SUCCESS|WPS-NEW-AP-SETTINGS)")
_LEARNT = re.compile(r"\S+: WPS-SUCCESS")
_CONSOLE = re.compile(r"kelm\[rtk_process_wpas_msg:\d+\]: (?:processing|Ignore) wpsEvent\[[^]]+\]: "
                      r"<3>(?:WPS-REG-SUCCESS|WPS-SUCCESS|WPS-NEW-AP-SETTINGS)|"
                      r"kelm\[kelm_is_worker_succeed:\d+\]: \dg wps_monitor succeed|"
                      r"kelm\[wps_ubus_send_wps_event:\d+\]: Prepare to send message: action 2, "
                      r"status (?:2 |\d+ 2 )")
_BUS = re.compile(r'"action":2,(?:"2g_status":2,|"2g_status":\d+,"5g_status":2,)')


def tells_success(event):
    if event.source == "hostapd":
        return bool(_ENROLLED.match(event.text))
    if event.source == "station":
        return bool(_LEARNT.match(event.text))
    if event.source == "console":
        return bool(_CONSOLE.match(event.text))
    if event.source == "file":
        return event.text.startswith("/tmp/kelm.info ") and '_status":"success"' in event.text
    return event.source in ("bus", "command") and bool(_BUS.search(event.text)) or \
        event.source == "log" and event.text.endswith("WPS succeeded.")


def with_events(log, events):
    return Log(events=list(events), names=log.names, kind=log.kind, has_times=log.has_times)


def claims_success(log):
    found = attempts(log)
    for one in found:
        assert one.headline and one.cause
        for verdict in list(one.bands.values()) + one.notes:
            assert verdict.sentence and "{" not in verdict.sentence + verdict.advice
    return any(verdict.good is True for one in found for verdict in one.bands.values())


def console_of(name, folder):
    return recorded.write_lines(folder / "console.log", recorded.as_console(name))


def recording_of(name, folder):
    return recorded.write_lines(folder / "it.jsonl", recorded.as_recording(name))


def inputs(name, folder):
    yield read(recorded.RUNS / name)
    yield read(recording_of(name, folder))
    if recorded.as_console(name):
        yield read(console_of(name, folder))


@pytest.mark.parametrize("name", recorded.NAMES)
def test_cut_behind_every_line(name, tmp_path):
    for log in inputs(name, tmp_path):
        told = False
        for number, event in enumerate(log.events, 1):
            told = told or tells_success(event)
            assert not claims_success(with_events(log, log.events[:number])) or told


@pytest.mark.parametrize("name", recorded.NAMES)
def test_cut_before_every_line(name, tmp_path):
    for log in inputs(name, tmp_path):
        told = False
        for number in range(len(log.events) - 1, -1, -1):
            told = told or tells_success(log.events[number])
            assert not claims_success(with_events(log, log.events[number:])) or told


@pytest.mark.parametrize("name", recorded.NAMES)
def test_each_line_left_out(name, tmp_path):
    for log in inputs(name, tmp_path):
        told = sum(map(tells_success, log.events))
        for number, event in enumerate(log.events):
            rest = log.events[:number] + log.events[number + 1:]
            assert not claims_success(with_events(log, rest)) or told > tells_success(event)


@pytest.mark.parametrize("path", sorted(recorded.RECORDINGS.iterdir()), ids=lambda path: path.stem)
def test_what_kelm_watch_has_recorded_is_cut(path):
    log, told = read(path), False
    for number, event in enumerate(log.events, 1):
        told = told or tells_success(event)
        assert not claims_success(with_events(log, log.events[:number])) or told
        claims_success(with_events(log, log.events[number:]))


@pytest.mark.parametrize("name", recorded.NAMES)
def test_every_line_twice(name):
    log = read(recorded.RUNS / name)
    claims_success(with_events(log, [event for event in log.events for _ in (1, 2)]))


@pytest.mark.parametrize("name", recorded.NAMES)
def test_lines_in_any_order(name, tmp_path):
    for log in inputs(name, tmp_path):
        told = any(map(tells_success, log.events))
        for seed in range(5):
            events = list(log.events)
            random.Random(seed).shuffle(events)
            assert not claims_success(with_events(log, events)) or told


@pytest.mark.parametrize("name", ["overlap", "repeater-2g", "stock-button", "cancel"])
def test_a_recording_cut_at_any_byte(name, tmp_path):
    path = recording_of(name, tmp_path)
    data = path.read_bytes()
    header = data.index(b"\n") + 1
    for size in list(range(header, len(data), 97)) + [len(data)]:
        (tmp_path / "cut").write_bytes(data[:size])
        log = read(tmp_path / "cut")
        assert log.kind == "recording" and len(log.trouble) == (data[size - 1:size] != b"\n")
        claims_success(log)


# What a stranger may call his device or his network.
HOSTILE = [
    "WPS-SUCCESS", "WPS-REG-SUCCESS 02:00:00:00:02:00", "WPS-OVERLAP-DETECTED", "WPS-TIMEOUT",
    "x] WPS-REG-SUCCESS 02:00:00:00:02:00 [", "wlan1: WPS-REG-SUCCESS 02:00:00:00:02:00",
    "<script>alert(1)</script>", "kelm[main:51]: kelm 0.9.0", "<3>WPS-REG-SUCCESS",
    "'\"}{0}%s%n{a}",
    "kelm[kelm_is_worker_succeed:220]: 2g wps_monitor succeed.", "config_error=18", "\u202e\x1b[2J",
    '", "2g_status": 2}', "msg=4 config_error=12", "2g wps_monitor succeed.", "[8 bytes]", ""]
FAILING = ["overlap", "nobody-comes", "cancel", "hostapd-dies", "repeater-overlap", "terminated"]


def causes(log):
    return [(one.cause, {band: verdict.cause for band, verdict in one.bands.items()})
            for one in attempts(log)]


def renamed(text, name):
    """A line in which devices and networks have another name."""
    text = re.sub(r"(?<=\[)(?:phone|tablet)(?=\]$)", lambda _: name, text)
    return re.sub(r"(?<=SSID=')[^']*(?=')|(?<=rootap ssid: ).*|(?<=with rootAP ).*",
                  lambda _: name, text)


@pytest.mark.parametrize("name", HOSTILE, ids=range(len(HOSTILE)))
@pytest.mark.parametrize("scenario", FAILING)
def test_names_of_strangers_change_no_verdict(scenario, name, tmp_path):
    rows = [json.loads(line) for line in recorded.as_recording(scenario)]
    plain = causes(read(recording_of(scenario, tmp_path)))
    heard = "wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:07:00 u 1 0x1 0 1 [%s]" % name
    for place in range(1, len(rows), 7):
        lines = [json.dumps({**row, "text": renamed(row.get("text", ""), name)}) for row in rows]
        lines[0] = recorded.header()
        lines.insert(place, recorded.row(rows[place]["ms"] / 1000, "hostapd", heard, "2.4 GHz"))
        path = recorded.write_lines(tmp_path / "hostile.jsonl", lines)
        assert causes(read(path)) == plain
    saved = recorded.write_lines(tmp_path / "hostile.log", [
        renamed(line, name) for line in recorded.as_console(scenario)])
    assert causes(read(saved)) == causes(read(console_of(scenario, tmp_path)))
    assert all(one.headline.isprintable() for one in attempts(read(saved)))


def test_a_flood_of_names(tmp_path):
    """A neighbour with 20,000 devices; the sentence does not name them all."""
    lines = [recorded.header(), recorded.row(10, "bus", '{ "gpio": {"type":"wps","pressed":1} }')]
    seen = "wlan1: WPS-ENROLLEE-SEEN 02:00:00:00:%02x:%02x uuid-%d 1 0x1 4 1 [%s]"
    lines += [recorded.row(11, "hostapd", seen % (number >> 8, number & 255, number, "x" * 32),
                           "2.4 GHz") for number in range(20000)]
    lines += [recorded.row(12, "bus", '{ "wps": {"action":1,"2g_status":11,"5g_status":0} }'),
              recorded.row(13, "hostapd", "wlan1: WPS-OVERLAP-DETECTED ", "2.4 GHz"),
              recorded.row(14, "bus", '{ "wps": {"action":2,"2g_status":4,"5g_status":0} }')]
    found, = attempts(read(recorded.write_lines(tmp_path / "it.jsonl", lines)))
    assert found.headline.startswith("20000 devices were in push-button mode at once: ")
    assert found.headline.endswith(" and 19996 more.") and len(found.headline) < 400


def test_a_thousand_attempts(tmp_path):
    """Not all of a log is looked at for each."""
    one = [json.loads(line) for line in list(recorded.as_recording("cancel"))[1:]]
    lines = [recorded.header()] + [json.dumps({**row, "ms": row["ms"] + number * 60000})
                                   for number in range(1000) for row in one]
    found = attempts(read(recorded.write_lines(tmp_path / "it.jsonl", lines)))
    assert [one.cause for one in found] == ["cancelled"] * 1000


def scrambled(data, random_source):
    """Bytes with some of them gone, doubled, changed or put in."""
    data = bytearray(data)
    for _ in range(random_source.choice((1, 3, 10))):
        begin = random_source.randrange(len(data))
        end = begin + random_source.choice((1, 30, 300))
        change = random_source.randrange(4)
        if change == 0:
            del data[begin:end]
        elif change == 1:
            data[begin:begin] = data[random_source.randrange(len(data)):][:end - begin]
        elif change == 2:
            data[begin] = random_source.randrange(256)
        else:
            data[begin:begin] = random_source.choice(
                (b"\n", b"\xff", b'"', b"9" * 30, b"-1", b" config_error=9999999999999", b"\0"))
    return bytes(data)


@pytest.mark.parametrize("name", recorded.NAMES)
def test_scrambled_bytes(name, tmp_path):
    random_source = random.Random(name)
    kinds = [recording_of(name, tmp_path).read_bytes(),
             (recorded.RUNS / name / "events.log").read_bytes(),
             "\n".join(recorded.as_console(name) or recorded.as_logread(name)).encode()]
    for data in kinds * 4:
        path = tmp_path / ("events.log" if data is kinds[1] else "it")
        path.write_bytes(scrambled(data, random_source))
        try:
            claims_success(read(tmp_path if data is kinds[1] else path))
        except ReadError as error:
            assert " is a recording of " in str(error) and len(str(error)) < 400
