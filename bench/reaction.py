# SPDX-License-Identifier: ISC
"""From the event's datagram to the commands, from the button to the first command."""
import time

import scene
from figures import Figure, Goal, Samples
from router import PRESS, hostapd_cli, ubus_send

EVENT = '<3>WPS-REG-SUCCESS 02:00:00:00:01:00 12345678-9abc-def0-1234-56789abcdef0'
# What the daemon runs after that event, one band, secured, up to its publication ...
EVENT_COMMANDS = (
    'echo 1 > /tmp/wps_result',
    'rm /tmp/wps_wifi_ap.txt',
    'rm /tmp/wps_wifi_sta.txt',
    hostapd_cli('2g', 'wps_cancel'),
    ubus_send(2, 12, 0),
)
# ... and after a press.
PRESS_COMMANDS = ('echo -1 > /tmp/wps_result', ubus_send(1, 11, 0))
PUBLICATION = 'ubus send wps'

# The goal is 1.2; a machine that does other work meanwhile spreads the samples of both by more than
# that. What would really go wrong (a wait, a second shell for each command) is far beyond 2. Before
# the first shell there is but a millisecond, so that one moment of other work weighs more.
NEAR_FLOOR = Goal(1.2, limit=2.0)
AHEAD = Goal(1.0, limit=3.0)
# Without its wake-up the loop's second would make this ratio about 100.
NO_SECOND = Goal(10, limit=10)


def _programs(commands):
    """What the stand-ins note of the commands: "echo" is the shell's own."""
    return [command.replace("'", '') for command in commands if not command.startswith('echo')]


class Times:
    """Of one contender: to the first shell, where it notes its start, and to the publication."""

    def __init__(self):
        self.shell = []
        self.publication = []

    def note(self, begin, found, commands):
        shells = [when for when, command in found if command.startswith('sh ')]
        ran = [command for _, command in found if not command.startswith('sh ')]
        assert ran == _programs(commands), f'{ran} instead of {_programs(commands)}'
        # Where the shells note their start they are slower: nothing else is taken from such a run.
        if shells:
            self.shell.append(shells[0] - begin)
        else:
            self.publication.append(found[-1][0] - begin)


def _send_event(server, times):
    scene.forget_stamps()
    begin = time.monotonic_ns()
    server.send(EVENT)
    times.note(begin, scene.wait_stamp(PUBLICATION), EVENT_COMMANDS)


def _send_press(bus, times):
    scene.pause(0.02)
    scene.forget_stamps()
    begin = time.monotonic_ns()
    bus.send('gpio', PRESS)
    times.note(begin, scene.wait_stamp(PUBLICATION), PRESS_COMMANDS)


def measure_kelm(world, press_times, event_times):
    """One whole attempt: a run of the daemon serves one only."""
    router = scene.Kelm(world)
    try:
        router.configure(band_set=0)
        router.start(bands=('2g',))
        _send_press(router.bus, press_times)
        scene.wait_stamp('hostapd_cli')
        scene.pause(0.05)
        _send_event(router.hostapd['2g'], event_times)
        scene.wait_stamp('wps restart')
        router.end(poke=False)
    finally:
        router.close()


def _measure_press_floor(world, times):
    router = scene.Kelm(world)  # for its bus alone
    try:
        router.start_bus()
        floor = scene.PressFloor(PRESS_COMMANDS)
        try:
            _send_press(router.bus, times)
        finally:
            floor.close()
    finally:
        router.close()


def _measure_others(world, tools, times):
    _measure_press_floor(world, times['press_floor'])
    for name, start in (('floor', lambda: scene.event_floor(EVENT_COMMANDS)),
                        ('cli', lambda: scene.action_cli(tools.hostapd_cli, EVENT_COMMANDS))):
        contender = start()
        scene.pause(0.02)
        _send_event(contender.server, times[name])
        contender.close()


def measure(world, tools, rounds):
    """The contenders in turn, so that a change of the machine's speed meets all of them."""
    scene.use_stamps(world)
    names = ('kelm', 'floor', 'cli', 'press', 'press_floor')
    for count in range(rounds + 1):
        if count < 2:
            times = {name: Times() for name in names}  # the first round is to warm up
        measure_kelm(world, times['press'], times['kelm'])
        _measure_others(world, tools, times)
        with scene.stamped_shell():
            measure_kelm(world, times['press'], times['kelm'])
            _measure_others(world, tools, times)

    def row(name, which, kelm, other_name, other, goal):
        return Figure(name, Samples(getattr(times[kelm], which), 'ns'), other_name,
                      Samples(getattr(times[other], which), 'ns'), goal)
    return [
        row('event to first shell', 'shell', 'kelm', 'select and system', 'floor', None),
        row('event to first shell', 'shell', 'kelm', 'hostapd_cli -a', 'cli', AHEAD),
        row('event to "ubus send"', 'publication', 'kelm', 'the same five by system', 'floor',
            NEAR_FLOOR),
        row('event to "ubus send"', 'publication', 'kelm', 'hostapd_cli -a, the five in one script',
            'cli', None),
        row('press to first shell', 'shell', 'press', 'libubus and system', 'press_floor',
            NO_SECOND),
        row('press to "ubus send"', 'publication', 'press', 'libubus and system', 'press_floor',
            None),
    ]
