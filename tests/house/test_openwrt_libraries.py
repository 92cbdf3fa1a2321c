# SPDX-License-Identifier: ISC
"""Which libraries the daemon is linked with: OpenWrt's, the stand-ins, or an error that says why.

OpenWrt's are played by the stand-ins, built as shared libraries under OpenWrt's names.
"""
import shutil
import subprocess
from pathlib import Path

import pytest

from builds import (OPENWRT_LIBRARIES, ROOT, must_run, needed, of_openwrt, openwrt_prefix, run,
                    through_cache)

# Each file of the prefix, and what an error calls it when it is missing.
PARTS = {
    'include/libubox/uloop.h': 'libubox/uloop.h (UBOX_INCLUDE_DIR)',
    'lib/libubox.so': 'libubox (UBOX_LIBRARY)',
    'include/libubox/blobmsg_json.h': 'libubox/blobmsg_json.h (BLOBMSG_JSON_INCLUDE_DIR)',
    'lib/libblobmsg_json.so': 'libblobmsg_json (BLOBMSG_JSON_LIBRARY)',
    'include/libubus.h': 'libubus.h (UBUS_INCLUDE_DIR)',
    'lib/libubus.so': 'libubus (UBUS_LIBRARY)',
    'include/uci.h': 'uci.h (UCI_INCLUDE_DIR)',
    'lib/libuci.so': 'libuci (UCI_LIBRARY)',
}
ALL_MISSING = ' '.join(PARTS.values())
STAND_INS = 'OpenWrt libraries: the stand-ins of hostlibs/'
WAYS_OUT = ('For a router, install them, name their prefix in CMAKE_PREFIX_PATH or '
            'CMAKE_FIND_ROOT_PATH, or set the variables in brackets. For a PC, -DKELM_HOSTLIBS=ON '
            'builds with the stand-ins of hostlibs/ instead.')
IS_OFF = 'KELM_HOSTLIBS is OFF, and not all of the OpenWrt libraries were found.'
IS_CROSS = 'This build is for another machine, and the OpenWrt libraries were not found.'
TOO_OLD = ('libubox.so is too old: it has no uloop_handle_sigchld. The oldest libubox that kelm '
           'works with is that of 2017-09-29; OpenWrt 18.06 and newer have it.')


@pytest.fixture(scope='module', name='installed')
def build_prefix(tmp_path_factory):
    """The four libraries with their headers, and json-c."""
    build, prefix = tmp_path_factory.mktemp('libraries'), tmp_path_factory.mktemp('prefix')
    openwrt_prefix(build, prefix)
    (prefix / 'include/json-c').symlink_to('/usr/include/json-c')
    library = subprocess.run(['gcc', '-print-file-name=libjson-c.so'], check=True,
                             capture_output=True, text=True).stdout.strip()
    (prefix / 'lib/libjson-c.so').symlink_to(library)
    return prefix


@pytest.fixture(name='prefix')
def copy_prefix(installed, tmp_path):
    return Path(shutil.copytree(installed, tmp_path / 'prefix', symlinks=True))


@pytest.fixture(scope='module', name='configure')
def make_configure(tmp_path_factory):
    """Configures with the libraries of a prefix alone; returns all that CMake said as one line.

    In one folder for all, since finding the compiler takes the most time.
    """
    folder = tmp_path_factory.mktemp('build')
    toolchain = folder / 'cross.cmake'
    toolchain.write_text('set(CMAKE_SYSTEM_NAME Linux)\n', encoding='utf-8')

    def configure(prefix, *options, cross=False, well=True, again=False):
        forget = [] if again else ['-UKELM_*', '-U*_LIBRARY', '-U*_INCLUDE_DIR']
        machine = [f'-DCMAKE_TOOLCHAIN_FILE={toolchain}'] if cross else []
        went_well, said = run(
            'cmake', '-S', ROOT, '-B', folder / ('cross' if cross else 'native'), '-G', 'Ninja',
            *forget, '-DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON',
            f'-DCMAKE_FIND_ROOT_PATH={prefix}', '-DCMAKE_FIND_ROOT_PATH_MODE_INCLUDE=ONLY',
            '-DCMAKE_FIND_ROOT_PATH_MODE_LIBRARY=ONLY', *machine, *options)
        assert went_well == well, said
        return ' '.join(said.split())
    return configure


def remove(prefix, *parts):
    for part in parts:
        (prefix / part).unlink()


def told_missing(said):
    return said.split(' Missing: ')[1].split(' For a router, ')[0]


# What is asked for, for which machine; the libraries are all there.
@pytest.mark.parametrize('options, cross, stand_ins', [
    ((), False, False),
    (('-DKELM_HOSTLIBS=AUTO',), False, False),
    (('-DKELM_HOSTLIBS=auto',), True, False),
    (('-DKELM_HOSTLIBS=OFF',), False, False),
    (('-DKELM_HOSTLIBS:BOOL=0',), True, False),
    (('-DKELM_HOSTLIBS=ON',), False, True),
    (('-DKELM_HOSTLIBS=ON',), True, True),
    (('-DKELM_HOSTLIBS:BOOL=TRUE',), False, True),
])
def test_libraries_that_are_there_are_used_unless_the_stand_ins_are_asked_for(
        installed, configure, options, cross, stand_ins):
    said = configure(installed, *options, cross=cross)
    assert (STAND_INS in said) == stand_ins
    used = f'OpenWrt libraries: {installed}/lib/libubus.so and its neighbours'
    assert (used in said) != stand_ins


