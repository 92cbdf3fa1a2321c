# SPDX-License-Identifier: ISC
"""docs/recording.md, and the recording that it names."""

import json
import re
from pathlib import Path

from report import kept, patterns, readers

ROOT = Path(__file__).resolve().parents[2]
PAGE = (ROOT / "docs/recording.md").read_text(encoding="utf-8")
EXAMPLE = ROOT / "tests/data/watch/recording.jsonl"
# Those of the table of what is kept that no recording has: parts of lines, and the virtual
# router's own.
OTHERS = {"event", "line", "kelm", "kelm.info", "gpio", "wifi", "wps", "wps_cli", "service",
          "service-band", "client", "root", "boot", "button", "demo", "procd", "netifd"}


def block(name):
    return re.search(r"^```json %s\n(.*?)^```" % name, PAGE, re.MULTILINE | re.DOTALL)[1]


def table(heading):
    part = PAGE.split("\n## %s\n" % heading)[1].split("\n## ")[0]
    rows = re.findall(r"^\| `([a-z_`, ]+)` \| (.*) \|$", part, re.MULTILINE)
    return {name: rest for names, rest in rows for name in names.split("`, `")}


def example():
    return [json.loads(line) for line in EXAMPLE.read_text(encoding="utf-8").splitlines()]


def test_the_example_has_the_members_that_the_page_tells():
    first, *lines = example()
    assert set(first) == set(table("The first line"))
    assert len(lines) > 50
    for line in lines:
        assert set(line) | {"iface"} == set(table("All other lines"))
        assert line["source"] in table("Sources")
    assert first["version"] == 1
    assert [line["ms"] for line in lines] == sorted(line["ms"] for line in lines)


def test_the_lines_of_the_page_are_those_of_the_example():
    first, *lines = example()
    assert json.loads(block("first")) == first
    assert json.loads(block("line")) in lines


def test_each_source_of_the_page_is_kept_and_each_kept_one_is_on_the_page():
    kept_sources = {texts[0] for _, texts in patterns.rows("kept.inc")}
    assert set(table("Sources")) == kept_sources - OTHERS
    assert OTHERS <= kept_sources


def test_what_the_page_shows_of_a_source_is_kept_as_it_is():
    for source, rest in table("Sources").items():
        text = re.search(r"\| `(.*)`$", rest)[1]
        assert kept.hidden(source, text) == text
    for text in re.search(r"^```text\n(.*?)^```", PAGE, re.MULTILINE | re.DOTALL)[1].splitlines():
        source = "station" if text.startswith("phy") else "bus" if text[0] == "{" else "command"
        assert kept.hidden(source, text) == text


def test_the_example_can_be_read_whole_and_cut_anywhere(tmp_path):
    whole = readers.read(str(EXAMPLE))
    assert len(whole.events) == len(example()) - 1
    assert whole.kind == "recording" and not whole.trouble
    data = EXAMPLE.read_bytes()
    cut = tmp_path / "cut.jsonl"
    for length in range(200, len(data), 1009):
        cut.write_bytes(data[:length])
        log = readers.read(str(cut))
        assert len(log.events) == data[:length].count(b"\n") - 1
        assert log.events == whole.events[:len(log.events)]
