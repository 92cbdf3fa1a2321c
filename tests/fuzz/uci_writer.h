// SPDX-License-Identifier: ISC
// Statements of a configuration file: chosen from an input, played on strings, written in many
// spellings.
#pragma once

#include <string>
#include <vector>

#include "tests/fuzz/fuzz.h"

namespace kelm_fuzz {

struct uci_option_text {
    std::string name;
    bool list;
    std::vector<std::string> values;
    bool operator==(const uci_option_text &other) const;
};

struct uci_section_text {
    std::string type;
    std::string name;
    bool anonymous;
    std::vector<uci_option_text> options;
    bool operator==(const uci_section_text &other) const;
};

// "config NAME VALUE", "option NAME VALUE" or "list NAME VALUE"; of a section NAME is the type.
struct uci_statement {
    enum kind { CONFIG, OPTION, LIST } kind;
    std::string name;
    std::string value;
};

// At most 64 statements, the first one a section.
std::vector<uci_statement> choose_statements(input &in);

// What a reader has to find; false when a section comes again with another type.
bool play_statements(const std::vector<uci_statement> &statements,
                     std::vector<uci_section_text> *sections);

// Any mixture of quotes, escapes, blanks, comments and line ends that means the same.
std::string write_in_some_spelling(const std::vector<uci_statement> &statements, input &in);

// One statement a line, every word in single quotes.
std::string write_plainly(const std::vector<uci_section_text> &sections);

}  // namespace kelm_fuzz
