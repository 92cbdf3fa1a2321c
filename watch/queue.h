// SPDX-License-Identifier: ISC
// A queue of texts in memory of a fixed size.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kelm {

class watch_queue {
public:
    // memory belongs to the caller and must live as long as the queue.
    watch_queue(char *memory, size_t size) : memory_(memory), size_(size) {}

    // Puts a text and a number at the end. False: there is no room, and nothing was put.
    bool push(uint32_t tag, const char *text, size_t length);

    // The first text, not terminated. It stays in the queue until pop(). False for an empty queue.
    bool front(uint32_t *tag, const char **text, size_t *length) const;
    void pop();

    bool empty() const { return begin_ == end_; }
    bool has_room_for(size_t length) const;

private:
    char *memory_;
    size_t size_;
    size_t begin_ = 0;
    size_t end_ = 0;
};

}  // namespace kelm
