// SPDX-License-Identifier: ISC
// JSON files: bounded reading, merging.
#pragma once

#include <cstddef>

#include <sys/types.h>

#include "core/json_text.h"

namespace kelm {

// Why kelm_read_json gave nothing.
enum class json_read_result { ok, no_memory, open_failed, read_failed, parse_failed };

// Reads at most limit bytes of a file in one read and parses them. flags: O_RDONLY or O_RDWR.
json_read_result kelm_read_json(const char *path, int flags, size_t limit, unique_json *out);

// Loads a whole file of up to KELM_JSON_FILE_MAX bytes. Null when it is missing, larger or no JSON.
constexpr off_t KELM_JSON_FILE_MAX = off_t{4} * 1024 * 1024;
unique_json kelm_load_json(const char *path);

// The integer under key, or fallback when the key is missing or of any other type, a boolean
// included.
int kelm_json_int(json_object *object, const char *key, int fallback);

// The object of a file; a missing file is created (readable by its owner only) and anything that is
// no JSON object gives a fresh empty one. Null only without memory (logged).
unique_json _get_json_from_file(const char *path);

}  // namespace kelm
