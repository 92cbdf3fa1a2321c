# SPDX-License-Identifier: ISC
"""The scenarios of the router in repeater mode: it enrols with root access points."""

import json

from router.attempt import (CLEAN_COMMANDS, WALK_TIME_S, Scenario, announce, check_ready_again,
                            info_file)
from router.repeater import OLD_ROOT, STATIONS, Repeater, RootBand
from router.sentences import (enrolled_alone, estimate_fell, gave_up, given_the_key, overlapped,
                              router_joined, seen)
from router.timeline import BANDS

SSID = "Great Oak"
KEY = "acorns in the cellar"
EXT = SSID + "_EXT"
RADIOS = 4


def station_commands(command):
    return ["wpa_cli -p /var/run/wpa_supplicant -i %s %s" % (interface, command)
            for interface in ("wlan1-vxd", "wlan0-vxd")]


PRESS_COMMANDS = ([announce(1, 11, 11, 0), "killall wpa_cli", "nvram get multiap_mode"]
                  + station_commands("wps_pbc"))


def check_success(scene, wanted_scripts, info):
    scene.check_exit(1, "status 0")
    scene.check_equal("/tmp/wps_result tells the success", scene.read("/tmp/wps_result"), "1\n")
    scene.check_equal("/tmp/wpsactive is cleared", scene.read("/tmp/wpsactive"), "0\n")
    scene.check_restart(1, wanted_scripts)
    scene.check_equal("the daemon itself announced the start alone; the script told the result",
                      [line for line in scene.commands_of(1) if line.startswith("ubus send")],
                      [announce(1, 11, 11, 0)])
    scene.check_equal("/tmp/kelm.info tells the result", scene.read_json("/tmp/kelm.info"), info)


SUCCESS_SCRIPTS = ["/etc/init.d/wps config_wifi", "/etc/init.d/wps re_kelm_info",
                   "/etc/init.d/wifi force_restart"]


def enrol(scene, repeater, root, *bands):
    """The device's button, then the root's for these bands, until their stations have enrolled."""
    scene.begin()
    scene.press_button()
    scene.expect("station", "^wlan0-vxd: WPS-PBC-ACTIVE", "the stations' start")
    if bands:
        scene.say("the root's button is pressed for %s"
                  % " and ".join(BANDS[band] for band in bands))
        root.press(*bands)
    for band in bands:
        scene.expect("station", "^%s: WPS-SUCCESS" % STATIONS[band],
                     "the enrolment on " + BANDS[band])


def finish(scene, repeater):
    scene.expect_exit(1)
    repeater.wait_daemon_ready(2)


def both_bands(scene):
    repeater = Repeater(scene)
    repeater.start()
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    enrol(scene, repeater, root, "2g", "5g")
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    for band in ("2g", "5g"):
        repeater.check_station(band, SSID, "wpa2", KEY)
        repeater.check_extender(band, EXT)
        repeater.check_connected(band, root)
        repeater.check_access_point(band, EXT)
    check_ready_again(scene, 2)


def one_band(scene, band, other, other_ssid=SSID):
    """Only one band of the root is pushed; the other's credentials are the mirrored ones."""
    repeater = Repeater(scene)
    repeater.start()
    ssids = {band: SSID, other: other_ssid}
    root = repeater.add_root(*[RootBand(name, ssids[name], KEY) for name in ("2g", "5g")])
    enrol(scene, repeater, root, band)
    finish(scene, repeater)

    codes = ["success", ""] if band == "2g" else ["ok", ""]
    codes += ["ok", ""] if band == "2g" else ["success", ""]
    check_success(scene, SUCCESS_SCRIPTS, info_file(2, *codes))
    scene.check_equal("no station but that of %s enrolled" % BANDS[band],
                      scene.texts("station", "^%s: WPS-(SUCCESS|CRED)" % STATIONS[other]), [])
    scene.check_equal("the daemon mirrored to the other band, by the root it found there",
                      scene.texts("console", r"patching wpsCfg\[band %d\] with rootAP %s"
                                  % (("2g", "5g").index(other), other_ssid)) != [], True)
    for name in ("2g", "5g"):
        repeater.check_station(name, ssids[name], "wpa2", KEY)
        repeater.check_extender(name, ssids[name] + "_EXT")
        repeater.check_connected(name, root)
        repeater.check_access_point(name, ssids[name] + "_EXT")
    check_ready_again(scene, 2)
    return repeater


