#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Judges gcovr's counts: a table per folder, and each line that did not run must have its reason.

The reasons stand in a text file, in entries of three parts:

    core/file.cpp _write_fresh
        unlink(path);
    = reason, over as many lines as it takes

A line is named by its file, its function and its text, so that it keeps its reason when lines
above it change. An entry whose lines all run, or are not there, is stale and an error.
"""
import argparse
import bisect
import collections
import json
import re
import sys
from pathlib import Path

Line = collections.namedtuple('Line', 'file function text number')


def function_name(signature):
    """The bare name in a demangled signature."""
    name = re.sub(r'\(anonymous namespace\)::', '', signature)
    while '<' in name:
        name, before = re.sub(r'<[^<>]*>', '', name), name
        if name == before:
            break
    return name.split('(')[0].split('::')[-1].split(' ')[-1]


def uncovered_lines(entry):
    """The lines of one file that can run and did not."""
    source = Path(entry['file']).read_text(encoding='utf-8').split('\n')
    starts = sorted((item['lineno'], function_name(item['name'])) for item in entry['functions'])
    first_lines = [number for number, _ in starts]
    for line in entry['lines']:
        if line['count'] or line.get('gcovr/noncode'):
            continue
        number = line['line_number']
        place = bisect.bisect(first_lines, number) - 1
        function = starts[place][1] if place >= 0 else '-'
        yield Line(entry['file'], function, source[number - 1].strip(), number)


def counted(entries):
    """(lines run, lines, branches taken, branches) of some files."""
    lines = [line for entry in entries for line in entry['lines'] if not line.get('gcovr/noncode')]
    branches = [branch for line in lines for branch in line['branches']]
    return (sum(line['count'] > 0 for line in lines), len(lines),
            sum(branch['count'] > 0 for branch in branches), len(branches))


def percent(part, whole):
    return 100.0 * part / whole if whole else 100.0


def print_table(entries):
    """Returns the share of lines that ran."""
    folders = collections.defaultdict(list)
    for entry in entries:
        folders[entry['file'].split('/')[0]].append(entry)
    rows = [(name, counted(folders[name])) for name in sorted(folders)]
    rows.append(('total', counted(entries)))
    print(f'{"folder":<10} {"lines run":>18} {"branches taken":>20}')
    for name, (lines_run, lines, taken, branches) in rows:
        print(f'{name:<10} {lines_run:>5} of {lines:>5} {percent(lines_run, lines):>5.1f} %'
              f' {taken:>6} of {branches:>5} {percent(taken, branches):>5.1f} %')
    return percent(*rows[-1][1][:2])


def read_reasons(path):
    """{(file, function, text): reason}, or an error for an entry that is not complete."""
    reasons = {}
    place, texts, reason = None, [], []

    def close():
        if place is None:
            return
        if not texts or not reason:
            raise ValueError(f'{path}: the entry "{" ".join(place)}" lacks its lines or its reason')
        for text in texts:
            reasons[(*place, text)] = ' '.join(reason)

    for number, line in enumerate(path.read_text(encoding='utf-8').splitlines(), 1):
        if not line.strip() or line.startswith('#'):
            continue
        if line.startswith('='):
            reason.append(line[1:].strip())
        elif line.startswith(' '):
            texts.append(line.strip())
        else:
            close()
            place, texts, reason = tuple(line.split()), [], []
            if len(place) != 2:
                raise ValueError(f'{path}:{number}: not "FILE FUNCTION": {line}')
    close()
    return reasons


def judge(missed, reasons):
    """Prints the lines with their reasons; returns how many are wrong."""
    wrong = 0
    for line in missed:
        reason = reasons.get(line[:3])
        wrong += reason is None
        print(f'{line.file}:{line.number}: {line.function}: {line.text}\n'
              f'    {reason or "NO REASON GIVEN"}')
    for key in sorted(reasons.keys() - {line[:3] for line in missed}):
        wrong += 1
        print(f'{key[0]}: {key[1]}: {key[2]}\n    STALE: has a reason, but runs or is not there')
    return wrong


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument('--least', type=float, required=True, help='per cent of lines')
    parser.add_argument('counts', type=Path, help="gcovr's report as JSON")
    parser.add_argument('reasons', type=Path)
    options = parser.parse_args()

    entries = json.loads(options.counts.read_text(encoding='utf-8'))['files']
    if not entries:
        return 'coverage: nothing was counted'
    missed = [line for entry in entries for line in uncovered_lines(entry)]
    wrong = judge(missed, read_reasons(options.reasons))
    share = print_table(entries)
    print(f'{len(missed)} lines did not run')
    if wrong:
        return f'coverage: {wrong} lines without a reason, or reasons without a line'
    if share < options.least:
        return f'coverage: {share:.1f} % of lines, less than {options.least:g} %'
    return 0


if __name__ == '__main__':
    sys.exit(main())
