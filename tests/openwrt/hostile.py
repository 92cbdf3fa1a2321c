# SPDX-License-Identifier: ISC
"""Values that a script may meet in settings and messages: whatever people typed."""

VALUES = {
    'plain': 'Elm House',
    'single quote': "it's",
    'only quotes': "'''",
    'double quote': 'say "elm"',
    'dollar': '$HOME ${IFS} $(reboot)',
    'back-ticks': '`reboot`',
    'backslash': 'a\\b\\n\\',
    'newline': 'two\nlines',
    'newline at the end': 'end\n\nx',
    'tab': 'a\tb',
    'spaces': '  two  blanks  ',
    'a word like an option': '-n',
    'glob': '* [a-z] ?',
    'operators': 'a;b&c|d>e#f',
    'equals': 'a=b=c',
    'UTF-8': 'ÉlmHäus 🌳',
    'not UTF-8': 'caf\udce9',
    '64 digits': '0123456789abcdef' * 4,
    'control byte': 'a\x01b',
}
# JSON is text: what is no UTF-8 cannot be in it.
JSON_VALUES = {name: value for name, value in VALUES.items() if name != 'not UTF-8'}
