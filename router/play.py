# SPDX-License-Identifier: ISC
"""Plays one scenario on a fresh virtual router: for the demonstration and for the tests alike."""

import os

from router import image, machine, scene, timeline

STATUS_FILES = ["/tmp/kelm.info", "/tmp/wps_result", "/tmp/wpsactive", "/tmp/wps_wifi_ap.txt",
                "/tmp/wps_wifi_sta.txt", "/tmp/_wps_wifi_ap.txt", "/tmp/_wps_wifi_sta.txt",
                "/tmp/wps_wifi_ap_bh.txt"]


class Outcome:
    """What a scenario left behind."""

    def __init__(self):
        self.checks = []
        self.files = {}
        self.commands = {}
        self.exits = {}
        self.trouble = None
        self.log_folder = None

    def failures(self):
        failed = ["%s: saw %s" % (check.statement, check.seen)
                  for check in self.checks if not check.holds]
        if self.trouble:
            failed.append(self.trouble)
        if not self.checks:
            failed.append("the scenario checked nothing")
        return failed


def play(scenario, build_folder, view=None):
    """Boots a router, plays the scenario on it and returns the outcome."""
    view = view or timeline.Silence()
    outcome = Outcome()
    outcome.log_folder = os.path.join(build_folder, "router", scenario.name)
    view.heading("%s: %s" % (scenario.name, scenario.sentence))
    with image.built(build_folder, outcome.log_folder, view.text) as (kernel, initrd), \
            machine.Machine(kernel, initrd, scenario.radios, outcome.log_folder,
                            view.on_event) as guest:
        stage = scene.Scene(guest, view)
        try:
            view.text("           booting the router")
            stage.boot()
            scenario.play(stage)
        except machine.MachineError as error:
            outcome.trouble = str(error)
        outcome.checks = stage.checks
        _collect(guest, stage, outcome)
    return outcome


def _collect(guest, stage, outcome):
    """Reads the guest's evidence while there is a guest to read it from."""
    try:
        for path in STATUS_FILES:
            text = guest.read(path)
            if text is not None:
                outcome.files[path] = text
    except machine.MachineError as error:
        outcome.trouble = outcome.trouble or str(error)
    for run in range(1, 10):
        commands = stage.commands_of(run)
        if commands:
            outcome.commands[run] = commands
            outcome.exits[run] = stage.exit_of(run)
