# SPDX-License-Identifier: ISC
"""The pages for stock OpenWrt name what is there: messages, settings, results, scripts."""
import re
import subprocess

import pytest

from builds import ROOT

FILES = ROOT / 'openwrt/kelm/files'
PAGE = (ROOT / 'docs/openwrt.md').read_text(encoding='utf-8')
FOLDER_PAGE = (ROOT / 'openwrt/README.md').read_text(encoding='utf-8')


def tracked(folder):
    listing = subprocess.run(['git', '-c', f'safe.directory={ROOT}', 'ls-files', folder], cwd=ROOT,
                             check=True, capture_output=True, text=True)
    return listing.stdout.splitlines()


def first_cells(heading):
    """The first cells of the first table under a heading, without its head."""
    chapter = PAGE.split(f'\n{heading}\n', 1)[1]
    rows = re.search(r'\n(\|.*?)\n\n', chapter + '\n\n', re.DOTALL)[1].splitlines()
    return [row.split('|')[1].strip() for row in rows[2:]]


def scripts_text():
    return '\n'.join((ROOT / name).read_text(encoding='utf-8')
                     for folder in ('openwrt/kelm/files', 'doctor/lib') for name in tracked(folder))


@pytest.mark.parametrize('cell', first_cells('## When it fails'))
def test_a_message_in_the_table_is_one_that_the_scripts_say(cell):
    text = scripts_text()
    for message in cell.split('; '):
        # A section's name stands in for each other one; two words are put together by the script.
        words = re.sub(r'^SECTION |\.\.\.$| wlan1$', '', message).rstrip(': ')
        words = re.sub(r'^hostapd (?=has no WPS)', '', words)
        assert words in text, words


def test_each_setting_has_its_row_and_its_default():
    options = dict(re.findall(r"^\toption (\w+) '(.*)'$",
                              (FILES / 'etc/config/kelm').read_text(encoding='utf-8'), re.M))
    rows = dict(re.findall(r'^\| `(\w+)` \| `([^`]*)` \|', PAGE, re.M))
    assert rows == options


def test_each_result_of_an_attempt_has_its_row():
    status = (FILES / 'usr/libexec/kelm/status').read_text(encoding='utf-8')
    sentences = re.search(r'^sentence\(\) \{\n(.*?)^\}', status, re.M | re.S)[1]
    results = {word.removesuffix('-repeater')
               for word in re.findall(r'^\t([a-z-]+)\*?\)', sentences, re.M)}
    rows = re.findall(r'^\| `([a-z-]+)` \|', PAGE.split('| result | in words |')[1]
                      .split('\n\n')[0], re.M)
    assert sorted(rows) == sorted(results)


def test_each_file_of_the_package_is_told():
    for name in tracked('openwrt/kelm/files'):
        place = name.removeprefix('openwrt/kelm/files')
        short = place.removeprefix('/usr/libexec/kelm/').removeprefix('/usr/lib/kelm/')
        assert f'"{place}"' in FOLDER_PAGE or f'`{short}`' in FOLDER_PAGE, place
