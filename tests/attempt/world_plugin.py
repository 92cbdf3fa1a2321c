# SPDX-License-Identifier: ISC
"""Gives each test process a private world and each test a router in it."""
import linecache
import os
import sys

import pytest

SOURCE_DIR = os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__))))
sys.path.insert(0, os.path.join(SOURCE_DIR, 'tests', 'world'))

import daemon_run  # noqa: E402
import faults as failing_calls  # noqa: E402
import world as private_world  # noqa: E402
from router import Router  # noqa: E402

NEEDED = ('kelm', 'tests/world/shift_time.so', 'hostlibs/ubusd', 'hostlibs/ubus')


def pytest_addoption(parser):
    parser.addoption('--build', default=os.environ.get('KELM_BUILD'),
                     help='the build directory whose daemon is tested (or KELM_BUILD)')
    parser.addoption('--every', action='store_true',
                     help='refuse every allocation of the repeater, not a part of them')
    parser.addoption('--first', type=int, help='which part of them, instead of the day deciding')


def _has_own_allocator(config):
    """Whether the daemon was built with a sanitizer, whose allocator no test can stand in for."""
    with open(os.path.join(config.getoption('--build'), 'CMakeCache.txt'),
              encoding='utf-8') as cache:
        return any(line.startswith('KELM_SANITIZE:') and line.strip()[-1] != '=' for line in cache)


def pytest_report_header(config):
    if _has_own_allocator(config):
        return 'left out, since a sanitizer brings its own allocator: test_out_of_memory.py'
    return None


def pytest_ignore_collect(collection_path, config):
    if collection_path.name == 'test_out_of_memory.py' and _has_own_allocator(config):
        return True
    return None


@pytest.hookimpl(tryfirst=True)
def pytest_cmdline_main(config):
    """The tests run in worker processes always: the runner itself stays in the machine's world."""
    if not hasattr(config, 'workerinput') and not config.option.numprocesses:
        config.option.numprocesses = 1


def pytest_configure(config):
    build = config.getoption('--build')
    if not build:
        raise pytest.UsageError('name the build directory: --build DIR or KELM_BUILD=DIR')
    for name in NEEDED:
        if not os.path.exists(os.path.join(build, name)):
            raise pytest.UsageError(f'{build} holds no {name}: build it with KELM_TESTS=ON')
    if hasattr(config, 'workerinput'):
        return  # the main process has seen to it, and a worker has too many threads for it
    try:
        private_world.gain_privilege()
    except private_world.WorldError as error:
        raise pytest.UsageError(f'the attempt tests cannot run: {error}') from error


def _not_emulated(machine):
    """The attempt tests that the table names for this machine, as "file::test" or "file::*"."""
    with open(os.path.join(SOURCE_DIR, 'tests/world/not_emulated.txt'), encoding='utf-8') as file:
        rows = [line.split(' | ', 3) for line in file if not line.startswith('#')]
    return {test for program, where, test, _ in rows
            if program == 'attempt' and where in ('all', machine)}


def pytest_collection_modifyitems(config, items):
    """Leaves out what an emulator cannot run; script/cross tells what that is, and why."""
    mark = os.path.join(config.getoption('--build'), 'emulated')
    if not os.path.exists(mark):
        return
    with open(mark, encoding='utf-8') as file:
        left_out = _not_emulated(file.read().strip())
    away = [item for item in items
            if left_out & {f'{item.path.name}::{item.originalname}', f'{item.path.name}::*'}]
    config.hook.pytest_deselected(items=away)
    items[:] = [item for item in items if item not in away]


def _keep_own_sources():
    """For the reports of failures: the tree may lie under the /tmp that is about to be covered."""
    for module in list(sys.modules.values()):
        path = getattr(module, '__file__', None) or ''
        if path.startswith(SOURCE_DIR) and path.endswith('.py'):
            lines = linecache.getlines(path)
            linecache.cache[path] = (sum(map(len, lines)), None, lines, path)


@pytest.fixture(scope='session')
def world(pytestconfig):
    _keep_own_sources()
    yield private_world.World(SOURCE_DIR, os.path.abspath(pytestconfig.getoption('--build')))
    # The runner goes back to where it was started; that place may be covered.
    os.makedirs(pytestconfig.invocation_params.dir, exist_ok=True)


@pytest.fixture
def router(world):
    world.reset()
    device = Router(world)
    yield device
    device.close()
    reports = world.sanitizer_reports()
    assert not reports, reports


@pytest.fixture
def faults(world):
    assert os.path.exists(failing_calls.PRELOAD), 'build the target fail_calls'
    return failing_calls.Faults()


def _printable(text):
    """The workers' reports carry no bytes that are not UTF-8."""
    return text.encode('utf-8', 'backslashreplace').decode()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """A failure shows what the daemon said and ran."""
    outcome = yield
    report = outcome.get_result()
    device = getattr(item, 'funcargs', {}).get('router')
    if report.failed and device is not None:
        report.sections.append(('console since it was last forgotten',
                                _printable(device.console.text())))
        report.sections.append(('commands since they were last forgotten',
                                _printable('\n'.join(device.commands()))))


@pytest.fixture(autouse=True, scope='session')
def no_leftovers():
    yield
    daemon_run.end_leftovers()
