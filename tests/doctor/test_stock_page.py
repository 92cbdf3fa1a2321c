# SPDX-License-Identifier: ISC
"""The examples of docs/openwrt.md about kelm-doctor, played."""
import re

from stock import SOURCE, two_bands


def example(language, name):
    with open(f'{SOURCE}/docs/openwrt.md', encoding='utf-8') as page:
        return re.search(rf'^```{language} {name}\n(.*?)^```$', page.read(), re.M | re.S)[1]


def test_what_is_not_well(stock):
    wireless = two_bands()
    wireless['radio1'].update(up=False, retry_setup_failed=True)
    stock.set_wireless(wireless)
    stock.remove('/var/run/hostapd/phy1-ap0')
    stock.remove('/var/run/hostapd-phy1.conf')
    stock.uci('add_list', 'kelm.main.ap=guest')
    assert stock.run(example('sh', 'doctor')).out == example('text', 'doctor-output')
