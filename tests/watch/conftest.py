# SPDX-License-Identifier: ISC
"""kelm-watch in the world of the attempt tests, beside the same scripted peers."""
import os
import sys

import pytest

TESTS_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
for name in ('world', 'attempt', 'watch'):
    sys.path.insert(0, os.path.join(TESTS_DIR, name))

import recorder  # noqa: E402

pytest_plugins = ['world_plugin']


@pytest.fixture
def watch(router):  # pylint: disable=unused-argument
    """Starts kelm-watch; what was started ends with the test, each with its right status."""
    started = []

    def start(*arguments, **options):
        started.append(recorder.Watch(*arguments, **options))
        return started[-1]
    yield start
    for one in started:
        one.end()
