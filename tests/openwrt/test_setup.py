# SPDX-License-Identifier: ISC
"""What setup puts into /etc/config/wireless, and that it takes back just that."""
import re

import pytest

import world as private_world

SETUP = '/usr/libexec/kelm/setup'
UUID = re.compile(r'[0-9a-f]{8}(-[0-9a-f]{4}){3}-[0-9a-f]{12}\Z')
OWN_UUID = '12345678-9abc-def0-1234-56789abcdef0'


@pytest.fixture
def router(stock):
    for section in ('default_radio0', 'default_radio1'):
        stock.uci('add_list', f'kelm.main.ap={section}')
    stock.uci('commit')
    return stock


def turn(router, verb, status=0):
    result = router.run(f'{SETUP} {verb}')
    assert (result.status, result.out, result.err) == (status, '', '')


def value(router, name):
    return router.run('uci -q get "$1"', name).out.rstrip('\n')


def reloads(router):
    return router.commands().count('ubus network reload {}')


def set_wireless(router, *words):
    router.uci(*words)
    router.uci('commit', 'wireless')


def bss_lines(router, section):
    return value(router, f'wireless.{section}.hostapd_bss_options')


def test_both_access_points_get_a_push_button_and_one_uuid(router):
    turn(router, 'on')
    for section in ('default_radio0', 'default_radio1'):
        assert value(router, f'wireless.{section}.wps_pushbutton') == '1'
    first = bss_lines(router, 'default_radio0')
    assert first.startswith('uuid=') and UUID.match(first[5:])
    assert bss_lines(router, 'default_radio1') == first
    assert reloads(router) == 1
    assert router.uci('changes') == ''


def test_a_second_time_changes_nothing(router):
    turn(router, 'on')
    wireless, kelm = router.read('/etc/config/wireless'), router.read('/etc/config/kelm')
    turn(router, 'on')
    assert (router.read('/etc/config/wireless'), router.read('/etc/config/kelm')) == \
        (wireless, kelm)
    assert reloads(router) == 1


# What the owner has in the file before: the words of uci.
OWNERS = {
    'nothing': [],
    'a button': [('set', 'wireless.default_radio0.wps_pushbutton=1')],
    'no button': [('set', 'wireless.default_radio0.wps_pushbutton=0')],
    'a uuid in a line': [
        ('add_list', f'wireless.default_radio1.hostapd_bss_options=uuid={OWN_UUID}')],
    'a uuid': [('set', f'wireless.default_radio1.uuid={OWN_UUID}')],
    'a button and a uuid everywhere': [
        ('set', 'wireless.default_radio0.wps_pushbutton=1'),
        ('set', 'wireless.default_radio1.wps_pushbutton=1'),
        ('set', f'wireless.default_radio0.uuid={OWN_UUID}'),
        ('set', f'wireless.default_radio1.uuid={OWN_UUID}')],
    'lines of his own': [
        ('add_list', "wireless.default_radio0.hostapd_bss_options=model_name=It's $HOME \"x\""),
        ('add_list', 'wireless.default_radio0.hostapd_bss_options=max_num_sta=5')],
    'odd names and keys': [
        ('set', "wireless.default_radio0.ssid=it's $(id) \"x\" `y` \\"),
        ('set', "wireless.default_radio0.key=$HOME ' \" Küche")],
    'another button': [('set', 'wireless.guest=wifi-iface'),
                       ('set', 'wireless.guest.device=radio0'),
                       ('set', 'wireless.guest.mode=ap'),
                       ('set', 'wireless.guest.wps_pushbutton=1')],
}


@pytest.mark.parametrize('case', OWNERS)
def test_off_gives_back_what_was_there(router, case):
    for words in OWNERS[case]:
        router.uci(*words)
    router.uci('commit')
    wireless, kelm = router.uci('export', 'wireless'), router.uci('export', 'kelm')
    turn(router, 'on')
    turn(router, 'on')
    turn(router, 'off')
    assert router.uci('export', 'wireless') == wireless
    assert router.uci('export', 'kelm') == kelm
    router.forget_commands()
    turn(router, 'off')
    assert reloads(router) == 0


def test_the_owners_uuid_is_everybodys(router):
    set_wireless(router, 'add_list', f'wireless.default_radio1.hostapd_bss_options=uuid={OWN_UUID}')
    turn(router, 'on')
    assert bss_lines(router, 'default_radio0') == f'uuid={OWN_UUID}'
    assert bss_lines(router, 'default_radio1') == f'uuid={OWN_UUID}'


def test_a_uuid_that_the_owner_adds_takes_the_place_of_ours(router):
    turn(router, 'on')
    set_wireless(router, 'add_list', f'wireless.default_radio0.hostapd_bss_options=uuid={OWN_UUID}')
    turn(router, 'on')
    assert bss_lines(router, 'default_radio0') == f'uuid={OWN_UUID}'
    assert bss_lines(router, 'default_radio1') == f'uuid={OWN_UUID}'
    turn(router, 'off')
    assert bss_lines(router, 'default_radio0') == f'uuid={OWN_UUID}'
    assert bss_lines(router, 'default_radio1') == ''


