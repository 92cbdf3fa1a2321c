#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""The person's side of the virtual router: lists the scenarios, or plays one on the screen."""

import argparse
import os
import shutil
import signal
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))

from router import (all_scenarios, image, machine, packages, pages, play, scenarios,  # noqa: E402
                    scene, timeline)

EXIT_FAILED, EXIT_USAGE, EXIT_INTERRUPTED = 1, 2, 130
SHELL_RADIOS = 4
# Packages may have to be installed first, over a slow line.
LONGEST_START_S = 6 * 3600


def listing():
    return "\n".join("  %-18s %s" % (row.name, row.sentence) for row in scenarios.SCENARIOS)


def parse(arguments):
    parser = argparse.ArgumentParser(
        prog="script/demo", formatter_class=argparse.RawDescriptionHelpFormatter,
        description="Boots a virtual router with simulated radios and plays an attempt on it.",
        epilog="scenarios (the first one when none is named):\n" + listing())
    parser.add_argument("scenario", nargs="?", metavar="NAME", default=scenarios.SCENARIOS[0].name)
    parser.add_argument("--list", action="store_true", help="name the scenarios and stop")
    parser.add_argument("--all", action="store_true",
                        help="play every scenario and make a page of all their pictures")
    parser.add_argument("--verbose", action="store_true",
                        help="show the daemon's commands and its files as well")
    parser.add_argument("--shell", action="store_true",
                        help="boot the router with everything running and give a prompt in it")
    parser.add_argument("--build", metavar="DIR", default="build", help=argparse.SUPPRESS)
    parser.add_argument("--check-arguments", action="store_true", help=argparse.SUPPRESS)
    return parser.parse_args(arguments)


def how_it_ended(end, commands):
    """The exit of a run of the daemon and what it decided to restart on its way out."""
    if end is None:
        return "still running"
    restarts = [line for line in commands if line.startswith("/etc/init.d/") and "restart" in line]
    return "exit %s; restart decision: %s" % (end, ", then ".join(restarts) or "none")


def print_evidence(view, outcome):
    """What the daemon ran and which files it left."""
    for run, commands in outcome.commands.items():
        view.heading("Commands of the daemon, run %d:" % run)
        for command in commands:
            view.text("  " + command)
        view.text("  -> %s" % how_it_ended(outcome.exits[run], commands))
    view.heading("Files:")
    for path, text in outcome.files.items():
        view.text("  %-22s %s" % (path, text.rstrip("\n").replace("\n", "\n" + " " * 25)))


def count_of(outcome):
    if not outcome.checks:
        return "No check was reached"
    return "%d of %d checks hold" % (len(outcome.checks) - len(outcome.failed_checks()),
                                     len(outcome.checks))


def shown_path(path):
    """As seen from here, unless that leads out of here."""
    relative = os.path.relpath(path)
    return os.path.abspath(path) if relative.startswith("..") else relative


def print_outcome(view, outcome, seconds):
    """The checks, where the logs are, what happened, and in the last line where its picture is."""
    if view.verbose:
        print_evidence(view, outcome)
    if outcome.checks:
        view.heading("Checks:")
    for check in outcome.checks:
        view.verdict(check.holds, check.statement)
        if not check.holds:
            view.text("        saw: %s" % (check.seen,))
    if outcome.details:
        view.heading("Details:")
        view.text(outcome.details.rstrip())
    if outcome.failures() and outcome.checks and not outcome.trouble:
        view.text("\n" + outcome.sentence)
    view.text("\n%s; %.0f seconds in all. Logs: %s"
              % (count_of(outcome), seconds, shown_path(outcome.log_folder)))
    view.last_line(not outcome.failures(), outcome.last_line())
    view.text(page_line(outcome.log_folder))


def page_line(folder):
    """Makes the page of a run; says where it is, or why there is none."""
    try:
        return "The picture of it: %s" % shown_path(pages.write_page(folder))
    except pages.PageError as error:
        return first_capital("%s." % error)


def first_capital(text):
    return text[:1].upper() + text[1:]


def started_at(environ, now):
    """When script/demo was started, in seconds since the epoch; now when nobody says so."""
    try:
        started = float(environ.get("KELM_DEMO_STARTED", ""))
    except ValueError:
        return now
    # A clock that was set meanwhile, or an old variable, would tell a nonsense.
    return started if 0 <= now - started < LONGEST_START_S else now


def play_on_screen(options, started):
    view = timeline.Timeline(verbose=options.verbose)
    outcome = play.play(scenarios.find(options.scenario), options.build, view)
    print_outcome(view, outcome, time.time() - started)
    return EXIT_FAILED if outcome.failures() else 0


def play_all(options):
    """Every scenario, a line each, and the page of all their pictures."""
    player = all_scenarios.Player(options.build, timeline.Timeline().screen)
    try:
        player.play(scenarios.SCENARIOS)
    finally:
        player.finish(shown_path)
    return EXIT_FAILED if player.failed else 0


def shell(build_folder):
    """A prompt whose lines are run in the guest, one by one."""
    folder = os.path.join(build_folder, "router", "shell")
    view = timeline.Timeline()
    steps = view.steps(play.PREPARATIONS)
    with image.built(build_folder, folder, steps) as (kernel, initrd), \
            machine.Machine(kernel, initrd, SHELL_RADIOS, folder) as guest:
        stage = scene.Scene(guest, view)
        play.boot(stage, steps)
        stage.start_router()
        print("The router runs; each line is a shell script of its own there. End with ^D.")
        for line in _prompted_lines():
            status, output = guest.run(line, 600)
            sys.stdout.write(output)
            if status != 0:
                print("[status %d]" % status)
    return 0


def _prompted_lines():
    while True:
        try:
            yield input("router# ")
        except EOFError:
            print()
            return


def _interrupted(*_):
    raise KeyboardInterrupt


def main():
    # A polite kill is an interrupt too: the guest and its image go with the program.
    signal.signal(signal.SIGTERM, _interrupted)
    signal.signal(signal.SIGINT, _interrupted)
    # An answer that nobody reads on just ends; a scenario is played to its end.
    signal.signal(signal.SIGPIPE, signal.SIG_DFL)
    started = started_at(os.environ, time.time())
    options = parse(sys.argv[1:])
    if options.list:
        print(listing())
        return 0
    if not options.shell and scenarios.find(options.scenario) is None:
        print("script/demo: there is no scenario '%s'; there are:\n%s"
              % (options.scenario, listing()), file=sys.stderr)
        return EXIT_USAGE
    if options.check_arguments:
        return 0
    signal.signal(signal.SIGPIPE, signal.SIG_IGN)
    if shutil.which("qemu-system-x86_64") is None:
        print("script/demo: qemu-system-x86_64 is missing: install the package qemu-system-x86.",
              file=sys.stderr)
        return EXIT_FAILED
    try:
        if options.shell:
            return shell(options.build)
        if options.all:
            return play_all(options)
        return play_on_screen(options, started)
    except (packages.PackageError, image.ImageError, machine.MachineError, OSError) as error:
        print("script/demo: %s." % str(error).rstrip("."), file=sys.stderr)
        return EXIT_FAILED
    except KeyboardInterrupt:
        print("\nscript/demo: interrupted; the guest has been ended", file=sys.stderr)
        return EXIT_INTERRUPTED


def finish_output():
    """Where nobody reads on, Python would complain at its end and exit with a status of its own."""
    try:
        sys.stdout.flush()
    except BrokenPipeError:
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())


if __name__ == "__main__":
    try:
        sys.exit(main())
    finally:
        finish_output()
