# SPDX-License-Identifier: ISC
"""Every key and PIN of the scenarios, in each form in which a text could hold one."""

import base64
import json
import re

# What the scenarios write down: keys of networks, PINs.
WRITTEN = ["under the old elm", "over the old elm", "acorns in the cellar", "felled long ago",
           "a key from the laptop", "it's \"$HOME\" & \\ ; #1", "12345670", "24681353",
           "3352396938495fda31ea0e587f4247931223a5729f9072fbd8c8e2c135f64aeb",
           "0211bddb8aca16d864a1c50d2a00fbf1ed78653af7efe9c9ffa0c1561bcdad97"]
# What only a run tells: PINs that a device has made up, the payloads of the two events with
# credentials, the keys in the daemon's files.
IN_EVENTS = [r"wps_pin any (\d{8})", r'"pin":"(\d{8})"', r"WPS-NEW-AP-SETTINGS ([0-9a-f]{16,})",
             r"WPS-CRED-RECEIVED ([0-9a-f]{16,})"]
KEY_NAME = re.compile(r"password|psk|wepKey")
SHORTEST = 8


def of_run(events, files):
    """The secrets of one run: its logged events as text, and the files that the daemon left."""
    found = set(WRITTEN)
    for pattern in IN_EVENTS:
        found |= set(re.findall(pattern, events))
    for text in files.values():
        try:
            members = json.loads(text)
        except ValueError:
            continue
        if isinstance(members, dict):
            found |= {value for name, value in members.items()
                      if KEY_NAME.search(name) and isinstance(value, str)}
    return sorted(one for one in found if len(one) >= SHORTEST)


def forms(secret):
    raw = secret.encode()
    return {secret, json.dumps(secret)[1:-1], json.dumps(json.dumps(secret)[1:-1])[1:-1],
            raw.hex(), raw.hex().upper(), base64.b64encode(raw).decode().rstrip("=")}


def in_text(text, secrets):
    """The secrets that a text holds."""
    return [secret for secret in secrets if any(form in text for form in forms(secret))]
