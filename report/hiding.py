# SPDX-License-Identifier: ISC
"""Takes secrets out of lines that kelm-watch has not written."""

import re

# What stands behind one of these words is a PIN, a key or a credential.
_SECRETS = [re.compile(pattern) for pattern in (
    r'"(?:pin|key|psk|password\w*|\w*psk_key\w*)" ?: ?"?([^",}]*)',
    r"\bwps_pin \S+ (\S+)", r"\bwps_ap_pin set (\S+)", r"\bpin[cC]ode: ?([^, ]+)",
    r"\bPIN:? (\S+)", r"\bwps_reg \S+ (.*)", r"\bpassword: ?(.*)",
    r"\b(?:psk|wpa_psk|wpa_passphrase|sae_password|wep_key\d|key|passphrase)=(.*)",
    r"\bvalue\[(.*)\]", r"\bWPS-(?:CRED-RECEIVED|NEW-AP-SETTINGS|AP-PIN-\w+) (\S.*)")]


def redacted(_source, text):
    for pattern in _SECRETS:
        text = pattern.sub(_without_group, text)
    return text


def _without_group(found):
    begin, end = (place - found.start() for place in found.span(1))
    secret = found.group(1)
    if not secret or secret.startswith("[") and secret.endswith(" bytes]"):
        return found.group(0)
    return "%s[%d bytes]%s" % (found.group(0)[:begin], len(secret.encode()), found.group(0)[end:])
