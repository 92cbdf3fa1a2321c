#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""The command line of script/report: reads recordings, writes one page or one picture."""

import argparse
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.dirname(HERE))

EXIT_FAILED, EXIT_USAGE = 1, 2
HELP = "see script/report --help"


class _Parser(argparse.ArgumentParser):
    """Says what is wrong in one line."""

    def error(self, message):
        print("script/report: %s; %s" % (message, HELP), file=sys.stderr)
        sys.exit(EXIT_USAGE)


def parse(words):
    parser = _Parser(prog="script/report", add_help=False, allow_abbrev=False)
    parser.add_argument("inputs", nargs="*")
    parser.add_argument("-o", dest="page")
    parser.add_argument("--svg")
    parser.add_argument("--attempt", type=int)
    parser.add_argument("--title")
    parser.add_argument("--check-arguments", action="store_true")
    arguments = parser.parse_args(words)
    if not arguments.inputs:
        parser.error("no recording is named")
    if bool(arguments.page) == bool(arguments.svg):
        parser.error("name one file to write: -o PAGE or --svg PICTURE")
    if arguments.svg and len(arguments.inputs) > 1:
        parser.error("--svg takes one recording")
    if arguments.attempt is not None and not arguments.svg:
        parser.error("--attempt goes with --svg: a page holds every attempt")
    return arguments


def report(arguments):
    """What is written, as text; ReadError where an input cannot be read."""
    from report import page, readers
    logs = [readers.read(path) for path in arguments.inputs]
    title = arguments.title or _title(logs)
    if not arguments.svg:
        return page.render(logs, title)
    return page.render_svg(logs[0], _attempt(logs[0], arguments), title)


def _attempt(log, arguments):
    from report import attempts, readers
    found = attempts.attempts(log)
    number = 1 if arguments.attempt is None else arguments.attempt
    if not 1 <= number <= len(found):
        raise readers.ReadError("%s has no attempt %d; it has %d" % (
            arguments.inputs[0], number, len(found)))
    return found[number - 1]


def _title(logs):
    first = logs[0]
    name = first.scenario or os.path.basename(os.path.normpath(first.path))
    return name if len(logs) == 1 else "%s and %d more" % (name, len(logs) - 1)


def write(path, text, inputs):
    """Writes the whole file or none; what was read is never written over."""
    data = text.encode("utf-8")
    if path == "-":
        sys.stdout.buffer.write(data)
        sys.stdout.buffer.flush()
        return
    if any(os.path.exists(one) and os.path.exists(path) and os.path.samefile(one, path)
           for one in inputs):
        raise OSError("it is an input, which is not written over")
    if os.path.exists(path) and not os.path.isfile(path):
        with open(path, "wb") as file:
            file.write(data)
        return
    part = path + ".part"
    try:
        with open(part, "wb") as file:
            file.write(data)
        os.replace(part, path)
    except OSError:
        if os.path.exists(part):
            os.unlink(part)
        raise


def main(words):
    arguments = parse(words)
    if arguments.check_arguments:
        return 0
    from report import readers
    try:
        text = report(arguments)
    except readers.ReadError as error:
        print("script/report: %s" % error, file=sys.stderr)
        return EXIT_FAILED
    path = arguments.page or arguments.svg
    try:
        write(path, text, arguments.inputs)
    except BrokenPipeError:
        # Nobody reads on; Python would say so once more at its end.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    except OSError as error:
        print("script/report: %s cannot be written: %s" % (path, error.strerror or error),
              file=sys.stderr)
        return EXIT_FAILED
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
