# SPDX-License-Identifier: ISC
"""What a person sees of a run, on a terminal and in a pipe: colours, progress, the last lines."""

import contextlib
import io
import os
import pty
import re

import pytest

from router import attempt, demo, play, scene, screen, timeline
from router.machine import Event

PRESS = Event(1.0, "bus", '{ "gpio": {"type":"wps","pressed":1} }')


class Terminal:
    """A pseudo terminal; what was written to it comes out at the end."""

    def __enter__(self):
        self._ours, theirs = pty.openpty()
        self.out = os.fdopen(theirs, "w", encoding="utf-8")
        return self

    def __exit__(self, *_):
        self.out.close()
        os.close(self._ours)

    def text(self):
        """All that has been written; nothing can be afterwards. A terminal makes CR LF of LF."""
        self.out.close()
        data = b""
        # What was written arrives in pieces, and only the end says that it was all.
        with contextlib.suppress(OSError):
            while piece := os.read(self._ours, 65536):
                data += piece
        return data.decode().replace("\r\n", "\n")


def outcome_of(*checks, trouble=None, details=""):
    outcome = play.Outcome()
    outcome.log_folder = "build/router/x"
    outcome.sentence = "The phone joined."
    outcome.checks = [scene.Check(statement, holds, "it") for statement, holds in checks]
    outcome.trouble, outcome.details = trouble, details
    outcome.commands, outcome.exits = {1: ["rm /tmp/x"]}, {1: "status 0"}
    outcome.files = {"/tmp/wps_result": "1\n"}
    return outcome


def printed(outcome, verbose=False):
    out = io.StringIO()
    demo.print_outcome(timeline.Timeline(out, {}, verbose), outcome, 12.4)
    return out.getvalue()


@pytest.mark.parametrize("environ, colours, rewrites", [
    ({"TERM": "xterm"}, True, True),
    ({}, True, True),
    ({"TERM": "xterm", "NO_COLOR": ""}, True, True),
    ({"TERM": "xterm", "NO_COLOR": "1"}, False, True),
    ({"TERM": "xterm", "NO_COLOR": "0"}, False, True),
    ({"TERM": "dumb"}, False, False),
])
def test_terminal_has_colours_unless_it_or_its_owner_wants_none(environ, colours, rewrites):
    with Terminal() as terminal:
        assert screen.wants_colour(terminal.out, environ) == colours
        assert screen.can_rewrite(terminal.out, environ) == rewrites


def test_pipe_has_no_colours():
    read, write = os.pipe()
    with os.fdopen(write, "w", encoding="utf-8") as pipe:
        assert not screen.wants_colour(pipe, {"TERM": "xterm"})
        assert not screen.can_rewrite(pipe, {"TERM": "xterm"})
    os.close(read)


@pytest.mark.parametrize("source, text, start", [
    ("bus", PRESS.text, "\033[1mbutton   \033[0m "),
    ("command", "1 hostapd_cli -i wlan1 wps_pbc", "\033[36mkelm     \033[0m 2.4 GHz"),
    ("hostapd", "wlan1: AP-ENABLED ", "\033[34mhostapd  \033[0m 2.4 GHz"),
    ("client0", "sta0: WPS-PBC-ACTIVE ", "\033[33mphone    \033[0m "),
    ("root1", "root1-wlan1: AP-ENABLED ", "\033[35mroot1    \033[0m "),
    ("script", "1 /etc/init.d/wps restart", "\033[32mscript   \033[0m "),
])
def test_each_actor_has_a_colour(source, text, start):
    with Terminal() as terminal:
        view = timeline.Timeline(terminal.out, {"TERM": "xterm"})
        view.client_names["client0"] = "phone"
        view.on_event(Event(1.0, source, text))
        assert re.sub(r"^\r\033\[K *", "", terminal.text()).startswith(start)


def test_verdicts_are_green_and_red():
    with Terminal() as terminal:
        view = timeline.Timeline(terminal.out, {"TERM": "xterm"})
        view.verdict(True, "it works")
        view.verdict(False, "it lasts")
        assert terminal.text().replace("\r\033[K", "").splitlines() == [
            "  \033[32mPASS\033[0m  it works", "  \033[31mFAIL\033[0m  it lasts"]


