# SPDX-License-Identifier: ISC
"""The feed folder for OpenWrt's build system, which feed/ plays: what the packages say and hold."""
import os
import re
import shutil
import stat
import subprocess

import pytest

from builds import OPENWRT_LIBRARIES, ROOT, needed, openwrt_prefix

FOLDER = ROOT / 'openwrt/kelm'
STAND_INS = ROOT / 'tests/house/feed'

# What a router gets, and who may read and run it.
STOCK = {
    'etc/config/kelm': 0o600,
    'etc/init.d/wps': 0o755,
    'etc/init.d/wifi': 0o755,
    'etc/rc.wps/30-kelm': 0o755,
    'usr/lib/kelm/common.sh': 0o644,
    'usr/lib/kelm/key.sh': 0o644,
    'usr/lib/kelm/learnt.sh': 0o644,
    'usr/libexec/kelm/run': 0o755,
    'usr/libexec/kelm/prepare': 0o755,
    'usr/libexec/kelm/setup': 0o755,
    'usr/libexec/kelm/request': 0o755,
    'usr/libexec/kelm/told': 0o755,
    'usr/libexec/kelm/led': 0o755,
    'usr/libexec/kelm/status': 0o755,
    'usr/libexec/kelm/rc.button-wps': 0o755,
    'usr/libexec/kelm/take-button': 0o755,
    'usr/libexec/kelm/scan': 0o755,
    'usr/libexec/kelm/networks': 0o755,
    'usr/libexec/kelm/apply': 0o755,
    'usr/libexec/kelm/apply-done': 0o755,
    'usr/libexec/kelm/remove': 0o755,
    'usr/libexec/kelm/bin/hostapd_cli': 0o755,
    'usr/libexec/kelm/bin/ubus': 0o755,
    'usr/libexec/kelm/bin/wpa_cli': 0o755,
    'usr/libexec/rpcd/kelm': 0o755,
    'usr/share/rpcd/acl.d/kelm.json': 0o644,
}


def make(folder, out, *targets, **variables):
    """Has the folder's Makefile do it; returns what was said."""
    words = [f'{name}={value}' for name, value in variables.items()]
    done = subprocess.run(
        ['make', '--no-print-directory', '-C', folder, f'TOPDIR={STAND_INS}', f'OUT={out}', *words,
         *targets], stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True, check=False)
    assert done.returncode == 0, done.stdout
    return done.stdout


def values(path):
    return dict(line.split('=', 1) for line in path.read_text(encoding='utf-8').split('\n') if line)


@pytest.fixture(scope='module', name='described')
def describe(tmp_path_factory):
    out = tmp_path_factory.mktemp('described')
    make(FOLDER, out, 'describe')
    return out


def cmake_version():
    return re.search(r'^project\(kelm VERSION (\S+)',
                     (ROOT / 'CMakeLists.txt').read_text(encoding='utf-8'), re.MULTILINE)[1]


def test_the_source_says_its_name_version_licence_and_who_looks_after_it(described):
    said = values(described / 'package')
    assert said == {
        'NAME': 'kelm', 'VERSION': cmake_version(), 'RELEASE': '1',
        'MAINTAINER': said['MAINTAINER'], 'LICENSE': 'ISC', 'LICENSE_FILES': 'LICENSE',
        'SOURCE': '', 'SOURCE_URL': '', 'HASH': '',  # the checkout
    }
    assert re.fullmatch(r'[^<>@]+ <[^<>@ ]+@[^<>@ ]+>', said['MAINTAINER'])


# What apk takes: other versions can be built, and installed by nobody.
def test_the_version_is_one_that_both_package_managers_take():
    assert re.fullmatch(r'\d+(\.\d+)*[a-z]?(_(alpha|beta|pre|rc|p)\d+)?', cmake_version())


@pytest.mark.parametrize('package, expected', [
    ('kelm', {'SECTION': 'net', 'CATEGORY': 'Network', 'TITLE': 'Wi-Fi Protected Setup daemon',
              'DEPENDS': '+libubox +libubus +libblobmsg-json +libuci +libjson-c', 'PKGARCH': ''}),
    ('kelm-stock', {'SECTION': 'net', 'CATEGORY': 'Network',
                    'TITLE': 'WPS button whose key lasts', 'PKGARCH': 'all',
                    'DEPENDS': '+kelm +kelm-doctor +hostapd-utils +wpa-cli +jsonfilter +rpcd'}),
    ('kelm-doctor', {'SECTION': 'net', 'CATEGORY': 'Network', 'PKGARCH': 'all',
                     'DEPENDS': '+jsonfilter', 'TITLE': 'Says why WPS cannot work on this router'}),
    ('kelm-watch', {'SECTION': 'net', 'CATEGORY': 'Network', 'TITLE': 'Recorder of WPS attempts',
                    'PKGARCH': '',
                    'DEPENDS': '+libubox +libubus +libblobmsg-json +libjson-c'}),
])
def test_each_package_says_what_it_is_and_needs(described, package, expected):
    assert values(described / f'{package}.fields') == expected


