# SPDX-License-Identifier: ISC
"""kelm-doctor's text holds no command that changes anything, and no way to write a file."""
import os
import re

import pytest
from package import installed_files
from shell_commands import commands
from stock import MAKEFILE

SHELL = set('. : [ break command continue echo eval exec exit export false for kill local printf '
            'read readonly return set shift trap true type unset wait cd done fi esac }'.split())
# They read, and write to their output alone.
READERS = set('awk cat cut date df grep head hexdump id ls od pidof readlink sed sleep sort tail '
              'tr wc'.split())
# They could change something: the words that may stand behind them.
CALLS = {
    'hostapd': [r'-vwps\b'],
    'wpa_supplicant': [r'-vwps\b'],
    'jsonfilter': [r'-q\b'],
    'sh': [r"-c 'echo \$\$; exec ubus -t "],
    'ubus': [r'-t 5 -S call network\.wireless status\b', r'-S -t \$BUS_LIMIT list\b',
             r'-t "\$0" listen\b',
             r"send \$MARK '\{\}'"],  # an event of its own, to know that events come
    'uci': [r'-q get\b'],
}
# Of /lib/functions.sh.
FUNCTIONS = {'config_load', 'config_get', 'config_get_bool', 'config_foreach'}
FUNCTION = re.compile(r'^(\w+)\(\)', re.MULTILINE)


@pytest.fixture(name='scripts')
def read_scripts(private_mounts):
    texts = {}
    for source, place, _ in installed_files(MAKEFILE, 'kelm-doctor'):
        with open(source, encoding='utf-8') as file:
            texts[os.path.basename(place)] = re.sub(r'^\s*#.*$', '', file.read(),
                                                    flags=re.MULTILINE)
    assert {'kelm-doctor', 'checks.sh', 'telling.sh', 'networks.sh'} <= set(texts)
    return texts


def test_each_command_reads(scripts):
    own = {name for text in scripts.values() for name in FUNCTION.findall(text)}
    known = SHELL | READERS | set(CALLS) | FUNCTIONS | own
    strange = {name: sorted(word for word in commands(text)
                            if '?' not in word and word not in known)
               for name, text in scripts.items()}
    assert {name: words for name, words in strange.items() if words} == {}


@pytest.mark.parametrize('program', CALLS)
def test_a_program_gets_words_that_change_nothing(scripts, program):
    for name, text in scripts.items():
        # Where a command begins; in a sentence for a person another sign stands before it.
        for call in re.finditer(rf'(?:^|[|&;(]|limited \S+|\bthen|\bdo|!)[ \t]*{program} ([^\n]*)',
                                text, re.MULTILINE):
            if is_told(text, call.start()):
                continue
            assert any(re.match(words, call[1]) for words in CALLS[program]), (name, call[0])


def is_told(text, place):
    """Whether a place is within the quotes of a sentence: an odd number of them stands before."""
    line = text[text.rfind('\n', 0, place) + 1:place]
    line = re.sub(r'\$\(.*', '', line)
    return line.count("'") % 2 == 1 or line.count('"') % 2 == 1


def test_the_clients_are_called_in_one_place(scripts):
    """That place is played in test_wifi_daemons.py, with what it asks."""
    assert [name for name, text in scripts.items()
            if re.search(r'hostapd_cli|wpa_cli', text) and 'limited $ANSWER_LIMIT' in text] == [
        'wifi_daemons.sh']


# Whether a file can be written to: opens what is there, and puts nothing into it.
OPENS = '[ -f "$1" ] && (: >> "$1")'
REDIRECTION = re.compile(r'''(?<![-=<\w\\])[0-9]*>{1,2}(?!\()[|]? *([^ \n;)|]+)''')


def test_nothing_is_written_to_a_file(scripts):
    targets = set()
    for text in scripts.values():
        text = text.replace(OPENS, '')
        code = re.sub(r"awk[^']*'[^']*'|'[^'\n]*'|\"[^\"\n]*\"|\$\(\([^\n]*?\)\)", 'QUOTED', text)
        targets |= set(REDIRECTION.findall(code))
    assert {target for target in targets if not re.fullmatch(r'&\d', target)} == {'/dev/null'}
