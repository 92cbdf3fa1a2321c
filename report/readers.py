# SPDX-License-Identifier: ISC
"""Reads a recording, a run folder of the virtual router, or a console log that somebody saved."""

import json
import math
import os
import re
import stat

from report import console, kept, order
from report.events import (BAND_2G, BAND_5G, BAND_6G, BAND_NAMES, BANDS, CONSOLE, RECORDING, RUN,
                           Event, Log)
from report.text import decoded, visible, without_escapes

VERSION = 1  # of a recording
MOST_BYTES = 64 << 20  # of a file; the rest is left out, and it is said
LONGEST_LINE = 64 << 10
MOST_NAMES = 64  # of the clients and roots in a run folder

# Stock OpenWrt's names of the virtual router's radios; the guest network is no band of its own.
VIRTUAL_NAMES = {"phy0-ap0": BAND_2G, "phy0-sta0": BAND_2G,
                 "phy1-ap0": BAND_5G, "phy1-sta0": BAND_5G}
_BAND_IN = [re.compile(pattern) for pattern in (
    r"\bwpsEvent\[([\d.]+G\d?)\]", r"\bwps band (\d)\[", r"\bwps session \w+ \[(?:band )?(\d)\]",
    r"\[band ?(\d)\]", r" -i (\S+) ", r"/usr/bin/wifi \w+ (\S+)$",
    r"^kelm\[[^]]*\]: ([25]g) wps_monitor",
    r"^kelm\[[^]]*\]: (\dG) is (?:dis)?connected ", r"/(?:hostapd|wpa_supplicant)-([\w-]+)\.conf")]
_IFACE = re.compile(r"([A-Za-z][\w.-]{0,31}): ")
_FREQUENCY = re.compile(r" freq=(\d{4}) MHz\)$")
_RUN_LINE = re.compile(r"(\d{1,9}(?:\.\d{1,9})?) ([a-z]{1,16}\d?) ?(.*)", re.S)


class ReadError(Exception):
    """Why an input cannot be read: a sentence for whoever asked for it."""


def band_of_text(text):
    """The band that a line of the daemon's, or one of its commands, is about."""
    for pattern in _BAND_IN:
        found = pattern.search(text)
        if found:
            return BAND_NAMES.get(found.group(1), "")
    return ""


def _band_of_frequency(text):
    found = _FREQUENCY.search(text)
    if not found:
        return ""
    mhz = int(found.group(1))
    return BAND_2G if mhz < 2500 else BAND_5G if mhz < 5925 else BAND_6G


def _contents(path):
    """(the file's bytes, whether there were more)"""
    try:
        number = os.open(path, os.O_RDONLY | os.O_NONBLOCK | os.O_CLOEXEC)
        with open(number, "rb") as file:
            if not stat.S_ISREG(os.fstat(number).st_mode):
                raise ReadError("%s is no file" % path)
            data = file.read(MOST_BYTES + 1)
    except OSError as error:
        raise ReadError("%s cannot be read: %s" % (path, error.strerror)) from error
    return data[:MOST_BYTES], len(data) > MOST_BYTES


class _Lines:
    """The lines of a file with their numbers; notes what had to be left out."""

    def __init__(self, path, log, skip_cut):
        self._log = log
        self._broken = []
        data, self._is_more = _contents(path)
        if data.startswith(b"\xef\xbb\xbf"):
            data = data[3:]
        # Some terminals save a file in the way of their own system.
        self._lines = data.replace(b"\r\n", b"\n").split(b"\n")
        last = self._lines.pop()
        if last and skip_cut:
            log.trouble.append("The last line is cut and left out.")
        elif last:
            self._lines.append(last)

    def __iter__(self):
        for number, line in enumerate(self._lines, 1):
            if len(line) > LONGEST_LINE:
                self.broken(number)
            elif line.strip(b" \t\r\0"):
                yield number, decoded(line)
        self._sum_up()

    def first(self):
        return decoded(self._lines[0][:LONGEST_LINE]) if self._lines else ""

    def broken(self, number):
        self._broken.append(number)

    def _sum_up(self):
        if self._broken:
            self._log.trouble.append(
                "%d line%s could not be read; the first of them is line %d."
                % (len(self._broken), "" if len(self._broken) == 1 else "s", self._broken[0]))
        if self._is_more:
            self._log.trouble.append("The input is longer than %d MiB; the rest is left out."
                                     % (MOST_BYTES >> 20))


