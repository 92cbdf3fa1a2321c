// SPDX-License-Identifier: ISC
// kelm: one run of the daemon serves one WPS attempt.
#include <unistd.h>

#include "core/log.h"
#include "core/signals.h"
#include "core/switches.h"
#include "daemon/lifecycle.h"
#include "daemon/mainloop.h"
#include "ipc/bus.h"

namespace kelm {

namespace {

// Starts the bus thread and all else, and runs the main loop to its end. Returns 0, or -1 when a
// step of the start fails.
int _serve()
{
    if (wps_create_ibus_thread() < 0)
        return -1;
    if (_kelm_register_signal() != 0) {
        kelm_log_as("main", KELM_LOG_ALWAYS, "kelm register signal handler failed.\n");
        return -1;
    }
    if (_kelm_open() != 0) {
        kelm_log_as("main", KELM_LOG_ALWAYS, "kelm open failed.\n");
        return -1;
    }
    (void)kelm_mainloop();
    return 0;
}

}  // namespace

}  // namespace kelm

int main(int argc, char **)
{
    if (argc > 1) {
        constexpr char USAGE[] = "Usage: kelm\n";
        (void)(write(STDERR_FILENO, USAGE, sizeof USAGE - 1) < 0);
        return -1;
    }
    kelm::kelm_read_switches();
    kelm::kelm_claim_signals();
    kelm::kelm_daemonize();
    if (kelm::kelm_create_pid_file() != 0)
        return -1;
    kelm::kelm_guard_pid_file();
    // In every console log that somebody sends us, this line tells the version.
    kelm_log_always("kelm " KELM_VERSION "\n");
    kelm::kelm_tell_refused_switches();
    const int result = kelm::_serve();
    kelm::kelm_leave();
    return result;
}
