// SPDX-License-Identifier: ISC
// Owning handles: what is opened in a function is closed on each of its ways out.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <memory>

#include <unistd.h>

namespace kelm {

// A file descriptor that closes itself; -1 means none.
class unique_fd {
public:
    explicit unique_fd(int fd = -1) : fd_(fd) {}
    unique_fd(const unique_fd &) = delete;
    unique_fd &operator=(const unique_fd &) = delete;
    unique_fd(unique_fd &&other) noexcept : fd_(other.release()) {}
    unique_fd &operator=(unique_fd &&) = delete;
    ~unique_fd() { reset(); }

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

    int release()
    {
        const int fd = fd_;
        fd_ = -1;
        return fd;
    }

    void reset(int fd = -1)
    {
        if (fd_ >= 0)
            ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

struct file_closer {
    void operator()(FILE *file) const { ::fclose(file); }
};
using unique_file = std::unique_ptr<FILE, file_closer>;

// For what malloc and its kin returned.
struct malloc_deleter {
    void operator()(void *memory) const { ::free(memory); }
};
using unique_text = std::unique_ptr<char, malloc_deleter>;

}  // namespace kelm
