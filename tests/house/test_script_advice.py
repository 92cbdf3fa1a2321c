#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""What a newcomer meets: the scripts' help, and one sentence where the system lacks something."""
import os
import pty
import shutil
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
HANGS_S = 60
SCRIPTS = sorted(path.name for path in (ROOT / "script").iterdir() if path.is_file())
# What every Debian has; neither a packager nor a compiler nor Python is among it.
TOOLS = ("sh", "bash", "env", "readlink", "realpath", "dirname", "sed", "awk", "id", "mktemp",
         "rm", "mkdir", "cut", "getent", "df", "grep", "tr", "cat", "head", "tail", "date", "sleep",
         "kill", "true", "sort", "flock", "nproc")
INSTALLS = "echo ran >>\"$RAN\"; exit 7"
BUILD_NOTHING = ("bootstrap", "report")
ARGUMENTS = {"fuzz": ["--replay"], "cross": ["mips", "build"], "lint": ["shell"], "test": ["unit"]}

APT_UPDATE_WITHOUT_NETWORK = """
cat <<'END'
Err:1 http://mirror.example/debian bookworm InRelease
  Temporary failure resolving 'mirror.example'
W: Failed to fetch http://mirror.example/InRelease  Temporary failure resolving 'mirror.example'
W: Some index files failed to download. They have been ignored, or old ones used instead.
END
exit 0"""
APT_PLAN = """
cat <<'END'
The following NEW packages will be installed:
  cmake cmake-data
0 upgraded, 12 newly installed, 0 to remove and 3 not upgraded.
Need to get 1,500 kB/12.3 MB of archives.
After this operation, 480 MB of additional disk space will be used.
Do you want to continue? [Y/n] N
Abort.
END
exit 1"""
APT_INSTALL = """
echo dlstatus:1:9.5:Retrieving file 1 of 2
echo dlstatus:2:100.0:Retrieving file 2 of 2
echo Selecting previously unselected package cmake.
echo pmstatus:cmake-data:25.5:Unpacking cmake-data
echo pmstatus:cmake:100:Installed cmake"""


def fails(text):
    """What apt does when it gives up."""
    return f'echo "{text}"; exit 100'


def apt(update="", plan=APT_PLAN, install=APT_INSTALL):
    """A program that behaves so in each of its three uses, and notes them."""
    return (f'echo "apt-get $*" >>"$RAN"\ncase "$*" in\n*" update"*) {update}\n;;\n'
            f'*--assume-no*) {plan}\n;;\n*) {install}\n;;\nesac')


@pytest.fixture(name="tree")
def small_tree(tmp_path):
    """The scripts in a tree of their own, and a folder of programs that is the whole PATH."""
    tree = tmp_path / "tree"
    shutil.copytree(ROOT / "script", tree / "script")
    for name in ("tests/suites.sh", "tests/end_marked", "tests/summary.py",
                 "tests/fuzz/targets.txt"):
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(ROOT / name, tree / name)
    (tree / "bin").mkdir()
    for name in TOOLS:
        (tree / "bin" / name).symlink_to(shutil.which(name))
    program(tree / "bin/df", "echo head; echo /dev/sda 9 9 9999999 9% /")
    return tree


def program(path, text):
    path.unlink(missing_ok=True)
    path.write_text(f"#!/bin/bash\n{text}\n", encoding="utf-8")
    path.chmod(0o755)


def start(tree, words, environment, **more):
    own = {"PATH": str(tree / "bin"), "HOME": tree.parent, "RAN": tree.parent / "ran"}
    return subprocess.run(words, cwd=tree.parent, env={**own, **environment}, text=True,
                          timeout=HANGS_S, check=False, **more)


def run(tree, *words, **environment):
    """(status, output, errors)"""
    done = start(tree, words, environment, capture_output=True)
    return done.returncode, done.stdout, done.stderr


def ran(tree):
    path = tree.parent / "ran"
    return path.read_text(encoding="utf-8") if path.exists() else ""


def without_python(tree):
    for script in SCRIPTS:
        path = tree / "script" / script
        text = path.read_text(encoding="utf-8").replace("/usr/bin/python3", "/nowhere/python3")
        path.write_text(text, encoding="utf-8")


def in_a_shell(tree, text, shell=("sh", "-euc"), **environment):
    """Shell text that has the functions of advice.sh."""
    return run(tree, *shell,
               f"self='{tree}/script/any'; . '{tree}/script/lib/advice.sh'; {text}", **environment)