def mirrored(scene):
    one_band(scene, "2g", "5g")


def mirrored_by_nearness(scene):
    one_band(scene, "2g", "5g", "Great Oak 5")
    scene.check_equal("the 5 GHz root was found by its address",
                      len(scene.texts("console", "get entry by bssid 02-11-22-33-44-51")), 1)


def mirrored_from_5g(scene):
    one_band(scene, "5g", "2g")


def silent_band(scene):
    repeater = one_band(scene, "2g", "5g")
    scores = repeater.scores()
    scene.check("the logged score fell from pass to pass, to below 15 percent",
                len(scores) > 3 and scores == sorted(scores, reverse=True)
                and min(scores[:-1]) >= 15 > scores[-1], scores)
    # Every pass costs the waiting band 15 percent of what it had.
    falls = all(later == now * 85 // 100 for now, later in zip(scores, scores[1:]))
    scene.check("each pass took 15 percent of the score", falls, scores)
    scene.check_equal("the 125 seconds never ran out",
                      scene.texts("console", "wps Timeout"), [])


def check_nothing_learnt(scene, repeater, status):
    """The end of an attempt in which no band enrolled: a restart of the service, nothing stored."""
    scene.check_exit(1, "status 0")
    scene.check_equal("/tmp/wps_result tells the failure", scene.read("/tmp/wps_result"), "0\n")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      PRESS_COMMANDS + CLEAN_COMMANDS + [announce(2, 4, 4, 0)]
                      + station_commands("wps_cancel")
                      + ["/etc/init.d/wps re_kelm_info", "/etc/init.d/wps restart"])
    scene.check_equal("/tmp/kelm.info tells the " + status, scene.read_json("/tmp/kelm.info"),
                      info_file(2, status, "", status, ""))
    repeater.check_untouched("2g", "5g")
    for band in ("2g", "5g"):
        scene.check_equal("the stored root of %s is the one from before" % BANDS[band],
                          repeater.stored(band, "settings1", *OLD_ROOT),
                          tuple(OLD_ROOT.values()))
        repeater.check_not_connected(band)
    check_ready_again(scene, 2)


def two_roots(scene):
    repeater = Repeater(scene)
    repeater.start()
    for ssid in (SSID, "Small Oak"):
        root = repeater.add_root(RootBand("2g", ssid, KEY), RootBand("5g", ssid, KEY))
        root.press("2g", "5g")
    scene.say("two root access points, each a device of its own, have been pushed")
    scene.begin()
    scene.press_button()
    for interface in STATIONS.values():
        scene.expect("station", "^%s: WPS-OVERLAP-DETECTED" % interface, "the overlap")
    finish(scene, repeater)

    scene.check_equal("nobody enrolled", scene.texts("station", "WPS-(CRED|SUCCESS)"), [])
    check_nothing_learnt(scene, repeater, "overlap")


# What a rogue access point can be called, each of them wpa_supplicant's word for an event.
ROGUE_NAMES = {"2g": "WPS-FAIL", "5g": "PBC overlap detected"}
WORST_NAME = "WPS-SUCCESS"


def expect_try(scene, band, name, since):
    """The supplicant tells the rogue's name: it tries to get in there."""
    scene.expect("station", r"^%s: SME: Trying to authenticate with .*SSID='%s'"
                 % (STATIONS[band], name), "a try of " + name, since=since)


