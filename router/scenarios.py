# SPDX-License-Identifier: ISC
"""The scenarios of the virtual router: a function of steps and checks for each, and their table."""

from router import broken_scenarios, repeater_scenarios, sentences, stock_scenarios
from router.access_point import (CANCEL_COMMANDS, FAILED_COMMANDS, KEY, PRESS_COMMANDS, SSIDS,
                                 STARTUP_COMMANDS, hostapd_commands, success_outcome)
from router.attempt import (BUTTON, CANCEL, CLEAN_COMMANDS, PIN, START, WALK_TIME_S, Scenario,
                            announce, check_ready_again, info_file)
from router.machine import MachineError
from router.scene import INTERFACES
from router.sentences import (came_too_late, cancelled, gave_up, got_nothing, joined, nobody_joined,
                              overlapped, registrar_joined, seen, unheard_press)


def push_button(scene, band):
    scene.start_router()
    client = scene.start_client("phone", band)
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^%s: WPS-PBC-ACTIVE" % INTERFACES[band],
                 "hostapd's push-button method")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^%s: WPS-REG-SUCCESS" % INTERFACES[band], "the client's enrolment")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    success_outcome(scene, client, band)
    done = announce(2, *((2, 4, 0) if band == "2g" else (4, 2, 0)))
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CLEAN_COMMANDS + CANCEL_COMMANDS
                      + [done, "/etc/init.d/wps restart"])
    scene.check_equal("/tmp/wps_result tells the success", scene.read("/tmp/wps_result"), "1\n")
    scene.check_equal("/tmp/wpsactive is set", scene.read("/tmp/wpsactive"), "1\n")


def push_button_2g(scene):
    push_button(scene, "2g")


def push_button_5g(scene):
    push_button(scene, "5g")


HOSTAPD_USER = "101"
# CAP_NET_ADMIN and CAP_NET_RAW, as the bits of /proc.
RADIO_RIGHTS = 1 << 12 | 1 << 13


def check_hostapd_user(scene):
    text = scene.must_run("cat /proc/$(cat /run/hostapd.pid)/status")
    status = dict(line.split(":\t", 1) for line in text.splitlines())
    name, users, rights = status["Name"], status["Uid"].split(), status["CapEff"]
    scene.say("the process that served the phone is %s, users %s, rights %s"
              % (name, " ".join(users), rights))
    scene.check_equal("that was hostapd as user %s" % HOSTAPD_USER, (name, users),
                      ("hostapd", [HOSTAPD_USER] * 4))
    scene.check_equal("it had the rights to the radios and no others", int(rights, 16),
                      RADIO_RIGHTS)


def check_attached(scene):
    """hostapd answered to both bands' sockets, and nobody else could have."""
    for band in ("2.4G", "5G"):
        heard = scene.texts("console", r"processing wpsEvent\[%s\]: <3>WPS-PBC-ACTIVE" % band)
        scene.check("the daemon was attached on %s" % band, heard, heard)

    def probe():
        _, output = scene.run("stat -c '%u %a' /tmp/wpa_ctrl_$(cat /tmp/kelm.pid)-*")
        return output.splitlines() == [HOSTAPD_USER + " 600"] * 2, output.splitlines()
    good, seen = scene.settles(probe, 20)
    scene.check("the waiting daemon's sockets let that user answer and nobody else", good, seen)


def hostapd_user(scene):
    scene.set_setting("wificommonCfg", "settings", "hostapdUser", HOSTAPD_USER)
    push_button(scene, "2g")
    check_hostapd_user(scene)
    check_attached(scene)


