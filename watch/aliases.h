// SPDX-License-Identifier: ISC
// Aliases in place of addresses and names that tell whose devices these are (--anonymous).
#pragma once

#include <cstdint>

#include "watch/text.h"

namespace kelm {

constexpr size_t WATCH_ALIASES_MAX = 1024;  // of a kind

enum class alias_kind { device, network, uuid, name };
constexpr size_t WATCH_ALIAS_KINDS = 4;

// "device-1", "network-2": the same text always gets the same alias. When the table is full, a new
// text gets "device-more". An address gets the same alias with ":" or with "-" between its bytes.
class watch_aliases {
public:
    void add_alias(alias_kind kind, text_span text, text_out *out);

    // Writes the text with aliases in place of addresses and UUIDs. An address or UUID of zeros
    // stays: it belongs to nobody.
    void rewrite(text_span text, text_out *out);

private:
    // A hash of each text, enough to recognise it; the text itself is not kept.
    uint64_t seen_[WATCH_ALIAS_KINDS][WATCH_ALIASES_MAX] = {};
    size_t counts_[WATCH_ALIAS_KINDS] = {};
};

}  // namespace kelm
