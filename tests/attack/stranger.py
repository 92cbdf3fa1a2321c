# SPDX-License-Identifier: ISC
"""A local user without any right: Python functions and the racer, run under another uid."""
import json
import os
import select
import subprocess

from world import wait_for

UID = 65534
RACER = '/mnt/build/tests/world/racer'


def _become(uid):
    os.setgroups([])
    os.setresgid(uid, uid, uid)
    os.setresuid(uid, uid, uid)


def may_be_another_user():
    """Tried in a child. A user namespace with one user in it has no other, whoever its root is."""
    child = os.fork()
    if child == 0:
        try:
            _become(UID)
            os._exit(0)
        except OSError:
            os._exit(1)
    return os.waitpid(child, 0)[1] == 0


class StrangerError(Exception):
    """What the other user was not allowed to do, by errno."""

    def __init__(self, number):
        super().__init__(os.strerror(number))
        self.errno = number


def run_as(uid, function, *arguments):
    """What function(*arguments) returns (anything that JSON can carry) in a process of that user.

    An OSError there becomes a StrangerError here; any other exception fails the test.
    """
    reader, writer = os.pipe()
    child = os.fork()
    if child == 0:
        status = 1
        try:
            os.umask(0)
            _become(uid)
            try:
                answer = {'value': function(*arguments)}
            except OSError as error:
                answer = {'errno': error.errno}
            os.write(writer, json.dumps(answer).encode())
            status = 0
        finally:
            os._exit(status)
    os.close(writer)
    with os.fdopen(reader, encoding='utf-8') as pipe:
        text = pipe.read()
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0, f'{function} broke off'
    answer = json.loads(text)
    if 'errno' in answer:
        raise StrangerError(answer['errno'])
    return answer['value']


class Racer:
    """A racer that runs: see tests/world/racer.c for the rules."""

    def __init__(self, uid, rules):
        self._process = subprocess.Popen(
            [RACER, *rules], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
            user=uid, group=uid, extra_groups=[], umask=0, cwd='/')
        self._text = b''
        wait_for(lambda: self._told().startswith('ready\n'), 'the racer')

    def _told(self):
        while select.select([self._process.stdout], [], [], 0)[0]:
            part = os.read(self._process.stdout.fileno(), 1 << 16)
            if not part:
                break
            self._text += part
        return self._text.decode()

    def lines(self):
        """What it managed so far: one line per thing that it put or saw, in order."""
        return self._told().splitlines()[1:]

    def end(self):
        """Stops it; returns the lines of all that it managed."""
        if not self._process.stdout.closed:
            self._process.terminate()
            self._process.wait()
            self._told()
            self._process.stdout.close()
        return self._text.decode().splitlines()[1:]


class Stranger:
    """The other user, with what it has running."""

    uid = UID

    def __init__(self):
        self._racers = []

    def run(self, function, *arguments):
        return run_as(self.uid, function, *arguments)

    def race(self, *rules):
        """Starts a racer; returns once it watches."""
        racer = Racer(self.uid, rules)
        self._racers.append(racer)
        return racer

    def read(self, path):
        """The whole file as text, or None when this user may not."""
        def text():
            with open(path, encoding='utf-8', errors='surrogateescape') as file:
                return file.read()
        try:
            return self.run(text)
        except StrangerError:
            return None

    def write(self, path, text, mode=0o644):
        def put():
            with open(path, 'w', encoding='utf-8') as file:
                file.write(text)
            os.chmod(path, mode)
        self.run(put)

    def end(self):
        for racer in self._racers:
            racer.end()
        self._racers = []
