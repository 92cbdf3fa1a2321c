# SPDX-License-Identifier: ISC
"""Splits a log into attempts, each from a press or a request to its outcome."""

import bisect

from report.case import Case
from report.events import BANDS, BAND_2G, BAND_5G, Attempt, Event
from report.facts import Fact, facts
from report.verdicts import judge, standing

STARTED, SILENT, IDLE = 11, 12, 0
REPEATED_S = 12  # so soon the scripts of stock OpenWrt send a request again that nothing came of
MOST_SENT = 7  # they send it no more often; a slow router's still do when it has been served
STEP_S = 0.2
TAIL_S = 15  # what happens so soon after an outcome belongs to its picture
MOST_BEFORE = 4000  # facts before a press that can matter for it
EXCHANGE_S = 60  # of a registrar: so long before its end it may have begun
BUS_REQUEST = "10"  # the daemon's number of a wps_cli event
LOCKED = ("15", "18")  # errors of an exchange that only a PIN can have


class _Part:
    """The facts of one attempt, while they are being collected."""

    def __init__(self, fact, method):
        self.method = method
        self.opener = fact
        self.facts = []
        self.after = []
        self.presses = []  # further ones, which changed nothing
        self.started = None  # {band: code}
        self.outcome = None
        self.begun = False
        self.stop = None
        self.cancel = None
        self.end = None  # the fact that told the outcome
        self.daemon_end = None
        self.next_daemon = None
        self.is_cut_by_boot = False
        self.is_open = True  # until something says that it is over
        self.by_script = fact.kind in ("asked", "asked-pin") or fact.event.source == "button"
        self.sent = [fact] if fact.kind in ("asked", "asked-pin") else []  # by those scripts

    @property
    def is_over(self):
        return not self.is_open or self.outcome is not None or self.stop is not None


def _codes(fact):
    return {band: fact.data.get(band) for band in (BAND_2G, BAND_5G)}


