# SPDX-License-Identifier: ISC
"""One run of kelm-watch, and what it recorded."""
import glob
import json
import os
import signal
import subprocess

from daemon_run import REPORTS
from world import wait_for

PROGRAM = '/mnt/build/kelm-watch'
RECORDING = '/mnt/log/recording'


class Line:
    """One line of the recording."""

    def __init__(self, text):
        fields = json.loads(text)
        self.source = fields.get('source', '')
        self.text = fields.get('text', '')
        self.ms = fields.get('ms', 0)
        self.band = fields.get('band', '')

    def __repr__(self):
        return f'{self.source}: {self.text}'


class Watch:
    """A kelm-watch that records to a file outside /tmp, which the tests fill and take away."""

    def __init__(self, *arguments, recording=RECORDING, before=None, stdin=subprocess.DEVNULL,
                 wait=True):
        self.recording = recording
        if os.path.lexists(recording):
            os.unlink(recording)
        environment = dict(os.environ)
        environment['ASAN_OPTIONS'] = f'{REPORTS}:detect_leaks=1'
        environment['UBSAN_OPTIONS'] = f'{REPORTS}:print_stacktrace=1'
        environment['TSAN_OPTIONS'] = f'{REPORTS}:report_thread_leaks=0'
        self.process = subprocess.Popen(
            [PROGRAM, '-o', recording, '--quiet', *arguments], stdin=stdin,
            stdout=subprocess.PIPE, stderr=subprocess.STDOUT, env=environment, cwd='/',
            preexec_fn=before)
        self.pid = self.process.pid
        if wait:
            self.wait('watch', 'kelm-watch ')

    def lines(self, source=None):
        """The lines so far, the head and one that is just being written left out."""
        try:
            with open(self.recording, encoding='utf-8') as file:
                whole = [line for line in file if line.endswith('\n')]
        except FileNotFoundError:
            return []
        found = [Line(line) for line in whole[1:]]
        return [line for line in found if source in (None, line.source)]

    def texts(self, source):
        return [line.text for line in self.lines(source)]

    def states(self, name):
        """What became of one control socket."""
        return [text for text in self.texts('socket') if text.startswith(f'{name} ')]

    def wait(self, source, text, count=1, timeout=20.0):
        """Until so many lines of the source begin with the text; returns the last of them."""
        def there():
            found = [line for line in self.texts(source) if line.startswith(text)]
            return found[count - 1] if len(found) >= count else None
        try:
            return wait_for(there, f'"{text}" of {source}', timeout)
        except AssertionError as error:
            raise AssertionError(f'{error}; there is: {self.lines()}') from error

    def wait_attached(self, *names):
        for name in names:
            self.wait('socket', f'{name} attached')

    def freeze(self):
        self.process.send_signal(signal.SIGSTOP)
        self.wait_stopped()

    def wait_stopped(self):
        def stopped():
            with open(f'/proc/{self.pid}/stat', encoding='utf-8') as file:
                return file.read().rsplit(')', 1)[1].split()[0] == 'T'
        wait_for(stopped, 'the stop')

    def thaw(self):
        self.process.send_signal(signal.SIGCONT)

    def end(self, number=signal.SIGINT):
        """Its exit status."""
        if self.process.poll() is None:
            self.process.send_signal(signal.SIGCONT)
            self.process.send_signal(number)
        self.output = self.process.communicate(timeout=20)[0].decode()
        return self.process.returncode


def own_sockets():
    """The names of control clients in /tmp."""
    return glob.glob('/tmp/wpa_ctrl_*')
