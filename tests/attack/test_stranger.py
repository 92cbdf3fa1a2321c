# SPDX-License-Identifier: ISC
"""The attackers themselves: what they can do shows that the attacks are none of thin air."""
import os
import stat

from stranger import UID
from test_path_safety import prepare, press_and_succeed, start
from router import REPEATER_MODE
from world import wait_for


def test_the_stranger_is_another_user_in_the_same_world(world, stranger):
    world.reset()
    stranger.write('/tmp/own', 'text')
    assert (os.stat('/tmp/own').st_uid, world.read('/tmp/own')) == (UID, 'text')
    world.write('/tmp/secret', 'text')
    os.chmod('/tmp/secret', 0o600)
    assert stranger.read('/tmp/secret') is None


def test_the_racer_puts_what_it_was_told_where_a_name_went(world, stranger):
    world.reset()
    kinds = {'folder': stat.S_IFDIR, 'link': stat.S_IFLNK, 'hard': stat.S_IFREG,
             'file': stat.S_IFREG, 'fifo': stat.S_IFIFO}
    stranger.write('/tmp/own', 'text')
    racer = stranger.race(*(f'gone,{kind},{kind},/tmp/{kind},{word}' for kind, word in {
        'folder': 'inner=/tmp/own', 'link': '/tmp/own', 'hard': '/tmp/own', 'file': 'forged',
        'fifo': ''}.items()))
    for kind in kinds:
        world.write(f'/tmp/{kind}', '')
        os.unlink(f'/tmp/{kind}')
    wait_for(lambda: len(racer.lines()) == len(kinds), 'the racer')
    found = {kind: os.lstat(f'/tmp/{kind}') for kind in kinds}
    assert {kind: stat.S_IFMT(there.st_mode) for kind, there in found.items()} == kinds
    assert {there.st_uid for there in found.values()} == {UID}
    assert os.readlink('/tmp/folder/inner') == '/tmp/own'
    assert (world.read('/tmp/file'), world.read('/tmp/hard')) == ('forged', 'text')


def test_the_racer_reads_a_file_as_soon_as_it_is_there(world, stranger):
    world.reset()
    racer = stranger.race('made,note,read,/tmp/note', 'told,note,read,/tmp/note')
    world.write('/tmp/note', 'two\nlines')
    wait_for(lambda: 'read /tmp/note two lines' in racer.lines(), 'the racer')


def test_a_stranger_reads_no_credentials_out_of_an_undisturbed_attempt(router, stranger):
    prepare(router, REPEATER_MODE)
    start(router, REPEATER_MODE)
    racer = stranger.race(*(f'{when},{name},read,/tmp/{name}' for when in ('made', 'told')
                            for name in ('wps_wifi_sta.txt', 'wps_wifi_sta.bak', 'wps_wifi_ap.txt',
                                         'wps_wifi_ap.bak', 'wps_wifi_sta.txt.new')))
    press_and_succeed(router, REPEATER_MODE)
    assert 'rootsecret' in router.world.read('/tmp/wps_wifi_sta.txt')
    assert stranger.read('/tmp/wps_wifi_sta.txt') is None
    assert racer.end() == []