@pytest.mark.parametrize("script", SCRIPTS)
@pytest.mark.parametrize("word", ["--help", "-h"])
def test_help_is_printed_and_nothing_installed(tree, script, word):
    without_python(tree)
    if script != "bootstrap":
        program(tree / "script/bootstrap", INSTALLS)
    status, output, errors = run(tree, tree / "script" / script, word)
    assert (status, errors, ran(tree)) == (0, "", "")
    assert f"\nusage: script/{script}" in output
    assert "#" not in output and "set -" not in output and "SPDX" not in output


@pytest.mark.parametrize("script", SCRIPTS)
def test_a_script_can_be_called_through_a_link(tree, script):
    without_python(tree)
    link = tree.parent / "my-link"
    link.symlink_to(tree / "script" / script)
    assert run(tree, link, "--help") == run(tree, tree / "script" / script, "--help")
    if script != "bootstrap":
        program(tree / "script/bootstrap", INSTALLS)
        assert run(tree, link, *ARGUMENTS.get(script, []))[0] == 7
        assert ran(tree) == "ran\n"


@pytest.mark.parametrize("words, said", [
    (["bench", "--fast"], "unknown option '--fast'"),
    (["bootstrap", "-q"], "unknown option '-q'"),
    (["coverage", "all"], "unknown argument 'all'"),
    (["cross"], "it takes a target and what to do"),
    (["cross", "mips"], "it takes a target and what to do"),
    (["cross", "vax", "test"], "no target 'vax'; there are: armhf s390x mips musl"),
    (["cross", "mips", "eat"], "no 'eat'; there are: build test"),
    (["cross", "mips", "test", "--results"], "--results takes a folder"),
    (["cross", "mips", "test", "fast"], "unknown argument 'fast'"),
    (["fuzz"], "it takes a target"),
    (["fuzz", "--all"], "unknown option '--all'"),
    (["fuzz", "pin"], "no target 'pin'; there are: "),
    (["fuzz", "hex"], "hex takes seconds or files"),
    (["fuzz", "--minimize", "hex"], "--minimize takes a target and a folder"),
    (["fuzz", "--replay", "many"], "unknown argument 'many'"),
    (["fuzz", "--replay", "--junitxml"], "--junitxml takes a file"),
    (["lint", "rust"], "no tool 'rust'; there are: format shell openwrt python cppcheck tidy"),
    (["steady", "--runs"], "'--runs' is unknown or lacks its value"),
    (["steady", "--walks", "2"], "unknown option '--walks'"),
    (["steady", "--runs", "two"], "'two' is no number"),
    (["steady", "--builds", "big"], "no build 'big'; there are: release asan tsan"),
    (["test", "flint"], "no stage 'flint'; there are: house lint "),
])
def test_a_wrong_call_is_one_line_and_status_2(tree, words, said):
    if words[0] != "bootstrap":
        program(tree / "script/bootstrap", INSTALLS)
    status, output, errors = run(tree, tree / "script" / words[0], *words[1:])
    assert (status, output, ran(tree)) == (2, "", "")
    assert errors.startswith(f"script/{words[0]}: {said}") and errors.count("\n") == 1
    assert errors.endswith(f"; see script/{words[0]} --help\n")


def test_the_list_needs_python_and_says_so(tree):
    without_python(tree)
    program(tree / "script/bootstrap", INSTALLS)
    assert run(tree, tree / "script/demo", "--list") == (
        1, "", "script/demo: /nowhere/python3 is missing, which reads the list: "
               "apt-get install python3\n")
    assert ran(tree) == ""


NO_DEBIAN = ("this is no Debian, apt-get or dpkg-query is missing; run it in one:\n"
             "    docker run -it -v '{tree}':/kelm -w /kelm debian:12 script/bootstrap")
UNKNOWN = "E: Unable to locate package cmake"
OLD = "E: Failed to fetch http://a/b.deb  404  Not Found [IP: 1.2.3.4 80]"
EARLY = "E: Release file for http://a/InRelease is not valid yet (invalid for another 3d)"
OTHER_WARNING = "W: A key is in an old place"
LOCKED = "E: Could not get lock /var/lib/dpkg/lock-frontend. It is held by process 7 (apt-get)"


