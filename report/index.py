# SPDX-License-Identifier: ISC
"""Makes the page that leads to the pages of several runs of the virtual router."""

import base64
import json
import os
import urllib.parse

import markupsafe

from report import attempts, page, readers

PAGE, RUN = "page.html", "run.json"


class _Run:
    """A run folder as the template sees it."""

    def __init__(self, folder, top):
        self.name = os.path.basename(os.path.normpath(folder))
        self.sentence = self.outcome = self.page = self.picture = ""
        self.good = False
        self.trouble, self.attempts = [], []
        self._read_run(folder)
        self._read_picture(folder)
        if os.path.exists(os.path.join(folder, PAGE)):
            self.page = urllib.parse.quote(os.path.relpath(os.path.join(folder, PAGE), top))

    def _read_run(self, folder):
        try:
            with open(os.path.join(folder, RUN), encoding="utf-8") as file:
                run = json.load(file)
        except (OSError, ValueError, RecursionError) as error:
            self.trouble.append("%s cannot be read: %s" % (RUN, error))
            return
        run = run if isinstance(run, dict) else {}
        self.sentence, self.outcome = str(run.get("sentence", "")), str(run.get("outcome", ""))
        self.good = run.get("passed") is True

    def _read_picture(self, folder):
        try:
            log = readers.read(folder)
        except readers.ReadError as error:
            self.trouble.append(str(error))
            return
        found = attempts.attempts(log)
        for number, attempt in enumerate(found, 1):
            heading = "Attempt %d" % number if len(found) > 1 else "The verdict"
            self.attempts.append({"heading": heading, "headline": attempt.headline})
        if found:
            drawn = page.render_svg(log, found[0], self.name).encode("utf-8")
            # No text that is shown, which would be cut.
            self.picture = markupsafe.Markup("data:image/svg+xml;base64,"
                                             + base64.b64encode(drawn).decode("ascii"))


def render(folders, top, title):
    """The page, as text, that lies in the folder top and leads to the pages of these run folders.
    """
    runs = [_Run(folder, top) for folder in folders]
    passed = sum(run.good for run in runs)
    return page.render_index(runs, title, "%d of %d scenarios ended as they should"
                             % (passed, len(runs)))
