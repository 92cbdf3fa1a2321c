# SPDX-License-Identifier: ISC
"""A /tmp that is full, read-only, or not there."""
import json
import os
import shutil
import signal

import pytest

from fault_steps import REG_SUCCESS, RESTART, begin, finish_well
from router import AP_MODE, REPEATER_MODE
from test_repeater_attempt import learn

HOSTAPD_FILE = 'interface=wlan1\nssid=Chosen\nwpa=2\nwpa_passphrase=0123456789abcdef\n'
CREDENTIALS = [f'/tmp/wps_wifi_{kind}.{ending}' for kind in ('ap', 'sta')
               for ending in ('txt', 'bak')]
# Of free space; an attempt writes fewer files than the last, each of a page.
PAGES = (0, 1, 2, 3, 4, 5, 12)


def parsed(router, path):
    """A credential file's object; None for one that is missing or was made and never filled."""
    text = router.world.read(path)
    if not text:
        return None
    assert text.endswith('}\n'), f'{path} was cut: {text}'
    return json.loads(text)


def assert_whole(router):
    """Nothing half-written, and nothing left from the writing."""
    for path in (*CREDENTIALS, '/tmp/kelm.info'):
        parsed(router, path)
    assert [name for name in os.listdir('/tmp') if name.endswith('.new')] == []


def begin_open_access_point(router, **options):
    """An attempt that will write back what hostapd has made up."""
    router.world.write('/tmp/run/hostapd-wlan1.conf', HOSTAPD_FILE)
    router.configure(secured=(0, 1, 1, 1))
    begin(router, **options)


def begin_repeater(router, **options):
    """An attempt that will write back what both stations have learnt."""
    learn(router, 'wlan1-vxd', 'Root', 'rootsecret')
    learn(router, 'wlan0-vxd', 'Root5', 'root5secret')
    for band in ('2g', '5g'):
        router.world.write(f'/tmp/wifi_scan_{band}.result', '[]')
    begin(router, REPEATER_MODE, **options)


def succeed(router, mode):
    if mode == REPEATER_MODE:
        for band in ('2g', '5g'):
            router.supplicant[band].send('<3>WPS-SUCCESS ')
    else:
        router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    router.assert_no_traces()


def expect_told(router, published, stored):
    """What was published at the end, and that only stored credentials were applied."""
    assert router.published == published
    assert ('/etc/init.d/wps config_wifi' in router.commands()) == stored
    assert router.commands()[-1] == ('/etc/init.d/wifi force_restart' if stored else RESTART)


def test_an_access_point_that_runs_out_of_room_writes_credentials_whole_or_not_at_all(router):
    written = []
    for pages in PAGES:
        router.renew()
        begin_open_access_point(router)
        with router.world.full_tmp(pages):
            succeed(router, AP_MODE)
            assert_whole(router)
        written.append(parsed(router, CREDENTIALS[0]) is not None)
        expect_told(router, [(2, 12, 12, 0), (2, 2 if written[-1] else 3, 4, 0)], written[-1])
    # It works as soon as there is room, and from then on.
    assert written == sorted(written)
    assert (written[0], written[-1]) == (False, True)
    assert parsed(router, CREDENTIALS[0])['ssid_2g'] == 'Chosen'


def test_a_repeater_that_runs_out_of_room_writes_credentials_whole_or_not_at_all(router):
    complete = []
    for pages in PAGES:
        router.renew()
        begin_repeater(router)
        with router.world.full_tmp(pages):
            succeed(router, REPEATER_MODE)
            assert_whole(router)
            station = parsed(router, '/tmp/wps_wifi_sta.txt') or {}
        complete.append({'ssid_2g', 'ssid_5g'} <= station.keys())
        stored = 'ssid_2g' in station or 'ssid_5g' in station
        expect_told(router, [] if stored else [(2, 3, 3, 0)], stored)
    assert complete == sorted(complete)
    assert (complete[0], complete[-1]) == (False, True)


@pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['access point', 'repeater'])
def test_a_write_that_is_cut_short_leaves_no_half_of_a_credential_file(router, faults, mode):
    """Each one of the attempt's in turn."""
    enough = 1
    number = 0
    while number < enough:
        router.renew()
        {AP_MODE: begin_open_access_point, REPEATER_MODE: begin_repeater}[mode](
            router, environment=faults.environment)
        before = faults.calls('write')
        faults.fail('write', number, 2)
        succeed(router, mode)
        assert_whole(router)
        enough = max(enough, faults.calls('write') - before)
        number += 1
    assert enough > 4


