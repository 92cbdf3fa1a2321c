# SPDX-License-Identifier: ISC
"""Plays one scenario on a fresh virtual router: for the demonstration and for the tests alike."""

import os
import re
import time
import traceback

from router import image, machine, recorder, run_file, scene, sentences, timeline

STATUS_FILES = ["/tmp/kelm.info", "/tmp/wps_result", "/tmp/wpsactive", "/tmp/wps_wifi_ap.txt",
                "/tmp/wps_wifi_sta.txt", "/tmp/_wps_wifi_ap.txt", "/tmp/_wps_wifi_sta.txt",
                "/tmp/wps_wifi_ap_bh.txt"]


# What comes before the scenario itself: the packages, the image, the boot.
PREPARATIONS = 3


class Outcome:
    """What a scenario left behind."""

    def __init__(self):
        self.checks = []
        self.files = {}
        self.modes = {}
        self.names = {}
        self.zero_s = None
        self.recorder_s = None
        self.commands = {}
        self.exits = {}
        self.sentence = ""
        self.trouble = None
        self.details = ""
        self.log_folder = None

    def failed_checks(self):
        return [check for check in self.checks if not check.holds]

    def failures(self):
        failed = ["%s: saw %s" % (check.statement, check.seen) for check in self.failed_checks()]
        if self.trouble:
            failed.append("\n".join([self.trouble] + [self.details] * bool(self.details)))
        if not self.checks:
            failed.append("the scenario checked nothing")
        return failed

    def last_line(self):
        """What a person remembers of the run: what happened, or what went wrong."""
        if self.trouble:
            return "The scenario did not get to its end: %s." % self.trouble
        if not self.checks:
            return "The scenario did not get to its end: it checked nothing."
        failed = self.failed_checks()
        if failed:
            return "%d of %d checks failed: %s." % (
                len(failed), len(self.checks), "; ".join(check.statement for check in failed))
        return self.sentence


def play(scenario, build_folder, view=None):
    """Boots a router, plays the scenario on it and returns the outcome."""
    view = view or timeline.Silence()
    outcome = Outcome()
    outcome.log_folder = os.path.join(build_folder, "router", scenario.name)
    for kept in (run_file, recorder):
        kept.remove(outcome.log_folder)
    view.heading("%s: %s" % (scenario.name, scenario.sentence))
    steps = view.steps(PREPARATIONS)
    with image.built(build_folder, outcome.log_folder, steps, scenario.face) as (kernel, initrd), \
            machine.Machine(kernel, initrd, scenario.radios, outcome.log_folder,
                            view.on_event) as guest:
        stage = scene.Scene(guest, view)
        try:
            boot(stage, steps)
            recorder.start(stage, scenario.face)
            scenario.play(stage)
        except machine.MachineError as error:
            outcome.trouble, outcome.details = str(error), error.details
        except Exception as error:  # a person sees a sentence, a tester the place
            outcome.trouble = "the scenario itself is faulty (%s: %s)" % (
                type(error).__name__, error)
            outcome.details = traceback.format_exc()
        outcome.checks = stage.checks
        outcome.names, outcome.zero_s = dict(view.client_names), stage.zero_s
        _collect(guest, stage, outcome)
        outcome.sentence = sentences.sentence(
            scenario.told, sentences.Evidence(guest.events, view.client_names))
    run_file.write(outcome.log_folder, scenario, outcome)
    return outcome


def boot(stage, steps):
    """The last of the preparations."""
    steps.begin("boots the router (QEMU, %d MB of memory, emulated in software)"
                % machine.MEMORY_MB)
    begun = time.monotonic()
    stage.boot(steps.update)
    steps.done("the router has booted in %.0f s (QEMU, %d MB of memory, emulated in software)"
               % (time.monotonic() - begun, machine.MEMORY_MB))


def _collect(guest, stage, outcome):
    """Reads the guest's evidence while there is a guest to read it from."""
    try:
        for path in STATUS_FILES:
            text = guest.read(path)
            if text is not None:
                outcome.files[path] = text
        if outcome.files:
            _, output = guest.run("stat -c '%a %n' " + " ".join(outcome.files))
            modes = re.findall(r"^([0-7]+) (/\S+)$", output, re.M)
            outcome.modes = {path: mode.zfill(4) for mode, path in modes}
    except machine.MachineError as error:
        outcome.trouble = outcome.trouble or str(error)
    _keep_recording(guest, outcome)
    for run in range(1, 10):
        commands = stage.commands_of(run)
        if commands:
            outcome.commands[run] = commands
            outcome.exits[run] = stage.exit_of(run)


def _keep_recording(guest, outcome):
    try:
        trouble, outcome.recorder_s = recorder.fetch(guest, outcome.log_folder)
    except machine.MachineError as error:
        trouble = str(error)
    outcome.trouble = outcome.trouble or trouble
