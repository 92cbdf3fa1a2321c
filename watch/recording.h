// SPDX-License-Identifier: ISC
// The recording, JSON lines (docs/recording.md).
#pragma once

#include <cstdint>

#include "core/handle.h"
#include "watch/text.h"

namespace kelm {

// When something was seen.
struct watch_moment {
    uint64_t ms;       // CLOCK_MONOTONIC
    uint64_t wall_ms;  // CLOCK_REALTIME
};

watch_moment watch_now();

// How the opening went. When it failed, errno says why.
enum class recording_result { ok, exists, failed };

// A file that is written line by line, each line in one write. So its lines can be read even if the
// program is killed.
class watch_recording {
public:
    // Makes the file, readable by its owner alone. A file that is there already is used only if it
    // is a regular and empty one, belongs to this user and has no second name. A link is not
    // followed.
    recording_result open(const char *path, unsigned limit_kib, bool anonymous, watch_moment now);

    // Writes a line, unless the recording has ended. If this line ends it, returns the reason,
    // which the caller tells; else null.
    const char *add(watch_moment now, const char *source, const char *band, const char *iface,
                    text_span text);

    bool is_open() const { return file_.valid(); }
    // Whether the recording ended because a line could not be written.
    bool failed() const { return failed_; }
    void close() { file_.reset(); }

private:
    const char *_write(text_span line);
    const char *_end_at_limit(watch_moment now);

    unique_fd file_;
    uint64_t room_ = 0;  // bytes that are left, not counting those kept for the last line
    bool failed_ = false;
    unsigned limit_kib_ = 0;
    char trouble_[128] = {};
};

// Writes text as in a JSON string. Bytes that are no UTF-8, and control characters, become \u00XX.
void watch_add_json(text_span text, text_out *out);

}  // namespace kelm
