# SPDX-License-Identifier: ISC
"""Boots the virtual router and talks to it: commands in, a stream of events out."""

import base64
import ctypes
import os
import re
import signal
import socket
import subprocess
import threading
import time

COMMAND_LIMIT_S = 120
WAIT_STEP_S = 0.5
LONG_S = 1.0  # for a person who watches
LAST_LINE_LIMIT = 200
MEMORY_MB = 512
PR_SET_PDEATHSIG = 1


class MachineError(Exception):
    """The guest did not do what it must do for any scenario to make sense.

    The text is one line for a person; `details` are what somebody needs who looks for the cause.
    """

    def __init__(self, text, details=""):
        super().__init__(text)
        self.details = details


class Event:
    """One thing that happened: when (guest clock, seconds), who says so, and the text."""

    def __init__(self, time_s, source, text):
        self.time_s = time_s
        self.source = source
        self.text = text

    def __repr__(self):
        return "%.2f %s %s" % (self.time_s, self.source, self.text)


class Machine:
    """A running guest. Use it as a context: leaving it ends the guest whatever happened."""

    def __init__(self, kernel, initrd, radios, log_folder, listener=None):
        self.events = []
        self._listener = listener
        self._changed = threading.Condition()
        self._clock_offset = None
        self._next_command = 0
        self._answers = {}
        self._ended = False
        self._log_folder = log_folder
        os.makedirs(log_folder, exist_ok=True)
        self._log = open(os.path.join(log_folder, "events.log"), "w", encoding="utf-8")
        self._console_log = open(os.path.join(log_folder, "console.log"), "wb")
        self._start(kernel, initrd, radios)

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.close()

    def _start(self, kernel, initrd, radios):
        ends = {}
        options = []
        for name in ("console", "events", "commands"):
            ours, theirs = socket.socketpair()
            ends[name] = (ours, theirs)
            options += ["-chardev", "socket,id=%s,fd=%d" % (name, theirs.fileno())]
        command = [
            "qemu-system-x86_64", "-nodefaults", "-no-user-config", "-no-reboot",
            "-display", "none", "-machine", "pc", "-accel", "tcg", "-cpu", "max",
            "-smp", "1", "-m", str(MEMORY_MB), "-kernel", kernel, "-initrd", initrd,
            # On a busy machine the emulated timer is late for the kernel's check of it. QEMU keeps
            # the code that it has translated by its address. Without norandmaps each process has
            # its libraries elsewhere, and QEMU translates them again: a run takes 1.5 times.
            "-append",
            "console=ttyS0 panic=-1 quiet no_timer_check random.trust_cpu=on norandmaps "
            "router.radios=%d" % radios,
        ] + options + [
            "-serial", "chardev:console", "-device", "virtio-serial-pci",
            "-device", "virtserialport,chardev=events,name=router.events",
            "-device", "virtserialport,chardev=commands,name=router.commands",
        ]
        with open(os.path.join(self._log_folder, "qemu.log"), "wb") as log:
            self._process = subprocess.Popen(
                command, stdin=subprocess.DEVNULL, stdout=log, stderr=log,
                pass_fds=[theirs.fileno() for _, theirs in ends.values()],
                preexec_fn=_die_with_parent)
        for _, theirs in ends.values():
            theirs.close()
        self._sockets = {name: ours for name, (ours, _) in ends.items()}
        self._threads = []
        for name, handle in (("console", self._on_console), ("events", self._on_event),
                             ("commands", self._on_answer)):
            thread = threading.Thread(target=self._read_lines, args=(name, handle), daemon=True)
            thread.start()
            self._threads.append(thread)

    def _read_lines(self, name, handle):
        # Whatever ends the reading, a full disk under the logs too: nobody waits for more.
        try:
            self._hand_on_lines(self._sockets[name], handle)
        finally:
            with self._changed:
                self._ended = True
                self._changed.notify_all()

    @staticmethod
    def _hand_on_lines(source, handle):
        rest = b""
        while True:
            try:
                data = source.recv(65536)
            except OSError:
                return
            if not data:
                return
            *lines, rest = (rest + data).split(b"\n")
            for line in lines:
                handle(line)

    def _on_console(self, raw):
        self._console_log.write(raw + b"\n")
        self._console_log.flush()
        text = raw.decode("utf-8", "replace").rstrip("\r")
        if text:
            self._add(self.now(), "console", text)

    def _on_event(self, raw):
        fields = raw.decode("utf-8", "replace").split("\t", 2)
        if len(fields) != 3:
            return
        time_s = float(fields[0])
        if self._clock_offset is None:
            self._clock_offset = time_s - time.monotonic()
        self._add(time_s, fields[1], fields[2])

    def _on_answer(self, raw):
        number, status, *output = raw.decode("ascii").split(" ")
        text = base64.b64decode(output[0] if output else "").decode("utf-8", "replace")
        with self._changed:
            self._answers[int(number)] = (int(status), text)
            self._changed.notify_all()

    def _add(self, time_s, source, text):
        event = Event(time_s, source, text)
        with self._changed:
            self.events.append(event)
            self._log.write("%r\n" % event)
            self._log.flush()
            self._changed.notify_all()
        if self._listener:
            self._listener(event)

    def now(self):
        """The guest's clock, as well as the host can tell it (console lines carry no time)."""
        return time.monotonic() + (self._clock_offset or 0.0)

    def note(self, source, text):
        """Adds an event of the host's own: what the scenario does."""
        self._add(self.now(), source, text)

    def ended(self):
        """Whether the guest has gone: nothing more will come from it."""
        return self._ended

    def wait_event(self, source, pattern, limit_s, since=0):
        """Waits for an event from `source` whose text holds `pattern`; None when the time is up.

        `since` is an index into `events`: what happened before it does not count.
        """
        wanted = re.compile(pattern)
        deadline = time.monotonic() + limit_s
        position = since
        with self._changed:
            while True:
                for event in self.events[position:]:
                    if event.source == source and wanted.search(event.text):
                        return event
                position = len(self.events)
                left = deadline - time.monotonic()
                if left <= 0 or self._ended:
                    return None
                self._changed.wait(left)

    def run(self, script, limit_s=COMMAND_LIMIT_S, waiting=None):
        """Runs a shell script in the guest; returns (exit status, output).

        waiting: called again and again with the seconds that are left, if it takes long.
        """
        with self._changed:
            self._next_command += 1
            number = self._next_command
        line = "%d %s\n" % (number, base64.b64encode(script.encode()).decode())
        try:
            self._sockets["commands"].sendall(line.encode())
        except OSError as error:
            raise MachineError("the guest ended", self.console_tail()) from error
        deadline = time.monotonic() + limit_s
        with self._changed:
            while number not in self._answers:
                left = deadline - time.monotonic()
                if self._ended:
                    raise MachineError("the guest ended", self.console_tail())
                if left <= 0:
                    raise MachineError("the guest did not answer within %d s" % limit_s, script)
                if waiting and left < limit_s - LONG_S:
                    waiting(left)
                self._changed.wait(min(left, WAIT_STEP_S))
            return self._answers.pop(number)

    def must_run(self, script, limit_s=COMMAND_LIMIT_S, waiting=None):
        status, output = self.run(script, limit_s, waiting)
        if status != 0:
            last_line = (output.strip().splitlines() or ["status %d" % status])[-1]
            raise MachineError("a command in the guest failed: %s" % last_line[:LAST_LINE_LIMIT],
                               "%s\n%s" % (script, output))
        return output

    def read(self, path):
        """The text of a file of the guest; None when there is none."""
        status, output = self.run("cat '%s'" % path)
        return output if status == 0 else None

    def console_tail(self):
        """The console's last lines, and what the emulator itself had to say."""
        lines = [event.text for event in self.events if event.source == "console"]
        with open(os.path.join(self._log_folder, "qemu.log"), encoding="utf-8",
                  errors="replace") as log:
            return "\n".join(lines[-15:] + log.read().splitlines()[-5:])

    def close(self):
        if self._process.poll() is None:
            self._process.kill()
        self._process.wait()
        for ours in self._sockets.values():
            try:
                ours.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass  # the guest has gone and taken its end with it
        for thread in self._threads:
            thread.join(5)
        for ours in self._sockets.values():
            ours.close()
        self._console_log.close()
        self._log.close()


def _die_with_parent():
    """A guest must not outlive a run that was killed."""
    ctypes.CDLL(None).prctl(PR_SET_PDEATHSIG, signal.SIGKILL)
