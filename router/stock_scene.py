# SPDX-License-Identifier: ISC
"""The stock router's side of a scene: OpenWrt with its own scripts, and kelm as a package on it."""

import json
import re
import shlex

from router.machine import MachineError
from router.scene import EVENT_LIMIT_S
from router.timeline import CUT, RESTARTED

ACCESS_POINTS = {"2g": "phy0-ap0", "guest": "phy0-ap1", "5g": "phy1-ap0"}
RADIOS = {"2g": "radio0", "guest": "radio0", "5g": "radio1"}
ADDRESSES = {"2g": "192.168.2.1", "guest": "192.168.12.1", "5g": "192.168.5.1"}
SSIDS = {"2g": "Elm House", "guest": "Elm Guests", "5g": "Elm House 5G"}
# What hostapd hands out is made of the passphrase "under the old elm" and the network's name.
KEYS = {"2g": "3352396938495fda31ea0e587f4247931223a5729f9072fbd8c8e2c135f64aeb",
        "5g": "0211bddb8aca16d864a1c50d2a00fbf1ed78653af7efe9c9ffa0c1561bcdad97"}
PASSPHRASE = "under the old elm"
SHORT, LONG = 1, 4  # how long the button is held, in seconds, as the kernel tells it
LED = "/sys/class/leds/green:wps"
IN_ROUTER = "echo $$ >/sys/fs/cgroup/router/cgroup.procs; PATH=/usr/sbin:/usr/bin:/sbin:/bin; "
ALL = ("2g", "guest", "5g")


