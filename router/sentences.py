# SPDX-License-Identifier: ISC
"""The sentence that a scenario ends with: what happened, put together from what was seen.

A scenario's row brings a list of parts. A part is a function of the evidence and returns a clause,
or nothing when the evidence does not show it.
"""

import json
import re

from report.words import STARTED, STOPPED
from router.timeline import BANDS, CLOCK_MOVED, CUT, RESTARTED

TRIES = r"(\S+): Trying to associate with \S+ \(SSID='(.*)' freq=(\d+) MHz\)"
CONNECTED = r"^(\S+): CTRL-EVENT-CONNECTED "
MOVED = CLOCK_MOVED.replace("%d", r"(\d+)")


class Join:
    """A station or a client that came onto a network: who, by which interface, where and when."""

    def __init__(self, source, interface, ssid, band, time_s):
        self.source = source
        self.interface = interface
        self.ssid = ssid
        self.band = band
        self.time_s = time_s

    def place(self):
        return '"%s" on %s' % (self.ssid, self.band)


class Evidence:
    """What the events of a whole scenario say; times are the guest's, in seconds."""

    def __init__(self, events, names):
        self.events = list(events)
        self.names = dict(names)
        self.starts = self._find_starts()
        self.joins = self._find_joins()

    def all(self, source, pattern, since_s=0.0):
        """The events of a source (a pattern too) that hold the pattern, as (event, match)."""
        pairs = ((event, re.search(pattern, event.text)) for event in self.events
                 if event.time_s >= since_s and re.fullmatch(source, event.source))
        return [(event, found) for event, found in pairs if found]

    def first(self, source, pattern, since_s=0.0):
        found = self.all(source, pattern, since_s)
        return found[0] if found else None

    def last_start(self):
        return self.starts[-1] if self.starts else None

    def clock_s(self, begin_s, end_s):
        """What the router's own clock ran between two times: the scenarios move it."""
        moved = sum(int(found.group(1)) for event, found in self.all("demo", MOVED, begin_s)
                    if event.time_s <= end_s)
        return end_s - begin_s + moved

    def source_of(self, name):
        for source, known in self.names.items():
            if known == name:
                return source
        return None

    def bus(self, name):
        """The events of that name on the bus, as (event, members); a broken line is none."""
        found = []
        for event in self.events:
            if event.source != "bus":
                continue
            try:
                members = json.loads(event.text).get(name)
            except (ValueError, AttributeError):
                continue
            if isinstance(members, dict):
                found.append((event, members))
        return found

    def _find_starts(self):
        """What started each attempt, as (time, word): the last request before its announcement."""
        requests = [(event.time_s, "the press") for event, _ in self.bus("gpio")]
        requests += [(event.time_s, "its PIN was entered" if members.get("method") == 2
                      else "the request") for event, members in self.bus("wps_cli")
                     if members.get("action") == STARTED]
        starts = []
        presses = self.all("button", r"^wps released")
        announced = [event.time_s for event, members in self.bus("wps")
                     if members.get("action") == STARTED]
        requests = _by_button(requests, [event.time_s for event, _ in presses], announced)
        for event, members in self.bus("wps"):
            before = [row for row in sorted(requests) if row[0] <= event.time_s]
            if members.get("action") == STARTED and before:
                starts.append(before[-1])
        if starts or not presses:
            return starts
        # Without kelm nobody announces a start; the button's own scripts begin at once.
        return [(event.time_s, "the press") for event, _ in presses]

    def end_s(self, since_s):
        """When the daemon's time was up, or else its result announced; None without a result."""
        result_s = self._result_s(since_s)
        timeout = self.first("console", r"kelm\[[^]]*\]: wps Timeout", since_s)
        if result_s is not None and timeout and timeout[0].time_s < result_s:
            return timeout[0].time_s
        return result_s

    def _result_s(self, since_s):
        for event, members in self.bus("wps"):
            codes = {members.get("2g_status"), members.get("5g_status")}
            if event.time_s >= since_s and members.get("action") == STOPPED and codes != {12}:
                return event.time_s
        return None

    def _find_joins(self):
        tried, joins = {}, []
        for event in self.events:
            if not re.fullmatch(r"client\d|station", event.source):
                continue
            trial = re.search(TRIES, event.text)
            if trial:
                tried[event.source, trial.group(1)] = trial.groups()[1:]
            done = re.search(CONNECTED, event.text)
            if done and (event.source, done.group(1)) in tried:
                ssid, frequency = tried[event.source, done.group(1)]
                ssid = as_written(ssid)
                band = BANDS["2g" if int(frequency) < 3000 else "5g"]
                joins.append(Join(event.source, done.group(1), ssid, band, event.time_s))
        return joins


