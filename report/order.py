# SPDX-License-Identifier: ISC
"""Puts the lines of several listeners into the order in which things happened.

Each source has a listener of its own, and on a busy router a listener is late. It is never early,
and it keeps the order of its own source. So something has happened

- before its own line was noted,
- before the next line of the same source was noted, and
- before anything was noted that it has caused.

The earliest of these is the time that its line gets here. Nothing else is moved.
"""

import heapq
import re
from dataclasses import replace

from report import facts
from report.events import BANDS

LATE_S = 2.5  # by two seconds a listener may be late; and no cause is noted in no time
REACH_S = 5  # so long behind its cause something may be noted, if it was late as well
SUCCESS, SILENT, IDLE = 2, 12, 0
_REQUEST = "10"  # the daemon's number of a wps_cli event
_ANNOUNCES = re.compile(r"ubus send wps '(\{.*\})'")
_STARTS = ("press", "asked", "asked-pin")
_ASKED = ("asked", "asked-pin", "asked-cancel")
_WIFI = ("hostapd", "station")
_OPENS = {"pushes": "WPS-PBC-ACTIVE", "takes-pin": "WPS-PIN-ACTIVE"}


# Each of these gives the names by which a line and another source's line of it belong together:
# none where it is no such line.

def _is(kinds, source):
    return lambda fact: ["it"] if fact.kind in kinds and fact.event.source == source else []


def _taken_request(fact):
    return ["it"] if fact.kind == "taken" and fact.data["code"] == _REQUEST else []


def _announcement(source):
    return lambda fact: [tuple(sorted(fact.data.items()))] \
        if fact.kind == "announced" and fact.event.source == source else []


def _announcing_command(fact):
    """Named as what comes of it on the bus."""
    sent = _ANNOUNCES.search(_command(fact)) if _is_run(fact) else None
    line = replace(fact.event, source="bus", text='{ "wps": %s }' % sent.group(1)) if sent else None
    return [name for one in facts.of_each([line] if line else [])
            for name in _announcement("bus")(one)]


def _starting_command(fact):
    return ["it"] if any(("action", 1) in name for name in _announcing_command(fact)) else []


def _answered(found):
    """Cancels that were taken: the daemon announces no more than that it has stopped."""
    waiting, taken = [], set()
    for fact in found:
        if fact.event.source != "bus":
            continue
        if fact.kind == "asked-cancel":
            waiting.append(fact.index)
        elif fact.kind == "announced":
            if fact.data["action"] == 2 and not _codes(fact) - {SILENT, IDLE}:
                taken.update(waiting)
            waiting = []
    return taken


def _codes(fact):
    return {code for name, code in fact.data.items() if name != "action" and code is not None}


def _start(fact):
    return ["it"] if fact.event.source == "bus" and fact.data.get("action") == 1 else []


def _command(fact):
    return (fact.data.get("command") or "").strip()


def _run(fact):
    """The number of the daemon that has done it; 0 is that of other programs."""
    number = fact.data.get("run") or "0"
    return int(number) if len(number) < 10 else 0


def _is_run(fact):
    """Whether it tells that a command was begun, seen from outside of the daemon."""
    return fact.event.source in ("command", "script") and _run(fact) > 0


def _begun(fact):
    return [(_run(fact), _command(fact))] if _is_run(fact) else []


def _ended(fact):
    return [(_run(fact), _command(fact))] if fact.kind == "command-end" else []


def _logged_command(fact):
    return [_command(fact)] if fact.event.source == "console" and _command(fact) else []


def _own_command(fact):
    return [_command(fact)] if _is_run(fact) else []


def _button(fact):
    """Without kelm, hostapd itself is asked by the router's own scripts."""
    return ("",) + BANDS if fact.kind == "press" and fact.event.source == "button" else ()


def _served(fact):
    return [fact.band] if fact.kind == "active" and fact.event.source == "hostapd" else []


def _opening(fact):
    return [(fact.band, _OPENS[fact.kind])] if fact.kind in _OPENS and _is_run(fact) else []


def _open(fact):
    found = facts.OPENED.search(fact.event.text) if fact.kind == "active" else None
    return [(fact.band, found.group())] if found and fact.event.source in _WIFI else []


def _stopping(fact):
    return [fact.band] if fact.kind == "stops" and _is_run(fact) else []


def _stopped(fact):
    return [fact.band] if fact.kind == "wifi-cancel" and fact.event.source in _WIFI else []


def _wifi_said(fact):
    return [(fact.band, fact.kind, fact.data.get("mac"))] if fact.event.source in _WIFI else []


