# SPDX-License-Identifier: ISC
"""Takes the secrets out of a line: only what watch/kept.inc lists is kept.

It is what kelm-watch does before it writes (watch/kept.cpp). Run folders of the virtual router and
console logs were not written by kelm-watch, so it is done again for whatever is read.
"""

import re

from report import patterns

_DEEPEST = 4  # rows that hand the rest to other rows
# Fewer digits than a PIN has.
_PLAIN_NUMBER = re.compile(r"-?[0-9]{1,6}")
# A PIN as text is no word.
_WORD = re.compile(r"(?![0-9]+\Z)[A-Za-z0-9_:.-]{0,32}")
_BETWEEN = re.compile(r"[ \t\n\r\v\f]*")
_MEMBER = re.compile(r'[ \t\n\r\v\f]*"([A-Za-z0-9_]{1,32})"[ \t\n\r\v\f]*:[ \t\n\r\v\f]*'
                     r'(?:"((?:[^"\\]|\\.)*)"|([a-z0-9+.E-]+))[ \t\n\r\v\f]*', re.DOTALL)
_NEXT_MEMBER = re.compile("," + _MEMBER.pattern, re.DOTALL)
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
    return len(text.encode("utf-8", "surrogatepass"))  # JSON can name half a pair


def _left_out(text):
    """Blanks around it stay. What was left out before stays as it is."""
    core = text.strip(patterns.BLANKS)
    if not core or _MARK.fullmatch(core):
        return text
    begin = text.index(core)
    return "%s[%d bytes]%s" % (text[:begin], _bytes(core), text[begin + len(core):])


def _members(source, text):
    """A flat JSON object with the values of the members that are listed."""
    core = text.strip(patterns.BLANKS)
    if len(core) < 2 or core[0] != "{" or core[-1] != "}":
        return _left_out(text)
    out, at = [], 1
    at = _BETWEEN.match(core, at, len(core) - 1).end()
    while at < len(core) - 1:
        found = (_MEMBER if not out else _NEXT_MEMBER).match(core, at, len(core) - 1)
        if not found:
            return _left_out(text)
        out.append('"%s":%s' % (found[1], _value(found[2], found[3],
                                                 found[1] in _MEMBERS[source])))
        at = found.end()
    return "{%s}" % ",".join(out)


def _value(word, bare, is_kept):
    """word: what stands between quotes, or None where there are none."""
    if word is None:
        if is_kept and _PLAIN_NUMBER.fullmatch(bare):
            return bare
        return '"[%d bytes]"' % _bytes(bare)
    if _MARK.fullmatch(word) or (is_kept and _WORD.fullmatch(word)):
        return '"%s"' % word
    return '"[%d bytes]"' % _bytes(word)