def _by_button(requests, presses, announced):
    """Where a script asks for the button, again if need be, the press is what started it."""
    found = []
    for time_s, word in requests:
        before = [press_s for press_s in presses if press_s <= time_s]
        if before and not any(before[-1] < start_s < time_s for start_s in announced):
            time_s, word = before[-1], "the press"
        found.append((time_s, word))
    return found


# Words.

# As the supplicant writes what is no plain character.
ESCAPES = {"n": b"\n", "r": b"\r", "t": b"\t", "e": b"\033"}


def as_written(text):
    """A name in the supplicant's own writing, as people write it."""
    def raw(found):
        word = found.group(1)
        if word.startswith("x"):
            return bytes([int(word[1:], 16)]).decode("latin-1")
        return ESCAPES.get(word, word.encode()).decode("latin-1")
    pieces = re.sub(r"\\(x[0-9a-f]{2}|.)", raw, text)
    try:
        return pieces.encode("latin-1").decode("utf-8")
    except UnicodeError:
        return text


def listed(words):
    return " and ".join([", ".join(words[:-1])] * (len(words) > 1) + words[-1:])


def after(evidence, time_s, again=False):
    """How long after its attempt's start something happened."""
    before = [row for row in evidence.starts if row[0] <= time_s]
    if not before:
        return ""
    start_s, word = before[-1]
    if again and word == "the press":
        word = "the next press"
    return " %.1f s after %s" % (time_s - start_s, word)


def sentence(parts, evidence):
    """The clauses of all parts that the evidence bears, as one sentence."""
    clauses = [clause for clause in (part(evidence) for part in parts) if clause]
    text = "; ".join(clauses) or "nothing worth telling was seen"
    return text[0].upper() + text[1:] + "."


# Parts.

def seen(source, pattern, text):
    """A clause that the first event with the pattern bears; its groups fill the text."""
    def part(evidence):
        found = evidence.first(source, pattern)
        return text.format(*found[1].groups()) if found else ""
    return part


def joined(name, again=False):
    """Which network a client has joined in the last attempt, on which band and when."""
    def part(evidence):
        start = evidence.last_start()
        source = evidence.source_of(name)
        for join in evidence.joins:
            if join.source == source and (start is None or join.time_s >= start[0]):
                return "the %s joined %s%s" % (name, join.place(),
                                               after(evidence, join.time_s, again))
        return "the %s joined no network" % name
    return part


def got_nothing(name):
    def part(evidence):
        source = evidence.source_of(name)
        if source is None:
            return ""
        let_in = evidence.first(source, "WPS-CRED-RECEIVED|CTRL-EVENT-CONNECTED")
        return "the %s got %s" % (name, "in as well" if let_in else "nothing")
    return part


def registrar_joined(name):
    """An external registrar names a network and joins it; nothing else starts that attempt."""
    def part(evidence):
        told = evidence.first("hostapd", "^wlan[01]: WPS-NEW-AP-SETTINGS")
        joins = [join for join in evidence.joins if join.source == evidence.source_of(name)]
        if told is None or not joins:
            return "the %s changed no network" % name
        return "the %s gave the router new settings and joined %s %.1f s later" % (
            name, joins[-1].place(), joins[-1].time_s - told[0].time_s)
    return part


def gave_up(why, start_word=""):
    """That the daemon ended an attempt without anybody, and when by the router's clock.

    start_word: what started it, where nobody has come whose PIN it could be.
    """
    def part(evidence):
        start = evidence.starts[0] if evidence.starts else None
        end_s = evidence.end_s(start[0]) if start else None
        if end_s is None:
            return "the daemon told no result"
        joins = [join for join in evidence.joins if start[0] <= join.time_s <= end_s]
        if joins:
            return "somebody joined " + joins[0].place()
        ran_s = evidence.clock_s(start[0], end_s)
        text = "%s; the daemon gave up %.1f s after %s" % (
            why, ran_s, start_word or start[1])
        moved = round(ran_s - (end_s - start[0])) > 0
        return text + (" by the router's clock, which was moved" if moved else "")
    return part


def overlapped(evidence):
    """Which clients or roots were pushed at once, and that none of them was joined."""
    if not evidence.first("hostapd|station", "WPS-OVERLAP-DETECTED"):
        return "no overlap was seen"
    clients = [name for source, name in sorted(evidence.names.items())
               if evidence.first(source, "WPS-PBC-ACTIVE")]
    roots = {event.source for event, _ in evidence.all(r"root\d", "WPS-PBC-ACTIVE")}
    if clients:
        who = listed(["the " + name for name in clients]) + " were pushed at the same time"
    else:
        who = "%d root access points were pushed at the same time" % len(roots)
    return gave_up(who + " and nobody joined")(evidence)


