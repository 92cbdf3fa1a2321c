# SPDX-License-Identifier: ISC
"""An attempt as the rules look at it: its facts, and what was known before and behind it."""

import datetime

PUSH_BUTTON = "4"  # the password of a device whose button was pressed
GIVE_UP_PERCENT = 15
HEARD_S = 120  # so long a device that was heard counts as pushed
LONGEST_NAME = 32  # WPS allows a device no longer one


def _moment(wall):
    """The time of day in a recording, or None."""
    try:
        return datetime.datetime.strptime(wall, "%Y-%m-%dT%H:%M:%S.%fZ")
    except ValueError:
        return None


class Case:
    """An attempt with its facts, and what was known before and behind it."""

    def __init__(self, log, part, before, attempt, sources, is_last):
        self.log, self.part, self.before, self.attempt = log, part, before, attempt
        self.sources = sources  # of the whole log
        self._names = None
        self.is_last = is_last
        self.mode = attempt.mode
        self.is_repeater = attempt.mode == "repeater"
        self.daemon = "wpa_supplicant" if self.is_repeater else "hostapd"

    def all_of(self, kinds, band=None, behind=False):
        """Facts of these kinds, told at first hand; of one band, where a band is named."""
        kinds = (kinds,) if isinstance(kinds, str) else kinds
        where = self.part.facts + self.part.after if behind else self.part.facts
        return [fact for fact in where if fact.kind in kinds and not fact.second_hand
                and (band is None or fact.band == band)]

    def first(self, kinds, band=None, behind=False):
        return next(iter(self.all_of(kinds, band, behind)), None)

    def has_no_outcome(self):
        part = self.part
        return part.outcome is None and part.stop is None and part.daemon_end is None \
            and part.next_daemon is None and not part.is_cut_by_boot

    def verdict_begun(self):
        return self.first("verdict")

    def before_end(self, found):
        """Those that came before the daemon stopped waiting: the rest is its own doing."""
        stops = self.all_of(("verdict", "stops", "terminated"))
        limit = stops[0].index if stops else None
        return [fact for fact in found if limit is None or fact.index < limit]

    def elapsed_s(self, fact):
        start_s = self.attempt.start_s
        if fact is None or fact.time_s is None or start_s is None:
            return None
        return max(fact.time_s - start_s, 0.0)

    def waited_s(self, fact):
        """The same by the time of day, if that went further: by that the daemon waits."""
        seconds = self.elapsed_s(fact)
        if seconds is None:
            return None
        # What was noted late has a late time of day, too; others have seen the beginning in time.
        known = [_moment(one.event.wall) for one in [self.part.opener] + self.part.facts]
        last, first = _moment(fact.event.wall), min(filter(None, known), default=None)
        if first is None or last is None:
            return seconds
        return max(seconds, (last - first).total_seconds())

    def after(self, fact):
        """" after 2.4 s", or nothing where there are no times."""
        seconds = self.elapsed_s(fact)
        return "" if seconds is None else " after %s s" % (
            "%.1f" % seconds if seconds < 100 else "%.0f" % seconds)

    def info(self, band, status):
        """What /tmp/kelm.info told of a band, if it was this."""
        return next((fact for fact in self.all_of("info", band) if fact.data["status"] == status),
                    None)

    def low_estimate(self):
        """The last estimate, if the daemon gives up at it."""
        told = self.all_of("estimate")
        return told[-1] if told and int(told[-1].data["percent"]) < GIVE_UP_PERCENT else None

    def code(self, band):
        return (self.part.outcome or {}).get(band)

    def heard(self, band=None):
        """{identity: fact} of the devices that were heard in push-button mode, newest fact each."""
        found = {}
        first_s = self.part.opener.time_s
        recent = [fact for fact in self.before if first_s is not None and fact.time_s is not None
                  and first_s - fact.time_s < HEARD_S]
        for fact in recent + self.part.facts:
            if fact.kind == "heard" and fact.data["password"] == PUSH_BUTTON and (
                    band is None or fact.band == band):
                found[fact.data["uuid"]] = fact
        return found

    def name_of(self, mac):
        """A device by what it calls itself, in quotes as anybody may say so, and its address."""
        if self._names is None:
            self._names = {fact.data["mac"]: fact.data["name"]
                           for fact in self.before + self.part.facts
                           if fact.kind == "heard" and fact.data.get("name")}
        name = self._names.get(mac, "")
        if not mac:
            return "a device"
        return 'the "%s" (%s)' % (name[:LONGEST_NAME].replace('"', "'"), mac) if name else mac

    def who(self, mac):
        """A device in words: the scenario's name for it where there is one."""
        lanes = {fact.data["lane"] for fact in self.all_of("client-done")}
        names = [self.log.names[lane] for lane in lanes if lane in self.log.names]
        if len(lanes) == 1 and names:
            return "the " + names[0]
        return self.name_of(mac)


def answer(cause, evidence=(), **details):
    return cause, details, [fact for fact in evidence if fact is not None]
