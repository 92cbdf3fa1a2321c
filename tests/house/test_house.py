#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""The rules of the house that no compiler checks: floors, licence lines, what the program links."""
import re
import subprocess
from pathlib import Path

import pytest

from builds import must_run, needed, of_openwrt, through_cache

ROOT = Path(__file__).resolve().parents[2]
# The folders of the daemon from the ground up.
FLOORS = ("core", "config", "ctrl", "ipc", "wlan", "platform", "daemon")
# What the recorder takes from the daemon.
SHARED_WITH_WATCH = {
    "core/handle", "core/json_text", "core/signals", "core/text",
    "core/trust", "config/credentials", "config/settings", "ctrl/wpa_ctrl", "ipc/bus_listener"}


def daemon_files():
    return sorted(path for folder in FLOORS for path in (ROOT / folder).rglob("*.[ch]*"))


def watch_files():
    return sorted(path for path in (ROOT / "watch").rglob("*.[ch]*"))


def room(path):
    return str(path.relative_to(ROOT).with_suffix(""))


def includes(path):
    """The project's own headers that a file includes, as room names."""
    names = re.findall(r'^#include "(.+)\.h"$', path.read_text(encoding="utf-8"), re.MULTILINE)
    return [name for name in names if name != room(path)]


def tracked_files():
    listing = subprocess.run(["git", "-c", f"safe.directory={ROOT}", "ls-files"], cwd=ROOT,
                             check=True, capture_output=True, text=True)
    return [ROOT / line for line in listing.stdout.splitlines()]


def floor_of(name):
    return FLOORS.index(name.split("/")[0])


def test_no_folder_includes_a_folder_above_it():
    found = [(path, name) for path in daemon_files() for name in includes(path)]
    assert {floor_of(room(path)) for path, _ in found} == set(range(len(FLOORS)))
    assert [f"{path.relative_to(ROOT)} includes {name}" for path, name in found
            if name.split("/")[0] not in FLOORS or floor_of(name) > floor_of(room(path))] == []


def test_the_recorder_takes_what_it_shares_and_nothing_else():
    found = {name for path in watch_files() for name in includes(path)
             if not name.startswith("watch/")}
    assert found == SHARED_WITH_WATCH


def test_rooms_do_not_include_each_other_in_a_circle():
    """Header and source of a room together: nobody can be understood first in a circle."""
    graph = {}
    for path in daemon_files() + watch_files():
        graph.setdefault(room(path), set()).update(includes(path))

    def circle(name, trail):
        if name in trail:
            return trail[trail.index(name):] + [name]
        found = (circle(follower, trail + [name]) for follower in sorted(graph[name]))
        return next((one for one in found if one), None)

    assert [one for one in (circle(name, []) for name in graph) if one] == []


def test_the_page_of_the_architecture_lists_each_file_in_its_folder():
    """A file by its room, or by its name where it is a header alone."""
    page = (ROOT / "docs/architecture.md").read_text(encoding="utf-8")
    rows = re.findall(r"^\| `([a-z/]+)/` \| [^|]+ \| ((?:`[\w.]+` ?)+)\|$", page, re.MULTILINE)
    listed = sorted(f"{folder}/{name}" for folder, names in rows
                    for name in re.findall("`(.+?)`", names))
    files = {str(path.relative_to(ROOT)) for path in daemon_files()}
    sources = {name.removesuffix(".cpp") for name in files if name.endswith(".cpp")}
    headers = {name for name in files if name.endswith(".h")}
    assert listed == sorted(sources | {name for name in headers
                                       if name.removesuffix(".h") not in sources})


def test_the_projects_headers_are_included_in_the_order_of_their_names():
    """So that whoever looks for one, or adds one, finds its place."""
    blocks = [(path, block.splitlines()) for path in tracked_files()
              if path.suffix in (".cpp", ".h") and path.exists()
              for block in re.findall(r'(?:^#include "[^"]+"\n)+', path.read_text(encoding="utf-8"),
                                      re.MULTILINE)]
    assert any(len(lines) > 1 for _, lines in blocks)
    assert [str(path) for path, lines in blocks if lines != sorted(lines)] == []


def functions(text):
    """(name, whether a helper, body) of each function of a file, as the formatter sets it."""
    found = []
    head = []
    body = None
    is_helper = False
    for line in text.splitlines():
        if line in ("namespace {", "}  // namespace"):
            is_helper = line == "namespace {"
        if body is not None:
            body.append(line)
            if line == "}":
                name = re.search(r"([~\w]+)\(", re.sub(r"^__attribute__\(\(.*?\)\)\)", "",
                                                       " ".join(head)))
                if name:
                    found.append((name[1], is_helper, "\n".join(body)))
                head, body = [], None
        elif line == "{":
            body = []
        elif not line or line.startswith(("#", "//", "}")) or line.endswith(";"):
            head = []
        else:
            head.append(line)
    return found


def test_functions_are_found():
    assert functions("""namespace kelm {

namespace {

constexpr int ONE[] = {
    1,
};

// One.
int _one(int value,
         int other)
{
    return value;
}

__attribute__((format(printf, 2, 3))) bool _two(char *line, const char *format, ...)
{
    {
    }
}

}  // namespace

const char *three()
{
}

}  // namespace kelm
""") == [("_one", True, "    return value;\n}"), ("_two", True, "    {\n    }\n}"),
         ("three", False, "}")]


