// SPDX-License-Identifier: ISC
// Reader of hostapd and wpa_supplicant configuration files: a tree of keys, values and blocks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

namespace kelm {

constexpr size_t CFG_KEY_SIZE = 64;
constexpr size_t CFG_VALUE_SIZE = 256;
constexpr size_t CFG_LINE_SIZE = 323;  // with the terminator; a longer line comes in pieces

struct hapd_wpasupp_cfgitem {
    hapd_wpasupp_cfgitem *next;
    hapd_wpasupp_cfgitem *child;  // first item inside a block
    char key[CFG_KEY_SIZE];
    char value[CFG_VALUE_SIZE];  // empty for a block
    uint32_t value_len;
    bool quoted;  // the value stood in double quotes, which are not part of it
};

enum cfgitem_line_state : int {
    CFG_LINE_VALUE = 0,    // key and value
    CFG_LINE_OPEN = 1,     // key and opening brace
    CFG_LINE_CLOSE = 2,    // closing brace
    CFG_LINE_NOTHING = 3,  // empty, comment, no "=", or no memory
};

// Parses a file. Returns the first top-level item, to be released with
// wps_hapd_wpasupp_config_free, or null (logged) for a missing or unbalanced file, one without
// items, or one whose lines find no memory.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_parse(const char *path);

// Parses a file of hostapd, which knows no blocks and takes a value as it stands, from behind the
// first "=" to the end of the line: quotes and blanks belong to it, and a brace means nothing. Else
// as above, log lines included. quiet: without any of them.
hapd_wpasupp_cfgitem *kelm_parse_hostapd_config(const char *path, bool quiet = false);

// Parses one line. line: CFG_LINE_SIZE bytes, all zero beyond the text.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_fetch_keyvalue(const char *line,
                                                             cfgitem_line_state *state);

// The first item of one level whose key begins with key, or null. Blocks are not entered.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_get(hapd_wpasupp_cfgitem *first, const char *key);

// Releases an item, what follows it and what is inside. Null is fine.
void wps_hapd_wpasupp_config_free(hapd_wpasupp_cfgitem *first);

// Lists the tree at level 7, one tab per nesting level.
void wps_hapd_wpasupp_config_dump(const hapd_wpasupp_cfgitem *first);

struct cfg_tree_freer {
    void operator()(hapd_wpasupp_cfgitem *first) const { wps_hapd_wpasupp_config_free(first); }
};
using unique_cfg_tree = std::unique_ptr<hapd_wpasupp_cfgitem, cfg_tree_freer>;

}  // namespace kelm
