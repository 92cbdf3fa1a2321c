# SPDX-License-Identifier: ISC
"""Where the radio tests find the project and its build."""

import os
import sys

import pytest

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, TOP)


def pytest_addoption(parser):
    parser.addoption("--build", help="the build folder with the daemon (or KELM_BUILD)")


@pytest.fixture(scope="session")
def build_folder(request):
    named = request.config.getoption("--build") or os.environ.get("KELM_BUILD")
    candidates = [named] if named else [os.path.join(TOP, name)
                                        for name in ("build-release", "build")]
    for folder in candidates:
        if os.path.exists(os.path.join(folder, "kelm")):
            return os.path.abspath(folder)
    pytest.fail("no daemon is built in %s" % " or ".join(candidates))
