// SPDX-License-Identifier: ISC
// Brings a target into the private world before its first input.
#include <cstdio>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "tests/fuzz/fuzz.h"
#include "tests/fuzz/world.h"
#include "tests/world/world.h"

extern "C" int LLVMFuzzerInitialize(int *argc, char ***argv);

// The paths on the command line are opened afterwards: they have to lie outside /tmp, or be
// relative to the current folder, which stays what it was.
extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    // A merge starts this program again from within its world.
    if (getenv("KELM_FUZZ_WORLD") == nullptr) {
        kelm_test::enter_private_world(KELM_SOURCE_DIR, KELM_BUILD_DIR);
        setenv("KELM_FUZZ_WORLD", "1", 1);
    }
    // The daemon's own lines on standard output would be most of what is seen.
    if (freopen("/dev/null", "w", stdout) == nullptr)
        abort();
    return 0;
}

namespace kelm_fuzz {

void put_file(const char *path, const std::string &text)
{
    const int fd = open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    PROPERTY(fd >= 0);
    PROPERTY(write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size()));
    close(fd);
}

void remove_file(const char *path)
{
    (void)unlink(path);
}

std::string get_file(const char *path)
{
    return kelm_test::read_file(path);
}

}  // namespace kelm_fuzz
