# SPDX-License-Identifier: ISC
"""Sizes of what OpenWrt's build system makes of the feed folder; tests/house/feed plays it."""
import os
import shutil
import subprocess

from figures import Figure, Goal, Samples

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def build(out, prefix):
    """Both packages, with the libraries of the prefix: OUT/kelm and OUT/kelm-stock."""
    shutil.rmtree(out, ignore_errors=True)
    os.makedirs(out)
    subprocess.run(
        ['make', '-C', f'{SOURCE}/openwrt/kelm', f'TOPDIR={SOURCE}/tests/house/feed', f'OUT={out}',
         f'PREFIX={prefix}', 'prepare', 'build', 'install-kelm', 'install-kelm-stock'],
        check=True, capture_output=True)
    # OpenWrt strips while it packs.
    subprocess.run(['strip', f'{out}/kelm/usr/sbin/kelm'], check=True)


def _sizes(folder):
    return [os.path.getsize(os.path.join(where, name))
            for where, _, names in os.walk(folder) for name in names]


def measure(out, shipped):
    """shipped: the stripped program of the default build."""
    files = _sizes(f'{out}/kelm-stock')
    return [
        # OpenWrt calls its build type "Release", and that is to cost nothing.
        Figure('stripped file, as OpenWrt builds it',
               Samples(os.path.getsize(f'{out}/kelm/usr/sbin/kelm'), 'bytes'), 'as shipped',
               Samples(os.path.getsize(shipped), 'bytes'), Goal(1.0, limit=1.01)),
        Figure('scripts of kelm-stock, installed', Samples(sum(files), 'bytes'),
               f'in {len(files)} files'),
    ]
