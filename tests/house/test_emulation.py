# SPDX-License-Identifier: ISC
"""The table of the tests that cannot run under an emulator names tests that exist, with reasons."""
import re
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
FOLDERS = {'core_tests': 'unit', 'unit_tests': 'unit', 'hostlibs_tests': 'hostlibs'}
MACHINES = {'all', 'armhf', 's390x'}


def rows():
    text = (ROOT / 'tests/world/not_emulated.txt').read_text(encoding='utf-8')
    return [line.split(' | ') for line in text.splitlines() if not line.startswith('#')]


def exists(program, test):
    if program == 'attempt':
        name, function = test.split('::')
        text = (ROOT / 'tests/attempt' / name).read_text(encoding='utf-8')
        return function == '*' or f'def {function}(' in text
    suite, name = test.split('.')
    head = re.compile(rf'^TEST\w*\({suite}, {name}\)', re.MULTILINE)
    return any(head.search(path.read_text(encoding='utf-8'))
               for path in (ROOT / 'tests' / FOLDERS[program]).glob('*.cpp'))


def test_each_row_names_a_test_that_exists_a_machine_and_a_reason():
    assert rows()
    for program, machine, test, reason in rows():
        assert exists(program, test), f'{program} has no {test}'
        assert machine in MACHINES
        assert len(reason) > 20, f'{test}: the reason says nothing'
