# SPDX-License-Identifier: ISC
"""The daemon for other machines, built with the tool chain that script/cross has set up."""
import dataclasses
import os
import platform
import subprocess

import packages
from tools import SOURCE, configure_and_build, install_stripped

HOSTLIBS = ('ubox', 'blobmsg_json', 'ubus', 'uci')


@dataclasses.dataclass
class Target:
    """A machine. peer: Debian's name for the same, or the nearest that it has packages for."""
    name: str
    triplet: str
    peer: str


# Debian 12 has no packages for big-endian MIPS; the little-endian one has the same instructions.
TARGETS = (Target('armhf', 'arm-linux-gnueabihf', 'armhf'),
           Target('mips', 'mips-linux-gnu', 'mipsel'))
# This machine with another C library: it runs here, so more than its size is measured. See musl.py.
MUSL = Target('musl', f'{platform.machine()}-linux-musl', '')


def _apt(folder, machine, *words, cwd=None, check=True):
    """apt with lists of its own: this machine's own lists and packages stay as they are."""
    subprocess.run(
        ['apt-get', '-qq', '-o', f'Dir::State={folder}/state', '-o', 'Dir::State::status=/dev/null',
         '-o', f'Dir::Cache={folder}/cache', '-o', f'APT::Architecture={machine}', '-o',
         f'APT::Architectures={machine}', '-o', 'APT::Sandbox::User=root', '-o',
         'Acquire::Languages=none', *words], cwd=cwd, check=check, stdout=subprocess.DEVNULL)


def _hostapd_cli(machine):
    """Debian's for that machine, kept in the cache beside the virtual router's packages."""
    folder = os.path.join(packages.cache_folder(), machine)
    program = f'{folder}/tree/usr/sbin/hostapd_cli'
    if not os.path.exists(program):
        for part in ('state/lists/partial', 'cache/archives/partial', 'package'):
            os.makedirs(f'{folder}/{part}', exist_ok=True)
        # A list that cannot be read is told by what is then not found.
        _apt(folder, machine, 'update', check=False)
        _apt(folder, machine, 'download', 'hostapd', cwd=f'{folder}/package')
        package, = os.listdir(f'{folder}/package')
        subprocess.run(['dpkg-deb', '-x', f'{folder}/package/{package}', f'{folder}/tree'],
                       check=True)
    return program


def is_set_up(target):
    return os.path.exists(f'{SOURCE}/build-{target.name}/sysroot/complete')


def build_one(target, build, *options):
    """Linked as on a router; returns the stripped program."""
    folder = f'{build}/{target.name}'
    # Without pkg-config, json-c is looked for in the sysroot alone.
    toolchain = (f'-DCMAKE_TOOLCHAIN_FILE={SOURCE}/cmake/cross/{target.name}.cmake',
                 '-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON')
    for part in (folder, f'{folder}/openwrt'):
        os.makedirs(part, exist_ok=True)
        if not os.path.lexists(f'{part}/sysroot'):
            os.symlink(f'{SOURCE}/build-{target.name}/sysroot', f'{part}/sysroot')
    prefix = f'{folder}/prefix'
    configure_and_build(f'{SOURCE}/bench/openwrt', f'{folder}/openwrt', *toolchain,
                        f'-DCMAKE_INSTALL_PREFIX={prefix}')
    subprocess.run(['cmake', '--install', f'{folder}/openwrt'], check=True, capture_output=True)
    libraries = [f'-D{name.upper()}_LIBRARY={prefix}/lib/lib{name}.so' for name in HOSTLIBS]
    includes = [f'-D{name}_INCLUDE_DIR={prefix}/include' for name in ('UBOX', 'UBUS', 'UCI')]
    configure_and_build(SOURCE, folder, *toolchain, *libraries, *includes, *options)
    return install_stripped(folder)


def build_all(build):
    """(target, program, peer) of those whose tool chain is there: see script/cross TARGET build."""
    return [(target, build_one(target, build), _hostapd_cli(target.peer)) for target in TARGETS
            if is_set_up(target)]
