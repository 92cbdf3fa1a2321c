# SPDX-License-Identifier: ISC
"""From the start as a command to the request for events that the Wi-Fi daemon receives."""
import os
import signal
import subprocess
import time

import daemon_run
import peers
import scene
from figures import Figure, Samples
from router import hostapd_cli

FOLDER = f'{scene.BENCH_RUN}/start'
BANDS = ('2g', '5g')
# What the daemon runs before it attaches; without an access-point PIN.
COMMANDS = [hostapd_cli(band, 'wps_ap_pin disable') for band in BANDS]


class _Notes:
    """When clients attached."""

    def __init__(self):
        self.times = []
        self.replies = {'ATTACH': self._attach}

    def _attach(self, server, client):
        self.times.append(time.monotonic_ns())
        server.sendto(b'OK\n', client)

    def wait(self, count):
        scene.wait_for(lambda: len(self.times) >= count, 'the attached client')
        return self.times[count - 1]


def start_kelm(world, bands):
    """Without the tests' own launch, which looks through all processes before and after."""
    notes = _Notes()
    router = scene.Kelm(world)
    router.start_bus()
    router.add_hostapd(*bands, replies=notes.replies)
    try:
        begin = time.monotonic_ns()
        command = subprocess.Popen([daemon_run.PROGRAM], stdin=subprocess.DEVNULL)
        taken = notes.wait(len(bands)) - begin
        assert command.wait(20) == 0
        daemon = int(world.read('/tmp/kelm.pid'))
        os.kill(daemon, signal.SIGTERM)
        assert os.waitpid(daemon, 0)[1] == 0
    finally:
        router.close()
    return taken


def _start_other(*command):
    notes = _Notes()
    server = peers.ControlServer(f'{FOLDER}/wlan1', notes.replies)
    begin = time.monotonic_ns()
    process = subprocess.Popen(command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL)
    taken = notes.wait(1) - begin
    process.terminate()
    process.wait(10)
    server.close()
    return taken


def measure(world, tools, rounds):
    scene.use_stamps(world)
    times = {'kelm': [], 'client': [], 'floor': []}
    for _ in range(rounds + 1):
        times['kelm'].append(start_kelm(world, BANDS))
        times['client'].append(_start_other(tools.hostapd_cli, '-p', FOLDER, '-i', 'wlan1', '-a',
                                            '/bin/true'))
        times['floor'].append(_start_other(f'{scene.PROGRAMS}/event_floor', f'{FOLDER}/own',
                                           f'{FOLDER}/wlan1', '', *COMMANDS))
    samples = {name: Samples(values[1:], 'ns') for name, values in times.items()}
    return [Figure('start to attached', samples['kelm'], 'its two commands by system, attach',
                   samples['floor']),
            Figure('start to attached', samples['kelm'], 'hostapd_cli -a, no command',
                   samples['client'])]
