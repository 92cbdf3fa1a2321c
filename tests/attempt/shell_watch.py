# SPDX-License-Identifier: ISC
"""A shell that notes the words it is started with, and what these words have to be."""
import os
import re

SHELL = '/mnt/watching_sh'
LOG = '/mnt/log/shell'
REAL_SHELL = '/usr/bin/dash'
# How many words, then each of them. The stand-ins are shell scripts: their words come by here, too.
SCRIPT = f'''#!{REAL_SHELL}
printf '%s\\0' "$#" "$@" >>{LOG}
exec {REAL_SHELL} "$@"
'''
# Plain characters, a quoted piece, or an escaped quote between two of them; nothing else.
PIECE = re.compile(rb"[A-Za-z0-9_./:=+,@%-]+|'([^']*)'|\\(')")
# The one command line that is more than words; no text from outside is in it.
RESULT = re.compile(rb'echo (?:-1|0|1) > /tmp/wps_result')


def put():
    """Writes the shell; World.shell(SHELL) then makes the daemon use it."""
    with open(SHELL, 'w', encoding='utf-8') as file:
        file.write(SCRIPT)
    os.chmod(SHELL, 0o755)
    forget()


def forget():
    with open(LOG, 'wb'):
        pass


def _starts():
    """The words of each start, as they were handed over."""
    with open(LOG, 'rb') as file:
        words = file.read().split(b'\0')
    assert words.pop() == b''
    starts = []
    while words:
        count = int(words.pop(0))
        starts.append(words[:count])
        del words[:count]
    return starts


def split(line):
    """The words of a command line that is one simple command; anything else fails."""
    if RESULT.fullmatch(line):
        return line.split(b' ')
    words, word, at = [], None, 0
    while at < len(line):
        if line[at:at + 1] == b' ':
            words, word, at = words + ([] if word is None else [word]), None, at + 1
            continue
        piece = PIECE.match(line, at)
        assert piece is not None, f'{line!r} is more than one command with its words'
        quoted = piece[1] if piece[1] is not None else piece[2]
        word = (word or b'') + (piece[0] if quoted is None else quoted)
        at = piece.end()
    return words + ([] if word is None else [word])


def lines():
    """The words of each command line that the daemon ran."""
    return [split(words[1]) for words in _starts() if words[0] == b'-c']


def calls():
    """The words that each stand-in was called with, its own name first."""
    return [[words[0].removeprefix(b'/mnt/bin/'), *words[1:]]
            for words in _starts() if words[0] != b'-c']
