# SPDX-License-Identifier: ISC
"""Gives each test a router: "maker" with a maker's firmware, "stock" with stock OpenWrt, "router"
both, one after the other.

The worlds are those of tests/openwrt; peers.py has the Wi-Fi daemons, maker.py the firmware.
"""
import importlib.util
import os
import sys

import pytest

HERE = os.path.dirname(os.path.abspath(__file__))
OPENWRT = os.path.join(os.path.dirname(HERE), 'openwrt')
sys.path[:0] = [HERE, OPENWRT]

_spec = importlib.util.spec_from_file_location('openwrt_conftest', f'{OPENWRT}/conftest.py')
_base = importlib.util.module_from_spec(_spec)
_spec.loader.exec_module(_base)

pytest_addoption = _base.pytest_addoption
pytest_cmdline_main = _base.pytest_cmdline_main
pytest_configure = _base.pytest_configure
private_mounts = _base.private_mounts


@pytest.fixture
def stock(private_mounts):
    import stock_face
    import whole
    router = stock_face.StockFace()
    whole.make_whole(router)
    yield router
    router.close()


@pytest.fixture
def maker(private_mounts):
    import maker_face
    import whole
    router = maker_face.MakerFace()
    whole.make_whole(router)
    yield router
    router.close()


@pytest.fixture(params=['maker', 'stock'])
def router(request):
    """Both, one after the other."""
    return request.getfixturevalue(request.param)
