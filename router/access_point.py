# SPDX-License-Identifier: ISC
"""What the scenarios of an access point share: its networks, the daemon's commands, a success."""

from router.attempt import CLEAN_COMMANDS, announce, check_ready_again, info_file

SSIDS = {"2g": "Elm House", "5g": "Elm House 5G"}
KEY = "under the old elm"

# The commands of every access-point run: first those of its start, then those of a press.
STARTUP_COMMANDS = [
    "hostapd_cli -p /var/run/hostapd -i wlan1 wps_ap_pin disable",
    "hostapd_cli -p /var/run/hostapd -i wlan0 wps_ap_pin disable",
]


def hostapd_commands(command):
    return ["hostapd_cli -p /var/run/hostapd -i %s %s" % (interface, command)
            for interface in ("wlan1", "wlan0")]


PRESS_COMMANDS = ([announce(1, 11, 11, 0), "killall wpa_cli", "nvram get multiap_mode"]
                  + hostapd_commands("wps_pbc"))
CANCEL_COMMANDS = hostapd_commands("wps_cancel") + [announce(2, 12, 12, 0)]
FAILED_COMMANDS = CLEAN_COMMANDS + CANCEL_COMMANDS + [announce(2, 4, 4, 0),
                                                      "/etc/init.d/wps restart"]


def success_outcome(scene, client, band, before=()):
    """The checks of an attempt that let a client of a secured band in.

    before: what had been announced until its start.
    """
    mac = client.status()["address"]
    first = band == "2g"
    codes = (2, 4) if first else (4, 2)
    wanted = info_file(2, "success" if first else "ok", mac if first else "",
                       "ok" if first else "success", "" if first else mac)
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon announced start, stop and result", scene.announcements(),
                      list(before) + [(1, 11, 11), (2, 12, 12), (2,) + codes])
    scene.check_equal("/tmp/kelm.info tells the success and the client's address",
                      scene.read_json("/tmp/kelm.info"), wanted)
    scene.check_joined(client, band, SSIDS[band], KEY)
    check_ready_again(scene, 2)
