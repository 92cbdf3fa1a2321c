# SPDX-License-Identifier: ISC
"""Lines of a console, as a serial terminal or a system log saved them: times, programs, texts."""

import calendar
import re
from dataclasses import dataclass

MONTHS = {name: number for number, name in enumerate(
    "Jan Feb Mar Apr May Jun Jul Aug Sep Oct Nov Dec".split(), 1)}
DAY_S = 24 * 60 * 60

# What may stand before a line, the longer forms first; each is looked for at the beginning. Of
# "seconds" the clock never goes back, the others tell the time of day.
_CLOCK = r"(?P<h>\d{2}):(?P<m>\d{2}):(?P<s>\d{2})(?:[.,](?P<f>\d{1,9}))?"
_DATE = r"(?P<y>\d{4})-(?P<mo>\d{2})-(?P<d>\d{2})"
_ZONE = r"(?:Z|[+-]\d{2}:?\d{2})?"
TIMES = [re.compile(pattern) for pattern in (
    # logread
    r"(?:Mon|Tue|Wed|Thu|Fri|Sat|Sun) (?P<mon>[A-Z][a-z]{2}) +(?P<d>\d{1,2}) " + _CLOCK
    + r" (?P<y>\d{4})(?: \[\d+\.\d+\])? ",
    # syslogd, and a datagram to it
    r"(?:<\d{1,3}>)?(?P<mon>[A-Z][a-z]{2}) +(?P<d>\d{1,2}) " + _CLOCK + r" ",
    # terminals, ts(1), the tools that save what a serial line says
    r"\[?" + _DATE + r"[T ]" + _CLOCK + _ZONE + r"\]?:?[ \t]+",
    r"\[" + _CLOCK + r"\]:?[ \t]*",
    _CLOCK + r"(?: ?[>|])?[ \t]+",
    r"\[ *(?P<up>\d{1,9}\.\d{1,9})(?: +\d+\.\d+)?\](?:\[[^\]]{1,8}\])?[ \t]*",
    r"(?P<up>\d{1,9}\.\d{2,9})[ \t]+",
)]

# Behind the time of a system log: the machine and the level, where it tells them, and the program.
_PROGRAM = re.compile(r"(?:(?P<host>\S+) )??(?:(?P<level>[a-z]+\d?\.[a-z]+) )?"
                      r"(?P<program>[A-Za-z][\w./-]*)(?:\[(?P<pid>\d+)\])?: ")
OWN_LINE = re.compile(r"kelm\[[A-Za-z_]\w*:\d+\]: ")
_PROMPT = re.compile(r"(?:\S{1,64} login: |\S{1,64}@\S{1,64}[#$] |[#$>] )+")
_WIFI_EVENT = re.compile(r"(?P<iface>[A-Za-z][\w.-]{0,31}): "
                         r"(?:WPS-|WPS: |AP-|CTRL-|EAPOL-|STA |interface )")
_OUTCOME = re.compile(r"(2|5)g WPS (?:succeeded\.|failed\.|timed out\.)")


@dataclass
class Line:
    """One line of a console, taken apart."""

    source: str  # "" for a line of no interest
    text: str
    time_s: float | None = None
    is_wall: bool = False  # the time is that of day
    wall: str = ""
    iface: str = ""
    pid: int = 0


def _time_of(found):
    """(seconds, whether of the day, the time in words)"""
    part = found.groupdict()
    if part.get("up") is not None:
        return float(part["up"]), False, ""
    seconds = int(part["h"]) * 3600 + int(part["m"]) * 60 + int(part["s"])
    if part.get("f"):
        seconds += float("0." + part["f"])
    month = MONTHS.get(part.get("mon") or "", 0) or int(part.get("mo") or 0)
    if month and part.get("d"):
        # Without a year, any will do: differences count.
        year = int(part.get("y") or 2024)
        try:
            seconds += calendar.timegm((year, month, int(part["d"]), 0, 0, 0))
        except ValueError:
            pass
    return seconds, True, found.group(0).strip(" \t[]:>|")


def _taken_time(line, text):
    for pattern in TIMES:
        found = pattern.match(text)
        if not found:
            continue
        line.time_s, line.is_wall, line.wall = _time_of(found)
        return text[found.end():]
    return text


def _is_station(iface):
    return iface.endswith("-vxd") or "-sta" in iface


def parse(text):
    """A line without its end and without a terminal's escape sequences."""
    line = Line("", "")
    rest = _taken_time(line, text)
    prompt = _PROMPT.match(rest)
    if prompt:
        rest = rest[prompt.end():]
    if OWN_LINE.match(rest):
        line.source, line.text = "console", rest
        return line
    program = _PROGRAM.match(rest)
    # Lines of a system log name their program first, behind the time.
    if program and line.is_wall and _of_program(line, program, rest[program.end():]):
        return line
    event = _WIFI_EVENT.match(rest)
    if event:
        line.iface = event.group("iface")
        line.source = "station" if _is_station(line.iface) else "hostapd"
        line.text = rest
    return line


def _of_program(line, program, said):
    name = program.group("program").rsplit("/", 1)[-1]
    line.pid = int(program.group("pid") or 0) if len(program.group("pid") or "") < 10 else 0
    if name == "kelm" and OWN_LINE.match(said):
        line.source, line.text = "console", said
        return True
    if name == "kelm" or _OUTCOME.match(said) and name not in ("hostapd", "wpa_supplicant"):
        line.source, line.text = "log", "kelm: " + said
        return True
    if name in ("hostapd", "wpa_supplicant"):
        event = _WIFI_EVENT.match(said)
        if event:
            line.iface = event.group("iface")
            line.source = "station" if name == "wpa_supplicant" else "hostapd"
            line.text = said
        return True
    return False


class Clock:
    """Turns a console's times into seconds that do not go back where a day ends."""

    def __init__(self):
        self._last = None
        self._days = 0

    def seconds(self, line):
        time_s = line.time_s + self._days * DAY_S
        # Times without a date begin anew at midnight.
        if line.is_wall and self._last is not None and time_s < self._last - DAY_S / 2 \
                and line.time_s < DAY_S:
            self._days += 1
            time_s += DAY_S
        self._last = time_s
        return time_s
