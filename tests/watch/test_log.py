# SPDX-License-Identifier: ISC
"""The daemon's log in a file that is followed, a FIFO, standard input."""
import os
import subprocess

import pytest

LOG = '/mnt/log/console'
LINE = 'kelm[main:12]: kelm 0.9.0'


def append(text):
    with open(LOG, 'a', encoding='utf-8') as file:
        file.write(text)


@pytest.fixture(name='seen')
def follow(watch):
    append('kelm[main:1]: kelm 0.1.0\n')
    return watch('--log', LOG)


def test_a_file_is_followed_from_its_end(seen):
    seen.wait('watch', 'kelm-watch ')
    append(f'{LINE}\n')
    assert seen.wait('console', '') == LINE
    assert seen.texts('console') == [LINE]


@pytest.mark.parametrize('line, told', [
    (f'[   12.345] {LINE}', LINE),
    (f'Sun Nov 22 12:00:00 2026 daemon.info kelm[284]: {LINE}\r', LINE),
    ('hostapd: passphrase is under the old elm', None),
    (f'Sun Nov 22 12:00:00 2026 daemon.notice hostapd: wlan1: STA [{LINE}]', None),
    (f'wlan1: WPS-ENROLLEE-SEEN [daemon.info kelm[284]: {LINE}', None),
    ('kelm[284]: no function', None),
    ('', None),
])
def test_a_line_is_told_from_its_function_on_and_others_are_not(seen, line, told):
    append(f'{line}\nkelm[main:99]: kelm_flag: 0\n')
    seen.wait('console', 'kelm[main:99]')
    assert seen.texts('console') == ([told] if told else []) + ['kelm[main:99]: kelm_flag: 0']


def test_what_the_stock_service_says_is_told_as_the_system_log_has_it(seen):
    """Why a band has no WPS stands there alone."""
    append('Sun Nov 22 12:00:00 2026 daemon.notice kelm: 5 GHz: the network is hidden\n'
           'Sun Nov 22 12:00:01 2026 daemon.notice kelm: passphrase is under the old elm\n'
           'Sun Nov 22 12:00:02 2026 daemon.notice hostapd: kelm: 5 GHz: the network is hidden\n'
           'Sun Nov 22 12:00:03 2026 daemon.notice kelm: ready on 2.4 GHz\n')
    seen.wait('log', 'kelm: ready on 2.4 GHz')
    assert seen.texts('log') == ['kelm: 5 GHz: the network is hidden', 'kelm: [31 bytes]',
                                 'kelm: ready on 2.4 GHz']


def test_a_line_that_comes_in_pieces_is_one_line(seen):
    append(LINE[:9])
    append(LINE[9:] + '\n')
    assert seen.wait('console', '') == LINE


def test_a_file_that_was_emptied_is_read_from_its_begin(seen):
    append(f'{LINE}\n' * 5)
    seen.wait('console', LINE, 5)
    os.truncate(LOG, 0)
    append(f'{LINE}\n')
    seen.wait('console', LINE, 6)


def test_a_file_that_was_put_aside_is_followed_by_its_successor(seen):
    append(f'{LINE}\n')
    os.rename(LOG, f'{LOG}.1')
    append('kelm[main:99]: kelm_flag: 0\n')
    seen.wait('console', 'kelm[main:99]')
    assert seen.texts('console') == [LINE, 'kelm[main:99]: kelm_flag: 0']


def test_a_file_that_comes_later_is_read_whole(watch):
    seen = watch('--log', LOG)
    seen.wait('watch', f'the log {LOG} cannot be read')
    append(f'{LINE}\n')
    seen.wait('console', LINE)


def test_a_huge_line_is_cut_and_the_next_is_whole(seen):
    append('kelm[main:1]: ' + 'x' * 100000 + f'\n{LINE}\n')
    seen.wait('console', LINE)
    assert all(len(text) <= 2048 for text in seen.texts('console'))


def test_a_fifo_is_read_from_one_writer_after_another(watch):
    os.mkfifo(LOG)
    seen = watch('--log', LOG)
    for count in (1, 2):
        append(f'{LINE}\n')
        seen.wait('console', LINE, count)


def test_standard_input_is_read_to_its_end(watch):
    seen = watch('--log', '-', stdin=subprocess.PIPE)
    seen.process.stdin.write(f'{LINE}\n'.encode())
    seen.process.stdin.flush()
    seen.wait('console', LINE)
    seen.process.stdin.write(b'kelm[main:99]: kelm_flag: 0')
    seen.process.stdin.close()
    seen.process.stdin = None
    assert seen.end() == 1  # it heard neither the bus nor a Wi-Fi daemon
    assert seen.texts('console')[-1] == 'kelm[main:99]: kelm_flag: 0'
