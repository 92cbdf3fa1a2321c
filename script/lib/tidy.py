#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Runs clang-tidy on files, each in a run of its own. Fails when one of them is not clean.

If one run reads two files, the analyzer of this version takes the second one's va_list for
uninitialized.

usage: script/lib/tidy.py BUILD JOBS    reads the names of the files, one a line

The verdict on a file depends on the file, all that it includes, the settings and the flags. A hash
of these and of clang-tidy's version is a name in the cache, ~/.cache/kelm/tidy. If an empty file of
that name lies there, clang-tidy has found all this clean before and does not run again. What it
finds is never kept.
"""
import concurrent.futures
import contextlib
import hashlib
import json
import os
import shlex
import subprocess
import sys
import time
from pathlib import Path

TIDY = "clang-tidy-14"
PLAIN_FLAGS = ["-I.", "-Ihostlibs/include"]
KEPT_S = 60 * 24 * 3600
TOP = Path.cwd()


def cache_folder():
    base = os.environ.get("XDG_CACHE_HOME") or os.path.join(os.path.expanduser("~"), ".cache")
    return Path(base) / "kelm/tidy"


def commands_of(build):
    """The commands that compile each file; one that no target compiles is read with plain flags."""
    commands = {}
    text = (build / "compile_commands.json").read_text(encoding="utf-8")
    for entry in json.loads(text):
        words = shlex.split(entry["command"])
        commands.setdefault(os.path.relpath(entry["file"], TOP), []).append(
            (entry["directory"], words))
    return commands


def included(folder, words, file):
    """The files that a compilation reads, as the compiler lists them; None when it fails."""
    keep = []
    skip = False
    for word in words:
        if not skip and word not in ("-o", "-c"):
            keep.append(word)
        skip = not skip and word == "-o"
    done = subprocess.run([*keep, "-M", "-MT", "x"], cwd=folder, capture_output=True, text=True,
                          check=False)
    if done.returncode != 0:
        return None
    names = shlex.split(done.stdout.replace("\\\n", " "))[1:]
    if not any(os.path.realpath(os.path.join(folder, name)) == str(TOP / file) for name in names):
        return None
    return sorted({os.path.join(folder, name) for name in names})


def settings_of(file):
    """The settings that count for a file: those of its folder and of all above it."""
    folders = [parent for parent in (TOP / file).parents if parent == TOP or TOP in parent.parents]
    return [str(folder / ".clang-tidy") for folder in folders if (folder / ".clang-tidy").exists()]


def relative(text):
    return text.replace(str(TOP), "")


def key_of(file, commands, version):
    """A hash of all that the verdict depends on; None when that cannot be told."""
    digest = hashlib.sha256(version.encode())
    for folder, words in commands:
        names = included(folder, words, file)
        if names is None:
            return None
        digest.update(relative("\0".join([folder, *words])).encode())
        for name in names + settings_of(file):
            content = Path(name).read_bytes()
            digest.update(f"\0{relative(name)}\0{len(content)}\0".encode() + content)
    return digest.hexdigest()


def judge(file, build, commands, version):
    """Returns what clang-tidy has to say about a file, nothing when it is clean."""
    known = commands.get(file)
    plain = [(str(TOP), ["clang", *PLAIN_FLAGS, file])]
    key = key_of(file, known or plain, version)
    stamp = cache_folder() / (key or "")
    if key and stamp.exists():
        with contextlib.suppress(OSError):
            stamp.touch()
        return ""
    where = ["-p", str(build)] if known else []
    flags = [] if known else ["--", *PLAIN_FLAGS]
    done = subprocess.run([TIDY, "--quiet", *where, file, *flags], stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, text=True, check=False)
    if done.returncode != 0:
        return f"clang-tidy fails at {file}:\n{done.stdout}"
    # If somebody edited a file meanwhile, clang-tidy has judged something else.
    if key and key == key_of(file, known or plain, version):
        with contextlib.suppress(OSError):
            stamp.parent.mkdir(parents=True, exist_ok=True)
            stamp.touch()
    return ""


def forget_old():
    """Forgets what nobody has asked for in two months."""
    with contextlib.suppress(OSError):
        for stamp in cache_folder().iterdir():
            if stamp.stat().st_mtime < time.time() - KEPT_S:
                stamp.unlink()


def main():
    build = Path(sys.argv[1])
    files = sys.stdin.read().splitlines()
    commands = commands_of(build)
    version = subprocess.run([TIDY, "--version"], capture_output=True, text=True, check=True).stdout
    forget_old()
    with concurrent.futures.ThreadPoolExecutor(int(sys.argv[2])) as pool:
        found = [text for text in pool.map(
            lambda file: judge(file, build, commands, version), files) if text]
    print("".join(found), end="")
    return 1 if found else 0


if __name__ == "__main__":
    sys.exit(main())
