# SPDX-License-Identifier: ISC
"""The rules of the documents: how wide a line may be, and the version that they name."""
import re
import subprocess
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
WIDTH = 100  # characters
FENCE = re.compile(r" {0,3}(`{3,}|~{3,})")
# A line that holds a link and nothing else: it cannot be broken.
LINK = re.compile(r"\s*(?:[-*] )?(?:\[[^\]]*\](?:\([^)]*\)|: ?\S+)|<?https?://\S+>?)[.,]?")


def documents():
    listing = subprocess.run(["git", "-c", f"safe.directory={ROOT}", "ls-files", "*.md"], cwd=ROOT,
                             check=True, capture_output=True, text=True)
    return [ROOT / line for line in listing.stdout.splitlines() if (ROOT / line).exists()]


def too_wide(text):
    """(line number, characters) of each line that is too wide. A row of a table may be."""
    found = []
    fence = None
    for number, line in enumerate(text.splitlines(), 1):
        mark = FENCE.match(line)
        if mark and fence is None:
            fence = mark[1]
        elif mark and mark[1].startswith(fence):
            fence = None
        is_row = fence is None and line.lstrip().startswith("|")
        if len(line) > WIDTH and not is_row and not (fence is None and LINK.fullmatch(line)):
            found.append((number, len(line)))
    return found


@pytest.mark.parametrize("text, found", [
    ("", []),
    ("a" * 100, []),
    ("a" * 101, [(1, 101)]),
    ("a\n\n" + "b " * 51 + "\nc", [(3, 102)]),
    ("ä" * 100, []),
    ("ä" * 101, [(1, 101)]),
    ("| " + "a" * 200 + " |", []),
    ("  | " + "a" * 200 + " |", []),
    ("a | " + "b" * 200, [(1, 204)]),
    ("[a](" + "b" * 200 + ")", []),
    ("- [a](" + "b" * 200 + ").", []),
    ("[a]: " + "b" * 200, []),
    ("https://" + "b" * 200, []),
    ("see [a](" + "b" * 200 + ")", [(1, 209)]),
    ("[a](b) " + "c " * 100, [(1, 207)]),
    ("```sh\n" + "a" * 100 + "\n```\n" + "b" * 101, [(4, 101)]),
    ("```sh\n" + "a" * 101 + "\n```", [(2, 101)]),
    ("```\n| " + "a" * 200 + "\n```\n| " + "b" * 200, [(2, 202)]),
    ("~~~\n```\n| " + "a" * 200 + "\n~~~", [(3, 202)]),
])
def test_wide_lines_are_found(text, found):
    assert too_wide(text) == found


def wide_lines(path):
    name = str(path.relative_to(ROOT))
    return [f"{name}:{number}: {width} characters, {WIDTH} at most"
            for number, width in too_wide(path.read_text(encoding="utf-8"))]


def test_no_line_of_a_document_is_wider_than_100_characters():
    assert ROOT / "docs/architecture.md" in documents()
    assert [line for path in documents() for line in wide_lines(path)] == []


def test_the_documents_name_the_version_that_is_built():
    version = re.search(r"^project\(kelm VERSION (\S+)",
                        (ROOT / "CMakeLists.txt").read_text(encoding="utf-8"), re.MULTILINE)[1]
    named = {str(path.relative_to(ROOT)): set(re.findall(r'"kelm (\d+\.\d+\.\d+)"',
                                                         path.read_text(encoding="utf-8")))
             for path in documents()}
    assert {name: versions for name, versions in named.items() if versions} == {
        "CONTRIBUTING.md": {version}, "README.md": {version}, "docs/integration.md": {version}}