def test_with_a_full_tmp_an_attempt_still_goes_from_the_start_to_the_restart(router):
    """Only the pid file stays empty, so the daemon must be found by its name."""
    with router.world.full_tmp():
        router.start()
        assert router.world.read('/tmp/kelm.pid') == ''
        router.request()
        router.wait_taken(1)
        router.settle()
        assert router.events() == [(1, 11, 11, 0)]
        router.hostapd['2g'].send(REG_SUCCESS)
        assert router.end() == 0
        assert router.published[-1] == (2, 2, 4, 0)
        assert router.commands()[-1] == RESTART
        assert_whole(router)
        router.assert_no_traces()


def test_without_a_free_inode_the_start_is_refused_with_the_error(router):
    with router.world.tmp_without_inodes():
        daemon = router.launch()
        assert daemon.wait_exit(poke=False) == 28  # no space left on device
    assert router.commands() == []
    router.assert_no_traces()


def test_without_a_free_inode_for_a_control_socket_the_start_ends_and_leaves_nothing(router):
    router.add_hostapd('2g', '5g')
    for left in (1, 2):
        with router.world.tmp_without_inodes(left):
            assert router.launch().wait_exit(poke=False) == 255
            assert "Can't open event ctrl" in router.console.lines()
            router.assert_no_traces()


def test_without_a_free_inode_a_press_still_makes_an_attempt(router):
    """The control sockets' names take the places of the old ones; the status files are missing."""
    router.start()
    with router.world.tmp_without_inodes():
        router.request()
        router.wait_taken(1)
        router.settle()
        router.hostapd['2g'].send(REG_SUCCESS)
        assert router.end() == 0
        assert router.published == [(1, 11, 11, 0), (2, 12, 12, 0), (2, 2, 4, 0)]
        assert router.commands()[-1] == RESTART
        assert router.world.read('/tmp/kelm.info') is None
    router.assert_no_traces()


def test_a_tmp_that_turns_read_only_in_mid_attempt_does_not_stop_the_attempt(router):
    """The pid file cannot be taken away then: it bars the next start until somebody does."""
    begin(router)
    with router.world.read_only_tmp():
        router.hostapd['2g'].send(REG_SUCCESS)
        assert router.end() == 0
        assert router.published[-1] == (2, 2, 4, 0)
        assert router.commands()[-1] == RESTART
    assert router.world.read('/tmp/kelm.pid') == f'{router.daemon.pid}\n'


def test_a_press_on_a_read_only_tmp_is_refused_and_the_next_one_served(router):
    """The names of the connections that it closed stay: they cannot be taken away."""
    router.start()
    with router.world.read_only_tmp():
        router.press()
        router.wait_line('Rebuild worker socket failed.')
        assert router.events() == []
    router.press_and_wait_started()
    router.hostapd['2g'].send(REG_SUCCESS)
    assert router.end() == 0
    assert router.published[-1] == (2, 2, 4, 0)
    assert not os.path.lexists('/tmp/kelm.pid')


def test_sigterm_ends_the_daemon_on_a_read_only_tmp(router):
    begin(router)
    with router.world.read_only_tmp():
        router.daemon.send(signal.SIGTERM)
        assert router.end(poke=False) == 0
        assert router.published[-1] == (2, 4, 4, 0)


def test_without_a_tmp_the_start_is_refused_with_the_error(router):
    with router.world.root_without_tmp() as root:
        daemon = router.launch(before=lambda: (os.chroot(root), os.chdir('/')))
        assert daemon.wait_exit(poke=False) == 2  # no such file or directory
        assert not os.path.lexists(f'{root}/tmp')
    assert router.commands() == []


def test_a_tmp_that_loses_all_its_files_in_mid_attempt_leaves_the_time_out(router):
    """With the names of its sockets gone nobody can tell the daemon anything."""
    begin(router)
    router.settle()
    for server in router.hostapd.values():
        server.close()
    router.hostapd = {}
    with router.world.covered_tmp():
        router.world.shift_time(126)
        assert router.end() == 0
        assert router.published[-1] == (2, 4, 4, 0)
        assert router.commands()[-1] == RESTART
        assert sorted(os.listdir('/tmp')) == ['kelm.info', 'wps_result']


def test_without_the_run_folder_the_start_ends(router):
    router.start_bus()
    shutil.rmtree('/var/run/hostapd', ignore_errors=True)
    shutil.rmtree('/var/run/ubus')
    assert router.launch().wait_exit(poke=False) == 255
    assert router.console.lines()[-1] == 'kelm open failed.'
    router.assert_no_traces()


def test_folders_of_sockets_that_vanish_in_mid_attempt_do_not_stop_it(router):
    begin(router)
    shutil.rmtree('/var/run/ubus')
    shutil.rmtree('/var/run/hostapd')
    finish_well(router, published=False)
