# SPDX-License-Identifier: ISC
"""The person's side of the virtual router, as far as it needs no guest."""

import io
import os
import signal
import subprocess

import pytest

from router import machine, packages, play, scenarios, scene, timeline

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
NAMES = ["push-button", "push-button-5g", "hostapd-user", "unconfigured", "client-pin",
         "access-point-pin", "overlap", "neighbour", "nobody-comes", "cancel",
         "press-cancel-press", "second-press", "terminated", "hostapd-dies", "no-broker",
         "wrong-pin", "client-leaves", "wrong-key", "hidden", "wpa3-only", "disk-full",
         "script-hangs", "broker-dies", "hostapd-hangs", "start-marker", "daemon-killed",
         "repeater", "repeater-2g", "repeater-near", "repeater-5g", "repeater-alone",
         "repeater-silent", "repeater-connected", "repeater-factory", "repeater-mesh",
         "repeater-no-mesh", "repeater-open-wpa3", "repeater-overlap", "repeater-rogue",
         "repeater-6g", "stock-without-kelm", "stock-button", "stock-guest", "stock-pin",
         "stock-no-wps", "stock-hidden", "stock-wpa3-only", "stock-radio-off", "stock-reload",
         "stock-crash", "stock-web", "stock-led", "stock-button-24.10", "stock-repeater"]


def demo(*arguments):
    return subprocess.run(["/usr/bin/python3", os.path.join(TOP, "router/demo.py"), *arguments],
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, check=False)


def test_list_names_every_scenario_with_a_sentence():
    done = demo("--list")
    rows = [line.split(None, 1) for line in done.stdout.splitlines()]
    assert done.returncode == 0
    assert [row[0] for row in rows] == NAMES
    assert all(row[1].endswith(".") for row in rows)


def test_wrong_name_is_an_error_that_brings_the_list():
    done = demo("no-such-thing")
    assert done.returncode == 2
    assert done.stdout == ""
    assert "no scenario 'no-such-thing'" in done.stderr
    assert all(name in done.stderr for name in NAMES)


def to_a_reader_that_is_gone(*words):
    """(status, errors) of a Python program whose output nobody reads."""
    reader, writer = os.pipe()
    os.close(reader)
    done = subprocess.run(["/usr/bin/python3", *words], cwd=TOP, stdout=writer,
                          stderr=subprocess.PIPE, text=True, check=False)
    os.close(writer)
    return done.returncode, done.stderr


@pytest.mark.parametrize("question", ["--list", "--help"])
@pytest.mark.parametrize("mode", ["-u", "-E"])  # each write at once, or all at the end
def test_an_answer_that_nobody_reads_ends_without_a_word(question, mode):
    assert to_a_reader_that_is_gone(mode, "router/demo.py", question) == (-signal.SIGPIPE, "")


def test_a_scenario_whose_screen_is_gone_keeps_its_status():
    assert to_a_reader_that_is_gone("-E", "-c", """
import sys
from router import demo, screen
screen.Screen().line("step 1 of 3")
demo.finish_output()
sys.exit(demo.EXIT_FAILED)
""") == (1, "")


def test_help_tells_the_scenarios():
    done = demo("--help")
    assert done.returncode == 0
    assert all(name in done.stdout for name in NAMES)
    assert "--verbose" in done.stdout


@pytest.mark.parametrize("arguments, status", [
    (["--list"], 0), (["--help"], 0), (["no-such-thing"], 2),
    (["--check-arguments", "push-button"], 0)])
def test_questions_need_no_other_program_and_no_cache(arguments, status):
    done = subprocess.run(
        ["/usr/bin/python3", "-S", os.path.join(TOP, "router/demo.py"), *arguments],
        env={"PATH": "/nowhere", "XDG_CACHE_HOME": "/proc/nope"}, stdout=subprocess.PIPE,
        stderr=subprocess.PIPE, text=True, check=False)
    assert done.returncode == status, done.stderr


def test_missing_build_is_told_and_fails(tmp_path):
    done = demo("--build", str(tmp_path), "push-button")
    assert done.returncode == 1
    assert "kelm is not built" in done.stderr


def test_an_outcome_without_checks_is_a_failure():
    assert play.Outcome().failures() == ["the scenario checked nothing"]


def test_a_failed_check_is_a_failure_and_tells_what_was_seen():
    outcome = play.Outcome()
    outcome.checks = [scene.Check("it works", True, "yes"), scene.Check("it lasts", False, "no")]
    assert outcome.failures() == ["it lasts: saw no"]