def test_nothing_but_text_goes_into_a_pipe():
    out = io.StringIO()
    view = timeline.Timeline(out, {"TERM": "xterm"})
    view.heading("a heading")
    view.on_event(PRESS)
    view.verdict(False, "it lasts")
    view.last_line(False, "the end")
    assert "\033" not in out.getvalue() and "\r" not in out.getvalue()
    assert out.getvalue().splitlines()[-2:] == ["  FAIL  it lasts", "the end"]


def test_steps_are_a_line_each_in_a_pipe():
    out = io.StringIO()
    steps = screen.Steps(screen.Screen(out, {}), 3)
    steps.begin("fetches 22 packages, 79 MB")
    steps.update("fetches 22 packages, 3 of 79 MB")
    steps.done("22 packages fetched")
    steps.begin("packs the image")
    assert out.getvalue() == ("step 1 of 3: fetches 22 packages, 79 MB\n"
                              "step 2 of 3: packs the image\n")


def test_steps_are_rewritten_in_place_on_a_terminal():
    with Terminal() as terminal:
        steps = screen.Steps(screen.Screen(terminal.out, {"TERM": "xterm"}), 3)
        steps.begin("begins")
        steps.update("3 of 79 MB")
        steps.done("has 79 MB")
        assert terminal.text() == ("\rstep 1 of 3: begins\033[K\rstep 1 of 3: 3 of 79 MB\033[K"
                                   "\r\033[Kstep 1 of 3: has 79 MB\n")


def test_line_that_is_rewritten_is_cut_to_the_terminal(monkeypatch):
    monkeypatch.setenv("COLUMNS", "20")
    with Terminal() as terminal:
        screen.Screen(terminal.out, {}).rewrite("0123456789012345678901234567890")
        assert terminal.text() == "\r0123456789012345678\033[K"


@pytest.mark.parametrize("pressed_s, who", [
    (None, "web page"), (10.0, "script"), (1.0, "web page"),
])
def test_request_soon_after_a_press_is_the_buttons(pressed_s, who):
    out = io.StringIO()
    view = timeline.Timeline(out, {})
    if pressed_s is not None:
        view.on_event(Event(pressed_s, "button", "wps released 1"))
    view.on_event(Event(20.0, "bus", '{ "wps_cli": {"action":1,"method":1} }'))
    assert out.getvalue().splitlines()[-1].split() == (who + " asks: start push-button").split()


@pytest.mark.parametrize("silent_s, told", [(19, 0), (21, 1)])
def test_long_wait_is_told_in_a_pipe(silent_s, told):
    out = io.StringIO()
    view = timeline.Timeline(out, {})
    view.zero_at(100.0)
    view.screen.last_line_s -= silent_s
    for _ in range(3):
        view.waiting("the daemon's end", 121.5, 98.7)
    lines = out.getvalue().splitlines()
    assert [line.split() for line in lines] == [
        "21.50 s ... waiting for the daemon's end (up to 99 s more)".split()] * told


def test_long_step_is_told_in_a_pipe():
    out = io.StringIO()
    view = screen.Screen(out, {})
    steps = screen.Steps(view, 3)
    steps.begin("fetches")
    view.last_line_s -= 21
    steps.update("3 of 79 MB")
    steps.update("4 of 79 MB")
    assert out.getvalue() == "step 1 of 3: fetches\nstep 1 of 3: 3 of 79 MB\n"


def test_wait_is_rewritten_in_place_on_a_terminal():
    with Terminal() as terminal:
        view = timeline.Timeline(terminal.out, {"TERM": "xterm", "NO_COLOR": "1"})
        view.waiting("the daemon's end", 0.0, 5.0)
        view.on_event(PRESS)
        waits, told = terminal.text().split("\r\033[K")
        assert waits.startswith("\r ") and "waiting for the daemon's end (up to 5 s more)" in waits
        assert told.split() == "button the WPS button is pressed".split()


def test_reader_that_left_does_not_end_the_run():
    read, write = os.pipe()
    os.close(read)
    view = screen.Screen(os.fdopen(write, "w", encoding="utf-8"), {})
    view.line("nobody reads this")
    view.line("nor this")


