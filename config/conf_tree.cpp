// SPDX-License-Identifier: ISC
// Reader of hostapd and wpa_supplicant configuration files.
#include "config/conf_tree.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "core/file.h"
#include "core/handle.h"
#include "core/log.h"
#include "core/text.h"

namespace kelm {

namespace {

constexpr size_t OPEN_BLOCKS_MAX = 10;
constexpr char TABS[] = "\t\t\t\t\t\t\t\t\t\t\t\t\t\t\t";
constexpr size_t DUMP_LEVELS_MAX = sizeof TABS - 1;  // more than a parse makes

// Both readers write their log lines under these names.
constexpr const char *PARSE = "wps_hapd_wpasupp_config_parse";
constexpr const char *FETCH = "wps_hapd_wpasupp_config_fetch_keyvalue";

// The open blocks of a parse; the innermost is the last.
struct cfgitem_ptr_stack {
    hapd_wpasupp_cfgitem **items;
    size_t capacity;
    size_t count;
};

int cfgitem_ptr_stack_init(cfgitem_ptr_stack *stack, size_t capacity)
{
    // An array of pointers is meant. NOLINTNEXTLINE(bugprone-sizeof-expression)
    stack->items = static_cast<hapd_wpasupp_cfgitem **>(calloc(capacity, sizeof *stack->items));
    stack->capacity = capacity;
    stack->count = 0;
    return stack->items == nullptr ? -1 : 0;
}

void cfgitem_ptr_stack_deinit(cfgitem_ptr_stack *stack)
{
    free(stack->items);
    *stack = {};
}

size_t cfgitem_ptr_stack_count(const cfgitem_ptr_stack *stack)
{
    return stack->items == nullptr ? 0 : stack->count;
}

// Returns the item, or null when there is no room for it.
hapd_wpasupp_cfgitem *cfgitem_ptr_stack_push(cfgitem_ptr_stack *stack, hapd_wpasupp_cfgitem *item)
{
    if (stack->items == nullptr || stack->count == stack->capacity)
        return nullptr;
    stack->items[stack->count++] = item;
    return item;
}

hapd_wpasupp_cfgitem *cfgitem_ptr_stack_pop(cfgitem_ptr_stack *stack)
{
    if (cfgitem_ptr_stack_count(stack) == 0)
        return nullptr;
    hapd_wpasupp_cfgitem *item = stack->items[--stack->count];
    stack->items[stack->count] = nullptr;
    return item;
}

// A tree that is being built. While a block is open, its lines follow it as siblings. Its closing
// brace moves all of them below the block in one step.
struct cfg_builder {
    cfg_builder() = default;
    cfg_builder(const cfg_builder &) = delete;
    cfg_builder &operator=(const cfg_builder &) = delete;
    ~cfg_builder() { cfgitem_ptr_stack_deinit(&open_blocks); }

    unique_cfg_tree tree;
    hapd_wpasupp_cfgitem *last = nullptr;  // the next item comes behind this one; null: no item yet
    cfgitem_ptr_stack open_blocks = {};
    bool quiet = false;