def _cancel_s(evidence):
    times = [event.time_s for event, members in evidence.bus("wps_cli")
             if members.get("action") == 2]
    return times[0] if times else None


def cancelled(evidence):
    """That the web page called an attempt off, and when."""
    cancel_s = _cancel_s(evidence)
    if cancel_s is None:
        return "nobody cancelled the attempt"
    return "the web page cancelled the attempt" + after(evidence, cancel_s)


def came_too_late(name):
    """That a client was pushed after an attempt had been called off."""
    def part(evidence):
        source = evidence.source_of(name)
        cancel_s = _cancel_s(evidence)
        pushed = (None if source is None or cancel_s is None
                  else evidence.first(source, "WPS-PBC-ACTIVE", cancel_s))
        if not pushed or any(join.source == source for join in evidence.joins):
            return ""
        return "the %s, pushed%s, was too late and joined nothing" % (
            name, after(evidence, pushed[0].time_s))
    return part


def terminated(evidence):
    asked = evidence.first("demo", "^sends SIGTERM")
    ended = evidence.first("exit", r"^1 daemon \d+ (.*)$")
    if not asked or not ended:
        return "the daemon did not end"
    return ("the daemon was asked to end%s: it stopped the attempt and ended with %s %.1f s later"
            % (after(evidence, asked[0].time_s), ended[1].group(1),
               ended[0].time_s - asked[0].time_s))


def nobody_joined(evidence):
    return "" if evidence.joins else "nobody joined"


def unheard_press(evidence):
    """Presses before the first attempt: nobody took them up."""
    presses = [event for event, _ in evidence.bus("gpio")]
    first_s = evidence.starts[0][0] if evidence.starts else float("inf")
    if any(event.time_s < first_s for event in presses):
        return "without the bus at its start the daemon did not hear the first press"
    return ""


# Parts of a stock router's sentence.

RETURNS = [(RESTARTED, "`wifi`"), (CUT, "the reboot")]


def came_back(name):
    """After which restarts a client, or the station, has come back by itself, and after which not.
    """
    def part(evidence):
        source = name if name == "station" else evidence.source_of(name)
        causes = sorted((event.time_s, word) for pattern, word in RETURNS
                        for event, _ in evidence.all("demo", re.escape(pattern)))
        ends = [time_s for time_s, _ in causes[1:]] + [float("inf")]
        back = {True: [], False: []}
        for (time_s, word), end_s in zip(causes, ends):
            found = any(join.source == source and time_s <= join.time_s < end_s
                        for join in evidence.joins)
            back[found].append(word)
        clauses = [text % listed(back[found]) for found, text in
                   ((True, "it came back after %s"), (False, "it could not come back after %s"))
                   if back[found]]
        return listed(clauses)
    return part


def not_ready(evidence):
    """What the service says that keeps it from serving anybody."""
    found = evidence.all("log", r" kelm: ((?:hostapd has|\S+ GHz: ).*)$")
    if not found:
        return "kelm gave no reason"
    return "nobody can join; kelm says: %s" % found[-1][1].group(1)


# Parts of a repeater's sentence.

def router_joined(evidence):
    """Which networks the stations have come onto since the press, and when the last did."""
    start = evidence.last_start()
    firsts = {}
    for join in evidence.joins:
        if start and join.source == "station" and join.time_s >= start[0]:
            firsts.setdefault(join.band, join)
    if not firsts:
        return "the router joined no root"
    joins = [firsts[band] for band in sorted(firsts)]
    if len({join.ssid for join in joins}) == 1:
        places = ['"%s" on %s' % (joins[0].ssid, listed([join.band for join in joins]))]
    else:
        places = [join.place() for join in joins]
    return "the router joined %s%s" % (
        listed(places), after(evidence, max(join.time_s for join in joins)))


def enrolled_alone(evidence):
    """The one band that enrolled, when there was but one."""
    bands = {BANDS[found.group(1)] for _, found in evidence.all("station", r"^(\S+): WPS-SUCCESS")}
    return "only %s enrolled" % bands.pop() if len(bands) == 1 else ""


def given_the_key(evidence):
    """Which band was given what another has learnt."""
    found = evidence.all("console", r"patching wpsCfg\[band (\d)\] with rootAP")
    names = [BANDS.get(match.group(1), "band " + match.group(1)) for _, match in found]
    return "%s was given the same key" % listed(sorted(set(names))) if names else ""


def estimate_fell(evidence):
    found = evidence.all("console", r"\[WPS predict \d+\] (\d+) percent")
    percents = [int(match.group(1)) for _, match in found]
    if not percents or percents[-1] >= percents[0]:
        return ""
    return "the estimate of the silent band fell from %d to %d percent" % (
        percents[0], percents[-1])
