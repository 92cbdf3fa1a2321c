# SPDX-License-Identifier: ISC
"""Attempts that fail: a wrong PIN, a client that leaves, a router of which something is broken."""

import base64

from router.access_point import (FAILED_COMMANDS, KEY, PRESS_COMMANDS, SSIDS, STARTUP_COMMANDS,
                                 hostapd_commands)
from router.attempt import (PIN, START, WALK_TIME_S, Scenario, announce, check_ready_again,
                            info_file)
from router.sentences import gave_up, joined, nobody_joined, seen

ENTERED_PIN, PRINTER_PIN = "24681353", "12345670"


def press(scene, *interfaces, since=0):
    """The button, until hostapd waits on these interfaces."""
    scene.press_button()
    for interface in interfaces:
        scene.expect("hostapd", "^%s: WPS-PBC-ACTIVE" % interface, "hostapd's push-button method",
                     since=since)


def run_out(scene, run=1):
    """The walk time is over by the router's clock; the daemon ends and is started anew."""
    scene.move_clock(WALK_TIME_S)
    scene.expect_exit(run)
    scene.wait_daemon_ready(run + 1)


def check_failed(scene, start_commands):
    """The end of an attempt in which nobody joined: the time-out told, the service restarted."""
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + start_commands + FAILED_COMMANDS)
    scene.check_equal("the daemon announced start, stop and failure", scene.announcements(),
                      [(1, 11, 11), (2, 12, 12), (2, 4, 4)])
    scene.check_equal("/tmp/kelm.info tells the time-out", scene.read_json("/tmp/kelm.info"),
                      info_file(2, "timeout", "", "timeout", ""))
    scene.check_equal("/tmp/wps_result tells the failure", scene.read("/tmp/wps_result"), "0\n")
    check_ready_again(scene, 2)


def wrong_pin(scene):
    scene.start_router()
    printer = scene.start_client("printer", "2g")
    scene.begin()
    scene.say("the PIN that is entered is not the printer's")
    scene.ask(START, PIN, ENTERED_PIN)
    scene.expect("command", "^1 .* -i wlan0 wps_pin", "the PIN method")
    printer.cli("wps_pin any %s" % PRINTER_PIN)
    scene.expect("hostapd", "^wlan1: WPS-FAIL .*config_error=18", "the end of the exchange")
    scene.expect("client0", ": WPS-FAIL .*config_error=18", "the end of the exchange")
    run_out(scene)
    check_failed(scene, [announce(1, 11, 11, 0)]
                 + hostapd_commands("wps_pin any %s" % ENTERED_PIN))
    scene.check_not_joined(printer)


# Of a tenth of a second the slowed client gets two milliseconds.
SLOW = "/run/slow"
SLOW_SCRIPT = """mkdir -p {0}
mount -t cgroup2 cgroup2 {0}
echo +cpu >{0}/cgroup.subtree_control
mkdir {0}/client
echo 2000 100000 >{0}/client/cpu.max
cat /run/client0/supplicant >{0}/client/cgroup.procs""".format(SLOW)
# Who passes the client's log on also stops it. An exchange takes a tenth of a second: it would be
# over before the scenario has heard that it runs.
STOP_SCRIPT = r"""sed -i '/read -r emit_line; do/a\
case $emit_line in *" (WSC) selected") kill -STOP $(cat /run/client0/supplicant) ;; esac
' /lib/functions/router.sh"""


def client_leaves(scene):
    scene.start_router()
    scene.must_run(STOP_SCRIPT)
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1", "wlan0")
    scene.must_run(SLOW_SCRIPT)
    client.tell("wps_pbc")
    scene.expect("client0", r"EAP vendor 14122 method 1 \(WSC\) selected", "the exchange")
    scene.say("the phone has been carried away in the middle of the exchange")
    scene.expect("hostapd", "^wlan1: CTRL-EVENT-EAP-TIMEOUT-FAILURE", "the end of hostapd's tries")
    run_out(scene)
    check_failed(scene, PRESS_COMMANDS)
    scene.check_equal("hostapd gave its key to nobody",
                      scene.texts("hostapd", "WPS-REG-SUCCESS"), [])