def unconfigured(scene):
    for package in ("wifi2G_Cfg", "wifi5G_Cfg"):
        scene.set_setting(package, "settings2", "security", "none")
        scene.set_setting(package, "settings2", "wpsConfigured", "0")
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan1: WPS-PBC-ACTIVE", "hostapd's push-button method")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    scene.expect("script", "^1 /etc/init.d/wifi", "the restart of the wireless")
    restarted = scene.mark()
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    scene.expect("client0", "CTRL-EVENT-CONNECTED", "the client's return", since=restarted)

    key = scene.setting("wifi2G_Cfg", "settings2", "password")
    scene.check("a key was chosen and stored", 8 <= len(key) <= 64 and key != KEY, key)
    learnt = scene.read_json("/tmp/wps_wifi_ap.txt") or {}
    scene.check_equal("the daemon's credential file holds that key for 2.4 GHz alone",
                      (learnt.get("password_2g"), learnt.get("enable_2g"), "ssid_5g" in learnt),
                      (key, "on", False))
    _, mode = scene.run("stat -c %a /tmp/wps_wifi_ap.txt")
    scene.check_equal("only its owner can read the credential file", mode.strip(), "600")
    scene.check_exit(1, "status 0")
    calls = [line for line in scene.commands_of(1) if line.startswith("/etc/init.d/")]
    scene.check_equal("at its end the daemon told the result again and restarted the wireless",
                      calls[-2:],
                      ["/etc/init.d/wps re_kelm_info", "/etc/init.d/wifi force_restart"])
    scene.check("before that it had the settings stored",
                len(calls) > 2 and set(calls[:-2]) == {"/etc/init.d/wps config_wifi"}, calls[:-2])
    scene.check("the announced result is success on 2.4 GHz", (2, 2, 4) in scene.announcements(),
                scene.announcements())
    conf = scene.read("/tmp/run/hostapd-wlan1.conf") or ""
    lines = conf.splitlines()
    scene.check("the restarted hostapd is configured with the key",
                "wps_state=2" in lines and ("wpa_passphrase=" + key in lines
                                            or "wpa_psk=" + key in lines),
                [line for line in lines if line.startswith(("wps_state", "wpa"))])
    scene.check_equal("5 GHz, which no client used, is as it was",
                      scene.setting("wifi5G_Cfg", "settings2", "security"), "none")
    scene.check_joined(client, "2g", SSIDS["2g"], key)
    check_ready_again(scene, 2)


def client_pin(scene):
    scene.start_router()
    client = scene.start_client("printer", "2g")
    scene.begin()
    pin = client.cli("wps_pin any").splitlines()[-1]
    scene.say("the printer shows its PIN: %s" % pin)
    scene.ask(START, PIN, pin)
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment", 120)
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    success_outcome(scene, client, "2g")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + [announce(1, 11, 11, 0)]
                      + hostapd_commands("wps_pin any %s" % pin) + CLEAN_COMMANDS
                      + CANCEL_COMMANDS + [announce(2, 2, 4, 0), "/etc/init.d/wps restart"])
    scene.check_equal("/tmp/wps_result tells the success", scene.read("/tmp/wps_result"), "1\n")
    scene.check_equal("a PIN start leaves no mark in /tmp/wpsactive", scene.read("/tmp/wpsactive"),
                      None)


def access_point_pin(scene):
    pin = scene.setting("wpsCfg", "settings", "pinCode")
    scene.set_setting("wpsCfg", "settings", "pinEnabled", "on")
    scene.start_router()
    # The laptop's own program joins the new network afterwards. Its supplicant would derive the
    # key in the middle of the exchange, and hostapd does not wait as long as that takes here.
    registrar = scene.start_client("laptop", "2g", "wps_cred_processing=1")
    scene.begin()
    scene.say("a laptop acts as external registrar: it knows the PIN %s on the label" % pin)
    ssid, key = "Laptop chose this", "a key from the laptop"
    tries = give_settings(scene, registrar, "%s '%s' WPA2PSK CCMP '%s'" % (pin, ssid, key))
    registrar.join(ssid, key)
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)

    scene.check_equal("the daemon started by setting the PIN on both bands",
                      scene.commands_of(1)[:2], hostapd_commands("wps_ap_pin set %s" % pin))
    stored = tuple(scene.setting("wifi2G_Cfg", "settings2", option)
                   for option in ("ssid", "security", "password"))
    scene.check_equal("the stored settings are the registrar's", stored, (ssid, "wpa2", key))
    scene.check_equal("5 GHz keeps its own", scene.setting("wifi5G_Cfg", "settings2", "ssid"),
                      SSIDS["5g"])
    learnt = scene.read_json("/tmp/wps_wifi_ap.txt") or {}
    scene.check_equal("the daemon's credential file holds them for 2.4 GHz",
                      (learnt.get("ssid_2g"), learnt.get("sec_2g"), learnt.get("password_2g")),
                      (ssid, "wpa2", key))
    scene.check_exit(1, "status 0")
    scene.check_restart(1, ["/etc/init.d/wps config_wifi"] * tries
                        + ["/etc/init.d/wps re_kelm_info", "/etc/init.d/wps restart"])
    scene.check_joined(registrar, "2g", ssid, key)
    check_ready_again(scene, 2)


