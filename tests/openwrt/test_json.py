# SPDX-License-Identifier: ISC
"""The stand-ins for jshn and jsonfilter."""
import json

import pytest

from hostile import JSON_VALUES

JSHN = '. /usr/share/libubox/jshn.sh\n'
RADIOS = json.dumps({
    'radio0': {'up': True, 'config': {'band': '2g', 'channel': 1}, 'interfaces': [
        {'section': 'guest', 'ifname': 'phy0-ap1', 'config': {'mode': 'ap', 'ssid': "it's"}},
        {'section': 'wwan', 'ifname': 'phy0-sta0', 'config': {'mode': 'sta'}},
        {'section': 'main', 'config': {'mode': 'ap'}}]},
    'radio1': {'up': False, 'config': {'band': '5g', 'channel': 36}, 'interfaces': []}})


@pytest.mark.parametrize('value', JSON_VALUES.values(), ids=JSON_VALUES)
def test_a_value_goes_through_json_and_back(stock, value):
    result = stock.run(f'{JSHN}json_init; json_add_string value "$1"; json_add_array list\n'
                       'json_add_string "" "$1"; json_close_array; text=$(json_dump)\n'
                       'printf "%s" "$text" > /tmp/json; json_init; json_load "$text"\n'
                       'json_get_var back value; printf "%s|" "$back"\n'
                       'json_select list; json_get_var back 1; printf "%s|" "$back"\n'
                       'json_load_file /tmp/json; json_get_var back value; printf "%s|" "$back"',
                       value)
    assert result == (0, f'{value}|' * 3, '')
    assert json.loads(stock.read('/tmp/json')) == {'value': value, 'list': [value]}


@pytest.mark.parametrize('value', JSON_VALUES.values(), ids=JSON_VALUES)
def test_a_value_comes_out_of_jsonfilter(stock, value):
    text = json.dumps({'value': value, 'two': [value, 'x']})
    assert stock.run('jsonfilter -s "$1" -e "@.value"', text) == (0, f'{value}\n', '')
    assert stock.run('eval "$(jsonfilter -s "$1" -e "V=@.value" -e "W=@.two[*]")"\n'
                     'printf "%s|%s|" "$V" "$W"', text) == (0, f'{value}|{value} x|', '')


@pytest.mark.parametrize('key', ['a-b', 'a b', "it's", 'é', '$x', '1st'])
def test_a_key_is_munged_for_the_shell_and_kept_in_the_text(stock, key):
    result = stock.run(f'{JSHN}json_load "$1"; json_get_keys keys; echo "$keys"\n'
                       'json_get_var v "$2"; echo "$v"; json_dump', json.dumps({key: 'x'}), key)
    keys, value, text = result.out.splitlines()
    assert all(c.isalnum() and c.isascii() or c == '_' for c in keys) and value == 'x'
    assert json.loads(text) == {key: 'x'}


def jshn(stock, script, text='{"a":"x","n":null,"yes":true,"no":false,"i":-7,"d":1.5,'
         '"o":{"k":"v w","e":""},"l":["one two","three"],"empty":[]}'):
    return stock.run(f'{JSHN}json_load "$1"\n{script}', text)


MISSING = "WARNING: Variable '{}' does not exist or is not an array/object\n"


@pytest.mark.parametrize('script, out, err', [
    ('json_get_var v nothing; echo "$? <$v>"', '1 <>\n', ''),
    ('v=old; json_get_var v nothing; echo "$? <$v>"', '1 <>\n', ''),
    ('json_get_var v nothing else; echo "$? <$v>"', '0 <else>\n', ''),
    ('json_get_var v n; echo "$? <$v>"', '0 <>\n', ''),
    ('json_get_var v yes; json_get_var w no; echo "$v$w"', '10\n', ''),
    ('json_get_vars a i:3 z:9; echo "$a$i$z"', 'x-79\n', ''),
    ('json_select nothing; echo $?; json_get_var v a; echo "$v"', '1\nx\n',
     MISSING.format('nothing')),
    ('json_select a; echo $?', '1\n', MISSING.format('a')),
    ('json_select o; json_get_var v k; json_select ..; json_get_var w a; echo "$v $w"',
     'v w x\n', ''),
    ('json_select l; json_get_var v 1; json_get_var w 0; echo "$? $v"', '1 one two\n', ''),
    ('json_select o; json_select; json_get_var v a; echo "$v"', 'x\n', ''),
    ('json_select ..; json_get_var v a; echo "$v"', 'x\n', ''),
    ('json_get_values v l; echo "$v"', 'one two three\n', ''),
    ('json_select l; json_get_values v; echo "$v"', 'one two three\n', ''),
    ('json_get_values v nothing; echo "$? <$v>"', '1 <>\n', ''),
    ('json_get_keys v; echo "$v"', 'a n yes no i d o l empty\n', ''),
    ('json_get_keys v l; echo "$v"', '1 2\n', ''),
    ('json_get_keys v empty; echo "$? <$v>"', '0 <>\n', ''),
    ('for k in a n yes i d o l zz; do json_get_type v $k; echo "$v"; done',
     'string\nnull\nboolean\nint\ndouble\nobject\narray\n\n', ''),
    ('json_is_a o object; echo $?; json_is_a o array; echo $?', '0\n1\n', ''),
    ('f() { echo "$1|$2|$3"; }; json_for_each_item f l x; json_for_each_item f o x;'
     ' json_for_each_item f a x', 'one two|1|x\nthree|2|x\nv w|k|x\n|e|x\nx||x\n', ''),
    ('json_init; json_get_var v a; echo "$? <$v>"', '1 <>\n', ''),
    ('json_set_namespace mine old; json_init; json_add_int z 1; json_set_namespace "$old";'
     ' json_get_var v a; echo "$v"; json_set_namespace mine; json_dump', 'x\n{ "z": 1 }\n', ''),
    ('json_add_string a new; json_add_string last y; json_get_keys k; json_get_var v a;'
     ' echo "$k $v"', 'a n yes no i d o l empty last new\n', ''),
])
def test_the_shell_library(stock, script, out, err):
    assert jshn(stock, script) == (0, out, err)


