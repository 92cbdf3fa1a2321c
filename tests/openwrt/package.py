# SPDX-License-Identifier: ISC
"""What a package puts where, as the install lines of its Makefile say."""
import os
import re

MODES = {'INSTALL_BIN': 0o755, 'INSTALL_DATA': 0o644, 'INSTALL_CONF': 0o600}
LINE = re.compile(r'\t\$\((INSTALL_\w+)\) \./(\S+) \$\(1\)(\S+)')
BEGIN = re.compile(r'define Package/(\S+)/install')


def installed_files(makefile, package):
    """(source, place on the router, mode) of each file that the package brings from its folder."""
    found = []
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
                if place.endswith('/'):
                    place += os.path.basename(source)
                found.append((os.path.join(os.path.dirname(makefile), source), place, MODES[kind]))
    return found
