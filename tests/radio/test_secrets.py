# SPDX-License-Identifier: ISC
"""The search for secrets finds them: it is what says of each recording that it holds none."""

import json

import pytest

import secrets_of_runs

KEY = "it's \"$HOME\" & \\ ; #1"


@pytest.mark.parametrize("text, found", [
    ("", []), ("ssid Elm House, [17 bytes]", []), ("psk=under the old elm", ["under the old elm"]),
    ("756e646572206f6c64", []), ("under the old elm".encode().hex(), ["under the old elm"]),
    ("under the old elm".encode().hex().upper(), ["under the old elm"]),
    ("dW5kZXIgdGhlIG9sZCBlbG0=", ["under the old elm"]), (KEY, [KEY]), (json.dumps(KEY), [KEY]),
    (json.dumps(json.dumps({"key": KEY})), [KEY]), ("wps_pin any 12345670", ["12345670"]),
])
def test_secret_is_found_in_each_form(text, found):
    assert secrets_of_runs.in_text(text, secrets_of_runs.WRITTEN) == found


def test_secrets_of_a_run_are_those_that_it_made_up_too():
    events = ('1.0 command 1 hostapd_cli -i wlan1 wps_pin any 53521118\n'
              '2.0 bus { "wps_cli": {"action":1,"method":2,"pin":"91827364"} }\n'
              '3.0 hostapd wlan1: WPS-NEW-AP-SETTINGS 100e0012345678901045\n')
    files = {"/tmp/wps_wifi_ap.txt": json.dumps({"password_2g": "made up by hostapd",
                                                 "ssid_2g": "Elm House!!", "wepKey_2g": ""}),
             "/tmp/wps_result": "1\n", "/tmp/kelm.info": "no JSON"}
    assert set(secrets_of_runs.of_run(events, files)) - set(secrets_of_runs.WRITTEN) == {
        "53521118", "91827364", "100e0012345678901045", "made up by hostapd"}