@pytest.mark.parametrize("programs, said", [
    ({"dpkg-query": None}, NO_DEBIAN),
    ({"apt-get": None}, NO_DEBIAN),
    ({"id": "echo 1000"},
     "these packages are missing, and there is no sudo to install them; "
     "run as root: apt-get update && apt-get install --no-install-recommends cmake make"),
    ({"id": "echo 1000", "sudo": "exit 1"},
     "these packages are missing, and sudo does not let you install them; "
     "run as root: apt-get update && apt-get install --no-install-recommends cmake make"),
    ({"apt-get": apt(update=APT_UPDATE_WITHOUT_NETWORK, plan=fails(UNKNOWN))},
     "Temporary failure resolving 'mirror.example'; "
     "check the network; behind a proxy set http_proxy, then run it again"),
    ({"apt-get": apt(plan=fails(UNKNOWN))},
     "Unable to locate package cmake; "
     "check that the network works and /etc/apt names Debian's 'main', then run it again"),
    ({"apt-get": apt(install=fails(OLD))},
     "404  Not Found [IP: 1.2.3.4 80]; check what /etc/apt names, then run it again"),
    ({"apt-get": apt(update=f'echo "{OTHER_WARNING}"', plan=fails(UNKNOWN))},
     "Unable to locate package cmake; "
     "check that the network works and /etc/apt names Debian's 'main', then run it again"),
    ({"apt-get": apt(update=fails(EARLY), plan="exit 100")},
     "Release file for http://a/InRelease is not valid yet (invalid for another 3d); "
     "check the clock of this machine, then run it again"),
    ({"apt-get": apt(install=fails(LOCKED))},
     "Could not get lock /var/lib/dpkg/lock-frontend. It is held by process 7 (apt-get); "
     "wait until the other apt or dpkg has ended, then run it again"),
    ({"df": "echo head; echo /dev/sda 9 9 204800 9% /"},
     "482 MB are needed in /usr, and 200 MB are free there; make room"),
], ids=["no dpkg-query", "no apt-get", "no sudo", "no right to it", "no network",
        "no such package", "old lists", "a warning before the error", "a wrong clock",
        "another apt", "no room"])
def test_bootstrap_that_cannot_install_says_why_in_a_sentence(tree, programs, said):
    usual = {"apt-get": apt(), "dpkg-query": "exit 1", "id": "echo 0"}
    for name, text in {**usual, **programs}.items():
        if text is not None:
            program(tree / "bin" / name, text)
    status, _, errors = run(tree, tree / "script/bootstrap", "cmake", "make")
    assert status == 1
    lines = [line for line in errors.splitlines(True) if "going on" not in line]
    assert "".join(lines) == f"script/bootstrap: {said.format(tree=tree)}\n"


def test_bootstrap_shows_the_last_words_of_an_apt_that_it_does_not_know(tree):
    program(tree / "bin/apt-get", apt(install="echo broken hook;" + fails("E: It failed")))
    program(tree / "bin/dpkg-query", "exit 1")
    program(tree / "bin/id", "echo 0")
    status, _, errors = run(tree, tree / "script/bootstrap", "cmake")
    assert status == 1
    assert "broken hook\n" in errors
    assert errors.endswith(
        "script/bootstrap: It failed; see its last lines above, then run it again\n")


def test_bootstrap_says_how_much_comes_before_it_begins(tree):
    program(tree / "bin/apt-get", apt())
    program(tree / "bin/dpkg-query", '[ "${@: -1}" = make ] && printf installed')
    program(tree / "bin/id", "echo 1000")
    program(tree / "bin/sudo", 'echo sudo >>"$RAN"; [ "$1" = -n ] && shift; exec "$@"')
    status, output, _ = run(tree, tree / "script/bootstrap", "cmake", "make", "git")
    assert status == 0
    assert output.splitlines() == [
        "Reading the lists of packages",
        "Installing: cmake git",
        "with what they need, 12 packages: 2 MB to download, 480 MB on the disk; "
        "this takes a while",
        "  downloading: 9 %", "  downloading: 100 %", "  installing: 25 %", "  installing: 100 %"]
    apt_get = "apt-get -q -o APT::Status-Fd=1"
    assert ran(tree).splitlines() == [
        "sudo", "sudo", f"{apt_get} update",
        "sudo", f"{apt_get} install --assume-no --no-install-recommends cmake git",
        "sudo", f"{apt_get} install -y --no-install-recommends cmake git"]


