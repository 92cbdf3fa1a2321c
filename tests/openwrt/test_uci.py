# SPDX-License-Identifier: ISC
"""The stand-ins for uci and for the shell library of settings."""
import pytest

from hostile import VALUES

DEMO = """\

config thing 'one'
    option name 'a b'
    list item 'x'
    list item 'y z'

config thing
    option name 'second'

config other 'two'
    option on '1'

""".replace('    ', '\t')
FUNCTIONS = '. /lib/functions.sh\n'


@pytest.fixture(name='demo')
def router_with_settings(stock):
    stock.write('/etc/config/demo', DEMO)
    return stock


def get(stock, path):
    return stock.run('uci get "$1"', path)


@pytest.mark.parametrize('value', VALUES.values(), ids=VALUES)
def test_a_value_comes_back_as_it_was(demo, value):
    demo.uci('set', f'demo.one.name={value}')
    assert get(demo, 'demo.one.name') == (0, f'{value}\n', '')
    demo.uci('commit', 'demo')
    assert not demo.read('/tmp/.uci/demo')
    assert get(demo, 'demo.one.name') == (0, f'{value}\n', '')


@pytest.mark.parametrize('value', VALUES.values(), ids=VALUES)
def test_a_value_is_shown_as_a_shell_quotes_it(demo, value):
    demo.uci('set', f'demo.one.name={value}')
    quoted = value.replace("'", "'\\''")
    assert demo.uci('show', 'demo.one.name') == f"demo.one.name='{quoted}'"
    assert demo.uci('changes', 'demo') == f"demo.one.name='{quoted}'"
    assert demo.run('eval "$(uci show demo.one.name | sed s/demo.one.name/v/)"; printf "%s|" "$v"'
                    ).out == f'{value}|'


@pytest.mark.parametrize('value', VALUES.values(), ids=VALUES)
def test_a_value_comes_out_of_config_get(demo, value):
    demo.uci('set', f'demo.one.name={value}')
    demo.uci('add_list', f'demo.two.words={value}')
    demo.uci('add_list', 'demo.two.words=last')
    assert demo.run(f'{FUNCTIONS}config_load demo; config_get v one name; printf "%s|" "$v"\n'
                    'item() { printf "<%s>%s" "$1" "$2"; }; config_list_foreach two words item x'
                    ).out == f'{value}|<{value}>x<last>x'


def test_changes_are_seen_at_once_and_in_the_file_after_the_commit(demo):
    demo.uci('set', 'demo.one.name=new')
    assert demo.read('/etc/config/demo') == DEMO
    assert demo.uci('get', 'demo.one.name') == 'new'
    demo.uci('commit', 'demo')
    assert demo.read('/etc/config/demo') == DEMO.replace('a b', 'new')


def test_a_commit_without_changes_leaves_the_file(demo):
    demo.write('/etc/config/demo', '# mine\nconfig thing one\n')
    demo.uci('commit', 'demo')
    assert demo.read('/etc/config/demo') == '# mine\nconfig thing one\n'


def test_a_commit_keeps_the_mode_of_the_file(demo):
    demo.run('chmod 640 /etc/config/demo')
    demo.uci('set', 'demo.one.name=new')
    demo.uci('commit')
    assert demo.mode('/etc/config/demo') == 0o640


@pytest.mark.parametrize('path, text', [
    ('demo.one', 'thing'),
    ('demo.one.name', 'a b'),
    ('demo.one.item', 'x y z'),
    ('demo.@thing[0].name', 'a b'),
    ('demo.@thing[1].name', 'second'),
    ('demo.@thing[-1].name', 'second'),
    ('demo.@thing[-2]', 'thing'),
])
def test_get(demo, path, text):
    assert get(demo, path) == (0, f'{text}\n', '')


