# SPDX-License-Identifier: ISC
"""What the tests of faults share: an attempt begun, and how it must end in spite of the fault."""
import signal

from router import AP_MODE, REPEATER_MODE, hostapd_cli

REG_SUCCESS = '<3>WPS-REG-SUCCESS 02:00:00:00:07:00 uuid'
PBC = [hostapd_cli('2g', 'wps_pbc'), hostapd_cli('5g', 'wps_pbc')]
CANCELS = [hostapd_cli('2g', 'wps_cancel'), hostapd_cli('5g', 'wps_cancel')]
RESTART = '/etc/init.d/wps restart'
# What a daemon that only waits may compute meanwhile, on the slowest machine.
IDLE_CPU_S = 0.5
# Below the least block that the heap gives, times a flood's events: nothing is kept of each. Room
# for the tables of a sanitizer.
MOST_GROWTH_KIB = 2048


def start(router, mode=AP_MODE, **options):
    """The daemon with both bands, as access point or as repeater without a link."""
    if mode == REPEATER_MODE:
        router.configure(mode=mode, stations=3)
        for band in ('2g', '5g'):
            router.set_link(band, 0)
        router.start(bands=(), stations=('2g', '5g'), **options)
    else:
        router.start(**options)


def begin(router, mode=AP_MODE, **options):
    """Starts an attempt with the button and forgets the way there."""
    start(router, mode, **options)
    router.press_and_wait_started()
    router.events()
    router.world.forget_commands()
    router.console.forget()


def raise_level(router, to):
    """One signal after the other, since equal pending ones would count as one."""
    for _ in range(to - 4):
        router.daemon.send(signal.SIGUSR1)
        router.settle_silently()
    router.console.forget()


def finish_well(router, published=True):
    """The attempt of an access point that went through a fault still succeeds.

    published: there is a broker to hear of it.
    """
    router.hostapd['2g'].send(REG_SUCCESS)
    if published:
        assert router.end() == 0
        assert router.published[-1] == (2, 2, 4, 0)
    else:
        assert router.daemon.wait_exit() == 0
    assert [value for _, value in router.info()][:2] == [2, 'success']
    assert router.world.read('/tmp/wps_result') == '1\n'
    assert router.commands()[-1] == RESTART
    router.assert_no_traces()