def test_bootstrap_asks_nothing_of_apt_when_nothing_is_missing(tree):
    program(tree / "bin/apt-get", apt())
    program(tree / "bin/dpkg-query", "printf installed")
    assert run(tree, tree / "script/bootstrap") == (0, "", "")
    assert ran(tree) == ""


@pytest.mark.parametrize("script, interrupted", [("bootstrap", "apt-get"), ("demo", "cmake")])
def test_an_interrupt_leaves_no_temporary_file(tree, script, interrupted):
    """It goes to the whole group, as from a terminal, while a program runs for the script."""
    if script == "demo":
        program(tree / "script/bootstrap", "")
        (tree / "router").mkdir()
        (tree / "router/demo.py").touch()
    program(tree / "bin/dpkg-query", "exit 1")
    program(tree / "bin/id", "echo 0")
    program(tree / "bin" / interrupted, 'echo "$TMPDIR"/* >>"$RAN"; kill -INT 0; sleep 60')
    temporary = tree.parent / "temporary"
    temporary.mkdir()
    # Where the tests run in the background they are deaf to an interrupt, and hand that down.
    words = ["env", "--default-signal=INT", tree / "script" / script]
    done = start(tree, words, {"TMPDIR": temporary}, capture_output=True, start_new_session=True)
    assert (done.returncode, done.stderr) == (130, "")
    assert ran(tree).startswith(f"{temporary}/tmp.")
    assert not list(temporary.iterdir())


def test_on_a_terminal_one_line_moves(tree):
    ours, theirs = pty.openpty()
    text = (f". '{tree}/script/lib/progress.sh'; "
            f"with_progress built '{tree}/log' printf '%s\\n' '[  5%] a' '[2/4] b'")
    done = start(tree, ["sh", "-euc", text], {}, stdout=theirs)
    os.close(theirs)
    seen = os.read(ours, 4096).decode()
    os.close(ours)
    assert done.returncode == 0
    parts = [part.strip() for part in seen.split("\r")]
    assert parts == ["", "built: 5 %", "built: 50 %", ""]
    assert seen.endswith("\n") and seen.count("\n") == 1
    assert (tree / "log").read_text(encoding="utf-8") == "[  5%] a\n[2/4] b\n"


def test_the_status_of_a_command_with_progress_is_its_own(tree):
    text = (f". '{tree}/script/lib/progress.sh'; "
            f"with_progress built '{tree}/log' sh -c 'echo oops >&2; exit 5'")
    assert run(tree, "sh", "-euc", text) == (5, "", "")
    assert (tree / "log").read_text(encoding="utf-8") == "oops\n"


@pytest.mark.parametrize("text, name", [
    ("ID=debian\nVERSION_ID=\"12\"\n", None),
    ("ID=debian\nVERSION_ID=\"13\"\n", "debian 13"),
    ("ID=ubuntu\nVERSION_ID=\"24.04\"\n", "ubuntu 24.04"),
    ("NAME=Something\n", "unknown "),
    (None, "unknown "),
])
def test_another_release_is_warned_of(tree, text, name):
    release = tree / "os-release"
    if text is not None:
        release.write_text(text, encoding="utf-8")
    said = (f"script/any: this system is '{name}', and all this is tried on 'debian 12' only; "
            "going on\n" if name else "")
    assert in_a_shell(tree, f"warn_other_release '{release}'; echo on") == (0, "on\n", said)


def powerless(words):
    """The command without root's right to write everywhere."""
    prefix = ["/usr/bin/setpriv", "--bounding-set=-all", "--inh-caps=-all"]
    return [*(prefix if os.geteuid() == 0 else []), *words]


@pytest.mark.parametrize("script", [name for name in SCRIPTS if name not in BUILD_NOTHING])
def test_a_checkout_that_cannot_be_written_is_built_elsewhere(tree, script):
    program(tree / "script/bootstrap", INSTALLS)
    tree.chmod(0o555)
    words = powerless([tree / "script" / script, *ARGUMENTS.get(script, [])])
    try:
        status, output, errors = run(tree, *words)
        assert (status, output, ran(tree)) == (1, "", "")
        assert "cannot be written; build elsewhere: " in errors and errors.count("\n") == 1
        assert errors.endswith(f"KELM_BUILD=/var/tmp/kelm-build script/{script}\n")
        assert run(tree, *words, KELM_BUILD=str(tree.parent / "elsewhere"))[0] == 7
    finally:
        tree.chmod(0o755)


