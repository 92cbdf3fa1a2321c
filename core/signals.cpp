// SPDX-License-Identifier: ISC
// Holds the daemon's signals back until the main loop waits.
#include "core/signals.h"

namespace kelm {

namespace {

constexpr int HELD_SIGNALS[] = {SIGUSR1, SIGUSR2, SIGTERM, SIG_NEW_CONFIG};
// Any of these would end the daemon by default: an attempt lost, and a pid file left behind that
// bars every later start.
constexpr int UNHEARD_SIGNALS[] = {SIGHUP, SIGINT, SIGPIPE};

}  // namespace

void kelm_hold_back_signals()
{
    sigset_t held;
    sigemptyset(&held);
    for (int number : HELD_SIGNALS)
        sigaddset(&held, number);
    pthread_sigmask(SIG_BLOCK, &held, nullptr);
}

void kelm_claim_signals()
{
    // The bus library takes SIGTERM for itself where it finds the default, and its thread may look
    // at any moment. A handler that is never reached shows it that the signal has an owner.
    struct sigaction taken = {};
    taken.sa_handler = [](int) {};
    sigaction(SIGTERM, &taken, nullptr);
    // Handlers here too: the library takes SIGINT for itself only where it finds the default.
    taken.sa_flags = SA_RESTART;
    for (int number : UNHEARD_SIGNALS)
        sigaction(number, &taken, nullptr);

    kelm_hold_back_signals();
}

void kelm_wait_mask(sigset_t *mask)
{
    pthread_sigmask(SIG_BLOCK, nullptr, mask);
    for (int number : HELD_SIGNALS)
        sigdelset(mask, number);
}

}  // namespace kelm
