// SPDX-License-Identifier: ISC
// Tables of keys for those who read a configuration tree: key, and what becomes of its value.
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

// found_t: what a reader has found so far.
template <typename found_t>
struct conf_key {
    const char *key;
    void (*take)(found_t *found, const hapd_wpasupp_cfgitem &item);
};

// Hands an item to the row with its key, compared whole. One without a row counts for nothing.
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

// What a row takes where a value goes into a member and does nothing else. A later line with the
// same key replaces the earlier one; of "pairwise" and "proto" it joins it.
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

// A value without a word that is known leaves the kinds that an earlier line had.
template <auto member, typename found_t>
void kelm_key_mgmt_into(found_t *found, const hapd_wpasupp_cfgitem &item)
{
    const uint32_t kinds = kelm_key_mgmt_kinds(item.value);
    if (kinds != 0)
        found->*member = kinds;
}

}  // namespace kelm
