// SPDX-License-Identifier: ISC
// Comparison of what was written with what is read back.
#pragma once

#include <json-c/json.h>

namespace kelm_fuzz {

// As the library's own comparison, but that not-a-number equals itself and a double its integer:
// the library reads "1e" as a double, keeps it as "1", and reads that as an integer.
bool is_same_json(json_object *written, json_object *read);

}  // namespace kelm_fuzz
