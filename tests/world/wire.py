# SPDX-License-Identifier: ISC
"""A bus client in bytes: sends events with integers of any width, and listens."""
import select
import socket
import struct

SOCKET = '/var/run/ubus/ubus.sock'

HELLO, STATUS, DATA, INVOKE, ADD_OBJECT = 0, 1, 2, 5, 6
ATTR_STATUS, ATTR_OBJID, ATTR_METHOD, ATTR_DATA = 1, 3, 4, 7
EVENT_OBJECT = 1
TABLE, STRING, INT64, INT32, INT16, INT8 = 2, 3, 4, 5, 6, 7
INTEGER_FORMATS = {INT64: '>q', INT32: '>i', INT16: '>h', INT8: '>b'}


def _padded(data, to=4):
    return data + bytes(-len(data) % to)


def _attribute(number, payload, extended=False):
    word = (0x80000000 if extended else 0) | number << 24 | (4 + len(payload))
    return _padded(struct.pack('>I', word) + payload)


def member(kind, name, value):
    """One named member; the value of a TABLE is the bytes of its members."""
    header = _padded(struct.pack('>H', len(name)) + name.encode() + b'\0')
    if kind in INTEGER_FORMATS:
        payload = struct.pack(INTEGER_FORMATS[kind], value)
    elif kind == STRING:
        payload = value.encode() + b'\0'
    else:
        payload = value
    return _attribute(kind, header + payload, extended=True)


def _children(body):
    """(number, payload) of each attribute in turn."""
    at = 0
    while at + 4 <= len(body):
        word = struct.unpack_from('>I', body, at)[0]
        length = word & 0xffffff
        yield word >> 24 & 0x7f, body[at + 4:at + length]
        at += (length + 3) & ~3


def _members(body):
    """The members of a table, as a dict in their order."""
    found = {}
    for kind, payload in _children(body):
        name_length = struct.unpack_from('>H', payload)[0]
        value = payload[(2 + name_length + 1 + 3) & ~3:]
        name = payload[2:2 + name_length].decode()
        if kind in INTEGER_FORMATS:
            found[name] = struct.unpack(INTEGER_FORMATS[kind], value)[0]
        elif kind == STRING:
            found[name] = value[:-1].decode()
        else:
            found[name] = _members(value)
    return found


class BusClient:
    """A connection to the broker."""

    def __init__(self, pattern=None):
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._socket.settimeout(10)
        self._socket.connect(SOCKET)
        self._sequence = 0
        self._events = []
        assert self._message()[0] == HELLO
        if pattern is not None:
            self._listen(pattern)

    def close(self):
        self._socket.close()

    def send(self, event, members=b''):
        """Sends an event; its copies are with the listeners when this returns."""
        data = member(STRING, 'id', event) + member(TABLE, 'data', members)
        self._invoke('send', data)

    def events(self):
        """(type, members) of each event since the last call, without waiting."""
        while select.select([self._socket], [], [], 0)[0]:
            kind, _, _, body = self._message()
            if kind == INVOKE:
                self._note(body)
        found, self._events = self._events, []
        return found

    def _listen(self, pattern):
        body = self._request(ADD_OBJECT, 0, b'')
        number = struct.unpack('>I', dict(_children(body))[ATTR_OBJID])[0]
        self._invoke('register', member(INT32, 'object', number - (number >> 31 << 32))
                     + member(STRING, 'pattern', pattern))

    def _invoke(self, method, data):
        self._request(INVOKE, EVENT_OBJECT,
                      _attribute(ATTR_OBJID, struct.pack('>I', EVENT_OBJECT))
                      + _attribute(ATTR_METHOD, method.encode() + b'\0')
                      + _attribute(ATTR_DATA, data))

    def _request(self, kind, peer, body):
        """Sends a request, waits for its status, returns the body of its data."""
        self._sequence += 1
        message = struct.pack('>BBHI', 0, kind, self._sequence, peer)
        self._socket.sendall(message + struct.pack('>I', 4 + len(body)) + body)
        data = b''
        while True:
            kind, sequence, got_peer, answer = self._message()
            if kind == INVOKE:
                self._note(answer)
            elif (sequence, got_peer) == (self._sequence, peer) and kind == DATA:
                data = answer
            elif (sequence, got_peer) == (self._sequence, peer) and kind == STATUS:
                status = struct.unpack('>I', dict(_children(answer))[ATTR_STATUS])[0]
                assert status == 0, f'the broker answers {status}'
                return data

    def _note(self, body):
        parts = dict(_children(body))
        self._events.append((parts[ATTR_METHOD][:-1].decode(), _members(parts[ATTR_DATA])))

    def _message(self):
        header = self._bytes(12)
        _, kind, sequence, peer, length = struct.unpack('>BBHII', header)
        return kind, sequence, peer, self._bytes(length - 4)

    def _bytes(self, count):
        data = b''
        while len(data) < count:
            part = self._socket.recv(count - len(data))
            if not part:
                raise ConnectionError('the broker closed the connection')
            data += part
        return data
