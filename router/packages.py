# SPDX-License-Identifier: ISC
"""Fetches the Debian packages that the virtual router is made of and unpacks them into a cache.

Nothing is installed on the person's own machine: a kernel, an access point daemon or a supplicant
installed there would start services and change its network. This file imports none of its
neighbours, since the benches use it by itself.
"""

import contextlib
import errno
import fcntl
import glob
import lzma
import os
import re
import shutil
import struct
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
MODULES = ["virtio_pci", "virtio_console", "ccm", "cmac", "ctr", "gcm", "ledtrig_timer",
           "mac80211_hwsim"]

# The kernel without its wrapping, and where the header of its image tells the way to it.
UNPACKED_KERNEL = "vmlinux"
SECTOR = 512
SETUP_SECTORS_AT = 0x1f1
BOOT_MAGIC_AT = 0x202
PAYLOAD_AT = 0x248
BOOT_HEADER_END = 0x250
# The note of an entry that needs no wrapping: the lengths of name and value, type, name.
DIRECT_ENTRY_NOTES = [struct.pack("<III4s", 4, length, 18, b"Xen\0") for length in (4, 8)]

MEGABYTE = 1000 * 1000
# What the cache holds at most, while the packages are unpacked.
UNPACKED_MB = 600
WATCH_STEP_S = 0.5


def megabytes(size):
    return "%d MB" % round(size / MEGABYTE)


class PackageError(Exception):
    """A package could not be found, fetched or unpacked; the text is a sentence with advice."""


class CommandError(PackageError):
    """A program failed; the text is what it said last."""


def cache_folder():
    base = os.environ.get("XDG_CACHE_HOME") or os.path.expanduser("~/.cache")
    return os.path.join(base, "kelm", "router")


@contextlib.contextmanager
def cache_advice():
    """Tells what a person can do when the cache does not take what has to be kept there."""
    try:
        yield
    except OSError as error:
        raise PackageError(_cache_trouble(error.strerror or str(error),
                                          error.errno in (errno.ENOSPC, errno.EDQUOT))) from error
    except CommandError as error:
        if _is_full(error):
            raise PackageError(_cache_trouble("No space left on device", True)) from error
        raise


def _is_full(error):
    return "No space left" in str(error)


def _cache_trouble(reason, is_full):
    cure = "name" if not is_full else "free %d MB there, or name" % UNPACKED_MB
    return ("the guest's packages cannot be kept in %s (%s): %s another folder, for example with "
            "XDG_CACHE_HOME=/var/tmp/kelm-cache" % (cache_folder(), reason, cure))


def unpacked_tree(steps):
    """Returns the folder with the unpacked packages, fetching them the first time."""
    folder = cache_folder()
    tree = os.path.join(folder, "tree")
    with cache_advice():
        os.makedirs(folder, exist_ok=True)
        # Two guests may be started at once; only one of them fetches.
        with open(os.path.join(folder, "lock"), "w", encoding="ascii") as lock:
            fcntl.flock(lock, fcntl.LOCK_EX)
            if _is_complete(tree):
                there = "the guest's packages are there, %s (%s)" % (
                    megabytes(_size_of(tree)), folder)
                steps.begin(there)
                steps.done(there)
            else:
                _fetch_into(folder, tree, steps)
    return tree


def _is_complete(tree):
    try:
        with open(os.path.join(tree, "complete"), encoding="ascii") as stamp:
            return stamp.read().split() == PACKAGES + MODULES
    except OSError:
        return False


def _fetch_into(folder, tree, steps):
    shutil.rmtree(tree, ignore_errors=True)
    with tempfile.TemporaryDirectory(dir=folder, prefix="fetch-") as work:
        packages = os.path.join(work, "packages")
        fresh = os.path.join(work, "tree")
        os.mkdir(packages)
        os.mkdir(fresh)
        _fetch(packages, folder, steps)
        fetched = sorted(glob.glob(os.path.join(packages, "*.deb")))
        for number, package in enumerate(fetched, 1):
            steps.update("unpacks package %d of %d" % (number, len(fetched)))
            _run(["dpkg-deb", "-x", package, fresh], work)
        steps.done("%d packages fetched, %s (once; kept in %s)"
                   % (len(fetched), megabytes(_size_of(packages)), folder))
        _keep_only_needed_modules(fresh)
        with open(os.path.join(fresh, "complete"), "w", encoding="ascii") as stamp:
            stamp.write("\n".join(PACKAGES + MODULES) + "\n")
        os.rename(fresh, tree)