def rogue_root(scene):
    repeater = Repeater(scene)
    repeater.start({band: {"rootApSsid": name, "security": "wpa2", "password": KEY}
                    for band, name in ROGUE_NAMES.items()})
    rogue = repeater.add_root(*[RootBand(band, name, KEY, more=["max_num_sta=0"])
                                for band, name in ROGUE_NAMES.items()])
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    scene.say("a rogue access point, called like events and like the root that the router knows, "
              "refuses everybody")
    for band, name in ROGUE_NAMES.items():
        expect_try(scene, band, name, 0)
    scene.check_equal("idle, the daemon ran nothing", scene.commands_of(1), [])

    rogue.press("2g", "5g")
    enrol(scene, repeater, root)
    for band, name in ROGUE_NAMES.items():
        pressed = scene.nth_index("station", "^%s: WPS-PBC-ACTIVE" % STATIONS[band], 1)
        expect_try(scene, band, name, pressed)
    rogue.cancel("2g", "5g")
    repeater.wait_released("2g", rogue)
    scene.say("the rogue is called %s now" % WORST_NAME)
    rogue.rename("2g", WORST_NAME)
    rogue.press("2g")
    expect_try(scene, "2g", WORST_NAME, 0)
    scene.check_equal("in mid-attempt the daemon goes on waiting", scene.commands_of(1),
                      PRESS_COMMANDS)

    rogue.cancel("2g")
    for band in STATIONS:
        repeater.wait_released(band, rogue)
    scene.say("the rogue gives up, and the root's button is pressed")
    root.press("2g", "5g")
    for band in STATIONS:
        scene.expect("station", "^%s: WPS-SUCCESS" % STATIONS[band],
                     "the enrolment on " + BANDS[band])
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    for band in STATIONS:
        repeater.check_station(band, SSID, "wpa2", KEY)
        repeater.check_connected(band, root)
    check_ready_again(scene, 2)


def nobody_presses(scene):
    repeater = Repeater(scene)
    repeater.start()
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    enrol(scene, repeater, root)
    scene.move_clock(WALK_TIME_S)
    finish(scene, repeater)

    check_nothing_learnt(scene, repeater, "timeout")


def already_connected(scene):
    repeater = Repeater(scene)
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    repeater.start({"2g": {"rootApSsid": SSID, "security": "wpa2", "password": KEY}})
    scene.expect("station", "^wlan1-vxd: CTRL-EVENT-CONNECTED", "the 2.4 GHz connection")
    scene.say("the 2.4 GHz station is connected before the press")
    enrol(scene, repeater, root, "5g")
    finish(scene, repeater)

    scene.check_exit(1, "status 0")
    scene.check_equal("WPS was started on 5 GHz alone",
                      [line for line in scene.commands_of(1) if " wps_pbc" in line],
                      station_commands("wps_pbc")[1:])
    scene.check_equal("the start announced 2.4 GHz as silent", scene.announcements()[0],
                      (1, 12, 11))
    repeater.check_untouched("2g")
    repeater.check_station("5g", SSID, "wpa2", KEY)
    repeater.check_extender("5g", EXT)
    for band in ("2g", "5g"):
        repeater.check_connected(band, root)
    scene.check_equal("the 2.4 GHz access point keeps its name",
                      repeater.stored("2g", "settings2", "ssid"), ("Elm House",))
    check_ready_again(scene, 2)


def factory(scene):
    repeater = Repeater(scene)
    repeater.set_band("5g", "settings2", apBssEnabled="off")
    fresh = {"rootApSsid": "", "security": "none", "password": ""}
    repeater.start({"2g": fresh, "5g": fresh})
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    scene.say("the router is new: it knows no root, and its 5 GHz access point is off")
    enrol(scene, repeater, root, "2g", "5g")
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    scene.check_equal("the daemon took the router for a new one",
                      len(scene.texts("console", "update factory_mode = 1")), 1)
    for band in ("2g", "5g"):
        repeater.check_station(band, SSID, "wpa2", KEY)
        repeater.check_extender(band, EXT)
        repeater.check_connected(band, root)
        repeater.check_access_point(band, EXT)
    check_ready_again(scene, 2)


def open_and_transition(scene):
    repeater = Repeater(scene)
    repeater.start()
    root = repeater.add_root(RootBand("2g", "Open Oak"),
                             RootBand("5g", "Old and New Oak", KEY, "psk_sae"))
    scene.say("2.4 GHz of the root is open, 5 GHz is WPA2 and WPA3 at once")
    enrol(scene, repeater, root, "2g", "5g")
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    repeater.check_station("2g", "Open Oak", "none", "")
    # The supplicant notes what the exchange speaks of, and that has no word for WPA3.
    repeater.check_station("5g", "Old and New Oak", "wpa2", KEY)
    for band, row in root.bands.items():
        repeater.check_extender(band, row.ssid + "_EXT")
        repeater.check_connected(band, root)
        repeater.check_access_point(band, row.ssid + "_EXT")
    scene.check_equal("the open root's extender is open, the other's is not",
                      [repeater.stored(band, "settings2", "security")[0] for band in root.bands],
                      ["none", "wpa2"])
    check_ready_again(scene, 2)


