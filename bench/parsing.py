# SPDX-License-Identifier: ISC
"""Scan lists of 20 and of 2000 entries, a configuration file of 1 MiB."""
import json
import subprocess

import attempts
import scene
from figures import Figure, Goal, Samples

SHORT, LONG = 20, 2000  # entries
MEBIBYTE = 1 << 20
# The goal is 1.2; see reaction.py for why a time may be further off before it is an error.
NEAR_PARSE = Goal(1.2, limit=2.0)


def _scan(length):
    """The wanted neighbour stands last."""
    entries = [attempts.scan_entry(number) for number in range(length - 1)]
    entries.append(dict(attempts.scan_entry(0), ssid='Root', mac='02:00:00:00:01:02'))
    return json.dumps(entries)


def _configuration():
    """Blocks of a supplicant's file, repeated."""
    text = ''.join(
        f'network={{\n\tssid="Network number {number}"\n\tpsk="a passphrase of some length"\n'
        '\tproto=RSN\n\tkey_mgmt=WPA-PSK\n\tpairwise=CCMP\n\tauth_alg=OPEN\n}\n\n'
        for number in range(10000))
    return text[:text.rindex('network=', 0, MEBIBYTE)]


def measure(world, rounds):
    world.write('/mnt/short', _scan(SHORT))
    world.write('/mnt/scan', _scan(LONG))
    world.write('/mnt/configuration', _configuration())
    output = subprocess.run(
        [f'{scene.PROGRAMS}/parsing', str(rounds + 1), '/mnt/short', '/mnt/scan',
         '/mnt/configuration'],
        check=True, capture_output=True, text=True).stdout
    times = {}
    for line in output.splitlines():
        name, value = line.split()
        times.setdefault(name, []).append(int(value))
    samples = {name: Samples(values[1:], 'ns') for name, values in times.items()}
    configuration = 'parse 1 MiB of configuration'
    return [
        Figure(f'load {SHORT} scan entries, 50 times', samples['short_load'],
               "json-c's parse alone", samples['short_json'], NEAR_PARSE),
        Figure(f'match in {LONG} scan entries', samples['match'], "json-c's parse alone",
               samples['json'], NEAR_PARSE),
        Figure(configuration, samples['configuration'], 'fgets', samples['fgets']),
        Figure(configuration, samples['configuration'], 'fgets and a calloc a line',
               samples['allocate']),
    ]
