# SPDX-License-Identifier: ISC
"""What an attempt looks like: who did what and when, in a lane each. Nothing is placed here yet."""

import json
import re
from dataclasses import dataclass, field

from report import words
from report.events import BANDS

# Kinds of marks, in the order of the legend, and what they tell. Each has a shape of its own.
PRESS, BEGIN, GOOD, BAD, END, NOTE = "press", "begin", "good", "bad", "end", "note"
KINDS = {PRESS: "a press or a request", BEGIN: "something begins", GOOD: "it worked",
         BAD: "it failed", END: "something ends", NOTE: "a note"}

SPAN_KINDS = {"walk": "the walk time", "waiting": "waits for its peer", "command": "a command runs"}

# The first row whose source and text match decides; a line that has no row is a note.
# Before a line of the daemon's in the system's log stands what the log adds.
LOGGED = r"^(?:(?:[^\[]* )?kelm\[\d+\]: )?kelm"
# A name or an address from the air may hold any of these words, so none is looked for behind them.
KIND_ROWS = [
    ("button", r"^wps pressed", PRESS),
    ("bus", r'^\{\s*"(gpio|wps_cli)"', PRESS),
    (r"hostapd|root\d+", r"^\S+: (AP-ENABLED|WPS-(PBC|PIN)-ACTIVE|CTRL-EVENT-EAP-STARTED)", BEGIN),
    (r"hostapd|root\d+", r"^\S+: (WPS-REG-SUCCESS|WPS-NEW-AP-SETTINGS|AP-STA-CONNECTED"
     r"|EAPOL-4WAY-HS-COMPLETED)", GOOD),
    (r"hostapd|root\d+", r"^\S+: (WPS-OVERLAP-DETECTED|WPS-FAIL|WPS-AP-SETUP-LOCKED"
     r"|AP-STA-POSSIBLE-PSK-MISMATCH)", BAD),
    (r"hostapd|root\d+", r"^\S+: (AP-DISABLED|WPS-TIMEOUT|WPS-CANCEL|CTRL-EVENT-TERMINATING)",
     END),
    (r"station|client\d+", r"^\S+: WPS-(PBC-ACTIVE|PIN-ACTIVE|AP-AVAILABLE)", BEGIN),
    (r"station|client\d+", r"^\S+: (WPS-(AP-PIN-)?SUCCESS|WPS-CRED-RECEIVED|CTRL-EVENT-CONNECTED)",
     GOOD),
    (r"station|client\d+", r"^\S+: (WPS-(FAIL|M2D|OVERLAP|TIMEOUT)|CTRL-EVENT-SSID-TEMP-DISABLED)",
     BAD),
    (r"station|client\d+", r"^\S+: (WPS-CANCEL|CTRL-EVENT-(DISCONNECTED|TERMINATING))", END),
    ("command", r"^\d+ \w+_cli .* wps_(pbc|pin)\b", BEGIN),
    ("command", r"^\d+ \w+_cli .* wps_cancel\b", END),
    ("script", r"^\d+ /", BEGIN),
    ("socket", r" (gone|refuses|hung)$", BAD),
    ("socket", r" attached$", BEGIN),
    ("start", r"", BEGIN),
    ("exit", r"^\d+ \w+ \d+ status 0\b", END),
    ("exit", r"^\d+ \w+ \d+ (status|signal)\b", BAD),
    ("console|log", LOGGED + r"\[[^]]*\]: (wps Timeout|Failed to|Can't |worker socket init failed"
     r"|kelm open failed|Rebuild worker socket failed|WPS is processing, close)", BAD),
]

# Said by every program that speaks WPS, and worth a mark even where no sentence is written for it.
UNTOLD = r"^\S+: (WPS-(?:FAIL|M2D|CANCEL|AP-SETUP-LOCKED)\b.*|CTRL-EVENT-TERMINATING.*)$"

# A program waits for its peer from the first of these to the first of those.
WAITING_BEGINS = r"^(\S+): WPS-(?:PBC|PIN)-ACTIVE"
WAITING_ENDS = (r"^(\S+): (?:WPS-(?:REG-SUCCESS|SUCCESS|TIMEOUT|CANCEL|OVERLAP-DETECTED"
                r"|PBC-DISABLE)|AP-(?:DISABLED|ENABLED)|CTRL-EVENT-TERMINATING)")

