#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""script/test with stages of a few lines: what it counts, what it says, what it leaves behind."""
import os
import re
import shutil
import signal
import subprocess
import time
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
CASES = '<testsuites><testsuite>{}</testsuite></testsuites>'
GOOD = '<testcase classname="c" name="good"/>'
BAD = '<testcase classname="c" name="bad"><failure/></testcase>'
SKIPPED = '<testcase classname="c" name="left out"><skipped/></testcase>'
NOT_RUN = '<testcase classname="c" name="switched off" status="notrun"/>'
HANGS_S = 120


@pytest.fixture(name="tree")
def small_tree(tmp_path):
    """The script with its library in a tree of its own; what it runs there is written by a test."""
    (tmp_path / "script/lib").mkdir(parents=True)
    (tmp_path / "tests/attack").mkdir(parents=True)
    for name in ("script/test", "script/lib/advice.sh", "script/lib/packages.sh", "tests/suites.sh",
                 "tests/summary.py", "tests/end_marked"):
        shutil.copy(ROOT / name, tmp_path / name)
    program(tmp_path / "script/bootstrap", "")
    program(tmp_path / "bin/nproc", "echo 2")
    (tmp_path / "tests/world").mkdir()
    (tmp_path / "tests/world/try_world.py").touch()
    return tmp_path


def program(path, text):
    path.parent.mkdir(exist_ok=True)
    path.write_text(f"#!/bin/bash\n{text}\n", encoding="utf-8")
    path.chmod(0o755)


def fuzz_with(tree, cases, status):
    """Makes fuzz a stage with these results."""
    program(tree / "script/fuzz", f"printf %s '{cases}' >\"$3\"; exit {status}")


def run(tree, *stages, path=None):
    environment = dict(os.environ, PATH=path or f"{tree / 'bin'}:{os.environ['PATH']}")
    done = subprocess.run([tree / "script/test", *stages], capture_output=True, text=True,
                          timeout=HANGS_S, env=environment, check=False)
    return done.returncode, done.stdout.splitlines()


def test_stages_without_tests_count_as_one_each_and_failed_ones_are_named(tree):
    program(tree / "script/lint", "exit 1")
    program(tree / "script/coverage", "exit 0")
    program(tree / "script/cross", 'echo "#error"; exit 2')
    status, lines = run(tree, "lint", "coverage", "mips")
    assert status == 1
    assert lines[-1] == "1 passed, 2 failed (failed stages: lint mips)"


def test_a_run_in_which_all_is_well_names_no_stage(tree):
    program(tree / "script/lint", "exit 0")
    fuzz_with(tree, CASES.format(GOOD * 3), 0)
    status, lines = run(tree, "lint", "fuzz")
    assert status == 0
    assert lines[-1] == "4 passed, 0 failed"
    assert not [line for line in lines if "failed stages" in line]


@pytest.mark.parametrize("cases, stage_status, last_line", [
    (CASES.format(GOOD + GOOD + BAD), 1, "2 passed, 1 failed (failed stages: fuzz)"),
    (CASES.format(GOOD + BAD), 0, "1 passed, 1 failed (failed stages: fuzz)"),
    (CASES.format(GOOD + SKIPPED + NOT_RUN), 0, "1 passed, 2 failed (failed stages: fuzz)"),
    (CASES.format(GOOD + GOOD), 1, "2 passed, 1 failed (failed stages: fuzz)"),
    (CASES.format(GOOD)[:-20], 0, "0 passed, 1 failed (failed stages: fuzz)"),
    ("", 1, "0 passed, 1 failed (failed stages: fuzz)"),
], ids=["a failed test", "one that the stage hid", "tests that did not run",
        "a stage that failed beside its tests", "half a result file", "an empty one"])
def test_what_did_not_pass_is_counted(tree, cases, stage_status, last_line):
    fuzz_with(tree, cases, stage_status)
    status, lines = run(tree, "fuzz")
    assert status == 1
    assert lines[-1] == last_line


