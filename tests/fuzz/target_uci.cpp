// SPDX-License-Identifier: ISC
// Way in: configuration files of uci, as the stand-in library reads them.
//
// An input is a file ('0' and the text), or statements ('1') that are written in many spellings.
// Properties: statements read back as the rules of the grammar, played here on strings, say;
// whatever could be read can be written plainly and reads the same; an error names a place in the
// file and leaves no package behind.
#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <sys/mman.h>
#include <unistd.h>

#include <uci.h>

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/uci_writer.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

using kelm_fuzz::input;
using kelm_fuzz::uci_option_text;
using kelm_fuzz::uci_section_text;
using sections = std::vector<uci_section_text>;

namespace {

const char *const REASONS[] = {
    "invalid command",
    "insufficient arguments",
    "too many arguments",
    "invalid character in name field",
    "invalid character in type field",
    "option/list command found before the first section",
    "section of different type overwrites prior section with same name",
    "EOF with unterminated '",
    "EOF with unterminated \"",
};

struct outcome {
    int code = -1;
    std::string error;
    sections read;
};

uci_option_text copy_option(const uci_option *option)
{
    uci_option_text copy = {option->e.name, option->type == UCI_TYPE_LIST, {}};
    if (!copy.list) {
        copy.values.push_back(option->v.string);
        return copy;
    }
    uci_element *item;
    uci_foreach_element(&option->v.list, item) copy.values.push_back(item->name);
    return copy;
}

sections copy_sections(uci_package *package)
{
    sections all;
    uci_element *e;
    uci_foreach_element(&package->sections, e)
    {
        const uci_section *section = uci_to_section(e);
        all.push_back({section->type, section->e.name, section->anonymous, {}});
        uci_element *o;
        uci_foreach_element(&section->options, o) all.back().options.push_back(
            copy_option(uci_to_option(o)));
    }
    return all;
}

// What is found by name is the first of that name.
void look_everything_up(uci_context *context, uci_package *package)
{
    uci_element *e;
    uci_foreach_element(&package->sections, e)
    {
        uci_section *found = uci_lookup_section(context, package, e->name);
        PROPERTY(found != nullptr && strcmp(found->e.name, e->name) == 0);
        uci_section *section = uci_to_section(e);
        uci_element *o;
        uci_foreach_element(&section->options, o)
        {
            const uci_option *option = uci_to_option(o);
            const bool text = option->type == UCI_TYPE_STRING;
            PROPERTY(uci_lookup_option(context, section, o->name) == option);
            PROPERTY(uci_lookup_option_string(context, section, o->name) ==
                     (text ? option->v.string : nullptr));
        }
    }
}

std::string error_of(uci_context *context)
{
    char *text = nullptr;
    uci_get_errorstr(context, &text, "x");
    PROPERTY(text != nullptr);
    const std::string copy = text;
    free(text);
    return copy;
}

// The file has no name, so that nothing but its text is different from one input to the next.
std::string file_with(const std::string &text)
{
    static const int fd = memfd_create("uci", MFD_CLOEXEC);
    PROPERTY(fd >= 0 && ftruncate(fd, 0) == 0);
    PROPERTY(pwrite(fd, text.data(), text.size(), 0) == static_cast<ssize_t>(text.size()));
    return "/proc/self/fd/" + std::to_string(fd);
}

outcome load(const std::string &text)
{
    const std::string path = file_with(text);
    uci_package untouched = {};
    uci_package *package = &untouched;
    uci_context *context = uci_alloc_context();
    PROPERTY(context != nullptr);
    outcome result;
    result.code = uci_load(context, path.c_str(), &package);
    if (result.code == UCI_OK) {
        result.read = copy_sections(package);
        look_everything_up(context, package);
        PROPERTY(uci_lookup_package(context, package->e.name) == package);
        PROPERTY(uci_load(context, path.c_str(), nullptr) == UCI_ERR_DUPLICATE);
    } else {
        PROPERTY(package == &untouched);
        result.error = error_of(context);
        PROPERTY(context->root.next == &context->root);
    }
    uci_free_context(context);
    return result;
}

// The lines as the reader sees them: a zero byte hides the rest of one.
std::vector<std::string> lines_of(const std::string &text)
{
    std::vector<std::string> lines;
    size_t at = 0;
    for (;;) {
        const size_t feed = std::min(text.find('\n', at), text.size());
        lines.push_back(std::string(text, at, feed - at).c_str());
        if (feed == text.size())
            return lines;
        at = feed + 1;
    }
}

bool is_known_reason(const std::string &error)
{
    return std::any_of(std::begin(REASONS), std::end(REASONS), [&](const char *reason) {
        return error.rfind(std::string("x: Parse error (") + reason + ") at line ", 0) == 0;
    });
}

void check_error(const std::string &text, const outcome &result)
{
    PROPERTY(result.code == UCI_ERR_PARSE);
    PROPERTY(is_known_reason(result.error));
    size_t line = 0;
    size_t byte = 0;
    const char *place = strstr(result.error.c_str(), ") at line ");
    PROPERTY(sscanf(place, ") at line %zu, byte %zu", &line, &byte) == 2);
    const std::vector<std::string> lines = lines_of(text);
    PROPERTY(line >= 1 && line <= lines.size());
    PROPERTY(byte <= lines[line - 1].size());
}

void check_file(const std::string &text)
{
    const outcome first = load(text);
    if (first.code != UCI_OK) {
        check_error(text, first);
        return;
    }
    PROPERTY(first.read.size() * strlen("c x") <= text.size());
    const outcome again = load(kelm_fuzz::write_plainly(first.read));
    PROPERTY(again.code == UCI_OK);
    PROPERTY(again.read == first.read);
}

void check_statements(input &in)
{
    const std::vector<kelm_fuzz::uci_statement> statements = kelm_fuzz::choose_statements(in);
    sections expected;
    const bool allowed = kelm_fuzz::play_statements(statements, &expected);
    const std::string text = kelm_fuzz::write_in_some_spelling(statements, in);
    const outcome result = load(text);
    if (!allowed) {
        check_error(text, result);
        return;
    }
    PROPERTY(result.code == UCI_OK);
    PROPERTY(result.read == expected);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    input in(data, size);
    if (in.choice(2) == 0)
        check_file(in.rest());
    else
        check_statements(in);
    return 0;
}