class _Splitter:
    """Walks through the facts of a log once."""

    def __init__(self, found):
        self.found = found
        self.sees_bus = any(fact.event.source == "bus" for fact in found)
        self.parts = []
        self.now = None
        self.last_exchange = None
        self.request = None  # on the bus, as the daemon's own log tells it
        self.request_method = "request"

    def run(self):
        for place, fact in enumerate(self.found):
            step = None if fact.second_hand else STEPS.get(fact.kind)
            if step:
                step(self, fact, place)
            self._keep(fact)
        return self.parts

    def _keep(self, fact):
        if fact.kind == "exchange":
            self.last_exchange = fact
        if self.parts:
            part = self.parts[-1]
            (part.facts if part is self.now else part.after).append(fact)

    def _open(self, fact, method):
        self._close()
        self.request, self.request_method = None, "request"
        self.now = _Part(fact, method)
        self.parts.append(self.now)

    def _close(self):
        if self.now:
            self.now.is_open = False
        self.now = None

    def _is_repeat(self, fact):
        """Whether the scripts have sent the same request once more."""
        part = self.now or (self.parts[-1] if self.parts else None)
        if part is None or fact.kind == "press" or not part.by_script or part.cancel:
            return False
        if fact.time_s is None or part.opener.time_s is None:
            return part is self.now and not part.begun
        return self._is_soon(fact, part) and len(part.sent) < MOST_SENT

    @staticmethod
    def _is_soon(fact, part):
        """Behind the last time that the scripts have sent it."""
        last = part.sent[-1] if part.sent else part.opener
        return fact.time_s is not None and last.time_s is not None \
            and fact.time_s - last.time_s < REPEATED_S

    def press(self, fact, _place):
        method = {"asked": "press", "asked-pin": "PIN"}.get(fact.kind, "press")
        if self._is_repeat(fact):
            part = self.now or self.parts[-1]
            part.sent.append(fact)
            part.method = method if not part.begun else part.method
            self.request, self.request_method = fact, method
        elif self.now and self.now.begun and not self.now.is_over:
            self.now.presses.append(fact)
        else:
            self._open(fact, method)

    def refused(self, fact, _place):
        """The service says so at a press alone, which a system log does not show by itself."""
        if self.parts and self.parts[-1].begun and self.parts[-1].sent \
                and self._is_soon(fact, self.parts[-1]) and not self.parts[-1].presses:
            return  # the scripts have not seen in time that their request was served
        if self.now is None or self.now.is_over:
            self._open(fact, "request")
        elif self.now.begun and not self.now.presses:
            self.now.presses.append(fact)

    def announced(self, fact, _place):
        if fact.data["action"] == 1:
            self._announce_start(fact)
        elif self.now and self.now.begun:
            self._announce_end(fact)

    def _announce_start(self, fact):
        if self.now and self.now.started is not None and not self.now.is_over:
            # A daemon that serves an attempt starts no other: this is the next one.
            self.now.next_daemon = fact
            if self.now.presses:
                self.request, self.request_method = self.now.presses.pop(), "press"
        if self.now is None or self.now.started is not None or self.now.is_over:
            by_script = self.parts[-1].by_script if self.parts else False
            asked = self.request
            is_near = asked is not None and (
                fact.time_s is None or fact.time_s - asked.time_s < REPEATED_S)
            self._open(asked if is_near else fact, self.request_method if is_near else "request")
            self.now.by_script = by_script
        self.now.begun = True
        self.now.started = _codes(fact)

    def _announce_end(self, fact):
        part, codes = self.now, _codes(fact)
        known = set(codes.values()) - {None}
        ran = part.started or {}
        served = [codes[band] for band in codes if ran.get(band, codes[band]) == STARTED]
        if not known - {SILENT, IDLE} or served and set(served) == {SILENT}:
            part.stop = part.stop or fact
        else:
            part.outcome, part.end = codes, fact

    def push(self, fact, _place):
        if self.now is None or self.now.is_over:
            self._open(fact, "request")
        if not self.now.begun and fact.kind == "takes-pin":
            self.now.method = "PIN"
        self.now.begun = True

    def active(self, fact, _place):
        if self.now is None and not self._is_late(fact):
            self._open(fact, "request")
        if self.now:
            self.now.begun = True

    def _is_late(self, fact):
        """Whether the attempt that this belongs to has been told to its end already."""
        part = self.parts[-1] if self.parts else None
        return part is not None and part.end is not None and fact.time_s is not None and \
            part.end.time_s is not None and fact.time_s - part.end.time_s < 2

    def pin_method(self, _fact, _place):
        if self.now and not self.now.is_over:
            self.now.method = "PIN"
        else:
            self.request_method = "PIN"

    def taken(self, fact, _place):
        """Whether it starts an attempt, or cancels one, the daemon's next lines tell."""
        if self.sees_bus:
            return
        if fact.data["code"] == BUS_REQUEST and (self.now is None or self.now.is_over):
            self.request, self.request_method = fact, "press"

    def registrar(self, fact, _place):
        if self.now is not None and (self.now.begun or self.now.method == "registrar"):
            return
        if fact.kind == "failed" and fact.data.get("number") not in LOCKED:
            return
        begun = self.last_exchange
        near = begun is not None and begun.band == fact.band and (
            fact.time_s is None or fact.time_s - begun.time_s < EXCHANGE_S)
        last = self.parts[-1].after if self.parts else []
        self._open(begun if near and (not self.parts or begun in last) else fact, "registrar")
        if near and self.now.opener is begun and begun in last:
            place = last.index(begun)
            self.now.facts, last[place:] = last[place:], []
        self.now.begun = True

    def asked_cancel(self, fact, _place):
        if self.now and self.now.begun:
            self.now.cancel = self.now.cancel or fact
            self.now.stop = self.now.stop or fact

    def daemon_end(self, fact, _place):
        if self.now:
            self.now.daemon_end = fact
            self.now.facts.append(fact)
            self._close()

    def daemon_start(self, fact, place):
        part = self.now
        if part is None:
            if self.parts and self.parts[-1].next_daemon is None:
                self.parts[-1].next_daemon = fact
            return
        if not part.begun or self._is_told_late(fact, part):
            return
        part.next_daemon = fact
        self._close()

    @staticmethod
    def _is_told_late(fact, part):
        """Whether the system log is behind and tells the start of the daemon that serves this."""
        return fact.event.source == "console" and part.started is not None \
            and part.opener.event.source != "console" \
            and not any(one.kind == "announced" and one.event.source == "console"
                        for one in part.facts) and part.outcome is None

    def boot(self, _fact, _place):
        if self.now:
            self.now.is_cut_by_boot = True
        self._close()


