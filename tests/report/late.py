# SPDX-License-Identifier: ISC
"""The sample runs as late listeners would have noted them: each source keeps its own order."""

import random

import recorded

DELAYS = (0.3, 0.7, 1.0, 1.5, 2.0)
MOST_S = DELAYS[-1]
# Who notes these is never late: the scenario itself, and the guest's first line.
IN_TIME = ("demo", "boot")


def sources(name):
    """Those of a run whose listeners may be late."""
    return sorted({source for _, source, _ in recorded.run_lines(name)} - set(IN_TIME))


def by_source(name, delays):
    """All lines of some sources so many seconds late; delays: {source: seconds}."""
    return _in_order([(time_s + delays.get(source, 0), source, text)
                      for time_s, source, text in recorded.run_lines(name)])


def at_random(name, seed):
    """Each line late by its own time, and at least as late as the one before it."""
    numbers, last, lines = random.Random("%s %d" % (name, seed)), {}, []
    for time_s, source, text in recorded.run_lines(name):
        if source not in IN_TIME:
            last[source] = max(last.get(source, 0), time_s + numbers.uniform(0, MOST_S))
        lines.append((last.get(source, time_s), source, text))
    return _in_order(lines)


def _in_order(lines):
    return sorted(lines, key=lambda line: line[0])
