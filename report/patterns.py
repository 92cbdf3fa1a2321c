# SPDX-License-Identifier: ISC
"""The tables and the pattern language that kelm-watch and these programs share (watch/*.inc).

watch/kept.inc tells the language. This is the same matcher as watch/pattern.cpp, made of regular
expressions: a placeholder reaches as far as the first place where the text behind it stands, and
is not moved from there (the atomic groups).
"""

import ast
import re
from dataclasses import dataclass
from pathlib import Path

FOLDER = Path(__file__).resolve().parents[1] / "watch"

BLANKS = " \t\n\r\v\f"
_RUN = r"[^ \t\n\r\v\f]+"
_PAIR = r"[A-Za-z0-9_?]+=\[[0-9]{1,6}\]"
# What a placeholder covers; a trailing "?" is put behind each that is not at the end.
_COVERS = {
    "iface": _RUN, "word": _RUN, "number": r"[0-9]+", "rest": r".*", "network": r".*",
    "device": r".*", "hidden-rest": r".*", "as": r".*",
    "event-name": r"[A-Z][A-Z0-9_]*-[A-Z0-9_-]*",
}
_MARK = r"\[[0-9]{1,6} bytes\]"  # of a text that was left out before
_PLACEHOLDER = re.compile(r"\{(iface|word|number|rest|network|device|hidden|hidden-rest|lengths|"
                          r"event-name|as-[a-z._-]+)\}")
_ROW = re.compile(r"([A-Z]+)\((.*)\)")


def rows(name):
    """(macro, texts) of each row of a table of watch/, in order."""
    for line in (FOLDER / name).read_text(encoding="utf-8").splitlines():
        found = _ROW.fullmatch(line)
        if found:
            yield found[1], ast.literal_eval("(%s,)" % found[2])


@dataclass(frozen=True)
class Pattern:
    """kinds: of its placeholders in order, one for each group of the expression."""

    expression: re.Pattern
    kinds: tuple

    def search(self, text):
        return self.expression.search(text)


def compiled(pattern):
    """A Pattern of a row's text."""
    begins, ends = pattern.startswith("^"), pattern.endswith("$")
    parts = _PLACEHOLDER.split(pattern[begins:len(pattern) - ends])
    texts, kinds = parts[::2], parts[1::2]
    expression = (r"\A[ \t]*+" if begins else "") + re.escape(texts[0])
    for number, kind in enumerate(kinds, 1):
        is_last = number == len(kinds)
        expression += _group(kind, texts[number], is_last and ends)
    return Pattern(re.compile(expression + (r"\Z" if ends else ""), re.DOTALL), tuple(kinds))


def _group(kind, behind, is_end):
    """A placeholder and the text behind it."""
    if kind == "lengths":
        return r"((?:%s(?: %s)*)?)\Z" % (_PAIR, _PAIR)
    lazy = "" if not behind or is_end else "?"
    if kind == "hidden":
        covers = "(?:%s|%s%s)" % (_MARK, _RUN, lazy)
    else:
        covers = _COVERS["as" if kind.startswith("as-") else kind] + lazy
    return "(?>(%s)%s)" % (covers, re.escape(behind)) if lazy or not behind else (
        "(%s)%s" % (covers, re.escape(behind)))
