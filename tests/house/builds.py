# SPDX-License-Identifier: ISC
"""Configures and builds the tree in folders of the tests, and looks at what came out."""
import json
import re
import shutil
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
OPENWRT_LIBRARIES = {'libubox', 'libblobmsg_json', 'libubus', 'libuci'}


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


def openwrt_prefix(build, prefix):
    """Installs the four libraries with their headers: the stand-ins under OpenWrt's names."""
    must_run('cmake', '-S', ROOT / 'bench/openwrt', '-B', build, '-G', 'Ninja', *through_cache(),
             f'-DCMAKE_INSTALL_PREFIX={prefix}')
    must_run('cmake', '--build', build, '-j2')
    must_run('cmake', '--install', build)


def needed(program):
    """The libraries that the program is linked with."""
    done = subprocess.run(['readelf', '-d', program], check=True, capture_output=True, text=True)
    return set(re.findall(r'\(NEEDED\).*\[(.+?)\.so', done.stdout))


def of_openwrt(build):
    """Those of the libraries that may come from OpenWrt in this build: all four or none."""
    cache = (build / 'CMakeCache.txt').read_text(encoding='utf-8')
    stand_ins, = re.findall(r'^KELM_STAND_INS:INTERNAL=(ON|OFF)$', cache, re.MULTILINE)
    return OPENWRT_LIBRARIES if stand_ins == 'OFF' else set()


def commands(build):
    """{file below the root: the words of its compiler's command line}."""
    with open(build / 'compile_commands.json', encoding='utf-8') as file:
        return {str(Path(entry['file']).relative_to(ROOT)): entry['command'].split()
                for entry in json.load(file)}
