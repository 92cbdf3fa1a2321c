# SPDX-License-Identifier: ISC
"""The settings files: missing, broken, out of step, cut; each row of a table is one router."""
import os
import time

import pytest

from doctor import examine, told

MODE, BANDS = '/tmp/device_runtime.info', '/tmp/device.info'
WPS, WIFI, LINK = '/tmp/wps.conf', '/tmp/wifi.conf', '/tmp/wifi_runtime_info.2g'
NO_START = 'kelm does not start'
MODE_CURE = ('have /etc/init.d/wps write {"mode": 1} for an access point, {"mode": 0} for a '
             'repeater, before it starts kelm')
BANDS_CURE = 'have /etc/init.d/wps write {"RFBand": 2} for 2.4 and 5 GHz before it starts kelm'
IT_CURE = 'have /etc/init.d/wps write it before it starts kelm'
WPS_OFF = 'WPS counts as off, and a press does nothing'
NOT_STORED = 'each success counts as an error, for nothing can be stored'
SWITCHED_OFF = 'WPS of the access points is off'
SUM = 'write the sum of 1 (2.4 GHz) and 2 (5 GHz)'
END = 'end each line with a line feed'


def ok(text):
    return [('ok', text)]


def warning(text):
    return [('warning', text)]


def fault(text):
    return [('fault', text)]


# Number of the mode or of the bands; what stands in the file, what is told.
NUMBER_FILES = {
    'mode-ap': (MODE, '{ "mode": 1 }', ok(f'{MODE} says access point')),
    'mode-repeater': (MODE, '{"mode":0,"x":[{}]}', ok(f'{MODE} says repeater')),
    'mode-missing': (MODE, None, fault(f'{MODE} is missing: {NO_START}; {MODE_CURE}')),
    'mode-empty': (MODE, '', fault(f'{MODE} is empty: {NO_START}; {MODE_CURE}')),
    'mode-no-json': (MODE, 'mode=1', fault(f'{MODE} is no JSON: {NO_START}; {MODE_CURE}')),
    'mode-cut-off': (MODE, '{"mode": 1', fault(f'{MODE} is no JSON: {NO_START}; {MODE_CURE}')),
    'mode-zero-byte': (MODE, '{"mode":\0 1}', fault(
        f'{MODE} holds a zero byte, and what is behind it is not read: {NO_START}; {MODE_CURE}')),
    'mode-too-long': (MODE, '{"pad":"' + 'x' * 600 + '","mode":1}', fault(
        f'{MODE} has 619 bytes, of which 512 are read, and that is no JSON: {NO_START}; '
        f'{MODE_CURE}')),
    'mode-blanks-behind': (MODE, '{"mode": 1}' + ' ' * 1000, ok(f'{MODE} says access point')),
    'mode-other': (MODE, '{"mode": 2}', fault(
        f'{MODE} says mode 2, which is neither 1 (access point) nor 0 (repeater): {NO_START}; '
        'write one of them')),
    'mode-text': (MODE, '{"mode": "1"}', warning(
        f'{MODE} has no number "mode": it counts as 0, a repeater; write {{"mode": 0}} or '
        '{"mode": 1}')),
    'mode-list': (MODE, '[1]', warning(
        f'{MODE} has no number "mode": it counts as 0, a repeater; write {{"mode": 0}} or '
        '{"mode": 1}')),
    'bands-2g': (BANDS, '{"RFBand": 0}', ok(f'{BANDS} names the bands 2.4 GHz')),
    'bands-all': (BANDS, '{"RFBand": 5}', ok(f'{BANDS} names the bands 2.4 GHz, 5 GHz, 5g2, 6g')),
    'bands-missing': (BANDS, None, fault(f'{BANDS} is missing: {NO_START}; {BANDS_CURE}')),
    'bands-no-json': (BANDS, '{"RFBand":2', fault(f'{BANDS} is no JSON: {NO_START}; {BANDS_CURE}')),
    'bands-9': (BANDS, '{"RFBand": 9}', fault(
        f'{BANDS} says RFBand "9", which is no number from 0 to 5: the device counts as one '
        'without bands; write the right one')),
    'bands-below': (BANDS, '{"RFBand": -1}', fault(
        f'{BANDS} says RFBand "-1", which is no number from 0 to 5: the device counts as one '
        'without bands; write the right one')),
    'bands-no-number': (BANDS, '{}', warning(
        f'{BANDS} has no number "RFBand": it counts as 0, which is 2.4 GHz alone; write the right '
        'one')),
    'bands-too-long': (BANDS, '{"pad":"' + 'x' * 2100 + '","RFBand":2}', fault(
        f'{BANDS} has 2121 bytes, of which 2048 are read, and that is no JSON: {NO_START}; '
        f'{BANDS_CURE}')),
}
CHECKS = {MODE: 'settings-mode', BANDS: 'settings-bands', WPS: 'settings-wps',
          WIFI: 'settings-wifi', LINK: 'settings-link'}