def mesh_here_only(scene):
    repeater = Repeater(scene)
    scene.set_setting("wificommonCfg", "settings", "mesh_enable", "on")
    repeater.start()
    root = repeater.add_root(*[RootBand(band, SSID, KEY, more=["multi_ap=3"])
                               for band in ("2g", "5g")])
    scene.say("EasyMesh is on here; the root knows nothing of it")
    enrol(scene, repeater, root, "2g", "5g")
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    scene.check_equal("the stations asked for a backhaul",
                      [line for line in scene.commands_of(1) if " wps_pbc" in line],
                      station_commands("wps_pbc multi_ap=2"))
    scene.check_equal("nothing was written for a mesh",
                      [scene.read("/tmp/" + name) for name in
                       ("wps_wifi_ap_bh.txt", "_wps_wifi_sta.txt", "_wps_wifi_ap.txt")],
                      [None, None, None])
    for band in ("2g", "5g"):
        repeater.check_station(band, SSID, "wpa2", KEY)
        repeater.check_extender(band, EXT)
        repeater.check_connected(band, root)
        repeater.check_access_point(band, EXT)
    check_ready_again(scene, 2)


def mesh(scene):
    repeater = Repeater(scene)
    scene.set_setting("wificommonCfg", "settings", "mesh_enable", "on")
    repeater.start()
    root = repeater.add_root(*[RootBand(band, SSID, KEY, more=["multi_ap=3"])
                               for band in ("2g", "5g")])
    enrol(scene, repeater, root, "2g")
    scene.say("puts easymesh_support=1 into the learnt block: Debian's supplicant writes no such "
              "line")
    # It would write the file once more, without that line, when it has its link.
    scene.must_run("wpa_cli -p /var/run/wpa_supplicant -i wlan1-vxd set update_config 0")
    scene.must_run("sed -i '$ s/^}$/\\teasymesh_support=1\\n}/' "
                   "/tmp/run/wpa_supplicant-wlan1-vxd.conf")
    root.press("5g")
    scene.expect("station", "^wlan0-vxd: WPS-SUCCESS", "the enrolment on 5 GHz")
    finish(scene, repeater)

    check_success(scene, ["/etc/init.d/wps mesh_config_wifi"] * 2
                  + ["/etc/init.d/wps config_wifi", "/etc/init.d/wps re_kelm_info",
                     "/etc/init.d/wifi restart_from_wps"],
                  info_file(2, "success", "", "success", ""))
    scene.check_equal("the backhaul file holds the root's network for both bands",
                      repeater.learnt("wps_wifi_ap_bh"),
                      {"backhaul_ssid_2g": SSID, "backhaul_psk_key_2g": KEY,
                       "backhaul_ssid_5g": SSID, "backhaul_psk_key_5g": KEY})
    scene.check_equal("the plain station file holds the mesh switch alone", repeater.learnt(),
                      {"mesh_enable": "on"})
    scene.check_equal("the backhaul is stored",
                      [repeater.stored(band, "settings2", "backhaulSsid", "backhaulPassword")
                       for band in ("2g", "5g")], [(SSID, KEY)] * 2)
    for band in ("2g", "5g"):
        repeater.check_station(band, SSID, "wpa2", KEY, "_wps_wifi_sta")
        repeater.check_extender(band, EXT, "_wps_wifi_ap")
        repeater.check_connected(band, root)
        repeater.check_access_point(band, EXT)
    check_ready_again(scene, 2)


SIX_CONFIG = ["config settings 'settings1'", "\toption staBssEnabled 'on'",
              "\toption rootApSsid ''", "\toption security 'none'", "",
              "config settings 'settings2'", "\toption apBssEnabled 'on'",
              "\toption ssid 'Elm House 6G'", "\toption hide '0'", "\toption security 'none'"]


