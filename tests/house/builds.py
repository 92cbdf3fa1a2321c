# SPDX-License-Identifier: ISC
"""Configures and builds the tree in folders of the tests, and looks at what came out."""
import json
import shutil
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]


def run(*command):
    """Returns whether it went well, and all that it said."""
    done = subprocess.run(command, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                          text=True, check=False)
    return done.returncode == 0, done.stdout


def must_run(*command):
    well, said = run(*command)
    assert well, said


def through_cache():
    """Options for builds that are the same each time, where a compiler cache is installed."""
    if not shutil.which('ccache'):
        return []
    return [f'-DCMAKE_{language}_COMPILER_LAUNCHER=ccache' for language in ('C', 'CXX')]


def commands(build):
    """{file below the root: the words of its compiler's command line}."""
    with open(build / 'compile_commands.json', encoding='utf-8') as file:
        return {str(Path(entry['file']).relative_to(ROOT)): entry['command'].split()
                for entry in json.load(file)}