def give_settings(scene, registrar, settings):
    """Has the registrar send settings until hostapd saw the exchange end; returns the tries.

    hostapd restarts its access point a tenth of a second after taking the settings; on a busy
    machine that can cut off the exchange's last message, and a registrar then tries again.
    """
    for count in range(1, 4):
        before = scene.mark()
        registrar.tell("wps_reg 02:00:00:00:01:00 " + settings)
        scene.expect("hostapd", "^wlan1: WPS-NEW-AP-SETTINGS", "the registrar's new settings",
                     since=before)
        if scene.happens("hostapd", "^wlan1: WPS-SUCCESS", "the exchange's end", 10, since=before):
            return count
        scene.say("the exchange was cut off at its last message; the laptop tries again")
    raise MachineError("the registrar's exchange did not end in three tries")


# What a neighbour's device can be called, each of them hostapd's word for an event.
EVENT_NAMES = ["WPS-NEW-AP-SETTINGS", "WPS-SUCCESS", "WPS-REG-SUCCESS", "WPS-TIMEOUT",
               "WPS-OVERLAP-DETECTED", "WPS-PBC-DISABLE"]


def hear_of(scene, neighbour):
    """Gives a neighbour one name after the other, until the daemon has been told of each."""
    for name in EVENT_NAMES:
        before = scene.mark()
        neighbour.tell("set device_name " + name)
        scene.expect("console", r"processing wpsEvent\[2.4G\]: <3>WPS-PIN-NEEDED .*\[%s\|" % name,
                     "the daemon's hearing of " + name, since=before)


def stored_networks(scene):
    return [scene.setting(package, "settings2", option)
            for package in ("wifi2G_Cfg", "wifi5G_Cfg")
            for option in ("ssid", "security", "password")]


def named_like_an_event(scene):
    scene.start_router()
    before = stored_networks(scene)
    scene.begin()
    scene.say("a device near the router tries a PIN that nobody has entered, again and again, and "
              "is called by one event of hostapd's after the other")
    neighbour = scene.start_client("neighbour", "2g")
    neighbour.cli("wps_pin 02:00:00:00:01:00 12345670")
    hear_of(scene, neighbour)
    scene.check_equal("idle, the daemon ran nothing since its start", scene.commands_of(1),
                      STARTUP_COMMANDS)
    scene.check_equal("idle, it announced nothing", scene.announcements(), [])

    phone = scene.start_client("phone", "2g")
    scene.press_button()
    scene.expect("hostapd", "^wlan1: WPS-PBC-ACTIVE", "hostapd's push-button method")
    hear_of(scene, neighbour)
    scene.check_equal("in mid-attempt it goes on waiting", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS)
    phone.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    neighbour.tell("wps_cancel")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    success_outcome(scene, phone, "2g")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CLEAN_COMMANDS + CANCEL_COMMANDS
                      + [announce(2, 2, 4, 0), "/etc/init.d/wps restart"])
    scene.check_equal("the stored networks are as they were", stored_networks(scene), before)


def overlap(scene):
    scene.start_router()
    clients = [scene.start_client(name, "both") for name in ("phone", "tablet")]
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.push_together(clients)
    for interface in ("wlan1", "wlan0"):
        scene.expect("hostapd", "^%s: WPS-OVERLAP-DETECTED" % interface, "the overlap")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)

    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + FAILED_COMMANDS)
    scene.check_equal("the daemon announced start, stop and failure", scene.announcements(),
                      [(1, 11, 11), (2, 12, 12), (2, 4, 4)])
    scene.check_equal("/tmp/kelm.info tells the overlap", scene.read_json("/tmp/kelm.info"),
                      info_file(2, "overlap", "", "overlap", ""))
    scene.check_equal("/tmp/wps_result tells the failure", scene.read("/tmp/wps_result"), "0\n")
    for client in clients:
        scene.check_not_joined(client)
    check_ready_again(scene, 2)


def nobody_comes(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.say("nobody pushes a client; the daemon's limit is %d seconds by the clock" % WALK_TIME_S)
    scene.move_clock(WALK_TIME_S - 15)
    early = scene.happens("console", "wps Timeout", "an early end", 3)
    scene.check("shortly before the limit the daemon still waits", early is None,
                early.text if early else "no time-out")
    scene.move_clock(15)
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)

    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + FAILED_COMMANDS)
    scene.check_equal("the daemon announced start, stop and failure", scene.announcements(),
                      [(1, 11, 11), (2, 12, 12), (2, 4, 4)])
    scene.check_equal("/tmp/kelm.info tells the time-out", scene.read_json("/tmp/kelm.info"),
                      info_file(2, "timeout", "", "timeout", ""))
    scene.check_equal("/tmp/wps_result tells the failure", scene.read("/tmp/wps_result"), "0\n")
    scene.check_waiting_stopped()
    scene.check_not_joined(client)
    check_ready_again(scene, 2)


