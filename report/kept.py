# SPDX-License-Identifier: ISC
"""Takes the secrets out of a line: only what watch/kept.inc lists is kept.

It is what kelm-watch does before it writes (watch/kept.cpp). Run folders of the virtual router and
console logs were not written by kelm-watch, so it is done again for whatever is read.
"""

import json
import re

from report import patterns

_DEEPEST = 4  # rows that hand the rest to other rows
_INTEGER_MAX = 2 ** 31
_WORD = re.compile(r"[A-Za-z0-9_:.-]{0,32}")
_NAME = re.compile(r"[A-Za-z0-9_]{1,32}")
_MARK = re.compile(r"\[[0-9]{1,6} bytes\]")
# "Nov 22 12:04:45 (none) daemon.info kelm[283]: ", or as logread has it.
_SYSTEM_LOG = re.compile(r"((?:[^ ]+ +){1,7}?[a-z]+[0-7]?\.[a-z]+ )([A-Za-z0-9_-]+)(\[[0-9]+\])?: ",
                         re.DOTALL)
# Whose rows the line of a program in the system's log goes by.
_TAGS = {"kelm": "service", "hostapd": "hostapd", "wpa_supplicant": "station"}


def _read_tables():
    kept, members = {}, {}
    for macro, texts in patterns.rows("kept.inc"):
        if macro == "KEEP":
            kept.setdefault(texts[0], []).append(patterns.compiled(texts[1]))
        elif macro == "MEMBER":
            members.setdefault(texts[0], set()).add(texts[1])
    return kept, members


_KEPT, _MEMBERS = _read_tables()


def hidden(source, text):
    """The line with "[N bytes]" where something may be a secret."""
    found = _SYSTEM_LOG.match(text) if source in ("log", "console") else None
    if found:
        return found[0] + _of_system_log(found[2], text[found.end():])
    if source == "log":
        return _left_out(text)
    return _hidden(re.sub(r"\A(client|root)[0-9]+\Z", r"\1", source), text, 0)


def _of_system_log(tag, text):
    if tag == "kelm" and text.startswith("kelm["):
        return _hidden("console", text, 0)
    return _hidden(_TAGS.get(tag, ""), text, 0)


def _hidden(source, text, depth):
    if source in _MEMBERS:
        return _members(source, text)
    for pattern in _KEPT.get(source, ()) if depth < _DEEPEST else ():
        found = pattern.search(text)
        if found:
            return _rewritten(pattern, found, text, depth)
    return _left_out(text)


def _rewritten(pattern, found, text, depth):
    out = [_left_out(text[:found.start()])]
    at = found.start()
    for number, kind in enumerate(pattern.kinds, 1):
        begin, end = found.span(number)
        out.append(text[at:begin])
        covered = text[begin:end]
        if kind in ("hidden", "hidden-rest"):
            covered = _left_out(covered)
        elif kind.startswith("as-"):
            covered = _hidden(kind[3:], covered, depth + 1)
        out.append(covered)
        at = end
    out += [text[at:found.end()], _left_out(text[found.end():])]
    return "".join(out)


def _bytes(text):
    return len(text.encode("utf-8", "surrogateescape"))


def _left_out(text):
    """Blanks around it stay. What was left out before stays as it is."""
    core = text.strip(patterns.BLANKS)
    if not core or _MARK.fullmatch(core):
        return text
    begin = text.index(core)
    return "%s[%d bytes]%s" % (text[:begin], _bytes(core), text[begin + len(core):])


def _members(source, text):
    """A JSON object with the values of the members that are listed."""
    try:
        values = json.loads(text)
    except (ValueError, RecursionError):
        return _left_out(text)
    if not isinstance(values, dict):
        return _left_out(text)
    return "{%s}" % ",".join(
        '"%s":%s' % (name if _NAME.fullmatch(name) else "?",
                     _value(value, name in _MEMBERS[source]))
        for name, value in values.items())


def _value(value, is_kept):
    is_text = isinstance(value, str)
    if is_text and _MARK.fullmatch(value):
        return '"%s"' % value
    if is_kept and isinstance(value, int) and not isinstance(value, bool):
        if abs(value) < _INTEGER_MAX:
            return str(value)
    if is_kept and is_text and _WORD.fullmatch(value) and not value.isdigit():
        return '"%s"' % value
    text = value if is_text else json.dumps(value, separators=(",", ":"), ensure_ascii=False)
    return '"[%d bytes]"' % len(text.encode("utf-8", "surrogatepass"))
