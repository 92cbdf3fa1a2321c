# SPDX-License-Identifier: ISC
"""The tests that OpenWrt's packages feed runs after an install: test.sh and test-version.sh.

The feed runs them where neither the bus nor procd nor a radio is, and so do these.
"""
import os
import re
import shutil

import pytest

from stock import BUILD, MAKEFILE, SOURCE


@pytest.fixture(name='router')
def with_all_that_is_needed(stock):
    for name in ('test.sh', 'test-version.sh'):
        shutil.copy(os.path.join(os.path.dirname(MAKEFILE), name), stock.at(f'/{name}'))
    for name in ('hostapd_cli', 'wpa_cli'):
        stock.fake(name)
    stock.fake('ldd', '[ -x "$1" ]')
    return stock


def cmake_version():
    with open(f'{SOURCE}/CMakeLists.txt', encoding='utf-8') as file:
        return re.search(r'^project\(kelm VERSION (\S+)', file.read(), re.MULTILINE)[1]


def run(router, script, package, version=None):
    version = version or cmake_version()
    return router.run(f'/{script} "$@"', package, f'{version}-r1',
                      env={'PKG_NAME': 'kelm', 'PKG_VERSION': version})


@pytest.mark.parametrize('package', ['kelm', 'kelm-stock'])
def test_an_installed_package_passes(router, package):
    result = run(router, 'test.sh', package)
    assert (result.status, result.err) == (0, '')
    result = run(router, 'test-version.sh', package)
    assert (result.status, result.err) == (0, '')
    assert f'kelm {cmake_version()}' in result.out


def test_the_doctors_package_passes(router):
    result = run(router, 'test.sh', 'kelm-doctor')
    assert (result.status, result.err) == (0, '')
    assert run(router, 'test-version.sh', 'kelm-doctor').status == 0


def test_an_installed_recorder_passes(router):
    shutil.copy(f'{BUILD}/kelm-watch', router.at('/usr/sbin/kelm-watch'))
    result = run(router, 'test.sh', 'kelm-watch')
    assert (result.status, result.err) == (0, '')
    result = run(router, 'test-version.sh', 'kelm-watch')
    assert (result.status, result.out) == (0, f'kelm-watch {cmake_version()}\n')


BREAKS = {
    'no_recorder': ('kelm-watch', lambda router: None, '/usr/sbin/kelm-watch --help does not say'),
    'no_doctor': ('kelm-doctor', lambda router: router.remove('/usr/sbin/kelm-doctor'),
                  'kelm-doctor --help does not say: usage: kelm-doctor'),
    'a_check_that_no_shell_reads': (
        'kelm-doctor', lambda router: router.write('/usr/lib/kelm/doctor/json.sh', 'case $1 in\n'),
        '/usr/lib/kelm/doctor/json.sh cannot be read by this shell'),
    'no_daemon': ('kelm', lambda router: router.remove('/usr/sbin/kelm'), 'Usage: kelm'),
    'a_library_is_missing': ('kelm', lambda router: router.fake('ldd', 'exit 1'),
                             'not all libraries of kelm are there'),
    'a_script_that_no_shell_reads': (
        'kelm-stock', lambda router: router.write('/usr/libexec/kelm/led', 'case $1 in\n'),
        '/usr/libexec/kelm/led cannot be read by this shell'),
    'a_client_that_is_not_there': (
        'kelm-stock', lambda router: router.remove('/usr/sbin/wpa_cli'), 'wpa_cli is not there'),
    'the_daemons_verb_is_gone': (
        'kelm-stock', lambda router: router.write('/etc/init.d/wps', '#!/bin/sh /etc/rc.common\n'),
        '/etc/init.d/wps help does not say: config_wifi'),
    'switched_on_at_the_install': (
        'kelm-stock', lambda router: router.uci('set', 'kelm.main.enabled=1'),
        'uci get kelm.main.enabled does not say: 0'),
    'rights_that_are_no_json': (
        'kelm-stock', lambda router: router.write('/usr/share/rpcd/acl.d/kelm.json', '{"kelm": {'),
        'does not say: status'),
    'no_status': (
        'kelm-stock', lambda router: router.write('/usr/libexec/rpcd/kelm', '#!/bin/sh\necho {}\n'),
        '/usr/libexec/rpcd/kelm list does not say: "status"'),
}


@pytest.mark.parametrize('case', BREAKS)
def test_what_is_broken_is_told(router, case):
    package, spoil, complaint = BREAKS[case]
    spoil(router)
    result = run(router, 'test.sh', package)
    assert result.status == 1
    assert complaint in result.out.splitlines()[-1]


@pytest.mark.parametrize('package, version', [
    ('kelm', '0.8.9'), ('kelm', '0.9.00'), ('kelm', '0.9'), ('kelm-stock', '9.0'),
    ('others', None)])
def test_another_version_or_package_is_told(router, package, version):
    assert run(router, 'test-version.sh', package, version).status == 1


def test_a_package_without_a_test_is_told(router):
    result = run(router, 'test.sh', 'others')
    assert (result.status, result.out) == (1, "no test for package 'others'\n")