# The daemon's estimate, and under which it gives up: wlan/predict.h has the same number.
ESTIMATE = LOGGED + r"\[get_wps_predict_score:\d+\]: \**\[WPS predict \d+\] (\d+) percent"
LIMIT_PERCENT = 15

# Lanes, from top to bottom; those with a band, a client or a root in their name come per name.
BUTTON, SCENARIO, DAEMON, SCRIPTS, FILES = "button", "scenario", "daemon", "scripts", "files"
# The recorder's own lines; and those that are in the table alone.
SETTINGS, WATCH, ELSEWHERE = "settings", "watch", "other"
TITLES = {BUTTON: "Button", SCENARIO: "The scenario", DAEMON: "kelm", SCRIPTS: "Scripts",
          FILES: "Files", SETTINGS: "Settings", WATCH: "Recorder", ELSEWHERE: "Other"}
SEQUENCE = (BUTTON, SCENARIO, DAEMON, "hostapd", "station", "client", "root", SCRIPTS, FILES,
            SETTINGS, WATCH)
# What stands in the place of an interface before some lines.
NO_INTERFACES = ("nl80211", "rfkill", "WPS", "WPA", "EAP", "RADIUS", "l2_packet_receive")

# No picture is of a shorter time: the axis needs two numbers.
SHORTEST = 1.0
# How far apart two equal marks are one: programs say some things to two listeners.
SAME_S = 1.0
# So long after a press a request is the button's.
BY_BUTTON_S = 15
# Lines of the daemon's other thread: they come while a command runs.
OTHER_THREAD = r"kelm\[\w*_cb:"


@dataclass
class Mark:
    """Something that happened at a moment."""

    time_s: float  # since the start of the attempt; in a log without times: its place in the order
    words: str
    event: object
    kind: str
    more: list = field(default_factory=list)  # further events that say the same


@dataclass
class Span:
    """Something that lasted."""

    begin_s: float
    end_s: float
    words: str
    event: object
    kind: str = "command"  # or "waiting", "walk"


@dataclass
class Lane:
    """One who takes part."""

    id: str
    title: str
    marks: list = field(default_factory=list)
    spans: list = field(default_factory=list)


@dataclass
class Curve:
    """The daemon's estimate of its chance, in percent."""

    points: list  # of (time_s, percent, event)
    limit: int


@dataclass
class Picture:
    """All lanes of an attempt, on one axis."""

    lanes: list
    begin_s: float
    end_s: float
    curve: Curve | None = None
    has_times: bool = True
    zero: str = "press"  # what happened at 0 s


def lane_id(event, who=""):
    """In which lane a line stands; of one without a lane the picture shows nothing."""
    source = event.source
    if source == "socket":
        program = event.text.split(" ")[0]
        source = {"bus": "bus-socket", "hostapd": "hostapd"}.get(program, "station")
    if source in ("hostapd", "station"):
        place = event.band or (event.iface if event.iface not in NO_INTERFACES else "")
        return "-".join([source, _slug(place)]) if place else source
    if re.fullmatch(r"(client|root)\d+", source):
        return source
    if source == "bus":
        return _bus_lane(event)
    if source == "button":
        return SCRIPTS if who in ("procd", "script") else BUTTON
    return {"command": DAEMON, "exit": DAEMON, "start": DAEMON, "console": DAEMON, "log": DAEMON,
            "bus-socket": DAEMON, "script": SCRIPTS, "file": FILES, "demo": SCENARIO,
            "settings": SETTINGS, "watch": WATCH}.get(source, ELSEWHERE)


def lane_title(name, log):
    """The words for a lane, from its id."""
    if name in TITLES:
        return TITLES[name]
    if re.fullmatch(r"(client|root)\d+", name):
        kind, number = re.fullmatch(r"([a-z]+)(\d+)", name).groups()
        told = log.names.get(name) or "%s %d" % (kind, int(number) + 1)
        return told[:1].upper() + told[1:]
    program, _, place = name.partition("-")
    bands = {_slug(band): band for band in BANDS}
    return " ".join([program, bands.get(place, place)]).strip()


