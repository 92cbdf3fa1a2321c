# SPDX-License-Identifier: ISC
"""The scripts under test are called as a person calls them, whoever called these tests."""
import pytest


@pytest.fixture(autouse=True)
def no_word_of_an_outer_script(monkeypatch):
    for name in ("KELM_SCRIPT", "KELM_BUILD", "KELM_FUZZ_BUILD"):
        monkeypatch.delenv(name, raising=False)
