# SPDX-License-Identifier: ISC
"""How the sources are compiled: for those who only build the program, for those who change it."""
import shutil

import pytest

from builds import ROOT, commands, must_run

DAEMON = ('daemon/main.cpp', 'ipc/bus.cpp', 'config/uci_option.cpp', 'platform/rtk/ops.cpp')
NO_TABLES = ('-fno-asynchronous-unwind-tables', '-fno-unwind-tables')


@pytest.fixture(scope='module', name='compiled')
def configure_once(tmp_path_factory):
    """The commands of a build with these options and no others."""
    build = tmp_path_factory.mktemp('build')

    def compiled(*options):
        must_run('cmake', '-S', ROOT, '-B', build, '-G', 'Ninja', '-UKELM_*', '-UCMAKE_BUILD_TYPE',
                 '-UCMAKE_CXX_FLAGS', *options)
        return commands(build)
    return compiled


def level(words):
    """What the compiler makes of several: the last counts."""
    return ([word for word in words if word.startswith('-O')] or ['none'])[-1]


@pytest.mark.parametrize('options', [
    (),
    ('-DCMAKE_BUILD_TYPE=',),
    ('-DCMAKE_BUILD_TYPE=MinSizeRel',),
    ('-DCMAKE_BUILD_TYPE=Release',),
    ('-DCMAKE_BUILD_TYPE=Release', '-DCMAKE_CXX_FLAGS=-O2 -pipe'),
    ('-DCMAKE_BUILD_TYPE=RelWithDebInfo',),
    ('-DCMAKE_BUILD_TYPE=None',),
    ('-DCMAKE_BUILD_TYPE=Router',),
])
def test_the_program_is_small_whatever_the_build_type_is_called(compiled, options):
    found = compiled(*options)
    for file in DAEMON:
        assert level(found[file]) == '-Os', file
        assert set(NO_TABLES) <= set(found[file]), file


@pytest.mark.parametrize('options, expected', [
    (('-DCMAKE_BUILD_TYPE=Debug',), 'none'),
    (('-DCMAKE_BUILD_TYPE=debug',), 'none'),
    (('-DCMAKE_BUILD_TYPE=Debug', '-DKELM_COVERAGE=ON'), 'none'),
    (('-DCMAKE_BUILD_TYPE=Release', '-DKELM_COVERAGE=ON'), '-O3'),
    (('-DCMAKE_BUILD_TYPE=Release', '-DKELM_SANITIZE=address'), '-O3'),
])
def test_a_build_that_is_looked_into_keeps_its_own_flags(compiled, options, expected):
    found = compiled(*options)
    for file in DAEMON:
        assert level(found[file]) == expected, file
        assert not set(NO_TABLES) & set(found[file]), file


def goes_through_cache(build):
    return 'ccache' in (build / 'CMakeFiles/rules.ninja').read_text(encoding='utf-8')


def test_neither_warnings_nor_a_cache_are_forced_on_those_who_only_build(tmp_path):
    must_run('cmake', '-S', ROOT, '-B', tmp_path, '-G', 'Ninja', '-DKELM_TESTS=ON',
             '-DKELM_BENCH=ON')
    found = commands(tmp_path)
    assert {'daemon/main.cpp', 'hostlibs/uloop.c', 'bench/stamp.c',
            'tests/unit/faults.cpp'} <= set(found)
    assert [file for file, words in found.items() if '-Werror' in words] == []
    assert not goes_through_cache(tmp_path)


def test_those_who_change_it_are_stopped_by_warnings_and_build_through_a_cache(tmp_path):
    must_run('cmake', '--preset', 'release', '-B', tmp_path, '-G', 'Ninja')
    found = commands(tmp_path)
    assert {'daemon/main.cpp', 'hostlibs/uloop.c', 'tests/unit/faults.cpp'} <= set(found)
    assert [file for file, words in found.items() if '-Werror' not in words] == []
    assert goes_through_cache(tmp_path) == (shutil.which('ccache') is not None)