def six_ghz(scene):
    repeater = Repeater(scene, device_radios=3)
    scene.write("/etc/config/wifi6G_Cfg", SIX_CONFIG)
    for name, value in (("rfBand", "4"), ("staWpsAvailable", "11")):
        scene.set_setting("wpsCfg", "settings", name, value)
    repeater.start()
    root = repeater.add_root(RootBand("2g", SSID, KEY), RootBand("5g", SSID, KEY))
    near = root.mac("5g")[:-2] + "52"
    scene.say("the simulated air has no 6 GHz: the scenario writes that band's scan list")
    scene.write("/run/air.6g", [json.dumps([{
        "mac": near, "ssid": SSID, "channel": "1", "security": "sae_only",
        "wpa_encryption": "aes"}])])
    enrol(scene, repeater, root, "2g", "5g")
    finish(scene, repeater)

    check_success(scene, SUCCESS_SCRIPTS, info_file(2, "success", "", "success", ""))
    scene.check_equal("no command started 6 GHz",
                      [line for line in scene.commands_of(1) if " wps_pbc" in line],
                      station_commands("wps_pbc"))
    scene.check_equal("the 6 GHz supplicant was asked for nothing",
                      scene.texts("station", "^-vxd: WPS-(PBC|CRED|SUCCESS)"), [])
    scene.check("the daemon mirrored to 6 GHz", scene.texts(
        "console", r"patching wpsCfg\[band 3\] with rootAP " + SSID), "no such line")
    repeater.check_station("6g", SSID, "sae_only", KEY)
    repeater.check_extender("6g", EXT)
    scene.check_equal("the 6 GHz supplicant is set up for WPA3 with them",
                      [tuple(block.get(name) for name in ("ssid", "key_mgmt", "psk"))
                       for block in repeater.blocks("6g")],
                      [('"%s"' % SSID, "SAE", '"%s"' % KEY)])
    for band in ("2g", "5g"):
        repeater.check_station(band, SSID, "wpa2", KEY)
        repeater.check_connected(band, root)
    check_ready_again(scene, 2)


SCENARIOS = [
    Scenario("repeater", "A repeater enrols with its root access point on both bands.", both_bands,
             [router_joined], RADIOS),
    Scenario("repeater-2g", "Only 2.4 GHz enrols; 5 GHz gets the same credentials and joins too.",
             mirrored, [router_joined, enrolled_alone, given_the_key], RADIOS),
    Scenario("repeater-near", "The same with another name on 5 GHz, found by its near address.",
             mirrored_by_nearness, [router_joined, enrolled_alone, given_the_key], RADIOS),
    Scenario("repeater-5g", "Only 5 GHz enrols; 2.4 GHz gets the same credentials and joins too.",
             mirrored_from_5g, [router_joined, enrolled_alone, given_the_key], RADIOS),
    Scenario("repeater-alone", "The repeater's button is pressed, the root's is not.",
             nobody_presses, [gave_up("no root was pushed")], RADIOS),
    Scenario("repeater-silent", "5 GHz stays silent; the falling estimate ends the attempt early.",
             silent_band, [router_joined, enrolled_alone, estimate_fell], RADIOS),
    Scenario("repeater-connected", "2.4 GHz is connected already; only 5 GHz is started.",
             already_connected, [router_joined, enrolled_alone], RADIOS),
    Scenario("repeater-factory", "A new repeater: its access points are switched on and follow.",
             factory, [router_joined, seen("console", "update factory_mode = 1",
                                           "it had known no root before")], RADIOS),
    Scenario("repeater-mesh", "EasyMesh on both sides: the backhaul is stored, the mesh restarts.",
             mesh, [router_joined, seen("script", r"^1 \S+ mesh_config_wifi",
                                        "the backhaul of the mesh was stored")], RADIOS),
    Scenario("repeater-no-mesh", "EasyMesh here, a root without it: the normal way is taken.",
             mesh_here_only, [router_joined, seen("command", "wps_pbc multi_ap=2$",
                                                  "it had asked for a mesh")], RADIOS),
    Scenario("repeater-open-wpa3", "The root is open on 2.4 GHz and WPA2 with WPA3 on 5 GHz.",
             open_and_transition, [router_joined], RADIOS),
    Scenario("repeater-overlap", "Two root access points are pushed; the repeater joins neither.",
             two_roots, [overlapped], 6),
    Scenario("repeater-rogue", "A rogue root is named like an event; the right one enrols.",
             rogue_root, [router_joined, seen("station", "authenticate with .*SSID='(WPS-SUCCESS)'",
                                              "the rogue \"{0}\" did not stop it")], 6),
    Scenario("repeater-6g", "A 6 GHz band is never started; it gets the credentials as WPA3.",
             six_ghz, [router_joined, given_the_key], 5),
]