def _daemon_heard(fact):
    return [(fact.band, fact.kind, fact.data.get("mac"))] if facts.is_carried(fact) else []


def _registered(fact):
    return [fact.band] if fact.kind == "registered" and fact.event.source in _WIFI else []


def _success(fact):
    return [band for band, code in fact.data.items() if band != "action" and code == SUCCESS] \
        if fact.kind == "announced" and fact.event.source == "bus" else []


def _silence(fact):
    """An access point announces that it serves a band no more."""
    is_end = fact.kind == "announced" and fact.event.source == "bus" and fact.data["action"] == 2
    return [band for band, code in fact.data.items() if band != "action" and code == SILENT] \
        if is_end and not _codes(fact) - {SILENT, IDLE} else []


# What comes first, what comes of it, as another source tells, and whether that follows at once:
# then what the other source had told before came before both. The last is how long behind the
# cause it may be noted: the system log is behind by itself.
AT_ONCE, LATER = True, False
LINKS = (
    (_is(("press",), "button"), _is(("asked",), "bus"), LATER, REACH_S),
    (_is(("press",), "button"), _is(("service-refuses",), "log"), LATER, REACH_S),
    (_button, _served, LATER, REACH_S),
    (_is(("press",), "bus"), _is(("press",), "console"), AT_ONCE, REACH_S),
    (_is(_ASKED, "bus"), _taken_request, AT_ONCE, REACH_S),
    (_is(_STARTS, "bus"), _starting_command, LATER, REACH_S),
    (_announcement("console"), _announcement("bus"), LATER, REACH_S),
    (_announcing_command, _announcement("bus"), LATER, REACH_S),
    (_logged_command, _own_command, LATER, REACH_S),
    (_begun, _ended, LATER, REACH_S),
    (_opening, _open, AT_ONCE, REACH_S),
    (_stopping, _stopped, AT_ONCE, LATE_S),
    (_wifi_said, _daemon_heard, LATER, REACH_S),
    (_registered, _success, LATER, REACH_S),
)


def _matched(found, link):
    """Pairs of a cause and its effect, in the order of both: each is in one pair at most."""
    causes_of, effects_of, _, reach_s = link
    waiting, effects = {}, []
    for fact in found:
        for name in causes_of(fact):
            waiting.setdefault(name, []).append(fact)
        effects += [(name, fact) for name in effects_of(fact)]
    next_one = {}
    for name, effect in effects:
        causes, place = waiting.get(name, []), next_one.get(name, 0)
        while place < len(causes) and causes[place].time_s < effect.time_s - reach_s:
            place += 1
        if place < len(causes) and causes[place].time_s <= effect.time_s + LATE_S:
            yield causes[place], effect
            place += 1
        next_one[name] = place


# --- What a daemon does one after the other ---

def _is_done_alone(fact):
    """A line of the daemon's own log, behind which it waits until that is done."""
    return fact.event.source == "console" and (
        _command(fact) or fact.kind in ("announced", "daemon-start"))


def _lives(found):
    """{(number, source): what that source shows of a daemon, its commands and then its end}"""
    lives = {}
    for fact in found:
        if _is_run(fact):
            lives.setdefault((_run(fact), fact.event.source), []).append(fact)
    for fact in found:
        if fact.kind == "daemon-end":
            for source in ("command", "script"):
                lives.setdefault((_run(fact), source), []).append(fact)
    return lives


def _in_turn(doings, come_of):
    """What comes of one doing is there before the next one."""
    for one, following in zip(doings, doings[1:]):
        for fact in [one] + come_of.get(one.index, []):
            yield fact, following


def _firsts(found, is_such):
    """Of the commands for all bands, which follow one another, the first."""
    firsts, was_such = set(), False
    for fact in found:
        if _is_run(fact) and fact.event.source == "command":
            if is_such(fact) and not was_such:
                firsts.add(fact.index)
            was_such = bool(is_such(fact))
    return firsts


def _among(indexes):
    return lambda fact: ["it"] if fact.index in indexes else []


