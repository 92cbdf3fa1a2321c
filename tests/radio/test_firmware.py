# SPDX-License-Identifier: ISC
"""The firmware's scripts of the virtual router: they do what the daemon expects of a firmware's."""

import json

import pytest

from router import image, machine, scene, screen, timeline


@pytest.fixture(scope="module")
def router(build_folder, tmp_path_factory):
    folder = str(tmp_path_factory.mktemp("firmware"))
    with image.built(build_folder, folder, screen.NoSteps()) as (kernel, initrd), \
            machine.Machine(kernel, initrd, 3, folder) as guest:
        stage = scene.Scene(guest, timeline.Silence())
        stage.boot()
        yield stage


def write(router, path, text):
    router.must_run("cat >%s <<'END'\n%s\nEND" % (path, text))


def test_config_wifi_stores_what_was_learnt_and_leaves_the_rest(router):
    password = "it's a \"quoted\" \\ key"
    write(router, "/tmp/wps_wifi_ap.txt", json.dumps({
        "enable_5g": "on", "ssid_5g": "A new/name", "hide_5g": 0, "sec_5g": "wpa/wpa2",
        "password_5g": password, "wpaEncryption_5g": 0}))
    router.must_run("/etc/init.d/wps config_wifi")
    stored = [router.setting("wifi5G_Cfg", "settings2", name)
              for name in ("ssid", "security", "password", "wpsConfigured", "channel")]
    assert stored == ["A new/name", "wpa/wpa2", password, "1", "36"]
    assert router.setting("wifi2G_Cfg", "settings2", "ssid") == "Elm House"
    blocks = router.read("/tmp/wifi.conf").split("\n\n")
    assert len(blocks) == 3
    assert "wlanSecType_5g=1" in blocks[1].splitlines()
    assert "staBssEnabled_5g=off" in blocks[2].splitlines()


def test_config_wifi_without_learnt_settings_changes_nothing(router):
    before = router.must_run("rm -f /tmp/wps_wifi_ap.txt; cat /etc/config/*")
    assert router.must_run("/etc/init.d/wps config_wifi; cat /etc/config/*") == before


def test_mesh_config_wifi_stores_the_backhaul(router):
    write(router, "/tmp/wps_wifi_ap_bh.txt", json.dumps({
        "backhaul_ssid_2g": "back 2", "backhaul_psk_key_2g": "key two",
        "backhaul_ssid_5g": "back 5", "backhaul_psk_key_5g": "key five"}))
    router.must_run("/etc/init.d/wps mesh_config_wifi")
    stored = [router.setting(package, "settings2", name)
              for package in ("wifi2G_Cfg", "wifi5G_Cfg")
              for name in ("backhaulSsid", "backhaulPassword")]
    assert stored == ["back 2", "key two", "back 5", "key five"]


def test_re_kelm_info_publishes_the_info_file_once_more(router):
    router.start_broker()
    write(router, "/tmp/kelm.info", json.dumps({
        "wps_action": 2, "wl0_wps_status": "timeout", "wl0_wps_sta_mac": "",
        "wl1_wps_status": "success", "wl1_wps_sta_mac": "02:00:00:00:02:00"}))
    router.must_run("/etc/init.d/wps re_kelm_info")
    assert router.happens("bus", '"wps":', "the event", 20)
    assert router.announcements() == [(2, 4, 2)]


def test_nvram_keeps_values(router):
    assert router.must_run("nvram get multiap_mode") == "0\n"
    router.must_run("nvram set multiap_mode=1; nvram set odd=a=b")
    assert router.must_run("nvram get multiap_mode; nvram get odd") == "1\na=b\n"
    assert router.run("nvram get")[0] == 1
