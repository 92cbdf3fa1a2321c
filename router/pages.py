# SPDX-License-Identifier: ISC
"""The pages of the runs: one beside each run's logs, and an index of several."""

import os

PAGE, INDEX = "page.html", "index.html"


class PageError(Exception):
    """The page cannot be made; the text is a sentence without its end."""


def write_page(folder):
    """Makes the page of a run folder; returns its path."""
    report = _Report()
    log = report.read(folder)
    return _write(os.path.join(folder, PAGE), report.page.render([log], log.scenario or folder))


def write_index(folders, top):
    """Makes the page that leads to those of the run folders; returns its path."""
    title = "Attempts on the virtual router"
    return _write(os.path.join(top, INDEX), _Report().index.render(folders, top, title))


class _Report:
    """What makes pages; it needs a package that the rest of the demonstration does without."""

    def __init__(self):
        try:
            from report import index, page, readers
        except ImportError as error:
            raise PageError("there is no page without the package python3-jinja2 (%s)"
                            % error) from error
        self.index, self.page, self._readers = index, page, readers

    def read(self, folder):
        try:
            return self._readers.read(folder)
        except self._readers.ReadError as error:
            raise PageError("there is no page: %s" % error) from error


def _write(path, text):
    partial = path + ".new"
    try:
        with open(partial, "w", encoding="utf-8") as out:
            out.write(text)
        os.replace(partial, path)
    except OSError as error:
        raise PageError("the page cannot be written to %s: %s" % (path, error.strerror)) from error
    return path
