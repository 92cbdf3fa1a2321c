# SPDX-License-Identifier: ISC
"""The page that tells how to use script/report: its example is what comes out today."""

import re

import recorded

from report.attempts import attempts
from report.readers import read

TEXT = (recorded.TOP / "docs/report.md").read_text(encoding="utf-8")


def block(name):
    """The one block of the page with this name."""
    found, = re.findall(r"^```\w+ %s\n(.*?)^```$" % name, TEXT, re.MULTILINE | re.DOTALL)
    return found


def test_the_verdict_that_is_shown_is_that_of_the_example():
    path = block("example").split()[1]
    found, = attempts(read(str(recorded.TOP / path)))
    bands, sentence, question, advice = re.split(r"\n+(?=[A-Z])|(?<=GHz)\n", block("verdict"))
    assert bands.split(" and ") == list(found.bands)
    assert sentence.replace("\n", " ") + "." == found.headline
    assert (question, advice.strip()) == ("What to do next", found.advice)