def test_progress_comes_first_and_a_table_of_times_last(tree):
    program(tree / "script/lint", "sleep 1")
    program(tree / "script/coverage", "exit 3")
    _, lines = run(tree, "lint", "coverage")
    progress = [re.sub(r"after \d+ s", "after N s", line) for line in lines
                if line.startswith("== ")]
    assert progress == [
        "== stage 1 of 2: lint", "== lint passed after N s",
        "== stage 2 of 2: coverage", "== coverage FAILED after N s"]
    table = [line.split() for line in lines[-4:-1]]
    assert table[0] == ["stage", "seconds", "passed", "failed"]
    assert [(row[0], row[2:]) for row in table[1:]] == [
        ("lint", ["1", "0"]), ("coverage", ["0", "1"])]
    assert 1 <= int(table[1][1]) <= HANGS_S


# One that has begun waits for the other to begin: alone neither would end.
MEETS = """
    touch {mine}-began
    for ((i = 0; i < 300; ++i)); do [ ! -e {other}-began ] || break; sleep 0.1; done
    [ -e {other}-began ] || exit 9
    """
# Both speak at once, again and again.
SPEAKS = """
    for ((i = 0; i < 5; ++i)); do
        echo {mine} $i; echo {mine} error $i >&2
        touch {mine}-$i
        until [ -e {other}-$i ]; do sleep 0.02; done
    done
    exit {status}"""


def test_stages_run_beside_each_other_and_their_words_are_not_mixed(tree):
    for script, mine, other, status in (("coverage", "coverage", "mips", 1),
                                        ("cross", "mips", "coverage", 0)):
        words = {"mine": mine, "other": other, "status": status}
        program(tree / "script" / script, (MEETS + SPEAKS).format(**words))
    status, lines = run(tree, "coverage", "mips")
    assert (status, lines[-1]) == (1, "1 passed, 1 failed (failed stages: coverage)")
    assert lines[:2] == ["== stage 1 of 2: coverage", "== stage 2 of 2: mips"]
    for stage, verdict in (("coverage", "FAILED"), ("mips", "passed")):
        begin = lines.index(f"-- {stage} said:")
        assert lines[begin + 1:begin + 11] == [
            f"{stage} {word}{count}" for count in range(5) for word in ("", "error ")]
        assert lines[begin + 11].startswith(f"== {stage} {verdict} after ")


def test_a_stage_that_keeps_all_processors_busy_runs_by_itself(tree):
    program(tree / "script/lint", "touch lint-runs; sleep 0.5; rm lint-runs")
    program(tree / "script/coverage", "[ ! -e lint-runs ]")
    status, lines = run(tree, "lint", "coverage")
    assert (status, lines[-1]) == (0, "2 passed, 0 failed")
    program(tree / "bin/nproc", "echo 4")
    program(tree / "script/coverage", "until [ -e lint-runs ]; do sleep 0.02; done; exit 1")
    program(tree / "script/lint", "touch lint-runs; sleep 0.5")
    assert run(tree, "lint", "coverage")[1][-1] == "1 passed, 1 failed (failed stages: coverage)"


@pytest.mark.parametrize("order", [["bench", "mips", "coverage"], ["mips", "bench", "coverage"]])
def test_what_measures_runs_alone(tree, order):
    program(tree / "script/bench", """
        touch bench-runs
        for ((i = 0; i < 10; ++i)); do [ -z "$(compgen -G 'runs-*')" ] || exit 1; sleep 0.1; done
        rm bench-runs""")
    for name in ("cross", "coverage"):
        program(tree / f"script/{name}", f"""
            [ ! -e bench-runs ] || exit 1
            touch runs-{name}; sleep 0.5; rm runs-{name}; [ ! -e bench-runs ]""")
    status, lines = run(tree, *order)
    assert (status, lines[-1]) == (0, "3 passed, 0 failed")
    assert [line.split()[0] for line in lines[-4:-1]] == order


def test_a_stage_whose_shell_is_killed_fails_and_the_others_go_on(tree):
    program(tree / "script/lint", "kill -KILL $PPID")
    program(tree / "script/coverage", "sleep 1; touch went-on")
    program(tree / "script/cross", "kill -KILL $PPID")
    status, lines = run(tree, "lint", "coverage", "mips")
    assert (status, lines[-1]) == (1, "1 passed, 2 failed (failed stages: lint mips)")
    assert (tree / "went-on").exists()


