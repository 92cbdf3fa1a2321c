# SPDX-License-Identifier: ISC
"""The scripts call nothing that a router with OpenWrt may not have.

Debian's busybox has programs that OpenWrt's has not, so a run does not show it.
"""
import os
import re

import pytest
from package import installed_files
from shell_commands import commands
from stock import MAKEFILE

SHELL = set('. : [ break cd command continue echo eval exit export false for kill local printf pwd '
            'read readonly return set shift test trap true type umask unset wait done fi esac }'
            .split())
# What OpenWrt's images have in busybox, as far as the scripts may want it.
BUSYBOX = set('awk basename cat chgrp chmod chown cmp cp cut date dd df dirname du env expr find '
              'flock grep head hexdump id ln logger ls md5sum mkdir mkfifo mktemp mv nice pgrep '
              'pidof ps readlink rm rmdir sed seq sha256sum sleep sort sync tail tee touch tr '
              'sh uniq uptime wc which xargs'.split())
# Of packages that each image has, or that this one asks for.
OTHERS = {'hostapd', 'hostapd_cli', 'jsonfilter', 'ubus', 'uci', 'wpa_cli', 'wpa_supplicant'}
# Of /lib/functions.sh and /lib/functions/procd.sh.
FUNCTIONS = set('config_foreach config_get config_get_bool config_list_foreach config_load '
                'procd_add_raw_trigger procd_add_reload_trigger procd_close_instance '
                'procd_open_instance procd_set_param start stop'.split())
PLACES = ('/usr/libexec/kelm/', '/usr/sbin/', '/etc/init.d/', '/etc/rc.wps/')
FUNCTION = re.compile(r'^(\w+)\(\)', re.MULTILINE)


def _read(source):
    with open(source, encoding='utf-8') as file:
        return file.read()


@pytest.fixture(name='scripts')
def read_scripts(private_mounts):
    """Text of each script by its place on the router."""
    texts = {place: _read(source) for package in ('kelm-doctor', 'kelm-stock')
             for source, place, _ in installed_files(MAKEFILE, package)}
    found = {place: text for place, text in texts.items()
             if text.startswith('#!/bin/sh') or place.endswith('.sh')}
    assert len(found) == len(texts) - 2  # settings, and the rights of web pages
    return found


def _is_program(word):
    """A word that the tables must know; a whole path counts by its last part."""
    folder, name = os.path.split(word)
    if '?' in word:
        return None  # $KELM/..., "$1"
    return name if f'{folder}/' in PLACES or not folder else word


def test_each_program_is_one_that_a_router_has(scripts):
    own = {name for text in scripts.values() for name in FUNCTION.findall(text)}
    own |= {os.path.basename(place) for place in scripts}
    known = SHELL | BUSYBOX | OTHERS | FUNCTIONS | own
    strange = {place: sorted(word for word in map(_is_program, commands(text))
                             if word and word not in known)
               for place, text in scripts.items()}
    assert {place: words for place, words in strange.items() if words} == {}


def test_a_program_of_each_table_is_found(scripts):
    """So that a reader who is blind is noticed."""
    found = set().union(*map(commands, scripts.values()))
    assert {'printf', 'awk', 'flock', 'hexdump', 'mktemp', 'grep', 'uci', 'jsonfilter',
            'config_load', 'procd_set_param', '/usr/sbin/hostapd_cli'} <= found


SCRIPTS = {
    'stat -c %s a': {'stat'},
    'a=1 timeout 5 ls': {'timeout'},
    'a | od -x && b || c; d & e': {'a', 'od', 'b', 'c', 'd', 'e'},
    'x=$(realpath "$y")': {'realpath'},
    'say "it is $(fold x) $((1 + 2)) ${v:-$(tac z)}"': {'say', 'fold', 'tac'},
    '[ $((x & (y | $(stat z)))) = 0 ] || od': {'[', 'stat', 'od'},
    "awk '{ stat }' x": {'awk'},
    '# stat\na # stat': {'a'},
    'case $1 in\nstat | od) comm ;;\n*) paste ;;\nesac\nnohup x': {'comm', 'paste', 'nohup'},
    'case $(a) in stat) b ;; esac': {'a', 'b'},
    'case $1 in\n"") a ;;\n*)\n\tcase $2 in\n\tx) b ;;\n\tesac\n\tc\n\t;;\nesac\nd':
        {'a', 'b', 'c', 'd'},
    'for x in stat od; do a; done': {'for', 'a', 'done'},
    'if ! a > stat 2> od; then b; else c; fi': {'a', 'b', 'c', 'fi'},
    '2> /dev/null stat': {'stat'},
    'a << EOF\nstat\n$(b)\nEOF\nc': {'a', 'b', 'c'},
    'f() { a; }\n( b )\n{ c; } > d': {'f', 'a', 'b', 'c', '}'},
    'exec a 1000>&-': {'a'},
    '"$x/y" a; /usr/bin/b': {'?', '/usr/bin/b'},
    '[ -n "$(a)" ] && ! b': {'[', 'a', 'b'},
    'x=${y%"${NL}z="*} a': {'a'},
    """x=${y%%'"'*} a""": {'a'},
}


@pytest.mark.parametrize('text', SCRIPTS)
def test_the_reader_finds_commands_and_nothing_else(text):
    assert commands(text) == SCRIPTS[text]
