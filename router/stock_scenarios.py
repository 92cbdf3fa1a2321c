# SPDX-License-Identifier: ISC
"""The scenarios of a router with stock OpenWrt: without kelm, and with it as a package."""

from router.attempt import Scenario
from router.repeater import Root, RootBand
from router.scene import DEVICE_RADIOS
from router.sentences import came_back, joined, not_ready, router_joined
from router.stock_scene import ALL, KEYS, LONG, SSIDS, StockRouter

AP_2G = "+kelm.main.ap=default_radio0"
PHONE_JOINED = "a device has joined"


def without_kelm(scene):
    router = StockRouter(scene)
    router.must_run("true")
    router.uci("wireless.default_radio0.wps_pushbutton=1",
               "wireless.default_radio1.wps_pushbutton=1")
    router.boot()
    phone = scene.start_client("phone", "2g")
    scene.begin()
    router.enrol(phone, "2g")
    router.check_on(phone, "2g")
    key = phone.saved_key() or ""
    scene.check("the phone was given a key of its own, not the network's",
                len(key) == 64 and key != KEYS["2g"], key)
    scene.check_equal("push button was started on the 5 GHz network as well",
                      len(scene.texts("hostapd", "^phy1-ap0: WPS-PBC-ACTIVE")), 1)
    scene.check_equal("hostapd could not keep the phone's key in the file",
                      scene.read("/var/run/hostapd-phy0-ap0.psk"), "")

    since = scene.mark()
    router.restart_wireless()
    router.check_refused(phone, since, "after `wifi`")
    since = scene.mark()
    router.reboot()
    router.check_refused(phone, since, "after the reboot")


def started(scene, *settings, release="25.12"):
    """A router with kelm on it, which waits for a press."""
    router = StockRouter(scene, release)
    router.boot()
    router.install(*(settings or (AP_2G,)))
    router.wait_waiting()
    return router


def let_in_a_phone(scene, router, hears="2g"):
    """One press: the phone joins on 2.4 GHz, and no other network was opened."""
    phone = scene.start_client("phone", hears)
    scene.begin()
    router.enrol(phone, "2g")
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(phone, "2g")
    router.check_never_opened("guest", "5g")
    return phone


def button(scene):
    router = started(scene)
    phone = let_in_a_phone(scene, router)
    router.wait_waiting()

    since = scene.mark()
    router.restart_wireless()
    router.check_back(phone, "2g", since, "after `wifi`")
    since = scene.mark()
    router.reboot()
    router.check_back(phone, "2g", since, "after the reboot")
    router.wait_waiting()


def guest(scene):
    router = StockRouter(scene)
    router.uci("wireless.guest.wps_pushbutton=1", "wireless.default_radio1.wps_pushbutton=1")
    router.boot()
    router.install(AP_2G)
    router.wait_waiting()
    let_in_a_phone(scene, router, "both")
    for name in ("guest", "5g"):
        scene.check("\"%s\" had WPS to offer" % SSIDS[name],
                    "wps_state=configured" in router.hostapd(name, "get_config"),
                    router.hostapd(name, "get_config"))


def client_pin(scene):
    router = started(scene, AP_2G, "kelm.main.pin=1")
    printer = scene.start_client("printer", "2g")
    scene.begin()
    pin = printer.cli("wps_pin any").splitlines()[-1]
    scene.say("the printer shows its PIN: %s" % pin)
    router.must_run("/usr/libexec/kelm/request pin %s" % pin)
    scene.expect("hostapd", "^phy0-ap0: WPS-REG-SUCCESS", "the client's enrolment")
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(printer, "2g")
    router.check_never_opened("guest", "5g")
    since = scene.mark()
    router.restart_wireless()
    router.check_back(printer, "2g", since, "after `wifi`")


def not_served(scene, message, *settings, before="true", wanted=ALL):
    """A network that WPS cannot serve: nothing starts, and why is told wherever somebody looks."""
    router = StockRouter(scene)
    router.must_run(before)
    if settings:
        router.uci(*settings)
    router.boot(wanted)
    scene.begin()
    router.install(AP_2G)
    router.check_not_served(message)


def no_wps(scene):
    not_served(scene, "hostapd has no WPS: install wpad-mbedtls in place of wpad-basic-mbedtls",
               before="touch /etc/wpad-basic-mbedtls")


def hidden(scene):
    not_served(scene, "2.4 GHz: the network is hidden", "wireless.default_radio0.hidden=1")


def wpa3_only(scene):
    not_served(scene, "2.4 GHz: WPA3 only", "wireless.default_radio0.encryption=sae")


def radio_off(scene):
    not_served(scene, "2.4 GHz: the radio is switched off", "wireless.radio0.disabled=1",
               wanted=("5g",))