def test_all_packages_are_there_before_the_first_stage(tree):
    program(tree / "script/bootstrap", 'echo "$*" >>packages; [ ! -e began ]')
    for name in ("lint", "coverage"):
        program(tree / f"script/{name}", "touch began")
    status, _ = run(tree, "lint", "coverage", "mips")
    assert status == 1  # there is no script/cross
    installed = (tree / "packages").read_text(encoding="utf-8").splitlines()[-1].split()
    assert {"cmake", "python3-pytest", "cppcheck", "gcovr", "g++-mips-linux-gnu"} < set(installed)


def test_stages_that_share_a_build_build_it_once(tree):
    program(tree / "bin/cmake", "echo \"$1\" >>cmake-calls; sleep 1")
    for name in ("attempt", "watch"):
        (tree / "tests" / name).mkdir()
    run(tree, "attempt", "watch", path=f"{tree / 'bin'}:{os.environ['PATH']}")
    assert (tree / "cmake-calls").read_text(encoding="utf-8").split() == ["--preset", "--build"]


def test_a_stage_named_twice_runs_once(tree):
    program(tree / "script/lint", "echo ran >>runs")
    status, lines = run(tree, "lint", "lint")
    assert (status, lines[-1]) == (0, "1 passed, 0 failed")
    assert (tree / "runs").read_text(encoding="utf-8") == "ran\n"


def test_a_run_of_all_stages_leaves_none_out():
    """The stages stand in two orders and in a table of what they need: none may lack one."""
    text = (ROOT / "script/test").read_text(encoding="utf-8")
    stages = re.search(r"^all_stages=\((.+?)\)$", text, re.MULTILINE)[1].split()
    order = re.search(r'^readonly longest_first="(.+?)"$', text, re.MULTILINE | re.DOTALL)[1]
    shares = re.search(r"^declare -A busy_share=\((.+?)\)$", text, re.MULTILINE | re.DOTALL)[1]
    assert sorted(order.split()) == sorted(stages)
    assert sorted(re.findall(r"\[(\w+)\]=", shares)) == sorted(stages)


def test_a_stage_that_does_not_exist_runs_nothing(tree):
    program(tree / "script/lint", "touch ran")
    status, lines = run(tree, "lint", "flint")
    assert (status, lines) == (2, [])
    assert not (tree / "ran").exists()


@pytest.mark.parametrize("attack_file, bin_files, said", [
    (None, {"id": "echo 0"}, "There is no attack in tests/attack: nothing was tested."),
    ("test_a.py", {"id": "echo 1000"}, "The attacks need root, to start processes of another user: "
                                       "run this as root or install sudo."),
])
def test_attacks_that_cannot_run_are_a_failure_and_say_why(tree, attack_file, bin_files, said):
    if attack_file:
        (tree / "tests/attack" / attack_file).write_text("", encoding="utf-8")
    for name, text in {**bin_files, "cmake": "exit 0"}.items():
        program(tree / "bin" / name, text)
    for name in ("bash", "env", "mktemp", "rm", "mkdir", "grep", "tr", "kill", "sleep", "dirname",
                 "readlink", "realpath", "df", "awk", "sort", "flock", "cat"):
        (tree / "bin" / name).symlink_to(shutil.which(name))
    status, lines = run(tree, "attack", path=str(tree / "bin"))
    assert status == 1
    assert said in lines
    assert lines[-1] == "0 passed, 1 failed (failed stages: attack)"


def test_another_user_attacks_as_root_through_sudo(tree):
    (tree / "tests/attack/test_a.py").write_text("def test_a():\n    pass\n", encoding="utf-8")
    program(tree / "bin/cmake", "exit 0")
    program(tree / "bin/id", "echo 1000")
    program(tree / "bin/sudo", 'echo "$@" >>sudo-calls')
    status, lines = run(tree, "attack", path=f"{tree / 'bin'}:{os.environ['PATH']}")
    assert (status, lines[-1]) == (0, "1 passed, 0 failed")
    call, = [line for line in (tree / "sudo-calls").read_text(encoding="utf-8").splitlines()
             if "/usr/bin/python3 -m pytest" in line]
    assert "tests/attack" in call
    assert re.search(r"KELM_RUN_\d+=1", call)


ASKS = """
    read -r word </dev/tty
    echo "$word" >>asked"""


def on_a_terminal(tree, stage, typed):
    """Runs a stage where the person has typed words already, and returns its status."""
    environment = dict(os.environ, PATH=f"{tree / 'bin'}:{os.environ['PATH']}")
    done = subprocess.run(
        ["script", "-qec", f"'{tree}/script/test' {stage}", "/dev/null"], input=typed,
        stdout=subprocess.DEVNULL, env=environment, text=True, timeout=HANGS_S, check=False)
    return done.returncode