def cancel(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.ask(CANCEL, BUTTON)
    scene.expect("bus", r'"wps":.*"action":2', "the announcement of the end")
    scene.say("now the client is pushed, too late")
    client.tell("wps_pbc")
    joined = scene.happens("hostapd", "WPS-REG-SUCCESS", "an enrolment all the same", 10)

    scene.check("nobody is let in after the cancel", joined is None,
                joined.text if joined else "no enrolment")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CANCEL_COMMANDS)
    scene.check_equal("the daemon announced start and end", scene.announcements(),
                      [(1, 11, 11), (2, 12, 12)])
    scene.check_equal("/tmp/wps_result tells neither success nor failure",
                      scene.read("/tmp/wps_result"), "-1\n")
    scene.check_waiting_stopped()
    scene.check_not_joined(client)
    scene.check("the daemon goes on waiting for requests", scene.exit_of(1) is None
                and scene.run("kill -0 $(cat /tmp/kelm.pid)")[0] == 0, scene.exit_of(1))


def press_cancel_press(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.ask(CANCEL, BUTTON)
    scene.expect("bus", r'"wps":.*"action":2', "the announcement of the end")
    again = scene.mark()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method", since=again)
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    success_outcome(scene, client, "2g", before=[(1, 11, 11), (2, 12, 12)])
    scene.check_equal("/tmp/wps_result tells the success", scene.read("/tmp/wps_result"), "1\n")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CANCEL_COMMANDS + PRESS_COMMANDS
                      + CLEAN_COMMANDS + CANCEL_COMMANDS
                      + [announce(2, 2, 4, 0), "/etc/init.d/wps restart"])


