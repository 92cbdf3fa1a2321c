# SPDX-License-Identifier: ISC
"""The examples of docs/openwrt.md, played."""
import json
import re

import pytest

from stock import SOURCE
from wifi import put_access_point, put_wifi

UBUS = '/usr/libexec/kelm/bin/ubus'
START = '{"action":1,"2g_status":11,"5g_status":11,"5g2_status":0}'
ENDS = ('{"action":2,"2g_status":12,"5g_status":12,"5g2_status":0}',
        '{"action":2,"2g_status":2,"5g_status":4,"5g2_status":0}')
INFO = ('{ "wps_action": 2, "wl0_wps_status": "success", "wl0_wps_sta_mac": "02:00:00:00:07:00", '
        '"wl1_wps_status": "ok", "wl1_wps_sta_mac": "" }')


# A function of OpenWrt's shell for people, which no script has.
SERVICE = 'service() { "/etc/init.d/$1" "$2"; }\n'


def example(language, name):
    with open(f'{SOURCE}/docs/openwrt.md', encoding='utf-8') as page:
        return re.search(rf'^```{language} {name}\n(.*?)^```$', page.read(), re.M | re.S)[1]


@pytest.fixture(name='router')
def make_router(stock):
    put_wifi(stock)
    for number in (0, 1):
        put_access_point(stock, f'phy{number}-ap0')
    stock.bus()
    return stock


def test_setting_it_up(router):
    router.procd()
    result = router.run(SERVICE + example('sh', 'set-up'))
    assert (result.status, result.out) == (0, example('text', 'set-up-output'))
    for number in (0, 1):
        assert router.uci('get', f'wireless.default_radio{number}.wps_pushbutton') == '1'


def test_the_status_after_a_device_has_joined(router):
    # The daemon is not started: its part is played here.
    router.run('service() { /usr/libexec/kelm/prepare; }\n' + example('sh', 'set-up'))
    for name, result, messages in (('ok', '-1', (START,)), ('success', '1', ENDS)):
        router.write('/tmp/kelm.info', INFO.replace('success', name))
        router.write('/tmp/wps_result', f'{result}\n')
        for message in messages:
            router.run(f'{UBUS} send wps "$1"; /usr/libexec/kelm/told', message)
    status, answer = router.ubus('kelm', 'status')
    expected = json.loads(example('json', 'status'))
    for time in ('started', 'ended'):
        assert isinstance(answer['attempt'][time], int)
        answer['attempt'][time] = expected['attempt'][time]
    assert (status, answer) == (0, expected)
