#!/usr/bin/python3
# SPDX-License-Identifier: ISC
"""script/bench: measures and prints the table; the exit status is 1 when a limit is passed."""
import argparse
import contextlib
import os
import sys

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(HERE)
sys.path[:0] = [HERE] + [os.path.join(SOURCE, 'tests', name) for name in ('world', 'attempt')]

# All of them before the private world, which may cover where they lie.
import daemon_run  # noqa: E402
import feed  # noqa: E402
import figures  # noqa: E402
import idle  # noqa: E402
import instructions  # noqa: E402
import memory  # noqa: E402
import parsing  # noqa: E402
import reaction  # noqa: E402
import scene  # noqa: E402
import sizes  # noqa: E402
import start  # noqa: E402
import stock  # noqa: E402
import tools as bench_tools  # noqa: E402
import targets  # noqa: E402
import musl  # noqa: E402
import watch  # noqa: E402
import world as private_world  # noqa: E402

PARTS = {
    'size': lambda world, tools, quick: sizes.measure(tools),
    'idle': lambda world, tools, quick: idle.measure(world, tools, 10 if quick else 60),
    'memory': lambda world, tools, quick: memory.measure(world, tools),
    'start': lambda world, tools, quick: start.measure(world, tools, 10 if quick else 30),
    'reaction': lambda world, tools, quick: reaction.measure(world, tools, 12 if quick else 40),
    'parsing': lambda world, tools, quick: parsing.measure(world, 10 if quick else 30),
    'instructions': lambda world, tools, quick: instructions.measure(world, 1 if quick else 3),
    'watch': lambda world, tools, quick: watch.measure(world, tools, 12 if quick else 40),
    'musl': lambda world, tools, quick: musl.measure(world, tools, 12 if quick else 40),
    'stock': lambda world, tools, quick: stock.measure(tools.stock_router),
}
# Not in a quick run: one boots the virtual router, and a busy machine is slow at that; the other
# has no limit that could be passed.
SLOW = ('stock', 'musl')


def _arguments():
    parser = argparse.ArgumentParser(prog='script/bench')
    parser.add_argument('--quick', action='store_true', help='fewer samples, this machine alone')
    parser.add_argument('--only', action='append', choices=PARTS, help='this part alone')
    parser.add_argument('--json', type=argparse.FileType('w'), help='all samples to this file')
    parser.add_argument('--junitxml', type=argparse.FileType('w'),
                        help='what can fail to this file, as test cases')
    parser.add_argument('--track', action='store_true',
                        help='write the instructions into bench/instructions')
    parser.add_argument('--build', default=os.path.join(SOURCE, 'build-bench'))
    return parser.parse_args()


def main():
    options = _arguments()
    build = os.path.abspath(options.build)
    os.makedirs(build, exist_ok=True)
    tools = bench_tools.prepare(build)
    parts = options.only or [part for part in PARTS if part not in SLOW or not options.quick]
    if 'stock' in parts:
        tools.stock_router = stock.play_router(build, 10)
    if 'musl' in parts:
        musl.build(build)
    if 'size' in parts:
        feed.build(f'{build}/feed', f'{build}/prefix')
        # Not in a quick run: building for them takes as long as all the rest, and cannot fail it.
        if not options.quick:
            tools.targets = targets.build_all(build)
    private_world.gain_privilege()
    world = private_world.World(SOURCE, build)
    tools.build = '/mnt/build'
    tools.targets = [(target, program.replace(build, tools.build, 1), peer)
                     for target, program, peer in tools.targets]
    scene.install_libraries(world)
    musl.install_libraries(world)
    found = []
    try:
        for part in parts:
            world.reset()
            found += PARTS[part](world, tools, options.quick)
    finally:
        daemon_run.end_leftovers()
    if options.track:
        instructions.track(found)
    print(figures.table(found))
    for file, write in ((options.json, figures.write_json),
                        (options.junitxml, figures.write_junit)):
        if file is not None:
            with contextlib.closing(file):
                write(file, found)
    return 1 if any(figure.failed() for figure in found) else 0


if __name__ == '__main__':
    sys.exit(main())
