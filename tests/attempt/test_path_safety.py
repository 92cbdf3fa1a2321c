# SPDX-License-Identifier: ISC
"""What somebody else has put under the daemon's names before it comes."""
import json
import os
import signal
import stat

import pytest

from router import AP_MODE, INTERFACES, REPEATER_MODE, hostapd_cli, wpa_cli
from test_repeater_attempt import SCAN_TOOL, learn
from world import wait_for

VICTIMS = '/mnt/victims'
MODES = pytest.mark.parametrize('mode', [AP_MODE, REPEATER_MODE], ids=['ap', 'repeater'])
# What an attempt writes in each mode, with the mode bits that it must have.
WRITTEN = {
    AP_MODE: {'wps_wifi_ap.txt': 0o600, 'kelm.info': 0o644, 'wps_result': 0o644,
              'wpsactive': 0o644},
    REPEATER_MODE: {
        'wps_wifi_ap.txt': 0o600, 'wps_wifi_sta.txt': 0o600, 'wps_wifi_ap.bak': 0o600,
        'wps_wifi_sta.bak': 0o600, 'kelm.info': 0o644, 'wps_result': 0o644, 'wpsactive': 0o644},
}
HALF_WRITTEN = ('wps_wifi_ap.txt.new', 'wps_wifi_sta.txt.new', 'kelm.info.new')
READ = {
    AP_MODE: ('/tmp/device_runtime.info', '/tmp/device.info', '/tmp/wps.conf', '/tmp/wifi.conf',
              '/tmp/wifid_is_starting', '/tmp/run/hostapd-wlan1.conf'),
    REPEATER_MODE: (
        '/tmp/wifi_runtime_info.2g', '/tmp/run/wpa_supplicant-wlan1-vxd.conf',
        '/tmp/wifi_scan_2g.result', '/etc/config/wificommonCfg', '/etc/config/wifi2G_Cfg'),
}


def put_link(path):
    """To a file of somebody else's, which must stay as it is."""
    victim = f'{VICTIMS}/{os.path.basename(path)}'
    with open(victim, 'w', encoding='utf-8') as file:
        file.write('precious')
    os.symlink(victim, path)


def put_full_folder(path):
    """One into which a command would put its file, through a link."""
    os.mkdir(path)
    put_link(f'{path}/wps_wifi_sta.txt')


def put_open_file(path):
    """One that every user may read, opened before there was anything in it."""
    with open(path, 'w', encoding='utf-8') as file:
        file.write('{}')
    os.chmod(path, 0o666)


def prepare(router, mode):
    os.makedirs(VICTIMS, exist_ok=True)
    if mode == AP_MODE:
        router.configure(secured=(0, 0, 1, 1))
        router.world.write('/tmp/run/hostapd-wlan1.conf',
                           'ssid=Chosen\nwpa=2\nwpa_passphrase=12345678\nwpa_key_mgmt=WPA-PSK\n')
        return
    router.configure(mode=mode, stations=3)
    for band in ('2g', '5g'):
        learn(router, f'{INTERFACES[band]}-vxd', f'Root{band}', 'rootsecret')
        router.set_link(band, 0)
        router.world.write(f'/mnt/scan.{band}', json.dumps([]))
    router.world.reply('/usr/bin/wifi', SCAN_TOOL)


def start(router, mode):
    bands = ('2g', '5g')
    router.start(bands=bands if mode == AP_MODE else (),
                 stations=bands if mode == REPEATER_MODE else ())


def press_and_succeed(router, mode):
    """A whole attempt; nothing in it may wait for what never comes."""
    router.press()
    command = hostapd_cli if mode == AP_MODE else wpa_cli
    wait_for(lambda: any(line.startswith(command('5g', 'wps_pbc')) for line in router.commands()),
             'the start')
    router.settle()
    if mode == AP_MODE:
        router.hostapd['2g'].send('<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid')
    else:
        for band in ('2g', '5g'):
            router.supplicant[band].send('<3>WPS-SUCCESS ')
    assert router.end() == 0


@MODES
@pytest.mark.parametrize('put', [put_link, os.mkfifo, put_open_file, os.mkdir, put_full_folder])
def test_what_stands_under_a_written_name_is_replaced(router, mode, put):
    prepare(router, mode)
    for name in (*WRITTEN[mode], *HALF_WRITTEN):
        put(f'/tmp/{name}')
    start(router, mode)
    press_and_succeed(router, mode)
    found = {name: os.lstat(f'/tmp/{name}').st_mode for name in WRITTEN[mode]}
    assert found == {name: stat.S_IFREG | bits for name, bits in WRITTEN[mode].items()}
    for name in os.listdir(VICTIMS):
        assert router.world.read(f'{VICTIMS}/{name}') == 'precious'


@MODES
def test_a_copy_that_was_opened_early_does_not_show_the_credentials(router, mode):
    prepare(router, mode)
    early = []
    for name, bits in WRITTEN[mode].items():
        if bits == 0o600:
            put_open_file(f'/tmp/{name}')
            early.append(os.open(f'/tmp/{name}', os.O_RDONLY | os.O_CLOEXEC))
    start(router, mode)
    press_and_succeed(router, mode)
    seen = [os.pread(descriptor, 4096, 0) for descriptor in early]
    for descriptor in early:
        os.close(descriptor)
    assert seen == [b'{}'] * len(early)


@pytest.mark.parametrize('mode, path', [(mode, path) for mode, paths in READ.items()
                                        for path in paths])
def test_a_pipe_in_place_of_a_file_that_is_read_holds_nobody(router, mode, path):
    """The attempt may come to nothing without the file, but the daemon goes on or ends."""
    prepare(router, mode)
    if os.path.lexists(path):
        os.unlink(path)
    os.mkfifo(path)
    if path.startswith('/tmp/wifi_scan'):
        router.world.reply('/usr/bin/wifi', '')
    router.start_bus()
    bands = ('2g', '5g')
    router.add_hostapd(*bands)
    router.add_supplicant(*bands)
    daemon = router.launch()
    wait_for(lambda: not daemon.is_running() or daemon.is_waiting(), 'the end or the main loop')
    if daemon.is_running():
        router.wait_registered()
        router.press()
        router.settle()
        # One event of each that is attached, and no more than end an attempt: afterwards the daemon
        # detaches from all of them.
        for server, event in ((router.hostapd['2g'], 'WPS-REG-SUCCESS 02:00:00:00:07:00 uuid'),
                              (router.supplicant['2g'], 'WPS-SUCCESS '),
                              (router.supplicant['5g'], 'WPS-SUCCESS ')):
            if server.clients:
                server.send(f'<3>{event}')
        wait_for(lambda: not daemon.is_running() or daemon.is_waiting(), 'the end or the main loop')
    if daemon.is_running():
        daemon.send(signal.SIGTERM)
    assert daemon.wait_exit() in (0, 255)
    router.assert_no_traces()
