# SPDX-License-Identifier: ISC
"""The lines that a person follows the virtual router by; report/words.py has their words."""

import time

from report import words
from router.screen import REMINDER_S, NoSteps, Screen, Steps

# The virtual router's own names beside the makers'.
BANDS = dict(words.BANDS, **{
    "phy0-ap0": "2.4 GHz", "phy0-ap1": "guests", "phy1-ap0": "5 GHz",
    "phy0-sta0": "2.4 GHz", "phy1-sta0": "5 GHz"})
VERDICTS = {True: ("PASS", "green"), False: ("FAIL", "red")}

# The scenarios' own notes that are read again: by the sentence at the end.
CLOCK_MOVED = "moves the router's clock forward by %d seconds"
RESTARTED = "the owner runs `wifi`: all radios are set up anew"
CUT = "the router's power is cut, and comes back"

# So long after a press a request is the button's.
BY_BUTTON_S = 15


def describe(event, client_names):
    """Returns (band, who, text) for an event worth telling, else None."""
    told = words.describe(event.source, event.text, client_names)
    return told and (BANDS.get(told[0], ""),) + told[1:]


class Timeline:
    """Prints events as they come; while nothing comes, says what is being waited for."""

    def __init__(self, out=None, environ=None, verbose=False):
        self.screen = Screen(out, environ)
        self.verbose = verbose
        self._zero = None
        self._last_line = None
        self._dots = 0
        self._pressed_s = None
        self.client_names = {}

    def steps(self, count):
        return Steps(self.screen, count)

    def zero_at(self, time_s):
        """Times are told from here on, in seconds since this moment of the guest's clock."""
        self._zero = time_s

    def on_event(self, event):
        told = describe(event, self.client_names)
        if told is None:
            return
        band, who, text = told
        who = self._who_asks(event, who)
        line = (who, band, text)
        with self.screen.lock:
            # hostapd says some things once for itself and once for the control interface.
            if line == self._last_line and who != "button":
                return
            self._last_line = line
            colour = words.ACTORS.get(words.actor_of(event.source, who))
            actor = self.screen.paint(colour, "%-9s" % who)
            self.screen.line("%s  %s %-8s %s" % (self._stamp(event.time_s), actor, band, text))

    def _who_asks(self, event, who):
        """The stock router's button asks by a script, as a web page would."""
        if event.source == "button":
            self._pressed_s = event.time_s
        asks = who == "web page" and self._pressed_s is not None
        return "script" if asks and event.time_s - self._pressed_s < BY_BUTTON_S else who

    def heading(self, text):
        self.screen.line("\n" + self.screen.paint("bold", text))

    def text(self, text=""):
        self.screen.line(text)

    def verdict(self, good, text):
        """A statement with its verdict before it."""
        word, colour = VERDICTS[good]
        self.screen.line("  %s  %s" % (self.screen.paint(colour, word), text))

    def last_line(self, good, text):
        """The outcome; on a terminal it is the line that stands out."""
        self.screen.line(self.screen.paint("bold" if good else "red", text))

    def waiting(self, what, time_s, left_s):
        """Called again and again while a scenario waits; left_s: how long it will at most."""
        text = "%s  ... waiting for %s (up to %.0f s more)" % (
            self._stamp(time_s), what, max(left_s, 0))
        with self.screen.lock:
            self._dots = self._dots % 3 + 1
            self.screen.rewrite(text + "." * self._dots)
            if (not self.screen.rewrites
                    and time.monotonic() - self.screen.last_line_s >= REMINDER_S):
                self.screen.line(text)

    def _stamp(self, time_s):
        if self._zero is None:
            return "%9s" % ""
        return "%7.2f s" % (time_s - self._zero)


class Silence:
    """A timeline for runs that nobody watches."""

    def __init__(self):
        self.client_names = {}

    def steps(self, _count):
        return NoSteps()

    def zero_at(self, time_s):
        pass

    def on_event(self, event):
        pass

    def heading(self, text):
        pass

    def text(self, text=""):
        pass

    def waiting(self, what, time_s, left_s):
        pass
