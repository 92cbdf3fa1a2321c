# SPDX-License-Identifier: ISC
"""Gives the tests of the page one browser for all of them."""

import sys
from pathlib import Path

import pytest

HERE = Path(__file__).resolve().parent
sys.path[:0] = [str(HERE), str(HERE.parents[1])]


@pytest.fixture(scope="session", name="browser")
def one_browser():
    """A browser; see browser.py."""
    from browser import Browser
    browser = Browser()
    yield browser
    browser.close()
