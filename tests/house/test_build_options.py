# SPDX-License-Identifier: ISC
"""How the sources are compiled: for those who only build the program, for those who change it."""
import shutil

from builds import ROOT, commands, must_run


def goes_through_cache(build):
    return 'ccache' in (build / 'CMakeFiles/rules.ninja').read_text(encoding='utf-8')


def test_neither_warnings_nor_a_cache_are_forced_on_those_who_only_build(tmp_path):
    must_run('cmake', '-S', ROOT, '-B', tmp_path, '-G', 'Ninja', '-DKELM_TESTS=ON',
             '-DKELM_BENCH=ON')
    found = commands(tmp_path)
    assert {'core/main.cpp', 'hostlibs/uloop.c', 'bench/stamp.c',
            'tests/unit/faults.cpp'} <= set(found)
    assert [file for file, words in found.items() if '-Werror' in words] == []
    assert not goes_through_cache(tmp_path)


def test_those_who_change_it_are_stopped_by_warnings_and_build_through_a_cache(tmp_path):
    must_run('cmake', '--preset', 'release', '-B', tmp_path, '-G', 'Ninja')
    found = commands(tmp_path)
    assert {'core/main.cpp', 'hostlibs/uloop.c', 'tests/unit/faults.cpp'} <= set(found)
    assert [file for file, words in found.items() if '-Werror' not in words] == []
    assert goes_through_cache(tmp_path) == (shutil.which('ccache') is not None)