@pytest.mark.parametrize('words, message', [
    ('get demo.one.nothing', 'Entry not found'),
    ('get demo.nothing.name', 'Entry not found'),
    ('get nothing.one.name', 'Entry not found'),
    ('get demo.@thing[2].name', 'Entry not found'),
    ('get demo.@thing', 'Invalid argument'),
    ('get demo.one.na-me', 'Invalid argument'),
    ('delete demo.one.nothing', 'Entry not found'),
    ('delete demo.nothing', 'Entry not found'),
    ('set nothing.one=x', 'Entry not found'),
    ('set demo.nothing.name=x', 'Invalid argument'),
    ('set demo.one.name', 'Invalid argument'),
    ('show demo.nothing', 'Entry not found'),
    ('add nothing thing', 'Entry not found'),
])
def test_a_failure_is_1_and_told_unless_it_is_to_be_quiet(demo, words, message):
    assert demo.run(f'uci {words}') == (1, '', f'uci: {message}\n')
    assert demo.run(f'uci -q {words}') == (1, '', '')


@pytest.mark.parametrize('text', ["config thing 'open\n", 'option a b\n', 'nonsense\n'])
def test_a_broken_file_is_an_error(demo, text):
    demo.write('/etc/config/demo', text)
    result = get(demo, 'demo.one.name')
    assert result.status == 1 and result.err.startswith('uci: Parse error')


def test_an_empty_value_deletes_and_is_no_failure_where_there_is_nothing(demo):
    demo.uci('set', 'demo.one.name=')
    assert demo.uci('changes') == '-demo.one.name'
    assert get(demo, 'demo.one.name').status == 1
    demo.uci('set', 'demo.one.name=')
    demo.uci('set', 'demo.two=')
    assert get(demo, 'demo.two').status == 1


def test_add_prints_the_name_which_the_section_keeps(demo):
    name = demo.uci('add', 'demo', 'thing')
    assert name.startswith('cfg04') and len(name) == 9
    demo.uci('set', f'demo.{name}.name=third')
    assert demo.uci('get', 'demo.@thing[-1].name') == 'third'
    demo.uci('commit')
    assert demo.uci('get', f'demo.{name}.name') == 'third'
    assert demo.read('/etc/config/demo').endswith("config thing\n\toption name 'third'\n\n")


def test_lists_grow_and_shrink_by_their_items(demo):
    demo.uci('add_list', 'demo.one.item=z')
    demo.uci('del_list', 'demo.one.item=y z')
    assert demo.uci('show', 'demo.one.item') == "demo.one.item='x' 'z'"
    assert demo.uci('-d', '|', 'get', 'demo.one.item') == 'x|z'
    demo.uci('del_list', 'demo.one.item=x')
    demo.uci('del_list', 'demo.one.item=z')
    assert get(demo, 'demo.one.item').status == 1


def test_a_string_in_place_of_a_list_is_a_string(demo):
    demo.uci('set', 'demo.one.item=only')
    demo.uci('commit')
    assert "\toption item 'only'\n" in demo.read('/etc/config/demo')


def test_revert_forgets_what_is_below_a_place(demo):
    for change in ('demo.one.name=new', 'demo.two.on=0', 'demo.two.off=1'):
        demo.uci('set', change)
    demo.uci('revert', 'demo.two.on')
    assert demo.uci('changes') == "demo.one.name='new'\ndemo.two.off='1'"
    demo.uci('revert', 'demo')
    assert demo.uci('changes') == ''
    assert demo.uci('get', 'demo.one.name') == 'a b'


def test_batch_takes_quoted_words_and_its_status_tells_of_no_failure(demo):
    result = demo.run('uci batch', stdin="set demo.one.name='it'\\''s \"x\"'\nset demo.no.x=1\n"
                      'nonsense\nset demo.two.on="a $b"\n\ncommit demo\n')
    assert result == (0, '', 'uci: Invalid argument\nUnknown command\n')
    assert demo.run('uci -q batch', stdin='set demo.no.x=1\n') == (0, '', '')
    assert demo.uci('get', 'demo.one.name') == 'it\'s "x"'
    assert demo.uci('get', 'demo.two.on') == 'a $b'


