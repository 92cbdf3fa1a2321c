# SPDX-License-Identifier: ISC
"""One scenario as it runs: the steps a scenario is written in, and the checks it ends with."""

import base64
import json
import re
import time

from router import machine
from router.timeline import BANDS, CLOCK_MOVED

EVENT_LIMIT_S = 120
BOOT_LIMIT_S = 120
WAIT_STEP_S = 0.5
DEVICE_RADIOS = 2

# A client of one or both bands is told so by the frequencies it may use.
FREQUENCIES = {"2g": "2412", "5g": "5180", "both": "2412 5180"}
ADDRESSES = {"2g": "192.168.2.1", "5g": "192.168.5.1"}
INTERFACES = {"2g": "wlan1", "5g": "wlan0"}

# A line that each run of the daemon writes once, before it opens its event sockets.
DAEMON_STARTED = "create ibus thread successfully"


class Check:
    """One statement about the outcome, whether it holds, and what was seen."""

    def __init__(self, statement, holds, seen):
        self.statement = statement
        self.holds = bool(holds)
        self.seen = seen


class Client:
    """A Wi-Fi client of the guest: a real supplicant on a radio and a network of its own."""

    def __init__(self, scene, number, name):
        self._scene = scene
        self.number = number
        self.source = "client%d" % number
        self.name = name

    def cli(self, arguments):
        return self._scene.must_run("/usr/lib/router/client cli %d %s"
                                    % (self.number, arguments)).strip()

    def tell(self, arguments):
        """A request that the supplicant must take."""
        reply = self.cli(arguments)
        if reply.splitlines()[-1:] != ["OK"]:
            raise machine.MachineError("the %s refused the request %s" % (self.name, arguments),
                                       reply)

    def join(self, ssid, key):
        """Adds a network by its settings, as a person would type them, and saves it."""
        number = self.cli("add_network").splitlines()[-1]
        for name, value in (("ssid", ssid), ("psk", key)):
            self.tell("set_network %s %s '\"%s\"'" % (number, name, value))
        self.tell("enable_network %s" % number)
        self.tell("save_config")

    def status(self):
        lines = self.cli("status").splitlines()
        return dict(line.split("=", 1) for line in lines if "=" in line)

    def saved_networks(self):
        """The networks in the client's own file, each a table of its settings."""
        text = self._scene.read("/run/client%d/wpa_supplicant.conf" % self.number) or ""
        networks = []
        for block in re.findall(r"network=\{(.*?)\n\}", text, re.S):
            pairs = (line.strip().split("=", 1) for line in block.splitlines() if "=" in line)
            networks.append(dict(pairs))
        return networks

    def saved_key(self):
        """The passphrase in the client's file; None when it has none."""
        keys = [net["psk"].strip('"') for net in self.saved_networks() if "psk" in net]
        return keys[-1] if keys else None

    def ping(self, band):
        return self.ping_address(ADDRESSES[band])

    def ping_address(self, address):
        status, output = self._scene.run("/usr/lib/router/client ping %d %s"
                                         % (self.number, address))
        found = re.search(r"\d+ packets transmitted, \d+ packets received", output)
        return status == 0, found.group(0) if found else output.strip()


