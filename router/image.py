# SPDX-License-Identifier: ISC
"""Builds the guest's initial file system in two layers: the packages, and what this project adds.

The kernel unpacks the two archives one over the other, so that a new build of the daemon costs a
fraction of a second and not the packing of everything.
"""

import contextlib
import errno
import os
import re
import shutil
import stat
import subprocess
import tempfile

from router import feed, packages

HERE = os.path.dirname(os.path.abspath(__file__))
LIBRARY_FOLDERS = ["lib/x86_64-linux-gnu", "usr/lib/x86_64-linux-gnu", "usr/lib"]

# Where each program of the packages goes in the guest.
PACKAGED_PROGRAMS = [
    ("bin/busybox", "bin/busybox"),
    ("bin/dash", "bin/sh"),
    ("usr/sbin/hostapd", "usr/sbin/hostapd"),
    ("usr/sbin/hostapd_cli", "usr/sbin/hostapd_cli"),
    ("sbin/wpa_supplicant", "sbin/wpa_supplicant"),
    ("sbin/wpa_cli", "sbin/wpa_cli"),
    ("sbin/iw", "sbin/iw"),
]

# Without its provider of old ciphers the supplicant's cryptography does not start, unless the
# settings happen to need a hash first.
LEGACY_PROVIDER = "usr/lib/x86_64-linux-gnu/ossl-modules/legacy.so"

# What the project builds, and where each kind of router has it.
BUILT_PROGRAMS = {
    "firmware": [("kelm", "usr/sbin/kelm"), ("kelm-watch", "usr/sbin/kelm-watch"),
                 ("hostlibs/ubusd", "sbin/ubusd"), ("hostlibs/ubus", "bin/ubus")],
    "stock": [("kelm", "usr/lib/router/package/files/usr/sbin/kelm"),
              ("kelm-watch", "usr/sbin/kelm-watch")],
}

# Every Debian has them. busybox's setpriv cannot change the user; OpenWrt's busybox has nice,
# Debian's has not.
HOST_PROGRAMS = ["/usr/bin/setpriv", "/usr/bin/nice"]

# What the two kinds of router share: the way in and out of the guest, and the devices around it.
COMMON_FILES = ["init", "etc/inittab", "lib/functions/router.sh", "usr/lib/router/agent",
                "usr/lib/router/boot", "usr/lib/router/client", "usr/lib/router/root"]

# The stand-ins for OpenWrt's userland, shared with the function tests of the scripts: where each
# is, where the router has it, and its mode.
TESTWORLD = os.path.join(os.path.dirname(HERE), "openwrt/testworld")

# What is installed in the stock router lies here, as a package does before.
PACKAGE = "usr/lib/router/package"
PACKAGE_SCRIPTS = ["postinst", "prerm", "postrm"]

# Debian's busybox prefers its own applets to the PATH when it is the shell; the recording
# commands of the guest live by the PATH, so the shell is another program.
NOT_FROM_BUSYBOX = {"busybox", "sh", "ash", "init", "linuxrc"}


class ImageError(Exception):
    """The image cannot be built from what is there."""


class Archive:
    """A cpio archive in the form the kernel reads, written without needing to be root."""

    def __init__(self, path):
        self._out = open(path, "wb")
        self._inode = 0
        self._folders = set()

    def add_file(self, source, name, mode=None):
        with open(source, "rb") as content:
            data = content.read()
        if mode is None:
            mode = stat.S_IMODE(os.stat(source).st_mode)
        self.add_bytes(name, data, mode)

    def add_bytes(self, name, data, mode):
        self._add_parents(name)
        self._entry(name, stat.S_IFREG | mode, data)

    def add_link(self, name, target):
        self._add_parents(name)
        self._entry(name, stat.S_IFLNK | 0o777, target.encode())

    def add_folder(self, name):
        if not name or name in self._folders:
            return
        self._add_parents(name)
        self._folders.add(name)
        self._entry(name, stat.S_IFDIR | 0o755, b"")

    def add_device(self, name, major, minor):
        self._add_parents(name)
        self._entry(name, stat.S_IFCHR | 0o600, b"", (major, minor))

    def close(self):
        self._entry("TRAILER!!!", 0, b"")
        self._out.close()

    def _add_parents(self, name):
        self.add_folder(os.path.dirname(name))

    def _entry(self, name, mode, data, device=(0, 0)):
        self._inode += 1
        raw_name = name.encode() + b"\0"
        fields = [self._inode, mode, 0, 0, 1, 0, len(data), 0, 0, device[0], device[1],
                  len(raw_name), 0]
        header = b"070701" + b"".join(b"%08X" % field for field in fields)
        self._write_padded(header + raw_name)
        self._write_padded(data)

    def _write_padded(self, data):
        self._out.write(data + b"\0" * (-len(data) % 4))


