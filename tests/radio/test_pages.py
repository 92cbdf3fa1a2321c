# SPDX-License-Identifier: ISC
"""The pages of the runs: one each, and an index of them all."""

import html
import io
import json
import os
import re
import subprocess

import pytest

from router import all_scenarios, attempt, demo, pages, play, run_file, scene, screen

TOP = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
EVENTS = """9.00 hostapd wlan1: AP-ENABLED
10.00 bus { "gpio": {"type":"wps","pressed":1} }
10.50 bus { "wps": {"action":1,"2g_status":11,"5g_status":11,"5g2_status":0} }
10.60 hostapd wlan1: WPS-PBC-ACTIVE
12.00 hostapd wlan1: WPS-OVERLAP-DETECTED
12.50 bus { "wps": {"action":2,"2g_status":12,"5g_status":12,"5g2_status":0} }
13.00 bus { "wps": {"action":2,"2g_status":4,"5g_status":4,"5g2_status":0} }
"""
HOSTILE = "<script>alert(1)</script> & \"Elm\""


def leave_run(build, row, holds=True):
    """What playing a scenario leaves, as play.play returns it."""
    outcome = play.Outcome()
    outcome.log_folder = os.path.join(build, "router", row.name)
    outcome.checks = [scene.Check("it works", holds, "no")]
    outcome.sentence = "It was played."
    os.makedirs(outcome.log_folder, exist_ok=True)
    with open(os.path.join(outcome.log_folder, "events.log"), "w", encoding="utf-8") as out:
        out.write(EVENTS)
    run_file.write(outcome.log_folder, row, outcome)
    return outcome


ROWS = [attempt.Scenario(name, sentence, None, []) for name, sentence in
        (("one", "The first."), ("two", "The second."), ("three", HOSTILE))]


@pytest.fixture
def played(tmp_path, monkeypatch):
    """(Player, its screen, the build folder) of three scenarios; the second one fails."""
    monkeypatch.setattr(all_scenarios.play, "play", lambda row, build, view: leave_run(
        build, row, row.name != "two"))
    out = io.StringIO()
    player = all_scenarios.Player(str(tmp_path), screen.Screen(out, {}))
    player.play(ROWS)
    player.finish(os.path.basename)
    return player, out.getvalue(), tmp_path / "router"


def test_each_scenario_has_its_line_and_a_failing_one_stops_nobody(played):
    player, told, _ = played
    told = re.sub(r"\d+ s  ", "T s  ", told)
    assert told.splitlines() == [
        "PASS  1 of 3: one  T s  It was played.",
        "FAIL  2 of 3: two  T s  1 of 1 checks failed: it works.",
        "PASS  3 of 3: three  T s  It was played.", "",
        "2 of 3 scenarios passed in 0 minutes; failed: two.", "The pictures: index.html"]
    assert player.failed == ["two"]


def test_an_interruption_tells_what_was_not_played_and_leaves_the_page(tmp_path, monkeypatch):
    def interrupted_at_the_second(row, build, _view):
        if row.name == "two":
            raise KeyboardInterrupt
        return leave_run(build, row)
    monkeypatch.setattr(all_scenarios.play, "play", interrupted_at_the_second)
    out = io.StringIO()
    player = all_scenarios.Player(str(tmp_path), screen.Screen(out, {}))
    with pytest.raises(KeyboardInterrupt):
        player.play(ROWS)
    player.finish(os.path.basename)
    assert out.getvalue().splitlines()[-2:] == [
        "1 of 1 scenarios passed in 0 minutes; 2 were not played.", "The pictures: index.html"]
    assert re.findall(r"(Passed|Failed): ", (tmp_path / "router/index.html").read_text(
        encoding="utf-8")) == ["Passed"]


def test_each_run_has_a_page_and_the_index_leads_there(played):
    _, _, folder = played
    index = (folder / "index.html").read_text(encoding="utf-8")
    assert re.findall(r'<h2>.*?href="([^"]+)"', index, re.S) == [
        "one/page.html", "two/page.html", "three/page.html"]
    assert all((folder / row.name / "page.html").exists() for row in ROWS)
    assert re.findall(r"(Passed|Failed): ", index) == ["Passed", "Failed", "Passed"]
    assert "2 of 3 scenarios ended as they should" in index
    assert index.count('src="data:image/svg+xml;base64,') == 3
    assert "push-button mode at once" in index


def test_the_index_takes_nothing_from_elsewhere_and_runs_nothing(played):
    _, _, folder = played
    index = (folder / "index.html").read_text(encoding="utf-8")
    assert "<script" not in index
    assert "&lt;script&gt;alert(1)&lt;/script&gt;" in index
    assert "default-src 'none'" in html.unescape(index)
    assert not re.findall(r'(?:src|href)="(?!data:|(?:one|two|three)/page\.html)[^"]*"', index)


@pytest.mark.parametrize("name, text, note", [
    ("run.json", None, "run.json cannot be read: "), ("run.json", "{", "run.json cannot be read: "),
    pytest.param("run.json", "[" * 100000, "run.json cannot be read: ", id="deep"),
    ("run.json", "[]", ""), ("page.html", None, ""),
])
def test_a_broken_run_is_told_in_its_place(tmp_path, name, text, note):
    folders = [leave_run(str(tmp_path), row).log_folder for row in ROWS[:2]]
    for folder in folders:
        pages.write_page(folder)
    path = os.path.join(folders[0], name)
    os.remove(path)
    if text is not None:
        with open(path, "w", encoding="utf-8") as out:
            out.write(text)
    with open(pages.write_index(folders, str(tmp_path)), encoding="utf-8") as file:
        index = file.read()
    assert note in index
    assert [word in index for word in ('id="one"', 'id="two"')] == [True, True]
    assert index.count("router/one/page.html") == (0 if name == "page.html" else 2)


def test_a_run_without_logs_has_no_page_and_says_so(tmp_path):
    with pytest.raises(pages.PageError, match="there is no page: "):
        pages.write_page(str(tmp_path / "nothing"))
    assert demo.page_line(str(tmp_path / "nothing")).startswith("There is no page: ")


def test_missing_package_of_the_page_is_named(tmp_path):
    leave_run(str(tmp_path), ROWS[0])
    done = subprocess.run(
        ["/usr/bin/python3", "-S", "-c", "import sys; sys.path.insert(0, sys.argv[1])\n"
         "from router import demo; print(demo.page_line(sys.argv[2]))",
         TOP, str(tmp_path / "router/one")], stdout=subprocess.PIPE, text=True, check=True)
    assert done.stdout.startswith("There is no page without the package python3-jinja2 (No module")


def test_demonstration_ends_with_the_path_of_the_page(tmp_path, monkeypatch, capsys):
    monkeypatch.chdir(tmp_path)
    outcome = leave_run(".", ROWS[0])
    demo.print_outcome(demo.timeline.Timeline(), outcome, 1.0)
    assert capsys.readouterr().out.splitlines()[-2:] == [
        "It was played.", "The picture of it: router/one/page.html"]
    assert json.loads((tmp_path / "router/one/run.json").read_text())["passed"] is True
