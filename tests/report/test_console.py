# SPDX-License-Identifier: ISC
"""Console logs as people save them: with and without times, from terminals and system logs."""

import pytest
import recorded

from report.attempts import attempts
from report.readers import read

PLAIN = recorded.as_console("overlap")
OWN = "kelm[main:51]: kelm 0.9.0"
START_S = 12 * 3600 + 4 * 60 + 45


def clock(number):
    """12:04:45 and so on, a line a second."""
    seconds = START_S + number
    return "%02d:%02d:%02d" % (seconds // 3600 % 24, seconds // 60 % 60, seconds % 60)


# What stands before each line, by its number.
FORMS = {
    "logread": lambda n: "Sun Nov 22 %s 2026 daemon.info kelm[872]: " % clock(n),
    "logread with parts": lambda n: "Sun Nov 22 %s 2026 [1763813085.123] daemon.info kelm[872]: "
    % clock(n),
    "logread early in a month": lambda n: "Sun Nov  1 %s 2026 daemon.info kelm[872]: " % clock(n),
    "syslogd": lambda n: "Nov 22 %s OpenWrt daemon.info kelm[872]: " % clock(n),
    "syslogd without a machine": lambda n: "Nov 22 %s kelm[872]: " % clock(n),
    "datagram": lambda n: "<30>Nov 22 %s kelm[872]: " % clock(n),
    "ISO": lambda n: "2026-11-22T%s.250Z " % clock(n),
    "ISO with a zone": lambda n: "2026-11-22T%s,250+01:00 " % clock(n),
    "date and time": lambda n: "2026-11-22 %s " % clock(n),
    "date and time in brackets": lambda n: "[2026-11-22 %s.250] " % clock(n),
    "time in brackets": lambda n: "[%s.250] " % clock(n),
    "time": lambda n: "%s " % clock(n),
    "time and a mark": lambda n: "%s.250> " % clock(n),
    "since the boot": lambda n: "[%12.6f] " % n,
    "since the boot, with the step": lambda n: "[%.6f 0.000012] " % n,
    "since the boot, with a thread": lambda n: "[%12.6f][  T271] " % n,
    "since the boot, bare": lambda n: "%.3f " % n,
}


def save(tmp_path, lines, end="\n"):
    path = tmp_path / "console.log"
    path.write_bytes("".join(line + end for line in lines).encode())
    return path


@pytest.mark.parametrize("form", FORMS)
def test_times_before_the_lines(tmp_path, form):
    log = read(save(tmp_path, [FORMS[form](n) + line for n, line in enumerate(PLAIN)]))
    assert log.has_times and len(log.events) == len(PLAIN)
    steps = {round(later.time_s - event.time_s, 3)
             for event, later in zip(log.events, log.events[1:])}
    assert steps == {1.0}
    assert {event.source for event in log.events} == {"console"}
    assert [one.cause for one in attempts(log)] == ["overlap"]


def test_lines_without_times(tmp_path):
    log = read(save(tmp_path, PLAIN))
    assert not log.has_times and {event.time_s for event in log.events} == {None}
    assert [one.cause for one in attempts(log)] == ["overlap"]


@pytest.mark.parametrize("change", [
    lambda line: line + "\r",
    lambda line: "\x1b[32m" + line + "\x1b[0m",
    lambda line: "\x1b]0;title\x07" + line,
    lambda line: "\0" + line + "\0",
    lambda line: "half a line that was written ov\r" + line,
    lambda line: "OpenWrt login: " + line,
    lambda line: "root@OpenWrt:~# " + line,
    lambda line: line + "\n[   12.345678] br-lan: port 1(eth0) entered blocking state",
    lambda line: line + "\nBusyBox v1.36.1 built-in shell (ash)",
    lambda line: line + "\n\n   \n",
    lambda line: line + "\nkelm[ma",
], ids="CRLF colours title zeros overwritten login prompt kernel banner empty cut".split())
def test_what_a_terminal_saves_beside_the_lines(tmp_path, change):
    log = read(save(tmp_path, [change(line) for line in PLAIN]))
    assert [event.text for event in log.events] == [event.text for event in
                                                    read(save(tmp_path, PLAIN)).events]
    assert not log.has_times and log.trouble == []


def test_nights_have_a_midnight_in_them(tmp_path):
    clock_times = ("23:59:59", "00:00:01", "13:00:01", "23:59:59", "00:00:04")
    log = read(save(tmp_path, ["[%s] %s" % (time, OWN) for time in clock_times]))
    assert [event.time_s - log.events[0].time_s for event in log.events] == [
        0, 2, 13 * 3600 + 2, 86400, 86405]


def test_a_line_without_a_time_has_that_of_the_one_before(tmp_path):
    log = read(save(tmp_path, ["[12:00:00] " + OWN, OWN, "[12:00:09] " + OWN]))
    assert [event.time_s - log.events[0].time_s for event in log.events] == [0, 0, 9]


def test_times_of_the_kernel_alone_are_no_times(tmp_path):
    log = read(save(tmp_path, ["[   12.345678] eth0: link up", OWN, OWN]))
    assert not log.has_times and len(log.events) == 2


def test_the_other_programs_of_a_system_log(tmp_path):
    before = "Sun Nov 22 12:08:30 2026 "
    log = read(save(tmp_path, [before + line for line in (
        "daemon.notice kelm: no WPS: 2.4 GHz: the network is hidden",
        "daemon.notice hostapd: phy0-ap0: WPS-PBC-ACTIVE",
        "daemon.notice wpa_supplicant[900]: phy0-sta0: WPS-PBC-ACTIVE",
        "daemon.info hostapd: nl80211: kernel reports: something",
        "user.notice my-script: kelm[main:51]: kelm 0.9.0",
        "kern.info kernel: [   12.345678] wlan1: link", "daemon.notice netifd: kelm: x")]))
    assert [(event.source, event.text) for event in log.events] == [
        ("log", "kelm: no WPS: 2.4 GHz: the network is hidden"),
        ("hostapd", "phy0-ap0: WPS-PBC-ACTIVE"), ("station", "phy0-sta0: WPS-PBC-ACTIVE")]


def test_the_daemons_words_inside_another_line_are_not_the_daemons(tmp_path):
    """A neighbour's device is called like a line of the log."""
    quoted = "kelm[rtk_process_wpas_msg:254]: processing wpsEvent[2.4G]: <3>WPS-ENROLLEE-SEEN " \
        "02:00:00:00:02:00 a134bcd4-edf6-548b-87e5-49d3aedf9b60 10-0050F204-5 0x2388 4 1 " \
        "[kelm[main:51]: kelm 0.9.0]"
    press = PLAIN[:PLAIN.index(next(line for line in PLAIN if "wpsEvent" in line))]
    for line in (quoted, "phy0-ap0: STA kelm[main:51]: kelm 0.9.0", "x kelm[main:51]: kelm 0.9.0"):
        log = read(save(tmp_path, press + [line]))
        assert [one.cause for one in attempts(log)] == ["still-running"]


def test_secrets_of_a_console_are_taken_out(tmp_path):
    log = read(save(tmp_path, [
        "kelm[kelm_check_pin:174]: pinCode: 12345670, len = 8",
        "[12:00:00] kelm[wps_exec_cmd:332]: hostapd_cli -p /var/run/hostapd -i wlan1 "
        "wps_pin any 53521118",
        "Sun Nov 22 12:08:30 2026 daemon.info kelm[9]: kelm[x:1]: --------------------band 0 "
        "rootApSec password: acorns in the cellar"]))
    text = " ".join(event.text for event in log.events)
    assert len(log.events) == 3
    for secret in ("12345670", "53521118", "acorns"):
        assert secret not in text