@contextlib.contextmanager
def built(build_folder, out_folder, steps, face="firmware"):
    """Builds the image of a face, a kind of router: "firmware", a maker's, or "stock".

    Gives (kernel file, initial file system), gone again afterwards.
    """
    _check_built(build_folder, face)
    with contextlib.ExitStack() as stack:
        with _folder_advice(out_folder):
            os.makedirs(out_folder, exist_ok=True)
            work = stack.enter_context(
                tempfile.TemporaryDirectory(dir=out_folder, prefix="image-"))
        tree = packages.unpacked_tree(steps)
        steps.begin("packs the image of the guest: the packages' programs and this build of kelm")
        with packages.cache_advice():
            base = _base_layer(tree)
        image = os.path.join(work, "initrd")
        with _folder_advice(out_folder):
            project = os.path.join(work, "project.cpio")
            _project_layer(tree, build_folder, project, face)
            with open(image, "wb") as out:
                for layer in (base, project):
                    with open(layer, "rb") as content:
                        shutil.copyfileobj(content, out)
        steps.done("the image of the guest is packed, %s"
                   % packages.megabytes(os.path.getsize(image)))
        yield packages.kernel_image(tree), image


@contextlib.contextmanager
def _folder_advice(folder):
    """Tells what a person can do when a run's own folder takes no files."""
    try:
        yield
    except OSError as error:
        full = error.errno in (errno.ENOSPC, errno.EDQUOT)
        cure = "free some space there" if full else "work in a checkout that you can write to"
        raise ImageError("the image and the logs cannot be written to %s (%s): %s, or name another "
                         "build folder, for example with KELM_BUILD=/var/tmp/kelm-build"
                         % (folder, error.strerror, cure)) from error


def _check_built(build_folder, face):
    needed = [source for source, _ in BUILT_PROGRAMS["firmware"]]
    if face == "stock":
        needed += [name for where, name, _, _ in _testworld() if where == "build"]
    for source in needed:
        program = os.path.join(build_folder, source)
        if not os.path.exists(program):
            raise ImageError("%s is not built: script/demo builds it and starts this" % program)


def _base_layer(tree):
    """Packs the packages; kept beside them, for it changes only with them."""
    path = os.path.join(tree, "base.cpio")
    newest_source = max(os.path.getmtime(os.path.join(tree, "complete")),
                        os.path.getmtime(__file__))
    if os.path.exists(path) and os.path.getmtime(path) > newest_source:
        return path
    partial = "%s.%d" % (path, os.getpid())
    try:
        _pack_base(tree, partial)
        os.rename(partial, path)
    except BaseException:
        with contextlib.suppress(OSError):
            os.remove(partial)
        raise
    return path


def _pack_base(tree, path):
    archive = Archive(path)
    for folder in ("dev", "proc", "sys", "tmp", "run", "root", "lib/firmware"):
        archive.add_folder(folder)
    # Until the device file system is mounted the first process has no other terminal.
    archive.add_device("dev/console", 5, 1)
    _add_packaged_programs(archive, tree)
    _add_applets(archive, tree)
    _add_modules(archive, tree)
    archive.add_file(os.path.join(tree, LEGACY_PROVIDER), LEGACY_PROVIDER, 0o644)
    for name in ("regulatory.db", "regulatory.db.p7s"):
        archive.add_file(_regulatory_file(tree, name), "lib/firmware/" + name)
    archive.close()


def _add_packaged_programs(archive, tree):
    libraries = set()
    for source, name in PACKAGED_PROGRAMS:
        program = os.path.join(tree, source)
        archive.add_file(program, name, 0o755)
        libraries |= _libraries_of(program, tree)
    _add_libraries(archive, libraries)


def _add_applets(archive, tree):
    busybox = os.path.join(tree, "bin/busybox")
    applets = subprocess.run([busybox, "--list"], stdout=subprocess.PIPE, text=True, check=True)
    for applet in applets.stdout.split():
        if applet not in NOT_FROM_BUSYBOX:
            archive.add_link("bin/" + applet, "busybox")


def _add_modules(archive, tree):
    names = []
    for path in packages.module_files(tree):
        names.append(os.path.basename(path))
        archive.add_file(path, "lib/modules/" + names[-1], 0o644)
    archive.add_bytes("lib/modules/order", ("\n".join(names) + "\n").encode(), 0o644)


