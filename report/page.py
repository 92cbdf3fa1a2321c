# SPDX-License-Identifier: ISC
"""Makes the page: one file that needs no other, whatever the inputs hold."""

import base64
import hashlib
import os
import re

import jinja2
import markupsafe

from report import events, lanes, layout

HERE = os.path.dirname(os.path.abspath(__file__))

# Longer texts are cut, and of the rest of a huge input only the number of lines is told.
LONGEST_TEXT = 2000
MOST_LINES = 20000
MOST_ATTEMPTS = 200  # of an input; the last ones, as people press until they give up
MOST_EVIDENCE, LONGEST_EVIDENCE = 3, 64
HEADLINE_FONT = 20
MOST_TOLD = 12  # lines that one mark's hint holds

METHODS = {"press": "Push-button attempt", "PIN": "PIN attempt",
           "registrar": "Attempt of an external registrar", "request": "Attempt"}
# The classes, and what a screen reader says in place of the sign.
STATES = {True: ("good", "Worked"), False: ("bad", "Failed"), None: ("idle", "Note")}
KIND_NAMES = {events.RECORDING: "recording of kelm-watch", events.RUN: "run of the virtual router",
              events.CONSOLE: "console log"}

# Shapes of 12 by 12 pixels around their middle, and the strokes that are drawn upon them.
SHAPES = {
    lanes.PRESS: ("M-6 -5H6L0 6Z", ""),
    lanes.BEGIN: ("M-5 -6L6 0L-5 6Z", ""),
    lanes.GOOD: ("M0 -6.5A6.5 6.5 0 1 1 0 6.5A6.5 6.5 0 1 1 0 -6.5Z", "M-3 0.2L-0.8 2.6L3.2 -2.4"),
    lanes.BAD: ("M-6 -6H6V6H-6Z", "M-3 -3L3 3M3 -3L-3 3"),
    lanes.END: ("M-5 -5H5V5H-5Z", ""),
    lanes.NOTE: ("M0 -5.5L5.5 0L0 5.5L-5.5 0Z", ""),
}
# The order in which the kinds of several marks in one place count.
LOUDEST = (lanes.BAD, lanes.GOOD, lanes.PRESS, lanes.BEGIN, lanes.END, lanes.NOTE)

# What no page should do as it is told: control characters, marks that turn the direction of
# writing or are not seen, and halves of characters.
UNSEEN = re.compile("[\x00-\x08\x0b-\x1f\x7f-\x9f\u00ad\u061c\u200b-\u200f\u2028-\u202e"
                    "\u2060-\u206f\ufeff\ufff9-\ufffb\ud800-\udfff\ufffe\uffff]")


def render(logs, title):
    """The page of all these inputs."""
    views, left = [], MOST_LINES
    for number, log in enumerate(logs, 1):
        view = _LogView(log, number, left)
        left -= view.line_count
        views.append(view)
    css, script = _asset("page.css"), _asset("page.js")
    return _environment().get_template("page.html.j2").render(
        title=title, logs=views, attempts=[one for view in views for one in view.attempts],
        css=css, script=script, policy=_policy(css, script), kinds=lanes.KINDS,
        span_kinds=lanes.SPAN_KINDS)


def render_svg(log, attempt, title):
    """The picture of one attempt as a file of its own."""
    picture = lanes.lanes(log, attempt)
    # Without lines, so without links: there is no table that they could lead to.
    view = _AttemptView(log, attempt, "alone", picture, 0)
    one = layout.lay_out(picture, layout.FORMS[0])
    headline = layout.cut(view.headline, int(one.width / (HEADLINE_FONT * layout.BOLD_LETTER)))
    return _environment().get_template("alone.svg.j2").render(
        title=title, headline=headline, attempt=view, one=one, css=_asset("picture.css"),
        legend=list(_legend(picture)))


def render_index(runs, title, headline):
    """The page that leads to those of several runs, with their pictures in it."""
    css = _asset("page.css") + _asset("index.css")
    policy = "%s; img-src data:" % _policy(css, "")
    return _environment().get_template("index.html.j2").render(
        title=title, headline=headline, runs=runs, css=css, policy=policy)


def shown(text):
    """A text as it can be shown: nothing in it acts, and what cannot be seen is spelt."""
    if len(text) > LONGEST_TEXT:
        text = "%s… (%d more)" % (text[:LONGEST_TEXT], len(text) - LONGEST_TEXT)
    return UNSEEN.sub(lambda found: "\\u%04x" % ord(found.group(0)), text)


def _kinds(picture):
    """The kinds of marks and of spans that are in a picture."""
    return ({mark.kind for lane in picture.lanes for mark in lane.marks}
            | {span.kind for lane in picture.lanes for span in lane.spans})


