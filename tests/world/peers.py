# SPDX-License-Identifier: ISC
"""The daemon's peers, scripted: hostapd's and wpa_supplicant's control sockets, and the bus."""
import contextlib
import os
import re
import select
import signal
import socket
import subprocess
import threading

import wire
from world import Console, leave_network, wait_for

BROKER = '/mnt/build/hostlibs/ubusd'
BUS_COMMAND = '/mnt/build/hostlibs/ubus'


class ControlServer:
    """One interface's control socket. Clients that attach get its events.

    replies: per request ("ATTACH", "DETACH") the datagrams to answer with, in order; an empty list
    is silence. What is not named is answered with "OK". Instead of datagrams a function may stand,
    called with the socket and the client.
    """

    def __init__(self, path, replies=None):
        self.path = path
        self.requests = []
        self.clients = []
        self._attaching = threading.Lock()
        self._replies = replies or {}
        os.makedirs(os.path.dirname(path), exist_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(path)
        self._wake, self._wake_end = os.pipe()
        self._thread = threading.Thread(target=self._serve, daemon=True)
        self._thread.start()

    def close(self, leave_path=False):
        """What the end of the Wi-Fi daemon does: the socket is gone, nothing is said.

        leave_path: a daemon that was killed leaves its name in the file system.
        """
        os.write(self._wake_end, b'.')
        self._thread.join()
        self._socket.close()
        os.close(self._wake)
        os.close(self._wake_end)
        if not leave_path and os.path.lexists(self.path):
            os.unlink(self.path)

    def send(self, event):
        """An event to each attached client."""
        data = event if isinstance(event, bytes) else event.encode()
        with self._attaching:
            self._send_to_all(data)

    def _send_to_all(self, data):
        assert self.clients, f'nobody is attached to {self.path}'
        sent = 0
        for client in list(self.clients):
            try:
                self._socket.sendto(data, client)
                sent += 1
            except (FileNotFoundError, ConnectionRefusedError):
                with contextlib.suppress(ValueError):
                    self.clients.remove(client)  # it left without a word
        assert sent, f'nobody is attached to {self.path} any more'

    def send_to(self, client, data, flags=0):
        """A datagram to one client, in plain: what the kernel says comes back as OSError."""
        self._socket.sendto(data, flags, client)

    def silence(self):
        """From now on no request is answered, as by a daemon that hangs."""
        self._replies = dict.fromkeys(('ATTACH', 'DETACH'), [])

    def wait_attached(self, count=1):
        def attached():
            with self._attaching:
                return len(self.clients) >= count
        wait_for(attached, f'a client attached to {self.path}')

    def _serve(self):
        while True:
            ready = select.select([self._socket, self._wake], [], [])[0]
            if self._wake in ready:
                return
            data, client = self._socket.recvfrom(4096)
            self._answer(data.decode(), client)

    def _answer(self, request, client):
        self.requests.append(request)
        replies = self._replies.get(request, ['OK\n'])
        if request == 'DETACH' and client in self.clients:
            self.clients.remove(client)
        if callable(replies):
            replies(self._socket, client)
            return
        # Who has the answer is in the list: a test may know of the answer before this thread goes
        # on. No event comes in between.
        with self._attaching:
            attached = request == 'ATTACH' and 'OK\n' in replies
            if attached:
                self.clients.append(client)
            try:
                for reply in replies:
                    self._socket.sendto(
                        reply if isinstance(reply, bytes) else reply.encode(), client)
            except (FileNotFoundError, ConnectionRefusedError):
                if attached:
                    self.clients.remove(client)  # it did not wait


class LogDaemon(Console):
    """What the daemon sends to /dev/log, to be read as what it writes to a console.

    Its queue is long by default: how fast a test reads must not decide what it sees.
    """

    PATH = '/dev/log'
    HEAD = re.compile(
        r'<30>[A-Z][a-z]{2} [ 123][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} kelm\[([0-9]+)\]: ')

    def __init__(self, queue_length=10000):
        super().__init__()
        self.senders = set()  # the pids that the lines name
        self.others = []  # lines that are not of the log
        self._queue_length = queue_length
        self._socket = None
        self.put()

    def put(self):
        """A new one, as after a restart of the log daemon."""
        self.close()
        maker = threading.Thread(target=self._make_socket)
        maker.start()
        maker.join()
        self._text = ''

    def _make_socket(self):
        """In a thread, which gets a network of its own: the limit of a queue is the network's."""
        leave_network()
        with open('/proc/sys/net/unix/max_dgram_qlen', 'w', encoding='utf-8') as limit:
            limit.write(str(self._queue_length))
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM)
        self._socket.bind(self.PATH)

    def close(self):
        if os.path.lexists(self.PATH):
            os.unlink(self.PATH)
        if self._socket is not None:
            self._socket.close()
        self._socket = None

    def fill(self):
        """Makes it take nothing more, as one that hangs."""
        with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as sender:
            sender.setblocking(False)
            with contextlib.suppress(BlockingIOError):
                while True:
                    sender.sendto(b'full', self.PATH)

    def text(self):
        with contextlib.suppress(BlockingIOError):
            while True:
                line = self._socket.recv(4096, socket.MSG_DONTWAIT).decode()
                head = self.HEAD.match(line)
                if head is None:
                    self.others.append(line)
                    continue
                self.senders.add(int(head[1]))
                self._text += line[head.end():] + '\n'
        return self._text


