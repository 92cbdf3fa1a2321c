# SPDX-License-Identifier: ISC
"""The run.json of a run folder tells what was seen, and no secret."""

import json

import pytest

from router import attempt, play, run_file, scene

NOTHING = {"mode": "0600", "keys": [], "values": {}}
AP_FILE = {"enable_2g": "on", "ssid_2g": "Elm House", "hide_2g": 0, "sec_follow_2g": "false",
           "sec_2g": "wpa2", "index_2g": 1, "password_2g": "under the old elm",
           "wepKey_5g2": "secret", "security_6g": "sae_only"}
BACKHAUL = {"backhaul_ssid_2g": "Great Oak", "backhaul_psk_key_2g": "acorns in the cellar",
            "backhaul_psk_key_hex_2g": "6163", "mesh_enable": "on"}
INFO = attempt.info_file(2, "success", "02:00:00:00:02:00", "ok", "")


@pytest.mark.parametrize("text, wanted", [
    ("1\n", dict(NOTHING, number=1)), ("-1\n", dict(NOTHING, number=-1)),
    ("", NOTHING), ("12345670\n", NOTHING), ("no JSON: under the old elm", NOTHING),
    ("[1, 2]", NOTHING), ('"text"', NOTHING), ("{\"ssid_2g\": \"cut", NOTHING),
    (json.dumps(AP_FILE), dict(NOTHING, keys=list(AP_FILE), values={
        "enable_2g": "on", "ssid_2g": "Elm House", "hide_2g": 0, "sec_follow_2g": "false",
        "sec_2g": "wpa2", "security_6g": "sae_only"})),
    (json.dumps(BACKHAUL), dict(NOTHING, keys=list(BACKHAUL), values={
        "backhaul_ssid_2g": "Great Oak", "mesh_enable": "on"})),
    (json.dumps(INFO), dict(NOTHING, keys=list(INFO), values=INFO)),
])
def test_of_a_file_names_and_modes_are_told_and_nothing_else(text, wanted):
    assert run_file.file_row(text, "0600") == wanted


def test_run_file_tells_the_scenario_and_what_it_came_to(tmp_path):
    outcome = play.Outcome()
    outcome.checks = [scene.Check("it works", True, "yes"), scene.Check("it lasts", False, "no")]
    outcome.names, outcome.zero_s, outcome.recorder_s = {"client0": "phone"}, 12.5, 0.25
    outcome.files, outcome.modes = {"/tmp/wps_result": "0\n", "/tmp/x": "{}"}, {"/tmp/x": "0644"}
    run_file.write(str(tmp_path), attempt.Scenario("one", "It shows.", None, [], face="stock"),
                   outcome)
    assert json.loads((tmp_path / "run.json").read_text(encoding="utf-8")) == {
        "version": 1, "scenario": "one", "face": "stock", "sentence": "It shows.",
        "outcome": "1 of 2 checks failed: it lasts.", "passed": False,
        "names": {"client0": "phone"},
        "zero_s": 12.5, "recorder_s": 0.25,
        "files": {"/tmp/wps_result": {"mode": "", "keys": [], "values": {}, "number": 0},
                  "/tmp/x": {"mode": "0644", "keys": [], "values": {}}},
        "checks": [["it works", True], ["it lasts", False]]}


def test_an_older_run_file_goes(tmp_path):
    (tmp_path / "run.json").write_text("{}", encoding="utf-8")
    run_file.remove(str(tmp_path))
    run_file.remove(str(tmp_path))
    assert not list(tmp_path.iterdir())
