// SPDX-License-Identifier: ISC
// Reads the members of a flat JSON object, as on the bus and in the status files. Allocates
// nothing.
#pragma once

#include "watch/text.h"

namespace kelm {

struct watch_member {
    text_span name;   // letters, digits and "_", at most 32
    text_span value;  // as it is written, without the quotes of a text
    bool is_text;
};

// Reads an object member by member.
class watch_members {
public:
    explicit watch_members(text_span object);

    // Reads the next member. False after the last one, or when the text cannot be read: then
    // failed() is true. Objects and arrays inside the object cannot be read.
    bool next(watch_member *member);
    bool failed() const { return failed_; }

private:
    bool _fail();
    bool _take(char c);
    void _skip_blanks();
    bool _take_text(text_span *text);
    bool _take_value(watch_member *member);

    text_span rest_;
    bool is_first_ = true;
    bool failed_;
};

// The number under name, or fallback where there is none.
long watch_member_number(text_span object, const char *name, long fallback);

}  // namespace kelm
