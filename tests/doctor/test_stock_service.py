# SPDX-License-Identifier: ISC
"""What kelm-doctor says where the stock service runs and can serve no band."""
from doctor import examine
from peers import answer

FILES = ('device_runtime.info', 'device.info', 'wps.conf', 'wifi.conf')


def test_the_reason_of_the_service_stands_for_the_files_that_it_did_not_write(stock):
    for name in FILES:
        stock.remove(f'/tmp/{name}')
    for number in (0, 1):
        stock.uci('set', f'wireless.default_radio{number}.disabled=1')
    assert stock.run('/usr/libexec/kelm/prepare').status == 1
    faults = [(one.check, one.text) for one in examine(stock).findings if one.result == 'fault']
    assert faults[0] == (
        'settings-mode', 'the service is not ready: 2.4 GHz: the network is switched off; '
        '5 GHz: the network is switched off; mend that, and it goes on by itself')
    assert {check for check, _ in faults} == {'settings-mode', 'interface'}


def test_without_such_a_reason_a_missing_file_is_told(stock):
    for name in stock.interfaces.values():
        answer(stock, 'hostapd', name, 'raw', 'OK\n')
    assert stock.run('/usr/libexec/kelm/prepare').status == 0
    stock.remove('/tmp/wps.conf')
    # Nobody starts the next daemon here, when prepare has ended the one with other settings.
    assert [one.check for one in examine(stock).findings if one.result == 'fault'] == [
        'settings-wps', 'daemon']
