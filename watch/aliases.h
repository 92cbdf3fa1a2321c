// SPDX-License-Identifier: ISC
// Stable aliases for what tells whose devices these are (--anonymous).
#pragma once

#include <cstdint>

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_ALIASES_MAX = 1024;  // of a kind

enum class alias_kind { device, network, uuid, name };
constexpr size_t WATCH_ALIAS_KINDS = 4;

// "device-1", "network-2": the same for the same text, as long as the table has room; then
// "device-more". An address is the same whatever stands between its bytes.
class watch_aliases {
public:
    void add_alias(alias_kind kind, text_span text, text_out *out);

    // The text with aliases in place of addresses and UUIDs. One of zeros stays: it is nobody's.
    void rewrite(text_span text, text_out *out);

private:
    // What is known of each: enough to know it again, and not the text itself.
    uint64_t seen_[WATCH_ALIAS_KINDS][WATCH_ALIASES_MAX] = {};
    size_t counts_[WATCH_ALIAS_KINDS] = {};
};

}  // namespace kelm
