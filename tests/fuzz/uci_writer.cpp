// SPDX-License-Identifier: ISC
// The grammar of configuration files from the writer's side.
#include "tests/fuzz/uci_writer.h"

#include <cctype>
#include <cstdio>
#include <cstring>

namespace kelm_fuzz {

namespace {

constexpr size_t MOST_STATEMENTS = 64;
// Few, so that they come again.
const char *const NAMES[] = {"a", "ssid", "key", "_9", "config", "option"};
const char *const TYPES[] = {"wifi-iface", "x", "a'b\"c", "#;\\"};
const char *const KEYWORDS[][2] = {{"config", "c"}, {"option", "o"}, {"list", "l"}};

// A text of any bytes but zero, which no line can hold.
std::string choose_value(input &in)
{
    std::string value = in.bytes(in.choice(16));
    for (char &byte : value) {
        if (byte == '\0')
            byte = '\n';
    }
    return value;
}

uci_statement choose_section(input &in)
{
    const unsigned name = in.choice(4);
    return {uci_statement::CONFIG, TYPES[in.choice(4)], name == 0 ? "" : NAMES[name]};
}

uci_section_text *find_section(std::vector<uci_section_text> *sections, const std::string &name)
{
    for (uci_section_text &section : *sections) {
        if (!name.empty() && section.name == name)
            return &section;
    }
    return nullptr;
}

std::string made_up_name(size_t ordinal, const std::string &type)
{
    unsigned hash = 5381;
    for (const char byte : type)
        hash = hash * 33 + static_cast<unsigned char>(byte);
    char name[32];
    snprintf(name, sizeof name, "cfg%02zx%04x", ordinal, hash & 0xffff);
    return name;
}

uci_option_text *option_of(uci_section_text *section, const std::string &name)
{
    for (uci_option_text &option : section->options) {
        if (option.name == name)
            return &option;
    }
    section->options.push_back({name, false, {}});
    return &section->options.back();
}

void play_value(uci_section_text *section, const uci_statement &statement)
{
    if (statement.kind == uci_statement::OPTION && statement.value.empty())
        return;
    uci_option_text *option = option_of(section, statement.name);
    option->list = statement.kind == uci_statement::LIST;
    if (!option->list)
        option->values.clear();
    option->values.push_back(statement.value);
}

// The position of the section that the statement opens, or -1.
int play_section(const uci_statement &statement, std::vector<uci_section_text> *sections)
{
    const uci_section_text *known = find_section(sections, statement.value);
    if (known != nullptr)
        return known->type == statement.name ? static_cast<int>(known - sections->data()) : -1;
    const bool anonymous = statement.value.empty();
    sections->push_back(
        {statement.name,
         anonymous ? made_up_name(sections->size() + 1, statement.name) : statement.value,
         anonymous,
         {}});
    return static_cast<int>(sections->size()) - 1;
}

// Bytes that mean something in bare text.
bool must_be_escaped(char byte)
{
    return isspace(static_cast<unsigned char>(byte)) || strchr("#;'\"\\", byte) != nullptr;
}

std::string single_quoted(const std::string &text)
{
    std::string out = "'";
    for (const char byte : text)
        out += byte == '\'' ? std::string("'\\''") : std::string(1, byte);
    return out + "'";
}

std::string double_quoted(const std::string &text, input &in)
{
    std::string out = "\"";
    for (const char byte : text) {
        const bool escape = byte == '"' || byte == '\\' || (byte != '\n' && in.choice(8) == 1);
        out += escape ? std::string("\\") + byte : std::string(1, byte);
    }
    return out + "\"";
}

// A line end cannot be escaped: together with the backslash it vanishes, which is used as noise.
std::string bare(const std::string &text, input &in)
{
    std::string out;
    for (const char byte : text) {
        if (in.choice(16) == 1)
            out += "\\\n";
        if (byte == '\n')
            out += "'\n'";
        else
            out += must_be_escaped(byte) ? std::string("\\") + byte : std::string(1, byte);
    }
    return out;
}

std::string spell_piece(const std::string &text, input &in)
{
    switch (in.choice(3)) {
    case 0:
        return single_quoted(text);
    case 1:
        return double_quoted(text, in);
    default:
        return bare(text, in);
    }
}

// In two pieces. Nothing at all would be no word, so an empty one has quotes.
std::string spell_word(const std::string &text, input &in)
{
    const size_t cut = text.empty() ? 0 : in.choice(static_cast<unsigned>(text.size()) + 1);
    const std::string word =
        spell_piece(text.substr(0, cut), in) + spell_piece(text.substr(cut), in);
    return text.empty() ? word + "''" : word;
}

std::string blanks(input &in)
{
    static const char *const KINDS[] = {" ", "\t", " \\\n ", "\t\r\v"};
    return KINDS[in.choice(4)];
}

// A ';' only behind a blank: directly behind a bare word it would hide the rest of the line.
std::string end_of_statement(input &in)
{
    static const char *const KINDS[] = {"\n",        "\r\n", " # it's a comment\n",
                                        "\n\n \t\n", " ; ",  "\n#\"\n"};
    return KINDS[in.choice(6)];
}

}  // namespace

bool uci_option_text::operator==(const uci_option_text &other) const
{
    return name == other.name && list == other.list && values == other.values;
}

bool uci_section_text::operator==(const uci_section_text &other) const
{
    return type == other.type && name == other.name && anonymous == other.anonymous &&
           options == other.options;
}

std::vector<uci_statement> choose_statements(input &in)
{
    std::vector<uci_statement> statements = {choose_section(in)};
    const size_t count = in.choice(MOST_STATEMENTS);
    while (statements.size() < count && !in.empty()) {
        const unsigned kind = in.choice(5);
        if (kind == 0)
            statements.push_back(choose_section(in));
        else
            statements.push_back({kind < 3 ? uci_statement::OPTION : uci_statement::LIST,
                                  NAMES[in.choice(6)], choose_value(in)});
    }
    return statements;
}

bool play_statements(const std::vector<uci_statement> &statements,
                     std::vector<uci_section_text> *sections)
{
    int open = -1;
    for (const uci_statement &statement : statements) {
        if (statement.kind == uci_statement::CONFIG)
            open = play_section(statement, sections);
        else
            play_value(&(*sections)[static_cast<size_t>(open)], statement);
        if (open < 0)
            return false;
    }
    return true;
}

std::string write_in_some_spelling(const std::vector<uci_statement> &statements, input &in)
{
    std::string text;
    for (const uci_statement &statement : statements) {
        text += KEYWORDS[statement.kind][in.choice(2)];
        text += in.choice(2) == 0 ? " " : "\t";
        text += spell_word(statement.name, in);
        if (!statement.value.empty() || in.choice(2) == 1)
            text += blanks(in) + spell_word(statement.value, in);
        text += end_of_statement(in);
    }
    return text;
}

std::string write_plainly(const std::vector<uci_section_text> &sections)
{
    std::string text;
    for (const uci_section_text &section : sections) {
        text += "config " + single_quoted(section.type);
        text += section.anonymous ? "\n" : " " + single_quoted(section.name) + "\n";
        for (const uci_option_text &option : section.options) {
            for (const std::string &value : option.values)
                text += (option.list ? "list " : "option ") + single_quoted(option.name) + " " +
                        single_quoted(value) + "\n";
        }
    }
    return text;
}

}  // namespace kelm_fuzz