def second_press(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.raise_log(3)
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.press_button()
    scene.expect("console", "WPS is processing, ignore button press",
                 "the daemon's answer to the second press")
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment")
    scene.expect_exit(1)
    scene.wait_daemon_ready(2)
    success_outcome(scene, client, "2g")
    scene.check_equal("the second press ran no command", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CLEAN_COMMANDS + CANCEL_COMMANDS
                      + [announce(2, 2, 4, 0), "/etc/init.d/wps restart"])


def terminated(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.say("sends SIGTERM to the daemon")
    scene.must_run("kill -TERM $(cat /tmp/kelm.pid)")
    scene.expect_exit(1)

    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + CANCEL_COMMANDS + STARTUP_COMMANDS
                      + [announce(2, 4, 4, 0)])
    scene.check_equal("the daemon announced start, stop and time-out", scene.announcements(),
                      [(1, 11, 11), (2, 12, 12), (2, 4, 4)])
    scene.check_equal("no pid file is left", scene.read("/tmp/kelm.pid"), None)
    scene.check_waiting_stopped()
    scene.check_not_joined(client)


def hostapd_dies(scene):
    scene.start_router()
    client = scene.start_client("phone", "2g")
    scene.begin()
    scene.press_button()
    scene.expect("hostapd", "^wlan0: WPS-PBC-ACTIVE", "hostapd's push-button method")
    scene.say("kills hostapd")
    scene.must_run("kill -9 $(cat /run/hostapd.pid)")
    client.tell("wps_pbc")
    gone = scene.happens("exit", "^1 daemon", "the daemon's end", 5)
    scene.check("the daemon outlives hostapd and waits on", gone is None,
                gone.text if gone else "still there")
    scene.move_clock(WALK_TIME_S)
    scene.expect_exit(1)
    scene.check_exit(1, "status 0")
    scene.check_equal("the daemon ran these commands and no others", scene.commands_of(1),
                      STARTUP_COMMANDS + PRESS_COMMANDS + FAILED_COMMANDS)
    scene.check_equal("/tmp/kelm.info tells the time-out", scene.read_json("/tmp/kelm.info"),
                      info_file(2, "timeout", "", "timeout", ""))
    scene.expect_exit(2)
    scene.check_exit(2, "status 255")
    scene.check_equal("without hostapd the next run gives up and leaves no pid file",
                      scene.read("/tmp/kelm.pid"), None)
    scene.check_not_joined(client)
    # The phone would look on for two minutes and not take the next push before.
    client.tell("wps_cancel")
    scene.say("the wireless service brings hostapd back, and the daemon with it")
    again = scene.mark()
    scene.must_run("/etc/init.d/wifi restart")
    scene.wait_daemon_ready(3)
    scene.press_button()
    scene.expect("hostapd", "^wlan1: WPS-PBC-ACTIVE", "hostapd's push-button method", since=again)
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment", since=again)
    scene.expect_exit(3)
    scene.check_exit(3, "status 0")
    scene.check_joined(client, "2g", SSIDS["2g"], KEY)


def no_broker(scene):
    scene.begin()
    scene.start_router(broker=False)
    client = scene.start_client("phone", "2g")
    scene.expect("console", "Failed to connect to ubus", "the daemon's complaint")
    scene.say("the broker starts only now; the daemon no longer looks for it")
    scene.start_broker()
    scene.press_button()
    heard_it = scene.happens("command", "^1 .* wps_pbc", "an effect of the press", 5)
    scene.check("a press does nothing", heard_it is None, heard_it.text if heard_it else "nothing")
    lines = scene.texts("console", "Failed to connect to ubus")
    scene.check_equal("the daemon complained once", len(lines), 1)
    scene.check("it goes on without the bus", scene.exit_of(1) is None
                and scene.run("kill -0 $(cat /tmp/kelm.pid)")[0] == 0, scene.exit_of(1) or "alive")
    scene.say("the service is restarted; now the daemon finds the broker")
    again = scene.mark()
    scene.must_run("/etc/init.d/wps restart")
    scene.expect_exit(1)
    scene.check_exit(1, "status 0")
    scene.wait_daemon_ready(2)
    scene.press_button()
    scene.expect("hostapd", "^wlan1: WPS-PBC-ACTIVE", "hostapd's push-button method", since=again)
    client.tell("wps_pbc")
    scene.expect("hostapd", "^wlan1: WPS-REG-SUCCESS", "the client's enrolment", since=again)
    scene.expect_exit(2)
    scene.check_exit(2, "status 0")
    scene.check_joined(client, "2g", SSIDS["2g"], KEY)


PHONE_JOINED = joined("phone")

SCENARIOS = [
    Scenario("push-button", "Both bands are secured; a client joins on 2.4 GHz by push-button.",
             push_button_2g, [PHONE_JOINED]),
    Scenario("push-button-5g", "Both bands are secured; a client joins on 5 GHz by push-button.",
             push_button_5g, [PHONE_JOINED]),
    Scenario("hostapd-user", "hostapd runs as a user of its own; a client joins by push-button.",
             hostapd_user, [PHONE_JOINED, seen("demo", r"the phone is hostapd, users (\d+)",
                                               "hostapd served it as user {0}")]),
    Scenario("unconfigured", "The access point is open; the first client's push secures it.",
             unconfigured, [PHONE_JOINED, seen("hostapd", "^wlan1: WPS-NEW-AP-SETTINGS",
                                               "the open network got a key by its push")]),
    Scenario("client-pin", "A client's PIN is entered on the web page; the client joins.",
             client_pin, [joined("printer")]),
    Scenario("access-point-pin", "A laptop uses the router's own PIN and gives it new settings.",
             access_point_pin, [registrar_joined("laptop")]),
    Scenario("overlap", "Two clients are pushed at the same time; neither gets in.", overlap,
             [overlapped], radios=4),
    Scenario("neighbour", "A device nearby is named like an event; only the phone gets in.",
             named_like_an_event, [PHONE_JOINED, got_nothing("neighbour")], radios=4),
    Scenario("nobody-comes", "The button is pressed and no client comes.", nobody_comes,
             [gave_up("nobody came")]),
    Scenario("cancel", "The attempt is cancelled from the web page.", cancel,
             [cancelled, came_too_late("phone")]),
    Scenario("press-cancel-press", "After a cancelled attempt the next press lets the client in.",
             press_cancel_press, [cancelled, joined("phone", again=True)]),
    Scenario("second-press", "The button is pressed again while an attempt runs.", second_press,
             [PHONE_JOINED, seen("console", "WPS is processing, ignore button press",
                                 "the second press, during the attempt, changed nothing")]),
    Scenario("terminated", "The daemon gets SIGTERM in the middle of an attempt.", terminated,
             [sentences.terminated, nobody_joined]),
    Scenario("hostapd-dies", "hostapd dies in the middle of an attempt and is brought back.",
             hostapd_dies, [seen("demo", "^kills hostapd", "the scenario killed hostapd"),
                            gave_up("nobody could join"), joined("phone", again=True)]),
    Scenario("no-broker", "The daemon starts before the ubus broker.", no_broker,
             [unheard_press, joined("phone", again=True)]),
] + broken_scenarios.SCENARIOS + repeater_scenarios.SCENARIOS + stock_scenarios.SCENARIOS


def find(name):
    for scenario in SCENARIOS:
        if scenario.name == name:
            return scenario
    return None
