# SPDX-License-Identifier: ISC
"""Fetching the guest's packages: how far it is, and what to do when it cannot be done."""

import errno
import io
import lzma
import os
import struct
import subprocess
import sys

import pytest

from router import image, packages, screen

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
KERNEL = "linux-image-6.1.0-1-amd64"

# An apt of our own: FAILS names what it cannot do.
APT_GET = r"""#!/bin/sh
echo "$*" >>"$CALLS"
case "$1 ${2:-}" in
*"$FAILS"*) [ -n "$FAILS" ] && { echo "W: a warning" >&2; echo "$SAYS" >&2; exit 100; } ;;
esac
case "$*" in
*--print-uris*)
    echo "'http://a/x' x_1_amd64.deb 1500000 SHA256:00"
    echo "'http://a/y' y_1_amd64.deb 500000 SHA256:00"
    ;;
"download "*)
    printf 'not much' >x_1_amd64.deb
    printf 'less' >y_1_amd64.deb
    ;;
esac
"""
APT_CACHE = """#!/bin/sh
echo "linux-image-amd64"
echo "  Depends: %s"
""" % KERNEL
# The unpacked packages have no more than what is looked for afterwards.
DPKG_DEB = r"""#!/bin/sh
folder=$3/lib/modules/1/kernel
mkdir -p "$folder"
for name in %s; do printf '\177\000depends=\000' >"$folder/$name.ko"; done
""" % " ".join(packages.MODULES)


@pytest.fixture
def machine(tmp_path, monkeypatch):
    """A machine with these programs, a cache of its own, and what apt was asked."""
    programs = tmp_path / "bin"
    programs.mkdir()
    for name, text in (("apt-get", APT_GET), ("apt-cache", APT_CACHE), ("dpkg-deb", DPKG_DEB),
                       ("sudo", '#!/bin/sh\n[ "$1" != -n ] || shift\nexec "$@"\n')):
        (programs / name).write_text(text)
        (programs / name).chmod(0o755)
    calls = tmp_path / "calls"
    calls.write_text("")
    monkeypatch.setenv("PATH", "%s:/usr/bin:/bin" % programs)
    monkeypatch.setenv("XDG_CACHE_HOME", str(tmp_path / "cache"))
    monkeypatch.setenv("CALLS", str(calls))
    monkeypatch.setenv("FAILS", "")
    return tmp_path


def fetched():
    """What is said in a pipe while the packages come."""
    out = io.StringIO()
    packages.unpacked_tree(screen.Steps(screen.Screen(out, {}), 3))
    return out.getvalue().splitlines()


def trouble():
    with pytest.raises(packages.PackageError) as caught:
        packages.unpacked_tree(screen.NoSteps())
    assert "\n" not in str(caught.value)
    return str(caught.value)


def test_packages_are_fetched_once_and_their_size_is_told(machine):
    folder = machine / "cache/kelm/router"
    assert fetched() == ["step 1 of 3: fetches 22 packages, 2 MB (once; kept in %s)" % folder]
    asked = (machine / "calls").read_text()
    assert "download -q %s busybox-static" % KERNEL in asked
    assert "update" not in asked
    assert fetched() == ["step 1 of 3: the guest's packages are there, 0 MB (%s)" % folder]
    assert (machine / "calls").read_text() == asked


def test_lists_are_fetched_when_apt_does_not_know_the_packages(machine, monkeypatch):
    # The list knows the packages' sizes only after the update.
    monkeypatch.setenv("FAILS", "download --print-uris")
    monkeypatch.setenv("SAYS", "E: No packages found")
    text = (machine / "bin/apt-get").read_text()
    (machine / "bin/apt-get").write_text(text.replace(
        'case "$1 ', 'grep -q ^update "$CALLS" && FAILS=\ncase "$1 ', 1))
    assert fetched() == ["step 1 of 3: fetches apt's package lists and 22 packages (once; kept in "
                         "%s)" % (machine / "cache/kelm/router")]


APT_CACHE_WITHOUT_LISTS = "#!/bin/sh\necho 'E: No packages found' >&2\nexit 1\n"


@pytest.mark.parametrize("apt_cache, fails, says, reason", [
    (APT_CACHE, "download -q", "E: Failed to fetch http://a/x  Temporary failure resolving 'a'",
     "Temporary failure resolving 'a'"),
    (APT_CACHE_WITHOUT_LISTS, "update", "E: Could not resolve 'a'", "Could not resolve 'a'"),
    (APT_CACHE_WITHOUT_LISTS, "update", "Err:1 http://a", "a warning"),
])
def test_no_network_is_a_sentence_with_advice(
        machine, monkeypatch, apt_cache, fails, says, reason):
    (machine / "bin/apt-cache").write_text(apt_cache)
    monkeypatch.setenv("FAILS", fails)
    monkeypatch.setenv("SAYS", says)
    assert trouble() == (
        "the guest's Debian packages could not be fetched (%s): connect this machine to the "
        "network and start again; it is needed this once" % reason)


def test_a_machine_without_apt_is_told_what_is_needed(machine, monkeypatch):
    monkeypatch.setenv("PATH", str(machine))
    assert trouble() == "apt-cache is missing: the virtual router needs a Debian PC (amd64)"


@pytest.mark.parametrize("place, reason", [
    ("/proc/nope", "No such file or directory"), ("/dev/null", "Not a directory")])
def test_cache_that_cannot_be_made_is_a_sentence_with_advice(machine, monkeypatch, place, reason):
    monkeypatch.setenv("XDG_CACHE_HOME", place)
    assert trouble() == (
        "the guest's packages cannot be kept in %s/kelm/router (%s): name another folder, for "
        "example with XDG_CACHE_HOME=/var/tmp/kelm-cache" % (place, reason))