@pytest.mark.parametrize("source, text, told", [
    ("bus", '{ "gpio": {"type":"wps","pressed":1} }', ("", "button", "the WPS button is pressed")),
    ("bus", '{ "wps": {"action":2,"2g_status":2,"5g_status":4,"5g2_status":0} }',
     ("", "kelm", "announces: the result (2.4 GHz success, 5 GHz time-out)")),
    # An attempt is announced as ended twice: first that it has stopped, then what came of it.
    ("bus", '{ "wps": {"action":2,"2g_status":12,"5g_status":12,"5g2_status":0} }',
     ("", "kelm", "announces: the attempt has been stopped")),
    ("bus", '{ "wps": {"action":1,"2g_status":12,"5g_status":11,"5g2_status":0} }',
     ("", "kelm", "announces: the attempt has started (2.4 GHz silent, 5 GHz in progress)")),
    ("bus", '{ "wps": {"action":2,"2g_status":0,"5g_status":0,"5g2_status":0} }',
     ("", "kelm", "announces: no attempt is running")),
    ("bus", '{ "wps": {"action":9,"2g_status":5} }',
     ("", "kelm", "announces: 9 (2.4 GHz 5, 5 GHz None)")),
    # The script's own line tells what is restarted.
    ("console", "kelm[kelm_restart:279]: mesh WPS fail restart.", None),
    ("bus", '{ "wps_cli": {"action":2,"method":1} }',
     ("", "web page", "asks: cancel push-button")),
    ("bus", "no JSON", None),
    ("bus", '{ "other": {} }', None),
    ("hostapd", "wlan0: WPS-REG-SUCCESS 02:00:00:00:02:00 0102", ("5 GHz", "hostapd",
     "client 02:00:00:00:02:00 has received the key")),
    ("hostapd", "wlan1: interface state UNINITIALIZED->COUNTRY_UPDATE", None),
    ("command", "1 hostapd_cli -p /var/run/hostapd -i wlan1 wps_pin any 12345670",
     ("2.4 GHz", "kelm", "starts the PIN method (12345670)")),
    ("client0", "sta0: WPS-PBC-ACTIVE ", ("", "phone", "has been pushed; looks for the router")),
    ("exit", "2 daemon 345 status 255", ("", "kelm", "run 2 (process 345) ends, status 255")),
    ("script", "0 /etc/init.d/wps restart", None),
    ("console", "kelm[rtk_mirror:9]: patching wpsCfg[band 1] with rootAP Great Oak 5",
     ("5 GHz", "kelm", "mirrors the credentials to this band, root \"Great Oak 5\"")),
])
def test_timeline_tells_events_in_words(source, text, told):
    event = machine.Event(1.0, source, text)
    assert timeline.describe(event, {"client0": "phone"}) == told


def test_timeline_counts_seconds_from_the_zero_point():
    out = io.StringIO()
    view = timeline.Timeline(out)
    event = machine.Event(12.5, "hostapd", "wlan1: AP-ENABLED ")
    view.on_event(event)
    view.zero_at(10.0)
    view.on_event(machine.Event(12.5, "hostapd", "wlan0: AP-ENABLED "))
    before, after = out.getvalue().splitlines()
    assert before.split() == ["hostapd", "2.4", "GHz", "access", "point", "is", "on", "the", "air"]
    assert after.split()[:2] == ["2.50", "s"]


def test_modules_come_after_those_they_need(tmp_path):
    folder = tmp_path / "lib/modules/1/kernel"
    folder.mkdir(parents=True)
    needs = {name: [] for name in packages.MODULES}
    needs.update({"mac80211_hwsim": ["mac80211"], "mac80211": ["cfg80211"], "cfg80211": []})
    for name, needed in needs.items():
        (folder / (name + ".ko")).write_bytes(b"\x7f\0depends=" + ",".join(needed).encode() + b"\0")
    names = [os.path.basename(path) for path in packages.module_files(str(tmp_path))]
    assert names[-3:] == ["cfg80211.ko", "mac80211.ko", "mac80211_hwsim.ko"]
    assert len(names) == len(set(names)) == len(needs)


def test_scenarios_have_names_of_their_own():
    assert len({row.name for row in scenarios.SCENARIOS}) == len(scenarios.SCENARIOS)