def open_both(scene):
    """Both networks are open: the first client's push gives one a key, which has to be stored."""
    for package in ("wifi2G_Cfg", "wifi5G_Cfg"):
        scene.set_setting(package, "settings2", "security", "none")
        scene.set_setting(package, "settings2", "wpsConfigured", "0")


def check_still_open(scene):
    scene.check_equal("the stored network is open as before",
                      scene.setting("wifi2G_Cfg", "settings2", "security"), "none")


def disk_full(scene):
    open_both(scene)
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.say("/tmp has no room left")
    scene.must_run("mount -o remount,size=1m /tmp && ! cat /dev/zero >/tmp/full")
    scene.begin()
    press(scene, "wlan1")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    # hostapd's own file was cut to nothing, and its access point went with it.
    scene.expect("hostapd", "WPS: Failed to reload the updated configuration", "hostapd's loss")
    scene.expect_exit(1)
    scene.expect_exit(2)
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon announced start, stop and an error on 2.4 GHz",
                      scene.announcements(), [(1, 11, 11), (2, 12, 12), (2, 3, 4)])
    scene.check_equal("it had nothing stored, and restarted the service alone",
                      [line for line in scene.commands_of(1) if line.startswith("/etc/")],
                      ["/etc/init.d/wps restart"])
    scene.check_equal("no credential file is left", scene.read("/tmp/wps_wifi_ap.txt"), None)
    check_still_open(scene)
    scene.check_exit(2, "status 255")
    scene.check_equal("without the 2.4 GHz access point the next run gives up",
                      scene.read("/tmp/kelm.pid"), None)


HUNG = "sleep 100000"


def script_hangs(scene):
    scene.must_run("sed -i 's/^config_wifi) config_wifi ;;/config_wifi) %s ;;/' /etc/init.d/wps;"
                   " grep -q '%s' /etc/init.d/wps" % (HUNG, HUNG))
    open_both(scene)
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1")
    client.tell("wps_pbc")
    scene.expect("script", "^1 /etc/init.d/wps config_wifi", "the script that stores the key")
    scene.say("the script hangs")
    scene.move_clock(WALK_TIME_S)
    scene.expect("console", r"left running after \d+ s \(the attempt ends\): .* config_wifi",
                 "the daemon's limit")
    scene.expect_count("script", "^1 /etc/init.d/wps config_wifi", 2, "the script, once more")
    scene.say("the script hangs again, and the owner restarts the service")
    scene.must_run("/etc/init.d/wps restart")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon left the second one running, too", len(scene.texts(
        "console", r"left running after \d+ s \(the daemon ends\): .* config_wifi")), 1)
    scene.check_equal("the script was called twice, and the wireless was not restarted",
                      [line for line in scene.commands_of(1)
                       if line.startswith(("/etc/init.d/wifi", "/etc/init.d/wps config"))],
                      ["/etc/init.d/wps config_wifi"] * 2)
    scene.check_equal("/tmp/wps_result tells the success", scene.read("/tmp/wps_result"), "1\n")
    check_still_open(scene)
    check_ready_again(scene, 2)


def broker_dies(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1", "wlan0")
    scene.say("the ubus broker dies")
    scene.must_run("kill -9 $(pidof ubusd)")
    scene.expect("console", "Lost the connection to ubus", "the daemon's complaint")
    status, _ = scene.run("""ubus send wps_cli '{"action":2,"method":1}'""")
    scene.check("a page can no longer cancel the attempt", status != 0, status)
    run_out(scene)
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + FAILED_COMMANDS)
    scene.check_equal("of what it announced the start alone was heard", scene.announcements(),
                      [(1, 11, 11)])
    # What is published is written to that file when it has gone out.
    scene.check_equal("/tmp/kelm.info tells the time-out", scene.read_json("/tmp/kelm.info"),
                      info_file(2, "timeout", "", "timeout", ""))
    scene.check_equal("/tmp/wps_result tells the failure", scene.read("/tmp/wps_result"), "0\n")
    scene.check_not_joined(client)
    check_ready_again(scene, 2)


def let_in(scene, client, since):
    """Another press, now that the router is whole again."""
    press(scene, "wlan1", since=since)
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment", since=since)
    scene.expect_exit(1)
    scene.check_exit(1, "status 0")
    scene.check_joined(client, "2g", SSIDS["2g"], KEY)


