# SPDX-License-Identifier: ISC
"""Attacks on the real daemon in the world of the attempt tests, by processes of another user."""
import os
import sys

import pytest

TESTS_DIR = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(TESTS_DIR, 'world'))
sys.path.insert(0, os.path.join(TESTS_DIR, 'attempt'))

import stranger as strangers  # noqa: E402

pytest_plugins = ['world_plugin']


def pytest_addoption(parser):
    parser.addoption('--rounds', type=int, default=20, help='how often each race is run')


def pytest_configure(config):
    """No attack may pass because there was no attacker."""
    if not strangers.may_be_another_user():
        raise pytest.UsageError(
            'the attack tests cannot run: they start processes of another user '
            f'(uid {strangers.UID}), which takes root (CAP_SETUID over that user)')
    racer = os.path.join(config.getoption('--build'), 'tests/world/racer')
    if not os.path.exists(racer):
        raise pytest.UsageError(f'{racer} is missing: build it with KELM_TESTS=ON')


@pytest.fixture
def rounds(pytestconfig):
    return pytestconfig.getoption('--rounds')


@pytest.fixture
def stranger(world):  # pylint: disable=unused-argument
    """The other user in the world of the test; what it started ends with the test."""
    user = strangers.Stranger()
    yield user
    user.end()
