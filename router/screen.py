# SPDX-License-Identifier: ISC
"""What the demonstration writes on: whole lines, one line that is rewritten in place, colours."""

import os
import shutil
import sys
import threading
import time

from report.words import COLOURS

# How long a program that waits may be silent where no line can be rewritten.
REMINDER_S = 20.0


def can_rewrite(out, environ):
    """Whether a line that has been written can be taken back."""
    return out.isatty() and environ.get("TERM") != "dumb"


def wants_colour(out, environ):
    """Colours are for a person's terminal, and not for people who said no to them."""
    return can_rewrite(out, environ) and not environ.get("NO_COLOR")


class Screen:
    """A terminal, a pipe or a file; several threads may write to it."""

    def __init__(self, out=None, environ=None):
        self._out = out or sys.stdout
        environ = os.environ if environ is None else environ
        self._colours = wants_colour(self._out, environ)
        self.rewrites = can_rewrite(self._out, environ)
        self.lock = threading.RLock()
        self.last_line_s = time.monotonic()

    def paint(self, colour, text):
        if not self._colours or not colour:
            return text
        return "\033[%sm%s\033[0m" % (COLOURS[colour], text)

    def line(self, text=""):
        """A line that stays."""
        with self.lock:
            # Several lines at once are one write: another program's may come between writes.
            self._write(("\r\033[K" if self.rewrites else "") + text + "\n")
            self.last_line_s = time.monotonic()

    def rewrite(self, text):
        """A line that the next one takes the place of; nothing where that cannot be."""
        if not self.rewrites:
            return
        with self.lock:
            # A line that wraps could not be taken back.
            self._write("\r%s\033[K" % text[:shutil.get_terminal_size().columns - 1])

    def _write(self, text):
        try:
            self._out.write(text)
            self._out.flush()
        except BrokenPipeError:
            # Nobody reads on: the scenario is played to its end all the same.
            self._out = open(os.devnull, "w", encoding="ascii", errors="replace")


class Steps:
    """How far the preparations are: on a terminal a line rewritten in place, else a line a step."""

    def __init__(self, screen, count):
        self._screen = screen
        self._count = count
        self._number = 0

    def begin(self, text):
        self._number += 1
        if self._screen.rewrites:
            self._screen.rewrite(self._line(text))
        else:
            self._screen.line(self._line(text))

    def update(self, text):
        if self._screen.rewrites:
            self._screen.rewrite(self._line(text))
        elif time.monotonic() - self._screen.last_line_s >= REMINDER_S:
            self._screen.line(self._line(text))

    def done(self, text):
        if self._screen.rewrites:
            self._screen.line(self._line(text))

    def _line(self, text):
        return "step %d of %d: %s" % (self._number, self._count, text)


class NoSteps:
    """For runs that nobody watches."""

    def begin(self, text):
        pass

    def update(self, text):
        pass

    def done(self, text):
        pass
