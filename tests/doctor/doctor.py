# SPDX-License-Identifier: ISC
"""Runs kelm-doctor on a router, and reads what it says."""
import json
from collections import namedtuple

Finding = namedtuple('Finding', 'check band result text')
Findings = namedtuple('Findings', 'status findings')

# Longer than the doctor waits for peers that hang, on all bands.
LONGEST_S = 90


def examine(router, arguments='', env=None):
    """By --json: Findings(exit status, list of Finding(check, band, result, text))."""
    result = router.run(f'kelm-doctor --json {arguments}', env=env, timeout=LONGEST_S)
    assert result.err == '', result
    said = json.loads(result.out)
    found = [Finding(one['check'], one['band'], one['result'], one['text'])
             for one in said['checks']]
    assert said['status'] == result.status
    return Findings(result.status, found)


def told(router, check, band='', arguments=''):
    """What one check says of a band: a list of (result, text), mostly of one."""
    return [(one.result, one.text) for one in examine(router, arguments).findings
            if (one.check, one.band) == (check, band)]