def test_a_uuid_that_is_none_goes_nowhere(router):
    set_wireless(router, 'set', "wireless.default_radio1.uuid=x'; touch /tmp/hacked; '")
    turn(router, 'on')
    assert UUID.match(bss_lines(router, 'default_radio0')[5:])
    assert bss_lines(router, 'default_radio1') == ''
    assert not router.exists('/tmp/hacked')


def test_nothing_is_set_where_the_owner_has_set_all(router):
    for words in OWNERS['a button and a uuid everywhere']:
        router.uci(*words)
    router.uci('commit')
    turn(router, 'on')
    assert reloads(router) == 0
    assert value(router, 'kelm.added') == ''


def test_what_the_owner_takes_over_stays_his(router):
    turn(router, 'on')
    set_wireless(router, 'set', 'wireless.default_radio0.wps_pushbutton=0')
    turn(router, 'on')
    turn(router, 'off')
    assert value(router, 'wireless.default_radio0.wps_pushbutton') == '0'
    assert value(router, 'wireless.default_radio1.wps_pushbutton') == ''


def test_a_section_that_is_not_chosen_any_more_is_given_back(router):
    turn(router, 'on')
    uuid = bss_lines(router, 'default_radio0')
    router.uci('del_list', 'kelm.main.ap=default_radio1')
    turn(router, 'on')
    assert value(router, 'wireless.default_radio1.wps_pushbutton') == ''
    assert bss_lines(router, 'default_radio1') == ''
    assert bss_lines(router, 'default_radio0') == uuid


def test_without_a_list_a_push_button_of_ours_chooses_nobody(router):
    wireless = router.uci('export', 'wireless')
    turn(router, 'on')
    router.uci('delete', 'kelm.main.ap')
    turn(router, 'on')
    assert router.uci('export', 'wireless') == wireless
    set_wireless(router, 'set', 'wireless.default_radio1.wps_pushbutton=1')
    turn(router, 'on')
    assert UUID.match(bss_lines(router, 'default_radio1')[5:])
    assert value(router, 'kelm.added.uuid_of') == 'default_radio1'


def test_a_repeater_takes_back_what_the_access_point_had(router):
    wireless = router.uci('export', 'wireless')
    turn(router, 'on')
    router.uci('set', 'kelm.main.mode=repeater')
    turn(router, 'on')
    assert router.uci('export', 'wireless') == wireless
    assert reloads(router) == 2


def test_guests_and_others_are_left_alone(router):
    router.uci('set', 'wireless.guest=wifi-iface')
    router.uci('set', 'wireless.guest.device=radio0')
    router.uci('set', 'wireless.guest.mode=ap')
    router.uci('commit')
    turn(router, 'on')
    assert value(router, 'wireless.guest.wps_pushbutton') == ''
    assert bss_lines(router, 'guest') == ''


def test_netifd_is_not_there(router):
    router.no_object('network.wireless')
    router.no_object('network')
    turn(router, 'on')
    assert value(router, 'wireless.default_radio0.wps_pushbutton') == '1'


def test_without_room_on_the_flash_nothing_is_told_as_done(router):
    router.uci('set', 'kelm.main.open=secure')
    open_network(router, ('delete', 'wireless.default_radio0.key'))
    place = router.at('/etc/config')
    before = router.read('/etc/config/wireless')
    private_world.mount(place, place, flags=private_world.MS_BIND)
    private_world.mount('none', place, flags=private_world.MS_BIND | private_world.MS_REMOUNT
                        | private_world.MS_RDONLY)
    turn(router, 'on', status=1)
    private_world.unmount(place)
    assert router.log() == [
        'daemon.notice kelm: the settings cannot be stored: is there room on the flash?']
    assert router.read('/etc/config/wireless') == before
    assert reloads(router) == 0


def open_network(router, *others):
    for words in (('set', 'wireless.default_radio0.encryption=none'), *others):
        router.uci(*words)
    router.uci('commit')


def test_an_open_network_stays_as_it_is(router):
    open_network(router, ('delete', 'wireless.default_radio0.key'))
    turn(router, 'on')
    assert value(router, 'wireless.default_radio0.encryption') == 'none'
    assert value(router, 'wireless.default_radio0.key') == ''
    assert value(router, 'wireless.default_radio0.wps_pushbutton') == ''
    assert bss_lines(router, 'default_radio0') == ''
    assert value(router, 'wireless.default_radio1.wps_pushbutton') == '1'


