# SPDX-License-Identifier: ISC
"""Pages for the tests: of the samples, and of logs that a test writes down by itself."""

import functools
from pathlib import Path

from report import page, readers
from report.events import Attempt, Event, Log, Verdict

DATA = Path(__file__).resolve().parents[1] / "data/report"


@functools.lru_cache(maxsize=None)
def sample_page(name):
    """The page of a sample, as text."""
    return page.render([readers.read(str(DATA / "runs" / name))], name)


def expected():
    """{sample: [(causes, lanes, points of the estimate)]} of pages.txt."""
    found = {}
    for line in (DATA / "pages.txt").read_text(encoding="utf-8").splitlines():
        if line.startswith("#"):
            continue
        name, causes, lanes, points = line.split(" | ")
        found.setdefault(name, []).append((causes.split(", "), lanes.split(", "), int(points)))
    return found


def log_of(rows, **members):
    """A log with these events: (time_s, source, text) or (time_s, source, text, band)."""
    found = []
    for number, (time_s, source, text, *band) in enumerate(rows, 1):
        iface = text.split(": ")[0] if ": " in text and " " not in text.split(": ")[0] else ""
        found.append(Event(time_s, source, band[0] if band else "", text, number, "", iface))
    has_times = bool(rows) and rows[0][0] is not None
    return Log(found, kind="run", has_times=has_times, path="made", **members)


def attempt_of(log, **members):
    """One attempt that is the whole log."""
    start_s = log.events[0].time_s if log.has_times else None
    end_s = log.events[-1].time_s if log.has_times else None
    values = {"method": "press", "mode": "access point", "events": log.events, "start_s": start_s,
              "end_s": end_s, "good": True, "headline": "2.4 GHz: joined.",
              "bands": {"2.4 GHz": Verdict("2.4 GHz", "joined", True, "joined")}, **members}
    return Attempt(**values)
