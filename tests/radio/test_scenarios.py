# SPDX-License-Identifier: ISC
"""Whole attempts on the virtual router, one test for each scenario of script/demo."""

import shutil

import pytest

from router import play, scenarios


@pytest.mark.parametrize("scenario", scenarios.SCENARIOS, ids=lambda scenario: scenario.name)
def test_scenario(scenario, build_folder):
    assert shutil.which("qemu-system-x86_64"), "the package qemu-system-x86 is not installed"
    outcome = play.play(scenario, build_folder)
    failures = outcome.failures()
    if failures:
        pytest.fail("%s\n(logs: %s)" % ("\n".join(failures), outcome.log_folder), pytrace=False)
