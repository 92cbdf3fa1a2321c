#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""The rules of the house that no compiler checks: floors, licence lines, what the program links."""
import re
import subprocess
from pathlib import Path

import pytest

from builds import must_run, needed, of_openwrt, through_cache

ROOT = Path(__file__).resolve().parents[2]
DAEMON_FOLDERS = ("core", "config", "ctrl", "ipc", "wlan", "platform", "daemon")

# A file may include its own floor and those below. See docs/architecture.md.
FLOORS = {
    1: ("core/kelm", "core/log", "core/qm_syslog", "core/handle", "core/signals", "core/system_log",
        "core/exec", "core/file", "core/trust", "ipc/bus_listener"),
    2: ("core/session", "core/switches", "core/text", "ctrl/wpa_ctrl", "config/conf_tree"),
    3: ("core/run_mode", "config/band_config", "config/settings", "config/uci_option",
        "core/json_file", "core/json_text", "config/key_mgmt", "config/value_text",
        "config/credentials"),
    4: ("wlan/radio", "wlan/predict", "core/ops"),
    5: ("ipc/status_files", "ipc/bus", "ipc/event_socks"),
    6: ("wlan/precheck", "wlan/rootap", "config/supplicant_credentials"),
    7: ("platform/rtk/control", "platform/rtk/events", "platform/rtk/escape",
        "platform/rtk/write_back", "platform/rtk/ap_write_back", "platform/rtk/easymesh",
        "platform/rtk/hostapd_file", "platform/rtk/new_settings",
        "platform/rtk/credential_event", "platform/rtk/wps_attributes",
        "platform/rtk/ops"),
    8: ("daemon/evaluation",),
    9: ("daemon/mainloop", "daemon/lifecycle", "daemon/main"),
}
FLOOR_OF = {room: floor for floor, rooms in FLOORS.items() for room in rooms}

# The recorder's own floors, and what it takes from the daemon.
WATCH_FLOORS = {
    1: ("watch/text", "watch/options", "watch/queue"),
    2: ("watch/pattern", "watch/members", "watch/aliases"),
    3: ("watch/kept", "watch/log_line", "watch/words"),
    4: ("watch/bands", "watch/recording", "watch/screen", "watch/tell", "watch/outputs"),
    5: ("watch/source", "watch/sources", "watch/run", "watch/bus_source", "watch/ctrl_sources",
        "watch/file_source", "watch/log_source", "watch/process_source"),
    6: ("watch/main",),
}
WATCH_FLOOR_OF = {room: floor for floor, rooms in WATCH_FLOORS.items() for room in rooms}
SHARED_WITH_WATCH = {
    "core/handle", "core/text", "core/signals", "ipc/bus_listener", "ctrl/wpa_ctrl",
    "core/json_text", "core/json_file", "config/credentials", "config/settings"}


def daemon_files():
    return sorted(path for folder in DAEMON_FOLDERS for path in (ROOT / folder).rglob("*.[ch]*"))


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


def test_every_file_of_the_daemon_has_a_floor():
    assert sorted({room(path) for path in daemon_files()}) == sorted(FLOOR_OF)


def test_no_file_includes_a_floor_above_its_own():
    upward = [f"{path.relative_to(ROOT)} includes {name}" for path in daemon_files()
              for name in includes(path) if FLOOR_OF[name] > FLOOR_OF[room(path)]]
    assert not upward


def test_every_file_of_the_recorder_has_a_floor():
    assert sorted({room(path) for path in watch_files()}) == sorted(WATCH_FLOOR_OF)


def test_the_recorder_takes_what_it_shares_and_nothing_of_the_daemon_needs_it():
    shared = {name for path in watch_files() for name in includes(path)
              if name not in WATCH_FLOOR_OF}
    assert shared <= SHARED_WITH_WATCH
    upward = [f"{path.relative_to(ROOT)} includes {name}" for path in watch_files()
              for name in includes(path) if name in WATCH_FLOOR_OF
              and WATCH_FLOOR_OF[name] > WATCH_FLOOR_OF[room(path)]]
    assert not upward
    assert [path for path in daemon_files() for name in includes(path)
            if name.startswith("watch/")] == []


def test_the_recorder_uses_the_lowest_floors_and_nothing_uses_the_recorder():
    files = sorted((ROOT / "watch").glob("*.[ch]*"))
    assert files
    assert [f"{path.relative_to(ROOT)} includes {name}" for path in files
            for name in includes(path)
            if not name.startswith("watch/") and FLOOR_OF[name] > 3] == []
    assert [f"{path.relative_to(ROOT)} includes {name}" for path in daemon_files()
            for name in includes(path) if name.startswith("watch/")] == []


def test_headers_do_not_include_each_other_in_a_circle():
    graph = {room(path): includes(path) for path in daemon_files() + watch_files()
             if path.suffix == ".h"}

    def circle(name, trail):
        if name in trail:
            return trail[trail.index(name):] + [name]
        found = (circle(follower, trail + [name]) for follower in graph[name])
        return next((one for one in found if one), None)

    assert [one for one in (circle(name, []) for name in graph) if one] == []


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
