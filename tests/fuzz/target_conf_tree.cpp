// SPDX-License-Identifier: ISC
// Way in: the configuration files of hostapd and wpa_supplicant, as a tree.
//
// Properties: the tree holds what the lines say, in their order; written out it reads back as the
// same tree; its listing names each item once, in order; a look-up finds the first item that begins
// with the key. Read as hostapd's, each line with a "=" that is no comment is an item with all that
// stands behind it.
#include <algorithm>
#include <cstring>
#include <vector>

#include "config/conf_tree.h"
#include "config/supplicant_credentials.h"
#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace {

using kelm::hapd_wpasupp_cfgitem;

constexpr const char *PATH = "/tmp/tree.conf";
constexpr const char *AGAIN = "/tmp/again.conf";
constexpr size_t PIECE = kelm::CFG_LINE_SIZE - 1;
constexpr size_t OPEN_BLOCKS_MAX = 10;

// One accepted line: a key and a value, or the begin or end of a block.
struct entry {
    enum { value, open, close } kind;
    std::string key;
    std::string text;
    bool operator==(const entry &other) const
    {
        return kind == other.kind && key == other.key && text == other.text;
    }
};
using entries = std::vector<entry>;

bool is_blank(char c)
{
    return c == ' ' || c == '\t';
}

std::string stripped(std::string text)
{
    while (!text.empty() && is_blank(text.back()))
        text.pop_back();
    const auto first = std::find_if_not(text.begin(), text.end(), is_blank);
    return std::string(first, text.end());
}

// The lines' meaning, by a second reading. A file whose blocks do not match has none.
bool read_lines(const std::string &text, entries *found)
{
    size_t depth = 0;
    for (size_t at = 0; at < text.size();) {
        const size_t feed = std::min(text.find('\n', at), text.size());
        const size_t length = std::min(feed - at, PIECE);
        const std::string line = stripped(text.substr(at, length));
        at += length + (length == feed - at && length < PIECE ? 1 : 0);
        const size_t equals = line.find('=');
        if (!line.empty() && line[0] == '}') {
            if (depth-- == 0)
                return false;
            found->push_back({entry::close, "", ""});
            continue;
        }
        if (line.empty() || line[0] == '#' || equals == std::string::npos)
            continue;
        const std::string key = stripped(line.substr(0, equals)).substr(0, kelm::CFG_KEY_SIZE - 1);
        std::string value = stripped(line.substr(equals + 1));
        if (!value.empty() && value[0] == '{') {
            // The eleventh is an item like any other; its brace closes the tenth.
            if (depth == OPEN_BLOCKS_MAX) {
                found->push_back({entry::value, key, ""});
                continue;
            }
            ++depth;
            found->push_back({entry::open, key, ""});
            continue;
        }
        if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
            value = value.substr(1, value.size() - 2);
        found->push_back({entry::value, key, value.substr(0, kelm::CFG_VALUE_SIZE - 1)});
    }
    return depth == 0;
}

// Walks a tree beside the entries: an item with children is a block, one without may be either.
size_t check_level(const hapd_wpasupp_cfgitem *item, const entries &expected, size_t at)
{
    for (; item != nullptr; item = item->next) {
        PROPERTY(at < expected.size());
        const entry &wanted = expected[at++];
        PROPERTY(wanted.kind != entry::close);
        PROPERTY(memchr(item->key, '\0', sizeof item->key) != nullptr);
        PROPERTY(memchr(item->value, '\0', sizeof item->value) != nullptr);
        PROPERTY(item->key == wanted.key);
        PROPERTY(item->value == wanted.text);
        PROPERTY(item->value_len == wanted.text.size());
        if (wanted.kind == entry::value) {
            PROPERTY(item->child == nullptr);
            continue;
        }
        at = check_level(item->child, expected, at);
        PROPERTY(at < expected.size() && expected[at].kind == entry::close);
        ++at;
    }
    return at;
}

std::string written_out(const entries &all)
{
    std::string text;
    for (const entry &one : all) {
        if (one.kind == entry::value)
            text += one.key + "=\"" + one.text + "\"\n";
        else
            text += one.kind == entry::open ? one.key + "={\n" : "}\n";
    }
    return text;
}