class Scene:
    """The virtual router in one scenario."""

    def __init__(self, guest, timeline):
        self._guest = guest
        self._timeline = timeline
        self._clients = 0
        self.checks = []
        self.zero_s = None

    # What goes on in the guest.

    def run(self, script):
        return self._guest.run(script, waiting=self._waiting_for("the router's own commands"))

    def must_run(self, script):
        return self._guest.must_run(script, waiting=self._waiting_for("the router's own commands"))

    def _waiting_for(self, what):
        return lambda left_s: self._timeline.waiting(what, self._guest.now(), left_s)

    def write(self, path, lines):
        """Writes a file of the guest, and the folder it is in."""
        text = base64.b64encode(("\n".join(lines) + "\n").encode()).decode()
        self.must_run("mkdir -p \"$(dirname '%s')\"; echo %s | base64 -d >'%s'"
                      % (path, text, path))

    def read(self, path):
        return self._guest.read(path)

    def read_json(self, path):
        try:
            return json.loads(self.read(path) or "")
        except ValueError:
            return None

    def setting(self, package, section, option):
        return self.must_run(". /lib/functions/settings.sh; load_settings; setting %s %s %s"
                             % (package, section, option)).rstrip("\n")

    def set_setting(self, package, section, option, value):
        self.must_run(". /lib/functions/settings.sh; set_setting %s %s %s '%s'"
                      % (package, section, option, value))

    # Steps.

    def say(self, text):
        self._guest.note("demo", text)

    def begin(self):
        """From here on the timeline counts the seconds."""
        self.zero_s = self._guest.now()
        self._timeline.zero_at(self.zero_s)

    def start_broker(self):
        self.must_run("ubusd </dev/null >/dev/null 2>&1 &")
        self.must_run(". /lib/functions/router.sh; wait_until 20 test -S /var/run/ubus/ubus.sock")
        self.must_run(". /lib/functions/router.sh; ubus listen </dev/null 2>&1 | emit_lines bus "
                      ">/dev/null 2>&1 &")
        # A listener that is not yet registered would miss the first event.
        for _ in range(100):
            self.must_run("ubus send listening '{}'")
            if self._guest.wait_event("bus", "listening", 0.2):
                return
        raise machine.MachineError("the bus listener heard nothing")

    def start_router(self, broker=True):
        """Boots the router's services to where the daemon waits for a request."""
        if broker:
            self.start_broker()
        self.must_run("/etc/init.d/wifi start")
        self.must_run("/etc/init.d/wps start")
        self.wait_daemon_ready(1)

    def wait_daemon_ready(self, run):
        """Waits until a run of the daemon has set both bands' PIN and takes requests."""
        self.expect("command", r"^%d hostapd_cli .* -i wlan0 wps_ap_pin" % run,
                    "the daemon's start")
        if self.run("test -S /var/run/ubus/ubus.sock")[0] != 0:
            return
        # The console and the events are two channels, which overtake each other: only lines of the
        # same one have an order.
        self.expect_count("console", DAEMON_STARTED, run, "the daemon's start")
        self.expect("console", r"eventCtrl open success", "the daemon's event sockets",
                    since=self.nth_index("console", DAEMON_STARTED, run))

    def raise_log(self, times):
        """Each signal is taken before the next: two that wait together are one."""
        self.must_run("pid=$(cat /tmp/kelm.pid) && for i in $(seq %d); do kill -USR1 $pid &&"
                      " until grep -q '^ShdPnd:[[:space:]]*0*$' /proc/$pid/status; do"
                      " sleep 0.1; done; done" % times)

    def start_client(self, name, band, more_settings=""):
        """Starts a supplicant; `more_settings` are lines for its file."""
        number = self._clients
        self._clients += 1
        client = Client(self, number, name)
        self._timeline.client_names[client.source] = name
        self.must_run("/usr/lib/router/client start %d %d '%s' '%s' '%s'"
                      % (number, DEVICE_RADIOS + number, FREQUENCIES[band], name, more_settings))
        return client

    def push_together(self, clients):
        """Pushes several clients in the same instant: all are stopped, asked, and let go."""
        pids = " ".join("$(cat /run/%s/supplicant)" % client.source for client in clients)
        asks = " ".join("/usr/lib/router/client cli %d wps_pbc >/dev/null 2>&1 &"
                        % client.number for client in clients)
        self.must_run("kill -STOP %s; %s sleep 1; kill -CONT %s" % (pids, asks, pids))

    def press_button(self):
        self.must_run("""ubus send gpio '{"type":"wps","pressed":1}'""")

    def ask(self, action, method, pin=None):
        """A request as the web page or the command line tool makes it."""
        members = {"action": action, "method": method}
        if pin is not None:
            members["pin"] = pin
        self.must_run("ubus send wps_cli '%s'" % json.dumps(members))

    def move_clock(self, seconds):
        self.say(CLOCK_MOVED % seconds)
        self.must_run('date -s "@$(($(date +%%s) + %d))"' % seconds)

    def mark(self):
        """A place in the stream of events, for expect(since=...)."""
        return len(self._guest.events)

    def happens(self, source, pattern, what, limit_s, since=0):
        """Waits for an event that may come or not; None when it does not."""
        deadline = time.monotonic() + limit_s
        while time.monotonic() < deadline:
            event = self._guest.wait_event(source, pattern, WAIT_STEP_S, since)
            if event:
                return event
            if self._guest.ended():
                raise machine.MachineError("the guest ended", self._guest.console_tail())
            self._waiting_for(what)(deadline - time.monotonic())
        return None

    def expect(self, source, pattern, what, limit_s=EVENT_LIMIT_S, since=0):
        """Waits for an event without which the scenario cannot go on."""
        event = self.happens(source, pattern, what, limit_s, since)
        if event is None:
            raise machine.MachineError("%s did not happen within %d s" % (what, limit_s))
        return event

    def nth_index(self, source, pattern, number):
        """The place of a source's event of that number, from 1, that holds the pattern."""
        found = [index for index, event in enumerate(self._guest.events)
                 if event.source == source and re.search(pattern, event.text)]
        return found[number - 1]

    def expect_count(self, source, pattern, count, what, since=0):
        """Waits until such an event has come a number of times."""
        good, seen = self.settles(
            lambda: (len(self.texts(source, pattern, since)) >= count,
                     len(self.texts(source, pattern, since))), what=what)
        if not good:
            raise machine.MachineError("%s happened %d times of %d within %d s"
                                       % (what, seen, count, EVENT_LIMIT_S))

    def boot(self, booting=lambda text: None):
        """Waits until the guest takes commands."""
        deadline = time.monotonic() + BOOT_LIMIT_S
        begun = time.monotonic()
        while not self._guest.wait_event("boot", "ready", WAIT_STEP_S):
            if self._guest.ended():
                raise machine.MachineError("the guest ended while it booted",
                                           self._guest.console_tail())
            if time.monotonic() > deadline:
                raise machine.MachineError("the guest did not boot within %d s" % BOOT_LIMIT_S,
                                           self._guest.console_tail())
            booting("boots: %.0f s" % (time.monotonic() - begun))

    def expect_exit(self, run, limit_s=EVENT_LIMIT_S):
        return self.expect("exit", r"^%d daemon " % run, "the daemon's end", limit_s)

    def settles(self, probe, limit_s=EVENT_LIMIT_S, what="what has to be so at the end"):
        """Repeats a probe that returns (good, seen) until it is good or the time is up."""
        deadline = time.monotonic() + limit_s
        while True:
            good, seen = probe()
            if good or time.monotonic() > deadline:
                return good, seen
            self._waiting_for(what)(deadline - time.monotonic())
            time.sleep(WAIT_STEP_S)

    # What was seen.

    def events(self):
        return list(self._guest.events)

    def texts(self, source, pattern, since=0):
        """The texts of a source's events that hold the pattern."""
        return [event.text for event in self._guest.events[since:]
                if event.source == source and re.search(pattern, event.text)]

    def commands_of(self, run):
        """What a run of the daemon ran: programs by name, scripts by path, in order."""
        prefix = "%d " % run
        return [event.text[len(prefix):] for event in self._guest.events
                if event.source in ("command", "script") and event.text.startswith(prefix)]

    def announcements(self):
        """The published status events as (action, 2.4 GHz code, 5 GHz code)."""
        found = []
        for text in self.texts("bus", r'"wps":'):
            members = json.loads(text)["wps"]
            found.append(tuple(members.get(key) for key in ("action", "2g_status", "5g_status")))
        return found

    def exit_of(self, run):
        for text in self.texts("exit", r"^%d daemon " % run):
            return text.split(" ", 3)[3] if text.count(" ") > 2 else text
        return None

    # Checks.

    def check(self, statement, holds, seen):
        self.checks.append(Check(statement, holds, seen))

    def check_equal(self, statement, seen, wanted):
        note = seen if seen == wanted else "%r instead of %r" % (seen, wanted)
        self.check(statement, seen == wanted, note)

    def check_exit(self, run, wanted):
        self.check_equal("the daemon's run %d ended with %s" % (run, wanted), self.exit_of(run),
                         wanted)

    def check_restart(self, run, wanted):
        """The scripts that a run called, in order: write-back, publication, restart."""
        scripts = [line for line in self.commands_of(run) if line.startswith("/etc/init.d/")]
        self.check_equal("the daemon called %s" % (", then ".join(wanted) or "no script"),
                         scripts, wanted)

    def check_joined(self, client, band, ssid, key):
        """The client is on the network, has the key on file and traffic gets through."""
        def probe():
            status = client.status()
            seen = {name: status.get(name) for name in ("wpa_state", "ssid", "freq")}
            good = (seen["wpa_state"] == "COMPLETED" and seen["ssid"] == ssid
                    and seen["freq"] == FREQUENCIES[band])
            return good, seen
        good, seen = self.settles(probe)
        self.check("%s is connected to \"%s\" on %s" % (client.name, ssid, BANDS[band]), good,
                   seen)
        self.check_equal("%s has the key on file" % client.name, client.saved_key(), key)
        good, seen = self.settles(lambda: client.ping(band), 20)
        self.check("a ping gets through to the router", good, seen)
        # After taking new settings at run time hostapd leaves the interface's name out.
        handshakes = self.texts("hostapd", r"^(%s: )?EAPOL-4WAY-HS-COMPLETED" % INTERFACES[band])
        self.check("hostapd saw the 4-way handshake", handshakes, len(handshakes))

    def check_not_joined(self, client):
        state = client.status().get("wpa_state")
        self.check("%s is not connected" % client.name, state not in (None, "COMPLETED"), state)
        self.check_equal("%s has no key on file" % client.name, client.saved_key(), None)

    def check_waiting_stopped(self):
        """hostapd no longer lets anybody in on either band."""
        for band, interface in INTERFACES.items():
            _, output = self.run("hostapd_cli -p /var/run/hostapd -i %s wps_get_status" % interface)
            found = re.search(r"PBC Status: (\w+)", output)
            state = found.group(1) if found else output.strip()
            self.check("hostapd's push-button method is off on %s" % BANDS[band],
                       state not in ("Active", "Unknown", "") and found, state)
