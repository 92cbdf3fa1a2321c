# SPDX-License-Identifier: ISC
"""The words in which an attempt is told, of watch/words.inc: for the screen and for the page.

It is what kelm-watch prints (watch/words.cpp).
"""

import json
import re

from report import patterns

STARTED, STOPPED = 1, 2
IDLE, SILENT = 0, 12
_STOP = 0  # the stage of an end where all that took part are silent


def _read_table():
    table = {}
    for macro, texts in patterns.rows("words.inc"):
        table.setdefault(macro, []).append(texts)
    return table


_TABLE = _read_table()
BANDS = dict(_TABLE["BAND"])
STATUS_TEXTS = dict(_TABLE["STATUS"])
# Who does something, and the colour that tells it. Clients and roots have names of their own.
ACTORS = dict(_TABLE["ACTOR"])
COLOURS = dict(_TABLE["COLOUR"])
_VERBS, _METHODS, _STAGES = (dict(_TABLE[name]) for name in ("VERB", "METHOD", "STAGE"))
_NOTHING, _UNTOLD = _TABLE["NOTHING"][0][0], _TABLE["UNTOLD"][0][0]
_SAID = {event: (who, text) for event, who, text in _TABLE["SAY"]}
_WORDS = [(source, patterns.compiled(pattern), who, text)
          for source, pattern, who, text in _TABLE["WORD"]]

# Where the daemon has no console, its lines are in the system's log.
_SAME_SOURCE = {"log": "console"}
_BEFORE_LOG_LINE = re.compile(r"\A(?:[^ ]+ +){1,7}?[a-z]+[0-7]?\.[a-z]+ kelm\[[0-9]+\]: (?=kelm\[)")


def describe(source, text, names=None):
    """Returns (iface, who, text) for a line worth telling, else None.

    names: what clients and roots are called, {"client0": "phone"}.
    """
    if source == "bus":
        found = bus_line(text)
        return ("",) + found if found else None
    row_source = _SAME_SOURCE.get(source, source)
    if row_source == "console":
        text = _BEFORE_LOG_LINE.sub("", text)
    peer = re.fullmatch(r"(client|root)[0-9]+", source)
    if peer:
        row_source = peer[1]
    for of_source, pattern, who, words in _WORDS:
        found = pattern.search(text) if of_source == row_source else None
        if found:
            name = (names or {}).get(source, source) if peer else who
            return _told(pattern, found, name, words) if words else None
    return None


def _told(pattern, found, who, words):
    covered = list(zip(pattern.kinds, found.groups()))
    iface = next((text for kind, text in covered if kind == "iface"), "")
    return iface, who, words.format(*[text for kind, text in covered if kind != "iface"])


def bus_line(text):
    """Turns a line of `ubus listen` into (who, text); None when it says nothing new."""
    try:
        (name, members), = json.loads(text).items()
    except (ValueError, AttributeError, RecursionError):
        return None
    if name not in _SAID or not isinstance(members, dict):
        return None
    who, words = _SAID[name]
    if name == "wps_cli":
        asked = [_VERBS.get(_number(members, "action"), "?"),
                 _METHODS.get(_number(members, "method"), "")]
        return who, words.format(*asked).rstrip()
    codes = [_number(members, key) for key in ("2g_status", "5g_status")]
    return who, words.format(announcement(_number(members, "action"), codes))


def _number(members, name):
    """None for what is no integer of up to nine digits."""
    value = members.get(name)
    is_number = isinstance(value, int) and not isinstance(value, bool)
    return value if is_number and abs(value) < 10 ** 9 else None


def announcement(action, codes):
    """What an announced state means; an attempt has two ends, its stop and then its result."""
    if action == STOPPED and set(codes) - {IDLE} == {SILENT}:
        return _STAGES[_STOP]
    if set(codes) == {IDLE}:
        return _NOTHING
    stage = _STAGES.get(action or None, _shown(action))
    bands = ", ".join("%s %s" % (BANDS[name], STATUS_TEXTS.get(code, _shown(code)))
                      for name, code in zip(("2g", "5g"), codes))
    return "%s (%s)" % (stage, bands)


def _shown(number):
    return _UNTOLD if number is None else str(number)


def actor_of(source, who):
    """The row of ACTORS for a line that `who` says."""
    kind = re.match(r"client|root", source)
    return kind.group(0) if kind else who
