# SPDX-License-Identifier: ISC
"""Which commands a shell script calls, as far as they are written down as words."""
import re

# After these another command follows.
BEFORE_A_COMMAND = {'if', 'then', 'elif', 'else', 'while', 'until', 'do', '!', '{', 'exec', 'time'}
ASSIGNMENT = re.compile(r'\w+=')
HERE_DOCUMENT = re.compile(r'<<-? *["\']?(\w+)')


class _Reader:
    """Goes through a script once; in its way, a `$(` begins another script."""

    def __init__(self, text):
        self.text, self.at, self.found = text, 0, set()
        self.waiting = []  # ends of here-documents whose text begins at the next line

    def script(self, end=''):
        """Up to the end of the text, or behind an `end` that nothing here has opened."""
        word, is_command, is_file = '', True, False
        cases = []  # for each `case` around: whether its next word is a pattern
        while self.at < len(self.text):
            char = self.text[self.at]
            if char == '#' and not word:
                self.at = self.text.index('\n', self.at)
                continue
            if char not in ' \t\n;|&(){}<>' or (char in '{}' and word):
                word += self.piece()
                continue
            self.at += 1
            if char in '{}':
                word = char
            if word:
                is_command, is_file = self.word(word, is_command, is_file, cases)
                word = ''
            if char == ')' and end and not (cases and cases[-1]):
                return
            is_command = self.behind(char, cases, is_command)
            is_file = is_file or char in '<>'

    def behind(self, char, cases, is_command):
        """Behind a sign that ends a word: whether a command follows."""
        if char in '<>':
            self.redirection()
        elif char == ')' and cases and cases[-1]:
            cases[-1] = False
        elif char == '(':
            self.script(')')
        elif char == ';' and self.text[self.at] == ';':
            cases[-1] = True
        elif char == '\n':
            self.skip_here_documents()
        if char in '<>{} \t' or (char == '&' and self.text[self.at - 2] in '<>'):
            return is_command
        return True

    def word(self, word, is_command, is_file, cases):
        """Takes note of a word; returns whether a command and whether a file's name follows."""
        if is_file or (word.isdigit() and self.text[self.at - 1] in '<>'):
            return is_command, False
        if word == 'esac' and (is_command or cases[-1]):
            cases.pop()
            return False, False
        if cases and cases[-1] is None and word == 'in':
            cases[-1] = True
            return False, False
        if not is_command or (cases and cases[-1] is not False):
            return False, False
        if word == 'case':
            cases.append(None)
            return False, False
        if word in BEFORE_A_COMMAND or ASSIGNMENT.match(word):
            return True, False
        self.found.add(word)
        return False, False

    def piece(self):
        """The next part of a word: one character, or all that a sign begins.

        What is quoted or comes from a variable is a `?`.
        """
        text, start = self.text, self.at
        char = text[start]
        self.at += 1
        if char == '\\':
            self.at += 1
            return '?'
        if char == "'":
            self.at = text.index("'", self.at) + 1
            return '?'
        if char == '"':
            self.quoted('"')
            return '?' if '$' in text[start:self.at] else text[start + 1:self.at - 1] or '?'
        if char == '$':
            self.expansion()
            return '?'
        return char

    def quoted(self, end):
        while self.text[self.at] != end:
            if self.text[self.at] == '\\':
                self.at += 2
            elif self.text[self.at] == '$':
                self.at += 1
                self.expansion()
            elif self.text[self.at] == '"':
                self.at += 1
                self.quoted('"')
            elif self.text[self.at] == "'" and end == '}':
                self.at = self.text.index("'", self.at + 1) + 1
            else:
                self.at += 1
        self.at += 1

    def expansion(self):
        """Behind a dollar sign."""
        rest = self.text[self.at:]
        if rest.startswith('(('):
            self.at += 2
            self.arithmetic()
        elif rest.startswith('('):
            self.at += 1
            self.script(')')
        elif rest.startswith('{'):
            self.at += 1
            self.quoted('}')
        else:
            self.at += len(re.match(r'\w*|.', rest)[0]) or 1

    def arithmetic(self):
        """Up to the end of a `$((`; commands may stand in it."""
        depth = 2
        while depth:
            char = self.text[self.at]
            self.at += 1
            if char == '$':
                self.expansion()
            depth += {'(': 1, ')': -1}.get(char, 0)

    def redirection(self):
        start = self.at - 1
        document = HERE_DOCUMENT.match(self.text, start)
        if document:
            self.waiting.append(document[1])
        while self.text[self.at] in '<>-&':
            self.at += 1

    def skip_here_documents(self):
        """Commands in them count."""
        for end in self.waiting:
            stop = self.text.index(f'\n{end}\n', self.at - 1) + 1
            while self.at < stop:
                self.at += 1
                if self.text[self.at - 1] == '$':
                    self.expansion()
            self.at = stop + len(end)
        self.waiting = []


def commands(text):
    """The names of all commands in a script, the shell's own and its functions too. A name that is
    made at run time has a `?` in the place of what is not written down."""
    reader = _Reader(f'{text}\n')
    reader.script()
    return reader.found
