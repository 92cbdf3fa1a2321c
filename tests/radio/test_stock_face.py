# SPDX-License-Identifier: ISC
"""What the stock router's image is made of: the package as its Makefile says, and the stand-ins."""

import os

import pytest

from router import feed, image, stock_scenarios, scenarios

EXECUTABLE, READABLE, PRIVATE = 0o755, 0o644, 0o600


@pytest.mark.parametrize("place, mode", [
    ("/etc/config/kelm", PRIVATE), ("/etc/init.d/wps", EXECUTABLE),
    ("/etc/rc.wps/30-kelm", EXECUTABLE), ("/usr/lib/kelm/common.sh", READABLE),
    ("/usr/libexec/kelm/bin/hostapd_cli", EXECUTABLE),
    ("/usr/share/rpcd/acl.d/kelm.json", READABLE),
])
def test_package_has_the_file_with_its_mode(place, mode):
    found = {path: (source, bits) for source, path, bits in feed.installed_files("kelm-stock")}
    assert found[place][1] == mode
    assert os.path.exists(found[place][0])


def test_package_ships_no_program_of_openwrt():
    places = [path for _, path, _ in feed.installed_files("kelm-stock")]
    assert not [place for place in places if place.startswith("/etc/rc.button/")]
    assert len(places) == len(set(places)) > 20


@pytest.mark.parametrize("name, text", [
    ("postinst", '[ -n "${IPKG_INSTROOT}" ] || /etc/init.d/rpcd reload || true\n'),
    ("prerm", '[ -n "${IPKG_INSTROOT}" ] || /usr/libexec/kelm/remove || true\n'),
    ("preinst", ""),
])
def test_script_of_the_package_manager(name, text):
    assert feed.script("kelm-stock", name).removeprefix("#!/bin/sh\n") == text


def test_settings_survive_an_upgrade():
    assert feed.conffiles("kelm-stock") == ["/etc/config/kelm"]


@pytest.mark.parametrize("face", ["firmware", "stock"])
def test_missing_program_of_a_face_is_told(face, tmp_path):
    names = [name for name, _ in image.BUILT_PROGRAMS["firmware"]]
    if face == "stock":
        names += ["testworld/procd"]
    for name in names[:-1]:
        (tmp_path / name).parent.mkdir(parents=True, exist_ok=True)
        (tmp_path / name).touch()
    with pytest.raises(image.ImageError, match="is not built: script/demo builds it"):
        with image.built(str(tmp_path), str(tmp_path / "out"), None, face):
            pass


def test_scenarios_of_the_stock_face_are_told_by_their_names():
    for row in scenarios.SCENARIOS:
        assert (row.face == "stock") == row.name.startswith("stock-"), row.name
    assert {row.face for row in stock_scenarios.SCENARIOS} == {"stock"}