@pytest.mark.parametrize("stage", ["lint", "unit"])
def test_a_password_can_be_asked_for_before_the_first_stage(tree, stage):
    program(tree / "script/bootstrap", ASKS)
    program(tree / "script/lint", "read -r word && echo not at the end >>asked; exit 0")
    on_a_terminal(tree, stage, "one\ntwo\nthree\n")
    needed = {"lint": "one\n", "unit": "one\ntwo\n"}
    assert (tree / "asked").read_text(encoding="utf-8") == needed[stage]


def test_the_attacks_ask_for_the_password_before_the_first_stage_alone(tree):
    (tree / "tests/attack/test_a.py").write_text("def test_a():\n    pass\n", encoding="utf-8")
    program(tree / "bin/cmake", "exit 0")
    program(tree / "bin/id", "echo 1000")
    program(tree / "bin/sudo", f"[ \"$1\" != -n ] || exit 0\n{ASKS}")
    assert on_a_terminal(tree, "attack", "one\ntwo\n") == 0
    assert (tree / "asked").read_text(encoding="utf-8") == "one\n"


def test_what_runs_as_root_through_sudo_is_found_as_root(tree):
    """Its environment is a secret from the user who started it."""
    program(tree / "bin/id", "echo 1000")
    program(tree / "bin/sudo", '[ "$1" = -n ] && shift && ROOT=1 exec "$@"')
    program(tree / "bin/grep", f"""
        case "$*" in */environ*) [ -n "${{ROOT-}}" ] || exit 2;; esac
        exec {shutil.which("grep")} "$@" """)
    path = f"{tree / 'bin'}:{os.environ['PATH']}"
    marked = {**os.environ, f"MARK_{os.getpid()}": "1"}
    with subprocess.Popen(["sleep", "1000"], env=marked) as child:
        try:
            subprocess.run([tree / "tests/end_marked", f"MARK_{os.getpid()}", str(os.getpid())],
                           env={**os.environ, "PATH": path}, timeout=HANGS_S, check=True)
            wait_for(lambda: child.poll() is not None)
        finally:
            child.kill()


def is_alive(pid):
    try:
        state = Path(f"/proc/{pid}/stat").read_text(encoding="utf-8").rsplit(")", 1)[1].split()[0]
    except (FileNotFoundError, ProcessLookupError):
        return False
    return state != "Z"


def wait_for(condition):
    end = time.monotonic() + HANGS_S
    while not condition():
        assert time.monotonic() < end, "waited in vain"
        time.sleep(0.02)


@pytest.mark.parametrize("number, status", [(signal.SIGTERM, 143), (signal.SIGINT, 130)])
def test_a_run_that_is_ended_leaves_no_process_and_no_folder(tree, number, status):
    """One child in a session of its own, as daemons are, one deaf, and the shells of two stages."""
    program(tree / "script/fuzz", """
        setsid bash -c 'echo $$ >session; exec sleep 1000' &
        bash -c 'trap "" TERM INT; echo $$ >deaf; while :; do sleep 1000; done' &
        echo "$3" >folder; echo $$ >shell
        sleep 1000""")
    program(tree / "script/coverage", "echo $$ >beside; sleep 1000")
    written = [tree / name for name in ("session", "deaf", "shell", "beside", "folder")]
    # A shell cannot hear what it was told to ignore, and whoever runs the tests may ignore both.
    with subprocess.Popen([tree / "script/test", "coverage", "fuzz"], stdout=subprocess.DEVNULL,
                          stderr=subprocess.DEVNULL,
                          preexec_fn=lambda: signal.signal(number, signal.SIG_DFL)) as script:
        try:
            wait_for(lambda: all(path.exists() and path.read_text(encoding="utf-8")
                                 for path in written))
            script.send_signal(number)
            assert script.wait(HANGS_S) == status
        finally:
            script.terminate()
    pids = [int(path.read_text(encoding="utf-8")) for path in written[:4]]
    assert [is_alive(pid) for pid in pids] == [False] * 4
    assert not Path((tree / "folder").read_text(encoding="utf-8").strip()).parent.exists()
