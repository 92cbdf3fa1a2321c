#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""Builds the tests' world and leaves it; where it cannot be built, says why and what would help."""
import os
import sys

import world

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
FOR_ROOT = 'in a container, start it with more rights: docker run --privileged -it debian:12'
FOR_USERS = ('run it as root (with sudo), or allow user namespaces: sudo sysctl '
             'kernel.unprivileged_userns_clone=1; a chroot allows them to nobody but root')


def main():
    if not os.path.exists('/proc/self/mounts'):
        print('the tests need /proc; mount it: mount -t proc proc /proc')
        return 1
    is_root = os.geteuid() == 0
    try:
        world.gain_privilege()
        world.World(SOURCE_DIR, SOURCE_DIR)
    except (world.WorldError, OSError) as error:
        why = 'mounting is not allowed' if str(error) == world.MISSING_PRIVILEGE else error
        print(f'the tests need mounts of their own, and cannot have them here ({why}); '
              + (FOR_ROOT if is_root else FOR_USERS))
        return 1
    return 0


if __name__ == '__main__':
    sys.exit(main())
