#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""What clang-tidy has found clean is not read again, and everything else is."""
import json
import os
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
# The reader of the test finds fault with the word FAULT, and notes which files it has read.
TIDY = """#!/bin/sh
if [ "$1" = --version ]; then cat "$HOME/version"; exit; fi
for word in "$@"; do case $word in *.cpp) file=$word ;; esac; done
echo "$file" >>"$HOME/read"
[ ! -e "$HOME/meanwhile" ] || sh "$HOME/meanwhile"
! grep -n FAULT "$file" core/part.h
"""


@pytest.fixture(name="tree")
def small_tree(tmp_path):
    """Two files that are built, of which one includes a header, and one that is not built."""
    tree = tmp_path / "tree"
    for name, text in (("core/one.cpp", '#include "part.h"\n'), ("core/two.cpp", "int two;\n"),
                       ("core/part.h", "extern int part;\n"), ("lone.cpp", "int lone;\n"),
                       (".clang-tidy", "Checks: '*'\n")):
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        (tree / name).write_text(text, encoding="utf-8")
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin/clang-tidy-14").write_text(TIDY, encoding="utf-8")
    (tmp_path / "bin/clang-tidy-14").chmod(0o755)
    (tmp_path / "bin/clang").symlink_to(shutil.which("g++"))
    (tmp_path / "version").write_text("14.0.6\n", encoding="utf-8")
    flags(tree, "")
    return tree


def flags(tree, more):
    (tree / "build").mkdir(exist_ok=True)
    (tree / "build/compile_commands.json").write_text(json.dumps([
        {"directory": str(tree / "build"), "file": f"{tree}/core/{name}.cpp",
         "command": f"g++ {more} -o {name}.o -c {tree}/core/{name}.cpp"}
        for name in ("one", "two")]), encoding="utf-8")


def lint(tree):
    """(status, which files were read, what was said)"""
    read = tree.parent / "read"
    read.unlink(missing_ok=True)
    environment = {"PATH": f"{tree.parent}/bin:{os.environ['PATH']}", "HOME": str(tree.parent)}
    done = subprocess.run(
        ["/usr/bin/python3", ROOT / "script/lib/tidy.py", tree / "build", "2"], cwd=tree, text=True,
        env=environment, input="core/one.cpp\ncore/two.cpp\nlone.cpp\n", capture_output=True,
        timeout=120, check=False)
    names = read.read_text(encoding="utf-8").split() if read.exists() else []
    return done.returncode, sorted(names), done.stdout + done.stderr


ALL = ["core/one.cpp", "core/two.cpp", "lone.cpp"]


def test_what_was_clean_is_not_read_again(tree):
    assert lint(tree) == (0, ALL, "")
    assert lint(tree) == (0, [], "")


def test_another_checkout_of_the_same_files_is_clean_too(tree):
    assert lint(tree)[:2] == (0, ALL)
    moved = tree.parent / "moved"
    tree.rename(moved)
    flags(moved, "")
    assert lint(moved) == (0, [], "")


@pytest.mark.parametrize("name, text, read", [
    ("tree/core/two.cpp", "int other;\n", ["core/two.cpp"]),
    ("tree/core/part.h", "extern int other;\n", ["core/one.cpp"]),
    ("tree/lone.cpp", "int other; // a comment counts\n", ["lone.cpp"]),
    ("tree/.clang-tidy", "Checks: 'a'\n", ALL),
    ("tree/core/.clang-tidy", "Checks: 'a'\n", ["core/one.cpp", "core/two.cpp"]),
    ("version", "15.0.1\n", ALL),
], ids=["a file", "a header", "one not built", "settings", "a folder's settings", "version"])
def test_what_has_changed_is_read_again(tree, name, text, read):
    assert lint(tree)[:2] == (0, ALL)
    (tree.parent / name).write_text(text, encoding="utf-8")
    assert lint(tree) == (0, read, "")


def test_other_flags_are_another_verdict(tree):
    assert lint(tree)[:2] == (0, ALL)
    flags(tree, "-DMORE=1")
    assert lint(tree) == (0, ["core/one.cpp", "core/two.cpp"], "")


def test_what_was_found_is_found_again(tree):
    (tree / "core/two.cpp").write_text("int FAULT;\n", encoding="utf-8")
    for read in (ALL, ["core/two.cpp"]):
        status, seen, said = lint(tree)
        assert (status, seen) == (1, read)
        assert "clang-tidy fails at core/two.cpp:" in said and "FAULT" in said


def test_a_file_whose_includes_cannot_be_told_is_read_each_time(tree):
    (tree / "core/one.cpp").write_text('#include "missing.h"\n', encoding="utf-8")
    assert lint(tree)[:2] == (0, ALL)
    assert lint(tree)[:2] == (0, ["core/one.cpp"])


def test_a_file_that_is_edited_meanwhile_is_not_called_clean(tree):
    """Faulty when its key was taken, mended when it was read, faulty again."""
    faulty, mended = "int FAULT;\n", "int good;\n"
    two = tree / "core/two.cpp"
    two.write_text(faulty, encoding="utf-8")
    (tree.parent / "meanwhile").write_text("echo 'int good;' >core/two.cpp\n", encoding="utf-8")
    assert lint(tree) == (0, ALL, "")
    assert two.read_text(encoding="utf-8") == mended
    (tree.parent / "meanwhile").unlink()
    two.write_text(faulty, encoding="utf-8")
    assert lint(tree)[:2] == (1, ["core/two.cpp"])
