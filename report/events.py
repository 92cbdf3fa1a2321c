# SPDX-License-Identifier: ISC
"""What an input comes to: its lines as events, and what is known about them all."""

from dataclasses import dataclass, field

BAND_2G, BAND_5G, BAND_6G = "2.4 GHz", "5 GHz", "6 GHz"
BANDS = (BAND_2G, BAND_5G, BAND_6G)  # in the order of a page
# The maker's names, and what else stands for a band in the lines of the daemon and its scripts.
BAND_NAMES = {"wlan1": BAND_2G, "wlan0": BAND_5G, "wlan1-vxd": BAND_2G, "wlan0-vxd": BAND_5G,
              "2g": BAND_2G, "5g": BAND_5G, "6g": BAND_6G, "2.4G": BAND_2G, "5G": BAND_5G,
              "2G": BAND_2G, "0": BAND_2G, "1": BAND_5G, "3": BAND_6G}
RECORDING, RUN, CONSOLE = "recording", "run", "console"  # kinds of an input


@dataclass(frozen=True)
class Event:
    """One line of the input. No secret is in its text: the readers have taken them out.

    time_s: seconds of a clock that never goes back, as in the input; None where it has no times.
    wall: the time of day as the input tells it, or "".
    number: the line of the input, from 1; the events of a log are in order of time, so numbers
    of a run folder, which has several files, may go back.
    """

    time_s: float | None
    # "hostapd", "bus", "console" ...: the sources of a recording and of a run folder. "console" is
    # the daemon's log wherever it was kept, "log" what the scripts of stock OpenWrt say
    # ("kelm: ..."), "boot" the begin of a router's time.
    source: str
    band: str  # one of BANDS, or "" where a line is of no band or of an unknown one
    text: str
    number: int = 0
    wall: str = ""
    iface: str = ""


@dataclass
class Log:
    """A whole input, read."""

    events: list = field(default_factory=list)
    names: dict = field(default_factory=dict)  # {"client0": "phone"}
    kind: str = CONSOLE
    has_times: bool = False
    trouble: list = field(default_factory=list)  # what could not be read, a sentence each
    scenario: str = ""  # of the virtual router, else ""
    sentence: str = ""  # what that scenario shows
    face: str = ""  # which router it was played on: "firmware", "stock" or ""
    anonymous: bool = False
    program: str = ""  # who wrote a recording, with its version
    path: str = ""
    zero_s: float | None = None  # of a run folder: where script/demo counts its seconds from
    files: dict = field(default_factory=dict)  # {path: {"mode":, "keys":, "values":}}
    checks: list = field(default_factory=list)  # [(statement, whether it holds)]


@dataclass
class Verdict:
    """What became of one band in an attempt."""

    band: str
    cause: str  # an id of report/causes.py
    good: bool | None  # joined; did not; None: it had nothing to do, or it is not known yet
    sentence: str  # without the band's name before it
    advice: str = ""  # what to do next, or ""
    evidence: list = field(default_factory=list)  # the events that say so, in order
    details: dict = field(default_factory=dict)  # {"who":, "after_s":, "number":, "message": ...}


@dataclass
class Attempt:
    """From a press, or a request, to its outcome."""

    method: str  # "press", "PIN", "registrar" (an external one) or "request" (what, is not known)
    mode: str  # "access point", "repeater", or "" where nothing tells it
    events: list = field(default_factory=list)
    start_s: float | None = None  # None where the input has no times
    end_s: float | None = None
    walk_s: tuple | None = None  # (start, end) of the walk time, if there was one
    bands: dict = field(default_factory=dict)  # {"2.4 GHz": Verdict}, in the order of BANDS
    cause: str = ""  # of the attempt as a whole
    good: bool | None = None
    headline: str = ""  # the verdict in one line: "2.4 GHz: the phone joined after 2.4 s. ..."
    advice: str = ""
    notes: list = field(default_factory=list)  # further Verdicts, band "": a press ignored ...
