#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Adds up the result files of all suites and prints one line "N passed, N failed".

A skipped test counts as failed: a machine that cannot run a test has not passed it.
"""
import sys
import xml.etree.ElementTree as ElementTree
from pathlib import Path


def count(path):
    """Returns (passed, failed) of one JUnit file."""
    passed = failed = 0
    for case in ElementTree.parse(path).getroot().iter("testcase"):
        bad = any(case.find(kind) is not None for kind in ("failure", "error", "skipped"))
        bad = bad or case.get("status") == "notrun"
        if bad:
            failed += 1
            print(f"{path.stem}: {case.get('classname')}.{case.get('name')} did not pass")
        else:
            passed += 1
    return passed, failed


def main():
    files = sorted(Path(sys.argv[1]).glob("*.xml"))
    totals = [count(path) for path in files]
    for path, (passed, failed) in zip(files, totals):
        print(f"{path.stem}: {passed} passed, {failed} failed")
    passed = sum(total[0] for total in totals)
    failed = sum(total[1] for total in totals)
    print(f"{passed} passed, {failed} failed")
    return 1 if failed or not passed else 0


if __name__ == "__main__":
    sys.exit(main())
