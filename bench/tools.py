# SPDX-License-Identifier: ISC
"""Builds what is measured, finds the peers: Debian's own clients, unpacked, not installed."""
import dataclasses
import os
import shutil
import subprocess
import sys

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
sys.path.insert(0, os.path.join(SOURCE, 'router'))

import packages  # noqa: E402

# Debian's own for its programs; the compiler makes position-independent programs by itself.
HARDENING = ('-fstack-protector-strong -D_FORTIFY_SOURCE=2', '-Wl,-z,relro,-z,now')


@dataclasses.dataclass
class Tools:
    """Where everything is; paths that the private world does not cover."""
    source: str
    build: str
    hostapd_cli: str
    wpa_cli: str
    # Both are found before the private world is entered.
    targets: list = ()  # see targets.py
    stock_router: dict = None  # see stock.py


def _run(*command):
    done = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True,
                          check=False)
    if done.returncode != 0:
        raise SystemExit(f'{" ".join(command)}\n{done.stdout}')


def configure_and_build(source, build, *options):
    _run('cmake', '-S', source, '-B', build, '-G', 'Ninja', *options)
    _run('cmake', '--build', build, '--parallel', '2')


def install_stripped(tree):
    """Returns the program as a router gets it."""
    shutil.rmtree(f'{tree}/stage', ignore_errors=True)
    _run('cmake', '--install', tree, '--strip', '--prefix', f'{tree}/stage')
    return f'{tree}/stage/sbin/kelm'


def build_all(build):
    """The daemon as shipped, linked as on a router, in BUILD/stage; the same hardened beside it."""
    prefix = f'{build}/prefix'
    configure_and_build(f'{SOURCE}/bench/openwrt', f'{build}/openwrt',
                        f'-DCMAKE_INSTALL_PREFIX={prefix}')
    _run('cmake', '--install', f'{build}/openwrt')
    own = ('-DKELM_BENCH=ON', '-DKELM_WERROR=ON', f'-DCMAKE_PREFIX_PATH={prefix}')
    configure_and_build(SOURCE, build, *own)
    configure_and_build(SOURCE, f'{build}/hardened', f'-DCMAKE_PREFIX_PATH={prefix}',
                        f'-DCMAKE_CXX_FLAGS={HARDENING[0]}',
                        f'-DCMAKE_EXE_LINKER_FLAGS={HARDENING[1]}')
    for tree in (build, f'{build}/hardened'):
        install_stripped(tree)


class _Told:
    """Tells that the packages are fetched, and not how far that is."""
    begin = staticmethod(print)

    def update(self, text):
        pass

    done = update


def prepare(build):
    tree = packages.unpacked_tree(_Told())
    build_all(build)
    return Tools(SOURCE, build, f'{tree}/usr/sbin/hostapd_cli', f'{tree}/sbin/wpa_cli')
