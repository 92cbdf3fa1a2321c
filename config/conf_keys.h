// SPDX-License-Identifier: ISC
// Tables of keys, for code that reads a configuration tree. A row says what happens to the value of
// its key.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "config/conf_tree.h"
#include "config/key_mgmt.h"
#include "config/security_words.h"
#include "config/value_text.h"
#include "core/text.h"

namespace kelm {

// found_t: the type in which a reader collects what it has found.
template <typename found_t>
struct conf_key {
    const char *key;
    void (*take)(found_t *found, const hapd_wpasupp_cfgitem &item);
};

// Hands an item to the row that has its key. The whole key must be equal. An item without a row is
// ignored.
template <typename found_t, size_t count>
void kelm_take_item(const conf_key<found_t> (&rows)[count], found_t *found,
                    const hapd_wpasupp_cfgitem &item)
{
    for (const conf_key<found_t> &row : rows) {
        if (strcmp(item.key, row.key) == 0) {
            row.take(found, item);
            return;
        }
    }
}

// Functions for rows that store a value in a member and do nothing else. If a key comes again, the
// later line replaces the earlier one. But lines of "pairwise" and "proto" are combined with the
// earlier ones (see config/security_words.h).
template <auto member, typename found_t>
void kelm_text_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    copy_text(found->*member, item.value);
}

template <auto member, typename found_t>
void kelm_number_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    found->*member = static_cast<uint32_t>(atoi(item.value));
}

template <auto member, typename found_t>
void kelm_ssid_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    kelm_decode_ssid(item, found->*member);
}

template <auto member, typename found_t>
void kelm_sae_password_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    kelm_take_sae_password(item, found->*member);
}

template <auto member, typename found_t>
void kelm_pairwise_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    kelm_apply_pairwise(item.value, &(found->*member));
}

template <auto member, typename found_t>
void kelm_proto_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    kelm_apply_proto(item.value, &(found->*member));
}

// If no word of the value is known, the kinds from an earlier line stay.
template <auto member, typename found_t>
void kelm_key_mgmt_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    const uint32_t kinds = kelm_key_mgmt_kinds(item.value);
    if (kinds != 0)
        found->*member = kinds;
}

}  // namespace kelm
