# SPDX-License-Identifier: ISC
"""What the feed folder's Makefile puts on a router: the files of a package and its scripts."""

import importlib.util
import os
import re

TOP = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
MAKEFILE = os.path.join(TOP, "openwrt/kelm/Makefile")


def _reader():
    """The function tests' reader of the install lines; their folder is no package."""
    path = os.path.join(TOP, "tests/openwrt/package.py")
    spec = importlib.util.spec_from_file_location("openwrt_package", path)
    module = importlib.util.module_from_spec(spec)
    spec.loader.exec_module(module)
    return module


def installed_files(package):
    """(source, place on the router, mode) of each file that the package brings from its folder."""
    return _reader().installed_files(MAKEFILE, package)


def _definition(package, name):
    with open(MAKEFILE, encoding="utf-8") as makefile:
        found = re.search(r"^define Package/%s/%s\n(.*?)^endef$" % (package, name), makefile.read(),
                          re.M | re.S)
    return found.group(1) if found else ""


def conffiles(package):
    return _definition(package, "conffiles").split()


def script(package, name):
    """A script of the package manager: postinst, prerm or postrm; empty where there is none."""
    return _definition(package, name).replace("$$", "$")