@pytest.mark.parametrize("program, says", [
    ("apt-get", "E: Write error - write (28: No space left on device)"),
    ("dpkg-deb", "dpkg-deb: error: cannot copy: No space left on device"),
])
def test_full_disk_is_a_sentence_with_advice(machine, program, says):
    path = machine / "bin" / program
    path.write_text('#!/bin/sh\ncase "$*" in *print-uris*) exit 0 ;; esac\necho "W: so" >&2\n'
                    "echo '%s' >&2\nexit 2\n" % says if program == "dpkg-deb" else
                    path.read_text().replace("    printf 'not", "    echo '%s' >&2; exit 100\n"
                                             "    printf 'not" % says))
    assert trouble() == (
        "the guest's packages cannot be kept in %s (No space left on device): free 600 MB there, "
        "or name another folder, for example with XDG_CACHE_HOME=/var/tmp/kelm-cache"
        % (machine / "cache/kelm/router"))


@pytest.mark.parametrize("number", [errno.ENOSPC, errno.EDQUOT])
def test_full_disk_is_told_of_this_program_too(machine, monkeypatch, number):
    def fail(*_, **__):
        raise OSError(number, "it is full")
    monkeypatch.setattr(packages.os, "makedirs", fail)
    assert "(it is full): free 600 MB there, or name another folder" in trouble()


def built_programs(folder):
    for source, _ in image.BUILT_PROGRAMS["firmware"]:
        path = folder / source
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text("")
    return str(folder)


def test_folder_that_takes_no_logs_is_a_sentence_with_advice(tmp_path):
    build = built_programs(tmp_path)
    (tmp_path / "router").write_text("in the way")
    folder = os.path.join(build, "router", "x")
    with pytest.raises(image.ImageError) as caught:
        with image.built(build, folder, screen.NoSteps()):
            pass
    assert str(caught.value) == (
        "the image and the logs cannot be written to %s (Not a directory): work in a checkout that "
        "you can write to, or name another build folder, for example with "
        "KELM_BUILD=/var/tmp/kelm-build" % folder)


def test_demonstration_tells_it_in_one_line(tmp_path):
    build = built_programs(tmp_path)
    (tmp_path / "qemu-system-x86_64").write_text("#!/bin/sh\n")
    (tmp_path / "qemu-system-x86_64").chmod(0o755)
    done = subprocess.run(
        [sys.executable, os.path.join(TOP, "router/demo.py"), "--build", build],
        env={"PATH": "%s:/usr/bin:/bin" % tmp_path, "XDG_CACHE_HOME": "/proc/nope"},
        stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)
    assert done.returncode == 1
    assert done.stderr.splitlines() == [
        "script/demo: the guest's packages cannot be kept in /proc/nope/kelm/router (No such file "
        "or directory): name another folder, for example with XDG_CACHE_HOME=/var/tmp/kelm-cache."]


ENTRY_NOTE = struct.pack("<III4sQ", 4, 8, 18, b"Xen\0", 0x1000000)
KERNEL_TEXT = b"\x7fELF" + bytes(1000) + ENTRY_NOTE + bytes(1000)


def wrapped(payload, magic=b"HdrS"):
    """An image as the boot protocol has it: set-up, the unpacker, what it unpacks."""
    header = bytearray(1024)
    header[0x1f1] = 1
    header[0x202:0x206] = magic
    header[0x248:0x250] = struct.pack("<II", 300, len(payload))
    return bytes(header) + bytes(300) + payload + b"what follows"


@pytest.fixture
def tree(tmp_path):
    (tmp_path / "boot").mkdir()
    return tmp_path


def test_the_guest_starts_an_unpacked_kernel(tree):
    packed = tree / "boot/vmlinuz-6.1.0-1-amd64"
    packed.write_bytes(wrapped(lzma.compress(KERNEL_TEXT) + b"size"))
    for _ in range(2):
        found = packages.kernel_image(str(tree))
        assert found == str(tree / "boot/vmlinux")
        with open(found, "rb") as kernel:
            assert kernel.read() == KERNEL_TEXT
        # Once: afterwards the packed one is not read.
        packed.write_bytes(b"")
    assert sorted(os.listdir(tree / "boot")) == ["vmlinux", "vmlinuz-6.1.0-1-amd64"]


@pytest.mark.parametrize("content", [
    b"", b"short", bytes(4000),
    wrapped(lzma.compress(KERNEL_TEXT), magic=b"None"),
    wrapped(b"\x1f\x8b another packer"),
    wrapped(lzma.compress(KERNEL_TEXT)[:40]),
    wrapped(lzma.compress(KERNEL_TEXT.replace(b"Xen", b"xen"))),
    wrapped(lzma.compress(KERNEL_TEXT.replace(b"ELF", b"elf"))),
], ids=["empty", "short", "zeros", "no header", "another packer", "half of it", "no direct entry",
        "no program"])
def test_a_kernel_that_cannot_be_unpacked_here_unpacks_itself(tree, content):
    packed = tree / "boot/vmlinuz-6.1.0-1-amd64"
    packed.write_bytes(content)
    assert packages.kernel_image(str(tree)) == str(packed)
    assert os.listdir(tree / "boot") == [packed.name]


def test_a_full_disk_under_the_unpacked_kernel_is_told(tree, monkeypatch):
    (tree / "boot/vmlinuz-1").write_bytes(wrapped(lzma.compress(KERNEL_TEXT)))

    def fail(*_):
        raise OSError(errno.ENOSPC, os.strerror(errno.ENOSPC))
    monkeypatch.setattr(packages.os, "rename", fail)
    with pytest.raises(packages.PackageError, match="free 600 MB there"):
        packages.kernel_image(str(tree))
    assert os.listdir(tree / "boot") == ["vmlinuz-1"]
