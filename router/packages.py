# SPDX-License-Identifier: ISC
"""Fetches the Debian packages that the virtual router is made of and unpacks them into a cache.

Nothing is installed on the person's own machine: a kernel, an access point daemon or a supplicant
installed there would start services and change its network.
"""

import fcntl
import glob
import os
import re
import shutil
import subprocess
import tempfile

KERNEL_META_PACKAGE = "linux-image-amd64"

# The programs of the guest, then the libraries that they need beyond the C library.
PACKAGES = [
    "busybox-static", "dash", "hostapd", "wpasupplicant", "iw", "wireless-regdb",
    "libnl-3-200", "libnl-genl-3-200", "libnl-route-3-200", "libssl3", "libdbus-1-3",
    "libsystemd0", "libcap2", "libgcrypt20", "libgpg-error0", "liblz4-1", "liblzma5",
    "libzstd1", "libpcsclite1", "libreadline8", "libtinfo6",
]

# Loaded in this order; what each of them needs is found in the modules themselves.
MODULES = ["virtio_pci", "virtio_console", "ccm", "cmac", "ctr", "gcm", "mac80211_hwsim"]


class PackageError(Exception):
    """A package could not be found, fetched or unpacked."""


def cache_folder():
    base = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
    return os.path.join(base, "kelm", "router")


def unpacked_tree(say):
    """Returns the folder with the unpacked packages, fetching them the first time."""
    folder = cache_folder()
    os.makedirs(folder, exist_ok=True)
    tree = os.path.join(folder, "tree")
    # Two guests may be started at once; only one of them fetches.
    with open(os.path.join(folder, "lock"), "w", encoding="ascii") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        if _is_complete(tree):
            return tree
        say("fetching the guest's packages (about 80 MB, once; kept in %s)" % folder)
        _fetch_into(folder, tree, say)
    return tree


def _is_complete(tree):
    try:
        with open(os.path.join(tree, "complete"), encoding="ascii") as stamp:
            return stamp.read().split() == PACKAGES + MODULES
    except OSError:
        return False


def _fetch_into(folder, tree, say):
    shutil.rmtree(tree, ignore_errors=True)
    with tempfile.TemporaryDirectory(dir=folder, prefix="fetch-") as work:
        packages = os.path.join(work, "packages")
        fresh = os.path.join(work, "tree")
        os.mkdir(packages)
        os.mkdir(fresh)
        try:
            _download(packages)
        except PackageError:
            # Lists that were never fetched, or are older than what the archive now holds.
            say("updating apt's package lists")
            _run(_as_root(["apt-get", "update", "-q"]), work)
            _download(packages)
        for package in sorted(glob.glob(os.path.join(packages, "*.deb"))):
            _run(["dpkg-deb", "-x", package, fresh], work)
        _keep_only_needed_modules(fresh)
        with open(os.path.join(fresh, "complete"), "w", encoding="ascii") as stamp:
            stamp.write("\n".join(PACKAGES + MODULES) + "\n")
        os.rename(fresh, tree)


def _download(folder):
    _run(["apt-get", "download", "-q", _kernel_package()] + PACKAGES, folder)


def _as_root(command):
    return command if os.getuid() == 0 else ["sudo"] + command


def _kernel_package():
    listing = _run(["apt-cache", "depends", KERNEL_META_PACKAGE], None)
    found = re.search(r"Depends: (linux-image-\S+)", listing)
    if not found:
        raise PackageError("apt knows no %s: the router needs a Debian PC (amd64)"
                           % KERNEL_META_PACKAGE)
    return found.group(1)


def _keep_only_needed_modules(tree):
    """The kernel package is 400 MB unpacked, of which the guest uses 3."""
    wanted = set(module_files(tree))
    for path in glob.glob(os.path.join(tree, "lib/modules/**/*.ko"), recursive=True):
        if path not in wanted:
            os.remove(path)


def module_files(tree):
    """Returns the files of MODULES and of all that they depend on, in loading order."""
    by_name = {}
    for path in glob.glob(os.path.join(tree, "lib/modules/**/*.ko"), recursive=True):
        by_name[_module_name(path)] = path
    ordered = []
    for name in MODULES:
        _append_with_needs(name, by_name, ordered)
    return ordered


def _append_with_needs(name, by_name, ordered):
    path = by_name.get(name)
    if path is None:
        raise PackageError("the kernel package has no module %s" % name)
    if path in ordered:
        return
    for need in _module_needs(path):
        _append_with_needs(need, by_name, ordered)
    ordered.append(path)


def _module_name(path):
    return os.path.basename(path)[:-len(".ko")].replace("-", "_")


def _module_needs(path):
    with open(path, "rb") as module:
        found = re.search(rb"\0depends=([^\0]*)\0", module.read())
    names = found.group(1).decode("ascii") if found else ""
    return [name.replace("-", "_") for name in names.split(",") if name]


def kernel_image(tree):
    found = glob.glob(os.path.join(tree, "boot/vmlinuz-*"))
    if not found:
        raise PackageError("the kernel package holds no kernel")
    return found[0]


def _run(command, folder):
    try:
        done = subprocess.run(command, cwd=folder, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                              text=True, check=False)
    except OSError as error:
        raise PackageError(str(error)) from error
    if done.returncode != 0:
        raise PackageError("%s failed: %s" % (" ".join(command[:3]), done.stderr.strip()))
    return done.stdout
