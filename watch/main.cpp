// SPDX-License-Identifier: ISC
// kelm-watch: tells and records what happens around the daemon, and changes nothing.
#include "watch/options.h"
#include "watch/outputs.h"
#include "watch/sources.h"
#include "watch/tell.h"

namespace {

constexpr int WRONG_USE = 2;

}  // namespace

int main(int argc, char **argv)
{
    kelm::watch_options options;
    switch (kelm::watch_read_options(argc, argv, &options)) {
    case kelm::watch_use::told:
        return 0;
    case kelm::watch_use::wrong:
        return WRONG_USE;
    case kelm::watch_use::run:
        break;
    }
    if (!kelm::watch_open_outputs(options))
        return 1;
    const int status = kelm::watch_run(options);
    kelm::watch_close_outputs();
    return kelm::watch_recording_failed() ? 1 : status;
}