// What the listing shows of an item: its tabs, key and value, behind "kelm[function:line]: ".
std::string listed(const std::string &log)
{
    std::string text;
    for (size_t at = 0; at < log.size();) {
        const size_t end = std::min(log.find('\n', at), log.size());
        const size_t origin = log.find("]: ", at);
        PROPERTY(origin != std::string::npos && origin < end);
        text += log.substr(origin + 3, end - origin - 2);
        at = end + 1;
    }
    return text;
}

void check_listing(const hapd_wpasupp_cfgitem *tree, const entries &all)
{
    (void)kelm_fuzz::take_log();
    wps_hapd_wpasupp_config_dump(tree);
    std::string expected = "Dump config file\n";
    size_t depth = 0;
    for (const entry &one : all) {
        if (one.kind == entry::close) {
            --depth;
            continue;
        }
        expected += std::string(depth, '\t') + one.key + "=" + one.text + "\n";
        depth += one.kind == entry::open ? 1 : 0;
    }
    const std::string log = kelm_fuzz::take_log();
    if (log.size() < 60 * 1024)
        PROPERTY(listed(log) == expected);
}

void check_look_up(hapd_wpasupp_cfgitem *tree)
{
    for (const hapd_wpasupp_cfgitem *item = tree; item != nullptr; item = item->next) {
        const hapd_wpasupp_cfgitem *first = tree;
        while (strncmp(first->key, item->key, strlen(item->key)) != 0)
            first = first->next;
        PROPERTY(wps_hapd_wpasupp_config_get(tree, item->key) == first);
    }
}

// A key that was cut may end in a blank, which a reader would take for the one before the "=".
bool is_writable(const entries &all)
{
    return std::none_of(all.begin(), all.end(), [](const entry &one) {
        return !one.key.empty() && is_blank(one.key.back());
    });
}

// hostapd's file, by a second reading.
entries read_plain_lines(const std::string &text)
{
    entries found;
    for (size_t at = 0; at < text.size();) {
        const size_t feed = std::min(text.find('\n', at), text.size());
        const size_t length = std::min(feed - at, PIECE);
        const std::string line = text.substr(at, length);
        at += length + (length == feed - at && length < PIECE ? 1 : 0);
        const size_t equals = line.find('=');
        if (equals == std::string::npos || stripped(line)[0] == '#')
            continue;
        found.push_back({entry::value,
                         stripped(line.substr(0, equals)).substr(0, kelm::CFG_KEY_SIZE - 1),
                         line.substr(equals + 1).substr(0, kelm::CFG_VALUE_SIZE - 1)});
    }
    return found;
}

void check_plain_reading(const char *path, const entries &all)
{
    const kelm::unique_cfg_tree tree(kelm::kelm_parse_hostapd_config(path));
    PROPERTY((tree != nullptr) == !all.empty());
    PROPERTY(check_level(tree.get(), all, 0) == all.size());
    const kelm::unique_cfg_tree quiet(kelm::kelm_parse_hostapd_config(path, true));
    PROPERTY(check_level(quiet.get(), all, 0) == all.size());
}

void check_reading(const char *path, const entries &all, bool balanced)
{
    const kelm::unique_cfg_tree tree(kelm::wps_hapd_wpasupp_config_parse(path));
    PROPERTY((tree != nullptr) == (balanced && !all.empty()));
    if (!tree)
        return;
    PROPERTY(check_level(tree.get(), all, 0) == all.size());
    check_listing(tree.get(), all);
    check_look_up(tree.get());
    (void)kelm::kelm_find_learnt_network(tree.get());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const std::string text(reinterpret_cast<const char *>(data), size);
    kelm_fuzz::put_file(PATH, text);
    // A zero byte ends a line for the reader, but not where the line ends: only that it survives is
    // asked.
    if (text.find('\0') != std::string::npos) {
        const kelm::unique_cfg_tree tree(kelm::wps_hapd_wpasupp_config_parse(PATH));
        wps_hapd_wpasupp_config_dump(tree.get());
        const kelm::unique_cfg_tree plain(kelm::kelm_parse_hostapd_config(PATH));
        (void)kelm_fuzz::take_log();
        return 0;
    }
    entries all;
    const bool balanced = read_lines(text, &all);
    check_reading(PATH, all, balanced);
    check_plain_reading(PATH, read_plain_lines(text));
    if (balanced && is_writable(all)) {
        kelm_fuzz::put_file(AGAIN, written_out(all));
        check_reading(AGAIN, all, true);
    }
    (void)kelm_fuzz::take_log();
    return 0;
}
