// SPDX-License-Identifier: ISC
// Answers time() in place of the C library, see the link option --wrap=time.
#include "tests/unit/clock.h"

extern "C" time_t __real_time(time_t *out);
extern "C" time_t __wrap_time(time_t *out);

namespace {
time_t stopped_at = 0;
}

extern "C" time_t __wrap_time(time_t *out)
{
    if (stopped_at == 0)
        return __real_time(out);
    if (out != nullptr)
        *out = stopped_at;
    return stopped_at;
}

namespace kelm_test {

void set_time(time_t now)
{
    stopped_at = now;
}

void advance_time(time_t seconds)
{
    stopped_at += seconds;
}

}  // namespace kelm_test
