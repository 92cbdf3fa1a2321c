# SPDX-License-Identifier: ISC
"""On the virtual router with stock OpenWrt: from the button to push button, and what waits.

The same router and the same button: first with OpenWrt's own script, then with kelm in its place.
The router is played in a process of its own, this file as a program, which prints JSON: its
modules bear the names of others here, and its machine starts in the world that everybody sees.
"""
import json
import os
import subprocess
import sys

SOURCE = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
NOT_SLOWER_MS = 150
# For five seconds after a cancel the scripts look whether it was one. Nobody presses meanwhile.
SETTLES = 'sleep 6'

# Each process of the package: its memory in KiB, and what it is. The recorder is the scene's own.
WAITING = """
for folder in /proc/[0-9]*; do
    words=$(tr '\\000' ' ' 2>/dev/null <$folder/cmdline)
    case $words in
    */kelm-watch*) ;;
    */kelm*) echo $(sed -n 's/^VmRSS:[^0-9]*\\([0-9]*\\).*/\\1/p' $folder/status) $words ;;
    esac
done
"""


class Scene:
    """What the scenario does, and what it has found."""

    def __init__(self, presses):
        self.presses = presses
        self.found = {}

    def play(self, scene):
        from router.stock_scene import StockRouter
        router = StockRouter(scene)
        router.uci('wireless.default_radio0.wps_pushbutton=1')
        router.boot()
        self.found['stock'] = [self._press(router, self._end_by_hostapd)
                               for _ in range(self.presses)]
        router.install('+kelm.main.ap=default_radio0')
        router.wait_waiting()
        self.found['waiting'] = [line.split(' ', 1)
                                 for line in scene.must_run(WAITING).splitlines()]
        self.found['kelm'] = [self._press(router, self._end_by_kelm) for _ in range(self.presses)]
        scene.check('each press opened the network', True, self.found)

    @staticmethod
    def _press(router, end):
        """How long after the button's event the access point was open, in nanoseconds."""
        scene = router.scene
        since = scene.mark()
        router.press()
        button = scene.expect('button', '^wps released', 'the button', since=since)
        active = scene.expect('hostapd', '^phy0-ap0: WPS-PBC-ACTIVE', 'push button', since=since)
        end(router)
        return (active.time_s - button.time_s) * 1e9

    @staticmethod
    def _end_by_hostapd(router):
        router.hostapd('2g', 'wps_cancel')
        router.must_run(SETTLES)

    @staticmethod
    def _end_by_kelm(router):
        router.must_run('/usr/libexec/kelm/request cancel')
        router.wait_state('waiting')
        router.must_run(SETTLES)


def main(build, presses):
    sys.path.insert(0, SOURCE)
    from router import attempt, play
    stage = Scene(int(presses))
    outcome = play.play(attempt.Scenario('bench', 'The button, without kelm and with it.',
                                         stage.play, [], radios=2, face='stock'), build)
    if outcome.failures():
        sys.exit('\n'.join(outcome.failures()))
    json.dump(stage.found, sys.stdout)


def play_router(build, presses):
    """Builds what the router takes in a folder below, and returns what main() has found."""
    folder = f'{build}/router-build'
    for command in (['cmake', '-S', SOURCE, '-B', folder, '-G', 'Ninja', '-DKELM_HOSTLIBS=ON',
                     '-DKELM_TESTWORLD=ON'],
                    ['cmake', '--build', folder, '--parallel', '2']):
        subprocess.run(command, check=True, stdout=subprocess.DEVNULL)
    done = subprocess.run([sys.executable, os.path.abspath(__file__), folder, str(presses)],
                          stdout=subprocess.PIPE, text=True, check=True)
    return json.loads(done.stdout)


def measure(found):
    from figures import Figure, Goal, NotSlower, Samples
    memory = sum(int(kib) for kib, _ in found['waiting'])
    goal = NotSlower(NOT_SLOWER_MS * 1e6, limit=2 * NOT_SLOWER_MS * 1e6)
    return [
        Figure('stock router: button to push button', Samples(found['kelm'], 'ns'),
               "OpenWrt's own script", Samples(found['stock'], 'ns'), goal),
        # The daemon, and procd is OpenWrt's own.
        Figure('stock router: processes that wait', Samples(len(found['waiting'])),
               ', '.join(words.strip() for _, words in found['waiting']),
               goal=Goal(2, of_ratio=False, limit=2)),
        Figure('stock router: their resident memory', Samples(memory, 'KiB')),
    ]


if __name__ == '__main__':
    main(*sys.argv[1:])
