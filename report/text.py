# SPDX-License-Identifier: ISC
"""Text from outside as text that may stand on a page: nothing in it that cannot be seen."""

import re
import unicodedata

LONGEST_TEXT = 4096  # of an event; no line that a program prints is near it

# Escape sequences of a terminal: colours, cursor movements, titles.
_ESCAPES = re.compile(
    r"\x1b(?:\[[0-?]*[ -/]*[@-~]|\][^\x07\x1b]*(?:\x07|\x1b\\)|[@-Z\\-_])")

# Control characters, those that turn the direction of writing, line separators, half pairs.
_UNSEEN = ("Cc", "Cf", "Cs", "Zl", "Zp")


def decoded(data):
    """Bytes of an input; what is no UTF-8 becomes the mark that Unicode has for it."""
    return data.decode("utf-8", "replace")


def without_escapes(text):
    """A terminal's escape sequences are how a text looks, not what it says."""
    return _ESCAPES.sub("", text) if "\x1b" in text else text


def _shown(character):
    if unicodedata.category(character) not in _UNSEEN:
        return character
    number = ord(character)
    return "\\x%02x" % number if number < 0x100 else "\\u%04x" % number


def visible(text):
    """Each character that is not seen becomes its number, so that none of them can mislead."""
    if len(text) > LONGEST_TEXT:
        text = text[:LONGEST_TEXT] + " [cut]"
    text = text.replace("\t", " ")
    return text if text.isascii() and text.isprintable() else "".join(map(_shown, text))
