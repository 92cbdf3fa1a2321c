// SPDX-License-Identifier: ISC
// Reader of hostapd and wpa_supplicant configuration files: a tree of keys, values and blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kelm {

constexpr size_t CFG_KEY_SIZE = 64;
constexpr size_t CFG_VALUE_SIZE = 256;
constexpr size_t CFG_LINE_SIZE = 323;  // with the terminator; a longer line is read in pieces

struct hapd_wpasupp_cfgitem {
    hapd_wpasupp_cfgitem *next;
    hapd_wpasupp_cfgitem *child;  // first item inside a block
    char key[CFG_KEY_SIZE];
    char value[CFG_VALUE_SIZE];  // empty for a block
    uint32_t value_len;
    bool quoted;  // the value was in double quotes; they are left out
};

enum cfgitem_line_state : int {
    CFG_LINE_VALUE = 0,    // key and value
    CFG_LINE_OPEN = 1,     // key and opening brace
    CFG_LINE_CLOSE = 2,    // closing brace
    CFG_LINE_NOTHING = 3,  // empty, comment, no "=", or no memory
};

// Parses a file. Returns the first top-level item; release it with wps_hapd_wpasupp_config_free.
// Returns null, after a log line,
// - when the file cannot be opened;
// - when its braces do not match;
// - when there is no memory.
// A file without items gives null too.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_parse(const char *path);

// Parses a file of hostapd. hostapd knows no blocks, so a brace means nothing. The value is
// everything from behind the first "=" to the end of the line, with quotes and blanks. The rest is
// as above, and the log lines are the same. quiet: write none of these lines.
hapd_wpasupp_cfgitem *kelm_parse_hostapd_config(const char *path, bool quiet = false);

// Parses one line. line: CFG_LINE_SIZE bytes, all zero behind the text. *state becomes the kind of
// the line. Returns an item for CFG_LINE_VALUE and CFG_LINE_OPEN, which the caller releases;
// otherwise null. Without memory: null (logged) and CFG_LINE_NOTHING.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_fetch_keyvalue(const char *line,
                                                             cfgitem_line_state *state);

// Returns the first item whose key begins with key, or null. Searches first and the items after it,
// but not the inside of blocks.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_get(hapd_wpasupp_cfgitem *first, const char *key);

// Releases an item, all items after it and all items inside them. Null is allowed.
void wps_hapd_wpasupp_config_free(hapd_wpasupp_cfgitem *first);

// Logs the tree at level 7: a line for each item, with one tab for each level of nesting.
void wps_hapd_wpasupp_config_dump(const hapd_wpasupp_cfgitem *first);

struct cfg_tree_freer {
    void operator()(hapd_wpasupp_cfgitem *first) const { wps_hapd_wpasupp_config_free(first); }
};
using unique_cfg_tree = std::unique_ptr<hapd_wpasupp_cfgitem, cfg_tree_freer>;

}  // namespace kelm