STEPS = {"service-refuses": _Splitter.refused,
         "press": _Splitter.press, "asked": _Splitter.press, "asked-pin": _Splitter.press,
         "announced": _Splitter.announced, "pushes": _Splitter.push, "takes-pin": _Splitter.push,
         "active": _Splitter.active, "method-pin": _Splitter.pin_method, "taken": _Splitter.taken,
         "new-settings": _Splitter.registrar, "failed": _Splitter.registrar,
         "pin-locked": _Splitter.registrar, "asked-cancel": _Splitter.asked_cancel,
         "daemon-end": _Splitter.daemon_end, "daemon-start": _Splitter.daemon_start,
         "boot": _Splitter.boot}


def _mode(part, before):
    """By what the daemon did, else by what it had done at its start."""
    for fact in part.facts + part.after + before[::-1]:
        command = fact.data.get("command") or ""
        if fact.kind in ("estimate", "was-connected") or fact.data.get("role") == "station" \
                and fact.kind == "active" or "wpa_cli -p /var/run/wpa_supplicant " in command:
            return "repeater"
        if "hostapd_cli -p /var/run/hostapd " in command or fact.data.get("role") == "hostapd" and \
                fact.kind in ("active", "registered", "new-settings"):
            return "access point"
        if fact.kind == "verdict":
            return "access point" if fact.data["mode"] == "Ap" else "repeater"
    return ""


def _first_time(found):
    return next((fact.time_s for fact in found), None)


def _walk(part, end_s):
    """While the Wi-Fi daemon waited: from its start to the verdict, or what came in its place."""
    first = [fact for fact in part.facts if fact.kind in ("active", "pushes", "takes-pin")]
    if not first or first[0].time_s is None:
        return None
    ends = [fact for fact in part.facts if fact.kind in ("verdict", "stops", "wifi-cancel")]
    stop_s = _first_time(ends)
    stop_s = end_s if stop_s is None else stop_s
    return (first[0].time_s, max(stop_s, first[0].time_s)) if stop_s is not None else None


def _end(part):
    for fact in (part.end, part.daemon_end, part.stop, part.next_daemon):
        if fact is not None:
            return fact
    return part.facts[-1] if part.facts else part.opener


def _events(log, part, end, next_part, free):
    """The lines of an attempt's picture. free: the first line that is of no earlier attempt."""
    last = next_part.opener.index if next_part else len(log.events)
    first = part.opener.index
    # The sources are not quite in step: the press may stand before what opened the attempt.
    while first > free and end.time_s is not None and \
            log.events[first - 1].time_s > part.opener.time_s - STEP_S:
        first -= 1
    events = log.events[first:last]
    if end.time_s is None:
        return events
    return [event for event in events if event.time_s <= end.time_s + TAIL_S
            or event is end.event]


def attempts(log):
    """The attempts of a log in their order, each with its verdicts."""
    found = facts(log)
    places = [fact.index for fact in found]
    parts = _Splitter(found).run()
    result, free, sources = [], 0, {event.source for event in log.events}
    for place, part in enumerate(parts):
        next_part = parts[place + 1] if place + 1 < len(parts) else None
        first = bisect.bisect_left(places, part.opener.index)
        before = found[max(0, first - MOST_BEFORE):first]
        end = _end(part)
        attempt = Attempt(part.method, _mode(part, before))
        attempt.start_s, attempt.end_s = part.opener.time_s, end.time_s
        attempt.walk_s = _walk(part, end.time_s)
        attempt.events = _events(log, part, end, next_part, free)
        free = end.index + 1
        judge(Case(log, part, before, attempt, sources, next_part is None),
              attempt)
        attempt.bands = {band: attempt.bands[band] for band in BANDS if band in attempt.bands}
        result.append(attempt)
    return result


def without_attempt(log):
    """Verdicts on a log in which nothing was pressed: why a press would come to nothing. Mostly
    there are none."""
    found = facts(log)
    nobody = Fact("press", Event(None, "", "", ""), index=len(log.events))
    part = _Part(nobody, "press")
    before = found[-MOST_BEFORE:]
    attempt = Attempt("press", _mode(part, before))
    sources = {event.source for event in log.events}
    return standing(Case(log, part, before, attempt, sources, True))
