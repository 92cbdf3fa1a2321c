# SPDX-License-Identifier: ISC
"""script/report as a person calls it."""

import os
import shutil
import subprocess
import xml.etree.ElementTree
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
RUNS = ROOT / "tests/data/report/runs"
SCRIPT = ROOT / "script/report"
HANGS_S = 60


def report(*words, folder=None):
    """(status, output, errors)"""
    done = subprocess.run([SCRIPT, *words], capture_output=True, text=True, check=False,
                          timeout=HANGS_S, cwd=folder)
    return done.returncode, done.stdout, done.stderr


@pytest.fixture(name="folder")
def folder_with_a_run(tmp_path):
    shutil.copytree(RUNS / "push-button", tmp_path / "run")
    return tmp_path


def test_a_page_is_written_where_the_person_is(folder):
    assert report("run", "-o", "page.html", folder=folder) == (0, "", "")
    text = (folder / "page.html").read_text(encoding="utf-8")
    assert text.startswith("<!DOCTYPE html>") and "The phone joined after 1.9 s" in text
    assert sorted(os.listdir(folder)) == ["page.html", "run"]


def test_several_recordings_are_one_page(folder):
    assert report("run", RUNS / "nobody-comes", "-o", "page.html", folder=folder) == (0, "", "")
    text = (folder / "page.html").read_text(encoding="utf-8")
    assert "<title>push-button and 1 more</title>" in text
    assert text.count('<section class="attempt" ') == 2


def test_a_page_can_go_to_the_output_and_have_a_title(folder):
    status, output, errors = report("run", "-o", "-", "--title", "My <router>", folder=folder)
    assert (status, errors) == (0, "")
    assert "<title>My &lt;router&gt;</title>" in output


def test_a_page_is_written_anew(folder):
    (folder / "page.html").write_text("old", encoding="utf-8")
    assert report("run", "-o", "page.html", folder=folder)[0] == 0
    assert (folder / "page.html").read_text(encoding="utf-8").startswith("<!DOCTYPE html>")


@pytest.mark.parametrize("words, headline", [
    ([], "The Wi-Fi daemon (hostapd) was gone"),
    (["--attempt", "2"], "the phone joined after 1.4 s")])
def test_a_picture_alone_is_a_well_formed_file(folder, words, headline):
    assert report(RUNS / "hostapd-dies", "--svg", "a.svg", *words, folder=folder) == (0, "", "")
    tree = xml.etree.ElementTree.parse(folder / "a.svg").getroot()
    assert tree.tag == "{http://www.w3.org/2000/svg}svg"
    assert headline in tree.find("{http://www.w3.org/2000/svg}desc").text
    assert "href" not in (folder / "a.svg").read_text(encoding="utf-8")


@pytest.mark.parametrize("words, said", [
    ([], "no recording is named"),
    (["run"], "name one file to write: -o PAGE or --svg PICTURE"),
    (["run", "-o", "a", "--svg", "b"], "name one file to write: -o PAGE or --svg PICTURE"),
    (["run", "run", "--svg", "b"], "--svg takes one recording"),
    (["run", "-o", "a", "--attempt", "1"], "--attempt goes with --svg: a page holds every attempt"),
    (["run", "--svg", "b", "--attempt", "one"], "argument --attempt: invalid int value: 'one'"),
    (["run", "-o"], "argument -o: expected one argument"),
    (["run", "-o", "a", "--fast"], "unrecognized arguments: --fast"),
])
def test_a_wrong_call_is_one_line_and_status_2(folder, words, said):
    assert report(*words, folder=folder) == (
        2, "", "script/report: %s; see script/report --help\n" % said)
    assert os.listdir(folder) == ["run"]


@pytest.mark.parametrize("words, named", [
    (["nowhere", "-o", "page.html"], "nowhere"),
    (["run", "nowhere", "-o", "page.html"], "nowhere"),
    (["run", "--svg", "a.svg", "--attempt", "2"], "run has no attempt 2; it has 1"),
    (["run", "--svg", "a.svg", "--attempt", "0"], "run has no attempt 0; it has 1"),
    (["run", "-o", "no/such/folder/page.html"],
     "no/such/folder/page.html cannot be written: No such file or directory"),
    (["run", "-o", "run"], "run cannot be written: it is an input, which is not written over"),
    (["run/events.log", "-o", "run/events.log"],
     "run/events.log cannot be written: it is an input, which is not written over"),
])
def test_what_cannot_be_done_is_one_line_and_status_1(folder, words, named):
    before = sorted(folder.rglob("*"))
    status, output, errors = report(*words, folder=folder)
    assert (status, output) == (1, "")
    assert errors.startswith("script/report: ") and named in errors and errors.count("\n") == 1
    assert sorted(folder.rglob("*")) == before


@pytest.mark.parametrize("content", [
    b"", b"\x00\xff\xfe\x80" * 5000, b"x" * 300000, b"\n\n\n"], ids=len)
def test_a_file_of_something_else_gives_a_sentence_or_a_page(folder, content):
    (folder / "odd").write_bytes(content)
    status, output, errors = report("odd", "-o", "page.html", folder=folder)
    assert output == "" and "Traceback" not in errors
    if status:
        assert (status, errors.count("\n")) == (1, 1)
    else:
        assert "No attempt was found in it." in (folder / "page.html").read_text(encoding="utf-8")


def test_a_full_disk_leaves_no_half_page(folder):
    status, _, errors = report("run", "-o", "/dev/full", folder=folder)
    assert (status, errors) == (
        1, "script/report: /dev/full cannot be written: No space left on device\n")
