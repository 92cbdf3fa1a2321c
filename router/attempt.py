# SPDX-License-Identifier: ISC
"""What the scenarios of both run modes share: their row in the table, and the daemon's outputs."""

BUTTON, PIN = 1, 2
START, CANCEL = 1, 2
WALK_TIME_S = 125
CLEAN_COMMANDS = ["rm /tmp/wps_wifi_ap.txt", "rm /tmp/wps_wifi_sta.txt"]


class Scenario:
    """A row of the table: what it is called, what it shows, how many radios it needs.

    told: the parts of the sentence that tells afterwards what happened (sentences.py).
    face: which router it is played on, a maker's "firmware" or "stock" OpenWrt.
    """

    def __init__(self, name, sentence, play, told, radios=3, face="firmware"):
        self.name = name
        self.sentence = sentence
        self.play = play
        self.told = told
        self.radios = radios
        self.face = face


def announce(action, *codes):
    """The command that publishes the state, as the recorder writes it."""
    names = ("2g_status", "5g_status", "5g2_status")
    members = ['"action":%d' % action] + ['"%s":%d' % pair for pair in zip(names, codes)]
    return "ubus send wps '{%s}'" % ",".join(members)


def info_file(action, status_2g, mac_2g, status_5g, mac_5g):
    return {"wps_action": action, "wl0_wps_status": status_2g, "wl0_wps_sta_mac": mac_2g,
            "wl1_wps_status": status_5g, "wl1_wps_sta_mac": mac_5g}


def check_ready_again(scene, run):
    """The restarted service is a new daemon, waiting under a pid file of its own."""
    pid = (scene.read("/tmp/kelm.pid") or "").strip()
    _, name = scene.run("cat /proc/%s/comm" % (pid or "none"))
    scene.check("a new daemon waits for the next attempt (run %d)" % run,
                name.strip() == "kelm" and scene.exit_of(run) is None,
                "process %s is %s" % (pid, name.strip()))