def _verdict(log, verdict, ids, start_s):
    """A verdict as the template shows it. ids: the place of each line on the page."""
    state, word = STATES[verdict.good]
    evidence, seen = [], set()
    for event in verdict.evidence:
        told = lanes.telling(log, event)
        text = layout.cut(told[2] if told else lanes.plain(event), LONGEST_EVIDENCE)
        if event in ids and text not in seen:
            seen.add(text)
            moment = _time_text(event, start_s) or "line %d" % event.number
            evidence.append((ids[event], moment, text))
    return {"bands": [verdict.band] if verdict.band else [], "state": state, "word": word,
            "sentence": verdict.sentence, "cause": verdict.cause,
            "evidence": evidence[:MOST_EVIDENCE]}


def _together(verdicts):
    """Bands of which the same is to be said have one sentence."""
    found = []
    for verdict in verdicts:
        same = next((one for one in found
                     if (one["cause"], one["sentence"]) == (verdict["cause"], verdict["sentence"])),
                    None)
        if same is None:
            found.append(verdict)
            continue
        same["bands"] += verdict["bands"]
        known = {text for _, _, text in same["evidence"]}
        same["evidence"] += [one for one in verdict["evidence"] if one[2] not in known]
    return found


def _legend(picture):
    """(place from the left, kind, words) of the kinds of marks and spans in the picture."""
    there, left = _kinds(picture), 0.0
    for kind, text in [*lanes.KINDS.items(), *lanes.SPAN_KINDS.items()]:
        if kind in there:
            yield left, kind, text
            left += layout.text_width(text, layout.FORMS[0].font) + 30


def _finalize(value):
    if isinstance(value, str) and not hasattr(value, "__html__"):
        return shown(value)
    return value


def _environment():
    environment = jinja2.Environment(
        loader=jinja2.FileSystemLoader(HERE), autoescape=True, finalize=_finalize,
        trim_blocks=True, lstrip_blocks=True, undefined=jinja2.StrictUndefined)
    environment.globals.update(shapes=SHAPES, loudest=_loudest, hint=_hint)
    environment.filters["capital"] = lambda text: text[:1].upper() + text[1:]
    environment.filters["px"] = lambda number: ("%.1f" % number).rstrip("0").rstrip(".")
    return environment


def _asset(name):
    """A style or a script of this folder; page.css begins with the one of the picture."""
    with open(os.path.join(HERE, name), encoding="utf-8") as file:
        text = file.read()
    if name == "page.css":
        text = _asset("picture.css") + text
    assert "</" not in text, "%s would end its element" % name
    return markupsafe.Markup("\n" + text)


def _policy(css, script):
    """What the page may do: show itself. Nothing is fetched, and no other script can run."""
    def source(text):
        digest = hashlib.sha256(text.encode("utf-8")).digest()
        return "'sha256-%s'" % base64.b64encode(digest).decode("ascii")
    return ("default-src 'none'; style-src %s; script-src %s; base-uri 'none'; form-action 'none'"
            % (source(css), source(script)))


class _LogView:
    """An input as the template sees it."""

    def __init__(self, log, number, left):
        from report import attempts as finder
        self.log = log
        self.id = "log%d" % number
        self.name = log.scenario or os.path.basename(os.path.normpath(log.path)) or "log"
        self.kind = KIND_NAMES.get(log.kind, log.kind)
        self.trouble = list(log.trouble)
        found = finder.attempts(log)
        inside = {event for attempt in found for event in attempt.events}
        outside = [event for event in log.events if event not in inside]
        ids = {event: "%s-outside-line%d" % (self.id, number)
               for number, event in enumerate(outside[:MOST_LINES], 1)}
        self.attempts, self.line_count = [], 0
        self.left_out_attempts = max(len(found) - MOST_ATTEMPTS, 0)
        for place, attempt in list(enumerate(found, 1))[self.left_out_attempts:]:
            view = _AttemptView(log, attempt, "%s-attempt%d" % (self.id, place),
                                lanes.lanes(log, attempt), max(left - self.line_count, 0), ids)
            view.number, view.count, view.log_name = place, len(found), self.name
            self.attempts.append(view)
            self.line_count += len(view.rows)
        self.outside_count = len(outside)
        outside = outside[:max(left - self.line_count, 0)]
        first = found[0].start_s if found else None
        self.outside = _rows(log, outside, "%s-outside" % self.id,
                             first if first is not None else _first_s(outside))
        self.outside_left_out = self.outside_count - len(self.outside)
        self.line_count += len(self.outside)
        standing = finder.without_attempt(log) if not found else []
        self.standing = [_verdict(log, one, ids, _first_s(outside)) for one in standing]
        self.next = list(dict.fromkeys(one.advice for one in standing if one.advice))
        self.first = log.events[0].wall if log.events else ""
        self.files = [_FileView(path, told) for path, told in sorted(log.files.items())]

    @property
    def facts(self):
        """What is known of the input, beside its name."""
        told = [self.kind, self.log.program, self.first,
                "%d lines" % len(self.log.events)]
        if self.log.anonymous:
            told.append("addresses and names are aliases")
        if not self.log.has_times:
            told.append("no times")
        return [one for one in told if one]


