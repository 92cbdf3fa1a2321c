# SPDX-License-Identifier: ISC
"""kelm-watch on the virtual router: it runs from before the services, and its recording is kept.

It is started beside the router, so it outlives a stock router's power cut, and it writes to /run:
the scenarios fill /tmp.
"""

import contextlib
import os

NAME = "recording.jsonl"
PROGRAM = "/usr/sbin/kelm-watch"
RECORDING = "/run/recording.jsonl"
PID_FILE = "/run/recorder.pid"
TROUBLE = "/run/recorder.trouble"
TICKS = 100  # of /proc, in a second
# Where the router's system log is kept as well; the console of a maker's firmware is none of it.
LOGS = {"stock": "/run/syslog.lines"}

START = """%(before)s
%(program)s --quiet -o %(recording)s %(log)s </dev/null >/dev/null 2>%(trouble)s &
echo $! >%(pid_file)s"""
# Its last line says that it was stopped.
STOP = """. /lib/functions/router.sh
pid=$(cat %s)
cat "/proc/$pid/stat"
kill "$pid" || exit 1
wait_until 20 sh -c "! kill -0 $pid" """ % PID_FILE


def remove(folder):
    """An older run's recording would be told beside this run's logs."""
    with contextlib.suppress(FileNotFoundError):
        os.remove(os.path.join(folder, NAME))


def start(stage, face):
    log = LOGS.get(face)
    stage.must_run(START % {
        "before": ": >>%s" % log if log else "", "program": PROGRAM, "recording": RECORDING,
        "log": "--log " + log if log else "", "trouble": TROUBLE, "pid_file": PID_FILE})
    stage.must_run(". /lib/functions/router.sh; wait_until 20 test -s %s || { cat %s; exit 1; }"
                   % (RECORDING, TROUBLE))


def fetch(guest, folder):
    """Stops it and brings its recording; returns what was wrong, or "", and its processor time."""
    status, stat = guest.run(STOP)
    trouble = guest.read(TROUBLE) or ""
    text = guest.read(RECORDING)
    if text is not None:
        with open(os.path.join(folder, NAME), "w", encoding="utf-8") as out:
            out.write(text)
    if status != 0 or text is None:
        return "the recorder did not run to the end: %s" % (trouble.strip() or "it is gone"), None
    return trouble.strip(), _processor_s(stat)


def _processor_s(stat):
    """User and system time, in seconds, of a process's line in /proc."""
    fields = stat.rpartition(")")[2].split()
    return sum(int(ticks) for ticks in fields[11:13]) / TICKS