def _fetch(packages, folder, steps):
    names = None
    try:
        try:
            names = [_kernel_package()] + PACKAGES
            total = _download_size(names, packages)
        except CommandError:
            total = None
        if total is None:
            steps.begin("fetches apt's package lists and %d packages (once; kept in %s)"
                        % (1 + len(PACKAGES), folder))
            names, total = _with_new_lists(packages)
        else:
            steps.begin("fetches %d packages, %s (once; kept in %s)"
                        % (len(names), megabytes(total), folder))
        try:
            _download(names, packages, total, steps)
        except CommandError as error:
            if _is_full(error):
                raise
            # The lists are older than what the archive now holds.
            steps.update("fetches apt's package lists")
            names, total = _with_new_lists(packages)
            _download(names, packages, total, steps)
    except CommandError as error:
        if _is_full(error):
            raise
        raise PackageError("the guest's Debian packages could not be fetched (%s): connect this "
                           "machine to the network and start again; it is needed this once"
                           % error) from error


def _with_new_lists(folder):
    _run(_as_root(["apt-get", "update", "-q"]), folder)
    names = [_kernel_package()] + PACKAGES
    return names, _download_size(names, folder)


def _download_size(names, folder):
    """What apt is going to fetch, in bytes: it prints 'ADDRESS' FILE SIZE HASH for each package."""
    listing = _run(["apt-get", "download", "--print-uris", "-qq"] + names, folder)
    return sum(int(size) for size in re.findall(r"^'\S+' \S+ (\d+) ", listing, re.M))


def _size_of(folder):
    """The bytes in a folder, while others write, rename and remove there."""
    size = 0
    for place, _, names in os.walk(folder):
        for name in names:
            with contextlib.suppress(OSError):
                size += os.path.getsize(os.path.join(place, name))
    return size


def _download(names, folder, total, steps):
    def tell():
        steps.update("fetches %d packages, %d of %s"
                     % (len(names), _size_of(folder) // MEGABYTE, megabytes(total)))
    _run(["apt-get", "download", "-q"] + names, folder, tell)


def _as_root(command):
    if os.getuid() == 0:
        return command
    # In the background nobody may ask at the terminal: sudo would be stopped there.
    return ["sudo"] + ([] if os.isatty(0) else ["-n"]) + command


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
    """The kernel as the guest starts it: unpacked once, where a guest would do it at each boot.

    That was two of the five seconds of processor time that an emulated boot took.
    """
    found = glob.glob(os.path.join(tree, "boot/vmlinuz-*"))
    if not found:
        raise PackageError("the kernel package holds no kernel")
    unpacked = os.path.join(tree, "boot", UNPACKED_KERNEL)
    if os.path.exists(unpacked):
        return unpacked
    with open(found[0], "rb") as packed:
        kernel = _unpacked_kernel(packed.read())
    if kernel is None:
        return found[0]
    with cache_advice():
        _write_whole(unpacked, kernel)
    return unpacked


def _write_whole(path, content):
    """Several guests may be started at once: each finds a whole file or none."""
    partial = "%s.%d" % (path, os.getpid())
    try:
        with open(partial, "wb") as out:
            out.write(content)
        os.rename(partial, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.remove(partial)
        raise


def _unpacked_kernel(image):
    """What a kernel's image carries, if it is packed by xz and the emulator can start it."""
    if len(image) < BOOT_HEADER_END or image[BOOT_MAGIC_AT:BOOT_MAGIC_AT + 4] != b"HdrS":
        return None
    offset, length = struct.unpack_from("<II", image, PAYLOAD_AT)
    start = (image[SETUP_SECTORS_AT] + 1) * SECTOR + offset
    try:
        kernel = lzma.LZMADecompressor(lzma.FORMAT_XZ).decompress(image[start:start + length])
    except lzma.LZMAError:
        return None
    entered_directly = any(note in kernel for note in DIRECT_ENTRY_NOTES)
    return kernel if kernel.startswith(b"\x7fELF") and entered_directly else None


def _run(command, folder, tell=None):
    """Runs a program to its end and returns its output; tell is called while it runs."""
    try:
        process = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE, text=True)
    except FileNotFoundError as error:
        raise PackageError("%s is missing: the virtual router needs a Debian PC (amd64)"
                           % command[0]) from error
    with process:
        try:
            while True:
                try:
                    output, errors = process.communicate(timeout=WATCH_STEP_S)
                    break
                except subprocess.TimeoutExpired:
                    if tell:
                        tell()
        except BaseException:
            process.terminate()
            raise
    if process.returncode != 0:
        raise CommandError(_reason(errors) or "%s: status %d" % (command[0], process.returncode))
    return output


def _reason(errors):
    """The line that tells most of what a program had to say, without its mark."""
    lines = [line.strip() for line in errors.splitlines() if line.strip()]
    full = [line for line in lines if "No space left" in line]
    marked = [line for line in lines if line.startswith("E: ")]
    return re.sub(r"^[EWN]: (Failed to fetch \S+\s+)?", "", (full + marked + lines + [""])[0])