def _json(text):
    """A JSON object, or None."""
    try:
        value = json.loads(text)
    except (ValueError, RecursionError):
        return None
    return value if isinstance(value, dict) else None


def _number(value):
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        return None
    try:
        value = float(value)
    except OverflowError:
        return None
    return value if math.isfinite(value) and abs(value) < 1e15 else None


def _text(value, longest=256):
    return visible(value[:longest]) if isinstance(value, str) else ""


def _event(time_s, source, text, number, band="", wall="", iface=""):
    return Event(time_s, source, band, visible(kept.hidden(source, text)), number, wall, iface)


# --- Recordings ---

class _BootClock:
    """Seconds through all of a recording's boots, after each of which the clock begins anew."""

    def __init__(self):
        self._last_ms = None
        self._offset_ms = 0.0

    def seconds(self, ms):
        """(time, whether the clock has begun anew)"""
        anew = self._last_ms is not None and ms + self._offset_ms < self._last_ms - 1000
        if anew:
            self._offset_ms = self._last_ms - ms
        self._last_ms = max(ms + self._offset_ms, self._last_ms or 0.0)
        return (ms + self._offset_ms) / 1000, anew


def _check_header(path, header):
    if header.get("recording") != "kelm":
        raise ReadError("%s is a recording of another program" % path)
    version = header.get("version")
    if version != VERSION or isinstance(version, bool):
        raise ReadError("%s is a recording of version %s; this program reads version %d"
                        % (path, _text(json.dumps(version), 32), VERSION))


def _take_header(path, log, header, number):
    """The first line of a recording; or of a second one that was put behind it."""
    _check_header(path, header)
    log.anonymous = log.anonymous or header.get("anonymous") is True
    log.program = log.program or _text(header.get("program"))
    ms = _number(header.get("ms"))
    return None if ms is None else (ms, number, _text(header.get("at")))


def _read_recording(path, lines, log):
    log.kind, log.has_times = RECORDING, True
    clock = _BootClock()
    for number, line in lines:
        row = _json(line)
        if row is None:
            lines.broken(number)
            continue
        if "recording" in row:
            begun = _take_header(path, log, row, number)
            if begun:
                time_s, anew = clock.seconds(begun[0])
                _note_boot(log, anew, time_s, number)
            continue
        ms, source, text = _number(row.get("ms")), row.get("source"), row.get("text")
        if ms is None or not isinstance(source, str) or not isinstance(text, str) \
                or not re.fullmatch(r"[a-z]{1,16}", source):
            lines.broken(number)
            continue
        time_s, anew = clock.seconds(ms)
        _note_boot(log, anew, time_s, number)
        if source == "console":
            text = console.parse(text).text or text
        band = row.get("band") if row.get("band") in BANDS else ""
        if not band and source in ("command", "script", "console", "exit"):
            band = band_of_text(text)
        log.events.append(_event(time_s, source, text, number, band, _text(row.get("at")),
                                 _text(row.get("iface"), 32)))


def _note_boot(log, anew, time_s, number):
    """What began before a restart of the router does not go on behind it."""
    if anew:
        log.trouble.append("Line %d: the clock begins anew; the router was restarted." % number)
        log.events.append(Event(time_s, "boot", "", "the clock begins anew", number))


# --- Run folders of the virtual router ---

def _take_run_json(path, log):
    try:
        data, _ = _contents(path)
    except ReadError:
        return
    run = _json(decoded(data))
    if run is None or run.get("version") != 1:
        log.trouble.append("run.json could not be read.")
        return
    log.scenario = _text(run.get("scenario")) or log.scenario
    log.sentence, log.face = _text(run.get("sentence")), _text(run.get("face"))
    log.zero_s = _number(run.get("zero_s"))
    names = run.get("names")
    if isinstance(names, dict):
        log.names = {_text(key, 16): _text(name, 32)
                     for key, name in list(names.items())[:MOST_NAMES] if isinstance(name, str)}
    files = run.get("files")
    if isinstance(files, dict):
        log.files = {_text(key): value for key, value in files.items() if isinstance(value, dict)}
    checks = run.get("checks")
    if isinstance(checks, list):
        log.checks = [(_text(check[0]), check[1] is True) for check in checks
                      if isinstance(check, list) and len(check) == 2 and isinstance(check[0], str)]