@pytest.mark.parametrize("words", [["test", "unit"], ["steady", "--builds", "release"]])
@pytest.mark.parametrize("folder, ends", [("build", 7), ("build-release", 1)])
def test_only_folders_that_are_built_in_have_to_be_writable(tree, words, folder, ends):
    program(tree / "script/bootstrap", INSTALLS)
    (tree / folder).mkdir(mode=0o555)
    status, _, errors = run(tree, *powerless([tree / "script" / words[0], *words[1:]]))
    assert (status, f"{tree / folder} cannot be written" in errors) == (ends, ends == 1)


@pytest.mark.parametrize("words", [
    ["demo"], ["bench"], ["test", "house", "radio"], ["test", "bench"]])
def test_a_cache_for_the_guest_that_cannot_be_written_is_told_first(tree, words):
    program(tree / "script/bootstrap", INSTALLS)
    assert run(tree, tree / "script" / words[0], *words[1:], XDG_CACHE_HOME="/proc/none") == (
        1, "", f"script/{words[0]}: /proc/none/kelm/router cannot be written; keep it elsewhere: "
               f"XDG_CACHE_HOME=/var/tmp/kelm-cache script/{words[0]}\n")
    assert ran(tree) == ""


@pytest.mark.parametrize("answer, disabled, said", [
    ("echo '{tmp}/cache'", "", ""),
    ("echo /proc/none", "1",
     "script/any: the compiler's cache '/proc/none' cannot be written: "
     "building without it; CCACHE_DIR names another\n"),
    ("exit 1", "1",
     "script/any: the compiler's cache '' cannot be written: "
     "building without it; CCACHE_DIR names another\n"),
    (None, "", ""),
])
def test_a_compiler_cache_that_cannot_be_written_is_left_out(tree, answer, disabled, said):
    if answer:
        program(tree / "bin/ccache", answer.format(tmp=tree.parent))
    text = 'use_compiler_cache; echo "${CCACHE_DISABLE-}"'
    assert in_a_shell(tree, text) == (0, f"{disabled}\n", said)


@pytest.mark.parametrize("shell", [("sh", "-euc"), ("bash", "-euo", "pipefail", "-c")])
def test_without_a_home_the_users_entry_counts(tree, shell):
    program(tree / "bin/getent",
            '[ "$1 $2" = "passwd $(id -u)" ] && echo "me:x:7:7::/home/me:/bin/sh"')
    text = 'printf "%s %s" "$HOME" "$guest_cache"'
    assert in_a_shell(tree, text, shell, HOME="")[:2] == (0, "/home/me /home/me/.cache/kelm/router")
    program(tree / "bin/getent", "exit 2")
    assert in_a_shell(tree, text, shell, HOME="")[:2] == (0, "/ //.cache/kelm/router")


@pytest.mark.parametrize("stages, built, needed", [
    (["unit", "attempt", "attack"], [], 30),
    (["asan", "mips"], [], 510),
    (["asan", "mips"], ["asan"], 60),
    (["house", "asan"], ["asan"], 0),
])
def test_tests_say_which_room_their_builds_lack(tree, stages, built, needed):
    program(tree / "script/bootstrap", INSTALLS)
    program(tree / "bin/df", "echo head; echo /dev/sda 9 9 20480 9% /")
    for name in built:
        (tree / f"build-{name}").mkdir()
    status, _, errors = run(tree, tree / "script/test", *stages)
    if needed:
        assert (status, ran(tree)) == (1, "")
        assert errors == (f"script/test: {needed} MB are needed in {tree}, "
                          "and 20 MB are free there; make room\n")
    else:
        assert (status, errors) == (7, "")


def test_tests_that_cannot_mount_are_told_before_the_first_stage(tree):
    program(tree / "script/bootstrap", "")
    (tree / "tests/world").mkdir()
    (tree / "tests/world/try_world.py").write_text(
        "print('no mounts; do this')\nraise SystemExit(1)\n", encoding="utf-8")
    for words in (["test"], ["test", "house", "unit"], ["steady"]):
        assert run(tree, tree / "script" / words[0], *words[1:]) == (
            1, "", f"script/{words[0]}: no mounts; do this\n")
    program(tree / "script/lint", "")
    status, output, errors = run(tree, tree / "script/test", "lint")
    assert (status, output.splitlines()[-1], errors) == (0, "1 passed, 0 failed", "")
