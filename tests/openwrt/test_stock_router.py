# SPDX-License-Identifier: ISC
"""The router that the other tests stand on."""


def test_the_shell_is_busybox_and_nothing_of_this_machine_is_there(stock):
    assert stock.run('echo "${0}"; readlink -f /bin/sh; command -v python3 bash dash').out == \
        'test\n/bin/busybox\n'


def test_calls_of_fakes_and_objects_are_noted_in_order(stock):
    stock.fake('hostapd_cli', 'echo OK')
    assert stock.run("hostapd_cli -i 'a b' ping && ubus call network reload").out == 'OK\n'
    assert stock.commands() == ["hostapd_cli -i 'a b' ping", 'ubus network reload {}']


def test_the_log_tells_what_logger_sent(stock):
    stock.run("logger -t kelm -p daemon.notice \"it's 2.4 GHz\"")
    assert stock.log() == ["daemon.notice kelm: it's 2.4 GHz"]
