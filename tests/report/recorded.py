# SPDX-License-Identifier: ISC
"""Samples of the virtual router's scenarios, and what else can be made of them."""

import json
import re
import sys
from pathlib import Path

TOP = Path(__file__).resolve().parents[2]
if str(TOP) not in sys.path:
    sys.path.insert(0, str(TOP))  # the programs under test are packages of the tree's root

RUNS = TOP / "tests/data/report/runs"
RECORDINGS = TOP / "tests/data/report/recordings"  # of kelm-watch itself
NAMES = sorted(path.name for path in RUNS.iterdir())

# What kelm-watch cannot see: clients and roots, the button of a stock router, the scenario itself.
UNSEEN = ("client", "root", "demo", "boot", "button", "log", "console")


def run_lines(name):
    """(seconds, source, text) of each line of a scenario's events.log."""
    text = (RUNS / name / "events.log").read_text(encoding="utf-8")
    for line in text.splitlines():
        time_s, source, said = line.split(" ", 2)
        yield float(time_s), source, said


def header(**members):
    return json.dumps({"recording": "kelm", "version": 1, "ms": 0, "at": "2026-11-22T12:00:00.000Z",
                       "program": "kelm-watch 0.9.0", "anonymous": False, **members})


def row(time_s, source, text, band="", **members):
    return json.dumps({"ms": round(time_s * 1000), "at": "2026-11-22T12:00:00.000Z",
                       "source": source, "band": band, "text": text, **members})


def _wall(seconds):
    """A time of day of the router's, so many seconds after noon."""
    return "2026-11-22T12:%02d:%06.3fZ" % (seconds // 60, seconds % 60)


def _band(text):
    for names, band in ((("wlan1", "phy0-ap0", "phy0-sta0"), "2.4 GHz"),
                        (("wlan0", "phy1-ap0", "phy1-sta0"), "5 GHz")):
        if any(text.startswith(name) or " -i " + name in text for name in names):
            return band
    return ""


def as_recording(name):
    """What kelm-watch would have written down, without the daemon's log: lines of text."""
    yield header()
    ahead_s = 0
    for time_s, source, text in run_lines(name):
        moved = re.match(r"moves the router's clock forward by (\d+) seconds", text)
        if source == "demo" and moved:
            ahead_s += int(moved.group(1))
        if source.rstrip("0123456789") in UNSEEN:
            continue
        if source == "exit" and " parent " in text:
            run, _, pid = text.split(" ")[:3]
            source, text = "start", "%s daemon %s" % (run, pid)
        yield row(time_s, source, text, _band(text), at=_wall(time_s + ahead_s))


def as_console(name):
    """What the daemon has printed on the console: lines of text without times."""
    return [text for _, source, text in run_lines(name) if source == "console"]


def as_logread(name):
    """The system's log of a stock router, as `logread` prints it: lines of text."""
    return [re.sub(r"^(\w{3} +\d+ [\d:]{8}) \S+ ", r"Sun \1 2026 ", text)
            for _, source, text in run_lines(name) if source == "log"]


def write_lines(path, lines):
    path.write_text("".join(line + "\n" for line in lines), encoding="utf-8")
    return path