@pytest.mark.parametrize('choice', ['AUTO', 'OFF'])
@pytest.mark.parametrize('part', PARTS)
def test_one_that_is_missing_is_named_and_ends_the_build(prefix, configure, part, choice):
    remove(prefix, part)
    said = configure(prefix, f'-DKELM_HOSTLIBS={choice}', well=False)
    assert told_missing(said) == PARTS[part]
    assert WAYS_OUT in said
    if choice == 'OFF':
        assert IS_OFF in said
    else:
        found = ', '.join(name.split(' ')[0] for other, name in PARTS.items() if other != part)
        assert f'Only a part of the OpenWrt libraries was found: {found}.' in said


@pytest.mark.parametrize('options, cross, complaint', [
    ((), False, None),
    (('-DKELM_HOSTLIBS=OFF',), False, IS_OFF),
    (('-DKELM_HOSTLIBS=no',), True, IS_OFF),
    ((), True, IS_CROSS),
    (('-DKELM_HOSTLIBS=ON',), False, None),
    (('-DKELM_HOSTLIBS=ON',), True, None),
])
def test_where_there_are_none_a_pc_gets_the_stand_ins_and_another_machine_an_error(
        prefix, configure, options, cross, complaint):
    remove(prefix, *PARTS)
    said = configure(prefix, *options, cross=cross, well=complaint is None)
    if complaint is None:
        assert STAND_INS in said
    else:
        assert complaint in said and WAYS_OUT in said
        assert told_missing(said) == ALL_MISSING


@pytest.mark.parametrize('word', ['', 'maybe', 'AUTOMATIC', 'ONE', '2'])
def test_another_word_than_auto_on_and_off_is_an_error(installed, configure, word):
    said = configure(installed, f'-DKELM_HOSTLIBS={word}', well=False)
    assert f'KELM_HOSTLIBS is "{word}", but must be AUTO, ON or OFF.' in said


def put_old_library(prefix):
    source = prefix / 'old.c'
    source.write_text('int uloop_init(void);\nint uloop_init(void) { return 0; }\n',
                      encoding='utf-8')
    subprocess.run(['gcc', '-shared', '-fPIC', '-o', prefix / 'lib/libubox.so', source],
                   check=True)


def put_old_header(prefix):
    header = prefix / 'include/libubox/uloop.h'
    lines = header.read_text(encoding='utf-8').splitlines(keepends=True)
    kept = [line for line in lines if 'uloop_handle_sigchld' not in line]
    assert len(kept) == len(lines) - 1
    header.write_text(''.join(kept), encoding='utf-8')


@pytest.mark.parametrize('old_parts', [
    (put_old_library, put_old_header), (put_old_library,), (put_old_header,)])
def test_a_libubox_that_is_too_old_is_told_with_the_oldest_that_works(prefix, configure, old_parts):
    for make_old in old_parts:
        make_old(prefix)
    assert f'{prefix}/lib/{TOO_OLD}' in configure(prefix, well=False)
    assert f'{prefix}/lib/{TOO_OLD}' in configure(prefix, cross=True, well=False)


def test_a_libubox_that_was_replaced_is_looked_at_anew(prefix, configure, installed):
    configure(prefix)
    put_old_library(prefix)
    assert TOO_OLD in configure(prefix, well=False, again=True)
    shutil.copy(installed / 'lib/libubox.so', prefix / 'lib/libubox.so')
    assert 'and its neighbours' in configure(prefix, again=True)


def test_a_libubox_of_another_machine_is_not_told_to_be_old(prefix, configure):
    (prefix / 'lib/libubox.so').write_bytes(b'\x7fELF of nobody')
    said = configure(prefix, well=False)
    assert (f'{prefix}/lib/libubox.so with {prefix}/include/libubox/uloop.h cannot be linked'
            in said)
    assert 'too old' not in said


def test_the_daemon_is_linked_with_the_libraries_that_were_found(installed, tmp_path):
    must_run('cmake', '-S', ROOT, '-B', tmp_path, '-G', 'Ninja', *through_cache(),
             '-DKELM_HOSTLIBS=OFF', f'-DCMAKE_PREFIX_PATH={installed}')
    must_run('cmake', '--build', tmp_path, '-j2')
    assert of_openwrt(tmp_path) == OPENWRT_LIBRARIES
    libraries = needed(tmp_path / 'kelm') - {'ld-linux-x86-64'}
    assert libraries == {'libc', 'libjson-c'} | OPENWRT_LIBRARIES
    # The stand-ins' broker and command are the tests' affair.
    assert not (tmp_path / 'hostlibs').exists()