def _links(found):
    come_of, at_once = {}, []
    links = LINKS + (
        (_start, _among(_firsts(found, _opening)), LATER, REACH_S),
        (_among(_answered(found)), _among(_firsts(found, _stopping)), AT_ONCE, REACH_S))
    starts = {_run(fact): fact for fact in found
              if fact.kind == "daemon-start" and fact.event.source != "console"}
    for link in links:
        for cause, effect in _matched(found, link):
            if effect.index != cause.index and _starting_command(effect) and _run(effect) in starts:
                yield starts[_run(effect)], cause  # it has heard the request
            yield cause, effect
            come_of.setdefault(cause.index, []).append(effect)
            at_once += [(cause, effect)] * link[2]
    # A daemon does not wait for this: it stops the other band before it.
    yield from _matched(found, (_stopping, _silence, LATER, REACH_S))
    lives = _lives(found)
    for life in lives.values():
        yield from _in_turn(life, come_of)
    yield from _in_turn([fact for fact in found if _is_done_alone(fact)], come_of)
    yield from _begins_and_ends(found, lives)
    yield from _last_words(found, come_of)
    yield from _before_both(found, at_once)


def _begins_and_ends(found, lives):
    """A daemon begins behind the end of the one before it, and ahead of all that it does."""
    ends = {_run(fact): fact for fact in found if fact.kind == "daemon-end"}
    for fact in found:
        if fact.kind == "daemon-start" and fact.event.source != "console":
            number = _run(fact)
            life = lives.get((number, "command"))
            if life:
                yield fact, life[0]
            last, own = ends.get(number - 1), ends.get(number)
            # One that finds another running ends at once.
            if last and (own is None or last.index < own.index):
                yield last, fact


def _last_words(found, come_of):
    """The daemon's own log: its lines between two starts are of one daemon."""
    ends = {_run(fact): fact for fact in found if fact.kind == "daemon-end"}
    number, last = 0, None
    for fact in found:
        if fact.event.source != "console":
            continue
        if fact.kind == "daemon-start":
            if number in ends:
                yield last, ends[number]
                yield ends[number], fact
            number = 0
        for effect in come_of.get(fact.index, []):
            number = _run(effect) if _is_run(effect) else number
        last = fact
    if number in ends:
        yield last, ends[number]


def _before_both(found, at_once):
    """What a listener had told before the effect: but what is told twice at a stop."""
    causes = {effect.index: cause for cause, effect in at_once}
    before = {}
    for fact in found:
        listener = _listener(fact.event)
        if fact.index in causes and listener in before:
            yield before[listener], causes[fact.index]
        if fact.kind not in ("wifi-timeout", "wifi-disabled"):
            before[listener] = fact


def _listener(event):
    """A system log has copies of what others say, with its own delay."""
    return event.source, event.iface, bool(event.wall)


# --- The order that follows ---

def _successors(events):
    """For each line those that happened behind it."""
    following = [[] for _ in events]
    for cause, effect in _links([fact for fact in facts.of_each(events)
                                 if fact.time_s is not None]):
        if cause.index != effect.index and cause.time_s - effect.time_s <= LATE_S:
            following[cause.index].append(effect.index)
    last = {}
    for index, event in enumerate(events):
        listener = _listener(event)
        if listener in last:
            following[last[listener]].append(index)
        last[listener] = index
    return following


def _latest(events, following):
    """The time by which each line's event had happened."""
    times = [event.time_s for event in events]
    before = [[] for _ in events]
    for index, ones in enumerate(following):
        for one in ones:
            before[one].append(index)
    # The earliest first: so each line gets its time once.
    soonest = [(time_s, index) for index, time_s in enumerate(times)]
    heapq.heapify(soonest)
    while soonest:
        time_s, index = heapq.heappop(soonest)
        for one in before[index] if time_s == times[index] else ():
            if times[one] > time_s:
                times[one] = time_s
                heapq.heappush(soonest, (time_s, one))
    return times


def in_order(events):
    """The lines in order; one that was late has the time by which it must have happened."""
    if any(event.time_s is None for event in events):
        return events
    following = _successors(events)
    times = _latest(events, following)
    return [_at(events[index], times[index]) for index in _sorted(times, following)]


def _at(event, time_s):
    return event if event.time_s == time_s else replace(event, time_s=time_s)


def _sorted(times, following):
    """By time, and among equal ones the cause first."""
    waits_for = [0] * len(times)
    for ones in following:
        for one in ones:
            waits_for[one] += 1
    ready = [(times[index], index) for index, count in enumerate(waits_for) if count == 0]
    heapq.heapify(ready)
    done = set()
    left = iter(sorted((time_s, index) for index, time_s in enumerate(times)))
    result = []
    while len(result) < len(times):
        if not ready:  # a circle of wrong links: the time decides
            ready.append(next(one for one in left if one[1] not in done))
        _, index = heapq.heappop(ready)
        if index in done:
            continue
        done.add(index)
        result.append(index)
        for one in following[index]:
            waits_for[one] -= 1
            if waits_for[one] == 0:
                heapq.heappush(ready, (times[one], one))
    return result