# They are written into files as they stand: an indented path is a path with blanks.
@pytest.mark.parametrize('script, text', [
    ('kelm.conffiles', '\n'),
    ('kelm.postinst', '\n'),
    ('kelm.prerm', '\n'),
    ('kelm-stock.conffiles', '/etc/config/kelm\n'),
    ('kelm-stock.preinst', '\n'),
    ('kelm-stock.postinst',
     '#!/bin/sh\n[ -n "${IPKG_INSTROOT}" ] || /etc/init.d/rpcd reload || true\n'),
    ('kelm-stock.prerm',
     '#!/bin/sh\n[ -n "${IPKG_INSTROOT}" ] || /usr/libexec/kelm/remove || true\n'),
    ('kelm-stock.postrm',
     '#!/bin/sh\n[ -n "${IPKG_INSTROOT}" ] || /etc/init.d/rpcd reload || true\n'),
])
def test_the_lists_and_scripts_of_the_packages_are_not_indented(described, script, text):
    assert (described / script).read_text(encoding='utf-8') == text


def modes(folder):
    return {str(path.relative_to(folder)): stat.S_IMODE(path.stat().st_mode)
            for path in folder.rglob('*') if path.is_file()}


def test_the_router_gets_each_file_of_the_folder_with_its_mode(tmp_path):
    make(FOLDER, tmp_path, 'install-kelm-stock')
    assert modes(tmp_path / 'kelm-stock') == STOCK
    assert sorted(modes(FOLDER / 'files')) == sorted(STOCK)
    for name in STOCK:
        assert ((tmp_path / 'kelm-stock' / name).read_bytes()
                == (FOLDER / 'files' / name).read_bytes()), name


def test_what_lies_among_programs_can_be_run():
    """OpenWrt's CI wants it of each file of such a folder, a shell library too."""
    assert [name for name, mode in STOCK.items()
            if re.match(r'(usr/)?(s?bin|libexec)/', name) and not mode & 0o111] == []


def test_each_script_can_be_run_in_the_checkout_too():
    for name, mode in STOCK.items():
        assert os.access(FOLDER / 'files' / name, os.X_OK) == (mode == 0o755), name


def test_no_folder_of_another_package_is_made_unreadable(tmp_path):
    make(FOLDER, tmp_path, 'install-kelm-stock')
    folders = {stat.S_IMODE(path.stat().st_mode)
               for path in (tmp_path / 'kelm-stock').rglob('*') if path.is_dir()}
    assert folders == {0o755}


def test_a_checkout_is_built_as_it_is_with_the_libraries_of_openwrt(tmp_path, monkeypatch):
    prefix, out = tmp_path / 'prefix', tmp_path / 'out'
    out.mkdir()
    openwrt_prefix(tmp_path / 'libraries', prefix)
    make(FOLDER, out, 'prepare')
    for language in ('C', 'CXX') if shutil.which('ccache') else ():
        monkeypatch.setenv(f'CMAKE_{language}_COMPILER_LAUNCHER', 'ccache')
    make(FOLDER, out, 'build', 'install-kelm', 'install-kelm-doctor', 'install-kelm-watch',
         PREFIX=prefix)
    assert modes(out / 'kelm') == {'usr/sbin/kelm': 0o755}
    assert modes(out / 'kelm-doctor') == {'usr/sbin/kelm-doctor': 0o755, **{
        f'usr/lib/kelm/doctor/{path.name}': 0o644 for path in (ROOT / 'doctor/lib').iterdir()}}
    assert needed(out / 'kelm/usr/sbin/kelm') - {'ld-linux-x86-64'} == {
        'libc', 'libjson-c'} | OPENWRT_LIBRARIES
    assert modes(out / 'kelm-watch') == {'usr/sbin/kelm-watch': 0o755}
    # No more than its package depends on.
    assert needed(out / 'kelm-watch/usr/sbin/kelm-watch') - {'ld-linux-x86-64'} <= {
        'libc', 'libjson-c'} | OPENWRT_LIBRARIES - {'libuci'}


def test_without_the_libraries_of_openwrt_nothing_is_built(tmp_path):
    make(FOLDER, tmp_path, 'prepare')
    done = subprocess.run(['make', '-C', FOLDER, f'TOPDIR={STAND_INS}', f'OUT={tmp_path}',
                           f'PREFIX={tmp_path}', 'build'], capture_output=True, text=True,
                          check=False)
    assert done.returncode != 0
    assert 'KELM_HOSTLIBS is OFF, and not all of the OpenWrt libraries were found.' in ' '.join(
        done.stderr.split())


def test_the_folder_alone_takes_the_archive_of_a_release(tmp_path):
    folder, out = tmp_path / 'feed/kelm', tmp_path / 'out'
    shutil.copytree(FOLDER, folder)
    out.mkdir()
    assert make(folder, out, 'prepare') == f'unpacks kelm-{cmake_version()}.tar.gz\n'
    said = values(out / 'package')
    # Nobody has published one yet: what stands there must not be taken for an address.
    assert said['SOURCE_URL'].startswith('@PLACEHOLDER/')
    assert said['HASH'].startswith('PLACEHOLDER')