@pytest.mark.parametrize("outcome, last, status", [
    (outcome_of(("a", True), ("b", True)), "The phone joined.", 0),
    (outcome_of(("a", True), ("b", False), ("c", False)), "2 of 3 checks failed: b; c.", 1),
    (outcome_of(trouble="the client's enrolment did not happen within 120 s"),
     "The scenario did not get to its end: the client's enrolment did not happen within 120 s.", 1),
    (outcome_of(("a", True), ("b", False), trouble="the guest ended", details="panic"),
     "The scenario did not get to its end: the guest ended.", 1),
    (outcome_of(), "The scenario did not get to its end: it checked nothing.", 1),
])
def test_last_line_says_how_it_ended(outcome, last, status, monkeypatch):
    lines = printed(outcome).splitlines()
    assert lines[-2] == last
    assert lines[-1].startswith("There is no page: ")
    monkeypatch.setattr(play, "play", lambda *_: outcome)
    monkeypatch.setattr("sys.stdout", io.StringIO())
    options = demo.parse(["push-button"])
    assert demo.play_on_screen(options, 0.0) == status


def test_details_and_what_was_seen_come_before_the_last_line():
    text = printed(outcome_of(("a", False), trouble="the guest ended", details="panic\nlast"))
    assert text.index("FAIL  a\n        saw: it") < text.index("\nDetails:\npanic\nlast\n")
    assert text.index("last\n") < text.index("0 of 1 checks hold; 12 seconds in all.")


def test_run_without_checks_claims_none():
    text = printed(outcome_of(trouble="the guest ended"))
    assert "Checks:" not in text and "checks hold" not in text
    assert "No check was reached; 12 seconds in all." in text


def test_path_of_the_logs_is_a_short_one(monkeypatch):
    monkeypatch.chdir("/usr/lib")
    assert demo.shown_path("/usr/lib/x/y") == "x/y"
    assert demo.shown_path("/usr/bin/y") == "/usr/bin/y"


def test_failed_run_tells_what_was_seen_as_well():
    assert "\nThe phone joined.\n" in printed(outcome_of(("a", False)))
    assert "The phone joined." not in printed(outcome_of(("a", False), trouble="no"))


@pytest.mark.parametrize("verbose", [False, True])
def test_commands_and_files_are_for_who_asks(verbose):
    text = printed(outcome_of(("a", True)), verbose)
    assert ("Commands of the daemon, run 1:" in text) == verbose
    assert ("/tmp/wps_result" in text) == verbose
    assert "PASS  a" in text
    assert "Logs: build/router/x" in text


@pytest.mark.parametrize("value, started", [
    (None, 5000.0), ("", 5000.0), ("4990", 4990.0), ("4990.25", 4990.25), ("5000.5", 5000.0),
    ("nan", 5000.0), ("inf", 5000.0), ("x", 5000.0), ("-99999", 5000.0),
])
def test_whole_time_counts_from_the_start_that_the_shell_tells(value, started):
    environ = {} if value is None else {"KELM_DEMO_STARTED": value}
    assert demo.started_at(environ, 5000.0) == started


def faulty(_stage):
    return {}["address"]


def test_fault_of_a_scenario_is_a_sentence_too(monkeypatch, tmp_path):
    class Guest:
        events = ()

        def __init__(self, *_):
            pass

        def __enter__(self):
            return self

        def __exit__(self, *_):
            pass

        def read(self, _path):
            return None

        def run(self, _script, **_):
            return 1, ""

        def must_run(self, _script, **_):
            return ""

    class Built:
        def __init__(self, *_):
            pass

        def __enter__(self):
            return "kernel", "initrd"

        def __exit__(self, *_):
            pass

    monkeypatch.setattr(play.image, "built", Built)
    monkeypatch.setattr(play.machine, "Machine", Guest)
    monkeypatch.setattr(play, "boot", lambda *_: None)
    row = attempt.Scenario("x", "X.", faulty, [])
    outcome = play.play(row, str(tmp_path))
    assert outcome.last_line() == ("The scenario did not get to its end: the scenario itself is "
                                   "faulty (KeyError: 'address').")
    assert "in faulty\n" in outcome.details