class StockRouter:
    """The router with stock OpenWrt, as one scenario sees it."""

    def __init__(self, scene, release="25.12"):
        self.scene = scene
        scene.must_run("/usr/lib/router/power flash %s" % release)

    # Steps.

    def run(self, script):
        """Runs a script on the router: what it leaves behind goes with the router's power."""
        return self.scene.run(IN_ROUTER + script)

    def must_run(self, script):
        return self.scene.must_run(IN_ROUTER + script)

    def uci(self, *settings):
        """Settings "package.section.option=value", stored at once; "+" before it adds to a list."""
        lines = []
        for setting in settings:
            command = "add_list" if setting.startswith("+") else "set"
            lines.append("uci %s %s" % (command, shlex.quote(setting.lstrip("+"))))
        packages = sorted({setting.lstrip("+").split(".")[0] for setting in settings})
        self.must_run(" && ".join(lines + ["uci commit " + name for name in packages]))

    def setting(self, name):
        status, output = self.run("uci -q get " + name)
        return output.rstrip("\n") if status == 0 else None

    def boot(self, wanted=ALL):
        """Switches the router on and waits until these access points serve and all has started."""
        since = self.scene.mark()
        self.scene.must_run("/usr/lib/router/power on")
        self.scene.expect("script", "the router has booted", "the boot", since=since)
        self.wait_served(wanted, since)

    def wait_served(self, wanted, since):
        for name in wanted:
            self.scene.expect("script", "netifd: .* is on the air as %s$" % ACCESS_POINTS[name],
                              "the access point \"%s\"" % SSIDS[name], since=since)
        for radio in sorted({RADIOS[name] for name in wanted}):
            self.scene.expect("script", "netifd: %s is done with setup" % radio,
                              "the set-up of " + radio, since=since)

    def install(self, *settings):
        """Installs the package and switches it on with these settings of its own."""
        self.must_run("/usr/lib/router/opkg install")
        self.switch_on(*settings)

    def switch_on(self, *settings):
        self.uci("kelm.main.enabled=1", *settings)
        self.must_run("/etc/init.d/wps start")

    def wait_state(self, wanted, what="kelm"):
        """Waits until the service is in a state; returns its status object."""
        good, seen = self.scene.settles(
            lambda: (self.status().get("state") == wanted, self.status()), what=what)
        if not good:
            raise MachineError("kelm did not come to the state %s" % wanted, json.dumps(seen))
        return seen

    def wait_waiting(self):
        """Waits until a daemon listens for requests and is not on its way out."""
        def probe():
            state = self.status().get("state")
            pid = (self.scene.read("/tmp/kelm.pid") or "").strip()
            _, name = self.scene.run("cat /proc/%s/comm" % (pid or "none"))
            return (state, name.strip()) == ("waiting", "kelm"), (state, name.strip())
        good, seen = self.scene.settles(probe, what="kelm")
        if not good:
            raise MachineError("kelm does not wait for requests", repr(seen))

    def reboot(self, wanted=ALL):
        self.scene.say(CUT)
        self.scene.must_run("/usr/lib/router/power off")
        self.boot(wanted)

    def restart_wireless(self, wanted=ALL):
        """What an owner does after a change in the settings: `wifi`, down and up again."""
        self.scene.say(RESTARTED)
        since = self.scene.mark()
        self.must_run("wifi")
        self.wait_served(wanted, since)

    def press(self, held_s=SHORT):
        """The WPS button, held for some seconds."""
        self.must_run("/usr/lib/router/button wps pressed 60; "
                      "/usr/lib/router/button wps released %d" % held_s)

    def expect_push_button(self, name, since=0):
        self.scene.expect("hostapd", "^%s: WPS-PBC-ACTIVE" % ACCESS_POINTS[name],
                          "hostapd's push-button method", since=since)

    def enrol(self, client, name, since=0):
        """The button, then the client's, until the client has what it was given."""
        self.press()
        self.expect_push_button(name, since)
        client.tell("wps_pbc")
        self.scene.expect("hostapd", "^%s: WPS-REG-SUCCESS" % ACCESS_POINTS[name],
                          "the client's enrolment", since=since)

    # What the router has.

    def status(self):
        """What the package's object on the bus tells; empty where there is none."""
        status, output = self.run("ubus call kelm status")
        return json.loads(output) if status == 0 else {}

    def web(self, method):
        """A call of the package's object as a web page makes it, over rpcd's session."""
        output = self.must_run("/usr/lib/testworld/http_call kelm %s '{}'" % method)
        return json.loads(output)

    def set_led(self, trigger):
        """What /etc/init.d/led does at the start by the owner's settings."""
        self.scene.must_run("echo %s >%s/trigger" % (trigger, LED))

    def files(self):
        """All files of the router's own disk."""
        output = self.scene.must_run("find / -xdev ! -type d ! -path '/usr/lib/router/*'")
        return set(output.splitlines())

    def wireless(self):
        return json.loads(self.must_run("ubus call network.wireless status"))

    def hostapd(self, name, request):
        _, output = self.run("hostapd_cli -p /var/run/hostapd -i %s %s"
                             % (ACCESS_POINTS[name], request))
        return output

    def push_button_status(self, name):
        found = re.search(r"PBC Status: (\w+)", self.hostapd(name, "wps_get_status"))
        return found.group(1) if found else None

    def log_lines(self, text):
        """The lines of the system log that hold a text."""
        return self.scene.texts("log", re.escape(text))

    # Checks.

    def check_result(self, result, message):
        """What the last attempt came to, as the status object tells it."""
        def probe():
            attempt = self.status().get("attempt") or {}
            seen = (attempt.get("running"), attempt.get("result"), attempt.get("message"))
            return seen == (False, result, message), seen
        good, seen = self.scene.settles(probe)
        self.scene.check("the status object says of the attempt: %s" % message, good, seen)

    def check_never_opened(self, *names):
        for name in names:
            opened = self.scene.texts("hostapd", "^%s: WPS-(PBC|PIN)-ACTIVE" % ACCESS_POINTS[name])
            self.scene.check("\"%s\" was never open to anybody" % SSIDS[name], not opened, opened)

    def check_joined(self, client, name):
        """The client is on the network, has the network's own key on file, and traffic flows."""
        self.check_on(client, name)
        self.scene.check_equal("the %s has the network's own key on file" % client.name,
                               client.saved_key(), KEYS[name])

    def check_on(self, client, name, when=""):
        def probe():
            status = client.status()
            seen = (status.get("wpa_state"), status.get("ssid"))
            return seen == ("COMPLETED", SSIDS[name]), seen
        good, seen = self.scene.settles(probe)
        self.scene.check("the %s is connected to \"%s\"%s" % (client.name, SSIDS[name], when), good,
                         seen)
        good, seen = self.scene.settles(lambda: client.ping_address(ADDRESSES[name]), 20)
        self.scene.check("a ping gets through to the router" + when, good, seen)

    def check_back(self, client, name, since, when):
        """The client has come back by itself since then, with what it has on file."""
        back = self.scene.happens(client.source, "CTRL-EVENT-CONNECTED", "the client's return",
                                  EVENT_LIMIT_S, since)
        self.scene.check("the %s comes back %s" % (client.name, when), back,
                         back.text if back else client.status().get("wpa_state"))
        self.check_on(client, name, " " + when)

    def check_station(self, root, when):
        """The router's station is on the root, and traffic flows."""
        wanted = ("COMPLETED", root.mac("2g"))

        def probe():
            _, output = self.run("wpa_cli -p /var/run/wpa_supplicant -i phy0-sta0 status")
            status = dict(line.split("=", 1) for line in output.splitlines() if "=" in line)
            seen = (status.get("wpa_state"), status.get("bssid"))
            return seen == wanted, seen
        good, seen = self.scene.settles(probe)
        self.scene.check("the station is connected to the root" + when, good, seen)
        ping = ("ip addr replace 10.0.2.101/24 dev phy0-sta0; ping -c 1 -W 2 -I phy0-sta0 %s"
                % root.address("2g"))
        good, seen = self.scene.settles(lambda: (self.run(ping)[0] == 0, "no answer"), 20)
        self.scene.check("a ping gets through to the root" + when, good, seen)

    def check_refused(self, client, since, when):
        """The client tries to come back and is told that its key is wrong."""
        wrong = self.scene.happens(client.source, "CTRL-EVENT-SSID-TEMP-DISABLED .*WRONG_KEY",
                                   "the client's try", EVENT_LIMIT_S, since)
        self.scene.check("the %s tries to come back %s and is told that its key is wrong"
                         % (client.name, when), wrong, wrong.text if wrong else client.status())
        back = self.scene.texts(client.source, "CTRL-EVENT-CONNECTED", since)
        self.scene.check_equal("the %s is not let in again %s" % (client.name, when), back, [])

    def check_led(self, statement, trigger, attributes):
        """The kernel's own LED: its trigger, and what the trigger is set to."""
        def probe():
            line = self.scene.read(LED + "/trigger") or ""
            seen = {name: (self.scene.read("%s/%s" % (LED, name)) or "").strip()
                    for name in attributes}
            found = re.search(r"\[(.*)\]", line)
            seen["trigger"] = found.group(1) if found else None
            return seen == dict(attributes, trigger=trigger), seen
        good, seen = self.scene.settles(probe, 30)
        self.scene.check(statement, good, seen)

    def check_not_served(self, message):
        """Nothing is served, and why is said in the state, in the log and to who presses."""
        def why():
            status = self.status()
            seen = (status.get("state"), status.get("message"))
            return seen == ("not-ready", message), seen
        good, seen = self.scene.settles(why, what="kelm")
        self.scene.check("the status object says that nothing is served, and why", good, seen)
        said = self.scene.happens("log", " kelm: %s$" % re.escape(message), "the log's line", 20)
        self.scene.check("the system log says it, too", said, self.scene.texts("log", "kelm"))
        since = self.scene.mark()
        self.press()

        def probe():
            seen = (self.status().get("refused") or {}).get("message")
            return seen == message, seen
        good, seen = self.scene.settles(probe, 30)
        self.scene.check("the press is refused with the reason", good, seen)
        self.scene.check_equal("no access point was opened by it",
                               self.scene.texts("hostapd", "WPS-PBC-ACTIVE", since), [])
        self.scene.check_equal("no daemon runs", self.scene.read("/tmp/kelm.pid"), None)
