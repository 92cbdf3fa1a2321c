// SPDX-License-Identifier: ISC
// What the words of "key_mgmt" and "wpa_key_mgmt" mean for a network's security.
#pragma once

#include <cstdint>

namespace kelm {

// The kinds of key management among the words of a value, as bits; 0 when none of them is known.
uint32_t kelm_key_mgmt_kinds(const char *value);

// Whether a station proves itself, with a key or in another way, by at least one of the words. One
// that is not known is taken for such.
bool kelm_asks_for_proof(const char *value);

// Whether a station proves itself by SAE alone, so that a password of its own for SAE counts and
// not the passphrase.
bool kelm_is_sae_only(uint32_t kinds);

// The security of a network with these kinds, as WPS_AUTH_*; never open beside a key. version: in
// what the file says otherwise, out what goes with the mode.
uint32_t kelm_key_mgmt_mode(uint32_t kinds, bool has_key, uint32_t *version);

}  // namespace kelm
