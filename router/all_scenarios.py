# SPDX-License-Identifier: ISC
"""Plays many scenarios, one after the other: how far it is, a verdict each, a page of all."""

import os
import time

from router import pages, play, timeline


class _View(timeline.Silence):
    """Of a scenario that is one of many, only what it waits for is shown."""

    def __init__(self, screen, heading):
        super().__init__()
        self._screen = screen
        self._heading = heading
        self._begun = time.monotonic()

    def waiting(self, what, time_s, left_s):
        self._screen.rewrite("%s  %.0f s  ... waiting for %s" % (
            self._heading, time.monotonic() - self._begun, what))


class Player:
    """Plays scenarios; one that fails does not keep the others from being played."""

    def __init__(self, build_folder, screen):
        self._build = build_folder
        self._screen = screen
        self._folders = []
        self._left = 0  # that are still to be played
        self._begun = time.monotonic()
        self.failed = []

    def play(self, rows):
        self._left = len(rows)
        for number, row in enumerate(rows, 1):
            self._play_one(row, "%d of %d: %s" % (number, len(rows), row.name))

    def _play_one(self, row, heading):
        begun = time.monotonic()
        self._screen.rewrite(heading)
        outcome = play.play(row, self._build, _View(self._screen, heading))
        self._left -= 1
        good = not outcome.failures()
        if not good:
            self.failed.append(row.name)
        self._folders.append(outcome.log_folder)
        word, colour = timeline.VERDICTS[good]
        self._screen.line("%s  %s  %.0f s  %s" % (
            self._screen.paint(colour, word), heading, time.monotonic() - begun,
            outcome.last_line()))
        try:
            pages.write_page(outcome.log_folder)
        except pages.PageError as error:
            self._screen.line("      %s." % error)

    def finish(self, shown_path):
        """The sum, and the page of what has been played, be it all or not."""
        if not self._folders:
            return
        good = len(self._folders) - len(self.failed)
        text = "%d of %d scenarios passed in %.0f minutes" % (
            good, len(self._folders), (time.monotonic() - self._begun) / 60)
        if self.failed:
            text += "; failed: %s" % ", ".join(self.failed)
        if self._left:
            text += "; %d were not played" % self._left
        self._screen.line("\n%s." % text)
        try:
            path = pages.write_index(self._folders, os.path.join(self._build, "router"))
            self._screen.line("The pictures: %s" % shown_path(path))
        except pages.PageError as error:
            self._screen.line("%s." % error)
