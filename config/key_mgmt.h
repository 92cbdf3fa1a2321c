// SPDX-License-Identifier: ISC
// What the words of "key_mgmt" and "wpa_key_mgmt" mean for a network's security.
#pragma once

#include <cstdint>

namespace kelm {

// Returns the kinds of key management that the words of a value name, as bits. 0 when no word is
// known.
uint32_t kelm_key_mgmt_kinds(const char *value);

// Whether at least one word of the value makes a station prove itself, with a key or in another
// way. A word that is not known counts as such a word.
bool kelm_asks_for_proof(const char *value);

// Whether a station proves itself by SAE alone. Then the password of a "sae_password" line counts,
// where there is one, and not the passphrase.
bool kelm_is_sae_only(uint32_t kinds);

// Returns the security of a network with these kinds, as WPS_AUTH_*. A network with a key is never
// open. *version, as WPS_VERSION_*: before the call, what the rest of the file says; after it, what
// belongs to the security.
uint32_t kelm_key_mgmt_mode(uint32_t kinds, bool has_key, uint32_t *version);

}  // namespace kelm
