# SPDX-License-Identifier: ISC
"""The recorder on the virtual router: it says nothing to hostapd but that it listens."""

import json
import os
import re

from router import image, machine, recorder, scene, screen, timeline

# What hostapd logs of each request at its highest level: the bytes, then the text.
REQUEST = re.compile(r"^ +(?:[0-9a-f]{2} )+ +(\S+)")


def requests(stage, since):
    """The words that hostapd was asked with since then, in order."""
    found = []
    events = [event.text for event in stage.events() if event.source == "hostapd"][since:]
    for before, text in zip(events, events[1:]):
        if "RX ctrl_iface - hexdump_ascii" in before:
            found.append(REQUEST.match(text).group(1))
    return found


def test_nothing_but_attach_and_detach_goes_to_hostapd(build_folder, tmp_path):
    with image.built(build_folder, str(tmp_path), screen.NoSteps()) as (kernel, initrd), \
            machine.Machine(kernel, initrd, 2, str(tmp_path)) as guest:
        stage = scene.Scene(guest, timeline.Silence())
        stage.boot()
        stage.must_run("sed -i 's/hostapd -f/hostapd -dd -f/' /etc/init.d/wifi")
        stage.start_broker()
        stage.must_run("/etc/init.d/wifi start")
        # What hostapd has logged of this stands behind all that the service asked.
        stage.must_run("hostapd_cli -p /var/run/hostapd -i wlan0 get_config")
        stage.expect("hostapd", "^ .* GET_CONFIG", "hostapd's log")
        since = len([one for one in stage.events() if one.source == "hostapd"])
        recorder.start(stage, "firmware")
        stage.must_run(". /lib/functions/router.sh; wait_until 60 sh -c "
                       "'[ $(grep -c \" attached\" %s) -ge 3 ]'" % recorder.RECORDING)
        stage.must_run("hostapd_cli -p /var/run/hostapd -i wlan1 wps_pbc")
        stage.must_run(". /lib/functions/router.sh; wait_until 60 grep WPS-PBC-ACTIVE %s"
                       % recorder.RECORDING)
        trouble, _ = recorder.fetch(guest, str(tmp_path))
        stage.settles(lambda: (requests(stage, since).count("DETACH") == 2, None), 20)
        assert trouble == ""
        assert requests(stage, since) == ["ATTACH", "ATTACH", "WPS_PBC", "DETACH", "DETACH"]
    with open(os.path.join(str(tmp_path), recorder.NAME), encoding="utf-8") as file:
        lines = [json.loads(line) for line in file]
    assert lines[0]["recording"] == "kelm"
    assert [line["text"] for line in lines if line.get("source") == "socket"] != []
    assert lines[-1]["text"] == "stopped"
