# SPDX-License-Identifier: ISC
"""Reads docs/interfaces.md: its named examples and its tables."""
import os
import re

PATH = os.path.join(os.path.dirname(__file__), '..', '..', 'docs', 'interfaces.md')
FENCE = re.compile(r'^```([^\n]*)\n(.*?)^```$', re.MULTILINE | re.DOTALL)
CELL = re.compile(r'(?<!\\)\|')


def _read():
    with open(PATH, encoding='utf-8') as file:
        return file.read()


TEXT = _read()


def examples(text=TEXT):
    """The text of each fenced example by the name behind its language; all must have one."""
    found = {}
    for words, body in FENCE.findall(text):
        language, _, name = words.partition(' ')
        assert language and name, f'an example without a name begins with {body[:60]!r}'
        assert name not in found, f'two examples are called {name}'
        found[name] = body
    assert text.count('\n```') == 2 * len(found), 'an example is not closed, or is indented'
    return found


def table(first_header, heading=None):
    """The rows, as lists of cells, of the one table whose first column is headed so.

    heading: the section that it must stand in, where several tables begin alike.
    """
    text = TEXT
    if heading is not None:
        assert text.count(f'\n{heading}\n') == 1, f'no section "{heading}"'
        text = re.split(r'^#', text.split(f'\n{heading}\n')[1], flags=re.MULTILINE)[0]
    blocks = [block.splitlines() for block in re.findall(r'(?:^\|.*\n)+', text, re.MULTILINE)]
    chosen = [block for block in blocks if _cells(block[0])[0] == first_header]
    assert len(chosen) == 1, f'{len(chosen)} tables are headed "{first_header}"'
    width = len(_cells(chosen[0][0]))
    rows = [_cells(line) for line in chosen[0][2:]]
    assert all(len(row) == width for row in rows), f'a row of "{first_header}" has other cells'
    return rows


def _cells(line):
    return [cell.strip() for cell in CELL.split(line.strip())[1:-1]]


def tables_that_are_broken(text=TEXT):
    """Lines of a table that no table of Markdown holds: those without a head above them."""
    broken = []
    for block in re.findall(r'(?:^\|.*\n)+', FENCE.sub('', text), re.MULTILINE):
        lines = block.splitlines()
        if len(lines) < 3 or not re.fullmatch(r'\|(?:-+\|)+', lines[1]):
            broken.append(lines[0])
    return broken
