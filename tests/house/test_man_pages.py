# SPDX-License-Identifier: ISC
"""The man pages: no mistake that groff sees, what they must name, and where they go."""
import re
import shutil
import subprocess

import pytest

from builds import ROOT, must_run, run

PAGES = sorted((ROOT / 'docs/man').glob('*.8'))
DOCTOR = ROOT / 'docs/man/kelm-doctor.8'
SECTIONS = ['NAME', 'SYNOPSIS', 'DESCRIPTION', 'OPTIONS', 'CHECKS', 'EXIT STATUS', 'FILES',
            'EXAMPLES', 'SEE ALSO']


def complaints(path):
    if not shutil.which('groff'):
        pytest.skip('groff is not installed')
    return run('groff', '-ww', '-man', '-Tutf8', '-z', path)[1]


def test_there_is_a_page_for_each_program():
    assert [page.name for page in PAGES] == ['kelm-doctor.8', 'kelm-watch.8', 'kelm.8']


@pytest.mark.parametrize('page', PAGES, ids=lambda page: page.name)
def test_groff_finds_no_mistake(page):
    assert complaints(page) == ''


def test_a_mistake_is_found(tmp_path):
    page = tmp_path / 'wrong.8'
    page.write_text('.TH A 8\n.NOSUCHMACRO\n', encoding='utf-8')
    assert 'NOSUCHMACRO' in complaints(page)


@pytest.mark.parametrize('page', PAGES, ids=lambda page: page.name)
def test_the_head_of_a_page(page):
    name = page.stem
    lines = page.read_text(encoding='utf-8').splitlines()
    escaped = name.replace('-', '\\-')
    assert lines[1].split()[:3] == ['.TH', escaped.upper(), '8']
    assert lines[2] == '.SH NAME'
    assert lines[3].startswith(f'{escaped} \\- ')


def sections(page):
    """{heading: text}."""
    parts = re.split(r'^\.SH (.*)$', page.read_text(encoding='utf-8'), flags=re.MULTILINE)
    return dict(zip(parts[1::2], parts[2::2]))


def test_the_sections_of_the_doctor():
    assert list(sections(DOCTOR)) == SECTIONS


def table_of_checks():
    text = (ROOT / 'doctor/lib/checks.sh').read_text(encoding='utf-8')
    rows = re.search(r"^CHECKS='\n(.*?)^'", text, re.DOTALL | re.MULTILINE)[1]
    return [line.split()[0] for line in rows.splitlines()]


def told_checks():
    """The names in the sources, those too that a check of another name tells."""
    text = ''.join(path.read_text(encoding='utf-8')
                   for path in sorted((ROOT / 'doctor/lib').glob('*.sh')))
    return set(re.findall(r'\b(?:ok|warning|fault) ([a-z]+(?:-[a-z]+)*) (?:\'\'|"\$)', text))


def test_the_page_names_each_check_of_the_doctor():
    named = [name.replace('\\-', '-')
             for name in re.findall(r'^\.TP\n\.B (\S+)$', sections(DOCTOR)['CHECKS'], re.MULTILINE)]
    assert len(named) == len(set(named))
    assert set(named) == set(table_of_checks()) | told_checks()
    order = table_of_checks()
    assert [name for name in named if name in order] == list(dict.fromkeys(order))


def test_the_page_has_the_options_of_the_program():
    usage = subprocess.run([ROOT / 'doctor/kelm-doctor', '--help'], check=True,
                           capture_output=True, text=True).stdout
    options = set(re.findall(r'^  (--[a-z]+)', usage, re.MULTILINE))
    assert options == {'--json', '--button', '--face', '--help'}
    named = set(re.findall(r'^\.TP\n\.BR? (\\-\\-[a-z]+)', sections(DOCTOR)['OPTIONS'],
                           re.MULTILINE))
    assert {name.replace('\\-', '-') for name in named} == options


def test_they_are_installed(tmp_path):
    must_run('cmake', '-S', ROOT, '-B', tmp_path / 'build', '-G', 'Ninja')
    must_run('cmake', '--install', tmp_path / 'build', '--prefix', tmp_path / 'usr',
             '--component', 'man')
    found = {path.relative_to(tmp_path / 'usr'): path.read_bytes()
             for path in (tmp_path / 'usr').rglob('*') if path.is_file()}
    assert {str(name): text for name, text in found.items()} == {
        f'share/man/man8/{page.name}': page.read_bytes() for page in PAGES}