class _AttemptView:
    """An attempt as the template sees it."""

    def __init__(self, log, attempt, name, picture, most, ids_outside=None):
        self.id = name
        self.log = log
        self.attempt = attempt
        self.picture = picture
        self.number = self.count = 1
        self.log_name = ""
        shown_events = attempt.events[:most]
        self.rows = _rows(log, shown_events, name, attempt.start_s,
                          lanes.evidence(attempt))
        self.left_out = len(attempt.events) - len(self.rows)
        self.layouts = [layout.lay_out(picture, form) for form in layout.FORMS]
        self._ids = dict(ids_outside or {})
        self._ids.update((event, row["id"]) for event, row in zip(shown_events, self.rows))
        self.filters = _filters(self.rows)
        self.kinds = _kinds(picture)
        self.verdicts = _together([_verdict(log, one, self._ids, attempt.start_s)
                                   for one in attempt.bands.values()])
        self.notes = [_verdict(log, one, self._ids, attempt.start_s) for one in attempt.notes]
        if not self.verdicts:
            self.verdicts, self.notes = self.notes, []
        self.next = _advice(attempt)
        self.written = [row for row in self.rows if row["event"].source == "file"]
        walls = [event.wall for event in attempt.events if event.wall]
        self.wall = walls[0] if walls else ""

    @property
    def heading(self):
        """Which attempt it is, and how it was begun."""
        told = METHODS.get(self.attempt.method, METHODS["request"])
        return "Attempt %d: %s" % (self.number, told.lower()) if self.count > 1 else told

    @property
    def state(self):
        """(class, word)"""
        return STATES[self.attempt.good]

    @property
    def headline(self):
        """The verdict in one line, whatever is known."""
        told = self.attempt.headline or " ".join(
            "%s: %s" % (one.band, one.sentence) for one in self.attempt.bands.values())
        return told or "What became of this attempt is not known."

    def link(self, event):
        """The place of an event's line on the page, or "" where it has none."""
        return self._ids.get(event, "")

    def links(self, placed):
        """The lines behind a mark in the picture."""
        found = [event for mark in placed.marks for event in [mark.event, *mark.more]]
        return [self._ids[event] for event in found if event in self._ids]


class _FileView:
    """A file that a run left behind: what it holds, by name."""

    def __init__(self, path, told):
        told = told if isinstance(told, dict) else {}
        self.path = path
        self.mode = str(told.get("mode", ""))
        keys = told.get("keys")
        self.keys = [str(key) for key in keys] if isinstance(keys, list) else []
        values = told.get("values")
        self.values = ["%s %s" % (key, value) for key, value in values.items()] \
            if isinstance(values, dict) else []


def _first_s(found):
    return next((event.time_s for event in found if event.time_s is not None), None)


def _time_text(event, zero_s):
    if event.time_s is None:
        return ""
    return "%.2f s" % (event.time_s - (zero_s or 0.0))


def _rows(log, found, name, zero_s, proofs=()):
    """The table's rows."""
    rows, pressed = [], None
    for number, event in enumerate(found, 1):
        told = lanes.telling(log, event)
        who = told[0] if told else ""
        lane = lanes.lane_id(event, who)
        text = lanes.in_lane(lane, *told, lanes.asked_by_button(pressed, event)) if told else ""
        if event.source == "button":
            pressed = event
        title = lanes.lane_title(lane, log)
        rows.append({"id": "%s-line%d" % (name, number), "time": _time_text(event, zero_s),
                     "number": event.number, "lane": lane, "title": title, "words": text,
                     "kind": lanes.kind_of(event) if told else "", "event": event,
                     "text": event.text.strip(), "source": event.source,
                     "proof": event in proofs})
    return rows


def _filters(rows):
    """(lane, title, number of lines), most telling lanes first."""
    counts = {}
    for row in rows:
        title, count = counts.get(row["lane"], (row["title"], 0))
        counts[row["lane"]] = (title, count + 1)
    ordered = sorted(counts.items(), key=lambda one: (lanes.rank(one[0]), one[0]))
    return [(lane, title, count) for lane, (title, count) in ordered]


def _advice(attempt):
    """What to do next: once, however many bands say so. That nobody came on a band as well is no
    more to do."""
    told = [attempt.advice] + [one.advice for one in attempt.bands.values()
                               if one.cause != "nobody-came"]
    return list(dict.fromkeys(one for one in told if one))


def _loudest(placed):
    """The kind that tells of several marks in one place."""
    kinds = {mark.kind for mark in placed.marks}
    return next(kind for kind in LOUDEST if kind in kinds)


def _hint(marks, has_times):
    """What is told when somebody points at a mark."""
    told = []
    for mark in marks[:MOST_TOLD]:
        at = "%.2f s: " % mark.time_s if has_times else ""
        told.append("%s%s" % (at, mark.words))
    if len(marks) > MOST_TOLD:
        told.append("and %d more" % (len(marks) - MOST_TOLD))
    return "\n".join(told)