def reload_in_attempt(scene):
    router = started(scene)
    phone = scene.start_client("phone", "2g")
    scene.begin()
    router.press()
    router.expect_push_button("2g")
    scene.say("the owner renames the guest network in the middle of the attempt")
    since = scene.mark()
    router.uci("wireless.guest.ssid=Elm Visitors")
    router.must_run("ubus call network reload")
    router.wait_served(("2g", "guest"), since)
    scene.check_equal("the network that was set up anew waits for nobody",
                      router.push_button_status("2g"), "Disabled")
    router.check_result("stopped", "ended before there was an outcome")
    router.wait_waiting()
    scene.say("the button is pressed again")
    since = scene.mark()
    router.enrol(phone, "2g", since)
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(phone, "2g")


def crash(scene):
    router = started(scene)
    phone = scene.start_client("phone", "2g")
    scene.begin()
    router.press()
    router.expect_push_button("2g")
    first = scene.read("/tmp/kelm.pid").strip()
    scene.say("the daemon is killed in the middle of the attempt")
    scene.must_run("kill -9 %s" % first)
    scene.settles(lambda: ((scene.read("/tmp/kelm.pid") or first).strip() != first, None))
    router.wait_waiting()
    second = (scene.read("/tmp/kelm.pid") or "").strip()
    scene.check("procd has started another daemon", second not in ("", first), second)
    attempt = router.status().get("attempt") or {}
    scene.check_equal("the status object does not say that the attempt still runs",
                      attempt.get("running"), False)
    scene.say("the button is pressed again")
    since = scene.mark()
    router.enrol(phone, "2g", since)
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(phone, "2g")


def web(scene):
    router = started(scene)
    phone = scene.start_client("phone", "2g")
    scene.begin()
    status = router.web("status")
    scene.check_equal("the page sees a router that waits",
                      (status["state"], status["running"], status["bands"]["2g"]["message"]),
                      ("waiting", False, "ready"))
    scene.check_equal("the page starts an attempt", router.web("start"),
                      {"ok": True, "message": "asked for"})
    router.expect_push_button("2g")
    router.wait_state("running")
    since = scene.mark()
    scene.check_equal("the page cancels it", router.web("cancel"),
                      {"ok": True, "message": "asked for"})
    scene.expect("hostapd", "^phy0-ap0: WPS-PBC-DISABLE|^phy0-ap0: WPS-TIMEOUT",
                 "the end of push button", since=since)
    router.check_result("cancelled", "cancelled")
    router.wait_waiting()
    scene.say("the page starts another attempt")
    since = scene.mark()
    router.web("start")
    router.expect_push_button("2g", since)
    phone.tell("wps_pbc")
    scene.expect("hostapd", "^phy0-ap0: WPS-REG-SUCCESS", "the client's enrolment", since=since)
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(phone, "2g")
    mac = (router.web("status").get("attempt") or {}).get("bands", {}).get("2g", {}).get("mac")
    scene.check_equal("the page can say which device it was", mac, phone.status()["address"])


def led(scene):
    router = StockRouter(scene)
    router.boot()
    router.set_led("phy0radio")
    router.install(AP_2G)
    router.wait_waiting()
    phone = scene.start_client("phone", "2g")
    scene.begin()
    router.press()
    router.expect_push_button("2g")
    router.check_led("the LED blinks while the attempt runs", "timer",
                     {"delay_on": "500", "delay_off": "500"})
    phone.tell("wps_pbc")
    scene.expect("hostapd", "^phy0-ap0: WPS-REG-SUCCESS", "the client's enrolment")
    router.check_led("the LED is on when the phone has joined", "none", {"brightness": "1"})
    router.check_led("the LED has its own trigger back", "phy0radio", {})
    router.check_result("joined", PHONE_JOINED)
    router.check_joined(phone, "2g")


def button_24_10(scene):
    router = StockRouter(scene, "24.10")
    router.uci("wireless.default_radio1.wps_pushbutton=1")
    stock_script = scene.read("/etc/rc.button/wps")
    wireless = scene.read("/etc/config/wireless")
    router.boot()
    before = router.files()
    router.install(AP_2G)
    router.wait_waiting()
    phone = let_in_a_phone(scene, router)
    router.wait_waiting()
    since = scene.mark()
    router.reboot()
    router.check_back(phone, "2g", since, "after the reboot")
    router.wait_waiting()

    scene.say("the package is removed")
    since = scene.mark()
    router.must_run("/usr/lib/router/opkg remove")
    router.wait_served(("2g", "guest"), since)
    scene.check_equal("the button has its own script again", scene.read("/etc/rc.button/wps"),
                      stock_script)
    scene.check_equal("/etc/config/wireless is as it was", scene.read("/etc/config/wireless"),
                      wireless)
    scene.check_equal("nothing of the package is left but its settings",
                      sorted(router.files() - before), ["/etc/config/kelm"])
    scene.check_equal("nothing of the router's is gone", sorted(before - router.files()), [])
    since = scene.mark()
    router.press()
    scene.expect("hostapd", "^phy1-ap0: WPS-PBC-ACTIVE", "the stock script's push button",
                 since=since)


