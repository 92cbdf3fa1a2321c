# SPDX-License-Identifier: ISC
"""What a package puts where, as the install lines of its Makefile say."""
import glob
import os
import re

MODES = {'INSTALL_BIN': 0o755, 'INSTALL_DATA': 0o644, 'INSTALL_CONF': 0o600}
LINE = re.compile(r'\t\$\((INSTALL_\w+)\) (\S+) \$\(1\)(\S+)')
# What CMake installs as it is: where that lies in the tree.
INSTALLED = {'$(PKG_INSTALL_DIR)/usr/sbin/kelm-doctor': '../../doctor/kelm-doctor',
             '$(PKG_INSTALL_DIR)/usr/lib/kelm/doctor/*.sh': '../../doctor/lib/*.sh'}
BEGIN = re.compile(r'define Package/(\S+)/install')


def installed_files(makefile, package):
    """(source, place on the router, mode) of each file of the tree that the package brings.

    What a compiler has made is not of the tree.
    """
    found = []
    folder = os.path.dirname(makefile)
    with open(makefile, encoding='utf-8') as file:
        inside = False
        for line in file:
            begin = BEGIN.match(line)
            if begin:
                inside = begin.group(1) == package
            elif line.startswith('endef'):
                inside = False
            install = LINE.match(line)
            if inside and install and install.group(1) in MODES:
                kind, source, place = install.groups()
                pattern = os.path.normpath(os.path.join(folder, INSTALLED.get(source, source)))
                for one in sorted(glob.glob(pattern)):
                    name = os.path.basename(one) if place.endswith('/') else ''
                    found.append((one, place + name, MODES[kind]))
    return found
