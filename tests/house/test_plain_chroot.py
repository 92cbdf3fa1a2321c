#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""The tests' world in a plain chroot, whose root is no mount point, and where none can mount."""
import os
import subprocess
from pathlib import Path

ROOT = Path(__file__).resolve().parents[2]
HANGS_S = 60

# A root folder on a mount whose changes show up in another place, "outside".
PLAIN_CHROOT = """
set -eu
mount --make-rprivate /
cd "$2"
mkdir outer outside
mount -t tmpfs none outer
mount --make-shared outer
mount --bind outer outside
mkdir -p outer/root/var outer/root/tree outer/root/mnt outer/root/tmp outer/root/run
ln -s /run outer/root/var/run
for name in bin lib lib64 sbin usr etc dev proc; do
    if [ -L "/$name" ]; then
        cp -P "/$name" outer/root
    elif [ -d "/$name" ]; then
        mkdir "outer/root/$name"
        mount --rbind "/$name" "outer/root/$name"
    fi
done
mount --rbind "$1" outer/root/tree
before=$(cat /proc/self/mounts)
chroot outer/root /usr/bin/python3 /tree/tests/world/try_world.py
[ "$before" = "$(cat /proc/self/mounts)" ] || echo "mounts are left outside"
umount -l outer/root/proc
chroot outer/root /usr/bin/python3 /tree/tests/world/try_world.py || echo "status $?"
"""


def is_plain_chroot():
    mounts = Path("/proc/self/mountinfo").read_text(encoding="utf-8").splitlines()
    return "/" not in [line.split()[4] for line in mounts]


def test_the_tests_world_can_be_built_in_a_plain_chroot(tmp_path):
    user = [] if os.geteuid() == 0 else ["--map-root-user"]
    command = ["unshare", "--mount", "--propagation", "unchanged", *user,
               "sh", "-c", PLAIN_CHROOT, "sh", ROOT, tmp_path]
    said = "the tests need /proc; mount it: mount -t proc proc /proc\nstatus 1\n"
    if is_plain_chroot():  # which this is about: there is no need to make one
        command, said = ["/usr/bin/python3", ROOT / "tests/world/try_world.py"], ""
    done = subprocess.run(command, capture_output=True, text=True, timeout=HANGS_S, check=False)
    assert (done.returncode, done.stdout, done.stderr) == (0, said, "")


def test_where_mounts_are_forbidden_the_reason_and_the_cure_are_one_line():
    """Root without rights, as in a container, or a user in a name space that maps nobody."""
    powerless = ["setpriv", "--bounding-set=-all", "--inh-caps=-all"] if os.geteuid() == 0 else []
    # A plain chroot lets nobody have a name space of users.
    nobody = [] if is_plain_chroot() else ["unshare", "--user"]
    done = subprocess.run(
        [*powerless, *nobody, "/usr/bin/python3", ROOT / "tests/world/try_world.py"],
        capture_output=True, text=True, timeout=HANGS_S, check=False)
    assert (done.returncode, done.stderr) == (1, "")
    assert done.stdout.startswith("the tests need mounts of their own, and cannot have them here (")
    assert done.stdout.count("\n") == 1
