# SPDX-License-Identifier: ISC
"""Gives each test a router with stock OpenWrt: the fixture "stock", told in stock.py."""
import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_DIR = os.path.dirname(os.path.dirname(HERE))
sys.path[:0] = [HERE, os.path.join(SOURCE_DIR, 'tests', 'world')]

import stock as stock_router  # noqa: E402
import world as private_world  # noqa: E402

NEEDED = ('kelm', 'testworld/uci', 'hostlibs/ubusd', 'hostlibs/ubus')


def pytest_addoption(parser):
    parser.addoption('--build', default=os.environ.get('KELM_BUILD'),
                     help='the build directory whose programs are used (or KELM_BUILD)')


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
    if not os.path.exists(stock_router.BUSYBOX):
        raise pytest.UsageError('the scripts run in busybox: install the package busybox')
    try:
        private_world.gain_privilege()
    except private_world.WorldError as error:
        raise pytest.UsageError(f'the tests of the scripts cannot run: {error}') from error


@pytest.fixture(scope='session')
def private_mounts(pytestconfig):
    stock_router.enter(SOURCE_DIR, os.path.abspath(pytestconfig.getoption('--build')))


@pytest.fixture
def stock(private_mounts):
    router = stock_router.StockRouter()
    yield router
    router.close()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item):
    """A failure shows what the scripts called and logged."""
    outcome = yield
    report = outcome.get_result()
    router = getattr(item, 'funcargs', {}).get('stock')
    if report.failed and report.when == 'call' and router is not None:
        for name, lines in (('commands', router.commands()), ('log', router.log())):
            text = '\n'.join(lines).encode('utf-8', 'backslashreplace').decode()
            report.sections.append((name, text))