def put(router, path, text, mode=0o644):
    if text is None:
        router.remove(path)
    else:
        router.write(path, text, mode)


@pytest.mark.parametrize('mode, said, chosen, words', [
    (1, 'access point', 'repeater', 'repeater'), (0, 'repeater', 'ap', 'access point')])
def test_a_mode_that_the_service_has_not_taken_over(stock, mode, said, chosen, words):
    stock.uci('set', f'kelm.main.mode={chosen}')
    stock.uci('commit', 'kelm')
    stock.write(MODE, f'{{"mode": {mode}}}\n')
    assert told(stock, 'settings-mode') == fault(
        f'{MODE} says {said}, and /etc/config/kelm says {words}, so a press does the wrong thing; '
        'the service takes it over: service wps restart')


def test_a_repeater_of_stock_openwrt(stock):
    stock.be_repeater()
    found = examine(stock)
    assert [one for one in found.findings if one.result != 'ok'] == []
    assert told(stock, 'settings-mode') == ok(f'{MODE} says repeater')


def test_what_cannot_be_known_without_the_files_is_not_told(maker):
    maker.remove(MODE)
    maker.remove(WPS)
    assert told(maker, 'settings-link') == []
    assert told(maker, 'settings-pin') == []


@pytest.mark.parametrize('row', NUMBER_FILES)
def test_a_file_with_one_number(maker, row):
    path, text, expected = NUMBER_FILES[row]
    put(maker, path, text)
    assert told(maker, CHECKS[path]) == expected


UNSEEN = 'whether a file is JSON cannot be seen without jsonfilter; install jsonfilter'


@pytest.mark.parametrize('text, mode', [
    ('{"mode": 1}', 'access point'), ('{"mode":0,"x":1}\n', 'repeater'),
    ('{ "a": 1,\n  "mode" :\n 1\n}\n', 'access point')])
def test_without_jsonfilter_the_numbers_are_found_all_the_same(maker, text, mode):
    maker.remove('/usr/bin/jsonfilter')
    maker.write(MODE, text)
    assert told(maker, 'settings-mode') == warning(UNSEEN) + ok(f'{MODE} says {mode}')
    assert told(maker, 'settings-bands') == ok(f'{BANDS} names the bands 2.4 GHz, 5 GHz')


def test_without_jsonfilter_a_file_that_is_missing_is_told(maker):
    maker.remove('/usr/bin/jsonfilter')
    maker.remove(BANDS)
    assert told(maker, 'settings-bands') == fault(f'{BANDS} is missing: {NO_START}; {BANDS_CURE}')


