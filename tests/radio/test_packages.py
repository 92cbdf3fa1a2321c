# SPDX-License-Identifier: ISC
"""Fetching the guest's packages: how far it is, and what to do when it cannot be done."""

import errno
import io
import os
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