def test_show_names_unnamed_sections_by_their_place(demo):
    assert demo.uci('show', 'demo').splitlines() == [
        'demo.one=thing', "demo.one.name='a b'", "demo.one.item='x' 'y z'",
        'demo.@thing[1]=thing', "demo.@thing[1].name='second'", 'demo.two=other', "demo.two.on='1'"]


def test_export_is_the_file_with_the_packages_name(demo):
    assert demo.uci('export', 'demo') + '\n' == f'package demo\n{DEMO}'


def shell(stock, text):
    return stock.run(f'{FUNCTIONS}{text}')


def test_config_foreach_goes_on_whatever_the_function_returns(demo):
    result = shell(demo, 'config_load demo; echo $?\n'
                   'each() { config_get name "$1" name none; echo "$1 $name $2"; return 1; }\n'
                   'config_foreach each thing x; echo $?; config_foreach each "" y')
    lines = result.out.splitlines()
    assert lines[0] == '0' and lines[1] == 'one a b x' and lines[3] == '0'
    assert lines[2].startswith('cfg02') and lines[2].endswith(' second x')
    assert lines[4] == 'one a b y' and lines[6] == 'two none y'


@pytest.mark.parametrize('text, out', [
    ('config_get v one nothing; echo "<$v>"', '<>\n'),
    ('config_get v one nothing else; echo "<$v>"', '<else>\n'),
    ('config_set one name ""; config_get v one name else; echo "<$v>"', '<else>\n'),
    ('v=kept; config_get v one na-me else; echo "<$v>"', '<kept>\n'),
    ('v=kept; config_get v o-ne name else; echo "<$v>"', '<kept>\n'),
    ('config_get one name', 'a b\n'),
    ('config_get v one item; echo "$v"', 'x y z\n'),
    ('config_get v one item_LENGTH; echo "$v"', '2\n'),
    ('config_get v one item_ITEM2; echo "$v"', 'y z\n'),
    ('config_get_bool v two on; echo "$v"', '1\n'),
    ('config_get_bool v two off 7; echo "$v"', '7\n'),
    ('config_set two on maybe; config_get_bool v two on 7; echo "$v"', '7\n'),
    ('config_set two on disabled; config_get_bool v two on 7; echo "$v"', '0\n'),
    ('config_set two on x; uci get demo.two.on', '1\n'),
    ('config_unset two on; config_get v two on none; echo "$v"', 'none\n'),
    ('append v a; append v b; append v c ,; echo "$v"', 'a b,c\n'),
    ('v="a bc"; list_contains v b; echo $?; list_contains v bc; echo $?', '1\n0\n'),
    ('config_load wireless; config_get v one name; echo "<$v>"', '<>\n'),
    ('CONFIG_APPEND=1; config_load wireless; config_get v one name; echo "<$v>"', '<a b>\n'),
    ('config_load nothing 2> /dev/null; echo $? "<$CONFIG_SECTIONS>"', '1 <>\n'),
    ('IPKG_INSTROOT=/x; config_load wireless; echo $?; config_get v radio0 band; echo "<$v>"',
     '0\n<>\n'),
    ('uci_get demo one name; echo $?', 'a b\n0\n'),
    ('uci_get demo one nothing else; echo $?', 'else\n1\n'),
    ('uci_get demo one nothing; echo $?', '1\n'),
    ('uci_set demo one name new; uci_get demo one name', 'new\n'),
    ('uci_add demo thing; uci_set demo "$CONFIG_SECTION" name new; uci get demo.@thing[-1].name',
     'new\n'),
    ('uci_add_list demo one item z; uci_remove demo two; uci changes',
     "demo.one.item+='z'\n-demo.two\n"),
    ('uci_set demo one name new; uci_commit demo; uci changes', ''),
    ('board_name; mkdir /tmp/sysinfo; echo elm > /tmp/sysinfo/board_name; board_name',
     'generic\nelm\n'),
])
def test_the_shell_library(demo, text, out):
    assert shell(demo, f'config_load demo\n{text}') == (0, out, '')