def lanes(log, attempt):
    """The picture of one attempt."""
    moments, proofs = _Moments(log, attempt), evidence(attempt)
    found, curve, pressed = {DAEMON: Lane(DAEMON, TITLES[DAEMON])}, [], None

    def lane(name):
        return found.setdefault(name, Lane(name, lane_title(name, log)))

    for event in attempt.events:
        estimate = re.search(ESTIMATE, event.text) if event.source in ("console", "log") else None
        if estimate:
            curve.append((moments.of(event), int(estimate.group(1)), event))
            continue
        told = telling(log, event)
        name = lane_id(event, told[0] if told else "")
        if told:
            text = in_lane(name, *told, asked_by_button(pressed, event))
            _add_mark(lane(name), event, text, kind_of(event), moments.of(event))
        elif event in proofs and name != ELSEWHERE:
            kind = kind_of(event)
            kind = proofs[event] if kind == NOTE else kind
            _add_mark(lane(name), event, plain(event), kind, moments.of(event))
        if event.source == "button":
            pressed = event
    for name, span in [*_commands(attempt, moments), *_waits(attempt, moments)]:
        lane(name).spans.append(span)
    if attempt.walk_s and moments.has_times:
        begin_s, end_s = (time_s - moments.zero_s for time_s in attempt.walk_s)
        first = attempt.events[0] if attempt.events else None
        found[DAEMON].spans.insert(0, Span(begin_s, end_s, "walk time", first, "walk"))
    ordered = sorted(found.values(), key=lambda one: (rank(one.id), one.id))
    begin_s, end_s = _ends(ordered, curve)
    end_s = max(end_s, begin_s + SHORTEST)
    zero = attempt.method if attempt.method in ("press", "registrar") else "request"
    return Picture(ordered, begin_s, end_s, Curve(curve, LIMIT_PERCENT) if curve else None,
                   moments.has_times, zero)


def evidence(attempt):
    """{event: kind} of what the verdicts rest on: it has its mark, whether it has words or not."""
    found = {}
    for verdict in [*attempt.bands.values(), *attempt.notes]:
        kind = {True: GOOD, False: BAD}.get(verdict.good, NOTE)
        for event in verdict.evidence:
            found.setdefault(event, kind)
    return found


def plain(event):
    """A line without the name of the interface, the function or the run before it."""
    return re.sub(r"^(?:kelm\[[^]]*\]|[\w.-]+): |^\d+ ", "", event.text).strip() or event.text


def telling(log, event):
    """(who, band, words) of a line that a person follows the attempt by; None of another."""
    told = words.describe(event.source, event.text, log.names)
    if told:
        iface, who, text = told
        return who, event.band or words.BANDS.get(iface, ""), text
    untold = re.match(UNTOLD, event.text) if event.source != "console" else None
    if untold:
        return event.source, event.band, untold.group(1).strip()
    if event.source in ("file", "socket"):
        return event.source, event.band, event.text
    return None


def in_lane(name, who, band, text, by_button=False):
    """The words of a mark: what its lane does not tell already is told by them."""
    if who == "web page":
        return "%s %s" % ("the button's script" if by_button else "the web page", text)
    if who in ("procd", "netifd"):
        return "%s %s" % (who, text)
    of_bands = name in (DAEMON, SCRIPTS) or name.startswith("root")
    return "%s: %s" % (band, text) if band and of_bands else text


def asked_by_button(pressed, event):
    """A stock router's button asks by a script, as a web page would."""
    if pressed is None or pressed.time_s is None or event.time_s is None:
        return False
    return event.time_s - pressed.time_s < BY_BUTTON_S


def kind_of(event):
    """The kind of an event's mark."""
    if event.source == "bus" and event.text.lstrip().startswith('{ "wps":'):
        return _announced(event)
    for source, pattern, kind in KIND_ROWS:
        if re.fullmatch(source, event.source) and re.search(pattern, event.text):
            return kind
    return NOTE


def _announced(event):
    """What an announcement of the daemon's means: good if one band has joined."""
    try:
        members = json.loads(event.text)["wps"]
        codes = {members.get(key) for key in ("2g_status", "5g_status", "6g_status", "5g2_status")}
    except (ValueError, KeyError, AttributeError, TypeError):
        return NOTE
    if members.get("action") == words.STARTED:
        return BEGIN
    if 2 in codes:
        return GOOD
    return BAD if codes & {3, 4, 8} else END