def test_a_helper_has_a_name_of_its_own():
    """In a list of symbols, in a search and in a debugger a name is one function."""
    files = {}
    for path in daemon_files() + watch_files():
        for name, is_helper, _ in functions(path.read_text(encoding="utf-8")):
            if is_helper:
                files.setdefault(name, set()).add(str(path.relative_to(ROOT)))
    assert {"_survey_bands", "_look_at_bus"} <= files.keys()
    assert {name: sorted(where) for name, where in files.items()
            if len(where) > 1} == {}


def names_of(argument, text):
    """The names that the first argument of a kelm_log_as stands for in a source file."""
    if argument.startswith('"'):
        return {argument.strip('"')}
    if argument.isupper():
        constant = rf'^constexpr const char \*{argument} = "(\w+)";'
        return set(re.findall(constant, text, re.MULTILINE))
    if argument.endswith(".name"):  # of a table's row, where it comes first
        return set(re.findall(r'^constexpr \w+ \w+ = {\n    "(\w+)",', text, re.MULTILINE))
    return {name for name, _, body in functions(text) if re.search(r"[(, ]__func__[,)]", body)}


def lines_under_other_names(text):
    """(function, name) of each line that a function writes under another function's name."""
    found = set()
    for function, _, body in functions(text):
        for argument in re.findall(r"\bkelm_log_as\(([^,]+),", body):
            names = names_of(argument, text)
            assert names, f"{function}: whose name is {argument}?"
            found |= {(function, name) for name in names}
    return found


@pytest.mark.parametrize("argument, names", [
    ('"main"', {"main"}), ("ENTRY", {"one"}), ("copy.name", {"two", "_two"}),
    ("writer", {"three", "_three"}), ("OTHER", set())])
def test_names_in_the_log_are_found(argument, names):
    text = f"""
constexpr const char *ENTRY = "one";
constexpr write_back_copy PLAIN = {{
    "two",
    1,
}};
constexpr write_back_copy EASYMESH = {{
    "_two",
    2,
}};
void _write(const char *writer, int level)
{{
    kelm_log_as({argument}, level, "a text\\n");
    kelm_log_always("another\\n");
}}
int three()
{{
    return _write(__func__, 3);
}}
int _three()
{{
    return _write(3, __func__);
}}
"""
    assert names_of(argument, text) == names
    if names:
        assert lines_under_other_names(text) == {("_write", name) for name in names}


def names_in_the_log_page():
    """Name and file, as docs/interfaces.md lists them in the table of such names."""
    page = (ROOT / "docs/interfaces.md").read_text(encoding="utf-8")
    table = re.search(r"^\| name in the log \|.*\n\|[-|]*\|\n((?:\|.*\n)+)", page, re.MULTILINE)[1]
    rows = [line.strip("|").split("|") for line in table.splitlines()]
    return sorted((name, file) for names, files in rows for name in re.findall("`(.+?)`", names)
                  for file in re.findall("`(.+?)`", files))


def test_the_page_tells_which_file_holds_a_line_under_another_name():
    found = {(name, str(path.relative_to(ROOT))) for path in daemon_files()
             if path.suffix == ".cpp"
             for _, name in lines_under_other_names(path.read_text(encoding="utf-8"))}
    assert ("main", "daemon/lifecycle.cpp") in found
    assert names_in_the_log_page() == sorted(found)


def test_a_line_under_the_functions_own_name_uses_the_plain_macro():
    assert [f"{path.relative_to(ROOT)}: {name}" for path in daemon_files()
            if path.suffix == ".cpp"
            for function, name in lines_under_other_names(path.read_text(encoding="utf-8"))
            if function == name] == []


def test_every_source_file_names_its_licence():
    checked = (".cpp", ".c", ".h", ".py", ".sh", ".cmake")
    first_lines = {path: path.read_text(encoding="utf-8").splitlines()[:2]
                   for path in tracked_files() if path.suffix in checked and path.exists()}
    assert first_lines
    assert [str(path) for path, lines in first_lines.items()
            if not any("SPDX-License-Identifier: ISC" in line for line in lines)] == []


@pytest.fixture(scope="module", name="bare_program")
def build_bare_program(tmp_path_factory):
    """The daemon as built by the two plain commands on a machine without pkg-config."""
    build = tmp_path_factory.mktemp("bare")
    must_run("cmake", "-S", ROOT, "-B", build, "-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON",
             *through_cache())
    must_run("cmake", "--build", build, "-j2")
    return build / "kelm"


def test_the_plain_build_leaves_a_program_without_the_cxx_runtime(bare_program):
    libraries = needed(bare_program)
    assert {"libc", "libjson-c"} <= libraries
    assert libraries <= ({"libc", "libjson-c", "ld-linux-x86-64"} |
                         of_openwrt(bare_program.parent))


def test_a_platform_library_can_bring_the_system_log_call(tmp_path):
    library = tmp_path / "libplatformlog.so"
    source = tmp_path / "log.c"
    source.write_text("void qm_syslog(int l, int s, const char *f, ...)\n"
                      "{ (void)l; (void)s; (void)f; }\n")
    subprocess.run(["gcc", "-shared", "-fPIC", "-o", library, source], check=True)
    build = tmp_path / "build"
    must_run("cmake", "-S", ROOT, "-B", build, f"-DKELM_QM_SYSLOG_LIB={library}",
             *through_cache())
    must_run("cmake", "--build", build, "-j2")
    symbols = subprocess.run(["nm", "-D", build / "kelm"], check=True, capture_output=True,
                             text=True).stdout
    assert re.search(r"^ +U qm_syslog$", symbols, re.MULTILINE)
