# SPDX-License-Identifier: ISC
"""The scenarios of the virtual router get the verdicts that are written down for them."""

import expected
import pytest
import recorded

from report.attempts import attempts
from report.readers import read


def told(log):
    """An attempt a row, as expected.RUNS has them."""
    return [(one.method, one.mode, one.cause,
             {band: verdict.cause for band, verdict in one.bands.items()}, one.headline,
             [note.cause for note in one.notes]) for one in attempts(log)]


def in_short(log):
    """An attempt a line, as expected.CONSOLES has them."""
    lines = []
    for method, _, cause, bands, _, notes in told(log):
        words = ", ".join("%s %s" % row for row in bands.items()) or cause
        lines.append("%s: %s%s" % (method, words,
                                   "".join("; " + note for note in notes if note != cause)))
    return lines


def test_every_sample_has_its_verdicts():
    assert sorted(expected.RUNS) == recorded.NAMES == sorted(expected.RECORDINGS)
    assert sorted(expected.BY_KELM_WATCH) == sorted(
        path.stem for path in recorded.RECORDINGS.iterdir())
    assert sorted(expected.LOGREADS) == [name for name in recorded.NAMES
                                         if recorded.as_logread(name)]
    assert sorted(expected.CONSOLES) == [name for name in recorded.NAMES
                                         if recorded.as_console(name)]


@pytest.mark.parametrize("name", recorded.NAMES)
def test_run_folder(name):
    assert told(read(recorded.RUNS / name)) == expected.RUNS[name]


@pytest.mark.parametrize("name", sorted(expected.CONSOLES))
def test_console(name, tmp_path):
    path = recorded.write_lines(tmp_path / "console.log", recorded.as_console(name))
    assert in_short(read(path)) == expected.CONSOLES[name]


@pytest.mark.parametrize("name", recorded.NAMES)
def test_recording(name, tmp_path):
    path = recorded.write_lines(tmp_path / "it.jsonl", recorded.as_recording(name))
    assert in_short(read(path)) == expected.RECORDINGS[name]


@pytest.mark.parametrize("name", sorted(expected.LOGREADS))
def test_the_system_log_of_a_stock_router(name, tmp_path):
    path = recorded.write_lines(tmp_path / "logread.txt", recorded.as_logread(name))
    log = read(path)
    assert log.has_times and in_short(log) == expected.LOGREADS[name]


@pytest.mark.parametrize("name", sorted(expected.BY_KELM_WATCH))
def test_what_kelm_watch_has_recorded(name):
    log = read(recorded.RECORDINGS / (name + ".jsonl"))
    assert log.trouble == [] and in_short(log) == expected.BY_KELM_WATCH[name]


@pytest.mark.parametrize("name", recorded.NAMES)
def test_the_times_of_an_attempt_are_in_order(name):
    log = read(recorded.RUNS / name)
    ends = [0.0]
    for one in attempts(log):
        assert ends[-1] <= one.start_s <= one.end_s
        ends.append(one.end_s)
        assert one.walk_s is None or one.start_s <= one.walk_s[0] <= one.walk_s[1]
        assert one.events and all(event in log.events for event in one.events)


@pytest.mark.parametrize("name", recorded.NAMES)
def test_every_verdict_shows_its_evidence(name):
    log = read(recorded.RUNS / name)
    for one in attempts(log):
        for verdict in list(one.bands.values()) + one.notes:
            assert verdict.evidence and all(event in log.events for event in verdict.evidence)


def test_the_names_of_clients_stand_in_the_verdict(tmp_path):
    """Without them it is the address, and what the device calls itself."""
    lines = ["%s %s %s" % row for row in recorded.run_lines("push-button")]
    recorded.write_lines(tmp_path / "events.log", lines)
    log = read(tmp_path)
    assert log.trouble == []
    assert attempts(log)[0].headline == (
        '2.4 GHz: the "phone" (02:00:00:00:02:00) joined after 1.9 s. 5 GHz: not needed.')


def test_a_device_called_like_an_event_changes_nothing():
    """The neighbour's names are hostapd's words for success, overlap and new settings."""
    log = read(recorded.RUNS / "neighbour")
    names = {event.text.rpartition("[")[2] for event in log.events if "ENROLLEE-SEEN" in event.text}
    assert {"WPS-NEW-AP-SETTINGS]", "WPS-OVERLAP-DETECTED]"} <= names
    assert [one.cause for one in attempts(log)] == ["joined"]
