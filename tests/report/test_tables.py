# SPDX-License-Identifier: ISC
"""The tables of watch/ as Python reads them. tests/unit/test_watch_tables.cpp plays the same."""

import json
import re
from pathlib import Path

import pytest

from report import kept, patterns, words
from router import repeater_scenarios, scenarios, stock_scene

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / "tests/data/watch"


def cases(name):
    return [json.loads(line)
            for line in (DATA / name).read_text(encoding="utf-8").splitlines()]


def lines():
    text = (DATA / "lines.txt").read_text(encoding="utf-8")
    return [line.split(" ", 1) for line in text.split("\n") if line]


def secrets():
    return (DATA / "secrets.txt").read_text(encoding="utf-8").splitlines()


@pytest.mark.parametrize("pattern, text, covered", cases("patterns.jsonl"))
def test_a_pattern_covers_what_its_row_says(pattern, text, covered):
    found = patterns.compiled(pattern).search(text)
    assert (list(found.groups()) if found else None) == covered


@pytest.mark.parametrize("source, line, left", cases("kept.jsonl"))
def test_what_is_kept_of_a_line(source, line, left):
    assert kept.hidden(source, line) == left
    assert kept.hidden(source, left) == left


@pytest.mark.parametrize("source, line, who, iface, text", cases("words.jsonl"))
def test_the_words_of_a_line(source, line, who, iface, text):
    told = words.describe(source, line)
    assert told == (None if who is None else (iface, who, text))


# What the virtual router has beside what kelm-watch sees.
@pytest.mark.parametrize("source, line, left", [
    ("client0", "sta0: WPS-CRED-RECEIVED 100e004c", "sta0: WPS-CRED-RECEIVED [8 bytes]"),
    ("root1", "root1-2g: WPS-SUCCESS ", "root1-2g: WPS-SUCCESS "),
    ("log", "Nov 22 12:04:45 (none) daemon.info kelm[283]: kelm[kelm_check_pin:1]: pinCode: "
            "12345670, len = 8",
     "Nov 22 12:04:45 (none) daemon.info kelm[283]: kelm[kelm_check_pin:1]: pinCode: [8 bytes], "
     "len = 8"),
    ("log", "Sun Nov 22 12:04:45 2026 daemon.notice kelm: ready on 2.4 GHz",
     "Sun Nov 22 12:04:45 2026 daemon.notice kelm: ready on 2.4 GHz"),
    ("log", "Nov 22 12:04:45 (none) daemon.notice kelm: the key is abc",
     "Nov 22 12:04:45 (none) daemon.notice kelm: [14 bytes]"),
    ("log", "Nov 22 12:04:45 (none) auth.info login: password abc",
     "Nov 22 12:04:45 (none) auth.info login: [12 bytes]"),
    ("log", "no line of a log", "[16 bytes]"),
    ("console", "Nov 22 12:04:45 (none) daemon.info kelm[283]: kelm[main:1]: kelm 0.9.0",
     "Nov 22 12:04:45 (none) daemon.info kelm[283]: kelm[main:1]: kelm 0.9.0"),
])
def test_lines_of_the_virtual_router(source, line, left):
    assert kept.hidden(source, line) == left


def test_the_stored_secrets_are_those_of_the_scenarios():
    assert {scenarios.KEY, repeater_scenarios.KEY, *stock_scene.KEYS.values()} <= set(secrets())
    text = "\n".join(" ".join(line) for line in lines())
    missing = [secret for secret in secrets() if secret not in text]
    # The keys of the stock router pass through no line that is seen.
    assert missing == ["a key from the laptop", *stock_scene.KEYS.values()]


def test_no_secret_is_left_in_any_line():
    assert len(lines()) > 500
    for source, text in lines():
        left = kept.hidden(source, text)
        assert [secret for secret in secrets() if secret in left] == [], (source, text)
        assert kept.hidden(source, left) == left


# Formats of the daemon's log whose "%s" is a network's name, a path, an address, an error of the
# system's or a word of the daemon's own, and nothing else. Each other "%s" must be left out.
SHOWN = [
    r"session \[band %d\]\[ifName %s\]", r"\twps_flags: %s", r"\trootap ssid: %s",
    r"\trootap auth: %s, cipher: %s", r"patching wpsCfg\[band %d\] with rootAP %s",
    r"get entry by ssid %s\[mac distance", r"search from scantable %s", r"%d APs in %s",
    r"got ssid\[%s\]", r"got macAddr %s", r"got uuid %s", r"start wps band %d\[%s\]",
    r"%s is %s before WPS", r"%s wps_monitor (succeed|failed)", r"%s: (not )?used,",
    r"%s: moved aside", r"%s: others may take", r"%s: not written: %s", r"uci: %s is locked",
    r"Analyze (wpa_supplicnat|hostapd) config file %s", r"new settings did not arrive in %s",
    r"%s has no key for everybody", r"%s invalid run mode", r"Error: (open|read) %s failed",
    r"DUT RUNNING AS A SUPER %s", r"\[band %d\] credential not usable: %s",
    r"--------------------band %d localApSsid %s", r"Invalid pin \(%s\)",
    r"(processing|Ignore) wpsEvent\[%s\]: %s",
]
CALL = re.compile(r'kelm_log(?:_as|_always|_normal|_detail)\([^;"]*?'
                  r'((?:"(?:[^"\\]|\\.)*"\s*)+)', re.DOTALL)
CONVERSION = re.compile(r"%[-0-9.]*(?:l|ll|z)?([sdiuxc])")


def formats():
    """The texts of the daemon's log lines as they stand in the sources."""
    for folder in ("core", "config", "ctrl", "ipc", "wlan", "platform", "daemon"):
        for path in sorted((ROOT / folder).rglob("*.cpp")):
            for found in CALL.finditer(path.read_text(encoding="utf-8")):
                yield "".join(re.findall(r'"((?:[^"\\]|\\.)*)"', found[1]))


def test_a_secret_in_any_line_of_the_daemons_log_is_left_out():
    found = [text.replace(r"\t", "\t").replace(r"\n", "").replace(r"\"", '"')
             for text in formats() if re.search(r"%[.0-9]*[sc]", text)]
    assert len(found) > 60
    for text in found:
        if any(re.match(row, text) for row in SHOWN):
            continue
        line = CONVERSION.sub(lambda kind: "acornsinthecellar" if kind[1] in "sc" else "7", text)
        assert "acorns" not in kept.hidden("console", "kelm[f:1]: " + line), text


def test_each_row_can_be_read_by_both():
    for name in ("kept.inc", "words.inc"):
        text = (ROOT / "watch" / name).read_text(encoding="utf-8")
        rows = [line for line in text.splitlines()
                if re.match(r"[A-Z]+\(", line)]
        assert len(rows) == len(list(patterns.rows(name)))
        assert [line for line in rows if re.search(r'\\[^"]', line)] == []
    for macro, texts in patterns.rows("kept.inc"):
        if macro == "KEEP":
            assert not re.search(r"\}\{(?!as-|network|device|\})", texts[1]), texts
            assert len(patterns.compiled(texts[1]).kinds) <= 12


def test_each_row_that_hands_on_names_a_source_that_there_is():
    rows = list(patterns.rows("kept.inc"))
    sources = {texts[0] for _, texts in rows}
    handed = {kind[3:] for macro, texts in rows if macro == "KEEP"
              for kind in patterns.compiled(texts[1]).kinds if kind.startswith("as-")}
    assert handed <= sources
