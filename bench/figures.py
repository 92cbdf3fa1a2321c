# SPDX-License-Identifier: ISC
"""Figures, their goals, and the one table that shows them."""
import dataclasses
import json
import statistics
import xml.etree.ElementTree as ElementTree

HEADINGS = ('figure', 'kelm', 'peer or floor', 'ratio', 'goal', 'met?')
NANOSECONDS = (('s', 1e9), ('ms', 1e6), ('us', 1e3), ('ns', 1))


class Samples:
    """Repeated measurements of one thing; counts and sizes are samples of one."""

    def __init__(self, values, unit=''):
        self.values = list(values) if isinstance(values, (list, tuple)) else [values]
        self.unit = unit

    def median(self):
        return statistics.median(self.values)

    def quartiles(self):
        if len(self.values) < 4:
            return min(self.values), max(self.values)
        cuts = statistics.quantiles(self.values, n=4)
        return cuts[0], cuts[2]

    def __str__(self):
        if len(self.values) == 1:
            return self._text(self.values[0])
        low, high = self.quartiles()
        return (f'{self._text(self.median())} ({self._text(low)} .. {self._text(high)}, '
                f'n={len(self.values)})')

    def _text(self, value):
        if self.unit == 'ns':
            unit, scale = next((row for row in NANOSECONDS if value >= row[1]), NANOSECONDS[-1])
            return f'{value / scale:.3g} {unit}'
        number = f'{value:,}' if isinstance(value, int) else f'{value:,.4g}'
        return f'{number} {self.unit}'.rstrip()


@dataclasses.dataclass
class Goal:
    """At most this, of the value or of the ratio to the peer.

    limit: where the bench fails; None: the goal shows in the table alone. Times need a limit of
    their own, since a busy machine can spoil the best ratio; counts are the same on any machine.
    """
    at_most: float
    of_ratio: bool = True
    limit: float = None

    def judged(self, figure):
        return figure.ratio() if self.of_ratio else figure.kelm.median()

    def __str__(self):
        return f'{"ratio" if self.of_ratio else ""} <= {self.at_most:,}'.strip()


class NotSlower(Goal):
    """At most this many nanoseconds more than the peer."""

    def judged(self, figure):
        return figure.kelm.median() - figure.other.median()

    def __str__(self):
        return f'<= {self.at_most / 1e6:g} ms more'


class NotSlowerAtBest(Goal):
    """The same of the quickest samples, which other work on the machine spoils least."""

    def judged(self, figure):
        return min(figure.kelm.values) - min(figure.other.values)

    def __str__(self):
        return f'<= {self.at_most / 1e6:g} ms more at best'


@dataclasses.dataclass
class Figure:
    """One row of the table."""
    name: str
    kelm: Samples
    other_name: str = ''
    other: Samples = None
    goal: Goal = None

    def ratio(self):
        if self.other is None or self.other.median() == 0:
            return None
        return self.kelm.median() / self.other.median()

    def judged(self):
        """What the goal is about, or None without a goal."""
        return None if self.goal is None else self.goal.judged(self)

    def met(self):
        value = self.judged()
        return None if value is None else value <= self.goal.at_most

    def failed(self):
        value = self.judged()
        return value is not None and self.goal.limit is not None and value > self.goal.limit

    def cells(self):
        ratio = self.ratio()
        other = f'{self.other_name}: {self.other}' if self.other is not None else self.other_name
        met = {None: '', True: 'yes', False: 'FAILED' if self.failed() else 'no'}[self.met()]
        return (self.name, str(self.kelm), other, '' if ratio is None else f'{ratio:.2f}',
                '' if self.goal is None else str(self.goal), met)


def table(figures):
    rows = [HEADINGS, *(figure.cells() for figure in figures)]
    widths = [max(len(row[i]) for row in rows) for i in range(len(HEADINGS))]
    rows.insert(1, tuple('-' * width for width in widths))
    return '\n'.join('| ' + ' | '.join(cell.ljust(width) for cell, width in zip(row, widths)) + ' |'
                     for row in rows)


def write_json(file, figures):
    json.dump([{
        'figure': figure.name, 'unit': figure.kelm.unit, 'kelm': figure.kelm.values,
        'other_name': figure.other_name,
        'other': figure.other.values if figure.other is not None else None,
        'ratio': figure.ratio(), 'goal': str(figure.goal) if figure.goal else None,
        'met': figure.met(), 'failed': figure.failed()} for figure in figures], file, indent=1)
    file.write('\n')


def write_junit(file, figures):
    """A test case for each figure that can fail."""
    cases = [figure for figure in figures if figure.goal and figure.goal.limit is not None]
    suite = ElementTree.Element('testsuite', name='bench', tests=str(len(cases)))
    for figure in cases:
        case = ElementTree.SubElement(suite, 'testcase', classname='bench', name=figure.name)
        if figure.failed():
            failure = ElementTree.SubElement(
                case, 'failure', message=f'{figure.judged():.4g}, limit {figure.goal.limit:.4g}')
            failure.text = ' | '.join(figure.cells())
    ElementTree.ElementTree(suite).write(file, encoding='unicode')