def _run_event(time_s, source, text, number):
    wall = iface = ""
    if source == "log":
        line = console.parse(text)
        source, text, wall, iface = line.source or "log", line.text or text, line.wall, line.iface
    found = _IFACE.match(text)
    if source in ("hostapd", "station") and found:
        iface = found.group(1)
    if re.fullmatch(r"(client|root)\d", source):
        band = _band_of_frequency(text)
        found = re.match(r"root\d-(\dg): ", text)
        band = BAND_NAMES[found.group(1)] if found and found.group(1) in BAND_NAMES else band
    elif iface:
        band = BAND_NAMES.get(iface) or VIRTUAL_NAMES.get(iface, "")
    else:
        band = band_of_text(text)
    return _event(time_s, source, text, number, band, wall, iface)


def _read_run(path, log):
    log.kind, log.has_times = RUN, True
    log.scenario = visible(os.path.basename(os.path.abspath(path)))
    _take_run_json(os.path.join(path, "run.json"), log)
    lines = _Lines(os.path.join(path, "events.log"), log, skip_cut=True)
    for number, line in lines:
        found = _RUN_LINE.fullmatch(line)
        if found:
            log.events.append(_run_event(float(found.group(1)), found.group(2), found.group(3),
                                         number))
        else:
            lines.broken(number)
    # Each source has a thread of its own, and they are not quite in step.
    log.events.sort(key=lambda event: event.time_s)


# --- Console logs ---

def _read_console(lines, log):
    log.kind = CONSOLE
    clock = console.Clock()
    found = []
    for number, raw in lines:
        # What a terminal has written over itself counts as it was printed last.
        text = without_escapes(raw).strip("\0").rstrip("\r").rpartition("\r")[2].strip("\0")
        line = console.parse(text)
        if not line.source:
            continue
        time_s = clock.seconds(line) if line.time_s is not None else None
        found.append((line, time_s, number))
    timed = sum(time_s is not None for _, time_s, _ in found)
    log.has_times = timed > 0 and timed * 2 >= len(found)
    last_s = next((time_s for _, time_s, _ in found if time_s is not None), None)
    for line, time_s, number in found:
        last_s = time_s if time_s is not None else last_s
        band = BAND_NAMES.get(line.iface, "") if line.iface else band_of_text(line.text)
        log.events.append(_event(last_s if log.has_times else None, line.source, line.text, number,
                                 band, line.wall, line.iface))
    if not found:
        log.trouble.append("No line of kelm, hostapd or wpa_supplicant is in it.")


def read(path):
    """Reads an input of any kind; what cannot be read of it stands in the log's trouble."""
    log = _read(os.fspath(path))
    if log.kind != CONSOLE:  # that has one listener
        log.events = order.in_order(log.events)
    return log


def _read(path):
    log = Log(path=path)
    if os.path.isdir(path):
        for name, reader in (("events.log", _read_run), ("recording.jsonl", _read_in_folder),
                             ("console.log", _read_in_folder)):
            if os.path.isfile(os.path.join(path, name)):
                if reader is _read_run:
                    _read_run(path, log)
                else:
                    log.trouble.append("There is no events.log; %s is shown in its place." % name)
                    reader(os.path.join(path, name), log)
                return log
        raise ReadError("%s has no events.log: it is no run folder of the virtual router" % path)
    _read_in_folder(path, log)
    return log


def _read_in_folder(path, log):
    """A single file, by its first line."""
    first = _json(_Lines(path, Log(), skip_cut=False).first())
    if first is not None and "recording" in first:
        _read_recording(path, _Lines(path, log, skip_cut=True), log)
    else:
        _read_console(_Lines(path, log, skip_cut=False), log)
