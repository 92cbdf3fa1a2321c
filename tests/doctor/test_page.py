# SPDX-License-Identifier: ISC
"""What docs/integration.md says about kelm-doctor, played on the router that it tells of."""
import re

import pytest

from stock import SOURCE
from test_bus import end_daemon, send, start_doctor
from test_files import DEAD

CUT = 'enabled=1\npinEnabled=off\napWpsAvailable=3'


@pytest.fixture(name='page')
def read_page(private_mounts):
    with open(f'{SOURCE}/docs/integration.md', encoding='utf-8') as file:
        return file.read()


def example(page, name):
    return re.search(rf'^```\w+ {name}\n(.*?)^```$', page, re.DOTALL | re.MULTILINE)[1]


def test_the_three_mistakes(maker, page):
    end_daemon(maker)
    maker.write('/tmp/kelm.pid', f'{DEAD}\n')
    maker.write('/tmp/wps.conf', CUT, 0o600)
    maker.change_hostapd('wlan0', 'ssid=', 'ignore_broadcast_ssid=1\nssid=')
    shown = re.sub(r'\n {18}', ' ', example(page, 'doctor-output')).replace('812', str(DEAD))
    assert maker.run(example(page, 'doctor')).out == shown


def rows(page):
    table = page[page.index('| driver sends |'):].split('\n\n')[0]
    return [[cell.strip() for cell in line.strip('|').split(' | ')]
            for line in table.splitlines()[2:]]


def test_the_button(maker, page):
    """Row by row; the release is the second event."""
    told = rows(page)
    assert len(told) == 4
    for sends, line in told:
        event = re.search(r'ubus send (.*?)`', sends)
        events = [event[1].replace("'", '')] if event else [
            'gpio {"type":"wps","pressed":1}', 'gpio {"type":"wps","pressed":0}']
        doctor, asked = start_doctor(maker, example(page, 'doctor-button').split(' ', 1)[1].strip())
        assert 'press the WPS button now' in asked
        send(maker, events)
        out, _ = doctor.communicate(timeout=40)
        result, text = re.fullmatch(r'`(\w+)`: (.*)', line).groups()
        assert out.splitlines()[-1] == f'{result:8} {"":8} {text}'


def test_each_check_has_its_row(page):
    section = page[page.index('## Ask kelm-doctor'):page.index('### Is the button seen?')]
    named = [name for line in section.splitlines() if line.startswith('| `')
             for name in re.findall(r'`([^`]*)`', line.split(' | ')[0])]
    with open(f'{SOURCE}/doctor/lib/checks.sh', encoding='utf-8') as file:
        table = re.search(r"^CHECKS='\n(.*?)^'", file.read(), re.DOTALL | re.MULTILINE)[1]
    expected = [row.split()[0] for row in table.splitlines() if row.split()[1] != 'stock'
                or row.split()[0] == 'build']
    assert sorted(named) == sorted(expected)
