# SPDX-License-Identifier: ISC
"""Size of the stripped program and of what OpenWrt packs, beside Debian's command-line clients."""
import os
import re
import subprocess

import feed
from figures import Figure, Goal, Samples

CXX_RUNTIME = ('libstdc++', 'libgcc', 'libc++', 'libsupc++')


def _output(*command):
    return subprocess.run(command, check=True, capture_output=True, text=True).stdout


def sections(path, size='size'):
    """(text, data, bss)"""
    return [int(word) for word in _output(size, path).splitlines()[1].split()[:3]]


def needed(path):
    """The libraries that the program is linked with."""
    return re.findall(r'\(NEEDED\).*\[(.+?)\]', _output('readelf', '-d', path))


def _file_size(name, program, peer_name, peer, goal=None):
    return Figure(name, Samples(os.path.getsize(program), 'bytes'), peer_name,
                  Samples(os.path.getsize(peer), 'bytes'), goal)


def _other_machine(target, program, peer):
    size = f'{target.triplet}-size'
    own, other = sections(program, size), sections(peer, size)
    peer_name = f'hostapd_cli, {target.peer}'
    return [_file_size(f'stripped file, {target.name}', program, peer_name, peer, Goal(1.0))] + [
        Figure(f'{name}, {target.name}', Samples(value, 'bytes'), peer_name,
               Samples(peer_value, 'bytes'))
        for name, value, peer_value in zip(('text', 'data', 'bss'), own, other)]


def measure(tools):
    shipped = f'{tools.build}/stage/sbin/kelm'
    hardened = f'{tools.build}/hardened/stage/sbin/kelm'
    # A size does not depend on how busy the machine is. Both goals are missed since the daemon
    # trusts nobody and serves stock OpenWrt: see docs/performance.md. The limits leave room for one
    # page more in the first file, and for none in the second.
    smaller, smaller_hardened = Goal(1.0, limit=1.13), Goal(1.0, limit=1.18)
    figures = [
        _file_size('stripped file, as shipped', shipped, 'hostapd_cli', tools.hostapd_cli, smaller),
        _file_size('stripped file, hardened as the peer', hardened, 'hostapd_cli',
                   tools.hostapd_cli, smaller_hardened),
        _file_size('stripped file, as shipped', shipped, 'wpa_cli', tools.wpa_cli),
    ]
    figures.append(_file_size('stripped file of kelm-watch', f'{tools.build}/stage/sbin/kelm-watch',
                              'hostapd_cli', tools.hostapd_cli))
    for name, own, peer in zip(('text', 'data', 'bss'), sections(shipped),
                               sections(tools.hostapd_cli)):
        figures.append(Figure(name, Samples(own, 'bytes'), 'hostapd_cli', Samples(peer, 'bytes')))
    libraries = needed(shipped)
    figures.append(Figure('libraries needed', Samples(len(libraries)), ' '.join(libraries)))
    runtime = [name for name in libraries if name.startswith(CXX_RUNTIME)]
    figures.append(Figure('of them of the C++ run time', Samples(len(runtime)),
                          goal=Goal(0, of_ratio=False, limit=0)))
    figures += feed.measure(f'{tools.build}/feed', shipped)
    for target, program, peer in tools.targets:
        figures += _other_machine(target, program, peer)
    return figures