class Broker:
    """The project's own broker."""

    def __init__(self):
        self._process = None
        self.start()

    def start(self):
        self._process = subprocess.Popen([BROKER], close_fds=True)
        wait_for(self._answers, 'the broker')

    @staticmethod
    def _answers():
        probe = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        try:
            probe.connect(wire.SOCKET)
            return True
        except OSError:
            return False
        finally:
            probe.close()

    def freeze(self):
        """From now on it accepts through the kernel alone and says nothing."""
        self._process.send_signal(signal.SIGSTOP)

    def kill(self):
        """Ends it without a chance to take its socket along."""
        self._process.kill()
        self._process.wait(10)
        self._process = None

    def stop(self):
        """Ends it if it runs; its socket goes with it."""
        if self._process is None:
            return
        self._process.send_signal(signal.SIGCONT)
        self._process.terminate()
        self._process.wait(10)
        self._process = None


class SilentBroker:
    """Takes connections and says nothing."""

    def __init__(self):
        os.makedirs(os.path.dirname(wire.SOCKET), exist_ok=True)
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.bind(wire.SOCKET)
        self._socket.listen(5)

    def accepted(self):
        """Whether a client waits to be accepted, or was."""
        return bool(select.select([self._socket], [], [], 0)[0])

    def stop(self):
        self._socket.close()
        if os.path.lexists(wire.SOCKET):
            os.unlink(wire.SOCKET)


class ScriptedBroker:
    """Takes connections and does with each what the test says; then closes it."""

    def __init__(self, talk):
        """talk: called with each connection, in a thread of its own."""
        os.makedirs(os.path.dirname(wire.SOCKET), exist_ok=True)
        if os.path.lexists(wire.SOCKET):
            os.unlink(wire.SOCKET)
        self.accepted = 0
        self._talk = talk
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.bind(wire.SOCKET)
        self._socket.listen(5)
        self._thread = threading.Thread(target=self._accept, daemon=True)
        self._thread.start()

    def _accept(self):
        while True:
            try:
                connection = self._socket.accept()[0]
            except OSError:
                return
            self.accepted += 1
            threading.Thread(target=self._serve, args=(connection,), daemon=True).start()

    def _serve(self, connection):
        with connection:
            try:
                self._talk(connection)
            except OSError:
                pass  # the client had enough

    def stop(self):
        self._socket.shutdown(socket.SHUT_RDWR)
        self._thread.join()
        self._socket.close()
        if os.path.lexists(wire.SOCKET):
            os.unlink(wire.SOCKET)