def check_refused(scene):
    scene.check_equal("the daemon ran no command for the press", scene.commands_of(1),
                      STARTUP_COMMANDS)
    scene.check_equal("it announced nothing", scene.announcements(), [])


def hostapd_hangs(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.say("hostapd hangs")
    scene.must_run("kill -STOP $(cat /run/hostapd.pid)")
    scene.press_button()
    scene.expect("console", "Rebuild worker socket failed", "the daemon's refusal")
    check_refused(scene)
    scene.say("hostapd goes on, and the button is pressed again")
    again = scene.mark()
    scene.must_run("kill -CONT $(cat /run/hostapd.pid)")
    let_in(scene, client, again)


def start_marker(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.say("the wireless service has left its mark behind: it says that it is starting")
    scene.must_run(": >/tmp/wifid_is_starting")
    # The daemon tells why it refuses when its log is raised.
    scene.raise_log(3)
    scene.begin()
    scene.press_button()
    scene.expect("console", "wps do nothing because of wifi starting", "the daemon's refusal")
    check_refused(scene)
    scene.say("the mark is taken away, and the button is pressed again")
    again = scene.mark()
    scene.must_run("rm /tmp/wifid_is_starting")
    let_in(scene, client, again)


def daemon_killed(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1", "wlan0")
    scene.say("the daemon is killed")
    scene.must_run("kill -9 $(cat /tmp/kelm.pid)")
    scene.expect_exit(1)
    scene.check_exit(1, "signal 9")
    scene.check_equal("its last word is that the attempt runs", scene.announcements(),
                      [(1, 11, 11)])
    scene.check_equal("/tmp/wps_result tells neither success nor failure",
                      scene.read("/tmp/wps_result"), "-1\n")
    scene.say("a start alone does not bring the daemon back: its pid file is there")
    scene.must_run("/etc/init.d/wps start")
    scene.expect_exit(2)
    scene.check_exit(2, "status 255")
    scene.say("the service is restarted, which takes the pid file away")
    scene.must_run("/etc/init.d/wps restart")
    scene.expect("command", "^3 hostapd_cli .* -i wlan0 wps_ap_pin", "the daemon's start")
    check_ready_again(scene, 3)
    scene.check_not_joined(client)


def hidden(scene):
    scene.set_setting("wifi2G_Cfg", "settings2", "hide", "1")
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan0")
    client.tell("wps_pbc")
    run_out(scene)
    scene.check_equal("hostapd offered nothing on 2.4 GHz",
                      scene.texts("hostapd", "^wlan1: WPS-"), [])
    check_failed(scene, PRESS_COMMANDS)
    scene.check_not_joined(client)


def check_success_told(scene):
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon announced start, stop and a success on 2.4 GHz",
                      scene.announcements(), [(1, 11, 11), (2, 12, 12), (2, 2, 4)])


def wpa3_only(scene):
    scene.set_setting("wifi2G_Cfg", "settings2", "security", "wpa3")
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    check_success_told(scene)
    scene.check_equal("the phone has the key on file, for a network of WPA2",
                      [(net.get("psk"), net.get("key_mgmt")) for net in client.saved_networks()],
                      [('"%s"' % KEY, "WPA-PSK")])

    def probe():
        state = client.status().get("wpa_state")
        return state == "SCANNING", state
    good, seen_state = scene.settles(probe, 30)
    scene.check("the phone looks for a network that it could use", good, seen_state)
    scene.say("the phone has a key for WPA2, and looks for such a network")
    scene.check_equal("the phone was never on the network",
                      scene.texts("client0", "CTRL-EVENT-CONNECTED"), [])
    check_ready_again(scene, 2)


def attribute(number, value):
    return number.to_bytes(2, "big") + len(value).to_bytes(2, "big") + value


def credential(ssid, key):
    """A network as hostapd hands it out: WPA2 with a passphrase, AES."""
    return attribute(0x100e, b"".join([
        attribute(0x1026, b"\1"), attribute(0x1045, ssid.encode()), attribute(0x1003, b"\0\x20"),
        attribute(0x100f, b"\0\x08"), attribute(0x1027, key.encode()),
        attribute(0x1020, b"\xff" * 6)]))


WRONG_KEY = "over the old elm"


def wrong_key(scene):
    scene.must_run("echo %s | base64 -d >/run/wrong.cred"
                   % base64.b64encode(credential(SSIDS["2g"], WRONG_KEY)).decode())
    scene.must_run("sed -i 's|\"eap_server=1\"|& skip_cred_build=1 extra_cred=/run/wrong.cred|' "
                   "/etc/init.d/wifi; grep -q wrong.cred /etc/init.d/wifi")
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    press(scene, "wlan1")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    scene.expect("hostapd", "^wlan1: AP-STA-POSSIBLE-PSK-MISMATCH", "hostapd's doubt")
    scene.expect("client0", "CTRL-EVENT-SSID-TEMP-DISABLED .*WRONG_KEY", "the client's try")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    check_success_told(scene)
    scene.check_equal("the phone has the other key on file", client.saved_key(), WRONG_KEY)
    scene.check_equal("the phone was never on the network",
                      scene.texts("client0", "CTRL-EVENT-CONNECTED"), [])
    check_ready_again(scene, 2)


TOLD_SUCCESS = seen("bus", r'"wps": \{"action":2,"2g_status":2', "the daemon told a success")
JOINED_LATER = joined("phone", again=True)

SCENARIOS = [
    Scenario("wrong-pin", "The PIN that is entered is not the printer's.", wrong_pin,
             [seen("client0", "WPS-FAIL .*config_error=18",
                   "the printer refused the PIN that was entered"),
              gave_up("nobody joined", "the PIN was entered")]),
    Scenario("client-leaves", "The phone is carried away in the middle of the exchange.",
             client_leaves, [seen("hostapd", "CTRL-EVENT-EAP-TIMEOUT-FAILURE",
                                  "the phone fell silent in the middle of the exchange"),
                             gave_up("nobody joined")]),
    Scenario("wrong-key", "hostapd hands out another key than the network has.", wrong_key,
             [TOLD_SUCCESS, seen("client0", "reason=WRONG_KEY",
                                 "but the phone was told that its key is wrong"), joined("phone")]),
    Scenario("hidden", "The 2.4 GHz network is hidden; hostapd offers no WPS there.", hidden,
             [seen("hostapd", "ignore_broadcast_ssid configuration forced WPS to be disabled",
                   "there is no WPS for the hidden network"), gave_up("nobody joined")]),
    Scenario("wpa3-only", "The 2.4 GHz network is WPA3 only; the phone is given a key of no use.",
             wpa3_only, [TOLD_SUCCESS, seen("demo", "^the phone has a key for WPA2",
                                            "but the phone's key is for WPA2"),
                         joined("phone")]),
    Scenario("disk-full", "/tmp is full; the key that the open network got cannot be stored.",
             disk_full, [seen("console", "new settings not stored",
                              "the new key could not be stored"),
                         seen("exit", r"^2 daemon \d+ status 255",
                              "the next daemon found no access point")]),
    Scenario("script-hangs", "The script hangs that stores the key that the open network got.",
             script_hangs, [seen("console", r"left running after \d+ s \(the attempt ends\)",
                                 "the script hung until the attempt was over"),
                            seen("console", r"not run \(the daemon ends\): /etc/init.d/wifi",
                                 "the wireless was not restarted")]),
    Scenario("broker-dies", "The ubus broker dies in the middle of an attempt.", broker_dies,
             [seen("console", "Lost the connection to ubus",
                   "the daemon lost the bus in the middle of the attempt"), nobody_joined]),
    Scenario("hostapd-hangs", "hostapd hangs when the button is pressed.", hostapd_hangs,
             [seen("console", "Rebuild worker socket failed",
                   "the daemon got no answer from hostapd and refused the press"), JOINED_LATER]),
    Scenario("start-marker", "The wireless service says for ever that it is starting.",
             start_marker, [seen("console", "wps do nothing because of wifi starting",
                                 "the daemon refused the press"), JOINED_LATER]),
    Scenario("daemon-killed", "The daemon is killed in mid-attempt, and its pid file stays.",
             daemon_killed, [seen("exit", r"^1 daemon \d+ signal (\d+)",
                                  "the daemon was killed by signal {0}"),
                             seen("exit", r"^2 daemon \d+ status 255",
                                  "its pid file kept the next one from starting"), nobody_joined]),
]
