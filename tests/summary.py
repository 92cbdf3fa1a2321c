#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Adds up all stages of a run and ends with one line "N passed, N failed"; not 0 when any failed.

Behind that the line names the stages that failed: "(failed stages: lint mips)".

The folder given holds "stages", a line "name passed|FAILED seconds" for each, and per stage
a folder of that name with its JUnit files. A skipped test counts as failed: a machine that cannot
run a test has not passed it. A stage without tests counts as one itself, and so does one that
failed though all its tests passed: it did not build, or a test program ended too early.
"""
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def count(path):
    """Returns (passed, failed) of one JUnit file; half a file is a failure."""
    try:
        cases = list(ElementTree.parse(path).getroot().iter("testcase"))
    except ElementTree.ParseError as error:
        print(f"{path.parent.name}: {path.name} cannot be read: {error}")
        return 0, 1
    passed = failed = 0
    for case in cases:
        bad = any(case.find(kind) is not None for kind in ("failure", "error", "skipped"))
        bad = bad or case.get("status") == "notrun"
        if bad:
            failed += 1
            print(f"{path.stem}: {case.get('classname')}.{case.get('name')} did not pass")
        else:
            passed += 1
    return passed, failed


def judge(folder, succeeded):
    """Returns (passed, failed) of one stage."""
    totals = [count(path) for path in sorted(folder.glob("*.xml"))]
    passed = sum(total[0] for total in totals)
    failed = sum(total[1] for total in totals)
    if not succeeded and not failed:
        failed = 1
    if succeeded and not passed and not failed:
        passed = 1
    return passed, failed


def main():
    run = Path(sys.argv[1])
    rows = [line.split() for line in (run / "stages").read_text(encoding="utf-8").splitlines()]
    results = [(name, int(seconds), *judge(run / name, verdict == "passed"))
               for name, verdict, seconds in rows]
    print(f"{'stage':<10}{'seconds':>8}{'passed':>8}{'failed':>8}")
    for name, seconds, passed, failed in results:
        print(f"{name:<10}{seconds:>8}{passed:>8}{failed:>8}")
    losers = [name for name, _, _, failed in results if failed]
    named = f" (failed stages: {' '.join(losers)})" if losers else ""
    failed = sum(result[3] for result in results)
    print(f"{sum(result[2] for result in results)} passed, {failed} failed{named}")
    return 1 if failed else 0


if __name__ == "__main__":
    sys.exit(main())