def _regulatory_file(tree, name):
    # The package keeps its own and the maker's signed copy side by side.
    for suffix in ("-debian", ""):
        path = os.path.join(tree, "lib/firmware", name + suffix)
        if os.path.exists(path):
            return path
    raise ImageError("wireless-regdb holds no %s" % name)


def _libraries_of(program, tree):
    """Returns the libraries that a program needs, as files; those of the packages come first."""
    folders = ":".join(os.path.join(tree, folder) for folder in LIBRARY_FOLDERS)
    listing = subprocess.run(["ldd", program], stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             env=dict(os.environ, LD_LIBRARY_PATH=folders), text=True,
                             check=False).stdout
    missing = re.findall(r"(\S+) => not found", listing)
    if missing:
        raise ImageError("%s needs %s" % (program, ", ".join(missing)))
    return set(re.findall(r"(/\S+) \(0x", listing))


def _add_libraries(archive, libraries):
    for path in sorted(libraries):
        name = os.path.basename(path)
        folder = "lib64" if name.startswith("ld-linux") else "lib/x86_64-linux-gnu"
        archive.add_file(path, os.path.join(folder, name), 0o755)


def _project_layer(tree, build_folder, path, face):
    archive = Archive(path)
    archive.add_link("var", "tmp")
    libraries = set()
    for source, name in BUILT_PROGRAMS[face]:
        program = os.path.join(build_folder, source)
        archive.add_file(program, name, 0o755)
        libraries |= _libraries_of(program, tree)
    for program in HOST_PROGRAMS:
        archive.add_file(program, program[1:], 0o755)
        libraries |= _libraries_of(program, tree)
    _add_libraries(archive, libraries)
    archive.add_file(_starter(os.path.dirname(path)), "usr/lib/router/starter", 0o755)
    FACES[face](archive, tree, build_folder)
    archive.close()


def _add_firmware(archive, _tree, _build_folder):
    _add_files(archive, os.path.join(HERE, "guest"))


def _add_stock(archive, tree, build_folder):
    archive.add_link("bin/sh", "busybox")
    _add_files(archive, os.path.join(HERE, "guest"), COMMON_FILES)
    _add_testworld(archive, tree, build_folder)
    _add_files(archive, os.path.join(HERE, "stock"))
    _add_package(archive)


def _testworld():
    """The rows of the table: "build", "tree" or "link", what, the place on the router, the mode."""
    with open(os.path.join(TESTWORLD, "files.txt"), encoding="utf-8") as table:
        rows = [line.strip().split(" | ") for line in table if not line.startswith("#")]
    return [tuple(source.split(":", 1)) + (path.lstrip("/"), int(mode, 8))
            for source, path, mode in rows]


def _add_testworld(archive, tree, build_folder):
    folders = {"build": build_folder, "tree": os.path.join(TESTWORLD, "files")}
    libraries = set()
    for where, name, path, mode in _testworld():
        if where == "link":
            archive.add_link(path, name)
            continue
        file = os.path.join(folders[where], name)
        archive.add_file(file, path, mode)
        if where == "build":
            libraries |= _libraries_of(file, tree)
    _add_libraries(archive, libraries)


def _add_package(archive):
    for package in ("kelm-doctor", "kelm-stock"):
        for source, path, mode in feed.installed_files(package):
            archive.add_file(source, PACKAGE + "/files" + path, mode)
    for name in PACKAGE_SCRIPTS:
        text = feed.script("kelm-stock", name)
        archive.add_bytes(os.path.join(PACKAGE, name), text.encode(), 0o755)
    archive.add_bytes(os.path.join(PACKAGE, "conffiles"),
                      "".join(path + "\n" for path in feed.conffiles("kelm-stock")).encode(), 0o644)


FACES = {"firmware": _add_firmware, "stock": _add_stock}


def _add_files(archive, top, wanted=None):
    """Adds the files of a folder as they lie there, or those that are wanted."""
    for folder, _, names in sorted(os.walk(top)):
        for name in sorted(names):
            source = os.path.join(folder, name)
            inside = os.path.relpath(source, top)
            if wanted is not None and inside not in wanted:
                continue
            if os.path.islink(source):
                archive.add_link(inside, os.readlink(source))
            else:
                archive.add_file(source, inside)


def _starter(out_folder):
    program = os.path.join(out_folder, "starter")
    compiler = os.environ.get("CC") or "gcc"
    command = [compiler, "-static", "-Os", "-Wall", "-Wextra", "-o", program,
               os.path.join(HERE, "starter.c")]
    try:
        subprocess.run(command, check=True)
    except (OSError, subprocess.CalledProcessError) as error:
        raise ImageError("cannot build the guest's starter: %s" % error) from error
    return program
