// SPDX-License-Identifier: ISC
// JSON files: reading with a limit, and loading an object to merge into.
#pragma once

#include <cstddef>

#include <sys/types.h>

#include "core/json_text.h"

namespace kelm {

// What kelm_read_json returns: ok, or why there is nothing.
enum class json_read_result { ok, no_memory, open_failed, read_failed, parse_failed };

// Reads at most limit bytes of a file, in one read, and parses them. flags: O_RDONLY or O_RDWR.
// *out changes only when the result is ok.
json_read_result kelm_read_json(const char *path, int flags, size_t limit, unique_json *out);

// Loads a whole file of up to KELM_JSON_FILE_MAX bytes. Null when it is missing, larger or no JSON,
// or when memory runs out.
constexpr off_t KELM_JSON_FILE_MAX = off_t{4} * 1024 * 1024;
unique_json kelm_load_json(const char *path);

// Returns the integer under key. Returns fallback when the key is missing or its value is of any
// other type; a boolean is another type too.
int kelm_json_int(json_object *object, const char *key, int fallback);

// Returns the object of a file. Runs touch, which creates a missing file; only its owner can read
// it. If the file holds no JSON object, the result is a fresh empty one. Logs the object at level
// 7. Null only without memory (logged).
unique_json _get_json_from_file(const char *path);

}  // namespace kelm
