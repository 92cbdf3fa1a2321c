# SPDX-License-Identifier: ISC
"""Memory of the idle daemon, and at the end of whole attempts, beside an attached hostapd_cli."""
import os

import attempts
import scene
from figures import Figure, Goal, Samples

HOLD = '/mnt/reply/hold'
# The last command holds the daemon, which waits for it, with all that the attempt has touched.
HELD = f'while [ -e {HOLD} ] && [ "$1" = force_restart ]; do sleep 0.02; done\n'
CLIENT_EVENTS = ['<3>WPS-ENROLLEE-SEEN 02:00:00:00:07:00', attempts.REG_SUCCESS]


def _memory(pid):
    """(resident, the highest so far, private) in KiB."""
    with open(f'/proc/{pid}/smaps_rollup', encoding='ascii') as file:
        rows = [line.split() for line in file.read().splitlines()[1:]]
    found = {row[0].rstrip(':'): int(row[1]) for row in rows}
    with open(f'/proc/{pid}/status', encoding='ascii') as file:
        peak = next(int(line.split()[1]) for line in file if line.startswith('VmHWM'))
    return found['Rss'], peak, found['Private_Clean'] + found['Private_Dirty']


def of_attempt(world, name):
    """Idle before the attempt, and with its last command running."""
    begin, play = attempts.ATTEMPTS[name]
    world.reset()
    router = scene.Kelm(world)
    try:
        world.write(HOLD, '')
        world.reply('/etc/init.d/wifi', HELD)
        begin(router)
        neighbour = scene.PressFloor(['true'])
        scene.pause(1.5)
        idle = _memory(router.daemon.pid)
        play(router)
        attempts.wait_last_command(router, name)
        last = _memory(router.daemon.pid)
        neighbour.close()
        os.unlink(HOLD)
        assert router.end(poke=False) == 0
    finally:
        router.close()
    return idle, last


def _of_client(world, tools):
    """hostapd_cli attached and idle, and after it has run its script for the same events."""
    client = scene.action_cli(tools.hostapd_cli, ['ubus send wps x'])
    try:
        scene.pause(1.5)
        idle = _memory(client.pid)
        world.forget_commands()
        for event in CLIENT_EVENTS:
            client.server.send(event)
        scene.wait_for(world.commands, 'the script')
        return idle, _memory(client.pid)
    finally:
        client.close()


def private_kib(pid):
    """What the process shares with nobody."""
    return _memory(pid)[2]


def idle_client_kib(world, tools):
    """The private memory of an attached hostapd_cli."""
    return _of_client(world, tools)[0][2]


def measure(world, tools):
    scene.use_records()
    client_idle, client_end = _of_client(world, tools)
    rows = []
    for name in attempts.ATTEMPTS:
        idle, last = of_attempt(world, name)
        if not rows:
            rows += [('resident memory, idle', idle[0], client_idle[0]),
                     ('private memory, idle', idle[2], client_idle[2])]
        rows += [(f'resident memory, peak of an attempt, {name}', last[1], client_end[1]),
                 (f'private memory, end of an attempt, {name}', last[2], client_end[2])]
    return [Figure(name, Samples(own, 'KiB'), 'hostapd_cli -a', Samples(client, 'KiB'), Goal(1.0))
            for name, own, client in rows]
