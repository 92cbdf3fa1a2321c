# SPDX-License-Identifier: ISC
"""kelm-doctor's arguments, its lines, its JSON object and its exit status."""
import json
import re

import pytest

from doctor import examine

LINE = re.compile(r'(ok      |warning |fault   ) (2\.4 GHz |5 GHz   |        ) (\S.*)')


def test_one_line_a_check(router):
    result = router.run('kelm-doctor')
    assert result.err == ''
    lines = result.out.splitlines()
    assert lines[0] == 'ok                runs as root, so hostapd and wpa_supplicant can be asked'
    assert [line for line in lines if not LINE.fullmatch(line)] == []


def test_a_router_on_which_wps_works(router):
    assert [one for one in examine(router).findings if one.result != 'ok'] == []
    assert examine(router).status == 0


WRONG = {
    '--jsn': "unknown argument '--jsn'",
    'json': "unknown argument 'json'",
    '--face': '--face wants a word behind it: maker or stock',
    '--face both': "'both' is no face: it is maker or stock",
    '--face=': "'' is no face: it is maker or stock",
    '--button=': "'' is no number of seconds from 1 to 999",
    '--button 0': "'0' is no number of seconds from 1 to 999",
    '--button 1000': "'1000' is no number of seconds from 1 to 999",
    '--button 1x': "'1x' is no number of seconds from 1 to 999",
    '"$(printf "a\\033[31mb")"': "unknown argument 'a?[31mb'",
    '""': "unknown argument ''",
}


@pytest.mark.parametrize('arguments', WRONG)
def test_wrong_use_gets_a_sentence(maker, arguments):
    result = maker.run(f'kelm-doctor {arguments}')
    assert result == (64, '', f'kelm-doctor: {WRONG[arguments]}; see kelm-doctor --help\n')


@pytest.mark.parametrize('argument', ['--help', '-h'])
def test_help(maker, argument):
    result = maker.run(f'kelm-doctor {argument}')
    assert (result.status, result.err) == (0, '')
    assert result.out.startswith('usage: kelm-doctor [--json] ')
    assert maker.commands() == []


def face(router, arguments=''):
    return json.loads(router.run(f'kelm-doctor --json {arguments}').out)['face']


def test_the_face_is_seen(router):
    assert face(router) == router.face


def test_the_face_may_be_said(router):
    assert face(router, '--face stock') == 'stock'
    assert face(router, '--face=maker') == 'maker'


def test_stock_without_the_service_is_seen(stock):
    stock.remove('/usr/libexec/kelm/prepare')
    stock.remove('/tmp/wifi.conf')
    assert face(stock) == 'stock'


def test_a_maker_may_have_a_file_of_the_wireless_too(maker):
    maker.write('/etc/config/wireless', '')
    assert face(maker) == 'maker'


def test_a_strangers_file_does_not_choose_the_face(stock):
    stock.remove('/usr/libexec/kelm/prepare')
    stock.write('/tmp/wifi.conf', 'madeBy=stranger\n')
    stock.run('chown 65534 /tmp/wifi.conf')
    assert face(stock) == 'stock'


def test_it_runs_in_the_tree_too(maker):
    for place in ('/usr/sbin/kelm-doctor', '/usr/lib/kelm/doctor'):
        maker.run(f'mkdir -p /src/doctor && mv {place} /src/doctor/')
    maker.run('mv /src/doctor/doctor /src/doctor/lib')
    for call in ('/src/doctor/kelm-doctor', 'cd /src && doctor/kelm-doctor'):
        assert maker.run(call).out.startswith('ok   '), call
