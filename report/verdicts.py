# SPDX-License-Identifier: ISC
"""Puts what the rules find into words: each band's verdict, the headline, the advice."""

from report import diagnosis, refusals
from report.case import answer
from report.causes import BY_ID, IMPORTANCE
from report.events import BANDS, Verdict

STARTED, SILENT = 11, 12
MOST_SHOWN = 5  # lines as the evidence of a note
KINDS = {"recording": "recording", "run": "recording", "console": "log"}


class _Words(dict):
    """Details for a sentence; one that is not there is left out of it."""

    def __missing__(self, key):
        return ""


def _verdict(case, band, found):
    cause, details, evidence = found
    row = BY_ID[cause]
    words = _Words({"daemon": case.daemon, "kind": KINDS[case.log.kind]}, **details)
    good = row.good
    # Without the daemon's log nobody knows whether the band takes over what another has learnt.
    if cause == "given-up" and (details["mirror"] or not details["estimate"]):
        good = None
    facts = sorted({fact.index: fact for fact in evidence}.items())
    sentence, advice = row.sentence, row.advice
    if case.is_repeater:
        sentence, advice = row.repeater_sentence or sentence, row.repeater_advice or advice
    if case.part.method == "PIN":
        advice = row.pin_advice or advice
    return Verdict(band, cause, good, sentence.format_map(words), advice.format_map(words),
                   [fact.event for _, fact in facts], details)


def _served_bands(case):
    """The bands that an attempt has to do with."""
    if case.part.started is not None:
        bands = {band for band, code in case.part.started.items() if code in (STARTED, SILENT)}
    else:
        bands = {fact.band for fact in case.all_of(("pushes", "takes-pin", "active"))}
    if case.part.method == "registrar":
        bands = {case.part.opener.band}
    bands |= {fact.band for fact in case.all_of(("registered", "wifi-success", "mirrored"))}
    return [band for band in BANDS if band in bands] or ([""] if "" in bands else [])


def _capital(text):
    return text[:1].upper() + text[1:]


def _summary(verdicts):
    """(headline, the verdict that stands for all)"""
    chief = min(verdicts, key=lambda one: (one.good is None, IMPORTANCE[one.cause]))
    if len({one.sentence for one in verdicts}) == 1 and chief.good is not True:
        return _capital(chief.sentence) + ".", chief
    told = ["%s: %s." % (one.band, one.sentence) if one.band else _capital(one.sentence) + "."
            for one in verdicts]
    return " ".join(told), chief


def _notes(case, attempt):
    """What else happened, beside the outcome."""
    presses = case.part.presses
    if presses:
        more = " and %d more times" % (len(presses) - 1) if len(presses) > 1 else ""
        attempt.notes.append(_verdict(case, "", answer(
            "refused-busy", presses[:MOST_SHOWN], after=case.after(presses[0]), more=more)))
    trouble = diagnosis.script_trouble(case, "") or diagnosis.bus_hung(case, "")
    if trouble and trouble[0] != attempt.cause:
        attempt.notes.append(_verdict(case, "", trouble))
    lost = case.first(("no-bus", "broker-gone"))
    if lost and attempt.cause != "bus-gone":
        attempt.notes.append(_verdict(case, "", answer("bus-gone", (lost,))))


def standing(case):
    """What would keep a press from working, as a log without a press tells it."""
    found = next(filter(None, (rule(case) for rule in refusals.STANDING)), {})
    return [_verdict(case, band, one) for band, one in found.items()]


def judge(case, attempt):
    """Fills in the verdicts of an attempt: each band's, the headline, the advice."""
    if case.part.begun:
        found = {}
        for band in _served_bands(case):
            found[band] = next(filter(None, (rule(case, band) for rule in diagnosis.RULES)))
        found = found or {"": next(filter(None, (rule(case, "") for rule in diagnosis.RULES)))}
    else:
        found = next(filter(None, (rule(case) for rule in refusals.RULES)))
    verdicts = [_verdict(case, band, one) for band, one in sorted(
        found.items(), key=lambda item: BANDS.index(item[0]) if item[0] in BANDS else -1)]
    attempt.bands = {one.band: one for one in verdicts if one.band}
    attempt.headline, chief = _summary(verdicts)
    attempt.cause, attempt.good = chief.cause, chief.good
    attempt.advice = chief.advice if chief.good is not True else ""
    if not attempt.bands:
        attempt.notes.append(chief)
    _notes(case, attempt)