    // The level of a log line. In a quiet parse it is one that is never reached.
    int level(int wanted) const { return quiet ? INT_MAX : wanted; }
};

void _append(cfg_builder *builder, hapd_wpasupp_cfgitem *item)
{
    if (builder->last == nullptr)
        builder->tree.reset(item);
    else
        builder->last->next = item;
    builder->last = item;
}

// The eleventh open block is not recorded, so its closing brace closes the tenth. A file with such
// a block therefore ends with a brace too many, and is refused as a whole. No Wi-Fi daemon writes
// such a file. If the eleventh block were left out together with its brace, its lines would be
// taken for lines of the tenth.
void _open_block(cfg_builder *builder, hapd_wpasupp_cfgitem *item)
{
    _append(builder, item);
    (void)cfgitem_ptr_stack_push(&builder->open_blocks, item);
}

// False when no block is open.
bool _close_block(cfg_builder *builder)
{
    hapd_wpasupp_cfgitem *block = cfgitem_ptr_stack_pop(&builder->open_blocks);
    if (block == nullptr)
        return false;
    block->child = block->next;
    block->next = nullptr;
    builder->last = block;
    return true;
}

unique_cfg_tree _make_item(int level)
{
    unique_cfg_tree item(
        static_cast<hapd_wpasupp_cfgitem *>(calloc(1, sizeof(hapd_wpasupp_cfgitem))));
    if (!item)
        kelm_log_as(FETCH, level, "%s: fail to alloc hapd_wpasupp_cfgitem\n", FETCH);
    return item;
}

enum class line_result { taken, skipped, unmatched_brace, unknown };

bool _is_blank(char c)
{
    return c == ' ' || c == '\t';
}

const char *_skip_blanks(const char *at)
{
    while (_is_blank(*at))
        ++at;
    return at;
}

// Whether a line makes an item if there is memory for one.
bool _makes_item(const char *line)
{
    return *_skip_blanks(line) != '#' && strchr(line, '=') != nullptr;
}

line_result _take_line(cfg_builder *builder, const char *line)
{
    cfgitem_line_state state = CFG_LINE_NOTHING;
    unique_cfg_tree item(wps_hapd_wpasupp_config_fetch_keyvalue(line, &state));
    switch (state) {
    case CFG_LINE_VALUE:
        if (!item)
            return line_result::unknown;
        _append(builder, item.release());
        return line_result::taken;
    case CFG_LINE_OPEN:
        if (!item)
            return line_result::unknown;
        _open_block(builder, item.release());
        return line_result::taken;
    case CFG_LINE_CLOSE:
        return _close_block(builder) ? line_result::taken : line_result::unmatched_brace;
    case CFG_LINE_NOTHING:
        // If this line should have made an item, there was no memory for it. Then it must not be
        // skipped: without its passphrase a secured network would become an open one.
        return _makes_item(line) ? line_result::unknown : line_result::skipped;
    }
    return line_result::unknown;
}

// Returns a place behind the last byte that is not zero, with up to seven zeros before the place.
// It goes back eight bytes at a time, since most of a line is unused.
const char *_skip_zeros_back(const char *line)
{
    const char *end = line + CFG_LINE_SIZE;
    uint64_t word = 0;
    while (end - line >= static_cast<ptrdiff_t>(sizeof word)) {
        memcpy(&word, end - sizeof word, sizeof word);
        if (word != 0)
            break;
        end -= sizeof word;
    }
    return end;
}

// Returns the last character that counts. A carriage return counts, as it does for hostapd. So in a
// file with CR-LF line ends each value ends with a carriage return and keeps its quotes.
const char *_last_character(const char *line)
{
    const char *at = _skip_zeros_back(line) - 1;
    while (at > line && (*at == '\0' || *at == '\n' || _is_blank(*at)))
        --at;
    return at;
}

void _store_key(hapd_wpasupp_cfgitem *item, const char *first, const char *equals)
{
    while (equals > first && _is_blank(equals[-1]))
        --equals;
    copy_text(item->key, sizeof item->key, first, static_cast<size_t>(equals - first));
}

// If first stands behind last, the value is empty. A value of one quote character has no pair of
// quotes.
void _store_value(hapd_wpasupp_cfgitem *item, const char *first, const char *last)
{
    size_t length = first > last ? 0 : static_cast<size_t>(last - first) + 1;
    if (length >= 2 && *first == '"' && *last == '"') {
        ++first;
        length -= 2;
        item->quoted = true;
    }
    item->value_len =
        static_cast<uint32_t>(copy_text(item->value, sizeof item->value, first, length));
}

// Reads a line as hostapd does.
line_result _take_hostapd_line(cfg_builder *builder, const char *line)
{
    if (!_makes_item(line))
        return line_result::skipped;
    unique_cfg_tree item = _make_item(builder->level(KELM_LOG_ALWAYS));
    if (!item)
        return line_result::unknown;
    const char *first = _skip_blanks(line);
    const char *equals = strchr(first, '=');
    _store_key(item.get(), first, equals);
    const char *value = equals + 1;
    item->value_len = static_cast<uint32_t>(
        copy_text(item->value, sizeof item->value, value, strcspn(value, "\n")));
    _append(builder, item.release());
    return line_result::taken;
}

bool _take_lines(cfg_builder *builder, FILE *file,
                 line_result (*take)(cfg_builder *builder, const char *line))
{
    char line[CFG_LINE_SIZE] = {};
    while (fgets(line, sizeof line, file) != nullptr) {
        switch (take(builder, line)) {
        case line_result::taken:
            break;
        case line_result::skipped:
            kelm_log_as(PARSE, builder->level(KELM_LOG_DETAIL),
                        "%s: fetch key value fail in line, continue...\n", PARSE);
            break;
        case line_result::unmatched_brace:
            kelm_log_as(PARSE, builder->level(KELM_LOG_ALWAYS),
                        "%s: fail to pop, invalid matching of {}\n", PARSE);
            return false;
        case line_result::unknown:
            kelm_log_as(PARSE, builder->level(KELM_LOG_NORMAL),
                        "%s: fetch key value fail, return unknow state\n", PARSE);
            return false;
        }
        memset(line, 0, sizeof line);
    }
    return true;
}

hapd_wpasupp_cfgitem *_parse(const char *path, bool quiet,
                             line_result (*take)(cfg_builder *builder, const char *line))
{
    cfg_builder builder;
    builder.quiet = quiet;
    if (cfgitem_ptr_stack_init(&builder.open_blocks, OPEN_BLOCKS_MAX) != 0) {
        kelm_log_as(PARSE, builder.level(KELM_LOG_ALWAYS), "Fail to init cfgitem ptr stack\n");
        return nullptr;
    }
    if (path == nullptr) {
        kelm_log_as(PARSE, builder.level(KELM_LOG_ALWAYS), "%s: config file name empty\n", PARSE);
        return nullptr;
    }
    const unique_file file = kelm_open_to_read(path);
    if (!file) {
        kelm_log_as(PARSE, builder.level(KELM_LOG_ALWAYS), "%s: open config file %s failed\n",
                    PARSE, path);
        return nullptr;
    }
    if (!_take_lines(&builder, file.get(), take))
        return nullptr;

    kelm_log_as(PARSE, builder.level(KELM_LOG_NORMAL), "End of anaylze config file\n");
    if (cfgitem_ptr_stack_count(&builder.open_blocks) != 0) {
        kelm_log_as(PARSE, builder.level(KELM_LOG_ALWAYS), "%s: invalid matching of {}\n", PARSE);
        return nullptr;
    }
    return builder.tree.release();
}

}  // namespace

hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_parse(const char *path)
{
    return _parse(path, false, _take_line);
}

hapd_wpasupp_cfgitem *kelm_parse_hostapd_config(const char *path, bool quiet)
{
    return _parse(path, quiet, _take_hostapd_line);
}

hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_fetch_keyvalue(const char *line,
                                                             cfgitem_line_state *state)
{
    *state = CFG_LINE_NOTHING;
    if (line[0] == '\n' || line[0] == '\0')
        return nullptr;
    const char *last = _last_character(line);
    const char *first = _skip_blanks(line);
    if (*first == '#')
        return nullptr;
    if (*first == '}') {
        *state = CFG_LINE_CLOSE;
        return nullptr;
    }

    unique_cfg_tree item = _make_item(KELM_LOG_ALWAYS);
    if (!item)
        return nullptr;
    const char *equals = strchr(first, '=');
    if (equals == nullptr)
        return nullptr;
    _store_key(item.get(), first, equals);

    const char *value = _skip_blanks(equals + 1);
    if (*value == '{') {
        *state = CFG_LINE_OPEN;
        return item.release();
    }
    *state = CFG_LINE_VALUE;
    _store_value(item.get(), value, last);
    return item.release();
}

// The beginning of the key decides. Callers ask for "ssid". If the file has no plain "ssid", they
// also get a longer name, such as the "ssid2" of an access point.
hapd_wpasupp_cfgitem *wps_hapd_wpasupp_config_get(hapd_wpasupp_cfgitem *first, const char *key)
{
    for (hapd_wpasupp_cfgitem *item = first; item != nullptr; item = item->next) {
        if (starts_with(item->key, key))
            return item;
    }
    return nullptr;
}

// NOLINTNEXTLINE(misc-no-recursion): a parsed tree is ten blocks deep at most.
void wps_hapd_wpasupp_config_free(hapd_wpasupp_cfgitem *first)
{
    while (first != nullptr) {
        hapd_wpasupp_cfgitem *next = first->next;
        first->value_len = 0;
        wps_hapd_wpasupp_config_free(first->child);
        free(first);
        first = next;
    }
}

void wps_hapd_wpasupp_config_dump(const hapd_wpasupp_cfgitem *first)
{
    kelm_log_detail("Dump config file\n");
    const hapd_wpasupp_cfgitem *after[DUMP_LEVELS_MAX] = {};  // where each outer level continues
    size_t level = 0;
    const hapd_wpasupp_cfgitem *item = first;
    while (item != nullptr) {
        kelm_log_detail("%s%s=%s\n", TABS + DUMP_LEVELS_MAX - level, item->key, item->value);
        if (item->child != nullptr && level < DUMP_LEVELS_MAX) {
            after[level++] = item->next;
            item = item->child;
            continue;
        }
        item = item->next;
        while (item == nullptr && level > 0)
            item = after[--level];
    }
}

}  // namespace kelm