@pytest.mark.parametrize('encryption', ('none', 'open', 'owe'))
def test_a_network_that_the_owner_opens_loses_its_push_button(router, encryption):
    turn(router, 'on')
    set_wireless(router, 'set', f'wireless.default_radio0.encryption={encryption}')
    turn(router, 'on')
    assert value(router, 'wireless.default_radio0.wps_pushbutton') == ''
    assert bss_lines(router, 'default_radio0') == ''
    assert value(router, 'kelm.added.pushbutton') == 'default_radio1'


# What uci does in these is nothing, and it says so on the standard error alone.
REAL_UCI = """case " $* " in
*" batch "*) {batch} ;;
*" commit {file} "*) exit 1 ;;
*) exec /sbin/uci.real "$@" ;;
esac"""


@pytest.mark.parametrize('batch, file', (
    ('cat > /dev/null; echo uci: I/O error >&2', 'none'),
    ('exec /sbin/uci.real "$@"', 'kelm'),
    ('exec /sbin/uci.real "$@"', 'wireless')))
def test_a_flash_without_room_is_told_and_nothing_is_applied(router, batch, file):
    wireless = router.read('/etc/config/wireless')
    router.run('mv /sbin/uci /sbin/uci.real')
    router.fake('/sbin/uci', REAL_UCI.format(batch=batch, file=file))
    turn(router, 'on', status=1)
    assert router.log() == \
        ['daemon.notice kelm: the settings cannot be stored: is there room on the flash?']
    assert router.read('/etc/config/wireless') == wireless
    assert reloads(router) == 0
    noted = router.run("/sbin/uci.real -q get kelm.added.uuid_of").out
    assert noted == ('default_radio0 default_radio1\n' if file == 'wireless' else '')


def test_an_open_network_gets_a_key_and_keeps_it(router):
    router.uci('set', 'kelm.main.open=secure')
    open_network(router, ('delete', 'wireless.default_radio0.key'))
    turn(router, 'on')
    key = value(router, 'wireless.default_radio0.key')
    assert re.fullmatch('[a-hj-km-np-z2-9]{24}', key)
    assert value(router, 'wireless.default_radio0.encryption') == 'psk2'
    assert router.log() == ['daemon.notice kelm: the network of default_radio0 was open and has a '
                            'key now: uci get wireless.default_radio0.key']
    assert not any(key in line for line in router.commands())
    turn(router, 'on')
    turn(router, 'off')
    assert value(router, 'wireless.default_radio0.key') == key
    assert value(router, 'wireless.default_radio0.encryption') == 'psk2'


def test_what_could_not_be_taken_back_keeps_its_note(router):
    wireless = router.uci('export', 'wireless')
    turn(router, 'on')
    router.run('mv /sbin/uci /sbin/uci.real')
    router.fake('/sbin/uci', REAL_UCI.format(batch='exec /sbin/uci.real "$@"', file='wireless'))
    turn(router, 'off', status=1)
    router.run('mv /sbin/uci.real /sbin/uci')
    assert value(router, 'kelm.added.pushbutton') == 'default_radio0 default_radio1'
    turn(router, 'off')
    assert router.uci('export', 'wireless') == wireless
    assert value(router, 'kelm.added') == ''


def test_two_open_networks_have_two_keys(router):
    router.uci('set', 'kelm.main.open=secure')
    for section in ('default_radio0', 'default_radio1'):
        router.uci('set', f'wireless.{section}.encryption=none')
        router.uci('delete', f'wireless.{section}.key')
    router.uci('commit')
    turn(router, 'on')
    assert value(router, 'wireless.default_radio0.key') != \
        value(router, 'wireless.default_radio1.key')


@pytest.mark.parametrize('encryption', ('owe', 'psk2', 'sae', 'wpa2', 'sae-mixed'))
def test_only_an_open_network_gets_a_key(router, encryption):
    router.uci('set', 'kelm.main.open=secure')
    set_wireless(router, 'set', f'wireless.default_radio0.encryption={encryption}')
    turn(router, 'on')
    assert value(router, 'wireless.default_radio0.encryption') == encryption
    assert value(router, 'wireless.default_radio0.key') == 'seven green elms'


def test_changes_that_the_owner_has_not_committed_are_not_committed_for_him(router):
    router.uci('set', 'wireless.default_radio0.ssid=not yet')
    turn(router, 'on', status=1)
    assert router.uci('changes', 'wireless') == "wireless.default_radio0.ssid='not yet'"
    assert reloads(router) == 0
    assert router.log() == ['daemon.notice kelm: /etc/config/wireless has changes that nobody has '
                            'committed: nothing is set there']


def test_where_nothing_was_added_nothing_is_in_the_way(router):
    router.uci('set', 'wireless.default_radio0.ssid=not yet')
    turn(router, 'off')
    assert router.log() == []


def test_wrong_words(router):
    for words in ('', 'maybe'):
        result = router.run(f'{SETUP} {words}')
        assert (result.status, result.err) == (2, 'usage: setup on|off\n')
