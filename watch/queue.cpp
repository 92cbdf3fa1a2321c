// SPDX-License-Identifier: ISC
// The texts stand one after the other. Before each stand its number and its length.
#include "watch/queue.h"

#include <cstring>

namespace kelm {

namespace {

struct head {
    uint32_t tag;
    uint32_t length;
};

}  // namespace

bool watch_queue::has_room_for(size_t length) const
{
    return size_ - (end_ - begin_) >= sizeof(head) + length;
}

bool watch_queue::push(uint32_t tag, const char *text, size_t length)
{
    if (!has_room_for(length))
        return false;
    if (size_ - end_ < sizeof(head) + length) {
        memmove(memory_, memory_ + begin_, end_ - begin_);
        end_ -= begin_;
        begin_ = 0;
    }
    const head what = {tag, static_cast<uint32_t>(length)};
    memcpy(memory_ + end_, &what, sizeof what);
    memcpy(memory_ + end_ + sizeof what, text, length);
    end_ += sizeof what + length;
    return true;
}

bool watch_queue::front(uint32_t *tag, const char **text, size_t *length) const
{
    if (empty())
        return false;
    head what = {};
    memcpy(&what, memory_ + begin_, sizeof what);
    *tag = what.tag;
    *text = memory_ + begin_ + sizeof what;
    *length = what.length;
    return true;
}

void watch_queue::pop()
{
    uint32_t tag;
    const char *text;
    size_t length;
    if (!front(&tag, &text, &length))
        return;
    begin_ += sizeof(head) + length;
    if (empty())
        begin_ = end_ = 0;
}

}  // namespace kelm
