# SPDX-License-Identifier: ISC
"""What kelm-doctor says of the files of a repeater's stations."""
import os

import pytest
from doctor import examine
from peers import change_file
from world import wait_for

FILE = '/var/run/wpa_supplicant-wlan1-vxd.conf'
EVENT = ('ok', 'kelm takes what the station learns from the event of wpa_supplicant')
NO_FILE = ('fault', f'there is no {FILE}, from which kelm takes what the station learns; start '
           'wpa_supplicant with this file, or kelm with KELM_CREDENTIALS=event')
NOT_WRITTEN = ('fault', f'wpa_supplicant does not write what the station learns into {FILE}; '
               'update_config=1 in it, or start kelm with KELM_CREDENTIALS=event')


@pytest.fixture(name='repeater')
def be_repeater(maker):
    maker.be_repeater()
    return maker


def learnt(router):
    return [(one.result, one.text) for one in examine(router).findings
            if (one.check, one.band) == ('learnt', '2.4 GHz')]


def test_wpa_supplicant_writes_its_file(repeater):
    assert learnt(repeater) == [
        ('ok', f'wpa_supplicant writes what the station learns into {FILE}')]


def test_an_access_point_learns_nothing(maker):
    assert learnt(maker) == []


@pytest.mark.parametrize('line', ['update_config=0', '#update_config=1', 'update_config=10', ''])
def test_wpa_supplicant_does_not_write_its_file(repeater, line):
    change_file(repeater, FILE, 'update_config=1', line)
    assert learnt(repeater) == [NOT_WRITTEN]


def test_there_is_no_file(repeater):
    repeater.remove(FILE)
    assert learnt(repeater) == [NO_FILE]


def test_a_folder_is_no_file(repeater):
    repeater.remove(FILE)
    os.mkdir(repeater.at(FILE))
    assert learnt(repeater) == [NO_FILE]


def start_in_its_place(router, environment):
    """Something that lives under the name of the daemon."""
    router.run('kill "$(cat /tmp/kelm.pid)"')
    wait_for(lambda: not router.exists('/tmp/kelm.pid'), 'the end of the daemon')
    router.write('/mnt/in_its_place/kelm',
                 '#!/bin/sh\necho $$ > /tmp/kelm.pid\nsleep 1000\n', 0o755)
    router.start('exec /mnt/in_its_place/kelm', env=environment)
    wait_for(lambda: (router.read('/tmp/kelm.pid') or '').endswith('\n'), 'the other one')


@pytest.mark.parametrize('value, expected', [('event', EVENT), ('events', NO_FILE)])
def test_the_daemon_may_take_the_event(repeater, value, expected):
    start_in_its_place(repeater, {'KELM_CREDENTIALS': value})
    repeater.remove(FILE)
    assert learnt(repeater) == [expected]