def _bus_lane(event):
    found = re.match(r'\{\s*"(\w+)"', event.text)
    name = found.group(1) if found else ""
    return {"gpio": BUTTON, "wps_cli": BUTTON, "wps": DAEMON, "wifi": SCRIPTS}.get(name, ELSEWHERE)


def _slug(text):
    return re.sub(r"[^a-z0-9]+", "-", text.lower().replace(" ghz", "g").replace(".", "")).strip("-")


def rank(name):
    """Where a lane stands, from the top."""
    words_of = re.match(r"[a-z]+", name)
    kind = words_of.group(0) if words_of else name
    return SEQUENCE.index(kind) if kind in SEQUENCE else len(SEQUENCE)


class _Moments:
    """When something happened, for an axis that begins at the press."""

    def __init__(self, log, attempt):
        timed = [event.time_s for event in attempt.events if event.time_s is not None]
        self.has_times = bool(log.has_times and timed)
        self.zero_s = attempt.start_s if attempt.start_s is not None else min(timed, default=0.0)
        self._place = {event: place for place, event in enumerate(attempt.events)}

    def of(self, event):
        if self.has_times:
            return (event.time_s or 0.0) - self.zero_s
        return float(self._place[event])


def _add_mark(lane, event, text, kind, time_s):
    last = lane.marks[-1] if lane.marks else None
    if last and last.words == text and time_s - last.time_s < SAME_S and last.kind != PRESS:
        last.more.append(event)
        return
    lane.marks.append(Mark(time_s, text, event, kind))


def _ends(found, curve):
    times = [0.0] + [mark.time_s for lane in found for mark in lane.marks]
    times += [time_s for lane in found for span in lane.spans
              for time_s in (span.begin_s, span.end_s)]
    times += [point[0] for point in curve]
    return min(times), max(times)


def _waits(attempt, moments):
    """From when to when each program waited for its peer."""
    open_at = {}
    for event in attempt.events:
        if not re.fullmatch(r"hostapd|station|client\d+|root\d+", event.source):
            continue
        begins = re.match(WAITING_BEGINS, event.text)
        if begins:
            open_at.setdefault((event.source, begins.group(1)), event)
            continue
        ends = re.match(WAITING_ENDS, event.text)
        begun = open_at.pop((event.source, ends.group(1)), None) if ends else None
        if begun:
            yield _wait(begun, event, moments)
    for begun in open_at.values():
        yield _wait(begun, attempt.events[-1], moments)


def _wait(begun, ended, moments):
    begin_s, end_s = moments.of(begun), moments.of(ended)
    lasted = " for %.1f s" % (end_s - begin_s) if moments.has_times else ""
    return lane_id(begun), Span(begin_s, end_s, "waits for its peer" + lasted, begun, "waiting")


def _commands(attempt, moments):
    """What the daemon ran and how long: until its end was seen, or the daemon went on."""
    if not moments.has_times:
        return
    # The daemon does one thing at a time; but without its log nothing tells when it went on.
    has_console = any(event.source == "console" for event in attempt.events)
    goes_on, ends, spans = None, {}, []
    for event in reversed(attempt.events):
        ended = re.match(r"\d+ command \S+ (status|signal) (\d+) (.*)$", event.text)
        if event.source == "exit" and ended:
            how, number, command = ended.groups()
            killed = ", then is killed by signal %s" % number
            ends[command] = event, killed if how == "signal" else ""
        if event.source == "console" and not re.search(OTHER_THREAD, event.text):
            goes_on = event
        found = re.match(r"[1-9]\d* (.+)", event.text)
        if event.source not in ("command", "script") or not found:
            continue
        seen_end, how = ends.pop(found.group(1), (None, ""))
        end = seen_end or (goes_on if has_console else None)
        goes_on = event
        if end is not None and moments.of(end) > moments.of(event):
            span = _command(event, end, seen_end is not None, moments)
            span.words += how
            spans.append((lane_id(event), span))
    yield from reversed(spans)


def _command(event, end, surely, moments):
    begin_s, end_s = moments.of(event), moments.of(end)
    lasted = "%s%.2f s" % ("" if surely else "at most ", end_s - begin_s)
    line = event.text.split(" ", 1)[1]
    return Span(begin_s, end_s, "runs %s for %s" % (line, lasted), event)
