#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""script/steady with suites of a few lines: what it counts, keeps and leaves behind."""
import os
import re
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
HANGS_S = 180  # the test runner is started for each run, on a busy machine too


@pytest.fixture(name="tree")
def small_tree(tmp_path):
    """The script in a tree of its own whose builds have function tests that pass."""
    for folder in ("script/lib", "tests/world"):
        (tmp_path / folder).mkdir(parents=True)
    (tmp_path / "tests/world/try_world.py").touch()
    for name in ("script/steady", "script/lib/advice.sh", "tests/suites.sh", "tests/end_marked"):
        shutil.copy(ROOT / name, tmp_path / name)
    program(tmp_path / "script/bootstrap", "")
    program(tmp_path / "bin/cmake", "")
    (tmp_path / "tests/attempt").mkdir()
    for build in ("release", "asan", "tsan"):
        for name in ("core_tests", "unit_tests"):
            program(tmp_path / f"build-{build}/tests/unit/{name}", "")
    attempts(tmp_path, "pass")
    return tmp_path


def attempts(tree, body):
    (tree / "tests/attempt/conftest.py").write_text(
        "def pytest_addoption(parser):\n    parser.addoption('--build')\n", encoding="utf-8")
    (tree / "tests/attempt/test_it.py").write_text(
        f"import pathlib\n\n\ndef test_it(pytestconfig):\n    {body}\n", encoding="utf-8")


def program(path, text):
    path.parent.mkdir(exist_ok=True, parents=True)
    path.write_text(f"#!/bin/bash\n{text}\n", encoding="utf-8")
    path.chmod(0o755)


def run(tree, *words):
    environment = dict(os.environ, PATH=f"{tree / 'bin'}:{os.environ['PATH']}")
    done = subprocess.run([tree / "script/steady", *words], capture_output=True, text=True,
                          timeout=HANGS_S, env=environment, check=False)
    return done.returncode, [re.sub(r"after \d+ s", "after N s", line)
                             for line in done.stdout.splitlines()]


def test_each_run_has_a_line_and_each_second_one_a_load(tree):
    status, lines = run(tree, "--runs", "2", "--builds", "tsan", "--load", "1")
    assert status == 0
    assert lines[:2] == ["tsan run 1 of 2, alone: passed after N s",
                         "tsan run 2 of 2, beside 1: passed after N s"]
    assert lines[-1] == "2 runs, 0 failed"
    assert not (tree / "build-steady").exists()


def test_together_the_builds_of_a_round_run_at_the_same_time(tree):
    """Each build's attempt waits until the other's has begun."""
    attempts(tree, f"""import time
    build = pathlib.Path(pytestconfig.getoption("--build")).name
    seen = pathlib.Path({str(tree)!r})
    (seen / f"{{build}}-begun").touch()
    deadline = time.monotonic() + 60
    while len(list(seen.glob("*-begun"))) < 2:
        assert time.monotonic() < deadline
        time.sleep(0.01)""")
    status, lines = run(tree, "--runs", "2", "--builds", "asan tsan", "--load", "1", "--together")
    assert status == 0
    assert lines[:4] == ["asan run 1 of 2, together: passed after N s",
                         "tsan run 1 of 2, together: passed after N s",
                         "asan run 2 of 2, together, beside 1: passed after N s",
                         "tsan run 2 of 2, together, beside 1: passed after N s"]
    assert lines[-1] == "4 runs, 0 failed"


def test_all_that_is_built_and_kept_goes_where_it_is_told(tree, tmp_path, monkeypatch):
    elsewhere = tmp_path / "elsewhere"
    elsewhere.mkdir()
    (tree / "build-asan").rename(elsewhere / "kelm-asan")
    program(elsewhere / "kelm-asan/tests/unit/core_tests", "exit 1")
    monkeypatch.setenv("KELM_BUILD", str(elsewhere / "kelm"))
    program(tree / "bin/cmake", f'echo "$@" >>"{tree}/cmake-words"')
    status, lines = run(tree, "--runs", "1", "--builds", "asan")
    assert (status, lines[-1]) == (1, "1 runs, 1 failed")
    assert (elsewhere / "kelm-steady/asan-1/output.log").exists()
    assert (tree / "cmake-words").read_text(encoding="utf-8").splitlines() == [
        f"--preset asan -G Ninja -B {elsewhere}/kelm-asan", f"--build {elsewhere}/kelm-asan"]
    assert not list(tree.glob("build-steady*"))


def test_a_run_goes_on_after_a_cut(tree):
    _, lines = run(tree, "--runs", "4", "--builds", "asan", "--from", "4", "--load", "1")
    assert lines[0] == "asan run 4 of 4, beside 1: passed after N s"
    assert lines[-1] == "1 runs, 0 failed"


def test_a_failing_run_fails_all_and_its_log_is_kept(tree):
    seen = f"pathlib.Path({str(tree / 'seen')!r})"
    attempts(tree, f"first = not {seen}.exists()\n    {seen}.touch()\n    assert first")
    status, lines = run(tree, "--runs", "2", "--builds", "release", "--load", "0")
    assert status == 1
    assert [line for line in lines if line.startswith("FAILED tests/attempt/test_it.py")]
    assert lines[-1] == "2 runs, 1 failed"
    assert [line.split()[:4] for line in lines[-3:-1]] == [
        ["release", "none", "1", "0"], ["release", "busy", "1", "1"]]
    assert (tree / "build-steady/release-2/output.log").exists()
    assert not (tree / "build-steady/release-1").exists()


@pytest.mark.parametrize("words", [
    ["--runs"], ["--together", "--runs"], ["--runs", "x"], ["--builds", "armhf"], ["now", "1"]])
def test_words_that_it_does_not_know_run_nothing(tree, words):
    status, lines = run(tree, *words)
    assert (status, lines) == (2, [])


def test_no_run_at_all_is_no_success(tree):
    status, lines = run(tree, "--runs", "3", "--from", "4")
    assert (status, lines[-1]) == (1, "0 runs, 0 failed")