@pytest.mark.parametrize('text', ['', 'garbage', '{"a":', '[1]', '"x"', '{"a":1'])
def test_what_cannot_be_parsed_is_told_and_returns_0(stock, text):
    result = jshn(stock, 'json_load "$1"; echo $?; json_load_file /nothing; echo $?', text)
    assert result == (0, '0\n0\n', 'Failed to parse message data\n' * 3)


def test_an_object_is_written_as_it_is_built(stock):
    result = stock.run(f"""{JSHN}json_init
json_add_object o; json_add_boolean t 1; json_add_boolean f 0; json_add_boolean word true
json_add_array l; json_add_int "" 5; json_add_object; json_add_null n; json_close_object
json_close_array; json_close_object; json_add_double d 0.5; json_dump; json_dump -i""")
    wanted = {'o': {'t': True, 'f': False, 'word': False, 'l': [5, {'n': None}]}, 'd': 0.5}
    lines = result.out.splitlines()
    assert json.loads(lines[0]) == json.loads(''.join(lines[1:])) == wanted
    assert lines[0].startswith('{ "o": { "t": true,') and len(lines) > 5


@pytest.mark.parametrize('expression, out', [
    ("@[@.config.band='2g'].interfaces[@.config.mode='ap'].ifname", 'phy0-ap1\n'),
    ("@[@.config.band='2g'].interfaces[@.config.mode='ap'].section", 'guest\nmain\n'),
    ("@[@.config.band='2g'].interfaces[@.config.mode='sta'].ifname", 'phy0-sta0\n'),
    ('@.*.config.band', '2g\n5g\n'),
    ('@.radio0.interfaces[0].section', 'guest\n'),
    ('@.radio0.interfaces[-1].section', 'main\n'),
    ('$.radio0.interfaces[*].section', 'guest\nwwan\nmain\n'),
    ("@['radio1'].config.channel", '36\n'),
    ('@..section', 'guest\nwwan\nmain\n'),
    ('@.radio0.up', 'true\n'),
    ('@[@.up=false].config', '{ "band": "5g", "channel": 36 }\n'),
    ('@[@.config.channel>1].config.band', '5g\n'),
    ("@[!@.nothing && @.config.band!='2g'].config.band", '5g\n'),
    ("@.radio0.interfaces[@.ifname && @.config.mode='ap'].section", 'guest\n'),
    ('@.radio0.interfaces[@.config.ssid="it\'s"].section', 'guest\n'),
    ('@.radio1.interfaces', '[ ]\n'),
])
def test_an_expression_finds(stock, expression, out):
    assert stock.run('jsonfilter -s "$1" -e "$2"', RADIOS, expression) == (0, out, '')


@pytest.mark.parametrize('words, status, out', [
    ("-e '@.nothing'", 1, ''),
    ("-e '@.radio1.interfaces[0]'", 1, ''),
    ("-e '@.radio0.interfaces[7]'", 1, ''),
    ("-e '@.radio0.up' -e '@.nothing'", 1, 'true\n'),
    ("-e 'V=@.nothing'", 1, ''),
    ("-e '@.radio0.up.more'", 1, ''),
    ("-l 1 -e '@..section'", 0, 'guest\n'),
    ("-t '@.radio0.up' -t '@.radio0'", 0, 'boolean\nobject\n'),
    ("-F , -e 'V=@..section'", 0, "export V='guest','wwan','main'; "),
    ("-e 'A=@.radio0.config.band' -e 'B=@.radio1.config.band'", 0,
     "export A='2g'; export B='5g'; "),
    ("-q -e '@.a['", 127, ''),
    ("-q -e 'radio0'", 127, ''),
])
def test_status_and_output(stock, words, status, out):
    assert stock.run(f'jsonfilter -s "$1" {words}', RADIOS) == (status, out, '')


@pytest.mark.parametrize('text', ['', '{', 'garbage', '{"a":1'])
def test_text_that_is_no_json_is_126(stock, text):
    result = stock.run('jsonfilter -e "@" < /tmp/in; echo $?; jsonfilter -q -i /tmp/in -e "@"'
                       if stock.write('/tmp/in', text) is None else '')
    assert result == (126, '126\n', 'Failed to parse json data\n')
