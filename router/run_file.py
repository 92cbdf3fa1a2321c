# SPDX-License-Identifier: ISC
"""A run folder's run.json: what the logs beside it do not tell of a scenario that was played.

No secret goes in: of a file that the daemon wrote only the mode, the names of its keys, and the
values of the few keys that name a network or a way of securing it.
"""

import contextlib
import json
import os
import re

NAME = "run.json"
VERSION = 1

# Keys of the credential files, without their band, whose values anybody may read.
OPEN_KEYS = {"enable", "ssid", "hide", "sec", "sec_follow", "security", "backhaul_ssid",
             "mesh_enable", "smart_setting"}
BAND_ENDING = re.compile(r"_(2g|5g2|5g|6g)$")
# What the result file and its like hold: one number.
NUMBER = re.compile(r"-?\d{1,3}")
NO_MODE = ""


def file_row(text, mode):
    """What may be told of a file: its mode, its keys, the values that are no secret."""
    text = text.strip()
    if NUMBER.fullmatch(text):
        return {"mode": mode, "keys": [], "values": {}, "number": int(text)}
    try:
        members = json.loads(text)
    except ValueError:
        members = None
    if not isinstance(members, dict):
        members = {}
    values = {key: value for key, value in members.items() if _is_open(key)}
    return {"mode": mode, "keys": list(members), "values": values}


def _is_open(key):
    # What the daemon tells of an attempt: results and the device's address.
    return BAND_ENDING.sub("", key) in OPEN_KEYS or re.fullmatch(r"wps_action|wl\d_wps_\w+", key)


def remove(folder):
    """An older run's file would be told beside this run's logs."""
    with contextlib.suppress(FileNotFoundError):
        os.remove(os.path.join(folder, NAME))


def write(folder, scenario, outcome):
    """Written at the end of a run, whatever it came to."""
    run = {"version": VERSION, "scenario": scenario.name, "face": scenario.face,
           "sentence": scenario.sentence, "outcome": outcome.last_line(),
           "passed": not outcome.failures(),
           "names": outcome.names, "zero_s": outcome.zero_s, "recorder_s": outcome.recorder_s,
           "files": {path: file_row(text, outcome.modes.get(path, NO_MODE))
                     for path, text in outcome.files.items()},
           "checks": [[check.statement, check.holds] for check in outcome.checks]}
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, NAME), "w", encoding="utf-8") as out:
        json.dump(run, out, ensure_ascii=False, indent=1)
        out.write("\n")
