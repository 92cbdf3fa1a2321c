# SPDX-License-Identifier: ISC
"""The daemon in 2040, when seconds no longer fit in 32 bits."""
import calendar
import os
import time

from router import ubus_send

IN_2040 = calendar.timegm((2040, 1, 1, 0, 0, 0))
SETTINGS = ('/tmp/device_runtime.info', '/tmp/device.info', '/tmp/wps.conf', '/tmp/wifi.conf')


def start_attempt_in_2040(router):
    """The clock says so, and so do the settings files."""
    router.world.shift_time(IN_2040 - int(time.time()))
    for path in SETTINGS:
        os.utime(path, (IN_2040, IN_2040))
    router.start()
    router.press_and_wait_started()
    router.settle()


def test_files_that_were_written_in_2040_are_read(router):
    start_attempt_in_2040(router)
    assert ubus_send(1, 11, 11) in router.commands()
    assert not any('failed' in line for line in router.start_lines + router.console.lines())


def test_an_attempt_in_2040_ends_after_125_seconds_and_not_before(router):
    start_attempt_in_2040(router)
    ahead = IN_2040 - int(time.time())
    router.world.shift_time(ahead + 115)
    router.settle()
    assert router.daemon.is_running()
    router.world.shift_time(ahead + 130)
    assert router.end() == 0
    assert router.published[-1] == (2, 4, 4, 0)