# What stands in wps.conf; what is told of the file, and of single bands.
AP_WPS = {
    'ok': ('enabled=1\napWpsAvailable=3\n',
           ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz'), {}),
    'one band': ('enabled=1\napWpsAvailable=2\n', ok(f'{WPS} has these bands in WPS: 5 GHz'), {}),
    'blank lines count for nothing': ('\nenabled=1\n\n\n#x\n\napWpsAvailable=3\n\n',
                                      ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz'), {}),
    'missing': (None, fault(f'{WPS} is missing: {WPS_OFF}; {IT_CURE}'), {}),
    'empty': ('', fault(f'{WPS} is empty: {WPS_OFF}; {IT_CURE}'), {}),
    'off': ('enabled=0\napWpsAvailable=3\n', fault(
        f'"enabled=0" in {WPS} counts as 0: {SWITCHED_OFF}; write enabled=1'), {}),
    'no switch': ('apWpsAvailable=3\n', fault(
        f'{WPS} has no line "enabled=": {SWITCHED_OFF}; add enabled=1'), {}),
    'a word': ('enabled=yes\napWpsAvailable=3\n', fault(
        f'"enabled=yes" in {WPS} counts as 0: {SWITCHED_OFF}; write enabled=1'), {}),
    'eight bits': ('enabled=256\napWpsAvailable=3\n', fault(
        f'"enabled=256" in {WPS} counts as 0: {SWITCHED_OFF}; write enabled=1'), {}),
    'below zero': ('enabled=-1\napWpsAvailable=3\n', warning(
        f'"enabled=-1" in {WPS} counts as 255; write enabled=1'), {}),
    'a number and more': ('enabled= 1x\napWpsAvailable=3\n', warning(
        f'"enabled= 1x" in {WPS} counts as 1; write enabled=1'), {}),
    'no mask': ('enabled=1\n', fault(
        f'{WPS} has no line "apWpsAvailable=": no access point takes part; add it, with the sum '
        'of 1 (2.4 GHz) and 2 (5 GHz)'), {}),
    'mask 0': ('enabled=1\napWpsAvailable=0\n', fault(
        f'apWpsAvailable=0 in {WPS}: no access point takes part; {SUM}'), {}),
    'mask of quotes': ('enabled=1\napWpsAvailable="3"\n', fault(
        f'"apWpsAvailable="3"" in {WPS} counts as 0; write a number from 0 to 15')
        + fault(f'apWpsAvailable=0 in {WPS}: no access point takes part; {SUM}'), {}),
    'mask with a leading zero': ('enabled=1\napWpsAvailable=03\n', fault(
        f'"apWpsAvailable=03" in {WPS} counts as 3; write a number from 0 to 15'), {}),
    'mask twice': ('enabled=1\napWpsAvailable=1\napWpsAvailable=2\n', warning(
        f'apWpsAvailable stands 2 times in {WPS}, and the last counts; leave the others out'), {}),
    'a band that the device lacks': ('enabled=1\napWpsAvailable=5\n', [], {'5g2': warning(
        f'apWpsAvailable=5 in {WPS} names this band, but RFBand in {BANDS} does not, so it takes '
        'no part; make them agree')}),
    'the last line is cut': ('enabled=1\napWpsAvailable=3', fault(
        f'the last line of {WPS} has no line feed at its end, so kelm takes its last character '
        f'away: "apWpsAvailable=3" counts as "apWpsAvailable="; {END}')
        + fault(f'"apWpsAvailable=" in {WPS} counts as 0; write a number from 0 to 15')
        + fault(f'apWpsAvailable=0 in {WPS}: no access point takes part; {SUM}'), {}),
    'the last line is cut and a number is left': ('apWpsAvailable=3\nenabled=10', fault(
        f'the last line of {WPS} has no line feed at its end, so kelm takes its last character '
        f'away: "enabled=10" counts as "enabled=1"; {END}'), {}),
    'the last line is a PIN': ('enabled=1\napWpsAvailable=3\npinCode=12345670', fault(
        f'the last line of {WPS} has no line feed at its end, so kelm takes its last character '
        f'away: that of the PIN; {END}'), {}),
    'the last line is a comment': ('enabled=1\napWpsAvailable=3\n# end=',
                                   ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz'), {}),
    'the last line is no setting': ('enabled=1\napWpsAvailable=3\nend',
                                    ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz'), {}),
    'the last line is of somebody else': ('enabled=1\napWpsAvailable=3\nkey=secret', fault(
        f'the last line of {WPS} has no line feed at its end, so kelm takes its last character '
        f'away; {END}'), {}),
    'carriage returns': ('enabled=1\r\napWpsAvailable=3\r\n', warning(
        f'{WPS} has carriage returns, which are part of the value: pinEnabled=on with one counts '
        'as off; end each line with a line feed alone')
        + warning(f'"enabled=1?" in {WPS} counts as 1; write enabled=1')
        + fault(f'"apWpsAvailable=3?" in {WPS} counts as 3; write a number from 0 to 15'), {}),
    'a line too long': ('enabled=1\nx=' + 'y' * 3000 + '\napWpsAvailable=3\n', fault(
        f'line 2 of {WPS} is longer than 2046 characters: kelm reads it in pieces, each as a line '
        'of its own; shorten it'), {}),
    'a line of the longest': ('enabled=1\nx=' + 'y' * 2044 + '\napWpsAvailable=3\n',
                              ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz'), {}),
    'blanks and capitals': ('Enabled=1\nenabled =1\nenabled=1\n apWpsAvailable=1\n'
                            'apWpsAvailable=3\n', warning(
                                f'line 1 of {WPS} begins with "Enabled", which is no key; mind '
                                'blanks and capitals')
                            + warning(f'line 2 of {WPS} begins with "enabled ", which is no key; '
                                      'mind blanks and capitals')
                            + warning(f'line 4 of {WPS} begins with " apWpsAvailable", which is '
                                      'no key; mind blanks and capitals'), {}),
    'zero bytes': ('enabled=1\napWpsAvailable=3\nx=\0\n', fault(
        f'{WPS} holds a zero byte, which is no text: what stands behind it in its line is lost; '
        'write it anew'), {}),
}


@pytest.mark.parametrize('row', AP_WPS)
def test_wps_conf_of_an_access_point(maker, row):
    text, of_file, of_bands = AP_WPS[row]
    put(maker, WPS, text, 0o600)
    found = examine(maker).findings
    for band in ('', '5g2', '6g'):
        expected = of_file if band == '' else of_bands.get(band, [])
        assert [(one.result, one.text.replace('\r', '?')) for one in found
                if (one.check, one.band) == ('settings-wps', band)] == expected


def test_a_huge_file_is_read_in_part(maker):
    maker.write(WPS, 'enabled=1\napWpsAvailable=3\n' + 'x=1234567\n' * 100000, 0o600)
    before = time.monotonic()
    assert told(maker, 'settings-wps') == warning(
        f'{WPS} has 1000027 bytes, of which kelm-doctor has looked at 65536; kelm reads all of it '
        'at each press: leave out what it does not need')
    assert time.monotonic() - before < 30


def test_a_band_without_an_interface_keeps_the_daemon_from_starting(maker):
    maker.write(BANDS, '{"RFBand": 3}')
    maker.write(WPS, 'enabled=1\napWpsAvailable=7\n', 0o600)
    assert told(maker, 'settings-wps', '5g2') == fault(
        f'apWpsAvailable=7 in {WPS} names this band, which has no interface: kelm does not start; '
        'leave its 4 out of the sum')


REPEATER_WPS = {
    'ok': ('staWpsAvailable=3\n', ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz')),
    'the switch of the access points is theirs': (
        'enabled=0\nstaWpsAvailable=1\n', ok(f'{WPS} has these bands in WPS: 2.4 GHz')),
    'none': ('apWpsAvailable=3\nstaWpsAvailable=0\n', fault(
        f'staWpsAvailable=0 in {WPS}: no station takes part; {SUM}')),
}


@pytest.mark.parametrize('row', REPEATER_WPS)
def test_wps_conf_of_a_repeater(maker, row):
    maker.be_repeater()
    maker.write(WPS, REPEATER_WPS[row][0], 0o600)
    assert told(maker, 'settings-wps') == REPEATER_WPS[row][1]


PIN_CURE = 'a PIN has eight digits, or four'
PINS = {
    'right': ('on', '12345670', ok("the access points' own PIN is on, and well formed")),
    'four digits': ('on', '4711', ok("the access points' own PIN is on, and well formed")),
    'off': ('off', '12345678', ok("the access points' own PIN is off")),
    'wrong digit': ('on', '12345671', fault(
        f'the check digit of the PIN in {WPS} is wrong, so hostapd gets none; take the PIN from '
        'the label')),
    'too long': ('on', '123456700', fault(
        f'the PIN in {WPS} has 9 digits, of which eight count; {PIN_CURE}')),
    'too short': ('on', '1234567', fault(
        f'the PIN in {WPS} has 7 digits, so hostapd gets none; {PIN_CURE}')),
    'letters': ('on', '1234-567', fault(
        f'the PIN in {WPS} holds other characters than digits; {PIN_CURE}')),
    'none': ('on', None, fault(
        f'{WPS} says pinEnabled=on and has no pinCode, so hostapd gets none; add the PIN, or '
        'write pinEnabled=off')),
    'ON': ('ON', '12345670', warning(
        f'"pinEnabled=ON" in {WPS} counts as off; write on or off')),
    'a blank behind': ('on ', '12345670', warning(
        f'"pinEnabled=on " in {WPS} counts as off; write on or off')),
}


@pytest.mark.parametrize('row', PINS)
def test_the_access_points_own_pin(maker, row):
    switch, pin, expected = PINS[row]
    maker.write(WPS, f'enabled=1\napWpsAvailable=3\npinEnabled={switch}\n'
                + ('' if pin is None else f'pinCode={pin}\n'), 0o600)
    assert told(maker, 'settings-pin') == expected


def test_a_pin_is_for_root_alone(maker):
    os.chmod(maker.at(WPS), 0o644)
    assert told(maker, 'settings-pin') == warning(
        f'others than root may read {WPS}, and the PIN in it; chmod 600 {WPS}')


@pytest.mark.parametrize('text', [
    'enabled=1\napWpsAvailable=3\npinEnabled=on\npinCode=97531864\n',
    'enabled=1\napWpsAvailable=3\npinEnabled=on\npinCode=97531864',
    'enabled=1\napWpsAvailable=3\npinEnabled=on\npinCode=97531864x\n',
    'enabled=1\napWpsAvailable=3\npinEnabled=on\npinCode =97531864\nwlan_psk=97531864',
])
def test_no_pin_is_told(maker, text):
    maker.write(WPS, text, 0o644)
    maker.write(WIFI, f'x=1\n\n\nwpa_passphrase=97531864\nwlanPsk_2g=97531864{text[-1].strip()}')
    for arguments in ('', '--json'):
        said = maker.run(f'kelm-doctor {arguments}')
        assert said.status == 2
        assert '9753186' not in said.out


def test_a_repeater_has_no_pin(maker):
    maker.be_repeater()
    assert told(maker, 'settings-pin') == ok('a repeater has no PIN of its own')


AP_BLOCK = ('apBssEnabledApMode_2g=on\napBssEnabledApMode_5g=on\n'
            'wlanSecType_2g=1\nwlanSecType_5g=1\n')
IN_BLOCKS = ok(f'{WIFI} has what kelm reads, in the right blocks')
PART = 'part two blocks by one blank line, the stations behind the access points'
OPEN = 'the access point counts as open, and a success there as an error'
# What stands in wifi.conf; what is told of the file, and of 2.4 GHz.
AP_WIFI = {
    'ok': (f'x=1\n\n{AP_BLOCK}\n\n', IN_BLOCKS, []),
    'comments count for nothing': (f'#a\nx=1\n\n#b\n{AP_BLOCK}', IN_BLOCKS, []),
    'the seventh block is read too': (f'\n\n\n\n\n\n{AP_BLOCK}', IN_BLOCKS, []),
    'missing': (None, fault(f'{WIFI} is missing: {NOT_STORED}; {IT_CURE}'), []),
    'empty': ('', fault(f'{WIFI} is empty: {NOT_STORED}; {IT_CURE}'), []),
    'no first block': (AP_BLOCK, [], fault(
        f'wlanSecType_2g stands in line 3 of {WIFI}, out of step, for kelm looks into the second '
        f'block: {OPEN}; {PART}')
        + fault(f'apBssEnabledApMode_2g stands in line 1 of {WIFI}, out of step, for kelm looks '
                f'into the second block: new settings would switch its access point off; {PART}')),
    'one blank line too many': (f'x=1\n\n\n{AP_BLOCK}', [], fault(
        f'wlanSecType_2g stands in line 6 of {WIFI}, out of step, for kelm looks into the second '
        f'block: {OPEN}; {PART}')
        + fault(f'apBssEnabledApMode_2g stands in line 4 of {WIFI}, out of step, for kelm looks '
                f'into the second block: new settings would switch its access point off; {PART}')),
    'a line that is only a piece of a long one': (
        'x=' + 'y' * 2045 + f'\n{AP_BLOCK}', fault(
            f'line 1 of {WIFI} is longer than 2046 characters: kelm reads it in pieces, each as a '
            'line of its own; shorten it'), []),
    'no security': (f'\n{AP_BLOCK.replace("wlanSecType_2g=1", "")}wlanSecType_2g=1\n', [], fault(
        f'wlanSecType_2g stands in line 6 of {WIFI}, out of step, for kelm looks into the second '
        f'block: {OPEN}; {PART}')),
    'no line of the security': (f'\n{AP_BLOCK.replace("wlanSecType_2g", "x")}', [], fault(
        f'{WIFI} has no line "wlanSecType_2g=": {OPEN}; add it to the second block')),
    'security in words': (f'\n{AP_BLOCK.replace("2g=1", "2g=wpa2")}', [], fault(
        f'"wlanSecType_2g=wpa2" in {WIFI} counts as 0; write 0 for open, 1 for secured')),
    'security of many bits': (f'\n{AP_BLOCK.replace("2g=1", "2g=256")}', IN_BLOCKS, []),
    'twice': (f'\n{AP_BLOCK}\n\n\n\n\nwlanSecType_2g=0\n', [], warning(
        f'wlanSecType_2g counts 2 times in {WIFI}, for the blocks repeat every five: line 11 wins; '
        'leave the others out')),
    'switched off': (f'\n{AP_BLOCK.replace("ApMode_2g=on", "ApMode_2g=off")}', [], warning(
        f'apBssEnabledApMode_2g is not on in {WIFI}: new settings would switch its access point '
        f'off; switch it on, or leave the band out of {WPS}')),
    'no switch': (f'\n{AP_BLOCK.replace("apBssEnabledApMode_2g", "x")}', [], warning(
        f'{WIFI} has no line "apBssEnabledApMode_2g=": new settings would switch its access point '
        'off; add it to the second block')),
    'a number for a word': (f'\n{AP_BLOCK.replace("ApMode_2g=on", "ApMode_2g=1")}', [], warning(
        f'"apBssEnabledApMode_2g=1" in {WIFI} counts as off; write on or off')
        + warning(f'apBssEnabledApMode_2g is not on in {WIFI}: new settings would switch its '
                  f'access point off; switch it on, or leave the band out of {WPS}')),
    'only': (f'\n{AP_BLOCK.replace("ApMode_2g=on", "ApMode_2g=only")}', [], warning(
        f'"apBssEnabledApMode_2g=only" in {WIFI} counts as on; write on or off')),
    'the last line is cut': (f'\n{AP_BLOCK}apBssEnabled_2g=on', fault(
        f'the last line of {WIFI} has no line feed at its end, so kelm takes its last character '
        f'away: "apBssEnabled_2g=on" counts as "apBssEnabled_2g=o"; {END}'), []),
    'a band that is none': (f'\n{AP_BLOCK}wlanSecType_2G=1\n', warning(
        f'line 6 of {WIFI} begins with "wlanSecType_2G", which is no key; mind blanks and '
        'capitals'), []),
}


@pytest.mark.parametrize('row', AP_WIFI)
def test_wifi_conf_of_an_access_point(maker, row):
    text, of_file, of_band = AP_WIFI[row]
    put(maker, WIFI, text)
    found = examine(maker, '--face maker').findings
    assert [(one.result, one.text) for one in found
            if (one.check, one.band) == ('settings-wifi', '')] == of_file
    assert [(one.result, one.text) for one in found
            if (one.check, one.band) == ('settings-wifi', '2.4 GHz')] == of_band


STATIONS = 'apBssEnabled_2g=on\napBssEnabled_5g=on\n\nstaBssEnabled_2g=on\nstaBssEnabled_5g=on\n'
LOST = 'what its station learns is not stored'
REPEATER_WIFI = {
    'ok': (f'\n{STATIONS}', IN_BLOCKS, []),
    'no access points': (f'\n\n{STATIONS[STATIONS.index("sta"):]}', IN_BLOCKS, []),
    'an access point is off': (f'\n{STATIONS.replace("ed_2g=on", "ed_2g=off", 1)}', IN_BLOCKS, []),
    'no station': (f'\n{STATIONS.replace("staBssEnabled_2g", "x")}', [], fault(
        f'{WIFI} has no line "staBssEnabled_2g=": {LOST}; add it to the third block')),
    'a station is off': (
        f'\n{STATIONS.replace("staBssEnabled_2g=on", "staBssEnabled_2g=off")}', [], fault(
            f'staBssEnabled_2g is not on in {WIFI}: {LOST}; switch it on, or leave the band out of '
            f'{WPS}')),
    'in the block of the access points': (
        f'\n{STATIONS.replace(chr(10) * 2, chr(10))}', [], fault(
            f'staBssEnabled_2g stands in line 4 of {WIFI}, out of step, for kelm looks into the '
            f'third block: {LOST}; {PART}')),
}


@pytest.mark.parametrize('row', REPEATER_WIFI)
def test_wifi_conf_of_a_repeater(maker, row):
    text, of_file, of_band = REPEATER_WIFI[row]
    maker.be_repeater()
    maker.write(WIFI, text)
    found = examine(maker).findings
    assert [(one.result, one.text) for one in found
            if (one.check, one.band) == ('settings-wifi', '')] == of_file
    assert [(one.result, one.text) for one in found
            if (one.check, one.band) == ('settings-wifi', '2.4 GHz')] == of_band


LINK_CURE = ('each press is refused; have /etc/init.d/wps write {"status": 1} with a link, 0 '
             'without, before it starts kelm')
LINKS = {
    'without a link': ('{"status": 0}', ok('the station has no link, and takes part')),
    'with a link': ('{"status": 1}', ok(
        'the station has a link; it takes part where all stations have one')),
    'in the making': ('{"status": 2}', ok('the station has no link, and takes part')),
    'missing': (None, fault(f'{LINK} is missing: {LINK_CURE}')),
    'no JSON': ('up', fault(f'{LINK} is no JSON: {LINK_CURE}')),
    'no number': ('{"status": "1"}', warning(
        f'{LINK} has no number "status": it counts as 0, no link; write {{"status": 0}} or '
        '{"status": 1}')),
}


@pytest.mark.parametrize('row', LINKS)
def test_the_link_of_a_station(maker, row):
    maker.be_repeater()
    put(maker, LINK, LINKS[row][0])
    assert told(maker, 'settings-link', '2.4 GHz') == LINKS[row][1]


# A file that the daemon would not use counts as missing. What stands there, in the router's shell.
PLANTED = {
    "a stranger's": ('chown 1000 {0}', 'belongs to user 1000, so it is not used'),
    'a hard link': ('ln {0} /tmp/other', 'has a second name (a hard link), so it is not used'),
    'a FIFO': ('rm {0}; mkfifo {0}', 'is a FIFO and no file'),
    'a folder': ('rm {0}; mkdir {0}', 'is a folder and no file'),
    'a device': ('rm {0}; mknod {0} c 1 5', 'is a device and no file'),
    'a link to nothing': ('rm {0}; ln -s /tmp/nothing {0}', 'is a link to nothing'),
    'a circle': ('rm {0}; ln -s {0} {0}', 'is a link that leads to no end'),
    "a stranger's link": ('mv {0} /tmp/x; ln -s x {0}; chown -h 1000 {0}',
                          'belongs to user 1000, so it is not used'),
    "a link to a stranger's": ('mv {0} /tmp/x; ln -s x {0}; chown 1000 /tmp/x',
                               'belongs to user 1000, so it is not used'),
    'a link to a FIFO': ('mkfifo /tmp/x; ln -sf /tmp/x {0}', 'is a FIFO and no file'),
}
CONSEQUENCES = {MODE: f'{NO_START}; {MODE_CURE}', BANDS: f'{NO_START}; {BANDS_CURE}',
                WPS: f'{WPS_OFF}; {IT_CURE}', WIFI: f'{NOT_STORED}; {IT_CURE}'}


def do(router, script):
    """Root's part alone can be done by root alone."""
    result = router.run(script)
    if result.status != 0 and ('not permitted' in result.err or 'Invalid' in result.err):
        pytest.skip('only root can give a file away')
    assert result.status == 0, result


@pytest.mark.parametrize('path', CONSEQUENCES)
@pytest.mark.parametrize('row', PLANTED)
def test_what_is_planted_is_told_and_never_waited_for(maker, row, path):
    script, why = PLANTED[row]
    do(maker, script.format(path))
    assert told(maker, CHECKS[path], '', '--face maker') == fault(
        f'{path} {why}: {CONSEQUENCES[path]}')


def test_a_link_of_roots_is_followed(maker):
    maker.run(f'mkdir /etc/kelm; mv {WPS} /etc/kelm/wps; ln -s ../etc/kelm/wps {WPS}')
    assert told(maker, 'settings-wps') == ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz')


def test_a_file_of_hostapds_user_is_used(maker):
    do(maker, f'chown 101 /var/run/hostapd /var/run/hostapd/wlan1 {WPS}')
    maker.run('chmod 755 /var/run /tmp/run')
    assert told(maker, 'settings-wps') == ok(f'{WPS} has these bands in WPS: 2.4 GHz, 5 GHz')
    maker.run('chmod 777 /tmp/run')
    assert told(maker, 'settings-wps') == fault(
        f'{WPS} belongs to user 101, so it is not used: {CONSEQUENCES[WPS]}')


def test_what_never_ends_is_ended(maker):
    """In the time given, with nothing left of it."""
    before = time.monotonic()
    result = maker.run('. /usr/lib/kelm/doctor/looking.sh; said=$(echo in | limited 1 sh -c '
                       "'cat; exec sleep 1000'); echo \"$? $said\"")
    assert (result.out, result.err) == ('137 in\n', '')
    assert 1 <= time.monotonic() - before < 10
    assert [words for _, words in maker.processes() if 'sleep' in words] == []


@pytest.mark.parametrize('path', CONSEQUENCES)
def test_a_file_that_others_may_write_to_is_used_and_told(maker, path):
    os.chmod(maker.at(path), 0o622)
    assert told(maker, CHECKS[path])[0] == (
        'warning', f'others than root may write to {path}; take that right away: chmod go-w {path}')


HOSTILE = ['\x1b[31m', '$(reboot)', '`reboot`', "'", '"', '\\', '*', '-n', 'Elm\u202eHouse',
           'caf\udce9', '%s%n', ';reboot']


@pytest.mark.parametrize('value', HOSTILE)
def test_a_hostile_value_stays_a_text(maker, value):
    maker.write(WPS, f'enabled={value}\napWpsAvailable={value}\npinEnabled={value}\n{value}=1\n',
                0o600)
    maker.write(WIFI, f'x\n\nwlanSecType_2g={value}\napBssEnabledApMode_2g={value}\n')
    maker.write(MODE, '{"mode": 1}')
    lines = maker.run('kelm-doctor').out.splitlines()
    assert [line for line in lines if line[:3] not in ('ok ', 'war', 'fau')] == []
    assert [line for line in lines if set(line) & set('\x1b\u202e')] == []
    texts = [one.text for one in examine(maker).findings]
    shown = value.replace('\udce9', '\ufffd')
    assert f'"enabled={shown}" in {WPS} counts as 0: {SWITCHED_OFF}; write enabled=1' in texts


def test_on_stock_the_service_writes_them(stock):
    stock.remove(WPS)
    assert told(stock, 'settings-wps', '', '--face stock') == fault(
        f'{WPS} is missing: {WPS_OFF}; the service writes it: service wps start')


def test_on_stock_none_are_there_while_it_is_off(stock):
    stock.uci('set', 'kelm.main.enabled=0')
    stock.run('rm /tmp/*.conf /tmp/device*')
    found = [one for one in examine(stock, '--face stock').findings
             if one.check.startswith('settings')]
    assert [(one.check, one.result, one.text) for one in found] == [
        ('settings-mode', 'ok', 'kelm is switched off, so there are no settings files yet')]