# Bytes that a shell, UCI, JSON or a file of hostapd could take for something else.
ODD_SSID = "Öak's \"$(id)\" \\n ~`"
ODD_KEY = "it's \"$HOME\" & \\ ; #1"


def repeater(scene):
    router = StockRouter(scene)
    router.uci("wireless.wwan0=wifi-iface", "wireless.wwan0.device=radio0",
               "wireless.wwan0.mode=sta", "wireless.wwan0.network=wwan",
               "wireless.wwan0.ssid=Old Oak", "wireless.wwan0.encryption=psk2",
               "wireless.wwan0.key=felled long ago")
    root = Root(scene, 0, [RootBand("2g", ODD_SSID, ODD_KEY)], DEVICE_RADIOS)
    root.start()
    router.boot()
    router.install("kelm.main.mode=repeater", "+kelm.main.sta=wwan0")
    router.wait_waiting()
    scene.begin()
    router.press(LONG)
    scene.expect("station", "^phy0-sta0: WPS-PBC-ACTIVE", "the station's start")
    scene.say("the root's button is pressed")
    root.press("2g")
    scene.expect("station", "^phy0-sta0: WPS-SUCCESS", "the enrolment")
    enrolled = scene.mark()
    router.check_result("joined", "has joined the other router")
    for option, value in (("ssid", ODD_SSID), ("key", ODD_KEY)):
        scene.check_equal("the %s is stored byte for byte" % option,
                          router.setting("wireless.wwan0." + option), value)
    scene.check_equal("what the access points are is as it was",
                      router.setting("wireless.default_radio0.ssid"), SSIDS["2g"])
    scene.expect("station", "^phy0-sta0: CTRL-EVENT-CONNECTED", "the station's return",
                 since=enrolled)
    router.check_station(root, "")
    router.wait_waiting()

    since = scene.mark()
    router.reboot()
    scene.expect("station", "^phy0-sta0: CTRL-EVENT-CONNECTED", "the station's return", since=since)
    router.check_station(root, " after the reboot")
    router.wait_waiting()


SCENARIOS = [
    Scenario("stock-without-kelm",
             "Stock OpenWrt alone: a device joins by the button and cannot come back.",
             without_kelm, [joined("phone"), came_back("phone")], face="stock"),
    Scenario("stock-button",
             "Stock OpenWrt with kelm: a device joins by the button and comes back.",
             button, [joined("phone"), came_back("phone")], face="stock"),
    Scenario("stock-guest", "The guest network and the other band have WPS, too, and take nobody.",
             guest, [joined("phone")], face="stock"),
    Scenario("stock-pin", "A printer's PIN is entered; the printer joins and comes back.",
             client_pin, [joined("printer"), came_back("printer")], face="stock"),
    Scenario("stock-no-wps", "hostapd was built without WPS; the router says what to install.",
             no_wps, [not_ready], face="stock", radios=2),
    Scenario("stock-hidden", "The network is hidden; the router says that WPS cannot serve it.",
             hidden, [not_ready], face="stock", radios=2),
    Scenario("stock-wpa3-only", "The network is WPA3 only; the router says so.",
             wpa3_only, [not_ready], face="stock", radios=2),
    Scenario("stock-radio-off", "The radio is switched off; the router says so.",
             radio_off, [not_ready], face="stock", radios=2),
    Scenario("stock-reload", "The wireless is set up anew in mid-attempt; the next press works.",
             reload_in_attempt, [joined("phone", again=True)], face="stock"),
    Scenario("stock-crash", "The daemon is killed in mid-attempt; procd has it back for the next.",
             crash, [joined("phone", again=True)], face="stock"),
    Scenario("stock-web", "A web page starts, cancels and starts again over the bus object.",
             web, [joined("phone")], face="stock"),
    Scenario("stock-led", "The WPS LED shows the attempt and gets its own trigger back.",
             led, [joined("phone")], face="stock"),
    Scenario("stock-button-24.10",
             "The same on 24.10, whose button is taken over; removing kelm gives it back.",
             button_24_10, [joined("phone"), came_back("phone")], face="stock"),
    Scenario("stock-repeater", "A repeater learns a root's odd name and key, and keeps them.",
             repeater, [router_joined, came_back("station")], face="stock"),
]
