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

// How the opening went; else why it did not, and errno.
enum class recording_result { ok, exists, failed };

// A file that is written line by line, each in one write. What was written stays readable whatever
// happens to the program.
class watch_recording {
public:
    // Makes the file, readable by its owner alone. One that is there is taken only if it is a
    // regular file, empty, of this user and with one name; a link is not followed.
    recording_result open(const char *path, unsigned limit_kib, bool anonymous, watch_moment now);

    // Writes a line, unless nothing more is recorded. The trouble that has ended the recording,
    // once, to be told; else null.
    const char *add(watch_moment now, const char *source, const char *band, const char *iface,
                    text_span text);

    bool is_open() const { return file_.valid(); }
    // It ended before its limit: a line could not be written.
    bool failed() const { return failed_; }
    void close() { file_.reset(); }

private:
    const char *_write(text_span line);
    const char *_end_at_limit(watch_moment now);

    unique_fd file_;
    uint64_t room_ = 0;  // bytes, without those of the last line
    bool failed_ = false;
    unsigned limit_kib_ = 0;
    char trouble_[128] = {};
};

// Text as JSON spells it: what is no UTF-8 and what a terminal takes for a command as \u00XX.
void watch_add_json(text_span text, text_out *out);

}  // namespace kelm
